// Lanes under names of their own.
#include "sim/wholesignals.h"

#include "sim/emit.h"

#include <orvo/wire.h>

#include <algorithm>
#include <map>
#include <set>

namespace orvo::sim {

namespace {

/// More lanes than these are no lanes of one signal.
constexpr int kMostLanes = 1 << 24;

/// The name and the lane of (name, lane); of any other name the name itself, and -1.
std::pair<PureValueRef, int> splitName(const PureValueRef &name) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    const NumberValueRef lane = tuple && tuple->size() == 2 ? numberVR(tuple->at(1)) : NumberValueRef();
    const bool isLane = lane && lane->isInt() && lane->toInt() >= 0 && lane->toInt() < kMostLanes;
    return isLane ? std::pair(PureValueRef(tuple->at(0)), lane->toInt()) : std::pair(name, -1);
}

using Lanes = std::map<std::uint32_t, Signal>;

Lanes inputLanes(const BlockWriter &writer, const PureValueRef &name) {
    Lanes lanes;
    for (const Port &port : writer.block().ports()) {
        const auto [whole, lane] = splitName(port.getName());
        const Signal signal = lane >= 0 && whole == name ? writer.in(port.getName()) : Signal();
        if (signal.known()) {
            lanes.emplace(static_cast<std::uint32_t>(lane), signal);
        }
    }
    return lanes;
}

Lanes outputLanes(const BlockWriter &writer, const PureValueRef &name) {
    Lanes lanes;
    for (const Wire &wire : writer.block()) {
        const auto [whole, lane] = splitName(wire.getName());
        const Signal signal = lane >= 0 && whole == name ? writer.out(wire.getName()) : Signal();
        if (signal.known()) {
            lanes.emplace(static_cast<std::uint32_t>(lane), signal);
        }
    }
    return lanes;
}

const SignalType *joinedType(const BlockWriter &writer, const Lanes &lanes, std::uint32_t least) {
    const SignalType &element = *lanes.begin()->second.type;
    if (std::any_of(lanes.begin(), lanes.end(), [&](const auto &lane) { return lane.second.type != &element; }) ||
        element.isRecord()) {
        writer.fail("lanes of one signal have several types");
    }
    NumTypeSpec spec = element.spec;
    spec.addVector(static_cast<int>(std::max(lanes.rbegin()->first + 1, least)));
    return writer.types().of(PureValueRef(spec.toValue(writer.context())));
}

} // namespace

Signal wholeInput(BlockWriter &writer, const PureValueRef &name) {
    const Signal whole = writer.in(name);
    const Lanes lanes = whole.known() ? Lanes() : inputLanes(writer, name);
    if (lanes.empty()) {
        return whole;
    }
    const Signal joined = temporarySignal(writer, joinedType(writer, lanes, 0), "an input");
    const std::uint32_t each = lanes.begin()->second.type->leaves;
    for (std::uint32_t i = 0; i < joined.type->leaves; ++i) {
        const auto lane = lanes.find(i / each);
        const Leaf leaf = joined.first + i;
        writer.alias(leaf, lane == lanes.end() ? writer.unknown(writer.scalar(leaf)) : lane->second.first + i % each);
    }
    return joined;
}

std::vector<PureValueRef> numberedNames(const BlockWriter &writer) {
    std::vector<PureValueRef> names;
    for (const Port &port : writer.block().ports()) {
        const NumberValueRef number = numberVR(splitName(port.getName()).first);
        if (number && number->isInt() && number->toInt() >= 0) {
            names.push_back(port.getName());
        }
    }
    return names;
}

std::vector<Signal> wholeFixedInputs(BlockWriter &writer, std::size_t least) {
    std::set<int> numbers;
    for (const PureValueRef &name : numberedNames(writer)) {
        numbers.insert(numberVR(splitName(name).first)->toInt());
    }
    std::vector<Signal> inputs;
    for (const int number : numbers) {
        const Signal input = wholeInput(writer, NumberValue::get(number, writer.context()));
        if (input.known()) {
            inputs.push_back(input);
        }
    }
    if (inputs.size() < least) {
        writer.missing();
    }
    for (const Signal &input : inputs) {
        requireFixed(writer, input, "an input");
    }
    return inputs;
}

const SignalType *wholeOutputType(const BlockWriter &writer, const PureValueRef &name, std::uint32_t lanes) {
    if (const Signal whole = writer.out(name); whole.known()) {
        return whole.type;
    }
    const Lanes parts = outputLanes(writer, name);
    return parts.empty() ? nullptr : joinedType(writer, parts, lanes);
}

Signal wholeOutput(BlockWriter &writer, const PureValueRef &name, std::uint32_t lanes) {
    const Signal whole = writer.out(name);
    const Lanes parts = whole.known() ? Lanes() : outputLanes(writer, name);
    if (parts.empty()) {
        return whole;
    }
    const Signal joined = temporarySignal(writer, joinedType(writer, parts, lanes), "an output");
    for (const auto &[lane, part] : parts) {
        for (std::uint32_t i = 0; i < part.type->leaves; ++i) {
            writer.alias(part.first + i, joined.first + lane * part.type->leaves + i);
        }
    }
    return joined;
}

std::vector<int> outputNumbers(const BlockWriter &writer) {
    std::set<int> numbers;
    for (const Wire &wire : writer.block()) {
        const NumberValueRef number = numberVR(splitName(wire.getName()).first);
        if (number && writer.out(wire.getName()).known()) {
            numbers.insert(number->isInt() && number->toInt() >= 0 ? number->toInt() : -1);
        }
    }
    return {numbers.begin(), numbers.end()};
}

} // namespace orvo::sim
