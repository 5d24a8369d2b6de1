// Radix-2 stages with one delay each (He and Torkelson, "A new approach to pipeline FFT processor", 1996), in pairs
// that need no multiplier between them, and twiddles between the pairs.
#include "sim/fftstages.h"

#include <algorithm>

namespace orvo::sim {

namespace {

NumTypeSpec complexOf(NumTypeSpec type) {
    type.setComplex(true);
    return type;
}

/// Counts the samples of the frame that lies below and at these bits.
Leaf sampleCounter(Expansion &e, Leaf valid, int bits) { return e.counter(valid, -1, std::int64_t{1} << bits); }

} // namespace

SampleStream radix2Stage(Expansion &e, const SampleStream &in, const StageShape &shape) {
    const int after = shape.after;
    const Leaf subtract = e.allOf({in.valid, e.field(sampleCounter(e, in.valid, after + 1), after, 1)});
    const NumTypeSpec type = internal::grownType(in.data.type->spec, 1, 0);
    return {delayedValid(e, in.valid, after), butterfly(e, in.data, subtract, after + 1, type), in.drop};
}

SampleStream radix4Stage(Expansion &e, const SampleStream &in, const StageShape &shape) {
    const int low = shape.after;
    const int span = shape.inputBitReversed ? low + 1 : low;
    StageShape first = shape;
    first.after = shape.inputBitReversed ? low : low + 1;
    const SampleStream half = radix2Stage(e, in, first);
    const NumTypeSpec grown = complexOf(half.data.type->spec);
    const Leaf count = sampleCounter(e, half.valid, low + 2);
    const Leaf subtract = e.allOf({half.valid, e.field(count, span, 1)});
    const Leaf rotate = e.allOf({half.valid, e.field(count, low, 1), e.field(count, low + 1, 1)});
    const Signal turned = quarterTurn(e, half.data, rotate, e.number(1, shape.isInverse ? 1 : 0), grown);
    const NumTypeSpec type = internal::grownType(grown, 1, 0);
    return {delayedValid(e, half.valid, span), butterfly(e, turned, subtract, span + 1, type), half.drop};
}

SampleStream variableRadix2Stage(Expansion &e, const SampleStream &in, const StageShape &shape) {
    const Leaf dropped = stageDropped(e, in.drop, shape.before);
    // A stage that is left out counts nothing, so that it stands at the start of a frame when it comes back.
    const Leaf valid = e.choose(dropped, {in.valid, e.number(1, 0)});
    const SampleStream stage = radix2Stage(e, {valid, in.data, in.drop}, shape);
    return {e.choose(dropped, {stage.valid, in.valid}), e.choose(dropped, stage.data, in.data, stage.data.type->spec),
            in.drop};
}

SampleStream variableRadix4Stage(Expansion &e, const SampleStream &in, const StageShape &shape) {
    const int low = shape.after;
    StageShape first = shape;
    StageShape second = shape;
    (shape.inputBitReversed ? second : first).after = low + 1;
    (shape.inputBitReversed ? first : second).before = shape.before + 1;
    const SampleStream half = variableRadix2Stage(e, in, first);
    const NumTypeSpec grown = complexOf(half.data.type->spec);
    const Leaf dropped = stageDropped(e, in.drop, shape.before);
    const Leaf valid = e.choose(dropped, {half.valid, e.number(1, 0)});
    const Leaf count = sampleCounter(e, valid, low + 2);
    const Leaf rotate = e.allOf({valid, e.field(count, low, 1), e.field(count, low + 1, 1)});
    const Signal turned = quarterTurn(e, half.data, rotate, e.number(1, shape.isInverse ? 1 : 0), grown);
    return variableRadix2Stage(e, {half.valid, turned, half.drop}, second);
}

Signal rotated(Expansion &e, const Signal &data, const Signal &factors, const internal::TwiddleTypes &types) {
    NumTypeSpec input = types.input.valid() ? types.input : data.type->spec;
    input.stripVectors();
    input.mergeDecors(data.type->spec);
    NumTypeSpec output = types.output;
    output.stripVectors();
    output.mergeDecors(complexOf(input));
    const Signal in = e.cast(data, input, Rounding::HalfEven, Saturation::Asymmetric);
    const NumTypeSpec exact = NumTypeSpec::typeOp(input, factors.type->spec, TYPE_OP_MUL);
    return e.cast(e.product(in, factors, exact), output, Rounding::HalfUp, Saturation::Wrap);
}

namespace {

/// Factors of so many bits are kept whole; those of more are made from a table of a quarter of a turn.
constexpr int kMostTableBits = 8;

Signal wholeTable(Expansion &e, Leaf address, Leaf read, const TwiddleShape &shape, const NumTypeSpec &type) {
    internal::Permutation pivots;
    for (int i = 0; i < 1 << shape.pivot; ++i) {
        pivots.push_back(i);
    }
    const std::int64_t turn = std::int64_t{1} << (shape.pivot + shape.index);
    std::vector<std::pair<double, double>> factors;
    for (const int pivot : internal::bitReversedOrder(pivots)) {
        for (std::int64_t index = 0; index < std::int64_t{1} << shape.index; ++index) {
            const internal::UnitRoot root = internal::unitRoot(shape.isInverse ? index * pivot : -index * pivot, turn);
            factors.emplace_back(root.re, root.im);
        }
    }
    return e.latched(read, e.complexTable(address, factors, type));
}

} // namespace

SampleStream twiddled(Expansion &e, const SampleStream &in, const TwiddleShape &shape) {
    const int bits = shape.pivot + shape.index;
    if (shape.pivot < 1 || shape.index < 1) {
        e.writer().fail("a twiddle in it has no pivot or no index");
    }
    const Leaf count = shape.isVariable ? twiddleCounter(e, in.valid, in.drop, {shape.before, bits, shape.after})
                                        : sampleCounter(e, in.valid, shape.after + bits);
    NumTypeSpec type = complexOf(shape.types.factor);
    type.stripVectors();
    const Signal factors = bits <= kMostTableBits
                               ? wholeTable(e, e.field(count, shape.after, bits), in.valid, shape, type)
                               : twiddleFactor(e, twiddleAngle(e, count, shape.after, shape.pivot, shape.index),
                                               in.valid, bits, shape.isInverse, type);
    return {in.valid, rotated(e, in.data, factors, shape.types), in.drop};
}

SampleStream stageChain(Expansion &e, const SampleStream &in, const ChainShape &shape) {
    if (shape.maxBits < 1 || shape.minBits > shape.maxBits || shape.maxBits > 30) {
        e.writer().fail("a transform of two to the " + std::to_string(shape.maxBits) + " has no meaning here");
    }
    const int below = shape.subchannelBits;
    const std::vector<internal::StagePlanRow> plan = internal::stagePlan(
        shape.inputBitReversed, shape.maxBits, shape.inputBitReversed ? below : 0, shape.inputBitReversed ? 0 : below);
    const int droppable = shape.maxBits - shape.minBits;
    SampleStream stream = in;
    int done = 0;
    for (std::size_t i = 0; i < plan.size(); ++i) {
        const internal::StagePlanRow &row = plan[i];
        const bool isVariable = row.before < droppable;
        if (i % 2 == 0) {
            const StageShape stage{row.before, row.after, shape.isInverse, shape.inputBitReversed};
            const auto draw = row.bits == 1 ? (isVariable ? variableRadix2Stage : radix2Stage)
                                            : (isVariable ? variableRadix4Stage : radix4Stage);
            stream = draw(e, stream, stage);
            done += row.bits;
            continue;
        }
        if (static_cast<std::size_t>(done) > shape.types.size()) {
            e.writer().fail("the types of its twiddles are not told");
        }
        stream = twiddled(e, stream,
                          {row.before, row.after, row.pivot, row.index, shape.isInverse, isVariable,
                           shape.types[static_cast<std::size_t>(done) - 1]});
    }
    return stream;
}

Transformed fixedTransform(Expansion &e, Leaf valid, const Signal &data, const ChainShape &shape, int subchannels) {
    const auto dropBits = static_cast<std::uint32_t>(std::max(internal::bitsToCount(shape.maxBits + 1), 1));
    const Leaf gate = pulseDivider(e, valid, shape.maxBits + shape.subchannelBits);
    const SampleStream stream = stageChain(e, {valid, data, e.number(dropBits, 0)}, shape);
    return {gate, e.delayed(stream.valid, subchannels - 1), e.delayed(stream.data, subchannels - 1)};
}

Transformed variableTransform(Expansion &e, Leaf valid, Leaf size, const Signal &data, const ChainShape &shape,
                              int subchannels) {
    const int bits = shape.maxBits;
    const int sizeBits = std::max(internal::bitsToCount(bits + 1), 1);
    // The first sample of a frame tells its size. Whether a frame runs is state, so that the gate may depend on it.
    const DelayLine runs = e.openDelay({1, 0, false, false}, 1);
    const Leaf begins = e.allOf({valid, e.opposite(runs.out)});
    const Leaf frameSize = e.latched(begins, e.sized(size, sizeBits));
    const auto offset = static_cast<std::uint64_t>(shape.subchannelBits);
    const int sumBits = std::max(sizeBits, internal::bitsToCount(shape.subchannelBits + 1)) + 1;
    const Leaf sum = e.add(frameSize, e.number(static_cast<std::uint32_t>(sumBits), offset), sumBits);
    const Leaf gate = variableDivider(e, valid, sum, bits + shape.subchannelBits);
    e.closeDelay(runs, e.choose(gate, {e.choose(valid, {runs.out, e.number(1, 1)}), e.number(1, 0)}));
    std::vector<std::uint64_t> drops(std::size_t{1} << sizeBits);
    for (int k = 0; k < 1 << sizeBits; ++k) {
        drops[static_cast<std::size_t>(k)] = static_cast<std::uint64_t>(std::max(bits - k, 0));
    }
    const SampleStream stream = stageChain(e, {valid, data, e.table(frameSize, drops, sizeBits)}, shape);
    return {gate, e.delayed(stream.valid, subchannels - 1), e.delayed(stream.data, subchannels - 1)};
}

} // namespace orvo::sim
