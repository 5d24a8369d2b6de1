// The verbs of the command line. Each file adds one verb to the parser with its options, and sets what is to be done if
// the command line names it.
#pragma once

#include "driver/console.h"

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace orvo::driver {

/// What the verbs share.
struct VerbHost {
    Console &console;
    /// The whole parser, for the verb that generates completions.
    CLI::App *root;
    /// Set by the verb that the command line names; its result is the exit code.
    std::function<int()> action;
};

void addOptVerb(CLI::App &app, VerbHost &host);
void addLowerVerb(CLI::App &app, VerbHost &host);
void addDiffVerb(CLI::App &app, VerbHost &host);
void addTraceVerb(CLI::App &app, VerbHost &host);
void addCheckVerb(CLI::App &app, VerbHost &host);
void addStatVerb(CLI::App &app, VerbHost &host);
void addEquivVerb(CLI::App &app, VerbHost &host);
void addGenVerb(CLI::App &app, VerbHost &host);
void addLoopsVerb(CLI::App &app, VerbHost &host);
void addSimVerb(CLI::App &app, VerbHost &host);
void addTypesVerb(CLI::App &app, VerbHost &host);
void addDomainsVerb(CLI::App &app, VerbHost &host);
void addPassesVerb(CLI::App &app, VerbHost &host);
void addBlocksVerb(CLI::App &app, VerbHost &host);
void addFeaturesVerb(CLI::App &app, VerbHost &host);
void addExplainVerb(CLI::App &app, VerbHost &host);
void addVersionVerb(CLI::App &app, VerbHost &host);
void addCompletionVerb(CLI::App &app, VerbHost &host);

/// A verb with the option --json, which every verb has.
CLI::App *addVerb(CLI::App &app, const char *name, const char *description);

/// Ends the verb because the design has no such thing of that name.
[[noreturn]] void refuseName(const char *what, const std::string &name, const std::vector<std::string> &known,
                             Console &console);

/// The names that arguments may have, in the order of their lists. The library must be started for passes and blocks.
std::vector<std::string> passNames();
std::vector<std::string> blockNames();
std::vector<std::string> messageTags();
std::vector<std::string> featureNames();
/// Of the pipelines that come with the library.
std::vector<std::string> presetNames();

/// The parser with all verbs.
void addVerbs(CLI::App &app, VerbHost &host);
/// The whole driver, from the command line to the exit code.
int run(int argc, char **argv);

} // namespace orvo::driver
