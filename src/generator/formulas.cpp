// Costs of pieces of logic by their widths.
#include "generator/formulas.h"

#include <device/devicetable.h>
#include <orvo/logging.h>

#include <algorithm>
#include <limits>

namespace orvo::generator {

namespace {

/// Bits that one stage of a carry chain takes.
constexpr Count kCarryBits = 32;
/// Entries up to which a table is built of logic.
constexpr Count kLogicTableWords = 64;
/// Bits from which on a row of registers goes into memory, unless the options say otherwise, if it is as long as one
/// pays.
constexpr Count kDelayMemoryBits = 512;
constexpr Count kDelayMemoryLength = 16;
/// Address bits of the tables of coefficients, and bits of precision that each degree of a polynomial adds.
constexpr Count kFunctionTableWords = 256;
constexpr Count kBitsPerDegree = 12;

} // namespace

Count plus(Count a, Count b) {
    Count sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<Count>::max() : sum;
}

Count times(Count a, Count b) {
    Count product = 0;
    return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<Count>::max() : product;
}

Count ceilDiv(Count a, Count b) { return a / b + (a % b != 0 ? 1 : 0); }

int log2Ceil(Count count) {
    int steps = 0;
    for (Count left = count; left > 1; left = ceilDiv(left, 2)) {
        ++steps;
    }
    return steps;
}

Usage beside(const Usage &a, const Usage &b) {
    Usage both = behind(a, b);
    both.latency = std::max(a.latency, b.latency);
    return both;
}

Usage largest(const Usage &a, const Usage &b) {
    Usage most;
    most.luts = std::max(a.luts, b.luts);
    most.multipliers = std::max(a.multipliers, b.multipliers);
    most.memoryBlocks = std::max(a.memoryBlocks, b.memoryBlocks);
    most.memoryBits = std::max(a.memoryBits, b.memoryBits);
    most.latency = std::max(a.latency, b.latency);
    return most;
}

Usage behind(const Usage &a, const Usage &b) {
    Usage both;
    both.luts = plus(a.luts, b.luts);
    both.multipliers = plus(a.multipliers, b.multipliers);
    both.memoryBlocks = plus(a.memoryBlocks, b.memoryBlocks);
    both.memoryBits = plus(a.memoryBits, b.memoryBits);
    both.latency = plus(a.latency, b.latency);
    return both;
}

Usage copies(const Usage &usage, Count count) {
    Usage all;
    all.luts = times(usage.luts, count);
    all.multipliers = times(usage.multipliers, count);
    all.memoryBlocks = times(usage.memoryBlocks, count);
    all.memoryBits = times(usage.memoryBits, count);
    all.latency = usage.latency;
    return all;
}

Usage logic(Count luts, Count latency) {
    Usage usage;
    usage.luts = luts;
    usage.latency = latency;
    return usage;
}

Usage adder(Count width) { return logic(width, ceilDiv(width, kCarryBits)); }

Usage reduction(Count inputs) {
    if (inputs <= 1) {
        return {};
    }
    Count stages = 0;
    for (Count left = inputs; left > 1; left = ceilDiv(left, 4)) {
        ++stages;
    }
    return logic(ceilDiv(inputs - 1, 3), stages);
}

Usage equality(Count width) {
    const Count pairs = ceilDiv(width, 2);
    const Usage tree = reduction(pairs);
    return logic(plus(pairs, tree.luts), std::max<Count>(tree.latency, width > 0 ? 1 : 0));
}

Usage multiplexer(Count inputs, Count width) {
    return inputs <= 1 ? Usage() : logic(times(inputs - 1, width), ceilDiv(log2Ceil(inputs), 2));
}

Usage shifter(Count width, Count distances) {
    const Count stages = log2Ceil(distances);
    return logic(times(stages, width), ceilDiv(stages, 2));
}

Usage logicTable(int addressBits, Count width) {
    if (addressBits <= 0) {
        return {};
    }
    const Count tables = addressBits <= 4 ? 1 : Count{1} << std::min(addressBits - 4, 40);
    return logic(times(2 * tables - 1, width), addressBits <= 4 ? 1 : 1 + ceilDiv(addressBits - 4, 2));
}

Usage leadingZeros(Count width) { return logic(width, ceilDiv(log2Ceil(width), 2)); }

Usage onesCount(Count width) { return width <= 1 ? Usage() : logic(times(2, width - 1), log2Ceil(width)); }

Usage memory(const device::Family &family, Count words, Count width) {
    Usage best;
    Count bitsOfBest = 0;
    for (const device::MemoryKind &kind : family.memories) {
        for (Count wide = kind.maxWidth; words > 0 && width > 0 && wide > 0; wide /= 2) {
            const Count blocks = times(ceilDiv(width, wide), ceilDiv(words, std::max<Count>(kind.bits / wide, 1)));
            if (best.memoryBlocks == 0 || blocks < best.memoryBlocks ||
                (blocks == best.memoryBlocks && kind.bits < bitsOfBest)) {
                best.memoryBlocks = blocks;
                bitsOfBest = kind.bits;
            }
        }
    }
    best.memoryBits = times(words, width);
    best.latency = best.memoryBlocks == 0 ? 0 : 2;
    return best;
}

Usage readOnlyTable(const device::Family &family, Count words, Count width) {
    return words <= kLogicTableWords ? logicTable(log2Ceil(words), width) : memory(family, words, width);
}

Usage delayLine(const device::Family &family, Count length, Count width, Count memoryFrom) {
    const Count bits = times(length, width);
    const bool isMemory =
        memoryFrom >= 0 ? bits >= memoryFrom && length > 2 : bits >= kDelayMemoryBits && length >= kDelayMemoryLength;
    Usage usage = isMemory ? memory(family, length, width) : logic(times(std::max<Count>(length - 1, 0), width), 0);
    if (isMemory) {
        usage.luts = times(2, log2Ceil(length));
    }
    usage.latency = length;
    return usage;
}

Count mult18PerBlock(const device::Family &family) {
    Count bits = 0;
    for (const device::MultiplierMode &mode : family.multipliers) {
        if (mode.widthA == 18 && mode.widthB == 18) {
            return mode.perBlock;
        }
        bits = std::max(bits, Count{mode.widthA} * mode.widthB * mode.perBlock);
    }
    return std::max<Count>(bits / (18 * 18), 1);
}

namespace {

/// One way to cover a product with tiles.
struct Tiling {
    Count multipliers;
    /// Products, and pieces that need none, that are added up.
    Count terms;
    Count tiles;
};

/// The best over the ways in which the family's blocks can be used, each either way round.
template <class Cover> Tiling bestTiling(const device::Family &family, Cover cover) {
    Tiling best{-1, 0, 0};
    const auto take = [&](Count a, Count b, Count perBlock) {
        Tiling one = cover(a, b);
        one.multipliers = ceilDiv(times(one.tiles, mult18PerBlock(family)), perBlock);
        if (best.multipliers < 0 || one.multipliers < best.multipliers ||
            (one.multipliers == best.multipliers && one.terms < best.terms)) {
            best = one;
        }
    };
    for (const device::MultiplierMode &mode : family.multipliers) {
        take(mode.widthA, mode.widthB, mode.perBlock);
        take(mode.widthB, mode.widthA, mode.perBlock);
    }
    ORVO_ASSERT(best.multipliers >= 0, "a family has multipliers");
    return best;
}

/// The tiles and the additions behind them: inputs, products and outputs of a block have registers.
Usage tiledProduct(const Tiling &tiling, Count width) {
    Usage usage = copies(adder(width), std::max<Count>(tiling.terms - 1, 0));
    usage.latency = (tiling.tiles > 0 ? 3 : 0) + (tiling.terms > 1 ? log2Ceil(tiling.terms) : 0);
    usage.multipliers = tiling.multipliers;
    return usage;
}

/// A number of GMP's that ends with its scope.
class Integer {
  public:
    Integer() { mpz_init(mValue); }
    ~Integer() { mpz_clear(mValue); }
    Integer(const Integer &) = delete;
    Integer &operator=(const Integer &) = delete;
    mpz_ptr get() { return mValue; }

  private:
    mpz_t mValue;
};

Count bitsOf(mpz_srcptr number) { return mpz_sgn(number) == 0 ? 0 : static_cast<Count>(mpz_sizeinbase(number, 2)); }

} // namespace

Usage hardProduct(const device::Family &family, Count widthA, Count widthB) {
    if (widthA <= 0 || widthB <= 0) {
        return {};
    }
    const Tiling best = bestTiling(family, [&](Count a, Count b) {
        const Count tiles = times(ceilDiv(widthA, a), ceilDiv(widthB, b));
        return Tiling{0, tiles, tiles};
    });
    return tiledProduct(best, widthA + widthB);
}

Usage logicProduct(Count widthA, Count widthB) {
    if (widthA <= 0 || widthB <= 0) {
        return {};
    }
    return logic(times(widthA, widthB), std::max(log2Ceil(std::min(widthA, widthB)), 1));
}

Usage hardProductBy(const device::Family &family, Count width, mpz_srcptr constant) {
    const Count bits = bitsOf(constant);
    Integer magnitude;
    Integer piece;
    mpz_abs(magnitude.get(), constant);
    const Tiling best = bestTiling(family, [&](Count a, Count b) {
        Tiling tiling{0, 0, 0};
        for (Count at = 0; at < bits; at += b) {
            mpz_fdiv_q_2exp(piece.get(), magnitude.get(), static_cast<mp_bitcnt_t>(at));
            mpz_fdiv_r_2exp(piece.get(), piece.get(), static_cast<mp_bitcnt_t>(b));
            const mp_bitcnt_t ones = mpz_popcount(piece.get());
            const Count tiles = ones > 1 ? ceilDiv(width, a) : 0;
            tiling.tiles += tiles;
            tiling.terms += ones == 1 ? 1 : tiles;
        }
        return tiling;
    });
    const Usage product = tiledProduct(best, width + bits);
    // A hard multiplier takes the sign; shifts alone do not.
    return best.tiles == 0 && mpz_sgn(constant) < 0 ? behind(product, adder(width + bits)) : product;
}

std::vector<SignedDigit> canonicalDigits(mpz_srcptr number) {
    // A digit stands where 3n and n differ: positive where the bit is that of 3n.
    Integer single;
    Integer triple;
    mpz_abs(single.get(), number);
    mpz_mul_ui(triple.get(), single.get(), 3);
    std::vector<SignedDigit> digits;
    for (mp_bitcnt_t at = 1; at < mpz_sizeinbase(triple.get(), 2); ++at) {
        const bool inSingle = mpz_tstbit(single.get(), at) != 0;
        const bool inTriple = mpz_tstbit(triple.get(), at) != 0;
        if (inSingle != inTriple) {
            digits.push_back({static_cast<Count>(at) - 1, inSingle != (mpz_sgn(number) < 0)});
        }
    }
    return digits;
}

Usage shiftAddProductBy(Count width, mpz_srcptr constant) {
    const std::vector<SignedDigit> digits = canonicalDigits(constant);
    if (digits.empty()) {
        return {};
    }
    Usage usage;
    // Of the sum so far, from the lowest digit up. It begins with the operand itself: as long as all digits are
    // negative, the sum is held negated.
    Count sum = width;
    bool isHeldNegated = digits.front().isNegative;
    for (std::size_t i = 1; i < digits.size(); ++i) {
        const Count shift = digits[i].position - digits.front().position;
        const bool isTurned = isHeldNegated && !digits[i].isNegative;
        isHeldNegated = isHeldNegated && !isTurned;
        // Between digits are zeros, so that the sum has the sign of its highest digit and hardly reaches above it: not
        // at all where it is a difference.
        const bool isSum = digits[i].isNegative == digits[i - 1].isNegative;
        const bool hasSign = digits[i].isNegative && !isHeldNegated;
        const Count above = width + (isSum ? 1 : 0) + (hasSign ? 1 : 0);
        // Bits of the sum below the digit pass by the adder, unless it subtracts them: then it takes all of them and
        // the sign, of which those between are copies.
        const Count below = isTurned ? std::min(shift, sum + 1) : 0;
        usage = behind(usage, adder(below + above));
        sum = shift + above;
    }
    return isHeldNegated ? behind(usage, adder(sum + 1)) : usage;
}

Usage softFloatAdder(const FloatFormat &format) {
    const Count wide = format.significand + 3;
    const Usage swap = logic(format.exponent + 2 * format.significand, 1);
    const Usage align = shifter(wide, wide);
    const Usage normalise = behind(leadingZeros(wide), shifter(wide, wide));
    const Usage round = logic(format.significand + 2 * format.exponent, 1);
    return behind(behind(behind(swap, align), behind(adder(wide + 1), normalise)), round);
}

Usage softFloatProduct(const device::Family &family, const FloatFormat &format) {
    const Usage product = hardProduct(family, format.significand, format.significand);
    return behind(product, logic(format.significand + 3 * format.exponent, 1));
}

Usage digitRecurrence(Count resultBits, Count width) { return logic(times(resultBits, width), resultBits); }

Usage tabledFunction(const device::Family &family, Count precision) {
    const Count degree = std::max<Count>(ceilDiv(precision, kBitsPerDegree), 1);
    const Usage table = memory(family, kFunctionTableWords, times(degree + 1, precision));
    const Usage step = behind(hardProduct(family, precision, precision), adder(precision));
    Usage steps = copies(step, degree);
    steps.latency = times(step.latency, degree);
    return behind(table, steps);
}

} // namespace orvo::generator
