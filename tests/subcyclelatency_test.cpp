// Depths of logic at an external interface.
#include <orvo/subcyclelatency.h>

#include "support/constraintrig.h"
#include "support/simulatorfixture.h"

#include <orvo/pass.h>

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

class SubCycleOfCompoundSignals : public test::SimulatorFixture {
  protected:
    /// The depths of an interface that takes x and y and gives z, once the passes have run.
    std::string after(const std::string &x, const std::string &y, const std::string &z,
                      const std::vector<const char *> &passes) {
        Design design(mgr.context());
        Model &model = oneBlock(design, "extIfaceBlock", {{"x", x.c_str()}, {"y", y.c_str()}}, {{"z", z.c_str()}});
        Block &block = *model.getBlock(value("block"));
        SubCycleLatencyCreator creator(block);
        creator.setForAllWires(4);
        creator.set(*block.getPort(value("x")), 2);
        creator.set(*block.getPort(value("y")), 3);
        creator.finalise();
        PassScheduler scheduler;
        for (const char *pass : passes) {
            scheduler.addPass(pass);
        }
        scheduler.apply(design);
        return PureValueRef(block.getParam(A_EXT_IFACE_SUBCYCLE_LATENCY))->toString();
    }
};

TEST_F(SubCycleOfCompoundSignals, namesTheLanes) {
    EXPECT_EQ(after("[3] s4.0", "s4.0", "[2] u1.0", {"UnrollVectorPass"}),
              "((((x 0) 2) ((x 1) 2) ((x 2) 2) (y 3)) (((z 0) 4) ((z 1) 4)))");
    EXPECT_EQ(after("[2][2] s4.0", "u1.0", "s4.0", {"UnrollVectorPass"}),
              "((((x 0) 2) ((x 1) 2) ((x 2) 2) ((x 3) 2) (y 3)) ((z 4)))");
}

TEST_F(SubCycleOfCompoundSignals, namesTheParts) {
    EXPECT_EQ(after("c s4.0", "s4.0", "c u1.0", {"UnrollComplexPass"}),
              "((((x real) 2) ((x imag) 2) (y 3)) (((z real) 4) ((z imag) 4)))");
    EXPECT_EQ(after("s4.0", "[2] c s4.0", "s4.0", {"UnrollVectorPass", "UnrollComplexPass"}),
              "(((x 2) ((y real 0) 3) ((y imag 0) 3) ((y real 1) 3) ((y imag 1) 3)) ((z 4)))");
}

TEST_F(SubCycleOfCompoundSignals, namesTheMembers) {
    EXPECT_EQ(after("{s4.0,{u1.0,s3.0}}", "s4.0", "{s4.0,u2.0}", {"UnrollAggregatePass"}),
              "((((x 0) 2) ((x 1) 2) ((x 2) 2) (y 3)) (((z 0) 4) ((z 1) 4)))");
}

TEST_F(SubCycleOfCompoundSignals, leavesAloneWhatItDoesNotKnow) {
    for (const char *told : {"7", "()", "((x 2) (y 3))", "((x (x) (x 2 3)) ())", "(((y 2)) ((w 1)))"}) {
        Design design(mgr.context());
        Model &model = oneBlock(design, "extIfaceBlock", {{"x", "[2] s4.0"}, {"y", "s4.0"}}, {});
        Block &block = *model.getBlock(value("block"));
        block.setParam(A_EXT_IFACE_SUBCYCLE_LATENCY, ValueRef(value(told)));
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.apply(design);
        EXPECT_NE(block.getPort(value("(x 1)")), nullptr);
        EXPECT_EQ(PureValueRef(block.getParam(A_EXT_IFACE_SUBCYCLE_LATENCY)), value(told));
    }
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
