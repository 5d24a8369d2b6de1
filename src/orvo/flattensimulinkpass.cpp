// Which subsystems of a drawing dissolve, and what may stand at the edges of those that are left.
#include "orvo/flattensimulinkpass.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/modelkinds.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <array>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(FlattenSimulinkPass,
                 "Dissolves scheduled subsystems into the scheduled subsystem around them, but for those with a "
                 "schedule tier of their own; then reports interface blocks outside of scheduled subsystems and "
                 "blocks between an interface block and the pins of its subsystem.")

namespace {

constexpr const StaticString *kTransparent[] = {&A_CPACK_BLOCK, &A_CUNPACK_BLOCK, &A_VSPLIT_BLOCK,  &A_VCONCAT_BLOCK,
                                                &A_VPACK_BLOCK, &A_VUNPACK_BLOCK, &A_TYPE_PIN_BLOCK};

/// The blocks from which traces start, and what each looks for.
struct Start {
    const StaticString *type;
    bool expectChannel;
    bool forward;
    const char *pins;
    const char *channel;
};
constexpr Start kStarts[] = {
    {&A_INPUT_BLOCK, true, true, "input", "In"},          {&A_OUTPUT_BLOCK, true, false, "output", "Out"},
    {&A_CHANNEL_IN_BLOCK, false, false, "input", "In"},   {&A_SIGNAL_IN_BLOCK, false, false, "input", "In"},
    {&A_CHANNEL_OUT_BLOCK, false, true, "output", "Out"}, {&A_SIGNAL_OUT_BLOCK, false, true, "output", "Out"},
};

bool isChannelIn(const Value *type) {
    return type == A_CHANNEL_IN_BLOCK.get_ptr() || type == A_SIGNAL_IN_BLOCK.get_ptr();
}
bool isChannelOut(const Value *type) {
    return type == A_CHANNEL_OUT_BLOCK.get_ptr() || type == A_SIGNAL_OUT_BLOCK.get_ptr();
}

const Start *startAt(const Block &block) {
    const auto *found = std::find_if(std::begin(kStarts), std::end(kStarts),
                                     [&block](const Start &start) { return start.type->get_ptr() == block.type(); });
    return found == std::end(kStarts) ? nullptr : found;
}

/// Finds the blocks that intervene in a model. What was found out stays for later traces of the same kind, so that all
/// traces together look at each connection once where nothing intervenes.
class Edges {
  public:
    /// The first block between this one and what it should reach; null if there is none.
    const Block *intervening(const Block &block, const Start &start) {
        Known &known = mKnown[(start.expectChannel ? 2 : 0) + (start.forward ? 1 : 0)];
        const Block *between = nullptr;
        if (start.forward) {
            for (auto wire = block.begin(); between == nullptr && wire != block.end(); ++wire) {
                between = known.look(*wire, start, [&](FindInterveningBlocks &trace) { trace.traceForward(*wire); });
            }
        } else {
            for (const Port &port : block.ports()) {
                between = known.look(*port.peekWire(), start,
                                     [&](FindInterveningBlocks &trace) { trace.traceBackward(port); });
                if (between != nullptr) {
                    break;
                }
            }
        }
        return between;
    }

  private:
    struct Known {
        std::unordered_map<const Wire *, const Block *> first;
        std::unordered_set<const Block *> clear;

        template <class Run> const Block *look(const Wire &wire, const Start &start, Run run) {
            const auto [found, isNew] = first.try_emplace(&wire, nullptr);
            if (isNew) {
                FindInterveningBlocks trace(start.expectChannel, start.forward, &clear);
                run(trace);
                if (trace.block_size() != 0) {
                    found->second = *trace.block_begin();
                } else {
                    clear.insert(trace.passed().begin(), trace.passed().end());
                }
            }
            return found->second;
        }
    };
    std::array<Known, 4> mKnown;
};

void checkEdges(const Model &model) {
    Edges edges;
    for (const Block &block : model) {
        const Start *start = startAt(block);
        const Block *between = start == nullptr ? nullptr : edges.intervening(block, *start);
        if (between == nullptr) {
            continue;
        }
        const log::LogParams params = log::p("model", model.value()) % log::p("block", between->value()) %
                                      log::p("pins", start->pins) % log::p("GPChannel", start->channel);
        if (start->expectChannel) {
            log::msg(msg::error::EXPECTED_GP_CHANNEL_INOUT, params);
        } else {
            log::msg(msg::error::BLOCK_BETWEEN_IOPIN_CHANNEL_INOUT, params % log::p("IOBlock", block.value()));
        }
    }
}

/// Such models are taken as they are drawn, interface blocks and all.
bool mayHoldInterfaceBlocks(const Model &model) {
    return model.findParam(A_SYNTH_CIRCUIT_TIMED) == A_SYNTH_NO_SCHEDULE_NO_SHUFFLE.get_ptr() &&
           model.findParam(A_SYNTH_OPTIMIZE) == A_FALSE.get_ptr();
}

} // namespace

FindInterveningBlocks::FindInterveningBlocks(bool findChannel, bool goForward,
                                             const std::unordered_set<const Block *> *clear)
    : expectChannel(findChannel), forward(goForward), mClear(clear) {
    traceInputOutputBlocks(true);
}

bool FindInterveningBlocks::isExpectedEnd(const Block &block) const {
    const Value *type = block.type();
    if (expectChannel) {
        return forward ? isChannelIn(type) : isChannelOut(type);
    }
    return type == (forward ? A_OUTPUT_BLOCK : A_INPUT_BLOCK).get_ptr();
}

TraceAction FindInterveningBlocks::keep(const Block &block, const RefChain &) {
    const bool transparent =
        std::any_of(std::begin(kTransparent), std::end(kTransparent),
                    [&block](const StaticString *type) { return type->get_ptr() == block.type(); });
    if (!transparent) {
        return isExpectedEnd(block) ? TRACE_STOP : TRACE_KEEP_STOP;
    }
    // The first is all that is told of.
    if (block_size() != 0 || (mClear != nullptr && mClear->count(&block) != 0)) {
        return TRACE_STOP;
    }
    mPassed.push_back(&block);
    return TRACE_PASS;
}

bool FlattenSimulinkPass::dstPredicate(const Model &model, PassContext &) {
    return model.findParam(A_SIMULINK_PATH) != nullptr && isScheduledModel(model);
}

bool FlattenSimulinkPass::srcPredicate(const Model &model, PassContext &context) {
    return FlattenEverythingPass::srcPredicate(model, context) && model.findParam(A_SIMULINK_PATH) != nullptr &&
           isScheduledModel(model) && model.findParam(A_SYNTH_SCHEDULE_TIER) != A_TRUE.get_ptr();
}

void FlattenSimulinkPass::validateSubsystemNesting(const Design &design, PassContext &context) {
    std::vector<const Model *> toCheck;
    std::unordered_set<const Model *> listed;
    const auto list = [&](const Model &model) {
        if (dstPredicate(model, context) && listed.insert(&model).second) {
            toCheck.push_back(&model);
        }
    };
    for (const Model &model : design) {
        if (isScheduledModel(model)) {
            continue;
        }
        for (const Block &block : model) {
            const Value *type = block.type();
            if ((isChannelIn(type) || isChannelOut(type)) && !mayHoldInterfaceBlocks(model)) {
                log::msg(msg::error::IOBLOCKS_OUTSIDE_PRIMITIVE_SUBSYSTEM,
                         log::p("model", model.value()) % log::p("block", block.value()));
            }
            const Model *below = type == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            if (below != nullptr) {
                list(*below);
            }
        }
    }
    for (const Model &model : design) {
        if (isScheduledModel(model) && !wasDissolved(model) &&
            model.findParam(A_SYNTH_OUTPUT_MODE) == A_SYNTH_OUTPUT_INTERNAL_ROOT.get_ptr()) {
            list(model);
        }
    }
    for (const Model *model : toCheck) {
        checkEdges(*model);
    }
}

} // namespace orvo
