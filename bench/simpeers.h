// Simulators from elsewhere on the netlist that the simulator here runs.
#pragma once

#include <cstddef>

namespace orvo::bench {

/// Prints compile time and time per cycle of each on one synthetic design, in a line a simulator; one that is not
/// installed is skipped with a line that says so. False if two of them compute different outputs.
bool printPeers(std::size_t blocks);

} // namespace orvo::bench
