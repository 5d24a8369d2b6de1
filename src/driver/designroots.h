// Where the verbs that look at a whole design begin.
#pragma once

#include <vector>

namespace orvo {
class Design;
class Model;
} // namespace orvo

namespace orvo::driver {

/// The models that say how they are to be written out or, where none does, those that nothing instantiates.
std::vector<const Model *> designRoots(const Design &design);

} // namespace orvo::driver
