// The passes that leave no vectors: inside models, and at their boundaries.
#pragma once

#include <orvo/pass.h>

#include <memory>
#include <unordered_map>

namespace orvo {

class GlobalTypePass;

/// Takes blocks of vectors apart, model by model. Boundaries of models keep their vectors; packs and unpacks join them
/// to the lanes.
///     x: vector of 2, y -> add -> z: vector of 2
///     x -> unpack -> x0, x1;  x0, y -> add -> z0;  x1, y -> add -> z1;  z0, z1 -> pack -> z
class UnrollVectorPass final : public ModelPass {
    ORVO_PASS(UnrollVectorPass)
    UnrollVectorPass();
    ~UnrollVectorPass() override;
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  private:
    struct Prepared;
    std::unordered_map<const Model *, std::unique_ptr<Prepared>> mPrepared;
};

/// Takes the vectors at the boundaries of all models apart: port x of 2 lanes becomes the ports (x, 0) and (x, 1), on
/// the blocks at the edge of the model and on those that instantiate it. What became of which port is kept in the state
/// of the run.
class UnrollVectorCrossModelPass final : public Pass {
    ORVO_PASS(UnrollVectorCrossModelPass)
    void declare(PassDeclarations &declarations) override;
    void apply(PassContext &context) override;
};

} // namespace orvo
