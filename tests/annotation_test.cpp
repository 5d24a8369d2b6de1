// The editor of metadata, the sections of their transfer, and what each way of rewriting does to them.
#include <orvo/annotation.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <util/features.h>
#include <util/profiling.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

namespace orvo {
namespace {

class MetadataTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    std::string metadata(const Block &of) {
        ValueRef tuple = of.getParam(A_METADATA);
        return tuple ? tuple->toString() : "none";
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Block &block = *Block::create(model, "a");
    Block &other = *Block::create(model, "b");
};

TEST_F(MetadataTest, writesBackWhatWasAddedWhenTheEditorGoes) {
    {
        MetadataManipulator editor(block);
        editor.append(value("a"), value("1"));
        editor.append(value("a"), value("1"), value("2"));
        editor.append(value("a"), value("1"), value("2"), value("3"));
        editor.append(value("a"), value("1"), value("2"), value("3"), value("4"));
        editor.append(value("a"), value("1"), value("2"), value("3"), value("4"), value("5"));
        editor.appendToVector(value("x"));
        EXPECT_EQ(metadata(block), "none");
        EXPECT_EQ(editor.size(), 6U);
    }
    EXPECT_EQ(metadata(block), "((a 1) (a 1 2) (a 1 2 3) (a 1 2 3 4) (a 1 2 3 4 5) x)");
}

TEST_F(MetadataTest, writesNothingWhenNothingWasAdded) {
    std::uint64_t before = design.editCount();
    { MetadataManipulator editor(block); }
    EXPECT_EQ(design.editCount(), before);
}

TEST_F(MetadataTest, takesTheEntriesOfAnotherBlockWithoutDuplicatesInFirstSeenOrder) {
    block.setParam(A_METADATA, value("(p q)"));
    other.setParam(A_METADATA, value("(q r)"));
    {
        MetadataManipulator editor(block);
        MetadataManipulator source(other);
        editor.appendFrom(source);
    }
    EXPECT_EQ(metadata(block), "(p q r)");
    EXPECT_EQ(metadata(other), "(q r)");
}

TEST_F(MetadataTest, addsATuplesEntriesWithOrWithoutDuplicates) {
    block.setParam(A_METADATA, value("(p)"));
    {
        MetadataManipulator editor(block);
        editor.appendFrom(pureTupleVR(value("(p q)")), false);
        editor.appendFrom(pureTupleVR(value("(p q)")), true);
        editor.appendFrom(PureTupleValueRef(), true);
    }
    EXPECT_EQ(metadata(block), "(p p q)");
}

TEST_F(MetadataTest, refusesToAddABlocksEntriesToItself) {
    EXPECT_EXIT(
        {
            MetadataManipulator editor(block);
            MetadataManipulator same(block);
            editor.appendFrom(same);
        },
        ::testing::ExitedWithCode(1), "added to itself");
}

TEST_F(MetadataTest, nestsSections) {
    TransferMetadataListener *listener = design.getMetadataTransferListener();
    listener->push();
    listener->push();
    EXPECT_EQ(listener->openSections(), 2U);
    listener->pop();
    listener->pop();
    EXPECT_EXIT(listener->pop(), ::testing::ExitedWithCode(1), "not opened");
}

/// A pass that does what the test says.
class RewritePass final : public ModelPass {
  public:
    std::string getName() const override { return "RewritePass"; }
    const internal::DefaultParamSettings &__get_class_default_param_settings() const override {
        static const internal::DefaultParamSettings none("A test pass.");
        return none;
    }
    bool useMetadataTransferListener() const override { return listens; }
    using ModelPass::apply;
    void apply(ModelPassContext &) override { body(); }

    bool listens = true;
    std::function<void()> body;
};

/// A chain source -> a -> b -> sink, where source, a and b carry metadata.
class TransferTest : public MetadataTest {
  protected:
    TransferTest() {
        wireOf(source);
        connect(block, {&wireOf(source)});
        connect(other, {&wireOf(block)});
        connect(sink, {&wireOf(other)});
        source.setParam(A_METADATA, value("(s)"));
        block.setParam(A_METADATA, value("((commentTag hello) a)"));
        other.setParam(A_METADATA, value("(b)"));
    }
    Wire &wireOf(Block &of, const char *name = "w") {
        Wire *wire = of.getWire(StringValue::get(name, mgr.context()));
        return wire != nullptr ? *wire : *Wire::create(of, name);
    }
    void connect(Block &reader, const std::vector<Wire *> &wires) {
        for (Wire *wire : wires) {
            reader.setParam(NumberValue::get(static_cast<long>(reader.port_size()), mgr.context()), *wire);
        }
    }
    Block &make(const char *name, const std::vector<Wire *> &inputs = {}) {
        Block &made = *Block::create(model, name);
        connect(made, inputs);
        return made;
    }
    void replace(Block &dead, Block &made) {
        wireOf(dead).replace(wireOf(made));
        delete &dead;
    }
    void run(const std::function<void()> &body, bool listens = true) {
        RewritePass pass;
        pass.body = body;
        pass.listens = listens;
        const PassContext::PassMap passes;
        const PassContext::ParamsMap params;
        PassContext context(design, passes, params, nullptr);
        static_cast<Pass &>(pass).apply(context);
    }
    std::string of(const char *name) {
        const Block *found = model.getBlock(StringValue::get(name, mgr.context()));
        return found == nullptr ? "no block" : metadata(*found);
    }
    TransferMetadataListener &listener() { return *design.getMetadataTransferListener(); }

    Block &source = *Block::create(model, "source");
    Block &sink = *Block::create(model, "sink");
};

TEST_F(TransferTest, leavesMetadataAloneWhenAPassChangesNothing) {
    const std::uint64_t before = design.editCount();
    run([&] { EXPECT_EQ((*other.port_begin()).getWire(), &wireOf(block)); });
    EXPECT_EQ(design.editCount(), before);
    EXPECT_EQ(of("a"), "((commentTag hello) a)");
    EXPECT_EQ(of("b"), "(b)");
}

TEST_F(TransferTest, givesAllMetadataOfABlockToTheOneThatReplacesIt) {
    run([&] { replace(block, make("n", {&wireOf(source)})); });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("source"), "(s)");
    EXPECT_EQ(of("b"), "(b)");
    EXPECT_EQ(of("sink"), "none");
}

TEST_F(TransferTest, addsToWhatTheNewBlockCarriesWithoutDuplicatesInFirstSeenOrder) {
    run([&] {
        Block &made = make("n", {&wireOf(source)});
        made.setParam(A_METADATA, value("(n a n)"));
        replace(block, made);
    });
    EXPECT_EQ(of("n"), "(n a n (commentTag hello))");
}

TEST_F(TransferTest, dropsRepeatedEntriesOfTheDeadBlock) {
    block.setParam(A_METADATA, value("(a x a)"));
    run([&] { replace(block, make("n", {&wireOf(source)})); });
    EXPECT_EQ(of("n"), "(a x)");
}

TEST_F(TransferTest, takesNothingFromABlockWhoseMetadataAreNoTuple) {
    block.setParam(A_METADATA, value("plain"));
    run([&] { replace(block, make("n", {&wireOf(source)})); });
    EXPECT_EQ(of("n"), "none");
}

TEST_F(TransferTest, losesMetadataInAPassThatDoesNotUseTheListener) {
    run(
        [&] {
            EXPECT_EQ(listener().openSections(), 0U);
            replace(block, make("n", {&wireOf(source)}));
        },
        false);
    EXPECT_EQ(of("n"), "none");
}

TEST_F(TransferTest, keepsEachBlocksMetadataApartWhenAPassRewritesAChain) {
    run([&] {
        replace(block, make("n", {&wireOf(source)}));
        replace(other, make("m", {(*other.port_begin()).getWire()}));
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("m"), "(b)");
}

TEST_F(TransferTest, keepsThemApartWhenTheChainIsRewrittenFromItsEnd) {
    run([&] {
        replace(other, make("m", {&wireOf(block)}));
        replace(block, make("n", {&wireOf(source)}));
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("m"), "(b)");
}

TEST_F(TransferTest, givesToAllNewBlocksOfADecomposition) {
    run([&] {
        Block &zero = make("zero");
        Block &first = make("first", {&wireOf(source), &wireOf(zero)});
        replace(block, make("second", {&wireOf(first)}));
    });
    EXPECT_EQ(of("zero"), "((commentTag hello) a)");
    EXPECT_EQ(of("first"), "((commentTag hello) a)");
    EXPECT_EQ(of("second"), "((commentTag hello) a)");
    EXPECT_EQ(of("source"), "(s)");
}

TEST_F(TransferTest, gathersTheMetadataOfFusedBlocks) {
    run([&] {
        Block &made = make("n", {&wireOf(source)});
        replace(other, made);
        delete &block;
    });
    EXPECT_EQ(of("n"), "(b (commentTag hello) a)");
}

TEST_F(TransferTest, givesToTheReaderWhenABlockIsBypassed) {
    run([&] {
        wireOf(block).replace(wireOf(source));
        delete &block;
    });
    EXPECT_EQ(of("b"), "(b (commentTag hello) a)");
    EXPECT_EQ(of("source"), "(s)");
}

TEST_F(TransferTest, givesToTheReaderWhoseNewDriverIsRewrittenAfterTheBypass) {
    run([&] {
        wireOf(block).replace(wireOf(source));
        delete &block;
        replace(source, make("t"));
    });
    EXPECT_EQ(of("b"), "(b (commentTag hello) a)");
    EXPECT_EQ(of("t"), "(s)");
}

TEST_F(TransferTest, leadsThroughAChainOfBypasses) {
    run([&] {
        wireOf(block).replace(wireOf(source));
        delete &block;
        wireOf(other).replace(wireOf(source));
        delete &other;
    });
    EXPECT_EQ(of("sink"), "((commentTag hello) a b)");
}

TEST_F(TransferTest, givesToTheBlockThatStoodBeforeAndComputesTheSame) {
    Block &twin = make("twin", {&wireOf(source)});
    wireOf(twin);
    run([&] { replace(block, twin); });
    EXPECT_EQ(of("twin"), "((commentTag hello) a)");
    EXPECT_EQ(of("b"), "(b)");
}

TEST_F(TransferTest, givesToAConstantThatReadsNothing) {
    run([&] { replace(other, make("n")); });
    EXPECT_EQ(of("n"), "(b)");
    EXPECT_EQ(of("a"), "((commentTag hello) a)");
}

TEST_F(TransferTest, givesToEachBlockThatTookOverAnOutput) {
    Block &reader = make("reader", {&wireOf(block, "clip")});
    run([&] {
        wireOf(block, "clip").replace(wireOf(make("c")));
        wireOf(block).replace(wireOf(make("n", {&wireOf(source)})));
        delete &block;
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("c"), "((commentTag hello) a)");
    EXPECT_EQ(metadata(reader), "none");
}

TEST_F(TransferTest, findsTheHeirOfABlockThatFedItself) {
    connect(block, {&wireOf(block)});
    run([&] {
        Block &made = make("n", {&wireOf(source)});
        connect(made, {&wireOf(made)});
        replace(block, made);
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("b"), "(b)");
}

TEST_F(TransferTest, handsOnWhatABornAndDeadBlockWouldHaveGot) {
    run([&] {
        Block &made = make("n", {&wireOf(source)});
        made.setParam(A_METADATA, value("(n)"));
        replace(block, made);
        replace(made, make("o", {&wireOf(source)}));
    });
    EXPECT_EQ(of("o"), "((commentTag hello) a n)");
}

TEST_F(TransferTest, findsWhatWasConnectedInThePlaceOfADeletedBlock) {
    run([&] {
        delete &block;
        connect(other, {&wireOf(make("n", {&wireOf(source)}))});
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
}

TEST_F(TransferTest, findsAReaderThatWasConnectedPastADeletedBlock) {
    run([&] {
        delete &block;
        connect(other, {&wireOf(source)});
    });
    EXPECT_EQ(of("b"), "(b (commentTag hello) a)");
}

/// source -> a -> b -> sink becomes source -> sink.
TEST_F(TransferTest, givesToTheReaderWhenAnInversePairIsBypassedAtOnce) {
    run([&] {
        wireOf(other).replace(wireOf(source));
        delete &other;
        delete &block;
    });
    EXPECT_EQ(of("source"), "(s)");
    EXPECT_EQ(of("sink"), "(b (commentTag hello) a)");
}

TEST_F(TransferTest, givesToTheReaderWhenAPairIsBypassedOfWhichTheFirstStays) {
    run([&] {
        wireOf(other).replace(wireOf(source));
        delete &other;
    });
    EXPECT_EQ(of("source"), "(s)");
    EXPECT_EQ(of("a"), "((commentTag hello) a)");
    EXPECT_EQ(of("sink"), "(b)");
}

TEST_F(TransferTest, looksOnlyAtThePortThatWasLeftOpen) {
    connect(other, {&wireOf(source)});
    run([&] {
        delete &block;
        other.setParam(NumberValue::get(0, mgr.context()), wireOf(make("n")));
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("b"), "(b)") << "its other port was not touched";
}

TEST_F(TransferTest, keepsPortsApartThatWereLeftOpenTogether) {
    connect(sink, {&wireOf(block)});
    run([&] {
        delete &block;
        delete &other;
        sink.setParam(NumberValue::get(1, mgr.context()), wireOf(make("m")));
        sink.setParam(NumberValue::get(0, mgr.context()), wireOf(make("n")));
    });
    EXPECT_EQ(of("m"), "((commentTag hello) a)");
    EXPECT_EQ(of("n"), "(b)");
}

TEST_F(TransferTest, givesNothingToAnHeirOfAnotherInput) {
    Block &x = make("x");
    connect(other, {&wireOf(x)});
    x.setParam(A_METADATA, value("(x)"));
    run([&] {
        delete &block;
        replace(x, make("nx"));
    });
    EXPECT_EQ(of("nx"), "(x)");
}

TEST_F(TransferTest, findsTheOpenPortOfABlockWithVeryMany) {
    Block &wide = make("wide");
    for (int i = 0; i < 100; ++i) {
        connect(wide, {&wireOf(source)});
    }
    connect(wide, {&wireOf(block)});
    run([&] {
        delete &other;
        delete &block;
        wide.setParam(NumberValue::get(100, mgr.context()), wireOf(make("n")));
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
}

/// a drives b and a further reader. b and a become one, the further reader is served otherwise.
TEST_F(TransferTest, givesToAFusedBlockBesideAnotherHeir) {
    Block &reader = make("reader", {&wireOf(block)});
    run([&] {
        replace(other, make("m", {&wireOf(source)}));
        reader.setParam(NumberValue::get(0, mgr.context()), wireOf(make("n", {&wireOf(source)})));
        delete &block;
    });
    EXPECT_EQ(of("m"), "(b (commentTag hello) a)");
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
}

TEST_F(TransferTest, givesToAFusedBlockBesideABypass) {
    Block &reader = make("reader", {&wireOf(block)});
    run([&] {
        replace(other, make("m", {&wireOf(source)}));
        wireOf(block).replace(wireOf(source));
        delete &block;
    });
    EXPECT_EQ(of("m"), "(b (commentTag hello) a)");
    EXPECT_EQ(metadata(reader), "((commentTag hello) a)");
}

TEST_F(TransferTest, givesNothingToAConstantInThePlaceOfAReader) {
    make("reader", {&wireOf(block)});
    run([&] {
        replace(other, make("c"));
        replace(block, make("n", {&wireOf(source)}));
    });
    EXPECT_EQ(of("c"), "(b)");
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
}

TEST_F(TransferTest, givesNothingToNewBlocksThatServeSomethingElse) {
    run([&] {
        replace(block, make("n", {&wireOf(source)}));
        make("unrelated", {&wireOf(sink)});
        make("unconnected");
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("unrelated"), "none");
    EXPECT_EQ(of("unconnected"), "none");
}

TEST_F(TransferTest, givesToTheInnerBlocksOfADecompositionThatWasInterrupted) {
    run([&] {
        Block &first = make("first", {&wireOf(source)});
        replace(other, make("m", {&wireOf(block)}));
        Block &second = make("second", {&wireOf(first)});
        replace(block, second);
    });
    EXPECT_EQ(of("first"), "((commentTag hello) a)");
    EXPECT_EQ(of("second"), "((commentTag hello) a)");
    EXPECT_EQ(of("m"), "(b)");
}

TEST_F(TransferTest, givesToAllOfWhatStandsWhereASinkStood) {
    sink.setParam(A_METADATA, value("(k)"));
    run([&] {
        Block &inner = make("inner", {&wireOf(other)});
        make("last", {&wireOf(inner)});
        delete &sink;
        replace(source, make("t"));
    });
    EXPECT_EQ(of("inner"), "(k)");
    EXPECT_EQ(of("last"), "(k)");
    EXPECT_EQ(of("t"), "(s)");
}

TEST_F(TransferTest, findsABypassBesideVeryManyReaders) {
    std::vector<Block *> readers;
    for (int i = 0; i < 100; ++i) {
        readers.push_back(&make(("r" + std::to_string(i)).c_str(), {&wireOf(source)}));
    }
    run([&] {
        wireOf(block).replace(wireOf(source));
        delete &block;
        for (Block *reader : readers) {
            reader->setParam(NumberValue::get(0, mgr.context()), nullptr);
            reader->setParam(NumberValue::get(0, mgr.context()), wireOf(source));
        }
    });
    EXPECT_EQ(of("b"), "(b (commentTag hello) a)");
}

TEST_F(TransferTest, givesNothingAgainInTheSectionAround) {
    run([&] {
        listener().push();
        replace(block, make("n", {&wireOf(source)}));
        replace(other, make("m", {&wireOf(*model.getBlock(value("n")))}));
        listener().pop();
        model.getBlock(value("n"))->setParam(A_METADATA, nullptr);
        make("later", {&wireOf(source)});
    });
    EXPECT_EQ(of("n"), "none") << "the pass took them off";
    EXPECT_EQ(of("m"), "(b)");
    EXPECT_EQ(of("later"), "none");
}

TEST_F(TransferTest, givesItsOwnEntriesInADesignWithoutMetadata) {
    Design bare(mgr.context());
    Model &bareModel = *Model::create(bare, "m");
    Block &old = *Block::create(bareModel, "old");
    connect(*Block::create(bareModel, "reader"), {&wireOf(old)});
    TransferMetadataListener &own = *bare.getMetadataTransferListener();
    own.push();
    own.addMetadata(value("here"));
    Block &made = *Block::create(bareModel, "made");
    replace(old, made);
    own.pop();
    EXPECT_EQ(metadata(made), "(here)");
}

TEST_F(TransferTest, losesTheMetadataOfABlockThatReachesNothing) {
    run([&] {
        delete &sink;
        delete &other;
    });
    EXPECT_EQ(of("source"), "(s)");
    EXPECT_EQ(of("a"), "((commentTag hello) a)");
}

TEST_F(TransferTest, leavesTheBlockThatAPipeWasPutBehindItsMetadata) {
    run([&] {
        Block &pipe = make("pipe");
        wireOf(block).replace(wireOf(pipe));
        connect(pipe, {&wireOf(block)});
    });
    EXPECT_EQ(of("a"), "((commentTag hello) a)");
    EXPECT_EQ(of("pipe"), "none");
}

TEST_F(TransferTest, givesToWhatReadsTheSameInThePlaceOfABlockThatNobodyRead) {
    sink.setParam(A_METADATA, value("(k)"));
    Block &second = make("second", {&wireOf(other)});
    second.setParam(A_METADATA, value("(l)"));
    run([&] {
        make("n", {&wireOf(other)});
        delete &sink;
        make("m", {&wireOf(other)});
        delete &second;
    });
    EXPECT_EQ(of("n"), "(k)");
    EXPECT_EQ(of("m"), "(l)");
}

TEST_F(TransferTest, givesToAllThatIsNewWhenOneUnconnectedBlockDies) {
    Block &lonely = make("lonely");
    lonely.setParam(A_METADATA, value("(l)"));
    run([&] {
        make("n");
        delete &lonely;
    });
    EXPECT_EQ(of("n"), "(l)");
}

TEST_F(TransferTest, givesOnceWhereSectionsNest) {
    run([&] {
        listener().push();
        Block &made = make("n", {&wireOf(source)});
        replace(block, made);
        listener().pop();
        EXPECT_EQ(of("n"), "((commentTag hello) a)");
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
}

TEST_F(TransferTest, takesABlockBornInANestedSectionAsNewInTheOuterOne) {
    run([&] {
        listener().push();
        Block &made = make("n", {&wireOf(source)});
        listener().pop();
        replace(block, make("m", {&wireOf(made)}));
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(of("m"), "((commentTag hello) a)");
}

TEST_F(TransferTest, givesTheOuterSectionWhatTheNestedOneCouldNotPlace) {
    run([&] {
        Block &made = make("n", {&wireOf(source)});
        listener().push();
        delete &block;
        listener().pop();
        EXPECT_EQ(of("n"), "none");
        connect(other, {&wireOf(made)});
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
}

TEST_F(TransferTest, givesTheSectionsOwnEntriesToWhatTookAPlace) {
    run([&] {
        listener().addMetadata(value("(originationTag here)"));
        replace(block, make("n", {&wireOf(source)}));
        make("unrelated", {&wireOf(sink)});
    });
    EXPECT_EQ(of("n"), "((commentTag hello) a (originationTag here))");
    EXPECT_EQ(of("b"), "(b)");
}

TEST_F(TransferTest, needsASectionForEntriesOfItsOwn) {
    EXPECT_EXIT(listener().addMetadata(value("x")), ::testing::ExitedWithCode(1), "no section");
}

TEST_F(TransferTest, writesTogetherWhatManyBlocksGiveToOne) {
    Block &twin = make("twin", {&wireOf(source)});
    wireOf(twin);
    std::string expected = "(";
    for (int i = 0; i < 40; ++i) {
        Block &copy = make("copy", {&wireOf(source)});
        copy.setParam(A_METADATA, value("(" + std::to_string(i) + " shared)"));
        make("reader", {&wireOf(copy)});
        expected += std::to_string(i) + (i == 0 ? " shared " : i == 39 ? ")" : " ");
    }
    std::vector<Block *> copies;
    for (Wire *wire = &wireOf(source); const Port &port : wire->ports()) {
        if (&port.getBlock() != &twin && &port.getBlock() != &block) {
            copies.push_back(&port.getBlock());
        }
    }
    run([&] {
        for (Block *copy : copies) {
            replace(*copy, twin);
        }
    });
    EXPECT_EQ(of("twin"), expected);
}

TEST_F(TransferTest, startsToRecordWhenABlockFirstCarriesMetadata) {
    Design bare(mgr.context());
    Model &top = *Model::create(bare, "top");
    Block &dead = *Block::create(top, "dead");
    Block &reader = *Block::create(top, "reader");
    reader.setParam(value("0"), *Wire::create(dead, "w"));
    EXPECT_FALSE(bare.hasCarriedMetadata());
    TransferMetadataListener &hears = *bare.getMetadataTransferListener();
    hears.push();
    Block &made = *Block::create(top, "made");
    dead.setParam(A_METADATA, value("(late)"));
    EXPECT_TRUE(bare.hasCarriedMetadata());
    (*dead.begin()).replace(*Wire::create(made, "w"));
    delete &dead;
    hears.pop();
    EXPECT_EQ(metadata(made), "(late)");
}

TEST_F(TransferTest, transfersWhatWasDoneBeforeAPassThrew) {
    EXPECT_THROW(run([&] {
                     replace(block, make("n", {&wireOf(source)}));
                     throw std::runtime_error("enough");
                 }),
                 std::runtime_error);
    EXPECT_EQ(of("n"), "((commentTag hello) a)");
    EXPECT_EQ(listener().openSections(), 0U);
}

TEST_F(TransferTest, findsTheSameHeirsInARefinedGraph) {
    util::SetFeatureBoolean("refineMetadataGraph", true);
    run([&] {
        Block &made = make("n", {&wireOf(source)});
        replace(block, made);
        replace(made, make("o", {&wireOf(source)}));
    });
    util::ClearFeature("refineMetadataGraph");
    EXPECT_EQ(of("o"), "((commentTag hello) a)");
}

TEST_F(TransferTest, opensAProfilingSectionForTheTransfer) {
    util::ProfilingLog::enable();
    run([&] { replace(block, make("n", {&wireOf(source)})); });
    const std::string text = util::profilingText(*util::ProfilingLog::take());
    util::ProfilingLog::disable();
    EXPECT_NE(text.find("TransferMetadataOrvo"), std::string::npos) << text;
}

/// Counts the blocks that die with metadata.
struct DyingMetadata {
    void onDying(Block &block) { count += block.getParam(A_METADATA) ? 1 : 0; }
    int count = 0;
};

TEST_F(TransferTest, writesNothingWhenADesignDiesInASection) {
    DyingMetadata dying;
    auto doomed = std::make_unique<Design>(mgr.context());
    doomed->events().blockDying.add(util::Function<void(Block &)>::bind<&DyingMetadata::onDying>(&dying));
    Model &top = *Model::create(*doomed, "top");
    Block &dead = *Block::create(top, "dead");
    Block &heir = *Block::create(top, "heir");
    dead.setParam(A_METADATA, value("(x)"));
    Block::create(top, "reader")->setParam(value("0"), *Wire::create(dead, "w"));
    doomed->getMetadataTransferListener()->push();
    (*dead.begin()).replace(*Wire::create(heir, "w"));
    delete &dead;
    doomed.reset();
    EXPECT_EQ(dying.count, 1);
}

} // namespace
} // namespace orvo
