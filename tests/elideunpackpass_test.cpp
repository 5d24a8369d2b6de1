// Signals that a pack brings to other types keep these when the pack and its unpack go.
#include "orvo/elideunpackpass.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/typeinferpass.h>
#include <orvo/xmlservices.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace orvo {
namespace {

using Names = std::vector<std::string>;

class ElideUnpackTypesTest : public test::SimulatorFixture {
  protected:
    struct Pair {
        Block &pack;
        Block &unpack;
    };
    Pair complexPair(Model &in, Wire &real, Wire &imag) {
        Block &pack = block(in, "pack", "cpackBlock");
        pack.setParam(A_CPACK_PORT_REAL, real);
        pack.setParam(A_CPACK_PORT_IMAG, imag);
        Block &unpack = block(in, "unpack", "cunpackBlock");
        unpack.setParam(A_CUNPACK_PORT_IN, *Wire::create(pack, A_CPACK_WIRE_OUT));
        Wire::create(unpack, A_CUNPACK_WIRE_REAL);
        Wire::create(unpack, A_CUNPACK_WIRE_IMAG);
        return {pack, unpack};
    }
    /// What is computed shows the bits of a signal, and so its type.
    void outputBits(Model &in, const char *name, Wire &wire, const std::string &type = "u12.0") {
        Block &bits = block(in, name, "castBlock", {{"castMode", "castModeReinterp"}});
        bits.setParam(A_CAST_OUTPUT_TYPE, value(testing::typeText(type)));
        bits.setParam(value("0"), wire);
        output(in, name, *Wire::create(bits, A_PRIM_WIRE_OUT));
    }
    /// An input whose type is written as the text has it.
    Wire &writtenAs(Model &in, const std::string &name, const std::string &type) {
        Block &edge = block(in, "edge of " + name, "inputBlock");
        Block &pin = block(in, "pin of " + name, "typePinBlock");
        pin.setParam(A_TYPE_PIN_TYPE, value(type));
        pin.setParam(value("0"), *Wire::create(edge, value(name)));
        return *Wire::create(pin, value("0"));
    }
    void outputParts(Model &in, const Pair &pair, const std::string &type = "u12.0") {
        outputBits(in, "re", *pair.unpack.getWire(A_CUNPACK_WIRE_REAL), type);
        outputBits(in, "im", *pair.unpack.getWire(A_CUNPACK_WIRE_IMAG), type);
    }
    Names run(const std::vector<const char *> &passes = {"ElideUnpackPass"}) {
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        for (const char *pass : passes) {
            scheduler.addPass(pass);
        }
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        return heard.take();
    }
    void runAndCompare(const std::vector<const char *> &passes = {"ElideUnpackPass"}) {
        std::stringstream text;
        XMLServices().toXML(text, design);
        Design before(mgr.context());
        ASSERT_TRUE(XMLServices().fromXML(text, before, XMLServices::defaultErrorFunc));
        EXPECT_EQ(run(passes), Names{});
        sim::CompareOptions options;
        options.cycles = 50;
        test::expectSameBehaviour(before, design, "top", options);
    }
    Names namesOf(const Model &in, const StaticString &type) {
        Names names;
        for (const Block &one : in) {
            if (one.type() == type.get_ptr()) {
                names.push_back(one.getName()->toString());
            }
        }
        return names;
    }
    bool isThere(Model &in, const std::string &name) { return in.getBlock(value(name)) != nullptr; }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
};

TEST_F(ElideUnpackTypesTest, castsThePartThatThePackWidened) {
    outputParts(model, complexPair(model, input(model, "x", "s4.0"), input(model, "y", "s6.1")));
    runAndCompare();
    EXPECT_FALSE(isThere(model, "pack"));
    EXPECT_FALSE(isThere(model, "unpack"));
    const Block *cast = model.getBlock(value("((unpack cunpackWireReal) unpackCast)"));
    ASSERT_NE(cast, nullptr);
    EXPECT_EQ(cast->getParam(A_CAST_OUTPUT_TYPE)->toString(), "(typeSFixed 6 1)");
    EXPECT_EQ(cast->getParam(A_CAST_SATURATE_MODE), ValueRef(A_SATURATE_NONE));
    EXPECT_EQ(namesOf(model, A_CAST_BLOCK).size(), 3U);
}

TEST_F(ElideUnpackTypesTest, castsNoPartThatNobodyReads) {
    const Pair pair = complexPair(model, input(model, "x", "s4.0"), input(model, "y", "s6.1"));
    outputBits(model, "im", *pair.unpack.getWire(A_CUNPACK_WIRE_IMAG));
    runAndCompare();
    EXPECT_EQ(namesOf(model, A_CAST_BLOCK), Names{"im"});
}

TEST_F(ElideUnpackTypesTest, castsFloatsThatThePackWidened) {
    const Pair pair = complexPair(model, input(model, "x", "float(10,5)"), input(model, "y", "float(23,8)"));
    output(model, "re", *pair.unpack.getWire(A_CUNPACK_WIRE_REAL));
    runAndCompare();
    EXPECT_EQ(namesOf(model, A_CAST_BLOCK), Names{"((unpack cunpackWireReal) unpackCast)"});
}

// Without the pair nothing would drive the readers of such an element, and nobody would be told.
TEST_F(ElideUnpackTypesTest, leavesAPairOneOfWhoseElementsFeedsItself) {
    const Pair pair = complexPair(model, input(model, "x", "s4.0"), input(model, "y", "s4.0"));
    pair.pack.setParam(A_CPACK_PORT_REAL, *pair.unpack.getWire(A_CUNPACK_WIRE_REAL));
    output(model, "re", *pair.unpack.getWire(A_CUNPACK_WIRE_REAL));
    output(model, "im", *pair.unpack.getWire(A_CUNPACK_WIRE_IMAG));
    run();
    EXPECT_TRUE(isThere(model, "unpack"));
    EXPECT_TRUE(isThere(model, "pack"));
}

TEST_F(ElideUnpackTypesTest, leavesAPairOneOfWhoseElementsFeedsItselfInFrontOfAnotherReader) {
    for (const bool packStays : {true, false}) {
        Model &other = *Model::create(design, packStays ? "stays" : "goes");
        Block &pack = block(other, "pack", "cpackBlock");
        Block &unpack = block(other, "unpack", "cunpackBlock");
        unpack.setParam(A_CUNPACK_PORT_IN, *Wire::create(pack, A_CPACK_WIRE_OUT));
        pack.setParam(A_CPACK_PORT_REAL, *Wire::create(unpack, A_CUNPACK_WIRE_REAL));
        pack.setParam(A_CPACK_PORT_IMAG, input(other, "x", "s4.0"));
        output(other, "im", *Wire::create(unpack, A_CUNPACK_WIRE_IMAG));
        if (packStays) {
            output(other, "whole", *pack.begin());
        }
        run();
        EXPECT_EQ(isThere(other, "unpack"), packStays);
        EXPECT_EQ(isThere(other, "pack"), packStays);
    }
    EXPECT_NE(design.getModel(value("stays"))->getBlock(value("pack"))->getPort(A_CPACK_PORT_REAL), nullptr);
}

// What an input reads of another model is lost with that model: a mistake, but not for this pass to change.
TEST_F(ElideUnpackTypesTest, leavesTheUnpackOfAnotherModel) {
    const Pair pair = complexPair(model, input(model, "x", "s4.0"), input(model, "y", "s4.0"));
    output(model, "re", *pair.unpack.getWire(A_CUNPACK_WIRE_REAL));
    Model &other = *Model::create(design, "other");
    Block &foreign = block(other, "unpack", "cunpackBlock");
    foreign.setParam(A_CUNPACK_PORT_IN, *pair.pack.begin());
    output(other, "re", *Wire::create(foreign, A_CUNPACK_WIRE_REAL));
    run();
    EXPECT_FALSE(isThere(model, "unpack"));
    ASSERT_TRUE(isThere(other, "unpack"));
    EXPECT_EQ(foreign.getPort(A_CUNPACK_PORT_IN)->peekWire(), &*pair.pack.begin());
    EXPECT_EQ(&other.getOutputBlock()->getPort(value("re"))->peekWire()->getBlock(), &foreign);
}

// A cast would flush subnormals and lose what NaNs carry, which a format that is only written in another way keeps.
TEST_F(ElideUnpackTypesTest, pinsFormatsOfFloatsThatAreWrittenInAnotherWay) {
    Wire &old = writtenAs(model, "x", "(typeSFloat 10 5)");
    const Pair pair = complexPair(model, old, writtenAs(model, "y", "(typeSFloatIEEE 10 5)"));
    output(model, "re", *pair.unpack.getWire(A_CUNPACK_WIRE_REAL));
    runAndCompare();
    EXPECT_EQ(namesOf(model, A_CAST_BLOCK), Names{});
    EXPECT_TRUE(isThere(model, "((unpack cunpackWireReal) unpackPin)"));
}

// What a boundary says of its type stays, down to how that is written.
TEST_F(ElideUnpackTypesTest, castsToATypeAsItIsWritten) {
    Block &pack = block(model, "pack", "vpackBlock");
    pack.setParam(value("0"), writtenAs(model, "x", "(typeSFloat 23 8)"));
    pack.setParam(value("1"), writtenAs(model, "y", "(typeSFloat 10 5)"));
    Block &unpack = block(model, "unpack", "vunpackBlock");
    unpack.setParam(A_VUNPACK_PORT_IN, *Wire::create(pack, A_VPACK_WIRE_OUT));
    output(model, "a", *Wire::create(unpack, value("0")));
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("ElideUnpackPass");
    scheduler.requirePass(GlobalTypePass::sName);
    const PassResults results = scheduler.apply(design);
    EXPECT_EQ(namesOf(model, A_CAST_BLOCK), Names{"((unpack 0) unpackCast)"});
    const Port *edge = model.getOutputBlock()->getPort(value("a"));
    EXPECT_EQ(results.getPass<GlobalTypePass>()->getType(edge, {})->toString(), "(typeSFloat 10 5)");
}

TEST_F(ElideUnpackTypesTest, castsLaneByLane) {
    outputParts(model, complexPair(model, input(model, "x", "[2] s4.0"), input(model, "y", "[2] s6.1")), "[2] u12.0");
    runAndCompare();
    EXPECT_FALSE(isThere(model, "unpack"));
    EXPECT_EQ(namesOf(model, A_CAST_BLOCK), (Names{"im", "re", "((unpack cunpackWireReal) unpackCast 0)",
                                                   "((unpack cunpackWireReal) unpackCast 1)"}));
    EXPECT_EQ(namesOf(model, A_VUNPACK_BLOCK), Names{"((unpack cunpackWireReal) vup)"});
    EXPECT_EQ(namesOf(model, A_VPACK_BLOCK), Names{"((unpack cunpackWireReal) vp)"});
}

TEST_F(ElideUnpackTypesTest, spreadsAPartThatServesAllLanes) {
    outputParts(model, complexPair(model, input(model, "x", "s4.0"), input(model, "y", "[3] s4.0")), "[3] u12.0");
    runAndCompare();
    EXPECT_FALSE(isThere(model, "unpack"));
    EXPECT_EQ(namesOf(model, A_CAST_BLOCK), (Names{"im", "re"}));
    EXPECT_EQ(namesOf(model, A_VPACK_BLOCK), Names{"((unpack cunpackWireReal) vp)"});
}

TEST_F(ElideUnpackTypesTest, meetsThePacksOfACastAgain) {
    outputParts(model, complexPair(model, input(model, "x", "[2] s4.0"), input(model, "y", "[2] s6.1")), "[2] u12.0");
    runAndCompare({"UnrollVectorPass", "UnrollVectorCrossModelPass", "ElideUnpackPass", "DeadBlockPass",
                   "CheckScalarSignalsPass"});
}

// The last element tells the type of all. Such a vector is told of wherever types are asked for.
TEST_F(ElideUnpackTypesTest, castsTheElementsOfAVectorToTheTypeOfTheLast) {
    for (const auto &[first, last, casts] : {std::tuple<const char *, const char *, std::size_t>{"s4.0", "s6.1", 1},
                                             {"c s4.0", "c s6.1", 2},
                                             {"{s4.0,u1.0}", "{s6.1,u1.0}", 1},
                                             {"[2] c s4.0", "[2] c s6.1", 4}}) {
        Design other(mgr.context());
        Model &top = *Model::create(other, "top");
        Block &pack = block(top, "pack", "vpackBlock");
        pack.setParam(value("0"), input(top, "x", first));
        pack.setParam(value("1"), input(top, "y", last));
        Block &unpack = block(top, "unpack", "vunpackBlock");
        unpack.setParam(A_VUNPACK_PORT_IN, *Wire::create(pack, A_VPACK_WIRE_OUT));
        output(top, "a", *Wire::create(unpack, value("0")));
        output(top, "b", *Wire::create(unpack, value("1")));
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("ElideUnpackPass");
        scheduler.requirePass(GlobalTypePass::sName);
        const PassResults results = scheduler.apply(other);
        EXPECT_EQ(namesOf(top, A_CAST_BLOCK).size(), casts) << first;
        EXPECT_FALSE(isThere(top, "unpack")) << first;
        auto &types = *results.getPass<GlobalTypePass>();
        EXPECT_EQ(types.getType(top.getOutputBlock()->getPort(value("a")), {})->toString(), testing::typeText(last));
        EXPECT_EQ(types.getType(top.getOutputBlock()->getPort(value("b")), {})->toString(), testing::typeText(last));
    }
}

TEST_F(ElideUnpackTypesTest, leavesAPairThatMakesARealNumberOfAComplexOne) {
    Block &pack = block(model, "pack", "vpackBlock");
    pack.setParam(value("0"), input(model, "x", "c s4.0"));
    pack.setParam(value("1"), input(model, "y", "s6.1"));
    Block &unpack = block(model, "unpack", "vunpackBlock");
    unpack.setParam(A_VUNPACK_PORT_IN, *Wire::create(pack, A_VPACK_WIRE_OUT));
    output(model, "a", *Wire::create(unpack, value("0")));
    run();
    EXPECT_TRUE(isThere(model, "pack"));
    EXPECT_TRUE(isThere(model, "unpack"));
}

TEST_F(ElideUnpackTypesTest, castsWhatAnElementBecomesThatGoesThroughSeveralTimes) {
    Block &pack = block(model, "pack", "cpackBlock");
    Block &unpack = block(model, "unpack", "cunpackBlock");
    unpack.setParam(A_CUNPACK_PORT_IN, pinned(*Wire::create(pack, A_CPACK_WIRE_OUT), "c s6.1"));
    const Port &in = *unpack.getPort(A_CUNPACK_PORT_IN);
    unpack.setParam(in.getName(), *pack.begin());
    pack.setParam(A_CPACK_PORT_REAL, *Wire::create(unpack, A_CUNPACK_WIRE_IMAG));
    pack.setParam(A_CPACK_PORT_IMAG, input(model, "x", "s6.1"));
    outputBits(model, "re", *Wire::create(unpack, A_CUNPACK_WIRE_REAL));
    outputBits(model, "im", *unpack.getWire(A_CUNPACK_WIRE_IMAG));
    run();
    EXPECT_FALSE(isThere(model, "unpack"));
    const Wire &source = *model.getInputBlock()->begin();
    for (const char *name : {"re", "im"}) {
        const Block &reader = model.getBlock(value(name))->getPort(value("0"))->peekWire()->getBlock();
        EXPECT_EQ(reader.getPort(value("0"))->peekWire(), &source) << name;
    }
}

/// A pair in a model with several instances.
class ElideUnpackInSeveralTest : public ElideUnpackTypesTest {
  protected:
    void use(const std::string &name, const std::string &x, const std::string &y) {
        useWritten(name, testing::typeText(x), testing::typeText(y));
    }
    void useWritten(const std::string &name, const std::string &x, const std::string &y) {
        Block &made = block(model, name, "modelBlock");
        made.setParam(A_MODEL_NODE, below);
        made.setParam(value("x"), writtenAs(model, "x" + name, x));
        made.setParam(value("y"), writtenAs(model, "y" + name, y));
        for (const char *part : {"re", "im"}) {
            output(model, part + name, *Wire::create(made, value(part)));
        }
    }
    Model &below = *Model::create(design, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    const Pair pair = complexPair(below, *Wire::create(in, "x"), *Wire::create(in, "y"));
};

class ElideUnpackInstancesTest : public ElideUnpackInSeveralTest {
  protected:
    ElideUnpackInstancesTest() { outputParts(below, pair); }
};

class ElideUnpackFloatsTest : public ElideUnpackInSeveralTest {
  protected:
    ElideUnpackFloatsTest() {
        output(below, "re", *pair.unpack.getWire(A_CUNPACK_WIRE_REAL));
        output(below, "im", *pair.unpack.getWire(A_CUNPACK_WIRE_IMAG));
    }
};

TEST_F(ElideUnpackInstancesTest, castsToATypeThatAllInstancesShare) {
    use("a", "s4.0", "s6.1");
    use("b", "s3.0", "s6.1");
    use("c", "s6.1", "s6.1");
    runAndCompare();
    EXPECT_FALSE(isThere(below, "unpack"));
    EXPECT_TRUE(isThere(below, "((unpack cunpackWireReal) unpackCast)"));
}

TEST_F(ElideUnpackFloatsTest, castsFloatsThatEachInstanceWidens) {
    use("a", "float(10,5)", "float(23,8)");
    use("b", "float(7,5)", "float(23,8)");
    runAndCompare();
    EXPECT_FALSE(isThere(below, "unpack"));
    EXPECT_EQ(namesOf(below, A_CAST_BLOCK), Names{"((unpack cunpackWireReal) unpackCast)"});
}

// The cast would flush the subnormals of the instance that needs none.
TEST_F(ElideUnpackFloatsTest, leavesFloatsThatAnInstanceTakesThroughUnchanged) {
    use("a", "float(23,8)", "float(23,8)");
    use("b", "float(10,5)", "float(23,8)");
    runAndCompare();
    EXPECT_TRUE(isThere(below, "unpack"));
}

TEST_F(ElideUnpackFloatsTest, leavesLanesOfFloatsThatAnInstanceTakesThroughUnchanged) {
    use("a", "[2] float(23,8)", "[2] float(23,8)");
    use("b", "[2] float(10,5)", "[2] float(23,8)");
    runAndCompare();
    EXPECT_TRUE(isThere(below, "unpack"));
}

TEST_F(ElideUnpackFloatsTest, leavesFloatsThatAnInstanceOnlyWritesInAnotherWay) {
    useWritten("a", "(typeSFloat 23 8)", "(typeSFloatIEEE 23 8)");
    useWritten("b", "(typeSFloatIEEE 10 5)", "(typeSFloatIEEE 23 8)");
    runAndCompare();
    EXPECT_TRUE(isThere(below, "unpack"));
}

TEST_F(ElideUnpackFloatsTest, pinsFloatsThatAllInstancesWriteInSomeWay) {
    useWritten("a", "(typeSFloat 23 8)", "(typeSFloatIEEE 23 8)");
    useWritten("b", "(typeSFloatIEEE 23 8)", "(typeSFloatIEEE 23 8)");
    runAndCompare();
    EXPECT_FALSE(isThere(below, "unpack"));
    EXPECT_EQ(namesOf(below, A_CAST_BLOCK), Names{});
}

TEST_F(ElideUnpackInstancesTest, leavesAPairThatNoOneCastCanReplace) {
    use("a", "s4.0", "s6.1");
    use("b", "s4.0", "s8.1");
    runAndCompare();
    EXPECT_TRUE(isThere(below, "pack"));
    EXPECT_TRUE(isThere(below, "unpack"));
}

TEST_F(ElideUnpackInstancesTest, leavesAPairOfLanesInOneInstanceOnly) {
    use("a", "s4.0", "[2] s6.1");
    use("b", "[2] s4.0", "[2] s6.1");
    run();
    EXPECT_TRUE(isThere(below, "unpack"));
}

TEST_F(ElideUnpackInstancesTest, needsNoCastWherePartsAgreeInEachInstance) {
    use("a", "s4.0", "s4.0");
    use("b", "s6.1", "s6.1");
    runAndCompare();
    EXPECT_FALSE(isThere(below, "unpack"));
    EXPECT_EQ(namesOf(below, A_CAST_BLOCK), (Names{"im", "re"}));
}

TEST_F(ElideUnpackTypesTest, infersTypesOnceAndOnlyWhereThereIsAPair) {
    const auto evaluations = [&] {
        PassScheduler scheduler;
        scheduler.addPass("ElideUnpackPass");
        scheduler.requirePass(GlobalTypePass::sName);
        return scheduler.apply(design).getPass<GlobalTypePass>()->statistics().fullEvaluations;
    };
    const Pair first = complexPair(model, input(model, "x", "s4.0"), input(model, "y", "s6.1"));
    delete &first.unpack;
    output(model, "whole", *first.pack.begin());
    EXPECT_EQ(evaluations(), 0U);
    for (int i = 0; i < 3; ++i) {
        Model &other = *Model::create(design, "other" + std::to_string(i));
        outputParts(other, complexPair(other, input(other, "x", "s4.0"), input(other, "y", "s6.1")));
        Block &made = block(model, "use", "modelBlock");
        made.setParam(A_MODEL_NODE, other);
    }
    EXPECT_EQ(evaluations(), 1U);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(isThere(*design.getModel(value("other" + std::to_string(i))), "unpack"));
    }
}

} // namespace
} // namespace orvo
