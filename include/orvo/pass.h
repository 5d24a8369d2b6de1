// Passes, and the scheduler that expands requests through the requirements that passes declare, runs them, and keeps
// those that the client asked to keep.
#pragma once

#include <orvo/value.h>

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvo {

class Block;
class Design;
class FreezableTypes;
class Model;
class ModelPassContext;
class Pass;
class PassContext;
class PassResults;
class ResourceUsageAndLatencyHelper;

/// The client's way into the stages outside the library, which tell what a model of primitives costs.
using ModelGenerationHelper = ResourceUsageAndLatencyHelper (*)(Model &, bool, bool, bool);

/// The parameters of a request.
class ORVO_API ParamContext {
  public:
    using Settings = std::map<std::string, PureValueRef>;

    ParamContext() = default;
    explicit ParamContext(const Settings &settings);
    ParamContext(const ParamContext &) = default;
    ParamContext(ParamContext &&) = default;
    ParamContext &operator=(const ParamContext &) = default;
    ParamContext &operator=(ParamContext &&) = default;
    virtual ~ParamContext();

    /// Both settings together; what both sides have comes from the left.
    virtual ParamContext operator&(const ParamContext &other) const;
    virtual bool operator<(const ParamContext &other) const;
    virtual bool operator==(const ParamContext &other) const;
    virtual bool operator!=(const ParamContext &other) const;
    /// A copy that returns results into `returned`, which must outlive the run.
    ParamContext operator&(Settings *returned) const;

    bool hasParam(const std::string &name) const;
    /// Null if it is not set.
    PureValueRef getParam(const std::string &name) const;
    std::vector<std::string> getParamNames() const;
    const Settings &settings() const { return mSettings; }
    /// Writes into the return map; nothing happens without one.
    void returnParam(const std::string &name, const PureValueRef &value) const;
    ModelGenerationHelper helper() const { return mHelper; }

  protected:
    Settings mSettings;
    ModelGenerationHelper mHelper = nullptr;
    Settings *mReturned = nullptr;
};

/// One setting of a request: `WithParam("P_MODEL", x) & WithParam("P_CLOBBER", y)`.
class ORVO_API WithParam final : public ParamContext {
  public:
    WithParam(const std::string &name, const PureValueRef &value);
    explicit WithParam(ModelGenerationHelper generator);
};

/// A pass by name with its parameters: the identity of a pass instance. Helper and return map take no part in it.
struct ORVO_API PassRequest {
    std::string name;
    ParamContext params;
    bool operator<(const PassRequest &other) const;
    bool operator==(const PassRequest &other) const;
};

namespace internal {

/// One parameter that a pass class knows.
class ORVO_API ParamDeclaration {
  public:
    ParamDeclaration(std::string name, PureValueRef defaultValue, std::string description)
        : mName(std::move(name)), mDefault(std::move(defaultValue)), mDescription(std::move(description)) {}
    const std::string &getParamName() const { return mName; }
    /// Null: the parameter is absent unless given.
    const PureValueRef &getDefaultValue() const { return mDefault; }
    const std::string &description() const { return mDescription; }

  private:
    std::string mName;
    PureValueRef mDefault;
    std::string mDescription;
};

/// All that is told of a pass class beside its code: what it does, in one paragraph, and its parameters. One object a
/// class. Defaults are well-known texts or null, so that they belong to no context.
class ORVO_API DefaultParamSettings {
  public:
    DefaultParamSettings(std::string description, std::vector<ParamDeclaration> declarations = {});
    const std::vector<ParamDeclaration> &declarations() const { return mDeclarations; }
    /// Null if the class knows no such parameter.
    const ParamDeclaration *find(const std::string &name) const;
    const std::string &description() const { return mDescription; }

  private:
    std::string mDescription;
    std::vector<ParamDeclaration> mDeclarations;
};

using PassFactory = Pass *(*)();

/// Enters a pass class in the process-wide registries. Called by the start-up for each row of the pass table.
ORVO_API void registerPass(const std::string &name, PassFactory factory, const DefaultParamSettings *settings);
/// What is registered under a name; null if nothing is.
ORVO_API const DefaultParamSettings *findPassSettings(const std::string &name);
ORVO_API PassFactory findPassFactory(const std::string &name);
/// All passes in the order of registration.
ORVO_API std::vector<std::string> registeredPasses();

class PassResultsImpl;

} // namespace internal

/// What a pass's `declare` fills in.
class ORVO_API PassDeclarations {
  public:
    /// An undeclared parameter in `params`, or an unknown pass, is an assertion.
    void requirePass(const std::string &name, const ParamContext &params = ParamContext());
    const std::vector<PassRequest> &getRequiredPasses() const { return mRequired; }

  private:
    std::vector<PassRequest> mRequired;
};

/// Base of what a pass leaves for a later run.
class ORVO_API PassSchedulerStateItem {
  public:
    virtual ~PassSchedulerStateItem();
};

/// Outlives scheduler runs; owns its items. Must go before the context of its keys.
class ORVO_API PassSchedulerState {
  public:
    PassSchedulerState();
    ~PassSchedulerState();
    PassSchedulerState(const PassSchedulerState &) = delete;
    PassSchedulerState &operator=(const PassSchedulerState &) = delete;
    /// Null if there is no such item.
    PassSchedulerStateItem *getItemOfState(const PureValueRef &key) const;
    /// Takes the item over and deletes the one it replaces.
    void setItemOfState(const PureValueRef &key, PassSchedulerStateItem *item);

  private:
    std::map<PureValueRef, std::unique_ptr<PassSchedulerStateItem>> mItems;
};

class ORVO_API Pass {
  public:
    Pass() = default;
    Pass(const Pass &) = delete;
    Pass &operator=(const Pass &) = delete;

    /// The name is part of the interface that clients implement.
    // NOLINTNEXTLINE(bugprone-reserved-identifier)
    virtual const internal::DefaultParamSettings &__get_class_default_param_settings() const = 0;
    virtual std::string getName() const = 0;
    /// Hooks the events of a design, and takes them off again. A pass may outlive its design; its destructor must
    /// unhook what is still hooked.
    virtual void bindEvents(const Design &design);
    virtual void unbindEvents();
    virtual void beforeApply(PassContext &context);
    virtual void apply(PassContext &context);
    virtual void afterApply(PassContext &context);
    /// Names the passes that must run before this one.
    virtual void declare(PassDeclarations &declarations);
    /// Whether metadata of blocks that this pass deletes follows to those that take their place.
    virtual bool useMetadataTransferListener() const;
    virtual ~Pass();
};

/// The members that every concrete pass class repeats: `sName`, `create`, the name and the settings.
#define ORVO_PASS(CLASS)                                                                                               \
  public:                                                                                                              \
    static const char *const sName;                                                                                    \
    static ::orvo::Pass *create();                                                                                     \
    static const ::orvo::internal::DefaultParamSettings &defaultParamSettings();                                       \
    std::string getName() const override { return sName; }                                                             \
    const ::orvo::internal::DefaultParamSettings &__get_class_default_param_settings() const override {                \
        return defaultParamSettings();                                                                                 \
    }
/// Their definitions; `__VA_ARGS__` is the description and, if there are any, the list of parameter declarations.
#define ORVO_DEFINE_PASS(CLASS, ...)                                                                                   \
    const char *const CLASS::sName = #CLASS;                                                                           \
    ::orvo::Pass *CLASS::create() { return new CLASS; }                                                                \
    const ::orvo::internal::DefaultParamSettings &CLASS::defaultParamSettings() {                                      \
        static const ::orvo::internal::DefaultParamSettings settings(__VA_ARGS__);                                     \
        return settings;                                                                                               \
    }

enum PassAction : unsigned int { ACTION_SETUP = 0, ACTION_ANALYZE = 1, ACTION_APPLY = 2, ACTION_DONE = 3 };

/// A pass that runs model by model.
class ORVO_API ModelPass : public Pass {
  public:
    void beforeApply(PassContext &context) override;
    void apply(PassContext &context) override;
    void afterApply(PassContext &context) override;

    virtual void apply(ModelPassContext &context);
    virtual void before(PassContext &context);
    virtual void after(PassContext &context);
    virtual bool isApplicable(const Model &model);
    virtual void setup(ModelPassContext &context);
    virtual void analyze(ModelPassContext &context);
    /// What the given round over the models does.
    virtual unsigned int nextAction(PassContext &context, unsigned int iteration);
};

/// A model pass that `A_SYNTH_OPTIMIZE` equal to `A_FALSE` switches off for a model.
class ORVO_API OptimizeModelPass : public ModelPass {
  public:
    bool isApplicable(const Model &model) override;
};

/// A pass that gathers work and then does it, until no work is left. Types are frozen while blocks are rewritten.
class ORVO_API TwoPhaseModelPass : public OptimizeModelPass {
  public:
    unsigned int nextAction(PassContext &context, unsigned int iteration) override;
    virtual unsigned int lookupActionFor(PassContext &context, unsigned int iteration);

  protected:
    /// Not owned; null for a pass that looks at no types.
    FreezableTypes *mTypeCache = nullptr;
};

/// One round of gathering and doing.
class ORVO_API TwoPhaseOnceModelPass : public TwoPhaseModelPass {
  public:
    unsigned int lookupActionFor(PassContext &context, unsigned int iteration) override;
};

/// The answers about types that stay as they are while a pass rewrites blocks.
class ORVO_API FreezableTypes {
  public:
    virtual ~FreezableTypes();
    /// From here on the cached answers are given, whatever the netlist has become.
    virtual void freeze() = 0;
    /// From here on the answers follow the netlist again.
    virtual void thaw() = 0;
};

/// The blocks that a pass has put aside, by model. A block that dies leaves its queue.
class ORVO_API ApplicableQueues {
  public:
    explicit ApplicableQueues(Design &design);
    ~ApplicableQueues();
    ApplicableQueues(const ApplicableQueues &) = delete;
    ApplicableQueues &operator=(const ApplicableQueues &) = delete;
    /// To look at; blocks come and go by the operations below, which know where each one stands.
    const std::list<Block *> &of(const Model &model);
    void enqueue(const Model &model, Block *block);
    Block *dequeue(const Model &model);
    std::size_t totalSize() const;

  private:
    void onBlockDying(Block &block);
    void onModelDying(Model &model);
    void hook();
    Design &mDesign;
    bool mHooked = false;
    std::unordered_map<const Model *, std::list<Block *>> mQueues;
    std::unordered_multimap<const Block *, std::pair<const Model *, std::list<Block *>::iterator>> mPlaces;
};

/// What a pass is given while it runs. Lives for one command.
class ORVO_API PassContext {
  public:
    using PassMap = std::map<PassRequest, Pass *>;
    using ParamsMap = std::unordered_map<const Pass *, ParamContext>;

    PassContext(Design &design, const PassMap &passes, const ParamsMap &params, PassSchedulerState *state);
    virtual ~PassContext();
    PassContext(const PassContext &) = delete;
    PassContext &operator=(const PassContext &) = delete;

    /// To look at: blocks come and go through the views on their models.
    virtual const std::list<Block *> &getApplicableQueue(const Model &model);
    virtual std::size_t totalQueueSize() const;

    Design &getDesign() const { return mDesign; }
    /// Null if the scheduler was given none.
    PassSchedulerState *state() const { return mState; }
    PassSchedulerStateItem *lookupStateItem(const PureValueRef &key) const;
    /// The one live instance of that name; none or several is an assertion.
    Pass *getPass(const std::string &name) const;
    Pass *getPass(const std::string &name, const ParamContext &params) const;
    bool hasParam(const Pass *pass, const std::string &name) const;
    /// From the request, else the declared default, which may be null; an undeclared name is an assertion.
    PureValueRef getParam(const Pass *pass, const std::string &name) const;
    void returnParam(const Pass *pass, const std::string &name, const PureValueRef &value) const;
    /// What the request brings, else the generator that comes with the library, which only estimates.
    ModelGenerationHelper getRunModelGenerationHelperPointer(const Pass *pass) const;

  protected:
    friend class ModelPassContext;
    const ParamContext &paramsOf(const Pass *pass) const;
    /// Where a view over this context takes its queue from.
    virtual ApplicableQueues *queueSource() { return mQueues.get(); }
    Design &mDesign;
    const PassMap &mPasses;
    const ParamsMap &mParams;
    PassSchedulerState *mState;
    std::unique_ptr<ApplicableQueues> mQueues;
};

/// The view on one model. Over a parent context it shares the parent's queues, so that they last from one action to the
/// next; made from the maps directly, it has its own.
class ORVO_API ModelPassContext final : public PassContext {
  public:
    ModelPassContext(Model &model, PassContext &parent);
    ModelPassContext(Model &model, Design &design, const PassMap &passes, const ParamsMap &params,
                     PassSchedulerState *state);

    /// Not allowed on a view that shares its parent's queues.
    const std::list<Block *> &getApplicableQueue(const Model &model) override;
    std::size_t totalQueueSize() const override;

    Model &getModel() const { return mModel; }
    void enqueueApplicable(Block *block);
    bool moreApplicable() const;
    /// From the front; null if there is none.
    Block *dequeueApplicable();

  private:
    ApplicableQueues *queueSource() override { return mQueueSource; }

    Model &mModel;
    ApplicableQueues *mQueueSource;
    const std::list<Block *> *mQueue;
    bool mUsingLocalQueue;
};

/// One command that the scheduler is about to run or has run.
struct PassExecution {
    /// Running number in this run of the scheduler, from 0.
    std::size_t index = 0;
    const Pass *pass = nullptr;
    std::string name;
    const ParamContext *params = nullptr;
    /// Whether a client named the pass; false for one that runs because another requires it.
    bool requested = false;
    /// The pass that a client named, by its place among them from 0: this one, or the one that requires it.
    std::size_t request = 0;
    /// Of passes that run in turns, the number of the turn from 1; 0 for all others.
    std::size_t turn = 0;
};

/// Requests that run in turns, by their places: from `first` on, up to before `last`.
struct PassTurns {
    std::size_t first = 0;
    std::size_t last = 0;
};

/// Watches a scheduler run from outside: for dumps, timing, statistics, verification and bisection, which no pass
/// should have to know about.
class ORVO_API PassInstrumentation {
  public:
    virtual ~PassInstrumentation();
    /// False leaves the pass out.
    virtual bool shouldRun(const PassExecution &execution, Design &design);
    virtual void beforePass(const PassExecution &execution, Design &design);
    virtual void afterPass(const PassExecution &execution, Design &design, bool changed);
};

/// What a run is told beside its requests.
struct PassRunOptions {
    /// Not owned; null for none.
    PassInstrumentation *instrumentation = nullptr;
    /// In their order, none within another.
    std::vector<PassTurns> turns;
    /// Keep each instance in the results, required or not: a process that ends behind them saves the taking apart.
    bool keepsAll = false;
};

/// The live passes of a run. Copies share them; the last one deletes them.
class ORVO_API PassResults {
  public:
    explicit PassResults(Design &design, PassSchedulerState *state = nullptr);
    PassResults(const PassResults &) = default;
    PassResults(PassResults &&) = default;
    PassResults &operator=(const PassResults &) = default;
    PassResults &operator=(PassResults &&) = default;
    ~PassResults();

    /// The one live instance of that name; none or several is an assertion.
    Pass *getPass(const std::string &name) const;
    Pass *getPass(const std::string &name, const ParamContext &params) const;
    template <class T> T *getPass() const { return static_cast<T *>(getPass(T::sName)); }
    std::size_t size() const;
    void run(const std::vector<PassRequest> &requests, const std::set<PassRequest> &required,
             const PassRunOptions &options = {});

  private:
    std::shared_ptr<internal::PassResultsImpl> mImpl;
};

/// A client's list of passes.
class ORVO_API PassScheduler {
  public:
    PassScheduler() = default;
    explicit PassScheduler(PassSchedulerState *state) : mState(state) {}
    /// Runs the pass, once for each call; the instance goes at the end of the run. A parameter that the pass does not
    /// declare, or an unknown pass, is an assertion.
    void addPass(const std::string &name, const ParamContext &params = ParamContext());
    /// Runs the pass once however often it is required, and keeps the instance in the results.
    void requirePass(const std::string &name, const ParamContext &params = ParamContext());
    /// The passes that are added between the two calls run in turns, until a turn changes nothing. After
    /// `limits::kPassTurns` turns that all changed something the warning PASSES_DO_NOT_SETTLE ends it. Turns stand in
    /// no other turns.
    void beginTurns();
    void endTurns();
    /// Not owned; null for none.
    void setInstrumentation(PassInstrumentation *instrumentation) { mOptions.instrumentation = instrumentation; }
    /// All instances stay in the results.
    void keepAll() { mOptions.keepsAll = true; }
    PassResults apply(Design &design) const;

  private:
    std::vector<PassRequest> mRequests;
    std::set<PassRequest> mRequired;
    PassSchedulerState *mState = nullptr;
    PassRunOptions mOptions;
    bool mInTurns = false;
};

} // namespace orvo
