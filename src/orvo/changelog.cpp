// What the log writes down, and the nodes' way with metadata.
#include "orvo/changelog.h"

#include <orvo/staticstrings.h>

#include <algorithm>
#include <iterator>

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

/// A block of more ports is taken to read none of what its readers are moved to.
constexpr std::size_t kMostPortsToCount = 64;

std::ptrdiff_t countReads(const Block &block, const Wire &wire) {
    if (block.port_size() > kMostPortsToCount) {
        return 0;
    }
    return std::count_if(block.port_begin(), block.port_end(),
                         [&](const Port &port) { return port.peekWire() == &wire; });
}

/// What the ports of a block read, but for one that is new.
std::vector<const Wire *> inputsOf(const Block &block, const Port *fresh) {
    std::vector<const Wire *> inputs;
    for (const Port &port : block.ports()) {
        if (&port != fresh) {
            inputs.push_back(port.peekWire());
        }
    }
    return inputs;
}

} // namespace

std::uint32_t ChangeLog::open() {
    mSection = ++mLastSection;
    mOpenSections.push_back({mSection, mSettled.size(), mDeaths.size(), {}});
    return mSection;
}

void ChangeLog::close() {
    const std::vector<NodeBlock *> recalled = std::move(mOpenSections.back().recalled);
    if (recalled.empty()) {
        return;
    }
    mDeaths.insert(mDeaths.end(), recalled.begin(), recalled.end());
    mSettledDeaths -= static_cast<std::uint32_t>(recalled.size());
    // The earlier of two deaths has the first claim on what serves both heirs.
    std::stable_sort(mDeaths.begin() + static_cast<std::ptrdiff_t>(mOpenSections.back().firstDeath), mDeaths.end(),
                     [](const NodeBlock *a, const NodeBlock *b) { return a->mDeathEpoch < b->mDeathEpoch; });
}

void ChangeLog::recallAll() {
    for (std::uint32_t number = mOpenSections.back().firstSettled + 1; number <= mSettled.size(); ++number) {
        if (const Block *heir = mSettled.at(number).heir; heir != nullptr) {
            recall(*heir);
        }
    }
}

void ChangeLog::resume(std::uint32_t section) {
    mSection = section;
    mOpenSections.pop_back();
    if (section == 0) {
        mBlocks.clear();
        mWires.clear();
        mDisconnections.clear();
        mSettled.clear();
        mSettledDeaths = 0;
        mHasBirths = false;
        std::vector<NodeBlock *>().swap(mDeaths);
        std::vector<OpenedPort>().swap(mOpened);
    }
}

// A place in the log may be left over from an earlier run of sections: it counts if what stands there is this thing's.
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

std::uint32_t ChangeLog::settledOf(const Block &block) const {
    const std::uint32_t number = settledAt(block.mLogged);
    return number != 0 && mSettled.at(number).heir == &block ? number : 0;
}

NodeBlock &ChangeLog::node(const Block &block) {
    if (NodeBlock *known = find(block); known != nullptr) {
        return *known;
    }
    NodeBlock &made = mBlocks.make(const_cast<Block *>(&block));
    made.mSettled = settledOf(block);
    block.mLogged = mBlocks.size();
    if (made.mSettled != 0) {
        const Settled &settled = mSettled.at(made.mSettled);
        made.mBorn = settled.section;
        made.mTookOver = settled.section;
        made.mBirthEpoch = settled.birthEpoch;
        for (const Wire &wire : block) {
            node(wire).mBorn = settled.section;
        }
    }
    return made;
}

NodeWire &ChangeLog::node(const Wire &wire) {
    if (NodeWire *known = find(wire); known != nullptr) {
        return *known;
    }
    NodeBlock &owner = node(wire.getBlock());
    if (NodeWire *known = find(wire); known != nullptr) {
        return *known;
    }
    NodeWire &made = mWires.make(const_cast<Wire *>(&wire), &owner);
    wire.mLogged = mWires.size();
    made.mNextOfOwner = owner.mWires;
    owner.mWires = &made;
    return made;
}

bool ChangeLog::isFromFreeBlock(const Wire &wire) const {
    const NodeWire *node = find(wire);
    return node != nullptr && node->mOwner->mBorn != 0 && node->mOwner->mTookOver == 0;
}

void ChangeLog::settle(const Block &heir, bool gaveMetadata, bool hadReaders) {
    mSettled.make(&heir, mSection, epoch(), gaveMetadata, hadReaders);
    heir.mLogged = mSettled.size() | kSettledBit;
    for (const Wire &wire : heir) {
        wire.mLogged = hadReaders ? wire.mLogged : heir.mLogged;
    }
    ++mSettledDeaths;
}

bool ChangeLog::isSettled(const Block &block) const {
    if (block.mLogged == 0) {
        return false;
    }
    const NodeBlock *known = find(block);
    return known != nullptr ? known->mSettled != 0 : settledOf(block) != 0;
}

void ChangeLog::recall(const Block &heir) {
    if (isSettled(heir)) {
        recall(heir, inputsOf(heir, nullptr));
    }
}

void ChangeLog::recall(const Block &heir, const std::vector<const Wire *> &inputs) {
    NodeBlock &taker = node(heir);
    Settled &settled = mSettled.at(taker.mSettled);
    settled.heir = nullptr;
    taker.mSettled = 0;
    NodeBlock &dead = mBlocks.make(nullptr);
    NodeWire &output = mWires.make(nullptr, &dead);
    dead.mAlive = output.mAlive = false;
    dead.mWires = &output;
    dead.mBirthEpoch = dead.mDeathEpoch = settled.birthEpoch;
    output.mReplaced = true;
    // Who its readers were is of no more interest, only where they were moved.
    if (settled.hadReaders) {
        addDisconnection(output, dead, taker.mWires);
    } else if (taker.mWires != nullptr) {
        setUnreadHeir(output, *taker.mWires, settled.section);
    }
    for (const Wire *input : inputs) {
        addDisconnection(node(*input), dead, nullptr);
    }
    // The innermost of the open sections that saw the death. One that has closed has handed the metadata on.
    OpenSection &section = *std::prev(
        std::upper_bound(mOpenSections.begin(), mOpenSections.end(), settled.section,
                         [](std::uint32_t number, const OpenSection &open) { return number < open.number; }));
    // The metadata that the block got stand with it, for this comes before any change of them.
    if (settled.gaveMetadata && section.number == settled.section) {
        dead.keepMetadata(metadataOf(heir));
    }
    section.recalled.push_back(&dead);
}

void ChangeLog::onBirth(const Block &block) {
    NodeBlock &born = node(block);
    born.mBorn = mSection;
    born.mBirthEpoch = epoch();
    mHasBirths = true;
    mLastBirthEpoch = epoch();
}

void ChangeLog::onBirth(const Wire &wire) { node(wire).mBorn = mSection; }

void ChangeLog::onDying(const Block &block) {
    recall(block);
    NodeBlock &dying = node(block);
    if (dying.alive()) {
        dying.keepMetadata();
        dying.mAlive = false;
        dying.mDeathEpoch = epoch();
        mDeaths.push_back(&dying);
    }
}

void ChangeLog::onDying(const Wire &wire) { node(wire).mAlive = false; }

void ChangeLog::onReplaced(const Wire &wire) { node(wire).mReplaced = true; }

void ChangeLog::onReplacedUnread(const Wire &wire, const Wire &heir) {
    NodeWire &gone = node(wire);
    NodeWire &taker = node(heir);
    setUnreadHeir(gone, taker, mSection);
    taker.mTookOver = mSection;
    taker.mOwner->mTookFrom = gone.mOwner;
    taker.mOwner->mTookOver = mSection;
}

void ChangeLog::setUnreadHeir(NodeWire &wire, NodeWire &heir, std::uint32_t section) {
    wire.mUnreadHeir = &heir;
    wire.mUnreadReplaced = section;
}

void ChangeLog::addDisconnection(NodeWire &wire, NodeBlock &block, NodeWire *heir) {
    mDisconnections.make(&wire, &block, heir, wire.mGone, block.mGone);
    wire.mGone = block.mGone = mDisconnections.size();
}

void ChangeLog::onDisconnected(const Wire &wire, const Block &block, std::uint64_t edit) {
    recall(block);
    NodeWire &wireNode = node(wire);
    addDisconnection(wireNode, node(block), nullptr);
    mOpenEnd = &block;
    mOpenEdit = edit;
    mOpenDisconnection = mDisconnections.size();
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
    // Anything else connects what nothing was connected to.
    if (mOpenEnd != &block || mOpenEdit != edit) {
        if (isSettled(block)) {
            recall(block, inputsOf(block, wire.lastPort()));
        }
        if (isSettledUnread(wire)) {
            recall(wire.getBlock());
        }
        return;
    }
    if (isSettledUnread(wire)) {
        recall(wire.getBlock());
    }
    NodeWire &heir = node(wire);
    // A reader that is moved to what its driver reads passes the driver by, and nothing took the driver's place.
    const NodeBlock &from = *mDisconnections.at(mOpenDisconnection).wire->mOwner;
    setHeir(heir, heir.mOwner->mTookFrom != &from && countReads(*from.mBlock, wire) > (from.mBlock == &block ? 1 : 0));
}

void ChangeLog::onMoved(const Wire &wire, const Wire &heir, const Block &block, std::uint64_t edit) {
    onDisconnected(wire, block, edit);
    setHeir(node(heir), false);
}

void ChangeLog::setHeir(NodeWire &heir, bool passesBy) {
    mOpenEnd = nullptr;
    Disconnection &gone = mDisconnections.at(mOpenDisconnection);
    gone.heir = &heir;
    heir.mTookOver = mSection;
    if (!passesBy) {
        heir.mOwner->mTookFrom = gone.wire->mOwner;
        heir.mOwner->mTookOver = mSection;
    }
}

} // namespace internal
} // namespace orvo
