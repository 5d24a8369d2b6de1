// Composite blocks become primitives, in rounds: blocks that handlers make are looked at in the next one.
#include "orvo/decomposecompositepass.h"

#include "orvo/keptpoints.h"
#include "orvo/metadatasection.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/corevalues.h>
#include <orvo/decomposecomposite.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typecache.h>
#include <orvo/wire.h>

#include <algorithm>
#include <optional>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(
    DecomposeCompositePass,
    "Replaces each composite block, such as a cast, a minimum or a demultiplexer, by simpler ones, until none is left "
    "that can be replaced. Conversions from and to floating point stay, as do blocks of complex numbers and records "
    "whose parts are compared or chosen one by one. What readers of a block read keeps its type.",
    {{"P_SUBSET_OF_BLOCKS", nullptr, "A tuple of block types: only these are replaced; empty or absent, all are."}})

/// What one run of the pass knows.
class DecomposeCompositePass::Run {
  public:
    Run(const Pass &pass, PassContext &context)
        : mContext(context), mTypes(internal::unrolledTypes(context)), mCache(mTypes), mHeld(context.getDesign()),
          mChosen(context.getDesign()) {
        if (const TupleValueRef types = tupleVR(context.getParam(&pass, "P_SUBSET_OF_BLOCKS"))) {
            for (const ValueRef &type : *types) {
                mSubset.insert(type.get_ptr());
            }
        }
    }

    GlobalTypeCache &cache() { return mCache; }
    PassContext &context() { return mContext; }
    /// Null for a block that stays.
    const DecomposeCompositeHandler *handlerOf(const Block &block);
    void beginAnalysis() {
        mDistinct.emplace(internal::unrolledTree(mContext), mTypes);
        mInstances.clear();
    }
    void analyze(ModelPassContext &context);
    void apply(ModelPassContext &context, bool movesMetadata);
    /// Has the blocks that were held off looked at again if anything has changed for them.
    void resume();
    void onBirth(Block &block);

  private:
    bool instancesAgree(const Block &block, const std::vector<RefChain> &instances) const;
    void decompose(Block &block, const RefChain &refChain, bool movesMetadata);

    PassContext &mContext;
    GlobalTypePass &mTypes;
    GlobalTypeCache mCache;
    std::unordered_set<const Value *> mSubset;
    std::unordered_map<const BlockClass *, const DecomposeCompositeHandler *> mHandlers;
    std::optional<internal::DistinctInstances> mDistinct;
    std::unordered_map<const Model *, std::vector<RefChain>> mInstances;
    ApplicableQueues mHeld;
    ApplicableQueues mChosen;
    /// The model at work, null between models.
    ModelPassContext *mCurrent = nullptr;
    bool mHasRewritten = false;
};

const DecomposeCompositeHandler *DecomposeCompositePass::Run::handlerOf(const Block &block) {
    const BlockClass *of = block.getClass();
    if (of == nullptr || (!mSubset.empty() && mSubset.count(block.type()) == 0)) {
        return nullptr;
    }
    const auto [at, isNew] = mHandlers.try_emplace(of, nullptr);
    if (isNew) {
        at->second = of->get<DecomposeCompositeHandler>();
    }
    return at->second;
}

/// One drawing serves all instances of a model: blocks whose types differ among them stay.
bool DecomposeCompositePass::Run::instancesAgree(const Block &block, const std::vector<RefChain> &instances) const {
    const auto agree = [&](const auto &end) {
        const PureValueRef type = mTypes.getType(end, instances.front());
        return std::all_of(instances.begin() + 1, instances.end(),
                           [&](const RefChain &instance) { return mTypes.getType(end, instance) == type; });
    };
    // The type of a port may be told by the block alone, whatever drives it.
    const auto agreesBefore = [&](const Port &port) { return agree(port) && agree(*port.peekWire()); };
    const BlockPorts ports = block.ports();
    return instances.size() == 1 ||
           (std::all_of(ports.begin(), ports.end(), agreesBefore) && std::all_of(block.begin(), block.end(), agree));
}

void DecomposeCompositePass::Run::analyze(ModelPassContext &context) {
    const Model &model = context.getModel();
    const std::vector<RefChain> *instances = nullptr;
    while (context.moreApplicable()) {
        Block &block = *context.dequeueApplicable();
        const DecomposeCompositeHandler *handler = handlerOf(block);
        if (handler == nullptr) {
            continue;
        }
        if (instances == nullptr) {
            instances = &mInstances.emplace(&model, mDistinct->of(context.getModel())).first->second;
        }
        if (!instancesAgree(block, *instances)) {
            mHeld.enqueue(model, &block);
            continue;
        }
        mCache.setBlock(block, instances->front());
        mCache.allPorts();
        mCache.allWires();
        (handler->applicable(mCache) ? mChosen : mHeld).enqueue(model, &block);
    }
}

void DecomposeCompositePass::Run::apply(ModelPassContext &context, bool movesMetadata) {
    Model &model = context.getModel();
    if (mChosen.of(model).empty()) {
        return;
    }
    internal::KeptPoints points(mContext, model);
    const RefChain refChain = mInstances.at(&model).front();
    mCurrent = &context;
    while (Block *block = mChosen.dequeue(model)) {
        points.around(*block, [&] { decompose(*block, refChain, movesMetadata); });
        mHasRewritten = true;
    }
    mCurrent = nullptr;
}

void DecomposeCompositePass::Run::decompose(Block &block, const RefChain &refChain, bool movesMetadata) {
    const PureValueRef name = block.getName();
    const ValueRef type = block.getParam(A_BLOCK_TYPE);
    const CachedTypeQuery query(mCache);
    internal::MetadataSection section(movesMetadata ? mContext.getDesign().getMetadataTransferListener() : nullptr);
    try {
        handlerOf(block)->decompose(block, query, refChain);
    } catch (const std::bad_typeid &exception) {
        log::msg(msg::error::BAD_TYPEID_WITH_BLOCK_INFO, log::p("blockName", name) % log::p("blockType", type) %
                                                             log::p("exception", exception.what()) %
                                                             log::p("relatingTo", "decompose composite handler"));
        ORVO_ASSERT(false, "a handler of a composite block met an object without a type");
    }
}

void DecomposeCompositePass::Run::resume() {
    if (!mHasRewritten) {
        return;
    }
    mHasRewritten = false;
    for (Model &model : mContext.getDesign()) {
        if (mHeld.of(model).empty()) {
            continue;
        }
        ModelPassContext context(model, mContext);
        while (Block *block = mHeld.dequeue(model)) {
            context.enqueueApplicable(block);
        }
    }
}

void DecomposeCompositePass::Run::onBirth(Block &block) {
    if (mCurrent != nullptr && &mCurrent->getModel() == &block.getModel()) {
        mCurrent->enqueueApplicable(&block);
    } else {
        ModelPassContext(block.getModel(), mContext).enqueueApplicable(&block);
    }
}

DecomposeCompositePass::DecomposeCompositePass() = default;

DecomposeCompositePass::~DecomposeCompositePass() { unbindEvents(); }

void DecomposeCompositePass::bindEvents(const Design &design) {
    unbindEvents();
    mDesign = const_cast<Design *>(&design);
    mDesign->events().blockBorn.add(util::Function<void(Block &)>::bind<&DecomposeCompositePass::onBlockBirth>(this));
}

void DecomposeCompositePass::unbindEvents() {
    if (mDesign != nullptr) {
        mDesign->events().blockBorn.remove(
            util::Function<void(Block &)>::bind<&DecomposeCompositePass::onBlockBirth>(this));
        mDesign = nullptr;
    }
    // A run that an exception ended must not outlive its design.
    mTypeCache = nullptr;
    mRun.reset();
}

void DecomposeCompositePass::declare(PassDeclarations &declarations) {
    declarations.requirePass(GlobalTypePass::sName);
    declarations.requirePass(ModelTreePass::sName);
}

/// A model that is switched off has nobody to empty its queue.
void DecomposeCompositePass::onBlockBirth(Block &block) {
    if (mRun != nullptr && isApplicable(block.getModel())) {
        mRun->onBirth(block);
    }
}

void DecomposeCompositePass::before(PassContext &context) {
    mRun = std::make_unique<Run>(*this, context);
    mTypeCache = &mRun->cache();
}

void DecomposeCompositePass::after(PassContext &) {
    mTypeCache = nullptr;
    mRun.reset();
}

/// Blocks that no handler replaces need not wait in a queue.
void DecomposeCompositePass::setup(ModelPassContext &context) {
    for (Block &block : context.getModel()) {
        if (mRun->handlerOf(block) != nullptr) {
            context.enqueueApplicable(&block);
        }
    }
}

void DecomposeCompositePass::analyze(ModelPassContext &context) { mRun->analyze(context); }

void DecomposeCompositePass::apply(ModelPassContext &context) { mRun->apply(context, useMetadataTransferListener()); }

unsigned int DecomposeCompositePass::lookupActionFor(PassContext &context, unsigned int iteration) {
    mRun->resume();
    const unsigned int action = TwoPhaseModelPass::lookupActionFor(context, iteration);
    if (action == ACTION_ANALYZE) {
        mRun->beginAnalysis();
    }
    return action;
}

} // namespace orvo
