// Models: their blocks by name, type and prefix, and the events of their life.
#include <orvo/model.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

class ModelTest : public ::testing::Test {
  protected:
    PureValueRef name(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    Block *typed(const std::string &blockName, const StaticString &type) {
        Block *block = Block::create(model, name(blockName));
        block->setParam(A_BLOCK_TYPE, type);
        return block;
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
};

TEST_F(ModelTest, findsItsFirstInputAndOutputBlock) {
    EXPECT_EQ(model.getInputBlock(), nullptr);
    EXPECT_EQ(model.getOutputBlock(), nullptr);
    typed("in2", A_INPUT_BLOCK);
    Block *first = typed("in1", A_INPUT_BLOCK);
    Block *out = typed("out", A_OUTPUT_BLOCK);
    EXPECT_EQ(model.getInputBlock(), first);
    EXPECT_EQ(model.getOutputBlock(), out);
}

TEST_F(ModelTest, findsABlockByPrefixAndType) {
    EXPECT_EQ(model.getBlockByPrefix(nullptr, nullptr), nullptr);
    Block *lane = typed("(a 1)", A_ADD_BLOCK);
    Block *plain = typed("b", A_SUB_BLOCK);
    EXPECT_EQ(model.getBlockByPrefix(name("a"), nullptr), lane);
    EXPECT_EQ(model.getBlockByPrefix(name("a"), A_SUB_BLOCK), nullptr);
    EXPECT_EQ(model.getBlockByPrefix(nullptr, A_ADD_BLOCK), lane);
    EXPECT_EQ(model.getBlockByPrefix(nullptr, nullptr), plain);
}

TEST_F(ModelTest, resolvesClashesOfModelNames) {
    EXPECT_EQ(Model::create(design, "m")->getName()->toString(), "(dupName 0 m)");
    model.setName(name("(dupName 0 m)"));
    EXPECT_EQ(model.getName()->toString(), "(dupName 1 m)");
    EXPECT_EQ(design.getModel(name("m")), nullptr);
}

TEST_F(ModelTest, survivesRenamingWhileItIsInstantiatedAndReferredTo) {
    Block *block = typed("i", A_MODEL_BLOCK);
    Model &below = *Model::create(design, "below");
    block->setParam(A_MODEL_NODE, below);
    below.setName(name("renamed"));
    EXPECT_EQ(block->getParam(A_MODEL_NODE)->toString(), "[/renamed]");
    EXPECT_EQ(below.getParentBlocks().size(), 1U);
}

/// The births and deaths of a design, as text.
struct LifeLog {
    explicit LifeLog(Design &design) {
        EventManager &events = design.events();
        events.modelBorn.add(util::Function<void(Model &)>::bind<&LifeLog::modelBorn>(this));
        events.blockBorn.add(util::Function<void(Block &)>::bind<&LifeLog::blockBorn>(this));
        events.wireBorn.add(util::Function<void(Wire &)>::bind<&LifeLog::wireBorn>(this));
        events.modelDying.add(util::Function<void(Model &)>::bind<&LifeLog::modelDying>(this));
        events.blockDying.add(util::Function<void(Block &)>::bind<&LifeLog::blockDying>(this));
        events.wireDying.add(util::Function<void(Wire &)>::bind<&LifeLog::wireDying>(this));
    }
    void modelBorn(Model &node) { add("+", node); }
    void blockBorn(Block &node) { add("+", node); }
    void wireBorn(Wire &node) { add("+", node); }
    void modelDying(Model &node) { add("-", node); }
    void blockDying(Block &node) { add("-", node); }
    void wireDying(Wire &node) { add("-", node); }
    void add(const char *what, Node &node) { lines.push_back(what + node.value()->getPath()); }
    std::vector<std::string> lines;
};

TEST_F(ModelTest, announcesBirthsAndEachDeathOnceFromTheChildrenUp) {
    auto watched = std::make_unique<Design>(mgr.context());
    LifeLog log(*watched);
    Model *other = Model::create(*watched, "o");
    Block *block = Block::create(*other, "b");
    Wire::create(*block, "w");
    delete other;
    EXPECT_EQ(log.lines, (std::vector<std::string>{"+/o", "+/o/b", "+/o/b/w", "-/o/b", "-/o", "-/o/b/w"}));
    watched.reset();
}

TEST_F(ModelTest, deletesADesignWithAllThatIsInIt) {
    auto scratch = std::make_unique<Design>(mgr.context());
    Model *top = Model::create(*scratch, "top");
    Block *a = Block::create(*top, "a");
    Block *b = Block::create(*top, "b");
    Wire *wire = Wire::create(*a, "w");
    b->setParam(name("0"), *wire);
    ValueRef held(wire->value());
    scratch.reset();
    EXPECT_EQ(held->toString(), "[/top/a/w]");
}

/// Adds a second listener from inside the first.
struct Growing {
    void first(Model &) {
        ++calls;
        design->events().modelBorn.add(util::Function<void(Model &)>::bind<&Growing::second>(this));
    }
    void second(Model &) { ++calls; }
    Design *design = nullptr;
    int calls = 0;
};

TEST_F(ModelTest, callsACallbackThatIsAddedWhileTheListIsWalked) {
    Growing growing;
    growing.design = &design;
    design.events().modelBorn.add(util::Function<void(Model &)>::bind<&Growing::first>(&growing));
    Model::create(design, "x");
    EXPECT_EQ(growing.calls, 2);
}

/// Takes itself off the list when it is called.
struct OneShot {
    void call(Model &) {
        ++calls;
        design->events().modelBorn.remove(util::Function<void(Model &)>::bind<&OneShot::call>(this));
    }
    Design *design = nullptr;
    int calls = 0;
};

TEST_F(ModelTest, letsACallbackRemoveItselfWithoutSkippingTheNext) {
    OneShot first;
    OneShot second;
    for (OneShot *shot : {&first, &second}) {
        shot->design = &design;
        design.events().modelBorn.add(util::Function<void(Model &)>::bind<&OneShot::call>(shot));
    }
    Model::create(design, "x");
    Model::create(design, "y");
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 1);
}

/// Fires the list again from inside, and takes the first callback off there.
struct Nesting {
    void first(Model &) { ++firstCalls; }
    void second(Model &) {
        if (!nested) {
            nested = true;
            design->events().modelBorn.remove(util::Function<void(Model &)>::bind<&Nesting::first>(this));
            Model::create(*design, "inner");
        }
    }
    void third(Model &) { ++thirdCalls; }
    Design *design = nullptr;
    bool nested = false;
    int firstCalls = 0;
    int thirdCalls = 0;
};

TEST_F(ModelTest, callsEachCallbackOnceThoughWalksNestAndTheListShrinks) {
    Nesting nesting;
    nesting.design = &design;
    auto &born = design.events().modelBorn;
    born.add(util::Function<void(Model &)>::bind<&Nesting::first>(&nesting));
    born.add(util::Function<void(Model &)>::bind<&Nesting::second>(&nesting));
    born.add(util::Function<void(Model &)>::bind<&Nesting::third>(&nesting));
    Model::create(design, "outer");
    EXPECT_EQ(nesting.firstCalls, 1);
    EXPECT_EQ(nesting.thirdCalls, 2);
}

TEST_F(ModelTest, refusesANullCallback) {
    design.events().modelBorn.add({});
    EXPECT_EXIT(Model::create(design, "x"), ::testing::ExitedWithCode(1), "null callback");
}

TEST(Model, keepsItsEdgesInTheOrderOfNames) {
    ContextMgr context;
    Design design(context.context());
    Model &model = *Model::create(design, "m");
    const auto named = [&](const char *name) { return StringValue::get(name, context.context()); };
    EXPECT_EQ(model.getInputBlock(), nullptr);
    Block *b = Block::create(model, "b", A_INPUT_BLOCK);
    Block *a = Block::create(model, "a", A_INPUT_BLOCK);
    Block *out = Block::create(model, "out", A_OUTPUT_BLOCK);
    EXPECT_EQ(model.getInputBlock(), a);
    EXPECT_EQ(model.getOutputBlock(), out);
    a->setName(named("c"));
    EXPECT_EQ(model.getInputBlock(), b);
    EXPECT_EQ(*model.getInputBlocks().rbegin(), a);
    b->setParam(A_BLOCK_TYPE, A_OUTPUT_BLOCK);
    EXPECT_EQ(model.getInputBlock(), a);
    EXPECT_EQ(model.getOutputBlock(), b);
    EXPECT_EQ(model.getOutputBlocks().size(), 2U);
    delete b;
    EXPECT_EQ(model.getOutputBlock(), out);
    a->setParam(A_BLOCK_TYPE, nullptr);
    EXPECT_EQ(model.getInputBlock(), nullptr);
    delete out;
    EXPECT_EQ(model.getOutputBlock(), nullptr);
}

} // namespace
} // namespace orvo
