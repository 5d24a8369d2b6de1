// Packs and unpacks tell their elements by number, splits and selectors by parameters, concatenations by lengths alone.
// An unpack adds a level in front of what is taken of its output, a pack takes the first one away; only complex numbers
// are always innermost, below all vectors.
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

using Numbers = std::vector<std::size_t>;

bool has(const std::optional<Numbers> &chosen, std::size_t element) {
    return !chosen || std::binary_search(chosen->begin(), chosen->end(), element);
}

ElementsOfLevel elementsOf(CompoundKind kind, Numbers numbers) { return {kind, std::move(numbers)}; }

/// Levels of which all is taken say nothing where no other follows.
Elements trimmed(Elements elements) {
    while (!elements.empty() && !elements.back().chosen) {
        elements.pop_back();
    }
    return elements;
}

Elements behind(ElementsOfLevel first, const Elements &inner) {
    Elements elements{std::move(first)};
    elements.insert(elements.end(), inner.begin(), inner.end());
    return trimmed(std::move(elements));
}

Elements withoutFirst(const Elements &elements) {
    return elements.empty() ? elements : Elements(elements.begin() + 1, elements.end());
}

/// Of one level: puts down which of the input's elements are taken, where the output has those at `chosen`. A single
/// one is no vector in the output. Takes the level of the output off `rest`, if there is one.
void choose(const Numbers &chosen, Elements &taken, Elements &rest) {
    const std::optional<Numbers> wanted =
        chosen.size() == 1 || rest.empty() ? std::optional<Numbers>() : rest.front().chosen;
    std::set<std::size_t> numbers;
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        if (has(wanted, i)) {
            numbers.insert(chosen[i]);
        }
    }
    rest = chosen.size() == 1 ? rest : withoutFirst(rest);
    taken.push_back(elementsOf(CompoundKind::Vector, Numbers(numbers.begin(), numbers.end())));
}

Elements chooseByIndices(const Block &selector, Elements rest) {
    const TupleValueRef levels = tupleVR(selector.getParam(A_VSELECTOR_INDICIES));
    Elements taken;
    for (std::size_t i = 0; levels && i < levels->size(); ++i) {
        const TupleValueRef indices = tupleVR(levels->at(i));
        if (!indices) {
            return {};
        }
        Numbers chosen;
        for (const ValueRef &index : *indices) {
            chosen.push_back(numberOf(PureValueRef(index)).value_or(0));
        }
        choose(chosen, taken, rest);
    }
    taken.insert(taken.end(), rest.begin(), rest.end());
    return trimmed(std::move(taken));
}

std::string levelText(const ElementsOfLevel &level) {
    if (level.kind == CompoundKind::Complex) {
        const bool isBoth = !level.chosen || level.chosen->size() != 1;
        return isBoth ? "both parts" : level.chosen->front() == 0 ? "real part" : "imaginary part";
    }
    const char *word = level.kind == CompoundKind::Vector ? "element" : "member";
    if (!level.chosen) {
        return fmt::format("each {}", word);
    }
    const Numbers &numbers = *level.chosen;
    const bool isRun = numbers.size() > 2 && numbers.back() - numbers.front() + 1 == numbers.size();
    return isRun ? fmt::format("{}s {} to {}", word, numbers.front(), numbers.back())
                 : fmt::format("{}{} {}", word, numbers.size() == 1 ? "" : "s", fmt::join(numbers, ", "));
}

} // namespace

std::string elementsText(const Elements &elements) {
    std::string text;
    for (const ElementsOfLevel &level : elements) {
        text = levelText(level) + (text.empty() ? "" : " of " + text);
    }
    return text;
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
    const auto is = [type = block.type()](const StaticString &wanted) { return type == wanted.get_ptr(); };
    const std::optional<std::size_t> number = numberOf(output);
    if (is(A_VCONCAT_BLOCK) && !elements.empty()) {
        return joinedBy(block, elements);
    }
    if (is(A_VPACK_BLOCK) || is(A_APACK_BLOCK) || is(A_CPACK_BLOCK)) {
        return packedBy(block, elements);
    }
    Elements chosen = elements;
    if (is(A_VUNPACK_BLOCK) && number) {
        chosen = behind(elementsOf(CompoundKind::Vector, {*number}), elements);
    } else if (is(A_AUNPACK_BLOCK) && number) {
        chosen = behind(elementsOf(CompoundKind::Aggregate, {*number}), elements);
    } else if (is(A_CUNPACK_BLOCK)) {
        chosen = partOf(block, output == A_CUNPACK_WIRE_IMAG, elements);
    } else if (is(A_VSPLIT_BLOCK) && number && block.port_size() != 0) {
        chosen = splitOff(block, *number, elements);
    } else if (is(A_VSELECTOR_BLOCK)) {
        chosen = chooseByIndices(block, elements);
    }
    std::vector<Source> sources;
    for (const Port &port : block.ports()) {
        sources.push_back({&port, chosen});
    }
    return sources;
}

std::vector<WiringElements::Source> WiringElements::packedBy(const Block &pack, const Elements &elements) {
    const bool isComplex = pack.type() == A_CPACK_BLOCK.get_ptr();
    const auto level =
        !isComplex ? elements.begin() : std::find_if(elements.begin(), elements.end(), [](const ElementsOfLevel &one) {
            return one.kind == CompoundKind::Complex;
        });
    Elements inner = elements;
    std::optional<Numbers> chosen;
    if (level != elements.end()) {
        chosen = level->chosen;
        inner.erase(inner.begin() + (level - elements.begin()));
        inner = trimmed(std::move(inner));
    }
    std::vector<Source> sources;
    for (const Port &port : pack.ports()) {
        const std::optional<std::size_t> number =
            isComplex ? std::size_t{port.getName() == A_CPACK_PORT_IMAG} : numberOf(port.getName());
        if (!number || has(chosen, *number)) {
            sources.push_back({&port, inner});
        }
    }
    return sources;
}

/// The parts of all elements of a vector come out as a vector.
Elements WiringElements::partOf(const Block &unpack, bool isImaginary, const Elements &elements) {
    Elements taken = elements;
    const std::optional<CompoundTypeInfo> shape = shapeOf(unpack, A_CUNPACK_PORT_IN, true);
    std::size_t depth = 0;
    for (CompoundTypeInfo at = shape.value_or(CompoundTypeInfo()); at.topLevelIsVector(); at = at.getLevelBelow(0)) {
        if (++depth > taken.size()) {
            taken.push_back({CompoundKind::Vector, std::nullopt});
        }
    }
    taken.push_back(elementsOf(CompoundKind::Complex, {isImaginary ? std::size_t{1} : std::size_t{0}}));
    return taken;
}

Elements WiringElements::splitOff(const Block &split, std::size_t part, const Elements &elements) {
    std::size_t length = 0;
    if (split.findParam(A_VSPLIT_LAYOUT) == nullptr) {
        const std::optional<CompoundTypeInfo> shape = shapeOf(split, split.port_begin()->getName(), true);
        if (!shape) {
            return {};
        }
        length = shape->topLevelIsVector() ? shape->size_shallow() : 1;
    }
    const auto [first, count] = partOfSplit(split, part, length);
    Numbers chosen;
    for (std::size_t i = 0; i < count; ++i) {
        chosen.push_back(first + i);
    }
    Elements taken;
    Elements rest = elements;
    choose(chosen, taken, rest);
    return behind(taken.front(), rest);
}

/// The inputs stand one behind the other.
std::vector<WiringElements::Source> WiringElements::joinedBy(const Block &concat, const Elements &elements) {
    std::map<std::size_t, const Port *> inputs;
    for (const Port &port : concat.ports()) {
        inputs.emplace(numberOf(port.getName()).value_or(inputs.size()), &port);
    }
    const std::optional<Numbers> &chosen = elements.front().chosen;
    const Elements inner = withoutFirst(elements);
    std::vector<Source> sources;
    std::size_t at = 0;
    bool isKnown = true;
    for (const auto &[number, port] : inputs) {
        const std::optional<CompoundTypeInfo> shape = isKnown ? shapeOf(concat, port->getName(), true) : std::nullopt;
        isKnown = shape.has_value();
        if (!shape) {
            sources.push_back({port, {}});
            continue;
        }
        const bool isVector = shape->topLevelIsVector();
        const std::size_t end = at + (isVector ? shape->size_shallow() : 1);
        ElementsOfLevel own{CompoundKind::Vector, std::nullopt};
        if (chosen) {
            own.chosen.emplace();
            for (const std::size_t element : *chosen) {
                if (element >= at && element < end) {
                    own.chosen->push_back(element - at);
                }
            }
        }
        at = end;
        if (!own.chosen || !own.chosen->empty()) {
            sources.push_back({port, isVector ? behind(own, inner) : inner});
        }
    }
    return sources;
}

std::optional<CompoundTypeInfo> WiringElements::shapeOf(const Block &block, const PureValueRef &name, bool isPort) {
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
    return CompoundTypeInfo::createFromValue(type->second);
}

} // namespace orvo::driver
