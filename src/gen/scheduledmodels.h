// Models that were scheduled elsewhere, as a design that uses them knows them: by the types of their whole signals, and
// by the names that the scalars of these have.
#pragma once

#include <orvo/scheduledmodelhandle.h>

#include <utility>
#include <vector>

namespace orvo::gen {

/// The names and types of whole signals, in an order that does not depend on where values lie.
using WholeSignals = std::vector<std::pair<PureValueRef, PureValueRef>>;

/// A handle for a model of these signals. Scalars keep the names of their signals; those of compound ones are numbered.
ScheduledModelHandle scheduledModel(const PureValueRef &name, const WholeSignals &inputs, const WholeSignals &outputs,
                                    Context *context);

} // namespace orvo::gen
