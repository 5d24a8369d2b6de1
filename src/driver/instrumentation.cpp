// The driver's work around each pass. A snapshot for the reproducer is taken only when the design has changed since the
// last one, and the first is the input file itself; a run that is reproduced from its input needs no other.
#include "driver/instrumentation.h"

#include "driver/files.h"
#include "driver/invariants.h"
#include "driver/message_texts.h"
#include "driver/simulation.h"
#include "driver/waveform.h"
#include "generator/modelgenerator.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/simcompare.h>
#include <orvo/staticstrings.h>
#include <util/profiling.h>

#include <fmt/format.h>

#include <cstdio>

namespace orvo::driver {

namespace {

std::string dumpName(const PassRecord &record) {
    char number[32];
    std::snprintf(number, sizeof(number), "%03zu", record.number);
    return std::string(number) + "-" + record.name + ".xml";
}

} // namespace

std::string printExecution(const PassExecution &execution) {
    PassText text;
    text.name = execution.name;
    for (const auto &[name, value] : execution.params->settings()) {
        text.params.emplace_back(name, value);
    }
    return printPassText(text);
}

DriverInstrumentation::DriverInstrumentation(RunOptions options, const std::vector<PassText> &passes, Console &console,
                                             Progress &progress)
    : mOptions(std::move(options)), mPasses(passes), mConsole(console), mProgress(progress) {}

bool DriverInstrumentation::shouldRun(const PassExecution &execution, Design &design) {
    PassRecord record;
    record.number = execution.index + 1;
    record.name = execution.name;
    record.text = printExecution(execution);
    record.requested = execution.requested;
    record.turn = execution.turn;
    if (execution.request != mRequest || execution.turn != mTurn) {
        mRequest = execution.request;
        mTurn = execution.turn;
        mCommandsBeforeRequest = execution.index;
    }
    // After an error of the design, the passes that follow could only stumble over it.
    record.wouldRun =
        mOptions.skip.count(record.number) == 0 && (!mOptions.stopAfter || record.number <= *mOptions.stopAfter);
    record.ran = !mOptions.list && mConsole.errors() == 0 && record.wouldRun;
    if (mOptions.stats) {
        record.before = mRecords.empty() ? countNodes(design) : mRecords.back().after;
        record.after = record.before;
    }
    if (mOptions.resources) {
        record.costBefore = mRecords.empty() ? estimate(design) : mRecords.back().costAfter;
        record.costAfter = record.costBefore;
    }
    mRecords.push_back(record);
    return record.ran;
}

void DriverInstrumentation::beforePass(const PassExecution &execution, Design &design) {
    if (mOptions.simulate && !mBeforeTaken) {
        mBeforeTaken = true;
        simulateBefore(design);
    }
    if (mOptions.verifyEach && !mOpenInputs) {
        mOpenInputs.emplace(design);
    }
    const PassRecord &record = mRecords.back();
    mProgress.phase("pass " + std::to_string(record.number) + ": " + execution.name);
    armFor(record, design);
    util::ProfilingLog::begin({execution.name, "pass " + std::to_string(record.number)});
}

void DriverInstrumentation::armFor(const PassRecord &record, const Design &design) {
    if (mOptions.reproducerPath.empty()) {
        armFaults({record.number, record.name, "", "", -1});
        return;
    }
    const std::uint64_t edits = design.editCount();
    if (readsInputAgain() || (!mSnapshotEdits && mOptions.inputDescriptor >= 0)) {
        mSnapshot = mOptions.inputDescriptor;
    } else if (mSnapshotEdits != edits) {
        util::ProfilingSection section("snapshot", "for the reproducer");
        if (mSnapshots == nullptr) {
            mSnapshots = std::make_unique<DesignSnapshots>();
        }
        mSnapshot = mSnapshots->take(design);
    }
    mSnapshotEdits = edits;
    armFaults({record.number, record.name, mOptions.reproducerPath, reproducerHeader(record), mSnapshot});
}

/// A run from the input on costs nothing until there is a fault, and has what passes keep beside the design.
bool DriverInstrumentation::readsInputAgain() const {
    return mOptions.reproduceFromInput && mOptions.inputDescriptor >= 0;
}

std::string DriverInstrumentation::reproducerHeader(const PassRecord &record) const {
    Reproducer reproducer;
    reproducer.version = ORVO_VERSION;
    reproducer.pass = std::to_string(record.number) + " " + record.name;
    reproducer.verifyEach = mOptions.verifyEach;
    reproducer.simulate = mOptions.simulate;
    reproducer.features = mOptions.features;
    // A replay of a snapshot counts from the first command of the pass that is now due.
    const std::size_t before = readsInputAgain() ? 0 : mCommandsBeforeRequest;
    for (const std::size_t skipped : mOptions.skip) {
        if (skipped > before) {
            reproducer.skip.push_back(skipped - before);
        }
    }
    if (mOptions.stopAfter) {
        reproducer.stopAfter = *mOptions.stopAfter - before;
    }
    reproducer.passes = printPassTexts(passesFrom(mPasses, readsInputAgain() ? 0 : mRequest));
    return printReproducerHeader(reproducer);
}

void DriverInstrumentation::afterPass(const PassExecution &, Design &design, bool changed) {
    util::ProfilingLog::end();
    PassRecord &record = mRecords.back();
    record.changed = changed;
    // What a pass could not do, and told so, it may leave half done.
    const bool isSound = mConsole.errors() == 0;
    if (changed && isSound && mOptions.verifyEach) {
        verify(record, design);
    }
    if (changed && isSound && mOptions.simulate) {
        compareWithBefore(record, design);
    }
    if (changed && mOptions.stats) {
        record.after = countNodes(design);
    }
    disarmFaults();
    if (changed && isSound && mOptions.resources) {
        record.costAfter = estimate(design);
    }
    if (changed && !mOptions.dumpFolder.empty()) {
        dump(record, design);
    }
}

void DriverInstrumentation::verify(const PassRecord &record, const Design &design) {
    util::ProfilingSection section("verify", record.name);
    for (const std::string &fault : findBrokenLinks(design, 1)) {
        reportFault("the pass left the netlist broken: " + fault);
        throw VerbFailure{kInternalFault};
    }
    for (const Finding &finding : checkDesign(design, getBlocksInfo())) {
        if (wasSoBefore(finding)) {
            continue;
        }
        reportFault("the pass left a block that breaks the catalogue: " + renderMessage(finding.tag, finding.params));
        throw VerbFailure{kInternalFault};
    }
}

/// An input that was open behind the edge of a model before the first pass is the design's own.
bool DriverInstrumentation::wasSoBefore(const Finding &finding) const {
    const auto port = finding.params.find("port");
    return finding.block != nullptr && port != finding.params.end() &&
           mOpenInputs->wasOpen(*finding.block, port->second);
}

/// Of models that are put out, if there are such; else of all that no other instantiates.
void DriverInstrumentation::simulateBefore(const Design &design) {
    util::ProfilingSection section("simulate", "before the first pass");
    std::vector<const Model *> tops;
    bool isOutput = false;
    for (const Model &model : design) {
        const bool puts = model[A_SYNTH_OUTPUT_MODE] == A_TRUE;
        if (puts && !isOutput) {
            tops.clear();
            isOutput = true;
        }
        if (puts || (!isOutput && model.getParentBlocks().empty())) {
            tops.push_back(&model);
        }
    }
    sim::SimulatorOptions options;
    options.trackUnknown = true;
    for (const Model *top : tops) {
        mBefore.emplace_back(top->getName()->toString(), compileSimulator(design, *top, options, mConsole));
    }
}

void DriverInstrumentation::compareWithBefore(const PassRecord &record, const Design &design) {
    util::ProfilingSection section("simulate", record.name);
    const auto fail = [](const std::string &reason) {
        reportFault("the pass changed what the design computes: " + reason);
        throw VerbFailure{kInternalFault};
    };
    for (auto &[name, before] : mBefore) {
        const Model *top = nullptr;
        for (const Model &model : design) {
            top = model.getName()->toString() == name ? &model : top;
        }
        if (top == nullptr) {
            continue;
        }
        try {
            sim::SimulatorOptions options;
            options.trackUnknown = true;
            sim::Simulator after(design, *top, options);
            const sim::CompareResult result = sim::compareBehaviour(*before, after);
            if (!result.unmatched.empty()) {
                fail("'" + result.unmatched.front() + "' of model '" + name + "' is not what it was");
            }
            if (!result.mismatches.empty()) {
                const sim::Mismatch &first = result.mismatches.front();
                fail(fmt::format("in cycle {} output '{}' of model '{}' is {} in place of {}", first.cycle,
                                 first.output, name, valueText(first.scalar, first.second, first.secondUnknown, false),
                                 valueText(first.scalar, first.first, first.firstUnknown, false)));
            }
        } catch (const sim::SimulationError &error) {
            fail(std::string(error.what()) + (error.blocks().empty() ? "" : " at " + error.blocks().front()));
        }
    }
}

/// Lists of passes run none, and so have nothing to compare.
DesignCost DriverInstrumentation::estimate(const Design &design) {
    if (mOptions.list) {
        return {};
    }
    util::ProfilingSection section("estimate", "what the design costs");
    return costOf(generator::estimateDesign(design));
}

void DriverInstrumentation::dump(PassRecord &record, const Design &design) {
    util::ProfilingSection section("dump", record.name);
    record.dump = mOptions.dumpFolder + "/" + dumpName(record);
    writeDesign(design, record.dump, mConsole);
}

} // namespace orvo::driver
