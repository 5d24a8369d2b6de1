// The metadata of blocks and the sections of their transfer.
#include <orvo/annotation.h>

#include "orvo/changelog.h"
#include "orvo/pendingrewrite.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <util/profiling.h>

#include <algorithm>
#include <initializer_list>

namespace orvo {

MetadataManipulator::MetadataManipulator(Block &block) : mBlock(block) {}

MetadataManipulator::~MetadataManipulator() {
    if (mAdded) {
        mBlock.setParam(A_METADATA, getTuple());
    }
}

void MetadataManipulator::setup() const {
    if (mRead) {
        return;
    }
    mRead = true;
    if (PureTupleValueRef present = pureTupleVR(mBlock.getParam(A_METADATA)); present) {
        mEntries.assign(present->begin(), present->end());
    }
}

bool MetadataManipulator::contains(const PureValueRef &entry) const {
    return std::any_of(mEntries.begin(), mEntries.end(), [&](const PureValueRef &have) { return have == entry; });
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b) {
    appendToVector(PureTupleValue::get(a, b, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c) {
    appendToVector(PureTupleValue::get(a, b, c, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d) {
    appendToVector(PureTupleValue::get(a, b, c, d, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d, const PureValueRef &e) {
    appendToVector(PureTupleValue::get(a, b, c, d, e, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d, const PureValueRef &e, const PureValueRef &f) {
    appendToVector(PureTupleValue::get(std::vector<PureValueRef>{a, b, c, d, e, f}, mBlock.getContext()));
}

void MetadataManipulator::appendToVector(const PureValueRef &entry) {
    if (!entry) {
        return;
    }
    setup();
    mEntries.push_back(entry);
    mAdded = true;
}

void MetadataManipulator::appendFrom(const PureTupleValueRef &entries, bool unique) {
    if (!entries) {
        return;
    }
    setup();
    for (const PureValueRef &entry : *entries) {
        if (!unique || !contains(entry)) {
            appendToVector(entry);
        }
    }
}

void MetadataManipulator::appendFrom(const MetadataManipulator &other) {
    ORVO_ASSERT(&other != this && &other.mBlock != &mBlock, "a block's metadata would be added to itself");
    appendFrom(other.getTuple(), true);
}

PureTupleValueRef MetadataManipulator::getTuple() const {
    setup();
    return mEntries.empty() ? PureTupleValueRef() : PureTupleValue::get(mEntries, mBlock.getContext());
}

std::size_t MetadataManipulator::size() const {
    setup();
    return mEntries.size();
}

// --- the listener

namespace {

/// Whether the block reads the wire; of a block with many ports, this is not looked for.
bool mayRead(const Block &block, const Wire &wire) {
    constexpr std::size_t kMostPortsToSearch = 64;
    return block.port_size() > kMostPortsToSearch ||
           std::any_of(block.port_begin(), block.port_end(),
                       [&](const Port &port) { return port.peekWire() == &wire; });
}

} // namespace

template <class Action> void TransferMetadataListener::eachHook(Action action) {
    using Listener = TransferMetadataListener;
    EventManager &events = mDesign.events();
    action(events.blockBorn, util::Function<void(Block &)>::bind<&Listener::onBlockBirth>(this));
    action(events.blockDying, util::Function<void(Block &)>::bind<&Listener::onBlockDying>(this));
    action(events.wireBorn, util::Function<void(Wire &)>::bind<&Listener::onWireBirth>(this));
    action(events.wireDying, util::Function<void(Wire &)>::bind<&Listener::onWireDying>(this));
    action(events.wireDriven,
           util::Function<void(const Block &, const Wire &, GraphState)>::bind<&Listener::onWireDriven>(this));
    action(events.blockDriven,
           util::Function<void(const Wire &, const Block &, GraphState)>::bind<&Listener::onBlockDriven>(this));
}

TransferMetadataListener::TransferMetadataListener(Design &design)
    : mDesign(design), mLog(std::make_unique<internal::ChangeLog>()),
      mPending(std::make_unique<internal::PendingRewrite>(*mLog)) {
    eachHook([](auto &events, const auto &callback) { events.add(callback); });
}

TransferMetadataListener::~TransferMetadataListener() {
    eachHook([](auto &events, const auto &callback) { events.remove(callback); });
}

void TransferMetadataListener::push() {
    mPending->flush();
    mSections.push_back(std::make_unique<BlockAnnotation>(*mLog));
}

void TransferMetadataListener::pop() {
    ORVO_ASSERT(!mSections.empty(), "a section of metadata transfer is closed that was not opened");
    util::ProfilingSection profiling("TransferMetadataOrvo", "N/A");
    const std::unique_ptr<BlockAnnotation> section = std::move(mSections.back());
    mSections.pop_back();
    mPending->flush();
    mLog->close();
    mTransferring = true;
    section->apply();
    mTransferring = false;
    // What happened in the section stays in the log, and with it in the section around it.
    mLog->resume(mSections.empty() ? 0 : mSections.back()->number());
    if (mSections.empty()) {
        mPending->endWatch();
    }
}

BlockAnnotation &TransferMetadataListener::section() {
    ORVO_ASSERT(!mSections.empty(), "no section of metadata transfer is open");
    mPending->flush();
    return *mSections.back();
}

void TransferMetadataListener::addMetadata(const PureValueRef &entry) {
    section().addMetadata(entry);
    // What was settled got only the metadata of its own.
    mLog->recallAll();
    mPending->setSettling(false);
    mDesign.mHasCarriedMetadata = true;
}

bool TransferMetadataListener::recording() const { return !mSections.empty() && mDesign.hasCarriedMetadata(); }

TransferMetadataListener::NodeBlock &TransferMetadataListener::getNode(const Block *block, GraphState state) {
    mPending->flush();
    if (state == kGraphStateNew) {
        mLog->onBirth(*block);
    } else if (state == kGraphStateGone) {
        mLog->onDying(*block);
    }
    return mLog->node(*block);
}

TransferMetadataListener::NodeWire &TransferMetadataListener::getNode(const Wire *wire, GraphState state) {
    mPending->flush();
    if (state == kGraphStateNew) {
        mLog->onBirth(*wire);
    } else if (state == kGraphStateGone) {
        mLog->onDying(*wire);
    }
    return mLog->node(*wire);
}

void TransferMetadataListener::onBlockBirth(Block &block) {
    if (recording()) {
        mPending->onBirth(block);
    }
}

void TransferMetadataListener::onBlockDying(Block &block) {
    if (recording()) {
        mPending->onDying(block);
    }
}

void TransferMetadataListener::onWireBirth(Wire &wire) {
    if (recording()) {
        mPending->onBirth(wire);
    }
}

void TransferMetadataListener::onWireDying(Wire &wire) {
    if (recording()) {
        mPending->onDying(wire);
    }
}

void TransferMetadataListener::onWireDriven(const Block &, const Wire &wire, GraphState state) {
    // That a block drives a wire which it has just made is known from the wire's birth.
    if (recording() && state == kGraphStateGone) {
        mPending->onReplaced(wire);
    }
}

void TransferMetadataListener::onBlockDriven(const Wire &wire, const Block &block, GraphState state) {
    if (!recording()) {
        return;
    }
    if (state == kGraphStateGone) {
        mPending->onDisconnected(wire, block, mDesign.mOpenedPort, mDesign.editCount());
    } else if (mDesign.mConnecting) {
        mPending->onConnected(wire, block, mDesign.editCount());
    }
}

void TransferMetadataListener::onReplacedUnread(const Wire &wire, const Wire &heir) {
    // What the block itself reads took nobody's place.
    if (recording() && !mayRead(wire.getBlock(), heir)) {
        mPending->onReplacedUnread(wire, heir);
    }
}

void TransferMetadataListener::onMetadataChanging(const Block &block) {
    if (recording() && !mTransferring && mLog->isSettled(block)) {
        mPending->flush();
        mLog->recall(block);
    }
}

} // namespace orvo
