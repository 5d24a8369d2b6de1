// Regions that can stall: no datum is lost, doubled or put out of order, whatever stalls.
#include "support/simulatorfixture.h"

#include <deque>

namespace orvo::sim {
namespace {

using test::Numbers;
using ByName = std::map<std::string, std::int64_t>;

class StallRowsTest : public test::SimulatorFixture {};

TEST_F(StallRowsTest, carriesSignalsOverTheBordersOfARegion) {
    for (const std::string side : {"stallenter", "stallexit"}) {
        Design design(mgr.context());
        const std::string stall = side + "PortStallFront";
        const std::string valid = side + "PortValidBack";
        const std::string empty = side + "PortEmptyBack";
        const std::string almost = side + "PortAlmostEmptyBack";
        const std::string data = "(" + side + "PortkeyDataBack 3)";
        const std::string stallOut = side + "WireStallBack";
        const std::string validOut = side + "WireValidFront";
        const std::string emptyOut = side + "WireEmptyFront";
        const std::string almostOut = side + "WireAlmostEmptyFront";
        const std::string dataOut = "(" + side + "WirekeyDataFront 3)";
        Model &top = oneBlock(design, side + "Block",
                              {{stall.c_str(), "u1.0"},
                               {valid.c_str(), "u1.0"},
                               {empty.c_str(), "u1.0"},
                               {almost.c_str(), "u1.0"},
                               {data.c_str(), "[2] s8.0"}},
                              {{stallOut.c_str(), ""},
                               {validOut.c_str(), ""},
                               {emptyOut.c_str(), ""},
                               {almostOut.c_str(), ""},
                               {dataOut.c_str(), ""}});
        Simulator simulator(design, top);
        for (int bit = 0; bit < 4; ++bit) {
            const auto is = [bit](int one) { return std::int64_t{bit == one ? 1 : 0}; };
            EXPECT_EQ(stepByName(simulator, {{stall, is(0)},
                                             {valid, is(1)},
                                             {empty, is(2)},
                                             {almost, is(3)},
                                             {data + "[0]", -bit},
                                             {data + "[1]", 10 + bit}}),
                      (ByName{{stallOut, is(0)},
                              {validOut, is(1)},
                              {emptyOut, is(2)},
                              {almostOut, is(3)},
                              {dataOut + "[0]", -bit},
                              {dataOut + "[1]", 10 + bit}}));
        }
    }
}

const char *const kValid = "(stallregPortkeyValidBack 0)";
const char *const kOther = "(stallregPortkeyValidBack 1)";
const char *const kData = "(stallregPortkeyDataBack 0)";
const char *const kWide = "(stallregPortkeyDataBack 7)";

TEST_F(StallRowsTest, registersKeepEachDatumInOrder) {
    Design design(mgr.context());
    Model &top = oneBlock(
        design, "stallregBlock",
        {{kValid, "u1.0"}, {kOther, "u1.0"}, {kData, "s8.0"}, {kWide, "c u70.0"}, {"stallregPortStallFront", "u1.0"}},
        {{"(stallregWirekeyValidFront 0)", ""},
         {"(stallregWirekeyValidFront 1)", ""},
         {"(stallregWirekeyDataFront 0)", ""},
         {"(stallregWirekeyDataFront 7)", ""},
         {"stallregWireStallBack", ""}});
    Simulator simulator(design, top);
    std::deque<Numbers> sent;
    test::Chance random(9);
    int transfers = 0;
    int streak = 0;
    int longest = 0;
    for (int cycle = 0; cycle < 2000; ++cycle) {
        // Long runs of either, and of neither.
        const bool stalls = cycle / 50 % 3 == 0 ? false : cycle / 50 % 3 == 1 ? random() % 8 != 0 : random() % 2 != 0;
        const std::int64_t first = cycle / 40 % 4 == 0 ? 1 : random() % 2;
        const std::int64_t second = random() % 2;
        const std::int64_t data = static_cast<std::int8_t>(random());
        const std::int64_t re = random();
        const auto out = stepByName(simulator, {{kValid, first},
                                                {kOther, second},
                                                {kData, data},
                                                {std::string(kWide) + ".re", re},
                                                {std::string(kWide) + ".im", re + 1},
                                                {"stallregPortStallFront", stalls}});
        // Full means stalled, and only that, whatever the front does in this cycle.
        EXPECT_EQ(out.at("stallregWireStallBack"), sent.size() == 2 ? 1 : 0) << cycle;
        const Numbers shown{out.at("(stallregWirekeyValidFront 0)"), out.at("(stallregWirekeyValidFront 1)"),
                            out.at("(stallregWirekeyDataFront 0)"), out.at("(stallregWirekeyDataFront 7).re"),
                            out.at("(stallregWirekeyDataFront 7).im")};
        const bool isFull = sent.size() == 2;
        EXPECT_EQ(shown, sent.empty() ? Numbers(5, 0) : sent.front()) << cycle;
        const bool moves = !sent.empty() && !stalls;
        transfers += moves ? 1 : 0;
        streak = moves ? streak + 1 : 0;
        longest = std::max(longest, streak);
        if (moves) {
            sent.pop_front();
        }
        if (!isFull && (first | second) != 0) {
            sent.push_back({first, second, data, re, re + 1});
        }
    }
    EXPECT_GT(transfers, 500);
    // One transfer in each cycle.
    EXPECT_GT(longest, 30);
}

TEST_F(StallRowsTest, registersWithoutValidTakeEachDatum) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "stallregBlock", {{kData, "s8.0"}}, {{"(stallregWirekeyDataFront 0)", ""}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepWith(simulator, {5}), (Numbers{0}));
    EXPECT_EQ(stepWith(simulator, {6}), (Numbers{5}));
    EXPECT_EQ(stepWith(simulator, {7}), (Numbers{6}));
    simulator.reset();
    EXPECT_EQ(stepWith(simulator, {8}), (Numbers{0}));
}

TEST_F(StallRowsTest, enablesARegionUnlessAFrontHoldsItsData) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "stallenableBlock",
                          {{"(stallenablePortkeyStallFront 0)", "u1.0"},
                           {"(stallenablePortkeyStallFront 1)", "u1.0"},
                           {"(stallenablePortkeyValidBack 0)", "u1.0"},
                           {"(stallenablePortkeyValidBack 1)", "u1.0"}},
                          {{"stallenableWireEnable", ""},
                           {"stallenableWireStallBack", ""},
                           {"(stallenableWirekeyValidFront 0)", ""},
                           {"(stallenableWirekeyValidFront 1)", ""}});
    Simulator simulator(design, top);
    for (unsigned bits = 0; bits < 16; ++bits) {
        const bool stall[] = {(bits & 1U) != 0, (bits & 2U) != 0};
        const bool valid[] = {(bits & 4U) != 0, (bits & 8U) != 0};
        const bool holds[] = {stall[0] && valid[0], stall[1] && valid[1]};
        const bool works = !holds[0] && !holds[1];
        const auto out = stepByName(simulator, {{"(stallenablePortkeyStallFront 0)", stall[0]},
                                                {"(stallenablePortkeyStallFront 1)", stall[1]},
                                                {"(stallenablePortkeyValidBack 0)", valid[0]},
                                                {"(stallenablePortkeyValidBack 1)", valid[1]}});
        EXPECT_EQ(out.at("stallenableWireEnable"), works) << bits;
        EXPECT_EQ(out.at("stallenableWireStallBack"), !works) << bits;
        for (int i = 0; i < 2; ++i) {
            const bool shown = out.at("(stallenableWirekeyValidFront " + std::to_string(i) + ")") != 0;
            // A front takes its data only in cycles in which the region works, and then all do.
            EXPECT_EQ(shown && !stall[i], valid[i] && works) << bits;
        }
    }
}

TEST_F(StallRowsTest, enablesWithoutStallsAlways) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "stallenableBlock", {{"(stallenablePortkeyValidBack 0)", "u1.0"}},
                          {{"stallenableWireEnable", ""}, {"(stallenableWirekeyValidFront 0)", ""}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepByName(simulator, {{"(stallenablePortkeyValidBack 0)", 1}}),
              (ByName{{"stallenableWireEnable", 1}, {"(stallenableWirekeyValidFront 0)", 1}}));
    EXPECT_EQ(stepByName(simulator, {{"(stallenablePortkeyValidBack 0)", 0}}),
              (ByName{{"stallenableWireEnable", 1}, {"(stallenableWirekeyValidFront 0)", 0}}));
}

TEST_F(StallRowsTest, connectsByName) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "stallvalidConnectorBlock", {{"a", "u1.0"}, {"b", "u1.0"}}, {{"a", ""}, {"b", ""}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepWith(simulator, {1, 0}), (Numbers{1, 0}));
    EXPECT_EQ(stepWith(simulator, {0, 1}), (Numbers{0, 1}));
}

} // namespace
} // namespace orvo::sim
