// Unrolling takes levels off from the outside, but nested vectors in one go, the innermost number first in the names of
// blocks, and records in records as one record of all their leaves. Boundaries number the leaves of nested vectors
// through. Their keys keep what was put around them first at the end, for all that comes later goes in front of it.
#include "driver/loweredelements.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace orvo::driver {

namespace {

struct Lane {
    std::size_t number;
    /// Among the words.
    std::size_t step;
};

/// The lengths of the vectors that stand directly in each other.
std::vector<std::size_t> lengthsOf(CompoundTypeInfo shape) {
    std::vector<std::size_t> lengths;
    for (; shape.topLevelIsVector(); shape = shape.getLevelBelow(0)) {
        lengths.push_back(shape.size_shallow());
    }
    return lengths;
}

using Frontier = std::vector<std::pair<Elements, CompoundTypeInfo>>;

/// What `shape` comes apart to by one step of unrolling, in order.
void takeApart(const Elements &path, const CompoundTypeInfo &shape, CompoundKind kind, Frontier &parts) {
    const bool is = kind == CompoundKind::Vector      ? shape.topLevelIsVector()
                    : kind == CompoundKind::Aggregate ? shape.topLevelIsAggregate()
                                                      : shape.topLevelIsComplex();
    if (!is) {
        parts.emplace_back(path, shape);
        return;
    }
    for (std::size_t i = 0; i < shape.size_shallow(); ++i) {
        Elements longer = path;
        longer.push_back({kind, std::vector<std::size_t>{i}});
        takeApart(longer, shape.getLevelBelow(static_cast<int>(i)), kind, parts);
    }
}

/// Goes down a shape as lanes say.
class Descent {
  public:
    Descent(CompoundTypeInfo shape, std::vector<std::string> words)
        : mElement{{}, std::move(words)}, mAt(std::move(shape)) {}
    const NamedElement &element() const { return mElement; }

    /// Of the name of a block. False if the lanes do not fit.
    bool goByBlock(const std::vector<Lane> &lanes) {
        for (std::size_t i = 0; i < lanes.size();) {
            const std::size_t depth = lengthsOf(mAt).size();
            if (depth > lanes.size() - i) {
                return false;
            }
            for (std::size_t level = 0; level < depth; ++level) {
                if (!enterVector(lanes[i + depth - 1 - level].number)) {
                    return false;
                }
            }
            if (depth == 0 && !enterRecord(lanes[i])) {
                return false;
            }
            i += std::max<std::size_t>(depth, 1);
        }
        return true;
    }
    /// Of the key of a boundary.
    bool goByKey(const std::vector<Lane> &lanes) {
        return std::all_of(lanes.begin(), lanes.end(), [this](const Lane &lane) {
            return mAt.topLevelIsVector() ? enterVectors(lane) : enterRecord(lane);
        });
    }
    /// Complex numbers may come apart before the vectors that they stand in.
    bool enterPart(std::size_t part) {
        for (; mAt.topLevelIsVector(); mAt = mAt.getLevelBelow(0)) {
            mElement.path.push_back({CompoundKind::Vector, std::nullopt});
        }
        const bool isComplex = mAt.topLevelIsComplex();
        mElement.path.push_back({CompoundKind::Complex, std::vector<std::size_t>{part}});
        return isComplex;
    }

  private:
    bool enterVector(std::size_t number) {
        if (!mAt.topLevelIsVector() || number >= mAt.size_shallow()) {
            return false;
        }
        mElement.path.push_back({CompoundKind::Vector, std::vector<std::size_t>{number}});
        mAt = mAt.getLevelBelow(static_cast<int>(number));
        return true;
    }
    /// By the number of an element of the innermost vectors, counted through all of them.
    bool enterVectors(const Lane &lane) {
        const std::vector<std::size_t> lengths = lengthsOf(mAt);
        std::vector<std::size_t> numbers(lengths.size());
        std::size_t left = lane.number;
        for (std::size_t level = lengths.size(); level-- > 0;) {
            numbers[level] = left % lengths[level];
            left /= lengths[level];
        }
        const std::size_t known = mElement.path.size();
        for (const std::size_t number : numbers) {
            enterVector(number);
        }
        const auto first = mElement.path.begin() + static_cast<std::ptrdiff_t>(known);
        mElement.words[lane.step] = elementsText(Elements(first, mElement.path.end()));
        return left == 0;
    }
    bool enterRecord(const Lane &lane) {
        Frontier members;
        takeApart({}, mAt, CompoundKind::Aggregate, members);
        if (!mAt.topLevelIsAggregate() || lane.number >= members.size()) {
            return false;
        }
        const auto [path, below] = members[lane.number];
        mElement.path.insert(mElement.path.end(), path.begin(), path.end());
        mElement.words[lane.step] = elementsText(path);
        mAt = below;
        return true;
    }

    NamedElement mElement;
    CompoundTypeInfo mAt;
};

std::vector<Lane> lanesOf(const std::vector<NameStep> &steps, std::size_t firstStep) {
    std::vector<Lane> lanes;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const std::optional<std::size_t> number = numberOf(steps[i].value);
        if (steps[i].kind == NameStep::Kind::Lane && number) {
            lanes.push_back({*number, firstStep + i});
        }
    }
    return lanes;
}

std::optional<std::size_t> partOf(const std::vector<NameStep> &steps) {
    const auto part = std::find_if(steps.begin(), steps.end(),
                                   [](const NameStep &step) { return step.kind == NameStep::Kind::Part; });
    return part == steps.end() ? std::nullopt : std::optional<std::size_t>(part->value->toString() == "real" ? 0 : 1);
}

/// The path through nested vectors, and to a part of their elements.
Elements pathWithoutShape(const std::vector<Lane> &lanes, const std::optional<std::size_t> &part) {
    Elements path;
    for (auto lane = lanes.rbegin(); lane != lanes.rend(); ++lane) {
        path.push_back({CompoundKind::Vector, std::vector<std::size_t>{lane->number}});
    }
    if (part) {
        path.push_back({CompoundKind::Complex, std::vector<std::size_t>{*part}});
    }
    return path;
}

} // namespace

std::optional<NamedElement> readNamedElement(const std::vector<NameStep> &ofBlock, const std::vector<NameStep> &ofKey,
                                             const std::optional<CompoundTypeInfo> &shape) {
    const std::vector<Lane> block = lanesOf(ofBlock, 0);
    std::vector<Lane> key = lanesOf(ofKey, ofBlock.size());
    const std::optional<std::size_t> blockPart = partOf(ofBlock);
    const std::optional<std::size_t> part = blockPart ? blockPart : partOf(ofKey);
    std::vector<std::string> words;
    for (const std::vector<NameStep> *steps : {&ofBlock, &ofKey}) {
        std::transform(steps->begin(), steps->end(), std::back_inserter(words), describe);
    }
    if (!shape) {
        std::vector<Lane> all = block;
        all.insert(all.end(), key.begin(), key.end());
        return NamedElement{pathWithoutShape(all, part), words};
    }
    if (!ofKey.empty() && ofKey.back().kind == NameStep::Kind::Lane) {
        std::rotate(key.begin(), key.end() - 1, key.end());
    }
    Descent descent(*shape, std::move(words));
    const bool fits = descent.goByBlock(block) && descent.goByKey(key) && (!part || descent.enterPart(*part));
    return fits ? std::optional<NamedElement>(descent.element()) : std::nullopt;
}

std::vector<Elements> elementsInOrder(const std::vector<NameStep> &substitutes, const CompoundTypeInfo &shape) {
    Frontier parts{{{}, shape}};
    for (const NameStep &step : substitutes) {
        const std::string word = step.value->toString();
        const CompoundKind kind = word == "vunroll"   ? CompoundKind::Vector
                                  : word == "aunroll" ? CompoundKind::Aggregate
                                                      : CompoundKind::Complex;
        Frontier finer;
        for (const auto &[path, below] : parts) {
            takeApart(path, below, kind, finer);
        }
        parts = std::move(finer);
    }
    std::vector<Elements> elements;
    for (auto &[path, below] : parts) {
        elements.push_back(std::move(path));
    }
    return elements;
}

std::optional<Elements> wantedInside(const Elements &wanted, const Elements &path) {
    Elements inside;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (i >= path.size() || !path[i].chosen) {
            inside.push_back(wanted[i]);
            continue;
        }
        if ((wanted[i].kind == CompoundKind::Complex) != (path[i].kind == CompoundKind::Complex)) {
            return wanted;
        }
        const std::vector<std::size_t> &own = *path[i].chosen;
        const auto isOwn = [&own](std::size_t number) {
            return std::find(own.begin(), own.end(), number) != own.end();
        };
        if (wanted[i].chosen && std::none_of(wanted[i].chosen->begin(), wanted[i].chosen->end(), isOwn)) {
            return std::nullopt;
        }
    }
    const bool isAll =
        std::none_of(inside.begin(), inside.end(), [](const ElementsOfLevel &level) { return level.chosen; });
    return isAll ? Elements() : inside;
}

} // namespace orvo::driver
