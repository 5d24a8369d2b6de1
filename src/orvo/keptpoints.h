// What stands at the points of blocks that a pass replaces one by one: latency constraints and edges of domains.
#pragma once

#include "orvo/domainedges.h"
#include "orvo/rewrittenpoints.h"

#include <optional>
#include <vector>

namespace orvo::internal {

/// Has constraints and edges move along while blocks of one model are replaced. Costs nothing for blocks without.
class KeptPoints {
  public:
    KeptPoints(const PassContext &context, Model &model) : mContext(context), mModel(model), mEdged(model) {}

    /// Calls `replace`, which is to put what it likes in place of the block and to delete that.
    template <class Replace> void around(Block &block, Replace replace) {
        const bool moves = isNeededFor(block);
        if (moves) {
            begin(block);
        }
        replace();
        if (moves) {
            mPoints->end();
        }
    }

  private:
    bool isNeededFor(const Block &block) const;
    void begin(Block &block);

    const PassContext &mContext;
    Model &mModel;
    DomainEdgeBlocks mEdged;
    std::vector<RefChain> mInstances;
    std::optional<RewrittenPoints> mPoints;
};

} // namespace orvo::internal
