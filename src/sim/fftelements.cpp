// Counters, pulses, butterflies, angles, factors, reorderings.
#include "sim/fftelements.h"

#include <algorithm>

namespace orvo::sim {

namespace {

std::int64_t powerOfTwo(int bits) { return std::int64_t{1} << bits; }

/// Frames beyond this have no meaning here.
void requireBits(Expansion &e, int bits, int least) {
    if (bits < least || bits > 40) {
        e.writer().fail("a size of two to the " + std::to_string(bits) + " has no meaning in it");
    }
}

/// By the size in the address, the step that reaches two to the `bits` after a frame; none while `moves` is false.
Leaf frameStep(Expansion &e, Leaf size, Leaf moves, int bits) {
    const int sizeBits = std::max(internal::bitsToCount(bits + 1), 1);
    std::vector<std::uint64_t> steps(std::size_t{2} << sizeBits, 0);
    for (std::size_t k = 0; k < steps.size() / 2; ++k) {
        steps[steps.size() / 2 + k] = std::uint64_t{1} << std::max(bits - static_cast<int>(k), 0);
    }
    return e.table(e.joined({e.sized(size, sizeBits), moves}), steps, bits + 1);
}

} // namespace

Leaf pulseDivider(Expansion &e, Leaf valid, int bits) {
    requireBits(e, bits, 0);
    // The bit above turns with the last sample of each group.
    const Leaf turning = e.field(e.counter(valid, 0, powerOfTwo(bits + 1)), bits, 1);
    return e.differ(turning, e.delayed(turning, 1));
}

Leaf pulseMultiplier(Expansion &e, Leaf pulse, int bits) {
    requireBits(e, bits, 0);
    const int width = bits + 1;
    const DelayLine count = e.openDelay({static_cast<std::uint32_t>(width), 0, false, false}, 1);
    const DelayLine runs = e.openDelay({1, 0, false, false}, 1);
    const Leaf full = e.number(static_cast<std::uint32_t>(width), std::uint64_t{1} << bits);
    const Leaf now = e.choose(pulse, {e.add(count.out, runs.out, width), full});
    const Leaf out = e.field(now, bits, 1);
    e.closeDelay(count, now);
    e.closeDelay(runs, out);
    return out;
}

Leaf delayedValid(Expansion &e, Leaf valid, int bits) {
    return pulseMultiplier(e, e.delayed(pulseDivider(e, valid, bits), 1), bits);
}

Leaf variableDivider(Expansion &e, Leaf valid, Leaf size, int bits) {
    requireBits(e, bits, 1);
    const DelayLine sum = e.openDelay({static_cast<std::uint32_t>(bits), 0, false, false}, 1);
    const Leaf now = e.add(sum.out, frameStep(e, size, valid, bits), bits + 1);
    e.closeDelay(sum, e.field(now, 0, bits));
    return e.field(now, bits, 1);
}

Leaf variableMultiplier(Expansion &e, Leaf pulse, Leaf size, int bits) {
    requireBits(e, bits, 1);
    const int width = bits + 1;
    const DelayLine sum = e.openDelay({static_cast<std::uint32_t>(width), 0, false, false}, 1);
    const DelayLine runs = e.openDelay({1, 0, false, false}, 1);
    const Leaf full = e.number(static_cast<std::uint32_t>(width), std::uint64_t{1} << bits);
    const Leaf now = e.choose(pulse, {e.add(sum.out, frameStep(e, size, runs.out, bits), width), full});
    const Leaf out = e.field(now, bits, 1);
    e.closeDelay(sum, now);
    e.closeDelay(runs, out);
    return out;
}

Leaf accessAddress(Expansion &e, Leaf valid, Leaf size, Leaf reverse, int bits) {
    requireBits(e, bits, 1);
    const int sizeBits = std::max(internal::bitsToCount(bits + 1), 1);
    std::vector<std::uint64_t> shifts(std::size_t{1} << sizeBits);
    for (int k = 0; k < 1 << sizeBits; ++k) {
        shifts[static_cast<std::size_t>(k)] = static_cast<std::uint64_t>(std::max(bits - k, 0));
    }
    const DelayLine sum = e.openDelay({static_cast<std::uint32_t>(bits), 0, false, false}, 1);
    e.closeDelay(sum, e.add(sum.out, frameStep(e, size, valid, bits), bits));
    const Leaf natural = e.shiftedRight(sum.out, e.table(e.sized(size, sizeBits), shifts, sizeBits));
    return e.choose(reverse, {natural, e.reversed(sum.out)});
}

Leaf twiddleCounter(Expansion &e, Leaf valid, Leaf drop, const TwiddleCounterShape &shape) {
    const int bits = shape.during + shape.after;
    requireBits(e, bits, 1);
    const auto dropBits = static_cast<int>(e.writer().scalar(drop).width);
    if (dropBits > 16) {
        e.writer().fail("the number of dropped stages is wider than 16 bits");
    }
    std::vector<std::uint64_t> shifts;
    std::vector<std::uint64_t> steps(std::size_t{1} << dropBits, 0);
    for (int k = 0; k < 1 << dropBits; ++k) {
        // Of a frame of fewer bits than lie below the twiddle only the first factor remains.
        const int shift = std::clamp(k - shape.before, 0, bits);
        shifts.push_back(static_cast<std::uint64_t>(shift));
        steps.push_back(std::uint64_t{1} << shift);
    }
    const DelayLine sum = e.openDelay({static_cast<std::uint32_t>(bits), 0, false, false}, 1);
    const Leaf step = e.table(e.joined({drop, valid}), steps, bits + 1);
    e.closeDelay(sum, e.add(sum.out, step, bits));
    const int shiftBits = std::max(internal::bitsToCount(bits + 1), 1);
    return e.shiftedRight(sum.out, e.table(drop, shifts, shiftBits));
}

Leaf stageDropped(Expansion &e, Leaf drop, int stage) {
    const auto width = static_cast<std::uint32_t>(std::max(internal::bitsToCount(std::int64_t{stage} + 1), 1));
    return e.isLess(e.number(width, static_cast<std::uint64_t>(stage)), drop);
}

Signal butterfly(Expansion &e, const Signal &data, Leaf subtract, int bits, const NumTypeSpec &type) {
    const bool isFloat = data.type->scalar.isFloat;
    const bool isShort = isFloat ? bits <= 10 : bits < 2;
    return isShort ? shortButterfly(e, data, subtract, bits, type) : longButterfly(e, data, subtract, bits, type);
}

Signal shortButterfly(Expansion &e, const Signal &data, Leaf subtract, int bits, const NumTypeSpec &type) {
    requireBits(e, bits, 1);
    const std::int64_t length = powerOfTwo(bits - 1);
    const Signal once = e.delayed(data, length);
    const Signal twice = e.delayed(once, length);
    const Signal first = e.choose(subtract, twice, data, data.type->spec);
    const Signal out = e.fresh(type);
    NumTypeSpec exact = type;
    if (exact.isFixed()) {
        exact = NumTypeSpec::typeOp(NumTypeSpec::typeOp(data.type->spec, data.type->spec, TYPE_OP_ADD),
                                    NumTypeSpec::typeOp(data.type->spec, data.type->spec, TYPE_OP_SUB), TYPE_OP_UNION);
    }
    for (std::uint32_t i = 0; i < data.type->leaves; ++i) {
        const ScalarType scalar = e.writer().types().of(PureValueRef(exact.toValue(e.writer().context())))->scalar;
        const Leaf sum = e.writer().temporary(scalar);
        const Leaf difference = e.writer().temporary(scalar);
        e.addInto(sum, first.first + i, once.first + i);
        e.subtractInto(difference, first.first + i, once.first + i);
        e.chooseInto(out.first + i, subtract, {difference, sum});
    }
    return out;
}

Signal longButterfly(Expansion &e, const Signal &data, Leaf subtract, int bits, const NumTypeSpec &type) {
    requireBits(e, bits, 1);
    const std::int64_t length = powerOfTwo(bits - 1);
    const Signal in = e.converted(data, type);
    const Signal out = e.fresh(type);
    for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
        const ScalarType scalar = e.writer().scalar(out.first + i);
        const DelayLine line = e.openDelay(scalar, length);
        const Leaf sum = e.writer().temporary(scalar);
        const Leaf difference = e.writer().temporary(scalar);
        e.addInto(sum, line.out, in.first + i);
        e.subtractInto(difference, line.out, in.first + i);
        e.chooseInto(out.first + i, subtract, {line.out, sum});
        e.closeDelay(line, e.choose(subtract, {in.first + i, difference}));
    }
    return out;
}

Signal quarterTurn(Expansion &e, const Signal &data, Leaf rotate, Leaf inverse, const NumTypeSpec &type) {
    const Signal in = e.complexed(data);
    const Signal out = e.fresh(type);
    for (std::uint32_t lane = 0; lane < out.type->lanes(); ++lane) {
        const Leaf re = *leafAt(in, lane, 0);
        const Leaf im = *leafAt(in, lane, 1);
        const ScalarType scalar = e.writer().scalar(re);
        const Leaf minusRe = e.writer().temporary(scalar);
        const Leaf minusIm = e.writer().temporary(scalar);
        e.negateInto(minusRe, re);
        e.negateInto(minusIm, im);
        e.chooseInto(*leafAt(out, lane, 0), rotate, {re, e.choose(inverse, {im, minusIm})});
        e.chooseInto(*leafAt(out, lane, 1), rotate, {im, e.choose(inverse, {minusRe, re})});
    }
    return out;
}

Leaf twiddleAngle(Expansion &e, Leaf count, int below, int pivot, int index) {
    if (below == 0 || pivot == 1 || index != 1) {
        return accumulatedAngle(e, count, below, pivot, index);
    }
    const Leaf turned = e.reversed(e.field(count, below + index, pivot));
    return e.choose(e.field(count, below, 1),
                    {e.number(static_cast<std::uint32_t>(pivot + index), 0), e.sized(turned, pivot + index)});
}

Leaf accumulatedAngle(Expansion &e, Leaf count, int below, int pivot, int index) {
    const int bits = pivot + index;
    const auto width = static_cast<std::uint32_t>(bits);
    const Leaf none = e.number(width, 0);
    Leaf increment = e.sized(e.reversed(e.field(count, below + index, pivot)), bits);
    Leaf starts = e.isZero(e.field(count, below, index));
    if (below > 0) {
        const Leaf first = e.isZero(e.field(count, 0, below));
        starts = e.allOf({starts, first});
        increment = e.choose(first, {none, increment});
    }
    const DelayLine angle = e.openDelay({width, 0, false, false}, 1);
    const Leaf now = e.choose(starts, {e.add(angle.out, increment, bits), none});
    e.closeDelay(angle, now);
    return now;
}

Signal twiddleFactor(Expansion &e, Leaf angle, Leaf read, int bits, bool isInverse, const NumTypeSpec &type) {
    if (bits < 3 || bits > 26) {
        e.writer().fail("a table for an angle of " + std::to_string(bits) + " bits has no meaning in it");
    }
    NumTypeSpec complex = type;
    complex.setComplex(true);
    const Signal out = e.fresh(complex);
    const ScalarType scalar = e.writer().scalar(out.first);
    std::vector<double> cosines;
    for (std::int64_t k = 0; k < powerOfTwo(bits - 2); ++k) {
        cosines.push_back(internal::unitRoot(k, powerOfTwo(bits)).re);
    }
    const Leaf oddQuadrant = e.field(angle, bits - 2, 1);
    const Leaf upperQuadrant = e.field(angle, bits - 1, 1);
    const Leaf low = e.field(angle, 0, bits - 2);
    const Leaf cosine = e.latched(read, e.realTable(low, cosines, scalar));
    // The sine is the cosine read backwards; its zero has no entry.
    const Leaf backwards = e.latched(read, e.realTable(e.negated(low), cosines, scalar));
    const Leaf sine = e.choose(e.isZero(low), {backwards, e.writer().temporary(scalar)});
    const Leaf parts[2] = {e.choose(oddQuadrant, {cosine, sine}), e.choose(oddQuadrant, {sine, cosine})};
    const Leaf signs[2] = {e.differ(oddQuadrant, upperQuadrant),
                           isInverse ? e.differ(upperQuadrant, zero(e.writer())) : e.opposite(upperQuadrant)};
    for (std::uint32_t part = 0; part < 2; ++part) {
        const Leaf minus = e.writer().temporary(scalar);
        e.negateInto(minus, parts[part]);
        e.chooseInto(out.first + part, signs[part], {parts[part], minus});
    }
    return out;
}

Leaf transposeAddress(Expansion &e, Leaf state, Leaf count, const std::vector<internal::Permutation> &group) {
    if (group.size() == 1) {
        return count;
    }
    std::vector<Leaf> addresses;
    addresses.reserve(group.size());
    for (const internal::Permutation &permutation : group) {
        addresses.push_back(e.gathered(count, permutation));
    }
    return e.choose(state, addresses);
}

Reordered transposed(Expansion &e, Leaf valid, const Signal &data, const internal::Permutation &permutation) {
    const auto bits = static_cast<int>(permutation.size());
    if (!internal::isPermutation(permutation) || bits < 1 || bits > 30) {
        e.writer().fail("the permutation is none of bits of an address");
    }
    const std::vector<internal::Permutation> group = internal::permutationGroup(permutation);
    const auto states = static_cast<std::int64_t>(group.size());
    const std::int64_t frame = powerOfTwo(bits);
    const int stateBits = internal::bitsToCount(states);
    const auto addressOf = [&](Leaf count) {
        const Leaf state = stateBits == 0 ? zero(e.writer()) : e.field(count, bits, stateBits);
        return transposeAddress(e, state, e.field(count, 0, bits), group);
    };
    const Leaf written = addressOf(e.counter(valid, -1, states * frame));
    const Leaf gate = pulseDivider(e, valid, bits);
    const Leaf outValid = pulseMultiplier(e, gate, bits);
    // A frame is read in the order in which the next one is written into the places that become free.
    const Leaf read = addressOf(e.counter(outValid, frame - 1, states * frame));
    return {gate, outValid, e.memory(data, valid, written, read, bits)};
}

VariablyReordered variablyReversed(Expansion &e, Leaf valid, Leaf size, const Signal &data, int bits) {
    if (bits > 30) {
        e.writer().fail("a frame of two to the " + std::to_string(bits) + " samples has no meaning in it");
    }
    const Leaf gate = variableDivider(e, valid, size, bits);
    const Leaf outSize = e.latched(gate, size);
    const Leaf outValid = variableMultiplier(e, gate, outSize, bits);
    // Frames are written in natural and in reversed order in turn, and read in the other one.
    const Leaf order = e.counter(gate, 0, 2);
    const Leaf written = accessAddress(e, valid, size, e.delayed(order, 1), bits);
    const Leaf read = accessAddress(e, outValid, outSize, order, bits);
    return {gate, outValid, outSize, e.memory(data, valid, written, read, bits)};
}

} // namespace orvo::sim
