// The engine that takes blocks of records apart: it looks at the signals of a block, lets the block's unroller make
// what stands in its place, and joins that to the neighbours through packs and unpacks.
#pragma once

#include <orvo/aggregateunroller.h>
#include <orvo/compoundtypeinfo.h>
#include <orvo/model.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

class GlobalTypePass;

namespace internal_aggregate {

struct PortInfo {
    MaybePort port;
    const AggregateTypeSpec *spec;
    /// What drives a plain port, which may have lanes where a rule says that the port has none; else the same.
    const AggregateTypeSpec *driver;
    AggregateUnrollKind kind;
};

struct WireInfo {
    Wire *wire;
    const AggregateTypeSpec *spec;
    AggregateUnrollKind kind;
};

/// One block on its way. Types are read when it is made, before anything changes.
class ORVO_API BlockUnrollerImpl {
  public:
    static constexpr CompoundKind kKind = CompoundKind::Aggregate;

    /// The chains are those of all instances of the block's model, in which the signals must have the same members.
    /// They and the manager must outlive this.
    BlockUnrollerImpl(Block &block, const std::vector<RefChain> &instances, std::shared_ptr<AggregateUnroller> unroller,
                      GlobalTypePass &types, const AggregateTypeManager &manager);

    Block &block() const { return mBlock; }
    AggregateUnroller &unroller() const { return *mUnroller; }
    const std::vector<PortInfo> &ports() const { return mPorts; }
    const std::vector<WireInfo> &wires() const { return mWires; }
    /// Whether a type is missing or does not fit; that was reported, and the block stays as it is.
    bool failed() const { return mFailed; }
    void fail() { mFailed = true; }
    /// Reports that members cannot get the names that they should have, and gives up on the block.
    void failOnBoundary();
    bool hasWork() const { return !mFailed && mExpand && !mUnroller->waits(); }
    /// Takes the block apart if there is anything to do. The block is gone afterwards if its unroller deletes it.
    void unroll(GlobalTypePass &types);

  private:
    /// What the instances say to one signal.
    struct Told {
        /// Of the first instance that tells; invalid if a type is missing, or if there are records of different members
        /// or such that do not come apart. Null where none tells.
        const AggregateTypeSpec *spec;
        bool known;
        bool holdsRecord;
        bool comesApart;
        bool agree;
    };
    template <class End>
    Told toldOf(const End &end, const std::vector<RefChain> &instances, GlobalTypePass &types) const;
    /// Keeps the first reason why known types do not come apart, once it is known whether the block has records.
    void noteObstacle(const Told &told, AggregateUnrollKind kind);
    const AggregateTypeSpec &driverOf(const Port &port, const Told &told, AggregateUnrollKind kind,
                                      GlobalTypePass &types);
    void failToExpand(const std::string &detail);
    void unrollPort(const PortInfo &info);
    void unrollWire(const WireInfo &info);
    void attachWire(const WireInfo &info, const AggregateTypeSpec &member, int index,
                    const std::vector<MaybePort> &readers);

    using VisitPart = std::function<void(const AggregateTypeSpec &member, int flatIndex, Wire &part)>;
    /// Unpacks of a record and of the records in it; visits the flat members in order.
    void createUnpackTree(const PureValueRef &key, Wire &wire, const AggregateTypeSpec &spec, const std::string &path,
                          int *nextIndex, const VisitPart &visit);
    /// The mirror image: attaches the flat members in order. Nothing is packed for no readers.
    void flatUnrollOutput(const WireInfo &info, const std::vector<MaybePort> &readers, const AggregateTypeSpec &spec,
                          const std::string &path, int *nextIndex);
    /// A pack that the readers of a wire read; null for no readers.
    Block *packFor(const WireInfo &info, const std::vector<MaybePort> &readers, const std::string &word) const;
    /// The port of a member; none without a pack.
    std::vector<MaybePort> memberOf(Block *pack, std::size_t number) const;
    Block &create(const StaticString &type, const PureValueRef &key, const std::string &word) const;

    Block &mBlock;
    const std::vector<RefChain> &mInstances;
    std::shared_ptr<AggregateUnroller> mUnroller;
    const AggregateTypeManager &mManager;
    bool mExpand = false;
    bool mHoldsRecords = false;
    bool mFailed = false;
    std::string mObstacle;
    std::vector<PortInfo> mPorts;
    std::vector<WireInfo> mWires;
};

} // namespace internal_aggregate

} // namespace orvo
