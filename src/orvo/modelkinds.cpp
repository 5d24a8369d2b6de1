// The kinds of blocks and models, from their types and parameters alone.
#include <orvo/modelkinds.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <sstream>

namespace orvo {

namespace {

constexpr const StaticString *kIPBlocks[] = {
    &A_NCO_BLOCK,      &A_FIR_BLOCK,         &A_CIC_BLOCK,       &A_MIXER_BLOCK,        &A_SCALE_BLOCK,
    &A_CHANVIEW_BLOCK, &A_SHARED_FIFO_BLOCK, &A_EXT_IFACE_BLOCK, &A_HIDDEN_IFACE_BLOCK, &A_SCHEDULED_MODEL_BLOCK,
};

constexpr const StaticString *kInputMarkers[] = {
    &A_SIGNAL_IN_BLOCK,
    &A_CHANNEL_IN_BLOCK,
    &A_SARNET_MM_MASTER_IN_BLOCK,
    &A_SARNET_MM_SLAVE_IN_BLOCK,
};

constexpr const StaticString *kOutputMarkers[] = {
    &A_SIGNAL_OUT_BLOCK,
    &A_CHANNEL_OUT_BLOCK,
    &A_SARNET_MM_MASTER_OUT_BLOCK,
    &A_SARNET_MM_SLAVE_OUT_BLOCK,
};

bool hasTypeOf(const Block &block, std::span<const StaticString *const> types) {
    return std::any_of(types.begin(), types.end(),
                       [&block](const StaticString *type) { return block.type() == type->get_ptr(); });
}

bool isInlined(const Model &model) {
    const auto &parents = model.getParentBlocks();
    return std::any_of(parents.begin(), parents.end(),
                       [](const Block *block) { return block->findParam(A_INLINE_SCHEDULE) == A_TRUE.get_ptr(); });
}

} // namespace

bool isIPBlock(const Block &block) { return hasTypeOf(block, kIPBlocks); }

bool isInterfaceBlock(const Block &block) {
    return hasTypeOf(block, kInputMarkers) || hasTypeOf(block, kOutputMarkers);
}

std::span<const StaticString *const> interfaceBlockTypesInput() { return kInputMarkers; }
std::span<const StaticString *const> interfaceBlockTypesOutput() { return kOutputMarkers; }

bool isScheduledModel(const Model &model) { return model.findParam(A_SYNTH_CIRCUIT_TIMED) == A_TRUE.get_ptr(); }
bool isShuffleDelayModel(const Model &model) { return model.findParam(A_SYNTH_CIRCUIT_TIMED) == A_FALSE.get_ptr(); }

bool isNotOptimizedNotScheduledModel(const Model &model) {
    return !isScheduledModel(model) && !isShuffleDelayModel(model) &&
           model.findParam(A_SYNTH_OPTIMIZE) == A_FALSE.get_ptr();
}

// A model that tells nothing of its timing has not been given its options yet, and is taken at its constraints' word.
bool isScheduleRoot(const Model &model) {
    return (isScheduledModel(model) || model.findParam(A_SYNTH_CIRCUIT_TIMED) == nullptr) && !isInlined(model);
}

PureValueRef parseName(const std::string &text, Context *context) {
    std::istringstream in(text);
    const PureValueRef value(Value::parse(in, context));
    const bool whole = value && (in >> std::ws).eof();
    return whole ? value : PureValueRef(StringValue::get(text, context));
}

PureTupleValueRef tupleFromRefChain(const RefChain &refChain, Context *context) {
    std::vector<PureValueRef> links;
    for (const Block *block : refChain) {
        links.push_back(PureTupleValue::get(block->getModel().getName(), block->getName(), context));
    }
    return PureTupleValue::get(links, context);
}

} // namespace orvo
