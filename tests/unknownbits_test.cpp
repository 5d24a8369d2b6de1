// What the simulator tells of bits that nothing settles, and what a comparison makes of them.
#include <orvo/simcompare.h>

#include "support/oneblock.h"
#include "support/samebehaviour.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo::sim {
namespace {

using Numbers = std::vector<std::int64_t>;

class UnknownBitsTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    static SimulatorOptions tracking() {
        SimulatorOptions options;
        options.trackUnknown = true;
        return options;
    }
    /// The places of unknown bits of all outputs in the cycle.
    static std::vector<std::uint64_t> unknownWith(Simulator &simulator, const Numbers &in) {
        for (std::size_t i = 0; i < in.size(); ++i) {
            simulator.setInput(i, in[i]);
        }
        simulator.step();
        std::vector<std::uint64_t> unknown;
        for (std::size_t i = 0; i < simulator.outputs().size(); ++i) {
            unknown.push_back(simulator.unknownOutput(i).at(0));
        }
        return unknown;
    }
    std::unique_ptr<Design> memory(const char *flag) {
        return test::oneBlock(mgr.context(), "dualMemBlock",
                              {{"dualMemPortAddr1", "u2.0"},
                               {"dualMemPortData1", "u8.0"},
                               {"dualMemPortWrite1En", "u1.0"},
                               {"dualMemPortAddr2", "u2.0"},
                               {"dualMemPortData2", "u8.0"},
                               {"dualMemPortWrite2En", "u1.0"}},
                              {{"dualMemDepth1", "4"}, {"dualMemDepth2", "4"}, {flag, "true"}},
                              {"dualMemWireData1", "dualMemWireData2"});
    }
    /// A model whose sub-model has an input that nobody drives, and what two blocks make of it.
    std::unique_ptr<Design> openInput(const StaticString &type, bool twice) {
        auto design = std::make_unique<Design>(mgr.context());
        Model &inner = *Model::create(*design, "inner");
        Block &innerIn = *Block::create(inner, "in", A_INPUT_BLOCK);
        Block &pin = *Block::create(inner, "pin", A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 4 0)")));
        pin.setParam(value("0"), *Wire::create(innerIn, "open"));
        Wire &open = *Wire::create(pin, value("0"));
        Wire &given = *Wire::create(innerIn, "given");
        Block &block = *Block::create(inner, "block", type);
        block.setParam(value("0"), open);
        block.setParam(value("1"), twice ? open : given);
        Block::create(inner, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(block, A_PRIM_WIRE_OUT));
        Model &top = *Model::create(*design, "top");
        Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
        Block &topPin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
        topPin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 4 0)")));
        topPin.setParam(value("0"), *Wire::create(in, "x"));
        Block &call = *Block::create(top, "call", A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, inner);
        call.setParam(value("given"), *Wire::create(topPin, value("0")));
        Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(call, value("y")));
        return design;
    }
    Model &topOf(const Design &design) { return *design.getModel(value("top")); }
    /// A constant in place of what `openInput` computes.
    std::unique_ptr<Design> constantOutput(const char *number) {
        auto design = std::make_unique<Design>(mgr.context());
        Model &top = *Model::create(*design, "top");
        Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 4 0)")));
        pin.setParam(value("0"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"));
        Block::create(top, "end", A_TERMINAL_BLOCK)->setParam(value("0"), *Wire::create(pin, value("0")));
        Block &constant = *Block::create(top, "constant", A_CONST_BLOCK);
        constant.setParam(A_CONST_VALUE, ValueRef(value(number)));
        constant.setParam(A_CONST_TYPE, ValueRef(value("(typeUFixed 4 0)")));
        Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(constant, A_PRIM_WIRE_OUT));
        return design;
    }
    CompareResult compare(const Design &first, const Design &second) {
        CompareOptions options;
        options.cycles = 50;
        return compareDesigns(first, topOf(first), second, topOf(second), options);
    }
    ContextMgr mgr;
};

const char *const kOut = "primWireOut";

TEST_F(UnknownBitsTest, readsAsZeroUnlessTracked) {
    const auto design = openInput(A_OR_BLOCK, false);
    Simulator simulator(*design, topOf(*design));
    EXPECT_FALSE(simulator.tracksUnknown());
    EXPECT_EQ(unknownWith(simulator, {5}), (std::vector<std::uint64_t>{0}));
    EXPECT_EQ(simulator.outputInteger(0), 5);
}

TEST_F(UnknownBitsTest, followsBitsOfInputsThatAreNotConnected) {
    const auto design = openInput(A_OR_BLOCK, false);
    Simulator simulator(*design, topOf(*design), tracking());
    EXPECT_TRUE(simulator.tracksUnknown());
    EXPECT_EQ(unknownWith(simulator, {5}), (std::vector<std::uint64_t>{10}));
    EXPECT_EQ(unknownWith(simulator, {15}), (std::vector<std::uint64_t>{0}));
    const auto both = openInput(A_AND_BLOCK, false);
    Simulator masked(*both, topOf(*both), tracking());
    EXPECT_EQ(unknownWith(masked, {5}), (std::vector<std::uint64_t>{5}));
}

TEST_F(UnknownBitsTest, knowsThatAnUnknownValueDiffersFromItselfInNothing) {
    const auto design = openInput(A_XOR_BLOCK, true);
    Simulator simulator(*design, topOf(*design), tracking());
    EXPECT_EQ(unknownWith(simulator, {5}), (std::vector<std::uint64_t>{0}));
}

TEST_F(UnknownBitsTest, startsMemoriesUnknownThatAreMarkedSo) {
    const auto design = memory("memUninit");
    Simulator simulator(*design, topOf(*design), tracking());
    EXPECT_EQ(unknownWith(simulator, {1, 77, 1, 2, 0, 0}), (std::vector<std::uint64_t>{255, 255}));
    EXPECT_EQ(unknownWith(simulator, {1, 0, 0, 2, 0, 0}), (std::vector<std::uint64_t>{0, 255}));
    EXPECT_EQ(simulator.outputInteger(0), 77);
    simulator.reset();
    EXPECT_EQ(unknownWith(simulator, {1, 0, 0, 1, 0, 0}), (std::vector<std::uint64_t>{255, 255}));
}

TEST_F(UnknownBitsTest, startsOtherMemoriesAtZero) {
    const auto design = memory("dualMemRwConflictIgnore");
    Simulator simulator(*design, topOf(*design), tracking());
    EXPECT_EQ(unknownWith(simulator, {1, 0, 0, 2, 0, 0}), (std::vector<std::uint64_t>{0, 0}));
}

TEST_F(UnknownBitsTest, losesWhatBothSidesWriteAtOnce) {
    const auto design = memory("dualMemRwConflictIgnore");
    Simulator simulator(*design, topOf(*design), tracking());
    unknownWith(simulator, {3, 1, 1, 3, 2, 1});
    EXPECT_EQ(unknownWith(simulator, {3, 0, 0, 2, 0, 0}), (std::vector<std::uint64_t>{255, 0}));
}

TEST_F(UnknownBitsTest, readsWhatWasThereWhereAConflictIsIgnored) {
    // Permutations in place read what they overwrite in the same cycle.
    const auto design = memory("dualMemRwConflictIgnore");
    Simulator simulator(*design, topOf(*design), tracking());
    unknownWith(simulator, {3, 5, 1, 3, 0, 0});
    EXPECT_EQ(unknownWith(simulator, {3, 1, 1, 3, 0, 0}), (std::vector<std::uint64_t>{0, 0}));
    EXPECT_EQ(simulator.outputInteger(1), 5);
}

TEST_F(UnknownBitsTest, startsFilledMemoriesKnown) {
    const auto design = test::oneBlock(mgr.context(), "dualMemBlock", {{"dualMemPortAddr1", "u3.0"}},
                                       {{"dualMemDepth1", "8"},
                                        {"dualMemData", "(1 2 3 4)"},
                                        {"memUninit", "true"},
                                        {"dualMemTypeData1", "(typeUFixed 64 0)"}},
                                       {"dualMemWireData1"});
    Simulator simulator(*design, topOf(*design), tracking());
    EXPECT_EQ(unknownWith(simulator, {3}), (std::vector<std::uint64_t>{0}));
    EXPECT_EQ(unknownWith(simulator, {4}), (std::vector<std::uint64_t>{~std::uint64_t{0}}));
}

TEST_F(UnknownBitsTest, startsElementsWithoutContentUnknownOneByOne) {
    const auto design = test::oneBlock(mgr.context(), "dualMemBlock", {{"dualMemPortAddr1", "u5.0"}},
                                       {{"dualMemDepth1", "30"},
                                        {"dualMemData", "(1 2)"},
                                        {"memUninit", "true"},
                                        {"dualMemTypeData1", "(typeSFixed 5 0)"}},
                                       {"dualMemWireData1"});
    Simulator simulator(*design, topOf(*design), tracking());
    for (const std::int64_t address : {0, 1}) {
        EXPECT_EQ(unknownWith(simulator, {address}), (std::vector<std::uint64_t>{0})) << address;
        EXPECT_EQ(simulator.outputInteger(0), address + 1);
    }
    for (const std::int64_t address : {2, 12, 13, 29}) {
        EXPECT_EQ(unknownWith(simulator, {address}), (std::vector<std::uint64_t>{31})) << address;
    }
}

TEST_F(UnknownBitsTest, tellsQuotientsByZeroAndSelectsBeyondTheLast) {
    const auto quotient = test::oneBlock(mgr.context(), "divideBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {}, {kOut});
    Simulator divide(*quotient, topOf(*quotient), tracking());
    EXPECT_NE(unknownWith(divide, {3, 0})[0], 0U);
    EXPECT_EQ(unknownWith(divide, {3, 2})[0], 0U);
    const auto mux =
        test::oneBlock(mgr.context(), "muxBlock",
                       {{"muxPortSelect", "u2.0"}, {"0", "u3.0"}, {"1", "u3.0"}, {"2", "u3.0"}}, {}, {kOut});
    Simulator choose(*mux, topOf(*mux), tracking());
    EXPECT_EQ(unknownWith(choose, {3, 1, 2, 3})[0], 7U);
    EXPECT_EQ(unknownWith(choose, {2, 1, 2, 3})[0], 0U);
    EXPECT_EQ(choose.outputInteger(0), 3);
}

TEST_F(UnknownBitsTest, tellsDataOfAnEmptyQueue) {
    const auto design =
        test::oneBlock(mgr.context(), "fifoBlock",
                       {{"fifoPortData", "u8.0"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
                       {{"fifoDepth", "4"}}, {"fifoWireData", "fifoWireValid"});
    Simulator simulator(*design, topOf(*design), tracking());
    EXPECT_EQ(unknownWith(simulator, {9, 1, 0}), (std::vector<std::uint64_t>{255, 0}));
    EXPECT_EQ(unknownWith(simulator, {0, 0, 0}), (std::vector<std::uint64_t>{0, 0}));
}

TEST_F(UnknownBitsTest, comeOutOfBlocksThatLackAnInput) {
    // A queue without an acknowledge.
    const auto design =
        test::oneBlock(mgr.context(), "fifoBlock", {{"fifoPortData", "u3.0"}, {"fifoPortWriteEn", "u1.0"}},
                       {{"fifoDepth", "4"}}, {"fifoWireData", "fifoWireValid"});
    Simulator plain(*design, topOf(*design));
    EXPECT_EQ(unknownWith(plain, {5, 1}), (std::vector<std::uint64_t>{0, 0}));
    EXPECT_EQ(plain.outputInteger(0), 0);
    Simulator simulator(*design, topOf(*design), tracking());
    EXPECT_EQ(unknownWith(simulator, {5, 1}), (std::vector<std::uint64_t>{7, 1}));
}

TEST_F(UnknownBitsTest, takesNoRunMoreWhereNothingIsUnknown) {
    const auto design = test::oneBlock(mgr.context(), "addBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {}, {kOut});
    EXPECT_FALSE(Simulator(*design, topOf(*design), tracking()).tracksUnknown());
}

TEST_F(UnknownBitsTest, maySettleInALowering) {
    const auto before = openInput(A_XOR_BLOCK, false);
    const auto after = constantOutput("9");
    EXPECT_TRUE(compare(*before, *after).same());
}

TEST_F(UnknownBitsTest, mayNotAppearInALowering) {
    const auto before = constantOutput("9");
    const auto after = openInput(A_XOR_BLOCK, false);
    const CompareResult result = compare(*before, *after);
    ASSERT_FALSE(result.mismatches.empty());
    EXPECT_EQ(result.mismatches[0].secondUnknown[0], 15U);
    EXPECT_EQ(result.mismatches[0].firstUnknown[0], 0U);
}

TEST_F(UnknownBitsTest, maySettleOnlyWhereTheyWere) {
    // Bits that the or makes known must stay so.
    const auto before = openInput(A_OR_BLOCK, false);
    EXPECT_FALSE(compare(*before, *constantOutput("0")).same());
    EXPECT_TRUE(compare(*before, *constantOutput("15")).same());
}

TEST_F(UnknownBitsTest, areFoundWhereTheySeldomMatter) {
    // Few of the values make the output true: what runs by chance do not meet is no proof.
    const auto rare = [this] {
        auto design = std::make_unique<Design>(mgr.context());
        Model &inner = *Model::create(*design, "inner");
        Block &pin = *Block::create(inner, "pin", A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 10 0)")));
        pin.setParam(value("0"), *Wire::create(*Block::create(inner, "in", A_INPUT_BLOCK), "open"));
        Block &constant = *Block::create(inner, "constant", A_CONST_BLOCK);
        constant.setParam(A_CONST_VALUE, ValueRef(value("37")));
        Block &equal = *Block::create(inner, "equal", A_CMP_EQ_BLOCK);
        equal.setParam(value("0"), *Wire::create(pin, value("0")));
        equal.setParam(value("1"), *Wire::create(constant, A_PRIM_WIRE_OUT));
        Block::create(inner, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(equal, A_PRIM_WIRE_OUT));
        Model &top = *Model::create(*design, "top");
        Block &call = *Block::create(top, "call", A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, inner);
        Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(call, value("y")));
        return design;
    };
    const auto first = rare();
    const auto second = rare();
    EXPECT_TRUE(compare(*first, *second).same());
}

} // namespace
} // namespace orvo::sim
