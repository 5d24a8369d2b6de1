// What the log writes down, and the nodes' way with metadata.
#include "orvo/changelog.h"

#include <orvo/staticstrings.h>

#include <algorithm>

namespace orvo {

BlockAnnotation::Node::~Node() = default;

TransferMetadataListener::NodeBlock::~NodeBlock() = default;

namespace {

PureTupleValueRef metadataOf(const Block &block) { return pureTupleVR(block.getParam(A_METADATA)); }

void insertAll(MetadataEntries &into, const PureTupleValueRef &entries) {
    if (entries) {
        for (const PureValueRef &entry : *entries) {
            into.insert(entry);
        }
    }
}

} // namespace

bool TransferMetadataListener::NodeBlock::hasMetadata() const {
    const PureTupleValueRef metadata = alive() ? metadataOf(*mBlock) : mMetadata;
    return metadata && metadata->size() != 0;
}

void TransferMetadataListener::NodeBlock::keepMetadata() { mMetadata = metadataOf(*mBlock); }

void TransferMetadataListener::NodeBlock::takeMetadata(MetadataEntries &entries) const {
    insertAll(entries, alive() ? metadataOf(*mBlock) : mMetadata);
}

void TransferMetadataListener::NodeBlock::giveMetadata(const MetadataEntries &entries) const {
    if (!alive() || entries.empty()) {
        return;
    }
    if (!mGifts && mBlock->findParam(A_METADATA) == nullptr) {
        mBlock->setParam(A_METADATA, PureTupleValue::get(std::vector<PureValueRef>(entries.begin(), entries.end()),
                                                         mBlock->getContext()));
        return;
    }
    // A tuple grows by copying: many gifts to one block are written together.
    if (!mGifts) {
        mGifts = std::make_unique<Gifts>();
        insertAll(mGifts->entries, metadataOf(*mBlock));
        mGifts->had = mGifts->entries.size();
    }
    for (const PureValueRef &entry : entries) {
        mGifts->entries.insert(entry);
    }
}

bool TransferMetadataListener::NodeBlock::consumeMetadata(Block *block) const {
    const std::unique_ptr<Gifts> gifts = std::move(mGifts);
    if (!gifts || gifts->entries.size() == gifts->had) {
        return false;
    }
    MetadataManipulator editor(*block);
    for (std::size_t i = gifts->had; i < gifts->entries.size(); ++i) {
        editor.appendToVector(gifts->entries[i]);
    }
    return true;
}

namespace internal {

namespace {

/// Of a block with few ports; none of others.
std::ptrdiff_t countReads(const Block &block, const Wire &wire) {
    constexpr std::size_t kFew = 64;
    if (block.port_size() > kFew) {
        return 0;
    }
    return std::count_if(block.port_begin(), block.port_end(),
                         [&](const Port &port) { return port.peekWire() == &wire; });
}

} // namespace

void ChangeLog::resume(std::uint32_t section) {
    mSection = section;
    if (section == 0) {
        mBlocks.clear();
        mWires.clear();
        mDisconnections.clear();
        std::vector<NodeBlock *>().swap(mDeaths);
        std::vector<OpenedPort>().swap(mOpened);
    }
}

// A place in the log may be left over from an earlier run of sections: it counts if the node there is this thing's.
NodeBlock *ChangeLog::find(const Block &block) const {
    const std::uint32_t number = block.mLogged;
    if (number == 0 || number > mBlocks.size()) {
        return nullptr;
    }
    NodeBlock &there = mBlocks.at(number);
    return there.mBlock == &block ? &there : nullptr;
}

NodeWire *ChangeLog::find(const Wire &wire) const {
    const std::uint32_t number = wire.mLogged;
    if (number == 0 || number > mWires.size()) {
        return nullptr;
    }
    NodeWire &there = mWires.at(number);
    return there.mWire == &wire ? &there : nullptr;
}

NodeBlock &ChangeLog::node(const Block &block) {
    if (NodeBlock *known = find(block); known != nullptr) {
        return *known;
    }
    NodeBlock &made = mBlocks.make(const_cast<Block *>(&block));
    block.mLogged = mBlocks.size();
    return made;
}

NodeWire &ChangeLog::node(const Wire &wire) {
    if (NodeWire *known = find(wire); known != nullptr) {
        return *known;
    }
    NodeBlock &owner = node(wire.getBlock());
    NodeWire &made = mWires.make(const_cast<Wire *>(&wire), &owner);
    wire.mLogged = mWires.size();
    made.mNextOfOwner = owner.mWires;
    owner.mWires = &made;
    return made;
}

void ChangeLog::onBirth(const Block &block) {
    NodeBlock &born = node(block);
    born.mBorn = mSection;
    born.mBirthEpoch = static_cast<std::uint32_t>(mDeaths.size());
}

void ChangeLog::onBirth(const Wire &wire) { node(wire).mBorn = mSection; }

void ChangeLog::onDying(const Block &block) {
    NodeBlock &dying = node(block);
    if (dying.alive()) {
        dying.keepMetadata();
        dying.mAlive = false;
        dying.mDeathEpoch = static_cast<std::uint32_t>(mDeaths.size());
        mDeaths.push_back(&dying);
    }
}

void ChangeLog::onDying(const Wire &wire) { node(wire).mAlive = false; }

void ChangeLog::onReplaced(const Wire &wire) { node(wire).mReplaced = true; }

void ChangeLog::onDisconnected(const Wire &wire, const Block &block, std::uint64_t edit) {
    NodeWire &wireNode = node(wire);
    NodeBlock &blockNode = node(block);
    mDisconnections.make(&wireNode, &blockNode, nullptr, wireNode.mGone, blockNode.mGone);
    wireNode.mGone = blockNode.mGone = mDisconnections.size();
    mOpenEnd = &block;
    mOpenEdit = edit;
}

void ChangeLog::onOpened(const Block &block, const PureValueRef &key) {
    if (find(block)->alive()) {
        mOpened.push_back({mDisconnections.size(), key});
    }
}

const PureValueRef *ChangeLog::openedBy(std::uint32_t disconnection) const {
    const auto place =
        std::lower_bound(mOpened.begin(), mOpened.end(), disconnection,
                         [](const OpenedPort &opened, std::uint32_t number) { return opened.disconnection < number; });
    return place == mOpened.end() || place->disconnection != disconnection ? nullptr : &place->key;
}

void ChangeLog::onConnected(const Wire &wire, const Block &block, std::uint64_t edit) {
    // Anything else is a look at a connection that stands, or connects what nothing was connected to.
    if (mOpenEnd != &block || mOpenEdit != edit) {
        return;
    }
    mOpenEnd = nullptr;
    NodeWire &heir = node(wire);
    Disconnection &gone = mDisconnections.at(mDisconnections.size());
    gone.heir = &heir;
    heir.mTookOver = mSection;
    // A reader that is moved to what its driver reads passes the driver by, and nothing took the driver's place.
    const NodeBlock &from = *gone.wire->mOwner;
    NodeBlock &owner = *heir.mOwner;
    if (owner.mTookFrom == &from || countReads(*from.mBlock, wire) <= (from.mBlock == &block ? 1 : 0)) {
        owner.mTookFrom = &from;
        owner.mTookOver = mSection;
    }
}

} // namespace internal
} // namespace orvo
