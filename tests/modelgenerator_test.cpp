// The generator that comes with the library: what it answers, and that it leaves everything as it is.
#include "generator/modelgenerator.h"

#include "support/heardmessages.h"
#include "support/randomdesigns.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/context.h>
#include <orvo/pass.h>
#include <orvo/systembuilder.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <sstream>

namespace orvo {
namespace {

std::string textOf(const Design &design) {
    std::ostringstream text;
    XMLServices().toXML(text, design);
    return text.str();
}

class ModelGeneratorTest : public test::SimulatorFixture {
  protected:
    Block &unary(Model &in, const std::string &name, const std::string &type, Wire &wire, const Texts &params = {}) {
        Block &made = block(in, name, type, params);
        made.setParam(value("0"), wire);
        Wire::create(made, A_PRIM_WIRE_OUT);
        return made;
    }
    static Wire &out(Block &of) { return *of.getWire(A_PRIM_WIRE_OUT); }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
};

TEST_F(ModelGeneratorTest, lowersWhatItEstimates) {
    // An absolute value is a sign, a negation and a choice of two.
    output(model, "o", out(unary(model, "abs", "absBlock", input(model, "a", "s8.0"))));
    const ResourceUsageAndLatencyHelper cost = generator::estimateModel(model, false, false, true);
    EXPECT_EQ(cost.luts, 9 + 9);
    EXPECT_EQ(cost.latency, 2);
}

TEST_F(ModelGeneratorTest, takesVectorsAndComplexNumbersApart) {
    output(model, "o", out(unary(model, "neg", "negBlock", input(model, "a", "[3] c s8.0"))));
    EXPECT_EQ(generator::estimateModel(model, false, false, true).luts, 6 * 9);
    Model &other = *Model::create(design, "other");
    Block &mult = block(other, "m", "multBlock");
    mult.setParam(value("0"), input(other, "a", "c s18.0"));
    mult.setParam(value("1"), input(other, "b", "c s18.0"));
    output(other, "o", *Wire::create(mult, A_PRIM_WIRE_OUT));
    EXPECT_EQ(generator::estimateModel(other, false, false, true).multipliers, 4);
}

TEST_F(ModelGeneratorTest, leavesOutWhatNobodyReads) {
    Wire &a = input(model, "a", "s8.0");
    unary(model, "dead", "negBlock", a);
    output(model, "o", out(unary(model, "neg", "negBlock", a)));
    EXPECT_EQ(generator::estimateModel(model, false, false, true).luts, 9);
}

TEST_F(ModelGeneratorTest, doesNotCountACastWithoutTypes) {
    Block &in = block(model, "in", "inputBlock");
    output(model, "o",
           out(unary(model, "c", "castBlock", *Wire::create(in, value("x")), {{"castMode", "castModeConvert"}})));
    const generator::DesignEstimate estimate = generator::estimateDesign(design);
    EXPECT_EQ(estimate.uncounted, 1);
    EXPECT_EQ(estimate.total, ResourceUsageAndLatencyHelper());
}

TEST_F(ModelGeneratorTest, tellsThatItCouldNotLowerAll) {
    output(model, "o", out(unary(model, "neg", "negBlock", input(model, "a", "s8.0"))));
    EXPECT_TRUE(generator::estimateDesign(design).isComplete());
    // A reader of a tag without an output.
    block(model, "f", "fromBlock", {{"fromTag", "t"}});
    const generator::DesignEstimate estimate = generator::estimateDesign(design);
    EXPECT_FALSE(estimate.isComplete());
    EXPECT_EQ(estimate.errors.count("FROM_MISSING_WIRE"), 1U);
    EXPECT_EQ(estimate.total.luts, 9);
}

TEST_F(ModelGeneratorTest, leavesTheDesignAndTheListenerAsTheyAre) {
    test::HeardMessages heard(mgr.context());
    // A complex signal on a block for real numbers alone is told by the pass that meets it.
    output(model, "o", out(unary(model, "sqrt", "sqrtBlock", input(model, "a", "c s8.0"))));
    Block &tag = block(model, "goto", "gotoBlock", {{"gotoTag", "nowhere"}});
    tag.setParam(A_GOTO_PORT_IN, input(model, "b", "s8.0"));
    const std::string before = textOf(design);
    const std::uint64_t edits = design.editCount();
    generator::estimateModel(model, true, true, false);
    EXPECT_EQ(textOf(design), before);
    EXPECT_EQ(design.editCount(), edits);
    EXPECT_EQ(heard.take(), std::vector<std::string>{});
    log::msg(msg::warning::PASSES_DO_NOT_SETTLE, log::p("turns", 1));
    EXPECT_EQ(heard.take().size(), 1U);
}

TEST_F(ModelGeneratorTest, doesNotCountAModelOfWhichNothingIsLeft) {
    Model &below = *Model::create(design, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    Block::create(below, "out", A_OUTPUT_BLOCK)
        ->setParam(value("y"), out(unary(below, "neg", "negBlock", pinned(*Wire::create(in, value("x")), "s8.0"))));
    Block &instance = *Block::create(model, "i", A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, below);
    instance.setParam(value("x"), input(model, "a", "s8.0"));
    // Nobody reads the instance.
    Wire::create(instance, value("y"));
    const generator::DesignEstimate all = generator::estimateDesign(design);
    EXPECT_EQ(all.total, generator::Usage());
    EXPECT_EQ(all.models.front().instances + all.models.back().instances, 1);
}

TEST_F(ModelGeneratorTest, answersForAModelBelowAnother) {
    Model &below = *Model::create(design, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    Block::create(below, "out", A_OUTPUT_BLOCK)
        ->setParam(value("y"), out(unary(below, "neg", "negBlock", *Wire::create(in, value("x")))));
    Block &instance = *Block::create(model, "i", A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, below);
    instance.setParam(value("x"), input(model, "a", "s8.0"));
    output(model, "o", *Wire::create(instance, value("y")));
    EXPECT_EQ(generator::estimateModel(below, false, false, true).luts, 9);
}

/// A pass that asks what its generator says of the first model.
class TestPassAsking final : public Pass {
    ORVO_PASS(TestPassAsking)
    using Pass::apply;
    void apply(PassContext &context) override {
        cost = context.getRunModelGenerationHelperPointer(this)(*context.getDesign().begin(), false, false, true);
    }
    static ResourceUsageAndLatencyHelper cost;
};
ResourceUsageAndLatencyHelper TestPassAsking::cost;
ORVO_DEFINE_PASS(TestPassAsking, "Asks.")

ResourceUsageAndLatencyHelper other(Model &, bool, bool, bool) {
    ResourceUsageAndLatencyHelper cost;
    cost.luts = 12345;
    return cost;
}

TEST_F(ModelGeneratorTest, servesPassesToWhichAClientGivesNone) {
    static const bool isRegistered = [] {
        internal::registerPass("TestPassAsking", &TestPassAsking::create, &TestPassAsking::defaultParamSettings());
        return true;
    }();
    ASSERT_TRUE(isRegistered);
    output(model, "o", out(unary(model, "neg", "negBlock", input(model, "a", "s8.0"))));
    PassScheduler scheduler;
    scheduler.addPass("TestPassAsking");
    scheduler.apply(design);
    EXPECT_EQ(TestPassAsking::cost.luts, 9);
    PassScheduler withOther;
    withOther.addPass("TestPassAsking", WithParam(&other));
    withOther.apply(design);
    EXPECT_EQ(TestPassAsking::cost.luts, 12345);
}

TEST_F(ModelGeneratorTest, servesFunctions) {
    FuncInfoDefault function(mgr.context(), "a product");
    Block &mult = *Block::create(function.model(), "mult", A_MULT_BLOCK);
    function.addInputPortInfo(value("a"), value("0"), NumTypeSpec::sfixed(18, 0), &mult);
    function.addInputPortInfo(value("b"), value("1"), NumTypeSpec::sfixed(18, 0), &mult);
    function.addOutputPortInfo(value("q"), A_PRIM_WIRE_OUT, NumTypeSpec::sfixed(36, 0), &mult);
    ORVOSystem system(&function, GenerationParameters(SynthesisOptions()), &generator::estimateModel);
    EXPECT_EQ(system.generate().multipliers, 1);
    mult.setParam(A_MULT_LOGIC, A_TRUE);
    const ResourceUsageAndLatencyHelper cost = system.generate();
    EXPECT_EQ(cost.multipliers, 0);
    EXPECT_EQ(cost.luts, 324);
}

RC_GTEST_PROP(ModelGenerator, leavesDesignsByChanceAsTheyAreAndAnswersAlike, ()) {
    const std::vector<gen::Recipe> recipes = *test::recipes(25);
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const auto design = generator.make(recipes);
    const std::string before = textOf(*design);
    const generator::DesignEstimate first = generator::estimateDesign(*design);
    const generator::DesignEstimate second = generator::estimateDesign(*design);
    RC_ASSERT(textOf(*design) == before);
    RC_ASSERT(first.total == second.total);
    for (const std::int64_t count : {first.total.luts, first.total.multipliers, first.total.memoryBlocks,
                                     first.total.memoryBits, first.total.latency}) {
        RC_ASSERT(count >= 0);
    }
    for (const generator::ModelEstimate &model : first.models) {
        RC_ASSERT(model.usage.luts <= first.total.luts || model.instances == 0);
    }
}

} // namespace
} // namespace orvo
