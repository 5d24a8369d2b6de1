// Kernels over three kinds of integers. A kernel never overflows: its kind was picked by the width that its longest
// intermediate value takes.
#include "sim/kernels.h"

#include "sim/bigint.h"

#include <algorithm>
#include <array>
#include <bit>

namespace orvo::sim {

namespace {

using Word = std::uint64_t;
using Int64 = std::int64_t;
using Int128 = __int128;

template <class I> I load(const Word *words, const Operand &operand);

template <> Int64 load<Int64>(const Word *words, const Operand &operand) {
    return static_cast<Int64>(words[operand.at]);
}

template <> Int128 load<Int128>(const Word *words, const Operand &operand) {
    if (operand.width <= 64) {
        const Word word = words[operand.at];
        return operand.isSigned ? static_cast<Int128>(static_cast<Int64>(word)) : static_cast<Int128>(word);
    }
    return static_cast<Int128>((static_cast<unsigned __int128>(words[operand.at + 1]) << 64U) | words[operand.at]);
}

template <> BigInt load<BigInt>(const Word *words, const Operand &operand) {
    BigInt value;
    const std::uint32_t count = wordsFor(operand.width);
    mpz_import(value.get(), count, -1, sizeof(Word), 0, 0, words + operand.at);
    if (operand.isSigned && operand.width != 0 && static_cast<Int64>(words[operand.at + count - 1]) < 0) {
        BigInt span(1);
        value -= span <<= count * 64;
    }
    return value;
}

/// Cuts a value to a width, as two's complement or as a plain pattern.
template <class I> I wrap(I value, std::uint32_t width, bool isSigned) {
    if constexpr (std::is_same_v<I, BigInt>) {
        BigInt rest;
        mpz_fdiv_r_2exp(rest.get(), value.get(), width);
        if (isSigned && width != 0 && mpz_tstbit(rest.get(), width - 1) != 0) {
            rest -= BigInt(1) << width;
        }
        return rest;
    } else {
        constexpr std::uint32_t bits = sizeof(I) * 8;
        if (width == 0) {
            return 0;
        }
        if (width >= bits) {
            return value;
        }
        using Unsigned = std::conditional_t<std::is_same_v<I, Int64>, Word, unsigned __int128>;
        const std::uint32_t places = bits - width;
        const Unsigned high = static_cast<Unsigned>(value) << places;
        return isSigned ? static_cast<I>(high) >> places : static_cast<I>(high >> places);
    }
}

/// Clears what lies above an unsigned value of several words.
void clearAbove(Word *words, const Operand &out) {
    if (!out.isSigned && out.width % 64 != 0) {
        words[out.at + out.width / 64] &= (Word{1} << (out.width % 64)) - 1;
    }
}

template <class I> void store(Word *words, const Operand &out, I value) {
    value = wrap<I>(std::move(value), out.width, out.isSigned);
    if constexpr (std::is_same_v<I, Int64>) {
        words[out.at] = static_cast<Word>(value);
        // A word holds what a narrow kind computed; the others are its sign.
        for (std::uint32_t i = 1; i < wordsFor(out.width); ++i) {
            words[out.at + i] = value < 0 ? ~Word{0} : 0;
        }
        if (out.width > 64) {
            clearAbove(words, out);
        }
    } else if constexpr (std::is_same_v<I, Int128>) {
        words[out.at] = static_cast<Word>(value);
        for (std::uint32_t i = 1; i < wordsFor(out.width); ++i) {
            words[out.at + i] = i == 1 ? static_cast<Word>(value >> 64) : value < 0 ? ~Word{0} : 0;
        }
        if (out.width > 64) {
            clearAbove(words, out);
        }
    } else {
        const std::uint32_t count = wordsFor(out.width);
        BigInt pattern;
        mpz_fdiv_r_2exp(pattern.get(), value.get(), count * 64UL);
        std::fill(words + out.at, words + out.at + count, Word{0});
        mpz_export(words + out.at, nullptr, -1, sizeof(Word), 0, 0, pattern.get());
    }
}

/// The value as a pattern of its width: no sign.
template <class I> I loadPattern(const Word *words, const Operand &operand) {
    return wrap<I>(load<I>(words, operand), operand.width, false);
}

/// Shifts left, or right toward minus infinity.
template <class I> I shifted(I value, std::int32_t left) {
    if (left >= 0) {
        return std::move(value) << static_cast<unsigned>(left);
    }
    const auto right = static_cast<unsigned>(-left);
    if constexpr (!std::is_same_v<I, BigInt>) {
        constexpr unsigned most = sizeof(I) * 8 - 1;
        return value >> std::min(right, most);
    } else {
        return std::move(value) >> right;
    }
}

template <class I> I input(const Word *words, const Operand &operand) {
    I value = shifted<I>(load<I>(words, operand), operand.shift);
    return operand.isNegated ? -std::move(value) : value;
}

template <class I> void finish(Word *words, const Op &op, I exact) {
    store<I>(words, op.out, shifted<I>(std::move(exact), -op.out.shift));
}

/// Bits of a word that holds every value of an input as it is used.
std::int64_t bitsOf(const Operand &operand) {
    return std::int64_t{operand.width} + std::max(operand.shift, 0) + (operand.isSigned ? 0 : 1) +
           (operand.isNegated ? 1 : 0);
}

std::int64_t widestInput(const Op &op) {
    std::int64_t widest = 1;
    for (std::uint32_t i = 0; i < op.count; ++i) {
        widest = std::max(widest, bitsOf(op.in[i]));
    }
    return widest;
}

/// Of three instances of a kernel, the narrowest that holds this many bits, the output's own and zeros to append.
template <class Choose> Kernel choose(const Op &op, std::int64_t bits, Choose kernel) {
    bits = std::max<std::int64_t>(bits + std::max(-op.out.shift, 0), 1);
    if (bits <= 64) {
        return kernel(Int64{});
    }
    return bits <= 128 ? kernel(Int128{}) : kernel(BigInt{});
}

std::int64_t bitLength(std::uint64_t count) { return static_cast<std::int64_t>(std::bit_width(count)); }

template <class I> void runSum(Word *words, const Op &op) {
    I sum = input<I>(words, op.in[0]);
    for (std::uint32_t i = 1; i < op.count; ++i) {
        sum += input<I>(words, op.in[i]);
    }
    finish<I>(words, op, std::move(sum));
}

template <class I> void runProductSum(Word *words, const Op &op) {
    I sum = 0;
    for (std::uint32_t i = 0; i + 1 < op.count; i += 2) {
        sum += input<I>(words, op.in[i]) * input<I>(words, op.in[i + 1]);
    }
    finish<I>(words, op, std::move(sum));
}

template <class I> void runProduct(Word *words, const Op &op) {
    I product = input<I>(words, op.in[0]);
    for (std::uint32_t i = 1; i < op.count; ++i) {
        product *= input<I>(words, op.in[i]);
    }
    finish<I>(words, op, std::move(product));
}

template <class I, Relation relation> void runCompare(Word *words, const Op &op) {
    const I a = input<I>(words, op.in[0]);
    const I b = input<I>(words, op.in[1]);
    bool holds = false;
    switch (relation) {
    case Relation::Equal:
        holds = a == b;
        break;
    case Relation::NotEqual:
        holds = !(a == b);
        break;
    case Relation::GreaterEqual:
        holds = a >= b;
        break;
    case Relation::Less:
        holds = a < b;
        break;
    }
    store<Int64>(words, op.out, holds ? 1 : 0);
}

template <class I> void runExtreme(Word *words, const Op &op) {
    I best = input<I>(words, op.in[0]);
    for (std::uint32_t i = 1; i < op.count; ++i) {
        I other = input<I>(words, op.in[i]);
        if (op.aux != 0 ? other > best : other < best) {
            best = std::move(other);
        }
    }
    finish<I>(words, op, std::move(best));
}

template <class I, Logic logic> I combined(I a, const I &b) {
    switch (logic) {
    case Logic::And:
        return std::move(a) & b;
    case Logic::Or:
        return std::move(a) | b;
    case Logic::Xor:
        return std::move(a) ^ b;
    }
    return a;
}

template <class I, Logic logic> void runLogic(Word *words, const Op &op) {
    I value = input<I>(words, op.in[0]);
    for (std::uint32_t i = 1; i < op.count; ++i) {
        value = combined<I, logic>(std::move(value), input<I>(words, op.in[i]));
    }
    finish<I>(words, op, op.aux != 0 ? ~std::move(value) : std::move(value));
}

int onesIn(const Word *words, const Operand &operand) {
    int ones = 0;
    for (std::uint32_t i = 0; i < wordsFor(operand.width); ++i) {
        const std::uint32_t left = operand.width - i * 64;
        const Word mask = left >= 64 ? ~Word{0} : (Word{1} << left) - 1;
        ones += std::popcount(words[operand.at + i] & mask);
    }
    return ones;
}

template <Logic logic> void runReduce(Word *words, const Op &op) {
    const int ones = onesIn(words, op.in[0]);
    bool bit = false;
    switch (logic) {
    case Logic::And:
        bit = ones == static_cast<int>(op.in[0].width);
        break;
    case Logic::Or:
        bit = ones != 0;
        break;
    case Logic::Xor:
        bit = ones % 2 != 0;
        break;
    }
    // The raw bit, whatever the sign of the output.
    store<Int64>(words, op.out, bit != (op.aux != 0) ? 1 : 0);
}

/// What no rule settles: the input of the output's type that stands for it, zero if there is none.
void giveUnknown(Word *words, const Op &op, std::uint32_t input) {
    const std::uint32_t count = wordsFor(op.out.width);
    if (input < op.count) {
        std::copy_n(words + op.in[input].at, count, words + op.out.at);
    } else {
        std::fill_n(words + op.out.at, count, Word{0});
    }
}

template <class I> void runMux(Word *words, const Op &op) {
    const Operand &select = op.in[0];
    bool isBeyond = false;
    for (std::uint32_t i = 1; i < wordsFor(select.width); ++i) {
        const Operand high{select.at + i, std::min(select.width - i * 64, 64U), false, false, 0};
        isBeyond = isBeyond || loadPattern<Int64>(words, high) != 0;
    }
    const Word number =
        static_cast<Word>(wrap<Int128>(static_cast<Int128>(words[select.at]), std::min(select.width, 64U), false));
    const std::uint32_t data = op.count - 1 - (op.aux != 0 ? 1 : 0);
    if (isBeyond || number >= data) {
        giveUnknown(words, op, 1 + data);
    } else {
        finish<I>(words, op, input<I>(words, op.in[1 + number]));
    }
}

void runCountOnes(Word *words, const Op &op) { store<Int64>(words, op.out, onesIn(words, op.in[0])); }

template <class I> void runReverse(Word *words, const Op &op) {
    I pattern = loadPattern<I>(words, op.in[0]);
    I turned = 0;
    for (std::uint32_t i = 0; i < op.in[0].width; ++i) {
        turned = (std::move(turned) << 1U) | (pattern & I(1));
        pattern = std::move(pattern) >> 1U;
    }
    store<I>(words, op.out, std::move(turned));
}

template <class I> void runJoin(Word *words, const Op &op) {
    I joined = 0;
    for (std::uint32_t i = op.count; i-- > 0;) {
        joined = (std::move(joined) << op.in[i].width) | loadPattern<I>(words, op.in[i]);
    }
    store<I>(words, op.out, std::move(joined));
}

/// Takes `bits` low bits off, by the rounding; below zero, appends zeros.
template <class I, Rounding rounding> I rounded(I value, std::int32_t bits) {
    if (bits <= 0) {
        return shifted<I>(std::move(value), -bits);
    }
    const I down = shifted<I>(value, -bits);
    const I rest = value - shifted<I>(down, bits);
    const I half = shifted<I>(I(1), bits - 1);
    bool isUp = false;
    switch (rounding) {
    case Rounding::Floor:
        break;
    case Rounding::ToZero:
        isUp = value < I(0) && rest > I(0);
        break;
    case Rounding::HalfUp:
        isUp = rest >= half;
        break;
    case Rounding::HalfEven:
        isUp = rest > half || (rest == half && (down & I(1)) == I(1));
        break;
    case Rounding::HalfAway:
        isUp = rest > half || (rest == half && value > I(0));
        break;
    case Rounding::Ceiling:
        isUp = rest > I(0);
        break;
    }
    return isUp ? down + I(1) : down;
}

template <class I> struct Range {
    I low;
    I high;
};

template <class I, Saturation saturation> Range<I> rangeOf(std::uint32_t width, bool isSigned) {
    const std::uint32_t magnitude = isSigned ? width - 1 : width;
    const I high = shifted<I>(I(1), static_cast<std::int32_t>(magnitude)) - I(1);
    const I low = !isSigned ? I(0) : saturation == Saturation::Symmetric ? -I(high) : -I(high) - I(1);
    return {low, high};
}

template <class I, Rounding rounding, Saturation saturation> void runCast(Word *words, const Op &op) {
    I value = rounded<I, rounding>(input<I>(words, op.in[0]), op.out.shift);
    if constexpr (saturation != Saturation::Wrap) {
        if (op.out.width != 0) {
            const Range<I> range = rangeOf<I, saturation>(op.out.width, op.out.isSigned);
            value = value < range.low ? range.low : value > range.high ? range.high : value;
        }
    }
    store<I>(words, op.out, std::move(value));
}

constexpr std::int32_t kSignedRange = 1 << 24;

template <class I, Rounding rounding, Saturation saturation> void runClip(Word *words, const Op &op) {
    const I value = rounded<I, rounding>(input<I>(words, op.in[0]), op.out.shift);
    bool clips = false;
    if constexpr (saturation != Saturation::Wrap) {
        const auto width = static_cast<std::uint32_t>(op.aux & (kSignedRange - 1));
        if (width != 0) {
            const Range<I> range = rangeOf<I, saturation>(width, (op.aux & kSignedRange) != 0);
            clips = value < range.low || value > range.high;
        }
    }
    store<Int64>(words, op.out, clips ? 1 : 0);
}

template <class I> void runDivide(Word *words, const Op &op) {
    const I divisor = input<I>(words, op.in[1]);
    if (divisor == I(0)) {
        giveUnknown(words, op, 2);
        return;
    }
    store<I>(words, op.out, input<I>(words, op.in[0]) / divisor);
}

template <class I> void runModulo(Word *words, const Op &op) {
    const I divisor = input<I>(words, op.in[1]);
    if (divisor == I(0)) {
        giveUnknown(words, op, 2);
        return;
    }
    I rest = input<I>(words, op.in[0]) % divisor;
    if (rest < I(0)) {
        rest += divisor < I(0) ? -I(divisor) : divisor;
    }
    store<I>(words, op.out, std::move(rest));
}

/// Beyond this many places a shift gives the same as this many: zeros on the left, the sign on the right.
std::uint32_t farthestShift(const Op &op) {
    return op.in[0].width + op.out.width + static_cast<std::uint32_t>(std::abs(op.out.shift)) + 1;
}

std::uint32_t shiftOf(const Word *words, const Op &op) {
    const Operand &shift = op.in[1];
    const std::uint32_t most = farthestShift(op);
    for (std::uint32_t i = 1; i < wordsFor(shift.width); ++i) {
        if (words[shift.at + i] != 0) {
            return most;
        }
    }
    const Word low = shift.width < 64 ? words[shift.at] & ((Word{1} << shift.width) - 1) : words[shift.at];
    return static_cast<std::uint32_t>(std::min<Word>(low, most));
}

template <class I> void runBarrel(Word *words, const Op &op) {
    const auto places = static_cast<std::int32_t>(shiftOf(words, op));
    I value = load<I>(words, op.in[0]);
    store<I>(words, op.out, shifted<I>(std::move(value), (op.aux != 0 ? places : -places) - op.out.shift));
}

template <class I> void runNormalise(Word *words, const Op &op) {
    const Operand &in = op.in[0];
    std::uint32_t zeros = 0;
    for (std::uint32_t bit = in.width; bit-- > 0 && (words[in.at + bit / 64] >> (bit % 64) & 1U) == 0;) {
        ++zeros;
    }
    if (op.aux == 1) {
        store<Int64>(words, op.out, zeros);
    } else {
        store<I>(words, op.out, wrap<I>(loadPattern<I>(words, in) << zeros, in.width, in.isSigned));
    }
}

template <class I, Rounding rounding> Kernel castOf(Saturation saturation, bool clip) {
    switch (saturation) {
    case Saturation::Wrap:
        return clip ? runClip<I, rounding, Saturation::Wrap> : runCast<I, rounding, Saturation::Wrap>;
    case Saturation::Symmetric:
        return clip ? runClip<I, rounding, Saturation::Symmetric> : runCast<I, rounding, Saturation::Symmetric>;
    case Saturation::Asymmetric:
        return clip ? runClip<I, rounding, Saturation::Asymmetric> : runCast<I, rounding, Saturation::Asymmetric>;
    }
    return nullptr;
}

template <class I> Kernel castOf(Rounding rounding, Saturation saturation, bool clip) {
    switch (rounding) {
    case Rounding::Floor:
        return castOf<I, Rounding::Floor>(saturation, clip);
    case Rounding::ToZero:
        return castOf<I, Rounding::ToZero>(saturation, clip);
    case Rounding::HalfUp:
        return castOf<I, Rounding::HalfUp>(saturation, clip);
    case Rounding::HalfEven:
        return castOf<I, Rounding::HalfEven>(saturation, clip);
    case Rounding::HalfAway:
        return castOf<I, Rounding::HalfAway>(saturation, clip);
    case Rounding::Ceiling:
        return castOf<I, Rounding::Ceiling>(saturation, clip);
    }
    return nullptr;
}

} // namespace

Kernel sumKernel(const Op &op) {
    return choose(op, widestInput(op) + bitLength(op.count - 1), [](auto i) -> Kernel { return runSum<decltype(i)>; });
}

Kernel productSumKernel(const Op &op) {
    std::int64_t widest = 1;
    for (std::uint32_t i = 0; i + 1 < op.count; i += 2) {
        widest = std::max(widest, bitsOf(op.in[i]) + bitsOf(op.in[i + 1]));
    }
    return choose(op, widest + bitLength(op.count / 2), [](auto i) -> Kernel { return runProductSum<decltype(i)>; });
}

Kernel productKernel(const Op &op) {
    std::int64_t bits = 0;
    for (std::uint32_t i = 0; i < op.count; ++i) {
        bits += bitsOf(op.in[i]);
    }
    return choose(op, bits, [](auto i) -> Kernel { return runProduct<decltype(i)>; });
}

Kernel compareKernel(const Op &op, Relation relation) {
    return choose(op, widestInput(op), [relation](auto i) -> Kernel {
        using I = decltype(i);
        switch (relation) {
        case Relation::Equal:
            return runCompare<I, Relation::Equal>;
        case Relation::NotEqual:
            return runCompare<I, Relation::NotEqual>;
        case Relation::GreaterEqual:
            return runCompare<I, Relation::GreaterEqual>;
        case Relation::Less:
            return runCompare<I, Relation::Less>;
        }
        return nullptr;
    });
}

Kernel extremeKernel(const Op &op) {
    return choose(op, widestInput(op), [](auto i) -> Kernel { return runExtreme<decltype(i)>; });
}

Kernel logicKernel(const Op &op, Logic logic) {
    return choose(op, widestInput(op), [logic](auto i) -> Kernel {
        using I = decltype(i);
        switch (logic) {
        case Logic::And:
            return runLogic<I, Logic::And>;
        case Logic::Or:
            return runLogic<I, Logic::Or>;
        case Logic::Xor:
            return runLogic<I, Logic::Xor>;
        }
        return nullptr;
    });
}

Kernel reduceKernel(const Op &, Logic logic) {
    switch (logic) {
    case Logic::And:
        return runReduce<Logic::And>;
    case Logic::Or:
        return runReduce<Logic::Or>;
    case Logic::Xor:
        return runReduce<Logic::Xor>;
    }
    return nullptr;
}

Kernel muxKernel(const Op &op) {
    return choose(op, widestInput(op), [](auto i) -> Kernel { return runMux<decltype(i)>; });
}

Kernel countOnesKernel(const Op &) { return runCountOnes; }

Kernel reverseKernel(const Op &op) {
    return choose(op, widestInput(op), [](auto i) -> Kernel { return runReverse<decltype(i)>; });
}

Kernel joinKernel(const Op &op) {
    std::int64_t bits = 1;
    for (std::uint32_t i = 0; i < op.count; ++i) {
        bits += op.in[i].width;
    }
    return choose(op, bits, [](auto i) -> Kernel { return runJoin<decltype(i)>; });
}

Kernel castKernel(const Op &op, Rounding rounding, Saturation saturation) {
    const std::int64_t bits = std::max(widestInput(op), std::int64_t{op.out.width} + 1) + std::max(op.out.shift, 0);
    return choose(op, bits + 1, [&](auto i) { return castOf<decltype(i)>(rounding, saturation, false); });
}

Kernel clipKernel(const Op &op, Rounding rounding, Saturation saturation) {
    const std::int64_t range = (op.aux & (kSignedRange - 1)) + 1;
    const std::int64_t bits = std::max(widestInput(op), range) + std::max(op.out.shift, 0);
    return choose(op, bits + 1, [&](auto i) { return castOf<decltype(i)>(rounding, saturation, true); });
}

Kernel divideKernel(const Op &op) {
    return choose(op, widestInput(op) + 1, [](auto i) -> Kernel { return runDivide<decltype(i)>; });
}

Kernel moduloKernel(const Op &op) {
    return choose(op, widestInput(op) + 1, [](auto i) -> Kernel { return runModulo<decltype(i)>; });
}

Kernel barrelKernel(const Op &op) {
    const std::int64_t left = op.aux != 0 ? farthestShift(op) : 0;
    return choose(op, bitsOf(op.in[0]) + left, [](auto i) -> Kernel { return runBarrel<decltype(i)>; });
}

Kernel normaliseKernel(const Op &op) {
    return choose(op, 2 * std::int64_t{op.in[0].width} + 1, [](auto i) -> Kernel { return runNormalise<decltype(i)>; });
}

} // namespace orvo::sim
