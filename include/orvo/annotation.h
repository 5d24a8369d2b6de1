// The metadata of blocks: the editor of one block's entries, and the listener that hands the entries of blocks that a
// pass deletes to the blocks that took their place.
//
// Metadata are the tuple of entries in a block's `A_METADATA`, each a pure value, usually a tuple whose first element
// is a tag: `A_COMMENT_TAG`, `A_RESET_SYNC_IGNORE_TAG`, `A_CONTROLFLOW_TAG`, `A_XNODE_ID_TAG`, `A_ORIGINATION_TAG`,
// `A_DRIVEN_FU_METADATA_TAG`, `A_FIFO_DELAY_TAG`, `A_SCHEDULER_DELAY_TAG`, `A_SCHEDULER_DELAY_LENGTH_TAG`,
// `A_SCHEDULER_DELAY_CHAIN_ID_TAG`, `A_STALL_FIFO_TAG`, `A_STALL_LOGIC_TAG`, `A_SUBCYCLE_OVERRIDE_TAG`,
// `A_TRACK_SCHEDULE_FAILURE`, and the hints `A_HINT_BARREL_SHIFTER` and `A_HINT_TESSELLATED`.
#pragma once

#include <orvo/corevalues.h>
#include <orvo/event.h>
#include <util/set_vector.h>

#include <deque>
#include <memory>
#include <vector>

namespace orvo {

class Block;
class BlockAnnotation;
class Design;
class Wire;

namespace internal {
class ChangeLog;
class PendingRewrite;

/// Interned values are equal when they are one object.
struct ValueIdentityHash {
    std::size_t operator()(const PureValueRef &value) const { return std::hash<const Value *>()(value.get_ptr()); }
};
} // namespace internal

/// Entries, each once, in first-seen order.
using MetadataEntries = util::set_vector<PureValueRef, internal::ValueIdentityHash>;

/// An editor for `A_METADATA` of one block. What was added is written back when the editor goes.
class ORVO_API MetadataManipulator {
  public:
    /// The block must outlive the editor.
    explicit MetadataManipulator(Block &block);
    ~MetadataManipulator();
    MetadataManipulator(const MetadataManipulator &) = delete;
    MetadataManipulator &operator=(const MetadataManipulator &) = delete;

    /// Adds one entry, the tuple of the arguments.
    void append(const PureValueRef &a, const PureValueRef &b);
    void append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c);
    void append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c, const PureValueRef &d);
    void append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c, const PureValueRef &d,
                const PureValueRef &e);
    void append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c, const PureValueRef &d,
                const PureValueRef &e, const PureValueRef &f);
    /// Adds one entry as it is.
    void appendToVector(const PureValueRef &entry);
    /// Adds all entries of a tuple; with `unique`, only those that are not there. Null adds nothing.
    void appendFrom(const PureTupleValueRef &entries, bool unique);
    /// Adds the entries of another block that are not there; `other` must be another editor.
    void appendFrom(const MetadataManipulator &other);
    /// The entries as they stand, with what was added; null if there are none.
    PureTupleValueRef getTuple() const;
    std::size_t size() const;

  private:
    void setup() const;
    bool contains(const PureValueRef &entry) const;

    Block &mBlock;
    mutable std::vector<PureValueRef> mEntries;
    mutable bool mRead = false;
    bool mAdded = false;
};

/// Hears what a pass does to the netlist while a section is open, and at the section's end gives the metadata of the
/// blocks that vanished to those that now do their work:
/// - the readers of a dead block's output were moved to another output: the block of that output gets the entries, and
///   so do the new blocks that serve it alone;
/// - they were moved to what the dead block itself read, or to what lies a few blocks before it: the readers get them,
///   for nothing took its place;
/// - the readers died, too, and what took their place no longer needs the dead block's signal: what took their place.
///
/// A block that gets entries and dies hands them on. No block gets an entry that it has. Sections nest, and a block
/// born in a nested section is new in the outer one, too. Until a block of the design first carries metadata, nothing
/// is recorded.
class ORVO_API TransferMetadataListener {
  public:
    class ORVONode;
    class NodeBlock;
    class NodeWire;

    explicit TransferMetadataListener(Design &design);
    ~TransferMetadataListener();
    TransferMetadataListener(const TransferMetadataListener &) = delete;
    TransferMetadataListener &operator=(const TransferMetadataListener &) = delete;

    void push();
    /// Ends the innermost section and transfers its metadata. A section must be open.
    void pop();
    std::size_t openSections() const { return mSections.size(); }
    /// Every block that takes another's place in the innermost section gets this entry, too, also one that has done so
    /// already. A section must be open.
    void addMetadata(const PureValueRef &entry);
    /// The innermost section. A section must be open.
    BlockAnnotation &section();

    /// What the open sections know of a block or wire, made if it is met for the first time; with the state 2 as born
    /// just now, with 0 as dying. The nodes last until the outermost section ends.
    NodeBlock &getNode(const Block *block, GraphState state);
    NodeWire &getNode(const Wire *wire, GraphState state);

    void onBlockBirth(Block &block);
    void onBlockDying(Block &block);
    void onWireBirth(Wire &wire);
    void onWireDying(Wire &wire);
    void onWireDriven(const Block &block, const Wire &wire, GraphState state);
    void onBlockDriven(const Wire &wire, const Block &block, GraphState state);
    /// The wire was replaced just now, and nobody read it.
    void onReplacedUnread(const Wire &wire, const Wire &heir);
    /// The block, of which something is recorded, is about to get other metadata.
    void onMetadataChanging(const Block &block);

  private:
    bool recording() const;
    template <class Action> void eachHook(Action action);

    Design &mDesign;
    std::unique_ptr<internal::ChangeLog> mLog;
    std::unique_ptr<internal::PendingRewrite> mPending;
    bool mTransferring = false;
    std::deque<std::unique_ptr<BlockAnnotation>> mSections;
};

} // namespace orvo
