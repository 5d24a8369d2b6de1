// The generator of models that comes with the library: it generates nothing, and tells what a model would cost.
#pragma once

#include "generator/designestimate.h"

namespace orvo::generator {

/// What the models of a design cost, once it is lowered to primitives. The design stays as it is: a copy is lowered,
/// without a word to the context's listener.
ORVO_API DesignEstimate estimateDesign(const Design &design);

/// A `ModelGenerationHelper`: what an instance of the model costs. There are no files that the first two could ask for,
/// and a model built for the question is estimated as one of a user's design.
ORVO_API ResourceUsageAndLatencyHelper estimateModel(Model &model, bool files, bool testBench, bool ofDesign);

} // namespace orvo::generator
