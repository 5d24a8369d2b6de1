// Requests, their expansion, the run, and the bases of passes.
#include <orvo/pass.h>

#include "support/printedmessages.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>

#include <util/profiling.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <typeinfo>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

/// What the test passes did, in order.
Lines gLog;
/// What a test wants a pass to do.
std::map<std::string, std::function<void(PassContext &, const Pass &)>> gBodies;
std::map<std::string, std::vector<std::string>> gRequires;

/// A pass that does what the test says. One class serves all names: the factory is told by a template argument.
template <int kNumber> class TestPass final : public Pass {
  public:
    static std::string nameOf() { return "TestPass" + std::string(1, static_cast<char>('A' + kNumber)); }
    static Pass *create() { return new TestPass; }
    static const internal::DefaultParamSettings &settings() {
        static const internal::DefaultParamSettings one("A test pass.", {{"P_X", A_TRUE, "x"}, {"P_Y", nullptr, "y"}});
        return one;
    }
    ~TestPass() override { gLog.push_back("~" + nameOf()); }
    std::string getName() const override { return nameOf(); }
    const internal::DefaultParamSettings &__get_class_default_param_settings() const override { return settings(); }
    void bindEvents(const Design &) override { gLog.push_back("bind " + nameOf()); }
    void unbindEvents() override { gLog.push_back("unbind " + nameOf()); }
    void apply(PassContext &context) override {
        gLog.push_back(nameOf());
        if (auto body = gBodies.find(nameOf()); body != gBodies.end()) {
            body->second(context, *this);
        }
    }
    void declare(PassDeclarations &declarations) override {
        for (const std::string &name : gRequires[nameOf()]) {
            declarations.requirePass(name);
        }
    }
};

template <int kNumber> void registerTestPass() {
    internal::registerPass(TestPass<kNumber>::nameOf(), &TestPass<kNumber>::create, &TestPass<kNumber>::settings());
}

class PassTest : public ::testing::Test {
  protected:
    PassTest() {
        registerTestPass<0>();
        registerTestPass<1>();
        registerTestPass<2>();
        gLog.clear();
        gBodies.clear();
        gRequires.clear();
    }
    /// The passes that ran, without the other lines.
    static Lines ran() {
        Lines lines;
        for (const std::string &line : gLog) {
            if (line.find("TestPass") == 0) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }

    ContextMgr mgr;
    Design design{mgr.context()};
};

TEST_F(PassTest, givesNoPassesForNoRequests) {
    PassResults results = PassScheduler().apply(design);
    EXPECT_EQ(results.size(), 0U);
}

TEST_F(PassTest, runsRequirementsFirstEachPrecededByItsOwn) {
    gRequires["TestPassC"] = {"TestPassA", "TestPassB"};
    gRequires["TestPassA"] = {"TestPassB"};
    PassScheduler scheduler;
    scheduler.addPass("TestPassC");
    PassResults results = scheduler.apply(design);
    EXPECT_EQ(ran(), (Lines{"TestPassB", "TestPassA", "TestPassB", "TestPassC"}));
    EXPECT_EQ(results.size(), 0U);
    EXPECT_EQ(gLog, (Lines{"bind TestPassC", "bind TestPassA", "bind TestPassB", "TestPassB", "TestPassA", "TestPassB",
                           "TestPassC", "unbind TestPassC", "~TestPassC", "unbind TestPassA", "~TestPassA",
                           "unbind TestPassB", "~TestPassB"}));
}

TEST_F(PassTest, refusesAPassThatRequiresItself) {
    gRequires["TestPassA"] = {"TestPassA"};
    PassScheduler scheduler;
    scheduler.addPass("TestPassA");
    EXPECT_EXIT(scheduler.apply(design), ::testing::ExitedWithCode(1), "Pass dependency cycle");
}

TEST_F(PassTest, refusesAPassThatRequiresItselfThroughAnother) {
    gRequires["TestPassA"] = {"TestPassB"};
    gRequires["TestPassB"] = {"TestPassC"};
    gRequires["TestPassC"] = {"TestPassA"};
    PassScheduler scheduler;
    scheduler.addPass("TestPassA");
    EXPECT_EXIT(scheduler.apply(design), ::testing::ExitedWithCode(1), "Pass dependency cycle");
}

TEST_F(PassTest, takesRequestsWithOtherParametersForOtherInstances) {
    gBodies["TestPassB"] = [&](PassContext &context, const Pass &) {
        const WithParam first("P_X", value("1"));
        const WithParam second("P_X", value("2"));
        EXPECT_NE(context.getPass("TestPassA", first), context.getPass("TestPassA", second));
        EXPECT_EXIT(context.getPass("TestPassA"), ::testing::ExitedWithCode(1), "several live passes");
        EXPECT_EXIT(context.getPass("TestPassC"), ::testing::ExitedWithCode(1), "no live pass");
        EXPECT_EXIT(context.getPass("TestPassA", WithParam("P_X", value("3"))), ::testing::ExitedWithCode(1),
                    "no live pass");
        EXPECT_EQ(context.getPass("TestPassB")->getName(), "TestPassB");
    };
    PassScheduler scheduler;
    scheduler.requirePass("TestPassA", WithParam("P_X", value("1")));
    scheduler.requirePass("TestPassA", WithParam("P_X", value("2")));
    scheduler.addPass("TestPassB");
    PassResults results = scheduler.apply(design);
    EXPECT_EQ(results.size(), 2U);
    EXPECT_NE(results.getPass("TestPassA", WithParam("P_X", value("1"))), nullptr);
}

TEST_F(PassTest, runsARequiredPassOnceAndAnAddedPassEachTime) {
    PassScheduler scheduler;
    scheduler.requirePass("TestPassA");
    scheduler.requirePass("TestPassA");
    scheduler.addPass("TestPassB");
    scheduler.addPass("TestPassB");
    PassResults results = scheduler.apply(design);
    EXPECT_EQ(ran(), (Lines{"TestPassA", "TestPassB", "TestPassB"}));
    EXPECT_EQ(results.size(), 1U);
    EXPECT_EQ(results.getPass("TestPassA")->getName(), "TestPassA");
    EXPECT_EXIT(results.getPass("TestPassB"), ::testing::ExitedWithCode(1), "no pass of this name");
}

TEST_F(PassTest, keepsRequiredPassesUntilTheLastCopyOfTheResultsGoes) {
    auto results = std::make_unique<PassResults>([&] {
        PassScheduler scheduler;
        scheduler.requirePass("TestPassA");
        return scheduler.apply(design);
    }());
    auto copy = std::make_unique<PassResults>(*results);
    results.reset();
    EXPECT_EQ(gLog.back(), "TestPassA");
    copy.reset();
    EXPECT_EQ(gLog.back(), "~TestPassA");
}

TEST_F(PassTest, letsResultsOutliveTheDesign) {
    auto shortLived = std::make_unique<Design>(mgr.context());
    PassScheduler scheduler;
    scheduler.requirePass("ModelTreePass");
    scheduler.requirePass("TestPassA");
    auto results = std::make_unique<PassResults>(scheduler.apply(*shortLived));
    shortLived.reset();
    EXPECT_EQ(gLog.back(), "unbind TestPassA");
    results.reset();
    EXPECT_EQ(gLog.back(), "~TestPassA");
}

TEST_F(PassTest, readsParametersFromTheRequestThenFromTheDeclaration) {
    gBodies["TestPassA"] = [&](PassContext &context, const Pass &pass) {
        EXPECT_EQ(context.getParam(&pass, "P_X"), value("7"));
        EXPECT_FALSE(context.getParam(&pass, "P_Y"));
        EXPECT_TRUE(context.hasParam(&pass, "P_Y"));
        EXPECT_FALSE(context.hasParam(&pass, "P_Z"));
        EXPECT_EXIT(context.getParam(&pass, "P_Z"), ::testing::ExitedWithCode(1), "does not declare");
        context.returnParam(&pass, "result", value("9"));
    };
    gBodies["TestPassB"] = [&](PassContext &context, const Pass &pass) {
        EXPECT_EQ(context.getParam(&pass, "P_X"), A_TRUE);
        context.returnParam(&pass, "result", value("9"));
    };
    ParamContext::Settings returned;
    PassScheduler scheduler;
    scheduler.addPass("TestPassA", WithParam("P_X", value("7")) & &returned);
    scheduler.addPass("TestPassB");
    scheduler.apply(design);
    EXPECT_EQ(returned.at("result"), value("9"));
    EXPECT_EQ(ran(), (Lines{"TestPassA", "TestPassB"}));
}

TEST_F(PassTest, refusesUnknownPassesAndParameters) {
    PassScheduler scheduler;
    EXPECT_EXIT(scheduler.addPass("NoSuchPass"), ::testing::ExitedWithCode(1), "not registered");
    EXPECT_EXIT(scheduler.requirePass("TestPassA", WithParam("P_Z", value("1"))), ::testing::ExitedWithCode(1),
                "does not declare");
    PassDeclarations declarations;
    EXPECT_EXIT(declarations.requirePass("NoSuchPass"), ::testing::ExitedWithCode(1), "not registered");
}

TEST_F(PassTest, passesAnExceptionToTheClientAndKeepsWhatWasDone) {
    gBodies["TestPassB"] = [](PassContext &, const Pass &) { throw std::runtime_error("stop"); };
    gBodies["TestPassA"] = [](PassContext &context, const Pass &) { Model::create(context.getDesign(), "made"); };
    PassScheduler scheduler;
    scheduler.addPass("TestPassA");
    scheduler.addPass("TestPassB");
    scheduler.addPass("TestPassC");
    EXPECT_THROW(scheduler.apply(design), std::runtime_error);
    EXPECT_EQ(ran(), (Lines{"TestPassA", "TestPassB"}));
    EXPECT_EQ(design.size(), 1U);
}

TEST_F(PassTest, reportsAnObjectWithoutATypeAndEnds) {
    const test::PrintedMessages printed(mgr.context());
    gBodies["TestPassA"] = [](PassContext &, const Pass &) { throw std::bad_typeid(); };
    PassScheduler scheduler;
    scheduler.addPass("TestPassA");
    EXPECT_EXIT(scheduler.apply(design), ::testing::ExitedWithCode(1),
                "0 BAD_TYPEID_WITH_PASS_INFO exception=std::bad_typeid passName=TestPassA");
}

ResourceUsageAndLatencyHelper *gNone = nullptr;

TEST(ParamContextTest, mergesSettingsAndComparesThem) {
    ContextMgr mgr;
    const auto value = [&](const char *text) { return pureVR(Value::parse(text, mgr.context())); };
    ParamContext::Settings returned;
    const ParamContext both = (WithParam("a", value("1")) & WithParam("b", value("2"))) & &returned;
    EXPECT_EQ(both.getParamNames(), (Lines{"a", "b"}));
    EXPECT_EQ((WithParam("a", value("1")) & WithParam("a", value("2"))).getParam("a"), value("1"));
    EXPECT_FALSE(both.getParam("c"));
    EXPECT_TRUE((WithParam("b", value("2")) & WithParam("a", value("1"))) == both);
    EXPECT_TRUE(WithParam("a", value("1")) != both);
    EXPECT_TRUE(WithParam("a", value("1")) < both);
    EXPECT_FALSE(both < WithParam("a", value("1")));
    EXPECT_EQ((both & WithParam("c", value("3"))).helper(), nullptr);
    EXPECT_EQ(gNone, nullptr);
}

struct CountedItem final : PassSchedulerStateItem {
    explicit CountedItem(int &gone) : mGone(gone) {}
    ~CountedItem() override { ++mGone; }
    int &mGone;
};

TEST_F(PassTest, leavesStateForTheNextRun) {
    int gone = 0;
    {
        PassSchedulerState state;
        gBodies["TestPassA"] = [&](PassContext &context, const Pass &) {
            EXPECT_EQ(context.lookupStateItem(value("k")), nullptr);
            context.state()->setItemOfState(value("k"), new CountedItem(gone));
        };
        gBodies["TestPassB"] = [&](PassContext &context, const Pass &) {
            EXPECT_NE(context.lookupStateItem(value("k")), nullptr);
            context.state()->setItemOfState(value("k"), new CountedItem(gone));
        };
        for (const char *name : {"TestPassA", "TestPassB"}) {
            PassScheduler scheduler(&state);
            scheduler.addPass(name);
            scheduler.apply(design);
        }
        EXPECT_EQ(gone, 1);
    }
    EXPECT_EQ(gone, 2);
}

/// A run seen from outside.
struct Watcher final : PassInstrumentation {
    bool shouldRun(const PassExecution &execution, Design &) override { return execution.index != skip; }
    void beforePass(const PassExecution &execution, Design &) override { lines.push_back(">" + execution.name); }
    void afterPass(const PassExecution &execution, Design &, bool changed) override {
        lines.push_back("<" + execution.name + (changed ? " changed" : "") + (execution.requested ? " requested" : ""));
    }
    std::size_t skip = 100;
    Lines lines;
};

TEST_F(PassTest, tellsAWatcherOfEachPassAndWhetherItChangedAnything) {
    gRequires["TestPassB"] = {"TestPassA"};
    gBodies["TestPassB"] = [](PassContext &context, const Pass &) { Model::create(context.getDesign(), "made"); };
    Watcher watcher;
    PassScheduler scheduler;
    scheduler.addPass("TestPassB");
    scheduler.setInstrumentation(&watcher);
    scheduler.apply(design);
    EXPECT_EQ(watcher.lines, (Lines{">TestPassA", "<TestPassA", ">TestPassB", "<TestPassB changed requested"}));
    watcher.skip = 1;
    watcher.lines.clear();
    scheduler.apply(design);
    EXPECT_EQ(watcher.lines, (Lines{">TestPassA", "<TestPassA"}));
}

/// Counts what a two-phase pass is asked to do.
template <class Base> class PhasePass final : public Base {
  public:
    std::string getName() const override { return "PhasePass"; }
    const internal::DefaultParamSettings &__get_class_default_param_settings() const override {
        static const internal::DefaultParamSettings none("A test pass.");
        return none;
    }
    void setup(ModelPassContext &context) override {
        note("setup", context);
        for (Block &block : context.getModel()) {
            if (enqueue) {
                context.enqueueApplicable(&block);
            }
        }
    }
    void analyze(ModelPassContext &context) override { note("analyze", context); }
    void apply(ModelPassContext &context) override {
        note("apply", context);
        sections = context.getDesign().getMetadataTransferListener()->openSections();
        while (context.moreApplicable()) {
            context.dequeueApplicable();
            ++dequeued;
        }
        EXPECT_EQ(context.dequeueApplicable(), nullptr);
        EXPECT_EXIT(context.getApplicableQueue(context.getModel()), ::testing::ExitedWithCode(1), "its parent");
        EXPECT_EXIT(context.totalQueueSize(), ::testing::ExitedWithCode(1), "its parent");
    }
    using Base::apply;
    void before(PassContext &) override { lines.push_back("before"); }
    void after(PassContext &) override { lines.push_back("after"); }
    void note(const char *what, ModelPassContext &context) {
        lines.push_back(std::string(what) + " " + context.getModel().getName()->toString());
    }
    void useCache(FreezableTypes *cache) { this->mTypeCache = cache; }

    bool enqueue = false;
    int dequeued = 0;
    std::size_t sections = 0;
    Lines lines;
};

class PhaseTest : public PassTest {
  protected:
    PhaseTest() {
        Block::create(*Model::create(design, "m"), "a");
        Block::create(*Model::create(design, "n"), "b");
    }
    void run(Pass &pass) {
        const PassContext::PassMap passes;
        const PassContext::ParamsMap params;
        PassContext context(design, passes, params, nullptr);
        pass.apply(context);
    }
};

TEST_F(PhaseTest, appliesAPlainModelPassOnceToEachModel) {
    PhasePass<ModelPass> pass;
    run(pass);
    EXPECT_EQ(pass.lines, (Lines{"before", "apply m", "apply n", "after"}));
    EXPECT_EQ(pass.sections, 1U);
    EXPECT_EQ(design.getMetadataTransferListener()->openSections(), 0U);
}

TEST_F(PhaseTest, stopsATwoPhasePassThatFindsNoWork) {
    PhasePass<TwoPhaseModelPass> pass;
    run(pass);
    EXPECT_EQ(pass.lines, (Lines{"before", "setup m", "setup n", "after"}));
}

TEST_F(PhaseTest, analyzesAndAppliesUntilNoWorkIsLeft) {
    PhasePass<TwoPhaseModelPass> pass;
    pass.enqueue = true;
    run(pass);
    EXPECT_EQ(pass.lines,
              (Lines{"before", "setup m", "setup n", "analyze m", "analyze n", "apply m", "apply n", "after"}));
    EXPECT_EQ(pass.dequeued, 2);
}

TEST_F(PhaseTest, makesOneRoundOfAOncePass) {
    PhasePass<TwoPhaseOnceModelPass> pass;
    run(pass);
    EXPECT_EQ(pass.lines, (Lines{"before", "analyze m", "analyze n", "apply m", "apply n", "after"}));
}

TEST_F(PhaseTest, skipsAModelThatIsNotToBeOptimised) {
    design.getModel(value("m"))->setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    design.getModel(value("n"))->setParam(A_SYNTH_OPTIMIZE, A_TRUE);
    PhasePass<OptimizeModelPass> optimising;
    run(optimising);
    EXPECT_EQ(optimising.lines, (Lines{"before", "apply n", "after"}));
    PhasePass<ModelPass> plain;
    run(plain);
    EXPECT_EQ(plain.lines, (Lines{"before", "apply m", "apply n", "after"}));
}

struct CacheLog final : FreezableTypes {
    void freeze() override { lines.push_back("freeze"); }
    void thaw() override { lines.push_back("thaw"); }
    Lines lines;
};

TEST_F(PhaseTest, freezesTypesWhileBlocksAreRewritten) {
    CacheLog cache;
    PhasePass<TwoPhaseModelPass> pass;
    pass.enqueue = true;
    pass.useCache(&cache);
    run(pass);
    EXPECT_EQ(cache.lines, (Lines{"thaw", "freeze", "thaw"}));
}

TEST_F(PhaseTest, takesABlockThatDiesOutOfItsQueue) {
    const PassContext::PassMap passes;
    const PassContext::ParamsMap params;
    PassContext context(design, passes, params, nullptr);
    Model &model = *design.getModel(value("m"));
    Block *first = Block::create(model, "x");
    Block *second = Block::create(model, "y");
    {
        ModelPassContext view(model, context);
        view.enqueueApplicable(first);
        view.enqueueApplicable(second);
        view.enqueueApplicable(first);
    }
    EXPECT_EQ(context.totalQueueSize(), 3U);
    delete first;
    ModelPassContext again(model, context);
    EXPECT_EQ(again.dequeueApplicable(), second);
    EXPECT_FALSE(again.moreApplicable());
    again.enqueueApplicable(second);
    delete &model;
    EXPECT_EQ(context.totalQueueSize(), 0U);
}

TEST_F(PhaseTest, keepsABlockQueuedUnderAModelWhenAnotherOneDies) {
    const PassContext::PassMap passes;
    const PassContext::ParamsMap params;
    PassContext context(design, passes, params, nullptr);
    Model &model = *design.getModel(value("m"));
    Model &other = *Model::create(design, "other");
    Block *block = &*model.begin();
    ModelPassContext(model, context).enqueueApplicable(block);
    ModelPassContext(other, context).enqueueApplicable(block);
    delete &other;
    EXPECT_EQ(context.totalQueueSize(), 1U);
    delete block;
    EXPECT_EQ(context.totalQueueSize(), 0U);
}

TEST_F(PhaseTest, sharesItsQueueWithAViewOverAView) {
    const PassContext::PassMap passes;
    const PassContext::ParamsMap params;
    PassContext context(design, passes, params, nullptr);
    Model &model = *design.getModel(value("m"));
    ModelPassContext view(model, context);
    ModelPassContext(model, view).enqueueApplicable(&*model.begin());
    EXPECT_EQ(context.totalQueueSize(), 1U);
    EXPECT_TRUE(view.moreApplicable());
}

TEST_F(PassTest, keepsAnItemOfStateThatIsSetAgain) {
    struct Item final : PassSchedulerStateItem {
        int number = 7;
    };
    PassSchedulerState state;
    auto *item = new Item;
    state.setItemOfState(A_TRUE, item);
    state.setItemOfState(A_TRUE, state.getItemOfState(A_TRUE));
    EXPECT_EQ(static_cast<Item *>(state.getItemOfState(A_TRUE))->number, 7);
}

TEST_F(PassTest, leavesNothingOpenBehindAnException) {
    gRequires["TestPassB"] = {"TestPassA"};
    gBodies["TestPassB"] = [](PassContext &, const Pass &) { throw std::runtime_error("stop"); };
    util::ProfilingLog::enable();
    PassResults results(design);
    EXPECT_THROW(results.run({{"TestPassB", {}}}, {}), std::runtime_error);
    EXPECT_EQ(util::ProfilingLog::depth(), 0U);
    EXPECT_EQ(results.size(), 0U);
    util::ProfilingLog::disable();
    gBodies["TestPassB"] = [](PassContext &, const Pass &) {};
    results.run({{"TestPassB", {}}}, {});
    EXPECT_EQ(results.size(), 0U);
}

TEST_F(PassTest, refusesToChooseAmongSeveralInstancesKept) {
    PassResults results(design);
    const ParamContext one = WithParam("P_X", A_TRUE);
    results.run({}, {{"TestPassA", {}}, {"TestPassA", one}});
    EXPECT_EXIT(results.getPass("TestPassA"), ::testing::ExitedWithCode(1), "several passes");
    EXPECT_NE(results.getPass("TestPassA", one), nullptr);
}

/// What was run, request and turn of each.
struct Executions final : PassInstrumentation {
    bool shouldRun(const PassExecution &execution, Design &) override {
        lines.push_back(execution.name + " " + std::to_string(execution.index) + " " +
                        std::to_string(execution.request) + " " + std::to_string(execution.turn));
        return true;
    }
    Lines lines;
};

TEST_F(PassTest, runsPassesInTurnsUntilATurnChangesNothing) {
    int left = 2;
    gBodies["TestPassB"] = [&](PassContext &context, const Pass &) {
        if (left-- > 0) {
            Model::create(context.getDesign(), "m" + std::to_string(left));
        }
    };
    gRequires["TestPassC"] = {"TestPassA"};
    Executions executions;
    PassScheduler scheduler;
    scheduler.setInstrumentation(&executions);
    scheduler.addPass("TestPassA");
    scheduler.beginTurns();
    scheduler.addPass("TestPassB");
    scheduler.addPass("TestPassC");
    scheduler.endTurns();
    scheduler.beginTurns();
    scheduler.addPass("TestPassA");
    scheduler.endTurns();
    scheduler.addPass("TestPassC");
    PassResults results = scheduler.apply(design);
    EXPECT_EQ(executions.lines,
              (Lines{"TestPassA 0 0 0", "TestPassB 1 1 1", "TestPassA 2 2 1", "TestPassC 3 2 1", "TestPassB 4 1 2",
                     "TestPassA 5 2 2", "TestPassC 6 2 2", "TestPassB 7 1 3", "TestPassA 8 2 3", "TestPassC 9 2 3",
                     "TestPassA 10 3 1", "TestPassA 11 4 0", "TestPassC 12 4 0"}));
    EXPECT_EQ(results.size(), 0U);
}

TEST_F(PassTest, tellsOfTurnsThatNeverSettle) {
    struct Heard final : ContextListener {
        void onMessage(int, const char *tag, const log::LogParams &params) override {
            lines.push_back(std::string(tag) + " turns=" + params.begin()->second);
        }
        Lines lines;
    } heard;
    mgr.context()->setListener(&heard);
    std::size_t runs = 0;
    gBodies["TestPassA"] = [&](PassContext &context, const Pass &) {
        Model::create(context.getDesign(), "m" + std::to_string(runs++));
    };
    PassScheduler scheduler;
    scheduler.beginTurns();
    scheduler.addPass("TestPassA");
    scheduler.endTurns();
    scheduler.addPass("TestPassB");
    scheduler.apply(design);
    mgr.context()->setListener(nullptr);
    EXPECT_EQ(runs, limits::kPassTurns);
    EXPECT_EQ(heard.lines, (Lines{"PASSES_DO_NOT_SETTLE turns=256"}));
    EXPECT_EQ(std::count(gLog.begin(), gLog.end(), "TestPassB"), 1);
}

TEST_F(PassTest, takesTurnsWithoutPassesForNothing) {
    PassScheduler scheduler;
    scheduler.beginTurns();
    scheduler.endTurns();
    scheduler.addPass("TestPassA");
    scheduler.apply(design);
    EXPECT_EQ(ran(), (Lines{"TestPassA"}));
}

TEST_F(PassTest, assertsThatTurnsBeginAndEndOneByOne) {
    PassScheduler scheduler;
    EXPECT_EXIT(scheduler.endTurns(), ::testing::ExitedWithCode(1), "did not begin");
    scheduler.beginTurns();
    EXPECT_EXIT(scheduler.beginTurns(), ::testing::ExitedWithCode(1), "stand in others");
    EXPECT_EXIT(scheduler.apply(design), ::testing::ExitedWithCode(1), "no end");
}

TEST_F(PassTest, keepsAllInstancesOnRequest) {
    gRequires["TestPassB"] = {"TestPassA"};
    PassScheduler scheduler;
    scheduler.keepAll();
    scheduler.addPass("TestPassB");
    PassResults results = scheduler.apply(design);
    EXPECT_EQ(results.size(), 2U);
    EXPECT_EQ(results.getPass("TestPassA")->getName(), "TestPassA");
}

TEST_F(PhaseTest, givesALocalViewItsOwnQueues) {
    const PassContext::PassMap passes;
    const PassContext::ParamsMap params;
    Model &model = *design.getModel(value("m"));
    ModelPassContext local(model, design, passes, params, nullptr);
    local.enqueueApplicable(&*model.begin());
    EXPECT_EQ(local.totalQueueSize(), 1U);
    EXPECT_EQ(local.getApplicableQueue(model).size(), 1U);
}

/// Deletes the other model in its round.
class DeletingPass final : public ModelPass {
  public:
    std::string getName() const override { return "DeletingPass"; }
    const internal::DefaultParamSettings &__get_class_default_param_settings() const override {
        static const internal::DefaultParamSettings none("A test pass.");
        return none;
    }
    using ModelPass::apply;
    void apply(ModelPassContext &context) override {
        ++applied;
        Model::create(context.getDesign(), "new");
        for (Model &model : context.getDesign()) {
            if (&model != &context.getModel()) {
                delete &model;
                break;
            }
        }
    }
    int applied = 0;
};

TEST_F(PhaseTest, leavesOutModelsThatDieAndModelsThatAreMadeInTheRound) {
    DeletingPass pass;
    run(pass);
    EXPECT_EQ(pass.applied, 1);
}

} // namespace
} // namespace orvo
