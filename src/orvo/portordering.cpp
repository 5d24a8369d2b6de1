// The order of ports and wires is a table: a block type, its inputs and its outputs by well-known name. What a row
// leaves open is taken in the order of the names.
#include "orvo/portordering.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <array>
#include <vector>

namespace orvo {

const Port *PortOrderingHandler::getInputPortByNumber(const Block &block, int number) const {
    return getInputPortByNumber(const_cast<Block &>(block), number);
}

const Wire *PortOrderingHandler::getOutputWireByNumber(const Block &block, int number) const {
    return getOutputWireByNumber(const_cast<Block &>(block), number);
}

namespace internal {

namespace {

/// What stands at a number: a well-known name, or the port or wire of a number.
struct Place {
    const StaticString *name = nullptr;
    int number = 0;
};

Place named(const StaticString &name) { return {&name, 0}; }
Place numbered(int number) { return {nullptr, number}; }

PureValueRef keyOf(const Place &place, const Block &block) {
    return place.name != nullptr ? PureValueRef(*place.name)
                                 : PureValueRef(NumberValue::get(place.number, block.getContext()));
}

Port *requiredPort(Block &block, const PureValueRef &key) {
    Port *port = block.getPort(key);
    ORVO_ASSERT(port != nullptr, "a block lacks a port that its type has by name");
    return port;
}

Wire *requiredWire(Block &block, const PureValueRef &key) {
    Wire *wire = block.getWire(key);
    ORVO_ASSERT(wire != nullptr, "a block lacks a wire that its type has by name");
    return wire;
}

/// Names in order: the n-th port and the n-th wire.
class DefaultPortOrderingHandler : public PortOrderingHandler {
  public:
    using PortOrderingHandler::getInputPortByNumber;
    using PortOrderingHandler::getOutputWireByNumber;
    Port *getInputPortByNumber(Block &block, int number) const override {
        ORVO_ASSERT(number >= 0 && static_cast<std::size_t>(number) < block.port_size(), "no port has that number");
        return &*std::next(block.port_begin(), number);
    }
    Wire *getOutputWireByNumber(Block &block, int number) const override {
        ORVO_ASSERT(number >= 0 && static_cast<std::size_t>(number) < block.getWireCount(), "no wire has that number");
        return &*std::next(block.begin(), number);
    }
};

/// Fixed places; an empty list leaves that side in the order of the names.
class PlacesHandler : public DefaultPortOrderingHandler {
  public:
    PlacesHandler(std::vector<Place> inputs, std::vector<Place> outputs)
        : mInputs(std::move(inputs)), mOutputs(std::move(outputs)) {}
    using PortOrderingHandler::getInputPortByNumber;
    using PortOrderingHandler::getOutputWireByNumber;
    Port *getInputPortByNumber(Block &block, int number) const override {
        return mInputs.empty() ? DefaultPortOrderingHandler::getInputPortByNumber(block, number)
                               : requiredPort(block, keyOf(at(mInputs, number), block));
    }
    Wire *getOutputWireByNumber(Block &block, int number) const override {
        return mOutputs.empty() ? DefaultPortOrderingHandler::getOutputWireByNumber(block, number)
                                : requiredWire(block, keyOf(at(mOutputs, number), block));
    }

  private:
    static const Place &at(const std::vector<Place> &places, int number) {
        ORVO_ASSERT(number >= 0 && static_cast<std::size_t>(number) < places.size(), "no place has that number");
        return places[static_cast<std::size_t>(number)];
    }
    std::vector<Place> mInputs;
    std::vector<Place> mOutputs;
};

/// The select is input 0, data input k is input k + 1.
class MuxHandler final : public PlacesHandler {
  public:
    MuxHandler() : PlacesHandler({}, {named(A_PRIM_WIRE_OUT)}) {}
    using PlacesHandler::getInputPortByNumber;
    Port *getInputPortByNumber(Block &block, int number) const override {
        ORVO_ASSERT(number >= 0, "no port has that number");
        return requiredPort(block, keyOf(number == 0 ? named(A_MUX_PORT_SELECT) : numbered(number - 1), block));
    }
};

/// Valid, the channel and the packet's begin where the block has them, then the data by key.
class ChannelInAndOutHandler final : public DefaultPortOrderingHandler {
  public:
    using PortOrderingHandler::getInputPortByNumber;
    using PortOrderingHandler::getOutputWireByNumber;
    Port *getInputPortByNumber(Block &block, int number) const override {
        std::vector<Port *> ports = {requiredPort(block, A_PORT_VALID)};
        for (const StaticString *name : {&A_PORT_CHANNEL, &A_PORT_PACKET_BEGIN}) {
            if (Port *port = block.getPort(*name); port != nullptr) {
                ports.push_back(port);
            }
        }
        appendRest(block.ports(), ports);
        return at(ports, number);
    }
    Wire *getOutputWireByNumber(Block &block, int number) const override {
        std::vector<Wire *> wires;
        for (const StaticString *name : {&A_WIRE_VALID, &A_WIRE_CHANNEL, &A_WIRE_PACKET_BEGIN}) {
            if (Wire *wire = block.getWire(*name); wire != nullptr) {
                wires.push_back(wire);
            }
        }
        appendRest(block, wires);
        return at(wires, number);
    }

  private:
    template <class Range, class T> static void appendRest(const Range &range, std::vector<T *> &list) {
        std::size_t fixed = list.size();
        for (T &item : range) {
            if (std::find(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(fixed), &item) ==
                list.begin() + static_cast<std::ptrdiff_t>(fixed)) {
                list.push_back(&item);
            }
        }
    }
    template <class T> static T *at(const std::vector<T *> &list, int number) {
        ORVO_ASSERT(number >= 0 && static_cast<std::size_t>(number) < list.size(), "no place has that number");
        return list[static_cast<std::size_t>(number)];
    }
};

struct Row {
    const StaticString *type;
    std::vector<Place> inputs;
    std::vector<Place> outputs;
};

std::vector<Row> placeRows() {
    const Place out = named(A_PRIM_WIRE_OUT);
    const Place aux = named(A_PRIM_WIRE_AUX);
    const Place a = numbered(0);
    const Place b = numbered(1);
    return {
        {&A_SELECT_BLOCK, {}, {out}},
        {&A_DUAL_MEM_BLOCK, {}, {named(A_DUAL_MEM_WIRE_DATA1), named(A_DUAL_MEM_WIRE_DATA2)}},
        {&A_CPACK_BLOCK, {named(A_CPACK_PORT_REAL), named(A_CPACK_PORT_IMAG)}, {named(A_CPACK_WIRE_OUT)}},
        {&A_CUNPACK_BLOCK, {named(A_CUNPACK_PORT_IN)}, {named(A_CUNPACK_WIRE_REAL), named(A_CUNPACK_WIRE_IMAG)}},
        {&A_MINMAX_BLOCK, {a, b, named(A_MINMAX_PORT_SELECT)}, {out}},
        {&A_ADD_SLOAD_BLOCK, {a, b, named(A_ADD_SLOAD_PORT_LOAD_CTRL), named(A_ADD_SLOAD_PORT_LOAD_VALUE)}, {out}},
        {&A_ADDSUB_BLOCK, {a, b, named(A_ADDSUB_PORT_SELECT)}, {out}},
        {&A_COMPARECTRL_BLOCK, {a, b, named(A_COMPARE_PORT_SELECT)}, {out}},
        {&A_CORDIC_BLOCK,
         {named(A_CORDIC_PORT_X), named(A_CORDIC_PORT_Y), named(A_CORDIC_PORT_ANGLE), named(A_CORDIC_PORT_MODE)},
         {named(A_CORDIC_WIRE_X), named(A_CORDIC_WIRE_Y), named(A_CORDIC_WIRE_ANGLE)}},
        {&A_ADDSUBFUSED_BLOCK, {}, {out, aux}},
        {&A_SINCOSFUSED_BLOCK, {}, {out, aux}},
    };
}

} // namespace

void registerPortOrderingHandlers(Context *context) {
    for (Row &row : placeRows()) {
        context->getBlockClass(*row.type)->registerHandler<PortOrderingHandler>(
            new PlacesHandler(std::move(row.inputs), std::move(row.outputs)));
    }
    context->getBlockClass(A_MUX_BLOCK)->registerHandler<PortOrderingHandler>(new MuxHandler);
    for (const StaticString *type : {&A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK}) {
        context->getBlockClass(*type)->registerHandler<PortOrderingHandler>(new ChannelInAndOutHandler);
    }
}

} // namespace internal

const PortOrderingHandler &portOrderingOf(const Block &block) {
    static const internal::DefaultPortOrderingHandler byName;
    const auto *handler = block.getClass()->get<PortOrderingHandler>();
    return handler == nullptr ? byName : *handler;
}

} // namespace orvo
