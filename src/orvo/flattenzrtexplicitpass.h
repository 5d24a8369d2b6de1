// FlattenZRTExplicitPass dissolves the models that ask for it.
#pragma once

#include "orvo/flatteneverythingpass.h"

namespace orvo {

/// Dissolves the models that are marked (A_ZRT_MODEL_TO_BE_FLATTENED) wherever they are instantiated.
///     top: in -> f -> g -> out,  f (marked): in -> neg -> out
///     top: in -> (f neg) -> g -> out
class FlattenZRTExplicitPass final : public FlattenEverythingPass {
    ORVO_PASS(FlattenZRTExplicitPass)
    bool srcPredicate(const Model &model, PassContext &context) override;
};

} // namespace orvo
