// Writing constraints and undoing what was written.
#include <orvo/latencyconstraints.h>

#include "support/constraintrig.h"

#include <orvo/orvoutils.h>

namespace orvo {
namespace {

using test::ConstraintRig;

class Creator : public ConstraintRig {};

TEST_F(Creator, writesTheRecordAndBothEnds) {
    LatencyConstraintCreator creator(design);
    creator.from(wire(in)).to(port(out)).lessEqual(3).modifier(value("soft")).modifier(value("(weight 2)"));
    EXPECT_EQ(creator.end(), LatencyConstraintCreator::Status::Success);
    EXPECT_EQ(records(top), "((0 synthLConstraintLE 3 soft (weight 2)))");
    EXPECT_EQ(text(top, A_SCHEDULE_CONSTRAINT_COUNT), "1");
    EXPECT_EQ(wires(in), "((w true (0) ()))");
    EXPECT_EQ(ports(out), "((p true () (0)))");
    EXPECT_EQ(ports(in) + wires(out), "");
}

TEST_F(Creator, takesTheEndsInEitherOrderAndOfOneKind) {
    LatencyConstraintCreator(design).to(wire(in)).from(wire(innerIn), {&call1}).equal(0).end();
    EXPECT_EQ(wires(in), "((w true () (0)))");
    LatencyConstraintCreator(design).to(port(out)).from(port(innerOut), {&call1}).equal(0).end();
    EXPECT_EQ(ports(out), "((p true () (1)))");
}

TEST_F(Creator, knowsEveryRelation) {
    using Relate = LatencyConstraintCreator &(LatencyConstraintCreator::*)(int);
    const std::pair<Relate, const char *> cases[] = {{&LatencyConstraintCreator::lessThan, "synthLConstraintLt"},
                                                     {&LatencyConstraintCreator::lessEqual, "synthLConstraintLE"},
                                                     {&LatencyConstraintCreator::equal, "synthLConstraintEq"},
                                                     {&LatencyConstraintCreator::greaterEqual, "synthLConstraintGE"},
                                                     {&LatencyConstraintCreator::greaterThan, "synthLConstraintGt"},
                                                     {&LatencyConstraintCreator::scheduleLink, "synthScheduleLink"}};
    for (const auto &[relate, word] : cases) {
        top.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, nullptr);
        top.setParam(A_SCHEDULE_CONSTRAINT_COUNT, nullptr);
        LatencyConstraintCreator creator(design);
        creator.from(wire(in)).to(port(out));
        (creator.*relate)(-7).end();
        EXPECT_EQ(records(top), "((0 " + std::string(word) + " -7))");
    }
}

TEST_F(Creator, leavesOneEntryForTwoConstraintsFromOneWire) {
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).lessThan(3).end();
    LatencyConstraintCreator(design).from(wire(in)).to(port(innerOut), {&call1}).lessThan(4).end();
    EXPECT_EQ(wires(in), "((w true (0 1) ()))");
    LatencyConstraintCreator(design).from(port(out)).to(wire(in)).lessThan(5).end();
    EXPECT_EQ(wires(in), "((w true (0 1) (2)))");
}

TEST_F(Creator, constrainsOneInstanceOfAModelUsedTwice) {
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(innerOut), {&call1}).equal(2).end();
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2))") << "the root of the chain holds it";
    EXPECT_EQ(records(below), "");
    EXPECT_EQ(ports(innerOut), "((p ((top call1)) () (0)))");
    LatencyConstraintCreator(design).from(wire(innerIn), {&call2}).to(port(out)).equal(2).end();
    EXPECT_EQ(wires(innerIn), "((w ((top call1)) (0) ()) (w ((top call2)) (1) ()))");
    EXPECT_EQ(ports(innerOut), "((p ((top call1)) () (0)))") << "the other instance has none";
}

TEST_F(Creator, findsTheHolderOverTheRootOfTheSchedule) {
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    LatencyConstraintCreator(design).from(wire(innerIn)).to(port(innerOut)).equal(2).end();
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2))");
    EXPECT_EQ(records(below), "");
}

TEST_F(Creator, countsOverAllModelsOfTheDesign) {
    LatencyConstraintCreator(design).from(wire(innerIn)).to(port(innerOut)).equal(2).end();
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    EXPECT_EQ(records(below) + records(top), "((0 synthLConstraintEq 2))((1 synthLConstraintEq 2))");
    // A count that lies, and one that is ahead.
    top.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("((41 synthLConstraintEq 2))"));
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    EXPECT_EQ(records(top), "((41 synthLConstraintEq 2) (42 synthLConstraintEq 2))");
    below.setParam(A_SCHEDULE_CONSTRAINT_COUNT, value("77"));
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    EXPECT_EQ(text(top, A_SCHEDULE_CONSTRAINT_COUNT), "78");
}

TEST_F(Creator, readsAnEmptySlotAndLeavesStrangersAlone) {
    in.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("(odd (w true () (7)))"));
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    EXPECT_EQ(wires(in), "(odd (w true (0) (7)))");
}

TEST_F(Creator, isNoChangeOfTheNetlist) {
    struct Ear {
        void onChange(Model &) { ++changes; }
        int changes = 0;
    } ear;
    using Callback = util::Function<void(Model &)>;
    design.events().modelChanged.add(Callback::bind<&Ear::onChange>(&ear));
    top.process(9);
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
    EXPECT_EQ(ear.changes, 0);
    design.events().modelChanged.remove(Callback::bind<&Ear::onChange>(&ear));
}

using CreatorDeath = Creator;

TEST_F(CreatorDeath, refusesACallOutOfTurn) {
    const auto dies = [&](auto misuse) {
        EXPECT_EXIT(
            {
                LatencyConstraintCreator creator(design);
                misuse(creator);
            },
            ::testing::ExitedWithCode(1), "of a constraint|a constraint is written once");
    };
    dies([&](LatencyConstraintCreator &c) { c.from(wire(in)).from(wire(in)); });
    dies([&](LatencyConstraintCreator &c) { c.to(port(out)).to(port(out)); });
    dies([&](LatencyConstraintCreator &c) { c.from(wire(in)).lessThan(1); });
    dies([&](LatencyConstraintCreator &c) { c.to(port(out)).scheduleLink(1); });
    dies([&](LatencyConstraintCreator &c) { c.equal(1); });
    dies([&](LatencyConstraintCreator &c) { c.from(wire(in)).to(port(out)).equal(1).equal(1); });
    dies([&](LatencyConstraintCreator &c) { c.from(wire(in)).to(port(out)).equal(1).from(wire(in)); });
    dies([&](LatencyConstraintCreator &c) { c.from(wire(in)).to(port(out)).modifier(A_TRUE); });
    dies([&](LatencyConstraintCreator &c) { c.from(wire(in)).to(port(out)).end(); });
    dies([&](LatencyConstraintCreator &c) {
        c.from(wire(in)).to(port(out)).equal(1).end();
        c.end();
    });
}

TEST_F(CreatorDeath, refusesAnEndThatMayCarryNoConstraint) {
    EXPECT_EXIT(LatencyConstraintCreator(design).from(port(in)), ::testing::ExitedWithCode(1), "an interface marker");
    EXPECT_EXIT(LatencyConstraintCreator(design).to(wire(out)), ::testing::ExitedWithCode(1), "an interface marker");
    EXPECT_EXIT(LatencyConstraintCreator(design).to(in.getPort(value("q"))), ::testing::ExitedWithCode(1), "is there");
    const Block &sum = marker(top, "sum", A_ADD_BLOCK);
    EXPECT_EXIT(LatencyConstraintCreator(design).to(wire(sum)), ::testing::ExitedWithCode(1), "an interface marker");
}

TEST_F(CreatorDeath, refusesWhatIsNotOfTheDesign) {
    Design other(mgr.context());
    EXPECT_EXIT(LatencyConstraintCreator(other).from(wire(in)), ::testing::ExitedWithCode(1), "of its creator");
    EXPECT_EXIT(LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(1).modifier({}),
                ::testing::ExitedWithCode(1), "a pure value");
}

TEST_F(CreatorDeath, refusesEndsBelowTwoRoots) {
    Model &second = *Model::create(design, "second");
    Block &call = *Block::create(second, "call", A_MODEL_BLOCK);
    call.setParam(A_MODEL_NODE, below);
    EXPECT_EXIT(
        LatencyConstraintCreator(design).from(wire(innerIn), {&call}).to(port(innerOut), {&call1}).equal(1).end(),
        ::testing::ExitedWithCode(1), "below one root");
}

TEST(LatencyConstraintAllowed, standsOnTheSideThatFacesTheDesign) {
    struct Row {
        const StaticString *type;
        bool onPort;
        bool onWire;
    };
    const Row rows[] = {
        {&A_SIGNAL_IN_BLOCK, false, true},
        {&A_SIGNAL_OUT_BLOCK, true, false},
        {&A_CHANNEL_IN_BLOCK, false, true},
        {&A_CHANNEL_OUT_BLOCK, true, false},
        {&A_SARNET_MM_MASTER_IN_BLOCK, false, true},
        {&A_SARNET_MM_MASTER_OUT_BLOCK, true, false},
        {&A_SARNET_MM_SLAVE_IN_BLOCK, false, false},
        {&A_SARNET_MM_SLAVE_OUT_BLOCK, false, false},
        {&A_MODEL_BLOCK, false, false},
        {&A_ADD_BLOCK, false, false},
    };
    for (const Row &row : rows) {
        const Value *type = row.type->get_ptr();
        EXPECT_EQ(latencyConstraintAllowedOnPort(type), row.onPort) << row.type->text();
        EXPECT_EQ(latencyConstraintAllowedOnWire(type), row.onWire) << row.type->text();
        EXPECT_EQ(latencyConstraintAllowed(type, true), row.onPort) << row.type->text();
        EXPECT_EQ(latencyConstraintAllowed(type, false), row.onWire) << row.type->text();
        EXPECT_EQ(latencyConstraintAllowedOnBlock(type), row.onPort || row.onWire) << row.type->text();
    }
    EXPECT_FALSE(latencyConstraintAllowedOnBlock(nullptr));
}

class Checkpoint : public ConstraintRig {
  protected:
    Checkpoint() {
        LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(2).end();
        LatencyConstraintCreator(design).from(wire(innerIn)).to(port(innerOut)).lessThan(9).end();
    }
};

TEST_F(Checkpoint, putsBackWhatStoodAtEveryLevel) {
    const LatencyConstraintsCheckpoint checkpoint(&top);
    const std::string before =
        records(top) + records(below) + wires(in) + ports(out) + wires(innerIn) + ports(innerOut);
    LatencyConstraintCreator(design).from(wire(in)).to(port(innerOut), {&call1}).equal(1).end();
    below.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, nullptr);
    innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, nullptr);
    out.setParam(A_SCHEDULE_CONSTRAINT_WIRES, A_TRUE);
    checkpoint.restore();
    EXPECT_EQ(records(top) + records(below) + wires(in) + ports(out) + wires(innerIn) + ports(innerOut), before);
    EXPECT_EQ(wires(out), "") << "what stood nowhere goes";
}

TEST_F(Checkpoint, passesOverABlockThatIsGone) {
    const LatencyConstraintsCheckpoint checkpoint(&top);
    delete &in;
    // Likely at the address of the old one.
    Block &other = marker(top, "in", A_SIGNAL_IN_BLOCK);
    out.setParam(A_SCHEDULE_CONSTRAINT_PORTS, nullptr);
    checkpoint.restore();
    EXPECT_EQ(ports(out), "((p true () (0)))");
    EXPECT_EQ(wires(other), "") << "another block of that name was not there";
}

TEST_F(Checkpoint, isForAModelAndWhatIsBelowIt) {
    const LatencyConstraintsCheckpoint checkpoint(&below);
    top.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, nullptr);
    innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, nullptr);
    checkpoint.restore();
    EXPECT_EQ(records(top), "");
    EXPECT_EQ(wires(innerIn), "((w true (1) ()))");
    LatencyConstraintsCheckpoint(nullptr).restore();
}

TEST_F(Checkpoint, clearsTheEndsOfBlocksThatWereMadeSince) {
    const LatencyConstraintsCheckpoint checkpoint(&top);
    Block &made = marker(top, "made", A_SIGNAL_OUT_BLOCK);
    LatencyConstraintCreator(design).from(wire(in)).to(port(made)).equal(1).end();
    checkpoint.restore();
    EXPECT_EQ(ports(made), "");
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
}

TEST_F(Checkpoint, putsBackTheRecordsThatStandAtTheRootOfTheSchedule) {
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    const LatencyConstraintsCheckpoint checkpoint(&below);
    const std::string before = records(top);
    LatencyConstraintCreator(design).from(wire(innerIn)).to(port(innerOut)).equal(1).end();
    EXPECT_NE(records(top), before);
    checkpoint.restore();
    EXPECT_EQ(records(top), before);
}

TEST_F(Checkpoint, takesBackAConstraintToAnEndOutside) {
    const LatencyConstraintsCheckpoint checkpoint(&below);
    const std::string before =
        records(top) + records(below) + wires(in) + ports(out) + wires(innerIn) + ports(innerOut);
    LatencyConstraintCreator(design).from(wire(in)).to(port(innerOut), {&call1}).equal(1).end();
    LatencyConstraintCreator(design).from(wire(innerIn), {&call2}).to(port(out)).scheduleLink(0).end();
    EXPECT_EQ(wires(in), "((w true (0 2) ()))");
    checkpoint.restore();
    EXPECT_EQ(records(top) + records(below) + wires(in) + ports(out) + wires(innerIn) + ports(innerOut), before);
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    checkpoint.restore();
    EXPECT_EQ(records(top) + records(below) + wires(in) + ports(out) + wires(innerIn) + ports(innerOut), before);
}

TEST_F(Checkpoint, takesBackTheOnlyConstraintOfABlockOutside) {
    Block &beside = marker(top, "beside", A_SIGNAL_IN_BLOCK);
    const LatencyConstraintsCheckpoint checkpoint(&below);
    LatencyConstraintCreator(design).from(wire(beside)).to(port(innerOut), {&call1}).equal(1).end();
    checkpoint.restore();
    EXPECT_EQ(wires(beside), "");
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
}

TEST_F(Checkpoint, takesBackAnEndOutsideWhoseRecordStandsAtTheRootOfTheSchedule) {
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    const LatencyConstraintsCheckpoint checkpoint(&below);
    const std::string before = records(top) + wires(in) + ports(innerOut);
    LatencyConstraintCreator(design).from(wire(in)).to(port(innerOut), {&call2}).equal(1).end();
    checkpoint.restore();
    EXPECT_EQ(records(top) + wires(in) + ports(innerOut), before);
}

TEST_F(Checkpoint, keepsConstraintsThatAreWhollyOutside) {
    const LatencyConstraintsCheckpoint checkpoint(&below);
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).greaterThan(3).end();
    LatencyConstraintCreator(design).from(wire(in)).to(port(innerOut), {&call1}).equal(1).end();
    checkpoint.restore();
    EXPECT_EQ(wires(in), "((w true (0 2) ()))");
    EXPECT_EQ(ports(out), "((p true () (0 2)))");
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
}

TEST_F(Checkpoint, takesBackAnEndInAModelThatIsBelowSince) {
    const LatencyConstraintsCheckpoint checkpoint(&below);
    Model &deeper = *Model::create(design, "deeper");
    Block &deepest = marker(deeper, "deepest", A_CHANNEL_OUT_BLOCK);
    Block &call = *Block::create(below, "call", A_MODEL_BLOCK);
    call.setParam(A_MODEL_NODE, deeper);
    LatencyConstraintCreator(design).from(wire(innerIn)).to(port(deepest), {&call}).equal(1).end();
    checkpoint.restore();
    EXPECT_EQ(ports(deepest), "");
    EXPECT_EQ(wires(innerIn), "((w true (1) ()))");
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
}

TEST_F(Creator, givesNoIdTwiceWhereNumbersRunOut) {
    for (const long count : {1000000000000000L, 999999999999999L, 999999999999998L}) {
        top.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, nullptr);
        in.setParam(A_SCHEDULE_CONSTRAINT_WIRES, nullptr);
        out.setParam(A_SCHEDULE_CONSTRAINT_PORTS, nullptr);
        top.setParam(A_SCHEDULE_CONSTRAINT_COUNT, NumberValue::get(count, mgr.context()));
        for (int i = 0; i < 5; ++i) {
            LatencyConstraintCreator(design).from(wire(in)).to(port(out)).equal(1).end();
        }
        EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design)) << count << ": " << records(top);
    }
}

} // namespace
} // namespace orvo
