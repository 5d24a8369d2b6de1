// What differs between two designs, by model, block, port and parameter.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace orvo {
class Design;
}

namespace orvo::driver {

/// One difference.
struct DesignChange {
    enum class What { Model, Block, Param, Port, Wire, WireParam };
    enum class How { Added, Removed, Changed };
    What what;
    How how;
    /// Empty for a parameter of the design.
    std::string model;
    /// Empty for a model and its parameters.
    std::string block;
    /// For a block its type, in the second design if it is in both; else empty.
    std::string type;
    /// Of the parameter, port or wire; empty for models and blocks.
    std::string name;
    /// The parameter of a wire.
    std::string param;
    /// Values of parameters; of a port, the wire that it reads. Empty where there is none.
    std::string before;
    std::string after;
};

struct DesignDiff {
    /// Models in the order of their names, then blocks, and what is of a block in that order, too. Not more than asked
    /// for.
    std::vector<DesignChange> changes;
    /// Of all changes.
    std::size_t count = 0;
    std::size_t models = 0;
    std::size_t blocksAdded = 0;
    std::size_t blocksRemoved = 0;
    std::size_t blocksChanged = 0;
};

/// Compares two designs of one context; keeps up to `most` changes. Time grows with the sizes of the designs.
DesignDiff diffDesigns(const Design &before, const Design &after, std::size_t most);

} // namespace orvo::driver
