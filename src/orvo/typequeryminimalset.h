// TypeQueryMinimalSet finds the blocks that one query for a type needs, so that a few hundred blocks are evaluated and
// not the design.
#pragma once

#include <orvo/model.h>

#include <limits>
#include <unordered_set>
#include <vector>

namespace orvo {

class ModelTreePass;
class Port;
class Wire;

/// Goes back from the end asked about to what fixes its type, noting where a type could come in against the flow of
/// data, and then forward from there. With a limit the set may be too small, and the query must look at all.
class TypeQueryMinimalSet {
  public:
    using BlockList = std::vector<const Block *>;

    void limitNumberOfBlocks(std::size_t limit) { mLimit = limit; }
    /// Whether the blocks held and `extra` more are too many.
    bool limitExceeded(std::size_t extra) const { return mBlocks.size() + extra > mLimit; }
    /// The number of blocks found.
    std::size_t inferenceSubset(ModelTreePass &tree, const Wire &wire, const RefChain &refChain);
    std::size_t inferenceSubset(ModelTreePass &tree, const Port &port, const RefChain &refChain);
    /// In the order in which they were found.
    const BlockList &blocks() const { return mBlocks; }

    void pushBlock(const Block *block);
    /// The model blocks of a chain. Only what differs from the last chain is looked at.
    void pushChain(const RefChain &refChain);
    /// Notes a port from which to look for types that come against the flow.
    void notePort(const Port &port, const RefChain &refChain) { mPending.push_back({&port, refChain}); }
    /// A wire's readers that fix its type are pushed, those through which one could come are noted; whether one was
    /// found that fixes it.
    bool lookAtReaders(const Wire &wire, const RefChain &refChain, bool note);
    void lookForBackPropagatingBlocks(ModelTreePass &tree);

  private:
    struct PendingTrace {
        const Port *port;
        RefChain refChain;
    };
    template <class Trace> void pushKept(const Trace &trace);

    BlockList mBlocks;
    std::vector<PendingTrace> mPending;
    std::unordered_set<const Block *> mKnown;
    RefChain mLastChain;
    std::size_t mLimit = std::numeric_limits<std::size_t>::max();
};

} // namespace orvo
