// Removal of dead blocks: from the ends of chains, or by marking what lives.
#include "orvo/deadblockpass.h"

#include "orvo/deadblockhandlers.h"
#include "orvo/domainedgetree.h"

#include <orvo/block.h>
#include <orvo/model.h>
#include <orvo/wire.h>
#include <orvo/workqueue.h>

#include <deque>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(DeadBlockPass, "Deletes each block whose wires nobody reads, then those that only it read, up the "
                                "chain. Blocks that a host, a pin or another model needs stay.")
ORVO_DEFINE_PASS(DeadBlockLatePass, "As DeadBlockPass, near the end of a pipeline: terminals, boundaries and the like "
                                    "may go, too, and type pins that still read something stay.")
ORVO_DEFINE_PASS(AggressiveDeadBlockPass, "Keeps what blocks that must live depend on and deletes all else, loops that "
                                          "feed nothing included.")
ORVO_DEFINE_PASS(AggressiveDeadBlockLatePass,
                 "As AggressiveDeadBlockPass, with the late pass's view of what must live.")

/// Asks the handlers of blocks, looking each class up once. What lives is never deleted and what does not never comes
/// to life, so that an answer holds for the whole run.
class DeadBlockPass::Immortality {
  public:
    explicit Immortality(bool late) : mLate(late), mQuery(late) {}
    bool operator()(const Block &block) {
        auto [hit, isNew] = mHandlers.try_emplace(block.getClass(), nullptr);
        if (isNew) {
            hit->second = block.getClass()->get<DeadBlockHandler>();
        }
        return hit->second != nullptr && hit->second->isImmortalQuery(block, mLate, mQuery);
    }

  private:
    bool mLate;
    ImmortalModelQuery mQuery;
    std::unordered_map<const BlockClass *, const DeadBlockHandler *> mHandlers;
};

DeadBlockPass::DeadBlockPass() = default;

DeadBlockPass::~DeadBlockPass() = default;

void DeadBlockPass::before(PassContext &context) {
    ModelPass::before(context);
    mImmortality = std::make_unique<Immortality>(isLate());
}

void DeadBlockPass::after(PassContext &context) {
    mImmortality.reset();
    ModelPass::after(context);
}

bool DeadBlockPass::isLate() const { return false; }

bool DeadBlockLatePass::isLate() const { return true; }

bool AggressiveDeadBlockLatePass::isLate() const { return true; }

void DeadBlockPass::apply(ModelPassContext &context) {
    Immortality &isImmortal = *mImmortality;
    std::vector<Wire *> read;
    internal::DomainEdgeList edges(context.getModel());
    WorkQueue queue(context.getModel());
    while (queue.next()) {
        Block &block = *queue.block();
        if (block.hasReader() || isImmortal(block)) {
            continue;
        }
        // Nobody reads the block, so none of these wires is its own.
        read.clear();
        for (const Port &port : block.ports()) {
            read.push_back(port.getWire());
        }
        internal::leaveDomainsToDrivers(edges, block);
        queue.deleteBlock();
        // Most drivers have other readers: only those that have lost their last deserve another look.
        for (const Wire *wire : read) {
            if (wire->port_size() == 0 && !wire->getBlock().hasReader()) {
                queue.enqueue(wire->getBlock());
            }
        }
    }
}

void AggressiveDeadBlockPass::apply(ModelPassContext &context) {
    Immortality &isImmortal = immortality();
    std::deque<const Block *> pending;
    std::unordered_set<const Block *> live;
    for (const Block &block : context.getModel()) {
        if (isImmortal(block)) {
            pending.push_back(&block);
            live.insert(&block);
        }
    }
    while (!pending.empty()) {
        const Block *block = pending.front();
        pending.pop_front();
        for (const Port &port : block->ports()) {
            const Block *driver = &port.getWire()->getBlock();
            if (driver != block && live.insert(driver).second) {
                pending.push_back(driver);
            }
        }
    }
    internal::DomainEdgeList edges(context.getModel());
    WorkQueue queue(context.getModel());
    while (queue.next()) {
        if (live.count(queue.block()) == 0) {
            internal::leaveDomainsToDrivers(edges, *queue.block());
            queue.deleteBlock();
        }
    }
}

} // namespace orvo
