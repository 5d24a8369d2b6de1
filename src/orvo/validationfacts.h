// What the checks of ValidateModelPass ask about the design as a whole, found once for all models of a run.
#pragma once

#include "orvo/unrollpasses.h"

#include <orvo/model.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace orvo::internal {

/// The types of the signals of one model, in each of its instances that differ.
class TypesOfModel {
  public:
    TypesOfModel(GlobalTypePass &types, const std::vector<RefChain> &instances)
        : mTypes(types), mInstances(instances) {}

    const std::vector<RefChain> &instances() const { return mInstances; }
    template <class End> PureValueRef at(const End &end, const RefChain &instance) const {
        return mTypes.getType(end, instance);
    }
    /// Calls `ends` with the type in one instance after the other, until it gives true.
    template <class End, class Ends> bool any(const End &end, Ends ends) const {
        return std::any_of(mInstances.begin(), mInstances.end(),
                           [&](const RefChain &instance) { return ends(mTypes.getType(end, instance)); });
    }

  private:
    GlobalTypePass &mTypes;
    const std::vector<RefChain> &mInstances;
};

/// Asked between which nothing changes; after a change of the design all is found anew.
class ValidationFacts {
  public:
    /// Of the model at hand; good until the next question of this kind.
    TypesOfModel typesOf(ModelPassContext &context);
    /// The models that say that they were drawn at this place, in the order of the design; null for none.
    const std::vector<const Model *> *drawnAt(const PureValueRef &path, const PassContext &context);

  private:
    /// What an answer rests on.
    struct Basis {
        const Design *design;
        std::uint64_t edits;
        const GlobalTypePass *types;
        bool operator==(const Basis &other) const = default;
    };
    void renew(const PassContext &context);

    std::optional<Basis> mBasis;
    std::optional<DistinctInstances> mDistinct;
    const Model *mModel = nullptr;
    std::vector<RefChain> mInstances;
    std::optional<std::unordered_map<const Value *, std::vector<const Model *>>> mByPath;
};

} // namespace orvo::internal
