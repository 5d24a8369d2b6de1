// ElideTerminalPass takes terminals and delays of no length out.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Takes out each terminal that is driven, and each delay of length 0: what read it reads its source.
///     a -> terminal -> b
///     a -> b
class ElideTerminalPass final : public ModelPass {
    ORVO_PASS(ElideTerminalPass)
    using ModelPass::apply;
    void apply(ModelPassContext &context) override;
};

} // namespace orvo
