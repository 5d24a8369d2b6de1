// Which options tell the device of a model.
#include <orvo/basedevice.h>

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/synthesis_options.h>

#include <util/diagnostics.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

class BaseDeviceTest : public ::testing::Test {
  protected:
    void set(Node &node, const StaticString &key, const char *text) {
        node.setParam(key, StringValue::get(text, mgr.context()));
    }
    std::string device() {
        const device::Device &found = getBaseDeviceFromModel(model);
        return found.part().name + found.speedGrade().name;
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Model &top = *Model::create(design, "top");
};

TEST_F(BaseDeviceTest, isThatOfTheDefaultOptionsWhereNothingIsSet) {
    const std::string unset = device();
    SynthesisOptions::setSynthesisOptionsOnModel(model, SynthesisOptions::createDefaultSynthesisOptions());
    EXPECT_EQ(device(), unset);
    EXPECT_EQ(unset, "7HLXQR5D6F31C8-8");
}

TEST_F(BaseDeviceTest, isTheModelsOwnBeforeThatOfTheDesign) {
    set(design, A_SYNTH_DEVICE_FAMILY, "Ostrel 3");
    EXPECT_EQ(device(), "OS3R120B40-5");
    set(model, A_SYNTH_DEVICE_FAMILY, "Corvane 10");
    EXPECT_EQ(device(), "CV10X280H2E2-2");
    set(model, A_SYNTH_DEVICE_PART, "CV10X550H3E1");
    EXPECT_EQ(device(), "CV10X550H3E1-1");
    set(model, A_SYNTH_DEVICE_SPEED_GRADE, "-3");
    EXPECT_EQ(device(), "CV10X550H3E1-3");
}

TEST_F(BaseDeviceTest, isThatOfTheModelThatIsWrittenOutWhereTheDesignNamesNone) {
    set(top, A_SYNTH_DEVICE_FAMILY, "Quillon 2");
    EXPECT_EQ(device(), "7HLXQR5D6F31C8-8");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    EXPECT_EQ(device(), "Q2E05T144-8");
    set(design, A_SYNTH_DEVICE_FAMILY, "Ostrel 3");
    EXPECT_EQ(device(), "OS3R120B40-5");
}

TEST_F(BaseDeviceTest, isToldByThePartAlone) {
    set(model, A_SYNTH_DEVICE_PART, "LWE40M256");
    EXPECT_EQ(device(), "LWE40M256-3");
    model.setParam(A_SYNTH_DEVICE_PART, ValueRef());
    set(design, A_SYNTH_DEVICE_PART, "OS3R120B40");
    EXPECT_EQ(device(), "OS3R120B40-5");
}

TEST_F(BaseDeviceTest, takesNoPartOfOneNodeWithTheFamilyOfAnother) {
    set(design, A_SYNTH_DEVICE_PART, "OS3R120B40");
    set(model, A_SYNTH_DEVICE_FAMILY, "Corvane 10");
    EXPECT_EQ(device(), "CV10X280H2E2-2");
}

TEST_F(BaseDeviceTest, isTheDefaultAfterAWarningForNamesThatTheTableDoesNotHave) {
    struct Sink final : util::DiagnosticSink {
        void onDiagnostic(bool isError, const std::string &text) override { heard += (isError ? "E:" : "W:") + text; }
        std::string heard;
    } sink;
    set(model, A_SYNTH_DEVICE_FAMILY, "Unheard Of");
    util::DiagnosticSink *before = util::setDiagnosticSink(&sink);
    const std::string found = device();
    util::setDiagnosticSink(before);
    EXPECT_EQ(found, "7HLXQR5D6F31C8-8");
    EXPECT_EQ(sink.heard.find("W:there is no device family 'Unheard Of'"), 0U) << sink.heard;
}

} // namespace
} // namespace orvo
