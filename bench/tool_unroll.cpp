// Measures taking vectors apart: blocks of 16 lanes each, with the inference of types before and behind it; and drawing
// the wires that From and Goto blocks stand for through a hierarchy.
#include "measure.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

constexpr int kLanes = 16;

void run(Design &design, const char *pass) {
    PassScheduler scheduler;
    scheduler.addPass(pass);
    scheduler.apply(design);
}

void inferTypes(Design &design, const Wire &last) {
    GlobalTypePass types;
    types.bindEvents(design);
    if (!types.getType(last, {})) {
        std::fprintf(stderr, "a signal has no type\n");
        std::exit(1);
    }
    types.unbindEvents();
}

SyntheticOptions options(std::size_t blocks, int lanes) {
    SyntheticOptions made;
    made.blocks = blocks;
    made.typed = true;
    made.lanes = lanes;
    return made;
}

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::exit(1);
    }
}

/// What the loaded design takes by the blocks that it has.
Figures scalarDesign(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    Figures figures = measure([&] { makeSynthetic(design, options(blocks, 1)); });
    figures.count = static_cast<double>(blocks);
    return figures;
}

Figures typesBefore(std::size_t lanes) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = makeSynthetic(design, options(lanes / kLanes, kLanes));
    ::malloc_trim(0);
    return measure([&] { inferTypes(design, last); });
}

/// Holds what is beside the vectors' own blocks, which are gone.
Figures unrolling(std::size_t lanes) {
    ContextMgr context;
    Design design(context.context());
    Figures before = measure([&] { makeSynthetic(design, options(lanes / kLanes, kLanes)); });
    ::malloc_trim(0);
    Figures figures = measure([&] { run(design, "UnrollVectorPass"); });
    figures.count = static_cast<double>(design.begin()->size());
    figures.heldBytes += before.heldBytes;
    require(figures.count >= static_cast<double>(lanes), "nothing was taken apart");
    return figures;
}

Figures typesBehind(std::size_t lanes) {
    ContextMgr context;
    Design design(context.context());
    makeSynthetic(design, options(lanes / kLanes, kLanes));
    run(design, "UnrollVectorPass");
    ::malloc_trim(0);
    const Block &output = *design.begin()->getOutputBlock();
    return measure([&] { inferTypes(design, *output.port_begin()->peekWire()); });
}

/// Models of 10 blocks each, in levels of ten; a sender in each, whose tag a receiver in the model after it reads.
Figures routing(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    const PureValueRef port0 = NumberValue::get(0, context.context());
    const auto named = [&](const char *stem, std::size_t number) { return stem + std::to_string(number); };
    const std::size_t models = blocks / 10;
    std::vector<Model *> all;
    for (std::size_t i = 0; i < models; ++i) {
        Model &model = *Model::create(design, named("model", i));
        if (i != 0) {
            Block::create(*all[(i - 1) / 8], named("call", i), A_MODEL_BLOCK)->setParam(A_MODEL_NODE, model);
        }
        Block &source = *Block::create(model, "source", A_CONST_BLOCK);
        Block &sender = *Block::create(model, "goto", A_GOTO_BLOCK);
        sender.setParam(A_GOTO_TAG, StringValue::get(named("tag", i), context.context()));
        sender.setParam(A_GOTO_TAG_TYPE, A_GOTO_TAG_TYPE_GLOBAL);
        sender.setParam(A_GOTO_PORT_IN, *Wire::create(source, A_PRIM_WIRE_OUT));
        const std::size_t other = i == 0 ? models - 1 : i - 1;
        Block &receiver = *Block::create(model, "from", A_FROM_BLOCK);
        receiver.setParam(A_GOTO_TAG, StringValue::get(named("tag", other), context.context()));
        Wire *wire = Wire::create(receiver, A_FROM_WIRE_OUT);
        for (int reader = 0; reader < 6; ++reader) {
            Block &made = *Block::create(model, "reader" + std::to_string(reader), A_NEG_BLOCK);
            made.setParam(port0, *wire);
            wire = Wire::create(made, A_PRIM_WIRE_OUT);
        }
        all.push_back(&model);
    }
    ::malloc_trim(0);
    Figures figures = measure([&] { run(design, "ElideFromGotoPass"); });
    figures.count = static_cast<double>(models);
    require(all[0]->getBlock(StringValue::get("from", context.context())) == nullptr, "a receiver was left");
    return figures;
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    std::printf("%10s %14s %14s %14s %12s %12s\n", "lanes", "us/lane", "with types", "types before", "bytes/block",
                "of a loaded");
    double first = 0;
    double last = 0;
    for (std::size_t lanes = most / 100; lanes <= most; lanes *= 10) {
        const auto n = static_cast<double>(lanes);
        const Figures loaded = inChild([&] { return scalarDesign(lanes); });
        const Figures before = inChild([&] { return typesBefore(lanes); });
        const Figures behind = inChild([&] { return typesBehind(lanes); });
        const Figures figures = inChild([&] { return unrolling(lanes); });
        last = figures.cpuSeconds - before.cpuSeconds;
        first = lanes == most / 100 ? last : first;
        std::printf("%10zu %14.3f %14.3f %14.3f %12.0f %12.0f\n", lanes, last * 1e6 / n,
                    (figures.cpuSeconds + behind.cpuSeconds) * 1e6 / n, before.cpuSeconds * 1e6 / n,
                    figures.heldBytes / figures.count, loaded.heldBytes / loaded.count);
    }
    std::printf("growth exponent from %zu to %zu lanes: %.3f\n", most / 100, most, exponent(first, last, 100));
    std::printf("%10s %14s %14s\n", "blocks", "us/block", "us/tag");
    for (std::size_t blocks = most / 100; blocks <= most; blocks *= 10) {
        const Figures figures = inChild([&] { return routing(blocks); });
        last = figures.cpuSeconds;
        first = blocks == most / 100 ? last : first;
        std::printf("%10zu %14.3f %14.3f\n", blocks, last * 1e6 / static_cast<double>(blocks),
                    last * 1e6 / figures.count);
    }
    std::printf("growth exponent from %zu to %zu blocks of senders and receivers: %.3f\n", most / 100, most,
                exponent(first, last, 100));
    return 0;
}
