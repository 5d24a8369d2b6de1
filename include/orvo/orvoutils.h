// Static utilities on whole models and designs.
#pragma once

#include <orvo/model.h>

#include <map>

namespace orvo {

/// Copying and deleting of parts of a design, and the upkeep of latency constraints. Copies get their constraints under
/// fresh ids, each with both of its ends; an end in an instance of the source that the copy has no part in is left out,
/// as is a constraint that then has lost one.
class ORVO_API OrvoUtils {
  public:
    using NodeMap = std::map<const Node *, Node *>;

    OrvoUtils() = delete;
    /// Sets each parameter of `source` on `destination`.
    static void copyParams(Node &destination, const Node &source);
    /// A copy of one model in `design`, named like its source (a clash gives a dupName tuple). Model blocks in it still
    /// refer to the same models. `nodes`, if given, gets each old node with its new one.
    static Model *cloneModel(Design &design, const Model &source, NodeMap *nodes = nullptr);
    /// Also copies every model below, one that is used twice once.
    static Model *deepCloneModel(Design &design, const Model &source);
    /// Copies all models of `source` into `destination`; model blocks keep their references where `destination` is the
    /// same design.
    static void cloneDesign(Design &destination, const Design &source);
    static void deepCloneDesign(Design &destination, const Design &source);
    /// Deletes the model and every model below it.
    static void deepDeleteModel(Model *model);
    /// `cloneModel`, telling under which ids the constraints of the source stand in the clone. Ids that `idMap` has
    /// already keep their partners, so that one map serves clones of several models; a second clone of one model needs
    /// a map of its own.
    static Model *cloneModelWithLatencyConstraints(Design &design, const Model &source, std::map<int, int> &idMap,
                                                   NodeMap *nodes = nullptr);

    /// Turns on the check of constraints at the end of `gatherUpScheduleConstraints`, for the rest of the process.
    static void requireStrictScheduleConstraints();
    /// Takes the constraints of models that are scheduled with the model around them up to the root of that schedule
    /// and tells each of them its root. A model that is inlined and used elsewhere, too, is reported and left alone.
    static void gatherUpScheduleConstraints(Design &design);
    /// Whether records of constraints and their ends agree with each other and with the design; what does not is
    /// reported. Linear in the size of the design.
    static bool requireConstraintsConsistentWithDesign(const Design &design);
    /// The model that holds the constraints of this one: the root of its schedule, or itself.
    static Model *getModelDefiningContraints(Model &model);
    static const Model *getModelDefiningContraints(const Model &model);
    /// Whether a chain as it is written on the netlist, pairs of model and block names from the root down, is this one,
    /// which has at least one element.
    static bool matchesRefChain(const PureValueRef &chain, const RefChain &refChain);
    /// Whether a pair of `A_MODEL_TAG` and a name means this model, or one of `A_REFCHAIN_TAG` and a chain this chain.
    static bool matchesModelOrRefChain(const PureValueRef &value, const Model &model, const RefChain &refChain);
};

} // namespace orvo
