// Measures the inference of domains beside that of types, on the same synthetic designs of growing size.
#include "measure.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/domaininfer.h>
#include <orvo/model.h>
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

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::exit(1);
    }
}

SyntheticOptions optionsOf(std::size_t blocks, std::size_t instances) {
    SyntheticOptions options;
    options.blocks = blocks;
    options.typed = true;
    options.instances = instances;
    return options;
}

Figures types(std::size_t blocks, std::size_t instances) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = makeSynthetic(design, optionsOf(blocks, instances));
    ::malloc_trim(0);
    GlobalTypePass pass;
    pass.bindEvents(design);
    const Figures figures =
        measure([&] { require(static_cast<bool>(pass.getType(last, {})), "a signal has no type"); });
    pass.unbindEvents();
    return figures;
}

/// From one edge, at the last wire, backward through the whole design.
Figures domains(std::size_t blocks, std::size_t instances) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = makeSynthetic(design, optionsOf(blocks, instances));
    Model &top = last.getBlock().getModel();
    const PureValueRef signpost =
        PureTupleValue::get(last.getBlock().getName(), A_WIRE_TAG, last.getName(), context.context());
    top.setParam(A_SYNTH_SCHEDULE_DOMAINS,
                 TupleValue::get(ValueRef(PureTupleValue::get(A_SCHEDULE_DOMAIN_END, A_SCHEDULE_DOMAIN_DEFAULT,
                                                              signpost, context.context())),
                                 context.context()));
    ::malloc_trim(0);
    DomainAnalysisInfo info;
    const Figures figures =
        measure([&] { info = DomainInference::inferDomains({&top}, DomainInference::DefaultInferenceModifier()); });
    for (const Block &block : top) {
        for (const Port &port : block.ports()) {
            const bool isReached = static_cast<bool>(info.getDomain(port, 0));
            require(isReached || block.type() == A_OUTPUT_BLOCK.get_ptr() || block.type() == A_TYPE_PIN_BLOCK.get_ptr(),
                    "a signal has no domain");
        }
    }
    return figures;
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    std::printf("%10s %-14s %12s %12s %12s %12s\n", "blocks", "design", "us/blk", "bytes/blk", "types us/blk", "ratio");
    for (const bool flat : {true, false}) {
        std::vector<double> seconds;
        for (std::size_t blocks = most / 100; blocks <= most; blocks *= 10) {
            const std::size_t instances = flat ? 0 : blocks / 20;
            const Figures ours = inChild([&] { return domains(blocks, instances); });
            const Figures full = inChild([&] { return types(blocks, instances); });
            const auto n = static_cast<double>(blocks);
            std::printf("%10zu %-14s %12.3f %12.0f %12.3f %12.3f\n", blocks, flat ? "flat" : "20 a model",
                        ours.cpuSeconds * 1e6 / n, ours.heldBytes / n, full.cpuSeconds * 1e6 / n,
                        ours.cpuSeconds / full.cpuSeconds);
            seconds.push_back(ours.cpuSeconds);
        }
        std::printf("growth exponent from %zu to %zu blocks: %.3f\n", most / 100, most,
                    exponent(seconds.front(), seconds.back(), 100));
    }
    return 0;
}
