// Transforms of several samples a cycle: constant factors, exchanges of wires, and transforms across wires.
#include "support/blockrig.h"

#include <orvo/context.h>

#include <gtest/gtest.h>

#include <bit>

namespace orvo::sim {
namespace {

using testing::BlockRig;
using testing::Complex;
using testing::fourier;
using testing::turnedBits;

class FftSpatialRowsTest : public testing::RigTest {
  protected:
    static std::string number(std::int64_t value) { return std::to_string(value); }
};

TEST_F(FftSpatialRowsTest, multipliesByTheFactorOfAnAngle) {
    for (const int m : {-3, 0, 1, 2, 5}) {
        BlockRig fixed =
            rig("TwiddleByPBlock",
                {{"TwiddleByPM", number(m)}, {"TwiddleByPN", "16"}, {"FFTBlockTwiddleType", type("s2.14")}},
                {{"0", "c s10.0"}}, {{"primWireOut", "c s12.14"}});
        const Complex exact = Complex(300, -77) * std::polar(1.0, 2 * std::acos(-1.0) * m / 16);
        const std::vector<std::int64_t> out = fixed.step({300, -77});
        EXPECT_NEAR(static_cast<double>(out[0]) / 16384, exact.real(), 0.02) << m;
        EXPECT_NEAR(static_cast<double>(out[1]) / 16384, exact.imag(), 0.02) << m;
        BlockRig single = rig("TwiddleByFBlock", {{"TwiddleByFM", number(m)}, {"TwiddleByFN", "16"}},
                              {{"0", "c float(23,8)"}}, {{"primWireOut", "c float(23,8)"}});
        const std::vector<std::int64_t> bits =
            single.step({std::bit_cast<std::int32_t>(300.F), std::bit_cast<std::int32_t>(-77.F)});
        EXPECT_NEAR(std::bit_cast<float>(static_cast<std::int32_t>(bits[0])), exact.real(), 1e-4) << m;
        EXPECT_NEAR(std::bit_cast<float>(static_cast<std::int32_t>(bits[1])), exact.imag(), 1e-4) << m;
    }
}

TEST_F(FftSpatialRowsTest, turnsByEighths) {
    for (const int eighths : {1, 3}) {
        const std::string name = "TwiddleBy" + number(eighths) + "_8";
        const Complex exact = Complex(300, -77) * std::polar(1.0, std::acos(-1.0) * eighths / 4);
        BlockRig fixed = rig((name + "PBlock").c_str(), {{"FFTBlockTwiddleType", type("s2.14")}}, {{"0", "c s10.0"}},
                             {{"primWireOut", "c s13.14"}});
        const std::vector<std::int64_t> out = fixed.step({300, -77});
        EXPECT_NEAR(static_cast<double>(out[0]) / 16384, exact.real(), 0.02) << eighths;
        EXPECT_NEAR(static_cast<double>(out[1]) / 16384, exact.imag(), 0.02) << eighths;
        BlockRig single =
            rig((name + "FBlock").c_str(), {}, {{"0", "c float(23,8)"}}, {{"primWireOut", "c float(23,8)"}});
        const std::vector<std::int64_t> bits =
            single.step({std::bit_cast<std::int32_t>(300.F), std::bit_cast<std::int32_t>(-77.F)});
        EXPECT_NEAR(std::bit_cast<float>(static_cast<std::int32_t>(bits[0])), exact.real(), 1e-4) << eighths;
        EXPECT_NEAR(std::bit_cast<float>(static_cast<std::int32_t>(bits[1])), exact.imag(), 1e-4) << eighths;
    }
}

TEST_F(FftSpatialRowsTest, exchangesWiresByTheParityOfTheCount) {
    BlockRig stage = rig("ButterflyStageBlock", {{"ButterflyStageSbit", "1"}, {"xorBitsBitlist", "(0 2)"}},
                         {{"0", "[4] s8.0"}, {"FFTBlockPortCount", "u3.0"}}, {{"primWireOut", "[4] s8.0"}});
    for (std::int64_t count = 0; count < 8; ++count) {
        const bool swaps = ((count ^ count >> 2) & 1) != 0;
        EXPECT_EQ(stage.step({1, 2, 3, 4, count}),
                  (swaps ? std::vector<std::int64_t>{3, 4, 1, 2} : std::vector<std::int64_t>{1, 2, 3, 4}));
    }
}

TEST_F(FftSpatialRowsTest, transformsBlocksFromReversedToNaturalOrder) {
    BlockRig two = rig("FFTNPBlock", {{"FFTBlockN", "1"}}, {{"0", "[4] s8.0"}, {"FFTBlockPortValid", "u1.0"}},
                       {{"primWireOut", "[4] s9.0"}, {"FFTBlockWireValid", "u1.0"}});
    EXPECT_EQ(two.step({1, 20, 5, -128, 1}), (std::vector<std::int64_t>{6, -108, -4, 148, 1}));
    BlockRig four = rig("FFTNPBlock", {{"FFTBlockN", "2"}}, {{"0", "[4] c s8.0"}}, {{"primWireOut", "[4] c s10.0"}});
    const std::vector<Complex> samples{{1, -7}, {100, 3}, {-128, 127}, {5, 6}};
    const std::vector<std::int64_t> out = four.step({1, -7, -128, 127, 100, 3, 5, 6});
    const std::vector<Complex> expected = fourier(samples, false);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(out[2 * i], std::llround(expected[i].real()));
        EXPECT_EQ(out[2 * i + 1], std::llround(expected[i].imag()));
    }
}

TEST_F(FftSpatialRowsTest, transformsOverTheLowBitsOfWires) {
    for (int wires = 1; wires <= 3; ++wires) {
        for (int choice = 0; choice < 16; ++choice) {
            const int stages = 1 + choice % 2;
            const bool inputReversed = (choice & 2) != 0;
            const bool outputReversed = (choice & 4) != 0;
            const bool isInverse = (choice & 8) != 0;
            if (stages > wires) {
                continue;
            }
            const std::string shape = "[" + number(1 << wires) + "] c ";
            BlockRig tested = rig("FFTNXBlock",
                                  {{"FFTBlockN", number(stages)},
                                   {"FFTBlockSpatialBits", number(wires)},
                                   {"FFTBlockInputBitReversed", inputReversed ? "true" : "false"},
                                   {"FFTBlockOutputBitReversed", outputReversed ? "true" : "false"},
                                   {"FFTBlockInverse", isInverse ? "true" : "false"}},
                                  {{"0", shape + "s8.0"}}, {{"primWireOut", shape + "s11.0"}});
            std::vector<std::int64_t> in;
            for (int i = 0; i < 2 << wires; ++i) {
                in.push_back(chance(-128, 127));
            }
            const std::vector<std::int64_t> out = tested.step(in);
            const std::size_t size = std::size_t{1} << stages;
            for (std::size_t column = 0; column < in.size() / 2; column += size) {
                std::vector<Complex> samples(size);
                for (std::size_t i = 0; i < size; ++i) {
                    const std::size_t wire = column + (inputReversed ? turnedBits(i, stages) : i);
                    samples[i] = Complex(static_cast<double>(in[2 * wire]), static_cast<double>(in[2 * wire + 1]));
                }
                const std::vector<Complex> expected = fourier(samples, isInverse);
                for (std::size_t i = 0; i < size; ++i) {
                    const std::size_t wire = column + (outputReversed ? turnedBits(i, stages) : i);
                    EXPECT_EQ(out[2 * wire], std::llround(expected[i].real())) << wires << " " << choice;
                    EXPECT_EQ(out[2 * wire + 1], std::llround(expected[i].imag())) << wires << " " << choice;
                }
            }
        }
    }
}

TEST_F(FftSpatialRowsTest, turnsTheSamplesOfEachWire) {
    // A sample's number has its wire in the low bit; the frame has four cycles.
    BlockRig twiddle = rig("GeneralTwiddleBlock",
                           {{"FFTBlockSpatialBits", "1"},
                            {"FFTBlockXbits", "(0 1)"},
                            {"FFTBlockYbits", "(2)"},
                            {"FFTBlockInputType", type("c s12.0")},
                            {"FFTBlockTwiddleType", type("s2.14")},
                            {"FFTBlockOutputType", type("c s13.0")}},
                           {{"FFTBlockPortValid", "u1.0"}, {"0", "[2] c s12.0"}},
                           {{"primWireOut", "[2] c s13.0"}, {"FFTBlockWireValid", "u1.0"}});
    twiddle.step({0, 0, 0, 0, 0});
    for (int cycle = 0; cycle < 8; ++cycle) {
        const std::vector<std::int64_t> out = twiddle.step({1, 1500, 300, 1500, 300});
        for (std::size_t wire = 0; wire < 2; ++wire) {
            const int sample = cycle % 4 * 2 + static_cast<int>(wire);
            const Complex exact =
                Complex(1500, 300) * std::polar(1.0, -2 * std::acos(-1.0) * (sample & 3) * (sample >> 2) / 8);
            EXPECT_NEAR(static_cast<double>(out[2 * wire]), exact.real(), 0.7) << cycle;
            EXPECT_NEAR(static_cast<double>(out[2 * wire + 1]), exact.imag(), 0.7) << cycle;
        }
        EXPECT_EQ(out[4], 1);
    }
}

TEST_F(FftSpatialRowsTest, refusesWhatHasNoMeaning) {
    EXPECT_EQ(refusal("FFTNPBlock", {{"FFTBlockN", "3"}}, {{"0", "[8] c s8.0"}}, {{"primWireOut", "[8] c s11.0"}}),
              "a transform across wires of other than one or two stages has no meaning here");
    EXPECT_EQ(refusal("FFTNXBlock", {{"FFTBlockN", "2"}, {"FFTBlockSpatialBits", "1"}}, {{"0", "[2] c s8.0"}},
                      {{"primWireOut", "[2] c s10.0"}}),
              "the transform has more stages than spatial bits, or there are too many of these");
    EXPECT_EQ(refusal("ButterflyStageBlock", {{"ButterflyStageSbit", "2"}}, {{"0", "[4] s8.0"}},
                      {{"primWireOut", "[4] s8.0"}}),
              "the data is no vector with such a bit in the numbers of its elements");
    EXPECT_EQ(refusal("HybridFFTBlock", {}, {{"0", "[4] c s8.0"}}, {{"primWireOut", "[4] c s8.0"}}),
              "block type 'HybridFFTBlock' cannot be simulated");
}

} // namespace
} // namespace orvo::sim
