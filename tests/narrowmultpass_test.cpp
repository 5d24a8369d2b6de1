// Multipliers of operands that were widened for nothing: which read the narrow ones, which may not, and that every
// small one computes what it did.
#include "orvo/narrowmultpass.h"

#include "support/exhaustive.h"
#include "support/invariants.h"
#include "support/onepass.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/typeinferpass.h>
#include <orvo/types.h>

#include <util/features.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <fmt/format.h>

#include <functional>
#include <memory>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class NarrowMult : public test::SimulatorFixture {
  protected:
    using Draw = std::function<void(Model &)>;

    ~NarrowMult() override { util::ClearFeature("skip_NarrowMultPass"); }

    std::unique_ptr<Design> make(const Draw &draw) {
        auto design = std::make_unique<Design>(mgr.context());
        draw(*Model::create(*design, "top"));
        return design;
    }
    static void run(Design &design) { test::runPass(design, "NarrowMultPass"); }
    /// What the multiplier "m" of the design reads behind the pass, which must compute what it did, and its product.
    std::string narrowed(const Draw &draw) {
        const auto before = make(draw);
        mDesign = make(draw);
        run(*mDesign);
        test::expectSameBehaviour(*before, *mDesign);
        return types(*mDesign->begin()->getBlock(value("m")));
    }
    static std::string types(const Block &mult) {
        GlobalTypePass types;
        types.bindEvents(mult.getDesign());
        std::string text;
        for (const Port &port : mult.ports()) {
            text += readableType(types.getType(port, {}).get_ptr()) + " ";
        }
        text += "-> " + readableType(types.getType(mult.getWire(A_PRIM_WIRE_OUT), {}).get_ptr());
        types.unbindEvents();
        return text;
    }
    Wire &cast(Model &model, Wire &in, const std::string &type, const Texts &params = {}, const char *name = "c") {
        Block &made = block(model, name, "castBlock", params);
        if (!type.empty()) {
            made.setParam(A_CAST_OUTPUT_TYPE, ValueRef(value(testing::typeText(type))));
        }
        made.setParam(value("0"), in);
        return out(made);
    }
    Block &mult(Model &model, Wire &a, Wire &b, const Texts &params = {}) {
        Block &made = block(model, "m", "multBlock", params);
        made.setParam(value("0"), a);
        made.setParam(value("1"), b);
        out(made);
        return made;
    }
    /// Operands of these types, both cast to s16.0, and the product cast to s16.0.
    Draw widened(const std::string &a, const std::string &b, const Texts &aParams = {}, const Texts &outParams = {},
                 const std::string &kept = "s16.0", const Texts &multParams = {}) {
        return [=, this](Model &top) {
            Wire &x = cast(top, input(top, "x", a), "s16.0", aParams, "cx");
            Wire &y = cast(top, input(top, "y", b), "s16.0", {}, "cy");
            output(top, "p", cast(top, out(mult(top, x, y, multParams)), kept, outParams, "cp"));
        };
    }

    std::unique_ptr<Design> mDesign;
};

const char *const kStays = "s16.0 s16.0 -> s32.0";

TEST_F(NarrowMult, readsWhatItsOperandsWereWidenedFrom) {
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0")), "s4.0 s6.0 -> s10.0");
    const Model &top = *mDesign->begin();
    EXPECT_FALSE(top.getBlock(value("cx"))->hasReader());
    EXPECT_FALSE(top.getBlock(value("cy"))->hasReader());
    PassScheduler scheduler;
    scheduler.addPass("DeadBlockPass");
    scheduler.apply(*mDesign);
    EXPECT_EQ(top.getBlock(value("cx")), nullptr);
    EXPECT_EQ(top.getBlock(value("cy")), nullptr);
}

TEST_F(NarrowMult, readsUnsignedOperandsThatFit) {
    EXPECT_EQ(narrowed(widened("u4.0", "s6.0")), "u4.0 s6.0 -> s10.0");
    EXPECT_EQ(narrowed(widened("u15.0", "u15.0")), "u15.0 u15.0 -> u30.0");
    // Of 16 bits the top one would become a sign.
    EXPECT_EQ(narrowed(widened("u16.0", "s6.0")), "s16.0 s6.0 -> s22.0");
}

TEST_F(NarrowMult, narrowsOneOperandWhereTheOtherWasNotWidened) {
    EXPECT_EQ(narrowed(widened("s4.0", "s16.0")), "s4.0 s16.0 -> s20.0");
    EXPECT_EQ(narrowed(widened("s20.0", "s4.0")), "s16.0 s4.0 -> s20.0");
    EXPECT_EQ(narrowed([&](Model &top) {
                  Wire &x = cast(top, input(top, "x", "s5.0"), "s16.0");
                  output(top, "p", cast(top, out(mult(top, x, input(top, "y", "s16.0"))), "s9.0"));
              }),
              "s5.0 s16.0 -> s21.0");
}

TEST_F(NarrowMult, keepsASquarerOne) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  Wire &x = cast(top, input(top, "x", "s5.0"), "s16.0");
                  output(top, "p", cast(top, out(mult(top, x, x)), "s9.0"));
              }),
              "s5.0 s5.0 -> s10.0");
}

TEST_F(NarrowMult, goesThroughSeveralWidenings) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  Wire &inner = cast(top, input(top, "x", "u3.0"), "u5.0");
                  Wire &x = cast(top, cast(top, inner, "s8.0"), "s16.0");
                  Block &sign = block(top, "sel", "bitSelectBlock", {{"bitSelectBitOffset", "0"}});
                  sign.setParam(A_BIT_SELECT_OUTPUT_TYPE, ValueRef(value(testing::typeText("s16.0"))));
                  sign.setParam(value("0"), input(top, "y", "s4.0"));
                  output(top, "p", cast(top, out(mult(top, x, out(sign))), "s16.0"));
              }),
              "u3.0 s4.0 -> s7.0");
}

TEST_F(NarrowMult, stopsAtWhatChangesTheValue) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  // A narrowing cast, a selection that is cut at the bottom, one that loses the sign.
                  Wire &x = cast(top, cast(top, input(top, "x", "s12.0"), "s6.0"), "s16.0");
                  Block &sign = block(top, "sel", "bitSelectBlock", {{"bitSelectBitOffset", "1"}});
                  sign.setParam(A_BIT_SELECT_OUTPUT_TYPE, ValueRef(value(testing::typeText("s16.0"))));
                  sign.setParam(value("0"), input(top, "y", "s4.0"));
                  output(top, "p", cast(top, out(mult(top, x, out(sign))), "s16.0"));
              }),
              "s6.0 s16.0 -> s22.0");
    EXPECT_EQ(narrowed([&](Model &top) {
                  Wire &x = cast(top, cast(top, input(top, "x", "s4.0"), "u8.0"), "s16.0");
                  output(top, "p", cast(top, out(mult(top, x, input(top, "y", "s16.0"))), "s16.0"));
              }),
              "u8.0 s16.0 -> s24.0");
}

TEST_F(NarrowMult, takesAnyRoundingAndSaturationOfAWidening) {
    for (const char *rounding : {"roundingTrunc", "roundingTruncToZero", "roundingBiased", "roundingUnbiased"}) {
        for (const char *saturation : {"saturateNone", "saturateSymmetric", "saturateAsymmetric"}) {
            EXPECT_EQ(narrowed(widened("s4.0", "s6.0",
                                       {{"castMode", "castModeConvert"},
                                        {"castRoundingMode", rounding},
                                        {"castSaturateMode", saturation}})),
                      "s4.0 s6.0 -> s10.0");
        }
    }
}

TEST_F(NarrowMult, leavesOperandsThatAreNoWidenedIntegers) {
    EXPECT_EQ(narrowed(widened("s20.0", "s16.0")), kStays);
    EXPECT_EQ(narrowed(widened("s4.2", "s4.-2")), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s16.0", {{"castMode", "castModeReinterp"}})), kStays);
    EXPECT_EQ(narrowed(widened("float(23,8)", "s16.0")), kStays);
}

TEST_F(NarrowMult, leavesAProductWhoseCastKeepsMoreOrDoesMore) {
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "s17.0")), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "u16.0")), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "s8.2")), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {{"castSaturateMode", "saturateSymmetric"}})), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {{"castSaturateMode", "saturateAsymmetric"}})), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {{"castRoundingMode", "roundingBiased"}})), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {{"castMode", "castModeReinterp"}})), kStays);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "s3.0")), "s4.0 s6.0 -> s10.0");
}

TEST_F(NarrowMult, leavesAProductWithOtherReaders) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  widened("s4.0", "s6.0")(top);
                  output(top, "q", out(*top.getBlock(value("m"))));
              }),
              kStays);
    EXPECT_EQ(narrowed([&](Model &top) {
                  Wire &x = cast(top, input(top, "x", "s4.0"), "s16.0");
                  output(top, "p", out(mult(top, x, x)));
              }),
              kStays);
    EXPECT_EQ(narrowed([&](Model &top) {
                  Wire &x = cast(top, input(top, "x", "s4.0"), "s16.0");
                  mult(top, x, x);
                  output(top, "p", x);
              }),
              kStays);
}

TEST_F(NarrowMult, leavesOperandsOfDifferentWidthsFractionsAndSigns) {
    const auto stays = [&](const std::string &a, const std::string &b, const std::string &type) {
        EXPECT_EQ(narrowed([&](Model &top) {
                      Wire &x = cast(top, input(top, "x", "u3.0"), a);
                      Wire &y = cast(top, input(top, "y", "u3.0"), b);
                      output(top, "p", cast(top, out(mult(top, x, y)), "s6.0"));
                  }),
                  type);
    };
    stays("s8.0", "s9.0", "s8.0 s9.0 -> s17.0");
    stays("s8.1", "s8.0", "s8.1 s8.0 -> s16.1");
    stays("u8.0", "u8.0", "u8.0 u8.0 -> u16.0");
    stays("u8.0", "s8.0", "u8.0 s8.0 -> s16.0");
}

TEST_F(NarrowMult, keepsAGivenTypeThatWraps) {
    const std::string narrow = testing::typeText("s7.0");
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "s16.0", {{"multType", narrow.c_str()}})), "s4.0 s6.0 -> s7.0");
    const std::string wide = testing::typeText("s20.0");
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "s16.0", {{"multType", wide.c_str()}})), "s4.0 s6.0 -> s10.0");
    EXPECT_EQ(mDesign->begin()->getBlock(value("m"))->findParam(A_MULT_TYPE), nullptr);
    // A cast without a type would pass the new one on.
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "", {{"multType", narrow.c_str()}})), "s16.0 s16.0 -> s7.0");
    const std::string unsignedType = testing::typeText("u20.0");
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0", {}, {}, "s16.0", {{"multType", unsignedType.c_str()}})),
              "s16.0 s16.0 -> u20.0");
}

TEST_F(NarrowMult, keepsHowTheMultiplierIsBuiltAndWhatElseReadsTheCasts) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  widened("s4.0", "s6.0", {{"castSaturateMode", "saturateSymmetric"}}, {}, "s16.0",
                          {{"multArchitecture", "multArchLogic"}})(top);
                  Block &x = *top.getBlock(value("cx"));
                  output(top, "x16", out(x));
                  output(top, "clip", *Wire::create(x, A_CAST_WIRE_CLIP));
              }),
              "s4.0 s6.0 -> s10.0");
    EXPECT_TRUE(mDesign->begin()->getBlock(value("m"))->findParam(A_MULT_ARCHITECTURE) == A_MULT_ARCH_LOGIC.get_ptr());
}

TEST_F(NarrowMult, isLeftOutByTheFeature) {
    util::SetFeatureBoolean("skip_NarrowMultPass", true);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0")), kStays);
    util::SetFeatureBoolean("skip_NarrowMultPass", false);
    EXPECT_EQ(narrowed(widened("s4.0", "s6.0")), "s4.0 s6.0 -> s10.0");
}

TEST_F(NarrowMult, leavesModelsThatAreSwitchedOff) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  top.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
                  widened("s4.0", "s6.0")(top);
              }),
              kStays);
}

TEST_F(NarrowMult, doesNothingInASecondRun) {
    narrowed(widened("s4.0", "s6.0"));
    run(*mDesign);
    EXPECT_EQ(types(*mDesign->begin()->getBlock(value("m"))), "s4.0 s6.0 -> s10.0");
}

TEST_F(NarrowMult, leavesWhatIsNoProductOfTwoRealScalars) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  Wire &x = cast(top, input(top, "x", "[2]s4.0"), "[2]s16.0");
                  output(top, "p", cast(top, out(mult(top, x, x)), "[2]s16.0"));
              }),
              "[2] s16.0 [2] s16.0 -> [2] s32.0");
    const auto design = make([&](Model &top) {
        Block &m = mult(top, cast(top, input(top, "x", "s4.0"), "s16.0"), input(top, "y", "s16.0"));
        m.setParam(value("1"), ValueRef());
        output(top, "p", cast(top, out(m), "s16.0"));
    });
    run(*design);
    EXPECT_EQ(types(*design->begin()->getBlock(value("m"))), "s16.0 -> s16.0");
    const auto three = make([&](Model &top) {
        Wire &x = cast(top, input(top, "x", "s4.0"), "s16.0");
        Block &m = mult(top, x, x);
        m.setParam(value("2"), x);
        output(top, "p", cast(top, out(m), "s16.0"));
    });
    run(*three);
    EXPECT_EQ(types(*three->begin()->getBlock(value("m"))), "s16.0 s16.0 s16.0 -> s48.0");
    const auto unknown = make([&](Model &top) {
        Wire &x = cast(top, *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"), "s16.0");
        Block &open = block(top, "open", "castBlock");
        open.setParam(A_CAST_OUTPUT_TYPE, ValueRef(value(testing::typeText("s16.0"))));
        output(top, "p", cast(top, out(mult(top, x, out(open))), "s16.0"));
    });
    run(*unknown);
    EXPECT_EQ(types(*unknown->begin()->getBlock(value("m"))), kStays);
}

TEST_F(NarrowMult, takesMetadataOfCastsThatOnlyItNeeded) {
    narrowed([&](Model &top) {
        widened("s4.0", "s6.0")(top);
        top.getBlock(value("m"))->setParam(A_METADATA, value("((comment product))"));
        top.getBlock(value("cx"))->setParam(A_METADATA, value("((comment dead))"));
        top.getBlock(value("cy"))->setParam(A_METADATA, value("((comment read))"));
        output(top, "y16", out(*top.getBlock(value("cy"))));
    });
    EXPECT_EQ(mDesign->begin()->getBlock(value("m"))->findParam(A_METADATA)->toString(),
              "((comment product) (comment dead))");
}

TEST_F(NarrowMult, goesPastNoPoint) {
    EXPECT_EQ(narrowed([&](Model &top) {
                  widened("s4.0", "s6.0")(top);
                  top.getBlock(value("cx"))
                      ->setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
              }),
              kStays);
    EXPECT_EQ(narrowed([&](Model &top) {
                  widened("s4.0", "s6.0")(top);
                  top.getBlock(value("m"))
                      ->setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
              }),
              "s4.0 s6.0 -> s10.0");
}

/// A model of a product, instantiated with these types of its first operand.
class NarrowMultInInstances : public NarrowMult {
  protected:
    bool narrows(const std::vector<std::string> &inputs) {
        const Draw draw = [&](Model &top) {
            Model &below = *Model::create(top.getDesign(), "below");
            Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
            Wire &x = cast(below, *Wire::create(in, value("x")), "s16.0");
            Block::create(below, "out", A_OUTPUT_BLOCK)
                ->setParam(value("y"), cast(below, out(mult(below, x, x)), "s16.0"));
            for (std::size_t i = 0; i < inputs.size(); ++i) {
                const std::string number = std::to_string(i);
                Block &instance = *Block::create(top, "i" + number, A_MODEL_BLOCK);
                instance.setParam(A_MODEL_NODE, below);
                instance.setParam(value("x"), input(top, "a" + number, inputs[i]));
                output(top, "o" + number, *Wire::create(instance, value("y")));
            }
        };
        const auto before = make(draw);
        const auto after = make(draw);
        run(*after);
        test::expectSameBehaviour(*before, *after);
        const Block &m = *after->getModel(value("below"))->getBlock(value("m"));
        return m.getPort(value("0"))->peekWire()->getBlock().type() == A_INPUT_BLOCK.get_ptr();
    }
};

TEST_F(NarrowMultInInstances, happensWhereverItHoldsInAllOfThem) {
    EXPECT_TRUE(narrows({"s4.0"}));
    EXPECT_TRUE(narrows({"s4.0", "s8.0"}));
    EXPECT_TRUE(narrows({"s4.0", "u8.0"}));
}

TEST_F(NarrowMultInInstances, doesNotHappenWhereItFailsInOne) {
    EXPECT_FALSE(narrows({"s4.0", "s16.0"}));
    EXPECT_FALSE(narrows({"s20.0", "s4.0"}));
    EXPECT_FALSE(narrows({"s4.0", "s4.1"}));
}

/// All operands and products of a few bits, in designs of many multipliers, on all inputs.
TEST_F(NarrowMult, computesTheSameForEverySmallProduct) {
    struct Case {
        std::string x;
        std::string y;
        int width;
        int kept;
        std::string given;
    };
    std::vector<Case> cases;
    std::uint64_t seen = 0;
    for (int width = 1; width <= 6; ++width) {
        for (int x = 1; x <= 4; ++x) {
            for (int y = 1; y <= 4; ++y) {
                for (int signs = 0; signs < 4; ++signs) {
                    for (int kept = 1; kept <= width; ++kept) {
                        for (const char *given : {"", "s1.0", "s3.0", "s7.0", "s9.0"}) {
                            if (seen++ % testing::kExhaustiveStride == 0) {
                                cases.push_back({fmt::format("{}{}.0", (signs & 1) != 0 ? 's' : 'u', x),
                                                 fmt::format("{}{}.0", (signs & 2) != 0 ? 's' : 'u', y), width, kept,
                                                 given});
                            }
                        }
                    }
                }
            }
        }
    }
    const auto draw = [&](Model &top) {
        Wire &a = input(top, "a", "u4.0");
        Wire &b = input(top, "b", "u4.0");
        const auto low = [&](Wire &in, const std::string &type) -> Wire & {
            Block &made = block(top, "low", "bitSelectBlock", {{"bitSelectBitOffset", "0"}});
            made.setParam(A_BIT_SELECT_OUTPUT_TYPE, ValueRef(value(testing::typeText(type))));
            made.setParam(value("0"), in);
            return out(made);
        };
        for (std::size_t i = 0; i < cases.size(); ++i) {
            const Case &one = cases[i];
            const std::string wide = fmt::format("s{}.0", one.width);
            Block &m = block(top, fmt::format("m{}", i), "multBlock");
            m.setParam(value("0"), cast(top, low(a, one.x), wide));
            m.setParam(value("1"), cast(top, low(b, one.y), wide));
            if (!one.given.empty()) {
                m.setParam(A_MULT_TYPE, ValueRef(value(testing::typeText(one.given))));
            }
            output(top, fmt::format("p{}", i), cast(top, out(m), fmt::format("s{}.0", one.kept)));
        }
    };
    const auto before = make(draw);
    const auto after = make(draw);
    run(*after);
    std::size_t narrow = 0;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Block &m = *after->begin()->getBlock(value(fmt::format("m{}", i)));
        narrow += m.getPort(value("0"))->peekWire()->getBlock().type() == A_BIT_SELECT_BLOCK.get_ptr() ? 1 : 0;
    }
    EXPECT_GT(narrow * 3, cases.size());
    sim::Simulator first(*before, *before->begin());
    sim::Simulator second(*after, *after->begin());
    ASSERT_EQ(first.outputs().size(), cases.size());
    ASSERT_EQ(second.outputs().size(), cases.size());
    for (std::int64_t x = 0; x < 256; ++x) {
        for (sim::Simulator *simulator : {&first, &second}) {
            simulator->setInput(0, x & 15);
            simulator->setInput(1, x >> 4);
            simulator->step();
        }
        for (std::size_t i = 0; i < cases.size(); ++i) {
            ASSERT_EQ(first.outputs()[i].name, second.outputs()[i].name);
            ASSERT_EQ(first.outputs()[i].width, second.outputs()[i].width);
            ASSERT_EQ(first.outputInteger(i), second.outputInteger(i)) << first.outputs()[i].name << " " << x;
        }
    }
}

RC_GTEST_PROP(NarrowMultOnRandomDesigns, computesTheSame, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto before = generator.make(recipes);
    const auto after = generator.make(recipes);
    PassScheduler scheduler;
    scheduler.addPass("NarrowMultPass");
    scheduler.apply(*after);
    RC_ASSERT(static_cast<bool>(test::checkInvariants(*after)));
    sim::CompareOptions options;
    options.cycles = 40;
    RC_ASSERT(static_cast<bool>(test::sameBehaviour(*before, *after, "top", options)));
}

} // namespace
} // namespace orvo
