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

} // namespace
} // namespace orvo
