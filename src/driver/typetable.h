// The types of a design as a table: one row for each port and wire in each instance of each model.
#pragma once

#include "driver/jsontext.h"

#include <orvo/value.h>

#include <cstddef>
#include <string>
#include <vector>

namespace orvo {
class Design;
}

namespace orvo::driver {

struct TypeRow {
    /// The top model, then the model blocks on the way: top/a/b.
    std::string instance;
    std::string block;
    bool isPort;
    std::string name;
    /// Null if it is not known.
    PureValueRef type;
};

/// What goes into a table; an empty name lets everything in.
struct TypeFilter {
    std::string model;
    std::string instance;
    bool missing = false;
    bool ports = true;
};

struct TypeTable {
    std::vector<TypeRow> rows;
    /// Of all instances, chosen or not.
    std::vector<std::string> models;
    std::vector<std::string> instances;
    bool anyChosen = false;
};

/// Infers the types of a design. Rows stand in the order of instances from the top down, then of blocks.
TypeTable collectTypes(const Design &design, const TypeFilter &filter);

/// The type in short, and the whole value behind it.
std::string typeText(const PureValueRef &type);
/// The members "type" and "value", null where the type is not known.
Json typeJson(const PureValueRef &type);

struct TypeChange {
    const TypeRow *row;
    PureValueRef before;
};

/// What became of the types of one table in a later one. The rows belong to the later table.
struct TypeComparison {
    std::vector<TypeChange> changed;
    std::size_t same = 0;
    /// Rows that only one of the tables has.
    std::size_t gone = 0;
    std::size_t made = 0;
};

TypeComparison compareTypes(const TypeTable &before, const TypeTable &after);

} // namespace orvo::driver
