// Blocks on floating-point numbers. Each operation rounds once; sums of more than two go in port order.
#include "sim/blockrows.h"
#include "sim/floatemit.h"

#include <orvo/wire.h>

#include <optional>

namespace orvo::sim {

namespace {

std::vector<Signal> inputsOf(const BlockWriter &writer, std::size_t least) {
    std::vector<Signal> inputs = writer.numbered();
    if (inputs.size() < least) {
        writer.missing();
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
                leaves.push_back(partOrZero(writer, signal, lane, part));
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

/// The products that make a part of a product, each of which rounds.
std::vector<Leaf> productsOf(BlockWriter &writer, const ScalarType &type, const Factor &a, const Factor &b,
                             std::uint32_t part) {
    std::vector<Leaf> products;
    const auto multiply = [&](const std::optional<Leaf> &x, const std::optional<Leaf> &y) {
        if (x && y) {
            products.push_back(apply(writer, type, FloatFunction::Mul, {*x, *y}));
        }
    };
    multiply(a.re, part == 0 ? std::optional(b.re) : b.im);
    multiply(a.im, part == 0 ? b.im : std::optional(b.re));
    return products;
}

Leaf productPart(BlockWriter &writer, const ScalarType &type, const Factor &a, const Factor &b, std::uint32_t part) {
    const std::vector<Leaf> products = productsOf(writer, type, a, b, part);
    if (products.empty()) {
        return writer.temporary(type);
    }
    return products.size() == 1 ? products[0]
                                : apply(writer, type, part == 0 ? FloatFunction::Sub : FloatFunction::Add, products);
}

/// Real and complex products, folded from the first on.
void writeProductOf(BlockWriter &writer, const std::vector<Signal> &in) {
    const Signal out = writer.out();
    for (std::uint32_t lane = 0; out.known() && lane < out.type->lanes(); ++lane) {
        Factor product = factorAt(in[0], lane);
        for (std::size_t i = 1; i < in.size(); ++i) {
            const Factor next = factorAt(in[i], lane);
            const bool isComplex = product.im || next.im;
            const Leaf re = productPart(writer, out.type->scalar, product, next, 0);
            product.im =
                isComplex ? std::optional(productPart(writer, out.type->scalar, product, next, 1)) : std::nullopt;
            product.re = re;
        }
        writer.convert(*leafAt(out, lane), product.re);
        if (out.type->isComplex && product.im) {
            writer.convert(*leafAt(out, lane, 1), *product.im);
        }
    }
}

void writeMult(BlockWriter &writer) { writeProductOf(writer, inputsOf(writer, 1)); }

/// A rolled value with as many elements as the innermost dimensions of a type have; one of more layers as it is.
ValueRef fitted(const ValueRef &value, const SignalType &type, Context *context) {
    const std::size_t layers = rolledLayers(value);
    if (layers == 0 || layers > type.dims.size()) {
        return value;
    }
    std::vector<ValueRef> elements{A_VECTOR_ROLL_TAG};
    for (std::uint32_t i = 0; i < type.dims[type.dims.size() - layers]; ++i) {
        elements.push_back(fitted(rolledElement(value, i), type, context));
    }
    return TupleValue::get(elements, context);
}

void writeConstMult(BlockWriter &writer) {
    std::vector<Signal> in = inputsOf(writer, 1);
    in.resize(1);
    const ValueRef factors = fitted(writer.param(A_CONST_VALUE), *in[0].type, writer.context());
    in.push_back(floatConstant(writer, factors, in[0].type->scalar));
    writeProductOf(writer, in);
}

/// The sum over pairs of ports, of which vectors make a dot product, and the chain-in. Products round, and sums round
/// one by one in the order of the ports.
void writeScalarProduct(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (in.size() % 2 != 0) {
        writer.fail("a scalar product has an odd number of inputs");
    }
    const ScalarType type = out.type->scalar;
    const Signal chain = writer.in(A_SCALAR_PRODUCT_PORT_CHAININ);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        std::optional<Leaf> sum;
        const auto add = [&](Leaf term, bool subtracts) {
            if (sum) {
                sum = apply(writer, type, subtracts ? FloatFunction::Sub : FloatFunction::Add, {*sum, term});
            } else {
                sum = subtracts ? apply(writer, type, FloatFunction::Neg, {term}) : term;
            }
        };
        for (std::size_t i = 0; i < in.size(); i += 2) {
            const bool isSubtracted = writer.isTrue(A_SUBTRACTIVE) && i + 2 == in.size();
            const std::uint32_t lanes = out.type->lanes();
            const std::uint32_t terms = std::max(in[i].type->lanes(), in[i + 1].type->lanes()) / lanes;
            for (std::uint32_t term = 0; term < std::max(terms, 1U); ++term) {
                const std::uint32_t at = term * lanes + lane;
                bool isSecond = false;
                for (const Leaf product :
                     productsOf(writer, type, factorAt(in[i], at), factorAt(in[i + 1], at), part)) {
                    add(product, isSubtracted != (isSecond && part == 0));
                    isSecond = true;
                }
            }
        }
        if (const auto chained = chain.known() ? leafAt(chain, lane, part) : std::nullopt) {
            add(*chained, writer.isTrue(A_SUBTRACTIVE_CHAININ));
        }
        if (sum) {
            writer.convert(leaf, *sum);
        }
    });
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

/// Functions that complex numbers have none of part by part.
template <FloatFunction function, std::size_t inputs> void writeRealFunction(BlockWriter &writer) {
    for (const Signal &in : inputsOf(writer, inputs)) {
        if (in.type->isComplex) {
            writer.fail("it has no meaning for complex numbers");
        }
    }
    writeFunction<function, inputs>(writer);
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

void emitFloatCompare(BlockWriter &writer, Leaf out, Leaf a, Leaf b, Relation relation) {
    writer.emit(
        out, 0, {floatOperand(writer, a), floatOperand(writer, b)},
        [relation](const Op &) { return floatCompareKernel(relation); }, floatAux(floatModeOf(writer)));
}

/// The same as a bit of its own.
Leaf floatBit(BlockWriter &writer, Leaf a, Leaf b, Relation relation) {
    const Leaf made = writer.temporary({1, 0, false, false});
    emitFloatCompare(writer, made, a, b, relation);
    return made;
}

Leaf inType(BlockWriter &writer, const ScalarType &type, Leaf value) {
    const Leaf same = writer.temporary(type);
    writer.convert(same, value);
    return same;
}

/// The first of two if it is the smaller, or the larger, or both are equal; else, and beside NaN, the second. Its bits
/// pass as they are.
Leaf extremeOf(BlockWriter &writer, const ScalarType &type, bool larger, Leaf a, Leaf b) {
    const Leaf first = inType(writer, type, a);
    const Leaf second = inType(writer, type, b);
    const Leaf wins = floatBit(writer, larger ? first : second, larger ? second : first, Relation::GreaterEqual);
    const Leaf best = writer.temporary(type);
    emitMux(writer, best, wins, {second, first});
    return best;
}

template <bool larger> void writeExtreme(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            Leaf best = partOrZero(writer, in[0], lane, part);
            for (std::size_t i = 1; i < in.size(); ++i) {
                best = extremeOf(writer, writer.scalar(leaf), larger, best, partOrZero(writer, in[i], lane, part));
            }
            writer.convert(leaf, best);
        });
    }
}

/// Port 0 data, 1 upper limit, 2 lower limit: max(min(data, upper), lower).
void writeSaturate(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 3);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const ScalarType type = writer.scalar(leaf);
            const Leaf below = extremeOf(writer, type, false, partOrZero(writer, in[0], lane, part),
                                         partOrZero(writer, in[1], lane, part));
            writer.alias(leaf, extremeOf(writer, type, true, below, partOrZero(writer, in[2], lane, part)));
        });
    }
}

/// Select 1 is the larger, 0 the smaller.
void writeMinMax(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    const Signal select = fixedInput(writer, A_MINMAX_PORT_SELECT, "the select");
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const ScalarType type = writer.scalar(leaf);
            const Leaf a = partOrZero(writer, in[0], lane, part);
            const Leaf b = partOrZero(writer, in[1], lane, part);
            emitMux(writer, leaf, truth(writer, *leafAt(select, lane)),
                    {extremeOf(writer, type, false, a, b), extremeOf(writer, type, true, a, b)});
        });
    }
}

void writeAddSload(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    const Signal load = writer.in(A_ADD_SLOAD_PORT_LOAD_VALUE);
    const Signal control = fixedInput(writer, A_ADD_SLOAD_PORT_LOAD_CTRL, "the control");
    require(writer, load);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const ScalarType type = writer.scalar(leaf);
            const Leaf sum = apply(writer, type, FloatFunction::Add,
                                   {partOrZero(writer, in[0], lane, part), partOrZero(writer, in[1], lane, part)});
            const Leaf loaded = writer.temporary(type);
            writer.convert(loaded, partOrZero(writer, load, lane, part));
            emitMux(writer, leaf, truth(writer, *leafAt(control, lane)), {sum, loaded});
        });
    }
}

void writeDim(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const ScalarType type = writer.scalar(leaf);
            const Leaf a = inType(writer, type, partOrZero(writer, in[0], lane, part));
            const Leaf b = inType(writer, type, partOrZero(writer, in[1], lane, part));
            const Leaf difference = apply(writer, type, FloatFunction::Sub, {a, b});
            emitMux(writer, leaf, floatBit(writer, a, b, Relation::Less), {difference, writer.temporary(type)});
        });
    }
}

/// The input of the smaller or the larger magnitude; of equal ones the negative, or the one that is not.
template <bool larger> void writeMagnitude(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const ScalarType type = writer.scalar(leaf);
        Leaf best = inType(writer, type, partOrZero(writer, in[0], lane, part));
        for (std::size_t i = 1; i < in.size(); ++i) {
            const Leaf next = inType(writer, type, partOrZero(writer, in[i], lane, part));
            const Leaf m = apply(writer, type, FloatFunction::Abs, {best});
            const Leaf n = apply(writer, type, FloatFunction::Abs, {next});
            const Leaf beyond = floatBit(writer, larger ? m : n, larger ? n : m, Relation::Less);
            const Leaf isNegative = emitSlice(writer, larger ? best : next, type.width - type.unused - 1, 1);
            const Leaf tie = emitBit(writer, Logic::And, {floatBit(writer, m, n, Relation::Equal), isNegative});
            const Leaf chosen = writer.temporary(type);
            emitMux(writer, chosen, emitBit(writer, Logic::Or, {beyond, tie}), {best, next});
            best = chosen;
        }
        writer.convert(leaf, best);
    });
}

template <Relation relation> void writeCompare(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const bool isComplex = in[0].type->isComplex || in[1].type->isComplex;
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
        if (!isComplex) {
            emitFloatCompare(writer, leaf, *leafAt(in[0], lane), *leafAt(in[1], lane), relation);
            return;
        }
        std::vector<Operand> bits;
        for (std::uint32_t part = 0; part < 2; ++part) {
            const Leaf bit = writer.temporary({1, 0, false, false});
            emitFloatCompare(writer, bit, partOrZero(writer, in[0], lane, part), partOrZero(writer, in[1], lane, part),
                             relation);
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

/// From and to fixed point, and between formats; or the bits as they are.
void writeCast(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const Signal clip = writer.out(A_CAST_WIRE_CLIP);
    const bool reinterprets = writer.param(A_CAST_MODE) == A_CAST_MODE_REINTERP;
    const FloatCast cast = floatCastOf(writer);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const auto source = leafAt(in[0], lane, part);
        if (!source) {
            return;
        }
        if (reinterprets) {
            writer.emit(leaf, 0, {writer.raw(*source)}, sumKernel);
        } else {
            emitFloatCast(writer, cast, leaf, *source, clip.known() ? leafAt(clip, lane, part) : std::nullopt);
        }
    });
}

/// An integer power, or a scaling by a power of two.
template <bool ofTwo> void writePower(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 2);
    requireFixed(writer, in[1], "the exponent");
    if (in[1].type->scalar.fraction != 0 || in[1].type->isComplex) {
        writer.fail("the exponent is no integer");
    }
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf base = partOrZero(writer, in[0], lane, part);
            emitFloatFrom(writer, leaf, {floatOperand(writer, base), writer.raw(*leafAt(in[1], lane))},
                          floatPowerKernel(ofTwo), floatAux(floatModeOf(writer)));
        });
    }
}

void writeExponent(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.emit(
                leaf, 0, {floatOperand(writer, partOrZero(writer, in[0], lane, part))},
                [](const Op &) { return floatExponentKernel(); }, floatAux(floatModeOf(writer)));
        });
    }
}

void writeClassifier(BlockWriter &writer) {
    const std::vector<Signal> in = inputsOf(writer, 1);
    const std::pair<const StaticString *, Leaf FloatClass::*> flags[] = {
        {&A_FPCLASS_WIRE_ZERO, &FloatClass::isZero},
        {&A_FPCLASS_WIRE_SIGN, &FloatClass::isNegative},
        {&A_FPCLASS_WIRE_INF, &FloatClass::isInfinite},
        {&A_FPCLASS_WIRE_NAN, &FloatClass::isNan}};
    for (const auto &[wire, flag] : flags) {
        if (const Signal out = writer.out(*wire); out.known()) {
            forEachScalar(out, [&, flag = flag](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
                writer.convert(leaf, classify(writer, partOrZero(writer, in[0], lane, part), true).*flag);
            });
        }
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
    {&A_CONSTMULT_BLOCK, writeConstMult},
    {&A_SCALAR_PRODUCT_BLOCK, writeScalarProduct},
    {&A_ADD_SLOAD_BLOCK, writeAddSload},
    {&A_DIVIDE_BLOCK, writeRealFunction<FloatFunction::Div, 2>},
    {&A_NEG_BLOCK, writeFunction<FloatFunction::Neg, 1>},
    {&A_COMPLEX_CONJUGATE_BLOCK, writeConjugate},
    {&A_ABS_BLOCK, writeFunction<FloatFunction::Abs, 1>},
    {&A_MIN_BLOCK, writeExtreme<false>},
    {&A_MAX_BLOCK, writeExtreme<true>},
    {&A_MAGMIN_BLOCK, writeMagnitude<false>},
    {&A_MAGMAX_BLOCK, writeMagnitude<true>},
    {&A_MINMAX_BLOCK, writeMinMax},
    {&A_SATURATE_BLOCK, writeSaturate},
    {&A_DIM_BLOCK, writeDim},
    {&A_CMP_EQ_BLOCK, writeCompare<Relation::Equal>},
    {&A_CMP_NE_BLOCK, writeCompare<Relation::NotEqual>},
    {&A_CMP_GE_BLOCK, writeCompare<Relation::GreaterEqual>},
    {&A_CMP_LT_BLOCK, writeCompare<Relation::Less>},
    {&A_COMPARECTRL_BLOCK, writeCompareControl},
    {&A_CAST_BLOCK, writeCast},
    {&A_FLOAT_CLASS_BLOCK, writeClassifier},
    {&A_FLOAT_MULTADD_BLOCK, writeRealFunction<FloatFunction::MultAdd, 3>},
    {&A_FLOAT_MULTSUB_BLOCK, writeRealFunction<FloatFunction::MultSub, 3>},
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
