// The pass that writes what type inference found onto the design.
#pragma once

#include <orvo/pass.h>

namespace orvo {

/// Sets `A_DUMP_TYPES` on each wire and on each block with ports to a text that tells their types, for people who read
/// the design afterwards.
///     wire   "#=(typeSFixed 8 4)=#"
///     block  "[/m/add/0 #=(typeSFixed 8 4)=#, /m/add/1 *INVALID*]"
class DumpTypesPass final : public Pass {
    ORVO_PASS(DumpTypesPass)
    void declare(PassDeclarations &declarations) override;
    void apply(PassContext &context) override;
};

} // namespace orvo
