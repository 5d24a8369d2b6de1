// Blocks that only join, part or choose lanes: wires and packs take their place.
#pragma once

#include <orvo/vectorunroller.h>

namespace orvo::internal {

const VectorUnrollHandler *vecConcatHandler();
const VectorUnrollHandler *vecSplitHandler();
const VectorUnrollHandler *vecSelectorHandler();

} // namespace orvo::internal
