// Missing types in the words of the library's reports, with the list of what is missing behind them.
#include "driver/typefailures.h"

#include "driver/designroots.h"
#include "driver/suggest.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/typeinferdebug.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <fmt/format.h>

#include <set>
#include <sstream>

namespace orvo::driver {

namespace {

std::string pathOf(const BlockLocationSpec &location) {
    return location.instance->path->str() + "/" + location.block->getName()->toString();
}

const char *kindName(CauseSpec::Kind kind) {
    switch (kind) {
    case CauseSpec::Kind::ExternalInput:
        return "external";
    case CauseSpec::Kind::Block:
        return "block";
    case CauseSpec::Kind::Loop:
        return "loop";
    }
    return "";
}

Json toJson(const CauseSpec &cause) {
    Json json;
    json["kind"] = kindName(cause.kind);
    json["instance"] = cause.instance->path->str();
    json["input"] = cause.input ? Json(cause.input->toString()) : Json();
    json["blocks"] = Json::array();
    for (const Block *block : cause.blocks) {
        json["blocks"].push_back({{"block", block->getName()->toString()},
                                  {"type", block->type() != nullptr ? Json(block->type()->toString()) : Json()}});
    }
    return json;
}

} // namespace

struct TypeFailures::Impl {
    Impl(GlobalTypePass &types, const Design &checked) : debug(types, designRoots(checked)) { debug.locations(); }

    struct Trace {
        std::string block;
        std::string text;
    };
    mutable TypeInferDebug debug;
    std::vector<Trace> traces;
};

TypeFailures::TypeFailures(GlobalTypePass &types, const Design &design)
    : mImpl(std::make_unique<Impl>(types, design)) {}
TypeFailures::~TypeFailures() = default;

bool TypeFailures::any() const { return mImpl->debug.invalidTypesPresent(); }

std::size_t TypeFailures::blocks() const { return mImpl->debug.locations().size(); }

std::size_t TypeFailures::models() const {
    std::set<const ModelInstance *> instances;
    for (const BlockLocationSpec *location : mImpl->debug.locations()) {
        instances.insert(location->instance);
    }
    return instances.size();
}

std::string TypeFailures::addTrace(const std::string &block) {
    const BlockLocationSpec *found = nullptr;
    std::vector<std::string> known;
    for (const BlockLocationSpec *location : mImpl->debug.locations()) {
        known.push_back(pathOf(*location));
        if (known.back() == block) {
            found = location;
            break;
        }
        if (location->block->getName()->toString() != block) {
            continue;
        }
        if (found != nullptr) {
            return fmt::format("several blocks named '{}' lack types, such as '{}' and '{}'", block, pathOf(*found),
                               known.back());
        }
        found = location;
    }
    if (found == nullptr) {
        const std::string near = suggest(block, known);
        return fmt::format("no block '{}' lacks types{}", block,
                           near.empty() ? "" : fmt::format(": did you mean '{}'?", near));
    }
    std::ostringstream out;
    mImpl->debug.getLikelyFailureTrace(out, *found->block, found->instance->chain);
    mImpl->traces.push_back({pathOf(*found), out.str()});
    return {};
}

std::string TypeFailures::text() const {
    if (!any()) {
        return {};
    }
    std::ostringstream out;
    mImpl->debug.getLikelyFailureCause(out);
    for (const Impl::Trace &trace : mImpl->traces) {
        out << "\n" << trace.text;
    }
    const ModelInstance *instance = nullptr;
    for (const BlockLocationSpec *location : mImpl->debug.locations()) {
        if (location->instance != instance) {
            instance = location->instance;
            out << "\n" << instance->path->str() << " lacks the types of\n";
        }
        const std::string block = location->block->getName()->toString();
        for (const Port *port : location->ports) {
            out << fmt::format("  {:<28} port {}\n", block, port->getName()->toString());
        }
        for (const Wire *wire : location->wires) {
            out << fmt::format("  {:<28} wire {}\n", block, wire->getName()->toString());
        }
    }
    return out.str();
}

Json TypeFailures::json() const {
    Json json;
    json["causes"] = Json::array();
    for (const CauseSpec *cause : mImpl->debug.causes()) {
        json["causes"].push_back(toJson(*cause));
    }
    json["traces"] = Json::array();
    for (const Impl::Trace &trace : mImpl->traces) {
        json["traces"].push_back({{"block", trace.block}, {"text", trace.text}});
    }
    json["missing"] = Json::array();
    for (const BlockLocationSpec *location : mImpl->debug.locations()) {
        const auto add = [&](const char *end, const PureValueRef &name) {
            json["missing"].push_back({{"instance", location->instance->path->str()},
                                       {"block", location->block->getName()->toString()},
                                       {"end", end},
                                       {"name", name->toString()}});
        };
        for (const Port *port : location->ports) {
            add("port", port->getName());
        }
        for (const Wire *wire : location->wires) {
            add("wire", wire->getName());
        }
    }
    return json;
}

} // namespace orvo::driver
