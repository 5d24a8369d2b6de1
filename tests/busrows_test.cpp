// Registers and memories on a bus, against a host's view of them.
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"

namespace orvo::sim {
namespace {

using test::Numbers;
using ByName = std::map<std::string, std::int64_t>;

class BusRowsTest : public test::SimulatorFixture {
  protected:
    void setWidths(Design &design, const char *address, const char *data) {
        design.setParam(A_SYNTH_BUS_ADDR_WIDTH, ValueRef(value(address)));
        design.setParam(A_SYNTH_BUS_DATA_WIDTH, ValueRef(value(data)));
    }
    Block &reg(Model &model, const char *name, bool isInput, const char *address, const char *mode, const char *low,
               const char *high, const char *type) {
        Block &made = block(model, name, "SMMregisterBlock",
                            {{"SMMregisterType", isInput ? "SMMregisterTypeInput" : "SMMregisterTypeOutput"},
                             {"busBaseAddr", address},
                             {"busAccessMode", mode},
                             {"SMMregisterLSBit", low},
                             {"SMMregisterMSBit", high},
                             {"SMMregisterOutType", type}});
        return made;
    }
    Wire &fieldOf(Block &made, const char *type) { return pinned(*Wire::create(made, A_MM_REGISTER_WIRE_DATA), type); }
    /// A cycle of the bus, and other inputs.
    static ByName cycle(Simulator &simulator, std::int64_t address, bool write, std::int64_t data, bool read,
                        ByName others = {}) {
        others.insert({{"sarnetMMAddress", address},
                       {"sarnetMMWrite", write},
                       {"sarnetMMWriteData", data},
                       {"sarnetMMRead", read}});
        return stepByName(simulator, others);
    }
};

const char *const kData = "sarnetMMReadData";
const char *const kValid = "sarnetMMReadDataValid";

TEST_F(BusRowsTest, keepTheFieldsOfOneAddressInOneWord) {
    Design design(mgr.context());
    setWidths(design, "4", "16");
    Model &top = *Model::create(design, "top");
    Block &low = reg(top, "low", true, "5", "busAccessReadWrite", "0", "3", "(typeSFixed 2 2)");
    Block &high = reg(top, "high", true, "5", "busAccessWrite", "6", "11", "(typeUFixed 6 0)");
    low.setParam(A_MM_REGISTER_INITIAL_VALUE, ValueRef(value("-0x3p-2")));
    high.setParam(A_MM_REGISTER_INITIAL_VALUE, ValueRef(value("33")));
    output(top, "low", fieldOf(low, "s2.2"));
    output(top, "high", fieldOf(high, "u6.0"));
    Simulator simulator(design, top);
    test::Chance random(5);
    // -0.75 is -3 quarters.
    std::int64_t word = (-3 & 15) | 33 << 6;
    for (int i = 0; i < 500; ++i) {
        const std::int64_t address = random() % 2 == 0 ? 5 : random() % 16;
        const bool write = random() % 3 == 0;
        const bool read = random() % 2 == 0;
        const std::int64_t data = random() % 65536;
        const std::int64_t bits = word & 15;
        const bool answers = read && address == 5;
        EXPECT_EQ(cycle(simulator, address, write, data, read), (ByName{{"low", bits < 8 ? bits : bits - 16},
                                                                        {"high", word >> 6 & 63},
                                                                        {kData, answers ? word : 0},
                                                                        {kValid, answers},
                                                                        {"sarnetMMWaitRequest", 0}}))
            << i;
        word = write && address == 5 ? data : word;
    }
    simulator.reset();
    EXPECT_EQ(cycle(simulator, 5, false, 0, true).at(kData), (-3 & 15) | 33 << 6);
}

TEST_F(BusRowsTest, showTheBusWhatTheDesignWrites) {
    Design design(mgr.context());
    setWidths(design, "4", "16");
    Model &top = *Model::create(design, "top");
    Block &a = reg(top, "a", false, "2", "busAccessRead", "0", "7", "(typeSFixed 5 0)");
    Block &b = reg(top, "b", false, "2", "busAccessRead", "8", "12", "(typeUFixed 5 0)");
    Block &c = reg(top, "c", false, "3", "busAccessRead", "0", "15", "(typeUFixed 16 0)");
    a.setParam(A_MM_REGISTER_PORT_DATA, input(top, "a", "s5.0"));
    a.setParam(A_MM_REGISTER_PORT_WRITE_ENABLE, input(top, "enableA", "u1.0"));
    b.setParam(A_MM_REGISTER_PORT_DATA, input(top, "b", "u5.0"));
    b.setParam(A_MM_REGISTER_PORT_WRITE_ENABLE, input(top, "enableB", "u1.0"));
    // Without an enable the design writes in every cycle.
    c.setParam(A_MM_REGISTER_PORT_DATA, input(top, "c", "u16.0"));
    Simulator simulator(design, top);
    // Nothing here is written by the bus.
    ASSERT_EQ(simulator.inputs().size(), 7U);
    test::Chance random(6);
    std::int64_t word = 0;
    std::int64_t last = 0;
    for (int i = 0; i < 500; ++i) {
        const std::int64_t address = random() % 5;
        const bool read = random() % 4 != 0;
        const ByName in{{"a", random() % 32 - 16}, {"enableA", random() % 2}, {"b", random() % 32},
                        {"enableB", random() % 2}, {"c", random() % 65536},   {"sarnetMMAddress", address},
                        {"sarnetMMRead", read}};
        const auto out = stepByName(simulator, in);
        const bool answers = read && (address == 2 || address == 3);
        EXPECT_EQ(out.at(kValid), answers);
        EXPECT_EQ(out.at(kData), !answers ? 0 : address == 2 ? word : last) << i;
        if ((in.at("enableA") | in.at("enableB")) != 0) {
            // A signed value fills its field with its sign.
            word = (in.at("enableA") != 0 ? in.at("a") & 255 : 0) | (in.at("enableB") != 0 ? in.at("b") << 8 : 0);
        }
        last = in.at("c");
    }
}

TEST_F(BusRowsTest, computeWhatADecoderAroundARegisterDoes) {
    Design before(mgr.context());
    setWidths(before, "4", "16");
    Model &top = *Model::create(before, "top");
    Block &field = reg(top, "field", true, "9", "busAccessReadWrite", "4", "9", "(typeSFixed 6 0)");
    field.setParam(A_MM_REGISTER_INITIAL_VALUE, ValueRef(value("-5")));
    output(top, "y", fieldOf(field, "s6.0"));

    Design after(mgr.context());
    Model &logic = *Model::create(after, "top");
    Block &bus = block(logic, "bus", "busInBlock");
    Block &answers = block(logic, "answers", "busOutBlock");
    const auto of = [&](const StaticString &signal, const char *type) -> Wire & {
        return pinned(*Wire::create(bus, signal), type);
    };
    const auto constant = [&](const char *name, const char *number, const char *type) -> Wire & {
        return *Wire::create(block(logic, name, "constBlock", {{"constValue", number}, {"constType", type}}),
                             A_PRIM_WIRE_OUT);
    };
    const auto gate = [&](const char *name, const char *type, Wire &a, Wire &b) -> Wire & {
        Block &made = block(logic, name, type);
        made.setParam(value("0"), a);
        made.setParam(value("1"), b);
        return *Wire::create(made, A_PRIM_WIRE_OUT);
    };
    Wire &hit = gate("hit", "cmpEqBlock", constant("addr", "9", "(typeUFixed 4 0)"), of(A_SARNET_MM_ADDRESS, "u4.0"));
    Wire &readHit = gate("readHit", "andBlock", hit, of(A_SARNET_MM_READ, "u1.0"));
    Wire &writeHit = gate("writeHit", "andBlock", hit, of(A_SARNET_MM_WRITE, "u1.0"));
    Block &held = block(logic, "mm_reg", "registerBlock", {{"registerInitValue", "944"}});
    held.setParam(value("0"), of(A_SARNET_MM_WRITEDATA, "u16.0"));
    held.setParam(A_REGISTER_PORT_ENABLE, writeHit);
    Wire &word = *Wire::create(held, A_PRIM_WIRE_OUT);
    Block &bits = block(logic, "bitsel", "bitSelectBlock",
                        {{"bitSelectBitOffset", "4"}, {"bitSelectOutputType", "(typeUFixed 6 0)"}});
    bits.setParam(value("0"), word);
    Block &cast =
        block(logic, "cast", "castBlock", {{"castMode", "castModeReinterp"}, {"castOutputType", "(typeSFixed 6 0)"}});
    cast.setParam(value("0"), *Wire::create(bits, A_PRIM_WIRE_OUT));
    output(logic, "y", *Wire::create(cast, A_PRIM_WIRE_OUT));
    Block &selector = block(logic, "bus_selector", "selectBlock");
    selector.setParam(A_SELECT_PORT_DEFAULT_DATA, constant("bus_zero", "0", "(typeUFixed 16 0)"));
    selector.setParam(value("(selectPortkeyCtrl 0)"), readHit);
    selector.setParam(value("(selectPortkeyData 0)"), word);
    answers.setParam(A_SARNET_MM_READDATA, *Wire::create(selector, A_PRIM_WIRE_OUT));
    answers.setParam(A_SARNET_MM_READDATAVALID, *Wire::create(selector, A_SELECT_WIRE_VALID));
    answers.setParam(A_SARNET_MM_WAITREQUEST, constant("waitReq_zero", "0", "(typeUFixed 1 0)"));
    test::expectSameBehaviour(before, after, "top");
}

TEST_F(BusRowsTest, keepFieldsOfFloatsAsPatterns) {
    Design design(mgr.context());
    setWidths(design, "4", "32");
    Model &top = *Model::create(design, "top");
    Block &made = block(top, "gain", "SMMregisterBlock",
                        {{"SMMregisterType", "SMMregisterTypeInput"},
                         {"busBaseAddr", "0"},
                         {"busAccessMode", "busAccessReadWrite"},
                         {"SMMregisterInitValue", "0x3p-1"}});
    output(top, "gain", fieldOf(made, "float(23,8)"));
    Simulator simulator(design, top);
    const auto out = cycle(simulator, 0, true, 0x40490fdb, true);
    EXPECT_EQ(out.at("gain"), 0x3fc00000);
    EXPECT_EQ(out.at(kData), 0x3fc00000);
    EXPECT_EQ(cycle(simulator, 0, false, 0, false).at("gain"), 0x40490fdb);
}

TEST_F(BusRowsTest, giveConstantsWithoutABus) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &some = block(top, "some", "SMMregisterBlock",
                        {{"busAccessMode", "busAccessConstant"}, {"SMMregisterInitValue", "-3"}});
    Block &none = block(top, "none", "SMMregisterBlock", {{"busAccessMode", "busAccessConstant"}});
    output(top, "some", fieldOf(some, "s8.1"));
    output(top, "none", fieldOf(none, "s8.1"));
    Simulator simulator(design, top);
    EXPECT_TRUE(simulator.inputs().empty());
    EXPECT_EQ(stepByName(simulator, {}), (ByName{{"some", -6}, {"none", 0}}));
}

TEST_F(BusRowsTest, reachRegistersInAllModelsOfAnInterface) {
    Design design(mgr.context());
    setWidths(design, "4", "8");
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    top.setParam(A_SARNET_MM_INTERFACE_NAME, ValueRef(value("host")));
    Block &inner = reg(below, "inner", true, "1", "busAccessReadWrite", "0", "7", "(typeUFixed 8 0)");
    output(below, "o", fieldOf(inner, "u8.0"));
    for (const char *name : {"a", "b"}) {
        Block &made = *Block::create(top, name, A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, below);
        output(top, name, *Wire::create(made, "o"));
    }
    Simulator simulator(design, top);
    const auto step = [&](std::int64_t data, bool write) {
        return stepByName(simulator, {{"(host sarnetMMAddress)", 1},
                                      {"(host sarnetMMWrite)", write},
                                      {"(host sarnetMMWriteData)", data},
                                      {"(host sarnetMMRead)", 1}});
    };
    step(9, true);
    const auto out = step(0, false);
    EXPECT_EQ(out.at("a"), 9);
    EXPECT_EQ(out.at("b"), 9);
    EXPECT_EQ(out.at("(host sarnetMMReadData)"), 9);
}

TEST_F(BusRowsTest, shareAMemoryBetweenTheDesignAndTheBus) {
    Design design(mgr.context());
    setWidths(design, "6", "16");
    Model &top = *Model::create(design, "top");
    Block &memory = block(top, "memory", "sharedMemBlock",
                          {{"busBaseAddr", "10"},
                           {"busAccessMode", "busAccessReadWrite"},
                           {"sharedMemSize", "5"},
                           {"sharedMemInitialData", "(1 -2 3)"},
                           {"sharedMemOutputType", "(typeSFixed 12 0)"}});
    memory.setParam(A_SHARED_MEM_PORT_ADDR, input(top, "address", "u3.0"));
    memory.setParam(A_SHARED_MEM_PORT_DATA, input(top, "data", "s12.0"));
    memory.setParam(A_SHARED_MEM_PORT_WRITE_ENABLE, input(top, "write", "u1.0"));
    memory.setParam(A_SHARED_MEM_PORT_READ, input(top, "read", "u1.0"));
    output(top, "y", pinned(*Wire::create(memory, A_SHARED_MEM_WIRE_DATA), "s12.0"));
    Simulator simulator(design, top);
    Numbers content{1, -2, 3, 0, 0};
    std::int64_t shown = 0;
    test::Chance random(7);
    for (int i = 0; i < 2000; ++i) {
        const std::int64_t place = random() % 8;
        const bool takes = random() % 3 == 0;
        const bool looks = random() % 3 != 0;
        const std::int64_t data = random() % 4096 - 2048;
        // One below and one beyond the memory as well.
        const std::int64_t address = 9 + random() % 7;
        const bool write = random() % 3 == 0;
        const bool read = random() % 2 == 0;
        const std::int64_t word = random() % 65536;
        const auto out = cycle(simulator, address, write, word, read,
                               {{"address", place}, {"data", data}, {"write", takes}, {"read", looks}});
        const std::int64_t at = address - 10;
        const bool hits = at >= 0 && at < 5;
        shown = !looks ? shown : place < 5 ? content[static_cast<std::size_t>(place)] : 0;
        EXPECT_EQ(out.at("y"), shown) << i;
        EXPECT_EQ(out.at(kValid), hits && read) << i;
        EXPECT_EQ(out.at(kData), hits && read ? content[static_cast<std::size_t>(at)] & 0xffff : 0) << i;
        const std::int64_t low = word & 4095;
        const std::int64_t fromBus = low < 2048 ? low : low - 4096;
        const bool designWrites = takes && place < 5;
        const bool busWrites = write && hits;
        if (designWrites) {
            content[static_cast<std::size_t>(place)] = data;
        }
        if (busWrites) {
            // What both write in one cycle is not known.
            content[static_cast<std::size_t>(at)] = designWrites && place == at ? 0 : fromBus;
        }
    }
}

TEST_F(BusRowsTest, joinSlicesOfOneWord) {
    Design design(mgr.context());
    setWidths(design, "4", "16");
    Model &top = *Model::create(design, "top");
    const auto slice = [&](const char *name, const char *low, const char *type, const char *data) -> Block & {
        Block &made = block(top, name, "sharedMemBlock",
                            {{"busBaseAddr", "4"},
                             {"busAccessMode", "busAccessReadWrite"},
                             {"sharedMemSize", "2"},
                             {"sharedMemSlice", "true"},
                             {"sharedMemLSB", low},
                             {"sharedMemOutputType", type},
                             {"sharedMemInitialData", data}});
        made.setParam(A_SHARED_MEM_PORT_ADDR, input(top, name, "u1.0"));
        return made;
    };
    Block &a = slice("a", "0", "(typeSFixed 4 0)", "(-1 2)");
    Block &b = slice("b", "6", "(typeUFixed 5 0)", "(21 7)");
    output(top, "x", *Wire::create(a, A_SHARED_MEM_WIRE_DATA));
    output(top, "y", *Wire::create(b, A_SHARED_MEM_WIRE_DATA));
    for (Block *made : {&a, &b}) {
        Wire &wire = *made->getWire(A_SHARED_MEM_WIRE_DATA);
        pinned(wire, made == &a ? "s4.0" : "u5.0");
    }
    Simulator simulator(design, top);
    EXPECT_EQ(cycle(simulator, 4, true, 9 | 30 << 6, true).at(kData), 15 | 21 << 6);
    EXPECT_EQ(cycle(simulator, 4, false, 0, true).at(kData), 9 | 30 << 6);
    const auto out = cycle(simulator, 5, false, 0, true, {{"a", 0}, {"b", 1}});
    EXPECT_EQ(out.at(kData), 2 | 7 << 6);
    EXPECT_EQ(out.at("x"), -7);
    EXPECT_EQ(out.at("y"), 7);
    EXPECT_EQ(cycle(simulator, 6, false, 0, true).at(kValid), 0);
    a.setParam(value("sharedMemSlice"), nullptr);
    EXPECT_EQ(refusal(design, top), "another memory has some of its addresses on the bus top/b");
}

TEST_F(BusRowsTest, findElementsByAListOfAddresses) {
    Design design(mgr.context());
    setWidths(design, "8", "8");
    Model &top = oneBlock(design, "sharedMemBlock", {{"sharedMemPortAddr", "u2.0"}}, {{"sharedMemWireData", "u8.0"}},
                          {{"busAccessMode", "busAccessRead"},
                           {"sharedMemSize", "3"},
                           {"sharedMemAddrMap", "(7 200 3)"},
                           {"sharedMemInitialData", "(11 12 13)"}});
    Simulator simulator(design, top);
    const std::map<std::int64_t, std::int64_t> entries{{7, 11}, {200, 12}, {3, 13}};
    for (std::int64_t address = 0; address < 256; ++address) {
        const auto out = stepByName(simulator, {{"sarnetMMAddress", address}, {"sarnetMMRead", 1}});
        const auto at = entries.find(address);
        EXPECT_EQ(out.at(kValid), at != entries.end()) << address;
        EXPECT_EQ(out.at(kData), at == entries.end() ? 0 : at->second) << address;
    }
}

TEST_F(BusRowsTest, letAPlainViewOfTheBusAnswerAsWell) {
    Design design(mgr.context());
    setWidths(design, "4", "8");
    Model &top = *Model::create(design, "top");
    Block &made = reg(top, "reg", true, "1", "busAccessReadWrite", "0", "7", "(typeUFixed 8 0)");
    made.setParam(A_MM_REGISTER_INITIAL_VALUE, ValueRef(value("5")));
    Block &view = block(top, "view", "busSignalsBlock");
    view.setParam(A_BUS_SIGNALS_PORT_DATA, input(top, "data", "u8.0"));
    view.setParam(A_BUS_SIGNALS_PORT_VALID, input(top, "valid", "u1.0"));
    output(top, "address", pinned(*Wire::create(view, A_BUS_SIGNALS_WIRE_ADDR), "u4.0"));
    Simulator simulator(design, top);
    const auto one = cycle(simulator, 1, false, 0, true, {{"data", 9}, {"valid", 0}});
    EXPECT_EQ(one.at(kData), 5);
    EXPECT_EQ(one.at("address"), 1);
    const auto other = cycle(simulator, 2, false, 0, true, {{"data", 9}, {"valid", 1}});
    EXPECT_EQ(other.at(kData), 9);
    EXPECT_EQ(other.at(kValid), 1);
}

TEST_F(BusRowsTest, showTheBusUnderPlainNames) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "busSignalsBlock", {{"busSignalsPortData", "u16.0"}, {"busSignalsPortValid", "u1.0"}},
                 {{"busSignalsWireAddr", "u4.0"}, {"busSignalsWireData", "u16.0"}, {"busSignalsWireWriteEn", "u1.0"}},
                 {{"sarnetMMInterfaceName", "b"}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepByName(simulator, {{"busSignalsPortData", 1},
                                     {"busSignalsPortValid", 0},
                                     {"(b sarnetMMAddress)", 2},
                                     {"(b sarnetMMWriteData)", 3},
                                     {"(b sarnetMMWrite)", 1}}),
              (ByName{{"busSignalsWireAddr", 2},
                      {"busSignalsWireData", 3},
                      {"busSignalsWireWriteEn", 1},
                      {"(b sarnetMMReadData)", 1},
                      {"(b sarnetMMReadDataValid)", 0}}));
}

TEST_F(BusRowsTest, refuseWhatDoesNotFitTheBus) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &made = reg(top, "reg", true, "1", "busAccessRead", "0", "7", "(typeUFixed 8 0)");
    EXPECT_EQ(refusal(design, top), "the design gives no 'synthBusAddrWidth' for the bus top/reg");
    setWidths(design, "4", "8");
    EXPECT_EQ(refusal(design, top), "");
    made.setParam(A_MM_REGISTER_MSB, ValueRef(value("8")));
    EXPECT_EQ(refusal(design, top), "the field does not lie in a word of the bus top/reg");
    made.setParam(A_MM_REGISTER_MSB, ValueRef(value("7")));
    Block &other = reg(top, "second", false, "1", "busAccessRead", "0", "7", "(typeUFixed 8 0)");
    EXPECT_EQ(refusal(design, top), "an input and an output of the design share an address top/second");
    other.setParam(A_MM_REGISTER_TYPE, nullptr);
    EXPECT_EQ(refusal(design, top), "the register is neither an input nor an output of the design top/second");
    other.setParam(A_BUS_BASE_ADDR, nullptr);
    EXPECT_EQ(refusal(design, top), "the block has no address on the bus top/second");
    delete &other;
    for (const char *type : {"(typeUFixed 4 0)", "(typeUFixed 9 0)"}) {
        Block &memory = block(top, "memory", "sharedMemBlock",
                              {{"busBaseAddr", "4"}, {"sharedMemSize", "2"}, {"sharedMemOutputType", type}});
        EXPECT_NE(refusal(design, top).find("on a bus of 8 have no meaning here top/memory"), std::string::npos);
        delete &memory;
    }
}

} // namespace
} // namespace orvo::sim
