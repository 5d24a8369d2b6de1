// DumpXMLPass writes the design to a file as it stands.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Writes the design to a file as design XML, as it stands at that point of the run, and changes nothing.
class DumpXMLPass final : public Pass {
    ORVO_PASS(DumpXMLPass)
    void apply(PassContext &context) override;
};

} // namespace orvo
