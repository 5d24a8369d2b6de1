// The steps of type inference: a type is set on one end of a net and reaches all others, a block's rule runs, a model
// runs its worklist dry, instances run until none has news for another.
#include "orvo/typeinferstate.h"

#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include <algorithm>

namespace orvo {

NameEnumeratorSrc::~NameEnumeratorSrc() = default;
TypeInferAPI2::~TypeInferAPI2() = default;

PureValueRef PortsEnumeratorSrc::next() {
    if (mAt == mEnd) {
        return {};
    }
    PureValueRef name = mAt->getName();
    ++mAt;
    return name;
}

PureValueRef WiresEnumeratorSrc::next() {
    if (mAt == mEnd) {
        return {};
    }
    PureValueRef name = (*mAt).first;
    ++mAt;
    return name;
}

bool NameEnumerator::next() {
    mCurrent = mSource->next();
    return static_cast<bool>(mCurrent);
}

void TypeInferHandler::inferTypes(TypeInferAPI &) const {}
bool TypeInferHandler2::enoughPortsHaveTypes(TypeInferAPI2 &api) const { return api.allPortsHaveTypes(); }
bool TypeInferHandler2::enoughWiresHaveTypes(TypeInferAPI2 &api) const { return api.allWiresHaveTypes(); }
void TypeInferHandler2::inferStatic(TypeInferAPI2 &) const {}
void TypeInferHandler2::inferForward(TypeInferAPI2 &) const {}
void TypeInferHandler2::inferBackward(TypeInferAPI2 &) const {}

const Block &TypeInferAPI::getBlock() const { return mInfo.getBlock(); }
ValueRef TypeInferAPI::getParam(const PureValueRef &key) const { return mInfo.getParam(key); }
const Port *TypeInferAPI::getPort(const PureValueRef &key) const { return mInfo.getBlock().getPort(key); }
const Wire *TypeInferAPI::getWire(const PureValueRef &key) const { return mInfo.getBlock().getWire(key); }

void TypeInferAPI::setType(const Port &port, const PureValueRef &type) { mInfo.setPortType(port.getName(), type); }
void TypeInferAPI::setType(const Wire &wire, const PureValueRef &type) { mInfo.setWireType(wire.getName(), type); }

void TypeInferAPI::setType(const Port *port, const PureValueRef &type) {
    if (port != nullptr) {
        setType(*port, type);
    }
}

void TypeInferAPI::setType(const Wire *wire, const PureValueRef &type) {
    if (wire != nullptr) {
        setType(*wire, type);
    }
}

PureValueRef TypeInferAPI::getConnectedType(const Port &port) {
    ORVO_ASSERT(&port.getBlock() == &getBlock(), "a rule asks for the port of another block");
    return mInfo.getPortType(port.getName());
}

PureValueRef TypeInferAPI::getConnectedType(const Wire &wire) {
    ORVO_ASSERT(&wire.getBlock() == &getBlock(), "a rule asks for the wire of another block");
    return mInfo.getWireType(wire.getName());
}

PureValueRef TypeInferAPI::getConnectedType(const Port *port) {
    return port != nullptr ? getConnectedType(*port) : PureValueRef();
}

PureValueRef TypeInferAPI::getConnectedType(const Wire *wire) {
    return wire != nullptr ? getConnectedType(*wire) : PureValueRef();
}

namespace internal {

SignalTypeInfo *SignalTable::find(const Value *name) {
    if (mIndex != nullptr) {
        const auto hit = mIndex->find(name);
        return hit == mIndex->end() ? nullptr : &mSignals[hit->second];
    }
    const auto hit = std::find_if(mSignals.begin(), mSignals.end(),
                                  [name](const SignalTypeInfo &info) { return info.name.get_ptr() == name; });
    return hit == mSignals.end() ? nullptr : &*hit;
}

SignalTypeInfo &SignalTable::get(const PureValueRef &name) {
    if (SignalTypeInfo *hit = find(name.get_ptr())) {
        return *hit;
    }
    mSignals.push_back({name, {}, {}, Source::Unset});
    if (mIndex != nullptr) {
        mIndex->emplace(name.get_ptr(), static_cast<std::uint32_t>(mSignals.size() - 1));
    } else if (mSignals.size() > kLinear) {
        mIndex = std::make_unique<std::unordered_map<const Value *, std::uint32_t>>();
        for (std::size_t i = 0; i < mSignals.size(); ++i) {
            mIndex->emplace(mSignals[i].name.get_ptr(), static_cast<std::uint32_t>(i));
        }
    }
    return mSignals.back();
}

BlockTypeInfo::BlockTypeInfo(const Block &block, ModelTypeInfo &model)
    : TypeInferAPI2(InferenceMode::Normal), mBlock(&block), mModel(&model),
      mUnsetPorts(static_cast<std::uint32_t>(block.port_size())),
      mUnsetWires(static_cast<std::uint32_t>(block.getWireCount())), mUnsetPortNets(mUnsetPorts),
      mUnsetWireNets(mUnsetWires) {
    model.noteEnds(mUnsetPorts + mUnsetWires);
}

NameEnumerator BlockTypeInfo::getPortNames() const {
    return NameEnumerator(std::make_unique<PortsEnumeratorSrc>(*mBlock));
}

NameEnumerator BlockTypeInfo::getWireNames() const {
    return NameEnumerator(std::make_unique<WiresEnumeratorSrc>(*mBlock));
}

// The first type stands: types only go from unknown to known, which is why the fixed point ends.
bool BlockTypeInfo::setInfoType(const PureValueRef &name, SignalTypeInfo &info, bool isPort, const PureValueRef &type) {
    if (!type || info.type == type) {
        return false;
    }
    if (info.type) {
        const log::LogParams params = log::p("newType", type) % log::p("oldType", info.type) %
                                      log::p(isPort ? "port" : "wire", name) % log::p("block", mBlock->value());
        if (isPort) {
            log::msg(msg::warning::MODIFYING_PORT_TYPE, params);
        } else {
            log::msg(msg::warning::MODIFYING_WIRE_TYPE, params);
        }
        return false;
    }
    info.type = type;
    info.source = mSource;
    mModel->noteType(type);
    ++mChangeCounter;
    std::uint32_t &unset = isPort ? mUnsetPorts : mUnsetWires;
    ORVO_ASSERT(unset > 0, "more types than ports and wires");
    --unset;
    return true;
}

PureValueRef BlockTypeInfo::getPortType(const PureValueRef &name) {
    SignalTypeInfo *info = mPorts.find(name.get_ptr());
    if (info == nullptr) {
        return {};
    }
    if (!info->type && info->netType) {
        setInfoType(name, *info, true, info->netType);
    }
    return info->type;
}

PureValueRef BlockTypeInfo::getWireType(const PureValueRef &name) {
    SignalTypeInfo *info = mWires.find(name.get_ptr());
    if (info == nullptr) {
        return {};
    }
    if (!info->type && info->netType) {
        setInfoType(name, *info, false, info->netType);
    }
    return info->type;
}

void BlockTypeInfo::setPortType(const PureValueRef &name, const PureValueRef &type) {
    if (type && mBlock->getPort(name) != nullptr && setInfoType(name, mPorts.get(name), true, type)) {
        setNetType(name, true, type);
    }
}

void BlockTypeInfo::setWireType(const PureValueRef &name, const PureValueRef &type) {
    if (type && mBlock->getWire(name) != nullptr && setInfoType(name, mWires.get(name), false, type)) {
        setNetType(name, false, type);
    }
}

void BlockTypeInfo::onNetTypeOfPort(const Port &port, const PureValueRef &type) {
    mPorts.get(port.getName()).netType = type;
    mNewPorts.push_back(&port);
    ORVO_ASSERT(mUnsetPortNets > 0, "more types than ports");
    --mUnsetPortNets;
    mModel->noteKnownEnd();
}

// A net's first setter wins. A later one brings nothing that the other ends could take over, so they are left alone:
// otherwise a wire of many readers that all set its type would cost the square of their number.
void BlockTypeInfo::setNetType(const PureValueRef &name, bool isPort, const PureValueRef &type) {
    const Port *caller = isPort ? mBlock->getPort(name) : nullptr;
    const Wire *wire = isPort ? caller->peekWire() : mBlock->getWire(name);
    if (wire == nullptr) {
        return;
    }
    const Block &driverBlock = wire->getBlock();
    BlockTypeInfo &driver = &driverBlock == mBlock ? *this : mModel->getBlockInfo(driverBlock);
    SignalTypeInfo &net = driver.mWires.get(wire->getName());
    if (net.netType) {
        return;
    }
    net.netType = type;
    driver.mNewWires.push_back(wire);
    ORVO_ASSERT(driver.mUnsetWireNets > 0, "more types than wires");
    --driver.mUnsetWireNets;
    mModel->noteKnownEnd();
    if (isPort) {
        mModel->enqueue(driver);
    }
    for (const Port &port : wire->ports()) {
        BlockTypeInfo &reader = &port.getBlock() == mBlock ? *this : mModel->getBlockInfo(port.getBlock());
        reader.onNetTypeOfPort(port, type);
        if (&port != caller) {
            mModel->enqueue(reader);
        }
    }
}

void BlockTypeInfo::setParentPortType(const PureValueRef &name, const PureValueRef &type) {
    if (BlockTypeInfo *parent = mModel->parent()) {
        parent->setPortType(name, type);
    }
}

void BlockTypeInfo::setParentWireType(const PureValueRef &name, const PureValueRef &type) {
    if (BlockTypeInfo *parent = mModel->parent()) {
        parent->setWireType(name, type);
    }
}

bool BlockTypeInfo::inferTypes(const TypeRules &rules) {
    mFlags = 0;
    const std::uint32_t before = mChangeCounter;
    if (rules.newStyle != nullptr) {
        if (mChangeCounter == 0) {
            mSource = Source::Static;
            rules.newStyle->inferStatic(*this);
        }
        if (rules.newStyle->enoughPortsHaveTypes(*this)) {
            mSource = Source::Forward;
            rules.newStyle->inferForward(*this);
            emptyNewPorts();
        }
        if (rules.newStyle->enoughWiresHaveTypes(*this)) {
            mSource = Source::Backward;
            rules.newStyle->inferBackward(*this);
            emptyNewWires();
        }
    } else if (rules.oldStyle != nullptr) {
        mSource = Source::OldStyle;
        TypeInferAPI api(*this);
        rules.oldStyle->inferTypes(api);
    }
    return mChangeCounter != before || mFlags != 0;
}

PureValueRef BlockTypeInfo::knownPortType(const Port &port) {
    const SignalTypeInfo *info = mPorts.find(port.getName().get_ptr());
    return info == nullptr ? PureValueRef() : info->type ? info->type : info->netType;
}

PureValueRef BlockTypeInfo::knownWireType(const Wire &wire) {
    const SignalTypeInfo *info = mWires.find(wire.getName().get_ptr());
    return info == nullptr ? PureValueRef() : info->type ? info->type : info->netType;
}

InferMap::~InferMap() {
    for (const Slot &slot : mSlots) {
        delete slot.info;
    }
}

std::size_t InferMap::home(const Block *block) const {
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(block));
    return static_cast<std::size_t>(((bits >> 4U) * 0x9e3779b97f4a7c15ULL) >> 20U) & (mSlots.size() - 1);
}

BlockTypeInfo *InferMap::find(const Block *block) const {
    if (mSlots.empty()) {
        return nullptr;
    }
    for (std::size_t i = home(block); mSlots[i].block != nullptr; i = (i + 1) & (mSlots.size() - 1)) {
        if (mSlots[i].block == block) {
            return mSlots[i].info;
        }
    }
    return nullptr;
}

void InferMap::place(const Slot &slot) {
    std::size_t i = home(slot.block);
    while (mSlots[i].block != nullptr) {
        i = (i + 1) & (mSlots.size() - 1);
    }
    mSlots[i] = slot;
}

void InferMap::reserve(std::size_t count) {
    std::size_t capacity = mSlots.empty() ? 8 : mSlots.size();
    while (capacity < count * 2) {
        capacity *= 2;
    }
    if (capacity == mSlots.size()) {
        return;
    }
    Slots old(capacity);
    old.swap(mSlots);
    for (const Slot &slot : old) {
        if (slot.block != nullptr) {
            place(slot);
        }
    }
}

void InferMap::insert(const Block *block, BlockTypeInfo *info) {
    reserve(++mCount);
    place({block, info});
}

BlockTypeInfo &ModelTypeInfo::getBlockInfo(const Block &block) {
    BlockTypeInfo *info = mBlocks.find(&block);
    if (info == nullptr) {
        info = new BlockTypeInfo(block, *this);
        mBlocks.insert(&block, info);
    }
    return *info;
}

void ModelTypeInfo::noteType(const PureValueRef &type) {
    mKinds = static_cast<CompoundKinds>(mKinds | mImpl.kindsOf(type, mModel->getContext()));
}

void ModelTypeInfo::restart(const std::vector<const Block *> *subset) {
    mQueue.clear();
    mSweeping = true;
    ++mSweep;
    mHasSubset = subset != nullptr;
    mSubset.clear();
    mSubsetSet.clear();
    mSubsetNext = 0;
    mSweepAt = nullptr;
    if (subset != nullptr) {
        mSubset = *subset;
        mSubsetSet.insert(mSubset.begin(), mSubset.end());
    } else if (mModel->size() != 0) {
        mSweepAt = &*mModel->begin();
        mBlocks.reserve(mModel->size());
    }
}

BlockTypeInfo *ModelTypeInfo::nextBlock() {
    const Block *block = nullptr;
    if (mSweeping && mHasSubset) {
        block = mSubsetNext < mSubset.size() ? mSubset[mSubsetNext++] : nullptr;
    } else if (mSweeping) {
        block = mSweepAt;
        mSweepAt = block == nullptr ? nullptr : static_cast<const Block *>(block->getNextSibling());
    }
    if (block != nullptr) {
        BlockTypeInfo &info = getBlockInfo(*block);
        info.sweep = mSweep;
        return &info;
    }
    mSweeping = false;
    if (mQueue.empty()) {
        return nullptr;
    }
    BlockTypeInfo *info = mQueue.front();
    mQueue.pop_front();
    info->queued = false;
    return info;
}

void ModelTypeInfo::enqueue(BlockTypeInfo &info) {
    if (info.queued || (mSweeping && info.sweep != mSweep) || !inSubset(info.getBlock())) {
        return;
    }
    info.queued = true;
    mQueue.push_back(&info);
}

std::uint32_t ModelTypeInfo::inferTypes() {
    mModel->process(9);
    std::uint32_t flags = 0;
    while (BlockTypeInfo *info = nextBlock()) {
        ++mImpl.statistics.steps;
        if (!info->inferTypes(mImpl.rulesOf(info->getBlock()))) {
            continue;
        }
        flags |= TYPE_UPDATE_CHANGED;
        if (info->testFlag(TYPE_FLAG_UPDATE_CHILD)) {
            flags |= TYPE_UPDATE_CHILDREN;
            addChildToRun(&info->getBlock());
        } else if (info->testFlag(TYPE_FLAG_UPDATE_PARENT)) {
            flags |= TYPE_UPDATE_PARENT;
        }
    }
    return flags;
}

ChainTypeInfo *ChainTypeInfo::findChild(const Block *block) const {
    const auto at = mChildAt.find(block);
    return at == mChildAt.end() ? nullptr : mChildren[at->second].get();
}

bool ChainTypeInfo::newlyInitialized(ChainTypeInfo &chain, const Model &model, BlockTypeInfo *parentInfo) {
    GlobalTypeImpl &impl = chain.mImpl;
    if (chain.mInitialisedRun == impl.initialisedRun) {
        return false;
    }
    chain.mInitialisedRun = impl.initialisedRun;
    chain.mModel = &model;
    chain.mParentInfo = parentInfo;
    if (impl.state == EvalState::Minimal) {
        static const std::vector<const Block *> emptySubset;
        const auto subset = impl.subsets.find(&model);
        chain.restart(subset == impl.subsets.end() ? &emptySubset : &subset->second);
    } else {
        chain.restart(nullptr);
    }
    return true;
}

bool ChainTypeInfo::isInside(const Model &model) const {
    for (const ChainTypeInfo *at = this; at != nullptr; at = at->mParentChain) {
        if (at->mModel == &model) {
            return true;
        }
    }
    return false;
}

/// Finds the edges of the model and the instances below; whether one of those is new in this run.
bool ChainTypeInfo::scanModel() {
    mVisitedRun = mImpl.visitedRun;
    const Model::BlockSet &inputs = mModel->getInputBlocks();
    const Model::BlockSet &outputs = mModel->getOutputBlocks();
    mInputBlock = inputs.empty() ? nullptr : *inputs.rbegin();
    mOutputBlock = outputs.empty() ? nullptr : *outputs.rbegin();
    bool anyNew = false;
    if (hasSubset()) {
        for (const Block *block : subset()) {
            anyNew = scanBlock(*block) || anyNew;
        }
    } else {
        for (const Block &block : *mModel) {
            anyNew = scanBlock(block) || anyNew;
        }
    }
    return anyNew;
}

/// Makes the instance below a model block known; whether it is new in this run.
bool ChainTypeInfo::scanBlock(const Block &block) {
    const Model *model = block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
    if (model == nullptr) {
        return false;
    }
    if (isInside(*model)) {
        mImpl.leftOut = true;
        return false;
    }
    const auto [at, isNew] = mChildAt.try_emplace(&block, mChildren.size());
    if (isNew) {
        if (mImpl.instances >= limits::kTypeInstances) {
            mChildAt.erase(at);
            mImpl.leftOut = true;
            return false;
        }
        ++mImpl.instances;
        mChildren.push_back(std::make_unique<ChainTypeInfo>(mImpl, this));
    }
    if (!newlyInitialized(*mChildren[at->second], *model, &getBlockInfo(block))) {
        return false;
    }
    addChildToRun(&block);
    return true;
}

/// Takes over what the block that instantiates this model has learned at its ports and wires.
void ChainTypeInfo::carryParentTypes() {
    if (mInputBlock != nullptr) {
        BlockTypeInfo &input = getBlockInfo(*mInputBlock);
        input.setSource(Source::Forward);
        for (const Port &port : mParentInfo->iterateNewlySetPorts()) {
            const PureValueRef type = mParentInfo->getPortType(port.getName());
            ORVO_ASSERT(static_cast<bool>(type), "a newly set port has no type");
            input.setWireType(port.getName(), type);
        }
    }
    mParentInfo->emptyNewPorts();
    if (mOutputBlock != nullptr) {
        BlockTypeInfo &output = getBlockInfo(*mOutputBlock);
        output.setSource(Source::Backward);
        for (const Wire &wire : mParentInfo->iterateNewlySetWires()) {
            const PureValueRef type = mParentInfo->getWireType(wire.getName());
            ORVO_ASSERT(static_cast<bool>(type), "a newly set wire has no type");
            output.setPortType(wire.getName(), type);
        }
    }
    mParentInfo->emptyNewWires();
}

std::uint32_t ChainTypeInfo::inferInstance() {
    mChildrenToRun.clear();
    mChildrenSet.clear();
    const bool anyNew = mVisitedRun != mImpl.visitedRun && scanModel();
    if (mParentInfo != nullptr) {
        carryParentTypes();
    }
    const std::uint32_t flags = ModelTypeInfo::inferTypes();
    if (flags == 0) {
        return anyNew ? TYPE_UPDATE_CHANGED | TYPE_UPDATE_CHILDREN | TYPE_UPDATE_PARENT | TYPE_UPDATE_ALL_CHILDREN : 0;
    }
    return anyNew ? flags | TYPE_UPDATE_CHILDREN : flags;
}

void ChainTypeInfo::inferTypesRecurse() {
    ++mImpl.visitedRun;
    std::deque<ChainTypeInfo *> queue{this};
    mInQueue = true;
    const auto append = [&queue](ChainTypeInfo *chain) {
        if (chain != nullptr && !chain->mInQueue) {
            chain->mInQueue = true;
            queue.push_back(chain);
        }
    };
    while (!queue.empty()) {
        ChainTypeInfo &chain = *queue.front();
        queue.pop_front();
        chain.mInQueue = false;
        const std::uint32_t flags = chain.inferInstance();
        if ((flags & TYPE_UPDATE_PARENT) != 0) {
            append(chain.mParentChain);
        }
        if ((flags & TYPE_UPDATE_ALL_CHILDREN) != 0) {
            for (const auto &child : chain.mChildren) {
                append(child.get());
            }
        } else if ((flags & TYPE_UPDATE_CHILDREN) != 0) {
            for (const Block *block : chain.mChildrenToRun) {
                append(chain.findChild(block));
            }
        }
    }
}

} // namespace internal

} // namespace orvo
