// Lanes and parts under names of their own.
#include "sim/wholesignals.h"

#include "sim/emit.h"

#include <orvo/elementname.h>
#include <orvo/wire.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>

namespace orvo::sim {

namespace {

/// More lanes than these are no lanes of one signal.
constexpr int kMostLanes = 1 << 24;

/// What is left of a signal, by lane and part.
struct Elements {
    std::map<std::pair<std::uint32_t, bool>, Signal> signals;
    bool areLanes = false;
    bool areParts = false;

    void add(const ElementName &name, const Signal &signal) {
        signals.emplace(std::pair(static_cast<std::uint32_t>(std::max(name.lane, 0)), name.isImaginary), signal);
        areLanes = areLanes || name.levels != 0;
        areParts = areParts || name.isPart;
    }
    /// What takes the place of a scalar; nothing for one that is not there.
    std::optional<Leaf> leaf(std::uint32_t lane, std::uint32_t part) const {
        const auto signal = signals.find({areLanes ? lane : 0, areParts && part == 1});
        // Parts may still be vectors, and lanes complex.
        return signal == signals.end()
                   ? std::nullopt
                   : std::optional(signal->second.first + (areLanes ? 0 : lane) + (areParts ? 0 : part));
    }
};

bool isElementOf(const ElementName &element, const PureValueRef &whole) {
    return element.isElement() && element.levels <= 1 && element.lane < kMostLanes && element.whole == whole;
}

Elements inputElements(const BlockWriter &writer, const PureValueRef &name) {
    Elements elements;
    for (const Port &port : writer.block().ports()) {
        const ElementName element(port.getName());
        const Signal signal = isElementOf(element, name) ? writer.in(port.getName()) : Signal();
        if (signal.known()) {
            elements.add(element, signal);
        }
    }
    return elements;
}

Elements outputElements(const BlockWriter &writer, const PureValueRef &name) {
    Elements elements;
    for (const Wire &wire : writer.block()) {
        const ElementName element(wire.getName());
        const Signal signal = isElementOf(element, name) ? writer.out(wire.getName()) : Signal();
        if (signal.known()) {
            elements.add(element, signal);
        }
    }
    return elements;
}

const SignalType *joinedType(const BlockWriter &writer, const Elements &elements, std::uint32_t least) {
    const auto &signals = elements.signals;
    const SignalType &element = *signals.begin()->second.type;
    if (std::any_of(signals.begin(), signals.end(), [&](const auto &one) { return one.second.type != &element; }) ||
        element.isRecord()) {
        writer.fail("elements of one signal have several types");
    }
    NumTypeSpec spec = element.spec;
    if (elements.areLanes) {
        spec.addVector(static_cast<int>(std::max(signals.rbegin()->first.first + 1, least)));
    }
    if (elements.areParts) {
        spec.setComplex(true);
    }
    return writer.types().of(PureValueRef(spec.toValue(writer.context())));
}

} // namespace

Signal wholeInput(BlockWriter &writer, const PureValueRef &name) {
    const Signal whole = writer.in(name);
    const Elements elements = whole.known() ? Elements() : inputElements(writer, name);
    if (elements.signals.empty()) {
        return whole;
    }
    const Signal joined = temporarySignal(writer, joinedType(writer, elements, 0), "an input");
    forEachScalar(joined, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const std::optional<Leaf> element = elements.leaf(lane, part);
        writer.alias(leaf, element ? *element : writer.unknown(writer.scalar(leaf)));
    });
    return joined;
}

std::vector<PureValueRef> numberedNames(const BlockWriter &writer) {
    std::vector<PureValueRef> names;
    for (const Port &port : writer.block().ports()) {
        const NumberValueRef number = numberVR(ElementName(port.getName()).whole);
        if (number && number->isInt() && number->toInt() >= 0) {
            names.push_back(port.getName());
        }
    }
    return names;
}

std::vector<Signal> wholeFixedInputs(BlockWriter &writer, std::size_t least) {
    std::set<int> numbers;
    for (const PureValueRef &name : numberedNames(writer)) {
        numbers.insert(numberVR(ElementName(name).whole)->toInt());
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
    const Elements elements = outputElements(writer, name);
    return elements.signals.empty() ? nullptr : joinedType(writer, elements, lanes);
}

Signal wholeOutput(BlockWriter &writer, const PureValueRef &name, std::uint32_t lanes) {
    const Signal whole = writer.out(name);
    const Elements elements = whole.known() ? Elements() : outputElements(writer, name);
    if (elements.signals.empty()) {
        return whole;
    }
    const Signal joined = temporarySignal(writer, joinedType(writer, elements, lanes), "an output");
    forEachScalar(joined, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        if (const std::optional<Leaf> element = elements.leaf(lane, part)) {
            writer.alias(*element, leaf);
        }
    });
    return joined;
}

std::vector<int> outputNumbers(const BlockWriter &writer) {
    std::set<int> numbers;
    for (const Wire &wire : writer.block()) {
        const NumberValueRef number = numberVR(ElementName(wire.getName()).whole);
        if (number && writer.out(wire.getName()).known()) {
            numbers.insert(number->isInt() && number->toInt() >= 0 ? number->toInt() : -1);
        }
    }
    return {numbers.begin(), numbers.end()};
}

} // namespace orvo::sim
