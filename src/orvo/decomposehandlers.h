// The decompositions of the block families, and what they have in common.
#pragma once

#include "orvo/blockbuilder.h"

#include <orvo/decomposecomposite.h>
#include <orvo/typecache.h>

#include <span>
#include <vector>

namespace orvo {
class Context;
}

namespace orvo::internal {

/// A row of a family's table of decompositions.
struct DecomposeRow {
    const StaticString *blockType;
    const DecomposeCompositeHandler *(*handler)();
    /// One line for users.
    const char *summary;
};

/// A handler's one object, which keeps no state.
template <class Handler> const DecomposeCompositeHandler *decomposeHandler() {
    static const Handler handler;
    return &handler;
}

/// The tables of the families.
ORVO_API std::span<const DecomposeRow> castDecompositions();
ORVO_API std::span<const DecomposeRow> primDecompositions();
ORVO_API std::span<const DecomposeRow> mathDecompositions();
ORVO_API std::span<const DecomposeRow> memoryDecompositions();

/// Gives the classes of all types of the tables their handlers.
void registerDecomposeHandlers(Context *context);

/// Types of a block as its handler reads them.
class BlockTypes {
  public:
    BlockTypes(const Block &block, const CachedTypeQuery &query, const RefChain &refChain)
        : mBlock(block), mQuery(query), mRefChain(refChain) {}
    /// Invalid if the type is unknown or no number's.
    NumTypeSpec port(const PureValueRef &key) const;
    NumTypeSpec port(int number) const;
    NumTypeSpec wire(const PureValueRef &key) const;
    /// Of what drives a port, where the block asks for another type at the port than comes in.
    PureValueRef driver(const PureValueRef &key) const;

  private:
    const Block &mBlock;
    const CachedTypeQuery &mQuery;
    const RefChain &mRefChain;
};

/// Whether each signal of the block at the cursor is a real number, or a vector of such, of a bit or more. Of complex
/// numbers and records, parts are compared and chosen one by one, which has to wait until they came apart.
bool hasRealNumbers(GlobalTypeCache &cache);
bool isFixedPort(GlobalTypeCache &cache, int number);

/// Whether a wire gets its type from blocks before it that tell theirs by themselves, none of which is `block`. Where
/// it does not, as in a loop, a block whose outputs had types beforehand has to leave behind signals that have, too, or
/// the loop never gets any. False as well where a model's edge is in the way, or where finding out would take long.
bool isTypedWithout(const Wire &wire, const Block &block);

/// A handler of blocks of real numbers.
class RealDecomposeHandler : public DecomposeCompositeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override;
};

} // namespace orvo::internal
