// Vectors come apart inside models and at their boundaries, and the design computes the same.
#include "orvo/unrollvectorpass.h"

#include "orvo/unrollpasses.h"

#include "support/checkedrun.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/lowering.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/unrollmappings.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <sstream>

namespace orvo {
namespace {

void computesTheSame(const std::vector<const char *> &passes) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto before = generator.make(recipes);
    const auto design = generator.make(recipes);
    std::vector<std::string> heard = test::runChecked(*design, passes);
    std::erase_if(heard, test::isRefusal);
    if (!heard.empty()) {
        std::ostringstream text;
        XMLServices().toXML(text, *before);
        RC_LOG() << heard.front() << text.str();
    }
    RC_ASSERT(heard.empty());
    sim::CompareOptions options;
    options.cycles = 40;
    const auto same = test::sameBehaviour(*before, *design, "top", options);
    if (!same) {
        std::ostringstream text;
        XMLServices().toXML(text, *before);
        RC_LOG() << same.message() << text.str();
    }
    RC_ASSERT(static_cast<bool>(same));
}

RC_GTEST_PROP(UnrollVectorPassOnRandomDesigns, computesTheSame, ()) { computesTheSame({"UnrollVectorPass"}); }

RC_GTEST_PROP(UnrollVectorCrossModelPassOnRandomDesigns, computesTheSame, ()) {
    computesTheSame({"UnrollVectorCrossModelPass"});
}

RC_GTEST_PROP(UnrollVectorPassesOnRandomDesigns, computeTheSame, ()) {
    computesTheSame({"UnrollVectorPass", "UnrollVectorCrossModelPass", "ElideUnpackPass", "DeadBlockPass"});
}

class UnrollVectorPassTest : public test::SimulatorFixture {
  protected:
    std::vector<std::string> run(const char *pass) {
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler(&state);
        scheduler.addPass(pass);
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        return heard.take();
    }
    /// A level that adds its inputs x and y, and a top that uses it.
    void makeTwoLevels(const std::string &x, const std::string &y) {
        Block &sum = block(below, "sum", "addBlock");
        sum.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
        sum.setParam(value("1"), *Wire::create(*below.getInputBlock(), value("y")));
        output(below, "z", *Wire::create(sum, A_PRIM_WIRE_OUT));
        Block &use = block(model, "use", "modelBlock");
        use.setParam(A_MODEL_NODE, below);
        use.setParam(value("x"), input(model, "x", x));
        use.setParam(value("y"), input(model, "y", y));
        output(model, "z", *Wire::create(use, value("z")));
    }

    using Names = std::vector<std::string>;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    PassSchedulerState state;
};

TEST_F(UnrollVectorPassTest, leavesTheBoundariesOfModelsAlone) {
    makeTwoLevels("[2] s4.0", "s4.0");
    EXPECT_EQ(run("UnrollVectorPass"), Names{});
    EXPECT_EQ(portsOf(*model.getBlock(value("use"))), (Names{"x", "y"}));
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"x", "y"}));
    EXPECT_EQ(below.getBlock(value("sum")), nullptr);
    EXPECT_NE(below.getBlock(value("(sum 1)")), nullptr);
}

TEST_F(UnrollVectorPassTest, attachesAScalarToAllLanesWithoutAnUnpack) {
    makeTwoLevels("[3] s4.0", "s4.0");
    run("UnrollVectorPass");
    EXPECT_EQ(below.getInputBlock()->getWire(value("y"))->port_size(), 3U);
    for (const char *lane : {"(sum 0)", "(sum 1)", "(sum 2)"}) {
        const Port *port = below.getBlock(value(lane))->getPort(value("1"));
        EXPECT_EQ(&port->peekWire()->getBlock(), below.getInputBlock()) << lane;
    }
}

TEST_F(UnrollVectorPassTest, feedsEachLaneAVectorOfFewerDimensionsAgain) {
    makeTwoLevels("[2][3] s4.0", "[3] s4.0");
    EXPECT_EQ(run("UnrollVectorPass"), Names{});
    // The lane (1, 0) and the lane (1, 1) read the same element.
    const Block &first = *below.getBlock(value("(sum 1 0)"));
    const Block &second = *below.getBlock(value("(sum 1 1)"));
    EXPECT_EQ(first.getPort(value("1"))->peekWire(), second.getPort(value("1"))->peekWire());
    EXPECT_NE(first.getPort(value("0"))->peekWire(), second.getPort(value("0"))->peekWire());
}

TEST_F(UnrollVectorPassTest, takesBoundariesApartAndKeepsTheMappings) {
    makeTwoLevels("[2] s4.0", "s4.0");
    EXPECT_EQ(run("UnrollVectorPass"), Names{});
    EXPECT_EQ(run("UnrollVectorCrossModelPass"), Names{});
    EXPECT_EQ(portsOf(*model.getBlock(value("use"))), (Names{"y", "(x 0)", "(x 1)"}));
    EXPECT_EQ(wiresOf(*model.getBlock(value("use"))), (Names{"(z 0)", "(z 1)"}));
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"y", "(x 0)", "(x 1)"}));
    EXPECT_EQ(portsOf(*below.getOutputBlock()), (Names{"(z 0)", "(z 1)"}));
    const auto *item =
        dynamic_cast<BoundaryUnrollMappingStateItem *>(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY));
    ASSERT_NE(item, nullptr);
    for (const Model *level : {&model, &below}) {
        const UnrollMappings &inputs = item->getInputUnrollMapping(*level);
        EXPECT_EQ(inputs.getUnrolledPortName(value("x"), CompoundDecorIndex::createVectorIndex(1)), value("(x 1)"));
        EXPECT_TRUE(inputs.getUnrolledPortNameList(value("y")).empty());
        EXPECT_EQ(item->getOutputUnrollMapping(*level).getUnrolledPortNameList(value("z")).size(), 2U);
    }
}

TEST_F(UnrollVectorPassTest, givesThePortsOfTheMappingsTheTypesOfTheirElements) {
    makeTwoLevels("[2][3] s4.0", "s4.0");
    run("UnrollVectorCrossModelPass");
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(design);
    const auto *item =
        dynamic_cast<BoundaryUnrollMappingStateItem *>(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY));
    const std::vector<PureValueRef> names = item->getInputUnrollMapping(model).getUnrolledPortNameList(value("x"));
    ASSERT_EQ(names.size(), 6U);
    for (const PureValueRef &name : names) {
        const PureValueRef type = results.getPass<GlobalTypePass>()->getType(model.getInputBlock()->getWire(name), {});
        EXPECT_EQ(type, value(testing::typeText("s4.0"))) << name->toString();
    }
    const CompoundDecorIndex path = CompoundDecorIndex::createVectorIndex(1)
                                    << CompoundDecorIndex::createVectorIndex(2);
    EXPECT_EQ(item->getInputUnrollMapping(model).getUnrolledPortName(value("x"), path), value("(x 5)"));
}

TEST_F(UnrollVectorPassTest, putsTheLaneBeforeTheLastPartOfAName) {
    output(model, "y", input(model, "(a b)", "[2] s4.0"));
    run("UnrollVectorCrossModelPass");
    EXPECT_EQ(wiresOf(*model.getInputBlock()), (Names{"(a 0 b)", "(a 1 b)"}));
}

TEST_F(UnrollVectorPassTest, leavesABoundaryWholeWhoseNamesWouldClash) {
    output(model, "y", input(model, "x", "[2] s4.0"));
    output(model, "w", input(model, "(x 0)", "s4.0"));
    EXPECT_EQ(run("UnrollVectorCrossModelPass"),
              Names{"UNVEC_INVALID_EXPAND_TYPE block=/top/in detail=the name of a lane is in use"});
    EXPECT_NE(model.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollVectorPassTest, leavesAnInputOfUnknownTypeAloneThatNobodyReads) {
    makeTwoLevels("[2] s4.0", "s4.0");
    Wire::create(*model.getInputBlock(), value("unused"));
    EXPECT_EQ(run("UnrollVectorCrossModelPass"), Names{});
    EXPECT_NE(model.getInputBlock()->getWire(value("unused")), nullptr);
    EXPECT_EQ(model.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollVectorPassTest, judgesAnInputThatNobodyReadsByTheInstancesThatConnectIt) {
    makeTwoLevels("[2] s4.0", "s4.0");
    Wire::create(*below.getInputBlock(), value("unread"));
    Block &again = block(model, "again", "modelBlock");
    again.setParam(A_MODEL_NODE, below);
    for (const char *name : {"x", "y"}) {
        again.setParam(value(name), *model.getInputBlock()->getWire(value(name)));
    }
    again.setParam(value("unread"), input(model, "u", "[2] s4.0"));
    EXPECT_EQ(run("UnrollVectorPass"), Names{});
    EXPECT_EQ(run("UnrollVectorCrossModelPass"), Names{});
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"y", "(unread 0)", "(unread 1)", "(x 0)", "(x 1)"}));
    EXPECT_EQ(portsOf(again), wiresOf(*below.getInputBlock()));
    EXPECT_EQ(portsOf(*model.getBlock(value("use"))), (Names{"y", "(x 0)", "(x 1)"}));
}

TEST_F(UnrollVectorPassTest, tellsOfUnknownTypes) {
    Block &sum = block(below, "sum", "addBlock");
    sum.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
    Wire::create(sum, A_PRIM_WIRE_OUT);
    EXPECT_EQ(run("UnrollVectorPass"), (Names{"UNVEC_INVALID_WIRE_TYPE wire=/below/sum/primWireOut",
                                              "UNVEC_INVALID_PORT_TYPE block=/below/sum port=0"}));
    EXPECT_NE(below.getBlock(value("sum")), nullptr);
}

TEST_F(UnrollVectorPassTest, leavesVectorsWholeOfTooManyDimensions) {
    for (const bool tooMany : {false, true}) {
        Design deep(mgr.context());
        Model &top = *Model::create(deep, "top");
        Wire *wire = &input(top, "x", "s4.0");
        for (std::size_t level = 0; level < limits::kTupleDepth + (tooMany ? 1U : 0U); ++level) {
            Block &next = *Block::create(top, "p" + std::to_string(level), A_VPACK_BLOCK);
            next.setParam(value("0"), *wire);
            wire = Wire::create(next, A_VPACK_WIRE_OUT);
        }
        Block &held = block(top, "held", "registerBlock");
        held.setParam(value("0"), *wire);
        output(top, "y", *Wire::create(held, A_PRIM_WIRE_OUT));
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.apply(deep);
        EXPECT_TRUE(test::checkInvariants(deep));
        EXPECT_EQ(heard.take(), (tooMany ? Names{"UNVEC_INVALID_WIRE_TYPE wire=/top/held/primWireOut",
                                                 "UNVEC_INVALID_PORT_TYPE block=/top/held port=0"}
                                         : Names{}));
        EXPECT_EQ(top.getBlock(value("held")) != nullptr, tooMany);
    }
}

TEST_F(UnrollVectorPassTest, tellsOfDimensionsThatDoNotMeet) {
    Block &fan = block(model, "fan", "selectBlock");
    fan.setParam(value("(a 0)"), input(model, "x", "[2] s4.0"));
    fan.setParam(value("(b 0)"), input(model, "y", "[3] s4.0"));
    EXPECT_EQ(run("UnrollVectorPass"),
              Names{"UNVEC_INVALID_EXPAND_TYPE block=/top/fan detail=its vectors have different lengths"});
    EXPECT_NE(model.getBlock(value("fan")), nullptr);
}

TEST_F(UnrollVectorPassTest, handsMetadataToEveryLane) {
    Block &sum = block(model, "sum", "notBlock");
    sum.setParam(value("0"), input(model, "x", "[2] u4.0"));
    sum.setParam(A_METADATA, value("((comment hello))"));
    output(model, "y", *Wire::create(sum, A_PRIM_WIRE_OUT));
    run("UnrollVectorPass");
    for (const char *lane : {"(sum 0)", "(sum 1)"}) {
        EXPECT_EQ(PureValueRef(model.getBlock(value(lane))->getParam(A_METADATA)), value("((comment hello))")) << lane;
    }
}

TEST_F(UnrollVectorPassTest, movesConstraintsAlongWithTheirPoints) {
    makeTwoLevels("[2] s4.0", "s4.0");
    const PureValueRef atWire = value("((primWireOut true (1) ()))");
    const PureValueRef atPort = value("((0 true () (1)))");
    below.getBlock(value("sum"))->setParam(A_SCHEDULE_CONSTRAINT_WIRES, atWire);
    below.getBlock(value("sum"))->setParam(A_SCHEDULE_CONSTRAINT_PORTS, atPort);
    below.getInputBlock()->setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((x true (2) ()))"));
    run("UnrollVectorPass");
    for (const char *lane : {"(sum 0)", "(sum 1)"}) {
        const Block &block = *below.getBlock(value(lane));
        EXPECT_EQ(PureValueRef(block.getParam(A_SCHEDULE_CONSTRAINT_WIRES)), atWire) << lane;
        EXPECT_EQ(PureValueRef(block.getParam(A_SCHEDULE_CONSTRAINT_PORTS)), atPort) << lane;
    }
    run("UnrollVectorCrossModelPass");
    EXPECT_EQ(PureValueRef(below.getInputBlock()->getParam(A_SCHEDULE_CONSTRAINT_WIRES)),
              value("(((x 0) true (2) ()) ((x 1) true (2) ()))"));
}

TEST_F(UnrollVectorPassTest, movesTheConstraintsOfAllInstances) {
    makeTwoLevels("[2] s4.0", "s4.0");
    Block &again = block(model, "again", "modelBlock");
    again.setParam(A_MODEL_NODE, below);
    again.setParam(value("x"), *model.getBlock(value("use"))->getPort(value("x"))->getWire());
    again.setParam(value("y"), *model.getBlock(value("use"))->getPort(value("y"))->getWire());
    const PureValueRef atSum = value("((primWireOut ((top use)) (1) ()) (primWireOut ((top again)) (2) ())"
                                     " (primWireOut true (3) ()))");
    below.getBlock(value("sum"))->setParam(A_SCHEDULE_CONSTRAINT_WIRES, atSum);
    below.getInputBlock()->setParam(
        A_SCHEDULE_CONSTRAINT_WIRES,
        value("((x ((top again)) (4) ()) (x ((top use)) (5) ()) (x ((top other)) (6) ()))"));
    run("UnrollVectorPass");
    for (const char *lane : {"(sum 0)", "(sum 1)"}) {
        const Block &block = *below.getBlock(value(lane));
        EXPECT_EQ(PureValueRef(block.getParam(A_SCHEDULE_CONSTRAINT_WIRES)), atSum) << lane;
    }
    run("UnrollVectorCrossModelPass");
    EXPECT_EQ(PureValueRef(below.getInputBlock()->getParam(A_SCHEDULE_CONSTRAINT_WIRES)),
              value("(((x 0) ((top again)) (4) ()) ((x 1) ((top again)) (4) ()) ((x 0) ((top use)) (5) ())"
                    " ((x 1) ((top use)) (5) ()) (x ((top other)) (6) ()))"));
}

TEST_F(UnrollVectorPassTest, takesAModelApartThatIsUsedTwice) {
    makeTwoLevels("[2] s4.0", "s4.0");
    Block &again = block(model, "again", "modelBlock");
    again.setParam(A_MODEL_NODE, below);
    again.setParam(value("x"), *model.getInputBlock()->getWire(value("x")));
    again.setParam(value("y"), *model.getInputBlock()->getWire(value("y")));
    output(model, "w", *Wire::create(again, value("z")));
    EXPECT_EQ(run("UnrollVectorPass"), Names{});
    EXPECT_EQ(run("UnrollVectorCrossModelPass"), Names{});
    for (const char *use : {"use", "again"}) {
        EXPECT_EQ(wiresOf(*model.getBlock(value(use))), (Names{"(z 0)", "(z 1)"}));
    }
}

TEST_F(UnrollVectorPassTest, leavesAModelWholeWhoseInstancesHaveVectorsOfTheirOwn) {
    makeTwoLevels("[2] s4.0", "s4.0");
    Block &again = block(model, "again", "modelBlock");
    again.setParam(A_MODEL_NODE, below);
    again.setParam(value("x"), input(model, "longer", "[3] s4.0"));
    again.setParam(value("y"), *model.getInputBlock()->getWire(value("y")));
    output(model, "w", *Wire::create(again, value("z")));
    EXPECT_EQ(run("UnrollVectorPass"), (Names{"UNVEC_INVALID_WIRE_TYPE wire=/below/sum/primWireOut",
                                              "UNVEC_INVALID_PORT_TYPE block=/below/sum port=0"}));
    run("UnrollVectorCrossModelPass");
    for (const char *use : {"use", "again"}) {
        EXPECT_EQ(portsOf(*model.getBlock(value(use))), (Names{"x", "y"}));
    }
}

/// How many chains stand for the instances of a model, which must have been unrolled alike.
class DistinctInstancesTest : public UnrollVectorPassTest {
  protected:
    std::size_t instancesOf(Model &of) {
        PassScheduler scheduler;
        scheduler.requirePass("ModelTreePass");
        scheduler.requirePass("GlobalTypePass");
        const PassResults results = scheduler.apply(design);
        return internal::DistinctInstances(*results.getPass<ModelTreePass>(), *results.getPass<GlobalTypePass>())
            .of(of)
            .size();
    }
    /// A use of a model with an input and an output.
    Wire &use(Model &in, const std::string &name, Model &of, Wire &x) {
        Block &made = block(in, name, "modelBlock");
        made.setParam(A_MODEL_NODE, of);
        made.setParam(value("x"), x);
        return *Wire::create(made, value("z"));
    }
    /// A level that negates its input.
    Model &leaf() {
        Block &negation = block(below, "not", "notBlock");
        negation.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
        output(below, "z", *Wire::create(negation, A_PRIM_WIRE_OUT));
        return below;
    }
    /// A level that has another one do its work.
    Model &around(const std::string &name, Model &inner) {
        Model &made = *Model::create(design, name);
        output(made, "z",
               use(made, "use", inner, *Wire::create(*Block::create(made, "in", A_INPUT_BLOCK), value("x"))));
        return made;
    }
};

TEST_F(DistinctInstancesTest, areFewWhereManyAreAlike) {
    Model *now = &leaf();
    for (int level = 0; level < 12; ++level) {
        Model &next = *Model::create(design, "level" + std::to_string(level));
        Wire &x = *Wire::create(*Block::create(next, "in", A_INPUT_BLOCK), value("x"));
        output(next, "z", use(next, "second", *now, use(next, "first", *now, x)));
        now = &next;
    }
    output(model, "z", use(model, "use", *now, input(model, "x", "[2] u4.0")));
    EXPECT_EQ(instancesOf(below), 1U);
    EXPECT_EQ(run("UnrollVectorPass"), Names{});
    EXPECT_NE(below.getBlock(value("(not 1)")), nullptr);
}

TEST_F(DistinctInstancesTest, differByWhatComesInSeveralLevelsAbove) {
    Model &outer = around("outer", around("middle", leaf()));
    output(model, "z0", use(model, "use0", outer, input(model, "x", "[2] u4.0")));
    output(model, "z1", use(model, "use1", outer, input(model, "y", "[3] u4.0")));
    output(model, "z2", use(model, "use2", outer, input(model, "w", "[2] u4.0")));
    EXPECT_EQ(instancesOf(below), 2U);
    EXPECT_EQ(run("UnrollVectorPass"), (Names{"UNVEC_INVALID_WIRE_TYPE wire=/below/not/primWireOut",
                                              "UNVEC_INVALID_PORT_TYPE block=/below/not port=0"}));
    EXPECT_NE(below.getBlock(value("not")), nullptr);
}

TEST_F(DistinctInstancesTest, areAllWhereAModelInstantiatesItself) {
    Model &outer = around("outer", leaf());
    Block &again = block(outer, "again", "modelBlock");
    again.setParam(A_MODEL_NODE, outer);
    output(model, "z0", use(model, "use0", outer, input(model, "x", "[2] u4.0")));
    output(model, "z1", use(model, "use1", outer, input(model, "y", "[2] u4.0")));
    EXPECT_EQ(instancesOf(below), 2U);
}

TEST_F(DistinctInstancesTest, haveOneChainWithoutAnyReference) {
    leaf();
    EXPECT_EQ(instancesOf(below), 1U);
    EXPECT_EQ(instancesOf(model), 1U);
}

} // namespace
} // namespace orvo
