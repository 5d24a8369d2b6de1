// The ways of signals through what dissolves are walked from their readers towards what drives them.
#include "orvo/flattensignposts.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <map>
#include <tuple>

namespace orvo::internal {

bool FlattenedSignposts::At::operator<(const At &other) const {
    return std::tie(block, isPort, key) < std::tie(other.block, other.isPort, other.key);
}

/// Only for lookups.
class FlattenedSignposts::Ways {
  public:
    Ways(const FlattenedSignposts &of, const std::vector<Block *> &dissolved,
         const std::function<const Wire *(const Wire &)> &carried)
        : mOf(of), mDissolved(dissolved.begin(), dissolved.end()), mCarried(carried) {
        for (const WayIn &way : of.mWaysIn) {
            mOuter.emplace(At{&way.port.getBlock(), true, way.port.getKey()}, way.from);
        }
    }
    bool isDissolved(const Block &block) const { return mDissolved.count(&block) != 0; }
    void addPoint(const At &at, DomainEdgeTree::Point point) { mPoints.emplace(at, point); }
    const std::map<At, DomainEdgeTree::Point> &points() const { return mPoints; }

    /// Before the place itself.
    Nearest before(At at) {
        std::vector<At> way;
        Nearest found;
        for (bool isOpen = step(at, found); isOpen; isOpen = step(at, found)) {
            if (const auto point = mPoints.find(at); point != mPoints.end()) {
                found = {point->second, nullptr};
                break;
            }
            // A ring of ways through has no driver.
            const auto [known, isNew] = mKnown.try_emplace(at);
            if (!isNew) {
                found = known->second;
                break;
            }
            way.push_back(at);
        }
        for (const At &passed : way) {
            mKnown[passed] = found;
        }
        return found;
    }

  private:
    /// False at the end, with the root if there is one.
    bool step(At &at, Nearest &found) const {
        const Wire *wire = nullptr;
        if (at.isPort) {
            if (const auto outer = mOuter.find(at); outer != mOuter.end()) {
                at = outer->second;
                return true;
            }
            const Port *port = at.block->getPort(at.key);
            wire = port == nullptr ? nullptr : port->peekWire();
        } else {
            const Wire &own = *at.block->getWire(at.key);
            if (const auto through = mOf.mThrough.find(&own); through != mOf.mThrough.end()) {
                at = {at.block, true, through->second};
                return true;
            }
            wire = mCarried(own);
        }
        if (wire == nullptr || !isDissolved(wire->getBlock())) {
            found.root = wire;
            return false;
        }
        at = {&wire->getBlock(), false, wire->getName()};
        return true;
    }

    const FlattenedSignposts &mOf;
    std::unordered_set<const Block *> mDissolved;
    const std::function<const Wire *(const Wire &)> &mCarried;
    std::map<At, At> mOuter;
    std::map<At, DomainEdgeTree::Point> mPoints;
    std::map<At, Nearest> mKnown;
};

void FlattenedSignposts::note(const Model &model) {
    for (const ValueRef &entry : elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
        const DomainEdgePlace place = placeOfDomainEdge(entry);
        const Block *block = place.block ? model.getBlock(place.block) : nullptr;
        mAnyAtInstance = mAnyAtInstance || (block != nullptr && block->type() == A_MODEL_BLOCK.get_ptr());
    }
}

void FlattenedSignposts::open(Model &model) {
    mModel = &model;
    mEntries = elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS));
    mStood.clear();
    for (const ValueRef &entry : mEntries) {
        mStood.push_back(placeOfDomainEdge(entry).stands(model));
    }
}

void FlattenedSignposts::addWayIn(Block &copy, const PureValueRef &port, const Block &instance,
                                  const PureValueRef &key) {
    mWaysIn.push_back({MaybePort(copy, port), {&instance, true, key}});
}

void FlattenedSignposts::gather(const std::vector<Block *> &dissolved,
                                const std::function<const Wire *(const Wire &)> &carried) {
    if (!mAnyAtInstance) {
        return;
    }
    Ways ways(*this, dissolved, carried);
    // All that stands now is in the list, which knows each end by its name.
    dropStale();
    mList = std::make_unique<DomainEdgeList>(*mModel);
    mTree = std::make_unique<DomainEdgeTree>(*mList);
    for (const ValueRef &entry : mEntries) {
        const DomainEdgePlace place = placeOfDomainEdge(entry);
        const Block *block = place.block ? mModel->getBlock(place.block) : nullptr;
        if (block == nullptr || !ways.isDissolved(*block) || !isDomainEdge(entry) || !place.stands(*mModel)) {
            continue;
        }
        const At at{block, place.isPort, place.key};
        if (ways.points().count(at) == 0) {
            const ValueRef edge = mList->find(place);
            ways.addPoint(at, mTree->add(edge, beginsDomain(edge),
                                         place.isPort ? DomainEdgeTree::Sort::Port : DomainEdgeTree::Sort::Wire));
            mGone.push_back(place);
        }
    }
    for (const auto &[at, point] : ways.points()) {
        const Nearest above = ways.before(at);
        if (above.point != DomainEdgeTree::kNone) {
            mTree->setAbove(point, above.point);
        } else if (above.root != nullptr) {
            mTree->setRoot(point, *above.root);
        }
    }
    const auto addReader = [&](const MaybePort &port) {
        if (ways.isDissolved(port.getBlock())) {
            return;
        }
        const Nearest behind = ways.before({&port.getBlock(), true, port.getKey()});
        if (behind.point != DomainEdgeTree::kNone) {
            mTree->addReader(port, behind.point);
        }
    };
    for (const WayIn &way : mWaysIn) {
        addReader(way.port);
    }
    for (const Block *block : dissolved) {
        for (const Wire &wire : *block) {
            for (const Port &port : wire.ports()) {
                addReader(MaybePort(port));
            }
        }
    }
}

/// An edge at a port that nothing drives any more, or at a block that is gone, marks nothing; but what was wrong before
/// is for others to report.
void FlattenedSignposts::dropStale() {
    const std::size_t count = mEntries.size();
    std::vector<ValueRef> kept;
    std::vector<bool> stood;
    for (std::size_t i = 0; i < mEntries.size(); ++i) {
        const bool wasWrong = i < mStood.size() && !mStood[i];
        if (wasWrong || placeOfDomainEdge(mEntries[i]).stands(*mModel)) {
            kept.push_back(mEntries[i]);
            if (i < mStood.size()) {
                stood.push_back(mStood[i]);
            }
        }
    }
    if (mStood.size() != count || kept.size() != count) {
        mModel->setParam(A_SYNTH_SCHEDULE_DOMAINS,
                         kept.empty() ? ValueRef() : ValueRef(TupleValue::get(kept, mModel->getContext())));
    }
    mEntries = std::move(kept);
    mStood = std::move(stood);
}

void FlattenedSignposts::close() {
    if (mTree != nullptr) {
        mTree->settle();
        for (const DomainEdgePlace &place : mGone) {
            mList->remove(place);
        }
        for (std::size_t i = 0; i < mEntries.size(); ++i) {
            const DomainEdgePlace place = placeOfDomainEdge(mEntries[i]);
            if ((i >= mStood.size() || mStood[i]) && !place.stands(*mModel)) {
                mList->remove(place);
            }
        }
        mTree.reset();
        mList.reset();
    } else {
        dropStale();
    }
    mGone.clear();
    mWaysIn.clear();
    mThrough.clear();
}

} // namespace orvo::internal
