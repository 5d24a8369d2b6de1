// Filters and oscillators against their definitions in plain numbers.
#include "support/simulatorfixture.h"

#include <cmath>
#include <deque>
#include <optional>

namespace orvo::sim {
namespace {

using test::Numbers;
using ByName = std::map<std::string, std::int64_t>;

class FilterRowsTest : public test::SimulatorFixture {
  protected:
    test::Chance chance{4};
};

/// The samples of one channel, the latest first.
using Line = std::deque<std::int64_t>;

std::int64_t filtered(const Line &line, const Numbers &coefficients) {
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < std::min(line.size(), coefficients.size()); ++i) {
        sum += line[i] * coefficients[i];
    }
    return sum;
}

TEST_F(FilterRowsTest, sumsCoefficientsTimesSamples) {
    const Numbers coefficients{3, -7, 0, 5, 11, -2};
    struct Case {
        int channels;
        int decimation;
    };
    for (const auto &[channels, decimation] : {Case{1, 1}, {1, 3}, {3, 1}, {3, 2}}) {
        Design design(mgr.context());
        const std::string count = std::to_string(channels);
        const std::string factor = std::to_string(decimation);
        Simulator simulator(design, oneBlock(design, "firBlock", {{"portValid", "u1.0"}, {"0", "s8.0"}},
                                             {{"0", ""}, {"wireValid", ""}, {"wireChannel", ""}},
                                             {{"firCoefs", "(3 -7 0 5 11 -2)"},
                                              {"firChannelCount", count.c_str()},
                                              {"firDecimFactor", factor.c_str()}}));
        std::vector<Line> lines(static_cast<std::size_t>(channels));
        std::size_t samples = 0;
        for (int cycle = 0; cycle < 300; ++cycle) {
            const std::int64_t valid = chance() % 4 == 0 ? 0 : 1;
            const std::int64_t sample = chance() % 256 - 128;
            ByName wanted{{"0", 0}, {"wireValid", 0}, {"wireChannel", 0}};
            const ByName out = stepByName(simulator, {{"portValid", valid}, {"0", sample}});
            if (valid == 0) {
                EXPECT_EQ(out.at("wireValid"), 0);
                EXPECT_EQ(out.at("0"), 0);
                continue;
            }
            const std::size_t channel = samples % lines.size();
            const std::size_t number = samples++ / lines.size();
            lines[channel].push_front(sample);
            wanted["wireChannel"] = static_cast<std::int64_t>(channel);
            if (number % static_cast<std::size_t>(decimation) == 0) {
                wanted["wireValid"] = 1;
                wanted["0"] = filtered(lines[channel], coefficients);
            }
            EXPECT_EQ(out, wanted) << channels << decimation << " " << cycle;
        }
        simulator.reset();
        EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"0", 2}}).at("0"), 6);
    }
}

TEST_F(FilterRowsTest, takesTheToldBankAndTypeOfCoefficients) {
    Design design(mgr.context());
    // In eighths: 0.3 is 2 of them, 0.7 is 6, beyond the range is 7 or -8.
    Simulator simulator(
        design, oneBlock(design, "firBlock",
                         {{"portValid", "u1.0"}, {"portChannel", "u8.0"}, {"0", "c s8.0"}, {"firPortBank", "u1.0"}},
                         {{"0", ""}, {"wireChannel", ""}},
                         {{"firCoefs", "((0x13p-6 0x2dp-6) (5 -5))"}, {"firCoefsType", "(typeSFixed 1 3)"}}));
    Line lines[2];
    for (int cycle = 0; cycle < 200; ++cycle) {
        const std::int64_t bank = chance() % 2;
        const Numbers coefficients = bank != 0 ? Numbers{7, -8} : Numbers{2, 6};
        const std::int64_t channel = chance() % 256;
        const std::int64_t in[2] = {chance() % 256 - 128, chance() % 256 - 128};
        ByName wanted{{"wireChannel", channel}};
        for (int part = 0; part < 2; ++part) {
            lines[part].push_front(in[part]);
            wanted[part == 0 ? "0.re" : "0.im"] = filtered(lines[part], coefficients);
        }
        EXPECT_EQ(
            stepByName(
                simulator,
                {{"portValid", 1}, {"portChannel", channel}, {"0.re", in[0]}, {"0.im", in[1]}, {"firPortBank", bank}}),
            wanted);
    }
}

TEST_F(FilterRowsTest, takesABankForEachLane) {
    Design whole(mgr.context());
    Design apart(mgr.context());
    const Texts coefficients = {{"firCoefs", "(3 1)"}};
    Simulator one(whole,
                  oneBlock(whole, "firBlock", {{"portValid", "u1.0"}, {"0", "[2] s4.0"}, {"firPortBank", "[2] u1.0"}},
                           {{"0", ""}}, coefficients));
    Simulator two(apart, oneBlock(apart, "firBlock",
                                  {{"portValid", "u1.0"},
                                   {"(0 0)", "s4.0"},
                                   {"(0 1)", "s4.0"},
                                   {"(firPortBank 0)", "u1.0"},
                                   {"(firPortBank 1)", "u1.0"}},
                                  {{"(0 0)", ""}, {"(0 1)", ""}}, coefficients));
    // There is no bank 1: what it would give is not known, and zero here.
    for (const std::int64_t lane : {0, 1}) {
        one.reset();
        two.reset();
        EXPECT_EQ(stepByName(one, {{"portValid", 1},
                                   {"0[0]", 2},
                                   {"0[1]", 5},
                                   {"firPortBank[0]", lane == 0 ? 0 : 1},
                                   {"firPortBank[1]", lane == 1 ? 0 : 1}}),
                  (ByName{{"0[0]", lane == 0 ? 6 : 0}, {"0[1]", lane == 1 ? 15 : 0}}));
        EXPECT_EQ(stepByName(two, {{"portValid", 1},
                                   {"(0 0)", 2},
                                   {"(0 1)", 5},
                                   {"(firPortBank 0)", lane == 0 ? 0 : 1},
                                   {"(firPortBank 1)", lane == 1 ? 0 : 1}}),
                  (ByName{{"(0 0)", lane == 0 ? 6 : 0}, {"(0 1)", lane == 1 ? 15 : 0}}));
    }
}

TEST_F(FilterRowsTest, filtersEachPhysicalChannel) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "firBlock", {{"portValid", "u1.0"}, {"0", "s8.0"}, {"1", "s8.0"}},
                                         {{"0", ""}, {"1", ""}}, {{"firCoefs", "(1 2)"}, {"firChannelCount", "2"}}));
    EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"0", 5}, {"1", -3}}), (ByName{{"0", 5}, {"1", -3}}));
    EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"0", 1}, {"1", 1}}), (ByName{{"0", 11}, {"1", -5}}));
}

TEST_F(FilterRowsTest, decimatesByIntegratorsAndCombs) {
    struct Case {
        int rate;
        int stages;
        int delay;
        int channels;
        int last;
    };
    for (const auto &[rate, stages, delay, channels, last] :
         {Case{4, 3, 1, 1, 1}, {3, 2, 2, 1, 1}, {2, 4, 1, 3, 1}, {5, 1, 1, 1, 2}, {1, 2, 1, 1, 1}}) {
        Design design(mgr.context());
        const std::string numbers[] = {std::to_string(rate), std::to_string(stages), std::to_string(delay),
                                       std::to_string(channels), std::to_string(last)};
        Simulator simulator(design, oneBlock(design, "cicBlock", {{"portValid", "u1.0"}, {"0", "s6.0"}},
                                             {{"0", ""}, {"cicWireData", ""}, {"wireValid", ""}},
                                             {{"cicScaleType", "cicScaleDecim"},
                                              {"cicRateFactor", numbers[0].c_str()},
                                              {"cicStageCount", numbers[1].c_str()},
                                              {"cicDelayCount", numbers[2].c_str()},
                                              {"cicChannelCount", numbers[3].c_str()},
                                              {"cicFinalDecim", numbers[4].c_str()}}));
        // The response is that of as many sums over rate times delay samples, one after another.
        Numbers response{1};
        for (int stage = 0; stage < stages; ++stage) {
            Numbers next(response.size() + static_cast<std::size_t>(rate * delay) - 1);
            for (std::size_t i = 0; i < response.size(); ++i) {
                for (std::size_t k = 0; k < static_cast<std::size_t>(rate * delay); ++k) {
                    next[i + k] += response[i];
                }
            }
            response = next;
        }
        std::vector<Line> lines(static_cast<std::size_t>(channels));
        std::size_t samples = 0;
        for (int cycle = 0; cycle < 600; ++cycle) {
            const std::int64_t valid = chance() % 5 == 0 ? 0 : 1;
            // Long runs at the ends of the range let integrators overflow.
            const std::int64_t sample = cycle % 200 < 100 ? 31 : chance() % 64 - 32;
            const ByName out = stepByName(simulator, {{"portValid", valid}, {"0", sample}});
            ByName wanted{{"0", 0}, {"cicWireData", 0}, {"wireValid", 0}};
            if (valid != 0) {
                const std::size_t channel = samples % lines.size();
                const std::size_t number = samples++ / lines.size();
                lines[channel].push_front(sample);
                if (number % static_cast<std::size_t>(rate * last) == 0) {
                    wanted["wireValid"] = 1;
                    wanted["0"] = wanted["cicWireData"] = filtered(lines[channel], response);
                }
            }
            ASSERT_EQ(out, wanted) << rate << stages << delay << channels << last << " " << cycle;
        }
    }
}

std::int64_t rounded(long double value, std::int64_t low, std::int64_t high) {
    const long double whole = std::nearbyint(value);
    return static_cast<std::int64_t>(
        std::min(std::max(whole, static_cast<long double>(low)), static_cast<long double>(high)));
}

/// Of a phase of 16 bits, in a type of one sign bit and 15 fraction bits.
std::int64_t circular(std::int64_t phase, bool isSine) {
    const long double pi = std::acos(-1.0L);
    const long double angle = static_cast<long double>(phase) * pi / 32768;
    // The axes are exact.
    const long double value = phase % 16384 == 0 ? std::round(isSine ? std::sin(angle) : std::cos(angle))
                              : isSine           ? std::sin(angle)
                                                 : std::cos(angle);
    return rounded(value * 32768, -32768, 32767);
}

TEST_F(FilterRowsTest, turnsAPhaseByItsIncrement) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "ncoBlock", {{"portValid", "u1.0"}, {"0", "u16.0"}},
                                         {{"ncoWireSin", ""}, {"ncoWireCos", ""}, {"wireValid", ""}},
                                         {{"ncoAccumBitCount", "16"}, {"ncoOutputType", "(typeSFixed 1 15)"}}));
    std::int64_t phase = 0;
    for (int cycle = 0; cycle < 2000; ++cycle) {
        const std::int64_t valid = chance() % 6 == 0 ? 0 : 1;
        const std::int64_t step = cycle < 20 ? 8192 : chance() % 65536;
        EXPECT_EQ(stepByName(simulator, {{"portValid", valid}, {"0", step}}),
                  (ByName{{"ncoWireSin", valid * circular(phase, true)},
                          {"ncoWireCos", valid * circular(phase, false)},
                          {"wireValid", valid}}))
            << phase;
        phase = (phase + valid * step) % 65536;
    }
}

TEST_F(FilterRowsTest, keepsAPhaseForEachChannel) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "ncoBlock",
                                 {{"portValid", "u1.0"}, {"portChannel", "u8.0"}, {"0", "u16.0"}, {"1", "u16.0"}},
                                 {{"ncoWireCos", ""}, {"wireChannel", ""}},
                                 {{"ncoAccumBitCount", "16"}, {"ncoOutputType", "(typeSFixed 1 15)"}}));
    std::int64_t phases[2] = {0, 0};
    for (int cycle = 0; cycle < 200; ++cycle) {
        const std::int64_t channel = chance() % 2;
        const std::int64_t steps[2] = {1000, chance() % 65536};
        EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"portChannel", channel}, {"0", steps[0]}, {"1", steps[1]}}),
                  (ByName{{"ncoWireCos", circular(phases[channel], false)}, {"wireChannel", channel}}));
        phases[channel] = (phases[channel] + steps[channel]) % 65536;
    }
}

TEST_F(FilterRowsTest, multipliesSamplesByEachOscillator) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "mixerBlock",
                                         {{"portValid", "u1.0"}, {"0", "c s8.0"}, {"1", "c s8.7"}, {"2", "c s8.7"}},
                                         {{"0", ""}, {"1", ""}, {"wireValid", ""}}, {{"mixerFreqCount", "2"}}));
    for (int cycle = 0; cycle < 100; ++cycle) {
        const auto draw = [this] { return chance() % 256 - 128; };
        const std::int64_t a[] = {draw(), draw()};
        const std::int64_t b[] = {draw(), draw()};
        const std::int64_t c[] = {draw(), draw()};
        EXPECT_EQ(stepByName(simulator, {{"portValid", 1},
                                         {"0.re", a[0]},
                                         {"0.im", a[1]},
                                         {"1.re", b[0]},
                                         {"1.im", b[1]},
                                         {"2.re", c[0]},
                                         {"2.im", c[1]}}),
                  (ByName{{"wireValid", 1},
                          {"0.re", a[0] * b[0] - a[1] * b[1]},
                          {"0.im", a[0] * b[1] + a[1] * b[0]},
                          {"1.re", a[0] * c[0] - a[1] * c[1]},
                          {"1.im", a[0] * c[1] + a[1] * c[0]}}));
    }
}

TEST_F(FilterRowsTest, scalesWithRoundingAndSaturation) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "scaleBlock", {{"portValid", "u1.0"}, {"0", "s4.4"}, {"1", "s6.0"}},
                                         {{"scaleWireData", ""}, {"0", ""}, {"primWireAux", ""}, {"wireValid", ""}},
                                         {{"scaleOutputType", "(typeSFixed 4 1)"}}));
    for (std::int64_t shift = -32; shift < 32; ++shift) {
        for (std::int64_t sample = -128; sample < 128; ++sample) {
            const long double exact = std::ldexp(static_cast<long double>(sample), static_cast<int>(shift) - 3);
            const std::int64_t wanted = rounded(exact, -16, 15);
            const long double whole = std::nearbyint(exact);
            EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"0", sample}, {"1", shift}}),
                      (ByName{{"scaleWireData", wanted},
                              {"0", wanted},
                              {"primWireAux", whole < -16 || whole > 15},
                              {"wireValid", 1}}))
                << sample << " " << shift;
        }
    }
}

TEST_F(FilterRowsTest, takesWhatIsNotToldForAFunctionOfAllInputsSoFar) {
    struct Case {
        const char *block;
        Texts inputs;
        Texts outputs;
        Texts params;
    };
    const Case cases[] = {
        {"firBlock",
         {{"portValid", "u1.0"}, {"0", "s8.0"}},
         {{"0", ""}},
         {{"firCoefs", "(1 2)"}, {"firInterpFactor", "2"}}},
        {"cicBlock",
         {{"portValid", "u1.0"}, {"0", "s8.0"}},
         {{"0", ""}},
         {{"cicScaleType", "cicScaleInterp"}, {"cicRateFactor", "4"}, {"cicStageCount", "3"}}},
        {"ncoBlock",
         {{"portValid", "u1.0"}, {"ncoPortBank", "u8.0"}},
         {{"ncoWireSin", ""}},
         {{"ncoAccumBitCount", "16"}, {"ncoOutputType", "(typeSFixed 1 15)"}}},
    };
    for (const Case &row : cases) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, row.block, row.inputs, row.outputs, row.params));
        const auto run = [&](std::int64_t first) {
            simulator.reset();
            Numbers out = stepWith(simulator, {first, 1});
            const Numbers later = stepWith(simulator, {1, 1});
            out.insert(out.end(), later.begin(), later.end());
            return out;
        };
        const Numbers once = run(1);
        EXPECT_EQ(run(1), once) << row.block;
        // What came earlier counts, too.
        EXPECT_NE(run(0)[1], once[1]) << row.block;
    }
}

TEST_F(FilterRowsTest, takesLanesUnderTheirOwnNames) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "firBlock",
                                         {{"portValid", "u1.0"}, {"(0 0)", "s8.0"}, {"(0 1)", "s8.0"}, {"1", "s8.0"}},
                                         {{"(0 1)", ""}, {"(0 0)", ""}, {"1", ""}, {"wireChannel", ""}},
                                         {{"firCoefs", "(3 1)"}, {"firChannelCount", "4"}}));
    // Two wires for four channels: what came two samples ago is of the same channel.
    const std::int64_t samples[][3] = {{1, 10, 50}, {2, 20, 60}, {3, 30, 70}};
    for (int i = 0; i < 3; ++i) {
        const auto out = stepByName(
            simulator, {{"portValid", 1}, {"(0 0)", samples[i][0]}, {"(0 1)", samples[i][1]}, {"1", samples[i][2]}});
        const auto wanted = [&](int lane) { return 3 * samples[i][lane] + (i < 2 ? 0 : samples[i - 2][lane]); };
        EXPECT_EQ(out, (ByName{{"(0 0)", wanted(0)}, {"(0 1)", wanted(1)}, {"1", wanted(2)}, {"wireChannel", i % 2}}));
    }
}

TEST_F(FilterRowsTest, computesAllThatALaneNeedsWhoseNeighboursNobodyReads) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "cicBlock",
                                 {{"portValid", "u1.0"}, {"(0 0)", "s8.0"}, {"(0 1)", "s8.0"}, {"(0 2)", "s8.0"}},
                                 {{"(0 1)", ""}}, {{"cicScaleType", "cicScaleDecim"}, {"cicStageCount", "1"}}));
    EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"(0 0)", 1}, {"(0 1)", 5}, {"(0 2)", 9}}),
              (ByName{{"(0 1)", 5}}));
    EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"(0 0)", 1}, {"(0 1)", 7}, {"(0 2)", 9}}),
              (ByName{{"(0 1)", 7}}));
}

TEST_F(FilterRowsTest, refusesLanesOfSeveralTypes) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "firBlock", {{"portValid", "u1.0"}, {"(0 0)", "s8.0"}, {"(0 1)", "s9.0"}},
                          {{"(0 1)", ""}}, {{"firCoefs", "(3 1)"}});
    EXPECT_EQ(refusal(design, top), "elements of one signal have several types top/block");
}

} // namespace
} // namespace orvo::sim
