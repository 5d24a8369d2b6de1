// The boundary of a tier goes through interface blocks.
#include "orvo/preparetierpass.h"

#include "support/domainrig.h"
#include "support/invariants.h"
#include "support/onepass.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/typeinferpass.h>

#include <map>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

void prepare(Design &design) {
    PassScheduler scheduler;
    scheduler.addPass("PrepareTierPass");
    scheduler.apply(design);
    EXPECT_TRUE(test::checkInvariants(design));
}

class PrepareTierTest : public test::SimulatorFixture {
  protected:
    PrepareTierTest() { tier.setParam(A_SYNTH_SCHEDULE_TIER, A_TRUE); }
    void runAndCompare(const std::string &top = "tier") { test::runAndCompare(design, "PrepareTierPass", 100, top); }
    Lines namesOf(const Model &in, const StaticString &type) {
        Lines names;
        for (const Block &one : in) {
            if (one.type() == type.get_ptr()) {
                names.push_back(one.getName()->toString());
            }
        }
        return names;
    }
    Wire &source(Model &in, const std::string &name) {
        Block *edge = in.getInputBlock();
        edge = edge == nullptr ? Block::create(in, "in", A_INPUT_BLOCK) : edge;
        return *Wire::create(*edge, value(name));
    }
    Wire &through(Model &in, const std::string &name, const StaticString &type, Wire &wire, const char *key = "0") {
        Block &made = *Block::create(in, name, type);
        made.setParam(value(key), wire);
        return *Wire::create(made, value(key));
    }
    Block *blockIn(Model &in, const std::string &name) { return in.getBlock(value(name)); }
    const Block &driverOf(const Block &block, const std::string &port) {
        return block.getPort(value(port))->peekWire()->getBlock();
    }

    Design design{mgr.context()};
    Model &tier = *Model::create(design, "tier");
};

TEST_F(PrepareTierTest, leadsEachInputAndOutputThroughABlockOfItsOwn) {
    Wire &x = input(tier, "x", "s4.0");
    Wire &y = input(tier, "y", "u3.1");
    Block &sum = block(tier, "sum", "addBlock");
    sum.setParam(value("0"), x);
    sum.setParam(value("1"), y);
    Wire &out = *Wire::create(sum, A_PRIM_WIRE_OUT);
    output(tier, "a", out);
    output(tier, "b", out);
    runAndCompare();
    EXPECT_EQ(namesOf(tier, A_SIGNAL_IN_BLOCK).size(), 2U);
    EXPECT_EQ(namesOf(tier, A_SIGNAL_OUT_BLOCK).size(), 2U);
    ASSERT_NE(blockIn(tier, "tierIn"), nullptr);
    ASSERT_NE(blockIn(tier, "tierOut"), nullptr);
    for (const Wire &wire : *tier.getInputBlock()) {
        ASSERT_EQ(wire.port_size(), 1U);
        const Block &marker = wire.ports().begin()->getBlock();
        EXPECT_EQ(marker.type(), A_SIGNAL_IN_BLOCK.get_ptr());
        // Under the name that the signal has at the boundary.
        EXPECT_NE(marker.getPort(wire.getName()), nullptr);
        EXPECT_NE(marker.getWire(wire.getName()), nullptr);
        EXPECT_EQ(marker.getWireCount(), 1U);
    }
    for (const Port &port : tier.getOutputBlock()->ports()) {
        const Block &marker = port.peekWire()->getBlock();
        EXPECT_EQ(marker.type(), A_SIGNAL_OUT_BLOCK.get_ptr());
        EXPECT_EQ(port.peekWire()->getName(), port.getName());
        EXPECT_EQ(marker.getPort(port.getName())->peekWire(), &out);
    }
}

TEST_F(PrepareTierTest, keepsTheTypesOfAllKindsOfSignals) {
    for (const char *type : {"s4.0", "[3] u2.1", "c s4.0", "float(23,8)", "{u2.0,[2] s3.0}"}) {
        Design one(mgr.context());
        Model &top = *Model::create(one, "tier");
        top.setParam(A_SYNTH_SCHEDULE_TIER, A_TRUE);
        Wire &x = source(top, "x");
        output(top, "y", pinned(x, type));
        prepare(one);
        GlobalTypePass types;
        const PureValueRef found = types.getType(*top.getOutputBlock()->port_begin(), {});
        ASSERT_TRUE(found) << type;
        EXPECT_EQ(found->toString(), testing::typeText(type));
        EXPECT_EQ(namesOf(top, A_SIGNAL_OUT_BLOCK), Lines{"tierOut"});
    }
}

TEST_F(PrepareTierTest, leavesModelsThatAreNoTiers) {
    for (const ValueRef &setting : {ValueRef(), ValueRef(PureValueRef(A_FALSE)), ValueRef(value("yes"))}) {
        tier.setParam(A_SYNTH_SCHEDULE_TIER, setting);
        Wire *x = tier.getInputBlock() == nullptr ? &source(tier, "x") : &*tier.getInputBlock()->begin();
        output(tier, "y", *x);
        const std::string before = test::xmlOf(design);
        prepare(design);
        EXPECT_EQ(test::xmlOf(design), before);
    }
}

TEST_F(PrepareTierTest, leavesATierThatIsComplete) {
    Wire &data = through(tier, "sIn", A_SIGNAL_IN_BLOCK, source(tier, "x"), "x");
    Wire &valid = through(tier, "cIn", A_CHANNEL_IN_BLOCK, source(tier, "v"), "3");
    output(tier, "y", through(tier, "sOut", A_SIGNAL_OUT_BLOCK, data, "y"));
    output(tier, "w", through(tier, "cOut", A_CHANNEL_OUT_BLOCK, valid, "3"));
    const std::string before = test::xmlOf(design);
    prepare(design);
    EXPECT_EQ(test::xmlOf(design), before);
}

TEST_F(PrepareTierTest, leadsTheOtherReadersOfAnInputThroughABlockToo) {
    Wire &x = source(tier, "x");
    Block &old = through(tier, "sIn", A_SIGNAL_IN_BLOCK, x, "x").getBlock();
    Block &sum = block(tier, "sum", "addBlock");
    for (const char *port : {"0", "1"}) {
        sum.setParam(value(port), x);
    }
    prepare(design);
    EXPECT_EQ(&driverOf(old, "x"), tier.getInputBlock());
    EXPECT_EQ(&driverOf(sum, "0"), blockIn(tier, "tierIn"));
    EXPECT_EQ(&driverOf(sum, "1"), blockIn(tier, "tierIn"));
    EXPECT_EQ(x.port_size(), 2U);
}

// A block by which signals leave is no place at which they enter.
TEST_F(PrepareTierTest, leadsAnInputThatLeavesAtOnceThroughBothKinds) {
    output(tier, "y", through(tier, "sOut", A_SIGNAL_OUT_BLOCK, source(tier, "x"), "y"));
    output(tier, "z", source(tier, "w"));
    prepare(design);
    EXPECT_EQ(namesOf(tier, A_SIGNAL_IN_BLOCK).size(), 2U);
    EXPECT_EQ(namesOf(tier, A_SIGNAL_OUT_BLOCK), (Lines{"sOut", "tierOut"}));
}

TEST_F(PrepareTierTest, givesAnInputThatNobodyReadsABlock) {
    source(tier, "x");
    prepare(design);
    EXPECT_EQ(namesOf(tier, A_SIGNAL_IN_BLOCK), Lines{"tierIn"});
    EXPECT_EQ(&driverOf(*blockIn(tier, "tierIn"), "x"), tier.getInputBlock());
    const std::string once = test::xmlOf(design);
    prepare(design);
    EXPECT_EQ(test::xmlOf(design), once);
}

TEST_F(PrepareTierTest, takesAllInputAndOutputBlocks) {
    for (const char *name : {"1", "2"}) {
        Wire &x = *Wire::create(*Block::create(tier, std::string("in") + name, A_INPUT_BLOCK), std::string("x") + name);
        Block::create(tier, std::string("out") + name, A_OUTPUT_BLOCK)
            ->setParam(value(std::string("y") + name), pinned(x, "s4.0"));
    }
    runAndCompare();
    EXPECT_EQ(namesOf(tier, A_SIGNAL_IN_BLOCK).size(), 2U);
    EXPECT_EQ(namesOf(tier, A_SIGNAL_OUT_BLOCK).size(), 2U);
}

TEST_F(PrepareTierTest, leavesEmptyTiersAndPortsThatAreNotConnected) {
    Block &out = *Block::create(tier, "out", A_OUTPUT_BLOCK);
    Block::create(tier, "in", A_INPUT_BLOCK);
    const std::string before = test::xmlOf(design);
    prepare(design);
    EXPECT_EQ(test::xmlOf(design), before);
    EXPECT_EQ(out.port_size(), 0U);
}

// The name of a signal may be one that its block keeps a setting under.
TEST_F(PrepareTierTest, numbersASignalOfTheNameOfASetting) {
    Wire &x = source(tier, A_BLOCK_TYPE.text());
    Block &reader = block(tier, "not", "notBlock");
    reader.setParam(value("0"), x);
    prepare(design);
    const Block *marker = blockIn(tier, "tierIn");
    ASSERT_NE(marker, nullptr);
    EXPECT_EQ(marker->type(), A_SIGNAL_IN_BLOCK.get_ptr());
    EXPECT_EQ(marker->getPort(value("0"))->peekWire(), &x);
    EXPECT_EQ(&driverOf(reader, "0"), marker);
}

TEST_F(PrepareTierTest, preparesTiersAtAllLevelsAndInAllInstances) {
    Model &top = *Model::create(design, "top");
    Model &low = *Model::create(design, "low");
    low.setParam(A_SYNTH_SCHEDULE_TIER, A_TRUE);
    Block &inner = block(low, "not", "notBlock");
    inner.setParam(value("0"), source(low, "x"));
    output(low, "y", *Wire::create(inner, A_PRIM_WIRE_OUT));
    const auto use = [&](Model &in, const std::string &name, Model &of, Wire &wire) -> Wire & {
        Block &made = block(in, name, "modelBlock");
        made.setParam(A_MODEL_NODE, of);
        made.setParam(value("x"), wire);
        return *Wire::create(made, value("y"));
    };
    output(tier, "y", use(tier, "below", low, source(tier, "x")));
    for (const auto &[name, type] : {std::pair<const char *, const char *>{"a", "s4.0"}, {"b", "u8.0"}}) {
        output(top, name, use(top, name, tier, input(top, std::string("x") + name, type)));
    }
    runAndCompare("top");
    for (const Model *model : {&tier, &low}) {
        EXPECT_EQ(namesOf(*model, A_SIGNAL_IN_BLOCK), Lines{"tierIn"});
        EXPECT_EQ(namesOf(*model, A_SIGNAL_OUT_BLOCK), Lines{"tierOut"});
    }
    EXPECT_EQ(namesOf(top, A_SIGNAL_IN_BLOCK), Lines{});
}

TEST_F(PrepareTierTest, leavesConstraintsAndMetadataWhereTheyAre) {
    Block &inner = block(tier, "not", "notBlock", {{"metadataTuple", "((comment here))"}});
    inner.setParam(value("0"), source(tier, "x"));
    inner.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    tier.getInputBlock()->setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((x true () (5)))", mgr.context()));
    output(tier, "y", *Wire::create(inner, A_PRIM_WIRE_OUT));
    prepare(design);
    EXPECT_EQ(inner.getParam(A_SCHEDULE_CONSTRAINT_PORTS)->toString(), "((0 true (5) ()))");
    EXPECT_EQ(inner.getParam(A_METADATA)->toString(), "((comment here))");
    EXPECT_EQ(tier.getInputBlock()->getParam(A_SCHEDULE_CONSTRAINT_WIRES)->toString(), "((x true () (5)))");
    EXPECT_FALSE(blockIn(tier, "tierIn")->getParam(A_METADATA));
}

/// The domains at all ends, by block and name.
class PrepareTierDomains : public test::DomainRig {
  protected:
    PrepareTierDomains() { top.setParam(A_SYNTH_SCHEDULE_TIER, A_TRUE); }
    std::map<std::string, std::string> domains() {
        infer();
        std::map<std::string, std::string> all;
        for (const Block &block : top) {
            for (const Port &port : block.ports()) {
                all[block.getName()->toString() + " port " + port.getName()->toString()] =
                    of(block, port.getName()->toString());
            }
            for (const Wire &wire : block) {
                all[block.getName()->toString() + " wire " + wire.getName()->toString()] = of(wire);
            }
        }
        return all;
    }
};

TEST_F(PrepareTierDomains, areWhatTheyWereWhereverAnEdgeStands) {
    const std::string marks[] = {begin("red", wireAt("in", "x")), begin("red", portAt("d1")),
                                 end("red", portAt("d1")),        begin("red", wireAt("d1")),
                                 end("red", wireAt("d1")),        begin("red", portAt("out", "a")),
                                 end("red", portAt("out", "b")),  end("red", wireAt("in", "x"))};
    for (const std::string &one : marks) {
        while (top.begin() != top.end()) {
            delete &*top.begin();
        }
        Block &in = make(top, "in", A_INPUT_BLOCK);
        Wire &first = operation(top, "d1", A_DELAY_BLOCK, {&wire(in, "x")});
        Wire &second = operation(top, "d2", A_DELAY_BLOCK, {&*in.begin()});
        Block &out = make(top, "out", A_OUTPUT_BLOCK);
        out.setParam(value("a"), first);
        out.setParam(value("b"), first);
        out.setParam(value("c"), second);
        mark(top, "(" + one + " " + begin("blue", wireAt("d2")) + ")");
        const auto before = domains();
        ASSERT_EQ(messages.lines, Lines()) << one;
        const ValueRef edges = top.getParam(A_SYNTH_SCHEDULE_DOMAINS);
        prepare(design);
        auto after = domains();
        EXPECT_EQ(top.getParam(A_SYNTH_SCHEDULE_DOMAINS), edges);
        EXPECT_EQ(top.size(), 8U);
        for (const auto &[end, was] : before) {
            EXPECT_EQ(after[end], was) << one << " " << end;
        }
        EXPECT_EQ(messages.lines, Lines()) << one;
    }
}

} // namespace
} // namespace orvo
