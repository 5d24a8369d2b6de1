// ElideUnpackPass takes out unpacks that undo a pack.
#pragma once

#include <orvo/modeltreepass.h>
#include <orvo/pass.h>

#include <unordered_map>
#include <vector>

namespace orvo {

/// Where a pack of a vector, a complex number or a record feeds an unpack of the same kind, the readers of the unpack
/// read what went into the pack. The pack goes, too, when nothing else reads it. A signal that has another type there
/// than behind the unpack goes through a cast, so that readers keep the types that they read.
///     re, im: s6.1 -> cpack -> cunpack -> x, y
///     re -> x,  im -> y;  of re: s4.0, which the pack brings to s6.1: re -> cast -> x,  im -> y
class ElideUnpackPass final : public ModelPass {
    ORVO_PASS(ElideUnpackPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;
    bool useMetadataTransferListener() const override;

  private:
    /// Those that differ in types, of the models that have a pair.
    std::unordered_map<const Model *, std::vector<RefChain>> mInstances;
};

} // namespace orvo
