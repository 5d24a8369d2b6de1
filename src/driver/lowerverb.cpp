// The verb "lower": runs a pipeline that stands in a file.
#include "driver/verbs.h"

#include "driver/files.h"
#include "driver/jsontext.h"
#include "driver/passrun.h"
#include "driver/pipeline.h"
#include "driver/suggest.h"

#include <orvo/context.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>

namespace orvo::driver {

namespace {

struct LowerArguments {
    RunArguments run;
    std::string preset = "structural";
    std::string file;
    std::string upTo;
    bool print = false;
};

[[noreturn]] void refuse(const std::string &reason, const std::string &near, Console &console) {
    console.fail(kWrongUsage, "DRIVER_BAD_USAGE",
                 {{"reason", near.empty() ? reason : fmt::format("{}: did you mean '{}'?", reason, near)}});
}

/// The preset that is asked for, cut behind the last `--upto`.
Preset chosen(const LowerArguments &arguments, Context *context, Console &console) {
    const std::string file = arguments.file.empty() ? installedPipelines() : arguments.file;
    const std::string name = file == "-" ? "<stdin>" : file;
    std::vector<Preset> presets;
    if (const auto error = parsePipelines(readWhole(file, console), context, presets)) {
        console.fail(kWrongUsage, "DRIVER_BAD_PIPELINE", {{"reason", error->reason}},
                     {name, error->position.line, error->position.column});
    }
    std::vector<std::string> names;
    for (const Preset &preset : presets) {
        requireKnown(preset.passes, name, console);
        names.push_back(preset.name);
    }
    const auto at = std::find(names.begin(), names.end(), arguments.preset);
    if (at == names.end()) {
        refuse(fmt::format("there is no preset '{}' in {}", arguments.preset, name), suggest(arguments.preset, names),
               console);
    }
    Preset preset = std::move(presets[static_cast<std::size_t>(at - names.begin())]);
    if (arguments.upTo.empty()) {
        return preset;
    }
    std::vector<std::string> passes;
    for (const PassText &pass : preset.passes) {
        passes.push_back(pass.name);
    }
    const auto last = std::find(passes.rbegin(), passes.rend(), arguments.upTo);
    if (last == passes.rend()) {
        refuse(fmt::format("preset '{}' has no pass '{}'", preset.name, arguments.upTo),
               suggest(arguments.upTo, passes), console);
    }
    // Passes in turns whose end is cut off run once.
    preset.passes.resize(static_cast<std::size_t>(passes.rend() - last));
    return preset;
}

int print(const LowerArguments &arguments, Console &console) {
    ContextMgr context;
    context.context()->setListener(&console);
    const Preset preset = chosen(arguments, context.context(), console);
    if (!console.json()) {
        console.emit(printPipeline(preset));
        return kFine;
    }
    Json json{{"schema", "orvo.pipeline/1"}, {"preset", preset.name}, {"passes", Json::array()}};
    for (const PassText &pass : preset.passes) {
        json["passes"].push_back({{"name", pass.name},
                                  {"text", printPassText(pass)},
                                  {"begins_turns", pass.beginsTurns},
                                  {"ends_turns", pass.endsTurns}});
    }
    console.emit(documentText(json));
    return kFine;
}

int lower(const LowerArguments &given, Console &console) {
    if (given.print) {
        return print(given, console);
    }
    RunArguments run = given.run;
    run.schema = "orvo.lower/1";
    run.guardsModels = true;
    run.reproduceFromInput = true;
    run.inputsTaken = given.file == "-" ? 1 : 0;
    return runPasses(
        run, [&](Context *context) { return chosen(given, context, console).passes; }, console);
}

} // namespace

std::vector<std::string> presetNames() {
    std::ifstream in(installedPipelines(), std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::vector<Preset> presets;
    parsePipelines(text.str(), ContextMgr::get(), presets);
    std::vector<std::string> names(presets.size());
    std::transform(presets.begin(), presets.end(), names.begin(), [](const Preset &preset) { return preset.name; });
    return names;
}

void addLowerVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "lower", "Take hierarchy, tags and compound signals apart, by a pipeline of passes");
    auto arguments = std::make_shared<LowerArguments>();
    verb->add_option(
            "--preset", arguments->preset,
            "The part of the pipeline file to run; structural if not given. primitives goes on from there until "
            "only primitive blocks are left")
        ->type_name("PRESET");
    verb->add_option("--pipeline", arguments->file, "A pipeline file in place of the one that comes with orvo")
        ->type_name("FILE")
        ->check(namesSomething());
    verb->add_option("--upto", arguments->upTo, "Run nothing behind the last occurrence of this pass")
        ->type_name("PASS")
        ->check(namesSomething());
    verb->add_flag("--print-pipeline", arguments->print, "Print the passes that would run, as a pipeline file");
    addRunOptions(*verb, arguments->run);
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return lower(*arguments, host.console); }; });
}

} // namespace orvo::driver
