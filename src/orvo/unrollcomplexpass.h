// The passes that leave no complex numbers: inside models, and at their boundaries.
#pragma once

#include "orvo/complexunroll.h"
#include "orvo/unrollpasses.h"

namespace orvo {

/// Takes blocks of complex signals apart, model by model. Boundaries of models keep their complex signals; packs and
/// unpacks join them to the parts.
///     x: complex, y: complex -> add -> z: complex
///     x -> unpack -> xr, xi;  y -> unpack -> yr, yi;  xr, yr -> add -> zr;  xi, yi -> add -> zi;  zr, zi -> pack -> z
class UnrollComplexPass final : public ModelPass {
    ORVO_PASS(UnrollComplexPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override { internal::declareForUnrolling(declarations); }
    void before(PassContext &context) override { mUnrolling.before(context); }
    void apply(ModelPassContext &context) override { mUnrolling.apply(context); }
    void after(PassContext &context) override { mUnrolling.after(context); }

  private:
    internal::ModelUnrolling<internal_complex::BlockUnrollerImpl, ComplexUnrollHandler> mUnrolling;
};

/// Takes the complex signals at the boundaries of all models apart: port x becomes the ports (x, "real") and
/// (x, "imag"), on the blocks at the edge of the model and on those that instantiate it. What became of which port is
/// kept in the state of the run. Vectors of complex numbers stay, for their lanes come first in the names.
class UnrollComplexCrossModelPass final : public Pass {
    ORVO_PASS(UnrollComplexCrossModelPass)
    void declare(PassDeclarations &declarations) override { internal::declareForUnrolling(declarations); }
    void apply(PassContext &context) override;
};

} // namespace orvo
