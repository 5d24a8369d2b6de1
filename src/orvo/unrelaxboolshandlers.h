// The conditions of each block type that may relax them.
#pragma once

#include <orvo/unrelaxbools.h>

namespace orvo::internal {

void registerUnrelaxBoolsHandlers(Context *context);

} // namespace orvo::internal
