// The cache of types under rewriting passes.
#include <orvo/typecache.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo {

GlobalTypeCache::~GlobalTypeCache() { hook(nullptr); }

void GlobalTypeCache::hook(Design *design) {
    const auto onBlock = util::Function<void(Block &)>::bind<&GlobalTypeCache::onBlockDying>(this);
    const auto onDesign = util::Function<void(Design &)>::bind<&GlobalTypeCache::onDesignDying>(this);
    if (mDesign != nullptr) {
        mDesign->events().blockDying.remove(onBlock);
        mDesign->events().designDying.remove(onDesign);
    }
    mDesign = design;
    if (mDesign != nullptr) {
        mDesign->events().blockDying.add(onBlock);
        mDesign->events().designDying.add(onDesign);
    }
}

void GlobalTypeCache::onBlockDying(Block &block) {
    mCache.erase(&block);
    mAliases.erase(&block);
    mReserved.erase(&block);
}

void GlobalTypeCache::setBlock(const Block &block, const RefChain &refChain) {
    if (mDesign != &block.getDesign()) {
        hook(&block.getDesign());
    }
    mBlock = &block;
    mRefChain = refChain;
    if (const auto aliases = mAliases.find(&block); aliases != mAliases.end()) {
        if (const auto alias = aliases->second.find(refChain); alias != aliases->second.end()) {
            mBlock = alias->second.block;
            mRefChain = alias->second.refChain;
        }
    }
    mFollowed = nullptr;
    mWireStack.clear();
    mBlockStack.clear();
    mPath = {mBlock};
}

void GlobalTypeCache::defineAlias(const Block &block, const RefChain &refChain) const {
    mAliases[&block][refChain] = {&getBlock(), mRefChain};
}

const Block &GlobalTypeCache::getBlock() const {
    ORVO_ASSERT(mBlock != nullptr, "the cursor of a type cache stands nowhere");
    return *mBlock;
}

PureValueRef GlobalTypeCache::ask(const Block &block, End end, const PureValueRef &name) {
    if (end == End::Wire) {
        return mTypes.getType(block.getWire(name), mRefChain);
    }
    const Port *port = block.getPort(name);
    if (end == End::Port) {
        return mTypes.getType(port, mRefChain);
    }
    return port == nullptr ? PureValueRef() : mTypes.getType(port->peekWire(), mRefChain);
}

PureValueRef GlobalTypeCache::cached(const Block &block, End end, const PureValueRef &name) {
    std::map<Key, PureValueRef> &ofBlock = mCache[&block];
    Key key(mRefChain, end, name);
    if (mFrozen) {
        const auto hit = ofBlock.find(key);
        ORVO_ASSERT(hit != ofBlock.end(), "a frozen type cache is asked for a type that it has not seen");
        return hit->second;
    }
    PureValueRef type = ask(block, end, name);
    ofBlock[std::move(key)] = type;
    return type;
}

PureValueRef GlobalTypeCache::getTypeWire(const PureValueRef &name) { return cached(getBlock(), End::Wire, name); }

PureValueRef GlobalTypeCache::getTypePort(const PureValueRef &name) {
    const Port *port = mCacheDriverWire && !mFrozen ? getBlock().getPort(name) : nullptr;
    if (port != nullptr && port->peekWire() != nullptr) {
        cached(port->peekWire()->getBlock(), End::Wire, port->peekWire()->getName());
    }
    return cached(getBlock(), End::Port, name);
}

PureValueRef GlobalTypeCache::getTypeDriver(const PureValueRef &name) { return cached(getBlock(), End::Driver, name); }

void GlobalTypeCache::allWires() {
    for (const Wire &wire : getBlock()) {
        getTypeWire(wire.getName());
    }
}

void GlobalTypeCache::allPorts() {
    for (const Port &port : getBlock().ports()) {
        getTypePort(port.getName());
    }
}

bool GlobalTypeCache::primWireOutIsFloat() {
    return NumTypeSpec(getTypeWire(A_PRIM_WIRE_OUT), getBlock().getContext()).isFloat();
}

bool GlobalTypeCache::followPort(const PureValueRef &name) {
    const Port *port = getBlock().getPort(name);
    if (port == nullptr || port->peekWire() == nullptr) {
        return false;
    }
    mWireStack.push_back(mFollowed);
    mBlockStack.push_back(mBlock);
    mFollowed = port->peekWire();
    mBlock = &mFollowed->getBlock();
    mPath.insert(mBlock);
    return true;
}

bool GlobalTypeCache::backtrack() {
    if (mBlockStack.empty()) {
        return false;
    }
    const Block *left = mBlock;
    mBlock = mBlockStack.back();
    mFollowed = mWireStack.back();
    mBlockStack.pop_back();
    mWireStack.pop_back();
    // A way may pass a block twice.
    if (left != mBlock && std::find(mBlockStack.begin(), mBlockStack.end(), left) == mBlockStack.end()) {
        mPath.erase(left);
    }
    return true;
}

PureValueRef GlobalTypeCache::getFollowedWireName() const {
    return mFollowed != nullptr ? mFollowed->getName() : PureValueRef();
}

std::size_t GlobalTypeCache::getFollowedFanout() const {
    ORVO_ASSERT(mFollowed != nullptr, "no wire was followed");
    return mFollowed->port_size();
}

NumberValueRef GlobalTypeCache::lastNumberedPortName() const {
    NumberValueRef last;
    // Numbers come first in the order of names, ascending.
    for (const Port &port : getBlock().ports()) {
        const NumberValueRef number = numberVR(port.getName());
        if (!number) {
            break;
        }
        last = number;
    }
    return last;
}

void GlobalTypeCache::reserveCurrent() { mReserved.insert(&getBlock()); }

void GlobalTypeCache::reserveAll() { mReserved.insert(mPath.begin(), mPath.end()); }

bool GlobalTypeCache::isCurrentReserved() const { return mReserved.count(&getBlock()) != 0; }

bool GlobalTypeCache::anyReserved() const {
    return std::any_of(mPath.begin(), mPath.end(), [this](const Block *block) { return mReserved.count(block) != 0; });
}

PureValueRef CachedTypeQuery::getType(const Wire &wire, const RefChain &refChain) const {
    mCache.setBlock(wire.getBlock(), refChain);
    return mCache.getTypeWire(wire.getName());
}

PureValueRef CachedTypeQuery::getType(const Wire *wire, const RefChain &refChain) const {
    return wire != nullptr ? getType(*wire, refChain) : PureValueRef();
}

PureValueRef CachedTypeQuery::getType(const Port &port, const RefChain &refChain) const {
    mCache.setBlock(port.getBlock(), refChain);
    return mCache.getTypePort(port.getName());
}

PureValueRef CachedTypeQuery::getType(const Port *port, const RefChain &refChain) const {
    return port != nullptr ? getType(*port, refChain) : PureValueRef();
}

PureValueRef CachedTypeQuery::getDriverType(const Port *port, const RefChain &refChain) const {
    if (port == nullptr) {
        return {};
    }
    mCache.setBlock(port->getBlock(), refChain);
    return mCache.getTypeDriver(port->getName());
}

} // namespace orvo
