// The judge of floats.
#include "support/floatjudge.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <stdexcept>

namespace orvo::testing {

namespace {

/// Bits that are kept of a number that has more: far more than the formats that are judged have.
constexpr unsigned kKept = 60;

long lengthOf(const mpz_class &number) { return static_cast<long>(mpz_sizeinbase(number.get_mpz_t(), 2)); }

} // namespace

mpq_class powerOfTwo(long exponent) {
    mpz_class power;
    mpz_ui_pow_ui(power.get_mpz_t(), 2, static_cast<unsigned long>(std::labs(exponent)));
    return exponent >= 0 ? mpq_class(power) : mpq_class(1, power);
}

Real Real::withSign(bool negative) const {
    Real real = *this;
    real.isNegative = negative;
    return real;
}

mpq_class Real::rational() const {
    mpq_class number = mpq_class(mpz_class(static_cast<unsigned long>(mantissa))) * powerOfTwo(exponent);
    return isNegative ? mpq_class(-number) : number;
}

Real notANumber() {
    Real real;
    real.kind = Real::Kind::NotANumber;
    return real;
}

Real infinity(bool isNegative) {
    Real real;
    real.kind = Real::Kind::Infinite;
    real.isNegative = isNegative;
    return real;
}

Real zeroOf(bool isNegative) { return Real().withSign(isNegative); }

Real realOf(const mpq_class &number) {
    Real real;
    if (number == 0) {
        return real;
    }
    const mpq_class magnitude = abs(number);
    real.exponent = lengthOf(magnitude.get_num()) - lengthOf(magnitude.get_den()) - static_cast<long>(kKept);
    const mpq_class scaled = magnitude * powerOfTwo(-real.exponent);
    const mpz_class whole = scaled.get_num() / scaled.get_den();
    real.mantissa = whole.get_ui();
    real.isInexact = scaled != whole;
    real.isNegative = number < 0;
    return real;
}

Real rootOf(const mpq_class &number, unsigned degree) {
    Real real;
    if (number == 0) {
        return real;
    }
    const long order = lengthOf(number.get_num()) - lengthOf(number.get_den());
    real.exponent = order / static_cast<long>(degree) - static_cast<long>(kKept);
    const mpq_class scaled = number * powerOfTwo(-real.exponent * static_cast<long>(degree));
    mpz_class root;
    const mpz_class whole = scaled.get_num() / scaled.get_den();
    const bool isExact = mpz_root(root.get_mpz_t(), whole.get_mpz_t(), degree) != 0;
    real.mantissa = root.get_ui();
    real.isInexact = !isExact || scaled != whole;
    return real;
}

Real realOf(mpfr_srcptr number, bool isInexact) {
    if (mpfr_nan_p(number) != 0) {
        return notANumber();
    }
    const bool isNegative = mpfr_signbit(number) != 0;
    if (mpfr_inf_p(number) != 0) {
        return infinity(isNegative);
    }
    if (mpfr_zero_p(number) != 0) {
        return zeroOf(isNegative);
    }
    Real real;
    const double fraction = mpfr_get_d_2exp(&real.exponent, number, MPFR_RNDZ);
    real.mantissa = static_cast<std::uint64_t>(std::ldexp(std::fabs(fraction), 53));
    real.exponent -= 53;
    real.isInexact = isInexact;
    real.isNegative = isNegative;
    return real;
}

Real decoded(std::uint64_t bits, const FloatFormat &format, bool subnormals) {
    const std::uint64_t implied = std::uint64_t{1} << format.fraction;
    const std::uint64_t fraction = bits & (implied - 1);
    const auto field = static_cast<long>(bits >> format.fraction & ((std::uint64_t{1} << format.exponent) - 1));
    const bool isNegative = (bits >> (format.width() - 1) & 1U) != 0;
    if (field == 2 * format.bias() + 1) {
        return fraction == 0 ? infinity(isNegative) : notANumber();
    }
    Real real;
    real.isNegative = isNegative;
    real.mantissa = field != 0 ? implied + fraction : subnormals ? fraction : 0;
    real.exponent = std::max(field, 1L) - format.bias() - static_cast<long>(format.fraction);
    return real;
}

std::uint64_t encoded(const Real &real, const FloatFormat &format, Direction direction, bool subnormals) {
    const std::uint64_t implied = std::uint64_t{1} << format.fraction;
    const std::uint64_t endField = (std::uint64_t{1} << format.exponent) - 1;
    const std::uint64_t sign = real.isNegative ? std::uint64_t{1} << (format.width() - 1) : 0;
    const std::uint64_t infinite = endField << format.fraction;
    if (real.isNan()) {
        return infinite | implied >> 1U;
    }
    if (real.isInfinite() || real.isZero()) {
        return sign | (real.isInfinite() ? infinite : 0);
    }
    const long fraction = static_cast<long>(format.fraction);
    const long leastNormal = 1 - format.bias();
    // The place of the last bit that stays.
    const long top = real.exponent + static_cast<long>(std::bit_width(real.mantissa)) - 1;
    const long unit = subnormals ? std::max(top - fraction, leastNormal - fraction) : top - fraction;
    const long drop = std::min(unit - real.exponent, 100L);
    if (real.isInexact && drop < 2) {
        throw std::logic_error("a number of too few bits cannot be rounded");
    }
    unsigned __int128 kept = real.mantissa;
    bool isUp = false;
    if (drop <= 0) {
        kept <<= static_cast<unsigned>(-drop);
    } else {
        const unsigned __int128 half = static_cast<unsigned __int128>(1) << static_cast<unsigned>(drop - 1);
        const unsigned __int128 rest = kept & (2 * half - 1);
        kept >>= static_cast<unsigned>(drop);
        const bool isBeyond = rest > half || (rest == half && real.isInexact);
        const bool isTie = rest == half && !real.isInexact;
        const bool isExact = rest == 0 && !real.isInexact;
        switch (direction) {
        case Direction::NearestEven:
            isUp = isBeyond || (isTie && (kept & 1) != 0);
            break;
        case Direction::NearestAway:
            isUp = isBeyond || isTie;
            break;
        case Direction::ToZero:
            break;
        case Direction::Up:
            isUp = !isExact && !real.isNegative;
            break;
        case Direction::Down:
            isUp = !isExact && real.isNegative;
            break;
        }
    }
    auto whole = static_cast<std::uint64_t>(kept) + (isUp ? 1 : 0);
    if (whole == 0) {
        return sign;
    }
    const long order = unit + static_cast<long>(std::bit_width(whole)) - 1;
    if (order > format.bias()) {
        const bool staysFinite = direction == Direction::ToZero || (direction == Direction::Up && real.isNegative) ||
                                 (direction == Direction::Down && !real.isNegative);
        return sign | (staysFinite ? infinite - 1 : infinite);
    }
    if (order < leastNormal) {
        return sign | (subnormals ? whole : 0);
    }
    // A carry may have made it one bit longer, with a zero below.
    const auto length = static_cast<unsigned>(std::bit_width(whole));
    whole = length > format.fraction + 1 ? whole >> 1U : whole << (format.fraction + 1 - length);
    return sign | ((static_cast<std::uint64_t>(order - leastNormal + 1) << format.fraction) + whole - implied);
}

} // namespace orvo::testing
