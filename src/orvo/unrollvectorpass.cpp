// Vector unrolling, inside models and across them.
#include "orvo/unrollvectorpass.h"

#include "orvo/boundaryvectorunroller.h"

namespace orvo {

ORVO_DEFINE_PASS(UnrollVectorPass,
                 "Blocks that work on vectors become scalar blocks, one a lane, or what their type needs. Packs and "
                 "unpacks of vectors join them to what keeps its vectors, such as the boundaries of models.")

ORVO_DEFINE_PASS(UnrollVectorCrossModelPass,
                 "Vectors at the boundaries of models become ports of their lanes, named by port and lane. The names "
                 "that ports had are kept with the run.")

void UnrollVectorCrossModelPass::apply(PassContext &context) {
    internal::BoundaryUnrolling<internal_vector::BlockUnrollerImpl, BoundaryVectorUnroller> boundaries(context);
    boundaries.unroll();
    boundaries.store();
}

} // namespace orvo
