// Tables whose entries or addresses are more than numbers in a row.
#include "support/simulatorfixture.h"

namespace orvo::sim {
namespace {

using test::Numbers;
using ByName = std::map<std::string, std::int64_t>;

class TableTest : public test::SimulatorFixture {};

TEST_F(TableTest, findsEntriesByTheirListedAddresses) {
    for (const char *const type : {"u8.0", "s8.0", "u70.0"}) {
        Design design(mgr.context());
        Model &top = oneBlock(design, "lutBlock", {{"lutPortAddr", type}, {"lutPortHitEn", "u1.0"}},
                              {{"primWireOut", ""}, {"lutWirePureHit", ""}, {"lutWireEnHit", ""}},
                              {{"lutData", "(3 5 -2 7 1)"}, {"lutAddresses", "(16 2 127 2 80)"}});
        Simulator simulator(design, top);
        // Of two entries at one address the first counts.
        const ByName entries{{"16", 3}, {"2", 5}, {"127", -2}, {"80", 1}};
        for (std::int64_t address = 0; address < 128; ++address) {
            const auto at = entries.find(std::to_string(address));
            const std::int64_t hit = at == entries.end() ? 0 : 1;
            for (const std::int64_t enable : {0, 1}) {
                EXPECT_EQ(stepByName(simulator, {{"lutPortAddr", address}, {"lutPortHitEn", enable}}),
                          (ByName{{"primWireOut", hit != 0 ? at->second : 0},
                                  {"lutWirePureHit", hit},
                                  {"lutWireEnHit", hit & enable}}))
                    << type << " " << address;
            }
        }
    }
}

TEST_F(TableTest, hitsWhereItHasDataWithoutAList) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "lutBlock", {{"lutPortAddr", "u70.0"}},
                          {{"lutWirePureHit", ""}, {"lutWireEnHit", ""}}, {{"lutData", "(3 5 2)"}});
    Simulator simulator(design, top);
    for (std::int64_t address = 0; address < 6; ++address) {
        EXPECT_EQ(stepWith(simulator, {address}), (Numbers{address < 3, address < 3}));
    }
    // A far address is none of the near ones.
    simulator.setInput(0, {0, 1});
    simulator.step();
    EXPECT_EQ(simulator.outputInteger(0), 0);
}

TEST_F(TableTest, readsNegativeAddressesAsPatterns) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "lutBlock", {{"lutPortAddr", "s4.0"}}, {{"primWireOut", ""}},
                          {{"lutData", "(3 5)"}, {"lutAddresses", "(-2 15)"}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepWith(simulator, {-2}), (Numbers{3}));
    EXPECT_EQ(stepWith(simulator, {-1}), (Numbers{5}));
    EXPECT_EQ(stepWith(simulator, {2}), (Numbers{0}));
}

TEST_F(TableTest, holdsComplexNumbersAndVectors) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "lutBlock", {{"lutPortAddr", "u2.0"}}, {{"primWireOut", ""}},
                 {{"lutData", "((vectorRollTag (complexRollTag 1 -2) 3) (vectorRollTag 4 (complexRollTag 5 6)))"}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepWith(simulator, {0}), (Numbers{1, -2, 3, 0}));
    EXPECT_EQ(stepWith(simulator, {1}), (Numbers{4, 0, 5, 6}));
    EXPECT_EQ(stepWith(simulator, {2}), (Numbers{0, 0, 0, 0}));
}

TEST_F(TableTest, holdsATableForEachElement) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "lutBlock", {{"lutPortAddr", "u2.0"}}, {{"primWireOut", ""}, {"lutWirePureHit", ""}},
                          {{"lutData", "(vectorRollTag (1 2 3) (4 5 6))"}, {"lutType", "(typeSFixed 8 4)"}});
    Simulator simulator(design, top);
    for (std::int64_t address = 0; address < 3; ++address) {
        EXPECT_EQ(stepByName(simulator, {{"lutPortAddr", address}}), (ByName{{"primWireOut[0]", 16 * (1 + address)},
                                                                             {"primWireOut[1]", 16 * (4 + address)},
                                                                             {"lutWirePureHit", 1}}));
    }
    EXPECT_EQ(stepByName(simulator, {{"lutPortAddr", 3}}),
              (ByName{{"primWireOut[0]", 0}, {"primWireOut[1]", 0}, {"lutWirePureHit", 0}}));
}

TEST_F(TableTest, takesLayersOfTablesAndEntriesForTheInnermostDimensions) {
    struct Case {
        const char *type;
        const char *data;
        Numbers atZero;
    };
    const char *s8x23 = "(typeVector 2 (typeVector 3 (typeSFixed 8 0)))";
    const char *s8x32 = "(typeVector 3 (typeVector 2 (typeSFixed 8 0)))";
    const Case cases[] = {
        {s8x23, "(vectorRollTag (1 7) (2 8) (3 9))", {1, 2, 3, 1, 2, 3}},
        {s8x32, "(vectorRollTag (1 7) (2 8))", {1, 2, 1, 2, 1, 2}},
        {s8x23, "((vectorRollTag 1 2 3) 7)", {1, 2, 3, 1, 2, 3}},
        {s8x32, "((vectorRollTag 1 2) 7)", {1, 2, 1, 2, 1, 2}},
        {s8x23, "(vectorRollTag ((vectorRollTag 1 2 3)) ((vectorRollTag 4 5 6)))", {1, 2, 3, 4, 5, 6}},
        {s8x32,
         "(vectorRollTag ((vectorRollTag 1 2)) ((vectorRollTag 3 4)) ((vectorRollTag 5 6)))",
         {1, 2, 3, 4, 5, 6}},
        {s8x32,
         "(vectorRollTag (vectorRollTag (1) (2)) (vectorRollTag (3) (4)) (vectorRollTag (5) (6)))",
         {1, 2, 3, 4, 5, 6}}};
    for (const Case &row : cases) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, "lutBlock", {{"lutPortAddr", "u1.0"}}, {{"primWireOut", ""}},
                                             {{"lutData", row.data}, {"lutType", row.type}}));
        EXPECT_EQ(stepWith(simulator, {0}), row.atZero) << row.data;
    }
}

TEST_F(TableTest, refusesAnAddressThatIsNone) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "lutBlock", {{"lutPortAddr", "u2.0"}}, {{"primWireOut", ""}},
                          {{"lutData", "(1 2)"}, {"lutAddresses", "(0 x)"}});
    EXPECT_EQ(refusal(design, top), "an address is no integer top/block");
}

class RolledTest : public test::SimulatorFixture {};

TEST_F(RolledTest, constantsRepeatInTheOuterDimensions) {
    struct Case {
        const char *type;
        const char *value;
        Numbers elements;
    };
    const Case cases[] = {
        {"(typeVector 2 (typeVector 3 (typeSFixed 8 0)))", "(vectorRollTag 1 2 3)", {1, 2, 3, 1, 2, 3}},
        {"(typeVector 3 (typeVector 2 (typeSFixed 8 0)))", "(vectorRollTag 1 2)", {1, 2, 1, 2, 1, 2}},
        {"(typeVector 2 (typeVector 2 (typeSFixed 8 0)))", "(vectorRollTag 1 2)", {1, 2, 1, 2}}};
    for (const Case &row : cases) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, "constBlock", {}, {{"primWireOut", ""}},
                                             {{"constValue", row.value}, {"constType", row.type}}));
        EXPECT_EQ(stepWith(simulator, {}), row.elements) << row.type;
    }
}

TEST_F(RolledTest, countersRepeatInTheOuterDimensions) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "counterBlock", {{"portEnable", "[3][2] u1.0"}}, {{"primWireOut", ""}},
                                 {{"counterLimit", "(3 5)"}, {"counterInitial", "(1 3)"}, {"counterStep", "(1 2)"}}));
    EXPECT_EQ(stepWith(simulator, {1, 1, 0, 1, 1, 0}), (Numbers{2, 0, 1, 0, 2, 3}));
}

class RegisterTest : public test::SimulatorFixture {};

TEST_F(RegisterTest, beginsWithItsInitialValue) {
    struct Case {
        const char *type;
        const char *initial;
        Numbers first;
    };
    const Case cases[] = {{"s8.0", "-3", {-3}},
                          {"c s8.0", "5", {5, 0}},
                          {"c s8.0", "(complexRollTag 1 -2)", {1, -2}},
                          {"[2] s8.0", "7", {7, 7}},
                          {"[2] c s8.0", "(vectorRollTag (complexRollTag 1 -2) 3)", {1, -2, 3, 0}},
                          {"[2][2] u4.0", "(vectorRollTag (vectorRollTag 1 2) 3)", {1, 2, 3, 3}},
                          {"[2][3] u4.0", "(vectorRollTag 1 2 3)", {1, 2, 3, 1, 2, 3}},
                          {"[3][2] u4.0", "(vectorRollTag 1 2)", {1, 2, 1, 2, 1, 2}},
                          {"[3] u4.0", "(vectorRollTag 1 2)", {1, 2, 2}},
                          {"{s4.0,[2] u4.0}", "(-1 (vectorRollTag 2 3))", {-1, 2, 3}}};
    for (const Case &row : cases) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, "registerBlock", {{"0", row.type}}, {{"primWireOut", ""}},
                                             {{"registerInitValue", row.initial}}));
        EXPECT_EQ(stepWith(simulator, Numbers(row.first.size(), 1)), row.first) << row.type << row.initial;
        EXPECT_EQ(stepWith(simulator, {}), Numbers(row.first.size(), 1)) << row.type;
    }
}

} // namespace
} // namespace orvo::sim
