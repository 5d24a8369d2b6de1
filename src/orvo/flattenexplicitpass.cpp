// The mark is on the model that receives.
#include "orvo/flattenexplicitpass.h"

#include <orvo/model.h>
#include <orvo/staticstrings.h>

namespace orvo {

ORVO_DEFINE_PASS(FlattenExplicitPass,
                 "Dissolves the sub-models of each model that is marked to be flattened (A_MODEL_TO_BE_FLATTENED) into "
                 "it, at any depth, but for folding kernels and the models of a bus.")

bool FlattenExplicitPass::dstPredicate(const Model &model, PassContext &) {
    return model.findParam(A_MODEL_TO_BE_FLATTENED) == A_TRUE.get_ptr();
}

} // namespace orvo
