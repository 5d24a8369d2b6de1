// What a pass may not leave behind: blocks that break the catalogue.
#pragma once

#include <string>
#include <vector>

namespace orvo {
class Design;
}

namespace orvo::test {

/// What the catalogue's verifier says of the blocks of a design, in their order.
std::vector<std::string> catalogueFindings(const Design &design);
/// The same, but for what it says of the blocks of
/// the same names in the design that this one came from.
std::vector<std::string> newCatalogueFindings(const Design &before, const Design &after);

} // namespace orvo::test
