// Widths of integers, and the steps between the machine's integers and those of any size.
#include <util/bits.h>

#include <bit>

namespace util {

int bitsForValue(std::uint64_t value) { return value == 0 ? 1 : static_cast<int>(std::bit_width(value)); }

int bitsForAddr(std::uint64_t places) { return places < 2 ? 1 : bitsForValue(places - 1); }

void AMShift(mpz_t out, const mpz_t value, int shift) {
    if (shift >= 0) {
        mpz_mul_2exp(out, value, static_cast<mp_bitcnt_t>(shift));
    } else {
        mpz_fdiv_q_2exp(out, value, static_cast<mp_bitcnt_t>(-static_cast<std::int64_t>(shift)));
    }
}

void sintToMPZ(mpz_t out, std::int64_t value) {
    static_assert(sizeof(long) == sizeof(std::int64_t), "the C interface of the library takes a long");
    mpz_set_si(out, value);
}

std::int64_t mpzToSINT(const mpz_t value) {
    std::uint64_t low = 0;
    if (mpz_sgn(value) != 0) {
        low = mpz_getlimbn(value, 0);
    }
    return static_cast<std::int64_t>(mpz_sgn(value) < 0 ? ~low + 1 : low);
}

} // namespace util
