// Copies a design, lowers the copy and estimates it.
#include "generator/modelgenerator.h"

#include "orvo/silence.h"
#include "orvo/unrollpasses.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/xmlservices.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace orvo::generator {

namespace {

/// The file form is a plain image of all that a design holds.
std::unique_ptr<Design> copyOf(const Design &design) {
    std::stringstream text;
    XMLServices().toXML(text, design);
    auto copy = std::make_unique<Design>(design.getContext());
    XMLServices().fromXML(text, *copy, &XMLServices::silentErrorFunc);
    ORVO_ASSERT(!text.fail(), "a design that was written cannot be read");
    return copy;
}

/// Whether what a cast reads or gives has a type in each instance of its model.
bool isTyped(const Block &cast, GlobalTypePass &types, const std::vector<RefChain> &instances) {
    return std::all_of(instances.begin(), instances.end(), [&](const RefChain &instance) {
        const BlockPorts ports = cast.ports();
        return std::all_of(ports.begin(), ports.end(),
                           [&](const Port &port) { return types.getType(port, instance); }) &&
               std::all_of(cast.begin(), cast.end(), [&](const Wire &wire) { return types.getType(wire, instance); });
    });
}

/// Nobody can tell what a cast without types costs, and none can be decomposed: it becomes a block of no type, which is
/// told as uncounted.
void setUntypedCastsAside(Design &design) {
    PassScheduler scheduler;
    scheduler.requirePass(GlobalTypePass::sName);
    scheduler.requirePass(ModelTreePass::sName);
    const PassResults results = scheduler.apply(design);
    std::vector<Block *> untyped;
    internal::DistinctInstances distinct(*results.getPass<ModelTreePass>(), *results.getPass<GlobalTypePass>());
    for (Model &model : design) {
        std::vector<RefChain> instances;
        for (Block &block : model) {
            if (block.type() != A_CAST_BLOCK.get_ptr()) {
                continue;
            }
            if (instances.empty()) {
                instances = distinct.of(model);
            }
            if (!isTyped(block, *results.getPass<GlobalTypePass>(), instances)) {
                untyped.push_back(&block);
            }
        }
    }
    for (Block *block : untyped) {
        block->setParam(A_BLOCK_TYPE, StringValue::get("untypedCast", design.getContext()));
    }
}

/// The hierarchy stays, so that models can be told apart and each counts once; all else becomes primitives.
void lower(Design &design) {
    const WithParam ignoringMetadata("P_IGNORE_METADATA", A_TRUE);
    PassScheduler scheduler;
    scheduler.addPass("ElideFromGotoPass");
    scheduler.addPass("UnrollScheduledModelPass");
    scheduler.beginTurns();
    for (const char *pass :
         {"UnrollAggregatePass", "UnrollAggregateCrossModelPass", "UnrollVectorPass", "UnrollVectorCrossModelPass"}) {
        scheduler.addPass(pass);
    }
    scheduler.addPass("ElideUnpackPass", ignoringMetadata);
    scheduler.endTurns();
    scheduler.addPass("UnrollComplexPass");
    scheduler.addPass("UnrollComplexCrossModelPass");
    scheduler.addPass("ElideUnpackPass", ignoringMetadata);
    scheduler.apply(design);
    setUntypedCastsAside(design);
    PassScheduler last;
    for (const char *pass : {"DecomposeCompositePass", "ElideTerminalPass", "DeadBlockPass"}) {
        last.addPass(pass);
    }
    last.apply(design);
}

} // namespace

DesignEstimate estimateDesign(const Design &design) {
    ContextMgr guard(design.getContext());
    const internal::Silence silence(design.getContext());
    const std::unique_ptr<Design> copy = copyOf(design);
    lower(*copy);
    DesignEstimate estimate = estimateLowered(*copy, topModels(design));
    estimate.errors = silence.errors();
    return estimate;
}

ResourceUsageAndLatencyHelper estimateModel(Model &model, bool, bool, bool) {
    const DesignEstimate estimate = estimateDesign(model.getDesign());
    const auto hit = std::find_if(estimate.models.begin(), estimate.models.end(),
                                  [&](const ModelEstimate &one) { return one.name == model.getName(); });
    ORVO_ASSERT(hit != estimate.models.end(), "lowering has lost a model");
    return hit->usage;
}

} // namespace orvo::generator
