// Which block types come apart, and what each makes of its complex signals.
#include "orvo/complexunrollers.h"

#include "orvo/boundarycomplexunroller.h"
#include "orvo/multiplycomplexunroller.h"

#include "support/cataloguefindings.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"

#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/nonsblocks.h>
#include <orvo/pass.h>
#include <orvo/typeinfer.h>
#include <orvo/typeinferpass.h>

#include <rapidcheck/gtest.h>

#include <set>
#include <string>
#include <vector>

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

TEST(ComplexUnrollers, areThoseOfBoundariesWherePortsHaveNames) {
    ContextMgr mgr;
    for (const StaticString *type :
         {&A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK, &A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_UNSCHED_BLOCK,
          &A_BOUNDARY_BLOCK, &A_HIDDEN_IFACE_BLOCK, &A_EXT_IFACE_BLOCK, &A_CIC_BLOCK, &A_FIR_BLOCK, &A_MIXER_BLOCK}) {
        const auto *handler = mgr.context()->getBlockClass(*type)->get<ComplexUnrollHandler>();
        EXPECT_NE(dynamic_cast<const BoundaryComplexUnrollHandler *>(handler), nullptr) << type->text();
    }
    Design design(mgr.context());
    Block &marks = *Block::create(*Model::create(design, "top"), "marks");
    const auto unroller = BoundaryComplexUnrollHandler().createUnroller(marks);
    EXPECT_NE(dynamic_cast<BoundaryComplexUnroller *>(unroller.get()), nullptr);
    EXPECT_EQ(unroller->getSuffix(), "cunroll");
    EXPECT_TRUE(unroller->takesVectors());
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
        EXPECT_EQ(test::newCatalogueFindings(before, *mAfter), std::vector<std::string>{});
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

const std::string kRefused = "UNCOMPLEX_INVALID_EXPAND_TYPE block=/top/block detail=";
const std::set<std::string> kParts{"(block real)", "(block imag)"};

TEST_F(ComplexUnrollersTest, givesEachPartABlock) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "c s4.0"}, {"1", "c s4.2"}}, {{"primWireOut", ""}}), kParts);
    EXPECT_EQ(madeOf("addBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}), Made{});
}

TEST_F(ComplexUnrollersTest, keepsThePortsOfAPipeOnOneBlock) {
    EXPECT_EQ(madeOf("pipeBlock", {{"0", "c s4.0"}, {"x", "c u2.0"}, {"y", "s3.0"}},
                     {{"primWireOut", ""}, {"0", ""}, {"x", ""}, {"y", ""}}),
              Made{});
    EXPECT_EQ(madeOf("pipeBlock", {{"0", "s3.0"}, {"x", "c u2.0"}}, {{"primWireOut", ""}, {"x", ""}}), Made{});
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
    // The product has as many bits as both factors together, in which it wraps.
    const auto wrapped = [](std::int64_t value) { return ((value + 32) & 63) - 32; };
    const Texts in{{"0", "c s3.0"}, {"1", "c s3.0"}};
    for (const char *karatsuba : {"false", "true"}) {
        madeOf("multBlock", in, {{"primWireOut", ""}}, {{"complexKaratsuba", karatsuba}});
        EXPECT_EQ(count(A_MULT_BLOCK), std::string(karatsuba) == "true" ? 3U : 4U);
        sim::Simulator simulator(*mAfter, *mModel);
        for (int bits = 0; bits < 4096; ++bits) {
            const auto number = [bits](int at) { return (bits >> (3 * at) & 7) - 4; };
            const std::int64_t a = number(0);
            const std::int64_t b = number(1);
            const std::int64_t c = number(2);
            const std::int64_t d = number(3);
            const auto out = stepByName(simulator, {{"0.re", a}, {"0.im", b}, {"1.re", c}, {"1.im", d}});
            ASSERT_EQ(out.at("primWireOut.re"), wrapped(a * c - b * d)) << a << " " << b << " " << c << " " << d;
            ASSERT_EQ(out.at("primWireOut.im"), wrapped(a * d + b * c)) << a << " " << b << " " << c << " " << d;
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
    for (const char *cast : {"(block truncReal)", "(block truncImag)"}) {
        EXPECT_EQ(made(cast).getParam(A_CAST_MODE), A_CAST_MODE_CONVERT) << cast;
        EXPECT_EQ(made(cast).getParam(A_CAST_OUTPUT_TYPE)->toString(), "(typeSFixed 5 2)") << cast;
        EXPECT_EQ(made(cast).getParam(A_CAST_ROUNDING_MODE), A_ROUNDING_TRUNC) << cast;
        EXPECT_EQ(made(cast).getParam(A_CAST_SATURATE_MODE), A_SATURATE_NONE) << cast;
    }
    EXPECT_EQ(madeOf("multBlock", in, {{"primWireOut", ""}}, {}, "synthComplexMultKaratsuba"), three);
    for (const Texts &oneReal : {Texts{{"0", "s3.1"}, {"1", "c u2.1"}}, Texts{{"0", "c s3.1"}, {"1", "u2.1"}}}) {
        EXPECT_EQ(madeOf("multBlock", oneReal, {{"primWireOut", ""}}, {{"complexKaratsuba", "true"}}),
                  (Made{"(block realMult1)", "(block imagMult1)"}))
            << oneReal[0].second;
    }
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

/// The type of a factor in the short form, of at most six bits.
std::string factorType(bool isComplex) {
    const int whole = *rc::gen::inRange(1, 4);
    const int fraction = *rc::gen::inRange(0, 3);
    return std::string(isComplex ? "c " : "") + (*rc::gen::arbitrary<bool>() ? "s" : "u") + std::to_string(whole) +
           "." + std::to_string(fraction);
}

/// Two factors and more, at least one of them complex, in any order, in the type of the product or in a given one.
RC_GTEST_FIXTURE_PROP(ComplexUnrollersTest, multipliesWhicheverFactorsAreComplex, ()) {
    const int factors = *rc::gen::inRange(2, 6);
    const int sure = *rc::gen::inRange(0, factors);
    std::vector<std::string> texts;
    for (int i = 0; i < factors; ++i) {
        const bool isComplex = i == sure || *rc::gen::arbitrary<bool>();
        texts.push_back(std::to_string(i));
        texts.push_back(factorType(isComplex));
    }
    Texts inputs;
    for (std::size_t i = 0; i < texts.size(); i += 2) {
        inputs.emplace_back(texts[i].c_str(), texts[i + 1].c_str());
    }
    const bool isMonster = *rc::gen::arbitrary<bool>();
    const bool isKaratsuba = *rc::gen::arbitrary<bool>();
    Texts params;
    if (isKaratsuba) {
        params.emplace_back("complexKaratsuba", "true");
    }
    // Fewer bits above and below than the exact product has.
    const std::string given =
        "(typeSFixed " + std::to_string(*rc::gen::inRange(2, 6)) + " " + std::to_string(*rc::gen::inRange(0, 4)) + ")";
    const bool isGiven = !isMonster && *rc::gen::arbitrary<bool>();
    if (isGiven) {
        params.emplace_back("multType", given.c_str());
    }
    RC_LOG() << given << isGiven << isMonster << isKaratsuba;
    for (const std::string &text : texts) {
        RC_LOG() << " " << text;
    }
    Design before(mgr.context());
    Design after(mgr.context());
    const char *type = isMonster ? "monsterMultBlock" : "multBlock";
    oneBlock(before, type, inputs, {{"primWireOut", ""}}, params);
    mModel = &oneBlock(after, type, inputs, {{"primWireOut", ""}}, params);
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("UnrollComplexPass");
    scheduler.apply(after);
    RC_ASSERT(heard.take() == std::vector<std::string>{});
    RC_ASSERT(mModel->getBlock(value("block")) == nullptr);
    RC_ASSERT(test::newCatalogueFindings(before, after) == std::vector<std::string>{});
    const auto same = test::sameBehaviour(before, after, mModel->getName()->toString());
    if (!same) {
        RC_LOG() << same.message();
    }
    RC_ASSERT(static_cast<bool>(same));
    // Two real factors need one, a real one and a complex one two, and two complex ones four or three.
    std::size_t multipliers = 0;
    bool isComplex = false;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const bool isNext = inputs[i].second[0] == 'c';
        if (i > 0) {
            const bool areThree = isKaratsuba && inputs.size() == 2;
            multipliers += isComplex && isNext ? (areThree ? 3 : 4) : isComplex || isNext ? 2 : 1;
        }
        isComplex = isComplex || isNext;
    }
    RC_ASSERT(count(A_MULT_BLOCK) + count(A_MONSTER_MULT_BLOCK) == multipliers);
}

class FactorUnroller final : public MultiplyComplexUnroller {
  public:
    using MultiplyComplexUnroller::factor;
    using MultiplyComplexUnroller::MultiplyComplexUnroller;
};

TEST_F(ComplexUnrollersTest, endWithAFactorThatAProductDoesNotHave) {
    Design design(mgr.context());
    Model &model = oneBlock(design, "multBlock", {{"0", "c s4.0"}, {"1", "c s4.0"}}, {{"primWireOut", ""}});
    Block &product = *model.getBlock(value("block"));
    Port &first = *product.getPort(value("0"));
    Port &second = *product.getPort(value("1"));
    const ComplexDecorSpec decor(value("(typeComplex (typeSFixed 4 0))"), mgr.context());
    FactorUnroller unroller(product);
    unroller.originalPort(first, decor);
    unroller.factor(0);
    EXPECT_DEATH(unroller.factor(1), "a product has no factor of this number");
    EXPECT_DEATH(unroller.attachPort(second, decor, false, *second.peekWire()), "a product has no factor at this port");
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

TEST_F(ComplexUnrollersTest, leavesRealProductsOfASpecifiedComplexTypeReal) {
    const Texts params{{"constValue", "3"}, {"outputPrecision", "(typeSpecified (typeComplex (typeSFixed 3 9)))"}};
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "s3.1"}}, {{"primWireOut", ""}}, params), Made{});
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "c s3.1"}}, {{"primWireOut", ""}}, params),
              (Made{"(block realMult1)", "(block imagMult1)"}));
    EXPECT_EQ(made("(block imagMult1)").getParam(A_OUTPUT_PRECISION)->toString(), "(typeSpecified (typeSFixed 3 9))");
}

TEST_F(ComplexUnrollersTest, writesTypesOfConstantProductsOnlyWhereTheyDifferFromTheirOwn) {
    const auto precision = [&](const char *operand, const char *constant) -> std::string {
        madeOf("constmultBlock", {{"0", operand}}, {{"primWireOut", ""}}, {{"constValue", constant}});
        const ValueRef written = made("(block imagMult1)").getParam(A_OUTPUT_PRECISION);
        return written ? written->toString() : "";
    };
    EXPECT_EQ(precision("c u4.1", "-3"), "");
    EXPECT_EQ(precision("[2] c s4.1", "(vectorRollTag 1 9)"), "");
    EXPECT_EQ(precision("c float(10,5)", "3"), "");
    EXPECT_EQ(precision("u4.1", "(complexRollTag 1 -9)"), "(typeSpecified (typeSFixed 9 1))");
}

TEST_F(ComplexUnrollersTest, handsHintsToBlocksThatKnowThemOnly) {
    const Texts all{{"floatRounding", "faithfulRounding"},
                    {"floatRoundingMode", "roundingUp"},
                    {"floatSubnormals", "true"},
                    {"synthForceSoftFp", "true"},
                    {"fusedDatapath", "1"},
                    {"fpcNormThreshold", "2"}};
    const auto with = [&](Texts more) {
        more.insert(more.end(), all.begin(), all.end());
        return more;
    };
    const auto hint = [&](const char *name, const StaticString &key) -> std::string {
        const ValueRef value = made(name).getParam(key);
        return value ? value->toString() : "";
    };
    using Keys = std::vector<const StaticString *>;
    const auto expectHints = [&](const std::vector<const char *> &names, const Keys &keys, const char *text) {
        for (const char *name : names) {
            for (const StaticString *key : keys) {
                EXPECT_EQ(hint(name, *key), text) << name << " " << key->text();
            }
        }
    };
    const Texts out{{"primWireOut", ""}};
    const Texts ofMultipliers{{"multLogic", "multLogicDsp"}, {"multOptimizeConstBeforeTiling", "true"}};
    const Texts two{{"0", "c s3.1"}, {"1", "c u2.1"}};
    const std::vector<const char *> multipliers[] = {
        {"(block realMult1)", "(block realMult2)", "(block imagMult1)", "(block imagMult2)"},
        {"(block prod0)", "(block prod1)", "(block prod2)"}};
    for (const char *karatsuba : {"false", "true"}) {
        Texts params = with(ofMultipliers);
        params.emplace_back("complexKaratsuba", karatsuba);
        madeOf("multBlock", two, out, params);
        const auto &made = multipliers[std::string(karatsuba) == "true" ? 1 : 0];
        expectHints(made, {&A_MULT_LOGIC}, "multLogicDsp");
        expectHints(made, {&A_FLOAT_ROUNDING}, "faithfulRounding");
        expectHints(made, {&A_SYNTH_FORCE_SOFT_FP}, "true");
    }
    EXPECT_EQ(hint("(block prod0)", A_FUSED_DATAPATH), "1");
    EXPECT_EQ(hint("(block add0)", A_FUSED_DATAPATH), "1");
    EXPECT_EQ(hint("(block add0)", A_MULT_OPTIMIZE_CONST_BEFORE_TILING), "");
    EXPECT_EQ(hint("(block truncReal)", A_FUSED_DATAPATH), "");
    EXPECT_EQ(hint("(block truncReal)", A_SYNTH_FORCE_SOFT_FP), "true");
    Texts ofConstant = with(ofMultipliers);
    ofConstant.emplace_back("constValue", "(complexRollTag 0.5 -9)");
    madeOf("constmultBlock", {{"0", "c s4.1"}}, out, ofConstant);
    EXPECT_EQ(hint("(block realMult1)", A_MULT_OPTIMIZE_CONST_BEFORE_TILING), "true");
    expectHints(multipliers[0], {&A_FLOAT_ROUNDING}, "faithfulRounding");
    expectHints(multipliers[0], {&A_SYNTH_FORCE_SOFT_FP}, "true");
    EXPECT_EQ(hint("(block realSub)", A_MULT_OPTIMIZE_CONST_BEFORE_TILING), "");
    EXPECT_EQ(hint("(block realSub)", A_SYNTH_FORCE_SOFT_FP), "true");
    const Texts ofSums = with({{"hintMinLatency", "true"}});
    madeOf("scalarProductBlock", {{"0", "[2] s2.1"}, {"1", "[2] s2.0"}, {"2", "[2] c s2.0"}, {"3", "[2] s2.0"}}, out,
           ofSums);
    EXPECT_EQ(hint("(block dotRR)", A_HINT_MIN_LATENCY), "true");
    EXPECT_EQ(count(A_CONST_BLOCK), 1U);
    const auto expectHintsOfSums = [&](const std::vector<const char *> &sums) {
        expectHints(sums, {&A_FUSED_DATAPATH}, "1");
        expectHints(sums, {&A_FLOAT_ROUNDING}, "faithfulRounding");
        expectHints(sums, {&A_FPC_NORM_THRESHOLD}, "2");
        expectHints(sums, {&A_SYNTH_FORCE_SOFT_FP}, "true");
    };
    madeOf("scalarProductBlock", two, out, all);
    expectHintsOfSums({"(block dotRR)", "(block dotII)", "(block dotRI)", "(block dotIR)"});
    const char *number = "c float(10,5)";
    madeOf("scalarProductBlock", {{"0", number}, {"1", number}}, out, {{"fusedDatapath", "1"}});
    EXPECT_EQ(hint("((block dotReal) neg 1)", A_FUSED_DATAPATH), "");
    madeOf("scalarProductBlock", {{"0", number}, {"1", number}}, out,
           {{"fusedDatapath", "1"},
            {"floatRounding", "faithfulRounding"},
            {"fpcNormThreshold", "2"},
            {"synthForceSoftFp", "true"}});
    expectHintsOfSums({"(block dotReal)", "(block dotImag)"});
    madeOf("scalarProductBlock", {{"0", "float(10,5)"}, {"1", "float(10,5)"}, {"scalarProductPortChainin", number}},
           out, with({{"subtractiveChainin", "true"}}));
    EXPECT_EQ(hint("(block dotImag)", A_FUSED_DATAPATH), "");
    madeOf("complexConjugateBlock", {{"0", number}}, out, all);
}

TEST_F(ComplexUnrollersTest, givesSumsOfProductsTheTypeOfTheProductAndItsWord) {
    const auto text = [&](const char *name, const StaticString &key) -> std::string {
        const ValueRef value = made(name).getParam(key);
        return value ? value->toString() : "";
    };
    const Texts in{{"0", "c s3.1"}, {"1", "c u2.1"}};
    const Texts out{{"primWireOut", ""}};
    const std::pair<Texts, std::pair<const char *, const char *>> cases[] = {
        {{}, {"false", ""}},
        {{{"addNoGrowth", "true"}}, {"true", "true"}},
        {{{"addNoGrowth", "false"}}, {"false", "false"}}};
    for (const auto &[params, words] : cases) {
        EXPECT_EQ(madeOf("multBlock", in, out, params), kFour);
        for (const char *sum : {"(block realSub)", "(block imagAdd)"}) {
            EXPECT_EQ(text(sum, A_ADD_TYPE), "(typeSFixed 5 2)") << sum;
            EXPECT_EQ(text(sum, A_ADD_NO_GROWTH), words.first) << sum;
        }
        for (const char *product :
             {"(block realMult1)", "(block realMult2)", "(block imagMult1)", "(block imagMult2)"}) {
            EXPECT_EQ(text(product, A_ADD_NO_GROWTH), words.second) << product;
        }
    }
    EXPECT_EQ(madeOf("multBlock", in, out, {{"multType", "(typeSFixed 3 1)"}}), kFour);
    EXPECT_EQ(text("(block realSub)", A_ADD_TYPE), "(typeSFixed 3 1)");
}

class ComplexUnrollerMarksTest : public ComplexUnrollersTest {
  protected:
    using Marks = std::set<std::string>;
    /// Marks the block's output, and tells which wires are marked after the pass.
    Marks marksOf(const std::string &type, const Texts &inputs, const Texts &params = {}) {
        Design design(mgr.context());
        Model &model = oneBlock(design, type, inputs, {{"primWireOut", ""}}, params);
        model.getBlock(value("block"))->getWire(A_PRIM_WIRE_OUT)->setParam(value("mark"), value("a"));
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(design);
        Marks marks;
        for (const Block &made : model) {
            for (const Wire &wire : made) {
                if (wire.getParam(value("mark"))) {
                    marks.insert(made.getName()->toString());
                }
            }
        }
        return marks;
    }
};

TEST_F(ComplexUnrollerMarksTest, stayWithTheParts) {
    const Texts two{{"0", "c s3.1"}, {"1", "c s2.0"}};
    const Marks sums{"(block realSub)", "(block imagAdd)"};
    const Marks products{"(block realMult1)", "(block imagMult1)"};
    EXPECT_EQ(marksOf("addBlock", two), kParts);
    EXPECT_EQ(marksOf("multBlock", two), sums);
    EXPECT_EQ(marksOf("multBlock", two, {{"complexKaratsuba", "true"}}),
              (Marks{"(block truncReal)", "(block truncImag)"}));
    EXPECT_EQ(marksOf("multBlock", {{"0", "c s3.1"}, {"1", "s2.0"}}), products);
    EXPECT_EQ(marksOf("constmultBlock", {{"0", "c s3.1"}}, {{"constValue", "3"}}), products);
    EXPECT_EQ(marksOf("constmultBlock", {{"0", "c s3.1"}}, {{"constValue", "(complexRollTag 1 2)"}}), sums);
    EXPECT_EQ(marksOf("scalarProductBlock", two), sums);
    EXPECT_EQ(marksOf("scalarProductBlock", {{"0", "c s3.1"}, {"1", "s2.0"}}),
              (Marks{"(block dotRR)", "(block dotIR)"}));
    EXPECT_EQ(marksOf("scalarProductBlock", {{"0", "c float(10,5)"}, {"1", "float(10,5)"}}),
              (Marks{"(block dotReal)", "(block dotImag)"}));
}

TEST_F(ComplexUnrollerMarksTest, stayWithThePartsOfAConjugateButNotOnAWireFromElsewhere) {
    EXPECT_EQ(marksOf("complexConjugateBlock", {{"0", "c s3.1"}}), (Marks{"(block realCast)", "(block imagNeg)"}));
    EXPECT_EQ(marksOf("complexConjugateBlock", {{"0", "c float(10,5)"}}), Marks{"(block imagNeg)"});
}

TEST_F(ComplexUnrollerMarksTest, goToTheWholeResultOfAComparison) {
    const Texts two{{"0", "c s3.1"}, {"1", "c s3.1"}};
    EXPECT_EQ(marksOf("cmpEqBlock", two), Marks{"(block and)"});
    EXPECT_EQ(marksOf("cmpNeNONSBlock", two), Marks{"(block or)"});
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

TEST_F(ComplexUnrollersTest, combinesComparisonsInTheKindOfLogicOfTheirRegion) {
    const Texts in{{"0", "c s1.0"}, {"1", "c s1.0"}};
    const struct {
        const char *type;
        const char *made;
        const StaticString &logic;
    } cases[] = {{"cmpEqBlock", "(block and)", A_AND_BLOCK},
                 {"cmpNeBlock", "(block or)", A_OR_BLOCK},
                 {"cmpEqNONSBlock", "(block and)", U_AND_BLOCK},
                 {"cmpNeNONSBlock", "(block or)", U_OR_BLOCK}};
    for (const auto &of : cases) {
        EXPECT_EQ(madeOf(of.type, in, {{"primWireOut", ""}}), (Made{"(block real)", "(block imag)", of.made}))
            << of.type;
        EXPECT_EQ(made(of.made).type(), of.logic.get_ptr()) << of.type;
    }
}

TEST_F(ComplexUnrollersTest, addsScalarProductsOfParts) {
    const Made general{"(block dotRR)", "(block dotII)",   "(block dotRI)",
                       "(block dotIR)", "(block realSub)", "(block imagAdd)"};
    const Texts two{{"0", "c s3.1"}, {"1", "c u2.0"}, {"2", "c u2.1"}, {"3", "c s2.0"}};
    EXPECT_EQ(madeOf("scalarProductBlock", two, {{"primWireOut", ""}}), general);
    EXPECT_EQ(madeOf("scalarProductBlock", two, {{"primWireOut", ""}}, {{"subtractive", "true"}}), general);
    EXPECT_EQ(madeOf("scalarProductBlock", two, {{"primWireOut", ""}}, {{"multType", "(typeSFixed 5 0)"}}), general);
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "c u3.1"}, {"1", "u2.0"}}, {{"primWireOut", ""}}),
              (Made{"(block dotRR)", "(block dotIR)"}));
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "[3] c s2.1"}, {"1", "[3] c s2.0"}}, {{"primWireOut", ""}}), general);
}

TEST_F(ComplexUnrollersTest, givesSumsOfPartsTheDimensionsOfTheWhole) {
    madeOf("scalarProductBlock", {{"0", "[2][3] s2.1"}, {"1", "[2][3] s2.0"}, {"2", "c s2.0"}, {"3", "s2.0"}},
           {{"primWireOut", ""}}, {{"subtractive", "true"}});
    EXPECT_NE(mModel->getBlock(value("((block dotIR) 0 imagZero)")), nullptr);
    madeOf("scalarProductBlock", {{"0", "[2][3] s2.1"}, {"1", "[3] s2.0"}, {"scalarProductPortChainin", "c s2.0"}},
           {{"primWireOut", ""}});
}

TEST_F(ComplexUnrollersTest, addsTheChainInOfScalarProductsByParts) {
    const Texts minus{{"subtractiveChainin", "true"}};
    const Texts chained{{"0", "c s3.1"}, {"1", "c s2.0"}, {"scalarProductPortChainin", "c s4.3"}};
    EXPECT_EQ(madeOf("scalarProductBlock", chained, {{"primWireOut", ""}}, minus).size(), 6U);
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "s3.1"}, {"1", "s2.0"}, {"scalarProductPortChainin", "c s4.3"}},
                     {{"primWireOut", ""}}, minus),
              (Made{"(block dotRR)", "(block dotRI)", "((block dotRI) 0 imagZero)"}));
    EXPECT_EQ(madeOf("scalarProductBlock",
                     {{"0", "float(10,5)"}, {"1", "float(10,5)"}, {"scalarProductPortChainin", "c float(10,5)"}},
                     {{"primWireOut", ""}}, minus),
              (Made{"(block dotReal)", "(block dotImag)", "(block neg)"}));
    // Subnormal numbers stay what they are.
    mCycles = 1000;
    EXPECT_EQ(madeOf("scalarProductBlock",
                     {{"0", "float(10,5)"}, {"1", "float(10,5)"}, {"scalarProductPortChainin", "c float(10,5)"}},
                     {{"primWireOut", ""}}),
              (Made{"(block dotReal)", "(block dotImag)"}));
}

TEST_F(ComplexUnrollersTest, addsFloatsInTheirOrder) {
    const char *type = "c float(10,5)";
    const Texts two{{"0", type}, {"1", type}, {"2", type}, {"3", type}};
    EXPECT_EQ(madeOf("scalarProductBlock", two, {{"primWireOut", ""}}),
              (Made{"(block dotReal)", "(block dotImag)", "((block dotReal) neg 1)", "((block dotReal) neg 3)"}));
    EXPECT_EQ(made("(block dotReal)").getPortCount(), 8U);
    EXPECT_EQ(made("(block dotImag)").getPortCount(), 8U);
    madeOf("scalarProductBlock", two, {{"primWireOut", ""}}, {{"subtractive", "true"}});
    // Where a sign turns the rounding round, each product is a block.
    const Texts upward{{"floatRoundingMode", "roundingUp"}, {"subtractive", "true"}};
    madeOf("scalarProductBlock", two, {{"primWireOut", ""}}, upward);
    EXPECT_EQ(count(A_SCALAR_PRODUCT_BLOCK), 8U);
}

TEST_F(ComplexUnrollersTest, leavesSumsOfFloatVectorsWhole) {
    mExpected = {kRefused + "no scalar product of vectors of real floats adds in the order of that of complex ones"};
    EXPECT_EQ(
        madeOf("scalarProductBlock", {{"0", "[2] c float(10,5)"}, {"1", "[2] c float(10,5)"}}, {{"primWireOut", ""}}),
        Made{});
}

TEST_F(ComplexUnrollersTest, givesConstantsTheirPartsInOneType) {
    EXPECT_EQ(madeOf("constBlock", {}, {{"primWireOut", ""}}, {{"constValue", "(complexRollTag 1 -9)"}}), kParts);
    EXPECT_EQ(made("(block real)").getParam(A_CONST_TYPE)->toString(),
              made("(block imag)").getParam(A_CONST_TYPE)->toString());
    EXPECT_EQ(madeOf("constBlock", {}, {{"primWireOut", ""}},
                     {{"constValue", "5"}, {"constType", "(typeComplex (typeSFixed 5 1))"}}),
              kParts);
    EXPECT_EQ(made("(block imag)").getParam(A_CONST_VALUE)->toString(), "0");
    EXPECT_EQ(madeOf("constBlock", {}, {{"primWireOut", ""}},
                     {{"constValue", "(vectorRollTag (complexRollTag 1 -9) (complexRollTag 3 2))"}}),
              kParts);
}

TEST_F(ComplexUnrollersTest, keepsParametersWholeThatAreNoValuesOfSignals) {
    madeOf("delayBlock", {{"0", "c s4.0"}}, {{"primWireOut", ""}}, {{"delayLength", "3"}});
    EXPECT_EQ(made("(block imag)").getParam(A_DELAY_LENGTH)->toString(), "3");
}

TEST_F(ComplexUnrollersTest, beginsRegistersWithTheirParts) {
    const Texts in{{"0", "c s4.0"}, {"registerPortEnable", "u1.0"}};
    EXPECT_EQ(madeOf("registerBlock", in, {{"primWireOut", ""}}, {{"registerInitValue", "5"}}), kParts);
    EXPECT_EQ(made("(block imag)").getParam(A_REGISTER_INIT_VALUE)->toString(), "0");
    EXPECT_EQ(madeOf("registerBlock", in, {{"primWireOut", ""}}, {{"registerInitValue", "(complexRollTag 5 -3)"}}),
              kParts);
    EXPECT_EQ(
        madeOf("syncRegisterBlock", {{"syncRegisterPortIclkData", "c s4.0"}, {"syncRegisterPortIclkEnable", "u1.0"}},
               {{"syncRegisterWireIclkData", ""}, {"syncRegisterWireOclkData", ""}, {"syncRegisterWireOclkValid", ""}},
               {{"syncRegisterDataType", "(typeComplex (typeSFixed 4 0))"},
                {"syncRegisterInitValue", "(complexRollTag 5 -3)"}}),
        kParts);
}

TEST_F(ComplexUnrollersTest, givesTablesAndMemoriesTheirParts) {
    EXPECT_EQ(madeOf("lutBlock", {{"lutPortAddr", "u2.0"}}, {{"primWireOut", ""}},
                     {{"lutData", "((complexRollTag 1 -20) 3 (complexRollTag 0 1))"}}),
              kParts);
    EXPECT_EQ(madeOf("dualMemBlock",
                     {{"dualMemPortAddr1", "u2.0"},
                      {"dualMemPortData1", "c s6.0"},
                      {"dualMemPortWrite1En", "u1.0"},
                      {"dualMemPortAddr2", "u2.0"},
                      {"dualMemPortRead2", "u1.0"}},
                     {{"dualMemWireData1", ""}, {"dualMemWireData2", ""}},
                     {{"dualMemData", "((complexRollTag 1 -20) (complexRollTag 3 0) (complexRollTag 0 1))"},
                      {"dualMemAltPortData", "((complexRollTag 4 5) 6 (complexRollTag 7 -8))"}}),
              kParts);
    EXPECT_EQ(made("(block real)").getParam(A_DUAL_MEM_ALT_PORT_DATA)->toString(), "(4 6 7)");
    EXPECT_EQ(made("(block imag)").getParam(A_DUAL_MEM_ALT_PORT_DATA)->toString(), "(5 0 -8)");
}

// The parameter of a side tells the scalar, the content what it is made of.
TEST_F(ComplexUnrollersTest, givesMemoriesOfAGivenTypeTheirParts) {
    const Texts ports{{"dualMemPortAddr1", "u2.0"}, {"dualMemPortAddr2", "u2.0"}};
    Texts written = ports;
    written.insert(written.end(), {{"dualMemPortData1", "c s9.0"}, {"dualMemPortWrite1En", "u1.0"}});
    const Texts outputs{{"dualMemWireData1", ""}, {"dualMemWireData2", ""}};
    const char *const contents[] = {"((complexRollTag 1 -20) (complexRollTag 3 0) (complexRollTag 0 1))",
                                    "((complexRollTag 1 -20) 3 2)"};
    for (const char *content : contents) {
        for (const char *type : {"(typeSFixed 9 0)", "(typeComplex (typeSFixed 9 0))"}) {
            for (const Texts &inputs : {ports, written}) {
                EXPECT_EQ(madeOf("dualMemBlock", inputs, outputs,
                                 {{"dualMemData", content}, {"dualMemTypeData1", type}, {"dualMemTypeData2", type}}),
                          kParts)
                    << content << " " << type;
                EXPECT_EQ(made("(block imag)").getParam(A_DUAL_MEM_TYPE_DATA1)->toString(), "(typeSFixed 9 0)");
            }
        }
    }
}

TEST_F(ComplexUnrollersTest, givesPortsThatTakeComplexNumbersZerosBesideRealOnes) {
    EXPECT_EQ(madeOf("dualMemBlock",
                     {{"dualMemPortAddr1", "u2.0"}, {"dualMemPortData1", "s9.0"}, {"dualMemPortWrite1En", "u1.0"}},
                     {{"dualMemWireData1", ""}},
                     {{"dualMemData", "((complexRollTag 1 -20) 3 2)"}, {"dualMemTypeData1", "(typeSFixed 9 0)"}}),
              (Made{"(block real)", "(block imag)", "(block dualMemPortData1 imagZero)"}));
    EXPECT_EQ(madeOf("syncRegisterBlock",
                     {{"syncRegisterPortIclkData", "s4.1"}, {"syncRegisterPortIclkEnable", "u1.0"}},
                     {{"syncRegisterWireIclkData", ""}, {"syncRegisterWireOclkData", ""}},
                     {{"syncRegisterDataType", "(typeComplex (typeSFixed 4 1))"}}),
              (Made{"(block real)", "(block imag)", "(block syncRegisterPortIclkData imagZero)"}));
    EXPECT_EQ(made("(block syncRegisterPortIclkData imagZero)").getParam(A_CONST_TYPE)->toString(), "(typeSFixed 4 1)");
    EXPECT_EQ(count(A_CUNPACK_BLOCK), 0U);
}

struct SharedCase {
    const char *type;
    std::vector<std::pair<const char *, const char *>> inputs;
    std::vector<std::pair<const char *, const char *>> outputs;
    std::vector<std::pair<const char *, const char *>> params;
};

TEST_F(ComplexUnrollersTest, sharesControls) {
    const SharedCase cases[] = {
        {"addsubBlock", {{"0", "c s4.0"}, {"1", "c s4.0"}, {"addsubPortSelect", "u1.0"}}, {{"primWireOut", ""}}, {}},
        {"addSloadBlock",
         {{"0", "c s4.0"}, {"1", "c s4.0"}, {"addSloadPortLoadCtrl", "u1.0"}, {"addSloadPortLoadValue", "c s3.0"}},
         {{"primWireOut", ""}},
         {}},
        {"minmaxBlock", {{"0", "c s4.0"}, {"1", "c s4.0"}, {"minmaxPortSelect", "u1.0"}}, {{"primWireOut", ""}}, {}},
        {"cordicBlock",
         {{"cordicPortX", "c s4.4"},
          {"cordicPortY", "c s4.4"},
          {"cordicPortAngle", "s3.4"},
          {"cordicPortMode", "u1.0"}},
         {{"cordicWireX", ""}, {"cordicWireY", ""}, {"cordicWireAngle", ""}},
         {}},
        {"muxBlock", {{"muxPortSelect", "u1.0"}, {"0", "c s4.0"}, {"1", "c s4.0"}}, {{"primWireOut", ""}}, {}},
        {"selectBlock",
         {{"(selectPortkeyCtrl 0)", "u1.0"}, {"(selectPortkeyData 0)", "c s4.0"}, {"selectPortDefaultData", "c s4.0"}},
         {{"primWireOut", ""}, {"selectWireValid", ""}},
         {}},
        {"barrelLeftBlock", {{"0", "c s4.0"}, {"barrelPortShift", "u2.0"}}, {{"primWireOut", ""}}, {}},
        {"barrelRightBlock", {{"0", "c s4.0"}, {"barrelPortShift", "u2.0"}}, {{"primWireOut", ""}}, {}},
        {"fifoBlock",
         {{"fifoPortData", "c s4.0"},
          {"fifoPortWriteEn", "u1.0"},
          {"fifoPortReadAck", "u1.0"},
          {"fifoPortFlush", "u1.0"}},
         {{"fifoWireData", ""}, {"fifoWireValid", ""}, {"fifoWireHigh", ""}},
         {{"fifoDepth", "4"}, {"fifoHighThreshold", "2"}}},
        {"fifoDelayBlock",
         {{"fifoPortData", "c s4.0"}, {"portWrite", "u1.0"}, {"portReady", "u1.0"}},
         {{"fifoWireData", ""}, {"fifoWireValid", ""}},
         {{"fifoDepth", "4"}}},
        {"demuxBlock",
         {{"demuxPortData", "c s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}},
         {{"0", ""}, {"1", ""}},
         {{"demuxChannelCount", "2"}}},
        {"accBlock", {{"0", "c s4.0"}, {"1", "u1.0"}}, {{"primWireOut", ""}}, {}},
        {"multPow2Block", {{"0", "c float(10,5)"}, {"1", "s3.0"}}, {{"primWireOut", ""}}, {}},
    };
    for (const SharedCase &one : cases) {
        EXPECT_EQ(madeOf(one.type, one.inputs, one.outputs, one.params), kParts) << one.type;
        for (const char *control : {"fifoPortFlush", "(selectPortkeyCtrl 0)", "barrelPortShift"}) {
            const Port *real = made("(block real)").getPort(value(control));
            const Port *imaginary = made("(block imag)").getPort(value(control));
            EXPECT_EQ(real == nullptr, imaginary == nullptr) << one.type;
            EXPECT_TRUE(real == nullptr || real->peekWire() == imaginary->peekWire()) << one.type;
        }
    }
}

TEST_F(ComplexUnrollersTest, leavesBlocksWholeWhoseControlsOrAddressesAreComplex) {
    const Texts out{{"primWireOut", ""}};
    const SharedCase cases[] = {
        {"registerBlock", {{"0", "c s4.0"}, {"registerPortEnable", "c u1.0"}}, out, {}},
        {"lutBlock", {{"lutPortAddr", "c u2.0"}}, out, {{"lutData", "((complexRollTag 1 -20) 3)"}}},
        {"dualMemBlock",
         {{"dualMemPortAddr1", "c u2.0"}, {"dualMemPortAddr2", "u2.0"}},
         {{"dualMemWireData1", ""}, {"dualMemWireData2", ""}},
         {{"dualMemData", "((complexRollTag 1 -20) (complexRollTag 3 0) 2)"}}},
        {"cordicBlock",
         {{"cordicPortX", "c s4.4"},
          {"cordicPortY", "c s4.4"},
          {"cordicPortAngle", "s3.4"},
          {"cordicPortMode", "c u1.0"}},
         {{"cordicWireX", "c s6.4"}, {"cordicWireY", "c s6.4"}, {"cordicWireAngle", "s4.4"}},
         {}},
        {"multPow2Block", {{"0", "c float(10,5)"}, {"1", "c s3.0"}}, {{"primWireOut", "c float(10,5)"}}, {}},
        {"pownBlock", {{"0", "c float(10,5)"}, {"1", "c s3.0"}}, {{"primWireOut", "c float(10,5)"}}, {}},
    };
    for (const SharedCase &one : cases) {
        Design design(mgr.context());
        const Model &model = oneBlock(design, one.type, one.inputs, one.outputs, one.params);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(design);
        EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + "a control or an address is complex"}) << one.type;
        EXPECT_NE(model.getBlock(value("block")), nullptr) << one.type;
    }
}

TEST_F(ComplexUnrollersTest, tellsOfBlocksThatTakeRealNumbersOnly) {
    const char *number = "c float(10,5)";
    const Texts none{};
    const SharedCase cases[] = {
        {"divideBlock", {{"0", number}, {"1", number}}, {{"primWireOut", ""}}, none},
        {"divideBlock", {{"0", "c s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}, none},
        {"divideBlock", {{"0", "c s4.0"}, {"1", "c s4.0"}}, {{"primWireOut", ""}}, {{"intDivider", "true"}}},
        {"floatMultaccBlock", {{"0", number}, {"1", number}, {"2", "u1.0"}}, {{"primWireOut", ""}}, none},
        {"floatMultaddBlock", {{"0", number}, {"1", number}, {"2", number}}, {{"primWireOut", ""}}, none},
        {"floatMultsubBlock", {{"0", number}, {"1", number}, {"2", number}}, {{"primWireOut", ""}}, none},
        {"ldCounterBlock",
         {{"0", "u1.0"}, {"1", "c u4.0"}, {"2", "u4.0"}, {"3", "u4.0"}, {"portEnable", "u1.0"}},
         {{"primWireOut", ""}},
         none},
        // A pin gives the output the type that the rule does not find.
        {"cmpGeBlock", {{"0", "c s4.0"}, {"1", "s4.0"}}, {{"primWireOut", "u1.0"}}, none},
        {"modMultBlock", {{"0", "c u4.0"}, {"1", "u4.0"}}, {{"primWireOut", "u4.0"}}, {{"modMultModulusValue", "9"}}},
        {"bitCountBlock", {{"0", "c s4.0"}}, {{"primWireOut", "u3.0"}}, none},
    };
    for (const SharedCase &one : cases) {
        Design design(mgr.context());
        const Model &model = oneBlock(design, one.type, one.inputs, one.outputs, one.params);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(design);
        EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + "its type computes on real numbers alone"})
            << one.type;
        EXPECT_NE(model.getBlock(value("block")), nullptr) << one.type;
    }
}

TEST_F(ComplexUnrollersTest, leavesMemoriesWholeThatHoldComplexAndRealNumbers) {
    Design design(mgr.context());
    oneBlock(design, "dualMemBlock",
             {{"dualMemPortAddr1", "u2.0"},
              {"dualMemPortAddr2", "u2.0"},
              {"dualMemPortData1", "c u4.0"},
              {"dualMemPortWrite1En", "u1.0"}},
             {{"dualMemWireData1", ""}, {"dualMemWireData2", ""}},
             {{"dualMemTypeData1", "(typeComplex (typeUFixed 4 0))"},
              {"dualMemTypeData2", "(typeUFixed 8 0)"},
              {"dualMemDepth1", "4"},
              {"dualMemDepth2", "4"}});
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("UnrollComplexPass");
    scheduler.apply(design);
    EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + "some of its data are complex and some are real"});
}

TEST_F(ComplexUnrollersTest, tellWhatIsMissingAtProducts) {
    const std::pair<const char *, const char *> cases[] = {{"scalarProductBlock", "its operands are no pairs"},
                                                           {"constmultBlock", "it has no operand, or several"}};
    for (const auto &[type, detail] : cases) {
        Design design(mgr.context());
        Model &model = *Model::create(design, "top");
        Block &product = block(model, "block", type, {{"constValue", "3"}});
        for (const char *port : {"0", "1", "2"}) {
            product.setParam(value(port), input(model, port, "c s4.0"));
        }
        output(model, "y", pinned(*Wire::create(product, A_PRIM_WIRE_OUT), "c s9.0"));
        product.setParam(A_MULT_TYPE, value("(typeSFixed 9 0)"));
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(design);
        EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + detail}) << type;
    }
}

// The type rules give such products none, so that a pin does.
TEST_F(ComplexUnrollersTest, leavesProductsOfRealFactorsWholeWhateverTheirType) {
    const Texts mixed{{"0", "float(10,5)"}, {"1", "s4.0"}};
    const Texts out{{"primWireOut", "c float(10,5)"}};
    const SharedCase cases[] = {
        {"multBlock", mixed, out, {}},
        {"multBlock", mixed, out, {{"complexKaratsuba", "true"}}},
        {"constmultBlock", {{"0", "s4.0"}}, {{"primWireOut", "c s9.0"}}, {}},
        {"scalarProductBlock", mixed, out, {}},
    };
    for (const SharedCase &one : cases) {
        Design design(mgr.context());
        const Model &model = oneBlock(design, one.type, one.inputs, one.outputs, one.params);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(design);
        const std::string kind = std::string(one.type) == "scalarProductBlock" ? "operands" : "factors";
        EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + "none of its " + kind + " is complex"}) << one.type;
        EXPECT_NE(model.getBlock(value("block")), nullptr) << one.type;
    }
}

TEST_F(ComplexUnrollersTest, leavesProductsOfNothingWhole) {
    for (const char *type : {"multBlock", "monsterMultBlock"}) {
        Design design(mgr.context());
        const Model &model = oneBlock(design, type, {}, {{"primWireOut", "c s9.0"}});
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(design);
        EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + "it has fewer than two factors"}) << type;
        EXPECT_NE(model.getBlock(value("block")), nullptr) << type;
    }
}

class StallComplexTest : public ComplexUnrollersTest {
  protected:
    struct Case {
        const char *type;
        const char *in;
        const char *out;
    };
    static constexpr Case kCases[] = {{"stallenterBlock", "stallenterPortkeyDataBack", "stallenterWirekeyDataFront"},
                                      {"stallexitBlock", "stallexitPortkeyDataBack", "stallexitWirekeyDataFront"},
                                      {"stallregBlock", "stallregPortkeyDataBack", "stallregWirekeyDataFront"}};
    static std::string keyed(const char *key, int number) {
        return "(" + std::string(key) + " " + std::to_string(number) + ")";
    }
};

TEST_F(StallComplexTest, givesPartsNumbersOfTheirOwnBesideRealData) {
    for (const Case &row : kCases) {
        const std::string names[] = {keyed(row.in, 0),  keyed(row.in, 2),  keyed(row.in, 7),
                                     keyed(row.out, 0), keyed(row.out, 2), keyed(row.out, 7)};
        EXPECT_EQ(madeOf(row.type,
                         {{names[0].c_str(), "c s4.0"}, {names[1].c_str(), "s5.0"}, {names[2].c_str(), "[2] c u3.1"}},
                         {{names[3].c_str(), ""}, {names[4].c_str(), ""}, {names[5].c_str(), ""}}),
                  Made{})
            << row.type;
        std::vector<std::string> ports;
        std::vector<std::string> wires;
        for (const int number : {2, 8, 9, 10, 11}) {
            ports.push_back(keyed(row.in, number));
            wires.push_back(keyed(row.out, number));
        }
        EXPECT_EQ(portsOf(made("block")), ports) << row.type;
        EXPECT_EQ(wiresOf(made("block")), wires) << row.type;
        GlobalTypePass types;
        types.bindEvents(*mAfter);
        std::vector<std::string> found;
        for (const Wire &wire : made("block")) {
            found.push_back(types.getType(wire, {})->toString());
        }
        EXPECT_EQ(found,
                  (std::vector<std::string>{"(typeSFixed 5 0)", "(typeSFixed 4 0)", "(typeSFixed 4 0)",
                                            "(typeVector 2 (typeUFixed 3 1))", "(typeVector 2 (typeUFixed 3 1))"}))
            << row.type;
    }
}

TEST_F(StallComplexTest, leavesARegionOfRealDataAsItIs) {
    for (const Case &row : kCases) {
        const std::string in = keyed(row.in, 3);
        const std::string out = keyed(row.out, 3);
        EXPECT_EQ(madeOf(row.type, {{in.c_str(), "[2] s4.0"}}, {{out.c_str(), ""}}), Made{}) << row.type;
        EXPECT_EQ(portsOf(made("block")), std::vector<std::string>{in}) << row.type;
    }
}

TEST_F(StallComplexTest, leavesARegionWholeWhoseValidIsComplex) {
    Design design(mgr.context());
    const Model &model =
        oneBlock(design, "stallregBlock",
                 {{"(stallregPortkeyValidBack 0)", "c u1.0"}, {"(stallregPortkeyDataBack 0)", "c s4.0"}},
                 {{"(stallregWirekeyDataFront 0)", ""}});
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("UnrollComplexPass");
    scheduler.apply(design);
    EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + "a signal that is no data is complex"});
    EXPECT_EQ(portsOf(*model.getBlock(value("block"))).size(), 2U);
}

TEST_F(ComplexUnrollersTest, dividesPartsByARealConstantOnly) {
    EXPECT_EQ(madeOf("constdivBlock", {{"0", "c s5.0"}}, {{"primWireOut", ""}}, {{"constValue", "-3"}}), kParts);
    Design design(mgr.context());
    const Model &model = oneBlock(design, "constdivBlock", {{"0", "c s5.0"}}, {{"primWireOut", ""}},
                                  {{"constValue", "(complexRollTag 1 3)"}});
    EXPECT_NE(refusal(design, model).find("a quotient by a complex number"), std::string::npos);
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("UnrollComplexPass");
    scheduler.apply(design);
    EXPECT_EQ(heard.take(), std::vector<std::string>{kRefused + "its divisor is complex"});
}

TEST_F(ComplexUnrollersTest, keepsNamedPortsOnOneBlock) {
    EXPECT_EQ(madeOf("signalInBlock", {{"x", "c s4.0"}, {"y", "s4.0"}}, {{"x", ""}, {"y", ""}}), Made{});
    EXPECT_NE(made("block").getWire(value("(x imag)")), nullptr);
    EXPECT_EQ(madeOf("latencyPlaceholderBlock", {{"x", "c s4.0"}}, {{"y", ""}},
                     {{"latencyPlaceholderTypemap",
                       "((x (typeComplex (typeSFixed 4 0))) (y (typeComplex (typeSFixed 4 0))))"}}),
              Made{});
    EXPECT_EQ(made("block").getParam(A_LATENCY_PLACEHOLDER_TYPEMAP)->toString(),
              "(((x real) (typeSFixed 4 0)) ((x imag) (typeSFixed 4 0)) ((y real) (typeSFixed 4 0)) "
              "((y imag) (typeSFixed 4 0)))");
}

TEST_F(ComplexUnrollersTest, pinsEachPart) {
    madeOf("typePinBlock", {{"0", "c s4.0"}, {"1", "s3.0"}}, {{"0", ""}, {"1", ""}},
           {{"typePinPortTypes", "((typeComplex (typeSFixed 4 0)) (typeSFixed 3 0))"}});
    EXPECT_EQ(made("block_cunroll").getParam(A_TYPE_PIN_PORT_TYPES)->toString(),
              "((typeSFixed 4 0) (typeSFixed 4 0) (typeSFixed 3 0))");
}

TEST_F(ComplexUnrollersTest, keepsWhatIsKnownOfTheWiresOfAPin) {
    Design design(mgr.context());
    Model &model = oneBlock(design, "typePinBlock", {{"0", "c s4.0"}}, {{"0", ""}});
    model.getBlock(value("block"))->getWire(value("0"))->setParam(value("mark"), value("a"));
    PassScheduler scheduler;
    scheduler.addPass("UnrollComplexPass");
    scheduler.apply(design);
    for (const char *wire : {"0", "1"}) {
        const Wire &part = *model.getBlock(value("block_cunroll"))->getWire(value(wire));
        EXPECT_EQ(PureValueRef(part.getParam(value("mark"))), value("a")) << wire;
    }
}

TEST_F(ComplexUnrollersTest, movesTheConstraintsOfAPinToTheirParts) {
    madeOf("typePinBlock", {{"0", "c s4.0"}, {"1", "c s3.0"}}, {{"0", ""}, {"1", ""}},
           {{"scheduleConstraintPorts", "((0 true () (1)) (1 true () (2)))"},
            {"scheduleConstraintWires", "((0 true (1) ()) (1 true (2) ()))"}});
    EXPECT_EQ(made("block_cunroll").getParam(A_SCHEDULE_CONSTRAINT_PORTS)->toString(),
              "((0 true () (1)) (1 true () (1)) (2 true () (2)) (3 true () (2)))");
    EXPECT_EQ(made("block_cunroll").getParam(A_SCHEDULE_CONSTRAINT_WIRES)->toString(),
              "((0 true (1) ()) (1 true (1) ()) (2 true (2) ()) (3 true (2) ()))");
}

TEST_F(ComplexUnrollersTest, takesVectorsOfComplexNumbersApartPartByPart) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "[2] c s4.0"}, {"1", "[2] s4.0"}}, {{"primWireOut", ""}}),
              (Made{"(block real)", "(block imag)", "(block 1 imagZero)"}));
    EXPECT_EQ(madeOf("multBlock", {{"0", "[2] c s4.0"}, {"1", "c s4.0"}}, {{"primWireOut", ""}}), kFour);
    EXPECT_EQ(madeOf("multBlock", {{"0", "[2] c s4.0"}, {"1", "c s4.0"}}, {{"primWireOut", ""}},
                     {{"complexKaratsuba", "true"}})
                  .size(),
              10U);
    EXPECT_EQ(madeOf("complexConjugateBlock", {{"0", "[2] c s4.0"}}, {{"primWireOut", ""}}),
              (Made{"(block imagNeg)", "(block realCast)"}));
}

TEST_F(ComplexUnrollersTest, absorbsARealPartThatNobodyReads) {
    EXPECT_EQ(madeOf("complexConjugateBlock", {{"0", "c float(10,5)"}}, {}), (Made{"(block imagNeg)"}));
    Design design(mgr.context());
    Model &model = *Model::create(design, "top");
    Block &conjugate = block(model, "block", "complexConjugateBlock");
    conjugate.setParam(value("0"), input(model, "x", "c float(10,5)"));
    Wire::create(conjugate, A_PRIM_WIRE_OUT);
    PassScheduler scheduler;
    scheduler.addPass("UnrollComplexPass");
    scheduler.apply(design);
    EXPECT_NE(model.getBlock(value("(block realTerm)")), nullptr);
    EXPECT_NE(model.getBlock(value("(block imagNeg)")), nullptr);
}

// Without an output they break the catalogue, as the product does.
TEST_F(ComplexUnrollersTest, takeProductsApartThatNobodyReads) {
    for (const char *type : {"multBlock", "scalarProductBlock", "constmultBlock"}) {
        Design design(mgr.context());
        Model &model = *Model::create(design, "top");
        Block &product = block(model, "block", type, {{"constValue", "3"}});
        product.setParam(value("0"), input(model, "x", "c s4.0"));
        product.setParam(value("1"), input(model, "y", "c s4.0"));
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(design);
        EXPECT_EQ(heard.take(), std::vector<std::string>{}) << type;
        EXPECT_NE(model.getBlock(value("(block real)")), nullptr) << type;
        EXPECT_NE(model.getBlock(value("(block imag)")), nullptr) << type;
        EXPECT_EQ(model.getBlock(value("block")), nullptr) << type;
    }
}

TEST_F(ComplexUnrollersTest, keepFiltersAsOneBlock) {
    const std::pair<const char *, const char *> valid{"portValid", "u1.0"};
    const Texts cic{
        {"cicScaleType", "cicScaleDecim"}, {"cicRateFactor", "3"}, {"cicStageCount", "2"}, {"cicDelayCount", "1"},
        {"cicChannelCount", "1"},          {"cicInputRate", "1"}};
    for (const char *data : {"c s6.0", "[2] c s6.0"}) {
        EXPECT_EQ(madeOf("cicBlock", {valid, {"0", data}}, {{"0", ""}, {"wireValid", ""}}, cic), Made{});
        EXPECT_EQ(madeOf("firBlock", {valid, {"0", data}}, {{"0", ""}}, {{"firCoefs", "(3 -7 2 5)"}}), Made{});
        // Nothing is told of what complex coefficients do.
        EXPECT_EQ(madeOf("firBlock", {valid, {"0", data}}, {{"0", ""}}, {{"firCoefs", "((complexRollTag 3 1) -7)"}}),
                  Made{});
        EXPECT_EQ(madeOf("chanviewBlock", {valid, {"0", data}}, {{"0", ""}, {"wireValid", ""}}), Made{});
        EXPECT_EQ(madeOf("sharedFifoBlock", {valid, {"portReady", "u1.0"}, {"0", data}, {"2", "u5.0"}},
                         {{"0", ""}, {"2", ""}, {"wireValid", ""}}, {{"fifoDepth", "4"}}),
                  Made{});
    }
    EXPECT_NE(made("block").getPort(value("(0 imag)")), nullptr);
}

TEST_F(ComplexUnrollersTest, keepMixersAsOneBlock) {
    const std::pair<const char *, const char *> valid{"portValid", "u1.0"};
    const char *const factors[] = {"c s6.1", "s5.0", "[2] c s4.2"};
    for (const char *data : factors) {
        for (const char *oscillator : factors) {
            EXPECT_EQ(madeOf("mixerBlock", {valid, {"0", data}, {"1", oscillator}}, {{"0", ""}, {"wireValid", ""}}),
                      Made{})
                << data << " " << oscillator;
        }
    }
    // An output that no oscillator drives.
    EXPECT_EQ(madeOf("mixerBlock", {valid, {"0", "c s4.0"}, {"1", "c s4.0"}}, {{"0", ""}, {"1", ""}}), Made{});
}

TEST_F(ComplexUnrollersTest, keepScalesAndOscillatorsAsOneBlock) {
    const std::pair<const char *, const char *> valid{"portValid", "u1.0"};
    for (const char *type : {"(typeSFixed 6 2)", "(typeComplex (typeSFixed 6 2))"}) {
        for (const char *data : {"s8.4", "c s8.4", "[2] c s8.4"}) {
            EXPECT_EQ(madeOf("scaleBlock", {valid, {"0", data}, {"1", "s3.0"}},
                             {{"scaleWireData", ""}, {"0", ""}, {"primWireAux", ""}}, {{"scaleOutputType", type}}),
                      Made{})
                << type << " of " << data;
        }
    }
    EXPECT_EQ(
        madeOf(
            "ncoBlock", {valid, {"0", "u8.0"}}, {{"ncoWireSin", ""}, {"ncoWireCos", ""}},
            {{"ncoAccumBitCount", "8"}, {"ncoOutputRate", "1"}, {"ncoOutputType", "(typeComplex (typeSFixed 2 6))"}}),
        Made{});
}

TEST_F(ComplexUnrollersTest, keepInterfacesAsOneBlock) {
    for (const char *type : {"extIfaceBlock", "hiddenIfaceBlock"}) {
        // By the name, by being the only ones, and by logic that is not told.
        EXPECT_EQ(madeOf(type, {{"x", "c s4.0"}, {"y", "[2] c s4.1"}}, {{"x", ""}, {"y", ""}}), Made{});
        EXPECT_EQ(madeOf(type, {{"x", "c s4.0"}}, {{"y", "c s4.0"}}), Made{});
        EXPECT_EQ(madeOf(type, {{"x", "[2] c s4.0"}, {"y", "s4.1"}}, {{"z", "c s6.0"}, {"w", "s9.0"}}), Made{});
    }
}

TEST_F(ComplexUnrollersTest, keepOneBlockWhicheverComesApartFirst) {
    const std::vector<std::vector<const char *>> orders{{"UnrollVectorPass", "UnrollComplexPass"},
                                                        {"UnrollComplexPass", "ElideUnpackPass", "UnrollVectorPass"}};
    const std::pair<const char *, const char *> valid{"portValid", "u1.0"};
    const auto make = [&](Design &design, std::size_t kind) {
        if (kind == 0) {
            oneBlock(design, "extIfaceBlock", {{"x", "[3] c s4.0"}, {"y", "c s2.0"}}, {{"x", ""}, {"z", "[2] c s6.0"}});
        } else if (kind == 1) {
            oneBlock(design, "extIfaceBlock", {{"x", "[3] c s4.0"}}, {{"z", "[3] c s4.0"}});
        } else if (kind == 2) {
            oneBlock(design, "mixerBlock", {valid, {"0", "[3] c s4.0"}, {"1", "c s3.0"}}, {{"0", ""}});
        } else {
            oneBlock(design, "firBlock", {valid, {"0", "[3] c s4.0"}}, {{"0", ""}},
                     {{"firCoefs", "((complexRollTag 3 1) -7)"}});
        }
    };
    for (const auto &order : orders) {
        for (std::size_t kind = 0; kind < 4; ++kind) {
            Design before(mgr.context());
            Design after(mgr.context());
            make(before, kind);
            make(after, kind);
            PassScheduler scheduler;
            for (const char *pass : order) {
                scheduler.addPass(pass);
            }
            scheduler.apply(after);
            test::expectSameBehaviour(before, after);
            const Block &block = *after.begin()->getBlock(value("block"));
            for (const Port &port : block.ports()) {
                EXPECT_TRUE(port.getName()->kind() != CoreType::Number && port.getName() != value("x"))
                    << order.front() << " leaves " << port.getName()->toString() << " of design " << kind;
            }
        }
    }
}

} // namespace
} // namespace orvo
