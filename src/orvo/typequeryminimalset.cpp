// The two traces behind a minimal set.
#include "orvo/typequeryminimalset.h"

#include <orvo/block.h>
#include <orvo/connectiontrace.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <iterator>

namespace orvo {

namespace {

bool isOneOf(const Block &block, std::initializer_list<const StaticString *> types) {
    return std::any_of(types.begin(), types.end(),
                       [&block](const StaticString *type) { return block.type() == type->get_ptr(); });
}

/// Blocks that carry signals through unchanged, each by its name.
bool passesByName(const Block &block) { return isOneOf(block, {&A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK}); }

/// Hands out the one port or wire of the name that came in, if there is one.
template <class Base, class End> class PassThrough final : public Base {
  public:
    explicit PassThrough(const End *end) : mEnd(end) {}
    bool hasNext() const override { return mEnd != nullptr; }
    const End &next() override { return *std::exchange(mEnd, nullptr); }

  private:
    const End *mEnd;
};

class NamedTrace : public ConnectionTrace {
  public:
    NamedTrace(ModelTreePass &tree, TypeQueryMinimalSet &set) : ConnectionTrace(tree), mSet(set) {
        traceModelBlocksWhenAscending(true);
        traceInputOutputBlocks(true);
    }
    std::unique_ptr<PortIterator> portIterator(Block &block, const PureValueRef &wireName) override {
        if (passesByName(block) && wireName) {
            return std::make_unique<PassThrough<PortIterator, Port>>(block.getPort(wireName));
        }
        return ConnectionTrace::portIterator(block, wireName);
    }
    std::unique_ptr<WireIterator> wireIterator(Block &block, const PureValueRef &portName) override {
        if (passesByName(block) && portName) {
            return std::make_unique<PassThrough<WireIterator, Wire>>(block.getWire(portName));
        }
        return ConnectionTrace::wireIterator(block, portName);
    }

  protected:
    TypeQueryMinimalSet &mSet;
};

class TypeQueryScopeTrace final : public NamedTrace {
  public:
    using ConnectionTrace::keep;
    using NamedTrace::NamedTrace;
    TraceAction keep(const Block &block, const RefChain &refChain) override {
        if (mSet.limitExceeded(block_size() + 1)) {
            return TRACE_STOP;
        }
        mSet.pushChain(refChain);
        // These know their types without any input.
        return isOneOf(block, {&A_CONST_BLOCK, &A_SCHEDULED_MODEL_BLOCK, &A_EXT_IFACE_BLOCK}) ? TRACE_KEEP_STOP
                                                                                              : TRACE_KEEP;
    }
    TraceAction keep(const Wire &wire, const RefChain &refChain) override {
        if (mSet.limitExceeded(block_size())) {
            return TRACE_STOP;
        }
        return mSet.lookAtReaders(wire, refChain, true) ? TRACE_STOP : TRACE_PASS;
    }
};

class BackPropagationTrace final : public NamedTrace {
  public:
    using ConnectionTrace::keep;
    using NamedTrace::NamedTrace;
    TraceAction keep(const Block &block, const RefChain &refChain) override {
        if (mSet.limitExceeded(block_size() + 1)) {
            return TRACE_STOP;
        }
        if (!isOneOf(block,
                     {&A_MODEL_BLOCK, &A_INPUT_BLOCK, &A_OUTPUT_BLOCK, &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK})) {
            return TRACE_STOP;
        }
        mSet.pushChain(refChain);
        return TRACE_KEEP;
    }
    TraceAction keep(const Wire &wire, const RefChain &refChain) override {
        if (mSet.limitExceeded(block_size())) {
            return TRACE_STOP;
        }
        return mSet.lookAtReaders(wire, refChain, false) ? TRACE_STOP : TRACE_PASS;
    }
};

} // namespace

void TypeQueryMinimalSet::pushBlock(const Block *block) {
    if (!limitExceeded(1) && mKnown.insert(block).second) {
        mBlocks.push_back(block);
    }
}

void TypeQueryMinimalSet::pushChain(const RefChain &refChain) {
    const auto differ = std::mismatch(refChain.begin(), refChain.end(), mLastChain.begin(), mLastChain.end()).first;
    const auto common = static_cast<std::size_t>(differ - refChain.begin());
    for (std::size_t i = refChain.size(); i > common; --i) {
        pushBlock(refChain[i - 1]);
    }
    mLastChain = refChain;
}

bool TypeQueryMinimalSet::lookAtReaders(const Wire &wire, const RefChain &refChain, bool note) {
    for (const Port &port : wire.ports()) {
        const Block &block = port.getBlock();
        if (isOneOf(block, {&A_TYPE_PIN_BLOCK, &A_EXT_IFACE_BLOCK, &A_SCHEDULED_MODEL_BLOCK})) {
            pushChain(refChain);
            pushBlock(&block);
            return true;
        }
        if (note && isOneOf(block, {&A_MODEL_BLOCK, &A_OUTPUT_BLOCK, &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK})) {
            notePort(port, refChain);
        }
    }
    return false;
}

template <class Trace> void TypeQueryMinimalSet::pushKept(const Trace &trace) {
    for (auto at = trace.block_begin(); at != trace.block_end(); ++at) {
        pushBlock(*at);
    }
}

std::size_t TypeQueryMinimalSet::inferenceSubset(ModelTreePass &tree, const Wire &wire, const RefChain &refChain) {
    pushBlock(&wire.getBlock());
    pushChain(refChain);
    TypeQueryScopeTrace trace(tree, *this);
    trace.startRefChain(refChain);
    // A type may come to the wire itself from what reads it, and to a model block or an edge from beyond it.
    trace.traceBackward(wire);
    for (const Port &port : wire.getBlock().ports()) {
        trace.traceBackward(port);
    }
    pushKept(trace);
    lookForBackPropagatingBlocks(tree);
    return mBlocks.size();
}

std::size_t TypeQueryMinimalSet::inferenceSubset(ModelTreePass &tree, const Port &port, const RefChain &refChain) {
    pushBlock(&port.getBlock());
    pushChain(refChain);
    TypeQueryScopeTrace trace(tree, *this);
    trace.startRefChain(refChain);
    trace.traceBackward(port);
    pushKept(trace);
    lookForBackPropagatingBlocks(tree);
    return mBlocks.size();
}

void TypeQueryMinimalSet::lookForBackPropagatingBlocks(ModelTreePass &tree) {
    BackPropagationTrace trace(tree, *this);
    for (const PendingTrace &pending : mPending) {
        trace.startRefChain(pending.refChain);
        trace.traceForward(*pending.port);
    }
    pushKept(trace);
}

} // namespace orvo
