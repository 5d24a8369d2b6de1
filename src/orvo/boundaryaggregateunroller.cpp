// Records at blocks that go by the names of their ports.
#include "orvo/boundaryaggregateunroller.h"

#include "orvo/ifacerecords.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/orvoutils.h>
#include <orvo/wire.h>

namespace orvo {

PureValueRef BoundaryAggregateUnroller::makeName(const PureValueRef &name, const AggregateTypeSpec &spec,
                                                 int flatIndex) {
    if (!spec.isAggregate()) {
        return name;
    }
    Context *context = ContextMgr::getThreadContext();
    const PureValueRef member = NumberValue::get(flatIndex, context);
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 2) {
        return PureTupleValue::get(name, member, context);
    }
    std::vector<PureValueRef> elements(tuple->begin(), tuple->end());
    elements.insert(elements.end() - 1, member);
    return PureTupleValue::get(elements, context);
}

PureValueRef BoundaryAggregateUnroller::nameOf(const PureValueRef &name, const AggregateTypeSpec &spec, int flatIndex) {
    return makeName(name, spec, flatIndex);
}

PureValueRef BoundaryAggregateUnroller::baseOf(const Wire &wire) const { return wire.getName(); }

template <class IsTaken>
AggregateUnrollKind BoundaryAggregateUnroller::note(const PureValueRef &name, const PureValueRef &base,
                                                    const AggregateTypeSpec &spec, const AggregateTypeManager &manager,
                                                    UnrollMappings &mappings, Names &names, IsTaken isTaken) {
    if (!spec.isAggregate()) {
        return AggregateUnrollKind::Leave;
    }
    std::vector<PureValueRef> &own = names[name];
    const auto size = static_cast<int>(manager.getFlatSize(spec));
    for (int i = 0; i < size; ++i) {
        own.push_back(nameOf(base, spec, i));
        manager.addUnrolledMapping(&mappings, name, own.back(), spec, i);
        mNamesClash = mNamesClash || isTaken(own.back());
    }
    return AggregateUnrollKind::Flat;
}

AggregateUnrollKind BoundaryAggregateUnroller::originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                                            const AggregateTypeManager &manager) {
    return note(wire.getName(), baseOf(wire), spec, manager, mWireMappings, mWireNames,
                [this](const PureValueRef &name) { return mBlock.getWire(name) != nullptr; });
}

AggregateUnrollKind BoundaryAggregateUnroller::originalPort(Port &port, const AggregateTypeSpec &spec,
                                                            const AggregateTypeManager &manager) {
    return note(port.getName(), port.getName(), spec, manager, mPortMappings, mPortNames,
                [this](const PureValueRef &name) { return mBlock.findParam(name.get_ptr()) != nullptr; });
}

void BoundaryAggregateUnroller::preAttach(const AggregateTypeManager &) {}

void BoundaryAggregateUnroller::attachPort(Port &port, const AggregateTypeSpec &member, int flatIndex, Wire &driver,
                                           const AggregateTypeManager &) {
    ORVO_ASSERT(!member.isAggregate(), "a record is attached to one of its members");
    const MaybePort attached(mBlock, mPortNames.at(port.getName())[static_cast<std::size_t>(flatIndex)]);
    attached.setWire(driver);
    addAttachedPort(attached);
}

Wire *BoundaryAggregateUnroller::attachWire(Wire &wire, const AggregateTypeSpec &member, int flatIndex,
                                            const std::vector<MaybePort> &readers, const AggregateTypeManager &) {
    ORVO_ASSERT(!member.isAggregate(), "a record is attached to one of its members");
    const PureValueRef &name = mWireNames.at(wire.getName())[static_cast<std::size_t>(flatIndex)];
    Wire *made = mBlock.getWire(name);
    if (made == nullptr) {
        made = Wire::create(mBlock, name);
        OrvoUtils::copyParams(*made, wire);
    }
    for (const MaybePort &reader : readers) {
        reader.setWire(*made);
    }
    return made;
}

void BoundaryAggregateUnroller::postAttach() {
    for (const auto &[name, members] : mPortNames) {
        mBlock.setParam(name, nullptr);
    }
    for (const auto &[name, members] : mWireNames) {
        delete mBlock.getWire(name);
    }
    internal::renameSubcycleLatencies(mBlock, mPortMappings, mWireMappings);
}

std::shared_ptr<AggregateUnroller> BoundaryAggregateUnrollHandler::createUnroller(Block &block) const {
    return std::make_shared<BoundaryAggregateUnroller>(block);
}

} // namespace orvo
