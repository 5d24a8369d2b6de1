// What an estimate sees of a block: the types at its ends in one instance, its parameters, and the device.
#pragma once

#include "generator/formulas.h"

#include <device/device.h>
#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>

#include <gmpxx.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <vector>

namespace orvo::generator {

/// Thrown, and caught by who asks for the estimate, where a type is not known.
struct UnknownType {};

/// Gives the type of a port or wire, null if it has none.
struct ORVO_API TypesAt {
    std::function<PureValueRef(const Port &)> port;
    std::function<PureValueRef(const Wire &)> wire;
};

/// What of a model's options estimates depend on.
struct ORVO_API BuildOptions {
    const device::Device *device;
    bool hardFloats = true;
    /// Bits from which on a row of registers goes into memory; negative for the default.
    Count delayMemoryFrom = -1;

    static BuildOptions of(const Model &model);
};

class ORVO_API Primitive {
  public:
    Primitive(const Block &block, const TypesAt &types, const BuildOptions &options)
        : mBlock(block), mTypes(types), mOptions(options) {}

    const Block &block() const { return mBlock; }
    const device::Family &family() const { return mOptions.device->family(); }
    const BuildOptions &options() const { return mOptions; }

    bool hasPort(const PureValueRef &key) const { return mBlock.getPort(key) != nullptr; }
    bool hasWire(const PureValueRef &key) const { return mBlock.getWire(key) != nullptr; }
    /// Of a scalar, or what a vector or complex signal is made of; an end that is missing, has no type or carries a
    /// record throws `UnknownType`.
    NumTypeSpec port(const PureValueRef &key) const;
    NumTypeSpec port(int number) const { return port(key(number)); }
    NumTypeSpec wire(const PureValueRef &key) const;
    /// Of the main output.
    NumTypeSpec out() const { return wire(A_PRIM_WIRE_OUT); }
    /// The types of all numbered ports, in order; with one vector, once for each of its elements.
    std::vector<NumTypeSpec> operands() const;

    bool isTrue(const StaticString &param) const { return mBlock.findParam(param) == A_TRUE.get_ptr(); }
    bool is(const StaticString &param, const StaticString &value) const {
        return mBlock.findParam(param) == value.get_ptr();
    }
    /// A whole number from 0 on; nothing if it is absent or none.
    std::optional<Count> count(const StaticString &param) const;
    /// Elements of a tuple, those of the tuples in it together; 1 for any other value and 0 for none.
    Count elements(const StaticString &param) const;
    /// What a port reads in its type's units, if a constant block of one number drives it.
    std::optional<mpz_class> constantAt(int number) const;
    /// Whether floats of this format are computed by the device's multiplier blocks.
    bool isHardFloat(const NumTypeSpec &type) const;

    PureValueRef key(int number) const { return NumberValue::get(number, mBlock.getContext()); }

  private:
    NumTypeSpec known(const PureValueRef &type) const;

    const Block &mBlock;
    const TypesAt &mTypes;
    const BuildOptions &mOptions;
};

/// All bits of a scalar.
inline Count bitsOf(const NumTypeSpec &type) {
    return type.isFloat() ? type.floatBits() : std::max(type.fixedBits(), 0);
}
/// Scalars side by side in a signal.
ORVO_API Count scalarsOf(const NumTypeSpec &type);
inline Count allBitsOf(const NumTypeSpec &type) { return times(bitsOf(type), scalarsOf(type)); }

} // namespace orvo::generator
