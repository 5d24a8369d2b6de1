// Latency constraints and boundaries of domains at blocks that handlers replace, whatever the handlers draw.
#pragma once

#include "orvo/domainedgetree.h"

#include <orvo/compoundportcorrespondence.h>
#include <orvo/model.h>

#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo {

class PassContext;
class Port;
class Wire;

namespace internal {

/// Keeps the points of one model where they belong. What reads a port's driver in place of a block takes over the
/// port's constraints, or what reads the block's outputs if nothing came in its place; what drives the readers of a
/// wire takes over the wire's. These move when this goes. The edges of domains move at once: what drives the readers
/// may have stood before and have others, which the edges must leave alone.
class RewrittenPoints {
  public:
    /// The model's instances must outlive this. Who sees to the edges of domains itself has them left alone.
    RewrittenPoints(const PassContext &context, Model &model, const std::vector<RefChain> &instances,
                    bool movesDomainEdges = true);
    ~RewrittenPoints();
    RewrittenPoints(const RewrittenPoints &) = delete;
    RewrittenPoints &operator=(const RewrittenPoints &) = delete;

    /// Whether anything stands at the block, or will do when this goes.
    bool concerns(const Block &block) const;
    /// Around the replacement of one block.
    void begin(Block &block);
    void end();
    /// Whether an edge of a domain stands at the port.
    bool hasEdge(const Port &port) const;
    /// Has the domain that begins at a wire begin at another, too, where no edge stands.
    void copyBegin(const Wire &from, const Wire &to);
    /// Has the constraints at a wire stand at all others, and at itself if it stays. If not, its block is to go, and
    /// the edges of domains there do.
    void spread(const Wire &from, const std::vector<const Wire *> &to, bool stays);

  private:
    class Notifier final : public Unroller {
      public:
        const std::string &getSuffix() const override;
    };
    /// Blocks by name: they may go meanwhile.
    struct Reader {
        PureValueRef block;
        PureValueRef port;
    };
    struct Output {
        PureValueRef name;
        /// Of all readers, those of this output.
        std::size_t firstReader;
        std::size_t endReader;
        /// Tells the new wire: the first reader, or a probe.
        Reader reader;
    };
    struct Input {
        PureValueRef name;
        const Wire *driver;
    };
    class Domains;

    void hook(bool on);
    void onBlockBorn(Block &block) { mBorn.push_back(&block); }
    void onBlockDying(Block &block);
    void tell();
    void tellPort(const Input &input) const;
    /// The wire that has come to drive what read the output; null if there is none.
    const Wire *newWire(const Output &output) const;
    bool isBorn(const Block &block) const { return mBornBlocks.count(&block) != 0; }

    Model &mModel;
    NetlistReferencePointsUpdater mUpdater;
    Notifier mNotifier;
    Block *mBlock = nullptr;
    DomainEdgeList mEdges;
    const bool mMovesDomainEdges;
    std::vector<Input> mInputs;
    std::vector<Output> mOutputs;
    /// All of the outputs.
    std::vector<Reader> mReaders;
    std::vector<Block *> mBorn;
    /// As the replaced block dies: those in its place, and their ports by what they read.
    std::unordered_set<const Block *> mBornBlocks;
    std::unordered_map<const Wire *, std::vector<MaybePort>> mBornPorts;
    /// Read the outputs that nothing else reads, to see what becomes of them.
    std::vector<Block *> mProbes;
};

} // namespace internal

} // namespace orvo
