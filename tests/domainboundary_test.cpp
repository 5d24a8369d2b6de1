// Boundaries of domains on a model.
#include <orvo/domainboundary.h>

#include "support/constraintrig.h"

namespace orvo {
namespace {

class Boundaries : public test::ConstraintRig {};

TEST_F(Boundaries, standInTheModelOfTheirPoint) {
    DomainBoundaryCreator fast(design, value("fast"));
    fast.start(wire(in));
    fast.stop(port(out));
    fast.start(port(innerOut));
    DomainBoundaryCreator(design, value("(slow 2)")).stop(wire(in));
    EXPECT_EQ(text(top, A_SYNTH_SCHEDULE_DOMAINS), "((scheduleDomainBegin fast (in wireTag w)) "
                                                   "(scheduleDomainEnd fast (out portTag p)) "
                                                   "(scheduleDomainEnd (slow 2) (in wireTag w)))");
    EXPECT_EQ(text(below, A_SYNTH_SCHEDULE_DOMAINS), "((scheduleDomainBegin fast (innerOut portTag p)))");
}

using BoundariesDeath = Boundaries;

TEST_F(BoundariesDeath, needADomain) {
    EXPECT_EXIT(DomainBoundaryCreator(design, {}), ::testing::ExitedWithCode(1), "pure value");
}

TEST_F(BoundariesDeath, needAnEndInTheirDesign) {
    DomainBoundaryCreator fast(design, value("fast"));
    EXPECT_EXIT(fast.start(in.getPort(value("q"))), ::testing::ExitedWithCode(1), "is there");
    EXPECT_EXIT(fast.stop(in.getWire(value("q"))), ::testing::ExitedWithCode(1), "is there");
    Design other(mgr.context());
    EXPECT_EXIT(DomainBoundaryCreator(other, value("fast")).start(wire(in)), ::testing::ExitedWithCode(1),
                "in the design of its creator");
}

} // namespace
} // namespace orvo
