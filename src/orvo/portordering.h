// Ports and wires of each block type by number.
#pragma once

#include <orvo/blockclass.h>

namespace orvo {
class Context;
}

namespace orvo::internal {

/// Registers the handlers of the types whose ports are not in the order of their names.
void registerPortOrderingHandlers(Context *context);

} // namespace orvo::internal
