// Constants as integers.
#include "orvo/fixedconstant.h"

#include <algorithm>

namespace orvo::internal {

mpz_class unitsOf(const NumberValue &value, const NumTypeSpec &type) {
    if (!type.isFixed() || value.isSpecial()) {
        return 0;
    }
    const int magnitudeBits = std::max(type.fixedBits() - (type.isSigned() ? 1 : 0), 0);
    mpz_class high;
    mpz_setbit(high.get_mpz_t(), static_cast<mp_bitcnt_t>(magnitudeBits));
    const mpz_class low = type.isSigned() ? mpz_class(-high) : mpz_class(0);
    high -= 1;
    mpz_class units;
    value.toScaledMPZ(units.get_mpz_t(), type.fracBits());
    return units > high ? high : units < low ? low : units;
}

} // namespace orvo::internal
