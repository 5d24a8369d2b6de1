// Which Goto a From reads: tags reach as far as the types of their Gotos say.
#pragma once

#include <orvo/api.h>
#include <orvo/value.h>

#include <cstdint>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>

namespace orvo {

class Block;
class Model;
class Wire;

/// How far a tag is seen: in the Goto's model, below the model that is marked as its scope root, or everywhere.
enum class TagKind : std::int32_t { Local = 0, Scoped = 1, Global = 2, Bus = 3 };

/// What tells a tag from others. Gotos of one key mean the same signal: that of the last.
struct TagKey {
    TagKind kind;
    PureValueRef tag;
    /// The Goto's own model for a local tag, the scope root for a scoped one; null for all others.
    const Model *scope;

    bool operator<(const TagKey &other) const {
        return std::tie(kind, tag, scope) < std::tie(other.kind, other.tag, other.scope);
    }
};

/// The kind that a Goto states; nothing if its type is missing or none, which is as good as local.
ORVO_API std::optional<TagKind> statedTagKind(const Block &sender);

/// The signal of a Goto; null if it reads none of its own model.
ORVO_API Wire *signalOfGoto(const Block &sender);

/// The parameter that marks a model as the scope root of a tag.
ORVO_API PureValueRef scopeMarkOf(const PureValueRef &tag);

/// The tags of a design's Gotos. All are to be entered before the first is looked up, and the design's instances stay
/// as they are meanwhile; blocks may come and go.
class ORVO_API GotoTags {
  public:
    /// Takes down the tag of a Goto, and gives its key.
    TagKey enter(const Block &sender, const PureValueRef &tag);
    /// What a From in the model reads under a tag: of several reaches the narrowest wins. Nothing if none is there.
    std::optional<TagKey> find(const Model &model, const PureValueRef &tag);
    /// The tags whose scope root the model is.
    const std::set<PureValueRef> &scopedBelow(const Model &root) const;

  private:
    /// The scope root that each model sees, for one tag.
    using Roots = std::unordered_map<const Model *, const Model *>;

    std::set<TagKey> mKeys;
    /// The scope roots above Gotos, which are marked, and above Froms, which also have a Goto; by tag.
    std::unordered_map<const Value *, Roots> mMarkedRoots;
    std::unordered_map<const Value *, Roots> mUsedRoots;
    std::unordered_map<const Model *, std::set<PureValueRef>> mScoped;
};

} // namespace orvo
