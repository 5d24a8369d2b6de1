// FlattenEverythingPass, the engine of the passes that dissolve hierarchy.
#pragma once

#include <orvo/pass.h>

#include <unordered_set>

namespace orvo {

/// Puts the contents of sub-models in the place of the blocks that instantiate them, at any depth.
///     top: in -> f -> out,  f: in -> neg -> out
///     top: in -> (f neg) -> out
/// A copy is named by the tuple of its model's name and its own. It carries the metadata of the model block beside its
/// own; signposts of domains and latency constraints come along. The dissolved models stay in the design. A subclass
/// says which models receive blocks and which dissolve; a model that contains itself never does. Gotos and Froms are
/// copied as they are, so that ElideFromGotoPass is to run first: tags of several instances meet in one model, which
/// is warned of once for a dissolved model.
class FlattenEverythingPass : public Pass {
    ORVO_PASS(FlattenEverythingPass)
    void apply(PassContext &context) override;
    /// Metadata are handed on block by block.
    bool useMetadataTransferListener() const override { return false; }

    /// Whether blocks may come into the model.
    virtual bool dstPredicate(const Model &model, PassContext &context);
    /// Whether the model is no folding kernel and holds no block of a bus's edge.
    static bool mayDissolve(const Model &model);
    /// Whether the model is to dissolve: `mayDissolve`, for all that a subclass does not say.
    virtual bool srcPredicate(const Model &model, PassContext &context);
    /// Looks at what is left when all is flat.
    virtual void validateSubsystemNesting(const Design &design, PassContext &context);

  protected:
    /// Whether the model dissolved in this run.
    bool wasDissolved(const Model &model) const { return mDissolved.count(&model) != 0; }

  private:
    std::unordered_set<const Model *> mDissolved;
};

} // namespace orvo
