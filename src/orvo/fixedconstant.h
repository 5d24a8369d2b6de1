// The integers that stand for constants of fixed-point types.
#pragma once

#include <orvo/corevalues.h>
#include <orvo/types.h>

#include <gmpxx.h>

namespace orvo::internal {

/// A constant in units of its type's last place: rounded to the fraction, halves away from zero, and saturated to the
/// range. 0 for what is no number of such a type: an infinity or NaN, or a constant of another type.
ORVO_API mpz_class unitsOf(const NumberValue &value, const NumTypeSpec &type);

} // namespace orvo::internal
