// The edges of domains on the ways of signals, when what stood on these ways goes.
#pragma once

#include "orvo/domainedges.h"

#include <orvo/compoundportcorrespondence.h>

#include <cstddef>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo::internal {

/// The points of ways at which edges of domains stood, each behind another one or behind the wire at the root, and the
/// ports that read the ends of the ways, which have come to read the root. Puts edges at what lasts so that domains
/// stay as far apart as they were and reach as far.
///
/// A domain that begins at a point begins at the ports behind it. One that ends there holds for the net before it: it
/// now ends at the wire of the root, which it then cuts off from all its readers, so that those that are not behind the
/// point get begins. Of several points on the way to a port the nearest counts for the port and the first for the root,
/// and an edge of its own before all.
class DomainEdgeTree {
  public:
    enum class Sort {
        /// Like a port: what stood between it and the next point lay in one domain.
        Port,
        /// Like a wire: each of its readers may lie in a domain of its own.
        Wire,
        /// A wire of a block that did not hand on domains: an end there is the root's if no other is.
        Loose
    };
    using Point = std::size_t;
    static constexpr Point kNone = static_cast<Point>(-1);

    explicit DomainEdgeTree(DomainEdgeList &edges) : mEdges(edges) {}

    /// Has the domain of the edge begin or end at the new point. Of two that end on one net the one added first counts.
    Point add(const ValueRef &edge, bool begins, Sort sort);
    void setAbove(Point point, Point above) { mPoints[point].above = above; }
    /// A point without is behind nothing, and its edge goes.
    void setRoot(Point point, const Wire &root) { mPoints[point].root = &root; }
    /// A port counts for the first point that it is added to.
    void addReader(const MaybePort &port, Point behind);
    /// A block that reads a root and goes, too.
    void leaveOut(const Block &block) { mLeftOut.insert(&block); }
    /// When all ports read the roots. Inputs and outputs of a model go when it is dissolved, and nothing may stand at
    /// them then: what would have to stands at the blocks that instantiate the model.
    void settle();
    /// With the lists of other models.
    void settle(DomainEdgeLists &lists);

  private:
    struct Entry {
        ValueRef edge;
        bool begins;
        Sort sort;
        Point above = kNone;
        const Wire *root = nullptr;
        std::vector<MaybePort> readers;
        /// What ends on the net behind it.
        Point flood = kNone;
    };

    const Wire *rootOf(Point point);
    void findFloods();
    void findFlood(Point point);
    bool isFree(const MaybePort &port) const;
    void put(Point point, bool begins, const DomainEdgePlace &place);
    void putAll(Point point, bool begins, const std::vector<MaybePort> &ports);
    std::vector<MaybePort> others(const Wire &root) const;
    void floodRoot(const Wire &root, Point flood);
    void settleReaders(Point point);
    void moveOutward(const DomainEdgePlace &place, DomainEdgeLists &lists);

    DomainEdgeList &mEdges;
    std::vector<Entry> mPoints;
    std::map<std::pair<const Block *, const Value *>, Point> mBehind;
    std::set<const Block *> mLeftOut;
    /// What ends on the nets of roots.
    std::vector<std::pair<const Wire *, Point>> mRootFloods;
    std::set<const Wire *> mFlooded;
    std::vector<DomainEdgePlace> mPlaces;
};

DomainEdgePlace placeOf(const MaybePort &port);
DomainEdgePlace placeOf(const Wire &wire);

/// Takes the edges of a block that goes and that nobody reads: what they say of its drivers stays.
void leaveDomainsToDrivers(DomainEdgeList &edges, const Block &block);

} // namespace orvo::internal
