// The decomposition of casts.
#pragma once

#include "orvo/decomposehandlers.h"

namespace orvo::internal {

/// Converts by rounding, a selection of the low bits and, where a value may not fit, comparisons with the bounds and a
/// selector among value and bounds; reinterprets by selecting all bits. Conversions from and to floating point stay.
///     in -> cast -> out, clip
///     in -> round -> sel -> select -> out, clip;  round -> lcmp, hcmp -> not -> select
class ORVO_API CastDecomposeHandler final : public DecomposeCompositeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override;
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override;
};

} // namespace orvo::internal
