// AnalyseDesignPass settles what is to be wrapped around a design.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Where a design leaves it open (`A_LIB_WRAPPER_TYPE` is `A_LIB_WRAPPER_TYPE_AUTOMATIC`), says whether a wrapper with
/// clock, reset and schedule is needed, which is so as soon as any block keeps state or takes its time, or one for
/// logic alone will do.
///     design (wrapper: automatic) with an adder -> design (wrapper: combinatorial)
class AnalyseDesignPass final : public Pass {
    ORVO_PASS(AnalyseDesignPass)
    void apply(PassContext &context) override;

    /// The values that the parameter gets.
    static constexpr const char *kFullWrapper = "libWrapperTypeFull";
    static constexpr const char *kCombinatorialWrapper = "libWrapperTypeCombinatorial";
};

} // namespace orvo
