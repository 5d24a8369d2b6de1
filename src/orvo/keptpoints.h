// What stands at the points of blocks that a pass replaces one by one: latency constraints and edges of domains.
#pragma once

#include "orvo/domainedges.h"
#include "orvo/helddomains.h"
#include "orvo/rewrittenpoints.h"

#include <optional>
#include <vector>

namespace orvo::internal {

/// Has constraints and edges move along while blocks of one model are replaced. Costs nothing for blocks without.
class KeptPoints {
  public:
    /// `held` has been asked to hold the blocks whose links may be cut, and must outlive this. Who sees to the edges of
    /// domains itself has them left alone.
    KeptPoints(const PassContext &context, Model &model, HeldDomains *held = nullptr, bool movesDomainEdges = true)
        : mContext(context), mModel(model), mHeld(held), mEdged(model), mMovesDomainEdges(movesDomainEdges) {}

    /// Calls `replace`, which is to put what it likes in place of the block and to delete that.
    template <class Replace> void around(Block &block, Replace replace) {
        const HeldDomains::Rewriting held = mHeld == nullptr ? HeldDomains::Rewriting() : mHeld->before(block);
        const bool moves = isNeededFor(block);
        if (moves) {
            opened().begin(block);
        }
        replace();
        if (moves) {
            mPoints->end();
        }
        if (mHeld != nullptr) {
            mHeld->after(held);
        }
    }
    /// Whether an edge of a domain stands at the port.
    bool hasEdge(const Port &port);
    /// Has the domain that begins at a wire begin at another, too.
    void copyBegin(const Wire &from, const Wire &to);
    /// Before a block goes that others stand for already, which carry on what its wire carried, or while it stays
    /// beside them: the constraints at the wire hold for theirs. Edges of domains at a block that goes end with it.
    void spread(const Wire &from, const std::vector<const Wire *> &to, bool stays);

  private:
    bool isNeededFor(const Block &block) const;
    RewrittenPoints &opened();

    const PassContext &mContext;
    Model &mModel;
    HeldDomains *mHeld;
    DomainEdgeBlocks mEdged;
    bool mMovesDomainEdges;
    std::vector<RefChain> mInstances;
    std::optional<RewrittenPoints> mPoints;
};

} // namespace orvo::internal
