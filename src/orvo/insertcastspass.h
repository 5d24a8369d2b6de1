// InsertCastsPass has barrel shifters keep the width of their data.
#pragma once

#include <orvo/pass.h>
#include <orvo/types.h>

#include <unordered_map>
#include <vector>

namespace orvo {

/// Has each barrel shifter whose output type is given shift in a type that holds its data as well, and brings what it
/// gives to the type that was given.
///     x: u8.0 -> shift to u4.0 -> y
///     x -> shift to u8.0 -> cast to u4.0 -> y
class InsertCastsPass final : public ModelPass {
    ORVO_PASS(InsertCastsPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  private:
    struct Widening {
        Block *block;
        /// What it shifts in.
        NumTypeSpec wide;
        /// What readers go on to read.
        NumTypeSpec read;
    };
    /// What is to be done, told before the first edit. The blocks live until then.
    std::unordered_map<const Model *, std::vector<Widening>> mWork;
};

} // namespace orvo
