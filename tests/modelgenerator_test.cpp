// The generator that comes with the library: what it answers, and that it leaves everything as it is.
#include "generator/modelgenerator.h"

#include "support/estimatefixture.h"
#include "support/heardmessages.h"
#include "support/randomdesigns.h"

#include <orvo/context.h>
#include <orvo/pass.h>
#include <orvo/systembuilder.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace orvo {
namespace {

std::string textOf(const Design &design) {
    std::ostringstream text;
    XMLServices().toXML(text, design);
    return text.str();
}

class ModelGeneratorTest : public test::EstimateFixture {
  protected:
    generator::ModelEstimate rowOf(const generator::DesignEstimate &estimate, const std::string &name) {
        for (const generator::ModelEstimate &row : estimate.models) {
            if (row.name == value(name)) {
                return row;
            }
        }
        ADD_FAILURE() << "no row of " << name;
        return {};
    }
    /// A level of hierarchy with three kinds of instances costs what the same does without it.
    void expectAsFlat(const std::string &type, const Texts &params);
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
    // Nobody reads the instance.
    instance(model, "i", below, input(model, "a", "s8.0"));
    const generator::DesignEstimate all = generator::estimateDesign(design);
    EXPECT_EQ(all.total, generator::Usage());
    EXPECT_EQ(all.models.front().instances + all.models.back().instances, 1);
}

TEST_F(ModelGeneratorTest, answersForAModelBelowAnother) {
    Model &below = negator("below");
    output(model, "o", instance(model, "i", below, input(model, "a", "s8.0")));
    EXPECT_EQ(generator::estimateModel(below, false, false, true).luts, 9);
}

void ModelGeneratorTest::expectAsFlat(const std::string &type, const Texts &params) {
    Design hierarchical(mgr.context());
    Model &top = *Model::create(hierarchical, "top");
    Model &below = *Model::create(hierarchical, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    Block::create(below, "out", A_OUTPUT_BLOCK)
        ->setParam(value("y"), out(unary(below, "own", type, *Wire::create(in, value("x")), params)));
    Design flat(mgr.context());
    Model &flatTop = *Model::create(flat, "top");
    for (const auto &[name, shape] : {std::pair("a", "[4] s8.0"), std::pair("b", "s8.0"), std::pair("c", "c s8.0")}) {
        output(top, name + std::string("o"), instance(top, name + std::string("i"), below, input(top, name, shape)));
        output(flatTop, name + std::string("o"),
               out(unary(flatTop, name + std::string("own"), type, input(flatTop, name, shape), params)));
    }
    const generator::DesignEstimate estimate = generator::estimateDesign(hierarchical);
    EXPECT_EQ(estimate.errors, std::set<std::string>()) << type;
    EXPECT_EQ(estimate.total, generator::estimateDesign(flat).total) << type;
    EXPECT_EQ(estimate.uncounted, 0) << type;
    ASSERT_EQ(estimate.models.size(), 2U) << type;
    EXPECT_EQ(rowOf(estimate, "below").instances, 3) << type;
}

TEST_F(ModelGeneratorTest, lowersInstancesOfDifferentTypesAsIfTheyWereFlat) {
    expectAsFlat("negBlock", {});
    expectAsFlat("castBlock", {{"castOutputType", "(typeSFixed 4 0)"},
                               {"castRoundingMode", "roundingUnbiased"},
                               {"castSaturateMode", "saturateAsymmetric"}});
    expectAsFlat("delayBlock", {{"delayLength", "40"}});
}

TEST_F(ModelGeneratorTest, givesAModelOfSeveralKindsTheLargestOfThem) {
    Model &below = negator("below");
    Model &middle = wrapper("middle", below);
    output(model, "o", instance(model, "i", middle, input(model, "a", "s16.0")));
    output(model, "p", instance(model, "j", middle, input(model, "b", "[3] s8.0")));
    const generator::DesignEstimate estimate = generator::estimateDesign(design);
    EXPECT_TRUE(estimate.isComplete());
    EXPECT_EQ(estimate.models.size(), 3U);
    EXPECT_EQ(rowOf(estimate, "below").usage.luts, 3 * 9);
    EXPECT_EQ(rowOf(estimate, "below").instances, 2);
    EXPECT_EQ(rowOf(estimate, "middle").usage.luts, 3 * 9);
    EXPECT_EQ(estimate.total.luts, 17 + 3 * 9);
}

TEST_F(ModelGeneratorTest, tellsNothingOfModelsThatNoOutputModelNeeds) {
    output(model, "o", instance(model, "i", negator("below"), input(model, "a", "s8.0")));
    Model &spare = negator("spare");
    EXPECT_EQ(generator::estimateDesign(design).uncounted, 1);
    EXPECT_FALSE(generator::estimateDesign(design).isComplete());
    model.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    const generator::DesignEstimate estimate = generator::estimateDesign(design);
    EXPECT_EQ(estimate.errors, std::set<std::string>());
    EXPECT_EQ(estimate.uncounted, 0);
    EXPECT_EQ(estimate.total.luts, 9);
    EXPECT_EQ(estimate.models.size(), 2U);
    // Who asks gets an answer.
    Block &neg = *spare.getBlock(value("own"));
    neg.setParam(value("0"), pinned(*spare.getInputBlock()->begin(), "s4.0"));
    EXPECT_EQ(generator::estimateModel(spare, false, false, true).luts, 5);
}

TEST_F(ModelGeneratorTest, isCompleteWithoutTypesOfDeadLogic) {
    Model &below = negator("below");
    Wire &untyped = *Wire::create(block(model, "open", "inputBlock"), value("x"));
    instance(model, "dead", below, out(unary(model, "neg", "negBlock", untyped)));
    output(model, "o", out(unary(model, "live", "negBlock", input(model, "a", "s8.0"))));
    const generator::DesignEstimate estimate = generator::estimateDesign(design);
    EXPECT_EQ(estimate.errors, std::set<std::string>());
    EXPECT_EQ(estimate.total.luts, 9);
    EXPECT_EQ(rowOf(estimate, "below").instances, 0);
}

TEST_F(ModelGeneratorTest, countsModelsThatContainEachOtherWithoutReadingEachOther) {
    Model &u = *Model::create(design, "u");
    Model &v = *Model::create(design, "v");
    for (const auto &[own, other] : {std::pair(&u, &v), std::pair(&v, &u)}) {
        Wire &a = input(*own, "a", "s8.0");
        instance(*own, "i", *other, a);
        output(*own, "o", out(unary(*own, "neg", "negBlock", a)));
    }
    const generator::DesignEstimate estimate = generator::estimateDesign(design);
    EXPECT_TRUE(estimate.isComplete());
    EXPECT_EQ(estimate.total.luts, 2 * 9);
    EXPECT_EQ(estimate.uncounted, 0);
}

TEST_F(ModelGeneratorTest, lowersEachExampleWhole) {
    int examples = 0;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(ORVO_TEST_SOURCE_DIR) + "/examples")) {
        if (entry.path().extension() != ".xml") {
            continue;
        }
        ++examples;
        std::ifstream in(entry.path());
        Design example(mgr.context());
        XMLServices().fromXML(in, example, &XMLServices::silentErrorFunc);
        const generator::DesignEstimate estimate = generator::estimateDesign(example);
        EXPECT_EQ(estimate.errors, std::set<std::string>()) << entry.path();
        EXPECT_EQ(estimate.uncounted, 0) << entry.path();
    }
    EXPECT_GE(examples, 9);
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
