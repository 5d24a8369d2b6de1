// The verb "types": the type of every port and wire, in each instance of each model.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/openeddesign.h"
#include "driver/passrun.h"
#include "driver/typetable.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string input;
    TypeFilter filter;
};

std::string text(const std::vector<TypeRow> &rows) {
    std::string out;
    std::string instance;
    for (const TypeRow &row : rows) {
        if (row.instance != instance) {
            out += (out.empty() ? "" : "\n") + row.instance + "\n";
            instance = row.instance;
        }
        out += fmt::format("  {:<28} {} {:<24} {}\n", row.block, row.isPort ? "port" : "wire", row.name,
                           typeText(row.type));
    }
    return out;
}

Json toJson(const std::vector<TypeRow> &rows, const std::string &input) {
    Json json;
    json["schema"] = "orvo.types/1";
    json["input"] = input;
    json["types"] = Json::array();
    for (const TypeRow &row : rows) {
        Json entry;
        entry["instance"] = row.instance;
        entry["block"] = row.block;
        entry["end"] = row.isPort ? "port" : "wire";
        entry["name"] = row.name;
        entry.update(typeJson(row.type));
        json["types"].push_back(std::move(entry));
    }
    return json;
}

int types(const Arguments &arguments, Console &console) {
    OpenedDesign opened(arguments.input, console);
    opened.progress.phase("inferring types");
    const TypeFilter &filter = arguments.filter;
    const TypeTable table = collectTypes(*opened.design, filter);
    opened.progress.hide();
    if (!table.anyChosen && !filter.instance.empty()) {
        refuseName("instance", filter.instance, table.instances, console);
    }
    if (!table.anyChosen && !filter.model.empty()) {
        refuseName("model", filter.model, table.models, console);
    }
    console.emit(console.json() ? documentText(toJson(table.rows, arguments.input)) : text(table.rows));
    return kFine;
}

} // namespace

void addTypesVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "types", "Show the type of every port and wire, instance by instance");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("--model", arguments->filter.model, "Only instances of this model")
        ->type_name("MODEL")
        ->check(namesSomething());
    verb->add_option("--instance", arguments->filter.instance,
                     "Only this instance: the top model and the model blocks on the way, as top/a/b")
        ->type_name("PATH")
        ->check(namesSomething());
    verb->add_flag("--missing", arguments->filter.missing, "Only what has no type");
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return types(*arguments, host.console); }; });
}

} // namespace orvo::driver
