// Tags dissolve into wires: first all Gotos are taken down in a table of tags, then each From is replaced by the wire
// that carries its tag's signal in its model. Where no wire does so yet, one is led there through the hierarchy.
#include "orvo/elidefromgotopass.h"

#include "orvo/metadatasection.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(
    ElideFromGotoPass,
    "Replaces each From by a wire from the Goto with its tag, and deletes all Gotos. Where the two stand in "
    "different models, the models on the way get ports for the signal. A From whose tag leads nowhere, or "
    "that stands in a model with several instances and not with its Goto, is reported and stays.")

namespace {

/// How far a tag is seen.
enum class TagKind : std::int32_t { Local = 0, Scoped = 1, Global = 2, Bus = 3 };

struct TagKey {
    TagKind kind;
    PureValueRef tag;
    /// The Goto's own model for a local tag, the scope root for a scoped one; null for all others.
    Model *scope;

    bool operator<(const TagKey &other) const {
        return std::tie(kind, tag, scope) < std::tie(other.kind, other.tag, other.scope);
    }
};

struct TagInfo {
    /// The model of the Goto that was met last.
    Model *model = nullptr;
    /// What carries the tag's signal in each model that it has reached. These wires live as long as the table.
    std::unordered_map<Model *, Wire *> wires;
};

bool isOfType(const Block &block, const StaticString &type) { return block.type() == type.get_ptr(); }

/// To be walked while blocks of the model come and go.
std::vector<Block *> blocksOfType(Model &model, const StaticString &type) {
    std::vector<Block *> found;
    for (Block &block : model) {
        if (isOfType(block, type)) {
            found.push_back(&block);
        }
    }
    return found;
}

/// Null, after a message, for a block without a tag that is a pure value.
PureValueRef tagOf(Block &block, msg::Error missing, msg::Error bad) {
    const ValueRef value = block.getParam(A_GOTO_TAG);
    const PureValueRef tag(value);
    if (!value) {
        log::msg(missing, log::p("block", block.value()));
    } else if (!tag) {
        log::msg(bad, log::p("tag", value) % log::p("block", block.value()));
    }
    return tag;
}

/// Under what name the signal of a tag goes through models. Who wires buses finds the ports of a bus by its tag.
PureValueRef nameOnTheWay(const TagKey &key, const TagInfo &info) {
    const auto named = [&](const char *word) -> PureValueRef {
        Context *context = info.model->getContext();
        return PureTupleValue::get(StringValue::get("route", context), StringValue::get(word, context),
                                   info.model->getName(), key.tag, context);
    };
    switch (key.kind) {
    case TagKind::Local:
        return named("local");
    case TagKind::Scoped:
        return named("scoped");
    case TagKind::Global:
        return named("global");
    case TagKind::Bus:
        return key.tag;
    }
    ORVO_ASSERT(false, "a tag is local, scoped, global or of a bus");
}

/// The name itself or, where a port of the model has it already, the first with a number that is free.
template <class IsTaken> PureValueRef freeName(const PureValueRef &name, IsTaken isTaken, Context *context) {
    PureValueRef free = name;
    for (int number = 0; isTaken(free); ++number) {
        free = PureTupleValue::get(A_DUPLICATE_NAME, NumberValue::get(number, context), name, context);
    }
    return free;
}

Block &onlyInstance(Model &model, ModelTreePass &tree) {
    Block *block = tree.getSingleRefBlock(model);
    ORVO_ASSERT(block != nullptr, "a model below the top of its ancestry is instantiated once");
    return *block;
}

/// Makes the model give the signal to the model above, unless that has it.
void ascend(Model &model, const PureValueRef &name, TagInfo &info, ModelTreePass &tree) {
    Block &instance = onlyInstance(model, tree);
    Wire *&above = info.wires[&instance.getModel()];
    if (above != nullptr) {
        return;
    }
    const auto isTaken = [&](const PureValueRef &port) {
        const Model::BlockSet &outputs = model.getOutputBlocks();
        return instance.getWire(port) != nullptr || std::any_of(outputs.begin(), outputs.end(), [&](const Block *one) {
                   return one->findParam(port.get_ptr()) != nullptr;
               });
    };
    const PureValueRef port = freeName(name, isTaken, model.getContext());
    Block *output = model.getOutputBlock();
    if (output == nullptr) {
        output = Block::create(model, "output", A_OUTPUT_BLOCK);
    }
    output->setParam(port, *info.wires.at(&model));
    above = Wire::create(instance, port);
}

/// Makes the model take the signal from the model above, unless it has it.
void descend(Model &model, const PureValueRef &name, TagInfo &info, ModelTreePass &tree) {
    Wire *&below = info.wires[&model];
    if (below != nullptr) {
        return;
    }
    Block &instance = onlyInstance(model, tree);
    const auto isTaken = [&](const PureValueRef &port) {
        const Model::BlockSet &inputs = model.getInputBlocks();
        return instance.findParam(port.get_ptr()) != nullptr ||
               std::any_of(inputs.begin(), inputs.end(),
                           [&](const Block *one) { return one->getWire(port) != nullptr; });
    };
    const PureValueRef port = freeName(name, isTaken, model.getContext());
    Block *input = model.getInputBlock();
    if (input == nullptr) {
        input = Block::create(model, "input", A_INPUT_BLOCK);
    }
    instance.setParam(port, *info.wires.at(&instance.getModel()));
    below = Wire::create(*input, port);
}

/// The models from the top down to the model itself; empty if it has no single place.
std::vector<Model *> wayDown(Model &model, ModelTreePass &tree) {
    std::vector<Model *> way;
    if (tree.getAncestryList(model, way)) {
        way.insert(way.begin(), &model);
    }
    std::reverse(way.begin(), way.end());
    return way;
}

/// Leads the tag's signal from the model of its Goto up to the first model around both, and down to the From's. False,
/// after a message, if there is no such way.
bool routeAcrossModels(Model &fromModel, const TagKey &key, TagInfo &info, ModelTreePass &tree) {
    const std::vector<Model *> toFrom = wayDown(fromModel, tree);
    if (toFrom.empty()) {
        log::msg(msg::error::FROM_NO_REFCHAIN, log::p("model", fromModel.value()));
        return false;
    }
    const std::vector<Model *> toGoto = wayDown(*info.model, tree);
    if (toGoto.empty()) {
        log::msg(msg::error::GOTO_NO_REFCHAIN, log::p("model", info.model->value()));
        return false;
    }
    const auto [endOfGoto, endOfFrom] = std::mismatch(toGoto.begin(), toGoto.end(), toFrom.begin(), toFrom.end());
    if (endOfGoto == toGoto.begin()) {
        log::msg(msg::error::FROM_GOTO_NO_ROUTE,
                 log::p("gotoModel", info.model->value()) % log::p("fromModel", fromModel.value()));
        return false;
    }
    const PureValueRef name = nameOnTheWay(key, info);
    std::for_each(toGoto.rbegin(), std::make_reverse_iterator(endOfGoto),
                  [&](Model *model) { ascend(*model, name, info, tree); });
    std::for_each(endOfFrom, toFrom.end(), [&](Model *model) { descend(*model, name, info, tree); });
    return true;
}

/// The tags of a design, for one run of the pass.
class TagTable {
  public:
    TagTable(Design &design, ModelTreePass &tree) : mDesign(design), mTree(tree) {}

    /// Enters what a Goto gives and deletes it; a faulty one is reported and stays.
    void take(Block &sender);
    /// Replaces a From by the wire of its tag, unless it is gone already; one that cannot be resolved is reported and
    /// stays.
    void resolve(Block *first);
    /// Takes the marks of the tags off their scope root.
    void clearMarks(Model &root);

  private:
    using Tags = std::map<TagKey, TagInfo>;

    template <class Holds> Model *upward(Model &model, Holds holds) const;
    TagKey keyOf(Block &sender, const PureValueRef &tag);
    Tags::iterator find(Model &model, const PureValueRef &tag);
    TagInfo *tagFor(Block &from);
    void replace(Block &from, Wire &source);
    void follow(Block &from, Wire &wire);

    Design &mDesign;
    ModelTreePass &mTree;
    Tags mTags;
    /// The tags whose Gotos are fed by a From: their wires follow when the From is resolved.
    std::unordered_map<Block *, std::vector<TagInfo *>> mFedBy;
    std::unordered_map<Model *, std::set<PureValueRef>> mScoped;
    /// Also those that are gone: a From never comes to stand in the place of another.
    std::unordered_set<const Block *> mTried;
};

PureValueRef markOf(const PureValueRef &tag, Context *context) {
    return PureTupleValue::get(A_GOTO_TAG_TYPE_SCOPED, tag, context);
}

/// The first model that `holds` from the given one up, as far as each has one place; null if none does.
template <class Holds> Model *TagTable::upward(Model &model, Holds holds) const {
    Model *at = &model;
    // Models that instantiate each other have no top.
    for (std::size_t left = mDesign.size(); at != nullptr && left > 0; --left) {
        if (holds(*at)) {
            return at;
        }
        at = mTree.getSingleParent(*at);
    }
    return nullptr;
}

TagKey TagTable::keyOf(Block &sender, const PureValueRef &tag) {
    const ValueRef type = sender.getParam(A_GOTO_TAG_TYPE);
    if (type == A_GOTO_TAG_TYPE_SCOPED) {
        const PureValueRef mark = markOf(tag, sender.getContext());
        Model *root = upward(sender.getModel(), [&](const Model &model) { return model[mark] == A_TRUE; });
        if (root != nullptr) {
            mScoped[root].insert(tag);
        }
        return {TagKind::Scoped, tag, root};
    }
    if (type == A_GOTO_TAG_TYPE_GLOBAL) {
        return {TagKind::Global, tag, nullptr};
    }
    if (type == A_GOTO_TAG_TYPE_BUS) {
        return {TagKind::Bus, tag, nullptr};
    }
    if (!(type == A_GOTO_TAG_TYPE_LOCAL)) {
        log::msg(msg::warning::GOTO_BAD_TAG_TYPE, log::p("tagType", type) % log::p("block", sender.value()));
    }
    return {TagKind::Local, tag, &sender.getModel()};
}

void TagTable::take(Block &sender) {
    const Port *port = sender.getPort(A_GOTO_PORT_IN);
    Wire *wire = port == nullptr ? nullptr : port->peekWire();
    if (wire == nullptr) {
        log::msg(msg::error::GOTO_MISSING_PORT, log::p("block", sender.value()));
        return;
    }
    const PureValueRef tag = tagOf(sender, msg::error::GOTO_MISSING_TAG, msg::error::GOTO_BAD_TAG);
    if (!tag) {
        return;
    }
    TagInfo &info = mTags[keyOf(sender, tag)];
    info.model = &sender.getModel();
    info.wires[info.model] = wire;
    if (isOfType(wire->getBlock(), A_FROM_BLOCK)) {
        mFedBy[&wire->getBlock()].push_back(&info);
    }
    delete &sender;
}

/// What a From in the model reads under a tag: of several reaches the narrowest wins.
TagTable::Tags::iterator TagTable::find(Model &model, const PureValueRef &tag) {
    Model *root = upward(model, [&](Model &at) {
        const auto tags = mScoped.find(&at);
        return tags != mScoped.end() && tags->second.count(tag) != 0;
    });
    auto hit = mTags.find({TagKind::Local, tag, &model});
    if (hit == mTags.end() && root != nullptr) {
        hit = mTags.find({TagKind::Scoped, tag, root});
    }
    if (hit == mTags.end()) {
        hit = mTags.find({TagKind::Global, tag, nullptr});
    }
    return hit != mTags.end() ? hit : mTags.find({TagKind::Bus, tag, nullptr});
}

/// Null, after a message, if none reaches the From.
TagInfo *TagTable::tagFor(Block &from) {
    if (from.getWire(A_FROM_WIRE_OUT) == nullptr) {
        log::msg(msg::error::FROM_MISSING_WIRE, log::p("block", from.value()));
        return nullptr;
    }
    const PureValueRef tag = tagOf(from, msg::error::FROM_MISSING_TAG, msg::error::FROM_BAD_TAG);
    if (!tag) {
        return nullptr;
    }
    Model &model = from.getModel();
    const auto hit = find(model, tag);
    if (hit == mTags.end()) {
        log::msg(msg::error::FROM_UNKNOWN_TAG, log::p("tag", tag) % log::p("block", from.value()));
        return nullptr;
    }
    const bool isThere = hit->second.wires.count(&model) != 0;
    return isThere || routeAcrossModels(model, hit->first, hit->second, mTree) ? &hit->second : nullptr;
}

void TagTable::resolve(Block *first) {
    struct Step {
        Block *from;
        TagInfo *tag;
    };
    // Froms that feed others go first, so that each reader moves once however long the chain is.
    std::vector<Step> chain;
    const auto enter = [&](Block *from) {
        if (!mTried.insert(from).second) {
            return false;
        }
        if (TagInfo *tag = tagFor(*from); tag != nullptr) {
            chain.push_back({from, tag});
        }
        return true;
    };
    enter(first);
    while (!chain.empty()) {
        const auto [from, tag] = chain.back();
        Wire &source = *tag->wires.at(&from->getModel());
        if (isOfType(source.getBlock(), A_FROM_BLOCK) && enter(&source.getBlock())) {
            continue;
        }
        replace(*from, source);
        chain.pop_back();
    }
}

void TagTable::replace(Block &from, Wire &source) {
    // A From that feeds its own Goto has no more of a source than one without a Goto.
    if (&source.getBlock() == &from) {
        log::msg(msg::error::FROM_UNKNOWN_TAG,
                 log::p("tag", from.getParam(A_GOTO_TAG)) % log::p("block", from.value()));
        return;
    }
    from.getWire(A_FROM_WIRE_OUT)->replace(source);
    follow(from, source);
    delete &from;
}

/// Makes the tags that a From fed go by the wire that took its place. That comes from a From, too, if that From stays.
void TagTable::follow(Block &from, Wire &wire) {
    const auto at = mFedBy.find(&from);
    if (at == mFedBy.end()) {
        return;
    }
    const std::vector<TagInfo *> fed = std::move(at->second);
    mFedBy.erase(at);
    for (TagInfo *info : fed) {
        Wire *&recorded = info->wires.at(&from.getModel());
        // A later Goto with the same tag may have taken the place.
        if (&recorded->getBlock() != &from) {
            continue;
        }
        recorded = &wire;
        if (isOfType(wire.getBlock(), A_FROM_BLOCK)) {
            mFedBy[&wire.getBlock()].push_back(info);
        }
    }
}

void TagTable::clearMarks(Model &root) {
    const auto tags = mScoped.find(&root);
    if (tags == mScoped.end()) {
        return;
    }
    for (const PureValueRef &tag : tags->second) {
        root.setParam(markOf(tag, root.getContext()), nullptr);
    }
}

} // namespace

void ElideFromGotoPass::declare(PassDeclarations &declarations) { declarations.requirePass(ModelTreePass::sName); }

void ElideFromGotoPass::apply(PassContext &context) {
    Design &design = context.getDesign();
    const internal::MetadataSection section(design.getMetadataTransferListener());
    TagTable tags(design, *static_cast<ModelTreePass *>(context.getPass(ModelTreePass::sName)));
    for (Model &model : design) {
        for (Block *sender : blocksOfType(model, A_GOTO_BLOCK)) {
            tags.take(*sender);
        }
    }
    for (Model &model : design) {
        for (Block *from : blocksOfType(model, A_FROM_BLOCK)) {
            tags.resolve(from);
        }
        tags.clearMarks(model);
    }
}

} // namespace orvo
