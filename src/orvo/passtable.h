// The passes of the system.
#pragma once

namespace orvo::internal {

/// Registers every pass, in the order of the table.
void registerAllPasses();

} // namespace orvo::internal
