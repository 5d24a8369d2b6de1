// CheckConstantsPass warns of constants that their types cannot hold.
#pragma once

#include <orvo/pass.h>

namespace orvo {

class NumberValue;
class NumTypeSpec;

/// Looks at the constants that ask for it with `A_CONST_WARN_SATURATION`. Changes nothing: such a constant saturates.
class CheckConstantsPass final : public ModelPass {
    ORVO_PASS(CheckConstantsPass)
    using ModelPass::apply;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;

  private:
    int mBase = 10;
    int mDigits = 4;
};

namespace internal {

/// How many bits a fixed-point type with the fraction and the sign of this one needs to hold the number, rounded to the
/// fraction: more than the type has if and only if the number is out of its range. With a sign, that is the least width
/// of two's complement; a number below zero takes a type without one more bit than it has. Not for special numbers.
ORVO_API int calcRequiredBits(const NumberValue &value, const NumTypeSpec &type);

} // namespace internal

} // namespace orvo
