// Blocks that only join wires, as Verilog.
#include "support/verilogwriter.h"

#include <orvo/wire.h>

namespace orvo::test {

namespace {

void join(VerilogBlock &block, const NetSignal &out, const NetSignal &in) {
    forEachNet(out, [&](int lane, int part, const Net &net) {
        if (const Net *source = in.at(lane, part)) {
            block.text.drive(net, *source);
        }
    });
}

/// The input to every wire.
void writeFanout(VerilogBlock &block) {
    const NetSignal in = block.need(block.block().ports().begin()->getName());
    for (const Wire &wire : block.block()) {
        join(block, block.out(wire.getName()), in);
    }
}

/// Each port to the wire of its name.
void writeByName(VerilogBlock &block) {
    for (const Port &port : block.block().ports()) {
        join(block, block.out(port.getName()), block.need(port.getName()));
    }
}

void writeTypePin(VerilogBlock &block) {
    writeByName(block);
    join(block, block.out(), block.need(block.block().ports().begin()->getName()));
}

/// Valid, channel and packet begin go to the wires of their kinds.
void writeChannel(VerilogBlock &block) {
    const std::pair<const StaticString *, const StaticString *> markers[] = {
        {&A_PORT_VALID, &A_WIRE_VALID},
        {&A_PORT_CHANNEL, &A_WIRE_CHANNEL},
        {&A_PORT_PACKET_BEGIN, &A_WIRE_PACKET_BEGIN}};
    for (const auto &[port, wire] : markers) {
        if (block.in(*port).known()) {
            join(block, block.out(*wire), block.in(*port));
        }
    }
    writeByName(block);
}

/// The scalars of all inputs side by side.
void writeSideBySide(VerilogBlock &block, const NetSignal &out) {
    std::size_t at = 0;
    for (const NetSignal &part : block.numbered()) {
        for (const Net &net : part.nets) {
            block.text.drive(out.nets.at(at++), net);
        }
    }
}

void writeVectorPack(VerilogBlock &block) { writeSideBySide(block, block.out(A_VPACK_WIRE_OUT)); }
void writeConcatenation(VerilogBlock &block) { writeSideBySide(block, block.out()); }

/// The scalars of the input, in order, to the numbered wires.
void writeVectorUnpack(VerilogBlock &block) {
    const NetSignal in = block.need(A_VUNPACK_PORT_IN);
    const std::size_t each = in.nets.size() / static_cast<std::size_t>(in.dims.at(0));
    for (int i = 0; i < in.dims.at(0); ++i) {
        const NetSignal out = block.out(i);
        for (std::size_t j = 0; j < out.nets.size(); ++j) {
            block.text.drive(out.nets[j], in.nets.at(static_cast<std::size_t>(i) * each + j));
        }
    }
}

void writeComplexPack(VerilogBlock &block) {
    const NetSignal parts[] = {block.need(A_CPACK_PORT_REAL), block.need(A_CPACK_PORT_IMAG)};
    forEachNet(block.out(A_CPACK_WIRE_OUT),
               [&](int lane, int part, const Net &net) { block.text.drive(net, *parts[part].at(lane)); });
}

void writeComplexUnpack(VerilogBlock &block) {
    const NetSignal in = block.need(A_CUNPACK_PORT_IN);
    const NetSignal parts[] = {block.out(A_CUNPACK_WIRE_REAL), block.out(A_CUNPACK_WIRE_IMAG)};
    for (int part = 0; part < 2; ++part) {
        forEachNet(parts[part], [&](int lane, int, const Net &net) { block.text.drive(net, *in.at(lane, part)); });
    }
}

const VerilogRow kRows[] = {
    {&A_TERMINAL_BLOCK, writeFanout},       {&A_FANOUT_BLOCK, writeFanout},
    {&A_PIPE_BLOCK, writeTypePin},          {&A_FOLDING_KERNEL_BOUNDARY_BLOCK, writeFanout},
    {&A_TYPE_PIN_BLOCK, writeTypePin},      {&A_SIGNAL_IN_BLOCK, writeByName},
    {&A_SIGNAL_OUT_BLOCK, writeByName},     {&A_UNSCHED_BLOCK, writeByName},
    {&A_BOUNDARY_BLOCK, writeByName},       {&A_CHANNEL_IN_BLOCK, writeChannel},
    {&A_CHANNEL_OUT_BLOCK, writeChannel},   {&A_VPACK_BLOCK, writeVectorPack},
    {&A_VCONCAT_BLOCK, writeConcatenation}, {&A_VUNPACK_BLOCK, writeVectorUnpack},
    {&A_CPACK_BLOCK, writeComplexPack},     {&A_CUNPACK_BLOCK, writeComplexUnpack},
};

} // namespace

std::span<const VerilogRow> wiringVerilog() { return kRows; }

} // namespace orvo::test
