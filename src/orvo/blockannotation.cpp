// Forks, merges and the transfer from group to group. Edges are not stored: those that went are in the log, those that
// stand in the netlist, and they are new if one of their ends is, or if the reader was moved there.
#include "orvo/blockannotation.h"

#include "orvo/changelog.h"

#include <util/features.h>

#include <algorithm>

namespace orvo {

using internal::ChangeLog;
using internal::Disconnection;
using internal::NodeBlock;
using internal::NodeWire;

namespace {

const NodeBlock &asBlock(const BlockAnnotation::Node &node) { return static_cast<const NodeBlock &>(node); }
const NodeWire &asWire(const BlockAnnotation::Node &node) { return static_cast<const NodeWire &>(node); }

} // namespace

BlockAnnotation::BlockAnnotation(ChangeLog &log)
    : mLog(log), mNumber(log.open()), mFirstDisconnection(log.disconnections()), mFirstBlock(log.blocks()),
      mFirstWire(log.wires()), mFirstDeath(log.deaths().size()), mFirstSettledDeath(log.settledDeaths()) {}

GraphState BlockAnnotation::stateOf(const Node &node) const {
    if (!node.alive()) {
        return kGraphStateGone;
    }
    if (node.getType() == NodeType::Dummy) {
        return kGraphStatePresent;
    }
    return static_cast<const TransferMetadataListener::ORVONode &>(node).bornSince(mNumber) ? kGraphStateNew
                                                                                            : kGraphStatePresent;
}

/// Calls `visit(node, state)` for what the node drives until it gives true, the newest readers of a wire first.
template <class Visit> bool BlockAnnotation::anyOutput(const Node &node, const Visit &visit) const {
    if (node.getType() == NodeType::Dummy) {
        return visit(*static_cast<const DummyNode &>(node).mMerge, kGraphStateNew);
    }
    if (node.getType() == NodeType::Block) {
        for (const NodeWire *wire = asBlock(node).mWires; wire != nullptr; wire = wire->mNextOfOwner) {
            const GraphState state = wire->mReplaced            ? kGraphStateGone
                                     : wire->bornSince(mNumber) ? kGraphStateNew
                                                                : kGraphStatePresent;
            if (wire->mRedirected == mNumber ? anyOutput(*wire, visit) : visit(*wire, state)) {
                return true;
            }
        }
        return false;
    }
    const NodeWire &wire = asWire(node);
    for (std::uint32_t at = wire.mGone; since(at); at = mLog.disconnectionAt(at).nextOfWire) {
        if (visit(*mLog.disconnectionAt(at).block, kGraphStateGone)) {
            return true;
        }
    }
    for (Port *port = wire.alive() ? wire.mWire->lastPort() : nullptr; port != nullptr;
         port = port->getPreviousReader()) {
        const NodeBlock &reader = mLog.node(port->getBlock());
        if (visit(reader, isNewConnection(wire, reader) ? kGraphStateNew : kGraphStatePresent)) {
            return true;
        }
        // Whose place it took at once read the same, and is not written down.
        if (reader.mSettled != 0 && reader.bornSince(mNumber) && visit(reader, kGraphStateGone)) {
            return true;
        }
    }
    return false;
}

/// The same for what drives the node.
template <class Visit> bool BlockAnnotation::anyInput(const Node &node, const Visit &visit) const {
    if (node.getType() == NodeType::Dummy) {
        return false;
    }
    const auto visitDriver = [&](const NodeWire &wire, GraphState state) {
        return wire.mRedirected == mNumber ? visit(static_cast<const Node &>(*wire.mOwner), state)
                                           : visit(static_cast<const Node &>(wire), state);
    };
    if (node.getType() == NodeType::Wire) {
        const NodeWire &wire = asWire(node);
        return visit(*wire.mOwner, wire.mReplaced            ? kGraphStateGone
                                   : wire.bornSince(mNumber) ? kGraphStateNew
                                                             : kGraphStatePresent);
    }
    const NodeBlock &block = asBlock(node);
    for (std::uint32_t at = block.mGone; since(at); at = mLog.disconnectionAt(at).nextOfBlock) {
        if (visitDriver(*mLog.disconnectionAt(at).wire, kGraphStateGone)) {
            return true;
        }
    }
    if (!block.alive()) {
        return false;
    }
    for (const Port &port : block.mBlock->ports()) {
        const NodeWire &wire = mLog.node(*port.peekWire());
        if (visitDriver(wire, isNewConnection(wire, block) ? kGraphStateNew : kGraphStatePresent)) {
            return true;
        }
    }
    return false;
}

bool BlockAnnotation::isNewConnection(const NodeWire &wire, const NodeBlock &reader) const {
    if (wire.bornSince(mNumber) || reader.bornSince(mNumber)) {
        return true;
    }
    if (!wire.tookOverSince(mNumber) && !mLog.hasOpened()) {
        return false;
    }
    for (std::uint32_t at = reader.mGone; since(at); at = mLog.disconnectionAt(at).nextOfBlock) {
        if (mLog.disconnectionAt(at).heir == &wire) {
            return true;
        }
        // A port that was left open and reads the wire now.
        const PureValueRef *key = reader.alive() ? mLog.openedBy(at) : nullptr;
        const Port *port = key == nullptr ? nullptr : reader.mBlock->getPort(*key);
        if (port != nullptr && port->peekWire() == wire.mWire) {
            return true;
        }
    }
    return false;
}

bool BlockAnnotation::isFork(const Node &node) const {
    bool hasNew = false;
    bool hasOther = false;
    return anyOutput(node, [&](const Node &, GraphState state) {
        (state == kGraphStateNew ? hasNew : hasOther) = true;
        return hasNew && hasOther;
    });
}

bool BlockAnnotation::isMerge(const Node &node) const {
    bool hasNew = false;
    bool hasGone = false;
    Memo memo;
    return anyInput(node, [&](const Node &driver, GraphState state) {
        hasNew = hasNew || state == kGraphStateNew;
        hasGone = hasGone || state == kGraphStateGone || !hasLivePath(driver, 0, memo);
        return hasNew && hasGone;
    });
}

bool BlockAnnotation::hasLivePath(const Node &node, unsigned int depth, Memo &memo) const {
    if (!node.alive()) {
        return false;
    }
    if (depth == kLivePathDepth) {
        return true;
    }
    if (const auto known = memo.find(&node); known != memo.end()) {
        return known->second;
    }
    // What leads back here adds no path.
    memo[&node] = false;
    bool hasOutputs = false;
    const bool found = anyOutput(node, [&](const Node &driven, GraphState state) {
        hasOutputs = true;
        return state != kGraphStateGone && hasLivePath(driven, depth + 1, memo);
    });
    return memo[&node] = found || !hasOutputs;
}

void BlockAnnotation::refineGraph() {
    // A dead block has lost its inputs, so that only a wire can be a dead merge.
    for (std::uint32_t number = 1; number <= mLog.wires(); ++number) {
        const NodeWire &wire = mLog.wireAt(number);
        if (stateOf(wire) == kGraphStateGone && isMerge(wire)) {
            redirectThrough(wire);
        }
    }
}

void BlockAnnotation::redirectThrough(const Node &node) const { asWire(node).mRedirected = mNumber; }

void BlockAnnotation::getForkAndMergeNodes(const TransferList &list, NodeSet &forks, NodeSet &merges) const {
    NodeSet seen;
    for (const NodeGroup &group : list.groups) {
        for (const NodeRange &side : {group.forkSide, group.mergeSide}) {
            for (std::size_t i = side.first; i < side.last; ++i) {
                const Node &node = *list.nodes[i];
                if (stateOf(node) != kGraphStatePresent || !seen.insert(&node)) {
                    continue;
                }
                // A wire that stood before keeps its driver, so that only blocks merge.
                if (node.getType() == NodeType::Dummy || isFork(node)) {
                    forks.insert(&node);
                }
                if (node.getType() == NodeType::Block && isMerge(node)) {
                    merges.insert(&node);
                }
            }
        }
    }
}

bool BlockAnnotation::shouldBypass(const Node &node, const NodeSet &forks, const NodeSet &merges) const {
    return forks.contains(&node) && anyOutput(node, [&](const Node &driven, GraphState state) {
               return state == kGraphStateNew && merges.contains(&driven);
           });
}

void BlockAnnotation::transferMetadata(const TransferList &list, const NodeSet &forks, const NodeSet &merges) const {
    MetadataEntries entries;
    std::vector<const NodeBlock *> receivers;
    std::vector<NodeRange> given;
    const auto anyOf = [&](const NodeRange &range, const auto &visit) {
        for (std::size_t i = range.first; i < range.last; ++i) {
            if (list.nodes[i]->getType() != NodeType::Dummy && visit(*list.nodes[i])) {
                return true;
            }
        }
        return false;
    };
    // Groups share forks: a constant or an enable may be one for every group.
    Memo known;
    const auto bypasses = [&](const Node &node) {
        const auto [place, isNew] = known.try_emplace(&node, false);
        if (isNew) {
            place->second = shouldBypass(node, forks, merges);
        }
        return place->second;
    };
    const auto give = [&](const Node &node) {
        node.giveMetadata(entries);
        if (node.getType() == NodeType::Block && asBlock(node).hasGifts()) {
            receivers.push_back(&asBlock(node));
        }
        return false;
    };
    for (const NodeGroup &group : list.groups) {
        entries.clear();
        anyOf(group.sources, [&](const Node &node) {
            node.takeMetadata(entries);
            return false;
        });
        if (!group.targets.empty()) {
            for (const PureValueRef &entry : mMetadata) {
                entries.insert(entry);
            }
            anyOf(group.targets, give);
            given.push_back(group.sources);
            continue;
        }
        bool bypass = false;
        // What a block of the merge side drives is a wire, and no merge.
        for (std::size_t i = group.forkSide.first; i < group.forkSide.last && !bypass; ++i) {
            bypass = bypasses(*list.nodes[i]);
        }
        if (bypass) {
            anyOf(group.forkSide, give);
            anyOf(group.mergeSide, give);
            given.push_back(group.sources);
        }
    }
    // A section around this one gives them to nobody else: they go on with those who got them.
    for (const NodeRange &sources : given) {
        for (std::size_t i = sources.first; i < sources.last; ++i) {
            asBlock(*list.nodes[i]).dropMetadata();
        }
    }
    for (const NodeBlock *receiver : receivers) {
        receiver->consumeMetadata(receiver->mBlock);
    }
}

void BlockAnnotation::apply() {
    const std::vector<NodeBlock *> &deaths = mLog.deaths();
    const bool anything =
        !mMetadata.empty() || std::any_of(deaths.begin() + static_cast<std::ptrdiff_t>(mFirstDeath), deaths.end(),
                                          [](const NodeBlock *dead) { return dead->hasMetadata(); });
    if (!anything) {
        return;
    }
    if (util::GetFeatureBoolean(Features::refineMetadataGraph)) {
        refineGraph();
    }
    const TransferList list = getTransferList();
    NodeSet forks;
    NodeSet merges;
    getForkAndMergeNodes(list, forks, merges);
    transferMetadata(list, forks, merges);
}

} // namespace orvo
