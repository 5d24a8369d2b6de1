// From the name of a block of a lowered design back to the block of the design that it was lowered from. Rewrites build
// names around that of the block they started at, so that nothing but the names is needed, and files will do.
//
// | Name | What it says |
// |---|---|
// | as in the source | the block itself |
// | (model NAME) | the block NAME of a model that was dissolved |
// | (dupName number NAME) | one more of that name |
// | (NAME number ...) | a lane of a vector or an element, innermost dimension first |
// | (NAME real), (NAME imag) | a part of a complex number |
// | (NAME vunroll), (NAME cunroll 2), "NAME_aunroll" | what took the place of the block as a whole |
// | (NAME key cpack), ((NAME key) vup 0) | what joins or takes apart the signal at the port or wire of that key |
// | (key vup), (key cp 2) | the same at a scheduled model, in the model or in one below it |
// | (NAME word), "NAME_vp", "NAME_vup3", "NAME_rnd" | a block made beside the one that a rewrite replaced |
//
// Readings are tried in the order of the table; these rules nest in each other in any way. NAME stands as its text
// inside names that are strings. Where several scheduled models have the key, the name alone leads to the first that is
// nearest.
#pragma once

#include <orvo/api.h>
#include <orvo/value.h>

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvo {

class Block;
class Design;
class Model;

/// One thing that a rewrite put around a name.
struct NameStep {
    enum class Kind {
        /// The block was copied out of the model of this name.
        Copy,
        /// There was one of the name already; the value is the number of this one.
        Duplicate,
        /// One element of a vector; the value is its number.
        Lane,
        /// "real" or "imag".
        Part,
        /// Took the place of the block; the value is the word.
        Substitute,
        /// Stands at the port or wire of this key.
        Port,
        /// Made beside the block; the value is the word that tells for what.
        Beside
    };
    Kind kind;
    PureValueRef value;
};

/// Where a block comes from.
struct NameOrigin {
    /// Null if the name leads to no block of the source.
    const Block *block = nullptr;
    /// From the block's own name outwards, as rewrites came.
    std::vector<NameStep> steps;

    explicit operator bool() const { return block != nullptr; }
    /// Whether the block does what the original did, or its lane or part, and was not made beside it.
    ORVO_API bool standsForBlock() const;
};

/// Finds origins in one source design, which must stay as it is meanwhile. Costs as much as the name is long. Names
/// that more rewrites than any design meets would have made lead nowhere.
class ORVO_API NameOrigins {
  public:
    explicit NameOrigins(const Design &source);

    /// Of a block of another design of the same context, in a model that has its name in the source, too.
    NameOrigin originOf(const Block &block) const;
    /// Of a name, as it would stand in this model of the source.
    NameOrigin originOf(const PureValueRef &name, const Model &model) const;

  private:
    /// `room` is how many more readings may nest.
    NameOrigin read(const PureValueRef &name, const Model &model, int room) const;
    NameOrigin ofTuple(const PureValueRef &name, const Model &model, int room) const;
    NameOrigin ofText(const PureValueRef &name, const Model &model, int room) const;

    using ByKey = std::unordered_map<const Value *, std::vector<const Block *>>;
    /// A model and those below it, nearest first.
    struct Below {
        std::unordered_map<const Model *, std::size_t> rank;
        /// The nearest scheduled model of each key that was asked about.
        mutable std::unordered_map<const Value *, const Block *> nearest;
    };
    const ByKey &scheduledBlocks() const;
    const Below &belowOf(const Model &model) const;
    /// In the model, else in the nearest below it. Null if there is none.
    const Block *scheduledBlockWith(const PureValueRef &key, const Model &model) const;

    const Design &mSource;
    /// The scheduled models of the source by the keys of their ports and wires, once asked for.
    mutable std::optional<ByKey> mScheduled;
    mutable std::unordered_map<const Model *, Below> mBelow;
};

/// How the name of a port or wire of a lowered block continues that of one of the source: empty steps for the name
/// itself, lanes and parts for what unrolling made of it. False if it does not. (NAME number) and (NAME real) continue
/// NAME; into a tuple, steps may also be put in front of its last element.
ORVO_API bool continuesName(const PureValueRef &name, const PureValueRef &source, std::vector<NameStep> &steps);

/// A step for people, such as "lane 3".
ORVO_API std::string describe(const NameStep &step);

} // namespace orvo
