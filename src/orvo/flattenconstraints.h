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

    explicit FlattenedConstraints(Design &design) : mDesign(design) {}

    /// To be called with each model and each block of the design, and then `start`, before all else.
    void note(const Model &model);
    void note(Block &block);
    void start();

    /// Whether the design has constraints.
    bool any() const { return mAny; }
    /// Whether a block has ends of constraints, which do not belong on one that dissolves.
    bool endsAt(const Block &block) const;
    /// An instance of `source` dissolves. Its block stood in the instance `above`, and was drawn in that model under
    /// that name.
    Instance open(Instance above, const Model &drawnIn, const PureValueRef &drawnAs, Model &source);
    /// A model block of a dissolved instance that lasts, by the name that it has now.
    void addLasting(const Block &block, Instance above, const Model &drawnIn, const PureValueRef &drawnAs);
    /// The ends of a block of the instance, as its copy has them; null for none.
    ValueRef carried(Block &copy, const ValueRef &entries, Instance instance);
    /// Gives the model the constraints of all that dissolved into it, and mends the chains that led through it. Returns
    /// the models whose ends have changed; `write` is to be called before these are read.
    std::vector<const Model *> close(Model &model);
    /// Writes the changed ends of the blocks in a model, which else wait for the end.
    void write(const Model &model);
    /// Takes away ends in instances below dissolved models that nothing instantiates any more, and writes all that
    /// waits.
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
    /// Where the links of a chain lead: to a block that lasts, or to the last instance that dissolved.
    struct Way {
        /// The first link that was not taken.
        std::size_t end;
        Instance instance = 0;
        const Block *lasting = nullptr;
    };
    /// The ends of a block some of which have a chain, as they are to be.
    struct Table {
        /// Outlives the block.
        NodeValueRef block;
        const StaticString *param;
        /// Null for those that are gone.
        std::vector<ValueRef> entries;
        bool changed = false;
    };
    /// One entry of a table.
    struct Place {
        std::uint32_t table;
        std::uint32_t entry;
        bool operator==(const Place &other) const = default;
    };
    using Places = std::vector<Place>;

    static Link linkOf(const ValueRef &link);
    PureValueRef carriedChain(const ValueRef &chain, Instance instance) const;
    PureValueRef carriedId(const ValueRef &id, Instance instance) const;
    ValueRef carriedEntry(const TupleValue &entry, const PureValueRef &chain, Instance instance) const;
    void number(Model &source, Dissolved &instance);
    void note(Place place);
    const ValueRef &entryAt(Place place) const { return mTables[place.table].entries[place.entry]; }
    bool startsIn(Place place, const Value *modelName) const;
    void change(Place place, ValueRef entry);
    void setChanged(std::uint32_t table);
    void write(Table &table);
    Way walk(const TupleValue &chain, std::size_t at, Instance from) const;
    PureValueRef shortened(const TupleValue &chain, std::size_t from, std::size_t to, const Block &lasting) const;
    void mendEnd(Place place, const Model &model);
    void addEnds(Place place, const std::vector<Instance> &instances);
    void takeRecords(Model &model);
    void writeRecords(Model &holder);
    std::vector<std::pair<const Model *, std::vector<Instance>>> instancesBySource() const;

    Design &mDesign;
    bool mAny = false;
    std::int64_t mNextId = 0;
    std::vector<Table> mTables;
    /// The ends with a chain through a model, and those whose chain starts in it, by its name.
    std::unordered_map<const Value *, Places> mThrough;
    std::unordered_map<const Value *, Places> mRootedIn;
    /// The tables that are to be written, by the model that they are in.
    std::unordered_map<const Model *, std::vector<std::uint32_t>> mChanged;
    /// The models that had a change since a model was closed last, in the order of the first.
    std::vector<const Model *> mChangedModels;
    /// Records on their way from other models to the roots of their schedules.
    std::unordered_map<const Model *, std::vector<ValueRef>> mForRoot;
    std::vector<Model *> mRoots;

    std::vector<Dissolved> mInstances;
    std::map<std::pair<Instance, Link>, Step> mSteps;
    std::vector<ValueRef> mRecords;
    /// The copies of blocks that have ends with chains, each once.
    std::vector<NodeValueRef> mCopies;
};

} // namespace orvo::internal
