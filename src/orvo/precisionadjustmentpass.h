// PrecisionAdjustmentPass has precisions tell the fraction of a result alone.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Has each precision that is given as a type tell no more than the fraction of the result. What readers of a result
/// read keeps its type, by a cast where its integer part is another then.
///     x: s8.0 -> times 3, to the type s6.0 -> y
///     x -> times 3, to the fraction of s6.0 -> cast to s6.0 -> y
/// No pipeline that comes with the library runs it, for precisions are as good as types: it is for clients that set
/// precisions and go on to ask for fractions.
class PrecisionAdjustmentPass final : public Pass {
    ORVO_PASS(PrecisionAdjustmentPass)
    void declare(PassDeclarations &declarations) override;
    void apply(PassContext &context) override;
};

} // namespace orvo
