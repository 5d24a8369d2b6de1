// Every operation on floats on every input of small formats: functions of one number on all halves, of two on all pairs
// of an 8-bit format, of three on all triples of a 6-bit one. The judge rounds exact numbers by itself; only elementary
// functions are MPFR's there, too, and those of multiples of pi are put together from its plain ones.
#include "sim/floatkernels.h"

#include "support/exhaustive.h"
#include "support/floatjudge.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace orvo::sim {
namespace {

using testing::decoded;
using testing::Direction;
using testing::encoded;
using testing::FloatFormat;
using testing::infinity;
using testing::kExhaustiveStride;
using testing::notANumber;
using testing::powerOfTwo;
using testing::Real;
using testing::realOf;
using testing::rootOf;
using testing::zeroOf;

constexpr FloatFormat kHalf{5, 10};
constexpr FloatFormat kTiny{4, 3};
constexpr FloatFormat kLeast{3, 2};

constexpr std::pair<FloatRounding, Direction> kDirections[] = {{FloatRounding::NearestEven, Direction::NearestEven},
                                                               {FloatRounding::ToZero, Direction::ToZero},
                                                               {FloatRounding::Up, Direction::Up},
                                                               {FloatRounding::Down, Direction::Down},
                                                               {FloatRounding::NearestAway, Direction::NearestAway}};

Operand operandOf(const FloatFormat &format) {
    return {0, format.width(), false, false, static_cast<std::int32_t>(format.exponent)};
}

/// One kernel with operands in words of their own: the inputs, then the output.
class Runner {
  public:
    Runner(Kernel kernel, std::vector<Operand> in, const Operand &out, int aux) : mOperands(std::move(in)) {
        std::uint32_t at = 0;
        for (Operand &operand : mOperands) {
            operand.at = at++;
        }
        mOp.in = mOperands.data();
        mOp.count = at;
        mOp.out = out;
        mOp.out.at = at;
        mOp.aux = aux;
        mOp.run = kernel;
        mWords.resize(at + 1);
    }
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;
    std::uint64_t operator()(std::initializer_list<std::uint64_t> values) {
        std::copy(values.begin(), values.end(), mWords.begin());
        mOp.run(mWords.data(), mOp);
        return mWords.back();
    }

  private:
    std::vector<Operand> mOperands;
    Op mOp;
    std::vector<std::uint64_t> mWords;
};

Runner runnerOf(FloatFunction function, std::size_t inputs, const FloatFormat &format, const FloatMode &mode) {
    return {floatKernel(), std::vector<Operand>(inputs, operandOf(format)), operandOf(format),
            floatAux(function, mode)};
}

// --- Functions of one number -----------------------------------------------------------------------------------------

/// A number of MPFR for as long as it is needed.
class Mpfr {
  public:
    explicit Mpfr(mpfr_prec_t precision) { mpfr_init2(mValue, precision); }
    explicit Mpfr(const Real &real) : Mpfr(64) {
        if (real.isNan()) {
            mpfr_set_nan(mValue);
        } else if (real.isInfinite()) {
            mpfr_set_inf(mValue, 1);
        } else {
            mpfr_set_ui_2exp(mValue, real.mantissa, real.exponent, MPFR_RNDN);
        }
        mpfr_setsign(mValue, mValue, real.isNegative ? 1 : 0, MPFR_RNDN);
    }
    Mpfr(const Mpfr &) = delete;
    Mpfr &operator=(const Mpfr &) = delete;
    ~Mpfr() { mpfr_clear(mValue); }
    operator mpfr_ptr() { return mValue; }

  private:
    mpfr_t mValue;
};

/// What is beyond a number's first 53 bits is cut, so that one more rounding is the only one.
template <int (*function)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t)> Real byMpfr(const Real &x) {
    Mpfr in(x);
    Mpfr out(53);
    const int ternary = function(out, in, MPFR_RNDZ);
    return realOf(out, ternary != 0);
}

/// A result of many more bits than are kept, which no finite number of bits would hold.
Real irrational(mpfr_ptr number) {
    Mpfr cut(53);
    mpfr_set(cut, number, MPFR_RNDZ);
    return realOf(cut, true);
}

constexpr mpfr_prec_t kMany = 160;

mpz_class floorOf(const mpq_class &number) {
    mpz_class floor;
    mpz_fdiv_q(floor.get_mpz_t(), number.get_num_mpz_t(), number.get_den_mpz_t());
    return floor;
}

/// Numbers that are integers, infinite or none stay; the others become an integer, zero with their sign.
template <mpz_class (*choose)(const mpq_class &)> Real integral(const Real &x) {
    if (x.kind != Real::Kind::Finite) {
        return x;
    }
    return realOf(mpq_class(choose(x.rational()))).withSign(x.isNegative);
}

mpz_class ceilingOf(const mpq_class &number) { return -floorOf(-number); }
mpz_class truncated(const mpq_class &number) { return number < 0 ? ceilingOf(number) : floorOf(number); }
mpz_class roundedAway(const mpq_class &number) {
    return number < 0 ? ceilingOf(number - mpq_class(1, 2)) : floorOf(number + mpq_class(1, 2));
}
mpz_class roundedEven(const mpq_class &number) {
    const mpz_class below = floorOf(number);
    const mpq_class rest = number - below;
    const bool isUp = rest > mpq_class(1, 2) || (rest == mpq_class(1, 2) && mpz_odd_p(below.get_mpz_t()) != 0);
    return isUp ? mpz_class(below + 1) : below;
}

Real negated(const Real &x) { return x.withSign(!x.isNegative); }
Real absolute(const Real &x) { return x.withSign(false); }

Real squareRoot(const Real &x) {
    if (x.isNan() || x.isZero()) {
        return x;
    }
    return x.isNegative ? notANumber() : x.isInfinite() ? x : rootOf(x.rational(), 2);
}

Real cubeRoot(const Real &x) {
    return x.isZero() || x.kind != Real::Kind::Finite ? x : rootOf(abs(x.rational()), 3).withSign(x.isNegative);
}

Real reciprocal(const Real &x) {
    if (x.isNan()) {
        return x;
    }
    return x.isInfinite() ? zeroOf(x.isNegative)
           : x.isZero()   ? infinity(x.isNegative)
                          : realOf(mpq_class(1 / x.rational()));
}

/// Of both zeros it is positive infinity.
Real reciprocalRoot(const Real &x) {
    if (x.isNan() || (x.isNegative && !x.isZero())) {
        return notANumber();
    }
    return x.isZero() ? infinity(false) : x.isInfinite() ? zeroOf(false) : rootOf(mpq_class(1 / x.rational()), 2);
}

/// What lies above the floor.
Real fraction(const Real &x) {
    return x.kind != Real::Kind::Finite ? notANumber() : realOf(mpq_class(x.rational() - floorOf(x.rational())));
}

Real cotangent(const Real &x) {
    if (x.kind != Real::Kind::Finite || x.isZero()) {
        return x.isZero() ? infinity(x.isNegative) : notANumber();
    }
    Mpfr in(x);
    Mpfr sine(kMany);
    Mpfr cosine(kMany);
    mpfr_sin_cos(sine, cosine, in, MPFR_RNDN);
    mpfr_div(cosine, cosine, sine, MPFR_RNDN);
    return irrational(cosine);
}

/// Sine and cosine of pi times the number. Whole and half turns are exact.
struct Turn {
    explicit Turn(const Real &x) : doubled(x.rational() * 2) {
        isQuarter = doubled.get_den() == 1;
        quarters = static_cast<unsigned>(mpz_fdiv_ui(doubled.get_num_mpz_t(), 4));
        // The rest of the turn keeps its precision however far the number is from zero.
        const mpq_class rest = x.rational() - 2 * floorOf(mpq_class(x.rational() / 2));
        mpfr_const_pi(angle, MPFR_RNDN);
        mpfr_mul_q(angle, angle, rest.get_mpq_t(), MPFR_RNDN);
    }
    mpq_class doubled;
    bool isQuarter;
    unsigned quarters;
    Mpfr angle{kMany};
};

Real sinePi(const Real &x) {
    if (x.kind != Real::Kind::Finite) {
        return notANumber();
    }
    Turn turn(x);
    if (turn.isQuarter) {
        return turn.quarters % 2 == 0 ? zeroOf(x.isNegative) : realOf(mpq_class(turn.quarters == 1 ? 1 : -1));
    }
    mpfr_sin(turn.angle, turn.angle, MPFR_RNDN);
    return irrational(turn.angle);
}

Real cosinePi(const Real &x) {
    if (x.kind != Real::Kind::Finite) {
        return notANumber();
    }
    Turn turn(x);
    if (turn.isQuarter) {
        return turn.quarters % 2 == 1 ? zeroOf(false) : realOf(mpq_class(turn.quarters == 0 ? 1 : -1));
    }
    mpfr_cos(turn.angle, turn.angle, MPFR_RNDN);
    return irrational(turn.angle);
}

/// The tangent as the quotient of sine and cosine, whose zeros have signs; its eighths of a turn are exact.
template <bool isInverted> Real tangentPi(const Real &x) {
    if (x.kind != Real::Kind::Finite) {
        return notANumber();
    }
    Turn turn(x);
    if (turn.isQuarter) {
        const Real sine = sinePi(x);
        const Real cosine = cosinePi(x);
        const bool isNegative = sine.isNegative != cosine.isNegative;
        return sine.isZero() != isInverted ? zeroOf(isNegative) : infinity(isNegative);
    }
    if (turn.doubled.get_den() == 2) {
        return realOf(mpq_class(mpz_fdiv_ui(mpq_class(turn.doubled * 2).get_num_mpz_t(), 4) == 1 ? 1 : -1));
    }
    mpfr_tan(turn.angle, turn.angle, MPFR_RNDN);
    if (isInverted) {
        mpfr_ui_div(turn.angle, 1, turn.angle, MPFR_RNDN);
    }
    return irrational(turn.angle);
}

/// An inverse function over pi; `exact` knows where that is rational.
template <int (*inverse)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t)>
Real overPi(const Real &x, const std::function<std::optional<Real>(const Real &)> &exact) {
    if (x.isNan()) {
        return x;
    }
    if (const std::optional<Real> known = exact(x)) {
        return *known;
    }
    Mpfr in(x);
    Mpfr out(kMany);
    Mpfr pi(kMany);
    inverse(out, in, MPFR_RNDN);
    mpfr_const_pi(pi, MPFR_RNDN);
    mpfr_div(out, out, pi, MPFR_RNDN);
    return irrational(out);
}

bool isBeyondOne(const Real &x) { return x.isInfinite() || abs(x.rational()) > 1; }
bool isOne(const Real &x) { return x.kind == Real::Kind::Finite && abs(x.rational()) == 1; }

Real arcSinePi(const Real &x) {
    return overPi<mpfr_asin>(x, [](const Real &at) -> std::optional<Real> {
        return isBeyondOne(at) ? std::optional(notANumber())
               : isOne(at)     ? std::optional(realOf(mpq_class(1, 2)).withSign(at.isNegative))
               : at.isZero()   ? std::optional(at)
                               : std::nullopt;
    });
}

Real arcCosinePi(const Real &x) {
    return overPi<mpfr_acos>(x, [](const Real &at) -> std::optional<Real> {
        return isBeyondOne(at) ? std::optional(notANumber())
               : isOne(at)     ? std::optional(at.isNegative ? realOf(mpq_class(1)) : zeroOf(false))
               : at.isZero()   ? std::optional(realOf(mpq_class(1, 2)))
                               : std::nullopt;
    });
}

Real arcTangentPi(const Real &x) {
    return overPi<mpfr_atan>(x, [](const Real &at) -> std::optional<Real> {
        return at.isInfinite() ? std::optional(realOf(mpq_class(1, 2)).withSign(at.isNegative))
               : isOne(at)     ? std::optional(realOf(mpq_class(1, 4)).withSign(at.isNegative))
               : at.isZero()   ? std::optional(at)
                               : std::nullopt;
    });
}

struct UnaryCase {
    const char *name;
    FloatFunction function;
    Real (*judge)(const Real &);
};

const UnaryCase kUnaryCases[] = {
    {"neg", FloatFunction::Neg, negated},
    {"abs", FloatFunction::Abs, absolute},
    {"sqrt", FloatFunction::Sqrt, squareRoot},
    {"reciprocal", FloatFunction::Reciprocal, reciprocal},
    {"recipSqrt", FloatFunction::RecipSqrt, reciprocalRoot},
    {"cubeRoot", FloatFunction::CubeRoot, cubeRoot},
    {"rint", FloatFunction::Rint, integral<roundedEven>},
    {"round", FloatFunction::Round, integral<roundedAway>},
    {"floor", FloatFunction::Floor, integral<floorOf>},
    {"ceil", FloatFunction::Ceil, integral<ceilingOf>},
    {"trunc", FloatFunction::Trunc, integral<truncated>},
    {"frac", FloatFunction::Frac, fraction},
    {"exp", FloatFunction::Exp, byMpfr<mpfr_exp>},
    {"exp2", FloatFunction::Exp2, byMpfr<mpfr_exp2>},
    {"exp10", FloatFunction::Exp10, byMpfr<mpfr_exp10>},
    {"expm1", FloatFunction::Expm1, byMpfr<mpfr_expm1>},
    {"log", FloatFunction::Log, byMpfr<mpfr_log>},
    {"log2", FloatFunction::Log2, byMpfr<mpfr_log2>},
    {"log10", FloatFunction::Log10, byMpfr<mpfr_log10>},
    {"log1p", FloatFunction::Log1p, byMpfr<mpfr_log1p>},
    {"sin", FloatFunction::Sin, byMpfr<mpfr_sin>},
    {"cos", FloatFunction::Cos, byMpfr<mpfr_cos>},
    {"tan", FloatFunction::Tan, byMpfr<mpfr_tan>},
    {"cot", FloatFunction::Cot, cotangent},
    {"sinPi", FloatFunction::SinPi, sinePi},
    {"cosPi", FloatFunction::CosPi, cosinePi},
    {"tanPi", FloatFunction::TanPi, tangentPi<false>},
    {"cotPi", FloatFunction::CotPi, tangentPi<true>},
    {"asin", FloatFunction::Asin, byMpfr<mpfr_asin>},
    {"acos", FloatFunction::Acos, byMpfr<mpfr_acos>},
    {"atan", FloatFunction::Atan, byMpfr<mpfr_atan>},
    {"asinPi", FloatFunction::AsinPi, arcSinePi},
    {"acosPi", FloatFunction::AcosPi, arcCosinePi},
    {"atanPi", FloatFunction::AtanPi, arcTangentPi},
};

class UnaryFloats : public ::testing::TestWithParam<UnaryCase> {};

TEST_P(UnaryFloats, areRightOnEveryHalf) {
    const UnaryCase &row = GetParam();
    Runner keep = runnerOf(row.function, 1, kHalf, {FloatRounding::NearestEven, true});
    Runner flush = runnerOf(row.function, 1, kHalf, {FloatRounding::NearestEven, false});
    for (std::uint64_t bits = 0; bits < kHalf.patterns(); bits += kExhaustiveStride) {
        const Real x = decoded(bits, kHalf, true);
        const Real result = row.judge(x);
        const std::uint64_t wanted = encoded(result, kHalf, Direction::NearestEven, true);
        ASSERT_EQ(keep({bits}), wanted) << std::hex << bits;
        // Flushing touches subnormals, and what becomes one; that it leaves all else one number in eight tells.
        const Real flushed = decoded(bits, kHalf, false);
        const bool isFlushed = flushed.isZero() != x.isZero();
        if (isFlushed || (wanted & 0x7fff) <= 0x400 || bits % 8 == 0) {
            const Real second = isFlushed ? row.judge(flushed) : result;
            ASSERT_EQ(flush({bits}), encoded(second, kHalf, Direction::NearestEven, false)) << std::hex << bits;
        }
    }
    mpfr_free_cache();
}

INSTANTIATE_TEST_SUITE_P(Functions, UnaryFloats, ::testing::ValuesIn(kUnaryCases),
                         [](const auto &at) { return std::string(at.param.name); });

/// In the other directions the functions whose results are exact rationals or roots say enough.
TEST(EveryHalf, isRoundedInTheDirectionThatIsTold) {
    for (const UnaryCase &row : kUnaryCases) {
        if (row.function != FloatFunction::Sqrt && row.function != FloatFunction::Reciprocal &&
            row.function != FloatFunction::Exp && row.function != FloatFunction::Sin) {
            continue;
        }
        for (const auto &[rounding, direction] : std::span(kDirections).subspan(1)) {
            Runner run = runnerOf(row.function, 1, kHalf, {rounding, true});
            // A step that meets every exponent and every last digit.
            for (std::uint64_t bits = 0; bits < kHalf.patterns(); bits += 7 * kExhaustiveStride) {
                ASSERT_EQ(run({bits}), encoded(row.judge(decoded(bits, kHalf, true)), kHalf, direction, true))
                    << row.name << std::hex << bits;
            }
        }
    }
    mpfr_free_cache();
}

TEST(EveryHalf, hasItsExponent) {
    for (const bool subnormals : {true, false}) {
        Runner exponent(floatExponentKernel(), {operandOf(kHalf)}, {0, 64, true, false, 0},
                        floatAux({FloatRounding::NearestEven, subnormals}));
        for (std::uint64_t bits = 0; bits < kHalf.patterns(); bits += kExhaustiveStride) {
            const Real x = decoded(bits, kHalf, subnormals);
            std::int64_t wanted = 0;
            if (x.isNan() || x.isZero()) {
                wanted = -(std::int64_t{1} << 31);
            } else if (x.isInfinite()) {
                wanted = (std::int64_t{1} << 31) - 1;
            } else {
                wanted = std::ilogb(x.rational().get_d());
            }
            ASSERT_EQ(static_cast<std::int64_t>(exponent({bits})), wanted) << std::hex << bits;
        }
    }
}

// --- Functions of two numbers ----------------------------------------------------------------------------------------

/// A number and its exact value, which is read often.
struct Known {
    Real real;
    mpq_class value;
};

std::vector<Known> allOf(const FloatFormat &format, bool subnormals) {
    std::vector<Known> all;
    for (std::uint64_t bits = 0; bits < format.patterns(); ++bits) {
        const Real real = decoded(bits, format, subnormals);
        all.push_back({real, real.kind == Real::Kind::Finite ? real.rational() : mpq_class()});
    }
    return all;
}

bool anyNan(const Known &a, const Known &b) { return a.real.isNan() || b.real.isNan(); }

/// A sum of zero has the sign of both, or the one that the direction gives.
Real summed(const Known &a, const Known &b, Direction direction) {
    if (anyNan(a, b) || (a.real.isInfinite() && b.real.isInfinite() && a.real.isNegative != b.real.isNegative)) {
        return notANumber();
    }
    if (a.real.isInfinite() || b.real.isInfinite()) {
        return a.real.isInfinite() ? a.real : b.real;
    }
    const mpq_class sum = a.value + b.value;
    if (sum != 0) {
        return realOf(sum);
    }
    const bool isAgreed = a.real.isZero() && b.real.isZero() && a.real.isNegative == b.real.isNegative;
    return zeroOf(isAgreed ? a.real.isNegative : direction == Direction::Down);
}

Known opposite(const Known &a) { return {negated(a.real), -a.value}; }

Real difference(const Known &a, const Known &b, Direction direction) { return summed(a, opposite(b), direction); }

Real product(const Known &a, const Known &b, Direction) {
    const bool isNegative = a.real.isNegative != b.real.isNegative;
    if (anyNan(a, b) || (a.real.isInfinite() && b.real.isZero()) || (a.real.isZero() && b.real.isInfinite())) {
        return notANumber();
    }
    if (a.real.isInfinite() || b.real.isInfinite()) {
        return infinity(isNegative);
    }
    return realOf(mpq_class(a.value * b.value)).withSign(isNegative);
}

Real quotient(const Known &a, const Known &b, Direction) {
    const bool isNegative = a.real.isNegative != b.real.isNegative;
    if (anyNan(a, b) || (a.real.isInfinite() && b.real.isInfinite()) || (a.real.isZero() && b.real.isZero())) {
        return notANumber();
    }
    if (a.real.isInfinite() || b.real.isZero()) {
        return infinity(isNegative);
    }
    return b.real.isInfinite() ? zeroOf(isNegative) : realOf(mpq_class(a.value / b.value)).withSign(isNegative);
}

Real hypotenuse(const Known &a, const Known &b, Direction) {
    if (a.real.isInfinite() || b.real.isInfinite()) {
        return infinity(false);
    }
    return anyNan(a, b) ? notANumber() : rootOf(mpq_class(a.value * a.value + b.value * b.value), 2);
}

/// What is left of the first, with its sign, after the quotient cut toward zero.
Real remainder(const Known &a, const Known &b, Direction) {
    if (anyNan(a, b) || a.real.isInfinite() || b.real.isZero()) {
        return notANumber();
    }
    if (b.real.isInfinite() || a.real.isZero()) {
        return a.real;
    }
    const mpq_class rest = a.value - b.value * truncated(mpq_class(a.value / b.value));
    return realOf(rest).withSign(a.real.isNegative);
}

template <int (*function)(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t)>
Real pairByMpfr(const Known &a, const Known &b, Direction) {
    Mpfr first(a.real);
    Mpfr second(b.real);
    Mpfr out(53);
    const int ternary = function(out, first, second, MPFR_RNDZ);
    return realOf(out, ternary != 0);
}

struct BinaryCase {
    const char *name;
    FloatFunction function;
    Real (*judge)(const Known &, const Known &, Direction);
    /// In how many of the directions. Elementary functions take long, and round as the others do.
    std::size_t directions = std::size(kDirections);
};

const BinaryCase kBinaryCases[] = {
    {"add", FloatFunction::Add, summed},
    {"sub", FloatFunction::Sub, difference},
    {"mul", FloatFunction::Mul, product},
    {"div", FloatFunction::Div, quotient},
    {"hypot", FloatFunction::Hypot, hypotenuse},
    {"mod", FloatFunction::Mod, remainder},
    {"atan2", FloatFunction::Atan2, pairByMpfr<mpfr_atan2>, 1},
    {"pow", FloatFunction::Pow, pairByMpfr<mpfr_pow>, 1},
    {"powR", FloatFunction::PowR, pairByMpfr<mpfr_powr>, 1},
};

class BinaryFloats : public ::testing::TestWithParam<BinaryCase> {};

TEST_P(BinaryFloats, areRightOnEveryPairOfATinyFormat) {
    const BinaryCase &row = GetParam();
    for (const bool subnormals : {true, false}) {
        const std::vector<Known> all = allOf(kTiny, subnormals);
        for (std::size_t i = 0; i < (subnormals ? row.directions : 1); ++i) {
            const auto &[rounding, direction] = kDirections[i];
            Runner run = runnerOf(row.function, 2, kTiny, {rounding, subnormals});
            for (std::uint64_t pair = 0; pair < all.size() * all.size(); pair += kExhaustiveStride) {
                const std::uint64_t a = pair % all.size();
                const std::uint64_t b = pair / all.size();
                ASSERT_EQ(run({a, b}), encoded(row.judge(all[a], all[b], direction), kTiny, direction, subnormals))
                    << std::hex << a << " " << b << " direction " << i;
            }
        }
    }
    mpfr_free_cache();
}

INSTANTIATE_TEST_SUITE_P(Functions, BinaryFloats, ::testing::ValuesIn(kBinaryCases),
                         [](const auto &at) { return std::string(at.param.name); });

TEST(EveryTinyPair, isComparedByValue) {
    for (const bool subnormals : {true, false}) {
        const std::vector<Known> all = allOf(kTiny, subnormals);
        const FloatMode mode{FloatRounding::NearestEven, subnormals};
        const auto compare = [&](Relation relation) {
            return Runner(floatCompareKernel(relation), {operandOf(kTiny), operandOf(kTiny)}, {0, 1, false, false, 0},
                          floatAux(mode));
        };
        Runner equal = compare(Relation::Equal);
        Runner notEqual = compare(Relation::NotEqual);
        Runner less = compare(Relation::Less);
        Runner greaterEqual = compare(Relation::GreaterEqual);
        // A number beyond all others stands for infinity.
        const auto rank = [](const Known &a) {
            return a.real.isInfinite() ? mpq_class(a.real.isNegative ? -1000000 : 1000000) : a.value;
        };
        for (std::uint64_t pair = 0; pair < all.size() * all.size(); pair += kExhaustiveStride) {
            const std::uint64_t a = pair % all.size();
            const std::uint64_t b = pair / all.size();
            const bool isOrdered = !anyNan(all[a], all[b]);
            const int order = cmp(rank(all[a]), rank(all[b]));
            ASSERT_EQ(equal({a, b}), isOrdered && order == 0 ? 1U : 0U) << a << " " << b;
            ASSERT_EQ(notEqual({a, b}), isOrdered && order == 0 ? 0U : 1U) << a << " " << b;
            ASSERT_EQ(less({a, b}), isOrdered && order < 0 ? 1U : 0U) << a << " " << b;
            ASSERT_EQ(greaterEqual({a, b}), isOrdered && order >= 0 ? 1U : 0U) << a << " " << b;
        }
    }
}

mpq_class powerOf(const mpq_class &base, long exponent) {
    mpq_class power = 1;
    for (long i = 0; i < std::labs(exponent); ++i) {
        power *= base;
    }
    return exponent < 0 ? mpq_class(1 / power) : power;
}

TEST(EveryTinyNumber, isRaisedToAndScaledByIntegers) {
    const Operand integer{0, 6, true, false, 0};
    for (const bool subnormals : {true, false}) {
        const std::vector<Known> all = allOf(kTiny, subnormals);
        for (const auto &[rounding, direction] : kDirections) {
            const int aux = floatAux(FloatMode{rounding, subnormals});
            Runner scaled(floatPowerKernel(true), {operandOf(kTiny), integer}, operandOf(kTiny), aux);
            Runner raised(floatPowerKernel(false), {operandOf(kTiny), integer}, operandOf(kTiny), aux);
            for (std::uint64_t bits = 0; bits < all.size(); ++bits) {
                const auto &[x, value] = all[bits];
                for (long by = -32; by < 32; by += 1 + static_cast<long>(kExhaustiveStride / 4)) {
                    const bool isOdd = by % 2 != 0;
                    const Real timesTwo = x.kind == Real::Kind::Finite
                                              ? realOf(mpq_class(value * powerOfTwo(by))).withSign(x.isNegative)
                                              : x;
                    Real power;
                    if (by == 0) {
                        power = realOf(mpq_class(1));
                    } else if (x.isNan()) {
                        power = x;
                    } else if (x.isInfinite() || x.isZero()) {
                        const bool isNegative = x.isNegative && isOdd;
                        power = x.isInfinite() == (by > 0) ? infinity(isNegative) : zeroOf(isNegative);
                    } else {
                        power = realOf(powerOf(value, by));
                    }
                    const auto exponent = static_cast<std::uint64_t>(by);
                    ASSERT_EQ(scaled({bits, exponent}), encoded(timesTwo, kTiny, direction, subnormals))
                        << bits << " by " << by;
                    ASSERT_EQ(raised({bits, exponent}), encoded(power, kTiny, direction, subnormals))
                        << bits << " to " << by;
                }
            }
        }
    }
}

// --- Functions of three numbers --------------------------------------------------------------------------------------

/// One rounding behind a product and a sum.
Real multipliedAdded(const Known &a, const Known &b, const Known &c, Direction direction) {
    const Real factor = product(a, b, direction);
    return summed({factor, factor.kind == Real::Kind::Finite ? mpq_class(a.value * b.value) : mpq_class()}, c,
                  direction);
}

Real multipliedSubtracted(const Known &a, const Known &b, const Known &c, Direction direction) {
    return multipliedAdded(opposite(a), b, c, direction);
}

Real diagonal(const Known &a, const Known &b, const Known &c, Direction) {
    if (a.real.isInfinite() || b.real.isInfinite() || c.real.isInfinite()) {
        return infinity(false);
    }
    return anyNan(a, b) || c.real.isNan()
               ? notANumber()
               : rootOf(mpq_class(a.value * a.value + b.value * b.value + c.value * c.value), 2);
}

struct TernaryCase {
    const char *name;
    FloatFunction function;
    Real (*judge)(const Known &, const Known &, const Known &, Direction);
};

const TernaryCase kTernaryCases[] = {
    {"multAdd", FloatFunction::MultAdd, multipliedAdded},
    {"multSub", FloatFunction::MultSub, multipliedSubtracted},
    {"hypot3", FloatFunction::Hypot3, diagonal},
};

class TernaryFloats : public ::testing::TestWithParam<TernaryCase> {};

TEST_P(TernaryFloats, areRightOnEveryTripleOfTheLeastFormat) {
    const TernaryCase &row = GetParam();
    for (const bool subnormals : {true, false}) {
        const std::vector<Known> all = allOf(kLeast, subnormals);
        Runner run = runnerOf(row.function, 3, kLeast, {FloatRounding::NearestEven, subnormals});
        for (std::uint64_t triple = 0; triple < all.size() * all.size() * all.size(); triple += kExhaustiveStride) {
            const std::uint64_t a = triple % all.size();
            const std::uint64_t b = triple / all.size() % all.size();
            const std::uint64_t c = triple / all.size() / all.size();
            const Real result = row.judge(all[a], all[b], all[c], Direction::NearestEven);
            ASSERT_EQ(run({a, b, c}), encoded(result, kLeast, Direction::NearestEven, subnormals))
                << a << " " << b << " " << c;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, TernaryFloats, ::testing::ValuesIn(kTernaryCases),
                         [](const auto &at) { return std::string(at.param.name); });

/// The sum of squares of numbers that are far from each other decides a tie by its last bit.
TEST(TernaryFloats, loseNothingBetweenSquares) {
    const FloatFormat single{8, 23};
    Runner run = runnerOf(FloatFunction::Hypot3, 3, single, {FloatRounding::NearestEven, true});
    const auto bits = [&](const mpq_class &number) {
        return encoded(realOf(number), single, Direction::NearestEven, true);
    };
    // 2^24 + 1 is the hypotenuse of these two and lies in the middle between two numbers.
    const std::uint64_t legs[] = {bits(16777215), bits(8192)};
    EXPECT_EQ(run({legs[0], legs[1], 0}), bits(16777216));
    EXPECT_EQ(run({legs[0], legs[1], bits(powerOfTwo(-140))}), bits(16777218));
    EXPECT_EQ(run({1, legs[0], legs[1]}), bits(16777218));
}

// --- Casts -----------------------------------------------------------------------------------------------------------

/// Flushing comes behind rounding, so that one direction shows it.
std::span<const std::pair<FloatRounding, Direction>> directionsOf(bool subnormals) {
    return std::span(kDirections).first(subnormals ? std::size(kDirections) : 1);
}

TEST(EveryHalf, isBroughtToOtherFormats) {
    const FloatFormat targets[] = {{8, 7}, {4, 3}, {5, 2}, {5, 10}};
    for (const FloatFormat &target : targets) {
        for (const bool subnormals : {true, false}) {
            for (const auto &[rounding, direction] : directionsOf(subnormals)) {
                Runner run(floatConvertKernel(), {operandOf(kHalf)}, operandOf(target),
                           floatAux(FloatMode{rounding, subnormals}));
                for (std::uint64_t bits = 0; bits < kHalf.patterns(); bits += kExhaustiveStride) {
                    const Real x = decoded(bits, kHalf, subnormals);
                    ASSERT_EQ(run({bits}), encoded(x, target, direction, subnormals))
                        << std::hex << bits << " to " << target.exponent << ", " << target.fraction << " direction "
                        << int(direction);
                }
            }
        }
    }
}

struct FixedFormat {
    std::uint32_t width;
    std::int32_t fraction;
    bool isSigned;
};

TEST(EveryHalf, comesFromFixedPoint) {
    const FixedFormat sources[] = {{16, 0, false}, {16, 24, true}, {16, -3, true}, {16, 27, false}, {16, 8, true}};
    for (const FixedFormat &source : sources) {
        for (const bool subnormals : {true, false}) {
            for (const auto &[rounding, direction] : directionsOf(subnormals)) {
                Runner run(floatFromFixedKernel(), {{0, source.width, source.isSigned, false, source.fraction}},
                           operandOf(kHalf), floatAux(FloatMode{rounding, subnormals}));
                const std::int64_t low = source.isSigned ? -32768 : 0;
                for (std::int64_t at = low; at < low + 65536; at += static_cast<std::int64_t>(kExhaustiveStride)) {
                    Real x;
                    x.isNegative = at < 0;
                    x.mantissa = static_cast<std::uint64_t>(std::abs(at));
                    x.exponent = -source.fraction;
                    ASSERT_EQ(run({static_cast<std::uint64_t>(at)}), encoded(x, kHalf, direction, subnormals))
                        << at << " of " << source.fraction << " fraction bits, direction " << int(direction);
                }
            }
        }
    }
}

/// The whole number that rounding gives, by the words of its definition.
mpz_class roundedBy(Rounding rounding, const mpq_class &value) {
    switch (rounding) {
    case Rounding::Floor:
        return floorOf(value);
    case Rounding::ToZero:
        return truncated(value);
    case Rounding::HalfUp:
        return floorOf(value + mpq_class(1, 2));
    case Rounding::HalfEven:
        return roundedEven(value);
    case Rounding::HalfAway:
        return value < 0 ? mpz_class(-floorOf(-value + mpq_class(1, 2))) : floorOf(value + mpq_class(1, 2));
    case Rounding::Ceiling:
        return mpz_class(-floorOf(-value));
    }
    return {};
}

std::int64_t boundBy(Saturation saturation, const mpz_class &value, const FixedFormat &target) {
    const mpz_class span = mpz_class(1) << target.width;
    const mpz_class high = target.isSigned ? mpz_class(span / 2 - 1) : mpz_class(span - 1);
    const mpz_class low = !target.isSigned                      ? mpz_class(0)
                          : saturation == Saturation::Symmetric ? mpz_class(-high)
                                                                : mpz_class(-high - 1);
    if (saturation != Saturation::Wrap) {
        return (value < low ? low : value > high ? high : value).get_si();
    }
    mpz_class rest;
    mpz_fdiv_r(rest.get_mpz_t(), value.get_mpz_t(), span.get_mpz_t());
    return mpz_class(target.isSigned && rest > high ? rest - span : rest).get_si();
}

TEST(EveryHalf, goesToFixedPoint) {
    constexpr Rounding kRoundings[] = {Rounding::Floor,    Rounding::ToZero,   Rounding::HalfUp,
                                       Rounding::HalfEven, Rounding::HalfAway, Rounding::Ceiling};
    constexpr Saturation kSaturations[] = {Saturation::Wrap, Saturation::Symmetric, Saturation::Asymmetric};
    struct Target {
        FixedFormat format;
        bool subnormals;
    };
    for (const auto &[target, subnormals] :
         {Target{{8, 2, true}, true}, {{4, -3, false}, false}, {{40, 26, true}, true}}) {
        const Operand out{0, target.width, target.isSigned, false, target.fraction};
        std::deque<Runner> runs;
        std::deque<Runner> clips;
        for (const Rounding rounding : kRoundings) {
            for (const Saturation saturation : kSaturations) {
                clips.emplace_back(floatClipKernel(rounding, saturation), std::vector<Operand>{operandOf(kHalf), out},
                                   Operand{0, 1, false, false, target.fraction},
                                   floatAux(FloatMode{FloatRounding::NearestEven, subnormals}));
                runs.emplace_back(floatToFixedKernel(rounding, saturation), std::vector<Operand>{operandOf(kHalf)}, out,
                                  floatAux(FloatMode{FloatRounding::NearestEven, subnormals}));
            }
        }
        const mpq_class scale = powerOfTwo(target.fraction);
        const mpz_class beyond = mpz_class(1) << 100;
        for (std::uint64_t bits = 0; bits < kHalf.patterns(); bits += kExhaustiveStride) {
            const Real x = decoded(bits, kHalf, subnormals);
            // Infinities are beyond every bound, and wrap to zero; what is no number is zero.
            const mpq_class scaled = x.isNan()        ? mpq_class(0)
                                     : x.isInfinite() ? mpq_class(x.isNegative ? mpz_class(-beyond) : beyond)
                                                      : mpq_class(x.rational() * scale);
            std::size_t run = 0;
            for (const Rounding rounding : kRoundings) {
                const mpz_class whole = roundedBy(rounding, scaled);
                for (const Saturation saturation : kSaturations) {
                    const std::int64_t bound = boundBy(saturation, whole, target);
                    ASSERT_EQ(static_cast<std::int64_t>(runs[run]({bits})), bound)
                        << std::hex << bits << " rounding " << int(rounding) << " saturation " << int(saturation);
                    ASSERT_EQ(clips[run++]({bits, 0}), saturation != Saturation::Wrap && whole != bound ? 1U : 0U)
                        << std::hex << bits << " rounding " << int(rounding) << " saturation " << int(saturation);
                }
            }
        }
    }
}

} // namespace
} // namespace orvo::sim
