// Plans which instance gets which copy while the types are known, then copies.
#include "generator/specialise.h"

#include "orvo/flatteneverythingpass.h"
#include "orvo/scheduleconstraints.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/orvoutils.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <iterator>
#include <unordered_map>

namespace orvo::generator {

namespace {

/// The kinds of instances of one model, numbered as they are met.
struct Kinds {
    /// Blocks that stand for the model in models whose kinds are not known yet.
    std::size_t waitsFor = 0;
    /// Whether each kind but the first gets a copy.
    bool isSplit = false;
    std::map<internal::BoundaryTypes, std::size_t> numbers;
    /// One instance for each.
    std::vector<RefChain> chains;
};

/// What a block stands for in one kind of its model's instances.
struct Use {
    Block *block;
    std::size_t kind;
    Model *below;
    std::size_t kindBelow;
};

class Plan {
  public:
    Plan(Design &design, std::size_t mostBlocks) : mMostBlocks(mostBlocks) {
        PassScheduler scheduler;
        scheduler.requirePass(GlobalTypePass::sName);
        const PassResults results = scheduler.apply(design);
        mTypes = results.getPass<GlobalTypePass>();
        for (Model &model : design) {
            for (Block &block : model) {
                if (Model *below = internal::instantiatedModel(block); below != nullptr) {
                    ++mKinds[below].waitsFor;
                }
            }
        }
        for (Model &model : design) {
            if (mKinds[&model].waitsFor == 0) {
                mKinds[&model].chains.emplace_back();
                mOrder.push_back(&model);
            }
        }
        for (std::size_t i = 0; i < mOrder.size() && isSmall(); ++i) {
            lookAt(*mOrder[i]);
        }
    }

    bool isSmall() const { return mCopiedBlocks <= mMostBlocks; }
    /// Models behind all that instantiate them.
    const std::vector<Model *> &order() const { return mOrder; }
    const std::vector<Use> &uses() const { return mUses; }
    const Kinds &kindsOf(Model *model) const { return mKinds.at(model); }

  private:
    void lookAt(Model &model) {
        Kinds &kinds = mKinds[&model];
        if (kinds.chains.size() > 1 && !FlattenEverythingPass::mayDissolve(model)) {
            return;
        }
        kinds.isSplit = true;
        mCopiedBlocks +=
            (kinds.chains.size() - 1) * static_cast<std::size_t>(std::distance(model.begin(), model.end()));
        if (!isSmall()) {
            return;
        }
        for (Block &block : model) {
            Model *below = internal::instantiatedModel(block);
            if (below == nullptr) {
                continue;
            }
            addUses(block, kinds, *below);
            if (--mKinds[below].waitsFor == 0) {
                mOrder.push_back(below);
            }
        }
    }

    void addUses(Block &block, const Kinds &kinds, Model &below) {
        Kinds &kindsBelow = mKinds[&below];
        for (std::size_t kind = 0; kind < kinds.chains.size(); ++kind) {
            const auto [known, isNew] = kindsBelow.numbers.emplace(
                internal::boundaryTypes(block, kinds.chains[kind], *mTypes), kindsBelow.chains.size());
            if (isNew) {
                kindsBelow.chains.push_back(kinds.chains[kind]);
                kindsBelow.chains.back().push_back(&block);
            }
            mUses.push_back({&block, kind, &below, known->second});
        }
    }

    /// Only while the plan is made.
    GlobalTypePass *mTypes = nullptr;
    std::unordered_map<Model *, Kinds> mKinds;
    std::vector<Model *> mOrder;
    std::vector<Use> mUses;
    std::size_t mMostBlocks;
    std::size_t mCopiedBlocks = 0;
};

} // namespace

Origins specialiseModels(Design &design, std::size_t copiedBlocks) {
    const Plan plan(design, copiedBlocks);
    Origins origins;
    if (!plan.isSmall()) {
        return origins;
    }
    // What stands in the copies for models and blocks, of kinds from 1 on.
    std::unordered_map<const Model *, std::vector<OrvoUtils::NodeMap>> copies;
    for (Model *model : plan.order()) {
        const Kinds &kinds = plan.kindsOf(model);
        for (std::size_t kind = 1; kinds.isSplit && kind < kinds.chains.size(); ++kind) {
            OrvoUtils::NodeMap &nodes = copies[model].emplace_back();
            origins.emplace(OrvoUtils::cloneModel(design, *model, &nodes)->getName(), model->getName());
        }
    }
    const auto inKind = [&copies](const Model &model, Node &node, std::size_t kind) {
        return kind == 0 ? &node : copies.at(&model)[kind - 1].at(&node);
    };
    for (const Use &use : plan.uses()) {
        if (plan.kindsOf(use.below).isSplit) {
            inKind(use.block->getModel(), *use.block, use.kind)
                ->setParam(A_MODEL_NODE, *inKind(*use.below, *use.below, use.kindBelow));
        }
    }
    return origins;
}

} // namespace orvo::generator
