// Which unroller of vectors each block type has, or why it has none.
#pragma once

#include <orvo/vectorunroller.h>

#include <span>

namespace orvo::internal {

struct VectorUnrollRow {
    const StaticString *blockType;
    /// Null for a type without unroller.
    const VectorUnrollHandler *(*handler)();
    /// What becomes of the block, or why it stays.
    const char *summary;
};

ORVO_API std::span<const VectorUnrollRow> vectorUnrollRows();
void registerVectorUnrollers(Context *context);

} // namespace orvo::internal
