// Models that were scheduled elsewhere, as a design that uses them knows them: by the types of their whole signals, and
// by the names that the scalars of these have.
#pragma once

#include <orvo/scheduledmodelhandle.h>

namespace orvo::gen {

/// A handle for a model of these signals. Scalars keep the names of their signals; those of compound ones are numbered.
ScheduledModelHandle scheduledModel(const PureValueRef &name, const ScheduledModelTypes::Map &inputs,
                                    const ScheduledModelTypes::Map &outputs, Context *context);

} // namespace orvo::gen
