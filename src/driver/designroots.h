// Where the verbs that look at a whole design begin.
#pragma once

#include <vector>

namespace orvo {
class Design;
class Model;
} // namespace orvo

namespace orvo::driver {

/// Whether a model says how it is to be written out.
bool hasOutputMode(const Model &model);

/// The marked models or, where none is marked, those that nothing instantiates.
std::vector<const Model *> designRoots(const Design &design, bool (*isMarked)(const Model &) = hasOutputMode);

} // namespace orvo::driver
