// The simulator against a simulator from elsewhere: designs of every fixed-point block type, as Verilog modules in
// Icarus Verilog, give the same bits in every cycle.
#include "support/typetable.h"
#include "support/verilog.h"

#include "sim/blockrows.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/simulator.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>
#include <util/random.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

namespace orvo::sim {
namespace {

using Texts = std::vector<std::pair<std::string, std::string>>;

/// A block of a design, at inputs of the design.
struct Part {
    std::string block;
    /// From port keys to names of inputs.
    Texts ports;
    Texts params;
    std::vector<std::string> outputs = {"primWireOut"};
    /// x may stand where the simulator gives zero.
    bool mayBeUnknown = false;
};

/// Inputs with their types, and blocks on them.
struct OracleDesign {
    std::string name;
    Texts inputs;
    std::vector<Part> parts;
    /// Inputs that are never zero.
    std::set<std::string> neverZero = {};
};

/// A design beside its module, with what drives both.
struct Trial {
    std::string name;
    std::unique_ptr<Design> design;
    const Model *top = nullptr;
    std::unique_ptr<Simulator> simulator;
    test::VerilogModule module;
    /// By output of the simulator: whether it may be x, and where it comes from.
    std::vector<bool> mayBeUnknown;
    std::vector<std::string> origins;
    std::vector<bool> neverZero;
};

constexpr std::size_t kCycles = 64;
using Words = std::vector<std::uint64_t>;

bool bitOf(const Words &words, int bit) { return (words[static_cast<std::size_t>(bit / 64)] >> (bit % 64) & 1U) != 0; }

/// The bits of a scalar, the highest first.
std::string bitsOf(const Words &words, int width) {
    std::string text;
    for (int bit = width; bit-- > 0;) {
        text += bitOf(words, bit) ? '1' : '0';
    }
    return text;
}

/// Bits by chance, or one of the corners of the range.
Words stimulusOf(util::SplitMix &random, int width) {
    Words words(static_cast<std::size_t>((width + 63) / 64));
    const std::size_t kind = random.below(8);
    for (std::uint64_t &word : words) {
        word = kind < 5 ? random.next() : kind == 5 || kind == 6 ? 0 : ~std::uint64_t{0};
    }
    if (kind == 6) {
        words[0] = random.below(3);
    }
    if (kind > 6 || kind == 4) {
        // The least or the largest signed number, or one near them.
        const auto top = static_cast<std::size_t>(width - 1);
        const bool isLeast = random.below(2) == 0;
        for (std::uint64_t &word : words) {
            word = isLeast ? 0 : ~std::uint64_t{0};
        }
        words[top / 64] ^= std::uint64_t{1} << (top % 64);
        words[0] ^= random.below(4) == 0 ? 1 : 0;
    }
    return words;
}

class VerilogOracleTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }

    Trial make(const OracleDesign &from) {
        Trial trial;
        trial.name = from.name;
        trial.design = std::make_unique<Design>(mgr.context());
        Model &top = *Model::create(*trial.design, "top");
        Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
        std::map<std::string, Wire *> inputs;
        for (const auto &[name, type] : from.inputs) {
            Block &pin = *Block::create(top, "pin " + name, A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value(testing::typeText(type))));
            pin.setParam(value("0"), *Wire::create(in, name));
            inputs[name] = Wire::create(pin, value("0"));
        }
        Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
        std::map<std::string, std::pair<bool, std::string>> outputs;
        for (std::size_t i = 0; i < from.parts.size(); ++i) {
            const Part &part = from.parts[i];
            Block &block = *Block::create(top, fmt::format("part {}", i), value(part.block));
            std::string origin = part.block;
            for (const auto &[key, text] : part.params) {
                block.setParam(value(key), ValueRef(value(text)));
                origin += fmt::format(" {}={}", key, text);
            }
            for (const auto &[key, input] : part.ports) {
                block.setParam(value(key), *inputs.at(input));
                origin += fmt::format(" {}={}", key, input);
            }
            for (std::size_t j = 0; j < part.outputs.size(); ++j) {
                const std::string name = fmt::format("o{}x{}", i, j);
                out.setParam(value(name), *Wire::create(block, value(part.outputs[j])));
                outputs[name] = {part.mayBeUnknown, origin + " -> " + part.outputs[j]};
            }
        }
        finish(trial);
        for (const Scalar &scalar : trial.simulator->outputs()) {
            const auto &[mayBeUnknown, origin] = outputs.at(scalar.name.substr(0, scalar.name.find_first_of("[.")));
            trial.mayBeUnknown.push_back(mayBeUnknown);
            trial.origins.push_back(origin + " " + scalar.name);
        }
        for (const Scalar &scalar : trial.simulator->inputs()) {
            trial.neverZero.push_back(from.neverZero.count(scalar.name) != 0);
        }
        return trial;
    }
    Trial example(const std::string &name) {
        Trial trial;
        trial.name = name;
        std::ifstream in(std::string(ORVO_TEST_SOURCE_DIR) + "/examples/" + name + ".xml");
        trial.design = std::make_unique<Design>(mgr.context());
        EXPECT_TRUE(XMLServices().fromXML(in, *trial.design, XMLServices::defaultErrorFunc));
        finish(trial);
        for (const Scalar &scalar : trial.simulator->outputs()) {
            trial.mayBeUnknown.push_back(false);
            trial.origins.push_back(scalar.name);
        }
        trial.neverZero.resize(trial.simulator->inputs().size());
        return trial;
    }
    /// Runs all designs in one process and compares.
    void check(const std::string &name, const std::vector<OracleDesign> &designs, std::vector<Trial> runs = {}) {
        for (const OracleDesign &design : designs) {
            ASSERT_NO_THROW(runs.push_back(make(design))) << design.name << ": " << refusal(design);
        }
        const std::filesystem::path folder = std::filesystem::path(ORVO_TEST_TMP_DIR) / ("verilog_" + name);
        std::filesystem::create_directories(folder);
        writeSources(folder, runs);
        const std::string command =
            fmt::format("cd '{}' && iverilog -g2012 -o design.vvp design.v >compile.log 2>&1 && "
                        "vvp -n design.vvp >outputs.txt 2>trial.log",
                        folder.string());
        ASSERT_EQ(std::system("iverilog -V >/dev/null 2>&1"), 0)
            << "Icarus Verilog is missing: run tools/install-deps.sh";
        ASSERT_EQ(std::system(command.c_str()), 0) << "see the logs in " << folder;
        compare(folder, runs);
        if (!HasFailure()) {
            std::filesystem::remove_all(folder);
        }
    }
    ContextMgr mgr;

  private:
    void finish(Trial &trial) {
        const Model *named = trial.design->getModel(value("top"));
        trial.top = named != nullptr ? named : &*trial.design->begin();
        trial.simulator = std::make_unique<Simulator>(*trial.design, *trial.top);
        trial.module = test::verilogModule(*trial.design, *trial.top, "unnamed");
    }
    std::string refusal(const OracleDesign &design) {
        try {
            make(design);
        } catch (const SimulationError &error) {
            return fmt::format("{} {}", error.what(), error.blocks().empty() ? "" : error.blocks()[0]);
        } catch (const std::exception &error) {
            return error.what();
        }
        return "";
    }
    /// All modules under a bench that feeds each its lines of one file and prints its outputs.
    void writeSources(const std::filesystem::path &folder, std::vector<Trial> &runs) {
        std::ofstream source(folder / "design.v");
        std::string bench;
        std::string prints;
        std::string feeds;
        int widest = 1;
        for (std::size_t i = 0; i < runs.size(); ++i) {
            Trial &trial = runs[i];
            trial.module = test::verilogModule(*trial.design, *trial.top, fmt::format("design{}", i));
            source << trial.module.text;
            std::string ports;
            std::string together;
            int at = 0;
            for (const test::VerilogPort &port : trial.module.inputs) {
                ports += fmt::format(", .{}(in{}[{}:{}])", port.net, i, at + port.width - 1, at);
                at += port.width;
            }
            bench += at == 0 ? "" : fmt::format("    reg [{}:0] in{};\n", at - 1, i);
            feeds += at == 0 ? "" : fmt::format("            in{} = stimulus[{} + cycle];\n", i, i * kCycles);
            widest = std::max(widest, at);
            for (const test::VerilogPort &port : trial.module.outputs) {
                bench += fmt::format("    wire [{}:0] out{}{};\n", port.width - 1, i, port.net);
                ports += fmt::format(", .{0}(out{1}{0})", port.net, i);
                prints += fmt::format("            $display(\"%b\", out{}{});\n", i, port.net);
            }
            bench += fmt::format("    design{0} at{0}(.clk(clk){1});\n", i, ports);
        }
        source << "module bench;\n    reg clk = 0;\n    integer cycle;\n"
               << fmt::format("    reg [{}:0] stimulus [0:{}];\n", widest - 1, runs.size() * kCycles - 1) << bench
               << "    initial begin\n        $readmemb(\"stimulus.txt\", stimulus);\n"
               << fmt::format("        for (cycle = 0; cycle < {}; cycle = cycle + 1) begin\n", kCycles) << feeds
               << "            #1;\n"
               << prints
               << "            clk = 1;\n            #1 clk = 0;\n            #1;\n        end\n    end\nendmodule\n";
        writeStimulus(folder, runs, static_cast<std::size_t>(widest));
    }
    void writeStimulus(const std::filesystem::path &folder, std::vector<Trial> &runs, std::size_t widest) {
        std::ofstream file(folder / "stimulus.txt");
        mStimulus.clear();
        util::SplitMix random(11);
        for (Trial &trial : runs) {
            for (std::size_t cycle = 0; cycle < kCycles; ++cycle) {
                std::string line;
                std::vector<Words> &inputs = mStimulus.emplace_back();
                for (std::size_t i = 0; i < trial.module.inputs.size(); ++i) {
                    const int width = trial.module.inputs[i].width;
                    Words words = stimulusOf(random, width);
                    if (trial.neverZero[i] && bitsOf(words, width).find('1') == std::string::npos) {
                        words[0] |= 1;
                    }
                    // The first input lies lowest.
                    line = bitsOf(words, width) + line;
                    inputs.push_back(std::move(words));
                }
                file << std::string(widest - line.size(), '0') << line << "\n";
            }
        }
    }
    void compare(const std::filesystem::path &folder, std::vector<Trial> &runs) {
        std::ifstream outputs(folder / "outputs.txt");
        constexpr int kMostFailures = 40;
        int failures = 0;
        std::size_t unknown = 0;
        for (std::size_t cycle = 0; cycle < kCycles; ++cycle) {
            for (std::size_t i = 0; i < runs.size(); ++i) {
                Trial &trial = runs[i];
                const std::vector<Words> &inputs = mStimulus[i * kCycles + cycle];
                std::string given;
                for (std::size_t j = 0; j < inputs.size(); ++j) {
                    ASSERT_EQ(trial.simulator->inputs()[j].name, trial.module.inputs[j].scalar);
                    trial.simulator->setInput(j, inputs[j]);
                    given += fmt::format(" {}={}", trial.module.inputs[j].scalar,
                                         bitsOf(inputs[j], trial.module.inputs[j].width));
                }
                trial.simulator->step();
                for (std::size_t j = 0; j < trial.module.outputs.size(); ++j) {
                    std::string line;
                    ASSERT_TRUE(std::getline(outputs, line)) << trial.name << ", cycle " << cycle;
                    const std::string own = bitsOf(trial.simulator->output(j), trial.module.outputs[j].width);
                    if (!trial.mayBeUnknown[j]) {
                        unknown += line.find('x') != std::string::npos ? 1U : 0U;
                    }
                    std::string expected = line;
                    if (trial.mayBeUnknown[j]) {
                        std::replace(expected.begin(), expected.end(), 'x', '0');
                    }
                    if (expected != own && ++failures <= kMostFailures) {
                        ADD_FAILURE() << trial.name << ", cycle " << cycle << ", " << trial.origins[j]
                                      << "\n  Verilog   " << line << "\n  simulator " << own << "\n  inputs   "
                                      << given;
                    }
                }
            }
        }
        std::string rest;
        EXPECT_FALSE(std::getline(outputs, rest)) << rest;
        EXPECT_EQ(unknown, 0U);
    }

    /// By design and cycle, then by input.
    std::vector<std::vector<Words>> mStimulus;
};

const Texts kTwo{{"0", "a"}, {"1", "b"}};
const Texts kThree{{"0", "a"}, {"1", "b"}, {"2", "c"}};

std::vector<OracleDesign> arithmeticDesigns() {
    const std::pair<const char *, const char *> types[] = {
        {"u1.0", "u1.0"},   {"s1.0", "u1.0"},     {"s4.1", "u3.0"},    {"s4.0", "s4.0"},
        {"s2.6", "u6.2"},   {"s5.-2", "u3.3"},    {"u8.-3", "u4.0"},   {"s16.8", "s16.4"},
        {"s31.0", "u32.0"}, {"u64.0", "u64.0"},   {"s33.30", "s64.0"}, {"s60.3", "u63.1"},
        {"s64.1", "s1.0"},  {"s100.20", "u96.0"}, {"u128.0", "s2.0"},  {"s0.9", "s70.-60"},
    };
    std::vector<OracleDesign> designs;
    for (const auto &[a, b] : types) {
        OracleDesign design{fmt::format("{} {}", a, b), {{"a", a}, {"b", b}, {"c", a}, {"k", "u1.0"}}, {}};
        for (const char *block :
             {"addBlock", "subBlock", "multBlock", "minBlock", "maxBlock", "magminBlock", "magmaxBlock", "dimBlock",
              "cmpEqBlock", "cmpNeBlock", "cmpGeBlock", "cmpLtBlock", "scalarProductBlock", "addReduceBlock"}) {
            design.parts.push_back({block, kTwo, {}});
        }
        for (const char *block : {"addBlock", "subBlock"}) {
            design.parts.push_back({block, kTwo, {{"addNoGrowth", "true"}}});
            design.parts.push_back({block, kTwo, {{"addType", "(typeSFixed 3 1)"}}});
        }
        for (const char *block : {"addBlock", "subBlock", "monsterAddBlock", "monsterMultBlock", "minBlock", "maxBlock",
                                  "magminBlock", "magmaxBlock", "addReduceBlock", "saturateBlock"}) {
            design.parts.push_back({block, kThree, {}});
        }
        design.parts.push_back({"addsubfusedBlock", kTwo, {}, {"primWireOut", "primWireAux"}});
        const Texts chosen[] = {{{"0", "a"}, {"1", "b"}, {"addsubPortSelect", "k"}},
                                {{"0", "a"}, {"1", "b"}, {"minmaxPortSelect", "k"}},
                                {{"0", "a"}, {"1", "b"}, {"comparePortSelect", "k"}}};
        design.parts.push_back({"addsubBlock", chosen[0], {}});
        design.parts.push_back({"minmaxBlock", chosen[1], {}});
        design.parts.push_back({"comparectrlBlock", chosen[2], {}});
        design.parts.push_back({"addSloadBlock",
                                {{"0", "a"}, {"1", "b"}, {"addSloadPortLoadCtrl", "k"}, {"addSloadPortLoadValue", "c"}},
                                {}});
        design.parts.push_back({"scalarProductBlock",
                                {{"0", "a"}, {"1", "b"}, {"2", "b"}, {"3", "c"}, {"scalarProductPortChainin", "c"}},
                                {}});
        design.parts.push_back(
            {"scalarProductBlock", {{"0", "a"}, {"1", "b"}, {"2", "b"}, {"3", "c"}}, {{"subtractive", "true"}}});
        for (const char *block : {"negBlock", "absBlock", "complexConjugateBlock"}) {
            design.parts.push_back({block, {{"0", "a"}}, {}});
        }
        for (const char *number : {"3", "-2.5", "0.125", "-1", "96"}) {
            design.parts.push_back({"constmultBlock", {{"0", "a"}}, {{"constValue", number}}});
        }
        design.parts.push_back({"divideBlock", kTwo, {}, {"primWireOut"}, true});
        designs.push_back(std::move(design));
    }
    for (const char *type : {"u1.0", "s4.0", "u8.0", "s32.0", "u64.0", "s100.0"}) {
        OracleDesign design{fmt::format("integers of {}", type), {{"a", type}, {"b", type}}, {}};
        design.parts.push_back({"divideBlock", kTwo, {{"intDivider", "true"}}, {"primWireOut"}, true});
        for (const char *number : {"1", "3", "7", "12", "-5"}) {
            design.parts.push_back({"constdivBlock", {{"0", "a"}}, {{"constValue", number}}});
        }
        for (const char *number : {"1", "2", "3", "6", "64", "251"}) {
            if (type[0] == 'u') {
                design.parts.push_back({"modMultBlock", kTwo, {{"modMultModulusValue", number}}});
            }
        }
        designs.push_back(std::move(design));
    }
    return designs;
}

std::vector<OracleDesign> castDesigns() {
    const char *const outputs[] = {"(typeSFixed 3 1)",   "(typeUFixed 3 0)",  "(typeSFixed 1 0)",  "(typeUFixed 1 0)",
                                   "(typeUFixed 8 4)",   "(typeSFixed 70 2)", "(typeUFixed 2 -1)", "(typeSFixed 4 -3)",
                                   "(typeSFixed 40 20)", "(typeUFixed 0 5)",  "(typeUFixed 66 0)"};
    const char *const roundings[] = {"", "roundingTrunc", "roundingTruncToZero", "roundingBiased", "roundingUnbiased"};
    const char *const saturations[] = {"", "saturateNone", "saturateSymmetric", "saturateAsymmetric"};
    std::vector<OracleDesign> designs;
    // Types, and how many bits rounding may take so that something of them is left.
    const std::pair<const char *, int> types[] = {{"s1.0", 0},   {"u1.0", 0},   {"s4.3", 6},    {"u4.3", 6},
                                                  {"s8.8", 12},  {"u20.30", 6}, {"s66.66", 99}, {"s5.-2", 2},
                                                  {"u64.1", 64}, {"s62.2", 3}};
    for (const auto &[type, most] : types) {
        OracleDesign design{fmt::format("casts of {}", type), {{"a", type}}, {}};
        for (const char *output : outputs) {
            for (const char *rounding : roundings) {
                for (const char *saturation : saturations) {
                    Texts params{{"castOutputType", output}};
                    if (*rounding != '\0') {
                        params.emplace_back("castRoundingMode", rounding);
                    }
                    if (*saturation != '\0') {
                        params.emplace_back("castSaturateMode", saturation);
                    }
                    design.parts.push_back({"castBlock", {{"0", "a"}}, params, {"primWireOut", "castWireClip"}});
                }
            }
            design.parts.push_back(
                {"castBlock", {{"0", "a"}}, {{"castOutputType", output}, {"castMode", "castModeReinterp"}}});
        }
        for (const char *block : {"truncateBlock", "truncateToZeroBlock", "biasedRoundBlock", "unbiasedRoundBlock"}) {
            for (int bits = -2; bits <= most; bits += bits < 3 ? 1 : 3) {
                design.parts.push_back({block, {{"0", "a"}}, {{"roundBits", std::to_string(bits)}}});
            }
        }
        designs.push_back(std::move(design));
    }
    return designs;
}

std::vector<OracleDesign> bitDesigns() {
    const std::pair<const char *, const char *> types[] = {
        {"u1.0", "u1.0"},   {"s1.0", "u1.0"},     {"s4.1", "u3.0"},   {"u4.2", "u4.2"},
        {"s5.-2", "u3.3"},  {"s2.6", "s6.2"},     {"u64.0", "s63.1"}, {"s64.0", "u1.0"},
        {"u65.0", "u65.0"}, {"s100.20", "u96.0"}, {"u32.0", "s8.0"},  {"s16.0", "s16.0"},
    };
    std::vector<OracleDesign> designs;
    for (const auto &[a, b] : types) {
        OracleDesign design{fmt::format("bits of {} {}", a, b), {{"a", a}, {"b", b}, {"c", a}}, {}};
        for (const char *block : {"andBlock", "nandBlock", "orBlock", "norBlock", "xorBlock", "xnorBlock"}) {
            design.parts.push_back({block, {{"0", "a"}, {"1", "c"}}, {}});
            design.parts.push_back({block, kTwo, {}});
            design.parts.push_back({block, kThree, {}});
        }
        for (const char *block :
             {"notBlock", "reverseBlock", "bitCountBlock", "ctpopBlock", "andReduceBlock", "nandReduceBlock",
              "orReduceBlock", "norReduceBlock", "xorReduceBlock", "xnorReduceBlock", "bitJoinReduceBlock"}) {
            design.parts.push_back({block, {{"0", "a"}}, {}});
            design.parts.push_back({block, {{"0", "b"}}, {}});
        }
        design.parts.push_back({"bitJoinBlock", kTwo, {}});
        design.parts.push_back({"bitJoinBlock", kThree, {}});
        for (const char *offset : {"0", "1", "-1"}) {
            design.parts.push_back({"bitSelectBlock",
                                    {{"0", "a"}},
                                    {{"bitSelectBitOffset", offset}, {"bitSelectOutputType", "(typeUFixed 1 0)"}}});
            design.parts.push_back({"bitSelectBlock",
                                    {{"0", "b"}},
                                    {{"bitSelectBitOffset", offset}, {"bitSelectOutputType", "(typeSFixed 5 0)"}}});
        }
        design.parts.push_back({"chooseBitsBlock",
                                {{"0", "a"}},
                                {{"chooseBitsBitOffsets", "(0 0 0)"}, {"chooseBitsOutputType", "(typeUFixed 3 0)"}}});
        for (const char *places : {"0", "1", "5", "-3"}) {
            design.parts.push_back({"rawShiftBlock", {{"0", "a"}}, {{"rawShiftValue", places}}});
        }
        designs.push_back(std::move(design));
    }
    OracleDesign wide{
        "bits of wide signals", {{"a", "u70.0"}, {"b", "s8.0"}, {"v", "[3] u5.1"}, {"w", "[2][2] s40.0"}}, {}};
    for (const char *offset : {"3", "60", "-66", "69"}) {
        wide.parts.push_back({"bitSelectBlock", {{"0", "a"}}, {{"bitSelectBitOffset", offset}}});
        wide.parts.push_back({"bitSelectBlock",
                              {{"0", "a"}},
                              {{"bitSelectBitOffset", offset}, {"bitSelectOutputType", "(typeSFixed 9 0)"}}});
    }
    wide.parts.push_back({"chooseBitsBlock",
                          {{"0", "a"}},
                          {{"chooseBitsBitOffsets", "(69 0 64 1 63)"}, {"chooseBitsOutputType", "(typeSFixed 5 0)"}}});
    wide.parts.push_back({"bitJoinReduceBlock", {{"0", "v"}}, {}});
    wide.parts.push_back({"bitJoinReduceBlock", {{"0", "w"}}, {}});
    wide.parts.push_back({"bitJoinReduceBlock", kTwo, {}});
    wide.parts.push_back(
        {"rawShiftBlock", {{"0", "b"}}, {{"rawShiftValue", "2"}, {"rawShiftMode", "rawShiftModeSpecialRight"}}});
    designs.push_back(std::move(wide));
    return designs;
}

std::vector<OracleDesign> choiceDesigns() {
    std::vector<OracleDesign> designs;
    const std::array<const char *, 4> types[] = {
        {"u1.0", "u1.0", "u1.0", "u1.0"},  {"u1.0", "s4.1", "u3.0", "s2.5"},    {"u2.0", "s4.0", "u4.0", "s4.1"},
        {"s2.0", "u8.-3", "u4.0", "s1.0"}, {"u3.0", "s33.30", "s64.0", "u1.9"}, {"u5.0", "u64.0", "s65.1", "s100.30"},
        {"u70.0", "s9.0", "s9.0", "s9.0"},
    };
    for (const auto &[select, a, b, c] : types) {
        OracleDesign design{fmt::format("choices by {} of {} {} {}", select, a, b, c),
                            {{"k", select}, {"l", "u1.0"}, {"a", a}, {"b", b}, {"c", c}},
                            {}};
        design.parts.push_back(
            {"muxBlock", {{"muxPortSelect", "k"}, {"0", "a"}, {"1", "b"}}, {}, {"primWireOut"}, true});
        design.parts.push_back(
            {"muxBlock", {{"muxPortSelect", "k"}, {"0", "c"}, {"1", "b"}, {"2", "a"}}, {}, {"primWireOut"}, true});
        const Texts cases{{"(selectPortkeyCtrl 0)", "k"},
                          {"(selectPortkeyData 0)", "a"},
                          {"(selectPortkeyCtrl 1)", "l"},
                          {"(selectPortkeyData 1)", "b"}};
        Texts withDefault = cases;
        withDefault.emplace_back("selectPortDefaultData", "c");
        const Texts relaxed{{"primRelaxBools", "true"}};
        design.parts.push_back({"selectBlock", cases, relaxed, {"primWireOut", "selectWireValid"}, true});
        design.parts.push_back({"selectBlock", withDefault, relaxed, {"primWireOut", "selectWireValid"}});
        designs.push_back(std::move(design));
    }
    const std::pair<const char *, const char *> shifted[] = {
        {"u1.0", "u1.0"},    {"s4.1", "u3.0"},  {"s8.0", "u4.0"},   {"u8.3", "u4.0"},
        {"s5.-2", "u4.0"},   {"s32.0", "u6.0"}, {"u64.0", "u7.0"},  {"s63.1", "u7.0"},
        {"s100.20", "u8.0"}, {"u65.0", "u3.0"}, {"s16.4", "u40.0"},
    };
    for (const auto &[type, shift] : shifted) {
        OracleDesign design{fmt::format("shifts of {} by {}", type, shift), {{"a", type}, {"s", shift}}, {}};
        for (const char *block : {"barrelLeftBlock", "barrelRightBlock"}) {
            design.parts.push_back({block, {{"0", "a"}, {"barrelPortShift", "s"}}, {}});
            for (const char *output : {"(typeSFixed 8 4)", "(typeUFixed 6 0)", "(typeSFixed 70 -3)"}) {
                design.parts.push_back({block, {{"0", "a"}, {"barrelPortShift", "s"}}, {{"barrelOutputType", output}}});
            }
        }
        if (type[0] == 'u') {
            design.parts.push_back({"barrelRightLzcBlock", {{"0", "a"}}, {}, {"primWireOut", "primWireAux"}});
        }
        designs.push_back(std::move(design));
    }
    for (const char *type : {"u1.0", "u3.0", "u8.0", "u64.0", "u70.0"}) {
        OracleDesign design{fmt::format("addresses of {}", type), {{"a", type}, {"k", "u1.0"}}, {}};
        for (const char *address : {"0", "1", "5"}) {
            design.parts.push_back({"decodeBlock",
                                    {{"decodePortAddr", "a"}, {"decodePortWren", "k"}},
                                    {{"decodeAddress", address}},
                                    {"decodeWireMatch", "decodeWireWren"}});
        }
        for (const char *data : {"(1)", "(5 -3 7)", "(0.5 -0.25 100.75 -128 3 9 11 1 2)"}) {
            design.parts.push_back({"lutBlock", {{"lutPortAddr", "a"}}, {{"lutData", data}}});
            design.parts.push_back(
                {"lutBlock", {{"lutPortAddr", "a"}}, {{"lutData", data}, {"lutTypeData", "(typeSFixed 4 1)"}}});
        }
        designs.push_back(std::move(design));
    }
    OracleDesign constants{"constants", {{"a", "u1.0"}}, {}};
    for (const char *type : {"(typeSFixed 4 1)", "(typeUFixed 3 0)", "(typeSFixed 1 0)", "(typeUFixed 5 -2)",
                             "(typeSFixed 80 3)", "(typeUFixed 64 0)"}) {
        for (const char *number : {"0", "1", "-1", "0.25", "0.75", "-0.25", "-0.75", "2.5", "1000", "-1000", "6"}) {
            constants.parts.push_back({"constBlock", {}, {{"constValue", number}, {"constType", type}}});
        }
    }
    constants.parts.push_back({"enableSrcBlock", {}, {}});
    constants.parts.push_back({"eccSrcBlock", {}, {}});
    designs.push_back(std::move(constants));
    return designs;
}

std::vector<OracleDesign> laneDesigns() {
    std::vector<OracleDesign> designs;
    const std::array<const char *, 3> types[] = {{"[2] s4.0", "s4.1", "[2] u3.0"},
                                                 {"[2][3] s8.0", "[3] u4.2", "[2][3] s4.0"},
                                                 {"[3] s40.0", "[3] s40.0", "u40.0"}};
    for (const auto &[a, b, c] : types) {
        OracleDesign design{fmt::format("lanes of {} {} {}", a, b, c), {{"a", a}, {"b", b}, {"c", c}}, {}};
        for (const char *block : {"addBlock", "subBlock", "multBlock", "minBlock", "magmaxBlock", "andBlock",
                                  "xorBlock", "bitJoinBlock", "cmpLtBlock", "cmpEqBlock", "dimBlock"}) {
            design.parts.push_back({block, kTwo, {}});
        }
        for (const char *block :
             {"addReduceBlock", "negBlock", "absBlock", "notBlock", "orReduceBlock", "reverseBlock"}) {
            design.parts.push_back({block, {{"0", "a"}}, {}});
        }
        designs.push_back(std::move(design));
    }
    for (const auto &[a, b] :
         {std::pair("c s4.0", "c s4.0"), {"c s16.8", "s9.1"}, {"u4.0", "c s33.3"}, {"c s64.0", "[2] c s3.0"}}) {
        OracleDesign design{fmt::format("parts of {} {}", a, b), {{"a", a}, {"b", b}, {"k", "u1.0"}}, {}};
        for (const char *block : {"addBlock", "subBlock", "multBlock", "cmpEqBlock", "cmpNeBlock"}) {
            design.parts.push_back({block, kTwo, {}});
        }
        design.parts.push_back({"multBlock", {{"0", "a"}, {"1", "b"}, {"2", "a"}}, {}});
        design.parts.push_back({"addsubfusedBlock", kTwo, {}, {"primWireOut", "primWireAux"}});
        design.parts.push_back({"complexConjugateBlock", {{"0", "b"}}, {}});
        design.parts.push_back({"negBlock", {{"0", "b"}}, {}});
        design.parts.push_back({"muxBlock", {{"muxPortSelect", "k"}, {"0", "a"}, {"1", "b"}}, {}});
        designs.push_back(std::move(design));
    }
    designs.push_back({"dot products",
                       {{"a", "[4] s8.1"}, {"b", "[4] u7.3"}, {"c", "s30.5"}},
                       {{"scalarProductBlock", kTwo, {}},
                        {"scalarProductBlock", {{"0", "a"}, {"1", "b"}, {"scalarProductPortChainin", "c"}}, {}}}});
    designs.push_back({"packs",
                       {{"a", "s8.1"}, {"b", "s8.1"}, {"c", "[2] c s8.1"}, {"d", "[3] s8.1"}},
                       {{"vpackBlock", kTwo, {}, {"vpackWireOut"}},
                        {"vconcatBlock", {{"0", "d"}, {"1", "d"}}, {}},
                        {"vunpackBlock", {{"vunpackPortIn", "c"}}, {}, {"0", "1"}},
                        {"cpackBlock", {{"cpackPortReal", "a"}, {"cpackPortImag", "b"}}, {}, {"cpackWireOut"}},
                        {"cunpackBlock", {{"cunpackPortIn", "c"}}, {}, {"cunpackWireReal", "cunpackWireImag"}}}});
    designs.push_back({"marks",
                       {{"a", "s8.1"}, {"v", "u1.0"}, {"n", "u8.0"}},
                       {{"terminalBlock", {{"0", "a"}}, {}, {"x", "y"}},
                        {"fanoutBlock", {{"0", "a"}}, {}, {"0", "1"}},
                        {"channelInBlock",
                         {{"portValid", "v"}, {"portChannel", "n"}, {"0", "a"}},
                         {},
                         {"wireValid", "wireChannel", "0"}},
                        {"channelOutBlock",
                         {{"portValid", "v"}, {"portChannel", "n"}, {"0", "a"}},
                         {},
                         {"wireValid", "wireChannel", "0"}},
                        {"pipeBlock", {{"0", "a"}}, {}},
                        {"foldingKernelBoundaryBlock", {{"0", "a"}}, {}},
                        {"unschedBlock", {{"0", "a"}}, {}, {"0"}},
                        {"boundaryBlock", {{"0", "a"}}, {}, {"0"}},
                        {"signalInBlock", {{"0", "a"}}, {}, {"0"}},
                        {"signalOutBlock", {{"0", "a"}}, {}, {"0"}}}});
    return designs;
}

std::vector<OracleDesign> stateDesigns() {
    std::vector<OracleDesign> designs;
    for (const char *type : {"u1.0", "s4.1", "u32.0", "s64.0", "u70.3", "[2] s5.0", "c s9.2"}) {
        OracleDesign design{fmt::format("memory of {}", type),
                            {{"a", type}, {"k", "u1.0"}, {"l", "u1.0"}, {"n", "u2.0"}, {"f", "u1.0"}},
                            {}};
        for (const char *length : {"0", "1", "2", "7"}) {
            design.parts.push_back({"delayBlock", {{"0", "a"}}, {{"delayLength", length}}});
        }
        const Texts enabled{{"0", "a"}, {"registerPortEnable", "k"}};
        design.parts.push_back({"registerBlock", {{"0", "a"}}, {}});
        design.parts.push_back({"registerBlock", enabled, {}});
        design.parts.push_back({"registerBlock", enabled, {{"registerInitValue", "1"}}});
        design.parts.push_back({"registerBlock", enabled, {{"registerInitValue", "-2.5"}}});
        if (std::string(type).find(' ') == std::string::npos) {
            design.parts.push_back({"demuxBlock",
                                    {{"demuxPortData", "a"}, {"portValid", "k"}, {"portChannel", "n"}},
                                    {{"demuxChannelCount", "3"}},
                                    {"0", "1", "2"}});
        }
        const Texts queue{{"fifoPortData", "a"}, {"fifoPortWriteEn", "k"}, {"fifoPortReadAck", "l"}};
        const std::vector<std::string> shown{"fifoWireValid", "fifoWireData", "fifoWireLow", "fifoWireHigh"};
        for (const char *depth : {"1", "2", "3", "8"}) {
            design.parts.push_back({"fifoBlock", queue, {{"fifoDepth", depth}}, shown, true});
        }
        Texts flushed = queue;
        flushed.emplace_back("fifoPortFlush", "f");
        const Texts thresholds{{"fifoDepth", "5"}, {"fifoLowThreshold", "1"}, {"fifoHighThreshold", "3"}};
        design.parts.push_back({"fifoBlock", flushed, thresholds, shown, true});
        design.parts.push_back({"fifoDelayBlock",
                                {{"fifoPortData", "a"}, {"portWrite", "k"}, {"portReady", "l"}},
                                {{"fifoDepth", "4"}},
                                {"fifoWireData"},
                                true});
        designs.push_back(std::move(design));
    }
    for (const char *type : {"u1.0", "s4.1", "s40.0", "u70.0"}) {
        OracleDesign design{fmt::format("synchronised {}", type), {{"a", type}, {"k", "u1.0"}}, {}};
        const Texts ports{{"syncRegisterPortIclkData", "a"}, {"syncRegisterPortIclkEnable", "k"}};
        const std::vector<std::string> shown{"syncRegisterWireIclkData", "syncRegisterWireOclkData",
                                             "syncRegisterWireOclkValid"};
        const auto numbers = testing::typeText(type);
        design.parts.push_back({"syncRegisterBlock", ports, {{"syncRegisterDataType", numbers}}, shown});
        design.parts.push_back(
            {"syncRegisterBlock", ports, {{"syncRegisterDataType", numbers}, {"syncRegisterInitValue", "1"}}, shown});
        designs.push_back(std::move(design));
    }
    OracleDesign counters{"counters", {{"e", "u1.0"}}, {}};
    for (const char *limit : {"1", "2", "7", "10", "64", "1000000007", "1099511627776"}) {
        for (const char *step : {"1", "3", "-1", "5"}) {
            for (const char *initial : {"0", "-1", "4"}) {
                const Texts params{{"counterLimit", limit}, {"counterStep", step}, {"counterInitial", initial}};
                counters.parts.push_back({"counterBlock", {{"portEnable", "e"}}, params});
                if (step[0] != '-') {
                    counters.parts.push_back({"sequenceBlock", {{"portEnable", "e"}}, params});
                }
            }
        }
    }
    counters.parts.push_back({"counterBlock", {}, {{"counterLimit", "5"}}});
    counters.parts.push_back({"counterBlock", {}, {{"counterLimit", "(vectorRollTag 3 5)"}, {"counterStep", "2"}}});
    designs.push_back(std::move(counters));
    // A limit below zero means nothing.
    for (const auto &[type, limit] : {std::pair("u1.0", "u1.0"),
                                      {"u4.0", "u4.0"},
                                      {"u16.0", "u9.0"},
                                      {"s9.0", "u8.0"},
                                      {"u64.0", "u64.0"},
                                      {"u70.0", "u66.0"},
                                      {"s6.2", "u5.1"}}) {
        designs.push_back(
            {fmt::format("loadable counters of {}", type),
             {{"l", "u1.0"}, {"v", type}, {"s", type}, {"m", limit}, {"e", "u1.0"}},
             {{"ldCounterBlock", {{"0", "l"}, {"1", "v"}, {"2", "s"}, {"3", "m"}, {"portEnable", "e"}}, {}},
              {"ldCounterBlock", {{"0", "l"}, {"1", "v"}, {"2", "s"}, {"3", "m"}}, {}}},
             {"m"}});
    }
    for (const char *type : {"u1.0", "u2.0", "u3.0"}) {
        OracleDesign design{fmt::format("loops to {}", type), {{"g", "u1.0"}, {"e", "u1.0"}, {"h", "u5.0"}}, {}};
        Texts ports{{"loopPortEnable", "e"}, {"loopPortGo", "g"}};
        std::vector<std::string> shown{"loopWireValid"};
        for (const char *level : {"0", "1", "2"}) {
            design.inputs.emplace_back(std::string("m") + level, type);
            ports.emplace_back(fmt::format("(loopPortLimit {})", level), std::string("m") + level);
            for (const char *wire : {"loopWireValue", "loopWireFirstIter", "loopWireLastIter"}) {
                shown.push_back(fmt::format("({} {})", wire, level));
            }
            design.parts.push_back({"loopBlock", ports, {}, shown});
            design.parts.push_back({"loopBlock", {ports.begin() + 1, ports.end()}, {}, shown});
        }
        designs.push_back(std::move(design));
    }
    return designs;
}

std::vector<OracleDesign> memoryDesigns() {
    const Texts inputs{{"a", "u2.0"}, {"b", "u3.0"},  {"x", "s8.0"}, {"y", "s8.0"}, {"z", "u16.0"},
                       {"n", "u4.0"}, {"q", "s70.0"}, {"v", "u1.0"}, {"w", "u1.0"}, {"r", "u1.0"}};
    const Texts first{{"dualMemPortAddr1", "a"}, {"dualMemPortData1", "x"}, {"dualMemPortWrite1En", "v"}};
    const auto with = [](Texts texts, const Texts &more) {
        texts.insert(texts.end(), more.begin(), more.end());
        return texts;
    };
    const Texts second{{"dualMemPortAddr2", "b"}, {"dualMemPortData2", "y"}, {"dualMemPortWrite2En", "w"}};
    const Texts wide{{"dualMemPortAddr2", "b"}, {"dualMemPortData2", "z"}, {"dualMemPortWrite2En", "w"}};
    const std::vector<std::string> one{"dualMemWireData1"};
    const std::vector<std::string> both{"dualMemWireData1", "dualMemWireData2"};
    const Texts four{{"dualMemData", "(1 -2 300 4)"}, {"dualMemTypeData1", "(typeSFixed 8 0)"}};
    const Texts halves{{"dualMemTypeData1", "(typeSFixed 16 0)"},
                       {"dualMemTypeData2", "(typeSFixed 8 0)"},
                       {"dualMemDepth1", "4"},
                       {"dualMemDepth2", "8"}};
    std::vector<OracleDesign> designs;
    designs.push_back(
        {"memories",
         inputs,
         {
             {"dualMemBlock", first, four, one},
             {"dualMemBlock", with(first, {{"dualMemPortRead1", "r"}}), four, one},
             {"dualMemBlock", first, {{"dualMemDepth1", "4"}, {"memUninit", "true"}}, one, true},
             {"dualMemBlock", first, {{"dualMemDepth1", "3"}}, one, true},
             {"dualMemBlock", with(first, second), {{"dualMemDepth1", "8"}, {"dualMemDepth2", "8"}}, both, true},
             {"dualMemBlock", with(first, second), with(four, {{"dualMemTypeData2", "(typeSFixed 8 0)"}}), both, true},
             {"dualMemBlock", with(first, {{"dualMemPortAddr2", "b"}, {"dualMemPortRead2", "r"}}),
              with(four, {{"dualMemTypeData2", "(typeSFixed 8 0)"}}), both, true},
             {"dualMemBlock", with(first, wide), {{"dualMemDepth1", "8"}, {"dualMemDepth2", "4"}}, both, true},
             {"dualMemBlock",
              {{"dualMemPortAddr1", "n"}, {"dualMemPortData1", "q"}, {"dualMemPortWrite1En", "v"}},
              {{"dualMemDepth1", "16"}},
              one},
             {"dualMemBlock",
              {{"dualMemPortAddr1", "a"}, {"dualMemPortAddr2", "b"}},
              with(halves, {{"dualMemData", "(4660 -2 300 4)"}}),
              both},
             {"dualMemBlock",
              {{"dualMemPortAddr1", "a"}, {"dualMemPortAddr2", "b"}},
              with(halves, {{"dualMemData", "(1 2 3 -4 5 6 7)"}, {"dualMemDataTypeIsData1", "false"}}),
              both},
             {"dualMemBlock",
              {{"dualMemPortAddr1", "a"}, {"dualMemPortAddr2", "b"}},
              with(halves, {{"dualMemAltPortData", "(1 2 3 -4 5 6 7 8)"}}),
              both},
             {"dualMemBlock",
              {{"dualMemPortAddr1", "n"}},
              {{"dualMemData", "(9 8 7 6 5)"}, {"dualMemTypeData1", "(typeUFixed 4 0)"}},
              one,
              true},
         }});
    return designs;
}

TEST_F(VerilogOracleTest, agreesOnArithmetic) { check("arithmetic", arithmeticDesigns()); }

TEST_F(VerilogOracleTest, agreesOnRoundingAndClipping) { check("casts", castDesigns()); }

TEST_F(VerilogOracleTest, agreesOnBits) { check("bits", bitDesigns()); }

TEST_F(VerilogOracleTest, agreesOnChoicesAndShifts) { check("choices", choiceDesigns()); }

TEST_F(VerilogOracleTest, agreesOnLanesAndParts) { check("lanes", laneDesigns()); }

TEST_F(VerilogOracleTest, agreesOnState) { check("state", stateDesigns()); }

TEST_F(VerilogOracleTest, agreesOnMemories) { check("memories", memoryDesigns()); }

/// Blocks that feed each other, and instances of models.
TEST_F(VerilogOracleTest, agreesOnWholeDesigns) {
    std::vector<Trial> trials;
    for (const char *name : {"fir16", "biquad", "mixer_pair", "matrix_vector", "select_lut"}) {
        trials.push_back(example(name));
    }
    check("whole", {}, std::move(trials));
}

/// Block types of the families on fixed point that no module here holds.
const std::map<std::string, std::string> &exempt() {
    static const std::map<std::string, std::string> table = {
        {"eccSinkBlock", "gives nothing"},
        {"enableSinkBlock", "gives nothing"},
        {"vsplitBlock", "joins wires of lanes only"},
        {"vselectorBlock", "joins wires of lanes only"},
        {"apackBlock", "joins wires of records only"},
        {"aunpackBlock", "joins wires of records only"},
        {"gotoBlock", "joins wires by tags only"},
        {"fromBlock", "joins wires by tags only"},
        {"sharedFifoBlock", "is a queue of a wider entry"},
        {"readAccessLUTBlock", "is a memory of one side without writes"},
    };
    return table;
}

TEST_F(VerilogOracleTest, knowsEveryBlockTypeOfTheFamilies) {
    // Those around every block.
    std::set<std::string> tried{"inputBlock", "outputBlock", "typePinBlock"};
    for (const auto designs :
         {arithmeticDesigns, castDesigns, bitDesigns, choiceDesigns, laneDesigns, stateDesigns, memoryDesigns}) {
        for (const OracleDesign &design : designs()) {
            for (const Part &part : design.parts) {
                tried.insert(part.block);
            }
        }
    }
    std::size_t rows = 0;
    for (const auto family : {wiringRows(), arithmeticRows(), steeringRows(), sequentialRows(), memoryRows()}) {
        for (const BlockRow &row : family) {
            const std::string name = row.type->text();
            EXPECT_EQ(test::hasVerilog(row.type->get_ptr()), exempt().count(name) == 0) << name;
            EXPECT_EQ(tried.count(name), 1 - exempt().count(name)) << name;
            ++rows;
        }
    }
    EXPECT_GT(rows, 90U);
}

} // namespace
} // namespace orvo::sim
