// Blocks that only join wires: markers, packs and unpacks, selections of elements. They cost no operation where the
// types agree.
#include "sim/blockrows.h"
#include "sim/kernels.h"
#include "sim/lanes.h"

#include "orvo/pipeinput.h"
#include "orvo/vectorsplit.h"

#include <orvo/corevalues.h>
#include <orvo/wire.h>

#include <numeric>

namespace orvo::sim {

namespace {

/// A real number has no imaginary part: that is zero.
void convertOrClear(BlockWriter &writer, Leaf out, const std::optional<Leaf> &in) {
    if (in) {
        writer.convert(out, *in);
    } else {
        writer.setConstant(out, 0);
    }
}

} // namespace

void convertSignal(BlockWriter &writer, const Signal &out, const Signal &in) {
    require(writer, in);
    if (out.type == in.type) {
        for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
            writer.alias(out.first + i, in.first + i);
        }
        return;
    }
    if (out.type->isRecord() || in.type->isRecord()) {
        writer.fail("records of two types meet");
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        convertOrClear(writer, leaf, leafAt(in, lane, part));
    });
}

void writeByName(BlockWriter &writer) {
    for (const Port &port : writer.block().ports()) {
        if (const Signal out = writer.out(port.getName()); out.known()) {
            convertSignal(writer, out, writer.in(port.getName()));
        }
    }
}

void require(const BlockWriter &writer, const Signal &signal) {
    if (!signal.known()) {
        writer.missing();
    }
}

void requireFixed(const BlockWriter &writer, const Signal &signal, const char *what) {
    require(writer, signal);
    if (signal.type->isRecord() || signal.type->scalar.isFloat) {
        writer.fail(std::string(what) + " is no fixed-point signal");
    }
}

namespace {

/// A run of the scalars of a signal, for the parts that packs and unpacks move whole.
void aliasRun(BlockWriter &writer, const Signal &out, std::uint32_t outAt, const Signal &in, std::uint32_t inAt,
              std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        writer.convert(out.first + outAt + i, in.first + inAt + i);
    }
}

/// The input to every wire.
void writeFanout(BlockWriter &writer) {
    const Block &block = writer.block();
    if (block.port_size() == 0) {
        return;
    }
    const Signal in = writer.in(block.ports().begin()->getName());
    for (const Wire &wire : block) {
        if (const Signal out = writer.out(wire.getName()); out.known()) {
            convertSignal(writer, out, in);
        }
    }
}

/// Each port to the wire of its name, and the first one to the main output. A pin tells a type of what it has, and
/// makes nothing of another shape from it.
void writeTypePin(BlockWriter &writer) {
    const auto write = [&writer](const Signal &out, const Port &port) {
        const Signal in = writer.in(port.getName());
        if (out.known() && in.known() &&
            (out.type->dims != in.type->dims || out.type->isComplex != in.type->isComplex)) {
            writer.fail("its type has other dimensions than the input, or only one of the two is complex");
        }
        if (out.known()) {
            convertSignal(writer, out, in);
        }
    };
    for (const Port &port : writer.block().ports()) {
        write(writer.out(port.getName()), port);
    }
    if (writer.block().port_size() != 0) {
        write(writer.out(), *writer.block().ports().begin());
    }
}

void writePipe(BlockWriter &writer) {
    for (const Wire &wire : writer.block()) {
        const Port *port = internal::pipeInput(writer.block(), wire.getName());
        if (const Signal out = writer.out(wire.getName()); out.known() && port != nullptr) {
            convertSignal(writer, out, writer.in(port->getName()));
        }
    }
}

void writeVectorPack(BlockWriter &writer) {
    const Signal out = writer.out(A_VPACK_WIRE_OUT);
    if (!out.known()) {
        return;
    }
    const std::uint32_t each = out.type->leaves / std::max(out.type->dims.empty() ? 1U : out.type->dims.front(), 1U);
    for (const auto &[number, part] : writer.numberedPorts()) {
        const std::uint64_t at = static_cast<std::uint64_t>(number) * each;
        if (at + each > out.type->leaves) {
            writer.fail("the vector has another length than the pack has inputs");
        }
        if (part.type->leaves != each) {
            writer.fail("an input has another type than the vector's elements");
        }
        aliasRun(writer, out, static_cast<std::uint32_t>(at), part, 0, each);
    }
}

void writeVectorUnpack(BlockWriter &writer) {
    const Signal in = writer.in(A_VUNPACK_PORT_IN);
    require(writer, in);
    for (int i = 0; i < static_cast<int>(in.type->dims.empty() ? 0 : in.type->dims.front()); ++i) {
        if (const Signal out = writer.out(i); out.known()) {
            aliasRun(writer, out, 0, in, static_cast<std::uint32_t>(i) * out.type->leaves, out.type->leaves);
        }
    }
}

/// The elements of the parts side by side, each brought to the type of the output's elements.
void writeConcatenation(BlockWriter &writer) {
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const std::uint32_t length = out.type->dims.empty() ? 1 : out.type->dims.front();
    const std::uint32_t inner = out.type->leaves / (length * out.type->element);
    std::uint32_t at = 0;
    for (const Signal &part : writer.numbered()) {
        const std::uint32_t elements = part.type->dims.empty() ? 1 : part.type->dims.front();
        if (at + elements > length) {
            writer.fail("the inputs are longer than the output");
        }
        if (out.type->isRecord()) {
            const std::uint32_t each = out.type->leaves / length;
            if (part.type->leaves != elements * each) {
                writer.fail("an input has another type than the vector's elements");
            }
            aliasRun(writer, out, at * each, part, 0, part.type->leaves);
        } else {
            const std::uint32_t own = std::max(part.type->lanes() / elements, 1U);
            for (std::uint32_t lane = 0; lane < elements * inner; ++lane) {
                for (std::uint32_t side = 0; side < out.type->element; ++side) {
                    convertOrClear(writer, *leafAt(out, at * inner + lane, side),
                                   leafAt(part, lane / inner * own + lane % inner % own, side));
                }
            }
        }
        at += elements;
    }
}

void writeSplit(BlockWriter &writer) {
    const Signal in = writer.in(0);
    require(writer, in);
    const std::uint32_t length = in.type->dims.empty() ? 0 : in.type->dims.front();
    const std::uint32_t each = length == 0 ? 0 : in.type->leaves / length;
    const internal::VectorSplit split(writer.block(), static_cast<int>(length));
    if (!split.fits()) {
        writer.fail("the parts are longer than the vector");
    }
    for (const Wire &wire : writer.block()) {
        const Signal out = writer.out(wire.getName());
        const std::optional<internal::SplitPart> part = split.partOf(wire);
        if (!out.known()) {
            continue;
        }
        if (!part || out.type->leaves != static_cast<std::uint64_t>(part->length) * each) {
            writer.fail("a part has another length than its share of the vector");
        }
        aliasRun(writer, out, 0, in, static_cast<std::uint32_t>(part->first) * each, out.type->leaves);
    }
}

void writeVectorSelect(BlockWriter &writer) {
    const Signal in = writer.in(A_VSELECTOR_PORT_IN);
    const Signal out = writer.out();
    const TupleValueRef levels = tupleVR(writer.param(A_VSELECTOR_INDICIES));
    require(writer, in);
    if (!out.known() || !levels) {
        return;
    }
    // The scalars that are left after each level, as places in the input.
    std::vector<std::uint32_t> runs{0};
    std::uint32_t length = in.type->leaves;
    for (std::size_t level = 0; level < levels->size() && level < in.type->dims.size(); ++level) {
        const TupleValueRef indices = tupleVR(levels->at(level));
        length /= in.type->dims[level];
        std::vector<std::uint32_t> chosen;
        for (const std::uint32_t run : runs) {
            for (const ValueRef &index : *indices) {
                const NumberValueRef number = numberVR(index);
                if (!number || !number->isInt() || number->toInt() < 0 ||
                    static_cast<std::uint32_t>(number->toInt()) >= in.type->dims[level]) {
                    writer.fail("an index is outside the vector");
                }
                chosen.push_back(run + static_cast<std::uint32_t>(number->toInt()) * length);
            }
        }
        runs.swap(chosen);
    }
    for (std::uint32_t i = 0; i < runs.size(); ++i) {
        aliasRun(writer, out, i * length, in, runs[i], length);
    }
}

void writeComplexPack(BlockWriter &writer) {
    const Signal out = writer.out(A_CPACK_WIRE_OUT);
    if (!out.known()) {
        return;
    }
    const Signal parts[] = {writer.in(A_CPACK_PORT_REAL), writer.in(A_CPACK_PORT_IMAG)};
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        if (parts[part].known()) {
            writer.convert(leaf, *leafAt(parts[part], lane));
        }
    });
}

void writeComplexUnpack(BlockWriter &writer) {
    const Signal in = writer.in(A_CUNPACK_PORT_IN);
    require(writer, in);
    const Signal parts[] = {writer.out(A_CUNPACK_WIRE_REAL), writer.out(A_CUNPACK_WIRE_IMAG)};
    for (std::uint32_t part = 0; part < 2; ++part) {
        if (parts[part].known()) {
            forEachScalar(parts[part], [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
                convertOrClear(writer, leaf, leafAt(in, lane, part));
            });
        }
    }
}

void writeRecordPack(BlockWriter &writer) {
    const Signal out = writer.out(A_APACK_WIRE_OUT);
    if (!out.known()) {
        return;
    }
    std::uint32_t at = 0;
    for (std::size_t i = 0; i < out.type->fields.size(); ++i) {
        const std::uint32_t length = out.type->fields[i]->leaves;
        if (const Signal field = writer.in(static_cast<int>(i)); field.known()) {
            if (field.type->leaves != length) {
                writer.fail("an input has another type than its field");
            }
            aliasRun(writer, out, at, field, 0, length);
        }
        at += length;
    }
}

void writeRecordUnpack(BlockWriter &writer) {
    const Signal in = writer.in(A_AUNPACK_PORT_IN);
    require(writer, in);
    std::uint32_t at = 0;
    for (std::size_t i = 0; i < in.type->fields.size(); ++i) {
        const std::uint32_t length = in.type->fields[i]->leaves;
        if (const Signal out = writer.out(static_cast<int>(i)); out.known()) {
            aliasRun(writer, out, 0, in, at, length);
        }
        at += length;
    }
}

const BlockRow kRows[] = {
    {&A_INPUT_BLOCK, nullptr},
    {&A_OUTPUT_BLOCK, nullptr},
    {&A_GOTO_BLOCK, nullptr},
    {&A_FROM_BLOCK, nullptr},
    {&A_ECC_SINK_BLOCK, nullptr},
    {&A_ENABLE_SINK_BLOCK, nullptr},
    {&A_TERMINAL_BLOCK, writeFanout},
    {&A_FANOUT_BLOCK, writeFanout},
    {&A_PIPE_BLOCK, writePipe},
    {&A_FOLDING_KERNEL_BOUNDARY_BLOCK, writeFanout},
    {&A_TYPE_PIN_BLOCK, writeTypePin},
    {&A_SIGNAL_IN_BLOCK, writeByName},
    {&A_SIGNAL_OUT_BLOCK, writeByName},
    {&A_UNSCHED_BLOCK, writeByName},
    {&A_BOUNDARY_BLOCK, writeByName},
    {&A_VPACK_BLOCK, writeVectorPack},
    {&A_VUNPACK_BLOCK, writeVectorUnpack},
    {&A_VCONCAT_BLOCK, writeConcatenation},
    {&A_VSPLIT_BLOCK, writeSplit},
    {&A_VSELECTOR_BLOCK, writeVectorSelect},
    {&A_CPACK_BLOCK, writeComplexPack},
    {&A_CUNPACK_BLOCK, writeComplexUnpack},
    {&A_APACK_BLOCK, writeRecordPack},
    {&A_AUNPACK_BLOCK, writeRecordUnpack},
};

} // namespace

std::span<const BlockRow> wiringRows() { return kRows; }

} // namespace orvo::sim
