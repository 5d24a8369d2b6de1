// The passes that leave no vectors: inside models, and at their boundaries.
#pragma once

#include "orvo/unrollpasses.h"
#include "orvo/vectorunroll.h"

namespace orvo {

/// Takes blocks of vectors apart, model by model. Boundaries of models keep their vectors; packs and unpacks join them
/// to the lanes.
///     x: vector of 2, y -> add -> z: vector of 2
///     x -> unpack -> x0, x1;  x0, y -> add -> z0;  x1, y -> add -> z1;  z0, z1 -> pack -> z
class UnrollVectorPass final : public ModelPass {
    ORVO_PASS(UnrollVectorPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override { internal::declareForUnrolling(declarations); }
    void before(PassContext &context) override { mUnrolling.before(context); }
    void apply(ModelPassContext &context) override { mUnrolling.apply(context); }
    void after(PassContext &context) override { mUnrolling.after(context); }

  private:
    internal::ModelUnrolling<internal_vector::BlockUnrollerImpl, VectorUnrollHandler> mUnrolling;
};

/// Takes the vectors at the boundaries of all models apart: port x of 2 lanes becomes the ports (x, 0) and (x, 1), on
/// the blocks at the edge of the model and on those that instantiate it. What became of which port is kept in the state
/// of the run.
class UnrollVectorCrossModelPass final : public Pass {
    ORVO_PASS(UnrollVectorCrossModelPass)
    void declare(PassDeclarations &declarations) override { internal::declareForUnrolling(declarations); }
    void apply(PassContext &context) override;
};

} // namespace orvo
