// Blocks that are gone form trees, by what fed them. The edges cut the trees into segments; all of a segment has become
// one net with the wire at the root, on which the ports of the segments are to stay as far apart as they were.
#include "orvo/elideddomainedges.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <cstddef>
#include <map>

namespace orvo::internal {

namespace {

using Gone = ElidedDomainEdges::Gone;

bool isOfType(const Block &block, const StaticString &type) { return block.type() == type.get_ptr(); }

/// Where an edge would be in the way of flattening.
bool isAtEdge(const Block &block) {
    return isOfType(block, A_INPUT_BLOCK) || isOfType(block, A_OUTPUT_BLOCK) || isOfType(block, A_MODEL_BLOCK);
}

DomainEdgePlace placeOf(const MaybePort &port) { return {port.getBlock().getName(), true, port.getKey()}; }
DomainEdgePlace placeOf(const Wire &wire) { return {wire.getBlock().getName(), false, wire.getName()}; }
DomainEdgePlace endOfGoto(const PureValueRef &name) { return {name, true, PureValueRef(A_GOTO_PORT_IN)}; }
DomainEdgePlace endOfFrom(const PureValueRef &name) { return {name, false, PureValueRef(A_FROM_WIRE_OUT)}; }

/// The edges of one model on their way.
class EdgeMover {
  public:
    EdgeMover(Model &model, const ElidedDomainEdges::OfModel &of) : mModel(model), mOf(of) { readEdges(); }

    void move() {
        if (mEdged.empty()) {
            return;
        }
        for (const ElidedDomainEdges::Reader &reader : mOf.readers) {
            const Gone *top = nearestEdge(find(reader.behind));
            mTops.emplace(std::pair(&reader.port.getBlock(), reader.port.getKey().get_ptr()), top);
            if (top != nullptr) {
                mSegments[top].push_back(reader.port);
            }
        }
        findFloods();
        for (const auto &[wire, flood] : mRootFloods) {
            floodRoot(*wire, *flood);
        }
        for (const Gone *top : mOrder) {
            settleSegment(*top);
        }
        write();
    }

  private:
    struct Edge {
        ValueRef value;
        bool goes = false;
        std::vector<ValueRef> instead;
    };

    static bool isBegin(const ValueRef &edge) { return asTuple(edge.get_ptr())->at(0) == A_SCHEDULE_DOMAIN_BEGIN; }
    static bool isGoto(const Gone &gone) { return gone.end.isPort; }

    const Gone *find(const DomainEdgePlace &end) const {
        const auto found = end.block ? mOf.gone.find(end) : mOf.gone.end();
        return found == mOf.gone.end() ? nullptr : &found->second;
    }
    const Gone *above(const Gone &gone) const { return find(gone.above); }

    /// Of several edges at one end a begin stands, then the first.
    void readEdges() {
        for (const ValueRef &value : elementsOf(mModel.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
            const DomainEdgePlace place = placeOfDomainEdge(value);
            const Gone *gone = find(place);
            const bool goes = gone != nullptr;
            if (goes) {
                const auto [at, isNew] = mEdged.try_emplace(gone, mEdges.size());
                if (isNew) {
                    mOrder.push_back(gone);
                } else if (isBegin(value) && !isBegin(mEdges[at->second].value)) {
                    at->second = mEdges.size();
                }
            } else if (place.block) {
                const auto [at, isNew] = mTaken.emplace(place, isBegin(value));
                at->second = at->second || isBegin(value);
            }
            mEdges.push_back({value, goes, {}});
        }
    }

    Edge &edgeOf(const Gone &gone) { return mEdges[mEdged.at(&gone)]; }
    bool begins(const Gone &gone) { return isBegin(edgeOf(gone).value); }

    /// The nearest block with an edge on the way to the root, itself included; null if there is none.
    const Gone *nearestEdge(const Gone *gone) {
        std::vector<const Gone *> way;
        const Gone *found = nullptr;
        for (; gone != nullptr; gone = above(*gone)) {
            if (mEdged.count(gone) != 0) {
                found = gone;
                break;
            }
            if (const auto known = mNearest.find(gone); known != mNearest.end()) {
                found = known->second;
                break;
            }
            way.push_back(gone);
        }
        for (const Gone *passed : way) {
            mNearest.emplace(passed, found);
        }
        return found;
    }
    /// The wire that everything behind the block reads.
    const Wire *rootOf(const Gone &gone) {
        std::vector<const Gone *> way;
        const Gone *at = &gone;
        const Wire *root = nullptr;
        while (root == nullptr) {
            const auto known = mRoots.find(at);
            const Gone *next = above(*at);
            root = known != mRoots.end() ? known->second : next == nullptr ? at->wire : nullptr;
            way.push_back(at);
            at = next;
        }
        for (const Gone *passed : way) {
            mRoots.emplace(passed, root);
        }
        return root;
    }

    /// The domain that ends at a Goto holds on all of the net that this read, up to the next edge. So does one that
    /// ends at a From: the net before that is the driver's.
    void findFloods() {
        for (const bool ofGotos : {true, false}) {
            for (const Gone *gone : mOrder) {
                if (begins(*gone) || isGoto(*gone) != ofGotos) {
                    continue;
                }
                const Gone *before = above(*gone);
                const Gone *top = before == nullptr ? nullptr : nearestEdge(before);
                if (top == nullptr) {
                    const Wire *root = rootOf(*gone);
                    if (mFlooded.insert(root).second) {
                        mRootFloods.emplace_back(root, gone);
                    }
                } else if (isGoto(*top) && ofGotos) {
                    mFloods.emplace(top, gone);
                }
            }
        }
    }

    bool isFree(const MaybePort &port) const { return mTaken.count(placeOf(port)) == 0; }

    void put(Edge &edge, const StaticString &kind, const DomainEdgePlace &place) {
        if (mTaken.emplace(place, kind.get_ptr() == A_SCHEDULE_DOMAIN_BEGIN.get_ptr()).second) {
            const ValueRef domain = asTuple(edge.value.get_ptr())->at(1);
            edge.instead.push_back(domainEdge(PureValueRef(kind), domain, place, mModel.getContext()));
        }
    }
    void putAll(Edge &edge, const StaticString &kind, const std::vector<MaybePort> &ports) {
        for (const MaybePort &port : ports) {
            put(edge, kind, placeOf(port));
        }
    }

    /// The readers of a wire that no edge keeps apart from it.
    std::vector<MaybePort> freeReaders(const Wire &root) const {
        std::vector<MaybePort> free;
        for (const Port &port : root.ports()) {
            const auto top = mTops.find(std::pair(&port.getBlock(), port.getName().get_ptr()));
            if ((top == mTops.end() || top->second == nullptr) && isFree(MaybePort(port))) {
                free.emplace_back(port);
            }
        }
        return free;
    }

    /// Of a segment, what an end at its top keeps apart and nothing else.
    std::vector<MaybePort> keptApart(const Gone &top) const {
        std::vector<MaybePort> ports;
        const auto segment = mSegments.find(&top);
        if (segment == mSegments.end() || mFloods.count(&top) != 0) {
            return ports;
        }
        std::copy_if(segment->second.begin(), segment->second.end(), std::back_inserter(ports),
                     [&](const MaybePort &port) { return isFree(port); });
        return ports;
    }

    void floodRoot(const Wire &root, const Gone &flood) {
        if (mTaken.count(placeOf(root)) != 0) {
            return;
        }
        const auto stands = [](const MaybePort &port) { return isAtEdge(port.getBlock()); };
        const std::vector<MaybePort> others = freeReaders(root);
        std::vector<MaybePort> behind = keptApart(flood);
        behind.erase(std::remove_if(behind.begin(), behind.end(), stands), behind.end());
        Edge &edge = edgeOf(flood);
        const bool isInTheWay = isAtEdge(root.getBlock()) || std::any_of(others.begin(), others.end(), stands);
        if (isInTheWay && !behind.empty()) {
            putAll(edge, A_SCHEDULE_DOMAIN_END, behind);
            return;
        }
        put(edge, A_SCHEDULE_DOMAIN_END, placeOf(root));
        putAll(edge, A_SCHEDULE_DOMAIN_BEGIN, others);
    }

    void settleSegment(const Gone &top) {
        const auto segment = mSegments.find(&top);
        if (segment == mSegments.end()) {
            return;
        }
        Edge &edge = edgeOf(top);
        const Wire &root = *rootOf(top);
        const auto own = mTaken.find(placeOf(root));
        if (const auto flood = mFloods.find(&top); flood != mFloods.end()) {
            putAll(edgeOf(*flood->second), A_SCHEDULE_DOMAIN_BEGIN, segment->second);
        } else if (!isBegin(edge.value)) {
            // A wire where a domain ends keeps its readers apart by itself.
            if (own != mTaken.end() && own->second) {
                putAll(edge, A_SCHEDULE_DOMAIN_END, segment->second);
            }
        } else if (own == mTaken.end() && isBetterAtWire(root, segment->second)) {
            put(edge, A_SCHEDULE_DOMAIN_BEGIN, placeOf(root));
        } else {
            putAll(edge, A_SCHEDULE_DOMAIN_BEGIN, segment->second);
        }
    }

    /// Where a reader is at the edge of a model the wire is as good, if nothing else reads it.
    bool isBetterAtWire(const Wire &root, const std::vector<MaybePort> &segment) const {
        return !isAtEdge(root.getBlock()) && segment.size() == root.port_size() &&
               std::all_of(segment.begin(), segment.end(), [&](const MaybePort &port) { return isFree(port); }) &&
               std::any_of(segment.begin(), segment.end(),
                           [](const MaybePort &port) { return isAtEdge(port.getBlock()); });
    }

    void write() {
        std::vector<ValueRef> values;
        for (Edge &edge : mEdges) {
            if (!edge.goes) {
                values.push_back(edge.value);
            }
            values.insert(values.end(), edge.instead.begin(), edge.instead.end());
        }
        const ValueRef all = values.empty() ? ValueRef() : ValueRef(TupleValue::get(values, mModel.getContext()));
        mModel.setParam(A_SYNTH_SCHEDULE_DOMAINS, all);
    }

    Model &mModel;
    const ElidedDomainEdges::OfModel &mOf;
    std::vector<Edge> mEdges;
    /// The ends that have edges, and whether these begin domains.
    std::map<DomainEdgePlace, bool> mTaken;
    /// By the number of the edge.
    std::unordered_map<const Gone *, std::size_t> mEdged;
    std::vector<const Gone *> mOrder;
    std::unordered_map<const Gone *, const Gone *> mNearest;
    std::unordered_map<const Gone *, const Wire *> mRoots;
    /// The ports by the edge that keeps them apart, null for none.
    std::map<std::pair<const Block *, const Value *>, const Gone *> mTops;
    std::unordered_map<const Gone *, std::vector<MaybePort>> mSegments;
    /// What ends on the net of a segment, and on that of a root.
    std::unordered_map<const Gone *, const Gone *> mFloods;
    std::vector<std::pair<const Wire *, const Gone *>> mRootFloods;
    std::set<const Wire *> mFlooded;
};

} // namespace

ElidedDomainEdges::OfModel *ElidedDomainEdges::of(const Model &model) {
    return model.findParam(A_SYNTH_SCHEDULE_DOMAINS) == nullptr ? nullptr : &mModels[&model];
}

void ElidedDomainEdges::addReader(OfModel &in, const MaybePort &port, const DomainEdgePlace &behind) {
    if (in.known.emplace(&port.getBlock(), port.getKey().get_ptr()).second) {
        in.readers.push_back({port, behind});
    }
}

void ElidedDomainEdges::addGoto(const Block &sender, const Wire &wire) {
    if (OfModel *in = of(sender.getModel())) {
        const bool isFed = isOfType(wire.getBlock(), A_FROM_BLOCK);
        const DomainEdgePlace end = endOfGoto(sender.getName());
        in->gone[end] = {end, isFed ? endOfFrom(wire.getBlock().getName()) : DomainEdgePlace(), &wire};
    }
}

void ElidedDomainEdges::addFrom(const Block &from, const PureValueRef &sender, const Wire &source) {
    OfModel *in = of(from.getModel());
    if (in == nullptr) {
        return;
    }
    const DomainEdgePlace end = endOfFrom(from.getName());
    in->gone[end] = {end, sender ? endOfGoto(sender) : DomainEdgePlace(), &source};
    for (const Port &port : from.getWire(A_FROM_WIRE_OUT)->ports()) {
        // Another From is on its way out, and reads nothing.
        if (!isOfType(port.getBlock(), A_FROM_BLOCK)) {
            addReader(*in, MaybePort(port), end);
        }
    }
}

void ElidedDomainEdges::addRoute(Block &reader, const PureValueRef &key, const PureValueRef &sender) {
    if (OfModel *in = of(reader.getModel())) {
        addReader(*in, MaybePort(reader, key), endOfGoto(sender));
    }
}

void ElidedDomainEdges::addPassage(const Port &port, const std::function<bool(const Block &)> &goes) {
    const Block &block = port.getBlock();
    OfModel *in = of(block.getModel());
    if (in == nullptr) {
        return;
    }
    const Wire &source = *port.peekWire();
    const DomainEdgePlace entry{block.getName(), true, port.getName()};
    in->gone[entry] = {entry, placeOf(source), &source};
    for (const Wire &wire : block) {
        const DomainEdgePlace exit = placeOf(wire);
        in->gone[exit] = {exit, entry, &source};
        for (const Port &reader : wire.ports()) {
            if (!goes(reader.getBlock())) {
                addReader(*in, MaybePort(reader), exit);
            }
        }
    }
}

void ElidedDomainEdges::move(Model &model) const {
    if (const auto in = mModels.find(&model); in != mModels.end()) {
        EdgeMover(model, in->second).move();
    }
}

} // namespace orvo::internal
