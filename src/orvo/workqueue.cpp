// The walk over a model's blocks. The next block of the sweep is the first behind the name under which the latest was
// visited, found when it is asked for; so blocks may be made, deleted and renamed anywhere in the model meanwhile.
#include <orvo/workqueue.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>

namespace orvo {

namespace {

using DyingCallback = util::Function<void(Block &)>;
using ModelCallback = util::Function<void(Model &)>;
using DesignCallback = util::Function<void(Design &)>;

Block *siblingOf(const Block &block) { return static_cast<Block *>(block.getNextSibling()); }

} // namespace

// A defaulted one is not part of an explicit instantiation.
// NOLINTNEXTLINE(modernize-use-equals-default)
template <class Blk> WorkQueueImpl<Blk>::WorkQueueImpl() {}

template <class Blk>
WorkQueueImpl<Blk>::WorkQueueImpl(std::conditional_t<std::is_const_v<Blk>, const Model, Model> &model)
    : mFirstSweep(true), mModel(&model) {
    hook(model.getDesign());
}

template <class Blk>
WorkQueueImpl<Blk>::WorkQueueImpl(WorkingSubset<Blk> *subset) : mFirstSweep(true), mSubset(subset) {}

template <class Blk> WorkQueueImpl<Blk>::~WorkQueueImpl() {
    if (mDesign != nullptr) {
        for (Blk *block : mQueue) {
            --block->mQueues;
        }
        EventManager &events = mDesign->events();
        events.blockDying.remove(DyingCallback::bind<&WorkQueueImpl::onBlockDying>(this));
        events.modelDying.remove(ModelCallback::bind<&WorkQueueImpl::onModelDying>(this));
        events.designDying.remove(DesignCallback::bind<&WorkQueueImpl::onDesignDying>(this));
    }
}

template <class Blk> void WorkQueueImpl<Blk>::hook(Design &design) {
    if (mDesign == nullptr) {
        mDesign = &design;
        EventManager &events = design.events();
        events.blockDying.add(DyingCallback::bind<&WorkQueueImpl::onBlockDying>(this));
        events.modelDying.add(ModelCallback::bind<&WorkQueueImpl::onModelDying>(this));
        events.designDying.add(DesignCallback::bind<&WorkQueueImpl::onDesignDying>(this));
    }
}

template <class Blk> void WorkQueueImpl<Blk>::onDesignDying(Design &) { mDesign = nullptr; }

template <class Blk> void WorkQueueImpl<Blk>::onModelDying(Model &model) {
    if (&model == mModel) {
        mModel = nullptr;
        mCurr = nullptr;
        mUpcoming = nullptr;
    }
}

template <class Blk> void WorkQueueImpl<Blk>::onBlockDying(Block &block) {
    if (&block == mCurr) {
        if (mFirstSweep && mModel != nullptr) {
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

template <class Blk> Blk *WorkQueueImpl<Blk>::nextOfSweep() {
    if (mSubset != nullptr) {
        return mSubset->hasNext() ? mSubset->nextBlock() : nullptr;
    }
    if (mModel == nullptr || mModel->size() == 0) {
        return nullptr;
    }
    if (!mVisited) {
        return &*mModel->begin();
    }
    if (mCurr != nullptr && mCurr->getName().get_ptr() == mVisited.get_ptr()) {
        return siblingOf(*mCurr);
    }
    return static_cast<Block *>(mModel->getChildBehind(mVisited, mUpcoming));
}

template <class Blk> bool WorkQueueImpl<Blk>::next() {
    if (mFirstSweep) {
        mCurr = nextOfSweep();
        mUpcoming = nullptr;
        if (mCurr != nullptr) {
            mVisited = mCurr->getName();
            hook(mCurr->getDesign());
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
    // A dying block still hears its wires let go of their readers; nobody may look at it again.
    if (block.dying()) {
        return;
    }
    // The sweep will still come to what is not before its place.
    if (mFirstSweep && (!mVisited || !DeepValueCmp()(block.getName(), mVisited))) {
        return;
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
