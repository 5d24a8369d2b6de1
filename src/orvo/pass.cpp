// The bases of passes: what they do when a pass says nothing of its own.
#include <orvo/pass.h>

#include "orvo/metadatasection.h"

#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <util/profiling.h>

#include <algorithm>
#include <unordered_set>

namespace orvo {

namespace {

/// The models of a design at the start of a round, less those that die in it.
class ModelRound {
  public:
    explicit ModelRound(Design &design) : mDesign(design) {
        for (Model &model : design) {
            mModels.push_back(&model);
        }
        mDesign.events().modelDying.add(callback());
    }
    ~ModelRound() { mDesign.events().modelDying.remove(callback()); }
    ModelRound(const ModelRound &) = delete;
    ModelRound &operator=(const ModelRound &) = delete;

    std::size_t size() const { return mModels.size(); }
    /// Null for a model that has died.
    Model *at(std::size_t index) const { return mDead.count(mModels[index]) != 0 ? nullptr : mModels[index]; }

  private:
    using Callback = util::Function<void(Model &)>;
    Callback callback() { return Callback::bind<&ModelRound::onModelDying>(this); }
    void onModelDying(Model &model) { mDead.insert(&model); }

    Design &mDesign;
    std::vector<Model *> mModels;
    /// A new model may come to stand where a dead one stood; it is not of this round either way.
    std::unordered_set<const Model *> mDead;
};

const char *labelOf(unsigned int action) {
    return action == ACTION_SETUP ? "[SETUP]" : action == ACTION_ANALYZE ? "[ANALYZE]" : "[APPLY]";
}

} // namespace

Pass::~Pass() = default;

void Pass::bindEvents(const Design &) {}

void Pass::unbindEvents() {}

void Pass::beforeApply(PassContext &) {
    if (util::ProfilingLog::enabled()) {
        util::ProfilingLog::begin({getName(), "N/A"});
    }
}

void Pass::apply(PassContext &) {}

void Pass::afterApply(PassContext &) { util::ProfilingLog::end(); }

void Pass::declare(PassDeclarations &) {}

bool Pass::useMetadataTransferListener() const { return true; }

void ModelPass::beforeApply(PassContext &) {}

void ModelPass::afterApply(PassContext &) {}

void ModelPass::apply(PassContext &context) {
    before(context);
    for (unsigned int iteration = 0;; ++iteration) {
        const unsigned int action = nextAction(context, iteration);
        if (action == ACTION_DONE) {
            break;
        }
        ModelRound round(context.getDesign());
        for (std::size_t i = 0; i < round.size(); ++i) {
            Model *model = round.at(i);
            if (model == nullptr || !isApplicable(*model)) {
                continue;
            }
            ModelPassContext modelContext(*model, context);
            const bool profiled = util::ProfilingLog::enabled();
            util::ProfilingSection section(labelOf(action),
                                           profiled ? getName() + " " + model->getName()->toString() : std::string());
            if (action == ACTION_SETUP) {
                setup(modelContext);
            } else if (action == ACTION_ANALYZE) {
                analyze(modelContext);
            } else {
                internal::MetadataSection metadata(
                    useMetadataTransferListener() ? context.getDesign().getMetadataTransferListener() : nullptr);
                apply(modelContext);
            }
        }
    }
    after(context);
}

void ModelPass::apply(ModelPassContext &) {}

void ModelPass::before(PassContext &) {}

void ModelPass::after(PassContext &) {}

bool ModelPass::isApplicable(const Model &) { return true; }

void ModelPass::setup(ModelPassContext &) {}

void ModelPass::analyze(ModelPassContext &) {}

unsigned int ModelPass::nextAction(PassContext &, unsigned int iteration) {
    return iteration == 0 ? ACTION_APPLY : ACTION_DONE;
}

bool OptimizeModelPass::isApplicable(const Model &model) { return !(model[A_SYNTH_OPTIMIZE] == A_FALSE); }

unsigned int TwoPhaseModelPass::nextAction(PassContext &context, unsigned int iteration) {
    const unsigned int action = lookupActionFor(context, iteration);
    if (mTypeCache != nullptr && action == ACTION_APPLY) {
        mTypeCache->freeze();
    } else if (mTypeCache != nullptr && (action == ACTION_ANALYZE || action == ACTION_DONE)) {
        mTypeCache->thaw();
    }
    return action;
}

unsigned int TwoPhaseModelPass::lookupActionFor(PassContext &context, unsigned int iteration) {
    if (iteration == 0) {
        return ACTION_SETUP;
    }
    if (iteration % 2 == 0) {
        return ACTION_APPLY;
    }
    return context.totalQueueSize() != 0 ? ACTION_ANALYZE : ACTION_DONE;
}

unsigned int TwoPhaseOnceModelPass::lookupActionFor(PassContext &, unsigned int iteration) {
    return iteration == 0 ? ACTION_ANALYZE : iteration == 1 ? ACTION_APPLY : ACTION_DONE;
}

FreezableTypes::~FreezableTypes() = default;

} // namespace orvo
