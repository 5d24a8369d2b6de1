// What block types say to the unrolling of complex signals, as far as most of them agree.
#include <orvo/complexunroller.h>

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>

#include <algorithm>

namespace orvo {

const std::string ComplexUnroller::mNameSuffix = "cunroll";

std::shared_ptr<ComplexUnroller> ComplexUnrollHandler::createUnroller(Block &block) const {
    return std::make_shared<DefaultComplexUnroller>(block);
}

ComplexUnroller::~ComplexUnroller() = default;

void ComplexUnroller::setTypePassRefChain(GlobalTypePass &types, const RefChain &refChain) {
    mTypes = &types;
    mRefChain = &refChain;
}

std::string ComplexUnroller::reason() const { return {}; }

bool ComplexUnroller::takesVectors() const { return true; }

bool ComplexUnroller::writesTypes() const { return false; }

bool ComplexUnroller::takesPlainZeros() const { return false; }

ComplexWireKind ComplexUnroller::originalWire(Wire &, const ComplexDecorSpec &) { return ComplexWireKind::Split; }

ComplexPortKind ComplexUnroller::originalPort(Port &, const ComplexDecorSpec &) { return ComplexPortKind::SplitOrZero; }

PureValueRef ComplexUnroller::typeOf(const Wire &wire) const {
    return mTypes == nullptr ? PureValueRef() : typeOf(wire, *mRefChain);
}

PureValueRef ComplexUnroller::typeOf(const Port &port) const {
    return mTypes == nullptr ? PureValueRef() : typeOf(port, *mRefChain);
}

PureValueRef ComplexUnroller::typeOf(const Wire &wire, const RefChain &instance) const {
    return mTypes == nullptr ? PureValueRef() : mTypes->getType(wire, instance);
}

PureValueRef ComplexUnroller::typeOf(const Port &port, const RefChain &instance) const {
    return mTypes == nullptr ? PureValueRef() : mTypes->getType(port, instance);
}

std::span<const RefChain> ComplexUnroller::instances() const {
    return mInstances == nullptr ? std::span<const RefChain>() : std::span<const RefChain>(*mInstances);
}

namespace internal {

namespace {

TupleValueRef taggedTuple(const ValueRef &value) {
    const TupleValueRef tuple = nodeVR(value) ? TupleValueRef() : tupleVR(value);
    return tuple && tuple->size() != 0 ? tuple : TupleValueRef();
}

/// Tuples that hold the same for other shapes of signals, or a type in a mode.
bool holdsParts(const TupleValueRef &tuple) {
    const ValueRef &tag = tuple->at(0);
    return tag == A_VECTOR_ROLL_TAG || tag == A_TYPE_VECTOR || tag == A_TYPE_SPECIFIED;
}

} // namespace

PureValueRef nameBelow(const Block &block, const char *word) {
    Context *context = block.getContext();
    return PureTupleValue::get(block.getName(), StringValue::get(word, context), context);
}

PureValueRef partType(const PureValueRef &type, Context *context) {
    PureValueRef part;
    const ComplexDecorSpec decor(type, part, context);
    return part;
}

bool hasComplexPart(const ValueRef &value) {
    const TupleValueRef tuple = taggedTuple(value);
    return tuple && (tuple->at(0) == A_COMPLEX_ROLL_TAG || std::any_of(tuple->begin(), tuple->end(), hasComplexPart));
}

ValueRef zeroValues(const ValueRef &value) {
    if (const NumberValueRef number = numberVR(value)) {
        return NumberValue::get(0, value->context());
    }
    const TupleValueRef tuple = taggedTuple(value);
    if (!tuple) {
        return value;
    }
    std::vector<ValueRef> zeros;
    std::transform(tuple->begin(), tuple->end(), std::back_inserter(zeros), zeroValues);
    return TupleValue::get(zeros, value->context());
}

ValueRef partOfValue(const ValueRef &value, bool imaginary, bool isNumeric) {
    const TupleValueRef tuple = taggedTuple(value);
    if (tuple && tuple->at(0) == A_TYPE_COMPLEX) {
        return tuple->maybeAt(1);
    }
    if (tuple && tuple->at(0) == A_COMPLEX_ROLL_TAG) {
        return tuple->maybeAt(imaginary ? 2 : 1);
    }
    if (tuple && (isNumeric || holdsParts(tuple))) {
        std::vector<ValueRef> parts;
        for (const ValueRef &element : *tuple) {
            parts.push_back(partOfValue(element, imaginary, isNumeric));
        }
        return TupleValue::get(parts, value->context());
    }
    return isNumeric && imaginary ? zeroValues(value) : value;
}

} // namespace internal

bool DefaultComplexUnroller::isNumericParam(const PureValueRef &) const { return false; }

Block &DefaultComplexUnroller::createPart(bool imaginary) const {
    Block &part = *Block::create(mBlock.getModel(), internal::nameBelow(mBlock, imaginary ? "imag" : "real"));
    for (auto param : Params(mBlock)) {
        if (internal::isTakenOver(param.first, param.second)) {
            part.setParam(param.first, internal::partOfValue(param.second, imaginary, isNumericParam(param.first)));
        }
    }
    for (const Wire &wire : mBlock) {
        OrvoUtils::copyParams(*Wire::create(part, wire.getName()), wire);
    }
    return part;
}

void DefaultComplexUnroller::preAttach() {
    mReal = &createPart(false);
    mImaginary = &createPart(true);
}

Wire *DefaultComplexUnroller::attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                                         const std::vector<MaybePort> &readers) {
    Wire *part = substitute(imaginary).getWire(wire.getName());
    for (const MaybePort &reader : readers) {
        reader.setWire(*part);
    }
    return part;
}

void DefaultComplexUnroller::attachPort(Port &port, const ComplexDecorSpec &, bool imaginary, Wire &driver) {
    const MaybePort attached(substitute(imaginary), port.getName());
    attached.setWire(driver);
    addAttachedPort(attached);
}

void DefaultComplexUnroller::postAttach() { delete &mBlock; }

} // namespace orvo
