// The record of points is made when the first block with any goes.
#include "orvo/keptpoints.h"

#include "orvo/unrollpasses.h"

namespace orvo::internal {

bool KeptPoints::isNeededFor(const Block &block) const {
    return mPoints ? mPoints->concerns(block) : hasReferencePoints(block) || mEdged.has(block);
}

void KeptPoints::begin(Block &block) {
    if (!mPoints) {
        mInstances = instancesOf(mModel, unrolledTree(mContext));
        mPoints.emplace(mContext, mModel, mInstances);
    }
    mPoints->begin(block);
}

} // namespace orvo::internal
