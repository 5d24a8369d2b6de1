// The model that is built around a function, and what becomes of it.
#include <orvo/systembuilder.h>

#include "support/invariants.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace orvo {
namespace {

struct Call {
    const Model *model = nullptr;
    bool flags[3] = {true, true, true};
    int count = 0;
};
Call gCall;

ResourceUsageAndLatencyHelper generator(Model &model, bool first, bool second, bool third) {
    gCall = {&model, {first, second, third}, gCall.count + 1};
    ResourceUsageAndLatencyHelper cost;
    cost.luts = 7;
    cost.latency = 3;
    return cost;
}

class SystemBuilderTest : public ::testing::Test {
  protected:
    SystemBuilderTest() { gCall = Call(); }
    PureValueRef text(const std::string &of) { return StringValue::get(of, mgr.context()); }
    PureValueRef number(int of) { return NumberValue::get(of, mgr.context()); }
    Block &inner(const char *name, const StaticString &type) {
        Block &made = *Block::create(function.model(), name, type);
        Wire::create(made, A_PRIM_WIRE_OUT);
        return made;
    }
    ORVOSystem build() { return {&function, parameters, &generator}; }
    std::string param(const StaticString &key) {
        const ValueRef value = function.model().getParam(key);
        return value ? value->toString() : "none";
    }
    Block &blockOf(const char *name) { return *function.model().getBlock(text(name)); }
    /// The wire at a port, as block.wire.
    static std::string driver(const Block &block, const PureValueRef &port) {
        const Port *at = block.getPort(port);
        if (at == nullptr) {
            return "open";
        }
        const Wire *wire = Node::from<Wire>(block.getParam(port));
        return wire->getBlock().getName()->toString() + "." + wire->getName()->toString();
    }

    ContextMgr mgr;
    FuncInfoDefault function{mgr.context(), "a sum"};
    GenerationParameters parameters{SynthesisOptions()};
};

TEST_F(SystemBuilderTest, makesTheFourBlocksAndNoWiresForAFunctionWithoutPorts) {
    build();
    const Model &model = function.model();
    EXPECT_EQ(model.size(), 4U);
    for (const Block &block : model) {
        EXPECT_EQ(block.size(), 0U);
        EXPECT_EQ(block.port_size(), 0U);
    }
    EXPECT_EQ(blockOf("input").type(), A_INPUT_BLOCK.get_ptr());
    EXPECT_EQ(blockOf("output").type(), A_OUTPUT_BLOCK.get_ptr());
    EXPECT_EQ(blockOf("xIn").type(), A_SIGNAL_IN_BLOCK.get_ptr());
    EXPECT_EQ(blockOf("xOut").type(), A_SIGNAL_OUT_BLOCK.get_ptr());
}

TEST_F(SystemBuilderTest, leadsEachPortThroughAPinOfItsType) {
    Block &add = inner("add", A_ADD_BLOCK);
    function.addInputPortInfo(text("a"), number(0), NumTypeSpec::sfixed(3, 5), &add);
    function.addInputPortInfo(text("b"), number(1), NumTypeSpec::ufixed(4, 0), &add);
    function.addOutputPortInfo(text("sum"), A_PRIM_WIRE_OUT, NumTypeSpec::sfixed(6, 5), &add);
    build();
    EXPECT_TRUE(test::checkInvariants(function.model().getDesign()));
    EXPECT_EQ(driver(blockOf("typePin_a"), number(0)), "input.a");
    EXPECT_EQ(driver(blockOf("xIn"), text("a")).find("typePin_a."), 0U);
    EXPECT_EQ(driver(add, number(0)), "xIn.a");
    EXPECT_EQ(driver(add, number(1)), "xIn.b");
    EXPECT_EQ(driver(blockOf("xOut"), text("sum")).find("add."), 0U);
    EXPECT_EQ(driver(blockOf("typePin_sum"), number(0)), "xOut.sum");
    EXPECT_EQ(driver(blockOf("output"), text("sum")).find("typePin_sum."), 0U);
    EXPECT_TRUE(blockOf("typePin_a")[A_TYPE_PIN_TYPE] == NumTypeSpec::sfixed(3, 5).toValue(mgr.context()));
}

TEST_F(SystemBuilderTest, givesTheBlocksOfTheFunctionTheTypesOfItsPorts) {
    Block &neg = inner("neg", A_NEG_BLOCK);
    NumTypeSpec type = NumTypeSpec::sfixed(3, 5);
    type.setComplex(true);
    type.addVector(4);
    function.addInputPortInfo(text("a"), number(0), type, &neg);
    build();
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(function.model().getDesign());
    EXPECT_TRUE(results.getPass<GlobalTypePass>()->getType(neg.getPort(number(0)), {}) == type.toValue(mgr.context()));
}

TEST_F(SystemBuilderTest, tellsOfAPortWhatItsTypeIsMadeOf) {
    Block &neg = inner("neg", A_NEG_BLOCK);
    NumTypeSpec type = NumTypeSpec::sfixed(3, 5);
    type.setComplex(true);
    type.addVector(4);
    function.addInputPortInfo(text("a"), number(0), type, &neg);
    function.addOutputPortInfo(text("f"), A_PRIM_WIRE_OUT, NumTypeSpec::sfloatIEEE(23, 8), &neg);
    const PortInfo &port = function.inputs().front();
    EXPECT_TRUE(port.name() == text("a"));
    EXPECT_TRUE(port.connection() == number(0));
    EXPECT_EQ(port.block(), &neg);
    EXPECT_EQ(port.width(), 8);
    EXPECT_EQ(port.fraction(), 5);
    EXPECT_TRUE(port.isSigned());
    EXPECT_TRUE(port.isComplex());
    EXPECT_EQ(port.vectorLengths(), std::vector<int>{4});
    EXPECT_EQ(function.outputs().front().width(), 32);
    EXPECT_EQ(PortInfo(text("x"), number(0), NumTypeSpec(), &neg).width(), 0);
}

TEST_F(SystemBuilderTest, keepsInputsOfOneNameApart) {
    Block &add = inner("add", A_ADD_BLOCK);
    function.addInputPortInfo(text("a"), number(0), NumTypeSpec::ufixed(4, 0), &add);
    function.addInputPortInfo(text("a"), number(1), NumTypeSpec::ufixed(5, 0), &add);
    build();
    EXPECT_TRUE(test::checkInvariants(function.model().getDesign()));
    EXPECT_EQ(blockOf("input").getWireCount(), 2U);
    EXPECT_EQ(blockOf("xIn").getWireCount(), 2U);
    EXPECT_EQ(blockOf("xIn").getPortCount(), 2U);
    EXPECT_EQ(driver(add, number(0)), "xIn.a");
    EXPECT_NE(driver(add, number(1)), driver(add, number(0)));
    const PureValueRef second = pureVR(Node::from<Wire>(add.getParam(number(1)))->getName());
    EXPECT_TRUE(pureTupleVR(second)->at(0) == A_DUPLICATE_NAME) << second->toString();
    EXPECT_NE(driver(blockOf("xIn"), second), driver(blockOf("xIn"), text("a")));
}

TEST_F(SystemBuilderTest, keepsOutputsOfOneNameApartAndFromInputsOfThatName) {
    Block &neg = inner("neg", A_NEG_BLOCK);
    Block &not1 = inner("not", A_NOT_BLOCK);
    function.addInputPortInfo(text("a"), number(0), NumTypeSpec::sfixed(4, 0), &neg);
    function.addOutputPortInfo(text("a"), A_PRIM_WIRE_OUT, NumTypeSpec::sfixed(5, 0), &neg);
    function.addOutputPortInfo(text("a"), A_PRIM_WIRE_OUT, NumTypeSpec::sfixed(4, 0), &not1);
    build();
    EXPECT_TRUE(test::checkInvariants(function.model().getDesign()));
    EXPECT_EQ(blockOf("output").getPortCount(), 2U);
    EXPECT_EQ(blockOf("xOut").getPortCount(), 2U);
    EXPECT_EQ(function.model().size(), 4U + 2U + 3U);
}

TEST_F(SystemBuilderTest, takesAnyValueForAName) {
    Block &neg = inner("neg", A_NEG_BLOCK);
    const PureValueRef odd = text("a b/\"c\"");
    const PureValueRef tuple = PureTupleValue::get(text("x"), number(2), mgr.context());
    function.addInputPortInfo(odd, number(0), NumTypeSpec::sfixed(4, 0), &neg);
    function.addOutputPortInfo(tuple, A_PRIM_WIRE_OUT, NumTypeSpec::sfixed(5, 0), &neg);
    build();
    EXPECT_NE(blockOf("input").getWire(odd), nullptr);
    EXPECT_NE(function.model().getBlock(text("typePin_a b/\"c\"")), nullptr);
    EXPECT_NE(blockOf("output").getPort(tuple), nullptr);
    EXPECT_NE(function.model().getBlock(text("typePin_" + tuple->toString())), nullptr);
}

TEST_F(SystemBuilderTest, makesTheWireOfAnOutputThatItsBlockDoesNotHave) {
    Block &block = *Block::create(function.model(), "bare", A_NEG_BLOCK);
    function.addOutputPortInfo(text("y"), A_PRIM_WIRE_OUT, NumTypeSpec::sfixed(5, 0), &block);
    build();
    EXPECT_EQ(block.getWireCount(), 1U);
}

TEST_F(SystemBuilderTest, setsTheParametersOfTheBlocks) {
    Block &constant = inner("c", A_CONST_BLOCK);
    function.addParamPairToBlock(&constant, A_CONST_VALUE, number(3));
    function.addParamPairToBlock(&constant, A_CONST_VALUE, number(5));
    EXPECT_FALSE(constant[A_CONST_VALUE]);
    build();
    EXPECT_TRUE(constant[A_CONST_VALUE] == number(5));
}

TEST_F(SystemBuilderTest, asksForPortsOnceMoreBeforeItBuilds) {
    struct Late final : FuncInfo {
        using FuncInfo::FuncInfo;
        void UpdateInputs() override {
            neg = Block::create(model(), "neg", A_NEG_BLOCK);
            addInputPortInfo(StringValue::get("a", model().getContext()), NumberValue::get(0, model().getContext()),
                             NumTypeSpec::sfixed(4, 0), neg);
            addParamPairToBlock(neg, A_SIMULINK_PATH, A_TRUE);
        }
        void UpdateOutputs() override {
            addOutputPortInfo(StringValue::get("y", model().getContext()), A_PRIM_WIRE_OUT, NumTypeSpec::sfixed(5, 0),
                              neg);
        }
        Block *neg = nullptr;
    } late(mgr.context(), "late");
    ORVOSystem system(&late, parameters, &generator);
    EXPECT_EQ(late.neg->getPortCount(), 1U);
    EXPECT_EQ(late.neg->begin()->port_size(), 1U);
    EXPECT_TRUE((*late.neg)[A_SIMULINK_PATH] == A_TRUE);
}

TEST_F(SystemBuilderTest, namesTheModelByTheParametersElseByTheDescription) {
    build();
    EXPECT_TRUE(function.model().getName() == text("a sum"));
    parameters.name = "adder";
    FuncInfoDefault other(function.model(), "of a model of the client");
    ORVOSystem system(&other, parameters, &generator);
    EXPECT_EQ(&system.model(), &function.model());
    EXPECT_TRUE(function.model().getName() == text("adder"));
}

TEST_F(SystemBuilderTest, setsTheOptionsOfTheBuild) {
    SynthesisOptions options = SynthesisOptions::createDefaultSynthesisOptions();
    options.deviceInitialiseMemories = A_TRUE;
    options.clockFreq = NumberValue::get(312.5, mgr.context());
    options.atbUnitUlpValues = PureTupleValue::get(NumberValue::get(0.5, mgr.context()), number(1), mgr.context());
    parameters = GenerationParameters(options);
    parameters.language = GenerationParameters::Language::Verilog;
    parameters.outputPath = "out";
    parameters.hdlRoot = "rtl";
    build();
    EXPECT_EQ(param(A_GENERATE_LANGUAGE), "VERILOG");
    EXPECT_EQ(param(A_GENERATE_OUTPUT_PATH), "out");
    EXPECT_EQ(param(A_SYNTH_OUTPUT_HDL_ROOT), "rtl");
    EXPECT_TRUE(function.model()[A_SYNTH_OUTPUT_MODE] == A_SYNTH_OUTPUT_INTERNAL_ROOT);
    EXPECT_EQ(param(A_SYNTH_DEVICE_FAMILY), "\"Halcyon V\"");
    EXPECT_EQ(param(A_SYNTH_DEVICE_PART), "\"7HLXQR5D6F31C8\"");
    EXPECT_TRUE(function.model()[A_SYNTH_DEVICE_SPEED_GRADE] == text("-8"));
    EXPECT_TRUE(function.model()[A_SYNTH_CLOCK_FREQ] == NumberValue::get(312.5, mgr.context()));
    EXPECT_EQ(param(A_SYNTH_CLOCK_NAME), "clk");
    EXPECT_EQ(param(A_SYNTH_RESET_NAME), "areset");
    EXPECT_TRUE(function.model()[A_SYNTH_ATB_UNIT_RIGUROUS_TESTING] == A_TRUE);
    EXPECT_TRUE(function.model()[A_SYNTH_DEVICE_INITIALISE_MEMORIES] == A_TRUE);
    EXPECT_TRUE(function.model()[A_SYNTH_ATB_STM_FILE_MODE] == A_SYNTH_ATB_STM_FILE_MODE_BINARY);
    EXPECT_TRUE(function.model()[A_SYNTH_ATB_UNIT_ULP_VALUES] == options.atbUnitUlpValues);
}

TEST_F(SystemBuilderTest, setsNoOptionThatIsNotGiven) {
    build();
    EXPECT_EQ(param(A_GENERATE_LANGUAGE), "VHDL");
    EXPECT_TRUE(function.model()[A_SYNTH_OUTPUT_MODE] == A_SYNTH_OUTPUT_INTERNAL_ROOT);
    EXPECT_TRUE(function.model()[A_SYNTH_DEVICE_INITIALISE_MEMORIES] == A_FALSE);
    EXPECT_EQ(tupleVR(function.model()[A_SYNTH_ATB_UNIT_ULP_VALUES])->size(), 0U);
    const StaticString *absent[] = {&A_GENERATE_OUTPUT_PATH,     &A_SYNTH_OUTPUT_HDL_ROOT, &A_SYNTH_DEVICE_FAMILY,
                                    &A_SYNTH_DEVICE_PART,        &A_SYNTH_CLOCK_FREQ,      &A_SYNTH_CLOCK_NAME,
                                    &A_SYNTH_DEVICE_SPEED_GRADE, &A_SYNTH_RESET_NAME};
    for (const StaticString *key : absent) {
        EXPECT_EQ(param(*key), "none") << key->text();
    }
}

TEST_F(SystemBuilderTest, givesTheModelToTheHelperAndItsAnswerToTheClient) {
    ORVOSystem system = build();
    EXPECT_EQ(gCall.count, 0);
    const ResourceUsageAndLatencyHelper cost = system.generate();
    EXPECT_EQ(gCall.model, &function.model());
    EXPECT_FALSE(gCall.flags[0] || gCall.flags[1] || gCall.flags[2]);
    ResourceUsageAndLatencyHelper expected;
    expected.luts = 7;
    expected.latency = 3;
    EXPECT_EQ(cost, expected);
    system.generate();
    EXPECT_EQ(gCall.count, 2);
}

TEST_F(SystemBuilderTest, dumpsTheDesignUnderTheNameOfTheModelIfAsked) {
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path();
    const fs::path folder = fs::path(ORVO_TEST_TMP_DIR) / "systembuilder";
    fs::remove_all(folder);
    fs::create_directories(folder);
    fs::current_path(folder);
    build().generate();
    EXPECT_TRUE(fs::is_empty(folder));
    parameters.name = "a/b";
    parameters.dumpDesign = true;
    FuncInfoDefault other(mgr.context(), "other");
    ORVOSystem(&other, parameters, &generator).generate();
    std::ifstream in("a_b_dump.xml");
    Design read(mgr.context());
    XMLServices().fromXML(in, read, XMLServices::silentErrorFunc);
    fs::current_path(before);
    ASSERT_NE(read.getModel(text("a/b")), nullptr);
    EXPECT_EQ(read.getModel(text("a/b"))->size(), 4U);
}

TEST_F(SystemBuilderTest, throwsForNoFunction) {
    try {
        ORVOSystem system(nullptr, parameters, &generator);
        ADD_FAILURE() << "built a system of nothing";
    } catch (const std::runtime_error &error) {
        EXPECT_STREQ(error.what(), "Trying to fetch the type of an uninitialized pointer");
    }
}

TEST_F(SystemBuilderTest, assertsThatPortsAndParametersBelongToBlocks) {
    const NumTypeSpec type = NumTypeSpec::sfixed(4, 0);
    EXPECT_EXIT(function.addInputPortInfo(text("a"), number(0), type, nullptr), ::testing::ExitedWithCode(1),
                "a port of a function belongs to no block");
    EXPECT_EXIT(function.addOutputPortInfo(text("y"), A_PRIM_WIRE_OUT, type, nullptr), ::testing::ExitedWithCode(1),
                "a port of a function belongs to no block");
    EXPECT_EXIT(function.addParamPairToBlock(nullptr, A_SIMULINK_PATH, A_TRUE), ::testing::ExitedWithCode(1),
                "a parameter of a function belongs to no block");
}

TEST_F(SystemBuilderTest, assertsThatThereIsAHelper) {
    EXPECT_EXIT(ORVOSystem(&function, parameters, nullptr), ::testing::ExitedWithCode(1), "generated by nobody");
}

} // namespace
} // namespace orvo
