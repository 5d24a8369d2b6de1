// A design with interface markers, for tests of latency constraints.
#pragma once

#include "support/heardmessages.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/latencyconstraints.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo::test {

/// top: in, out, call1 and call2 of below; below: inner in and out. Every marker has a wire "w" and a port "p".
class ConstraintRig : public ::testing::Test {
  protected:
    ConstraintRig() {
        for (Block *block : {&call1, &call2}) {
            block->setParam(A_MODEL_NODE, below);
        }
    }
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Block &marker(Model &model, const char *name, const StaticString &type) {
        Block &block = *Block::create(model, name, type);
        block.setParam(value("p"), *Wire::create(block, "w"));
        return block;
    }
    const Wire *wire(const Block &block) { return block.getWire(value("w")); }
    const Port *port(const Block &block) { return block.getPort(value("p")); }
    static std::string text(const Node &node, const StaticString &key) {
        const Value *found = node.findParam(key);
        return found == nullptr ? "" : found->toString();
    }
    static std::string records(const Model &model) { return text(model, A_SYNTH_SCHEDULE_CONSTRAINTS); }
    static std::string ports(const Block &block) { return text(block, A_SCHEDULE_CONSTRAINT_PORTS); }
    static std::string wires(const Block &block) { return text(block, A_SCHEDULE_CONSTRAINT_WIRES); }

    ContextMgr mgr;
    HeardMessages heard{mgr.context()};
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    Block &in = marker(top, "in", A_SIGNAL_IN_BLOCK);
    Block &out = marker(top, "out", A_SIGNAL_OUT_BLOCK);
    Block &call1 = *Block::create(top, "call1", A_MODEL_BLOCK);
    Block &call2 = *Block::create(top, "call2", A_MODEL_BLOCK);
    Block &innerIn = marker(below, "innerIn", A_CHANNEL_IN_BLOCK);
    Block &innerOut = marker(below, "innerOut", A_CHANNEL_OUT_BLOCK);
};

} // namespace orvo::test
