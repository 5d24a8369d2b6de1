// Models of their own for instances with types of their own.
#pragma once

#include <orvo/model.h>
#include <orvo/typeinferpass.h>
#include <orvo/value.h>

#include <cstddef>
#include <map>
#include <vector>

namespace orvo::generator {

/// The names and types of all ports, then of all wires, of a block that stands for a model. Instances that have the
/// same are alike inside.
using BoundaryTypes = std::vector<const Value *>;
ORVO_API BoundaryTypes boundaryTypes(const Block &reference, const RefChain &above, GlobalTypePass &types);

/// The name of each copy of a model, and that of its model.
using Origins = std::map<PureValueRef, PureValueRef>;
/// Of instances of a model with different types, the first keep the model and each other kind gets a copy, which no
/// other shares. So models come apart within their bounds that would do so only once they are flat. Models stay as they
/// are that flattening would not dissolve, that contain themselves, or that are below such with several kinds of
/// instances. Nothing happens to a design whose copies would have more blocks than this: a few models may stand for any
/// number of kinds.
ORVO_API Origins specialiseModels(Design &design, std::size_t copiedBlocks = std::size_t{1} << 18);

} // namespace orvo::generator
