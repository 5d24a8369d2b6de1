// Designs of one block, to look at what its type computes.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvo {
class Context;
class Design;
} // namespace orvo

namespace orvo::test {

/// Keys with types or values, as texts.
using KeyedTexts = std::vector<std::pair<const char *, const char *>>;

/// A model "top" with one block named "block". Its ports hang on typed inputs i100, i101, ..., its wires on outputs
/// o100, o101, ..., in the order given. Types are written as `testing::typeText` takes them.
std::unique_ptr<Design> oneBlock(Context *context, const std::string &type, const KeyedTexts &inputs,
                                 const KeyedTexts &params, const std::vector<const char *> &outputs);

} // namespace orvo::test
