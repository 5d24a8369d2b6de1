// What block types do where bits of their operands are known to be zero.
#pragma once

#include "orvo/decomposehandlers.h"

#include <orvo/propagateconstants.h>

#include <span>

namespace orvo {

/// A multiplier of two real numbers of fixed point. It keeps its place and its value; only bits that are zero anyway
/// are no longer computed:
///     a: u8.0 = join(0: u3.0, x: u4.0, 0: u1.0), b: s4.0, a, b -> mult -> p: s12.0
///     a -> narrowed: u7.-3, narrowed, b -> mult: s11.-3, 0, mult -> extender -> signextend -> p
class ORVO_API MultiplyPropagateHandler final : public PropagateConstantsHandler {
  public:
    bool applicable(GlobalTypeCache &cache, int *high, int *low) const override;
    void propagate(Block &block, const CachedTypeQuery &query, const RefChain &refChain, const int *high,
                   const int *low) const override;

  private:
    /// Bits at both ends of an operand that are known to be zero; all of them count as low ones.
    struct Peel {
        int high;
        int low;
    };
    static Peel peelable(GlobalTypeCache &cache, const PureValueRef &portKey);
    static Wire &peelWire(const internal::BlockBuilder &builder, Wire &wire, const NumTypeSpec &type,
                          const NumTypeSpec &narrow);
};

namespace internal {

/// A row of the table of types whose blocks lose known bits.
struct PropagateRow {
    const StaticString *blockType;
    const PropagateConstantsHandler *(*handler)();
    /// One line for users.
    const char *summary;
};

ORVO_API std::span<const PropagateRow> propagateRows();

/// Gives the classes of all types of the table their handlers.
void registerPropagateHandlers(Context *context);

} // namespace internal

} // namespace orvo
