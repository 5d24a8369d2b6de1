// PropagateConstantsPass takes bits that are known to be zero off the operands of multipliers.
#pragma once

#include <orvo/pass.h>

#include <memory>

namespace orvo {

/// Narrows each multiplier, an operand of which has bits at its ends that constants make zero, and gives the product
/// back its width by wiring. A multiplier whose product is a constant goes.
///     a: u8.0 = join(x: u5.0, 0: u3.0), b: u4.0, a, b -> mult -> p: u12.0
///     a -> narrowed: u5.0, narrowed, b -> mult: u9.0, mult, 0: u3.0 -> extender -> p
class PropagateConstantsPass final : public TwoPhaseOnceModelPass {
    ORVO_PASS(PropagateConstantsPass)
    PropagateConstantsPass();
    ~PropagateConstantsPass() override;
    using ModelPass::apply;
    void unbindEvents() override;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void analyze(ModelPassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  private:
    class Run;
    std::unique_ptr<Run> mRun;
};

} // namespace orvo
