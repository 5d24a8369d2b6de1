// A tag is safe where all its Gotos and Froms come from one instance, or where the one Goto is seen everywhere anyway.
#include "orvo/flattentags.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include <limits>
#include <unordered_map>
#include <utility>

namespace orvo::internal {

namespace {

bool isTagged(const Block &block) {
    const Value *type = block.type();
    return type == A_GOTO_BLOCK.get_ptr() || type == A_FROM_BLOCK.get_ptr();
}

/// Any other type, and none, makes a tag local.
bool isLocal(const Block &sender) {
    const Value *type = sender.findParam(A_GOTO_TAG_TYPE);
    return type != A_GOTO_TAG_TYPE_SCOPED.get_ptr() && type != A_GOTO_TAG_TYPE_GLOBAL.get_ptr() &&
           type != A_GOTO_TAG_TYPE_BUS.get_ptr();
}

/// The instances that something comes from.
class Origins {
  public:
    void add(std::size_t instance) {
        mSeveral = mSeveral || (mFirst != kNone && mFirst != instance);
        mFirst = instance;
    }
    bool several() const { return mSeveral; }

  private:
    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
    std::size_t mFirst = kNone;
    bool mSeveral = false;
};

/// All that meets under one tag in a model.
struct Meeting {
    Origins senders;
    Origins all;
    bool hasLocal = false;

    bool changes() const { return senders.several() || (hasLocal && all.several()); }
};

} // namespace

void FlattenedTags::note(const Block &block) {
    if (isTagged(block)) {
        mAny = true;
        if (block.findParam(A_GOTO_TAG_TYPE) == A_GOTO_TAG_TYPE_SCOPED.get_ptr()) {
            mScoped.insert(block.findParam(A_GOTO_TAG));
        }
    }
}

std::unique_ptr<const FlattenedTags::Source> FlattenedTags::read(const Model &model) const {
    if (!mAny) {
        return nullptr;
    }
    Source source;
    for (const Block &block : model) {
        const PureValueRef tag(isTagged(block) ? block.getParam(A_GOTO_TAG) : ValueRef());
        const bool sends = block.type() == A_GOTO_BLOCK.get_ptr();
        if (tag && !(sends && block.getPort(A_GOTO_PORT_IN) == nullptr)) {
            source.ends.push_back({tag, &block, sends, sends && isLocal(block)});
        }
    }
    for (auto param : Params(model)) {
        const TupleValue *mark = asTuple(param.first.get_ptr());
        if (mark != nullptr && mark->size() == 2 && mark->at(0) == A_GOTO_TAG_TYPE_SCOPED && param.second == A_TRUE &&
            mScoped.count(mark->at(1).get_ptr()) != 0) {
            source.marks.emplace_back(mark->at(1));
        }
    }
    return source.ends.empty() && source.marks.empty() ? nullptr : std::make_unique<const Source>(std::move(source));
}

void FlattenedTags::open(const Model &model) {
    mInstances = 0;
    if (const auto own = read(model)) {
        for (const Source::End &end : own->ends) {
            mPlaced.push_back({end, 0, nullptr});
        }
    }
}

void FlattenedTags::add(const Block &instance, const Model &model, const Source &source) {
    ++mInstances;
    for (const Source::End &end : source.ends) {
        mPlaced.push_back({end, mInstances, &model});
    }
    if (!source.marks.empty()) {
        warn(model, source.marks.front(), instance);
    }
}

void FlattenedTags::close() {
    if (mPlaced.empty()) {
        return;
    }
    std::unordered_map<const Value *, Meeting> meetings;
    for (const Placed &placed : mPlaced) {
        Meeting &meeting = meetings[placed.end.tag.get_ptr()];
        meeting.all.add(placed.instance);
        if (placed.end.sends) {
            meeting.senders.add(placed.instance);
            meeting.hasLocal = meeting.hasLocal || placed.end.isLocal;
        }
    }
    for (const Placed &placed : mPlaced) {
        if (placed.source != nullptr && meetings[placed.end.tag.get_ptr()].changes()) {
            warn(*placed.source, placed.end.tag, *placed.end.block);
        }
    }
    mPlaced.clear();
}

void FlattenedTags::warn(const Model &source, const PureValueRef &tag, const Block &block) {
    if (mWarned.insert(&source).second) {
        log::msg(msg::warning::FLATTENING_JOINS_TAGS,
                 log::p("tag", tag) % log::p("srcModel", source.value()) % log::p("block", block.value()));
    }
}

} // namespace orvo::internal
