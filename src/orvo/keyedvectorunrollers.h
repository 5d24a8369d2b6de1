// Blocks that know lanes by the keys of their ports and wires: what they become has a key a lane.
#pragma once

#include <orvo/vectorunroller.h>

namespace orvo::internal {

const VectorUnrollHandler *primBoundaryVectorHandler();
const VectorUnrollHandler *pipeVectorHandler();
const VectorUnrollHandler *ipVectorHandler();
const VectorUnrollHandler *latencyPlaceholderVectorHandler();
const VectorUnrollHandler *loopVectorHandler();
const VectorUnrollHandler *stallBoundaryVectorHandler();
const VectorUnrollHandler *typePinVectorHandler();
const VectorUnrollHandler *demuxVectorHandler();

} // namespace orvo::internal
