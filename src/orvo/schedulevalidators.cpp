// The checks of what a model says of its schedule: what may stand outside of one, on what it depends, and between which
// blocks its latency is constrained.
#include "orvo/modelvalidators.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/logging.h>
#include <orvo/modelkinds.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace orvo {

namespace {

/// Logic that works without a schedule.
constexpr const StaticString *kUnscheduledLogic[] = {&A_MUX_BLOCK, &A_LUT_BLOCK, &A_COUNTER_BLOCK};
/// No logic, but what a model is made of.
constexpr const StaticString *kStructure[] = {
    &A_INPUT_BLOCK,    &A_OUTPUT_BLOCK,    &A_MODEL_BLOCK,      &A_CONST_BLOCK,      &A_TYPE_PIN_BLOCK,
    &A_TERMINAL_BLOCK, &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK, &A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK,
};

template <class Types> bool isOneOf(const Block &block, const Types &types) {
    return std::any_of(std::begin(types), std::end(types),
                       [&](const StaticString *type) { return block.type() == type->get_ptr(); });
}

/// Whether some block takes the model out of a schedule into one of its own.
bool beginsSchedule(const Model &model) {
    const auto &parents = model.getParentBlocks();
    return isScheduledModel(model) && std::any_of(parents.begin(), parents.end(), [](const Block *parent) {
               return !isScheduledModel(parent->getModel());
           });
}

/// The blocks at which a constraint on the whole model may start and end.
struct ConstraintEnds {
    const StaticString &pair;
    const StaticString &start;
    const StaticString &end;
    const char *prefix;
};

const ConstraintEnds *endsOf(const Value *pair) {
    static const ConstraintEnds kinds[] = {
        {A_SYNTH_LATENCY_CONSTRAINT_CHANNEL_IO, A_CHANNEL_IN_BLOCK, A_CHANNEL_OUT_BLOCK, "Channel-"},
        {A_SYNTH_LATENCY_CONSTRAINT_GP_IO, A_SIGNAL_IN_BLOCK, A_SIGNAL_OUT_BLOCK, "GP"},
    };
    const auto *found = std::find_if(std::begin(kinds), std::end(kinds),
                                     [&](const ConstraintEnds &kind) { return pair == kind.pair.get_ptr(); });
    return found == std::end(kinds) ? nullptr : found;
}

void tellUnlessOne(std::ptrdiff_t count, msg::Error missing, msg::Error ambiguous, const log::LogParams &params) {
    if (count != 1) {
        log::msg(count == 0 ? missing : ambiguous, params);
    }
}

} // namespace

void ShuffleDelayBlocksValidator::validate(ModelPassContext &context) {
    const Model &model = context.getModel();
    if (!isShuffleDelayModel(model)) {
        return;
    }
    for (const Block &block : model) {
        if (!isOneOf(block, kUnscheduledLogic) && !isOneOf(block, kStructure)) {
            log::msg(msg::error::INVALID_BLOCK_OUTSIDE_SCHEDULED_SUBSYSTEM,
                     log::p("model", model.value()) % log::p("block", block.value()));
        }
    }
}

void DependentLatencyPreValidator::validate(ModelPassContext &context) {
    const Model &model = context.getModel();
    const PureValueRef named(model.getParam(A_SYNTH_LATENCY_DEPENDS_ON_SIMULINK_PATH));
    if (!named || named == StringValue::get("", model.getContext()) || !beginsSchedule(model)) {
        return;
    }
    const auto check = [&](const PureValueRef &path) {
        const std::vector<const Model *> *models = facts().drawnAt(path, context);
        if (models == nullptr) {
            // A model that is not there allows nothing.
            const StringValueRef text = stringVR(path);
            log::msg(msg::error::BAD_MODEL_DEPENDS_UPON, log::p("model", text ? text->str() : path->toString()));
            return;
        }
        for (const Model *upon : *models) {
            if (upon->findParam(A_SYNTH_LATENCY_CAN_BE_DEPENDED_UPON) != A_TRUE.get_ptr()) {
                log::msg(msg::error::BAD_MODEL_DEPENDS_UPON, log::p("model", upon->value()));
            }
        }
    };
    const PureTupleValueRef several = pureTupleVR(named);
    if (!several || facts().drawnAt(named, context) != nullptr) {
        check(named);
        return;
    }
    for (const PureValueRef &path : *several) {
        check(path);
    }
}

void LatencyConstraintValidator::validate(ModelPassContext &context) {
    const Model &model = context.getModel();
    const ConstraintEnds *ends = endsOf(model.findParam(A_SYNTH_LATENCY_CONSTRAINT_PAIR));
    if (ends == nullptr) {
        return;
    }
    const auto count = [&](const StaticString &type) {
        return std::count_if(model.begin(), model.end(),
                             [&](const Block &block) { return block.type() == type.get_ptr(); });
    };
    const log::LogParams place = log::p("model", model.value());
    tellUnlessOne(count(ends->start), msg::error::CONSTRAINT_MISSING_START_BLOCK,
                  msg::error::CONSTRAINT_AMBIGUOUS_START_BLOCK, place % log::p("intype", ends->prefix));
    tellUnlessOne(count(ends->end), msg::error::CONSTRAINT_MISSING_END_BLOCK,
                  msg::error::CONSTRAINT_AMBIGUOUS_END_BLOCK, place % log::p("outtype", ends->prefix));
}

} // namespace orvo
