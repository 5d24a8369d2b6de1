// Loops through wires, hierarchy and latency constraints, and the two policies.
#include <orvo/early_cycle_analysis.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>

namespace orvo {
namespace {

/// Looks at loops through negations, and records what it is told.
struct LoopsOfNegations : EarlyCycleAnalysis {
    bool isJanusBlock(const Block *block) const override { return block->type() == A_NEG_BLOCK.get_ptr(); }
    bool furtherAnalysis() const override { return true; }
    bool preventsFurtherAnalysis(const Block *) const override { return false; }
    void worstSlackPath(const std::vector<const Block *> &path, int slack) override {
        std::string text = std::to_string(slack) + ":";
        for (const Block *block : path) {
            text += " " + block->getName()->toString();
        }
        told.push_back(text);
    }
    std::vector<std::string> told;
};

/// The same with the answers that a policy inherits.
struct PlainPolicy : EarlyCycleAnalysis {
    bool isJanusBlock(const Block *block) const override { return block->type() == A_NEG_BLOCK.get_ptr(); }
};

class EarlyCycle : public ::testing::Test {
  protected:
    using Told = std::vector<std::string>;
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Block &make(Model &model, const std::string &name, const StaticString &type) {
        Block &block = *Block::create(model, name, type);
        Wire::create(block, A_PRIM_WIRE_OUT);
        return block;
    }
    Block &delay(Model &model, const std::string &name, int length) {
        Block &block = make(model, name, A_DELAY_BLOCK);
        block.setParam(A_DELAY_LENGTH, NumberValue::get(length, mgr.context()));
        return block;
    }
    Wire &out(Block &block) { return *block.getWire(A_PRIM_WIRE_OUT); }
    void connect(Block &from, Block &to, const std::string &port = "0") { to.setParam(value(port), out(from)); }
    /// Each block reads the one before it, the first one the last.
    void ring(const std::vector<Block *> &blocks) {
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            connect(*blocks[i], *blocks[(i + 1) % blocks.size()]);
        }
    }
    Told toldOf(const Model &model) {
        LoopsOfNegations policy;
        const bool found = EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(model, &policy);
        EXPECT_EQ(found, !policy.told.empty());
        return policy.told;
    }
    bool plainlyFound(const Model &model) {
        PlainPolicy policy;
        return EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(model, &policy);
    }
    void constrain(Model &holder, const std::string &records) {
        holder.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, value(records));
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Block &neg = make(top, "neg", A_NEG_BLOCK);
};

TEST_F(EarlyCycle, isFalseWithoutALoop) {
    connect(neg, make(top, "last", A_ABS_BLOCK));
    EXPECT_FALSE(plainlyFound(top));
    EXPECT_EQ(toldOf(top), Told());
}

TEST_F(EarlyCycle, findsALoopThroughADelayOfLengthZeroAlone) {
    Block &none = delay(top, "none", 0);
    ring({&neg, &none});
    EXPECT_TRUE(plainlyFound(top));
    none.setParam(A_DELAY_LENGTH, value("1"));
    EXPECT_FALSE(plainlyFound(top));
    EXPECT_EQ(toldOf(top), Told({"1: neg none"}));
}

TEST_F(EarlyCycle, endsLoopsAtRegistersUnlessThePolicyGoesOn) {
    ring({&neg, &make(top, "r", A_REGISTER_BLOCK), &make(top, "s", A_SYNC_REGISTER_BLOCK)});
    EXPECT_FALSE(plainlyFound(top));
    EXPECT_EQ(toldOf(top), Told({"2: neg r s"}));
}

TEST_F(EarlyCycle, tellsTheBlocksInTheOrderOfTheData) {
    ring({&neg, &make(top, "z", A_ABS_BLOCK), &delay(top, "a", 3), &make(top, "m", A_ABS_BLOCK)});
    EXPECT_EQ(toldOf(top), Told({"3: neg z a m"}));
}

TEST_F(EarlyCycle, tellsTheLoopWithTheLeastSlack) {
    Block &sum = make(top, "sum", A_ADD_BLOCK);
    Block &fast = delay(top, "fast", 2);
    Block &slow = delay(top, "slow", 5);
    connect(neg, fast);
    connect(neg, slow);
    connect(fast, sum, "1");
    connect(slow, sum, "0");
    connect(sum, neg);
    EXPECT_EQ(toldOf(top), Told({"2: neg fast sum"}));
}

TEST_F(EarlyCycle, findsNoLoopThatASignalOfStallBreaks) {
    Block &stalled = *Block::create(top, "exit", A_STALLEXIT_BLOCK);
    stalled.setParam(value("(stallexitPortkeyDataBack 0)"), out(neg));
    Wire &data = *Wire::create(stalled, value("(stallexitWirekeyDataFront 0)"));
    Wire &stall = *Wire::create(stalled, A_STALLEXIT_WIRE_STALL_BACK);
    neg.setParam(value("0"), stall);
    EXPECT_FALSE(plainlyFound(top));
    neg.setParam(value("0"), data);
    EXPECT_TRUE(plainlyFound(top));
}

TEST_F(EarlyCycle, leavesOutWiresOfUnscheduledBlocks) {
    Block &other = make(top, "other", U_NOT_BLOCK);
    ring({&neg, &other});
    EXPECT_FALSE(plainlyFound(top));
    other.setParam(A_BLOCK_TYPE, A_NOT_BLOCK);
    EXPECT_TRUE(plainlyFound(top));
}

TEST_F(EarlyCycle, carriesSignalsThroughBoundariesByName) {
    Block &edge = *Block::create(top, "edge", A_SIGNAL_IN_BLOCK);
    Wire &a = *Wire::create(edge, "a");
    Wire &b = *Wire::create(edge, "b");
    edge.setParam(value("a"), out(neg));
    neg.setParam(value("0"), b);
    EXPECT_FALSE(plainlyFound(top));
    neg.setParam(value("0"), a);
    EXPECT_TRUE(plainlyFound(top));
}

/// A model that delays x into y, and one that passes it through.
class EarlyCycleInside : public EarlyCycle {
  protected:
    Model &model(const std::string &name, int length) {
        Model &made = *Model::create(design, name);
        Block &in = *Block::create(made, "in", A_INPUT_BLOCK);
        Block &inner = delay(made, "inner", length);
        inner.setParam(value("0"), *Wire::create(in, "x"));
        Block::create(made, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(inner));
        return made;
    }
    Block &instance(Model &holder, const std::string &name, Model &of) {
        Block &block = *Block::create(holder, name, A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, of);
        Wire::create(block, "y");
        return block;
    }
};

TEST_F(EarlyCycleInside, goesThroughTheHierarchy) {
    Model &leaf = model("leaf", 0);
    Model &mid = *Model::create(design, "mid");
    Block &in = *Block::create(mid, "in", A_INPUT_BLOCK);
    Block &leafBlock = instance(mid, "leaf", leaf);
    leafBlock.setParam(value("x"), *Wire::create(in, "x"));
    Block::create(mid, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *leafBlock.getWire(value("y")));
    Block &midBlock = instance(top, "mid", mid);
    midBlock.setParam(value("x"), out(neg));
    neg.setParam(value("0"), *midBlock.getWire(value("y")));
    EXPECT_TRUE(plainlyFound(top));
    EXPECT_EQ(toldOf(top), Told({"0: neg inner"}));
}

TEST_F(EarlyCycleInside, keepsInstancesApart) {
    // Twice the same model in a chain would be a loop if both were one.
    Model &leaf = model("leaf", 0);
    Block &first = instance(top, "first", leaf);
    Block &second = instance(top, "second", leaf);
    first.setParam(value("x"), out(neg));
    second.setParam(value("x"), *first.getWire(value("y")));
    EXPECT_EQ(toldOf(top), Told());
    neg.setParam(value("0"), *second.getWire(value("y")));
    EXPECT_EQ(toldOf(top), Told({"0: neg inner inner"}));
}

TEST_F(EarlyCycleInside, endsWhereAModelInstantiatesItself) {
    Block &again = instance(top, "again", top);
    again.setParam(value("x"), out(neg));
    neg.setParam(value("0"), *again.getWire(value("y")));
    EXPECT_EQ(toldOf(top), Told({"0: neg again"}));
}

TEST_F(EarlyCycle, closesLoopsByLatencyConstraints) {
    Block &last = make(top, "last", A_ABS_BLOCK);
    connect(neg, last);
    Block &source = make(top, "source", A_ABS_BLOCK);
    connect(source, neg);
    constrain(top, "((5 synthLConstraintGE 7))");
    last.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (5) ()))"));
    EXPECT_EQ(toldOf(top), Told());
    neg.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (5)))"));
    EXPECT_EQ(toldOf(top), Told({"7: neg last"}));
    EXPECT_TRUE(plainlyFound(top));
    // Turned round, the way is open again.
    last.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true () (5)))"));
    neg.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true (5) ()))"));
    EXPECT_EQ(toldOf(top), Told());
}

TEST_F(EarlyCycle, addsLatenciesAndDelaysOfALoop) {
    Block &wait = delay(top, "wait", 2);
    connect(neg, wait);
    connect(make(top, "source", A_ABS_BLOCK), neg);
    constrain(top, "((1 synthLConstraintLE -1))");
    wait.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (1) ()))"));
    neg.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (1)))"));
    EXPECT_EQ(toldOf(top), Told({"1: neg wait"}));
}

TEST_F(EarlyCycle, passesOverConstraintsThatCannotBeRead) {
    connect(make(top, "source", A_ABS_BLOCK), neg);
    neg.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (1 2 3 x) ()) (primWireOut) 7 ((a) (b)) "
                                                    "(none true (1) (1)) (primWireOut ((top)) (1) (1)))"));
    neg.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (1 2 3 x)))"));
    constrain(top, "((1) (2 synthLConstraintGE many) (x synthLConstraintGE 1) 4 ())");
    EXPECT_EQ(toldOf(top), Told());
    constrain(top, "7");
    EXPECT_EQ(toldOf(top), Told());
    constrain(top, "((1) (2 synthLConstraintGE many) (3 synthLConstraintGE 4))");
    EXPECT_EQ(toldOf(top), Told({"4: neg"}));
}

TEST_F(EarlyCycleInside, joinsTheEndsOfAConstraintInEachInstance) {
    Model &sub = *Model::create(design, "sub");
    Block &in = *Block::create(sub, "in", A_INPUT_BLOCK);
    Block &head = make(sub, "head", A_NEG_BLOCK);
    Block &tail = make(sub, "tail", A_ABS_BLOCK);
    head.setParam(value("0"), *Wire::create(in, "x"));
    connect(head, tail);
    constrain(sub, "((0 synthLConstraintGE 3))");
    tail.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (0) ()))"));
    head.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (0)))"));
    Block &first = instance(top, "first", sub);
    Block &second = instance(top, "second", sub);
    first.setParam(value("x"), out(neg));
    second.setParam(value("x"), out(neg));
    EXPECT_EQ(toldOf(top), Told({"3: head tail", "3: head tail"}));
    // With its instance told, an end is in that one only.
    tail.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut ((top second)) (0) ()))"));
    head.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 ((top second)) () (0)))"));
    EXPECT_EQ(toldOf(top), Told({"3: head tail"}));
    head.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 ((top first)) () (0)))"));
    EXPECT_EQ(toldOf(top), Told());
    // A chain may come from above the model that is looked at.
    head.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 ((top second)) () (0)))"));
    EXPECT_EQ(toldOf(sub), Told({"3: head tail"}));
    head.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 ((top neg)) () (0)))"));
    EXPECT_EQ(toldOf(sub), Told());
}

TEST_F(EarlyCycle, looksForMemoryOnLoopsWithoutDelay) {
    for (const StaticString *type : {&A_EXTMEM_READ_BLOCK, &A_EXTMEM_WRITE_BLOCK, &A_SHARED_MEM_BLOCK}) {
        Model &model = *Model::create(design, "m");
        Block &memory = make(model, "memory", *type);
        Block &logic = make(model, "logic", A_NEG_BLOCK);
        ring({&memory, &logic});
        EXPECT_TRUE(EarlyCycleLSUAnalysis::doesUnschedulableLoopContainLSU(model)) << type->text();
        ring({&memory, &logic, &delay(model, "wait", 1)});
        EXPECT_FALSE(EarlyCycleLSUAnalysis::doesUnschedulableLoopContainLSU(model)) << type->text();
    }
    ring({&neg, &make(top, "abs", A_ABS_BLOCK)});
    EXPECT_FALSE(EarlyCycleLSUAnalysis::doesUnschedulableLoopContainLSU(top));
}

TEST_F(EarlyCycle, seesALoopThroughTwoMemories) {
    ring({&make(top, "a", A_EXTMEM_READ_BLOCK), &make(top, "b", A_SHARED_MEM_BLOCK)});
    EXPECT_TRUE(EarlyCycleLSUAnalysis::doesUnschedulableLoopContainLSU(top));
}

/// An accumulator that scales what it feeds back.
class AdderFeedback : public EarlyCycle {
  protected:
    AdderFeedback() {
        top.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
        shift.setParam(A_BIT_SELECT_BIT_OFFSET, value("1"));
        ring({&adder, &shift, &wait});
        connect(neg, adder, "1");
    }
    bool isSuppressed(const Block &block) { return block[A_TESSELLATION_SPLIT_WIDTH] == value("-1"); }
    bool suppresses() {
        for (Block &block : top) {
            block.setParam(A_TESSELLATION_SPLIT_WIDTH, nullptr);
        }
        EarlyCycleAdderAnalysis::suppressPipeliningOfAdderFeedbackLoops(design);
        EXPECT_EQ(isSuppressed(adder), isSuppressed(shift));
        EXPECT_EQ(isSuppressed(adder), isSuppressed(wait));
        EXPECT_FALSE(isSuppressed(neg));
        return isSuppressed(adder);
    }
    Block &adder = make(top, "adder", A_ADD_BLOCK);
    Block &shift = make(top, "shift", A_BIT_SELECT_BLOCK);
    Block &wait = delay(top, "wait", 1);
};

TEST_F(AdderFeedback, keepsAddersWholeWithLessThanTwoCycles) {
    EXPECT_TRUE(suppresses());
    wait.setParam(A_DELAY_LENGTH, value("0"));
    EXPECT_TRUE(suppresses());
    wait.setParam(A_DELAY_LENGTH, value("2"));
    EXPECT_FALSE(suppresses());
}

TEST_F(AdderFeedback, concernsEachKindOfAdderOfTwo) {
    for (const StaticString *type : {&A_SUB_BLOCK, &A_ADDSUB_BLOCK, &A_ADD_SLOAD_BLOCK}) {
        adder.setParam(A_BLOCK_TYPE, *type);
        EXPECT_TRUE(suppresses()) << type->text();
    }
    adder.setParam(A_BLOCK_TYPE, A_ABS_BLOCK);
    EXPECT_FALSE(suppresses());
    adder.setParam(A_BLOCK_TYPE, A_ADD_BLOCK);
    connect(neg, adder, "2");
    EXPECT_FALSE(suppresses());
}

TEST_F(AdderFeedback, needsAShiftedFeedback) {
    shift.setParam(A_BIT_SELECT_BIT_OFFSET, value("0"));
    EXPECT_FALSE(suppresses());
    shift.setParam(A_BIT_SELECT_BIT_OFFSET, nullptr);
    EXPECT_FALSE(suppresses());
    shift.setParam(A_BIT_SELECT_BIT_OFFSET, value("-1"));
    EXPECT_TRUE(suppresses());
}

TEST_F(AdderFeedback, takesTheWorstLoopThatIsShifted) {
    // A shorter way round without a shift does not count; the shifted one has slack enough.
    wait.setParam(A_DELAY_LENGTH, value("3"));
    Block &direct = delay(top, "direct", 0);
    connect(adder, direct);
    connect(direct, adder, "1");
    EXPECT_FALSE(suppresses());
    EXPECT_FALSE(isSuppressed(direct));
    wait.setParam(A_DELAY_LENGTH, value("1"));
    EXPECT_TRUE(suppresses());
    EXPECT_FALSE(isSuppressed(direct));
}

TEST_F(AdderFeedback, endsAtDelaysThatMayChange) {
    wait.setParam(A_DELAY_EQUIV_GROUP, value("g"));
    EXPECT_FALSE(suppresses());
    wait.setParam(A_DELAY_EQUIV_GROUP, value("3"));
    EXPECT_TRUE(suppresses());
    wait.setParam(A_DELAY_LENGTH, nullptr);
    EXPECT_FALSE(suppresses());
}

TEST_F(AdderFeedback, endsAtOtherAdders) {
    Block &other = make(top, "other", A_SUB_BLOCK);
    ring({&adder, &other, &shift, &wait});
    EXPECT_FALSE(suppresses());
    other.setParam(A_BLOCK_TYPE, A_ADDSUB_BLOCK);
    EXPECT_TRUE(suppresses());
    EXPECT_TRUE(isSuppressed(other));
}

TEST_F(AdderFeedback, leavesAddersThatAreAlreadySettled) {
    adder.setParam(A_TESSELLATION_SPLIT_WIDTH, value("16"));
    EarlyCycleAdderAnalysis::suppressPipeliningOfAdderFeedbackLoops(design);
    EXPECT_EQ(adder[A_TESSELLATION_SPLIT_WIDTH], value("16"));
    EXPECT_FALSE(shift[A_TESSELLATION_SPLIT_WIDTH]);
}

TEST_F(AdderFeedback, concernsScheduledModelsAtTheTop) {
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
    EXPECT_FALSE(suppresses());
    // Inside of a scheduled model, it is looked at from there.
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    Model &above = *Model::create(design, "above");
    Block::create(above, "sub", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, top);
    above.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    EXPECT_TRUE(suppresses());
    above.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
    EXPECT_TRUE(suppresses());
}

// A random graph of negations and delays has a loop exactly if one block reaches itself, and the least slack is that of
// the shortest ways.
RC_GTEST_PROP(EarlyCycleProperty, tellsTheLeastSlackThroughEachBlock, ()) {
    constexpr int kFar = 1000000;
    const auto size = *rc::gen::inRange<std::size_t>(1, 8);
    const auto lengths = *rc::gen::container<std::vector<int>>(size, rc::gen::inRange(-1, 4));
    const auto sources = *rc::gen::container<std::vector<std::vector<std::size_t>>>(
        size, rc::gen::container<std::vector<std::size_t>>(rc::gen::inRange<std::size_t>(0, size)));
    ContextMgr mgr;
    Design design(mgr.context());
    Model &model = *Model::create(design, "m");
    std::vector<Block *> blocks;
    for (std::size_t i = 0; i < size; ++i) {
        blocks.push_back(Block::create(model, "b" + std::to_string(i), lengths[i] < 0 ? A_NEG_BLOCK : A_DELAY_BLOCK));
        Wire::create(*blocks.back(), A_PRIM_WIRE_OUT);
        if (lengths[i] >= 0) {
            blocks.back()->setParam(A_DELAY_LENGTH, NumberValue::get(lengths[i], mgr.context()));
        }
    }
    std::vector<std::vector<int>> way(size, std::vector<int>(size, kFar));
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t port = 0; port < sources[i].size(); ++port) {
            blocks[i]->setParam(NumberValue::get(static_cast<int>(port), mgr.context()),
                                *blocks[sources[i][port]]->getWire(A_PRIM_WIRE_OUT));
            way[sources[i][port]][i] = std::max(lengths[i], 0);
        }
    }
    for (std::size_t by = 0; by < size; ++by) {
        for (std::size_t from = 0; from < size; ++from) {
            for (std::size_t to = 0; to < size; ++to) {
                way[from][to] = std::min(way[from][to], way[from][by] + way[by][to]);
            }
        }
    }
    struct Policy : LoopsOfNegations {
        void worstSlackPath(const std::vector<const Block *> &path, int slack) override {
            slacks.emplace_back(path.front(), slack);
        }
        std::vector<std::pair<const Block *, int>> slacks;
    } policy;
    std::vector<std::pair<const Block *, int>> wanted;
    for (std::size_t i = 0; i < size; ++i) {
        if (lengths[i] < 0 && way[i][i] < kFar) {
            wanted.emplace_back(blocks[i], way[i][i]);
        }
    }
    RC_ASSERT(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(model, &policy) == !wanted.empty());
    std::sort(policy.slacks.begin(), policy.slacks.end());
    std::sort(wanted.begin(), wanted.end());
    RC_ASSERT(policy.slacks == wanted);
}

} // namespace
} // namespace orvo
