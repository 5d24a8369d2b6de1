// Blocks that become one block a lane, where a lane gets a value, contents or a type of its own.
#pragma once

#include <orvo/vectorunroller.h>

namespace orvo::internal {

/// A tuple of a value a lane, rolled or not.
const VectorUnrollHandler *laneTupleVectorHandler();
/// A value a lane in the type of all.
const VectorUnrollHandler *constVectorHandler();
const VectorUnrollHandler *lutVectorHandler();
const VectorUnrollHandler *dualMemVectorHandler();
/// A cast behind each lane if their values differ.
const VectorUnrollHandler *wideningVectorHandler();
const VectorUnrollHandler *counterVectorHandler();
const VectorUnrollHandler *constMultVectorHandler();

} // namespace orvo::internal
