// ConstMultPass decides how products by constants are built.
#pragma once

#include <orvo/corevalues.h>
#include <orvo/pass.h>
#include <orvo/types.h>

#include <memory>

namespace orvo {

class Wire;

namespace internal {

/// Ones in the significand of a constant, the hidden one included: what a product by it adds up. 64 for what is no
/// finite number.
ORVO_API int countMantissaOnes(double value);

/// Whether a multiplier may take this wire, of the type `type`, for a constant operand; `value` gets the constant.
/// Fixed point may always, a float only in the format of the output and of the other operand, and if it has as few ones
/// as the feature "ConstantMultConversionsLimit" says, or if that is forced.
ORVO_API bool isConstMult(const Wire &wire, const NumTypeSpec &type, const NumTypeSpec &otherType,
                          const NumTypeSpec &outputType, NumberValueRef &value, bool isForced);

} // namespace internal

/// Turns float products by simple constants into multipliers by constants, fixed-point products by 0 into 0, and lets
/// fixed-point products by other constants be built of logic where the model generator says that it pays.
///     a, const 2.0 -> mult -> x                   a -> constMult(2.0) -> x
class ConstMultPass final : public TwoPhaseModelPass {
    ORVO_PASS(ConstMultPass)
    ConstMultPass();
    ~ConstMultPass() override;
    using ModelPass::apply;
    void unbindEvents() override;
    void declare(PassDeclarations &declarations) override;
    /// Each phase once a model.
    unsigned int nextAction(PassContext &context, unsigned int iteration) override;
    void before(PassContext &context) override;
    void analyze(ModelPassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  private:
    class Run;
    std::unique_ptr<Run> mRun;
};

} // namespace orvo
