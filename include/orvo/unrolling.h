// What becomes of the compound signals of each block type, as the passes that take them apart have it.
#pragma once

#include <orvo/api.h>
#include <orvo/value.h>

namespace orvo {

/// One kind of compound signals at one block type.
struct UnrollFate {
    /// Whether a pass takes blocks of the type apart.
    bool comesApart = false;
    /// What becomes of the block, or why it cannot carry such a signal or keeps it, in a line; null for an unknown
    /// type.
    const char *summary = nullptr;
};

struct UnrollFates {
    UnrollFate records;
    UnrollFate vectors;
    UnrollFate complexNumbers;
};

/// Of a type by the text of its name. A thread-safe look-up.
ORVO_API UnrollFates unrollFates(const Value *blockType);

} // namespace orvo
