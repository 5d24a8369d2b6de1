// What multipliers by constants give, for the type rule and for passes that make them.
#include <orvo/constmulttype.h>

#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

namespace util {

using orvo::NumTypeSpec;

NumTypeSpec constantMultiplierOutputType(const NumTypeSpec &input, const orvo::ValueRef &value,
                                         const orvo::ValueRef &precision) {
    if (input.isFloat()) {
        return input;
    }
    NumTypeSpec product = NumTypeSpec::typeOp(input, NumTypeSpec::fromFixedValue(value), orvo::TYPE_OP_MUL);
    const orvo::TupleValueRef given = orvo::tupleVR(precision);
    if (!given || given->size() < 2 || !product.valid()) {
        return product;
    }
    NumTypeSpec type(given->at(1), precision->context());
    if (given->at(0) == orvo::A_TYPE_SPECIFIED && type.valid()) {
        type.stripVectors();
        type.setComplex(false);
        type.mergeDecors(product);
        return type;
    }
    if (given->at(0) == orvo::A_FRACTION_SPECIFIED) {
        if (!type.isFixed()) {
            return {};
        }
        product.setToFixed(product.isSigned(), product.fixedBits() - type.fracBits(), type.fracBits());
    }
    return product;
}

} // namespace util
