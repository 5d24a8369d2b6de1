// Estimates of the models of a lowered design.
#pragma once

#include "generator/formulas.h"

#include <orvo/value.h>

#include <set>
#include <string>
#include <vector>

namespace orvo {
class Design;
class Model;
} // namespace orvo

namespace orvo::generator {

/// What one instance of a model costs, with all that it instantiates.
struct ModelEstimate {
    PureValueRef name;
    /// Of instances with different types, each figure of the one in which it is largest.
    Usage usage;
    /// In the whole design.
    Count instances = 0;
    /// Blocks in it that no figure counts: of types for which there is no estimate, or with signals of unknown types.
    Count uncounted = 0;
};

struct DesignEstimate {
    /// In the design's order. Where some of its models have an output mode, those alone that these need.
    std::vector<ModelEstimate> models;
    /// Of all models that nothing instantiates, however dead logic has gone, and of those of a ring that dead logic
    /// held together.
    Usage total;
    /// In these models; each model that contains itself and that none of them leads to counts as one.
    Count uncounted = 0;
    /// Tags of the errors told while the design was lowered, if it was for this estimate: where there is one, the
    /// figures are of a design that lacks whatever could not be lowered.
    std::set<std::string> errors;
    bool isComplete() const { return errors.empty(); }
};

/// Infers the types of the design, which it does not change otherwise. Works on each instance of a model whose types
/// differ from those of the others once. `tops` are the models that count as used by themselves where nothing
/// instantiates them: lowering may have taken the last block that stood for another.
ORVO_API DesignEstimate estimateLowered(Design &lowered, const std::set<PureValueRef> &tops);
/// The models that nothing instantiates but models that they contain: rings of models, or one that contains itself,
/// are among them, for lowering may break a ring.
ORVO_API std::set<PureValueRef> topModels(const Design &design);

} // namespace orvo::generator
