// Removal of dead blocks: from the ends of chains, or by marking what lives.
#include "orvo/deadblockpass.h"

#include "orvo/deadblockhandlers.h"
#include "orvo/domainedgetree.h"
#include "orvo/readertypes.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/wire.h>

#include <deque>
#include <numeric>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(DeadBlockPass, "Deletes each block whose wires nobody reads, then those that only it read, up the "
                                "chain. Blocks that a host, a pin or another model needs stay. Where what stays had "
                                "its type from a block that goes, a type pin keeps it.")
ORVO_DEFINE_PASS(DeadBlockLatePass, "As DeadBlockPass, near the end of a pipeline: terminals, boundaries and the like "
                                    "may go, too, and type pins that still read something stay.")
ORVO_DEFINE_PASS(AggressiveDeadBlockPass, "Keeps what blocks that must live depend on and deletes all else, loops that "
                                          "feed nothing included.")
ORVO_DEFINE_PASS(AggressiveDeadBlockLatePass,
                 "As AggressiveDeadBlockPass, with the late pass's view of what must live.")

namespace {

std::size_t readersOf(const Block &block) {
    return std::accumulate(block.begin(), block.end(), std::size_t{0},
                           [](std::size_t sum, const Wire &wire) { return sum + wire.port_size(); });
}

} // namespace

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
    mTypes = std::make_unique<internal::ReaderTypes>();
    for (Model &model : context.getDesign()) {
        if (std::vector<Block *> dead = deadBlocks(model); !dead.empty()) {
            mTypes->note(model, dead);
            mDead.emplace(&model, std::move(dead));
        }
    }
}

void DeadBlockPass::apply(ModelPassContext &context) {
    const auto dead = mDead.find(&context.getModel());
    if (dead == mDead.end()) {
        return;
    }
    internal::DomainEdgeList edges(context.getModel());
    for (Block *block : dead->second) {
        internal::leaveDomainsToDrivers(edges, *block);
        delete block;
    }
}

void DeadBlockPass::after(PassContext &context) {
    mTypes->restore();
    mTypes.reset();
    mDead.clear();
    mImmortality.reset();
    ModelPass::after(context);
}

bool DeadBlockPass::isLate() const { return false; }

bool DeadBlockLatePass::isLate() const { return true; }

bool AggressiveDeadBlockLatePass::isLate() const { return true; }

std::vector<Block *> DeadBlockPass::deadBlocks(Model &model) {
    Immortality &isImmortal = *mImmortality;
    std::vector<Block *> dead;
    // Readers that are left to blocks that lost some of several.
    std::unordered_map<const Block *, std::size_t> left;
    for (Block &block : model) {
        if (!block.hasReader() && !isImmortal(block)) {
            dead.push_back(&block);
        }
    }
    const auto losesLast = [&left](const Block &driver) {
        const std::size_t all = readersOf(driver);
        return all == 1 || --left.try_emplace(&driver, all).first->second == 0;
    };
    for (std::size_t at = 0; at < dead.size(); ++at) {
        for (const Port &port : dead[at]->ports()) {
            Block &driver = port.getWire()->getBlock();
            if (&driver.getModel() == &model && losesLast(driver) && !isImmortal(driver)) {
                dead.push_back(&driver);
            }
        }
    }
    return dead;
}

std::vector<Block *> AggressiveDeadBlockPass::deadBlocks(Model &model) {
    Immortality &isImmortal = immortality();
    std::deque<const Block *> pending;
    std::unordered_set<const Block *> live;
    for (const Block &block : model) {
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
    std::vector<Block *> dead;
    for (Block &block : model) {
        if (live.count(&block) == 0) {
            dead.push_back(&block);
        }
    }
    return dead;
}

} // namespace orvo
