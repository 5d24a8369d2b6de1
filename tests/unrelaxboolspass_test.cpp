// Wide conditions become one bit: which inputs of each block are conditions, and that each is as true as it was.
#include "orvo/unrelaxboolspass.h"

#include "support/exhaustive.h"
#include "support/onepass.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/nonsblocks.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/unrelaxbools.h>

#include <algorithm>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class UnrelaxBoolsTest : public test::SimulatorFixture {
  protected:
    static Lines run(Design &in) { return test::heardFrom(in, "UnrelaxBoolsPass"); }
    static void runAndCompare(Design &in, std::uint64_t cycles = 300) {
        test::runAndCompare(in, "UnrelaxBoolsPass", cycles);
    }
    static std::size_t countOf(const Model &model, const StaticString &type) {
        return static_cast<std::size_t>(
            std::count_if(model.begin(), model.end(), [&](const Block &one) { return one.type() == type.get_ptr(); }));
    }
    static bool relaxes(const Block &block) { return block.findParam(A_PRIM_RELAX_BOOLS) != nullptr; }
    Lines controlsOf(const Block &block) {
        Lines keys;
        const auto *handler = block.getClass()->get<UnrelaxBoolsHandler>();
        for (const PureValueRef &key :
             handler == nullptr ? std::vector<PureValueRef>() : handler->controlPorts(block)) {
            keys.push_back(key->toString());
        }
        return keys;
    }
    /// What the readers at the model's edge read.
    static Lines outputTypes(Design &of, const Block &block) {
        Lines all;
        GlobalTypePass types;
        for (const Port &port : block.getModel().getOutputBlock()->ports()) {
            const PureValueRef type = types.getType(port, {});
            all.push_back(type ? type->toString() : "?");
        }
        EXPECT_EQ(&block.getModel().getDesign(), &of);
        return all;
    }
    /// A model block on inputs of these types, one for each of them.
    Block &use(Model &top, Model &below, const std::string &name, const std::map<std::string, std::string> &inputs) {
        Block &made = block(top, name, "modelBlock");
        made.setParam(A_MODEL_NODE, below);
        for (const auto &[key, type] : inputs) {
            made.setParam(value(key), input(top, key + name, type));
        }
        output(top, "y" + name, *Wire::create(made, value("y")));
        return made;
    }

    Design design{mgr.context()};
};

/// All fixed-point types of up to six bits whose ends are near the point.
std::vector<std::string> smallTypes() {
    std::vector<std::string> types;
    for (const char *sign : {"u", "s"}) {
        for (int width = 1; width <= 6; ++width) {
            for (int frac = -1; frac < width; ++frac) {
                types.push_back(sign + std::to_string(width - frac) + "." + std::to_string(frac));
            }
        }
    }
    return types;
}

TEST_F(UnrelaxBoolsTest, everyBlockTypeThatMayRelaxHasAHandler) {
    std::size_t count = 0;
    for (const auto &[name, info] : getBlocksInfo().blocks()) {
        const auto takes = std::any_of(info.connections.begin(), info.connections.end(),
                                       [](const auto &connection) { return connection.name == "A_PRIM_RELAX_BOOLS"; });
        if (!takes) {
            continue;
        }
        const std::string *text = getBlocksInfo().findMapping(name);
        ASSERT_NE(text, nullptr) << name;
        EXPECT_NE(mgr.context()->getBlockClass(value(*text))->get<UnrelaxBoolsHandler>(), nullptr) << name;
        ++count;
    }
    EXPECT_EQ(count, 13U);
}

TEST_F(UnrelaxBoolsTest, knowsTheConditionsOfEachBlockType) {
    const std::vector<std::pair<std::string, Lines>> expected = {
        {"demuxBlock", {"portValid"}},
        {"decodeBlock", {"decodePortWren"}},
        {"counterBlock", {"portEnable"}},
        {"ldCounterBlock", {"portEnable", "0"}},
        {"sequenceBlock", {"portEnable"}},
        {"registerBlock", {A_REGISTER_PORT_ENABLE.text()}},
        {U_REGISTER_BLOCK.text(), {A_REGISTER_PORT_ENABLE.text()}},
        {"fifoBlock", {A_FIFO_PORT_WRITE_EN.text(), A_FIFO_PORT_READ_ACK.text(), A_FIFO_PORT_FLUSH.text()}},
        {"fifoDelayBlock", {A_PORT_WRITE.text(), A_PORT_READY.text()}},
        {"dualMemBlock",
         {A_DUAL_MEM_PORT_WRITE1_EN.text(), A_DUAL_MEM_PORT_READ1.text(), A_DUAL_MEM_PORT_WRITE2_EN.text(),
          A_DUAL_MEM_PORT_READ2.text()}},
        {"loopBlock", {A_LOOP_PORT_GO.text(), A_LOOP_PORT_ENABLE.text()}},
        {A_FOR_LOOP_BLOCK.text(), {A_LOOP_PORT_GO.text(), A_LOOP_PORT_ENABLE.text(), "2"}},
        {U_FOR_LOOP_BLOCK.text(), {A_LOOP_PORT_GO.text(), A_LOOP_PORT_ENABLE.text(), "2"}},
        {"selectBlock", {}},
        {"addBlock", {}},
    };
    Model &model = *Model::create(design, "m");
    for (const auto &[type, keys] : expected) {
        EXPECT_EQ(controlsOf(block(model, "b", type)), keys) << type;
    }
    Block &select = block(model, "s", "selectBlock");
    Wire &wire = *Wire::create(block(model, "c", "constBlock"), A_PRIM_WIRE_OUT);
    for (const char *key : {"(selectPortkeyCtrl 0)", "(selectPortkeyData 0)", "(selectPortkeyCtrl 2)",
                            "(selectPortkeyCtrl 1 1)", "selectPortDefaultData"}) {
        select.setParam(value(key), wire);
    }
    EXPECT_EQ(controlsOf(select), (Lines{"(selectPortkeyCtrl 0)", "(selectPortkeyCtrl 2)"}));
}

/// A block of each type with wide conditions at all of its control inputs.
struct Wide {
    std::string type;
    std::vector<std::pair<const char *, const char *>> inputs;
    std::vector<std::pair<const char *, const char *>> params;
    std::vector<std::pair<const char *, const char *>> outputs;
    std::size_t casts;
};

TEST_F(UnrelaxBoolsTest, narrowsAllConditionsOfEachBlockType) {
    const std::vector<Wide> cases = {
        {"selectBlock",
         {{"(selectPortkeyCtrl 0)", "u3.0"},
          {"(selectPortkeyData 0)", "s5.1"},
          {"(selectPortkeyCtrl 1)", "s2.2"},
          {"(selectPortkeyData 1)", "s4.0"},
          {"selectPortDefaultData", "u3.0"}},
         {},
         {{"primWireOut", ""}, {"selectWireValid", ""}},
         2},
        {"demuxBlock",
         {{"demuxPortData", "s5.0"}, {"portValid", "u2.0"}, {"portChannel", "u2.0"}},
         {{"demuxChannelCount", "3"}},
         {{"0", ""}, {"1", ""}, {"2", ""}},
         1},
        {"decodeBlock",
         {{"decodePortAddr", "u2.0"}, {"decodePortWren", "s3.0"}},
         {{"decodeAddress", "2"}},
         {{"decodeWireMatch", ""}, {"decodeWireWren", ""}},
         1},
        {"counterBlock", {{"portEnable", "u1.2"}}, {{"counterLimit", "5"}}, {{"primWireOut", ""}}, 1},
        {"ldCounterBlock",
         {{"portEnable", "u2.0"}, {"0", "s2.0"}, {"1", "u3.0"}, {"2", "u2.0"}, {"3", "u3.0"}},
         {},
         {{"primWireOut", ""}},
         2},
        {"sequenceBlock",
         {{"portEnable", "s3.1"}},
         {{"counterLimit", "5"}, {"counterStep", "2"}},
         {{"primWireOut", ""}},
         1},
        {"registerBlock",
         {{"0", "s5.0"}, {A_REGISTER_PORT_ENABLE.text().c_str(), "u2.0"}},
         {},
         {{"primWireOut", ""}},
         1},
        {U_REGISTER_BLOCK.text(),
         {{"0", "s5.0"}, {A_REGISTER_PORT_ENABLE.text().c_str(), "u2.0"}},
         {},
         {{"primWireOut", ""}},
         1},
        {"fifoBlock",
         {{A_FIFO_PORT_DATA.text().c_str(), "s5.0"},
          {A_FIFO_PORT_WRITE_EN.text().c_str(), "u2.0"},
          {A_FIFO_PORT_READ_ACK.text().c_str(), "s2.0"},
          {A_FIFO_PORT_FLUSH.text().c_str(), "u0.3"}},
         {{"fifoDepth", "4"}, {"fifoUseFlush", "true"}},
         {{A_FIFO_WIRE_DATA.text().c_str(), ""}, {A_FIFO_WIRE_VALID.text().c_str(), ""}},
         3},
        {"fifoDelayBlock",
         {{A_FIFO_PORT_DATA.text().c_str(), "s5.0"},
          {A_PORT_WRITE.text().c_str(), "u2.0"},
          {A_PORT_READY.text().c_str(), "u2.0"}},
         {{"fifoDepth", "4"}},
         {{A_FIFO_WIRE_DATA.text().c_str(), ""}, {A_FIFO_WIRE_VALID.text().c_str(), ""}},
         2},
        {"dualMemBlock",
         {{A_DUAL_MEM_PORT_DATA1.text().c_str(), "s5.0"},
          {A_DUAL_MEM_PORT_ADDR1.text().c_str(), "u2.0"},
          {A_DUAL_MEM_PORT_WRITE1_EN.text().c_str(), "u2.0"},
          {A_DUAL_MEM_PORT_READ1.text().c_str(), "u2.0"},
          {A_DUAL_MEM_PORT_DATA2.text().c_str(), "s5.0"},
          {A_DUAL_MEM_PORT_ADDR2.text().c_str(), "u2.0"},
          {A_DUAL_MEM_PORT_WRITE2_EN.text().c_str(), "s2.0"},
          {A_DUAL_MEM_PORT_READ2.text().c_str(), "u1.1"}},
         {{A_DUAL_MEM_DATA.text().c_str(), "(1 2 3 -4)"}},
         {{A_DUAL_MEM_WIRE_DATA1.text().c_str(), ""}, {A_DUAL_MEM_WIRE_DATA2.text().c_str(), ""}},
         4},
        {A_FOR_LOOP_BLOCK.text(),
         {{A_LOOP_PORT_GO.text().c_str(), "u2.0"},
          {A_LOOP_PORT_ENABLE.text().c_str(), "u2.0"},
          {A_LOOP_PORT_LIMIT.text().c_str(), "u3.0"},
          {"0", "u2.0"},
          {"1", "u2.0"},
          {"2", "s2.0"}},
         {},
         {{A_FOR_LOOP_WIRE_COUNT.text().c_str(), ""}, {A_LOOP_WIRE_VALID.text().c_str(), ""}},
         3},
        {U_FOR_LOOP_BLOCK.text(),
         {{A_LOOP_PORT_GO.text().c_str(), "u2.0"},
          {A_LOOP_PORT_ENABLE.text().c_str(), "u2.0"},
          {A_LOOP_PORT_LIMIT.text().c_str(), "u3.0"},
          {"0", "u2.0"},
          {"1", "u2.0"},
          {"2", "s2.0"}},
         {},
         {{A_FOR_LOOP_WIRE_COUNT.text().c_str(), ""}, {A_LOOP_WIRE_VALID.text().c_str(), ""}},
         3},
    };
    for (const Wide &wide : cases) {
        SCOPED_TRACE(wide.type);
        Design one(mgr.context());
        Model &top = oneBlock(one, wide.type, wide.inputs, wide.outputs, wide.params);
        Block &made = *top.getBlock(value("block"));
        made.setParam(A_PRIM_RELAX_BOOLS, A_TRUE);
        const auto types = outputTypes(one, made);
        runAndCompare(one);
        EXPECT_FALSE(relaxes(made));
        const std::size_t back = made.type() == A_SEQUENCE_BLOCK.get_ptr() ? 1 : 0;
        EXPECT_EQ(countOf(top, A_CAST_BLOCK), wide.casts + back);
        EXPECT_EQ(countOf(top, A_OR_REDUCE_BLOCK), wide.casts);
        EXPECT_EQ(outputTypes(one, made), types);
    }
}

// A wire of several bits is true where any of them is, as the simulator has it, and as this counts.
TEST_F(UnrelaxBoolsTest, tellsWhetherAConditionIsNotZeroForEachValueOfEachSmallType) {
    std::uint64_t number = 0;
    for (const std::string &type : smallTypes()) {
        if (number++ % testing::kExhaustiveStride != 0) {
            continue;
        }
        SCOPED_TRACE(type);
        Design one(mgr.context());
        Model &top = oneBlock(one, "selectBlock",
                              {{"(selectPortkeyCtrl 0)", type.c_str()},
                               {"(selectPortkeyData 0)", "u3.0"},
                               {"selectPortDefaultData", "u3.0"}},
                              {{"primWireOut", ""}, {"selectWireValid", ""}}, {{"primRelaxBools", "true"}});
        const auto before = test::copyOf(one);
        EXPECT_EQ(run(one), Lines{});
        EXPECT_EQ(countOf(top, A_CAST_BLOCK), type == "u1.0" || type == "s1.0" ? 0U : 1U);
        EXPECT_FALSE(relaxes(*top.getBlock(value("block"))));
        sim::Simulator old(*before, *before->begin());
        sim::Simulator now(one, top);
        const NumTypeSpec spec(value(testing::typeText(type)), mgr.context());
        for (std::int64_t bits = 0; bits < std::int64_t{1} << spec.fixedBits(); ++bits) {
            const bool isNegative = spec.isSigned() && (bits >> (spec.fixedBits() - 1)) != 0;
            const std::map<std::string, std::int64_t> in = {
                {"(selectPortkeyCtrl 0)", isNegative ? bits - (std::int64_t{1} << spec.fixedBits()) : bits},
                {"(selectPortkeyData 0)", 5},
                {"selectPortDefaultData", 2}};
            auto out = stepByName(now, in);
            EXPECT_EQ(out, stepByName(old, in));
            EXPECT_EQ(out["primWireOut"], bits == 0 ? 2 : 5) << bits;
            EXPECT_EQ(out["selectWireValid"], bits == 0 ? 0 : 1) << bits;
        }
    }
}

TEST_F(UnrelaxBoolsTest, keepsTheTypeAndThePulseOfASequenceForEachSmallType) {
    std::uint64_t number = 0;
    for (const std::string &type : smallTypes()) {
        if (number++ % testing::kExhaustiveStride != 0) {
            continue;
        }
        SCOPED_TRACE(type);
        Design one(mgr.context());
        Model &top = oneBlock(one, "sequenceBlock", {{"portEnable", type.c_str()}}, {{"primWireOut", ""}},
                              {{"counterLimit", "5"}, {"counterStep", "2"}, {"primRelaxBools", "true"}});
        const Block &made = *top.getBlock(value("block"));
        runAndCompare(one, 100);
        EXPECT_FALSE(relaxes(made));
        EXPECT_EQ(outputTypes(one, made), Lines{testing::typeText(type)});
    }
}

TEST_F(UnrelaxBoolsTest, insertsNoCastForOneBitButClearsTheParameter) {
    for (const char *type : {"u1.0", "s1.0", "[3] u1.0"}) {
        Design one(mgr.context());
        Model &top = oneBlock(one, "registerBlock", {{"0", "s4.0"}, {A_REGISTER_PORT_ENABLE.text().c_str(), type}},
                              {{"primWireOut", ""}}, {{"primRelaxBools", "true"}});
        const std::size_t size = top.size();
        runAndCompare(one);
        EXPECT_EQ(top.size(), size) << type;
        EXPECT_FALSE(relaxes(*top.getBlock(value("block")))) << type;
    }
}

TEST_F(UnrelaxBoolsTest, leavesConditionsThatAreNotConnected) {
    Model &top = oneBlock(design, "counterBlock", {}, {{"primWireOut", ""}},
                          {{"counterLimit", "5"}, {"primRelaxBools", "true"}});
    runAndCompare(design);
    EXPECT_FALSE(relaxes(*top.getBlock(value("block"))));
    EXPECT_EQ(countOf(top, A_CAST_BLOCK), 0U);
}

TEST_F(UnrelaxBoolsTest, narrowsConditionsWhoseBlockHasNoOutput) {
    Model &top = oneBlock(design, "sequenceBlock", {{"portEnable", "u3.0"}}, {},
                          {{"counterLimit", "5"}, {"counterStep", "2"}, {"primRelaxBools", "true"}});
    EXPECT_EQ(run(design), Lines{});
    EXPECT_FALSE(relaxes(*top.getBlock(value("block"))));
    EXPECT_EQ(countOf(top, A_CAST_BLOCK), 1U);
}

// Vectors are to be taken apart first; what is no real fixed-point number is no condition.
TEST_F(UnrelaxBoolsTest, leavesBlocksWithWideConditionsOfOtherKinds) {
    for (const char *type : {"[3] u2.0", "c u2.0", "float(23,8)", "{u2.0,u1.0}"}) {
        Design one(mgr.context());
        Model &top = oneBlock(one, "selectBlock",
                              {{"(selectPortkeyCtrl 0)", "u3.0"},
                               {"(selectPortkeyData 0)", "u3.0"},
                               {"(selectPortkeyCtrl 1)", type},
                               {"(selectPortkeyData 1)", "u3.0"},
                               {"selectPortDefaultData", "u3.0"}},
                              {{"primWireOut", ""}}, {{"primRelaxBools", "true"}});
        const std::string before = test::xmlOf(one);
        run(one);
        EXPECT_EQ(test::xmlOf(one), before) << type;
        EXPECT_TRUE(relaxes(*top.getBlock(value("block")))) << type;
    }
}

TEST_F(UnrelaxBoolsTest, leavesABlockWithAConditionOfUnknownType) {
    Model &top = *Model::create(design, "top");
    Block &select = block(top, "select", "selectBlock", {{"primRelaxBools", "true"}});
    select.setParam(value("(selectPortkeyCtrl 0)"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"));
    const std::string before = test::xmlOf(design);
    run(design);
    EXPECT_EQ(test::xmlOf(design), before);
}

TEST_F(UnrelaxBoolsTest, leavesBlocksThatDoNotRelax) {
    for (const char *setting : {"", "false"}) {
        Design one(mgr.context());
        Model &top = oneBlock(one, "registerBlock", {{"0", "s4.0"}, {A_REGISTER_PORT_ENABLE.text().c_str(), "u4.0"}},
                              {{"primWireOut", ""}});
        if (*setting != 0) {
            top.getBlock(value("block"))->setParam(A_PRIM_RELAX_BOOLS, ValueRef(value(setting)));
        }
        const std::string before = test::xmlOf(one);
        EXPECT_EQ(run(one), Lines{});
        EXPECT_EQ(test::xmlOf(one), before);
    }
}

// What the catalogue does not know may have conditions.
TEST_F(UnrelaxBoolsTest, warnsOnceOfATypeOfBlocksWithoutAHandler) {
    Model &top = *Model::create(design, "top");
    for (const char *name : {"a", "b"}) {
        Block &made = block(top, name, "homeMade", {{"primRelaxBools", "true"}});
        made.setParam(value("0"), input(top, name, "u3.0"));
    }
    block(top, "c", "otherHomeMade", {{"primRelaxBools", "true"}});
    block(top, "d", "thirdHomeMade", {{"primRelaxBools", "false"}});
    const std::string before = test::xmlOf(design);
    EXPECT_EQ(run(design), (Lines{"MISSING_UNRELAX_BOOLS_HANDLER", "MISSING_UNRELAX_BOOLS_HANDLER"}));
    EXPECT_EQ(test::xmlOf(design), before);
}

TEST_F(UnrelaxBoolsTest, clearsTheParameterWhereThereAreNoConditions) {
    Model &top = *Model::create(design, "top");
    for (const auto &[name, type] : {std::pair("a", "addBlock"), std::pair("b", U_ADD_BLOCK.text().c_str())}) {
        Block &made = block(top, name, type, {{"primRelaxBools", "true"}});
        made.setParam(value("0"), input(top, std::string("x") + name, "u3.0"));
        output(top, std::string("y") + name, *Wire::create(made, A_PRIM_WIRE_OUT));
    }
    runAndCompare(design);
    EXPECT_FALSE(relaxes(*top.getBlock(value("a"))));
    EXPECT_FALSE(relaxes(*top.getBlock(value("b"))));
}

TEST_F(UnrelaxBoolsTest, leavesABlockWithoutAType) {
    Block &made = *Block::create(*Model::create(design, "top"), "a", PureValueRef());
    made.setParam(A_PRIM_RELAX_BOOLS, A_TRUE);
    EXPECT_EQ(run(design), Lines{});
    EXPECT_TRUE(relaxes(made));
}

TEST_F(UnrelaxBoolsTest, hasOneBitServeAllThatReadASignal) {
    Model &top = *Model::create(design, "top");
    Wire &wide = input(top, "e", "s4.0");
    Wire &other = input(top, "f", "u4.0");
    for (const auto &[name, enable] : {std::pair("a", &wide), std::pair("b", &wide), std::pair("c", &other)}) {
        Block &made = block(top, name, "registerBlock", {{"primRelaxBools", "true"}});
        made.setParam(value("0"), input(top, std::string("x") + name, "s4.0"));
        made.setParam(A_REGISTER_PORT_ENABLE, *enable);
        output(top, std::string("y") + name, *Wire::create(made, A_PRIM_WIRE_OUT));
    }
    // Another model has signals of its own.
    Model &below = *Model::create(design, "below");
    Block &counter = block(below, "n", "counterBlock", {{"counterLimit", "5"}, {"primRelaxBools", "true"}});
    counter.setParam(A_PORT_ENABLE, *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), "x"));
    Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(counter, A_PRIM_WIRE_OUT));
    use(top, below, "u", {{"x", "u3.0"}});
    runAndCompare(design);
    EXPECT_EQ(countOf(top, A_OR_REDUCE_BLOCK), 2U);
    EXPECT_EQ(countOf(top, A_CAST_BLOCK), 2U);
    EXPECT_EQ(countOf(below, A_CAST_BLOCK), 1U);
    const auto driver = [&](const char *name) {
        return top.getBlock(value(name))->getPort(A_REGISTER_PORT_ENABLE)->peekWire();
    };
    EXPECT_EQ(driver("a"), driver("b"));
    EXPECT_NE(driver("a"), driver("c"));
}

TEST_F(UnrelaxBoolsTest, namesWhatItMakesByThePort) {
    Model &top = oneBlock(design, "registerBlock", {{"0", "s4.0"}, {A_REGISTER_PORT_ENABLE.text().c_str(), "u4.0"}},
                          {{"primWireOut", ""}}, {{"primRelaxBools", "true"}});
    run(design);
    const std::string end = std::string("((block ") + A_REGISTER_PORT_ENABLE.text() + ") ";
    const Block *cast = top.getBlock(value(end + "unrelaxCast)"));
    ASSERT_NE(cast, nullptr);
    EXPECT_TRUE(cast->getParam(A_CAST_MODE) == A_CAST_MODE_CONVERT);
    EXPECT_EQ(cast->getParam(A_CAST_OUTPUT_TYPE)->toString(), "(typeUFixed 1 0)");
    EXPECT_EQ(cast->getPort(value("0"))->peekWire()->getBlock().getName(), value(end + "unrelaxReduce)"));
    EXPECT_EQ(&top.getBlock(value("block"))->getPort(A_REGISTER_PORT_ENABLE)->peekWire()->getBlock(), cast);
}

TEST_F(UnrelaxBoolsTest, leavesMetadataAndEdgesOfDomainsWhereTheyAre) {
    Model &top = oneBlock(design, "registerBlock", {{"0", "s4.0"}, {A_REGISTER_PORT_ENABLE.text().c_str(), "u4.0"}},
                          {{"primWireOut", ""}}, {{"primRelaxBools", "true"}, {"metadataTuple", "((comment here))"}});
    const ValueRef edges =
        Value::parse("((scheduleDomainBegin red (block portTag " + std::string(A_REGISTER_PORT_ENABLE.text()) + ")))",
                     mgr.context());
    top.setParam(A_SYNTH_SCHEDULE_DOMAINS, edges);
    run(design);
    EXPECT_EQ(top.getParam(A_SYNTH_SCHEDULE_DOMAINS), edges);
    EXPECT_EQ(top.getBlock(value("block"))->getParam(A_METADATA)->toString(), "((comment here))");
}

/// A block in a model with several instances.
class UnrelaxInstancesTest : public UnrelaxBoolsTest {
  protected:
    Block &inner(const char *type, const char *port, const Texts &params = {}) {
        Block &made = block(below, "b", type, params);
        made.setParam(A_PRIM_RELAX_BOOLS, A_TRUE);
        made.setParam(value(port), *Wire::create(in, "x"));
        Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(made, A_PRIM_WIRE_OUT));
        return made;
    }
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
};

TEST_F(UnrelaxInstancesTest, narrowConditionsOfSeveralWidths) {
    const Block &made = inner("counterBlock", "portEnable", {{"counterLimit", "7"}});
    use(top, below, "a", {{"x", "u1.0"}});
    use(top, below, "b", {{"x", "u4.0"}});
    use(top, below, "c", {{"x", "s3.2"}});
    runAndCompare(design);
    EXPECT_FALSE(relaxes(made));
    EXPECT_EQ(countOf(below, A_CAST_BLOCK), 1U);
}

TEST_F(UnrelaxInstancesTest, keepASequenceWhosePulsesDifferInType) {
    const Block &made = inner("sequenceBlock", "portEnable", {{"counterLimit", "7"}, {"counterStep", "3"}});
    use(top, below, "a", {{"x", "u1.0"}});
    use(top, below, "b", {{"x", "u4.0"}});
    runAndCompare(design);
    EXPECT_TRUE(relaxes(made));
    EXPECT_EQ(countOf(below, A_CAST_BLOCK), 0U);
}

TEST_F(UnrelaxInstancesTest, keepABlockWithAVectorInOneOfThem) {
    const Block &made = inner("counterBlock", "portEnable", {{"counterLimit", "7"}});
    use(top, below, "a", {{"x", "u4.0"}});
    use(top, below, "b", {{"x", "[2] u1.0"}});
    runAndCompare(design);
    EXPECT_TRUE(relaxes(made));
}

} // namespace
} // namespace orvo
