// AnalyseDesignPass settles what is to be wrapped around a design.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Where a design leaves it open (`A_LIB_WRAPPER_TYPE` is `A_LIB_WRAPPER_TYPE_AUTOMATIC`), says whether a wrapper with
/// clock, reset and schedule is needed, or one for logic alone will do. The first is so as soon as there is a delay, a
/// memory, a counter, a filter, an oscillator, a transform or another block of a fixed list; registers, synchronising
/// registers, loadable counters and delaying FIFOs are not in it.
///     design (wrapper: automatic) with an adder -> design (wrapper: combinatorial)
class AnalyseDesignPass final : public Pass {
    ORVO_PASS(AnalyseDesignPass)
    void apply(PassContext &context) override;

    /// The values that the parameter gets.
    static constexpr const char *kFullWrapper = "libWrapperTypeFull";
    static constexpr const char *kCombinatorialWrapper = "libWrapperTypeCombinatorial";
};

} // namespace orvo
