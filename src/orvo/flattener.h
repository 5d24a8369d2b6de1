// Flattener copies the contents of models into the models that instantiate them and takes the model blocks out.
#pragma once

#include "orvo/flattenconstraints.h"
#include "orvo/flattensignposts.h"
#include "orvo/flattentags.h"

#include <orvo/model.h>

#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvo::internal {

/// Dissolves instances of models, for any number of models of one design one after the other. Costs time by the blocks
/// that it makes and connections that it moves, however many instances there are and however deep they lie. A model
/// that contains itself has no flat form and stays.
class Flattener {
  public:
    using Predicate = std::function<bool(const Model &)>;

    /// `dissolves` is asked once for a model as long as that does not change; `dissolved` gets the models that were
    /// dissolved.
    Flattener(Design &design, Predicate dissolves, std::unordered_set<const Model *> &dissolved);
    ~Flattener();
    Flattener(const Flattener &) = delete;
    Flattener &operator=(const Flattener &) = delete;

    void flatten(Model &model);
    /// To be called behind the last model.
    void finish();

  private:
    struct Source;

    /// A model block that is still to be looked at: where it was drawn, under which name.
    struct Pending {
        Block *block;
        FlattenedConstraints::Instance above;
        const Model *drawnIn;
        PureValueRef drawnAs;
    };
    /// What a wire of a dissolved model block gives its readers to; null for none.
    struct Replacement {
        Wire *by = nullptr;
        bool onTheWay = false;
    };

    void readHierarchy();
    const Source &sourceOf(const Model &model);
    void forget(const Model &model);
    void dissolve(const Pending &pending, Model &source, const Source &plan);
    void copyBlocks(const Source &plan);
    void connect(const Block &block, const Source &plan, FlattenedConstraints::Instance instance);
    void carryMetadata(Block &block);
    void queueCopies(const Source &plan, const Model &source, FlattenedConstraints::Instance instance);
    void replaceOutputs(Block &block, const Source &plan);
    void takeSignposts(const Model &source, const Source &plan);

    Wire *lastingWire(Wire *wire);
    void moveReaders();
    void cancelErrorCorrection();
    void deleteDissolved();

    Design &mDesign;
    Predicate mDissolves;
    std::unordered_set<const Model *> &mDissolved;
    std::unordered_set<const Model *> mRecursive;
    std::unordered_map<const Model *, std::unique_ptr<Source>> mSources;
    FlattenedConstraints mConstraints;
    FlattenedTags mTags;
    FlattenedSignposts mSignposts;

    /// While one model is flattened.
    Model *mModel = nullptr;
    std::deque<Pending> mQueue;
    std::vector<Block *> mDissolvedBlocks;
    std::unordered_map<const Wire *, Replacement> mReplacements;
    std::vector<Wire *> mReplacedWires;
    /// The error-correction sinks that read wires which dissolved.
    std::vector<Block *> mErrorCorrection;

    /// While one instance is dissolved: what stands for the source's blocks and wires, by their numbers.
    std::vector<Block *> mCopies;
    std::vector<Wire *> mWires;
};

} // namespace orvo::internal
