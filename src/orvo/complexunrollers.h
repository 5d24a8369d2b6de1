// Which unroller of complex signals each block type has, or why it has none.
#pragma once

#include <orvo/complexunroller.h>

#include <span>

namespace orvo::internal {

struct ComplexUnrollRow {
    const StaticString *blockType;
    /// Null for a type without unroller.
    const ComplexUnrollHandler *(*handler)();
    /// What becomes of the block, or why it stays.
    const char *summary;
};

ORVO_API std::span<const ComplexUnrollRow> complexUnrollRows();
void registerComplexUnrollers(Context *context);

} // namespace orvo::internal
