// Floats against the processor's own, and an 8-bit format against its whole list of values.
#include "sim/floatkernels.h"

#include <orvo/context.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace orvo::sim {
namespace {

constexpr FloatMode kKeep{FloatRounding::NearestEven, true};
constexpr FloatMode kFlush{FloatRounding::NearestEven, false};

struct Format {
    std::uint32_t width;
    std::int32_t exponent;
};
constexpr Format kSingle{32, 8};
constexpr Format kHalf{16, 5};
constexpr Format kTiny{8, 4};

std::uint64_t run(Kernel kernel, const Format &out, const std::vector<Operand> &formats,
                  std::vector<std::uint64_t> values, int aux) {
    std::vector<Operand> operands = formats;
    for (std::size_t i = 0; i < operands.size(); ++i) {
        operands[i].at = static_cast<std::uint32_t>(i);
    }
    Op op;
    op.in = operands.data();
    op.count = static_cast<std::uint32_t>(operands.size());
    op.out = {static_cast<std::uint32_t>(operands.size()), out.width, false, false, out.exponent};
    op.aux = aux;
    values.resize(operands.size() + 1);
    kernel(values.data(), op);
    return values.back();
}

std::uint64_t apply(FloatFunction function, const Format &format, const std::vector<std::uint64_t> &values,
                    const FloatMode &mode = kKeep) {
    const Operand operand{0, format.width, false, false, format.exponent};
    return run(floatKernel(), format, std::vector<Operand>(values.size(), operand), values, floatAux(function, mode));
}

float single(std::uint64_t bits) {
    const auto word = static_cast<std::uint32_t>(bits);
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

std::uint64_t bitsOf(float value) {
    std::uint32_t word;
    std::memcpy(&word, &value, sizeof word);
    return word;
}

::testing::AssertionResult same(std::uint64_t got, float wanted) {
    if (std::isnan(wanted) ? got == 0x7fc00000 : got == bitsOf(wanted)) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << single(got) << " in place of " << wanted;
}

TEST(FloatKernels, computeSinglesAsTheProcessorDoes) {
    std::mt19937 random(11);
    const std::uint32_t special[] = {0,          0x80000000, 1,          0x007fffff, 0x00800000, 0x3f800000,
                                     0x7f7fffff, 0x7f800000, 0xff800000, 0x7fc00000, 0xbf800000, 0x80000001};
    const auto draw = [&] {
        const auto word = static_cast<std::uint32_t>(random());
        // Near each other, so that sums cancel and ties occur.
        return random() % 4 == 0   ? special[random() % std::size(special)]
               : random() % 2 == 0 ? word
                                   : (word & 0x807fffff) | 0x3f800000;
    };
    for (int i = 0; i < 60000; ++i) {
        const std::uint64_t a = draw();
        const std::uint64_t b = draw();
        ASSERT_TRUE(same(apply(FloatFunction::Add, kSingle, {a, b}), single(a) + single(b)));
        ASSERT_TRUE(same(apply(FloatFunction::Sub, kSingle, {a, b}), single(a) - single(b)));
        ASSERT_TRUE(same(apply(FloatFunction::Mul, kSingle, {a, b}), single(a) * single(b)));
        ASSERT_TRUE(same(apply(FloatFunction::Div, kSingle, {a, b}), single(a) / single(b)));
        ASSERT_TRUE(same(apply(FloatFunction::Sqrt, kSingle, {a}), std::sqrt(single(a))));
        ASSERT_TRUE(same(apply(FloatFunction::MultAdd, kSingle, {a, b, a}), std::fma(single(a), single(b), single(a))));
        ASSERT_TRUE(
            same(apply(FloatFunction::MultSub, kSingle, {a, b, a}), std::fma(-single(a), single(b), single(a))));
        ASSERT_TRUE(same(apply(FloatFunction::Mod, kSingle, {a, b}), std::fmod(single(a), single(b))));
        ASSERT_TRUE(same(apply(FloatFunction::Rint, kSingle, {a}), std::nearbyint(single(a))));
        ASSERT_TRUE(same(apply(FloatFunction::Round, kSingle, {a}), std::round(single(a))));
        ASSERT_TRUE(same(apply(FloatFunction::Floor, kSingle, {a}), std::floor(single(a))));
        ASSERT_TRUE(same(apply(FloatFunction::Ceil, kSingle, {a}), std::ceil(single(a))));
        ASSERT_TRUE(same(apply(FloatFunction::Trunc, kSingle, {a}), std::trunc(single(a))));
        const Operand operand{0, 32, false, false, 8};
        const auto holds = [&](Relation relation) {
            return run(floatCompareKernel(relation), {1, 0}, {operand, operand}, {a, b}, floatAux(kKeep)) == 1;
        };
        ASSERT_EQ(holds(Relation::Less), single(a) < single(b));
        ASSERT_EQ(holds(Relation::GreaterEqual), single(a) >= single(b));
        ASSERT_EQ(holds(Relation::Equal), single(a) == single(b));
        ASSERT_EQ(holds(Relation::NotEqual), single(a) != single(b));
    }
}

/// The value of an 8-bit float with 4 exponent bits.
double tiny(std::uint64_t bits) {
    const int field = static_cast<int>(bits >> 3 & 15);
    const int fraction = static_cast<int>(bits & 7);
    const double sign = (bits & 0x80) != 0 ? -1 : 1;
    if (field == 15) {
        return fraction == 0 ? sign * std::numeric_limits<double>::infinity() : std::nan("");
    }
    return sign * (field == 0 ? std::ldexp(fraction, -9) : std::ldexp(8 + fraction, field - 10));
}

/// The nearest of all values, found by looking at each; ties go to the even pattern.
std::uint64_t nearestTiny(double value) {
    if (std::isnan(value)) {
        return 0x7c;
    }
    const std::uint64_t sign = std::signbit(value) ? 0x80 : 0;
    const double magnitude = std::fabs(value);
    // Beyond the middle of the last step lies infinity.
    if (magnitude >= 248) {
        return sign | 0x78;
    }
    std::uint64_t best = 0;
    for (std::uint64_t bits = 0; bits < 0x78; ++bits) {
        const double distance = std::fabs(tiny(bits) - magnitude);
        const double least = std::fabs(tiny(best) - magnitude);
        if (distance < least || (distance == least && bits % 2 == 0)) {
            best = bits;
        }
    }
    return sign | best;
}

TEST(FloatKernels, roundEveryPairOfATinyFormatToTheNearestOfItsValues) {
    for (std::uint64_t a = 0; a < 256; ++a) {
        for (std::uint64_t b = 0; b < 256; ++b) {
            const double x = tiny(a);
            const double y = tiny(b);
            // Doubles hold these sums and products exactly, and quotients well enough.
            ASSERT_EQ(apply(FloatFunction::Add, kTiny, {a, b}), nearestTiny(x + y)) << x << " + " << y;
            ASSERT_EQ(apply(FloatFunction::Mul, kTiny, {a, b}), nearestTiny(x * y)) << x << " * " << y;
            ASSERT_EQ(apply(FloatFunction::Div, kTiny, {a, b}), nearestTiny(x / y)) << x << " / " << y;
        }
        ASSERT_EQ(apply(FloatFunction::Sqrt, kTiny, {a}), nearestTiny(std::sqrt(tiny(a))));
        ASSERT_EQ(apply(FloatFunction::Frac, kTiny, {a}),
                  std::isinf(tiny(a)) ? 0x7cU : nearestTiny(tiny(a) - std::floor(tiny(a))));
    }
}

TEST(FloatKernels, flushSubnormalsUnlessToldToKeepThem) {
    EXPECT_EQ(apply(FloatFunction::Add, kTiny, {0x03, 0x00}, kFlush), 0U);
    EXPECT_EQ(apply(FloatFunction::Add, kTiny, {0x83, 0x80}, kFlush), 0x80U);
    EXPECT_EQ(apply(FloatFunction::Add, kTiny, {0x03, 0x00}, kKeep), 0x03U);
    // A result below the least normal number goes, too.
    EXPECT_EQ(apply(FloatFunction::Sub, kTiny, {0x09, 0x08}, kFlush), 0U);
    EXPECT_EQ(apply(FloatFunction::Sub, kTiny, {0x09, 0x08}, kKeep), 0x01U);
}

TEST(FloatKernels, roundInTheDirectionThatIsTold) {
    const std::uint64_t one = bitsOf(1.0F);
    const std::uint64_t third = bitsOf(3.0F);
    const auto quotient = [&](FloatRounding rounding) {
        return apply(FloatFunction::Div, kSingle, {one, third}, {rounding, true});
    };
    EXPECT_EQ(quotient(FloatRounding::Down), 0x3eaaaaaaU);
    EXPECT_EQ(quotient(FloatRounding::ToZero), 0x3eaaaaaaU);
    EXPECT_EQ(quotient(FloatRounding::Up), 0x3eaaaaabU);
    EXPECT_EQ(quotient(FloatRounding::NearestEven), 0x3eaaaaabU);
}

TEST(FloatKernels, convertBetweenFormatsAndFixedPoint) {
    const Operand single32{0, 32, false, false, 8};
    const Operand half16{0, 16, false, false, 5};
    const auto toHalf = [&](float value, FloatRounding rounding) {
        return run(floatConvertKernel(), kHalf, {single32}, {bitsOf(value)}, floatAux(FloatMode{rounding, true}));
    };
    EXPECT_EQ(toHalf(1.0F, FloatRounding::NearestEven), 0x3c00U);
    EXPECT_EQ(toHalf(65520.0F, FloatRounding::NearestEven), 0x7c00U);
    EXPECT_EQ(toHalf(65520.0F, FloatRounding::ToZero), 0x7bffU);
    // Half of the last place: to even, or away.
    EXPECT_EQ(toHalf(1.00048828125F, FloatRounding::NearestEven), 0x3c00U);
    EXPECT_EQ(toHalf(1.00048828125F, FloatRounding::NearestAway), 0x3c01U);
    EXPECT_EQ(run(floatConvertKernel(), kSingle, {half16}, {0x0001}, floatAux(kKeep)), bitsOf(std::ldexp(1.0F, -24)));
    const Operand fixed{0, 16, true, false, 8};
    EXPECT_EQ(run(floatFromFixedKernel(), kSingle, {fixed}, {static_cast<std::uint64_t>(-384)}, floatAux(kKeep)),
              bitsOf(-1.5F));
    const auto toFixed = [&](float value, Rounding rounding, Saturation saturation) {
        std::vector<Operand> operands{single32};
        std::uint64_t words[] = {bitsOf(value), 0};
        Op op;
        op.in = operands.data();
        op.count = 1;
        op.out = {1, 8, true, false, 2};
        op.aux = floatAux(kKeep);
        floatToFixedKernel(rounding, saturation)(words, op);
        return static_cast<std::int64_t>(words[1]);
    };
    EXPECT_EQ(toFixed(1.375F, Rounding::Floor, Saturation::Wrap), 5);
    EXPECT_EQ(toFixed(1.375F, Rounding::HalfEven, Saturation::Wrap), 6);
    EXPECT_EQ(toFixed(-1.375F, Rounding::HalfUp, Saturation::Wrap), -5);
    EXPECT_EQ(toFixed(-1.3F, Rounding::ToZero, Saturation::Wrap), -5);
    EXPECT_EQ(toFixed(100.0F, Rounding::Floor, Saturation::Asymmetric), 127);
    EXPECT_EQ(toFixed(-1e30F, Rounding::Floor, Saturation::Symmetric), -127);
    EXPECT_EQ(toFixed(65.0F, Rounding::Floor, Saturation::Wrap), 4);
    EXPECT_EQ(toFixed(1e-30F, Rounding::Floor, Saturation::Wrap), 0);
    EXPECT_EQ(toFixed(-1e-30F, Rounding::Floor, Saturation::Wrap), -1);
    EXPECT_EQ(toFixed(std::numeric_limits<float>::infinity(), Rounding::Floor, Saturation::Asymmetric), 127);
    EXPECT_EQ(toFixed(std::nanf(""), Rounding::Floor, Saturation::Asymmetric), 0);
}

TEST(FloatKernels, scaleAndTakeExponents) {
    const Operand single32{0, 32, false, false, 8};
    const Operand exponent{0, 8, true, false, 0};
    const auto power = [&](bool ofTwo, float base, std::int64_t by) {
        return single(run(floatPowerKernel(ofTwo), kSingle, {single32, exponent},
                          {bitsOf(base), static_cast<std::uint64_t>(by)}, floatAux(kKeep)));
    };
    EXPECT_EQ(power(true, 3.0F, -4), 0.1875F);
    EXPECT_EQ(power(false, -2.0F, 5), -32.0F);
    EXPECT_EQ(power(false, 2.0F, -2), 0.25F);
    const auto binary = [&](float value) {
        return static_cast<std::int64_t>(
            run(floatExponentKernel(), {64, 0}, {single32}, {bitsOf(value)}, floatAux(kKeep)));
    };
    EXPECT_EQ(binary(8.0F), 3);
    EXPECT_EQ(binary(-0.3F), -2);
    EXPECT_EQ(binary(0.0F), -(std::int64_t{1} << 31));
    EXPECT_EQ(binary(std::numeric_limits<float>::infinity()), (std::int64_t{1} << 31) - 1);
}

TEST(FloatKernels, knowTheElementaryFunctions) {
    const std::pair<FloatFunction, double (*)(double)> functions[] = {
        {FloatFunction::Exp, std::exp},     {FloatFunction::Exp2, std::exp2},    {FloatFunction::Expm1, std::expm1},
        {FloatFunction::Log, std::log},     {FloatFunction::Log2, std::log2},    {FloatFunction::Log10, std::log10},
        {FloatFunction::Log1p, std::log1p}, {FloatFunction::Sin, std::sin},      {FloatFunction::Cos, std::cos},
        {FloatFunction::Tan, std::tan},     {FloatFunction::Asin, std::asin},    {FloatFunction::Acos, std::acos},
        {FloatFunction::Atan, std::atan},   {FloatFunction::CubeRoot, std::cbrt}};
    for (const auto &[function, reference] : functions) {
        for (const float x : {0.1F, 0.5F, 0.7F, 1.0F}) {
            // A double is near enough that its rounding is the right one.
            EXPECT_EQ(single(apply(function, kSingle, {bitsOf(x)})), static_cast<float>(reference(double{x})));
        }
    }
    const auto one = [](FloatFunction function, float x) { return single(apply(function, kSingle, {bitsOf(x)})); };
    EXPECT_EQ(one(FloatFunction::SinPi, 0.5F), 1.0F);
    EXPECT_EQ(one(FloatFunction::CosPi, 1.0F), -1.0F);
    EXPECT_EQ(one(FloatFunction::TanPi, 0.25F), 1.0F);
    EXPECT_EQ(one(FloatFunction::CotPi, 0.25F), 1.0F);
    EXPECT_EQ(one(FloatFunction::AsinPi, 1.0F), 0.5F);
    EXPECT_EQ(one(FloatFunction::AcosPi, -1.0F), 1.0F);
    EXPECT_EQ(one(FloatFunction::AtanPi, 1.0F), 0.25F);
    EXPECT_EQ(one(FloatFunction::Exp10, 2.0F), 100.0F);
    EXPECT_EQ(one(FloatFunction::RecipSqrt, 4.0F), 0.5F);
    EXPECT_EQ(one(FloatFunction::Reciprocal, 4.0F), 0.25F);
    EXPECT_EQ(one(FloatFunction::Neg, 4.0F), -4.0F);
    EXPECT_EQ(one(FloatFunction::Abs, -4.0F), 4.0F);
    EXPECT_FLOAT_EQ(one(FloatFunction::Cot, 0.5F), 1.8304877F);
    const auto two = [](FloatFunction function, float x, float y) {
        return single(apply(function, kSingle, {bitsOf(x), bitsOf(y)}));
    };
    EXPECT_EQ(two(FloatFunction::Hypot, 3.0F, 4.0F), 5.0F);
    EXPECT_EQ(two(FloatFunction::Atan2, 1.0F, 1.0F), static_cast<float>(std::atan2(1.0, 1.0)));
    EXPECT_EQ(two(FloatFunction::Pow, -2.0F, 3.0F), -8.0F);
    EXPECT_TRUE(std::isnan(two(FloatFunction::PowR, -2.0F, 3.0F)));
    EXPECT_EQ(two(FloatFunction::PowR, 2.0F, 3.0F), 8.0F);
    EXPECT_EQ(single(apply(FloatFunction::Hypot3, kSingle, {bitsOf(2.0F), bitsOf(3.0F), bitsOf(6.0F)})), 7.0F);
}

TEST(FloatKernels, readConstants) {
    ContextMgr mgr;
    const auto bits = [&](const char *text) {
        return floatBits(numberVR(Value::parse(text, mgr.context())), 32, 8).front();
    };
    EXPECT_EQ(bits("3"), bitsOf(3.0F));
    EXPECT_EQ(bits("-0x1p-1"), bitsOf(-0.5F));
    EXPECT_EQ(bits("+inf"), bitsOf(std::numeric_limits<float>::infinity()));
    EXPECT_EQ(bits("-zero"), bitsOf(-0.0F));
    EXPECT_EQ(bits("+nan"), 0x7fc00000U);
}

} // namespace
} // namespace orvo::sim
