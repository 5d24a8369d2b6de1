// Pairs of a pack and an unpack of one kind dissolve into the wires that go through them.
#include "orvo/elideunpackpass.h"

#include "orvo/domainedgetree.h"
#include "orvo/unrollpasses.h"
#include "orvo/vectorunrollparts.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/compoundtypeinfo.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>
#include <orvo/workqueue.h>

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(
    ElideUnpackPass,
    "Where a pack of a vector, a complex number or a record feeds an unpack of the same kind, the readers of "
    "the unpack read what went into the pack, through a cast where the pack has brought that to another type. The pack "
    "goes, too, when nothing else reads it.",
    {{"P_IGNORE_METADATA", nullptr,
      "A_TRUE also takes out pairs whose metadata differ; otherwise they stay, so that none are lost."}})

namespace {

/// A pack and the unpack that undoes it, and what the names say of those that are made here. A complex pair names its
/// parts, the others number them.
struct Kind {
    CompoundKind of;
    const StaticString *pack;
    const StaticString *packOut;
    const char *packWord;
    const StaticString *unpack;
    const StaticString *unpackIn;
    const char *unpackWord;
};

constexpr Kind kAggregate{CompoundKind::Aggregate, &A_APACK_BLOCK, &A_APACK_WIRE_OUT, "ap", &A_AUNPACK_BLOCK,
                          &A_AUNPACK_PORT_IN,      "aup"};
constexpr Kind kVector{CompoundKind::Vector, &A_VPACK_BLOCK, &A_VPACK_WIRE_OUT, "vp", &A_VUNPACK_BLOCK,
                       &A_VUNPACK_PORT_IN,   "vup"};
constexpr Kind kComplex{CompoundKind::Complex, &A_CPACK_BLOCK, &A_CPACK_WIRE_OUT, "cp", &A_CUNPACK_BLOCK,
                        &A_CUNPACK_PORT_IN,    "cup"};

const Kind *kindOfPack(const Block &block) {
    for (const Kind *kind : {&kAggregate, &kVector, &kComplex}) {
        if (block.type() == kind->pack->get_ptr()) {
            return kind;
        }
    }
    return nullptr;
}

/// A block of another model that reads the pack by mistake is none of this model's business.
bool isUnpackOf(const Block &reader, const Block &pack, const Kind &kind) {
    return reader.type() == kind.unpack->get_ptr() && &reader.getModel() == &pack.getModel();
}

template <class Condition> bool hasReaderThat(const Block &block, Condition condition) {
    return std::any_of(block.begin(), block.end(), [&](const Wire &wire) {
        const auto &readers = wire.ports();
        return std::any_of(readers.begin(), readers.end(),
                           [&](const Port &reader) { return condition(reader.getBlock()); });
    });
}

bool isReadByUnpack(const Block &pack, const Kind &kind) {
    return hasReaderThat(pack, [&](const Block &reader) { return isUnpackOf(reader, pack, kind); });
}

bool hasPair(const Model &model) {
    return std::any_of(model.begin(), model.end(), [](const Block &block) {
        const Kind *kind = kindOfPack(block);
        return kind != nullptr && isReadByUnpack(block, *kind);
    });
}

/// The port of the pack whose signal leaves the unpack on `wire`; null if the pack has none.
Port *portFor(const Block &pack, const Wire &wire) {
    if (wire.getName() == A_CUNPACK_WIRE_REAL) {
        return pack.getPort(A_CPACK_PORT_REAL);
    }
    if (wire.getName() == A_CUNPACK_WIRE_IMAG) {
        return pack.getPort(A_CPACK_PORT_IMAG);
    }
    return pack.getPort(wire.getName());
}

/// The unpacks that read the pack, in connection order, each once.
std::vector<Block *> unpacksOf(const Block &pack, const Kind &kind) {
    std::vector<Block *> unpacks;
    std::unordered_set<const Block *> known;
    for (const Wire &wire : pack) {
        for (const Port &port : wire.ports()) {
            Block &reader = port.getBlock();
            if (isUnpackOf(reader, pack, kind) && known.insert(&reader).second) {
                unpacks.push_back(&reader);
            }
        }
    }
    return unpacks;
}

/// What drives the readers of the wires of an unpack once the pair is gone: an element may go through it several times
/// before it leaves. Null for one that only feeds itself.
class Sources {
  public:
    Sources(const Block &pack, const Block &unpack) : mPack(pack), mUnpack(unpack) {}

    const Wire *behind(const Wire &wire) {
        std::vector<const Wire *> way;
        const Wire *at = &wire;
        while (at != nullptr && &at->getBlock() == &mUnpack) {
            // Null as long as it is on the way.
            const auto [known, isNew] = mKnown.try_emplace(at, nullptr);
            if (!isNew) {
                at = known->second;
                break;
            }
            way.push_back(at);
            const Port *port = portFor(mPack, *at);
            at = port == nullptr ? nullptr : port->peekWire();
        }
        for (const Wire *passed : way) {
            mKnown[passed] = at;
        }
        return at;
    }

  private:
    const Block &mPack;
    const Block &mUnpack;
    std::unordered_map<const Wire *, const Wire *> mKnown;
};

/// The blocks that drive the readers of an unpack once it is gone.
std::vector<Block *> driversBehind(const Block &unpack, Sources &sources) {
    std::vector<Block *> drivers;
    std::unordered_set<const Block *> known;
    for (const Wire &wire : unpack) {
        const Wire *source = wire.port_size() == 0 ? nullptr : sources.behind(wire);
        if (source != nullptr && known.insert(&source->getBlock()).second) {
            drivers.push_back(&source->getBlock());
        }
    }
    return drivers;
}

/// What a block that goes carried is on each of the others.
void handOver(const Block &gone, const std::vector<Block *> &survivors) {
    const PureTupleValueRef entries = MetadataManipulator(const_cast<Block &>(gone)).getTuple();
    for (Block *survivor : survivors) {
        if (survivor != &gone) {
            MetadataManipulator(*survivor).appendFrom(entries, true);
        }
    }
}

const Kind &kindOf(const CompoundTypeInfo &shape) {
    return shape.topLevelIsAggregate() ? kAggregate : shape.topLevelIsVector() ? kVector : kComplex;
}

PureValueRef elementOf(const PureValueRef &type, const Kind &kind, int element) {
    PureValueRef inner;
    switch (kind.of) {
    case CompoundKind::Aggregate:
        return AggregateTypeSpec(type).at(static_cast<std::size_t>(element));
    case CompoundKind::Vector:
        return internal::belowOutermost(type, type->context());
    case CompoundKind::Complex:
        break;
    }
    const ComplexDecorSpec parts(type, inner, type->context());
    return inner;
}

/// A scalar may serve all lanes.
bool isSpread(const CompoundTypeInfo &from, const CompoundTypeInfo &to) {
    return to.topLevelIsVector() && !from.topLevelIsVector() && !from.topLevelIsAggregate();
}

bool canConvert(const PureValueRef &from, const PureValueRef &to) {
    if (from == to) {
        return true;
    }
    const CompoundTypeInfo source = CompoundTypeInfo::createFromValue(from);
    const CompoundTypeInfo wanted = CompoundTypeInfo::createFromValue(to);
    if (!source.valid() && !wanted.valid()) {
        const NumTypeSpec a(from, from->context());
        const NumTypeSpec b(to, to->context());
        return (a.isFixed() && b.isFixed()) || (a.isFloat() && b.isFloat());
    }
    if (isSpread(source, wanted)) {
        return canConvert(from, elementOf(to, kindOf(wanted), 0));
    }
    if (!source.valid() || !wanted.valid() || kindOf(source).of != kindOf(wanted).of ||
        source.size_shallow() != wanted.size_shallow()) {
        return false;
    }
    const Kind &kind = kindOf(wanted);
    const int elements = kind.of == CompoundKind::Aggregate ? static_cast<int>(wanted.size_shallow()) : 1;
    for (int i = 0; i < elements; ++i) {
        if (!canConvert(elementOf(from, kind, i), elementOf(to, kind, i))) {
            return false;
        }
    }
    return true;
}

/// The edges of domains at a pair. The pack, what it drives and the unpack lie in one domain each, and in the same as
/// far as no edge keeps them apart: what an edge says of one lane holds for the others, too.
class PairDomains {
  public:
    PairDomains(internal::DomainEdgeList &edges, const Kind &kind, const Block &pack, const Block &unpack)
        : mEdges(edges), mPack(pack), mUnpack(unpack) {
        if (!edges.has(pack) && !edges.has(unpack)) {
            return;
        }
        mIsNeeded = true;
        const ValueRef out = edges.find({pack.getName(), false, PureValueRef(*kind.packOut)});
        const ValueRef in = edges.find({unpack.getName(), true, PureValueRef(*kind.unpackIn)});
        const ValueRef begun = beginningAt(pack);
        const ValueRef ended = endingAt(unpack);
        // What follows the pack and what the unpack lies in, unless edges part them.
        const ValueRef behind = in ? (begins(in) ? ValueRef() : in) : ended;
        const ValueRef before = out ? (begins(out) ? out : ValueRef()) : begun;
        mBefore = begun ? begun : out ? (begins(out) ? ValueRef() : out) : behind;
        mBehind = ended ? ended : in ? (begins(in) ? in : ValueRef()) : before;
    }

    /// The lanes that nobody reads: what the edges say of their drivers stays.
    void leaveUnread() {
        if (!mIsNeeded) {
            return;
        }
        std::unordered_set<const Port *> read;
        for (const Wire &wire : mUnpack) {
            if (const Port *port = portFor(mPack, wire)) {
                read.insert(port);
            }
        }
        for (const Port &port : mPack.ports()) {
            if (read.count(&port) == 0) {
                settle(port, nullptr);
            }
        }
    }
    void move(const Wire &wire) {
        if (mIsNeeded) {
            settle(*portFor(mPack, wire), &wire);
        }
    }

  private:
    using Tree = internal::DomainEdgeTree;
    static bool begins(const ValueRef &edge) { return internal::beginsDomain(edge); }

    ValueRef beginningAt(const Block &pack) const {
        for (const Port &port : pack.ports()) {
            if (const ValueRef edge = mEdges.find(internal::placeOf(MaybePort(port))); edge && begins(edge)) {
                return edge;
            }
        }
        return {};
    }
    ValueRef endingAt(const Block &unpack) const {
        for (const Wire &wire : unpack) {
            if (const ValueRef edge = mEdges.find(internal::placeOf(wire)); edge && !begins(edge)) {
                return edge;
            }
        }
        return {};
    }

    void settle(const Port &port, const Wire *wire) {
        const ValueRef first = mEdges.find(internal::placeOf(MaybePort(port)));
        const ValueRef last = wire == nullptr ? ValueRef() : mEdges.find(internal::placeOf(*wire));
        const ValueRef ends = !first ? mBefore : begins(first) ? ValueRef() : first;
        const ValueRef goesOn = !last ? mBehind : begins(last) ? last : ValueRef();
        const Wire &root = *port.peekWire();
        Tree tree(mEdges);
        Tree::Point point = Tree::kNone;
        if (ends) {
            point = tree.add(ends, false, Tree::Sort::Port);
            tree.setRoot(point, root);
        }
        if (goesOn) {
            const Tree::Point behind = tree.add(goesOn, true, Tree::Sort::Wire);
            if (point == Tree::kNone) {
                tree.setRoot(behind, root);
            } else {
                tree.setAbove(behind, point);
            }
            point = behind;
        }
        if (wire != nullptr && point != Tree::kNone) {
            for (const Port &reader : wire->ports()) {
                tree.addReader(MaybePort(reader), point);
            }
        }
        tree.settle();
    }

    internal::DomainEdgeList &mEdges;
    const Block &mPack;
    const Block &mUnpack;
    bool mIsNeeded = false;
    /// What the pack and the unpack lie in, by an edge; null if none tells.
    ValueRef mBefore;
    ValueRef mBehind;
};

/// By instance; null where a type is unknown.
using Types = std::vector<PureValueRef>;

Types elementsOf(const Types &types, const Kind &kind, int element) {
    Types elements = types;
    std::transform(types.begin(), types.end(), elements.begin(),
                   [&](const PureValueRef &type) { return elementOf(type, kind, element); });
    return elements;
}

/// False for an unknown type.
bool isFormat(const PureValueRef &type, const NumTypeSpec &format) {
    return type && NumTypeSpec(type, type->context()) == format;
}

/// Whether one block for all instances leaves the floats of each as the pair does: a cast flushes subnormals and
/// alters NaNs, so it may not stand where the format of one instance is the wanted one already. All types are of one
/// shape.
bool keepsFloats(const Types &from, const PureValueRef &to) {
    const CompoundTypeInfo wanted = CompoundTypeInfo::createFromValue(to);
    if (!wanted.valid()) {
        const NumTypeSpec format(to, to->context());
        const auto isWanted = [&](const PureValueRef &type) { return isFormat(type, format); };
        return !format.isFloat() || std::all_of(from.begin(), from.end(), isWanted) ||
               std::none_of(from.begin(), from.end(), isWanted);
    }
    const Kind &kind = kindOf(wanted);
    const bool spreads = isSpread(CompoundTypeInfo::createFromValue(from.front()), wanted);
    const int elements = kind.of == CompoundKind::Aggregate ? static_cast<int>(wanted.size_shallow()) : 1;
    for (int i = 0; i < elements; ++i) {
        if (!keepsFloats(spreads ? from : elementsOf(from, kind, i), elementOf(to, kind, i))) {
            return false;
        }
    }
    return true;
}

/// The pairs of one model.
class Elision {
  public:
    Elision(Model &model, const std::vector<RefChain> &instances, GlobalTypePass &types, bool ignoreMetadata)
        : mQueue(model), mInstances(instances), mTypes(types), mIgnoreMetadata(ignoreMetadata), mEdges(model) {}

    void run() {
        while (mQueue.next()) {
            if (const Kind *kind = kindOfPack(*mQueue.block()); kind != nullptr) {
                elide(*kind);
            }
        }
    }

  private:
    /// A wire of an unpack, and the type that its readers read if what went into the pack has another.
    struct Way {
        Wire *wire;
        PureValueRef type;
    };

    void elide(const Kind &kind);
    std::optional<std::vector<Way>> waysThrough(const Block &pack, Block &unpack, Sources &sources) const;
    Types typesOf(const Wire &wire) const;
    std::optional<PureValueRef> conversion(const Types &from, const Types &to) const;
    Wire &converted(const Block &beside, std::vector<PureValueRef> &name, Wire &wire, const Types &from,
                    const PureValueRef &to);
    Wire &takeThrough(const Block &pack, const Way &way);

    WorkQueue mQueue;
    const std::vector<RefChain> &mInstances;
    GlobalTypePass &mTypes;
    const bool mIgnoreMetadata;
    internal::DomainEdgeList mEdges;
    /// Of wires that this has made, which the inference has not seen.
    std::unordered_map<const Wire *, Types> mMade;
};

Types Elision::typesOf(const Wire &wire) const {
    if (const auto made = mMade.find(&wire); made != mMade.end()) {
        return made->second;
    }
    Types types;
    for (const RefChain &instance : mInstances) {
        types.push_back(mTypes.getType(wire, instance));
    }
    return types;
}

/// Null for none; nothing if no block can do it in all instances.
std::optional<PureValueRef> Elision::conversion(const Types &from, const Types &to) const {
    const auto differ = [](const PureValueRef &a, const PureValueRef &b) { return a && b && !(a == b); };
    bool anyDiffers = false;
    for (std::size_t i = 0; i < from.size(); ++i) {
        anyDiffers = anyDiffers || differ(from[i], to[i]);
    }
    if (!anyDiffers) {
        return PureValueRef();
    }
    for (std::size_t i = 0; i < from.size(); ++i) {
        const bool isLikeOthers = from[i] && to[i] && to[i] == to.front() && canConvert(from[i], from.front()) &&
                                  canConvert(from.front(), from[i]);
        if (!isLikeOthers || !canConvert(from[i], to.front())) {
            return std::nullopt;
        }
    }
    return keepsFloats(from, to.front()) ? std::optional(to.front()) : std::nullopt;
}

/// All that readers read; nothing if the pair has to stay.
std::optional<std::vector<Elision::Way>> Elision::waysThrough(const Block &pack, Block &unpack,
                                                              Sources &sources) const {
    std::vector<Way> ways;
    const bool packStays = hasReaderThat(pack, [&](const Block &reader) { return &reader != &unpack; });
    for (Wire &wire : unpack) {
        const Port *port = portFor(pack, wire);
        const bool isRead = wire.port_size() != 0;
        const std::optional<PureValueRef> type =
            port != nullptr && isRead ? conversion(typesOf(*port->peekWire()), typesOf(wire)) : PureValueRef();
        const bool isMissed = packStays || std::any_of(wire.ports().begin(), wire.ports().end(),
                                                       [&](const Port &reader) { return &reader.getBlock() != &pack; });
        if (isRead && (port == nullptr || !type || (isMissed && sources.behind(wire) == nullptr))) {
            return std::nullopt;
        }
        if (port != nullptr) {
            ways.push_back({&wire, *type});
        }
    }
    return ways;
}

/// Compound signals are brought to a type part by part: whatever has taken them apart before need not come again.
Wire &Elision::converted(const Block &beside, std::vector<PureValueRef> &name, Wire &wire, const Types &from,
                         const PureValueRef &to) {
    if (std::all_of(from.begin(), from.end(), [&](const PureValueRef &type) { return type == to; })) {
        return wire;
    }
    Context *context = to->context();
    const auto nameOf = [&](const char *word) {
        std::vector<PureValueRef> elements = name;
        elements.insert(elements.begin() + 1, StringValue::get(word, context));
        return PureTupleValue::get(elements, context);
    };
    const auto note = [&](Wire &made, const Types &types) -> Wire & {
        mMade[&made] = types;
        return made;
    };
    const Types whole(from.size(), to);
    const CompoundTypeInfo shape = CompoundTypeInfo::createFromValue(to);
    if (!shape.valid()) {
        const NumTypeSpec wanted(to, context);
        const PureValueRef written(wanted.toValue(context));
        Wire *made = &wire;
        if (!std::all_of(from.begin(), from.end(), [&](const PureValueRef &type) { return isFormat(type, wanted); })) {
            made = &internal::widened(beside, nameOf("unpackCast"), wire, to);
        }
        // A cast gives the type as that is written today.
        if (made == &wire || !(to == written)) {
            made = &internal::rewritten(beside, nameOf("unpackPin"), *made, to);
        }
        return note(*made, whole);
    }
    const Kind &kind = kindOf(shape);
    const bool isComplex = kind.of == CompoundKind::Complex;
    Block *unpack = nullptr;
    if (!isSpread(CompoundTypeInfo::createFromValue(from.front()), shape)) {
        unpack = &internal::createBeside(beside, nameOf(kind.unpackWord), *kind.unpack);
        unpack->setParam(*kind.unpackIn, wire);
    }
    Block &pack = internal::createBeside(beside, nameOf(kind.packWord), *kind.pack);
    for (int i = 0; i < static_cast<int>(shape.size_shallow()); ++i) {
        const PureValueRef number = NumberValue::get(i, context);
        Wire *element = &wire;
        const Types types = unpack != nullptr ? elementsOf(from, kind, i) : from;
        if (unpack != nullptr) {
            const PureValueRef &part = i == 0 ? A_CUNPACK_WIRE_REAL : A_CUNPACK_WIRE_IMAG;
            element = &note(*Wire::create(*unpack, isComplex ? part : number), types);
        }
        name.push_back(number);
        const PureValueRef &part = i == 0 ? A_CPACK_PORT_REAL : A_CPACK_PORT_IMAG;
        pack.setParam(isComplex ? part : number, converted(beside, name, *element, types, elementOf(to, kind, i)));
        name.pop_back();
    }
    mQueue.enqueue(pack);
    return note(*Wire::create(pack, *kind.packOut), whole);
}

/// What may have changed meanwhile: an element may go through the pair several times before it leaves.
Wire &Elision::takeThrough(const Block &pack, const Way &way) {
    Wire &source = *portFor(pack, *way.wire)->getWire();
    if (!way.type) {
        return source;
    }
    const Block &unpack = way.wire->getBlock();
    std::vector<PureValueRef> name{PureTupleValue::get(unpack.getName(), way.wire->getName(), unpack.getContext())};
    return converted(unpack, name, source, typesOf(source), way.type);
}

/// Takes out the unpacks behind a pack, and the pack if nothing reads it then. Packs that another look may now take out
/// are enqueued.
void Elision::elide(const Kind &kind) {
    Block &pack = *mQueue.block();
    bool elided = false;
    for (Block *unpack : unpacksOf(pack, kind)) {
        const bool metadataAgree =
            mIgnoreMetadata || MetadataManipulator(pack).getTuple() == MetadataManipulator(*unpack).getTuple();
        Sources sources(pack, *unpack);
        const auto ways = metadataAgree ? waysThrough(pack, *unpack, sources) : std::nullopt;
        if (!ways) {
            continue;
        }
        const std::vector<Block *> drivers = driversBehind(*unpack, sources);
        PairDomains domains(mEdges, kind, pack, *unpack);
        domains.leaveUnread();
        for (const Way &way : *ways) {
            domains.move(*way.wire);
            way.wire->replace(takeThrough(pack, way));
        }
        // What an unpack carried that nobody reads, the pack hands on, should it go as well.
        handOver(*unpack, drivers.empty() ? std::vector<Block *>{&pack} : drivers);
        mEdges.remove(*unpack);
        delete unpack;
        elided = true;
        for (Block *driver : drivers) {
            if (kindOfPack(*driver) != nullptr) {
                mQueue.enqueue(*driver);
            }
        }
    }
    if (elided && !pack.hasReader()) {
        std::vector<Block *> drivers;
        for (const Port &port : pack.ports()) {
            drivers.push_back(&port.peekWire()->getBlock());
        }
        handOver(pack, drivers);
        mEdges.remove(pack);
        mQueue.deleteBlock();
    }
}

} // namespace

bool ElideUnpackPass::useMetadataTransferListener() const { return false; }

void ElideUnpackPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

/// All questions about types before the first edit, so that they are inferred once; none where there is no pair.
void ElideUnpackPass::before(PassContext &context) {
    GlobalTypePass &types = internal::unrolledTypes(context);
    internal::DistinctInstances distinct(internal::unrolledTree(context), types);
    for (Model &model : context.getDesign()) {
        if (!hasPair(model)) {
            continue;
        }
        const auto &instances = mInstances.emplace(&model, distinct.of(model)).first->second;
        const auto pack = std::find_if(model.begin(), model.end(), [](const Block &block) {
            return kindOfPack(block) != nullptr && block.getWireCount() != 0;
        });
        for (const RefChain &instance : instances) {
            types.getType(*pack->begin(), instance);
        }
    }
    types.freeze();
}

void ElideUnpackPass::apply(ModelPassContext &context) {
    const auto instances = mInstances.find(&context.getModel());
    if (instances == mInstances.end()) {
        return;
    }
    const bool ignoreMetadata = context.getParam(this, "P_IGNORE_METADATA") == A_TRUE;
    Elision(context.getModel(), instances->second, internal::unrolledTypes(context), ignoreMetadata).run();
}

void ElideUnpackPass::after(PassContext &context) {
    mInstances.clear();
    internal::unrolledTypes(context).thaw();
}

} // namespace orvo
