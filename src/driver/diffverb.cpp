// The verb "diff": what changed between two designs.
#include "driver/verbs.h"

#include "driver/designdiff.h"
#include "driver/jsontext.h"
#include "driver/openeddesign.h"

#include <orvo/context.h>
#include <orvo/design.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

using What = DesignChange::What;
using How = DesignChange::How;

struct Arguments {
    std::string first;
    std::string second;
    std::size_t limit = 1000;
};

const char *nameOf(What what) {
    switch (what) {
    case What::Model:
        return "model";
    case What::Block:
        return "block";
    case What::Param:
        return "param";
    case What::Port:
        return "port";
    case What::Wire:
        return "wire";
    case What::WireParam:
        return "wire_param";
    }
    return "";
}

const char *nameOf(How how) { return how == How::Added ? "added" : how == How::Removed ? "removed" : "changed"; }
char markOf(How how) { return how == How::Added ? '+' : how == How::Removed ? '-' : '~'; }

/// Whole tuples of coefficients would hide the rest.
std::string shortened(const std::string &value) {
    constexpr std::size_t most = 60;
    if (value.size() <= most) {
        return value;
    }
    std::size_t end = most;
    // Not inside a character of several bytes.
    while (end > 0 && (static_cast<unsigned char>(value[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return value.substr(0, end) + "...";
}

std::string valuesOf(const DesignChange &change) {
    switch (change.how) {
    case How::Added:
        return shortened(change.after);
    case How::Removed:
        return shortened(change.before);
    case How::Changed:
        return shortened(change.before) + " -> " + shortened(change.after);
    }
    return {};
}

/// What of the block or model changed, without the place.
std::string detailOf(const DesignChange &change) {
    switch (change.what) {
    case What::Wire:
        return "wire " + change.name;
    case What::WireParam:
        return fmt::format("wire {} param {}: {}", change.name, change.param, valuesOf(change));
    case What::Port:
        return fmt::format("port {}: {}", change.name, valuesOf(change));
    default:
        return fmt::format("param {}: {}", change.name, valuesOf(change));
    }
}

/// Names and values may hold anything, but each difference is one line.
std::string line(std::size_t depth, const std::string &text) {
    std::string out(depth, ' ');
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        out += c == '\n'                     ? "\\n"
               : c == '\t'                   ? "\\t"
               : byte < 0x20 || byte == 0x7F ? fmt::format("\\x{:02x}", byte)
                                             : std::string(1, c);
    }
    return out + '\n';
}

std::string text(const DesignDiff &diff) {
    std::string out;
    std::string model;
    std::string block;
    for (const DesignChange &change : diff.changes) {
        if (change.what == What::Model) {
            out += line(0, fmt::format("{} model {}", markOf(change.how), change.model));
            continue;
        }
        if (change.model != model) {
            model = change.model;
            block.clear();
            out += line(0, fmt::format("~ model {}", model));
        }
        if (change.what == What::Block) {
            out += line(2, fmt::format("{} block {} ({})", markOf(change.how), change.block, change.type));
            continue;
        }
        if (!change.block.empty() && change.block != block) {
            block = change.block;
            out += line(2, fmt::format("~ block {} ({})", block, change.type));
        }
        const std::size_t depth = change.model.empty() ? 0 : change.block.empty() ? 2 : 4;
        out += line(depth, fmt::format("{} {}", markOf(change.how), detailOf(change)));
    }
    if (diff.changes.size() < diff.count) {
        out += fmt::format("and {} more: raise --limit to see them\n", diff.count - diff.changes.size());
    }
    if (diff.count == 0) {
        return "no differences\n";
    }
    return out + fmt::format("{} differences in {} models: blocks {} added, {} removed, {} changed\n", diff.count,
                             diff.models, diff.blocksAdded, diff.blocksRemoved, diff.blocksChanged);
}

Json toJson(const DesignChange &change) {
    const auto orNull = [](const std::string &value) { return value.empty() ? Json() : Json(value); };
    return {{"change", nameOf(change.how)},  {"what", nameOf(change.what)},     {"model", orNull(change.model)},
            {"block", orNull(change.block)}, {"type", orNull(change.type)},     {"name", orNull(change.name)},
            {"param", orNull(change.param)}, {"before", orNull(change.before)}, {"after", orNull(change.after)}};
}

Json toJson(const Arguments &arguments, const DesignDiff &diff) {
    Json json{{"schema", "orvo.diff/1"},
              {"first", arguments.first},
              {"second", arguments.second},
              {"same", diff.count == 0},
              {"complete", diff.changes.size() == diff.count},
              {"differences", diff.count},
              {"models", diff.models},
              {"blocks_added", diff.blocksAdded},
              {"blocks_removed", diff.blocksRemoved},
              {"blocks_changed", diff.blocksChanged},
              {"changes", Json::array()}};
    for (const DesignChange &change : diff.changes) {
        json["changes"].push_back(toJson(change));
    }
    return json;
}

int diff(const Arguments &arguments, Console &console) {
    requireTwoInputs(arguments.first, arguments.second, console);
    Progress progress(console);
    ContextMgr guard;
    guard.context()->setListener(&console);
    const std::unique_ptr<Design> first = readDesignOfAnswer(arguments.first, guard.context(), progress, console);
    const std::unique_ptr<Design> second = readDesignOfAnswer(arguments.second, guard.context(), progress, console);
    progress.phase("comparing");
    const DesignDiff found = diffDesigns(*first, *second, arguments.limit);
    progress.hide();
    console.emit(console.json() ? documentText(toJson(arguments, found)) : text(found));
    return found.count == 0 ? kFine : kDesignErrors;
}

} // namespace

void addDiffVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "diff", "Show what changed between two designs, by block, port and parameter");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("A", arguments->first, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("B", arguments->second, "Design XML to compare it with")->type_name("FILE");
    verb->add_option("--limit", arguments->limit, "Show no more differences than this; 1000 if not given")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{0}, std::size_t{1} << 40U));
    verb->callback([&host, arguments] { host.action = [&host, arguments] { return diff(*arguments, host.console); }; });
}

} // namespace orvo::driver
