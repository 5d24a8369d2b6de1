// All of a tree becomes one net with the wire at the root. The points cut it into segments, the ports behind each of
// them, which are to stay as far apart as they were.
#include "orvo/domainedgetree.h"

#include <orvo/block.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <list>

namespace orvo::internal {

namespace {

bool isOfType(const Block &block, const StaticString &type) { return block.type() == type.get_ptr(); }

} // namespace

DomainEdgePlace placeOf(const MaybePort &port) { return {port.getBlock().getName(), true, port.getKey()}; }

DomainEdgePlace placeOf(const Wire &wire) { return {wire.getBlock().getName(), false, wire.getName()}; }

DomainEdgeTree::Point DomainEdgeTree::add(const ValueRef &edge, bool begins, Sort sort) {
    mPoints.push_back({edge, begins, sort, kNone, nullptr, {}, kNone});
    return mPoints.size() - 1;
}

void DomainEdgeTree::addReader(const MaybePort &port, Point behind) {
    if (mBehind.emplace(std::pair(&port.getBlock(), port.getKey().get_ptr()), behind).second) {
        mPoints[behind].readers.push_back(port);
    }
}

void DomainEdgeTree::settle() {
    DomainEdgeLists lists;
    settle(lists);
}

void DomainEdgeTree::settle(DomainEdgeLists &lists) {
    findFloods();
    for (const auto &[root, flood] : mRootFloods) {
        floodRoot(*root, flood);
    }
    for (Point point = 0; point < mPoints.size(); ++point) {
        settleReaders(point);
    }
    for (const DomainEdgePlace &place : mPlaces) {
        moveOutward(place, lists);
    }
}

void DomainEdgeTree::moveOutward(const DomainEdgePlace &place, DomainEdgeLists &lists) {
    Model &model = mEdges.model();
    const std::list<Block *> &parents = model.getParentBlocks();
    if (parents.empty() || !isOfType(*model.getBlock(place.block), place.isPort ? A_OUTPUT_BLOCK : A_INPUT_BLOCK)) {
        return;
    }
    const ValueRef edge = mEdges.find(place);
    for (Block *parent : parents) {
        const DomainEdgePlace above{parent->getName(), !place.isPort, place.key};
        if (above.stands(parent->getModel())) {
            DomainEdgeList &list = &parent->getModel() == &model ? mEdges : lists.of(parent->getModel());
            list.copy(edge, above);
        }
    }
    mEdges.remove(place);
}

/// Each point on the way remembers it, so that all ways together are walked once.
const Wire *DomainEdgeTree::rootOf(Point point) {
    std::vector<Point> way;
    // Points may form a ring, which nothing drives.
    while (mPoints[point].root == nullptr && mPoints[point].above != kNone && way.size() <= mPoints.size()) {
        way.push_back(point);
        point = mPoints[point].above;
    }
    const Wire *root = mPoints[point].root;
    for (const Point passed : way) {
        mPoints[passed].root = root;
    }
    return root;
}

void DomainEdgeTree::findFloods() {
    for (const bool loose : {false, true}) {
        for (Point point = 0; point < mPoints.size(); ++point) {
            if (!mPoints[point].begins && (mPoints[point].sort == Sort::Loose) == loose) {
                findFlood(point);
            }
        }
    }
}

/// The domain that ends at a point holds on all of the net before it, up to the next point.
void DomainEdgeTree::findFlood(Point point) {
    const Entry &entry = mPoints[point];
    if (entry.above == kNone) {
        const Wire *root = rootOf(point);
        if (root != nullptr && mFlooded.insert(root).second) {
            mRootFloods.emplace_back(root, point);
        }
    } else if (Entry &above = mPoints[entry.above];
               above.sort == Sort::Port && entry.sort != Sort::Loose && above.flood == kNone) {
        above.flood = point;
    }
}

bool DomainEdgeTree::isFree(const MaybePort &port) const { return !mEdges.find(placeOf(port)); }

void DomainEdgeTree::put(Point point, bool begins, const DomainEdgePlace &place) {
    if (mEdges.put(mPoints[point].edge, begins, place)) {
        mPlaces.push_back(place);
    }
}

void DomainEdgeTree::putAll(Point point, bool begins, const std::vector<MaybePort> &ports) {
    for (const MaybePort &port : ports) {
        put(point, begins, placeOf(port));
    }
}

/// The readers of a wire that no point keeps apart from it.
std::vector<MaybePort> DomainEdgeTree::others(const Wire &root) const {
    std::vector<MaybePort> ports;
    for (const Port &port : root.ports()) {
        if (mBehind.count(std::pair(&port.getBlock(), port.getName().get_ptr())) == 0 &&
            mLeftOut.count(&port.getBlock()) == 0 && isFree(MaybePort(port))) {
            ports.emplace_back(port);
        }
    }
    return ports;
}

void DomainEdgeTree::floodRoot(const Wire &root, Point flood) {
    if (!mEdges.find(placeOf(root))) {
        const std::vector<MaybePort> apart = others(root);
        put(flood, false, placeOf(root));
        putAll(flood, true, apart);
    }
}

void DomainEdgeTree::settleReaders(Point point) {
    const Entry &entry = mPoints[point];
    if (entry.readers.empty() || rootOf(point) == nullptr) {
        return;
    }
    const ValueRef own = mEdges.find(placeOf(*rootOf(point)));
    if (entry.flood != kNone) {
        putAll(entry.flood, true, entry.readers);
    } else if (!entry.begins) {
        // A wire where a domain ends keeps its readers apart by itself.
        if (own && beginsDomain(own)) {
            putAll(point, false, entry.readers);
        }
    } else {
        for (const MaybePort &port : entry.readers) {
            // What ended at the port ended behind the point, and must not reach the root now.
            if (const ValueRef edge = mEdges.find(placeOf(port)); edge && !own && !beginsDomain(edge)) {
                mEdges.remove(placeOf(port));
            } else {
                put(point, true, placeOf(port));
            }
        }
    }
}

void leaveDomainsToDrivers(DomainEdgeList &edges, const Block &block) {
    if (!edges.has(block)) {
        return;
    }
    std::vector<std::pair<ValueRef, const Wire *>> ends;
    ValueRef inside;
    for (const Wire &wire : block) {
        if (const ValueRef edge = edges.find(placeOf(wire)); edge && !beginsDomain(edge) && !inside) {
            inside = edge;
        }
    }
    for (const Port &port : block.ports()) {
        const ValueRef edge = edges.find(placeOf(MaybePort(port)));
        if (edge && beginsDomain(edge) && !inside) {
            inside = edge;
        } else if (edge && !beginsDomain(edge)) {
            ends.emplace_back(edge, port.peekWire());
        }
    }
    for (const Port &port : block.ports()) {
        if (inside && !edges.find(placeOf(MaybePort(port)))) {
            ends.emplace_back(inside, port.peekWire());
        }
    }
    DomainEdgeTree tree(edges);
    tree.leaveOut(block);
    for (const auto &[edge, driver] : ends) {
        if (&driver->getBlock() != &block) {
            tree.setRoot(tree.add(edge, false, DomainEdgeTree::Sort::Port), *driver);
        }
    }
    tree.settle();
    edges.remove(block);
}

} // namespace orvo::internal
