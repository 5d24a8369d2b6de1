// Tags of Gotos and Froms in models that dissolve: who sees a tag is told by the model that its blocks stand in.
#pragma once

#include <orvo/model.h>

#include <memory>
#include <unordered_set>
#include <vector>

namespace orvo::internal {

/// Warns of tags that other blocks see when models have dissolved, for any number of receiving models of one design.
/// Costs nothing in a design without Gotos and Froms.
class FlattenedTags {
  public:
    /// What of a model has to do with tags.
    struct Source {
        /// A Goto that has a signal and a tag, or a From that has a tag.
        struct End {
            PureValueRef tag;
            const Block *block;
            bool sends;
            bool isLocal;
        };
        std::vector<End> ends;
        /// The tags whose reach ends at this model.
        std::vector<PureValueRef> marks;
    };

    /// To be called with each block of the design before all else.
    void note(const Block &block);

    /// Null for a model that has nothing to do with tags.
    std::unique_ptr<const Source> read(const Model &model) const;
    /// Starts with a model that receives.
    void open(const Model &model);
    /// An instance of `source` dissolves, in the place of the model block.
    void add(const Block &instance, const Model &model, const Source &source);
    /// Looks at all that came together in the model.
    void close();

  private:
    struct Placed {
        Source::End end;
        /// 0 for the model's own.
        std::size_t instance;
        /// Null for the model's own.
        const Model *source;
    };

    void warn(const Model &source, const PureValueRef &tag, const Block &block);

    bool mAny = false;
    /// The tags of Gotos whose reach a mark limits.
    std::unordered_set<const Value *> mScoped;
    std::size_t mInstances = 0;
    std::vector<Placed> mPlaced;
    std::unordered_set<const Model *> mWarned;
};

} // namespace orvo::internal
