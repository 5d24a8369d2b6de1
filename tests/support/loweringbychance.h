// Lowering many designs by chance and comparing what they compute.
#pragma once

#include "support/lowering.h"

#include <cstddef>
#include <string>
#include <vector>

namespace orvo::test {

/// What the designs of a run were.
struct Tried {
    std::size_t all = 0;
    std::size_t withRefusals = 0;
};

/// Lowers designs by chance, each by one of the routes, and expects that they compute what they did, that the netlist
/// is sound behind each pass, and that nothing is left that a whole route takes apart. Twenty times as many as other
/// properties try: 2,000, or 200,000 by RC_PARAMS=max_success=10000. A failure shrinks to a small design.
Tried lowerByChance(const std::string &id, const std::vector<Route> &routes);

} // namespace orvo::test
