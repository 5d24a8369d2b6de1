// A model of one block.
#include "support/blockrig.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <cmath>

namespace orvo::sim::testing {

BlockRig::BlockRig(Context *context, const char *block, const Params &params, const Ends &inputs, const Ends &outputs)
    : mDesign(context) {
    const auto value = [context](const std::string &text) { return PureValueRef(Value::parse(text, context)); };
    Model &top = *Model::create(mDesign, "top");
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
    Block &tested = *Block::create(top, "block", value(block));
    for (const auto &[key, text] : params) {
        tested.setParam(value(key), ValueRef(value(text)));
    }
    // Edges are ordered by name.
    int number = 100;
    const auto pin = [&](const std::string &type) -> Block & {
        Block &made = *Block::create(top, "pin" + std::to_string(number), A_TYPE_PIN_BLOCK);
        made.setParam(A_TYPE_PIN_TYPE, ValueRef(value(orvo::testing::typeText(type))));
        return made;
    };
    for (const auto &[key, type] : inputs) {
        Block &typed = pin(type);
        typed.setParam(value("0"), *Wire::create(in, "i" + std::to_string(number++)));
        tested.setParam(value(key), *Wire::create(typed, value("0")));
    }
    for (const auto &[key, type] : outputs) {
        Block &typed = pin(type);
        typed.setParam(value("0"), *Wire::create(tested, value(key)));
        out.setParam(value("o" + std::to_string(number++)), *Wire::create(typed, value("0")));
    }
    mSimulator = std::make_unique<Simulator>(mDesign, top);
}

std::vector<std::int64_t> BlockRig::step(const std::vector<std::int64_t> &in) {
    for (std::size_t i = 0; i < in.size(); ++i) {
        mSimulator->setInput(i, in[i]);
    }
    mSimulator->step();
    std::vector<std::int64_t> out;
    for (std::size_t i = 0; i < mSimulator->outputs().size(); ++i) {
        out.push_back(mSimulator->outputInteger(i));
    }
    return out;
}

Delivery collect(BlockRig &rig, const std::vector<std::vector<std::int64_t>> &cycles) {
    Delivery all;
    for (std::size_t cycle = 0; cycle < cycles.size(); ++cycle) {
        const std::vector<std::int64_t> out = rig.step(cycles[cycle]);
        if (out[0] != 0) {
            all.samples.emplace_back(out.begin() + 1, out.end());
            all.cycles.push_back(cycle);
        }
    }
    return all;
}

std::uint64_t turnedBits(std::uint64_t value, int bits) {
    std::uint64_t turned = 0;
    for (int i = 0; i < bits; ++i) {
        turned |= (value >> i & 1U) << (bits - 1 - i);
    }
    return turned;
}

std::vector<Complex> fourier(const std::vector<Complex> &samples, bool isInverse) {
    const std::size_t size = samples.size();
    std::vector<Complex> result(size);
    for (std::size_t k = 0; k < size; ++k) {
        for (std::size_t n = 0; n < size; ++n) {
            const double turn = static_cast<double>(k * n % size) / static_cast<double>(size);
            result[k] += samples[n] * std::polar(1.0, (isInverse ? 2 : -2) * std::acos(-1.0) * turn);
        }
    }
    return result;
}

std::string RigTest::refusal(const char *block, const Params &params, const Ends &inputs, const Ends &outputs) {
    try {
        rig(block, params, inputs, outputs);
    } catch (const SimulationError &error) {
        return error.what();
    }
    return "";
}

std::int64_t RigTest::chance(std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random);
}

} // namespace orvo::sim::testing
