// The mark is on the model that dissolves.
#include "orvo/flattenzrtexplicitpass.h"

#include <orvo/model.h>
#include <orvo/staticstrings.h>

namespace orvo {

ORVO_DEFINE_PASS(FlattenZRTExplicitPass,
                 "Dissolves each model that is marked for it (A_ZRT_MODEL_TO_BE_FLATTENED) into every model that "
                 "instantiates it, and no other.")

bool FlattenZRTExplicitPass::srcPredicate(const Model &model, PassContext &) {
    return model.findParam(A_ZRT_MODEL_TO_BE_FLATTENED) == A_TRUE.get_ptr();
}

} // namespace orvo
