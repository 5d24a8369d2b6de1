// How a vector falls into the parts that a split gives out: by the layout, or else equally, the first ones by one
// element more.
#pragma once

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace orvo::internal {

/// Elements of the outermost dimension.
struct SplitPart {
    std::int64_t first;
    std::int64_t length;
};

/// The parts have the numbers of the wires. A number below the largest that no wire has stands for a part that nobody
/// takes.
class VectorSplit {
  public:
    VectorSplit(const Block &block, int length) : mLength(length) {
        if (const TupleValueRef layout = tupleVR(block.getParam(A_VSPLIT_LAYOUT))) {
            readLayout(*layout);
            return;
        }
        for (const Wire &wire : block) {
            mParts = std::max(mParts, numberOf(wire) + 1);
        }
    }

    /// Whether all parts together are within the vector.
    bool fits() const { return !mFirsts || mFirsts->back() <= mLength; }
    /// Null if the wire has the name of no part, or of one without elements.
    std::optional<SplitPart> partOf(const Wire &wire) const {
        const std::int64_t number = numberOf(wire);
        if (number < 0 || !fits()) {
            return std::nullopt;
        }
        const SplitPart part = mFirsts ? toldPart(static_cast<std::size_t>(number)) : equalPart(number);
        return part.length > 0 ? std::optional(part) : std::nullopt;
    }

  private:
    static std::int64_t numberOf(const Wire &wire) {
        const NumberValueRef number = numberVR(wire.getName());
        return number && number->isInt() ? number->toInt() : -1;
    }
    void readLayout(const TupleValue &layout) {
        mFirsts.emplace(1, 0);
        for (const ValueRef &told : layout) {
            const NumberValueRef length = numberVR(told);
            mFirsts->push_back(mFirsts->back() + (length && length->isInt() ? std::max(length->toInt(), 0) : 0));
        }
    }
    SplitPart toldPart(std::size_t number) const {
        if (number + 1 >= mFirsts->size()) {
            return {0, 0};
        }
        return {(*mFirsts)[number], (*mFirsts)[number + 1] - (*mFirsts)[number]};
    }
    SplitPart equalPart(std::int64_t number) const {
        const std::int64_t longer = mLength % mParts;
        return {number * (mLength / mParts) + std::min(number, longer), mLength / mParts + (number < longer ? 1 : 0)};
    }

    std::int64_t mLength;
    /// Where the parts of the layout begin, and where the last one ends; nothing if there is no layout.
    std::optional<std::vector<std::int64_t>> mFirsts;
    std::int64_t mParts = 0;
};

} // namespace orvo::internal
