// What block types say to the unrolling of vectors, as far as most of them agree.
#include <orvo/vectorunroller.h>

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>

#include <algorithm>

namespace orvo {

const std::string VectorUnroller::mNameSuffix = "vunroll";

std::shared_ptr<VectorUnroller> VectorUnrollHandler::createUnroller(Block &block) const {
    return std::make_shared<DefaultVectorUnroller>(block);
}

bool VectorUnroller::mandatoryUnrolling() const { return false; }

bool VectorUnroller::canUnroll() const { return true; }

std::string VectorUnroller::reason() const { return {}; }

void VectorUnroller::setTypePassRefChain(GlobalTypePass &types, const RefChain &refChain) {
    mTypes = &types;
    mRefChain = &refChain;
}

bool VectorUnroller::writesTypeOf(const Wire &) const { return false; }

bool VectorUnroller::writesTypeOf(const Port &) const { return false; }

VectorUnrollKind VectorUnroller::originalWire(Wire &, const VectorDecorSpec &) { return VectorUnrollKind::Merged; }

VectorUnrollKind VectorUnroller::originalPort(Port &, const VectorDecorSpec &) { return VectorUnrollKind::Merged; }

void VectorUnroller::preAttachExtended(const VectorDecorSpec &merged, GlobalTypePass &, const RefChain &) {
    preAttach(merged);
}

PureValueRef VectorUnroller::typeOf(const Wire &wire) const {
    return mTypes == nullptr ? PureValueRef() : mTypes->getType(wire, *mRefChain);
}

PureValueRef VectorUnroller::typeOf(const Port &port) const {
    return mTypes == nullptr ? PureValueRef() : mTypes->getType(port, *mRefChain);
}

PureValueRef VectorUnroller::typeOf(const Wire &wire, const RefChain &instance) const {
    return mTypes == nullptr ? PureValueRef() : mTypes->getType(wire, instance);
}

PureValueRef VectorUnroller::typeOf(const Port &port, const RefChain &instance) const {
    return mTypes == nullptr ? PureValueRef() : mTypes->getType(port, instance);
}

std::span<const RefChain> VectorUnroller::instances() const {
    return mInstances == nullptr ? std::span<const RefChain>() : std::span<const RefChain>(*mInstances);
}

void LaneCounter::next() {
    for (std::size_t k = 0; k < mIndices.size(); ++k) {
        if (++mIndices[k] < mLanes.vectorLength(k)) {
            return;
        }
        mIndices[k] = 0;
    }
    mAtEnd = true;
}

namespace internal {

namespace {

const TupleValue *asLayer(const Value *value) {
    const bool isTuple = value != nullptr && isKindOf<TupleValue>(value->kind());
    const auto *tuple = isTuple ? static_cast<const TupleValue *>(value) : nullptr;
    if (tuple == nullptr || tuple->size() < 2) {
        return nullptr;
    }
    const bool isRolled = tuple->at(0) == A_VECTOR_ROLL_TAG;
    const bool isType = tuple->at(0) == A_TYPE_VECTOR && tuple->size() == 3;
    return isRolled || isType ? tuple : nullptr;
}

/// The element of a layer for the lane of that number in the layer's dimension.
ValueRef elementOf(const TupleValue &layer, int lane) {
    if (layer.at(0) == A_TYPE_VECTOR) {
        return layer.at(2);
    }
    return layer.at(std::min(static_cast<std::size_t>(lane) + 1, layer.size() - 1));
}

} // namespace

ValueRef elementOfLane(ValueRef value, const std::vector<int> &indices) {
    std::size_t layers = 0;
    ValueRef inner = value;
    while (const TupleValue *layer = layers < indices.size() ? asLayer(inner.get_ptr()) : nullptr) {
        inner = elementOf(*layer, 0);
        ++layers;
    }
    while (const TupleValue *layer = layers > 0 ? asLayer(value.get_ptr()) : nullptr) {
        value = elementOf(*layer, indices[--layers]);
    }
    return value;
}

} // namespace internal

ValueRef DefaultVectorUnroller::laneValue(const PureValueRef &, const ValueRef &value, const VectorDecorSpec &,
                                          const std::vector<int> &indices) const {
    return internal::elementOfLane(value, indices);
}

Block &DefaultVectorUnroller::createLane(const VectorDecorSpec &merged, const std::vector<int> &indices) {
    Context *context = mBlock.getContext();
    std::vector<PureValueRef> name{mBlock.getName()};
    for (const int index : indices) {
        name.emplace_back(NumberValue::get(index, context));
    }
    Block &lane = *Block::create(mBlock.getModel(), PureTupleValue::get(name, context));
    for (auto param : Params(mBlock)) {
        if (internal::isTakenOver(param.first, param.second)) {
            lane.setParam(param.first, laneValue(param.first, param.second, merged, indices));
        }
    }
    for (const Wire &wire : mBlock) {
        OrvoUtils::copyParams(*Wire::create(lane, wire.getName()), wire);
    }
    return lane;
}

void DefaultVectorUnroller::preAttach(const VectorDecorSpec &merged) {
    for (LaneCounter lane(merged); !lane.atEnd(); lane.next()) {
        mSubstitutes.push_back(&createLane(merged, lane.indices()));
    }
}

void DefaultVectorUnroller::attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                                       Wire &driver) {
    const MaybePort attached(*mSubstitutes[lanes.elementIndex(indices)], port.getName());
    attached.setWire(driver);
    addAttachedPort(attached);
}

Wire *DefaultVectorUnroller::attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                                        const std::vector<MaybePort> &readers) {
    Wire *lane = mSubstitutes[lanes.elementIndex(indices)]->getWire(wire.getName());
    for (const MaybePort &reader : readers) {
        reader.setWire(*lane);
    }
    return lane;
}

void DefaultVectorUnroller::postAttach() { delete &mBlock; }

} // namespace orvo
