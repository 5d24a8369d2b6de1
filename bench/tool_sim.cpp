// Measures the simulator on synthetic designs: compiling, against the inference of the same design, operations a
// second, and the time per cycle against simulators from elsewhere.
#include "measure.h"
#include "simpeers.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/simulator.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

Wire &make(Design &design, std::size_t blocks) {
    SyntheticOptions options;
    options.blocks = blocks;
    options.typed = true;
    return makeSynthetic(design, options);
}

Figures infer(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = make(design, blocks);
    GlobalTypePass types;
    return measure([&] { types.getType(last, {}); });
}

Figures compile(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = make(design, blocks);
    std::optional<sim::Simulator> simulator;
    return measure([&] { simulator.emplace(design, last.getBlock().getModel()); });
}

Figures run(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = make(design, blocks);
    sim::Simulator simulator(design, last.getBlock().getModel());
    const std::size_t cycles = 50000000 / blocks;
    Figures figures = measure([&] {
        for (std::size_t cycle = 0; cycle < cycles; ++cycle) {
            for (std::size_t i = 0; i < simulator.inputs().size(); ++i) {
                simulator.setInput(i, static_cast<std::int64_t>(cycle * 12345));
            }
            simulator.step();
        }
    });
    figures.count = static_cast<double>(simulator.operations() * cycles) / figures.cpuSeconds;
    return figures;
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    std::printf("%10s %14s %14s %16s\n", "blocks", "infer us/blk", "compile us/blk", "operations/s");
    std::vector<double> seconds;
    for (std::size_t blocks = most / 100; blocks <= most; blocks *= 10) {
        const Figures types = inChild([&] { return infer(blocks); });
        const Figures whole = inChild([&] { return compile(blocks); });
        const Figures speed = inChild([&] { return run(blocks); });
        const auto n = static_cast<double>(blocks);
        // Compiling infers the types itself; what is left is its own.
        const double own = whole.cpuSeconds - types.cpuSeconds;
        seconds.push_back(whole.cpuSeconds);
        std::printf("%10zu %14.3f %14.3f %16.0f\n", blocks, types.cpuSeconds * 1e6 / n, own * 1e6 / n, speed.count);
    }
    std::printf("growth exponent of compiling from %zu to %zu blocks: %.3f\n", most / 100, most,
                exponent(seconds.front(), seconds.back(), 100));
    return printPeers(most / 100) ? 0 : 1;
}
