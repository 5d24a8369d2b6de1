// What a block tells of its signals under their names, once these have come apart.
#pragma once

#include <orvo/block.h>
#include <orvo/unrollmappings.h>

namespace orvo::internal {

/// Has the depths of logic of an interface (`A_EXT_IFACE_SUBCYCLE_LATENCY`) name what stands for a port or wire now:
/// each element is as deep as the whole was.
void renameSubcycleLatencies(Block &block, const UnrollMappings &ports, const UnrollMappings &wires);

} // namespace orvo::internal
