// The check behind the passes that take compound signals apart.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Tells of each wire that is a record, a vector or a complex number in some instance of its model: hardware has no
/// such signals. A wire whose type nothing tells is left to those who need the type. Tells also of each unpack
/// that a plain number drives: what it stood before took a signal of other parts. Changes nothing.
class CheckScalarSignalsPass final : public ModelPass {
    ORVO_PASS(CheckScalarSignalsPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void apply(ModelPassContext &context) override;
};

} // namespace orvo
