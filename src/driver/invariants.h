// A walk over a whole design that follows every link in both directions: what --verify-each checks beside the block
// catalogue. It finds faults of passes and of the netlist itself, never of a user's design.
#pragma once

#include <string>
#include <vector>

namespace orvo {
class Design;
}

namespace orvo::driver {

/// One sentence for each link that does not hold; no more than `most`.
std::vector<std::string> findBrokenLinks(const Design &design, std::size_t most = 20);

} // namespace orvo::driver
