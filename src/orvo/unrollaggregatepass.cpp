// Unrolling of records, inside models and across them.
#include "orvo/unrollaggregatepass.h"

#include "orvo/boundaryaggregateunroller.h"

namespace orvo {

ORVO_DEFINE_PASS(UnrollAggregatePass,
                 "Blocks that carry records become blocks of their members, one a member, or what their type needs. "
                 "Packs and unpacks of records join them to what keeps its records, such as the boundaries of models.")

ORVO_DEFINE_PASS(UnrollAggregateCrossModelPass,
                 "Records at the boundaries of models become ports of their members, named by port and member. The "
                 "names that ports had are kept with the run.")

void UnrollAggregateCrossModelPass::apply(PassContext &context) {
    internal::BoundaryUnrolling<internal_aggregate::BlockUnrollerImpl, BoundaryAggregateUnroller, AggregateTypeManager>
        boundaries(context);
    boundaries.unroll();
    boundaries.store();
}

} // namespace orvo
