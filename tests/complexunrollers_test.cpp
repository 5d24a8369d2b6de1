// Which block types come apart, and what each makes of its complex signals.
#include "orvo/complexunrollers.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"

#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/nonsblocks.h>
#include <orvo/pass.h>
#include <orvo/typeinfer.h>

#include <set>

namespace orvo {
namespace {

TEST(ComplexUnrollers, speaksOfEveryTypeOfTheCatalogueOnce) {
    ContextMgr mgr;
    // Two variants for regions without scheduling share the text of their plain types.
    std::set<const StaticString *> rows;
    std::set<std::string> told;
    for (const internal::ComplexUnrollRow &row : internal::complexUnrollRows()) {
        EXPECT_TRUE(rows.insert(row.blockType).second) << row.blockType->text();
        told.insert(row.blockType->text());
        EXPECT_NE(std::string(row.summary), "") << row.blockType->text();
    }
    std::size_t types = 0;
    for (const auto &[name, info] : getBlocksInfo().blocks()) {
        if (name != BlocksInfo::kGenericBlock) {
            ++types;
            EXPECT_EQ(told.count(getBlocksInfo().get_mapping(name)), 1U) << name;
        }
    }
    EXPECT_EQ(rows.size(), types);
}

TEST(ComplexUnrollers, areRegisteredAsTheirRowsTell) {
    ContextMgr mgr;
    for (const internal::ComplexUnrollRow &row : internal::complexUnrollRows()) {
        const auto *handler = mgr.context()->getBlockClass(*row.blockType)->get<ComplexUnrollHandler>();
        EXPECT_EQ(handler, row.handler == nullptr ? nullptr : row.handler()) << row.blockType->text();
    }
}

TEST(ComplexUnrollValues, haveAZeroImaginaryPartIfTheyAreNumericAndReal) {
    ContextMgr mgr;
    const auto part = [&](const char *text, bool imaginary, bool isNumeric) {
        return internal::partOfValue(Value::parse(text, mgr.context()), imaginary, isNumeric)->toString();
    };
    EXPECT_EQ(part("5", false, true), "5");
    EXPECT_EQ(part("5", true, true), "0");
    EXPECT_EQ(part("5", true, false), "5");
    EXPECT_EQ(part("(complexRollTag 1 2)", false, false), "1");
    EXPECT_EQ(part("(complexRollTag 1 2)", true, false), "2");
    EXPECT_EQ(part("(typeComplex (typeSFixed 4 0))", true, true), "(typeSFixed 4 0)");
    EXPECT_EQ(part("(typeVector 2 (typeComplex (typeSFixed 4 0)))", true, false), "(typeVector 2 (typeSFixed 4 0))");
    EXPECT_EQ(part("(vectorRollTag (complexRollTag 1 2) 3)", false, true), "(vectorRollTag 1 3)");
    EXPECT_EQ(part("(vectorRollTag (complexRollTag 1 2) 3)", true, true), "(vectorRollTag 2 0)");
    EXPECT_EQ(part("(1 (complexRollTag 2 3))", true, true), "(0 3)");
    EXPECT_EQ(part("(1 (complexRollTag 2 3))", true, false), "(1 (complexRollTag 2 3))");
    EXPECT_EQ(part("word", true, true), "word");
}

TEST(ComplexUnrollValues, becomeZeroElementByElement) {
    ContextMgr mgr;
    const auto zero = [&](const char *text) {
        return internal::zeroValues(Value::parse(text, mgr.context()))->toString();
    };
    EXPECT_EQ(zero("-2.5"), "0");
    EXPECT_EQ(zero("(vectorRollTag 1 (2 word))"), "(vectorRollTag 0 (0 word))");
}

class ComplexUnrollersTest : public test::SimulatorFixture {
  protected:
    using Made = std::set<std::string>;
    /// Unrolls the block, which must compute the same, and gives the names of what is new in its place.
    Made madeOf(const std::string &type, const Texts &inputs, const Texts &outputs, const Texts &params = {},
                const char *ofModel = nullptr) {
        Design before(mgr.context());
        mAfter = std::make_unique<Design>(mgr.context());
        for (Design *design : {&before, mAfter.get()}) {
            mModel = &oneBlock(*design, type, inputs, outputs, params);
            if (ofModel != nullptr) {
                mModel->setParam(value(ofModel), A_TRUE);
            }
        }
        std::set<std::string> old;
        for (const Block &block : *mModel) {
            old.insert(block.getName()->toString());
        }
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.addPass("ElideUnpackPass");
        scheduler.apply(*mAfter);
        EXPECT_EQ(heard.take(), mExpected);
        EXPECT_TRUE(test::checkInvariants(*mAfter));
        sim::CompareOptions options;
        options.cycles = mCycles;
        test::expectSameBehaviour(before, *mAfter, mModel->getName()->toString(), options);
        Made made;
        for (const Block &block : *mModel) {
            const std::string name = block.getName()->toString();
            const bool joins = name.find("cpack") != std::string::npos || name.find("cunpack") != std::string::npos;
            if (old.count(name) == 0 && !joins && name.find("(block") != std::string::npos) {
                made.insert(name);
            }
        }
        return made;
    }
    std::size_t count(const StaticString &type) const {
        std::size_t found = 0;
        for (const Block &block : *mModel) {
            found += block.type() == type.get_ptr() ? 1 : 0;
        }
        return found;
    }
    const Block &made(const std::string &name) { return *mModel->getBlock(value(name)); }

    std::unique_ptr<Design> mAfter;
    Model *mModel = nullptr;
    std::size_t mCycles = 100;
    std::vector<std::string> mExpected;
};

const std::set<std::string> kParts{"(block real)", "(block imag)"};

TEST_F(ComplexUnrollersTest, givesEachPartABlock) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "c s4.0"}, {"1", "c s4.2"}}, {{"primWireOut", ""}}), kParts);
    EXPECT_EQ(madeOf("addBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}), Made{});
}

TEST_F(ComplexUnrollersTest, givesARealOperandAZeroImaginaryPart) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "c s4.0"}, {"1", "s6.2"}}, {{"primWireOut", ""}}),
              (Made{"(block real)", "(block imag)", "(block 1 imagZero)"}));
    const Block &zero = made("(block 1 imagZero)");
    EXPECT_EQ(zero.getParam(A_CONST_VALUE)->toString(), "0");
    EXPECT_EQ(zero.getParam(A_CONST_TYPE)->toString(), "(typeSFixed 6 2)");
}

TEST_F(ComplexUnrollersTest, multipliesByARealFactorWithTwoMultipliersAndNoAdder) {
    for (const char *first : {"c s3.1", "s3.1"}) {
        const char *second = std::string(first) == "s3.1" ? "c u2.1" : "u2.1";
        EXPECT_EQ(madeOf("multBlock", {{"0", first}, {"1", second}}, {{"primWireOut", ""}}),
                  (Made{"(block realMult1)", "(block imagMult1)"}));
        EXPECT_EQ(count(A_MULT_BLOCK), 2U);
        EXPECT_EQ(count(A_ADD_BLOCK) + count(A_SUB_BLOCK), 0U);
    }
}

const std::set<std::string> kFour{"(block realMult1)", "(block realMult2)", "(block imagMult1)",
                                  "(block imagMult2)", "(block realSub)",   "(block imagAdd)"};

TEST_F(ComplexUnrollersTest, multipliesWithFourMultipliers) {
    EXPECT_EQ(madeOf("multBlock", {{"0", "c s3.1"}, {"1", "c u2.1"}}, {{"primWireOut", ""}}), kFour);
    EXPECT_EQ(madeOf("monsterMultBlock", {{"0", "c s3.1"}, {"1", "c u2.1"}}, {{"primWireOut", ""}}), kFour);
    EXPECT_EQ(count(A_MONSTER_MULT_BLOCK), 4U);
}

TEST_F(ComplexUnrollersTest, multipliesExactlyBeforeBitsAreCut) {
    EXPECT_EQ(madeOf("multBlock", {{"0", "c s3.2"}, {"1", "c s2.2"}}, {{"primWireOut", ""}},
                     {{"multType", "(typeSFixed 3 1)"}}),
              kFour);
    EXPECT_EQ(madeOf("multBlock", {{"0", "c u2.1"}, {"1", "c u2.1"}}, {{"primWireOut", ""}},
                     {{"multType", "(typeUFixed 5 0)"}, {"complexKaratsuba", "true"}})
                  .size(),
              10U);
}

TEST_F(ComplexUnrollersTest, multipliesAllSmallNumbersRightly) {
    mCycles = 20000;
    for (const char *type : {"c s2.1", "c u2.0", "c s3.0"}) {
        for (const char *karatsuba : {"false", "true"}) {
            madeOf("multBlock", {{"0", type}, {"1", "c s3.0"}}, {{"primWireOut", ""}},
                   {{"complexKaratsuba", karatsuba}});
            EXPECT_EQ(count(A_MULT_BLOCK), std::string(karatsuba) == "true" ? 3U : 4U);
        }
    }
}

TEST_F(ComplexUnrollersTest, multipliesWithThreeMultipliersIfAsked) {
    const Made three{"(block add0)",  "(block prod0)",   "(block sub0)",    "(block prod1)",     "(block add1)",
                     "(block prod2)", "(block subReal)", "(block addImag)", "(block truncReal)", "(block truncImag)"};
    const Texts in{{"0", "c s3.1"}, {"1", "c u2.1"}};
    EXPECT_EQ(madeOf("multBlock", in, {{"primWireOut", ""}}, {{"complexKaratsuba", "true"}}), three);
    EXPECT_EQ(count(A_MULT_BLOCK), 3U);
    EXPECT_EQ(count(A_CAST_BLOCK), 2U);
    EXPECT_EQ(made("(block truncReal)").getParam(A_CAST_ROUNDING_MODE), A_ROUNDING_TRUNC);
    EXPECT_EQ(made("(block truncReal)").getParam(A_CAST_SATURATE_MODE), A_SATURATE_NONE);
    EXPECT_EQ(madeOf("multBlock", in, {{"primWireOut", ""}}, {}, "synthComplexMultKaratsuba"), three);
    EXPECT_EQ(
        madeOf("multBlock", {{"0", "s3.1"}, {"1", "c u2.1"}}, {{"primWireOut", ""}}, {{"complexKaratsuba", "true"}}),
        (Made{"(block realMult1)", "(block imagMult1)"}));
}

TEST_F(ComplexUnrollersTest, multipliesFloatsWithFourMultipliersEvenIfThreeAreAskedFor) {
    EXPECT_EQ(madeOf("multBlock", {{"0", "c float(10,5)"}, {"1", "c float(10,5)"}}, {{"primWireOut", ""}},
                     {{"complexKaratsuba", "true"}, {"floatRoundingMode", "roundingUp"}}),
              kFour);
    EXPECT_EQ(count(A_MULT_BLOCK), 4U);
}

TEST_F(ComplexUnrollersTest, multipliesAnyNumberOfFactors) {
    EXPECT_EQ(madeOf("multBlock", {{"0", "c s3.1"}}, {{"primWireOut", ""}}), kParts);
    madeOf("multBlock", {{"0", "c s3.1"}, {"1", "s2.1"}, {"2", "c u2.0"}}, {{"primWireOut", ""}});
    EXPECT_EQ(count(A_MULT_BLOCK), 6U);
    madeOf("multBlock", {{"0", "c float(10,5)"}, {"1", "c float(10,5)"}, {"2", "c float(10,5)"}},
           {{"primWireOut", ""}});
    EXPECT_EQ(count(A_MULT_BLOCK), 8U);
}

TEST_F(ComplexUnrollersTest, multipliesByThePartsOfAConstant) {
    EXPECT_EQ(
        madeOf("constmultBlock", {{"0", "c s4.1"}}, {{"primWireOut", ""}}, {{"constValue", "(complexRollTag 0.5 -9)"}}),
        kFour);
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "c s4.1"}}, {{"primWireOut", ""}},
                     {{"constValue", "(complexRollTag 0 3)"}, {"outputPrecision", "(typeSpecified (typeSFixed 5 0))"}}),
              kFour);
    const Made two{"(block realMult1)", "(block imagMult1)"};
    EXPECT_EQ(
        madeOf("constmultBlock", {{"0", "u4.1"}}, {{"primWireOut", ""}}, {{"constValue", "(complexRollTag 1 -9)"}}),
        two);
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "c u4.1"}}, {{"primWireOut", ""}}, {{"constValue", "-3"}}), two);
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "c float(10,5)"}}, {{"primWireOut", ""}},
                     {{"constValue", "(complexRollTag 0.1 -3)"}}),
              kFour);
    EXPECT_EQ(made("(block realMult1)").getParam(A_FLOAT_ROUNDING), A_CORRECT_ROUNDING);
}

TEST_F(ComplexUnrollersTest, conjugatesByANegationAndAWire) {
    EXPECT_EQ(madeOf("complexConjugateBlock", {{"0", "c float(10,5)"}}, {{"primWireOut", ""}}),
              (Made{"(block imagNeg)"}));
    // The type of both parts is wider than that of the wire.
    EXPECT_EQ(madeOf("complexConjugateBlock", {{"0", "c s4.0"}}, {{"primWireOut", ""}}),
              (Made{"(block imagNeg)", "(block realCast)"}));
}

TEST_F(ComplexUnrollersTest, comparesBothParts) {
    EXPECT_EQ(madeOf("cmpEqBlock", {{"0", "c s1.0"}, {"1", "c s1.0"}}, {{"primWireOut", ""}}),
              (Made{"(block real)", "(block imag)", "(block and)"}));
    EXPECT_EQ(madeOf("cmpNeBlock", {{"0", "c s1.0"}, {"1", "s1.0"}}, {{"primWireOut", ""}}),
              (Made{"(block real)", "(block imag)", "(block 1 imagZero)", "(block or)"}));
}

} // namespace
} // namespace orvo
