// What designs compute: single blocks row by row, the examples against independent computations, and designs that
// cannot be simulated.
#include <orvo/simulator.h>

#include "support/oneblock.h"
#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <deque>
#include <fstream>
#include <map>
#include <random>

namespace orvo::sim {
namespace {

using Numbers = std::vector<std::int64_t>;

/// One block with its inputs at the edge of a model: the integers of the inputs' scalars, and what must come out, cycle
/// by cycle.
struct BlockCase {
    using Texts = test::KeyedTexts;
    const char *name;
    const char *block;
    Texts inputs;
    Texts params;
    std::vector<const char *> outputs;
    struct Cycle {
        Numbers in;
        Numbers out;
    };
    std::vector<Cycle> cycles;
};

class SimulatorTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }

    static std::unique_ptr<Design> oneBlock(Context *context, const BlockCase &row) {
        return test::oneBlock(context, row.block, row.inputs, row.params, row.outputs);
    }
    static Numbers outputsOf(const Simulator &simulator) {
        Numbers numbers;
        for (std::size_t i = 0; i < simulator.outputs().size(); ++i) {
            numbers.push_back(simulator.outputInteger(i));
        }
        return numbers;
    }
    static Numbers stepWith(Simulator &simulator, const Numbers &in) {
        for (std::size_t i = 0; i < in.size(); ++i) {
            simulator.setInput(i, in[i]);
        }
        simulator.step();
        return outputsOf(simulator);
    }
    void check(const std::vector<BlockCase> &rows) {
        for (const BlockCase &row : rows) {
            const std::unique_ptr<Design> design = oneBlock(mgr.context(), row);
            Simulator simulator(*design, *design->begin());
            std::size_t cycle = 0;
            for (const BlockCase::Cycle &at : row.cycles) {
                EXPECT_EQ(stepWith(simulator, at.in), at.out) << row.name << ", cycle " << cycle;
                ++cycle;
            }
            if (!row.cycles.empty()) {
                simulator.reset();
                EXPECT_EQ(stepWith(simulator, row.cycles[0].in), row.cycles[0].out) << row.name << " after reset";
            }
        }
    }
    std::unique_ptr<Design> example(const std::string &name) {
        std::ifstream in(std::string(ORVO_TEST_SOURCE_DIR) + "/examples/" + name + ".xml");
        auto design = std::make_unique<Design>(mgr.context());
        EXPECT_TRUE(XMLServices().fromXML(in, *design, XMLServices::defaultErrorFunc));
        return design;
    }
    /// Why a design cannot be simulated, and where.
    static std::string refusal(const Design &design, const Model &top) {
        try {
            const Simulator simulator(design, top);
        } catch (const SimulationError &error) {
            std::string text = error.what();
            for (const std::string &block : error.blocks()) {
                text += " " + block;
            }
            return text;
        }
        return "";
    }
    ContextMgr mgr;
};

const char *const kOut = "primWireOut";

TEST_F(SimulatorTest, addsInTheOutputsType) {
    check({
        {"add", "addBlock", {{"0", "s4.1"}, {"1", "u3.0"}}, {}, {kOut}, {{{-16, 7}, {-2}}, {{15, 7}, {29}}}},
        {"no growth wraps",
         "addBlock",
         {{"0", "u4.0"}, {"1", "u4.0"}},
         {{"addNoGrowth", "true"}},
         {kOut},
         {{{9, 9}, {2}}}},
        {"a scalar serves all lanes",
         "addBlock",
         {{"0", "[2] s4.0"}, {"1", "s4.0"}},
         {},
         {kOut},
         {{{1, 2, 3}, {4, 5}}}},
        {"a real has no imaginary part",
         "addBlock",
         {{"0", "c s4.0"}, {"1", "s4.0"}},
         {},
         {kOut},
         {{{1, 2, 3}, {4, 2}}}},
        {"three",
         "monsterAddBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}, {"2", "s4.0"}},
         {},
         {kOut},
         {{{-8, -8, -8}, {-24}}}},
        {"subtract the others",
         "subBlock",
         {{"0", "u4.0"}, {"1", "u4.0"}, {"2", "u4.0"}},
         {},
         {kOut},
         {{{1, 15, 15}, {-29}}}},
        {"negate an unsigned", "negBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{1}, {31}}, {{0}, {0}}}},
        {"conjugate", "complexConjugateBlock", {{"0", "c s4.0"}}, {}, {kOut}, {{{3, -8}, {3, 8}}}},
        {"absolute", "absBlock", {{"0", "s4.0"}}, {}, {kOut}, {{{-8}, {8}}, {{7}, {7}}}},
        {"select one",
         "addsubBlock",
         {{"0", "u4.0"}, {"1", "u4.0"}, {"addsubPortSelect", "u1.0"}},
         {},
         {kOut},
         {{{3, 5, 1}, {8}}, {{3, 5, 0}, {-2}}}},
        {"both", "addsubfusedBlock", {{"0", "u4.0"}, {"1", "u4.0"}}, {}, {kOut, "primWireAux"}, {{{3, 5}, {8, -2}}}},
        {"load",
         "addSloadBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}, {"addSloadPortLoadCtrl", "u1.0"}, {"addSloadPortLoadValue", "s4.0"}},
         {},
         {kOut},
         {{{1, 2, 0, 7}, {3}}, {{1, 2, 1, 7}, {7}}}},
        {"over a dimension", "addReduceBlock", {{"0", "[2][3] s4.0"}}, {}, {kOut}, {{{1, 2, 3, 4, 5, 6}, {5, 7, 9}}}},
        {"over ports", "addReduceBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {}, {kOut}, {{{-8, 7}, {-1}}}},
    });
}

TEST_F(SimulatorTest, multipliesAndDivides) {
    check({
        {"mixed", "multBlock", {{"0", "s4.0"}, {"1", "u4.0"}}, {}, {kOut}, {{{-8, 15}, {-120}}}},
        {"complex", "multBlock", {{"0", "c s4.0"}, {"1", "c s4.0"}}, {}, {kOut}, {{{1, 2, 3, 4}, {-5, 10}}}},
        {"three complex",
         "multBlock",
         {{"0", "c s4.0"}, {"1", "c s4.0"}, {"2", "c s4.0"}},
         {},
         {kOut},
         {{{1, 2, 3, 4, 0, 1}, {-10, -5}}}},
        {"dot product",
         "scalarProductBlock",
         {{"0", "[3] s4.0"}, {"1", "[3] s4.0"}},
         {},
         {kOut},
         {{{1, 2, 3, 4, 5, 6}, {32}}}},
        {"pairs and chain",
         "scalarProductBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}, {"2", "s4.0"}, {"3", "s4.0"}, {"scalarProductPortChainin", "s8.0"}},
         {},
         {kOut},
         {{{1, 2, 3, 4, 100}, {114}}}},
        {"subtractive",
         "scalarProductBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}, {"2", "s4.0"}, {"3", "s4.0"}},
         {{"subtractive", "true"}},
         {kOut},
         {{{1, 2, 3, 4}, {-10}}}},
        {"by a constant", "constmultBlock", {{"0", "s4.0"}}, {{"constValue", "-3"}}, {kOut}, {{{7}, {-21}}}},
        {"quotient toward zero",
         "constdivBlock",
         {{"0", "s4.0"}},
         {{"constValue", "3"}},
         {kOut},
         {{{-7}, {-2}}, {{7}, {2}}}},
        {"quotient", "divideBlock", {{"0", "u4.0"}, {"1", "u2.0"}}, {}, {kOut}, {{{7, 2}, {14}}, {{7, 0}, {0}}}},
        {"integer quotient",
         "divideBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}},
         {{"intDivider", "true"}},
         {kOut},
         {{{-7, 2}, {-3}}}},
        {"modulo",
         "modMultBlock",
         {{"0", "u4.0"}, {"1", "u4.0"}},
         {{"modMultModulusValue", "7"}},
         {kOut},
         {{{15, 15}, {1}}}},
        {"modulo an even number",
         "modMultBlock",
         {{"0", "u4.0"}, {"1", "u4.0"}},
         {{"modMultModulusValue", "12"}},
         {kOut},
         {{{15, 15}, {9}}}},
    });
}

TEST_F(SimulatorTest, comparesAndChooses) {
    check({
        {"equal by value", "cmpEqBlock", {{"0", "s4.1"}, {"1", "u3.0"}}, {}, {kOut}, {{{4, 2}, {1}}, {{5, 2}, {0}}}},
        {"equal complex",
         "cmpEqBlock",
         {{"0", "c s4.0"}, {"1", "c s4.0"}},
         {},
         {kOut},
         {{{1, 2, 1, 2}, {1}}, {{1, 2, 1, 3}, {0}}}},
        {"unequal complex",
         "cmpNeBlock",
         {{"0", "c s4.0"}, {"1", "s4.0"}},
         {},
         {kOut},
         {{{1, 0, 1}, {0}}, {{1, 2, 1}, {1}}}},
        {"less", "cmpLtBlock", {{"0", "s4.0"}, {"1", "u4.0"}}, {}, {kOut}, {{{-1, 15}, {1}}, {{3, 3}, {0}}}},
        {"at least", "cmpGeBlock", {{"0", "s4.0"}, {"1", "u4.0"}}, {}, {kOut}, {{{-1, 15}, {0}}, {{3, 3}, {1}}}},
        {"by control",
         "comparectrlBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}, {"comparePortSelect", "u1.0"}},
         {},
         {kOut},
         {{{1, 2, 0}, {1}}, {{1, 2, 1}, {0}}}},
        {"least", "minBlock", {{"0", "s4.0"}, {"1", "u4.1"}}, {}, {kOut}, {{{2, 3}, {3}}, {{-8, 3}, {-16}}}},
        {"most", "maxBlock", {{"0", "s4.0"}, {"1", "u4.1"}}, {}, {kOut}, {{{2, 3}, {4}}}},
        {"smaller magnitude",
         "magminBlock",
         {{"0", "s4.0"}, {"1", "s4.1"}},
         {},
         {kOut},
         {{{3, -4}, {-4}}, {{-3, 6}, {-6}}, {{3, -6}, {-6}}, {{-8, 15}, {15}}}},
        {"larger magnitude",
         "magmaxBlock",
         {{"0", "s4.0"}, {"1", "s4.1"}, {"2", "s4.0"}},
         {},
         {kOut},
         {{{3, -4, 1}, {6}}, {{-3, 6, 0}, {6}}, {{0, -6, 3}, {6}}, {{-8, 15, 7}, {-16}}}},
        {"either",
         "minmaxBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}, {"minmaxPortSelect", "u1.0"}},
         {},
         {kOut},
         {{{3, 5, 1}, {5}}, {{3, 5, 0}, {3}}}},
        {"difference above zero",
         "dimBlock",
         {{"0", "s4.0"}, {"1", "s4.0"}},
         {},
         {kOut},
         {{{5, 3}, {2}}, {{3, 5}, {0}}}},
        {"between limits",
         "saturateBlock",
         {{"0", "s5.0"}, {"1", "s4.0"}, {"2", "s4.0"}},
         {},
         {kOut},
         {{{15, 7, -8}, {7}}, {{-15, 7, -8}, {-8}}, {{3, 7, -8}, {3}}}},
        {"by number",
         "muxBlock",
         {{"muxPortSelect", "u2.0"}, {"0", "s4.0"}, {"1", "u4.0"}, {"2", "s4.1"}},
         {},
         {kOut},
         {{{0, -1, 15, 3}, {-2}}, {{1, -1, 15, 3}, {30}}, {{2, -1, 15, 3}, {3}}, {{3, -1, 15, 3}, {0}}}},
        {"by lanes",
         "muxBlock",
         {{"muxPortSelect", "[2] u1.0"}, {"0", "s4.0"}, {"1", "s4.0"}},
         {},
         {kOut},
         {{{0, 1, 5, 6}, {5, 6}}}},
        {"records",
         "muxBlock",
         {{"muxPortSelect", "u1.0"}, {"0", "{s4.0,u1.0}"}, {"1", "{s4.0,u1.0}"}},
         {},
         {kOut},
         {{{1, 1, 0, 2, 1}, {2, 1}}}},
        {"first case that holds",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u1.0"},
          {"(selectPortkeyData 0)", "s4.0"},
          {"(selectPortkeyCtrl 1)", "u1.0"},
          {"(selectPortkeyData 1)", "s4.0"},
          {"selectPortDefaultData", "s4.0"}},
         {},
         {kOut, "selectWireValid"},
         {{{1, 2, 1, 3, 4}, {2, 1}}, {{0, 2, 1, 3, 4}, {3, 1}}, {{0, 2, 0, 3, 4}, {4, 0}}}},
        {"a wide control",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u2.0"}, {"(selectPortkeyData 0)", "s4.0"}},
         {{"primRelaxBools", "true"}},
         {kOut},
         {{{2, 5}, {5}}, {{0, 5}, {0}}}},
    });
}

TEST_F(SimulatorTest, worksOnBits) {
    check({
        {"and", "andBlock", {{"0", "u4.0"}, {"1", "u4.0"}}, {}, {kOut}, {{{12, 10}, {8}}}},
        {"nand", "nandBlock", {{"0", "u4.0"}, {"1", "u4.0"}}, {}, {kOut}, {{{12, 10}, {7}}}},
        {"or with signs", "orBlock", {{"0", "s4.0"}, {"1", "s2.0"}}, {}, {kOut}, {{{4, -2}, {-2}}}},
        {"nor", "norBlock", {{"0", "u4.0"}, {"1", "u4.0"}}, {}, {kOut}, {{{12, 10}, {1}}}},
        {"xor", "xorBlock", {{"0", "u4.0"}, {"1", "u4.0"}, {"2", "u4.0"}}, {}, {kOut}, {{{12, 10, 1}, {7}}}},
        {"xnor", "xnorBlock", {{"0", "u4.0"}, {"1", "u4.0"}}, {}, {kOut}, {{{12, 10}, {9}}}},
        {"not", "notBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{5}, {10}}}},
        {"all", "andReduceBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{15}, {1}}, {{14}, {0}}}},
        {"not all", "nandReduceBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{15}, {0}}}},
        {"any", "orReduceBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{8}, {1}}, {{0}, {0}}}},
        {"none", "norReduceBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{8}, {0}}}},
        {"odd", "xorReduceBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{7}, {1}}}},
        {"even", "xnorReduceBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{7}, {0}}}},
        {"join", "bitJoinBlock", {{"0", "u4.0"}, {"1", "s3.0"}}, {}, {kOut}, {{{5, -1}, {-11}}}},
        {"join lanes", "bitJoinReduceBlock", {{"0", "[3] u2.0"}}, {}, {kOut}, {{{1, 2, 3}, {57}}}},
        {"from an offset", "bitSelectBlock", {{"0", "s8.0"}}, {{"bitSelectBitOffset", "4"}}, {kOut}, {{{-100}, {-7}}}},
        {"from the top", "bitSelectBlock", {{"0", "u8.0"}}, {{"bitSelectBitOffset", "-3"}}, {kOut}, {{{0xe5}, {7}}}},
        {"beyond the top",
         "bitSelectBlock",
         {{"0", "s8.0"}},
         {{"bitSelectBitOffset", "6"}, {"bitSelectOutputType", "(typeUFixed 4 0)"}},
         {kOut},
         {{{-100}, {14}}}},
        {"chosen",
         "chooseBitsBlock",
         {{"0", "u8.0"}},
         {{"chooseBitsBitOffsets", "(7 0 1)"}, {"chooseBitsOutputType", "(typeUFixed 3 0)"}},
         {kOut},
         {{{0x82}, {5}}}},
        {"turned round", "reverseBlock", {{"0", "u4.0"}}, {}, {kOut}, {{{3}, {12}}}},
        {"ones", "bitCountBlock", {{"0", "s4.0"}}, {}, {kOut}, {{{-1}, {4}}}},
        {"population", "ctpopBlock", {{"0", "u7.0"}}, {}, {kOut}, {{{127}, {7}}}},
        {"point", "rawShiftBlock", {{"0", "s4.4"}}, {{"rawShiftValue", "3"}}, {kOut}, {{{-100}, {-100}}}},
        {"point below", "rawShiftBlock", {{"0", "s4.4"}}, {{"rawShiftValue", "-6"}}, {kOut}, {{{-100}, {-25}}}},
    });
}

TEST_F(SimulatorTest, roundsAndSaturates) {
    check({
        {"truncate", "truncateBlock", {{"0", "s4.2"}}, {{"roundBits", "2"}}, {kOut}, {{{-1}, {-1}}, {{7}, {1}}}},
        {"to zero", "truncateToZeroBlock", {{"0", "s4.2"}}, {{"roundBits", "2"}}, {kOut}, {{{-7}, {-1}}}},
        {"biased",
         "biasedRoundBlock",
         {{"0", "s4.2"}},
         {{"roundBits", "2"}},
         {kOut},
         {{{6}, {2}}, {{-6}, {-1}}, {{31}, {8}}}},
        {"unbiased", "unbiasedRoundBlock", {{"0", "s4.2"}}, {{"roundBits", "2"}}, {kOut}, {{{6}, {2}}, {{2}, {0}}}},
        // Numbers are bounded, and what is too small for a normal float becomes zero.
        {"members of a record",
         "castBlock",
         {{"0", "{s4.0,float(10,5)}"}},
         {{"castSaturateMode", "saturateSymmetric"}},
         {kOut},
         {{{-8, 15360}, {-7, 15360}}, {{5, 3}, {5, 0}}}},
        {"wrap",
         "castBlock",
         {{"0", "s6.0"}},
         {{"castOutputType", "(typeSFixed 4 0)"}},
         {kOut, "castWireClip"},
         {{{9}, {-7, 0}}}},
        {"clip",
         "castBlock",
         {{"0", "s6.0"}},
         {{"castOutputType", "(typeSFixed 4 0)"}, {"castSaturateMode", "saturateAsymmetric"}},
         {kOut, "castWireClip"},
         {{{9}, {7, 1}}, {{-9}, {-8, 1}}, {{-8}, {-8, 0}}}},
        {"clip evenly",
         "castBlock",
         {{"0", "s6.0"}},
         {{"castOutputType", "(typeSFixed 4 0)"}, {"castSaturateMode", "saturateSymmetric"}},
         {kOut, "castWireClip"},
         {{{-8}, {-7, 1}}}},
        {"round then clip",
         "castBlock",
         {{"0", "s4.2"}},
         {{"castOutputType", "(typeUFixed 3 0)"},
          {"castRoundingMode", "roundingUnbiased"},
          {"castSaturateMode", "saturateAsymmetric"}},
         {kOut, "castWireClip"},
         {{{30}, {7, 1}}, {{10}, {2, 0}}, {{-1}, {0, 0}}}},
        {"reinterpret",
         "castBlock",
         {{"0", "s4.0"}},
         {{"castOutputType", "(typeUFixed 6 2)"}, {"castMode", "castModeReinterp"}},
         {kOut},
         {{{-1}, {255}}}},
    });
}

TEST_F(SimulatorTest, joinsWires) {
    check({
        {"pack",
         "vpackBlock",
         {{"0", "c s4.0"}, {"1", "c s4.0"}},
         {},
         {"vpackWireOut"},
         {{{1, 2, 3, 4}, {1, 2, 3, 4}}}},
        {"unpack", "vunpackBlock", {{"vunpackPortIn", "[2][2] s4.0"}}, {}, {"0", "1"}, {{{1, 2, 3, 4}, {1, 2, 3, 4}}}},
        {"concatenate", "vconcatBlock", {{"0", "[2] s4.0"}, {"1", "s4.0"}}, {}, {kOut}, {{{1, 2, 3}, {1, 2, 3}}}},
        {"split", "vsplitBlock", {{"0", "[3] s4.0"}}, {{"vsplitLayout", "(1 2)"}}, {"1"}, {{{1, 2, 3}, {2, 3}}}},
        {"equal shares", "vsplitBlock", {{"0", "[5] s4.0"}}, {}, {"0", "1", "2"}, {{{1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}}}},
        {"choose rows",
         "vselectorBlock",
         {{"vselectorPortIn", "[3] s4.0"}},
         {{"vselectorIndicies", "((2 0 1))"}},
         {kOut},
         {{{1, 2, 3}, {3, 1, 2}}}},
        {"choose elements",
         "vselectorBlock",
         {{"vselectorPortIn", "[3][2] s4.0"}},
         {{"vselectorIndicies", "((2 0) (1))"}},
         {kOut},
         {{{1, 2, 3, 4, 5, 6}, {6, 2}}}},
        {"complex",
         "cpackBlock",
         {{"cpackPortReal", "s4.0"}, {"cpackPortImag", "s4.0"}},
         {},
         {"cpackWireOut"},
         {{{1, 2}, {1, 2}}}},
        {"parts",
         "cunpackBlock",
         {{"cunpackPortIn", "[2] c s4.0"}},
         {},
         {"cunpackWireReal", "cunpackWireImag"},
         {{{1, 2, 3, 4}, {1, 3, 2, 4}}}},
        {"record", "apackBlock", {{"0", "s4.0"}, {"1", "[2] u1.0"}}, {}, {"apackWireOut"}, {{{-5, 1, 0}, {-5, 1, 0}}}},
        {"fields",
         "aunpackBlock",
         {{"aunpackPortIn", "{s4.0,{u1.0,s4.0}}"}},
         {},
         {"1", "0"},
         {{{-5, 1, 3}, {1, 3, -5}}}},
        {"terminal", "terminalBlock", {{"0", "s4.0"}}, {}, {"x", "y"}, {{{7}, {7, 7}}}},
        {"pipe", "pipeBlock", {{"0", "s4.0"}, {"x", "[2] u2.0"}}, {}, {kOut, "x", "0"}, {{{-7, 1, 2}, {-7, 1, 2, -7}}}},
        {"pipe of a named signal", "pipeBlock", {{"x", "[2] u2.0"}}, {}, {kOut, "x"}, {{{1, 2}, {1, 2, 1, 2}}}},
    });
}

TEST_F(SimulatorTest, remembers) {
    check({
        {"delay", "delayBlock", {{"0", "s4.0"}}, {{"delayLength", "1"}}, {kOut}, {{{5}, {0}}, {{6}, {5}}, {{7}, {6}}}},
        {"no delay", "delayBlock", {{"0", "s4.0"}}, {{"delayLength", "0"}}, {kOut}, {{{5}, {5}}}},
        {"long delay",
         "delayBlock",
         {{"0", "[2] s4.0"}},
         {{"delayLength", "3"}},
         {kOut},
         {{{1, -1}, {0, 0}}, {{2, -2}, {0, 0}}, {{3, -3}, {0, 0}}, {{4, -4}, {1, -1}}, {{5, -5}, {2, -2}}}},
        {"register",
         "registerBlock",
         {{"0", "s4.0"}, {"registerPortEnable", "u1.0"}},
         {{"registerInitValue", "-3"}},
         {kOut},
         {{{5, 0}, {-3}}, {{6, 1}, {-3}}, {{7, 0}, {6}}, {{1, 1}, {6}}, {{0, 0}, {1}}}},
        {"registers of a vector",
         "registerBlock",
         {{"0", "[2] s4.0"}, {"registerPortEnable", "[2] u1.0"}},
         {{"registerInitValue", "(vectorRollTag -3 4)"}},
         {kOut},
         {{{1, 2, 0, 1}, {-3, 4}}, {{5, 6, 1, 0}, {-3, 2}}, {{0, 0, 0, 0}, {5, 2}}}},
        {"counter",
         "counterBlock",
         {{"portEnable", "u1.0"}},
         {{"counterLimit", "3"}, {"counterInitial", "-1"}},
         {kOut},
         {{{1}, {0}}, {{1}, {1}}, {{0}, {1}}, {{1}, {2}}, {{1}, {0}}}},
        {"counters of lanes",
         "counterBlock",
         {{"portEnable", "u1.0"}},
         {{"counterLimit", "(vectorRollTag 3 5)"}, {"counterInitial", "(0 1)"}},
         {kOut},
         {{{1}, {1, 2}}, {{1}, {2, 3}}, {{0}, {2, 3}}, {{1}, {0, 4}}, {{1}, {1, 0}}, {{1}, {2, 1}}}},
        {"steps",
         "counterBlock",
         {{"portEnable", "u1.0"}},
         {{"counterLimit", "10"}, {"counterStep", "4"}},
         {kOut},
         {{{1}, {4}}, {{1}, {8}}, {{1}, {2}}}},
        {"steps down",
         "counterBlock",
         {{"portEnable", "u1.0"}},
         {{"counterLimit", "10"}, {"counterStep", "-3"}},
         {kOut},
         {{{1}, {7}}, {{0}, {7}}, {{1}, {4}}, {{1}, {1}}, {{1}, {8}}}},
        {"table",
         "lutBlock",
         {{"lutPortAddr", "s3.0"}},
         {{"lutData", "(5 -3 7)"}},
         {kOut},
         {{{0}, {5}}, {{1}, {-3}}, {{2}, {7}}, {{3}, {0}}, {{-1}, {0}}}},
    });
}

TEST_F(SimulatorTest, bringsConstantsToTheirType) {
    const auto constant = [&](const char *number, const char *type) {
        const BlockCase row{"constant", "constBlock", {}, {{"constValue", number}, {"constType", type}}, {kOut}, {}};
        const std::unique_ptr<Design> design = oneBlock(mgr.context(), row);
        Simulator simulator(*design, *design->begin());
        return stepWith(simulator, {})[0];
    };
    EXPECT_EQ(constant("20", "(typeUFixed 4 0)"), 15);
    EXPECT_EQ(constant("-1", "(typeUFixed 4 0)"), 0);
    EXPECT_EQ(constant("20", "(typeSFixed 4 0)"), 7);
    EXPECT_EQ(constant("-20", "(typeSFixed 4 0)"), -8);
    // Halves away from zero.
    EXPECT_EQ(constant("0x5p-1", "(typeSFixed 4 0)"), 3);
    EXPECT_EQ(constant("-0x5p-1", "(typeSFixed 4 0)"), -3);
    EXPECT_EQ(constant("0x9p-2", "(typeSFixed 4 0)"), 2);
    EXPECT_EQ(constant("-0x9p-2", "(typeSFixed 4 1)"), -5);
}

TEST_F(SimulatorTest, shiftsBySignals) {
    check({
        {"left",
         "barrelLeftBlock",
         {{"0", "s8.0"}, {"barrelPortShift", "u4.0"}},
         {},
         {kOut},
         {{{-3, 2}, {-12}}, {{-3, 7}, {-128}}, {{-3, 15}, {0}}}},
        {"right",
         "barrelRightBlock",
         {{"0", "s8.0"}, {"barrelPortShift", "u4.0"}},
         {},
         {kOut},
         {{{-100, 3}, {-13}}, {{-100, 15}, {-1}}, {{100, 15}, {0}}}},
        {"right into a fraction",
         "barrelRightBlock",
         {{"0", "s8.0"}, {"barrelPortShift", "u4.0"}},
         {{"barrelOutputType", "(typeSFixed 8 4)"}},
         {kOut},
         {{{-100, 3}, {-200}}}},
        {"normalise",
         "barrelRightLzcBlock",
         {{"0", "u8.0"}},
         {},
         {kOut, "primWireAux"},
         {{{5}, {160, 5}}, {{0}, {0, 8}}, {{255}, {255, 0}}}},
    });
}

TEST_F(SimulatorTest, steers) {
    check({
        {"decode",
         "decodeBlock",
         {{"decodePortAddr", "u8.0"}, {"decodePortWren", "u1.0"}},
         {{"decodeAddress", "5"}},
         {"decodeWireMatch", "decodeWireWren"},
         {{{5, 0}, {1, 0}}, {{5, 1}, {1, 1}}, {{6, 1}, {0, 0}}}},
        {"demux",
         "demuxBlock",
         {{"demuxPortData", "s4.0"}, {"portValid", "u1.0"}, {"portChannel", "u2.0"}},
         {{"demuxChannelCount", "2"}},
         {"0", "1"},
         {{{5, 1, 0}, {5, 0}},
          {{-3, 1, 1}, {5, -3}},
          {{7, 0, 0}, {5, -3}},
          {{7, 1, 3}, {5, -3}},
          {{1, 1, 0}, {1, -3}}}},
        {"channel",
         "channelInBlock",
         {{"portValid", "u1.0"}, {"portChannel", "u8.0"}, {"0", "s4.0"}},
         {},
         {"wireValid", "wireChannel", "0"},
         {{{1, 7, -2}, {1, 7, -2}}}},
    });
}

TEST_F(SimulatorTest, queues) {
    const BlockCase::Texts ports{{"fifoPortData", "s8.0"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}};
    check({
        {"a queue of two",
         "fifoBlock",
         ports,
         {{"fifoDepth", "2"}},
         {"fifoWireValid", "fifoWireData", "fifoWireLow", "fifoWireHigh"},
         {{{1, 1, 1}, {0, 0, 1, 0}}, // the acknowledge of an empty queue is ignored
          {{2, 1, 0}, {1, 1, 0, 0}},
          {{3, 1, 0}, {1, 1, 0, 1}}, // full: lost
          {{4, 0, 1}, {1, 1, 0, 1}},
          {{5, 1, 1}, {1, 2, 0, 0}},
          {{6, 0, 1}, {1, 5, 0, 0}},
          {{7, 0, 0}, {0, 0, 1, 0}}}},
        {"flushed",
         "fifoBlock",
         {{"fifoPortData", "s8.0"},
          {"fifoPortWriteEn", "u1.0"},
          {"fifoPortReadAck", "u1.0"},
          {"fifoPortFlush", "u1.0"}},
         {{"fifoDepth", "4"}, {"fifoLowThreshold", "1"}, {"fifoHighThreshold", "2"}},
         {"fifoWireValid", "fifoWireLow", "fifoWireHigh"},
         {{{1, 1, 0, 0}, {0, 1, 0}}, {{2, 1, 0, 0}, {1, 1, 0}}, {{3, 0, 0, 1}, {1, 0, 1}}, {{4, 0, 0, 0}, {0, 1, 0}}}},
        {"records",
         "fifoBlock",
         {{"fifoPortData", "{s8.0,[2] u4.0}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
         {{"fifoDepth", "2"}},
         {"fifoWireData"},
         {{{-5, 1, 2, 1, 0}, {0, 0, 0}}, {{0, 0, 0, 0, 1}, {-5, 1, 2}}}},
        {"lanes",
         "fifoBlock",
         {{"fifoPortData", "[2] s8.0"}, {"fifoPortWriteEn", "[2] u1.0"}, {"fifoPortReadAck", "u1.0"}},
         {{"fifoDepth", "2"}},
         {"fifoWireData", "fifoWireValid"},
         {{{3, 4, 1, 0, 0}, {0, 0, 0, 0}}, {{0, 0, 0, 0, 0}, {3, 0, 1, 0}}}},
        {"an elastic delay",
         "fifoDelayBlock",
         {{"fifoPortData", "s8.0"}, {"portWrite", "u1.0"}, {"portReady", "u1.0"}},
         {{"fifoDepth", "3"}},
         {"fifoWireData"},
         {{{7, 1, 0}, {0}}, {{8, 1, 0}, {7}}, {{9, 0, 1}, {7}}, {{9, 0, 1}, {8}}}},
    });
}

TEST_F(SimulatorTest, readsAndWritesMemories) {
    check({
        {"one side",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u2.0"}, {"dualMemPortData1", "s8.0"}, {"dualMemPortWrite1En", "u1.0"}},
         {{"dualMemData", "(1 -2 3 4)"}, {"dualMemTypeData1", "(typeSFixed 8 0)"}},
         {"dualMemWireData1"},
         {{{1, 50, 1}, {-2}}, {{1, 60, 0}, {50}}, {{1, 0, 0}, {50}}, {{3, 0, 0}, {4}}}},
        {"two sides",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u2.0"},
          {"dualMemPortData1", "s8.0"},
          {"dualMemPortWrite1En", "u1.0"},
          {"dualMemPortAddr2", "u2.0"},
          {"dualMemPortData2", "s8.0"},
          {"dualMemPortWrite2En", "u1.0"}},
         {{"dualMemDepth1", "4"}, {"dualMemDepth2", "4"}},
         {"dualMemWireData1", "dualMemWireData2"},
         {{{0, 11, 1, 1, 22, 1}, {0, 0}},
          {{0, 0, 0, 1, 0, 0}, {11, 22}},
          {{2, -1, 1, 2, -1, 1}, {0, 0}},
          {{2, 0, 0, 2, 0, 0}, {0, 0}}}},
        {"a read that holds",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u2.0"}, {"dualMemPortRead1", "u1.0"}},
         {{"dualMemData", "(1 2 3)"}, {"dualMemTypeData1", "(typeUFixed 2 0)"}},
         {"dualMemWireData1"},
         {{{1, 1}, {2}}, {{2, 0}, {2}}, {{2, 1}, {3}}, {{3, 1}, {0}}}},
        {"content of the other side",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u1.0"}, {"dualMemPortAddr2", "u2.0"}},
         {{"dualMemAltPortData", "(1 2 3 -4)"},
          {"dualMemTypeData1", "(typeUFixed 16 0)"},
          {"dualMemTypeData2", "(typeSFixed 8 0)"}},
         {"dualMemWireData1", "dualMemWireData2"},
         {{{0, 2}, {0x0201, 3}}, {{1, 3}, {0xfc03, -4}}}},
        {"shared halves",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u1.0"},
          {"dualMemPortData1", "u16.0"},
          {"dualMemPortWrite1En", "u1.0"},
          {"dualMemPortAddr2", "u2.0"}},
         {{"dualMemDepth1", "2"}, {"dualMemTypeData2", "(typeUFixed 8 0)"}},
         {"dualMemWireData2"},
         {{{1, 0x1234, 1, 0}, {0}}, {{0, 0, 0, 2}, {0x34}}, {{0, 0, 0, 3}, {0x12}}}},
    });
}

TEST_F(SimulatorTest, counts) {
    check({
        {"loadable",
         "ldCounterBlock",
         {{"0", "u1.0"}, {"1", "u4.0"}, {"2", "u4.0"}, {"3", "u4.0"}, {"portEnable", "u1.0"}},
         {},
         {kOut},
         {{{0, 0, 3, 10, 1}, {3}}, {{0, 0, 3, 10, 0}, {3}}, {{1, 8, 3, 10, 0}, {8}}, {{0, 8, 3, 10, 1}, {1}}}},
        {"a pulse",
         "sequenceBlock",
         {{"portEnable", "u1.0"}},
         {{"counterLimit", "4"}, {"counterStep", "2"}, {"counterInitial", "-1"}},
         {kOut},
         {{{1}, {1}}, {{1}, {1}}, {{1}, {0}}, {{0}, {0}}, {{1}, {0}}, {{1}, {1}}}},
        // The last element of a layer serves the lanes beyond it.
        {"rolled lengths",
         "delayBlock",
         {{"0", "[3] u8.0"}},
         {{"delayLength", "(vectorRollTag 0 2)"}},
         {"primWireOut"},
         {{{5, 6, 7}, {5, 0, 0}}, {{8, 9, 10}, {8, 0, 0}}, {{1, 2, 3}, {1, 6, 7}}, {{0, 0, 0}, {0, 9, 10}}}},
        {"between clocks",
         "syncRegisterBlock",
         {{"syncRegisterPortIclkData", "s4.0"}, {"syncRegisterPortIclkEnable", "u1.0"}},
         {{"syncRegisterDataType", "(typeSFixed 4 0)"}, {"syncRegisterInitValue", "3"}},
         {"syncRegisterWireOclkData", "syncRegisterWireOclkValid"},
         {{{5, 1}, {3, 0}}, {{6, 0}, {5, 1}}, {{7, 0}, {5, 0}}}},
        {"two loops",
         "loopBlock",
         {{"loopPortGo", "u1.0"},
          {"loopPortEnable", "u1.0"},
          {"(loopPortLimit 0)", "u4.0"},
          {"(loopPortLimit 1)", "u4.0"}},
         {},
         {"loopWireValid", "(loopWireValue 0)", "(loopWireValue 1)", "(loopWireLastIter 0)", "(loopWireFirstIter 1)"},
         {{{0, 1, 2, 2}, {0, 0, 0, 0, 0}},
          {{1, 1, 2, 2}, {1, 0, 0, 0, 1}},
          {{0, 0, 9, 9}, {1, 0, 1, 0, 0}},
          {{0, 1, 9, 9}, {1, 0, 1, 0, 0}},
          {{0, 1, 9, 9}, {1, 1, 0, 1, 1}},
          {{0, 1, 9, 9}, {1, 1, 1, 1, 0}},
          {{0, 1, 9, 9}, {0, 0, 0, 0, 0}},
          {{1, 1, 0, 5}, {0, 0, 0, 0, 0}}}},
    });
}

TEST_F(SimulatorTest, computesWithFloats) {
    constexpr std::int64_t kOne = 0x3f800000;
    constexpr std::int64_t kTwo = 0x40000000;
    constexpr std::int64_t kThree = 0x40400000;
    constexpr std::int64_t kMinusOne = 0xbf800000;
    constexpr std::int64_t kNan = 0x7fc00000;
    const char *const single = "float(23,8)";
    const char *const full = "c float(23,8)";
    check({
        {"add", "addBlock", {{"0", single}, {"1", single}}, {}, {kOut}, {{{kOne, kTwo}, {kThree}}}},
        {"add lanes",
         "addBlock",
         {{"0", "[2] float(23,8)"}, {"1", single}},
         {},
         {kOut},
         {{{kOne, kTwo, kOne}, {kTwo, kThree}}}},
        {"sum of three in order",
         "addBlock",
         {{"0", single}, {"1", single}, {"2", single}},
         {},
         {kOut},
         {{{0x4b800000, kOne, kOne}, {0x4b800000}}}},
        {"subtract", "subBlock", {{"0", single}, {"1", single}}, {}, {kOut}, {{{kTwo, kThree}, {kMinusOne}}}},
        {"both",
         "addsubfusedBlock",
         {{"0", single}, {"1", single}},
         {},
         {kOut, "primWireAux"},
         {{{kTwo, kOne}, {kThree, kOne}}}},
        {"by select",
         "addsubBlock",
         {{"0", single}, {"1", single}, {"addsubPortSelect", "u1.0"}},
         {},
         {kOut},
         {{{kTwo, kOne, 1}, {kThree}}, {{kTwo, kOne, 0}, {kOne}}}},
        {"complex product",
         "multBlock",
         {{"0", full}, {"1", full}},
         {},
         {kOut},
         {{{kOne, kOne, kOne, kOne}, {0, kTwo}}}},
        {"over a dimension",
         "addReduceBlock",
         {{"0", "[3] float(23,8)"}},
         {},
         {kOut},
         {{{kOne, kOne, kOne}, {kThree}}}},
        {"conjugate", "complexConjugateBlock", {{"0", full}}, {}, {kOut}, {{{kOne, kOne}, {kOne, kMinusOne}}}},
        {"divide by zero",
         "divideBlock",
         {{"0", single}, {"1", single}},
         {},
         {kOut},
         {{{kOne, 0}, {0x7f800000}}, {{0, 0}, {kNan}}}},
        {"less", "cmpLtBlock", {{"0", single}, {"1", single}}, {}, {kOut}, {{{kOne, kTwo}, {1}}, {{kNan, kTwo}, {0}}}},
        {"unequal to no number", "cmpNeBlock", {{"0", single}, {"1", single}}, {}, {kOut}, {{{kNan, kNan}, {1}}}},
        {"by control",
         "comparectrlBlock",
         {{"0", single}, {"1", single}, {"comparePortSelect", "u1.0"}},
         {},
         {kOut},
         {{{kOne, kTwo, 0}, {1}}, {{kOne, kTwo, 1}, {0}}}},
        {"most",
         "maxBlock",
         {{"0", single}, {"1", single}, {"2", single}},
         {},
         {kOut},
         {{{kOne, kThree, kTwo}, {kThree}}}},
        {"least", "minBlock", {{"0", single}, {"1", single}}, {}, {kOut}, {{{kOne, kMinusOne}, {kMinusOne}}}},
        {"difference above zero",
         "dimBlock",
         {{"0", single}, {"1", single}},
         {},
         {kOut},
         {{{kOne, kTwo}, {0}}, {{kTwo, kOne}, {kOne}}}},
        {"chosen",
         "muxBlock",
         {{"muxPortSelect", "u1.0"}, {"0", single}, {"1", single}},
         {},
         {kOut},
         {{{0, kOne, kTwo}, {kOne}}, {{1, kOne, kTwo}, {kTwo}}}},
        {"first case",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u1.0"}, {"(selectPortkeyData 0)", single}, {"selectPortDefaultData", single}},
         {},
         {kOut},
         {{{1, kOne, kTwo}, {kOne}}, {{0, kOne, kTwo}, {kTwo}}}},
        {"delayed", "delayBlock", {{"0", single}}, {{"delayLength", "1"}}, {kOut}, {{{kOne}, {0}}, {{kTwo}, {kOne}}}},
        {"registered",
         "registerBlock",
         {{"0", single}},
         {{"registerInitValue", "-1"}},
         {kOut},
         {{{kOne}, {kMinusOne}}}},
        {"root", "sqrtBlock", {{"0", "float(10,5)"}}, {}, {kOut}, {{{0x4400}, {0x4000}}}},
        {"sine and cosine", "sincosfusedBlock", {{"0", single}}, {}, {kOut, "primWireAux"}, {{{0}, {0, kOne}}}},
        {"multiply and add",
         "floatMultaddBlock",
         {{"0", single}, {"1", single}, {"2", single}},
         {},
         {kOut},
         {{{kOne, kTwo, kOne}, {kThree}}}},
        {"from fixed",
         "castBlock",
         {{"0", "s8.8"}},
         {{"castOutputType", "(typeSFloatIEEE 23 8)"}},
         {kOut},
         {{{-256}, {kMinusOne}}}},
        {"to fixed",
         "castBlock",
         {{"0", single}},
         {{"castOutputType", "(typeSFixed 4 4)"}, {"castSaturateMode", "saturateAsymmetric"}},
         {kOut},
         {{{kThree}, {48}}, {{0x42c80000}, {127}}}},
        {"to half",
         "castBlock",
         {{"0", single}},
         {{"castOutputType", "(typeSFloatIEEE 10 5)"}},
         {kOut},
         {{{kOne}, {0x3c00}}}},
        {"scaled", "multPow2Block", {{"0", single}, {"1", "s4.0"}}, {}, {kOut}, {{{kOne, 1}, {kTwo}}}},
        {"classes",
         "floatClassBlock",
         {{"0", single}},
         {},
         {"fpclassWireZero", "fpclassWireSign", "fpclassWireInf", "fpclassWireNan"},
         {{{kMinusOne}, {0, 1, 0, 0}},
          {{0x80000000}, {1, 1, 0, 0}},
          {{0x7f800000}, {0, 0, 1, 0}},
          {{kNan}, {0, 0, 0, 1}}}},
        {"exponent", "ilogbBlock", {{"0", single}}, {}, {kOut}, {{{kTwo}, {1}}}},
        {"subnormals flushed", "addBlock", {{"0", single}, {"1", single}}, {}, {kOut}, {{{1, 0}, {0}}}},
        {"subnormals kept",
         "addBlock",
         {{"0", single}, {"1", single}},
         {{"floatSubnormals", "true"}},
         {kOut},
         {{{1, 0}, {1}}}},
    });
    const BlockCase constant{
        "constant", "constBlock",
        {},         {{"constValue", "(vectorRollTag 1 -1)"}, {"constType", "(typeSFloatIEEE 23 8)"}},
        {kOut},     {{{}, {kOne, kMinusOne}}}};
    check({constant});
}

TEST_F(SimulatorTest, takesNumberedPortsByTheirNumbers) {
    check({
        {"a gap in a sum", "addBlock", {{"0", "s4.0"}, {"2", "s4.0"}}, {}, {kOut}, {{{3, 4}, {7}}}},
        {"a gap in a choice",
         "muxBlock",
         {{"muxPortSelect", "u2.0"}, {"0", "u4.0"}, {"2", "u4.0"}},
         {},
         {kOut},
         {{{0, 3, 4}, {3}}, {{1, 3, 4}, {0}}, {{2, 3, 4}, {4}}, {{3, 3, 4}, {0}}}},
    });
}

TEST_F(SimulatorTest, readsControlsOfOneSignedBit) {
    check({
        {"valid of a synchronising register",
         "syncRegisterBlock",
         {{"syncRegisterPortIclkData", "u4.0"}, {"syncRegisterPortIclkEnable", "s1.0"}},
         {{"syncRegisterDataType", "(typeUFixed 4 0)"}, {"primRelaxBools", "true"}},
         {"syncRegisterWireOclkData", "syncRegisterWireOclkValid"},
         {{{9, -1}, {0, 0}}, {{3, 0}, {9, 1}}, {{3, 0}, {9, 0}}}},
        {"channel and address by their bits",
         "demuxBlock",
         {{"demuxPortData", "u4.0"}, {"portValid", "u1.0"}, {"portChannel", "s2.0"}},
         {{"demuxChannelCount", "4"}, {"primRelaxBools", "true"}},
         {"0", "3"},
         {{{5, 1, -1}, {0, 5}}, {{6, 1, 0}, {6, 5}}}},
    });
}

TEST_F(SimulatorTest, worksOnBothPartsOfComplexNumbers) {
    check({
        {"saturate",
         "saturateBlock",
         {{"0", "c s6.0"}, {"1", "s4.0"}, {"2", "c s4.0"}},
         {},
         {kOut},
         {{{9, -20, 4, -5, -6}, {4, -6}}, {{9, 20, 4, -5, -6}, {4, 0}}}},
        {"max with a real number", "maxBlock", {{"0", "c s6.0"}, {"1", "s6.0"}}, {}, {kOut}, {{{-3, -4, 2}, {2, 0}}}},
    });
}

TEST_F(SimulatorTest, joinsOverPortsOrElements) {
    check({{"elements", "bitJoinReduceBlock", {{"0", "[3] u2.0"}}, {}, {kOut}, {{{1, 2, 3}, {1 + 8 + 48}}}}});
}

TEST_F(SimulatorTest, takesLimitsOfLoopsByTheirValue) {
    // A limit of 2.5 leaves counts 0, 1 and 2.
    check({{"a limit with a fraction",
            "loopBlock",
            {{"loopPortGo", "u1.0"}, {"(loopPortLimit 0)", "u3.2"}},
            {},
            {"loopWireValid", "(loopWireValue 0)", "(loopWireLastIter 0)"},
            {{{1, 10}, {1, 0, 0}}, {{0, 0}, {1, 4, 0}}, {{0, 0}, {1, 8, 1}}, {{0, 0}, {0, 0, 0}}}}});
}

TEST_F(SimulatorTest, letsTheEnableOfALoopDependOnItsCount) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 1 0)")));
    pin.setParam(value("0"), *Wire::create(in, "go"));
    Wire &go = *Wire::create(pin, value("0"));
    Block &limit = *Block::create(top, "limit", A_CONST_BLOCK);
    limit.setParam(A_CONST_VALUE, ValueRef(value("3")));
    Block &loop = *Block::create(top, "loop", A_LOOP_BLOCK);
    loop.setParam(A_LOOP_PORT_GO, go);
    loop.setParam(value("(loopPortLimit 0)"), *Wire::create(limit, A_PRIM_WIRE_OUT));
    Wire &valid = *Wire::create(loop, A_LOOP_WIRE_VALID);
    Wire &count = *Wire::create(loop, value("(loopWireValue 0)"));
    loop.setParam(A_LOOP_PORT_ENABLE, valid);
    Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(value("y"), count);
    Simulator simulator(design, top);
    Numbers shown;
    for (const std::int64_t start : {1, 0, 0, 0}) {
        shown.push_back(stepWith(simulator, {start})[0]);
    }
    EXPECT_EQ(shown, (Numbers{0, 1, 2, 0}));
}

TEST_F(SimulatorTest, refusesParametersThatAreNoNumbers) {
    const auto refused = [&](const BlockCase &row) {
        const std::unique_ptr<Design> design = oneBlock(mgr.context(), row);
        return refusal(*design, *design->begin());
    };
    EXPECT_EQ(refused({"", "counterBlock", {{"portEnable", "u1.0"}}, {{"counterLimit", "-4"}}, {kOut}, {}}),
              "'counterLimit' is not positive top/block");
    EXPECT_EQ(refused({"", "delayBlock", {{"0", "u1.0"}}, {{"delayLength", "0x8p-4"}}, {kOut}, {}}),
              "'delayLength' is no integer top/block");
}

TEST_F(SimulatorTest, refusesPinsOfAnotherShapeThanTheirInput) {
    const auto refused = [&](const char *in, const char *type, const char *wire = "0") {
        const std::unique_ptr<Design> design =
            oneBlock(mgr.context(), {"", "typePinBlock", {{"0", in}}, {{"typePinType", type}}, {wire}, {}});
        return refusal(*design, *design->begin());
    };
    const std::string detail =
        "its type has other dimensions than the input, or only one of the two is complex top/block";
    EXPECT_EQ(refused("[3] c s3.0", "(typeVector 3 (typeSFixed 4 2))"), detail);
    EXPECT_EQ(refused("s3.0", "(typeComplex (typeSFixed 3 0))"), detail);
    EXPECT_EQ(refused("s3.0", "(typeComplex (typeSFixed 3 0))", kOut), detail);
    EXPECT_EQ(refused("[2] s3.0", "(typeSFixed 3 0)"), detail);
    EXPECT_EQ(refused("s3.0", "(typeVector 2 (typeSFixed 3 0))"), detail);
    EXPECT_EQ(refused("[2][3] s3.0", "(typeVector 3 (typeVector 2 (typeSFixed 3 0)))"), detail);
    EXPECT_EQ(refused("[3] c s3.0", "(typeVector 3 (typeComplex (typeSFixed 4 2)))"), "");
}

TEST_F(SimulatorTest, namesABlockTypeThatItDoesNotKnowBeforeItsTypes) {
    const std::unique_ptr<Design> design =
        oneBlock(mgr.context(), {"", "inventedBlock", {{"0", "u1.0"}}, {}, {kOut}, {}});
    EXPECT_EQ(refusal(*design, *design->begin()), "block type 'inventedBlock' cannot be simulated top/block");
}

TEST_F(SimulatorTest, keepsFloatsInMemories) {
    const BlockCase row{
        "",
        "dualMemBlock",
        {{"dualMemPortAddr1", "u1.0"}, {"dualMemPortData1", "float(23,8)"}, {"dualMemPortWrite1En", "u1.0"}},
        {{"dualMemDepth1", "2"}, {"dualMemTypeData1", "(typeSFloatIEEE 23 8)"}},
        {"dualMemWireData1"},
        {}};
    const std::unique_ptr<Design> design = oneBlock(mgr.context(), row);
    Simulator simulator(*design, *design->begin());
    stepWith(simulator, {1, 0x3f800000, 1});
    EXPECT_EQ(stepWith(simulator, {1, 0, 0}), (Numbers{0x3f800000}));
}

TEST_F(SimulatorTest, keepsOneScalarInEachLaneOfAQueue) {
    check({{"lanes",
            "fifoBlock",
            {{"fifoPortData", "u4.0"}, {"fifoPortWriteEn", "[2] u1.0"}, {"fifoPortReadAck", "[2] u1.0"}},
            {{"fifoDepth", "2"}},
            {"fifoWireValid"},
            {{{9, 1, 0, 0, 0}, {0, 0}},
             {{9, 0, 1, 0, 0}, {1, 0}},
             {{9, 0, 0, 1, 0}, {1, 1}},
             {{9, 0, 0, 0, 0}, {0, 1}}}}});
}

/// Samples of 16 bits to show a filter: an impulse, a step at each end of the range, the ends in turn, sines, a ramp,
/// and numbers by chance.
std::vector<Numbers> filterStimuli() {
    constexpr std::int64_t kLow = -32768;
    constexpr std::int64_t kHigh = 32767;
    std::vector<Numbers> streams(9);
    streams[0] = {1};
    streams[0].resize(40);
    streams[1].assign(60, kHigh);
    streams[2].assign(60, kLow);
    std::mt19937 random(3);
    for (int cycle = 0; cycle < 1000; ++cycle) {
        streams[3].push_back(cycle % 2 == 0 ? kLow : kHigh);
        streams[4].push_back(std::llround(32767 * std::sin(cycle * 0.05)));
        streams[5].push_back(std::llround(30000 * std::sin(cycle * 0.9)));
        streams[6].push_back(kLow + cycle * 65);
        streams[7].push_back(static_cast<std::int16_t>(random()));
        streams[8].push_back(random() % 2 == 0 ? kLow : kHigh);
    }
    return streams;
}

TEST_F(SimulatorTest, computesTheFilterAsDoublesDo) {
    const std::unique_ptr<Design> design = example("fir16");
    Simulator simulator(*design, *design->begin());
    ASSERT_EQ(simulator.inputs().size(), 1U);
    ASSERT_EQ(simulator.outputs()[0].fraction, 30);
    const double half[] = {-52, -131, -97, 421, 1572, 3198, 4782, 5761};
    std::vector<Numbers> streams = filterStimuli();
    // Each tap at an end of the range, with the sign of its coefficient: the largest sum there is, and the least.
    for (const std::int64_t sign : {1, -1}) {
        Numbers worst;
        for (const double coefficient : half) {
            worst.push_back(coefficient * static_cast<double>(sign) < 0 ? -32768 : 32767);
        }
        worst.insert(worst.end(), worst.rbegin(), worst.rend());
        streams.push_back(worst);
    }
    for (std::size_t stream = 0; stream < streams.size(); ++stream) {
        simulator.reset();
        std::deque<double> line(16, 0);
        for (std::size_t cycle = 0; cycle < streams[stream].size(); ++cycle) {
            const std::int64_t sample = streams[stream][cycle];
            line.push_front(static_cast<double>(sample) / 32768);
            line.pop_back();
            double sum = 0;
            for (std::size_t i = 0; i < 16; ++i) {
                sum += line[i] * half[i < 8 ? i : 15 - i] / 32768;
            }
            // The types of products and sum keep every bit, and so do doubles.
            const auto filtered = static_cast<double>(stepWith(simulator, {sample})[0]);
            ASSERT_EQ(std::ldexp(filtered, -30), sum) << "stream " << stream << ", cycle " << cycle;
        }
    }
}

TEST_F(SimulatorTest, computesTheRecursiveFilterByItsDifferenceEquation) {
    const std::unique_ptr<Design> design = example("biquad");
    Simulator simulator(*design, *design->begin());
    const auto weight = [](double number) { return static_cast<std::int64_t>(std::round(number * 65536)); };
    const std::int64_t b[] = {weight(0.2066), weight(0.4131), weight(0.2066)};
    const std::int64_t a[] = {weight(-0.3695), weight(0.1958)};
    std::vector<Numbers> streams = filterStimuli();
    // First outputs in the middle between two numbers, of which the lower or the upper is even.
    streams.push_back({8192, 0, 0});
    streams.push_back({24576, 0, 0});
    std::map<std::string, int> met;
    for (std::size_t stream = 0; stream < streams.size(); ++stream) {
        simulator.reset();
        std::int64_t x[3] = {};
        std::int64_t y[2] = {};
        for (std::size_t cycle = 0; cycle < streams[stream].size(); ++cycle) {
            x[2] = x[1];
            x[1] = x[0];
            x[0] = streams[stream][cycle];
            const std::int64_t sum = b[0] * x[0] + b[1] * x[1] + b[2] * x[2] - a[0] * y[0] - a[1] * y[1];
            // To nearest, ties to even, then into sixteen bits.
            std::int64_t result = sum >> 16;
            const std::int64_t rest = sum & 0xffff;
            if (rest == 0x8000) {
                ++met[(result & 1) != 0 ? "tie upward" : "tie downward"];
            }
            result += rest > 0x8000 || (rest == 0x8000 && (result & 1) != 0) ? 1 : 0;
            met["above the range"] += result > 32767 ? 1 : 0;
            met["below the range"] += result < -32768 ? 1 : 0;
            result = std::clamp<std::int64_t>(result, -32768, 32767);
            ASSERT_EQ(stepWith(simulator, {x[0]}), (Numbers{result})) << "stream " << stream << ", cycle " << cycle;
            y[1] = y[0];
            y[0] = result;
        }
    }
    for (const char *what : {"tie upward", "tie downward", "above the range", "below the range"}) {
        EXPECT_GT(met[what], 0) << what;
    }
}

TEST_F(SimulatorTest, mixesInEachInstanceByItsOwnOscillator) {
    const std::unique_ptr<Design> design = example("mixer_pair");
    Simulator simulator(*design, *design->getModel(value("top")));
    std::map<std::string, std::size_t> inputs;
    for (std::size_t i = 0; i < simulator.inputs().size(); ++i) {
        inputs[simulator.inputs()[i].name] = i;
    }
    ASSERT_EQ(simulator.outputs().size(), 16U);
    std::mt19937 random(7);
    const std::int16_t ends[] = {-32768, -32767, 32767, -16384, 16384, 0, 1, -1};
    int above = 0;
    int below = 0;
    int ties = 0;
    for (int cycle = 0; cycle < 2000; ++cycle) {
        std::map<std::string, double> in;
        for (const auto &[name, at] : inputs) {
            const std::int16_t raw =
                random() % 2 == 0 ? ends[random() % std::size(ends)] : static_cast<std::int16_t>(random());
            simulator.setInput(at, std::int64_t{raw});
            in[name] = raw / 32768.0;
        }
        simulator.step();
        for (std::size_t i = 0; i < simulator.outputs().size(); ++i) {
            const std::string &name = simulator.outputs()[i].name;
            const bool isUp = name.find("up") == 0;
            const std::string lane = name.substr(name.find('['), 3);
            const double re = in.at((isUp ? "up" : "down") + lane + ".re");
            const double im = in.at((isUp ? "up" : "down") + lane + ".im");
            const double cosine = in.at("cosine");
            const double sine = in.at("sine") * (isUp ? 1 : -1);
            const bool isReal = name.find(".re") != std::string::npos;
            const double exact = isReal ? re * cosine - im * sine : re * sine + im * cosine;
            const double steps = exact * 32768;
            above += steps > 32767.5 ? 1 : 0;
            below += steps < -32767.5 ? 1 : 0;
            ties += steps - std::floor(steps) == 0.5 ? 1 : 0;
            const auto mixed = static_cast<double>(simulator.outputInteger(i));
            // Half a step of the output where nothing clips; ties go up.
            const double clipped = std::clamp(steps, -32767.0, 32767.0);
            ASSERT_LE(std::fabs(mixed - clipped), 0.5) << name << ", cycle " << cycle;
            ASSERT_EQ(mixed, std::clamp(std::floor(steps + 0.5), -32767.0, 32767.0)) << name << ", cycle " << cycle;
        }
    }
    EXPECT_GT(above, 100);
    EXPECT_GT(below, 100);
    EXPECT_GT(ties, 100);
}

TEST_F(SimulatorTest, carriesRecordsThroughDelaysAndModels) {
    const std::unique_ptr<Design> design = example("tagged_samples");
    Simulator simulator(*design, *design->getModel(value("top")));
    ASSERT_EQ(simulator.inputs()[0].name, "channel");
    ASSERT_EQ(simulator.outputs()[1].name, "sample.re");
    for (std::int64_t cycle = 0; cycle < 20; ++cycle) {
        const Numbers out = stepWith(simulator, {cycle % 8, cycle * 2 + 2, -cycle * 2 - 2});
        const std::int64_t sent = cycle - 3;
        if (sent >= 0) {
            EXPECT_EQ(out[0], sent % 8);
            // The output has one fraction bit more; the last channel is halved.
            EXPECT_EQ(out[1], (sent * 2 + 2) * (sent % 8 == 7 ? 1 : 2));
            EXPECT_EQ(out[2], -out[1]);
        }
    }
}

TEST_F(SimulatorTest, computesAMatrixTimesAVector) {
    const std::unique_ptr<Design> design = example("matrix_vector");
    Simulator simulator(*design, *design->begin());
    // The first row has angles of a quarter turn.
    const Numbers out = stepWith(simulator, {1024, 0, 0, 1024, -1024, 0, 0, -1024});
    const double each = 1448.0 / 2048;
    EXPECT_NEAR(static_cast<double>(out[0]) / 8192, each + -each + each + -each, 0.001);
    EXPECT_EQ(simulator.outputs()[0].name, "y[0].re");
}

// A wave from the direction of a beam adds up there, and cancels in the others.
TEST_F(SimulatorTest, steersBeams) {
    const std::unique_ptr<Design> design = example("beamformer");
    Simulator simulator(*design, *design->getModel(value("beamformer")));
    ASSERT_EQ(simulator.inputs()[1].name, "samples[0].re");
    ASSERT_EQ(simulator.outputs()[4].name, "beams[2].re");
    const double pi = std::acos(-1.0);
    for (int beam = 0; beam < 4; ++beam) {
        const double sine = (2 * beam - 3) / 4.0;
        Numbers wave{beam};
        for (int element = 0; element < 8; ++element) {
            wave.push_back(std::lround(4096 * std::cos(pi * element * sine)));
            wave.push_back(std::lround(4096 * std::sin(pi * element * sine)));
        }
        wave.push_back(1);
        simulator.reset();
        stepWith(simulator, wave);
        const Numbers out = stepWith(simulator, Numbers(wave.size(), 0));
        for (int other = 0; other < 4; ++other) {
            const auto at = static_cast<std::size_t>(2 * other);
            // Half of full scale from each of eight elements, in units of 2^-12.
            EXPECT_NEAR(static_cast<double>(out[at]), other == beam ? 4 * 4096 : 0, 16) << beam << " " << other;
            EXPECT_NEAR(static_cast<double>(out[at + 1]), 0, 16) << beam << " " << other;
        }
        EXPECT_EQ(out[8], beam);
        EXPECT_EQ(out[9], 1);
    }
}

TEST_F(SimulatorTest, givesVariantsWithoutSchedulingTheMeaningOfThePlainTypes) {
    check({
        {"add", "addNONSBlock", {{"0", "s4.0"}, {"1", "s4.0"}}, {}, {kOut}, {{{-8, 7}, {-1}}}},
        {"register", "registerNONSBlock", {{"0", "s4.0"}}, {}, {kOut}, {{{5}, {0}}, {{6}, {5}}}},
        {"add floats",
         "addNONSBlock",
         {{"0", "float(23,8)"}, {"1", "float(23,8)"}},
         {},
         {kOut},
         {{{0x3f800000, 0x3f800000}, {0x40000000}}}},
    });
    EXPECT_TRUE(canSimulate(A_ADD_BLOCK.get_ptr()));
    EXPECT_TRUE(canSimulate(U_MUX_BLOCK.get_ptr()));
    EXPECT_TRUE(canSimulate(A_SIN_BLOCK.get_ptr()));
    EXPECT_TRUE(canSimulate(A_MODEL_BLOCK.get_ptr()));
    EXPECT_TRUE(canSimulate(A_FIR_BLOCK.get_ptr()));
    EXPECT_FALSE(canSimulate(A_UNSUPPORTED_BLOCK.get_ptr()));
    EXPECT_FALSE(canSimulate(nullptr));
}

TEST_F(SimulatorTest, refusesWhatHasNoMeaning) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &odd = *Block::create(top, "odd", value("oddBlock"));
    EXPECT_EQ(refusal(design, top), "block type 'oddBlock' cannot be simulated top/odd");
    odd.setParam(A_BLOCK_TYPE, nullptr);
    EXPECT_EQ(refusal(design, top), "block type '(none)' cannot be simulated top/odd");
    delete &odd;
    Block &delay = *Block::create(top, "delay", A_DELAY_BLOCK);
    delay.setParam(A_DELAY_LENGTH, ValueRef(value("1")));
    delay.setParam(value("0"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "x"));
    EXPECT_EQ(refusal(design, top), "wire 'x' has no type; Likely failure cause: external, input \"x\" top/in");
    Block &self = *Block::create(top, "self", A_MODEL_BLOCK);
    EXPECT_EQ(refusal(design, top), "wire 'x' has no type; Likely failure cause: external, input \"x\" top/in");
    delete &delay;
    delete top.getBlock(value("in"));
    EXPECT_EQ(refusal(design, top), "the model block has no model top/self");
    self.setParam(A_MODEL_NODE, top);
    EXPECT_EQ(refusal(design, top), "the model instantiates itself top/self");
}

TEST_F(SimulatorTest, namesTheBlocksOfACombinationalLoop) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    Block &pin = *Block::create(top, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 4 0)")));
    pin.setParam(value("0"), *Wire::create(in, "x"));
    Wire &x = *Wire::create(pin, value("0"));
    Block &a = *Block::create(top, "a", A_XOR_BLOCK);
    Block &b = *Block::create(top, "b", A_NOT_BLOCK);
    Block &c = *Block::create(top, "c", A_TYPE_PIN_BLOCK);
    c.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeUFixed 4 0)")));
    c.setParam(value("0"), *Wire::create(b, A_PRIM_WIRE_OUT));
    a.setParam(value("0"), x);
    a.setParam(value("1"), *Wire::create(c, value("0")));
    b.setParam(value("0"), *Wire::create(a, A_PRIM_WIRE_OUT));
    const std::string text = refusal(design, top);
    EXPECT_TRUE(text == "a combinational loop top/a top/b" || text == "a combinational loop top/b top/a") << text;
    // A delay on the way opens it.
    b.setParam(A_BLOCK_TYPE, A_DELAY_BLOCK);
    b.setParam(A_DELAY_LENGTH, ValueRef(value("1")));
    EXPECT_EQ(refusal(design, top), "");
}

TEST_F(SimulatorTest, keepsWideValues) {
    const BlockCase row{"wide", "multBlock", {{"0", "s100.0"}, {"1", "u90.0"}}, {}, {kOut}, {}};
    const std::unique_ptr<Design> design = oneBlock(mgr.context(), row);
    Simulator simulator(*design, *design->begin());
    simulator.setInput(0, -3);
    simulator.setInput(1, {0, 1});
    simulator.step();
    EXPECT_EQ(simulator.output(0), (std::vector<std::uint64_t>{0, ~std::uint64_t{2}, ~std::uint64_t{0}}));
}

} // namespace
} // namespace orvo::sim
