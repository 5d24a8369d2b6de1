// "Did you mean": the known name that is nearest to a wrong one. One helper serves verbs, options, passes, parameters,
// block types, tags and features.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvo::driver {

/// The least number of insertions, deletions, replacements and swaps of neighbours that turn `a` into `b`, letters
/// compared without regard to case. Time and memory grow with the product of the lengths.
std::size_t editDistance(std::string_view a, std::string_view b);

/// The candidate that `wrong` was probably meant to be: the nearest one if a third of the letters or fewer differ, else
/// the shortest that begins with `wrong`. Empty if none is near. The first of equally good ones wins.
std::string suggest(std::string_view wrong, const std::vector<std::string> &candidates);

} // namespace orvo::driver
