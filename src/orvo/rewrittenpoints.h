// Latency constraints and boundaries of domains at blocks that handlers replace, whatever the handlers draw.
#pragma once

#include <orvo/compoundportcorrespondence.h>
#include <orvo/model.h>

#include <utility>
#include <vector>

namespace orvo {

class PassContext;
class Port;
class Wire;

namespace internal {

/// Keeps the points of one model where they belong. What reads a port's driver in place of a block takes over the
/// port's constraints, or what reads the block's outputs if nothing came in its place; what drives the readers of a
/// wire takes over the wire's. Boundaries of domains move when this goes.
class RewrittenPoints {
  public:
    /// The model's instances must outlive this.
    RewrittenPoints(const PassContext &context, Model &model, const std::vector<RefChain> &instances);
    ~RewrittenPoints();
    RewrittenPoints(const RewrittenPoints &) = delete;
    RewrittenPoints &operator=(const RewrittenPoints &) = delete;

    /// Around the replacement of one block.
    void begin(Block &block);
    void end();

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
        Reader reader;
    };

    void hook(bool on);
    void onBlockBorn(Block &block) { mBorn.push_back(&block); }
    void onBlockDying(Block &block);
    void tell() const;
    void tellPort(const PureValueRef &name, const Wire *driver) const;

    Model &mModel;
    NetlistReferencePointsUpdater mUpdater;
    Notifier mNotifier;
    Block *mBlock = nullptr;
    std::vector<std::pair<PureValueRef, const Wire *>> mInputs;
    std::vector<Output> mOutputs;
    /// All of the outputs.
    std::vector<Reader> mReaders;
    std::vector<Block *> mBorn;
    /// Read the outputs that nothing else reads, to see what becomes of them.
    std::vector<Block *> mProbes;
};

} // namespace internal

} // namespace orvo
