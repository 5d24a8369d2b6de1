// What dissolves, what comes in its place, and what comes along.
#include "orvo/flattener.h"

#include "support/flattenmarks.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/domainboundary.h>
#include <orvo/domaininfer.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>
#include <sstream>

namespace orvo {
namespace {

constexpr const char *kEverything = "FlattenEverythingPass";
constexpr const char *kExplicit = "FlattenExplicitPass";
constexpr const char *kZRT = "FlattenZRTExplicitPass";
constexpr const char *kSimulink = "FlattenSimulinkPass";

/// Models of which "sub" stands before "top", so that it is flattened first, and "zub" behind it.
class FlattenTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Model &model(const char *name) { return *Model::create(design, name); }
    /// A block with ports "0" and so on.
    Block &block(Model &in, const char *name, const StaticString &type, const std::vector<Wire *> &drivers = {}) {
        Block &made = *Block::create(in, name, type);
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            if (drivers[i] != nullptr) {
                made.setParam(value(std::to_string(i)), *drivers[i]);
            }
        }
        return made;
    }
    /// The same with the wire "q".
    Wire &op(Model &in, const char *name, const StaticString &type, const std::vector<Wire *> &drivers = {}) {
        return *Wire::create(block(in, name, type, drivers), "q");
    }
    Wire &wire(Block &of, const char *name) { return *Wire::create(of, value(name)); }
    Block &call(Model &in, const char *name, Model &of) {
        Block &made = block(in, name, A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, of);
        return made;
    }
    /// in "a" -> neg -> out "y".
    Model &negation(const char *name) {
        Model &made = model(name);
        Block &in = block(made, "in", A_INPUT_BLOCK);
        block(made, "out", A_OUTPUT_BLOCK).setParam(value("y"), op(made, "neg", A_NEG_BLOCK, {&wire(in, "a")}));
        return made;
    }
    void run(const char *pass = kEverything) {
        PassScheduler scheduler;
        scheduler.addPass(pass);
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
    }
    /// One line a block: its name, and each port with the block and wire that drive it.
    static std::string shown(const Model &model) {
        std::string text;
        for (const Block &one : model) {
            text += one.getName()->toString();
            for (const Port &port : one.ports()) {
                const Wire &from = *port.peekWire();
                text += " " + port.getName()->toString() + "=" + from.getBlock().getName()->toString() + "." +
                        from.getName()->toString();
            }
            text += "\n";
        }
        return text;
    }
    static std::string text(const Node &node, const StaticString &key) {
        const Value *found = node.findParam(key);
        return found == nullptr ? "" : found->toString();
    }
    Block &named(Model &in, const char *name) {
        Block *found = in.getBlock(value(name));
        EXPECT_NE(found, nullptr) << name;
        return *found;
    }
    using Lines = std::vector<std::string>;

    ContextMgr mgr;
    test::HeardMessages heard{mgr.context()};
    Design design{mgr.context()};
    Model &top = model("top");
    Wire &source = op(top, "const", A_CONST_BLOCK);
};

TEST_F(FlattenTest, putsTheBlocksOfAModelInThePlaceOfItsInstance) {
    Model &sub = negation("sub");
    Block &inner = call(top, "f", sub);
    inner.setParam(value("a"), source);
    op(top, "user", A_NEG_BLOCK, {&wire(inner, "y")});
    named(sub, "neg").setParam(value("mode"), value("(some 3)"));
    run();
    EXPECT_EQ(shown(top), "const\nuser 0=(sub neg).q\n(sub neg) 0=const.q\n");
    EXPECT_EQ(named(top, "(sub neg)").getParam(value("mode"))->toString(), "(some 3)");
    EXPECT_EQ(shown(sub), "in\nneg 0=in.a\nout y=neg.q\n");
    EXPECT_TRUE(sub.getParentBlocks().empty());
}

TEST_F(FlattenTest, keepsTheInstancesOfOneModelApart) {
    Model &sub = negation("sub");
    for (const char *name : {"f", "g", "h"}) {
        Block &inner = call(top, name, sub);
        inner.setParam(value("a"), source);
        op(top, ("user" + std::string(name)).c_str(), A_NEG_BLOCK, {&wire(inner, "y")});
    }
    run();
    EXPECT_EQ(shown(top), "const\n"
                          "userf 0=(sub neg).q\nuserg 0=(dupName 0 (sub neg)).q\nuserh 0=(dupName 1 (sub neg)).q\n"
                          "(dupName 0 (sub neg)) 0=const.q\n(dupName 1 (sub neg)) 0=const.q\n(sub neg) 0=const.q\n");
}

TEST_F(FlattenTest, dissolvesHierarchyOfAnyDepthBreadthFirst) {
    // "zub" is still whole when it dissolves, "mid" is flat by then.
    for (const char *name : {"mid", "zub"}) {
        Model &sub = model(name);
        Block &in = block(sub, "in", A_INPUT_BLOCK);
        Model &low = negation(("low" + std::string(name)).c_str());
        Block &inner = call(sub, "inner", low);
        inner.setParam(value("a"), wire(in, "a"));
        block(sub, "out", A_OUTPUT_BLOCK).setParam(value("y"), wire(inner, "y"));
        Block &outer = call(top, name, sub);
        outer.setParam(value("a"), source);
        op(top, ("user" + std::string(name)).c_str(), A_NEG_BLOCK, {&wire(outer, "y")});
    }
    run();
    EXPECT_EQ(shown(top), "const\nusermid 0=(mid (lowmid neg)).q\nuserzub 0=(lowzub neg).q\n"
                          "(lowzub neg) 0=const.q\n(mid (lowmid neg)) 0=const.q\n");
}

TEST_F(FlattenTest, takesAnEmptyModelOutWithItsWires) {
    Block &inner = call(top, "f", model("sub"));
    inner.setParam(value("a"), source);
    op(top, "user", A_NEG_BLOCK, {&wire(inner, "y")});
    run();
    EXPECT_EQ(shown(top), "const\nuser\n");
}

TEST_F(FlattenTest, keepsFoldingKernelsAndModelsAtTheEdgeOfABus) {
    for (const StaticString *type : {&A_BUS_IN_BLOCK, &A_BUS_OUT_BLOCK}) {
        Model &sub = negation("sub");
        block(sub, "edge", *type);
        sub.setParam(A_SIMULINK_PATH, value("path"));
        sub.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
        call(top, "f", sub);
    }
    Model &kernel = negation("kernel");
    kernel.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    call(top, "k", kernel);
    top.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
    top.setParam(A_SIMULINK_PATH, value("path"));
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    const std::string before = shown(top);
    for (const char *pass : {kEverything, kExplicit, kSimulink}) {
        run(pass);
        EXPECT_EQ(shown(top), before) << pass;
    }
}

TEST_F(FlattenTest, carriesASubModelThatStaysIntoTheModelAround) {
    Model &kernel = negation("kernel");
    kernel.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    Model &sub = model("sub");
    Block &in = block(sub, "in", A_INPUT_BLOCK);
    Block &inner = call(sub, "k", kernel);
    inner.setParam(value("a"), wire(in, "a"));
    block(sub, "out", A_OUTPUT_BLOCK).setParam(value("y"), wire(inner, "y"));
    Block &outer = call(top, "f", sub);
    outer.setParam(value("a"), source);
    op(top, "user", A_NEG_BLOCK, {&wire(outer, "y")});
    run();
    EXPECT_EQ(shown(top), "const\nuser 0=(sub k).y\n(sub k) a=const.q\n");
    EXPECT_EQ(Node::from<Model>(named(top, "(sub k)")[A_MODEL_NODE]), &kernel);
    EXPECT_EQ(kernel.getParentBlocks().size(), 2U);
}

TEST_F(FlattenTest, leavesInnerReadersOfAnOpenInputUnconnected) {
    call(top, "f", negation("sub"));
    run();
    EXPECT_EQ(shown(top), "const\n(sub neg)\n");
    EXPECT_FALSE(named(top, "(sub neg)").getParam(value("0")));
}

TEST_F(FlattenTest, leavesReadersOfAnOutputThatNothingDrivesUnconnected) {
    Model &sub = negation("sub");
    Block &inner = call(top, "f", sub);
    op(top, "user", A_NEG_BLOCK, {&wire(inner, "other"), &wire(inner, "y")});
    run();
    EXPECT_EQ(shown(top), "const\nuser 1=(sub neg).q\n(sub neg)\n");
}

TEST_F(FlattenTest, leavesABlockWithoutAModelAlone) {
    block(top, "f", A_MODEL_BLOCK);
    run();
    EXPECT_EQ(shown(top), "const\nf\n");
}

TEST_F(FlattenTest, joinsSignalsThatOnlyPassThrough) {
    // The outermost reader sees through three instances, in whatever order they dissolve.
    Model &wires = model("sub");
    Block &in = block(wires, "in", A_INPUT_BLOCK);
    block(wires, "out", A_OUTPUT_BLOCK).setParam(value("y"), wire(in, "a"));
    Block *first = &call(top, "m", wires);
    Block *second = &call(top, "z", wires);
    Block *third = &call(top, "b", wires);
    first->setParam(value("a"), source);
    second->setParam(value("a"), wire(*first, "y"));
    third->setParam(value("a"), wire(*second, "y"));
    op(top, "user", A_NEG_BLOCK, {&wire(*third, "y"), second->getWire(value("y"))});
    run();
    EXPECT_EQ(shown(top), "const\nuser 0=const.q 1=const.q\n");
}

TEST_F(FlattenTest, opensARingOfSignalsThatNothingDrives) {
    Model &wires = model("sub");
    Block &in = block(wires, "in", A_INPUT_BLOCK);
    block(wires, "out", A_OUTPUT_BLOCK).setParam(value("y"), wire(in, "a"));
    Block &first = call(top, "f", wires);
    Block &second = call(top, "g", wires);
    first.setParam(value("a"), wire(second, "y"));
    second.setParam(value("a"), wire(first, "y"));
    op(top, "user", A_NEG_BLOCK, {first.getWire(value("y"))});
    run();
    EXPECT_EQ(shown(top), "const\nuser\n");
}

TEST_F(FlattenTest, closesFeedbackAroundAnInstance) {
    Block &inner = call(top, "f", negation("sub"));
    inner.setParam(value("a"), wire(inner, "y"));
    run();
    EXPECT_EQ(shown(top), "const\n(sub neg) 0=(sub neg).q\n");
}

TEST_F(FlattenTest, takesTheSignalsOfAllInputAndOutputBlocks) {
    Model &sub = model("sub");
    block(sub, "out1", A_OUTPUT_BLOCK).setParam(value("y"), wire(block(sub, "in1", A_INPUT_BLOCK), "a"));
    block(sub, "out2", A_OUTPUT_BLOCK).setParam(value("z"), wire(block(sub, "in2", A_INPUT_BLOCK), "b"));
    Block &inner = call(top, "f", sub);
    inner.setParam(value("a"), source);
    inner.setParam(value("b"), op(top, "other", A_CONST_BLOCK));
    op(top, "user", A_NEG_BLOCK, {&wire(inner, "y"), &wire(inner, "z")});
    run();
    EXPECT_EQ(shown(top), "const\nother\nuser 0=const.q 1=other.q\n");
}

TEST_F(FlattenTest, leavesAConnectionToAnotherModelOut) {
    Model &sub = negation("sub");
    named(sub, "neg").setParam(value("1"), source);
    call(top, "f", sub).setParam(value("a"), source);
    run();
    EXPECT_EQ(shown(top), "const\n(sub neg) 0=const.q\n");
}

TEST_F(FlattenTest, keepsModelsThatContainThemselves) {
    Model &ring = negation("ring");
    Model &other = negation("other");
    call(ring, "f", other);
    call(other, "g", ring);
    Model &self = negation("self");
    call(self, "again", self);
    call(top, "f", self);
    Model &between = negation("sub");
    call(between, "r", ring);
    call(top, "s", between);
    run();
    EXPECT_EQ(shown(top), "const\nf\n(sub neg)\n(sub r)\n");
    EXPECT_EQ(shown(self), "again\nin\nneg 0=in.a\nout y=neg.q\n");
}

TEST_F(FlattenTest, explicitlyFlattensTheModelThatReceives) {
    Model &sub = negation("sub");
    Model &other = model("other");
    for (Model *into : {&top, &other}) {
        call(*into, "f", sub);
    }
    run(kExplicit);
    EXPECT_EQ(shown(top), "const\nf\n");
    sub.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
    other.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
    run(kExplicit);
    EXPECT_EQ(shown(top), "const\nf\n");
    EXPECT_EQ(shown(other), "(sub neg)\n");
}

TEST_F(FlattenTest, dissolvesTheMarkedModelWhereverItIs) {
    Model &sub = negation("sub");
    Model &other = negation("other");
    call(other, "f", sub);
    call(top, "f", sub);
    call(top, "g", other);
    sub.setParam(A_ZRT_MODEL_TO_BE_FLATTENED, A_TRUE);
    run(kZRT);
    EXPECT_EQ(shown(top), "const\ng\n(sub neg)\n");
    EXPECT_EQ(shown(other), "in\nneg 0=in.a\nout y=neg.q\n(sub neg)\n");
}

TEST_F(FlattenTest, dissolvesAMarkedModelWhateverItHolds) {
    Model &sub = negation("sub");
    block(sub, "bus", A_BUS_IN_BLOCK);
    sub.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    sub.setParam(A_ZRT_MODEL_TO_BE_FLATTENED, A_TRUE);
    call(top, "f", sub);
    run(kZRT);
    EXPECT_EQ(shown(top), "const\n(sub bus)\n(sub neg)\n");
}

TEST_F(FlattenTest, givesEachCopyTheMetadataOfTheModelBlock) {
    Model &low = negation("zlow");
    Model &sub = negation("zub");
    call(sub, "inner", low);
    Block &inner = call(top, "f", sub);
    MetadataManipulator(inner).append(A_COMMENT_TAG, value("outer"));
    MetadataManipulator(named(sub, "neg")).append(A_COMMENT_TAG, value("own"));
    MetadataManipulator(named(sub, "neg")).append(A_COMMENT_TAG, value("outer"));
    MetadataManipulator(named(sub, "inner")).append(A_COMMENT_TAG, value("middle"));
    run();
    EXPECT_EQ(text(named(top, "(zub neg)"), A_METADATA), "((commentTag own) (commentTag outer))");
    EXPECT_EQ(text(named(top, "(zlow neg)"), A_METADATA), "((commentTag middle) (commentTag outer))");
    EXPECT_EQ(text(named(low, "neg"), A_METADATA), "");
}

TEST_F(FlattenTest, keepsTheParametersOfWires) {
    Model &sub = negation("sub");
    named(sub, "neg").getWire(value("q"))->setParam(value("hint"), value("7"));
    call(top, "f", sub);
    run();
    EXPECT_EQ(named(top, "(sub neg)").getWire(value("q"))->getParam(value("hint"))->toString(), "7");
}

TEST_F(FlattenTest, movesReadersOfADeepSignalOnce) {
    // A signal that goes up through many levels, each of which has instances of the one below.
    constexpr int kLevels = 2000;
    Model *below = &negation("z0000");
    for (int i = 1; i <= kLevels; ++i) {
        const std::string name = "z" + std::to_string(10000 + i).substr(1);
        Model &level = model(name.c_str());
        Block &in = block(level, "in", A_INPUT_BLOCK);
        Block &inner = call(level, "f", *below);
        inner.setParam(value("a"), wire(in, "a"));
        block(level, "out", A_OUTPUT_BLOCK).setParam(value("y"), wire(inner, "y"));
        below = &level;
    }
    Block &outer = call(top, "f", *below);
    outer.setParam(value("a"), source);
    top.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
    Wire &result = wire(outer, "y");
    for (int i = 0; i < 2000; ++i) {
        op(top, ("user" + std::to_string(i)).c_str(), A_NEG_BLOCK, {&result});
    }
    const std::uint64_t edits = design.editCount();
    run(kExplicit);
    EXPECT_EQ(named(top, "(z0000 neg)").getWire(value("q"))->port_size(), 2000U);
    EXPECT_EQ(top.size(), 2002U);
    EXPECT_LT(design.editCount() - edits, 60000U);
}

// --- error correction

TEST_F(FlattenTest, cancelsAnErrorCorrectionPairAtAnEdge) {
    Model &sub = negation("sub");
    Wire &ecc = op(sub, "src", A_ECC_SRC_BLOCK);
    sub.getOutputBlock()->setParam(value("e"), ecc);
    Block &inner = call(top, "f", sub);
    inner.setParam(value("a"), source);
    block(top, "sink", A_ECC_SINK_BLOCK, {&wire(inner, "e")});
    op(top, "user", A_NEG_BLOCK, {&wire(inner, "y")});
    run();
    EXPECT_EQ(shown(top), "const\nuser 0=(sub neg).q\n(sub neg) 0=const.q\n");
}

TEST_F(FlattenTest, cancelsAnErrorCorrectionPairAcrossSeveralEdges) {
    Model &low = model("zlow");
    block(low, "out", A_OUTPUT_BLOCK).setParam(value("e"), op(low, "src", A_ECC_SRC_BLOCK));
    Model &sub = model("zub");
    Block &inner = call(sub, "f", low);
    block(sub, "out", A_OUTPUT_BLOCK).setParam(value("e"), wire(inner, "e"));
    block(top, "sink", A_ECC_SINK_BLOCK, {&wire(call(top, "f", sub), "e")});
    run();
    EXPECT_EQ(shown(top), "const\n");
}

TEST_F(FlattenTest, leavesAnErrorCorrectionSinkOfAnotherSignal) {
    block(top, "sink", A_ECC_SINK_BLOCK, {&wire(call(top, "f", negation("sub")), "y")});
    run();
    EXPECT_EQ(shown(top), "const\nsink 0=(sub neg).q\n(sub neg)\n");
}

TEST_F(FlattenTest, leavesTwoErrorCorrectionSinksOfOneSource) {
    Model &low = model("low");
    block(low, "out", A_OUTPUT_BLOCK).setParam(value("e"), op(low, "src", A_ECC_SRC_BLOCK));
    Wire &ecc = wire(call(top, "f", low), "e");
    block(top, "sink1", A_ECC_SINK_BLOCK, {&ecc});
    block(top, "sink2", A_ECC_SINK_BLOCK, {&ecc});
    run();
    EXPECT_EQ(shown(top), "const\nsink1 0=(low src).q\nsink2 0=(low src).q\n(low src)\n");
}

TEST_F(FlattenTest, leavesAnErrorCorrectionPairWhoseSourceHasOtherReaders) {
    Model &low = model("low");
    Wire &ecc = op(low, "src", A_ECC_SRC_BLOCK);
    Block &out = block(low, "out", A_OUTPUT_BLOCK);
    out.setParam(value("e"), ecc);
    out.setParam(value("y"), op(low, "neg", A_NEG_BLOCK, {&ecc}));
    Block &inner = call(top, "f", low);
    block(top, "sink", A_ECC_SINK_BLOCK, {&wire(inner, "e")});
    op(top, "user", A_NEG_BLOCK, {&wire(inner, "y")});
    run();
    EXPECT_EQ(shown(top), "const\nsink 0=(low src).q\nuser 0=(low neg).q\n(low neg) 0=(low src).q\n(low src)\n");
}

TEST_F(FlattenTest, leavesAnErrorCorrectionSinkThatReadsSeveralSignals) {
    Model &low = model("low");
    block(low, "out", A_OUTPUT_BLOCK).setParam(value("e"), op(low, "src", A_ECC_SRC_BLOCK));
    block(top, "sink", A_ECC_SINK_BLOCK, {&wire(call(top, "f", low), "e"), &source});
    run();
    EXPECT_EQ(shown(top), "const\nsink 0=(low src).q 1=const.q\n(low src)\n");
}

// --- domains

TEST_F(FlattenTest, takesTheEdgesOfDomainsOver) {
    Model &sub = negation("sub");
    DomainBoundaryCreator outer(design, value("blue"));
    outer.start(&source);
    DomainBoundaryCreator inner(design, value("red"));
    Block &neg = named(sub, "neg");
    inner.stop(neg.getWire(value("q")));
    inner.start(neg.getPort(value("0")));
    for (const char *name : {"f", "g"}) {
        call(top, name, sub).setParam(value("a"), source);
    }
    run();
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS),
              "((scheduleDomainBegin blue (const wireTag q))"
              " (scheduleDomainBegin red ((sub neg) portTag 0)) (scheduleDomainEnd red ((sub neg) wireTag q))"
              " (scheduleDomainBegin red ((dupName 0 (sub neg)) portTag 0))"
              " (scheduleDomainEnd red ((dupName 0 (sub neg)) wireTag q)))");
    EXPECT_EQ(DomainInference::parseScheduledDomainsParameter(top).begins.size(), 3U);
    EXPECT_EQ(heard.take(), Lines());
}

TEST_F(FlattenTest, leavesTheEdgeOfADomainAtAnOpenPortOut) {
    Model &sub = negation("sub");
    DomainBoundaryCreator(design, value("red")).start(named(sub, "neg").getPort(value("0")));
    call(top, "f", sub);
    run();
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS), "");
}

TEST_F(FlattenTest, reportsTheEdgeOfADomainAtTheEdgeOfAModel) {
    Model &sub = negation("sub");
    DomainBoundaryCreator creator(design, value("red"));
    creator.start(sub.getInputBlock()->getWire(value("a")));
    creator.stop(sub.getOutputBlock()->getPort(value("y")));
    call(top, "f", sub);
    run();
    EXPECT_EQ(heard.take(),
              (Lines{"FLATTENING_DOMAIN_INPUTOUTPUT srcModel=/sub", "FLATTENING_DOMAIN_INPUTOUTPUT srcModel=/sub"}));
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS), "");
}

TEST_F(FlattenTest, leavesEdgesOfDomainsOutWhereADriverIsLost) {
    // What "empty" gave is open behind it: in the model itself, and at the copy of what it drives.
    Model &empty = model("empty");
    block(empty, "in", A_INPUT_BLOCK);
    Model &sub = negation("zub");
    Wire &open = wire(call(top, "e", empty), "y");
    Block &user = block(top, "user", A_NEG_BLOCK, {&open, &source});
    call(top, "f", sub).setParam(value("a"), open);
    DomainBoundaryCreator outer(design, value("red"));
    outer.start(user.getPort(value("0")));
    outer.start(user.getPort(value("1")));
    DomainBoundaryCreator(design, value("blue")).start(named(sub, "neg").getPort(value("0")));
    run();
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS), "((scheduleDomainBegin red (user portTag 1)))");
    EXPECT_EQ(DomainInference::parseScheduledDomainsParameter(top).begins.size(), 1U);
    EXPECT_EQ(heard.take(), Lines());
}

TEST_F(FlattenTest, takesEdgesOfDomainsThatAreLostAllTogether) {
    Model &empty = model("empty");
    Wire &open = wire(call(top, "e", empty), "y");
    DomainBoundaryCreator(design, value("red")).start(block(top, "user", A_NEG_BLOCK, {&open}).getPort(value("0")));
    run();
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS), "");
}

TEST_F(FlattenTest, leavesEdgesOfDomainsThatWereWrongBefore) {
    call(top, "f", negation("sub"));
    const char *wrong = "(7 (scheduleDomainBegin red (nobody portTag 0)))";
    top.setParam(A_SYNTH_SCHEDULE_DOMAINS, value(wrong));
    run();
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS), wrong);
}

TEST_F(FlattenTest, takesTheEdgeOfADomainAtAModelBlockToWhatReadsThePort) {
    // "outer" is drawn in the model; "inner" comes with "zub" and dissolves in turn.
    Model &sub = negation("zub");
    Block &inner = call(sub, "inner", negation("zlow"));
    inner.setParam(value("a"), *named(sub, "neg").getWire(value("q")));
    Block &outer = call(top, "outer", sub);
    outer.setParam(value("a"), source);
    DomainBoundaryCreator creator(design, value("red"));
    creator.start(outer.getPort(value("a")));
    creator.start(inner.getPort(value("a")));
    creator.start(&source);
    top.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
    run(kExplicit);
    EXPECT_EQ(heard.take(), Lines());
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS),
              "((scheduleDomainBegin red ((zub neg) portTag 0)) (scheduleDomainBegin red (const wireTag q))"
              " (scheduleDomainBegin red ((zlow neg) portTag 0)))");
}

TEST_F(FlattenTest, reportsAModelBlockOnceThatHasAnEdgeOfADomainAndEndsOfConstraints) {
    Block &sub = call(top, "f", negation("sub"));
    sub.setParam(value("a"), source);
    sub.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((a true (0) ()))"));
    DomainBoundaryCreator(design, value("red")).start(sub.getPort(value("a")));
    run();
    EXPECT_EQ(heard.take(), Lines{"DISALLOWED_SIGNPOST_ON_MODEL_BLOCK refBlk=/top/f"});
}

// --- designs by chance

/// Flattening takes the reach of tags away, so that they are to be joined before. False if some cannot be.
bool joinTags(Design &design) {
    PassScheduler scheduler;
    scheduler.addPass("ElideFromGotoPass");
    scheduler.apply(design);
    return std::none_of(design.begin(), design.end(), [](const Model &model) {
        return std::any_of(model.begin(), model.end(),
                           [](const Block &block) { return block.type() == A_FROM_BLOCK.get_ptr(); });
    });
}

/// Gives each model below others a source of error correction, which each of its instances leads to a sink.
void addErrorCorrection(Design &design) {
    const PureValueRef name = StringValue::get("ecc", design.getContext());
    for (Model &model : design) {
        if (model.getParentBlocks().empty() || model.getOutputBlock() == nullptr) {
            continue;
        }
        Wire &status = *Wire::create(*Block::create(model, "eccSource", A_ECC_SRC_BLOCK), A_PRIM_WIRE_OUT);
        model.getOutputBlock()->setParam(name, status);
        for (Block *call : model.getParentBlocks()) {
            Block::create(call->getModel(), "eccSink", A_ECC_SINK_BLOCK)
                ->setParam(NumberValue::get(0, design.getContext()), *Wire::create(*call, name));
        }
    }
}

std::string textOf(const Design &design) {
    std::ostringstream out;
    XMLServices().toXML(out, design);
    return out.str();
}

std::size_t modelBlocks(const Model &model) {
    std::size_t count = 0;
    for (const Block &block : model) {
        count += block.type() == A_MODEL_BLOCK.get_ptr() ? 1 : 0;
    }
    return count;
}

bool warnsOfTags(test::HeardMessages &heard) {
    const std::vector<std::string> lines = heard.take();
    return std::any_of(lines.begin(), lines.end(),
                       [](const std::string &line) { return line.rfind("FLATTENING_JOINS_TAGS ", 0) == 0; });
}

void expectSameBehindPass(const char *pass, bool everything) {
    const bool holds = rc::check(std::string(pass) + " leaves designs as they compute", [=] {
        ContextMgr mgr;
        gen::DesignGenerator generator(mgr.context());
        const std::vector<gen::Recipe> recipes = *test::recipes(60);
        const std::uint32_t marks =
            everything ? 0 : *rc::gen::inRange<std::uint32_t>(0, std::numeric_limits<std::uint32_t>::max());
        test::HeardMessages silent(mgr.context());
        const auto before = generator.make(recipes);
        const auto after = generator.make(recipes);
        if (!joinTags(*before) || !joinTags(*after)) {
            return;
        }
        for (Design *design : {before.get(), after.get()}) {
            addErrorCorrection(*design);
        }
        test::markForFlattening(*after, marks);
        if (pass == kSimulink) {
            test::markScheduled(*after);
        }
        PassScheduler scheduler;
        scheduler.addPass(pass);
        scheduler.apply(*after);
        RC_ASSERT(test::checkInvariants(*after));
        RC_ASSERT(!warnsOfTags(silent));
        if (everything) {
            for (const Model &model : *after) {
                RC_ASSERT(modelBlocks(model) == 0U);
            }
        }
        sim::CompareOptions options;
        options.cycles = 20;
        const auto same = test::sameBehaviour(*before, *after, "top", options);
        if (!same) {
            RC_LOG() << same.message() << "\n" << textOf(*before);
        }
        RC_ASSERT(same);
    });
    EXPECT_TRUE(holds);
}

TEST(FlattenProperty, everythingComputesTheSame) { expectSameBehindPass(kEverything, true); }
TEST(FlattenProperty, someModelsComputeTheSame) { expectSameBehindPass(kEverything, false); }
TEST(FlattenProperty, markedReceiversComputeTheSame) { expectSameBehindPass(kExplicit, false); }
TEST(FlattenProperty, markedSourcesComputeTheSame) { expectSameBehindPass(kZRT, false); }
TEST(FlattenProperty, scheduledSubsystemsComputeTheSame) { expectSameBehindPass(kSimulink, false); }

// Where nothing is warned of, tags may as well be joined behind.
RC_GTEST_PROP(FlattenProperty, tagsOutliveFlatteningUnlessThatWarns, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(60);
    test::HeardMessages heard(mgr.context());
    const auto before = generator.make(recipes);
    const auto after = generator.make(recipes);
    if (!joinTags(*before)) {
        RC_DISCARD("not all tags can be joined");
    }
    heard.take();
    after->getModel(StringValue::get("top", mgr.context()))->setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    PassScheduler scheduler;
    scheduler.addPass(kEverything);
    scheduler.addPass("DeadModelPass");
    scheduler.apply(*after);
    if (warnsOfTags(heard)) {
        RC_TAG("warned");
        return;
    }
    RC_TAG("silent");
    RC_ASSERT(joinTags(*after));
    sim::CompareOptions options;
    options.cycles = 20;
    const auto same = test::sameBehaviour(*before, *after, "top", options);
    if (!same) {
        RC_LOG() << same.message();
    }
    RC_ASSERT(same);
}

/// The error-correction sinks of the model and of all instances below it.
std::size_t sinksBelow(const Model &model) {
    std::size_t count = 0;
    for (const Block &block : model) {
        const Model *below = block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
        count += block.type() == A_ECC_SINK_BLOCK.get_ptr() ? 1 : below != nullptr ? sinksBelow(*below) : 0;
    }
    return count;
}

// What the properties above rest on.
TEST(FlattenProperty, meetsModelsOfSeveralInstancesAndErrorCorrectionOfEveryForm) {
    ContextMgr mgr;
    test::HeardMessages silent(mgr.context());
    gen::DesignGenerator generator(mgr.context());
    std::size_t several = 0;
    std::size_t cancelled = 0;
    std::size_t kept = 0;
    for (std::uint64_t seed = 0; seed < 1000; ++seed) {
        const auto design = generator.make(gen::recipesOf(seed, 60));
        if (!joinTags(*design)) {
            continue;
        }
        for (const Model &model : *design) {
            several += model.getParentBlocks().size() > 1 ? 1 : 0;
        }
        addErrorCorrection(*design);
        const Model &top = *design->getModel(StringValue::get("top", mgr.context()));
        const std::size_t before = sinksBelow(top);
        PassScheduler scheduler;
        scheduler.addPass(kEverything);
        scheduler.apply(*design);
        cancelled += before - sinksBelow(top);
        kept += sinksBelow(top);
    }
    EXPECT_GE(several, 100U);
    EXPECT_GE(cancelled, 1000U);
    EXPECT_GE(kept, 25U);
}

} // namespace
} // namespace orvo
