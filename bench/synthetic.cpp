// The generator of synthetic designs.
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace orvo::bench {

namespace {

/// The generator of Steele, Lea and Flood, "Fast splittable pseudorandom number generators" (2014).
class Random {
  public:
    explicit Random(std::uint64_t seed) : mState(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (mState += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(next() % bound); }

  private:
    std::uint64_t mState;
};

std::string numbered(const char *stem, std::size_t number) {
    char text[32];
    std::snprintf(text, sizeof text, "%s%07zu", stem, number);
    return text;
}

void fillModel(Model &model, std::size_t blocks, const SyntheticOptions &options, Random &random) {
    Context *context = model.getContext();
    const PureValueRef port0 = NumberValue::get(0, context);
    const PureValueRef port1 = NumberValue::get(1, context);
    const StaticString *types[] = {&A_ADD_BLOCK, &A_SUB_BLOCK, &A_MULT_BLOCK, &A_AND_BLOCK};
    Block *input = Block::create(model, "in");
    input->setParam(A_BLOCK_TYPE, A_INPUT_BLOCK);
    std::vector<Wire *> wires{Wire::create(*input, port0)};
    for (std::size_t i = 0; i < blocks; ++i) {
        Block *block = Block::create(model, numbered("block", i));
        block->setParam(A_BLOCK_TYPE, *types[random.below(4)]);
        const std::size_t reach = std::min(options.reach, wires.size());
        block->setParam(port0, *wires[wires.size() - 1 - random.below(reach)]);
        block->setParam(port1, *wires[wires.size() - 1 - random.below(reach)]);
        block->setParam(A_ADD_NO_GROWTH, random.below(2) == 0 ? A_TRUE : A_FALSE);
        Wire *wire = Wire::create(*block, A_PRIM_WIRE_OUT);
        // What lives hangs on one chain; dead blocks read it and are read by nobody that lives.
        if (!options.halfDead || i % 2 == 0) {
            wires.push_back(wire);
        }
    }
    Block *output = Block::create(model, "out");
    output->setParam(A_BLOCK_TYPE, A_OUTPUT_BLOCK);
    for (std::size_t i = 0; i < wires.size(); ++i) {
        if (wires[i]->port_size() == 0 || i + 1 == wires.size()) {
            output->setParam(NumberValue::get(static_cast<long>(i), context), *wires[i]);
        }
    }
}

} // namespace

void makeSynthetic(Design &design, const SyntheticOptions &options) {
    Random random(options.seed);
    Model &top = *Model::create(design, "top");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    const std::size_t share = options.blocks / (options.models + 1);
    for (std::size_t i = 0; i < options.models; ++i) {
        Model &model = *Model::create(design, numbered("model", i));
        fillModel(model, share, options, random);
        Block *instance = Block::create(top, numbered("instance", i));
        instance->setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
        instance->setParam(A_MODEL_NODE, model);
    }
    fillModel(top, options.blocks - share * options.models, options, random);
}

} // namespace orvo::bench
