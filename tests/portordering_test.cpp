// Ports and wires of a block by number, as consumers that think in numbers ask for them.
#include "orvo/portordering.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

using Names = std::vector<std::string>;

class PortOrderingTest : public ::testing::Test {
  protected:
    /// A block of a type with the given ports, all on one wire, and wires.
    Block &make(const StaticString &type, const Names &ports, const Names &wires) {
        Block *block = Block::create(model, "b");
        block->setParam(A_BLOCK_TYPE, type);
        for (const std::string &port : ports) {
            block->setParam(pureVR(Value::parse(port, mgr.context())), source);
        }
        for (const std::string &wire : wires) {
            Wire::create(*block, pureVR(Value::parse(wire, mgr.context())));
        }
        return *block;
    }
    static Names inputs(const Block &block) {
        Names names;
        for (int i = 0; i < static_cast<int>(block.port_size()); ++i) {
            names.push_back(portOrderingOf(block).getInputPortByNumber(block, i)->getName()->toString());
        }
        return names;
    }
    static Names outputs(const Block &block) {
        Names names;
        for (int i = 0; i < static_cast<int>(block.getWireCount()); ++i) {
            names.push_back(portOrderingOf(block).getOutputWireByNumber(block, i)->getName()->toString());
        }
        return names;
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Wire &source = *Wire::create(*Block::create(model, "source"), "w");
};

TEST_F(PortOrderingTest, takesNamesInOrderByDefault) {
    Block &block = make(A_FIR_BLOCK, {"z", "1", "0", "a"}, {"y", "x"});
    EXPECT_EQ(inputs(block), (Names{"0", "1", "a", "z"}));
    EXPECT_EQ(outputs(block), (Names{"x", "y"}));
}

/// A type with its ports and wires in the order of their numbers.
struct Order {
    const StaticString *type;
    Names inputs;
    Names outputs;
};

TEST_F(PortOrderingTest, takesTheOrderOfTheTypeWhereNamesHaveNone) {
    const Order orders[] = {
        {&A_MUX_BLOCK, {"muxPortSelect", "0", "1", "2"}, {"primWireOut"}},
        {&A_CPACK_BLOCK, {"cpackPortReal", "cpackPortImag"}, {"cpackWireOut"}},
        {&A_CUNPACK_BLOCK, {"cunpackPortIn"}, {"cunpackWireReal", "cunpackWireImag"}},
        {&A_MINMAX_BLOCK, {"0", "1", "minmaxPortSelect"}, {"primWireOut"}},
        {&A_ADD_SLOAD_BLOCK, {"0", "1", "addSloadPortLoadCtrl", "addSloadPortLoadValue"}, {"primWireOut"}},
        {&A_ADDSUB_BLOCK, {"0", "1", "addsubPortSelect"}, {"primWireOut"}},
        {&A_COMPARECTRL_BLOCK, {"0", "1", "comparePortSelect"}, {"primWireOut"}},
        {&A_CORDIC_BLOCK,
         {"cordicPortX", "cordicPortY", "cordicPortAngle", "cordicPortMode"},
         {"cordicWireX", "cordicWireY", "cordicWireAngle"}},
        {&A_ADDSUBFUSED_BLOCK, {"0", "1"}, {"primWireOut", "primWireAux"}},
        {&A_SINCOSFUSED_BLOCK, {"0"}, {"primWireOut", "primWireAux"}},
        {&A_DUAL_MEM_BLOCK, {"dualMemPortAddr1"}, {"dualMemWireData1", "dualMemWireData2"}},
        {&A_SELECT_BLOCK, {"selectPortDefaultData", "(selectPortkeyCtrl 0)"}, {"primWireOut"}},
        {&A_CHANNEL_IN_BLOCK, {"portValid", "portChannel", "0", "1"}, {"wireValid", "wireChannel", "0", "1"}},
        {&A_CHANNEL_OUT_BLOCK,
         {"portValid", "portChannel", "portPacketBegin", "0"},
         {"wireValid", "wireChannel", "wirePacketBegin", "0"}},
        // Only the condition of the input must be there.
        {&A_CHANNEL_IN_BLOCK, {"portValid", "0"}, {"0"}},
        {&A_CHANNEL_OUT_BLOCK, {"portValid", "portPacketBegin", "0", "1"}, {"wireValid", "0", "1"}},
    };
    for (const Order &order : orders) {
        Block &block = make(*order.type, order.inputs, order.outputs);
        EXPECT_EQ(inputs(block), order.inputs) << order.type->text();
        EXPECT_EQ(outputs(block), order.outputs) << order.type->text();
    }
}

TEST_F(PortOrderingTest, refusesANumberBeyondTheEnd) {
    Block &add = make(A_ADD_BLOCK, {"0"}, {"primWireOut"});
    EXPECT_EXIT(portOrderingOf(add).getInputPortByNumber(add, 1), ::testing::ExitedWithCode(1), "number");
    EXPECT_EXIT(portOrderingOf(add).getInputPortByNumber(add, -1), ::testing::ExitedWithCode(1), "number");
    EXPECT_EXIT(portOrderingOf(add).getOutputWireByNumber(add, 1), ::testing::ExitedWithCode(1), "number");
    Block &memory = make(A_DUAL_MEM_BLOCK, {}, {"dualMemWireData1", "dualMemWireData2"});
    EXPECT_EXIT(portOrderingOf(memory).getOutputWireByNumber(memory, 2), ::testing::ExitedWithCode(1), "number");
    Block &select = make(A_SELECT_BLOCK, {}, {"primWireOut"});
    EXPECT_EXIT(portOrderingOf(select).getOutputWireByNumber(select, 1), ::testing::ExitedWithCode(1), "number");
    Block &minmax = make(A_MINMAX_BLOCK, {"0", "1", "minmaxPortSelect"}, {});
    EXPECT_EXIT(portOrderingOf(minmax).getInputPortByNumber(minmax, 3), ::testing::ExitedWithCode(1), "number");
    Block &mux = make(A_MUX_BLOCK, {"muxPortSelect"}, {"primWireOut"});
    EXPECT_EXIT(portOrderingOf(mux).getOutputWireByNumber(mux, 1), ::testing::ExitedWithCode(1), "number");
}

TEST_F(PortOrderingTest, refusesABlockThatLacksAWellKnownPortOrWire) {
    Block &mux = make(A_MUX_BLOCK, {"0"}, {"odd"});
    EXPECT_EXIT(portOrderingOf(mux).getInputPortByNumber(mux, 0), ::testing::ExitedWithCode(1), "lacks a port");
    EXPECT_EXIT(portOrderingOf(mux).getOutputWireByNumber(mux, 0), ::testing::ExitedWithCode(1), "lacks a wire");
    Block &channel = make(A_CHANNEL_IN_BLOCK, {"0"}, {"0"});
    EXPECT_EXIT(portOrderingOf(channel).getInputPortByNumber(channel, 0), ::testing::ExitedWithCode(1), "lacks a port");
}

} // namespace
} // namespace orvo
