// The roots of a design.
#include "driver/designroots.h"

#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

namespace orvo::driver {

bool hasOutputMode(const Model &model) { return static_cast<bool>(model[A_SYNTH_OUTPUT_MODE]); }

std::vector<const Model *> designRoots(const Design &design, bool (*isMarked)(const Model &)) {
    std::vector<const Model *> marked;
    std::vector<const Model *> tops;
    for (const Model &model : design) {
        if (isMarked(model)) {
            marked.push_back(&model);
        }
        if (model.getParentBlocks().empty()) {
            tops.push_back(&model);
        }
    }
    return marked.empty() ? tops : marked;
}

} // namespace orvo::driver
