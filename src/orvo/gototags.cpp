// Walks to scope roots end at the first model that does not have one single place, and are kept for all models on them.
#include <orvo/gototags.h>

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace orvo {

namespace {

const Model *singleParent(const Model &model) {
    const auto &instances = model.getParentBlocks();
    return instances.size() == 1 ? &instances.front()->getModel() : nullptr;
}

/// The first model that `holds` from the given one up, as far as each has one place; null if none does.
template <class Roots, class Holds> const Model *upward(const Model &model, Roots &known, Holds holds) {
    std::vector<const Model *> way;
    const Model *root = nullptr;
    for (const Model *at = &model; at != nullptr && root == nullptr; at = singleParent(*at)) {
        const auto [place, isNew] = known.try_emplace(at, nullptr);
        if (!isNew) {
            // Also in a ring of models that instantiate each other, which has no top.
            root = place->second;
            break;
        }
        way.push_back(at);
        root = holds(*at) ? at : nullptr;
    }
    for (const Model *passed : way) {
        known[passed] = root;
    }
    return root;
}

} // namespace

std::optional<TagKind> statedTagKind(const Block &sender) {
    const struct {
        const StaticString &type;
        TagKind kind;
    } kinds[] = {{A_GOTO_TAG_TYPE_LOCAL, TagKind::Local},
                 {A_GOTO_TAG_TYPE_SCOPED, TagKind::Scoped},
                 {A_GOTO_TAG_TYPE_GLOBAL, TagKind::Global},
                 {A_GOTO_TAG_TYPE_BUS, TagKind::Bus}};
    const ValueRef stated = sender.getParam(A_GOTO_TAG_TYPE);
    for (const auto &[type, kind] : kinds) {
        if (stated == type) {
            return kind;
        }
    }
    return std::nullopt;
}

Wire *signalOfGoto(const Block &sender) {
    const Port *port = sender.getPort(A_GOTO_PORT_IN);
    Wire *wire = port == nullptr ? nullptr : port->peekWire();
    return wire == nullptr || &wire->getBlock().getModel() != &sender.getModel() ? nullptr : wire;
}

PureValueRef scopeMarkOf(const PureValueRef &tag) {
    return PureTupleValue::get(A_GOTO_TAG_TYPE_SCOPED, tag, tag->context());
}

TagKey GotoTags::enter(const Block &sender, const PureValueRef &tag) {
    const TagKind kind = statedTagKind(sender).value_or(TagKind::Local);
    TagKey key{kind, tag, kind == TagKind::Local ? &sender.getModel() : nullptr};
    if (kind == TagKind::Scoped) {
        const PureValueRef mark = scopeMarkOf(tag);
        key.scope = upward(sender.getModel(), mMarkedRoots[tag.get_ptr()],
                           [&](const Model &model) { return model[mark] == A_TRUE; });
        if (key.scope != nullptr) {
            mScoped[key.scope].insert(tag);
            mUsedRoots.try_emplace(tag.get_ptr());
        }
    }
    mKeys.insert(key);
    return key;
}

std::optional<TagKey> GotoTags::find(const Model &model, const PureValueRef &tag) {
    auto hit = mKeys.find({TagKind::Local, tag, &model});
    const auto roots = mUsedRoots.find(tag.get_ptr());
    if (hit == mKeys.end() && roots != mUsedRoots.end()) {
        const Model *root =
            upward(model, roots->second, [&](const Model &at) { return scopedBelow(at).count(tag) != 0; });
        hit = root == nullptr ? hit : mKeys.find({TagKind::Scoped, tag, root});
    }
    for (const TagKind kind : {TagKind::Global, TagKind::Bus}) {
        hit = hit != mKeys.end() ? hit : mKeys.find({kind, tag, nullptr});
    }
    return hit == mKeys.end() ? std::nullopt : std::optional<TagKey>(*hit);
}

const std::set<PureValueRef> &GotoTags::scopedBelow(const Model &root) const {
    static const std::set<PureValueRef> none;
    const auto tags = mScoped.find(&root);
    return tags == mScoped.end() ? none : tags->second;
}

ModelPlaces::ModelPlaces(const Design &design) {
    std::unordered_map<const Model *, std::vector<const Model *>> below;
    std::vector<const Model *> open;
    for (const Model &model : design) {
        if (const Model *parent = singleParent(model)) {
            below[parent].push_back(&model);
        } else if (model.getParentBlocks().empty()) {
            open.push_back(&model);
        }
    }
    std::vector<std::pair<const Model *, const Model *>> order;
    while (!open.empty()) {
        const Model *model = open.back();
        open.pop_back();
        const Model *parent = singleParent(*model);
        mPlaces[model] = {parent == nullptr ? model : mPlaces.at(parent).top, order.size(), order.size()};
        order.emplace_back(model, parent);
        open.insert(open.end(), below[model].begin(), below[model].end());
    }
    for (std::size_t i = order.size(); i-- > 0;) {
        const auto [model, parent] = order[i];
        if (parent != nullptr) {
            mPlaces.at(parent).last = std::max(mPlaces.at(parent).last, mPlaces.at(model).last);
        }
    }
}

const Model *ModelPlaces::top(const Model &model) const {
    const auto place = mPlaces.find(&model);
    return place == mPlaces.end() ? nullptr : place->second.top;
}

bool ModelPlaces::isAround(const Model &model, const Model &other) const {
    const Place &outer = mPlaces.at(&model);
    const Place &inner = mPlaces.at(&other);
    return outer.first <= inner.first && inner.first <= outer.last;
}

bool ModelPlaces::areConnected(const Model &from, const Model &other) const {
    const Model *above = top(from);
    return above != nullptr && top(other) == above;
}

Model &ModelPlaces::parentOf(const Model &model) { return model.getParentBlocks().front()->getModel(); }

} // namespace orvo
