// The verb "opt": reads a design, runs passes, writes the design.
#include "driver/verbs.h"

#include "driver/files.h"
#include "driver/passrun.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace orvo::driver {

namespace {

struct OptArguments {
    RunArguments run;
    std::vector<std::string> passes;
};

/// Without the mark that some editors put before a text.
std::string readList(const std::string &name, Console &console) {
    static constexpr std::string_view mark = "\xef\xbb\xbf";
    const std::string text = readWhole(name, console);
    return text.compare(0, mark.size(), mark) == 0 ? text.substr(mark.size()) : text;
}

std::vector<PassText> readPasses(const std::vector<std::string> &arguments, Context *context, Console &console) {
    std::vector<PassText> passes;
    for (const std::string &argument : arguments) {
        const bool isFile = !argument.empty() && argument.front() == '@';
        const std::string name = isFile ? argument.substr(1) : "--passes";
        addPassTexts(isFile ? readList(name, console) : argument, name == "-" ? "<stdin>" : name, context, passes,
                     console);
    }
    return passes;
}

int optimise(const OptArguments &given, Console &console) {
    RunArguments run = given.run;
    run.schema = "orvo.opt/1";
    run.passesGiven = !given.passes.empty();
    run.inputsTaken = static_cast<int>(std::count(given.passes.begin(), given.passes.end(), "@-"));
    return runPasses(
        run, [&](Context *context) { return readPasses(given.passes, context, console); }, console);
}

} // namespace

void addOptVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "opt", "Run passes on a design");
    auto arguments = std::make_shared<OptArguments>();
    verb->add_option("-p,--passes", arguments->passes, "Passes to run, or @FILE with them; lists follow each other")
        ->type_name("PASSES")
        ->check(namesSomething())
        ->allow_extra_args(false);
    addRunOptions(*verb, arguments->run);
    verb->add_option("--replay", arguments->run.replay, "Run a reproducer")->type_name("FILE")->check(namesSomething());
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return optimise(*arguments, host.console); }; });
}

} // namespace orvo::driver
