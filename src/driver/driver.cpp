// From the command line to a verb, and from whatever happens there to an exit code.
#include "driver/verbs.h"

#include "driver/faults.h"
#include "driver/suggest.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <exception>

namespace orvo::driver {

namespace {

constexpr const char *kFooter = "Exit codes: 0 fine, 1 errors in the design, 2 wrong usage, 3 an internal fault.\n"
                                "Run a verb with --help for its options.";

std::vector<std::string> optionNames(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::vector<std::string> verbNames(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(verb->get_name());
    }
    return names;
}

Console::Params withSuggestion(Console::Params params, const std::string &suggestion) {
    if (!suggestion.empty()) {
        params["suggestion"] = suggestion;
    }
    return params;
}

/// Tells the first word that neither the parser nor a verb has taken, if there is one.
void refuseLeftovers(const CLI::App &app, bool isRoot, Console &console) {
    std::vector<std::string> left = app.remaining();
    left.erase(std::remove(left.begin(), left.end(), "--"), left.end());
    if (left.empty()) {
        return;
    }
    const std::string &word = left.front();
    if (word.size() > 1 && word.front() == '-') {
        const std::string option = word.substr(0, word.find('='));
        console.fail(kWrongUsage, "DRIVER_UNKNOWN_OPTION",
                     withSuggestion({{"option", option}}, suggest(option, optionNames(app))));
    }
    if (isRoot) {
        console.fail(kWrongUsage, "DRIVER_UNKNOWN_VERB",
                     withSuggestion({{"verb", word}}, suggest(word, verbNames(app))));
    }
    console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "nothing is expected at '" + word + "'"}});
}

int parseAndRun(int argc, char **argv, Console &console) {
    CLI::App app("orvo: a middle end that turns signal-processing designs into FPGA logic", "orvo");
    app.footer(kFooter);
    app.get_formatter()->label("SUBCOMMAND", "VERB");
    app.allow_extras();
    // Behind a verb, the name of a verb is a word like any other.
    app.require_subcommand(0, 1);
    bool version = false;
    app.add_flag("--version", version, "Print the version and end");
    VerbHost host{console, &app, nullptr};
    addVerbs(app, host);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        console.emit(app.help());
        return kFine;
    } catch (const CLI::ParseError &error) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", error.what()}});
    }
    refuseLeftovers(app, true, console);
    for (const CLI::App *verb : app.get_subcommands()) {
        refuseLeftovers(*verb, false, console);
    }
    if (version) {
        console.emit("orvo " ORVO_VERSION "\n");
        return kFine;
    }
    if (!host.action) {
        console.hint(app.help());
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "a verb is missing"}});
    }
    return host.action();
}

/// Asked for before the command line is read, so that errors in reading it have the right form, too.
bool asksForJson(int argc, char **argv) {
    return std::any_of(argv, argv + argc, [](const char *word) { return std::strcmp(word, "--json") == 0; });
}

} // namespace

CLI::App *addVerb(CLI::App &app, const char *name, const char *description) {
    CLI::App *verb = app.add_subcommand(name, description);
    verb->allow_extras();
    verb->group("Verbs");
    // Whether it is given is known before the parser runs; here it only has its place.
    verb->add_flag_function(
        "--json", [](std::int64_t) {}, "Data and messages as JSON");
    return verb;
}

void refuseName(const char *what, const std::string &name, const std::vector<std::string> &known, Console &console) {
    std::string reason = fmt::format("the design has no {} '{}'", what, name);
    if (const std::string near = suggest(name, known); !near.empty()) {
        reason += fmt::format(": did you mean '{}'?", near);
    }
    console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", reason}});
}

void addVerbs(CLI::App &app, VerbHost &host) {
    addOptVerb(app, host);
    addLowerVerb(app, host);
    addDiffVerb(app, host);
    addTraceVerb(app, host);
    addCheckVerb(app, host);
    addStatVerb(app, host);
    addTypesVerb(app, host);
    addLoopsVerb(app, host);
    addDomainsVerb(app, host);
    addSimVerb(app, host);
    addEquivVerb(app, host);
    addGenVerb(app, host);
    addPassesVerb(app, host);
    addBlocksVerb(app, host);
    addFeaturesVerb(app, host);
    addExplainVerb(app, host);
    addVersionVerb(app, host);
    addCompletionVerb(app, host);
}

int run(int argc, char **argv) {
    // Writing beyond the limit of a file's size is then an error of writing, which leaves the output as it was.
    std::signal(SIGXFSZ, SIG_IGN);
    static Console console;
    console.setJson(asksForJson(argc, argv));
    installFaultHandlers(console);
    util::setDiagnosticSink(&console);
    int exitCode = kInternalFault;
    try {
        exitCode = parseAndRun(argc, argv, console);
    } catch (const VerbFailure &failure) {
        exitCode = failure.exitCode;
    } catch (const std::exception &exception) {
        reportFault(std::string("exception: ") + exception.what());
    }
    util::setDiagnosticSink(nullptr);
    return exitCode;
}

} // namespace orvo::driver
