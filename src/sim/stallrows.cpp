// Regions that can stall. Front is the side of the consumer, back that of the producer. A transfer takes place where
// valid is true and stall is not.
#include "sim/blockrows.h"
#include "sim/emit.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

/// The name of number `name` under another key; null if the name does not stand under `from`.
PureValueRef keyedLike(const PureValueRef &name, const StaticString &from, const StaticString &to, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    const bool isKeyed = tuple && tuple->size() == 2 && tuple->at(0) == from;
    return isKeyed ? PureValueRef(PureTupleValue::get(to, tuple->at(1), context)) : PureValueRef();
}

/// A port and the wire that carries it on.
using Pairs = std::initializer_list<std::pair<const StaticString *, const StaticString *>>;

void writePairs(BlockWriter &writer, const Pairs &pairs, const Pairs &numbered) {
    const auto carry = [&writer](const PureValueRef &port, const PureValueRef &wire) {
        const Signal in = writer.in(port);
        const Signal out = writer.out(wire);
        if (in.known() && out.known()) {
            convertSignal(writer, out, in);
        }
    };
    for (const auto &[port, wire] : pairs) {
        carry(*port, *wire);
    }
    for (const Port &port : writer.block().ports()) {
        for (const auto &[from, to] : numbered) {
            if (const PureValueRef wire = keyedLike(port.getName(), *from, *to, writer.context())) {
                carry(port.getName(), wire);
            }
        }
    }
}

/// The borders of a region are wires.
void writeEnter(BlockWriter &writer) {
    writePairs(writer,
               {{&A_STALLENTER_PORT_STALL_FRONT, &A_STALLENTER_WIRE_STALL_BACK},
                {&A_STALLENTER_PORT_VALID_BACK, &A_STALLENTER_WIRE_VALID_FRONT},
                {&A_STALLENTER_PORT_EMPTY_BACK, &A_STALLENTER_WIRE_EMPTY_FRONT},
                {&A_STALLENTER_PORT_ALMOST_EMPTY_BACK, &A_STALLENTER_WIRE_ALMOST_EMPTY_FRONT}},
               {{&A_STALLENTER_PORTKEY_DATA_BACK, &A_STALLENTER_WIREKEY_DATA_FRONT}});
}

void writeExit(BlockWriter &writer) {
    writePairs(writer,
               {{&A_STALLEXIT_PORT_STALL_FRONT, &A_STALLEXIT_WIRE_STALL_BACK},
                {&A_STALLEXIT_PORT_VALID_BACK, &A_STALLEXIT_WIRE_VALID_FRONT},
                {&A_STALLEXIT_PORT_EMPTY_BACK, &A_STALLEXIT_WIRE_EMPTY_FRONT},
                {&A_STALLEXIT_PORT_ALMOST_EMPTY_BACK, &A_STALLEXIT_WIRE_ALMOST_EMPTY_FRONT}},
               {{&A_STALLEXIT_PORTKEY_DATA_BACK, &A_STALLEXIT_WIREKEY_DATA_FRONT}});
}

/// Each connected signal under a key, with its name.
std::vector<std::pair<PureValueRef, Signal>> keyedInputs(const BlockWriter &writer, const StaticString &key) {
    std::vector<std::pair<PureValueRef, Signal>> inputs;
    for (const Port &port : writer.block().ports()) {
        if (keyedLike(port.getName(), key, key, writer.context())) {
            require(writer, writer.in(port.getName()));
            inputs.emplace_back(port.getName(), writer.in(port.getName()));
        }
    }
    return inputs;
}

std::vector<Leaf> truths(BlockWriter &writer, const std::vector<std::pair<PureValueRef, Signal>> &controls) {
    std::vector<Leaf> bits;
    for (const auto &[name, signal] : controls) {
        requireFixed(writer, signal, "a control");
        if (signal.type->leaves != 1) {
            writer.fail("a control is no single number");
        }
        bits.push_back(truth(writer, signal.first));
    }
    return bits;
}

/// A queue of two, so that neither valid nor stall passes through within a cycle and a transfer can still take place in
/// every cycle. What comes together stays together: an entry holds all valid signals and all data.
void writeStallRegister(BlockWriter &writer) {
    const auto valids = keyedInputs(writer, A_STALLREG_PORTKEY_VALID_BACK);
    const auto data = keyedInputs(writer, A_STALLREG_PORTKEY_DATA_BACK);
    const Signal stall = writer.in(A_STALLREG_PORT_STALL_FRONT);
    const std::vector<Leaf> validBits = truths(writer, valids);
    std::vector<Leaf> entry = validBits;
    for (const auto &[name, signal] : data) {
        for (std::uint32_t i = 0; i < signal.type->leaves; ++i) {
            entry.push_back(signal.first + i);
        }
    }
    // The high threshold tells that the queue is full.
    const Queue queue = makeQueue(writer, 2, 0, 2, entry);
    std::vector<Leaf> oldest;
    for (const Leaf leaf : entry) {
        oldest.push_back(writer.temporary(writer.scalar(leaf)));
    }
    emitOldest(writer, queue, oldest);
    const Leaf isFull = writer.temporary({1, 0, false, false});
    emitQueueFlag(writer, queue, QueueFlag::High, isFull);
    if (const Signal out = writer.out(A_STALLREG_WIRE_STALL_BACK); out.known()) {
        writer.convert(out.first, isFull);
    }
    std::size_t at = 0;
    for (const auto &[name, signal] : valids) {
        // An empty queue shows zeros, so that nothing counts.
        const Signal out = writer.out(
            keyedLike(name, A_STALLREG_PORTKEY_VALID_BACK, A_STALLREG_WIREKEY_VALID_FRONT, writer.context()));
        if (out.known()) {
            writer.convert(out.first, oldest[at]);
        }
        ++at;
    }
    for (const auto &[name, signal] : data) {
        const Signal out =
            writer.out(keyedLike(name, A_STALLREG_PORTKEY_DATA_BACK, A_STALLREG_WIREKEY_DATA_FRONT, writer.context()));
        if (out.known() && out.type != signal.type) {
            writer.fail("an output has another type than its input");
        }
        for (std::uint32_t i = 0; i < signal.type->leaves; ++i, ++at) {
            if (out.known()) {
                writer.alias(out.first + i, oldest[at]);
            }
        }
    }
    const Leaf takes = validBits.empty() ? one(writer) : emitBit(writer, Logic::Or, validBits);
    const Leaf moves = stall.known() ? emitBit(writer, Logic::Or, {truth(writer, stall.first)}, true) : one(writer);
    commitQueue(writer, queue, takes, moves, zero(writer));
}

/// The region works unless the front of a number stalls while the data of that number counts. No front takes its data
/// while another one stalls, so that all take it in the same cycle.
void writeStallEnable(BlockWriter &writer) {
    Context *context = writer.context();
    const auto valids = keyedInputs(writer, A_STALLENABLE_PORTKEY_VALID_BACK);
    const auto stalls = keyedInputs(writer, A_STALLENABLE_PORTKEY_STALL_FRONT);
    const std::vector<Leaf> stallBits = truths(writer, stalls);
    const std::vector<Leaf> validBits = truths(writer, valids);
    const auto holdsBack = [&](const PureValueRef &but) {
        std::vector<Leaf> bits;
        for (std::size_t i = 0; i < stalls.size(); ++i) {
            const PureValueRef partner = keyedLike(stalls[i].first, A_STALLENABLE_PORTKEY_STALL_FRONT,
                                                   A_STALLENABLE_PORTKEY_VALID_BACK, context);
            if (but && partner == but) {
                continue;
            }
            std::vector<Leaf> both{stallBits[i]};
            for (std::size_t j = 0; j < valids.size(); ++j) {
                if (valids[j].first == partner) {
                    both.push_back(validBits[j]);
                }
            }
            bits.push_back(emitBit(writer, Logic::And, both));
        }
        return bits;
    };
    const std::vector<Leaf> all = holdsBack(PureValueRef());
    if (const Signal enable = writer.out(A_STALLENABLE_WIRE_ENABLE); enable.known()) {
        writer.convert(enable.first, emitBit(writer, Logic::Or, all, true));
    }
    if (const Signal stall = writer.out(A_STALLENABLE_WIRE_STALL_BACK); stall.known()) {
        writer.convert(stall.first, emitBit(writer, Logic::Or, all));
    }
    for (std::size_t i = 0; i < valids.size(); ++i) {
        const Signal out = writer.out(
            keyedLike(valids[i].first, A_STALLENABLE_PORTKEY_VALID_BACK, A_STALLENABLE_WIREKEY_VALID_FRONT, context));
        if (out.known()) {
            const Leaf free = emitBit(writer, Logic::Or, holdsBack(valids[i].first), true);
            writer.convert(out.first, emitBit(writer, Logic::And, {validBits[i], free}));
        }
    }
}

const BlockRow kRows[] = {
    {&A_STALLENTER_BLOCK, writeEnter},
    {&A_STALLEXIT_BLOCK, writeExit},
    {&A_STALLREG_BLOCK, writeStallRegister},
    {&A_STALLENABLE_BLOCK, writeStallEnable},
    {&A_STALLVALID_CONNECTOR_BLOCK, writeByName},
};

} // namespace

std::span<const BlockRow> stallRows() { return kRows; }

} // namespace orvo::sim
