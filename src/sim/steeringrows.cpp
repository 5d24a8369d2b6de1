// Blocks that steer signals: shifts by a signal, decoders, demultiplexers, markers of channels.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/statekernels.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

/// Value times two to plus or minus the shift, brought to the output's type.
template <bool left> void writeBarrel(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const Signal shift = fixedInput(writer, A_BARREL_PORT_SHIFT, "the shift");
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf value = partOrZero(writer, in[0], lane, part);
            const std::int32_t drop = writer.scalar(value).fraction - writer.scalar(leaf).fraction;
            writer.emit(leaf, drop, {writer.raw(value), writer.raw(*leafAt(shift, lane))}, barrelKernel, left ? 1 : 0);
        });
    }
}

/// The input shifted left by the number of its leading zeros, and that number.
void writeNormalise(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const Signal out = writer.out();
    const Signal count = writer.out(A_PRIM_WIRE_AUX);
    for (const Signal &result : {out, count}) {
        if (result.known()) {
            forEachScalar(result, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
                writer.emit(leaf, 0, {writer.raw(partOrZero(writer, in[0], lane, part))}, normaliseKernel,
                            result.first == out.first && out.known() ? 0 : 1);
            });
        }
    }
}

/// The bits of a select as a number without a sign.
Leaf pattern(BlockWriter &writer, Leaf select) {
    const ScalarType type = writer.scalar(select);
    if (!type.isSigned) {
        return select;
    }
    const Leaf bits = writer.temporary({type.width, type.fraction, false, false});
    writer.emit(bits, 0, {writer.raw(select)}, sumKernel);
    return bits;
}

void writeDecode(BlockWriter &writer) {
    const Signal address = fixedInput(writer, A_DECODE_PORT_ADDR, "the address");
    const Signal enable = writer.in(A_DECODE_PORT_WREN);
    const ValueRef value = writer.param(A_DECODE_ADDRESS);
    const auto matchAt = [&](std::uint32_t lane) {
        const bool isRolled = rolledLayers(value) != 0;
        const Signal wanted = constantSignal(writer, isRolled ? settingOfLane(value, *address.type, lane) : value);
        const Leaf bit = writer.temporary({1, 0, false, false});
        emitCompare(writer, bit, pattern(writer, *leafAt(address, lane)), wanted.first, Relation::Equal);
        return bit;
    };
    if (const Signal match = writer.out(A_DECODE_WIRE_MATCH); match.known()) {
        forEachScalar(match,
                      [&](std::uint32_t lane, std::uint32_t, Leaf leaf) { writer.convert(leaf, matchAt(lane)); });
    }
    if (const Signal gated = writer.out(A_DECODE_WIRE_WREN); gated.known()) {
        requireFixed(writer, enable, "the write enable");
        forEachScalar(gated, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            writer.emit(leaf, 0, {writer.raw(matchAt(lane)), writer.raw(truth(writer, *leafAt(enable, lane)))},
                        [](const Op &op) { return logicKernel(op, Logic::And); });
        });
    }
}

/// Output c holds the last data that came with valid and channel c, seen in the same cycle.
void writeDemux(BlockWriter &writer) {
    const Signal data = writer.in(A_DEMUX_PORT_DATA);
    const Signal valid = fixedInput(writer, A_PORT_VALID, "valid");
    const Signal channel = fixedInput(writer, A_PORT_CHANNEL, "the channel");
    require(writer, data);
    const std::int64_t channels = writer.integer(A_DEMUX_CHANNEL_COUNT, 0);
    if (channels < 1) {
        writer.fail("'" + std::string(A_DEMUX_CHANNEL_COUNT.text()) + "' is no number of channels");
    }
    const Leaf selected = pattern(writer, channel.first);
    // Of a vector, outputs are numbered through: those of a lane stand side by side.
    std::int64_t lanes = 1;
    for (const std::uint32_t length : data.type->dims) {
        lanes *= length;
    }
    const std::uint32_t element = data.type->leaves / static_cast<std::uint32_t>(lanes);
    for (std::int64_t number = 0; number < channels * lanes; ++number) {
        const Signal out = writer.out(static_cast<int>(number));
        if (!out.known()) {
            continue;
        }
        std::vector<ScalarType> types;
        appendScalars(*out.type, types);
        const Leaf first = data.first + static_cast<std::uint32_t>(number / channels) * element;
        for (std::uint32_t i = 0; i < std::max(element, out.type->leaves); ++i) {
            if (element != out.type->leaves || !(writer.scalar(first + i) == types[i])) {
                writer.fail("an output has another type than the data");
            }
        }
        const Leaf own = writer.temporary({32, 0, false, false});
        writer.setConstant(own, static_cast<std::uint64_t>(number % channels));
        const Leaf isOwn = writer.temporary({1, 0, false, false});
        const Leaf takes = writer.temporary({1, 0, false, false});
        emitCompare(writer, isOwn, selected, own, Relation::Equal);
        writer.emit(takes, 0, {writer.raw(isOwn), writer.raw(truth(writer, valid.first))},
                    [](const Op &op) { return logicKernel(op, Logic::And); });
        for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
            const Leaf leaf = out.first + i;
            const std::uint32_t each = wordsFor(writer.scalar(leaf).width);
            const std::uint32_t state = writer.state(each);
            const Leaf held = writer.temporary(writer.scalar(leaf));
            writer.emitFromState(held, state, each, {}, readState);
            emitMux(writer, leaf, takes, {held, first + i});
            writer.commit(state, each, {writer.raw(leaf)}, writeState);
        }
    }
}

/// Valid, channel and packet begin to the wires of their kinds, all else by name.
void writeChannel(BlockWriter &writer) {
    const std::pair<const StaticString *, const StaticString *> markers[] = {
        {&A_PORT_VALID, &A_WIRE_VALID},
        {&A_PORT_CHANNEL, &A_WIRE_CHANNEL},
        {&A_PORT_PACKET_BEGIN, &A_WIRE_PACKET_BEGIN}};
    for (const auto &[port, wire] : markers) {
        const Signal in = writer.in(*port);
        const Signal out = writer.out(*wire);
        if (in.known() && out.known()) {
            convertSignal(writer, out, in);
        }
    }
    for (const Port &port : writer.block().ports()) {
        if (const Signal out = writer.out(port.getName()); out.known()) {
            convertSignal(writer, out, writer.in(port.getName()));
        }
    }
}

const BlockRow kRows[] = {
    {&A_BARREL_LEFT_BLOCK, writeBarrel<true>},
    {&A_BARREL_RIGHT_BLOCK, writeBarrel<false>},
    {&A_BARREL_RIGHT_LZC_BLOCK, writeNormalise},
    {&A_DECODE_BLOCK, writeDecode},
    {&A_DEMUX_BLOCK, writeDemux},
    {&A_CHANNEL_IN_BLOCK, writeChannel},
    {&A_CHANNEL_OUT_BLOCK, writeChannel},
};

} // namespace

std::span<const BlockRow> steeringRows() { return kRows; }

} // namespace orvo::sim
