// Checks on requests, shared by the scheduler and the declarations of passes, and the generator of models that serves
// requests which bring none.
#pragma once

#include <orvo/pass.h>

namespace orvo::internal {

/// An unknown pass, or a parameter that it does not declare, is an assertion.
void checkPassRequest(const PassRequest &request);

/// Set once, at the start of the library, by a floor above this one.
void setEmbeddedModelGenerator(ModelGenerationHelper generator);
ModelGenerationHelper embeddedModelGenerator();

} // namespace orvo::internal
