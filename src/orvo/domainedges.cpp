// Edges by the names of their ends. The parameter comes from front ends: what has not the form of an edge stays as it
// is.
#include "orvo/domainedges.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace orvo::internal {

bool DomainEdgePlace::operator<(const DomainEdgePlace &other) const {
    return std::tie(block, isPort, key) < std::tie(other.block, other.isPort, other.key);
}

bool DomainEdgePlace::stands(const Model &model) const {
    const Block *at = block ? model.getBlock(block) : nullptr;
    return at != nullptr && (isPort ? at->getPort(key) != nullptr : at->getWire(key) != nullptr);
}

DomainEdgePlace placeOfDomainEdge(const ValueRef &edge) {
    const TupleValue *parts = asTuple(edge.get_ptr());
    const TupleValue *place = parts == nullptr || parts->size() != 3 ? nullptr : asTuple(parts->at(2).get_ptr());
    if (place == nullptr || place->size() != 3) {
        return {};
    }
    const PureValueRef block(place->at(0));
    const PureValueRef key(place->at(2));
    const bool isPort = place->at(1) == A_PORT_TAG;
    return block && key && (isPort || place->at(1) == A_WIRE_TAG) ? DomainEdgePlace{block, isPort, key}
                                                                  : DomainEdgePlace();
}

ValueRef domainEdge(const ValueRef &kind, const ValueRef &domain, const DomainEdgePlace &place, Context *context) {
    const PureValueRef tag(place.isPort ? A_PORT_TAG : A_WIRE_TAG);
    return TupleValue::get(kind, domain, TupleValue::get(place.block, tag, place.key, context), context);
}

DomainEdgeBlocks::DomainEdgeBlocks(const Model &model) {
    for (const ValueRef &edge : elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
        if (const DomainEdgePlace place = placeOfDomainEdge(edge); place.block) {
            mNames.insert(place.block);
        }
    }
}

bool DomainEdgeBlocks::has(const Block &block) const { return !mNames.empty() && mNames.count(block.getName()) != 0; }

void moveDomainEdges(Model &model,
                     const std::function<std::vector<DomainEdgePlace>(const DomainEdgePlace &)> &replaced) {
    struct Edge {
        ValueRef value;
        bool moves = false;
        std::vector<DomainEdgePlace> to;
    };
    std::vector<Edge> edges;
    std::set<DomainEdgePlace> taken;
    bool anyMoves = false;
    for (const ValueRef &value : elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
        const DomainEdgePlace place = placeOfDomainEdge(value);
        Edge edge{value, false, place.block ? replaced(place) : std::vector<DomainEdgePlace>()};
        edge.moves = !edge.to.empty();
        anyMoves = anyMoves || edge.moves;
        if (!edge.moves && place.block) {
            taken.insert(place);
        }
        edges.push_back(std::move(edge));
    }
    if (!anyMoves) {
        return;
    }
    std::vector<ValueRef> moved;
    for (const Edge &edge : edges) {
        if (!edge.moves) {
            moved.push_back(edge.value);
        }
        for (const DomainEdgePlace &place : edge.to) {
            if (place.stands(model) && taken.insert(place).second) {
                const TupleValue &parts = *asTuple(edge.value.get_ptr());
                moved.push_back(domainEdge(parts.at(0), parts.at(1), place, model.getContext()));
            }
        }
    }
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS,
                   moved.empty() ? ValueRef() : ValueRef(TupleValue::get(std::move(moved), model.getContext())));
}

bool isDomainEdge(const ValueRef &value) {
    if (!placeOfDomainEdge(value).block) {
        return false;
    }
    const TupleValue &parts = *asTuple(value.get_ptr());
    return parts.at(1) && (parts.at(0) == A_SCHEDULE_DOMAIN_BEGIN || parts.at(0) == A_SCHEDULE_DOMAIN_END);
}

bool beginsDomain(const ValueRef &edge) { return asTuple(edge.get_ptr())->at(0) == A_SCHEDULE_DOMAIN_BEGIN; }

DomainEdgeList::DomainEdgeList(Model &model) : mModel(model) {
    for (const ValueRef &edge : elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
        mEntries.push_back({edge, mEntries.size(), false});
        if (isDomainEdge(edge)) {
            enter(placeOfDomainEdge(edge), mEntries.size() - 1);
        }
    }
}

DomainEdgeList::~DomainEdgeList() {
    if (mIsChanged) {
        write();
    }
}

void DomainEdgeList::write() {
    std::stable_sort(mEntries.begin(), mEntries.end(),
                     [](const Entry &a, const Entry &b) { return a.origin < b.origin; });
    std::vector<ValueRef> edges;
    for (const Entry &entry : mEntries) {
        if (entry.edge && (!entry.isPut || placeOfDomainEdge(entry.edge).stands(mModel))) {
            edges.push_back(entry.edge);
        }
    }
    mModel.setParam(A_SYNTH_SCHEDULE_DOMAINS,
                    edges.empty() ? ValueRef() : ValueRef(TupleValue::get(std::move(edges), mModel.getContext())));
}

void DomainEdgeList::enter(const DomainEdgePlace &place, std::size_t entry) {
    std::vector<std::size_t> &there = mAt[place];
    const bool counts =
        !there.empty() && beginsDomain(mEntries[entry].edge) && !beginsDomain(mEntries[there.front()].edge);
    there.insert(counts ? there.begin() : there.end(), entry);
    mOfBlocks[place.block].insert(place);
}

bool DomainEdgeList::has(const Block &block) const {
    return !mOfBlocks.empty() && mOfBlocks.count(block.getName()) != 0;
}

ValueRef DomainEdgeList::find(const DomainEdgePlace &place) const {
    const auto found = mAt.find(place);
    return found == mAt.end() ? ValueRef() : mEntries[found->second.front()].edge;
}

bool DomainEdgeList::put(const ValueRef &edge, bool begins, const DomainEdgePlace &to) {
    if (mAt.count(to) != 0) {
        return false;
    }
    const auto from = mAt.find(placeOfDomainEdge(edge));
    const std::size_t origin = from == mAt.end() ? mEntries.size() : mEntries[from->second.front()].origin;
    const PureValueRef kind(begins ? A_SCHEDULE_DOMAIN_BEGIN : A_SCHEDULE_DOMAIN_END);
    mEntries.push_back({domainEdge(kind, asTuple(edge.get_ptr())->at(1), to, mModel.getContext()), origin, true});
    enter(to, mEntries.size() - 1);
    mIsChanged = true;
    return true;
}

void DomainEdgeList::remove(const DomainEdgePlace &place) {
    const auto found = mAt.find(place);
    if (found == mAt.end()) {
        return;
    }
    for (const std::size_t entry : found->second) {
        mEntries[entry].edge = ValueRef();
    }
    mAt.erase(found);
    const auto ofBlock = mOfBlocks.find(place.block);
    ofBlock->second.erase(place);
    if (ofBlock->second.empty()) {
        mOfBlocks.erase(ofBlock);
    }
    mIsChanged = true;
}

void DomainEdgeList::remove(const Block &block) {
    if (has(block)) {
        const std::set<DomainEdgePlace> places = mOfBlocks.at(block.getName());
        for (const DomainEdgePlace &place : places) {
            remove(place);
        }
    }
}

DomainEdgeList &DomainEdgeLists::of(Model &model) {
    const auto [at, isNew] = mNumbers.try_emplace(&model, mLists.size());
    if (isNew) {
        mLists.push_back(std::make_unique<DomainEdgeList>(model));
    }
    return *mLists[at->second];
}

} // namespace orvo::internal
