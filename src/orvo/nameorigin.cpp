// Names read from the outside in; each reading leaves a shorter name, and fails where none leads to a block.
#include <orvo/nameorigin.h>

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/modelkinds.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace orvo {

namespace {

using Kind = NameStep::Kind;

/// What rewrites add to a name that is a text; a number may follow where the last column says so.
struct TextEnding {
    std::string_view ending;
    Kind kind;
    bool takesNumber;
};
constexpr TextEnding kTextEndings[] = {
    {"_vunroll", Kind::Substitute, false},
    {"_cunroll", Kind::Substitute, false},
    {"_aunroll", Kind::Substitute, false},
    {"_vup", Kind::Beside, true},
    {"_vp", Kind::Beside, true},
    // The parts of a cast, the longer of two endings of one end first.
    {"_const_select_mux", Kind::Beside, false},
    {"_preCast", Kind::Beside, false},
    {"_extendPad", Kind::Beside, false},
    {"_rnd", Kind::Beside, false},
    {"_mux", Kind::Beside, false},
    {"_lconst", Kind::Beside, false},
    {"_hconst", Kind::Beside, false},
    {"_lcmp", Kind::Beside, false},
    {"_hcmp", Kind::Beside, false},
    {"_lnot", Kind::Beside, false},
    {"_hnot", Kind::Beside, false},
    {"_lbound", Kind::Beside, false},
    {"_hbound", Kind::Beside, false},
    {"_gndClip", Kind::Beside, false},
    {"_replace_constant", Kind::Beside, false},
    {"_msb_select", Kind::Beside, false},
    {"_replace_zero_const", Kind::Beside, false},
    {"_replace_allones_const", Kind::Beside, false},
    // A narrowed multiplier.
    {"_narrowconst", Kind::Beside, false},
    {"_narrowed", Kind::Beside, false},
    {"_extender", Kind::Beside, false},
    {"_signextend", Kind::Beside, false},
    {"_multconst", Kind::Beside, false},
    {"_zero", Kind::Beside, false},
};

/// Endings of one text and readings inside each other; names that rewrites made have a few of them.
constexpr std::size_t kEndings = 32;
constexpr int kNesting = 1000;

constexpr std::string_view kSubstitutes[] = {"vunroll", "cunroll", "aunroll"};
constexpr std::string_view kParts[] = {"real", "imag"};
/// Behind a name and the key of a port or wire of it.
constexpr std::string_view kAtPort[] = {"ap",       "aup",        "vp",        "vup",         "cp",
                                        "cup",      "cpack",      "cunpack",   "apack",       "aunpack",
                                        "imagZero", "unpackCast", "unpackPin", "unrelaxCast", "unrelaxReduce"};
/// The same, with the path to a member of a record behind it.
constexpr std::string_view kMemberPaths[] = {"apack_", "unapack_"};
/// Those of a signal packer, which may have the key of a port alone in front.
constexpr std::string_view kPacker[] = {"ap", "aup", "vp", "vup", "cp", "cup"};

std::string_view textOf(const PureValueRef &value) {
    return value->kind() == CoreType::String
               ? std::string_view(static_cast<const StringValue *>(value.get_ptr())->str())
               : std::string_view();
}

template <std::size_t N> bool isOneOf(std::string_view text, const std::string_view (&words)[N]) {
    return std::find(std::begin(words), std::end(words), text) != std::end(words);
}

bool isAtPort(std::string_view text) {
    return isOneOf(text, kAtPort) ||
           std::any_of(std::begin(kMemberPaths), std::end(kMemberPaths),
                       [text](std::string_view path) { return text.substr(0, path.size()) == path; });
}

bool isNumber(const PureValueRef &value) { return value->kind() == CoreType::Number; }

/// What a single element behind a name says.
Kind kindOf(const PureValueRef &element) {
    if (isNumber(element)) {
        return Kind::Lane;
    }
    const std::string_view text = textOf(element);
    return isOneOf(text, kParts) ? Kind::Part : isOneOf(text, kSubstitutes) ? Kind::Substitute : Kind::Beside;
}

bool isLaneOrPart(const PureValueRef &element) {
    const Kind kind = kindOf(element);
    return kind == Kind::Lane || kind == Kind::Part;
}

/// A text without its ending.
struct SplitText {
    std::string rest;
    std::string word;
    Kind kind;
};

std::optional<SplitText> splitEnding(std::string_view whole) {
    const std::string_view unnumbered = whole.substr(0, whole.find_last_not_of("0123456789") + 1);
    for (const TextEnding &row : kTextEndings) {
        const std::string_view text = row.takesNumber ? unnumbered : whole;
        if (text.size() > row.ending.size() && text.substr(text.size() - row.ending.size()) == row.ending) {
            const std::size_t rest = text.size() - row.ending.size();
            return SplitText{std::string(whole.substr(0, rest)), std::string(whole.substr(rest + 1)), row.kind};
        }
    }
    return std::nullopt;
}

PureValueRef elementOf(const PureTupleValueRef &tuple, std::size_t at) { return PureValueRef(tuple->at(at)); }

NameOrigin with(NameOrigin origin, std::initializer_list<NameStep> steps) {
    if (origin) {
        origin.steps.insert(origin.steps.end(), steps);
    }
    return origin;
}

} // namespace

bool NameOrigin::standsForBlock() const {
    return block != nullptr && std::none_of(steps.begin(), steps.end(), [](const NameStep &step) {
               return step.kind == Kind::Port || step.kind == Kind::Beside;
           });
}

NameOrigins::NameOrigins(const Design &source) : mSource(source) {}

NameOrigin NameOrigins::originOf(const Block &block) const {
    const Model *model = mSource.getModel(block.getModel().getName());
    return model == nullptr ? NameOrigin() : originOf(block.getName(), *model);
}

NameOrigin NameOrigins::originOf(const PureValueRef &name, const Model &model) const {
    return read(name, model, kNesting);
}

NameOrigin NameOrigins::read(const PureValueRef &name, const Model &model, int room) const {
    if (const Block *block = model.getBlock(name)) {
        return {block, {}};
    }
    if (room == 0) {
        return {};
    }
    switch (name->kind()) {
    case CoreType::PureTuple:
        return ofTuple(name, model, room - 1);
    case CoreType::String:
        return ofText(name, model, room - 1);
    default:
        return {};
    }
}

NameOrigin NameOrigins::ofTuple(const PureValueRef &name, const Model &model, int room) const {
    const PureTupleValueRef tuple = pureTupleVR(name);
    const std::size_t size = tuple->size();
    if (size < 2) {
        return {};
    }
    const PureValueRef first = elementOf(tuple, 0);
    const PureValueRef second = elementOf(tuple, 1);
    if (const Model *dissolved = size == 2 ? mSource.getModel(first) : nullptr) {
        if (NameOrigin found = with(read(second, *dissolved, room), {{Kind::Copy, first}})) {
            return found;
        }
    }
    if (size == 3 && first == A_DUPLICATE_NAME) {
        if (NameOrigin found = with(read(elementOf(tuple, 2), model, room), {{Kind::Duplicate, second}})) {
            return found;
        }
    }
    if (isOneOf(textOf(second), kPacker)) {
        if (const Block *scheduled = scheduledBlockWith(first, model)) {
            NameOrigin found{scheduled, {{Kind::Port, first}, {Kind::Beside, second}}};
            if (&scheduled->getModel() != &model) {
                found.steps.insert(found.steps.begin(), {Kind::Copy, scheduled->getModel().getName()});
            }
            return found;
        }
    }
    const PureTupleValueRef signal = pureTupleVR(first);
    if (isAtPort(textOf(second)) && signal && signal->size() == 2) {
        return with(read(elementOf(signal, 0), model, room),
                    {{Kind::Port, elementOf(signal, 1)}, {Kind::Beside, second}});
    }
    if (size >= 3 && isAtPort(textOf(elementOf(tuple, 2)))) {
        return with(read(first, model, room), {{Kind::Port, second}, {Kind::Beside, elementOf(tuple, 2)}});
    }
    NameOrigin found = read(first, model, room);
    for (std::size_t i = 1; found && i < size; ++i) {
        const PureValueRef element = elementOf(tuple, i);
        found.steps.push_back({kindOf(element), element});
        if (found.steps.back().kind == Kind::Beside) {
            break; // What follows tells such blocks apart.
        }
    }
    return found;
}

const NameOrigins::ByKey &NameOrigins::scheduledBlocks() const {
    if (mScheduled) {
        return *mScheduled;
    }
    mScheduled.emplace();
    for (const Model &model : mSource) {
        for (const Block &block : model) {
            if (block.type() != A_SCHEDULED_MODEL_BLOCK.get_ptr()) {
                continue;
            }
            for (const Port &port : block.ports()) {
                (*mScheduled)[port.getName().get_ptr()].push_back(&block);
            }
            for (const Wire &wire : block) {
                (*mScheduled)[wire.getName().get_ptr()].push_back(&block);
            }
        }
    }
    return *mScheduled;
}

const NameOrigins::Below &NameOrigins::belowOf(const Model &model) const {
    const auto [at, isNew] = mBelow.try_emplace(&model);
    Below &below = at->second;
    if (!isNew) {
        return below;
    }
    std::vector<const Model *> order{&model};
    below.rank.emplace(&model, 0);
    for (std::size_t i = 0; i < order.size(); ++i) {
        for (const Block &block : *order[i]) {
            const Model *child =
                block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            if (child != nullptr && below.rank.emplace(child, order.size()).second) {
                order.push_back(child);
            }
        }
    }
    return below;
}

const Block *NameOrigins::scheduledBlockWith(const PureValueRef &key, const Model &model) const {
    const ByKey &all = scheduledBlocks();
    const auto candidates = all.find(key.get_ptr());
    if (candidates == all.end()) {
        return nullptr;
    }
    // The block may have come out of a model that was dissolved before the block was taken apart.
    const Below &below = belowOf(model);
    const auto [at, isNew] = below.nearest.try_emplace(key.get_ptr(), nullptr);
    if (isNew) {
        std::size_t least = below.rank.size();
        for (const Block *block : candidates->second) {
            const auto rank = below.rank.find(&block->getModel());
            if (rank != below.rank.end() && rank->second < least) {
                least = rank->second;
                at->second = block;
            }
        }
    }
    return at->second;
}

NameOrigin NameOrigins::ofText(const PureValueRef &name, const Model &model, int room) const {
    Context *context = name->context();
    std::vector<NameStep> steps;
    PureValueRef inner = name;
    // Each shorter text becomes a value, so that their number is bounded.
    while (steps.size() < kEndings && inner->kind() == CoreType::String) {
        const std::optional<SplitText> split = splitEnding(textOf(inner));
        if (!split) {
            return {};
        }
        steps.push_back({split->kind, StringValue::get(split->word, context)});
        inner = parseName(split->rest, context);
        const Block *block = model.getBlock(inner);
        if (block == nullptr && inner->kind() == CoreType::String) {
            continue;
        }
        NameOrigin found = block != nullptr ? NameOrigin{block, {}} : read(inner, model, room);
        if (found) {
            found.steps.insert(found.steps.end(), steps.rbegin(), steps.rend());
        }
        return found;
    }
    return {};
}

bool continuesName(const PureValueRef &name, const PureValueRef &source, std::vector<NameStep> &steps) {
    if (name == source) {
        return true;
    }
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 2) {
        return false;
    }
    const std::size_t size = tuple->size();
    const auto takeSteps = [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            if (!isLaneOrPart(elementOf(tuple, i))) {
                return false;
            }
        }
        for (std::size_t i = begin; i < end; ++i) {
            steps.push_back({kindOf(elementOf(tuple, i)), elementOf(tuple, i)});
        }
        return true;
    };
    const PureTupleValueRef before = pureTupleVR(source);
    if (before && before->size() >= 2 && size > before->size() &&
        elementOf(tuple, size - 1) == elementOf(before, before->size() - 1)) {
        bool same = true;
        for (std::size_t i = 0; i + 1 < before->size(); ++i) {
            same = same && elementOf(tuple, i) == elementOf(before, i);
        }
        if (same && takeSteps(before->size() - 1, size - 1)) {
            return true;
        }
    }
    const std::size_t known = steps.size();
    if (continuesName(elementOf(tuple, 0), source, steps) && takeSteps(1, size)) {
        return true;
    }
    steps.erase(steps.begin() + static_cast<std::ptrdiff_t>(known), steps.end());
    return false;
}

std::string describe(const NameStep &step) {
    std::string value = step.value->toString();
    switch (step.kind) {
    case Kind::Copy:
        return "copied out of model " + value;
    case Kind::Duplicate:
        return "one more of the name (" + value + ")";
    case Kind::Lane:
        return "element " + value;
    case Kind::Part:
        return value == "real" ? "real part" : "imaginary part";
    case Kind::Substitute:
        return "in its place (" + value + ")";
    case Kind::Port:
        return "at " + value;
    case Kind::Beside:
        return "beside it (" + value + ")";
    }
    return value;
}

} // namespace orvo
