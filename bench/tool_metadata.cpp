// Measures what the transfer of metadata adds to a pass that puts a new block into the place of each block of a design:
// with and without the listener, for designs in which no block, some blocks or all blocks carry metadata.
#include "measure.h"
#include "synthetic.h"

#include <orvo/annotation.h>
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
#include <memory>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

/// Puts a new block with the same parameters, but for the metadata, into the place of each block.
class RewriteEverythingPass final : public ModelPass {
    ORVO_PASS(RewriteEverythingPass)
  public:
    bool mListens = true;
    std::size_t mRewritten = 0;
    bool useMetadataTransferListener() const override { return mListens; }
    using ModelPass::apply;
    void apply(ModelPassContext &context) override {
        std::vector<Block *> blocks;
        for (Block &block : context.getModel()) {
            if (block.getWire(A_PRIM_WIRE_OUT) != nullptr) {
                blocks.push_back(&block);
            }
        }
        for (Block *block : blocks) {
            rewrite(*block);
        }
        mRewritten += blocks.size();
    }

  private:
    static void rewrite(Block &block) {
        Context *context = block.getContext();
        Block &made = *Block::create(block.getModel(), PureTupleValue::get(block.getName(), A_ADD_BLOCK, context));
        for (auto param : Params(block)) {
            if (!(param.first == A_METADATA)) {
                made.setParam(param.first, param.second);
            }
        }
        block.getWire(A_PRIM_WIRE_OUT)->replace(*Wire::create(made, A_PRIM_WIRE_OUT));
        delete &block;
    }
};

ORVO_DEFINE_PASS(RewriteEverythingPass, "Puts a new block into the place of each block.")

/// Every `spacing`th block gets an entry of its own; 0 for none.
void annotate(Model &model, std::size_t spacing) {
    std::size_t number = 0;
    for (Block &block : model) {
        if (spacing != 0 && ++number % spacing == 0) {
            MetadataManipulator(block).append(A_COMMENT_TAG,
                                              NumberValue::get(static_cast<long>(number), model.getContext()));
        }
    }
}

std::size_t entriesIn(const Model &model) {
    std::size_t entries = 0;
    for (const Block &block : model) {
        const PureTupleValueRef metadata = pureTupleVR(block.getParam(A_METADATA));
        entries += metadata ? metadata->size() : 0;
    }
    return entries;
}

Figures rewriting(std::size_t blocks, std::size_t spacing, bool listens) {
    ContextMgr context;
    Design design(context.context());
    SyntheticOptions options;
    options.blocks = blocks;
    options.typed = true;
    Model &model = makeSynthetic(design, options).getBlock().getModel();
    annotate(model, spacing);
    const std::size_t before = entriesIn(model);
    ::malloc_trim(0);
    const std::unique_ptr<Pass> owned(RewriteEverythingPass::create());
    auto &pass = static_cast<RewriteEverythingPass &>(*owned);
    pass.mListens = listens;
    const PassContext::PassMap passes;
    const PassContext::ParamsMap params;
    PassContext run(design, passes, params, nullptr);
    Figures figures = measure([&] { owned->apply(run); });
    figures.count = static_cast<double>(pass.mRewritten);
    if (pass.mRewritten < blocks || (listens && entriesIn(model) != before)) {
        std::fprintf(stderr, "%zu blocks rewritten, %zu entries of %zu\n", pass.mRewritten, entriesIn(model), before);
        std::exit(1);
    }
    return figures;
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    std::printf("%10s %-10s %12s %12s %10s %14s\n", "blocks", "metadata", "without, us", "with, us", "cost, %",
                "peak bytes/blk");
    for (const std::size_t spacing : {0U, 100U, 10U, 1U}) {
        std::vector<double> seconds;
        for (std::size_t blocks = most / 100; blocks <= most; blocks *= 10) {
            const Figures without = inChild([&] { return rewriting(blocks, spacing, false); });
            const Figures with = inChild([&] { return rewriting(blocks, spacing, true); });
            const auto n = static_cast<double>(blocks);
            char share[32];
            std::snprintf(share, sizeof share, spacing == 0 ? "none" : "1 in %zu", spacing);
            std::printf("%10zu %-10s %12.3f %12.3f %10.1f %14.0f\n", blocks, share, without.cpuSeconds * 1e6 / n,
                        with.cpuSeconds * 1e6 / n, (with.cpuSeconds / without.cpuSeconds - 1) * 100,
                        (with.peakBytes - without.peakBytes) / n);
            seconds.push_back(with.cpuSeconds);
        }
        std::printf("growth exponent from %zu to %zu blocks: %.3f\n", most / 100, most,
                    exponent(seconds.front(), seconds.back(), 100));
    }
    return 0;
}
