// Rewrites that are settled when the old block dies, and what happens to the new block afterwards.
#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

/// source -> first -> second -> sink, in an open section; first and second carry metadata.
class PendingRewriteTest : public ::testing::Test {
  protected:
    PendingRewriteTest() {
        first.setParam(A_METADATA, value("(f)"));
        second.setParam(A_METADATA, value("(g)"));
        listener().push();
    }
    ~PendingRewriteTest() override { close(); }
    void close() {
        while (listener().openSections() != 0) {
            listener().pop();
        }
    }
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    PureValueRef key(long number) { return NumberValue::get(number, mgr.context()); }
    static Wire &wireOf(Block &of) { return of.getWireCount() != 0 ? *of.begin() : *Wire::create(of, "w"); }
    Block &make(const char *name, const std::vector<Block *> &drivers = {}) {
        Block &made = *Block::create(model, name);
        for (Block *driver : drivers) {
            connect(made, *driver);
        }
        return made;
    }
    void connect(Block &reader, Block &driver) {
        reader.setParam(key(static_cast<long>(reader.port_size())), wireOf(driver));
    }
    static void replace(Block &dead, Block &made) {
        wireOf(dead).replace(wireOf(made));
        delete &dead;
    }
    static std::string of(const Block &block) {
        const ValueRef metadata = block.getParam(A_METADATA);
        return metadata ? metadata->toString() : "none";
    }
    TransferMetadataListener &listener() { return *design.getMetadataTransferListener(); }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Block &source = make("source");
    Block &first = make("first", {&source});
    Block &second = make("second", {&first});
    Block &sink = make("sink", {&second});
};

TEST_F(PendingRewriteTest, givesTheMetadataWhenTheOldBlockDies) {
    Block &made = make("made", {&source});
    wireOf(first).replace(wireOf(made));
    EXPECT_EQ(of(made), "none");
    delete &first;
    EXPECT_EQ(of(made), "(f)");
    close();
    EXPECT_EQ(of(made), "(f)");
}

/// A block that nobody reads, replaced by another.
class UnreadRewriteTest : public PendingRewriteTest {
  protected:
    UnreadRewriteTest() {
        wireOf(dead);
        dead.setParam(A_METADATA, value("(d)"));
        // It stood before the section.
        close();
        listener().push();
    }
    Block &dead = make("dead", {&source});
};

TEST_F(UnreadRewriteTest, isSettledWhenTheOldBlockDies) {
    Block &made = make("made", {&source});
    replace(dead, made);
    EXPECT_EQ(of(made), "(d)");
    close();
    EXPECT_EQ(of(made), "(d)");
}

TEST_F(UnreadRewriteTest, waitsWhereTwoBlocksMayStandForTheOldOne) {
    Block &beside = make("beside", {&source});
    Block &made = make("made", {&source});
    replace(dead, made);
    EXPECT_EQ(of(made), "none");
    close();
    EXPECT_EQ(of(made), "(d)");
    EXPECT_EQ(of(beside), "(d)");
}

TEST_F(UnreadRewriteTest, givesToANewReaderThatStandsWithTheNewBlock) {
    Block &made = make("made", {&source});
    replace(dead, made);
    Block &reader = make("reader", {&made});
    close();
    EXPECT_EQ(of(made), "(d)");
    EXPECT_EQ(of(reader), "(d)");
}

TEST_F(PendingRewriteTest, waitsForTheSectionsEndWhereTheNewBlockReadsSomethingElse) {
    Block &made = make("made");
    replace(first, made);
    EXPECT_EQ(of(made), "none");
    close();
    EXPECT_EQ(of(made), "(f)");
}

TEST_F(PendingRewriteTest, handsOnWhatANewBlockGotThatIsReplacedItself) {
    Block &made = make("made", {&source});
    replace(first, made);
    Block &again = make("again", {&source});
    replace(made, again);
    close();
    EXPECT_EQ(of(again), "(f)");
    EXPECT_EQ(of(second), "(g)");
}

TEST_F(PendingRewriteTest, givesToWhatIsMadeForTheNewBlockAfterwards) {
    Block &made = make("made", {&source});
    replace(first, made);
    Block &inner = make("inner");
    connect(made, inner);
    close();
    EXPECT_EQ(of(made), "(f)");
    EXPECT_EQ(of(inner), "(f)");
}

TEST_F(PendingRewriteTest, givesNothingToWhatTookAPlaceItselfAndIsReadAfterwards) {
    Block &made = make("made", {&source});
    replace(first, made);
    Block &other = make("other", {&made});
    replace(second, other);
    connect(made, other);
    close();
    EXPECT_EQ(of(made), "(f)");
    EXPECT_EQ(of(other), "(g)");
}

TEST_F(PendingRewriteTest, keepsWhatThePassWritesAfterwards) {
    Block &made = make("made", {&source});
    replace(first, made);
    made.setParam(A_METADATA, value("(mine)"));
    close();
    EXPECT_EQ(of(made), "(mine f)");
}

TEST_F(PendingRewriteTest, keepsWhatThePassAddsAfterwards) {
    Block &made = make("made", {&source});
    replace(first, made);
    MetadataManipulator(made).appendToVector(value("mine"));
    close();
    EXPECT_EQ(of(made), "(f mine)");
}

TEST_F(PendingRewriteTest, givesEachEntryOnce) {
    first.setParam(A_METADATA, value("(a b a)"));
    Block &made = make("made", {&source});
    replace(first, made);
    close();
    EXPECT_EQ(of(made), "(a b)");
}

TEST_F(PendingRewriteTest, leadsOnFromADriverThatTheNewBlockNoLongerNeeds) {
    Block &made = make("made", {&first});
    replace(second, made);
    made.setParam(key(0), nullptr);
    delete &first;
    close();
    EXPECT_EQ(of(made), "(g f)");
}

TEST_F(PendingRewriteTest, leadsOnFromADriverThatDiesBeforeTheNewBlock) {
    Block &made = make("made", {&first});
    replace(second, made);
    Block &fused = make("fused", {&source});
    wireOf(made).replace(wireOf(fused));
    delete &first;
    delete &made;
    close();
    EXPECT_EQ(of(fused), "(f g)");
}

TEST_F(PendingRewriteTest, tellsTheLogOfAMoveThatWasInterrupted) {
    Block &made = make("made", {&source});
    wireOf(first).replace(wireOf(made));
    Block &unrelated = make("unrelated");
    delete &first;
    close();
    EXPECT_EQ(of(made), "(f)");
    EXPECT_EQ(of(unrelated), "none");
}

TEST_F(PendingRewriteTest, tellsTheLogOfReadersThatWereRewrittenBefore) {
    Block &reader = make("reader", {&first});
    replace(second, reader);
    Block &made = make("made");
    replace(first, made);
    EXPECT_EQ(of(made), "none");
    close();
    EXPECT_EQ(of(made), "(f)");
    EXPECT_EQ(of(reader), "(g)");
}

TEST_F(PendingRewriteTest, leavesAloneABlockThatLives) {
    Block &made = make("made", {&first});
    wireOf(first).replace(wireOf(made));
    close();
    EXPECT_EQ(of(made), "none");
    EXPECT_EQ(of(first), "(f)");
}

TEST_F(PendingRewriteTest, takesTheNewBlockOfANestedSectionAsNewInTheOuterOne) {
    listener().push();
    Block &made = make("made", {&source});
    replace(first, made);
    listener().pop();
    Block &fused = make("fused", {&source});
    wireOf(second).replace(wireOf(fused));
    delete &made;
    delete &second;
    close();
    EXPECT_EQ(of(fused), "(f g)");
}

TEST_F(PendingRewriteTest, settlesNothingWhereTheSectionHasEntriesOfItsOwn) {
    listener().addMetadata(value("own"));
    Block &made = make("made", {&source});
    replace(first, made);
    EXPECT_EQ(of(made), "none");
    close();
    EXPECT_EQ(of(made), "(f own)");
}

} // namespace
} // namespace orvo
