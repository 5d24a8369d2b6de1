// Blocks that make and shape controls: pulses, latches, parities, a counting loop.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/statekernels.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

constexpr ScalarType kBit{1, 0, false, false};
/// Pulses in longer distances are not counted.
constexpr std::int64_t kMostBits = 61;

Leaf differs(BlockWriter &writer, const ScalarType &type, Leaf a, Leaf b) {
    const Leaf out = writer.temporary(type);
    writer.emit(out, 0, {writer.raw(a), writer.raw(b)}, [](const Op &op) { return logicKernel(op, Logic::Xor); });
    return out;
}

/// The raw bits that differ from those of the cycle before.
Leaf edgesOf(BlockWriter &writer, Leaf in) {
    const Stored before = openStore(writer, writer.scalar(in));
    closeStore(writer, before, in);
    return differs(writer, writer.scalar(in), in, before.out);
}

void writeEdgeDetect(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            writer.convert(leaf, edgesOf(writer, partOrZero(writer, in[0], lane, part)));
        });
    }
}

/// The exclusive disjunction of the listed bits.
void writeXorBits(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const TupleValueRef list = tupleVR(writer.param(A_XOR_BITS_BITLIST));
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (!list) {
        writer.fail("the list of bits is no tuple");
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        std::vector<Operand> bits;
        const Leaf source = partOrZero(writer, in[0], lane, part);
        for (const ValueRef &element : *list) {
            const NumberValueRef number = numberVR(element);
            if (!number || !number->isInt() || number->toInt() < 0 ||
                static_cast<std::uint32_t>(number->toInt()) >= writer.scalar(source).width) {
                writer.fail("a chosen bit is outside the input");
            }
            const Leaf bit = writer.temporary(kBit);
            writer.emit(bit, number->toInt(), {writer.raw(source)}, sumKernel);
            bits.push_back(writer.raw(bit));
        }
        const Leaf parity = writer.temporary(kBit);
        if (!bits.empty()) {
            writer.emit(parity, 0, bits, [](const Op &op) { return logicKernel(op, Logic::Xor); });
        }
        // The bit as it is, whatever the sign of the output.
        writer.emit(leaf, 0, {writer.raw(parity)}, sumKernel);
    });
}

/// Follows the data while the enable is true, and holds otherwise.
void writeLatch(BlockWriter &writer) {
    const Signal data = writer.in(A_LATCH_0L_PORT_D);
    const Signal enable = fixedInput(writer, A_LATCH_0L_PORT_E, "the enable");
    const Signal out = writer.out();
    require(writer, data);
    if (!out.known()) {
        return;
    }
    if (out.type->isRecord() && data.type != out.type) {
        writer.fail("the output has another type than the data");
    }
    for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
        const std::uint32_t lane = i / out.type->element;
        const std::uint32_t part = i % out.type->element;
        const Leaf leaf = out.first + i;
        const Leaf source = out.type->isRecord() ? data.first + i : partOrZero(writer, data, lane, part);
        const Stored held = openStore(writer, writer.scalar(leaf));
        const Leaf control = *leafAt(enable, out.type->isRecord() ? 0 : lane);
        emitMux(writer, leaf, truth(writer, control), {held.out, converted(writer, writer.scalar(leaf), source)});
        closeStore(writer, held, leaf);
    }
}

/// The control at the valid port, or at port 0.
Leaf pulseInput(BlockWriter &writer) {
    Signal in = writer.in(A_FFTBLOCK_PORT_VALID);
    in = in.known() ? in : writer.in(0);
    requireFixed(writer, in, "the pulse");
    return truth(writer, in.first);
}

std::int64_t pulseBits(const BlockWriter &writer) {
    const std::int64_t bits = writer.integer(A_FFTBLOCK_N, writer.integer(A_FFTBLOCK_STAGES_AFTER, -1));
    if (bits < 0 || bits > kMostBits) {
        writer.fail("the logarithm of the size is no number of bits");
    }
    return bits;
}

void givePulse(BlockWriter &writer, Leaf pulse) {
    for (const Signal &out : {writer.out(A_FFTBLOCK_WIRE_VALID), writer.out()}) {
        if (out.known()) {
            forEachScalar(out, [&](std::uint32_t, std::uint32_t, Leaf leaf) { writer.convert(leaf, pulse); });
        }
    }
}

/// Pulses with each valid sample that completes two to the bits.
void writePulseDivider(BlockWriter &writer) {
    const std::int64_t bits = pulseBits(writer);
    const Leaf valid = pulseInput(writer);
    const Leaf count = writer.temporary({static_cast<std::uint32_t>(bits) + 1, 0, false, false});
    const std::uint32_t state = writer.state(4);
    writer.setInitial(state + 1, std::uint64_t{2} << bits);
    writer.setInitial(state + 2, 1);
    writer.emitFromState(count, state, 4, {writer.raw(valid)}, readCounter);
    writer.commit(state, 4, {writer.raw(valid)}, writeCounter);
    // The bit above turns when a group is complete.
    const Leaf turning = writer.temporary(kBit);
    writer.emit(turning, static_cast<std::int32_t>(bits), {writer.raw(count)}, sumKernel);
    givePulse(writer, edgesOf(writer, turning));
}

/// Stretches a pulse to two to the bits cycles, its own the first. Another pulse begins anew.
void writePulseMultiplier(BlockWriter &writer) {
    const std::int64_t bits = pulseBits(writer);
    const Leaf pulse = pulseInput(writer);
    const ScalarType type{static_cast<std::uint32_t>(bits) + 1, 0, false, false};
    const Stored count = openStore(writer, type);
    const Stored runs = openStore(writer, kBit);
    const Leaf full = writer.temporary(type);
    writer.setConstant(full, std::uint64_t{1} << bits);
    // From the upper half of its range the count runs up until it wraps to zero.
    const Leaf next = writer.temporary(type);
    emitSum(writer, next, {count.out, runs.out}, {false, false});
    const Leaf now = chosen(writer, type, pulse, {next, full});
    const Leaf out = writer.temporary(kBit);
    writer.emit(out, static_cast<std::int32_t>(bits), {writer.raw(now)}, sumKernel);
    closeStore(writer, count, now);
    closeStore(writer, runs, out);
    givePulse(writer, out);
}

Leaf isLess(BlockWriter &writer, Leaf a, Leaf b) {
    const Leaf bit = writer.temporary(kBit);
    emitCompare(writer, bit, a, b, Relation::Less);
    return bit;
}

Leaf negation(BlockWriter &writer, Leaf bit) { return emitBit(writer, Logic::And, {bit}, true); }

/// A value that is sampled while the control is true, in the same cycle already.
Leaf sampled(BlockWriter &writer, const ScalarType &type, Leaf control, Leaf value) {
    const Stored held = openStore(writer, type);
    const Leaf now = chosen(writer, type, control, {held.out, value});
    closeStore(writer, held, now);
    return now;
}

/// One counter from an initial value in steps while it is below a limit. Go samples all three and starts the count in
/// that cycle, each enabled cycle steps it, and a stop ends it at once.
void writeForLoop(BlockWriter &writer) {
    const Signal go = fixedInput(writer, A_LOOP_PORT_GO, "go");
    const Signal initial = fixedInput(writer, NumberValue::get(0, writer.context()), "the initial count");
    const Signal step = fixedInput(writer, NumberValue::get(1, writer.context()), "the step");
    const Signal limit = fixedInput(writer, A_LOOP_PORT_LIMIT, "the limit");
    const Signal enable = writer.in(A_LOOP_PORT_ENABLE);
    const Signal stop = writer.in(2);
    const Signal count = writer.out(A_FOR_LOOP_WIRE_COUNT);
    const Signal valid = writer.out(A_LOOP_WIRE_VALID);
    const Signal first = writer.out(A_LOOP_WIRE_FIRST_ITER);
    const Signal last = writer.out(A_LOOP_WIRE_LAST_ITER);
    std::uint32_t lanes = 1;
    for (const Signal &out : {count, valid, first, last}) {
        lanes = std::max(lanes, out.known() ? out.type->lanes() : 1);
    }
    for (std::uint32_t lane = 0; lane < lanes; ++lane) {
        const Leaf starts = truth(writer, *leafAt(go, lane));
        const Leaf from = *leafAt(initial, lane);
        const ScalarType type = sumType(writer, {from, *leafAt(step, lane), *leafAt(limit, lane)});
        const Leaf steps = sampled(writer, type, starts, *leafAt(step, lane));
        const Leaf end = sampled(writer, type, starts, *leafAt(limit, lane));
        const Stored held = openStore(writer, type);
        const Stored running = openStore(writer, kBit);
        const Stored isFirst = openStore(writer, kBit);
        const Leaf now = chosen(writer, type, starts, {held.out, from});
        Leaf runs = chosen(writer, kBit, starts, {running.out, isLess(writer, from, end)});
        if (stop.known()) {
            runs = emitBit(writer, Logic::And, {runs, negation(writer, truth(writer, *leafAt(stop, lane)))});
        }
        const Leaf next = writer.temporary(type);
        emitSum(writer, next, {now, steps}, {false, false});
        const Leaf goesOn = isLess(writer, next, end);
        const Leaf moves = enable.known() ? truth(writer, *leafAt(enable, lane)) : one(writer);
        const Leaf begins = emitBit(writer, Logic::Or, {starts, isFirst.out});
        const Leaf stands = negation(writer, moves);
        closeStore(writer, held, chosen(writer, type, moves, {now, next}));
        closeStore(writer, running, emitBit(writer, Logic::And, {runs, emitBit(writer, Logic::Or, {stands, goesOn})}));
        closeStore(writer, isFirst, emitBit(writer, Logic::And, {begins, stands}));
        const auto give = [&](const Signal &out, Leaf value) {
            if (out.known() && lane < out.type->lanes()) {
                emitMux(writer, *leafAt(out, lane), runs, {zero(writer), value});
            }
        };
        give(count, now);
        give(valid, one(writer));
        give(first, begins);
        give(last, negation(writer, goesOn));
    }
}

const BlockRow kRows[] = {
    {&A_EDGE_DETECT_BLOCK, writeEdgeDetect},
    {&A_XOR_BITS_BLOCK, writeXorBits},
    {&A_LATCH_0L_BLOCK, writeLatch},
    {&A_PULSE_DIVIDER_BLOCK, writePulseDivider},
    {&A_PULSE_MULTIPLIER_BLOCK, writePulseMultiplier},
    {&A_FOR_LOOP_BLOCK, writeForLoop},
};

} // namespace

std::span<const BlockRow> pulseRows() { return kRows; }

} // namespace orvo::sim
