// Packs and unpacks tell their elements by number, splits and selectors by parameters, concatenations by lengths alone.
#include "driver/wiringelements.h"

#include "driver/typetable.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace orvo::driver {

namespace {

bool has(const Elements &elements, std::size_t element) {
    return !elements || std::binary_search(elements->begin(), elements->end(), element);
}

/// Of the input's elements that make up the output, those at the given places. An output of one element is no vector:
/// what is taken of it are elements of what is inside.
Elements outOf(const std::vector<std::size_t> &chosen, const Elements &elements) {
    std::set<std::size_t> taken;
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        if (chosen.size() == 1 || has(elements, i)) {
            taken.insert(chosen[i]);
        }
    }
    return std::vector<std::size_t>(taken.begin(), taken.end());
}

} // namespace

std::string elementsText(const std::vector<std::size_t> &elements) {
    const bool isRun = elements.size() > 2 && elements.back() - elements.front() + 1 == elements.size();
    return isRun ? fmt::format("elements {} to {}", elements.front(), elements.back())
                 : fmt::format("element{} {}", elements.size() == 1 ? "" : "s", fmt::join(elements, ", "));
}

std::optional<std::size_t> numberOf(const PureValueRef &name) {
    const NumberValueRef number = numberVR(name);
    return number && number->isInt() && number->toInt() >= 0
               ? std::optional<std::size_t>(static_cast<std::size_t>(number->toInt()))
               : std::nullopt;
}

std::pair<std::size_t, std::size_t> partOfSplit(const Block &split, std::size_t part, std::size_t length) {
    const TupleValueRef layout = tupleVR(split.getParam(A_VSPLIT_LAYOUT));
    const std::size_t parts = layout ? layout->size() : split.getWireCount();
    std::size_t at = 0;
    for (std::size_t i = 0; i < parts; ++i) {
        std::size_t taken = length / parts + (i < length % parts ? 1 : 0);
        if (layout) {
            const NumberValueRef told = numberVR(layout->at(i));
            taken = told && told->isInt() ? static_cast<std::size_t>(std::max(told->toInt(), 0)) : 0;
        }
        if (i == part) {
            return {at, taken};
        }
        at += taken;
    }
    return {at, 0};
}

std::vector<WiringElements::Source> WiringElements::sourcesOf(const Block &block, const PureValueRef &output,
                                                              const Elements &elements) {
    if (block.type() == A_VCONCAT_BLOCK.get_ptr() && elements) {
        return joinedBy(block, elements);
    }
    const bool isPack = block.type() == A_VPACK_BLOCK.get_ptr();
    const Elements chosen = isPack ? Elements() : chosenBy(block, output, elements);
    std::vector<Source> sources;
    for (const Port &port : block.ports()) {
        const std::optional<std::size_t> number = numberOf(port.getName());
        if (!isPack || !number || has(elements, *number)) {
            sources.push_back({&port, chosen});
        }
    }
    return sources;
}

/// Of what has one input.
Elements WiringElements::chosenBy(const Block &block, const PureValueRef &output, const Elements &elements) {
    const Value *type = block.type();
    const std::optional<std::size_t> number = numberOf(output);
    if (type == A_VUNPACK_BLOCK.get_ptr() && number) {
        return std::vector<std::size_t>{*number};
    }
    if (type == A_VSPLIT_BLOCK.get_ptr() && number && block.port_size() != 0) {
        const bool isTold = block.findParam(A_VSPLIT_LAYOUT) != nullptr;
        const std::optional<std::size_t> length = isTold ? 0 : lengthOf(block, block.port_begin()->getName(), true);
        if (!length) {
            return {};
        }
        const auto [first, taken] = partOfSplit(block, *number, *length);
        std::vector<std::size_t> part;
        for (std::size_t i = 0; i < taken; ++i) {
            part.push_back(first + i);
        }
        return outOf(part, elements);
    }
    const TupleValueRef levels = tupleVR(block.getParam(A_VSELECTOR_INDICIES));
    const TupleValueRef indices = tupleVR(levels && levels->size() != 0 ? levels->at(0) : ValueRef());
    if (type == A_VSELECTOR_BLOCK.get_ptr() && indices) {
        std::vector<std::size_t> chosen;
        for (const ValueRef &index : *indices) {
            chosen.push_back(numberOf(PureValueRef(index)).value_or(0));
        }
        return outOf(chosen, elements);
    }
    return elements;
}

/// The inputs stand one behind the other.
std::vector<WiringElements::Source> WiringElements::joinedBy(const Block &concat, const Elements &elements) {
    std::map<std::size_t, const Port *> inputs;
    for (const Port &port : concat.ports()) {
        inputs.emplace(numberOf(port.getName()).value_or(inputs.size()), &port);
    }
    std::vector<Source> sources;
    std::size_t at = 0;
    bool isKnown = true;
    for (const auto &[number, port] : inputs) {
        const std::optional<std::size_t> length = isKnown ? lengthOf(concat, port->getName(), true) : std::nullopt;
        isKnown = length.has_value();
        if (!length) {
            sources.push_back({port, {}});
            continue;
        }
        std::vector<std::size_t> own;
        for (const std::size_t element : *elements) {
            if (element >= at && element - at < *length) {
                own.push_back(element - at);
            }
        }
        at += *length;
        if (!own.empty()) {
            sources.push_back({port, *length == 1 ? Elements() : Elements(own)});
        }
    }
    return sources;
}

std::optional<std::size_t> WiringElements::lengthOf(const Block &block, const PureValueRef &name, bool isPort) {
    const auto [model, isNew] = mTypes.try_emplace(&block.getModel());
    if (isNew) {
        TypeFilter filter;
        filter.model = block.getModel().getName()->toString();
        for (TypeRow &row : collectTypes(mDesign, filter).rows) {
            model->second.emplace(Key{row.block, row.name, row.isPort}, row.type);
        }
    }
    const auto type = model->second.find({block.getName()->toString(), name->toString(), isPort});
    if (type == model->second.end() || !type->second) {
        return std::nullopt;
    }
    const TupleValueRef parts = tupleVR(type->second);
    const bool isVector = parts && parts->size() == 3 && parts->at(0) == A_TYPE_VECTOR;
    return isVector ? numberOf(PureValueRef(parts->at(1))) : 1;
}

} // namespace orvo::driver
