// Shifts by constants: what they become, which of them stay, and that they compute the same.
#include "orvo/elideconstshiftspass.h"

#include "support/exhaustive.h"
#include "support/randomdesigns.h"
#include "support/rewritefixture.h"
#include "support/samebehaviour.h"
#include "support/smallformats.h"

#include <orvo/annotation.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace orvo {
namespace {

class ElideConstShiftsTest : public test::RewriteFixture {
  protected:
    ElideConstShiftsTest() : RewriteFixture("ElideConstShiftsPass") {}
    Block &barrel(const std::string &name, const std::string &type, Wire &data, Wire &shift, const Texts &params = {}) {
        Block &made = reading(name, type, {&data}, params);
        made.setParam(A_BARREL_PORT_SHIFT, shift);
        return made;
    }
    /// A shifter whose output is one of the model.
    Block &shifting(const std::string &name, const std::string &type, const std::string &of, Wire &shift,
                    const Texts &params = {}) {
        Block &made = barrel(name, type, input(model, "i" + name, of), shift, params);
        output(model, "o" + name, out(made));
        return made;
    }
    Block &rawShift(const std::string &name, const std::string &of, const Texts &params) {
        Block &made = reading(name, "rawShiftBlock", {&input(model, "i" + name, of)}, params);
        output(model, "o" + name, out(made));
        return made;
    }
    Wire &three() { return constant("c", "u2.0", "3"); }
};

TEST_F(ElideConstShiftsTest, makesARawShiftOfABarrelToTheLeft) {
    shifting("b", "barrelLeftBlock", "s8.2", three());
    run();
    EXPECT_EQ(drawn(), (Lines{"(b castBack primWireOut) castBlock (typeSFixed 8 2)", "(b shift) rawShiftBlock 3",
                              "c constBlock (typeUFixed 2 0) 3"}));
}

TEST_F(ElideConstShiftsTest, makesARawShiftOfABarrelToTheRight) {
    shifting("b", "barrelRightBlock", "s8.2", three());
    run();
    EXPECT_EQ(drawn(),
              (Lines{"(b castBack primWireOut) castBlock (typeSFixed 8 2)",
                     "(b shift) rawShiftBlock rawShiftModeSpecialRight 3", "c constBlock (typeUFixed 2 0) 3"}));
}

TEST_F(ElideConstShiftsTest, castsToTheTypeThatTheBarrelTells) {
    shifting("b", "barrelLeftBlock", "s8.2", three(), {{"barrelOutputType", "(typeUFixed 9 1)"}});
    run();
    EXPECT_EQ(text("(b castBack primWireOut)", A_CAST_OUTPUT_TYPE), "(typeUFixed 9 1)");
}

TEST_F(ElideConstShiftsTest, needsNoCastForAShiftByNothing) {
    shifting("l", "barrelLeftBlock", "s8.2", constant("c", "", "0"));
    shifting("r", "barrelRightBlock", "s8.2", constant("d", "", "0"));
    run();
    EXPECT_EQ(drawn(), (Lines{"(l shift) rawShiftBlock 0", "(r shift) rawShiftBlock rawShiftModeSpecialRight 0",
                              "c constBlock 0", "d constBlock 0"}));
}

TEST_F(ElideConstShiftsTest, leavesAShiftThatIsNoConstant) {
    shifting("b", "barrelLeftBlock", "s8.2", input(model, "shift", "u2.0"));
    run();
    EXPECT_TRUE(has("b"));
}

TEST_F(ElideConstShiftsTest, leavesAConstantThatIsNoIntegerOrHasASign) {
    for (const auto &[name, type, of] : {std::tuple<const char *, const char *, const char *>{"half", "u3.0", "0x2.8"},
                                         {"point", "u3.1", "2"},
                                         {"signed", "s4.0", "2"},
                                         {"negative", "", "-2"},
                                         {"text", "u3.0", "text"},
                                         {"nan", "u3.0", "+nan"},
                                         {"lanes", "u3.0", "(vectorRollTag 1 2)"}}) {
        barrel(name, "barrelLeftBlock", input(model, name, "s8.2"), constant(std::string("c") + name, type, of));
    }
    const std::size_t blocks = model.size();
    rewrite();
    EXPECT_EQ(model.size(), blocks);
    EXPECT_TRUE(has("half"));
}

TEST_F(ElideConstShiftsTest, shiftsByWhatTheConstantComesToInItsType) {
    shifting("most", "barrelLeftBlock", "s8.2", constant("c", "u2.0", "9"));
    shifting("least", "barrelLeftBlock", "s8.2", constant("d", "u2.0", "-9"));
    run();
    EXPECT_EQ(text("(most shift)", A_RAW_SHIFT_VALUE), "3");
    EXPECT_EQ(text("(least shift)", A_RAW_SHIFT_VALUE), "0");
}

TEST_F(ElideConstShiftsTest, shiftsBeyondTheWidth) {
    for (const char *type : {"s8.2", "u8.2"}) {
        shifting(std::string("l") + type, "barrelLeftBlock", type, constant(std::string("cl") + type, "", "200"));
        shifting(std::string("r") + type, "barrelRightBlock", type, constant(std::string("cr") + type, "", "200"));
    }
    run();
    for (const char *name : {"ls8.2", "rs8.2", "lu8.2", "ru8.2"}) {
        EXPECT_FALSE(has(name)) << name;
    }
}

TEST_F(ElideConstShiftsTest, leavesAShiftThatNoTypeCanHold) {
    barrel("b", "barrelLeftBlock", input(model, "i", "s8.2"), constant("c", "u80.0", "0x10000000000000"));
    barrel("d", "barrelRightBlock", input(model, "j", "s8.2"), constant("e", "u30.0", "16777215"));
    rewrite();
    EXPECT_TRUE(has("b"));
    EXPECT_TRUE(has("d"));
}

TEST_F(ElideConstShiftsTest, leavesAShiftToTheLeftWhereARawOneWouldDropBits) {
    // Five bits, three places behind the point: a raw shift by 1 keeps three of them.
    shifting("drops", "barrelLeftBlock", "u-3.8", constant("c", "", "1"));
    shifting("fits", "barrelLeftBlock", "u-3.8", constant("d", "", "3"));
    shifting("coarse", "barrelLeftBlock", "u-3.8", constant("e", "", "1"), {{"barrelOutputType", "(typeUFixed 1 3)"}});
    shifting("right", "barrelRightBlock", "u-3.8", constant("f", "", "1"));
    run();
    EXPECT_TRUE(has("drops"));
    EXPECT_FALSE(has("fits"));
    EXPECT_FALSE(has("coarse"));
    EXPECT_FALSE(has("right"));
}

TEST_F(ElideConstShiftsTest, leavesFloatsAndWhatIsUnknown) {
    barrel("float", "barrelLeftBlock", input(model, "f", "float(23,8)"), three());
    barrel("floatOut", "barrelLeftBlock", input(model, "g", "s8.0"), three(),
           {{"barrelOutputType", "(typeSFloatIEEE 23 8)"}});
    barrel("unknown", "barrelLeftBlock", *Wire::create(*model.getInputBlock(), value("u")), three());
    reading("open", "barrelLeftBlock", {&input(model, "h", "s8.0")});
    reading("bare", "barrelRightBlock", {}).setParam(A_BARREL_PORT_SHIFT, three());
    barrel("third", "barrelLeftBlock", input(model, "k", "s8.0"), three()).setParam(value("1"), three());
    delete barrel("mute", "barrelLeftBlock", input(model, "l", "s8.0"), three()).getWire(A_PRIM_WIRE_OUT);
    Block &more = barrel("more", "barrelLeftBlock", input(model, "m", "s8.0"), three());
    reading("reader", "terminalBlock", {Wire::create(more, value("other"))});
    reading("lzc", "barrelRightLzcBlock", {&input(model, "n", "s8.0")});
    reading("raw", "rawShiftBlock", {&input(model, "o", "float(23,8)")},
            {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "1"}});
    reading("rawOpen", "rawShiftBlock", {}, {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "1"}});
    const std::size_t blocks = model.size();
    rewrite();
    EXPECT_EQ(model.size(), blocks);
    EXPECT_TRUE(has("float"));
    EXPECT_TRUE(has("raw"));
}

TEST_F(ElideConstShiftsTest, takesVectorsAndComplexNumbers) {
    for (const char *type : {"[3] s8.2", "c s8.2", "[2] c u8.2"}) {
        const std::string name = testing::typeText(type);
        shifting("l" + name.substr(1, 9), "barrelLeftBlock", type, constant("c", "", "2"));
        shifting("r" + name.substr(1, 9), "barrelRightBlock", type, constant("c", "", "2"));
        rawShift("raw" + name.substr(1, 9), type, {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "2"}});
    }
    run();
    for (const Block &one : model) {
        EXPECT_NE(one.type(), A_BARREL_LEFT_BLOCK.get_ptr());
        EXPECT_NE(one.type(), A_BARREL_RIGHT_BLOCK.get_ptr());
        EXPECT_FALSE(one.type() == A_RAW_SHIFT_BLOCK.get_ptr() &&
                     one.getParam(A_RAW_SHIFT_MODE) == A_RAW_SHIFT_MODE_LEFT);
    }
}

TEST_F(ElideConstShiftsTest, choosesTheBitsOfARawShift) {
    rawShift("up", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "3"}});
    rawShift("down", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "-3"}});
    // Two bits more than stand before the point.
    rawShift("far", "u6.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "-8"}});
    run();
    EXPECT_EQ(drawn(),
              (Lines{"(down sel) bitSelectBlock 0 (typeSFixed 5 5)", "(far sel) bitSelectBlock 2 (typeUFixed 0 8)",
                     "(up sel) bitSelectBlock 0 (typeSFixed 11 -1)"}));
}

TEST_F(ElideConstShiftsTest, leavesARawShiftWithoutAModeOrWithTheOther) {
    rawShift("none", "s8.2", {{"rawShiftValue", "3"}});
    rawShift("right", "s8.2", {{"rawShiftMode", "rawShiftModeSpecialRight"}, {"rawShiftValue", "3"}});
    run();
    EXPECT_TRUE(has("none"));
    EXPECT_TRUE(has("right"));
}

TEST_F(ElideConstShiftsTest, leavesARawShiftOfNoIntegerOrWithoutAnyBitLeft) {
    rawShift("gone", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "-18"}});
    run();
    EXPECT_TRUE(has("gone"));
    rawShift("half", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "0x1.8"}});
    rawShift("absent", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}});
    rawShift("huge", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "2000000000"}});
    rewrite();
    for (const char *name : {"half", "absent", "huge"}) {
        EXPECT_TRUE(has(name)) << name;
    }
}

TEST_F(ElideConstShiftsTest, takesBarrelsBehindBarrels) {
    Block &first = barrel("first", "barrelLeftBlock", input(model, "i", "s8.2"), three());
    Block &second = barrel("second", "barrelRightBlock", out(first), three());
    output(model, "o", out(second));
    run();
    EXPECT_FALSE(has("first"));
    EXPECT_FALSE(has("second"));
}

TEST_F(ElideConstShiftsTest, leavesALoopAsALoop) {
    Block &delay = block(model, "delay", "delayBlock", {{"delayLength", "1"}});
    Block &sum = reading("sum", "addBlock", {&input(model, "i", "s8.0"), Wire::create(delay, A_PRIM_WIRE_OUT)});
    Block &made = barrel("b", "barrelRightBlock", out(cast("cast", out(sum), "s9.0")), constant("c", "", "1"),
                         {{"barrelOutputType", "(typeSFixed 9 0)"}});
    delay.setParam(value("0"), out(made));
    output(model, "o", out(made));
    run();
    EXPECT_FALSE(has("b"));
}

TEST_F(ElideConstShiftsTest, worksWhereModelsAreSwitchedOff) {
    model.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    shifting("b", "barrelLeftBlock", "s8.2", three());
    run();
    EXPECT_FALSE(has("b"));
}

/// A model of one shift by 3 to the left.
class InstancesOfAShift : public ElideConstShiftsTest {
  protected:
    bool isTaken(const std::vector<std::string> &types, const char *kind, const Texts &params) {
        Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
        Block &made = reading("b", kind, {Wire::create(in, value("x"))}, params, &below);
        if (made.type() != A_RAW_SHIFT_BLOCK.get_ptr()) {
            made.setParam(A_BARREL_PORT_SHIFT, out(reading("c", "constBlock", {}, {{"constValue", "3"}}, &below)));
        }
        Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(made));
        instantiate(below, types);
        run();
        return below.getBlock(value("b")) == nullptr;
    }
    Model &below = *Model::create(design, "below");
};

TEST_F(InstancesOfAShift, shareACastToTheTypeThatIsTold) {
    EXPECT_TRUE(isTaken({"s8.2", "u6.0", "s4.4"}, "barrelLeftBlock", {{"barrelOutputType", "(typeSFixed 6 2)"}}));
}

TEST_F(InstancesOfAShift, stayWhereEachHasATypeOfItsOwn) {
    EXPECT_FALSE(isTaken({"s8.2", "u6.0"}, "barrelLeftBlock", {}));
}

TEST_F(InstancesOfAShift, stayWhereTheirVectorsDiffer) {
    EXPECT_FALSE(isTaken({"s8.2", "[2] s8.2"}, "barrelLeftBlock", {{"barrelOutputType", "(typeSFixed 6 2)"}}));
}

TEST_F(InstancesOfAShift, goWhereAllHaveOneType) { EXPECT_TRUE(isTaken({"s8.2", "s8.2"}, "barrelRightBlock", {})); }

TEST_F(InstancesOfAShift, stayWhereOneOfThemWouldLoseBits) {
    EXPECT_FALSE(isTaken({"s8.2", "u-4.9"}, "barrelLeftBlock", {{"barrelOutputType", "(typeSFixed 6 9)"}}));
}

TEST_F(InstancesOfAShift, stayARawShiftWhereTheirTypesDiffer) {
    EXPECT_FALSE(
        isTaken({"s8.2", "u6.0"}, "rawShiftBlock", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "1"}}));
}

TEST_F(ElideConstShiftsTest, handsOnMetadata) {
    shifting("b", "barrelLeftBlock", "s8.2", three()).setParam(A_METADATA, value("((comment here))"));
    rawShift("r", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "3"}})
        .setParam(A_METADATA, value("((comment there))"));
    run();
    EXPECT_EQ(text("(b castBack primWireOut)", A_METADATA), "((comment here))");
    EXPECT_EQ(text("(r sel)", A_METADATA), "((comment there))");
}

TEST_F(ElideConstShiftsTest, movesLatencyConstraintsAndEdgesOfDomains) {
    Block &made = shifting("b", "barrelLeftBlock", "s8.2", three());
    made.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    made.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    const auto edge = [&](const std::string &block) {
        return "(" + std::string(A_SCHEDULE_DOMAIN_END.text()) + " d (" + block + " " + std::string(A_WIRE_TAG.text()) +
               " primWireOut))";
    };
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS, Value::parse("(" + edge("b") + ")", mgr.context()));
    rewrite();
    EXPECT_EQ(text("(b shift)", A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))");
    EXPECT_EQ(text("(b castBack primWireOut)", A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
    // What only the shifter read was in its domain, and stays there.
    EXPECT_EQ(model.getParam(A_SYNTH_SCHEDULE_DOMAINS)->toString(),
              "(" + edge("(b castBack primWireOut)") + " " + edge("c") + ")");
}

TEST_F(ElideConstShiftsTest, doesNothingTheSecondTime) {
    shifting("l", "barrelLeftBlock", "s8.2", three());
    shifting("r", "barrelRightBlock", "u8.2", three());
    rawShift("raw", "s8.2", {{"rawShiftMode", "rawShiftModeLeft"}, {"rawShiftValue", "-9"}});
    run();
    const Lines once = drawn();
    run();
    EXPECT_EQ(drawn(), once);
}

// All shifts of small numbers.

class EveryShift {
  public:
    EveryShift(Context *context, int mostBits) : mContext(context), mDesign(context) {
        for (const test::SmallFormat &format : test::smallFormats(mostBits)) {
            Block &pin = *Block::create(mTop, "pin", A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, Value::parse(format.text(), context));
            pin.setParam(key(), *Wire::create(mIn, "i" + std::to_string(1000 + mFormats.size())));
            mFormats.push_back(format);
            mData.push_back(Wire::create(pin, key()));
        }
    }
    /// Nothing told of the type for an empty text.
    void addBarrels(const std::vector<std::string> &outputTypes, const std::vector<int> &shifts) {
        for (const int shift : shifts) {
            Block &constant = *Block::create(mTop, "shift", A_CONST_BLOCK);
            constant.setParam(A_CONST_VALUE, ValueRef(NumberValue::get(shift, mContext)));
            Wire &places = *Wire::create(constant, A_PRIM_WIRE_OUT);
            for (std::size_t i = 0; i < mFormats.size(); ++i) {
                for (const std::string &type : outputTypes) {
                    for (const StaticString *kind : {&A_BARREL_LEFT_BLOCK, &A_BARREL_RIGHT_BLOCK}) {
                        Block *made =
                            add(*kind, i, mFormats[i].text() + " by " + std::to_string(shift) + " to " + type);
                        if (made != nullptr) {
                            made->setParam(A_BARREL_PORT_SHIFT, places);
                            made->setParam(A_BARREL_OUTPUT_TYPE, Value::parse(type, mContext));
                        }
                    }
                }
            }
        }
    }
    void addRawShifts(int most) {
        for (std::size_t i = 0; i < mFormats.size(); ++i) {
            for (int shift = -most; shift <= most; ++shift) {
                if (Block *made = add(A_RAW_SHIFT_BLOCK, i, mFormats[i].text() + " by " + std::to_string(shift))) {
                    made->setParam(A_RAW_SHIFT_MODE, A_RAW_SHIFT_MODE_LEFT);
                    made->setParam(A_RAW_SHIFT_VALUE, ValueRef(NumberValue::get(shift, mContext)));
                }
            }
        }
    }
    Design &design() { return mDesign; }
    const std::string &nameOf(std::size_t output) const { return mNames[output]; }
    std::size_t shifts() const {
        return static_cast<std::size_t>(std::count_if(mTop.begin(), mTop.end(), [](const Block &block) {
            return block.type() == A_BARREL_LEFT_BLOCK.get_ptr() || block.type() == A_BARREL_RIGHT_BLOCK.get_ptr() ||
                   block.getParam(A_RAW_SHIFT_MODE) == A_RAW_SHIFT_MODE_LEFT;
        }));
    }
    void expectSame(EveryShift &other, int bits) {
        sim::Simulator first(mDesign, mTop);
        sim::Simulator second(other.mDesign, other.mTop);
        ASSERT_EQ(first.outputs().size(), mNames.size());
        ASSERT_EQ(second.outputs().size(), mNames.size());
        for (std::int64_t pattern = 0; pattern < 1 << bits; ++pattern) {
            for (std::size_t i = 0; i < mFormats.size(); ++i) {
                first.setInput(i, pattern);
                second.setInput(i, pattern);
            }
            first.step();
            second.step();
            for (std::size_t i = 0; i < mNames.size(); ++i) {
                ASSERT_EQ(first.outputInteger(i), second.outputInteger(i)) << nameOf(i) << " of " << pattern;
            }
        }
    }

  private:
    PureValueRef key() { return NumberValue::get(0, mContext); }
    Block *add(const StaticString &type, std::size_t data, const std::string &name) {
        if (mNumber++ % testing::kExhaustiveStride != 0) {
            return nullptr;
        }
        Block &made = *Block::create(mTop, "b" + std::to_string(1000000 + mNames.size()), type);
        made.setParam(key(), *mData[data]);
        mOut.setParam(StringValue::get("o" + std::to_string(1000000 + mNames.size()), mContext),
                      *Wire::create(made, A_PRIM_WIRE_OUT));
        mNames.push_back(type.text() + (" of " + name));
        return &made;
    }

    Context *mContext;
    Design mDesign;
    Model &mTop = *Model::create(mDesign, "top");
    Block &mIn = *Block::create(mTop, "in", A_INPUT_BLOCK);
    Block &mOut = *Block::create(mTop, "out", A_OUTPUT_BLOCK);
    std::vector<test::SmallFormat> mFormats;
    std::vector<Wire *> mData;
    std::vector<std::string> mNames;
    std::uint64_t mNumber = 0;
};

std::vector<std::string> outputTypes() {
    std::vector<std::string> types{""};
    for (const test::SmallFormat &format : test::smallFormats(6)) {
        if (format.width == 1 || format.width == 4 || format.width == 6) {
            types.push_back(format.text());
        }
    }
    return types;
}

TEST(EverySmallShift, ofABarrelIsTheSameAsARawOne) {
    ContextMgr mgr;
    EveryShift before(mgr.context(), 6);
    EveryShift after(mgr.context(), 6);
    for (EveryShift *one : {&before, &after}) {
        one->addBarrels(outputTypes(), {0, 1, 2, 3, 5, 9});
    }
    test::runPass(after.design(), "ElideConstShiftsPass");
    // Those stay that a raw shift to the left would take bits from.
    EXPECT_LT(after.shifts(), before.shifts() / 20);
    before.expectSame(after, 6);
}

TEST(EverySmallShift, ofARawShiftIsTheSameAsChosenBits) {
    ContextMgr mgr;
    EveryShift before(mgr.context(), 8);
    EveryShift after(mgr.context(), 8);
    for (EveryShift *one : {&before, &after}) {
        one->addRawShifts(12);
    }
    test::runPass(after.design(), "ElideConstShiftsPass");
    EXPECT_LT(after.shifts(), before.shifts() / 4);
    before.expectSame(after, 8);
}

// Designs by chance.

RC_GTEST_PROP(ElideConstShiftsPassOnRandomDesigns, computesTheSame, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    RC_ASSERT(static_cast<bool>(test::computesTheSame(generator, *test::recipes(40), "ElideConstShiftsPass", nullptr)));
}

TEST(ElideConstShiftsPassOnRandomDesigns, computesTheSameWhereMuchIsRewritten) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::size_t replaced = 0;
    for (std::uint64_t seed = 1; seed <= 30; ++seed) {
        EXPECT_TRUE(test::computesTheSame(generator, gen::recipesOf(seed, 80), "ElideConstShiftsPass", &replaced))
            << seed;
    }
    EXPECT_GT(replaced, 1U);
}

} // namespace
} // namespace orvo
