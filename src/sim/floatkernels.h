// Floating-point scalars: IEEE formats of any width, computed by MPFR, which rounds correctly (Fousse, Hanrot, Lefevre,
// Pelissier, Zimmermann, "MPFR: a multiple-precision binary floating-point library with correct rounding", 2007).
#pragma once

#include "sim/kernels.h"

#include <orvo/api.h>
#include <orvo/corevalues.h>

#include <vector>

namespace orvo::sim {

/// In operands of floats, `shift` is the width of the exponent.
enum class FloatFunction {
    Neg,
    Abs,
    Sqrt,
    Reciprocal,
    RecipSqrt,
    CubeRoot,
    Rint,
    Round,
    Floor,
    Ceil,
    Trunc,
    Frac,
    Exp,
    Exp2,
    Exp10,
    Expm1,
    Log,
    Log2,
    Log10,
    Log1p,
    Sin,
    Cos,
    Tan,
    Cot,
    SinPi,
    CosPi,
    TanPi,
    CotPi,
    Asin,
    Acos,
    Atan,
    AsinPi,
    AcosPi,
    AtanPi,
    Add,
    Sub,
    Mul,
    Div,
    Hypot,
    Atan2,
    Mod,
    Pow,
    PowR,
    MultAdd,
    MultSub,
    Hypot3,
};

enum class FloatRounding { NearestEven, NearestAway, ToZero, Up, Down };

/// What an operation of floats is told besides its function.
struct FloatMode {
    FloatRounding rounding = FloatRounding::NearestEven;
    /// Otherwise subnormal inputs and results are zeros of their sign.
    bool keepsSubnormals = false;
};

/// `Op::aux` for these.
ORVO_API int floatAux(FloatFunction function, const FloatMode &mode);
ORVO_API int floatAux(const FloatMode &mode);

/// A function of inputs 0, 1, ... of one format.
ORVO_API Kernel floatKernel();
/// One bit; comparisons with what is no number are false, but for "not equal".
ORVO_API Kernel floatCompareKernel(Relation relation);
/// The bits of a number, rounded to nearest, ties to even.
ORVO_API std::vector<std::uint64_t> floatBits(const NumberValueRef &number, std::uint32_t width,
                                              std::uint32_t exponent);

/// From one format to another, and from a fixed-point number whose fraction bits are input 0's `shift`.
ORVO_API Kernel floatConvertKernel();
ORVO_API Kernel floatFromFixedKernel();
/// To an integer of `op.out.shift` fraction bits; infinities go to the ends, what is no number to zero.
ORVO_API Kernel floatToFixedKernel(Rounding rounding, Saturation saturation);
/// One bit: whether that meets a bound of the type of input 1, of which the value does not count.
ORVO_API Kernel floatClipKernel(Rounding rounding, Saturation saturation);
/// The polynomial of input 0 with the coefficients in the other inputs, the constant term first; it rounds once.
ORVO_API Kernel floatPolynomialKernel();
/// Input 0 to the power of, or times two to the power of, the integer in input 1.
ORVO_API Kernel floatPowerKernel(bool ofTwo);
/// The binary exponent of input 0.
ORVO_API Kernel floatExponentKernel();

} // namespace orvo::sim
