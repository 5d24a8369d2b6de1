// Edges by the names of their ends. The parameter comes from front ends: what has not the form of an edge stays as it
// is.
#include "orvo/domainedges.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

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
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS, TupleValue::get(std::move(moved), model.getContext()));
}

DomainEdgeList::DomainEdgeList(Model &model)
    : mModel(model), mEdges(elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
    for (std::size_t i = 0; i < mEdges.size(); ++i) {
        if (const DomainEdgePlace place = placeOfDomainEdge(mEdges[i]); place.block) {
            mAt.emplace(place, i);
        }
    }
}

DomainEdgeList::~DomainEdgeList() {
    if (mIsChanged) {
        std::erase_if(mEdges, [](const ValueRef &edge) { return !edge; });
        mModel.setParam(A_SYNTH_SCHEDULE_DOMAINS,
                        mEdges.empty() ? ValueRef() : ValueRef(TupleValue::get(mEdges, mModel.getContext())));
    }
}

ValueRef DomainEdgeList::find(const DomainEdgePlace &place) const {
    const auto found = mAt.find(place);
    return found == mAt.end() ? ValueRef() : mEdges[found->second];
}

void DomainEdgeList::copy(const ValueRef &edge, const DomainEdgePlace &to) {
    if (mAt.emplace(to, mEdges.size()).second) {
        const TupleValue &parts = *asTuple(edge.get_ptr());
        mEdges.push_back(domainEdge(parts.at(0), parts.at(1), to, mModel.getContext()));
        mIsChanged = true;
    }
}

void DomainEdgeList::remove(const Block &block) {
    const auto forget = [&](bool isPort, const PureValueRef &key) {
        const auto found = mAt.find({block.getName(), isPort, key});
        if (found != mAt.end()) {
            mEdges[found->second] = ValueRef();
            mAt.erase(found);
            mIsChanged = true;
        }
    };
    if (empty()) {
        return;
    }
    for (const Port &port : block.ports()) {
        forget(true, port.getName());
    }
    for (const Wire &wire : block) {
        forget(false, wire.getName());
    }
}

} // namespace orvo::internal
