// The engine that takes blocks of vectors apart: it looks at the signals of a block, lets the block's unroller make
// what stands in its place, and joins that to the neighbours through packs and unpacks.
#pragma once

#include <orvo/compoundtypeinfo.h>
#include <orvo/signalpacker.h>
#include <orvo/vectorunroller.h>

#include <memory>
#include <string>
#include <vector>

namespace orvo {

namespace internal_vector {

struct PortInfo {
    MaybePort port;
    VectorDecorSpec vectors;
    /// What drives it, which may be less than it takes.
    VectorDecorSpec given;
    VectorUnrollKind kind;
    /// Of one type in all instances.
    bool isUnique;
    /// The type of the driver's elements, where these are real and those of the port complex; else null.
    PureValueRef realElement = {};
};

struct WireInfo {
    Wire *wire;
    VectorDecorSpec vectors;
    VectorUnrollKind kind;
    /// Of one type in all instances.
    bool isUnique;
};

/// Whether a port takes what drives it where a rule says what the port is. A driver of fewer dimensions serves the
/// lanes of the others, too, for which it may also have dimensions of one element.
ORVO_API bool takesDriver(const Port &port, const VectorDecorSpec &own, const VectorDecorSpec &driver);

/// A signal of some dimensions as the lanes of an unroller see it. Lanes of no dimensions take it whole; others have at
/// least its dimensions, and those beyond take the same elements again.
class ORVO_API VectorPackManager {
  public:
    /// Lengths that disagree are an assertion.
    VectorPackManager(const VectorDecorSpec &lanes, const VectorDecorSpec &signal, Model &model,
                      const PureValueRef &name);
    void doUnpack(Wire &wire) { mPacker.doUnpack(wire); }
    void doPack(const std::vector<MaybePort> &ports) { mPacker.doPack(ports); }
    Wire &getUnpackedWire(const std::vector<int> &indices) const;
    std::vector<MaybePort> getPackedPorts(const std::vector<int> &indices) const;

  private:
    static CompoundTypeInfo shapeOf(const VectorDecorSpec &lanes, const VectorDecorSpec &signal);
    CompoundDecorIndex pathOf(const std::vector<int> &indices) const;

    std::size_t mDepth;
    SignalPacker mPacker;
};

/// One block on its way. Types are read when it is made, before anything changes.
class BlockUnrollerImpl {
  public:
    static constexpr CompoundKind kKind = CompoundKind::Vector;

    /// The chains are those of all instances of the block's model, in which the signals must have the same dimensions.
    /// They must outlive this.
    BlockUnrollerImpl(Block &block, const std::vector<RefChain> &instances, std::shared_ptr<VectorUnroller> unroller,
                      GlobalTypePass &types);

    Block &block() const { return mBlock; }
    VectorUnroller &unroller() const { return *mUnroller; }
    const std::vector<PortInfo> &ports() const { return mPorts; }
    const std::vector<WireInfo> &wires() const { return mWires; }
    /// Whether a type is missing or does not fit; that was reported, and the block stays as it is.
    bool failed() const { return mFailed; }
    void fail() { mFailed = true; }
    /// Reports that both sides of a boundary do not fit together, and gives up on the block.
    void failOnBoundary();
    bool hasWork() const { return comesApart() || (!mFailed && mNarrows); }
    /// Takes the block apart if there is anything to do. The block is gone afterwards if its unroller deletes it.
    void unroll(GlobalTypePass &types);

  private:
    bool comesApart() const { return !mFailed && (mExpand || mUnroller->mandatoryUnrolling()); }
    void failToExpand(const std::string &detail);
    /// What a signal is in all instances.
    struct SignalType {
        VectorDecorSpec vectors;
        bool isUnique;
    };
    template <class End>
    SignalType typeOf(const End &end, const std::vector<RefChain> &instances, GlobalTypePass &types) const;
    /// The dimensions of a port's wire; those of the port if nothing tells, none if instances differ or
    /// there are too many.
    VectorDecorSpec driverOf(const Port &port, const VectorDecorSpec &own, GlobalTypePass &types) const;
    /// Whether the lanes of a port can be had from what drives it.
    bool canServe(const PortInfo &info) const;
    void note(const VectorDecorSpec &vectors, VectorUnrollKind kind);
    /// Names a port that does not take the parts that its driver has, or a signal at the boundary of a model the pack
    /// of which would get its types from a reader that takes other vectors; empty if there is none. Notes where real
    /// numbers drive lanes of complex ones.
    std::string clash(GlobalTypePass &types);
    /// Whether a record comes out that has its lanes in its members: of those of the block it would get the first only.
    bool losesRecords(GlobalTypePass &types) const;
    /// Which types what takes the block's place would have to be made for, if it would fit one instance alone.
    std::string difference(GlobalTypePass &types) const;
    VectorDecorSpec lanesOf(VectorUnrollKind kind, const VectorDecorSpec &own) const;
    PureValueRef packerName(const PureValueRef &key) const;
    /// Whether a scalar is driven by the only element of a vector.
    static bool isNarrowed(const PortInfo &info) { return info.given.isVector() && !info.vectors.isVector(); }
    void narrowPort(PortInfo &info);
    Wire &elementOf(const PortInfo &info, Wire &unpacked, std::size_t number) const;
    void unrollPort(const PortInfo &info);
    void unrollWire(const WireInfo &info);

    Block &mBlock;
    const std::vector<RefChain> &mInstances;
    std::shared_ptr<VectorUnroller> mUnroller;
    bool mExpand = false;
    bool mNarrows = false;
    bool mFailed = false;
    VectorDecorSpec mMerged;
    std::vector<PortInfo> mPorts;
    std::vector<WireInfo> mWires;
};

} // namespace internal_vector

} // namespace orvo
