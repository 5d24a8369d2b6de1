// Numbers: their text in all bases, exactness, and the conversions out of them.
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/limits.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <sstream>
#include <thread>

namespace orvo {
namespace {

class Mpz {
  public:
    Mpz() { mpz_init(mValue); }
    explicit Mpz(const std::string &digits, int base = 16) { mpz_init_set_str(mValue, digits.c_str(), base); }
    ~Mpz() { mpz_clear(mValue); }
    Mpz(const Mpz &) = delete;
    Mpz &operator=(const Mpz &) = delete;
    operator mpz_ptr() { return mValue; }
    /// For GMP's macros.
    mpz_ptr ptr() { return mValue; }
    std::string str() const {
        std::string text(mpz_sizeinbase(mValue, 10) + 2, ' ');
        mpz_get_str(text.data(), 10, mValue);
        return text.c_str();
    }

  private:
    mpz_t mValue;
};

class Mpf {
  public:
    explicit Mpf(mp_bitcnt_t precision) { mpf_init2(mValue, precision); }
    ~Mpf() { mpf_clear(mValue); }
    Mpf(const Mpf &) = delete;
    Mpf &operator=(const Mpf &) = delete;
    operator mpf_ptr() { return mValue; }

  private:
    mpf_t mValue;
};

// The form told for base 16, from what GMP gives; `number` must be no small integer.
std::string referenceText(mpf_srcptr number) {
    mp_exp_t exponent = 0;
    char *const text = mpf_get_str(nullptr, &exponent, 16, 0, number);
    std::string digits(text);
    void (*release)(void *, size_t) = nullptr;
    mp_get_memory_functions(nullptr, nullptr, &release);
    release(text, digits.size() + 1);
    std::string result;
    if (digits[0] == '-') {
        result = "-";
        digits.erase(0, 1);
    }
    result += "0x";
    result += static_cast<char>(std::toupper(digits[0]));
    if (digits.size() > 1) {
        result += "." + digits.substr(1);
    }
    const long binary = exponent * 4 - 4;
    return result + (binary >= 0 ? "p+" : "p") + std::to_string(binary);
}

class NumberValueTest : public ::testing::Test {
  protected:
    ValueRef value(const std::string &text) { return Value::parse(text, ctx); }
    NumberValueRef number(const std::string &text) { return numberVR(value(text)); }
    std::string print(const std::string &text) {
        const ValueRef parsed = value(text);
        return parsed ? parsed->toString() : "null";
    }
    /// (-)digits in base 16, times 2^-fractionBits
    NumberValueRef random(std::size_t mostDigits) {
        const auto digit = rc::gen::elementOf(std::string("00000123456789abcdefff"));
        std::string digits = *rc::gen::container<std::string>(digit);
        digits.resize(std::min(digits.size(), mostDigits));
        Mpz integer((*rc::gen::arbitrary<bool>() ? "-0" : "0") + digits);
        return NumberValue::fromMPZ(integer, *rc::gen::inRange(0U, 300U), ctx);
    }

    ContextMgr mgr;
    Context *ctx = mgr.context();
};

using NumberValueDeathTest = NumberValueTest;

TEST_F(NumberValueTest, readsAndPrintsSmallIntegersInDecimal) {
    EXPECT_EQ(number("12")->toInt(), 12);
    EXPECT_EQ(print("12"), "12");
    EXPECT_EQ(print("-12"), "-12");
    EXPECT_EQ(print("+5"), "5");
    EXPECT_EQ(print("007"), "7");
    EXPECT_EQ(print("2147483647"), "2147483647");
    EXPECT_EQ(print("-2147483648"), "-2147483648");
    EXPECT_EQ(print("2147483648"), "0x8p+28");
    EXPECT_EQ(print("-2147483649"), "-0x8.0000001p+28");
}

TEST_F(NumberValueTest, readsIntegersOfAnyLength) {
    EXPECT_EQ(value("1000000000000000000"), NumberValue::get(1000000000000000000L, ctx));
    EXPECT_EQ(value("18446744073709551615"), NumberValue::fromUInt64(UINT64_MAX, 0, ctx));
    EXPECT_EQ(print("18446744073709551616"), "0x1p+64");
    Mpz large("123456789012345678901234567890123456789012345678901234567890", 10);
    EXPECT_EQ(value("123456789012345678901234567890123456789012345678901234567890"), NumberValue::get(large, ctx));
    EXPECT_EQ(value("0000000000000000000000000000000000000000000000000000000000000000000000000005"), value("5"));
}

TEST_F(NumberValueTest, printsTheHexadecimalForm) {
    EXPECT_EQ(NumberValue::get(0.5, ctx)->toString(), "0x8p-4");
    EXPECT_EQ(NumberValue::get(0.5, ctx), value("0x8p-4"));
    EXPECT_EQ(NumberValue::get(1.5, ctx)->toString(), "0x1.8p+0");
    EXPECT_EQ(NumberValue::get(-1.5, ctx)->toString(), "-0x1.8p+0");
    EXPECT_EQ(NumberValue::get(1L << 40, ctx)->toString(), "0x1p+40");
    EXPECT_EQ(NumberValue::get(0xABCDEF0000L, ctx)->toString(), "0xA.bcdefp+36");
    EXPECT_EQ(NumberValue::get(0.1, ctx)->toString(), "0x1.999999999999ap-4");
}

TEST_F(NumberValueTest, readsTheHexadecimalForm) {
    EXPECT_EQ(print("0x10"), "16");
    EXPECT_EQ(print("-0x10"), "-16");
    EXPECT_EQ(value("0X1P+4"), value("0x1p+4"));
    EXPECT_EQ(value("0xABC"), value("0xabc"));
    EXPECT_EQ(print("0x1p4"), "16");
    EXPECT_EQ(print("0x1p-1"), "0x8p-4");
    EXPECT_EQ(value("-0x1.8p+1"), value("-3"));
    EXPECT_EQ(print("0x0.08"), "0x8p-8");
    EXPECT_EQ(print("0x0p+5"), "0");
    EXPECT_EQ(value("0x123456789abcdef0123456789abcdef.8"), value("0x123456789abcdef0123456789abcdef8p-4"));
}

TEST_F(NumberValueTest, readsAFractionOrAnExponentBehindPlainDigitsAsHexadecimal) {
    EXPECT_EQ(value("1.8"), NumberValue::get(1.5, ctx));
    EXPECT_EQ(value("12p3"), NumberValue::get(0x12 * 8, ctx));
    EXPECT_EQ(value("12.8p1"), NumberValue::get(0x12 * 2 + 1, ctx));
    EXPECT_EQ(value("+1.8"), NumberValue::get(1.5, ctx));
}

TEST_F(NumberValueTest, stopsBeforeAnXThatMakesNoPrefix) {
    for (const char *text : {"+0x1", "00x1"}) {
        std::istringstream in(text);
        EXPECT_EQ(Value::parse(in, ctx), value("0")) << text;
        EXPECT_EQ(in.get(), 'x') << text;
    }
    EXPECT_EQ(value("12x"), value("12"));
}

TEST_F(NumberValueTest, refusesHalfANumber) {
    for (const char *text :
         {"0x", "-0x", "1.", "0x1.", "0x1p", "0x1p+", "1p-", "-", "+", "-.8", "0x.8", "0x1.p1", "- 1", "+-1"}) {
        std::istringstream in(text);
        EXPECT_FALSE(Value::parse(in, ctx)) << text;
        EXPECT_TRUE(in.fail()) << text;
    }
}

TEST_F(NumberValueTest, endsAtTheFirstCharacterThatFitsNoRule) {
    std::istringstream in("12)0x1g0x1.8p+2z-5");
    EXPECT_EQ(Value::parse(in, ctx), value("12"));
    EXPECT_EQ(in.get(), ')');
    EXPECT_EQ(Value::parse(in, ctx), value("1"));
    EXPECT_EQ(in.get(), 'g');
    EXPECT_EQ(Value::parse(in, ctx), value("6"));
    EXPECT_EQ(in.get(), 'z');
    EXPECT_EQ(Value::parse(in, ctx), value("-5"));
}

TEST_F(NumberValueTest, knowsFourSpecialWords) {
    for (const char *text : {"+nan", "+inf", "-inf", "-zero"}) {
        ASSERT_TRUE(number(text)) << text;
        EXPECT_TRUE(number(text)->isSpecial());
        EXPECT_EQ(print(text), text);
    }
    EXPECT_EQ(value("+INF"), value("+inf"));
    for (const char *text : {"-nan", "+zero", "+in", "+infx", "+infinity", "-a"}) {
        EXPECT_FALSE(value(text)) << text;
    }
}

TEST_F(NumberValueTest, tellsMinusZeroFromZero) {
    EXPECT_EQ(print("-0"), "0");
    EXPECT_EQ(value("-0"), value("0"));
    EXPECT_FALSE(value("-zero") == value("0"));
    EXPECT_EQ(NumberValue::get(-0.0, ctx), value("-zero"));
    EXPECT_EQ(NumberValue::get(0.0, ctx), value("0"));
}

TEST_F(NumberValueTest, takesSpecialDoubles) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(NumberValue::get(infinity, ctx), value("+inf"));
    EXPECT_EQ(NumberValue::get(-infinity, ctx), value("-inf"));
    EXPECT_EQ(NumberValue::get(std::nan(""), ctx), value("+nan"));
    EXPECT_EQ(number("+inf")->toDouble(), infinity);
    EXPECT_EQ(number("-inf")->toDouble(), -infinity);
    EXPECT_TRUE(std::isnan(number("+nan")->toDouble()));
    EXPECT_TRUE(std::signbit(number("-zero")->toDouble()));
    EXPECT_EQ(number("+nan")->toInt(), 2);
    EXPECT_EQ(number("+inf")->toInt(), 1);
    EXPECT_EQ(number("-inf")->toInt(), -1);
    EXPECT_EQ(number("-zero")->toInt(), 0);
    EXPECT_TRUE(number("-inf")->isNegative());
    EXPECT_FALSE(number("-zero")->isNegative());
    EXPECT_FALSE(number("+inf")->isInteger());
    EXPECT_FALSE(number("+inf")->isInt());
    EXPECT_FALSE(value("+inf") == value("1"));
}

TEST_F(NumberValueTest, writesTheExponentOfBasesTenAndTwoAsGmpCountsIt) {
    const NumberValueRef half = NumberValue::get(0.5, ctx);
    EXPECT_EQ(half->toString(10, 0), "5.e+0");
    EXPECT_EQ(half->toString(2, 0), "1.b+0");
    EXPECT_EQ(NumberValue::get(-1234.5678, ctx)->toString(10, 4), "-1.235e+4");
    EXPECT_EQ(NumberValue::get(0.25, ctx)->toString(2, 0), "1.b-1");
    EXPECT_EQ(NumberValue::get(1.0 / 1024, ctx)->toString(10, 3), "9.77e-3");
    EXPECT_EQ(NumberValue::get(0x1.abcp0, ctx)->toString(16, 3), "0x1.acp+0");
    EXPECT_EQ(NumberValue::get(7, ctx)->toString(2, 0), "7") << "a small integer is decimal in every base";
    std::ostringstream out;
    half->print(out, 10, 0);
    EXPECT_EQ(out.str(), "5.e+0");
}

TEST_F(NumberValueTest, tellsIntegers) {
    EXPECT_TRUE(number("12")->isInteger());
    EXPECT_TRUE(number("0")->isInt());
    EXPECT_TRUE(number("0x1p+200")->isInteger());
    EXPECT_FALSE(number("0x1p+200")->isInt());
    EXPECT_FALSE(number("0x1p+31")->isInt());
    EXPECT_TRUE(number("-0x1p+31")->isInt());
    EXPECT_FALSE(number("0x1p-1")->isInteger());
    EXPECT_FALSE(number("0x1.00000000000000000000000001p+0")->isInteger());
    EXPECT_EQ(number("0x1.8p+1")->toInt(), 3);
    EXPECT_EQ(number("-0x1.8p+0")->toInt(), -1);
}

TEST_F(NumberValueTest, dividesByAPowerOfTwo) {
    EXPECT_EQ(NumberValue::fromInt64(-3, 1, ctx), NumberValue::get(-1.5, ctx));
    EXPECT_EQ(NumberValue::fromInt64(8, 3, ctx), value("1"));
    EXPECT_EQ(NumberValue::fromInt64(INT64_MIN, 63, ctx), value("-1"));
    EXPECT_EQ(NumberValue::fromUInt64(UINT64_MAX, 0, ctx), value("0xffffffffffffffff"));
    EXPECT_EQ(NumberValue::fromUInt64(1, 64, ctx), value("0x1p-64"));
    Mpz large("1" + std::string(50, '0'));
    EXPECT_EQ(NumberValue::fromMPZ(large, 200, ctx), value("1"));
    EXPECT_EQ(NumberValue::fromMPZ(large, 201, ctx), NumberValue::get(0.5, ctx));
}

TEST_F(NumberValueTest, holdsFractionsOfThirtyTwoBitLength) {
    Mpz one("1");
    const NumberValueRef tiny = NumberValue::fromMPZ(one, UINT_MAX, ctx);
    EXPECT_EQ(tiny->toString(), "0x2p-4294967296");
    EXPECT_EQ(NumberValue::fromInt64(1, UINT_MAX, ctx), tiny);
    EXPECT_EQ(tiny->toString(10, 3), "6.44e-1292913986");
    EXPECT_EQ(tiny->toDouble(), 0);
    EXPECT_EQ(tiny->toInt(), 0);
    EXPECT_EQ(tiny->toInt64(INT_MAX), 0);
}

TEST_F(NumberValueTest, roundsScaledIntegersHalvesAwayFromZero) {
    EXPECT_EQ(NumberValue::fromUInt64(UINT64_MAX, 0, ctx)->toInt64(0), -1); // the low 64 bits
    EXPECT_EQ(NumberValue::fromInt64(INT64_MIN, 0, ctx)->toInt64(0), INT64_MIN);
    EXPECT_EQ(NumberValue::get(2.5, ctx)->toInt64(0), 3);
    EXPECT_EQ(NumberValue::get(-2.5, ctx)->toInt64(0), -3);
    EXPECT_EQ(NumberValue::get(2.25, ctx)->toInt64(0), 2);
    EXPECT_EQ(NumberValue::get(2.25, ctx)->toInt64(1), 5);
    EXPECT_EQ(NumberValue::get(0.5, ctx)->toInt64(0), 1);
    EXPECT_EQ(NumberValue::get(0.49, ctx)->toInt64(0), 0);
    EXPECT_EQ(NumberValue::get(-0.5, ctx)->toInt64(0), -1);
    EXPECT_EQ(NumberValue::get(12, ctx)->toInt64(-3), 2);
    EXPECT_EQ(NumberValue::get(11, ctx)->toInt64(-3), 1);
    EXPECT_EQ(NumberValue::get(11, ctx)->toInt64(-100), 0);
    EXPECT_EQ(NumberValue::get(INT64_MIN, ctx)->toInt64(0), INT64_MIN);
    Mpz out;
    NumberValue::get(3, ctx)->toScaledMPZ(out, 70);
    EXPECT_EQ(out.str(), "3541774862152233910272");
}

TEST_F(NumberValueTest, findsTheMinimalInteger) {
    Mpz out;
    EXPECT_EQ(NumberValue::get(12, ctx)->toUpscaledMPZ(out, true), -2);
    EXPECT_EQ(out.str(), "3");
    EXPECT_EQ(NumberValue::get(-0.75, ctx)->toUpscaledMPZ(out, true), 2);
    EXPECT_EQ(out.str(), "-3");
    EXPECT_EQ(NumberValue::get(0, ctx)->toUpscaledMPZ(out, true), 0);
    EXPECT_EQ(out.str(), "0");
    EXPECT_EQ(number("0x1p-300")->toUpscaledMPZ(out, false), 300) << "exact also below the precision";
    EXPECT_EQ(out.str(), "1");
}

TEST_F(NumberValueTest, givesTheWidthsThatHoldItExactly) {
    using Widths = std::pair<int, int>;
    EXPECT_EQ(NumberValue::get(0, ctx)->getBitWidths(), Widths(1, 0));
    EXPECT_EQ(NumberValue::get(1, ctx)->getBitWidths(), Widths(1, 0));
    EXPECT_EQ(NumberValue::get(-1, ctx)->getBitWidths(), Widths(2, 0));
    EXPECT_EQ(NumberValue::get(5, ctx)->getBitWidths(), Widths(3, 0));
    EXPECT_EQ(NumberValue::get(-5, ctx)->getBitWidths(), Widths(4, 0));
    EXPECT_EQ(NumberValue::get(0.5, ctx)->getBitWidths(), Widths(0, 1));
    EXPECT_EQ(NumberValue::get(-0.75, ctx)->getBitWidths(), Widths(1, 2));
    EXPECT_EQ(NumberValue::get(8, ctx)->getBitWidths(), Widths(4, -3));
    EXPECT_EQ(number("0x1p-300")->getBitWidths(), Widths(-299, 300));
}

TEST_F(NumberValueTest, convertsToMpfr) {
    mpfr_t out;
    number("0x1.8p-70")->toMPFR(out);
    EXPECT_EQ(mpfr_get_d(out, MPFR_RNDN), std::ldexp(1.5, -70));
    EXPECT_GE(mpfr_get_prec(out), 53);
    mpfr_clear(out);
    number("0x1" + std::string(99, '0') + "1")->toMPFR(out);
    EXPECT_GE(mpfr_get_prec(out), 401);
    EXPECT_EQ(mpfr_integer_p(out), 1);
    mpfr_clear(out);
    number("+nan")->toMPFR(out);
    EXPECT_TRUE(mpfr_nan_p(out));
    mpfr_clear(out);
    number("-inf")->toMPFR(out);
    EXPECT_TRUE(mpfr_inf_p(out) && mpfr_sgn(out) < 0);
    mpfr_clear(out);
    number("-zero")->toMPFR(out);
    EXPECT_TRUE(mpfr_zero_p(out) && mpfr_signbit(out));
    mpfr_clear(out);
}

TEST_F(NumberValueTest, freesTheCachesOfMpfrWithTheirThread) {
    std::thread([] {
        const ContextMgr inner;
        mpfr_t out;
        NumberValue::get(3, inner.context())->toMPFR(out);
        mpfr_log(out, out, MPFR_RNDN);
        mpfr_clear(out);
    }).join();
}

TEST_F(NumberValueTest, takesFloatsOfAnyPrecisionWithoutRounding) {
    Mpf large(5000);
    mpf_set_ui(large, 1);
    mpf_mul_2exp(large, large, 4000);
    mpf_add_ui(large, large, 1);
    EXPECT_EQ(NumberValue::get(large, ctx), value("0x1" + std::string(999, '0') + "1"));
    Mpf small(64);
    Mpf wide(1000);
    mpf_set_ui(small, 77);
    mpf_set_ui(wide, 77);
    EXPECT_EQ(NumberValue::get(small, ctx), NumberValue::get(wide, ctx)) << "equal, whatever the precision";
    EXPECT_EQ(NumberValue::get(wide, ctx), NumberValue::get(77, ctx));
}

TEST_F(NumberValueTest, acceptsTheMostDigitsAndRefusesOneMore) {
    EXPECT_TRUE(value(std::string(limits::kNumberDigits, '9')));
    EXPECT_FALSE(value(std::string(limits::kNumberDigits + 1, '9')));
    EXPECT_TRUE(value("0x" + std::string(limits::kNumberDigits, 'f')));
    EXPECT_FALSE(value("0x" + std::string(limits::kNumberDigits + 1, 'f')));
    EXPECT_TRUE(value("1." + std::string(limits::kNumberDigits - 1, 'f')));
    EXPECT_FALSE(value("1." + std::string(limits::kNumberDigits, 'f')));
    EXPECT_FALSE(value(std::string(50000000, '1')));
}

TEST_F(NumberValueTest, acceptsTheLargestExponentAndRefusesOneBeyond) {
    const std::string limit = std::to_string(limits::kNumberExponent);
    const std::string beyond = std::to_string(limits::kNumberExponent + 1);
    for (const std::string sign : {"+", "-"}) {
        const ValueRef edge = value("0x1p" + sign + limit);
        ASSERT_TRUE(edge);
        EXPECT_EQ(value(edge->toString()), edge);
        EXPECT_FALSE(value("0x1p" + sign + beyond));
    }
    EXPECT_FALSE(value("0x1p+99999999999999999999999999999999"));
    EXPECT_FALSE(value("0x10p+" + limit)) << "it would print with an exponent beyond the limit";
    EXPECT_FALSE(value("0x0.1p-" + limit));
    EXPECT_TRUE(value("0p+" + limit));
    EXPECT_TRUE(value("0x0" + std::string(100, '0') + "p+" + limit));
}

TEST_F(NumberValueDeathTest, assertsBeforeGmpWouldAbort) {
    const auto failed = ::testing::ExitedWithCode(1);
    Mpz one("1");
    const NumberValueRef tiny = NumberValue::fromMPZ(one, UINT_MAX, ctx);
    Mpz out;
    EXPECT_EXIT(tiny->toUpscaledMPZ(out, true), failed, "ORVO restriction: .*too long");
    EXPECT_EXIT(tiny->getBitWidths(), failed, "ORVO restriction: .*width");
    EXPECT_EXIT(NumberValue::get(2, ctx)->toScaledMPZ(out, INT_MAX), failed, "ORVO restriction: .*too large");
    EXPECT_EXIT(NumberValue::get(0.5, ctx)->toString(7, 0), failed, "ORVO restriction: .*base");
    Mpf huge(64);
    mpf_set_ui(huge, 1);
    mpf_mul_2exp(huge, huge, 1UL << 50);
    EXPECT_EXIT(NumberValue::get(huge, ctx), failed, "ORVO restriction: .*exponent");
}

RC_GTEST_FIXTURE_PROP(NumberValueTest, printsWhatGmpGives, ()) {
    const NumberValueRef value = random(60);
    RC_PRE(!value->isInt());
    mpfr_t exact;
    value->toMPFR(exact);
    Mpf wide(1000);
    mpfr_get_f(wide, exact, MPFR_RNDN);
    mpfr_clear(exact);
    RC_ASSERT(value->toString() == referenceText(wide));
}

RC_GTEST_FIXTURE_PROP(NumberValueTest, readsBackNumbersOfAllSizes, ()) {
    const NumberValueRef number = random(200);
    RC_ASSERT(value(number->toString()) == number);
}

RC_GTEST_FIXTURE_PROP(NumberValueTest, isItsUpscaledIntegerOverTheFraction, (bool minimal)) {
    const NumberValueRef number = random(60);
    Mpz integer;
    const int fractionBits = number->toUpscaledMPZ(integer, minimal);
    if (fractionBits < 0) {
        mpz_mul_2exp(integer, integer, static_cast<mp_bitcnt_t>(-fractionBits));
        RC_ASSERT(NumberValue::get(integer, ctx) == number);
    } else {
        RC_ASSERT(NumberValue::fromMPZ(integer, static_cast<unsigned>(fractionBits), ctx) == number);
    }
    RC_ASSERT(!minimal || fractionBits < 0 || mpz_sgn(integer.ptr()) == 0 || mpz_odd_p(integer.ptr()));
}

RC_GTEST_FIXTURE_PROP(NumberValueTest, fitsItsWidthsAndNoSmaller, (int integer, unsigned int shift)) {
    const NumberValueRef number = NumberValue::fromInt64(integer, shift % 40, ctx);
    const auto [integerBits, fractionBits] = number->getBitWidths();
    Mpz odd;
    RC_ASSERT(number->toUpscaledMPZ(odd, true) == fractionBits || integer == 0);
    if (integer < -1) {
        mpz_add_ui(odd, odd, 1);
        mpz_neg(odd, odd);
        RC_ASSERT(integerBits + fractionBits == static_cast<int>(mpz_sizeinbase(odd, 2)) + 1 ||
                  mpz_sgn(odd.ptr()) == 0);
    } else if (integer > 0) {
        RC_ASSERT(integerBits + fractionBits == static_cast<int>(mpz_sizeinbase(odd, 2)));
    }
}

RC_GTEST_FIXTURE_PROP(NumberValueTest, givesBackDoubles, (double number)) {
    RC_ASSERT(NumberValue::get(number, ctx)->toDouble() == number);
}

RC_GTEST_FIXTURE_PROP(NumberValueTest, givesBackIntegers, (std::int64_t number)) {
    RC_ASSERT(NumberValue::get(number, ctx)->toInt64(0) == number);
    RC_ASSERT(value(std::to_string(number)) == NumberValue::get(number, ctx));
    RC_ASSERT(NumberValue::get(number, ctx)->isNegative() == (number < 0));
}

} // namespace
} // namespace orvo
