// Who instantiates whom. The models know the blocks that instantiate them, always; what is kept here, per model that
// was asked about, is what its own model blocks refer to, and events make it forgotten.
#include <orvo/modeltreepass.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <unordered_set>

namespace orvo {

ORVO_DEFINE_PASS(ModelTreePass,
                 "Answers which blocks instantiate a model and which models it refers to, for the passes "
                 "that require it. Changes nothing.")

struct ModelTreePass::ModelTreeImpl {
    using ModelCallback = util::Function<void(Model &)>;
    using BlockCallback = util::Function<void(Block &)>;
    using DesignCallback = util::Function<void(Design &)>;

    Design *design = nullptr;
    Design *hooked = nullptr;
    std::unordered_map<const Model *, std::vector<Model *>> records;

    void onModelEvent(Model &) { records.clear(); }
    void onBlockBirth(Block &block) {
        // Type and model node are still to come, in whatever order.
        block.process(1);
    }
    void onBlockDying(Block &block) {
        if (block.type() == A_MODEL_BLOCK.get_ptr()) {
            records.erase(&block.getModel());
        }
    }
    void onBlockChange(Block &block) {
        // The blocks are armed again when somebody asks about the model.
        records.erase(&block.getModel());
    }
    void onDesignDying(Design &) {
        records.clear();
        hooked = nullptr;
        design = nullptr;
    }
    void hook(Design &target, bool on);
    const std::vector<Model *> &record(Model &model);
    template <class Step> bool walkUp(const Model &model, Step step) const;
};

void ModelTreePass::ModelTreeImpl::hook(Design &target, bool on) {
    EventManager &events = target.events();
    auto set = [on](auto &list, auto callback) {
        if (on) {
            list.add(callback);
        } else {
            list.remove(callback);
        }
    };
    set(events.modelBorn, ModelCallback::bind<&ModelTreeImpl::onModelEvent>(this));
    set(events.modelDying, ModelCallback::bind<&ModelTreeImpl::onModelEvent>(this));
    set(events.blockBorn, BlockCallback::bind<&ModelTreeImpl::onBlockBirth>(this));
    set(events.blockDying, BlockCallback::bind<&ModelTreeImpl::onBlockDying>(this));
    set(events.blockChanged, BlockCallback::bind<&ModelTreeImpl::onBlockChange>(this));
    set(events.designDying, DesignCallback::bind<&ModelTreeImpl::onDesignDying>(this));
    hooked = on ? &target : nullptr;
}

const std::vector<Model *> &ModelTreePass::ModelTreeImpl::record(Model &model) {
    auto [hit, isNew] = records.try_emplace(&model);
    if (isNew) {
        model.process(4);
        for (Block &block : model) {
            block.process(1);
            Model *below = block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            if (below != nullptr) {
                hit->second.push_back(below);
            }
        }
    }
    return hit->second;
}

/// Calls `step` with each model block on the way up. False if a model has several, or if the way never ends.
template <class Step> bool ModelTreePass::ModelTreeImpl::walkUp(const Model &model, Step step) const {
    std::unordered_set<const Model *> seen;
    for (const Model *at = &model; !at->getParentBlocks().empty();) {
        if (at->getParentBlocks().size() > 1 || !seen.insert(at).second) {
            return false;
        }
        Block *block = at->getParentBlocks().front();
        step(block);
        at = &block->getModel();
    }
    return true;
}

ModelTreePass::ModelTreePass() : mImpl(std::make_unique<ModelTreeImpl>()) {}

ModelTreePass::~ModelTreePass() { unbindEvents(); }

void ModelTreePass::bindEvents(const Design &design) {
    unbindEvents();
    mImpl->hook(const_cast<Design &>(design), true);
}

void ModelTreePass::unbindEvents() {
    if (mImpl->hooked != nullptr) {
        mImpl->hook(*mImpl->hooked, false);
    }
    mImpl->records.clear();
}

void ModelTreePass::apply(PassContext &context) {
    if (&context.getDesign() != mImpl->design) {
        mImpl->design = &context.getDesign();
        mImpl->records.clear();
    }
}

std::list<Block *> ModelTreePass::getRefBlocks(Model &model) { return model.getParentBlocks(); }

std::vector<Model *> ModelTreePass::getReferredModels(Model &model) { return mImpl->record(model); }

bool ModelTreePass::getRefChain(const Model &model, RefChain &chain) {
    RefChain found;
    if (!mImpl->walkUp(model, [&](const Block *block) { found.push_back(block); })) {
        return false;
    }
    std::reverse(found.begin(), found.end());
    chain = std::move(found);
    return true;
}

bool ModelTreePass::getAncestryList(Model &model, std::vector<Model *> &list) {
    std::vector<Model *> found;
    if (!mImpl->walkUp(model, [&](const Block *block) { found.push_back(&block->getModel()); })) {
        return false;
    }
    list = std::move(found);
    return true;
}

Block *ModelTreePass::getSingleRefBlock(Model &model) {
    return model.getParentBlocks().size() == 1 ? model.getParentBlocks().front() : nullptr;
}

Model *ModelTreePass::getSingleParent(Model &model) {
    Block *block = getSingleRefBlock(model);
    return block == nullptr ? nullptr : &block->getModel();
}

} // namespace orvo
