// Between bits of IEEE 754 formats and decimals, by way of MPFR.
#include "driver/floattext.h"

#include <mpfr.h>

#include <algorithm>

namespace orvo::driver {

namespace {

/// A number of MPFR at the precision of a format, with its range in force as long as this lives.
class Number {
  public:
    explicit Number(const sim::Scalar &scalar)
        : fraction(static_cast<long>(scalar.width) - 1 - static_cast<long>(scalar.exponent)),
          bias((1L << (scalar.exponent - 1)) - 1), mLeast(mpfr_get_emin()), mMost(mpfr_get_emax()) {
        mpfr_init2(value, std::max<mpfr_prec_t>(fraction + 1, MPFR_PREC_MIN));
        mpz_init(bits);
        mpfr_set_emin(2 - bias - fraction);
        mpfr_set_emax(bias + 1);
    }
    ~Number() {
        mpfr_set_emin(mLeast);
        mpfr_set_emax(mMost);
        mpfr_clear(value);
        mpz_clear(bits);
    }
    Number(const Number &) = delete;
    Number &operator=(const Number &) = delete;

    long fraction;
    long bias;
    mpfr_t value;
    mpz_t bits;

  private:
    mpfr_exp_t mLeast;
    mpfr_exp_t mMost;
};

/// Digits with a point behind the first `whole`, or in scientific notation far from it.
std::string decimal(std::string digits, long whole) {
    digits.erase(std::max<std::size_t>(digits.find_last_not_of('0') + 1, 1));
    constexpr long kLongest = 21;
    const auto count = static_cast<long>(digits.size());
    if (whole > kLongest || whole < -5) {
        if (count > 1) {
            digits.insert(1, ".");
        }
        return digits + "e" + std::to_string(whole - 1);
    }
    if (whole <= 0) {
        return "0." + std::string(static_cast<std::size_t>(-whole), '0') + digits;
    }
    if (count > whole) {
        return digits.insert(static_cast<std::size_t>(whole), ".");
    }
    return digits + std::string(static_cast<std::size_t>(whole - count), '0');
}

} // namespace

std::string floatText(const sim::Scalar &scalar, const Words &words) {
    Number number(scalar);
    mpz_import(number.bits, words.size(), -1, sizeof(std::uint64_t), 0, 0, words.data());
    const std::string sign = mpz_tstbit(number.bits, scalar.width - 1) != 0 ? "-" : "";
    mpz_fdiv_r_2exp(number.bits, number.bits, scalar.width - 1);
    mpz_t exponent;
    mpz_init(exponent);
    mpz_fdiv_q_2exp(exponent, number.bits, static_cast<unsigned long>(number.fraction));
    const long biased = mpz_get_si(exponent);
    mpz_clear(exponent);
    mpz_fdiv_r_2exp(number.bits, number.bits, static_cast<unsigned long>(number.fraction));
    if (biased == 2 * number.bias + 1) {
        return mpz_sgn(number.bits) != 0 ? "nan" : sign + "inf";
    }
    if (biased != 0) {
        mpz_setbit(number.bits, static_cast<unsigned long>(number.fraction));
    }
    if (mpz_sgn(number.bits) == 0) {
        return sign + "0";
    }
    mpfr_set_z_2exp(number.value, number.bits, std::max(biased, 1L) - number.bias - number.fraction, MPFR_RNDN);
    mpfr_t back;
    mpfr_init2(back, mpfr_get_prec(number.value));
    std::string text;
    for (std::size_t count = 1; text.empty(); ++count) {
        mpfr_exp_t whole = 0;
        char *digits = mpfr_get_str(nullptr, &whole, 10, count, number.value, MPFR_RNDN);
        text = decimal(digits, whole);
        mpfr_free_str(digits);
        mpfr_subnormalize(back, mpfr_strtofr(back, text.c_str(), nullptr, 10, MPFR_RNDN), MPFR_RNDN);
        if (mpfr_equal_p(back, number.value) == 0) {
            text.clear();
        }
    }
    mpfr_clear(back);
    return sign + text;
}

std::optional<Words> parseFloat(const sim::Scalar &scalar, const std::string &text) {
    Number number(scalar);
    char *end = nullptr;
    const int direction = mpfr_strtofr(number.value, text.c_str(), &end, 10, MPFR_RNDN);
    if (text.empty() || end != text.c_str() + text.size() || text.find_first_of(" \t\n") != std::string::npos) {
        return std::nullopt;
    }
    mpfr_subnormalize(number.value, direction, MPFR_RNDN);
    long biased = 0;
    if (mpfr_nan_p(number.value) != 0 || mpfr_inf_p(number.value) != 0) {
        biased = 2 * number.bias + 1;
        mpz_set_ui(number.bits, mpfr_nan_p(number.value) != 0 ? 1 : 0);
        mpz_mul_2exp(number.bits, number.bits, static_cast<unsigned long>(number.fraction - 1));
    } else if (mpfr_zero_p(number.value) == 0) {
        biased = std::max<long>(mpfr_get_exp(number.value) - 1 + number.bias, 0);
        mpfr_t scaled;
        mpfr_init2(scaled, mpfr_get_prec(number.value));
        mpfr_set_emax(mpfr_get_emax_max());
        mpfr_mul_2si(scaled, number.value, number.fraction + number.bias - std::max(biased, 1L), MPFR_RNDN);
        mpfr_abs(scaled, scaled, MPFR_RNDN);
        mpfr_get_z(number.bits, scaled, MPFR_RNDN);
        mpfr_clear(scaled);
        // The leading one of a normal number is not written.
        mpz_fdiv_r_2exp(number.bits, number.bits, static_cast<unsigned long>(number.fraction));
    }
    mpz_t field;
    mpz_init_set_si(field, biased);
    mpz_mul_2exp(field, field, static_cast<unsigned long>(number.fraction));
    mpz_ior(number.bits, number.bits, field);
    mpz_clear(field);
    if (mpfr_signbit(number.value) != 0 && mpfr_nan_p(number.value) == 0) {
        mpz_setbit(number.bits, scalar.width - 1);
    }
    Words words((scalar.width + 63) / 64);
    mpz_export(words.data(), nullptr, -1, sizeof(std::uint64_t), 0, 0, number.bits);
    return words;
}

} // namespace orvo::driver
