// Random edits of a design, drawn from a list of numbers so that a failing sequence shrinks.
#pragma once

#include <cstdint>
#include <vector>

namespace orvo {
class Design;
}

namespace orvo::test {

/// Applies one edit for each number: making, deleting and renaming of nodes, parameters of all kinds, connections,
/// references to models, replaced wires, clones. Names come from a small set, so that they clash, and hold odd
/// characters.
void applyEdits(Design &design, const std::vector<std::uint32_t> &edits);

} // namespace orvo::test
