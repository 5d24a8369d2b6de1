// Names of what is left of a compound signal at a block that keeps its ports: lanes, members and parts stand under the
// name of the whole, each by its number or its word.
#pragma once

#include <orvo/corevalues.h>

namespace orvo {

/// A name read as (whole, element...), each element a number from 0 on or, for a part of a complex number, `real` or
/// `imag`. Any other name is that of a whole signal.
struct ORVO_API ElementName {
    explicit ElementName(const PureValueRef &name);

    PureValueRef whole;
    /// The number if there is exactly one, else -1.
    int lane = -1;
    /// How many numbers there are: one for all dimensions of a vector, and one for all records.
    int levels = 0;
    bool isPart = false;
    bool isImaginary = false;

    bool isElement() const { return isPart || levels != 0; }
    /// Whether an element is `real` or `imag`.
    static bool isPartWord(const PureValueRef &element);
};

} // namespace orvo
