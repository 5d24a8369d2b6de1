// Queues and memories.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/memories.h"
#include "sim/memorykernels.h"
#include "sim/statekernels.h"
#include "sim/wholesignals.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

/// More bits than these are not kept.
constexpr std::int64_t kMostBits = std::int64_t{1} << 31;

} // namespace

namespace {

/// The scalars of an entry, lane by lane and part by part. A real number has no imaginary part.
void appendEntry(const ValueRef &entry, std::uint32_t parts, std::vector<NumberValueRef> &scalars, Context *context) {
    const TupleValueRef tuple = tupleVR(entry);
    const bool isComplex = tuple && tuple->size() == 3 && tuple->at(0) == A_COMPLEX_ROLL_TAG;
    if (tuple && !isComplex) {
        for (std::size_t i = 1; i < tuple->size(); ++i) {
            appendEntry(tuple->at(i), parts, scalars, context);
        }
        return;
    }
    for (std::uint32_t part = 0; part < parts; ++part) {
        scalars.push_back(isComplex   ? numberVR(tuple->at(1 + part))
                          : part == 0 ? numberVR(entry)
                                      : NumberValue::get(0, context));
    }
}

/// The contents in the layers of a rolled one.
void appendTables(const BlockWriter &writer, const ValueRef &data, std::vector<TupleValueRef> &tables) {
    const TupleValueRef tuple = tupleVR(data);
    if (!tuple) {
        writer.fail("the content of a lane is no list of numbers");
    }
    if (tuple->size() == 0 || !(tuple->at(0) == A_VECTOR_ROLL_TAG)) {
        tables.push_back(tuple);
        return;
    }
    for (std::size_t i = 1; i < tuple->size(); ++i) {
        appendTables(writer, tuple->at(i), tables);
    }
}

} // namespace

std::vector<bool> contentOf(const BlockWriter &writer, const TupleValueRef &data, const ScalarType &type,
                            std::uint32_t scalar, std::uint32_t parts) {
    std::vector<bool> bits;
    if (!data) {
        return bits;
    }
    std::vector<TupleValueRef> tables;
    appendTables(writer, data, tables);
    if (tables.empty()) {
        return bits;
    }
    for (const ValueRef &element : *tables[scalar / parts % tables.size()]) {
        std::vector<NumberValueRef> scalars;
        appendEntry(element, parts, scalars, writer.context());
        // Here and above, fewer dimensions repeat, down to one number in all lanes.
        const NumberValueRef number = scalars.empty() ? NumberValueRef() : scalars[scalar % scalars.size()];
        if (!number || (number->isSpecial() && !type.isFloat)) {
            writer.fail("the content is no number of the memory's type");
        }
        const std::vector<std::uint64_t> words = BlockWriter::quantised(number, type);
        for (std::uint32_t bit = 0; bit < type.width; ++bit) {
            bits.push_back((words[bit / 64] >> (bit % 64) & 1U) != 0);
        }
    }
    return bits;
}

std::pair<std::uint32_t, std::uint32_t> memoryOf(BlockWriter &writer, std::int64_t bits,
                                                 const std::vector<bool> &content) {
    bits = std::max(bits, static_cast<std::int64_t>(content.size()));
    if (bits <= 0 || bits > kMostBits) {
        writer.fail("the memory has no depth that can be kept");
    }
    const auto words = kMemoryHeaderWords + static_cast<std::uint32_t>((bits + 63) / 64);
    const std::uint32_t state = writer.state(words);
    writer.setInitial(state, static_cast<std::uint64_t>(bits));
    if (writer.isTrue(A_MEM_UNINIT)) {
        // Content that is given is known.
        const auto given = static_cast<std::uint32_t>(content.size());
        if (const auto all = static_cast<std::uint32_t>(bits); all > given) {
            writer.setUnknown(state + kMemoryHeaderWords, given, all - given);
        }
    }
    for (std::size_t word = 0; word * 64 < content.size(); ++word) {
        std::uint64_t value = 0;
        for (std::size_t bit = 0; bit < 64 && word * 64 + bit < content.size(); ++bit) {
            value |= content[word * 64 + bit] ? std::uint64_t{1} << bit : 0;
        }
        writer.setInitial(state + kMemoryHeaderWords + static_cast<std::uint32_t>(word), value);
    }
    return {state, words};
}

void emitRead(BlockWriter &writer, const Side &side, Leaf leaf, std::uint32_t lane, std::uint32_t state,
              std::uint32_t words) {
    const std::vector<Operand> operands{writer.raw(*leafAt(side.address, lane)),
                                        writer.raw(writer.unknown(writer.scalar(leaf)))};
    if (!side.read.known()) {
        writer.emitFromState(leaf, state, words, operands, readMemory);
        return;
    }
    // A read that is not enabled holds the last data.
    const std::uint32_t each = wordsFor(writer.scalar(leaf).width);
    const std::uint32_t heldState = writer.state(each);
    const Leaf now = writer.temporary(writer.scalar(leaf));
    const Leaf held = writer.temporary(writer.scalar(leaf));
    writer.emitFromState(now, state, words, operands, readMemory);
    writer.emitFromState(held, heldState, each, {}, readState);
    emitMux(writer, leaf, truth(writer, *leafAt(side.read, lane)), {held, now});
    writer.commit(heldState, each, {writer.raw(leaf)}, writeState);
}

void commitWrites(BlockWriter &writer, std::uint32_t state, std::uint32_t words, std::vector<Operand> writes) {
    if (writes.size() > 3) {
        const std::uint32_t widest = std::max(writes[2].width, writes[5].width);
        writes.push_back(writer.raw(writer.unknown({widest, 0, false, false})));
    }
    if (!writes.empty()) {
        writer.commit(state, words, writes, writeMemory);
    }
}

namespace {

/// The number for a lane of a parameter that may be rolled.
std::int64_t laneNumber(const BlockWriter &writer, const StaticString &key, const SignalType &type, std::uint32_t lane,
                        std::int64_t fallback) {
    const ValueRef value = writer.param(key);
    if (!value) {
        return fallback;
    }
    const NumberValueRef number = numberVR(settingOfLane(value, type, lane));
    if (!number || !number->isInteger() || number->isSpecial() || number->getBitWidths().first > 62) {
        writer.fail("'" + std::string(key.text()) + "' is no integer");
    }
    return number->toInt64(0);
}

/// Adds the scalars of the element of a signal that one lane of a queue keeps. A record has its lanes in each field.
void addElementLeaves(Leaf first, const SignalType &type, std::uint32_t lane, std::uint32_t lanes,
                      std::vector<Leaf> &leaves) {
    if (type.isRecord() && type.dims.empty()) {
        for (const SignalType *field : type.fields) {
            addElementLeaves(first, *field, lane, lanes, leaves);
            first += field->leaves;
        }
        return;
    }
    const std::uint32_t own = std::max(type.lanes(), 1U);
    const std::uint32_t each = type.leaves / own;
    // A signal of more lanes than the queue has is kept whole in each entry; one of fewer serves all lanes.
    for (std::uint32_t at = own < lanes ? lane % own : lane; at < own; at += lanes) {
        for (std::uint32_t i = 0; i < each; ++i) {
            leaves.push_back(first + at * each + i);
        }
    }
}

std::vector<Leaf> elementLeaves(const Signal &signal, std::uint32_t lane, std::uint32_t lanes) {
    std::vector<Leaf> leaves;
    addElementLeaves(signal.first, *signal.type, lane, lanes, leaves);
    return leaves;
}

struct QueuePorts {
    const StaticString *write;
    const StaticString *acknowledge;
    const StaticString *flush;
};

void writeQueueBlock(BlockWriter &writer, const QueuePorts &ports) {
    const Signal data = writer.in(A_FIFO_PORT_DATA);
    const Signal write = fixedInput(writer, *ports.write, "the write enable");
    const Signal acknowledge = fixedInput(writer, *ports.acknowledge, "the acknowledge");
    const Signal flush = ports.flush == nullptr ? Signal() : writer.in(*ports.flush);
    require(writer, data);
    const Signal out = writer.out(A_FIFO_WIRE_DATA);
    const std::pair<const StaticString *, QueueFlag> flags[] = {{&A_FIFO_WIRE_VALID, QueueFlag::Valid},
                                                                {&A_FIFO_WIRE_LOW, QueueFlag::Low},
                                                                {&A_FIFO_WIRE_HIGH, QueueFlag::High}};
    // A queue for each lane of what steers it, or of the data if their settings differ.
    const SignalType *type = write.type;
    const auto widen = [&type](const SignalType *by) { type = by->lanes() > type->lanes() ? by : type; };
    widen(acknowledge.type);
    if (flush.known()) {
        widen(flush.type);
    }
    for (const auto &[wire, kind] : flags) {
        if (const Signal flag = writer.out(*wire); flag.known()) {
            widen(flag.type);
        }
    }
    for (const StaticString *key : {&A_FIFO_DEPTH, &A_FIFO_LOW_THRESHOLD, &A_FIFO_HIGH_THRESHOLD}) {
        if (tupleVR(writer.param(*key)) && (!data.type->isRecord() || !data.type->dims.empty())) {
            widen(data.type);
        }
    }
    const std::uint32_t lanes = type->lanes();
    for (std::uint32_t lane = 0; lane < lanes; ++lane) {
        const std::int64_t depth = laneNumber(writer, A_FIFO_DEPTH, *type, lane, 1);
        const Queue queue =
            makeQueue(writer, depth, laneNumber(writer, A_FIFO_LOW_THRESHOLD, *type, lane, 0),
                      laneNumber(writer, A_FIFO_HIGH_THRESHOLD, *type, lane, depth), elementLeaves(data, lane, lanes));
        if (out.known()) {
            const std::vector<Leaf> oldest = elementLeaves(out, lane, lanes);
            if (oldest.size() != queue.entry.size()) {
                writer.fail("the output has other elements than the data");
            }
            emitOldest(writer, queue, oldest);
        }
        for (const auto &[wire, kind] : flags) {
            if (const Signal flag = writer.out(*wire); flag.known() && lane < flag.type->lanes()) {
                emitQueueFlag(writer, queue, kind, *leafAt(flag, lane));
            }
        }
        commitQueue(writer, queue, *leafAt(write, lane), *leafAt(acknowledge, lane),
                    flush.known() ? *leafAt(flush, lane) : zero(writer));
    }
}

void writeFifo(BlockWriter &writer) {
    writeQueueBlock(writer, {&A_FIFO_PORT_WRITE_EN, &A_FIFO_PORT_READ_ACK, &A_FIFO_PORT_FLUSH});
}

void writeFifoDelay(BlockWriter &writer) { writeQueueBlock(writer, {&A_PORT_WRITE, &A_PORT_READY, nullptr}); }

/// One queue for all channels: an entry is the number of its channel and the data. Without a ready every entry leaves
/// at once.
void writeSharedFifo(BlockWriter &writer) {
    const Signal valid = fixedInput(writer, A_PORT_VALID, "valid");
    const Signal ready = writer.in(A_PORT_READY);
    std::vector<std::pair<Signal, Signal>> ways;
    if (const Signal channel = writer.in(A_PORT_CHANNEL); channel.known()) {
        ways.emplace_back(channel, writer.out(A_WIRE_CHANNEL));
    }
    for (const PureValueRef &name : numberedNames(writer)) {
        if (const Signal data = writer.in(name); data.known()) {
            ways.emplace_back(data, writer.out(name));
        }
    }
    std::vector<Leaf> entry;
    std::vector<Leaf> oldest;
    for (const auto &[in, out] : ways) {
        if (out.known() && out.type != in.type) {
            writer.fail("an output has another type than its input");
        }
        for (std::uint32_t i = 0; i < in.type->leaves; ++i) {
            entry.push_back(in.first + i);
            oldest.push_back(out.known() ? out.first + i : writer.temporary(writer.scalar(entry.back())));
        }
    }
    const Queue queue = makeQueue(writer, writer.integer(A_FIFO_DEPTH, 1), 0, 0, entry);
    emitOldest(writer, queue, oldest);
    if (const Signal out = writer.out(A_WIRE_VALID); out.known()) {
        emitQueueFlag(writer, queue, QueueFlag::Valid, out.first);
    }
    commitQueue(writer, queue, truth(writer, valid.first), ready.known() ? truth(writer, ready.first) : one(writer),
                zero(writer));
}

/// The state of one scalar of the elements: `state` and its words, with the content at reset.
std::pair<std::uint32_t, std::uint32_t> memoryFor(BlockWriter &writer, const Side sides[2], std::uint32_t scalar,
                                                  std::uint32_t parts) {
    // The alternative content stands in elements of the other side.
    const bool isAlternative = !writer.param(A_DUAL_MEM_DATA);
    const bool dataIsSecond = (writer.param(A_DUAL_MEM_DATA_TYPE_IS_DATA1) == A_FALSE) != isAlternative;
    std::int64_t bits = 0;
    ScalarType contentType;
    for (int side = 0; side < 2; ++side) {
        const Signal &signal = sides[side].out.known() ? sides[side].out : sides[side].data;
        if (!signal.known()) {
            continue;
        }
        const ScalarType type = writer.scalar(signal.first);
        const std::int64_t depth = writer.integer(side == 0 ? A_DUAL_MEM_DEPTH1 : A_DUAL_MEM_DEPTH2, 0);
        bits = std::max(bits, depth * std::int64_t{type.width});
        if (contentType.width == 0 || (side == 1) == dataIsSecond) {
            contentType = type;
        }
    }
    const StaticString &key = isAlternative ? A_DUAL_MEM_ALT_PORT_DATA : A_DUAL_MEM_DATA;
    return memoryOf(writer, bits, contentOf(writer, tupleVR(writer.param(key)), contentType, scalar, parts));
}

/// A memory of one side that nobody writes.
void writeReadAccessTable(BlockWriter &writer) {
    Side side{writer.in(A_LUT_PORT_ADDR), {}, {}, writer.in(A_FFTBLOCK_PORT_READ_ACCESS), writer.out()};
    if (!side.address.known()) {
        side.address = writer.in(0);
    }
    requireFixed(writer, side.address, "the address");
    if (!side.out.known()) {
        return;
    }
    requireFixed(writer, side.out, "the output");
    forEachScalar(side.out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const std::uint32_t scalar = lane * side.out.type->element + part;
        const std::vector<bool> content =
            contentOf(writer, tupleVR(writer.param(A_LUT_DATA)), writer.scalar(leaf), scalar, side.out.type->element);
        const auto [state, words] = memoryOf(writer, static_cast<std::int64_t>(content.size()), content);
        emitRead(writer, side, leaf, lane, state, words);
    });
}

void writeDualMemory(BlockWriter &writer) {
    const Side sides[2] = {
        {writer.in(A_DUAL_MEM_PORT_ADDR1), writer.in(A_DUAL_MEM_PORT_DATA1), writer.in(A_DUAL_MEM_PORT_WRITE1_EN),
         writer.in(A_DUAL_MEM_PORT_READ1), writer.out(A_DUAL_MEM_WIRE_DATA1)},
        {writer.in(A_DUAL_MEM_PORT_ADDR2), writer.in(A_DUAL_MEM_PORT_DATA2), writer.in(A_DUAL_MEM_PORT_WRITE2_EN),
         writer.in(A_DUAL_MEM_PORT_READ2), writer.out(A_DUAL_MEM_WIRE_DATA2)}};
    std::uint32_t scalars = 1;
    std::uint32_t element = 1;
    for (const Side &side : sides) {
        for (const Signal &signal : {side.data, side.out}) {
            if (signal.known()) {
                if (signal.type->isRecord()) {
                    writer.fail("a memory of records has no meaning here");
                }
                scalars = std::max(scalars, signal.type->leaves);
                element = std::max(element, signal.type->element);
            }
        }
    }
    for (const Side &side : sides) {
        if (side.out.known() && side.out.type->element != element) {
            writer.fail("a side reads a part alone of what the other side holds");
        }
        if (side.out.known() && side.data.known() && side.out.type->lanes() < side.data.type->lanes()) {
            writer.fail("a side gives out fewer lanes than it takes");
        }
    }
    for (std::uint32_t scalar = 0; scalar < scalars; ++scalar) {
        const std::uint32_t lane = scalar / element;
        const std::uint32_t part = scalar % element;
        const auto [state, words] = memoryFor(writer, sides, scalar, element);
        std::vector<Operand> writes;
        for (const Side &side : sides) {
            // A side of fewer lanes than the other reads the first ones.
            if (side.out.known() && lane < side.out.type->lanes()) {
                requireFixed(writer, side.address, "an address");
                emitRead(writer, side, *leafAt(side.out, lane, part), lane, state, words);
            }
            if (side.write.known() && side.data.known()) {
                requireFixed(writer, side.address, "an address");
                writes.push_back(writer.raw(truth(writer, *leafAt(side.write, lane))));
                writes.push_back(writer.raw(*leafAt(side.address, lane)));
                writes.push_back(writer.raw(partOrZero(writer, side.data, lane, part)));
            }
        }
        commitWrites(writer, state, words, std::move(writes));
    }
}

const BlockRow kRows[] = {
    {&A_FIFO_BLOCK, writeFifo},
    {&A_FIFO_DELAY_BLOCK, writeFifoDelay},
    {&A_SHARED_FIFO_BLOCK, writeSharedFifo},
    {&A_DUAL_MEM_BLOCK, writeDualMemory},
    {&A_READ_ACCESS_LUT_BLOCK, writeReadAccessTable},
};

} // namespace

std::span<const BlockRow> memoryRows() { return kRows; }

} // namespace orvo::sim
