// The settings of control and data, for every combination of the facts that they follow from.
#include <orvo/controlflowconf.h>

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace orvo {
namespace {

class ControlFlowConfTest : public ::testing::Test {
  protected:
    ControlFlowConfTest() { util::ClearFeatures(); }
    ~ControlFlowConfTest() override { util::ClearFeatures(); }
    ControlFlowConf conf() {
        ControlFlowConf made;
        made.setFromModel(model);
        return made;
    }
    void device(const char *family) { model.setParam(A_SYNTH_DEVICE_FAMILY, StringValue::get(family, mgr.context())); }
    void generated(bool is) {
        design.setParam(A_DESIGN_GENERATOR, is ? pureVR(A_DESIGN_GENERATOR_IS_KELMAR) : PureValueRef());
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    static constexpr const char *kWithFabricRegisters = "Ostrel 3";
    static constexpr const char *kWithoutFabricRegisters = "Halcyon V";
};

TEST_F(ControlFlowConfTest, isPlainForADrawnDesignOnAPlainDevice) {
    device(kWithoutFabricRegisters);
    EXPECT_EQ(conf(), ControlFlowConf());
}

TEST_F(ControlFlowConfTest, followsGeneratorDeviceAndModelInEveryCombination) {
    const PureValueRef choices[] = {PureValueRef(), pureVR(A_FALSE), pureVR(A_TRUE)};
    for (const bool isGenerated : {false, true}) {
        for (const bool registers : {false, true}) {
            for (const PureValueRef &global : choices) {
                for (const PureValueRef &own : choices) {
                    generated(isGenerated);
                    device(registers ? kWithFabricRegisters : kWithoutFabricRegisters);
                    model.setParam(A_RESET_MINIMIZATION_GLOBAL_ENABLE, global);
                    model.setParam(A_RESET_MINIMIZATION_MODEL_ENABLE, own);
                    const bool asked = global ? global == A_TRUE : registers;
                    const bool minimises = isGenerated && asked && !(own == A_FALSE);
                    const ControlFlowConf made = conf();
                    EXPECT_TRUE(made.controlFlow);
                    EXPECT_EQ(made.controlFlowPermissive, isGenerated);
                    EXPECT_EQ(made.controlFlowChannel, isGenerated);
                    EXPECT_EQ(made.dataFlowGPIO, own == A_TRUE);
                    EXPECT_EQ(made.delayMemResetFree, minimises);
                    EXPECT_EQ(made.submodelFloatIsDataFlow, registers);
                    EXPECT_EQ(made.minResetPulseWidth, minimises ? 1024 : registers ? 2 : 1);
                    EXPECT_TRUE(made.controlFlowPhasing);
                    EXPECT_TRUE(made.controlFlowRegPhasing);
                    EXPECT_EQ(made.controlFlowFIR, minimises);
                    EXPECT_FALSE(made.controlFlowStats);
                }
            }
        }
    }
}

TEST_F(ControlFlowConfTest, takesFloatOperatorsForDataAsTheModelSaysBeforeTheDevice) {
    device(kWithFabricRegisters);
    EXPECT_TRUE(conf().submodelFloatIsDataFlow);
    model.setParam(A_RESET_MINIMIZE_FLOAT_SUBMODELS, A_FALSE);
    EXPECT_FALSE(conf().submodelFloatIsDataFlow);
    device(kWithoutFabricRegisters);
    EXPECT_FALSE(conf().submodelFloatIsDataFlow);
    model.setParam(A_RESET_MINIMIZE_FLOAT_SUBMODELS, A_TRUE);
    EXPECT_TRUE(conf().submodelFloatIsDataFlow);
}

TEST_F(ControlFlowConfTest, readsTheGeneratorFromTheModelThatIsWrittenOutToo) {
    Model &top = *Model::create(design, "top");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    top.setParam(A_DESIGN_GENERATOR, A_DESIGN_GENERATOR_IS_KELMAR);
    EXPECT_TRUE(conf().controlFlowPermissive);
    design.setParam(A_DESIGN_GENERATOR, A_FALSE);
    EXPECT_FALSE(conf().controlFlowPermissive);
}

TEST_F(ControlFlowConfTest, takesThePulseWidthOfTheModel) {
    model.setParam(A_MIN_RESET_PULSE_WIDTH, NumberValue::get(7, mgr.context()));
    EXPECT_EQ(conf().minResetPulseWidth, 7);
}

TEST_F(ControlFlowConfTest, refusesPulseWidthsThatAreNoCyclesOrNone) {
    model.setParam(A_MIN_RESET_PULSE_WIDTH, NumberValue::get(1.5, mgr.context()));
    EXPECT_EXIT(conf(), ::testing::ExitedWithCode(1), "is not an integer");
    model.setParam(A_MIN_RESET_PULSE_WIDTH, A_TRUE);
    EXPECT_EXIT(conf(), ::testing::ExitedWithCode(1), "is not an integer");
    model.setParam(A_MIN_RESET_PULSE_WIDTH, NumberValue::get(0, mgr.context()));
    EXPECT_EXIT(conf(), ::testing::ExitedWithCode(1), "less than a cycle");
    model.setParam(A_MIN_RESET_PULSE_WIDTH, ValueRef());
    util::SetFeatureInteger("minResetPulseWidth", 0);
    EXPECT_EXIT(conf(), ::testing::ExitedWithCode(1), "less than a cycle");
}

TEST_F(ControlFlowConfTest, doesNotLookAtAPulseWidthThatTheFeatureOverrides) {
    model.setParam(A_MIN_RESET_PULSE_WIDTH, A_TRUE);
    util::SetFeatureInteger("minResetPulseWidth", 12);
    EXPECT_EQ(conf().minResetPulseWidth, 12);
    util::SetFeatureString("minResetPulseWidth", "long");
    EXPECT_EXIT(conf(), ::testing::ExitedWithCode(1), "is not an integer");
}

// The features are in the list that users see, and each changes the field of its name and no other.
TEST_F(ControlFlowConfTest, yieldsToTheFeatureOfEachField) {
    struct Field {
        const char *name;
        bool ControlFlowConf::*field;
    };
    const Field fields[] = {
        {"controlFlow", &ControlFlowConf::controlFlow},
        {"controlFlowPermissive", &ControlFlowConf::controlFlowPermissive},
        {"controlFlowChannel", &ControlFlowConf::controlFlowChannel},
        {"dataFlowGPIO", &ControlFlowConf::dataFlowGPIO},
        {"delayMemResetFree", &ControlFlowConf::delayMemResetFree},
        {"submodelFloatIsDataFlow", &ControlFlowConf::submodelFloatIsDataFlow},
        {"controlFlowPhasing", &ControlFlowConf::controlFlowPhasing},
        {"controlFlowRegPhasing", &ControlFlowConf::controlFlowRegPhasing},
        {"controlFlowFIR", &ControlFlowConf::controlFlowFIR},
        {"controlFlowStats", &ControlFlowConf::controlFlowStats},
    };
    const auto isKnown = [](std::string_view name) {
        const auto &known = util::KnownFeatures();
        return std::any_of(known.begin(), known.end(), [name](const KelmarFeature &one) { return one.name == name; });
    };
    for (const Field &field : fields) {
        ControlFlowConf expected;
        expected.*field.field = !(expected.*field.field);
        util::SetFeatureBoolean(field.name, expected.*field.field);
        EXPECT_EQ(conf(), expected) << field.name;
        util::ClearFeatures();
        EXPECT_TRUE(isKnown(field.name)) << field.name;
    }
    ControlFlowConf expected;
    expected.minResetPulseWidth = 12;
    util::SetFeatureInteger("minResetPulseWidth", 12);
    EXPECT_EQ(conf(), expected);
    EXPECT_TRUE(isKnown("minResetPulseWidth"));
}

} // namespace
} // namespace orvo
