// Estimates of what designs cost, as reports show them.
#pragma once

#include "driver/jsontext.h"
#include "generator/designestimate.h"

#include <string>

namespace orvo::driver {

/// A table of the models and the total.
std::string resourcesText(const generator::DesignEstimate &estimate);
Json toJson(const generator::Usage &usage);
Json toJson(const generator::DesignEstimate &estimate);

/// The heading of a table of passes, and a row of it: figures, or what a pass changed in them.
std::string resourcesHeading();
std::string resourcesRow(const std::string &number, const std::string &name, const generator::Usage &usage);
std::string resourcesChange(const std::string &number, const std::string &name, const generator::Usage &before,
                            const generator::Usage &after);

} // namespace orvo::driver
