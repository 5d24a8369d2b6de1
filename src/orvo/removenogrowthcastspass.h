// RemoveNoGrowthCastsPass takes out casts that cut off what a sum has grown by.
#pragma once

#include <orvo/pass.h>

#include <memory>

namespace orvo {

/// A sum or difference of two signals of one type whose only reader casts it back to that type, wrapping, does not
/// grow, and the cast goes.
///     a, b: s8.0 -> add: s9.0 -> cast to s8.0 -> x
///     a, b: s8.0 -> add, which does not grow: s8.0 -> x
/// The cast of a loop may be all that tells the types in it. A type pin then stands for it.
class RemoveNoGrowthCastsPass final : public TwoPhaseModelPass {
    ORVO_PASS(RemoveNoGrowthCastsPass)
    RemoveNoGrowthCastsPass();
    ~RemoveNoGrowthCastsPass() override;
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void setup(ModelPassContext &context) override;
    void analyze(ModelPassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;
    unsigned int lookupActionFor(PassContext &context, unsigned int iteration) override;

  private:
    class Run;
    std::unique_ptr<Run> mRun;
};

} // namespace orvo
