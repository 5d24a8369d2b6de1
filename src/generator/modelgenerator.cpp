// Copies a design, lowers the copy and estimates it.
#include "generator/modelgenerator.h"

#include "generator/specialise.h"
#include "orvo/deadmodelpass.h"
#include "orvo/scheduleconstraints.h"
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
#include <initializer_list>
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

void run(Design &design, std::initializer_list<const char *> passes) {
    PassScheduler scheduler;
    for (const char *pass : passes) {
        scheduler.addPass(pass);
    }
    scheduler.apply(design);
}

std::vector<Model *> modelsThat(const Design &design, const auto &predicate) {
    std::vector<Model *> models;
    for (Model &model : design) {
        if (predicate(model)) {
            models.push_back(&model);
        }
    }
    return models;
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
    run(design, {"DecomposeCompositePass", "ElideTerminalPass", "DeadBlockPass"});
}

auto rowOf(std::vector<ModelEstimate> &rows, const PureValueRef &name) {
    return std::find_if(rows.begin(), rows.end(), [&](const ModelEstimate &row) { return row.name == name; });
}

/// The row of a model tells of its copies, too.
void gatherCopies(std::vector<ModelEstimate> &rows, const Origins &origins) {
    if (origins.empty()) {
        return;
    }
    std::map<PureValueRef, std::size_t> places;
    std::vector<ModelEstimate> gathered;
    // A copy stands behind its model.
    for (ModelEstimate &row : rows) {
        const auto origin = origins.find(row.name);
        if (origin == origins.end()) {
            places.emplace(row.name, gathered.size());
            gathered.push_back(std::move(row));
            continue;
        }
        ModelEstimate &whole = gathered[places.at(origin->second)];
        whole.usage = largest(whole.usage, row.usage);
        whole.uncounted = std::max(whole.uncounted, row.uncounted);
        whole.instances = plus(whole.instances, row.instances);
    }
    rows = std::move(gathered);
}

/// Which models of a design count.
enum class Counted { All, NeededByOutput };
/// What is done before lowering.
enum class Prepared { Hierarchy, ModelsOfOneKind };

DesignEstimate estimateCopy(const Design &design, Counted counted, Prepared prepared) {
    const internal::Silence silence(design.getContext());
    const std::unique_ptr<Design> copy = copyOf(design);
    // A tag may reach into models that are not needed.
    run(*copy, {"ElideFromGotoPass"});
    std::vector<Model *> outputs =
        modelsThat(*copy, [](const Model &model) { return static_cast<bool>(model[A_SYNTH_OUTPUT_MODE]); });
    if (counted == Counted::NeededByOutput && !outputs.empty()) {
        internal::keepModelsBelow(*copy, std::move(outputs), internal::instantiatedModel);
    }
    const std::set<PureValueRef> tops = topModels(*copy);
    Origins origins;
    if (prepared == Prepared::ModelsOfOneKind) {
        run(*copy, {"DeadBlockPass"});
        internal::keepModelsBelow(
            *copy, modelsThat(*copy, [&](const Model &model) { return tops.count(model.getName()) != 0; }),
            internal::instantiatedModel);
        origins = specialiseModels(*copy);
    }
    lower(*copy);
    DesignEstimate estimate = estimateLowered(*copy, tops);
    gatherCopies(estimate.models, origins);
    estimate.errors = silence.errors();
    return estimate;
}

/// Models whose instances differ in more than widths do not come apart, nor does dead logic without types. Flattening
/// would mend that for the price of all rows but those of top models; it is enough, and costs only where there is an
/// error, to take dead logic out first and to give each kind of instances a model of its own.
DesignEstimate estimateCounted(const Design &design, Counted counted) {
    ContextMgr guard(design.getContext());
    DesignEstimate asDrawn = estimateCopy(design, counted, Prepared::Hierarchy);
    if (asDrawn.isComplete()) {
        return asDrawn;
    }
    DesignEstimate estimate = estimateCopy(design, counted, Prepared::ModelsOfOneKind);
    // Of models whose instances are all dead, what the first estimate said is all there is to say.
    std::map<PureValueRef, ModelEstimate> rows;
    for (ModelEstimate &row : estimate.models) {
        rows.emplace(row.name, std::move(row));
    }
    for (ModelEstimate &row : asDrawn.models) {
        if (const auto known = rows.find(row.name); known != rows.end()) {
            row = std::move(known->second);
        } else {
            row.instances = 0;
        }
    }
    estimate.models = std::move(asDrawn.models);
    return estimate;
}

} // namespace

DesignEstimate estimateDesign(const Design &design) { return estimateCounted(design, Counted::NeededByOutput); }

ResourceUsageAndLatencyHelper estimateModel(Model &model, bool, bool, bool) {
    DesignEstimate estimate = estimateDesign(model.getDesign());
    auto hit = rowOf(estimate.models, model.getName());
    if (hit == estimate.models.end()) {
        // No output model needs it, but a pass asks.
        estimate = estimateCounted(model.getDesign(), Counted::All);
        hit = rowOf(estimate.models, model.getName());
    }
    ORVO_ASSERT(hit != estimate.models.end(), "lowering has lost a model");
    return hit->usage;
}

} // namespace orvo::generator
