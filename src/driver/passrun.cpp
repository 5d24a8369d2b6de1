// One run of passes, step by step.
#include "driver/passrun.h"

#include "driver/catalogue.h"
#include "driver/errorhints.h"
#include "driver/files.h"
#include "driver/instrumentation.h"
#include "driver/resources.h"
#include "driver/statistics.h"
#include "driver/suggest.h"
#include "driver/typetable.h"
#include "driver/verbs.h"

#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <util/features.h>
#include <util/io.h>
#include <util/profiling.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

namespace orvo::driver {

namespace {

/// No run has so many passes; larger numbers could not be told from overflow.
constexpr int kLargestNumber = 1000000000;

/// Has a section of one model carry the name of what is done in all of them. Questions about types bear the name of
/// their model.
void nameForAllModels(util::ProfilingNode &node) {
    if (node.detail == GlobalTypePass::sName) {
        node.label = std::exchange(node.detail, "");
    } else if (!node.label.empty() && node.label.front() == '[') {
        node.detail.clear();
    }
}

/// Sums the sections of one name, so that the text of a design with many models stays short.
void fold(util::ProfilingNode &node) {
    std::vector<std::unique_ptr<util::ProfilingNode>> kept;
    std::map<std::pair<std::string, std::string>, util::ProfilingNode *> known;
    for (auto &child : node.children) {
        nameForAllModels(*child);
        const auto [same, isFirst] = known.try_emplace({child->label, child->detail}, child.get());
        if (isFirst) {
            kept.push_back(std::move(child));
            continue;
        }
        util::ProfilingNode &sum = *same->second;
        sum.wallNs += child->wallNs;
        sum.cpuNs += child->cpuNs;
        sum.peakMemoryKiB = std::max(sum.peakMemoryKiB, child->peakMemoryKiB);
        sum.count += child->count;
        std::move(child->children.begin(), child->children.end(), std::back_inserter(sum.children));
    }
    node.children = std::move(kept);
    for (auto &child : node.children) {
        fold(*child);
    }
}

Json toJson(const PassRecord &record, bool stats, bool resources) {
    Json json;
    json["number"] = record.number;
    json["name"] = record.name;
    json["text"] = record.text;
    json["requested"] = record.requested;
    json["turn"] = record.turn == 0 ? Json() : Json(record.turn);
    json["ran"] = record.ran;
    json["would_run"] = record.wouldRun;
    json["changed"] = record.changed;
    json["dump"] = record.dump.empty() ? Json() : Json(record.dump);
    if (stats) {
        json["blocks_before"] = record.before.blocks;
        json["blocks_after"] = record.after.blocks;
        json["wires_before"] = record.before.wires;
        json["wires_after"] = record.after.wires;
    }
    if (resources) {
        json["resources_before"] = driver::toJson(record.costBefore);
        json["resources_after"] = driver::toJson(record.costAfter);
    }
    return json;
}

class PassRun {
  public:
    PassRun(RunArguments arguments, PassSource source, Console &console)
        : mArguments(std::move(arguments)), mSource(std::move(source)), mConsole(console), mProgress(console) {}
    ~PassRun() { disarmFaults(); }
    PassRun(const PassRun &) = delete;
    PassRun &operator=(const PassRun &) = delete;

    int run() {
        checkArguments();
        if (!mArguments.replay.empty()) {
            takeReplay();
        }
        setFeatures();
        // The log belongs to the thread, so it is on from before the library starts.
        if (mArguments.wantsTiming()) {
            util::ProfilingLog::enable();
        }
        mContext.emplace();
        Context *context = mContext->context();
        context->setListener(&mConsole);
        takePasses(context);
        try {
            return runOn(context);
        } catch (const std::exception &exception) {
            // Told here, while the files that a reproducer is copied from are still open.
            reportFault(std::string("exception: ") + exception.what());
            return kInternalFault;
        }
    }

  private:
    [[noreturn]] void wrongUsage(const std::string &reason) {
        mConsole.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", reason}});
    }

    void checkArguments() {
        const bool replays = !mArguments.replay.empty();
        if (mArguments.input.empty() && !replays) {
            wrongUsage("the input design is missing");
        }
        if (replays && (!mArguments.input.empty() || mArguments.passesGiven)) {
            wrongUsage("--replay has its design and its passes with it, so neither can be given");
        }
        if (mArguments.inputsTaken + (mArguments.input == "-") + (mArguments.replay == "-") > 1) {
            wrongUsage("only one input can come from standard input");
        }
        const std::string &output = mArguments.output;
        if ((output == "-") + (mArguments.timeJson == "-") + (mArguments.timeTrace == "-") > 1) {
            wrongUsage("only one output can go to standard output");
        }
    }

    void takeReplay() {
        const std::string text = readWhole(mArguments.replay, mConsole);
        if (const auto reason = parseReproducer(text, mReplay)) {
            mConsole.fail(kWrongUsage, "DRIVER_BAD_REPRODUCER", {{"file", mArguments.replay}, {"reason", *reason}});
        }
        mArguments.verifyEach = mArguments.verifyEach || mReplay.verifyEach;
        mArguments.check = mReplay.simulate ? "sim" : mArguments.check;
        mArguments.skip.insert(mArguments.skip.end(), mReplay.skip.begin(), mReplay.skip.end());
        mArguments.stopAfter = mArguments.stopAfter ? mArguments.stopAfter : mReplay.stopAfter;
        std::vector<std::string> features;
        for (const auto &[name, value] : mReplay.features) {
            features.push_back(fmt::format("{}={}", name, value));
        }
        mArguments.features.insert(mArguments.features.begin(), features.begin(), features.end());
        if (mReplay.version != ORVO_VERSION) {
            mConsole.hint("orvo: the reproducer was written by version " + mReplay.version);
        }
    }

    void setFeatures() {
        for (const std::string &text : mArguments.features) {
            const std::size_t equals = text.find('=');
            if (equals == std::string::npos || equals == 0) {
                mConsole.fail(kWrongUsage, "DRIVER_BAD_FEATURE", {{"text", text}});
            }
            const std::string name = text.substr(0, equals);
            const std::string value = text.substr(equals + 1);
            if (!util::SetFeatureText(name, value)) {
                mConsole.fail(kWrongUsage, "DRIVER_BAD_FEATURE",
                              {{"text", text}, {"reason", "the value is not of the feature's kind"}});
            }
            warnOfUnknownFeature(name, text);
            mFeatures.emplace_back(name, value);
        }
    }

    /// The library may read a feature that has no entry in the list, so that an unlisted name is no error by itself.
    void warnOfUnknownFeature(const std::string &name, const std::string &text) {
        const std::vector<std::string> known = featureNames();
        const std::string near = suggest(name, known);
        if (std::find(known.begin(), known.end(), name) == known.end() && !near.empty()) {
            mConsole.report(Severity::Warning, "DRIVER_BAD_FEATURE",
                            {{"text", text}, {"reason", "no feature has this name: did you mean '" + near + "'?"}});
        }
    }

    void takePasses(Context *context) {
        mPasses = mSource(context);
        if (!mArguments.replay.empty()) {
            addPassTexts(mReplay.passes, mArguments.replay, context, mPasses, mConsole);
        }
    }

    /// Reads the design. For a file that can be read again, the file itself is what a reproducer would hold.
    std::unique_ptr<Design> readInput(Context *context) {
        util::ProfilingSection section("read", mArguments.replay.empty() ? mArguments.input : mArguments.replay);
        mProgress.phase("reading");
        if (!mArguments.replay.empty()) {
            std::istringstream in(std::move(mReplay.design));
            return readDesign(in, mArguments.replay, mReplay.designLine, context, mConsole);
        }
        mInput = std::make_unique<InputFile>(mArguments.input, mConsole);
        armOutsidePasses("reading");
        return readDesign(*mInput, context, mConsole);
    }

    /// From here on a fault leaves the input with all passes; one inside a pass leaves what that pass saw.
    void armOutsidePasses(const char *phase) {
        if (mInput == nullptr || !mInput->isRegular() || reproducerPath().empty()) {
            disarmFaults();
            return;
        }
        Reproducer reproducer;
        reproducer.version = ORVO_VERSION;
        reproducer.pass = std::string("0 ") + phase;
        reproducer.features = mFeatures;
        reproducer.passes = printPassTexts(mPasses);
        reproducer.verifyEach = mArguments.verifyEach;
        reproducer.simulate = mArguments.check == "sim";
        reproducer.skip = mArguments.skip;
        reproducer.stopAfter = mArguments.stopAfter;
        armFaults({0, "", reproducerPath(), printReproducerHeader(reproducer), mInput->descriptor()});
    }

    std::string reproducerPath() const {
        if (mArguments.noReproducer || (!mArguments.replay.empty() && mArguments.crashFolder.empty())) {
            return {};
        }
        return (mArguments.crashFolder.empty() ? "" : mArguments.crashFolder + "/") + "orvo-crash-" +
               std::to_string(::getpid()) + ".orvo";
    }

    RunOptions runOptions() const {
        RunOptions options;
        options.verifyEach = mArguments.verifyEach;
        options.simulate = mArguments.check == "sim";
        options.stats = mArguments.counts();
        options.resources = mArguments.resources;
        options.list = mArguments.list;
        options.dumpFolder = mArguments.dumpFolder;
        options.stopAfter = mArguments.stopAfter;
        options.skip.insert(mArguments.skip.begin(), mArguments.skip.end());
        options.features = mFeatures;
        options.reproducerPath = reproducerPath();
        options.reproduceFromInput = mArguments.reproduceFromInput;
        options.inputDescriptor = mInput != nullptr && mInput->isRegular() ? mInput->descriptor() : -1;
        return options;
    }

    void makeFolder(const std::string &folder) {
        std::string error;
        if (!folder.empty() && !util::io::CreateAndValidateOutputDirectory(folder, &error)) {
            mConsole.fail(kWrongUsage, "DRIVER_UNWRITABLE_FILE",
                          {{"file", folder}, {"reason", reasonOf(error, folder)}});
        }
    }

    int runOn(Context *context) {
        makeFolder(mArguments.dumpFolder);
        makeFolder(mArguments.crashFolder);
        const std::unique_ptr<Design> design = readInput(context);
        if (mArguments.guardsModels) {
            requireOutputModel(*design);
        }
        armOutsidePasses("before the first pass");
        if (mArguments.verifyEach) {
            refuse(checkDesign(*design, getBlocksInfo()));
        } else if (mArguments.replay.empty()) {
            refuse(findForeignWires(*design));
        }
        BlockCounts before;
        if (mArguments.stats) {
            before = countBlocksByType(*design);
        }
        collectWireTypes(*design, mTypesBefore);
        const RunOptions options = runOptions();
        mInstrumentation = std::make_unique<DriverInstrumentation>(options, mPasses, mConsole, mProgress);
        PassScheduler scheduler;
        std::optional<PassResults> results;
        runPasses(*design, scheduler, results);
        armOutsidePasses("behind the last pass");
        warnOfUnmetNumbers();
        for (const std::string &hint : hintsAfter(mConsole, *design, mArguments.input)) {
            mConsole.hint("orvo: " + hint);
        }
        const bool writes = mConsole.errors() == 0 && !mArguments.list && !mArguments.output.empty();
        if (writes) {
            util::ProfilingSection section("write", mArguments.output);
            mProgress.phase("writing");
            writeDesign(*design, mArguments.output, mConsole);
        }
        collectWireTypes(*design, mTypesAfter);
        report(*design, before, writes);
        const int exitCode = mConsole.errors() == 0 ? kFine : kDesignErrors;
        leave(exitCode);
        return exitCode;
    }

    /// All is written: what the run holds in memory goes with the process, at once. Where leaks are looked for, it goes
    /// piece by piece.
    void leave([[maybe_unused]] int exitCode) {
#ifndef __SANITIZE_ADDRESS__
        mProgress.finish();
        disarmFaults();
        std::cout.flush();
        std::fflush(nullptr);
        std::_Exit(exitCode);
#endif
    }

    void requireOutputModel(const Design &design) {
        const bool deletesModels = std::any_of(mPasses.begin(), mPasses.end(),
                                               [](const PassText &pass) { return pass.name == "DeadModelPass"; });
        const bool hasOutput =
            std::any_of(design.begin(), design.end(), [](const Model &model) { return !!model[A_SYNTH_OUTPUT_MODE]; });
        if (deletesModels && !hasOutput) {
            mConsole.fail(kDesignErrors, "DRIVER_NO_OUTPUT_MODEL", {}, {mInput->name()});
        }
    }

    void collectWireTypes(const Design &design, TypeTable &table) {
        if (mArguments.types) {
            util::ProfilingSection section("types", "");
            mProgress.phase("inferring types");
            TypeFilter filter;
            filter.ports = false;
            table = collectTypes(design, filter);
        }
    }

    /// What a pass leaves broken is only its fault if it was whole before.
    void refuse(const std::vector<Finding> &findings) {
        for (const Finding &finding : findings) {
            mConsole.report(Severity::Error, finding.tag, finding.params);
        }
        if (mConsole.errors() != 0) {
            throw VerbFailure{kDesignErrors};
        }
    }

    void runPasses(Design &design, PassScheduler &scheduler, std::optional<PassResults> &results) {
        addPasses(scheduler, mPasses);
        scheduler.setInstrumentation(mInstrumentation.get());
        scheduler.keepAll();
        util::ProfilingSection section("passes", "");
        try {
            results.emplace(scheduler.apply(design));
        } catch (const std::exception &) {
            // A pass tells what is wrong with a design before it gives up; without that, the fault is ours.
            if (mConsole.errors() == 0) {
                throw;
            }
            disarmFaults();
        }
    }

    /// A list shows one turn, and an error may end turns early.
    void warnOfUnmetNumbers() {
        if (mArguments.list || mConsole.errors() != 0) {
            return;
        }
        const std::size_t last = mInstrumentation->records().size();
        const std::set<std::size_t> skipped(mArguments.skip.begin(), mArguments.skip.end());
        for (auto number = skipped.upper_bound(last); number != skipped.end(); ++number) {
            mConsole.report(Severity::Warning, "DRIVER_NO_SUCH_NUMBER",
                            {{"number", std::to_string(*number)}, {"last", std::to_string(last)}});
        }
    }

    void report(const Design &design, const BlockCounts &before, bool written) {
        std::unique_ptr<util::ProfilingNode> times = mArguments.wantsTiming() ? util::ProfilingLog::take() : nullptr;
        if (!mArguments.timeJson.empty()) {
            writeOutput(mArguments.timeJson, util::profilingJson(*times) + "\n", mConsole);
        }
        if (!mArguments.timeTrace.empty()) {
            writeOutput(mArguments.timeTrace, util::profilingChromeTrace(*times), mConsole);
        }
        const BlockCounts after = mArguments.stats ? countBlocksByType(design) : BlockCounts();
        emitReport(mConsole.json() ? jsonReport(before, after, times.get(), written)
                                   : textReport(before, after, times.get()));
    }

    /// Standard output is for the design where the command line says so; the report then goes beside the messages.
    void emitReport(const std::string &text) {
        mProgress.hide();
        if (mArguments.output == "-" || mArguments.timeJson == "-" || mArguments.timeTrace == "-") {
            writeAll(STDERR_FILENO, text);
        } else {
            mConsole.emit(text);
        }
    }

    std::string jsonReport(const BlockCounts &before, const BlockCounts &after, const util::ProfilingNode *times,
                           bool written) {
        Json json;
        json["schema"] = mArguments.schema;
        json["version"] = ORVO_VERSION;
        json["input"] = mArguments.replay.empty() ? mArguments.input : mArguments.replay;
        json["output"] = mArguments.output.empty() ? Json() : Json(mArguments.output);
        json["written"] = written;
        json["errors"] = mConsole.errors();
        json["warnings"] = mConsole.warnings();
        json["passes"] = Json::array();
        for (const PassRecord &record : mInstrumentation->records()) {
            json["passes"].push_back(toJson(record, mArguments.counts(), mArguments.resources && !mArguments.list));
        }
        if (mArguments.stats) {
            json["stats"] = {{"before", driver::toJson(before)}, {"after", driver::toJson(after)}};
        }
        if (mArguments.types) {
            json["types"] = typesJson();
        }
        if (mArguments.time && times != nullptr) {
            json["time"] = Json::parse(util::profilingJson(*times), nullptr, false);
        }
        return lineText(json) + "\n";
    }

    std::string textReport(const BlockCounts &before, const BlockCounts &after, util::ProfilingNode *times) {
        std::string text;
        if (mArguments.list) {
            for (const PassRecord &record : mInstrumentation->records()) {
                text +=
                    fmt::format("{:>5}  {}{}{}{}\n", record.number, record.text, record.requested ? "" : " (required)",
                                record.wouldRun ? "" : " (skipped)", record.turn == 0 ? "" : " (in turns)");
            }
        }
        if (mArguments.stats) {
            text += statsText(before, after);
        }
        if (mArguments.growth) {
            text += growthText();
        }
        if (mArguments.resources && !mArguments.list) {
            text += costText();
        }
        if (mArguments.types) {
            text += typesText();
        }
        if (mArguments.time && times != nullptr) {
            fold(*times);
            text += util::profilingText(*times);
        }
        return text;
    }

    Json typesJson() const {
        const TypeComparison comparison = compareTypes(mTypesBefore, mTypesAfter);
        Json json = {
            {"same", comparison.same}, {"gone", comparison.gone}, {"new", comparison.made}, {"changed", Json::array()}};
        for (const TypeChange &change : comparison.changed) {
            json["changed"].push_back({{"instance", change.row->instance},
                                       {"block", change.row->block},
                                       {"wire", change.row->name},
                                       {"before", typeJson(change.before)},
                                       {"after", typeJson(change.row->type)}});
        }
        return json;
    }

    std::string typesText() const {
        const TypeComparison comparison = compareTypes(mTypesBefore, mTypesAfter);
        std::string text = fmt::format("types of wires: {} changed, {} unchanged, {} gone, {} new\n",
                                       comparison.changed.size(), comparison.same, comparison.gone, comparison.made);
        for (const TypeChange &change : comparison.changed) {
            const TypeRow &row = *change.row;
            text += fmt::format("  {}/{} {}\n    before {}\n    after  {}\n", row.instance, row.block, row.name,
                                typeText(change.before), typeText(row.type));
        }
        return text + "\n";
    }

    std::string statsText(BlockCounts before, BlockCounts after) {
        std::size_t totalBefore = 0;
        std::size_t totalAfter = 0;
        for (const auto &[type, count] : before) {
            after.try_emplace(type, 0);
            totalBefore += count;
        }
        std::string text = fmt::format("{:<52} {:>10} {:>10}\n", "blocks", "before", "after");
        for (const auto &[type, count] : after) {
            text += fmt::format("{:<52} {:>10} {:>10}\n", typeLabel(type), before[type], count);
            totalAfter += count;
        }
        text += fmt::format("{:<52} {:>10} {:>10}\n\n", "all", totalBefore, totalAfter);
        text += fmt::format("{:>5}  {:<45} {:>10} {:>10} {:>10}\n", "", "pass", "before", "after", "growth");
        for (const PassRecord &record : mInstrumentation->records()) {
            const auto growth =
                static_cast<long long>(record.after.blocks) - static_cast<long long>(record.before.blocks);
            text += fmt::format("{:>5}  {:<45} {:>10} {:>10} {:>+10}\n", record.number,
                                record.name + (record.ran ? "" : " (not run)"), record.before.blocks,
                                record.after.blocks, growth);
        }
        return text + "\n";
    }

    /// A row for what was read, and one for each pass that changed something.
    std::string growthText() const {
        std::string text =
            fmt::format("{:>5}  {:<32} {:>10} {:>10} {:>10}\n", "", "after", "blocks", "wires", "growth");
        const auto row = [&text](const std::string &number, const std::string &name, const NodeCounts &counts,
                                 const std::string &growth) {
            text +=
                fmt::format("{:>5}  {:<32} {:>10} {:>10} {:>10}\n", number, name, counts.blocks, counts.wires, growth);
        };
        const std::vector<PassRecord> &records = mInstrumentation->records();
        if (!records.empty()) {
            row("", "reading", records.front().before, "");
        }
        for (const PassRecord &record : records) {
            if (record.changed) {
                const auto growth =
                    static_cast<long long>(record.after.blocks) - static_cast<long long>(record.before.blocks);
                row(std::to_string(record.number), record.name, record.after, fmt::format("{:+}", growth));
            }
        }
        return text + "\n";
    }

    /// What was read costs, what each pass that changed something changed in that, and what the result costs.
    std::string costText() const {
        const std::vector<PassRecord> &records = mInstrumentation->records();
        std::string text = resourcesHeading();
        if (!records.empty()) {
            text += resourcesRow("", "reading", records.front().costBefore);
        }
        for (const PassRecord &record : records) {
            if (record.changed) {
                text +=
                    resourcesChange(std::to_string(record.number), record.name, record.costBefore, record.costAfter);
            }
        }
        if (!records.empty()) {
            text += resourcesRow("", "all", records.back().costAfter);
        }
        return text + "\n";
    }

    RunArguments mArguments;
    PassSource mSource;
    Console &mConsole;
    Progress mProgress;
    Reproducer mReplay;
    std::vector<std::pair<std::string, std::string>> mFeatures;
    /// Before all that holds its values.
    std::optional<ContextMgr> mContext;
    std::vector<PassText> mPasses;
    TypeTable mTypesBefore;
    TypeTable mTypesAfter;
    std::unique_ptr<InputFile> mInput;
    std::unique_ptr<DriverInstrumentation> mInstrumentation;
};

} // namespace

CLI::Validator namesSomething() {
    return CLI::Validator([](const std::string &text) { return std::string(text.empty() ? "the name is empty" : ""); },
                          "");
}

void addRunOptions(CLI::App &verb, RunArguments &arguments) {
    verb.add_option("IN", arguments.input, "Design XML to read; - is standard input")->type_name("FILE");
    verb.add_option("-o,--output", arguments.output, "Design XML to write; - is standard output")
        ->type_name("FILE")
        ->check(namesSomething());
    verb.add_option("--feature", arguments.features, "Set a feature")->type_name("NAME=VALUE")->allow_extra_args(false);
    verb.add_flag("--verify-each", arguments.verifyEach, "Check the netlist before the first pass and after each");
    verb.add_option("--check", arguments.check, "sim: compare what the design computes after each pass with before")
        ->type_name("HOW")
        ->check(CLI::IsMember({"sim"}));
    verb.add_flag("--list", arguments.list, "Print the numbered passes that would run, and run none");
    verb.add_option("--stop-after", arguments.stopAfter, "Run no pass beyond this number")
        ->type_name("N")
        ->check(CLI::Range(0, kLargestNumber));
    verb.add_option("--skip", arguments.skip, "Leave out the pass of this number")
        ->type_name("N")
        ->check(CLI::Range(1, kLargestNumber))
        ->allow_extra_args(false);
    verb.add_flag("--stats", arguments.stats, "Print blocks by type before and after, and the growth of each pass");
    verb.add_flag("--growth", arguments.growth, "Print the blocks and wires behind each pass that changed something");
    verb.add_flag("--resources", arguments.resources,
                  "Print what the design would cost, and what each pass changed in that");
    verb.add_flag("--types-before-after", arguments.types, "Print the wires whose type the passes changed");
    verb.add_flag("--time", arguments.time, "Print where time and memory went");
    verb.add_option("--time-json", arguments.timeJson, "Write the same as JSON")
        ->type_name("FILE")
        ->check(namesSomething());
    verb.add_option("--time-trace", arguments.timeTrace, "Write the same as a Chrome trace")
        ->type_name("FILE")
        ->check(namesSomething());
    verb.add_option("--dump-dir", arguments.dumpFolder, "Write the design after each pass that changed it")
        ->type_name("DIR")
        ->check(namesSomething());
    verb.add_option("--crash-dir", arguments.crashFolder, "Where a reproducer goes; the current folder if not given")
        ->type_name("DIR")
        ->check(namesSomething());
    verb.add_flag("--no-reproducer", arguments.noReproducer,
                  "Write no reproducer at a fault, and keep nothing for one");
}

void requireKnown(const std::vector<PassText> &passes, const std::string &name, Console &console) {
    const auto unknown = findUnknown(passes);
    if (!unknown) {
        return;
    }
    Console::Params params{{"pass", unknown->pass}};
    if (!unknown->suggestion.empty()) {
        params["suggestion"] = unknown->suggestion;
    }
    if (!unknown->param.empty()) {
        params["param"] = unknown->param;
    }
    console.fail(kWrongUsage, unknown->param.empty() ? "DRIVER_UNKNOWN_PASS" : "DRIVER_UNKNOWN_PARAM", params,
                 {name, unknown->position.line, unknown->position.column});
}

void addPassTexts(const std::string &text, const std::string &name, Context *context, std::vector<PassText> &passes,
                  Console &console) {
    std::vector<PassText> read;
    if (const auto error = parsePassText(text, context, read)) {
        console.fail(kWrongUsage, "DRIVER_BAD_PASS_TEXT", {{"reason", error->reason}},
                     {name, error->position.line, error->position.column});
    }
    requireKnown(read, name, console);
    passes.insert(passes.end(), read.begin(), read.end());
}

int runPasses(const RunArguments &arguments, const PassSource &source, Console &console) {
    return PassRun(arguments, source, console).run();
}

} // namespace orvo::driver
