// NetlistVerificationPass holds a model against the block catalogue.
#pragma once

#include <orvo/pass.h>

namespace orvo {

class CatalogueVerifier;

namespace internal {
/// Warns of the connections that the verifier has come to leave out; `reported` is how many were told before.
ORVO_API void warnOfUnmapped(const CatalogueVerifier &verifier, std::size_t &reported);
} // namespace internal

/// Checks that every block of a model has a known type, the parameters, ports and wires that its type demands, no value
/// outside its list and nothing that its type does not know. It changes nothing. What it finds is a fault of the front
/// end or of a pass, and ends in an assertion. Runs only with the feature USE_NETLIST_VERIFICATION_PASS.
class NetlistVerificationPass final : public ModelPass {
    ORVO_PASS(NetlistVerificationPass)
    using ModelPass::apply;
    void apply(ModelPassContext &context) override;
};

} // namespace orvo
