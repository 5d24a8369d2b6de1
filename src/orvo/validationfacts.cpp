// Instances of models and the places where models were drawn.
#include "orvo/validationfacts.h"

namespace orvo::internal {

void ValidationFacts::renew(const PassContext &context) {
    const Design &design = context.getDesign();
    GlobalTypePass &types = unrolledTypes(context);
    const Basis basis{&design, design.editCount(), &types};
    if (mBasis == basis) {
        return;
    }
    mBasis = basis;
    mDistinct.emplace(unrolledTree(context), types);
    mModel = nullptr;
    mByPath.reset();
}

TypesOfModel ValidationFacts::typesOf(ModelPassContext &context) {
    renew(context);
    Model &model = context.getModel();
    if (mModel != &model) {
        mModel = &model;
        RefChain chain;
        // Where there is but one way to the model, the instances above need not be compared.
        if (unrolledTree(context).getRefChain(model, chain)) {
            mInstances.assign(1, chain);
        } else {
            mInstances = mDistinct->of(model);
        }
    }
    return {unrolledTypes(context), mInstances};
}

const std::vector<const Model *> *ValidationFacts::drawnAt(const PureValueRef &path, const PassContext &context) {
    renew(context);
    if (!mByPath) {
        mByPath.emplace();
        for (const Model &model : context.getDesign()) {
            if (const Value *own = model.findParam(A_SIMULINK_PATH)) {
                (*mByPath)[own].push_back(&model);
            }
        }
    }
    const auto found = mByPath->find(path.get_ptr());
    return found == mByPath->end() ? nullptr : &found->second;
}

} // namespace orvo::internal
