// Measures taking vectors, complex numbers and records apart, with the inference of types before and behind it; and
// drawing the wires that From and Goto blocks stand for through a hierarchy.
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
#include <orvo/xmlservices.h>

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

/// What comes apart: signals of so many elements, by a pass.
struct Kind {
    const char *name;
    const char *pass;
    std::size_t elements;
    SyntheticOptions options;
};

std::vector<Kind> kinds() {
    SyntheticOptions vectors;
    vectors.typed = true;
    SyntheticOptions numbers = vectors;
    SyntheticOptions records = vectors;
    vectors.lanes = 16;
    numbers.complex = true;
    records.members = 16;
    return {{"vectors of 16", "UnrollVectorPass", 16, vectors},
            {"complex numbers", "UnrollComplexPass", 2, numbers},
            {"records of 16", "UnrollAggregatePass", 16, records}};
}

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

SyntheticOptions options(const Kind &kind, std::size_t wires) {
    SyntheticOptions made = kind.options;
    made.blocks = wires / kind.elements;
    return made;
}

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::exit(1);
    }
}

Figures typesBefore(const Kind &kind, std::size_t wires) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = makeSynthetic(design, options(kind, wires));
    ::malloc_trim(0);
    return measure([&] { inferTypes(design, last); });
}

/// Holds what is beside the blocks that came apart, which are gone.
Figures unrolling(const Kind &kind, std::size_t wires) {
    ContextMgr context;
    Design design(context.context());
    Figures before = measure([&] { makeSynthetic(design, options(kind, wires)); });
    ::malloc_trim(0);
    Figures figures = measure([&] { run(design, kind.pass); });
    figures.count = static_cast<double>(design.begin()->size());
    figures.heldBytes += before.heldBytes;
    require(figures.count >= static_cast<double>(wires), "nothing was taken apart");
    return figures;
}

/// What a design takes that is loaded where nothing else was before.
Figures loaded(const std::function<void(Design &)> &make) {
    const std::string path = "/tmp/tool_unroll." + std::to_string(::getpid()) + ".xml";
    inChild([&] {
        ContextMgr context;
        Design design(context.context());
        make(design);
        std::ofstream file(path);
        XMLServices().toXML(file, design);
        return Figures();
    });
    ContextMgr context;
    Design design(context.context());
    Figures figures = measure(
        [&] {
            std::ifstream file(path);
            XMLServices().fromXML(file, design, XMLServices::defaultErrorFunc);
        },
        [] { ::malloc_trim(0); });
    figures.count = static_cast<double>(design.begin()->size());
    std::remove(path.c_str());
    return figures;
}

/// The result with its elements joined directly.
Figures joined(const Kind &kind, std::size_t wires) {
    return loaded([&](Design &design) {
        makeSynthetic(design, options(kind, wires));
        run(design, kind.pass);
        run(design, "ElideUnpackPass");
    });
}

/// A design of as many plain blocks.
Figures plain(const Kind &kind, std::size_t wires) {
    return loaded([&](Design &design) {
        SyntheticOptions made = kind.options;
        made.blocks = wires;
        made.lanes = 1;
        made.complex = false;
        made.members = std::min(made.members, 1);
        makeSynthetic(design, made);
    });
}

Figures typesBehind(const Kind &kind, std::size_t wires) {
    ContextMgr context;
    Design design(context.context());
    makeSynthetic(design, options(kind, wires));
    run(design, kind.pass);
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
    double first = 0;
    double last = 0;
    for (const Kind &kind : kinds()) {
        std::printf("%s\n%10s %14s %14s %14s %12s %12s %12s\n", kind.name, "wires", "us/wire", "with types",
                    "types before", "bytes/block", "joined", "of a plain");
        for (std::size_t wires = most / 100; wires <= most; wires *= 10) {
            const auto n = static_cast<double>(wires);
            const Figures scalar = inChild([&] { return plain(kind, wires); });
            const Figures before = inChild([&] { return typesBefore(kind, wires); });
            const Figures behind = inChild([&] { return typesBehind(kind, wires); });
            const Figures direct = inChild([&] { return joined(kind, wires); });
            const Figures figures = inChild([&] { return unrolling(kind, wires); });
            last = figures.cpuSeconds - before.cpuSeconds;
            first = wires == most / 100 ? last : first;
            std::printf("%10zu %14.3f %14.3f %14.3f %12.0f %12.0f %12.0f\n", wires, last * 1e6 / n,
                        (figures.cpuSeconds + behind.cpuSeconds) * 1e6 / n, before.cpuSeconds * 1e6 / n,
                        figures.heldBytes / figures.count, direct.heldBytes / direct.count,
                        scalar.heldBytes / scalar.count);
        }
        std::printf("growth exponent from %zu to %zu wires: %.3f\n", most / 100, most, exponent(first, last, 100));
    }
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
