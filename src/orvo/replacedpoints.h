// Which points of a netlist took the place of which, by name, and what constraints the replaced ones had.
#pragma once

#include <orvo/value.h>

#include <cstddef>
#include <map>
#include <set>
#include <vector>

namespace orvo {

class Block;
class Context;

namespace internal {

/// The points of one kind, ports or wires. A point is the pair (name of the block, name of the port or wire).
///
/// Names are used again, so the order of the reports counts. Reports of one old point make one step: each names one
/// more point that takes the place of what stood there. Once another point has become the old one, the next report of
/// it begins a new step, which moves on what stands there by then, and nothing that has left.
class ReplacedPoints {
  public:
    /// A constraint's entry, and the replaced point that it was at.
    struct HeldEntry {
        PureTupleValueRef point;
        ValueRef entry;
    };

    /// `param` is where the old block has the entries of its constraints.
    void tell(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock, const PureValueRef &newName,
              const StaticString &param);
    bool empty() const { return mOldPoints.empty(); }
    /// Whether a point of the block of that name was told to take the place of another.
    bool isSuccessor(const PureValueRef &block) const { return mSuccessors.count(block) != 0; }
    /// Where what first stood at the point stands now, each once, in the order of the reports.
    std::vector<PureTupleValueRef> latest(const PureTupleValueRef &point) const;
    /// The entries that the replaced points had when their blocks were first told of, in the order of the reports.
    /// What a substitute was given along with its parameters is not told again.
    std::vector<HeldEntry> heldEntries() const;
    /// The replaced point that an entry of the block stands for: one of the block itself, or one of the block that it
    /// is a substitute of and was given the entry from. Null if there is none.
    PureTupleValueRef replacedPoint(const Block &block, const ValueRef &entry) const;

  private:
    /// What stood at a point for a while, and what took its place: nothing as long as it stands.
    struct Stand {
        PureTupleValueRef point;
        std::vector<std::size_t> next;
    };
    /// The stands of a point, as numbers.
    struct Place {
        std::size_t first;
        std::size_t now;
        /// Whose replacements are being told, `kNoStep` before any and after a newcomer.
        std::size_t step;
    };
    /// What a block had when it was first told of.
    struct OldBlock {
        std::map<const Value *, std::vector<ValueRef>> byKey;
        std::set<const Value *> entries;
    };
    static constexpr std::size_t kNoStep = static_cast<std::size_t>(-1);

    PureTupleValueRef pointOf(const PureValueRef &block, const PureValueRef &name) const;
    std::size_t stand(const PureTupleValueRef &point);
    Place &place(const PureTupleValueRef &point);
    void replace(const PureTupleValueRef &oldPoint, const PureTupleValueRef &newPoint);
    void hold(const Block &oldBlock, const StaticString &param);
    void noteSubstitute(const PureValueRef &oldBlock, const PureValueRef &newBlock);
    bool isReplaced(const PureTupleValueRef &point) const;
    PureTupleValueRef givenFrom(const PureValueRef &block, const ValueRef &entry) const;

    Context *mContext = nullptr;
    std::vector<Stand> mStands;
    std::map<PureTupleValueRef, Place> mPlaces;
    /// Each once, in the order of the reports.
    std::vector<PureTupleValueRef> mOldPoints;
    std::map<PureValueRef, OldBlock> mOldBlocks;
    std::set<PureValueRef> mSuccessors;
    /// From a substitute to what it stands for.
    std::map<PureValueRef, std::vector<PureValueRef>> mSubstitutes;
};

} // namespace internal
} // namespace orvo
