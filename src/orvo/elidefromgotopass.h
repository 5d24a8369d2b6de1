// ElideFromGotoPass draws the wires that From and Goto blocks stand for.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// What reads a From reads the signal of the Goto with its tag, through new ports of the models on the way where the
/// two stand in different models. All Gotos and Froms go but for those that are reported: Gotos that lack their signal
/// or their tag, and Froms that could not be resolved. Edges of domains at them move to the wires that took their
/// place.
///     a -> goto "t",  from "t" -> b
///     a -> b
class ElideFromGotoPass final : public Pass {
    ORVO_PASS(ElideFromGotoPass)
    void declare(PassDeclarations &declarations) override;
    void apply(PassContext &context) override;
};

} // namespace orvo
