// Known zeros at the ends of a multiplier's operands: which go, what the product becomes, and that every small
// multiplier computes what it did, whatever its operands are joined from.
#include "orvo/propagateconstantspass.h"

#include "orvo/propagatehandlers.h"

#include "support/cataloguefindings.h"
#include "support/exhaustive.h"
#include "support/invariants.h"
#include "support/onepass.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/blockclass.h>
#include <orvo/modeltreepass.h>
#include <orvo/nameorigin.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <fmt/format.h>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <set>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;
using Drawing = std::map<std::string, std::string>;

class PropagateConstants : public test::SimulatorFixture {
  protected:
    /// Draws a model "top" into a design.
    using Draw = std::function<void(Model &)>;

    std::unique_ptr<Design> make(const Draw &draw) {
        auto design = std::make_unique<Design>(mgr.context());
        draw(*Model::create(*design, "top"));
        return design;
    }
    static void run(Design &design) { test::runPass(design, "PropagateConstantsPass"); }
    /// The design behind the pass, which must compute what it did. Readers must read the types that they did.
    Design &propagated(const Draw &draw) {
        const auto before = make(draw);
        mDesign = make(draw);
        const auto types = readerTypes(*before);
        run(*mDesign);
        EXPECT_EQ(readerTypes(*mDesign), types);
        EXPECT_EQ(test::newCatalogueFindings(*before, *mDesign), Lines{});
        const NameOrigins origins(*before);
        for (const Block &block : *mDesign->begin()) {
            EXPECT_TRUE(origins.originOf(block)) << block.getName()->toString();
        }
        sim::CompareOptions options;
        options.cycles = 300;
        test::expectSameBehaviour(*before, *mDesign, "top", options);
        return *mDesign;
    }
    /// Types at the ports of the blocks of the model's edge.
    static std::map<std::string, std::string> readerTypes(Design &design) {
        GlobalTypePass types;
        types.bindEvents(design);
        std::map<std::string, std::string> found;
        const Block *out = design.begin()->getOutputBlock();
        for (const Port &port : out->ports()) {
            const PureValueRef type = types.getType(port, {});
            found[port.getName()->toString()] = type ? type->toString() : "";
        }
        types.unbindEvents();
        return found;
    }
    /// Types of the multipliers and of what was made beside them, by name.
    static Drawing drawnIn(const Design &design) {
        Drawing drawn;
        for (const Block &block : *design.begin()) {
            const std::string name = block.getName()->toString();
            if (name[0] == 'm' || name.find("m_") != std::string::npos) {
                drawn[name] = block.type()->toString();
            }
        }
        return drawn;
    }
    Drawing drawn(const Draw &draw) { return drawnIn(propagated(draw)); }
    std::string param(const std::string &block, const StaticString &key) {
        const Block *found = mDesign->begin()->getBlock(value(block));
        const ValueRef set = found == nullptr ? ValueRef() : found->getParam(key);
        return set ? set->toString() : "";
    }
    /// The type at an end of a block of the design, "?" if there is none.
    std::string typeAt(const std::string &block, const char *port) {
        GlobalTypePass types;
        types.bindEvents(*mDesign);
        const Block *found = mDesign->begin()->getBlock(value(block));
        const Port *end = found == nullptr ? nullptr : found->getPort(value(port));
        const std::string type = end == nullptr ? "none" : readableType(types.getType(*end, {}).get_ptr());
        types.unbindEvents();
        return type;
    }
    Wire &constant(Model &model, const std::string &number, const std::string &type) {
        Block &made = block(model, "c", "constBlock", {{"constValue", number.c_str()}});
        if (!type.empty()) {
            made.setParam(A_CONST_TYPE, ValueRef(value(testing::typeText(type))));
        }
        return out(made);
    }
    /// Port 0 first.
    Wire &join(Model &model, const std::vector<Wire *> &parts) {
        Block &made = block(model, "j", "bitJoinBlock");
        for (std::size_t i = 0; i < parts.size(); ++i) {
            made.setParam(NumberValue::get(static_cast<int>(i), mgr.context()), *parts[i]);
        }
        return out(made);
    }
    /// A multiplier "m" whose product is the output "p".
    Block &mult(Model &model, Wire &a, Wire &b, const Texts &params = {}, const std::string &name = "m") {
        Block &made = block(model, name, "multBlock", params);
        made.setParam(value("0"), a);
        made.setParam(value("1"), b);
        output(model, name == "m" ? "p" : "p" + name, out(made));
        return made;
    }

    std::unique_ptr<Design> mDesign;
};

TEST_F(PropagateConstants, takesLowZerosOffAndJoinsThemToTheProduct) {
    EXPECT_EQ(
        drawn([&](Model &top) {
            mult(top, join(top, {&constant(top, "0", "u3.0"), &input(top, "x", "u5.0")}), input(top, "y", "u4.0"));
        }),
        (Drawing{{"m", "multBlock"},
                 {"m_narrowed", "bitSelectBlock"},
                 {"m_extender", "bitJoinBlock"},
                 {"m_zero", "constBlock"}}));
    EXPECT_EQ(param("m_narrowed", A_BIT_SELECT_BIT_OFFSET), "3");
    EXPECT_EQ(param("m_narrowed", A_BIT_SELECT_OUTPUT_TYPE), "(typeUFixed 8 -3)");
    EXPECT_EQ(typeAt("m", "0"), "u8.-3");
    EXPECT_EQ(typeAt("m", "1"), "u4.0");
    EXPECT_EQ(typeAt("m_extender", "0"), "u0.3");
    EXPECT_EQ(typeAt("m_extender", "1"), "u12.-3");
    EXPECT_EQ(param("m", A_MULT_TYPE), "");
}

TEST_F(PropagateConstants, takesHighZerosOffAndPutsAConstantAboveTheProduct) {
    EXPECT_EQ(
        drawn([&](Model &top) {
            mult(top, input(top, "y", "u4.0"), join(top, {&input(top, "x", "u5.0"), &constant(top, "0", "u3.0")}));
        }),
        (Drawing{{"m", "multBlock"},
                 {"m_narrowed", "bitSelectBlock"},
                 {"m_extender", "bitJoinBlock"},
                 {"m_multconst", "constBlock"}}));
    EXPECT_EQ(param("m_narrowed", A_BIT_SELECT_OUTPUT_TYPE), "(typeUFixed 5 0)");
    EXPECT_EQ(typeAt("m", "1"), "u5.0");
    EXPECT_EQ(typeAt("m_extender", "0"), "u9.0");
    EXPECT_EQ(typeAt("m_extender", "1"), "u3.0");
}

TEST_F(PropagateConstants, peelsBothEndsOfBothOperandsAtOnce) {
    EXPECT_EQ(
        drawn([&](Model &top) {
            const auto operand = [&](const char *name) -> Wire & {
                return join(top, {&constant(top, "0", "u1.0"), &input(top, name, "u3.0"), &constant(top, "0", "u2.0")});
            };
            mult(top, operand("x"), operand("y"));
        }).size(),
        6U);
    EXPECT_EQ(typeAt("m", "0"), "u4.-1");
    EXPECT_EQ(typeAt("m", "1"), "u4.-1");
    EXPECT_EQ(typeAt("m_extender", "0"), "u0.2");
    EXPECT_EQ(typeAt("m_extender", "1"), "u8.-2");
    EXPECT_EQ(typeAt("m_extender", "2"), "u4.0");
}

TEST_F(PropagateConstants, keepsAMultiplierOfUnknownBits) {
    EXPECT_EQ(drawn([&](Model &top) { mult(top, input(top, "x", "u5.0"), input(top, "y", "u5.0")); }).size(), 1U);
    EXPECT_EQ(drawn([&](Model &top) {
                  // The zeros lie in the middle.
                  mult(top,
                       join(top, {&input(top, "x", "u2.0"), &constant(top, "0", "u2.0"), &input(top, "z", "u2.0")}),
                       input(top, "y", "u5.0"));
              }).size(),
              1U);
}

TEST_F(PropagateConstants, takesOffNoKnownOnes) {
    for (const char *type : {"u3.0", "s3.0"}) {
        const char *ones = *type == 'u' ? "7" : "-1";
        EXPECT_EQ(
            drawn([&](Model &top) {
                mult(top, join(top, {&input(top, "x", "u3.0"), &constant(top, ones, type)}), input(top, "y", "s4.0"));
            }).size(),
            1U)
            << type;
        EXPECT_EQ(
            drawn([&](Model &top) {
                mult(top, join(top, {&constant(top, ones, type), &input(top, "x", "s3.0")}), input(top, "y", "s4.0"));
            }).size(),
            1U)
            << type;
    }
}

TEST_F(PropagateConstants, takesOffTheZerosOfAConstantPartThatIsNotAllZero) {
    propagated([&](Model &top) {
        // 00110 x 100 from the top.
        mult(top, join(top, {&constant(top, "4", "u3.0"), &input(top, "x", "u1.0"), &constant(top, "6", "u5.0")}),
             input(top, "y", "u3.0"));
    });
    EXPECT_EQ(typeAt("m", "0"), "u7.-2");
}

TEST_F(PropagateConstants, keepsTheSignOfASignedOperandWhoseTopIsUnknown) {
    EXPECT_EQ(
        drawn([&](Model &top) {
            mult(top, join(top, {&constant(top, "0", "u3.0"), &input(top, "x", "s5.0")}), input(top, "y", "u4.0"));
        }).count("m_signextend"),
        0U);
    EXPECT_EQ(param("m_narrowed", A_BIT_SELECT_OUTPUT_TYPE), "(typeSFixed 8 -3)");
}

TEST_F(PropagateConstants, knowsThatASignedOperandWithAZeroTopIsNotNegative) {
    const Drawing wanted = {{"m", "multBlock"},
                            {"m_narrowed", "bitSelectBlock"},
                            {"m_extender", "bitJoinBlock"},
                            {"m_multconst", "constBlock"}};
    EXPECT_EQ(
        drawn([&](Model &top) {
            mult(top, join(top, {&input(top, "x", "u5.0"), &constant(top, "0", "s1.0")}), input(top, "y", "u4.0"));
        }),
        wanted);
    EXPECT_EQ(param("m_narrowed", A_BIT_SELECT_OUTPUT_TYPE), "(typeUFixed 5 0)");
    EXPECT_EQ(typeAt("m_extender", "1"), "s1.0");
}

TEST_F(PropagateConstants, extendsASignedProductByItsSign) {
    EXPECT_EQ(drawn([&](Model &top) {
                  mult(top,
                       join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "u3.0"), &constant(top, "0", "s2.0")}),
                       input(top, "y", "s4.0"));
              }),
              (Drawing{{"m", "multBlock"},
                       {"m_narrowed", "bitSelectBlock"},
                       {"m_extender", "bitJoinBlock"},
                       {"m_zero", "constBlock"},
                       {"m_signextend", "bitSelectBlock"}}));
    EXPECT_EQ(typeAt("m_signextend", "0"), "s9.0");
    EXPECT_EQ(param("m_signextend", A_BIT_SELECT_OUTPUT_TYPE), "(typeSFixed 11 0)");
    // Without zeros below there is nothing to join.
    EXPECT_EQ(
        drawn([&](Model &top) {
            mult(top, join(top, {&input(top, "x", "u3.0"), &constant(top, "0", "s2.0")}), input(top, "y", "s4.0"));
        }),
        (Drawing{{"m", "multBlock"}, {"m_narrowed", "bitSelectBlock"}, {"m_signextend", "bitSelectBlock"}}));
}

TEST_F(PropagateConstants, keepsBinaryPoints) {
    for (const char *part : {"u2.3", "u5.0", "u8.-3", "u-1.6"}) {
        for (const char *top : {"u3.0", "s3.0", "u-2.5", "s1.2"}) {
            for (const char *other : {"u2.2", "s1.3", "s7.-3"}) {
                propagated([&](Model &model) {
                    mult(model,
                         join(model,
                              {&constant(model, "0", "u1.1"), &input(model, "x", part), &constant(model, "0", top)}),
                         input(model, "y", other));
                });
                EXPECT_EQ(drawnIn(*mDesign).count("m_narrowed"), 1U) << part << top << other;
            }
        }
    }
}

TEST_F(PropagateConstants, narrowsAConstantToItsOddPart) {
    EXPECT_EQ(drawn([&](Model &top) { mult(top, constant(top, "12", "u8.0"), input(top, "y", "u4.0")); }),
              (Drawing{{"m", "multBlock"},
                       {"m_narrowconst", "constBlock"},
                       {"m_extender", "bitJoinBlock"},
                       {"m_zero", "constBlock"},
                       {"m_multconst", "constBlock"}}));
    EXPECT_EQ(param("m_narrowconst", A_CONST_TYPE), "(typeUFixed 4 -2)");
    EXPECT_EQ(param("m_narrowconst", A_CONST_VALUE), "12");
    propagated([&](Model &top) { mult(top, input(top, "y", "s4.0"), constant(top, "12", "s8.0")); });
    EXPECT_EQ(param("m_narrowconst", A_CONST_TYPE), "(typeUFixed 4 -2)");
    // The sign of a negative one is not known to be zero.
    propagated([&](Model &top) { mult(top, constant(top, "-12", "s8.0"), input(top, "y", "u4.0")); });
    EXPECT_EQ(param("m_narrowconst", A_CONST_TYPE), "(typeSFixed 8 -2)");
    EXPECT_EQ(param("m_narrowconst", A_CONST_VALUE), "-12");
}

TEST_F(PropagateConstants, takesAConstantAsItsTypeHoldsIt) {
    // Saturated, rounded half away from zero, of no given type.
    propagated([&](Model &top) { mult(top, constant(top, "100", "s4.0"), input(top, "y", "u4.0")); });
    EXPECT_EQ(param("m_narrowconst", A_CONST_VALUE), "7");
    propagated([&](Model &top) {
        Wire &half = constant(top, "0", "u6.0");
        half.getBlock().setParam(A_CONST_VALUE, ValueRef(NumberValue::get(2.5, mgr.context())));
        mult(top, half, input(top, "y", "u4.0"));
    });
    EXPECT_EQ(param("m_narrowconst", A_CONST_VALUE), "3");
    propagated([&](Model &top) { mult(top, constant(top, "-100", "s4.0"), input(top, "y", "u4.0")); });
    EXPECT_EQ(param("m_narrowconst", A_CONST_TYPE), "(typeSFixed 4 -3)");
    EXPECT_EQ(drawn([&](Model &top) { mult(top, constant(top, "24", ""), input(top, "y", "u4.0")); }).size(), 4U);
    EXPECT_EQ(param("m_narrowconst", A_CONST_TYPE), "(typeUFixed 5 -3)");
}

TEST_F(PropagateConstants, joinsAConstantOperandFromSeveral) {
    propagated([&](Model &top) {
        mult(top,
             join(top,
                  {&constant(top, "0", "u1.0"), &join(top, {&constant(top, "3", "u2.0"), &constant(top, "1", "u3.0")}),
                   &constant(top, "0", "u2.0")}),
             input(top, "y", "u4.0"));
    });
    EXPECT_EQ(param("m_narrowconst", A_CONST_TYPE), "(typeUFixed 4 -1)");
    EXPECT_EQ(param("m_narrowconst", A_CONST_VALUE), "14");
}

TEST_F(PropagateConstants, makesAConstantOfAProductByZero) {
    for (const char *type : {"u4.0", "s2.2", "s-1.4"}) {
        EXPECT_EQ(drawn([&](Model &top) { mult(top, input(top, "y", "s3.1"), constant(top, "0", type)); }),
                  (Drawing{{"m_multconst", "constBlock"}}));
        EXPECT_EQ(param("m_multconst", A_CONST_VALUE), "0");
    }
    EXPECT_EQ(
        drawn([&](Model &top) {
            mult(top, join(top, {&constant(top, "0", "u1.0"), &constant(top, "0", "u2.0")}), input(top, "y", "u2.0"));
        }),
        (Drawing{{"m_multconst", "constBlock"}}));
}

TEST_F(PropagateConstants, makesAConstantOfAProductOfConstants) {
    EXPECT_EQ(drawn([&](Model &top) { mult(top, constant(top, "-3", "s3.0"), constant(top, "5", "u3.0")); }),
              (Drawing{{"m_multconst", "constBlock"}}));
    EXPECT_EQ(param("m_multconst", A_CONST_VALUE), "-15");
    EXPECT_EQ(param("m_multconst", A_CONST_TYPE), "(typeSFixed 6 0)");
    // What is left of it in a given type.
    for (const char *type : {"u3.0", "s2.1", "u4.-2", "s20.0", "s8.8"}) {
        const std::string text = testing::typeText(type);
        propagated([&](Model &top) {
            Wire &half = constant(top, "0", "s3.1");
            half.getBlock().setParam(A_CONST_VALUE, ValueRef(NumberValue::get(-3.5, mgr.context())));
            mult(top, half, constant(top, "5", "u3.0"), {{"multType", text.c_str()}});
        });
        EXPECT_EQ(drawnIn(*mDesign).size(), 1U) << type;
    }
}

TEST_F(PropagateConstants, keepsASquarerOne) {
    EXPECT_EQ(
        drawn([&](Model &top) {
            Wire &x = join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "u3.0"), &constant(top, "0", "u1.0")});
            mult(top, x, x);
        }),
        (Drawing{{"m", "multBlock"},
                 {"m_narrowed", "bitSelectBlock"},
                 {"m_extender", "bitJoinBlock"},
                 {"m_zero", "constBlock"},
                 {"m_multconst", "constBlock"}}));
    const Block &m = *mDesign->begin()->getBlock(value("m"));
    EXPECT_EQ(m.getPort(value("0"))->peekWire(), m.getPort(value("1"))->peekWire());
    EXPECT_EQ(drawn([&](Model &top) {
                  Wire &x = join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "s3.0")});
                  mult(top, x, x);
              }).size(),
              4U);
}

TEST_F(PropagateConstants, movesAllReadersOfTheProductAndNoneOfTheOperand) {
    propagated([&](Model &top) {
        Wire &x = join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "u3.0")});
        Block &m = mult(top, x, input(top, "y", "s3.0"));
        output(top, "q", out(m));
        output(top, "x2", x);
        Block &neg = block(top, "n", "negBlock");
        neg.setParam(value("0"), out(m));
        output(top, "n", out(neg));
    });
    const Model &top = *mDesign->begin();
    EXPECT_EQ(top.getBlock(value("m"))->getWire(A_PRIM_WIRE_OUT)->port_size(), 1U);
    EXPECT_EQ(top.getBlock(value("m_extender"))->getWire(A_PRIM_WIRE_OUT)->port_size(), 3U);
}

TEST_F(PropagateConstants, looksThroughSeveralLevelsOfJoins) {
    propagated([&](Model &top) {
        Wire &x = join(top, {&constant(top, "0", "u1.0"), &input(top, "x", "u2.0"), &constant(top, "0", "u1.0")});
        Wire &more = join(top, {&constant(top, "0", "u1.0"), &x, &constant(top, "1", "u2.0")});
        Wire &most = join(top, {&more, &join(top, {&constant(top, "0", "u1.0"), &constant(top, "0", "u1.0")})});
        mult(top, join(top, {&most}), input(top, "y", "u2.0"));
    });
    // 00 01 0xx0 0 from the top.
    EXPECT_EQ(typeAt("m", "0"), "u6.-2");
}

TEST_F(PropagateConstants, endsInALoopOfJoins) {
    const auto design = make([&](Model &top) {
        Block &loop = block(top, "loop", "bitJoinBlock");
        loop.setParam(value("0"), constant(top, "0", "u1.0"));
        loop.setParam(value("1"), out(loop));
        mult(top, out(loop), input(top, "y", "u2.0"));
    });
    run(*design);
    EXPECT_EQ(drawnIn(*design).size(), 1U);
}

TEST_F(PropagateConstants, keepsAGivenTypeOfTheProduct) {
    // The product that has to be computed is u9.-2.
    const std::map<std::string, std::string> left = {
        {"u16.0", ""},
        {"s9.0", "(typeSFixed 9 -2)"},
        {"u8.0", "(typeUFixed 8 -2)"},
        {"u4.4", "(typeUFixed 4 -2)"},
        {"u11.-3", "(typeUFixed 9 -3)"},
        {"u11.0", ""},
        {"u14.6", ""},
        {"s9.-2", "(typeSFixed 9 -2)"},
        {"u9.-2", ""},
    };
    for (const auto &[type, wanted] : left) {
        const std::string text = testing::typeText(type);
        propagated([&](Model &top) {
            mult(top, join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "u4.0"), &constant(top, "0", "u2.0")}),
                 input(top, "y", "u3.0"), {{"multType", text.c_str()}});
        });
        EXPECT_EQ(typeAt("m", "0"), "u6.-2") << type;
        EXPECT_EQ(param("m", A_MULT_TYPE), wanted) << type;
    }
}

TEST_F(PropagateConstants, leavesAProductOfWhichAGivenTypeReadsNoKnownBit) {
    const std::string above = testing::typeText("s30.-20");
    EXPECT_EQ(drawn([&](Model &top) {
                  mult(top, join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "s4.0")}), input(top, "y", "s3.0"),
                       {{"multType", above.c_str()}});
              }),
              (Drawing{{"m", "multBlock"}}));
    const std::string below = testing::typeText("u2.0");
    EXPECT_EQ(drawn([&](Model &top) {
                  mult(top, join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "s4.0")}), input(top, "y", "s3.0"),
                       {{"multType", below.c_str()}});
              }),
              (Drawing{{"m_multconst", "constBlock"}}));
}

TEST_F(PropagateConstants, keepsHowTheMultiplierIsBuilt) {
    propagated([&](Model &top) {
        mult(top, join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "u4.0")}), input(top, "y", "u3.0"),
             {{"multArchitecture", "multArchLogic"},
              {"multOptimizeConstBeforeTiling", "true"},
              {"multLogic", "true"},
              {"addNoGrowth", "true"}});
    });
    EXPECT_EQ(param("m", A_MULT_ARCHITECTURE), "multArchLogic");
    EXPECT_EQ(param("m", A_MULT_OPTIMIZE_CONST_BEFORE_TILING), "true");
    EXPECT_EQ(param("m", A_MULT_LOGIC), "true");
    EXPECT_EQ(drawnIn(*mDesign).count("m_extender"), 1U);
}

TEST_F(PropagateConstants, leavesWhatIsNoProductOfTwoRealIntegersOfKnownTypes) {
    const auto zeros = [&](Model &top) -> Wire & { return constant(top, "0", "u3.0"); };
    const std::vector<Draw> draws = {
        [&](Model &top) { mult(top, zeros(top), input(top, "y", "[3]u4.0")); },
        [&](Model &top) { mult(top, zeros(top), input(top, "y", "c u4.0")); },
        [&](Model &top) { mult(top, input(top, "x", "float(23,8)"), constant(top, "0", "float(23,8)")); },
        [&](Model &top) {
            block(top, "k", "constBlock"), mult(top, zeros(top), *Wire::create(*top.getInputBlock(), "u"));
        },
        [&](Model &top) { mult(top, zeros(top), input(top, "y", "u3.0")).setParam(value("2"), zeros(top)); },
        [&](Model &top) { mult(top, zeros(top), input(top, "y", "u3.0")).setParam(value("1"), ValueRef()); },
        [&](Model &top) { mult(top, zeros(top), input(top, "y", "u3.0")).setParam(value("0"), ValueRef()); },
        [&](Model &top) { mult(top, out(block(top, "k", "constBlock")), input(top, "y", "u3.0")); },
        [&](Model &top) { mult(top, constant(top, "(1 2)", "u3.0"), input(top, "y", "u3.0")); },
        [&](Model &top) { mult(top, constant(top, "word", "u3.0"), input(top, "y", "u3.0")); },
        [&](Model &top) { mult(top, *Wire::create(zeros(top).getBlock(), "other"), input(top, "y", "u3.0")); },
    };
    for (std::size_t i = 0; i < draws.size(); ++i) {
        const auto design = make([&](Model &top) {
            input(top, "first", "u2.0");
            draws[i](top);
        });
        PassScheduler scheduler;
        scheduler.addPass("PropagateConstantsPass");
        scheduler.apply(*design);
        EXPECT_TRUE(test::checkInvariants(*design));
        EXPECT_EQ(drawnIn(*design), (Drawing{{"m", "multBlock"}})) << i;
    }
}

TEST_F(PropagateConstants, leavesAProductThatNobodyReads) {
    const auto design = make([&](Model &top) {
        Block &dead = block(top, "m", "multBlock");
        dead.setParam(value("0"), constant(top, "0", "u3.0"));
        dead.setParam(value("1"), input(top, "y", "u3.0"));
        Block &wireless = block(top, "m2", "multBlock");
        wireless.setParam(value("0"), constant(top, "0", "u3.0"));
        wireless.setParam(value("1"), input(top, "z", "u3.0"));
        out(dead);
    });
    run(*design);
    EXPECT_EQ(drawnIn(*design).size(), 2U);
}

TEST_F(PropagateConstants, leavesModelsThatAreSwitchedOff) {
    EXPECT_EQ(drawn([&](Model &top) {
                  top.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
                  mult(top, constant(top, "8", "u4.0"), input(top, "y", "u4.0"));
              }).size(),
              1U);
}

TEST_F(PropagateConstants, doesNothingInASecondRun) {
    propagated([&](Model &top) {
        mult(top, join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "u4.0"), &constant(top, "0", "s2.0")}),
             constant(top, "20", "s7.0"));
    });
    const Drawing once = drawnIn(*mDesign);
    EXPECT_EQ(once.size(), 6U);
    run(*mDesign);
    EXPECT_EQ(drawnIn(*mDesign), once);
}

TEST_F(PropagateConstants, treatsProductsThatReadEachOtherInOneRun) {
    propagated([&](Model &top) {
        Block &first = mult(top, join(top, {&constant(top, "0", "u2.0"), &input(top, "x", "u3.0")}),
                            constant(top, "6", "u4.0"), {}, "m1");
        Block &second = mult(top, join(top, {&constant(top, "0", "u1.0"), &out(first), &constant(top, "0", "s1.0")}),
                             input(top, "y", "s3.0"), {}, "m2");
        mult(top, out(first), join(top, {&out(second), &constant(top, "0", "u2.0")}), {}, "m3");
        // A product of constants in an operand of another.
        Block &folded = mult(top, constant(top, "2", "u2.0"), constant(top, "3", "u3.0"), {}, "m4");
        mult(top, join(top, {&constant(top, "0", "u1.0"), &out(folded), &constant(top, "0", "u1.0")}),
             input(top, "z", "s3.0"), {}, "m5");
    });
    const Drawing drawing = drawnIn(*mDesign);
    for (const char *name :
         {"m1_narrowed", "m1_narrowconst", "m2_narrowed", "m3_narrowed", "m4_multconst", "m5_narrowconst"}) {
        EXPECT_EQ(drawing.count(name), 1U) << name;
    }
}

TEST_F(PropagateConstants, handsMetadataOfAFoldedProductToTheConstant) {
    propagated([&](Model &top) {
        mult(top, constant(top, "0", "u4.0"), input(top, "y", "u4.0")).setParam(A_METADATA, value("((comment here))"));
    });
    EXPECT_EQ(param("m_multconst", A_METADATA), "((comment here))");
    propagated([&](Model &top) {
        mult(top, constant(top, "8", "u4.0"), input(top, "y", "u4.0")).setParam(A_METADATA, value("((comment here))"));
    });
    EXPECT_EQ(param("m", A_METADATA), "((comment here))");
}

TEST_F(PropagateConstants, keepsConstraintsAtTheMultiplierAndMovesThemFromOneThatGoes) {
    const auto mark = [&](Block &m) {
        m.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((1 true (5) ()))", mgr.context()));
        m.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    };
    propagated([&](Model &top) { mark(mult(top, constant(top, "8", "u4.0"), input(top, "y", "u4.0"))); });
    EXPECT_EQ(param("m", A_SCHEDULE_CONSTRAINT_PORTS), "((1 true (5) ()))");
    EXPECT_EQ(param("m", A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
    propagated([&](Model &top) { mark(mult(top, constant(top, "0", "u4.0"), input(top, "y", "u4.0"))); });
    EXPECT_EQ(param("m_multconst", A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
    EXPECT_EQ(param("out", A_SCHEDULE_CONSTRAINT_PORTS), "((p true (5) ()))");
}

TEST_F(PropagateConstants, areRegisteredByTheTable) {
    for (const internal::PropagateRow &row : internal::propagateRows()) {
        EXPECT_EQ(mgr.context()->getBlockClass(*row.blockType)->get<PropagateConstantsHandler>(), row.handler());
        EXPECT_NE(std::string(row.summary), "");
    }
    EXPECT_EQ(mgr.context()->getBlockClass(A_ADD_BLOCK)->get<PropagateConstantsHandler>(), nullptr);
    EXPECT_NE(dynamic_cast<const MultiplyPropagateHandler *>(
                  mgr.context()->getBlockClass(A_MULT_BLOCK)->get<PropagateConstantsHandler>()),
              nullptr);
}

/// A model of a multiplier of its input by a join with zeros, instantiated with these types.
class PropagateConstantsInInstances : public PropagateConstants {
  protected:
    void draw(Model &top, const std::vector<std::string> &types) {
        Model &below = *Model::create(top.getDesign(), "below");
        Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
        Wire &x = *Wire::create(in, value("x"));
        Block &m = block(below, "m", "multBlock");
        m.setParam(value("0"), join(below, {&constant(below, "0", "u2.0"), &x}));
        m.setParam(value("1"), constant(below, "5", "u5.0"));
        Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(m));
        for (std::size_t i = 0; i < types.size(); ++i) {
            const std::string number = std::to_string(i);
            Block &instance = *Block::create(top, "i" + number, A_MODEL_BLOCK);
            instance.setParam(A_MODEL_NODE, below);
            instance.setParam(value("x"), input(top, "a" + number, types[i]));
            output(top, "o" + number, *Wire::create(instance, value("y")));
        }
    }
    bool peels(const std::vector<std::string> &types) {
        const Draw drawing = [&](Model &top) { draw(top, types); };
        const auto before = make(drawing);
        mDesign = make(drawing);
        run(*mDesign);
        test::expectSameBehaviour(*before, *mDesign);
        return mDesign->getModel(value("below"))->getBlock(value("m_narrowed")) != nullptr;
    }
};

TEST_F(PropagateConstantsInInstances, happensWhereTheirTypesAgree) {
    EXPECT_TRUE(peels({"u4.0"}));
    EXPECT_TRUE(peels({"u4.0", "u4.0"}));
}

TEST_F(PropagateConstantsInInstances, doesNotHappenWhereTheirTypesDiffer) {
    EXPECT_FALSE(peels({"u4.0", "u8.0"}));
    EXPECT_FALSE(peels({"u4.0", "s4.0"}));
    EXPECT_FALSE(peels({"u4.0", "u4.0", "u3.1"}));
}

/// An operand bit by bit, the lowest first: '0' and '1' are known, 'x' is the input's bit of that place.
using Labels = std::string;

std::vector<Labels> allLabels(std::size_t width) {
    std::vector<Labels> all{""};
    for (std::size_t i = 0; i < width; ++i) {
        std::vector<Labels> longer;
        for (const Labels &labels : all) {
            for (const char label : {'0', '1', 'x'}) {
                longer.push_back(labels + label);
            }
        }
        all = std::move(longer);
    }
    return all;
}

/// Every multiplier of operands in all shapes, many of them in one design.
class EverySmallMultiplier : public PropagateConstants {
  protected:
    struct Side {
        Labels labels;
        bool isSigned;
        /// Which of the ways to join the bits: by runs, flat by bits, or in two halves cut at a place.
        std::size_t shape;
    };
    struct Case {
        Side sides[2];
        std::string type;
    };

    static std::size_t shapesOf(const Labels &labels) { return labels.size() + 1; }

    /// The bits from `from` up to before `to` as one signal; the top one carries the sign.
    Wire &bits(Model &top, const Side &side, Wire &in, std::size_t from, std::size_t to, bool isTop, bool byBits) {
        std::vector<Wire *> parts;
        for (std::size_t at = from; at < to;) {
            std::size_t end = at + 1;
            const bool isKnown = side.labels[at] != 'x';
            while (!byBits && end < to && (side.labels[end] != 'x') == isKnown) {
                ++end;
            }
            const bool isSigned = isTop && end == to && side.isSigned;
            const int width = static_cast<int>(end - at);
            const NumTypeSpec type = NumTypeSpec::fixed(isSigned, width, 0);
            parts.push_back(isKnown ? &known(top, side.labels.substr(at, end - at), type)
                                    : &select(top, in, static_cast<int>(at), type));
            at = end;
        }
        return parts.size() == 1 ? *parts.front() : join(top, parts);
    }
    Wire &known(Model &top, const Labels &labels, const NumTypeSpec &type) {
        long number = 0;
        for (std::size_t i = 0; i < labels.size(); ++i) {
            number += labels[i] == '1' ? 1L << i : 0;
        }
        number -= type.isSigned() && labels.back() == '1' ? 1L << labels.size() : 0;
        Block &made = block(top, "c", "constBlock");
        made.setParam(A_CONST_VALUE, ValueRef(NumberValue::get(number, mgr.context())));
        made.setParam(A_CONST_TYPE, ValueRef(type.toValue(mgr.context())));
        return out(made);
    }
    Wire &select(Model &top, Wire &in, int offset, const NumTypeSpec &type) {
        Block &made = block(top, "s", "bitSelectBlock");
        made.setParam(A_BIT_SELECT_BIT_OFFSET, ValueRef(NumberValue::get(offset, mgr.context())));
        made.setParam(A_BIT_SELECT_OUTPUT_TYPE, ValueRef(type.toValue(mgr.context())));
        made.setParam(value("0"), in);
        return out(made);
    }
    Wire &operand(Model &top, const Side &side, Wire &in) {
        const std::size_t width = side.labels.size();
        if (side.shape == 0 || side.shape >= width) {
            return bits(top, side, in, 0, width, true, side.shape != 0);
        }
        return join(top, {&bits(top, side, in, 0, side.shape, false, false),
                          &bits(top, side, in, side.shape, width, true, true)});
    }
    void drawAll(Model &top, const std::vector<Case> &cases, int widthA, int widthB) {
        Wire &a = input(top, "a", fmt::format("u{}.0", widthA));
        Wire &b = input(top, "b", fmt::format("u{}.0", widthB));
        for (std::size_t i = 0; i < cases.size(); ++i) {
            Block &made = block(top, fmt::format("m{}", i), "multBlock");
            made.setParam(value("0"), operand(top, cases[i].sides[0], a));
            made.setParam(value("1"), operand(top, cases[i].sides[1], b));
            if (!cases[i].type.empty()) {
                made.setParam(A_MULT_TYPE, ValueRef(value(testing::typeText(cases[i].type))));
            }
            output(top, fmt::format("p{}", i), out(made));
        }
    }
    /// What must be left of an operand.
    static std::string narrow(const Side &side) {
        const std::size_t width = side.labels.size();
        std::size_t low = 0;
        std::size_t high = 0;
        while (low < width && side.labels[low] == '0') {
            ++low;
        }
        while (high < width && side.labels[width - 1 - high] == '0') {
            ++high;
        }
        return low == width ? "zero"
                            : fmt::format("{}{}.{}", side.isSigned && high == 0 ? 's' : 'u', width - high,
                                          -static_cast<int>(low));
    }
    static bool isKnown(const Side &side) { return side.labels.find('x') == Labels::npos; }

    void expectNarrowed(Design &design, const std::vector<Case> &cases) {
        GlobalTypePass types;
        types.bindEvents(design);
        for (std::size_t i = 0; i < cases.size(); ++i) {
            const Side *sides = cases[i].sides;
            const Block *left = design.begin()->getBlock(value(fmt::format("m{}", i)));
            const bool folds =
                narrow(sides[0]) == "zero" || narrow(sides[1]) == "zero" || (isKnown(sides[0]) && isKnown(sides[1]));
            ASSERT_EQ(left == nullptr, folds) << sides[0].labels << " " << sides[1].labels;
            for (int port = 0; left != nullptr && port < 2; ++port) {
                const Port &end = *left->getPort(NumberValue::get(port, mgr.context()));
                ASSERT_EQ(readableType(types.getType(end, {}).get_ptr()), narrow(sides[port])) << sides[port].labels;
            }
        }
        types.unbindEvents();
    }

    /// Runs both designs on all inputs.
    void expectSame(const std::vector<Case> &cases, int widthA, int widthB, bool judgesTypes) {
        const auto draw = [&](Model &top) { drawAll(top, cases, widthA, widthB); };
        const auto before = make(draw);
        const auto after = make(draw);
        run(*after);
        if (judgesTypes) {
            expectNarrowed(*after, cases);
        }
        sim::Simulator first(*before, *before->begin());
        sim::Simulator second(*after, *after->begin());
        ASSERT_EQ(first.outputs().size(), cases.size());
        ASSERT_EQ(second.outputs().size(), cases.size());
        for (std::size_t i = 0; i < cases.size(); ++i) {
            const sim::Scalar &one = first.outputs()[i];
            const sim::Scalar &other = second.outputs()[i];
            ASSERT_EQ(one.name, other.name);
            ASSERT_TRUE(one.width == other.width && one.isSigned == other.isSigned && one.fraction == other.fraction)
                << one.name;
        }
        for (std::int64_t x = 0; x < std::int64_t{1} << (widthA + widthB); ++x) {
            for (sim::Simulator *simulator : {&first, &second}) {
                simulator->setInput(0, x & ((1 << widthA) - 1));
                simulator->setInput(1, x >> widthA);
                simulator->step();
            }
            for (std::size_t i = 0; i < cases.size(); ++i) {
                ASSERT_EQ(first.outputInteger(i), second.outputInteger(i)) << first.outputs()[i].name << " " << x;
            }
        }
        mDone += cases.size();
    }
    /// In designs of so many multipliers.
    class Batch {
      public:
        Batch(EverySmallMultiplier &test, int widthA, int widthB, bool judgesTypes)
            : mTest(test), mWidthA(widthA), mWidthB(widthB), mJudgesTypes(judgesTypes) {}
        ~Batch() { flush(); }
        Batch(const Batch &) = delete;
        Batch &operator=(const Batch &) = delete;
        void add(const Case &one) {
            if (mSeen++ % testing::kExhaustiveStride == 0) {
                mCases.push_back(one);
            }
            if (mCases.size() == 1000) {
                flush();
            }
        }

      private:
        void flush() {
            if (!mCases.empty()) {
                mTest.expectSame(mCases, mWidthA, mWidthB, mJudgesTypes);
            }
            mCases.clear();
        }
        EverySmallMultiplier &mTest;
        const int mWidthA;
        const int mWidthB;
        const bool mJudgesTypes;
        std::uint64_t mSeen = 0;
        std::vector<Case> mCases;
    };

    std::size_t mDone = 0;
};

TEST_F(EverySmallMultiplier, computesTheSameWhateverItsOperandsAreJoinedFrom) {
    for (const auto &[widthA, widthB] : {std::pair(1, 1), {2, 1}, {1, 2}, {2, 2}, {3, 1}, {3, 2}, {2, 3}, {3, 3}}) {
        Batch batch(*this, widthA, widthB, true);
        for (const Labels &a : allLabels(static_cast<std::size_t>(widthA))) {
            for (const Labels &b : allLabels(static_cast<std::size_t>(widthB))) {
                for (int signs = 0; signs < 4; ++signs) {
                    for (std::size_t shape = 0; shape < std::max(shapesOf(a), shapesOf(b)); ++shape) {
                        batch.add({{{a, (signs & 1) != 0, shape % shapesOf(a)},
                                    {b, (signs & 2) != 0, (shape + 1) % shapesOf(b)}},
                                   ""});
                    }
                }
            }
        }
    }
    EXPECT_GE(mDone * testing::kExhaustiveStride, 20000U);
}

TEST_F(EverySmallMultiplier, computesTheSameForWideOperandsOfAllLabels) {
    const std::vector<Labels> others = {"x", "xx", "0x", "x0", "1x", "01"};
    Batch batch(*this, 8, 2, true);
    std::size_t number = 0;
    for (const Labels &a : allLabels(8)) {
        // Each sign and shape in turn: they go through all of them together.
        ++number;
        const Labels &b = others[number % others.size()];
        batch.add({{{a, number % 2 != 0, (number / 3) % shapesOf(a)}, {b, (number / 2) % 2 != 0, 0}}, ""});
    }
}

TEST_F(EverySmallMultiplier, computesTheSameInAnyGivenType) {
    const std::vector<std::string> types = {"u1.0",  "s1.0",  "u3.0",  "s3.0",  "u2.2",  "s2.2", "u6.-2", "s6.-2",
                                            "u6.0",  "s6.0",  "u8.0",  "s8.0",  "u8.2",  "s9.3", "u9.-6", "s9.-6",
                                            "u8.-5", "s8.-5", "u-2.4", "s-2.4", "u7.-3", "s5.-4"};
    for (const auto &[widthA, widthB] : {std::pair(3, 2), {2, 3}, {3, 3}}) {
        Batch batch(*this, widthA, widthB, false);
        std::size_t number = 0;
        for (const Labels &a : allLabels(static_cast<std::size_t>(widthA))) {
            for (const Labels &b : allLabels(static_cast<std::size_t>(widthB))) {
                for (const std::string &type : types) {
                    ++number;
                    batch.add({{{a, number % 2 != 0, number % shapesOf(a)}, {b, number % 3 == 0, 0}}, type});
                }
            }
        }
    }
}

/// A net of multipliers by chance: operands are joined from constants, inputs and other products.
class NetByChance {
  public:
    NetByChance(Context *context, std::uint64_t seed) : mContext(context), mChance(seed) {}

    std::unique_ptr<Design> make() {
        auto design = std::make_unique<Design>(mContext);
        Model &top = *Model::create(*design, "top");
        Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
        Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
        std::vector<Signal> signals;
        for (int i = 0; i < 4; ++i) {
            Block &pin = make(top, A_TYPE_PIN_BLOCK);
            const NumTypeSpec type = anyType(1 + below(6));
            pin.setParam(A_TYPE_PIN_TYPE, ValueRef(type.toValue(mContext)));
            pin.setParam(number(0), *Wire::create(in, fmt::format("x{}", i)));
            signals.push_back({Wire::create(pin, number(0)), type.fixedBits()});
        }
        for (int i = 0; i < 12; ++i) {
            const Signal a = operand(top, signals, 3);
            const Signal b = below(8) == 0 ? a : operand(top, signals, 3);
            Block &mult = *Block::create(top, fmt::format("m{}", i), A_MULT_BLOCK);
            mult.setParam(number(0), *a.wire);
            mult.setParam(number(1), *b.wire);
            int width = a.width + b.width;
            if (below(3) == 0) {
                width = 1 + below(20);
                mult.setParam(A_MULT_TYPE, ValueRef(anyType(width).toValue(mContext)));
            }
            Wire &product = *Wire::create(mult, A_PRIM_WIRE_OUT);
            out.setParam(StringValue::get(fmt::format("p{}", i), mContext), product);
            signals.push_back({&product, width});
            if (below(4) == 0) {
                Block &delay = make(top, A_DELAY_BLOCK);
                delay.setParam(A_DELAY_LENGTH, ValueRef(number(1)));
                delay.setParam(number(0), product);
                signals.push_back({Wire::create(delay, A_PRIM_WIRE_OUT), width});
            }
        }
        return design;
    }

  private:
    struct Signal {
        Wire *wire;
        int width;
    };

    int below(int end) { return static_cast<int>(mChance() % end); }
    PureValueRef number(int value) { return NumberValue::get(value, mContext); }
    Block &make(Model &top, const StaticString &type) { return *Block::create(top, "b", type); }
    NumTypeSpec anyType(int width) {
        const int frac = below(6) - 2;
        return NumTypeSpec::fixed(below(2) == 0, width - frac, frac);
    }
    Signal constant(Model &top) {
        Block &made = make(top, A_CONST_BLOCK);
        const NumTypeSpec type = anyType(1 + below(4));
        const int kind = below(4);
        made.setParam(A_CONST_VALUE, ValueRef(NumberValue::get(kind < 2 ? 0.0 : (below(200) - 100) / 8.0, mContext)));
        made.setParam(A_CONST_TYPE, ValueRef(type.toValue(mContext)));
        return {Wire::create(made, A_PRIM_WIRE_OUT), type.fixedBits()};
    }
    Signal operand(Model &top, const std::vector<Signal> &signals, int levels) {
        const int kind = below(8);
        if (kind < 3) {
            return constant(top);
        }
        // The wider ones would grow without end.
        const Signal &any = signals[static_cast<std::size_t>(below(static_cast<int>(signals.size())))];
        if (kind == 3 || levels == 0) {
            return any.width <= 40 ? any : signals.front();
        }
        Block &made = make(top, A_BIT_JOIN_BLOCK);
        Signal joined{nullptr, 0};
        const int parts = 1 + below(4);
        for (int i = 0; i < parts; ++i) {
            const Signal part = operand(top, signals, levels - 1);
            made.setParam(number(i), *part.wire);
            joined.width += part.width;
        }
        joined.wire = Wire::create(made, A_PRIM_WIRE_OUT);
        return joined;
    }

    Context *mContext;
    test::Chance mChance;
};

TEST_F(PropagateConstants, computesTheSameInNetsByChance) {
    std::size_t narrowed = 0;
    std::size_t folded = 0;
    for (std::uint64_t seed = 1; seed <= 400; ++seed) {
        const auto before = NetByChance(mgr.context(), seed).make();
        const auto after = NetByChance(mgr.context(), seed).make();
        const auto types = readerTypes(*before);
        run(*after);
        ASSERT_EQ(readerTypes(*after), types) << seed;
        for (const auto &[name, type] : drawnIn(*after)) {
            narrowed += name.find("_narrow") != std::string::npos ? 1 : 0;
            folded += name.find("_multconst") != std::string::npos ? 1 : 0;
        }
        sim::CompareOptions options;
        options.cycles = 60;
        ASSERT_TRUE(test::sameBehaviour(*before, *after, "top", options)) << seed;
    }
    EXPECT_GT(narrowed, 800U);
    EXPECT_GT(folded, 400U);
}

RC_GTEST_PROP(PropagateConstantsOnRandomDesigns, computesTheSame, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto before = generator.make(recipes);
    const auto after = generator.make(recipes);
    PassScheduler scheduler;
    scheduler.addPass("PropagateConstantsPass");
    scheduler.apply(*after);
    RC_ASSERT(static_cast<bool>(test::checkInvariants(*after)));
    RC_ASSERT(test::newCatalogueFindings(*before, *after).empty());
    sim::CompareOptions options;
    options.cycles = 40;
    RC_ASSERT(static_cast<bool>(test::sameBehaviour(*before, *after, "top", options)));
}

} // namespace
} // namespace orvo
