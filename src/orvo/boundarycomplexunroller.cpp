// Complex signals at blocks that go by the names of their ports.
#include "orvo/boundarycomplexunroller.h"

#include "orvo/ifacerecords.h"

#include <orvo/block.h>
#include <orvo/orvoutils.h>

namespace orvo {

namespace {

void addMapping(UnrollMappings &mappings, const PureValueRef &name, bool imaginary, const PureValueRef &part) {
    const RealOrImaginary which = imaginary ? RealOrImaginary::Imaginary : RealOrImaginary::Real;
    mappings.addMapping(name, CompoundDecorIndex::createComplexIndex(which), part);
}

} // namespace

std::shared_ptr<ComplexUnroller> BoundaryComplexUnrollHandler::createUnroller(Block &block) const {
    return std::make_shared<BoundaryComplexUnroller>(block);
}

PureValueRef BoundaryComplexUnroller::makeName(const PureValueRef &name, const ComplexDecorSpec &decor,
                                               bool imaginary) {
    if (!decor.isComplex()) {
        return name;
    }
    Context *context = ContextMgr::getThreadContext();
    const PureValueRef word = StringValue::get(imaginary ? "imag" : "real", context);
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 2) {
        return PureTupleValue::get(name, word, context);
    }
    std::vector<PureValueRef> elements(tuple->begin(), tuple->end());
    elements.insert(elements.end() - 1, word);
    return PureTupleValue::get(elements, context);
}

PureValueRef BoundaryComplexUnroller::baseOf(const Wire &wire) const { return wire.getName(); }

ComplexWireKind BoundaryComplexUnroller::originalWire(Wire &wire, const ComplexDecorSpec &decor) {
    if (!decor.isComplex()) {
        return ComplexWireKind::Leave;
    }
    for (const bool imaginary : {false, true}) {
        const PureValueRef name = makeName(baseOf(wire), decor, imaginary);
        addMapping(mWireMappings, wire.getName(), imaginary, name);
        mNamesClash = mNamesClash || mBlock.getWire(name) != nullptr;
    }
    mReplaced.add(wire);
    return ComplexWireKind::Split;
}

ComplexPortKind BoundaryComplexUnroller::originalPort(Port &port, const ComplexDecorSpec &decor) {
    if (!decor.isComplex()) {
        return ComplexPortKind::Leave;
    }
    for (const bool imaginary : {false, true}) {
        const PureValueRef name = makeName(port.getName(), decor, imaginary);
        addMapping(mPortMappings, port.getName(), imaginary, name);
        mNamesClash = mNamesClash || mBlock.findParam(name.get_ptr()) != nullptr;
    }
    mReplaced.add(port);
    return ComplexPortKind::Split;
}

void BoundaryComplexUnroller::preAttach() {}

Wire *BoundaryComplexUnroller::attachWire(Wire &wire, const ComplexDecorSpec &decor, bool imaginary,
                                          const std::vector<MaybePort> &readers) {
    const PureValueRef name = makeName(baseOf(wire), decor, imaginary);
    Wire *part = mBlock.getWire(name);
    if (part == nullptr) {
        part = Wire::create(mBlock, name);
        OrvoUtils::copyParams(*part, wire);
    }
    for (const MaybePort &reader : readers) {
        reader.setWire(*part);
    }
    return part;
}

void BoundaryComplexUnroller::attachPort(Port &port, const ComplexDecorSpec &decor, bool imaginary, Wire &driver) {
    const MaybePort attached(mBlock, makeName(port.getName(), decor, imaginary));
    attached.setWire(driver);
    addAttachedPort(attached);
}

void BoundaryComplexUnroller::postAttach() {
    mReplaced.removeFrom(mBlock);
    internal::renameSubcycleLatencies(mBlock, mPortMappings, mWireMappings);
}

} // namespace orvo
