// Constants out of the range of their types: which are told of, and how.
#include "orvo/checkconstantspass.h"

#include "support/heardmessages.h"
#include "support/simulatorfixture.h"
#include "support/smallformats.h"
#include "support/typetable.h"

#include <orvo/pass.h>
#include <orvo/types.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class CheckConstantsTest : public test::SimulatorFixture {
  protected:
    ~CheckConstantsTest() override { util::ClearFeatures(); }
    /// A constant that asks to be checked, of a type in the short form; none for "".
    Block &constant(const std::string &name, const std::string &type, const std::string &of) {
        Block &made = block(model, name, "constBlock");
        made.setParam(A_CONST_VALUE, Value::parse(of, mgr.context()));
        made.setParam(A_CONST_WARN_SATURATION, A_TRUE);
        if (!type.empty()) {
            made.setParam(A_CONST_TYPE, ValueRef(value(testing::typeText(type))));
        }
        return made;
    }
    Lines run() {
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("CheckConstantsPass");
        scheduler.apply(design);
        return heard.take();
    }
    /// What is said of one constant "c".
    Lines saidOf(const std::string &type, const std::string &of) {
        Block &made = constant("c", type, of);
        const Lines lines = run();
        delete &made;
        return lines;
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
};

TEST_F(CheckConstantsTest, warnsOfARealScalar) {
    EXPECT_EQ(saidOf("s8.0", "128"), Lines{"CONST_SATURATION_REAL_SCALAR bitwidth=8 block=top/c required=9 value=128"});
    EXPECT_EQ(saidOf("s8.0", "-129"),
              Lines{"CONST_SATURATION_REAL_SCALAR bitwidth=8 block=top/c required=9 value=-129"});
    EXPECT_EQ(saidOf("s8.0", "127"), Lines{});
    EXPECT_EQ(saidOf("s8.0", "-128"), Lines{});
}

TEST_F(CheckConstantsTest, countsTheSignOfASignedType) {
    EXPECT_EQ(saidOf("s1.0", "-1"), Lines{});
    EXPECT_EQ(saidOf("s1.0", "0"), Lines{});
    EXPECT_EQ(saidOf("s1.0", "1"), Lines{"CONST_SATURATION_REAL_SCALAR bitwidth=1 block=top/c required=2 value=1"});
}

TEST_F(CheckConstantsTest, warnsOfNumbersBelowZeroInAnUnsignedType) {
    EXPECT_EQ(saidOf("u8.0", "-1"), Lines{"CONST_SATURATION_REAL_SCALAR bitwidth=8 block=top/c required=9 value=-1"});
    EXPECT_EQ(saidOf("u8.0", "-1000"),
              Lines{"CONST_SATURATION_REAL_SCALAR bitwidth=8 block=top/c required=11 value=-1000"});
}

TEST_F(CheckConstantsTest, roundsToTheFractionFirst) {
    EXPECT_EQ(saidOf("u4.0", "0xf.7"), Lines{});
    EXPECT_EQ(saidOf("u4.0", "0xf.8"),
              Lines{"CONST_SATURATION_REAL_SCALAR bitwidth=4 block=top/c required=5 value=1.55e+2"});
    EXPECT_EQ(saidOf("u0.4", "0x0.f8").size(), 1U);
    EXPECT_EQ(saidOf("u6.-2", "60"), Lines{});
    EXPECT_EQ(saidOf("u6.-2", "62").size(), 1U);
}

TEST_F(CheckConstantsTest, warnsOfEachPartOfAComplexScalar) {
    EXPECT_EQ(
        saidOf("c s4.0", "(complexRollTag 8 -9)"),
        (Lines{"CONST_SATURATION_COMPLEX_SCALAR bitwidth=4 block=top/c component=real required=5 value=8",
               "CONST_SATURATION_COMPLEX_SCALAR bitwidth=4 block=top/c component=imaginary required=5 value=-9"}));
    EXPECT_EQ(saidOf("c s4.0", "(8 0)").size(), 1U);
}

TEST_F(CheckConstantsTest, warnsOfEachElementOfARealVector) {
    EXPECT_EQ(saidOf("[3] s4.0", "(vectorRollTag 1 8 -20)"),
              (Lines{"CONST_SATURATION_REAL_VECTOR bitwidth=4 block=top/c index=1 required=5 value=8",
                     "CONST_SATURATION_REAL_VECTOR bitwidth=4 block=top/c index=2 required=6 value=-20"}));
    EXPECT_EQ(saidOf("[3] s4.0", "(1 8 2)").size(), 1U);
}

TEST_F(CheckConstantsTest, warnsOfEachPartOfAnElementOfAComplexVector) {
    EXPECT_EQ(
        saidOf("[2] c s4.0", "(vectorRollTag (complexRollTag 1 8) (complexRollTag -9 2))"),
        (Lines{"CONST_SATURATION_COMPLEX_VECTOR bitwidth=4 block=top/c component=imaginary index=0 required=5 value=8",
               "CONST_SATURATION_COMPLEX_VECTOR bitwidth=4 block=top/c component=real index=1 required=5 value=-9"}));
}

TEST_F(CheckConstantsTest, countsElementsFromTheOutermostDimensionOn) {
    EXPECT_EQ(saidOf("[2][3] s4.0", "(vectorRollTag (vectorRollTag 1 2 3) (vectorRollTag 4 5 8))"),
              Lines{"CONST_SATURATION_REAL_VECTOR bitwidth=4 block=top/c index=1,2 required=5 value=8"});
}

TEST_F(CheckConstantsTest, warnsOfAValueOfAnotherShape) {
    const auto mismatch = [](const std::string &actual, const std::string &expected) {
        return Lines{"CONST_SATURATION_TYPE_MISMATCH actual=" + actual + " block=top/c expected=" + expected};
    };
    EXPECT_EQ(saidOf("[2] s4.0", "1"), mismatch("scalar", "vector"));
    EXPECT_EQ(saidOf("[2] s4.0", "(complexRollTag 1 2)"), mismatch("complex number", "vector"));
    EXPECT_EQ(saidOf("[2] s4.0", "(vectorRollTag 1 2 3)"), mismatch("vector of 3", "vector of 2"));
    EXPECT_EQ(saidOf("[2] s4.0", "(vectorRollTag 1 (vectorRollTag 1 2))"), mismatch("vector", "scalar"));
    EXPECT_EQ(saidOf("[2] s4.0", "()"), mismatch("tuple", "vector"));
    EXPECT_EQ(saidOf("c s4.0", "1"), mismatch("scalar", "complex number"));
    EXPECT_EQ(saidOf("c s4.0", "(vectorRollTag 1 2)"), mismatch("vector", "complex number"));
    EXPECT_EQ(saidOf("c s4.0", "(1 2 3)"), mismatch("tuple", "complex number"));
    EXPECT_EQ(saidOf("s4.0", "(vectorRollTag 1 2)"), mismatch("vector", "scalar"));
    EXPECT_EQ(saidOf("s4.0", "(complexRollTag 1 2)"), mismatch("complex number", "scalar"));
    EXPECT_EQ(saidOf("s4.0", "word"), mismatch("text", "scalar"));
    EXPECT_EQ(saidOf("s4.0", "+nan"), mismatch("number that is not finite (+nan)", "finite number"));
    EXPECT_EQ(saidOf("s4.0", "-inf"), mismatch("number that is not finite (-inf)", "finite number"));
    EXPECT_EQ(saidOf("[2] s4.0", "-inf"), mismatch("scalar", "vector"));
}

TEST_F(CheckConstantsTest, warnsOfShapesBeforeRangesAndOnce) {
    EXPECT_EQ(saidOf("[3] s4.0", "(vectorRollTag 100 word word)"),
              Lines{"CONST_SATURATION_TYPE_MISMATCH actual=text block=top/c expected=scalar"});
}

TEST_F(CheckConstantsTest, warnsOfAValueWithoutAType) {
    EXPECT_EQ(saidOf("", "1"), Lines{"CONST_SATURATION_TYPE_NOT_SET block=top/c"});
    constant("d", "", "1").setParam(A_CONST_TYPE, ValueRef(value("word")));
    EXPECT_EQ(run(), Lines{"CONST_SATURATION_TYPE_NOT_SET block=top/d"});
}

TEST_F(CheckConstantsTest, looksAtFixedPointOnly) {
    EXPECT_EQ(saidOf("float(23,8)", "(1 2)"), Lines{});
    EXPECT_EQ(saidOf("{s8.0,u1.0}", "(1000 2)"), Lines{});
    EXPECT_EQ(saidOf("[2] {s8.0,u1.0}", "(1000 2)"), Lines{});
}

TEST_F(CheckConstantsTest, looksOnlyAtConstantsThatAskForIt) {
    constant("a", "s4.0", "100").setParam(A_CONST_WARN_SATURATION, A_FALSE);
    constant("b", "s4.0", "100").setParam(A_CONST_WARN_SATURATION, ValueRef());
    constant("e", "s4.0", "100").setParam(A_CONST_VALUE, ValueRef());
    constant("f", "s4.0", "100").setParam(A_BLOCK_TYPE, A_CONSTMULT_BLOCK);
    EXPECT_EQ(run(), Lines{});
}

TEST_F(CheckConstantsTest, takesMinusZeroForZero) { EXPECT_EQ(saidOf("u4.0", "-zero"), Lines{}); }

TEST_F(CheckConstantsTest, looksAtAllModelsThoseThatAreSwitchedOffToo) {
    model.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    constant("c", "s4.0", "100");
    EXPECT_EQ(run().size(), 1U);
}

TEST_F(CheckConstantsTest, changesNothing) {
    Block &made = constant("c", "s4.0", "100");
    run();
    EXPECT_EQ(made.getParam(A_CONST_VALUE)->toString(), "100");
    EXPECT_EQ(model.size(), 1U);
}

class PrintedNumbers : public CheckConstantsTest {
  protected:
    std::string shown(const std::string &of) {
        const Lines lines = saidOf("s1.0", of);
        return lines.empty() ? "" : lines.back().substr(lines.back().find("value="));
    }
};

TEST_F(PrintedNumbers, haveFourDecimalDigitsUnlessSetOtherwise) { EXPECT_EQ(shown("0x64.5555"), "value=1.003e+3"); }

TEST_F(PrintedNumbers, haveTheDigitsOfTheFeature) {
    util::SetFeatureInteger(Features::NumberValuePrintNumDigits, 6);
    EXPECT_EQ(shown("0x64.5555"), "value=1.00333e+3");
    util::SetFeatureInteger(Features::NumberValuePrintNumDigits, 0);
    EXPECT_EQ(shown("0x64.4"), "value=1.0025e+3");
}

TEST_F(PrintedNumbers, haveTheBaseOfTheFeature) {
    util::SetFeatureInteger(Features::NumberValuePrintBase, 16);
    EXPECT_EQ(shown("0x64.4"), "value=" + numberVR(value("0x64.4"))->toString(16, 4));
    util::SetFeatureInteger(Features::NumberValuePrintBase, 2);
    EXPECT_EQ(shown("0x64.4"), "value=" + numberVR(value("0x64.4"))->toString(2, 4));
    EXPECT_NE(shown("0x64.4"), "value=" + numberVR(value("0x64.4"))->toString(16, 4));
}

TEST_F(PrintedNumbers, takeTheDefaultForANegativeNumberOfDigitsWhichIsAnError) {
    util::SetFeatureInteger(Features::NumberValuePrintNumDigits, -3);
    EXPECT_EQ(saidOf("s1.0", "0x64.5555"),
              (Lines{"NUMBER_DIGITS_NEGATIVE digits=-3",
                     "CONST_SATURATION_REAL_SCALAR bitwidth=1 block=top/c required=8 value=1.003e+3"}));
}

TEST_F(PrintedNumbers, takeTheDefaultForABaseThatNumbersAreNotPrintedInWhichIsAnError) {
    util::SetFeatureInteger(Features::NumberValuePrintBase, 8);
    EXPECT_EQ(saidOf("s1.0", "0x64.5555"),
              (Lines{"NUMBER_BASE_UNKNOWN base=8",
                     "CONST_SATURATION_REAL_SCALAR bitwidth=1 block=top/c required=8 value=1.003e+3"}));
}

TEST(CalcRequiredBits, exceedsTheWidthWhereAConstantSaturates) {
    ContextMgr mgr;
    Context *context = mgr.context();
    for (const test::SmallFormat &format : test::smallFormats(6)) {
        const NumTypeSpec type = NumTypeSpec::fixed(format.isSigned, format.width - format.fraction, format.fraction);
        // In quarters of a step, so that halves and what is beside them are tried, too.
        std::vector<ValueRef> values{A_VECTOR_ROLL_TAG};
        std::vector<NumberValueRef> numbers;
        const auto fraction = static_cast<unsigned>(format.fraction + 4);
        for (int quarters = -600; quarters <= 600; ++quarters) {
            numbers.push_back(NumberValue::fromInt64(quarters * 4, fraction, context));
            values.emplace_back(numbers.back());
        }
        Design design(context);
        Model &top = *Model::create(design, "top");
        Block &made = *Block::create(top, "c", A_CONST_BLOCK);
        made.setParam(A_CONST_TYPE, Value::parse(format.text(), context));
        made.setParam(A_CONST_VALUE, ValueRef(TupleValue::get(values, context)));
        Block::create(top, "out", A_OUTPUT_BLOCK)
            ->setParam(StringValue::get("o", context), *Wire::create(made, A_PRIM_WIRE_OUT));
        sim::Simulator simulator(design, top);
        simulator.step();
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            const std::int64_t wanted = numbers[i]->toInt64(format.fraction);
            EXPECT_EQ(internal::calcRequiredBits(*numbers[i], type) > format.width,
                      simulator.outputInteger(i) != wanted)
                << format.text() << " " << numbers[i]->toString();
        }
    }
}

TEST(CalcRequiredBits, isTheLeastWidthOfTwosComplement) {
    ContextMgr mgr;
    const NumTypeSpec type = NumTypeSpec::sfixed(4, 0);
    for (int bits = 1; bits <= 12; ++bits) {
        const int least = -(1 << (bits - 1));
        const auto required = [&](int number) {
            return internal::calcRequiredBits(*NumberValue::get(number, mgr.context()), type);
        };
        EXPECT_EQ(required(least), bits);
        EXPECT_EQ(required(-least - 1), bits);
        EXPECT_EQ(required(least - 1), bits + 1);
        EXPECT_EQ(required(-least), bits + 1);
    }
    const NumTypeSpec plain = NumTypeSpec::ufixed(4, 0);
    for (const auto &[number, bits] :
         {std::pair<int, int>{0, 1}, {1, 1}, {2, 2}, {15, 4}, {16, 5}, {-1, 5}, {-16, 5}, {-17, 6}}) {
        EXPECT_EQ(internal::calcRequiredBits(*NumberValue::get(number, mgr.context()), plain), bits) << number;
    }
}

} // namespace
} // namespace orvo
