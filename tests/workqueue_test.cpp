// The walk that survives edits, and who instantiates whom.
#include <orvo/workqueue.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <set>

namespace orvo {
namespace {

class WorkQueueTest : public ::testing::Test {
  protected:
    Block *make(const std::string &name) { return Block::create(model, name); }
    static std::string rest(WorkQueue &queue) {
        std::string names;
        while (queue.next()) {
            names += queue.block()->getName()->toString();
        }
        return names;
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
};

TEST_F(WorkQueueTest, walksEachBlockOnceInOrder) {
    make("c");
    make("a");
    make("b");
    WorkQueue queue(model);
    EXPECT_EQ(rest(queue), "abc");
    EXPECT_FALSE(queue.next());
}

TEST_F(WorkQueueTest, refusesToGiveABlockThatIsNotThere) {
    WorkQueue queue(model);
    EXPECT_EXIT(queue.block(), ::testing::ExitedWithCode(1), "no current block");
}

TEST_F(WorkQueueTest, ignoresTheCurrentBlockDuringTheFirstSweepAndQueuesItAfter) {
    Block *a = make("a");
    WorkQueue queue(model);
    ASSERT_TRUE(queue.next());
    queue.enqueue(*a);
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_FALSE(queue.next());
    queue.enqueue(*a);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(rest(queue), "a");
}

TEST_F(WorkQueueTest, queuesInTheFirstSweepOnlyWhatItHasPassed) {
    Block *a = make("a");
    make("b");
    Block *c = make("c");
    WorkQueue queue(model);
    queue.enqueue(*a);
    EXPECT_EQ(queue.size(), 0U);
    queue.next();
    queue.next();
    queue.enqueue(*a);
    queue.enqueue(*a);
    queue.enqueue(*c);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(rest(queue), "ca");
}

TEST_F(WorkQueueTest, goesOnBehindADeletedBlock) {
    make("a");
    make("b");
    make("c");
    WorkQueue queue(model);
    queue.next();
    queue.next();
    queue.deleteBlock();
    queue.deleteBlock();
    EXPECT_EQ(rest(queue), "c");
    EXPECT_EQ(model.size(), 2U);
}

TEST_F(WorkQueueTest, survivesTheDeathOfTheNextBlockAndOfQueuedOnes) {
    Block *a = make("a");
    Block *b = make("b");
    Block *c = make("c");
    make("d");
    WorkQueue queue(model);
    queue.next();
    queue.next();
    queue.enqueue(*a);
    delete b;
    delete c;
    delete a;
    EXPECT_EQ(rest(queue), "d");
}

TEST_F(WorkQueueTest, reachesABlockThatIsMadeAheadOfTheSweep) {
    make("a");
    make("c");
    WorkQueue queue(model);
    queue.next();
    make("b");
    EXPECT_EQ(rest(queue), "bc");
}

TEST_F(WorkQueueTest, goesOnBehindABlockThatIsRenamed) {
    Block *a = make("a");
    make("b");
    make("c");
    WorkQueue queue(model);
    queue.next();
    a->setName(StringValue::get("z", mgr.context()));
    EXPECT_EQ(rest(queue), "bcz");
}

TEST_F(WorkQueueTest, visitsNoBlockTwiceThatMovesBackward) {
    make("x");
    make("y");
    WorkQueue queue(model);
    int visits = 0;
    while (queue.next() && visits < 10) {
        queue.block()->setName(StringValue::get("a" + std::to_string(900 - visits), mgr.context()));
        ++visits;
    }
    EXPECT_EQ(visits, 2);
}

TEST_F(WorkQueueTest, goesOnRightWhenTheNextBlockIsRenamedOrAnotherIsMadeBeforeIt) {
    for (int i = 100; i < 140; ++i) {
        make("b" + std::to_string(i));
    }
    WorkQueue queue(model);
    queue.next();
    queue.deleteBlock();
    make("b1005");
    EXPECT_TRUE(queue.next());
    EXPECT_EQ(queue.block()->getName()->toString(), "b1005");
    queue.deleteBlock();
    model.getBlock(StringValue::get("b101", mgr.context()))->setName(StringValue::get("a", mgr.context()));
    EXPECT_TRUE(queue.next());
    EXPECT_EQ(queue.block()->getName()->toString(), "b102");
}

TEST_F(WorkQueueTest, endsWithItsModel) {
    Model *other = Model::create(design, "other");
    Block::create(*other, "x");
    Block::create(*other, "y");
    WorkQueue queue(*other);
    queue.next();
    delete other;
    EXPECT_FALSE(queue.next());
}

TEST_F(WorkQueueTest, takesNoBlockBackThatIsDying) {
    Block *x = make("x");
    Block *y = make("y");
    y->setParam(NumberValue::get(0, mgr.context()), *Wire::create(*x, "w"));
    WorkQueue queue;
    struct Listener {
        void onDriven(const Wire &wire, const Block &, GraphState) { queue.enqueue(wire.getBlock()); }
        WorkQueue &queue;
    } listener{queue};
    const auto callback =
        util::Function<void(const Wire &, const Block &, GraphState)>::bind<&Listener::onDriven>(&listener);
    design.events().blockDriven.add(callback);
    delete x;
    design.events().blockDriven.remove(callback);
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_EQ(rest(queue), "");
}

TEST_F(WorkQueueTest, deletesABlockThatCameOutOfTheQueue) {
    Block *a = make("a");
    make("b");
    WorkQueue queue(model);
    queue.next();
    queue.next();
    queue.enqueue(*a);
    queue.deleteBlock();
    queue.enqueue(*a);
    EXPECT_TRUE(queue.next());
    queue.deleteBlock();
    EXPECT_EQ(rest(queue), "");
    EXPECT_EQ(model.size(), 0U);
}

TEST_F(WorkQueueTest, queuesBlocksOfAnEmptySweep) {
    Model &other = *Model::create(design, "other");
    Block *block = Block::create(other, "x");
    WorkQueue empty(model);
    EXPECT_FALSE(empty.next());
    empty.enqueue(*block);
    EXPECT_EQ(rest(empty), "x");
    WorkQueue plain;
    EXPECT_FALSE(plain.next());
    plain.enqueue(*block);
    EXPECT_EQ(rest(plain), "x");
}

/// A subset given as a list.
class ListSubset final : public WorkingSubset<Block> {
  public:
    explicit ListSubset(std::vector<Block *> blocks) : mBlocks(std::move(blocks)) {}
    bool isMember(const Block &block) const override {
        return std::find(mBlocks.begin(), mBlocks.end(), &block) != mBlocks.end();
    }
    bool hasNext() const override { return mAt < mBlocks.size(); }
    Block *nextBlock() override { return mBlocks[mAt++]; }

  private:
    std::vector<Block *> mBlocks;
    std::size_t mAt = 0;
};

TEST_F(WorkQueueTest, walksASubsetAndQueuesItsMembersOnly) {
    Block *a = make("a");
    Block *b = make("b");
    Block *c = make("c");
    ListSubset subset({c, a});
    WorkQueue queue(&subset);
    EXPECT_TRUE(queue.next());
    EXPECT_EQ(queue.block(), c);
    queue.enqueue(*b);
    queue.enqueue(*a);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(rest(queue), "aa");
}

TEST_F(WorkQueueTest, queuesNoMemberOfASubsetThatIsStillToCome) {
    Block *a = make("a");
    Block *b = make("b");
    Block *c = make("c");
    ListSubset subset({a, b, c});
    WorkQueue queue(&subset);
    queue.next();
    queue.deleteBlock();
    queue.enqueue(*c);
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_EQ(rest(queue), "bc");
}

TEST_F(WorkQueueTest, walksAConstModel) {
    make("a");
    const Model &constant = model;
    WorkQueueImpl<const Block> queue(constant);
    EXPECT_TRUE(queue.next());
    EXPECT_EQ(queue.block()->getName()->toString(), "a");
}

TEST_F(WorkQueueTest, mayOutliveItsDesign) {
    auto shortLived = std::make_unique<Design>(mgr.context());
    Model &other = *Model::create(*shortLived, "o");
    Block::create(other, "x");
    auto queue = std::make_unique<WorkQueue>(other);
    shortLived.reset();
    EXPECT_FALSE(queue->next());
    queue.reset();
}

RC_GTEST_FIXTURE_PROP(WorkQueueTest, visitsWhatLivesHoweverTheModelIsEdited,
                      (const std::vector<std::uint16_t> &edits)) {
    for (int i = 0; i < 40; ++i) {
        make("b" + std::to_string(100 + 2 * i));
    }
    WorkQueue queue(model);
    std::set<const Block *> visited;
    std::size_t at = 0;
    while (queue.next()) {
        visited.insert(queue.block());
        if (at < edits.size() && model.size() != 0) {
            const std::uint16_t edit = edits[at++];
            auto victim = std::next(model.begin(), static_cast<std::ptrdiff_t>(edit / 4U % model.size()));
            if (edit % 4 == 0) {
                visited.erase(&*victim);
                delete &*victim;
            } else if (edit % 4 == 1) {
                queue.enqueue(*victim);
            } else if (edit % 4 == 2) {
                // Ahead of the sweep, so that it is still to come, or else queued.
                queue.enqueue(*make("c" + std::to_string(1000 + at)));
            }
        }
    }
    for (const Block &block : model) {
        RC_ASSERT(visited.count(&block) == 1U);
    }
}

} // namespace
} // namespace orvo
