// Accumulators. The sum is kept in fixed point, where adding rounds nothing: in a register from the told least to the
// told highest bit, or one wide enough for the inputs (de Dinechin, Pasca, Cret, Tudoran, "An FPGA-specific approach to
// floating-point accumulation and sum-of-products", 2008).
#include "sim/blockrows.h"
#include "sim/floatemit.h"
#include "sim/statekernels.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

constexpr ScalarType kBit{1, 0, false, false};
/// A register that holds every number of a format must stay below this.
constexpr std::uint32_t kWidestExponent = 15;
constexpr std::int64_t kMostWeight = std::int64_t{1} << 20;
/// Bits above the largest input, so that no sum of a simulation leaves a register that no limit is told for.
constexpr std::uint32_t kGuardBits = 64;

/// The type that holds each number of a format.
ScalarType exactTypeOf(const BlockWriter &writer, const ScalarType &type) {
    if (type.exponent > kWidestExponent) {
        writer.fail("floats of so wide an exponent are not accumulated");
    }
    const std::uint32_t bias = (1U << (type.exponent - 1)) - 1;
    const std::uint32_t significand = type.width - type.unused - 1 - type.exponent;
    return {2 * bias + significand + 1, static_cast<std::int32_t>(bias - 1 + significand), true, false};
}

/// What comes in besides finite numbers.
struct Specials {
    Leaf isNan;
    Leaf isPositive;
    Leaf isNegative;
};

/// One input before it is added, as a fixed-point number that is exact.
struct Term {
    Leaf value;
    std::optional<Specials> specials;
};

Leaf emitAnd(BlockWriter &writer, const std::vector<Leaf> &bits) { return emitBit(writer, Logic::And, bits); }
Leaf emitOr(BlockWriter &writer, const std::vector<Leaf> &bits) { return emitBit(writer, Logic::Or, bits); }
Leaf emitNot(BlockWriter &writer, Leaf bit) { return emitBit(writer, Logic::And, {bit}, true); }

Leaf exactValue(BlockWriter &writer, Leaf number) {
    const ScalarType exact = exactTypeOf(writer, writer.scalar(number));
    const Leaf value = writer.temporary(exact);
    writer.emit(
        value, exact.fraction, {floatOperand(writer, number)},
        [](const Op &) { return floatToFixedKernel(Rounding::ToZero, Saturation::Wrap); },
        floatAux(floatModeOf(writer)));
    return value;
}

Term termOf(BlockWriter &writer, Leaf data) {
    if (!writer.scalar(data).isFloat) {
        return {data, std::nullopt};
    }
    const FloatClass is = classify(writer, data, writer.isTrue(A_FLOAT_SUBNORMALS));
    return {exactValue(writer, data),
            Specials{is.isNan, emitAnd(writer, {is.isInfinite, emitNot(writer, is.isNegative)}),
                     emitAnd(writer, {is.isInfinite, is.isNegative})}};
}

Term productOf(BlockWriter &writer, Leaf a, Leaf b) {
    const FloatClass x = classify(writer, a, writer.isTrue(A_FLOAT_SUBNORMALS));
    const FloatClass y = classify(writer, b, writer.isTrue(A_FLOAT_SUBNORMALS));
    const Leaf left = exactValue(writer, a);
    const Leaf right = exactValue(writer, b);
    const Leaf product = writer.temporary({writer.scalar(left).width + writer.scalar(right).width,
                                           writer.scalar(left).fraction + writer.scalar(right).fraction, true, false});
    writer.emit(product, 0, {writer.raw(left), writer.raw(right)}, productKernel);
    const Leaf isInfinite = emitOr(writer, {x.isInfinite, y.isInfinite});
    const Leaf isUndefined =
        emitOr(writer, {emitAnd(writer, {x.isInfinite, y.isZero}), emitAnd(writer, {x.isZero, y.isInfinite})});
    const Leaf isNegative = writer.temporary(kBit);
    writer.emit(isNegative, 0, {writer.raw(x.isNegative), writer.raw(y.isNegative)},
                [](const Op &op) { return logicKernel(op, Logic::Xor); });
    return {product, Specials{emitOr(writer, {x.isNan, y.isNan, isUndefined}),
                              emitAnd(writer, {isInfinite, emitNot(writer, isNegative)}),
                              emitAnd(writer, {isInfinite, isNegative})}};
}

/// The weight of a parameter, if it is told.
std::optional<std::int32_t> weight(const BlockWriter &writer, const StaticString &key) {
    if (!writer.param(key)) {
        return std::nullopt;
    }
    const std::int64_t told = writer.integer(key, kMostWeight + 1);
    if (told > kMostWeight || told < -kMostWeight) {
        writer.fail("'" + std::string(key.text()) + "' is no weight of a bit");
    }
    return static_cast<std::int32_t>(told);
}

ScalarType registerType(const BlockWriter &writer, const ScalarType &term, bool ofFloats) {
    const std::int32_t least = weight(writer, A_ACC_LSB).value_or(-term.fraction);
    const std::int32_t guard = ofFloats ? static_cast<std::int32_t>(kGuardBits) : 0;
    const std::int32_t highest =
        weight(writer, A_ACC_MSB).value_or(static_cast<std::int32_t>(term.width) - 1 - term.fraction + guard);
    if (highest < least) {
        writer.fail("the accumulator has no bits");
    }
    return {static_cast<std::uint32_t>(highest - least) + 1, -least, term.isSigned, false};
}

/// The flags of a scalar; each is true from its cause until a restart.
struct Flags {
    Leaf exceeds;
    Leaf vanishes;
    Leaf overflows;
};

/// True now, or earlier since the last restart.
Leaf sticky(BlockWriter &writer, Leaf now, Leaf restarts) {
    const Stored held = openStore(writer, kBit);
    const Leaf out = emitOr(writer, {now, emitAnd(writer, {held.out, emitNot(writer, restarts)})});
    closeStore(writer, held, out);
    return out;
}

Leaf isBelow(BlockWriter &writer, Leaf magnitude, std::int32_t power) {
    const Leaf bound = writer.temporary({1, -power, false, false});
    writer.setConstant(bound, 1);
    const Leaf bit = writer.temporary(kBit);
    emitCompare(writer, bit, magnitude, bound, Relation::Less);
    return bit;
}

Leaf relationOf(BlockWriter &writer, Leaf a, Leaf b, Relation relation) {
    const Leaf bit = writer.temporary(kBit);
    emitCompare(writer, bit, a, b, relation);
    return bit;
}

/// An infinity, or no number, by the highest bit of its fraction.
Leaf endOf(BlockWriter &writer, const ScalarType &type, Leaf sign, Leaf highest) {
    const Leaf rest = writer.temporary({type.width - type.unused - 2 - type.exponent, 0, false, false});
    const Leaf exponent = writer.temporary({type.exponent, 0, false, false});
    writer.setConstant(exponent, (std::uint64_t{1} << type.exponent) - 1);
    const Leaf number = writer.temporary(type);
    writer.emit(number, 0, {writer.raw(rest), writer.raw(highest), writer.raw(exponent), writer.raw(sign)}, joinKernel);
    return number;
}

/// Gives the sum in the output's format, infinite or no number if an input was.
void giveFloat(BlockWriter &writer, Leaf out, Leaf sum, const Specials &specials, Leaf restarts) {
    Operand operand = writer.raw(sum);
    operand.shift = writer.scalar(sum).fraction;
    const ScalarType type = writer.scalar(out);
    const Leaf finite = writer.temporary(type);
    emitFloatFrom(writer, finite, {operand}, floatFromFixedKernel(), floatAux(floatModeOf(writer)));
    const Leaf isPositive = sticky(writer, specials.isPositive, restarts);
    const Leaf isNegative = sticky(writer, specials.isNegative, restarts);
    const Leaf isNan =
        emitOr(writer, {sticky(writer, specials.isNan, restarts), emitAnd(writer, {isPositive, isNegative})});
    const Leaf none = zero(writer);
    const Leaf set = one(writer);
    Leaf result = chosen(writer, type, isPositive, {finite, endOf(writer, type, none, none)});
    result = chosen(writer, type, isNegative, {result, endOf(writer, type, set, none)});
    emitMux(writer, out, isNan, {result, endOf(writer, type, none, set)});
}

Flags accumulate(BlockWriter &writer, Leaf out, const Term &term, Leaf restarts) {
    const ScalarType type = registerType(writer, writer.scalar(term.value), term.specials.has_value());
    const Stored held = openStore(writer, type);
    // What lies below the least bit is cut: of a float's magnitude, of a fixed-point number as everywhere.
    const ScalarType from = writer.scalar(term.value);
    const std::int32_t whole = std::max(static_cast<std::int32_t>(from.width) - from.fraction + type.fraction, 1);
    const Leaf onGrid = writer.temporary({static_cast<std::uint32_t>(whole) + 1, type.fraction, true, false});
    const Rounding cut = term.specials ? Rounding::ToZero : Rounding::Floor;
    writer.emit(onGrid, from.fraction - type.fraction, {writer.raw(term.value)},
                [cut](const Op &op) { return castKernel(op, cut, Saturation::Wrap); });
    const Leaf base = chosen(writer, type, restarts, {held.out, zero(writer)});
    const Leaf exact = writer.temporary(sumType(writer, {base, onGrid}));
    emitSum(writer, exact, {base, onGrid}, {false, false});
    const Leaf sum = converted(writer, type, exact);
    closeStore(writer, held, sum);
    if (term.specials) {
        giveFloat(writer, out, sum, *term.specials, restarts);
    } else {
        writer.convert(out, sum);
    }
    const Leaf magnitude = writer.temporary({from.width + 1, from.fraction, true, false});
    Operand negated = writer.raw(term.value);
    negated.isNegated = true;
    writer.emit(magnitude, 0, {writer.raw(term.value), negated}, extremeKernel, 1);
    std::vector<Leaf> exceeds;
    if (const auto highest = weight(writer, A_ACC_MAXMSB)) {
        exceeds.push_back(emitNot(writer, isBelow(writer, magnitude, *highest + 1)));
    }
    if (term.specials) {
        exceeds.push_back(term.specials->isPositive);
        exceeds.push_back(term.specials->isNegative);
    }
    const Leaf vanishes = emitAnd(writer, {isBelow(writer, magnitude, -type.fraction),
                                           relationOf(writer, magnitude, zero(writer), Relation::NotEqual)});
    return {sticky(writer, emitOr(writer, exceeds), restarts), sticky(writer, vanishes, restarts),
            sticky(writer, relationOf(writer, exact, sum, Relation::NotEqual), restarts)};
}

Leaf restartOf(BlockWriter &writer, int port, std::uint32_t lane) {
    const Signal restart = writer.in(port);
    if (!restart.known()) {
        return zero(writer);
    }
    requireFixed(writer, restart, "the restart");
    return truth(writer, *leafAt(restart, lane));
}

void writeAccumulator(BlockWriter &writer) {
    const Signal data = writer.in(0);
    require(writer, data);
    const Signal out = writer.out();
    const std::pair<const StaticString *, Leaf Flags::*> flags[] = {{&A_ACC_WIRE_XOVERFLOW, &Flags::exceeds},
                                                                    {&A_ACC_WIRE_XUNDERFLOW, &Flags::vanishes},
                                                                    {&A_ACC_WIRE_OVERFLOW, &Flags::overflows}};
    const Signal *widest = &data;
    std::vector<std::pair<Signal, Leaf Flags::*>> flagOuts;
    for (const auto &[wire, flag] : flags) {
        flagOuts.emplace_back(writer.out(*wire), flag);
    }
    for (const auto &[signal, flag] : flagOuts) {
        widest = signal.known() && signal.type->leaves >= widest->type->leaves ? &signal : widest;
    }
    widest = out.known() ? &out : widest;
    if (data.type->isRecord() || (out.known() && out.type->scalar.isFloat != data.type->scalar.isFloat)) {
        writer.fail("the sum is of another kind than the data");
    }
    forEachScalar(*widest, [&](std::uint32_t lane, std::uint32_t part, Leaf) {
        const Leaf leaf = out.known() ? *leafAt(out, lane, part) : writer.temporary(data.type->scalar);
        const Term term = termOf(writer, partOrZero(writer, data, lane, part));
        const Flags told = accumulate(writer, leaf, term, restartOf(writer, 1, lane));
        for (const auto &[signal, flag] : flagOuts) {
            if (const auto wire = signal.known() ? leafAt(signal, lane, part) : std::nullopt) {
                writer.convert(*wire, told.*flag);
            }
        }
    });
}

void writeMultiplyAccumulate(BlockWriter &writer) {
    const Signal a = writer.in(0);
    const Signal b = writer.in(1);
    require(writer, a);
    require(writer, b);
    if (const Signal out = writer.out(); out.known()) {
        if (out.type->isComplex) {
            writer.fail("products of complex numbers are not accumulated");
        }
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            const Term product = productOf(writer, *leafAt(a, lane), *leafAt(b, lane));
            accumulate(writer, leaf, product, restartOf(writer, 2, lane));
        });
    }
}

const BlockRow kRows[] = {
    {&A_ACC_BLOCK, writeAccumulator},
    {&A_FLOAT_MULTACC_BLOCK, writeMultiplyAccumulate},
};

} // namespace

std::span<const BlockRow> accumulatorRows() { return kRows; }

} // namespace orvo::sim
