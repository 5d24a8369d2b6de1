// Type rules as tables: what a block's inputs and parameters are, and what its outputs must come to.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orvo::testing {

/// Keys and values are value text; types are in the short form: "s8.4", "u1.0", "float(23,8)", "fplib(23,8)", "c s8.4"
/// for complex, "[4][3] s8.4" outermost first, "{s8.0,u1.0}" for a record. An input of type "" is connected to
/// something unknown; an output of type "" must be unknown.
struct TypeCase {
    using Texts = std::vector<std::pair<const char *, const char *>>;
    const char *name;
    /// The block type's text.
    const char *block;
    Texts inputs;
    Texts params;
    Texts outputs;
    /// Outputs that are connected to a type pin of this type.
    Texts pinned = {};
    /// What ports must come to.
    Texts ports = {};
    /// Whether the rule contradicts what stands around the block, which is reported; otherwise no message may come.
    bool conflicts = false;
    /// Of the model that holds the block.
    Texts modelParams = {};
};

/// Builds each block with its inputs driven from the model's edge, asks for the types of its outputs and compares.
void checkTypes(const std::vector<TypeCase> &cases);

/// Reads the short form of a type into the text of its tuple.
std::string typeText(const std::string &shortForm);

} // namespace orvo::testing
