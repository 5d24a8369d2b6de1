// Functions by MPFR, which rounds correctly.
#include "sim/functionkernels.h"

#include "sim/bigint.h"

#include <mpfr.h>

#include <algorithm>
#include <map>

namespace orvo::sim {

namespace {

using Word = std::uint64_t;

/// Enough that a second rounding is as good as none.
constexpr mpfr_prec_t kGuardBits = 128;

class Number {
  public:
    explicit Number(mpfr_prec_t precision) {
        // The thread's caches end with it.
        struct CacheGuard {
            ~CacheGuard() { mpfr_free_cache(); }
        };
        static thread_local const CacheGuard guard;
        mpfr_init2(mValue, std::max<mpfr_prec_t>(precision, MPFR_PREC_MIN));
    }
    Number(const Number &) = delete;
    Number &operator=(const Number &) = delete;
    ~Number() { mpfr_clear(mValue); }
    mpfr_ptr get() { return mValue; }
    mpfr_srcptr get() const { return mValue; }

  private:
    mpfr_t mValue;
};

BigInt integerOf(const Word *words, const Operand &operand) {
    BigInt value;
    mpz_import(value.get(), wordsFor(operand.width), -1, sizeof(Word), 0, 0, words + operand.at);
    mpz_fdiv_r_2exp(value.get(), value.get(), operand.width);
    if (operand.isSigned && operand.width != 0 && mpz_tstbit(value.get(), operand.width - 1) != 0) {
        value -= BigInt(1) << operand.width;
    }
    return value;
}

void load(Number &to, const Word *words, const Operand &operand) {
    mpfr_set_z_2exp(to.get(), integerOf(words, operand).get(), -operand.shift, MPFR_RNDN);
}

mpfr_prec_t precisionOf(const Operand &operand) { return static_cast<mpfr_prec_t>(operand.width) + 1; }

/// Rounds a number that was cut toward zero; `isCut` tells whether anything was lost.
void store(Word *words, const Operand &out, const Number &value, bool isCut) {
    BigInt whole;
    if (mpfr_regular_p(value.get()) != 0) {
        const std::int64_t bits = mpfr_get_exp(value.get()) + std::int64_t{out.shift};
        if (bits > std::int64_t{out.width} + 1) {
            // Beyond the range, whatever its lower bits are.
            whole = BigInt(mpfr_signbit(value.get()) != 0 ? -1 : 1) << (out.width + 1);
        } else if (bits >= -1) {
            // In eighths of the last place, of which the lowest tells that something lies below.
            BigInt scaled;
            mpfr_exp_t scale = mpfr_get_z_2exp(scaled.get(), value.get());
            scale += out.shift + 3;
            const bool isNegative = scaled < BigInt(0);
            BigInt eighths = isNegative ? -std::move(scaled) : std::move(scaled);
            bool hasRest = isCut;
            if (scale >= 0) {
                eighths <<= static_cast<unsigned>(scale);
            } else {
                hasRest = hasRest || mpz_scan1(eighths.get(), 0) < static_cast<mp_bitcnt_t>(-scale);
                eighths >>= static_cast<unsigned>(-scale);
            }
            const auto low = static_cast<std::int64_t>(eighths & BigInt(7));
            whole = eighths >> 3;
            const bool isOdd = mpz_odd_p(whole.get()) != 0;
            if (low > 4 || (low == 4 && (hasRest || isOdd))) {
                whole += BigInt(1);
            }
            if (isNegative) {
                whole = -std::move(whole);
            }
        }
    }
    const std::uint32_t magnitude = out.isSigned ? std::max(out.width, 1U) - 1 : out.width;
    const BigInt high = (BigInt(1) << magnitude) - BigInt(1);
    const BigInt low = out.isSigned && out.width != 0 ? -BigInt(high) - BigInt(1) : BigInt(0);
    whole = whole < low ? low : whole > high ? high : whole;
    BigInt pattern;
    mpz_fdiv_r_2exp(pattern.get(), whole.get(), wordsFor(out.width) * 64UL);
    std::fill(words + out.at, words + out.at + wordsFor(out.width), Word{0});
    mpz_export(words + out.at, nullptr, -1, sizeof(Word), 0, 0, pattern.get());
}

template <FixedFunction function> void runFunction(Word *words, const Op &op) {
    Number in(precisionOf(op.in[0]));
    load(in, words, op.in[0]);
    Number out(precisionOf(op.out) + 8);
    int cut = 0;
    switch (function) {
    case FixedFunction::Sqrt:
        cut = mpfr_sqrt(out.get(), in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::Reciprocal:
        cut = mpfr_ui_div(out.get(), 1, in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::RecipSqrt:
        cut = mpfr_rec_sqrt(out.get(), in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::Exp:
        cut = mpfr_exp(out.get(), in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::Log:
        cut = mpfr_log(out.get(), in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::Sin:
        cut = mpfr_sin(out.get(), in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::Cos:
        cut = mpfr_cos(out.get(), in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::SinPi:
        cut = mpfr_sinpi(out.get(), in.get(), MPFR_RNDZ);
        break;
    case FixedFunction::CosPi:
        cut = mpfr_cospi(out.get(), in.get(), MPFR_RNDZ);
        break;
    }
    store(words, op.out, out, cut != 0);
}

void runPower(Word *words, const Op &op) {
    Number base(precisionOf(op.in[0]));
    load(base, words, op.in[0]);
    Number out(precisionOf(op.out) + 8);
    const int cut = mpfr_pow_z(out.get(), base.get(), integerOf(words, op.in[1]).get(), MPFR_RNDZ);
    store(words, op.out, out, cut != 0);
}

/// The product of the roots of 1 + 4^-i over all i from 0 on, to a precision.
void setGain(Number &gain) {
    const mpfr_prec_t precision = mpfr_get_prec(gain.get());
    Number square(precision + 64);
    Number factor(precision + 64);
    mpfr_set_ui(square.get(), 2, MPFR_RNDN);
    // Factors nearer to one than this change nothing.
    for (mpfr_prec_t i = 1; 2 * i < precision + 64; ++i) {
        mpfr_set_ui_2exp(factor.get(), 1, -2 * i, MPFR_RNDN);
        mpfr_add_ui(factor.get(), factor.get(), 1, MPFR_RNDN);
        mpfr_mul(square.get(), square.get(), factor.get(), MPFR_RNDN);
    }
    mpfr_sqrt(gain.get(), square.get(), MPFR_RNDN);
}

/// Computed once for each precision, for it takes longer than all else in a rotation.
const Number &gainOf(mpfr_prec_t precision) {
    static thread_local std::map<mpfr_prec_t, Number> known;
    const auto [at, isNew] = known.try_emplace(precision, precision);
    if (isNew) {
        setGain(at->second);
    }
    return at->second;
}

template <Cordic what> void runCordic(Word *words, const Op &op) {
    mpfr_prec_t precision = precisionOf(op.out);
    for (std::uint32_t i = 0; i < op.count; ++i) {
        precision = std::max(precision, precisionOf(op.in[i]) + std::abs(op.in[i].shift));
    }
    precision = 2 * precision + kGuardBits;
    Number x(precision);
    Number y(precision);
    Number angle(precision);
    load(x, words, op.in[0]);
    load(y, words, op.in[1]);
    load(angle, words, op.in[2]);
    Number out(precision);
    if constexpr (what == Cordic::Direction) {
        mpfr_atan2(out.get(), y.get(), x.get(), MPFR_RNDN);
        mpfr_add(out.get(), out.get(), angle.get(), MPFR_RNDN);
    } else {
        if constexpr (what == Cordic::Length) {
            mpfr_hypot(out.get(), x.get(), y.get(), MPFR_RNDN);
        } else {
            Number sine(precision);
            Number cosine(precision);
            mpfr_sin_cos(sine.get(), cosine.get(), angle.get(), MPFR_RNDN);
            if constexpr (what == Cordic::RotatedX) {
                mpfr_fmms(out.get(), x.get(), cosine.get(), y.get(), sine.get(), MPFR_RNDN);
            } else {
                mpfr_fmma(out.get(), x.get(), sine.get(), y.get(), cosine.get(), MPFR_RNDN);
            }
        }
        mpfr_mul(out.get(), out.get(), gainOf(precision).get(), MPFR_RNDN);
    }
    store(words, op.out, out, false);
}

} // namespace

Kernel fixedFunctionKernel(FixedFunction function) {
    switch (function) {
    case FixedFunction::Sqrt:
        return runFunction<FixedFunction::Sqrt>;
    case FixedFunction::Reciprocal:
        return runFunction<FixedFunction::Reciprocal>;
    case FixedFunction::RecipSqrt:
        return runFunction<FixedFunction::RecipSqrt>;
    case FixedFunction::Exp:
        return runFunction<FixedFunction::Exp>;
    case FixedFunction::Log:
        return runFunction<FixedFunction::Log>;
    case FixedFunction::Sin:
        return runFunction<FixedFunction::Sin>;
    case FixedFunction::Cos:
        return runFunction<FixedFunction::Cos>;
    case FixedFunction::SinPi:
        return runFunction<FixedFunction::SinPi>;
    case FixedFunction::CosPi:
        return runFunction<FixedFunction::CosPi>;
    }
    return nullptr;
}

Kernel fixedPowerKernel() { return runPower; }

Kernel cordicKernel(Cordic what) {
    switch (what) {
    case Cordic::RotatedX:
        return runCordic<Cordic::RotatedX>;
    case Cordic::RotatedY:
        return runCordic<Cordic::RotatedY>;
    case Cordic::Length:
        return runCordic<Cordic::Length>;
    case Cordic::Direction:
        return runCordic<Cordic::Direction>;
    }
    return nullptr;
}

} // namespace orvo::sim
