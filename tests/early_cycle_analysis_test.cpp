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
#include <map>

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

TEST_F(EarlyCycle, leavesOutTheStallOfEachBlockThatHasOne) {
    const std::pair<const StaticString *, const StaticString *> stalls[] = {
        {&A_STALLENABLE_BLOCK, &A_STALLENABLE_WIRE_STALL_BACK},
        {&A_STALLENTER_BLOCK, &A_STALLENTER_WIRE_STALL_BACK},
        {&A_STALLEXIT_BLOCK, &A_STALLEXIT_WIRE_STALL_BACK},
        {&A_STALLREG_BLOCK, &A_STALLREG_WIRE_STALL_BACK},
    };
    for (const auto &[type, wire] : stalls) {
        Block &stalled = *Block::create(top, type->text(), *type);
        stalled.setParam(value("any"), out(neg));
        for (const auto &[other, name] : stalls) {
            neg.setParam(value("0"), *Wire::create(stalled, *name));
            EXPECT_EQ(plainlyFound(top), type != other) << type->text() << ' ' << name->text();
        }
    }
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

TEST_F(EarlyCycle, carriesSignalsThroughPipesEachForItself) {
    Block &pipe = make(top, "pipe", A_PIPE_BLOCK);
    Wire &a = *Wire::create(pipe, "a");
    pipe.setParam(value("0"), out(neg));
    pipe.setParam(value("a"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"));
    neg.setParam(value("0"), a);
    EXPECT_FALSE(plainlyFound(top));
    neg.setParam(value("0"), out(pipe));
    EXPECT_TRUE(plainlyFound(top));
    // A signal that comes back to the pipe under another name is no loop by itself.
    pipe.setParam(value("a"), out(pipe));
    neg.setParam(value("0"), a);
    EXPECT_EQ(toldOf(top), Told({"0: neg pipe pipe"}));
}

TEST_F(EarlyCycle, passesOverWiresOfOtherModels) {
    Model &other = *Model::create(design, "other");
    Block &foreign = make(other, "neg", A_NEG_BLOCK);
    connect(neg, foreign);
    connect(foreign, neg);
    EXPECT_EQ(toldOf(top), Told());
    connect(neg, neg);
    EXPECT_EQ(toldOf(top), Told({"0: neg"}));
}

/// Looks at loops through one type, and perhaps ends all ways at another one.
struct LoopsOfType : LoopsOfNegations {
    explicit LoopsOfType(const StaticString &start, const StaticString *end = nullptr) : janus(start), wall(end) {}
    bool isJanusBlock(const Block *block) const override { return block->type() == janus.get_ptr(); }
    bool preventsFurtherAnalysis(const Block *block) const override {
        return wall != nullptr && block->type() == wall->get_ptr();
    }
    bool furtherAnalysis() const override { return tells; }
    const StaticString &janus;
    const StaticString *wall;
    bool tells = true;
};

TEST_F(EarlyCycle, asksOfTheBlocksThatCarrySignalsByName) {
    for (const StaticString *type : {&A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK, &A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK,
                                     &A_BOUNDARY_BLOCK, &A_UNSCHED_BLOCK, &A_PIPE_BLOCK}) {
        Block &edge = *Block::create(top, type->text(), *type);
        edge.setParam(value("a"), out(neg));
        neg.setParam(value("0"), *Wire::create(edge, "a"));
        EXPECT_EQ(toldOf(top), Told({"0: neg " + type->text()}));
        LoopsOfType edges(*type);
        EXPECT_TRUE(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(top, &edges)) << type->text();
        EXPECT_EQ(edges.told, Told({"0: " + type->text() + " neg"}));
        LoopsOfType walled(A_NEG_BLOCK, type);
        EXPECT_FALSE(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(top, &walled)) << type->text();
        walled.tells = false;
        EXPECT_FALSE(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(top, &walled)) << type->text();
    }
}

TEST_F(EarlyCycle, tellsEachSignalThatABoundaryCarries) {
    Block &edge = *Block::create(top, "edge", A_SIGNAL_IN_BLOCK);
    Block &other = make(top, "other", A_NEG_BLOCK);
    edge.setParam(value("a"), out(neg));
    edge.setParam(value("b"), out(other));
    neg.setParam(value("0"), *Wire::create(edge, "a"));
    other.setParam(value("0"), *Wire::create(edge, "b"));
    LoopsOfType edges(A_SIGNAL_IN_BLOCK);
    EXPECT_TRUE(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(top, &edges));
    std::sort(edges.told.begin(), edges.told.end());
    EXPECT_EQ(edges.told, Told({"0: edge neg", "0: edge other"}));
    // A constraint that ends at the wire closes a loop that does not pass the block.
    edge.setParam(value("a"), nullptr);
    edge.setParam(value("b"), nullptr);
    constrain(top, "((0 synthLConstraintGE 1))");
    neg.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (0) ()))"));
    edge.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((a true () (0)))"));
    EXPECT_EQ(toldOf(top), Told({"1: neg"}));
}

TEST_F(EarlyCycle, pairsWhatGoesWithTheDataOfAChannel) {
    const std::pair<const StaticString *, const StaticString *> pairs[] = {
        {&A_PORT_VALID, &A_WIRE_VALID},
        {&A_PORT_CHANNEL, &A_WIRE_CHANNEL},
        {&A_PORT_PACKET_BEGIN, &A_WIRE_PACKET_BEGIN},
    };
    for (const StaticString *type : {&A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK}) {
        Block &edge = *Block::create(top, type->text(), *type);
        for (const auto &[port, wire] : pairs) {
            Wire::create(edge, *wire);
        }
        for (const auto &[port, wire] : pairs) {
            edge.setParam(*port, out(neg));
            for (const auto &[other, name] : pairs) {
                neg.setParam(value("0"), *edge.getWire(*name));
                EXPECT_EQ(plainlyFound(top), port == other) << port->text() << ' ' << name->text();
            }
            edge.setParam(*port, nullptr);
        }
        // Data goes from one lane to no other.
        edge.setParam(value("x"), out(neg));
        neg.setParam(value("0"), *Wire::create(edge, "y"));
        EXPECT_FALSE(plainlyFound(top));
    }
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

/// A model "sub" with a marker, in which a constraint may start that ends at the one negation of "top".
class EarlyCycleAcross : public EarlyCycleInside {
  protected:
    EarlyCycleAcross() {
        tail.setParam(value("x"), *Wire::create(*Block::create(sub, "in", A_INPUT_BLOCK), "x"));
        neg.setParam(value("0"), *Wire::create(*Block::create(top, "source", A_CONST_BLOCK), "c"));
        constrain(top, "((0 synthLConstraintGE 3))");
    }
    void startsAt(const std::string &chain) {
        tail.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((x " + chain + " (0) ()))"));
    }
    void endsAt(Block &block, const std::string &chain) {
        block.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 " + chain + " () (0)))"));
    }
    Model &sub = *Model::create(design, "sub");
    Block &tail = *Block::create(sub, "tail", A_SIGNAL_OUT_BLOCK);
};

TEST_F(EarlyCycleAcross, joinsEndsForEveryInstanceAcrossTheHierarchy) {
    instance(top, "i", sub).setParam(value("x"), out(neg));
    endsAt(neg, "true");
    startsAt("((top i))");
    EXPECT_EQ(toldOf(top), Told({"3: neg"}));
    startsAt("true");
    EXPECT_EQ(toldOf(top), Told({"3: neg"}));
    // The other way round: from the model around it down into the instance.
    neg.setParam(A_SCHEDULE_CONSTRAINT_PORTS, nullptr);
    Block &head = make(sub, "head", A_NEG_BLOCK);
    head.setParam(value("0"), *sub.getBlock(value("in"))->getWire(value("x")));
    Block::create(sub, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(head));
    neg.setParam(value("0"), *top.getBlock(value("i"))->getWire(value("y")));
    top.getBlock(value("i"))->setParam(value("x"), nullptr);
    tail.setParam(A_SCHEDULE_CONSTRAINT_PORTS, nullptr);
    neg.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (0) ()))"));
    endsAt(head, "true");
    EXPECT_EQ(toldOf(top), Told({"3: neg head", "3: head neg"}));
}

TEST_F(EarlyCycleAcross, keepsInstancesOfTheUpperModelApart) {
    // Each "top" has its own "sub": what starts in one does not end in the other.
    instance(top, "i", sub);
    Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(neg));
    Block::create(top, "in", A_INPUT_BLOCK);
    top.getBlock(value("i"))->setParam(value("x"), *Wire::create(*top.getBlock(value("in")), "x"));
    Model &above = *Model::create(design, "above");
    Block &first = instance(above, "first", top);
    Block &second = instance(above, "second", top);
    startsAt("true");
    endsAt(neg, "true");
    second.setParam(value("x"), *first.getWire(value("y")));
    EXPECT_EQ(toldOf(above), Told());
    first.setParam(value("x"), *second.getWire(value("y")));
    EXPECT_EQ(toldOf(above), Told({"6: neg neg", "6: neg neg"}));
    second.setParam(value("x"), nullptr);
    first.setParam(value("x"), *first.getWire(value("y")));
    EXPECT_EQ(toldOf(above), Told({"3: neg"}));
}

TEST_F(EarlyCycleAcross, joinsNoEndsOfTwoInstancesOfOneModel) {
    Block &head = make(sub, "head", A_NEG_BLOCK);
    head.setParam(value("0"), *Wire::create(*Block::create(sub, "c", A_CONST_BLOCK), "c"));
    Block::create(sub, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(head));
    startsAt("true");
    endsAt(head, "true");
    Block &first = instance(top, "first", sub);
    Block &second = instance(top, "second", sub);
    first.setParam(value("x"), *second.getWire(value("y")));
    EXPECT_EQ(toldOf(top), Told());
    second.setParam(value("x"), *first.getWire(value("y")));
    EXPECT_EQ(toldOf(top), Told({"6: head head", "6: head head"}));
}

TEST_F(EarlyCycleAcross, joinsAllEndsOfModelsThatHaveNothingToDoWithEachOther) {
    Model &other = *Model::create(design, "other");
    Block &head = make(other, "head", A_NEG_BLOCK);
    Block::create(other, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(head));
    Block &source = instance(top, "source2", other);
    instance(top, "source3", other);
    instance(top, "i", sub).setParam(value("x"), *source.getWire(value("y")));
    startsAt("true");
    head.setParam(value("0"), *Wire::create(*Block::create(other, "c", A_CONST_BLOCK), "c"));
    endsAt(head, "true");
    EXPECT_EQ(toldOf(top), Told({"3: head"}));
}

TEST_F(EarlyCycle, saturatesWhatIsBeyondAnInteger) {
    constexpr int kMost = std::numeric_limits<int>::max();
    constexpr int kLeast = std::numeric_limits<int>::min();
    const std::pair<const char *, int> lengths[] = {
        {"2147483646", 2147483646},
        {"2147483647", kMost},
        {"2147483648", kMost},
        {"4294967295", kMost},
        {"4294967296", kMost},
        {"36893488147419103232", kMost},
        {"-2147483648", kLeast},
        {"-2147483649", kLeast},
        {"-4294967297", kLeast},
        {"-36893488147419103232", kLeast},
        {"0x0.8", 0},
        {"0x1.8", 1},
        {"-0x1.8", -1},
        {"+nan", 0},
        {"+inf", 0},
    };
    Block &wait = delay(top, "wait", 0);
    ring({&neg, &wait});
    for (const auto &[text, cycles] : lengths) {
        wait.setParam(A_DELAY_LENGTH, value(text));
        EXPECT_EQ(toldOf(top), Told({std::to_string(cycles) + ": neg wait"})) << text;
        EXPECT_EQ(plainlyFound(top), cycles < 1) << text;
    }
    connect(make(top, "source", A_ABS_BLOCK), neg);
    neg.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (0)))"));
    wait.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (0) ()))"));
    wait.setParam(A_DELAY_LENGTH, value("2147483647"));
    constrain(top, "((0 synthLConstraintGE 4294967296))");
    EXPECT_EQ(toldOf(top), Told({std::to_string(kMost) + ": neg wait"}));
    constrain(top, "((0 synthLConstraintGE -4294967296))");
    EXPECT_EQ(toldOf(top), Told({"-1: neg wait"}));
}

/// Two ways from "neg" to "sum", of two and of three cycles, and a constraint along the latter.
class EarlyCycleTwoWays : public EarlyCycle {
  protected:
    EarlyCycleTwoWays() {
        connect(neg, two);
        connect(neg, three);
        connect(two, sum, "0");
        connect(sum, neg);
        three.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (0) ()))"));
        sum.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (0)))"));
    }
    void latency(int cycles) { constrain(top, "((0 synthLConstraintGE " + std::to_string(cycles) + "))"); }
    Block &two = delay(top, "two", 2);
    Block &three = delay(top, "three", 3);
    Block &sum = make(top, "sum", A_ADD_BLOCK);
};

TEST_F(EarlyCycleTwoWays, tellsTheWorstWhereALatencyIsNegative) {
    latency(0);
    EXPECT_EQ(toldOf(top), Told({"2: neg two sum"}));
    latency(-2);
    EXPECT_EQ(toldOf(top), Told({"1: neg three sum"}));
    latency(-5);
    EXPECT_EQ(toldOf(top), Told({"-2: neg three sum"}));
}

TEST_F(EarlyCycleTwoWays, countsNegativeLatenciesForAdders) {
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    const PureValueRef mark = value("-1");
    // The ways fork in front of the shift, or behind it.
    for (const auto &[adder, shift] : {std::pair(&neg, &sum), std::pair(&sum, &neg)}) {
        adder->setParam(A_BLOCK_TYPE, A_SUB_BLOCK);
        shift->setParam(A_BLOCK_TYPE, A_BIT_SELECT_BLOCK);
        shift->setParam(A_BIT_SELECT_BIT_OFFSET, value("1"));
        for (const int cycles : {0, -1, -2}) {
            latency(cycles);
            for (Block &block : top) {
                block.setParam(A_TESSELLATION_SPLIT_WIDTH, nullptr);
            }
            EarlyCycleAdderAnalysis::suppressPipeliningOfAdderFeedbackLoops(design);
            for (const Block *block : {adder, &three, shift}) {
                EXPECT_EQ((*block)[A_TESSELLATION_SPLIT_WIDTH] == mark, cycles < -1) << cycles;
            }
            EXPECT_FALSE(two[A_TESSELLATION_SPLIT_WIDTH]);
        }
    }
}

TEST_F(EarlyCycleTwoWays, tellsNoMoreThanANegativeCycleOnTheWay) {
    latency(1);
    Block &back = delay(top, "back", -4);
    ring({&back});
    connect(neg, back, "in");
    // No loop through the negation can pass it.
    EXPECT_EQ(toldOf(top), Told({"2: neg two sum"}));
    connect(back, sum, "1");
    EXPECT_EQ(toldOf(top), Told({"-4: neg back sum"}));
    back.setParam(A_DELAY_LENGTH, value("4"));
    back.setParam(value("0"), nullptr);
    EXPECT_EQ(toldOf(top), Told({"2: neg two sum"}));
    // Here the way has more cycles than the one that can be passed again and again.
    constrain(top, "((0 synthLConstraintGE 1) (1 synthLConstraintGE -7))");
    Block &last = delay(top, "last", 6);
    connect(last, neg);
    connect(sum, last);
    last.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (1) ()))"));
    last.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (1)))"));
    EXPECT_EQ(toldOf(top), Told({"-1: neg two sum last"}));
}

TEST_F(EarlyCycleTwoWays, leavesOutNegativeCyclesBehindABlockThatEndsTheSearch) {
    struct Policy : LoopsOfNegations {
        bool isJanusBlock(const Block *block) const override {
            return LoopsOfNegations::isJanusBlock(block) || preventsFurtherAnalysis(block);
        }
        bool isBlockSalient(const Block *block) const override { return salient == nullptr || salient == block; }
        const Block *salient = nullptr;
        bool preventsFurtherAnalysis(const Block *block) const override {
            return block->type() == A_ABS_BLOCK.get_ptr();
        }
    } policy;
    latency(1);
    Block &back = delay(top, "back", -4);
    Block &wall = make(top, "wall", A_ABS_BLOCK);
    ring({&back});
    // Behind the negation, and in front of it.
    connect(neg, back, "in");
    connect(back, wall);
    connect(wall, neg, "1");
    EXPECT_TRUE(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(top, &policy));
    EXPECT_EQ(policy.told, Told({"2: neg two sum", "-4: wall neg back"}));
    policy.told.clear();
    policy.salient = &two;
    EXPECT_TRUE(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(top, &policy));
    EXPECT_EQ(policy.told, Told({"2: neg two sum", "-4: wall neg two sum back"}));
    policy.told.clear();
    policy.salient = nullptr;
    connect(wall, back, "in");
    connect(neg, wall);
    connect(back, neg, "1");
    EXPECT_TRUE(EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(top, &policy));
    EXPECT_EQ(policy.told, Told({"2: neg two sum", "-4: wall back neg"}));
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

TEST_F(AdderFeedback, readsTheShiftAsAnInteger) {
    for (const char *none : {"0x0.8", "-0x0.8", "+nan", "+inf", "some", "(1)"}) {
        shift.setParam(A_BIT_SELECT_BIT_OFFSET, value(none));
        EXPECT_FALSE(suppresses()) << none;
    }
    for (const char *some : {"0x1.8", "4294967296"}) {
        shift.setParam(A_BIT_SELECT_BIT_OFFSET, value(some));
        EXPECT_TRUE(suppresses()) << some;
    }
}

TEST_F(AdderFeedback, takesASplitWidthThatIsNoNumberForNone) {
    adder.setParam(A_TESSELLATION_SPLIT_WIDTH, value("wide"));
    EarlyCycleAdderAnalysis::suppressPipeliningOfAdderFeedbackLoops(design);
    EXPECT_TRUE(isSuppressed(adder));
}

TEST_F(AdderFeedback, leavesAnAdderOfOneAlone) {
    Block &single = make(top, "single", A_ADD_BLOCK);
    connect(neg, adder, "0");
    ring({&single, &shift, &wait});
    ASSERT_EQ(single.port_size(), 1U);
    EarlyCycleAdderAnalysis::suppressPipeliningOfAdderFeedbackLoops(design);
    EXPECT_FALSE(isSuppressed(single));
    connect(neg, single, "1");
    EarlyCycleAdderAnalysis::suppressPipeliningOfAdderFeedbackLoops(design);
    EXPECT_TRUE(isSuppressed(single));
}

TEST_F(AdderFeedback, endsAtDelaysWithoutAFiniteLength) {
    for (const char *length : {"+nan", "+inf", "-inf"}) {
        wait.setParam(A_DELAY_LENGTH, value(length));
        ASSERT_TRUE(numberVR(wait[A_DELAY_LENGTH]) && numberVR(wait[A_DELAY_LENGTH])->isSpecial()) << length;
        EXPECT_FALSE(suppresses()) << length;
    }
    wait.setParam(A_DELAY_LENGTH, value("4294967296"));
    EXPECT_FALSE(suppresses());
    wait.setParam(A_DELAY_LENGTH, value("0x1.8"));
    EXPECT_TRUE(suppresses());
}

TEST_F(AdderFeedback, addsTheLatencyOfAConstraint) {
    // The constraint closes the loop instead of a wire.
    connect(neg, adder, "0");
    EXPECT_FALSE(suppresses());
    wait.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (0) ()))"));
    adder.setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (0)))"));
    constrain(top, "((0 synthLConstraintGE 0))");
    EXPECT_TRUE(suppresses());
    constrain(top, "((0 synthLConstraintGE 1))");
    EXPECT_FALSE(suppresses());
    wait.setParam(A_DELAY_LENGTH, value("3"));
    EXPECT_FALSE(suppresses());
    constrain(top, "((0 synthLConstraintGE -2))");
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

TEST_F(AdderFeedback, demandsTheLengthOfADelay) {
    EarlyCycleAdderAnalysis analysis;
    EXPECT_EQ(analysis.getSlackDelay(&wait), 1);
    EXPECT_EQ(analysis.getSlackDelay(&adder), 0);
    wait.setParam(A_DELAY_LENGTH, value("long"));
    EXPECT_EXIT(analysis.getSlackDelay(&wait), ::testing::ExitedWithCode(1), "delayLength.valid\\(\\)");
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

TEST_F(AdderFeedback, looksAtAModelFromEachScheduledParentButNoOther) {
    // The loop is closed around the model, or not.
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    adder.setParam(value("0"), *Wire::create(in, "x"));
    Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(wait));
    const auto instantiate = [&](const std::string &name, const ValueRef &timed, bool isRing) {
        Model &holder = *Model::create(design, name);
        holder.setParam(A_SYNTH_CIRCUIT_TIMED, timed);
        Block &block = *Block::create(holder, "sub", A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, top);
        block.setParam(value("x"), *Wire::create(isRing ? block : *Block::create(holder, "c", A_CONST_BLOCK), "y"));
    };
    instantiate("unscheduled", A_FALSE, true);
    EXPECT_FALSE(suppresses());
    instantiate("scheduled", A_TRUE, false);
    EXPECT_FALSE(suppresses());
    instantiate("closed", A_TRUE, true);
    EXPECT_TRUE(suppresses());
    // A loop inside of it is seen from any of them.
    design.getModel(value("closed"))->setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
    EXPECT_FALSE(suppresses());
    ring({&adder, &shift, &wait});
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

// With delays of less than no cycles, the ways are those of Bellman and Ford in the graph without the start and without
// the other blocks that prevent further analysis. Where a negative cycle lies on them, the slack is negative at least.
RC_GTEST_PROP(EarlyCycleProperty, tellsTheLeastSlackWithNegativeDelays, ()) {
    constexpr int kFar = 1000000;
    const auto size = *rc::gen::inRange<std::size_t>(1, 8);
    const auto lengths = *rc::gen::container<std::vector<int>>(size, rc::gen::inRange(-2, 5));
    const auto sources = *rc::gen::container<std::vector<std::vector<std::size_t>>>(
        size, rc::gen::container<std::vector<std::size_t>>(rc::gen::inRange<std::size_t>(0, size)));
    const auto walls =
        *rc::gen::container<std::vector<bool>>(size, rc::gen::weightedElement<bool>({{3, false}, {1, true}}));
    ContextMgr mgr;
    Design design(mgr.context());
    Model &model = *Model::create(design, "m");
    std::vector<Block *> blocks;
    for (std::size_t i = 0; i < size; ++i) {
        blocks.push_back(Block::create(model, "b" + std::to_string(i), A_DELAY_BLOCK));
        Wire::create(*blocks.back(), A_PRIM_WIRE_OUT);
        blocks.back()->setParam(A_DELAY_LENGTH, NumberValue::get(lengths[i], mgr.context()));
        if (walls[i]) {
            blocks.back()->setParam(A_DELAY_EQUIV_GROUP, A_TRUE);
        }
    }
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t port = 0; port < sources[i].size(); ++port) {
            blocks[i]->setParam(NumberValue::get(static_cast<int>(port), mgr.context()),
                                *blocks[sources[i][port]]->getWire(A_PRIM_WIRE_OUT));
        }
    }
    const auto reaches = [&](std::size_t from, std::size_t to) {
        const auto isOpen = [&](std::size_t block) { return block == to || !walls[block]; };
        std::vector<bool> seen(size, false);
        seen[from] = true;
        for (std::size_t round = 0; round < size; ++round) {
            for (std::size_t i = 0; i < size; ++i) {
                seen[i] = seen[i] || std::any_of(sources[i].begin(), sources[i].end(),
                                                 [&](std::size_t source) { return seen[source] && isOpen(source); });
            }
        }
        return static_cast<bool>(seen[to]);
    };
    struct Policy : LoopsOfNegations {
        bool isJanusBlock(const Block *) const override { return true; }
        bool preventsFurtherAnalysis(const Block *block) const override {
            return static_cast<bool>((*block)[A_DELAY_EQUIV_GROUP]);
        }
        void worstSlackPath(const std::vector<const Block *> &path, int slack) override {
            slacks.emplace(path.front(), slack);
        }
        std::map<const Block *, int> slacks;
    } policy;
    EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(model, &policy);
    for (std::size_t start = 0; start < size; ++start) {
        // With the delays of all blocks but the last; back at the start, of all.
        std::vector<int> way(size, kFar);
        int back = kFar;
        bool isEndless = false;
        for (std::size_t round = 0; round <= size + 1; ++round) {
            for (std::size_t i = 0; i < size; ++i) {
                for (const std::size_t source : sources[i]) {
                    const int before = source == start ? 0 : way[source];
                    if (before >= kFar / 2 || (walls[i] && i != start) || !reaches(i, start)) {
                        continue;
                    }
                    const int here = before + lengths[source];
                    if (i == start) {
                        back = std::min(back, here);
                    } else if (here < way[i]) {
                        way[i] = here;
                        isEndless = isEndless || round > size;
                    }
                }
            }
        }
        const auto told = policy.slacks.find(blocks[start]);
        RC_ASSERT((told != policy.slacks.end()) == (back < kFar / 2));
        if (told != policy.slacks.end()) {
            RC_ASSERT((isEndless ? told->second < 0 : told->second == back));
        }
    }
}

} // namespace
} // namespace orvo
