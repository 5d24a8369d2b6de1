// Blocks at the border of the design: interfaces whose signals come from outside and go there, adapters between them
// and the design, and logic that is not told.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/interfaces.h"
#include "sim/statekernels.h"
#include "sim/uninterpreted.h"

#include <orvo/scheduledmodelhandle.h>
#include <orvo/wire.h>

#include <map>
#include <optional>
#include <set>
#include <string_view>

namespace orvo::sim {

PureValueRef interfaceSignal(const BlockWriter &writer, const StaticString &nameKey, const PureValueRef &signal) {
    const PureValueRef name = PureValueRef(writer.inherited(nameKey));
    return name ? PureValueRef(PureTupleValue::get(name, signal, writer.context())) : signal;
}

const SignalType &wordType(const BlockWriter &writer, int width) {
    const SignalType *type = writer.types().of(NumTypeSpec::ufixed(width, 0).toValue(writer.context()));
    if (type == nullptr) {
        writer.fail("a signal of " + std::to_string(width) + " bits has no type");
    }
    return *type;
}

namespace {

/// Wires come from outside, ports go there, each under the pair of the interface's name and its own.
void writeInterface(BlockWriter &writer, const StaticString &nameKey) {
    for (const Wire &wire : writer.block()) {
        if (const Signal out = writer.out(wire.getName()); out.known()) {
            convertSignal(writer, out, writer.outside(interfaceSignal(writer, nameKey, wire.getName()), *out.type));
        }
    }
    for (const Port &port : writer.block().ports()) {
        if (const Signal in = writer.in(port.getName()); in.known()) {
            writer.show(interfaceSignal(writer, nameKey, port.getName()), in);
        }
    }
}

void writeMappedInterface(BlockWriter &writer) { writeInterface(writer, A_SARNET_MM_INTERFACE_NAME); }

void writeStreamInterface(BlockWriter &writer) { writeInterface(writer, A_SARNET_ST_INTERFACE_NAME); }

/// Ready while all told conditions hold; without any, always.
void writeReady(BlockWriter &writer) {
    std::vector<Leaf> conditions;
    for (const Port &port : writer.block().ports()) {
        const Signal condition = writer.in(port.getName());
        requireFixed(writer, condition, "a condition");
        conditions.push_back(truth(writer, condition.first));
    }
    if (const Signal out = writer.out(); out.known()) {
        writer.convert(out.first, conditions.empty() ? one(writer) : emitBit(writer, Logic::And, conditions));
    }
}

/// A bit of a stream's interface: the port if there is one, else the signal from outside.
Leaf streamBit(BlockWriter &writer, const StaticString &key) {
    Signal signal = writer.in(key);
    if (!signal.known()) {
        signal = writer.outside(interfaceSignal(writer, A_SARNET_ST_INTERFACE_NAME, key), wordType(writer, 1));
    }
    requireFixed(writer, signal, "a control");
    return truth(writer, signal.first);
}

/// Puts a bit on the wire if there is one, else outside.
void giveStreamBit(BlockWriter &writer, const StaticString &key, Leaf bit) {
    if (writer.block().getWire(key) == nullptr) {
        writer.show(interfaceSignal(writer, A_SARNET_ST_INTERFACE_NAME, key), Signal{&wordType(writer, 1), bit});
    } else if (const Signal out = writer.out(key); out.known()) {
        writer.convert(out.first, bit);
    }
}

const StaticString *const kStreamData[] = {&A_SARNET_ST_DATA,        &A_SARNET_ST_CHANNEL, &A_SARNET_ST_STARTOFPACKET,
                                           &A_SARNET_ST_ENDOFPACKET, &A_SARNET_ST_ERROR,   &A_SARNET_ST_EMPTY};

std::vector<Leaf> leavesOf(const Signal &signal) {
    std::vector<Leaf> leaves;
    for (std::uint32_t i = 0; i < signal.type->leaves; ++i) {
        leaves.push_back(signal.first + i);
    }
    return leaves;
}

/// Scalars of a signal of the same type between two operations.
Signal temporaryLike(BlockWriter &writer, const Signal &signal) {
    Signal made{signal.type, 0};
    for (std::uint32_t i = 0; i < signal.type->leaves; ++i) {
        const Leaf leaf = writer.temporary(writer.scalar(signal.first + i));
        made.first = i == 0 ? leaf : made.first;
    }
    return made;
}

/// A stream waits in a queue until the receiver is ready. Ready falls at the high threshold, early enough for what is
/// on its way.
void writeStreamSource(BlockWriter &writer) {
    const TupleValueRef setup = tupleVR(writer.param(A_SARNET_ST_FIFO_SETUP));
    std::int64_t numbers[3];
    for (std::size_t i = 0; i < 3; ++i) {
        const NumberValueRef number = setup ? numberVR(setup->maybeAt(i)) : NumberValueRef();
        if (!number || !number->isInt()) {
            writer.fail("the set-up of the queue is no tuple of depth, low and high threshold");
        }
        numbers[i] = number->toInt();
    }
    const Signal valid = writer.in(A_SARNET_ST_VALID);
    requireFixed(writer, valid, "valid");
    const Leaf ready = streamBit(writer, A_SARNET_ST_READY);
    std::vector<Leaf> entry;
    std::vector<Leaf> oldest;
    for (const StaticString *key : kStreamData) {
        const Signal in = writer.in(*key);
        if (!in.known()) {
            continue;
        }
        const Signal held = temporaryLike(writer, in);
        for (std::uint32_t i = 0; i < in.type->leaves; ++i) {
            entry.push_back(in.first + i);
            oldest.push_back(held.first + i);
        }
        if (writer.block().getWire(*key) == nullptr) {
            writer.show(interfaceSignal(writer, A_SARNET_ST_INTERFACE_NAME, *key), held);
        } else if (const Signal out = writer.out(*key); out.known()) {
            convertSignal(writer, out, held);
        }
    }
    const Queue queue = makeQueue(writer, numbers[0], numbers[1], numbers[2], entry);
    emitOldest(writer, queue, oldest);
    const ScalarType bit{1, 0, false, false};
    const Leaf isValid = writer.temporary(bit);
    const Leaf isHigh = writer.temporary(bit);
    emitQueueFlag(writer, queue, QueueFlag::Valid, isValid);
    emitQueueFlag(writer, queue, QueueFlag::High, isHigh);
    const Leaf moves = emitBit(writer, Logic::And, {ready, isValid});
    giveStreamBit(writer, A_SARNET_ST_VALID, moves);
    if (const Signal out = writer.out(A_SARNET_ST_READY); out.known()) {
        writer.convert(out.first, emitBit(writer, Logic::Or, {isHigh}, true));
    }
    commitQueue(writer, queue, truth(writer, valid.first), moves, zero(writer));
}

/// What comes while the receiver is not ready is held and shown as soon as it is; a sender that heeds ready two cycles
/// late has at most two data on the way.
void writeStreamSink(BlockWriter &writer) {
    const Leaf valid = streamBit(writer, A_SARNET_ST_VALID);
    const Signal design = writer.in(A_SARNET_ST_READY);
    if (design.known()) {
        requireFixed(writer, design, "ready");
    }
    const Leaf ready = design.known() ? truth(writer, design.first) : one(writer);
    giveStreamBit(writer, A_SARNET_ST_READY, ready);
    struct Way {
        Signal in;
        Signal out;
        Signal held;
    };
    std::vector<Way> ways;
    std::vector<Leaf> entry;
    std::vector<Leaf> oldest;
    for (const StaticString *key : kStreamData) {
        const Signal out = writer.out(*key);
        if (!out.known()) {
            continue;
        }
        Signal in = writer.in(*key);
        if (!in.known()) {
            in = writer.outside(interfaceSignal(writer, A_SARNET_ST_INTERFACE_NAME, *key), *out.type);
        }
        if (in.type != out.type) {
            writer.fail("an output has another type than its input");
        }
        ways.push_back({in, out, temporaryLike(writer, in)});
        for (const Leaf leaf : leavesOf(in)) {
            entry.push_back(leaf);
        }
        for (const Leaf leaf : leavesOf(ways.back().held)) {
            oldest.push_back(leaf);
        }
    }
    const Queue queue = makeQueue(writer, 2, 0, 2, entry);
    emitOldest(writer, queue, oldest);
    const Leaf holds = writer.temporary({1, 0, false, false});
    emitQueueFlag(writer, queue, QueueFlag::Valid, holds);
    for (const Way &way : ways) {
        for (std::uint32_t i = 0; i < way.out.type->leaves; ++i) {
            emitMux(writer, way.out.first + i, holds, {way.in.first + i, way.held.first + i});
        }
    }
    if (const Signal out = writer.out(A_SARNET_ST_VALID); out.known()) {
        writer.convert(out.first, emitBit(writer, Logic::And, {ready, emitBit(writer, Logic::Or, {valid, holds})}));
    }
    const Leaf passes = emitBit(writer, Logic::And, {ready, emitBit(writer, Logic::Or, {holds}, true)});
    const Leaf takes = emitBit(writer, Logic::And, {valid, emitBit(writer, Logic::Or, {passes}, true)});
    commitQueue(writer, queue, takes, ready, zero(writer));
}

/// A register that starts at zero.
Signal enabledRegister(BlockWriter &writer, const Signal &in, Leaf enable) {
    const Signal held = temporaryLike(writer, in);
    for (std::uint32_t i = 0; i < in.type->leaves; ++i) {
        const std::uint32_t each = wordsFor(writer.scalar(held.first + i).width);
        const std::uint32_t state = writer.state(each);
        writer.emitFromState(held.first + i, state, each, {}, readState);
        writer.commit(state, each, {writer.raw(in.first + i), writer.raw(enable)}, writeState);
    }
    return held;
}

/// Places by which an address of words goes up to one of bytes.
int byteOffset(const BlockWriter &writer) {
    const std::int64_t width = writer.integer(A_EXTMEM_DATA_WIDTH, 0);
    if (width <= 0 || !writer.param(A_EXTMEM_NAME)) {
        writer.fail("a memory outside needs a name and the width of its data");
    }
    int offset = 0;
    while ((std::int64_t{8} << offset) < width) {
        ++offset;
    }
    return offset;
}

/// Requests go out through registers that stand still while the memory lets them wait; answers come back at once.
void writeOutsideMemory(BlockWriter &writer) {
    const int offset = byteOffset(writer);
    const auto named = [&writer](const StaticString &key) {
        return interfaceSignal(writer, A_EXTMEM_NAME, PureValueRef(key));
    };
    const Leaf waits = writer.outside(named(A_SARNET_MM_WAITREQUEST), wordType(writer, 1)).first;
    const Leaf ready = emitBit(writer, Logic::And, {waits}, true);
    if (const Signal out = writer.out(A_EXTMEM_WIRE_READY); out.known()) {
        writer.convert(out.first, ready);
    }
    const std::pair<const StaticString *, const StaticString *> answers[] = {
        {&A_EXTMEM_WIRE_DATA, &A_SARNET_MM_READDATA}, {&A_EXTMEM_WIRE_VALID, &A_SARNET_MM_READDATAVALID}};
    for (const auto &[wire, key] : answers) {
        if (const Signal out = writer.out(*wire); out.known()) {
            convertSignal(writer, out, writer.outside(named(*key), *out.type));
        }
    }
    const std::pair<const StaticString *, const StaticString *> requests[] = {
        {&A_EXTMEM_PORT_READ, &A_SARNET_MM_READ},
        {&A_EXTMEM_PORT_WRITE, &A_SARNET_MM_WRITE},
        {&A_EXTMEM_PORT_DATA, &A_SARNET_MM_WRITEDATA},
        {&A_EXTMEM_PORT_BYTEENABLE, &A_SARNET_MM_BYTEENABLE},
        {&A_EXTMEM_PORT_BURSTCOUNT, &A_SARNET_MM_BURSTCOUNT}};
    for (const auto &[port, key] : requests) {
        if (const Signal in = writer.in(*port); in.known()) {
            writer.show(named(*key), enabledRegister(writer, in, ready));
        }
    }
    if (const Signal address = writer.in(A_EXTMEM_PORT_ADDRESS); address.known()) {
        requireFixed(writer, address, "the address");
        const Leaf held = enabledRegister(writer, address, ready).first;
        const Operand bits = {held, writer.scalar(held).width, false, false, 0};
        const SignalType &type = wordType(writer, static_cast<int>(bits.width) + offset);
        const Leaf bytes = writer.temporary(type.scalar);
        writer.emit(bytes, -offset, {bits}, sumKernel);
        writer.show(named(A_SARNET_MM_ADDRESS), Signal{&type, bytes});
    }
}

/// The name under which all elements of a signal stand.
PureValueRef wholeName(const PureValueRef &name) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    return tuple && tuple->size() > 1 ? PureValueRef(tuple->at(0)) : name;
}

PureValueRef renamed(const PureValueRef &name, const PureValueRef &whole, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 2) {
        return whole;
    }
    std::vector<PureValueRef> elements(tuple->begin(), tuple->end());
    elements[0] = whole;
    return PureTupleValue::get(elements, context);
}

/// Each scalar of an input to that of an output with its name or, if there are only one input and one output, with its
/// place in them; what else is read comes from logic that is not told. Lanes, members and parts that have ports of
/// their own are still elements of one signal, so the block stays what it is when signals are taken apart.
void writeForeign(BlockWriter &writer, const Uninterpreted &what) {
    const Block &block = writer.block();
    std::set<PureValueRef> inputs;
    std::set<PureValueRef> outputs;
    for (const Port &port : block.ports()) {
        inputs.insert(wholeName(port.getName()));
    }
    for (const Wire &wire : block) {
        outputs.insert(wholeName(wire.getName()));
    }
    const bool isThrough = inputs.size() == 1 && outputs.size() == 1;
    std::vector<NamedLeaf> in;
    for (const Port &port : block.ports()) {
        const PureValueRef name =
            isThrough ? renamed(port.getName(), *outputs.begin(), writer.context()) : port.getName();
        appendTakenLeaves(writer, name, port, in);
    }
    std::map<std::string_view, Leaf> leaves;
    for (const NamedLeaf &one : in) {
        leaves.emplace(one.name, one.leaf);
    }
    std::vector<NamedLeaf> all;
    for (const Wire &wire : block) {
        appendNamedLeaves(writer, wire.getName(), writer.out(wire.getName()), all);
    }
    std::vector<NamedLeaf> untold;
    for (NamedLeaf &one : all) {
        if (const auto same = leaves.find(one.name); same != leaves.end()) {
            writer.convert(one.leaf, same->second);
        } else {
            untold.push_back(std::move(one));
        }
    }
    emitUninterpreted(writer, what.type->text(), in, untold);
}

void writeExternalInterface(BlockWriter &writer) { writeForeign(writer, {&A_EXT_IFACE_BLOCK}); }

void writeHiddenInterface(BlockWriter &writer) { writeForeign(writer, {&A_HIDDEN_IFACE_BLOCK}); }

void writePlaceholder(BlockWriter &writer) { writeUninterpreted(writer, {&A_LATENCY_PLACEHOLDER_BLOCK}); }

void writeChannelView(BlockWriter &writer) { writeUninterpreted(writer, {&A_CHANVIEW_BLOCK}); }

/// One part of a signal that has a port of its own after unrolling.
struct Element {
    std::uint32_t first;
    const SignalType *type;
    std::size_t dim;
    /// The signal has been followed down to one scalar.
    bool isScalar;
};

/// Where a path leads in a signal; none if it fits the type nowhere.
std::optional<Element> elementAt(const SignalType &type, const CompoundDecorIndex &path) {
    Element element{0, &type, 0, false};
    std::uint32_t length = type.leaves;
    for (const CompoundDecorIndex::Step &step : path.steps()) {
        const auto index = static_cast<std::uint32_t>(step.index);
        const SignalType &at = *element.type;
        const bool inVector = element.dim < at.dims.size();
        if (element.isScalar) {
            return std::nullopt;
        }
        if (step.kind == CompoundKind::Vector && inVector && index < at.dims[element.dim]) {
            length /= at.dims[element.dim++];
            element.first += index * length;
        } else if (step.kind == CompoundKind::Aggregate && !inVector && index < at.fields.size()) {
            for (std::uint32_t field = 0; field < index; ++field) {
                element.first += at.fields[field]->leaves;
            }
            length = at.fields[index]->leaves;
            element = {element.first, at.fields[index], 0, false};
        } else if (step.kind == CompoundKind::Complex && !inVector && at.isComplex) {
            element.first += index;
            element.isScalar = true;
        } else {
            return std::nullopt;
        }
    }
    return element;
}

/// Names the scalars of a signal as the ports that they become by the mappings of a scheduled model's handle.
void renameByMappings(const BlockWriter &writer, const PureValueRef &name, const SignalType &type,
                      const UnrollMappings &mappings, std::vector<NamedLeaf>::iterator scalars) {
    const auto port = mappings.portMapping().find(name);
    if (port == mappings.portMapping().end()) {
        return;
    }
    for (const auto &[path, mapped] : port->second) {
        const std::optional<Element> element = elementAt(type, path);
        if (!element) {
            writer.fail("the handle's mappings do not fit the types");
        }
        std::vector<std::string> names;
        if (element->isScalar) {
            names.push_back(mapped->toString());
        } else {
            appendElementNames(*element->type, element->dim, mapped, writer.context(), names);
        }
        for (std::size_t k = 0; k < names.size(); ++k) {
            scalars[static_cast<std::ptrdiff_t>(element->first + k)].name = names[k];
        }
    }
}

/// A model that was generated elsewhere is known by what its generator noted. It stays the same function when its
/// signals are taken apart.
void writeScheduledModel(BlockWriter &writer) {
    const ScheduledModelHandle handle =
        ScheduledModelHandle::fromValue(PureValueRef(writer.param(A_SCHEDULED_MODEL_VALUE)));
    if (!handle.valid()) {
        writer.fail("the scheduled model has no handle");
    }
    const auto append = [&](std::vector<NamedLeaf> &to, const PureValueRef &name, const Signal &signal,
                            const UnrollMappings &mappings) {
        const auto before = static_cast<std::ptrdiff_t>(to.size());
        appendNamedLeaves(writer, name, signal, to);
        if (signal.known() && writer.isTrue(A_SCHEDULED_MODEL_ORIGINAL_TYPES)) {
            renameByMappings(writer, name, *signal.type, mappings, to.begin() + before);
        }
    };
    std::vector<NamedLeaf> in;
    std::vector<NamedLeaf> out;
    for (const Port &port : writer.block().ports()) {
        append(in, port.getName(), writer.in(port.getName()), handle.getInputUnrollMappings());
    }
    for (const Wire &wire : writer.block()) {
        append(out, wire.getName(), writer.out(wire.getName()), handle.getOutputUnrollMappings());
    }
    emitUninterpreted(writer, "scheduledModelBlock " + handle.getGenerationInfoValue()->toString(), in, out);
}

const BlockRow kRows[] = {
    {&A_BUS_IN_BLOCK, writeMappedInterface},
    {&A_BUS_OUT_BLOCK, writeMappedInterface},
    {&A_SARNET_MM_MASTER_IN_BLOCK, writeMappedInterface},
    {&A_SARNET_MM_MASTER_OUT_BLOCK, writeMappedInterface},
    {&A_SARNET_MM_SLAVE_IN_BLOCK, writeMappedInterface},
    {&A_SARNET_MM_SLAVE_OUT_BLOCK, writeMappedInterface},
    {&A_SARNET_ST_SOURCE_IN_BLOCK, writeStreamInterface},
    {&A_SARNET_ST_SOURCE_OUT_BLOCK, writeStreamInterface},
    {&A_SARNET_ST_SINK_IN_BLOCK, writeStreamInterface},
    {&A_SARNET_ST_SINK_OUT_BLOCK, writeStreamInterface},
    {&A_AXI4_STREAM_RECEIVER_BLOCK, writeByName},
    {&A_AXI4_STREAM_TRANSMITTER_BLOCK, writeByName},
    {&A_READY_BLOCK, writeReady},
    {&A_SARNET_ST_SOURCE_BLOCK, writeStreamSource},
    {&A_SARNET_ST_SINK_BLOCK, writeStreamSink},
    {&A_EXTMEM_READ_BLOCK, writeOutsideMemory},
    {&A_EXTMEM_WRITE_BLOCK, writeOutsideMemory},
    {&A_EXT_IFACE_BLOCK, writeExternalInterface},
    {&A_HIDDEN_IFACE_BLOCK, writeHiddenInterface},
    {&A_LATENCY_PLACEHOLDER_BLOCK, writePlaceholder},
    {&A_CHANVIEW_BLOCK, writeChannelView},
    {&A_SCHEDULED_MODEL_BLOCK, writeScheduledModel},
};

} // namespace

std::span<const BlockRow> interfaceRows() { return kRows; }

} // namespace orvo::sim
