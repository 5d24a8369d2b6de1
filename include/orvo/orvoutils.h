// Static utilities on whole models and designs.
#pragma once

#include <orvo/node.h>

#include <map>

namespace orvo {

/// Copying and deleting of parts of a design.
class ORVO_API OrvoUtils {
  public:
    using NodeMap = std::map<const Node *, Node *>;
    /// Renumbers what a cloned model must not share with its source, such as the identifiers of latency constraints.
    /// Called with the source, the clone and the map from old to new nodes at the end of each `cloneModel`.
    using CloneHook = void (*)(const Model &source, Model &clone, const NodeMap &nodes);

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
    /// Process-wide, set once at start-up; returns the one before.
    static CloneHook setCloneHook(CloneHook hook);
};

} // namespace orvo
