// Stage plans, word growth, permutations.
#include "orvo/fftplan.h"

#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>

namespace orvo::internal {

namespace {

void appendPlan(std::vector<StagePlanRow> &plan, bool inputBitReversed, int bits, int before, int after) {
    const int first = inputBitReversed ? after : before;
    const int second = inputBitReversed ? before : after;
    if (bits < 3) {
        plan.push_back({0, 0, first, second, bits});
        return;
    }
    const int late = (bits + 1) / 2;
    const int early = bits - late;
    appendPlan(plan, inputBitReversed, early, before, late + after);
    plan.push_back({inputBitReversed ? late : early, inputBitReversed ? early : late, first, second, bits});
    appendPlan(plan, inputBitReversed, late, early + before, after);
}

} // namespace

std::vector<StagePlanRow> stagePlan(bool inputBitReversed, int bits, int before, int after) {
    std::vector<StagePlanRow> plan;
    appendPlan(plan, inputBitReversed, bits, before, after);
    return plan;
}

NumTypeSpec grownType(NumTypeSpec type, int total, int fraction) {
    if (type.isFixed()) {
        type.setFixedBits(type.intBits() + total - fraction, type.fracBits() + fraction);
    }
    return type;
}

namespace {

/// By how many bits the input of the twiddle with this number has grown.
int inputGrowth(const WordGrowth &growth, int number) {
    if (number == 0) {
        return 1;
    }
    if (number == 1 && !growth.startsOnTwoWires) {
        return 2;
    }
    return number + (growth.isComplexInput ? 2 : 1);
}

int outputGrowth(const WordGrowth &growth, int number) { return number + (growth.isComplexInput ? 2 : 1); }

/// Samples are complex behind the first twiddle at the latest.
TwiddleTypes marked(TwiddleTypes types, int number) {
    if (number > 0) {
        types.input.setComplex(true);
    }
    types.output.setComplex(true);
    return types;
}

} // namespace

std::vector<TwiddleTypes> growFully(const WordGrowth &growth) {
    std::vector<TwiddleTypes> all;
    for (int i = 0; i + 1 < growth.bits; ++i) {
        all.push_back(marked({grownType(growth.input, inputGrowth(growth, i), 0), growth.factor,
                              grownType(growth.input, outputGrowth(growth, i), 0)},
                             i));
    }
    return all;
}

std::vector<TwiddleTypes> growMildly(const WordGrowth &growth) {
    std::vector<TwiddleTypes> all;
    for (int i = 0; i + 1 < growth.bits; ++i) {
        const int before = i / 2;
        const int behind = (i + 1) / 2;
        all.push_back(marked({grownType(growth.input, inputGrowth(growth, i) - before, -before), growth.factor,
                              grownType(growth.input, outputGrowth(growth, i) - behind, -behind)},
                             i));
    }
    return all;
}

std::vector<TwiddleTypes> growToWidth(const WordGrowth &growth, int width) {
    const int own = growth.input.isFloat() ? growth.input.floatBits() : growth.input.fixedBits();
    std::vector<TwiddleTypes> all;
    for (int i = 0; i + 1 < growth.bits; ++i) {
        const int full = inputGrowth(growth, i);
        const int kept = std::min(width - own, full);
        const NumTypeSpec input = grownType(growth.input, kept, kept - full);
        const bool rotates = growth.isComplexInput && (i == 0 || (i == 1 && !growth.startsOnTwoWires));
        all.push_back(marked({input, growth.factor, rotates ? grownType(input, 1, 0) : input}, i));
    }
    return all;
}

std::vector<TwiddleTypes> growAsTold(int bits, const std::string &text) {
    std::size_t at = 0;
    const auto integerUntil = [&](char end) {
        const std::size_t stop = std::min(text.find(end, std::min(at, text.size())), text.size());
        const std::string digits = at < stop ? text.substr(at, stop - at) : std::string();
        at = stop + 1;
        return static_cast<int>(std::clamp(std::strtol(digits.c_str(), nullptr, 10), -4096L, 4096L));
    };
    const auto next = [&] {
        const std::size_t found = at <= text.size() ? text.find("fixdt", at) : std::string::npos;
        // Without another term, reading goes on where the first one's fields may stand.
        at = found == std::string::npos ? 5 : found + 6;
        const bool isSigned = integerUntil(',') != 0;
        const int width = integerUntil(',');
        const int fraction = integerUntil(')');
        NumTypeSpec type = NumTypeSpec::fixed(isSigned, width - fraction, fraction);
        type.setComplex(true);
        return type;
    };
    std::vector<TwiddleTypes> all;
    for (int i = 0; i + 1 < bits; ++i) {
        const NumTypeSpec input = next();
        const NumTypeSpec factor = next();
        all.push_back({input, factor, next()});
    }
    return all;
}

namespace {

int integerParam(const Block &block, const StaticString &key, int fallback) {
    const NumberValueRef number = numberVR(block.getParam(key));
    return number && number->isInt() ? number->toInt() : fallback;
}

bool isTrue(const Block &block, const StaticString &key) { return block.findParam(key) == A_TRUE.get_ptr(); }

bool startsOnTwoWires(const Block &block) {
    const bool hasTwoWires = integerParam(block, A_FFTBLOCK_SPATIAL_BITS, 0) == 1;
    if (block.type() == A_PFFT_PIPE_BLOCK.get_ptr()) {
        return hasTwoWires;
    }
    if (block.type() != A_HYBRID_FFT_BLOCK.get_ptr()) {
        return false;
    }
    const int serial = integerParam(block, A_HYBRID_FFT_SERIAL_STAGES, 0);
    return serial == 0 || isTrue(block, A_FFTBLOCK_INPUT_BITREVERSED) ? hasTwoWires : serial == 1;
}

std::vector<TwiddleTypes> resolvedTypes(const TupleValueRef &specs, Context *context) {
    std::vector<TwiddleTypes> all;
    for (const ValueRef &entry : *specs) {
        const TupleValueRef triple = tupleVR(entry);
        if (!triple || triple->size() < 3) {
            return {};
        }
        all.push_back({NumTypeSpec(triple->at(0), context), NumTypeSpec(triple->at(1), context),
                       NumTypeSpec(triple->at(2), context)});
    }
    return all;
}

} // namespace

std::vector<TwiddleTypes> twiddleTypes(const Block &block) {
    Context *context = block.getContext();
    const ValueRef specs = block.getParam(A_FFTBLOCK_TWIDDLE_PRUNING_SPECS);
    if (const TupleValueRef resolved = tupleVR(specs)) {
        return resolvedTypes(resolved, context);
    }
    WordGrowth growth;
    growth.factor = NumTypeSpec(block.getParam(A_FFTBLOCK_TWIDDLE_TYPE), context);
    growth.input = NumTypeSpec(block.getParam(A_FFTBLOCK_INPUT_TYPE), context);
    growth.input.stripVectors();
    growth.bits = block.getParam(A_FFTBLOCK_N) ? integerParam(block, A_FFTBLOCK_N, 0)
                                               : integerParam(block, A_FFTBLOCK_MAXSIZE, 0);
    growth.isComplexInput = isTrue(block, A_FFTBLOCK_COMPLEX_INPUT);
    growth.startsOnTwoWires = startsOnTwoWires(block);
    if (!growth.input.valid()) {
        return {};
    }
    if (growth.input.isFloat()) {
        return std::vector<TwiddleTypes>(static_cast<std::size_t>(std::max(growth.bits - 1, 0)),
                                         {growth.input, growth.input, growth.input});
    }
    const ValueRef scheme = block.getParam(A_FFTBLOCK_TWIDDLE_PRUNING_SCHEME);
    if (scheme == A_FFTBLOCK_FULL_WORDGROWTH) {
        return growFully(growth);
    }
    if (scheme == A_FFTBLOCK_MILD_PRUNING) {
        return growMildly(growth);
    }
    if (scheme == A_FFTBLOCK_PRUNE_TO_WIDTH) {
        return growToWidth(growth, integerParam(block, A_FFTBLOCK_TWIDDLE_PRUNING_WIDTH, 0));
    }
    const StringValueRef text = stringVR(specs);
    return scheme == A_FFTBLOCK_CUSTOM_PRUNING && text ? growAsTold(growth.bits, text->str())
                                                       : std::vector<TwiddleTypes>();
}

int bitsToCount(std::int64_t things) {
    int bits = 0;
    while (bits < 62 && (std::int64_t{1} << bits) < things) {
        ++bits;
    }
    return bits;
}

bool isPermutation(const Permutation &permutation) {
    const std::set<int> values(permutation.begin(), permutation.end());
    return values.size() == permutation.size() &&
           (values.empty() || (*values.begin() == 0 && *values.rbegin() + 1 == static_cast<int>(values.size())));
}

Permutation bitReversedOrder(const Permutation &values) {
    const int bits = bitsToCount(static_cast<std::int64_t>(values.size()));
    Permutation turned;
    for (std::size_t i = 0; i < values.size(); ++i) {
        std::size_t from = 0;
        for (int bit = 0; bit < bits; ++bit) {
            from |= (i >> bit & 1U) << (bits - 1 - bit);
        }
        turned.push_back(values.at(from));
    }
    return turned;
}

std::vector<Permutation> permutationGroup(const Permutation &permutation) {
    Permutation identity(permutation.size());
    for (std::size_t i = 0; i < identity.size(); ++i) {
        identity[i] = static_cast<int>(i);
    }
    std::vector<Permutation> group{identity};
    for (;;) {
        Permutation next;
        for (const int at : group.back()) {
            next.push_back(permutation.at(static_cast<std::size_t>(at)));
        }
        if (next == identity) {
            return group;
        }
        group.push_back(std::move(next));
    }
}

Permutation wirePermutation(const std::vector<int> &bits) {
    Permutation wires(std::size_t{1} << bits.size());
    for (std::size_t i = 0; i < wires.size(); ++i) {
        wires[i] = static_cast<int>(i);
    }
    for (const int bit : bits) {
        std::stable_partition(wires.begin(), wires.end(), [bit](int wire) { return (wire >> bit & 1) == 0; });
    }
    return wires;
}

std::uint64_t gatheredBits(std::uint64_t value, const std::vector<int> &bits) {
    std::uint64_t gathered = 0;
    for (std::size_t i = 0; i < bits.size(); ++i) {
        gathered |= (value >> bits[i] & 1U) << i;
    }
    return gathered;
}

std::vector<int> integersOf(const ValueRef &value) {
    std::vector<int> integers;
    const TupleValueRef tuple = tupleVR(value);
    for (std::size_t i = 0; tuple && i < tuple->size(); ++i) {
        const NumberValueRef number = numberVR(tuple->at(i));
        if (!number || !number->isInt()) {
            return {};
        }
        integers.push_back(number->toInt());
    }
    return integers;
}

UnitRoot unitRoot(std::int64_t numerator, std::int64_t denominator) {
    std::int64_t eighths = numerator % denominator;
    eighths = (eighths < 0 ? eighths + denominator : eighths) * 8;
    const std::int64_t octant = eighths / denominator;
    // Within half of each octant the angle is measured from the nearer axis, where it is exact.
    const std::int64_t rest = octant % 2 == 0 ? eighths - octant * denominator : (octant + 1) * denominator - eighths;
    const double angle = std::acos(-1.0) / 4 * static_cast<double>(rest) / static_cast<double>(denominator);
    const double near = rest == denominator ? std::sqrt(0.5) : std::cos(angle);
    const double far = rest == denominator ? near : std::sin(angle);
    // Zeros of the axes are positive.
    const double back = 0.0 - far;
    switch ((octant + 1) / 2 % 4) {
    case 0:
        return {near, octant == 7 ? back : far};
    case 1:
        return {octant == 1 ? far : back, near};
    case 2:
        return {-near, octant == 3 ? far : back};
    default:
        return {octant == 5 ? back : far, -near};
    }
}

} // namespace orvo::internal
