// The verb "equiv": whether two designs compute the same.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/openeddesign.h"
#include "driver/passrun.h"
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

Json toJson(const sim::Mismatch &mismatch, const char *key) {
    return {{"stream", mismatch.stream},
            {"cycle", mismatch.cycle},
            {key, mismatch.output},
            {"first", valueText(mismatch.scalar, mismatch.first, mismatch.firstUnknown, false)},
            {"second", valueText(mismatch.scalar, mismatch.second, mismatch.secondUnknown, false)}};
}

Json toJson(const Arguments &arguments, const sim::CompareResult &result) {
    Json json{{"schema", "orvo.equiv/1"},   {"first", arguments.first}, {"second", arguments.second},
              {"same", result.same()},      {"cycles", result.cycles},  {"unmatched", result.unmatched},
              {"mismatches", Json::array()}};
    for (const sim::Mismatch &mismatch : result.mismatches) {
        json["mismatches"].push_back(toJson(mismatch, "output"));
    }
    json["inside"] = result.inside ? toJson(*result.inside, "wire") : Json();
    return json;
}

std::string line(const sim::Mismatch &mismatch) {
    return fmt::format("stream {}, cycle {}: '{}' is {} and {}\n", mismatch.stream, mismatch.cycle, mismatch.output,
                       valueText(mismatch.scalar, mismatch.first, mismatch.firstUnknown, false),
                       valueText(mismatch.scalar, mismatch.second, mismatch.secondUnknown, false));
}

std::string text(const sim::CompareResult &result) {
    std::string out;
    for (const std::string &name : result.unmatched) {
        out += fmt::format("'{}' is at the edge of only one of the designs, or has another type there\n", name);
    }
    for (const sim::Mismatch &mismatch : result.mismatches) {
        out += line(mismatch);
    }
    if (result.inside) {
        out += "first inside: " + line(*result.inside);
    }
    return out + fmt::format("{} in {} cycles\n", result.same() ? "the same" : "not the same", result.cycles);
}

int compare(const Arguments &arguments, Console &console) {
    requireTwoInputs(arguments.first, arguments.second, console);
    Progress progress(console);
    ContextMgr guard;
    guard.context()->setListener(&console);
    const std::unique_ptr<Design> first = readDesignOfAnswer(arguments.first, guard.context(), progress, console);
    const std::unique_ptr<Design> second = readDesignOfAnswer(arguments.second, guard.context(), progress, console);
    const Model &firstTop = topModel(*first, arguments.top, console);
    const Model &secondTop = topModel(*second, arguments.top, console);
    sim::CompareOptions options = arguments.options;
    options.progress = [&progress](std::uint64_t done, std::uint64_t all) {
        progress.phase(fmt::format("simulating, {} % of {} cycles", done * 100 / all, all));
    };
    progress.phase("compiling");
    // Code 1 is the answer that they differ.
    const sim::CompareResult result = orFail(
        [&] { return sim::compareDesigns(*first, firstTop, *second, secondTop, options); }, console, kWrongUsage);
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
        ->type_name("MODEL")
        ->check(namesSomething());
    verb->add_option("--cycles", arguments->options.cycles, "Clock cycles of a stream; 1000 if not given")
        ->type_name("N")
        ->check(CLI::Range(std::uint64_t{1}, kMostCycles));
    verb->add_option("--seed", arguments->options.seed, "Of the stimulus; 1 if not given")->type_name("S");
    verb->add_option("--streams", arguments->options.streams, "Runs from reset; 2 if not given")
        ->type_name("K")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 20U));
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return compare(*arguments, host.console); }; });
}

} // namespace orvo::driver
