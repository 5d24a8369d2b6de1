// The scheduler: requests are expanded depth first through what the passes declare, into one flat list of commands.
#include "orvo/passregistry.h"

#include <orvo/context.h>
#include <orvo/design.h>
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
             PassInstrumentation *instrumentation);
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
    void expand(const PassRequest &request, std::vector<PassCmd> &commands);
    void applyPass(const PassCmd &command, std::size_t index, PassInstrumentation *instrumentation);
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

void PassResultsImpl::expand(const PassRequest &request, std::vector<PassCmd> &commands) {
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
        commands.push_back({PASSCMD_APPLY, *at, mParams.at(*at), std::next(at) == worklist.end()});
    }
}

void PassResultsImpl::applyPass(const PassCmd &command, std::size_t index, PassInstrumentation *instrumentation) {
    Pass &pass = *command.pass;
    PassExecution execution{index, &pass, pass.getName(), &command.params, command.requested};
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
                          PassInstrumentation *instrumentation) {
    ORVO_ASSERT(mDesign != nullptr, "passes run on a design that is gone");
    ContextMgr guard(mDesign->getContext());
    for (const PassRequest &request : required) {
        getAddPass(request);
    }
    std::vector<PassCmd> commands;
    for (const PassRequest &request : requests) {
        expand(request, commands);
    }
    for (Pass *pass : mTemporary) {
        commands.push_back({PASSCMD_DELETE, pass, {}, false});
    }
    mTemporary.clear();
    std::size_t index = 0;
    for (auto command = commands.begin(); command != commands.end(); ++command) {
        if (command->kind == PASSCMD_DELETE) {
            deletePass(command->pass);
            continue;
        }
        try {
            applyPass(*command, index++, instrumentation);
        } catch (...) {
            // What only this run needed goes with it.
            for (; command != commands.end(); ++command) {
                if (command->kind == PASSCMD_DELETE) {
                    deletePass(command->pass);
                }
            }
            throw;
        }
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
                      PassInstrumentation *instrumentation) {
    mImpl->run(requests, required, instrumentation);
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

PassResults PassScheduler::apply(Design &design) const {
    PassResults results(design, mState);
    results.run(mRequests, mRequired, mInstrumentation);
    return results;
}

} // namespace orvo
