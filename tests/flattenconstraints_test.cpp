// Constraints of models that dissolve: their ids, the chains of their ends, and what is left below.
#include "orvo/flattenconstraints.h"

#include "support/constraintrig.h"
#include "support/invariants.h"

#include <orvo/orvoutils.h>
#include <orvo/pass.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>

namespace orvo {
namespace {

constexpr const char *kEverything = "FlattenEverythingPass";
constexpr const char *kExplicit = "FlattenExplicitPass";
constexpr const char *kZRT = "FlattenZRTExplicitPass";
constexpr const char *kSimulink = "FlattenSimulinkPass";

class FlattenConstraints : public test::ConstraintRig {
  protected:
    void run(const char *pass = kEverything) {
        PassScheduler scheduler;
        scheduler.addPass(pass);
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
    }
    void dropDead() {
        top.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
        PassScheduler scheduler;
        scheduler.addPass("DeadModelPass");
        scheduler.apply(design);
    }
    Block &named(const char *name) {
        Block *found = top.getBlock(value(name));
        EXPECT_NE(found, nullptr) << name;
        return *found;
    }
    std::vector<std::string> messages() { return heard.take(); }
    using Lines = std::vector<std::string>;
};

TEST_F(FlattenConstraints, getFreshIdsInEachInstance) {
    LatencyConstraintCreator(design).from(wire(in)).to(port(out)).lessThan(9).end();
    below.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("((1 synthLConstraintLE 3 soft))"));
    below.setParam(A_SCHEDULE_CONSTRAINT_COUNT, value("2"));
    innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((w true (1) ()))"));
    innerOut.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((p true () (1)))"));
    run();
    EXPECT_EQ(records(top), "((0 synthLConstraintLt 9) (2 synthLConstraintLE 3 soft) (3 synthLConstraintLE 3 soft))");
    EXPECT_EQ(text(top, A_SCHEDULE_CONSTRAINT_COUNT), "4");
    EXPECT_EQ(wires(named("(below innerIn)")), "((w true (2) ()))");
    EXPECT_EQ(ports(named("(below innerOut)")), "((p true () (2)))");
    EXPECT_EQ(wires(named("(dupName 0 (below innerIn))")), "((w true (3) ()))");
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, loseTheDissolvedLevelOfTheirChains) {
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(innerOut), {&call1}).equal(1).end();
    LatencyConstraintCreator(design).from(wire(innerIn), {&call2}).to(port(out)).equal(2).end();
    run();
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 1) (1 synthLConstraintEq 2))");
    EXPECT_EQ(wires(named("(below innerIn)")), "((w true (0) ()))");
    EXPECT_EQ(ports(named("(below innerOut)")), "((p true () (0)))");
    EXPECT_EQ(wires(named("(dupName 0 (below innerIn))")), "((w true (1) ()))");
    EXPECT_EQ(ports(named("(dupName 0 (below innerOut))")), "");
    dropDead();
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, followTheirEndsThroughSeveralLevels) {
    // "zroot" receives "top", which is flat by then, or not.
    for (const char *name : {"aroot", "zroot"}) {
        Model &root = *Model::create(design, name);
        Block &call = *Block::create(root, "call", A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, top);
        LatencyConstraintCreator(design)
            .from(wire(innerIn), {&call, &call1})
            .to(port(innerOut), {&call, &call1})
            .equal(1)
            .end();
        LatencyConstraintCreator(design).from(wire(in), {&call}).to(port(out), {&call}).equal(1).end();
        root.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    }
    run();
    PassScheduler scheduler;
    scheduler.addPass("DeadModelPass");
    scheduler.apply(design);
    EXPECT_EQ(design.size(), 2U);
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, areMendedBelowAModelThatStays) {
    Model &kernel = *Model::create(design, "kernel");
    kernel.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    Block &deepIn = marker(kernel, "deepIn", A_CHANNEL_IN_BLOCK);
    Block &deepOut = marker(kernel, "deepOut", A_CHANNEL_OUT_BLOCK);
    Block &call = *Block::create(below, "call", A_MODEL_BLOCK);
    call.setParam(A_MODEL_NODE, kernel);
    LatencyConstraintCreator(design)
        .from(wire(deepIn), {&call1, &call})
        .to(port(deepOut), {&call2, &call})
        .equal(1)
        .end();
    // One within each instance of "below".
    below.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("((7 synthLConstraintEq 5))"));
    innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((w true (7) ()))"));
    deepOut.setParam(A_SCHEDULE_CONSTRAINT_PORTS,
                     value("((p ((top call2) (below call)) () (0)) (p ((below call)) () (7)))"));
    run();
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 1) (8 synthLConstraintEq 5) (9 synthLConstraintEq 5))");
    EXPECT_EQ(wires(deepIn), "((w ((top (below call))) (0) ()))");
    EXPECT_EQ(ports(deepOut), "((p ((top (dupName 0 (below call)))) () (0)) (p ((top (below call))) () (8))"
                              " (p ((top (dupName 0 (below call)))) () (9)))");
    dropDead();
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, stayWithTheRootOfASchedule) {
    delete &call2;
    call1.setParam(A_INLINE_SCHEDULE, A_TRUE);
    LatencyConstraintCreator(design).from(wire(innerIn), {&call1}).to(port(out)).equal(2).end();
    OrvoUtils::gatherUpScheduleConstraints(design);
    run();
    EXPECT_EQ(records(top), "((0 synthLConstraintEq 2))");
    EXPECT_EQ(wires(named("(below innerIn)")), "((w true (0) ()))");
}

TEST_F(FlattenConstraints, ofAModelBelowTheRootOfItsScheduleComeAlong) {
    delete &call2;
    below.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, top);
    below.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("((3 synthLConstraintEq 5))"));
    innerIn.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((w true (3) ()))"));
    innerOut.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((p true () (3)))"));
    run();
    EXPECT_EQ(records(top), "((4 synthLConstraintEq 5))");
    EXPECT_EQ(wires(named("(below innerIn)")), "((w true (4) ()))");
    dropDead();
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, reachTheRootOfTheirScheduleOnce) {
    // "aroot" is flat before "mid", and takes that in as it was drawn; "zroot" takes it in as it is then.
    for (const char *name : {"aroot", "zroot"}) {
        Model &root = *Model::create(design, name);
        Model &mid = *Model::create(design, std::string("mid of ") + name);
        Model &inner = *Model::create(design, std::string("s of ") + name);
        root.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
        mid.setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, root);
        Block &call = *Block::create(root, "i", A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, mid);
        call.setParam(A_INLINE_SCHEDULE, A_TRUE);
        Block::create(mid, "k", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, inner);
        LatencyConstraintCreator(design)
            .from(wire(marker(inner, "from", A_SIGNAL_IN_BLOCK)))
            .to(port(marker(inner, "to", A_SIGNAL_OUT_BLOCK)))
            .lessEqual(3)
            .end();
    }
    run();
    // All that is still there, dead or not, has its records.
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    for (const char *name : {"aroot", "zroot"}) {
        EXPECT_EQ(tupleVR(design.getModel(value(name))->getParam(A_SYNTH_SCHEDULE_CONSTRAINTS))->size(), 1U);
    }
    dropDead();
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, leaveTheSourceWithTheInstanceThatDissolved) {
    // "below" dissolves into "mid" and stays in "other".
    delete &call2;
    Model &mid = *Model::create(design, "mid");
    Model &other = *Model::create(design, "other");
    mid.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
    call1.setParam(A_MODEL_NODE, mid);
    Block::create(top, "o", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, other);
    Block &inMid = *Block::create(mid, "m", A_MODEL_BLOCK);
    inMid.setParam(A_MODEL_NODE, below);
    Block::create(other, "m", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, below);
    LatencyConstraintCreator(design)
        .from(wire(innerIn), {&call1, &inMid})
        .to(port(innerOut), {&call1, &inMid})
        .lessEqual(3)
        .end();
    run(kExplicit);
    EXPECT_EQ(wires(innerIn), "");
    EXPECT_EQ(ports(innerOut), "");
    EXPECT_EQ(wires(*mid.getBlock(value("(below innerIn)"))), "((w ((top call1)) (0) ()))");
    dropDead();
    EXPECT_EQ(design.size(), 4U);
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, goWithModelsThatOnlyDeadModelsInstantiate) {
    // "mid" with "below" dissolves into "top" but is not made flat itself, so that "below" is still instantiated there.
    Model &kernel = *Model::create(design, "kernel");
    kernel.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    Block &from = marker(kernel, "from", A_SIGNAL_IN_BLOCK);
    Block &call = *Block::create(below, "k", A_MODEL_BLOCK);
    call.setParam(A_MODEL_NODE, kernel);
    Model &mid = *Model::create(design, "mid");
    Block::create(mid, "m", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, below);
    delete &call2;
    call1.setParam(A_MODEL_NODE, mid);
    LatencyConstraintCreator(design).from(wire(from), {&call}).to(port(innerOut)).lessEqual(3).end();
    top.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
    run(kExplicit);
    EXPECT_EQ(wires(from), "((w ((top (below k))) (1) ()))");
    dropDead();
    EXPECT_EQ(design.size(), 2U);
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    EXPECT_EQ(messages(), Lines());
}

TEST_F(FlattenConstraints, ofManyInstancesBelowOneModelAreWrittenOnce) {
    // Each of many kernels holds a model whose constraint ends in the one kernel below.
    Model &kernel = *Model::create(design, "kernel");
    kernel.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    Block &from = marker(kernel, "from", A_SIGNAL_IN_BLOCK);
    Block &to = marker(kernel, "to", A_SIGNAL_OUT_BLOCK);
    Block &call = *Block::create(below, "k", A_MODEL_BLOCK);
    call.setParam(A_MODEL_NODE, kernel);
    LatencyConstraintCreator(design).from(wire(from), {&call}).to(port(to), {&call}).lessEqual(3).end();
    constexpr std::size_t kModels = 300;
    for (std::size_t i = 0; i < kModels; ++i) {
        Model &holder = *Model::create(design, "m" + std::to_string(i));
        holder.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
        Block::create(holder, "i", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, below);
        Block::create(top, "i" + std::to_string(i), A_MODEL_BLOCK)->setParam(A_MODEL_NODE, holder);
    }
    delete &call1;
    delete &call2;
    const std::uint64_t edits = design.editCount();
    run();
    EXPECT_LT(design.editCount() - edits, 15 * kModels);
    EXPECT_EQ(tupleVR(from.getParam(A_SCHEDULE_CONSTRAINT_WIRES))->size(), kModels);
    dropDead();
    EXPECT_TRUE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
}

TEST_F(FlattenConstraints, doNotBelongOnAModelBlock) {
    call1.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((p true (0) ()))"));
    call2.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("()"));
    run();
    EXPECT_EQ(messages(), Lines{"DISALLOWED_SIGNPOST_ON_MODEL_BLOCK refBlk=/top/call1"});
    EXPECT_EQ(top.getBlock(value("call1")), nullptr);
}

/// A walk down from a model, by numbers as long as there are some and something to step into.
RefChain walkFrom(const Model &model, std::vector<std::uint32_t> &numbers) {
    RefChain chain;
    const Model *at = &model;
    while (!numbers.empty()) {
        std::vector<const Block *> calls;
        for (const Block &block : *at) {
            if (block.type() == A_MODEL_BLOCK.get_ptr()) {
                calls.push_back(&block);
            }
        }
        const std::size_t choice = numbers.back() % (calls.size() + 2);
        numbers.pop_back();
        if (choice >= calls.size()) {
            break;
        }
        chain.push_back(calls[choice]);
        at = Node::from<Model>((*chain.back())[A_MODEL_NODE]);
    }
    return chain;
}

const Model &endOf(const RefChain &chain, const Model &start) {
    return chain.empty() ? start : *Node::from<Model>((*chain.back())[A_MODEL_NODE]);
}

/// How often each id stands at the given place of the entries of blocks.
std::map<std::string, int> idsAt(const Design &design, const StaticString &param, std::size_t place) {
    std::map<std::string, int> counts;
    for (const Model &model : design) {
        for (const Block &block : model) {
            const TupleValueRef entries = tupleVR(block.getParam(param));
            for (std::size_t i = 0; entries && i < entries->size(); ++i) {
                for (const ValueRef &id : *tupleVR(tupleVR(entries->at(i))->at(place))) {
                    ++counts[id->toString()];
                }
            }
        }
    }
    return counts;
}

/// How often each id stands in the records of models.
std::map<std::string, int> recordedIds(const Design &design) {
    std::map<std::string, int> counts;
    for (const Model &model : design) {
        const TupleValueRef records = tupleVR(model.getParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
        for (std::size_t i = 0; records && i < records->size(); ++i) {
            ++counts[tupleVR(records->at(i))->at(0)->toString()];
        }
    }
    return counts;
}

// Each constraint of the flat design has one start and one end, whatever dissolved and in whatever order.
void expectBothEndsBehindPass(const char *pass) {
    ContextMgr mgr;
    test::HeardMessages heard(mgr.context());
    Design design(mgr.context());
    const auto number = rc::gen::inRange<std::uint32_t>(0, 1U << 20U);
    std::vector<Model *> models;
    const std::size_t count = *rc::gen::inRange<std::size_t>(1, 6);
    for (std::size_t i = 0; i < count; ++i) {
        // The order of the names is that in which models are flattened.
        Model &model = *Model::create(design, "m" + std::to_string(*number) + "_" + std::to_string(i));
        Wire::create(*Block::create(model, "from", A_SIGNAL_IN_BLOCK), "w");
        Block::create(model, "to", A_SIGNAL_OUT_BLOCK)
            ->setParam(StringValue::get("p", mgr.context()),
                       *Wire::create(*Block::create(model, "const", A_CONST_BLOCK), "w"));
        if (i != 0 && *number % 3 == 0) {
            model.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
        }
        if (*number % 2 == 0) {
            model.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
        }
        if (*number % 2 == 0) {
            model.setParam(A_ZRT_MODEL_TO_BE_FLATTENED, A_TRUE);
        }
        if (pass == kSimulink && *number % 4 != 0) {
            model.setParam(A_SIMULINK_PATH, A_TRUE);
            model.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
        }
        models.push_back(&model);
    }
    for (std::size_t i = 0; i + 1 < count; ++i) {
        for (std::uint32_t call = *number % 4; call > 0; --call) {
            Block::create(*models[i], "call", A_MODEL_BLOCK)
                ->setParam(A_MODEL_NODE, *models[i + 1 + *number % (count - 1 - i)]);
        }
    }
    models[0]->setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    // A model that dies takes its records with it.
    PassScheduler deadModels;
    deadModels.addPass("DeadModelPass");
    deadModels.apply(design);
    for (std::uint32_t i = *number % 6; i > 0; --i) {
        auto numbers = *rc::gen::container<std::vector<std::uint32_t>>(number);
        const Model &root = endOf(walkFrom(*models[0], numbers), *models[0]);
        const RefChain fromChain = walkFrom(root, numbers);
        const RefChain toChain = walkFrom(root, numbers);
        const Wire *from = &*endOf(fromChain, root).getBlock(StringValue::get("from", mgr.context()))->begin();
        const Port *to = &*endOf(toChain, root).getBlock(StringValue::get("to", mgr.context()))->port_begin();
        LatencyConstraintCreator(design).from(from, fromChain).to(to, toChain).lessEqual(3).end();
    }
    RC_PRE(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    PassScheduler scheduler;
    scheduler.addPass(pass);
    scheduler.addPass("DeadModelPass");
    scheduler.apply(design);
    RC_ASSERT(test::checkInvariants(design));
    // How models of a drawing are nested is no matter here.
    const auto ofNesting = [](const std::string &line) { return line.find("IOBLOCKS_OUTSIDE") == 0; };
    std::vector<std::string> lines = heard.take();
    std::erase_if(lines, ofNesting);
    RC_ASSERT(lines == std::vector<std::string>());
    RC_ASSERT(OrvoUtils::requireConstraintsConsistentWithDesign(design));
    RC_ASSERT(heard.take() == std::vector<std::string>());
    const auto recorded = recordedIds(design);
    RC_ASSERT(idsAt(design, A_SCHEDULE_CONSTRAINT_WIRES, 2) == recorded);
    RC_ASSERT(idsAt(design, A_SCHEDULE_CONSTRAINT_PORTS, 3) == recorded);
    for (const auto &[id, times] : recorded) {
        RC_ASSERT(times == 1);
    }
}

RC_GTEST_PROP(FlattenConstraintsProperty, keepBothEndsOfEachConstraint, ()) { expectBothEndsBehindPass(kEverything); }
RC_GTEST_PROP(FlattenConstraintsProperty, keepBothEndsInMarkedReceivers, ()) { expectBothEndsBehindPass(kExplicit); }
RC_GTEST_PROP(FlattenConstraintsProperty, keepBothEndsOfMarkedSources, ()) { expectBothEndsBehindPass(kZRT); }
RC_GTEST_PROP(FlattenConstraintsProperty, keepBothEndsInScheduledSubsystems, ()) {
    expectBothEndsBehindPass(kSimulink);
}

} // namespace
} // namespace orvo
