// Vectors at blocks that go by the names of their ports.
#include "orvo/boundaryvectorunroller.h"

#include "orvo/ifacerecords.h"

#include <orvo/block.h>
#include <orvo/orvoutils.h>

namespace orvo {

namespace {

/// The path to a lane, outermost dimension first.
CompoundDecorIndex pathOf(const std::vector<int> &indices) {
    CompoundDecorIndex path = CompoundDecorIndex::createEmptyIndex();
    for (std::size_t k = indices.size(); k-- > 0;) {
        path = path << CompoundDecorIndex::createVectorIndex(indices[k]);
    }
    return path;
}

} // namespace

PureValueRef BoundaryVectorUnroller::makeName(const PureValueRef &name, const VectorDecorSpec &vectors,
                                              const std::vector<int> &indices) {
    if (!vectors.isVector()) {
        return name;
    }
    Context *context = ContextMgr::getThreadContext();
    const PureValueRef lane = NumberValue::get(static_cast<int>(vectors.elementIndex(indices)), context);
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 2) {
        return PureTupleValue::get(name, lane, context);
    }
    std::vector<PureValueRef> elements;
    for (std::size_t i = 0; i < tuple->size(); ++i) {
        if (i + 1 == tuple->size()) {
            elements.push_back(lane);
        }
        elements.emplace_back(tuple->at(i));
    }
    return PureTupleValue::get(elements, context);
}

PureValueRef BoundaryVectorUnroller::baseOf(const Wire &wire) const { return wire.getName(); }

VectorUnrollKind BoundaryVectorUnroller::originalWire(Wire &wire, const VectorDecorSpec &vectors) {
    if (!vectors.isVector()) {
        return VectorUnrollKind::Leave;
    }
    for (LaneCounter lane(vectors); !lane.atEnd(); lane.next()) {
        const PureValueRef name = makeName(baseOf(wire), vectors, lane.indices());
        mWireMappings.addMapping(wire.getName(), pathOf(lane.indices()), name);
        mNamesClash = mNamesClash || mBlock.getWire(name) != nullptr;
    }
    mReplaced.add(wire);
    return VectorUnrollKind::Own;
}

VectorUnrollKind BoundaryVectorUnroller::originalPort(Port &port, const VectorDecorSpec &vectors) {
    if (!vectors.isVector()) {
        return VectorUnrollKind::Leave;
    }
    for (LaneCounter lane(vectors); !lane.atEnd(); lane.next()) {
        const PureValueRef name = makeName(port.getName(), vectors, lane.indices());
        mPortMappings.addMapping(port.getName(), pathOf(lane.indices()), name);
        mNamesClash = mNamesClash || mBlock.findParam(name.get_ptr()) != nullptr;
    }
    mReplaced.add(port);
    return VectorUnrollKind::Own;
}

void BoundaryVectorUnroller::preAttach(const VectorDecorSpec &) {}

void BoundaryVectorUnroller::attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                                        Wire &driver) {
    const MaybePort attached(mBlock, makeName(port.getName(), lanes, indices));
    attached.setWire(driver);
    addAttachedPort(attached);
}

Wire *BoundaryVectorUnroller::attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                                         const std::vector<MaybePort> &readers) {
    const PureValueRef name = makeName(baseOf(wire), lanes, indices);
    Wire *lane = mBlock.getWire(name);
    if (lane == nullptr) {
        lane = Wire::create(mBlock, name);
        OrvoUtils::copyParams(*lane, wire);
    }
    for (const MaybePort &reader : readers) {
        reader.setWire(*lane);
    }
    return lane;
}

void BoundaryVectorUnroller::postAttach() {
    mReplaced.removeFrom(mBlock);
    internal::renameSubcycleLatencies(mBlock, mPortMappings, mWireMappings);
}

} // namespace orvo
