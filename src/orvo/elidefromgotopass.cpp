// Tags dissolve into wires: first all Gotos are taken down in a table of tags, then each From is replaced by the wire
// that carries its tag's signal in its model. Where no wire does so yet, one is led there through the hierarchy.
#include "orvo/elidefromgotopass.h"

#include "orvo/elideddomainedges.h"
#include "orvo/metadatasection.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/gototags.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(
    ElideFromGotoPass,
    "Replaces each From by a wire from the Goto with its tag, and deletes the Gotos. Where the two stand in "
    "different models, the models on the way get ports for the signal. A From whose tag leads nowhere, or "
    "that stands in a model with several instances and not with its Goto, and a Goto that lacks its signal or "
    "its tag, are reported and stay. To run before the design is flattened, which takes the reach of tags away.")

namespace {

struct TagInfo {
    /// The model of the Goto that was met last.
    Model *model = nullptr;
    /// The names of the Gotos whose signals are read, each in its model.
    std::unordered_map<const Model *, PureValueRef> senders;
    /// The model up to which its signal was led from there; null if nowhere yet.
    Model *reached = nullptr;
    /// What carries the tag's signal in each model that it has reached. These wires live as long as the table.
    std::unordered_map<const Model *, Wire *> wires;
    /// The metadata of blocks that are gone and that are still to go where the signal is read.
    MetadataEntries forReaders;
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
    PureValueRef tag(value);
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

/// The name itself or, where the model has another port of that name, the first with a number that is free; who wires
/// buses will not find that.
template <class IsTaken>
PureValueRef freeName(const PureValueRef &name, const TagKey &key, const Block &instance, IsTaken isTaken) {
    Context *context = instance.getContext();
    PureValueRef free = name;
    for (int number = 0; isTaken(free); ++number) {
        free = PureTupleValue::get(A_DUPLICATE_NAME, NumberValue::get(number, context), name, context);
    }
    if (key.kind == TagKind::Bus && free != name) {
        log::msg(msg::warning::BUS_TAG_RENAMED,
                 log::p("tag", key.tag) % log::p("model", Node::from<Model>(instance[A_MODEL_NODE])->value()) %
                     log::p("block", instance.value()));
    }
    return free;
}

Block &onlyInstance(Model &model, ModelTreePass &tree) {
    Block *block = tree.getSingleRefBlock(model);
    ORVO_ASSERT(block != nullptr, "a model below the top of its ancestry is instantiated once");
    return *block;
}

using Edges = internal::ElidedDomainEdges;

/// The signal leaves the model of a Goto by that port.
void noteWayOut(Block &block, const PureValueRef &port, const TagInfo &info, Edges &edges) {
    if (const auto sender = info.senders.find(&block.getModel()); sender != info.senders.end()) {
        edges.addRoute(block, port, sender->second);
    }
}

/// Makes the model give the signal to the model above, unless that has it.
void ascend(Model &model, const TagKey &key, TagInfo &info, ModelTreePass &tree, Edges &edges) {
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
    // A new block has parameters, too, whose names are taken.
    Block *output = model.getOutputBlock();
    if (output == nullptr) {
        output = Block::create(model, "output", A_OUTPUT_BLOCK);
    }
    const PureValueRef port = freeName(nameOnTheWay(key, info), key, instance, isTaken);
    output->setParam(port, *info.wires.at(&model));
    noteWayOut(*output, port, info, edges);
    above = Wire::create(instance, port);
}

/// Makes the model take the signal from the model above, unless it has it.
void descend(Model &model, const TagKey &key, TagInfo &info, ModelTreePass &tree, Edges &edges) {
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
    const PureValueRef port = freeName(nameOnTheWay(key, info), key, instance, isTaken);
    Block *input = model.getInputBlock();
    if (input == nullptr) {
        input = Block::create(model, "input", A_INPUT_BLOCK);
    }
    instance.setParam(port, *info.wires.at(&instance.getModel()));
    noteWayOut(instance, port, info, edges);
    below = Wire::create(*input, port);
}

/// Leads the tag's signal from the model of its Goto up to the first model around both, and down to the From's. False,
/// after a message, if there is no such way.
bool routeAcrossModels(Model &fromModel, const TagKey &key, TagInfo &info, const ModelPlaces &places,
                       ModelTreePass &tree, Edges &edges) {
    if (places.top(fromModel) == nullptr) {
        log::msg(msg::error::FROM_NO_REFCHAIN, log::p("model", fromModel.value()));
        return false;
    }
    if (places.top(*info.model) == nullptr) {
        log::msg(msg::error::GOTO_NO_REFCHAIN, log::p("model", info.model->value()));
        return false;
    }
    if (!places.areConnected(fromModel, *info.model)) {
        log::msg(msg::error::FROM_GOTO_NO_ROUTE,
                 log::p("gotoModel", info.model->value()) % log::p("fromModel", fromModel.value()));
        return false;
    }
    const std::vector<Model *> way =
        places.wayUp(fromModel, *info.model, [&info](Model &model) { return info.wires.count(&model) != 0; });
    Model *&reached = info.reached;
    reached = reached == nullptr ? info.model : reached;
    while (reached != way.back() && places.isAround(*way.back(), *reached)) {
        ascend(*reached, key, info, tree, edges);
        reached = tree.getSingleParent(*reached);
    }
    std::for_each(way.rbegin() + 1, way.rend(), [&](Model *model) { descend(*model, key, info, tree, edges); });
    return true;
}

/// The tags of a design, for one run of the pass.
class TagTable {
  public:
    TagTable(Design &design, ModelTreePass &tree) : mTree(tree), mPlaces(design) {}

    /// Enters what a Goto gives and deletes it; a faulty one is reported and stays.
    void take(Block &sender);
    /// Replaces a From by the wire of its tag, unless it is gone already; one that cannot be resolved is reported and
    /// stays.
    void resolve(Block *first);
    /// Takes the marks of the tags off their scope root.
    void clearMarks(Model &root);
    /// Makes the edges of domains at Gotos and Froms that are gone stand where they last; when all tags are resolved.
    void moveEdges(Design &design) const { mEdges.move(design); }

  private:
    using Tags = std::map<TagKey, TagInfo>;

    Tags::iterator find(const Model &model, const PureValueRef &tag);
    TagInfo *tagFor(Block &from);
    Block *feederOf(Block &from);
    bool closesRing(Block &from);
    void replace(Block &from, const TagInfo &tag, Wire &source);
    static void handOnMetadata(TagInfo &tag, Wire &driven);
    static MetadataEntries handOnMetadata(Block &from, const TagInfo &tag, Wire &source);
    void follow(Block &from, Wire &wire, const MetadataEntries &behind);

    ModelTreePass &mTree;
    ModelPlaces mPlaces;
    Tags mTags;
    GotoTags mReach;
    /// The tags whose Gotos are fed by a From: their wires follow when the From is resolved.
    std::unordered_map<Block *, std::vector<TagInfo *>> mFedBy;
    /// Also those that are gone: a From never comes to stand in the place of another.
    std::unordered_set<const Block *> mTried;
    /// The Froms whose feeders were followed, by the number of the walk.
    std::unordered_map<const Block *, std::size_t> mWalked;
    std::size_t mWalks = 0;
    /// One From of each ring of Froms that feed each other.
    std::unordered_set<const Block *> mRingEnds;
    Edges mEdges;
};

/// Whether the block goes when its model or the one that it stands for is flattened, and what it carries with it.
bool isAtEdge(const Block &block) {
    return isOfType(block, A_INPUT_BLOCK) || isOfType(block, A_OUTPUT_BLOCK) || isOfType(block, A_MODEL_BLOCK);
}

void takeEntries(Block &from, MetadataEntries &entries) {
    if (from.findParam(A_METADATA) == nullptr || from.getModel().getDesign().getMetadataTransferListener() == nullptr) {
        return;
    }
    if (const PureTupleValueRef own = MetadataManipulator(from).getTuple()) {
        for (const PureValueRef &entry : *own) {
            entries.insert(entry);
        }
    }
}

void giveEntries(Block &heir, const MetadataEntries &entries) {
    if (!entries.empty()) {
        const std::vector<PureValueRef> all(entries.begin(), entries.end());
        MetadataManipulator(heir).appendFrom(PureTupleValue::get(all, heir.getContext()), true);
    }
}

void TagTable::take(Block &sender) {
    Wire *wire = signalOfGoto(sender);
    if (wire == nullptr) {
        log::msg(msg::error::GOTO_MISSING_PORT, log::p("block", sender.value()));
        return;
    }
    const PureValueRef tag = tagOf(sender, msg::error::GOTO_MISSING_TAG, msg::error::GOTO_BAD_TAG);
    if (!tag) {
        return;
    }
    if (!statedTagKind(sender)) {
        log::msg(msg::warning::GOTO_BAD_TAG_TYPE,
                 log::p("tagType", sender.getParam(A_GOTO_TAG_TYPE)) % log::p("block", sender.value()));
    }
    TagInfo &info = mTags[mReach.enter(sender, tag)];
    info.model = &sender.getModel();
    info.senders[info.model] = sender.getName();
    info.wires[info.model] = wire;
    if (isOfType(wire->getBlock(), A_FROM_BLOCK)) {
        mFedBy[&wire->getBlock()].push_back(&info);
    }
    // Of several Gotos with one tag only the last is read.
    info.forReaders.clear();
    takeEntries(sender, info.forReaders);
    handOnMetadata(info, *wire);
    mEdges.addGoto(sender, *wire);
    delete &sender;
}

TagTable::Tags::iterator TagTable::find(const Model &model, const PureValueRef &tag) {
    const std::optional<TagKey> key = mReach.find(model, tag);
    return key ? mTags.find(*key) : mTags.end();
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
    if (hit == mTags.end() || closesRing(from)) {
        log::msg(msg::error::FROM_UNKNOWN_TAG, log::p("tag", tag) % log::p("block", from.value()));
        return nullptr;
    }
    const bool isThere = hit->second.wires.count(&model) != 0;
    return isThere || routeAcrossModels(model, hit->first, hit->second, mPlaces, mTree, mEdges) ? &hit->second
                                                                                                : nullptr;
}

/// The From that feeds the Goto of this one's tag, as far as can be told without a route; null if there is none.
Block *TagTable::feederOf(Block &from) {
    const PureValueRef tag(from.getParam(A_GOTO_TAG));
    const auto hit = tag ? find(from.getModel(), tag) : mTags.end();
    if (hit == mTags.end()) {
        return nullptr;
    }
    TagInfo &info = hit->second;
    // What was led somewhere already is as good as the signal where it came from.
    const Model *giver = mPlaces.giver(from.getModel(), *info.model,
                                       [&info](const Model &model) { return info.wires.count(&model) != 0; });
    const auto wire = giver == nullptr ? info.wires.end() : info.wires.find(giver);
    Block *feeder = wire == info.wires.end() ? nullptr : &wire->second->getBlock();
    return feeder != nullptr && isOfType(*feeder, A_FROM_BLOCK) ? feeder : nullptr;
}

/// Whether the From feeds itself, through others or not, so that nothing drives it, and is the one of its ring to stay.
bool TagTable::closesRing(Block &from) {
    ++mWalks;
    for (Block *at = &from; at != nullptr; at = feederOf(*at)) {
        const auto [walk, isNew] = mWalked.try_emplace(at, mWalks);
        if (!isNew) {
            if (walk->second == mWalks) {
                mRingEnds.insert(at);
            }
            break;
        }
    }
    return mRingEnds.count(&from) != 0;
}

/// What Gotos of a tag carried goes to the block that drives them; but if that goes, too, readers will have it.
void TagTable::handOnMetadata(TagInfo &tag, Wire &driven) {
    Block &driver = driven.getBlock();
    if (!isAtEdge(driver) && !isOfType(driver, A_FROM_BLOCK)) {
        giveEntries(driver, tag.forReaders);
        tag.forReaders.clear();
    }
}

/// What a From carried goes to the block whose wire takes its place, as for any block; but behind a route to the one
/// that drives the Goto, and if that stands at the edge of a model to the readers. Gives what readers of the tags that
/// the From feeds are to have, too.
MetadataEntries TagTable::handOnMetadata(Block &from, const TagInfo &tag, Wire &source) {
    MetadataEntries entries;
    Block &driver = tag.wires.at(tag.model)->getBlock();
    if (isAtEdge(source.getBlock())) {
        takeEntries(from, entries);
    }
    for (const PureValueRef &entry : tag.forReaders) {
        entries.insert(entry);
    }
    if (!isAtEdge(driver)) {
        giveEntries(driver, entries);
        return {};
    }
    for (const Port &port : from.getWire(A_FROM_WIRE_OUT)->ports()) {
        if (!isAtEdge(port.getBlock())) {
            giveEntries(port.getBlock(), entries);
        }
    }
    return entries;
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
        replace(*from, *tag, source);
        chain.pop_back();
    }
}

void TagTable::replace(Block &from, const TagInfo &tag, Wire &source) {
    ORVO_ASSERT(&source.getBlock() != &from, "a From that feeds itself closes a ring");
    const MetadataEntries behind = handOnMetadata(from, tag, source);
    const auto sender = tag.senders.find(&from.getModel());
    mEdges.addFrom(from, sender == tag.senders.end() ? PureValueRef() : sender->second, source);
    from.getWire(A_FROM_WIRE_OUT)->replace(source);
    follow(from, source, behind);
    delete &from;
}

/// Makes the tags that a From fed go by the wire that took its place. That comes from a From, too, if that From stays.
void TagTable::follow(Block &from, Wire &wire, const MetadataEntries &behind) {
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
        for (const PureValueRef &entry : behind) {
            info->forReaders.insert(entry);
        }
        handOnMetadata(*info, wire);
        if (isOfType(wire.getBlock(), A_FROM_BLOCK)) {
            mFedBy[&wire.getBlock()].push_back(info);
        }
    }
}

void TagTable::clearMarks(Model &root) {
    for (const PureValueRef &tag : mReach.scopedBelow(root)) {
        root.setParam(scopeMarkOf(tag), nullptr);
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
    tags.moveEdges(design);
}

} // namespace orvo
