// UnrelaxBoolsPass brings wide conditions of blocks to one bit.
#pragma once

#include <orvo/modeltreepass.h>
#include <orvo/pass.h>

#include <unordered_map>
#include <vector>

namespace orvo {

class GlobalTypePass;
class UnrelaxBoolsHandler;

/// Has each block that takes conditions of any width take them as one bit: a wider one is true when it is not zero.
///     wr: u4.0 -> fifo that relaxes its conditions
///     wr -> any bit -> cast to u1.0 -> fifo that does not
class UnrelaxBoolsPass final : public ModelPass {
    ORVO_PASS(UnrelaxBoolsPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  private:
    /// A block that need not relax its conditions any longer, or never had any.
    struct Strict {
        Block *block;
        /// The ports to be narrowed.
        std::vector<PureValueRef> wide;
        /// What readers of the block's output read whose type follows a port's that is narrowed; else null.
        PureValueRef outputType;
    };
    static bool narrow(Block &block, const UnrelaxBoolsHandler &handler, const std::vector<RefChain> &instances,
                       GlobalTypePass &types, Strict &strict);

    /// What is to be done, told before the first edit. The blocks live until then.
    std::unordered_map<const Model *, std::vector<Strict>> mWork;
};

} // namespace orvo
