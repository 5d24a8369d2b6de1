// ConstCastPass folds casts of constants.
#pragma once

#include <orvo/pass.h>

#include <memory>

namespace orvo {

/// Gives what reads a cast of a fixed-point constant a constant of the cast's type and value.
///     3.75: s4.2 -> cast to s4.1, rounding up -> x
///     4: s4.1 -> x
class ConstCastPass final : public TwoPhaseModelPass {
    ORVO_PASS(ConstCastPass)
    ConstCastPass();
    ~ConstCastPass() override;
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void setup(ModelPassContext &context) override;
    void analyze(ModelPassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;
    unsigned int lookupActionFor(PassContext &context, unsigned int iteration) override;

  private:
    struct Known;
    struct WorkItem;
    struct Casts;
    class Run;
    std::unique_ptr<Run> mRun;
};

} // namespace orvo
