// The log writes down much of each rewritten block, and most rewrites are of one kind: a block is made, gets the
// readers of another that reads the same, and that other dies. Such a rewrite is watched from the birth on, and settled
// when the old block dies: the new one gets the metadata, and next to nothing is written down. As soon as anything else
// happens, the log is told all that was held back.
#pragma once

#include <orvo/value.h>

#include <cstdint>
#include <vector>

namespace orvo {

class Block;
class Port;
class Wire;

namespace internal {

class ChangeLog;

class PendingRewrite {
  public:
    explicit PendingRewrite(ChangeLog &log) : mLog(log) {}
    /// Tells the log what was held back.
    void flush() { flush(nullptr); }
    /// Whether rewrites may be settled; else all goes to the log.
    void setSettling(bool settling) { mSettles = settling; }
    /// The last section has ended: nothing more is told of a block that dies now.
    void endWatch() {
        mSettles = true;
        mSettled = nullptr;
    }

    void onBirth(const Block &block);
    void onBirth(const Wire &wire);
    void onDying(const Block &block);
    void onDying(const Wire &wire);
    void onReplaced(const Wire &wire);
    /// The wire that was replaced just now has no readers.
    void onReplacedUnread(const Wire &wire, const Wire &heir);
    /// `opened` is the key of the port that is left open; null if the reader gets another wire at once.
    void onDisconnected(const Wire &wire, const Block &block, const PureValueRef *opened, std::uint64_t edit);
    /// A connection is made.
    void onConnected(const Wire &wire, const Block &block, std::uint64_t edit);

  private:
    enum class Kind : std::uint8_t { WireBorn, Replaced, Moved };
    struct Event {
        Kind kind;
        const Wire *wire;
        const Wire *heir;
        const Block *reader;
        std::uint64_t edit;
    };

    bool mayReplace(const Block &block) const;
    bool isMoving() const { return mLost != nullptr; }
    bool readsHeir(const Wire &heir);
    bool readTheSame() const;
    bool settle();
    bool give(Block &made, const Block &dead) const;
    void flush(const Port *fresh);
    void recallReaders(const Port *fresh);
    void forget();

    ChangeLog &mLog;
    bool mSettles = true;
    /// The block that was born last, null if nothing is held back, and the one whose place it takes.
    const Block *mMade = nullptr;
    const Block *mDead = nullptr;
    /// What happened since the birth.
    std::vector<Event> mEvents;
    bool mHasMoved = false;
    /// The wire that the old block is known not to read.
    const Wire *mUnread = nullptr;
    /// The move that has begun.
    const Wire *mLost = nullptr;
    const Block *mReader = nullptr;
    std::uint64_t mEdit = 0;
    /// The block that dies and whose place has been settled. It may be gone already if its death was told before its
    /// place was settled, so that it is only compared.
    const Block *mSettled = nullptr;
};

} // namespace internal
} // namespace orvo
