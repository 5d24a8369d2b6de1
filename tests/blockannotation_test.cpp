// The graph of a section: states, forks, merges, live paths, and the log behind it.
#include "orvo/blockannotation.h"
#include "orvo/changelog.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <util/features.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace orvo {
namespace {

using Memo = BlockAnnotation::Memo;

/// source -> block -> sink, in an open section.
class SectionTest : public ::testing::Test {
  protected:
    SectionTest() {
        block.setParam(A_METADATA, value("(x)"));
        connect(block, source);
        connect(sink, block);
        wireOf(sink);
        listener().push();
    }
    ~SectionTest() override {
        while (listener().openSections() != 0) {
            listener().pop();
        }
    }
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    Wire &wireOf(Block &of) { return of.getWireCount() != 0 ? *of.begin() : *Wire::create(of, "w"); }
    void connect(Block &reader, Block &driver) {
        reader.setParam(NumberValue::get(static_cast<long>(reader.port_size()), mgr.context()), wireOf(driver));
    }
    Block &make(const char *name) { return *Block::create(model, name); }
    TransferMetadataListener &listener() { return *design.getMetadataTransferListener(); }
    BlockAnnotation &section() { return listener().section(); }
    template <class Thing> auto &nodeOf(const Thing &thing) { return listener().getNode(&thing, kGraphStatePresent); }
    bool isFork(Block &of) { return section().isFork(nodeOf(wireOf(of))); }
    bool isMerge(Block &of) { return section().isMerge(nodeOf(of)); }
    bool hasLivePath(Block &of) {
        Memo memo;
        return section().hasLivePath(nodeOf(of), 0, memo);
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Block &source = make("source");
    Block &block = make("block");
    Block &sink = make("sink");
};

TEST_F(SectionTest, tellsTheStateOfBlocksAndWires) {
    Block &made = make("made");
    Wire &wire = wireOf(made);
    EXPECT_EQ(section().stateOf(nodeOf(block)), kGraphStatePresent);
    EXPECT_EQ(section().stateOf(nodeOf(wireOf(block))), kGraphStatePresent);
    EXPECT_EQ(section().stateOf(nodeOf(made)), kGraphStateNew);
    EXPECT_EQ(section().stateOf(nodeOf(wire)), kGraphStateNew);
    const auto &dying = nodeOf(made);
    const auto &dyingWire = nodeOf(wire);
    delete &made;
    EXPECT_EQ(section().stateOf(dying), kGraphStateGone);
    EXPECT_EQ(section().stateOf(dyingWire), kGraphStateGone);
}

TEST_F(SectionTest, takesWhatAnOuterSectionSawBornAsOldInTheInnerOne) {
    Block &outer = make("outer");
    listener().push();
    Block &inner = make("inner");
    EXPECT_EQ(section().stateOf(nodeOf(outer)), kGraphStatePresent);
    EXPECT_EQ(section().stateOf(nodeOf(inner)), kGraphStateNew);
    listener().pop();
    EXPECT_EQ(section().stateOf(nodeOf(outer)), kGraphStateNew);
    EXPECT_EQ(section().stateOf(nodeOf(inner)), kGraphStateNew);
}

TEST_F(SectionTest, declaresNodesByTheStateGiven) {
    EXPECT_EQ(section().stateOf(listener().getNode(&source, kGraphStateNew)), kGraphStateNew);
    EXPECT_EQ(section().stateOf(listener().getNode(&wireOf(source), kGraphStateNew)), kGraphStateNew);
    MetadataEntries entries;
    const auto &dying = listener().getNode(&block, kGraphStateGone);
    EXPECT_EQ(section().stateOf(dying), kGraphStateGone);
    dying.takeMetadata(entries);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0]->toString(), "x");
    EXPECT_EQ(section().stateOf(listener().getNode(&wireOf(block), kGraphStateGone)), kGraphStateGone);
}

TEST_F(SectionTest, knowsNodesByTheirTypes) {
    EXPECT_EQ(nodeOf(block).getType(), BlockAnnotation::NodeType::Block);
    EXPECT_EQ(nodeOf(wireOf(block)).getType(), BlockAnnotation::NodeType::Wire);
    const BlockAnnotation::DummyNode dummy(&nodeOf(block));
    EXPECT_EQ(dummy.getType(), BlockAnnotation::NodeType::Dummy);
}

TEST_F(SectionTest, givesAndTakesNothingAtWiresAndDummies) {
    MetadataEntries entries;
    nodeOf(wireOf(block)).takeMetadata(entries);
    const BlockAnnotation::DummyNode dummy(&nodeOf(block));
    dummy.takeMetadata(entries);
    EXPECT_TRUE(entries.empty());
    entries.insert(value("y"));
    dummy.giveMetadata(entries);
    nodeOf(wireOf(block)).giveMetadata(entries);
    EXPECT_EQ(block.getParam(A_METADATA)->toString(), "(x)");
}

TEST_F(SectionTest, findsAForkWhereSomethingNewHangsBesideWhatWasThere) {
    EXPECT_FALSE(isFork(source));
    connect(make("made"), source);
    EXPECT_TRUE(isFork(source));
}

TEST_F(SectionTest, findsAForkWhereSomethingNewHangsInThePlaceOfWhatWent) {
    connect(make("made"), source);
    delete &block;
    EXPECT_TRUE(isFork(source));
}

TEST_F(SectionTest, findsNoForkWhereAllIsNew) {
    Block &made = make("made");
    connect(make("reader"), made);
    EXPECT_FALSE(isFork(made));
}

TEST_F(SectionTest, findsAForkAtABlockThatGotOneMoreWire) {
    EXPECT_FALSE(section().isFork(nodeOf(block)));
    nodeOf(wireOf(block));
    nodeOf(*Wire::create(block, "more"));
    EXPECT_TRUE(section().isFork(nodeOf(block)));
}

TEST_F(SectionTest, findsAMergeWhereAReaderWasMovedToANewWire) {
    EXPECT_FALSE(isMerge(sink));
    wireOf(block).replace(wireOf(make("made")));
    EXPECT_TRUE(isMerge(sink));
}

TEST_F(SectionTest, findsAMergeWhereAReaderWasMovedToAnOldWire) {
    wireOf(block).replace(wireOf(source));
    EXPECT_TRUE(isMerge(sink));
    EXPECT_TRUE(isFork(source));
}

TEST_F(SectionTest, findsNoMergeWhereAnInputWasOnlyAdded) {
    connect(sink, make("made"));
    EXPECT_FALSE(isMerge(sink));
}

TEST_F(SectionTest, looksAtAWireWithoutTakingItForAMove) {
    delete &block;
    connect(source, sink);
    EXPECT_NE((*source.port_begin()).getWire(), nullptr);
    EXPECT_FALSE(isMerge(source));
    EXPECT_FALSE(isFork(sink));
}

TEST_F(SectionTest, endsALivePathAtABlockWithoutOutputs) {
    EXPECT_TRUE(hasLivePath(sink));
    EXPECT_TRUE(hasLivePath(block));
    const auto &node = nodeOf(block);
    delete &block;
    Memo memo;
    EXPECT_FALSE(section().hasLivePath(node, 0, memo));
}

/// A chain of so many blocks whose last one drives only a wire that was replaced.
class LivePathTest : public SectionTest {
  protected:
    Block &chain(std::size_t length) {
        Block &first = make("first");
        Block *last = &first;
        nodeOf(wireOf(first));
        for (std::size_t i = 1; i < length; ++i) {
            Block &next = make("next");
            connect(next, *last);
            nodeOf(wireOf(next));
            last = &next;
        }
        wireOf(*last).replace(wireOf(make("heir")));
        return first;
    }
};

TEST_F(LivePathTest, isNoneWhereTheLastEdgeWent) {
    EXPECT_FALSE(hasLivePath(chain(1)));
    EXPECT_FALSE(hasLivePath(chain(3)));
}

TEST_F(LivePathTest, isTakenToBeThereBeyondTheDepthOfTheSearch) {
    // Each block and each wire is a step: the fourth block is six steps away.
    EXPECT_TRUE(hasLivePath(chain(4)));
    EXPECT_TRUE(hasLivePath(chain(7)));
}

TEST_F(LivePathTest, keepsItsResultsInTheMemo) {
    Memo memo;
    section().hasLivePath(nodeOf(chain(3)), 0, memo);
    EXPECT_EQ(memo.size(), 5U);
}

TEST_F(LivePathTest, endsInACircle) {
    Block &first = make("first");
    Block &second = make("second");
    connect(second, first);
    connect(first, second);
    nodeOf(wireOf(first));
    nodeOf(wireOf(second));
    EXPECT_FALSE(hasLivePath(first));
}

TEST_F(SectionTest, listsTheDeadAndWhatTookTheirPlace) {
    Block &made = make("made");
    connect(made, source);
    wireOf(block).replace(wireOf(made));
    const BlockAnnotation::Node *dead = &nodeOf(block);
    delete &block;
    const BlockAnnotation::TransferList list = section().getTransferList();
    ASSERT_EQ(list.groups.size(), 1U);
    const BlockAnnotation::NodeGroup &group = list.groups.front();
    ASSERT_EQ(group.sources.last - group.sources.first, 1U);
    EXPECT_EQ(list.nodes[group.sources.first], dead);
    ASSERT_EQ(group.targets.last - group.targets.first, 1U);
    EXPECT_EQ(list.nodes[group.targets.first], &nodeOf(made));
    EXPECT_TRUE(group.forkSide.empty());
    EXPECT_TRUE(group.mergeSide.empty());
}

TEST_F(SectionTest, listsBothSidesOfABypass) {
    wireOf(block).replace(wireOf(source));
    delete &block;
    const BlockAnnotation::TransferList list = section().getTransferList();
    ASSERT_EQ(list.groups.size(), 1U);
    const BlockAnnotation::NodeGroup &group = list.groups.front();
    EXPECT_TRUE(group.targets.empty());
    ASSERT_FALSE(group.forkSide.empty());
    EXPECT_EQ(list.nodes[group.forkSide.first], &nodeOf(wireOf(source)));
    ASSERT_FALSE(group.mergeSide.empty());
    EXPECT_EQ(list.nodes[group.mergeSide.first], &nodeOf(sink));
    BlockAnnotation::NodeSet forks;
    BlockAnnotation::NodeSet merges;
    section().getForkAndMergeNodes(list, forks, merges);
    EXPECT_TRUE(section().shouldBypass(nodeOf(wireOf(source)), forks, merges));
    EXPECT_FALSE(section().shouldBypass(nodeOf(sink), forks, merges));
    EXPECT_FALSE(section().shouldBypass(nodeOf(wireOf(source)), forks, {}));
}

TEST_F(SectionTest, putsADummyInThePlaceOfAForkThatWent) {
    wireOf(block).replace(wireOf(source));
    delete &block;
    wireOf(source).replace(wireOf(make("made")));
    const BlockAnnotation::TransferList list = section().getTransferList();
    ASSERT_EQ(list.groups.size(), 1U);
    const BlockAnnotation::Node &fork = *list.nodes[list.groups.front().forkSide.first];
    EXPECT_EQ(fork.getType(), BlockAnnotation::NodeType::Dummy);
    BlockAnnotation::NodeSet forks;
    BlockAnnotation::NodeSet merges;
    section().getForkAndMergeNodes(list, forks, merges);
    EXPECT_TRUE(section().shouldBypass(fork, forks, merges));
}

TEST_F(SectionTest, takesDeadMergesOutOfTheRefinedGraph) {
    // The wire of a block that was born and has died has lost its driver.
    Block &made = make("made");
    const auto &wire = nodeOf(wireOf(made));
    connect(sink, made);
    delete &made;
    EXPECT_FALSE(wire.mRedirected);
    section().refineGraph();
    EXPECT_TRUE(wire.mRedirected);
}

TEST_F(SectionTest, countsAWireThatCameAndWentAmongTheOutputsUnlessRefined) {
    for (const bool refines : {false, true}) {
        listener().push();
        Block &old = make("old");
        wireOf(old);
        listener().push();
        wireOf(old).replace(wireOf(make("heir")));
        Wire &more = *Wire::create(old, "more");
        nodeOf(more);
        delete &more;
        Block &dead = make("dead");
        dead.setParam(A_METADATA, value("(y)"));
        delete &dead;
        util::SetFeatureBoolean("refineMetadataGraph", refines);
        section().apply();
        util::SetFeatureBoolean("refineMetadataGraph", false);
        EXPECT_EQ(section().isFork(nodeOf(old)), !refines);
        listener().pop();
        listener().pop();
    }
}

TEST_F(SectionTest, forgetsEverythingWithTheOutermostSection) {
    Block &made = make("made");
    listener().pop();
    listener().push();
    EXPECT_EQ(section().stateOf(nodeOf(made)), kGraphStatePresent);
    EXPECT_EQ(section().stateOf(nodeOf(wireOf(block))), kGraphStatePresent);
}

TEST_F(SectionTest, knowsABlockThatStandsWhereADeadOneStood) {
    const auto &first = nodeOf(make("first"));
    delete model.getBlock(value("first"));
    // Memory is used again at once.
    Block &second = make("second");
    EXPECT_NE(&nodeOf(second), &first);
    EXPECT_EQ(section().stateOf(nodeOf(second)), kGraphStateNew);
    EXPECT_EQ(section().stateOf(first), kGraphStateGone);
}

} // namespace
} // namespace orvo
