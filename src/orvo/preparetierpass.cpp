// Interface blocks carry signals under the names that these have at the boundary: what asks for the signals of a
// boundary finds them by name at the blocks next to it.
#include "orvo/preparetierpass.h"

#include <orvo/block.h>
#include <orvo/compoundportcorrespondence.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(PrepareTierPass,
                 "Has each input and output of a model that is a tier of the schedule (A_SYNTH_SCHEDULE_TIER) go "
                 "through an interface block of its own, named tierIn or tierOut, unless it goes through one already, "
                 "so that the tier can be scheduled alone.")

namespace {

bool isOneOf(const Block &block, const StaticString &a, const StaticString &b) {
    return block.type() == a.get_ptr() || block.type() == b.get_ptr();
}

/// An interface block for the signal of that name. A name that is also a setting of the block gives way to a number.
struct Marker {
    Marker(Model &model, const char *name, const StaticString &type, const PureValueRef &signal)
        : block(*Block::create(model, name, type)),
          key(block.findParam(signal.get_ptr()) == nullptr ? signal
                                                           : PureValueRef(NumberValue::get(0, model.getContext()))),
          out(*Wire::create(block, key)) {}

    Block &block;
    PureValueRef key;
    Wire &out;
};

/// An input that nobody reads is one of the tier's, too.
void enter(Wire &wire) {
    std::vector<MaybePort> readers;
    bool isEntered = false;
    for (const Port &port : wire.ports()) {
        if (isOneOf(port.getBlock(), A_SIGNAL_IN_BLOCK, A_CHANNEL_IN_BLOCK)) {
            isEntered = true;
        } else {
            readers.emplace_back(port);
        }
    }
    if (isEntered && readers.empty()) {
        return;
    }
    const Marker marker(wire.getBlock().getModel(), "tierIn", A_SIGNAL_IN_BLOCK, wire.getName());
    for (const MaybePort &reader : readers) {
        reader.setWire(marker.out);
    }
    marker.block.setParam(marker.key, wire);
}

void leave(const MaybePort &output) {
    Wire &wire = *output.getWire();
    if (isOneOf(wire.getBlock(), A_SIGNAL_OUT_BLOCK, A_CHANNEL_OUT_BLOCK)) {
        return;
    }
    const Marker marker(output.getBlock().getModel(), "tierOut", A_SIGNAL_OUT_BLOCK, output.getKey());
    marker.block.setParam(marker.key, wire);
    output.setWire(marker.out);
}

} // namespace

void PrepareTierPass::apply(ModelPassContext &context) {
    Model &model = context.getModel();
    if (model.findParam(A_SYNTH_SCHEDULE_TIER) != A_TRUE.get_ptr()) {
        return;
    }
    for (Block *input : model.getInputBlocks()) {
        for (Wire &wire : *input) {
            enter(wire);
        }
    }
    std::vector<MaybePort> outputs;
    for (const Block *output : model.getOutputBlocks()) {
        for (const Port &port : output->ports()) {
            outputs.emplace_back(port);
        }
    }
    for (const MaybePort &output : outputs) {
        leave(output);
    }
}

} // namespace orvo
