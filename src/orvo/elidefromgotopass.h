// ElideFromGotoPass draws the wires that From and Goto blocks stand for.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// What reads a From reads the signal of the Goto with its tag, through new ports of the models on the way where the
/// two stand in different models. All Gotos go, and all Froms that were resolved.
///     a -> goto "t",  from "t" -> b
///     a -> b
class ElideFromGotoPass final : public Pass {
    ORVO_PASS(ElideFromGotoPass)
    void declare(PassDeclarations &declarations) override;
    void apply(PassContext &context) override;
};

} // namespace orvo
