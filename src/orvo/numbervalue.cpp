// Numbers: exact integers and binary fractions over GMP's floats. GMP ends the process on overflow, so that every
// width, shift and exponent is looked at here before a call that could reach it; results are made from the limbs where
// that is simpler than a call that may round.
#include <orvo/corevalues.h>

#include <orvo/limits.h>
#include <orvo/logging.h>

#include "orvo/contextimpl.h"
#include "orvo/mpfrthread.h"
#include "orvo/valuetext.h"

#include <util/bits.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>

namespace orvo {

namespace internal {

namespace {
struct MpfrCacheGuard {
    ~MpfrCacheGuard() { mpfr_free_cache(); }
};
} // namespace

void useMpfrOnThisThread() { static thread_local const MpfrCacheGuard guard; }

} // namespace internal

namespace {

static_assert(GMP_LIMB_BITS == 64 && GMP_NAIL_BITS == 0, "the code below thinks in limbs of 64 bits");

constexpr long kLimbBits = 64;
// In limbs: far beyond all that memory can hold as an integer, and far from the ends of the exponent's type.
constexpr long kLargestExponent = 1L << 40;

// A non-zero magnitude read from elsewhere: limbs from the least significant one, times 2^(64 * (exponent - count)),
// with the first and the last limb not zero. Zero has no limbs.
struct LimbView {
    LimbView(const mp_limb_t *data, std::size_t size, long limbExponent, bool isNegative)
        : limbs(data), count(size), exponent(limbExponent), negative(isNegative) {
        while (count > 0 && *limbs == 0) {
            ++limbs;
            --count;
        }
        if (count == 0) {
            exponent = 0;
            negative = false;
        }
    }
    explicit LimbView(mpf_srcptr number)
        : LimbView(number->_mp_d, static_cast<std::size_t>(std::abs(number->_mp_size)), number->_mp_exp,
                   number->_mp_size < 0) {}

    bool isZero() const { return count == 0; }
    /// b, with 2^(b - 1) <= |value| < 2^b.
    long bitExponent() const { return kLimbBits * exponent - __builtin_clzl(limbs[count - 1]); }
    /// Weight of the lowest bit that is set, as a power of two.
    long lowestBit() const { return kLimbBits * (exponent - static_cast<long>(count)) + __builtin_ctzl(limbs[0]); }
    /// A float that reads these limbs in place.
    __mpf_struct asFloat() const {
        __mpf_struct view;
        view._mp_prec = static_cast<int>(count) + 1;
        view._mp_size = negative ? -static_cast<int>(count) : static_cast<int>(count);
        view._mp_exp = exponent;
        view._mp_d = const_cast<mp_limb_t *>(limbs);
        return view;
    }

    const mp_limb_t *limbs;
    std::size_t count;
    long exponent;
    bool negative;
};

// A magnitude of up to 64 bits times a power of two, as limbs on the stack.
struct ShortNumber {
    ShortNumber(std::uint64_t magnitude, long shift, bool isNegative) : negative(isNegative) {
        const long whole = shift >> 6;
        const auto rest = static_cast<unsigned>(shift & 63);
        limbs[0] = magnitude << rest;
        limbs[1] = rest != 0 ? magnitude >> (kLimbBits - rest) : 0;
        count = limbs[1] != 0 ? 2 : limbs[0] != 0 ? 1 : 0;
        exponent = whole + static_cast<long>(count);
    }
    LimbView view() const { return {limbs, count, exponent, negative}; }

    mp_limb_t limbs[2];
    std::size_t count;
    long exponent;
    bool negative;
};

std::uint32_t hashNumber(bool special, const LimbView &view) {
    std::uint64_t hash = internal::mixHash(static_cast<std::uint64_t>(view.exponent),
                                           view.count * 4 + (view.negative ? 2 : 0) + (special ? 1 : 0));
    for (std::size_t i = 0; i < view.count; ++i) {
        hash = internal::mixHash(hash, view.limbs[i]);
    }
    return internal::finishHash(hash);
}

std::uint64_t magnitudeOf(std::int64_t value) {
    return value < 0 ? -static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
}

int narrow(long value, const char *detail) {
    ORVO_ASSERT(value >= INT_MIN && value <= INT_MAX, detail);
    return static_cast<int>(value);
}

// out = value * 2^shift, rounded to nearest, halves away from zero.
void setShifted(mpz_ptr out, const LimbView &view, long shift) {
    if (view.isZero() || view.bitExponent() + shift < 0) {
        mpz_set_ui(out, 0);
        return;
    }
    ORVO_ASSERT(view.bitExponent() + shift <= INT_MAX, "a number is too large to be written as an integer");
    mpz_t limbs;
    mpz_roinit_n(limbs, view.limbs, static_cast<mp_size_t>(view.count));
    const long left = kLimbBits * (view.exponent - static_cast<long>(view.count)) + shift;
    if (left >= 0) {
        mpz_mul_2exp(out, limbs, static_cast<mp_bitcnt_t>(left));
    } else {
        mpz_tdiv_q_2exp(out, limbs, static_cast<mp_bitcnt_t>(-left - 1));
        mpz_add_ui(out, out, 1);
        mpz_tdiv_q_2exp(out, out, 1);
    }
    if (view.negative) {
        mpz_neg(out, out);
    }
}

constexpr char kDigits[] = "0123456789abcdef";

// The digits of a magnitude in base 16 without leading and trailing zeros, and how many of them stand before the point.
std::string hexDigits(const LimbView &view, long &exponent) {
    std::string digits;
    digits.reserve(view.count * 16);
    for (std::size_t i = view.count; i-- > 0;) {
        for (int shift = kLimbBits - 4; shift >= 0; shift -= 4) {
            digits += kDigits[(view.limbs[i] >> shift) & 15U];
        }
    }
    const std::size_t leading = digits.find_first_not_of('0');
    exponent = view.exponent * (kLimbBits / 4) - static_cast<long>(leading);
    return digits.substr(leading, digits.find_last_not_of('0') + 1 - leading);
}

std::string digitsOf(mpf_srcptr number, int base, int count, long &exponent) {
    mp_exp_t e = 0;
    char *text = mpf_get_str(nullptr, &e, base, static_cast<std::size_t>(count), number);
    const std::size_t size = std::strlen(text);
    std::string digits(text + (*text == '-' ? 1 : 0));
    void (*release)(void *, std::size_t) = nullptr;
    mp_get_memory_functions(nullptr, nullptr, &release);
    release(text, size + 1);
    exponent = e;
    return digits;
}

std::string withSign(long number) {
    std::string text = std::to_string(number);
    return number >= 0 ? "+" + text : text;
}

// The form D.DDDx+E, which stands for all that is no small integer.
std::string floatingText(bool negative, const std::string &digits, long exponent, int base) {
    std::string text = negative ? "-" : "";
    text += base == 16 ? "0x" : "";
    const char first = digits[0];
    text += first >= 'a' ? static_cast<char>(first - 'a' + 'A') : first;
    if (digits.size() > 1 || base != 16) {
        text += '.';
        text.append(digits, 1);
    }
    text += base == 16 ? 'p' : base == 10 ? 'e' : 'b';
    return text + withSign(base == 16 ? exponent * 4 - 4 : exponent);
}

} // namespace

namespace internal {

// Finds or makes numbers from limbs that stand anywhere, so that finding one that exists takes no memory.
class NumberInterner {
  public:
    static NumberValueRef intern(bool special, const LimbView &view, std::size_t precision, Context *context) {
        ORVO_ASSERT(context != nullptr, "a value is made in a context");
        ORVO_ASSERT(view.exponent >= -kLargestExponent && view.exponent <= kLargestExponent,
                    "the exponent of a number is out of bounds");
        const std::uint32_t hash = hashNumber(special, view);
        const __mpf_struct number = view.asFloat();
        const auto isSame = [&](const Value *other) {
            if (other->kind() != CoreType::Number) {
                return false;
            }
            const auto *value = static_cast<const NumberValue *>(other);
            return value->mSpecial == special && mpf_cmp(value->mNumber, &number) == 0;
        };
        const auto make = [&]() -> Value * { return new NumberValue(special, &number, precision, context, hash); };
        return FromPtr<NumberValue>(static_cast<NumberValue *>(implOf(*context).internBy(hash, isSame, make)));
    }
    /// magnitude * 2^shift
    static NumberValueRef internShort(std::uint64_t magnitude, long shift, bool negative, Context *context) {
        return intern(false, ShortNumber(magnitude, shift, negative).view(), kLimbBits, context);
    }
    /// value * 2^shift
    static NumberValueRef internLong(mpz_srcptr value, long shift, Context *context) {
        const std::size_t precision = mpz_sizeinbase(value, 2);
        const long whole = shift >> 6;
        const auto rest = static_cast<mp_bitcnt_t>(shift & 63);
        if (rest == 0) {
            return intern(false, viewOf(value, whole), precision, context);
        }
        ORVO_ASSERT(precision <= static_cast<std::size_t>(kLimbBits) * (INT_MAX - 1), "an integer is too large");
        mpz_t shifted;
        mpz_init(shifted);
        mpz_mul_2exp(shifted, value, rest);
        NumberValueRef result = intern(false, viewOf(shifted, whole), precision, context);
        mpz_clear(shifted);
        return result;
    }
    static NumberValueRef internSpecial(int code, Context *context) {
        return intern(true, ShortNumber(magnitudeOf(code), 0, code < 0).view(), kLimbBits, context);
    }

  private:
    static LimbView viewOf(mpz_srcptr value, long whole) {
        return {mpz_limbs_read(value), mpz_size(value), whole + static_cast<long>(mpz_size(value)), mpz_sgn(value) < 0};
    }
};

} // namespace internal

using internal::NumberInterner;

namespace {

enum SpecialCode { kMinusInfinity = -1, kMinusZero = 0, kPlusInfinity = 1, kNaN = 2 };

struct SpecialWord {
    std::string_view text;
    SpecialCode code;
};

constexpr SpecialWord kSpecialWords[] = {
    {"+nan", kNaN},
    {"+inf", kPlusInfinity},
    {"-inf", kMinusInfinity},
    {"-zero", kMinusZero},
};

// Takes a number's text apart, character by character.
class NumberReader {
  public:
    NumberReader(std::streambuf &in, Context *context) : mIn(in), mContext(context) {}

    /// Null for bad text.
    NumberValueRef read() {
        int c = internal::skipSpace(mIn);
        if (c == '+' || c == '-') {
            mSign = static_cast<char>(c);
            c = mIn.snextc();
            if (internal::isLetterChar(c)) {
                return readWord();
            }
        }
        mBase = 10;
        if (!readDigits(false) || mDigits.size() == 0) {
            return {};
        }
        // The prefix counts only right behind a lone 0 without a plus sign.
        if (peek() == 'x' && mDigits.view() == "0" && mSign != '+') {
            mIn.sbumpc();
            mDigits = internal::WordBuffer();
            mBase = 16;
            if (!readDigits(true) || mDigits.size() == 0) {
                return {};
            }
        }
        return readFraction() && readExponent() ? make() : NumberValueRef();
    }

  private:
    int peek() { return internal::toLowerChar(mIn.sgetc()); }

    static int digitOf(int c) {
        if (internal::isDigitChar(c)) {
            return c - '0';
        }
        const int lower = internal::toLowerChar(c);
        return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
    }

    // False if the limit is passed.
    bool readDigits(bool hexadecimal) {
        int c = mIn.sgetc();
        while (hexadecimal ? digitOf(c) >= 0 : internal::isDigitChar(c)) {
            if (mDigits.size() == limits::kNumberDigits) {
                return false;
            }
            mDigits.push(c);
            c = mIn.snextc();
        }
        return true;
    }

    NumberValueRef readWord() {
        constexpr std::size_t kLongest = 5;
        std::string word(1, mSign);
        for (int c = peek(); internal::isLetterChar(c); mIn.sbumpc(), c = peek()) {
            if (word.size() > kLongest) {
                return {};
            }
            word += static_cast<char>(c);
        }
        for (const SpecialWord &special : kSpecialWords) {
            if (word == special.text) {
                return NumberInterner::internSpecial(special.code, mContext);
            }
        }
        return {};
    }

    bool readFraction() {
        if (mIn.sgetc() != '.') {
            return true;
        }
        mIn.sbumpc();
        mBase = 16;
        const std::size_t before = mDigits.size();
        if (!readDigits(true)) {
            return false;
        }
        mShift = -4 * static_cast<long>(mDigits.size() - before);
        return mDigits.size() > before;
    }

    bool readExponent() {
        if (peek() != 'p') {
            return true;
        }
        mBase = 16;
        int c = mIn.snextc();
        const bool negative = c == '-';
        if (c == '+' || c == '-') {
            c = mIn.snextc();
        }
        if (!internal::isDigitChar(c)) {
            return false;
        }
        long exponent = 0;
        for (; internal::isDigitChar(c); c = mIn.snextc()) {
            exponent = exponent * 10 + (c - '0');
            if (exponent > limits::kNumberExponent) {
                return false;
            }
        }
        mShift += negative ? -exponent : exponent;
        return true;
    }

    NumberValueRef make() const {
        const std::string_view digits = mDigits.view();
        // What 64 bits hold without looking closer.
        const std::size_t shortest = mBase == 10 ? 19 : 16;
        if (digits.size() <= shortest) {
            std::uint64_t magnitude = 0;
            for (const char c : digits) {
                magnitude = magnitude * static_cast<unsigned>(mBase) + static_cast<unsigned>(digitOf(c));
            }
            const ShortNumber number(magnitude, mShift, mSign == '-');
            return canBePrinted(number.view()) ? NumberInterner::internShort(magnitude, mShift, mSign == '-', mContext)
                                               : NumberValueRef();
        }
        return makeLong(std::string(digits));
    }

    NumberValueRef makeLong(const std::string &digits) const {
        mpz_t magnitude;
        mpz_init(magnitude);
        const int failed = mpz_set_str(magnitude, digits.c_str(), mBase);
        ORVO_ASSERT(failed == 0, "the digits of a number were checked");
        if (mSign == '-') {
            mpz_neg(magnitude, magnitude);
        }
        const long top = static_cast<long>(mpz_sizeinbase(magnitude, 2)) + mShift;
        NumberValueRef result;
        if (mpz_sgn(magnitude) == 0 || exponentFits(top)) {
            result = NumberInterner::internLong(magnitude, mShift, mContext);
        }
        mpz_clear(magnitude);
        return result;
    }

    static bool canBePrinted(const LimbView &view) { return view.isZero() || exponentFits(view.bitExponent()); }

    // Whether the exponent that the number is printed with may be read again.
    static bool exponentFits(long bitExponent) {
        const long printed = ((bitExponent + 3) & ~3L) - 4;
        return std::abs(printed) <= limits::kNumberExponent;
    }

    std::streambuf &mIn;
    Context *mContext;
    internal::WordBuffer mDigits;
    char mSign = ' ';
    int mBase = 10;
    long mShift = 0;
};

} // namespace

NumberValue::NumberValue(bool special, mpf_srcptr number, std::size_t precision, Context *context, std::uint32_t hash)
    : PureValue(CoreType::Number, context, hash), mSpecial(special) {
    const auto limbs = static_cast<std::size_t>(std::abs(number->_mp_size));
    if (precision <= kLimbBits && limbs < kShortLimbs) {
        // GMP never moves the limbs of a float, so that short ones may stand in the object.
        mNumber->_mp_prec = kShortLimbs - 1;
        mNumber->_mp_d = mShortLimbs;
    } else {
        mpf_init2(mNumber, std::max(precision, limbs * kLimbBits));
    }
    mpf_set(mNumber, number);
}

NumberValue::~NumberValue() {
    if (mNumber->_mp_d != mShortLimbs) {
        mpf_clear(mNumber);
    }
}

NumberValueRef NumberValue::get(int value, Context *context) { return get(static_cast<long>(value), context); }

NumberValueRef NumberValue::get(long value, Context *context) {
    return NumberInterner::internShort(magnitudeOf(value), 0, value < 0, context);
}

NumberValueRef NumberValue::get(double value, Context *context) {
    if (std::isnan(value)) {
        return NumberInterner::internSpecial(kNaN, context);
    }
    if (std::isinf(value)) {
        return NumberInterner::internSpecial(value > 0 ? kPlusInfinity : kMinusInfinity, context);
    }
    if (value == 0 && std::signbit(value)) {
        return NumberInterner::internSpecial(kMinusZero, context);
    }
    constexpr int kMantissaBits = std::numeric_limits<double>::digits;
    int exponent = 0;
    const double mantissa = std::frexp(std::fabs(value), &exponent);
    return NumberInterner::internShort(static_cast<std::uint64_t>(std::ldexp(mantissa, kMantissaBits)),
                                       exponent - kMantissaBits, value < 0, context);
}

NumberValueRef NumberValue::get(const mpz_t value, Context *context) { return fromMPZ(value, 0, context); }

NumberValueRef NumberValue::get(const mpf_t value, Context *context) {
    return NumberInterner::intern(false, LimbView(value), mpf_get_prec(value), context);
}

NumberValueRef NumberValue::fromInt64(std::int64_t value, unsigned int fractionBits, Context *context) {
    return NumberInterner::internShort(magnitudeOf(value), -static_cast<long>(fractionBits), value < 0, context);
}

NumberValueRef NumberValue::fromUInt64(std::uint64_t value, unsigned int fractionBits, Context *context) {
    return NumberInterner::internShort(value, -static_cast<long>(fractionBits), false, context);
}

NumberValueRef NumberValue::fromMPZ(const mpz_t value, unsigned int fractionBits, Context *context) {
    return NumberInterner::internLong(value, -static_cast<long>(fractionBits), context);
}

bool NumberValue::isNegative() const { return mpf_sgn(mNumber) < 0; }

bool NumberValue::isInteger() const {
    const LimbView view(mNumber);
    return !mSpecial && (view.isZero() || view.lowestBit() >= 0);
}

bool NumberValue::isInt() const {
    if (mSpecial) {
        return false;
    }
    const LimbView view(mNumber);
    if (view.isZero()) {
        return true;
    }
    const mp_limb_t largest = static_cast<mp_limb_t>(INT_MAX) + (view.negative ? 1 : 0);
    return view.count == 1 && view.exponent == 1 && view.limbs[0] <= largest;
}

int NumberValue::toInt() const { return static_cast<int>(mpf_get_si(mNumber)); }

std::int64_t NumberValue::toInt64(int scale) const {
    mpz_t scaled;
    mpz_init(scaled);
    toScaledMPZ(scaled, scale);
    const std::int64_t result = util::mpzToSINT(scaled);
    mpz_clear(scaled);
    return result;
}

double NumberValue::toDouble() const {
    if (!mSpecial) {
        return mpf_get_d(mNumber);
    }
    switch (toInt()) {
    case kPlusInfinity:
        return std::numeric_limits<double>::infinity();
    case kMinusInfinity:
        return -std::numeric_limits<double>::infinity();
    case kMinusZero:
        return -0.0;
    default:
        return std::numeric_limits<double>::quiet_NaN();
    }
}

void NumberValue::toMPFR(mpfr_t out) const {
    internal::useMpfrOnThisThread();
    // A float may hold one limb beyond its nominal precision.
    const std::size_t bits = LimbView(mNumber).count * kLimbBits;
    mpfr_init2(out, static_cast<mpfr_prec_t>(std::max<std::size_t>(mpf_get_prec(mNumber), bits)));
    if (!mSpecial) {
        mpfr_set_f(out, mNumber, MPFR_RNDN);
        return;
    }
    switch (toInt()) {
    case kPlusInfinity:
    case kMinusInfinity:
        mpfr_set_inf(out, toInt());
        return;
    case kMinusZero:
        mpfr_set_zero(out, -1);
        return;
    default:
        mpfr_set_nan(out);
    }
}

int NumberValue::toUpscaledMPZ(mpz_t out, bool minimal) const {
    const LimbView view(mNumber);
    if (view.isZero()) {
        mpz_set_ui(out, 0);
        return 0;
    }
    // The nominal precision may not reach down to the last bit of a small fraction; the result is exact all the same.
    const long needed = -view.lowestBit();
    const long fractionBits = minimal ? needed : std::max(needed, static_cast<long>(mpf_get_prec(mNumber)));
    const int result = narrow(fractionBits, "the fraction of a number is too long to be written as an integer");
    setShifted(out, view, fractionBits);
    return result;
}

void NumberValue::toScaledMPZ(mpz_t out, int scale) const { setShifted(out, LimbView(mNumber), scale); }

std::pair<int, int> NumberValue::getBitWidths() const {
    const LimbView view(mNumber);
    if (view.isZero()) {
        return {1, 0};
    }
    // A negative odd integer -m needs the bits of m - 1, which are as many as those of m (but for m = 1, where 0 counts
    // as one bit), and one for the sign.
    const long integerBits = view.bitExponent() + (view.negative ? 1 : 0);
    const char *detail = "the width of a number is out of bounds";
    return {narrow(integerBits, detail), narrow(-view.lowestBit(), detail)};
}

std::string NumberValue::toString(int base, int digits) const {
    ORVO_ASSERT(base == 2 || base == 10 || base == 16, "numbers are printed in base 2, 10 or 16");
    ORVO_ASSERT(digits >= 0, "the number of digits must not be negative");
    if (mSpecial) {
        const int code = toInt();
        const auto *word = std::find_if(std::begin(kSpecialWords), std::end(kSpecialWords),
                                        [code](const SpecialWord &special) { return special.code == code; });
        return std::string(word->text);
    }
    if (isInt()) {
        std::array<char, 16> text;
        const auto result = std::to_chars(text.data(), text.data() + text.size(), toInt());
        return {text.data(), result.ptr};
    }
    const LimbView view(mNumber);
    long exponent = 0;
    const std::string all =
        base == 16 && digits == 0 ? hexDigits(view, exponent) : digitsOf(mNumber, base, digits, exponent);
    return floatingText(view.negative, all, exponent, base);
}

void NumberValue::print(std::ostream &out, int base, int digits) const {
    const std::string text = toString(base, digits);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void NumberValue::print(std::ostream &out) const { print(out, 16, 0); }

const ValueMetaData &NumberValue::getMetaData() const { return internal::numberMetaData(); }

bool NumberValue::deepBefore(const Value *other) const { return before(other); }

bool NumberValue::before(const Value *other) const {
    const auto *theirs = static_cast<const NumberValue *>(other);
    return mSpecial != theirs->mSpecial ? theirs->mSpecial : mpf_cmp(mNumber, theirs->mNumber) < 0;
}

Value *NumberValue::createOnHeap() {
    return new NumberValue(mSpecial, mNumber, mpf_get_prec(mNumber), context(), hash());
}

ValueRef NumberValue::parse(Context *context, std::istream &in) {
    NumberValueRef number = NumberReader(*in.rdbuf(), context).read();
    if (!number) {
        in.setstate(std::ios::failbit);
    }
    return number;
}

} // namespace orvo
