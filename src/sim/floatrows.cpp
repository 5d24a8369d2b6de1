// Blocks on floating-point numbers. Each operation rounds once; sums of more than two go in port order.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/floatkernels.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

FloatMode modeOf(const BlockWriter &writer) {
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

/// The mode of anything but a cast, which alone rounds ties away from zero.
FloatMode arithmeticMode(const BlockWriter &writer) {
    const FloatMode mode = modeOf(writer);
    if (mode.rounding == FloatRounding::NearestAway) {
        writer.fail("rounding ties away from zero has no meaning but in a cast");
    }
    return mode;
}

Operand floatOperand(const BlockWriter &writer, Leaf leaf) {
    const ScalarType &type = writer.scalar(leaf);
    if (!type.isFloat || type.exponent == 0) {
        writer.fail(type.isFloat ? "a float of the library's own format has no meaning here"
                                 : "a fixed-point and a floating-point signal meet");
    }
    Operand operand = writer.raw(leaf);
    operand.shift = static_cast<std::int32_t>(type.exponent);
    return operand;
}

/// Adds an operation that gives a float.
void emitFloat(BlockWriter &writer, Leaf out, const std::vector<Leaf> &in, Kernel kernel, int aux) {
    std::vector<Operand> operands;
    for (const Leaf leaf : in) {
        operands.push_back(floatOperand(writer, leaf));
    }
    writer.emit(
        out, floatOperand(writer, out).shift, operands, [kernel](const Op &) { return kernel; }, aux);
}

void emitFunction(BlockWriter &writer, Leaf out, FloatFunction function, const std::vector<Leaf> &in) {
    if (!(writer.scalar(in[0]) == writer.scalar(out))) {
        // An input of another format is converted first, exactly where the output's is wider.
        std::vector<Leaf> converted;
        for (const Leaf leaf : in) {
            const Leaf same = writer.temporary(writer.scalar(out));
            emitFloat(writer, same, {leaf}, floatConvertKernel(), floatAux(arithmeticMode(writer)));
            converted.push_back(same);
        }
        emitFloat(writer, out, converted, floatKernel(), floatAux(function, arithmeticMode(writer)));
        return;
    }
    emitFloat(writer, out, in, floatKernel(), floatAux(function, arithmeticMode(writer)));
}

Leaf apply(BlockWriter &writer, const ScalarType &type, FloatFunction function, const std::vector<Leaf> &in) {
    const Leaf out = writer.temporary(type);
    emitFunction(writer, out, function, in);
    return out;
}

std::vector<Signal> inputsOf(const BlockWriter &writer, std::size_t least) {
    std::vector<Signal> inputs = writer.numbered();
    if (inputs.size() < least) {
        writer.fail("port " + std::to_string(inputs.size()) + " is not connected");
    }
    return inputs;
}

/// One function of the first inputs, scalar by scalar; where the block has one, its second output by another.
template <FloatFunction function, std::size_t inputs, FloatFunction second = function>
void writeFunction(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, inputs);
    const std::pair<Signal, FloatFunction> outs[] = {{writer.out(), function}, {writer.out(A_PRIM_WIRE_AUX), second}};
    for (const auto &[out, which] : outs) {
        if (!out.known()) {
            continue;
        }
        forEachScalar(out, [&, which = which](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            std::vector<Leaf> leaves;
            for (std::size_t i = 0; i < inputs; ++i) {
                leaves.push_back(partOrZero(writer, in[i], lane, part));
            }
            emitFunction(writer, leaf, which, leaves);
        });
    }
}

/// Folds scalars from the first on.
void emitChain(BlockWriter &writer, Leaf out, FloatFunction function, const std::vector<Leaf> &in) {
    if (in.size() == 1) {
        writer.convert(out, in[0]);
        return;
    }
    const ScalarType type = writer.scalar(out);
    Leaf sum = in[0];
    for (std::size_t i = 1; i + 1 < in.size(); ++i) {
        sum = apply(writer, type, function, {sum, in[i]});
    }
    emitFunction(writer, out, function, {sum, in.back()});
}

template <FloatFunction function> void writeChain(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            std::vector<Leaf> leaves;
            for (const Signal &signal : in) {
                if (const auto source = leafAt(signal, lane, part)) {
                    leaves.push_back(*source);
                }
            }
            emitChain(writer, leaf, function, leaves);
        });
    }
}

void writeReduce(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    const Signal out = writer.out();
    if (in.size() > 1 || in[0].type->dims.empty()) {
        writeChain<FloatFunction::Add>(writer);
        return;
    }
    for (std::uint32_t at = 0; out.known() && at < out.type->leaves; ++at) {
        std::vector<Leaf> leaves;
        for (std::uint32_t i = 0; i < in[0].type->dims.front(); ++i) {
            leaves.push_back(in[0].first + i * out.type->leaves + at);
        }
        emitChain(writer, out.first + at, FloatFunction::Add, leaves);
    }
}

/// Real and complex products, folded from the first on.
void writeMult(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (!out.type->isComplex) {
        writeChain<FloatFunction::Mul>(writer);
        return;
    }
    const ScalarType type = out.type->scalar;
    for (std::uint32_t lane = 0; lane < out.type->lanes(); ++lane) {
        Leaf re = partOrZero(writer, in[0], lane, 0);
        Leaf im = partOrZero(writer, in[0], lane, 1);
        for (std::size_t i = 1; i < in.size(); ++i) {
            const Leaf c = partOrZero(writer, in[i], lane, 0);
            const Leaf d = partOrZero(writer, in[i], lane, 1);
            const auto product = [&](Leaf a, Leaf b) { return apply(writer, type, FloatFunction::Mul, {a, b}); };
            const Leaf real = apply(writer, type, FloatFunction::Sub, {product(re, c), product(im, d)});
            im = apply(writer, type, FloatFunction::Add, {product(re, d), product(im, c)});
            re = real;
        }
        writer.convert(*leafAt(out, lane, 0), re);
        writer.convert(*leafAt(out, lane, 1), im);
    }
}

void writeConjugate(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf source = partOrZero(writer, in[0], lane, part);
            if (part == 0) {
                writer.convert(leaf, source);
            } else {
                emitFunction(writer, leaf, FloatFunction::Neg, {source});
            }
        });
    }
}

void writeAddSubFused(BlockWriter &writer) { writeFunction<FloatFunction::Add, 2, FloatFunction::Sub>(writer); }

/// Select 1 is the sum, 0 the difference.
void writeAddSub(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    const Signal select = fixedInput(writer, A_ADDSUB_PORT_SELECT, "the select");
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const std::vector<Leaf> both{partOrZero(writer, in[0], lane, part), partOrZero(writer, in[1], lane, part)};
            const ScalarType type = writer.scalar(leaf);
            const Leaf difference = apply(writer, type, FloatFunction::Sub, both);
            const Leaf sum = apply(writer, type, FloatFunction::Add, both);
            emitMux(writer, leaf, truth(writer, *leafAt(select, lane)), {difference, sum});
        });
    }
}

template <bool larger> void writeExtreme(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        const int aux = floatAux(arithmeticMode(writer));
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const ScalarType type = writer.scalar(leaf);
            Leaf best = partOrZero(writer, in[0], lane, part);
            for (std::size_t i = 1; i < in.size(); ++i) {
                const Leaf next = writer.temporary(type);
                emitFloat(writer, next, {best, partOrZero(writer, in[i], lane, part)}, floatExtremeKernel(larger), aux);
                best = next;
            }
            writer.convert(leaf, best);
        });
    }
}

void writeDim(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            const ScalarType type = writer.scalar(leaf);
            const Leaf none = writer.temporary(type);
            const Leaf difference =
                apply(writer, type, FloatFunction::Sub, {*leafAt(in[0], lane), *leafAt(in[1], lane)});
            emitFloat(writer, leaf, {difference, none}, floatExtremeKernel(true), floatAux(arithmeticMode(writer)));
        });
    }
}

/// A bit from the comparison of two floats.
void emitFloatCompare(BlockWriter &writer, Leaf out, Leaf a, Leaf b, Relation relation) {
    writer.emit(
        out, 0, {floatOperand(writer, a), floatOperand(writer, b)},
        [relation](const Op &) { return floatCompareKernel(relation); }, floatAux(arithmeticMode(writer)));
}

template <Relation relation> void writeCompare(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const bool isComplex = in[0].type->isComplex && in[1].type->isComplex;
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
        if (!isComplex) {
            emitFloatCompare(writer, leaf, *leafAt(in[0], lane), *leafAt(in[1], lane), relation);
            return;
        }
        std::vector<Operand> bits;
        for (std::uint32_t part = 0; part < 2; ++part) {
            const Leaf bit = writer.temporary({1, 0, false, false});
            emitFloatCompare(writer, bit, *leafAt(in[0], lane, part), *leafAt(in[1], lane, part), relation);
            bits.push_back(writer.raw(bit));
        }
        writer.emit(leaf, 0, bits, [](const Op &op) {
            return logicKernel(op, relation == Relation::NotEqual ? Logic::Or : Logic::And);
        });
    });
}

void writeCompareControl(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    const Signal select = fixedInput(writer, A_COMPARE_PORT_SELECT, "the select");
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            const Leaf less = writer.temporary({1, 0, false, false});
            const Leaf greaterEqual = writer.temporary({1, 0, false, false});
            emitFloatCompare(writer, less, *leafAt(in[0], lane), *leafAt(in[1], lane), Relation::Less);
            emitFloatCompare(writer, greaterEqual, *leafAt(in[0], lane), *leafAt(in[1], lane), Relation::GreaterEqual);
            emitMux(writer, leaf, truth(writer, *leafAt(select, lane)), {less, greaterEqual});
        });
    }
}

/// From and to fixed point, and between formats.
void writeCast(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (writer.out(A_CAST_WIRE_CLIP).known() || writer.param(A_CAST_MODE) == A_CAST_MODE_REINTERP) {
        writer.fail("a cast of floats that reinterprets, or tells that it clips, has no meaning here");
    }
    const int aux = floatAux(modeOf(writer));
    const ValueRef rounding = writer.param(A_CAST_ROUNDING_MODE);
    const ValueRef bound = writer.param(A_CAST_SATURATE_MODE);
    const Rounding fixedRounding =
        rounding == A_ROUNDING_TRUNC_TO_ZERO || rounding == A_ROUNDING_RNDZ ? Rounding::ToZero
        : rounding == A_ROUNDING_BIASED                                     ? Rounding::HalfUp
        : rounding == A_ROUNDING_UNBIASED || rounding == A_ROUNDING_RNDNE   ? Rounding::HalfEven
                                                                            : Rounding::Floor;
    const Saturation saturation = bound == A_SATURATE_SYM    ? Saturation::Symmetric
                                  : bound == A_SATURATE_ASYM ? Saturation::Asymmetric
                                                             : Saturation::Wrap;
    if (!out.type->scalar.isFloat && (rounding == A_ROUNDING_RNDNA || rounding == A_ROUNDING_RNDU)) {
        writer.fail("this rounding has no meaning for a cast to fixed point");
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const auto source = leafAt(in[0], lane, part);
        if (!source) {
            return;
        }
        const ScalarType &from = writer.scalar(*source);
        const ScalarType &to = writer.scalar(leaf);
        if (from.isFloat && to.isFloat) {
            emitFloat(writer, leaf, {*source}, floatConvertKernel(), aux);
        } else if (to.isFloat) {
            Operand operand = writer.raw(*source);
            operand.shift = from.fraction;
            writer.emit(
                leaf, floatOperand(writer, leaf).shift, {operand}, [](const Op &) { return floatFromFixedKernel(); },
                aux);
        } else {
            writer.emit(
                leaf, to.fraction, {floatOperand(writer, *source)},
                [&](const Op &) { return floatToFixedKernel(fixedRounding, saturation); }, aux);
        }
    });
}

/// An integer power, or a scaling by a power of two.
template <bool ofTwo> void writePower(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    requireFixed(writer, in[1], "the exponent");
    if (in[1].type->scalar.fraction != 0) {
        writer.fail("the exponent is no integer");
    }
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            writer.emit(
                leaf, floatOperand(writer, leaf).shift,
                {floatOperand(writer, *leafAt(in[0], lane)), writer.raw(*leafAt(in[1], lane))},
                [](const Op &) { return floatPowerKernel(ofTwo); }, floatAux(arithmeticMode(writer)));
        });
    }
}

void writeExponent(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            writer.emit(
                leaf, 0, {floatOperand(writer, *leafAt(in[0], lane))}, [](const Op &) { return floatExponentKernel(); },
                floatAux(arithmeticMode(writer)));
        });
    }
}

/// What the bits of a float say it is.
void writeClassifier(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    const auto slice = [&](Leaf source, std::uint32_t from, std::uint32_t count) {
        const Leaf bits = writer.temporary({count, 0, false, false});
        writer.emit(bits, static_cast<std::int32_t>(from), {writer.raw(source)}, sumKernel);
        return bits;
    };
    const auto reduced = [&](Leaf bits, Logic logic, int complement) {
        const Leaf bit = writer.temporary({1, 0, false, false});
        writer.emit(
            bit, 0, {writer.raw(bits)}, [logic](const Op &op) { return reduceKernel(op, logic); }, complement);
        return bit;
    };
    const std::pair<const StaticString *, int> flags[] = {
        {&A_FPCLASS_WIRE_ZERO, 0}, {&A_FPCLASS_WIRE_SIGN, 1}, {&A_FPCLASS_WIRE_INF, 2}, {&A_FPCLASS_WIRE_NAN, 3}};
    for (const auto &[wire, kind] : flags) {
        const Signal out = writer.out(*wire);
        if (!out.known()) {
            continue;
        }
        forEachScalar(out, [&, kind = kind](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf source = partOrZero(writer, in[0], lane, part);
            const auto exponent = static_cast<std::uint32_t>(floatOperand(writer, source).shift);
            const std::uint32_t width = writer.scalar(source).width;
            const std::uint32_t fraction = width - 1 - exponent;
            if (kind == 0) {
                writer.convert(leaf, reduced(slice(source, 0, width - 1), Logic::Or, 1));
            } else if (kind == 1) {
                writer.convert(leaf, slice(source, width - 1, 1));
            } else {
                const Leaf ends = reduced(slice(source, fraction, exponent), Logic::And, 0);
                const Leaf rest = reduced(slice(source, 0, fraction), Logic::Or, kind == 2 ? 1 : 0);
                writer.emit(leaf, 0, {writer.raw(ends), writer.raw(rest)},
                            [](const Op &op) { return logicKernel(op, Logic::And); });
            }
        });
    }
}

const BlockRow kRows[] = {
    {&A_ADD_BLOCK, writeChain<FloatFunction::Add>},
    {&A_MONSTER_ADD_BLOCK, writeChain<FloatFunction::Add>},
    {&A_ADD_REDUCE_BLOCK, writeReduce},
    {&A_SUB_BLOCK, writeChain<FloatFunction::Sub>},
    {&A_ADDSUB_BLOCK, writeAddSub},
    {&A_ADDSUBFUSED_BLOCK, writeAddSubFused},
    {&A_MULT_BLOCK, writeMult},
    {&A_DIVIDE_BLOCK, writeFunction<FloatFunction::Div, 2>},
    {&A_NEG_BLOCK, writeFunction<FloatFunction::Neg, 1>},
    {&A_COMPLEX_CONJUGATE_BLOCK, writeConjugate},
    {&A_ABS_BLOCK, writeFunction<FloatFunction::Abs, 1>},
    {&A_MIN_BLOCK, writeExtreme<false>},
    {&A_MAX_BLOCK, writeExtreme<true>},
    {&A_DIM_BLOCK, writeDim},
    {&A_CMP_EQ_BLOCK, writeCompare<Relation::Equal>},
    {&A_CMP_NE_BLOCK, writeCompare<Relation::NotEqual>},
    {&A_CMP_GE_BLOCK, writeCompare<Relation::GreaterEqual>},
    {&A_CMP_LT_BLOCK, writeCompare<Relation::Less>},
    {&A_COMPARECTRL_BLOCK, writeCompareControl},
    {&A_CAST_BLOCK, writeCast},
    {&A_FLOAT_CLASS_BLOCK, writeClassifier},
    {&A_FLOAT_MULTADD_BLOCK, writeFunction<FloatFunction::MultAdd, 3>},
    {&A_FLOAT_MULTSUB_BLOCK, writeFunction<FloatFunction::MultSub, 3>},
    {&A_SQRT_BLOCK, writeFunction<FloatFunction::Sqrt, 1>},
    {&A_RECIPROCAL_BLOCK, writeFunction<FloatFunction::Reciprocal, 1>},
    {&A_RECIP_SQRT_BLOCK, writeFunction<FloatFunction::RecipSqrt, 1>},
    {&A_CUBEROOT_BLOCK, writeFunction<FloatFunction::CubeRoot, 1>},
    {&A_RINT_BLOCK, writeFunction<FloatFunction::Rint, 1>},
    {&A_ROUND_BLOCK, writeFunction<FloatFunction::Round, 1>},
    {&A_FLOOR_BLOCK, writeFunction<FloatFunction::Floor, 1>},
    {&A_CEIL_BLOCK, writeFunction<FloatFunction::Ceil, 1>},
    {&A_TRUNC_BLOCK, writeFunction<FloatFunction::Trunc, 1>},
    {&A_FRAC_BLOCK, writeFunction<FloatFunction::Frac, 1>},
    {&A_EXP_BLOCK, writeFunction<FloatFunction::Exp, 1>},
    {&A_EXP2_BLOCK, writeFunction<FloatFunction::Exp2, 1>},
    {&A_EXP10_BLOCK, writeFunction<FloatFunction::Exp10, 1>},
    {&A_EXPM1_BLOCK, writeFunction<FloatFunction::Expm1, 1>},
    {&A_LOG_BLOCK, writeFunction<FloatFunction::Log, 1>},
    {&A_LOG2_BLOCK, writeFunction<FloatFunction::Log2, 1>},
    {&A_LOG10_BLOCK, writeFunction<FloatFunction::Log10, 1>},
    {&A_LOG1P_BLOCK, writeFunction<FloatFunction::Log1p, 1>},
    {&A_SIN_BLOCK, writeFunction<FloatFunction::Sin, 1>},
    {&A_COS_BLOCK, writeFunction<FloatFunction::Cos, 1>},
    {&A_SINCOSFUSED_BLOCK, writeFunction<FloatFunction::Sin, 1, FloatFunction::Cos>},
    {&A_TAN_BLOCK, writeFunction<FloatFunction::Tan, 1>},
    {&A_COT_BLOCK, writeFunction<FloatFunction::Cot, 1>},
    {&A_SINPIX_BLOCK, writeFunction<FloatFunction::SinPi, 1>},
    {&A_COSPIX_BLOCK, writeFunction<FloatFunction::CosPi, 1>},
    {&A_SINCOSPIXFUSED_BLOCK, writeFunction<FloatFunction::SinPi, 1, FloatFunction::CosPi>},
    {&A_TANPIX_BLOCK, writeFunction<FloatFunction::TanPi, 1>},
    {&A_COTPIX_BLOCK, writeFunction<FloatFunction::CotPi, 1>},
    {&A_ASIN_BLOCK, writeFunction<FloatFunction::Asin, 1>},
    {&A_ACOS_BLOCK, writeFunction<FloatFunction::Acos, 1>},
    {&A_ATAN_BLOCK, writeFunction<FloatFunction::Atan, 1>},
    {&A_ARCSINPI_BLOCK, writeFunction<FloatFunction::AsinPi, 1>},
    {&A_ARCCOSPI_BLOCK, writeFunction<FloatFunction::AcosPi, 1>},
    {&A_ARCTANPI_BLOCK, writeFunction<FloatFunction::AtanPi, 1>},
    {&A_HYPOT_BLOCK, writeFunction<FloatFunction::Hypot, 2>},
    {&A_HYPOT3D_BLOCK, writeFunction<FloatFunction::Hypot3, 3>},
    {&A_ARCTAN2_BLOCK, writeFunction<FloatFunction::Atan2, 2>},
    {&A_MOD_BLOCK, writeFunction<FloatFunction::Mod, 2>},
    {&A_POW_BLOCK, writeFunction<FloatFunction::Pow, 2>},
    {&A_POWR_BLOCK, writeFunction<FloatFunction::PowR, 2>},
    {&A_POWN_BLOCK, writePower<false>},
    {&A_MULT_POW2_BLOCK, writePower<true>},
    {&A_ILOGB_BLOCK, writeExponent},
};

} // namespace

std::span<const BlockRow> floatRows() { return kRows; }

} // namespace orvo::sim
