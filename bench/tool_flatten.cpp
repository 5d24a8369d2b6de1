// Measures flattening: many instances of one model, instances of ever new models, and a signal that goes through deep
// hierarchy to many readers.
#include "measure.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace orvo;
using namespace orvo::bench;

void flatten(Design &design, const char *pass) {
    PassScheduler scheduler;
    scheduler.addPass(pass);
    scheduler.apply(design);
}

Model &topOf(Design &design) { return *design.getModel(StringValue::get("top", design.getContext())); }

/// Counts the blocks that the top model got.
Figures flattening(Design &design, const char *pass) {
    Model &top = topOf(design);
    ::malloc_trim(0);
    const std::size_t before = top.size();
    Figures figures = measure([&] { flatten(design, pass); });
    figures.count = static_cast<double>(top.size());
    if (top.size() <= before) {
        std::fprintf(stderr, "nothing was flattened\n");
        std::exit(1);
    }
    return figures;
}

Figures sharedModel(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    SyntheticOptions options;
    options.blocks = blocks;
    options.instances = blocks / 20;
    options.typed = true;
    makeSynthetic(design, options);
    return flattening(design, "FlattenEverythingPass");
}

Figures ownModels(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    SyntheticOptions options;
    options.blocks = blocks;
    options.models = blocks / 20;
    options.typed = true;
    makeSynthetic(design, options);
    return flattening(design, "FlattenEverythingPass");
}

/// Levels within levels, each with a block that reads the signal from the outermost one; half as many readers outside
/// read what comes out of the innermost.
Figures deepSignal(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    const PureValueRef port0 = NumberValue::get(0, context.context());
    Model *below = nullptr;
    for (std::size_t i = 0; i <= blocks / 2; ++i) {
        const bool isTop = i == blocks / 2;
        Model &level = *Model::create(design, isTop ? std::string("top") : "level" + std::to_string(i));
        Wire *from = Wire::create(*Block::create(level, "in", isTop ? A_CONST_BLOCK : A_INPUT_BLOCK), port0);
        Block &operation = *Block::create(level, "operation", A_NEG_BLOCK);
        operation.setParam(port0, *from);
        Wire *result = Wire::create(operation, port0);
        if (below != nullptr) {
            Block &inner = *Block::create(level, "inner", A_MODEL_BLOCK);
            inner.setParam(A_MODEL_NODE, *below);
            inner.setParam(port0, *from);
            result = Wire::create(inner, port0);
        }
        if (isTop) {
            level.setParam(A_MODEL_TO_BE_FLATTENED, A_TRUE);
            for (std::size_t reader = 0; reader < blocks / 2; ++reader) {
                Block::create(level, "reader" + std::to_string(reader), A_NEG_BLOCK)->setParam(port0, *result);
            }
        } else {
            Block::create(level, "out", A_OUTPUT_BLOCK)->setParam(port0, *result);
        }
        below = &level;
    }
    return flattening(design, "FlattenExplicitPass");
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    struct Case {
        const char *name;
        Figures (*run)(std::size_t);
    };
    const Case cases[] = {{"instances of one model", sharedModel},
                          {"models of one instance", ownModels},
                          {"levels within levels", deepSignal}};
    std::printf("%-24s %10s %12s %14s %14s\n", "design", "blocks", "us/block", "bytes/block", "peak/block");
    for (const Case &design : cases) {
        double first = 0;
        double last = 0;
        for (std::size_t blocks = most / 100; blocks <= most; blocks *= 10) {
            const Figures figures = inChild([&] { return design.run(blocks); });
            last = figures.cpuSeconds / figures.count;
            first = blocks == most / 100 ? last : first;
            std::printf("%-24s %10.0f %12.3f %14.0f %14.0f\n", design.name, figures.count, last * 1e6,
                        figures.heldBytes / figures.count, figures.peakBytes / figures.count);
        }
        std::printf("growth exponent from %zu to %zu blocks: %.3f\n", most / 100, most,
                    exponent(first, last * 100, 100));
    }
    return 0;
}
