// One index over the lowered design, from blocks of the source to what came from them; then the signal, and what drives
// it as long as its own block is nothing but wiring that is gone.
#include "driver/signaltrace.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/nameorigin.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>

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
constexpr const StaticString *kRouting[] = {&A_TERMINAL_BLOCK, &A_VCONCAT_BLOCK, &A_VSPLIT_BLOCK};

template <std::size_t N> bool isOf(const Block &block, const StaticString *const (&types)[N]) {
    return std::any_of(std::begin(types), std::end(types),
                       [&block](const StaticString *type) { return block.type() == type->get_ptr(); });
}

std::string textOf(const SignalName &signal) {
    return signal.block->getModel().getName()->toString() + "/" + signal.block->getName()->toString() + "." +
           signal.name->toString();
}

class Tracer {
  public:
    Tracer(const Design &source, const Design &lowered) : mSource(source) {
        const NameOrigins origins(source);
        for (const Model &model : lowered) {
            for (const Block &block : model) {
                if (NameOrigin origin = origins.originOf(block)) {
                    mMade[origin.block].push_back({&block, std::move(origin.steps)});
                }
            }
        }
    }

    std::vector<SignalTrace> trace(const SignalName &signal) {
        add(signal, "");
        // The list grows while it is gone through.
        for (std::size_t i = 0; i < mPending.size(); ++i) {
            const Pending pending = mPending[i];
            SignalTrace trace{textOf(pending.signal), pending.via, placesOf(pending.signal), ""};
            if (trace.places.empty()) {
                trace.gone = follow(pending.signal);
            }
            mTraces.push_back(std::move(trace));
        }
        return std::move(mTraces);
    }

  private:
    struct Made {
        const Block *block;
        std::vector<NameStep> steps;
    };
    struct Pending {
        SignalName signal;
        std::string via;
    };

    void add(const SignalName &signal, const std::string &via) {
        mGoesOn = true;
        if (mSeen.insert({signal.block, signal.name.get_ptr(), signal.isPort}).second) {
            mPending.push_back({signal, via});
        }
    }
    void addDriver(const Port *port, const std::string &via) {
        if (const Wire *wire = port == nullptr ? nullptr : port->peekWire()) {
            add({&wire->getBlock(), wire->getName(), false}, via);
        }
    }
    void addDrivers(const Block &block, const std::string &via) {
        for (const Port &port : block.ports()) {
            addDriver(&port, via);
        }
    }

    const std::vector<Made> &madeFrom(const Block &block) const {
        static const std::vector<Made> none;
        const auto at = mMade.find(&block);
        return at == mMade.end() ? none : at->second;
    }

    std::vector<SignalPlace> placesOf(const SignalName &signal) const {
        std::vector<SignalPlace> places;
        for (const Made &made : madeFrom(*signal.block)) {
            const auto key = std::find_if(made.steps.begin(), made.steps.end(),
                                          [](const NameStep &step) { return step.kind == NameStep::Kind::Port; });
            if (key != made.steps.end()) {
                // A pack behind a wire, an unpack in front of a port.
                const bool isItsOwn = key->value == signal.name &&
                                      (signal.isPort ? isOf(*made.block, kUnpacks) : isOf(*made.block, kPacks));
                if (isItsOwn) {
                    addAll(made, signal.isPort, true, places);
                }
            } else if (NameOrigin{made.block, made.steps}.standsForBlock()) {
                addMatching(made, signal, places);
            }
        }
        // What a block computed may come out of several that were made for it.
        for (const Made &made : places.empty() ? madeFrom(*signal.block) : std::vector<Made>()) {
            const bool isAtPort = std::any_of(made.steps.begin(), made.steps.end(),
                                              [](const NameStep &step) { return step.kind == NameStep::Kind::Port; });
            if (!isAtPort && !signal.isPort) {
                addMatching(made, signal, places);
            }
        }
        return places;
    }

    static void addMatching(const Made &made, const SignalName &signal, std::vector<SignalPlace> &places) {
        if (isRenumbered(made, *signal.block)) {
            addAll(made, signal.isPort, false, places);
            addNumbers(*signal.block, places);
            return;
        }
        const auto take = [&](const PureValueRef &name, const Wire *wire) {
            std::vector<NameStep> steps = made.steps;
            if (wire != nullptr && continuesName(name, signal.name, steps)) {
                places.push_back(placeOf(*wire, steps, signal.isPort ? made.block : nullptr, name));
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

    /// A pin that took the place of another has the elements of all its signals on ports numbered through.
    static bool isRenumbered(const Made &made, const Block &source) {
        return source.type() == A_TYPE_PIN_BLOCK.get_ptr() &&
               std::any_of(made.steps.begin(), made.steps.end(),
                           [](const NameStep &step) { return step.kind == NameStep::Kind::Substitute; });
    }
    /// Which element each is can be told if there was a single signal.
    static void addNumbers(const Block &source, std::vector<SignalPlace> &places) {
        for (SignalPlace &place : places) {
            place.steps.push_back(source.port_size() > 1 ? "one of the elements of its signals"
                                                         : "element " + place.key);
        }
    }

    static void addAll(const Made &made, bool isPort, bool isJoint, std::vector<SignalPlace> &places) {
        const std::size_t known = places.size();
        if (isPort) {
            for (const Port &port : made.block->ports()) {
                if (const Wire *wire = port.peekWire()) {
                    places.push_back(placeOf(*wire, made.steps, made.block, port.getName()));
                }
            }
        } else {
            for (const Wire &wire : *made.block) {
                places.push_back(placeOf(wire, made.steps, nullptr, wire.getName()));
            }
        }
        for (std::size_t i = known; i < places.size(); ++i) {
            places[i].isJoint = isJoint;
        }
    }

    static SignalPlace placeOf(const Wire &wire, const std::vector<NameStep> &steps, const Block *reader,
                               const PureValueRef &port) {
        const Block &block = wire.getBlock();
        SignalPlace place;
        place.model = block.getModel().getName()->toString();
        place.block = block.getName()->toString();
        place.wire = wire.getName()->toString();
        place.key = port->toString();
        if (reader != nullptr) {
            place.reader = reader->getName()->toString() + "." + port->toString();
        }
        for (const NameStep &step : steps) {
            place.steps.push_back(describe(step));
        }
        return place;
    }

    /// Goes on with what drives a signal that is nowhere; gives the reason if there is nothing to go on with.
    std::string follow(const SignalName &signal) {
        const Block &block = *signal.block;
        const std::string model = block.getModel().getName()->toString();
        const std::string name = block.getName()->toString();
        mGoesOn = false;
        const bool isThere = !madeFrom(block).empty();
        if (signal.isPort) {
            addDriver(block.getPort(signal.name),
                      fmt::format("block '{}' of model '{}' is gone; what it read", name, model));
        } else if (block.type() == A_INPUT_BLOCK.get_ptr() && !isThere) {
            for (const Block *instance : block.getModel().getParentBlocks()) {
                addDriver(instance->getPort(signal.name),
                          fmt::format("model '{}' dissolved; what its instance '{}' of model '{}' read", model,
                                      instance->getName()->toString(), instance->getModel().getName()->toString()));
            }
        } else if (const Model *below = isThere ? nullptr : instantiated(block)) {
            for (const Block *output : below->getOutputBlocks()) {
                addDriver(output->getPort(signal.name),
                          fmt::format("model '{}' dissolved; what its output read", below->getName()->toString()));
            }
        } else if (block.type() == A_FROM_BLOCK.get_ptr() && !isThere) {
            followTag(block);
        } else if (!isThere && (isOf(block, kPacks) || isOf(block, kUnpacks) || isOf(block, kRouting))) {
            addDrivers(block, fmt::format("block '{}' of model '{}' was wiring; what it read", name, model));
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

    /// The Gotos of the tag in the same model or, where there are none, in all.
    void followTag(const Block &from) {
        const std::string via =
            fmt::format("block '{}' was wiring; what the Goto of its tag read", from.getName()->toString());
        const ValueRef tag = from.getParam(A_GOTO_TAG);
        const auto add = [&](const Model &model) {
            for (const Block &block : model) {
                if (block.type() == A_GOTO_BLOCK.get_ptr() && block.getParam(A_GOTO_TAG) == tag) {
                    addDrivers(block, via);
                }
            }
        };
        add(from.getModel());
        if (!mGoesOn) {
            for (const Model &model : mSource) {
                add(model);
            }
        }
    }

    const Design &mSource;
    std::unordered_map<const Block *, std::vector<Made>> mMade;
    std::set<std::tuple<const Block *, const Value *, bool>> mSeen;
    std::deque<Pending> mPending;
    /// Whether following the last signal led to another, be it one that was met before.
    bool mGoesOn = false;
    std::vector<SignalTrace> mTraces;
};

} // namespace

FoundSignal findSignal(const Design &design, const std::string &path) { return Finder().find(design, path); }

std::vector<SignalTrace> traceSignal(const SignalName &signal, const Design &source, const Design &lowered) {
    return Tracer(source, lowered).trace(signal);
}

} // namespace orvo::driver
