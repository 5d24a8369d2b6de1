// The generator of synthetic designs.
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>
#include <util/random.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace orvo::bench {

namespace {

std::string numbered(const char *stem, std::size_t number) {
    char text[32];
    std::snprintf(text, sizeof text, "%s%07zu", stem, number);
    return text;
}

/// The input of a model, pinned to a type where types are wanted.
Wire &inputOf(Model &model, const SyntheticOptions &options) {
    Context *context = model.getContext();
    const PureValueRef port0 = NumberValue::get(0, context);
    Wire *input = Wire::create(*Block::create(model, "in", A_INPUT_BLOCK), port0);
    if (!options.typed) {
        return *input;
    }
    Block *pin = Block::create(model, "inType", A_TYPE_PIN_BLOCK);
    NumTypeSpec type = NumTypeSpec::sfixed(16, 4);
    type.setComplex(options.complex);
    if (options.lanes > 1) {
        type.addVector(options.lanes);
    }
    PureValueRef whole = type.toValue(context);
    if (options.members > 1) {
        std::vector<PureValueRef> record(static_cast<std::size_t>(options.members), whole);
        record.insert(record.begin(), A_TYPE_AGGREGATE);
        whole = PureTupleValue::get(record, context);
    }
    pin->setParam(A_TYPE_PIN_TYPE, whole);
    pin->setParam(port0, *input);
    return *Wire::create(*pin, port0);
}

Wire &fillModel(Model &model, std::size_t blocks, Wire &first, const SyntheticOptions &options,
                util::SplitMix &random) {
    Context *context = model.getContext();
    const PureValueRef port0 = NumberValue::get(0, context);
    const PureValueRef port1 = NumberValue::get(1, context);
    // Products have no width that stays.
    const StaticString *types[] = {&A_ADD_BLOCK, &A_SUB_BLOCK, options.typed ? &A_OR_BLOCK : &A_MULT_BLOCK,
                                   &A_AND_BLOCK};
    std::vector<Wire *> wires{&first};
    for (std::size_t i = 0; i < blocks; ++i) {
        Block *block = Block::create(model, numbered("block", i));
        // A difference of one signal and itself would be a constant.
        block->setParam(A_BLOCK_TYPE, *types[options.allNeeded && i == 0 ? 0 : random.below(4)]);
        if (options.members != 0) {
            block->setParam(A_BLOCK_TYPE, random.below(2) == 0 ? A_DELAY_BLOCK : A_REGISTER_BLOCK);
            block->setParam(A_DELAY_LENGTH, NumberValue::get(1, context));
        }
        const std::size_t reach = std::min(options.reach, wires.size());
        block->setParam(port0, *wires[wires.size() - 1 - (options.allNeeded ? 0 : random.below(reach))]);
        const std::size_t back = options.allNeeded && reach > 1 ? 1 + random.below(reach - 1) : random.below(reach);
        if (options.members == 0) {
            block->setParam(port1, *wires[wires.size() - 1 - back]);
        }
        const bool noGrowth = random.below(2) == 0 || options.typed;
        block->setParam(A_ADD_NO_GROWTH, noGrowth ? A_TRUE : A_FALSE);
        Wire *wire = Wire::create(*block, A_PRIM_WIRE_OUT);
        // What lives hangs on one chain; dead blocks read it and are read by nobody that lives.
        if (!options.halfDead || i % 2 == 0) {
            wires.push_back(wire);
        }
    }
    Block *output = Block::create(model, "out", A_OUTPUT_BLOCK);
    for (std::size_t i = 0; i < wires.size(); ++i) {
        // An output of a million ports would be what a query near it costs.
        if ((wires[i]->port_size() == 0 && !options.typed) || i + 1 == wires.size()) {
            output->setParam(NumberValue::get(static_cast<long>(i), context), *wires[i]);
        }
    }
    return *wires.back();
}

/// A chain of instances of one model that has the blocks of one instance.
Wire &makeInstances(Design &design, Model &top, const SyntheticOptions &options, util::SplitMix &random) {
    const PureValueRef port0 = NumberValue::get(0, design.getContext());
    Model &model = *Model::create(design, "shared");
    const std::size_t share = std::max<std::size_t>(options.blocks / options.instances, 4);
    // The model block, the input and the output count, too.
    Wire &input = *Wire::create(*Block::create(model, "in", A_INPUT_BLOCK), port0);
    Wire &last = fillModel(model, share - 3, input, options, random);
    const PureValueRef result = last.ports().begin()->getName();
    Wire *wire = &inputOf(top, options);
    for (std::size_t i = 0; i < options.instances; ++i) {
        Block *instance = Block::create(top, numbered("instance", i), A_MODEL_BLOCK);
        instance->setParam(A_MODEL_NODE, model);
        instance->setParam(port0, *wire);
        wire = Wire::create(*instance, result);
    }
    Block::create(top, "out", A_OUTPUT_BLOCK)->setParam(port0, *wire);
    return *wire;
}

} // namespace

Wire &makeSynthetic(Design &design, const SyntheticOptions &options) {
    util::SplitMix random(options.seed);
    Model &top = *Model::create(design, "top");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    if (options.instances != 0) {
        return makeInstances(design, top, options, random);
    }
    const std::size_t share = options.blocks / (options.models + 1);
    for (std::size_t i = 0; i < options.models; ++i) {
        Model &model = *Model::create(design, numbered("model", i));
        fillModel(model, share, inputOf(model, options), options, random);
        Block *instance = Block::create(top, numbered("instance", i), A_MODEL_BLOCK);
        instance->setParam(A_MODEL_NODE, model);
    }
    return fillModel(top, options.blocks - share * options.models, inputOf(top, options), options, random);
}

Model &makePipeline(Design &design, std::size_t blocks, std::uint64_t seed) {
    constexpr std::size_t kColumns = 64;
    constexpr std::size_t kInputs = 8;
    Context *context = design.getContext();
    util::SplitMix random(seed);
    Model &top = *Model::create(design, "top");
    const PureValueRef port0 = NumberValue::get(0, context);
    const PureValueRef port1 = NumberValue::get(1, context);
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    std::vector<Wire *> row;
    for (std::size_t i = 0; i < kColumns; ++i) {
        if (i < kInputs) {
            Block &pin = *Block::create(top, numbered("inType", i), A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, NumTypeSpec::sfixed(16, 4).toValue(context));
            pin.setParam(port0, *Wire::create(in, numbered("x", i)));
            row.push_back(Wire::create(pin, port0));
        } else {
            row.push_back(row[i - kInputs]);
        }
    }
    // Sums keep chance alive, which conjunctions and disjunctions alone would end.
    const StaticString *types[] = {&A_ADD_BLOCK, &A_SUB_BLOCK, &A_XOR_BLOCK, &A_ADD_BLOCK,
                                   &A_SUB_BLOCK, &A_XOR_BLOCK, &A_OR_BLOCK,  &A_AND_BLOCK};
    for (std::size_t made = 0; made + kColumns <= blocks; made += kColumns) {
        std::vector<Wire *> next;
        for (std::size_t i = 0; i < kColumns; ++i) {
            Block &block = *Block::create(top, numbered("block", made + i));
            if (made / kColumns % 4 == 3) {
                block.setParam(A_BLOCK_TYPE, A_DELAY_BLOCK);
                block.setParam(A_DELAY_LENGTH, NumberValue::get(1, context));
            } else {
                block.setParam(A_BLOCK_TYPE, *types[random.below(8)]);
                block.setParam(port1, *row[(i + 1 + random.below(kColumns - 1)) % kColumns]);
                block.setParam(A_ADD_NO_GROWTH, A_TRUE);
            }
            block.setParam(port0, *row[i]);
            next.push_back(Wire::create(block, A_PRIM_WIRE_OUT));
        }
        row.swap(next);
    }
    Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
    for (std::size_t i = 0; i < kColumns; ++i) {
        out.setParam(NumberValue::get(static_cast<long>(i), context), *row[i]);
    }
    return top;
}

} // namespace orvo::bench
