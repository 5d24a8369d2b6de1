// Plans of stages, growth of words, permutations and points of the unit circle.
#include "orvo/fftplan.h"

#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <complex>
#include <numeric>

namespace orvo::internal {
namespace {

TEST(StagePlan, isOneStageForOneAndTwoBits) {
    EXPECT_EQ(stagePlan(false, 1, 0, 0), (std::vector<StagePlanRow>{{0, 0, 0, 0, 1}}));
    EXPECT_EQ(stagePlan(true, 2, 3, 1), (std::vector<StagePlanRow>{{0, 0, 1, 3, 2}}));
}

TEST(StagePlan, halvesThreeBitsAroundATwiddle) {
    EXPECT_EQ(stagePlan(false, 3, 0, 0),
              (std::vector<StagePlanRow>{{0, 0, 0, 2, 1}, {1, 2, 0, 0, 3}, {0, 0, 1, 0, 2}}));
    EXPECT_EQ(stagePlan(true, 3, 0, 0), (std::vector<StagePlanRow>{{0, 0, 2, 0, 1}, {2, 1, 0, 0, 3}, {0, 0, 0, 1, 2}}));
}

RC_GTEST_PROP(StagePlan, spansAllBitsOnceWithATwiddleBetweenNeighbours, ()) {
    const bool reversed = *rc::gen::arbitrary<bool>();
    const int bits = *rc::gen::inRange(1, 31);
    const std::vector<StagePlanRow> plan = stagePlan(reversed, bits, 0, 0);
    RC_ASSERT(plan.size() % 2 == 1);
    int done = 0;
    for (std::size_t i = 0; i < plan.size(); ++i) {
        const StagePlanRow &row = plan[i];
        RC_ASSERT(row.before + row.bits + row.after == bits);
        if (i % 2 == 0) {
            RC_ASSERT((reversed ? row.after : row.before) == done);
            RC_ASSERT(row.bits == 1 || row.bits == 2);
            done += row.bits;
        } else {
            RC_ASSERT(row.pivot + row.index == row.bits);
        }
    }
    RC_ASSERT(done == bits);
}

class WordGrowthTest : public ::testing::Test {
  protected:
    static std::vector<std::pair<int, int>> widths(const std::vector<TwiddleTypes> &types) {
        std::vector<std::pair<int, int>> all;
        for (const TwiddleTypes &one : types) {
            all.emplace_back(one.input.fixedBits(), one.output.fixedBits());
        }
        return all;
    }
    ContextMgr mgr;
    WordGrowth growth{false, false, 5, NumTypeSpec::sfixed(4, 12), NumTypeSpec::sfixed(2, 14)};
};

TEST_F(WordGrowthTest, losesNothingWhenFull) {
    using Widths = std::vector<std::pair<int, int>>;
    EXPECT_EQ(widths(growFully(growth)), (Widths{{17, 17}, {18, 18}, {19, 19}, {20, 20}}));
    growth.isComplexInput = true;
    EXPECT_EQ(widths(growFully(growth)), (Widths{{17, 18}, {18, 19}, {20, 20}, {21, 21}}));
    growth.startsOnTwoWires = true;
    EXPECT_EQ(widths(growFully(growth)), (Widths{{17, 18}, {19, 19}, {20, 20}, {21, 21}}));
    growth.bits = 1;
    EXPECT_TRUE(growFully(growth).empty());
}

TEST_F(WordGrowthTest, dropsOneFractionBitInTwoWhenMild) {
    const std::vector<TwiddleTypes> types = growMildly(growth);
    ASSERT_EQ(types.size(), 4U);
    const int inputFractions[] = {12, 12, 11, 11};
    const int outputFractions[] = {12, 11, 11, 10};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(types[static_cast<std::size_t>(i)].input.fracBits(), inputFractions[i]);
        EXPECT_EQ(types[static_cast<std::size_t>(i)].output.fracBits(), outputFractions[i]);
        EXPECT_EQ(types[static_cast<std::size_t>(i)].input.intBits(), 5 + i);
    }
}

TEST_F(WordGrowthTest, stopsAtAWidth) {
    const std::vector<TwiddleTypes> types = growToWidth(growth, 18);
    EXPECT_EQ(widths(types), (std::vector<std::pair<int, int>>{{17, 17}, {18, 18}, {18, 18}, {18, 18}}));
    EXPECT_EQ(types[3].input.intBits(), 8);
    // A width below that of the input shrinks the words from the start.
    EXPECT_EQ(growToWidth(growth, 12)[0].input, NumTypeSpec::sfixed(5, 7));
}

TEST_F(WordGrowthTest, makesSamplesComplexBehindTheFirstTwiddle) {
    const std::vector<TwiddleTypes> types = growFully(growth);
    EXPECT_FALSE(types[0].input.isComplex());
    EXPECT_TRUE(types[0].output.isComplex());
    EXPECT_TRUE(types[1].input.isComplex());
}

TEST_F(WordGrowthTest, readsTypesFromAText) {
    const std::vector<TwiddleTypes> types = growAsTold(2, "fixdt(1,17,12), fixdt(1,16,14) and fixdt(0,18,12)");
    ASSERT_EQ(types.size(), 1U);
    EXPECT_TRUE(types[0].input.scalarEquals(NumTypeSpec::sfixed(5, 12)));
    EXPECT_TRUE(types[0].factor.scalarEquals(NumTypeSpec::sfixed(2, 14)));
    EXPECT_TRUE(types[0].output.scalarEquals(NumTypeSpec::ufixed(6, 12)));
    EXPECT_TRUE(types[0].output.isComplex());
    // Where terms are missing, reading begins again behind the first five characters.
    EXPECT_EQ(growAsTold(2, "fixdt(1,17,12)").size(), 1U);
    EXPECT_EQ(growAsTold(3, "").size(), 2U);
}

TEST_F(WordGrowthTest, isToldByTheParametersOfABlock) {
    Design design(mgr.context());
    Block &block = *Block::create(*Model::create(design, "top"), "fft", A_FFT_BLOCK);
    block.setParam(A_FFTBLOCK_N, ValueRef(NumberValue::get(3, mgr.context())));
    EXPECT_TRUE(twiddleTypes(block).empty());
    block.setParam(A_FFTBLOCK_INPUT_TYPE, ValueRef(growth.input.toValue(mgr.context())));
    block.setParam(A_FFTBLOCK_TWIDDLE_TYPE, ValueRef(growth.factor.toValue(mgr.context())));
    EXPECT_TRUE(twiddleTypes(block).empty());
    block.setParam(A_FFTBLOCK_TWIDDLE_PRUNING_SCHEME, ValueRef(A_FFTBLOCK_FULL_WORDGROWTH));
    EXPECT_EQ(widths(twiddleTypes(block)), (std::vector<std::pair<int, int>>{{17, 17}, {18, 18}}));
    block.setParam(A_FFTBLOCK_INPUT_TYPE, ValueRef(NumTypeSpec::sfloatIEEE(23, 8).toValue(mgr.context())));
    const std::vector<TwiddleTypes> floats = twiddleTypes(block);
    ASSERT_EQ(floats.size(), 2U);
    EXPECT_EQ(floats[1].factor, NumTypeSpec::sfloatIEEE(23, 8));
}

TEST(Permutations, reverseBits) {
    EXPECT_EQ(bitReversedOrder({0, 1, 2, 3, 4, 5, 6, 7}), (Permutation{0, 4, 2, 6, 1, 5, 3, 7}));
    EXPECT_EQ(bitReversedOrder({7}), (Permutation{7}));
}

TEST(Permutations, formGroups) {
    EXPECT_EQ(permutationGroup({1, 2, 0}), (std::vector<Permutation>{{0, 1, 2}, {1, 2, 0}, {2, 0, 1}}));
    EXPECT_EQ(permutationGroup({0, 1}).size(), 1U);
    EXPECT_FALSE(isPermutation({0, 2}));
    EXPECT_FALSE(isPermutation({1, 1}));
    EXPECT_TRUE(isPermutation({1, 0}));
}

TEST(Permutations, partWiresByBits) {
    EXPECT_EQ(wirePermutation({0, 1, 2}), (Permutation{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(wirePermutation({2, 1, 0}), (Permutation{0, 4, 2, 6, 1, 5, 3, 7}));
}

TEST(Permutations, gatherBits) { EXPECT_EQ(gatheredBits(0b10110, {4, 0, 2}), 0b101U); }

TEST(UnitRoot, liesWhereItShould) {
    for (std::int64_t denominator : {1, 3, 8, 1024}) {
        for (std::int64_t numerator = -2 * denominator; numerator <= 2 * denominator; ++numerator) {
            const double angle =
                2 * std::acos(-1.0) * static_cast<double>(numerator) / static_cast<double>(denominator);
            const UnitRoot root = unitRoot(numerator, denominator);
            EXPECT_NEAR(root.re, std::cos(angle), 1e-14);
            EXPECT_NEAR(root.im, std::sin(angle), 1e-14);
        }
    }
}

TEST(UnitRoot, isExactOnTheAxesAndEvenBetweenThem) {
    const double quarters[4][2] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(unitRoot(i, 4).re, quarters[i][0]);
        EXPECT_EQ(unitRoot(i, 4).im, quarters[i][1]);
        EXPECT_FALSE(std::signbit(unitRoot(i, 4).re) && quarters[i][0] == 0);
        EXPECT_FALSE(std::signbit(unitRoot(i, 4).im) && quarters[i][1] == 0);
        EXPECT_EQ(std::abs(unitRoot(2 * i + 1, 8).re), std::abs(unitRoot(2 * i + 1, 8).im));
    }
}

} // namespace
} // namespace orvo::internal
