// Complex unrolling, inside models and across them.
#include "orvo/unrollcomplexpass.h"

#include "orvo/boundarycomplexunroller.h"

namespace orvo {

ORVO_DEFINE_PASS(UnrollComplexPass,
                 "Blocks that work on complex numbers become blocks of their real and imaginary parts, or the "
                 "arithmetic that their type needs. Packs and unpacks of complex numbers join them to what keeps its "
                 "complex signals, such as the boundaries of models.")

ORVO_DEFINE_PASS(UnrollComplexCrossModelPass,
                 "Complex signals at the boundaries of models become a port of the real part and one of the imaginary "
                 "part, named by port and part. The names that ports had are kept with the run.")

namespace {

/// Paths to parts begin with the lanes, so that vectors must have come apart before.
class ModelBoundaryComplexUnroller final : public BoundaryComplexUnroller {
  public:
    using BoundaryComplexUnroller::BoundaryComplexUnroller;
    bool takesVectors() const override { return false; }
};

} // namespace

void UnrollComplexCrossModelPass::apply(PassContext &context) {
    internal::BoundaryUnrolling<internal_complex::BlockUnrollerImpl, ModelBoundaryComplexUnroller> boundaries(context);
    boundaries.unroll();
    boundaries.store();
}

} // namespace orvo
