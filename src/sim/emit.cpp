// What several families write.
#include "sim/emit.h"

#include "sim/memorykernels.h"
#include "sim/statekernels.h"

#include <bit>

namespace orvo::sim {

std::size_t rolledLayers(ValueRef value) {
    std::size_t layers = 0;
    for (TupleValueRef tuple = tupleVR(value); tuple && tuple->size() > 1 && tuple->at(0) == A_VECTOR_ROLL_TAG;
         tuple = tupleVR(tuple->at(1))) {
        ++layers;
    }
    return layers;
}

ValueRef rolledElement(const ValueRef &value, std::uint32_t lane) {
    const TupleValueRef tuple = tupleVR(value);
    return tuple->at(std::min<std::size_t>(std::size_t{lane} + 1, tuple->size() - 1));
}

ValueRef settingOfLane(const ValueRef &value, const SignalType &type, std::uint32_t lane) {
    if (const std::size_t layers = rolledLayers(value)) {
        return LaneWalk(type, lane, layers).descend(value);
    }
    const TupleValueRef tuple = tupleVR(value);
    return tuple && tuple->size() != 0 ? tuple->at(lane % tuple->size()) : value;
}

std::vector<Signal> patternInputs(const BlockWriter &writer, std::size_t least) {
    std::vector<Signal> inputs = writer.numbered();
    if (inputs.size() < least) {
        writer.missing();
    }
    for (const Signal &input : inputs) {
        if (input.type->isRecord()) {
            writer.fail("an input is a record");
        }
    }
    return inputs;
}

std::vector<Signal> fixedInputs(const BlockWriter &writer, std::size_t least) {
    std::vector<Signal> inputs = patternInputs(writer, least);
    for (const Signal &input : inputs) {
        requireFixed(writer, input, "an input");
    }
    return inputs;
}

Signal fixedInput(const BlockWriter &writer, const PureValueRef &key, const char *what) {
    const Signal signal = writer.in(key);
    requireFixed(writer, signal, what);
    return signal;
}

void emitSum(BlockWriter &writer, Leaf out, const std::vector<Leaf> &in, const std::vector<bool> &negates) {
    const std::int32_t fraction = commonFraction(writer, in);
    std::vector<Operand> operands;
    for (std::size_t i = 0; i < in.size(); ++i) {
        operands.push_back(writer.aligned(in[i], fraction));
        operands.back().isNegated = negates[i];
    }
    writer.emit(out, fraction - writer.scalar(out).fraction, operands, sumKernel);
}

Leaf zero(BlockWriter &writer) { return writer.temporary({1, 0, false, false}); }

Leaf truth(BlockWriter &writer, Leaf control) {
    const ScalarType type = writer.scalar(control);
    if (type.width == 1 && !type.isSigned && !type.isFloat) {
        return control;
    }
    const Leaf bit = writer.temporary({1, 0, false, false});
    writer.emit(bit, 0, {writer.raw(control)}, [](const Op &op) { return reduceKernel(op, Logic::Or); });
    return bit;
}

void emitMux(BlockWriter &writer, Leaf out, Leaf select, const std::vector<Leaf> &data) {
    const std::int32_t fraction = commonFraction(writer, data);
    std::vector<Operand> operands{writer.raw(select)};
    for (const Leaf leaf : data) {
        operands.push_back(writer.aligned(leaf, fraction));
    }
    const std::uint32_t bits = writer.scalar(select).width;
    const bool runsBeyond = bits >= 32 || (std::uint64_t{1} << bits) > data.size();
    if (runsBeyond) {
        operands.push_back(writer.raw(writer.unknown(writer.scalar(out))));
    }
    writer.emit(out, fraction - writer.scalar(out).fraction, operands, muxKernel, runsBeyond ? 1 : 0);
}

Leaf partOrZero(BlockWriter &writer, const Signal &signal, std::uint32_t lane, std::uint32_t part) {
    if (const auto leaf = leafAt(signal, lane, part)) {
        return *leaf;
    }
    return writer.temporary(signal.type->scalar);
}

void emitCompare(BlockWriter &writer, Leaf out, Leaf a, Leaf b, Relation relation) {
    const std::int32_t fraction = commonFraction(writer, std::initializer_list<Leaf>{a, b});
    writer.emit(out, 0, {writer.aligned(a, fraction), writer.aligned(b, fraction)},
                [relation](const Op &op) { return compareKernel(op, relation); });
}

Leaf one(BlockWriter &writer) {
    const Leaf bit = writer.temporary({1, 0, false, false});
    writer.setConstant(bit, 1);
    return bit;
}

Leaf emitBit(BlockWriter &writer, Logic logic, const std::vector<Leaf> &bits, bool negates) {
    if (bits.empty()) {
        return negates ? one(writer) : zero(writer);
    }
    if (bits.size() == 1 && !negates) {
        return bits[0];
    }
    const Leaf bit = writer.temporary({1, 0, false, false});
    std::vector<Operand> operands;
    for (const Leaf leaf : bits) {
        operands.push_back(writer.raw(leaf));
    }
    writer.emit(
        bit, 0, operands, [logic](const Op &op) { return logicKernel(op, logic); }, negates ? 1 : 0);
    return bit;
}

namespace {

/// More bits than these are not kept.
constexpr std::int64_t kMostBits = std::int64_t{1} << 31;

} // namespace

Queue makeQueue(BlockWriter &writer, std::int64_t depth, std::int64_t low, std::int64_t high, std::vector<Leaf> entry) {
    std::uint32_t entryWords = 0;
    for (const Leaf leaf : entry) {
        entryWords += wordsFor(writer.scalar(leaf).width);
    }
    if (depth < 1 || depth > kMostBits || depth * entryWords * 64 > kMostBits) {
        writer.fail("the queue has no depth that can be kept");
    }
    const std::uint32_t words = kQueueHeaderWords + entryWords * static_cast<std::uint32_t>(depth);
    const std::uint32_t state = writer.state(words);
    writer.setInitial(state + 2, static_cast<std::uint64_t>(depth));
    writer.setInitial(state + 3, entryWords);
    writer.setInitial(state + 4, static_cast<std::uint64_t>(low));
    writer.setInitial(state + 5, static_cast<std::uint64_t>(high));
    return {state, words, std::move(entry)};
}

void emitOldest(BlockWriter &writer, const Queue &queue, const std::vector<Leaf> &out) {
    int at = 0;
    for (const Leaf leaf : out) {
        const Operand unknown = writer.raw(writer.unknown(writer.scalar(leaf)));
        writer.emitFromState(leaf, queue.state, queue.words, {unknown}, readQueue, at);
        at += static_cast<int>(wordsFor(writer.scalar(leaf).width));
    }
}

void emitQueueFlag(BlockWriter &writer, const Queue &queue, QueueFlag flag, Leaf out) {
    writer.emitFromState(out, queue.state, queue.words, {}, readQueueFlag, static_cast<int>(flag));
}

void commitQueue(BlockWriter &writer, const Queue &queue, Leaf write, Leaf acknowledge, Leaf flush) {
    std::vector<Operand> operands{writer.raw(write), writer.raw(acknowledge), writer.raw(flush)};
    for (const Leaf leaf : queue.entry) {
        operands.push_back(writer.raw(leaf));
    }
    writer.commit(queue.state, queue.words, operands, moveQueue);
}

Signal temporarySignal(BlockWriter &writer, const SignalType *type, const char *what) {
    if (type == nullptr) {
        writer.fail(std::string(what) + " has no type");
    }
    Signal signal{type, 0};
    std::vector<ScalarType> scalars;
    appendScalars(*type, scalars);
    for (std::size_t i = 0; i < scalars.size(); ++i) {
        const Leaf leaf = writer.temporary(scalars[i]);
        signal.first = i == 0 ? leaf : signal.first;
    }
    return signal;
}

Signal constantSignal(BlockWriter &writer, const StaticString &key) {
    return constantSignal(writer, writer.param(key));
}

Signal constantSignal(BlockWriter &writer, const ValueRef &value) {
    const NumTypeSpec spec = NumTypeSpec::fromFixedValue(value, false);
    const Signal signal = temporarySignal(writer, writer.types().of(spec.toValue(writer.context())), "the constant");
    writer.constant(signal, value);
    return signal;
}

Stored openStore(BlockWriter &writer, const ScalarType &type, std::int64_t length) {
    const std::uint32_t each = wordsFor(type.width);
    if (length < 1 || length > kMostBits || length * each * 64 > kMostBits) {
        writer.fail("a delay in it has no length that can be kept");
    }
    Stored stored{writer.temporary(type), 0, each, length};
    if (length > 1) {
        stored.words = 2 + each * static_cast<std::uint32_t>(length);
    }
    stored.state = writer.state(stored.words);
    if (length > 1) {
        writer.setInitial(stored.state + 1, static_cast<std::uint64_t>(length));
    }
    writer.emitFromState(stored.out, stored.state, stored.words, {}, length == 1 ? readState : readRing);
    return stored;
}

void closeStore(BlockWriter &writer, const Stored &stored, Leaf in, std::optional<Leaf> enable) {
    std::vector<Operand> operands{writer.raw(in)};
    if (enable) {
        operands.push_back(writer.raw(*enable));
    }
    writer.commit(stored.state, stored.words, operands, stored.length == 1 ? writeState : writeRing);
}

Leaf converted(BlockWriter &writer, const ScalarType &type, Leaf in) {
    const Leaf out = writer.temporary(type);
    writer.convert(out, in);
    return out;
}

Leaf chosen(BlockWriter &writer, const ScalarType &type, Leaf select, const std::vector<Leaf> &data) {
    const Leaf out = writer.temporary(type);
    emitMux(writer, out, select, data);
    return out;
}

ScalarType sumType(const BlockWriter &writer, const std::vector<Leaf> &in) {
    const std::int32_t fraction = commonFraction(writer, in);
    std::int32_t whole = 1;
    for (const Leaf leaf : in) {
        whole = std::max(whole, static_cast<std::int32_t>(writer.scalar(leaf).width) - writer.scalar(leaf).fraction);
    }
    const auto carry = static_cast<std::int32_t>(std::bit_width(in.size()));
    return {static_cast<std::uint32_t>(std::max(whole + fraction, 0) + carry + 1), fraction, true, false};
}

namespace {

std::vector<Operand> pairs(const BlockWriter &writer, std::initializer_list<std::pair<Leaf, Leaf>> products,
                           bool minus) {
    std::vector<Operand> operands;
    for (const auto &[a, b] : products) {
        operands.push_back(writer.raw(a));
        operands.push_back(writer.raw(b));
    }
    if (minus) {
        operands[2].isNegated = true;
    }
    return operands;
}

} // namespace

void emitProductPart(BlockWriter &writer, Leaf out, const Factor &a, const Factor &b, std::uint32_t part) {
    const std::int32_t fraction = writer.scalar(a.re).fraction + writer.scalar(b.re).fraction;
    const std::int32_t drop = fraction - writer.scalar(out).fraction;
    if (part == 0 && a.im && b.im) {
        writer.emit(out, drop, pairs(writer, {{a.re, b.re}, {*a.im, *b.im}}, true), productSumKernel);
    } else if (part == 0) {
        writer.emit(out, drop, pairs(writer, {{a.re, b.re}}, false), productSumKernel);
    } else if (a.im && b.im) {
        writer.emit(out, drop, pairs(writer, {{a.re, *b.im}, {*a.im, b.re}}, false), productSumKernel);
    } else if (a.im) {
        writer.emit(out, drop, pairs(writer, {{*a.im, b.re}}, false), productSumKernel);
    } else if (b.im) {
        writer.emit(out, drop, pairs(writer, {{a.re, *b.im}}, false), productSumKernel);
    } else {
        writer.setConstant(out, 0);
    }
}

} // namespace orvo::sim
