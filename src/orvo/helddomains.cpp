// What of the domains has gone is seen by inferring them again: a driver may have its domain from elsewhere, too, and
// needs no edge then.
#include "orvo/helddomains.h"

#include "orvo/domainedgetree.h"
#include "orvo/scheduleconstraints.h"
#include "orvo/silence.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo::internal {

namespace {

bool hasEdges(const Design &design) {
    return std::any_of(design.begin(), design.end(), [](const Model &model) {
        return !elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS)).empty();
    });
}

ValueRef edgeOf(const PureValueRef &domain, const DomainEdgePlace &at, Context *context) {
    return domainEdge(A_SCHEDULE_DOMAIN_BEGIN, domain, at, context);
}

} // namespace

HeldDomains::HeldDomains(const PassContext &context) : mContext(context), mHasEdges(hasEdges(context.getDesign())) {}

HeldDomains::~HeldDomains() = default;

void HeldDomains::infer() {
    if (!mInfo) {
        // What is wrong with the edges is for others to report.
        const Silence silence(mContext.getDesign().getContext());
        std::vector<const Model *> tops;
        for (const Model &model : mContext.getDesign()) {
            if (model.getParentBlocks().empty()) {
                tops.push_back(&model);
            }
        }
        mInfo = DomainInference::inferDomains(tops, DomainInference::DefaultInferenceModifier());
    }
}

const HeldDomains::Facts &HeldDomains::factsOf(Model &model) {
    const auto [at, isNew] = mFacts.try_emplace(&model);
    if (isNew) {
        at->second.instances = instancesOf(model, unrolledTree(mContext));
        for (const ValueRef &edge : elementsOf(model.findParam(A_SYNTH_SCHEDULE_DOMAINS))) {
            at->second.edges.insert(placeOfDomainEdge(edge));
        }
    }
    return at->second;
}

/// Null if the instances do not agree: one edge would serve them all.
template <class End> PureValueRef HeldDomains::commonDomain(const End &end) {
    infer();
    PureValueRef common;
    for (const RefChain &instance : factsOf(end.getBlock().getModel()).instances) {
        const PureValueRef domain = mInfo->getDomain(end, mInfo->getRefChainCollection().getOrCreateId(instance));
        if (!domain || (common && !(domain == common))) {
            return {};
        }
        common = domain;
    }
    return common;
}

void HeldDomains::hold(const Block &block) {
    if (!mHasEdges) {
        return;
    }
    Held held;
    for (const Port &port : block.ports()) {
        const Wire &driver = *port.peekWire();
        const PureValueRef domain = &driver.getBlock() == &block ? PureValueRef() : commonDomain(driver);
        if (domain) {
            held.drivers.emplace_back(port.getName(), domain);
        }
    }
    for (const Wire &wire : block) {
        // Behind an edge, the readers may lie in another than the wire, and get what they need from the edge.
        if (wire.port_size() != 0 && factsOf(block.getModel()).edges.count(placeOf(wire)) == 0) {
            holdReaders(wire, held);
        }
    }
    if (!held.drivers.empty() || !held.outputs.empty() || !held.ends.empty()) {
        mHeld.insert_or_assign(&block, std::move(held));
    }
}

/// A reader where the domain ends stays out of it: its edge is kept, even where the domain no longer came to it.
void HeldDomains::holdReaders(const Wire &wire, Held &held) {
    const PureValueRef domain = commonDomain(wire);
    if (!domain) {
        return;
    }
    bool reachesAny = false;
    for (Port &reader : wire.ports()) {
        Model &model = reader.getBlock().getModel();
        const DomainEdgePlace place = placeOf(MaybePort(reader));
        const bool isEdged = factsOf(model).edges.count(place) != 0;
        if (isEdged && commonDomain(reader) == domain) {
            held.ends.push_back({&model, place, domain});
        }
        reachesAny = reachesAny || !isEdged;
    }
    if (reachesAny) {
        held.outputs.emplace_back(wire.getName(), domain);
    }
}

HeldDomains::Rewriting HeldDomains::before(const Block &block) {
    Rewriting rewriting;
    // The address may come to be another block's.
    auto known = mHeld.extract(&block);
    if (known.empty()) {
        return rewriting;
    }
    for (const auto &[name, domain] : known.mapped().drivers) {
        if (const Port *port = block.getPort(name)) {
            mDrivers.push_back({&block.getModel(), placeOf(*port->peekWire()), domain});
        }
    }
    std::move(known.mapped().ends.begin(), known.mapped().ends.end(), std::back_inserter(mEnds));
    for (const auto &[name, domain] : known.mapped().outputs) {
        const Wire *wire = block.getWire(name);
        if (wire == nullptr) {
            continue;
        }
        for (Port &reader : wire->ports()) {
            if (&reader.getBlock() != &block) {
                rewriting.mReaders.emplace_back(MaybePort(reader), domain);
                break;
            }
        }
    }
    return rewriting;
}

void HeldDomains::after(const Rewriting &rewriting) {
    for (const auto &[reader, domain] : rewriting.mReaders) {
        if (const Wire *wire = reader.getWire()) {
            mOutputs.push_back({&wire->getBlock().getModel(), placeOf(*wire), domain});
        }
    }
}

/// Null for one that has gone, or that nothing leads to or away from, in other models neither.
const Wire *HeldDomains::wireAt(const Place &place) {
    const Block *block = place.model->getBlock(place.at.block);
    const Wire *wire = block == nullptr ? nullptr : block->getWire(place.at.key);
    if (wire == nullptr || wire->port_size() != 0 || block->getPortCount() != 0) {
        return wire;
    }
    const bool leadsOn = block->type() == A_INPUT_BLOCK.get_ptr() || block->type() == A_MODEL_BLOCK.get_ptr();
    return leadsOn ? wire : nullptr;
}

template <class End> bool HeldDomains::isWithout(const End &end) {
    infer();
    const std::vector<RefChain> &all = factsOf(end.getBlock().getModel()).instances;
    return std::any_of(all.begin(), all.end(), [&](const RefChain &instance) {
        return !mInfo->getDomain(end, mInfo->getRefChainCollection().getOrCreateId(instance));
    });
}

std::vector<HeldDomains::Place> HeldDomains::lostDrivers() {
    std::vector<Place> lost;
    std::copy_if(mDrivers.begin(), mDrivers.end(), std::back_inserter(lost), [this](const Place &place) {
        const Wire *wire = wireAt(place);
        return wire != nullptr && isWithout(*wire);
    });
    return lost;
}

/// Those whose readers lack it: others may have edges of their own.
std::vector<HeldDomains::Place> HeldDomains::lostOutputs() {
    std::vector<Place> lost;
    std::copy_if(mOutputs.begin(), mOutputs.end(), std::back_inserter(lost), [this](const Place &place) {
        const Wire *wire = wireAt(place);
        return wire != nullptr && isWithout(*wire) &&
               std::any_of(wire->port_begin(), wire->port_end(),
                           [this](const Port &reader) { return isWithout(reader); });
    });
    return lost;
}

/// What has an edge now keeps that.
void HeldDomains::endAtReaders() {
    DomainEdgeLists lists;
    for (const Place &place : mEnds) {
        if (place.at.stands(*place.model)) {
            Context *context = place.model->getContext();
            lists.of(*place.model)
                .put(domainEdge(A_SCHEDULE_DOMAIN_END, place.domain, place.at, context), false, place.at);
        }
    }
}

void HeldDomains::settle() {
    mInfo.reset();
    mHeld.clear();
    endAtReaders();
    if (const std::vector<Place> drivers = lostDrivers(); !drivers.empty()) {
        DomainEdgeLists lists;
        for (const Place &place : drivers) {
            DomainEdgeTree tree(lists.of(*place.model));
            const ValueRef edge = edgeOf(place.domain, place.at, place.model->getContext());
            tree.setRoot(tree.add(edge, false, DomainEdgeTree::Sort::Port),
                         *place.model->getBlock(place.at.block)->getWire(place.at.key));
            tree.settle(lists);
        }
        mInfo.reset();
    }
    // What is linked to such a driver has its domain again.
    if (const std::vector<Place> outputs = lostOutputs(); !outputs.empty()) {
        DomainEdgeLists lists;
        for (const Place &place : outputs) {
            lists.of(*place.model).put(edgeOf(place.domain, place.at, place.model->getContext()), true, place.at);
        }
    }
    mDrivers.clear();
    mOutputs.clear();
    mEnds.clear();
    mInfo.reset();
}

} // namespace orvo::internal
