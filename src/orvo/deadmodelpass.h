// DeadModelPass deletes the models that no output needs.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Keeps the models that say how they are to be written out, and all that they instantiate at any depth; deletes every
/// other model.
///     top (with an output mode) -> filter,  old
///     top -> filter
class DeadModelPass final : public Pass {
    ORVO_PASS(DeadModelPass)
    void apply(PassContext &context) override;
};

} // namespace orvo
