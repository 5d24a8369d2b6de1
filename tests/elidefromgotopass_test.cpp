// From and Goto blocks become wires: by the reach of their tags, through the hierarchy, and without a trace.
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"

#include <orvo/annotation.h>
#include <orvo/modeltreepass.h>
#include <orvo/pass.h>

#include <rapidcheck/gtest.h>

#include <cstring>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

void elide(Design &design) {
    PassScheduler scheduler;
    scheduler.addPass("ElideFromGotoPass");
    scheduler.apply(design);
    EXPECT_TRUE(test::checkInvariants(design));
}

/// The paths of all blocks of a type.
Lines blocksOf(const Design &design, const StaticString &type) {
    Lines paths;
    for (const Model &model : design) {
        for (const Block &block : model) {
            if (block.type() == type.get_ptr()) {
                paths.push_back(block.value()->getPath());
            }
        }
    }
    return paths;
}

class ElideFromGotoTest : public test::SimulatorFixture {
  protected:
    Model &model(const std::string &name) { return *Model::create(design, name); }
    Block &sender(Model &in, const char *name, Wire *wire, const char *reach, const char *tag = "t") {
        Block &made = block(in, name, "gotoBlock", {{"gotoTag", tag}, {"gotoTagType", reach}});
        if (wire != nullptr) {
            made.setParam(A_GOTO_PORT_IN, *wire);
        }
        return made;
    }
    Wire &receiver(Model &in, const char *name, const char *tag = "t") {
        return *Wire::create(block(in, name, "fromBlock", {{"gotoTag", tag}}), A_FROM_WIRE_OUT);
    }
    Block &instance(Model &in, const char *name, Model &below) {
        Block &made = *Block::create(in, name, A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, below);
        return made;
    }
    /// A wire that nothing of interest drives.
    Wire &source(Model &in, const char *name) { return *Wire::create(block(in, name, "constBlock"), A_PRIM_WIRE_OUT); }
    /// A block that reads the wire, to see what it reads afterwards.
    Block &sink(Model &in, const char *name, Wire &wire) {
        Block &made = block(in, name, "notBlock");
        made.setParam(value("0"), wire);
        return made;
    }
    /// A new model below another, with its block there.
    Model &below(Model &above, const std::string &name) {
        Model &made = model(name);
        instance(above, ("call_" + name).c_str(), made);
        return made;
    }
    static std::string readBy(const Block &sink) {
        const Port &port = *sink.port_begin();
        return port.peekWire()->value()->getPath();
    }
    void expectNoneLeft() {
        EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), Lines());
        EXPECT_EQ(blocksOf(design, A_GOTO_BLOCK), Lines());
    }
    void annotate(Block &block, const char *comment) {
        MetadataManipulator(block).appendToVector(value((std::string("(comment ") + comment + ")").c_str()));
    }
    static std::string carriedBy(Block &block) {
        const PureTupleValueRef entries = MetadataManipulator(block).getTuple();
        return entries ? entries->toString() : "";
    }
    Lines run() {
        test::HeardMessages heard(mgr.context());
        elide(design);
        return heard.take();
    }

    Design design{mgr.context()};
    Model &top = model("top");
};

TEST_F(ElideFromGotoTest, joinsAPairInOneModel) {
    sender(top, "goto", &source(top, "x"), "gotoTagTypeLocal");
    Block &reader = sink(top, "y", receiver(top, "from"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(readBy(reader), "/top/x/primWireOut");
    expectNoneLeft();
    EXPECT_EQ(top.size(), 2U);
}

TEST_F(ElideFromGotoTest, movesAllReadersOfAllFromsOfATag) {
    sender(top, "goto", &source(top, "x"), "gotoTagTypeLocal");
    Wire &first = receiver(top, "a");
    Block &one = sink(top, "one", first);
    Block &two = sink(top, "two", first);
    Block &three = sink(top, "three", receiver(top, "z"));
    EXPECT_EQ(run(), Lines());
    for (const Block *reader : {&one, &two, &three}) {
        EXPECT_EQ(readBy(*reader), "/top/x/primWireOut");
    }
}

TEST_F(ElideFromGotoTest, leadsASignalUpAndDownUnderATupleThatTellsWhereItComesFrom) {
    Model &left = below(top, "left");
    Model &low = below(left, "low");
    Model &right = below(top, "right");
    sender(low, "goto", &source(low, "x"), "gotoTagTypeGlobal");
    Block &reader = sink(right, "y", receiver(right, "from"));
    EXPECT_EQ(run(), Lines());
    expectNoneLeft();
    const PureValueRef name = value("(route global low t)");
    EXPECT_EQ(low.getOutputBlock()->getName(), value("output"));
    EXPECT_EQ(low.getOutputBlock()->getPort(name)->peekWire(), low.getBlock(value("x"))->getWire(A_PRIM_WIRE_OUT));
    const Block &callLow = *left.getBlock(StringValue::get("call_low", mgr.context()));
    EXPECT_EQ(left.getOutputBlock()->getPort(name)->peekWire(), callLow.getWire(name));
    const Block &callLeft = *top.getBlock(StringValue::get("call_left", mgr.context()));
    const Block &callRight = *top.getBlock(StringValue::get("call_right", mgr.context()));
    EXPECT_EQ(callRight.getPort(name)->peekWire(), callLeft.getWire(name));
    EXPECT_EQ(right.getInputBlock()->getName(), value("input"));
    EXPECT_EQ(reader.port_begin()->peekWire(), right.getInputBlock()->getWire(name));
    // Nothing else came.
    EXPECT_EQ(low.size(), 2U);
    EXPECT_EQ(left.size(), 2U);
    EXPECT_EQ(right.size(), 2U);
    EXPECT_EQ(top.size(), 2U);
}

TEST_F(ElideFromGotoTest, namesEachKindOfRoute) {
    Model &low = below(top, "low");
    top.setParam(value("(gotoTagTypeScoped s)"), A_TRUE);
    const std::pair<const char *, const char *> reaches[] = {
        {"gotoTagTypeScoped", "s"}, {"gotoTagTypeGlobal", "g"}, {"gotoTagTypeBus", "b"}};
    std::vector<const Block *> readers;
    for (const auto &[reach, tag] : reaches) {
        sender(top, "goto", &source(top, "x"), reach, tag);
        readers.push_back(&sink(low, "y", receiver(low, "from", tag)));
    }
    EXPECT_EQ(run(), Lines());
    const char *const names[] = {"(route scoped top s)", "(route global top g)", "b"};
    for (std::size_t i = 0; i < readers.size(); ++i) {
        EXPECT_EQ(readers[i]->port_begin()->peekWire()->getName(), value(names[i]));
    }
}

TEST_F(ElideFromGotoTest, sharesWhatRoutesOfOneTagHaveInCommon) {
    Model &middle = below(top, "middle");
    Model &left = below(middle, "left");
    Model &right = below(middle, "right");
    Wire &x = source(top, "x");
    sender(top, "goto", &x, "gotoTagTypeGlobal");
    std::vector<Block *> readers;
    for (Model *at : {&left, &left, &right, &middle}) {
        readers.push_back(&sink(*at, "y", receiver(*at, "from")));
    }
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(x.port_size(), 1U);
    EXPECT_EQ(readBy(*readers[0]), readBy(*readers[1]));
    ASSERT_EQ(middle.getInputBlock()->getWireCount(), 1U);
    // Two models below, and the reader in this one.
    EXPECT_EQ(middle.getInputBlock()->begin()->port_size(), 3U);
    EXPECT_EQ(left.getInputBlock()->getWireCount(), 1U);
}

TEST_F(ElideFromGotoTest, takesTheInputAndOutputBlocksThatAreThere) {
    Model &left = below(top, "left");
    Model &right = below(top, "right");
    Block &out = block(left, "ends", "outputBlock");
    Block &in = block(right, "starts", "inputBlock");
    sender(left, "goto", &source(left, "x"), "gotoTagTypeGlobal");
    Block &reader = sink(right, "y", receiver(right, "from"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(out.port_size(), 1U);
    EXPECT_EQ(&reader.port_begin()->peekWire()->getBlock(), &in);
}

TEST_F(ElideFromGotoTest, findsAnotherNameWhereAPortHasTheNameOfABus) {
    Model &left = below(top, "left");
    Model &right = below(top, "right");
    Block &callLeft = *left.getParentBlocks().front();
    Block &callRight = *right.getParentBlocks().front();
    // Ports that were there before, joined to one another.
    block(left, "out", "outputBlock").setParam(value("t"), source(left, "other"));
    callRight.setParam(value("t"), *Wire::create(callLeft, "t"));
    Wire &old = *Wire::create(block(right, "in", "inputBlock"), "t");
    Block &oldReader = sink(right, "old", old);
    sender(left, "goto", &source(left, "x"), "gotoTagTypeBus");
    Block &reader = sink(right, "y", receiver(right, "from"));
    EXPECT_EQ(run(), (Lines{"BUS_TAG_RENAMED block=/top/call_left model=/left tag=t",
                            "BUS_TAG_RENAMED block=/top/call_right model=/right tag=t"}));
    EXPECT_EQ(oldReader.port_begin()->peekWire(), &old);
    const PureValueRef name = value("(dupName 0 t)");
    EXPECT_EQ(reader.port_begin()->peekWire(), right.getInputBlock()->getWire(name));
    EXPECT_EQ(callRight.getPort(name)->peekWire(), callLeft.getWire(name));
    EXPECT_EQ(left.getOutputBlock()->getPort(name)->peekWire()->value()->getPath(), "/left/x/primWireOut");
    EXPECT_EQ(left.getOutputBlock()->getPort(value("t"))->peekWire()->value()->getPath(), "/left/other/primWireOut");
}

TEST_F(ElideFromGotoTest, routesATagOfTheSameNameAgainInALaterRun) {
    Model &low = below(top, "low");
    std::vector<const Block *> readers;
    for (const char *name : {"x", "y"}) {
        sender(top, "goto", &source(top, name), "gotoTagTypeGlobal");
        readers.push_back(&sink(low, "sink", receiver(low, "from")));
        EXPECT_EQ(run(), Lines());
    }
    const Block &call = *low.getParentBlocks().front();
    std::vector<std::string> sources;
    for (const Block *reader : readers) {
        sources.push_back(call.getPort(reader->port_begin()->peekWire()->getName())->peekWire()->value()->getPath());
    }
    EXPECT_EQ(sources, (Lines{"/top/x/primWireOut", "/top/y/primWireOut"}));
}

TEST_F(ElideFromGotoTest, letsTheNarrowestReachWin) {
    const std::vector<std::pair<const char *, const char *>> reaches = {{"gotoTagTypeBus", "bus"},
                                                                        {"gotoTagTypeGlobal", "global"},
                                                                        {"gotoTagTypeScoped", "scoped"},
                                                                        {"gotoTagTypeLocal", "local"}};
    for (std::size_t narrowest = 0; narrowest < reaches.size(); ++narrowest) {
        Design copy(mgr.context());
        Model &outer = *Model::create(copy, "top");
        Model &inner = *Model::create(copy, "low");
        instance(outer, "call", inner);
        outer.setParam(value("(gotoTagTypeScoped t)"), A_TRUE);
        for (std::size_t i = 0; i <= narrowest; ++i) {
            Model &at = i == 3 ? inner : outer;
            sender(at, "goto", &source(at, reaches[i].second), reaches[i].first);
        }
        const Block &reader = sink(inner, "y", receiver(inner, "from"));
        elide(copy);
        const Wire &read = *reader.port_begin()->peekWire();
        const Wire &from =
            narrowest == 3 ? read : *inner.getParentBlocks().front()->getPort(read.getName())->peekWire();
        EXPECT_EQ(from.getBlock().getName()->toString(), reaches[narrowest].second);
    }
}

TEST_F(ElideFromGotoTest, readsTheNearestScopeAroundAFrom) {
    Model &middle = below(top, "middle");
    Model &low = below(middle, "low");
    Model &other = below(top, "other");
    const PureValueRef mark = value("(gotoTagTypeScoped t)");
    top.setParam(mark, A_TRUE);
    middle.setParam(mark, A_TRUE);
    // A mark of another value is none.
    low.setParam(mark, A_FALSE);
    sender(top, "outer", &source(top, "x"), "gotoTagTypeScoped");
    sender(low, "inner", &source(low, "y"), "gotoTagTypeScoped");
    Block &inMiddle = sink(middle, "y", receiver(middle, "from"));
    Block &inLow = sink(low, "z", receiver(low, "from"));
    Block &inOther = sink(other, "y", receiver(other, "from"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(readBy(inLow), "/low/y/primWireOut");
    EXPECT_EQ(inMiddle.port_begin()->peekWire()->getBlock().getName()->toString(), "call_low");
    EXPECT_EQ(inOther.port_begin()->peekWire()->getName(), value("(route scoped top t)"));
    // Scope roots leave no trace.
    EXPECT_FALSE(top[mark]);
    EXPECT_FALSE(middle[mark]);
}

TEST_F(ElideFromGotoTest, reportsAFromWhoseTagIsLocalElsewhere) {
    Model &low = below(top, "low");
    sender(top, "goto", &source(top, "x"), "gotoTagTypeLocal");
    receiver(low, "from");
    EXPECT_EQ(run(), Lines{"FROM_UNKNOWN_TAG block=/low/from tag=t"});
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), Lines{"/low/from"});
    EXPECT_EQ(blocksOf(design, A_GOTO_BLOCK), Lines());
    // With a wider tag of the name it is found.
    sender(top, "local", top.getBlock(value("x"))->getWire(A_PRIM_WIRE_OUT), "gotoTagTypeLocal");
    sender(top, "wide", &source(top, "z"), "gotoTagTypeGlobal");
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(low.getParentBlocks().front()->port_size(), 1U);
    EXPECT_EQ(low.getParentBlocks().front()->getPort(value("(route global top t)"))->peekWire()->value()->getPath(),
              "/top/z/primWireOut");
    expectNoneLeft();
}

TEST_F(ElideFromGotoTest, takesAMisspeltOrMissingTagTypeForLocalAndWarns) {
    for (const bool isMissing : {false, true}) {
        Wire &x = source(top, "x");
        Block &made = sender(top, "goto", &x, "gotoTagTypeGlobale");
        if (isMissing) {
            made.setParam(A_GOTO_TAG_TYPE, nullptr);
        }
        const Block &reader = sink(top, "y", receiver(top, "from"));
        const std::string type = isMissing ? "*INVALID*" : "gotoTagTypeGlobale";
        EXPECT_EQ(run(), Lines{"GOTO_BAD_TAG_TYPE block=/top/goto tagType=" + type});
        EXPECT_EQ(reader.port_begin()->peekWire(), &x);
        expectNoneLeft();
    }
    EXPECT_EQ(findMessage("GOTO_BAD_TAG_TYPE")->severity, Severity::Warning);
}

TEST_F(ElideFromGotoTest, letsTheSecondOfEqualLocalTagsHoldInSilence) {
    sender(top, "a", &source(top, "x"), "gotoTagTypeLocal");
    sender(top, "b", &source(top, "y"), "gotoTagTypeLocal");
    Block &reader = sink(top, "z", receiver(top, "from"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(readBy(reader), "/top/y/primWireOut");
}

TEST_F(ElideFromGotoTest, letsTheSecondOfEqualTagsHoldThoughAFromFedTheFirst) {
    sender(top, "zeroth", &source(top, "x"), "gotoTagTypeLocal", "s");
    sender(top, "a", &receiver(top, "first from", "s"), "gotoTagTypeLocal");
    sender(top, "b", &source(top, "y"), "gotoTagTypeLocal");
    Block &reader = sink(top, "z", receiver(top, "last from"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(readBy(reader), "/top/y/primWireOut");
    expectNoneLeft();
}

TEST_F(ElideFromGotoTest, letsTheLastOfEqualGlobalTagsHoldBeyondTheModelsOfTheOthers) {
    Model &a = below(top, "a");
    Model &z = below(top, "z");
    for (Model *at : {&z, &a}) {
        sender(*at, "goto", &source(*at, "x"), "gotoTagTypeGlobal");
    }
    Block &inA = sink(a, "y", receiver(a, "from"));
    Block &inTop = sink(top, "y", receiver(top, "from"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(readBy(inA), "/a/x/primWireOut");
    EXPECT_EQ(inTop.port_begin()->peekWire()->getName(), value("(route global z t)"));
}

TEST_F(ElideFromGotoTest, reportsARouteThroughAModelWithSeveralInstances) {
    Model &twice = below(top, "twice");
    instance(top, "again", twice);
    Model &low = below(twice, "low");
    sender(top, "down", &source(top, "x"), "gotoTagTypeGlobal", "down");
    receiver(low, "from", "down");
    sender(low, "up", &source(low, "x"), "gotoTagTypeGlobal", "up");
    receiver(top, "from", "up");
    // Within the model its pairs need no route.
    sender(low, "own", &source(low, "y"), "gotoTagTypeGlobal", "own");
    Block &reader = sink(low, "z", receiver(low, "own from", "own"));
    EXPECT_EQ(run(), (Lines{"FROM_NO_REFCHAIN model=/low", "GOTO_NO_REFCHAIN model=/low"}));
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), (Lines{"/low/from", "/top/from"}));
    EXPECT_EQ(blocksOf(design, A_GOTO_BLOCK), Lines());
    EXPECT_EQ(readBy(reader), "/low/y/primWireOut");
    EXPECT_TRUE(twice.getInputBlocks().empty());
    EXPECT_TRUE(low.getOutputBlocks().empty());
}

TEST_F(ElideFromGotoTest, reportsModelsWithoutACommonTop) {
    Model &apart = model("apart");
    sender(apart, "goto", &source(apart, "x"), "gotoTagTypeBus");
    receiver(top, "from");
    EXPECT_EQ(run(), Lines{"FROM_GOTO_NO_ROUTE fromModel=/top gotoModel=/apart"});
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), Lines{"/top/from"});
}

TEST_F(ElideFromGotoTest, endsForModelsThatInstantiateEachOther) {
    Model &a = model("a");
    Model &b = below(a, "b");
    instance(b, "back", a);
    sender(a, "goto", &source(a, "x"), "gotoTagTypeScoped");
    sender(a, "wide", &source(a, "y"), "gotoTagTypeGlobal", "wide");
    receiver(b, "from");
    receiver(b, "from wide", "wide");
    EXPECT_EQ(run(), (Lines{"FROM_UNKNOWN_TAG block=/b/from tag=t", "FROM_NO_REFCHAIN model=/b"}));
}

TEST_F(ElideFromGotoTest, leavesAScopedTagWithoutAMarkUnresolved) {
    Model &low = below(top, "low");
    sender(low, "goto", &source(low, "x"), "gotoTagTypeScoped");
    receiver(low, "from");
    receiver(top, "from");
    // The mark of another tag is none of this.
    const PureValueRef other = value("(gotoTagTypeScoped u)");
    top.setParam(other, A_TRUE);
    EXPECT_EQ(run(), (Lines{"FROM_UNKNOWN_TAG block=/low/from tag=t", "FROM_UNKNOWN_TAG block=/top/from tag=t"}));
    EXPECT_EQ(blocksOf(design, A_GOTO_BLOCK), Lines());
    EXPECT_TRUE(top[other] == A_TRUE);
}

TEST_F(ElideFromGotoTest, followsChainsInEveryOrderOfTheBlocks) {
    std::vector<const char *> names = {"p", "q", "r", "s"};
    const auto isBefore = [](const char *a, const char *b) { return std::strcmp(a, b) < 0; };
    do {
        Design chain(mgr.context());
        Model &in = *Model::create(chain, "top");
        Wire &x = source(in, "x");
        sender(in, "z", &x, "gotoTagTypeLocal", "0");
        std::vector<const Block *> readers;
        const char *const tags[] = {"0", "1", "2", "3"};
        const char *const others[] = {"(other 0)", "(other 1)", "(other 2)"};
        for (std::size_t i = 0; i < 3; ++i) {
            // Each signal of the chain leaves by two Gotos.
            Wire &wire = receiver(in, names[i], tags[i]);
            sender(in, "goto", &wire, "gotoTagTypeLocal", tags[i + 1]);
            sender(in, "goto", &wire, "gotoTagTypeLocal", others[i]);
            readers.push_back(&sink(in, "y", receiver(in, "side", others[i])));
        }
        readers.push_back(&sink(in, "y", receiver(in, names[3], tags[3])));
        elide(chain);
        for (const Block *reader : readers) {
            EXPECT_EQ(reader->port_begin()->peekWire(), &x);
        }
        EXPECT_EQ(in.size(), 1 + readers.size());
    } while (std::next_permutation(names.begin(), names.end(), isBefore));
}

TEST_F(ElideFromGotoTest, followsAChainThroughTheHierarchy) {
    for (const bool lateFirst : {false, true}) {
        Design chain(mgr.context());
        Model &outer = *Model::create(chain, "top");
        // The models are swept in the order of their names.
        Model &first = *Model::create(chain, lateFirst ? "z" : "a");
        Model &second = *Model::create(chain, lateFirst ? "a" : "z");
        instance(outer, "first", first);
        instance(outer, "second", second);
        output(outer, "y", receiver(outer, "from", "v"));
        sender(outer, "goto", &input(outer, "x", "s8.0"), "gotoTagTypeGlobal");
        sender(first, "goto", &pinned(receiver(first, "from"), "s8.0"), "gotoTagTypeGlobal", "u");
        sender(second, "goto", &receiver(second, "from", "u"), "gotoTagTypeBus", "v");
        sim::Simulator before(chain, outer);
        EXPECT_EQ(stepWith(before, {42}), test::Numbers{42});
        elide(chain);
        EXPECT_EQ(blocksOf(chain, A_FROM_BLOCK), Lines());
        sim::Simulator after(chain, outer);
        EXPECT_EQ(stepWith(after, {42}), test::Numbers{42}) << lateFirst;
    }
}

TEST_F(ElideFromGotoTest, reportsALoopOfTagsThatNothingDrives) {
    sender(top, "a", &receiver(top, "c", "v"), "gotoTagTypeLocal", "u");
    sender(top, "b", &receiver(top, "d", "u"), "gotoTagTypeLocal", "v");
    Block &reader = sink(top, "y", receiver(top, "e", "v"));
    EXPECT_EQ(run(), Lines{"FROM_UNKNOWN_TAG block=/top/c tag=v"});
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), Lines{"/top/c"});
    EXPECT_EQ(readBy(reader), "/top/c/fromWireOut");
}

TEST_F(ElideFromGotoTest, passesAFaultyFromOnToTheReadersOfItsGoto) {
    sender(top, "goto", &receiver(top, "lost", "nowhere"), "gotoTagTypeLocal");
    Block &reader = sink(top, "y", receiver(top, "from"));
    EXPECT_EQ(run(), Lines{"FROM_UNKNOWN_TAG block=/top/lost tag=nowhere"});
    EXPECT_EQ(readBy(reader), "/top/lost/fromWireOut");
}

TEST_F(ElideFromGotoTest, reportsBlocksThatLackWhatTheyNeedAndGoesOn) {
    Wire &x = source(top, "x");
    sender(top, "aNoPort", nullptr, "gotoTagTypeLocal");
    sender(top, "bNoTag", &x, "gotoTagTypeLocal").setParam(A_GOTO_TAG, nullptr);
    sender(top, "cBadTag", &x, "gotoTagTypeLocal").setParam(A_GOTO_TAG, top);
    sender(top, "dGood", &x, "gotoTagTypeLocal", "good");
    block(top, "eNoWire", "fromBlock", {{"gotoTag", "good"}});
    receiver(top, "fNoTag").getBlock().setParam(A_GOTO_TAG, nullptr);
    receiver(top, "gBadTag").getBlock().setParam(A_GOTO_TAG, top);
    receiver(top, "hGood", "good");
    receiver(top, "iUnknown");
    EXPECT_EQ(run(), (Lines{"GOTO_MISSING_PORT block=/top/aNoPort", "GOTO_MISSING_TAG block=/top/bNoTag",
                            "GOTO_BAD_TAG block=/top/cBadTag tag=[/top]", "FROM_MISSING_WIRE block=/top/eNoWire",
                            "FROM_MISSING_TAG block=/top/fNoTag", "FROM_BAD_TAG block=/top/gBadTag tag=[/top]",
                            "FROM_UNKNOWN_TAG block=/top/iUnknown tag=t"}));
    EXPECT_EQ(blocksOf(design, A_GOTO_BLOCK), (Lines{"/top/aNoPort", "/top/bNoTag", "/top/cBadTag"}));
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), (Lines{"/top/eNoWire", "/top/fNoTag", "/top/gBadTag", "/top/iUnknown"}));
    for (const MessageInfo &message : allMessages()) {
        const std::string tag = message.tag;
        const bool isOfTags = tag.rfind("FROM_", 0) == 0 || tag.rfind("GOTO_", 0) == 0;
        EXPECT_EQ(message.severity == Severity::Warning && isOfTags, tag == "GOTO_BAD_TAG_TYPE") << tag;
    }
}

TEST_F(ElideFromGotoTest, handsWhatAFromCarriedToTheDriver) {
    Wire &x = source(top, "x");
    sender(top, "goto", &x, "gotoTagTypeLocal");
    Wire &wire = receiver(top, "from");
    sink(top, "y", wire);
    const PureValueRef entry = value("(comment kept)");
    MetadataManipulator(wire.getBlock()).appendToVector(entry);
    EXPECT_EQ(run(), Lines());
    const PureTupleValueRef left = MetadataManipulator(x.getBlock()).getTuple();
    ASSERT_TRUE(left);
    EXPECT_EQ(left->toString(), "((comment kept))");
}

TEST_F(ElideFromGotoTest, takesASignalOfAnotherModelForNone) {
    Model &low = below(top, "low");
    Wire &elsewhere = receiver(low, "from", "s");
    sender(top, "known", &source(top, "x"), "gotoTagTypeGlobal", "s");
    sender(top, "faulty", &elsewhere, "gotoTagTypeLocal");
    receiver(top, "reader");
    EXPECT_EQ(run(), (Lines{"GOTO_MISSING_PORT block=/top/faulty", "FROM_UNKNOWN_TAG block=/top/reader tag=t"}));
    EXPECT_EQ(blocksOf(design, A_GOTO_BLOCK), Lines{"/top/faulty"});
}

TEST_F(ElideFromGotoTest, findsAnotherNameForABusThatIsNamedAsAParameterOfItsOutputBlock) {
    Model &low = below(top, "low");
    sender(low, "goto", &source(low, "x"), "gotoTagTypeBus", "blockType");
    Block &reader = sink(top, "y", receiver(top, "from", "blockType"));
    EXPECT_EQ(run(), Lines{"BUS_TAG_RENAMED block=/top/call_low model=/low tag=blockType"});
    expectNoneLeft();
    ASSERT_NE(low.getOutputBlock(), nullptr);
    EXPECT_EQ(readBy(reader), "/top/call_low/(dupName 0 blockType)");
    EXPECT_NE(low.getOutputBlock()->getPort(value("(dupName 0 blockType)")), nullptr);
}

TEST_F(ElideFromGotoTest, reportsARingOfTagsThroughSeveralModels) {
    Model &a = below(top, "a");
    Model &b = below(top, "b");
    sender(a, "goto", &receiver(a, "from", "v"), "gotoTagTypeGlobal", "u");
    sender(b, "goto", &receiver(b, "from", "u"), "gotoTagTypeGlobal", "v");
    // Feeds nothing of the ring, but reads it, and is met first.
    Block &reader = sink(a, "y", receiver(a, "first", "u"));
    EXPECT_EQ(run(), Lines{"FROM_UNKNOWN_TAG block=/a/from tag=v"});
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), Lines{"/a/from"});
    EXPECT_EQ(readBy(reader), "/a/from/fromWireOut");
}

TEST_F(ElideFromGotoTest, reportsARingThroughAModelOnTheWayUpFromTheLastGoto) {
    Model &middle = below(top, "middle");
    Model &low = below(middle, "undermost");
    // What the last Goto, in the order of the models' names, gives goes up no further than to the one of the ring.
    sender(middle, "goto", &receiver(middle, "from", "v"), "gotoTagTypeGlobal", "u");
    sender(low, "goto", &source(low, "x"), "gotoTagTypeGlobal", "u");
    sender(top, "goto", &receiver(top, "from", "u"), "gotoTagTypeGlobal", "v");
    EXPECT_EQ(run(), Lines{"FROM_UNKNOWN_TAG block=/middle/from tag=v"});
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), Lines{"/middle/from"});
}

TEST_F(ElideFromGotoTest, handsWhatARoutedFromCarriedToTheDriverOfTheGoto) {
    Model &low = below(top, "low");
    Wire &x = source(top, "x");
    sender(top, "goto", &x, "gotoTagTypeGlobal");
    Wire &wire = receiver(low, "from");
    sink(low, "y", wire);
    MetadataManipulator(wire.getBlock()).appendToVector(value("(comment kept)"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(MetadataManipulator(x.getBlock()).getTuple()->toString(), "((comment kept))");
}

TEST_F(ElideFromGotoTest, handsWhatAFromOfAnInputCarriedToTheReaders) {
    Model &low = below(top, "low");
    Wire &x = *Wire::create(*Block::create(low, "in", A_INPUT_BLOCK), "x");
    sender(low, "goto", &x, "gotoTagTypeLocal");
    Wire &wire = receiver(low, "from");
    Block &reader = sink(low, "y", wire);
    MetadataManipulator(wire.getBlock()).appendToVector(value("(comment kept)"));
    EXPECT_EQ(run(), Lines());
    ASSERT_TRUE(MetadataManipulator(reader).getTuple());
    EXPECT_EQ(MetadataManipulator(reader).getTuple()->toString(), "((comment kept))");
}

TEST_F(ElideFromGotoTest, handsWhatAGotoCarriedToTheDriver) {
    // Also where nothing reads the tag, and through other tags, whichever block is met first.
    Wire &x = source(top, "x");
    annotate(sender(top, "goto", &x, "gotoTagTypeLocal"), "first");
    Wire &between = receiver(top, "from");
    annotate(sender(top, "a", &between, "gotoTagTypeGlobal", "u"), "second");
    Model &low = below(top, "low");
    Block &reader = sink(low, "y", receiver(low, "routed", "u"));
    annotate(sender(top, "unread", &x, "gotoTagTypeLocal", "nobody"), "third");
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(carriedBy(x.getBlock()), "((comment first) (comment third) (comment second))");
    EXPECT_EQ(carriedBy(reader), "");
}

TEST_F(ElideFromGotoTest, handsWhatAGotoOfAnInputCarriedToTheReadersOfItsTag) {
    Model &low = below(top, "low");
    Wire &x = *Wire::create(*Block::create(low, "in", A_INPUT_BLOCK), "x");
    annotate(sender(low, "goto", &x, "gotoTagTypeGlobal"), "first");
    Block &near = sink(low, "near", receiver(low, "from"));
    Block &far = sink(top, "far", receiver(top, "routed"));
    Block &other = sink(low, "other", x);
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(carriedBy(near), "((comment first))");
    EXPECT_EQ(carriedBy(far), "((comment first))");
    EXPECT_EQ(carriedBy(other), "");
}

TEST_F(ElideFromGotoTest, handsWhatAChainOfTagsBehindAnInputCarriedToTheReadersBehindIt) {
    Wire &x = *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x");
    annotate(sender(top, "goto", &x, "gotoTagTypeLocal"), "first");
    Wire &between = receiver(top, "from");
    annotate(between.getBlock(), "second");
    Block &early = sink(top, "early", between);
    annotate(sender(top, "again", &between, "gotoTagTypeLocal", "u"), "third");
    Wire &last = receiver(top, "last", "u");
    annotate(last.getBlock(), "fourth");
    Block &late = sink(top, "late", last);
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(carriedBy(early), "((comment second) (comment first))");
    EXPECT_EQ(carriedBy(late), "((comment fourth) (comment third) (comment second) (comment first))");
}

TEST_F(ElideFromGotoTest, handsWhatOnlyTheLastOfSeveralGotosCarriedToReaders) {
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    annotate(sender(top, "a", Wire::create(in, "x"), "gotoTagTypeLocal"), "first");
    annotate(sender(top, "b", Wire::create(in, "y"), "gotoTagTypeLocal"), "second");
    Block &reader = sink(top, "reader", receiver(top, "from"));
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(carriedBy(reader), "((comment second))");
}

TEST_F(ElideFromGotoTest, handsWhatAGotoCarriedToAFaultyFromThatStaysBehindIt) {
    Wire &lost = receiver(top, "lost", "nowhere");
    annotate(sender(top, "goto", &lost, "gotoTagTypeLocal"), "first");
    sink(top, "y", receiver(top, "from"));
    EXPECT_EQ(run(), Lines{"FROM_UNKNOWN_TAG block=/top/lost tag=nowhere"});
    EXPECT_EQ(carriedBy(lost.getBlock()), "((comment first))");
}

TEST_F(ElideFromGotoTest, readsTheGotoThatIsNearerThanAnotherOnTheWayUp) {
    // The Goto of "sub/a" holds, though the wire of the one in "top" is met above.
    Model &sub = below(top, "sub");
    Model &a = below(sub, "xa");
    Model &b = below(sub, "xb");
    sender(top, "goto", &source(top, "x"), "gotoTagTypeGlobal");
    sender(a, "goto", &source(a, "x"), "gotoTagTypeGlobal");
    receiver(b, "from");
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(blocksOf(design, A_FROM_BLOCK), Lines());
    const Block &call = *sub.getBlock(StringValue::get("call_xb", mgr.context()));
    EXPECT_EQ(call.getPort(value("(route global xa t)"))->peekWire()->value()->getPath(),
              "/sub/call_xa/(route global xa t)");
}

TEST_F(ElideFromGotoTest, resolvesEveryReachOnEveryLevelOfADeepHierarchy) {
    // Tags of all reaches on each of many levels, each read two levels further down; and one from the top everywhere.
    constexpr int kLevels = 300;
    sender(top, "goto", &source(top, "x"), "gotoTagTypeGlobal", "everywhere");
    std::vector<Model *> levels{&top};
    for (int i = 0; i < kLevels; ++i) {
        levels.push_back(&below(*levels.back(), "l" + std::to_string(i)));
    }
    for (std::size_t i = 0; i + 2 < levels.size(); ++i) {
        Model &level = *levels[i];
        const std::string tag = "t" + std::to_string(i);
        sender(level, "local", &source(level, "y"), "gotoTagTypeLocal", tag.c_str());
        receiver(level, "local from", tag.c_str());
        level.setParam(value("(gotoTagTypeScoped s)"), A_TRUE);
        sender(level, "scoped", &source(level, "z"), "gotoTagTypeScoped", "s");
        receiver(level, "scoped from", "s");
        const std::string wide = "w" + std::to_string(i);
        sender(level, "wide", &source(level, "w"), "gotoTagTypeGlobal", wide.c_str());
        receiver(*levels[i + 2], "wide from", wide.c_str());
        receiver(level, "from", "everywhere");
    }
    EXPECT_EQ(run(), Lines());
    expectNoneLeft();
}

/// The same with many more tags and models, and further instances of models only if told.
std::vector<gen::Recipe> withTags(std::vector<gen::Recipe> recipes, bool callsAgain) {
    constexpr std::uint32_t kKinds = 32;
    constexpr std::uint32_t kOpenModel = 4;
    constexpr std::uint32_t kCallAgain = 6;
    constexpr std::uint32_t kTags = 7;
    constexpr std::uint32_t kFirstBlock = 9;
    for (gen::Recipe &recipe : recipes) {
        const std::uint32_t kind = recipe.kind % kKinds;
        if (kind >= kFirstBlock && kind < kFirstBlock + 8) {
            recipe.kind += kTags - kind;
        } else if (kind >= kFirstBlock + 8 && kind < kFirstBlock + 12) {
            recipe.kind += kOpenModel + kind % 2 - kind;
        } else if (kind == kCallAgain && !callsAgain) {
            recipe.kind += kTags - kind;
        }
    }
    return recipes;
}

/// All tags of such a design can be resolved if no model is instantiated twice.
::testing::AssertionResult goesAndComputesTheSame(const std::vector<gen::Recipe> &recipes) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const auto before = generator.make(recipes);
    const auto after = generator.make(recipes);
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("ElideFromGotoPass");
    scheduler.apply(*after);
    for (const std::string &line : heard.take()) {
        if (line.rfind("GOTO_BAD_TAG_TYPE ", 0) != 0) {
            return ::testing::AssertionFailure() << line;
        }
    }
    if (!blocksOf(*after, A_FROM_BLOCK).empty() || !blocksOf(*after, A_GOTO_BLOCK).empty()) {
        return ::testing::AssertionFailure() << "a From or Goto is left";
    }
    if (const auto sound = test::checkInvariants(*after); !sound) {
        return sound;
    }
    sim::CompareOptions options;
    options.cycles = 20;
    return test::sameBehaviour(*before, *after, "top", options);
}

RC_GTEST_PROP(ElideFromGoto, leavesDesignsAsTheyCompute, ()) {
    const auto same = goesAndComputesTheSame(withTags(*test::recipes(60), false));
    if (!same) {
        RC_LOG() << same.message();
    }
    RC_ASSERT(same);
}

TEST(ElideFromGoto, leavesAPinBehindATagAndAPackOfTwoOutputsOfAModel) {
    EXPECT_TRUE(goesAndComputesTheSame(
        {{32123716, {}}, {864, {}}, {525909061, {}}, {739144693, {0, 0, 0, 0, 0, 1}}, {17975591, {}}}));
}

// What the properties above rest on.
TEST(ElideFromGoto, meetsEveryReachOnEveryWay) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::map<std::string, int> met;
    for (std::uint64_t seed = 0; seed < 500; ++seed) {
        const auto design = generator.make(withTags(gen::recipesOf(seed, 60), false));
        std::map<PureValueRef, const Block *> senders;
        for (const Model &model : *design) {
            for (const Block &block : model) {
                if (block.type() == A_GOTO_BLOCK.get_ptr()) {
                    senders[PureValueRef(block.getParam(A_GOTO_TAG))] = &block;
                    const Block &driver = block.getPort(A_GOTO_PORT_IN)->peekWire()->getBlock();
                    met["chain"] += driver.type() == A_FROM_BLOCK.get_ptr() ? 1 : 0;
                }
            }
        }
        for (const Model &model : *design) {
            for (const Block &block : model) {
                if (block.type() == A_FROM_BLOCK.get_ptr()) {
                    const Block &sender = *senders.at(PureValueRef(block.getParam(A_GOTO_TAG)));
                    const ValueRef reach = sender.getParam(A_GOTO_TAG_TYPE);
                    const Model &at = sender.getModel();
                    const char *way = &at == &model                     ? "within"
                                      : at.getParentBlocks().empty()    ? "down"
                                      : model.getParentBlocks().empty() ? "up"
                                                                        : "between";
                    ++met[(reach ? reach->toString() : "none") + " " + way];
                }
            }
        }
    }
    for (const char *reach : {"gotoTagTypeScoped", "gotoTagTypeGlobal", "gotoTagTypeBus"}) {
        for (const char *way : {" within", " down", " up", " between"}) {
            EXPECT_GE(met[std::string(reach) + way], 5) << reach << way;
        }
    }
    for (const char *one : {"none within", "gotoTagTypeLocal within", "chain"}) {
        EXPECT_GE(met[one], 5) << one;
    }
}

// With such models only Froms in them may stay. They find no scope root above, and have no route.
RC_GTEST_PROP(ElideFromGoto, leavesOnlyFromsThatHaveNoSinglePlace, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const auto design = generator.make(withTags(*test::recipes(60), true));
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("ElideFromGotoPass");
    scheduler.requirePass("ModelTreePass");
    const PassResults results = scheduler.apply(*design);
    RC_ASSERT(test::checkInvariants(*design));
    RC_ASSERT(blocksOf(*design, A_GOTO_BLOCK).empty());
    ModelTreePass &tree = *results.getPass<ModelTreePass>();
    std::size_t left = 0;
    for (Model &model : *design) {
        for (const Block &block : model) {
            if (block.type() == A_FROM_BLOCK.get_ptr()) {
                ++left;
                RefChain chain;
                RC_ASSERT(!tree.getRefChain(model, chain));
            }
        }
    }
    const Lines lines = heard.take();
    RC_ASSERT(std::count_if(lines.begin(), lines.end(), [](const std::string &line) {
                  return line.rfind("FROM_NO_REFCHAIN ", 0) == 0U || line.rfind("FROM_UNKNOWN_TAG ", 0) == 0U;
              }) == static_cast<std::ptrdiff_t>(left));
    RC_TAG(left != 0 ? "some stay" : "none stays");
}

} // namespace
} // namespace orvo
