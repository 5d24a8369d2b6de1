// What an operation on floats must give, without any of the code that is judged: numbers are exact rationals, or the
// leading bits of one with the knowledge whether anything lies below them, and are rounded once, here.
#pragma once

#include <gmpxx.h>
#include <mpfr.h>

#include <cstdint>

namespace orvo::testing {

struct FloatFormat {
    unsigned exponent;
    unsigned fraction;
    unsigned width() const { return 1 + exponent + fraction; }
    long bias() const { return (1L << (exponent - 1)) - 1; }
    std::uint64_t patterns() const { return std::uint64_t{1} << width(); }
};

enum class Direction { NearestEven, NearestAway, ToZero, Up, Down };

/// A number before it is rounded.
struct Real {
    enum class Kind { NotANumber, Infinite, Finite };
    Kind kind = Kind::Finite;
    bool isNegative = false;
    /// The magnitude is this, and something less than one more if it is inexact, times two to the exponent.
    std::uint64_t mantissa = 0;
    long exponent = 0;
    bool isInexact = false;

    bool isNan() const { return kind == Kind::NotANumber; }
    bool isInfinite() const { return kind == Kind::Infinite; }
    bool isZero() const { return kind == Kind::Finite && mantissa == 0; }
    Real withSign(bool negative) const;
    /// The value of a finite one that is exact.
    mpq_class rational() const;
};

mpq_class powerOfTwo(long exponent);

Real notANumber();
Real infinity(bool isNegative);
Real zeroOf(bool isNegative);
/// Zero is positive.
Real realOf(const mpq_class &number);
/// The root of a number that is not negative.
Real rootOf(const mpq_class &number, unsigned degree);
/// A result of MPFR that was cut toward zero to 53 bits. `isInexact` tells whether anything was cut.
Real realOf(mpfr_srcptr number, bool isInexact);

Real decoded(std::uint64_t bits, const FloatFormat &format, bool subnormals);
/// Rounded to the format's precision. A result beyond the range becomes what IEEE 754 tells for the direction; below
/// the least normal number it is rounded to a subnormal, or, where these are not kept, becomes zero.
std::uint64_t encoded(const Real &real, const FloatFormat &format, Direction direction, bool subnormals);

} // namespace orvo::testing
