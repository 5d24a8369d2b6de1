// Pulses, latches, parities and the counting loop against models that count by themselves.
#include "support/simulatorfixture.h"

namespace orvo::sim {
namespace {

using test::Numbers;
using ByName = std::map<std::string, std::int64_t>;

class PulseRowsTest : public test::SimulatorFixture {};

TEST_F(PulseRowsTest, followsDataWhileEnabledAndHoldsOtherwise) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "latch0LBlock", {{"latch0LPortD", "c s4.0"}, {"latch0LPortE", "u1.0"}},
                          {{"primWireOut", "c s4.0"}});
    Simulator simulator(design, top);
    test::Chance chance(1);
    std::int64_t held[2] = {0, 0};
    for (int cycle = 0; cycle < 100; ++cycle) {
        const std::int64_t data[2] = {chance() % 16 - 8, chance() % 16 - 8};
        const std::int64_t enable = cycle == 0 ? 0 : chance() % 2;
        for (int part = 0; part < 2; ++part) {
            held[part] = enable != 0 ? data[part] : held[part];
        }
        EXPECT_EQ(stepByName(simulator,
                             {{"latch0LPortD.re", data[0]}, {"latch0LPortD.im", data[1]}, {"latch0LPortE", enable}}),
                  (ByName{{"primWireOut.re", held[0]}, {"primWireOut.im", held[1]}}));
    }
}

TEST_F(PulseRowsTest, latchesLaneByLane) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "latch0LBlock", {{"latch0LPortD", "s8.0"}, {"latch0LPortE", "[2] u2.0"}},
                          {{"primWireOut", "[2] s8.0"}});
    Simulator simulator(design, top);
    const auto step = [&](std::int64_t data, std::int64_t first, std::int64_t second) {
        const ByName out =
            stepByName(simulator, {{"latch0LPortD", data}, {"latch0LPortE[0]", first}, {"latch0LPortE[1]", second}});
        return Numbers{out.at("primWireOut[0]"), out.at("primWireOut[1]")};
    };
    EXPECT_EQ(step(5, 1, 0), (Numbers{5, 0}));
    EXPECT_EQ(step(-6, 0, 2), (Numbers{5, -6}));
    EXPECT_EQ(step(7, 0, 0), (Numbers{5, -6}));
}

TEST_F(PulseRowsTest, tellsWhichBitsChange) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "edgeDetectBlock", {{"0", "u3.0"}}, {{"primWireOut", "u3.0"}});
    Simulator simulator(design, top);
    std::int64_t before = 0;
    for (const std::int64_t in : {0, 1, 1, 6, 7, 0, 0, 5}) {
        EXPECT_EQ(stepWith(simulator, {in}), (Numbers{in ^ before}));
        before = in;
    }
}

TEST_F(PulseRowsTest, givesTheParityOfTheListedBits) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "xorBitsBlock", {{"0", "s6.0"}}, {{"primWireOut", "u1.0"}}, {{"xorBitsBitlist", "(5 0 2)"}});
    Simulator simulator(design, top);
    for (std::int64_t in = -32; in < 32; ++in) {
        EXPECT_EQ(stepWith(simulator, {in}), (Numbers{(in >> 5 & 1) ^ (in & 1) ^ (in >> 2 & 1)})) << in;
    }
    Design beyond(mgr.context());
    Model &odd =
        oneBlock(beyond, "xorBitsBlock", {{"0", "u6.0"}}, {{"primWireOut", "u1.0"}}, {{"xorBitsBitlist", "(6)"}});
    EXPECT_EQ(refusal(beyond, odd), "a chosen bit is outside the input top/block");
}

TEST_F(PulseRowsTest, pulsesWithTheLastValidSampleOfAGroup) {
    for (const int bits : {0, 1, 3}) {
        Design design(mgr.context());
        const std::string told = std::to_string(bits);
        Model &top = oneBlock(design, "pulseDividerBlock", {{"FFTBlockPortValid", "u1.0"}}, {{"primWireOut", "u1.0"}},
                              {{"FFTBlockN", told.c_str()}});
        Simulator simulator(design, top);
        test::Chance chance(2);
        std::int64_t samples = 0;
        for (int cycle = 0; cycle < 200; ++cycle) {
            const std::int64_t valid = chance() % 3 == 0 ? 0 : 1;
            samples += valid;
            EXPECT_EQ(stepWith(simulator, {valid}), (Numbers{valid != 0 && samples % (1 << bits) == 0 ? 1 : 0}))
                << bits << " " << cycle;
        }
    }
}

TEST_F(PulseRowsTest, stretchesAPulse) {
    for (const int bits : {0, 2, 3}) {
        Design design(mgr.context());
        const std::string told = std::to_string(bits);
        Model &top = oneBlock(design, "pulseMultiplierBlock", {{"0", "u1.0"}}, {{"primWireOut", "u1.0"}},
                              {{"FFTBlockN", told.c_str()}});
        Simulator simulator(design, top);
        test::Chance chance(3);
        std::int64_t left = 0;
        for (int cycle = 0; cycle < 300; ++cycle) {
            // Pulses also meet a stretched one, at its end and before.
            const std::int64_t pulse = chance() % 7 == 0 ? 1 : 0;
            left = pulse != 0 ? 1 << bits : std::max<std::int64_t>(left - 1, 0);
            EXPECT_EQ(stepWith(simulator, {pulse}), (Numbers{left > 0 ? 1 : 0})) << bits << " " << cycle;
        }
    }
}

TEST_F(PulseRowsTest, countsWhileBelowTheLimit) {
    Design design(mgr.context());
    Model &top = oneBlock(
        design, "forLoopBlock",
        {{"loopPortGo", "u1.0"},
         {"loopPortEnable", "u1.0"},
         {"loopPortLimit", "u5.0"},
         {"0", "s5.0"},
         {"1", "u3.0"},
         {"2", "u1.0"}},
        {{"forLoopWireCount", ""}, {"loopWireValid", ""}, {"loopWireFirstIter", ""}, {"loopWireLastIter", ""}});
    Simulator simulator(design, top);
    test::Chance chance(4);
    std::int64_t count = 0;
    std::int64_t step = 0;
    std::int64_t limit = 0;
    bool runs = false;
    bool isFirst = false;
    int ends = 0;
    for (int cycle = 0; cycle < 3000; ++cycle) {
        const bool go = chance() % 12 == 0;
        const bool enable = chance() % 4 != 0;
        const bool stop = chance() % 30 == 0;
        const std::int64_t in[3] = {chance() % 32 - 16, 1 + chance() % 7, chance() % 32};
        if (go) {
            count = in[0];
            step = in[1];
            limit = in[2];
            runs = count < limit;
            isFirst = true;
        }
        runs = runs && !stop;
        const bool isLast = runs && count + step >= limit;
        EXPECT_EQ(stepByName(simulator, {{"loopPortGo", go},
                                         {"loopPortEnable", enable},
                                         {"loopPortLimit", in[2]},
                                         {"0", in[0]},
                                         {"1", in[1]},
                                         {"2", stop}}),
                  (ByName{{"forLoopWireCount", runs ? count : 0},
                          {"loopWireValid", runs},
                          {"loopWireFirstIter", runs && isFirst},
                          {"loopWireLastIter", isLast}}))
            << cycle;
        if (enable) {
            runs = runs && !isLast;
            count += step;
            isFirst = false;
            ends += isLast ? 1 : 0;
        }
    }
    EXPECT_GT(ends, 50);
}

TEST_F(PulseRowsTest, loopsByFractionsInEachLane) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "forLoopBlock",
                          {{"loopPortGo", "[2] u1.0"}, {"loopPortLimit", "u2.0"}, {"0", "u1.0"}, {"1", "u1.1"}},
                          {{"forLoopWireCount", ""}});
    Simulator simulator(design, top);
    const auto step = [&](std::int64_t first, std::int64_t second) {
        const ByName out = stepByName(
            simulator, {{"loopPortGo[0]", first}, {"loopPortGo[1]", second}, {"loopPortLimit", 2}, {"0", 1}, {"1", 1}});
        return Numbers{out.at("forLoopWireCount[0]"), out.at("forLoopWireCount[1]")};
    };
    // In halves: from 1 by a half below 2.
    EXPECT_EQ(step(1, 0), (Numbers{2, 0}));
    EXPECT_EQ(step(0, 1), (Numbers{3, 2}));
    EXPECT_EQ(step(0, 0), (Numbers{0, 3}));
    EXPECT_EQ(step(0, 0), (Numbers{0, 0}));
}

} // namespace
} // namespace orvo::sim
