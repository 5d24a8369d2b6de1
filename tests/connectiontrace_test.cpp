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

} // namespace
} // namespace orvo
