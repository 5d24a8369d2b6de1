// Watches a block take another's place.
#include "orvo/pendingrewrite.h"

#include "orvo/changelog.h"

#include <orvo/staticstrings.h>

#include <algorithm>

namespace orvo::internal {

namespace {

/// Beyond so many ports nobody looks at each.
constexpr std::size_t kFew = 64;

} // namespace

void PendingRewrite::forget() {
    mMade = mDead = mReader = nullptr;
    mUnread = mLost = nullptr;
    mHasMoved = false;
    mEvents.clear();
}

void PendingRewrite::flush() {
    if (mMade == nullptr) {
        return;
    }
    for (const Event &event : mEvents) {
        if (event.kind == Kind::Moved && mLog.isSettled(*event.reader)) {
            mLog.recall(*event.reader, inputsBefore(*event.reader));
        }
    }
    mLog.onBirth(*mMade);
    for (const Event &event : mEvents) {
        switch (event.kind) {
        case Kind::WireBorn:
            mLog.onBirth(*event.wire);
            break;
        case Kind::Replaced:
            mLog.onReplaced(*event.wire);
            break;
        case Kind::Moved:
            mLog.onMoved(*event.wire, *event.heir, *event.reader, event.edit);
            break;
        }
    }
    if (isMoving()) {
        mLog.onDisconnected(*mLost, *mReader, mEdit);
    }
    forget();
}

/// What the reader read before it was moved.
std::vector<const Wire *> PendingRewrite::inputsBefore(const Block &reader) const {
    std::vector<const Wire *> inputs;
    for (const Port &port : reader.ports()) {
        const auto move = std::find_if(mEvents.begin(), mEvents.end(), [&](const Event &event) {
            return event.reader == &reader && event.heir == port.peekWire();
        });
        inputs.push_back(move == mEvents.end() ? port.peekWire() : move->wire);
    }
    return inputs;
}

/// Whether the block may be the one whose place is taken: of that nothing is known.
bool PendingRewrite::mayReplace(const Block &block) const {
    return !isMoving() && (mDead == nullptr ? &block != mMade && !mLog.isMet(block) : mDead == &block);
}

void PendingRewrite::onBirth(const Block &block) {
    flush();
    if (mSettles) {
        mMade = &block;
    } else {
        mLog.onBirth(block);
    }
}

void PendingRewrite::onBirth(const Wire &wire) {
    if (mMade != nullptr && mMade == &wire.getBlock() && !isMoving()) {
        mEvents.push_back({Kind::WireBorn, &wire, nullptr, nullptr, 0});
        return;
    }
    flush();
    mLog.onBirth(wire);
}

void PendingRewrite::onReplaced(const Wire &wire) {
    if (mMade != nullptr && mayReplace(wire.getBlock())) {
        mDead = &wire.getBlock();
        mEvents.push_back({Kind::Replaced, &wire, nullptr, nullptr, 0});
        return;
    }
    flush();
    mLog.onReplaced(wire);
}

void PendingRewrite::onDying(const Block &block) {
    if (mMade != nullptr && (&block != mDead || !settle())) {
        flush();
    }
    if (&block == mSettled) {
        mSettled = nullptr;
        if (!mLog.isMet(block)) {
            return;
        }
    }
    mLog.onDying(block);
}

void PendingRewrite::onDying(const Wire &wire) {
    const Block &block = wire.getBlock();
    if (mMade != nullptr && (&block != mDead || !settle())) {
        flush();
    }
    if (&block != mSettled || mLog.find(wire) != nullptr) {
        mLog.onDying(wire);
    }
}

void PendingRewrite::onDisconnected(const Wire &wire, const Block &block, const PureValueRef *opened,
                                    std::uint64_t edit) {
    if (mMade != nullptr) {
        const Block &driver = wire.getBlock();
        if (opened == nullptr && &block != mMade && &block != &driver && mayReplace(driver)) {
            mDead = &driver;
            mLost = &wire;
            mReader = &block;
            mEdit = edit;
            return;
        }
        if (&block != mDead || !settle()) {
            flush();
        }
    }
    if (&block == mSettled) {
        return;
    }
    mLog.onDisconnected(wire, block, edit);
    if (opened != nullptr) {
        mLog.onOpened(block, *opened);
    }
}

void PendingRewrite::onConnected(const Wire &wire, const Block &block, std::uint64_t edit) {
    if (mMade != nullptr) {
        if (isMoving() && &block == mReader && edit == mEdit && &wire.getBlock() == mMade && !readsHeir(wire)) {
            mEvents.push_back({Kind::Moved, mLost, &wire, &block, edit});
            mHasMoved = true;
            mLost = nullptr;
            return;
        }
        const bool isOther = !mLog.isSettledUnread(wire) && (&block == mMade || !mLog.isSettled(block));
        if (!isMoving() && &block != mDead && isOther) {
            return;
        }
        flush();
    }
    mLog.onConnected(wire, block, edit);
}

/// Whether the old block reads what its readers are moved to.
bool PendingRewrite::readsHeir(const Wire &heir) {
    if (mUnread == &heir) {
        return false;
    }
    const auto ports = mDead->ports();
    const bool reads = mDead->port_size() > kFew || std::any_of(ports.begin(), ports.end(), [&](const Port &port) {
                           return port.peekWire() == &heir;
                       });
    mUnread = reads ? nullptr : &heir;
    return reads;
}

/// Whether both blocks read the same, and nothing that was made for the new one alone.
bool PendingRewrite::readTheSame() const {
    if (mMade->port_size() != mDead->port_size()) {
        return false;
    }
    BlockPortIterator old = mDead->port_begin();
    for (const Port &port : mMade->ports()) {
        if (port.peekWire() != old->peekWire() || mLog.isFromFreeBlock(*port.peekWire())) {
            return false;
        }
        ++old;
    }
    return true;
}

/// False if the death of the old block does not settle the matter.
bool PendingRewrite::settle() {
    if (isMoving() || mSettled != nullptr || !mDead->dying() || mDead->hasReader() || !readTheSame()) {
        return false;
    }
    // Where no reader was moved, only a block that is the one newborn and does not stand alone is beyond doubt.
    if (!mHasMoved && (mLog.hasNewbornBlock() || mMade->port_size() == 0 || mMade->hasReader())) {
        return false;
    }
    const bool hadReaders = mHasMoved;
    const bool hasMetadata = mDead->findParam(A_METADATA) != nullptr;
    if (hasMetadata && mMade->findParam(A_METADATA) != nullptr) {
        return false;
    }
    mSettled = mDead;
    // The log only looks, but metadata are given.
    auto &made = const_cast<Block &>(*mMade);
    forget();
    mLog.settle(made, hasMetadata && give(made, *mSettled), hadReaders);
    return true;
}

bool PendingRewrite::give(Block &made, const Block &dead) const {
    const PureTupleValueRef metadata = pureTupleVR(dead.getParam(A_METADATA));
    if (!metadata || metadata->size() == 0) {
        return false;
    }
    if (metadata->size() == 1) {
        made.setParam(A_METADATA, metadata);
        return true;
    }
    MetadataEntries entries;
    for (const PureValueRef &entry : *metadata) {
        entries.insert(entry);
    }
    made.setParam(A_METADATA,
                  PureTupleValue::get(std::vector<PureValueRef>(entries.begin(), entries.end()), made.getContext()));
    return true;
}

} // namespace orvo::internal
