// The type of a product by a constant.
#pragma once

#include <orvo/types.h>

namespace util {

/// What a multiplier by the constant gives for an input of this type: a float its own type, fixed point the full
/// product of the input and the smallest type that holds the constant. `precision` is the multiplier's
/// `A_OUTPUT_PRECISION`, null for none, which replaces that type or its fraction. Invalid where the product has no
/// type.
ORVO_API orvo::NumTypeSpec constantMultiplierOutputType(const orvo::NumTypeSpec &input, const orvo::ValueRef &value,
                                                        const orvo::ValueRef &precision = orvo::ValueRef());

} // namespace util
