// The log behind the transfer of metadata: the blocks and wires that open sections have met, and every connection that
// went. Connections that stand are not written down, since the netlist tells of them. One log serves all open sections:
// it only grows, so that a section is what was added since it was opened, and an outer one holds its inner ones.
#pragma once

#include "orvo/blockannotation.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/wire.h>
#include <util/pool.h>

#include <bit>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace orvo {

/// What is known of a thing of the netlist.
class TransferMetadataListener::ORVONode : public BlockAnnotation::Node {
  public:
    /// Whether the section of this number, or one inside it, saw the birth.
    bool bornSince(std::uint32_t section) const { return mBorn >= section; }
    /// Whether readers were moved to this wire since then; of a block, whether it took another's place by that.
    bool tookOverSince(std::uint32_t section) const { return mTookOver >= section; }

    /// Numbers of sections; 0 for what did not happen.
    std::uint32_t mBorn = 0;
    std::uint32_t mTookOver = 0;
    /// The newest of the connections that went, 0 if there is none.
    std::uint32_t mGone = 0;
    /// Scratch of the search for groups.
    mutable std::uint32_t mMark = 0;

  protected:
    using Node::Node;
};

class TransferMetadataListener::NodeBlock final : public ORVONode {
  public:
    explicit NodeBlock(Block *block) : ORVONode(BlockAnnotation::NodeType::Block), mBlock(block) {}
    ~NodeBlock() override;

    /// The entries of the block, for a dead one those that it had.
    void takeMetadata(MetadataEntries &entries) const override;
    /// Adds the entries that the live block does not have; nothing happens for a dead one.
    void giveMetadata(const MetadataEntries &entries) const override;
    /// Writes what was given after the first gift, which `giveMetadata` only collects. True if there was something.
    bool consumeMetadata(Block *block) const;
    bool hasGifts() const { return mGifts != nullptr; }
    bool hasMetadata() const;
    /// Reads the metadata of the block, which is about to die.
    void keepMetadata();
    /// The same for a block that is no longer there to be read.
    void keepMetadata(PureTupleValueRef metadata) { mMetadata = std::move(metadata); }
    /// Forgets those of a dead block: others have them now.
    void dropMetadata() const { mMetadata = {}; }

    /// To be touched only while the node is alive.
    Block *mBlock;
    /// How many blocks had died before this one was born, and before it died: what is born between two deaths was made
    /// together.
    std::uint32_t mBirthEpoch = 0;
    std::uint32_t mDeathEpoch = 0;
    /// Where the log keeps what it knows of the dead block whose place this one took at once, 0 for none.
    std::uint32_t mSettled = 0;
    /// The block whose signal was last moved to a wire of this one.
    const NodeBlock *mTookFrom = nullptr;
    /// The wires of this block that were met, newest first.
    NodeWire *mWires = nullptr;
    /// Scratch of the search for groups.
    mutable std::uint32_t mSlot = 0;
    mutable std::uint32_t mRegion = 0;
    mutable std::uint32_t mClaim = 0;
    mutable std::uint32_t mReader = 0;
    mutable const NodeBlock *mReaderMovedTo = nullptr;

  private:
    struct Gifts {
        MetadataEntries entries;
        /// How many of the entries the block had.
        std::size_t had = 0;
    };
    mutable PureTupleValueRef mMetadata;
    mutable std::unique_ptr<Gifts> mGifts;
};

class TransferMetadataListener::NodeWire final : public ORVONode {
  public:
    NodeWire(Wire *wire, NodeBlock *owner) : ORVONode(BlockAnnotation::NodeType::Wire), mWire(wire), mOwner(owner) {}
    /// Wires carry no metadata.
    void takeMetadata(MetadataEntries &) const override {}
    void giveMetadata(const MetadataEntries &) const override {}

    /// To be touched only while the node is alive.
    Wire *mWire;
    NodeBlock *mOwner;
    NodeWire *mNextOfOwner = nullptr;
    /// Its readers were moved to another wire.
    bool mReplaced = false;
    /// The wire that it was replaced by while nobody read it, and the number of the section in which it was.
    NodeWire *mUnreadHeir = nullptr;
    std::uint32_t mUnreadReplaced = 0;
    const NodeWire *unreadHeirSince(std::uint32_t section) const {
        return mUnreadReplaced >= section ? mUnreadHeir : nullptr;
    }
    /// The section that took it out of its graph: its block is joined with its readers there.
    mutable std::uint32_t mRedirected = 0;
    /// Scratch of the search for groups.
    mutable std::uint32_t mInputSince = 0;
    mutable std::uint32_t mArrivals = 0;
};

namespace internal {

using NodeBlock = TransferMetadataListener::NodeBlock;
using NodeWire = TransferMetadataListener::NodeWire;

/// A connection that went. If the reader got another wire at once, that is the heir.
struct Disconnection {
    NodeWire *wire;
    NodeBlock *block;
    NodeWire *heir;
    /// The one before it with the same wire, and with the same block; 0 for none.
    std::uint32_t nextOfWire;
    std::uint32_t nextOfBlock;
};

/// A port that was left open by a connection that went, and its key.
struct OpenedPort {
    std::uint32_t disconnection;
    PureValueRef key;
};

/// A new block that took a dead one's place at once and in full: it reads what that read, got all its readers, and got
/// its metadata when it died. The log knows no more of the two, unless something else happens to the new block: then
/// it writes down the dead one, too. Where nobody read the dead block, that goes for a reader of the new one as well.
struct Settled {
    /// Null once the dead one is written down.
    const Block *heir;
    /// The section of the birth and the death.
    std::uint32_t section;
    std::uint32_t birthEpoch;
    bool gaveMetadata;
    bool hadReaders;
};

/// Objects that stay where they are until all go at once, numbered from 1. Each chunk is as large as all before it
/// together: small sections cost little, and the chunks of large ones lie in large pages.
template <class T> class Arena {
    static constexpr std::uint32_t kFirst = 64;

  public:
    Arena() = default;
    ~Arena() { clear(); }
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;
    std::uint32_t size() const { return mSize; }
    T &at(std::uint32_t number) const {
        const std::uint32_t place = number - 1 + kFirst;
        const auto chunk = static_cast<std::uint32_t>(std::bit_width(place) - std::bit_width(kFirst));
        return mChunks[chunk][place - (kFirst << chunk)];
    }
    /// The new object is `at(size())`.
    template <class... Args> T &make(Args &&...args) {
        if (mNext == mEnd) {
            addChunk();
        }
        ++mSize;
        return *new (static_cast<void *>(mNext++)) T{std::forward<Args>(args)...};
    }
    void clear() {
        if (!std::is_trivially_destructible_v<T>) {
            for (std::uint32_t number = 1; number <= mSize; ++number) {
                at(number).~T();
            }
        }
        for (std::size_t i = 0; i < mChunks.size(); ++i) {
            util::poolRelease(mChunks[i], bytesOf(i));
        }
        mChunks.clear();
        mNext = mEnd = nullptr;
        mSize = 0;
    }

  private:
    static std::size_t bytesOf(std::size_t chunk) { return (std::size_t{kFirst} << chunk) * sizeof(T); }
    void addChunk() {
        const std::size_t bytes = bytesOf(mChunks.size());
        mNext = static_cast<T *>(util::poolAllocate(bytes));
        mEnd = mNext + bytes / sizeof(T);
        mChunks.push_back(mNext);
    }
    std::vector<T *> mChunks;
    T *mNext = nullptr;
    T *mEnd = nullptr;
    std::uint32_t mSize = 0;
};

class ChangeLog {
  public:
    /// Opens a section and gives its number. Numbers grow.
    std::uint32_t open();
    /// To be told before the innermost section transfers its metadata.
    void close();
    /// Writes down all dead blocks of the innermost section whose place was taken at once.
    void recallAll();
    /// Back in the section around it, to whose number that is; 0 for none, which forgets everything.
    void resume(std::uint32_t section);

    NodeBlock &node(const Block &block);
    NodeWire &node(const Wire &wire);
    /// Null for what was never met, and for a block of which no more is known than that it took a place.
    NodeBlock *find(const Block &block) const;
    NodeWire *find(const Wire &wire) const;
    /// The same, but not null for a block that is known to have taken a place.
    NodeBlock *known(const Block &block) { return isMet(block) ? &node(block) : nullptr; }
    bool isMet(const Block &block) const { return find(block) != nullptr || settledOf(block) != 0; }
    /// Whether a new block that took nobody's place drives the wire.
    bool isFromFreeBlock(const Wire &wire) const;

    /// The block was born in this section and has just taken the place of one that dies and was never met.
    void settle(const Block &heir, bool gaveMetadata, bool hadReaders);
    /// Whether a block was born since the death before.
    bool hasNewbornBlock() const { return mHasBirths && mLastBirthEpoch == epoch(); }
    /// Whether the block of a wire took the place of one that nobody read, which is not written down.
    bool isSettledUnread(const Wire &wire) const {
        const std::uint32_t number = settledAt(wire.mLogged);
        return number != 0 && mSettled.at(number).heir == &wire.getBlock() && isSettled(wire.getBlock());
    }
    /// Whether the block took a place so, and the dead one is not written down.
    bool isSettled(const Block &block) const;
    /// Writes down the dead block, which read these wires.
    void recall(const Block &heir, const std::vector<const Wire *> &inputs);
    void recall(const Block &heir);

    void onBirth(const Block &block);
    void onBirth(const Wire &wire);
    void onDying(const Block &block);
    void onDying(const Wire &wire);
    void onReplaced(const Wire &wire);
    /// Nobody reads the wire that was replaced, so that no move of a reader tells what took its place. Its block does
    /// not read the heir.
    void onReplacedUnread(const Wire &wire, const Wire &heir);
    /// `edit` is the design's count of edits: a reader that loses a wire and gets another within one edit was moved.
    void onDisconnected(const Wire &wire, const Block &block, std::uint64_t edit);
    void onConnected(const Wire &wire, const Block &block, std::uint64_t edit);
    /// A reader was moved from a wire to one whose signal the block of the first does not read.
    void onMoved(const Wire &wire, const Wire &heir, const Block &block, std::uint64_t edit);
    /// The connection that went last leaves a port open. It may be connected again later.
    void onOpened(const Block &block, const PureValueRef &key);

    std::uint32_t blocks() const { return mBlocks.size(); }
    NodeBlock &blockAt(std::uint32_t number) const { return mBlocks.at(number); }
    std::uint32_t wires() const { return mWires.size(); }
    NodeWire &wireAt(std::uint32_t number) const { return mWires.at(number); }
    std::uint32_t disconnections() const { return mDisconnections.size(); }
    const Disconnection &disconnectionAt(std::uint32_t number) const { return mDisconnections.at(number); }
    /// The key of the port that a connection left open; null if it left none.
    const PureValueRef *openedBy(std::uint32_t disconnection) const;
    bool hasOpened() const { return !mOpened.empty(); }
    /// The blocks that died, in the order of their deaths.
    const std::vector<NodeBlock *> &deaths() const { return mDeaths; }
    /// How many died beside these: their place was taken at once. Those written down since then move to the others when
    /// their section closes.
    std::uint32_t settledDeaths() const { return mSettledDeaths; }
    /// A number that no node's mark has.
    std::uint32_t newMark() { return ++mLastMark; }

  private:
    /// A block's place in the log is a number of `mSettled` with this bit, or one of `mBlocks`.
    static constexpr std::uint32_t kSettledBit = std::uint32_t{1} << 31U;
    struct OpenSection {
        std::uint32_t number;
        /// How many places had been taken at once when it was opened.
        std::uint32_t firstSettled;
        std::size_t firstDeath;
        /// The dead of those taken since then that are written down by now. They count among the deaths when the
        /// section closes, and not before, since a section inside it has no part in them.
        std::vector<NodeBlock *> recalled;
    };

    std::uint32_t settledOf(const Block &block) const;
    /// The place in `mSettled` that a place in the log is, 0 if it is none.
    std::uint32_t settledAt(std::uint32_t place) const {
        const std::uint32_t number = place & ~kSettledBit;
        return number != place && number <= mSettled.size() ? number : 0;
    }
    std::uint32_t epoch() const { return static_cast<std::uint32_t>(mDeaths.size()) + mSettledDeaths; }
    void addDisconnection(NodeWire &wire, NodeBlock &block, NodeWire *heir);
    void setHeir(NodeWire &heir, bool passesBy);
    static void setUnreadHeir(NodeWire &wire, NodeWire &heir, std::uint32_t section);

    std::uint32_t mSection = 0;
    std::uint32_t mLastSection = 0;
    std::vector<OpenSection> mOpenSections;
    std::uint32_t mLastMark = 0;
    Arena<NodeBlock> mBlocks;
    Arena<NodeWire> mWires;
    Arena<Disconnection> mDisconnections;
    Arena<Settled> mSettled;
    std::vector<NodeBlock *> mDeaths;
    std::uint32_t mSettledDeaths = 0;
    bool mHasBirths = false;
    std::uint32_t mLastBirthEpoch = 0;
    std::vector<OpenedPort> mOpened;
    /// The block that has just lost a wire, the edit in which it did, and what was written down of it.
    const Block *mOpenEnd = nullptr;
    std::uint64_t mOpenEdit = 0;
    std::uint32_t mOpenDisconnection = 0;
};

} // namespace internal
} // namespace orvo
