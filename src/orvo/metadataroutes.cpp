// Who gets the metadata of a dead block. From each dead block its routes lead to what took its place: to live blocks,
// where they end, and to blocks that died themselves, from where they go on. Routes may meet and run in circles, so
// that their ends are gathered by strongly connected components, each once.
#include "orvo/blockannotation.h"
#include "orvo/changelog.h"

#include <algorithm>
#include <limits>
#include <type_traits>

namespace orvo {

using internal::ChangeLog;
using internal::Disconnection;
using internal::NodeBlock;
using internal::NodeWire;

namespace {

/// Beyond so many blocks, ports or readers nobody looks for what a bare edit may have meant.
constexpr std::size_t kMostToGuessFrom = 64;
constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

template <class List> std::uint32_t sizeOf(const List &list) { return static_cast<std::uint32_t>(list.size()); }

} // namespace

class MetadataRoutes {
  public:
    using Node = BlockAnnotation::Node;
    explicit MetadataRoutes(BlockAnnotation &section)
        : mSection(section), mLog(section.mLog), mClaimMark(section.mLog.newMark()) {}
    BlockAnnotation::TransferList find();

  private:
    /// A part of one of the lists below.
    struct Range {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        bool empty() const { return first == last; }
        std::uint32_t size() const { return last - first; }
    };
    /// A reader that was moved to what the dead block read, and the wire that it reads.
    struct Side {
        const Node *fork;
        const NodeBlock *merge;
    };
    /// Where routes end.
    struct Ends {
        Range targets;
        Range sides;
        bool empty() const { return targets.empty() && sides.empty(); }
    };
    struct Route {
        NodeBlock *block;
        Ends own;
        /// The dead blocks it leads to.
        Range next;
        std::uint32_t order = 0;
        std::uint32_t low = 0;
        std::uint32_t ends = kNone;
    };
    /// The new blocks that serve the block that took a signal over.
    struct Region {
        NodeBlock *block;
        Range members;
    };

    std::uint32_t routeOf(NodeBlock &block);
    void follow(std::uint32_t route);
    void markInputs(const NodeBlock &dead, std::uint32_t mark) const;
    /// Whether the marked block read the wire before the connection of that number went; by default, from the first.
    static bool wasInput(const NodeWire &wire, std::uint32_t mark, std::uint32_t number = 1) {
        return wire.mMark == mark && wire.mInputSince < number;
    }
    void followWire(const NodeWire &wire, std::uint32_t mark);
    bool followMove(NodeBlock &reader, const NodeWire &heir, std::uint32_t mark, std::uint32_t number);
    bool followOpenReader(NodeBlock &reader, std::uint32_t mark, std::uint32_t number);
    bool isUpstream(const NodeBlock &dead, const NodeBlock &block) const;
    bool doesWorkOf(const NodeBlock &deadReader, std::uint32_t mark) const;
    template <class Visit> bool anyInputOf(const NodeBlock &block, const Visit &visit) const;
    void followUnread(const NodeBlock &dead, std::uint32_t mark);
    std::vector<NodeBlock *> guessHeirs(const NodeBlock &dead) const;
    bool reads(const NodeBlock &block, const NodeWire &wire) const;
    /// What reads the dead block and got another wire to read was put behind it. But a copy of a block that feeds
    /// itself reads the dead block, too, until it feeds itself.
    static bool standsBehind(const NodeBlock &block, const NodeBlock &heir, std::uint32_t mark) {
        return block.mReader == mark && block.mReaderMovedTo != &heir;
    }
    bool addHeir(NodeBlock &heir, std::uint32_t mark);
    void addBypass(const NodeWire &fork, NodeBlock &merge, std::uint32_t mark);
    void addTarget(NodeBlock &block);
    void addOnce(NodeBlock &block, std::uint32_t mark);
    Range regionOf(NodeBlock &heir, std::uint32_t inputs);
    void addNodesOnForkToMergePaths(const NodeBlock &heir, const NodeBlock &block, std::uint32_t inputs);
    void gather(std::uint32_t start);
    std::uint32_t successor(const Route &route, std::uint32_t number) const;
    void closeComponent(std::uint32_t root);
    std::uint32_t endsOf(std::size_t bottom);
    void makeGroups(std::uint32_t sources);
    bool isSource(const NodeBlock &block) const { return block.hasMetadata() || !mSection.mMetadata.empty(); }
    bool isNew(const TransferMetadataListener::ORVONode &node) const { return node.bornSince(mSection.number()); }
    /// New, and took nobody's place that is known.
    bool isFree(const NodeBlock &block) const { return isNew(block) && !block.tookOverSince(mSection.number()); }
    /// The connections with a wire that went in this section, newest first.
    template <class Visit> void eachGoneOf(const NodeWire &wire, const Visit &visit) const {
        for (std::uint32_t at = wire.mGone; mSection.since(at); at = mLog.disconnectionAt(at).nextOfWire) {
            visitGone(visit, at);
        }
    }
    template <class Visit> void eachGoneOf(const NodeBlock &block, const Visit &visit) const {
        for (std::uint32_t at = block.mGone; mSection.since(at); at = mLog.disconnectionAt(at).nextOfBlock) {
            visitGone(visit, at);
        }
    }
    template <class Visit> void visitGone(const Visit &visit, std::uint32_t number) const {
        if constexpr (std::is_invocable_v<Visit, const Disconnection &, std::uint32_t>) {
            visit(mLog.disconnectionAt(number), number);
        } else {
            visit(mLog.disconnectionAt(number));
        }
    }

    /// The connections with a wire of the block that went.
    template <class Visit> void eachReaderOf(const NodeBlock &block, const Visit &visit) const {
        for (const NodeWire *wire = block.mWires; wire != nullptr; wire = wire->mNextOfOwner) {
            eachGoneOf(*wire, visit);
        }
    }

    BlockAnnotation &mSection;
    ChangeLog &mLog;
    const std::uint32_t mClaimMark;
    /// Only one block died that stood before.
    bool mOnlyDeath = false;
    /// The block whose routes are followed.
    const NodeBlock *mDead = nullptr;
    BlockAnnotation::TransferList mList;
    std::vector<Route> mRoutes;
    std::vector<Region> mRegions;
    /// The lists that ranges are of.
    std::vector<const NodeBlock *> mTargets;
    std::vector<Side> mSides;
    std::vector<NodeBlock *> mNext;
    std::vector<NodeBlock *> mMembers;
    std::vector<Ends> mEnds;
    /// Of the walk over components.
    std::vector<std::uint32_t> mStack;
    /// Routes of blocks that nobody read, which wait for their turn.
    std::vector<std::uint32_t> mUnread;
    bool mUnreadTurn = false;
    std::uint32_t mOrder = 0;
};

// A node's slot counts if what stands there is this node's.
std::uint32_t MetadataRoutes::routeOf(NodeBlock &block) {
    if (block.mSlot < mRoutes.size() && mRoutes[block.mSlot].block == &block) {
        return block.mSlot;
    }
    block.mSlot = sizeOf(mRoutes);
    mRoutes.push_back({&block, {}, {}});
    return block.mSlot;
}

void MetadataRoutes::addTarget(NodeBlock &block) {
    if (block.alive()) {
        mTargets.push_back(&block);
    } else {
        routeOf(block);
        mNext.push_back(&block);
    }
}

void MetadataRoutes::addOnce(NodeBlock &block, std::uint32_t mark) {
    if (block.mMark != mark) {
        block.mMark = mark;
        addTarget(block);
    }
}

bool MetadataRoutes::addHeir(NodeBlock &heir, std::uint32_t mark) {
    // What was made with it and reads the dead block makes the whole stand behind that.
    const auto isBehind = [&](const NodeBlock *block) {
        return block->mBirthEpoch == heir.mBirthEpoch && standsBehind(*block, heir, mark);
    };
    if (heir.mMark == mark) {
        return true;
    }
    const Range members = isNew(heir) ? regionOf(heir, mark) : Range();
    const auto first = mMembers.begin() + members.first;
    const auto last = mMembers.begin() + members.last;
    if (isBehind(&heir) || std::any_of(first, last, isBehind)) {
        return false;
    }
    addOnce(heir, mark);
    std::for_each(first, last, [&](NodeBlock *member) { addOnce(*member, mark); });
    return true;
}

bool MetadataRoutes::reads(const NodeBlock &block, const NodeWire &wire) const {
    if (!block.alive() || !wire.alive()) {
        return false;
    }
    if (block.mBlock->port_size() < wire.mWire->port_size()) {
        const auto ports = block.mBlock->ports();
        return std::any_of(ports.begin(), ports.end(), [&](const Port &port) { return port.peekWire() == wire.mWire; });
    }
    const auto readers = wire.mWire->ports();
    return std::any_of(readers.begin(), readers.end(),
                       [&](const Port &port) { return &port.getBlock() == block.mBlock; });
}

void MetadataRoutes::addBypass(const NodeWire &fork, NodeBlock &merge, std::uint32_t mark) {
    if (!merge.alive() || isNew(merge)) {
        addOnce(merge, mark);
        return;
    }
    if (merge.mMark == mark) {
        return;
    }
    merge.mMark = mark;
    const Node *side = &fork;
    if (isNew(fork) || !reads(merge, fork)) {
        side = &mList.dummies.emplace_back(&merge);
    }
    mSides.push_back({side, &merge});
}

void MetadataRoutes::follow(std::uint32_t route) {
    NodeBlock &dead = *mRoutes[route].block;
    const std::uint32_t mark = mLog.newMark();
    mDead = &dead;
    bool read = false;
    eachReaderOf(dead, [&](const Disconnection &gone) {
        read = true;
        gone.block->mReader = mark;
        gone.block->mReaderMovedTo = gone.heir == nullptr ? nullptr : gone.heir->mOwner;
    });
    if (!read && !mUnreadTurn) {
        mUnread.push_back(route);
        return;
    }
    Ends own;
    Range next;
    own.targets.first = sizeOf(mTargets);
    own.sides.first = sizeOf(mSides);
    next.first = sizeOf(mNext);
    // The wires that the dead block read bear the mark, and so do the blocks already found.
    markInputs(dead, mark);
    for (const NodeWire *wire = dead.mWires; wire != nullptr; wire = wire->mNextOfOwner) {
        followWire(*wire, mark);
    }
    if (!read) {
        followUnread(dead, mark);
    }
    const bool leadsOn =
        own.targets.first != mTargets.size() || own.sides.first != mSides.size() || next.first != mNext.size();
    if (!leadsOn && mOnlyDeath && !isNew(dead)) {
        // All that is new and took nobody else's place can only stand for this block.
        for (std::uint32_t number = mSection.mFirstBlock + 1; number <= mLog.blocks(); ++number) {
            if (NodeBlock &block = mLog.blockAt(number); isFree(block)) {
                addHeir(block, mark);
            }
        }
    }
    own.targets.last = sizeOf(mTargets);
    own.sides.last = sizeOf(mSides);
    next.last = sizeOf(mNext);
    // The list may have moved.
    Route &done = mRoutes[route];
    done.own = own;
    done.next = next;
}

/// What a port of the block was moved to became its input then; all else was from the first.
void MetadataRoutes::markInputs(const NodeBlock &dead, std::uint32_t mark) const {
    const std::uint32_t arrived = mLog.newMark();
    eachGoneOf(dead, [&](const Disconnection &gone, std::uint32_t number) {
        if (gone.heir == nullptr) {
            return;
        }
        // The readers of a signal are moved together, the block itself among them if it feeds itself.
        for (std::uint32_t next = number + 1; gone.wire->mOwner == &dead && next <= mLog.disconnections(); ++next) {
            const Disconnection &other = mLog.disconnectionAt(next);
            if (other.wire == gone.wire && other.heir == gone.heir) {
                number = next;
            } else if (other.block->mBlock != nullptr) {
                break; // only what is recalled of a reader stands between its move and the one before
            }
        }
        const NodeWire &wire = *gone.heir;
        const bool again = wire.mMark == arrived;
        wire.mMark = arrived;
        wire.mArrivals = (again ? wire.mArrivals : 0) + 1;
        wire.mInputSince = again ? std::min(wire.mInputSince, number) : number;
    });
    eachGoneOf(dead, [&](const Disconnection &gone) {
        if (gone.wire->mMark != arrived || gone.wire->mArrivals-- == 0) {
            gone.wire->mInputSince = 0;
            gone.wire->mMark = mark;
        }
    });
    eachGoneOf(dead, [&](const Disconnection &gone) { gone.wire->mMark = mark; });
}

/// Where the signal of one wire went: to the wires that its readers were moved to. If there is none, its dead readers
/// lead on, for what took their place must do the dead block's work, too; beside others they do where this shows.
void MetadataRoutes::followWire(const NodeWire &wire, std::uint32_t mark) {
    bool found = false;
    eachGoneOf(wire, [&](const Disconnection &gone, std::uint32_t number) {
        if (gone.heir != nullptr) {
            found = followMove(*gone.block, *gone.heir, mark, number) || found;
        } else if (gone.block->alive()) {
            found = followOpenReader(*gone.block, mark, number) || found;
        }
    });
    const NodeWire *heir = found ? nullptr : wire.unreadHeirSince(mSection.number());
    if (heir != nullptr && (isNew(*heir->mOwner) || !isUpstream(*mDead, *heir->mOwner))) {
        found = addHeir(*heir->mOwner, mark);
    }
    eachGoneOf(wire, [&](const Disconnection &gone) {
        if (gone.heir == nullptr && !gone.block->alive() && gone.block != wire.mOwner &&
            (!found || doesWorkOf(*gone.block, mark))) {
            addOnce(*gone.block, mark);
        }
    });
}

/// A reader that reads another wire now: what drives it took the dead block's place, or the reader passes the block by.
bool MetadataRoutes::followMove(NodeBlock &reader, const NodeWire &heir, std::uint32_t mark, std::uint32_t number) {
    if (wasInput(heir, mark, number) || (!isNew(*heir.mOwner) && isUpstream(*mDead, *heir.mOwner))) {
        addBypass(heir, reader, mark);
        return true;
    }
    return addHeir(*heir.mOwner, mark);
}

/// Calls `visit` for the wires that the block reads or read until it gives true.
template <class Visit> bool MetadataRoutes::anyInputOf(const NodeBlock &block, const Visit &visit) const {
    for (std::uint32_t at = block.mGone; mSection.since(at); at = mLog.disconnectionAt(at).nextOfBlock) {
        if (visit(*mLog.disconnectionAt(at).wire)) {
            return true;
        }
    }
    if (!block.alive()) {
        return false;
    }
    const auto ports = block.mBlock->ports();
    return std::any_of(ports.begin(), ports.end(),
                       [&](const Port &port) { return visit(mLog.node(*port.peekWire())); });
}

/// Whether the block lies a few steps before the dead one.
bool MetadataRoutes::isUpstream(const NodeBlock &dead, const NodeBlock &block) const {
    std::vector<const NodeBlock *> passed{&dead};
    std::size_t depthEnd = 1;
    unsigned int depth = 0;
    for (std::size_t i = 0; i < passed.size() && i < kMostToGuessFrom; ++i) {
        if (i == depthEnd) {
            depthEnd = passed.size();
            if (++depth == BlockAnnotation::kLivePathDepth) {
                return false;
            }
        }
        std::size_t looked = 0;
        const bool found = anyInputOf(*passed[i], [&](const NodeWire &wire) {
            if (wire.mOwner == &block) {
                return true;
            }
            if (std::find(passed.begin(), passed.end(), wire.mOwner) == passed.end()) {
                passed.push_back(wire.mOwner);
            }
            return ++looked == kMostToGuessFrom;
        });
        if (found) {
            return looked < kMostToGuessFrom;
        }
    }
    return false;
}

/// Whether what took the place of a reader that died does the dead block's work, too: it reads what the dead block
/// read, and not the dead block.
bool MetadataRoutes::doesWorkOf(const NodeBlock &deadReader, std::uint32_t mark) const {
    bool reads = false;
    eachReaderOf(deadReader, [&](const Disconnection &gone) {
        const NodeBlock *heir = gone.heir == nullptr ? nullptr : gone.heir->mOwner;
        reads = reads || heir == mDead || (heir != nullptr && heir != &deadReader && heir->mReader == mark);
    });
    bool does = false;
    eachReaderOf(deadReader, [&](const Disconnection &gone) {
        does = does || (!reads && gone.heir != nullptr && isNew(*gone.heir->mOwner) &&
                        anyInputOf(*gone.heir->mOwner, [&](const NodeWire &wire) { return wasInput(wire, mark); }));
    });
    return does;
}

/// A reader that was left open for a while.
bool MetadataRoutes::followOpenReader(NodeBlock &reader, std::uint32_t mark, std::uint32_t number) {
    const PureValueRef *key = mLog.openedBy(number);
    const Port *port = key == nullptr ? nullptr : reader.mBlock->getPort(*key);
    return port != nullptr && followMove(reader, mLog.node(*port->peekWire()), mark, number);
}

/// Nobody read the dead block. What took its place, as is known or guessed, takes along what reads it.
void MetadataRoutes::followUnread(const NodeBlock &dead, std::uint32_t mark) {
    std::vector<NodeBlock *> heirs;
    for (const NodeWire *wire = dead.mWires; wire != nullptr; wire = wire->mNextOfOwner) {
        const NodeWire *heir = wire->unreadHeirSince(mSection.number());
        if (heir != nullptr && isNew(*heir->mOwner) && heir->mOwner->mMark == mark) {
            heirs.push_back(heir->mOwner);
        }
    }
    if (heirs.empty()) {
        heirs = guessHeirs(dead);
    }
    for (NodeBlock *block : heirs) {
        addHeir(*block, mark);
    }
    // What reads them stands where the dead block stood.
    for (std::size_t i = 0; i < heirs.size() && i < kMostToGuessFrom; ++i) {
        for (const NodeWire *wire = heirs[i]->mWires; wire != nullptr; wire = wire->mNextOfOwner) {
            Port *port = wire->alive() ? wire->mWire->lastPort() : nullptr;
            for (std::size_t looked = 0; port != nullptr && looked < kMostToGuessFrom;
                 ++looked, port = port->getPreviousReader()) {
                NodeBlock &reader = mLog.node(port->getBlock());
                if (isFree(reader) && reader.mMark != mark && reader.mClaim != mClaimMark && addHeir(reader, mark)) {
                    heirs.push_back(&reader);
                }
            }
        }
    }
}

/// Nothing tells what took the place of the dead block but what it read: new blocks that read the same and were born
/// before it died, best those that were born since the death before.
std::vector<NodeBlock *> MetadataRoutes::guessHeirs(const NodeBlock &dead) const {
    std::vector<NodeBlock *> found;
    const auto consider = [&](NodeBlock *reader) {
        if (reader != nullptr && isFree(*reader) && reader->mClaim != mClaimMark &&
            reader->mBirthEpoch <= dead.mDeathEpoch) {
            found.push_back(reader);
        }
    };
    eachGoneOf(dead, [&](const Disconnection &input) {
        std::size_t looked = 0;
        for (std::uint32_t at = input.wire->mGone; mSection.since(at) && looked < kMostToGuessFrom; ++looked) {
            consider(mLog.disconnectionAt(at).block);
            at = mLog.disconnectionAt(at).nextOfWire;
        }
        Port *port = input.wire->alive() ? input.wire->mWire->lastPort() : nullptr;
        for (; port != nullptr && looked < kMostToGuessFrom; ++looked, port = port->getPreviousReader()) {
            consider(mLog.known(port->getBlock()));
        }
    });
    const auto isLate = [&](const NodeBlock *block) { return block->mBirthEpoch == dead.mDeathEpoch; };
    const bool anyLate = std::any_of(found.begin(), found.end(), isLate);
    if (anyLate) {
        found.erase(std::remove_if(found.begin(), found.end(), [&](const NodeBlock *block) { return !isLate(block); }),
                    found.end());
    }
    return found;
}

/// The new blocks behind the heir that were made with it: they took over no signal, and lie this side of what the dead
/// block read. One that serves several heirs belongs to the first, so that a constant that many share does not gather
/// the entries of all.
MetadataRoutes::Range MetadataRoutes::regionOf(NodeBlock &heir, std::uint32_t inputs) {
    if (heir.mRegion < mRegions.size() && mRegions[heir.mRegion].block == &heir) {
        return mRegions[heir.mRegion].members;
    }
    Range members{sizeOf(mMembers), 0};
    addNodesOnForkToMergePaths(heir, heir, inputs);
    for (std::uint32_t i = members.first; i < mMembers.size(); ++i) {
        addNodesOnForkToMergePaths(heir, *mMembers[i], inputs);
    }
    members.last = sizeOf(mMembers);
    heir.mRegion = sizeOf(mRegions);
    mRegions.push_back({&heir, members});
    return members;
}

void MetadataRoutes::addNodesOnForkToMergePaths(const NodeBlock &heir, const NodeBlock &block, std::uint32_t inputs) {
    // What it was moved to serves what it read before, whose own routes lead there.
    std::vector<const NodeWire *> movedTo;
    eachGoneOf(block, [&](const Disconnection &gone) {
        if (gone.heir != nullptr) {
            movedTo.push_back(gone.heir);
        }
    });
    const auto claim = [&](const NodeWire &wire) {
        NodeBlock &driver = *wire.mOwner;
        if (isFree(driver) && !wasInput(wire, inputs) && driver.mClaim != mClaimMark && &driver != &heir &&
            std::find(movedTo.begin(), movedTo.end(), &wire) == movedTo.end()) {
            driver.mClaim = mClaimMark;
            mMembers.push_back(&driver);
        }
    };
    eachGoneOf(block, [&](const Disconnection &gone) { claim(*gone.wire); });
    if (block.alive()) {
        for (const Port &port : block.mBlock->ports()) {
            if (const NodeWire *wire = mLog.find(*port.peekWire()); wire != nullptr) {
                claim(*wire);
            }
        }
    }
}

std::uint32_t MetadataRoutes::successor(const Route &route, std::uint32_t number) const {
    return mNext[route.next.first + number]->mSlot;
}

/// The strongly connected components that can be reached (R. Tarjan, Depth-First Search and Linear Graph Algorithms,
/// SIAM Journal on Computing 1972), with a stack of its own, since routes may be as long as a design.
void MetadataRoutes::gather(std::uint32_t start) {
    struct Step {
        std::uint32_t route;
        std::uint32_t number;
    };
    std::vector<Step> steps;
    const auto enter = [&](std::uint32_t route) {
        mRoutes[route].order = mRoutes[route].low = ++mOrder;
        mStack.push_back(route);
        steps.push_back({route, 0});
    };
    enter(start);
    while (!steps.empty()) {
        Step &step = steps.back();
        Route &route = mRoutes[step.route];
        if (step.number < route.next.size()) {
            const std::uint32_t to = successor(route, step.number++);
            if (mRoutes[to].order == 0) {
                enter(to);
            } else if (mRoutes[to].ends == kNone) {
                route.low = std::min(route.low, mRoutes[to].order);
            }
            continue;
        }
        if (route.low == route.order) {
            closeComponent(step.route);
        }
        const std::uint32_t low = route.low;
        steps.pop_back();
        if (!steps.empty()) {
            Route &above = mRoutes[steps.back().route];
            above.low = std::min(above.low, low);
        }
    }
}

void MetadataRoutes::closeComponent(std::uint32_t root) {
    std::size_t bottom = mStack.size();
    while (mStack[--bottom] != root) {
    }
    const std::uint32_t ends = endsOf(bottom);
    for (std::size_t i = bottom; i < mStack.size(); ++i) {
        mRoutes[mStack[i]].ends = ends;
    }
    mStack.resize(bottom);
}

/// The ends of the component that lies on the stack from `bottom` on. What a chain of blocks shares is one object.
std::uint32_t MetadataRoutes::endsOf(std::size_t bottom) {
    std::uint32_t only = kNone;
    std::size_t parts = 0;
    const auto eachPart = [&](const auto &visit) {
        for (std::size_t i = bottom; i < mStack.size(); ++i) {
            const Route &route = mRoutes[mStack[i]];
            visit(route.own, kNone);
            for (std::uint32_t k = 0; k < route.next.size(); ++k) {
                if (const std::uint32_t to = mRoutes[successor(route, k)].ends; to != kNone) {
                    visit(mEnds[to], to);
                }
            }
        }
    };
    eachPart([&](const Ends &ends, std::uint32_t number) {
        if (!ends.empty() && (number == kNone || number != only)) {
            only = number;
            ++parts;
        }
    });
    if (parts == 1 && only != kNone) {
        return only;
    }
    if (parts <= 1 && mStack.size() == bottom + 1) {
        mEnds.push_back(mRoutes[mStack[bottom]].own);
        return sizeOf(mEnds) - 1;
    }
    const std::uint32_t mark = mLog.newMark();
    std::vector<const NodeBlock *> targets;
    std::vector<Side> sides;
    eachPart([&](const Ends &ends, std::uint32_t) {
        for (std::uint32_t i = ends.targets.first; i < ends.targets.last; ++i) {
            if (mTargets[i]->mMark != mark) {
                mTargets[i]->mMark = mark;
                targets.push_back(mTargets[i]);
            }
        }
        sides.insert(sides.end(), mSides.begin() + ends.sides.first, mSides.begin() + ends.sides.last);
    });
    // A reader that gets the entries as a target needs them no second time.
    sides.erase(std::remove_if(sides.begin(), sides.end(),
                               [&](const Side &side) {
                                   const bool have = side.merge->mMark == mark;
                                   side.merge->mMark = mark;
                                   return have;
                               }),
                sides.end());
    Ends made;
    made.targets.first = sizeOf(mTargets);
    made.sides.first = sizeOf(mSides);
    mTargets.insert(mTargets.end(), targets.begin(), targets.end());
    mSides.insert(mSides.end(), sides.begin(), sides.end());
    made.targets.last = sizeOf(mTargets);
    made.sides.last = sizeOf(mSides);
    mEnds.push_back(made);
    return sizeOf(mEnds) - 1;
}

BlockAnnotation::TransferList MetadataRoutes::find() {
    const std::vector<NodeBlock *> &deaths = mLog.deaths();
    std::uint32_t oldDeaths = mLog.settledDeaths() - mSection.mFirstSettledDeath;
    for (std::size_t i = mSection.mFirstDeath; i < deaths.size(); ++i) {
        oldDeaths += isNew(*deaths[i]) ? 0 : 1;
        if (isSource(*deaths[i])) {
            routeOf(*deaths[i]);
        }
    }
    mOnlyDeath = oldDeaths == 1;
    const std::uint32_t sources = sizeOf(mRoutes);
    std::uint32_t followed = 0;
    const auto followAll = [&] {
        while (followed < mRoutes.size()) {
            follow(followed++);
        }
    };
    followAll();
    // What is known to have taken a place is not guessed about.
    mUnreadTurn = true;
    for (const std::uint32_t route : mUnread) {
        follow(route);
    }
    followAll();
    for (std::uint32_t i = 0; i < sources; ++i) {
        if (mRoutes[i].order == 0) {
            gather(i);
        }
    }
    makeGroups(sources);
    return std::move(mList);
}

void MetadataRoutes::makeGroups(std::uint32_t sources) {
    // The sources of the same ends, in the order of their deaths.
    std::vector<std::uint32_t> first(mEnds.size(), kNone);
    std::vector<std::uint32_t> last(mEnds.size(), kNone);
    std::vector<std::uint32_t> after(sources, kNone);
    for (std::uint32_t i = 0; i < sources; ++i) {
        const std::uint32_t ends = mRoutes[i].ends;
        (first[ends] == kNone ? first[ends] : after[last[ends]]) = i;
        last[ends] = i;
    }
    const auto rangeFrom = [&](std::size_t begin) { return BlockAnnotation::NodeRange{begin, mList.nodes.size()}; };
    for (std::uint32_t i = 0; i < sources; ++i) {
        const Ends &ends = mEnds[mRoutes[i].ends];
        if (first[mRoutes[i].ends] != i || ends.empty()) {
            continue;
        }
        BlockAnnotation::NodeGroup group;
        std::size_t begin = mList.nodes.size();
        for (std::uint32_t source = i; source != kNone; source = after[source]) {
            mList.nodes.push_back(mRoutes[source].block);
        }
        group.sources = rangeFrom(begin);
        if (!ends.targets.empty()) {
            begin = mList.nodes.size();
            mList.nodes.insert(mList.nodes.end(), mTargets.begin() + ends.targets.first,
                               mTargets.begin() + ends.targets.last);
            group.targets = rangeFrom(begin);
            mList.groups.push_back(group);
            group.targets = {};
        }
        if (!ends.sides.empty()) {
            begin = mList.nodes.size();
            for (std::uint32_t k = ends.sides.first; k < ends.sides.last; ++k) {
                mList.nodes.push_back(mSides[k].fork);
            }
            group.forkSide = rangeFrom(begin);
            begin = mList.nodes.size();
            for (std::uint32_t k = ends.sides.first; k < ends.sides.last; ++k) {
                mList.nodes.push_back(mSides[k].merge);
            }
            group.mergeSide = rangeFrom(begin);
            mList.groups.push_back(group);
        }
    }
}

BlockAnnotation::TransferList BlockAnnotation::getTransferList() { return MetadataRoutes(*this).find(); }

} // namespace orvo
