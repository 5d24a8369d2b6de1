// Numbers as fixed-point types hold them: integers that count the steps of the type's fraction.
#pragma once

#include <orvo/corevalues.h>
#include <orvo/types.h>

#include <gmpxx.h>

namespace orvo::internal {

/// The number in steps of two to minus the fraction bits, to nearest, halves away from zero, as a constant rounds it to
/// its type. Not for special numbers.
ORVO_API mpz_class stepsOf(const NumberValue &number, int fracBits);
/// What the steps are in a type: those beyond its range are its bound. The type is fixed point and has a bit.
ORVO_API mpz_class saturated(const mpz_class &steps, const NumTypeSpec &type);
/// The lowest bits, as many as the type has, read as that reads them.
ORVO_API mpz_class wrapped(const mpz_class &steps, const NumTypeSpec &type);
/// The number of that many steps.
ORVO_API NumberValueRef numberOfSteps(const mpz_class &steps, int fracBits, Context *context);

} // namespace orvo::internal
