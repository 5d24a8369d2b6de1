// The list of checks, in the order in which they run.
#include "orvo/validatemodelpass.h"

#include "orvo/modelvalidators.h"

#include <orvo/modeltreepass.h>
#include <orvo/typeinferpass.h>

#include <util/features.h>

#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(ValidateModelPass,
                 "Tells what the designer got wrong in a model, before it is scheduled: blocks that may not stand "
                 "outside of a schedule, vectors of different widths at one block, complex numbers at blocks that "
                 "compute on real ones, latencies that may not be depended upon or have no clear ends, addresses that "
                 "do not fit their memories, tables longer than their addresses reach, and signals without a type. "
                 "Changes nothing.")

Validator::~Validator() = default;

namespace {

std::vector<std::shared_ptr<Validator>> makeValidators(const std::shared_ptr<internal::ValidationFacts> &facts) {
    return {
        std::make_shared<ShuffleDelayBlocksValidator>(), std::make_shared<PortDimensionsValidator>(facts),
        std::make_shared<RealOnlyPortsValidator>(facts), std::make_shared<DependentLatencyPreValidator>(facts),
        std::make_shared<DualMemAddrValidator>(facts),   std::make_shared<LookupTableValidator>(facts),
        std::make_shared<LatencyConstraintValidator>(),  std::make_shared<TypeInferenceValidator>(facts),
    };
}

} // namespace

void ValidateModelPass::declare(PassDeclarations &declarations) {
    declarations.requirePass(ModelTreePass::sName);
    declarations.requirePass(GlobalTypePass::sName);
}

void ValidateModelPass::apply(ModelPassContext &context) {
    if (util::GetFeatureBoolean(Features::DISABLE_VALIDATE_MODEL_PASS)) {
        return;
    }
    if (mFacts == nullptr) {
        mFacts = std::make_shared<internal::ValidationFacts>();
    }
    for (const std::shared_ptr<Validator> &validator : makeValidators(mFacts)) {
        validator->validate(context);
    }
}

} // namespace orvo
