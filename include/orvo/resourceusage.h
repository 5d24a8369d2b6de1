// What logic costs.
#pragma once

#include <cstdint>

namespace orvo {

/// The cost of a model, as whoever generates its logic tells or estimates it. Counts, none below 0 but where a
/// generator has nothing to say.
class ResourceUsageAndLatencyHelper {
  public:
    /// Look-up tables of four inputs, or what makes up for them.
    std::int64_t luts = 0;
    /// Of 18 by 18 bits.
    std::int64_t multipliers = 0;
    std::int64_t memoryBlocks = 0;
    /// Bits in these blocks that are used.
    std::int64_t memoryBits = 0;
    /// Cycles from inputs to outputs.
    std::int64_t latency = 0;

    bool operator==(const ResourceUsageAndLatencyHelper &other) const = default;
};

} // namespace orvo
