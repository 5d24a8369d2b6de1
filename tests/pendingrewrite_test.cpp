// Rewrites that are settled when the old block dies, and what happens to the new block afterwards.
#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <set>

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

TEST_F(UnreadRewriteTest, goesToTheBlockThatWasToldAndNotToOneThatReadsTheSame) {
    Block &beside = make("beside", {&source});
    Block &made = make("made", {&source});
    replace(dead, made);
    EXPECT_EQ(of(made), "none");
    close();
    EXPECT_EQ(of(made), "(d)");
    EXPECT_EQ(of(beside), "none");
}

TEST_F(UnreadRewriteTest, isNotForgottenWhereAHelperIsMadeBeforeTheOldBlockDies) {
    Block &made = make("made", {&source});
    Block &helper = make("helper");
    replace(dead, made);
    close();
    EXPECT_EQ(of(made), "(d)");
    EXPECT_EQ(of(helper), "none");
}

TEST_F(UnreadRewriteTest, isNotForgottenWhereTheNewBlockTakesAnothersPlaceToo) {
    Block &made = make("made", {&source});
    replace(dead, made);
    replace(first, made);
    close();
    EXPECT_EQ(of(made), "(d f)");
}

TEST_F(UnreadRewriteTest, leadsToNobodyWhereItIsReplacedByWhatItReads) {
    Block &made = make("made");
    connect(dead, made);
    replace(dead, made);
    make("other");
    close();
    EXPECT_EQ(of(source), "none");
    EXPECT_EQ(of(sink), "none");
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
    // The deaths count from when they happened: that of the second block came first.
    EXPECT_EQ(of(fused), "(g f)");
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

TEST_F(PendingRewriteTest, givesTheSectionsOwnEntryToWhatWasSettledBeforeItWasAdded) {
    Block &made = make("made", {&source});
    replace(first, made);
    Block &changed = make("changed", {&made});
    replace(second, changed);
    connect(changed, source);
    listener().addMetadata(value("own"));
    close();
    EXPECT_EQ(of(made), "(f own)");
    EXPECT_EQ(of(changed), "(g own)");
}

TEST_F(PendingRewriteTest, givesAnInnerSectionsOwnEntryToNothingThatWasSettledAroundIt) {
    Block &made = make("made", {&source});
    replace(first, made);
    listener().push();
    Block &inner = make("inner", {&made});
    replace(second, inner);
    listener().addMetadata(value("own"));
    close();
    EXPECT_EQ(of(made), "(f)");
    EXPECT_EQ(of(inner), "(g own)");
}

TEST_F(PendingRewriteTest, passesABlockByBesideAnotherThatWasRewritten) {
    Block &spring = make("spring");
    Block &before = make("before", {&spring});
    Block &passed = make("passed", {&before});
    Block &reader = make("reader", {&passed});
    make("beside", {&before});
    passed.setParam(A_METADATA, value("(p)"));
    close();
    listener().push();
    Block &made = make("made", {&spring});
    replace(before, made);
    replace(passed, spring);
    close();
    EXPECT_EQ(of(reader), "(p)");
    EXPECT_EQ(of(made), "none");
}

TEST_F(PendingRewriteTest, keepsTheMetadataOfABlockThatFeedsItselfFromItsReader) {
    connect(first, first);
    Block &reader = make("reader", {&first});
    replace(second, reader);
    Block &made = make("made");
    replace(first, made);
    close();
    EXPECT_EQ(of(made), "(f)");
    EXPECT_EQ(of(reader), "(g)");
}

TEST_F(PendingRewriteTest, takesNoInputForAnOldOneThatTheNewBlockGotWhileItsDriverIsMoved) {
    Block &reader = make("reader", {&first});
    replace(second, reader);
    Block &late = make("late");
    late.setParam(A_METADATA, value("(l)"));
    wireOf(late);
    Block &made = make("made");
    wireOf(first).replace(wireOf(made));
    connect(reader, late);
    delete &late;
    close();
    EXPECT_EQ(of(reader), "(g)");
}

TEST_F(PendingRewriteTest, isNotMisledByABlockThatStandsWhereOneThatWasSettledStood) {
    // The death of a model's blocks is told before they go.
    for (int round = 0; round < 3; ++round) {
        Model &other = *Model::create(design, "other");
        Block &driver = *Block::create(other, "driver");
        Block &dead = *Block::create(other, "dead");
        Block &reader = *Block::create(other, "reader");
        connect(dead, driver);
        connect(reader, dead);
        dead.setParam(A_METADATA, value("(o)"));
        close();
        listener().push();
        Block &made = *Block::create(other, "made");
        connect(made, driver);
        wireOf(dead).replace(wireOf(made));
        delete &other;
        Block &again = make("again", {&source});
        replace(make("old", {&source}), again);
        close();
        EXPECT_EQ(of(again), "none");
    }
    EXPECT_EQ(of(first), "(f)");
}

using Step = std::array<std::uint8_t, 4>;

/// Runs a script of edits in one section, with rewrites settled at once or, as everything is looked at after each edit,
/// written down in full. Blocks are rewritten in any order, and the last edit passes one by; bare edits that leave open
/// who took whose place are not among them.
class Script {
  public:
    explicit Script(bool settles) : mSettles(settles) {
        for (int i = 0; i < 4; ++i) {
            make();
        }
    }
    std::map<int, std::multiset<std::string>> run(const std::vector<Step> &before, const std::vector<Step> &steps,
                                                  std::uint8_t passed) {
        for (const Step &step : before) {
            Block &block = pick(step[0]);
            connect(block, step[1] % 2, pick(step[2]));
            if (step[3] % 2 == 0 && !block.getParam(A_METADATA)) {
                const std::string entry = "e" + std::to_string(idOf(block));
                block.setParam(A_METADATA, PureTupleValue::get(name(entry), mContext.context()));
            }
        }
        listener().push();
        mIsOpen = true;
        for (const Step &step : steps) {
            act(step);
        }
        passBy(pick(passed));
        listener().pop();
        std::map<int, std::multiset<std::string>> found;
        for (const auto &[id, block] : mBlocks) {
            if (const PureTupleValueRef entries = pureTupleVR(block->getParam(A_METADATA))) {
                for (const PureValueRef &entry : *entries) {
                    found[id].insert(entry->toString());
                }
            }
        }
        return found;
    }

  private:
    void act(const Step &step) {
        Block &block = pick(step[1]);
        switch (step[0] % 8) {
        case 0:
            make();
            break;
        case 1:
            connect(make(), 5, block);
            break;
        default:
            rewrite(block, step[2] % 5);
            break;
        }
    }
    /// Puts a copy into the block's place, connected before or after that, and lets what feeds itself do so again.
    void rewrite(Block &block, int variant) {
        Block &made = make();
        std::vector<std::pair<PureValueRef, Wire *>> inputs;
        for (const Port &port : block.ports()) {
            inputs.emplace_back(port.getName(), port.peekWire());
        }
        const auto copyInputs = [&] {
            for (const auto &[port, wire] : inputs) {
                const bool feedsItself = (variant == 1 || variant == 2) && &wire->getBlock() == &block;
                made.setParam(port, feedsItself ? wireOf(made) : *wire);
                looked();
            }
        };
        if (variant != 1) {
            copyInputs();
        }
        replace(block, made);
        if (variant == 1) {
            copyInputs();
        }
        if (variant == 3) {
            connect(made, 7, make());
        }
        kill(block);
    }
    void passBy(Block &block) {
        if (block.port_size() == 0 || &block.port_begin()->peekWire()->getBlock() == &block) {
            return;
        }
        wireOf(block).replace(*block.port_begin()->peekWire());
        looked();
        kill(block);
    }
    void replace(Block &from, Block &by) {
        if (&from != &by) {
            Wire &wire = wireOf(from);
            wire.replace(wireOf(by));
            looked();
        }
    }
    void connect(Block &reader, int port, Block &driver) {
        reader.setParam(key(port), wireOf(driver));
        looked();
    }
    void kill(Block &block) {
        mBlocks.erase(idOf(block));
        delete &block;
        looked();
    }
    Block &make() {
        Block &made = *Block::create(mModel, "b" + std::to_string(++mLastId));
        mBlocks.emplace(mLastId, &made);
        looked();
        return made;
    }
    Wire &wireOf(Block &block) {
        if (block.getWireCount() == 0) {
            Wire::create(block, "w");
            looked();
        }
        return *block.begin();
    }
    Block &pick(std::uint8_t number) {
        return *std::next(mBlocks.begin(), static_cast<std::ptrdiff_t>(number % mBlocks.size()))->second;
    }
    int idOf(const Block &block) const {
        return std::find_if(mBlocks.begin(), mBlocks.end(), [&](const auto &entry) { return entry.second == &block; })
            ->first;
    }
    PureValueRef name(const std::string &text) { return StringValue::get(text, mContext.context()); }
    PureValueRef key(long number) { return NumberValue::get(number, mContext.context()); }
    TransferMetadataListener &listener() { return *mDesign.getMetadataTransferListener(); }
    void looked() {
        if (!mSettles && mIsOpen) {
            listener().section();
        }
    }

    ContextMgr mContext;
    Design mDesign{mContext.context()};
    Model &mModel = *Model::create(mDesign, "m");
    std::map<int, Block *> mBlocks;
    int mLastId = 0;
    bool mSettles;
    bool mIsOpen = false;
};

RC_GTEST_PROP(SettledRewrites, giveTheMetadataToWhomTheFullLogGivesThem,
              (const std::vector<Step> &before, const std::vector<Step> &steps, std::uint8_t passed)) {
    RC_ASSERT(Script(true).run(before, steps, passed) == Script(false).run(before, steps, passed));
}

} // namespace
} // namespace orvo
