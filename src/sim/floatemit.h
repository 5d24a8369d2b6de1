// Operations on floats that the rows of several families write.
#pragma once

#include "sim/emit.h"
#include "sim/floatkernels.h"

#include <optional>

namespace orvo::sim {

/// The direction of rounding that the block tells, and whether it keeps subnormals.
FloatMode floatModeOf(const BlockWriter &writer);
/// How a kernel reads or writes a float. Fails for a scalar of another kind.
Operand floatOperand(const BlockWriter &writer, Leaf leaf);

/// Adds an operation that gives a float.
void emitFloatFrom(BlockWriter &writer, Leaf out, const std::vector<Operand> &in, Kernel kernel, int aux);
void emitFloat(BlockWriter &writer, Leaf out, const std::vector<Leaf> &in, Kernel kernel, int aux);
/// A function of inputs that are first brought to the format of the output.
void emitFunction(BlockWriter &writer, Leaf out, FloatFunction function, const std::vector<Leaf> &in);
/// The same into a scalar of its own.
Leaf apply(BlockWriter &writer, const ScalarType &type, FloatFunction function, const std::vector<Leaf> &in);
/// The constant of a parameter in each scalar of a type of floats.
Signal floatConstant(BlockWriter &writer, const ValueRef &value, const ScalarType &scalar);

/// How the block casts where one side is a float.
struct FloatCast {
    /// Of kernels of floats.
    int aux;
    /// Of a fixed-point result.
    Rounding rounding;
    Saturation saturation;
};
FloatCast floatCastOf(const BlockWriter &writer);
/// Adds the cast of a scalar from or to a float. `clip`, if there is one, tells that a fixed-point result met a bound.
void emitFloatCast(BlockWriter &writer, const FloatCast &cast, Leaf out, Leaf source, std::optional<Leaf> clip);

/// Bits of a pattern from one up.
Leaf emitSlice(BlockWriter &writer, Leaf source, std::uint32_t from, std::uint32_t count);
/// What the bits of a float say it is.
struct FloatClass {
    Leaf isZero;
    Leaf isNegative;
    Leaf isInfinite;
    Leaf isNan;
};
/// Subnormals count as zero where they are flushed.
FloatClass classify(BlockWriter &writer, Leaf source, bool keepsSubnormals);

} // namespace orvo::sim
