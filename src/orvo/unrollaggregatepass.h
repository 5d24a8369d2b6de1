// The passes that leave no records: inside models, and at their boundaries.
#pragma once

#include "orvo/aggregateunroll.h"
#include "orvo/unrollpasses.h"

namespace orvo {

/// Takes blocks of records apart, model by model. Boundaries of models keep their records; packs and unpacks join them
/// to the members.
///     x: record of 2 -> delay -> z: record of 2
///     x -> unpack -> x0, x1;  x0 -> delay -> z0;  x1 -> delay -> z1;  z0, z1 -> pack -> z
class UnrollAggregatePass final : public ModelPass {
    ORVO_PASS(UnrollAggregatePass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override { internal::declareForUnrolling(declarations); }
    void before(PassContext &context) override { mUnrolling.before(context); }
    void apply(ModelPassContext &context) override { mUnrolling.apply(context); }
    void after(PassContext &context) override { mUnrolling.after(context); }

  private:
    internal::ModelUnrolling<internal_aggregate::BlockUnrollerImpl, AggregateUnrollHandler, AggregateTypeManager>
        mUnrolling;
};

/// Takes the records at the boundaries of all models apart: port x of 2 flat members becomes the ports (x, 0) and
/// (x, 1), on the blocks at the edge of the model and on those that instantiate it. What became of which port is kept
/// in the state of the run.
class UnrollAggregateCrossModelPass final : public Pass {
    ORVO_PASS(UnrollAggregateCrossModelPass)
    void declare(PassDeclarations &declarations) override { internal::declareForUnrolling(declarations); }
    void apply(PassContext &context) override;
};

} // namespace orvo
