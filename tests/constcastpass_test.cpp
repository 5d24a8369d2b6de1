// Casts of constants, folded: what is drawn, what stays, and that every small constant is what its cast gave.
#include "orvo/constcastpass.h"

#include "support/exhaustive.h"
#include "support/randomdesigns.h"
#include "support/rewritefixture.h"
#include "support/samebehaviour.h"
#include "support/smallformats.h"

#include <orvo/annotation.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class ConstCastTest : public test::RewriteFixture {
  protected:
    ConstCastTest() : RewriteFixture("ConstCastPass") {}
};

TEST_F(ConstCastTest, givesReadersAConstantOfTheTypeOfTheCast) {
    output(model, "o",
           out(cast("cast", constant("c", "s4.2", "0x3.c"), "s4.1", {{"castRoundingMode", "roundingBiased"}})));
    run();
    EXPECT_EQ(drawn(), (Lines{"(c cast) constBlock (typeSFixed 4 1) 4"}));
}

TEST_F(ConstCastTest, makesAConstantForEachOfTwoCastsAndDropsTheirs) {
    Wire &c = constant("c", "s8.0", "100");
    output(model, "o1", out(cast("first", c, "s4.0")));
    output(model, "o2", out(cast("second", c, "s4.0", {{"castSaturateMode", "saturateAsymmetric"}})));
    run();
    EXPECT_EQ(drawn(), (Lines{"(c first) constBlock (typeSFixed 4 0) 4", "(c second) constBlock (typeSFixed 4 0) 7"}));
}

TEST_F(ConstCastTest, keepsAConstantThatSomethingElseReads) {
    Wire &c = constant("c", "s8.0", "100");
    output(model, "o1", out(cast("cast", c, "s4.0")));
    output(model, "o2", c);
    run();
    EXPECT_EQ(drawn(), (Lines{"(c cast) constBlock (typeSFixed 4 0) 4", "c constBlock (typeSFixed 8 0) 100"}));
}

TEST_F(ConstCastTest, foldsChainsOfCastsAllTheWay) {
    Block &first = cast("first", constant("c", "s8.0", "100"), "s7.1", {{"castSaturateMode", "saturateSymmetric"}});
    Block &second = cast("second", out(first), "u8.0", {{"castMode", "castModeReinterp"}});
    output(model, "o", out(cast("third", out(second), "u3.1")));
    run();
    EXPECT_EQ(drawn(), (Lines{"(((c first) second) third) constBlock (typeUFixed 3 1) 7"}));
}

TEST_F(ConstCastTest, takesTheTypeOfTheConstantWhereTheCastHasNone) {
    output(model, "o", out(cast("cast", constant("c", "", "5"), "")));
    run();
    EXPECT_EQ(drawn(), (Lines{"(c cast) constBlock (typeUFixed 3 0) 5"}));
}

TEST_F(ConstCastTest, roundsAndSaturatesAConstantToItsOwnTypeFirst) {
    output(model, "o1", out(cast("cast", constant("c", "s4.0", "300"), "s12.0")));
    output(model, "o2", out(cast("down", constant("d", "s4.1", "-0x2.8"), "s4.0")));
    output(model, "o3", out(cast("half", constant("e", "s4.0", "-0x2.8"), "s4.2")));
    run();
    EXPECT_EQ(text("(c cast)", A_CONST_VALUE), "7");
    EXPECT_EQ(text("(d down)", A_CONST_VALUE), "-3");
    EXPECT_EQ(text("(e half)", A_CONST_VALUE), "-3");
}

TEST_F(ConstCastTest, foldsTheClipFlagWhereItIsRead) {
    for (const auto &[name, type] : {std::pair<const char *, const char *>{"tight", "s4.0"}, {"wide", "s9.0"}}) {
        Block &made = cast(name, constant(std::string("of ") + name, "s8.0", "-100"), type,
                           {{"castSaturateMode", "saturateAsymmetric"}});
        output(model, std::string(name) + "Value", out(made));
        output(model, std::string(name) + "Clip", *Wire::create(made, A_CAST_WIRE_CLIP));
    }
    Wire::create(cast("unread", constant("u", "s8.0", "1"), "s4.0"), A_CAST_WIRE_CLIP);
    run();
    EXPECT_EQ(drawn(), (Lines{"(\"of tight\" tight clip) constBlock (typeUFixed 1 0) 1",
                              "(\"of tight\" tight) constBlock (typeSFixed 4 0) -8",
                              "(\"of wide\" wide clip) constBlock (typeUFixed 1 0) 0",
                              "(\"of wide\" wide) constBlock (typeSFixed 9 0) -100",
                              "(u unread) constBlock (typeSFixed 4 0) 1"}));
}

TEST_F(ConstCastTest, leavesACastOfWhichAnythingElseIsRead) {
    Block &made = cast("cast", constant("c", "s8.0", "100"), "s4.0");
    output(model, "o", out(made));
    Block &reader = block(model, "reader", "terminalBlock");
    reader.setParam(value("0"), *Wire::create(made, value("other")));
    rewrite();
    EXPECT_EQ(model.getBlock(value("cast")), &made);
    EXPECT_NE(model.getBlock(value("c")), nullptr);
}

TEST_F(ConstCastTest, keepsTheBitsOfAsManyOnly) {
    const Texts bits = {{"castMode", "castModeReinterp"}};
    output(model, "o1", out(cast("same", constant("c", "s4.0", "-3"), "u2.2", bits)));
    output(model, "o2", out(cast("back", constant("d", "u4.0", "13"), "s6.-2", bits)));
    output(model, "o3", out(cast("wider", constant("e", "s4.0", "-3"), "u5.0", bits)));
    output(model, "o4", out(cast("narrower", constant("f", "s4.0", "-3"), "u3.0", bits)));
    run();
    EXPECT_EQ(text("(c same)", A_CONST_VALUE), "0x3.4p+0");
    EXPECT_EQ(text("(d back)", A_CONST_VALUE), "-12");
    EXPECT_NE(model.getBlock(value("wider")), nullptr);
    EXPECT_NE(model.getBlock(value("narrower")), nullptr);
}

TEST_F(ConstCastTest, leavesFloats) {
    output(model, "o1", out(cast("to", constant("c", "s8.0", "100"), "float(23,8)")));
    output(model, "o2", out(cast("from", constant("d", "float(23,8)", "100"), "s8.0")));
    output(model, "o3",
           out(cast("bits", constant("e", "u32.0", "100"), "float(23,8)", {{"castMode", "castModeReinterp"}})));
    run();
    EXPECT_EQ(drawn().size(), 6U);
}

TEST_F(ConstCastTest, leavesWhatIsNoNumberOrHasNoType) {
    for (const char *of : {"+nan", "-inf", "text", "(1 2)", "()", "(vectorRollTag 1 text)"}) {
        output(model, "o" + std::to_string(model.size()), out(cast("cast", constant("c", "s8.0", of), "s4.0")));
    }
    Block &empty = block(model, "empty", "constBlock");
    output(model, "p", out(cast("cast", *Wire::create(empty, A_PRIM_WIRE_OUT), "s4.0")));
    output(model, "q", out(cast("cast", constant("c", "", "text"), "s4.0")));
    output(model, "r", out(cast("cast", constant("c", "u0.0", "0"), "s4.0")));
    output(model, "s", out(cast("cast", constant("c", "s4.0", "0"), "u0.0")));
    const std::size_t blocks = model.size();
    rewrite();
    EXPECT_EQ(model.size(), blocks);
}

TEST_F(ConstCastTest, leavesOddCasts) {
    Wire &c = constant("c", "s8.0", "100");
    cast("two", c, "s4.0").setParam(value("1"), c);
    Block &elsewhere = block(model, "elsewhere", "castBlock");
    elsewhere.setParam(value("x"), c);
    delete cast("without", c, "s4.0").getWire(A_PRIM_WIRE_OUT);
    Model &other = *Model::create(design, "other");
    block(other, "strange", "castBlock", {{"castOutputType", "(typeSFixed 4 0)"}}).setParam(value("0"), c);
    Wire::create(*other.getBlock(value("strange")), A_PRIM_WIRE_OUT);
    const std::size_t blocks = model.size();
    rewrite();
    EXPECT_EQ(model.size(), blocks);
    EXPECT_NE(other.getBlock(value("strange")), nullptr);
}

TEST_F(ConstCastTest, foldsVectorsAndComplexNumbersElementByElement) {
    const std::string pairs = "(vectorRollTag (complexRollTag 1 20) (complexRollTag 2 30))";
    output(model, "o1", out(cast("lanes", constant("c", "s8.0", "(vectorRollTag 100 -3 5)"), "[3] s4.0")));
    output(model, "o2", out(cast("all", constant("d", "[3] s8.0", "100"), "[3] s4.0")));
    output(model, "o3",
           out(cast("parts", constant("e", "s8.0", "(complexRollTag 100 -100)"), "c s4.0",
                    {{"castSaturateMode", "saturateSymmetric"}})));
    output(model, "o4", out(cast("part", constant("f", "c s8.0", "100"), "c s4.0")));
    output(model, "o5", out(cast("both", constant("g", "s8.0", pairs), "[2] c s4.0")));
    output(model, "o6", out(cast("spread", constant("h", "s8.0", "100"), "[2] s4.0")));
    run();
    EXPECT_EQ(text("(c lanes)", A_CONST_VALUE), "(vectorRollTag 4 -3 5)");
    EXPECT_EQ(text("(c lanes)", A_CONST_TYPE), "(typeVector 3 (typeSFixed 4 0))");
    EXPECT_EQ(text("(d all)", A_CONST_VALUE), "4");
    EXPECT_EQ(text("(e parts)", A_CONST_VALUE), "(complexRollTag 7 -7)");
    EXPECT_EQ(text("(f part)", A_CONST_VALUE), "4");
    EXPECT_EQ(text("(g both)", A_CONST_VALUE), "(vectorRollTag (complexRollTag 1 4) (complexRollTag 2 -2))");
    EXPECT_EQ(text("(h spread)", A_CONST_VALUE), "4");
}

TEST_F(ConstCastTest, carriesTheWishForWarnings) {
    constant("c", "s8.0", "100").getBlock().setParam(A_CONST_WARN_SATURATION, A_TRUE);
    constant("d", "s8.0", "100").getBlock().setParam(A_CONST_WARN_SATURATION, A_FALSE);
    for (const char *name : {"c", "d"}) {
        output(model, std::string("o") + name, out(cast(std::string("cast ") + name, out(*find(name)), "s4.0")));
    }
    run();
    EXPECT_EQ(text("(c \"cast c\")", A_CONST_WARN_SATURATION), A_TRUE.text());
    EXPECT_EQ(text("(d \"cast d\")", A_CONST_WARN_SATURATION), A_FALSE.text());
}

TEST_F(ConstCastTest, leavesModelsThatAreSwitchedOff) {
    model.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    output(model, "o", out(cast("cast", constant("c", "s8.0", "100"), "s4.0")));
    run();
    EXPECT_NE(model.getBlock(value("cast")), nullptr);
}

TEST_F(ConstCastTest, foldsInModelsOfSeveralInstances) {
    Model &below = *Model::create(design, "below");
    Block &made = block(below, "c", "constBlock", {{"constValue", "100"}});
    Block &casting = block(below, "cast", "castBlock", {{"castOutputType", "(typeSFixed 4 0)"}});
    casting.setParam(value("0"), *Wire::create(made, A_PRIM_WIRE_OUT));
    Block &sum = block(below, "sum", "addBlock");
    sum.setParam(value("0"), *Wire::create(casting, A_PRIM_WIRE_OUT));
    sum.setParam(value("1"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
    Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(sum, A_PRIM_WIRE_OUT));
    instantiate(below, {"s4.0", "s8.0"});
    run();
    EXPECT_NE(below.getBlock(value("(c cast)")), nullptr);
    EXPECT_EQ(below.getBlock(value("cast")), nullptr);
}

TEST_F(ConstCastTest, handsMetadataOfBothToTheNewConstant) {
    Wire &c = constant("c", "s8.0", "100");
    c.getBlock().setParam(A_METADATA, value("((comment constant))"));
    Block &casting = cast("cast", c, "s4.0");
    casting.setParam(A_METADATA, value("((comment cast))"));
    output(model, "o", out(casting));
    run();
    const std::string all = text("(c cast)", A_METADATA);
    EXPECT_NE(all.find("(comment constant)"), std::string::npos) << all;
    EXPECT_NE(all.find("(comment cast)"), std::string::npos) << all;
}

TEST_F(ConstCastTest, movesLatencyConstraints) {
    Wire &c = constant("c", "s8.0", "100");
    c.getBlock().setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (4)))", mgr.context()));
    Block &casting = cast("cast", c, "s4.0");
    casting.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    casting.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    Block &reader = block(model, "not", "notBlock");
    reader.setParam(value("0"), out(casting));
    output(model, "o", *Wire::create(reader, A_PRIM_WIRE_OUT));
    rewrite();
    EXPECT_EQ(text("not", A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))");
    EXPECT_EQ(text("(c cast)", A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5 4)))");
    EXPECT_EQ(model.size(), 3U);
}

TEST_F(ConstCastTest, hasLatencyConstraintsOfAConstantHoldForAllThatItBecomes) {
    for (const bool stays : {false, true}) {
        SCOPED_TRACE(stays);
        while (model.begin() != model.end()) {
            delete &*model.begin();
        }
        Wire &c = constant("c", "s8.0", "100");
        c.getBlock().setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (4)))", mgr.context()));
        Block &first = cast("first", c, "s7.0");
        Block &second = cast("second", c, "s4.0");
        output(model, "o1", out(cast("deeper", out(first), "s5.0")));
        output(model, "o2", out(second));
        output(model, "o3", *Wire::create(second, A_CAST_WIRE_CLIP));
        if (stays) {
            output(model, "o4", c);
        }
        rewrite();
        for (const char *name : {"((c first) deeper)", "(c second)", "(c second clip)"}) {
            EXPECT_EQ(text(name, A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (4)))") << name;
        }
        EXPECT_EQ(find("c") != nullptr, stays);
        if (stays) {
            EXPECT_EQ(text("c", A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (4)))");
        }
    }
}

TEST_F(ConstCastTest, foldsLongChains) {
    constexpr int kCasts = 3000;
    Wire *last = &constant("c", "s8.0", "5");
    for (int i = 0; i < kCasts; ++i) {
        last = &out(cast("k" + std::to_string(i), *last, "s8.0"));
    }
    output(model, "o", *last);
    rewrite();
    EXPECT_EQ(model.size(), 2U);
}

TEST_F(ConstCastTest, movesEdgesOfDomains) {
    output(model, "o", out(cast("cast", constant("c", "s8.0", "100"), "s4.0")));
    const auto edge = [&](const std::string &block) {
        return "((" + std::string(A_SCHEDULE_DOMAIN_END.text()) + " d (" + block + " " +
               std::string(A_WIRE_TAG.text()) + " primWireOut)))";
    };
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS, Value::parse(edge("cast"), mgr.context()));
    rewrite();
    const ValueRef edges = model.getParam(A_SYNTH_SCHEDULE_DOMAINS);
    ASSERT_TRUE(edges);
    EXPECT_EQ(edges->toString(), edge("(c cast)"));
}

TEST_F(ConstCastTest, doesNothingTheSecondTime) {
    Block &made = cast("cast", constant("c", "s8.0", "100"), "s4.0");
    output(model, "o1", out(made));
    output(model, "o2", *Wire::create(made, A_CAST_WIRE_CLIP));
    run();
    const Lines once = drawn();
    run();
    EXPECT_EQ(drawn(), once);
}

// All casts of small constants.

struct Modes {
    const StaticString *mode;
    const StaticString *rounding;
};

constexpr int kFurtherValues = 8;

/// A vector of all values of the type, and of some beyond and between them.
std::string valuesOf(const test::SmallFormat &format) {
    // Beyond the fraction of all types here, so that steps are integers.
    constexpr int kScale = 10;
    const int step = 1 << (kScale - format.fraction);
    const int least = format.isSigned ? -(1 << (format.width - 1)) : 0;
    const int most = least + (1 << format.width) - 1;
    std::string text = "(vectorRollTag";
    const auto add = [&](int steps) {
        // Hexadecimal, with three digits and a half behind the point.
        const unsigned scaled = static_cast<unsigned>(std::abs(steps)) << 2U;
        char digits[32];
        std::snprintf(digits, sizeof digits, " %s0x%x.%03x", steps < 0 ? "-" : "", scaled >> 12U, scaled & 0xfffU);
        text += digits;
    };
    for (int i = least; i <= most; ++i) {
        add(i * step);
    }
    const int further[kFurtherValues] = {
        (least - 1) * step,     (least - 5) * step,      (most + 1) * step, (most + 9) * step,
        most * step + step / 2, least * step - step / 2, step / 2,          -step / 2};
    for (const int steps : further) {
        add(steps);
    }
    return text + ")";
}

/// One design of all pairs of types, each saturation side by side.
class AllConstantCasts {
  public:
    AllConstantCasts(Context *context, const Modes &modes) : mContext(context), mDesign(context) {
        Model &top = *Model::create(mDesign, "top");
        Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
        std::uint64_t number = 0;
        for (const test::SmallFormat &from : test::smallFormats(6, 1)) {
            Block &made = *Block::create(top, "c", A_CONST_BLOCK);
            made.setParam(A_CONST_TYPE, Value::parse(from.text(), context));
            made.setParam(A_CONST_VALUE, Value::parse(valuesOf(from), context));
            Wire &wire = *Wire::create(made, A_PRIM_WIRE_OUT);
            for (const test::SmallFormat &to : test::smallFormats(6, 1)) {
                for (const StaticString *saturation : {&A_SATURATE_NONE, &A_SATURATE_ASYM, &A_SATURATE_SYM}) {
                    const bool converts = modes.mode == &A_CAST_MODE_CONVERT;
                    // Bits that are kept do not saturate.
                    const bool isAnother = converts || (from.width == to.width && saturation == &A_SATURATE_NONE);
                    if (isAnother && number++ % testing::kExhaustiveStride == 0) {
                        const int lanes = (1 << from.width) + kFurtherValues;
                        add(top, out, wire, "(typeVector " + std::to_string(lanes) + " " + to.text() + ")", modes,
                            *saturation);
                    }
                }
            }
        }
    }
    Design &design() { return mDesign; }

  private:
    void add(Model &top, Block &out, Wire &wire, const std::string &type, const Modes &modes,
             const StaticString &saturation) {
        const std::string number = std::to_string(1000000 + mCasts++);
        Block &cast = *Block::create(top, "cast" + number, A_CAST_BLOCK);
        cast.setParam(A_CAST_OUTPUT_TYPE, Value::parse(type, mContext));
        cast.setParam(A_CAST_MODE, *modes.mode);
        cast.setParam(A_CAST_ROUNDING_MODE, *modes.rounding);
        cast.setParam(A_CAST_SATURATE_MODE, saturation);
        cast.setParam(NumberValue::get(0, mContext), wire);
        out.setParam(StringValue::get("o" + number, mContext), *Wire::create(cast, A_PRIM_WIRE_OUT));
        out.setParam(StringValue::get("o" + number + "c", mContext), *Wire::create(cast, A_CAST_WIRE_CLIP));
    }

    Context *mContext;
    Design mDesign;
    std::size_t mCasts = 0;
};

class EverySmallConstantCast : public ::testing::TestWithParam<Modes> {};

TEST_P(EverySmallConstantCast, isFoldedToWhatItGave) {
    ContextMgr mgr;
    AllConstantCasts before(mgr.context(), GetParam());
    AllConstantCasts after(mgr.context(), GetParam());
    test::runPass(after.design(), "ConstCastPass");
    for (const Block &block : *after.design().begin()) {
        ASSERT_NE(block.type(), A_CAST_BLOCK.get_ptr()) << block.getName()->toString();
    }
    sim::Simulator first(before.design(), *before.design().begin());
    sim::Simulator second(after.design(), *after.design().begin());
    ASSERT_EQ(first.outputs().size(), second.outputs().size());
    first.step();
    second.step();
    for (std::size_t i = 0; i < first.outputs().size(); ++i) {
        ASSERT_EQ(first.outputs()[i].name, second.outputs()[i].name);
        ASSERT_EQ(first.outputInteger(i), second.outputInteger(i)) << first.outputs()[i].name;
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, EverySmallConstantCast,
                         ::testing::Values(Modes{&A_CAST_MODE_CONVERT, &A_ROUNDING_TRUNC},
                                           Modes{&A_CAST_MODE_CONVERT, &A_ROUNDING_TRUNC_TO_ZERO},
                                           Modes{&A_CAST_MODE_CONVERT, &A_ROUNDING_BIASED},
                                           Modes{&A_CAST_MODE_CONVERT, &A_ROUNDING_UNBIASED},
                                           Modes{&A_CAST_MODE_REINTERP, &A_ROUNDING_TRUNC}),
                         [](const auto &at) {
                             return std::string(at.param.mode->text()) + "_" + std::string(at.param.rounding->text());
                         });

TEST_F(ConstCastTest, cutsWhereTheModeIsOneOfFloats) {
    output(model, "o",
           out(cast("cast", constant("c", "s4.2", "-0x2.4"), "s4.0", {{"castRoundingMode", "roundingUp"}})));
    run();
    EXPECT_EQ(text("(c cast)", A_CONST_VALUE), "-3");
}

TEST_F(ConstCastTest, foldsConstantsOfHundredsOfBits) {
    Wire &c = constant("c", "s300.0", "-0x123456789abcdef0123456789abcdef0123456789.8");
    output(model, "o1", out(cast("narrow", c, "u70.2", {{"castRoundingMode", "roundingUnbiased"}})));
    output(model, "o2", out(cast("wide", c, "s400.300")));
    output(model, "o3", out(cast("bits", c, "u0.300", {{"castMode", "castModeReinterp"}})));
    run();
    EXPECT_EQ(drawn().size(), 3U);
}

// Designs by chance.

RC_GTEST_PROP(ConstCastPassOnRandomDesigns, computesTheSame, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    RC_ASSERT(static_cast<bool>(test::computesTheSame(generator, *test::recipes(40), "ConstCastPass", nullptr)));
}

TEST(ConstCastPassOnRandomDesigns, computesTheSameWhereMuchIsRewritten) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::size_t replaced = 0;
    for (std::uint64_t seed = 1; seed <= 30; ++seed) {
        EXPECT_TRUE(test::computesTheSame(generator, gen::recipesOf(seed, 80), "ConstCastPass", &replaced)) << seed;
    }
    EXPECT_GT(replaced, 5U);
}

} // namespace
} // namespace orvo
