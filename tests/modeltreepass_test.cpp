// Who instantiates whom, kept true through edits.
#include <orvo/modeltreepass.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

#include <memory>

namespace orvo {
namespace {

class ModelTreeTest : public ::testing::Test {
  protected:
    ModelTreeTest() : results(start()) { tree = results.getPass<ModelTreePass>(); }
    PassResults start() {
        PassScheduler scheduler;
        scheduler.requirePass("ModelTreePass");
        return scheduler.apply(design);
    }
    Model &model(const std::string &name) { return *Model::create(design, name); }
    Block &use(Model &in, Model &of) {
        Block &block = *Block::create(in, "use");
        block.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, of);
        return block;
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    PassResults results;
    ModelTreePass *tree = nullptr;
};

using Models = std::vector<Model *>;

TEST_F(ModelTreeTest, listsANewModelBlockWhateverWasAskedBefore) {
    Model &top = model("top");
    Model &below = model("below");
    EXPECT_TRUE(tree->getRefBlocks(below).empty());
    EXPECT_TRUE(tree->getReferredModels(top).empty());
    Block &block = use(top, below);
    EXPECT_EQ(tree->getRefBlocks(below), (std::list<Block *>{&block}));
    EXPECT_EQ(tree->getReferredModels(top), (Models{&below}));
    delete &block;
    EXPECT_TRUE(tree->getRefBlocks(below).empty());
    EXPECT_TRUE(tree->getReferredModels(top).empty());
}

TEST_F(ModelTreeTest, followsTypeAndModelNodeInEitherOrder) {
    Model &top = model("top");
    Model &below = model("below");
    Block &block = *Block::create(top, "late");
    EXPECT_TRUE(tree->getReferredModels(top).empty());
    block.setParam(A_MODEL_NODE, below);
    EXPECT_TRUE(tree->getReferredModels(top).empty());
    block.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    EXPECT_EQ(tree->getReferredModels(top), (Models{&below}));
    Model &other = model("other");
    EXPECT_EQ(tree->getReferredModels(top), (Models{&below}));
    block.setParam(A_MODEL_NODE, other);
    EXPECT_EQ(tree->getReferredModels(top), (Models{&other}));
    block.setParam(A_BLOCK_TYPE, A_ADD_BLOCK);
    EXPECT_TRUE(tree->getReferredModels(top).empty());
    block.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    EXPECT_EQ(tree->getReferredModels(top), (Models{&other}));
}

TEST_F(ModelTreeTest, givesTheChainFromTheTop) {
    Model &top = model("top");
    Model &middle = model("middle");
    Model &low = model("low");
    Block &upper = use(top, middle);
    Block &lower = use(middle, low);
    RefChain chain;
    EXPECT_TRUE(tree->getRefChain(low, chain));
    EXPECT_EQ(chain, (RefChain{&upper, &lower}));
    EXPECT_TRUE(tree->getRefChain(top, chain));
    EXPECT_TRUE(chain.empty());
    Models ancestors;
    EXPECT_TRUE(tree->getAncestryList(low, ancestors));
    EXPECT_EQ(ancestors, (Models{&middle, &top}));
    EXPECT_EQ(tree->getSingleRefBlock(low), &lower);
    EXPECT_EQ(tree->getSingleParent(low), &middle);
    EXPECT_EQ(tree->getSingleRefBlock(top), nullptr);
    EXPECT_EQ(tree->getSingleParent(top), nullptr);
}

TEST_F(ModelTreeTest, leavesTheChainAloneWhenAModelIsUsedTwice) {
    Model &top = model("top");
    Model &middle = model("middle");
    Model &low = model("low");
    Block &first = use(top, middle);
    use(top, middle);
    use(middle, low);
    RefChain chain{&first};
    Models list{&top};
    EXPECT_FALSE(tree->getRefChain(low, chain));
    EXPECT_FALSE(tree->getAncestryList(low, list));
    EXPECT_EQ(chain, (RefChain{&first}));
    EXPECT_EQ(list, (Models{&top}));
    EXPECT_EQ(tree->getSingleRefBlock(middle), nullptr);
    EXPECT_EQ(tree->getRefBlocks(middle).size(), 2U);
}

TEST_F(ModelTreeTest, endsOnAModelThatInstantiatesItself) {
    Model &a = model("a");
    Model &b = model("b");
    use(a, b);
    use(b, a);
    RefChain chain;
    EXPECT_FALSE(tree->getRefChain(a, chain));
}

TEST_F(ModelTreeTest, turnsToAnotherDesign) {
    Model &top = model("top");
    use(top, model("below"));
    EXPECT_EQ(tree->getReferredModels(top).size(), 1U);
    Design other(mgr.context());
    Model &otherTop = *Model::create(other, "top");
    PassScheduler scheduler;
    scheduler.requirePass("ModelTreePass");
    PassResults later = scheduler.apply(other);
    EXPECT_TRUE(later.getPass<ModelTreePass>()->getReferredModels(otherTop).empty());
}

TEST_F(ModelTreeTest, answersWithoutEventsAndAfterItsDesign) {
    auto shortLived = std::make_unique<Design>(mgr.context());
    Model &top = *Model::create(*shortLived, "top");
    Model &below = *Model::create(*shortLived, "below");
    ModelTreePass unbound;
    unbound.bindEvents(*shortLived);
    use(top, below);
    EXPECT_EQ(unbound.getReferredModels(top).size(), 1U);
    unbound.unbindEvents();
    EXPECT_EQ(unbound.getReferredModels(top).size(), 1U);
    EXPECT_EQ(unbound.getSingleParent(below), &top);
    unbound.bindEvents(*shortLived);
    shortLived.reset();
    unbound.unbindEvents();
}

TEST_F(ModelTreeTest, forgetsAllWhenAModelDies) {
    Model &top = model("top");
    Model &below = model("below");
    use(top, below);
    EXPECT_EQ(tree->getReferredModels(top).size(), 1U);
    delete &below;
    EXPECT_TRUE(tree->getReferredModels(top).empty());
}

} // namespace
} // namespace orvo
