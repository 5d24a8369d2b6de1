// The walk along connections and through the hierarchy.
#include <orvo/connectiontrace.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <tuple>
#include <utility>

namespace orvo {
namespace {

/// top:   a -> call(below) -> b -> c       below: in(x) -> d -> out(y)
class Trace : public ::testing::Test {
  protected:
    Trace() {
        wire(a, "w");
        call.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, below);
        call.setParam(value("x"), *a.getWire(value("w")));
        wire(call, "y");
        b.setParam(value("0"), *call.getWire(value("y")));
        wire(b, "w");
        c.setParam(value("0"), *b.getWire(value("w")));
        in.setParam(A_BLOCK_TYPE, A_INPUT_BLOCK);
        wire(in, "x");
        d.setParam(value("0"), *in.getWire(value("x")));
        wire(d, "w");
        out.setParam(A_BLOCK_TYPE, A_OUTPUT_BLOCK);
        out.setParam(value("y"), *d.getWire(value("w")));
        tree.bindEvents(design);
    }
    ~Trace() override { tree.unbindEvents(); }
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    void wire(Block &block, const std::string &name) { Wire::create(block, value(name)); }
    static std::string found(const ConnectionTrace &trace) {
        std::string names;
        for (auto at = trace.block_begin(); at != trace.block_end(); ++at) {
            names += (names.empty() ? "" : " ") + (*at)->getName()->toString();
        }
        return names;
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    Block &a = *Block::create(top, "a");
    Block &call = *Block::create(top, "call");
    Block &b = *Block::create(top, "b");
    Block &c = *Block::create(top, "c");
    Block &in = *Block::create(below, "in");
    Block &d = *Block::create(below, "d");
    Block &out = *Block::create(below, "out");
    ModelTreePass tree;
};

TEST_F(Trace, goesForwardThroughAnInstance) {
    ConnectionTrace trace;
    trace.traceForward(*a.getWire(value("w")));
    EXPECT_EQ(found(trace), "call d b c");
    EXPECT_EQ(trace.port_size(), 5U);
    trace.reset();
    EXPECT_EQ(trace.block_size(), 0U);
    trace.traceForward(b);
    EXPECT_EQ(found(trace), "c");
}

TEST_F(Trace, goesBackwardThroughAnInstance) {
    ConnectionTrace trace;
    trace.traceBackward(*c.getPort(value("0")));
    EXPECT_EQ(found(trace), "b call d a");
}

TEST_F(Trace, leavesAModelByItsChainOrByTheTree) {
    ConnectionTrace alone;
    alone.traceForward(d);
    EXPECT_EQ(found(alone), "") << "nobody tells where the model is used";
    ConnectionTrace inPlace;
    inPlace.startRefChain({&call});
    inPlace.traceForward(d);
    EXPECT_EQ(found(inPlace), "b c");
    ConnectionTrace anywhere(tree);
    anywhere.traceForward(d);
    EXPECT_EQ(found(anywhere), "b c");
}

TEST_F(Trace, showsEdgesAndModelBlocksWhenAskedTo) {
    ConnectionTrace trace(tree);
    trace.traceInputOutputBlocks(true);
    trace.traceModelBlocksWhenAscending(true);
    trace.traceForward(d);
    EXPECT_EQ(found(trace), "out call b c");
    ConnectionTrace back;
    back.traceInputOutputBlocks(true);
    back.traceBackward(*c.getPort(value("0")));
    EXPECT_EQ(found(back), "b call out d in a");
}

struct Choosy final : ConnectionTrace {
    using ConnectionTrace::keep;
    TraceAction keep(const Block &block, const RefChain &) override {
        return block.getName()->toString() == "b" ? stopAt : TRACE_KEEP;
    }
    TraceAction stopAt = TRACE_STOP;
};

TEST_F(Trace, recordsAndStopsAsTold) {
    const std::pair<TraceAction, const char *> cases[] = {
        {TRACE_STOP, "call d"}, {TRACE_KEEP_STOP, "call d b"}, {TRACE_PASS, "call d c"}, {TRACE_KEEP, "call d b c"}};
    for (const auto &[action, blocks] : cases) {
        Choosy trace;
        trace.stopAt = action;
        trace.traceForward(a);
        EXPECT_EQ(found(trace), blocks);
    }
}

TEST_F(Trace, passesEachBlockOnceInALoop) {
    a.setParam(value("0"), *c.getParent()->getChild(value("b"))->getChild(value("w")));
    ConnectionTrace trace;
    trace.traceForward(a);
    EXPECT_EQ(found(trace), "call d b c a");
}

/// Asks for every port, wire and block that it is shown, and answers by their names.
struct Listing final : ConnectionTrace {
    using ConnectionTrace::ConnectionTrace;
    using ConnectionTrace::keep;
    TraceAction keep(const Block &block, const RefChain &, const Wire *wire) override {
        return answer(block.getName()->toString() + ">" + wire->getName()->toString());
    }
    TraceAction keep(const Block &block, const RefChain &, const Port *port) override {
        return answer(block.getName()->toString() + "<" + port->getName()->toString());
    }
    TraceAction keep(const Wire &wire, const RefChain &) override {
        return answer("wire " + wire.getBlock().getName()->toString() + "." + wire.getName()->toString());
    }
    TraceAction keep(const Port &port, const RefChain &) override {
        return answer("port " + port.getBlock().getName()->toString() + "." + port.getName()->toString());
    }
    TraceAction answer(const std::string &what) {
        asked += (asked.empty() ? "" : ", ") + what;
        const auto told = answers.find(what);
        return told == answers.end() ? TRACE_KEEP : told->second;
    }
    std::string ports() const {
        std::string names;
        for (auto at = port_begin(); at != port_end(); ++at) {
            names += (names.empty() ? "" : " ") + (*at)->getBlock().getName()->toString();
        }
        return names;
    }
    std::map<std::string, TraceAction> answers;
    std::string asked;
};

TEST_F(Trace, asksAboutABlockByEachPortThatReachesIt) {
    b.setParam(value("1"), *call.getWire(value("y")));
    Listing trace;
    trace.answers = {{"b<0", TRACE_STOP}, {"b<1", TRACE_KEEP}};
    trace.traceForward(*call.getWire(value("y")));
    EXPECT_EQ(trace.asked, "wire call.y, port b.0, port b.1, b<0, b<1, wire b.w, port c.0, c<0");
    EXPECT_EQ(found(trace), "b c");
}

TEST_F(Trace, asksAboutABlockByEachWireThatLeadsBackToIt) {
    wire(b, "v");
    c.setParam(value("1"), *b.getWire(value("v")));
    Listing trace;
    trace.answers = {{"b>w", TRACE_STOP}, {"port b.0", TRACE_KEEP_STOP}};
    trace.traceBackward(c);
    EXPECT_EQ(trace.asked, "port c.0, wire b.w, port c.1, wire b.v, b>w, b>v, port b.0");
    EXPECT_EQ(found(trace), "b");
}

TEST_F(Trace, recordsPortsAsTold) {
    const std::tuple<TraceAction, const char *, const char *> cases[] = {
        {TRACE_PASS, "c", "b c"}, {TRACE_STOP, "", ""}, {TRACE_KEEP, "b c", "b c"}, {TRACE_KEEP_STOP, "b", ""}};
    for (const auto &[action, ports, blocks] : cases) {
        Listing trace;
        trace.answers = {{"port b.0", action}};
        trace.traceForward(*call.getWire(value("y")));
        EXPECT_EQ(trace.ports(), ports) << action;
        EXPECT_EQ(found(trace), blocks) << action;
    }
}

TEST_F(Trace, endsAtAWireAsTold) {
    const std::pair<TraceAction, const char *> cases[] = {
        {TRACE_PASS, "b c"}, {TRACE_STOP, "b"}, {TRACE_KEEP, "b c"}, {TRACE_KEEP_STOP, "b"}};
    for (const auto &[action, blocks] : cases) {
        Listing trace;
        trace.answers = {{"wire b.w", action}};
        trace.traceForward(*b.getPort(value("0")));
        EXPECT_EQ(found(trace), blocks) << action;
    }
}

TEST_F(Trace, leavesAModelBackwardByItsChainOrByEveryParent) {
    Block &again = *Block::create(top, "again", A_MODEL_BLOCK);
    again.setParam(A_MODEL_NODE, below);
    Block &other = *Block::create(top, "other");
    wire(other, "w");
    again.setParam(value("x"), *other.getWire(value("w")));
    ConnectionTrace inPlace(tree);
    inPlace.startRefChain({&again});
    inPlace.traceBackward(d);
    EXPECT_EQ(found(inPlace), "other");
    ConnectionTrace anywhere(tree);
    anywhere.traceBackward(*d.getWire(value("w")));
    EXPECT_EQ(found(anywhere), "d a other");
    ConnectionTrace alone;
    alone.traceBackward(d);
    EXPECT_EQ(found(alone), "");
}

/// Goes on from `b` by the wire named like the port only.
struct ByName final : ConnectionTrace {
    struct One final : WireIterator {
        explicit One(const Wire *wire) : left(wire) {}
        bool hasNext() const override { return left != nullptr; }
        const Wire &next() override { return *std::exchange(left, nullptr); }
        const Wire *left;
    };
    struct OnePort final : PortIterator {
        explicit OnePort(const Port *port) : left(port) {}
        bool hasNext() const override { return left != nullptr; }
        const Port &next() override { return *std::exchange(left, nullptr); }
        const Port *left;
    };
    std::unique_ptr<WireIterator> wireIterator(Block &block, const PureValueRef &port) override {
        return std::make_unique<One>(block.getWire(port));
    }
    std::unique_ptr<PortIterator> portIterator(Block &block, const PureValueRef &wire) override {
        return std::make_unique<OnePort>(block.getPort(wire));
    }
};

TEST_F(Trace, goesOnByTheWaysOfASubclass) {
    wire(b, "0");
    Block &e = *Block::create(top, "e");
    e.setParam(value("0"), *b.getWire(value("0")));
    ByName forward;
    forward.traceForward(*b.getPort(value("0")));
    EXPECT_EQ(found(forward), "b e");
    ByName backward;
    backward.traceBackward(*e.getPort(value("0")));
    EXPECT_EQ(found(backward), "b call d") << "d has no port of the name of its wire";
}

/// source -> pin -> fan -> (marker "m", sink1); marker "m" -> sink2; source -> sink3
class SimpleWalk : public Trace {
  protected:
    SimpleWalk() {
        wire(source, "w");
        wire(pin, "0");
        wire(fan, "0");
        wire(fan, "1");
        wire(marker, "m");
        wire(marker, "n");
        connect(pin, "0", source, "w");
        connect(fan, "0", pin, "0");
        connect(marker, "m", fan, "0");
        connect(sink1, "0", fan, "1");
        connect(sink2, "0", marker, "m");
        connect(sink3, "0", source, "w");
    }
    void connect(Block &reader, const char *port, const Block &driver, const char *name) {
        reader.setParam(value(port), *driver.getWire(value(name)));
    }
    std::string ends(const Wire &from, TraceFlags flags) {
        std::vector<const Port *> ports;
        traceWireForward(from, flags, ports);
        std::string names;
        for (const Port *port : ports) {
            names += port->getBlock().getName()->toString() + " ";
        }
        return names;
    }
    Block &source = *Block::create(top, "source", A_DELAY_BLOCK);
    Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
    Block &fan = *Block::create(top, "fan", A_FANOUT_BLOCK);
    Block &marker = *Block::create(top, "marker", A_SIGNAL_OUT_BLOCK);
    Block &sink1 = *Block::create(top, "sink1", A_ADD_BLOCK);
    Block &sink2 = *Block::create(top, "sink2", A_ADD_BLOCK);
    Block &sink3 = *Block::create(top, "sink3", A_ADD_BLOCK);
};

TEST_F(SimpleWalk, looksThroughTheBlocksAskedFor) {
    const Wire &from = *source.getWire(value("w"));
    EXPECT_EQ(ends(from, TRACE_THROUGH_NOTHING), "pin sink3 ");
    EXPECT_EQ(ends(from, TRACE_THROUGH_TYPE_PINS), "sink3 fan ");
    EXPECT_EQ(ends(from, TRACE_THROUGH_TYPE_PINS | TRACE_THROUGH_FANOUTS), "sink3 marker sink1 ");
    EXPECT_EQ(ends(from, TRACE_THROUGH_ALL), "sink3 sink1 sink2 ");
    EXPECT_EQ(traceWireForward(from, TRACE_THROUGH_ALL), nullptr) << "it is not the only one";
    EXPECT_EQ(traceWireForward(*fan.getWire(value("0")), TRACE_THROUGH_ALL), sink2.getPort(value("0")));
    EXPECT_EQ(traceWireForward(*marker.getWire(value("n")), TRACE_THROUGH_ALL), nullptr) << "there is none";
}

TEST_F(SimpleWalk, goesBackToTheDriver) {
    const Port &at = *sink2.getPort(value("0"));
    EXPECT_EQ(tracePortBackward(at, TRACE_THROUGH_NOTHING), marker.getWire(value("m")));
    EXPECT_EQ(tracePortBackward(at, TRACE_THROUGH_MARKERS), fan.getWire(value("0")));
    EXPECT_EQ(tracePortBackward(at, TRACE_THROUGH_ALL), source.getWire(value("w")));
    connect(sink3, "1", marker, "n");
    EXPECT_EQ(tracePortBackward(*sink3.getPort(value("1")), TRACE_THROUGH_ALL), nullptr) << "nothing feeds it";
    connect(sink3, "2", fan, "1");
    std::vector<const Wire *> drivers;
    tracePortBackward(sink3, TRACE_THROUGH_ALL, drivers);
    EXPECT_EQ(drivers, std::vector<const Wire *>{source.getWire(value("w"))});
}

TEST_F(SimpleWalk, endsInARing) {
    connect(pin, "0", fan, "0");
    EXPECT_EQ(tracePortBackward(*sink1.getPort(value("0")), TRACE_THROUGH_ALL), nullptr);
    EXPECT_EQ(ends(*pin.getWire(value("0")), TRACE_THROUGH_ALL), "sink1 sink2 ");
}

TEST_F(Trace, entersAModelThatInstantiatesItselfOnce) {
    Block &again = *Block::create(below, "again");
    again.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    again.setParam(A_MODEL_NODE, below);
    wire(again, "y");
    again.setParam(value("x"), *in.getWire(value("x")));
    out.setParam(value("y"), *again.getWire(value("y")));
    ConnectionTrace forward;
    forward.traceForward(*a.getWire(value("w")));
    EXPECT_EQ(found(forward), "call d again");
    ConnectionTrace backward;
    backward.traceBackward(*b.port_begin());
    EXPECT_EQ(found(backward), "call again");
}

TEST_F(Trace, entersNoModelThatStandsAroundItAtAnyLevel) {
    Block &again = *Block::create(below, "again");
    again.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    again.setParam(A_MODEL_NODE, top);
    again.setParam(value("x"), *in.getWire(value("x")));
    Block &edge = *Block::create(top, "edge");
    edge.setParam(A_BLOCK_TYPE, A_INPUT_BLOCK);
    wire(edge, "x");
    call.setParam(value("x"), *edge.getWire(value("x")));
    ConnectionTrace trace;
    trace.traceForward(*edge.getWire(value("x")));
    EXPECT_EQ(found(trace), "call d again b c");
}

} // namespace
} // namespace orvo
