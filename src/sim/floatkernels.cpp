// Floats in words, and MPFR between them.
#include "sim/floatkernels.h"

#include "sim/bigint.h"

#include <mpfr.h>

#include <algorithm>
#include <array>
#include <memory>

namespace orvo::sim {

namespace {

using Word = std::uint64_t;

constexpr int kRoundingShift = 8;
constexpr int kSubnormalsBit = 1 << 12;
/// What `clipKernel` takes for the range of a signed type.
constexpr int kSignedRange = 1 << 24;
/// Enough that a second rounding of what MPFR has no function for is as good as none.
constexpr mpfr_prec_t kGuardBits = 128;

/// A number of MPFR that ends itself, and its thread's caches with the thread.
class Float {
  public:
    explicit Float(mpfr_prec_t precision) {
        struct CacheGuard {
            ~CacheGuard() { mpfr_free_cache(); }
        };
        static thread_local const CacheGuard guard;
        mpfr_init2(mValue, precision);
    }
    Float(const Float &other) : Float(mpfr_get_prec(other.mValue)) { mpfr_set(mValue, other.mValue, MPFR_RNDN); }
    Float &operator=(const Float &) = delete;
    ~Float() { mpfr_clear(mValue); }
    mpfr_ptr get() { return mValue; }
    mpfr_srcptr get() const { return mValue; }

  private:
    mpfr_t mValue;
};

struct Format {
    explicit Format(const Operand &operand)
        : exponent(static_cast<std::uint32_t>(operand.shift)), significand(operand.width - 1 - exponent) {}
    std::uint32_t exponent;
    std::uint32_t significand;
    std::int64_t bias() const { return (std::int64_t{1} << (exponent - 1)) - 1; }
    mpfr_prec_t precision() const { return static_cast<mpfr_prec_t>(significand) + 1; }
};

bool bitAt(const Word *words, std::uint32_t bit) { return (words[bit / 64] >> (bit % 64) & 1U) != 0; }

BigInt bitsAt(const Word *words, const Operand &operand, std::uint32_t from, std::uint32_t count) {
    BigInt value;
    mpz_import(value.get(), wordsFor(operand.width), -1, sizeof(Word), 0, 0, words + operand.at);
    mpz_fdiv_q_2exp(value.get(), value.get(), from);
    mpz_fdiv_r_2exp(value.get(), value.get(), count);
    return value;
}

bool keepsSubnormals(const Op &op) { return (op.aux & kSubnormalsBit) != 0; }

Float load(const Word *words, const Operand &operand, bool subnormals) {
    const Format format(operand);
    Float value(format.precision());
    const bool isNegative = bitAt(words + operand.at, operand.width - 1);
    const BigInt fraction = bitsAt(words, operand, 0, format.significand);
    const auto field = static_cast<std::int64_t>(bitsAt(words, operand, format.significand, format.exponent));
    const std::int64_t least = 1 - format.bias() - static_cast<std::int64_t>(format.significand);
    if (field == (std::int64_t{1} << format.exponent) - 1) {
        if (fraction == BigInt(0)) {
            mpfr_set_inf(value.get(), isNegative ? -1 : 1);
        } else {
            mpfr_set_nan(value.get());
        }
        return value;
    }
    if (field == 0) {
        mpfr_set_z_2exp(value.get(), subnormals ? fraction.get() : BigInt(0).get(), least, MPFR_RNDN);
    } else {
        const BigInt whole = fraction + (BigInt(1) << format.significand);
        mpfr_set_z_2exp(value.get(), whole.get(), least + field - 1, MPFR_RNDN);
    }
    mpfr_setsign(value.get(), value.get(), isNegative ? 1 : 0, MPFR_RNDN);
    return value;
}

mpfr_rnd_t roundingOf(const Op &op) {
    switch (static_cast<FloatRounding>(op.aux >> kRoundingShift & 7)) {
    case FloatRounding::NearestEven:
    case FloatRounding::NearestAway:
        return MPFR_RNDN;
    case FloatRounding::ToZero:
        return MPFR_RNDZ;
    case FloatRounding::Up:
        return MPFR_RNDU;
    case FloatRounding::Down:
        return MPFR_RNDD;
    }
    return MPFR_RNDN;
}

void storePattern(Word *words, const Operand &out, const BigInt &pattern) {
    std::fill(words + out.at, words + out.at + wordsFor(out.width), Word{0});
    mpz_export(words + out.at, nullptr, -1, sizeof(Word), 0, 0, pattern.get());
}

/// Brings a result of the format's precision, rounded with this direction, into the format's range.
void store(Word *words, const Operand &out, Float &value, int ternary, mpfr_rnd_t rounding, bool subnormals) {
    const Format format(out);
    const mpfr_exp_t emin = mpfr_get_emin();
    const mpfr_exp_t emax = mpfr_get_emax();
    const std::int64_t leastNormal = 1 - format.bias();
    // MPFR counts exponents of numbers in [1/2, 1).
    mpfr_set_emin(leastNormal - static_cast<std::int64_t>(format.significand) + 1);
    mpfr_set_emax(format.bias() + 1);
    ternary = mpfr_check_range(value.get(), ternary, rounding);
    if (subnormals) {
        mpfr_subnormalize(value.get(), ternary, rounding);
    }
    mpfr_set_emin(emin);
    mpfr_set_emax(emax);
    const BigInt one(1);
    const BigInt all = (one << format.exponent) - one;
    BigInt pattern;
    if (mpfr_nan_p(value.get()) != 0) {
        storePattern(words, out, (all << format.significand) | (one << (format.significand - 1)));
        return;
    }
    if (mpfr_inf_p(value.get()) != 0) {
        pattern = all << format.significand;
    } else if (mpfr_zero_p(value.get()) == 0 && (subnormals || mpfr_get_exp(value.get()) - 1 >= leastNormal)) {
        BigInt whole;
        const mpfr_exp_t scale = mpfr_get_z_2exp(whole.get(), value.get());
        mpz_abs(whole.get(), whole.get());
        const std::int64_t field = scale + static_cast<std::int64_t>(format.significand) + format.bias();
        if (field >= 1) {
            pattern = (BigInt(field) << format.significand) + whole - (one << format.significand);
        } else {
            pattern = whole >> static_cast<unsigned>(1 - field);
        }
    }
    if (mpfr_signbit(value.get()) != 0) {
        pattern |= one << (out.width - 1);
    }
    storePattern(words, out, pattern);
}

using Unary = int (*)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t);
using Binary = int (*)(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t);

int reciprocal(mpfr_ptr out, mpfr_srcptr a, mpfr_rnd_t rounding) { return mpfr_ui_div(out, 1, a, rounding); }

int fraction(mpfr_ptr out, mpfr_srcptr a, mpfr_rnd_t rounding) {
    Float whole(mpfr_get_prec(a));
    mpfr_floor(whole.get(), a);
    return mpfr_sub(out, a, whole.get(), rounding);
}

int cotPi(mpfr_ptr out, mpfr_srcptr a, mpfr_rnd_t rounding) {
    Float tangent(2 * mpfr_get_prec(out) + kGuardBits);
    mpfr_tanpi(tangent.get(), a, MPFR_RNDN);
    return mpfr_ui_div(out, 1, tangent.get(), rounding);
}

template <int (*whole)(mpfr_ptr, mpfr_srcptr)> int integral(mpfr_ptr out, mpfr_srcptr a, mpfr_rnd_t) {
    return whole(out, a);
}

int floorOf(mpfr_ptr out, mpfr_srcptr a) { return mpfr_floor(out, a); }
int ceilOf(mpfr_ptr out, mpfr_srcptr a) { return mpfr_ceil(out, a); }
int truncOf(mpfr_ptr out, mpfr_srcptr a) { return mpfr_trunc(out, a); }
int roundOf(mpfr_ptr out, mpfr_srcptr a) { return mpfr_round(out, a); }
int evenOf(mpfr_ptr out, mpfr_srcptr a) { return mpfr_roundeven(out, a); }
int negOf(mpfr_ptr out, mpfr_srcptr a, mpfr_rnd_t rounding) { return mpfr_neg(out, a, rounding); }
int absOf(mpfr_ptr out, mpfr_srcptr a, mpfr_rnd_t rounding) { return mpfr_abs(out, a, rounding); }

Unary unaryOf(FloatFunction function) {
    switch (function) {
    case FloatFunction::Neg:
        return negOf;
    case FloatFunction::Abs:
        return absOf;
    case FloatFunction::Sqrt:
        return mpfr_sqrt;
    case FloatFunction::Reciprocal:
        return reciprocal;
    case FloatFunction::RecipSqrt:
        return mpfr_rec_sqrt;
    case FloatFunction::CubeRoot:
        return mpfr_cbrt;
    case FloatFunction::Rint:
        return integral<evenOf>;
    case FloatFunction::Round:
        return integral<roundOf>;
    case FloatFunction::Floor:
        return integral<floorOf>;
    case FloatFunction::Ceil:
        return integral<ceilOf>;
    case FloatFunction::Trunc:
        return integral<truncOf>;
    case FloatFunction::Frac:
        return fraction;
    case FloatFunction::Exp:
        return mpfr_exp;
    case FloatFunction::Exp2:
        return mpfr_exp2;
    case FloatFunction::Exp10:
        return mpfr_exp10;
    case FloatFunction::Expm1:
        return mpfr_expm1;
    case FloatFunction::Log:
        return mpfr_log;
    case FloatFunction::Log2:
        return mpfr_log2;
    case FloatFunction::Log10:
        return mpfr_log10;
    case FloatFunction::Log1p:
        return mpfr_log1p;
    case FloatFunction::Sin:
        return mpfr_sin;
    case FloatFunction::Cos:
        return mpfr_cos;
    case FloatFunction::Tan:
        return mpfr_tan;
    case FloatFunction::Cot:
        return mpfr_cot;
    case FloatFunction::SinPi:
        return mpfr_sinpi;
    case FloatFunction::CosPi:
        return mpfr_cospi;
    case FloatFunction::TanPi:
        return mpfr_tanpi;
    case FloatFunction::CotPi:
        return cotPi;
    case FloatFunction::Asin:
        return mpfr_asin;
    case FloatFunction::Acos:
        return mpfr_acos;
    case FloatFunction::Atan:
        return mpfr_atan;
    case FloatFunction::AsinPi:
        return mpfr_asinpi;
    case FloatFunction::AcosPi:
        return mpfr_acospi;
    case FloatFunction::AtanPi:
        return mpfr_atanpi;
    default:
        return nullptr;
    }
}

Binary binaryOf(FloatFunction function) {
    switch (function) {
    case FloatFunction::Add:
        return mpfr_add;
    case FloatFunction::Sub:
        return mpfr_sub;
    case FloatFunction::Mul:
        return mpfr_mul;
    case FloatFunction::Div:
        return mpfr_div;
    case FloatFunction::Hypot:
        return mpfr_hypot;
    case FloatFunction::Atan2:
        return mpfr_atan2;
    case FloatFunction::Mod:
        return mpfr_fmod;
    case FloatFunction::Pow:
        return mpfr_pow;
    case FloatFunction::PowR:
        return mpfr_powr;
    default:
        return nullptr;
    }
}

/// The root of the sum of three squares. The sum is cut where no middle between two roots has a bit, and one bit more
/// tells whether anything was cut, so that the root is rounded as that of the exact sum.
int diagonal(Float &out, const std::array<const Float *, 3> &sides, mpfr_rnd_t rounding) {
    const mpfr_prec_t square = 2 * mpfr_get_prec(out.get());
    std::array<Float, 3> squares{Float(square), Float(square), Float(square)};
    std::array<mpfr_ptr, 3> terms{};
    for (std::size_t i = 0; i < 3; ++i) {
        if (mpfr_inf_p(sides[i]->get()) != 0) {
            // As long as one side is, whatever the others.
            mpfr_set_inf(out.get(), 1);
            return 0;
        }
        mpfr_sqr(squares[i].get(), sides[i]->get(), MPFR_RNDN);
        terms[i] = squares[i].get();
    }
    Float sum(square + 4);
    if (mpfr_sum(sum.get(), terms.data(), terms.size(), MPFR_RNDZ) != 0) {
        mpfr_prec_round(sum.get(), square + 5, MPFR_RNDN);
        mpfr_nextabove(sum.get());
    }
    return mpfr_sqrt(out.get(), sum.get(), rounding);
}

int ternaryOf(FloatFunction function, Float &out, const Float &a, const Float &b, const Float &c, mpfr_rnd_t rounding) {
    if (function == FloatFunction::Hypot3) {
        return diagonal(out, {&a, &b, &c}, rounding);
    }
    Float factor(a);
    if (function == FloatFunction::MultSub) {
        mpfr_neg(factor.get(), factor.get(), MPFR_RNDN);
    }
    return mpfr_fma(out.get(), factor.get(), b.get(), c.get(), rounding);
}

template <Relation relation> void runCompare(Word *words, const Op &op) {
    const Float a = load(words, op.in[0], keepsSubnormals(op));
    const Float b = load(words, op.in[1], keepsSubnormals(op));
    bool holds = false;
    switch (relation) {
    case Relation::Equal:
        holds = mpfr_equal_p(a.get(), b.get()) != 0;
        break;
    case Relation::NotEqual:
        holds = mpfr_equal_p(a.get(), b.get()) == 0;
        break;
    case Relation::GreaterEqual:
        holds = mpfr_greaterequal_p(a.get(), b.get()) != 0;
        break;
    case Relation::Less:
        holds = mpfr_less_p(a.get(), b.get()) != 0;
        break;
    }
    words[op.out.at] = holds ? 1 : 0;
}

/// To the places that the format has for the number, ties away from zero: half a unit of the last place is added, and
/// what lies below that place is cut.
int roundedAway(const Op &op, Float &out, const Float &exact) {
    const Format format(op.out);
    if (mpfr_regular_p(exact.get()) == 0) {
        return mpfr_set(out.get(), exact.get(), MPFR_RNDN);
    }
    const mpfr_exp_t exponent = mpfr_get_exp(exact.get());
    mpfr_exp_t place = exponent - format.precision();
    if (keepsSubnormals(op)) {
        place = std::max<mpfr_exp_t>(place, 1 - format.bias() - static_cast<std::int64_t>(format.significand));
    }
    const int sign = mpfr_signbit(exact.get()) != 0 ? -1 : 1;
    if (exponent < place) {
        mpfr_set_zero(out.get(), sign);
        return 0;
    }
    Float half(MPFR_PREC_MIN);
    mpfr_set_si_2exp(half.get(), sign, place - 1, MPFR_RNDN);
    Float sum(std::max(mpfr_get_prec(exact.get()), format.precision() + 1) + 1);
    mpfr_add(sum.get(), exact.get(), half.get(), MPFR_RNDN);
    mpfr_div_2si(sum.get(), sum.get(), place, MPFR_RNDN);
    mpfr_trunc(sum.get(), sum.get());
    mpfr_mul_2si(out.get(), sum.get(), place, MPFR_RNDN);
    return 0;
}

bool roundsAway(const Op &op) {
    return static_cast<FloatRounding>(op.aux >> kRoundingShift & 7) == FloatRounding::NearestAway;
}

/// To the format's precision, ties away from zero where that is asked for.
int roundedInto(const Op &op, Float &out, const Float &exact) {
    return roundsAway(op) ? roundedAway(op, out, exact) : mpfr_set(out.get(), exact.get(), roundingOf(op));
}

/// Lets `compute(result, direction)` round into the format. MPFR has no ties away from zero: for these the result is
/// cut to a few bits more, and one bit below them tells whether anything was cut, so that it is no tie.
template <class Compute> int computedInto(const Op &op, Float &out, Compute compute) {
    if (!roundsAway(op)) {
        return compute(out, roundingOf(op));
    }
    Float cut(Format(op.out).precision() + 2);
    if (compute(cut, MPFR_RNDZ) != 0 && mpfr_regular_p(cut.get()) != 0) {
        mpfr_prec_round(cut.get(), mpfr_get_prec(cut.get()) + 1, MPFR_RNDN);
        if (mpfr_signbit(cut.get()) != 0) {
            mpfr_nextbelow(cut.get());
        } else {
            mpfr_nextabove(cut.get());
        }
    }
    return roundedAway(op, out, cut);
}

void runFloat(Word *words, const Op &op) {
    const auto function = static_cast<FloatFunction>(op.aux & 0xff);
    const bool subnormals = keepsSubnormals(op);
    const Float a = load(words, op.in[0], subnormals);
    Float out(Format(op.out).precision());
    const int ternary = computedInto(op, out, [&](Float &result, mpfr_rnd_t rounding) {
        if (const Unary unary = unaryOf(function)) {
            return unary(result.get(), a.get(), rounding);
        }
        const Float b = load(words, op.in[1], subnormals);
        if (const Binary binary = binaryOf(function)) {
            return binary(result.get(), a.get(), b.get(), rounding);
        }
        return ternaryOf(function, result, a, b, load(words, op.in[2], subnormals), rounding);
    });
    store(words, op.out, out, ternary, roundingOf(op), subnormals);
}

/// Each term is exact, and their sum rounds once.
void runPolynomial(Word *words, const Op &op) {
    const bool subnormals = keepsSubnormals(op);
    const Float x = load(words, op.in[0], subnormals);
    std::vector<std::unique_ptr<Float>> terms;
    for (std::uint32_t i = 1; i < op.count; ++i) {
        const Float coefficient = load(words, op.in[i], subnormals);
        if (mpfr_zero_p(coefficient.get()) != 0 && mpfr_nan_p(x.get()) == 0) {
            continue;
        }
        if (mpfr_inf_p(x.get()) != 0 && i > 1) {
            // The highest power is beyond all others.
            terms.clear();
        }
        const mpfr_prec_t precision = mpfr_get_prec(x.get()) * (i - 1) + mpfr_get_prec(coefficient.get());
        terms.push_back(std::make_unique<Float>(precision));
        mpfr_pow_ui(terms.back()->get(), x.get(), i - 1, MPFR_RNDN);
        mpfr_mul(terms.back()->get(), terms.back()->get(), coefficient.get(), MPFR_RNDN);
    }
    std::vector<mpfr_ptr> pointers;
    for (const auto &term : terms) {
        pointers.push_back(term->get());
    }
    Float out(Format(op.out).precision());
    const int ternary = computedInto(op, out, [&](Float &result, mpfr_rnd_t rounding) {
        return mpfr_sum(result.get(), pointers.data(), pointers.size(), rounding);
    });
    store(words, op.out, out, ternary, roundingOf(op), subnormals);
}

void runConvert(Word *words, const Op &op) {
    const Float exact = load(words, op.in[0], keepsSubnormals(op));
    Float out(Format(op.out).precision());
    const int ternary = roundedInto(op, out, exact);
    store(words, op.out, out, ternary, roundingOf(op), keepsSubnormals(op));
}

void runFromFixed(Word *words, const Op &op) {
    const Operand &in = op.in[0];
    BigInt value = bitsAt(words, in, 0, in.width);
    if (in.isSigned && in.width != 0 && bitAt(words + in.at, in.width - 1)) {
        value -= BigInt(1) << in.width;
    }
    Float exact(std::max<mpfr_prec_t>(in.width, MPFR_PREC_MIN));
    mpfr_set_z_2exp(exact.get(), value.get(), -in.shift, MPFR_RNDN);
    Float out(Format(op.out).precision());
    const int ternary = roundedInto(op, out, exact);
    store(words, op.out, out, ternary, roundingOf(op), keepsSubnormals(op));
}

/// A fixed-point number that holds the float exactly, through the kernel of fixed-point casts to `range`.
template <Rounding rounding, Saturation saturation, bool clips>
void castToFixed(Word *words, const Op &op, const Operand &range) {
    Operand out = op.out;
    out.width = range.width;
    const Float value = load(words, op.in[0], keepsSubnormals(op));
    BigInt whole;
    std::int64_t scale = 0;
    const bool isRegular = mpfr_regular_p(value.get()) != 0;
    if (isRegular) {
        scale = mpfr_get_z_2exp(whole.get(), value.get());
    } else if (mpfr_inf_p(value.get()) != 0) {
        // Beyond any bound; wrapping it gives zero.
        whole = (BigInt(1) << (out.width + 8)) * BigInt(mpfr_signbit(value.get()) != 0 ? -1 : 1);
        scale = -out.shift;
    }
    // What is far beyond the range, or far below its least step, need not be written out in full.
    const std::int64_t widest = std::int64_t{out.width} + Format(op.in[0]).significand + 8;
    scale = std::clamp<std::int64_t>(scale, -out.shift - widest, -out.shift + widest);
    const auto width = static_cast<std::uint32_t>(mpz_sizeinbase(whole.get(), 2) + 2);
    std::vector<Word> scratch(wordsFor(width) + wordsFor(out.width));
    BigInt pattern;
    mpz_fdiv_r_2exp(pattern.get(), whole.get(), wordsFor(width) * 64UL);
    mpz_export(scratch.data(), nullptr, -1, sizeof(Word), 0, 0, pattern.get());
    const Operand source{0, width, true, false, 0};
    Op cast;
    cast.in = &source;
    cast.count = 1;
    cast.out = {wordsFor(width), out.width, range.isSigned, false, static_cast<std::int32_t>(-scale - out.shift)};
    if constexpr (clips) {
        cast.aux = static_cast<int>(range.width) | (range.isSigned ? kSignedRange : 0);
        cast.out.width = 1;
        cast.out.isSigned = false;
        clipKernel(cast, rounding, saturation)(scratch.data(), cast);
        words[out.at] = scratch[wordsFor(width)];
    } else {
        castKernel(cast, rounding, saturation)(scratch.data(), cast);
        std::copy(scratch.begin() + wordsFor(width), scratch.end(), words + out.at);
    }
}

template <Rounding rounding, Saturation saturation> void runToFixed(Word *words, const Op &op) {
    castToFixed<rounding, saturation, false>(words, op, op.out);
}

template <Rounding rounding, Saturation saturation> void runClip(Word *words, const Op &op) {
    castToFixed<rounding, saturation, true>(words, op, op.in[1]);
}

template <bool ofTwo> void runPower(Word *words, const Op &op) {
    const Float base = load(words, op.in[0], keepsSubnormals(op));
    const Operand &in = op.in[1];
    BigInt exponent = bitsAt(words, in, 0, in.width);
    if (in.isSigned && in.width != 0 && bitAt(words + in.at, in.width - 1)) {
        exponent -= BigInt(1) << in.width;
    }
    Float out(Format(op.out).precision());
    const int ternary = computedInto(op, out, [&](Float &result, mpfr_rnd_t rounding) {
        if constexpr (ofTwo) {
            constexpr long kMost = 1L << 40;
            const long places = mpz_fits_slong_p(exponent.get()) != 0 ? mpz_get_si(exponent.get())
                                                                      : (exponent < BigInt(0) ? -kMost : kMost);
            return mpfr_mul_2si(result.get(), base.get(), std::clamp(places, -kMost, kMost), rounding);
        } else {
            return mpfr_pow_z(result.get(), base.get(), exponent.get(), rounding);
        }
    });
    store(words, op.out, out, ternary, roundingOf(op), keepsSubnormals(op));
}

void runExponent(Word *words, const Op &op) {
    const Float value = load(words, op.in[0], keepsSubnormals(op));
    const std::int64_t end = std::int64_t{1} << 31;
    const std::int64_t exponent = mpfr_regular_p(value.get()) != 0 ? mpfr_get_exp(value.get()) - 1
                                  : mpfr_inf_p(value.get()) != 0   ? end - 1
                                                                   : -end;
    words[op.out.at] = static_cast<Word>(exponent);
}

template <Rounding rounding> Kernel toFixedOf(Saturation saturation, bool clips) {
    switch (saturation) {
    case Saturation::Wrap:
        return clips ? runClip<rounding, Saturation::Wrap> : runToFixed<rounding, Saturation::Wrap>;
    case Saturation::Symmetric:
        return clips ? runClip<rounding, Saturation::Symmetric> : runToFixed<rounding, Saturation::Symmetric>;
    case Saturation::Asymmetric:
        return clips ? runClip<rounding, Saturation::Asymmetric> : runToFixed<rounding, Saturation::Asymmetric>;
    }
    return nullptr;
}

Kernel toFixedOf(Rounding rounding, Saturation saturation, bool clips) {
    switch (rounding) {
    case Rounding::Floor:
        return toFixedOf<Rounding::Floor>(saturation, clips);
    case Rounding::ToZero:
        return toFixedOf<Rounding::ToZero>(saturation, clips);
    case Rounding::HalfUp:
        return toFixedOf<Rounding::HalfUp>(saturation, clips);
    case Rounding::HalfEven:
        return toFixedOf<Rounding::HalfEven>(saturation, clips);
    case Rounding::HalfAway:
        return toFixedOf<Rounding::HalfAway>(saturation, clips);
    case Rounding::Ceiling:
        return toFixedOf<Rounding::Ceiling>(saturation, clips);
    }
    return nullptr;
}

} // namespace

int floatAux(const FloatMode &mode) {
    return static_cast<int>(mode.rounding) << kRoundingShift | (mode.keepsSubnormals ? kSubnormalsBit : 0);
}

int floatAux(FloatFunction function, const FloatMode &mode) { return static_cast<int>(function) | floatAux(mode); }

std::vector<std::uint64_t> floatBits(const NumberValueRef &number, std::uint32_t width, std::uint32_t exponent) {
    const Operand out{0, width, false, false, static_cast<std::int32_t>(exponent)};
    std::vector<Word> words(wordsFor(width));
    mpfr_t exact;
    number->toMPFR(exact);
    Float value(Format(out).precision());
    const int ternary = mpfr_set(value.get(), exact, MPFR_RNDN);
    mpfr_clear(exact);
    store(words.data(), out, value, ternary, MPFR_RNDN, true);
    return words;
}

Kernel floatKernel() { return runFloat; }

Kernel floatCompareKernel(Relation relation) {
    switch (relation) {
    case Relation::Equal:
        return runCompare<Relation::Equal>;
    case Relation::NotEqual:
        return runCompare<Relation::NotEqual>;
    case Relation::GreaterEqual:
        return runCompare<Relation::GreaterEqual>;
    case Relation::Less:
        return runCompare<Relation::Less>;
    }
    return nullptr;
}

Kernel floatConvertKernel() { return runConvert; }

Kernel floatFromFixedKernel() { return runFromFixed; }

Kernel floatToFixedKernel(Rounding rounding, Saturation saturation) { return toFixedOf(rounding, saturation, false); }

Kernel floatClipKernel(Rounding rounding, Saturation saturation) { return toFixedOf(rounding, saturation, true); }

Kernel floatPolynomialKernel() { return runPolynomial; }

Kernel floatPowerKernel(bool ofTwo) { return ofTwo ? runPower<true> : runPower<false>; }

Kernel floatExponentKernel() { return runExponent; }

} // namespace orvo::sim
