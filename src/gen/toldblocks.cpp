#include "gen/toldblocks.h"

namespace orvo::gen {

namespace {

std::string text(const StaticString &key) { return std::string(key.text()); }

constexpr const char *kBit = "(typeUFixed 1 0)";
constexpr const char *kByte = "(typeUFixed 8 0)";
constexpr const char *kData = "(typeSFixed 6 2)";
constexpr const char *kComplex = "(typeComplex (typeSFixed 3 3))";
constexpr const char *kBits = "(typeVector 2 (typeUFixed 1 0))";
constexpr const char *kIndex = "(typeUFixed 2 0)";
constexpr const char *kWord = "(typeUFixed 32 0)";
constexpr const char *kAddress = "(typeUFixed 16 0)";

std::vector<ToldPin> streamPins(const std::string &data, bool hasReady) {
    std::vector<ToldPin> pins{{text(A_SARNET_ST_VALID), kBit},
                              {text(A_SARNET_ST_DATA), data},
                              {text(A_SARNET_ST_CHANNEL), kByte},
                              {text(A_SARNET_ST_STARTOFPACKET), kBit},
                              {text(A_SARNET_ST_ENDOFPACKET), kBit}};
    if (hasReady) {
        pins.push_back({text(A_SARNET_ST_READY), kBit});
    }
    return pins;
}

std::vector<ToldPin> answerPins() {
    return {{text(A_SARNET_MM_READDATA), kWord},
            {text(A_SARNET_MM_READDATAVALID), kBit},
            {text(A_SARNET_MM_WAITREQUEST), kBit}};
}

std::vector<ToldPin> requestPins() {
    return {{text(A_SARNET_MM_ADDRESS), kAddress},
            {text(A_SARNET_MM_WRITEDATA), kWord},
            {text(A_SARNET_MM_WRITE), kBit},
            {text(A_SARNET_MM_READ), kBit}};
}

ToldBlock registerBlock(bool isInput, const StaticString &mode, const std::string &type, int low, int high) {
    ToldBlock made;
    made.type = &A_MM_REGISTER_BLOCK;
    if (isInput) {
        made.wires = {{text(A_MM_REGISTER_WIRE_DATA), type}};
    } else {
        made.ports = {{text(A_MM_REGISTER_PORT_DATA), type}, {text(A_MM_REGISTER_PORT_WRITE_ENABLE), kBit}};
    }
    made.params = {{text(A_MM_REGISTER_TYPE), text(isInput ? A_MM_REGISTER_TYPE_INPUT : A_MM_REGISTER_TYPE_OUTPUT)},
                   {text(A_BUS_ACCESS_MODE), text(mode)},
                   {text(A_MM_REGISTER_LSB), std::to_string(low)},
                   {text(A_MM_REGISTER_MSB), std::to_string(high)},
                   {text(A_MM_REGISTER_OUTPUT_TYPE), type}};
    if (isInput) {
        made.params.emplace_back(text(A_MM_REGISTER_INITIAL_VALUE), "1");
    }
    made.isOnBus = !(mode == A_BUS_ACCESS_CONSTANT);
    return made;
}

ToldBlock memoryBlock(const StaticString &mode, const std::string &type, bool writes) {
    ToldBlock made;
    made.type = &A_SHARED_MEM_BLOCK;
    made.ports = {{text(A_SHARED_MEM_PORT_ADDR), "(typeUFixed 3 0)"}};
    if (writes) {
        made.ports.push_back({text(A_SHARED_MEM_PORT_DATA), type});
        made.ports.push_back({text(A_SHARED_MEM_PORT_WRITE_ENABLE), kBit});
    } else {
        made.ports.push_back({text(A_SHARED_MEM_PORT_READ), kBit});
    }
    made.wires = {{text(A_SHARED_MEM_WIRE_DATA), type}};
    made.params = {{text(A_BUS_ACCESS_MODE), text(mode)},
                   {text(A_SHARED_MEM_SIZE), "6"},
                   {text(A_SHARED_MEM_INITIAL_DATA), "(1 2 3)"},
                   {text(A_SHARED_MEM_OUTPUT_TYPE), type}};
    made.isOnBus = true;
    return made;
}

ToldBlock outsideMemory(const StaticString &type, bool writes) {
    ToldBlock made;
    made.type = &type;
    made.ports = {{text(A_EXTMEM_PORT_ADDRESS), kByte},
                  {text(writes ? A_EXTMEM_PORT_WRITE : A_EXTMEM_PORT_READ), kBit}};
    made.wires = {{text(A_EXTMEM_WIRE_READY), kBit}};
    if (writes) {
        made.ports.push_back({text(A_EXTMEM_PORT_DATA), kAddress});
        made.ports.push_back({text(A_EXTMEM_PORT_BYTEENABLE), "(typeUFixed 2 0)"});
    } else {
        made.ports.push_back({text(A_EXTMEM_PORT_BURSTCOUNT), "(typeUFixed 4 0)"});
        made.wires.push_back({text(A_EXTMEM_WIRE_DATA), kAddress});
        made.wires.push_back({text(A_EXTMEM_WIRE_VALID), kBit});
    }
    made.params = {{text(A_EXTMEM_DATA_WIDTH), "16"}};
    made.name = &A_EXTMEM_NAME;
    return made;
}

ToldBlock edgeBlock(const StaticString &type, const StaticString &name, std::vector<ToldPin> ports,
                    std::vector<ToldPin> wires) {
    ToldBlock made;
    made.type = &type;
    made.ports = std::move(ports);
    made.wires = std::move(wires);
    made.name = &name;
    return made;
}

ToldBlock oscillator(bool hasChannel) {
    ToldBlock made;
    made.type = &A_NCO_BLOCK;
    made.ports = {{text(A_PORT_VALID), kBit}, {"0", "(typeUFixed 12 0)"}};
    made.wires = {{text(A_WIRE_VALID), kBit},
                  {text(A_NCO_WIRE_SIN), "(typeSFixed 2 9)"},
                  {text(A_NCO_WIRE_COS), "(typeSFixed 2 9)"}};
    if (hasChannel) {
        made.ports.push_back({text(A_PORT_CHANNEL), kByte});
        made.ports.push_back({"1", "(typeUFixed 12 0)"});
        made.wires.push_back({text(A_WIRE_CHANNEL), kByte});
    }
    made.params = {{text(A_NCO_ACCUM_BIT_COUNT), "12"},
                   {text(A_NCO_OUTPUT_RATE), "1"},
                   {text(A_NCO_OUTPUT_TYPE), "(typeSFixed 2 9)"}};
    return made;
}

ToldBlock oscillatorOfTwoSamples() {
    ToldBlock made = oscillator(false);
    made.wires = {{text(A_NCO_WIRE_SIN), "(typeVector 2 (typeSFixed 2 9))"},
                  {text(A_NCO_WIRE_COS), "(typeVector 2 (typeSFixed 2 9))"}};
    made.ports.push_back({"1", "(typeUFixed 12 0)"});
    made.params[1].second = std::to_string(2 * kClock);
    return made;
}

/// What a complex sine is, nothing tells.
ToldBlock complexOscillator() {
    ToldBlock made = oscillator(false);
    made.wires = {{text(A_NCO_WIRE_SIN), kComplex}, {text(A_NCO_WIRE_COS), kComplex}};
    made.params[2].second = kComplex;
    return made;
}

/// Blocks whose vectors or complex numbers come from their parameters, or from a control.
std::vector<ToldBlock> compoundBlocks() {
    ToldBlock counter;
    counter.type = &A_COUNTER_BLOCK;
    counter.ports = {{text(A_PORT_ENABLE), kBit}};
    counter.wires = {{text(A_PRIM_WIRE_OUT), "(typeVector 2 (typeUFixed 5 0))"}};
    counter.params = {{text(A_COUNTER_LIMIT), "(3 17)"}, {text(A_COUNTER_INITIAL), "2"}, {text(A_COUNTER_STEP), "1"}};

    ToldBlock sequence;
    sequence.type = &A_SEQUENCE_BLOCK;
    sequence.ports = {{text(A_PORT_ENABLE), kBits}};
    sequence.wires = {{text(A_PRIM_WIRE_OUT), kBits}};
    sequence.params = {
        {text(A_COUNTER_LIMIT), "(3 7)"}, {text(A_COUNTER_INITIAL), "-1"}, {text(A_COUNTER_STEP), "(1 2)"}};

    ToldBlock decode;
    decode.type = &A_DECODE_BLOCK;
    decode.ports = {{text(A_DECODE_PORT_ADDR), std::string("(typeVector 2 ") + kIndex + ")"},
                    {text(A_DECODE_PORT_WREN), kBit}};
    decode.wires = {{text(A_DECODE_WIRE_MATCH), kBits}, {text(A_DECODE_WIRE_WREN), kBits}};
    decode.params = {{text(A_DECODE_ADDRESS), "2"}};

    const std::string limits = std::string("(typeVector 3 ") + kIndex + ")";
    const std::string flags = std::string("(typeVector 3 ") + kBit + ")";
    ToldBlock loop;
    loop.type = &A_LOOP_BLOCK;
    loop.ports = {{text(A_LOOP_PORT_GO), kBit}, {text(A_LOOP_PORT_ENABLE), kBit}, {text(A_LOOP_PORT_LIMIT), limits}};
    loop.wires = {{text(A_LOOP_WIRE_VALID), kBit},
                  {text(A_LOOP_WIRE_VALUE), limits},
                  {text(A_LOOP_WIRE_FIRST_ITER), flags},
                  {text(A_LOOP_WIRE_LAST_ITER), flags}};

    ToldBlock table;
    table.type = &A_LUT_BLOCK;
    table.ports = {{text(A_LUT_PORT_ADDR), kIndex}};
    table.wires = {{text(A_PRIM_WIRE_OUT), "(typeVector 2 (typeUFixed 5 0))"}};
    table.params = {{text(A_LUT_DATA), "((vectorRollTag 1 20) (vectorRollTag 3 4) (vectorRollTag 5 6))"}};

    ToldBlock complexTable = table;
    complexTable.wires = {{text(A_PRIM_WIRE_OUT), "(typeComplex (typeSFixed 4 0))"}};
    complexTable.params = {{text(A_LUT_DATA), "((complexRollTag 5 2) (complexRollTag 3 4) (complexRollTag -2 6))"}};

    return {oscillatorOfTwoSamples(), std::move(counter), std::move(sequence),     std::move(decode),
            std::move(loop),          std::move(table),   std::move(complexTable), complexOscillator()};
}

/// What only takes signals, whose types the outside tells.
ToldBlock takerOf(const StaticString &type, std::vector<ToldPin> ports, const StaticString *name = nullptr) {
    ToldBlock made;
    made.type = &type;
    made.ports = std::move(ports);
    made.name = name;
    made.isOnly = true;
    return made;
}

std::vector<ToldBlock> takers() {
    ToldBlock enable = takerOf(A_ENABLE_SINK_BLOCK, {{"0", kBit}});
    ToldBlock ready = takerOf(A_READY_BLOCK, {{"0", kBit}, {text(A_PORT_READY), kBit}});
    ready.wires = {{text(A_PRIM_WIRE_OUT), kBit}};
    return {takerOf(A_ECC_SINK_BLOCK, {{"0", kIndex}}),
            std::move(enable),
            std::move(ready),
            takerOf(A_SARNET_MM_MASTER_OUT_BLOCK, requestPins(), &A_SARNET_MM_INTERFACE_NAME),
            takerOf(A_SARNET_MM_SLAVE_OUT_BLOCK, answerPins(), &A_SARNET_MM_INTERFACE_NAME),
            takerOf(A_SARNET_ST_SOURCE_OUT_BLOCK, streamPins(kData, false), &A_SARNET_ST_INTERFACE_NAME)};
}

/// Each port has a wire of its name.
ToldBlock carrier(const StaticString &type, std::vector<ToldPin> pins) {
    ToldBlock made;
    made.type = &type;
    made.wires = pins;
    made.ports = std::move(pins);
    return made;
}

std::vector<ToldBlock> makeAll() {
    ToldBlock busSignals;
    busSignals.type = &A_BUS_SIGNALS_BLOCK;
    busSignals.ports = {{text(A_BUS_SIGNALS_PORT_DATA), kWord}, {text(A_BUS_SIGNALS_PORT_VALID), kBit}};
    busSignals.wires = {{text(A_BUS_SIGNALS_WIRE_ADDR), kAddress},
                        {text(A_BUS_SIGNALS_WIRE_DATA), kWord},
                        {text(A_BUS_SIGNALS_WIRE_WRITE_ENABLE), kBit}};
    busSignals.isOnBus = busSignals.isSingle = true;

    ToldBlock placeholder;
    placeholder.type = &A_LATENCY_PLACEHOLDER_BLOCK;
    placeholder.ports = {{"a", kData}, {"b", kByte}};
    placeholder.wires = {{"x", kByte}, {"y", kData}};
    placeholder.params = {{text(A_LATENCY_PLACEHOLDER_TYPEMAP), std::string("((x ") + kByte + ") (y " + kData + "))"}};

    ToldBlock complexPlaceholder = placeholder;
    complexPlaceholder.ports = {{"a", kComplex}, {"b", kByte}};
    complexPlaceholder.wires = {{"x", kByte}, {"y", kComplex}};
    complexPlaceholder.params = {
        {text(A_LATENCY_PLACEHOLDER_TYPEMAP), std::string("((x ") + kByte + ") (y " + kComplex + "))"}};
    ToldBlock vectors = placeholder;
    vectors.wires = {{"x", kBits}, {"y", "(typeVector 2 (typeVector 3 (typeSFixed 2 1)))"}};
    vectors.params = {
        {text(A_LATENCY_PLACEHOLDER_TYPEMAP), "((x " + vectors.wires[0].type + ") (y " + vectors.wires[1].type + "))"}};
    ToldBlock records = placeholder;
    records.wires = {{"x", "(typeAggregate (typeUFixed 3 1) (typeAggregate (typeSFixed 4 0)))"},
                     {"y", "(typeAggregate (typeVector 2 (typeSFixed 2 1)) (typeComplex (typeUFixed 3 0)))"}};
    records.params = {
        {text(A_LATENCY_PLACEHOLDER_TYPEMAP), "((x " + records.wires[0].type + ") (y " + records.wires[1].type + "))"}};

    ToldBlock table;
    table.type = &A_READ_ACCESS_LUT_BLOCK;
    table.ports = {{"0", "(typeUFixed 3 0)"}, {text(A_FFTBLOCK_PORT_READ_ACCESS), kBit}};
    table.wires = {{text(A_PRIM_WIRE_OUT), "(typeSFixed 5 1)"}};
    table.params = {{text(A_LUT_DATA), "(4 -5 0.5 7 3)"}};

    ToldBlock source = edgeBlock(A_SARNET_ST_SOURCE_BLOCK, A_SARNET_ST_INTERFACE_NAME, streamPins(kData, false),
                                 {{text(A_SARNET_ST_READY), kBit}});
    source.params = {{text(A_SARNET_ST_FIFO_SETUP), "(6 1 4)"}};

    std::vector<ToldBlock> all = {
        registerBlock(true, A_BUS_ACCESS_READ_WRITE, "(typeSFixed 4 4)", 0, 7),
        registerBlock(false, A_BUS_ACCESS_READ, "(typeSFixed 4 2)", 3, 10),
        registerBlock(true, A_BUS_ACCESS_WRITE, kByte, 4, 11),
        registerBlock(true, A_BUS_ACCESS_CONSTANT, kByte, 0, 7),
        memoryBlock(A_BUS_ACCESS_READ_WRITE, "(typeSFixed 8 2)", false),
        memoryBlock(A_BUS_ACCESS_READ, kByte, true),
        std::move(busSignals),
        edgeBlock(A_BUS_IN_BLOCK, A_SARNET_MM_INTERFACE_NAME, {}, requestPins()),
        edgeBlock(A_BUS_OUT_BLOCK, A_SARNET_MM_INTERFACE_NAME, answerPins(), {}),
        edgeBlock(A_SARNET_MM_MASTER_IN_BLOCK, A_SARNET_MM_INTERFACE_NAME, {}, answerPins()),
        edgeBlock(A_SARNET_MM_SLAVE_IN_BLOCK, A_SARNET_MM_INTERFACE_NAME, {}, requestPins()),
        edgeBlock(A_SARNET_ST_SINK_IN_BLOCK, A_SARNET_ST_INTERFACE_NAME, {}, streamPins(kData, false)),
        edgeBlock(A_SARNET_ST_SINK_BLOCK, A_SARNET_ST_INTERFACE_NAME, {{text(A_SARNET_ST_READY), kBit}},
                  streamPins(kData, false)),
        std::move(source),
        outsideMemory(A_EXTMEM_READ_BLOCK, false),
        outsideMemory(A_EXTMEM_WRITE_BLOCK, true),
        oscillator(false),
        oscillator(true),
        std::move(placeholder),
        std::move(complexPlaceholder),
        std::move(vectors),
        std::move(records),
        std::move(table),
        carrier(A_STALLVALID_CONNECTOR_BLOCK, {{"a", kBit}, {"b", kBit}}),
        carrier(A_AXI4_STREAM_RECEIVER_BLOCK, {{"data", kData}, {"valid", kBit}}),
        carrier(A_AXI4_STREAM_TRANSMITTER_BLOCK, {{"data", kByte}, {"valid", kBit}}),
    };
    for (auto part : {compoundBlocks, takers}) {
        for (ToldBlock &block : part()) {
            all.push_back(std::move(block));
        }
    }
    return all;
}

} // namespace

const std::vector<ToldBlock> &toldBlocks() {
    static const std::vector<ToldBlock> blocks = makeAll();
    return blocks;
}

} // namespace orvo::gen
