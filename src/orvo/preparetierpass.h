// PrepareTierPass gives a tier of the schedule an interface of its own.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Has the signals at the boundary of each model that is a tier of the schedule go through interface blocks, so that
/// the tier can be scheduled alone.
///     input -> add -> output
///     input -> tierIn -> add -> tierOut -> output
class PrepareTierPass final : public ModelPass {
    ORVO_PASS(PrepareTierPass)
    using ModelPass::apply;
    void apply(ModelPassContext &context) override;
};

} // namespace orvo
