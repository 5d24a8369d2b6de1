// Costs by widths: each formula at its edges, and the digits that products by constants add up.
#include "generator/formulas.h"

#include <device/device.h>

#include <gmpxx.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>

namespace orvo::generator {
namespace {

constexpr Count kMost = std::numeric_limits<Count>::max();

const device::Family &family(const char *name) { return device::deviceFactory.GetDevice(name, "", "")->family(); }
/// Three multipliers of 9 by 9, two of 18 by 18 or one of 27 by 27 a block; memories of 640 by 20 and 8192 by 32 bits.
const device::Family &wide() { return family("Halcyon V"); }
/// Two of 9 by 9 or one of 18 by 18 a block; memories of 4096 by 36 bits.
const device::Family &small() { return family("Quillon 2"); }

Usage usage(Count luts, Count multipliers, Count blocks, Count bits, Count latency) {
    Usage all;
    all.luts = luts;
    all.multipliers = multipliers;
    all.memoryBlocks = blocks;
    all.memoryBits = bits;
    all.latency = latency;
    return all;
}

mpz_class sumOf(const std::vector<SignedDigit> &digits) {
    mpz_class sum;
    for (const SignedDigit &digit : digits) {
        mpz_class weight;
        mpz_setbit(weight.get_mpz_t(), static_cast<mp_bitcnt_t>(digit.position));
        sum += digit.isNegative ? mpz_class(-weight) : weight;
    }
    return sum;
}

Count additionsFor(long constant) {
    const mpz_class number(constant);
    return shiftAddProductBy(8, number.get_mpz_t()).luts;
}

TEST(Formulas, stopAtTheLargestCount) {
    EXPECT_EQ(plus(kMost, 1), kMost);
    EXPECT_EQ(times(kMost / 2, 3), kMost);
    EXPECT_EQ(plus(2, 3), 5);
    EXPECT_EQ(times(4, 3), 12);
    EXPECT_EQ(ceilDiv(7, 3), 3);
    EXPECT_EQ(ceilDiv(6, 3), 2);
    EXPECT_EQ(ceilDiv(kMost, 2), kMost / 2 + 1);
    EXPECT_EQ(log2Ceil(kMost), 63);
}

TEST(Formulas, takeLogarithmsUpwards) {
    const std::pair<Count, int> cases[] = {{0, 0}, {1, 0}, {2, 1}, {3, 2}, {4, 2}, {5, 3}, {1024, 10}, {1025, 11}};
    for (const auto &[count, bits] : cases) {
        EXPECT_EQ(log2Ceil(count), bits) << count;
    }
}

TEST(Formulas, addCostsAndTakeTheLongerOrBothLatencies) {
    const Usage a = usage(1, 2, 3, 4, 5);
    const Usage b = usage(10, 20, 30, 40, 2);
    EXPECT_EQ(beside(a, b), usage(11, 22, 33, 44, 5));
    EXPECT_EQ(largest(a, usage(0, 9, 0, 9, 0)), usage(1, 9, 3, 9, 5));
    EXPECT_EQ(behind(a, b), usage(11, 22, 33, 44, 7));
    EXPECT_EQ(copies(a, 3), usage(3, 6, 9, 12, 5));
}

TEST(Formulas, giveAnAdderATableABit) {
    EXPECT_EQ(adder(8), logic(8, 1));
    EXPECT_EQ(adder(32), logic(32, 1));
    EXPECT_EQ(adder(33), logic(33, 2));
    EXPECT_EQ(adder(0), logic(0, 0));
}

TEST(Formulas, reduceFourBitsATable) {
    EXPECT_EQ(reduction(1), Usage());
    EXPECT_EQ(reduction(2), logic(1, 1));
    EXPECT_EQ(reduction(4), logic(1, 1));
    EXPECT_EQ(reduction(5), logic(2, 2));
    EXPECT_EQ(reduction(16), logic(5, 2));
    EXPECT_EQ(reduction(17), logic(6, 3));
}

TEST(Formulas, compareTwoPairsOfBitsATable) {
    EXPECT_EQ(equality(1), logic(1, 1));
    EXPECT_EQ(equality(2), logic(1, 1));
    EXPECT_EQ(equality(3), logic(3, 1));
    EXPECT_EQ(equality(0), logic(0, 0));
}

TEST(Formulas, chooseAmongTwoATable) {
    EXPECT_EQ(multiplexer(1, 8), Usage());
    EXPECT_EQ(multiplexer(2, 8), logic(8, 1));
    EXPECT_EQ(multiplexer(5, 8), logic(32, 2));
}

TEST(Formulas, shiftByPowersOfTwo) {
    EXPECT_EQ(shifter(8, 1), logic(0, 0));
    EXPECT_EQ(shifter(8, 8), logic(24, 2));
    EXPECT_EQ(shifter(8, 9), logic(32, 2));
}

TEST(Formulas, buildTablesOfTablesAndChoices) {
    EXPECT_EQ(logicTable(0, 8), Usage());
    EXPECT_EQ(logicTable(4, 8), logic(8, 1));
    EXPECT_EQ(logicTable(6, 1), logic(7, 2));
    EXPECT_GT(logicTable(1000, 1).luts, 0);
    EXPECT_EQ(readOnlyTable(wide(), 64, 1), logic(7, 2));
    EXPECT_EQ(readOnlyTable(wide(), 65, 1), usage(0, 0, 1, 65, 2));
}

TEST(Formulas, countOnesByFullAdders) {
    EXPECT_EQ(onesCount(1), Usage());
    EXPECT_EQ(onesCount(8), logic(14, 3));
}

TEST(Formulas, fillMemoryBlocksOfTheKindThatNeedsFewest) {
    EXPECT_EQ(memory(wide(), 32, 20), usage(0, 0, 1, 640, 2));
    // One block of either kind would do: the smaller one is taken, and shows in a table that is too large for it.
    EXPECT_EQ(memory(wide(), 33, 20), usage(0, 0, 1, 660, 2));
    EXPECT_EQ(memory(wide(), 256, 32), usage(0, 0, 1, 8192, 2));
    EXPECT_EQ(memory(wide(), 257, 32), usage(0, 0, 2, 257 * 32, 2));
    // Narrow words let a block be deeper.
    EXPECT_EQ(memory(wide(), 8192, 1), usage(0, 0, 1, 8192, 2));
    EXPECT_EQ(memory(small(), 4096, 1), usage(0, 0, 1, 4096, 2));
    EXPECT_EQ(memory(small(), 4096, 2), usage(0, 0, 2, 8192, 2));
    EXPECT_EQ(memory(wide(), 0, 8), usage(0, 0, 0, 0, 0));
    EXPECT_EQ(memory(wide(), 8, 0), usage(0, 0, 0, 0, 0));
}

TEST(Formulas, keepShortRowsOfRegistersOutOfMemory) {
    EXPECT_EQ(delayLine(wide(), 0, 8, -1), logic(0, 0));
    EXPECT_EQ(delayLine(wide(), 1, 8, -1), logic(0, 1));
    EXPECT_EQ(delayLine(wide(), 5, 8, -1), logic(32, 5));
    EXPECT_EQ(delayLine(wide(), 15, 100, -1), logic(1400, 15));
    EXPECT_EQ(delayLine(wide(), 64, 8, -1), usage(12, 0, 1, 512, 64));
    EXPECT_EQ(delayLine(wide(), 64, 8, 513), logic(504, 64));
    EXPECT_EQ(delayLine(wide(), 5, 8, 40), usage(6, 0, 1, 40, 5));
    EXPECT_EQ(delayLine(wide(), 2, 8, 0), logic(8, 2));
}

TEST(Formulas, tileProductsWithTheMultipliersOfTheFamily) {
    EXPECT_EQ(mult18PerBlock(wide()), 2);
    EXPECT_EQ(mult18PerBlock(small()), 1);
    EXPECT_EQ(hardProduct(wide(), 9, 9), usage(0, 1, 0, 0, 3));
    EXPECT_EQ(hardProduct(wide(), 18, 18), usage(0, 1, 0, 0, 3));
    // One block of 27 by 27 stands for two of 18 by 18.
    EXPECT_EQ(hardProduct(wide(), 27, 27), usage(0, 2, 0, 0, 3));
    EXPECT_EQ(hardProduct(wide(), 19, 18), usage(0, 2, 0, 0, 3));
    EXPECT_EQ(hardProduct(small(), 19, 18), usage(37, 2, 0, 0, 4));
    EXPECT_EQ(hardProduct(small(), 36, 36), usage(3 * 72, 4, 0, 0, 5));
    EXPECT_EQ(hardProduct(wide(), 0, 8), Usage());
}

TEST(Formulas, buildProductsOfRowsOfLogic) {
    EXPECT_EQ(logicProduct(8, 4), logic(32, 2));
    EXPECT_EQ(logicProduct(8, 1), logic(8, 1));
    EXPECT_EQ(logicProduct(8, 0), Usage());
    EXPECT_EQ(logicProduct(8, -3), Usage());
}

TEST(Formulas, leaveOutPiecesOfConstantsThatNeedNoMultiplier) {
    const auto by = [](const char *hex) {
        const mpz_class constant(hex, 16);
        return hardProductBy(small(), 10, constant.get_mpz_t());
    };
    EXPECT_EQ(by("0"), Usage());
    EXPECT_EQ(by("3"), usage(0, 1, 0, 0, 3));
    // A power of two is a shift.
    EXPECT_EQ(by("4"), Usage());
    EXPECT_EQ(by("-4"), logic(13, 1));
    // Three pieces of 18 bits, the middle one of zeros: two products and one sum.
    EXPECT_EQ(by("3000000003"), usage(48, 2, 0, 0, 4));
    // The upper piece is a power of two.
    EXPECT_EQ(by("40003"), usage(29, 1, 0, 0, 4));
}

TEST(Formulas, giveNumbersTheirCanonicalDigits) {
    for (long number = -5000; number <= 5000; ++number) {
        const mpz_class exact(number);
        const std::vector<SignedDigit> digits = canonicalDigits(exact.get_mpz_t());
        ASSERT_EQ(sumOf(digits).get_si(), number);
        for (std::size_t i = 1; i < digits.size(); ++i) {
            ASSERT_GE(digits[i].position, digits[i - 1].position + 2) << number;
        }
    }
}

RC_GTEST_PROP(Formulas, giveLargeNumbersTheirCanonicalDigits,
              (const std::vector<std::uint32_t> &words, bool negative)) {
    mpz_class number;
    for (const std::uint32_t word : words) {
        number = (number << 32) + word;
    }
    const mpz_class exact = negative ? mpz_class(-number) : number;
    RC_ASSERT(sumOf(canonicalDigits(exact.get_mpz_t())).get_str() == exact.get_str());
}

TEST(Formulas, addOnceForEachDigitButOne) {
    EXPECT_EQ(additionsFor(0), 0);
    EXPECT_EQ(additionsFor(64), 0);
    // x + 4x: the two low bits of x pass.
    EXPECT_EQ(additionsFor(5), 9);
    // -x, and x - 8x: the three low bits of x pass, and the difference has a sign.
    EXPECT_EQ(additionsFor(-1), 9);
    EXPECT_EQ(additionsFor(-7), 9);
    // -(x + 4x): nothing to subtract from.
    EXPECT_EQ(additionsFor(-5), 9 + 12);
    // x - 4x - 16x: a difference of 11 bits with its sign, then -19x of 14.
    EXPECT_EQ(additionsFor(-19), 9 + 10);
    // x + 4x + 16x: a sum of 11 bits, of which the lower 4 pass.
    EXPECT_EQ(additionsFor(21), 9 + 9);
    const mpz_class number(21);
    EXPECT_EQ(shiftAddProductBy(8, number.get_mpz_t()).latency, 2);
}

TEST(Formulas, subtractAlsoTheBitsBelowTheFirstPositiveDigit) {
    // 4x - x to 32x - x: no bit of -x passes, and no sum reaches above the highest digit.
    EXPECT_EQ(additionsFor(3), 8 + 2);
    EXPECT_EQ(additionsFor(7), 8 + 3);
    EXPECT_EQ(additionsFor(15), 8 + 4);
    EXPECT_EQ(additionsFor(31), 8 + 5);
    // 65536x - x: the eight bits of -x, its sign, and what the borrow goes through; 65536x + x takes the upper half.
    EXPECT_EQ(additionsFor(65535), 8 + 1 + 8);
    EXPECT_EQ(additionsFor(65537), 9);
    // 64x - (x + 4x): six bits are below the digit.
    EXPECT_EQ(additionsFor(59), 9 + 8 + 6);
    // 64x + (x - 8x): the sum so far is negative, but as it stands, and its low bits pass.
    EXPECT_EQ(additionsFor(57), 9 + 8);
    // 8x - x, then 64x less of that.
    EXPECT_EQ(additionsFor(-57), 11 + 9);
}

/// Bits of an unsigned operand times a number, with a sign where there is one.
Count bitsOfProduct(Count width, const mpz_class &number) {
    const mpz_class most = abs(number) * ((mpz_class(1) << static_cast<mp_bitcnt_t>(width)) - 1);
    return static_cast<Count>(mpz_sizeinbase(most.get_mpz_t(), 2)) + (number < 0 ? 1 : 0);
}

TEST(Formulas, giveEachSumTheBitsThatItHas) {
    constexpr Count kWidth = 8;
    for (long number = -3000; number <= 3000; ++number) {
        const mpz_class exact(number);
        const std::vector<SignedDigit> digits = canonicalDigits(exact.get_mpz_t());
        if (digits.size() != 2) {
            continue;
        }
        const Count shift = digits[1].position - digits[0].position;
        const mpz_class odd = exact >> static_cast<mp_bitcnt_t>(digits[0].position);
        if (!digits[0].isNegative && shift < kWidth) {
            // The bits of the operand below the second digit pass. Further up, a sign goes through all of the sum.
            ASSERT_EQ(additionsFor(number), bitsOfProduct(kWidth, odd) - shift) << number;
        } else if (digits[0].isNegative && !digits[1].isNegative && shift <= kWidth + 1) {
            ASSERT_EQ(additionsFor(number), bitsOfProduct(kWidth, odd)) << number;
        }
    }
}

TEST(Formulas, buildFloatsOfShiftersAndAdders) {
    const FloatFormat half{11, 5};
    const FloatFormat single{24, 8};
    EXPECT_GT(softFloatAdder(single).luts, softFloatAdder(half).luts);
    EXPECT_EQ(softFloatAdder(single).multipliers, 0);
    EXPECT_EQ(softFloatProduct(wide(), half), usage(11 + 15, 1, 0, 0, 4));
    EXPECT_EQ(softFloatProduct(wide(), single).multipliers, 2);
    EXPECT_EQ(digitRecurrence(10, 8), logic(80, 10));
    const Usage function = tabledFunction(wide(), 24);
    EXPECT_EQ(function.multipliers, 4);
    EXPECT_EQ(function.memoryBits, 256 * 3 * 24);
}

} // namespace
} // namespace orvo::generator
