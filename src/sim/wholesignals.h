// Signals of blocks that go by the names of their ports, as if none had been taken apart: what stands under a name, or
// what stands under (name, lane), (name, part) and (name, part, lane) for its lanes and the parts of complex numbers,
// is one signal. A block then computes the same in both forms.
#pragma once

#include "sim/compiler.h"

namespace orvo::sim {

/// The signal at a port, unknown if neither it nor an element of it is connected.
Signal wholeInput(BlockWriter &writer, const PureValueRef &name);
/// Those at numbered ports, in the order of the numbers. Outputs of the block are unknown without so many, and
/// compilation ends unless all are fixed-point numbers.
std::vector<Signal> wholeFixedInputs(BlockWriter &writer, std::size_t least);

/// The names of numbered ports, and of their elements.
std::vector<PureValueRef> numberedNames(const BlockWriter &writer);

/// The type of an output, null without one. Of lanes nobody may read the last ones; `lanes` tells how many there are.
const SignalType *wholeOutputType(const BlockWriter &writer, const PureValueRef &name, std::uint32_t lanes = 0);
/// The output, for whoever writes all of it.
Signal wholeOutput(BlockWriter &writer, const PureValueRef &name, std::uint32_t lanes = 0);
/// The numbers of outputs, each once; a number that is none of an output is -1.
std::vector<int> outputNumbers(const BlockWriter &writer);

} // namespace orvo::sim
