// The reader of design XML.
#pragma once

#include <orvo/xmlservices.h>

#include <iosfwd>

namespace orvo {
class Design;
}

namespace orvo::internal {

/// Reads a design from a stream; false if an error counted as a failure.
bool readDesign(std::istream &in, Design &design, const XMLServices::ErrorFunc &errorFunc);

} // namespace orvo::internal
