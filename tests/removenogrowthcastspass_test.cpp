// Sums that a cast cuts back to the type of their operands: which of them lose the cast, and that they compute the
// same.
#include "orvo/removenogrowthcastspass.h"

#include "support/exhaustive.h"
#include "support/randomdesigns.h"
#include "support/rewritefixture.h"
#include "support/samebehaviour.h"
#include "support/smallformats.h"

#include <orvo/annotation.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace orvo {
namespace {

class RemoveNoGrowthCastsTest : public test::RewriteFixture {
  protected:
    RemoveNoGrowthCastsTest() : RewriteFixture("RemoveNoGrowthCastsPass") {}
    Block &sum(const std::string &name, const std::string &type, const std::string &first, const std::string &second) {
        return reading(name, type, {&input(model, name + "A", first), &input(model, name + "B", second)});
    }
    /// A sum of two signals, cast to a type, which is then an output.
    Block &summed(const std::string &name, const std::string &of, const std::string &to, const Texts &params = {}) {
        Block &made = cast("cast" + name, out(sum(name, "addBlock", of, of)), to, params);
        output(model, "out" + name, out(made));
        return made;
    }
    bool isCast(const std::string &name) { return has("cast" + name) && text(name, A_ADD_NO_GROWTH).empty(); }
};

TEST_F(RemoveNoGrowthCastsTest, takesTheCastAndMarksTheSum) {
    summed(
        "a", "s8.2", "s8.2",
        {{"castMode", "castModeConvert"}, {"castRoundingMode", "roundingTrunc"}, {"castSaturateMode", "saturateNone"}});
    run();
    EXPECT_EQ(drawn(), (Lines{"a addBlock true"}));
}

TEST_F(RemoveNoGrowthCastsTest, takesDifferencesToo) {
    for (const char *type : {"s6.2", "u6.2"}) {
        output(model, std::string("o") + type, out(cast("cast", out(sum(type, "subBlock", type, type)), type)));
    }
    run();
    EXPECT_EQ(drawn(), (Lines{"\"s6.2\" subBlock true", "\"u6.2\" subBlock true"}));
}

TEST_F(RemoveNoGrowthCastsTest, countsAbsentModesAsTheirDefaults) {
    summed("a", "u8.0", "u8.0");
    run();
    EXPECT_FALSE(has("casta"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesCastsThatDoMoreThanCut) {
    summed("bits", "s8.0", "s8.0", {{"castMode", "castModeReinterp"}});
    summed("rounding", "s8.0", "s8.0", {{"castRoundingMode", "roundingBiased"}});
    summed("clipping", "s8.0", "s8.0", {{"castSaturateMode", "saturateAsymmetric"}});
    run();
    for (const char *name : {"bits", "rounding", "clipping"}) {
        EXPECT_TRUE(isCast(name)) << name;
    }
}

TEST_F(RemoveNoGrowthCastsTest, leavesCastsToAnotherType) {
    for (const char *to : {"s9.0", "s7.0", "u8.0", "s8.1", "float(23,8)"}) {
        summed(to, "s8.0", to);
    }
    cast("untyped", out(sum("n", "addBlock", "s8.0", "s8.0")), "");
    run();
    for (const char *to : {"s9.0", "s7.0", "u8.0", "s8.1", "float(23,8)"}) {
        EXPECT_TRUE(isCast(to)) << to;
    }
    EXPECT_TRUE(has("untyped"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesSumsOfTwoTypes) {
    output(model, "o", out(cast("casta", out(sum("a", "addBlock", "s8.0", "s7.0")), "s8.0")));
    output(model, "p", out(cast("castb", out(sum("b", "addBlock", "u8.0", "s8.0")), "s8.0")));
    run();
    EXPECT_TRUE(isCast("a"));
    EXPECT_TRUE(isCast("b"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesSumsOfFloats) {
    summed("a", "float(23,8)", "float(23,8)");
    run();
    EXPECT_TRUE(isCast("a"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesSumsOfOneOrThree) {
    Wire &one = input(model, "i", "s8.0");
    for (const std::size_t count : {1U, 3U}) {
        const std::string name = std::to_string(count);
        Block &made = reading("sum" + name, "addBlock", std::vector<Wire *>(count, &one));
        output(model, "o" + name, out(cast("castsum" + name, out(made), "s8.0")));
    }
    Block &odd = reading("odd", "addBlock", {&one});
    odd.setParam(value("2"), one);
    output(model, "o", out(cast("castodd", out(odd), "s8.0")));
    run();
    EXPECT_TRUE(isCast("sum1"));
    EXPECT_TRUE(isCast("sum3"));
    EXPECT_TRUE(isCast("odd"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesASumThatSomethingElseReads) {
    summed("a", "s8.0", "s8.0");
    output(model, "grown", out(*model.getBlock(value("a"))));
    run();
    EXPECT_TRUE(isCast("a"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesACastWhoseClipFlagIsRead) {
    output(model, "clip", *Wire::create(summed("read", "s8.0", "s8.0"), A_CAST_WIRE_CLIP));
    Wire::create(summed("unread", "s8.0", "s8.0"), A_CAST_WIRE_CLIP);
    run();
    EXPECT_TRUE(isCast("read"));
    EXPECT_FALSE(has("castunread"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesASumOfATypeOfItsOwn) {
    summed("a", "s8.4", "s8.4");
    model.getBlock(value("a"))->setParam(A_ADD_TYPE, ValueRef(value("(typeSFixed 5 2)")));
    run();
    EXPECT_TRUE(isCast("a"));
}

TEST_F(RemoveNoGrowthCastsTest, leavesWhatIsUnconnectedOrUnknown) {
    Wire &untyped = *Wire::create(*Block::create(model, "in", A_INPUT_BLOCK), value("u"));
    Block &open = reading("open", "addBlock", {&input(model, "i", "s8.0")});
    cast("castopen", out(open), "s8.0");
    cast("castunknown", out(reading("unknown", "addBlock", {&untyped, &untyped})), "s8.0");
    delete cast("castmute", out(sum("mute", "addBlock", "s8.0", "s8.0")), "s8.0").getWire(A_PRIM_WIRE_OUT);
    block(model, "wireless", "addBlock").setParam(value("0"), untyped);
    model.getBlock(value("wireless"))->setParam(value("1"), untyped);
    Block &elsewhere = block(model, "elsewhere", "castBlock");
    elsewhere.setParam(value("x"), out(sum("other", "addBlock", "s8.0", "s8.0")));
    Wire::create(elsewhere, A_PRIM_WIRE_OUT);
    const std::size_t blocks = model.size();
    rewrite();
    EXPECT_EQ(model.size(), blocks);
}

TEST_F(RemoveNoGrowthCastsTest, takesVectorsAndComplexNumbers) {
    summed("lanes", "[3] s8.0", "[3] s8.0");
    summed("parts", "c s8.0", "c s8.0");
    output(model, "both", out(cast("castmixed", out(sum("mixed", "addBlock", "[3] s8.0", "c s8.0")), "[3] c s8.0")));
    summed("spread", "s8.0", "[3] s8.0");
    run();
    for (const char *name : {"castlanes", "castparts", "castmixed"}) {
        EXPECT_FALSE(has(name)) << name;
    }
    EXPECT_TRUE(isCast("spread"));
}

TEST_F(RemoveNoGrowthCastsTest, takesACastBehindACast) {
    output(model, "o", out(cast("again", out(*model.getBlock(summed("a", "s8.0", "s8.0").getName())), "s8.0")));
    model.getOutputBlock()->setParam(value("outa"), ValueRef());
    run();
    EXPECT_EQ(drawn(), (Lines{"a addBlock true"}));
}

TEST_F(RemoveNoGrowthCastsTest, takesARunOfCastsUpToOneThatDoesMore) {
    constexpr int kCasts = 1000;
    for (const auto &[name, type] : {std::pair<std::string, const char *>{"a", "s7.0"}, {"b", "s9.0"}}) {
        Wire *last = &out(sum(name, "addBlock", "s8.0", "s8.0"));
        for (int i = 0; i < kCasts; ++i) {
            last = &out(cast(name + "run" + std::to_string(i), *last, "s8.0"));
        }
        output(model, name + "o", out(cast(name + "back", out(cast(name + "other", *last, type)), "s8.0")));
    }
    run();
    EXPECT_EQ(drawn(),
              (Lines{"a addBlock true", "aback castBlock (typeSFixed 8 0)", "aother castBlock (typeSFixed 7 0)",
                     "b addBlock true", "bback castBlock (typeSFixed 8 0)", "bother castBlock (typeSFixed 9 0)"}));
}

TEST_F(RemoveNoGrowthCastsTest, takesTheCastOfASumThatDoesNotGrowAlready) {
    summed("a", "s8.0", "s8.0");
    model.getBlock(value("a"))->setParam(A_ADD_NO_GROWTH, A_TRUE);
    run();
    EXPECT_FALSE(has("casta"));
}

TEST_F(RemoveNoGrowthCastsTest, keepsTheTypesOfALoopByAPin) {
    Block &delay = block(model, "delay", "delayBlock", {{"delayLength", "1"}});
    Block &made = reading("sum", "addBlock", {&input(model, "i", "s8.0"), Wire::create(delay, A_PRIM_WIRE_OUT)});
    Block &casting = cast("cast", out(made), "s8.0");
    delay.setParam(value("0"), out(casting));
    output(model, "o", out(casting));
    run();
    EXPECT_EQ(drawn(), (Lines{"(sum typePin primWireOut) typePinBlock (typeSFixed 8 0)", "delay delayBlock",
                              "sum addBlock true"}));
    const Lines once = drawn();
    run();
    EXPECT_EQ(drawn(), once);
}

TEST_F(RemoveNoGrowthCastsTest, needsNoPinInALoopThatHasItsTypesOtherwise) {
    Block &delay = block(model, "delay", "delayBlock", {{"delayLength", "1"}});
    Wire &known = pinned(*Wire::create(delay, A_PRIM_WIRE_OUT), "s8.0");
    Block &made = reading("sum", "addBlock", {&input(model, "i", "s8.0"), &known});
    Block &casting = cast("cast", out(made), "s8.0");
    delay.setParam(value("0"), out(casting));
    output(model, "o", out(casting));
    run();
    EXPECT_EQ(drawn(), (Lines{"delay delayBlock", "sum addBlock true"}));
}

TEST_F(RemoveNoGrowthCastsTest, keepsTheTypesOfALoopThroughAnotherModel) {
    Model &below = *Model::create(design, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    Block &made =
        reading("sum", "addBlock", {Wire::create(in, value("x")), Wire::create(in, value("back"))}, {}, &below);
    Block &casting = reading("cast", "castBlock", {&out(made)}, {{"castOutputType", "(typeSFixed 8 0)"}}, &below);
    Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(casting));
    instantiate(below, {"s8.0"});
    Block &instance = *model.getBlock(value("i0"));
    Block &delay = reading("delay", "delayBlock", {instance.getWire(value("y"))}, {{"delayLength", "1"}});
    instance.setParam(value("back"), out(delay));
    run();
    EXPECT_EQ(below.getBlock(value("cast")), nullptr);
    EXPECT_NE(below.getBlock(value("(sum typePin primWireOut)")), nullptr);
}

/// A model that adds a constant of s8.0 to its input and casts to s8.0.
class InstancesOfASum : public RemoveNoGrowthCastsTest {
  protected:
    InstancesOfASum() {
        Block &c = reading("c", "constBlock", {}, {{"constValue", "3"}, {"constType", "(typeSFixed 8 0)"}}, &below);
        Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
        Block &made = reading("sum", "addBlock", {Wire::create(in, value("x")), &out(c)}, {}, &below);
        Block &casting = reading("cast", "castBlock", {&out(made)}, {{"castOutputType", "(typeSFixed 8 0)"}}, &below);
        Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(casting));
    }
    bool isTaken() { return below.getBlock(value("cast")) == nullptr; }
    Model &below = *Model::create(design, "below");
};

TEST_F(InstancesOfASum, loseTheCastWhereAllOfThemMay) {
    instantiate(below, {"s8.0"});
    run();
    EXPECT_TRUE(isTaken());
}

TEST_F(InstancesOfASum, keepTheCastWhereOneOfThemNeedsIt) {
    instantiate(below, {"s8.0", "s4.0"});
    run();
    EXPECT_FALSE(isTaken());
}

TEST_F(InstancesOfASum, keepTheCastWhereTheirVectorsDiffer) {
    // A cast without a type of its own has that of the sum, which differs.
    below.getBlock(value("cast"))->setParam(A_CAST_OUTPUT_TYPE, ValueRef());
    instantiate(below, {"s8.0", "[2] s8.0"});
    run();
    EXPECT_FALSE(isTaken());
}

TEST_F(RemoveNoGrowthCastsTest, leavesModelsThatAreSwitchedOff) {
    model.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    summed("a", "s8.0", "s8.0");
    run();
    EXPECT_TRUE(isCast("a"));
}

TEST_F(RemoveNoGrowthCastsTest, handsMetadataOfTheCastToWhatReadIt) {
    Block &casting = cast("cast", out(sum("a", "addBlock", "s8.0", "s8.0")), "s8.0");
    casting.setParam(A_METADATA, value("((comment cast))"));
    output(model, "o", out(reading("not", "notBlock", {&out(casting)})));
    run();
    EXPECT_EQ(text("not", A_METADATA), "((comment cast))");
}

TEST_F(RemoveNoGrowthCastsTest, movesLatencyConstraintsAndEdgesOfDomains) {
    Block &casting = cast("cast", out(sum("a", "addBlock", "s8.0", "s8.0")), "s8.0");
    casting.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    casting.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    output(model, "o", out(reading("not", "notBlock", {&out(casting)})));
    const auto edge = [&](const std::string &block) {
        return "((" + std::string(A_SCHEDULE_DOMAIN_END.text()) + " d (" + block + " " +
               std::string(A_WIRE_TAG.text()) + " primWireOut)))";
    };
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS, Value::parse(edge("cast"), mgr.context()));
    rewrite();
    EXPECT_EQ(text("not", A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))");
    EXPECT_EQ(text("a", A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
    EXPECT_EQ(model.getParam(A_SYNTH_SCHEDULE_DOMAINS)->toString(), edge("a"));
}

// All sums of two small numbers of one type.

std::unique_ptr<Design> everySum(Context *context) {
    auto design = std::make_unique<Design>(context);
    Model &top = *Model::create(*design, "top");
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
    const PureValueRef ports[] = {NumberValue::get(0, context), NumberValue::get(1, context)};
    for (const test::SmallFormat &format : test::smallFormats(8)) {
        const ValueRef type = Value::parse(format.text(), context);
        for (const StaticString *kind : {&A_ADD_BLOCK, &A_SUB_BLOCK}) {
            Block &sum = *Block::create(top, "sum", *kind);
            for (const PureValueRef &port : ports) {
                Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
                pin.setParam(A_TYPE_PIN_TYPE, type);
                // The first operands come before the second ones.
                pin.setParam(ports[0],
                             *Wire::create(in, (port == ports[0] ? "a" : "b") + std::to_string(100000 + top.size())));
                sum.setParam(port, *Wire::create(pin, ports[0]));
            }
            Block &cast = *Block::create(top, "cast", A_CAST_BLOCK);
            cast.setParam(A_CAST_OUTPUT_TYPE, type);
            cast.setParam(ports[0], *Wire::create(sum, A_PRIM_WIRE_OUT));
            out.setParam(StringValue::get("o" + std::to_string(100000 + top.size()), context),
                         *Wire::create(cast, A_PRIM_WIRE_OUT));
        }
    }
    return design;
}

TEST(EverySmallSum, isTheSameWithoutItsCast) {
    ContextMgr mgr;
    const auto before = everySum(mgr.context());
    const auto after = everySum(mgr.context());
    test::runPass(*after, "RemoveNoGrowthCastsPass");
    for (const Block &block : *after->begin()) {
        ASSERT_NE(block.type(), A_CAST_BLOCK.get_ptr()) << block.getName()->toString();
    }
    sim::Simulator first(*before, *before->begin());
    sim::Simulator second(*after, *after->begin());
    const std::size_t sums = first.inputs().size() / 2;
    ASSERT_EQ(first.outputs().size(), sums);
    ASSERT_EQ(second.outputs().size(), sums);
    for (std::int64_t pattern = 0; pattern < 1 << 16;
         pattern += static_cast<std::int64_t>(testing::kExhaustiveStride)) {
        for (std::size_t i = 0; i < sums; ++i) {
            for (sim::Simulator *one : {&first, &second}) {
                one->setInput(i, pattern & 0xff);
                one->setInput(sums + i, pattern >> 8);
            }
        }
        first.step();
        second.step();
        for (std::size_t i = 0; i < sums; ++i) {
            ASSERT_EQ(first.outputInteger(i), second.outputInteger(i)) << first.outputs()[i].name << " of " << pattern;
        }
    }
}

// Designs by chance.

RC_GTEST_PROP(RemoveNoGrowthCastsPassOnRandomDesigns, computesTheSame, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    RC_ASSERT(
        static_cast<bool>(test::computesTheSame(generator, *test::recipes(40), "RemoveNoGrowthCastsPass", nullptr)));
}

/// Sums, casts and delays in loops by chance.
class SumsByChance : public RemoveNoGrowthCastsTest {
  protected:
    struct Signal {
        Wire *wire;
        std::string type;
    };
    void draw(std::uint64_t seed) {
        test::Chance chance(seed);
        const std::vector<std::string> types = {"s4.2", "u4.2", "s6.0"};
        std::vector<Signal> signals;
        std::vector<Signal> delays;
        const auto pick = [&](const auto &from) { return from[static_cast<std::size_t>(chance()) % from.size()]; };
        for (const std::string &type : types) {
            delays.push_back({&out(block(model, "delay" + type, "delayBlock", {{"delayLength", "1"}})), type});
        }
        signals = delays;
        for (const std::string &type : types) {
            signals.push_back({&input(model, "i" + type, type), type});
        }
        for (int i = 0; i < 12; ++i) {
            const Signal first = pick(signals);
            std::vector<Signal> alike;
            std::copy_if(signals.begin(), signals.end(), std::back_inserter(alike),
                         [&](const Signal &one) { return one.type == first.type || chance() % 8 == 0; });
            const std::string number = std::to_string(100 + i);
            Block &sum =
                reading("sum" + number, chance() % 2 == 0 ? "addBlock" : "subBlock", {first.wire, pick(alike).wire});
            const std::string to = chance() % 4 == 0 ? pick(types) : first.type;
            Block &casting = cast("cast" + number, out(sum), to);
            signals.push_back({&out(casting), to});
            if (chance() % 8 == 0) {
                output(model, "grown" + number, out(sum));
            }
        }
        for (const Signal &delay : delays) {
            for (auto from = signals.rbegin(); from != signals.rend(); ++from) {
                if (from->type == delay.type) {
                    delay.wire->getBlock().setParam(value("0"), *from->wire);
                    break;
                }
            }
        }
        for (std::size_t i = 0; i < signals.size(); ++i) {
            output(model, "o" + std::to_string(100 + i), *signals[i].wire);
        }
    }
};

TEST_F(SumsByChance, computeTheSame) {
    std::size_t taken = 0;
    std::size_t pins = 0;
    for (std::uint64_t seed = 1; seed <= 100 && !HasFailure(); ++seed) {
        draw(seed);
        const std::size_t before = drawn().size();
        run();
        for (const std::string &line : drawn()) {
            pins += line.find("typePin") != std::string::npos ? 1 : 0;
        }
        taken += before - drawn().size();
        while (model.begin() != model.end()) {
            delete &*model.begin();
        }
    }
    EXPECT_GT(taken, 300U);
    EXPECT_GT(pins, 20U);
}

} // namespace
} // namespace orvo
