// Signals over time.
#include "driver/waveform.h"

#include "driver/floattext.h"

#include <util/random.h>

#include <gmp.h>

#include <algorithm>
#include <charconv>
#include <iterator>

namespace orvo::driver {

namespace {

/// An integer of GMP that ends itself.
struct Integer {
    Integer() { mpz_init(value); }
    ~Integer() { mpz_clear(value); }
    Integer(const Integer &) = delete;
    Integer &operator=(const Integer &) = delete;
    mpz_t value;
};

std::size_t wordCount(const sim::Scalar &scalar) { return std::max<std::size_t>((scalar.width + 63) / 64, 1); }

void integerOf(const sim::Scalar &scalar, const Words &words, mpz_ptr value) {
    mpz_import(value, words.size(), -1, sizeof(std::uint64_t), 0, 0, words.data());
    if (scalar.isSigned && static_cast<std::int64_t>(words.back()) < 0) {
        Integer span;
        mpz_setbit(span.value, words.size() * 64);
        mpz_sub(value, value, span.value);
    }
}

Words wordsOf(const sim::Scalar &scalar, mpz_srcptr value) {
    Words words(wordCount(scalar));
    Integer pattern;
    mpz_fdiv_r_2exp(pattern.value, value, words.size() * 64);
    mpz_export(words.data(), nullptr, -1, sizeof(std::uint64_t), 0, 0, pattern.value);
    return words;
}

std::string decimal(mpz_srcptr value) {
    std::string text(mpz_sizeinbase(value, 10) + 2, '\0');
    mpz_get_str(text.data(), 10, value);
    text.resize(text.find('\0'));
    return text;
}

void clampTo(const sim::Scalar &scalar, mpz_ptr value) {
    Integer high;
    Integer low;
    const std::uint32_t bits = scalar.isSigned ? std::max(scalar.width, 1U) - 1 : scalar.width;
    mpz_setbit(high.value, bits);
    mpz_sub_ui(high.value, high.value, 1);
    if (scalar.isSigned) {
        mpz_com(low.value, high.value);
    }
    if (mpz_cmp(value, high.value) > 0) {
        mpz_set(value, high.value);
    } else if (mpz_cmp(value, low.value) < 0) {
        mpz_set(value, low.value);
    }
}

/// A decimal number as digits over a power of ten.
struct Decimal {
    bool isNegative = false;
    std::string digits;
    long places = 0;
};

/// Longer numbers are no stimulus.
constexpr std::size_t kMostDigits = 10000;

std::optional<Decimal> readDecimal(const std::string &text) {
    Decimal number;
    std::size_t at = 0;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        number.isNegative = text[at++] == '-';
    }
    bool isBehindPoint = false;
    for (; at < text.size(); ++at) {
        if (text[at] == '.' && !isBehindPoint) {
            isBehindPoint = true;
        } else if (text[at] >= '0' && text[at] <= '9') {
            number.digits += text[at];
            number.places += isBehindPoint ? 1 : 0;
        } else {
            break;
        }
    }
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        at += at + 1 < text.size() && text[at + 1] == '+' ? 2 : 1;
        int exponent = 0;
        const auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), exponent);
        if (error != std::errc() || std::abs(exponent) > static_cast<int>(kMostDigits)) {
            return std::nullopt;
        }
        number.places -= exponent;
        at = static_cast<std::size_t>(end - text.data());
    }
    const bool isWhole = at == text.size() && !number.digits.empty() && number.digits.size() <= kMostDigits;
    return isWhole ? std::optional(number) : std::nullopt;
}

class Noise final : public Stimulus {
  public:
    Noise(std::uint64_t seed, const std::vector<sim::Scalar> &inputs) : mSeed(seed), mInputs(inputs) {}
    Words at(std::uint64_t cycle, std::size_t input) override {
        Words words(wordCount(mInputs[input]));
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = util::SplitMix::at(util::SplitMix::at(mSeed, cycle), input * 4096 + i);
        }
        return words;
    }

  private:
    std::uint64_t mSeed;
    const std::vector<sim::Scalar> &mInputs;
};

class Impulse final : public Stimulus {
  public:
    explicit Impulse(const std::vector<sim::Scalar> &inputs) : mInputs(inputs) {}
    Words at(std::uint64_t cycle, std::size_t input) override {
        return cycle == 0 ? *parseValue(mInputs[input], "1", false) : Words(wordCount(mInputs[input]));
    }

  private:
    const std::vector<sim::Scalar> &mInputs;
};

class Ramp final : public Stimulus {
  public:
    explicit Ramp(const std::vector<sim::Scalar> &inputs) : mInputs(inputs) {}
    Words at(std::uint64_t cycle, std::size_t input) override {
        const sim::Scalar &scalar = mInputs[input];
        if (scalar.exponent != 0) {
            return *parseFloat(scalar, std::to_string(cycle));
        }
        Integer value;
        if (scalar.isSigned && scalar.width != 0) {
            mpz_setbit(value.value, scalar.width - 1);
            mpz_neg(value.value, value.value);
        }
        mpz_add_ui(value.value, value.value, cycle);
        return wordsOf(scalar, value.value);
    }

  private:
    const std::vector<sim::Scalar> &mInputs;
};

/// The least or the largest finite number of either sign.
Words extremeFloat(const sim::Scalar &scalar, bool isNegative, bool isLargest) {
    Integer bits;
    if (isLargest) {
        // All ones below the sign, but for the lowest bit of the exponent.
        mpz_setbit(bits.value, scalar.width - 1);
        mpz_sub_ui(bits.value, bits.value, 1);
        mpz_clrbit(bits.value, scalar.width - 1 - scalar.exponent);
    } else {
        mpz_set_ui(bits.value, 1);
    }
    if (isNegative) {
        mpz_setbit(bits.value, scalar.width - 1);
    }
    return wordsOf(scalar, bits.value);
}

class Corners final : public Stimulus {
  public:
    explicit Corners(const std::vector<sim::Scalar> &inputs) : mInputs(inputs) {}
    Words at(std::uint64_t cycle, std::size_t input) override {
        const sim::Scalar &scalar = mInputs[input];
        const std::uint64_t drawn = util::SplitMix::at(util::SplitMix::at(7, cycle), input);
        if (scalar.exponent != 0) {
            constexpr const char *corners[] = {"0", "-0", "1", "-1", "inf", "-inf", "nan"};
            const std::uint64_t kind = drawn % (std::size(corners) + 4);
            return kind < std::size(corners)
                       ? *parseFloat(scalar, corners[kind])
                       : extremeFloat(scalar, kind % 2 != 0, (kind - std::size(corners)) / 2 != 0);
        }
        Integer value;
        switch (drawn % 5) {
        case 0:
            break;
        case 1:
            mpz_set_si(value.value, 1);
            break;
        case 2:
            mpz_set_si(value.value, -1);
            break;
        case 3:
            mpz_setbit(value.value, scalar.width);
            clampTo(scalar, value.value);
            break;
        default:
            mpz_setbit(value.value, scalar.width);
            mpz_neg(value.value, value.value);
            clampTo(scalar, value.value);
        }
        return wordsOf(scalar, value.value);
    }

  private:
    const std::vector<sim::Scalar> &mInputs;
};

/// The short name of a variable in a dump: printable characters, the first ones used first.
std::string identifier(std::size_t number) {
    constexpr std::size_t kFirst = 33;
    constexpr std::size_t kCount = 94;
    std::string text;
    do {
        text += static_cast<char>(kFirst + number % kCount);
        number /= kCount;
    } while (number-- > 0);
    return text;
}

} // namespace

std::string valueText(const sim::Scalar &scalar, const Words &words, bool raw) {
    if (scalar.exponent != 0 && !raw) {
        return floatText(scalar, words);
    }
    Integer value;
    integerOf(scalar, words, value.value);
    if (raw || scalar.fraction == 0) {
        return decimal(value.value);
    }
    if (scalar.fraction < 0) {
        mpz_mul_2exp(value.value, value.value, static_cast<unsigned>(-scalar.fraction));
        return decimal(value.value);
    }
    // n / 2^f is n * 5^f / 10^f.
    const bool isNegative = mpz_sgn(value.value) < 0;
    Integer power;
    mpz_ui_pow_ui(power.value, 5, static_cast<unsigned>(scalar.fraction));
    mpz_mul(value.value, value.value, power.value);
    mpz_abs(value.value, value.value);
    std::string digits = decimal(value.value);
    const auto places = static_cast<std::size_t>(scalar.fraction);
    if (digits.size() <= places) {
        digits = std::string(places + 1 - digits.size(), '0') + digits;
    }
    digits.insert(digits.end() - static_cast<std::ptrdiff_t>(places), '.');
    digits.erase(digits.find_last_not_of('0') + 1);
    if (digits.back() == '.') {
        digits.pop_back();
    }
    return isNegative ? '-' + digits : digits;
}

std::string bitsText(const sim::Scalar &scalar, const Words &words, const Words &unknown) {
    const auto isSet = [](const Words &of, std::size_t bit) { return (of[bit / 64] >> (bit % 64) & 1U) != 0; };
    std::string bits;
    for (std::size_t bit = std::max(scalar.width, 1U); bit-- > 0;) {
        bits += isSet(unknown, bit) ? 'x' : isSet(words, bit) ? '1' : '0';
    }
    return bits;
}

std::string valueText(const sim::Scalar &scalar, const Words &words, const Words &unknown, bool raw) {
    if (std::all_of(unknown.begin(), unknown.end(), [](std::uint64_t word) { return word == 0; })) {
        return valueText(scalar, words, raw);
    }
    const std::string bits = bitsText(scalar, words, unknown);
    return bits.find_first_not_of('x') == std::string::npos ? "x" : "0b" + bits;
}

std::optional<Words> parseValue(const sim::Scalar &scalar, const std::string &text, bool raw) {
    if (scalar.exponent != 0 && !raw) {
        return parseFloat(scalar, text);
    }
    const std::optional<Decimal> number = readDecimal(text);
    if (!number || (raw && number->places > 0)) {
        return std::nullopt;
    }
    Integer value;
    Integer divisor;
    mpz_set_str(value.value, number->digits.c_str(), 10);
    mpz_set_ui(divisor.value, 1);
    Integer power;
    mpz_ui_pow_ui(power.value, 10, static_cast<unsigned long>(std::labs(number->places)));
    mpz_ptr scaled = number->places > 0 ? divisor.value : value.value;
    mpz_mul(scaled, scaled, power.value);
    if (!raw) {
        mpz_ptr shifted = scalar.fraction >= 0 ? value.value : divisor.value;
        mpz_mul_2exp(shifted, shifted, static_cast<unsigned>(std::abs(scalar.fraction)));
        // Halves away from zero: the magnitude and half of the divisor, cut.
        mpz_mul_2exp(value.value, value.value, 1);
        mpz_add(value.value, value.value, divisor.value);
        mpz_mul_2exp(divisor.value, divisor.value, 1);
        mpz_fdiv_q(value.value, value.value, divisor.value);
    }
    if (number->isNegative) {
        mpz_neg(value.value, value.value);
    }
    if (!raw) {
        clampTo(scalar, value.value);
    }
    return wordsOf(scalar, value.value);
}

Stimulus::~Stimulus() = default;

std::unique_ptr<Stimulus> makeStimulus(const std::string &name, const std::vector<sim::Scalar> &inputs) {
    const std::string seeded = "noise:seed=";
    if (name == "noise") {
        return std::make_unique<Noise>(1, inputs);
    }
    if (name.compare(0, seeded.size(), seeded) == 0) {
        std::uint64_t seed = 0;
        const char *end = name.data() + name.size();
        const auto result = std::from_chars(name.data() + seeded.size(), end, seed);
        return result.ec == std::errc() && result.ptr == end ? std::make_unique<Noise>(seed, inputs) : nullptr;
    }
    if (name == "impulse") {
        return std::make_unique<Impulse>(inputs);
    }
    if (name == "ramp") {
        return std::make_unique<Ramp>(inputs);
    }
    return name == "corners" ? std::make_unique<Corners>(inputs) : nullptr;
}

ChangeDump::ChangeDump(std::ostream &out, const std::string &top, const std::vector<sim::Scalar> &scalars)
    : mOut(out), mScalars(scalars), mLast(scalars.size()) {
    const auto word = [](std::string text) {
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c == ' ' || c == '\t'; }, '_');
        return text;
    };
    mOut << "$timescale 1 ns $end\n$scope module " << word(top) << " $end\n";
    for (std::size_t i = 0; i < scalars.size(); ++i) {
        mOut << "$var wire " << std::max(scalars[i].width, 1U) << " " << identifier(i) << " " << word(scalars[i].name)
             << " $end\n";
    }
    mOut << "$upscope $end\n$enddefinitions $end\n";
}

void ChangeDump::cycle(std::uint64_t cycle, const std::vector<Sample> &samples) {
    bool isFirst = true;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (samples[i] == mLast[i]) {
            continue;
        }
        if (isFirst) {
            mOut << "#" << cycle << "\n";
            isFirst = false;
        }
        mOut << "b" << bitsText(mScalars[i], samples[i].bits, samples[i].unknown) << " " << identifier(i) << "\n";
        mLast[i] = samples[i];
    }
}

} // namespace orvo::driver
