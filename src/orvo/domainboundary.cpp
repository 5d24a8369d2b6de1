// Boundaries of domains as entries of a model's parameter.
#include <orvo/domainboundary.h>

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <vector>

namespace orvo {

DomainBoundaryCreator::DomainBoundaryCreator(Design &design, const PureValueRef &domain)
    : mDesign(design), mDomain(domain) {
    ORVO_ASSERT(static_cast<bool>(domain), "a domain is a pure value");
}

template <class End>
void DomainBoundaryCreator::append(const StaticString &kind, const End *end, const StaticString &tag) const {
    ORVO_ASSERT(end != nullptr, "an end of a domain is there");
    const Block &block = end->getBlock();
    ORVO_ASSERT(&block.getDesign() == &mDesign, "a boundary stands in the design of its creator");
    Context *context = mDesign.getContext();
    Model &model = block.getModel();
    const TupleValueRef old = tupleVR(model.getParam(A_SYNTH_SCHEDULE_DOMAINS));
    std::vector<ValueRef> boundaries;
    if (old) {
        boundaries.assign(old->begin(), old->end());
    }
    const ValueRef signpost = TupleValue::get(block.getName(), PureValueRef(tag), end->getName(), context);
    boundaries.push_back(TupleValue::get(PureValueRef(kind), mDomain, signpost, context));
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS, TupleValue::get(std::move(boundaries), context));
}

void DomainBoundaryCreator::start(const Port *port) { append(A_SCHEDULE_DOMAIN_BEGIN, port, A_PORT_TAG); }
void DomainBoundaryCreator::start(const Wire *wire) { append(A_SCHEDULE_DOMAIN_BEGIN, wire, A_WIRE_TAG); }
void DomainBoundaryCreator::stop(const Port *port) { append(A_SCHEDULE_DOMAIN_END, port, A_PORT_TAG); }
void DomainBoundaryCreator::stop(const Wire *wire) { append(A_SCHEDULE_DOMAIN_END, wire, A_WIRE_TAG); }

} // namespace orvo
