// Measures the strict check of latency constraints on designs of growing size: one in which every block is an end of a
// constraint, and one without constraints.
#include "measure.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

constexpr std::size_t kBlocksAModel = 1000;

/// A marker with an entry for one constraint, which it starts or ends.
void addMarker(Model &model, const StaticString &type, const ValueRef &chain, const ValueRef &id) {
    Context *context = model.getContext();
    const bool starts = &type == &A_SIGNAL_IN_BLOCK;
    Block &block = *Block::create(model, "marker", type);
    Wire &wire = *Wire::create(block, A_PRIM_WIRE_OUT.get());
    block.setParam(A_PORT_VALID, wire);
    const ValueRef ids = TupleValue::get(id, context);
    const ValueRef none = TupleValue::get(context);
    const PureValueRef key = starts ? A_PRIM_WIRE_OUT : A_PORT_VALID;
    const ValueRef entry = TupleValue::get(key, chain, starts ? ids : none, starts ? none : ids, context);
    block.setParam(starts ? A_SCHEDULE_CONSTRAINT_WIRES : A_SCHEDULE_CONSTRAINT_PORTS, TupleValue::get(entry, context));
}

/// Pairs of markers in instances below one root, which has all records.
void makeConstrained(Design &design, std::size_t blocks) {
    Context *context = design.getContext();
    Model &top = *Model::create(design, "top");
    std::vector<ValueRef> records;
    const ValueRef latency = NumberValue::get(3, context);
    for (std::size_t made = 0; made < blocks; made += kBlocksAModel) {
        Model &model = *Model::create(design, "part" + std::to_string(made));
        Block &call = *Block::create(top, "call", A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, model);
        const ValueRef link = TupleValue::get(top.getName(), call.getName(), context);
        const ValueRef chain = TupleValue::get(link, context);
        for (std::size_t i = 0; i < kBlocksAModel / 2; ++i) {
            const ValueRef id = NumberValue::get(static_cast<long>(records.size()), context);
            addMarker(model, A_SIGNAL_IN_BLOCK, chain, id);
            addMarker(model, A_SIGNAL_OUT_BLOCK, chain, id);
            records.push_back(TupleValue::get(id, A_SYNTH_LATENCY_CONSTRAINT_LE, latency, context));
        }
    }
    top.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, TupleValue::get(std::move(records), context));
}

Figures checkOf(std::size_t blocks, bool constrained) {
    ContextMgr context;
    Design design(context.context());
    if (constrained) {
        makeConstrained(design, blocks);
    } else {
        SyntheticOptions options;
        options.blocks = blocks;
        makeSynthetic(design, options);
    }
    ::malloc_trim(0);
    return measure([&] {
        if (!OrvoUtils::requireConstraintsConsistentWithDesign(design)) {
            std::exit(1);
        }
    });
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    std::printf("%10s %-24s %12s\n", "blocks", "check of constraints", "us/blk");
    for (const bool constrained : {true, false}) {
        std::vector<double> seconds;
        for (std::size_t blocks = std::max(most / 100, kBlocksAModel); blocks <= most; blocks *= 10) {
            const Figures figures = inChild([&] { return checkOf(blocks, constrained); });
            std::printf("%10zu %-24s %12.3f\n", blocks, constrained ? "an end on every block" : "none",
                        figures.cpuSeconds * 1e6 / static_cast<double>(blocks));
            seconds.push_back(figures.cpuSeconds);
        }
        std::printf("growth exponent from %zu to %zu blocks: %.3f\n", most / 100, most,
                    exponent(seconds.front(), seconds.back(), 100));
    }
    return 0;
}
