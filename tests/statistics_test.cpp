// Counting designs, and the walk over their links.
#include "driver/statistics.h"

#include "driver/invariants.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvo::driver {
namespace {

class Statistics : public ::testing::Test {
  protected:
    Model &model(const std::string &name) { return *Model::create(mDesign, name); }
    Block &block(Model &parent, const std::string &name, const StaticString &type) {
        Block *made = Block::create(parent, name);
        made->setParam(A_BLOCK_TYPE, type.get());
        return *made;
    }
    void instance(Model &parent, const std::string &name, Model &of) {
        block(parent, name, A_MODEL_BLOCK).setParam(A_MODEL_NODE, of);
    }

    ContextMgr mGuard;
    Design mDesign{mGuard.context()};
};

TEST_F(Statistics, areZeroForAnEmptyDesign) {
    const DesignStatistics counted = countDesign(mDesign);
    EXPECT_EQ(counted.models + counted.blocks + counted.wires + counted.ports + counted.params + counted.depth, 0U);
    EXPECT_FALSE(counted.recursive);
    EXPECT_TRUE(findBrokenLinks(mDesign).empty());
}

TEST_F(Statistics, countBlocksWiresPortsAndParameters) {
    Model &top = model("top");
    Block &source = block(top, "source", A_CONST_BLOCK);
    Wire *wire = Wire::create(source, "out");
    Block &sum = block(top, "sum", A_ADD_BLOCK);
    sum.setParam(Value::parse("0", mGuard.context()), *wire);
    sum.setParam(Value::parse("1", mGuard.context()), *wire);
    Block::create(top, "untyped");
    const DesignStatistics counted = countDesign(mDesign);
    EXPECT_EQ(counted.models, 1U);
    EXPECT_EQ(counted.blocks, 3U);
    EXPECT_EQ(counted.wires, 1U);
    EXPECT_EQ(counted.ports, 2U);
    EXPECT_EQ(counted.params, 4U);
    EXPECT_EQ(counted.depth, 1U);
    EXPECT_EQ(counted.blocksByType, (BlockCounts{{"(none)", 1}, {"addBlock", 1}, {"constBlock", 1}}));
    EXPECT_EQ(counted.topModels, std::vector<std::string>{"top"});
    EXPECT_TRUE(findBrokenLinks(mDesign).empty());
}

TEST_F(Statistics, findTheDeepestWayThroughSharedModels) {
    Model &leaf = model("leaf");
    Model &middle = model("middle");
    Model &top = model("top");
    instance(top, "a", leaf);
    instance(top, "b", middle);
    instance(middle, "c", leaf);
    instance(middle, "d", leaf);
    const DesignStatistics counted = countDesign(mDesign);
    EXPECT_EQ(counted.depth, 3U);
    EXPECT_FALSE(counted.recursive);
    EXPECT_EQ(counted.topModels, std::vector<std::string>{"top"});
    EXPECT_TRUE(findBrokenLinks(mDesign).empty());
}

TEST_F(Statistics, noticeModelsThatInstantiateThemselves) {
    Model &a = model("a");
    Model &b = model("b");
    instance(a, "x", b);
    instance(b, "x", a);
    const DesignStatistics counted = countDesign(mDesign);
    EXPECT_TRUE(counted.recursive);
    EXPECT_TRUE(counted.topModels.empty());
    EXPECT_EQ(counted.depth, 2U);
}

TEST_F(Statistics, takeAHierarchyOfAnyDepth) {
    Model *below = &model("m0");
    for (int i = 1; i < 20000; ++i) {
        Model &above = model("m" + std::to_string(i));
        instance(above, "x", *below);
        below = &above;
    }
    EXPECT_EQ(countDesign(mDesign).depth, 20000U);
}

TEST_F(Statistics, nameBlockTypesByTheirConstants) {
    EXPECT_EQ(typeLabel("addBlock"), "A_ADD_BLOCK (addBlock)");
    EXPECT_EQ(typeLabel("noSuchBlock"), "noSuchBlock");
}

} // namespace
} // namespace orvo::driver
