// The pass that fits models that were scheduled elsewhere into designs whose signals are not taken apart yet.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// A model that comes scheduled has ports for the scalars of its signals, while the block that stands for it still
/// shows the signals as they were drawn. Here the block gets the ports of the scheduled model, with unpacks and packs
/// around it.
///     x: complex -> model -> y: vector of 2
///     x -> unpack -> (x real), (x imag) -> model -> (y 0), (y 1) -> pack -> y
class UnrollScheduledModelPass final : public ModelPass {
    ORVO_PASS(UnrollScheduledModelPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void apply(ModelPassContext &context) override;
};

} // namespace orvo
