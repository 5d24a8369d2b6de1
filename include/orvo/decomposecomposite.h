// How a composite block becomes simpler ones.
#pragma once

#include <orvo/blockclass.h>
#include <orvo/model.h>

namespace orvo {

class CachedTypeQuery;
class GlobalTypeCache;

/// Replaces blocks of its types by simpler ones, which may be composites again.
class ORVO_API DecomposeCompositeHandler : public BlockHandler {
  public:
    /// Whether the block at the cache's cursor, all of whose types are known to the cache, can be replaced as it
    /// stands. One that cannot is asked again after others were. The default is true.
    virtual bool applicable(GlobalTypeCache &cache) const;
    /// Makes the replacement, moves the readers of the block's wires with `Wire::replace` and deletes the block. Types
    /// may be asked for the block's own ports and wires. What readers read must keep its type.
    virtual void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const = 0;
};

} // namespace orvo
