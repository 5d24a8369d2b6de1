// Steps of fixed-point types, of any size.
#include "orvo/fixednumbers.h"

#include <algorithm>

namespace orvo::internal {

mpz_class stepsOf(const NumberValue &number, int fracBits) {
    mpz_class steps;
    number.toScaledMPZ(steps.get_mpz_t(), fracBits);
    return steps;
}

mpz_class saturated(const mpz_class &steps, const NumTypeSpec &type) {
    const bool isSigned = type.isSigned();
    const mpz_class high = (mpz_class(1) << static_cast<unsigned>(type.fixedBits() - (isSigned ? 1 : 0))) - 1;
    const mpz_class low = isSigned ? mpz_class(-high - 1) : mpz_class(0);
    return std::clamp(steps, low, high);
}

mpz_class wrapped(const mpz_class &steps, const NumTypeSpec &type) {
    const auto width = static_cast<mp_bitcnt_t>(type.fixedBits());
    mpz_class bits;
    mpz_fdiv_r_2exp(bits.get_mpz_t(), steps.get_mpz_t(), width);
    // The highest bit of a type with a sign counts down.
    if (type.isSigned() && mpz_tstbit(bits.get_mpz_t(), width - 1) != 0) {
        bits -= mpz_class(1) << width;
    }
    return bits;
}

NumberValueRef numberOfSteps(const mpz_class &steps, int fracBits, Context *context) {
    if (fracBits >= 0) {
        return NumberValue::fromMPZ(steps.get_mpz_t(), static_cast<unsigned>(fracBits), context);
    }
    const mpz_class scaled = steps << static_cast<unsigned>(-fracBits);
    return NumberValue::fromMPZ(scaled.get_mpz_t(), 0, context);
}

} // namespace orvo::internal
