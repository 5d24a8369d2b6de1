// Terminals and delays of no length become wires; the edges of domains and the constraints at them stay in force.
#include "orvo/elideterminalpass.h"

#include "support/domainrig.h"
#include "support/invariants.h"
#include "support/onepass.h"
#include "support/randomdesigns.h"
#include "support/simulatorfixture.h"

#include <orvo/pass.h>

#include <rapidcheck/gtest.h>

#include <map>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

void elide(Design &design) {
    PassScheduler scheduler;
    scheduler.addPass("ElideTerminalPass");
    scheduler.apply(design);
    EXPECT_TRUE(test::checkInvariants(design));
}

Lines namesIn(const Model &model) {
    Lines names;
    for (const Block &block : model) {
        names.push_back(block.getName()->toString());
    }
    return names;
}

class ElideDelayTest : public test::SimulatorFixture {
  protected:
    Wire &delay(Model &in, const std::string &name, Wire &wire, const char *length, const Texts &params = {}) {
        Block &made = block(in, name, "delayBlock", params);
        if (*length != 0) {
            made.setParam(A_DELAY_LENGTH, ValueRef(value(length)));
        }
        made.setParam(value("0"), wire);
        return *Wire::create(made, A_PRIM_WIRE_OUT);
    }
    void runAndCompare() { test::runAndCompare(design, "ElideTerminalPass", 50); }
    bool isThere(const std::string &name) { return top.getBlock(value(name)) != nullptr; }
    static std::string text(const Node &node, const StaticString &key) {
        const ValueRef found = node.getParam(key);
        return found ? found->toString() : "";
    }
    /// Entries that stand at port 0 and at the output of a block.
    void constrain(Block &block, const std::string &id) {
        block.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (" + id + ") ()))", mgr.context()));
        block.setParam(A_SCHEDULE_CONSTRAINT_WIRES,
                       Value::parse("((primWireOut true () (" + id + ")))", mgr.context()));
    }

    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
};

TEST_F(ElideDelayTest, takesOutDelaysOfLengthZeroOfAllKindsOfSignals) {
    for (const char *type : {"s5.1", "[3] u2.0", "c s4.0", "float(10,5)", "{u2.0,s3.0}"}) {
        Wire &x = input(top, "x", type);
        output(top, "y", delay(top, "d", x, "0"));
        runAndCompare();
        EXPECT_FALSE(isThere("d")) << type;
        EXPECT_EQ(top.getOutputBlock()->port_begin()->peekWire(), &x);
        while (top.begin() != top.end()) {
            delete &*top.begin();
        }
    }
}

TEST_F(ElideDelayTest, leavesDelaysOfAnyOtherLength) {
    Wire &x = input(top, "x", "s5.1");
    for (const char *length : {"1", "-1", "0x8p-4", "nothing", "", "(vectorRollTag)", "(0 1)"}) {
        output(top, "y", delay(top, "d", x, length));
        const std::string before = test::xmlOf(design);
        elide(design);
        EXPECT_EQ(test::xmlOf(design), before) << length;
        delete top.getBlock(value("d"));
    }
}

TEST_F(ElideDelayTest, takesOutADelayWhoseLanesAllHaveNoLength) {
    Wire &x = input(top, "x", "[2] s5.1");
    output(top, "y", delay(top, "d", x, "(vectorRollTag 0 0)"));
    output(top, "z", delay(top, "e", x, "(vectorRollTag 0 1)"));
    runAndCompare();
    EXPECT_FALSE(isThere("d"));
    EXPECT_TRUE(isThere("e"));
}

// The lengths of a group change together, and need not end at zero.
TEST_F(ElideDelayTest, leavesADelayWhoseLengthMayChange) {
    output(top, "y", delay(top, "d", input(top, "x", "s5.1"), "0", {{"delayEquivGroup", "group"}}));
    const std::string before = test::xmlOf(design);
    elide(design);
    EXPECT_EQ(test::xmlOf(design), before);
}

TEST_F(ElideDelayTest, leavesADelayThatReadsNothing) {
    Block &made = block(top, "d", "delayBlock", {{"delayLength", "0"}});
    output(top, "y", *Wire::create(made, A_PRIM_WIRE_OUT));
    elide(design);
    EXPECT_TRUE(isThere("d"));
}

TEST_F(ElideDelayTest, takesOutATerminalWhateverTheNameOfItsInput) {
    for (const auto &[port, wire] : {std::pair("0", "0"), std::pair("sig", "sig"), std::pair("3", "primWireOut")}) {
        Wire &x = input(top, "x", "s5.1");
        Block &made = block(top, "t", "terminalBlock");
        made.setParam(value(port), x);
        output(top, "y", *Wire::create(made, value(wire)));
        runAndCompare();
        EXPECT_FALSE(isThere("t")) << port;
        EXPECT_EQ(top.getOutputBlock()->port_begin()->peekWire(), &x);
        while (top.begin() != top.end()) {
            delete &*top.begin();
        }
    }
}

TEST_F(ElideDelayTest, leavesATerminalOfSeveralInputsOrNone) {
    Wire &x = input(top, "x", "s5.1");
    Block &made = block(top, "t", "terminalBlock");
    output(top, "y", *Wire::create(made, value("0")));
    elide(design);
    EXPECT_TRUE(isThere("t"));
    made.setParam(value("0"), x);
    made.setParam(value("1"), x);
    elide(design);
    EXPECT_TRUE(isThere("t"));
}

TEST_F(ElideDelayTest, keepsALoopOfDelaysToBeToldOf) {
    Block &first = block(top, "d1", "delayBlock", {{"delayLength", "0"}});
    Wire &second = delay(top, "d2", *Wire::create(first, A_PRIM_WIRE_OUT), "0");
    first.setParam(value("0"), second);
    output(top, "y", second);
    const std::string before = refusal(design, top);
    EXPECT_NE(before, "");
    elide(design);
    EXPECT_FALSE(isThere("d1"));
    EXPECT_TRUE(isThere("d2"));
    EXPECT_NE(refusal(design, top), "");
}

TEST_F(ElideDelayTest, handsMetadataToTheBlockInFront) {
    Block &source = block(top, "not", "notBlock");
    source.setParam(value("0"), input(top, "x", "s5.1"));
    output(top, "y",
           delay(top, "d", *Wire::create(source, A_PRIM_WIRE_OUT), "0", {{"metadataTuple", "((comment here))"}}));
    elide(design);
    EXPECT_FALSE(isThere("d"));
    bool isCarried = false;
    for (const Block &one : top) {
        isCarried = isCarried || text(one, A_METADATA) == "((comment here))";
    }
    EXPECT_TRUE(isCarried);
}

TEST_F(ElideDelayTest, movesConstraintsToTheReadersAndToTheSource) {
    Block &source = block(top, "not", "notBlock");
    source.setParam(value("0"), input(top, "x", "s5.1"));
    Wire &through = delay(top, "d", *Wire::create(source, A_PRIM_WIRE_OUT), "0");
    constrain(through.getBlock(), "5");
    Block &sum = block(top, "sum", "addBlock");
    sum.setParam(value("0"), through);
    sum.setParam(value("1"), through);
    output(top, "y", *Wire::create(sum, A_PRIM_WIRE_OUT));
    runAndCompare();
    EXPECT_FALSE(isThere("d"));
    EXPECT_EQ(text(sum, A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()) (1 true (5) ()))");
    EXPECT_EQ(text(source, A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
}

TEST_F(ElideDelayTest, movesConstraintsThroughAChainWhateverTheNames) {
    for (const auto &[front, back] : {std::pair<const char *, const char *>{"d1", "d2"}, {"d2", "d1"}}) {
        Design other(mgr.context());
        Model &model = *Model::create(other, "top");
        Block &source = block(model, "not", "notBlock");
        source.setParam(value("0"), input(model, "x", "s5.1"));
        Wire &first = delay(model, front, *Wire::create(source, A_PRIM_WIRE_OUT), "0");
        Wire &second = delay(model, back, first, "0");
        constrain(first.getBlock(), "5");
        Block &reader = block(model, "reader", "notBlock");
        reader.setParam(value("0"), second);
        output(model, "y", *Wire::create(reader, A_PRIM_WIRE_OUT));
        elide(other);
        EXPECT_EQ(text(reader, A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))") << front;
        EXPECT_EQ(text(source, A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))") << front;
    }
}

TEST_F(ElideDelayTest, movesTheConstraintsOfAWireThatNobodyReads) {
    Block &source = block(top, "not", "notBlock");
    source.setParam(value("0"), input(top, "x", "s5.1"));
    constrain(delay(top, "d", *Wire::create(source, A_PRIM_WIRE_OUT), "0").getBlock(), "5");
    elide(design);
    EXPECT_FALSE(isThere("d"));
    EXPECT_FALSE(isThere("probe"));
    EXPECT_EQ(text(source, A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
}

TEST_F(ElideDelayTest, movesTheConstraintsOfSingleInstances) {
    Model &below = *Model::create(design, "below");
    Block &source = block(below, "not", "notBlock");
    source.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), "x"));
    Block &gone = delay(below, "d", *Wire::create(source, A_PRIM_WIRE_OUT), "0").getBlock();
    output(below, "y", *gone.begin());
    for (const char *name : {"a", "b"}) {
        Block &use = block(top, name, "modelBlock");
        use.setParam(A_MODEL_NODE, below);
        use.setParam(value("x"), input(top, std::string("x") + name, "s5.1"));
        output(top, std::string("y") + name, *Wire::create(use, value("y")));
    }
    const char *entries = "((primWireOut ((top a)) () (5)) (primWireOut ((top b)) () (6)))";
    gone.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse(entries, mgr.context()));
    runAndCompare();
    EXPECT_EQ(text(source, A_SCHEDULE_CONSTRAINT_WIRES), entries);
}

/// The domains at ends that terminals and delays of no length do not take with them.
class ElidedTerminalEdges : public test::DomainRig {
  protected:
    using Domains = std::map<std::string, std::string>;

    /// Lies in one domain.
    Wire &delay(const std::string &name, Wire &from) { return operation(top, name, A_DELAY_BLOCK, {&from}); }
    /// Carries its domain through, as its ends have one name.
    Wire &terminal(const std::string &name, Wire &from) {
        Block &block = make(top, name, A_TERMINAL_BLOCK);
        block.setParam(value("0"), from);
        return wire(block, "0");
    }
    /// Gives the signal on, but no domain.
    Wire &apartTerminal(const std::string &name, Wire &from, const char *wireName = "w") {
        Block &block = make(top, name, A_TERMINAL_BLOCK);
        block.setParam(value("0"), from);
        return wire(block, wireName);
    }
    Wire &noDelay(const std::string &name, Wire &from) {
        Wire &made = delay(name, from);
        made.getBlock().setParam(A_DELAY_LENGTH, value("0"));
        return made;
    }
    static bool goes(const Block &block) {
        return block.type() == A_TERMINAL_BLOCK.get_ptr() || block.findParam(A_DELAY_LENGTH) != nullptr;
    }
    Domains domains() {
        info = DomainInference::inferDomains(design, DomainInference::DefaultInferenceModifier());
        Domains all;
        for (const Block &block : top) {
            if (goes(block)) {
                continue;
            }
            for (const Port &port : block.ports()) {
                all[block.getName()->toString() + " port " + port.getName()->toString()] =
                    of(block, port.getName()->toString());
            }
            for (const Wire &wire : block) {
                all[block.getName()->toString() + " wire " + wire.getName()->toString()] = of(wire);
            }
        }
        return all;
    }
    std::string edges() {
        const ValueRef all = top.getParam(A_SYNTH_SCHEDULE_DOMAINS);
        return all ? all->toString() : "";
    }
    /// Ends without a domain may get one that now flows to them.
    void expectKept(bool mayFlow = false) {
        const Domains before = domains();
        EXPECT_EQ(messages.lines, Lines());
        elide(design);
        Domains after = domains();
        EXPECT_EQ(messages.lines, Lines());
        for (const auto &[end, was] : before) {
            if (!mayFlow || was != "-") {
                EXPECT_EQ(after[end], was) << end;
            }
        }
    }
    Wire &driver = delay("d0", source(top, "s"));
};

TEST_F(ElidedTerminalEdges, aBeginAtTheOutputGoesToEachReader) {
    Wire &through = terminal("t", driver);
    delay("near", driver);
    delay("d1", through);
    operation(top, "both", A_ADD_BLOCK, {&through, &through});
    mark(top, "(" + begin("red", wireAt("t", "0")) + ")");
    expectKept();
    EXPECT_EQ(edges(), "(" + begin("red", portAt("d1")) + " " + begin("red", portAt("both")) + " " +
                           begin("red", portAt("both", "1")) + ")");
}

TEST_F(ElidedTerminalEdges, aBeginAtTheInputGoesToEachReader) {
    delay("near", driver);
    delay("d1", terminal("t", driver));
    mark(top, "(" + begin("red", portAt("t")) + ")");
    expectKept();
    EXPECT_EQ(edges(), "(" + begin("red", portAt("d1")) + ")");
}

TEST_F(ElidedTerminalEdges, anEndAtTheInputLeavesTheSourceAndItsOtherReadersTheirDomain) {
    delay("near", driver);
    delay("d1", terminal("t", driver));
    mark(top, "(" + end("blue", portAt("t")) + ")");
    expectKept();
}

TEST_F(ElidedTerminalEdges, anEndAtATerminalThatNobodyReadsLeavesTheSourceItsDomain) {
    delay("near", driver);
    terminal("t", driver);
    mark(top, "(" + end("blue", portAt("t")) + ")");
    expectKept();
    EXPECT_EQ(domains().at("near wire w"), "blue");
}

TEST_F(ElidedTerminalEdges, anEndAtTheOutputHoldsForTheSource) {
    delay("near", driver);
    delay("d1", noDelay("n", driver));
    mark(top, "(" + end("blue", wireAt("n")) + ")");
    expectKept(true);
    EXPECT_EQ(domains().at("near wire w"), "blue");
}

TEST_F(ElidedTerminalEdges, reachNoFurtherPastATerminalWhoseEndsHaveDifferentNames) {
    const std::string beginIn = begin("red", portAt("t"));
    const std::string beginOut = begin("red", wireAt("t"));
    const std::string endIn = end("blue", portAt("t"));
    const std::string endOut = end("blue", wireAt("t"));
    for (const std::string &specs :
         {beginIn, beginOut, endIn, endOut, beginIn + beginOut, beginIn + endOut, endIn + beginOut, endIn + endOut,
          endIn + begin("red", portAt("d1")), begin("red", portAt("d1")) + end("blue", portAt("near"))}) {
        SCOPED_TRACE(specs);
        delay("near", driver);
        delay("d1", apartTerminal("t", driver));
        mark(top, "(" + specs + ")");
        expectKept();
        EXPECT_EQ(top.getBlock(value("t")), nullptr);
        delete top.getBlock(value("d1"));
        delete top.getBlock(value("near"));
    }
}

TEST_F(ElidedTerminalEdges, ofATerminalReachTheOutputThatHasTheNameOfTheInput) {
    apartTerminal("t", driver);
    delay("d1", *top.getBlock(value("t"))->getWire(value("w")));
    delay("d2", wire(*top.getBlock(value("t")), "0"));
    mark(top, "(" + begin("red", portAt("t")) + ")");
    expectKept();
    EXPECT_EQ(domains().at("d2 wire w"), "red");
    EXPECT_EQ(domains().at("d1 wire w"), "-");
}

TEST_F(ElidedTerminalEdges, edgesOnBothSidesStayApart) {
    delay("near", driver);
    delay("d1", terminal("t", driver));
    mark(top, "(" + begin("red", wireAt("t", "0")) + " " + end("blue", portAt("t")) + ")");
    expectKept();
}

TEST_F(ElidedTerminalEdges, theNearestEdgeOfAChainCountsWhateverTheNames) {
    for (const auto &[first, last] : {std::pair<const char *, const char *>{"t1", "t2"}, {"t2", "t1"}}) {
        Wire &middle = noDelay(first, driver);
        delay("d1", middle);
        delay("d2", terminal(last, middle));
        mark(top, "(" + begin("red", wireAt(first)) + begin("blue", portAt(last)) + ")");
        expectKept();
        EXPECT_EQ(domains().at("d1 port 0"), "red");
        EXPECT_EQ(domains().at("d2 port 0"), "blue");
        delete top.getBlock(value("d1"));
        delete top.getBlock(value("d2"));
    }
}

TEST_F(ElidedTerminalEdges, anEdgeAtAReaderComesFirst) {
    Wire &through = terminal("t", driver);
    delay("d1", through);
    delay("d2", through);
    mark(top, "(" + begin("red", portAt("t")) + " " + begin("blue", portAt("d2")) + ")");
    expectKept();
    EXPECT_EQ(edges(), "(" + begin("red", portAt("d1")) + " " + begin("blue", portAt("d2")) + ")");
}

TEST_F(ElidedTerminalEdges, goWithTerminalsThatFeedEachOtherAlone) {
    Block &first = make(top, "t1", A_TERMINAL_BLOCK);
    Wire &second = terminal("t2", wire(first, "0"));
    first.setParam(value("0"), second);
    delay("d1", terminal("t3", second));
    mark(top, "(" + begin("red", portAt("t1")) + begin("blue", wireAt("t3", "0")) + begin("green", portAt("d1")) + ")");
    elide(design);
    EXPECT_EQ(namesIn(top), (Lines{"d0", "d1", "s", "t3"}));
    EXPECT_EQ(edges(), "(" + begin("blue", wireAt("t3", "0")) + " " + begin("green", portAt("d1")) + ")");
}

TEST_F(ElidedTerminalEdges, moveTogetherWithConstraints) {
    Wire &through = terminal("t", driver);
    through.getBlock().setParam(A_SCHEDULE_CONSTRAINT_PORTS, any("((0 true (5) ()))"));
    delay("d1", through);
    mark(top, "(" + begin("red", wireAt("t", "0")) + ")");
    expectKept();
    EXPECT_EQ(edges(), "(" + begin("red", portAt("d1")) + ")");
    EXPECT_EQ(top.getBlock(value("d1"))->getParam(A_SCHEDULE_CONSTRAINT_PORTS)->toString(), "((0 true (5) ()))");
}

TEST_F(ElidedTerminalEdges, stayAtBlocksThatStay) {
    Block &dangling = make(top, "dangling", A_TERMINAL_BLOCK);
    delay("d1", wire(dangling, "0"));
    delay("d2", terminal("t", driver));
    const std::string others = begin("red", wireAt("dangling", "0")) + " " + end("blue", wireAt("gone")) + " 7";
    mark(top, "(" + others + " " + begin("red", wireAt("t", "0")) + ")");
    elide(design);
    EXPECT_EQ(edges(), "(" + others + " " + begin("red", portAt("d2")) + ")");
}

RC_GTEST_FIXTURE_PROP(ElidedTerminalEdges, keepTheDomainsOfNetsByChance, ()) {
    std::vector<Wire *> wires{&driver};
    std::string specs;
    std::size_t number = 0;
    for (const gen::Recipe &recipe : *test::recipes(30)) {
        gen::Chooser chooser(recipe, 0);
        const std::string name = std::to_string(number++);
        Wire &from = *wires[chooser.below(wires.size())];
        switch (recipe.kind % 5) {
        case 0:
            wires.push_back(&delay("d" + name, from));
            break;
        case 1:
            wires.push_back(&terminal("t" + name, from));
            break;
        case 2:
            wires.push_back(&noDelay("n" + name, from));
            break;
        case 3:
            wires.push_back(&apartTerminal("a" + name, from));
            break;
        default:
            specs += begin(chooser.chance(1, 2) ? "red" : "blue",
                           wireAt(from.getBlock().getName()->toString(), from.getName()->toString()));
        }
    }
    mark(top, "(" + specs + ")");
    const Domains before = domains();
    RC_PRE(messages.lines.empty());
    elide(design);
    Domains after = domains();
    // Where domains meet that were kept apart, either may come first.
    RC_PRE(messages.lines.empty());
    for (const auto &[end, was] : before) {
        RC_ASSERT(was == "-" || after[end] == was);
    }
}

} // namespace
} // namespace orvo
