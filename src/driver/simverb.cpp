// The verb "sim": runs a design on a stimulus and shows what comes out, cycle by cycle.
#include "driver/verbs.h"

#include "driver/files.h"
#include "driver/jsontext.h"
#include "driver/openeddesign.h"
#include "driver/passrun.h"
#include "driver/progress.h"
#include "driver/simulation.h"
#include "driver/suggest.h"
#include "driver/waveform.h"

#include <orvo/design.h>
#include <orvo/model.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string input;
    std::string top;
    std::optional<std::uint64_t> cycles;
    std::string stimulus = "noise";
    std::string output = "-";
    std::string changes;
    std::vector<std::string> probes;
    bool raw = false;
    bool unknowns = false;
};

/// A stimulus out of a table: one column an input, one row a cycle; the last row stays.
class TableStimulus final : public Stimulus {
  public:
    TableStimulus(const std::string &path, const sim::Simulator &simulator, bool raw, Console &console)
        : mColumns(simulator.inputs().size()) {
        const std::vector<sim::Scalar> &inputs = simulator.inputs();
        std::string text = readWhole(path, console);
        if (const std::string mark = "\xef\xbb\xbf"; text.compare(0, mark.size(), mark) == 0) {
            text.erase(0, mark.size());
        }
        std::istringstream in(text);
        const std::string name = path == "-" ? "<stdin>" : path;
        std::string line;
        std::getline(in, line);
        std::vector<std::optional<std::size_t>> order;
        for (const std::string &title : fields(line)) {
            order.push_back(columnOf(title, simulator, name, console));
            if (order.back() && std::count(order.begin(), order.end(), order.back()) > 1) {
                refuse(name, 1, fmt::format("the input '{}' stands twice", title), console);
            }
        }
        for (int row = 2; std::getline(in, line); ++row) {
            const std::vector<std::string> cells = fields(line);
            if (cells.size() == 1 && cells[0].empty()) {
                continue;
            }
            if (cells.size() != order.size()) {
                refuse(name, row, fmt::format("{} values stand under {} names", cells.size(), order.size()), console);
            }
            for (std::size_t i = 0; i < cells.size(); ++i) {
                if (!order[i]) {
                    continue;
                }
                const std::optional<Words> words = parseValue(inputs[*order[i]], cells[i], raw);
                if (!words) {
                    refuse(name, row, fmt::format("'{}' is no number", cells[i]), console);
                }
                mColumns[*order[i]].push_back(*words);
            }
            ++mRows;
        }
    }
    std::uint64_t rows() const { return mRows; }
    Words at(std::uint64_t cycle, std::size_t input) override {
        const std::vector<Words> &column = mColumns[input];
        return column.empty() ? Words{0} : column[std::min<std::uint64_t>(cycle, column.size() - 1)];
    }

  private:
    /// Cells between commas; in quotes a comma is part of the cell, and two quotes are one.
    static std::vector<std::string> fields(const std::string &line) {
        std::vector<std::string> cells{""};
        bool isQuoted = false;
        for (std::size_t i = 0; i < line.size(); ++i) {
            const char c = line[i];
            if (c == '"' && isQuoted && i + 1 < line.size() && line[i + 1] == '"') {
                cells.back() += line[++i];
            } else if (c == '"') {
                isQuoted = !isQuoted;
            } else if (c == ',' && !isQuoted) {
                cells.emplace_back();
            } else {
                cells.back() += c;
            }
        }
        for (std::string &cell : cells) {
            const std::size_t begin = cell.find_first_not_of(" \t\r");
            const std::size_t end = cell.find_last_not_of(" \t\r");
            cell = begin == std::string::npos ? "" : cell.substr(begin, end - begin + 1);
        }
        return cells;
    }
    /// A column of cycle numbers, as the output has it, is passed over, and one of an input that nobody reads.
    static std::optional<std::size_t> columnOf(const std::string &title, const sim::Simulator &simulator,
                                               const std::string &name, Console &console) {
        const std::vector<sim::Scalar> &inputs = simulator.inputs();
        std::vector<std::string> known;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            if (inputs[i].name == title) {
                return i;
            }
            known.push_back(inputs[i].name);
        }
        const std::string wire = title.substr(0, title.find_first_of("[."));
        const std::vector<std::string> &idle = simulator.idleInputs();
        if (std::find(idle.begin(), idle.end(), wire) != idle.end()) {
            return std::nullopt;
        }
        if (title != "cycle") {
            const std::string near = suggest(title, known);
            refuse(name, 1,
                   fmt::format("the design has no input '{}'{}", title,
                               near.empty() ? "" : fmt::format(": did you mean '{}'?", near)),
                   console);
        }
        return std::nullopt;
    }
    [[noreturn]] static void refuse(const std::string &name, int row, const std::string &reason, Console &console) {
        console.fail(kWrongUsage, "DRIVER_BAD_STIMULUS", {{"reason", reason}}, {name, row, -1});
    }

    std::vector<std::vector<Words>> mColumns;
    std::uint64_t mRows = 0;
};

Json describe(const std::vector<sim::Scalar> &scalars) {
    Json json = Json::array();
    for (const sim::Scalar &scalar : scalars) {
        json.push_back({{"name", scalar.name},
                        {"width", scalar.width},
                        {"signed", scalar.isSigned},
                        {"float", scalar.isFloat},
                        {"fraction", scalar.fraction}});
    }
    return json;
}

/// Runs the cycles and hands out what each shows.
class Run {
  public:
    Run(const Arguments &arguments, sim::Simulator &simulator, Stimulus &stimulus, std::uint64_t cycles,
        Progress &progress)
        : mArguments(arguments), mSimulator(simulator), mStimulus(stimulus), mCycles(cycles), mProgress(progress) {
        mShown = mSimulator.outputs();
        mShown.insert(mShown.end(), mSimulator.probes().begin(), mSimulator.probes().end());
        mAll = mSimulator.inputs();
        mAll.insert(mAll.end(), mShown.begin(), mShown.end());
    }
    const std::vector<sim::Scalar> &shown() const { return mShown; }
    const std::vector<sim::Scalar> &all() const { return mAll; }

    /// Calls `row(cycle, samples of all())` for each cycle.
    template <class Row> void forEachCycle(Row row) {
        const std::size_t inputs = mSimulator.inputs().size();
        std::vector<Sample> samples(mAll.size());
        for (std::uint64_t cycle = 0; cycle < mCycles; ++cycle) {
            if (cycle % 1024 == 0) {
                mProgress.phase(fmt::format("simulating, {} % of {} cycles", cycle * 100 / mCycles, mCycles));
            }
            for (std::size_t i = 0; i < inputs; ++i) {
                mSimulator.setInput(i, mStimulus.at(cycle, i));
                samples[i].bits = mSimulator.input(i);
                samples[i].unknown.assign(samples[i].bits.size(), 0);
            }
            mSimulator.step();
            for (std::size_t i = 0; i < mSimulator.outputs().size(); ++i) {
                samples[inputs + i] = {mSimulator.output(i), mSimulator.unknownOutput(i)};
            }
            for (std::size_t i = 0; i < mSimulator.probes().size(); ++i) {
                samples[inputs + mSimulator.outputs().size() + i] = {mSimulator.probe(i), mSimulator.unknownProbe(i)};
            }
            row(cycle, samples);
        }
    }
    /// Outputs and probes as texts.
    std::vector<std::string> cells(const std::vector<Sample> &samples) const {
        std::vector<std::string> texts;
        for (std::size_t i = mAll.size() - mShown.size(); i < mAll.size(); ++i) {
            texts.push_back(valueText(mAll[i], samples[i].bits, samples[i].unknown, mArguments.raw));
        }
        return texts;
    }

  private:
    const Arguments &mArguments;
    sim::Simulator &mSimulator;
    Stimulus &mStimulus;
    std::uint64_t mCycles;
    Progress &mProgress;
    std::vector<sim::Scalar> mShown;
    std::vector<sim::Scalar> mAll;
};

/// A name as a cell of a table.
std::string quoted(const std::string &name) {
    if (name.find_first_of(",\" \t") == std::string::npos) {
        return name;
    }
    std::string cell;
    for (const char c : name) {
        cell += c == '"' ? "\"\"" : std::string(1, c);
    }
    return '"' + cell + '"';
}

/// The tables of a run, in whole outputs: the rows, and the value changes beside them.
void writeRun(const Arguments &arguments, Run &run, const std::string &top, Console &console) {
    const auto rows = [&](std::ostream &table, ChangeDump *changes) {
        table << "cycle";
        for (const sim::Scalar &scalar : run.shown()) {
            table << "," << quoted(scalar.name);
        }
        table << "\n";
        run.forEachCycle([&](std::uint64_t cycle, const std::vector<Sample> &samples) {
            table << cycle;
            for (const std::string &cell : run.cells(samples)) {
                table << "," << cell;
            }
            table << "\n";
            if (changes != nullptr) {
                changes->cycle(cycle, samples);
            }
        });
    };
    if (arguments.changes.empty()) {
        writeOutput(arguments.output, console, [&](std::ostream &table) { rows(table, nullptr); });
        return;
    }
    writeOutput(arguments.changes, console, [&](std::ostream &out) {
        ChangeDump changes(out, top, run.all());
        writeOutput(arguments.output, console, [&](std::ostream &table) { rows(table, &changes); });
    });
}

/// What is read must not be written, nor two things to one place.
void requireApart(const Arguments &arguments, Console &console) {
    const auto refuse = [&console](const char *reason) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", reason}});
    };
    if (arguments.input == "-" && arguments.stimulus == "-") {
        refuse("the design and the stimulus cannot both come from standard input");
    }
    if (arguments.changes == arguments.output) {
        refuse("the table and the dump need places of their own");
    }
    for (const std::string *output : {&arguments.output, &arguments.changes}) {
        if (*output != "-" && (*output == arguments.input || *output == arguments.stimulus)) {
            refuse("an output would take the place of what is read");
        }
    }
}

int simulate(const Arguments &arguments, Console &console) {
    requireInput(arguments.input, console);
    requireApart(arguments, console);
    OpenedDesign opened(arguments.input, console);
    const Model &top = topModel(*opened.design, arguments.top, console);
    opened.progress.phase("compiling");
    sim::SimulatorOptions options;
    options.probes = arguments.probes;
    options.trackUnknown = arguments.unknowns;
    const std::unique_ptr<sim::Simulator> simulator = compileSimulator(*opened.design, top, options, console);
    std::unique_ptr<Stimulus> stimulus = makeStimulus(arguments.stimulus, simulator->inputs());
    std::uint64_t cycles = arguments.cycles.value_or(100);
    if (stimulus == nullptr) {
        if (arguments.stimulus.compare(0, 6, "noise:") == 0) {
            console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "noise takes seed=NUMBER"}});
        }
        auto table = std::make_unique<TableStimulus>(arguments.stimulus, *simulator, arguments.raw, console);
        cycles = arguments.cycles.value_or(table->rows());
        stimulus = std::move(table);
    }
    Run run(arguments, *simulator, *stimulus, cycles, opened.progress);
    const std::string topName = top.getName()->toString();
    if (!console.json()) {
        writeRun(arguments, run, topName, console);
        return kFine;
    }
    Json json{{"schema", "orvo.sim/1"},
              {"input", arguments.input},
              {"top", topName},
              {"cycles", cycles},
              {"operations", simulator->operations()},
              {"inputs", describe(simulator->inputs())},
              {"outputs", describe(simulator->outputs())},
              {"probes", describe(simulator->probes())}};
    if (arguments.output == "-") {
        json["rows"] = Json::array();
        const auto rows = [&](ChangeDump *changes) {
            run.forEachCycle([&](std::uint64_t cycle, const std::vector<Sample> &samples) {
                json["rows"].push_back(run.cells(samples));
                if (changes != nullptr) {
                    changes->cycle(cycle, samples);
                }
            });
        };
        if (arguments.changes.empty()) {
            rows(nullptr);
        } else {
            writeOutput(arguments.changes, console, [&](std::ostream &out) {
                ChangeDump changes(out, topName, run.all());
                rows(&changes);
            });
        }
    } else {
        writeRun(arguments, run, topName, console);
    }
    opened.progress.hide();
    console.emit(documentText(json));
    return kFine;
}

} // namespace

void addSimVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "sim", "Run a design on a stimulus, cycle by cycle");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("--top", arguments->top, "The model to run; the only one that no other instantiates if not given")
        ->type_name("MODEL")
        ->check(namesSomething());
    verb->add_option("--cycles", arguments->cycles, "Clock cycles to run; the rows of a table, else 100")
        ->type_name("N")
        ->check(CLI::Range(std::uint64_t{0}, kMostCycles));
    verb->add_option("--stimulus", arguments->stimulus,
                     "noise, noise:seed=S, impulse, ramp, corners, or a table: names of inputs, then a row a cycle")
        ->type_name("WHAT")
        ->check(namesSomething());
    verb->add_option("-o,--output", arguments->output, "Table of outputs and probes to write; - is standard output")
        ->type_name("FILE")
        ->check(namesSomething());
    verb->add_option("--vcd", arguments->changes, "Value change dump to write")
        ->type_name("FILE")
        ->check(namesSomething());
    verb->add_option("--probe", arguments->probes, "A wire to show, as top/a/b/block/wire")
        ->type_name("PATH")
        ->check(namesSomething())
        ->allow_extra_args(false);
    verb->add_flag("--unknowns", arguments->unknowns, "Show x for bits that nothing settles; else they are zero");
    verb->add_flag("--raw", arguments->raw, "Values as the integers of their bits, in the tables read and written");
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return simulate(*arguments, host.console); }; });
}

} // namespace orvo::driver
