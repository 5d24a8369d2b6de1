// Blocks that are gone form trees, by what fed them; all of a tree has become one net with the wire at its root.
#include "orvo/elideddomainedges.h"

#include "orvo/domainedgetree.h"
#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

namespace orvo::internal {

namespace {

using Gone = ElidedDomainEdges::Gone;

bool isOfType(const Block &block, const StaticString &type) { return block.type() == type.get_ptr(); }

DomainEdgePlace endOfGoto(const PureValueRef &name) { return {name, true, PureValueRef(A_GOTO_PORT_IN)}; }
DomainEdgePlace endOfFrom(const PureValueRef &name) { return {name, false, PureValueRef(A_FROM_WIRE_OUT)}; }

/// The edges of one model on their way.
class EdgeMover {
  public:
    EdgeMover(Model &model, const ElidedDomainEdges::OfModel &of, DomainEdgeLists &lists)
        : mModel(model), mOf(of), mLists(lists), mEdges(lists.of(model)), mTree(mEdges) {}

    void move() {
        readEdges();
        for (const DomainEdgePlace &end : mIdle) {
            mEdges.remove(end);
        }
        if (mEdged.empty()) {
            return;
        }
        for (const auto &[gone, point] : mEdged) {
            if (const Gone *next = nearestEdge(above(*gone)); next != nullptr) {
                mTree.setAbove(point, mEdged.at(next));
            } else {
                mTree.setRoot(point, rootOf(*gone));
            }
        }
        for (const ElidedDomainEdges::Reader &reader : mOf.readers) {
            if (const Gone *nearest = nearestEdge(find(reader.behind)); nearest != nullptr) {
                mTree.addReader(reader.port, mEdged.at(nearest));
            }
        }
        mTree.settle(mLists);
        for (const auto &[gone, point] : mEdged) {
            mEdges.remove(gone->end);
        }
    }

  private:
    static bool isGoto(const Gone &gone) { return gone.end.isPort; }

    const Gone *find(const DomainEdgePlace &end) const {
        const auto found = end.block ? mOf.gone.find(end) : mOf.gone.end();
        return found == mOf.gone.end() ? nullptr : &found->second;
    }
    const Gone *above(const Gone &gone) const { return find(gone.above); }

    void readEdges() {
        for (const ValueRef &value : elementsOf(mModel.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
            const DomainEdgePlace place = placeOfDomainEdge(value);
            const Gone *gone = find(place);
            if (gone == nullptr || !isDomainEdge(value) || mEdged.count(gone) != 0) {
                continue;
            }
            const ValueRef edge = mEdges.find(place);
            if (gone->isApart && !beginsDomain(edge)) {
                mIdle.push_back(place);
                continue;
            }
            mEdged.emplace(gone, mTree.add(edge, beginsDomain(edge),
                                           isGoto(*gone) ? DomainEdgeTree::Sort::Port : DomainEdgeTree::Sort::Loose));
        }
    }

    /// What tells the domain behind an end whose own way leads up to `nearest`.
    const Gone *reaching(const Gone &gone, const Gone *nearest) const {
        const bool stops = gone.isApart && nearest != nullptr && beginsDomain(mEdges.find(nearest->end));
        return stops ? nullptr : nearest;
    }
    /// The nearest end with an edge on the way to the root, itself included; null if there is none, or if its domain
    /// begins before an end that it does not reach.
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
        for (auto passed = way.rbegin(); passed != way.rend(); ++passed) {
            found = reaching(**passed, found);
            mNearest.emplace(*passed, found);
        }
        return found;
    }
    /// The wire that everything behind the block reads.
    const Wire &rootOf(const Gone &gone) {
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
        return *root;
    }

    Model &mModel;
    const ElidedDomainEdges::OfModel &mOf;
    DomainEdgeLists &mLists;
    DomainEdgeList &mEdges;
    DomainEdgeTree mTree;
    std::unordered_map<const Gone *, DomainEdgeTree::Point> mEdged;
    /// Those that tell nothing of any other end.
    std::vector<DomainEdgePlace> mIdle;
    std::unordered_map<const Gone *, const Gone *> mNearest;
    std::unordered_map<const Gone *, const Wire *> mRoots;
};

/// The models, each before those that instantiate it, as far as none contains itself.
std::vector<Model *> innermostFirst(Design &design) {
    std::vector<Model *> order;
    std::set<const Model *> known;
    std::vector<std::pair<Model *, bool>> open;
    for (Model &model : design) {
        open.emplace_back(&model, false);
        while (!open.empty()) {
            const auto [at, isDone] = open.back();
            open.pop_back();
            if (isDone) {
                order.push_back(at);
            } else if (known.insert(at).second) {
                open.emplace_back(at, true);
                for (Block *block : at->getParentBlocks()) {
                    open.emplace_back(&block->getModel(), false);
                }
            }
        }
    }
    return {order.rbegin(), order.rend()};
}

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
        const bool isApart = isOfType(block, A_TERMINAL_BLOCK) && wire.getName() != port.getName();
        in->gone[exit] = {exit, entry, &source, isApart};
        for (const Port &reader : wire.ports()) {
            if (!goes(reader.getBlock())) {
                addReader(*in, MaybePort(reader), exit);
            }
        }
    }
}

void ElidedDomainEdges::move(Design &design) const {
    if (mModels.empty()) {
        return;
    }
    DomainEdgeLists lists;
    for (Model *model : innermostFirst(design)) {
        if (const auto in = mModels.find(model); in != mModels.end()) {
            EdgeMover(*model, in->second, lists).move();
        }
    }
}

void ElidedDomainEdges::move(Model &model) const {
    if (const auto in = mModels.find(&model); in != mModels.end()) {
        DomainEdgeLists lists;
        EdgeMover(model, in->second, lists).move();
    }
}

} // namespace orvo::internal
