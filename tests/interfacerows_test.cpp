// The border of a design: what comes from outside and goes there, adapters of streams, memories outside.
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"

#include <deque>

namespace orvo::sim {
namespace {

using test::Numbers;
using ByName = std::map<std::string, std::int64_t>;

class InterfaceRowsTest : public test::SimulatorFixture {
  protected:
    static std::vector<std::string> namesOf(const std::vector<Scalar> &scalars) {
        std::vector<std::string> names;
        for (const Scalar &scalar : scalars) {
            names.push_back(scalar.name);
        }
        return names;
    }
};

TEST_F(InterfaceRowsTest, giveMarkersTheirSignalsFromOutside) {
    for (const auto &[in, out] :
         {std::pair("busInBlock", "busOutBlock"), std::pair("sarnetMMSlaveInBlock", "sarnetMMSlaveOutBlock"),
          std::pair("sarnetMMMasterInBlock", "sarnetMMMasterOutBlock")}) {
        Design design(mgr.context());
        Model &top = *Model::create(design, "top");
        Block &from = block(top, "from", in, {{"sarnetMMInterfaceName", "bus"}});
        Block &again = block(top, "again", in, {{"sarnetMMInterfaceName", "bus"}});
        Block &to = block(top, "to", out, {{"sarnetMMInterfaceName", "bus"}});
        to.setParam(A_SARNET_MM_READDATA, pinned(*Wire::create(from, A_SARNET_MM_WRITEDATA), "u8.0"));
        output(top, "same", pinned(*Wire::create(again, A_SARNET_MM_WRITEDATA), "u8.0"));
        Simulator simulator(design, top);
        EXPECT_EQ(namesOf(simulator.inputs()), (std::vector<std::string>{"(bus sarnetMMWriteData)"}));
        EXPECT_EQ(stepByName(simulator, {{"(bus sarnetMMWriteData)", 77}}),
                  (ByName{{"(bus sarnetMMReadData)", 77}, {"same", 77}}));
        // One signal has one driver and one type.
        Block &second = block(top, "second", out, {{"sarnetMMInterfaceName", "bus"}});
        second.setParam(A_SARNET_MM_READDATA, *to.getPort(A_SARNET_MM_READDATA)->peekWire());
        EXPECT_EQ(refusal(design, top), "'(bus sarnetMMReadData)' has two drivers top/second top/to");
        delete &second;
        Block &other = block(top, "other", in, {{"sarnetMMInterfaceName", "bus"}});
        output(top, "wide", pinned(*Wire::create(other, A_SARNET_MM_WRITEDATA), "u9.0"));
        EXPECT_NE(refusal(design, top).find("'(bus sarnetMMWriteData)' comes from outside with two types"),
                  std::string::npos);
    }
}

TEST_F(InterfaceRowsTest, nameAnInterfaceByTheModelWhereTheBlockHasNoName) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &from = block(top, "from", "busInBlock");
    output(top, "y", pinned(*Wire::create(from, A_SARNET_MM_ADDRESS), "u8.0"));
    EXPECT_EQ(namesOf(Simulator(design, top).inputs()), (std::vector<std::string>{"sarnetMMAddress"}));
    top.setParam(A_SARNET_MM_INTERFACE_NAME, ValueRef(value("host")));
    EXPECT_EQ(namesOf(Simulator(design, top).inputs()), (std::vector<std::string>{"(host sarnetMMAddress)"}));
}

TEST_F(InterfaceRowsTest, giveStreamMarkersTheirSignalsFromOutside) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &in = block(top, "in stream", "sarnetSTSinkInBlock", {{"sarnetSTInterfaceName", "s"}});
    Block &ready = block(top, "ready", "sarnetSTSinkOutBlock", {{"sarnetSTInterfaceName", "s"}});
    Block &out = block(top, "out stream", "sarnetSTSourceOutBlock", {{"sarnetSTInterfaceName", "t"}});
    Block &back = block(top, "back", "sarnetSTSourceInBlock", {{"sarnetSTInterfaceName", "t"}});
    out.setParam(A_SARNET_ST_DATA, pinned(*Wire::create(in, A_SARNET_ST_DATA), "s8.0"));
    ready.setParam(A_SARNET_ST_READY, pinned(*Wire::create(back, A_SARNET_ST_READY), "u1.0"));
    Simulator simulator(design, top);
    EXPECT_EQ(stepByName(simulator, {{"(s sarnetSTData)", -4}, {"(t sarnetSTReady)", 1}}),
              (ByName{{"(t sarnetSTData)", -4}, {"(s sarnetSTReady)", 1}}));
}

TEST_F(InterfaceRowsTest, areReadyWhileAllConditionsHold) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "readyBlock", {{"0", "u1.0"}, {"portReady", "u2.0"}}, {{"primWireOut", ""}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepByName(simulator, {{"0", 1}, {"portReady", 2}}).at("primWireOut"), 1);
    EXPECT_EQ(stepByName(simulator, {{"0", 0}, {"portReady", 1}}).at("primWireOut"), 0);
    EXPECT_EQ(stepByName(simulator, {{"0", 1}, {"portReady", 0}}).at("primWireOut"), 0);
    Design free(mgr.context());
    Model &always = oneBlock(free, "readyBlock", {}, {{"primWireOut", ""}});
    Simulator alone(free, always);
    EXPECT_EQ(stepWith(alone, {}), (Numbers{1}));
}

TEST_F(InterfaceRowsTest, carryAxiStreamsByName) {
    for (const char *type : {"axi4StreamReceiverBlock", "axi4StreamTransmitterBlock"}) {
        Design design(mgr.context());
        Model &top =
            oneBlock(design, type, {{"data", "s8.0"}, {"valid", "u1.0"}}, {{"data", "s8.0"}, {"valid", "u1.0"}});
        Simulator simulator(design, top);
        EXPECT_EQ(stepWith(simulator, {-3, 1}), (Numbers{-3, 1})) << type;
    }
}

/// Ports and wires of a streaming block.
const char *const kData = "sarnetSTData";
const char *const kChannel = "sarnetSTChannel";
const char *const kStart = "sarnetSTStartOfPacket";
const char *const kEnd = "sarnetSTEndOfPacket";
const char *const kValid = "sarnetSTValid";
const char *const kReady = "sarnetSTReady";

TEST_F(InterfaceRowsTest, sourcesQueueUntilTheReceiverIsReady) {
    Design design(mgr.context());
    Model &top = oneBlock(
        design, "sarnetSTSourceBlock",
        {{kData, "s8.0"}, {kChannel, "u4.0"}, {kStart, "u1.0"}, {kEnd, "u1.0"}, {kValid, "u1.0"}, {kReady, "u1.0"}},
        {{kData, "s8.0"}, {kChannel, "u4.0"}, {kStart, "u1.0"}, {kEnd, "u1.0"}, {kValid, "u1.0"}, {kReady, "u1.0"}},
        {{"sarnetSTFIFOsetup", "(8 1 5)"}});
    Simulator simulator(design, top);
    std::deque<Numbers> queue;
    test::Chance random(21);
    int lost = 0;
    int held = 0;
    for (int cycle = 0; cycle < 3000; ++cycle) {
        const bool heeds = cycle < 2000;
        const bool ready = cycle / 30 % 2 == 0 ? random() % 4 != 0 : random() % 4 == 0;
        // A sender that heeds ready; later one that does not.
        const bool valid = (queue.size() < 5 || !heeds) && random() % 2 == 0;
        const Numbers entry{static_cast<std::int8_t>(random()), random() % 16, random() % 2, random() % 2};
        const auto out = stepByName(simulator, {{kData, entry[0]},
                                                {kChannel, entry[1]},
                                                {kStart, entry[2]},
                                                {kEnd, entry[3]},
                                                {kValid, valid},
                                                {kReady, ready}});
        EXPECT_EQ(out.at(kReady), queue.size() < 5 ? 1 : 0) << cycle;
        EXPECT_EQ(out.at(kValid), ready && !queue.empty() ? 1 : 0) << cycle;
        const Numbers shown{out.at(kData), out.at(kChannel), out.at(kStart), out.at(kEnd)};
        EXPECT_EQ(shown, queue.empty() ? Numbers(4, 0) : queue.front()) << cycle;
        const bool isFull = queue.size() == 8;
        held += queue.size() >= 5 ? 1 : 0;
        if (ready && !queue.empty()) {
            queue.pop_front();
        }
        if (valid && isFull) {
            ++lost;
            EXPECT_FALSE(heeds);
        } else if (valid) {
            queue.push_back(entry);
        }
    }
    EXPECT_GT(lost, 10);
    EXPECT_GT(held, 100);
}

TEST_F(InterfaceRowsTest, sourcesComputeWhatAQueueForEachSignalDoes) {
    const Texts inputs{{kData, "s8.0"}, {kChannel, "u4.0"}, {kStart, "u1.0"},
                       {kEnd, "u1.0"},  {kValid, "u1.0"},   {kReady, "u1.0"}};
    Design before(mgr.context());
    oneBlock(before, "sarnetSTSourceBlock", inputs, inputs, {{"sarnetSTFIFOsetup", "(6 1 3)"}});
    Design after(mgr.context());
    Model &top = *Model::create(after, "top");
    std::map<std::string, Wire *> in;
    for (const auto &[name, type] : inputs) {
        in[name] = &input(top, name, type);
    }
    Block &moves = block(top, "rdyAndV", "andBlock");
    // Types do not find their way around the loop of queue and acknowledge by themselves.
    Wire &acknowledge = pinned(*Wire::create(moves, A_PRIM_WIRE_OUT), "u1.0");
    for (const char *name : {kData, kChannel, kStart, kEnd}) {
        Block &queue = block(top, std::string(name) + "FIFO", "fifoBlock",
                             {{"fifoDepth", "6"}, {"fifoLowThreshold", "1"}, {"fifoHighThreshold", "3"}});
        queue.setParam(A_FIFO_PORT_DATA, *in[name]);
        queue.setParam(A_FIFO_PORT_WRITE_EN, *in[kValid]);
        queue.setParam(A_FIFO_PORT_READ_ACK, acknowledge);
        output(top, name, *Wire::create(queue, A_FIFO_WIRE_DATA));
    }
    Block &data = *top.getBlock(value(std::string(kData) + "FIFO"));
    moves.setParam(value("0"), *in[kReady]);
    moves.setParam(value("1"), *Wire::create(data, A_FIFO_WIRE_VALID));
    Block &invert = block(top, "not", "notBlock");
    invert.setParam(value("0"), *Wire::create(data, A_FIFO_WIRE_HIGH));
    output(top, kReady, *Wire::create(invert, A_PRIM_WIRE_OUT));
    output(top, kValid, acknowledge);
    test::expectSameBehaviour(before, after, "top");
}

TEST_F(InterfaceRowsTest, sourcesGoOutsideWhereTheBlockHasNoWires) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "sarnetSTSourceBlock", {{kData, "s8.0"}, {kValid, "u1.0"}}, {{kReady, "u1.0"}},
                          {{"sarnetSTFIFOsetup", "(4 0 2)"}, {"sarnetSTInterfaceName", "o"}});
    Simulator simulator(design, top);
    const auto step = [&](std::int64_t data, bool valid, bool ready) {
        return stepByName(simulator, {{kData, data}, {kValid, valid}, {"(o sarnetSTReady)", ready}});
    };
    step(5, true, true);
    EXPECT_EQ(step(6, true, false), (ByName{{kReady, 1}, {"(o sarnetSTData)", 5}, {"(o sarnetSTValid)", 0}}));
    EXPECT_EQ(step(0, false, true), (ByName{{kReady, 0}, {"(o sarnetSTData)", 5}, {"(o sarnetSTValid)", 1}}));
    EXPECT_EQ(step(0, false, true), (ByName{{kReady, 1}, {"(o sarnetSTData)", 6}, {"(o sarnetSTValid)", 1}}));
    top.getBlock(value("block"))->setParam(A_SARNET_ST_FIFO_SETUP, ValueRef(value("(4 0)")));
    EXPECT_EQ(refusal(design, top), "the set-up of the queue is no tuple of depth, low and high threshold top/block");
}

TEST_F(InterfaceRowsTest, sinksLoseNothingFromASenderThatHeedsReadyTwoCyclesLate) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "sarnetSTSinkBlock",
                          {{kData, "s16.0"}, {kChannel, "u4.0"}, {kValid, "u1.0"}, {kReady, "u1.0"}},
                          {{kData, "s16.0"}, {kChannel, "u4.0"}, {kValid, "u1.0"}, {kReady, "u1.0"}});
    Simulator simulator(design, top);
    test::Chance random(31);
    bool was[] = {true, true};
    std::int64_t next = 0;
    std::int64_t expected = 0;
    for (int cycle = 0; cycle < 5000; ++cycle) {
        const bool ready = cycle / 64 % 2 == 0 ? random() % 3 != 0 : random() % 3 == 0;
        const bool valid = was[0] && (cycle / 200 % 2 == 0 || random() % 2 == 0);
        const auto out = stepByName(
            simulator,
            {{kData, valid ? next : -1}, {kChannel, valid ? next % 16 : 0}, {kValid, valid}, {kReady, ready}});
        next += valid ? 1 : 0;
        EXPECT_EQ(out.at(kReady), ready ? 1 : 0);
        // What was sent and not taken is shown at once, as soon as the receiver is ready.
        EXPECT_EQ(out.at(kValid), ready && expected < next ? 1 : 0) << cycle;
        if (out.at(kValid) != 0) {
            EXPECT_EQ(out.at(kData), expected) << cycle;
            EXPECT_EQ(out.at(kChannel), expected % 16) << cycle;
            ++expected;
        }
        was[0] = was[1];
        was[1] = ready;
    }
    EXPECT_GT(expected, 1500);
    EXPECT_LE(next - expected, 2);
}

TEST_F(InterfaceRowsTest, sinksReadFromOutsideWhereTheBlockHasNoPorts) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "sarnetSTSinkBlock", {{kReady, "u1.0"}}, {{kData, "s8.0"}, {kValid, "u1.0"}},
                          {{"sarnetSTInterfaceName", "i"}});
    Simulator simulator(design, top);
    const auto step = [&](std::int64_t data, bool valid, bool ready) {
        return stepByName(simulator, {{"(i sarnetSTData)", data}, {"(i sarnetSTValid)", valid}, {kReady, ready}});
    };
    EXPECT_EQ(step(4, true, true), (ByName{{kData, 4}, {kValid, 1}, {"(i sarnetSTReady)", 1}}));
    // Ready falls in the very cycle in which a datum comes.
    EXPECT_EQ(step(5, true, false), (ByName{{kData, 5}, {kValid, 0}, {"(i sarnetSTReady)", 0}}));
    EXPECT_EQ(step(9, false, false), (ByName{{kData, 5}, {kValid, 0}, {"(i sarnetSTReady)", 0}}));
    EXPECT_EQ(step(9, false, true), (ByName{{kData, 5}, {kValid, 1}, {"(i sarnetSTReady)", 1}}));
    EXPECT_EQ(step(9, false, true).at(kValid), 0);
}

TEST_F(InterfaceRowsTest, writeToAMemoryOutsideThroughRegistersThatWait) {
    Design design(mgr.context());
    Model &top = oneBlock(
        design, "extMemWriteBlock",
        {{"address", "s6.0"}, {"data", "s24.0"}, {"write", "u1.0"}, {"byteenable", "u3.0"}, {"burstcount", "u2.0"}},
        {{"ready", "u1.0"}}, {{"extMemBlock_Name", "ddr"}, {"extMemBlock_DataWidth", "24"}});
    Simulator simulator(design, top);
    test::Chance random(41);
    Numbers held(5, 0);
    for (int cycle = 0; cycle < 200; ++cycle) {
        const bool waits = random() % 2 == 0;
        const Numbers request{static_cast<std::int64_t>(random() % 64) - 32, static_cast<std::int64_t>(random() % 1000),
                              random() % 2, random() % 8, random() % 4};
        const auto out = stepByName(simulator, {{"address", request[0]},
                                                {"data", request[1]},
                                                {"write", request[2]},
                                                {"byteenable", request[3]},
                                                {"burstcount", request[4]},
                                                {"(ddr sarnetMMWaitRequest)", waits}});
        // Three bytes take an address of four; its bits are a pattern.
        EXPECT_EQ(out, (ByName{{"ready", waits ? 0 : 1},
                               {"(ddr sarnetMMAddress)", (held[0] & 63) * 4},
                               {"(ddr sarnetMMWriteData)", held[1]},
                               {"(ddr sarnetMMWrite)", held[2]},
                               {"(ddr sarnetMMByteEnable)", held[3]},
                               {"(ddr sarnetMMBurstCount)", held[4]}}))
            << cycle;
        held = waits ? held : request;
    }
}

TEST_F(InterfaceRowsTest, readFromAMemoryOutside) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "extMemReadBlock", {{"address", "u4.0"}, {"read", "u1.0"}},
                          {{"data", "u8.0"}, {"valid", "u1.0"}, {"ready", "u1.0"}},
                          {{"extMemBlock_Name", "ddr"}, {"extMemBlock_DataWidth", "8"}});
    Simulator simulator(design, top);
    const auto step = [&](std::int64_t address, bool read, bool waits, std::int64_t data, bool valid) {
        return stepByName(simulator, {{"address", address},
                                      {"read", read},
                                      {"(ddr sarnetMMWaitRequest)", waits},
                                      {"(ddr sarnetMMReadData)", data},
                                      {"(ddr sarnetMMReadDataValid)", valid}});
    };
    EXPECT_EQ(
        step(9, true, false, 7, true),
        (ByName{{"data", 7}, {"valid", 1}, {"ready", 1}, {"(ddr sarnetMMAddress)", 0}, {"(ddr sarnetMMRead)", 0}}));
    EXPECT_EQ(
        step(3, false, true, 8, false),
        (ByName{{"data", 8}, {"valid", 0}, {"ready", 0}, {"(ddr sarnetMMAddress)", 9}, {"(ddr sarnetMMRead)", 1}}));
    EXPECT_EQ(step(3, false, false, 8, false).at("(ddr sarnetMMRead)"), 1);
    EXPECT_EQ(step(3, false, false, 8, false).at("(ddr sarnetMMRead)"), 0);
    top.getBlock(value("block"))->setParam(A_EXTMEM_NAME, nullptr);
    EXPECT_EQ(refusal(design, top), "a memory outside needs a name and the width of its data top/block");
}

TEST_F(InterfaceRowsTest, carryWhatForeignLogicNamesAndScrambleTheRest) {
    for (const char *type : {"extIfaceBlock", "hiddenIfaceBlock"}) {
        Design design(mgr.context());
        Model &top = oneBlock(design, type, {{"a", "s8.0"}, {"b", "s8.0"}}, {{"a", ""}, {"c", "u32.0"}});
        Simulator simulator(design, top);
        const Numbers first = stepWith(simulator, {3, 4});
        EXPECT_EQ(first[0], 3) << type;
        EXPECT_NE(stepWith(simulator, {3, 5})[1], first[1]) << type;
        EXPECT_NE(stepWith(simulator, {4, 4})[1], first[1]) << type;
        EXPECT_EQ(stepWith(simulator, {3, 4}), first) << type;
        Design single(mgr.context());
        Model &wire = oneBlock(single, type, {{"a", "s8.0"}}, {{"z", "s8.0"}});
        Simulator alone(single, wire);
        EXPECT_EQ(stepWith(alone, {-9}), (Numbers{-9})) << type;
    }
}

TEST_F(InterfaceRowsTest, scrambleWhatIsNotTold) {
    const Texts typemap{{"latencyPlaceholderTypemap", "((x (typeSFixed 32 0)) (a (typeSFixed 8 0)))"}};
    for (const char *type : {"latencyPlaceholderBlock", "chanviewBlock"}) {
        const bool isView = std::string(type) == "chanviewBlock";
        Design design(mgr.context());
        Model &top = isView ? oneBlock(design, type, {{"portValid", "u1.0"}, {"0", "s32.0"}}, {{"0", ""}})
                            : oneBlock(design, type, {{"a", "s8.0"}, {"b", "s8.0"}}, {{"x", ""}}, typemap);
        Simulator simulator(design, top);
        const Numbers first = stepWith(simulator, {1, 0});
        EXPECT_NE(stepWith(simulator, {0, 0}), first) << type;
        EXPECT_NE(stepWith(simulator, {1, 1}), first) << type;
        EXPECT_EQ(stepWith(simulator, {1, 0}), first) << type;
    }
}

TEST_F(InterfaceRowsTest, refuseAScheduledModelWithoutAHandle) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "scheduledModelBlock", {{"x", "s8.0"}}, {{"y", "s8.0"}});
    EXPECT_EQ(refusal(design, top), "the scheduled model has no handle top/block");
}

TEST_F(InterfaceRowsTest, refuseMappingsOfPartsThatASignalDoesNotHave) {
    const auto handle = [](const std::string &steps) {
        return "(scheduledModelHandleTag note (scheduledModelPortlistTag (x) (y)) (scheduledModelTypesTag () ((y "
               "(typeSFixed 8 0)))) (scheduledModelDomainsTag () ()) (scheduledModelTimestepsTag () ()) "
               "(unrollMappingsTag (x (((compoundDecorIndexTag " +
               steps + ") p)))) (unrollMappingsTag) (0 0 ()))";
    };
    const auto outcome = [&](const std::string &steps) {
        const std::string text = handle(steps);
        Design design(mgr.context());
        Model &top = oneBlock(design, "scheduledModelBlock", {{"x", "[2] c s8.0"}}, {{"y", ""}},
                              {{"scheduledModelValue", text.c_str()}, {"scheduledModelOriginalTypes", "true"}});
        return refusal(design, top);
    };
    const std::string mismatch = "the handle's mappings do not fit the types top/block";
    const std::string lane = "(compoundIndexTypeVector 1)";
    const std::string part = "(compoundIndexTypeComplex 1)";
    EXPECT_EQ(outcome(lane + part), "");
    EXPECT_EQ(outcome(lane), "");
    EXPECT_EQ(outcome(""), "");
    EXPECT_EQ(outcome("(compoundIndexTypeVector 2)"), mismatch);
    EXPECT_EQ(outcome(part), mismatch);
    EXPECT_EQ(outcome(lane + lane), mismatch);
    EXPECT_EQ(outcome(lane + part + part), mismatch);
    EXPECT_EQ(outcome("(compoundIndexTypeAggregate 0)"), mismatch);
}

TEST_F(InterfaceRowsTest, refuseWhatTheFrontEndCouldNotTranslate) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "unsupportedBlock", {{"x", "s8.0"}}, {{"y", "s8.0"}});
    EXPECT_EQ(refusal(design, top), "block type 'unsupportedBlock' cannot be simulated top/block");
}

} // namespace
} // namespace orvo::sim
