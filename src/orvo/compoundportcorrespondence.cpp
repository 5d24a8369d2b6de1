// Names of ports and wires through the taking apart of blocks: who stands for whom now.
#include <orvo/compoundportcorrespondence.h>

#include "orvo/domainedges.h"
#include "orvo/replacedpoints.h"
#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/modelkinds.h>
#include <orvo/orvoutils.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>

#include <map>
#include <set>

namespace orvo {

using internal::asEntry;
using internal::elementsOf;
using internal::kEntryChain;
using internal::kEntryFrom;
using internal::kEntryKey;
using internal::kEntryTo;

Port *MaybePort::getPort() const { return mBlock->getPort(mKey); }

Wire *MaybePort::getWire() const {
    const Port *port = getPort();
    return port == nullptr ? nullptr : port->peekWire();
}

void MaybePort::setWire(Wire &wire) const { mBlock->setParam(mKey, wire); }

std::vector<MaybePort> maybePortsOf(const Wire &wire) {
    std::vector<MaybePort> ports;
    for (const Port &port : wire.ports()) {
        ports.emplace_back(port);
    }
    return ports;
}

UnrollerNotifier::~UnrollerNotifier() = default;

void DefaultUnrollerNotifier::unrollPort(const Block &, const PureValueRef &, const Block &, const PureValueRef &) {}

void DefaultUnrollerNotifier::unrollWire(const Block &, const PureValueRef &, const Block &, const PureValueRef &) {}

namespace {

UnrollerNotifier *defaultNotifier() {
    static DefaultUnrollerNotifier notifier;
    return &notifier;
}

} // namespace

Unroller::Unroller() : mNotifier(defaultNotifier()) {}

Unroller::~Unroller() = default;

void Unroller::setUnrollerNotifier(UnrollerNotifier *notifier) {
    mNotifier = notifier == nullptr ? defaultNotifier() : notifier;
}

Block &Unroller::createSubstitute(Block &block) const {
    Context *context = block.getContext();
    const PureTupleValueRef name =
        PureTupleValue::get(block.getName(), StringValue::get(getSuffix(), context), context);
    Block &substitute = *Block::create(block.getModel(), name);
    for (auto param : Params(block)) {
        if (!nodeVR(param.second)) {
            substitute.setParam(param.first, param.second);
        }
    }
    return substitute;
}

void Unroller::notifyUnrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                const PureValueRef &newName) const {
    mNotifier->unrollPort(oldBlock, oldName, newBlock, newName);
}

void Unroller::notifyUnrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                const PureValueRef &newName) const {
    mNotifier->unrollWire(oldBlock, oldName, newBlock, newName);
}

void Unroller::notifyUnrollAttachedPorts(const Block &oldBlock, const PureValueRef &oldName) const {
    for (const MaybePort &port : mAttachedPorts) {
        notifyUnrollPort(oldBlock, oldName, port.getBlock(), port.getKey());
    }
}

UnrolledPortWireNames::UnrolledPortWireNames(const Model &model, PureValueRef blockName, bool isPort, PureValueRef name)
    : mModel(model), mBlockName(std::move(blockName)), mIsPort(isPort), mName(std::move(name)) {}

/// Whether the block itself was taken apart, so that only its prefix is known.
bool UnrolledPortWireNames::findBlock() {
    if (mBlockName == A_INPUT_BLOCK) {
        mBlock = mModel.getInputBlock();
    } else if (mBlockName == A_OUTPUT_BLOCK) {
        mBlock = mModel.getOutputBlock();
    } else {
        mBlock = mModel.getBlock(mBlockName);
    }
    if (mBlock == nullptr && mBlockName) {
        mBlock = mModel.getBlockByPrefix(mBlockName, nullptr);
        return mBlock != nullptr;
    }
    return false;
}

/// Null away from boundaries of models.
const UnrollMappings *UnrolledPortWireNames::boundaryMappings(const BoundaryUnrollMappingStateItem *state) const {
    static const UnrollMappings none;
    enum class Side { Input, Output };
    const auto mappings = [state](const Model &model, Side side) {
        if (state == nullptr) {
            return &none;
        }
        return side == Side::Input ? &state->getInputUnrollMapping(model) : &state->getOutputUnrollMapping(model);
    };
    for (const StaticString *type : {&A_INPUT_BLOCK, &A_CHANNEL_IN_BLOCK, &A_SIGNAL_IN_BLOCK}) {
        if (mBlock->type() == type->get_ptr()) {
            return mappings(mModel, Side::Input);
        }
    }
    for (const StaticString *type : {&A_OUTPUT_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_SIGNAL_OUT_BLOCK}) {
        if (mBlock->type() == type->get_ptr()) {
            return mappings(mModel, Side::Output);
        }
    }
    const Model *below = state == nullptr ? nullptr : internal::instantiatedModel(*mBlock);
    return below == nullptr ? nullptr : mappings(*below, mIsPort ? Side::Input : Side::Output);
}

void UnrolledPortWireNames::addPoint(const PureValueRef &name) {
    if (mIsPort) {
        if (Port *port = mBlock->getPort(name)) {
            mPorts.push_back(port);
        }
    } else if (Wire *wire = mBlock->getWire(name); wire != nullptr && mWireSet.insert(wire).second) {
        mWires.push_back(wire);
    }
}

void UnrolledPortWireNames::unrollNames(const BoundaryUnrollMappingStateItem *state) {
    mBlock = nullptr;
    mPorts.clear();
    mWires.clear();
    mWireSet.clear();
    const bool isPrefix = findBlock();
    if (mBlock == nullptr || !mName) {
        return;
    }
    const UnrollMappings *mappings = boundaryMappings(state);
    ORVO_ASSERT(mappings == nullptr || !isPrefix, "a block at the boundary of a model was itself taken apart");
    const std::vector<PureValueRef> names =
        mappings == nullptr ? std::vector<PureValueRef>() : mappings->getUnrolledPortNameList(mName);
    if (names.empty()) {
        // A plain signal keeps its name at a boundary, too.
        addPoint(mName);
    }
    for (const PureValueRef &name : names) {
        addPoint(name);
    }
}

namespace {

ValueRef renamed(const TupleValue &entry, const PureValueRef &name, Context *context) {
    std::vector<ValueRef> elements(entry.begin(), entry.end());
    elements.front() = name;
    return TupleValue::get(elements, context);
}

/// Whether the ids of an entry have the form that can be joined with others.
bool isJoinable(const TupleValue &entry) {
    const auto isList = [&entry](std::size_t slot) {
        const Value *ids = entry.at(slot).get_ptr();
        return ids == nullptr || internal::asTuple(ids) != nullptr;
    };
    return isList(kEntryFrom) && isList(kEntryTo);
}

/// The ids of both, each once.
ValueRef joinIds(const ValueRef &a, const ValueRef &b, Context *context) {
    std::vector<ValueRef> ids = elementsOf(a.get_ptr());
    std::set<const Value *> known;
    for (const ValueRef &id : ids) {
        known.insert(id.get_ptr());
    }
    for (const ValueRef &id : elementsOf(b.get_ptr())) {
        if (known.insert(id.get_ptr()).second) {
            ids.push_back(id);
        }
    }
    return TupleValue::get(ids, context);
}

/// The list of a block's constrained points in the making.
class PointEntries {
  public:
    explicit PointEntries(Context *context) : mContext(context) {}
    /// As it is.
    void keep(const ValueRef &value) {
        const TupleValue *entry = asEntry(value.get_ptr());
        if (entry != nullptr && isJoinable(*entry)) {
            mPlaces.emplace(placeKey(*entry), mEntries.size());
        }
        mApart.insert(value.get_ptr());
        mEntries.push_back(value);
    }
    /// An entry; one for the same point and instance takes it in. A malformed one stays apart, so that a check finds
    /// it.
    void add(const ValueRef &value) {
        const TupleValue &entry = *asEntry(value.get_ptr());
        if (!isJoinable(entry)) {
            if (mApart.insert(value.get_ptr()).second) {
                mEntries.push_back(value);
            }
            return;
        }
        const auto [place, isNew] = mPlaces.try_emplace(placeKey(entry), mEntries.size());
        if (isNew) {
            mEntries.push_back(value);
            return;
        }
        ValueRef &present = mEntries[place->second];
        const TupleValue &other = *asEntry(present.get_ptr());
        present = TupleValue::get(entry.at(kEntryKey), entry.at(kEntryChain),
                                  joinIds(other.at(kEntryFrom), entry.at(kEntryFrom), mContext),
                                  joinIds(other.at(kEntryTo), entry.at(kEntryTo), mContext), mContext);
    }
    /// Null for an empty list.
    ValueRef toValue() const { return mEntries.empty() ? ValueRef() : ValueRef(TupleValue::get(mEntries, mContext)); }

  private:
    using Key = std::pair<const Value *, const Value *>;
    static Key placeKey(const TupleValue &entry) {
        return {entry.at(kEntryKey).get_ptr(), entry.at(kEntryChain).get_ptr()};
    }

    Context *mContext;
    std::vector<ValueRef> mEntries;
    std::map<Key, std::size_t> mPlaces;
    std::set<const Value *> mApart;
};

} // namespace

ReferenceNameMapping::ReferenceNameMapping()
    : mPorts(std::make_unique<internal::ReplacedPoints>()), mWires(std::make_unique<internal::ReplacedPoints>()) {}

ReferenceNameMapping::~ReferenceNameMapping() = default;

void ReferenceNameMapping::unrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                      const PureValueRef &newName) {
    mPorts->tell(oldBlock, oldName, newBlock, newName, A_SCHEDULE_CONSTRAINT_PORTS);
}

void ReferenceNameMapping::unrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                      const PureValueRef &newName) {
    mWires->tell(oldBlock, oldName, newBlock, newName, A_SCHEDULE_CONSTRAINT_WIRES);
}

bool ReferenceNameMapping::empty() const { return mPorts->empty() && mWires->empty(); }

std::vector<PureTupleValueRef> ReferenceNameMapping::latestPoints(const PureTupleValueRef &point, bool isPort) const {
    return points(isPort).latest(point);
}

bool ReferenceNameMapping::isSuccessor(const Block &block) const {
    return mPorts->isSuccessor(block.getName()) || mWires->isSuccessor(block.getName());
}

NetlistReferencePointsUpdater::NetlistReferencePointsUpdater(const PassContext &context, Model &model,
                                                             RefChain refChain)
    : mModel(model), mRefChain(std::move(refChain)) {
    ORVO_ASSERT(&model.getDesign() == &context.getDesign(), "a model of another design");
}

NetlistReferencePointsUpdater::~NetlistReferencePointsUpdater() {
    unrollLatencyConstraints();
    unrollDomainEdges();
}

void NetlistReferencePointsUpdater::unrollDomainEdges() {
    if (!mMovesDomainEdges || mMapping.empty() || mModel.findParam(A_SYNTH_SCHEDULE_DOMAINS) == nullptr) {
        return;
    }
    internal::moveDomainEdges(mModel, [this](const internal::DomainEdgePlace &place) {
        const PureTupleValueRef point = PureTupleValue::get(place.block, place.key, mModel.getContext());
        std::vector<internal::DomainEdgePlace> places;
        for (const PureTupleValueRef &now : mMapping.latestPoints(point, place.isPort)) {
            places.push_back({now->at(0), place.isPort, now->at(1)});
        }
        return places;
    });
}

void NetlistReferencePointsUpdater::unrollLatencyConstraints() {
    if (mMapping.empty()) {
        return;
    }
    for (const internal::PointTable &table : internal::kPointTables) {
        MovedEntries moved = movedEntries(table.isPort);
        for (Block &block : mModel) {
            if (const TupleValueRef entries = tupleVR(block.getParam(*table.param))) {
                const ValueRef unrolled = unrollPortWireNames(block, entries, table.isPort, moved);
                if (!(unrolled == entries)) {
                    block.setParam(*table.param, unrolled);
                }
            }
        }
        for (const auto &[block, values] : moved) {
            PointEntries list(block->getContext());
            for (const ValueRef &value : elementsOf(block->findParam(*table.param))) {
                list.keep(value);
            }
            for (const ValueRef &value : values) {
                list.add(value);
            }
            block->setParam(*table.param, list.toValue());
        }
    }
}

bool NetlistReferencePointsUpdater::isOfTheseInstances(const ValueRef &entry) const {
    const PureValueRef chain(asEntry(entry.get_ptr())->at(kEntryChain));
    if (chain == A_TRUE || mInstances == nullptr) {
        return chain == A_TRUE || OrvoUtils::matchesRefChain(chain, mRefChain);
    }
    if (mChains.empty()) {
        for (const RefChain &instance : *mInstances) {
            mChains.insert(tupleFromRefChain(instance, mModel.getContext()));
        }
    }
    // An instance that is no part of another has no chain to be told by.
    const PureTupleValueRef links = pureTupleVR(chain);
    return links && links->size() != 0 && mChains.count(chain) != 0;
}

void NetlistReferencePointsUpdater::moveEntry(const PureTupleValueRef &point, const ValueRef &entry,
                                              MovedEntries &moved) const {
    if (Block *block = mModel.getBlock(point->at(0))) {
        moved[block].push_back(renamed(*asEntry(entry.get_ptr()), point->at(1), block->getContext()));
    }
}

NetlistReferencePointsUpdater::MovedEntries NetlistReferencePointsUpdater::movedEntries(bool isPort) const {
    MovedEntries moved;
    const internal::ReplacedPoints &points = mMapping.points(isPort);
    for (const internal::ReplacedPoints::HeldEntry &held : points.heldEntries()) {
        if (isOfTheseInstances(held.entry)) {
            for (const PureTupleValueRef &point : points.latest(held.point)) {
                moveEntry(point, held.entry, moved);
            }
        }
    }
    return moved;
}

ValueRef NetlistReferencePointsUpdater::unrollPortWireNames(const Block &block, const TupleValueRef &entries,
                                                            bool isPort, MovedEntries &moved) const {
    const internal::ReplacedPoints &replaced = mMapping.points(isPort);
    PointEntries list(block.getContext());
    bool isChanged = false;
    for (const ValueRef &value : *entries) {
        const PureTupleValueRef at = replaced.replacedPoint(block, value);
        if (!at || !isOfTheseInstances(value)) {
            list.keep(value);
            continue;
        }
        isChanged = true;
        for (const PureTupleValueRef &point : replaced.latest(at)) {
            if (point->at(0) == block.getName()) {
                list.add(renamed(*asEntry(value.get_ptr()), point->at(1), block.getContext()));
            } else {
                moveEntry(point, value, moved);
            }
        }
    }
    return isChanged ? list.toValue() : ValueRef(entries);
}

} // namespace orvo
