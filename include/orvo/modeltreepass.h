// ModelTreePass answers which blocks instantiate a model and which models a model refers to.
#pragma once

#include <orvo/model.h>
#include <orvo/pass.h>

#include <memory>

namespace orvo {

/// Who instantiates whom. Keeps what it found and forgets it when the hierarchy changes, so that asking is cheap.
class ORVO_API ModelTreePass final : public Pass {
    ORVO_PASS(ModelTreePass)

    ModelTreePass();
    ~ModelTreePass() override;
    void bindEvents(const Design &design) override;
    void unbindEvents() override;
    void apply(PassContext &context) override;

    /// The model blocks that instantiate the model.
    std::list<Block *> getRefBlocks(Model &model);
    /// The models that the model's own model blocks refer to, in block order, each block once.
    std::vector<Model *> getReferredModels(Model &model);
    /// The chain from the top to the model; false, with `chain` untouched, if the model is used in several places.
    bool getRefChain(const Model &model, RefChain &chain);
    /// The models from the model's parent up to the top; false, with `list` untouched, as above.
    bool getAncestryList(Model &model, std::vector<Model *> &list);
    /// Null unless there is exactly one.
    Block *getSingleRefBlock(Model &model);
    Model *getSingleParent(Model &model);

  private:
    struct ModelTreeImpl;
    std::unique_ptr<ModelTreeImpl> mImpl;
};

} // namespace orvo
