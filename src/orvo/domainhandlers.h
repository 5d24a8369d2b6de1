// How domains pass through blocks of each type.
#pragma once

#include "orvo/deadblockhandlers.h"

#include <orvo/domaininfer.h>

namespace orvo::internal {

/// Registers the handlers of the module's block types.
void registerDomainHandlers(Context *context, BlockModule module);

/// Each port and the wire of its name are one signal.
class PassthroughDomainHandler final : public DomainPropagationHandler {
  public:
    std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const override;
};

/// Each port and each wire is by itself.
class IndependentPortsDomainHandler final : public DomainPropagationHandler {
  public:
    std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const override;
};

/// As a passage, where the signals that go with the data have one name inside and another outside.
class ChannelBoundaryDomainHandler final : public DomainPropagationHandler {
  public:
    std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const override;
};

/// A model that is scheduled already tells the domains at its boundary.
class ScheduledModelDomainHandler final : public DomainPropagationHandler {
  public:
    std::vector<std::pair<DomainPoint, PureValueRef>> inferStatic(const Block &block,
                                                                  unsigned long refChainId) const override;
    std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const override;
};

/// The stall network takes no part in domains.
class StallValidConnectorDomainPropagationHandler final : public DomainPropagationHandler {
  public:
    std::vector<std::pair<DomainPoint, PureValueRef>> inferStatic(const Block &block,
                                                                  unsigned long refChainId) const override;
    std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const override;
};

} // namespace orvo::internal
