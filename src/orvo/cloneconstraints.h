// What a copy of models does to latency constraints.
#pragma once

#include <orvo/model.h>

#include <map>
#include <utility>
#include <vector>

namespace orvo::internal {

/// Sources with their copies, which are all of one design each.
using ModelCopies = std::vector<std::pair<const Model *, Model *>>;

/// Gives the constraints of copies that were made together fresh ids, entered in `ids`, with the records and ends that
/// stand on other models; drops what no longer has both ends. Instances of copies by copies are wired up before.
void carryConstraints(const ModelCopies &copies, std::map<int, int> &ids);

} // namespace orvo::internal
