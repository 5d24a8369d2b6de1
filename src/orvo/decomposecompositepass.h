// DecomposeCompositePass replaces composite blocks by primitives.
#pragma once

#include <orvo/design.h>
#include <orvo/pass.h>

#include <memory>

namespace orvo {

/// Replaces each composite block, such as a cast, a minimum or a demultiplexer, by simpler ones, until none is left
/// that its type's handler can replace. What readers of a block read keeps its type.
///     a: s8.4 -> cast to s4.0, saturating -> x
///     a -> rnd -> sel -> mux -> x,  rnd -> lcmp, hcmp -> lnot, hnot -> mux
class DecomposeCompositePass final : public TwoPhaseModelPass {
    ORVO_PASS(DecomposeCompositePass)
    DecomposeCompositePass();
    ~DecomposeCompositePass() override;
    using ModelPass::apply;
    void bindEvents(const Design &design) override;
    void unbindEvents() override;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void setup(ModelPassContext &context) override;
    void analyze(ModelPassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;
    unsigned int lookupActionFor(PassContext &context, unsigned int iteration) override;

  private:
    class Run;
    void onBlockBirth(Block &block);

    Design *mDesign = nullptr;
    std::unique_ptr<Run> mRun;
};

} // namespace orvo
