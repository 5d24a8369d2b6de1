// DomainBoundaryCreator marks where a scheduling domain begins and ends.
#pragma once

#include <orvo/design.h>
#include <orvo/port.h>

namespace orvo {

/// Appends boundaries of one domain to the `A_SYNTH_SCHEDULE_DOMAINS` of the models in which the points stand, each
/// (begin or end, domain, (block name, port or wire tag, key)).
class ORVO_API DomainBoundaryCreator {
  public:
    /// The domain is any pure value; only its identity counts.
    DomainBoundaryCreator(Design &design, const PureValueRef &domain);
    void start(const Port *port);
    void start(const Wire *wire);
    void stop(const Port *port);
    void stop(const Wire *wire);

  private:
    template <class End> void append(const StaticString &kind, const End *end, const StaticString &tag) const;

    Design &mDesign;
    PureValueRef mDomain;
};

} // namespace orvo
