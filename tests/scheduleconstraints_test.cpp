// Gathering, checking and copying of latency constraints.
#include "support/constraintrig.h"
#include "support/invariants.h"
#include "support/randomdesigns.h"
#include "support/randomedits.h"

#include <orvo/modelkinds.h>
#include <orvo/orvoutils.h>

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <sstream>

namespace orvo {
namespace {

using test::ConstraintRig;
using Lines = std::vector<std::string>;

class Check : public ConstraintRig {
  protected:
    Check() { LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end(); }
    Lines check() {
        const bool good = OrvoUtils::requireConstraintsConsistentWithDesign(design);
        Lines lines = heard.take();
        EXPECT_EQ(good, lines.empty());
        return lines;
    }
    Lines checkWithRecords(const char *text) {
        top.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value(text));
        return check();
    }
    Lines checkWithWires(const char *text) {
        in.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value(text));
        return check();
    }
};

TEST_F(Check, isSilentAboutWhatTheCreatorWrote) {
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(innerOut), {&call2}).scheduleLink(0).end();
    EXPECT_EQ(check(), Lines{});
}

TEST_F(Check, tellsOfAnEntryOfAnotherForm) {
    for (const char *entry : {"(w true (0))", "w", "(w true (0) () ())"}) {
        EXPECT_EQ(checkWithWires(("((w true (0) ()) " + std::string(entry) + ")").c_str()),
                  (Lines{"CONSTRAINT_POINT_ENTRY_INCORRECT block=/top/in netpoint=" + std::string(entry)}));
    }
    out.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("7"));
    EXPECT_EQ(checkWithWires("((w true (0) ()))"),
              (Lines{"CONSTRAINT_POINT_ENTRY_INCORRECT block=/top/out netpoint=7"}));
}

TEST_F(Check, tellsOfABlockThatMayHaveNone) {
    Block &sum = marker(top, "sum", A_ADD_BLOCK);
    sum.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((w true () (0)))"));
    EXPECT_EQ(check(), (Lines{"NETPOINT_DISALLOWED_ON_BLOCK block=/top/sum blocktype=addBlock "
                              "netpoint=(w true () (0))"}));
}

TEST_F(Check, tellsOfAMissingPortOrWire) {
    out.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((q true () (0)))"));
    EXPECT_EQ(checkWithWires("((v true (0) ()))"),
              (Lines{"CONSTRAINT_WIRE_NOT_FOUND block=/top/in netpoint=(v true (0) ()) port=v",
                     "CONSTRAINT_PORT_NOT_FOUND block=/top/out netpoint=(q true () (0)) port=q"}));
}

TEST_F(Check, tellsOfTheSideThatMayHaveNone) {
    in.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((p true (0) ()))"));
    out.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((w true (0) ()))"));
    EXPECT_EQ(check(), (Lines{"NETPOINT_DISALLOWED_ON_PORTS block=/top/in blocktype=signalInBlock "
                              "netpoint=(p true (0) ()) port=p",
                              "NETPOINT_DISALLOWED_ON_WIRES block=/top/out blocktype=signalOutBlock "
                              "netpoint=(w true (0) ()) port=w"}));
}

TEST_F(Check, tellsOfAChainThatTheDesignDoesNotHave) {
    const char *const chains[] = {"()",
                                  "false",
                                  "(call1)",
                                  "((top call1 more))",
                                  "((nowhere call1))",
                                  "((top nothing))",
                                  "((top in))",
                                  "((below innerIn))",
                                  "((top call1) (top call1))"};
    for (const char *chain : chains) {
        const std::string entry = "(w " + std::string(chain) + " (0) ())";
        innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("(" + entry + ")"));
        EXPECT_EQ(check(), (Lines{"REFCHAIN_INCONSISTENT block=/below/innerIn netpoint=" + entry}));
    }
    innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((w ((top call2)) (0) ()))"));
    EXPECT_EQ(check(), Lines{});
}

TEST_F(Check, tellsOfAChainThatDoesNotBeginAtARoot) {
    innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((w ((top call1)) (0) ()))"));
    const Lines disallowed = {"NETPOINT_IN_DISALLOWED_MODEL block=/below/innerIn netpoint=(w ((top call1)) (0) ())"};
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
    EXPECT_EQ(check(), disallowed) << "the model is not scheduled";
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    EXPECT_EQ(check(), Lines{});
    Block &outer = *Block::create(*Model::create(design, "outermost"), "call", A_MODEL_BLOCK);
    outer.setParam(A_MODEL_NODE, top);
    EXPECT_EQ(check(), Lines{}) << "a schedule of its own";
    outer.setParam(A_INLINE_SCHEDULE, A_TRUE);
    EXPECT_EQ(check(), disallowed) << "the model is scheduled with the one around it";
}

TEST_F(Check, tellsOfAnEntryWithoutIds) {
    EXPECT_EQ(checkWithWires("((w true (0) ()) (w true () ()))"),
              (Lines{"BACKREF_CONSTRAINTS_MISSING block=/top/in netpoint=(w true () ())"}));
}

TEST_F(Check, readsNullAsNoIds) {
    // A tuple that holds a node may hold null.
    const ValueRef node = top.value();
    const ValueRef entry = TupleValue::get(node, A_TRUE, ValueRef(), ValueRef(), mgr.context());
    ASSERT_TRUE(static_cast<bool>(entry));
    out.setParam(A_SCHEDULE_CONSTRAINT_WIRES, TupleValue::get(entry, mgr.context()));
    const Lines lines = check();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(0, 25), "CONSTRAINT_WIRE_NOT_FOUND");
    EXPECT_EQ(lines[1].substr(0, 27), "BACKREF_CONSTRAINTS_MISSING");
}

TEST_F(Check, tellsOfAnIdThatIsNoInteger) {
    EXPECT_EQ(checkWithWires("((w true (0 1.5 x) ()))"),
              (Lines{"INVALID_CONSTRAINT_ID block=/top/in constraint=0x1.5p+0 netpoint=(w true (0 0x1.5p+0 x) ())",
                     "INVALID_CONSTRAINT_ID block=/top/in constraint=x netpoint=(w true (0 0x1.5p+0 x) ())"}));
    EXPECT_EQ(checkWithWires("((w true (0) z))"),
              (Lines{"INVALID_CONSTRAINT_ID block=/top/in constraint=z netpoint=(w true (0) z)"}));
    // A number is no tuple of one.
    EXPECT_EQ(checkWithWires("((w true 0 ()))"),
              (Lines{"INVALID_CONSTRAINT_ID block=/top/in constraint=0 netpoint=(w true 0 ())",
                     "CONSTRAINT_NETPOINTS_INCOMPATIBLE constraint=0 flagBits=2 relation=synthLConstraintEq"}));
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq 2) (x synthLConstraintEq 2))").front(),
              "INVALID_CONSTRAINT_ID constraint=(x synthLConstraintEq 2)");
}

TEST_F(Check, tellsOfARecordThatIsTooShort) {
    for (const char *record : {"(0 synthLConstraintEq)", "()", "0", "(x)"}) {
        const Lines lines = checkWithRecords(("((0 synthLConstraintEq 2) " + std::string(record) + ")").c_str());
        EXPECT_EQ(lines, (Lines{"CONSTRAINT_TUPLE_TOO_SHORT constraint=" + std::string(record)}));
    }
    below.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("7"));
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq 2))"), (Lines{"CONSTRAINT_TUPLE_TOO_SHORT constraint=7"}));
}

TEST_F(Check, tellsOfAnotherRelation) {
    EXPECT_EQ(checkWithRecords("((0 soonAfter 2))"), (Lines{"CONSTRAINT_RELATION_INVALID constraint=0 "
                                                            "relation=soonAfter"}));
}

TEST_F(Check, tellsOfOneIdForTwoRecords) {
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq 2) (0 synthLConstraintEq 3))"),
              (Lines{"CONSTRAINT_ID_REPEATED constraint=0"}));
    below.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("((0 synthLConstraintEq 4))"));
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq 2))"), (Lines{"CONSTRAINT_ID_REPEATED constraint=0"}))
        << "in another model";
}

TEST_F(Check, tellsOfARelationOnTheEndsOfALink) {
    EXPECT_EQ(checkWithRecords("((0 synthScheduleLink 2) (0 synthLConstraintEq 3))"),
              (Lines{"CONSTRAINT_ID_REPEATED constraint=0",
                     "SCHEDULE_LINK_EXPECTED constraint=0 relation=synthLConstraintEq"}));
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq 2) (0 synthScheduleLink 3))"),
              (Lines{"CONSTRAINT_ID_REPEATED constraint=0",
                     "CONSTRAINT_RELATION_INVALID constraint=0 relation=synthScheduleLink"}));
}

TEST_F(Check, tellsOfAMissingEnd) {
    out.setParam(A_SCHEDULE_CONSTRAINT_PORTS, nullptr);
    EXPECT_EQ(check(), (Lines{"CONSTRAINT_NETPOINTS_INCOMPATIBLE constraint=0 flagBits=1 "
                              "relation=synthLConstraintEq"}));
    EXPECT_EQ(checkWithRecords("((0 synthScheduleLink 2))"),
              (Lines{"CONSTRAINT_NETPOINTS_INCOMPATIBLE constraint=0 flagBits=4 relation=synthScheduleLink"}));
    in.setParam(A_SCHEDULE_CONSTRAINT_WIRES, nullptr);
    EXPECT_EQ(check(), (Lines{"CONSTRAINT_NETPOINTS_INCOMPATIBLE constraint=0 flagBits=0 "
                              "relation=synthScheduleLink"}));
}

TEST_F(Check, tellsOfALatencyThatIsNoWholeNumber) {
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq soon))"), (Lines{"CONSTRAINT_LATENCY_NAN constraint=0"}));
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq nan))"), (Lines{"CONSTRAINT_LATENCY_NAN constraint=0"}));
    EXPECT_EQ(checkWithRecords("((0 synthLConstraintEq 1.5))"), (Lines{"CONSTRAINT_LATENCY_NOT_INTEGER constraint=0"}));
}

TEST_F(Check, tellsOnceOfAnIdWithoutARecord) {
    out.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((p true (5) (0)))"));
    EXPECT_EQ(checkWithWires("((w true (0 5) (3)))"),
              (Lines{"CONSTRAINT_BACKREF_DANGLING block=/top/in constraint=5",
                     "CONSTRAINT_BACKREF_DANGLING block=/top/in constraint=3"}));
}

class Gather : public ConstraintRig {
  protected:
    Gather() {
        LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
        LatencyConstraintCreator(design).from(wire(innerIn)).to(port(innerOut)).equal(3).end();
        delete &call2;
    }
    const Model *rootOf(const Model &model) { return Node::from<Model>(model[A_SYNTH_ROOT_SCHEDULE_MODEL]); }
    /// A constrained model, inlined in one that is itself inlined.
    Model &inlineDeepest() {
        Model &deepest = *Model::create(design, "deepest");
        LatencyConstraintCreator(design)
            .from(wire(marker(deepest, "a", A_CHANNEL_IN_BLOCK)))
            .to(port(marker(deepest, "b", A_CHANNEL_OUT_BLOCK)))
            .equal(4)
            .end();
        Block &call = *Block::create(below, "call", A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, deepest);
        call.setParam(A_INLINE_SCHEDULE, A_TRUE);
        call1.setParam(A_INLINE_SCHEDULE, A_TRUE);
        return deepest;
    }
};

TEST_F(Gather, takesConstraintsOfAllLevelsUpToTheRoot) {
    const Model &deepest = inlineDeepest();
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2) (1 synthLConstraintEq 3) (2 synthLConstraintEq 4))");
    EXPECT_EQ(text(top, A_SCHEDULE_CONSTRAINT_COUNT), "3");
    EXPECT_EQ(records(below) + records(deepest), "");
    EXPECT_EQ(rootOf(below), &top);
    EXPECT_EQ(rootOf(deepest), &top);
    EXPECT_EQ(rootOf(top), nullptr);
    EXPECT_EQ(OrvoUtils::getModelDefiningContraints(deepest), &top);
    EXPECT_EQ(OrvoUtils::getModelDefiningContraints(top), &top);
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2) (1 synthLConstraintEq 3) (2 synthLConstraintEq 4))") << "again";
    EXPECT_EQ(heard.take(), Lines{});
}

TEST_F(Gather, countsBeyondEveryIdWhereNobodyCounted) {
    call1.setParam(A_INLINE_SCHEDULE, A_TRUE);
    top.setParam(A_SCHEDULE_CONSTRAINT_COUNT, nullptr);
    below.setParam(A_SCHEDULE_CONSTRAINT_COUNT, nullptr);
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(text(top, A_SCHEDULE_CONSTRAINT_COUNT), "2");
}

TEST_F(Gather, takesTheInliningFromTheModelBlock) {
    // A generated model that several operators share may say of itself that it is to be inlined.
    below.setParam(A_INLINE_SCHEDULE, A_TRUE);
    Block::create(top, "again", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, below);
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(heard.take(), Lines{});
    EXPECT_EQ(rootOf(below), nullptr);
}

TEST_F(Gather, leavesWhatIsBelowAnInlinedModelThatIsUsedTwice) {
    const Model &deepest = inlineDeepest();
    Block::create(top, "again", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, below);
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(heard.take(), (Lines{"NON_TREE_INLINED_SCHEDULE inline=1 model=/below refer=2"}));
    EXPECT_EQ(rootOf(deepest), nullptr);
    EXPECT_EQ(records(deepest), "((2 synthLConstraintEq 4))");
}

TEST_F(Gather, leavesASubmodelWithAScheduleOfItsOwn) {
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(records(below), "((1 synthLConstraintEq 3))");
    EXPECT_EQ(rootOf(below), nullptr);
}

TEST_F(Gather, tellsOfAnInlinedModelThatIsUsedTwice) {
    call1.setParam(A_INLINE_SCHEDULE, A_TRUE);
    Block::create(top, "again", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, below);
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(heard.take(), (Lines{"NON_TREE_INLINED_SCHEDULE inline=1 model=/below refer=2"}));
    EXPECT_EQ(records(below), "((1 synthLConstraintEq 3))") << "left where it is";
}

TEST_F(Gather, endsWhereModelsInlineEachOther) {
    call1.setParam(A_INLINE_SCHEDULE, A_TRUE);
    Block &back = *Block::create(below, "back", A_MODEL_BLOCK);
    back.setParam(A_MODEL_NODE, top);
    back.setParam(A_INLINE_SCHEDULE, A_TRUE);
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(rootOf(below), nullptr) << "there is no root";
}

using GatherDeath = Gather;

/// In a process of its own, since strictness lasts.
TEST_F(GatherDeath, checksWhenStrictnessIsAskedFor) {
    in.setParam(A_SCHEDULE_CONSTRAINT_WIRES, nullptr);
    OrvoUtils::gatherUpScheduleConstraints(design);
    EXPECT_EQ(heard.take(), Lines{}) << "not asked for";
    EXPECT_EXIT(
        {
            OrvoUtils::requireStrictScheduleConstraints();
            OrvoUtils::gatherUpScheduleConstraints(design);
            std::exit(heard.take() == Lines{"CONSTRAINT_NETPOINTS_INCOMPATIBLE constraint=0 flagBits=2 "
                                            "relation=synthLConstraintEq"}
                          ? 42
                          : 1);
        },
        ::testing::ExitedWithCode(42), "");
}

class Matches : public ConstraintRig {};

TEST_F(Matches, comparesChainsByTheNamesAtEveryLevel) {
    const RefChain chain = {&call1};
    EXPECT_TRUE(OrvoUtils::matchesRefChain(tupleFromRefChain(chain, mgr.context()), chain));
    EXPECT_TRUE(OrvoUtils::matchesRefChain(value("((top call1))"), chain));
    EXPECT_FALSE(OrvoUtils::matchesRefChain(A_TRUE, chain)) << "that is every instance, and no chain";
    EXPECT_FALSE(OrvoUtils::matchesRefChain(A_TRUE, {}));
    for (const char *other : {"((top call2))", "((below call1))", "((top call1) (below x))", "()", "call1",
                              "(top call1)", "((top call1 x))"}) {
        EXPECT_FALSE(OrvoUtils::matchesRefChain(value(other), chain)) << other;
    }
    EXPECT_FALSE(OrvoUtils::matchesRefChain(value("()"), {})) << "a chain has at least one element";
    EXPECT_FALSE(OrvoUtils::matchesRefChain({}, chain));
}

TEST_F(Matches, takesAModelOrAChain) {
    const RefChain chain = {&call1};
    EXPECT_TRUE(OrvoUtils::matchesModelOrRefChain(value("(modelTag below)"), below, chain));
    EXPECT_FALSE(OrvoUtils::matchesModelOrRefChain(value("(modelTag top)"), below, chain));
    EXPECT_TRUE(OrvoUtils::matchesModelOrRefChain(value("(refchainTag ((top call1)))"), below, chain));
    EXPECT_FALSE(OrvoUtils::matchesModelOrRefChain(value("(refchainTag ((top call2)))"), below, chain));
    for (const char *other : {"below", "(portTag below)", "(modelTag below below)"}) {
        EXPECT_FALSE(OrvoUtils::matchesModelOrRefChain(value(other), below, chain)) << other;
    }
}

class Clones : public ConstraintRig {
  protected:
    Lines check(const Design &of) {
        OrvoUtils::requireConstraintsConsistentWithDesign(of);
        return heard.take();
    }
    Block &blockOf(const Model &model, const char *name) { return *model.getBlock(value(name)); }
};

TEST_F(Clones, getFreshIds) {
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).modifier(A_TRUE).end();
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).lessThan(7).end();
    std::map<int, int> ids;
    OrvoUtils::NodeMap nodes;
    Model &clone = *OrvoUtils::cloneModelWithLatencyConstraints(design, top, ids, &nodes);
    EXPECT_EQ(ids, (std::map<int, int>{{0, 2}, {1, 3}}));
    EXPECT_EQ(nodes.at(&top), &clone);
    EXPECT_EQ(records(clone), "((2 synthLConstraintEq 2 true) (3 synthLConstraintLt 7))");
    EXPECT_EQ(wires(blockOf(clone, "in")), "((w true (2 3) ()))");
    EXPECT_EQ(ports(blockOf(clone, "out")), "((p true () (2 3)))");
    EXPECT_EQ(text(clone, A_SCHEDULE_CONSTRAINT_COUNT), "4");
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2 true) (1 synthLConstraintLt 7))");
    EXPECT_EQ(wires(in), "((w true (0 1) ()))");
    EXPECT_EQ(check(design), Lines{});
}

TEST_F(Clones, ofARootConstrainItsInstancesBelow) {
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(out)).equal(2).end();
    Model &clone = *OrvoUtils::cloneModel(design, top);
    EXPECT_EQ(clone.getName()->toString(), "(dupName 0 top)");
    EXPECT_EQ(records(clone), "((1 synthLConstraintEq 2))");
    EXPECT_EQ(wires(innerIn), "((w ((top call1)) (0) ()) (w (((dupName 0 top) call1)) (1) ()))");
    EXPECT_EQ(check(design), Lines{});
}

TEST_F(Clones, ofARootShareAnEndInEveryInstance) {
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    LatencyConstraintCreator(design).from(wire(innerIn)).to(port(out)).equal(2).end();
    Model &clone = *OrvoUtils::cloneModel(design, top);
    EXPECT_EQ(records(clone), "((1 synthLConstraintEq 2))");
    EXPECT_EQ(wires(innerIn), "((w true (0 1) ()))");
    EXPECT_EQ(check(design), Lines{});
}

TEST_F(Clones, ofAnInlinedModelHaveTheirRecordsAtTheRoot) {
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    LatencyConstraintCreator(design).from(wire(innerIn)).to(port(innerOut)).equal(2).end();
    LatencyConstraintCreator(design).from(wire(in)).to(port(innerOut)).equal(3).end();
    Model &clone = *OrvoUtils::cloneModel(design, below);
    EXPECT_EQ(records(clone), "");
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2) (1 synthLConstraintEq 3) (2 synthLConstraintEq 2) "
                            "(3 synthLConstraintEq 3))");
    EXPECT_EQ(wires(in), "((w true (1 3) ()))") << "the end beside it serves both";
    EXPECT_EQ(ports(blockOf(clone, "innerOut")), "((p true () (2 3)))");
    EXPECT_EQ(text(top, A_SCHEDULE_CONSTRAINT_COUNT), "4");
    EXPECT_EQ(check(design), Lines{});
}

TEST_F(Clones, haveNoPartInAnInstanceOfTheSource) {
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(out)).equal(2).end();
    Model &clone = *OrvoUtils::cloneModel(design, below);
    EXPECT_EQ(wires(blockOf(clone, "innerIn")), "");
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2))");
    EXPECT_EQ(check(design), Lines{});
}

TEST_F(Clones, ofSeveralModelsShareTheirConstraints) {
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(out)).equal(2).end();
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    Model &clone = *OrvoUtils::deepCloneModel(design, top);
    Model &cloneBelow = *design.getModel(value("(dupName 0 below)"));
    EXPECT_EQ(records(clone), "((1 synthLConstraintEq 2))");
    EXPECT_EQ(wires(blockOf(cloneBelow, "innerIn")), "((w (((dupName 0 top) call1)) (1) ()))");
    EXPECT_EQ(wires(innerIn), "((w ((top call1)) (0) ()))");
    EXPECT_EQ(OrvoUtils::getModelDefiningContraints(cloneBelow), &clone);
    EXPECT_EQ(check(design), Lines{});
}

TEST_F(Clones, inAnotherDesignTakeAlongWhatIsWhole) {
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(out)).equal(2).end();
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(3).end();
    Design other(mgr.context());
    OrvoUtils::deepCloneDesign(other, design);
    EXPECT_EQ(records(*other.getModel(value("top"))).size(), records(top).size());
    EXPECT_EQ(check(other), Lines{});
    Design third(mgr.context());
    Model &alone = *OrvoUtils::cloneModel(third, top);
    EXPECT_EQ(ports(blockOf(alone, "out")), "((p true () (2)))") << "the other constraint's end is not there";
    EXPECT_EQ(check(third), Lines{});
    Model &inner = *OrvoUtils::cloneModel(third, below);
    EXPECT_FALSE(static_cast<bool>(inner.getParam(A_SYNTH_ROOT_SCHEDULE_MODEL)));
    EXPECT_EQ(check(third), Lines{});
    EXPECT_EQ(check(design), Lines{});
}

TEST_F(Clones, ofADesignKeepWhatIsWrongWithIt) {
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    in.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("(odd (w true (9) ()))"));
    top.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("((0 synthLConstraintEq 2) (x) 5)"));
    const Lines wrong = check(design);
    EXPECT_EQ(wrong.size(), 5U);
    Design other(mgr.context());
    OrvoUtils::deepCloneDesign(other, design);
    EXPECT_EQ(check(other).size(), wrong.size());
    Model &alone = *OrvoUtils::cloneModel(design, top);
    EXPECT_EQ(records(alone), "((x) 5)");
    EXPECT_EQ(wires(blockOf(alone, "in")), "(odd)");
}

TEST_F(Clones, shareAMapOfIds) {
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    std::map<int, int> ids = {{0, 60}};
    EXPECT_EQ(records(*OrvoUtils::cloneModelWithLatencyConstraints(design, top, ids)), "((60 synthLConstraintEq 2))");
    EXPECT_EQ(ids.size(), 1U);
}

TEST_F(Clones, countBeyondTheIdsOfAGivenMap) {
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    std::map<int, int> ids = {{0, 60}};
    const Model &one = *OrvoUtils::cloneModelWithLatencyConstraints(design, top, ids);
    EXPECT_EQ(text(one, A_SCHEDULE_CONSTRAINT_COUNT), "61");
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).lessThan(3).end();
    std::map<int, int> taken = {{0, 62}};
    const Model &two = *OrvoUtils::cloneModelWithLatencyConstraints(design, top, taken);
    EXPECT_EQ(records(two), "((62 synthLConstraintEq 2) (63 synthLConstraintLt 3))") << "nothing else gets a partner";
    EXPECT_EQ(text(two, A_SCHEDULE_CONSTRAINT_COUNT), "64");
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
}

/// A hierarchy with markers at every level, and constraints between points of its instances.
class DrawnConstraints {
  public:
    DrawnConstraints(Design &design, const std::vector<std::uint32_t> &drawn) : mDesign(design), mDrawn(drawn) {
        const std::size_t levels = 2 + draw(3);
        for (std::size_t i = 0; i < levels; ++i) {
            Model &model = *Model::create(design, "m" + std::to_string(draw(3)));
            for (std::size_t k = draw(3) + 1; k != 0; --k) {
                mark(model, A_SIGNAL_IN_BLOCK, "in");
                mark(model, A_CHANNEL_OUT_BLOCK, "out");
            }
            // Each refers to models made before, so that there are no loops.
            for (std::size_t k = mModels.empty() ? 0 : draw(3); k != 0; --k) {
                Block &call = *Block::create(model, "call", A_MODEL_BLOCK);
                Model &below = *mModels[draw(mModels.size())];
                call.setParam(A_MODEL_NODE, below);
                if (below.getParentBlocks().size() == 1 && draw(2) == 0) {
                    call.setParam(A_INLINE_SCHEDULE, A_TRUE);
                }
            }
            mModels.push_back(&model);
        }
        uninlineShared();
        for (Model *root : mModels) {
            if (isScheduleRoot(*root)) {
                constrain(*root);
            }
        }
    }
    std::size_t draw(std::size_t below) {
        return mDrawn.empty() ? 0 : mDrawn[mAt++ % mDrawn.size()] % std::max<std::size_t>(below, 1);
    }

  private:
    struct Point {
        const Block *block;
        RefChain chain;
    };
    void mark(Model &model, const StaticString &type, const char *name) {
        Block &block = *Block::create(model, name, type);
        block.setParam(A_FALSE, *Wire::create(block, A_TRUE.get()));
    }
    void uninlineShared() {
        for (Model *model : mModels) {
            if (model->getParentBlocks().size() > 1) {
                for (Block *block : model->getParentBlocks()) {
                    block->setParam(A_INLINE_SCHEDULE, nullptr);
                }
            }
        }
    }
    void pointsOf(const Model &model, const RefChain &chain, std::vector<Point> &points) {
        for (const Block &block : model) {
            if (const Model *below = Node::from<Model>(block[A_MODEL_NODE])) {
                RefChain longer = chain;
                longer.push_back(&block);
                pointsOf(*below, longer, points);
            } else {
                points.push_back({&block, chain});
            }
        }
    }
    void constrain(Model &root) {
        std::vector<Point> points;
        pointsOf(root, {}, points);
        for (std::size_t k = draw(4); k != 0; --k) {
            LatencyConstraintCreator creator(mDesign);
            setEnd(creator, points[draw(points.size())], true);
            setEnd(creator, points[draw(points.size())], false);
            (draw(2) == 0 ? creator.lessThan(3) : creator.scheduleLink(0)).end();
        }
    }
    void setEnd(LatencyConstraintCreator &creator, const Point &point, bool from) {
        if (point.block->type() == A_SIGNAL_IN_BLOCK.get_ptr()) {
            const Wire *wire = point.block->getWire(A_TRUE);
            from ? creator.from(wire, point.chain) : creator.to(wire, point.chain);
        } else {
            const Port *port = point.block->getPort(A_FALSE);
            from ? creator.from(port, point.chain) : creator.to(port, point.chain);
        }
    }

    Design &mDesign;
    const std::vector<std::uint32_t> &mDrawn;
    std::size_t mAt = 0;
    std::vector<Model *> mModels;
};

std::vector<Model *> modelsOf(Design &design) {
    std::vector<Model *> models;
    for (Model &model : design) {
        models.push_back(&model);
    }
    return models;
}

/// Whether each model that counts its constraints counts beyond all its ids.
bool countsAreFree(const Design &design) {
    return std::all_of(design.begin(), design.end(), [](const Model &model) {
        const NumberValueRef count = numberVR(model.getParam(A_SCHEDULE_CONSTRAINT_COUNT));
        const TupleValueRef records = tupleVR(model.getParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
        return !records || (count && std::all_of(records->begin(), records->end(), [&](const ValueRef &record) {
                                return numberVR(tupleVR(record)->at(0))->toInt() < count->toInt();
                            }));
    });
}

std::size_t numberOfRecords(const Model &model) {
    const TupleValueRef records = tupleVR(model.getParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
    return records ? records->size() : 0;
}

RC_GTEST_PROP(ConstraintProperty, clonesKeepTheCheckSilent, (const std::vector<std::uint32_t> &drawn)) {
    ContextMgr mgr;
    test::HeardMessages heard(mgr.context());
    Design design(mgr.context());
    DrawnConstraints made(design, drawn);
    RC_ASSERT(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    if (made.draw(2) == 0) {
        OrvoUtils::gatherUpScheduleConstraints(design);
    }
    RC_ASSERT(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    RC_ASSERT(countsAreFree(design));
    Design other(mgr.context());
    std::set<const Model *> cloned;
    std::map<int, int> ids;
    for (int i = 0; i < 3; ++i) {
        const std::vector<Model *> models = modelsOf(design);
        Model &source = *models[made.draw(models.size())];
        Design &destination = made.draw(3) == 0 ? other : design;
        // A copy of one model in another design still refers to models of the old one.
        const bool shallow = &destination == &design && made.draw(2) == 0;
        // One map of ids serves clones of different models.
        const bool withIds = shallow && made.draw(2) == 0 && cloned.insert(&source).second;
        const Model &clone = withIds   ? *OrvoUtils::cloneModelWithLatencyConstraints(destination, source, ids)
                             : shallow ? *OrvoUtils::cloneModel(destination, source)
                                       : *OrvoUtils::deepCloneModel(destination, source);
        // As drawn, the ends of a model's constraints are all at or below it; a copy of a part may add others.
        RC_ASSERT(i != 0 || numberOfRecords(clone) == numberOfRecords(source));
        RC_ASSERT(OrvoUtils::requireConstraintsConsistentWithDesign(design));
        RC_ASSERT(OrvoUtils::requireConstraintsConsistentWithDesign(other));
        RC_ASSERT(countsAreFree(design));
        RC_ASSERT(countsAreFree(other));
    }
    Design copy(mgr.context());
    OrvoUtils::deepCloneDesign(copy, design);
    RC_ASSERT(OrvoUtils::requireConstraintsConsistentWithDesign(copy));
    RC_ASSERT(test::checkInvariants(design));
    RC_ASSERT(heard.take().empty());
}

/// The constraints of all nodes by their addresses.
std::map<const Node *, std::string> constraintsOf(Design &design) {
    std::map<const Node *, std::string> all;
    for (Model &model : design) {
        std::ostringstream out;
        out << log::p("", model[A_SYNTH_SCHEDULE_CONSTRAINTS]).at("");
        all[&model] = out.str();
        for (Block &block : model) {
            all[&block] = log::p("", block[A_SCHEDULE_CONSTRAINT_PORTS]).at("") +
                          log::p("", block[A_SCHEDULE_CONSTRAINT_WIRES]).at("");
        }
    }
    return all;
}

struct Survivors {
    void onDying(Block &block) { blocks.erase(&block); }
    void onModelDying(Model &model) { blocks.erase(&model); }
    std::map<const Node *, std::string> blocks;
};

RC_GTEST_PROP(ConstraintProperty, aCheckpointLeavesSurvivingConstraintsAsTheyWere,
              (const std::vector<std::uint32_t> &drawn, const std::vector<std::uint32_t> &edits)) {
    ContextMgr mgr;
    test::HeardMessages heard(mgr.context());
    Design design(mgr.context());
    DrawnConstraints made(design, drawn);
    std::vector<LatencyConstraintsCheckpoint> checkpoints;
    for (Model *model : modelsOf(design)) {
        checkpoints.emplace_back(model);
    }
    Survivors survivors{constraintsOf(design)};
    using OnBlock = util::Function<void(Block &)>;
    using OnModel = util::Function<void(Model &)>;
    design.events().blockDying.add(OnBlock::bind<&Survivors::onDying>(&survivors));
    design.events().modelDying.add(OnModel::bind<&Survivors::onModelDying>(&survivors));
    test::applyEdits(design, edits);
    for (Model &model : design) {
        for (Block &block : model) {
            if (made.draw(2) == 0) {
                block.setParam(made.draw(2) == 0 ? A_SCHEDULE_CONSTRAINT_WIRES : A_SCHEDULE_CONSTRAINT_PORTS,
                               NumberValue::get(static_cast<int>(made.draw(100)), mgr.context()));
            }
        }
        model.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, nullptr);
    }
    for (const LatencyConstraintsCheckpoint &checkpoint : checkpoints) {
        checkpoint.restore();
    }
    const auto after = constraintsOf(design);
    for (const auto &[node, constraints] : survivors.blocks) {
        RC_ASSERT(after.at(node) == constraints);
    }
    design.events().blockDying.remove(OnBlock::bind<&Survivors::onDying>(&survivors));
    design.events().modelDying.remove(OnModel::bind<&Survivors::onModelDying>(&survivors));
}

} // namespace
} // namespace orvo
