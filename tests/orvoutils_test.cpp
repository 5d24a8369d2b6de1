// Clones and deletions of whole models.
#include <orvo/orvoutils.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

class CloneTest : public ::testing::Test {
  protected:
    CloneTest() {
        reader.setParam(number(0), wire);
        reader.setParam(number(1), wire);
        reader.setParam(A_BLOCK_TYPE, A_ADD_BLOCK);
        wire.setParam(number(5), ValueRef(number(6)));
        for (Block *block : {&instance1, &instance2}) {
            block->setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
            block->setParam(A_MODEL_NODE, below);
        }
    }
    PureValueRef number(int n) { return NumberValue::get(n, mgr.context()); }
    PureValueRef name(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    Block &source = *Block::create(top, "source");
    Block &reader = *Block::create(top, "reader");
    Wire &wire = *Wire::create(source, "w");
    Block &instance1 = *Block::create(top, "i1");
    Block &instance2 = *Block::create(top, "i2");
};

TEST_F(CloneTest, clonesBlocksWiresParametersAndConnections) {
    OrvoUtils::NodeMap map;
    Model *clone = OrvoUtils::cloneModel(design, top, &map);
    EXPECT_EQ(clone->getName()->toString(), "(dupName 0 top)");
    EXPECT_EQ(clone->size(), top.size());
    auto *newReader = static_cast<Block *>(map.at(&reader));
    auto *newWire = static_cast<Wire *>(map.at(&wire));
    EXPECT_EQ(newReader->getPort(number(0))->getWire(), newWire);
    EXPECT_EQ(newWire->port_size(), 2U);
    EXPECT_EQ(wire.port_size(), 2U);
    EXPECT_EQ(newWire->getParam(number(5)), ValueRef(number(6)));
    EXPECT_EQ(map.at(&top), clone);
    EXPECT_EQ(map.size(), 6U);
}

TEST_F(CloneTest, keepsTheOrderOfReaders) {
    reader.setParam(number(0), wire);
    OrvoUtils::NodeMap map;
    OrvoUtils::cloneModel(design, top, &map);
    auto *copy = static_cast<Wire *>(map.at(&wire));
    EXPECT_EQ(copy->port_begin()->getName(), number(1));
}

TEST_F(CloneTest, leavesModelBlocksOfAShallowCloneOnTheirModel) {
    OrvoUtils::cloneModel(design, top);
    EXPECT_EQ(below.getParentBlocks().size(), 4U);
}

TEST_F(CloneTest, clonesAModelThatIsUsedTwiceOnceInADeepClone) {
    Design other(mgr.context());
    Model *clone = OrvoUtils::deepCloneModel(other, top);
    EXPECT_EQ(other.size(), 2U);
    Model *newBelow = other.getModel(name("below"));
    ASSERT_NE(newBelow, nullptr);
    EXPECT_EQ(newBelow->getParentBlocks().size(), 2U);
    EXPECT_EQ(below.getParentBlocks().size(), 2U);
    EXPECT_EQ(Node::from<Model>((*clone->getBlock(name("i1")))[A_MODEL_NODE]), newBelow);
}

TEST_F(CloneTest, clonesAllModelsOfADesign) {
    Design other(mgr.context());
    OrvoUtils::deepCloneDesign(other, design);
    EXPECT_EQ(other.size(), 2U);
    EXPECT_EQ(below.getParentBlocks().size(), 2U);
    Design shallow(mgr.context());
    OrvoUtils::cloneDesign(shallow, design);
    EXPECT_EQ(shallow.size(), 2U);
    EXPECT_EQ(below.getParentBlocks().size(), 4U);
}

TEST_F(CloneTest, deletesAModelAndWhatIsBelow) {
    Model::create(design, "unrelated");
    OrvoUtils::deepDeleteModel(&top);
    EXPECT_EQ(design.size(), 1U);
}

TEST_F(CloneTest, survivesAModelThatInstantiatesItself) {
    Block &loop = *Block::create(below, "loop");
    loop.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    loop.setParam(A_MODEL_NODE, top);
    Design other(mgr.context());
    OrvoUtils::deepCloneModel(other, top);
    EXPECT_EQ(other.size(), 2U);
    OrvoUtils::deepDeleteModel(&top);
    EXPECT_EQ(design.size(), 0U);
}

TEST_F(CloneTest, givesTheParentsOfACopyTheOrderOfTheSource) {
    // Many models, so that an order by address would show.
    for (int i = 0; i < 12; ++i) {
        Model &middle = *Model::create(design, "k" + std::to_string(i));
        Block *leaf = Block::create(middle, "leaf");
        leaf->setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
        leaf->setParam(A_MODEL_NODE, below);
    }
    Design copy(mgr.context());
    OrvoUtils::deepCloneDesign(copy, design);
    std::string parents;
    for (const Block *parent : copy.getModel(name("below"))->getParentBlocks()) {
        parents += parent->getModel().getName()->toString() + " ";
    }
    EXPECT_EQ(parents, "k0 k1 k10 k11 k2 k3 k4 k5 k6 k7 k8 k9 top top ");
}

struct ModelDeaths {
    void onDying(Model &model) { names += model.getName()->toString() + " "; }
    std::string names;
};

TEST_F(CloneTest, deletesAModelAfterThoseBelowIt) {
    ModelDeaths deaths;
    using Callback = util::Function<void(Model &)>;
    design.events().modelDying.add(Callback::bind<&ModelDeaths::onDying>(&deaths));
    OrvoUtils::deepDeleteModel(&top);
    EXPECT_EQ(deaths.names, "below top ");
    design.events().modelDying.remove(Callback::bind<&ModelDeaths::onDying>(&deaths));
}

} // namespace
} // namespace orvo
