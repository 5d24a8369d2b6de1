// The metadata of blocks: the editor of one block's entries, and the listener that brackets the rewrites of a model.
#pragma once

#include <orvo/corevalues.h>

#include <vector>

namespace orvo {

class Block;

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

/// Brackets the rewrites of one model, so that what is recorded between them belongs together. Sections nest.
class ORVO_API TransferMetadataListener {
  public:
    TransferMetadataListener() = default;
    TransferMetadataListener(const TransferMetadataListener &) = delete;
    TransferMetadataListener &operator=(const TransferMetadataListener &) = delete;
    void push();
    /// A section must be open.
    void pop();
    std::size_t openSections() const { return mOpenSections; }

  private:
    std::size_t mOpenSections = 0;
};

} // namespace orvo
