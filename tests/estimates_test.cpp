// What block types cost: every type has a row, and each row's formula is looked at on a block.
#include "generator/estimates.h"

#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/basedevice.h>
#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/pass.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <set>

namespace orvo::generator {
namespace {

using Texts = std::vector<std::pair<const char *, const char *>>;

class EstimatesTest : public orvo::test::SimulatorFixture {
  protected:
    /// Of a block with ports and wires of these types.
    std::optional<Usage> estimate(const std::string &type, const Texts &inputs, const Texts &outputs,
                                  const Texts &params = {}, const Texts &modelParams = {}) {
        Design design(mgr.context());
        Model &top = oneBlock(design, type, inputs, outputs, params);
        for (const auto &[key, text] : modelParams) {
            top.setParam(value(key), ValueRef(value(text)));
        }
        return of(top, type);
    }
    /// Of the one block of a type.
    std::optional<Usage> of(Model &top, const std::string &type) {
        PassScheduler scheduler;
        scheduler.requirePass("GlobalTypePass");
        const PassResults results = scheduler.apply(top.getDesign());
        GlobalTypePass &all = *results.getPass<GlobalTypePass>();
        const TypesAt types{[&](const Port &port) { return all.getType(port, {}); },
                            [&](const Wire &wire) { return all.getType(wire, {}); }};
        const BuildOptions options = BuildOptions::of(top);
        for (const Block &one : top) {
            if (one.type() == value(type).get_ptr()) {
                return estimateBlock(Primitive(one, types, options));
            }
        }
        return std::nullopt;
    }
};

/// Compared by figures, which a failure shows.
std::string figures(const std::optional<Usage> &usage) {
    if (!usage) {
        return "unknown";
    }
    std::string text;
    for (const Count count :
         {usage->luts, usage->multipliers, usage->memoryBlocks, usage->memoryBits, usage->latency}) {
        text += (text.empty() ? "" : " ") + std::to_string(count);
    }
    return text;
}

TEST_F(EstimatesTest, haveARowForEveryTypeOfTheCatalogue) {
    const BlocksInfo &catalogue = getBlocksInfo();
    std::set<std::string> rows;
    for (const EstimateRow &row : estimateRows()) {
        EXPECT_TRUE(rows.insert(std::string(row.type->text())).second) << row.type->text() << " has two rows";
        EXPECT_EQ(row.estimate != nullptr, row.kind == EstimateKind::Estimated) << row.type->text();
        EXPECT_NE(std::string(row.text), "") << row.type->text();
        EXPECT_EQ(findEstimateRow(row.type->get_ptr()), &row);
    }
    std::size_t types = 0;
    for (const auto &[name, info] : catalogue.blocks()) {
        if (const std::string *text = catalogue.findMapping(name)) {
            ++types;
            EXPECT_EQ(rows.count(*text), 1U) << name << " has no row";
        }
    }
    EXPECT_GT(types, 250U);
    EXPECT_EQ(findEstimateRow(value("noSuchBlock").get_ptr()), nullptr);
    EXPECT_EQ(findEstimateRow(nullptr), nullptr);
}

TEST_F(EstimatesTest, countSums) {
    EXPECT_EQ(figures(estimate("addBlock", {{"0", "s8.0"}, {"1", "s8.0"}}, {{"primWireOut", ""}})), "9 0 0 0 1");
    EXPECT_EQ(figures(estimate("addBlock", {{"0", "s8.0"}, {"1", "s8.0"}, {"2", "s8.0"}}, {{"primWireOut", ""}})),
              "20 0 0 0 2");
    EXPECT_EQ(figures(estimate("subBlock", {{"0", "u8.0"}, {"1", "u8.0"}}, {{"primWireOut", ""}})), "9 0 0 0 1");
    EXPECT_EQ(figures(estimate("addBlock", {{"0", "s8.0"}}, {{"primWireOut", ""}})), "0 0 0 0 0");
    EXPECT_EQ(figures(estimate("negBlock", {{"0", "s8.0"}}, {{"primWireOut", ""}})), "9 0 0 0 1");
    EXPECT_EQ(figures(estimate("addBlock", {{"0", "[3] s8.0"}, {"1", "s8.0"}}, {{"primWireOut", ""}})), "27 0 0 0 1");
}

TEST_F(EstimatesTest, countFloatsAsTheDeviceHasThem) {
    const Texts inputs{{"0", "float(23,8)"}, {"1", "float(23,8)"}};
    const Texts outputs{{"primWireOut", ""}};
    const Texts hard{{"synthDeviceFamily", "\"Halcyon X\""}};
    const Texts off{{"synthDeviceFamily", "\"Halcyon X\""}, {"synthDeviceEnableHardfp", "false"}};
    const Usage soft = *estimate("addBlock", inputs, outputs);
    EXPECT_GT(soft.luts, 100);
    EXPECT_EQ(soft.multipliers, 0);
    EXPECT_EQ(figures(estimate("addBlock", inputs, outputs, {}, hard)), "0 2 0 0 4");
    EXPECT_EQ(figures(estimate("addBlock", inputs, outputs, {{"synthForceSoftFp", "true"}}, hard)), figures(soft));
    EXPECT_EQ(figures(estimate("addBlock", inputs, outputs, {}, off)), figures(soft));
    EXPECT_EQ(figures(estimate("multBlock", inputs, outputs, {}, hard)), "0 2 0 0 4");
    EXPECT_GT(estimate("addBlock", {{"0", "float(10,5)"}, {"1", "float(10,5)"}}, outputs, {}, hard)->luts, 0);
}

TEST_F(EstimatesTest, countProductsBySignalsAndConstants) {
    const Texts outputs{{"primWireOut", ""}};
    const Texts inputs{{"0", "s18.0"}, {"1", "s18.0"}};
    EXPECT_EQ(figures(estimate("multBlock", inputs, outputs)), "0 1 0 0 3");
    EXPECT_EQ(figures(estimate("multBlock", inputs, outputs, {{"multLogic", "true"}})), "324 0 0 0 5");
    EXPECT_EQ(figures(estimate("constmultBlock", {{"0", "s8.0"}}, outputs, {{"constValue", "5"}})), "9 0 0 0 1");
    EXPECT_EQ(figures(estimate("constmultBlock", {{"0", "s8.0"}}, outputs, {{"constValue", "0x4p-4"}})), "0 0 0 0 0");
    EXPECT_EQ(figures(estimate("constmultBlock", {{"0", "s8.0"}}, outputs,
                               {{"constValue", "5"}, {"multArchitecture", "multArchConstDsp"}})),
              "0 1 0 0 3");
}

TEST_F(EstimatesTest, countTheDigitsOfTheSignificandThatTheFormatHas) {
    const auto by = [&](const char *constant) {
        return figures(
            estimate("constmultBlock", {{"0", "float(23,8)"}}, {{"primWireOut", ""}}, {{"constValue", constant}}));
    };
    // A tenth has 53 bits as it is read, of which the format keeps 24, rounded up.
    EXPECT_EQ(by("0x1999999999999ap-56"), by("0xcccccdp-27"));
    // What is rounded away costs nothing, and neither does a sign.
    EXPECT_EQ(by("0x10000000001p-40"), by("1"));
    EXPECT_EQ(by("-3"), by("3"));
    // Half of the last place goes to the even neighbour.
    EXPECT_EQ(by("0x1000001p+0"), by("1"));
    EXPECT_EQ(by("0x1000003p+0"), by("0x1000004p+0"));
    EXPECT_NE(by("3"), by("1"));
}

TEST_F(EstimatesTest, giveAConstantABitWhereTheOutputIsNoWider) {
    const auto product = [&](const char *type) {
        const std::string precision = std::string("(typeSpecified (typeSFixed ") + type + "))";
        return figures(
            estimate("constmultBlock", {{"0", "[2] s8.0"}}, {{"primWireOut", ""}},
                     {{"constValue", "(1 2)"}, {"multLogic", "true"}, {"outputPrecision", precision.c_str()}}));
    };
    EXPECT_EQ(product("12 0"), "64 0 0 0 2");
    EXPECT_EQ(product("4 0"), "16 0 0 0 1");
}

TEST_F(EstimatesTest, exploitAConstantBeforeTilingWhereTheyAreTold) {
    for (const bool isFirst : {false, true}) {
        for (const bool optimises : {false, true}) {
            Design design(mgr.context());
            Model &top = *Model::create(design, "top");
            Block &fixed = block(top, "c", "constBlock", {{"constValue", "5"}, {"constType", "(typeSFixed 4 0)"}});
            Block &mult = block(top, "m", "multBlock");
            mult.setParam(value(isFirst ? "0" : "1"), *Wire::create(fixed, A_PRIM_WIRE_OUT));
            mult.setParam(value(isFirst ? "1" : "0"), input(top, "a", "s8.0"));
            mult.setParam(A_MULT_OPTIMIZE_CONST_BEFORE_TILING, optimises ? A_TRUE : A_FALSE);
            output(top, "o", *Wire::create(mult, A_PRIM_WIRE_OUT));
            EXPECT_EQ(figures(of(top, "multBlock")), optimises ? "9 0 0 0 1" : "0 1 0 0 3");
        }
    }
}

TEST_F(EstimatesTest, countComparingAndChoosing) {
    const Texts bit{{"primWireOut", ""}};
    EXPECT_EQ(figures(estimate("cmpEqBlock", {{"0", "s8.0"}, {"1", "s8.0"}}, bit)), "5 0 0 0 1");
    EXPECT_EQ(figures(estimate("cmpGeBlock", {{"0", "s8.0"}, {"1", "s8.2"}}, bit)), "10 0 0 0 1");
    EXPECT_EQ(
        figures(estimate("muxBlock", {{"muxPortSelect", "u2.0"}, {"0", "s8.0"}, {"1", "s8.0"}, {"2", "s8.0"}}, bit)),
        "16 0 0 0 1");
    EXPECT_EQ(
        figures(estimate("andBlock", {{"0", "u8.0"}, {"1", "u8.0"}, {"2", "u8.0"}, {"3", "u8.0"}, {"4", "u8.0"}}, bit)),
        "16 0 0 0 2");
    EXPECT_EQ(figures(estimate("orReduceBlock", {{"0", "u16.0"}}, bit)), "5 0 0 0 2");
    EXPECT_EQ(figures(estimate("notBlock", {{"0", "u16.0"}}, bit)), "0 0 0 0 0");
}

TEST_F(EstimatesTest, countRoundingByTheBitsThatItLooksAt) {
    const Texts out{{"primWireOut", ""}};
    EXPECT_EQ(figures(estimate("biasedRoundBlock", {{"0", "s8.4"}}, out, {{"roundBits", "4"}})), "9 0 0 0 1");
    EXPECT_EQ(figures(estimate("unbiasedRoundBlock", {{"0", "s8.4"}}, out, {{"roundBits", "4"}})), "10 0 0 0 2");
    EXPECT_EQ(figures(estimate("biasedRoundBlock", {{"0", "s8.4"}}, out, {{"roundBits", "0"}})), "0 0 0 0 0");
    EXPECT_EQ(figures(estimate("truncateBlock", {{"0", "s8.4"}}, out, {{"roundBits", "4"}})), "0 0 0 0 0");
}

TEST_F(EstimatesTest, countStateAndMemory) {
    const Texts out{{"primWireOut", ""}};
    EXPECT_EQ(figures(estimate("delayBlock", {{"0", "s8.0"}}, out, {{"delayLength", "5"}})), "32 0 0 0 5");
    EXPECT_EQ(figures(estimate("delayBlock", {{"0", "s8.0"}}, out, {{"delayLength", "64"}})), "12 0 1 512 64");
    EXPECT_EQ(figures(estimate("delayBlock", {{"0", "s8.0"}}, out, {{"delayLength", "64"}},
                               {{"synthDelayRamThreshold", "513"}})),
              "504 0 0 0 64");
    EXPECT_EQ(figures(estimate("registerBlock", {{"0", "s8.0"}}, out)), "0 0 0 0 1");
    EXPECT_EQ(figures(estimate("lutBlock", {{"lutPortAddr", "u3.0"}}, out, {{"lutData", "(1 2 3 4 5 6 7 8)"}})),
              "4 0 0 0 1");
    EXPECT_EQ(
        figures(estimate("dualMemBlock",
                         {{"dualMemPortAddr1", "u8.0"}, {"dualMemPortData1", "u16.0"}, {"dualMemPortWrite1En", "u1.0"}},
                         {{"dualMemWireData1", ""}}, {{"dualMemDepth1", "256"}})),
        "0 0 1 4096 2");
}

TEST_F(EstimatesTest, sayNothingOfWhatHasNoType) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &sum = block(top, "s", "addBlock");
    Wire::create(sum, A_PRIM_WIRE_OUT);
    EXPECT_EQ(figures(of(top, "addBlock")), "unknown");
    EXPECT_EQ(figures(estimate("unsupportedBlock", {{"x", "s8.0"}}, {{"y", ""}})), "unknown");
    EXPECT_EQ(figures(estimate("noSuchBlock", {{"x", "s8.0"}}, {{"y", ""}})), "unknown");
}

TEST_F(EstimatesTest, takeParametersAsTheyCome) {
    const Texts out{{"primWireOut", ""}};
    for (const char *length : {"-1", "0x8p-4", "+nan", "word", "(1 2)"}) {
        EXPECT_EQ(figures(estimate("delayBlock", {{"0", "s8.0"}}, out, {{"delayLength", length}})), "0 0 0 0 0")
            << length;
    }
    const Usage endless = *estimate("delayBlock", {{"0", "s8.0"}}, out, {{"delayLength", "0x1p+100"}});
    EXPECT_EQ(endless.latency, Count{1} << 40);
}

} // namespace
} // namespace orvo::generator
