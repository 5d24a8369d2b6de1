// Combinational blocks on fixed-point numbers. Operands meet exactly, and the exact result is brought to the output's
// type.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/floatemit.h"
#include "sim/kernels.h"
#include "sim/lanes.h"

#include <orvo/corevalues.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo::sim {

namespace {

/// What the signals hold at a place of an output.
std::vector<Leaf> leavesAt(BlockWriter &writer, const std::vector<Signal> &signals, std::uint32_t lane,
                           std::uint32_t part) {
    std::vector<Leaf> leaves;
    for (const Signal &signal : signals) {
        leaves.push_back(partOrZero(writer, signal, lane, part));
    }
    return leaves;
}

/// Sums the inputs part by part; `isNegative(i)` tells which count negative.
template <class IsNegative> void writeSumOf(BlockWriter &writer, const Signal &out, IsNegative isNegative) {
    const std::vector<Signal> inputs = fixedInputs(writer, 1);
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        std::vector<Leaf> leaves;
        std::vector<bool> negates;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            if (const auto source = leafAt(inputs[i], lane, part)) {
                leaves.push_back(*source);
                negates.push_back(isNegative(i));
            }
        }
        if (leaves.empty()) {
            writer.setConstant(leaf, 0);
        } else {
            emitSum(writer, leaf, leaves, negates);
        }
    });
}

void writeAdd(BlockWriter &writer) {
    writeSumOf(writer, writer.out(), [](std::size_t) { return false; });
}

void writeSub(BlockWriter &writer) {
    writeSumOf(writer, writer.out(), [](std::size_t i) { return i != 0; });
}

void writeAddSubFused(BlockWriter &writer) {
    writeAdd(writer);
    writeSumOf(writer, writer.out(A_PRIM_WIRE_AUX), [](std::size_t i) { return i != 0; });
}

void writeNeg(BlockWriter &writer) {
    writeSumOf(writer, writer.out(), [](std::size_t) { return true; });
}

void writeConjugate(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            if (const auto source = leafAt(inputs[0], lane, part)) {
                emitSum(writer, leaf, {*source}, {part == 1});
            }
        });
    }
}

Factor exactProduct(BlockWriter &writer, const Factor &a, const Factor &b) {
    const ScalarType x = writer.scalar(a.re);
    const ScalarType y = writer.scalar(b.re);
    const ScalarType exact{x.width + y.width + 2, x.fraction + y.fraction, true, false};
    Factor product{writer.temporary(exact), std::nullopt};
    emitProductPart(writer, product.re, a, b, 0);
    if (a.im || b.im) {
        product.im = writer.temporary(exact);
        emitProductPart(writer, *product.im, a, b, 1);
    }
    return product;
}

void writeProductOf(BlockWriter &writer, const std::vector<Signal> &inputs) {
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (inputs.size() == 1) {
        convertSignal(writer, out, inputs[0]);
        return;
    }
    for (std::uint32_t lane = 0; lane < out.type->lanes(); ++lane) {
        Factor product = factorAt(inputs[0], lane);
        for (std::size_t i = 1; i + 1 < inputs.size(); ++i) {
            product = exactProduct(writer, product, factorAt(inputs[i], lane));
        }
        for (std::uint32_t part = 0; part < out.type->element; ++part) {
            emitProductPart(writer, *leafAt(out, lane, part), product, factorAt(inputs.back(), lane), part);
        }
    }
}

void writeMult(BlockWriter &writer) { writeProductOf(writer, fixedInputs(writer, 1)); }

/// Terms of a sum of products, as neighbouring operands.
struct ProductSum {
    std::vector<Operand> operands;
    std::int32_t fraction;

    void add(const BlockWriter &writer, const std::optional<Leaf> &a, const std::optional<Leaf> &b, bool isNegated) {
        if (a && b) {
            Operand first = writer.raw(*a);
            first.shift = fraction - writer.scalar(*a).fraction - writer.scalar(*b).fraction;
            first.isNegated = isNegated;
            operands.push_back(first);
            operands.push_back(writer.raw(*b));
        }
    }
    /// A signed type that holds the sum.
    ScalarType exactType() const {
        std::uint32_t widest = 1;
        for (std::size_t i = 0; i < operands.size(); i += 2) {
            widest = std::max(widest, operands[i].width + operands[i + 1].width +
                                          static_cast<std::uint32_t>(operands[i].shift));
        }
        return {widest + 34, fraction, true, false};
    }
};

/// The sum over pairs of ports, of which vectors make a dot product, and the chain-in.
void writeScalarProduct(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 2);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (inputs.size() % 2 != 0) {
        writer.fail("a scalar product has an odd number of inputs");
    }
    std::int32_t fraction = inputs[0].type->scalar.fraction + inputs[1].type->scalar.fraction;
    for (std::size_t i = 0; i < inputs.size(); i += 2) {
        fraction = std::max(fraction, inputs[i].type->scalar.fraction + inputs[i + 1].type->scalar.fraction);
    }
    const Signal chain = writer.in(A_SCALAR_PRODUCT_PORT_CHAININ);
    const std::uint32_t lanes = out.type->lanes();
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        ProductSum sum{{}, fraction};
        for (std::size_t i = 0; i < inputs.size(); i += 2) {
            const bool isSubtracted = writer.isTrue(A_SUBTRACTIVE) && i + 2 == inputs.size();
            const std::uint32_t terms = std::max(inputs[i].type->lanes(), inputs[i + 1].type->lanes()) / lanes;
            for (std::uint32_t term = 0; term < std::max(terms, 1U); ++term) {
                const std::uint32_t at = term * lanes + lane;
                const auto [re, im] = factorAt(inputs[i], at);
                const auto [otherRe, otherIm] = factorAt(inputs[i + 1], at);
                sum.add(writer, re, part == 0 ? std::optional(otherRe) : otherIm, isSubtracted);
                sum.add(writer, im, part == 0 ? otherIm : std::optional(otherRe), isSubtracted != (part == 0));
            }
        }
        const auto chained = chain.known() ? leafAt(chain, lane, part) : std::nullopt;
        if (!chained && !sum.operands.empty()) {
            writer.emit(leaf, fraction - writer.scalar(leaf).fraction, sum.operands, productSumKernel);
        } else if (chained) {
            const Leaf products = writer.temporary(sum.exactType());
            if (!sum.operands.empty()) {
                writer.emit(products, 0, sum.operands, productSumKernel);
            }
            emitSum(writer, leaf, {products, *chained}, {false, writer.isTrue(A_SUBTRACTIVE_CHAININ)});
        }
    });
}

/// Over the outermost dimension of the one input, or over several inputs.
void writeAddReduce(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 1);
    if (inputs.size() > 1 || inputs[0].type->dims.empty()) {
        writeAdd(writer);
        return;
    }
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const std::uint32_t length = inputs[0].type->dims.front();
    const std::uint32_t each = inputs[0].type->leaves / length;
    for (std::uint32_t at = 0; at < out.type->leaves; ++at) {
        std::vector<Leaf> leaves;
        for (std::uint32_t i = 0; i < length; ++i) {
            leaves.push_back(inputs[0].first + i * each + at);
        }
        emitSum(writer, out.first + at, leaves, std::vector<bool>(length, false));
    }
}

void writeAbs(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Operand value = writer.raw(partOrZero(writer, inputs[0], lane, part));
            Operand negated = value;
            negated.isNegated = true;
            writer.emit(leaf, writer.scalar(leaf).fraction * -1 + inputs[0].type->scalar.fraction, {value, negated},
                        extremeKernel, 1);
        });
    }
}

template <int larger> void writeExtreme(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            emitAligned(writer, leaf, leavesAt(writer, inputs, lane, part), extremeKernel, larger);
        });
    }
}

/// The difference of two inputs, exactly.
Leaf exactDifference(BlockWriter &writer, Leaf a, Leaf b) {
    const std::int32_t fraction = commonFraction(writer, std::initializer_list<Leaf>{a, b});
    const std::int32_t whole = std::max(static_cast<std::int32_t>(writer.scalar(a).width) - writer.scalar(a).fraction,
                                        static_cast<std::int32_t>(writer.scalar(b).width) - writer.scalar(b).fraction);
    const Leaf difference =
        writer.temporary({static_cast<std::uint32_t>(std::max(whole + fraction, 0) + 2), fraction, true, false});
    emitSum(writer, difference, {a, b}, {false, true});
    return difference;
}

void writeDim(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 2);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf difference = exactDifference(writer, partOrZero(writer, inputs[0], lane, part),
                                                    partOrZero(writer, inputs[1], lane, part));
            emitAligned(writer, leaf, {difference, zero(writer)}, extremeKernel, 1);
        });
    }
}

/// The input of the smaller or the larger magnitude; of equal ones the smaller, or the larger, value.
template <bool larger> void writeMagnitude(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 1);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        std::vector<Leaf> leaves = leavesAt(writer, inputs, lane, part);
        const std::int32_t fraction = commonFraction(writer, leaves);
        std::int32_t whole = 1;
        for (const Leaf one : leaves) {
            whole = std::max(whole, static_cast<std::int32_t>(writer.scalar(one).width) - writer.scalar(one).fraction);
        }
        const ScalarType exact{static_cast<std::uint32_t>(std::max(whole + fraction, 0) + 2), fraction, true, false};
        const auto magnitude = [&](Leaf of) {
            const Leaf made = writer.temporary(exact);
            const Operand value = writer.aligned(of, fraction);
            Operand negated = value;
            negated.isNegated = true;
            writer.emit(made, 0, {value, negated}, extremeKernel, 1);
            return made;
        };
        const auto bit = [&](Leaf a, Leaf b, Relation relation) {
            const Leaf made = writer.temporary({1, 0, false, false});
            emitCompare(writer, made, a, b, relation);
            return made;
        };
        Leaf best = leaves[0];
        for (std::size_t i = 1; i < leaves.size(); ++i) {
            const Leaf next = leaves[i];
            const Leaf m = magnitude(best);
            const Leaf n = magnitude(next);
            // Whether the next one is beyond the best so far, by its magnitude or, if those are equal, by its value.
            const Leaf beyond = larger ? bit(m, n, Relation::Less) : bit(n, m, Relation::Less);
            const Leaf byValue = larger ? bit(best, next, Relation::Less) : bit(next, best, Relation::Less);
            const Leaf tie = writer.temporary({1, 0, false, false});
            const Leaf takes = writer.temporary({1, 0, false, false});
            writer.emit(tie, 0, {writer.raw(bit(m, n, Relation::Equal)), writer.raw(byValue)},
                        [](const Op &op) { return logicKernel(op, Logic::And); });
            writer.emit(takes, 0, {writer.raw(beyond), writer.raw(tie)},
                        [](const Op &op) { return logicKernel(op, Logic::Or); });
            const Leaf chosen = writer.temporary(exact);
            emitMux(writer, chosen, takes, {best, next});
            best = chosen;
        }
        writer.convert(leaf, best);
    });
}

/// Port 0 data, 1 upper limit, 2 lower limit: max(min(data, upper), lower).
void writeSaturate(BlockWriter &writer) {
    const std::vector<Signal> inputs = fixedInputs(writer, 3);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf data = partOrZero(writer, inputs[0], lane, part);
            const Leaf upper = partOrZero(writer, inputs[1], lane, part);
            const std::int32_t fraction = commonFraction(writer, std::initializer_list<Leaf>{data, upper});
            std::int32_t whole = 1;
            for (const Leaf one : {data, upper}) {
                whole =
                    std::max(whole, static_cast<std::int32_t>(writer.scalar(one).width) - writer.scalar(one).fraction);
            }
            const Leaf lesser = writer.temporary(
                {static_cast<std::uint32_t>(std::max(whole + fraction, 0) + 1), fraction, true, false});
            emitAligned(writer, lesser, {data, upper}, extremeKernel, 0);
            emitAligned(writer, leaf, {lesser, partOrZero(writer, inputs[2], lane, part)}, extremeKernel, 1);
        });
    }
}

/// Of records, which pass whole.
void requireType(const BlockWriter &writer, const Signal &signal, const SignalType &type) {
    if (signal.known() && signal.type != &type) {
        writer.fail("a data input has another type than the output");
    }
}

/// A float is brought to the format of the output before it is chosen, for choosing moves bits.
Leaf sameKind(BlockWriter &writer, Leaf out, Leaf in) {
    const ScalarType type = writer.scalar(out);
    if ((!type.isFloat && !writer.scalar(in).isFloat) || type == writer.scalar(in)) {
        return in;
    }
    const Leaf same = writer.temporary(type);
    writer.convert(same, in);
    return same;
}

void writeMux(BlockWriter &writer) {
    const Signal select = fixedInput(writer, A_MUX_PORT_SELECT, "the select");
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    // A number between others without a port is like one beyond the last.
    constexpr int kMostInputs = 1 << 20;
    std::vector<Signal> data;
    for (const auto &[number, signal] : writer.numberedPorts()) {
        if (number > kMostInputs) {
            writer.fail("a data input has a number beyond all selects");
        }
        if (signal.type->isRecord() || out.type->isRecord()) {
            requireType(writer, signal, *out.type);
        }
        data.resize(static_cast<std::size_t>(number) + 1);
        data.back() = signal;
    }
    if (data.empty()) {
        return;
    }
    const auto choose = [&](Leaf leaf, std::uint32_t lane, auto dataAt) {
        std::vector<Leaf> leaves;
        for (const Signal &signal : data) {
            leaves.push_back(signal.known() ? dataAt(signal) : writer.unknown(writer.scalar(leaf)));
        }
        emitMux(writer, leaf, *leafAt(select, lane), leaves);
    };
    if (out.type->isRecord()) {
        for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
            choose(out.first + i, 0, [i](const Signal &signal) { return signal.first + i; });
        }
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        choose(leaf, lane,
               [&](const Signal &signal) { return sameKind(writer, leaf, partOrZero(writer, signal, lane, part)); });
    });
}

/// A select between two data inputs, by a control of a bit.
template <class Data> void writeChoice(BlockWriter &writer, const StaticString &controlKey, Data dataAt) {
    const Signal control = fixedInput(writer, controlKey, "the control");
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const auto [whenFalse, whenTrue] = dataAt(lane, part);
        emitMux(writer, leaf, truth(writer, *leafAt(control, lane)), {whenFalse, whenTrue});
    });
}

Leaf exactSum(BlockWriter &writer, Leaf a, Leaf b) {
    const std::int32_t fraction = commonFraction(writer, std::initializer_list<Leaf>{a, b});
    std::int32_t whole = 1;
    for (const Leaf one : {a, b}) {
        whole = std::max(whole, static_cast<std::int32_t>(writer.scalar(one).width) - writer.scalar(one).fraction);
    }
    const Leaf sum =
        writer.temporary({static_cast<std::uint32_t>(std::max(whole + fraction, 0) + 2), fraction, true, false});
    emitSum(writer, sum, {a, b}, {false, false});
    return sum;
}

void writeAddSub(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    writeChoice(writer, A_ADDSUB_PORT_SELECT, [&](std::uint32_t lane, std::uint32_t part) {
        const Leaf a = partOrZero(writer, in[0], lane, part);
        const Leaf b = partOrZero(writer, in[1], lane, part);
        return std::pair(exactDifference(writer, a, b), exactSum(writer, a, b));
    });
}

void writeAddSload(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    const Signal load = fixedInput(writer, A_ADD_SLOAD_PORT_LOAD_VALUE, "the load value");
    writeChoice(writer, A_ADD_SLOAD_PORT_LOAD_CTRL, [&](std::uint32_t lane, std::uint32_t part) {
        const Leaf sum = exactSum(writer, partOrZero(writer, in[0], lane, part), partOrZero(writer, in[1], lane, part));
        return std::pair(sum, partOrZero(writer, load, lane, part));
    });
}

void writeMinMax(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    writeChoice(writer, A_MINMAX_PORT_SELECT, [&](std::uint32_t lane, std::uint32_t part) {
        const std::vector<Leaf> both{partOrZero(writer, in[0], lane, part), partOrZero(writer, in[1], lane, part)};
        const std::int32_t fraction = commonFraction(writer, both);
        std::int32_t whole = 1;
        for (const Leaf one : both) {
            whole = std::max(whole, static_cast<std::int32_t>(writer.scalar(one).width) - writer.scalar(one).fraction);
        }
        const ScalarType exact{static_cast<std::uint32_t>(std::max(whole + fraction, 0) + 1), fraction, true, false};
        const Leaf lesser = writer.temporary(exact);
        const Leaf larger = writer.temporary(exact);
        emitAligned(writer, lesser, both, extremeKernel, 0);
        emitAligned(writer, larger, both, extremeKernel, 1);
        return std::pair(lesser, larger);
    });
}

/// The lowest-numbered case whose control is true, else the default.
void writeSelect(BlockWriter &writer) {
    struct Case {
        Signal control;
        Signal data;
    };
    std::vector<Case> cases;
    Context *context = writer.context();
    for (const Port &port : writer.block().ports()) {
        const PureTupleValueRef key = pureTupleVR(port.getName());
        if (key && key->size() == 2 && key->at(0) == A_SELECT_PORTKEY_CTRL) {
            const Signal control = writer.in(port.getName());
            requireFixed(writer, control, "a control");
            cases.push_back({control, writer.in(PureTupleValue::get(A_SELECT_PORTKEY_DATA, key->at(1), context))});
            require(writer, cases.back().data);
        }
    }
    const Signal other = writer.in(A_SELECT_PORT_DEFAULT_DATA);
    if (const Signal out = writer.out(); out.known()) {
        const auto choose = [&](Leaf leaf, std::uint32_t lane, auto dataAt) {
            const ScalarType type = writer.scalar(leaf);
            Leaf chosen = other.known() ? sameKind(writer, leaf, dataAt(other)) : writer.unknown(type);
            for (std::size_t i = cases.size(); i-- > 0;) {
                const Leaf result = i == 0 ? leaf : writer.temporary(type);
                emitMux(writer, result, truth(writer, *leafAt(cases[i].control, lane)),
                        {chosen, sameKind(writer, leaf, dataAt(cases[i].data))});
                chosen = result;
            }
            if (cases.empty()) {
                writer.convert(leaf, chosen);
            }
        };
        if (out.type->isRecord()) {
            requireType(writer, other, *out.type);
            for (const Case &one : cases) {
                requireType(writer, one.data, *out.type);
            }
            for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
                choose(out.first + i, 0, [i](const Signal &data) { return data.first + i; });
            }
        } else {
            forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
                choose(leaf, lane, [&](const Signal &data) { return partOrZero(writer, data, lane, part); });
            });
        }
    }
    if (const Signal valid = writer.out(A_SELECT_WIRE_VALID); valid.known() && !cases.empty()) {
        forEachScalar(valid, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            std::vector<Operand> controls;
            for (const Case &one : cases) {
                controls.push_back(writer.raw(truth(writer, *leafAt(one.control, lane))));
            }
            writer.emit(leaf, 0, controls, [](const Op &op) { return logicKernel(op, Logic::Or); });
        });
    }
}

template <Relation relation> void writeCompare(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const bool isComplex = in[0].type->isComplex || in[1].type->isComplex;
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
        if (!isComplex) {
            emitCompare(writer, leaf, *leafAt(in[0], lane), *leafAt(in[1], lane), relation);
            return;
        }
        // Equality of complex numbers needs both parts.
        std::vector<Operand> bits;
        for (std::uint32_t part = 0; part < 2; ++part) {
            const Leaf bit = writer.temporary({1, 0, false, false});
            emitCompare(writer, bit, partOrZero(writer, in[0], lane, part), partOrZero(writer, in[1], lane, part),
                        relation);
            bits.push_back(writer.raw(bit));
        }
        writer.emit(leaf, 0, bits,
                    [](const Op &op) { return logicKernel(op, relation == Relation::Equal ? Logic::And : Logic::Or); });
    });
}

void writeCompareControl(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    writeChoice(writer, A_COMPARE_PORT_SELECT, [&](std::uint32_t lane, std::uint32_t) {
        const Leaf less = writer.temporary({1, 0, false, false});
        const Leaf greaterEqual = writer.temporary({1, 0, false, false});
        emitCompare(writer, less, *leafAt(in[0], lane), *leafAt(in[1], lane), Relation::Less);
        emitCompare(writer, greaterEqual, *leafAt(in[0], lane), *leafAt(in[1], lane), Relation::GreaterEqual);
        return std::pair(less, greaterEqual);
    });
}

/// Operands are aligned in the output's type, then their raw bits meet.
template <Logic logic, int complement> void writeLogic(BlockWriter &writer) {
    const std::vector<Signal> in = patternInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            std::vector<Operand> operands;
            for (const Signal &signal : in) {
                Operand operand = writer.raw(partOrZero(writer, signal, lane, part));
                operand.shift = writer.scalar(leaf).fraction - signal.type->scalar.fraction;
                operands.push_back(operand);
            }
            writer.emit(
                leaf, 0, operands, [](const Op &op) { return logicKernel(op, logic); }, complement);
        });
    }
}

template <Logic logic, int complement> void writeReduce(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.emit(
                leaf, 0, {writer.raw(*leafAt(in[0], lane, part))}, [](const Op &op) { return reduceKernel(op, logic); },
                complement);
        });
    }
}

void writeCountOnes(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.emit(leaf, 0, {writer.raw(*leafAt(in[0], lane, part))}, countOnesKernel);
        });
    }
}

void writeReverse(BlockWriter &writer) {
    const std::vector<Signal> in = patternInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.emit(leaf, 0, {writer.raw(*leafAt(in[0], lane, part))}, reverseKernel);
        });
    }
}

void writeBitJoin(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            std::vector<Operand> operands;
            for (const Signal &signal : in) {
                operands.push_back(writer.raw(partOrZero(writer, signal, lane, part)));
            }
            writer.emit(leaf, 0, operands, joinKernel);
        });
    }
}

/// The elements that meet in one of the output side by side, element 0 lowest, or several inputs.
void writeBitJoinReduce(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const auto isVector = [](const Signal &signal) { return !signal.type->dims.empty(); };
    if (in.size() > 1 && std::any_of(in.begin(), in.end(), isVector)) {
        writer.fail("a join of the elements of several vectors has no meaning here");
        return;
    }
    if (!isVector(in[0])) {
        writeBitJoin(writer);
        return;
    }
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const std::uint32_t each = out.type->leaves;
    for (std::uint32_t at = 0; at < each; ++at) {
        std::vector<Operand> operands;
        for (std::uint32_t i = at; i < in[0].type->leaves; i += each) {
            operands.push_back(writer.raw(in[0].first + i));
        }
        writer.emit(out.first + at, 0, operands, joinKernel);
    }
}

/// From the offset up, extended by the input's sign. A negative offset counts from the top.
void writeBitSelect(BlockWriter &writer) {
    const std::vector<Signal> in = patternInputs(writer, 1);
    std::int64_t offset = writer.integer(A_BIT_SELECT_BIT_OFFSET, 0);
    if (const Signal out = writer.out(); out.known()) {
        const auto width = static_cast<std::int64_t>(in[0].type->scalar.width);
        offset = std::clamp<std::int64_t>(offset < 0 ? offset + width : offset, 0, width);
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.emit(leaf, static_cast<std::int32_t>(offset), {writer.raw(*leafAt(in[0], lane, part))}, sumKernel);
        });
    }
}

void writeChooseBits(BlockWriter &writer) {
    const std::vector<Signal> in = patternInputs(writer, 1);
    const TupleValueRef offsets = tupleVR(writer.param(A_CHOOSE_BITS_BIT_OFFSETS));
    const Signal out = writer.out();
    if (!offsets) {
        writer.fail("the list of bits is no tuple");
    }
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        std::vector<Operand> operands;
        for (const ValueRef &offset : *offsets) {
            const NumberValueRef number = numberVR(offset);
            if (!number || !number->isInt() || number->toInt() < 0 ||
                static_cast<std::uint32_t>(number->toInt()) >= in[0].type->scalar.width) {
                writer.fail("a chosen bit is outside the input");
            }
            const Leaf bit = writer.temporary({1, 0, false, false});
            writer.emit(bit, number->toInt(), {writer.raw(*leafAt(in[0], lane, part))}, sumKernel);
            operands.push_back(writer.raw(bit));
        }
        writer.emit(leaf, 0, operands, joinKernel);
    });
}

/// The raw bits stay; what the point's move adds above or below them extends them.
void writeRawShift(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const std::int64_t places = writer.integer(A_RAW_SHIFT_VALUE, 0);
    const bool isSpecial = writer.param(A_RAW_SHIFT_MODE) == A_RAW_SHIFT_MODE_SPECIAL_RIGHT;
    if (const Signal out = writer.out(); out.known()) {
        // The value is that of the input times two to the places; the special mode divides by them.
        const std::int64_t fraction = in[0].type->scalar.fraction + (isSpecial ? places : -places);
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.emit(leaf, static_cast<std::int32_t>(fraction - writer.scalar(leaf).fraction),
                        {writer.raw(*leafAt(in[0], lane, part))}, sumKernel);
        });
    }
}

template <Rounding rounding> void writeRound(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const auto bits = static_cast<std::int32_t>(writer.integer(A_ROUND_BITS, 0));
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.emit(leaf, bits, {writer.raw(*leafAt(in[0], lane, part))},
                        [](const Op &op) { return castKernel(op, rounding, Saturation::Wrap); });
        });
    }
}

/// Between fixed-point types, the modes of floats cut as none does.
Rounding roundingOf(const BlockWriter &writer) {
    const ValueRef mode = writer.param(A_CAST_ROUNDING_MODE);
    const std::pair<const StaticString *, Rounding> modes[] = {{&A_ROUNDING_TRUNC, Rounding::Floor},
                                                               {&A_ROUNDING_TRUNC_TO_ZERO, Rounding::ToZero},
                                                               {&A_ROUNDING_BIASED, Rounding::HalfUp},
                                                               {&A_ROUNDING_UNBIASED, Rounding::HalfEven}};
    for (const auto &[name, rounding] : modes) {
        if (mode == *name) {
            return rounding;
        }
    }
    return Rounding::Floor;
}

/// What a cast reads: numbers, or a record that becomes one of the same type, scalar by scalar.
Signal castInput(const BlockWriter &writer, const Signal &out) {
    const std::vector<Signal> inputs = writer.numbered();
    const bool isRecord = !inputs.empty() && inputs.front().type->isRecord() && inputs.front().type == out.type;
    return isRecord ? inputs.front() : fixedInputs(writer, 1).front();
}

void writeCast(BlockWriter &writer) {
    const Signal out = writer.out();
    const Signal in = castInput(writer, out);
    const bool reinterprets = writer.param(A_CAST_MODE) == A_CAST_MODE_REINTERP;
    const Rounding rounding = roundingOf(writer);
    const ValueRef mode = writer.param(A_CAST_SATURATE_MODE);
    const Saturation saturation = mode == A_SATURATE_SYM    ? Saturation::Symmetric
                                  : mode == A_SATURATE_ASYM ? Saturation::Asymmetric
                                                            : Saturation::Wrap;
    if (!out.known()) {
        return;
    }
    if (out.type != in.type && (out.type->isRecord() || out.type->scalar.isFloat)) {
        writer.fail("a cast to this type has no meaning here");
    }
    const Signal clip = writer.out(A_CAST_WIRE_CLIP);
    const FloatCast floatCast = floatCastOf(writer);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const auto source = leafAt(in, lane, part);
        if (!source) {
            writer.setConstant(leaf, 0);
            return;
        }
        const Operand value = writer.raw(*source);
        if (reinterprets) {
            writer.emit(leaf, 0, {value}, sumKernel);
            return;
        }
        const ScalarType type = writer.scalar(leaf);
        if (type.isFloat) {
            // A member of a record.
            emitFloatCast(writer, floatCast, leaf, *source, std::nullopt);
            return;
        }
        const std::int32_t drop = writer.scalar(*source).fraction - type.fraction;
        const int range = static_cast<int>(type.width) | (type.isSigned ? 1 << 24 : 0);
        writer.emit(leaf, drop, {value}, [&](const Op &op) { return castKernel(op, rounding, saturation); });
        const auto flag = clip.known() ? leafAt(clip, lane, part) : std::nullopt;
        // Where no bit of the input survives, a constant stands for the whole, and no bound is looked at.
        const bool isNearest = rounding == Rounding::HalfUp || rounding == Rounding::HalfEven;
        const auto width = static_cast<std::int32_t>(value.width);
        if (flag && (drop > width || (drop == width && !isNearest))) {
            writer.setConstant(*flag, 0);
        } else if (flag) {
            writer.emit(
                *flag, drop, {value}, [&](const Op &op) { return clipKernel(op, rounding, saturation); }, range);
        }
    });
}

/// The quotient, cut toward zero at the output's fraction.
void emitQuotient(BlockWriter &writer, Leaf out, Leaf dividend, Leaf divisor) {
    Operand a = writer.raw(dividend);
    Operand b = writer.raw(divisor);
    const std::int32_t shift =
        writer.scalar(out).fraction - writer.scalar(dividend).fraction + writer.scalar(divisor).fraction;
    (shift >= 0 ? a.shift : b.shift) = std::abs(shift);
    writer.emit(out, 0, {a, b, writer.raw(writer.unknown(writer.scalar(out)))}, divideKernel);
}

void writeDivide(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    if (const Signal out = writer.out(); out.known()) {
        if (in[0].type->isComplex || in[1].type->isComplex) {
            writer.fail("a quotient of complex numbers has no meaning here");
        }
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            emitQuotient(writer, leaf, *leafAt(in[0], lane), *leafAt(in[1], lane));
        });
    }
}

void writeConst(BlockWriter &writer) {
    if (const Signal out = writer.out(); out.known()) {
        writer.constant(out, writer.param(A_CONST_VALUE));
    }
}

void writeConstMult(BlockWriter &writer) {
    std::vector<Signal> in = fixedInputs(writer, 1);
    in.resize(1);
    in.push_back(constantSignal(writer, A_CONST_VALUE));
    writeProductOf(writer, in);
}

void writeConstDiv(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const Signal divisor = constantSignal(writer, A_CONST_VALUE);
    if (divisor.type->isComplex) {
        writer.fail("a quotient by a complex number has no meaning here");
    }
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            emitQuotient(writer, leaf, *leafAt(in[0], lane, part), *leafAt(divisor, lane));
        });
    }
}

void writeModMult(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    const Signal modulus = constantSignal(writer, A_MOD_MULT_MODULUS_VALUE);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            const Factor product =
                exactProduct(writer, {*leafAt(in[0], lane), std::nullopt}, {*leafAt(in[1], lane), std::nullopt});
            // An even modulus has a type without its low bits.
            const std::int32_t fraction =
                commonFraction(writer, std::initializer_list<Leaf>{product.re, modulus.first});
            writer.emit(leaf, fraction - writer.scalar(leaf).fraction,
                        {writer.aligned(product.re, fraction), writer.aligned(modulus.first, fraction),
                         writer.raw(writer.unknown(writer.scalar(leaf)))},
                        moduloKernel);
        });
    }
}

/// A source gives the constant of its kind.
template <int value> void writeSource(BlockWriter &writer) {
    if (const Signal out = writer.out(); out.known()) {
        writer.constant(out, NumberValue::get(value, writer.context()));
    }
}

const BlockRow kRows[] = {
    {&A_CONST_BLOCK, writeConst},
    {&A_ECC_SRC_BLOCK, writeSource<0>},
    {&A_ENABLE_SRC_BLOCK, writeSource<1>},
    {&A_ADD_BLOCK, writeAdd},
    {&A_MONSTER_ADD_BLOCK, writeAdd},
    {&A_SUB_BLOCK, writeSub},
    {&A_ADDSUB_BLOCK, writeAddSub},
    {&A_ADDSUBFUSED_BLOCK, writeAddSubFused},
    {&A_ADD_SLOAD_BLOCK, writeAddSload},
    {&A_ADD_REDUCE_BLOCK, writeAddReduce},
    {&A_NEG_BLOCK, writeNeg},
    {&A_COMPLEX_CONJUGATE_BLOCK, writeConjugate},
    {&A_ABS_BLOCK, writeAbs},
    {&A_MULT_BLOCK, writeMult},
    {&A_MONSTER_MULT_BLOCK, writeMult},
    {&A_SCALAR_PRODUCT_BLOCK, writeScalarProduct},
    {&A_CONSTMULT_BLOCK, writeConstMult},
    {&A_CONSTDIV_BLOCK, writeConstDiv},
    {&A_DIVIDE_BLOCK, writeDivide},
    {&A_MOD_MULT_BLOCK, writeModMult},
    {&A_MIN_BLOCK, writeExtreme<0>},
    {&A_MAX_BLOCK, writeExtreme<1>},
    {&A_MAGMIN_BLOCK, writeMagnitude<false>},
    {&A_MAGMAX_BLOCK, writeMagnitude<true>},
    {&A_MINMAX_BLOCK, writeMinMax},
    {&A_DIM_BLOCK, writeDim},
    {&A_SATURATE_BLOCK, writeSaturate},
    {&A_CMP_EQ_BLOCK, writeCompare<Relation::Equal>},
    {&A_CMP_NE_BLOCK, writeCompare<Relation::NotEqual>},
    {&A_CMP_GE_BLOCK, writeCompare<Relation::GreaterEqual>},
    {&A_CMP_LT_BLOCK, writeCompare<Relation::Less>},
    {&A_COMPARECTRL_BLOCK, writeCompareControl},
    {&A_AND_BLOCK, writeLogic<Logic::And, 0>},
    {&A_NAND_BLOCK, writeLogic<Logic::And, 1>},
    {&A_OR_BLOCK, writeLogic<Logic::Or, 0>},
    {&A_NOR_BLOCK, writeLogic<Logic::Or, 1>},
    {&A_XOR_BLOCK, writeLogic<Logic::Xor, 0>},
    {&A_XNOR_BLOCK, writeLogic<Logic::Xor, 1>},
    {&A_NOT_BLOCK, writeLogic<Logic::Or, 1>},
    {&A_AND_REDUCE_BLOCK, writeReduce<Logic::And, 0>},
    {&A_NAND_REDUCE_BLOCK, writeReduce<Logic::And, 1>},
    {&A_OR_REDUCE_BLOCK, writeReduce<Logic::Or, 0>},
    {&A_NOR_REDUCE_BLOCK, writeReduce<Logic::Or, 1>},
    {&A_XOR_REDUCE_BLOCK, writeReduce<Logic::Xor, 0>},
    {&A_XNOR_REDUCE_BLOCK, writeReduce<Logic::Xor, 1>},
    {&A_MUX_BLOCK, writeMux},
    {&A_SELECT_BLOCK, writeSelect},
    {&A_CAST_BLOCK, writeCast},
    {&A_TRUNCATE_BLOCK, writeRound<Rounding::Floor>},
    {&A_TRUNCATE_TO_ZERO_BLOCK, writeRound<Rounding::ToZero>},
    {&A_BIASED_ROUND_BLOCK, writeRound<Rounding::HalfUp>},
    {&A_UNBIASED_ROUND_BLOCK, writeRound<Rounding::HalfEven>},
    {&A_BIT_SELECT_BLOCK, writeBitSelect},
    {&A_BIT_JOIN_BLOCK, writeBitJoin},
    {&A_BIT_JOIN_REDUCE_BLOCK, writeBitJoinReduce},
    {&A_CHOOSE_BITS_BLOCK, writeChooseBits},
    {&A_REVERSE_BLOCK, writeReverse},
    {&A_BIT_COUNT_BLOCK, writeCountOnes},
    {&A_CTPOP_BLOCK, writeCountOnes},
    {&A_RAW_SHIFT_BLOCK, writeRawShift},
};

} // namespace

std::span<const BlockRow> arithmeticRows() { return kRows; }

} // namespace orvo::sim
