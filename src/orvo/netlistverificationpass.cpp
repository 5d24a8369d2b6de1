// The gate against blocks that break the contract of the catalogue.
#include "orvo/netlistverificationpass.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/netlistverification.h>

#include <util/diagnostics.h>
#include <util/features.h>

namespace orvo {

ORVO_DEFINE_PASS(NetlistVerificationPass,
                 "Checks every block of a model against the block catalogue: a known type, the parameters, ports and "
                 "wires that the type demands, values from their lists, and nothing extra. Changes nothing; the first "
                 "block that differs ends the run with an assertion. Does nothing unless the feature "
                 "USE_NETLIST_VERIFICATION_PASS is on.")

namespace {

[[noreturn]] void fail(const std::string &text) {
    orvoAssertHandler("block agrees with the catalogue", __FILE__, __LINE__, __func__, (text + "\n").c_str());
}

void failOn(const std::vector<CatalogueFinding> &findings) {
    bool extra = false;
    for (const CatalogueFinding &finding : findings) {
        if (finding.kind == CatalogueFinding::Kind::Extra) {
            util::reportDiagnostic(true, finding.text);
            extra = true;
            continue;
        }
        if (finding.kind == CatalogueFinding::Kind::UnknownBlockType) {
            util::reportDiagnostic(true, "Unrecognized block: " + finding.subject);
        }
        fail(finding.text);
    }
    if (extra) {
        fail("See above the extra parameters that were given to the " + findings.front().block->type()->toString() +
             " block");
    }
}

} // namespace

void internal::warnOfUnmapped(const CatalogueVerifier &verifier, std::size_t &reported) {
    for (; reported < verifier.unmappedConnections().size(); ++reported) {
        util::reportDiagnostic(false, "Connection " + verifier.unmappedConnections()[reported] +
                                          " is ignored as it doesn't have a mapping");
    }
}

void NetlistVerificationPass::apply(ModelPassContext &context) {
    if (!util::GetFeatureBooleanWithDefault("USE_NETLIST_VERIFICATION_PASS", false)) {
        return;
    }
    CatalogueVerifier verifier(getBlocksInfo(), context.getDesign().getContext());
    std::size_t reported = 0;
    for (const Block &block : context.getModel()) {
        std::vector<CatalogueFinding> findings = verifier.verify(block);
        internal::warnOfUnmapped(verifier, reported);
        failOn(findings);
    }
}

} // namespace orvo
