// Counting what a design holds.
#pragma once

#include "driver/jsontext.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace orvo {
class Design;
}

namespace orvo::driver {

/// Counts by the text of the block type; blocks without a type count under "(none)".
using BlockCounts = std::map<std::string, std::size_t>;

/// How large a design is.
struct NodeCounts {
    std::size_t blocks = 0;
    std::size_t wires = 0;
};

struct DesignStatistics {
    std::size_t models = 0;
    std::size_t blocks = 0;
    std::size_t wires = 0;
    std::size_t ports = 0;
    /// Of all nodes, the design's own included. A connection is a parameter, too.
    std::size_t params = 0;
    /// Models on the longest way from a top model down: 0 for an empty design, 1 for a flat one.
    std::size_t depth = 0;
    /// Whether a model instantiates itself, directly or through others.
    bool recursive = false;
    BlockCounts blocksByType;
    /// The models that no model block instantiates, in the design's order.
    std::vector<std::string> topModels;
};

DesignStatistics countDesign(const Design &design);
NodeCounts countNodes(const Design &design);
BlockCounts countBlocksByType(const Design &design);

/// The catalogue's name of a block type, with the text in brackets behind it where they differ.
std::string typeLabel(const std::string &type);

Json toJson(const BlockCounts &counts);

} // namespace orvo::driver
