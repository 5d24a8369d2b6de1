// Blocks that stand for scheduled models get the ports that those were compiled with.
#include "orvo/unrollscheduledmodelpass.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/scheduledmodelhandle.h>
#include <orvo/xmlservices.h>

#include <sstream>

namespace orvo {
namespace {

class UnrollScheduledModelPassTest : public test::SimulatorFixture {
  protected:
    using Names = std::vector<std::string>;

    PureValueRef type(const std::string &text) { return value(testing::typeText(text)); }

    /// Types by name, as the boundary has them.
    ScheduledModelTypes::Map types(const std::vector<std::pair<const char *, const char *>> &told) {
        ScheduledModelTypes::Map map;
        for (const auto &[name, text] : told) {
            map[value(name)] = type(text);
        }
        return map;
    }
    /// Ports x, a vector of 3 complex numbers, and e, a bit; wires y, a record of a number and a vector, and f.
    ScheduledModelHandle handle() {
        const CompoundTypeInfo x = CompoundTypeInfo::createFromValue(type("[3] c s4.0"));
        const CompoundTypeInfo y = CompoundTypeInfo::createFromValue(type("{s4.0, [2] u3.0}"));
        UnrollMappings inputs;
        UnrollMappings outputs;
        ScheduledModelTypes::Map in = types({{"e", "u1.0"}});
        ScheduledModelTypes::Map out = types({{"f", "u1.0"}});
        const char *results[] = {"s4.0", "u3.0", "u3.0"};
        for (int i = 0; i < 6; ++i) {
            const PureValueRef name = value("p" + std::to_string(i));
            inputs.addMapping(value("x"), x.getIndexDeep(i), name);
            in[name] = type("s4.0");
        }
        for (int i = 0; i < 3; ++i) {
            const PureValueRef name = value("q" + std::to_string(i));
            outputs.addMapping(value("y"), y.getIndexDeep(i), name);
            out[name] = type(results[i]);
        }
        ScheduledModelHandle made = madeOf(in, out);
        made.setOriginalModelTypes(ScheduledModelTypes::createScheduledModelTypes(
            types({{"x", "[3] c s4.0"}, {"e", "u1.0"}}), types({{"y", "{s4.0, [2] u3.0}"}, {"f", "u1.0"}})));
        made.setInputUnrollMappings(inputs);
        made.setOutputUnrollMappings(outputs);
        return made;
    }
    ScheduledModelHandle madeOf(const ScheduledModelTypes::Map &in, const ScheduledModelTypes::Map &out) {
        std::vector<PureValueRef> ins;
        std::vector<PureValueRef> outs;
        ScheduledModelDomains::Map inDomains;
        ScheduledModelDomains::Map outDomains;
        for (const auto &[name, unused] : in) {
            ins.push_back(name);
            inDomains[name] = value("clk");
        }
        for (const auto &[name, unused] : out) {
            outs.push_back(name);
            outDomains[name] = value("clk");
        }
        return ScheduledModelHandle::createScheduledModelHandle(
            value("alpha"), ScheduledModelPortList(ins, outs), ScheduledModelTypes::createScheduledModelTypes(in, out),
            ScheduledModelDomains::createScheduledModelDomains(inDomains, outDomains), ScheduledModelTimesteps({}, {}),
            StallLatencyReport::createStallLatencyReport(0, 0, {}));
    }
    Block &place(Design &in, const ScheduledModelHandle &what) {
        Model &top = *Model::create(in, "top");
        Block &made = *Block::create(top, "block", A_SCHEDULED_MODEL_BLOCK);
        made.setParam(A_SCHEDULED_MODEL_VALUE, what.toValue());
        made.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_TRUE);
        made.setParam(value("x"), input(top, "x", "[3] c s4.0"));
        made.setParam(value("e"), input(top, "e", "u1.0"));
        output(top, "y", *Wire::create(made, value("y")));
        output(top, "f", *Wire::create(made, value("f")));
        return made;
    }
    Names run(Design &in) {
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollScheduledModelPass");
        scheduler.apply(in);
        EXPECT_TRUE(test::checkInvariants(in));
        return heard.take();
    }
    static std::string textOf(const Design &of) {
        std::ostringstream text;
        XMLServices().toXML(text, of);
        return text.str();
    }
    /// The block must stay as it is, which is told with this detail.
    void refuses(Design &of, const std::string &detail) {
        const std::string before = textOf(of);
        EXPECT_EQ(run(of), Names{"BAD_SCHEDULED_MODEL_HANDLE block=/top/block detail=" + detail});
        EXPECT_EQ(textOf(of), before);
    }

    Design design{mgr.context()};
};

TEST_F(UnrollScheduledModelPassTest, fitsTheBlockToTheScheduledModel) {
    Design before(mgr.context());
    place(before, handle());
    Block &block = place(design, handle());
    EXPECT_EQ(run(design), Names{});
    EXPECT_EQ(portsOf(block), (Names{"e", "p0", "p1", "p2", "p3", "p4", "p5"}));
    EXPECT_EQ(wiresOf(block), (Names{"f", "q0", "q1", "q2"}));
    EXPECT_EQ(block.findParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES), A_FALSE.get_ptr());
    // Leaf 5 of the vector is the imaginary part of its last element.
    const Wire &last = *block.getPort(value("p5"))->peekWire();
    EXPECT_EQ(last.getName(), A_CUNPACK_WIRE_IMAG);
    EXPECT_EQ(last.getBlock().getName(), value("(x cup 2)"));
    EXPECT_NE(block.getModel().getBlock(value("(x vup)")), nullptr);
    EXPECT_NE(block.getModel().getBlock(value("(y ap)")), nullptr);
    EXPECT_NE(block.getModel().getBlock(value("(y vp 1)")), nullptr);
    test::expectSameBehaviour(before, design);
}

TEST_F(UnrollScheduledModelPassTest, fitsTwoBlocksOfOneModelWhosePortsHaveEqualNames) {
    Design before(mgr.context());
    const auto placeTwo = [this](Design &in) -> Block & {
        Block &one = place(in, handle());
        Model &top = one.getModel();
        Block &two = *Block::create(top, "two", A_SCHEDULED_MODEL_BLOCK);
        two.setParam(A_SCHEDULED_MODEL_VALUE, handle().toValue());
        two.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_TRUE);
        two.setParam(value("x"), input(top, "x2", "[3] c s4.0"));
        two.setParam(value("e"), input(top, "e2", "u1.0"));
        output(top, "y2", *Wire::create(two, value("y")));
        output(top, "f2", *Wire::create(two, value("f")));
        return two;
    };
    placeTwo(before);
    Block &two = placeTwo(design);
    Block &one = *two.getModel().getBlock(value("block"));
    EXPECT_EQ(run(design), Names{});
    for (const Block *block : {&one, &two}) {
        EXPECT_EQ(portsOf(*block), (Names{"e", "p0", "p1", "p2", "p3", "p4", "p5"}));
        EXPECT_EQ(wiresOf(*block), (Names{"f", "q0", "q1", "q2"}));
        EXPECT_EQ(block->findParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES), A_FALSE.get_ptr());
    }
    // Each has packs and unpacks of its own.
    EXPECT_NE(&one.getPort(value("p5"))->peekWire()->getBlock(), &two.getPort(value("p5"))->peekWire()->getBlock());
    test::expectSameBehaviour(before, design);
}

TEST_F(UnrollScheduledModelPassTest, doesNothingTheSecondTime) {
    place(design, handle());
    run(design);
    const std::string once = textOf(design);
    EXPECT_EQ(run(design), Names{});
    EXPECT_EQ(textOf(design), once);
}

TEST_F(UnrollScheduledModelPassTest, skipsABlockWhoseTypesAreNotTheOriginalOnes) {
    Block &block = place(design, handle());
    block.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_FALSE);
    EXPECT_EQ(run(design), Names{});
    EXPECT_EQ(portsOf(block), (Names{"e", "x"}));
    block.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, nullptr);
    EXPECT_EQ(run(design), Names{});
    EXPECT_EQ(portsOf(block), (Names{"e", "x"}));
}

TEST_F(UnrollScheduledModelPassTest, leavesABlockOfPlainSignalsAsItIs) {
    for (const bool isTold : {true, false}) {
        Design plain(mgr.context());
        Model &top = *Model::create(plain, "top");
        Block &block = *Block::create(top, "block", A_SCHEDULED_MODEL_BLOCK);
        ScheduledModelHandle made = madeOf(types({{"e", "u1.0"}}), types({{"f", "u1.0"}}));
        if (isTold) {
            made.setOriginalModelTypes(made.getScheduledModelTypes());
        }
        block.setParam(A_SCHEDULED_MODEL_VALUE, made.toValue());
        block.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_TRUE);
        block.setParam(value("e"), input(top, "e", "u1.0"));
        output(top, "f", *Wire::create(block, value("f")));
        const std::string before = textOf(plain);
        EXPECT_EQ(run(plain), Names{});
        EXPECT_EQ(textOf(plain), before);
    }
}

TEST_F(UnrollScheduledModelPassTest, givesAWireThatNobodyReadsItsScalars) {
    Block &block = place(design, handle());
    block.getModel().getOutputBlock()->setParam(value("y"), nullptr);
    EXPECT_EQ(run(design), Names{});
    EXPECT_EQ(wiresOf(block), (Names{"f", "q0", "q1", "q2"}));
    EXPECT_EQ(block.getModel().getBlock(value("(y ap)")), nullptr);
}

TEST_F(UnrollScheduledModelPassTest, usesAWireThatWaitsForItsScalar) {
    Block &block = place(design, handle());
    Wire &waits = *Wire::create(block, value("q1"));
    EXPECT_EQ(run(design), Names{});
    EXPECT_EQ(block.getWire(value("q1")), &waits);
    EXPECT_EQ(waits.port_size(), 1U);
}

TEST_F(UnrollScheduledModelPassTest, letsAScalarHaveTheNameOfItsSignal) {
    ScheduledModelHandle made = handle();
    UnrollMappings outputs;
    const CompoundTypeInfo y = CompoundTypeInfo::createFromValue(type("{s4.0, [2] u3.0}"));
    const char *names[] = {"y", "q1", "q2"};
    for (int i = 0; i < 3; ++i) {
        outputs.addMapping(value("y"), y.getIndexDeep(i), value(names[i]));
    }
    made.setOutputUnrollMappings(outputs);
    Block &block = place(design, made);
    EXPECT_EQ(run(design), Names{});
    EXPECT_EQ(wiresOf(block), (Names{"f", "q1", "q2", "y"}));
    EXPECT_EQ(block.getWire(value("y"))->port_size(), 1U);
}

TEST_F(UnrollScheduledModelPassTest, closesALoopAroundTheBlock) {
    ScheduledModelHandle made = handle();
    made.setOriginalModelTypes(ScheduledModelTypes::createScheduledModelTypes(
        types({{"x", "[3] c s4.0"}, {"e", "u1.0"}}), types({{"y", "[3] c s4.0"}, {"f", "u1.0"}})));
    UnrollMappings outputs;
    const CompoundTypeInfo shape = CompoundTypeInfo::createFromValue(type("[3] c s4.0"));
    for (int i = 0; i < 6; ++i) {
        outputs.addMapping(value("y"), shape.getIndexDeep(i), value("q" + std::to_string(i)));
    }
    made.setOutputUnrollMappings(outputs);
    Block &block = place(design, made);
    block.setParam(value("x"), *block.getWire(value("y")));
    EXPECT_EQ(run(design), Names{});
    PassScheduler scheduler;
    scheduler.addPass("ElideUnpackPass");
    scheduler.apply(design);
    EXPECT_EQ(block.getPort(value("p4"))->peekWire(), block.getWire(value("q4")));
}

TEST_F(UnrollScheduledModelPassTest, movesConstraintsAlongWithTheirPoints) {
    Block &block = place(design, handle());
    block.setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((y true (1) ()) (f true (2) ()))"));
    run(design);
    EXPECT_EQ(PureValueRef(block.getParam(A_SCHEDULE_CONSTRAINT_WIRES)),
              value("((q0 true (1) ()) (q1 true (1) ()) (q2 true (1) ()) (f true (2) ()))"));
}

TEST_F(UnrollScheduledModelPassTest, movesTheEdgesOfDomainsAlongWithTheirPoints) {
    Block &block = place(design, handle());
    Model &top = block.getModel();
    top.setParam(A_SYNTH_SCHEDULE_DOMAINS,
                 value("((scheduleDomainBegin red (block wireTag y)) (scheduleDomainEnd red (block wireTag f))"
                       " (scheduleDomainEnd blue (block portTag x)))"));
    run(design);
    std::string expected = "(";
    for (const char *wire : {"q0", "q1", "q2"}) {
        expected += std::string("(scheduleDomainBegin red (block wireTag ") + wire + ")) ";
    }
    expected += "(scheduleDomainEnd red (block wireTag f))";
    for (int i = 0; i < 6; ++i) {
        expected += " (scheduleDomainEnd blue (block portTag p" + std::to_string(i) + "))";
    }
    EXPECT_EQ(top.getParam(A_SYNTH_SCHEDULE_DOMAINS)->toString(), expected + ")");
}

TEST_F(UnrollScheduledModelPassTest, tellsOfAValueThatIsNoHandle) {
    for (const char *text : {"7", "(scheduledModelHandleTag)", ""}) {
        Design broken(mgr.context());
        Block &block = place(broken, handle());
        block.setParam(A_SCHEDULED_MODEL_VALUE, *text == 0 ? ValueRef() : ValueRef(value(text)));
        refuses(broken, "its value is no handle of a scheduled model");
    }
}

TEST_F(UnrollScheduledModelPassTest, tellsOfAHandleWithoutTheOriginalTypes) {
    place(design, madeOf(types({{"x", "[3] c s4.0"}, {"e", "u1.0"}}), types({{"y", "u1.0"}, {"f", "u1.0"}})));
    refuses(design, "the handle does not tell the types that the model had");
}

TEST_F(UnrollScheduledModelPassTest, tellsOfMappingsThatDoNotFit) {
    ScheduledModelHandle none = handle();
    none.setInputUnrollMappings(UnrollMappings());
    place(design, none);
    refuses(design, "the mappings do not name each scalar of x");

    Design twice(mgr.context());
    ScheduledModelHandle same = handle();
    UnrollMappings outputs;
    for (int i = 0; i < 3; ++i) {
        outputs.addMapping(value("y"), CompoundTypeInfo::createFromValue(type("{s4.0, [2] u3.0}")).getIndexDeep(i),
                           value(i == 0 ? "q0" : "q1"));
    }
    same.setOutputUnrollMappings(outputs);
    place(twice, same);
    refuses(twice, "the name q1 of a scalar is taken");

    for (const char *name : {"e", "blockType"}) {
        Design clash(mgr.context());
        ScheduledModelHandle taken = handle();
        UnrollMappings inputs;
        for (int i = 0; i < 6; ++i) {
            inputs.addMapping(value("x"), CompoundTypeInfo::createFromValue(type("[3] c s4.0")).getIndexDeep(i),
                              value(i == 4 ? name : "p" + std::to_string(i)));
        }
        taken.setInputUnrollMappings(inputs);
        place(clash, taken);
        refuses(clash, std::string("the name ") + name + " of a scalar is taken");
    }
}

TEST_F(UnrollScheduledModelPassTest, tellsOfAModelThatIsUsedTwice) {
    Block &block = place(design, handle());
    Model &above = *Model::create(design, "above");
    for (const char *name : {"one", "other"}) {
        Block &use = *Block::create(above, name, A_MODEL_BLOCK);
        use.setParam(A_MODEL_NODE, block.getModel());
    }
    refuses(design, "its model is instantiated more than once");
}

} // namespace
} // namespace orvo
