// The walk over a model's blocks. The next block of the sweep is found when it is asked for, from the current one, or,
// if that has died, from where it stood; so a block may be made or deleted anywhere in the model meanwhile.
#include <orvo/workqueue.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>

namespace orvo {

namespace {

using DyingCallback = util::Function<void(Block &)>;
using DesignCallback = util::Function<void(Design &)>;

Block *siblingOf(const Block &block) { return static_cast<Block *>(block.getNextSibling()); }

} // namespace

// A defaulted one is not part of an explicit instantiation.
// NOLINTNEXTLINE(modernize-use-equals-default)
template <class Blk> WorkQueueImpl<Blk>::WorkQueueImpl() {}

template <class Blk>
WorkQueueImpl<Blk>::WorkQueueImpl(std::conditional_t<std::is_const_v<Blk>, const Model, Model> &model)
    : mFirstSweep(true) {
    hook(model.getDesign());
    mUpcoming = model.size() == 0 ? nullptr : &*model.begin();
}

template <class Blk>
WorkQueueImpl<Blk>::WorkQueueImpl(WorkingSubset<Blk> *subset) : mFirstSweep(true), mSubset(subset) {}

template <class Blk> WorkQueueImpl<Blk>::~WorkQueueImpl() {
    if (mDesign != nullptr) {
        for (Blk *block : mQueue) {
            --block->mQueues;
        }
        mDesign->events().blockDying.remove(DyingCallback::bind<&WorkQueueImpl::onBlockDying>(this));
        mDesign->events().designDying.remove(DesignCallback::bind<&WorkQueueImpl::onDesignDying>(this));
    }
}

template <class Blk> void WorkQueueImpl<Blk>::hook(Design &design) {
    if (mDesign == nullptr) {
        mDesign = &design;
        mDesign->events().blockDying.add(DyingCallback::bind<&WorkQueueImpl::onBlockDying>(this));
        mDesign->events().designDying.add(DesignCallback::bind<&WorkQueueImpl::onDesignDying>(this));
    }
}

template <class Blk> void WorkQueueImpl<Blk>::onDesignDying(Design &) { mDesign = nullptr; }

template <class Blk> void WorkQueueImpl<Blk>::onBlockDying(Block &block) {
    if (&block == mCurr) {
        if (mFirstSweep && mSubset == nullptr) {
            mUpcoming = siblingOf(block);
        }
        mCurr = nullptr;
    } else if (&block == mUpcoming) {
        mUpcoming = siblingOf(block);
    }
    if (block.mQueues == 0) {
        return;
    }
    if (auto queued = mQueued.find(&block); queued != mQueued.end()) {
        mQueue.erase(queued->second);
        mQueued.erase(queued);
        --block.mQueues;
    }
}

template <class Blk> bool WorkQueueImpl<Blk>::next() {
    if (mFirstSweep && mSubset != nullptr) {
        if (mSubset->hasNext()) {
            mCurr = mSubset->nextBlock();
            mSweepStarted = true;
            hook(mCurr->getDesign());
            return true;
        }
        mFirstSweep = false;
    } else if (mFirstSweep) {
        if (mCurr != nullptr) {
            mUpcoming = siblingOf(*mCurr);
        }
        mCurr = mUpcoming;
        mUpcoming = nullptr;
        if (mCurr != nullptr) {
            mSweepStarted = true;
            return true;
        }
        mFirstSweep = false;
    }
    if (mQueue.empty()) {
        mCurr = nullptr;
        return false;
    }
    mCurr = mQueue.front();
    mQueued.erase(mCurr);
    mQueue.pop_front();
    --mCurr->mQueues;
    return true;
}

template <class Blk> Blk *WorkQueueImpl<Blk>::block() const {
    ORVO_ASSERT(mCurr != nullptr, "a work queue has no current block");
    return mCurr;
}

template <class Blk> void WorkQueueImpl<Blk>::deleteBlock() {
    // The dying event clears the current block.
    delete mCurr;
    mCurr = nullptr;
}

template <class Blk> void WorkQueueImpl<Blk>::enqueue(Blk &block) {
    if (mFirstSweep) {
        // Of a block that has died in the sweep, its successor tells how far the sweep has come.
        const Block *position = mCurr != nullptr ? mCurr : mUpcoming;
        if (!mSweepStarted || (position != nullptr && !DeepValueCmp()(block.getName(), position->getName()))) {
            return;
        }
    }
    if (mSubset != nullptr && !mSubset->isMember(block)) {
        return;
    }
    if (block.mQueues != 0 && mQueued.count(&block) != 0) {
        return;
    }
    hook(block.getDesign());
    mQueue.push_back(&block);
    mQueued.emplace(&block, std::prev(mQueue.end()));
    ++block.mQueues;
}

template class WorkQueueImpl<Block>;
template class WorkQueueImpl<const Block>;

} // namespace orvo
