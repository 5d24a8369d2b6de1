// Which element of a compound signal something of a lowered design is, as its name or number tells.
#pragma once

#include "driver/wiringelements.h"

#include <orvo/compoundtypeinfo.h>
#include <orvo/nameorigin.h>

#include <optional>
#include <string>
#include <vector>

namespace orvo::driver {

/// Where the steps of a name lead to.
struct NamedElement {
    /// One element of each level, or all of it.
    Elements path;
    /// For people, a text for each step, those of the block first.
    std::vector<std::string> words;
};

/// Reads the steps that unrolling put around the name of a block, and those that it put around the name of a port or
/// wire of it. Nothing if they do not fit a signal of the shape. Without a shape, all lanes are taken for those of
/// nested vectors.
std::optional<NamedElement> readNamedElement(const std::vector<NameStep> &ofBlock, const std::vector<NameStep> &ofKey,
                                             const std::optional<CompoundTypeInfo> &shape);

/// The elements of a signal in the order in which a pin has them that was unrolled so: "vunroll", "aunroll" and
/// "cunroll" steps say what came apart, the first first.
std::vector<Elements> elementsInOrder(const std::vector<NameStep> &substitutes, const CompoundTypeInfo &shape);

/// What of `wanted` is to be found at an element: which elements inside of it, empty for all. Nothing if `wanted` is
/// elsewhere.
std::optional<Elements> wantedInside(const Elements &wanted, const Elements &path);

} // namespace orvo::driver
