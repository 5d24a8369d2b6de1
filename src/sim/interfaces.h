// What the blocks at the design's border share.
#pragma once

#include "sim/compiler.h"

namespace orvo::sim {

/// Under which name the outside knows a signal of an interface: the pair of the interface's name, which the block or
/// its model tells, and the signal; the signal alone where neither does.
PureValueRef interfaceSignal(const BlockWriter &writer, const StaticString &nameKey, const PureValueRef &signal);
/// The type of an unsigned integer of so many bits.
const SignalType &wordType(const BlockWriter &writer, int width);

} // namespace orvo::sim
