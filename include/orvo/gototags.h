// Which Goto a From reads: tags reach as far as the types of their Gotos say.
#pragma once

#include <orvo/api.h>
#include <orvo/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace orvo {

class Block;
class Design;
class Model;
class Wire;

/// How far a tag is seen: in the Goto's model, below the model that is marked as its scope root, or everywhere.
enum class TagKind : std::int32_t { Local = 0, Scoped = 1, Global = 2, Bus = 3 };

/// What tells a tag from others. Of the Gotos of one key in a model the last gives the signal; which model's is read
/// elsewhere tells `ModelPlaces`.
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

/// Where the models of a design stand that have one single chain of instances down to them: signals of tags go along
/// these. The instances stay as they are meanwhile.
class ORVO_API ModelPlaces {
  public:
    explicit ModelPlaces(const Design &design);

    /// The model at the upper end of the chain; null for a model that does not have one single chain.
    const Model *top(const Model &model) const;
    /// Whether the model is the other one, or instantiates it at any depth. Both must have a top.
    bool isAround(const Model &model, const Model &other) const;
    /// Whether a signal finds a way from one model to the other.
    bool areConnected(const Model &from, const Model &other) const;
    /// The models from the given one up to the first that `has` the signal or stands around `last`. The two must be
    /// connected.
    template <class AnyModel, class Has>
    std::vector<AnyModel *> wayUp(AnyModel &from, const Model &last, Has has) const {
        std::vector<AnyModel *> way{&from};
        while (!has(*way.back()) && !isAround(*way.back(), last)) {
            way.push_back(&parentOf(*way.back()));
        }
        return way;
    }
    /// Of the models that have a signal of a tag, the one whose signal a From in the model `from` reads; `last` is that
    /// of the tag's last Goto. Null if there is none.
    template <class Has> const Model *giver(const Model &from, const Model &last, Has has) const {
        if (has(from)) {
            return &from;
        }
        if (!areConnected(from, last)) {
            return nullptr;
        }
        const Model *turn = wayUp(from, last, has).back();
        if (has(*turn)) {
            return turn;
        }
        // On its way up to there the signal of the last Goto gives way to that of each model with one of its own.
        const Model *found = &last;
        for (const Model *at = &last; at != turn; at = &parentOf(*at)) {
            found = has(*at) ? at : found;
        }
        return found;
    }

  private:
    /// With the numbers of the first and the last model below it, in an order that keeps each tree together.
    struct Place {
        const Model *top;
        std::size_t first;
        std::size_t last;
    };
    static Model &parentOf(const Model &model);
    std::unordered_map<const Model *, Place> mPlaces;
};

} // namespace orvo
