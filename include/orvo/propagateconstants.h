// How a block does with less where bits of what it reads are known.
#pragma once

#include <orvo/blockclass.h>
#include <orvo/model.h>

namespace orvo {

class CachedTypeQuery;
class GlobalTypeCache;

/// Takes bits that are known to be zero off the operands of blocks of its types.
class ORVO_API PropagateConstantsHandler : public BlockHandler {
  public:
    /// Operands that a block has: the ports 0 and 1.
    static constexpr int kOperands = 2;

    /// Whether anything of the block at the cache's cursor can go. `high` and `low` have `kOperands` places and get the
    /// numbers of bits at the top and at the bottom of each operand that are zero whatever the inputs are.
    virtual bool applicable(GlobalTypeCache &cache, int *high, int *low) const = 0;
    /// Makes the block do without these bits, or deletes it where its result is a constant. Types may be asked for the
    /// block's own ports and wires. What reads the result must go on to read the type that it had.
    virtual void propagate(Block &block, const CachedTypeQuery &query, const RefChain &refChain, const int *high,
                           const int *low) const = 0;
};

} // namespace orvo
