// The parameters of requests, and what a pass is given while it runs.
#include "orvo/passregistry.h"

#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/pass.h>

#include <orvo/block.h>

#include <algorithm>
#include <atomic>

namespace orvo {

namespace internal {

namespace {
/// Contexts of several threads read it.
std::atomic<ModelGenerationHelper> gEmbeddedModelGenerator{nullptr};
} // namespace

void setEmbeddedModelGenerator(ModelGenerationHelper generator) { gEmbeddedModelGenerator = generator; }

ModelGenerationHelper embeddedModelGenerator() { return gEmbeddedModelGenerator; }

} // namespace internal

ParamContext::ParamContext(const Settings &settings) : mSettings(settings) {}

ParamContext::~ParamContext() = default;

ParamContext ParamContext::operator&(const ParamContext &other) const {
    ParamContext both = *this;
    both.mSettings.insert(other.mSettings.begin(), other.mSettings.end());
    both.mHelper = mHelper != nullptr ? mHelper : other.mHelper;
    both.mReturned = mReturned != nullptr ? mReturned : other.mReturned;
    return both;
}

ParamContext ParamContext::operator&(Settings *returned) const {
    ParamContext with = *this;
    with.mReturned = returned;
    return with;
}

bool ParamContext::operator<(const ParamContext &other) const {
    return std::lexicographical_compare(
        mSettings.begin(), mSettings.end(), other.mSettings.begin(), other.mSettings.end(),
        [](const auto &a, const auto &b) { return a.first != b.first ? a.first < b.first : a.second < b.second; });
}

bool ParamContext::operator==(const ParamContext &other) const {
    return std::equal(mSettings.begin(), mSettings.end(), other.mSettings.begin(), other.mSettings.end(),
                      [](const auto &a, const auto &b) { return a.first == b.first && a.second == b.second; });
}

bool ParamContext::operator!=(const ParamContext &other) const { return !(*this == other); }

bool ParamContext::hasParam(const std::string &name) const { return mSettings.count(name) != 0; }

PureValueRef ParamContext::getParam(const std::string &name) const {
    auto hit = mSettings.find(name);
    return hit == mSettings.end() ? PureValueRef() : hit->second;
}

std::vector<std::string> ParamContext::getParamNames() const {
    std::vector<std::string> names;
    for (const auto &setting : mSettings) {
        names.push_back(setting.first);
    }
    return names;
}

void ParamContext::returnParam(const std::string &name, const PureValueRef &value) const {
    if (mReturned != nullptr) {
        (*mReturned)[name] = value;
    }
}

WithParam::WithParam(const std::string &name, const PureValueRef &value) { mSettings.emplace(name, value); }

WithParam::WithParam(ModelGenerationHelper generator) { mHelper = generator; }

bool PassRequest::operator<(const PassRequest &other) const {
    return name != other.name ? name < other.name : params < other.params;
}

bool PassRequest::operator==(const PassRequest &other) const { return name == other.name && params == other.params; }

PassSchedulerStateItem::~PassSchedulerStateItem() = default;

PassSchedulerState::PassSchedulerState() = default;

PassSchedulerState::~PassSchedulerState() = default;

PassSchedulerStateItem *PassSchedulerState::getItemOfState(const PureValueRef &key) const {
    auto hit = mItems.find(key);
    return hit == mItems.end() ? nullptr : hit->second.get();
}

void PassSchedulerState::setItemOfState(const PureValueRef &key, PassSchedulerStateItem *item) {
    std::unique_ptr<PassSchedulerStateItem> &held = mItems[key];
    if (held.get() != item) {
        held.reset(item);
    }
}

namespace {

using BlockCallback = util::Function<void(Block &)>;
using ModelCallback = util::Function<void(Model &)>;

} // namespace

ApplicableQueues::ApplicableQueues(Design &design) : mDesign(design) {}

ApplicableQueues::~ApplicableQueues() {
    if (mHooked) {
        mDesign.events().blockDying.remove(BlockCallback::bind<&ApplicableQueues::onBlockDying>(this));
        mDesign.events().modelDying.remove(ModelCallback::bind<&ApplicableQueues::onModelDying>(this));
    }
}

void ApplicableQueues::hook() {
    if (!mHooked) {
        mHooked = true;
        mDesign.events().blockDying.add(BlockCallback::bind<&ApplicableQueues::onBlockDying>(this));
        mDesign.events().modelDying.add(ModelCallback::bind<&ApplicableQueues::onModelDying>(this));
    }
}

const std::list<Block *> &ApplicableQueues::of(const Model &model) { return mQueues[&model]; }

void ApplicableQueues::enqueue(const Model &model, Block *block) {
    hook();
    std::list<Block *> &queue = mQueues[&model];
    queue.push_back(block);
    mPlaces.emplace(block, std::make_pair(&model, std::prev(queue.end())));
}

Block *ApplicableQueues::dequeue(const Model &model) {
    std::list<Block *> &queue = mQueues[&model];
    if (queue.empty()) {
        return nullptr;
    }
    Block *block = queue.front();
    auto [first, last] = mPlaces.equal_range(block);
    auto place = std::find_if(first, last, [&](const auto &entry) {
        return entry.second.first == &model && entry.second.second == queue.begin();
    });
    if (place != last) {
        mPlaces.erase(place);
    }
    queue.pop_front();
    return block;
}

std::size_t ApplicableQueues::totalSize() const {
    std::size_t total = 0;
    for (const auto &queue : mQueues) {
        total += queue.second.size();
    }
    return total;
}

void ApplicableQueues::onBlockDying(Block &block) {
    auto [first, last] = mPlaces.equal_range(&block);
    for (auto place = first; place != last; ++place) {
        mQueues[place->second.first].erase(place->second.second);
    }
    mPlaces.erase(first, last);
}

void ApplicableQueues::onModelDying(Model &model) {
    // Views on the model may hold its list, which therefore stays, empty. Blocks may wait under other models, too.
    while (dequeue(model) != nullptr) {
    }
}

PassContext::PassContext(Design &design, const PassMap &passes, const ParamsMap &params, PassSchedulerState *state)
    : mDesign(design), mPasses(passes), mParams(params), mState(state),
      mQueues(std::make_unique<ApplicableQueues>(design)) {}

PassContext::~PassContext() = default;

const std::list<Block *> &PassContext::getApplicableQueue(const Model &model) { return mQueues->of(model); }

std::size_t PassContext::totalQueueSize() const { return mQueues->totalSize(); }

PassSchedulerStateItem *PassContext::lookupStateItem(const PureValueRef &key) const {
    return mState == nullptr ? nullptr : mState->getItemOfState(key);
}

Pass *PassContext::getPass(const std::string &name) const {
    auto hit = mPasses.lower_bound(PassRequest{name, {}});
    ORVO_ASSERT(hit != mPasses.end() && hit->first.name == name, "no live pass has this name");
    auto next = std::next(hit);
    ORVO_ASSERT(next == mPasses.end() || next->first.name != name, "several live passes have this name");
    return hit->second;
}

Pass *PassContext::getPass(const std::string &name, const ParamContext &params) const {
    auto hit = mPasses.find(PassRequest{name, params});
    ORVO_ASSERT(hit != mPasses.end(), "no live pass has this name and these parameters");
    return hit->second;
}

const ParamContext &PassContext::paramsOf(const Pass *pass) const {
    auto hit = mParams.find(pass);
    ORVO_ASSERT(hit != mParams.end(), "a pass that is not live asks for its parameters");
    return hit->second;
}

bool PassContext::hasParam(const Pass *pass, const std::string &name) const {
    return paramsOf(pass).hasParam(name) || pass->__get_class_default_param_settings().find(name) != nullptr;
}

PureValueRef PassContext::getParam(const Pass *pass, const std::string &name) const {
    const ParamContext &params = paramsOf(pass);
    if (params.hasParam(name)) {
        return params.getParam(name);
    }
    const internal::ParamDeclaration *declared = pass->__get_class_default_param_settings().find(name);
    ORVO_ASSERT(declared != nullptr, "a pass asks for a parameter that it does not declare");
    return declared->getDefaultValue();
}

void PassContext::returnParam(const Pass *pass, const std::string &name, const PureValueRef &value) const {
    paramsOf(pass).returnParam(name, value);
}

ModelGenerationHelper PassContext::getRunModelGenerationHelperPointer(const Pass *pass) const {
    const ModelGenerationHelper given = paramsOf(pass).helper();
    return given != nullptr ? given : internal::embeddedModelGenerator();
}

ModelPassContext::ModelPassContext(Model &model, PassContext &parent)
    : PassContext(parent.getDesign(), parent.mPasses, parent.mParams, parent.mState), mModel(model),
      mQueueSource(parent.queueSource()), mQueue(&mQueueSource->of(model)), mUsingLocalQueue(false) {}

ModelPassContext::ModelPassContext(Model &model, Design &design, const PassMap &passes, const ParamsMap &params,
                                   PassSchedulerState *state)
    : PassContext(design, passes, params, state), mModel(model), mQueueSource(mQueues.get()),
      mQueue(&mQueueSource->of(model)), mUsingLocalQueue(true) {}

const std::list<Block *> &ModelPassContext::getApplicableQueue(const Model &model) {
    ORVO_ASSERT(mUsingLocalQueue, "a view on one model is asked for the queues of its parent");
    return PassContext::getApplicableQueue(model);
}

std::size_t ModelPassContext::totalQueueSize() const {
    ORVO_ASSERT(mUsingLocalQueue, "a view on one model is asked for the queues of its parent");
    return PassContext::totalQueueSize();
}

void ModelPassContext::enqueueApplicable(Block *block) { mQueueSource->enqueue(mModel, block); }

bool ModelPassContext::moreApplicable() const { return !mQueue->empty(); }

Block *ModelPassContext::dequeueApplicable() { return mQueueSource->dequeue(mModel); }

} // namespace orvo
