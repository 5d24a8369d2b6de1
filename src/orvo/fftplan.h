// The arithmetic that all members of the transform family share: which stages a transform has, how its words grow, how
// permutations of sample numbers compose, and the factors that lie on the unit circle.
#pragma once

#include <orvo/api.h>
#include <orvo/block.h>
#include <orvo/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvo::internal {

/// A row of a stage plan. Rows at even positions are stages of one or two bits; those between are twiddles.
struct StagePlanRow {
    /// Of a twiddle, bits of its pivot and of its index; zero for a stage.
    int pivot;
    int index;
    /// Bits of the transform that are done before, and that lie below in the number of the sample.
    int before;
    int after;
    /// Bits that the row spans.
    int bits;
    bool operator==(const StagePlanRow &) const = default;
};

/// The plan for `bits` bits: a tree that halves them, written in order. `before` bits are done ahead of it in natural
/// order of the input and `after` follow; for bit-reversed input the two change places.
ORVO_API std::vector<StagePlanRow> stagePlan(bool inputBitReversed, int bits, int before, int after);

/// A fixed-point type that is `total` bits wider, of which `fraction` are fraction bits; a float as it is.
ORVO_API NumTypeSpec grownType(NumTypeSpec type, int total, int fraction);

/// The types around a twiddle: what it takes, its factors, what it gives.
struct TwiddleTypes {
    NumTypeSpec input;
    NumTypeSpec factor;
    NumTypeSpec output;
};

/// What word growth depends on.
struct WordGrowth {
    bool isComplexInput = false;
    /// The first two bits are done on two wires, without a twiddle between them.
    bool startsOnTwoWires = false;
    int bits = 0;
    NumTypeSpec input;
    NumTypeSpec factor;
};

/// Types of the twiddles after 1, 2, ... bits: no bit is lost.
ORVO_API std::vector<TwiddleTypes> growFully(const WordGrowth &growth);
/// One bit in two is dropped at the low end.
ORVO_API std::vector<TwiddleTypes> growMildly(const WordGrowth &growth);
/// Low bits are dropped so that words stay within a width.
ORVO_API std::vector<TwiddleTypes> growToWidth(const WordGrowth &growth, int width);
/// Types told one by one, as fixdt(signed, width, fraction) terms in a text.
ORVO_API std::vector<TwiddleTypes> growAsTold(int bits, const std::string &text);

/// The types of a member's twiddles by its parameters, whether resolved before or not; empty if they cannot be told.
ORVO_API std::vector<TwiddleTypes> twiddleTypes(const Block &block);

/// Bits that tell so many things apart.
ORVO_API int bitsToCount(std::int64_t things);

using Permutation = std::vector<int>;

ORVO_API bool isPermutation(const Permutation &permutation);
/// Element i is the element whose number has the bits of i turned round.
ORVO_API Permutation bitReversedOrder(const Permutation &values);
/// The powers of a permutation, from the identity on.
ORVO_API std::vector<Permutation> permutationGroup(const Permutation &permutation);
/// All numbers of so many bits, stably parted by each of the listed bits in turn, clear before set.
ORVO_API Permutation wirePermutation(const std::vector<int> &bits);
/// Bit i is bit `bits[i]` of the value.
ORVO_API std::uint64_t gatheredBits(std::uint64_t value, const std::vector<int> &bits);

/// The integers of a parameter that is a tuple of them; empty if it is none.
ORVO_API std::vector<int> integersOf(const ValueRef &value);

/// A point of the unit circle.
struct UnitRoot {
    double re;
    double im;
};

/// At `numerator / denominator` of a turn: exact at quarters, and of equal magnitudes at eighths.
ORVO_API UnitRoot unitRoot(std::int64_t numerator, std::int64_t denominator);

} // namespace orvo::internal
