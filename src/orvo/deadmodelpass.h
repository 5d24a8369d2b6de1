// DeadModelPass deletes the models that no output needs.
#pragma once

#include <orvo/pass.h>

#include <functional>
#include <vector>

namespace orvo {

class Block;
class Design;
class Model;

namespace internal {
/// Deletes all models but these and what they instantiate at any depth. `below` gives the model that a block stands
/// for, null for other blocks.
ORVO_API void keepModelsBelow(Design &design, std::vector<Model *> kept, const std::function<Model *(Block &)> &below);
} // namespace internal

/// Keeps the models that say how they are to be written out, and all that they instantiate at any depth; deletes every
/// other model.
///     top (with an output mode) -> filter,  old
///     top -> filter
class DeadModelPass final : public Pass {
    ORVO_PASS(DeadModelPass)
    void apply(PassContext &context) override;
};

} // namespace orvo
