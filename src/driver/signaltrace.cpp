// One index over the lowered design, from blocks of the source to what came from them; then the signal, and what drives
// it as long as its own block is nothing but wiring that is gone.
#include "driver/signaltrace.h"

#include "driver/loweredelements.h"
#include "driver/wiringelements.h"
#include "orvo/pipeinput.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/gototags.h>
#include <orvo/model.h>
#include <orvo/nameorigin.h>
#include <orvo/port.h>
#include <orvo/scheduledmodelhandle.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace orvo::driver {

namespace {

const Model *instantiated(const Block &block) {
    return block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
}

/// What stands behind `name` and a separator at the start of a path; nothing if the path does not begin so.
std::optional<std::string_view> behind(std::string_view path, const std::string &name) {
    const bool begins = path.substr(0, name.size()) == name;
    if (!begins || (path.size() > name.size() && path[name.size()] != '/' && path[name.size()] != '.')) {
        return std::nullopt;
    }
    return path.substr(std::min(path.size(), name.size() + 1));
}

/// What references in messages and files have around their path: [/model/block/wire].
std::string withoutMarks(std::string path) {
    if (path.size() > 2 && path.front() == '[' && path.back() == ']') {
        path = path.substr(1, path.size() - 2);
    }
    return path.substr(0, 1) == "/" ? path.substr(1) : path;
}

/// Names may hold separators, so that each name that fits is tried.
class Finder {
  public:
    FoundSignal find(const Design &design, std::string_view path) {
        for (const Model &model : design) {
            const std::string name = model.getName()->toString();
            offer(0, name, path.substr(0, path.find_first_of("/.")));
            if (const auto rest = behind(path, name)) {
                findIn(model, *rest, name + "/", 1);
            }
        }
        return std::move(mFound);
    }

  private:
    /// Keeps the names of the deepest level that was reached.
    void offer(std::size_t depth, const std::string &text, std::string_view wrong) {
        if (depth > mDepth) {
            mDepth = depth;
            mFound.known.clear();
            mFound.wrong.clear();
        }
        if (depth == mDepth) {
            mFound.known.push_back(text);
            mFound.wrong = wrong;
        }
    }

    void findIn(const Model &model, std::string_view path, const std::string &above, std::size_t depth) {
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            offer(depth, above + name, above + std::string(path.substr(0, path.find_first_of("/."))));
            const auto rest = behind(path, name);
            if (!rest || mFound.signal) {
                continue;
            }
            const auto take = [&](const PureValueRef &key, bool isPort) {
                const std::string text = key->toString();
                offer(depth + 1, above + name + "." + text, above + name + "." + std::string(*rest));
                if (text == *rest && !mFound.signal) {
                    mFound.signal = SignalName{&block, key, isPort};
                }
            };
            for (const Wire &wire : block) {
                take(wire.getName(), false);
            }
            for (const Port &port : block.ports()) {
                take(port.getName(), true);
            }
            if (const Model *below = mFound.signal || rest->empty() ? nullptr : instantiated(block)) {
                findIn(*below, *rest, above + name + "/", depth + 1);
            }
        }
    }

    FoundSignal mFound;
    std::size_t mDepth = 0;
};

constexpr const StaticString *kPacks[] = {&A_VPACK_BLOCK, &A_CPACK_BLOCK, &A_APACK_BLOCK};
constexpr const StaticString *kUnpacks[] = {&A_VUNPACK_BLOCK, &A_CUNPACK_BLOCK, &A_AUNPACK_BLOCK};
constexpr const StaticString *kRouting[] = {&A_TERMINAL_BLOCK, &A_VCONCAT_BLOCK, &A_VSELECTOR_BLOCK, &A_VSPLIT_BLOCK};

template <std::size_t N> bool isOf(const Block &block, const StaticString *const (&types)[N]) {
    return std::any_of(std::begin(types), std::end(types),
                       [&block](const StaticString *type) { return block.type() == type->get_ptr(); });
}

std::string textOf(const SignalName &signal) {
    return signal.block->getModel().getName()->toString() + "/" + signal.block->getName()->toString() + "." +
           signal.name->toString();
}

/// What came of a block of the source.
struct Made {
    const Block *source;
    const Block *block;
    std::vector<NameStep> steps;
};

bool has(const std::vector<NameStep> &steps, NameStep::Kind kind) {
    return std::any_of(steps.begin(), steps.end(), [kind](const NameStep &step) { return step.kind == kind; });
}

/// The word of what was made beside a block; empty if it was made at a port or in the place of the block.
std::string wordOf(const Made &made) {
    const auto beside = std::find_if(made.steps.begin(), made.steps.end(),
                                     [](const NameStep &step) { return step.kind == NameStep::Kind::Beside; });
    return beside == made.steps.end() || has(made.steps, NameStep::Kind::Port) ? std::string()
                                                                               : beside->value->toString();
}

bool isInPlace(const Made &made) { return NameOrigin{made.source, made.steps}.standsForBlock(); }

/// A wire that carries a signal or a part of it, before it is put in words.
struct Place {
    const Wire *wire;
    /// For a port: the block that reads the wire.
    const Block *reader;
    /// Of the port or wire.
    PureValueRef key;
    std::vector<NameStep> steps;
    bool isJoint = false;
    /// What else there is to say.
    std::string note;
    /// How many of the steps stand in the name of the port or wire.
    std::size_t keySteps = 0;
    /// Of a pin whose ports are numbered anew.
    const Made *pin = nullptr;
    /// Which element of the signal it is, empty for the whole; nothing if that cannot be told.
    std::optional<Elements> path = std::nullopt;
    /// The steps for people, where there is more to say than they do.
    std::vector<std::string> words = {};
    /// Of a pack or unpack that is not the outermost at its signal: the way to the part that it joins or takes apart.
    std::vector<std::size_t> inner = {};
};

/// The numbers behind the word in the name of a pack or unpack; nothing if the word is not in the name.
std::optional<std::vector<std::size_t>> numbersBehind(const PureValueRef &name, const PureValueRef &word) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    const std::size_t size = tuple ? tuple->size() : 0;
    for (std::size_t i = 1; i < size; ++i) {
        if (tuple->at(i) == word) {
            std::vector<std::size_t> numbers;
            for (++i; i < size && numberOf(PureValueRef(tuple->at(i))); ++i) {
                numbers.push_back(*numberOf(PureValueRef(tuple->at(i))));
            }
            return numbers;
        }
    }
    // Models that dissolved and copies stand in front of the name, all else behind it.
    auto numbers = size == 0 ? std::nullopt : numbersBehind(PureValueRef(tuple->at(size - 1)), word);
    return numbers || size == 0 ? numbers : numbersBehind(PureValueRef(tuple->at(0)), word);
}

std::vector<std::size_t> innerNumbers(const Made &made) {
    const auto beside = std::find_if(made.steps.rbegin(), made.steps.rend(),
                                     [](const NameStep &step) { return step.kind == NameStep::Kind::Beside; });
    const auto numbers =
        beside == made.steps.rend() ? std::nullopt : numbersBehind(made.block->getName(), beside->value);
    return numbers.value_or(std::vector<std::size_t>());
}

Elements elementsAlong(const std::vector<std::size_t> &numbers, std::optional<CompoundTypeInfo> shape) {
    Elements path;
    for (const std::size_t number : numbers) {
        const bool fits = shape && shape->valid() && number < shape->size_shallow();
        path.push_back({fits && shape->topLevelIsAggregate() ? CompoundKind::Aggregate
                        : fits && shape->topLevelIsComplex() ? CompoundKind::Complex
                                                             : CompoundKind::Vector,
                        std::vector<std::size_t>{number}});
        shape = fits ? std::optional<CompoundTypeInfo>(shape->getLevelBelow(static_cast<int>(number))) : std::nullopt;
    }
    return path;
}

/// A text for each level.
std::string pathText(const Elements &path) {
    std::string text;
    for (const ElementsOfLevel &level : path) {
        text += (text.empty() ? "" : ", ") + elementsText({level});
    }
    return text;
}

/// The scalars that a compound port or wire of a scheduled model is to become, by their paths. Empty for all else.
std::vector<std::pair<Elements, PureValueRef>> scalarsOf(const SignalName &signal) {
    const Block &block = *signal.block;
    if (block.type() != A_SCHEDULED_MODEL_BLOCK.get_ptr() || block[A_SCHEDULED_MODEL_ORIGINAL_TYPES] != A_TRUE) {
        return {};
    }
    const auto handle = ScheduledModelHandle::fromValue(PureValueRef(block.getParam(A_SCHEDULED_MODEL_VALUE)));
    const ScheduledModelTypes *types = handle.valid() ? handle.getOriginalModelTypes() : nullptr;
    if (types == nullptr) {
        return {};
    }
    const CompoundTypeInfo shape = CompoundTypeInfo::createFromValue(
        signal.isPort ? types->getInputPortType(signal.name) : types->getOutputPortType(signal.name));
    if (!shape.valid()) {
        return {};
    }
    std::vector<std::pair<Elements, PureValueRef>> scalars;
    for (const CompoundDecorIndex index : shape) {
        Elements path;
        for (const CompoundDecorIndex::Step &step : index.steps()) {
            path.push_back({step.kind, std::vector<std::size_t>{static_cast<std::size_t>(step.index)}});
        }
        scalars.emplace_back(std::move(path), signal.isPort ? handle.getCompoundInputIndexName(signal.name, index)
                                                            : handle.getCompoundOutputIndexName(signal.name, index));
    }
    return scalars;
}

bool isLaneOrPart(const NameStep &step) {
    return step.kind == NameStep::Kind::Lane || step.kind == NameStep::Kind::Part;
}

void dropLanes(Place &place) {
    std::erase_if(place.steps, isLaneOrPart);
    place.keySteps = 0;
}

/// What all lanes of a block read at the port `name` of theirs is no element of the signal.
void dropLanesOfShared(std::vector<Place> &places, const PureValueRef &name) {
    const auto lanesOf = [](const Place &place) {
        std::vector<const Value *> lanes;
        for (const NameStep &step : place.steps) {
            if (isLaneOrPart(step)) {
                lanes.push_back(step.value.get_ptr());
            }
        }
        return lanes;
    };
    std::unordered_map<const Wire *, std::set<std::vector<const Value *>>> lanes;
    for (const Place &place : places) {
        if (place.key == name) {
            lanes[place.wire].insert(lanesOf(place));
        }
    }
    for (Place &place : places) {
        if (place.key == name && lanes[place.wire].size() > 1) {
            dropLanes(place);
        }
    }
}

/// Leaves only places that have some of the elements, and says which of theirs those are if not all.
void keepElements(std::vector<Place> &places, const Elements &elements) {
    std::vector<Place> kept;
    for (Place &place : places) {
        const std::optional<Elements> inside = place.path ? wantedInside(elements, *place.path) : elements;
        if (!inside) {
            continue;
        }
        if (!inside->empty()) {
            place.note += (place.note.empty() ? "" : ", ") + elementsText(*inside) + " of it";
        }
        kept.push_back(std::move(place));
    }
    places = std::move(kept);
}

/// Packs at scheduled models are named by the port or wire alone, which several models may have: the pack is of the one
/// that it is wired to.
const Block *ownerOf(const Block &pack, const Block &named, const NameOrigins &origins) {
    constexpr int levels = 16;
    const bool splits = isOf(pack, kUnpacks);
    const Block *at = &pack;
    for (int level = 0; level < levels; ++level) {
        const Block *next = nullptr;
        if (splits) {
            for (const Wire &wire : *at) {
                next = wire.port_size() == 0 ? next : &(*wire.port_begin()).getBlock();
            }
        } else {
            for (const Port &port : at->ports()) {
                next = port.peekWire() == nullptr ? next : &port.peekWire()->getBlock();
            }
        }
        const NameOrigin origin = next == nullptr ? NameOrigin() : origins.originOf(*next);
        const bool isScheduled = origin && origin.block->type() == A_SCHEDULED_MODEL_BLOCK.get_ptr();
        if (!isScheduled) {
            return &named;
        }
        if (!has(origin.steps, NameStep::Kind::Port)) {
            return origin.block;
        }
        at = next;
    }
    return &named;
}

class Tracer {
  public:
    Tracer(const Design &source, const Design &lowered) : mSource(source), mWiring(source) {
        const NameOrigins origins(source);
        for (const Model &model : lowered) {
            for (const Block &block : model) {
                if (NameOrigin origin = origins.originOf(block)) {
                    const bool isAtScheduled = origin.block->type() == A_SCHEDULED_MODEL_BLOCK.get_ptr() &&
                                               has(origin.steps, NameStep::Kind::Port);
                    origin.block = isAtScheduled ? ownerOf(block, *origin.block, origins) : origin.block;
                    mMade[origin.block].push_back({origin.block, &block, std::move(origin.steps)});
                }
            }
        }
        for (const auto &[block, all] : mMade) {
            for (const Made &made : all) {
                mOrigins.emplace(made.block, &made);
            }
        }
    }

    std::vector<SignalTrace> trace(const SignalName &signal) {
        add(signal, "", {});
        // The list grows while it is gone through.
        for (std::size_t i = 0; i < mPending.size(); ++i) {
            const Pending pending = mPending[i];
            SignalTrace trace{textOf(pending.signal), pending.via, {}, ""};
            std::vector<Place> places = placesOf(pending.signal);
            const bool isThere = !places.empty();
            tellElements(pending.signal, places);
            keepElements(places, pending.elements);
            for (const Place &place : places) {
                trace.places.push_back(inWords(place));
            }
            if (!isThere) {
                trace.gone = follow(pending.signal, pending.elements);
            } else if (places.empty()) {
                trace.gone = "gone: others of its elements are there, but none of these";
            }
            mTraces.push_back(std::move(trace));
        }
        return std::move(mTraces);
    }

  private:
    struct Pending {
        SignalName signal;
        std::string via;
        Elements elements;
    };

    void add(const SignalName &signal, const std::string &via, const Elements &elements) {
        mGoesOn = true;
        if (mSeen.insert({signal.block, signal.name.get_ptr(), signal.isPort, elements}).second) {
            mPending.push_back({signal, elements.empty() ? via : via + ": " + elementsText(elements), elements});
        }
    }
    void addDriver(const Port *port, const std::string &via, const Elements &elements) {
        if (const Wire *wire = port == nullptr ? nullptr : port->peekWire()) {
            add({&wire->getBlock(), wire->getName(), false}, via, elements);
        }
    }

    /// Says of each place which element of the signal it is, as far as names and types tell.
    void tellElements(const SignalName &signal, std::vector<Place> &places) {
        const bool isDivided = std::any_of(places.begin(), places.end(), [](const Place &place) {
            return place.pin != nullptr || !place.inner.empty() ||
                   std::any_of(place.steps.begin(), place.steps.end(), isLaneOrPart);
        });
        if (!isDivided) {
            for (Place &place : places) {
                place.path = place.path ? place.path : Elements();
            }
            return;
        }
        const std::optional<CompoundTypeInfo> shape = mWiring.shapeOf(*signal.block, signal.name, signal.isPort);
        std::map<const Made *, std::vector<Elements>> pins;
        for (Place &place : places) {
            if (place.pin != nullptr) {
                const auto [pin, isNew] = pins.try_emplace(place.pin);
                if (isNew && shape) {
                    pin->second = elementsOfPin(*place.pin, *shape);
                }
                tellElementOfPin(place, pin->second);
            } else if (!place.inner.empty()) {
                place.path = elementsAlong(place.inner, shape);
                place.note = pathText(*place.path);
            } else if (!place.path) {
                const auto key = place.steps.end() - static_cast<std::ptrdiff_t>(place.keySteps);
                if (auto named = readNamedElement({place.steps.begin(), key}, {key, place.steps.end()}, shape)) {
                    place.path = std::move(named->path);
                    place.words = std::move(named->words);
                }
            }
        }
    }
    /// A pin that took the place of another has the elements of all its signals on ports numbered through. Which each
    /// is can be told if there was a single signal.
    static std::vector<Elements> elementsOfPin(const Made &pin, const CompoundTypeInfo &shape) {
        if (pin.source->port_size() != 1) {
            return {};
        }
        std::vector<NameStep> substitutes;
        std::copy_if(pin.steps.begin(), pin.steps.end(), std::back_inserter(substitutes),
                     [](const NameStep &step) { return step.kind == NameStep::Kind::Substitute; });
        std::vector<Elements> elements = elementsInOrder(substitutes, shape);
        return elements.size() == pin.block->getWireCount() ? std::move(elements) : std::vector<Elements>();
    }
    static void tellElementOfPin(Place &place, const std::vector<Elements> &elements) {
        const std::optional<std::size_t> number = numberOf(place.key);
        if (!number || *number >= elements.size()) {
            place.note = "one of the elements of its signals";
            return;
        }
        place.path = elements[*number];
        place.note = pathText(*place.path);
    }

    const std::vector<Made> &madeFrom(const Block &block) const {
        static const std::vector<Made> none;
        const auto at = mMade.find(&block);
        return at == mMade.end() ? none : at->second;
    }

    std::vector<Place> placesOf(const SignalName &signal) const {
        const Block &source = *signal.block;
        std::vector<Place> places;
        for (const Made &made : madeFrom(source)) {
            const auto key = std::find_if(made.steps.begin(), made.steps.end(),
                                          [](const NameStep &step) { return step.kind == NameStep::Kind::Port; });
            if (key != made.steps.end()) {
                if (key->value == signal.name) {
                    addBeside(made, signal, places);
                }
            } else if (isInPlace(made) && !addScalars(made, signal, places)) {
                const std::size_t known = places.size();
                addMatching(made, signal, places);
                const PureValueRef input = places.size() == known ? inputOfPipe(signal) : PureValueRef();
                if (input) {
                    addMatching(made, {signal.block, input, false}, places);
                }
            }
        }
        if (places.empty() && isOf(source, kRouting)) {
            addJoints(signal, places);
        } else if (places.empty() && !signal.isPort) {
            // What a block computed may come out of several that were made for it.
            for (const Made &made : madeFrom(source)) {
                if (!has(made.steps, NameStep::Kind::Port)) {
                    addMatching(made, signal, places);
                }
            }
        }
        if (signal.isPort) {
            dropLanesOfShared(places, signal.name);
        } else {
            goOn(places);
        }
        std::stable_partition(places.begin(), places.end(), [](const Place &place) { return place.isJoint; });
        return places;
    }

    /// What a block made at the signal tells: a pack behind a wire and an unpack in front of a port are all of it.
    /// Where a pair of a pack and an unpack went, what each output of the unpack had as its type is brought about by a
    /// block of its own, where that was another than its source's.
    static void addBeside(const Made &made, const SignalName &signal, std::vector<Place> &places) {
        const Value *type = made.block->type();
        const bool brings = type == A_CAST_BLOCK.get_ptr() || type == A_TYPE_PIN_BLOCK.get_ptr();
        if (signal.isPort ? isOf(*made.block, kUnpacks) : isOf(*made.block, kPacks)) {
            addAll(made, signal.isPort, true, places);
        } else if (!signal.isPort && isOf(*signal.block, kUnpacks) && brings) {
            const std::size_t known = places.size();
            addAll(made, false, false, places);
            // What was made may have no wires.
            for (std::size_t i = known; i < places.size(); ++i) {
                places[i].inner = innerNumbers(made);
            }
        }
    }

    /// The elements of a pipe's main output have the name of the input that it gives on. Null for all else.
    static PureValueRef inputOfPipe(const SignalName &signal) {
        const bool isOfPipe = !signal.isPort && signal.name == A_PRIM_WIRE_OUT;
        const Port *input = isOfPipe && signal.block->type() == A_PIPE_BLOCK.get_ptr()
                                ? internal::pipeInput(*signal.block, signal.name)
                                : nullptr;
        return input == nullptr ? PureValueRef() : input->getName();
    }

    /// A scheduled model may have a scalar of the name that a compound signal had. False if it is no such model, or
    /// still has the signals that it had.
    static bool addScalars(const Made &made, const SignalName &signal, std::vector<Place> &places) {
        const bool isTakenApart = (*made.block)[A_SCHEDULED_MODEL_ORIGINAL_TYPES] == A_FALSE;
        const auto scalars = isTakenApart ? scalarsOf(signal) : std::vector<std::pair<Elements, PureValueRef>>();
        for (const auto &[path, name] : scalars) {
            const Port *port = signal.isPort && name ? made.block->getPort(name) : nullptr;
            const Wire *wire = !signal.isPort && name ? made.block->getWire(name)
                               : port != nullptr      ? port->peekWire()
                                                      : nullptr;
            if (wire != nullptr) {
                places.push_back({wire, signal.isPort ? made.block : nullptr, name, made.steps, false, pathText(path)});
                places.back().path = path;
            }
        }
        return !scalars.empty();
    }

    /// The packs and unpacks that took the place of what joins vectors or splits them.
    void addJoints(const SignalName &signal, std::vector<Place> &places) const {
        const bool splits = signal.block->type() == A_VSPLIT_BLOCK.get_ptr();
        const std::string name = signal.name->toString();
        const std::string word = signal.isPort ? (splits ? "vup" : "vup" + name) : (splits ? "vp" + name : "vp");
        for (const Made &made : madeFrom(*signal.block)) {
            const bool isJoint = signal.isPort ? isOf(*made.block, kUnpacks) : isOf(*made.block, kPacks);
            if (isJoint && wordOf(made) == word) {
                addAll(made, signal.isPort, true, places);
            }
        }
        const std::optional<std::size_t> part = numberOf(signal.name);
        if (!places.empty() || !splits || signal.isPort || !part) {
            return;
        }
        // An output of one element needs no pack, and others' packs may be gone.
        for (const Made &made : madeFrom(*signal.block)) {
            if (wordOf(made) == "vup" && isOf(*made.block, kUnpacks)) {
                addElements(made, *part, places);
            }
        }
    }
    static void addElements(const Made &unpack, std::size_t part, std::vector<Place> &places) {
        const auto [at, length] = partOfSplit(*unpack.source, part, unpack.block->getWireCount());
        for (const Wire &wire : *unpack.block) {
            const std::optional<std::size_t> number = numberOf(wire.getName());
            if (number && *number >= at && *number - at < length) {
                Place place{&wire, nullptr, wire.getName(), unpack.steps, false, ""};
                place.note = length == 1 ? "" : fmt::format("element {}", *number - at);
                place.path = Elements();
                if (length != 1) {
                    place.path->push_back({CompoundKind::Vector, std::vector<std::size_t>{*number - at}});
                }
                places.push_back(std::move(place));
            }
        }
    }

    /// What brings a result into shape, or adds to it, is all that reads the result itself.
    void goOn(std::vector<Place> &places) const {
        std::set<const Wire *> known;
        std::vector<Place> kept;
        for (Place &place : places) {
            std::set<const Wire *> passed;
            const Made *next = place.isJoint || !place.inner.empty() ? nullptr : onlyShape(*place.wire);
            while (next != nullptr && passed.insert(place.wire).second) {
                place.wire = &*next->block->begin();
                place.steps = next->steps;
                place.keySteps = 0;
                next = onlyShape(*place.wire);
            }
            if (known.insert(place.wire).second) {
                kept.push_back(std::move(place));
            }
        }
        places = std::move(kept);
    }
    /// The block made beside the one of this wire that alone reads it; null if there is none.
    const Made *onlyShape(const Wire &wire) const {
        const auto own = mOrigins.find(&wire.getBlock());
        const Block *reader = nullptr;
        for (const Port &port : wire.ports()) {
            if (reader != nullptr && reader != &port.getBlock()) {
                return nullptr;
            }
            reader = &port.getBlock();
        }
        const auto at = reader == nullptr ? mOrigins.end() : mOrigins.find(reader);
        if (own == mOrigins.end() || at == mOrigins.end()) {
            return nullptr;
        }
        const Made &made = *at->second;
        const bool isShape = made.source == own->second->source && !wordOf(made).empty() && made.block->size() == 1;
        return isShape ? &made : nullptr;
    }

    static void addMatching(const Made &made, const SignalName &signal, std::vector<Place> &places) {
        if (isRenumbered(made)) {
            const std::size_t known = places.size();
            addAll(made, signal.isPort, false, places);
            for (std::size_t i = known; i < places.size(); ++i) {
                places[i].pin = &made;
            }
            return;
        }
        std::vector<NameStep> outer = made.steps;
        const PureValueRef wanted = signal.isPort ? signal.name : nameInLane(made, signal.name, outer);
        const auto take = [&](const PureValueRef &name, const Wire *wire) {
            std::vector<NameStep> steps = outer;
            if (wanted && wire != nullptr && continuesName(name, wanted, steps)) {
                places.push_back({wire, signal.isPort ? made.block : nullptr, name, std::move(steps), false, ""});
                places.back().keySteps = places.back().steps.size() - outer.size();
            }
        };
        if (signal.isPort) {
            for (const Port &port : made.block->ports()) {
                take(port.getName(), port.peekWire());
            }
        } else {
            for (const Wire &wire : *made.block) {
                take(wire.getName(), &wire);
            }
        }
    }

    /// The lanes of a demultiplexer number their outputs from 0, those of the first lane coming first. Null for an
    /// output of another lane; the lane is no step then, for an output is whole.
    static PureValueRef nameInLane(const Made &made, const PureValueRef &name, std::vector<NameStep> &steps) {
        const auto lane = std::adjacent_find(steps.begin(), steps.end(), [](const NameStep &a, const NameStep &b) {
            return a.kind == NameStep::Kind::Substitute && b.kind == NameStep::Kind::Lane;
        });
        if (made.source->type() != A_DEMUX_BLOCK.get_ptr() || lane == steps.end()) {
            return name;
        }
        const std::optional<std::size_t> number = numberOf(name);
        const std::optional<std::size_t> channels =
            numberOf(PureValueRef(made.source->getParam(A_DEMUX_CHANNEL_COUNT)));
        if (!number || !channels || *channels == 0 || numberOf((lane + 1)->value) != *number / *channels) {
            return {};
        }
        steps.erase(lane + 1);
        return PureValueRef(NumberValue::get(static_cast<int>(*number % *channels), name->context()));
    }

    static bool isRenumbered(const Made &made) {
        return made.source->type() == A_TYPE_PIN_BLOCK.get_ptr() && has(made.steps, NameStep::Kind::Substitute);
    }
    static void addAll(const Made &made, bool isPort, bool isJoint, std::vector<Place> &places) {
        const std::vector<std::size_t> inner = isJoint ? innerNumbers(made) : std::vector<std::size_t>();
        const auto add = [&](const Wire &wire, const Block *reader, const PureValueRef &key) {
            places.push_back({&wire, reader, key, made.steps, isJoint && inner.empty(), ""});
            places.back().inner = inner;
        };
        if (isPort) {
            for (const Port &port : made.block->ports()) {
                if (const Wire *wire = port.peekWire()) {
                    add(*wire, made.block, port.getName());
                }
            }
            return;
        }
        for (const Wire &wire : *made.block) {
            add(wire, nullptr, wire.getName());
        }
    }

    static SignalPlace inWords(const Place &from) {
        const Block &block = from.wire->getBlock();
        SignalPlace place;
        place.model = block.getModel().getName()->toString();
        place.block = block.getName()->toString();
        place.wire = from.wire->getName()->toString();
        if (from.reader != nullptr) {
            place.reader = from.reader->getName()->toString() + "." + from.key->toString();
        }
        if (from.words.empty()) {
            std::transform(from.steps.begin(), from.steps.end(), std::back_inserter(place.steps), describe);
        } else {
            place.steps = from.words;
        }
        if (!from.note.empty()) {
            place.steps.push_back(from.note);
        }
        place.isJoint = from.isJoint;
        return place;
    }

    /// Goes on with what drives a signal that is nowhere; gives the reason if there is nothing to go on with.
    std::string follow(const SignalName &signal, const Elements &elements) {
        const Block &block = *signal.block;
        const std::string model = block.getModel().getName()->toString();
        const std::string name = block.getName()->toString();
        mGoesOn = false;
        const std::vector<Made> &made = madeFrom(block);
        const bool isThere = !made.empty();
        const bool isInItsPlace = std::any_of(made.begin(), made.end(), isInPlace);
        if (signal.isPort) {
            const char *what = isInItsPlace ? "has no such port any more"
                               : isThere    ? "is only there as blocks made beside it"
                                            : "is gone";
            addDriver(block.getPort(signal.name),
                      fmt::format("block '{}' of model '{}' {}; what it read", name, model, what), elements);
        } else if (block.type() == A_INPUT_BLOCK.get_ptr() && !isThere) {
            for (const Block *instance : block.getModel().getParentBlocks()) {
                addDriver(instance->getPort(signal.name),
                          fmt::format("model '{}' dissolved; what its instance '{}' of model '{}' read", model,
                                      instance->getName()->toString(), instance->getModel().getName()->toString()),
                          elements);
            }
        } else if (const Model *below = isThere ? nullptr : instantiated(block)) {
            for (const Block *output : below->getOutputBlocks()) {
                addDriver(output->getPort(signal.name),
                          fmt::format("model '{}' dissolved; what its output read", below->getName()->toString()),
                          elements);
            }
        } else if (block.type() == A_FROM_BLOCK.get_ptr() && !isThere) {
            followTag(block, elements);
        } else if (!isInItsPlace && (isOf(block, kPacks) || isOf(block, kUnpacks) || isOf(block, kRouting))) {
            const std::string via = fmt::format("block '{}' of model '{}' was wiring; what it read", name, model);
            for (const WiringElements::Source &from : mWiring.sourcesOf(block, signal.name, elements)) {
                addDriver(from.port, via, from.elements);
            }
        }
        return mGoesOn ? std::string() : reasonOf(signal, isThere);
    }

    static std::string reasonOf(const SignalName &signal, bool isThere) {
        if (signal.isPort) {
            return "nothing in the lowered design reads it so any more";
        }
        const Wire *wire = signal.block->getWire(signal.name);
        if (wire == nullptr || wire->port_size() == 0) {
            return "gone: nothing read it";
        }
        return isThere ? "gone: its block is there without this wire"
                       : "gone: nothing that was used depended on it, or it was folded into something else";
    }

    void followTag(const Block &from, const Elements &elements) {
        const PureValueRef tag(from.getParam(A_GOTO_TAG));
        const Wire *wire = tag ? wireOfTag(from.getModel(), tag) : nullptr;
        if (wire != nullptr) {
            add({&wire->getBlock(), wire->getName(), false},
                fmt::format("block '{}' was wiring; what the Goto of its tag read", from.getName()->toString()),
                elements);
        }
    }
    /// Null if no Goto of the tag reaches the model.
    const Wire *wireOfTag(const Model &model, const PureValueRef &tag) {
        if (!mPlaces) {
            mPlaces.emplace(mSource);
            enterTags();
        }
        const std::optional<TagKey> key = mTags.find(model, tag);
        if (!key) {
            return nullptr;
        }
        const Senders &senders = mSenders.at(*key);
        const Model *giver =
            mPlaces->giver(model, *senders.last, [&senders](const Model &at) { return senders.wires.count(&at) != 0; });
        return giver == nullptr ? nullptr : senders.wires.at(giver);
    }
    void enterTags() {
        for (const Model &model : mSource) {
            for (const Block &block : model) {
                const bool isGoto = block.type() == A_GOTO_BLOCK.get_ptr();
                const Wire *wire = isGoto ? signalOfGoto(block) : nullptr;
                const PureValueRef tag(isGoto ? block.getParam(A_GOTO_TAG) : ValueRef());
                if (wire != nullptr && tag) {
                    Senders &senders = mSenders[mTags.enter(block, tag)];
                    senders.last = &model;
                    senders.wires[&model] = wire;
                }
            }
        }
    }

    const Design &mSource;
    WiringElements mWiring;
    std::unordered_map<const Block *, std::vector<Made>> mMade;
    /// Of blocks of the lowered design, in `mMade`.
    std::unordered_map<const Block *, const Made *> mOrigins;
    std::set<std::tuple<const Block *, const Value *, bool, Elements>> mSeen;
    std::deque<Pending> mPending;
    /// Whether following the last signal led to another, be it one that was met before.
    bool mGoesOn = false;
    std::vector<SignalTrace> mTraces;
    /// The signals of a tag's Gotos.
    struct Senders {
        const Model *last = nullptr;
        std::unordered_map<const Model *, const Wire *> wires;
    };
    /// Of the source's Gotos; empty until a From asks.
    GotoTags mTags;
    std::map<TagKey, Senders> mSenders;
    std::optional<ModelPlaces> mPlaces;
};

} // namespace

FoundSignal findSignal(const Design &design, const std::string &path) {
    FoundSignal found = Finder().find(design, path);
    const std::string plain = found.signal ? path : withoutMarks(path);
    return plain == path ? found : Finder().find(design, plain);
}

std::vector<SignalTrace> traceSignal(const SignalName &signal, const Design &source, const Design &lowered) {
    return Tracer(source, lowered).trace(signal);
}

} // namespace orvo::driver
