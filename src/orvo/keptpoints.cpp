// The record of points is made when the first block with any goes.
#include "orvo/keptpoints.h"

#include "orvo/unrollpasses.h"

#include <orvo/wire.h>

namespace orvo::internal {

bool KeptPoints::isNeededFor(const Block &block) const {
    return mPoints ? mPoints->concerns(block) : hasReferencePoints(block) || (mMovesDomainEdges && mEdged.has(block));
}

RewrittenPoints &KeptPoints::opened() {
    if (!mPoints) {
        mInstances = instancesOf(mModel, unrolledTree(mContext));
        mPoints.emplace(mContext, mModel, mInstances, mMovesDomainEdges);
    }
    return *mPoints;
}

bool KeptPoints::hasEdge(const Port &port) { return isNeededFor(port.getBlock()) && opened().hasEdge(port); }

void KeptPoints::copyBegin(const Wire &from, const Wire &to) {
    if (isNeededFor(from.getBlock())) {
        opened().copyBegin(from, to);
    }
}

void KeptPoints::spread(const Wire &from, const std::vector<const Wire *> &to, bool stays) {
    if (isNeededFor(from.getBlock())) {
        opened().spread(from, to, stays);
    }
}

} // namespace orvo::internal
