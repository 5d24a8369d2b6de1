// The verb "equiv": whether two designs compute the same.
#include "driver/verbs.h"

#include "driver/files.h"
#include "driver/jsontext.h"
#include "driver/progress.h"
#include "driver/simulation.h"
#include "driver/waveform.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/simcompare.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string first;
    std::string second;
    std::string top;
    sim::CompareOptions options;
};

struct Side {
    std::unique_ptr<Design> design;
    std::unique_ptr<sim::Simulator> simulator;
};

Side load(const std::string &path, const std::string &top, Context *context, Progress &progress, Console &console) {
    InputFile file(path, console);
    progress.phase("reading " + path);
    Side side;
    side.design = readDesign(file, context, console);
    progress.phase("compiling " + path);
    side.simulator = compileSimulator(*side.design, topModel(*side.design, top, console), {}, console);
    return side;
}

Json toJson(const Arguments &arguments, const sim::CompareResult &result) {
    Json json{{"schema", "orvo.equiv/1"},   {"first", arguments.first}, {"second", arguments.second},
              {"same", result.same()},      {"cycles", result.cycles},  {"unmatched", result.unmatched},
              {"mismatches", Json::array()}};
    for (const sim::Mismatch &mismatch : result.mismatches) {
        json["mismatches"].push_back({{"stream", mismatch.stream},
                                      {"cycle", mismatch.cycle},
                                      {"output", mismatch.output},
                                      {"first", valueText(mismatch.scalar, mismatch.first, false)},
                                      {"second", valueText(mismatch.scalar, mismatch.second, false)}});
    }
    return json;
}

std::string text(const sim::CompareResult &result) {
    std::string out;
    for (const std::string &name : result.unmatched) {
        out += fmt::format("'{}' is at the edge of only one of the designs, or has another width there\n", name);
    }
    for (const sim::Mismatch &mismatch : result.mismatches) {
        out += fmt::format("stream {}, cycle {}: '{}' is {} and {}\n", mismatch.stream, mismatch.cycle, mismatch.output,
                           valueText(mismatch.scalar, mismatch.first, false),
                           valueText(mismatch.scalar, mismatch.second, false));
    }
    return out + fmt::format("{} in {} cycles\n", result.same() ? "the same" : "not the same", result.cycles);
}

int compare(const Arguments &arguments, Console &console) {
    if (arguments.first.empty() || arguments.second.empty()) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "two designs are needed"}});
    }
    Progress progress(console);
    ContextMgr guard;
    guard.context()->setListener(&console);
    const Side first = load(arguments.first, arguments.top, guard.context(), progress, console);
    const Side second = load(arguments.second, arguments.top, guard.context(), progress, console);
    progress.phase("simulating");
    const sim::CompareResult result = sim::compareBehaviour(*first.simulator, *second.simulator, arguments.options);
    progress.hide();
    console.emit(console.json() ? documentText(toJson(arguments, result)) : text(result));
    return result.same() ? kFine : kDesignErrors;
}

} // namespace

void addEquivVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "equiv", "Compare what two designs compute");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("A", arguments->first, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("B", arguments->second, "Design XML to compare it with")->type_name("FILE");
    verb->add_option("--top", arguments->top, "The model to run; the only one that no other instantiates if not given")
        ->type_name("MODEL");
    verb->add_option("--cycles", arguments->options.cycles, "Clock cycles of a stream; 1000 if not given")
        ->type_name("N");
    verb->add_option("--seed", arguments->options.seed, "Of the stimulus; 1 if not given")->type_name("S");
    verb->add_option("--streams", arguments->options.streams, "Runs from reset; 2 if not given")->type_name("K");
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return compare(*arguments, host.console); }; });
}

} // namespace orvo::driver
