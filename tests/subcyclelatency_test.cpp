// Depths of logic at an external interface.
#include <orvo/subcyclelatency.h>

#include "support/constraintrig.h"

namespace orvo {
namespace {

class SubCycle : public test::ConstraintRig {
  protected:
    SubCycle() {
        Wire::create(iface, "a");
        iface.setParam(value("b"), *iface.getWire(value("a")));
    }
    std::string written() { return text(iface, A_EXT_IFACE_SUBCYCLE_LATENCY); }
    Block &iface = marker(top, "iface", A_EXT_IFACE_BLOCK);
};

TEST_F(SubCycle, isWrittenWhenFinalised) {
    {
        SubCycleLatencyCreator creator(iface);
        creator.set(*port(iface), 3);
    }
    EXPECT_EQ(written(), "") << "the end of the creator writes nothing";
    SubCycleLatencyCreator creator(iface);
    creator.set(*port(iface), 3);
    creator.set(*wire(iface), 0);
    creator.finalise();
    EXPECT_EQ(written(), "(((p 3)) ((w 0)))");
}

TEST_F(SubCycle, takesTheLastDepthOfAnEnd) {
    SubCycleLatencyCreator creator(iface);
    creator.setForAllPorts(4);
    creator.setForAllWires(5);
    creator.set(*wire(iface), 1);
    creator.finalise();
    EXPECT_EQ(written(), "(((b 4) (p 4)) ((a 5) (w 1)))");
}

TEST_F(SubCycle, mayBeEmpty) {
    SubCycleLatencyCreator(iface).finalise();
    EXPECT_EQ(written(), "(() ())");
}

using SubCycleDeath = SubCycle;

TEST_F(SubCycleDeath, isOfOneExternalInterface) {
    EXPECT_EXIT(SubCycleLatencyCreator{in}, ::testing::ExitedWithCode(1), "external interface");
    SubCycleLatencyCreator creator(iface);
    EXPECT_EXIT(creator.set(*port(iface), -1), ::testing::ExitedWithCode(1), "not below 0");
    EXPECT_EXIT(creator.set(*wire(iface), -1), ::testing::ExitedWithCode(1), "not below 0");
    EXPECT_EXIT(creator.setForAllPorts(-1), ::testing::ExitedWithCode(1), "not below 0");
    EXPECT_EXIT(creator.setForAllWires(-1), ::testing::ExitedWithCode(1), "not below 0");
    EXPECT_EXIT(creator.set(*port(in), 1), ::testing::ExitedWithCode(1), "the block's");
    EXPECT_EXIT(creator.set(*wire(in), 1), ::testing::ExitedWithCode(1), "the block's");
}

} // namespace
} // namespace orvo
