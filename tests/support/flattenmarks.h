// Marks that make the passes that flatten some models find work in designs by chance.
#pragma once

#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <cstdint>

namespace orvo::test {

/// Marks models by the bits of a number, so that each of the passes finds some work.
inline void markForFlattening(Design &design, std::uint32_t marks) {
    for (Model &model : design) {
        const auto given = [&marks] {
            const bool is = (marks & 1U) != 0;
            marks = (marks >> 1U) | (marks << 31U);
            return is;
        };
        if (given()) {
            model.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
        }
        if (given()) {
            model.setParam(A_ZRT_MODEL_TO_BE_FLATTENED, A_TRUE);
        }
        if (given()) {
            model.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
        }
    }
}

/// Scheduled subsystems of a drawing, so that the pass for those finds work everywhere.
inline void markScheduled(Design &design) {
    for (Model &model : design) {
        model.setParam(A_SIMULINK_PATH, A_TRUE);
        model.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    }
}

} // namespace orvo::test
