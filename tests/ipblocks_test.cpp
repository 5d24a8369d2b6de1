// The growth formulas of the filters, and the type rules over them.
#include "orvo/ipblocks.h"

#include "support/typetable.h"

#include <gtest/gtest.h>

namespace orvo {
namespace {

using namespace internal;
using testing::checkTypes;

TEST(FilterFormulas, sizeADecimator) {
    // 16 bits, four stages, rate 25: 16 + ceil(4 * log2 25).
    EXPECT_EQ(CIC_DecimCalcOutputWidth(16, 4, 25, 1), 35);
    EXPECT_EQ(CIC_DecimCalcOutputWidth(8, 1, 1, 1), 8);
    EXPECT_EQ(CIC_DecimCalcOutputWidth(8, 2, 4, 1), 12);
    EXPECT_EQ(CIC_DecimCalcGain(4, 25, 1), 390625);
    EXPECT_EQ(CIC_DecimCalcGain(0, 25, 1), 1);
    EXPECT_EQ(CIC_DecimCalcGain(60, 1000, 2), INT64_MAX);
}

TEST(FilterFormulas, sizeAnInterpolator) {
    EXPECT_DOUBLE_EQ(CIC_InterpCalcStageGain(3, 8, 1, 2), 4);
    EXPECT_DOUBLE_EQ(CIC_InterpCalcStageGain(3, 8, 1, 6), 64);
    EXPECT_DOUBLE_EQ(CIC_InterpCalcGain(3, 8, 1), 64);
    EXPECT_EQ(CIC_InterpCalcStageWidth(16, 3, 8, 1, 3), 18) << "the last comb, of delay one";
    EXPECT_EQ(CIC_InterpCalcStageWidth(16, 3, 8, 2, 3), 19);
    EXPECT_EQ(CIC_InterpCalcOutputWidth(16, 3, 8, 1), 22);
}

TEST(FilterFormulas, countPhysicalChannels) {
    EXPECT_EQ(CIC_CalcPhysChanIn(10, 100, 8), 1);
    EXPECT_EQ(CIC_CalcPhysChanIn(50, 100, 8), 4);
    EXPECT_EQ(CIC_CalcPhysChanOut(100, 10, 5, 8, 1), 4);
    EXPECT_EQ(CIC_CalcPhysChanOut(100, 10, 5, 8, 2), 2);
    EXPECT_EQ(CIC_CalcPhysChanOut(100, 300, 1, 2, 0), 2);
}

TEST(IPTypes, growInFilters) {
    const testing::TypeCase::Texts decimator{
        {"cicScaleType", "cicScaleDecim"}, {"cicRateFactor", "25"}, {"cicStageCount", "4"}, {"cicDelayCount", "1"}};
    checkTypes({
        {"a decimator",
         "cicBlock",
         {{"0", "s12.4"}},
         decimator,
         {{"0", "s31.4"}, {"cicWireData", "s31.4"}, {"wireValid", "u1.0"}, {"wireChannel", "u8.0"}}},
        {"an interpolator",
         "cicBlock",
         {{"0", "s16.0"}},
         {{"cicScaleType", "cicScaleInterp"}, {"cicRateFactor", "8"}, {"cicStageCount", "3"}, {"cicDelayCount", "1"}},
         {{"0", "s22.0"}}},
        {"neither", "cicBlock", {{"0", "s16.0"}}, {{"cicRateFactor", "8"}}, {{"0", ""}}},
        {"a float", "cicBlock", {{"0", "float(23,8)"}}, decimator, {{"0", ""}}},
        {"taps",
         "firBlock",
         {{"0", "s8.4"}},
         {{"firCoefs", "(1 2 3 4 5)"}, {"firCoefsType", "(typeSFixed 4 2)"}},
         {{"0", "s14.6"}, {"wireValid", "u1.0"}}},
        {"taps of an interpolator",
         "firBlock",
         {{"0", "s8.4"}},
         {{"firCoefs", "(1 2 3 4 5)"}, {"firCoefsType", "(typeSFixed 4 2)"}, {"firInterpFactor", "2"}},
         {{"0", "s13.6"}}},
        {"banks",
         "firBlock",
         {{"0", "s8.4"}, {"firPortBank", ""}},
         {{"firCoefs", "((1 2 3 4 5) (1 2 3 4 5))"}, {"firCoefsType", "(typeSFixed 4 2)"}},
         {{"0", "s14.6"}},
         {},
         {{"firPortBank", "u1.0"}}},
        {"rolled taps",
         "firBlock",
         {{"0", "s8.4"}},
         {{"firCoefs", "(vectorRollTag 1 2 3 4 5)"}, {"firCoefsType", "(typeSFixed 4 2)"}},
         {{"0", "s14.6"}}},
        {"complex taps",
         "firBlock",
         {{"0", "s8.4"}},
         {{"firCoefs", "((complexRollTag 1 2) (complexRollTag 1 2) (complexRollTag 1 2) (complexRollTag 1 2) "
                       "(complexRollTag 1 2))"},
          {"firCoefsType", "(typeSFixed 4 2)"}},
         {{"0", "s14.6"}}},
        {"three banks",
         "firBlock",
         {{"0", "s8.4"}, {"firPortBank", ""}},
         {{"firCoefs", "((1 2) (1 2) (1 2))"}, {"firCoefsType", "(typeSFixed 4 2)"}},
         {{"0", "s13.6"}},
         {},
         {{"firPortBank", "u2.0"}}},
        {"one tap",
         "firBlock",
         {{"0", "s8.4"}},
         {{"firCoefs", "(1)"}, {"firCoefsType", "(typeSFixed 4 2)"}},
         {{"0", "s44.6"}}},
        {"taps without a type", "firBlock", {{"0", "s8.4"}}, {{"firCoefs", "(1 2 3 4 5)"}}, {{"0", "s13.4"}}},
        {"no taps", "firBlock", {{"0", "s8.4"}}, {}, {{"0", ""}}},
    });
}

TEST(IPTypes, haveAWireForEachPhysicalChannel) {
    const auto interpolator = [](const char *rate, const char *channels) {
        return testing::TypeCase::Texts{{"cicScaleType", "cicScaleInterp"},
                                        {"cicRateFactor", "8"},
                                        {"cicStageCount", "3"},
                                        {"cicDelayCount", "1"},
                                        {"cicInputRate", rate},
                                        {"cicChannelCount", channels}};
    };
    const testing::TypeCase::Texts clock{{"synthClockFreq", "100"}};
    checkTypes({
        {"four channels",
         "cicBlock",
         {{"0", "s8.0"}},
         interpolator("50", "4"),
         {{"0", "s14.0"}, {"1", "s14.0"}, {"2", ""}, {"cicWireData", "[2] s14.0"}},
         {},
         {},
         false,
         clock},
        {"eight channels",
         "cicBlock",
         {{"0", "s8.0"}},
         interpolator("12", "8"),
         {{"7", "s14.0"}, {"8", ""}, {"cicWireData", "[8] s14.0"}},
         {},
         {},
         false,
         clock},
        {"one for all",
         "cicBlock",
         {{"0", "s8.0"}},
         {{"cicScaleType", "cicScaleDecim"},
          {"cicRateFactor", "2"},
          {"cicStageCount", "3"},
          {"cicDelayCount", "1"},
          {"cicInputRate", "100"},
          {"cicChannelCount", "8"}},
         {{"cicWireData", "s11.0"}, {"0", "s11.0"}, {"1", ""}},
         {},
         {},
         false,
         clock},
        {"an oscillator faster than the clock",
         "ncoBlock",
         {{"0", ""}, {"ncoPortBank", ""}, {"portChannel", ""}, {"portValid", ""}},
         {{"ncoAccumBitCount", "24"}, {"ncoOutputType", "(typeSFixed 2 14)"}, {"ncoOutputRate", "250"}},
         {{"ncoWireCos", "[3] s2.14"}, {"ncoWireSin", "[3] s2.14"}},
         {},
         {{"0", "u24.0"}, {"ncoPortBank", "u8.0"}, {"portChannel", "u8.0"}, {"portValid", "u1.0"}},
         false,
         clock},
    });
}

TEST(IPTypes, mixAndScale) {
    checkTypes({
        {"a mixer", "mixerBlock", {{"0", "s8.4"}, {"1", "u2.10"}}, {}, {{"0", "s10.14"}}},
        {"a scaler",
         "scaleBlock",
         {{"0", "[2] s8.4"}},
         {{"scaleOutputType", "(typeSFixed 3 3)"}},
         {{"0", "[2] s3.3"}, {"scaleWireData", "[2] s3.3"}, {"primWireAux", "u1.0"}}},
        {"an oscillator",
         "ncoBlock",
         {{"0", ""}},
         {{"ncoAccumBitCount", "24"}, {"ncoOutputType", "(typeSFixed 2 14)"}},
         {{"ncoWireCos", "s2.14"},
          {"ncoWireSin", "s2.14"},
          {"ncoWireBank", "u8.0"},
          {"wireChannel", "u8.0"},
          {"wireValid", "u1.0"}}},
        {"a channel view",
         "chanviewBlock",
         {{"0", "s8.4"}, {"portValid", ""}},
         {},
         {{"0", "s8.4"}, {"wireValid", "u1.0"}}},
        {"a shared queue",
         "sharedFifoBlock",
         {{"0", "s8.4"}, {"1", "u1.0"}},
         {},
         {{"0", "s8.4"}, {"1", "u1.0"}, {"wireChannel", "u8.0"}}},
    });
}

} // namespace
} // namespace orvo
