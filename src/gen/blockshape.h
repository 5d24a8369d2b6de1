// Which ports, wires and parameters the blocks of a type may have, as the catalogue tells, in values of one context;
// and what the open parameters of the catalogue are given.
#pragma once

#include "gen/recipe.h"
#include "gen/signalshape.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orvo::gen {

/// A port or wire of a shape.
struct PinShape {
    enum class Role {
        /// A value of the class that is wanted.
        Data,
        /// One bit.
        Control,
        /// A few unsigned bits: addresses, counts, selects.
        Small,
        /// The number of a channel: 8 bits.
        Channel,
    };
    PureValueRef key;
    /// Every number from 0 on, or every pair of the key and such a number.
    bool isRepeated = false;
    /// Any name.
    bool isFree = false;
    bool isOptional = false;
    Role role = Role::Data;
};

/// The inputs of the block that a parameter is made for, in the order of their ports, and how often what repeats does.
struct ParamRequest {
    Context *context;
    Chooser &chooser;
    const std::vector<SignalShape> &inputs;
    std::size_t repeats;
};

/// A parameter's value; null leaves it out.
using Provider = ValueRef (*)(const ParamRequest &request);

struct ParamShape {
    PureValueRef key;
    bool isOptional = false;
    /// Allowed values, if the list of them is closed.
    std::vector<ValueRef> values;
    Provider provider = nullptr;
};

/// The family of the blocks that belong to the bus where they have no name.
inline constexpr const char *kBusFamily = "A_SARNET_MM";

struct BlockShape {
    /// The name of the type in the catalogue.
    std::string name;
    PureValueRef type;
    std::vector<PinShape> ports;
    std::vector<PinShape> wires;
    std::vector<ParamShape> params;
    /// Of the blocks of a family one stands in a design, at its top; empty for a type of which many may.
    std::string family;
    /// Why no block of this type is made by its shape; empty if it is.
    std::string reason;
};

/// All block types, in the order of their names.
std::vector<BlockShape> blockShapes(Context *context);

} // namespace orvo::gen
