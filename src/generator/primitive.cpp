// The view of a block that estimates are made from.
#include "generator/primitive.h"

#include "orvo/fixedconstant.h"

#include <orvo/basedevice.h>
#include <orvo/port.h>
#include <orvo/synthesis_options.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo::generator {

namespace {

/// Numbers beyond this are no sizes of anything.
constexpr Count kLargestCount = Count{1} << 40;

std::optional<Count> countIn(const ValueRef &value) {
    const NumberValueRef number = numberVR(value);
    if (!number || number->isSpecial() || !number->isInteger() || number->isNegative()) {
        return std::nullopt;
    }
    return number->getBitWidths().first > 40 ? kLargestCount : number->toInt64(0);
}

Count elementsOf(const ValueRef &value) {
    const TupleValueRef tuple = tupleVR(value);
    if (!tuple) {
        return value ? 1 : 0;
    }
    Count sum = 0;
    for (const ValueRef &element : *tuple) {
        sum += elementsOf(element);
    }
    return sum;
}

ValueRef optionOf(const Model &model, const StaticString &key) {
    const ValueRef own = model.getParam(key);
    return own ? own : designOption(model.getDesign(), key);
}

} // namespace

BuildOptions BuildOptions::of(const Model &model) {
    BuildOptions options;
    options.device = &getBaseDeviceFromModel(model);
    options.hardFloats = !(optionOf(model, A_SYNTH_DEVICE_ENABLE_HARDFP) == A_FALSE);
    options.delayMemoryFrom = countIn(optionOf(model, A_SYNTH_DELAY_RAM_THRESHOLD)).value_or(-1);
    return options;
}

NumTypeSpec Primitive::known(const PureValueRef &type) const {
    const NumTypeSpec spec(type, mBlock.getContext());
    if (!spec.valid()) {
        throw UnknownType();
    }
    return spec;
}

NumTypeSpec Primitive::port(const PureValueRef &key) const {
    const Port *port = mBlock.getPort(key);
    return known(port == nullptr ? PureValueRef() : mTypes.port(*port));
}

NumTypeSpec Primitive::wire(const PureValueRef &key) const {
    const Wire *wire = mBlock.getWire(key);
    return known(wire == nullptr ? PureValueRef() : mTypes.wire(*wire));
}

std::vector<NumTypeSpec> Primitive::operands() const {
    std::vector<NumTypeSpec> types;
    for (const Port &port : mBlock.ports()) {
        if (!numberVR(port.getName())) {
            break; // Numbers come first.
        }
        types.push_back(known(mTypes.port(port)));
    }
    return types;
}

std::optional<Count> Primitive::count(const StaticString &param) const { return countIn(mBlock.getParam(param)); }

Count Primitive::elements(const StaticString &param) const { return elementsOf(mBlock.getParam(param)); }

std::optional<mpz_class> Primitive::constantAt(int number) const {
    const Port *port = mBlock.getPort(key(number));
    const Block *driver = port == nullptr ? nullptr : &port->peekWire()->getBlock();
    if (driver == nullptr || driver->type() != A_CONST_BLOCK.get_ptr()) {
        return std::nullopt;
    }
    const NumberValueRef value = numberVR(driver->getParam(A_CONST_VALUE));
    const NumTypeSpec type = this->port(number);
    if (!value || value->isSpecial() || !type.isFixed()) {
        return std::nullopt;
    }
    return internal::unitsOf(*value, type);
}

bool Primitive::isHardFloat(const NumTypeSpec &type) const {
    const bool isServed = (type.canbeHardFloatSingle() && mOptions.device->SupportsFP32()) ||
                          (type.canbeHardFP16() && mOptions.device->SupportsFP16());
    return isServed && mOptions.hardFloats && !isTrue(A_SYNTH_FORCE_SOFT_FP);
}

Count scalarsOf(const NumTypeSpec &type) {
    Count scalars = type.isComplex() ? 2 : 1;
    for (const int length : type.vectorLengths()) {
        scalars = times(scalars, length);
    }
    return scalars;
}

} // namespace orvo::generator
