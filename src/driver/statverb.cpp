// The verb "stat": what a design holds, in figures.
#include "driver/verbs.h"

#include "driver/openeddesign.h"
#include "driver/resources.h"
#include "driver/statistics.h"
#include "generator/modelgenerator.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>
#include <optional>

namespace orvo::driver {

namespace {

std::string text(const DesignStatistics &statistics) {
    const std::pair<const char *, std::size_t> rows[] = {
        {"models", statistics.models}, {"blocks", statistics.blocks},     {"wires", statistics.wires},
        {"ports", statistics.ports},   {"parameters", statistics.params}, {"hierarchy depth", statistics.depth},
    };
    std::string out;
    for (const auto &[name, count] : rows) {
        out += fmt::format("{:<52} {:>10}\n", name, count);
    }
    out += statistics.recursive ? "a model instantiates itself\n" : "";
    out += "\ntop models\n";
    for (const std::string &model : statistics.topModels) {
        out += "  " + model + "\n";
    }
    out += "\nblocks by type\n";
    for (const auto &[type, count] : statistics.blocksByType) {
        out += fmt::format("  {:<50} {:>10}\n", typeLabel(type), count);
    }
    return out;
}

Json toJson(const DesignStatistics &statistics, const std::string &input) {
    Json json;
    json["schema"] = "orvo.stat/1";
    json["input"] = input;
    json["models"] = statistics.models;
    json["blocks"] = statistics.blocks;
    json["wires"] = statistics.wires;
    json["ports"] = statistics.ports;
    json["params"] = statistics.params;
    json["depth"] = statistics.depth;
    json["recursive"] = statistics.recursive;
    json["top_models"] = statistics.topModels;
    json["blocks_by_type"] = driver::toJson(statistics.blocksByType);
    return json;
}

int stat(const std::string &input, bool resources, Console &console) {
    OpenedDesign opened(input, console);
    opened.progress.phase("counting");
    const DesignStatistics statistics = countDesign(*opened.design);
    std::optional<generator::DesignEstimate> estimate;
    if (resources) {
        opened.progress.phase("estimating");
        estimate = generator::estimateDesign(*opened.design);
    }
    opened.progress.hide();
    if (console.json()) {
        Json json = toJson(statistics, input);
        if (estimate) {
            json["resources"] = driver::toJson(*estimate);
        }
        console.emit(documentText(json));
    } else {
        console.emit(text(statistics) + (estimate ? "\n" + resourcesText(*estimate) : ""));
    }
    return kFine;
}

} // namespace

void addStatVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "stat", "Count what a design holds");
    auto input = std::make_shared<std::string>();
    verb->add_option("IN", *input, "Design XML to read; - is standard input")->type_name("FILE");
    auto resources = std::make_shared<bool>(false);
    verb->add_flag("--resources", *resources, "Estimate what each model costs once it is lowered to primitives");
    verb->callback([&host, input, resources] {
        host.action = [&host, input, resources] { return stat(*input, *resources, host.console); };
    });
}

} // namespace orvo::driver
