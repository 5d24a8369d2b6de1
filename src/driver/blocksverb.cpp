// The verb "blocks": the block catalogue for people.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/suggest.h"

#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/simulator.h>
#include <orvo/typeinfer.h>
#include <orvo/unrolling.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

std::string textOf(const std::string &name) {
    const std::string *text = getBlocksInfo().findMapping(name);
    return text != nullptr ? *text : name;
}

std::string firstSentence(const std::string &text) {
    const std::size_t end = text.find(". ");
    return end == std::string::npos ? text : text.substr(0, end + 1);
}

/// The catalogue's name for a constant's name or a block type's text; empty if there is none.
std::string catalogueName(const std::string &name) {
    const BlocksInfo &catalogue = getBlocksInfo();
    if (catalogue.blockExists(name)) {
        return name;
    }
    const std::string *reversed = catalogue.findReversedMapping(name);
    return reversed != nullptr && catalogue.blockExists(*reversed) ? *reversed : std::string();
}

/// The type rule in a line; null if the type has none.
const char *typeRule(const std::string &name) {
    const StringValueRef type = StringValue::get(textOf(name), ContextMgr::get());
    return typeRuleSummary(type.get_ptr());
}

bool isSimulated(const std::string &name) {
    return sim::canSimulate(StringValue::get(textOf(name), ContextMgr::get()).get_ptr());
}

UnrollFates fatesOf(const std::string &name) {
    return unrollFates(StringValue::get(textOf(name), ContextMgr::get()).get_ptr());
}

Json toJson(const UnrollFate &fate) {
    Json json;
    json["comes_apart"] = fate.comesApart;
    json["summary"] = fate.summary != nullptr ? Json(fate.summary) : Json();
    return json;
}

Json toJson(const std::string &name) {
    const BlockInfo &info = getBlocksInfo().getBlockInfo(name);
    Json json;
    json["name"] = name;
    json["text"] = textOf(name);
    json["description"] = info.description;
    const char *rule = typeRule(name);
    json["type_rule"] = rule != nullptr ? Json(rule) : Json();
    json["simulated"] = isSimulated(name);
    const UnrollFates fates = fatesOf(name);
    json["unrolling"] = {{"records", toJson(fates.records)},
                         {"vectors", toJson(fates.vectors)},
                         {"complex", toJson(fates.complexNumbers)}};
    json["connections"] = Json::array();
    for (const BlockConnection &connection : info.connections) {
        Json entry;
        entry["kind"] = connection.kind;
        entry["name"] = connection.name;
        entry["text"] = textOf(connection.name);
        entry["description"] = connection.description;
        entry["optional"] = connection.optional;
        entry["default"] = connection.defaultValue == "NONE" ? Json() : Json(connection.defaultValue);
        entry["open"] = connection.isOpen();
        entry["values"] = connection.values;
        json["connections"].push_back(std::move(entry));
    }
    return json;
}

std::string describe(const std::string &name) {
    const BlockInfo &info = getBlocksInfo().getBlockInfo(name);
    std::string text = name + " (" + textOf(name) + ")\n\n" + info.description + "\n";
    if (const char *rule = typeRule(name); rule != nullptr) {
        text += std::string("\nOutput type: ") + rule + "\n";
    }
    if (!isSimulated(name)) {
        text += "\nThe simulator knows no meaning of it.\n";
    }
    const UnrollFates fates = fatesOf(name);
    const auto tell = [&text](const char *kind, const UnrollFate &fate) {
        if (fate.summary != nullptr) {
            text += fmt::format("{} {}: {}\n", kind, fate.comesApart ? "come apart" : "stay", fate.summary);
        }
    };
    text += "\n";
    tell("Records", fates.records);
    tell("Vectors", fates.vectors);
    tell("Complex numbers", fates.complexNumbers);
    for (const BlockConnection &connection : info.connections) {
        text += fmt::format("\n{} {} ({}){}\n", connection.kind, connection.name, textOf(connection.name),
                            connection.optional ? ", optional" : "");
        text += connection.description.empty() ? "" : "  " + connection.description + "\n";
        if (!connection.isOpen() && !connection.values.empty()) {
            text += fmt::format("  values: {}\n", fmt::join(connection.values, ", "));
        }
        if (connection.defaultValue != "NONE") {
            text += "  default: " + connection.defaultValue + "\n";
        }
    }
    return text;
}

Json document(const std::vector<std::string> &names) {
    Json json;
    json["schema"] = "orvo.blocks/1";
    json["blocks"] = Json::array();
    for (const std::string &name : names) {
        json["blocks"].push_back(toJson(name));
    }
    return json;
}

[[noreturn]] void refuse(const std::string &name, Console &console) {
    std::vector<std::string> known = blockNames();
    for (const std::string &block : blockNames()) {
        known.push_back(textOf(block));
    }
    Console::Params params{{"block", name}};
    if (const std::string near = suggest(name, known); !near.empty()) {
        params["suggestion"] = near;
    }
    console.fail(kWrongUsage, "DRIVER_UNKNOWN_BLOCK", params);
}

int blocks(const std::string &name, Console &console) {
    ContextMgr guard;
    if (!name.empty()) {
        const std::string known = catalogueName(name);
        if (known.empty()) {
            refuse(name, console);
        }
        console.emit(console.json() ? documentText(document({known})) : describe(known));
        return kFine;
    }
    if (console.json()) {
        console.emit(documentText(document(blockNames())));
        return kFine;
    }
    std::string text;
    for (const std::string &block : blockNames()) {
        text += fmt::format("{:<40} {:<32} {}\n", block, textOf(block),
                            firstSentence(getBlocksInfo().getBlockInfo(block).description));
    }
    console.emit(text);
    return kFine;
}

} // namespace

std::vector<std::string> blockNames() {
    std::vector<std::string> names;
    for (const auto &entry : getBlocksInfo().blocks()) {
        if (entry.first != BlocksInfo::kGenericBlock) {
            names.push_back(entry.first);
        }
    }
    return names;
}

void addBlocksVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "blocks", "List the block types, or describe one");
    auto name = std::make_shared<std::string>();
    verb->add_option("NAME", *name, "The block type, by its constant or its text")->type_name("BLOCK");
    verb->callback([&host, name] { host.action = [&host, name] { return blocks(*name, host.console); }; });
}

} // namespace orvo::driver
