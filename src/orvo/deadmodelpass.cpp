// Marks the models that are reached from those with an output mode, and deletes the rest.
#include "orvo/deadmodelpass.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(DeadModelPass,
                 "Keeps the models that say how they are to be written out (A_SYNTH_OUTPUT_MODE), and all "
                 "that they instantiate at any depth; deletes every other model.")

namespace {

/// The model of a model block; null, after a warning, if it names none.
Model *modelOf(Block &block) {
    if (!block[A_MODEL_NODE]) {
        log::msg(msg::warning::MODEL_BLOCK_WITHOUT_MODEL_NODE, log::p("block", block.value()));
        return nullptr;
    }
    return Node::from<Model>(block[A_MODEL_NODE]);
}

} // namespace

void DeadModelPass::apply(PassContext &context) {
    std::vector<Model *> outputs;
    for (Model &model : context.getDesign()) {
        if (model[A_SYNTH_OUTPUT_MODE]) {
            outputs.push_back(&model);
        }
    }
    internal::keepModelsBelow(context.getDesign(), std::move(outputs), [](Block &block) {
        return block.type() == A_MODEL_BLOCK.get_ptr() ? modelOf(block) : nullptr;
    });
}

void internal::keepModelsBelow(Design &design, std::vector<Model *> kept,
                               const std::function<Model *(Block &)> &below) {
    std::unordered_set<const Model *> live(kept.begin(), kept.end());
    for (std::size_t i = 0; i < kept.size(); ++i) {
        for (Block &block : *kept[i]) {
            Model *model = below(block);
            if (model != nullptr && live.insert(model).second) {
                kept.push_back(model);
            }
        }
    }
    std::vector<Model *> dead;
    for (Model &model : design) {
        if (live.count(&model) == 0) {
            dead.push_back(&model);
        }
    }
    for (Model *model : dead) {
        delete model;
    }
}

} // namespace orvo
