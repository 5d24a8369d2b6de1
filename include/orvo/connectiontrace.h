// ConnectionTrace, the walker along connections: from wires to the ports that they drive, through blocks, into the
// models that model blocks instantiate and out of them. A subclass says at each step what to record and where to stop.
#pragma once

#include <orvo/model.h>
#include <orvo/wire.h>

#include <memory>
#include <unordered_set>
#include <vector>

namespace orvo {

class ModelTreePass;

/// What a step of a trace does with what it has met.
enum TraceAction : unsigned int {
    /// Not recorded; the trace goes on.
    TRACE_PASS = 0,
    /// Not recorded; this branch ends.
    TRACE_STOP = 1,
    TRACE_KEEP = 2,
    TRACE_KEEP_STOP = 3,
};

/// Each pair of a block and a name is visited once an instance. Model blocks are stepped into and out of: on the way
/// down they are shown to `keep`, on the way up and at the edges of models only when asked for. Results stand in the
/// order in which they were met.
class ORVO_API ConnectionTrace {
  public:
    /// Hands out the ports by which a backward trace goes on from a block.
    class ORVO_API PortIterator {
      public:
        virtual ~PortIterator();
        virtual bool hasNext() const = 0;
        virtual const Port &next() = 0;
    };
    /// Hands out the wires by which a forward trace goes on from a block.
    class ORVO_API WireIterator {
      public:
        virtual ~WireIterator();
        virtual bool hasNext() const = 0;
        virtual const Wire &next() = 0;
    };

    /// A trace that leaves a model only by the chain that led into it.
    ConnectionTrace();
    /// One that leaves a model at the start of its chain by every block that instantiates it. The pass must outlive it.
    explicit ConnectionTrace(ModelTreePass &tree);
    virtual ~ConnectionTrace();
    ConnectionTrace(const ConnectionTrace &) = delete;
    ConnectionTrace &operator=(const ConnectionTrace &) = delete;

    /// Forgets what was visited and found.
    virtual void reset();
    virtual TraceAction keep(const Block &block, const RefChain &refChain);
    /// With the wire through which a backward trace came; asks `keep(block, refChain)` unless overridden.
    virtual TraceAction keep(const Block &block, const RefChain &refChain, const Wire *wire);
    /// With the port through which a forward trace came.
    virtual TraceAction keep(const Block &block, const RefChain &refChain, const Port *port);
    virtual TraceAction keep(const Wire &wire, const RefChain &refChain);
    virtual TraceAction keep(const Port &port, const RefChain &refChain);
    /// What tells one visit of a block from another, beside block and chain: by default the name by which it is
    /// reached. With one key for all, `keep` is asked about a block once.
    virtual PureValueRef keyForWireName(const Block &block, const PureValueRef &name);
    virtual PureValueRef keyForPortName(const Block &block, const PureValueRef &name);
    /// The ways on from a block that was reached by the wire or port of that name; all of them unless overridden.
    virtual std::unique_ptr<PortIterator> portIterator(Block &block, const PureValueRef &wireName);
    virtual std::unique_ptr<WireIterator> wireIterator(Block &block, const PureValueRef &portName);

    /// Whether a model block is shown to `keep` when the trace leaves its model.
    void traceModelBlocksWhenAscending(bool on) { mTraceModelBlocks = on; }
    /// Whether input and output blocks are shown to `keep` on the way through.
    void traceInputOutputBlocks(bool on) { mTraceEdges = on; }
    /// The instance in which the next trace starts.
    void startRefChain(const RefChain &refChain) { mStart = refChain; }

    void traceForward(const Block &block);
    void traceForward(const Wire &wire);
    void traceForward(const Port &port);
    void traceBackward(const Block &block);
    void traceBackward(const Wire &wire);
    void traceBackward(const Port &port);

    using BlockList = std::vector<const Block *>;
    using PortList = std::vector<const Port *>;
    BlockList::const_iterator block_begin() const { return mBlocks.begin(); }
    BlockList::const_iterator block_end() const { return mBlocks.end(); }
    std::size_t block_size() const { return mBlocks.size(); }
    PortList::const_iterator port_begin() const { return mPorts.begin(); }
    PortList::const_iterator port_end() const { return mPorts.end(); }
    std::size_t port_size() const { return mPorts.size(); }

  private:
    struct Walk;
    bool goesOn(TraceAction action, const Block &block);
    bool goesOn(TraceAction action, const Port &port);

    ModelTreePass *mTree;
    bool mTraceModelBlocks = false;
    bool mTraceEdges = false;
    RefChain mStart;
    BlockList mBlocks;
    PortList mPorts;
    std::unordered_set<const Block *> mRecordedBlocks;
    std::unordered_set<const Port *> mRecordedPorts;
    std::unique_ptr<Walk> mWalk;
};

/// The blocks that a simple walk looks through, as bits: they hand their input on unchanged.
enum TraceFlags : unsigned int {
    TRACE_THROUGH_NOTHING = 0,
    TRACE_THROUGH_TYPE_PINS = 1,
    /// Fan-out and terminal blocks, whose outputs are all their one input.
    TRACE_THROUGH_FANOUTS = 2,
    /// Signal markers and boundary blocks, each output the input of its name.
    TRACE_THROUGH_MARKERS = 4,
    TRACE_THROUGH_ALL = 7,
};
constexpr TraceFlags operator|(TraceFlags a, TraceFlags b) {
    return static_cast<TraceFlags>(static_cast<unsigned int>(a) | static_cast<unsigned int>(b));
}

/// The ports at which a signal ends in its own model, behind the blocks looked through, each once, appended in the
/// order of the walk.
ORVO_API void traceWireForward(const Wire &wire, TraceFlags flags, std::vector<const Port *> &ends);
/// The one such port; null if there is none or another one, too.
ORVO_API const Port *traceWireForward(const Wire &wire, TraceFlags flags);
/// The wire that drives a port in its own model, before the blocks looked through; null for a ring of such blocks and
/// where an input of one is missing.
ORVO_API const Wire *tracePortBackward(const Port &port, TraceFlags flags);
/// The same for the ports of a block that are driven, in their order; a wire that drives several stands there once.
ORVO_API void tracePortBackward(const Block &block, TraceFlags flags, std::vector<const Wire *> &ends);

} // namespace orvo
