// ElideConstShiftsPass makes wires of shifts by constants.
#pragma once

#include <orvo/pass.h>

#include <memory>

namespace orvo {

/// A barrel shifter whose shift is a constant becomes a raw shift, which moves the binary point, and a cast back to the
/// shifter's type; a raw shift that is marked as one to the left becomes the choice of its input's bits.
///     x: s8.0, 3 -> barrel left: s8.0 -> y
///     x: s8.0 -> raw shift by 3: s11.-3 -> cast to s8.0 -> y
class ElideConstShiftsPass final : public ModelPass {
    ORVO_PASS(ElideConstShiftsPass)
    ElideConstShiftsPass();
    ~ElideConstShiftsPass() override;
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  private:
    class Plans;
    std::unique_ptr<Plans> mPlans;
};

} // namespace orvo
