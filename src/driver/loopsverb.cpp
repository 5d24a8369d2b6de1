// The verb "loops": the feedback loops of a design, with their blocks and the cycles of delay that they hold.
#include "driver/verbs.h"

#include "driver/designroots.h"
#include "driver/jsontext.h"
#include "driver/openeddesign.h"
#include "driver/passrun.h"
#include "driver/simulation.h"

#include <orvo/block.h>
#include <orvo/early_cycle_analysis.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <unordered_set>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string input;
    std::string top;
    std::size_t limit = 1000;
};

struct Loop {
    const Model *root;
    std::vector<const Block *> blocks;
    int slack;
    bool memory;
};

/// Blocks that searches may pass for each loop of the limit: in a tangle without delays, each search passes all of it.
constexpr std::size_t kStepsPerLoop = 5000;

/// Asks for all loops, and loses interest in a block once a loop through it was told: what is left has blocks that no
/// loop has shown.
class EveryLoop final : public EarlyCycleAnalysis {
  public:
    EveryLoop(std::vector<Loop> &loops, std::size_t limit) : mLoops(loops), mLimit(limit) {}

    void startAt(const Model &root) {
        mRoot = &root;
        mIsSearching = false;
    }
    /// Whether the limit kept no block from being looked at.
    bool isComplete() const { return mIsComplete; }

    bool isJanusBlock(const Block *block) const override {
        if (mShown.count(block) != 0) {
            return false;
        }
        const bool goesOn = mLoops.size() < mLimit && mSteps < mLimit * kStepsPerLoop;
        mIsComplete = mIsComplete && goesOn;
        return goesOn;
    }
    bool furtherAnalysis() const override { return true; }
    /// Asked of the blocks on loops when the graph is made and before searches begin.
    bool isBlockSalient(const Block *) const override {
        mIsSearching = true;
        return true;
    }
    /// Asked of each block that is passed.
    bool preventsFurtherAnalysis(const Block *) const override {
        mSteps += mIsSearching ? 1 : 0;
        return false;
    }
    void worstSlackPath(const std::vector<const Block *> &path, int slack) override {
        mShown.insert(path.begin(), path.end());
        const EarlyCycleLSUAnalysis memories;
        const bool memory = std::any_of(path.begin(), path.end(),
                                        [&memories](const Block *block) { return memories.isJanusBlock(block); });
        mLoops.push_back({mRoot, path, slack, memory});
    }

  private:
    std::vector<Loop> &mLoops;
    std::size_t mLimit;
    const Model *mRoot = nullptr;
    std::unordered_set<const Block *> mShown;
    mutable bool mIsComplete = true;
    mutable bool mIsSearching = false;
    mutable std::size_t mSteps = 0;
};

std::string typeOf(const Block &block) { return block.type() != nullptr ? block.type()->toString() : ""; }

std::string text(const std::vector<Loop> &loops, bool isComplete) {
    std::string out;
    const Model *root = nullptr;
    for (const Loop &loop : loops) {
        if (loop.root != root) {
            root = loop.root;
            out += (out.empty() ? "" : "\n") + root->getName()->toString() + "\n";
        }
        out += fmt::format("  loop of {} block{}, slack {}{}\n", loop.blocks.size(), loop.blocks.size() == 1 ? "" : "s",
                           loop.slack, loop.memory ? ", accesses memory" : "");
        for (const Block *block : loop.blocks) {
            const std::string name = block->getModel().getName()->toString() + "/" + block->getName()->toString();
            out += fmt::format("    {:<28} {}\n", name, typeOf(*block));
        }
    }
    return out + (isComplete ? "" : "and more: raise --limit to see them\n");
}

Json toJson(const std::vector<Loop> &loops, bool isComplete, const std::string &input) {
    Json json;
    json["schema"] = "orvo.loops/1";
    json["input"] = input;
    json["complete"] = isComplete;
    json["loops"] = Json::array();
    for (const Loop &loop : loops) {
        Json entry;
        entry["root"] = loop.root->getName()->toString();
        entry["slack"] = loop.slack;
        entry["memory"] = loop.memory;
        entry["blocks"] = Json::array();
        for (const Block *block : loop.blocks) {
            entry["blocks"].push_back({{"model", block->getModel().getName()->toString()},
                                       {"block", block->getName()->toString()},
                                       {"type", typeOf(*block)}});
        }
        json["loops"].push_back(std::move(entry));
    }
    return json;
}

/// Loops are looked for in every design, so one whose models all instantiate each other is taken as a whole.
std::vector<const Model *> rootsOf(const Design &design, const std::string &top, Console &console) {
    if (!top.empty()) {
        return {&topModel(design, top, console)};
    }
    std::vector<const Model *> roots = designRoots(design);
    if (roots.empty()) {
        for (const Model &model : design) {
            roots.push_back(&model);
        }
    }
    return roots;
}

int loops(const Arguments &arguments, Console &console) {
    OpenedDesign opened(arguments.input, console);
    const std::vector<const Model *> roots = rootsOf(*opened.design, arguments.top, console);
    opened.progress.phase("looking for loops");
    std::vector<Loop> found;
    EveryLoop policy(found, arguments.limit);
    EarlyCycleAnalysisImpl impl(*opened.design);
    for (const Model *root : roots) {
        policy.startAt(*root);
        impl.analyze(*root, policy);
    }
    opened.progress.hide();
    console.emit(console.json() ? documentText(toJson(found, policy.isComplete(), arguments.input))
                                : text(found, policy.isComplete()));
    return kFine;
}

} // namespace

void addLoopsVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "loops", "Show the feedback loops of a design and the delay in them");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("--top", arguments->top, "The model to start at; the roots of the design if not given")
        ->type_name("MODEL")
        ->check(namesSomething());
    verb->add_option("--limit", arguments->limit, "Show no more loops than that, and search in proportion (1000)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000000));
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return loops(*arguments, host.console); }; });
}

} // namespace orvo::driver
