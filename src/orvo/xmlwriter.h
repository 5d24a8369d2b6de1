// The writer of design XML.
#pragma once

#include <iosfwd>

namespace orvo {
class Design;
}

namespace orvo::internal {

/// Writes the whole design. A value that XML cannot carry (bytes that are no UTF-8, control characters) sets the
/// stream's fail bit and ends the writing.
void writeDesign(std::ostream &out, const Design &design);

} // namespace orvo::internal
