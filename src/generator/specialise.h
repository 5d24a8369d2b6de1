// Models of their own for instances with types of their own.
#pragma once

#include <orvo/api.h>
#include <orvo/value.h>

#include <cstddef>
#include <map>

namespace orvo {
class Design;
} // namespace orvo

namespace orvo::generator {

/// The name of each copy of a model, and that of its model.
using Origins = std::map<PureValueRef, PureValueRef>;
/// Of instances of a model with different types, the first keep the model and each other kind gets a copy, which no
/// other shares. So models come apart within their bounds that would do so only once they are flat. Models stay as they
/// are that flattening would not dissolve, that contain themselves, or that are below such with several kinds of
/// instances. Nothing happens to a design whose copies would have more blocks than this: a few models may stand for any
/// number of kinds.
ORVO_API Origins specialiseModels(Design &design, std::size_t copiedBlocks = std::size_t{1} << 18);

} // namespace orvo::generator
