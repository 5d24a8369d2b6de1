// Measures the inference of types on synthetic designs of growing size: full inference of flat and of hierarchical
// designs, single queries on a part of the design, and an edit with the query after it.
#include "measure.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

SyntheticOptions typedOptions(std::size_t blocks, std::size_t instances) {
    SyntheticOptions options;
    options.blocks = blocks;
    options.typed = true;
    options.instances = instances;
    return options;
}

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::exit(1);
    }
}

/// The first query after a change of everything. Counts the steps of blocks.
Figures fullInference(std::size_t blocks, std::size_t instances) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = makeSynthetic(design, typedOptions(blocks, instances));
    ::malloc_trim(0);
    GlobalTypePass types;
    types.bindEvents(design);
    Figures figures = measure([&] { require(static_cast<bool>(types.getType(last, {})), "a signal has no type"); });
    figures.count = static_cast<double>(types.statistics().steps);
    types.unbindEvents();
    return figures;
}

/// A thousand queries, each on what was never asked, of a pass with minimal sets. Counts the steps of the dearest one.
Figures minimalQueries(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = makeSynthetic(design, typedOptions(blocks, 0));
    ModelTreePass tree;
    tree.bindEvents(design);
    GlobalTypePass types;
    types.enableMinimalSet(&tree);
    types.bindEvents(design);
    std::vector<const Wire *> asked;
    std::size_t number = 0;
    for (const Block &block : last.getBlock().getModel()) {
        // Near a typed signal an answer is to be had; far from it the bound of the set ends the attempt.
        if (const Wire *wire = block.getWire(A_PRIM_WIRE_OUT); wire != nullptr && ++number <= 100) {
            asked.push_back(wire);
        }
    }
    double most = 0;
    Figures figures = measure([&] {
        for (const Wire *wire : asked) {
            const auto before = types.statistics().steps;
            types.getType(*wire, {});
            most = std::max(most, static_cast<double>(types.statistics().steps - before));
        }
    });
    figures.cpuSeconds /= static_cast<double>(asked.size());
    figures.count = most;
    require(types.statistics().fullEvaluations == 0, "a query needed the whole design");
    types.unbindEvents();
    tree.unbindEvents();
    return figures;
}

/// An edit of one block, then a query: what the edit's own invalidation orders.
Figures editAndQuery(std::size_t blocks, bool minimal) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = makeSynthetic(design, typedOptions(blocks, 0));
    ModelTreePass tree;
    tree.bindEvents(design);
    GlobalTypePass types;
    if (minimal) {
        types.enableMinimalSet(&tree);
    }
    types.bindEvents(design);
    const Wire *asked = nullptr;
    for (Block &block : last.getBlock().getModel()) {
        if (const Wire *wire = block.getWire(A_PRIM_WIRE_OUT); wire != nullptr) {
            asked = wire;
            break;
        }
    }
    require(static_cast<bool>(types.getType(*asked, {})), "a signal has no type");
    Block &edited = last.getBlock();
    Figures figures = measure([&] {
        edited.setParam(A_ADD_NO_GROWTH, nullptr);
        edited.setParam(A_ADD_NO_GROWTH, A_TRUE);
        require(static_cast<bool>(types.getType(*asked, {})), "a signal has no type");
    });
    types.unbindEvents();
    tree.unbindEvents();
    return figures;
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    std::printf("%10s %-14s %12s %12s %12s\n", "blocks", "design", "us/blk", "bytes/blk", "steps/blk");
    for (const bool flat : {true, false}) {
        std::vector<double> seconds;
        for (std::size_t blocks = most / 100; blocks <= most; blocks *= 10) {
            const Figures full = inChild([&] { return fullInference(blocks, flat ? 0 : blocks / 20); });
            const auto n = static_cast<double>(blocks);
            std::printf("%10zu %-14s %12.3f %12.0f %12.3f\n", blocks, flat ? "flat" : "20 a model",
                        full.cpuSeconds * 1e6 / n, full.heldBytes / n, full.count / n);
            seconds.push_back(full.cpuSeconds);
        }
        std::printf("growth exponent from %zu to %zu blocks: %.3f\n", most / 100, most,
                    exponent(seconds.front(), seconds.back(), 100));
    }
    const Figures query = inChild([&] { return minimalQueries(most); });
    std::printf("a query with minimal sets on %zu blocks: %.3f ms, at most %.0f steps of blocks\n", most,
                query.cpuSeconds * 1e3, query.count);
    for (const bool minimal : {false, true}) {
        const Figures edit = inChild([&] { return editAndQuery(most, minimal); });
        std::printf("an edit and a query on %zu blocks, %s: %.3f ms\n", most,
                    minimal ? "minimal sets" : "full inference", edit.cpuSeconds * 1e3);
    }
    return 0;
}
