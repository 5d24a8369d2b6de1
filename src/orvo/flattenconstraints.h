// Latency constraints of instances that dissolve. The constraints of a dissolved model get fresh ids in each instance,
// and a chain of instances loses the links that are no longer there.
#pragma once

#include <orvo/corevalues.h>
#include <orvo/model.h>

#include <cstdint>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo::internal {

/// Told of every instance that dissolves into one model, and of every model block that lasts there; carries the ends of
/// copied blocks as they are copied, and all else when the model is closed. Does nothing, and costs nothing, in a
/// design without constraints.
class FlattenedConstraints {
  public:
    /// An instance that dissolved; 0 is the model into which it did.
    using Instance = std::uint32_t;

    explicit FlattenedConstraints(Design &design);

    /// Whether the design has constraints.
    bool any() const { return mAny; }
    /// An instance of `source` dissolves. Its block stood in the instance `above`, and was drawn in that model under
    /// that name.
    Instance open(const Block &block, Instance above, const Model &drawnIn, const PureValueRef &drawnAs, Model &source);
    /// A model block of a dissolved instance that lasts, by the name that it has now.
    void addLasting(const Block &block, Instance above, const Model &drawnIn, const PureValueRef &drawnAs);
    /// The ends of a block of the instance, as its copy has them; null for none.
    ValueRef carried(Block &copy, const ValueRef &entries, Instance instance);
    /// Gives the model the constraints of all that dissolved into it, and mends the chains that led through it. Returns
    /// the models that have ends with such chains.
    std::vector<const Model *> close(Model &model);
    /// Takes away ends in instances below dissolved models that nothing instantiates any more.
    void finish(const std::unordered_set<const Model *> &dissolved);

  private:
    using Ids = std::unordered_map<const Value *, PureValueRef>;
    /// A model's name and that of a block in it.
    using Link = std::pair<const Value *, const Value *>;
    struct Dissolved {
        Instance above;
        Link link;
        const Model *source;
        /// From the ids of the source to those of this instance.
        Ids ids;
        /// This instance or the nearest above that has fresh ids.
        Instance numbered;
    };
    /// What a step along a link leads to: an instance that dissolved, or a block that lasts.
    struct Step {
        Instance instance = 0;
        const Block *lasting = nullptr;
    };
    /// The block is told by its value, which outlives it.
    using Ends = std::vector<NodeValueRef>;

    static Link linkOf(const ValueRef &link);
    PureValueRef carriedChain(const ValueRef &chain, Instance instance) const;
    PureValueRef carriedId(const ValueRef &id, Instance instance) const;
    ValueRef carriedEntry(const TupleValue &entry, const PureValueRef &chain, Instance instance) const;
    void number(const Model &source, Dissolved &instance);
    void note(Block &block);
    std::size_t walk(const TupleValue &chain, std::size_t at, Instance from, const Block *&lasting) const;
    PureValueRef shortened(const TupleValue &chain, std::size_t from, std::size_t to, const Block &lasting) const;
    bool mendEnds(Block &block, const Model &model);
    bool addEnds(Block &block, const Model &source, const std::vector<Instance> &instances);
    void writeRecords(Model &model);
    std::vector<std::pair<const Model *, std::vector<Instance>>> instancesBySource() const;
    void dropEnds(Block &block, const std::unordered_set<const Model *> &dissolved) const;

    Design &mDesign;
    bool mAny = false;
    std::int64_t mNextId = 0;
    /// The blocks that have ends with a chain through a model, and those whose chain starts in it, by its name.
    std::unordered_map<const Value *, Ends> mThrough;
    std::unordered_map<const Value *, Ends> mRootedIn;

    std::vector<Dissolved> mInstances;
    std::map<std::pair<Instance, Link>, Step> mSteps;
    std::vector<ValueRef> mRecords;
    /// The copies of blocks that have ends with chains.
    Ends mCopies;
};

} // namespace orvo::internal
