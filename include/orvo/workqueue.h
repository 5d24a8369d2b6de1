// The walk over a model's blocks that survives edits of the model and takes blocks back for another look.
#pragma once

#include <orvo/api.h>
#include <orvo/value.h>

#include <list>
#include <type_traits>
#include <unordered_map>

namespace orvo {

class Block;
class Design;
class Model;

/// A set of blocks to walk in place of a whole model.
template <class Blk> class WorkingSubset {
  public:
    virtual ~WorkingSubset() = default;
    virtual bool isMember(const Block &block) const = 0;
    virtual bool hasNext() const = 0;
    virtual Blk *nextBlock() = 0;
};

/// Each block of a model once, in order, then those enqueued meanwhile, each at most once a request. `Blk` is `Block`
/// or `const Block`. Any block may be deleted or renamed at any time: one that dies is neither visited nor current any
/// more, and one that is renamed is met where it stands when the sweep gets there.
template <class Blk> class ORVO_API WorkQueueImpl {
  public:
    /// No first sweep: a plain queue.
    WorkQueueImpl();
    explicit WorkQueueImpl(std::conditional_t<std::is_const_v<Blk>, const Model, Model> &model);
    /// The subset is not owned.
    explicit WorkQueueImpl(WorkingSubset<Blk> *subset);
    ~WorkQueueImpl();
    WorkQueueImpl(const WorkQueueImpl &) = delete;
    WorkQueueImpl &operator=(const WorkQueueImpl &) = delete;

    /// Steps to the next block; false when there is none.
    bool next();
    /// The current block, which must exist.
    Blk *block() const;
    /// Deletes the current block, if there is one.
    void deleteBlock();
    /// Asks for another look at a block. During the first sweep that takes effect only for a block that the sweep has
    /// passed; a block outside the subset is never queued.
    void enqueue(Blk &block);
    /// The number of queued blocks, without those that the first sweep has still to reach.
    std::size_t size() const { return mQueue.size(); }

  private:
    void hook(Design &design);
    void onBlockDying(Block &block);
    void onModelDying(Model &model);
    void onDesignDying(Design &design);
    Blk *nextOfSweep();

    bool mFirstSweep = false;
    /// The model of the sweep, null with a subset.
    const Model *mModel = nullptr;
    /// The name under which the sweep visited its latest block, null before the first.
    PureValueRef mVisited;
    /// Where the sweep most likely goes on when the current block has died.
    const Block *mUpcoming = nullptr;
    WorkingSubset<Blk> *mSubset = nullptr;
    std::list<Blk *> mQueue;
    std::unordered_map<const Block *, typename std::list<Blk *>::iterator> mQueued;
    Blk *mCurr = nullptr;
    Design *mDesign = nullptr;
};

extern template class WorkQueueImpl<Block>;
extern template class WorkQueueImpl<const Block>;

using WorkQueue = WorkQueueImpl<Block>;

} // namespace orvo
