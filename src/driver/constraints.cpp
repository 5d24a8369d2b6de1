// The library tells what it finds as messages; here they become findings.
#include "driver/constraints.h"

#include "driver/findingcollector.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/orvoutils.h>

namespace orvo::driver {

std::vector<Finding> checkConstraints(Design &design) {
    const FindingCollector collector(*design.getContext());
    OrvoUtils::requireStrictScheduleConstraints();
    OrvoUtils::gatherUpScheduleConstraints(design);
    return collector.findings();
}

} // namespace orvo::driver
