// What pieces of logic cost, from their widths alone. Look-up tables are counted as ones of four inputs, multipliers as
// ones of 18 by 18 bits, latency in cycles. docs/resource-estimates.md says where each formula comes from.
#pragma once

#include <orvo/api.h>
#include <orvo/resourceusage.h>

#include <gmp.h>

#include <cstdint>
#include <vector>

namespace device {
struct Family;
}

namespace orvo::generator {

using Count = std::int64_t;
using Usage = ResourceUsageAndLatencyHelper;

/// Sums and products of counts stop at the largest there is: a design may repeat without end what is large by itself.
ORVO_API Count plus(Count a, Count b);
ORVO_API Count times(Count a, Count b);
/// Of counts from 0 on, by at least 1.
ORVO_API Count ceilDiv(Count a, Count b);
/// Steps of halving until one is left; 0 for 1 and less.
ORVO_API int log2Ceil(Count count);

/// Both, side by side: the longer latency counts.
ORVO_API Usage beside(const Usage &a, const Usage &b);
/// Both, one behind the other.
ORVO_API Usage behind(const Usage &a, const Usage &b);
/// Either of them: each figure of the one in which it is larger.
ORVO_API Usage largest(const Usage &a, const Usage &b);
/// So many of them, side by side.
ORVO_API Usage copies(const Usage &usage, Count count);
ORVO_API Usage logic(Count luts, Count latency);

/// Two-input addition, subtraction or comparison of order, with a carry chain.
ORVO_API Usage adder(Count width);
/// One bit of so many by a tree.
ORVO_API Usage reduction(Count inputs);
ORVO_API Usage equality(Count width);
ORVO_API Usage multiplexer(Count inputs, Count width);
/// Shifts by 0 up to `distances` - 1 places.
ORVO_API Usage shifter(Count width, Count distances);
/// A table in logic, every entry of which may differ.
ORVO_API Usage logicTable(int addressBits, Count width);
ORVO_API Usage leadingZeros(Count width);
ORVO_API Usage onesCount(Count width);

/// A word of so many bits per cycle in memory blocks: as few as the kinds of the family allow, of the smallest of
/// these.
ORVO_API Usage memory(const device::Family &family, Count words, Count width);
/// A table that cannot be written: in logic while it is small, else in memory.
ORVO_API Usage readOnlyTable(const device::Family &family, Count words, Count width);
/// Cells of `width` bits in a row, of which the first of each bit stands beside the logic before it; a long row goes
/// into memory. `memoryFrom` is the number of bits from which on it does, negative for the default.
ORVO_API Usage delayLine(const device::Family &family, Count length, Count width, Count memoryFrom);

/// How many multipliers of 18 by 18 bits one multiplier block stands for.
ORVO_API Count mult18PerBlock(const device::Family &family);
/// A product of two signals, by multiplier blocks.
ORVO_API Usage hardProduct(const device::Family &family, Count widthA, Count widthB);
/// The same by logic alone.
ORVO_API Usage logicProduct(Count widthA, Count widthB);
/// A product by a constant that is cut into the pieces of multiplier blocks first: pieces of zeros vanish, and pieces
/// that are powers of two need no multiplier.
ORVO_API Usage hardProductBy(const device::Family &family, Count width, mpz_srcptr constant);
/// A product by a constant as a chain of additions and subtractions, one for each digit but one.
ORVO_API Usage shiftAddProductBy(Count width, mpz_srcptr constant);

/// A digit that is not zero.
struct SignedDigit {
    Count position;
    bool isNegative;
};
/// The canonical signed digits of a number, the lowest first.
ORVO_API std::vector<SignedDigit> canonicalDigits(mpz_srcptr number);

/// The bits of a float, the hidden one among the significand.
struct FloatFormat {
    Count significand;
    Count exponent;
};
ORVO_API Usage softFloatAdder(const FloatFormat &format);
ORVO_API Usage softFloatProduct(const device::Family &family, const FloatFormat &format);
/// One bit of the quotient or root a stage.
ORVO_API Usage digitRecurrence(Count resultBits, Count width);
/// A function of one operand by tables of polynomials.
ORVO_API Usage tabledFunction(const device::Family &family, Count precision);

} // namespace orvo::generator
