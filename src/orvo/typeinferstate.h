// The state of type inference: of a block, of a model instance, and of the tree of instances. Kept small, since there
// is one of it for each block of each instance.
#pragma once

#include <orvo/model.h>
#include <orvo/typeinfer.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <util/pool.h>

#include <deque>
#include <unordered_map>
#include <unordered_set>

namespace orvo::internal {

class ChainTypeInfo;
class ModelTypeInfo;

/// Who set a type.
enum class Source : std::uint8_t { Unset = 0, Static = 1, Forward = 2, Backward = 3, OldStyle = 4 };

/// A port or wire of one block in one instance.
struct SignalTypeInfo {
    PureValueRef name;
    /// Set on this very end of the net.
    PureValueRef type;
    /// Of the net, as its first setter left it.
    PureValueRef netType;
    Source source = Source::Unset;
};

/// The ends of one block that were met so far, by name. A handful for most blocks, thousands for some.
class SignalTable {
  public:
    SignalTypeInfo *find(const Value *name);
    SignalTypeInfo &get(const PureValueRef &name);

  private:
    static constexpr std::size_t kLinear = 16;
    std::vector<SignalTypeInfo, util::PoolAllocator<SignalTypeInfo>> mSignals;
    std::unique_ptr<std::unordered_map<const Value *, std::uint32_t>> mIndex;
};

/// The handlers of a block class, looked up once.
struct TypeRules {
    const TypeInferHandler2 *newStyle = nullptr;
    const TypeInferHandler *oldStyle = nullptr;
};

/// The state of one block in one instance.
class BlockTypeInfo final : public TypeInferAPI2, public util::Pooled {
  public:
    BlockTypeInfo(const Block &block, ModelTypeInfo &model);

    const Block &getBlock() const override { return *mBlock; }
    ValueRef getParam(const PureValueRef &key) const override { return mBlock->getParam(key); }
    ValueRef getModelParam(const PureValueRef &key) const override { return mBlock->getModel().getParam(key); }
    NameEnumerator getPortNames() const override;
    NameEnumerator getWireNames() const override;
    PureValueRef getPortType(const PureValueRef &name) override;
    PureValueRef getWireType(const PureValueRef &name) override;
    void setPortType(const PureValueRef &name, const PureValueRef &type) override;
    void setWireType(const PureValueRef &name, const PureValueRef &type) override;
    bool allPortsHaveTypes() const override { return mUnsetPortNets == 0; }
    bool allWiresHaveTypes() const override { return mUnsetWireNets == 0; }
    NewlySet<Port> iterateNewlySetPorts() const override { return {&mNewPorts, mNewPortsStart}; }
    NewlySet<Wire> iterateNewlySetWires() const override { return {&mNewWires, mNewWiresStart}; }
    void setParentPortType(const PureValueRef &name, const PureValueRef &type) override;
    void setParentWireType(const PureValueRef &name, const PureValueRef &type) override;
    void setFlag(FlagBits flag) override { mFlags = static_cast<std::uint8_t>(mFlags | flag); }
    bool testFlag(FlagBits flag) const { return (mFlags & flag) != 0; }

    /// One step of the block's rule; whether anything came of it.
    bool inferTypes(const TypeRules &rules);
    void setSource(Source source) { mSource = source; }
    void emptyNewPorts() { mNewPortsStart = static_cast<std::uint32_t>(mNewPorts.size()); }
    void emptyNewWires() { mNewWiresStart = static_cast<std::uint32_t>(mNewWires.size()); }
    /// What is known without taking anything over: for queries.
    PureValueRef knownPortType(const Port &port);
    PureValueRef knownWireType(const Wire &wire);

    /// Marks of the work queue: the last sweep that passed this block, and whether it waits.
    std::uint32_t sweep = 0;
    bool queued = false;

  private:
    bool setInfoType(const PureValueRef &name, SignalTypeInfo &info, bool isPort, const PureValueRef &type);
    void setNetType(const PureValueRef &name, bool isPort, const PureValueRef &type);
    void onNetTypeOfPort(const Port &port, const PureValueRef &type);

    const Block *mBlock;
    ModelTypeInfo *mModel;
    std::uint32_t mChangeCounter = 0;
    std::uint32_t mUnsetPorts;
    std::uint32_t mUnsetWires;
    std::uint32_t mUnsetPortNets;
    std::uint32_t mUnsetWireNets;
    std::uint32_t mNewPortsStart = 0;
    std::uint32_t mNewWiresStart = 0;
    std::uint8_t mFlags = 0;
    Source mSource = Source::Unset;
    SignalTable mPorts;
    SignalTable mWires;
    NewlySet<Port>::List mNewPorts;
    NewlySet<Wire>::List mNewWires;
};

/// Blocks to their states: open addressing, at most half full. Owns the states.
class InferMap {
  public:
    InferMap() = default;
    ~InferMap();
    InferMap(const InferMap &) = delete;
    InferMap &operator=(const InferMap &) = delete;
    BlockTypeInfo *find(const Block *block) const;
    /// The block must not be there.
    void insert(const Block *block, BlockTypeInfo *info);
    void reserve(std::size_t count);

  private:
    struct Slot {
        const Block *block = nullptr;
        BlockTypeInfo *info = nullptr;
    };
    using Slots = std::vector<Slot, util::PoolAllocator<Slot>>;
    std::size_t home(const Block *block) const;
    void place(const Slot &slot);
    Slots mSlots;
    std::size_t mCount = 0;
};

enum UpdateFlag : std::uint32_t {
    TYPE_UPDATE_CHANGED = 1,
    TYPE_UPDATE_CHILDREN = 2,
    TYPE_UPDATE_PARENT = 4,
    TYPE_UPDATE_ALL_CHILDREN = 8,
};

/// A bit for each `CompoundKind`.
using CompoundKinds = std::uint8_t;
constexpr CompoundKinds kAnyKind = 7;

/// The state of a model instance, with its worklist: each block of the model, or of a part of it, once in order, then
/// those that somebody asked for, once a request.
class ModelTypeInfo {
  public:
    explicit ModelTypeInfo(GlobalTypeImpl &impl) : mImpl(impl) {}

    BlockTypeInfo &getBlockInfo(const Block &block);
    BlockTypeInfo *findBlockInfo(const Block &block) const { return mBlocks.find(&block); }
    void enqueue(BlockTypeInfo &info);
    BlockTypeInfo *parent() const { return mParentInfo; }
    const Model *model() const { return mModel; }
    /// Runs the worklist dry; `UpdateFlag`s.
    std::uint32_t inferTypes();
    /// Keeps count of the ends whose nets have no type yet, and of what the types are.
    void noteEnds(std::uint32_t count) { mUnknownEnds += count; }
    void noteKnownEnd() { --mUnknownEnds; }
    void noteType(const PureValueRef &type);
    /// What the signals of the instance may be.
    CompoundKinds possibleKinds() const { return mUnknownEnds == 0 ? mKinds : kAnyKind; }

  protected:
    /// Starts over with the whole model, or with the given blocks in their order.
    void restart(const std::vector<const Block *> *subset);
    BlockTypeInfo *nextBlock();

    GlobalTypeImpl &mImpl;
    const Model *mModel = nullptr;
    BlockTypeInfo *mParentInfo = nullptr;
    /// The model blocks that need a run, each once, in the order of their requests.
    std::vector<const Block *> mChildrenToRun;
    std::unordered_set<const Block *> mChildrenSet;
    void addChildToRun(const Block *block) {
        if (mChildrenSet.insert(block).second) {
            mChildrenToRun.push_back(block);
        }
    }
    bool hasSubset() const { return mHasSubset; }
    const std::vector<const Block *> &subset() const { return mSubset; }
    bool inSubset(const Block &block) const { return !mHasSubset || mSubsetSet.count(&block) != 0; }

  private:
    InferMap mBlocks;
    std::deque<BlockTypeInfo *> mQueue;
    std::uint32_t mSweep = 0;
    bool mSweeping = false;
    bool mHasSubset = false;
    CompoundKinds mKinds = 0;
    std::uint64_t mUnknownEnds = 0;
    const Block *mSweepAt = nullptr;
    std::vector<const Block *> mSubset;
    std::unordered_set<const Block *> mSubsetSet;
    std::size_t mSubsetNext = 0;
};

/// A node of the tree of instances.
class ChainTypeInfo final : public ModelTypeInfo {
  public:
    ChainTypeInfo(GlobalTypeImpl &impl, ChainTypeInfo *parentChain) : ModelTypeInfo(impl), mParentChain(parentChain) {}

    ChainTypeInfo *findChild(const Block *block) const;
    /// The fixed point over this instance and those below.
    void inferTypesRecurse();
    /// Whether the chain had not been made ready in this run; then it is.
    static bool newlyInitialized(ChainTypeInfo &chain, const Model &model, BlockTypeInfo *parentInfo);
    const std::vector<std::unique_ptr<ChainTypeInfo>> &children() const { return mChildren; }

  private:
    std::uint32_t inferInstance();
    bool scanModel();
    bool scanBlock(const Block &block);
    /// Whether this is an instance of the model, or below one: such a model has no end.
    bool isInside(const Model &model) const;
    void carryParentTypes();

    ChainTypeInfo *mParentChain;
    const Block *mInputBlock = nullptr;
    const Block *mOutputBlock = nullptr;
    /// In the order of the model's blocks, so that nothing depends on addresses.
    std::vector<std::unique_ptr<ChainTypeInfo>> mChildren;
    std::unordered_map<const Block *, std::size_t> mChildAt;
    std::uint32_t mVisitedRun = 0;
    std::uint32_t mInitialisedRun = 0;
    bool mInQueue = false;
};

enum class EvalState : std::uint8_t { None = 0, Minimal = 1, Full = 2 };

/// The private state behind the pass.
struct GlobalTypeImpl {
    struct Root {
        std::unique_ptr<ChainTypeInfo> chain;
        EvalState state = EvalState::None;
    };
    std::unordered_map<const Model *, Root> roots;
    /// Made for all roots together.
    std::size_t instances = 0;
    bool frozen = false;
    bool dirty = false;
    bool minimalSetEnabled = false;
    bool limitIsFixed = false;
    bool minimalSetsOff = false;
    std::size_t minimalSetLimit = 500;
    int warningLevel = 0;
    ModelTreePass *tree = nullptr;
    EvalState state = EvalState::None;
    /// Number of the current evaluation; a chain notes the last one that made it ready, and that visited it.
    std::uint32_t initialisedRun = 0;
    std::uint32_t visitedRun = 0;
    std::unordered_map<const Model *, std::vector<const Block *>> subsets;
    std::unordered_map<const BlockClass *, TypeRules> rules;
    const BlockClass *lastClass = nullptr;
    TypeRules lastRules;
    /// Blocks that died while the types were frozen: their addresses may serve new blocks, which have no types.
    std::unordered_set<const Block *> diedFrozen;
    Design *design = nullptr;
    TypeInferStatistics statistics;
    /// By type.
    std::unordered_map<const Value *, CompoundKinds> kinds;
    const Value *lastType = nullptr;
    CompoundKinds lastKinds = 0;
    /// Whether an instance was left out, since it has no end or there are too many.
    bool leftOut = false;
    /// What the models that were reached may carry, once somebody has asked.
    bool surveyed = false;
    std::unordered_map<const Model *, CompoundKinds> possibleKinds;

    CompoundKinds kindsOf(const PureValueRef &type, Context *context);
    void survey();
    const TypeRules &rulesOf(const Block &block);
    template <class End> PureValueRef evaluateType(const End &end, const Block &block, const RefChain &refChain);
    template <class End>
    PureValueRef known(const Model &root, const End &end, const Block &block, const RefChain &refChain);
    template <class End> void buildSubsets(const End &end, const RefChain &refChain);
    void evaluate(const Model &rootModel, Root &root);
    void forget();
    void hook(Design &target, bool on);
    void onModelEvent(Model &model);
    void onBlockDying(Block &block);
    void onDesignDying(Design &design);
};

} // namespace orvo::internal
