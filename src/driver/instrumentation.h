// What the driver does around each pass: numbering, bisecting, dumps, timing, counting, verification, and keeping what
// a reproducer needs.
#pragma once

#include "driver/catalogue.h"
#include "driver/console.h"
#include "driver/faults.h"
#include "driver/openinputs.h"
#include "driver/passtext.h"
#include "driver/progress.h"
#include "driver/reproducer.h"
#include "driver/resources.h"
#include "driver/statistics.h"

#include <orvo/pass.h>
#include <orvo/simulator.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace orvo::driver {

/// What the options of a verb say about a run.
struct RunOptions {
    bool verifyEach = false;
    /// Compare by simulation after each pass that changed something.
    bool simulate = false;
    /// Count blocks and wires after each pass.
    bool stats = false;
    /// Estimate what the design costs after each pass.
    bool resources = false;
    /// Run nothing, only number.
    bool list = false;
    /// Empty for no dumps.
    std::string dumpFolder;
    /// Commands are numbered from 1.
    std::optional<std::size_t> stopAfter;
    std::set<std::size_t> skip;
    std::vector<std::pair<std::string, std::string>> features;
    /// Where a reproducer goes; empty for none.
    std::string reproducerPath;
    /// A file with the design as it was read; -1 if there is none.
    int inputDescriptor = -1;
    /// A reproducer holds the input and all passes, if the input can be read again, instead of what the failing pass
    /// saw.
    bool reproduceFromInput = false;
};

/// One command of a run: a pass that was asked for, or one that it requires.
struct PassRecord {
    std::size_t number = 0;
    std::string name;
    std::string text;
    bool requested = false;
    /// Of passes that run in turns; 0 for others.
    std::size_t turn = 0;
    bool ran = false;
    /// Whether neither --skip nor --stop-after leaves it out.
    bool wouldRun = false;
    bool changed = false;
    /// The file of its dump; empty for none.
    std::string dump;
    /// Only with statistics.
    NodeCounts before;
    NodeCounts after;
    /// Only with estimates.
    DesignCost costBefore;
    DesignCost costAfter;
};

class DriverInstrumentation final : public PassInstrumentation {
  public:
    /// `passes` are those of the run, in order. All arguments but the options live longer than this.
    DriverInstrumentation(RunOptions options, const std::vector<PassText> &passes, Console &console,
                          Progress &progress);

    bool shouldRun(const PassExecution &execution, Design &design) override;
    void beforePass(const PassExecution &execution, Design &design) override;
    void afterPass(const PassExecution &execution, Design &design, bool changed) override;

    const std::vector<PassRecord> &records() const { return mRecords; }

  private:
    void armFor(const PassRecord &record, const Design &design);
    bool readsInputAgain() const;
    std::string reproducerHeader(const PassRecord &record) const;
    void verify(const PassRecord &record, const Design &design);
    bool wasSoBefore(const Finding &finding) const;
    void simulateBefore(const Design &design);
    void compareWithBefore(const PassRecord &record, const Design &design);
    DesignCost estimate(const Design &design);
    void dump(PassRecord &record, const Design &design);

    RunOptions mOptions;
    const std::vector<PassText> &mPasses;
    Console &mConsole;
    Progress &mProgress;
    std::vector<PassRecord> mRecords;
    /// The top models as they were read, by name.
    std::vector<std::pair<std::string, std::unique_ptr<sim::Simulator>>> mBefore;
    bool mBeforeTaken = false;
    /// Of the design as it was read; only for verification.
    std::optional<OpenInputs> mOpenInputs;
    /// Which of `mPasses` is due, in which turn, and how many commands ran before its first.
    std::size_t mRequest = 0;
    std::size_t mTurn = 0;
    std::size_t mCommandsBeforeRequest = 0;
    std::unique_ptr<DesignSnapshots> mSnapshots;
    int mSnapshot = -1;
    std::optional<std::uint64_t> mSnapshotEdits;
};

/// Text of a command's parameters as in a list of passes.
std::string printExecution(const PassExecution &execution);

} // namespace orvo::driver
