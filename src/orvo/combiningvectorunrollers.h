// Blocks that make one number of many lanes: sums, joins of bits and scalar products.
#pragma once

#include <orvo/vectorunroller.h>

namespace orvo::internal {

const VectorUnrollHandler *primReduceVectorHandler();
const VectorUnrollHandler *scalarProductVectorHandler();

} // namespace orvo::internal
