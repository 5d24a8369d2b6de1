// What a block or a model is to the scheduler: which blocks are markers of an interface or hold logic of their own, and
// how the contents of a model are timed.
#pragma once

#include <orvo/model.h>

#include <span>
#include <string>

namespace orvo {

/// NCO, FIR, CIC, mixer, scale, channel view, shared FIFO, external and hidden interface, scheduled model.
ORVO_API bool isIPBlock(const Block &block);
/// Markers of signals, channels and memory-mapped masters and slaves.
ORVO_API bool isInterfaceBlock(const Block &block);
/// The types of the markers through which signals come into a design.
ORVO_API std::span<const StaticString *const> interfaceBlockTypesInput();
/// The types of those through which they leave.
ORVO_API std::span<const StaticString *const> interfaceBlockTypesOutput();

/// Whether the scheduler places the blocks of the model in time: its `A_SYNTH_CIRCUIT_TIMED` is `A_TRUE`.
ORVO_API bool isScheduledModel(const Model &model);
/// Whether the model is not scheduled, but its delays may be moved about: the parameter is `A_FALSE`.
ORVO_API bool isShuffleDelayModel(const Model &model);
/// Neither of these, and `A_SYNTH_OPTIMIZE` is `A_FALSE`: the model is left as it was drawn.
ORVO_API bool isNotOptimizedNotScheduledModel(const Model &model);
/// Whether the scheduler starts at this model: no block takes it into the schedule of the model around it, and it does
/// not say that it is not scheduled.
ORVO_API bool isScheduleRoot(const Model &model);

/// The name that a person wrote: the value of this text, or the text itself where it is not that of one value.
ORVO_API PureValueRef parseName(const std::string &text, Context *context);
/// The (model name, block name) pairs of a chain, from the root down; the empty tuple for the empty chain.
ORVO_API PureTupleValueRef tupleFromRefChain(const RefChain &refChain, Context *context);

} // namespace orvo
