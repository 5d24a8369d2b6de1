// The scheduler: requests are expanded depth first through what the passes declare, into one flat list of commands.
#include "orvo/passregistry.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/pass.h>

#include <util/profiling.h>

#include <algorithm>

namespace orvo {

PassInstrumentation::~PassInstrumentation() = default;

bool PassInstrumentation::shouldRun(const PassExecution &, Design &) { return true; }

void PassInstrumentation::beforePass(const PassExecution &, Design &) {}

void PassInstrumentation::afterPass(const PassExecution &, Design &, bool) {}

void PassDeclarations::requirePass(const std::string &name, const ParamContext &params) {
    PassRequest request{name, params};
    internal::checkPassRequest(request);
    mRequired.push_back(std::move(request));
}

namespace internal {

namespace {

enum PassCmdKind { PASSCMD_APPLY = 0, PASSCMD_DELETE = 1 };

/// Closes the sections of the profiling log that an exception leaves open.
class SectionUnwinder {
  public:
    SectionUnwinder() : mDepth(util::ProfilingLog::depth()) {}
    ~SectionUnwinder() { util::ProfilingLog::unwindTo(mDepth); }
    SectionUnwinder(const SectionUnwinder &) = delete;
    SectionUnwinder &operator=(const SectionUnwinder &) = delete;

  private:
    std::size_t mDepth;
};

struct PassCmd {
    PassCmdKind kind;
    Pass *pass;
    ParamContext params;
    bool requested;
    std::size_t request;
};

/// Commands that run in turns: from `first` on, up to before `last`.
struct CommandTurns {
    std::size_t first;
    std::size_t last;
};

/// Which command comes next, turns respected.
class CommandOrder {
  public:
    CommandOrder(const Design &design, std::vector<CommandTurns> turns) : mDesign(design), mTurns(std::move(turns)) {
        enter();
    }
    std::size_t at() const { return mAt; }
    std::size_t turn() const { return isInTurns() ? mTurn : 0; }
    /// Goes on behind the command at `at()`.
    void next() {
        const bool wasIn = isInTurns();
        ++mAt;
        if (wasIn && mAt == mTurns[mNext].last) {
            endTurn();
        } else if (!wasIn) {
            enter();
        }
    }

  private:
    bool isInTurns() const { return mNext < mTurns.size() && mAt >= mTurns[mNext].first; }

    void enter() {
        mTurn = 1;
        mEdits = mDesign.editCount();
    }

    void endTurn() {
        const bool changed = mDesign.editCount() != mEdits;
        if (changed && mTurn < limits::kPassTurns) {
            mAt = mTurns[mNext].first;
            mEdits = mDesign.editCount();
            ++mTurn;
            return;
        }
        if (changed) {
            log::msg(msg::warning::PASSES_DO_NOT_SETTLE, log::p("turns", std::to_string(mTurn)));
        }
        ++mNext;
        enter();
    }

    const Design &mDesign;
    std::vector<CommandTurns> mTurns;
    std::size_t mAt = 0;
    /// The turns that the command stands in or before.
    std::size_t mNext = 0;
    std::size_t mTurn = 0;
    std::uint64_t mEdits = 0;
};

} // namespace

class PassResultsImpl {
  public:
    PassResultsImpl(Design &design, PassSchedulerState *state) : mDesign(&design), mState(state) {
        mDesign->events().designDying.add(dyingCallback());
    }
    ~PassResultsImpl() {
        for (const auto &entry : mPasses) {
            delete entry.second;
        }
        if (mDesign != nullptr) {
            mDesign->events().designDying.remove(dyingCallback());
        }
    }
    PassResultsImpl(const PassResultsImpl &) = delete;
    PassResultsImpl &operator=(const PassResultsImpl &) = delete;

    void run(const std::vector<PassRequest> &requests, const std::set<PassRequest> &required,
             const PassRunOptions &options);
    const PassContext::PassMap &passes() const { return mPasses; }

  private:
    using Callback = util::Function<void(Design &)>;
    /// From a request to all that wait for it.
    using Depends = std::map<PassRequest, std::set<PassRequest>>;
    using Worklist = std::list<Pass *>;

    Callback dyingCallback() { return Callback::bind<&PassResultsImpl::onDesignDying>(this); }
    void onDesignDying(Design &);
    Pass *getAddPass(const PassRequest &request);
    void insertRequirements(const PassDeclarations &declarations, const PassRequest *waiting, Depends &depends,
                            Worklist &worklist, Worklist::iterator before);
    void expand(const PassRequest &request, std::size_t place, std::vector<PassCmd> &commands);
    void applyPass(const PassCmd &command, std::size_t index, std::size_t turn, PassInstrumentation *instrumentation);
    void deletePass(Pass *pass);

    Design *mDesign;
    PassSchedulerState *mState;
    PassContext::PassMap mPasses;
    std::map<Pass *, PassRequest> mRequests;
    PassContext::ParamsMap mParams;
    std::vector<Pass *> mTemporary;
};

/// The passes that stay live after their design must not unhook from it later.
void PassResultsImpl::onDesignDying(Design &) {
    for (const auto &entry : mPasses) {
        entry.second->unbindEvents();
    }
    mDesign = nullptr;
}

Pass *PassResultsImpl::getAddPass(const PassRequest &request) {
    if (auto live = mPasses.find(request); live != mPasses.end()) {
        return live->second;
    }
    PassFactory factory = findPassFactory(request.name);
    ORVO_ASSERT(factory != nullptr, "a request names a pass that is not registered");
    Pass *pass = factory();
    mPasses.emplace(request, pass);
    mRequests.emplace(pass, request);
    mParams.emplace(pass, request.params);
    pass->bindEvents(*mDesign);
    return pass;
}

void PassResultsImpl::insertRequirements(const PassDeclarations &declarations, const PassRequest *waiting,
                                         Depends &depends, Worklist &worklist, Worklist::iterator before) {
    for (const PassRequest &required : declarations.getRequiredPasses()) {
        std::set<PassRequest> &waiters = depends[required];
        if (waiting != nullptr) {
            waiters.insert(*waiting);
            const std::set<PassRequest> &further = depends[*waiting];
            waiters.insert(further.begin(), further.end());
        }
        ORVO_ASSERT(waiters.count(required) == 0, "Pass dependency cycle");
        if (mPasses.count(required) == 0) {
            mTemporary.push_back(getAddPass(required));
        }
        worklist.insert(before, getAddPass(required));
    }
}

void PassResultsImpl::expand(const PassRequest &request, std::size_t place, std::vector<PassCmd> &commands) {
    Worklist worklist;
    Depends depends;
    PassDeclarations first;
    first.requirePass(request.name, request.params);
    insertRequirements(first, nullptr, depends, worklist, worklist.end());
    for (auto at = worklist.end(); at != worklist.begin();) {
        --at;
        PassDeclarations declarations;
        (*at)->declare(declarations);
        insertRequirements(declarations, &mRequests.at(*at), depends, worklist, at);
    }
    for (auto at = worklist.begin(); at != worklist.end(); ++at) {
        commands.push_back({PASSCMD_APPLY, *at, mParams.at(*at), std::next(at) == worklist.end(), place});
    }
}

void PassResultsImpl::applyPass(const PassCmd &command, std::size_t index, std::size_t turn,
                                PassInstrumentation *instrumentation) {
    Pass &pass = *command.pass;
    PassExecution execution{index, &pass, pass.getName(), &command.params, command.requested, command.request, turn};
    if (instrumentation != nullptr && !instrumentation->shouldRun(execution, *mDesign)) {
        return;
    }
    const SectionUnwinder unwinder;
    const std::uint64_t before = mDesign->editCount();
    if (instrumentation != nullptr) {
        instrumentation->beforePass(execution, *mDesign);
    }
    try {
        PassContext context(*mDesign, mPasses, mParams, mState);
        pass.beforeApply(context);
        pass.apply(context);
        pass.afterApply(context);
    } catch (const std::bad_typeid &exception) {
        log::msg(msg::error::BAD_TYPEID_WITH_PASS_INFO,
                 log::p("passName", execution.name) % log::p("exception", exception.what()));
        ORVO_ASSERT(false, "a pass met an object without a type");
    }
    if (instrumentation != nullptr) {
        instrumentation->afterPass(execution, *mDesign, mDesign->editCount() != before);
    }
}

void PassResultsImpl::deletePass(Pass *pass) {
    mPasses.erase(mRequests.at(pass));
    mRequests.erase(pass);
    mParams.erase(pass);
    pass->unbindEvents();
    delete pass;
}

void PassResultsImpl::run(const std::vector<PassRequest> &requests, const std::set<PassRequest> &required,
                          const PassRunOptions &options) {
    ORVO_ASSERT(mDesign != nullptr, "passes run on a design that is gone");
    ContextMgr guard(mDesign->getContext());
    for (const PassRequest &request : required) {
        getAddPass(request);
    }
    std::vector<PassCmd> commands;
    // Where the commands of each request begin, and those behind the last end.
    std::vector<std::size_t> begins;
    for (const PassRequest &request : requests) {
        begins.push_back(commands.size());
        expand(request, begins.size() - 1, commands);
    }
    begins.push_back(commands.size());
    std::vector<CommandTurns> commandTurns;
    for (const PassTurns &of : options.turns) {
        ORVO_ASSERT(of.first < of.last && of.last <= requests.size(), "turns of passes that are none");
        commandTurns.push_back({begins[of.first], begins[of.last]});
    }
    for (Pass *pass : mTemporary) {
        if (!options.keepsAll) {
            commands.push_back({PASSCMD_DELETE, pass, {}, false, 0});
        }
    }
    mTemporary.clear();
    CommandOrder order(*mDesign, std::move(commandTurns));
    try {
        for (std::size_t index = 0; order.at() < commands.size(); order.next()) {
            const PassCmd &command = commands[order.at()];
            if (command.kind == PASSCMD_DELETE) {
                deletePass(command.pass);
            } else {
                applyPass(command, index++, order.turn(), options.instrumentation);
            }
        }
    } catch (...) {
        // What only this run needed goes with it.
        for (std::size_t at = order.at(); at < commands.size(); ++at) {
            if (commands[at].kind == PASSCMD_DELETE) {
                deletePass(commands[at].pass);
            }
        }
        throw;
    }
}

} // namespace internal

PassResults::PassResults(Design &design, PassSchedulerState *state)
    : mImpl(std::make_shared<internal::PassResultsImpl>(design, state)) {}

PassResults::~PassResults() = default;

Pass *PassResults::getPass(const std::string &name) const {
    auto hit = mImpl->passes().lower_bound(PassRequest{name, {}});
    ORVO_ASSERT(hit != mImpl->passes().end() && hit->first.name == name, "no pass of this name was kept");
    [[maybe_unused]] const auto next = std::next(hit);
    ORVO_ASSERT(next == mImpl->passes().end() || next->first.name != name, "several passes of this name were kept");
    return hit->second;
}

Pass *PassResults::getPass(const std::string &name, const ParamContext &params) const {
    auto hit = mImpl->passes().find(PassRequest{name, params});
    ORVO_ASSERT(hit != mImpl->passes().end(), "no pass of this name and these parameters was kept");
    return hit->second;
}

std::size_t PassResults::size() const { return mImpl->passes().size(); }

void PassResults::run(const std::vector<PassRequest> &requests, const std::set<PassRequest> &required,
                      const PassRunOptions &options) {
    mImpl->run(requests, required, options);
}

void PassScheduler::addPass(const std::string &name, const ParamContext &params) {
    mRequests.push_back({name, params});
    internal::checkPassRequest(mRequests.back());
}

void PassScheduler::requirePass(const std::string &name, const ParamContext &params) {
    PassRequest request{name, params};
    internal::checkPassRequest(request);
    if (std::find(mRequests.begin(), mRequests.end(), request) == mRequests.end()) {
        mRequests.push_back(request);
    }
    mRequired.insert(request);
}

void PassScheduler::beginTurns() {
    ORVO_ASSERT(!mInTurns, "turns of passes stand in others");
    mInTurns = true;
    mOptions.turns.push_back({mRequests.size(), mRequests.size()});
}

void PassScheduler::endTurns() {
    ORVO_ASSERT(mInTurns, "turns of passes end that did not begin");
    mInTurns = false;
    mOptions.turns.back().last = mRequests.size();
    if (mOptions.turns.back().first == mOptions.turns.back().last) {
        mOptions.turns.pop_back();
    }
}

PassResults PassScheduler::apply(Design &design) const {
    PassResults results(design, mState);
    ORVO_ASSERT(!mInTurns, "turns of passes have no end");
    results.run(mRequests, mRequired, mOptions);
    return results;
}

} // namespace orvo
