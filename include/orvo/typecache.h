// What passes use that look for patterns of blocks and then rewrite them: types that are found while the netlist stands
// still and read while it changes.
#pragma once

#include <orvo/block.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/typeinferpass.h>

#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

namespace orvo {

/// A cursor on one block of one instance, and the types that were asked for there. While frozen, a type that was not
/// asked for before is an assertion.
class ORVO_API GlobalTypeCache final : public FreezableTypes {
  public:
    explicit GlobalTypeCache(GlobalTypePass &types) : mTypes(types) {}
    ~GlobalTypeCache() override;
    GlobalTypeCache(const GlobalTypeCache &) = delete;
    GlobalTypeCache &operator=(const GlobalTypeCache &) = delete;

    void freeze() override { mFrozen = true; }
    void thaw() override { mFrozen = false; }
    bool frozen() const { return mFrozen; }

    /// Puts the cursor on a block, or on the one that it is an alias of, and forgets the way that was followed.
    void setBlock(const Block &block, const RefChain &refChain);
    /// From now on this block, made while rewriting, has the types of the cursor's block.
    void defineAlias(const Block &block, const RefChain &refChain) const;
    /// Null if the type is unknown or the block has no such wire or port.
    PureValueRef getTypeWire(const PureValueRef &name);
    PureValueRef getTypePort(const PureValueRef &name);
    /// The type of the wire that drives a port, which the port's own may differ from: a block may ask for a type at its
    /// port, whatever comes in. Kept with the port, so that it can be read once another wire drives that.
    PureValueRef getTypeDriver(const PureValueRef &name);
    /// Whether a port's type is kept together with that of the wire that drives it.
    void alwaysCacheDriverWire(bool on) { mCacheDriverWire = on; }
    /// Asks for the types of all wires or ports of the cursor's block.
    void allWires();
    void allPorts();
    bool primWireOutIsFloat();

    /// Steps back along a port to the block that drives it; false if there is no such port. The instance stays.
    bool followPort(const PureValueRef &name);
    /// Undoes the last step; false if there is none.
    bool backtrack();
    /// Of the wire that was followed last; null if none was.
    PureValueRef getFollowedWireName() const;
    /// Readers of that wire, which must exist.
    std::size_t getFollowedFanout() const;

    const Block &getBlock() const;
    const RefChain &getRefChain() const { return mRefChain; }
    std::size_t getPortCount() const { return getBlock().getPortCount(); }
    std::size_t getWireCount() const { return getBlock().getWireCount(); }
    ValueRef getBlockParam(const PureValueRef &key) const { return getBlock().getParam(key); }
    /// The largest of the numbers of the numbered ports; null if there is none.
    NumberValueRef lastNumberedPortName() const;

    /// Blocks that a rewrite has claimed, so that no second one does.
    void reserveCurrent();
    /// All blocks on the way that was followed.
    void reserveAll();
    bool isCurrentReserved() const;
    bool anyReserved() const;
    void clearReserved() { mReserved.clear(); }

  private:
    struct Place {
        const Block *block = nullptr;
        RefChain refChain;
    };
    enum class End { Wire, Port, Driver };
    /// An instance, which end of the block it is, and its name.
    using Key = std::tuple<RefChain, End, PureValueRef>;
    void hook(Design *design);
    /// A block made later may stand where this one stood: nothing of it must be left.
    void onBlockDying(Block &block);
    void onDesignDying(Design &) { mDesign = nullptr; }
    PureValueRef cached(const Block &block, End end, const PureValueRef &name);
    PureValueRef ask(const Block &block, End end, const PureValueRef &name);

    GlobalTypePass &mTypes;
    bool mFrozen = false;
    bool mCacheDriverWire = false;
    const Block *mBlock = nullptr;
    RefChain mRefChain;
    const Wire *mFollowed = nullptr;
    std::vector<const Wire *> mWireStack;
    std::vector<const Block *> mBlockStack;
    std::set<const Block *> mPath;
    std::unordered_set<const Block *> mReserved;
    std::unordered_map<const Block *, std::map<Key, PureValueRef>> mCache;
    mutable std::unordered_map<const Block *, std::map<RefChain, Place>> mAliases;
    Design *mDesign = nullptr;
};

/// Answers for any end through a cache: what rewriting handlers are given.
class ORVO_API CachedTypeQuery {
  public:
    explicit CachedTypeQuery(GlobalTypeCache &cache) : mCache(cache) {}
    PureValueRef getType(const Wire &wire, const RefChain &refChain) const;
    PureValueRef getType(const Wire *wire, const RefChain &refChain) const;
    PureValueRef getType(const Port &port, const RefChain &refChain) const;
    PureValueRef getType(const Port *port, const RefChain &refChain) const;
    /// Of the wire that drove the port when the types were asked for.
    PureValueRef getDriverType(const Port *port, const RefChain &refChain) const;

  private:
    GlobalTypeCache &mCache;
};

} // namespace orvo
