// Names, children, parameters and the propagation of change.
#include <orvo/node.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

namespace orvo {
namespace {

/// Counts the changed events of one kind.
struct Counter {
    void onDesign(Design &) { ++designs; }
    void onModel(Model &) { ++models; }
    void onBlock(Block &) { ++blocks; }
    int designs = 0;
    int models = 0;
    int blocks = 0;
};

class NodeTest : public ::testing::Test {
  protected:
    PureValueRef name(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    ValueRef value(const std::string &text) { return Value::parse(text, mgr.context()); }

    ContextMgr mgr;
    /// Before the design, whose end it still hears.
    Counter counter;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
};

TEST_F(NodeTest, replacesANullNameByTheInvalidOne) {
    for (int siblings : {0, 5, 60}) {
        Model &m = *Model::create(design, "siblings" + std::to_string(siblings));
        for (int i = 0; i < siblings; ++i) {
            Block::create(m, "b" + std::to_string(i));
        }
        Block *block = Block::create(m, "x");
        block->setName(nullptr);
        EXPECT_EQ(block->getName(), A_INVALID_NAME) << siblings;
        Wire *wire = Wire::create(*block, "w");
        wire->setName(nullptr);
        EXPECT_EQ(wire->getName(), A_INVALID_NAME);
        EXPECT_EQ(m.getBlock(PureValueRef()), nullptr);
        EXPECT_EQ(m.getBlock(A_INVALID_NAME), block);
    }
    model.setName(nullptr);
    EXPECT_EQ(model.getName(), A_INVALID_NAME);
}

TEST_F(NodeTest, countsOnFromAnyDuplicateNumber) {
    const std::pair<const char *, const char *> cases[] = {
        {"(dupName 2147483647 a)", "(dupName 0x80000000p+0 a)"},
        {"(dupName -1 d)", "(dupName 0 d)"},
        // No clash makes these, so they are names like any other.
        {"(dupName 0x18p-4 b)", "(dupName 0 (dupName 0x18p-4 b))"},
        {"(dupName 0x1p+200 c)", "(dupName 0 (dupName 0x1p+200 c))"},
    };
    for (const auto &[given, next] : cases) {
        Block::create(model, name(given));
        Block *clash = Block::create(model, name(given));
        EXPECT_EQ(clash->getName(), name(next)) << given << " gave " << clash->getName()->toString();
    }
}

/// Deletes blocks, or makes some, when a block dies.
struct Meddler {
    void onDying(Block &block) {
        if (block.getName()->toString() != at) {
            return;
        }
        for (int i = 0; i < makes; ++i) {
            Block::create(*static_cast<Model *>(block.getParent()), "made" + std::to_string(i));
        }
        if (victim != nullptr) {
            delete std::exchange(victim, nullptr);
        }
    }
    std::string at;
    int makes = 0;
    Block *victim = nullptr;
};

TEST_F(NodeTest, letsListenersEditSiblingsWhileAModelDies) {
    Meddler meddler;
    design.events().blockDying.add(util::Function<void(Block &)>::bind<&Meddler::onDying>(&meddler));
    for (int makes : {0, 3, 40}) {
        Model &m = *Model::create(design, "dying");
        for (const char *block : {"a", "b", "c", "d", "e", "f"}) {
            Block::create(m, block);
        }
        meddler.at = "b";
        meddler.makes = makes;
        meddler.victim = m.getBlock(name("d"));
        delete &m;
        EXPECT_EQ(meddler.victim, nullptr);
    }
}

TEST_F(NodeTest, walksOnWhenEntriesBesideComeAndGo) {
    for (int count : {5, 40}) {
        Model &m = *Model::create(design, "walked");
        for (int i = 10; i < 10 + count; ++i) {
            Block::create(m, "b" + std::to_string(i));
        }
        int visited = 0;
        Block *before = nullptr;
        for (Block &block : m) {
            ++visited;
            delete std::exchange(before, &block);
            if (visited == 3) {
                Block::create(m, "a" + std::to_string(count)); // in front
            }
        }
        EXPECT_EQ(visited, count);
        EXPECT_EQ(m.size(), 2U);
        delete &m;
    }
}

TEST_F(NodeTest, walksOnWhenTheMapTakesItsTreeForm) {
    for (int i = 10; i < 20; ++i) {
        Block::create(model, "b" + std::to_string(i));
    }
    std::string seen;
    for (Block &block : model) {
        seen += block.getName()->toString() + " ";
        if (seen == "b10 b11 ") {
            for (int i = 0; i < 40; ++i) {
                Block::create(model, "a" + std::to_string(i));
            }
        }
    }
    EXPECT_EQ(seen, "b10 b11 b12 b13 b14 b15 b16 b17 b18 b19 ");
}

TEST_F(NodeTest, countsEveryEdit) {
    Block *block = Block::create(model, "b");
    const auto counts = [this](auto edit) {
        const std::uint64_t before = design.editCount();
        edit();
        return design.editCount() != before;
    };
    EXPECT_TRUE(counts([&] { block->setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, A_TRUE); }));
    EXPECT_TRUE(counts([&] { block->setParam(A_BLOCK_TYPE, A_ADD_BLOCK); }));
    block->process(16);
    EXPECT_TRUE(counts([&] { Wire::create(*block, "w"); }));
    EXPECT_TRUE(counts([&] { block->setName(name("c")); }));
    EXPECT_TRUE(counts([&] { delete block; }));
    EXPECT_FALSE(counts([&] { static_cast<void>(model.getParam(A_BLOCK_TYPE)); }));
}

TEST_F(NodeTest, resolvesClashesByCountingDuplicateNames) {
    Block *first = Block::create(model, "a");
    Block *second = Block::create(model, "a");
    Block *third = Block::create(model, "a");
    EXPECT_EQ(first->getName()->toString(), "a");
    EXPECT_EQ(second->getName()->toString(), "(dupName 0 a)");
    EXPECT_EQ(third->getName()->toString(), "(dupName 1 a)");
    delete second;
    EXPECT_EQ(Block::create(model, "a")->getName()->toString(), "(dupName 2 a)");
}

TEST_F(NodeTest, continuesCountingWhenADuplicateNameClashesItself) {
    Block::create(model, name("(dupName 4 b)"));
    EXPECT_EQ(Block::create(model, name("(dupName 4 b)"))->getName()->toString(), "(dupName 5 b)");
    EXPECT_EQ(Block::create(model, name("(dupName 4 b)"))->getName()->toString(), "(dupName 6 b)");
}

TEST_F(NodeTest, namesANamelessNodeInvalid) {
    EXPECT_EQ(Block::create(model, PureValueRef())->getName()->toString(), "invalidName");
}

TEST_F(NodeTest, renamesIntoAClashWithADuplicateName) {
    Block::create(model, "a");
    Block *other = Block::create(model, "b");
    other->setName(name("a"));
    EXPECT_EQ(other->getName()->toString(), "(dupName 0 a)");
    EXPECT_EQ(model.getBlock(name("b")), nullptr);
    EXPECT_EQ(model.getBlock(other->getName()), other);
}

TEST_F(NodeTest, keepsADesignsName) {
    design.setName(name("other"));
    EXPECT_TRUE(design.getName() == A_ROOT_NAME);
}

TEST_F(NodeTest, putsPlainNamesBeforeDuplicateNamesInOrder) {
    Block &block = *Block::create(model, "a");
    Wire::create(block, "z");
    Wire::create(block, "z");
    Wire::create(block, "b");
    std::vector<std::string> order;
    for (const Wire &wire : block) {
        order.push_back(wire.getName()->toString());
    }
    EXPECT_EQ(order, (std::vector<std::string>{"b", "z", "(dupName 0 z)"}));
}

TEST_F(NodeTest, replacesWhatIsNotPrintingInLegalNames) {
    EXPECT_EQ(Node::legaliseString("a b/c\"d'e\tf\xc3\xa9g~"), "a_b_c_d_e_f__g~");
}

TEST_F(NodeTest, removesAParameterThatIsSetToNull) {
    model.setParam(name("k"), value("5"));
    EXPECT_EQ(model.param_size(), 1U);
    model.setParam(name("k"), nullptr);
    EXPECT_EQ(model.param_size(), 0U);
    EXPECT_FALSE(model.getParam(name("k")));
}

TEST_F(NodeTest, ignoresANullKey) {
    model.setParam(nullptr, value("5"));
    EXPECT_EQ(model.param_size(), 0U);
    EXPECT_FALSE(model.getParam(nullptr));
}

TEST_F(NodeTest, assignsParametersThroughTheIndex) {
    Model &other = *Model::create(design, "n");
    model[name("k")] = value("(1 2)");
    other[name("j")] = model[name("k")];
    EXPECT_EQ(other.getParam(name("j")), value("(1 2)"));
    other[name("j")] = model;
    EXPECT_EQ(Node::from<Model>(other[name("j")]), &model);
    EXPECT_EQ(Node::from<Block>(other[name("j")]), nullptr);
    EXPECT_TRUE(numberVR(model[name("none")]) == nullptr);
}

TEST_F(NodeTest, keepsOrderAndContentBeyondTheSmallForm) {
    for (int i = 199; i >= 0; --i) {
        model.setParam(NumberValue::get(i, mgr.context()), NumberValue::get(i * i, mgr.context()));
    }
    int expected = 0;
    for (auto param : Params(model)) {
        EXPECT_EQ(numberVR(param.first)->toInt(), expected);
        EXPECT_EQ(numberVR(param.second)->toInt(), expected * expected);
        ++expected;
    }
    EXPECT_EQ(expected, 200);
    for (int i = 0; i < 200; i += 2) {
        model.setParam(NumberValue::get(i, mgr.context()), nullptr);
    }
    EXPECT_EQ(model.param_size(), 100U);
    EXPECT_FALSE(model.getParam(NumberValue::get(4, mgr.context())));
    EXPECT_TRUE(model.getParam(NumberValue::get(5, mgr.context())));
}

TEST_F(NodeTest, findsTheNextSiblingInOrder) {
    Block *b = Block::create(model, "b");
    Block *a = Block::create(model, "a");
    Block *c = Block::create(model, "c");
    EXPECT_EQ(a->getNextSibling(), b);
    EXPECT_EQ(b->getNextSibling(), c);
    EXPECT_EQ(c->getNextSibling(), nullptr);
}

TEST_F(NodeTest, takesThePrefixOfUnrolledNames) {
    EXPECT_EQ(getPreUnrolledPrefix(name("a"))->toString(), "a");
    EXPECT_EQ(getPreUnrolledPrefix(name("((a 1) im)"))->toString(), "a");
    EXPECT_EQ(getPreUnrolledPrefix(name("((dupName 1 a) 3)"))->toString(), "(dupName 1 a)");
}

class ChangeTest : public NodeTest {
  protected:
    ChangeTest() {
        design.events().designChanged.add(util::Function<void(Design &)>::bind<&Counter::onDesign>(&counter));
        design.events().modelChanged.add(util::Function<void(Model &)>::bind<&Counter::onModel>(&counter));
        design.events().blockChanged.add(util::Function<void(Block &)>::bind<&Counter::onBlock>(&counter));
    }
    Block &block = *Block::create(model, "b");
};

TEST_F(ChangeTest, hearsNothingWithoutBeingArmed) {
    block.setParam(name("k"), value("1"));
    EXPECT_EQ(counter.designs + counter.models + counter.blocks, 0);
}

TEST_F(ChangeTest, firesOnceForALevelAndDisarms) {
    block.process(1);
    block.setParam(name("k"), value("1"));
    block.setParam(name("k"), value("2"));
    EXPECT_EQ(counter.blocks, 1);
    EXPECT_EQ(block.armedFlags(), 0U);
}

TEST_F(ChangeTest, firesAtEveryArmedNodeAndClearsOnlyItsLevels) {
    model.process(4);
    block.setParam(name("k"), value("1"));
    EXPECT_EQ(counter.models, 1);
    EXPECT_EQ(model.armedFlags(), 4U);
}

TEST_F(ChangeTest, carriesAChangeOfParametersUpAsBelow) {
    design.process(8);
    model.process(8);
    Wire *wire = Wire::create(block, "w");
    EXPECT_EQ(design.armedFlags(), 0U);
    design.process(8);
    wire->setParam(name("k"), value("1"));
    EXPECT_EQ(design.armedFlags(), 0U);
    EXPECT_EQ(counter.designs, 2);
}

TEST_F(ChangeTest, tellsOfGrandchildrenOneLevelUpOnly) {
    model.process(4);
    design.process(4);
    Wire::create(block, "w");
    EXPECT_EQ(model.armedFlags(), 0U);
    EXPECT_EQ(design.armedFlags(), 4U);
}

TEST_F(ChangeTest, keepsScheduleBookkeepingQuiet) {
    block.process(1);
    block.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value("1"));
    block.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("1"));
    block.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("1"));
    block.setParam(A_SCHEDULE_CONSTRAINT_COUNT, value("1"));
    EXPECT_EQ(counter.blocks, 0);
    EXPECT_TRUE(block.getParam(A_SCHEDULE_CONSTRAINT_WIRES));
}

TEST_F(ChangeTest, handsTheBirthMarkToTheChildThatIsBorn) {
    model.process(16);
    Block *child = Block::create(model, "c");
    EXPECT_EQ(model.armedFlags() & 16U, 0U);
    EXPECT_EQ(child->armedFlags() & 16U, 0U);
    EXPECT_EQ(counter.blocks, 1);
}

TEST_F(ChangeTest, neverSendsAWiresChange) {
    Wire *wire = Wire::create(block, "w");
    wire->process(1);
    wire->setParam(name("k"), value("1"));
    EXPECT_EQ(wire->armedFlags(), 0U);
    EXPECT_EQ(counter.blocks, 0);
}

TEST_F(ChangeTest, countsEveryEditOfTheDesign) {
    std::uint64_t before = design.editCount();
    block.setParam(name("k"), value("1"));
    EXPECT_GT(design.editCount(), before);
    before = design.editCount();
    Block::create(model, "x");
    EXPECT_GT(design.editCount(), before);
}

TEST_F(NodeTest, keepsThePathOfANodeThatDied) {
    Block *block = Block::create(model, name("(a 1)"));
    Wire *wire = Wire::create(*block, "w");
    NodeValueRef held = wire->value();
    EXPECT_EQ(wire->value(), held);
    delete block;
    EXPECT_EQ(held->getNode(), nullptr);
    EXPECT_EQ(held->toString(), "[/m/(a 1)/w]");
}

RC_GTEST_PROP(KeyedMap, behavesAsAnOrderedMap, (const std::vector<std::pair<bool, std::uint8_t>> &steps)) {
    ContextMgr mgr;
    internal::KeyedMap<int> map;
    std::map<int, int> reference;
    int stamp = 0;
    for (const auto &[add, number] : steps) {
        NumberValueRef key = NumberValue::get(static_cast<int>(number), mgr.context());
        int *there = map.find(key.get_ptr());
        RC_ASSERT((there != nullptr) == (reference.count(number) != 0));
        if (add && there == nullptr) {
            map.insert(key, ++stamp);
            reference[number] = stamp;
        } else if (!add) {
            RC_ASSERT(map.erase(key.get_ptr()) == (reference.erase(number) != 0));
        }
        RC_ASSERT(map.size() == reference.size());
    }
    auto expected = reference.begin();
    for (auto entry : map) {
        RC_ASSERT(numberVR(entry.first)->toInt() == expected->first);
        RC_ASSERT(entry.second == expected->second);
        ++expected;
    }
    RC_ASSERT(expected == reference.end());
}

} // namespace
} // namespace orvo
