// Which unroller of records each block type has, or why it has none.
#pragma once

#include <orvo/aggregateunroller.h>

#include <span>

namespace orvo::internal {

struct AggregateUnrollRow {
    const StaticString *blockType;
    /// Null for a type without unroller.
    const AggregateUnrollHandler *(*handler)();
    /// What becomes of the block, or why it carries no records, or keeps them.
    const char *summary;
};

ORVO_API std::span<const AggregateUnrollRow> aggregateUnrollRows();
void registerAggregateUnrollers(Context *context);

} // namespace orvo::internal
