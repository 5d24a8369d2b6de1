// ElideUnpackPass takes out unpacks that undo a pack.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Where a pack of a vector, a complex number or a record feeds an unpack of the same kind, the readers of the unpack
/// read what went into the pack. The pack goes, too, when nothing else reads it.
///     re, im -> cpack -> cunpack -> x, y
///     re -> x,  im -> y
class ElideUnpackPass final : public ModelPass {
    ORVO_PASS(ElideUnpackPass)
    using ModelPass::apply;
    void apply(ModelPassContext &context) override;
    bool useMetadataTransferListener() const override;
};

} // namespace orvo
