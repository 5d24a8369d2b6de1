// Estimates of what designs cost, as reports show them.
#pragma once

#include "driver/jsontext.h"
#include "generator/designestimate.h"

#include <string>

namespace orvo::driver {

/// What a whole design costs, as far as that is known.
struct DesignCost {
    generator::Usage usage;
    std::int64_t uncounted = 0;
    bool isComplete = true;
};
DesignCost costOf(const generator::DesignEstimate &estimate);

/// A table of the models and the total.
std::string resourcesText(const generator::DesignEstimate &estimate);
Json toJson(const DesignCost &cost);
Json toJson(const generator::DesignEstimate &estimate);

/// The heading of a table of passes, and a row of it: figures, or what a pass changed in them.
std::string resourcesHeading();
std::string resourcesRow(const std::string &number, const std::string &name, const DesignCost &cost);
std::string resourcesChange(const std::string &number, const std::string &name, const DesignCost &before,
                            const DesignCost &after);

} // namespace orvo::driver
