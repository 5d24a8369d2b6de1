// Watches a block take another's place.
#include "orvo/pendingrewrite.h"

#include "orvo/changelog.h"

#include <orvo/staticstrings.h>

#include <algorithm>
#include <functional>

namespace orvo::internal {

namespace {

/// A block of more ports is taken to read what its readers are moved to, and its rewrite is not settled.
constexpr std::size_t kMostPortsToSettle = 64;

} // namespace

void PendingRewrite::forget() {
    mMade = mDead = mReader = nullptr;
    mUnread = mLost = nullptr;
    mHasMoved = false;
    mEvents.clear();
}

void PendingRewrite::flush(const Port *fresh) {
    if (mMade == nullptr) {
        return;
    }
    recallReaders(fresh);
    mLog.onBirth(*mMade);
    for (const Event &event : mEvents) {
        switch (event.kind) {
        case Kind::WireBorn:
            mLog.onBirth(*event.wire);
            break;
        case Kind::Replaced:
            mLog.onReplaced(*event.wire);
            if (event.heir != nullptr) {
                mLog.onReplacedUnread(*event.wire, *event.heir);
            }
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

/// Writes down what the readers that were moved have replaced, with what they read before they were moved.
void PendingRewrite::recallReaders(const Port *fresh) {
    std::vector<const Event *> moves;
    for (const Event &event : mEvents) {
        if (event.kind == Kind::Moved && mLog.isSettled(*event.reader)) {
            moves.push_back(&event);
        }
    }
    // Only looked up in this order: what is written down stands in the order of the moves.
    const auto isBefore = [](const Event *a, const Event *b) {
        const std::less<const void *> less;
        return a->reader == b->reader ? less(a->heir, b->heir) : less(a->reader, b->reader);
    };
    std::vector<const Event *> sorted = moves;
    std::stable_sort(sorted.begin(), sorted.end(), isBefore);
    const auto recall = [&](const Block &reader) {
        if (!mLog.isSettled(reader)) {
            return;
        }
        std::vector<const Wire *> inputs;
        for (const Port &port : reader.ports()) {
            if (&port == fresh) {
                // Its move has begun, or it was not there.
                if (&reader == mReader) {
                    inputs.push_back(mLost);
                }
                continue;
            }
            const Event now{Kind::Moved, nullptr, port.peekWire(), &reader, 0};
            const auto move = std::lower_bound(sorted.begin(), sorted.end(), &now, isBefore);
            const bool wasMoved = move != sorted.end() && !isBefore(&now, *move);
            inputs.push_back(wasMoved ? (*move)->wire : port.peekWire());
        }
        mLog.recall(reader, inputs);
    };
    for (const Event *event : moves) {
        recall(*event->reader);
    }
    if (isMoving()) {
        recall(*mReader);
    }
}

/// Whether the block may be the one whose place is taken: of that nothing is known.
bool PendingRewrite::mayReplace(const Block &block) const {
    return !isMoving() && (mDead == nullptr ? &block != mMade && !mLog.isMet(block) : mDead == &block);
}

void PendingRewrite::onBirth(const Block &block) {
    flush();
    if (&block == mSettled) {
        mSettled = nullptr;
    }
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

void PendingRewrite::onReplacedUnread(const Wire &wire, const Wire &heir) {
    const bool isHeld = !mEvents.empty() && mEvents.back().kind == Kind::Replaced && mEvents.back().wire == &wire;
    if (isHeld && &heir.getBlock() == mMade) {
        mEvents.back().heir = &heir;
        return;
    }
    flush();
    mLog.onReplacedUnread(wire, heir);
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
            mReader = nullptr;
            return;
        }
        const bool isOther = !mLog.isSettledUnread(wire) && (&block == mMade || !mLog.isSettled(block));
        if (!isMoving() && &block != mDead && isOther) {
            return;
        }
        flush(wire.lastPort());
    }
    mLog.onConnected(wire, block, edit);
}

/// Whether the old block reads what its readers are moved to.
bool PendingRewrite::readsHeir(const Wire &heir) {
    if (mUnread == &heir) {
        return false;
    }
    const auto ports = mDead->ports();
    const bool reads =
        mDead->port_size() > kMostPortsToSettle ||
        std::any_of(ports.begin(), ports.end(), [&](const Port &port) { return port.peekWire() == &heir; });
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
