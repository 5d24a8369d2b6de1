// The edges of domains as models tell them.
#pragma once

#include <orvo/domaininfer.h>

namespace orvo::internal {

/// Reads the edges of one model into `all`, unless they are there already.
void addDeliminators(const Model &model, DomainInference::DomainDeliminators &all);

} // namespace orvo::internal
