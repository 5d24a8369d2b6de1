// Which block types come apart, and what each makes of its vectors.
#include "orvo/vectorunrollers.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"

#include <orvo/blocksinfo.h>
#include <orvo/pass.h>
#include <orvo/typeinfer.h>

#include <set>

namespace orvo {
namespace {

TEST(VectorUnrollers, speaksOfEveryTypeThatHasATypeRule) {
    ContextMgr mgr;
    std::set<std::string> told;
    for (const internal::VectorUnrollRow &row : internal::vectorUnrollRows()) {
        EXPECT_TRUE(told.insert(row.blockType->text()).second) << row.blockType->text();
        EXPECT_NE(std::string(row.summary), "");
    }
    for (const auto &[name, text] : getBlocksInfo().mappings()) {
        const PureValueRef type = StringValue::get(text, mgr.context());
        if (name.find("_BLOCK") != std::string::npos && typeRuleSummary(type.get_ptr()) != nullptr) {
            EXPECT_EQ(told.count(text), 1U) << name;
        }
    }
}

class VectorUnrollersTest : public test::SimulatorFixture {
  protected:
    /// Unrolls the block, which must compute the same, and gives the names of what is new in its place, but for what
    /// joins it.
    std::set<std::string> madeOf(const std::string &type, const Texts &inputs, const Texts &outputs,
                                 const Texts &params = {}, bool simulates = true) {
        Design before(mgr.context());
        Design after(mgr.context());
        oneBlock(before, type, inputs, outputs, params);
        Model &model = oneBlock(after, type, inputs, outputs, params);
        std::set<std::string> old;
        for (const Block &block : model) {
            old.insert(block.getName()->toString());
        }
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.addPass("ElideUnpackPass");
        scheduler.apply(after);
        EXPECT_EQ(heard.take(), std::vector<std::string>());
        EXPECT_TRUE(test::checkInvariants(after));
        if (simulates) {
            sim::CompareOptions options;
            options.cycles = 100;
            test::expectSameBehaviour(before, after, model.getName()->toString(), options);
        }
        std::set<std::string> made;
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            if (old.count(name) == 0 && name.find("block") < 3 && !joinsLanes(name)) {
                made.insert(name);
            }
        }
        return made;
    }
    static bool joinsLanes(const std::string &name) {
        return name.find("((block") == 0 &&
               (name.find(" vp") != std::string::npos || name.find(" vup") != std::string::npos);
    }
    using Made = std::set<std::string>;
};

TEST_F(VectorUnrollersTest, givesEachLaneABlock) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "[3] s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}),
              (Made{"(block 0)", "(block 1)", "(block 2)"}));
    EXPECT_EQ(madeOf("addBlock", {{"0", "[1] s4.0"}}, {{"primWireOut", ""}}), (Made{"(block 0)"}));
}

TEST_F(VectorUnrollersTest, leavesScalarsAlone) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}), Made{});
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}), Made{});
}

TEST_F(VectorUnrollersTest, namesLanesInnermostDimensionFirst) {
    EXPECT_EQ(madeOf("notBlock", {{"0", "[3][2] u4.0"}}, {{"primWireOut", ""}}),
              (Made{"(block 0 0)", "(block 0 1)", "(block 0 2)", "(block 1 0)", "(block 1 1)", "(block 1 2)"}));
}

TEST_F(VectorUnrollersTest, repeatsTheLastRolledValue) {
    const auto lane = [&](const char *text, int index) {
        return internal::elementOfLane(Value::parse(text, mgr.context()), {index})->toString();
    };
    const char *rolled = "(vectorRollTag 1 2 3)";
    EXPECT_EQ(lane(rolled, 0) + lane(rolled, 1) + lane(rolled, 2) + lane(rolled, 3) + lane(rolled, 4), "12333");
    EXPECT_EQ(lane("(typeVector 2 (typeSFixed 4 0))", 1), "(typeSFixed 4 0)");
    EXPECT_EQ(lane("(1 2 3)", 1), "(1 2 3)");
    EXPECT_EQ(lane("7", 1), "7");
}

TEST_F(VectorUnrollersTest, takesLayersOfRolledValuesForTheInnermostDimensions) {
    const auto lane = [&](const char *text, const std::vector<int> &indices) {
        return internal::elementOfLane(Value::parse(text, mgr.context()), indices)->toString();
    };
    const char *matrix = "(vectorRollTag (vectorRollTag 1 2 3) (vectorRollTag 4 5 6))";
    EXPECT_EQ(lane(matrix, {2, 0}), "3");
    EXPECT_EQ(lane(matrix, {0, 1}), "4");
    EXPECT_EQ(lane(matrix, {1, 1, 1}), "5");
    EXPECT_EQ(lane("(vectorRollTag 1 2 3)", {2, 0}), "3");
}

TEST_F(VectorUnrollersTest, keepsTheTypesOfLanesWhoseValuesAreNarrower) {
    EXPECT_EQ(madeOf("constBlock", {}, {{"primWireOut", ""}}, {{"constValue", "(vectorRollTag 1 -9 3)"}}),
              (Made{"(block 0)", "(block 1)", "(block 2)"}));
    EXPECT_EQ(madeOf("counterBlock", {}, {{"primWireOut", ""}},
                     {{"counterLimit", "(3 17)"}, {"counterInitial", "0"}, {"counterStep", "1"}}),
              (Made{"(block 0)", "(block 1)", "((block 0) cast)", "((block 1) cast)"}));
    EXPECT_EQ(
        madeOf("constmultBlock", {{"0", "[2] s4.0"}}, {{"primWireOut", ""}}, {{"constValue", "(vectorRollTag 1 9)"}}),
        (Made{"(block 0)", "(block 1)", "((block 0) cast)", "((block 1) cast)"}));
}

TEST_F(VectorUnrollersTest, concatenatesByWiring) {
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] s4.0"}, {"1", "s4.0"}, {"2", "[3] s4.0"}}, {{"primWireOut", ""}}),
              (Made{"block_vp"}));
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] s4.0"}, {"1", "u3.2"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 0)", "(block_vp 1)", "(block_vp 2)"}));
}

TEST_F(VectorUnrollersTest, splitsByWiring) {
    EXPECT_EQ(madeOf("vsplitBlock", {{"0", "[5] s4.0"}}, {{"0", ""}, {"1", ""}}), (Made{"block_vp0", "block_vp1"}));
    EXPECT_EQ(madeOf("vsplitBlock", {{"0", "[5] s4.0"}}, {{"0", ""}, {"1", ""}}, {{"vsplitLayout", "(1 3)"}}),
              (Made{"block_vp1"}));
}

TEST_F(VectorUnrollersTest, selectsByWiring) {
    EXPECT_EQ(madeOf("vselectorBlock", {{"vselectorPortIn", "[4] s4.0"}}, {{"primWireOut", ""}},
                     {{"vselectorIndicies", "((3 0 0))"}}),
              Made{});
    EXPECT_EQ(madeOf("vselectorBlock", {{"vselectorPortIn", "[3][2] s4.0"}}, {{"primWireOut", ""}},
                     {{"vselectorIndicies", "((2 1) (1))"}}),
              Made{});
    EXPECT_EQ(madeOf("vselectorBlock", {{"vselectorPortIn", "[2][3] s4.0"}}, {{"primWireOut", ""}},
                     {{"vselectorIndicies", "((1))"}}),
              Made{});
}

TEST_F(VectorUnrollersTest, makesOneSumOfAReduction) {
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "[4] s4.2"}}, {{"primWireOut", ""}}), (Made{"block_vunroll"}));
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "[3][2] s4.2"}}, {{"primWireOut", ""}}),
              (Made{"(block_vunroll 0)", "(block_vunroll 1)"}));
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "[2][3] s4.2"}}, {{"primWireOut", ""}}),
              (Made{"(block_vunroll 0)", "(block_vunroll 1)", "(block_vunroll 2)"}));
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "s4.2"}}, {{"primWireOut", ""}}), (Made{"block_vunroll"}));
}

TEST_F(VectorUnrollersTest, makesOneJoinOfAReduction) {
    EXPECT_EQ(madeOf("bitJoinReduceBlock", {{"0", "[3] u2.0"}}, {{"primWireOut", ""}}), (Made{"block_vunroll"}));
    EXPECT_EQ(madeOf("bitJoinReduceBlock", {{"0", "[3] s2.1"}}, {{"primWireOut", ""}}),
              (Made{"block_vunroll", "(block_vunroll bits)"}));
}

TEST_F(VectorUnrollersTest, makesOneScalarProduct) {
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "[3] s4.2"}, {"1", "[3] s3.0"}}, {{"primWireOut", ""}}),
              (Made{"block_vunroll"}));
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "[2] s4.2"}, {"1", "s3.0"}, {"2", "[2] s4.2"}, {"3", "[2] u3.0"}},
                     {{"primWireOut", ""}}, {{"subtractive", "true"}}),
              (Made{"block_vunroll", "(block neg 2 0)"}));
}

TEST_F(VectorUnrollersTest, givesEachLaneItsTable) {
    EXPECT_EQ(madeOf("lutBlock", {{"lutPortAddr", "u2.0"}}, {{"primWireOut", ""}},
                     {{"lutData", "((vectorRollTag 1 20) (vectorRollTag 3 4) (vectorRollTag 5 6))"}}),
              (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(madeOf("lutBlock", {{"lutPortAddr", "[2] u2.0"}}, {{"primWireOut", ""}},
                     {{"lutData", "(vectorRollTag (1 2 3) (4 50 6))"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(VectorUnrollersTest, numbersTheOutputsOfADemultiplexerThrough) {
    Design design(mgr.context());
    Model &model =
        oneBlock(design, "demuxBlock", {{"demuxPortData", "[2] s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}},
                 {{"0", ""}, {"1", ""}, {"2", ""}, {"3", ""}}, {{"demuxChannelCount", "2"}});
    PassScheduler scheduler;
    scheduler.addPass("UnrollVectorPass");
    scheduler.apply(design);
    EXPECT_TRUE(test::checkInvariants(design));
    for (const char *lane : {"(block vunroll 0)", "(block vunroll 1)"}) {
        const Block *block = model.getBlock(value(lane));
        ASSERT_NE(block, nullptr) << lane;
        EXPECT_EQ(block->getWireCount(), 2U);
        EXPECT_NE(block->getPort(A_PORT_VALID), nullptr);
        EXPECT_NE(block->getPort(A_PORT_CHANNEL), nullptr);
    }
}

TEST_F(VectorUnrollersTest, keepsNamedPortsOnOneBlock) {
    EXPECT_EQ(madeOf("signalInBlock", {{"x", "[2] s4.0"}, {"y", "s4.0"}}, {{"x", ""}, {"y", ""}}), Made{});
    EXPECT_EQ(madeOf("latencyPlaceholderBlock", {{"x", "[2] s4.0"}}, {{"y", ""}},
                     {{"latencyPlaceholderTypemap",
                       "((x (typeVector 2 (typeSFixed 4 0))) (y (typeVector 3 (typeSFixed 4 0))))"}}),
              Made{});
}

TEST_F(VectorUnrollersTest, pinsEachLane) {
    EXPECT_EQ(madeOf("typePinBlock", {{"0", "[2] s4.0"}, {"1", "s3.0"}}, {{"0", ""}, {"1", ""}},
                     {{"typePinPortTypes", "((typeVector 2 (typeSFixed 4 0)) (typeSFixed 3 0))"}}),
              (Made{"block_vunroll"}));
}

} // namespace
} // namespace orvo
