// FlattenExplicitPass flattens the models that ask for it.
#pragma once

#include "orvo/flatteneverythingpass.h"

namespace orvo {

/// Flattens what is below the models that are marked (A_MODEL_TO_BE_FLATTENED), and leaves all others as they are.
///     top (marked): in -> f -> out,  other: in -> f -> out
///     top: in -> (f neg) -> out,     other: in -> f -> out
class FlattenExplicitPass final : public FlattenEverythingPass {
    ORVO_PASS(FlattenExplicitPass)
    bool dstPredicate(const Model &model, PassContext &context) override;
};

} // namespace orvo
