// Reading a design, running passes on it and writing it, with all that is told, kept and checked on the way: what the
// verbs "opt" and "lower" share.
#pragma once

#include "driver/console.h"
#include "driver/passtext.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Validator;
} // namespace CLI

namespace orvo::driver {

/// A run as its command line has it.
struct RunArguments {
    /// The schema of the document with --json.
    std::string schema;
    std::string input;
    std::string output;
    std::vector<std::string> features;
    std::vector<std::size_t> skip;
    std::optional<std::size_t> stopAfter;
    std::string dumpFolder;
    std::string crashFolder;
    /// A reproducer to run in place of the input and the passes; empty for none.
    std::string replay;
    std::string timeJson;
    std::string timeTrace;
    std::string check;
    bool verifyEach = false;
    bool stats = false;
    bool growth = false;
    bool resources = false;
    bool time = false;
    bool list = false;
    bool noReproducer = false;
    bool types = false;
    /// Whether the command line names passes, and how many of their lists come from standard input.
    bool passesGiven = false;
    int inputsTaken = 0;
    /// Refuse to delete all models of a design, none of which is to be written out.
    bool guardsModels = false;
    /// A reproducer holds the input and all passes: long pipelines are not slowed down by snapshots.
    bool reproduceFromInput = false;

    bool wantsTiming() const { return time || !timeJson.empty() || !timeTrace.empty(); }
    bool counts() const { return stats || growth; }
};

/// Gives the passes of a run once the library has started. What is wrong with them ends the verb.
using PassSource = std::function<std::vector<PassText>(Context *)>;

/// Refuses an empty text for an option: it would be taken for no option at all.
CLI::Validator namesSomething();

/// The options that every run of passes takes, those that choose the passes left out.
void addRunOptions(CLI::App &verb, RunArguments &arguments);

/// Appends the passes of a text. One that is not well written, or an unknown pass or parameter, ends the verb; `name`
/// is what messages call the text.
void addPassTexts(const std::string &text, const std::string &name, Context *context, std::vector<PassText> &passes,
                  Console &console);
/// Ends the verb at the first pass or parameter that does not exist.
void requireKnown(const std::vector<PassText> &passes, const std::string &name, Console &console);

/// The whole run; gives the exit code.
int runPasses(const RunArguments &arguments, const PassSource &source, Console &console);

} // namespace orvo::driver
