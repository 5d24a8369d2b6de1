// The options of a build, and their ways between records and models.
#include <orvo/synthesis_options.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <set>

namespace orvo {
namespace {

using Options = SynthesisOptions;

class SynthesisOptionsTest : public ::testing::Test {
  protected:
    ~SynthesisOptionsTest() override { util::ClearFeatures(); }
    PureValueRef text(const std::string &of) { return StringValue::get(of, mgr.context()); }
    PureValueRef number(int of) { return NumberValue::get(of, mgr.context()); }
    Model &makeModel(const std::string &name) { return *Model::create(design, name); }
    void instantiate(Model &in, Model &of) {
        Block *block = Block::create(in, "of " + of.getName()->toString(), A_MODEL_BLOCK);
        block->setParam(A_MODEL_NODE, of);
    }
    std::string frequency(const Model &of) {
        const ValueRef value = of.getParam(A_SYNTH_CLOCK_FREQ);
        return value ? value->toString() : "none";
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = makeModel("m");
};

TEST_F(SynthesisOptionsTest, areNotSetInANewRecord) {
    const Options none;
    for (const Options::Option &option : Options::options()) {
        EXPECT_FALSE(none.*option.field) << option.key->text();
    }
}

TEST_F(SynthesisOptionsTest, haveEachKeyOnceInTheirOrder) {
    std::set<const StaticString *> keys;
    for (const Options::Option &option : Options::options()) {
        EXPECT_TRUE(keys.insert(option.key).second) << option.key->text();
    }
    ASSERT_EQ(keys.size(), 44U);
    EXPECT_EQ(Options::options()[0].key, &A_SYNTH_OUTPUT_MODE);
    EXPECT_EQ(Options::options()[13].key, &A_SYNTH_DEVICE_SPEED_GRADE);
    EXPECT_EQ(Options::options()[14].key, &A_SYNTH_BUS_FREQ);
    EXPECT_EQ(Options::options()[43].key, &A_SARNET_ST_EXTRA_PARAMS);
}

TEST_F(SynthesisOptionsTest, haveTheirDefaults) {
    const Options made = Options::createDefaultSynthesisOptions();
    EXPECT_TRUE(made.outputMode == A_SYNTH_OUTPUT_INTERNAL_ROOT);
    EXPECT_TRUE(made.clockName == text("clk"));
    EXPECT_TRUE(made.clockFreq == number(100));
    EXPECT_FALSE(made.clockMargin);
    EXPECT_TRUE(made.resetName == text("areset"));
    EXPECT_TRUE(made.resetActiveMode == A_SYNTH_RESET_ACTIVE_HIGH);
    EXPECT_TRUE(made.mmInterfaceName == text("bus"));
    EXPECT_TRUE(made.busAddrWidth == number(10));
    EXPECT_TRUE(made.busDataWidth == number(16));
    EXPECT_TRUE(made.busEndianMode == A_SYNTH_BUS_ENDIAN_BIG);
    EXPECT_TRUE(made.busClockMode == A_SYNTH_BUS_CLOCK_SYS);
    EXPECT_TRUE(made.deviceFamily == text("Halcyon V"));
    EXPECT_TRUE(made.devicePart == text("7HLXQR5D6F31C8"));
    EXPECT_TRUE(made.deviceSpeedGrade == text("-8"));
}

TEST_F(SynthesisOptionsTest, areOffByDefaultWhereTheyAreFlagsAndElseNotSet) {
    const std::set<const StaticString *> flags = {
        &A_SYNTH_COMPLEX_MULT_KARATSUBA,
        &A_SYNTH_DEVICE_INITIALISE_MEMORIES,
        &A_SYNTH_CIRCUIT_TIMED,
        &A_SYNTH_DEVICE_ENABLE_HARDFP,
        &A_SYNTH_OPTIMIZE,
        &A_SYNTH_COMBINATORIAL,
        &A_SYNTH_GENERATE_HDL,
        &A_SYNTH_GENERATE_ATB,
        &A_SYNTH_ATB_CHANNEL_MISMATCH,
        &A_SYNTH_ATB_GPIO_MISMATCH,
        &A_SYNTH_ATB_DDR_MISMATCH,
        &A_SYNTH_ATB_BUS_MISMATCH,
        &A_SYNTH_ATB_EXPORT_DEVICE_OUTPUT,
        &A_SYNTH_ATB_UNIT_RIGUROUS_TESTING,
        &A_SYNTH_ATB_SUBNORMALS,
    };
    const Options made = Options::createDefaultSynthesisOptions();
    for (const Options::Option &option : Options::options().subspan(14)) {
        const PureValueRef expected = flags.count(option.key) != 0 ? pureVR(A_FALSE) : PureValueRef();
        EXPECT_TRUE(made.*option.field == expected) << option.key->text();
    }
}

TEST_F(SynthesisOptionsTest, areAllNullForAModelThatSetsNone) {
    const Options made = Options::createSynthesisOptionsFromExistingModel(model);
    for (const Options::Option &option : Options::options()) {
        EXPECT_FALSE(made.*option.field) << option.key->text();
    }
}

TEST_F(SynthesisOptionsTest, goFromARecordToAModelAndBack) {
    Options options;
    int next = 0;
    for (const Options::Option &option : Options::options()) {
        options.*option.field = number(next++);
    }
    Options::setSynthesisOptionsOnModel(model, options);
    EXPECT_EQ(model.param_size(), Options::options().size());
    const Options back = Options::createSynthesisOptionsFromExistingModel(model);
    for (const Options::Option &option : Options::options()) {
        EXPECT_TRUE(back.*option.field == options.*option.field) << option.key->text();
        EXPECT_TRUE(model.getParam(*option.key) == options.*option.field) << option.key->text();
    }
}

TEST_F(SynthesisOptionsTest, leaveAMarginThatTheDefaultsDoNotSet) {
    model.setParam(A_SYNTH_CLOCK_MARGIN, number(5));
    model.setParam(A_SYNTH_CLOCK_FREQ, number(250));
    Options::setSynthesisOptionsOnModel(model, Options::createDefaultSynthesisOptions());
    EXPECT_TRUE(model[A_SYNTH_CLOCK_MARGIN] == number(5));
    EXPECT_TRUE(model[A_SYNTH_CLOCK_FREQ] == number(100));
}

TEST_F(SynthesisOptionsTest, areSetOneByOneUnlessNull) {
    Options::conditionallySetOption(model, A_SYNTH_CLOCK_NAME, text("c"));
    Options::conditionallySetOption(model, A_SYNTH_CLOCK_NAME, PureValueRef());
    EXPECT_TRUE(model[A_SYNTH_CLOCK_NAME] == text("c"));
}

TEST_F(SynthesisOptionsTest, reachEveryModelBelowATopModel) {
    // Names against the hierarchy: the order of the design must not matter.
    Model &top = makeModel("z");
    Model &middle = makeModel("a");
    Model &bottom = makeModel("k");
    instantiate(top, middle);
    instantiate(middle, bottom);
    top.setParam(A_SYNTH_CLOCK_FREQ, number(200));
    middle.setParam(A_SYNTH_CLOCK_FREQ, number(300));
    middle.setParam(A_SYNTH_RESET_NAME, text("rst"));
    Options::propogateSynthesisOptions(design);
    EXPECT_EQ(frequency(middle), "200");
    EXPECT_EQ(frequency(bottom), "200");
    EXPECT_TRUE(bottom[A_SYNTH_RESET_NAME] == text("rst"));
    EXPECT_FALSE(top[A_SYNTH_RESET_NAME]);
    EXPECT_EQ(frequency(model), "none");
}

TEST_F(SynthesisOptionsTest, handDownEachOptionButHowTheModelIsWrittenOut) {
    Model &below = makeModel("below");
    instantiate(model, below);
    for (const Options::Option &option : Options::options()) {
        model.setParam(*option.key, number(1));
    }
    Options::propogateSynthesisOptions(design);
    for (const Options::Option &option : Options::options()) {
        EXPECT_EQ(below.findParam(*option.key) != nullptr, option.key != &A_SYNTH_OUTPUT_MODE) << option.key->text();
    }
}

TEST_F(SynthesisOptionsTest, replaceWhatAModelBelowSaysButHowItIsWrittenOut) {
    Model &below = makeModel("below");
    instantiate(model, below);
    for (const Options::Option &option : Options::options()) {
        model.setParam(*option.key, number(1));
        below.setParam(*option.key, number(2));
    }
    Options::propogateSynthesisOptions(design);
    for (const Options::Option &option : Options::options()) {
        const bool isOwn = option.key == &A_SYNTH_OUTPUT_MODE;
        EXPECT_TRUE(below[*option.key] == number(isOwn ? 2 : 1)) << option.key->text();
    }
}

TEST_F(SynthesisOptionsTest, comeToASharedModelFromEveryWayAbove) {
    // The shared model is reached directly and through another: it waits for both.
    Model &left = makeModel("left");
    Model &shared = makeModel("a shared");
    instantiate(model, shared);
    instantiate(model, left);
    instantiate(left, shared);
    model.setParam(A_SYNTH_CLOCK_NAME, text("c"));
    left.setParam(A_SYNTH_RESET_NAME, text("r"));
    Options::propogateSynthesisOptions(design);
    EXPECT_TRUE(shared[A_SYNTH_CLOCK_NAME] == text("c"));
    EXPECT_TRUE(shared[A_SYNTH_RESET_NAME] == text("r"));
}

TEST_F(SynthesisOptionsTest, endOnModelsThatContainThemselves) {
    Model &loop = makeModel("loop");
    Model &other = makeModel("a loop");
    instantiate(model, loop);
    instantiate(loop, other);
    instantiate(other, loop);
    instantiate(loop, loop);
    Block::create(loop, "names no model", A_MODEL_BLOCK);
    model.setParam(A_SYNTH_CLOCK_FREQ, number(200));
    Options::propogateSynthesisOptions(design);
    EXPECT_EQ(frequency(loop), "200");
    EXPECT_EQ(frequency(other), "200");
}

// A chain as deep as this would end a walk that calls itself, and each model is instantiated many times over.
TEST_F(SynthesisOptionsTest, reachTheEndOfADeepHierarchyOfSharedModels) {
    Model *above = &model;
    for (int i = 0; i < 20000; ++i) {
        Model &below = makeModel("n" + std::to_string(i));
        for (int copy = 0; copy < 3; ++copy) {
            instantiate(*above, below);
        }
        above = &below;
    }
    model.setParam(A_SYNTH_CLOCK_FREQ, number(200));
    Options::propogateSynthesisOptions(design);
    EXPECT_EQ(frequency(*above), "200");
}

TEST_F(SynthesisOptionsTest, ofTheDesignStandOnItOrOnTheFirstModelThatIsWrittenOut) {
    EXPECT_EQ(nodeOfDesignOption(design, A_SYNTH_CLOCK_FREQ), nullptr);
    EXPECT_FALSE(designOption(design, A_SYNTH_CLOCK_FREQ));
    Model &first = makeModel("a");
    Model &second = makeModel("b");
    for (Model *one : {&model, &first, &second}) {
        one->setParam(A_SYNTH_CLOCK_FREQ, number(one == &second ? 300 : 200));
    }
    EXPECT_EQ(nodeOfDesignOption(design, A_SYNTH_CLOCK_FREQ), nullptr);
    second.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    EXPECT_EQ(nodeOfDesignOption(design, A_SYNTH_CLOCK_FREQ), &second);
    EXPECT_TRUE(designOption(design, A_SYNTH_CLOCK_FREQ) == number(300));
    first.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    EXPECT_EQ(nodeOfDesignOption(design, A_SYNTH_CLOCK_FREQ), &first);
    design.setParam(A_SYNTH_CLOCK_FREQ, number(400));
    EXPECT_EQ(nodeOfDesignOption(design, A_SYNTH_CLOCK_FREQ), &design);
    EXPECT_TRUE(designOption(design, A_SYNTH_CLOCK_FREQ) == number(400));
}

TEST_F(SynthesisOptionsTest, switchOffOptimisationsByName) {
    EXPECT_FALSE(IsOptimisationDisabled(A_ADD_BLOCK));
    util::SetFeatureString("DISABLED_OPTIMISATIONS", "x,addBlock,y");
    EXPECT_TRUE(IsOptimisationDisabled(A_ADD_BLOCK));
    EXPECT_FALSE(IsOptimisationDisabled(A_SUB_BLOCK));
    util::SetFeatureString("DISABLED_OPTIMISATIONS", "addBlock2,subBlock");
    EXPECT_FALSE(IsOptimisationDisabled(A_ADD_BLOCK));
    EXPECT_TRUE(IsOptimisationDisabled(A_SUB_BLOCK));
    util::SetFeatureString("DISABLED_OPTIMISATIONS", " x, subBlock ,\taddBlock, ,");
    EXPECT_TRUE(IsOptimisationDisabled(A_ADD_BLOCK));
    EXPECT_TRUE(IsOptimisationDisabled(A_SUB_BLOCK));
    util::SetFeatureString("DISABLED_OPTIMISATIONS", "add Block");
    EXPECT_FALSE(IsOptimisationDisabled(A_ADD_BLOCK));
}

} // namespace
} // namespace orvo
