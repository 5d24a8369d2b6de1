// Composites where their inputs alone do not tell the types: in loops, behind the edges of models, and with inputs that
// the block was not made for.
#include "orvo/decomposehandlers.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/oneblock.h"
#include "support/porttypes.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace orvo {
namespace {

using test::KeyedTexts;

std::vector<std::string> decompose(Design &design) {
    test::HeardMessages heard(design.getContext());
    PassScheduler scheduler;
    scheduler.addPass("DecomposeCompositePass");
    scheduler.apply(design);
    EXPECT_TRUE(test::checkInvariants(design));
    return heard.take();
}

class CompositesInPlace : public test::SimulatorFixture {
  protected:
    using Draw = std::function<void(Model &)>;

    /// Draws a model twice and decomposes one. All that both have must have the same types and compute the same. Gives
    /// how many blocks of each type there are.
    std::map<std::string, int> decomposed(const Draw &draw) {
        Design before(mgr.context());
        Design after(mgr.context());
        draw(*Model::create(before, "top"));
        draw(*Model::create(after, "top"));
        const auto types = test::portTypes(before);
        EXPECT_EQ(decompose(after), std::vector<std::string>{});
        const auto now = test::portTypes(after);
        for (const auto &[port, type] : types) {
            EXPECT_NE(type, "?") << port;
            EXPECT_TRUE(now.count(port) == 0 || now.at(port) == type) << port << ": " << now.at(port);
        }
        for (const auto &[port, type] : now) {
            EXPECT_NE(type, "?") << port;
        }
        sim::CompareOptions options;
        options.cycles = 200;
        test::expectSameBehaviour(before, after, "top", options);
        std::map<std::string, int> counts;
        for (const Model &model : after) {
            for (const Block &one : model) {
                ++counts[one.type()->toString()];
            }
        }
        return counts;
    }
    Block &binary(Model &in, const char *name, const char *type, Wire &a, Wire &b) {
        Block &made = block(in, name, type);
        made.setParam(value("0"), a);
        made.setParam(value("1"), b);
        return made;
    }
    Block &delayed(Model &in, Wire &wire) {
        Block &made = block(in, "delay", "delayBlock", {{"delayLength", "1"}});
        made.setParam(value("0"), wire);
        return made;
    }
    Block &cast(Model &in, const char *name, Wire &wire, const char *type, const Texts &params) {
        Block &made = block(in, name, "castBlock", params);
        made.setParam(A_CAST_OUTPUT_TYPE, ValueRef(value(testing::typeText(type))));
        made.setParam(value("0"), wire);
        return made;
    }
    /// The sum of an input and of what the cast of the sum, or its flag, was a cycle ago.
    void accumulator(Model &top, const char *type, const Texts &params, const StaticString &back) {
        Block &add = block(top, "add", "addBlock");
        Block &clipped = cast(top, "cast", out(add), type, params);
        Wire &flag = *Wire::create(clipped, A_CAST_WIRE_CLIP);
        output(top, "clip", flag);
        output(top, "sum", out(clipped));
        add.setParam(value("0"), input(top, "x", type));
        add.setParam(value("1"), out(delayed(top, back == A_CAST_WIRE_CLIP ? flag : out(clipped))));
    }
    /// A register across clocks of one rate.
    Block &syncRegister(Model &in, Wire &data, Wire &enable) {
        Block &made = block(in, "reg", "syncRegisterBlock",
                            {{"syncRegisterClocksSame", "true"}, {"syncRegisterDataType", "(typeSFixed 8 0)"}});
        made.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, data);
        made.setParam(A_SYNC_REGISTER_PORT_ICLK_ENABLE, enable);
        return made;
    }
    Wire &rawInput(Model &in, const char *name) {
        Block *block = in.getInputBlock();
        return *Wire::create(block != nullptr ? *block : *Block::create(in, "in", A_INPUT_BLOCK), value(name));
    }
    /// An instance of a model that `draw` draws, with x and y at its edge.
    Wire &instance(Model &top, Wire &x, const std::function<Wire &(Model &, Wire &)> &draw) {
        Model &below = *Model::create(top.getDesign(), "below");
        output(below, "y", draw(below, rawInput(below, "x")));
        Block &made = *Block::create(top, "i", A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, below);
        made.setParam(value("x"), x);
        return *Wire::create(made, value("y"));
    }
};

using CastsInLoops = CompositesInPlace;

const std::vector<std::pair<const char *, const char *>> kAsymmetric = {{"castSaturateMode", "saturateAsymmetric"}};
const std::vector<std::pair<const char *, const char *>> kSymmetric = {{"castSaturateMode", "saturateSymmetric"}};

TEST_F(CastsInLoops, keepTheTypesOfALoopThroughTheValue) {
    const std::vector<Texts> modes = {
        kAsymmetric,
        kSymmetric,
        {{"castSaturateMode", "saturateSymmetric"}, {"castRoundingMode", "roundingBiased"}},
        {{"castSaturateMode", "saturateNone"}, {"castRoundingMode", "roundingUnbiased"}},
        {{"castMode", "castModeReinterp"}}};
    for (const Texts &mode : modes) {
        for (const char *type : {"s8.0", "s4.2", "u3.2", "[2] s3.0"}) {
            SCOPED_TRACE(std::string(mode.front().second) + " " + type);
            decomposed([&](Model &top) { accumulator(top, type, mode, A_PRIM_WIRE_OUT); });
        }
    }
}

TEST_F(CastsInLoops, keepTheTypesOfALoopThroughTheFlag) {
    for (const Texts &mode : {kAsymmetric, kSymmetric}) {
        for (const char *type : {"s8.0", "u3.2", "[2] s3.0"}) {
            SCOPED_TRACE(std::string(mode.front().second) + " " + type);
            decomposed([&](Model &top) { accumulator(top, type, mode, A_CAST_WIRE_CLIP); });
        }
    }
}

TEST_F(CastsInLoops, keepTheTypesWhereNoBitSurvives) {
    decomposed([&](Model &top) {
        Block &add = block(top, "add", "addBlock");
        Block &lost = cast(top, "cast", out(add), "s13.-9", {{"castRoundingMode", "roundingTrunc"}});
        add.setParam(value("0"), input(top, "x", "s3.4"));
        add.setParam(value("1"), out(delayed(top, out(cast(top, "back", out(lost), "s3.4", kSymmetric)))));
        output(top, "y", out(lost));
    });
}

TEST_F(CastsInLoops, keepTheTypesOfALoopThroughTwo) {
    decomposed([&](Model &top) {
        Block &add = block(top, "add", "addBlock");
        Block &first = cast(top, "first", out(add), "s6.0", kAsymmetric);
        Block &second = cast(top, "second", out(first), "s4.0", kSymmetric);
        add.setParam(value("0"), input(top, "x", "s8.0"));
        add.setParam(value("1"), out(delayed(top, out(second))));
        output(top, "y", out(second));
    });
}

TEST_F(CastsInLoops, keepTheTypesOfALoopAcrossTheEdgeOfAModel) {
    decomposed([&](Model &top) {
        Block &add = block(top, "add", "addBlock");
        Wire &clipped = instance(
            top, out(add), [&](Model &in, Wire &x) -> Wire & { return out(cast(in, "c", x, "s8.0", kSymmetric)); });
        add.setParam(value("0"), input(top, "x", "s8.0"));
        add.setParam(value("1"), out(delayed(top, clipped)));
        output(top, "y", clipped);
    });
}

TEST_F(CastsInLoops, keepTheTypesOfALoopThatIsLong) {
    decomposed([&](Model &top) {
        Block &add = block(top, "add", "addBlock");
        Wire *wire = &out(add);
        for (int i = 0; i < 100; ++i) {
            wire = &out(delayed(top, *wire));
        }
        Block &clipped = cast(top, "cast", *wire, "s8.0", kSymmetric);
        add.setParam(value("0"), input(top, "x", "s8.0"));
        add.setParam(value("1"), out(clipped));
        output(top, "y", out(clipped));
    });
}

/// Pins beyond the one at each of the two inputs.
TEST_F(CastsInLoops, getPinsWhereTheyNeedThemAlone) {
    EXPECT_EQ(decomposed([&](Model &top) { accumulator(top, "s8.0", kAsymmetric, A_PRIM_WIRE_OUT); })["typePinBlock"],
              3);
    const auto straight = [&](Model &top) {
        // A loop before the cast that knows its types without it.
        Block &add = block(top, "add", "addBlock", {{"addNoGrowth", "true"}});
        Block &back = cast(top, "back", out(add), "s8.0", {{"castSaturateMode", "saturateNone"}});
        add.setParam(value("0"), input(top, "x", "s8.0"));
        add.setParam(value("1"), out(delayed(top, out(back))));
        output(top, "y",
               out(cast(top, "cast", out(binary(top, "sum", "addBlock", out(add), out(back))), "s6.0", kSymmetric)));
    };
    EXPECT_EQ(decomposed(straight)["typePinBlock"], 1);
}

using SyncRegistersInPlace = CompositesInPlace;

TEST_F(SyncRegistersInPlace, keepTheTypesOfALoopThroughTheData) {
    for (const StaticString *back : {&A_SYNC_REGISTER_WIRE_ICLK_DATA, &A_SYNC_REGISTER_WIRE_OCLK_DATA}) {
        const auto counts = decomposed([&](Model &top) {
            Block &mux = block(top, "mux", "muxBlock");
            Block &held = syncRegister(top, out(mux), input(top, "e", "u1.0"));
            Wire &wire = *Wire::create(held, *back);
            mux.setParam(A_MUX_PORT_SELECT, input(top, "s", "u1.0"));
            mux.setParam(value("0"), wire);
            mux.setParam(value("1"), input(top, "x", "s8.0"));
            output(top, "y", wire);
        });
        EXPECT_EQ(counts.count("syncRegisterBlock"), 0U);
    }
}

TEST_F(SyncRegistersInPlace, keepTheTypesOfALoopThroughTheEnable) {
    for (const char *type : {"u1.0", "u3.0"}) {
        const auto counts = decomposed([&](Model &top) {
            Block &mux = block(top, "mux", "muxBlock");
            Block &held = syncRegister(top, input(top, "x", "s8.0"), out(mux));
            Wire &valid = *Wire::create(held, A_SYNC_REGISTER_WIRE_OCLK_VALID);
            mux.setParam(A_MUX_PORT_SELECT, input(top, "s", "u1.0"));
            mux.setParam(value("0"), valid);
            mux.setParam(value("1"), input(top, "e", type));
            output(top, "v", valid);
            output(top, "y", *Wire::create(held, A_SYNC_REGISTER_WIRE_OCLK_DATA));
        });
        EXPECT_EQ(counts.count("syncRegisterBlock"), 0U) << type;
    }
}

TEST_F(SyncRegistersInPlace, sayTheTypesOfInputsThatHaveNone) {
    const auto counts = decomposed([&](Model &top) {
        Block &held = syncRegister(top, rawInput(top, "x"), rawInput(top, "e"));
        output(top, "y", *Wire::create(held, A_SYNC_REGISTER_WIRE_OCLK_DATA));
        output(top, "v", *Wire::create(held, A_SYNC_REGISTER_WIRE_OCLK_VALID));
    });
    EXPECT_EQ(counts.count("syncRegisterBlock"), 0U);
    EXPECT_EQ(counts.at("typePinBlock"), 2);
}

TEST_F(SyncRegistersInPlace, sayTheTypesAcrossTheEdgeOfAModel) {
    const auto counts = decomposed([&](Model &top) {
        Wire &x = rawInput(top, "x");
        output(top, "y", instance(top, x, [&](Model &in, Wire &data) -> Wire & {
                   return *Wire::create(syncRegister(in, data, input(in, "e", "u1.0")), A_SYNC_REGISTER_WIRE_OCLK_DATA);
               }));
        top.getBlock(value("i"))->setParam(value("e"), rawInput(top, "e"));
    });
    EXPECT_EQ(counts.count("syncRegisterBlock"), 0U);
}

TEST_F(SyncRegistersInPlace, bringInTheDataOfADriverThatIsReplacedToo) {
    const auto counts = decomposed([&](Model &top) {
        Block &shorter = cast(top, "a", input(top, "x", "s8.2"), "s3.0", kSymmetric);
        Block &held = syncRegister(top, out(shorter), input(top, "e", "u1.0"));
        output(top, "y", *Wire::create(held, A_SYNC_REGISTER_WIRE_ICLK_DATA));
    });
    EXPECT_EQ(counts.count("syncRegisterBlock"), 0U);
    EXPECT_EQ(counts.count("castBlock"), 0U);
}

/// Blocks whose inputs, outputs or parameters do not fit what they would become.
struct Odd {
    const char *name;
    const char *block;
    KeyedTexts inputs;
    KeyedTexts params;
    std::vector<const char *> outputs;
};

void PrintTo(const Odd &odd, std::ostream *out) { *out << odd.name; }

class OddComposite : public ::testing::TestWithParam<Odd> {};

TEST_P(OddComposite, staysAsItIs) {
    ContextMgr mgr;
    const Odd &at = GetParam();
    const auto design = test::oneBlock(mgr.context(), at.block, at.inputs, at.params, at.outputs);
    const std::size_t blocks = (*design->begin()).size();
    EXPECT_EQ(decompose(*design), std::vector<std::string>{});
    const Block *block = (*design->begin()).getBlock(PureValueRef(Value::parse("block", mgr.context())));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->type()->toString(), at.block);
    EXPECT_EQ((*design->begin()).size(), blocks);
}

KeyedTexts bitsAt(const char *offsets) {
    return {{"chooseBitsBitOffsets", offsets}, {"chooseBitsOutputType", "(typeUFixed 2 0)"}};
}

const KeyedTexts kSync = {{"syncRegisterClocksSame", "true"}, {"syncRegisterDataType", "(typeSFixed 8 0)"}};

const Odd kOdd[] = {
    {"powerOfVectorsOfOtherLengths", "multPow2Block", {{"0", "[3] s4.1"}, {"1", "[2] u3.0"}}, {}, {"primWireOut"}},
    {"powerOfAScalarByAVector", "multPow2Block", {{"0", "s4.1"}, {"1", "[2] u3.0"}}, {}, {"primWireOut"}},
    {"powerOfAScalarByASignedVector", "multPow2Block", {{"0", "s4.1"}, {"1", "[2] s3.0"}}, {}, {"primWireOut"}},
    {"bitsFromTheTop", "chooseBitsBlock", {{"0", "s6.0"}}, bitsAt("(0 -1)"), {"primWireOut"}},
    {"bitsBeyondTheTop", "chooseBitsBlock", {{"0", "s6.0"}}, bitsAt("(6 0)"), {"primWireOut"}},
    {"bitsFarBeyondTheTop", "chooseBitsBlock", {{"0", "s6.0"}}, bitsAt("(0 2000000000)"), {"primWireOut"}},
    {"bitsFarFromTheTop", "chooseBitsBlock", {{"0", "s6.0"}}, bitsAt("(-2000000000 0)"), {"primWireOut"}},
    {"bitsBeyondAFloat", "chooseBitsBlock", {{"0", "float(5,4)"}}, bitsAt("(0 10)"), {"primWireOut"}},
    {"demuxOfAWideValid",
     "demuxBlock",
     {{"demuxPortData", "s6.2"}, {"portValid", "u2.0"}, {"portChannel", "u2.0"}},
     {{"demuxChannelCount", "2"}},
     {"0", "1"}},
    {"registerOfVectors",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "[3] s8.0"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     kSync,
     {"syncRegisterWireIclkData"}},
    {"registerOfComplexNumbers",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "c s8.0"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     kSync,
     {"syncRegisterWireOclkData"}},
    {"registerOfFloats",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "float(5,4)"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     kSync,
     {"syncRegisterWireOclkData"}},
    {"registerWithAVectorOfEnables",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s8.0"}, {"syncRegisterPortIclkEnable", "[2] u1.0"}},
     kSync,
     {"syncRegisterWireOclkData"}},
    {"registerWithoutAType",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s8.0"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     {{"syncRegisterClocksSame", "true"}},
     {"syncRegisterWireOclkData"}},
    {"registerWithoutAnEnable",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s8.0"}},
     kSync,
     {"syncRegisterWireOclkData"}},
    {"registerWithoutData",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkEnable", "u1.0"}},
     kSync,
     {"syncRegisterWireOclkData"}},
};

INSTANTIATE_TEST_SUITE_P(Odd, OddComposite, ::testing::ValuesIn(kOdd),
                         [](const auto &at) { return std::string(at.param.name); });

TEST(RelaxedDemux, isReplacedWhereItTakesAWideValid) {
    ContextMgr mgr;
    const auto design = test::oneBlock(mgr.context(), "demuxBlock",
                                       {{"demuxPortData", "s6.2"}, {"portValid", "u2.0"}, {"portChannel", "u2.0"}},
                                       {{"demuxChannelCount", "2"}, {"primRelaxBools", "true"}}, {"0", "1"});
    EXPECT_EQ(decompose(*design), std::vector<std::string>{});
    EXPECT_EQ((*design->begin()).getBlock(PureValueRef(Value::parse("block", mgr.context()))), nullptr);
}

} // namespace
} // namespace orvo
