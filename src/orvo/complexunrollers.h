// Which unroller of complex signals each block type has, or why it has none.
#pragma once

#include <orvo/complexunroller.h>

#include <span>

namespace orvo::internal {

struct ComplexUnrollRow {
    const StaticString *blockType;
    /// Null for a type without unroller: one that cannot carry complex signals, or keeps them.
    const ComplexUnrollHandler *(*handler)();
    /// What becomes of the block, or why it stays.
    const char *summary;
};

/// The handler of types that compute on real numbers alone: blocks at which a signal is complex stay, and that is told.
ORVO_API const ComplexUnrollHandler *realOnlyHandler();
/// Whether blocks of the row's type come apart.
inline bool comesApart(const ComplexUnrollRow &row) { return row.handler != nullptr && row.handler != realOnlyHandler; }

ORVO_API std::span<const ComplexUnrollRow> complexUnrollRows();
void registerComplexUnrollers(Context *context);

} // namespace orvo::internal
