// The table of domains by point: open addressing, since inference looks points up ten times as often as it finds new
// ones. A domain is held as its number.
#pragma once

#include <orvo/domaininfer.h>

#include <util/pool.h>

namespace orvo::internal {

class DomainTable {
  public:
    struct Slot {
        DomainPoint point;
        /// 0 for none.
        std::uint32_t domain = 0;
        /// Keeps its domain.
        bool isSignpost = false;
    };

    /// Null if the point was never asked for by `get`.
    const Slot *find(const DomainPoint &point) const;
    /// Made if it is not there. Good until the next call.
    Slot &get(const DomainPoint &point);
    /// Null for 0.
    const PureValueRef &domain(std::uint32_t number) const { return mDomains[number]; }
    /// 0 for null.
    std::uint32_t numberOf(const PureValueRef &domain);

  private:
    std::size_t home(const DomainPoint &point) const;
    /// Where the point is or would be.
    std::size_t place(const DomainPoint &point) const;
    void grow();

    using Slots = std::vector<Slot, util::PoolAllocator<Slot>>;
    Slots mSlots;
    std::size_t mCount = 0;
    std::vector<PureValueRef> mDomains{PureValueRef()};
    std::unordered_map<const Value *, std::uint32_t> mNumbers;
};

} // namespace orvo::internal
