// What several families write on floats.
#include "sim/floatemit.h"

namespace orvo::sim {

namespace {

/// One bit over the bits of a pattern.
Leaf reduced(BlockWriter &writer, Leaf bits, Logic logic, bool negates) {
    const Leaf bit = writer.temporary({1, 0, false, false});
    writer.emit(
        bit, 0, {writer.raw(bits)}, [logic](const Op &op) { return reduceKernel(op, logic); }, negates ? 1 : 0);
    return bit;
}

Rounding fixedRoundingOf(const BlockWriter &writer) {
    const std::pair<const StaticString *, Rounding> modes[] = {
        {&A_ROUNDING_TRUNC_TO_ZERO, Rounding::ToZero}, {&A_ROUNDING_RNDZ, Rounding::ToZero},
        {&A_ROUNDING_BIASED, Rounding::HalfUp},        {&A_ROUNDING_UNBIASED, Rounding::HalfEven},
        {&A_ROUNDING_RNDNE, Rounding::HalfEven},       {&A_ROUNDING_RNDNA, Rounding::HalfAway},
        {&A_ROUNDING_RNDU, Rounding::Ceiling}};
    const ValueRef told = writer.param(A_CAST_ROUNDING_MODE);
    for (const auto &[name, rounding] : modes) {
        if (told == *name) {
            return rounding;
        }
    }
    return Rounding::Floor;
}

} // namespace

FloatMode floatModeOf(const BlockWriter &writer) {
    const std::pair<const StaticString *, FloatRounding> modes[] = {{&A_ROUNDING_RNDNE, FloatRounding::NearestEven},
                                                                    {&A_ROUNDING_RNDNA, FloatRounding::NearestAway},
                                                                    {&A_ROUNDING_RNDZ, FloatRounding::ToZero},
                                                                    {&A_ROUNDING_RNDU, FloatRounding::Up},
                                                                    {&A_ROUNDING_RNDD, FloatRounding::Down}};
    FloatMode mode;
    mode.keepsSubnormals = writer.isTrue(A_FLOAT_SUBNORMALS);
    for (const StaticString *key : {&A_CAST_ROUNDING_MODE, &A_FLOAT_ROUNDING_MODE}) {
        const ValueRef told = writer.param(*key);
        for (const auto &[name, rounding] : modes) {
            mode.rounding = told == *name ? rounding : mode.rounding;
        }
    }
    return mode;
}

Operand floatOperand(const BlockWriter &writer, Leaf leaf) {
    const ScalarType type = writer.scalar(leaf);
    if (!type.isFloat) {
        writer.fail("a fixed-point and a floating-point signal meet");
    }
    Operand operand = writer.raw(leaf);
    operand.width -= type.unused;
    operand.shift = static_cast<std::int32_t>(type.exponent);
    return operand;
}

void emitFloatFrom(BlockWriter &writer, Leaf out, const std::vector<Operand> &in, Kernel kernel, int aux) {
    const Operand to = floatOperand(writer, out);
    writer.emit(
        out, to.shift, in,
        [&](Op &op) {
            op.out.width = to.width;
            return kernel;
        },
        aux);
}

void emitFloat(BlockWriter &writer, Leaf out, const std::vector<Leaf> &in, Kernel kernel, int aux) {
    std::vector<Operand> operands;
    for (const Leaf leaf : in) {
        operands.push_back(floatOperand(writer, leaf));
    }
    emitFloatFrom(writer, out, operands, kernel, aux);
}

void emitFunction(BlockWriter &writer, Leaf out, FloatFunction function, const std::vector<Leaf> &in) {
    const FloatMode mode = floatModeOf(writer);
    std::vector<Leaf> same;
    for (const Leaf leaf : in) {
        same.push_back(leaf);
        if (!(writer.scalar(leaf) == writer.scalar(out))) {
            same.back() = writer.temporary(writer.scalar(out));
            emitFloat(writer, same.back(), {leaf}, floatConvertKernel(), floatAux(mode));
        }
    }
    emitFloat(writer, out, same, floatKernel(), floatAux(function, mode));
}

Leaf apply(BlockWriter &writer, const ScalarType &type, FloatFunction function, const std::vector<Leaf> &in) {
    const Leaf out = writer.temporary(type);
    emitFunction(writer, out, function, in);
    return out;
}

Signal floatConstant(BlockWriter &writer, const ValueRef &value, const ScalarType &scalar) {
    const auto exponent = static_cast<int>(scalar.exponent);
    const auto significand = static_cast<int>(scalar.width - scalar.unused - 1 - scalar.exponent);
    NumTypeSpec spec = scalar.unused != 0 ? NumTypeSpec::sfloatFPLib(significand, exponent)
                                          : NumTypeSpec::sfloatIEEE(significand, exponent);
    // A constant of numbers has the shape of its fixed-point type.
    spec.mergeDecors(NumTypeSpec::fromFixedValue(value, false));
    const SignalType *type = writer.types().of(PureValueRef(spec.toValue(writer.context())));
    if (type == nullptr) {
        writer.fail("the constant has no type");
    }
    const Signal signal{type, writer.temporary(scalar)};
    for (std::uint32_t i = 1; i < type->leaves; ++i) {
        writer.temporary(scalar);
    }
    writer.constant(signal, value);
    return signal;
}

FloatCast floatCastOf(const BlockWriter &writer) {
    const ValueRef bound = writer.param(A_CAST_SATURATE_MODE);
    const Saturation saturation = bound == A_SATURATE_SYM    ? Saturation::Symmetric
                                  : bound == A_SATURATE_ASYM ? Saturation::Asymmetric
                                                             : Saturation::Wrap;
    return {floatAux(floatModeOf(writer)), fixedRoundingOf(writer), saturation};
}

void emitFloatCast(BlockWriter &writer, const FloatCast &cast, Leaf out, Leaf source, std::optional<Leaf> clip) {
    const ScalarType from = writer.scalar(source);
    const ScalarType to = writer.scalar(out);
    if (from.isFloat && to.isFloat) {
        emitFloat(writer, out, {source}, floatConvertKernel(), cast.aux);
        return;
    }
    if (to.isFloat) {
        Operand operand = writer.raw(source);
        operand.shift = from.fraction;
        emitFloatFrom(writer, out, {operand}, floatFromFixedKernel(), cast.aux);
        return;
    }
    const Operand operand = floatOperand(writer, source);
    writer.emit(
        out, to.fraction, {operand}, [&](const Op &) { return floatToFixedKernel(cast.rounding, cast.saturation); },
        cast.aux);
    if (clip) {
        writer.emit(
            *clip, to.fraction, {operand, writer.raw(out)},
            [&](const Op &) { return floatClipKernel(cast.rounding, cast.saturation); }, cast.aux);
    }
}

Leaf emitSlice(BlockWriter &writer, Leaf source, std::uint32_t from, std::uint32_t count) {
    const Leaf bits = writer.temporary({count, 0, false, false});
    Operand pattern = writer.raw(source);
    pattern.isSigned = false;
    writer.emit(bits, static_cast<std::int32_t>(from), {pattern}, sumKernel);
    return bits;
}

FloatClass classify(BlockWriter &writer, Leaf source, bool keepsSubnormals) {
    const Operand operand = floatOperand(writer, source);
    const auto exponent = static_cast<std::uint32_t>(operand.shift);
    const std::uint32_t fraction = operand.width - 1 - exponent;
    const Leaf field = emitSlice(writer, source, fraction, exponent);
    const Leaf rest = emitSlice(writer, source, 0, fraction);
    const Leaf ends = reduced(writer, field, Logic::And, false);
    const Leaf isWhole = reduced(writer, rest, Logic::Or, true);
    const Leaf isLeast = reduced(writer, field, Logic::Or, true);
    return {keepsSubnormals ? emitBit(writer, Logic::And, {isLeast, isWhole}) : isLeast,
            emitSlice(writer, source, operand.width - 1, 1), emitBit(writer, Logic::And, {ends, isWhole}),
            emitBit(writer, Logic::And, {ends, emitBit(writer, Logic::Or, {isWhole}, true)})};
}

} // namespace orvo::sim
