// The handlers, and the table of the block types that have one. A type that is not in the table lies in one domain.
#include "orvo/domainhandlers.h"

#include "orvo/channelpairs.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/scheduledmodelhandle.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

namespace orvo::internal {

namespace {

using Settled = std::vector<std::pair<DomainPoint, PureValueRef>>;

template <class End> std::vector<DomainPoint> pointOf(const End *end, const DomainPoint &given) {
    return end == nullptr ? std::vector<DomainPoint>() : std::vector{DomainPoint(*end, given.refChainId())};
}

} // namespace

std::vector<DomainPoint> PassthroughDomainHandler::propagateFromPoint(const DomainPoint &point) const {
    const Block &block = *point.block();
    return point.isPort() ? pointOf(block.getWire(point.name()), point) : pointOf(block.getPort(point.name()), point);
}

std::vector<DomainPoint> IndependentPortsDomainHandler::propagateFromPoint(const DomainPoint &) const { return {}; }

std::vector<DomainPoint> ChannelBoundaryDomainHandler::propagateFromPoint(const DomainPoint &point) const {
    const Block &block = *point.block();
    return point.isPort() ? pointOf(block.getWire(channelWireOf(point.name())), point)
                          : pointOf(block.getPort(channelPortOf(point.name())), point);
}

Settled ScheduledModelDomainHandler::inferStatic(const Block &block, unsigned long refChainId) const {
    Settled settled;
    const bool original = block[A_SCHEDULED_MODEL_ORIGINAL_TYPES] == A_TRUE;
    const auto handle = ScheduledModelHandle::fromValue(PureValueRef(block.getParam(A_SCHEDULED_MODEL_VALUE)));
    if (!handle.valid()) {
        return settled;
    }
    const ScheduledModelDomains *told = original ? handle.getOriginalModelDomains() : nullptr;
    const ScheduledModelDomains &domains = told != nullptr ? *told : handle.getScheduledModelDomains();
    for (const Port &port : block.ports()) {
        if (const PureValueRef domain = domains.getInputPortDomain(port.getName())) {
            settled.emplace_back(DomainPoint(port, refChainId), domain);
        }
    }
    for (const Wire &wire : block) {
        if (const PureValueRef domain = domains.getOutputPortDomain(wire.getName())) {
            settled.emplace_back(DomainPoint(wire, refChainId), domain);
        }
    }
    return settled;
}

std::vector<DomainPoint> ScheduledModelDomainHandler::propagateFromPoint(const DomainPoint &) const { return {}; }

Settled StallValidConnectorDomainPropagationHandler::inferStatic(const Block &block, unsigned long refChainId) const {
    Settled settled;
    for (const Wire &wire : block) {
        settled.emplace_back(DomainPoint(wire, refChainId), A_SCHEDULE_DOMAIN_IGNORE);
    }
    return settled;
}

std::vector<DomainPoint> StallValidConnectorDomainPropagationHandler::propagateFromPoint(const DomainPoint &) const {
    return {};
}

namespace {

template <class Handler> const DomainPropagationHandler *make() { return new Handler; }

struct Row {
    const StaticString *type;
    BlockModule module;
    const DomainPropagationHandler *(*make)();
};

// clang-format off
constexpr Row kRows[] = {
    {&A_INPUT_BLOCK,                 BlockModule::Common, make<IndependentPortsDomainHandler>},
    {&A_OUTPUT_BLOCK,                BlockModule::Common, make<IndependentPortsDomainHandler>},
    {&A_MODEL_BLOCK,                 BlockModule::Common, make<IndependentPortsDomainHandler>},
    {&A_SIGNAL_IN_BLOCK,             BlockModule::Common, make<PassthroughDomainHandler>},
    {&A_SIGNAL_OUT_BLOCK,            BlockModule::Common, make<PassthroughDomainHandler>},
    {&A_CHANNEL_IN_BLOCK,            BlockModule::Common, make<ChannelBoundaryDomainHandler>},
    {&A_CHANNEL_OUT_BLOCK,           BlockModule::Common, make<ChannelBoundaryDomainHandler>},
    {&A_TERMINAL_BLOCK,              BlockModule::Common, make<PassthroughDomainHandler>},
    {&A_BOUNDARY_BLOCK,              BlockModule::Common, make<PassthroughDomainHandler>},
    {&A_TYPE_PIN_BLOCK,              BlockModule::Prim,   make<IndependentPortsDomainHandler>},
    {&A_BUS_IN_BLOCK,                BlockModule::Bus,    make<PassthroughDomainHandler>},
    {&A_EXT_IFACE_BLOCK,             BlockModule::Misc,   make<IndependentPortsDomainHandler>},
    {&A_HIDDEN_IFACE_BLOCK,          BlockModule::Misc,   make<IndependentPortsDomainHandler>},
    {&A_SCHEDULED_MODEL_BLOCK,       BlockModule::Misc,   make<ScheduledModelDomainHandler>},
    {&A_STALLVALID_CONNECTOR_BLOCK,  BlockModule::Misc,   make<StallValidConnectorDomainPropagationHandler>},
};
// clang-format on

} // namespace

void registerDomainHandlers(Context *context, BlockModule module) {
    for (const Row &row : kRows) {
        if (row.module == module) {
            context->getBlockClass(*row.type)->registerHandler<DomainPropagationHandler>(row.make());
        }
    }
}

} // namespace orvo::internal
