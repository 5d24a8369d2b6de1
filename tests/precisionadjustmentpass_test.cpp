// Precisions come to tell the fraction alone, and readers go on to read the type that was given.
#include "orvo/precisionadjustmentpass.h"

#include "support/exhaustive.h"
#include "support/onepass.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/typeinferpass.h>
#include <orvo/types.h>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class PrecisionAdjustmentTest : public test::SimulatorFixture {
  protected:
    static void run(Design &in) { test::runPass(in, "PrecisionAdjustmentPass"); }
    static void runAndCompare(Design &in, std::uint64_t cycles = 300) {
        test::runAndCompare(in, "PrecisionAdjustmentPass", cycles);
    }
    Model &multiplier(Design &in, const std::string &data, const char *constant, const std::string &precision) {
        return oneBlock(in, "constmultBlock", {{"0", data.c_str()}}, {{"primWireOut", ""}},
                        {{"constValue", constant}, {"outputPrecision", precision.c_str()}});
    }
    static std::string specified(const std::string &type) { return "(typeSpecified " + testing::typeText(type) + ")"; }
    static std::string fraction(const std::string &type) {
        return "(fractionSpecified " + testing::typeText(type) + ")";
    }
    std::string precision(const Block &block) {
        const ValueRef found = block.getParam(A_OUTPUT_PRECISION);
        return found ? found->toString() : "";
    }
    std::string outputType(Model &top) {
        GlobalTypePass types;
        const PureValueRef type = types.getType(*top.getOutputBlock()->port_begin(), {});
        return type ? type->toString() : "?";
    }
    Block &made(Model &top) { return *top.getBlock(value("block")); }
    bool hasCast(Model &model, const char *name = "(block castBack)") { return model.getBlock(value(name)) != nullptr; }

    Design design{mgr.context()};
};

TEST_F(PrecisionAdjustmentTest, tellsTheFractionAndCastsBackToTheType) {
    Model &top = multiplier(design, "s8.2", "5", specified("s6.1"));
    runAndCompare(design);
    EXPECT_EQ(precision(made(top)), fraction("s6.1"));
    const Block *cast = top.getBlock(value("(block castBack)"));
    ASSERT_NE(cast, nullptr);
    EXPECT_TRUE(cast->getParam(A_CAST_MODE) == A_CAST_MODE_CONVERT);
    EXPECT_TRUE(cast->getParam(A_CAST_ROUNDING_MODE) == A_ROUNDING_TRUNC);
    EXPECT_TRUE(cast->getParam(A_CAST_SATURATE_MODE) == A_SATURATE_NONE);
    EXPECT_EQ(cast->getParam(A_CAST_OUTPUT_TYPE)->toString(), testing::typeText("s6.1"));
    EXPECT_EQ(outputType(top), testing::typeText("s6.1"));
}

TEST_F(PrecisionAdjustmentTest, needsNoCastWhereTheTypeIsTheSame) {
    // 3 has two bits: the product is s10.2, and s11.1 with one bit of fraction.
    Model &top = multiplier(design, "s8.2", "3", specified("s11.1"));
    runAndCompare(design);
    EXPECT_EQ(precision(made(top)), fraction("s11.1"));
    EXPECT_FALSE(hasCast(top));
}

TEST_F(PrecisionAdjustmentTest, leavesAPrecisionThatIsNoTupleOrATooShortOne) {
    for (const char *written : {"typeSpecified", "7", "(typeSpecified)"}) {
        Design one(mgr.context());
        Model &top = multiplier(one, "s8.2", "3", written);
        run(one);
        EXPECT_EQ(precision(made(top)), written);
        EXPECT_FALSE(hasCast(top));
    }
}

TEST_F(PrecisionAdjustmentTest, keepsAFractionAndDropsWhatStandsBehind) {
    for (const std::string &tail : {std::string(")"), std::string(" more)"), std::string(" 1 2)")}) {
        Design one(mgr.context());
        const std::string type = testing::typeText("s6.1");
        Model &top = multiplier(one, "s8.2", "3", "(fractionSpecified " + type + tail);
        const std::string before = outputType(top);
        runAndCompare(one);
        EXPECT_EQ(precision(made(top)), fraction("s6.1"));
        EXPECT_EQ(outputType(top), before);
        EXPECT_FALSE(hasCast(top));
    }
}

TEST_F(PrecisionAdjustmentTest, dropsWhatStandsBehindAType) {
    Model &top = multiplier(design, "s8.2", "3", "(typeSpecified " + testing::typeText("s6.1") + " more)");
    runAndCompare(design);
    EXPECT_EQ(precision(made(top)), fraction("s6.1"));
    EXPECT_EQ(outputType(top), testing::typeText("s6.1"));
}

TEST_F(PrecisionAdjustmentTest, adjustsBlocksThatOnlyCarryThePrecision) {
    Model &top = oneBlock(design, "addBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}},
                          {{"outputPrecision", "(some thing else)"}});
    runAndCompare(design);
    EXPECT_EQ(precision(made(top)), "(fractionSpecified thing)");
    EXPECT_FALSE(hasCast(top));
}

// The product s10.2 with a fraction of 6 bits has 6 integer bits, and s8.6 shows 8.
TEST_F(PrecisionAdjustmentTest, leavesAPrecisionWhoseFractionWouldPushBitsOut) {
    for (const char *type : {"s8.6", "s10.3"}) {
        Design one(mgr.context());
        Model &top = multiplier(one, "s8.2", "3", specified(type));
        runAndCompare(one);
        EXPECT_EQ(precision(made(top)), specified(type));
        EXPECT_FALSE(hasCast(top));
    }
}

TEST_F(PrecisionAdjustmentTest, leavesPrecisionsThatTellNoFixedPointType) {
    for (const std::string &written : {specified("float(23,8)"), std::string("(typeSpecified nonsense)"),
                                       "(nonsense " + testing::typeText("s6.1") + ")"}) {
        Design one(mgr.context());
        Model &top = multiplier(one, "s8.2", "3", written);
        const std::string before = test::xmlOf(one);
        run(one);
        EXPECT_EQ(test::xmlOf(one), before) << written;
        EXPECT_EQ(precision(made(top)), written);
    }
}

TEST_F(PrecisionAdjustmentTest, adjustsMultipliersOfFloatsWhoseTypeIsTheInputs) {
    Model &top = multiplier(design, "float(23,8)", "3", specified("s6.1"));
    runAndCompare(design);
    EXPECT_EQ(precision(made(top)), fraction("s6.1"));
    EXPECT_FALSE(hasCast(top));
    EXPECT_EQ(outputType(top), testing::typeText("float(23,8)"));
}

TEST_F(PrecisionAdjustmentTest, takesVectorsAndComplexNumbersElementByElement) {
    for (const auto &[data, constant] : {std::pair<const char *, const char *>{"[3] s8.2", "3"},
                                         {"c s8.2", "3"},
                                         {"[2] c s8.2", "3"},
                                         {"s8.2", "(vectorRollTag 1 2 3)"}}) {
        SCOPED_TRACE(data);
        Design one(mgr.context());
        Model &top = multiplier(one, data, constant, specified("s6.1"));
        const std::string type = outputType(top);
        runAndCompare(one);
        EXPECT_EQ(precision(made(top)), fraction("s6.1"));
        EXPECT_TRUE(hasCast(top));
        EXPECT_EQ(outputType(top), type);
    }
}

TEST_F(PrecisionAdjustmentTest, castsNothingBehindABlockThatNobodyReadsOrThatReadsNothing) {
    Model &top = multiplier(design, "s8.2", "5", specified("s6.1"));
    delete top.getOutputBlock();
    run(design);
    EXPECT_EQ(precision(made(top)), fraction("s6.1"));
    EXPECT_FALSE(hasCast(top));
    Design open(mgr.context());
    Model &without = multiplier(open, "s8.2", "5", specified("s6.1"));
    made(without).setParam(value("0"), nullptr);
    run(open);
    EXPECT_EQ(precision(made(without)), fraction("s6.1"));
    EXPECT_FALSE(hasCast(without));
}

/// A multiplier in a model with several instances.
class PrecisionInstancesTest : public PrecisionAdjustmentTest {
  protected:
    PrecisionInstancesTest() {
        Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
        mult.setParam(value("0"), *Wire::create(in, "x"));
        output(below, "y", *Wire::create(mult, A_PRIM_WIRE_OUT));
    }
    void use(const std::string &name, const std::string &type) {
        Block &made = block(top, name, "modelBlock");
        made.setParam(A_MODEL_NODE, below);
        made.setParam(value("x"), input(top, "x" + name, type));
        output(top, "y" + name, *Wire::create(made, value("y")));
    }
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    Block &mult = block(below, "mult", "constmultBlock",
                        {{"constValue", "3"}, {"outputPrecision", "(typeSpecified (typeSFixed 6 1))"}});
};

TEST_F(PrecisionInstancesTest, castBackWhereOneOfThemNeedsIt) {
    use("a", "s8.2");
    use("b", "s3.2");
    use("c", "u5.3");
    runAndCompare(design);
    EXPECT_EQ(precision(mult), fraction("s6.1"));
    EXPECT_TRUE(hasCast(below, "(mult castBack)"));
}

TEST_F(PrecisionInstancesTest, keepAPrecisionThatWouldPushBitsOutOfOneOfThem) {
    use("a", "s8.2");
    use("b", "s6.-2");
    runAndCompare(design);
    EXPECT_EQ(precision(mult), specified("s6.1"));
}

TEST_F(PrecisionInstancesTest, keepAPrecisionOfLanesInOneOfThem) {
    use("a", "s8.2");
    use("b", "[2] s8.2");
    runAndCompare(design);
    EXPECT_EQ(precision(mult), specified("s6.1"));
}

// No one cast serves both.
TEST_F(PrecisionInstancesTest, keepAPrecisionOfFloatsAndFixedPointNumbers) {
    use("a", "s8.2");
    use("b", "float(23,8)");
    runAndCompare(design);
    EXPECT_EQ(precision(mult), specified("s6.1"));
}

TEST_F(PrecisionAdjustmentTest, givesWhatItGaveForAllSmallTypes) {
    std::uint64_t number = 0;
    std::size_t adjusted = 0;
    std::size_t kept = 0;
    std::vector<std::string> types;
    for (const char *sign : {"u", "s"}) {
        for (const int width : {1, 2, 3, 5}) {
            for (const int frac : {-1, 0, 2}) {
                types.push_back(sign + std::to_string(width - frac) + "." + std::to_string(frac));
            }
        }
    }
    for (const std::string &data : types) {
        for (const std::string &given : types) {
            const char *const constants[] = {"3", "-2", "0xcp-4"};
            const char *constant = constants[number % 3];
            if (number++ % testing::kExhaustiveStride != 0) {
                continue;
            }
            SCOPED_TRACE(data + " " + given + " " + constant);
            Design one(mgr.context());
            Model &top = multiplier(one, data, constant, specified(given));
            Design twin(mgr.context());
            Model &before = multiplier(twin, data, constant, specified(given));
            run(one);
            ++(precision(made(top)) == fraction(given) ? adjusted : kept);
            EXPECT_EQ(outputType(top), testing::typeText(given));
            sim::Simulator old(twin, before);
            sim::Simulator now(one, top);
            const NumTypeSpec spec(value(testing::typeText(data)), mgr.context());
            const std::int64_t low = spec.isSigned() ? -(std::int64_t{1} << (spec.fixedBits() - 1)) : 0;
            for (std::int64_t x = low; x < low + (std::int64_t{1} << spec.fixedBits()); ++x) {
                ASSERT_EQ(stepWith(now, {x}), stepWith(old, {x})) << x;
            }
        }
    }
    EXPECT_GT(adjusted, kept);
    EXPECT_GT(kept, 0U);
}

} // namespace
} // namespace orvo
