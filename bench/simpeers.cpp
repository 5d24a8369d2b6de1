// Each simulator runs as a program by itself, fed with the same samples; what it costs is the processor time of a long
// run less that of a short one.
#include "simpeers.h"

#include "measure.h"
#include "peers.h"
#include "support/verilog.h"
#include "synthetic.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/simulator.h>

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvo::bench {

namespace {

namespace fs = std::filesystem;

/// What an input is in a cycle: the cycle's number times this for the first, and more for each further one.
std::int64_t strideOf(std::size_t input) { return 12345 + 2468 * static_cast<std::int64_t>(input); }
/// Cycles whose outputs are compared.
constexpr std::size_t kCompared = 100;
/// Processor time that a measurement lasts at least.
constexpr double kLeastSeconds = 0.5;

/// What a simulator took, and the sum of the outputs of the compared cycles.
struct Peer {
    const char *name;
    double compileSeconds;
    double secondsPerCycle;
    std::string sum;
};

/// Time per cycle: what a run of more and more cycles takes beyond one of none, once it lasts.
std::optional<double> secondsPerCycle(const std::function<std::optional<double>(std::size_t)> &runCycles) {
    for (std::size_t cycles = 16;; cycles *= 4) {
        const std::optional<double> none = runCycles(0);
        const std::optional<double> many = runCycles(cycles);
        if (!none || !many) {
            return std::nullopt;
        }
        if (*many - *none >= kLeastSeconds) {
            return (*many - *none) / static_cast<double>(cycles);
        }
    }
}

Peer runOwn(const Design &design, const Model &top) {
    const double began = cpuNow();
    sim::Simulator simulator(design, top);
    Peer peer{"orvo", cpuNow() - began, 0, ""};
    std::int64_t sum = 0;
    const auto runCycles = [&](std::size_t cycles) -> std::optional<double> {
        const double from = cpuNow();
        for (std::int64_t cycle = 0; cycle < static_cast<std::int64_t>(cycles); ++cycle) {
            for (std::size_t i = 0; i < simulator.inputs().size(); ++i) {
                simulator.setInput(i, cycle * strideOf(i));
            }
            simulator.step();
            for (std::size_t i = 0; i < simulator.outputs().size(); ++i) {
                sum += simulator.outputInteger(i);
            }
        }
        return cpuNow() - from;
    };
    runCycles(kCompared);
    peer.sum = std::to_string(sum);
    peer.secondsPerCycle = *secondsPerCycle(runCycles);
    return peer;
}

std::string readLine(const fs::path &path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

/// Compiles by one command and runs by another, which takes the number of cycles at its end and prints the sum.
std::optional<Peer> runTool(const char *name, const fs::path &folder, const std::string &compile,
                            const std::string &run) {
    const std::string inFolder = fmt::format("cd '{}' && ", folder.string());
    const auto running = [&](std::size_t count) { return timed(fmt::format("{}{}{} >sum.txt", inFolder, run, count)); };
    const std::optional<double> compiled = timed(inFolder + compile + " >compile.log 2>&1");
    if (!compiled) {
        std::printf("%-16s fails to compile: %s\n", name, readLine(folder / "compile.log").c_str());
        return std::nullopt;
    }
    running(kCompared);
    const std::string sum = readLine(folder / "sum.txt");
    const std::optional<double> each = secondsPerCycle(running);
    if (!each) {
        std::printf("%-16s fails to run\n", name);
        return std::nullopt;
    }
    return Peer{name, *compiled, *each, sum};
}

/// A bench that sums up the outputs and takes the number of cycles as an argument.
std::optional<Peer> runIcarus(const test::VerilogModule &module, const fs::path &folder) {
    std::string wires;
    std::string ports = ".clk(clk)";
    std::string feeds;
    std::string sum = "sum";
    for (std::size_t i = 0; i < module.inputs.size(); ++i) {
        const test::VerilogPort &port = module.inputs[i];
        wires += fmt::format("    reg signed [{}:0] {};\n", port.width - 1, port.net);
        ports += fmt::format(", .{0}({0})", port.net);
        feeds += fmt::format("            {} = cycle * {};\n", port.net, strideOf(i));
    }
    for (const test::VerilogPort &port : module.outputs) {
        wires += fmt::format("    wire signed [{}:0] {};\n", port.width - 1, port.net);
        ports += fmt::format(", .{0}({0})", port.net);
        sum += " + " + port.net;
    }
    std::ofstream(folder / "bench.v")
        << "module bench;\n    reg clk = 0;\n    reg signed [63:0] cycle, cycles, sum = 0;\n"
        << wires << "    netlist at(" << ports << ");\n    initial begin\n"
        << "        if (!$value$plusargs(\"cycles=%d\", cycles)) cycles = 0;\n"
        << "        for (cycle = 0; cycle < cycles; cycle = cycle + 1) begin\n"
        << feeds << "            #1 sum = " << sum << ";\n            clk = 1;\n            #1 clk = 0;\n"
        << "        end\n        $display(\"%0d\", sum);\n    end\nendmodule\n";
    return runTool("Icarus Verilog", folder, "iverilog -g2012 -o bench.vvp netlist.v bench.v",
                   "vvp -n bench.vvp +cycles=");
}

/// The same as a program in C++ around what is compiled from the netlist.
std::optional<Peer> runVerilator(const test::VerilogModule &module, const fs::path &folder) {
    std::string feeds;
    std::string sums;
    for (std::size_t i = 0; i < module.inputs.size(); ++i) {
        const test::VerilogPort &port = module.inputs[i];
        feeds += fmt::format("        top.{} = static_cast<std::uint64_t>(cycle * {}) & {};\n", port.net, strideOf(i),
                             (std::uint64_t{1} << port.width) - 1);
    }
    for (const test::VerilogPort &port : module.outputs) {
        sums += fmt::format("        sum += extended(top.{}, {});\n", port.net, port.width);
    }
    std::ofstream(folder / "bench.cpp")
        << "#include \"Vnetlist.h\"\n#include <cstdint>\n#include <cstdio>\n#include <cstdlib>\n"
        << "static std::int64_t extended(std::uint64_t bits, int width) {\n"
        << "    return static_cast<std::int64_t>(bits << (64 - width)) >> (64 - width);\n}\n"
        << "int main(int, char **argv) {\n    Vnetlist top;\n    std::int64_t sum = 0;\n"
        << "    for (std::int64_t cycle = 0; cycle < std::atoll(argv[1]); ++cycle) {\n"
        << feeds << "        top.clk = 0;\n        top.eval();\n"
        << sums << "        top.clk = 1;\n        top.eval();\n    }\n"
        << "    std::printf(\"%lld\\n\", static_cast<long long>(sum));\n}\n";
    return runTool("Verilator", folder,
                   "verilator --cc --exe --build -O3 -CFLAGS -O3 -Wno-fatal -Wno-lint --top-module netlist netlist.v "
                   "bench.cpp",
                   "./obj_dir/Vnetlist ");
}

} // namespace

bool printPeers(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    const Model &top = makePipeline(design, blocks);
    const test::VerilogModule module = test::verilogModule(design, top, "netlist");
    const Scratch scratch;
    std::ofstream(scratch.path() / "netlist.v") << module.text;

    std::printf("%-16s %12s %14s %10s   of %zu blocks\n", "simulator", "compile s", "us/cycle", "ratio", blocks);
    std::vector<Peer> peers{runOwn(design, top)};
    const auto add = [&](const char *name, const char *tool, auto run) {
        if (!isInstalled(tool)) {
            std::printf("%-16s is not installed: skipped\n", name);
        } else if (std::optional<Peer> peer = run(module, scratch.path())) {
            peers.push_back(std::move(*peer));
        }
    };
    add("Icarus Verilog", "vvp", runIcarus);
    add("Verilator", "verilator", runVerilator);
    bool isSame = true;
    for (const Peer &peer : peers) {
        std::printf("%-16s %12.3f %14.2f %10.2f\n", peer.name, peer.compileSeconds, peer.secondsPerCycle * 1e6,
                    peer.secondsPerCycle / peers[0].secondsPerCycle);
        if (peer.sum != peers[0].sum) {
            std::printf("%-16s computes other outputs: %s, not %s\n", peer.name, peer.sum.c_str(),
                        peers[0].sum.c_str());
            isSame = false;
        }
    }
    return isSame;
}

} // namespace orvo::bench
