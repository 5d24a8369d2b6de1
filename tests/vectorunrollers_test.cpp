// Which block types come apart, and what each makes of its vectors.
#include "orvo/vectorunrollers.h"

#include "gen/designgenerator.h"
#include "orvo/vectorunroll.h"
#include "support/onepass.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/netlistverification.h>
#include <orvo/nonsblocks.h>
#include <orvo/pass.h>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace orvo {
namespace {

TEST(VectorUnrollers, speaksOfEveryTypeOfTheCatalogue) {
    ContextMgr mgr;
    std::map<std::string, const internal::VectorUnrollRow *> told;
    for (const internal::VectorUnrollRow &row : internal::vectorUnrollRows()) {
        EXPECT_TRUE(told.emplace(row.blockType->text(), &row).second) << row.blockType->text();
        EXPECT_NE(std::string(row.summary), "");
    }
    NONSBlockMap variants;
    variants.populate();
    std::size_t types = 0;
    for (const auto &[name, info] : getBlocksInfo().blocks()) {
        const std::string *text = getBlocksInfo().findMapping(name);
        if (text == nullptr) {
            continue; // an entry that stands for no type
        }
        ++types;
        const ValueRef type = StringValue::get(*text, mgr.context());
        const bool isVariant = name[0] == 'U';
        const auto partner = variants.lookup(type);
        ASSERT_TRUE(!isVariant || partner) << name;
        const ValueRef plain = isVariant ? Value::parse(partner->toString(), mgr.context()) : type;
        const auto row = told.find(plain->toString());
        ASSERT_NE(row, told.end()) << name;
        const auto handlerOf = [&](const ValueRef &of) {
            return mgr.context()->getBlockClass(of)->get<VectorUnrollHandler>();
        };
        EXPECT_EQ(handlerOf(type) != nullptr, row->second->handler != nullptr) << name;
        EXPECT_EQ(handlerOf(type), handlerOf(plain)) << name;
    }
    EXPECT_GT(types, 280U);
}

class VectorUnrollersTest : public test::SimulatorFixture {
  protected:
    /// Unrolls the block, which must compute the same, and gives the names of what is new in its place, but for what
    /// joins it.
    std::set<std::string> madeOf(const std::string &type, const Texts &inputs, const Texts &outputs,
                                 const Texts &params = {}) {
        Design design(mgr.context());
        const Model &model = unrolled(design, type, inputs, outputs, params);
        // What stood there before.
        Design other(mgr.context());
        std::set<std::string> old;
        for (const Block &block : oneBlock(other, type, inputs, outputs, params)) {
            old.insert(block.getName()->toString());
        }
        std::set<std::string> made;
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            if (old.count(name) == 0 && name.find("block") < 3 && !joinsLanes(name)) {
                made.insert(name);
            }
        }
        return made;
    }
    static void unrollVectors(Design &design) {
        test::HeardMessages heard(design.getContext());
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.addPass("ElideUnpackPass");
        scheduler.apply(design);
        EXPECT_EQ(heard.take(), std::vector<std::string>());
        EXPECT_TRUE(test::checkInvariants(design));
    }
    /// What the catalogue finds, by the types of blocks.
    static std::set<std::string> findingsOf(const Design &design) {
        CatalogueVerifier verifier(getBlocksInfo(), design.getContext());
        std::set<std::string> findings;
        for (const Model &model : design) {
            for (const Block &block : model) {
                for (const CatalogueFinding &found : verifier.verify(block)) {
                    findings.insert(PureValueRef(block.getParam(A_BLOCK_TYPE))->toString() + ": " + found.text);
                }
            }
        }
        return findings;
    }
    /// What the pass tells of a block that it leaves.
    std::vector<std::string> toldOf(const std::string &type, const Texts &inputs, const Texts &outputs,
                                    const Texts &params = {}) {
        Design design(mgr.context());
        const Model &model = oneBlock(design, type, inputs, outputs, params);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        EXPECT_NE(model.getBlock(value("block")), nullptr) << type;
        return heard.take();
    }
    /// The only line, that it cannot come apart.
    std::string refusalOf(const std::string &type, const Texts &inputs, const Texts &outputs,
                          const Texts &params = {}) {
        const std::vector<std::string> told = toldOf(type, inputs, outputs, params);
        const std::string begin = "UNVEC_INVALID_EXPAND_TYPE block=/top/block detail=";
        return told.size() == 1 && told[0].find(begin) == 0 ? told[0].substr(begin.size()) : "other messages";
    }
    /// A model of one block after the pass, which computes what it did.
    Model &unrolled(Design &design, const std::string &type, const Texts &inputs, const Texts &outputs,
                    const Texts &params = {}) {
        Design before(mgr.context());
        oneBlock(before, type, inputs, outputs, params);
        Model &model = oneBlock(design, type, inputs, outputs, params);
        unrollVectors(design);
        const std::set<std::string> known = findingsOf(before);
        for (const std::string &finding : findingsOf(design)) {
            EXPECT_EQ(known.count(finding), 1U) << finding;
        }
        sim::CompareOptions options;
        options.cycles = 100;
        test::expectSameBehaviour(before, design, model.getName()->toString(), options);
        return model;
    }
    static bool joinsLanes(const std::string &name) {
        return name.find("((block") == 0 &&
               (name.find(" vp") != std::string::npos || name.find(" vup") != std::string::npos);
    }
    using Made = std::set<std::string>;
};

TEST_F(VectorUnrollersTest, givesEachLaneABlock) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "[3] s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}),
              (Made{"(block 0)", "(block 1)", "(block 2)"}));
    EXPECT_EQ(madeOf("addBlock", {{"0", "[1] s4.0"}}, {{"primWireOut", ""}}), (Made{"(block 0)"}));
}

TEST_F(VectorUnrollersTest, attachesADriverOfFewerDimensionsToAllLanes) {
    const auto made = [&](const char *data, const char *enable, const char *type) {
        const std::string taken = testing::typeText(type);
        return madeOf("syncRegisterBlock", {{"syncRegisterPortIclkData", data}, {"syncRegisterPortIclkEnable", enable}},
                      {{"syncRegisterWireIclkData", ""}}, {{"syncRegisterDataType", taken.c_str()}});
    };
    const Made row{"(block 0)", "(block 1)", "(block 2)"};
    EXPECT_EQ(made("s4.4", "u1.0", "[3] s4.4"), row);
    EXPECT_EQ(made("[1] s4.4", "u1.0", "[3] s4.4"), row);
    EXPECT_EQ(made("[3] s4.4", "[1] u1.0", "[3] s4.4"), row);
    EXPECT_EQ(made("s4.4", "u1.0", "[1] s4.4"), Made{"(block 0)"});
    EXPECT_EQ(made("s4.4", "u1.0", "[2][3] s4.4").size(), 6U);
    EXPECT_EQ(made("[3] s4.4", "u1.0", "[2][3] s4.4").size(), 6U);
    EXPECT_EQ(made("[1][3] s4.4", "u1.0", "[2][3] s4.4").size(), 6U);
    // One element is a number for what takes numbers only.
    EXPECT_EQ(made("[1] s4.4", "[1][1] u1.0", "s4.4"), Made{});
    EXPECT_EQ(madeOf("loopBlock",
                     {{"loopPortGo", "[1] u1.0"}, {"loopPortEnable", "u1.0"}, {"loopPortLimit", "[3] u2.0"}},
                     {{"loopWireValid", ""}}),
              Made{"(block vunroll)"});
}

TEST_F(VectorUnrollersTest, attachesAScalarToAllLanesWithoutAnUnpack) {
    Design design(mgr.context());
    const Model &model = unrolled(
        design, "syncRegisterBlock", {{"syncRegisterPortIclkData", "s4.4"}, {"syncRegisterPortIclkEnable", "u1.0"}},
        {{"syncRegisterWireIclkData", ""}}, {{"syncRegisterDataType", "(typeVector 2 (typeSFixed 4 4))"}});
    const Block *first = model.getBlock(value("(block 0)"));
    const Block *second = model.getBlock(value("(block 1)"));
    ASSERT_TRUE(first != nullptr && second != nullptr);
    const PureValueRef data = value("syncRegisterPortIclkData");
    EXPECT_EQ(first->getPort(data)->peekWire(), second->getPort(data)->peekWire());
    for (const Block &block : model) {
        EXPECT_NE(block.type(), A_VUNPACK_BLOCK.get_ptr());
    }
}

TEST_F(VectorUnrollersTest, leavesWhatTakesOtherPartsThanItsDriverHas) {
    const auto refusal = [&](const char *data, const char *type) {
        const std::string taken = testing::typeText(type);
        return refusalOf("syncRegisterBlock", {{"syncRegisterPortIclkData", data}}, {{"syncRegisterWireIclkData", ""}},
                         {{"syncRegisterDataType", taken.c_str()}});
    };
    const std::string port = "port 'syncRegisterPortIclkData' takes ";
    EXPECT_EQ(refusal("[4] c s4.4", "[4] s4.4"), port + "real numbers, but complex ones drive it");
    EXPECT_EQ(refusal("[1] c s4.4", "s4.4"), port + "real numbers, but complex ones drive it");
}

TEST_F(VectorUnrollersTest, keepsLanesRealThatDriveComplexOnes) {
    const auto made = [&](const char *data, const char *type) {
        const std::string taken = testing::typeText(type);
        return madeOf("syncRegisterBlock", {{"syncRegisterPortIclkData", data}, {"syncRegisterPortIclkEnable", "u1.0"}},
                      {{"syncRegisterWireIclkData", ""}}, {{"syncRegisterDataType", taken.c_str()}});
    };
    const std::string pin = "((block syncRegisterPortIclkData) real ";
    EXPECT_EQ(made("[2] s4.4", "[2] c s4.4"), (Made{"(block 0)", "(block 1)", pin + "0)", pin + "1)"}));
    EXPECT_EQ(made("[1] s4.4", "c s4.4"), Made{pin + "0)"});
    EXPECT_EQ(made("s4.4", "[2] c s4.4"), (Made{"(block 0)", "(block 1)"}));
    Design before(mgr.context());
    Design after(mgr.context());
    for (Design *design : {&before, &after}) {
        oneBlock(*design, "syncRegisterBlock", {{"syncRegisterPortIclkData", "[2] s4.4"}},
                 {{"syncRegisterWireIclkData", ""}},
                 {{"syncRegisterDataType", "(typeVector 2 (typeComplex (typeSFixed 4 4)))"}});
    }
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    for (const char *pass : {"UnrollVectorPass", "UnrollVectorCrossModelPass", "ElideUnpackPass", "UnrollComplexPass",
                             "UnrollComplexCrossModelPass", "ElideUnpackPass", "CheckScalarSignalsPass"}) {
        scheduler.addPass(pass);
    }
    scheduler.apply(after);
    EXPECT_EQ(heard.take(), std::vector<std::string>());
    test::expectSameBehaviour(before, after, "top");
}

TEST_F(VectorUnrollersTest, leavesABoundaryThatIsOfTwoShapes) {
    Design design(mgr.context());
    Model &below = *Model::create(design, value("below"));
    Block &held = block(below, "held", "delayBlock", {{"delayLength", "1"}});
    held.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("i")));
    output(below, "o", *Wire::create(held, A_PRIM_WIRE_OUT));
    Model &top = *Model::create(design, value("top"));
    Block &call = block(top, "call", "modelBlock");
    call.setParam(A_MODEL_NODE, below);
    call.setParam(value("i"), input(top, "x", "[2] s8.0"));
    Block &reader = block(top, "reader", "syncRegisterBlock",
                          {{"syncRegisterDataType", "(typeVector 3 (typeVector 2 (typeSFixed 8 0)))"}});
    reader.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, *Wire::create(call, value("o")));
    output(top, "y", *Wire::create(reader, A_SYNC_REGISTER_WIRE_ICLK_DATA));
    EXPECT_EQ(test::heardFrom(design, "UnrollVectorCrossModelPass"),
              std::vector<std::string>{"UNVEC_INVALID_PORT_TYPE block=/below/out port=o"});
}

TEST_F(VectorUnrollersTest, emptiesTheQueueOfEachLaneByItself) {
    EXPECT_EQ(madeOf("fifoBlock",
                     {{"fifoPortData", "[3] u4.0"},
                      {"fifoPortWriteEn", "u1.0"},
                      {"fifoPortReadAck", "u1.0"},
                      {"fifoPortFlush", "[3] u1.0"}},
                     {{"fifoWireData", ""}}, {{"fifoDepth", "5"}}),
              (Made{"(block 0)", "(block 1)", "(block 2)"}));
}

TEST_F(VectorUnrollersTest, tellsMemoriesOfRealLanesThatOthersAreComplex) {
    EXPECT_EQ(madeOf("dualMemBlock", {{"dualMemPortAddr1", "u1.0"}}, {{"dualMemWireData1", ""}},
                     {{"dualMemData", "((vectorRollTag (complexRollTag 1 -20) 4) (vectorRollTag 3 2))"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(VectorUnrollersTest, leavesABoundaryWhosePackAReaderWouldGiveItsType) {
    const auto draw = [&](Design &design) {
        Model &below = *Model::create(design, value("below"));
        Block &held =
            block(below, "held", "syncRegisterBlock",
                  {{"syncRegisterDataType", "(typeVector 3 (typeVector 2 (typeVector 4 (typeSFixed 8 0))))"}});
        Wire &in = *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("i"));
        held.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, in);
        output(below, "o", *Wire::create(held, A_SYNC_REGISTER_WIRE_ICLK_DATA));
        Model &top = *Model::create(design, value("top"));
        Block &call = block(top, "call", "modelBlock");
        call.setParam(A_MODEL_NODE, below);
        call.setParam(value("i"), input(top, "x", "[2][4] s8.0"));
        output(top, "y", *Wire::create(call, value("o")));
    };
    const auto lower = [&](const std::vector<const char *> &passes, const std::vector<std::string> &messages) {
        Design before(mgr.context());
        Design after(mgr.context());
        draw(before);
        draw(after);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        for (const char *pass : passes) {
            scheduler.addPass(pass);
        }
        scheduler.apply(after);
        EXPECT_EQ(heard.take(), messages);
        EXPECT_TRUE(test::checkInvariants(after));
        test::expectSameBehaviour(before, after, "top");
    };
    const char *const across = "UnrollVectorCrossModelPass";
    lower({across}, {"UNVEC_INVALID_EXPAND_TYPE block=/below/in detail=what reads 'i' takes other vectors, and has to "
                     "come apart first"});
    lower({"UnrollVectorPass", across}, {});
}

TEST_F(VectorUnrollersTest, attachesAScalarToAllLanesOfAPlaceholder) {
    Design design(mgr.context());
    const Model &model = unrolled(design, "latencyPlaceholderBlock", {{"0", "s4.4"}}, {{"0", ""}},
                                  {{"latencyPlaceholderTypemap", "((0 (typeVector 2 (typeSFixed 4 4))))"}});
    const Block &block = *model.getBlock(value("block"));
    EXPECT_EQ(portsOf(block), (std::vector<std::string>{"(0 0)", "(0 1)"}));
    EXPECT_EQ(block.getPort(value("(0 0)"))->peekWire(), block.getPort(value("(0 1)"))->peekWire());
}

TEST_F(VectorUnrollersTest, attachesARecordToAllLanesOfAPlaceholder) {
    const std::string taken = "((0 " + testing::typeText("[2] {s4.4,[3] u2.0}") + "))";
    Design design(mgr.context());
    const Model &model = unrolled(design, "latencyPlaceholderBlock", {{"0", "{s4.4,[3] u2.0}"}}, {{"0", ""}},
                                  {{"latencyPlaceholderTypemap", taken.c_str()}});
    EXPECT_EQ(portsOf(*model.getBlock(value("block"))), (std::vector<std::string>{"(0 0)", "(0 1)"}));
}

TEST_F(VectorUnrollersTest, leavesWhatItsDriverDoesNotServe) {
    const auto told = [&](const char *data, const char *type) {
        const std::string taken = testing::typeText(type);
        return toldOf("syncRegisterBlock", {{"syncRegisterPortIclkData", data}}, {{"syncRegisterWireIclkData", ""}},
                      {{"syncRegisterDataType", taken.c_str()}});
    };
    const std::vector<std::string> line{"UNVEC_INVALID_PORT_TYPE block=/top/block port=syncRegisterPortIclkData"};
    EXPECT_EQ(told("[4] s4.4", "s4.4"), line);
    EXPECT_EQ(told("[4] s4.4", "[1] s4.4"), line);
    EXPECT_EQ(told("[2] s4.4", "[4] s4.4"), line);
    EXPECT_EQ(told("[2][4] s4.4", "[4] s4.4"), line);
    EXPECT_EQ(told("[2] s4.4", "[2][4] s4.4"), line);
    EXPECT_EQ(
        toldOf("typePinBlock", {{"0", "s4.4"}}, {{"0", ""}}, {{"typePinType", "(typeVector 2 (typeSFixed 4 4))"}}),
        std::vector<std::string>{"UNVEC_INVALID_PORT_TYPE block=/top/block port=0"});
}

TEST_F(VectorUnrollersTest, leavesScalarsAlone) {
    EXPECT_EQ(madeOf("addBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}), Made{});
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}), Made{});
}

TEST_F(VectorUnrollersTest, namesLanesInnermostDimensionFirst) {
    EXPECT_EQ(madeOf("notBlock", {{"0", "[3][2] u4.0"}}, {{"primWireOut", ""}}),
              (Made{"(block 0 0)", "(block 0 1)", "(block 0 2)", "(block 1 0)", "(block 1 1)", "(block 1 2)"}));
}

VectorDecorSpec decorOf(const std::string &text, const ContextMgr &mgr) {
    return {PureValueRef(Value::parse(testing::typeText(text), mgr.context())), mgr.context()};
}

TEST(LaneCounter, countsTheInnermostDimensionFastest) {
    ContextMgr mgr;
    const auto lanesOf = [&](const char *type) {
        const VectorDecorSpec decor = decorOf(type, mgr);
        std::vector<std::vector<int>> lanes;
        for (LaneCounter lane(decor); !lane.atEnd(); lane.next()) {
            EXPECT_EQ(decor.elementIndex(lane.indices()), lanes.size());
            lanes.push_back(lane.indices());
        }
        return lanes;
    };
    using Lanes = std::vector<std::vector<int>>;
    EXPECT_EQ(lanesOf("[3][2] u1.0"), (Lanes{{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0, 2}, {1, 2}}));
    EXPECT_EQ(lanesOf("[2][3] u1.0"), (Lanes{{0, 0}, {1, 0}, {2, 0}, {0, 1}, {1, 1}, {2, 1}}));
    EXPECT_EQ(lanesOf("[3] u1.0"), (Lanes{{0}, {1}, {2}}));
    EXPECT_EQ(lanesOf("[1] u1.0"), (Lanes{{0}}));
    EXPECT_EQ(lanesOf("u1.0"), (Lanes{{}}));
}

class VectorPackManagerTest : public VectorUnrollersTest {
  protected:
    internal_vector::VectorPackManager packs(const char *lanes, const char *signal) {
        return {decorOf(lanes, mgr), decorOf(signal, mgr), model, value(fmt::format("packs{}", ++mCount))};
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");

  private:
    int mCount = 0;
};

TEST_F(VectorPackManagerTest, asksForTheInnermostDimensionsOfTheLanes) {
    const char *lanes = "[2][3] s4.0";
    for (const char *signal : {"[2] s4.0", "[3][3] s4.0", "[2][2] s4.0"}) {
        EXPECT_DEATH(packs(lanes, signal), "another length than its lanes") << signal;
    }
    EXPECT_DEATH(packs(lanes, "[2][2][3] s4.0"), "more dimensions than its lanes");
}

TEST_F(VectorPackManagerTest, givesTheLanesOfFurtherDimensionsTheSameElements) {
    Wire &row = input(model, "row", "[3] s4.0");
    Wire &number = input(model, "number", "s4.0");
    internal_vector::VectorPackManager of = packs("[2][3] s4.0", "[3] s4.0");
    of.doUnpack(row);
    std::set<const Wire *> wires;
    for (const int inner : {0, 1, 2}) {
        EXPECT_EQ(&of.getUnpackedWire({inner, 0}), &of.getUnpackedWire({inner, 1}));
        wires.insert(&of.getUnpackedWire({inner, 0}));
    }
    EXPECT_EQ(wires.size(), 3U);
    internal_vector::VectorPackManager whole = packs("[2][3] s4.0", "s4.0");
    whole.doUnpack(number);
    EXPECT_EQ(&whole.getUnpackedWire({2, 1}), &number);
    // Lanes of no dimensions take a vector whole.
    internal_vector::VectorPackManager one = packs("s4.0", "[3] s4.0");
    one.doUnpack(row);
    EXPECT_EQ(&one.getUnpackedWire({}), &row);
}

TEST_F(VectorUnrollersTest, repeatsTheLastRolledValue) {
    const auto lane = [&](const char *text, int index) {
        return internal::elementOfLane(Value::parse(text, mgr.context()), {index})->toString();
    };
    const char *rolled = "(vectorRollTag 1 2 3)";
    EXPECT_EQ(lane(rolled, 0) + lane(rolled, 1) + lane(rolled, 2) + lane(rolled, 3) + lane(rolled, 4), "12333");
    EXPECT_EQ(lane("(typeVector 2 (typeSFixed 4 0))", 1), "(typeSFixed 4 0)");
    EXPECT_EQ(lane("(1 2 3)", 1), "(1 2 3)");
    EXPECT_EQ(lane("7", 1), "7");
}

TEST_F(VectorUnrollersTest, takesLayersOfRolledValuesForTheInnermostDimensions) {
    const auto lane = [&](const char *text, const std::vector<int> &indices) {
        return internal::elementOfLane(Value::parse(text, mgr.context()), indices)->toString();
    };
    const char *matrix = "(vectorRollTag (vectorRollTag 1 2 3) (vectorRollTag 4 5 6))";
    EXPECT_EQ(lane(matrix, {2, 0}), "3");
    EXPECT_EQ(lane(matrix, {0, 1}), "4");
    EXPECT_EQ(lane(matrix, {1, 1, 1}), "5");
    EXPECT_EQ(lane("(vectorRollTag 1 2 3)", {2, 0}), "3");
}

TEST_F(VectorUnrollersTest, keepsTheTypesOfLanesWhoseValuesAreNarrower) {
    EXPECT_EQ(madeOf("constBlock", {}, {{"primWireOut", ""}}, {{"constValue", "(vectorRollTag 1 -9 3)"}}),
              (Made{"(block 0)", "(block 1)", "(block 2)"}));
    EXPECT_EQ(madeOf("counterBlock", {}, {{"primWireOut", ""}},
                     {{"counterLimit", "(3 17)"}, {"counterInitial", "0"}, {"counterStep", "1"}}),
              (Made{"(block 0)", "(block 1)", "((block 0) cast)", "((block 1) cast)"}));
    EXPECT_EQ(
        madeOf("constdivBlock", {{"0", "[2] u4.0"}}, {{"primWireOut", ""}}, {{"constValue", "(vectorRollTag 1 -3)"}}),
        (Made{"(block 0)", "(block 1)", "((block 0) cast)", "((block 1) cast)"}));
}

TEST_F(VectorUnrollersTest, multipliesEachLaneByItsConstantInTheTypeOfTheWhole) {
    const Made lanes{"(block 0)", "(block 1)"};
    EXPECT_EQ(
        madeOf("constmultBlock", {{"0", "[2] s4.0"}}, {{"primWireOut", ""}}, {{"constValue", "(vectorRollTag 1 9)"}}),
        lanes);
    // The product of the second lane alone would wrap.
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "[2] c s4.1"}}, {{"primWireOut", ""}},
                     {{"constValue", "(vectorRollTag (complexRollTag -0x7.5p-4 1) (complexRollTag 15 2))"}}),
              lanes);
    EXPECT_EQ(
        madeOf("constmultBlock", {{"0", "[2] s4.3"}}, {{"primWireOut", ""}},
               {{"constValue", "(vectorRollTag 1 9)"}, {"outputPrecision", "(fractionSpecified (typeSFixed 9 1))"}}),
        lanes);
}

TEST_F(VectorUnrollersTest, givesProductsOfASpecifiedVectorTypeItsElement) {
    for (const char *constant : {"3", "(vectorRollTag 3 9)"}) {
        for (const char *mode : {"typeSpecified", "fractionSpecified"}) {
            const std::string precision = std::string("(") + mode + " (typeVector 2 (typeSFixed 9 1)))";
            Design design(mgr.context());
            const Model &model = unrolled(design, "constmultBlock", {{"0", "[2] s4.3"}}, {{"primWireOut", ""}},
                                          {{"constValue", constant}, {"outputPrecision", precision.c_str()}});
            const std::string own = model.getBlock(value("(block 1)"))->getParam(A_OUTPUT_PRECISION)->toString();
            EXPECT_EQ(own.find("typeVector"), std::string::npos) << own;
        }
    }
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "[3][2] s4.3"}}, {{"primWireOut", ""}},
                     {{"constValue", "3"}, {"outputPrecision", "(typeSpecified (typeVector 2 (typeSFixed 9 1)))"}})
                  .size(),
              6U);
}

TEST_F(VectorUnrollersTest, leavesCountersAloneThatShowInitialValuesOutsideTheirRange) {
    EXPECT_EQ(madeOf("counterBlock", {{"portEnable", "u1.0"}}, {{"primWireOut", ""}},
                     {{"counterLimit", "(3 17)"}, {"counterInitial", "2"}, {"counterStep", "1"}})
                  .size(),
              4U);
    EXPECT_EQ(madeOf("counterBlock", {{"portEnable", "[2] u1.0"}}, {{"primWireOut", ""}},
                     {{"counterLimit", "3"}, {"counterInitial", "-1"}, {"counterStep", "1"}})
                  .size(),
              2U);
    EXPECT_EQ(refusalOf("counterBlock", {{"portEnable", "u1.0"}}, {{"primWireOut", ""}},
                        {{"counterLimit", "(3 17)"}, {"counterInitial", "-1"}, {"counterStep", "1"}}),
              "its lanes show initial values outside their range before they count");
}

TEST_F(VectorUnrollersTest, concatenatesByWiring) {
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] s4.0"}, {"1", "s4.0"}, {"2", "[3] s4.0"}}, {{"primWireOut", ""}}),
              (Made{"block_vp"}));
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] s4.0"}, {"1", "u3.2"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 0)", "(block_vp 1)", "(block_vp 2)"}));
    // Subnormals pass, which no cast would let through.
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2][2] float(10,5)"}, {"1", "float(10,5)"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 2)"}));
}

TEST_F(VectorUnrollersTest, concatenatesRowsOfTwoFormatsNumberByNumber) {
    const char *half = "[2][2] float(10,5)";
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", half}, {"1", "[1][2] float(23,8)"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 0)", "((block_vp 0) 0)", "((block_vp 0) 1)", "(block_vp 1)",
                    "((block_vp 1) 0)", "((block_vp 1) 1)"}));
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[1][2] float(23,8)"}, {"1", "float(10,5)"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 1)", "((block_vp 1) 0)"}));
    // Two rows of two casts each, and two numbers that are cast once.
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", half}, {"1", "[2] float(10,5)"}, {"2", "[2][2] float(23,8)"}},
                     {{"primWireOut", ""}})
                  .size(),
              1U + 2U * 3U + 2U * 2U);
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2][2] s4.0"}, {"1", "[1][2] u3.2"}}, {{"primWireOut", ""}}).size(),
              1U + 3U * 3U);
}

TEST_F(VectorUnrollersTest, concatenatesNumbersOfOneFormatThatIsWrittenInTwoWaysWithoutACast) {
    // A cast would flush subnormals.
    const auto concatenated = [&](const char *first, const char *second) {
        const auto make = [&](Design &design) -> Model & {
            Model &top = *Model::create(design, "top");
            Block &made = block(top, "block", "vconcatBlock");
            for (const auto &[key, type] : {std::pair("0", first), std::pair("1", second)}) {
                Block &pin = block(top, std::string("pin") + key, "typePinBlock", {{"typePinType", type}});
                Block *in = top.getInputBlock();
                in = in == nullptr ? Block::create(top, "in", A_INPUT_BLOCK) : in;
                pin.setParam(value("0"), *Wire::create(*in, value(key)));
                made.setParam(value(key), *Wire::create(pin, value("0")));
            }
            output(top, "y", *Wire::create(made, A_PRIM_WIRE_OUT));
            return top;
        };
        Design before(mgr.context());
        Design after(mgr.context());
        make(before);
        const Model &model = make(after);
        unrollVectors(after);
        // The types behind the pass are those before it.
        test::HeardMessages heard(mgr.context());
        test::expectSameBehaviour(before, after);
        EXPECT_EQ(heard.take(), std::vector<std::string>());
        return std::none_of(model.begin(), model.end(),
                            [](const Block &block) { return block.type() == A_CAST_BLOCK.get_ptr(); });
    };
    EXPECT_TRUE(concatenated("(typeVector 2 (typeSFloat 10 5))", "(typeSFloatIEEE 10 5)"));
    EXPECT_TRUE(
        concatenated("(typeVector 2 (typeVector 3 (typeSFloatIEEE 10 5)))", "(typeVector 3 (typeSFloat 10 5))"));
    EXPECT_TRUE(concatenated("(typeVector 2 (typeVector 3 (typeSFloatIEEE 10 5)))", "(typeSFloat 10 5)"));
    EXPECT_FALSE(concatenated("(typeVector 2 (typeSFloat 10 5))", "(typeSFloatIEEE 11 5)"));
}

TEST_F(VectorUnrollersTest, concatenatesRealAndComplexNumbers) {
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] c float(10,5)"}, {"1", "float(10,5)"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 2)", "((block_vp 2) zero)"}));
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] c float(10,5)"}, {"1", "float(23,8)"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 0)", "(block_vp 1)", "(block_vp 2)", "((block_vp 2) zero)"}));
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] c float(23,8)"}, {"1", "float(10,5)"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 2)", "((block_vp 2) zero)", "((block_vp 2) real)"}));
    EXPECT_EQ(
        madeOf("vconcatBlock", {{"0", "[1][2] c float(10,5)"}, {"1", "[1][2] float(10,5)"}}, {{"primWireOut", ""}})
            .size(),
        1U + 3U);
    EXPECT_EQ(madeOf("vconcatBlock", {{"0", "[2] c s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}),
              (Made{"block_vp", "(block_vp 2)"}));
}

TEST_F(VectorUnrollersTest, splitsByWiring) {
    EXPECT_EQ(madeOf("vsplitBlock", {{"0", "[5] s4.0"}}, {{"0", ""}, {"1", ""}}), (Made{"block_vp0", "block_vp1"}));
    EXPECT_EQ(madeOf("vsplitBlock", {{"0", "[5] s4.0"}}, {{"0", ""}, {"1", ""}}, {{"vsplitLayout", "(1 3)"}}),
              (Made{"block_vp1"}));
}

TEST_F(VectorUnrollersTest, splitsWhereNobodyTakesAPart) {
    EXPECT_EQ(madeOf("vsplitBlock", {{"0", "[5] s4.0"}}, {{"0", ""}, {"2", ""}}), (Made{"block_vp0"}));
    EXPECT_EQ(madeOf("vsplitBlock", {{"0", "[7] s4.0"}}, {{"1", ""}, {"3", ""}}), (Made{"block_vp1"}));
    EXPECT_EQ(madeOf("vsplitBlock", {{"0", "[5] s4.0"}}, {{"1", ""}}, {{"vsplitLayout", "(1 3)"}}),
              (Made{"block_vp1"}));
}

TEST_F(VectorUnrollersTest, leavesASplitAloneWhosePartsAreLongerThanItsInput) {
    const char *detail = "its input is no vector, or its parts are longer than that";
    EXPECT_EQ(refusalOf("vsplitBlock", {{"0", "[4] s4.0"}}, {}, {{"vsplitLayout", "(-1 5)"}}), detail);
    EXPECT_EQ(refusalOf("vsplitBlock", {{"0", "s4.0"}}, {}), detail);
    EXPECT_EQ(toldOf("vsplitBlock", {{"0", "[4] s4.0"}}, {{"1", ""}}, {{"vsplitLayout", "(-1 5)"}}),
              std::vector<std::string>{"UNVEC_INVALID_WIRE_TYPE wire=/top/block/1"});
}

TEST_F(VectorUnrollersTest, leavesASelectorAloneWhoseIndicesAreOutsideTheVector) {
    for (const char *indices : {"((4))", "((9))", "((-1))", "((a))", "((1000000000))", "((0.5))", "(3)", "((0) (0))"}) {
        const Texts params{{"vselectorIndicies", indices}};
        EXPECT_EQ(toldOf("vselectorBlock", {{"vselectorPortIn", "[4] s4.0"}}, {{"primWireOut", ""}}, params),
                  std::vector<std::string>{"UNVEC_INVALID_WIRE_TYPE wire=/top/block/primWireOut"})
            << indices;
        EXPECT_EQ(refusalOf("vselectorBlock", {{"vselectorPortIn", "[4] s4.0"}}, {}, params),
                  "its indices do not select elements of its input")
            << indices;
    }
}

TEST_F(VectorUnrollersTest, leavesATableAloneThatIsNoneInSomeLanes) {
    const char *detail = "its contents give some lanes a table and others none";
    for (const char *data : {"(vectorRollTag (1 2) 3)", "(vectorRollTag (1 2) (complexRollTag 3 4))"}) {
        EXPECT_EQ(refusalOf("lutBlock", {{"lutPortAddr", "[2] u1.0"}}, {{"primWireOut", "[2] s4.0"}},
                            {{"lutData", data}, {"lutType", "(typeVector 2 (typeSFixed 4 0))"}}),
                  detail)
            << data;
    }
}

TEST_F(VectorUnrollersTest, knowNoVectorsWithoutElements) {
    for (const char *type : {"[0] u4.0", "[2][0] u4.0"}) {
        const std::vector<std::string> told = toldOf("notBlock", {{"0", type}}, {{"primWireOut", ""}});
        EXPECT_EQ(std::count(told.begin(), told.end(), "UNVEC_INVALID_PORT_TYPE block=/top/block port=0"), 1) << type;
    }
}

TEST_F(VectorUnrollersTest, leaveVectorsWholeThatHaveTooManyLanes) {
    for (const char *type : {"[2000000000] u4.0", "[1048577] u4.0", "[2000000000][2000000000][2000000000] u4.0"}) {
        const std::vector<std::string> told = toldOf("notBlock", {{"0", type}}, {{"primWireOut", ""}});
        for (const char *line : {"UNVEC_INVALID_WIRE_TYPE wire=/top/block/primWireOut",
                                 "UNVEC_INVALID_PORT_TYPE block=/top/block port=0"}) {
            EXPECT_EQ(std::count(told.begin(), told.end(), line), 1) << type << line;
        }
    }
    EXPECT_EQ(refusalOf("latencyPlaceholderBlock", {{"x", "[2] u2.0"}}, {},
                        {{"latencyPlaceholderTypemap", "((x (typeVector 2 (typeUFixed 2 0)))"
                                                       " (z (typeVector 2000000000 (typeUFixed 2 0))))"}}),
              "its map of types holds a vector of too many lanes");
}

TEST_F(VectorUnrollersTest, tellWhyTheyLeaveABlock) {
    EXPECT_EQ(refusalOf("addBlock", {{"0", "[2] s4.0"}, {"1", "[3] s4.0"}}, {}), "its vectors have different lengths");
    EXPECT_EQ(refusalOf("bitJoinReduceBlock", {{"0", "[2] u2.0"}, {"1", "[2] u2.0"}}, {{"primWireOut", "u8.0"}}),
              "it joins several vectors");
    EXPECT_EQ(refusalOf("chanviewBlock", {{"0", "[2] s4.0"}, {"(0 1)", "s4.0"}}, {}), "the name of a lane is in use");
    const Texts demux{{"demuxPortData", "[2] s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}};
    EXPECT_EQ(refusalOf("demuxBlock", demux, {{"4", ""}}, {{"demuxChannelCount", "2"}}),
              "a wire has a name that is not the number of an output");
    EXPECT_EQ(refusalOf("demuxBlock", demux, {{"0", ""}}, {{"demuxChannelCount", "0"}}),
              "its count of channels is not positive");
}

TEST_F(VectorUnrollersTest, makesNoDemultiplexerForALaneWithoutOutputs) {
    Design design(mgr.context());
    const Model &model =
        unrolled(design, "demuxBlock", {{"demuxPortData", "[3] s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}},
                 {{"0", ""}, {"5", ""}}, {{"demuxChannelCount", "2"}});
    EXPECT_EQ(model.getBlock(value("(block vunroll 1)")), nullptr);
    const Block *last = model.getBlock(value("(block vunroll 2)"));
    ASSERT_NE(last, nullptr);
    // The catalogue wants a first output.
    EXPECT_NE(last->getWire(value("0")), nullptr);
    EXPECT_NE(last->getWire(value("1")), nullptr);
    EXPECT_EQ(findingsOf(design), std::set<std::string>{});
}

TEST_F(VectorUnrollersTest, numbersLanesBeforeTheLargestNumberThatThereIs) {
    Design design(mgr.context());
    const Model &model =
        unrolled(design, "stallregBlock",
                 {{"(stallregPortkeyDataBack 2147483647)", "[2] s4.0"}, {"(stallregPortkeyDataBack 0)", "s4.0"}},
                 {{"(stallregWirekeyDataFront 2147483647)", ""}, {"(stallregWirekeyDataFront 0)", ""}});
    const Block &block = *model.getBlock(value("block"));
    EXPECT_EQ(block.getWireCount(), 3U);
    for (const char *number : {"0", "1", "2"}) {
        EXPECT_NE(block.getWire(value("(stallregWirekeyDataFront " + std::string(number) + ")")), nullptr) << number;
        EXPECT_NE(block.getPort(value("(stallregPortkeyDataBack " + std::string(number) + ")")), nullptr) << number;
    }
}

TEST_F(VectorUnrollersTest, selectsByWiring) {
    EXPECT_EQ(madeOf("vselectorBlock", {{"vselectorPortIn", "[4] s4.0"}}, {{"primWireOut", ""}},
                     {{"vselectorIndicies", "((3 0 0))"}}),
              Made{});
    EXPECT_EQ(madeOf("vselectorBlock", {{"vselectorPortIn", "[3][2] s4.0"}}, {{"primWireOut", ""}},
                     {{"vselectorIndicies", "((2 1) (1))"}}),
              Made{});
    EXPECT_EQ(madeOf("vselectorBlock", {{"vselectorPortIn", "[2][3] s4.0"}}, {{"primWireOut", ""}},
                     {{"vselectorIndicies", "((1))"}}),
              Made{});
}

TEST_F(VectorUnrollersTest, makesOneSumOfAReduction) {
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "[4] s4.2"}}, {{"primWireOut", ""}}), (Made{"block_vunroll"}));
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "[3][2] s4.2"}}, {{"primWireOut", ""}}),
              (Made{"(block_vunroll 0)", "(block_vunroll 1)"}));
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "[2][3] s4.2"}}, {{"primWireOut", ""}}),
              (Made{"(block_vunroll 0)", "(block_vunroll 1)", "(block_vunroll 2)"}));
    EXPECT_EQ(madeOf("addReduceBlock", {{"0", "s4.2"}}, {{"primWireOut", ""}}), (Made{"block_vunroll"}));
}

TEST_F(VectorUnrollersTest, makesOneJoinOfAReduction) {
    EXPECT_EQ(madeOf("bitJoinReduceBlock", {{"0", "[3] u2.0"}}, {{"primWireOut", ""}}), (Made{"block_vunroll"}));
    EXPECT_EQ(madeOf("bitJoinReduceBlock", {{"0", "[3] s2.1"}}, {{"primWireOut", ""}}),
              (Made{"block_vunroll", "(block_vunroll bits)"}));
}

TEST_F(VectorUnrollersTest, makesOneScalarProduct) {
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "[3] s4.2"}, {"1", "[3] s3.0"}}, {{"primWireOut", ""}}),
              (Made{"block_vunroll"}));
    EXPECT_EQ(madeOf("scalarProductBlock", {{"0", "[2] s4.2"}, {"1", "s3.0"}, {"2", "[2] s4.2"}, {"3", "[2] u3.0"}},
                     {{"primWireOut", ""}}, {{"subtractive", "true"}}),
              (Made{"block_vunroll", "(block neg 2 0)"}));
}

TEST_F(VectorUnrollersTest, keepsSubnormalsInNegatedFactors) {
    Design design(mgr.context());
    Model &model = unrolled(design, "scalarProductBlock", {{"0", "[2] float(10,5)"}, {"1", "[2] float(10,5)"}},
                            {{"primWireOut", ""}}, {{"subtractive", "true"}, {"floatSubnormals", "true"}});
    const Block *negation = model.getBlock(value("(block neg 0 0)"));
    ASSERT_NE(negation, nullptr);
    EXPECT_EQ(negation->getParam(A_FLOAT_SUBNORMALS), A_TRUE);
}

TEST_F(VectorUnrollersTest, givesEachLaneItsTable) {
    EXPECT_EQ(madeOf("lutBlock", {{"lutPortAddr", "u2.0"}}, {{"primWireOut", ""}},
                     {{"lutData", "((vectorRollTag 1 20) (vectorRollTag 3 4) (vectorRollTag 5 6))"}}),
              (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(madeOf("lutBlock", {{"lutPortAddr", "[2] u2.0"}}, {{"primWireOut", ""}},
                     {{"lutData", "(vectorRollTag (1 2 3) (4 50 6))"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(VectorUnrollersTest, numbersTheOutputsOfADemultiplexerThrough) {
    Design design(mgr.context());
    Model &model =
        unrolled(design, "demuxBlock", {{"demuxPortData", "[3] s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}},
                 {{"0", ""}, {"1", ""}, {"2", ""}, {"3", ""}, {"5", ""}}, {{"demuxChannelCount", "2"}});
    const std::pair<const char *, std::size_t> lanes[] = {
        {"(block vunroll 0)", 2}, {"(block vunroll 1)", 2}, {"(block vunroll 2)", 2}};
    for (const auto &[lane, outputs] : lanes) {
        const Block *block = model.getBlock(value(lane));
        ASSERT_NE(block, nullptr) << lane;
        EXPECT_EQ(block->getWireCount(), outputs);
        EXPECT_NE(block->getPort(A_PORT_VALID), nullptr);
        EXPECT_NE(block->getPort(A_PORT_CHANNEL), nullptr);
    }
}

TEST_F(VectorUnrollersTest, decodesEachAddress) {
    EXPECT_EQ(madeOf("decodeBlock", {{"decodePortAddr", "[2] u2.0"}, {"decodePortWren", "u1.0"}},
                     {{"decodeWireMatch", ""}, {"decodeWireWren", ""}}, {{"decodeAddress", "2"}}),
              (Made{"(block 0)", "(block 1)"}));
}

// The parameter of a side tells the scalar, the content what it is made of.
TEST_F(VectorUnrollersTest, givesLanesOfMemoriesOfAGivenTypeTheirContent) {
    const Texts ports{{"dualMemPortAddr1", "u2.0"}, {"dualMemPortAddr2", "u2.0"}};
    Texts written = ports;
    written.insert(written.end(), {{"dualMemPortData1", "[2] s9.0"}, {"dualMemPortWrite1En", "u1.0"}});
    const Texts outputs{{"dualMemWireData1", ""}, {"dualMemWireData2", ""}};
    for (const char *content : {"((vectorRollTag 1 -20) (vectorRollTag 3 0))", "((vectorRollTag 1 -20) 3 0)"}) {
        for (const char *type : {"(typeSFixed 9 0)", "(typeVector 2 (typeSFixed 9 0))"}) {
            for (const Texts &inputs : {ports, written}) {
                EXPECT_EQ(madeOf("dualMemBlock", inputs, outputs,
                                 {{"dualMemData", content}, {"dualMemTypeData1", type}, {"dualMemTypeData2", type}}),
                          (std::set<std::string>{"(block 0)", "(block 1)"}))
                    << content << " " << type;
            }
        }
    }
}

TEST_F(VectorUnrollersTest, givesEachLaneItsMemory) {
    const Texts ports{{"dualMemPortData1", "[2] s8.0"},
                      {"dualMemPortAddr1", "[2] u2.0"},
                      {"dualMemPortWrite1En", "u1.0"},
                      {"dualMemPortAddr2", "u2.0"},
                      {"dualMemPortRead2", "u1.0"}};
    EXPECT_EQ(madeOf("dualMemBlock", ports, {{"dualMemWireData1", ""}, {"dualMemWireData2", ""}},
                     {{"dualMemDepth1", "4"},
                      {"dualMemDepth2", "4"},
                      {"dualMemData",
                       "((vectorRollTag 1 100) (vectorRollTag 3 4) (vectorRollTag 5 6) (vectorRollTag 7 8))"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(VectorUnrollersTest, givesEachLaneItsMemoryThatIsRolledAroundTheContent) {
    EXPECT_EQ(madeOf("dualMemBlock", {{"dualMemPortAddr1", "u1.0"}, {"dualMemPortAddr2", "[2] u1.0"}},
                     {{"dualMemWireData1", ""}, {"dualMemWireData2", ""}},
                     {{"dualMemData", "(vectorRollTag (1 2) (3 4))"}, {"dualMemTypeData1", "(typeUFixed 3 0)"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(VectorUnrollersTest, leavesAMemoryThatGivesOutFewerLanesThanItTakes) {
    const std::vector<std::string> told =
        toldOf("dualMemBlock",
               {{"dualMemPortAddr1", "u1.0"}, {"dualMemPortData1", "[2] u4.0"}, {"dualMemPortWrite1En", "u1.0"}},
               {{"dualMemWireData1", ""}}, {{"dualMemData", "(1 2)"}});
    EXPECT_EQ(
        std::count(told.begin(), told.end(),
                   "UNVEC_INVALID_EXPAND_TYPE block=/top/block detail=a side gives out fewer lanes than it takes"),
        1);
}

TEST_F(VectorUnrollersTest, keepsThePortsOfAPipeOnOneBlock) {
    EXPECT_EQ(madeOf("pipeBlock", {{"0", "[2] s4.0"}, {"x", "[3] u2.0"}, {"y", "s3.0"}},
                     {{"primWireOut", ""}, {"0", ""}, {"x", ""}, {"y", ""}}),
              Made{});
    EXPECT_EQ(madeOf("pipeBlock", {{"0", "s3.0"}, {"x", "[3] u2.0"}}, {{"primWireOut", ""}, {"x", ""}}), Made{});
    EXPECT_EQ(madeOf("pipeBlock", {{"x", "[3][2] u2.0"}}, {{"primWireOut", ""}}), Made{});
}

TEST_F(VectorUnrollersTest, givesLanesTheirOwnSettings) {
    EXPECT_EQ(madeOf("sequenceBlock", {{"portEnable", "[2] u1.0"}}, {{"primWireOut", ""}},
                     {{"counterLimit", "(3 7)"}, {"counterInitial", "-1"}, {"counterStep", "(1 2)"}}),
              (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(madeOf("fifoDelayBlock",
                     {{"fifoPortData", "[2] s4.0"}, {"portWrite", "[2] u1.0"}, {"portReady", "[2] u1.0"}},
                     {{"fifoWireData", ""}}, {{"fifoDepth", "(2 5)"}}),
              (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(madeOf("counterBlock", {{"portEnable", "[3][2] u1.0"}}, {{"primWireOut", ""}},
                     {{"counterLimit", "(3 17)"}, {"counterInitial", "0"}, {"counterStep", "1"}})
                  .size(),
              12U);
    EXPECT_EQ(madeOf("registerBlock", {{"0", "[2][3] s4.0"}}, {{"primWireOut", ""}},
                     {{"registerInitValue", "(vectorRollTag 1 2 3)"}})
                  .size(),
              6U);
}

TEST_F(VectorUnrollersTest, walkListsOfInitialValuesByTheDimensionsOfWhatARegisterHolds) {
    const char *const data[][2] = {{"[3] u3.0", "(3 1 2)"},
                                   {"[3] c u3.0", "(3 1 2)"},
                                   {"[3] c u3.0", "((complexRollTag 1 2) 1 2)"},
                                   {"[3] u3.0", "(vectorRollTag 3 1 2)"},
                                   {"[2][3] u3.0", "((1 2 3) (4 5 6))"},
                                   {"[2][3] u3.0", "((vectorRollTag 1 2 3) (vectorRollTag 4 5 6))"},
                                   {"[2][3] u3.0", "(4 (vectorRollTag 1 2 3))"}};
    for (const auto &[type, initial] : data) {
        SCOPED_TRACE(std::string(type) + " " + initial);
        EXPECT_EQ(madeOf("registerBlock", {{"0", type}, {"registerPortEnable", "[2][3] u1.0"}}, {{"primWireOut", ""}},
                         {{"registerInitValue", initial}})
                      .size(),
                  6U);
    }
}

TEST_F(VectorUnrollersTest, makeProductsOfAllLanesComplexWhereOneConstantIs) {
    for (const char *constant : {"(vectorRollTag 1 (complexRollTag 1 -2))", "(vectorRollTag (complexRollTag 1 -2) 1)",
                                 "(vectorRollTag (complexRollTag 1 -2) (complexRollTag 3 1))"}) {
        for (const char *type : {"[2] s4.0", "[2] c s4.0", "[2] float(10,5)", "[2] c float(10,5)"}) {
            SCOPED_TRACE(std::string(type) + " " + constant);
            EXPECT_EQ(madeOf("constmultBlock", {{"0", type}}, {{"primWireOut", ""}}, {{"constValue", constant}}),
                      (Made{"(block 0)", "(block 1)"}));
        }
    }
    Design design(mgr.context());
    const Model &model = unrolled(design, "constmultBlock", {{"0", "[2] s4.0"}}, {{"primWireOut", ""}},
                                  {{"constValue", "(vectorRollTag 5 (complexRollTag 1 -2))"}});
    const auto constantOf = [&](const char *lane) {
        return PureValueRef(model.getBlock(value(lane))->getParam(A_CONST_VALUE));
    };
    EXPECT_EQ(constantOf("(block 0)"), value("(complexRollTag 5 0)"));
    EXPECT_EQ(constantOf("(block 1)"), value("(complexRollTag 1 -2)"));
}

TEST_F(VectorUnrollersTest, repeatTheLastConstantOfFloatsToo) {
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "[3] float(10,5)"}}, {{"primWireOut", ""}},
                     {{"constValue", "(vectorRollTag 2 3)"}}),
              (Made{"(block 0)", "(block 1)", "(block 2)"}));
    EXPECT_EQ(madeOf("constmultBlock", {{"0", "[2][3] c float(10,5)"}}, {{"primWireOut", ""}},
                     {{"constValue", "(vectorRollTag (vectorRollTag 2 (complexRollTag 1 5)))"}})
                  .size(),
              6U);
}

TEST_F(VectorUnrollersTest, delayEachLaneByItsOwnLength) {
    for (const auto &[type, lanes] : {std::pair("[3] u3.0", 3U), std::pair("[3] c s3.0", 3U),
                                      std::pair("[2][2] u3.0", 4U), std::pair("[3] {u3.0, [2] s3.0}", 3U)}) {
        EXPECT_EQ(madeOf("delayBlock", {{"0", type}}, {{"primWireOut", ""}}, {{"delayLength", "(3 1 2)"}}).size(),
                  lanes)
            << type;
    }
}

TEST_F(VectorUnrollersTest, queueEachRecordOfAVectorToItsOwnDepth) {
    EXPECT_EQ(madeOf("fifoBlock",
                     {{"fifoPortData", "[2] {u3.0, s3.0}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
                     {{"fifoWireData", ""}, {"fifoWireValid", ""}}, {{"fifoDepth", "(4 1)"}}),
              (Made{"(block 0)", "(block 1)"}));
}

/// A block with a parameter that each lane has its own of.
struct RolledCase {
    const char *type;
    /// Ports that are matrices, with the types of their elements, and scalar ones.
    std::vector<std::pair<const char *, const char *>> matrices;
    std::vector<std::pair<const char *, const char *>> scalars;
    std::vector<const char *> outputs;
    const char *key;
    /// What stands around the rolled value.
    const char *front;
    const char *back;
    std::vector<std::pair<const char *, const char *>> params;
    /// Parameters that tell the type of the whole.
    std::vector<const char *> types{};
};

const std::vector<RolledCase> &rolledCases() {
    using Texts = std::vector<std::pair<const char *, const char *>>;
    const Texts steps{{"counterLimit", "100"}, {"counterInitial", "0"}};
    const Texts initials{{"counterLimit", "100"}, {"counterStep", "3"}};
    const Texts pulses{{"counterLimit", "70"}, {"counterInitial", "-1"}};
    const Texts pulseLimits{{"counterStep", "9"}, {"counterInitial", "-1"}};
    const Texts queue{{"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}};
    const Texts delay{{"portWrite", "u1.0"}, {"portReady", "u1.0"}};
    const Texts memory{{"dualMemPortData1", "s8.0"}, {"dualMemPortAddr1", "u1.0"}, {"dualMemPortAddr2", "u1.0"}};
    static const std::vector<RolledCase> cases{
        {"constBlock", {}, {}, {"primWireOut"}, "constValue", "", "", {}},
        {"registerBlock",
         {{"0", "s8.0"}},
         {{"registerPortEnable", "u1.0"}},
         {"primWireOut"},
         "registerInitValue",
         "",
         "",
         {}},
        {"syncRegisterBlock",
         {{"syncRegisterPortIclkData", "s8.0"}},
         {{"syncRegisterPortIclkEnable", "u1.0"}},
         {"syncRegisterWireIclkData", "syncRegisterWireOclkData"},
         "syncRegisterInitValue",
         "",
         "",
         {},
         {"syncRegisterDataType"}},
        {"counterBlock", {{"portEnable", "u1.0"}}, {}, {"primWireOut"}, "counterStep", "", "", steps},
        {"counterBlock", {{"portEnable", "u1.0"}}, {}, {"primWireOut"}, "counterInitial", "", "", initials},
        {"sequenceBlock", {{"portEnable", "u1.0"}}, {}, {"primWireOut"}, "counterStep", "", "", pulses},
        {"sequenceBlock", {{"portEnable", "u1.0"}}, {}, {"primWireOut"}, "counterLimit", "", "", pulseLimits},
        {"lutBlock", {{"lutPortAddr", "u1.0"}}, {}, {"primWireOut"}, "lutData", "(", " 7)", {}},
        {"lutBlock", {{"lutPortAddr", "u1.0"}}, {}, {"primWireOut"}, "lutData", "", "", {}},
        {"constmultBlock", {{"0", "s4.0"}}, {}, {"primWireOut"}, "constValue", "", "", {}},
        {"constdivBlock", {{"0", "s8.0"}}, {}, {"primWireOut"}, "constValue", "", "", {}},
        {"fifoBlock", {{"fifoPortData", "s4.0"}}, queue, {"fifoWireData", "fifoWireValid"}, "fifoDepth", "", "", {}},
        {"fifoBlock",
         {{"fifoPortData", "s4.0"}},
         queue,
         {"fifoWireData", "fifoWireHigh"},
         "fifoHighThreshold",
         "",
         "",
         {{"fifoDepth", "40"}}},
        {"fifoDelayBlock", {{"fifoPortData", "s4.0"}}, delay, {"fifoWireData"}, "fifoDepth", "", "", {}},
        {"delayBlock", {{"0", "s4.0"}}, {}, {"primWireOut"}, "delayLength", "", "", {}},
        {"decodeBlock", {{"decodePortAddr", "u5.0"}}, {}, {"decodeWireMatch"}, "decodeAddress", "", "", {}},
        {"dualMemBlock",
         memory,
         {{"dualMemPortWrite1En", "u1.0"}},
         {"dualMemWireData1", "dualMemWireData2"},
         "dualMemData",
         "(",
         " 7)",
         {{"dualMemDepth1", "2"}, {"dualMemDepth2", "2"}},
         {"dualMemTypeData1", "dualMemTypeData2"}},
    };
    return cases;
}

class RolledParametersTest : public VectorUnrollersTest {
  protected:
    Model &make(Design &design, const RolledCase &row, const std::string &dims, const std::string &rolled) {
        std::vector<std::string> types;
        for (const auto &[key, element] : row.matrices) {
            types.push_back(dims + " " + element);
        }
        Texts inputs = row.scalars;
        for (std::size_t i = 0; i < types.size(); ++i) {
            inputs.emplace_back(row.matrices[i].first, types[i].c_str());
        }
        Texts outputs;
        for (const char *key : row.outputs) {
            outputs.emplace_back(key, "");
        }
        const std::string text = row.front + rolled + row.back;
        Texts params = row.params;
        params.emplace_back(row.key, text.c_str());
        const std::string matrix = testing::typeText(dims + " s8.0");
        for (const char *key : row.types) {
            params.emplace_back(key, matrix.c_str());
        }
        return unrolled(design, row.type, inputs, outputs, params);
    }
    /// Whether each lane has its element: `wanted` by the outer index, then by the inner one.
    void expectLanes(const RolledCase &row, const std::string &dims, const std::string &rolled,
                     const std::vector<std::vector<int>> &wanted) {
        SCOPED_TRACE(std::string(row.type) + " " + row.key + " " + dims + " " + rolled);
        Design design(mgr.context());
        const Model &model = make(design, row, dims, rolled);
        for (std::size_t outer = 0; outer < wanted.size(); ++outer) {
            for (std::size_t inner = 0; inner < wanted[outer].size(); ++inner) {
                // The name has the innermost index first.
                const std::string name = "(block " + std::to_string(inner) + " " + std::to_string(outer) + ")";
                const Block *lane = model.getBlock(value(name));
                ASSERT_NE(lane, nullptr) << name;
                EXPECT_EQ(PureValueRef(lane->getParam(value(row.key))),
                          value(row.front + std::to_string(wanted[outer][inner]) + row.back))
                    << name;
            }
        }
    }
};

TEST_F(RolledParametersTest, giveTheLanesOfAMatrixTheirElementsInBothOrders) {
    for (const RolledCase &row : rolledCases()) {
        expectLanes(row, "[2][3]", "(vectorRollTag (vectorRollTag 11 12 13) (vectorRollTag 21 22 23))",
                    {{11, 12, 13}, {21, 22, 23}});
        expectLanes(row, "[3][2]", "(vectorRollTag (vectorRollTag 11 12) (vectorRollTag 21 22) (vectorRollTag 31 32))",
                    {{11, 12}, {21, 22}, {31, 32}});
    }
}

TEST_F(RolledParametersTest, giveTheInnermostDimensionTheElementsOfFewerLayers) {
    for (const RolledCase &row : rolledCases()) {
        if (!row.matrices.empty()) {
            expectLanes(row, "[2][3]", "(vectorRollTag 11 12 13)", {{11, 12, 13}, {11, 12, 13}});
            expectLanes(row, "[3][2]", "(vectorRollTag 11 12)", {{11, 12}, {11, 12}, {11, 12}});
        }
    }
}

TEST_F(RolledParametersTest, repeatTheLastElementOfALayerThatIsTooShort) {
    for (const RolledCase &row : rolledCases()) {
        // Elsewhere the value is told by the type that it makes, which would not fit.
        const std::string type = row.type;
        if (type != "constBlock" && type != "lutBlock" && type != "constmultBlock" && type != "constdivBlock" &&
            type != "dualMemBlock" && type != "fifoBlock") {
            expectLanes(row, "[3][2]", "(vectorRollTag (vectorRollTag 11 12) (vectorRollTag 21))",
                        {{11, 12}, {21, 21}, {21, 21}});
            expectLanes(row, "[2][3]", "(vectorRollTag 11 12)", {{11, 12, 12}, {11, 12, 12}});
        }
    }
}

TEST_F(VectorUnrollersTest, takesTheLayersOfTablesForTheInnermostDimensions) {
    for (const char *data : {"(vectorRollTag (1 7) (2 8) (3 9))", "((vectorRollTag 1 2 3) 7)"}) {
        EXPECT_EQ(madeOf("lutBlock", {{"lutPortAddr", "u1.0"}}, {{"primWireOut", ""}},
                         {{"lutData", data}, {"lutType", "(typeVector 2 (typeVector 3 (typeSFixed 8 0)))"}})
                      .size(),
                  6U)
            << data;
    }
}

TEST_F(VectorUnrollersTest, keepsNamedPortsOnOneBlock) {
    EXPECT_EQ(madeOf("signalInBlock", {{"x", "[2] s4.0"}, {"y", "s4.0"}}, {{"x", ""}, {"y", ""}}), Made{});
    EXPECT_EQ(madeOf("latencyPlaceholderBlock", {{"x", "[2] s4.0"}}, {{"y", ""}},
                     {{"latencyPlaceholderTypemap",
                       "((x (typeVector 2 (typeSFixed 4 0))) (y (typeVector 3 (typeSFixed 4 0))))"}}),
              Made{});
}

TEST_F(VectorUnrollersTest, givesDataOfARegionNumbersOfTheirOwn) {
    struct Case {
        const char *type;
        const char *in;
        const char *out;
    };
    const Case cases[] = {{"stallenterBlock", "stallenterPortkeyDataBack", "stallenterWirekeyDataFront"},
                          {"stallexitBlock", "stallexitPortkeyDataBack", "stallexitWirekeyDataFront"},
                          {"stallregBlock", "stallregPortkeyDataBack", "stallregWirekeyDataFront"}};
    for (const Case &row : cases) {
        const auto in = [&](int number) { return "(" + std::string(row.in) + " " + std::to_string(number) + ")"; };
        const auto out = [&](int number) { return "(" + std::string(row.out) + " " + std::to_string(number) + ")"; };
        Design design(mgr.context());
        Model &model = unrolled(design, row.type,
                                {{in(0).c_str(), "[4] s4.0"}, {in(2).c_str(), "s4.0"}, {in(7).c_str(), "[2][3] u3.0"}},
                                {{out(0).c_str(), ""}, {out(2).c_str(), ""}, {out(7).c_str(), ""}});
        const Block &block = *model.getBlock(value("block"));
        Made ports;
        for (const Port &port : block.ports()) {
            ports.insert(port.getName()->toString());
        }
        Made wires;
        for (const Wire &wire : block) {
            wires.insert(wire.getName()->toString());
        }
        Made wantedPorts{in(2)};
        Made wantedWires{out(2)};
        for (int number = 8; number < 8 + 4 + 6; ++number) {
            wantedPorts.insert(in(number));
            wantedWires.insert(out(number));
        }
        EXPECT_EQ(ports, wantedPorts) << row.type;
        EXPECT_EQ(wires, wantedWires) << row.type;
    }
}

TEST_F(VectorUnrollersTest, leavesWhatCombinesVectorsToNothing) {
    EXPECT_EQ(refusalOf("addReduceBlock", {{"0", "[2] s4.0"}}, {}), "its result has no type");
    EXPECT_EQ(refusalOf("bitJoinReduceBlock", {{"0", "[2] s4.0"}}, {}), "its result has no type");
}

TEST_F(VectorUnrollersTest, leavesALoopAloneThatAnotherVectorReaches) {
    EXPECT_EQ(refusalOf("loopBlock", {{"loopPortGo", "u1.0"}, {"loopPortLimit", "[2] u3.0"}, {"other", "[2] u1.0"}},
                        {{"loopWireValue", ""}}),
              "a signal other than its levels is a vector");
}

TEST_F(VectorUnrollersTest, leavesARegionAloneWhoseValidIsAVector) {
    EXPECT_EQ(refusalOf("stallregBlock",
                        {{"(stallregPortkeyValidBack 0)", "[2] u1.0"}, {"(stallregPortkeyDataBack 0)", "[2] s4.0"}},
                        {{"(stallregWirekeyDataFront 0)", ""}}),
              "a signal that controls the stalling is a vector");
}

TEST_F(VectorUnrollersTest, keepsFiltersWhole) {
    const char *valid = "portValid";
    const Texts fir{{"firCoefs", "(3 -7 2 5)"}, {"firChannelCount", "4"}, {"firDecimFactor", "2"}};
    EXPECT_EQ(madeOf("firBlock", {{valid, "u1.0"}, {"0", "[2] s8.0"}, {"1", "[2] s8.0"}},
                     {{"0", ""}, {"1", ""}, {"wireValid", ""}, {"wireChannel", ""}}, fir),
              Made{});
    EXPECT_EQ(madeOf("firBlock", {{valid, "u1.0"}, {"0", "[2][3] s8.0"}}, {{"0", ""}, {"wireValid", ""}},
                     {{"firCoefs", "(3 -7 2 5)"}, {"firInterpFactor", "2"}}),
              Made{});
    const Texts cic{
        {"cicScaleType", "cicScaleDecim"}, {"cicRateFactor", "3"}, {"cicStageCount", "2"}, {"cicDelayCount", "1"},
        {"cicChannelCount", "1"},          {"cicInputRate", "1"}};
    EXPECT_EQ(madeOf("cicBlock", {{valid, "u1.0"}, {"0", "[3] s6.0"}}, {{"0", ""}, {"wireValid", ""}}, cic), Made{});
    EXPECT_EQ(madeOf("scaleBlock", {{valid, "u1.0"}, {"0", "[2] s8.4"}, {"1", "[2] s3.0"}},
                     {{"scaleWireData", ""}, {"0", ""}, {"primWireAux", ""}},
                     {{"scaleOutputType", "(typeSFixed 6 2)"}}),
              Made{});
    EXPECT_EQ(madeOf("mixerBlock", {{valid, "u1.0"}, {"0", "[3] s8.0"}, {"1", "s5.3"}}, {{"0", ""}, {"wireValid", ""}}),
              Made{});
    EXPECT_EQ(madeOf("mixerBlock", {{valid, "u1.0"}, {"0", "[3] s8.0"}, {"1", "[3] s5.3"}, {"2", "[3] s5.3"}},
                     {{"0", ""}, {"1", ""}}),
              Made{});
    EXPECT_EQ(madeOf("chanviewBlock", {{valid, "u1.0"}, {"0", "[3] s8.0"}}, {{"0", ""}, {"wireValid", ""}}), Made{});
    EXPECT_EQ(madeOf("sharedFifoBlock", {{valid, "u1.0"}, {"portReady", "u1.0"}, {"0", "[3] s8.0"}, {"2", "u5.0"}},
                     {{"0", ""}, {"2", ""}, {"wireValid", ""}}, {{"fifoDepth", "4"}}),
              Made{});
}

TEST_F(VectorUnrollersTest, joinsPartsLaneByLane) {
    const Made lanes{"(block 0)", "(block 1)"};
    EXPECT_EQ(madeOf("cpackBlock", {{"cpackPortReal", "[2] s4.0"}, {"cpackPortImag", "s4.0"}}, {{"cpackWireOut", ""}}),
              lanes);
    EXPECT_EQ(
        madeOf("cunpackBlock", {{"cunpackPortIn", "[2] c s4.0"}}, {{"cunpackWireReal", ""}, {"cunpackWireImag", ""}}),
        lanes);
}

TEST_F(VectorUnrollersTest, keepsInterfacesAsOneBlock) {
    for (const char *type : {"extIfaceBlock", "hiddenIfaceBlock"}) {
        // By the name, by being the only ones, and by logic that is not told.
        EXPECT_EQ(madeOf(type, {{"x", "[3] s4.0"}, {"y", "[2][2] u4.1"}}, {{"x", ""}, {"y", ""}}), Made{});
        EXPECT_EQ(madeOf(type, {{"x", "[3] s4.0"}}, {{"y", "[3] s4.0"}}), Made{});
        EXPECT_EQ(madeOf(type, {{"x", "[3] s4.0"}}, {{"y", "[2] s4.0"}}), Made{});
        EXPECT_EQ(madeOf(type, {{"x", "[2] s4.0"}, {"y", "s4.1"}}, {{"z", "[4] s6.0"}, {"w", "s9.0"}}), Made{});
        // A wire that is declared a condition is none of the lanes that come in under its name.
        EXPECT_EQ(madeOf(type, {{"x", "[2] s4.0"}}, {{"x", ""}}, {{"extIfaceBooleanDeclWires", "(x)"}}), Made{});
    }
}

TEST_F(VectorUnrollersTest, namesTheLanesOfAFilter) {
    Design design(mgr.context());
    Model &model = unrolled(design, "firBlock", {{"portValid", "u1.0"}, {"0", "[2] s8.0"}}, {{"0", ""}},
                            {{"firCoefs", "(3 -7 2 5)"}});
    const Block &block = *model.getBlock(value("block"));
    EXPECT_EQ(block.getPort(value("0")), nullptr);
    EXPECT_EQ(block.getWire(value("0")), nullptr);
    for (const char *lane : {"(0 0)", "(0 1)"}) {
        EXPECT_NE(block.getPort(value(lane)), nullptr) << lane;
        EXPECT_NE(block.getWire(value(lane)), nullptr) << lane;
    }
}

TEST_F(VectorUnrollersTest, takesAnOscillatorOfSeveralChannelsApart) {
    Design before(mgr.context());
    Design after(mgr.context());
    for (Design *design : {&before, &after}) {
        Model &model =
            oneBlock(*design, "ncoBlock", {{"portValid", "u1.0"}, {"0", "u8.0"}, {"1", "u8.0"}},
                     {{"ncoWireSin", ""}, {"ncoWireCos", ""}},
                     {{"ncoAccumBitCount", "8"}, {"ncoOutputRate", "20"}, {"ncoOutputType", "(typeSFixed 2 6)"}});
        model.setParam(A_SYNTH_CLOCK_FREQ, value("10"));
    }
    unrollVectors(after);
    test::expectSameBehaviour(before, after);
    const Block &block = *after.begin()->getBlock(value("block"));
    EXPECT_NE(block.getWire(value("(ncoWireSin 1)")), nullptr);
}

TEST_F(VectorUnrollersTest, makesOneLoopOfAVectorOfLimits) {
    Design design(mgr.context());
    Model &model = unrolled(
        design, "loopBlock", {{"loopPortGo", "u1.0"}, {"loopPortEnable", "u1.0"}, {"loopPortLimit", "[3] u2.0"}},
        {{"loopWireValid", ""}, {"loopWireValue", ""}, {"loopWireFirstIter", ""}, {"loopWireLastIter", ""}});
    const Block *loop = model.getBlock(value("(block vunroll)"));
    ASSERT_NE(loop, nullptr);
    for (const char *limit : {"(loopPortLimit 0)", "(loopPortLimit 1)", "(loopPortLimit 2)"}) {
        EXPECT_NE(loop->getPort(value(limit)), nullptr) << limit;
    }
    EXPECT_NE(loop->getWire(value("(loopWireLastIter 2)")), nullptr);
    EXPECT_EQ(loop->getWireCount(), 10U);
    // Levels under keys are scalars as they are.
    EXPECT_EQ(madeOf("loopBlock", {{"loopPortGo", "u1.0"}, {"(loopPortLimit 0)", "u2.0"}}, {{"(loopWireValue 0)", ""}}),
              Made{});
}

TEST_F(VectorUnrollersTest, leavesALoopAloneWhoseLimitsStandInBothForms) {
    EXPECT_EQ(refusalOf("loopBlock",
                        {{"loopPortGo", "u1.0"}, {"loopPortLimit", "[2] u2.0"}, {"(loopPortLimit 0)", "u2.0"}},
                        {{"loopWireValue", ""}}),
              "its levels stand both in vectors and under keys of their own");
}

TEST_F(VectorUnrollersTest, leavesALoopAloneWhoseConditionsAreVectors) {
    for (const char *port : {"loopPortGo", "loopPortEnable"}) {
        const bool isGo = std::string(port) == "loopPortGo";
        const Texts inputs{{"loopPortGo", isGo ? "[2] u1.0" : "u1.0"},
                           {"loopPortEnable", isGo ? "u1.0" : "[2] u1.0"},
                           {"loopPortLimit", "[2] u2.0"}};
        EXPECT_EQ(toldOf("loopBlock", inputs, {{"loopWireValue", ""}}),
                  std::vector<std::string>{"UNVEC_INVALID_PORT_TYPE block=/top/block port=" + std::string(port)});
        Design design(mgr.context());
        EXPECT_NE(refusal(design, oneBlock(design, "loopBlock", inputs, {{"loopWireValue", ""}}))
                      .find(isGo ? "go is not one condition" : "the enable is not one condition"),
                  std::string::npos)
            << port;
    }
}

TEST_F(VectorUnrollersTest, keepsWhatIsKnownOfTheWiresOfPinsAndDemultiplexers) {
    Design design(mgr.context());
    Model &pins = oneBlock(design, "typePinBlock", {{"0", "[2] s4.0"}}, {{"0", ""}});
    pins.getBlock(value("block"))->getWire(value("0"))->setParam(value("mark"), value("a"));
    unrollVectors(design);
    const Block &pin = *pins.getBlock(value("block_vunroll"));
    for (const char *wire : {"0", "1"}) {
        EXPECT_EQ(PureValueRef(pin.getWire(value(wire))->getParam(value("mark"))), value("a")) << wire;
    }
    Design other(mgr.context());
    Model &demuxes =
        oneBlock(other, "demuxBlock", {{"demuxPortData", "[2] s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}},
                 {{"0", ""}, {"3", ""}}, {{"demuxChannelCount", "2"}});
    for (const char *wire : {"0", "3"}) {
        demuxes.getBlock(value("block"))->getWire(value(wire))->setParam(value("mark"), value(wire));
    }
    unrollVectors(other);
    const auto markOf = [&](const char *lane, const char *wire) {
        return PureValueRef(demuxes.getBlock(value(lane))->getWire(value(wire))->getParam(value("mark")));
    };
    EXPECT_EQ(markOf("(block vunroll 0)", "0"), value("0"));
    EXPECT_EQ(markOf("(block vunroll 1)", "1"), value("3"));
}

TEST_F(VectorUnrollersTest, keepsWhatIsKnownOfTheWiresOfAllThatGivesOutSomethingElseThanALane) {
    struct Case {
        const char *type;
        Texts inputs;
        Texts params;
        std::vector<const char *> wires;
        /// The blocks whose only wire has the mark.
        std::vector<std::string> marked;
    };
    const std::vector<Case> cases{
        {"addReduceBlock", {{"0", "[4] s4.0"}}, {}, {"primWireOut"}, {"block_vunroll"}},
        {"bitJoinReduceBlock", {{"0", "[2] s4.2"}}, {}, {"primWireOut"}, {"(block_vunroll bits)"}},
        {"constdivBlock",
         {{"0", "[2] s8.0"}},
         {{"constValue", "(vectorRollTag 3 5)"}},
         {"primWireOut"},
         {"((block 0) cast)", "((block 1) cast)"}},
        {"vconcatBlock", {{"0", "[2] s4.0"}, {"1", "s4.0"}}, {}, {"primWireOut"}, {"block_vp"}},
        {"vsplitBlock", {{"0", "[3] s4.0"}}, {{"vsplitLayout", "(2 1)"}}, {"0"}, {"block_vp0"}},
    };
    for (const Case &of : cases) {
        SCOPED_TRACE(of.type);
        Design design(mgr.context());
        Texts outputs;
        for (const char *wire : of.wires) {
            outputs.emplace_back(wire, "");
        }
        Model &model = oneBlock(design, of.type, of.inputs, outputs, of.params);
        for (Wire &wire : *model.getBlock(value("block"))) {
            wire.setParam(value("mark"), value("a"));
        }
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.apply(design);
        for (const std::string &name : of.marked) {
            const Block *made = model.getBlock(value(name));
            ASSERT_NE(made, nullptr) << name;
            EXPECT_EQ(PureValueRef((*made->begin()).getParam(value("mark"))), value("a")) << name;
        }
    }
}

TEST_F(VectorUnrollersTest, leavesATableAloneWhoseEnableIsAVector) {
    EXPECT_EQ(toldOf("lutBlock", {{"lutPortAddr", "[2] u1.0"}, {"lutPortHitEn", "[2] u1.0"}}, {{"primWireOut", ""}},
                     {{"lutData", "(1 2)"}}),
              std::vector<std::string>{"UNVEC_INVALID_PORT_TYPE block=/top/block port=lutPortHitEn"});
}

TEST_F(VectorUnrollersTest, drivesASignalOfFewerDimensionsFromTheFirstLane) {
    EXPECT_EQ(madeOf("registerBlock", {{"0", "[3] s4.0"}, {"registerPortEnable", "[2][3] u1.0"}}, {{"primWireOut", ""}})
                  .size(),
              6U);
    EXPECT_EQ(
        madeOf("registerBlock", {{"0", "s4.0"}, {"registerPortEnable", "[2] u1.0"}}, {{"primWireOut", ""}}).size(), 2U);
}

TEST_F(VectorUnrollersTest, leavesRecordsWholeWhoseLanesAreInTheirMembers) {
    const char *detail = "its records come apart before its vectors";
    const Texts outputs{{"fifoWireData", ""}, {"fifoWireValid", ""}};
    EXPECT_EQ(refusalOf("fifoBlock",
                        {{"fifoPortData", "{s4.0, u3.0}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
                        outputs, {{"fifoDepth", "(vectorRollTag 4 6)"}}),
              detail);
    EXPECT_EQ(
        refusalOf("fifoBlock",
                  {{"fifoPortData", "{s4.0, u3.0}"}, {"fifoPortWriteEn", "[2] u1.0"}, {"fifoPortReadAck", "u1.0"}},
                  outputs, {{"fifoDepth", "4"}}),
        detail);
    EXPECT_EQ(refusalOf("fifoDelayBlock",
                        {{"fifoPortData", "{s4.0, {u3.0, s2.0}}"}, {"portWrite", "[2] u1.0"}, {"portReady", "u1.0"}},
                        {{"fifoWireData", ""}}, {{"fifoDepth", "4"}}),
              detail);
    EXPECT_EQ(
        madeOf("registerBlock", {{"0", "{s4.0, u3.0}"}, {"registerPortEnable", "[2] u1.0"}}, {{"primWireOut", ""}}),
        (Made{"(block 0)", "(block 1)"}));
}

TEST_F(VectorUnrollersTest, pinsEachLane) {
    EXPECT_EQ(madeOf("typePinBlock", {{"0", "[2] s4.0"}, {"1", "s3.0"}}, {{"0", ""}, {"1", ""}},
                     {{"typePinPortTypes", "((typeVector 2 (typeSFixed 4 0)) (typeSFixed 3 0))"}}),
              (Made{"block_vunroll"}));
}

/// A block whose port number i, counted from 0, is the end of constraint i, and whose wire number i is the start of
/// constraint 50 + i.
class ConstraintsOfLanesTest : public VectorUnrollersTest {
  protected:
    /// The blocks that have points after the pass and what they have there: "port:ids" and "wire:ids", sorted.
    std::map<std::string, std::set<std::string>> pointsOf(const std::string &type, const Texts &inputs,
                                                          const Texts &outputs, const Texts &params = {}) {
        Design design(mgr.context());
        Model &model = oneBlock(design, type, inputs, outputs, params);
        Block &old = *model.getBlock(value("block"));
        old.setParam(A_SCHEDULE_CONSTRAINT_PORTS, entries(inputs, [](int i) { return fmt::format("() ({})", i); }));
        old.setParam(A_SCHEDULE_CONSTRAINT_WIRES,
                     entries(outputs, [](int i) { return fmt::format("({}) ()", 50 + i); }));
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.apply(design);
        EXPECT_EQ(heard.take(), std::vector<std::string>());
        std::map<std::string, std::set<std::string>> points;
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            for (const TupleValueRef &entry : entriesOf(block, A_SCHEDULE_CONSTRAINT_PORTS)) {
                EXPECT_NE(block.getPort(PureValueRef(entry->at(0))), nullptr) << name << " " << entry->toString();
                points[name].insert(entry->at(0)->toString() + ":" + entry->at(3)->toString());
            }
            for (const TupleValueRef &entry : entriesOf(block, A_SCHEDULE_CONSTRAINT_WIRES)) {
                EXPECT_NE(block.getWire(PureValueRef(entry->at(0))), nullptr) << name << " " << entry->toString();
                points[name].insert(entry->at(0)->toString() + ":" + entry->at(2)->toString());
            }
        }
        return points;
    }
    using Points = std::map<std::string, std::set<std::string>>;

  private:
    static std::vector<TupleValueRef> entriesOf(const Block &block, const StaticString &param) {
        const TupleValueRef list = tupleVR(block.getParam(param));
        std::vector<TupleValueRef> entries;
        for (std::size_t i = 0; list && i < list->size(); ++i) {
            entries.push_back(tupleVR(list->at(i)));
        }
        return entries;
    }
    template <class Ids> PureValueRef entries(const Texts &signals, Ids ids) {
        std::string text = "(";
        int number = 0;
        for (const auto &[key, type] : signals) {
            text += fmt::format("({} true {})", key, ids(number++));
        }
        return value(text + ")");
    }
};

TEST_F(ConstraintsOfLanesTest, areThoseOfTheLanesOfATypePin) {
    EXPECT_EQ(
        pointsOf("typePinBlock", {{"0", "[2] s4.0"}, {"1", "[2] s4.0"}}, {{"0", ""}, {"1", ""}}),
        (Points{{"block_vunroll", {"0:(0)", "1:(0)", "2:(1)", "3:(1)", "0:(50)", "1:(50)", "2:(51)", "3:(51)"}}}));
}

TEST_F(ConstraintsOfLanesTest, areThoseOfTheFactorsOfAScalarProduct) {
    EXPECT_EQ(pointsOf("scalarProductBlock",
                       {{"0", "[2] s4.2"}, {"1", "[2] u4.2"}, {"2", "[2] s4.2"}, {"3", "[2] s4.2"}},
                       {{"primWireOut", ""}}),
              (Points{{"block_vunroll",
                       {"0:(0)", "2:(0)", "1:(1)", "3:(1)", "4:(2)", "6:(2)", "5:(3)", "7:(3)", "primWireOut:(50)"}}}));
}

TEST_F(ConstraintsOfLanesTest, areBehindTheCastsOfLanes) {
    EXPECT_EQ(pointsOf("counterBlock", {{"portEnable", "u1.0"}}, {{"primWireOut", ""}},
                       {{"counterLimit", "(3 17)"}, {"counterInitial", "0"}, {"counterStep", "1"}}),
              (Points{{"(block 0)", {"portEnable:(0)"}},
                      {"(block 1)", {"portEnable:(0)"}},
                      {"((block 0) cast)", {"primWireOut:(50)"}},
                      {"((block 1) cast)", {"primWireOut:(50)"}}}));
    EXPECT_EQ(
        pointsOf("constdivBlock", {{"0", "[2] u4.0"}}, {{"primWireOut", ""}}, {{"constValue", "(vectorRollTag 1 -3)"}}),
        (Points{{"(block 0)", {"0:(0)"}},
                {"(block 1)", {"0:(0)"}},
                {"((block 0) cast)", {"primWireOut:(50)"}},
                {"((block 1) cast)", {"primWireOut:(50)"}}}));
}

TEST_F(ConstraintsOfLanesTest, areBehindTheBitsOfAJoin) {
    EXPECT_EQ(pointsOf("bitJoinReduceBlock", {{"0", "[2] s4.2"}}, {{"primWireOut", ""}}),
              (Points{{"block_vunroll", {"0:(0)", "1:(0)"}}, {"(block_vunroll bits)", {"primWireOut:(50)"}}}));
    EXPECT_EQ(pointsOf("addReduceBlock", {{"0", "[2] s4.0"}, {"1", "[2] s4.0"}}, {{"primWireOut", ""}}),
              (Points{{"(block_vunroll 0)", {"0:(0)", "1:(1)", "primWireOut:(50)"}},
                      {"(block_vunroll 1)", {"0:(0)", "1:(1)", "primWireOut:(50)"}}}));
}

TEST_F(ConstraintsOfLanesTest, areThoseOfTheOutputsOfADemultiplexer) {
    EXPECT_EQ(
        pointsOf("demuxBlock", {{"demuxPortData", "[2] s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}},
                 {{"0", ""}, {"1", ""}, {"2", ""}, {"3", ""}}, {{"demuxChannelCount", "2"}}),
        (Points{{"(block vunroll 0)", {"demuxPortData:(0)", "portValid:(1)", "portChannel:(2)", "0:(50)", "1:(51)"}},
                {"(block vunroll 1)", {"demuxPortData:(0)", "portValid:(1)", "portChannel:(2)", "0:(52)", "1:(53)"}}}));
}

TEST_F(ConstraintsOfLanesTest, areWhereASelectedLaneIsRead) {
    EXPECT_EQ(pointsOf("vselectorBlock", {{"vselectorPortIn", "[4] s4.0"}}, {{"primWireOut", ""}},
                       {{"vselectorIndicies", "((3 1))"}}),
              (Points{{"((block primWireOut) vp)", {"0:(0)", "1:(0)"}},
                      {"((block vselectorPortIn) vup)", {"1:(50)", "3:(50)"}}}));
}

TEST_F(ConstraintsOfLanesTest, areThoseOfEachLane) {
    EXPECT_EQ(pointsOf("addBlock", {{"0", "[2] s4.0"}, {"1", "s4.0"}}, {{"primWireOut", ""}}),
              (Points{{"(block 0)", {"0:(0)", "1:(1)", "primWireOut:(50)"}},
                      {"(block 1)", {"0:(0)", "1:(1)", "primWireOut:(50)"}}}));
}

/// A model of one block that two others instantiate: inputs of other types give its signals other types.
class VectorsOfTwoInstancesTest : public VectorUnrollersTest {
  protected:
    /// The instances take inputs of the types that stand at the keys, first and second.
    struct Input {
        const char *key;
        const char *first;
        const char *second;
    };
    struct Case {
        const char *type;
        std::vector<Input> inputs;
        Texts params = {};
        std::string out = "primWireOut";
    };
    Model &make(Design &design, const Case &of) {
        Model &top = *Model::create(design, "top");
        Model &below = *Model::create(design, "below");
        Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
        Block &made = block(below, "block", of.type, of.params);
        for (const Input &one : of.inputs) {
            made.setParam(value(one.key), *Wire::create(in, value(one.key)));
        }
        output(below, "y", *Wire::create(made, value(of.out)));
        for (const bool isFirst : {true, false}) {
            const std::string name = isFirst ? "a" : "b";
            Block &use = block(top, name, "modelBlock");
            use.setParam(A_MODEL_NODE, below);
            for (const Input &one : of.inputs) {
                use.setParam(value(one.key), input(top, name + one.key, isFirst ? one.first : one.second));
            }
            output(top, "y" + name, *Wire::create(use, value("y")));
        }
        return below;
    }
    /// What the pass says. What is left computes what it did.
    std::vector<std::string> unroll(Design &design, const Case &of) {
        Design before(mgr.context());
        make(before, of);
        make(design, of);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.addPass("ElideUnpackPass");
        scheduler.apply(design);
        std::vector<std::string> told = heard.take();
        for (std::string &line : told) {
            // Which types, one test of its own asks.
            line = line.substr(0, line.find(": ", line.find("instances of the model")));
        }
        EXPECT_TRUE(test::checkInvariants(design));
        sim::CompareOptions options;
        options.cycles = 60;
        EXPECT_TRUE(test::sameBehaviour(before, design, "top", options)) << of.type;
        return told;
    }
    /// In either order of the instances.
    void expectTold(const Case &of, const std::vector<std::string> &told, bool comesApart) {
        Case turned = of;
        for (Input &one : turned.inputs) {
            std::swap(one.first, one.second);
        }
        for (const Case &one : {of, turned}) {
            Design design(mgr.context());
            EXPECT_EQ(unroll(design, one), told) << of.type;
            const Block *left = design.getModel(value("below"))->getBlock(value("block"));
            EXPECT_EQ(left == nullptr, comesApart) << of.type;
        }
    }
    void expectComesApart(const Case &of) { expectTold(of, {}, true); }
    void expectStays(const Case &of) {
        expectTold(of,
                   {"UNVEC_INVALID_EXPAND_TYPE block=/below/block detail=its signals differ in type between the "
                    "instances of the model"},
                   false);
    }
};

TEST_F(VectorsOfTwoInstancesTest, comeApartWhereNoTypeIsWritten) {
    expectComesApart({"addBlock", {{"0", "[2] s4.0", "[2] s8.0"}, {"1", "s4.0", "s4.2"}}});
    expectComesApart({"delayBlock", {{"0", "[2] s4.0", "[2] s8.0"}}, {{"delayLength", "1"}}});
    expectComesApart(
        {"muxBlock", {{"muxPortSelect", "u1.0", "u1.0"}, {"0", "[2] s4.0", "[2] s8.0"}, {"1", "s8.0", "s4.0"}}});
    expectComesApart({"vsplitBlock", {{"0", "[2] s4.0", "[2] s8.0"}}, {}, "0"});
}

TEST_F(VectorsOfTwoInstancesTest, haveNoSumOfOneTypeInAReduction) {
    expectStays({"addReduceBlock", {{"0", "[4] s4.0", "[4] s8.0"}}});
    expectStays({"addReduceBlock", {{"0", "[3] s4.0", "[3] s8.0"}}, {{"addType", "(typeSFixed 9 0)"}}});
    expectStays({"addReduceBlock", {{"0", "[3] s4.0", "[3] s8.0"}, {"1", "[3] s4.0", "[3] s4.0"}}});
    expectComesApart({"addReduceBlock", {{"0", "[4] s4.0", "[4] s4.0"}}});
}

TEST_F(VectorsOfTwoInstancesTest, areToldWithBothTypes) {
    Design design(mgr.context());
    make(design, {"addReduceBlock", {{"0", "[4] s4.0", "[4] s8.0"}}});
    test::HeardMessages heard(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("UnrollVectorPass");
    scheduler.apply(design);
    EXPECT_EQ(heard.take(), std::vector<std::string>{
                                "UNVEC_INVALID_EXPAND_TYPE block=/below/block detail=its signals differ in type "
                                "between the instances of the model: wire 'primWireOut' is (typeSFixed 7 0) in one "
                                "and (typeSFixed 11 0) in another"});
}

TEST_F(VectorsOfTwoInstancesTest, haveASumOfNoTypeWhereThatIsTheTypeOfTheReduction) {
    expectComesApart({"addReduceBlock", {{"0", "s4.0", "s8.0"}}});
    expectComesApart({"addReduceBlock", {{"0", "[3] s4.0", "[3] u8.2"}}});
    expectComesApart({"addReduceBlock", {{"0", "[2][3] s4.0", "[2][3] s8.0"}}, {{"addNoGrowth", "true"}}});
    expectComesApart({"addReduceBlock", {{"0", "[7] c s4.0", "[7] c s8.0"}}});
    expectComesApart({"addReduceBlock", {{"0", "[5] float(10,5)", "[5] float(23,8)"}}});
    expectComesApart({"addReduceBlock", {{"0", "[4] s4.0", "[4] s8.0"}}, {{"addNoGrowth", "true"}}});
}

TEST_F(VectorsOfTwoInstancesTest, haveNoScalarProductOfOneType) {
    expectStays({"scalarProductBlock", {{"0", "[2] s4.0", "[2] s8.0"}, {"1", "[2] s4.0", "[2] s8.0"}}});
    // The products are of one type, the factors not.
    const std::vector<Input> crossed{{"0", "[2] s4.0", "[2] s8.0"}, {"1", "[2] s8.0", "[2] s4.0"}};
    expectComesApart({"scalarProductBlock", crossed});
    expectStays({"scalarProductBlock", crossed, {{"subtractive", "true"}}});
}

TEST_F(VectorsOfTwoInstancesTest, keepAMultiplierWholeWhoseConstantsDiffer) {
    const std::vector<Input> inputs{{"0", "[2] s4.0", "[2] s8.0"}};
    expectStays({"constmultBlock", inputs, {{"constValue", "(vectorRollTag 1 100)"}}});
    expectComesApart({"constmultBlock", inputs, {{"constValue", "(vectorRollTag 100 100)"}}});
    expectComesApart({"constmultBlock", inputs, {{"constValue", "100"}}});
    expectComesApart(
        {"constmultBlock",
         inputs,
         {{"constValue", "(vectorRollTag 1 100)"}, {"outputPrecision", "(typeSpecified (typeSFixed 12 0))"}}});
    expectStays({"constmultBlock", {{"0", "[2] s4.0", "[2] float(10,5)"}}, {{"constValue", "(vectorRollTag 1 100)"}}});
    expectComesApart(
        {"constmultBlock", {{"0", "[2] float(23,8)", "[2] float(10,5)"}}, {{"constValue", "(vectorRollTag 1 100)"}}});
}

TEST_F(VectorsOfTwoInstancesTest, keepADividerWholeWhoseConstantsDiffer) {
    const std::vector<Input> inputs{{"0", "[2] s4.0", "[2] s8.0"}};
    expectStays({"constdivBlock", inputs, {{"constValue", "(vectorRollTag 3 5)"}}});
    expectComesApart({"constdivBlock", inputs, {{"constValue", "(vectorRollTag 3 3)"}}});
    expectComesApart({"constdivBlock", inputs, {{"constValue", "3"}}});
}

TEST_F(VectorsOfTwoInstancesTest, areNotJoinedWhereOneHasToBeBroughtToAnother) {
    expectStays({"vconcatBlock", {{"0", "[2] s4.0", "[2] s8.0"}, {"1", "s4.0", "s4.0"}}});
    expectStays({"vconcatBlock", {{"0", "[2] s4.0", "[2] s6.0"}, {"1", "s8.0", "s8.0"}}});
    expectComesApart({"vconcatBlock", {{"0", "[2] s4.0", "[2] s8.0"}, {"1", "s4.0", "s8.0"}}});
    expectComesApart({"vconcatBlock", {{"0", "[2][3] s4.0", "[2][3] s8.0"}, {"1", "s4.0", "s8.0"}}});
    expectComesApart({"vconcatBlock", {{"0", "[2] s4.0", "[2] s4.0"}, {"1", "s8.0", "s8.0"}}});
}

TEST_F(VectorsOfTwoInstancesTest, areNotJoinedBitByBitWithAFractionInOne) {
    expectStays({"bitJoinReduceBlock", {{"0", "[2] s4.0", "[2] s4.2"}}});
    expectStays({"bitJoinReduceBlock", {{"0", "[2] s4.1", "[2] s6.2"}}});
    expectComesApart({"bitJoinReduceBlock", {{"0", "[2] s4.0", "[2] s8.0"}}});
    expectComesApart({"bitJoinReduceBlock", {{"0", "[2] s4.2", "[2] s4.2"}}});
}

TEST_F(VectorsOfTwoInstancesTest, areHeldByAMemoryWithoutAContent) {
    const std::vector<Input> inputs{{"dualMemPortData1", "[2] s4.0", "[2] s8.0"},
                                    {"dualMemPortAddr1", "u2.0", "u2.0"},
                                    {"dualMemPortWrite1En", "u1.0", "u1.0"}};
    expectComesApart({"dualMemBlock", inputs, {{"dualMemDepth1", "4"}}, "dualMemWireData1"});
    expectComesApart(
        {"dualMemBlock", inputs, {{"dualMemData", "((vectorRollTag 1 -20) (vectorRollTag 3 0))"}}, "dualMemWireData1"});
    // Only complex numbers that are written make the content complex.
    std::vector<Input> parts = inputs;
    parts[0].second = "[2] c s4.0";
    expectStays({"dualMemBlock",
                 parts,
                 {{"dualMemData", "(1 -20 3 0)"}, {"dualMemTypeData1", "(typeVector 2 (typeSFixed 9 0))"}},
                 "dualMemWireData1"});
}

TEST_F(VectorsOfTwoInstancesTest, areOfNoTypeThatAPinOfPortsCouldTell) {
    const std::vector<Input> inputs{{"0", "[2] s4.0", "[2] s8.0"}};
    expectStays({"typePinBlock", inputs, {{"typePinPortTypes", "()"}}, "0"});
    expectComesApart({"typePinBlock", inputs, {}, "0"});
}

TEST_F(VectorsOfTwoInstancesTest, areComparedWithTheirDriversInEach) {
    expectTold({"syncRegisterBlock",
                {{"syncRegisterPortIclkData", "[2] s4.0", "s4.0"}},
                {{"syncRegisterDataType", "(typeVector 2 (typeSFixed 4 0))"}},
                "syncRegisterWireOclkData"},
               {"UNVEC_INVALID_PORT_TYPE block=/below/block port=syncRegisterPortIclkData"}, false);
}

TEST_F(VectorsOfTwoInstancesTest, stayInRecordsThatHoldThemInOne) {
    expectTold(
        {"muxBlock",
         {{"muxPortSelect", "[2] u1.0", "[2] u1.0"}, {"0", "{s4.0}", "{[2] s4.0}"}, {"1", "{s4.0}", "{[2] s4.0}"}}},
        {"UNVEC_INVALID_EXPAND_TYPE block=/below/block detail=its records come apart before its vectors"}, false);
}

/// The types of the blocks that the pass took apart or whose signals it did.
std::set<std::string> takenApart(const Design &before, const Design &after) {
    std::set<std::string> types;
    for (const Model &model : before) {
        const Model *now = after.getModel(model.getName());
        for (const Block &block : model) {
            const Block *same = now->getBlock(block.getName());
            if (same == nullptr || same->getPortCount() != block.getPortCount() ||
                same->getWireCount() != block.getWireCount()) {
                types.insert(PureValueRef(block.getParam(A_BLOCK_TYPE))->toString());
            }
        }
    }
    return types;
}

TEST(VectorUnrollers, takeApartByChanceWhatTheyKnow) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::set<std::string> unseen;
    for (const internal::VectorUnrollRow &row : internal::vectorUnrollRows()) {
        if (row.handler != nullptr) {
            unseen.insert(row.blockType->text());
        }
    }
    for (std::uint64_t seed = 0; seed < 1500 && !unseen.empty(); ++seed) {
        const auto recipes = gen::recipesOf(seed, 60);
        const auto before = generator.make(recipes);
        const auto after = generator.make(recipes);
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollVectorPass");
        scheduler.apply(*after);
        bool isNew = false;
        for (const std::string &type : takenApart(*before, *after)) {
            isNew = unseen.erase(type) != 0 || isNew;
        }
        if (isNew) {
            sim::CompareOptions options;
            options.cycles = 40;
            EXPECT_TRUE(test::sameBehaviour(*before, *after, "top", options)) << seed;
        }
    }
    EXPECT_EQ(unseen, std::set<std::string>{});
}

} // namespace
} // namespace orvo
