// Measures flattening: many instances of one model, instances of ever new models, and a signal that goes through deep
// hierarchy to many readers; the ends of latency constraints below a kernel with many instances, and many interface
// blocks behind one pack; and eliding tags in deep hierarchy, which comes before. Arguments are the largest number of
// blocks and, to run one of these alone, its name.
#include "measure.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/latencyconstraints.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

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

[[noreturn]] void fail(const char *text) {
    std::fprintf(stderr, "%s\n", text);
    std::exit(1);
}

Block &marker(Model &model, const char *name, const StaticString &type) {
    Block &block = *Block::create(model, name, type);
    const PureValueRef port0 = NumberValue::get(0, model.getContext());
    block.setParam(port0, *Wire::create(block, port0));
    return block;
}

/// Each of ever new kernels holds a model whose constraint starts and ends in one kernel further down. Counts these.
Figures constraints(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    const PureValueRef port0 = NumberValue::get(0, context.context());
    Model &lowest = *Model::create(design, "lowest");
    lowest.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    Block &from = marker(lowest, "from", A_SIGNAL_IN_BLOCK);
    Block &to = marker(lowest, "to", A_SIGNAL_OUT_BLOCK);
    Model &source = *Model::create(design, "source");
    Block &inner = *Block::create(source, "inner", A_MODEL_BLOCK);
    inner.setParam(A_MODEL_NODE, lowest);
    LatencyConstraintCreator(design)
        .from(from.getWire(port0), {&inner})
        .to(to.getPort(port0), {&inner})
        .lessEqual(3)
        .end();
    for (std::size_t i = 0; i < blocks; ++i) {
        Model &kernel = *Model::create(design, "kernel" + std::to_string(i));
        kernel.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
        Block::create(kernel, "call", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, source);
    }
    ::malloc_trim(0);
    Figures figures = measure([&] { flatten(design, "FlattenEverythingPass"); });
    figures.count = static_cast<double>(tupleVR(from.getParam(A_SCHEDULE_CONSTRAINT_WIRES))->size());
    if (figures.count < static_cast<double>(blocks)) {
        fail("constraints were lost");
    }
    return figures;
}

/// All inputs go through one block to interface blocks.
Figures interfaces(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    Model &sub = *Model::create(design, "sub");
    sub.setParam(A_SIMULINK_PATH, A_TRUE);
    sub.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    Block::create(*Model::create(design, "top"), "call", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, sub);
    Block &in = *Block::create(sub, "in", A_INPUT_BLOCK);
    Block &pack = *Block::create(sub, "pack", A_VCONCAT_BLOCK);
    Wire &packed = *Wire::create(pack, "q");
    for (std::size_t i = 0; i < blocks / 2; ++i) {
        const PureValueRef name = NumberValue::get(static_cast<long>(i), context.context());
        pack.setParam(name, *Wire::create(in, name));
        Block::create(sub, "signal" + std::to_string(i), A_SIGNAL_IN_BLOCK)
            ->setParam(NumberValue::get(0, context.context()), packed);
    }
    ::malloc_trim(0);
    Figures figures = measure([&] { flatten(design, "FlattenSimulinkPass"); });
    figures.count = static_cast<double>(blocks);
    return figures;
}

/// On each level tags that are read there, and one that is read two levels further down.
Figures tags(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    const auto sender = [](Model &model, const char *name, const StaticString &reach, const std::string &tag) {
        Block &made = *Block::create(model, name, A_GOTO_BLOCK);
        made.setParam(A_GOTO_TAG, StringValue::get(tag, model.getContext()));
        made.setParam(A_GOTO_TAG_TYPE, reach);
        made.setParam(A_GOTO_PORT_IN, *Wire::create(*Block::create(model, "const", A_CONST_BLOCK), "q"));
    };
    const auto receiver = [](Model &model, const char *name, const std::string &tag) {
        Block &made = *Block::create(model, name, A_FROM_BLOCK);
        made.setParam(A_GOTO_TAG, StringValue::get(tag, model.getContext()));
        Wire::create(made, A_FROM_WIRE_OUT);
    };
    std::vector<Model *> levels;
    for (std::size_t i = 0; i < blocks / 10; ++i) {
        Model &level = *Model::create(design, "level" + std::to_string(i));
        if (!levels.empty()) {
            Block::create(*levels.back(), "call", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, level);
        }
        levels.push_back(&level);
        sender(level, "local", A_GOTO_TAG_TYPE_LOCAL, "t");
        receiver(level, "localReader", "t");
        sender(level, "wide", A_GOTO_TAG_TYPE_GLOBAL, "w" + std::to_string(i));
        if (i >= 2) {
            receiver(level, "wideReader", "w" + std::to_string(i - 2));
        }
        sender(level, "scoped", A_GOTO_TAG_TYPE_SCOPED, "s");
        receiver(level, "scopedReader", "s");
    }
    levels.front()->setParam(
        PureTupleValue::get(A_GOTO_TAG_TYPE_SCOPED, StringValue::get("s", context.context()), context.context()),
        A_TRUE);
    ::malloc_trim(0);
    Figures figures = measure([&] { flatten(design, "ElideFromGotoPass"); });
    figures.count = static_cast<double>(blocks);
    for (const Model *level : levels) {
        for (const Block &block : *level) {
            if (block.type() == A_FROM_BLOCK.get_ptr()) {
                fail("a tag was not resolved");
            }
        }
    }
    return figures;
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    struct Case {
        const char *name;
        Figures (*run)(std::size_t);
    };
    const Case cases[] = {{"instances of one model", sharedModel}, {"models of one instance", ownModels},
                          {"levels within levels", deepSignal},    {"constraints", constraints},
                          {"interface blocks", interfaces},        {"tags", tags}};
    std::printf("%-24s %10s %12s %14s %14s\n", "design", "blocks", "us/block", "bytes/block", "peak/block");
    for (const Case &design : cases) {
        if (argc > 2 && std::string(argv[2]) != design.name) {
            continue;
        }
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
