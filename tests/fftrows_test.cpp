// Transforms and what they are made of, against models of their own: permutations, sums, and the discrete Fourier
// transform in double precision.
#include "support/blockrig.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>

namespace orvo::sim {
namespace {

using testing::BlockRig;
using testing::collect;
using testing::Complex;
using testing::Delivery;
using testing::Ends;
using testing::fourier;
using testing::Params;
using testing::turnedBits;

using FftRowsTest = testing::RigTest;

// Elements.

TEST_F(FftRowsTest, vectorFanoutCopiesToEachElement) {
    BlockRig fanout =
        rig("VectorFanoutBlock", {{"FFTBlockWireCount", "3"}}, {{"0", "s8.0"}}, {{"primWireOut", "[3] s8.0"}});
    EXPECT_EQ(fanout.step({-5}), (std::vector<std::int64_t>{-5, -5, -5}));
}

TEST_F(FftRowsTest, switchSwapsWhenTold) {
    BlockRig swap =
        rig("XSwitchBlock", {}, {{"XSwitchPortD0", "s8.0"}, {"XSwitchPortD1", "s8.0"}, {"XSwitchPortSwap", "u1.0"}},
            {{"XSwitchWireQ0", "s8.0"}, {"XSwitchWireQ1", "s8.0"}});
    EXPECT_EQ(swap.step({3, -4, 0}), (std::vector<std::int64_t>{3, -4}));
    EXPECT_EQ(swap.step({3, -4, 1}), (std::vector<std::int64_t>{-4, 3}));
}

TEST_F(FftRowsTest, chooseBitsGathersTheFirstLowest) {
    BlockRig chosen = rig("FFTChooseBitsBlock", {{"FFTChooseBitsSelectedBits", "(4 0 2)"}}, {{"0", "u5.0"}},
                          {{"primWireOut", "u3.0"}});
    EXPECT_EQ(chosen.step({0b10000})[0], 0b001);
    EXPECT_EQ(chosen.step({0b00001})[0], 0b010);
    EXPECT_EQ(chosen.step({0b00100})[0], 0b100);
    EXPECT_EQ(chosen.step({0b01010})[0], 0);
}

TEST_F(FftRowsTest, stageIsDroppedWhenMoreStagesThanLieBeforeAre) {
    BlockRig drop =
        rig("StageDropBlock", {{"StageNumber", "2"}}, {{"FFTBlockPortDrop", "u3.0"}}, {{"primWireOut", "u1.0"}});
    for (std::int64_t dropped = 0; dropped < 8; ++dropped) {
        EXPECT_EQ(drop.step({dropped})[0], dropped > 2 ? 1 : 0) << dropped;
    }
}

TEST_F(FftRowsTest, quarterTurnMultipliesByMinusJOrJ) {
    BlockRig turn =
        rig("TrivialTwiddleBlock", {},
            {{"FFTBlockPortData", "c s8.0"}, {"TrivialTwiddlePortRotate", "u1.0"}, {"TrivialTwiddlePortIfft", "u1.0"}},
            {{"primWireOut", "c s8.0"}});
    EXPECT_EQ(turn.step({3, 5, 0, 1}), (std::vector<std::int64_t>{3, 5}));
    EXPECT_EQ(turn.step({3, 5, 1, 0}), (std::vector<std::int64_t>{5, -3}));
    EXPECT_EQ(turn.step({3, 5, 1, 1}), (std::vector<std::int64_t>{-5, 3}));
    BlockRig vector =
        rig("TrivialTwiddleBlock", {}, {{"FFTBlockPortData", "[2] c s8.0"}, {"TrivialTwiddlePortRotate", "[2] u1.0"}},
            {{"primWireOut", "[2] c s8.0"}});
    EXPECT_EQ(vector.step({1, 2, 3, 4, 0, 1}), (std::vector<std::int64_t>{1, 2, 4, -3}));
}

TEST_F(FftRowsTest, twiddleAddSubAddsAndSubtractsTheSecondTurnedBack) {
    BlockRig sums =
        rig("TwiddleAddSubBlock", {}, {{"TwiddleAddSubPortD0", "c s8.0"}, {"TwiddleAddSubPortD1", "c s8.0"}},
            {{"TwiddleAddSubWireQ0", "c s9.0"}, {"TwiddleAddSubWireQ1", "c s9.0"}});
    const Complex a(100, -7);
    const Complex b(50, 120);
    const Complex first = a + Complex(0, -1) * b;
    const Complex second = a - Complex(0, -1) * b;
    EXPECT_EQ(sums.step({100, -7, 50, 120}),
              (std::vector<std::int64_t>{std::llround(first.real()), std::llround(first.imag()),
                                         std::llround(second.real()), std::llround(second.imag())}));
}

TEST_F(FftRowsTest, validIsLaterByAPowerOfTwo) {
    for (int bits : {0, 1, 3}) {
        BlockRig delay = rig("DelayValidBlock", {{"FFTBlockStagesAfter", std::to_string(bits)}},
                             {{"FFTBlockPortValid", "u1.0"}}, {{"FFTBlockWireValid", "u1.0"}});
        const int length = 1 << bits;
        std::vector<std::int64_t> given;
        for (int cycle = 0; cycle < 400; ++cycle) {
            // Groups stand together, with pauses of any length between them.
            if (given.size() % static_cast<std::size_t>(length) == 0 || given.empty()) {
                const std::int64_t isValid = chance(0, 1);
                for (int i = 0; i < length; ++i) {
                    given.push_back(isValid);
                }
            }
            const auto now = static_cast<std::size_t>(cycle);
            while (given.size() <= now) {
                const std::int64_t isValid = chance(0, 1);
                given.insert(given.end(), static_cast<std::size_t>(length), isValid);
            }
            const std::int64_t expected = cycle < length ? 0 : given[now - static_cast<std::size_t>(length)];
            EXPECT_EQ(delay.step({given[now]})[0], expected) << bits << ", cycle " << cycle;
        }
    }
}

/// Sums and differences of the halves of blocks, in turn.
std::vector<std::int64_t> halves(const std::vector<std::int64_t> &in, std::size_t half) {
    std::vector<std::int64_t> out;
    for (std::size_t at = 0; at < in.size(); at += 2 * half) {
        for (std::size_t i = 0; i < half; ++i) {
            out.push_back(in[at + i] + in[at + half + i]);
        }
        for (std::size_t i = 0; i < half; ++i) {
            out.push_back(in[at + i] - in[at + half + i]);
        }
    }
    return out;
}

TEST_F(FftRowsTest, butterfliesOfAllFormsGiveSumsThenDifferences) {
    for (const char *block : {"BFUBlock", "BFUShortBlock", "BFULongBlock"}) {
        for (int bits : {1, 2, 4}) {
            BlockRig butterfly =
                rig(block, {{"FFTBlockN", std::to_string(bits)}},
                    {{"FFTBlockPortData", "s8.0"}, {"FFTBlockPortSub", "u1.0"}}, {{"primWireOut", "s9.0"}});
            const std::size_t half = std::size_t{1} << (bits - 1);
            std::vector<std::int64_t> in;
            for (std::size_t i = 0; i < 8 * half; ++i) {
                in.push_back(i < 2 * half ? (i < half ? -128 : 127) : chance(-128, 127));
            }
            const std::vector<std::int64_t> expected = halves(in, half);
            for (std::size_t cycle = 0; cycle < in.size(); ++cycle) {
                const std::int64_t out = butterfly.step({in[cycle], static_cast<std::int64_t>(cycle / half % 2)})[0];
                if (cycle >= half) {
                    EXPECT_EQ(out, expected[cycle - half]) << block << " " << bits << ", cycle " << cycle;
                }
            }
        }
    }
}

TEST_F(FftRowsTest, butterflySubtractsByElementOfItsControl) {
    BlockRig butterfly =
        rig("BFUBlock", {{"FFTBlockN", "1"}}, {{"FFTBlockPortData", "[2] s8.0"}, {"FFTBlockPortSub", "[2] u1.0"}},
            {{"primWireOut", "[2] s9.0"}});
    butterfly.step({5, 6, 0, 0});
    EXPECT_EQ(butterfly.step({1, 2, 1, 1}), (std::vector<std::int64_t>{6, 8}));
    EXPECT_EQ(butterfly.step({0, 0, 0, 0}), (std::vector<std::int64_t>{4, 4}));
}

TEST_F(FftRowsTest, anglesAreProductsOfIndexAndTurnedPivot) {
    struct Shape {
        const char *block;
        int below;
        int pivot;
        int index;
    };
    const Shape shapes[] = {
        {"TA0mnBlock", 0, 3, 2},        {"TAl1nBlock", 2, 1, 3},        {"TAlm1Block", 1, 3, 1},
        {"TAl2nBlock", 2, 2, 3},        {"TAlm2Block", 1, 4, 2},        {"TAlmnBlock", 3, 3, 3},
        {"TwiddleAngleBlock", 0, 2, 2}, {"TwiddleAngleBlock", 2, 3, 1}, {"TwiddleAngleBlock", 1, 3, 3}};
    for (const Shape &shape : shapes) {
        const int bits = shape.pivot + shape.index;
        BlockRig angle = rig(shape.block,
                             {{"FFTBlockSubchannelBits", std::to_string(shape.below)},
                              {"FFTBlockPivotWidth", std::to_string(shape.pivot)},
                              {"FFTBlockIndexWidth", std::to_string(shape.index)}},
                             {{"FFTBlockPortCount", "u" + std::to_string(bits + shape.below) + ".0"}},
                             {{"primWireOut", "u" + std::to_string(bits) + ".0"}});
        for (int count = 0; count < 2 << (bits + shape.below); ++count) {
            const int above = count % (1 << (bits + shape.below)) >> shape.below;
            const auto index = static_cast<std::uint64_t>(above % (1 << shape.index));
            const std::uint64_t pivot = turnedBits(static_cast<std::uint64_t>(above >> shape.index), shape.pivot);
            EXPECT_EQ(angle.step({count})[0], static_cast<std::int64_t>(index * pivot % (std::uint64_t{1} << bits)))
                << shape.block << " " << count;
        }
    }
}

TEST_F(FftRowsTest, angleOfTwoSelectionsIsTheirProduct) {
    BlockRig angle = rig("TwiddleMultAngleBlock",
                         {{"FFTBlockXbits", "(0 3)"},
                          {"FFTBlockYbits", "(2 1)"},
                          {"FFTBlockSpatialBits", "1"},
                          {"FFTBlockWireNumber", "1"}},
                         {{"FFTBlockPortCount", "u3.0"}}, {{"primWireOut", "u4.0"}});
    for (std::int64_t count = 0; count < 8; ++count) {
        const std::int64_t number = count * 2 + 1;
        const std::int64_t x = (number & 1) + (number >> 3 & 1) * 2;
        const std::int64_t y = (number >> 2 & 1) + (number >> 1 & 1) * 2;
        EXPECT_EQ(angle.step({count})[0], x * y);
    }
}

TEST_F(FftRowsTest, factorsOfAnglesAreRoundedOnce) {
    for (const char *inverse : {"false", "true"}) {
        for (int bits : {3, 4, 9}) {
            const int size = 1 << bits;
            BlockRig rom = rig("TwiddleRomBlock",
                               {{"TwiddleRomAngleWidth", std::to_string(bits)},
                                {"FFTBlockTwiddleType", type("s2.14")},
                                {"FFTBlockInverse", inverse}},
                               {{"0", "u" + std::to_string(bits) + ".0"}}, {{"primWireOut", "c s2.14"}});
            const double sign = std::string(inverse) == "true" ? 1 : -1;
            for (int angle = 0; angle < size; ++angle) {
                const std::vector<std::int64_t> out = rom.step({angle});
                const Complex exact = std::polar(16384.0, sign * 2 * std::acos(-1.0) * angle / size);
                EXPECT_NEAR(static_cast<double>(out[0]), exact.real(), 0.5001) << bits << ": " << angle;
                EXPECT_NEAR(static_cast<double>(out[1]), exact.imag(), 0.5001) << bits << ": " << angle;
            }
        }
    }
}

TEST_F(FftRowsTest, factorsSaturateBeforeTheirSignIsSet) {
    BlockRig rom = rig("TwiddleRomBlock", {{"TwiddleRomAngleWidth", "3"}, {"FFTBlockTwiddleType", type("s1.7")}},
                       {{"0", "u3.0"}, {"FFTBlockPortReadAccess", "u1.0"}}, {{"primWireOut", "c s1.7"}});
    EXPECT_EQ(rom.step({0, 1}), (std::vector<std::int64_t>{127, 0}));
    EXPECT_EQ(rom.step({4, 1}), (std::vector<std::int64_t>{-127, 0}));
    // Without read access the table's output stays; the signs follow the angle.
    EXPECT_EQ(rom.step({1, 1}), (std::vector<std::int64_t>{91, -91}));
    EXPECT_EQ(rom.step({5, 0}), (std::vector<std::int64_t>{-91, 91}));
    EXPECT_EQ(rom.step({0, 0}), (std::vector<std::int64_t>{91, 0}));
}

TEST_F(FftRowsTest, pulsesDivideAndMultiplyByTheSize) {
    BlockRig divider = rig("VPDBlock", {{"FFTBlockN", "4"}},
                           {{"FFTBlockPortValid", "u1.0"}, {"FFTBlockPortSize", "u3.0"}}, {{"primWireOut", "u1.0"}});
    BlockRig multiplier = rig("VPMBlock", {{"FFTBlockMaxSize", "4"}},
                              {{"FFTBlockPortValid", "u1.0"}, {"FFTBlockPortSize", "u3.0"}}, {{"primWireOut", "u1.0"}});
    for (int frame = 0; frame < 40; ++frame) {
        // Sizes beyond the largest count as the largest.
        const std::int64_t told = chance(0, 7);
        const std::int64_t size = std::int64_t{1} << std::min<std::int64_t>(told, 4);
        for (std::int64_t sample = 0; sample < size;) {
            const std::int64_t isValid = chance(0, 3) != 0 ? 1 : 0;
            sample += isValid;
            EXPECT_EQ(divider.step({isValid, told})[0], isValid == 1 && sample == size ? 1 : 0);
        }
        for (std::int64_t cycle = 0; cycle < size + 3; ++cycle) {
            EXPECT_EQ(multiplier.step({cycle == 0 ? 1 : 0, told})[0], cycle < size ? 1 : 0);
        }
    }
}

TEST_F(FftRowsTest, addressesCountInEitherOrderBySize) {
    BlockRig address = rig("MemAddrGenBlock", {{"FFTBlockMaxSize", "4"}},
                           {{"MemAddrGenPortV", "u1.0"}, {"MemAddrGenPortBr", "u1.0"}, {"FFTBlockPortSize", "u3.0"}},
                           {{"primWireOut", "u4.0"}});
    for (int frame = 0; frame < 30; ++frame) {
        const int bits = static_cast<int>(chance(0, 4));
        const std::int64_t turned = chance(0, 1);
        for (std::uint64_t sample = 0; sample < std::uint64_t{1} << bits;) {
            const std::int64_t isValid = chance(0, 1);
            EXPECT_EQ(address.step({isValid, turned, bits})[0],
                      static_cast<std::int64_t>(turned == 1 ? turnedBits(sample, bits) : sample));
            sample += static_cast<std::uint64_t>(isValid);
        }
    }
}

TEST_F(FftRowsTest, twiddleCounterWrapsWithTheFrameThatIsLeft) {
    BlockRig counter = rig("TwiddleCounterBlock",
                           {{"FFTBlockStagesBefore", "1"}, {"FFTBlockStagesDuring", "3"}, {"FFTBlockStagesAfter", "1"}},
                           {{"FFTBlockPortValid", "u1.0"}, {"FFTBlockPortDrop", "u3.0"}}, {{"primWireOut", "u4.0"}});
    for (std::int64_t drop = 0; drop < 6; ++drop) {
        const std::int64_t frame = 16 >> std::max<std::int64_t>(drop - 1, 0);
        for (std::int64_t sample = 0; sample < 32; ++sample) {
            EXPECT_EQ(counter.step({1, drop})[0], sample % frame) << drop;
        }
        counter.step({0, drop});
    }
}

// Reorderings.

TEST_F(FftRowsTest, bitReversalReordersEachFrameAndHoldsItsChannel) {
    for (int bits : {1, 2, 3, 5}) {
        for (int subchannels : {1, 4}) {
            BlockRig reversal =
                rig(bits % 2 == 0 ? "BitReverseBlock" : "BitReverseCoreBlock",
                    {{"FFTBlockN", std::to_string(bits)}, {"FFTBlockSubchannels", std::to_string(subchannels)}},
                    {{"FFTBlockPortValid", "u1.0"}, {"0", "s20.0"}, {"FFTBlockPortChannel", "u8.0"}},
                    {{"FFTBlockWireValid", "u1.0"}, {"primWireOut", "s20.0"}, {"FFTBlockWireChannel", "u8.0"}});
            const int frame = subchannels << bits;
            std::vector<std::vector<std::int64_t>> cycles;
            std::vector<std::size_t> starts;
            for (int at = 0; at < 6; ++at) {
                starts.push_back(cycles.size());
                for (int i = 0; i < frame; ++i) {
                    cycles.push_back({1, at * 1000 + i, at + 10});
                }
                for (std::int64_t pause = at < 3 ? 0 : chance(0, 5); pause > 0; --pause) {
                    cycles.push_back({0, -1, 0});
                }
            }
            cycles.insert(cycles.end(), static_cast<std::size_t>(frame), {0, 0, 0});
            const Delivery out = collect(reversal, cycles);
            ASSERT_EQ(out.samples.size(), static_cast<std::size_t>(6 * frame));
            for (int i = 0; i < 6 * frame; ++i) {
                const auto at = static_cast<std::size_t>(i);
                const int place = i % frame;
                const auto sample = static_cast<int>(turnedBits(static_cast<std::uint64_t>(place / subchannels), bits));
                EXPECT_EQ(out.samples[at][0], i / frame * 1000 + sample * subchannels + place % subchannels);
                EXPECT_EQ(out.samples[at][1], i / frame + 10);
                EXPECT_EQ(out.cycles[at],
                          starts[static_cast<std::size_t>(i / frame)] + static_cast<std::size_t>(frame - 1 + place));
            }
        }
    }
}

TEST_F(FftRowsTest, transposerGoesThroughTheGroupOfItsPermutation) {
    // The number of the sample in place k has bit u where k has bit permutation[u].
    const std::vector<int> permutation{1, 2, 0};
    BlockRig transpose =
        rig("transposeBlock", {{"FFTBlockN", "3"}, {"FFTBlockPerm", "(1 2 0)"}, {"transposeStates", "3"}},
            {{"FFTBlockPortValid", "u1.0"}, {"0", "c s10.0"}},
            {{"FFTBlockWireValid", "u1.0"}, {"transposeWireQ", "c s10.0"}, {"transposeWireG", "u1.0"}});
    std::vector<std::vector<std::int64_t>> cycles;
    for (int i = 0; i < 8 * 7 + 8; ++i) {
        cycles.push_back({i < 8 * 7 ? 1 : 0, i, -i});
    }
    const Delivery out = collect(transpose, cycles);
    ASSERT_EQ(out.samples.size(), 56U);
    for (int i = 0; i < 56; ++i) {
        int sample = 0;
        for (int bit = 0; bit < 3; ++bit) {
            sample |= (i % 8 >> permutation[static_cast<std::size_t>(bit)] & 1) << bit;
        }
        const int expected = i / 8 * 8 + sample;
        EXPECT_EQ(out.samples[static_cast<std::size_t>(i)],
                  (std::vector<std::int64_t>{expected, -expected, i % 8 == 0 ? 1 : 0}));
        EXPECT_EQ(out.cycles[static_cast<std::size_t>(i)], static_cast<std::size_t>(i + 7));
    }
}

TEST_F(FftRowsTest, transposeAddressTakesTheStatesPower) {
    BlockRig address = rig("transposeAddrBlock", {{"FFTBlockPerm", "(1 2 0)"}},
                           {{"transposeAddrPortS", "u2.0"}, {"FFTBlockPortData", "u3.0"}}, {{"primWireOut", "u3.0"}});
    EXPECT_EQ(address.step({0, 0b001})[0], 0b001);
    EXPECT_EQ(address.step({1, 0b001})[0], 0b100);
    EXPECT_EQ(address.step({2, 0b001})[0], 0b010);
}

TEST_F(FftRowsTest, variableBitReversalTakesEachFrameBySize) {
    for (const char *block : {"VBitReverseBlock", "VBitReverseCoreBlock"}) {
        BlockRig reversal = rig(block, {{"FFTBlockMaxSize", "4"}},
                                {{"FFTBlockPortValid", "u1.0"},
                                 {"0", "s20.0"},
                                 {"FFTBlockPortSize", "u3.0"},
                                 {"FFTBlockPortChannel", "u8.0"}},
                                {{"FFTBlockWireValid", "u1.0"},
                                 {"primWireOut", "s20.0"},
                                 {"FFTBlockWireSize", "u3.0"},
                                 {"FFTBlockWireChannel", "u8.0"}});
        std::vector<std::vector<std::int64_t>> cycles;
        std::vector<std::vector<std::int64_t>> expected;
        int last = 0;
        for (const int bits : {4, 4, 2, 2, 2, 3, 4, 1, 1, 4}) {
            if (bits < last) {
                // A smaller frame waits until the one before has left.
                cycles.insert(cycles.end(), 16, {0, 0, last, 0});
            }
            last = bits;
            const auto base = static_cast<std::int64_t>(expected.size());
            for (std::int64_t i = 0; i < 1 << bits; ++i) {
                cycles.push_back({1, base + i, bits, base % 256});
                const auto sample = static_cast<std::int64_t>(turnedBits(static_cast<std::uint64_t>(i), bits));
                expected.push_back({base + sample, bits, base % 256});
            }
        }
        cycles.insert(cycles.end(), 16, {0, 0, 0, 0});
        const Delivery out = collect(reversal, cycles);
        ASSERT_EQ(out.samples.size(), expected.size()) << block;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(out.samples[i], expected[i]) << block << ", sample " << i;
        }
    }
}

TEST_F(FftRowsTest, variableReversalTellsWhereFramesBegin) {
    BlockRig reversal = rig("VBRBlock", {{"FFTBlockN", "2"}},
                            {{"FFTBlockPortValid", "u1.0"}, {"0", "s8.0"}, {"FFTBlockPortSize", "u2.0"}},
                            {{"FFTBlockWireValid", "u1.0"}, {"VBRWireQ", "s8.0"}, {"VBRWireG", "u1.0"}});
    const Delivery out =
        collect(reversal, {{1, 1, 2}, {1, 2, 2}, {1, 3, 2}, {1, 4, 2}, {0, 0, 2}, {0, 0, 2}, {0, 0, 2}, {0, 0, 2}});
    EXPECT_EQ(out.samples, (std::vector<std::vector<std::int64_t>>{{1, 1}, {3, 0}, {2, 0}, {4, 0}}));
    EXPECT_EQ(out.cycles, (std::vector<std::size_t>{3, 4, 5, 6}));
}

// Transforms.

struct Setting {
    const char *block = "FFTBlock";
    int maxBits = 3;
    int minBits = 3;
    bool isInverse = false;
    bool inputBitReversed = false;
    int subchannels = 1;
    std::vector<int> frames = {};
};

std::string describe(const Setting &setting) {
    return std::string(setting.block) + " " + std::to_string(setting.maxBits) + " " + std::to_string(setting.minBits) +
           (setting.isInverse ? " inverse" : "") + (setting.inputBitReversed ? " reversed" : "") + " x" +
           std::to_string(setting.subchannels);
}

class TransformTest : public FftRowsTest {
  protected:
    static bool isVariable(const Setting &setting) { return setting.block[0] == 'V'; }
    BlockRig transform(const Setting &setting) {
        const bool variable = isVariable(setting);
        Params params{{"FFTBlockSubchannels", std::to_string(setting.subchannels)},
                      {"FFTBlockInverse", setting.isInverse ? "true" : "false"},
                      {"FFTBlockInputBitReversed", setting.inputBitReversed ? "true" : "false"},
                      {"FFTBlockComplexInput", "true"},
                      {"FFTBlockTwiddlePruningScheme", "full_wordgrowth"},
                      {"FFTBlockInputType", type("c s10.6")},
                      {"FFTBlockTwiddleType", type("s2.20")}};
        Ends in{{"FFTBlockPortValid", "u1.0"}, {"0", "c s10.6"}, {"FFTBlockPortChannel", "u8.0"}};
        Ends out{{"FFTBlockWireValid", "u1.0"}, {"primWireOut", "c s24.6"}, {"FFTBlockWireChannel", "u8.0"}};
        if (variable) {
            params.insert(params.end(), {{"FFTBlockMaxSize", std::to_string(setting.maxBits)},
                                         {"FFTBlockMinSize", std::to_string(setting.minBits)}});
            in.emplace_back("FFTBlockPortSize", "u4.0");
        } else {
            params.emplace_back("FFTBlockN", std::to_string(setting.maxBits));
        }
        return rig(setting.block, params, in, out);
    }
    /// Frames of the told sizes, one after another, with a pause where the size changes, and in front.
    void check(const Setting &setting) {
        BlockRig tested = transform(setting);
        std::vector<std::vector<std::int64_t>> cycles(3, {0, 0, 0, 0, setting.frames[0]});
        std::vector<Complex> expected;
        std::vector<std::int64_t> channels;
        std::vector<std::size_t> places;
        double worst = 0;
        for (std::size_t at = 0; at < setting.frames.size(); ++at) {
            const int bits = setting.frames[at];
            if (at != 0 && bits != setting.frames[at - 1]) {
                cycles.insert(cycles.end(), static_cast<std::size_t>(setting.subchannels) << setting.maxBits,
                              {0, 77, -77, 0, chance(0, 15)});
            }
            addFrame(setting, bits, static_cast<std::int64_t>(at + 1), cycles, expected, places);
            channels.insert(channels.end(), expected.size() - channels.size(), static_cast<std::int64_t>(at + 1));
            worst = std::max(worst,
                             0.75 * bits * static_cast<double>(1 << bits) / 64 + 0.02 * static_cast<double>(1 << bits));
        }
        cycles.insert(cycles.end(), static_cast<std::size_t>(setting.subchannels) << setting.maxBits, {0, 0, 0, 0, 0});
        for (std::vector<std::int64_t> &cycle : cycles) {
            cycle.resize(isVariable(setting) ? 5 : 4);
        }
        const Delivery out = collect(tested, cycles);
        ASSERT_EQ(out.samples.size(), expected.size()) << describe(setting);
        EXPECT_EQ(out.cycles, places) << describe(setting);
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const Complex value(static_cast<double>(out.samples[i][0]) / 64,
                                static_cast<double>(out.samples[i][1]) / 64);
            ASSERT_LT(std::abs(value - expected[i]), worst)
                << describe(setting) << ", sample " << i << ": " << value << " in place of " << expected[i];
            EXPECT_EQ(out.samples[i][2], channels[i]) << describe(setting) << ", sample " << i;
        }
    }
    void addFrame(const Setting &setting, int bits, std::int64_t channel,
                  std::vector<std::vector<std::int64_t>> &cycles, std::vector<Complex> &expected,
                  std::vector<std::size_t> &places) {
        const std::size_t size = std::size_t{1} << bits;
        const auto lanes = static_cast<std::size_t>(setting.subchannels);
        std::vector<std::vector<Complex>> results;
        std::vector<std::vector<std::int64_t>> frame(size * lanes);
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            std::vector<Complex> samples(size);
            for (std::size_t i = 0; i < size; ++i) {
                const std::int64_t re = chance(-32768, 32767);
                const std::int64_t im = chance(-32768, 32767);
                samples[i] = Complex(static_cast<double>(re) / 64, static_cast<double>(im) / 64);
                const std::size_t place = setting.inputBitReversed ? turnedBits(i, bits) : i;
                frame[place * lanes + lane] = {1, re, im, channel, bits};
            }
            results.push_back(fourier(samples, setting.isInverse));
        }
        for (std::size_t i = 0; i < size * lanes; ++i) {
            places.push_back(cycles.size() + size * lanes - 1 + i);
            expected.push_back(results[i % lanes][setting.inputBitReversed ? i / lanes : turnedBits(i / lanes, bits)]);
        }
        cycles.insert(cycles.end(), frame.begin(), frame.end());
    }
};

TEST_F(TransformTest, isTheDiscreteFourierTransform) {
    for (int bits = 1; bits <= 7; ++bits) {
        for (const bool isInverse : {false, true}) {
            for (const bool reversed : {false, true}) {
                check({bits % 2 == 0 ? "FFTBlock" : "FFTCoreBlock",
                       bits,
                       bits,
                       isInverse,
                       reversed,
                       1,
                       {bits, bits, bits}});
            }
        }
    }
}

TEST_F(TransformTest, makesLargeTwiddlesFromAQuarterOfATurn) {
    check({"FFTBlock", 10, 10, false, false, 1, {10, 10}});
    check({"FFTBlock", 9, 9, true, true, 1, {9, 9}});
}

TEST_F(TransformTest, keepsSubchannelsApart) {
    for (const bool reversed : {false, true}) {
        check({"FFTBlock", 1, 1, false, reversed, 2, {1, 1}});
        check({"FFTBlock", 4, 4, false, reversed, 4, {4, 4, 4}});
        check({"FFTBlock", 3, 3, true, reversed, 8, {3, 3}});
        check({"FFTBlock", 9, 9, false, reversed, 2, {9, 9}});
    }
}

TEST_F(TransformTest, takesTheSizeOfEachFrame) {
    for (const bool reversed : {false, true}) {
        for (const bool isInverse : {false, true}) {
            check({"VFFTBlock", 5, 1, isInverse, reversed, 1, {5, 5, 1, 3, 3, 3, 2, 5, 4, 4, 1, 5}});
            check({"VFFTCoreBlock", 6, 3, isInverse, reversed, 1, {3, 6, 4, 4, 4, 5, 3, 6, 6}});
        }
        check({"VFFTBlock", 4, 4, false, reversed, 1, {4, 4}});
        check({"VFFTBlock", 4, 2, false, reversed, 2, {2, 4, 3, 3, 4}});
        check({"VFFTBlock", 10, 8, false, reversed, 1, {9, 10, 8}});
    }
}

/// The bits of a single-precision number.
std::int64_t bitsOf(double value) { return std::bit_cast<std::int32_t>(static_cast<float>(value)); }
double numberOf(std::int64_t bits) { return std::bit_cast<float>(static_cast<std::int32_t>(bits)); }

TEST_F(TransformTest, worksOnFloatsOnEachElementOfAVector) {
    // The short butterflies of floats and, from eleven bits on, the long ones.
    for (const int bits : {1, 2, 5, 11}) {
        const std::string single = "float(23,8)";
        BlockRig pipe =
            rig("VFFTPipeBlock",
                {{"FFTBlockMaxSize", std::to_string(bits)},
                 {"FFTBlockMinSize", std::to_string(bits)},
                 {"FFTBlockWireCount", "2"},
                 {"FFTBlockInputType", type("[2] c " + single)}},
                {{"FFTBlockPortValid", "u1.0"}, {"0", "[2] c " + single}, {"FFTBlockPortDrop", "u4.0"}},
                {{"FFTBlockWireValid", "u1.0"}, {"primWireOut", "[2] c " + single}, {"FFTBlockWireDrop", "u4.0"}});
        const std::size_t size = std::size_t{1} << bits;
        std::vector<std::vector<std::int64_t>> cycles;
        std::vector<Complex> samples[2];
        for (std::size_t i = 0; i < size; ++i) {
            std::vector<std::int64_t> cycle{1};
            for (std::vector<Complex> &lane : samples) {
                lane.emplace_back(static_cast<double>(chance(-9999, 9999)) / 1000,
                                  static_cast<double>(chance(-9999, 9999)) / 1000);
                cycle.insert(cycle.end(), {bitsOf(lane.back().real()), bitsOf(lane.back().imag())});
            }
            cycles.push_back(cycle);
            cycles.back().push_back(0);
        }
        cycles.insert(cycles.end(), size, {0, 0, 0, 0, 0, 0});
        const Delivery out = collect(pipe, cycles);
        ASSERT_EQ(out.samples.size(), size);
        for (std::size_t lane = 0; lane < 2; ++lane) {
            const std::vector<Complex> expected = fourier(samples[lane], false);
            for (std::size_t i = 0; i < size; ++i) {
                const Complex value(numberOf(out.samples[i][2 * lane]), numberOf(out.samples[i][2 * lane + 1]));
                EXPECT_LT(std::abs(value - expected[turnedBits(i, bits)]), 1e-5 * static_cast<double>(size))
                    << bits << ", sample " << i;
            }
        }
    }
}

TEST_F(TransformTest, takesRealSamples) {
    BlockRig tested = rig("FFTBlock",
                          {{"FFTBlockN", "3"},
                           {"FFTBlockTwiddlePruningScheme", "full_wordgrowth"},
                           {"FFTBlockInputType", type("s10.6")},
                           {"FFTBlockTwiddleType", type("s2.20")}},
                          {{"FFTBlockPortValid", "u1.0"}, {"0", "s10.6"}},
                          {{"FFTBlockWireValid", "u1.0"}, {"primWireOut", "c s14.6"}});
    std::vector<std::vector<std::int64_t>> cycles;
    std::vector<Complex> samples;
    for (int i = 0; i < 8; ++i) {
        cycles.push_back({1, chance(-32768, 32767)});
        samples.emplace_back(static_cast<double>(cycles.back()[1]) / 64);
    }
    cycles.insert(cycles.end(), 8, {0, 0});
    const Delivery out = collect(tested, cycles);
    const std::vector<Complex> expected = fourier(samples, false);
    ASSERT_EQ(out.samples.size(), 8U);
    for (std::size_t i = 0; i < 8; ++i) {
        const Complex value(static_cast<double>(out.samples[i][0]) / 64, static_cast<double>(out.samples[i][1]) / 64);
        EXPECT_LT(std::abs(value - expected[turnedBits(i, 3)]), 0.1);
    }
}

TEST_F(TransformTest, tellsWhereTheFramesOfALightTransformBegin) {
    for (const bool isVariable : {false, true}) {
        Params params{{"FFTBlockInputType", type("c s8.0")}};
        Ends in{{"FFTBlockPortValid", "u1.0"}, {"0", "c s8.0"}};
        if (isVariable) {
            params.insert(params.end(), {{"FFTBlockMaxSize", "2"}, {"FFTBlockMinSize", "1"}});
            in.emplace_back("FFTBlockPortSize", "u2.0");
        } else {
            params.emplace_back("FFTBlockN", "2");
        }
        const std::string prefix = isVariable ? "VFFTLightWire" : "FFTLightWire";
        BlockRig light =
            rig(isVariable ? "VFFTLightBlock" : "FFTLightBlock", params, in,
                {{"FFTBlockWireValid", "u1.0"}, {(prefix + "Q").c_str(), "c s10.0"}, {(prefix + "G").c_str(), "u1.0"}});
        std::vector<std::vector<std::int64_t>> cycles;
        for (const std::int64_t sample : {1, 2, 3, 4, 0, 0, 0, 0}) {
            cycles.push_back({sample == 0 ? 0 : 1, sample, -sample});
            if (isVariable) {
                cycles.back().push_back(2);
            }
        }
        const Delivery out = collect(light, cycles);
        // Of 1, 2, 3, 4 times 1 - j: in the order 0, 2, 1, 3.
        EXPECT_EQ(out.samples,
                  (std::vector<std::vector<std::int64_t>>{{10, -10, 1}, {-2, 2, 0}, {0, 4, 0}, {-4, 0, 0}}));
        EXPECT_EQ(out.cycles, (std::vector<std::size_t>{3, 4, 5, 6}));
    }
}

// Stages.

class StageTest : public FftRowsTest {
  protected:
    Delivery run(const char *block, const Params &params, const std::vector<std::int64_t> &samples, std::int64_t drop) {
        BlockRig stage =
            rig(block, params, {{"FFTBlockPortValid", "u1.0"}, {"0", "c s8.4"}, {"FFTBlockPortDrop", "u3.0"}},
                {{"FFTBlockWireValid", "u1.0"}, {"primWireOut", "c s12.4"}, {"FFTBlockWireDrop", "u3.0"}});
        std::vector<std::vector<std::int64_t>> cycles;
        for (const std::int64_t sample : samples) {
            cycles.push_back({1, sample, 0, drop});
        }
        cycles.insert(cycles.end(), 8, {0, 0, 0, drop});
        return collect(stage, cycles);
    }
    using Samples = std::vector<std::vector<std::int64_t>>;
};

TEST_F(StageTest, radixTwoGivesSumsAndDifferencesOneHalfLater) {
    for (const char *block : {"FFT2Block", "VFFT2Block"}) {
        const Delivery out =
            run(block, {{"FFTBlockStagesBefore", "1"}, {"FFTBlockStagesAfter", "1"}}, {10, 20, 3, 4}, 1);
        EXPECT_EQ(out.samples, (Samples{{13, 0, 1}, {24, 0, 1}, {7, 0, 1}, {16, 0, 1}})) << block;
        EXPECT_EQ(out.cycles, (std::vector<std::size_t>{2, 3, 4, 5})) << block;
    }
}

TEST_F(StageTest, radixTwoIsLeftOutAtOnce) {
    const Delivery out =
        run("VFFT2Block", {{"FFTBlockStagesBefore", "1"}, {"FFTBlockStagesAfter", "1"}}, {10, 20, 3, 4}, 2);
    EXPECT_EQ(out.samples, (Samples{{10, 0, 2}, {20, 0, 2}, {3, 0, 2}, {4, 0, 2}}));
    EXPECT_EQ(out.cycles, (std::vector<std::size_t>{0, 1, 2, 3}));
}

TEST_F(StageTest, radixFourTransformsFourSamples) {
    for (const char *block : {"FFT4Block", "VFFT4Block"}) {
        for (const char *inverse : {"false", "true"}) {
            const std::int64_t sign = std::string(inverse) == "true" ? -1 : 1;
            const Delivery out =
                run(block, {{"FFTBlockStagesBefore", "0"}, {"FFTBlockStagesAfter", "0"}, {"FFTBlockInverse", inverse}},
                    {1, 2, 3, 5}, 0);
            EXPECT_EQ(out.samples, (Samples{{11, 0, 0}, {-3, 0, 0}, {-2, sign * 3, 0}, {-2, sign * -3, 0}})) << block;
            EXPECT_EQ(out.cycles, (std::vector<std::size_t>{3, 4, 5, 6})) << block;
        }
    }
}

TEST_F(StageTest, radixFourIsLeftOutByHalves) {
    const Params params{{"FFTBlockStagesBefore", "0"}, {"FFTBlockStagesAfter", "0"}};
    EXPECT_EQ(run("VFFT4Block", params, {1, 2, 3, 5}, 1).samples,
              (Samples{{3, 0, 1}, {-1, 0, 1}, {8, 0, 1}, {-2, 0, 1}}));
    EXPECT_EQ(run("VFFT4Block", params, {1, 2, 3, 5}, 2).samples,
              (Samples{{1, 0, 2}, {2, 0, 2}, {3, 0, 2}, {5, 0, 2}}));
}

TEST_F(StageTest, twiddleTurnsEachSampleByIndexTimesTurnedPivot) {
    for (const char *block : {"TwiddleBlock", "VTwiddleBlock"}) {
        for (const int drop : {0, 2}) {
            // Two dropped stages, of which one lies before, leave a pivot of one bit.
            const bool isShort = drop == 2 && block[0] == 'V';
            const std::vector<std::int64_t> samples(16, 1000);
            const Delivery out = run(block,
                                     {{"FFTBlockStagesBefore", "1"},
                                      {"FFTBlockStagesAfter", "1"},
                                      {"FFTBlockPivotWidth", "2"},
                                      {"FFTBlockIndexWidth", "1"},
                                      {"FFTBlockTwiddleType", type("s2.14")},
                                      {"FFTBlockInputType", type("c s8.4")},
                                      {"FFTBlockOutputType", type("c s9.4")}},
                                     samples, drop);
            ASSERT_EQ(out.samples.size(), 16U);
            for (std::uint64_t i = 0; i < 16; ++i) {
                const std::uint64_t number = isShort ? i % 8 : i;
                const std::uint64_t pivot = turnedBits(number >> 2, 2);
                const Complex exact =
                    std::polar(1000.0, -2 * std::acos(-1.0) * static_cast<double>((number >> 1 & 1) * pivot) / 8);
                EXPECT_NEAR(static_cast<double>(out.samples[i][0]), exact.real(), 0.6) << block << " " << i;
                EXPECT_NEAR(static_cast<double>(out.samples[i][1]), exact.imag(), 0.6) << block << " " << i;
                EXPECT_EQ(out.cycles[i], i);
            }
        }
    }
}

// Members against the parts that they stand for, in one design, on the same samples: equal in every cycle, valid or
// not.

class PartsTest : public FftRowsTest {
  protected:
    using Inputs = std::vector<std::pair<const char *, Wire *>>;

    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Wire &input(const std::string &name, const std::string &shortForm) {
        return pinned(*Wire::create(in, name), shortForm);
    }
    Block &block(const char *blockType, const Params &params, const Inputs &inputs) {
        Block &made = *Block::create(top, "b" + std::to_string(++blocks), value(blockType));
        for (const auto &[key, text] : params) {
            made.setParam(value(key), ValueRef(value(text)));
        }
        for (const auto &[key, wire] : inputs) {
            made.setParam(value(key), *wire);
        }
        return made;
    }
    Wire &out(Block &from, const char *key = "primWireOut") { return *Wire::create(from, value(key)); }
    Wire &pinned(Wire &wire, const std::string &shortForm) {
        return out(block("typePinBlock", {{"typePinType", type(shortForm)}}, {{"0", &wire}}), "0");
    }
    /// Two wires that must agree.
    void expectEqual(Wire &one, Wire &other) {
        result.setParam(value("o" + std::to_string(outputs++)), one);
        result.setParam(value("o" + std::to_string(outputs++)), other);
    }
    struct Stream {
        Wire *valid;
        Wire *data;
        Wire *drop;
    };
    Stream stage(const char *blockType, const Params &params, const Stream &from, const std::string &shortForm) {
        Block &made = block(blockType, params,
                            {{"FFTBlockPortValid", from.valid}, {"0", from.data}, {"FFTBlockPortDrop", from.drop}});
        return {&pinned(out(made, "FFTBlockWireValid"), "u1.0"), &pinned(out(made), shortForm),
                &pinned(out(made, "FFTBlockWireDrop"), "u3.0")};
    }
    Wire &delayedValid(Wire &valid, int after) {
        Block &made =
            block("DelayValidBlock", {{"FFTBlockStagesAfter", std::to_string(after)}}, {{"FFTBlockPortValid", &valid}});
        return pinned(out(made, "FFTBlockWireValid"), "u1.0");
    }
    Wire &counter(Wire &enable, int limit) {
        return out(block("counterBlock",
                         {{"counterInitial", "-1"}, {"counterStep", "1"}, {"counterLimit", std::to_string(limit)}},
                         {{"portEnable", &enable}}));
    }
    Wire &bit(Wire &from, int offset) {
        return out(block("bitSelectBlock",
                         {{"bitSelectBitOffset", std::to_string(offset)}, {"bitSelectOutputType", type("u1.0")}},
                         {{"0", &from}}));
    }
    void expectEqual(const Stream &one, const Stream &other) {
        expectEqual(*one.valid, *other.valid);
        expectEqual(*one.data, *other.data);
        expectEqual(*one.drop, *other.drop);
    }
    /// Frames with pauses between them, and any data in these.
    void run(int frame, std::int64_t drop) {
        Simulator simulator(design, top);
        ASSERT_EQ(simulator.inputs().size(), 4U);
        const std::size_t scalars = simulator.outputs().size();
        for (int cycle = 0; cycle < 40 * frame; ++cycle) {
            // Inputs by name: the number of dropped stages, then valid, then the data.
            const std::int64_t values[] = {drop, cycle / frame % 3 != 2 ? 1 : 0, chance(-128, 127), chance(-128, 127)};
            for (std::size_t i = 0; i < 4; ++i) {
                simulator.setInput(i, values[i]);
            }
            simulator.step();
            std::map<std::string, std::int64_t> seen;
            for (std::size_t i = 0; i < scalars; ++i) {
                seen[simulator.outputs()[i].name] = simulator.outputInteger(i);
            }
            for (const auto &[name, number] : seen) {
                const std::string part = name.substr(4);
                const int index = std::stoi(name.substr(1, 3));
                if (index % 2 == 0) {
                    ASSERT_EQ(number, seen.at("o" + std::to_string(index + 1) + part)) << name << ", cycle " << cycle;
                }
            }
        }
    }

    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    Block &result = *Block::create(top, "out", A_OUTPUT_BLOCK);
    int blocks = 0;
    int outputs = 100;
    Stream source{&input("i2", "u1.0"), &input("i3", "c s8.0"), &input("i1", "u3.0")};
};

TEST_F(PartsTest, longButterflyIsADelayInALoop) {
    Wire &sub = bit(counter(*source.valid, 8), 2);
    Block &whole =
        block("BFULongBlock", {{"FFTBlockN", "3"}}, {{"FFTBlockPortData", source.data}, {"FFTBlockPortSub", &sub}});
    Block &delay = block("delayBlock", {{"delayLength", "4"}}, {});
    Wire &delayed = pinned(out(delay), "c s9.0");
    Wire &data = out(block("castBlock", {{"castOutputType", type("c s9.0")}}, {{"0", source.data}}));
    Block &sums = block("addsubfusedBlock", {}, {{"0", &delayed}, {"1", &data}});
    const Params cut{{"castOutputType", type("c s9.0")}};
    Wire &sum = out(block("castBlock", cut, {{"0", &out(sums)}}));
    Wire &difference = out(block("castBlock", cut, {{"0", &out(sums, "primWireAux")}}));
    delay.setParam(value("0"), out(block("muxBlock", {}, {{"muxPortSelect", &sub}, {"0", &data}, {"1", &difference}})));
    expectEqual(pinned(out(whole), "c s9.0"),
                out(block("muxBlock", {}, {{"muxPortSelect", &sub}, {"0", &delayed}, {"1", &sum}})));
    expectEqual(*source.drop, *source.drop);
    run(8, 0);
}

TEST_F(PartsTest, radixTwoStageIsACounterAndAButterfly) {
    const Stream whole = stage("FFT2Block", {{"FFTBlockStagesAfter", "2"}}, source, "c s9.0");
    Wire &sub = out(block("andBlock", {}, {{"0", source.valid}, {"1", &bit(counter(*source.valid, 8), 2)}}));
    Block &butterfly =
        block("BFUBlock", {{"FFTBlockN", "3"}}, {{"FFTBlockPortData", source.data}, {"FFTBlockPortSub", &sub}});
    expectEqual(whole, {&delayedValid(*source.valid, 2), &pinned(out(butterfly), "c s9.0"), source.drop});
    run(8, 0);
}

TEST_F(PartsTest, radixFourStageIsTwoOfRadixTwoAroundAQuarterTurn) {
    for (const bool reversed : {false, true}) {
        const int firstSpan = reversed ? 1 : 2;
        const int secondSpan = 3 - firstSpan;
        const Stream whole = stage(
            "FFT4Block", {{"FFTBlockStagesAfter", "1"}, {"FFTBlockInputBitReversed", reversed ? "true" : "false"}},
            source, "c s10.0");
        const Stream first = stage("FFT2Block", {{"FFTBlockStagesAfter", std::to_string(firstSpan)}}, source, "c s9.0");
        Wire &count = counter(*first.valid, 8);
        Wire &sub = out(block("andBlock", {}, {{"0", first.valid}, {"1", &bit(count, secondSpan)}}));
        Wire &rotate = out(block("andBlock", {}, {{"0", first.valid}, {"1", &bit(count, 1)}, {"2", &bit(count, 2)}}));
        Block &turn =
            block("TrivialTwiddleBlock", {}, {{"FFTBlockPortData", first.data}, {"TrivialTwiddlePortRotate", &rotate}});
        Block &butterfly = block("BFUBlock", {{"FFTBlockN", std::to_string(secondSpan + 1)}},
                                 {{"FFTBlockPortData", &pinned(out(turn), "c s9.0")}, {"FFTBlockPortSub", &sub}});
        expectEqual(whole, {&delayedValid(*first.valid, secondSpan), &pinned(out(butterfly), "c s10.0"), first.drop});
    }
    run(8, 0);
}

TEST_F(PartsTest, pipeIsAChainOfStagesAndTwiddles) {
    const Params types{{"FFTBlockInputType", type("c s8.0")},
                       {"FFTBlockTwiddleType", type("s2.10")},
                       {"FFTBlockTwiddlePruningScheme", "full_wordgrowth"},
                       {"FFTBlockComplexInput", "true"}};
    for (const bool isVariable : {false, true}) {
        const char *inverse = isVariable ? "true" : "false";
        Params params = types;
        params.insert(
            params.end(),
            {{"FFTBlockMaxSize", "3"}, {"FFTBlockMinSize", isVariable ? "1" : "3"}, {"FFTBlockInverse", inverse}});
        const Stream whole = stage("VFFTPipeBlock", params, source, "c s12.0");
        const std::string prefix = isVariable ? "V" : "";
        const Params first{{"FFTBlockStagesBefore", "0"}, {"FFTBlockStagesAfter", "2"}, {"FFTBlockInverse", inverse}};
        const Params last{{"FFTBlockStagesBefore", "1"}, {"FFTBlockStagesAfter", "0"}, {"FFTBlockInverse", inverse}};
        const Params twiddle{{"FFTBlockStagesBefore", "0"},
                             {"FFTBlockStagesAfter", "0"},
                             {"FFTBlockInverse", inverse},
                             {"FFTBlockPivotWidth", "1"},
                             {"FFTBlockIndexWidth", "2"},
                             {"FFTBlockInputType", type("c s9.0")},
                             {"FFTBlockTwiddleType", type("s2.10")},
                             {"FFTBlockOutputType", type("c s10.0")}};
        const Stream early = stage((prefix + "FFT2Block").c_str(), first, source, "c s9.0");
        const Stream turned = stage((prefix + "TwiddleBlock").c_str(), twiddle, early, "c s10.0");
        expectEqual(whole, stage((prefix + "FFT4Block").c_str(), last, turned, "c s12.0"));
    }
    run(8, 1);
}

// What cannot be drawn.

TEST_F(FftRowsTest, refusesWhatHasNoMeaning) {
    const Ends in{{"FFTBlockPortValid", "u1.0"}, {"0", "c s8.0"}};
    const Ends out{{"FFTBlockWireValid", "u1.0"}, {"primWireOut", "c s12.0"}};
    EXPECT_EQ(refusal("FFTBlock", {}, in, out), "the size is not told, or no small number");
    EXPECT_EQ(refusal("FFTBlock", {{"FFTBlockN", "3"}}, in, out), "the types of its twiddles are not told");
    EXPECT_EQ(refusal("FFTBlock", {{"FFTBlockN", "2"}}, in, {{"FFTBlockWireValid", "u1.0"}, {"primWireOut", "s12.0"}}),
              "the output is complex, and its type is real");
    EXPECT_EQ(
        refusal("transposeBlock", {{"FFTBlockN", "2"}, {"FFTBlockPerm", "(0 2)"}}, in, {{"transposeWireQ", "c s8.0"}}),
        "the permutation is none");
    EXPECT_EQ(refusal("TwiddleRomBlock", {{"TwiddleRomAngleWidth", "2"}, {"FFTBlockTwiddleType", type("s2.6")}},
                      {{"0", "u2.0"}}, {{"primWireOut", "c s2.6"}}),
              "a table for an angle of 2 bits has no meaning in it");
}

} // namespace
} // namespace orvo::sim
