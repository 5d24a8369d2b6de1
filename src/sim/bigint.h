// Integers of any width for values that no machine word holds, with the operators that the kernels are written in.
#pragma once

#include <gmp.h>

#include <compare>
#include <cstdint>
#include <utility>

namespace orvo::sim {

/// A signed integer of any width. Shifts are arithmetic; bitwise operations see endless two's complement.
class BigInt {
  public:
    BigInt() { mpz_init(mValue); }
    // NOLINTNEXTLINE(google-explicit-constructor): stands where a machine integer does
    BigInt(std::int64_t value) { mpz_init_set_si(mValue, value); }
    BigInt(int value) : BigInt(std::int64_t{value}) {} // NOLINT(google-explicit-constructor)
    explicit BigInt(__int128 value) {
        mpz_init_set_si(mValue, static_cast<std::int64_t>(value >> 64));
        mpz_mul_2exp(mValue, mValue, 64);
        BigInt low;
        mpz_set_ui(low.mValue, static_cast<std::uint64_t>(value));
        mpz_add(mValue, mValue, low.mValue);
    }
    BigInt(const BigInt &other) { mpz_init_set(mValue, other.mValue); }
    BigInt(BigInt &&other) noexcept {
        mpz_init(mValue);
        mpz_swap(mValue, other.mValue);
    }
    BigInt &operator=(const BigInt &other) {
        mpz_set(mValue, other.mValue);
        return *this;
    }
    BigInt &operator=(BigInt &&other) noexcept {
        mpz_swap(mValue, other.mValue);
        return *this;
    }
    ~BigInt() { mpz_clear(mValue); }

    mpz_ptr get() { return mValue; }
    mpz_srcptr get() const { return mValue; }

    explicit operator std::int64_t() const { return static_cast<std::int64_t>(lowWord()); }
    explicit operator __int128() const {
        BigInt high;
        mpz_fdiv_q_2exp(high.mValue, mValue, 64);
        return static_cast<__int128>((static_cast<unsigned __int128>(high.lowWord()) << 64U) | lowWord());
    }

    BigInt &operator+=(const BigInt &other) {
        mpz_add(mValue, mValue, other.mValue);
        return *this;
    }
    BigInt &operator-=(const BigInt &other) {
        mpz_sub(mValue, mValue, other.mValue);
        return *this;
    }
    BigInt &operator*=(const BigInt &other) {
        mpz_mul(mValue, mValue, other.mValue);
        return *this;
    }
    BigInt &operator<<=(unsigned places) {
        mpz_mul_2exp(mValue, mValue, places);
        return *this;
    }
    BigInt &operator>>=(unsigned places) {
        mpz_fdiv_q_2exp(mValue, mValue, places);
        return *this;
    }
    BigInt &operator&=(const BigInt &other) {
        mpz_and(mValue, mValue, other.mValue);
        return *this;
    }
    BigInt &operator|=(const BigInt &other) {
        mpz_ior(mValue, mValue, other.mValue);
        return *this;
    }
    BigInt &operator^=(const BigInt &other) {
        mpz_xor(mValue, mValue, other.mValue);
        return *this;
    }
    friend BigInt operator+(BigInt a, const BigInt &b) { return std::move(a += b); }
    friend BigInt operator-(BigInt a, const BigInt &b) { return std::move(a -= b); }
    friend BigInt operator*(BigInt a, const BigInt &b) { return std::move(a *= b); }
    friend BigInt operator<<(BigInt a, unsigned places) { return std::move(a <<= places); }
    friend BigInt operator>>(BigInt a, unsigned places) { return std::move(a >>= places); }
    friend BigInt operator&(BigInt a, const BigInt &b) { return std::move(a &= b); }
    friend BigInt operator|(BigInt a, const BigInt &b) { return std::move(a |= b); }
    friend BigInt operator^(BigInt a, const BigInt &b) { return std::move(a ^= b); }
    /// Toward zero; the divisor must not be zero.
    friend BigInt operator/(BigInt a, const BigInt &b) {
        mpz_tdiv_q(a.mValue, a.mValue, b.mValue);
        return a;
    }
    friend BigInt operator%(BigInt a, const BigInt &b) {
        mpz_tdiv_r(a.mValue, a.mValue, b.mValue);
        return a;
    }
    friend BigInt operator-(BigInt a) {
        mpz_neg(a.mValue, a.mValue);
        return a;
    }
    friend BigInt operator~(BigInt a) {
        mpz_com(a.mValue, a.mValue);
        return a;
    }
    friend bool operator==(const BigInt &a, const BigInt &b) { return mpz_cmp(a.mValue, b.mValue) == 0; }
    friend std::strong_ordering operator<=>(const BigInt &a, const BigInt &b) {
        return mpz_cmp(a.mValue, b.mValue) <=> 0;
    }

  private:
    /// The low 64 bits of the two's complement form.
    std::uint64_t lowWord() const {
        const std::uint64_t magnitude = mpz_get_ui(mValue);
        return mpz_sgn(mValue) < 0 ? ~magnitude + 1 : magnitude;
    }

    mpz_t mValue;
};

} // namespace orvo::sim
