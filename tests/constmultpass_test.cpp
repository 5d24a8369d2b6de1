// How products by constants are built: which become multipliers by constants, which vanish, and what the model
// generator is asked.
#include "orvo/constmultpass.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/annotation.h>
#include <orvo/context.h>
#include <orvo/resourceusage.h>
#include <orvo/xmlservices.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <sstream>

namespace orvo {
namespace {

using Names = std::set<std::string>;
using Lines = std::vector<std::string>;

/// What a generator of the test was asked, and what it answers.
struct Asked {
    int calls = 0;
    std::vector<std::string> blocks;
    std::vector<std::string> modelNames;
    std::vector<bool> optimised;
    bool flags[3] = {true, true, true};
    ResourceUsageAndLatencyHelper asIs;
    ResourceUsageAndLatencyHelper optimisedCost;
    std::string device;
};
Asked gAsked;

ResourceUsageAndLatencyHelper answer(Model &model, bool first, bool second, bool third) {
    ++gAsked.calls;
    gAsked.flags[0] = first;
    gAsked.flags[1] = second;
    gAsked.flags[2] = third;
    gAsked.modelNames.push_back(model.getName()->toString());
    gAsked.device = model[A_SYNTH_DEVICE_PART] ? ValueRef(model.getParam(A_SYNTH_DEVICE_PART))->toString() : "";
    bool optimised = false;
    for (Block &block : model) {
        if (block.type() == A_MULT_BLOCK.get_ptr() || block.type() == A_CONST_BLOCK.get_ptr()) {
            gAsked.blocks.push_back(block.getName()->toString());
            optimised = optimised || block.findParam(A_MULT_OPTIMIZE_CONST_BEFORE_TILING) == A_TRUE.get_ptr();
        }
    }
    gAsked.optimised.push_back(optimised);
    return optimised ? gAsked.optimisedCost : gAsked.asIs;
}

ResourceUsageAndLatencyHelper cost(std::int64_t luts, std::int64_t multipliers) {
    ResourceUsageAndLatencyHelper made;
    made.luts = luts;
    made.multipliers = multipliers;
    return made;
}

class ConstMultTest : public test::SimulatorFixture {
  protected:
    ConstMultTest() {
        gAsked = Asked();
        gAsked.asIs = cost(10, 1);
        gAsked.optimisedCost = cost(20, 0);
    }
    ~ConstMultTest() override { util::ClearFeatures(); }

    /// Hexadecimal numbers as they stand, all others, infinities and NaN too, as doubles.
    ValueRef numberOf(const std::string &text) {
        return text.find('x') != std::string::npos ? Value::parse(text, mgr.context())
                                                   : ValueRef(NumberValue::get(std::stod(text), mgr.context()));
    }
    Wire &constant(Model &in, const std::string &name, const std::string &number, const std::string &type) {
        Block &made = block(in, name, "constBlock");
        made.setParam(A_CONST_VALUE, numberOf(number));
        made.setParam(A_CONST_TYPE, ValueRef(value(orvo::testing::typeText(type))));
        return *Wire::create(made, A_PRIM_WIRE_OUT);
    }
    Block &product(Model &in, const std::string &name, const std::vector<Wire *> &factors, const Texts &params = {}) {
        Block &made = block(in, name, "multBlock", params);
        for (std::size_t i = 0; i < factors.size(); ++i) {
            made.setParam(value(std::to_string(i)), *factors[i]);
        }
        Wire::create(made, A_PRIM_WIRE_OUT);
        return made;
    }
    /// An input times a constant, the constant on port `side`, and an output.
    Block &times(const std::string &input, const std::string &number, const std::string &type, int side = 1,
                 const Texts &params = {}) {
        const std::string index = std::to_string(model.size());
        Wire &signal = this->input(model, "a" + index, input);
        Wire &fixed = constant(model, "c" + index, number, type);
        std::vector<Wire *> factors{&signal, &fixed};
        if (side == 0) {
            std::swap(factors[0], factors[1]);
        }
        Block &made = product(model, "m" + index, factors, params);
        output(model, "o" + index, out(made));
        return made;
    }
    /// Runs the pass, checks that the design computes what it did, and gives the messages.
    Lines run(bool compares = true, bool asksTest = true) {
        std::stringstream text;
        XMLServices().toXML(text, design);
        Design before(mgr.context());
        XMLServices().fromXML(text, before, &XMLServices::defaultErrorFunc);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("ConstMultPass", asksTest ? ParamContext(WithParam(&answer)) : ParamContext());
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        const Lines lines = heard.take();
        if (compares) {
            test::expectSameBehaviour(before, design);
        }
        return lines;
    }
    static std::string text(const Node *node, const StaticString &key) {
        const Value *found = node == nullptr ? nullptr : node->findParam(key);
        return found == nullptr ? "" : found->toString();
    }
    Block *named(const std::string &name) { return model.getBlock(value(name)); }
    static std::size_t countOf(const Model &in, const StaticString &type) {
        std::size_t count = 0;
        for (const Block &one : in) {
            count += one.type() == type.get_ptr() ? 1 : 0;
        }
        return count;
    }
    bool isOptimised(const Block &block) {
        return block.findParam(A_MULT_OPTIMIZE_CONST_BEFORE_TILING) == A_TRUE.get_ptr();
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
};

constexpr const char *kSingle = "float(23,8)";
constexpr const char *kHalf = "float(10,5)";

TEST(CountMantissaOnes, countsStoredOnesAndTheHiddenOne) {
    EXPECT_EQ(internal::countMantissaOnes(1.5), 2);
    EXPECT_EQ(internal::countMantissaOnes(2.0), 1);
    EXPECT_EQ(internal::countMantissaOnes(-0.75), 2);
    EXPECT_EQ(internal::countMantissaOnes(0.0), 0);
    EXPECT_EQ(internal::countMantissaOnes(-0.0), 0);
    EXPECT_EQ(internal::countMantissaOnes(std::nextafter(2.0, 1.0)), 53);
}

TEST(CountMantissaOnes, countsNoHiddenOneOfSubnormals) {
    EXPECT_EQ(internal::countMantissaOnes(std::numeric_limits<double>::denorm_min()), 1);
    EXPECT_EQ(internal::countMantissaOnes(3 * std::numeric_limits<double>::denorm_min()), 2);
    EXPECT_EQ(internal::countMantissaOnes(std::numeric_limits<double>::min()), 1);
}

TEST(CountMantissaOnes, givesMoreThanAnyNumberHasForWhatIsNone) {
    EXPECT_EQ(internal::countMantissaOnes(std::numeric_limits<double>::quiet_NaN()), 64);
    EXPECT_EQ(internal::countMantissaOnes(std::numeric_limits<double>::infinity()), 64);
    EXPECT_EQ(internal::countMantissaOnes(-std::numeric_limits<double>::infinity()), 64);
}

// Floats.

TEST_F(ConstMultTest, convertsAFloatProductByAPowerOfTwo) {
    times(kSingle, "2", kSingle);
    EXPECT_EQ(run(), Lines{});
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 0U);
    ASSERT_EQ(countOf(model, A_CONSTMULT_BLOCK), 1U);
    EXPECT_EQ(gAsked.calls, 0);
}

TEST_F(ConstMultTest, namesTheMultiplierByTheConstantAfterTheProduct) {
    Block &mult = times(kSingle, "0.25", kSingle);
    const std::string name = "(" + mult.getName()->toString() + " constMult)";
    run();
    ASSERT_NE(named(name), nullptr);
    EXPECT_EQ(text(named(name), A_CONST_VALUE), "0x4p-4");
}

TEST_F(ConstMultTest, leavesAFloatProductByOneAndAHalf) {
    times(kSingle, "1.5", kSingle);
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 1U);
    EXPECT_EQ(countOf(model, A_CONSTMULT_BLOCK), 0U);
}

TEST_F(ConstMultTest, convertsByAsManyOnesAsTheFeatureAllows) {
    util::SetFeatureInteger(Features::ConstantMultConversionsLimit, 2);
    times(kSingle, "1.5", kSingle);
    times(kSingle, "1.75", kSingle);
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 1U);
    EXPECT_EQ(countOf(model, A_CONSTMULT_BLOCK), 1U);
}

TEST_F(ConstMultTest, takesTheConstantFromEitherPort) {
    times(kSingle, "-4", kSingle, 0);
    times(kSingle, "-4", kSingle, 1);
    run();
    EXPECT_EQ(countOf(model, A_CONSTMULT_BLOCK), 2U);
}

TEST_F(ConstMultTest, convertsAProductOfTwoConstants) {
    Wire &three = constant(model, "c3", "3", kSingle);
    Wire &two = constant(model, "c2", "2", kSingle);
    output(model, "o", out(product(model, "m", {&three, &two})));
    run();
    EXPECT_EQ(text(named("(m constMult)"), A_CONST_VALUE), "2");
}

TEST_F(ConstMultTest, leavesAConstantOfAnotherFormat) {
    times(kSingle, "2", kHalf);
    times(kHalf, "2", kSingle);
    times(kHalf, "2", kHalf, 1, {{"multType", "(typeSFloatIEEE 23 8)"}});
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 3U);
}

TEST_F(ConstMultTest, convertsAFloatProductByZeroToAMultiplierByZero) {
    times(kSingle, "0", kSingle);
    times(kSingle, "-0", kSingle);
    run();
    EXPECT_EQ(countOf(model, A_CONSTMULT_BLOCK), 2U);
}

TEST_F(ConstMultTest, leavesFloatProductsByWhatIsNoNumber) {
    times(kSingle, "NaN", kSingle);
    times(kSingle, "Inf", kSingle);
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 2U);
}

TEST_F(ConstMultTest, convertsByAnyConstantOfTheFormatWhenLogicIsAskedFor) {
    const std::string lut(A_MULT_ARCH_CONST_LUT.text());
    const std::string logic(A_MULT_ARCH_LOGIC.text());
    times(kSingle, "1.3", kSingle, 1, {{"multArchitecture", lut.c_str()}});
    times(kSingle, "NaN", kSingle, 0, {{"multArchitecture", logic.c_str()}});
    times(kHalf, "1.3", kSingle, 1, {{"multArchitecture", logic.c_str()}});
    run();
    EXPECT_EQ(countOf(model, A_CONSTMULT_BLOCK), 2U);
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 1U);
}

TEST_F(ConstMultTest, leavesProductsThatAskForAMultiplier) {
    const std::string dsp(A_MULT_ARCH_CONST_DSP.text());
    times(kSingle, "2", kSingle, 1, {{"multArchitecture", dsp.c_str()}});
    Block &fixed = times("s8.0", "5", "s4.0", 1, {{"multArchitecture", dsp.c_str()}});
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 2U);
    EXPECT_FALSE(isOptimised(fixed));
    EXPECT_EQ(gAsked.calls, 0);
}

TEST_F(ConstMultTest, keepsHowAFloatProductIsComputed) {
    times(kHalf, "0.125", kHalf, 1, {{"floatSubnormals", "true"}, {"synthForceSoftFp", "true"}});
    times(kHalf, "0.125", kHalf, 1, {{"floatRoundingMode", "roundingToZero"}});
    times(kHalf, "6e-8", kHalf, 1);
    run();
    ASSERT_GE(countOf(model, A_CONSTMULT_BLOCK), 2U);
    std::size_t soft = 0;
    for (const Block &one : model) {
        soft += one.type() == A_CONSTMULT_BLOCK.get_ptr() && text(&one, A_SYNTH_FORCE_SOFT_FP) == A_TRUE.text() &&
                        text(&one, A_FLOAT_SUBNORMALS) == A_TRUE.text()
                    ? 1
                    : 0;
    }
    EXPECT_EQ(soft, 1U);
}

TEST_F(ConstMultTest, leavesProductsOfVectorsAndComplexNumbersAndOfThree) {
    times("[2] float(23,8)", "2", kSingle);
    times("c s8.0", "0", "s4.0");
    Wire &a = input(model, "x", "s8.0");
    Wire &zero = constant(model, "zero", "0", "s4.0");
    output(model, "y", out(product(model, "three", {&a, &zero, &a})));
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 3U);
    EXPECT_EQ(gAsked.calls, 0);
}

TEST_F(ConstMultTest, leavesWhatIsNotWhole) {
    // A constant without a value, one that is a text, a product with one port, and one without a type.
    Block &empty = block(model, "empty", "constBlock");
    Block &word = block(model, "word", "constBlock", {{"constValue", "word"}, {"constType", "(typeSFixed 4 0)"}});
    Wire &a = input(model, "x", "s8.0");
    product(model, "p", {&a, Wire::create(empty, A_PRIM_WIRE_OUT)});
    product(model, "q", {&a, Wire::create(word, A_PRIM_WIRE_OUT)});
    product(model, "r", {Wire::create(block(model, "c", "constBlock", {{"constValue", "2"}}), A_PRIM_WIRE_OUT)});
    Block::create(model, "s", A_MULT_BLOCK);
    Block::create(model, "t", A_CONSTMULT_BLOCK);
    EXPECT_EQ(run(false), Lines{});
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 4U);
}

TEST_F(ConstMultTest, leavesModelsThatAreSwitchedOff) {
    model.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    times(kSingle, "2", kSingle);
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 1U);
}

// Fixed point.

TEST_F(ConstMultTest, replacesAFixedPointProductByZero) {
    Block &left = times("s8.2", "0", "s4.0", 0);
    Block &right = times("u8.2", "0", "u4.1", 1);
    const std::string names[] = {left.getName()->toString(), right.getName()->toString()};
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 0U);
    for (const std::string &name : names) {
        EXPECT_EQ(text(named("(" + name + " const)"), A_CONST_VALUE), "0") << name;
    }
    EXPECT_EQ(text(named("(" + names[0] + " const)"), A_CONST_TYPE), "(typeSFixed 12 2)");
    EXPECT_EQ(gAsked.calls, 0);
}

TEST_F(ConstMultTest, takesForZeroWhatTheTypeOfTheConstantMakesZero) {
    times("s8.2", "0.25", "s4.0");
    times("s8.2", "-3", "u4.0");
    times("s8.2", "0.5", "s4.0");
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 1U);
}

TEST_F(ConstMultTest, replacesAMultiplierByZero) {
    Block &made = block(model, "by", "constmultBlock", {{"constValue", "0"}});
    made.setParam(value("0"), input(model, "a", "s8.0"));
    output(model, "o", *Wire::create(made, A_PRIM_WIRE_OUT));
    Block &single = block(model, "float", "constmultBlock", {{"constValue", "0"}});
    single.setParam(value("0"), input(model, "b", kSingle));
    output(model, "p", *Wire::create(single, A_PRIM_WIRE_OUT));
    run();
    EXPECT_NE(named("(by const)"), nullptr);
    EXPECT_NE(named("float"), nullptr);
}

TEST_F(ConstMultTest, followsAZeroThroughProductsInTheirOrder) {
    Wire &a = input(model, "a", "s4.0");
    Wire &zero = constant(model, "c", "0", "s4.0");
    Block &first = product(model, "m1", {&a, &zero});
    Block &second = product(model, "m2", {&out(first), &a});
    output(model, "o", out(second));
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 0U);
}

TEST_F(ConstMultTest, asksTwiceForAProductAndMarksItWhereThatPays) {
    Block &mult = times("s8.2", "5", "s4.0", 0);
    EXPECT_EQ(run(), Lines{});
    EXPECT_EQ(gAsked.calls, 2);
    EXPECT_EQ(gAsked.optimised, (std::vector<bool>{false, true}));
    EXPECT_TRUE(isOptimised(mult));
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 1U);
    EXPECT_EQ(std::set<std::string>(gAsked.blocks.begin(), gAsked.blocks.end()),
              (Names{"\"Const block\"", "\"Mult block\""}));
    EXPECT_EQ(gAsked.modelNames.front(), "\"Constant multiplication constmultpass\"");
    EXPECT_EQ(gAsked.device, "\"7HLXQR5D6F31C8\"");
    for (const bool flag : gAsked.flags) {
        EXPECT_FALSE(flag);
    }
}

TEST_F(ConstMultTest, comparesTheCostsAsTheDeviceWeighsThem) {
    struct Case {
        std::int64_t luts1, multipliers1, luts2, multipliers2;
        bool pays;
    };
    // The device takes a multiplier for 200 tables.
    const Case cases[] = {{10, 1, 210, 0, true}, {10, 1, 211, 0, false}, {10, 0, 10, 0, true},  {10, 0, 11, 0, false},
                          {10, 1, 5, 2, false},  {10, 2, 410, 2, true},  {10, 2, 411, 2, false}};
    for (const Case &one : cases) {
        Design fresh(mgr.context());
        Model &top = *Model::create(fresh, "top");
        Block &mult = product(top, "m", {&input(top, "a", "s8.0"), &constant(top, "c", "5", "s4.0")});
        output(top, "o", out(mult));
        gAsked.asIs = cost(one.luts1, one.multipliers1);
        gAsked.optimisedCost = cost(one.luts2, one.multipliers2);
        PassScheduler scheduler;
        scheduler.addPass("ConstMultPass", WithParam(&answer));
        scheduler.apply(fresh);
        EXPECT_EQ(isOptimised(mult), one.pays) << one.luts1 << " " << one.multipliers1 << " " << one.luts2;
    }
}

TEST_F(ConstMultTest, weighsByTheThresholdWhereOneIsSet) {
    const auto paysWith = [&](const char *own, const char *ofDesign) {
        Design fresh(mgr.context());
        Model &top = *Model::create(fresh, "top");
        if (own != nullptr) {
            top.setParam(A_SYNTH_DSP_HARDWARE_THRESHOLD, ValueRef(value(own)));
        }
        if (ofDesign != nullptr) {
            fresh.setParam(A_SYNTH_DSP_HARDWARE_THRESHOLD, ValueRef(value(ofDesign)));
        }
        Block &mult = product(top, "m", {&input(top, "a", "s8.0"), &constant(top, "c", "5", "s4.0")});
        output(top, "o", out(mult));
        PassScheduler scheduler;
        scheduler.addPass("ConstMultPass", WithParam(&answer));
        scheduler.apply(fresh);
        return isOptimised(mult);
    };
    gAsked.asIs = cost(0, 1);
    gAsked.optimisedCost = cost(100, 0);
    EXPECT_TRUE(paysWith(nullptr, nullptr));
    EXPECT_FALSE(paysWith("99", nullptr));
    EXPECT_TRUE(paysWith("100", nullptr));
    EXPECT_FALSE(paysWith("0", nullptr));
    EXPECT_TRUE(paysWith("-1", nullptr));
    EXPECT_FALSE(paysWith(nullptr, "99"));
    EXPECT_TRUE(paysWith("100", "99"));
}

TEST_F(ConstMultTest, marksWithoutAskingWhereLogicIsAskedFor) {
    const std::string lut(A_MULT_ARCH_CONST_LUT.text());
    gAsked.optimisedCost = cost(1000000, 100);
    Block &mult = times("s8.0", "5", "s4.0", 1, {{"multArchitecture", lut.c_str()}});
    run();
    EXPECT_TRUE(isOptimised(mult));
    EXPECT_EQ(gAsked.calls, 0);
}

TEST_F(ConstMultTest, asksForMultipliersByConstantsToo) {
    Block &made = block(model, "by", "constmultBlock", {{"constValue", "5"}});
    made.setParam(value("0"), input(model, "a", "s8.0"));
    output(model, "o", *Wire::create(made, A_PRIM_WIRE_OUT));
    run();
    EXPECT_EQ(gAsked.calls, 2);
    EXPECT_TRUE(isOptimised(made));
}

TEST_F(ConstMultTest, asksNothingOfWideOperandsAndOfProductsOfSignals) {
    times("s60.4", "5", "s4.0");
    const int calls = 2;
    run();
    EXPECT_EQ(gAsked.calls, calls);
    times("s61.4", "5", "s4.0");
    times("s8.0", "5", "s61.4");
    Wire &a = input(model, "x", "s8.0");
    output(model, "y", out(product(model, "xx", {&a, &a})));
    gAsked.calls = 0;
    run();
    EXPECT_EQ(gAsked.calls, 0);
}

TEST_F(ConstMultTest, asksNoMoreForWhatIsMarkedAlready) {
    times("s8.0", "5", "s4.0");
    run();
    gAsked.calls = 0;
    run();
    EXPECT_EQ(gAsked.calls, 0);
}

TEST_F(ConstMultTest, asksAtMostTwiceForEachConstantAndType) {
    for (int i = 0; i < 10000; ++i) {
        const std::string index = std::to_string(i);
        Wire &a = input(model, "a" + index, "s8.0");
        Block &mult =
            product(model, "m" + index, {&a, &constant(model, "c" + index, std::to_string(i % 100 + 1), "u8.0")});
        output(model, "o" + index, out(mult));
    }
    run(false);
    EXPECT_EQ(gAsked.calls, 200);
    EXPECT_EQ(gAsked.optimised.size(), 200U);
}

TEST_F(ConstMultTest, asksAgainForOtherTypesOptionsAndParameters) {
    times("s8.0", "5", "s4.0");
    times("s8.0", "5", "s4.0", 0);
    times("s9.0", "5", "s4.0");
    times("s8.0", "5", "s5.0");
    times("s8.0", "5", "s4.0", 1, {{"multLogic", "true"}});
    run();
    EXPECT_EQ(gAsked.calls, 8);
}

TEST_F(ConstMultTest, asksOnceForModelsOfEqualOptionsAndAgainForAnotherDevice) {
    for (const char *name : {"second", "third"}) {
        Model &other = *Model::create(design, name);
        output(other, "o", out(product(other, "m", {&input(other, "a", "s8.0"), &constant(other, "c", "5", "s4.0")})));
    }
    design.getModel(value("third"))->setParam(A_SYNTH_DEVICE_FAMILY, value("\"Quillon 2\""));
    times("s8.0", "5", "s4.0");
    run();
    EXPECT_EQ(gAsked.calls, 4);
}

TEST_F(ConstMultTest, asksTheGeneratorThatComesWithTheLibraryIfThereIsNoOther) {
    // One addition in place of a multiplier, and 31 of 32 bits and more in place of two.
    Block &cheap = times("s8.0", "5", "u4.0");
    Block &dear = times("s32.0", "0x5555555555555555p+0", "u63.0");
    dear.setParam(A_MULT_LOGIC, A_FALSE);
    model.setParam(A_SYNTH_DSP_HARDWARE_THRESHOLD, ValueRef(value("20")));
    run(true, false);
    EXPECT_TRUE(isOptimised(cheap));
    EXPECT_FALSE(isOptimised(dear));
    EXPECT_EQ(gAsked.calls, 0);
}

// What hangs on a block.

TEST_F(ConstMultTest, handsMetadataOn) {
    Block &mult = times(kSingle, "2", kSingle);
    const std::string name = mult.getName()->toString();
    mult.setParam(A_METADATA, value("((comment here))"));
    run();
    EXPECT_EQ(text(named("(" + name + " constMult)"), A_METADATA), "((comment here))");
}

TEST_F(ConstMultTest, movesLatencyConstraints) {
    Block &mult = times(kSingle, "2", kSingle);
    const std::string name = mult.getName()->toString();
    mult.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    mult.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    run();
    EXPECT_EQ(text(named("(" + name + " constMult)"), A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))");
    EXPECT_EQ(text(named("(" + name + " constMult)"), A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
}

TEST_F(ConstMultTest, movesBoundariesOfDomains) {
    Block &mult = times(kSingle, "2", kSingle);
    const std::string name = mult.getName()->toString();
    output(model, "p", out(product(model, "other", {&input(model, "x", "s4.0"), &input(model, "y", "s4.0")})));
    const auto ends = [](const std::string &at) {
        return " (" + std::string(A_SCHEDULE_DOMAIN_END.text()) + " d (" + at + " " + std::string(A_WIRE_TAG.text()) +
               " primWireOut))";
    };
    const std::string begin =
        "((" + std::string(A_SCHEDULE_DOMAIN_BEGIN.text()) + " d (other " + std::string(A_PORT_TAG.text()) + " 0))";
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS, Value::parse(begin + ends(name) + ")", mgr.context()));
    run();
    // What only the product read was in its domain, and stays there.
    EXPECT_EQ(text(&model, A_SYNTH_SCHEDULE_DOMAINS), begin + ends("(" + name + " constMult)") + ends("c0") + ")");
}

// Models that are used several times.

class ConstMultInstancesTest : public ConstMultTest {
  protected:
    Model &below = *Model::create(design, "below");
    void instantiate(const std::string &number, const std::string &constantType,
                     const std::vector<std::string> &types) {
        Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
        Wire &x = *Wire::create(in, value("x"));
        Block &mult = product(below, "mult", {&x, &constant(below, "c", number, constantType)});
        Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(mult));
        for (const std::string &type : types) {
            const std::string index = std::to_string(model.size());
            Block &instance = *Block::create(model, "i" + index, A_MODEL_BLOCK);
            instance.setParam(A_MODEL_NODE, below);
            instance.setParam(value("x"), input(model, "a" + index, type));
            output(model, "o" + index, *Wire::create(instance, value("y")));
        }
    }
    Block *mult() { return below.getBlock(value("mult")); }
};

TEST_F(ConstMultInstancesTest, shareARewriteWhereTheirTypesAgree) {
    instantiate("2", kSingle, {kSingle, kSingle});
    run();
    EXPECT_EQ(mult(), nullptr);
}

TEST_F(ConstMultInstancesTest, keepAFloatProductThatOneOfThemCannotChange) {
    instantiate("2", kSingle, {kSingle, kHalf});
    run();
    EXPECT_NE(mult(), nullptr);
}

TEST_F(ConstMultInstancesTest, keepAProductByZeroOfDifferentTypes) {
    instantiate("0", "s4.0", {"s4.0", "s8.0"});
    run();
    EXPECT_NE(mult(), nullptr);
}

TEST_F(ConstMultInstancesTest, loseAProductByZeroOfOneType) {
    instantiate("0", "s4.0", {"s4.0", "s4.0"});
    run();
    EXPECT_EQ(mult(), nullptr);
}

TEST_F(ConstMultInstancesTest, takeTheFormThatPaysInAllOfThem) {
    instantiate("5", "s4.0", {"s4.0", "s8.0"});
    run();
    ASSERT_NE(mult(), nullptr);
    EXPECT_EQ(gAsked.calls, 4);
    EXPECT_TRUE(isOptimised(*mult()));
}

TEST_F(ConstMultInstancesTest, keepAProductThatIsAFloatsInOneAlone) {
    instantiate("2", "s4.0", {"s4.0", kSingle});
    run(false);
    ASSERT_NE(mult(), nullptr);
    EXPECT_FALSE(isOptimised(*mult()));
}

// All inputs.

TEST_F(ConstMultTest, computesTheSameForAllProductsOfNarrowOperands) {
    for (const char *type : {"s4.0", "u4.0", "s2.2", "u3.1", "s4.-1"}) {
        for (const char *number : {"0", "0.1", "-1", "3", "-0.2"}) {
            for (const char *constantType : {"s3.0", "u3.0", "s1.2"}) {
                times(type, number, constantType, 0);
                times(type, number, constantType, 1);
            }
        }
    }
    run();
    EXPECT_GT(countOf(model, A_CONST_BLOCK), 0U);
}

TEST_F(ConstMultTest, computesTheSameForTinyFloats) {
    util::SetFeatureInteger(Features::ConstantMultConversionsLimit, 64);
    for (const char *number : {"0", "-0", "1", "-2", "0.3", "NaN", "Inf", "-Inf", "1000000", "0.001"}) {
        for (const char *type : {"float(3,3)", "float(2,4)"}) {
            times(type, number, type, 0);
            times(type, number, type, 1, {{"floatSubnormals", "true"}});
            times(type, number, type, 1, {{"floatRoundingMode", "roundingUp"}});
        }
    }
    run();
    EXPECT_EQ(countOf(model, A_MULT_BLOCK), 0U);
}

} // namespace
} // namespace orvo
