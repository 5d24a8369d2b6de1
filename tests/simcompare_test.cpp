// Designs side by side: what is found, and that the passes leave behaviour alone.
#include <orvo/simcompare.h>

#include "support/samebehaviour.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/orvoutils.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace orvo {
namespace {

class CompareTest : public ::testing::Test {
  protected:
    std::unique_ptr<Design> example(const std::string &name) {
        std::ifstream in(std::string(ORVO_TEST_SOURCE_DIR) + "/examples/" + name + ".xml");
        auto design = std::make_unique<Design>(mgr.context());
        EXPECT_TRUE(XMLServices().fromXML(in, *design, XMLServices::defaultErrorFunc));
        return design;
    }
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    ContextMgr mgr;
};

TEST_F(CompareTest, findsNothingBetweenEqualDesigns) {
    const auto a = example("biquad");
    const auto b = example("biquad");
    EXPECT_SAME_BEHAVIOUR(*a, *b, "biquad");
}

TEST_F(CompareTest, tellsEachOutputThatDiffers) {
    const auto a = example("biquad");
    const auto b = example("biquad");
    Block &round = *b->getModel(value("biquad"))->getBlock(value("round"));
    round.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_BIASED);
    sim::Simulator first(*a, *a->begin());
    sim::Simulator second(*b, *b->begin());
    sim::CompareOptions options;
    options.mostMismatches = 3;
    options.cycles = 100000;
    const sim::CompareResult result = sim::compareBehaviour(first, second, options);
    // Only a tie tells the two roundings apart; once it came, the feedback keeps the trace.
    ASSERT_EQ(result.mismatches.size(), 3U);
    EXPECT_EQ(result.mismatches[0].output, "y");
    EXPECT_NE(result.mismatches[0].first, result.mismatches[0].second);
    EXPECT_FALSE(result.same());
}

TEST_F(CompareTest, tellsEdgesThatDoNotMatch) {
    const auto a = example("fir16");
    const auto b = example("biquad");
    sim::Simulator first(*a, *a->begin());
    sim::Simulator second(*b, *b->begin());
    const sim::CompareResult result = sim::compareBehaviour(first, second);
    EXPECT_EQ(result.unmatched, (std::vector<std::string>{"sample", "x", "filtered", "y"}));
    EXPECT_FALSE(test::sameBehaviour(*a, *b, "fir16"));
}

TEST_F(CompareTest, findsThatEveryPassLeavesTheExamplesAsTheyCompute) {
    const std::pair<const char *, const char *> examples[] = {
        {"biquad", "biquad"},  {"fir16", "fir16"},          {"energy_pair", "top"},   {"matrix_vector", "matrixVector"},
        {"mixer_pair", "top"}, {"select_lut", "compander"}, {"tagged_samples", "top"}};
    for (const auto &[name, top] : examples) {
        const auto before = example(name);
        const auto after = example(name);
        PassScheduler scheduler;
        for (const char *pass : {"DeadBlockPass", "ElideUnpackPass", "ElideTerminalPass", "AggressiveDeadBlockLatePass",
                                 "DeadModelPass"}) {
            scheduler.addPass(pass);
        }
        scheduler.apply(*after);
        EXPECT_SAME_BEHAVIOUR(*before, *after, top) << name;
    }
}

TEST_F(CompareTest, runsTheSameStimulusForTheSameSeed) {
    const auto design = example("fir16");
    sim::Simulator first(*design, *design->begin());
    sim::Simulator second(*design, *design->begin());
    sim::CompareOptions options;
    options.streams = 3;
    options.cycles = 10;
    const sim::CompareResult result = sim::compareBehaviour(first, second, options);
    EXPECT_TRUE(result.same());
    EXPECT_EQ(result.cycles, 30U);
}

} // namespace
} // namespace orvo
