// How what refers to ports and wires by name finds them again after compound signals have been taken apart, and the
// base of all that takes blocks apart.
#pragma once

#include <orvo/model.h>
#include <orvo/unrollmappings.h>
#include <orvo/wire.h>

#include <map>
#include <memory>
#include <set>
#include <unordered_set>
#include <vector>

namespace orvo {

class Block;
class PassContext;
class Port;

namespace internal {
class ReplacedPoints;
}

/// A port that may not exist yet: a block and the key under which it will read a wire. Outlives the port itself, which
/// ends and comes back as its connection changes; must not outlive the block.
class ORVO_API MaybePort {
  public:
    MaybePort(Block &block, PureValueRef key) : mBlock(&block), mKey(std::move(key)) {}
    explicit MaybePort(const Port &port) : mBlock(&port.getBlock()), mKey(port.getName()) {}

    Block &getBlock() const { return *mBlock; }
    const PureValueRef &getKey() const { return mKey; }
    /// Null while nothing is connected.
    Port *getPort() const;
    Wire *getWire() const;
    /// Makes the port, or has it read another wire.
    void setWire(Wire &wire) const;

  private:
    Block *mBlock;
    PureValueRef mKey;
};

/// All readers of a wire, in connection order.
ORVO_API std::vector<MaybePort> maybePortsOf(const Wire &wire);

/// Is told which ports and wires take the place of others. The blocks are looked at during the call only.
class ORVO_API UnrollerNotifier {
  public:
    virtual ~UnrollerNotifier();
    virtual void unrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                            const PureValueRef &newName) = 0;
    virtual void unrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                            const PureValueRef &newName) = 0;
};

/// Listens to nothing.
class ORVO_API DefaultUnrollerNotifier final : public UnrollerNotifier {
  public:
    void unrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                    const PureValueRef &newName) override;
    void unrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                    const PureValueRef &newName) override;
};

/// What takes one block apart. The kinds of signals add the steps; here is what they share: how a substitute is made,
/// and the list of ports that the step at hand has connected.
class ORVO_API Unroller {
  public:
    Unroller();
    Unroller(const Unroller &) = delete;
    Unroller &operator=(const Unroller &) = delete;
    virtual ~Unroller();

    /// The word that tells the substitutes of this kind.
    virtual const std::string &getSuffix() const = 0;

    /// Not owned; null for none. It must outlive the unroller's work.
    void setUnrollerNotifier(UnrollerNotifier *notifier);
    /// A block beside the given one, named (block, suffix), with all its parameters but references to nodes.
    Block &createSubstitute(Block &block) const;

    void notifyUnrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                          const PureValueRef &newName) const;
    void notifyUnrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                          const PureValueRef &newName) const;
    void clearAttachedPorts() { mAttachedPorts.clear(); }
    void addAttachedPort(const MaybePort &port) { mAttachedPorts.push_back(port); }
    const std::vector<MaybePort> &attachedPorts() const { return mAttachedPorts; }
    /// Tells of each attached port that it takes the place of this one.
    void notifyUnrollAttachedPorts(const Block &oldBlock, const PureValueRef &oldName) const;

  private:
    UnrollerNotifier *mNotifier;
    std::vector<MaybePort> mAttachedPorts;
};

/// The ports or the wires that a name of before the taking apart stands for now.
class ORVO_API UnrolledPortWireNames {
  public:
    /// `blockName` is a block of the model, `A_INPUT_BLOCK` or `A_OUTPUT_BLOCK` for its ends, or what the names of
    /// the blocks that took its place begin with.
    UnrolledPortWireNames(const Model &model, PureValueRef blockName, bool isPort, PureValueRef name);

    /// Looks the name up in the netlist as it is. `state` may be null: then no model boundary was taken apart. A block
    /// at the boundary that was taken apart itself is an assertion. Blocks of channels and signals are read by the
    /// names that they share with the boundary of their model: mappings go by names alone, so that those of several
    /// blocks with names of their own could contradict each other.
    void unrollNames(const BoundaryUnrollMappingStateItem *state);

    /// Null if there is no such block.
    Block *getBlock() const { return mBlock; }
    /// Empty where wires were asked for.
    const std::vector<Port *> &getPorts() const { return mPorts; }
    /// Empty where ports were asked for.
    const std::vector<Wire *> &getWires() const { return mWires; }
    /// Whether the name stands for this wire, among others.
    bool isMember(const Wire &wire) const { return mWireSet.count(&wire) != 0; }

  private:
    bool findBlock();
    const UnrollMappings *boundaryMappings(const BoundaryUnrollMappingStateItem *state) const;
    void addPoint(const PureValueRef &name);

    const Model &mModel;
    PureValueRef mBlockName;
    bool mIsPort;
    PureValueRef mName;
    Block *mBlock = nullptr;
    std::vector<Port *> mPorts;
    std::vector<Wire *> mWires;
    std::unordered_set<const Wire *> mWireSet;
};

/// Remembers which points took the place of which, and the constraints that were there. A point is the pair (name of
/// the block, name of the port or wire), since the blocks themselves die.
///
/// Names are used again, so the order of the reports counts. Reports of one old point make one step: each names one
/// more point that takes the place of what stood there. Once another point has become the old one, the next report of
/// it begins a new step, which moves on what stands there by then, and nothing that has left.
class ORVO_API ReferenceNameMapping final : public UnrollerNotifier {
  public:
    ReferenceNameMapping();
    ~ReferenceNameMapping() override;
    ReferenceNameMapping(const ReferenceNameMapping &) = delete;
    ReferenceNameMapping &operator=(const ReferenceNameMapping &) = delete;

    void unrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                    const PureValueRef &newName) override;
    void unrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                    const PureValueRef &newName) override;

    bool empty() const;
    /// The points where what first stood at this one stands now, each once, in the order in which they were told; empty
    /// for a point that was not replaced.
    std::vector<PureTupleValueRef> latestPoints(const PureTupleValueRef &point, bool isPort) const;
    /// Whether a point of the block was told to take the place of another: should the block be replaced in turn, that
    /// must be told, too.
    bool isSuccessor(const Block &block) const;

  private:
    friend class NetlistReferencePointsUpdater;
    const internal::ReplacedPoints &points(bool isPort) const { return isPort ? *mPorts : *mWires; }

    std::unique_ptr<internal::ReplacedPoints> mPorts;
    std::unique_ptr<internal::ReplacedPoints> mWires;
};

/// Keeps the latency constraints of one model, in one instance, and its edges of domains at the right points while its
/// blocks are replaced: what the unrollers told is written to the blocks and the model when the updater goes. A block
/// may die once its points were told of. A substitute that was given all parameters of a block keeps the entries of
/// points that were not replaced.
class ORVO_API NetlistReferencePointsUpdater {
  public:
    NetlistReferencePointsUpdater(const PassContext &context, Model &model, RefChain refChain);
    ~NetlistReferencePointsUpdater();
    NetlistReferencePointsUpdater(const NetlistReferencePointsUpdater &) = delete;
    NetlistReferencePointsUpdater &operator=(const NetlistReferencePointsUpdater &) = delete;

    /// Has the entries of all these instances of the model move along, not only those of the one that it was made with.
    /// The chains must outlive it.
    void setInstances(const std::vector<RefChain> &instances) { mInstances = &instances; }
    /// Has the unroller report to this updater, which must outlive its work.
    void setupUnrollerNotifier(Unroller *unroller) { unroller->setUnrollerNotifier(&mMapping); }
    const ReferenceNameMapping &mapping() const { return mMapping; }
    /// Has it not touch the edges of domains, for one who moves them himself.
    void leaveDomainEdges() { mMovesDomainEdges = false; }

  private:
    using MovedEntries = std::map<Block *, std::vector<ValueRef>, Model::ByName>;
    void unrollLatencyConstraints();
    void unrollDomainEdges();
    bool isOfTheseInstances(const ValueRef &entry) const;
    /// What the replaced points had, at the points that stand there now; their blocks may be gone.
    MovedEntries movedEntries(bool isPort) const;
    /// One list of a block as it becomes, null if nothing stays; entries for other blocks go to `moved`.
    ValueRef unrollPortWireNames(const Block &block, const TupleValueRef &entries, bool isPort,
                                 MovedEntries &moved) const;
    void moveEntry(const PureTupleValueRef &point, const ValueRef &entry, MovedEntries &moved) const;

    Model &mModel;
    RefChain mRefChain;
    /// Null for the one chain alone.
    const std::vector<RefChain> *mInstances = nullptr;
    /// The chains of `mInstances` as entries write them, made when the first entry of one instance is met.
    mutable std::set<PureValueRef, DeepValueCmp> mChains;
    ReferenceNameMapping mMapping;
    bool mMovesDomainEdges = true;
};

} // namespace orvo
