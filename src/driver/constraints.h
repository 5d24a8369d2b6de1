// The strict check of latency constraints for the verb "check".
#pragma once

#include "driver/catalogue.h"

namespace orvo::driver {

/// All that is wrong with the constraints of the design, as they stand once they are gathered at the roots of its
/// schedules, which this does.
std::vector<Finding> checkConstraints(Design &design);

} // namespace orvo::driver
