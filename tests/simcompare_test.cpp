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
#include <sstream>

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
    test::expectSameBehaviour(*a, *b, "biquad");
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

TEST_F(CompareTest, followsAMismatchToTheFirstSignalInside) {
    const auto a = example("biquad");
    const auto b = example("biquad");
    Block &round = *b->getModel(value("biquad"))->getBlock(value("round"));
    round.setParam(A_CAST_SATURATE_MODE, A_SATURATE_NONE);
    const sim::CompareResult result = sim::compareDesigns(*a, *a->begin(), *b, *b->begin());
    ASSERT_FALSE(result.mismatches.empty());
    ASSERT_TRUE(result.inside);
    EXPECT_EQ(result.inside->output, "biquad/round/primWireOut");
    EXPECT_EQ(result.inside->cycle, result.mismatches[0].cycle);
    EXPECT_NE(result.inside->first, result.inside->second);
}

TEST_F(CompareTest, followsSignalsIntoModelsThatWereDissolved) {
    // A sub-model doubles; dissolved, its block stands in the top under the names of both.
    const auto build = [this](bool isFlat, const char *factor) {
        auto design = std::make_unique<Design>(mgr.context());
        Model &top = *Model::create(*design, "top");
        Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 4 0)")));
        pin.setParam(value("0"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"));
        Wire &x = *Wire::create(pin, value("0"));
        Wire *y = nullptr;
        const auto scale = [&](Model &model, const char *name, Wire &in) {
            Block &block = *Block::create(model, value(name));
            block.setParam(A_BLOCK_TYPE, A_CONSTMULT_BLOCK);
            block.setParam(A_CONST_VALUE, ValueRef(value(factor)));
            block.setParam(value("0"), in);
            return Wire::create(block, A_PRIM_WIRE_OUT);
        };
        if (isFlat) {
            y = scale(top, "(inner scale)", x);
        } else {
            Model &inner = *Model::create(*design, "inner");
            Wire &in = *Wire::create(*Block::create(inner, "in", A_INPUT_BLOCK), "x");
            Block::create(inner, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *scale(inner, "scale", in));
            Block &call = *Block::create(top, "call", A_MODEL_BLOCK);
            call.setParam(A_MODEL_NODE, inner);
            call.setParam(value("x"), x);
            y = Wire::create(call, value("y"));
        }
        Block &negate = *Block::create(top, "negate", A_NEG_BLOCK);
        negate.setParam(value("0"), *y);
        Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(negate, A_PRIM_WIRE_OUT));
        return design;
    };
    const auto before = build(false, "5");
    test::expectSameBehaviour(*before, *build(true, "5"), "top");
    const auto after = build(true, "7");
    const sim::CompareResult result =
        sim::compareDesigns(*before, *before->getModel(value("top")), *after, *after->begin());
    ASSERT_TRUE(result.inside);
    EXPECT_EQ(result.inside->output, "top/call/scale/primWireOut");
}

TEST_F(CompareTest, matchesPortsThatWereUnrolled) {
    // A vector of complex numbers goes through; lane by lane and part by part, the ports have names of their own.
    const auto whole = std::make_unique<Design>(mgr.context());
    const auto split = std::make_unique<Design>(mgr.context());
    for (Design *design : {whole.get(), split.get()}) {
        Model &top = *Model::create(*design, "top");
        Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
        Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
        const bool isWhole = design == whole.get();
        const std::vector<const char *> names =
            isWhole ? std::vector<const char *>{"x"}
                    : std::vector<const char *>{"(x real 0)", "(x imag 0)", "(x real 1)", "(x imag 1)"};
        for (const char *name : names) {
            Block &pin = *Block::create(top, "pin" + std::string(name), A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value(isWhole ? "(typeVector 2 (typeComplex (typeSFixed 4 0)))"
                                                                 : "(typeSFixed 4 0)")));
            pin.setParam(value("0"), *Wire::create(in, value(name)));
            out.setParam(value(name), *Wire::create(pin, value("0")));
        }
    }
    const sim::CompareResult result = sim::compareDesigns(*whole, *whole->begin(), *split, *split->begin());
    EXPECT_TRUE(result.unmatched.empty()) << result.unmatched.front();
    EXPECT_TRUE(result.same());
}

TEST_F(CompareTest, tellsEdgesOfOtherTypes) {
    const auto build = [this](const char *type) {
        auto design = std::make_unique<Design>(mgr.context());
        Model &top = *Model::create(*design, "top");
        Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value(type)));
        pin.setParam(value("0"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"));
        Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(pin, value("0")));
        return design;
    };
    const auto first = build("(typeUFixed 8 0)");
    for (const char *other : {"(typeUFixed 4 4)", "(typeSFixed 8 0)"}) {
        const auto second = build(other);
        const sim::CompareResult result = sim::compareDesigns(*first, *first->begin(), *second, *second->begin());
        EXPECT_EQ(result.unmatched, (std::vector<std::string>{"x", "y"})) << other;
    }
}

TEST_F(CompareTest, allowsNeighboursWhereRoundingIsFaithful) {
    // The root of the input, rounded to nearest and downward.
    const auto build = [this](const StaticString &rounding, const char *mode) {
        auto design = std::make_unique<Design>(mgr.context());
        Model &top = *Model::create(*design, "top");
        Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeSFloatIEEE 10 5)")));
        pin.setParam(value("0"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"));
        Wire &x = *Wire::create(pin, value("0"));
        Block &root = *Block::create(top, "root", A_SQRT_BLOCK);
        root.setParam(value("0"), x);
        root.setParam(A_FLOAT_ROUNDING, rounding);
        root.setParam(A_FLOAT_ROUNDING_MODE, ValueRef(value(mode)));
        Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(root, A_PRIM_WIRE_OUT));
        return design;
    };
    const auto compare = [](const Design &a, const Design &b) {
        return sim::compareDesigns(a, *a.begin(), b, *b.begin()).same();
    };
    const auto nearest = build(A_FAITHFUL_ROUNDING, "roundingToNearestTieEven");
    const auto down = build(A_FAITHFUL_ROUNDING, "roundingDown");
    EXPECT_TRUE(compare(*nearest, *down));
    const auto exact = build(A_CORRECT_ROUNDING, "roundingToNearestTieEven");
    const auto wrong = build(A_CORRECT_ROUNDING, "roundingDown");
    EXPECT_FALSE(compare(*exact, *wrong));
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
        {"biquad", "biquad"},      {"fir16", "fir16"},
        {"energy_pair", "top"},    {"matrix_vector", "matrixVector"},
        {"mixer_pair", "top"},     {"select_lut", "compander"},
        {"tagged_samples", "top"}, {"beamformer", "beamformer"}};
    for (const auto &[name, top] : examples) {
        const auto before = example(name);
        const auto after = example(name);
        PassScheduler scheduler;
        for (const char *pass : {"DeadBlockPass", "ElideUnpackPass", "ElideTerminalPass", "AggressiveDeadBlockLatePass",
                                 "DeadModelPass"}) {
            scheduler.addPass(pass);
        }
        scheduler.apply(*after);
        SCOPED_TRACE(name);
        test::expectSameBehaviour(*before, *after, top);
    }
}

TEST_F(CompareTest, countsAControlThatIsNeverKnownAsOneThatMayNeverEnable) {
    // With such a control a queue of zeros may stay empty for ever, and what an empty one shows is any number. The
    // delay lets nothing of the first cycles be seen, in which that is likely.
    const std::string text = R"(<kelmar xmlns="http://orvo.example/ns/2011/kelmar">
      <design version="1.2"><model name="top">
      <param name="synthOutputMode">true</param>
      <block name="in"><param name="blockType">inputBlock</param><wire name="x"/></block>
      <block name="pin"><param name="blockType">typePinBlock</param><param name="0">[/top/in/x]</param>
        <param name="typePinType">(typeSFloatIEEE 10 5)</param><wire name="0"/></block>
      <block name="flag"><param name="blockType">castBlock</param><param name="0">[/top/pin/0]</param>
        <param name="castMode">castModeReinterp</param>
        <wire name="castWireClip"/><wire name="primWireOut"/></block>
      <block name="never"><param name="blockType">constBlock</param><param name="constType">(typeUFixed 1 0)</param>
        <param name="constValue">0</param><wire name="primWireOut"/></block>
      <block name="zero"><param name="blockType">constBlock</param><param name="constType">(typeUFixed 3 0)</param>
        <param name="constValue">0</param><wire name="primWireOut"/></block>
      <block name="queue"><param name="blockType">sharedFifoBlock</param><param name="fifoDepth">2</param>
        <param name="portValid">[ENABLE]</param><param name="portReady">[ENABLE]</param>
        <param name="0">[/top/zero/primWireOut]</param><wire name="0"/></block>
      <block name="ones"><param name="blockType">constBlock</param><param name="constType">(typeUFixed 3 0)</param>
        <param name="constValue">7</param><wire name="primWireOut"/></block>
      <block name="late"><param name="blockType">delayBlock</param><param name="delayLength">30</param>
        <param name="0">[/top/ones/primWireOut]</param><wire name="primWireOut"/></block>
      <block name="shown"><param name="blockType">andBlock</param><param name="0">[/top/queue/0]</param>
        <param name="1">[/top/late/primWireOut]</param><wire name="primWireOut"/></block>
      <block name="out"><param name="blockType">outputBlock</param><param name="y">[/top/shown/primWireOut]</param></block>
    </model></design></kelmar>)";
    const auto with = [&](const std::string &enable) {
        std::string design = text;
        for (std::size_t at = design.find("ENABLE"); at != std::string::npos; at = design.find("ENABLE")) {
            design.replace(at, 6, enable);
        }
        std::istringstream in(design);
        auto read = std::make_unique<Design>(mgr.context());
        EXPECT_TRUE(XMLServices().fromXML(in, *read, XMLServices::defaultErrorFunc));
        return read;
    };
    test::expectSameBehaviour(*with("/top/flag/castWireClip"), *with("/top/never/primWireOut"));
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
