// All blocks are looked at before the first one changes: what is known of their operands stays true meanwhile.
#include "orvo/propagateconstantspass.h"

#include "orvo/keptpoints.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/propagateconstants.h>
#include <orvo/typecache.h>
#include <orvo/wire.h>

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(PropagateConstantsPass,
                 "Takes bits at the top and at the bottom of a multiplier's operands off that constants make zero, so "
                 "that a narrower multiplier does, and gives the product its bits back by wiring. A product that is a "
                 "constant becomes one. What reads the product keeps its type.")

/// What one run of the pass knows.
class PropagateConstantsPass::Run {
  public:
    explicit Run(PassContext &context)
        : mContext(context), mTypes(internal::unrolledTypes(context)), mCache(mTypes),
          mDistinct(internal::unrolledTree(context), mTypes), mHeld(context), mChosen(context.getDesign()) {}

    GlobalTypeCache &cache() { return mCache; }
    void analyze(Model &model);
    void apply(Model &model);
    void settle() { mHeld.settle(); }

  private:
    struct Known {
        std::array<int, PropagateConstantsHandler::kOperands> high{};
        std::array<int, PropagateConstantsHandler::kOperands> low{};
        bool operator==(const Known &other) const = default;
    };

    static const PropagateConstantsHandler *handlerOf(const Block &block) {
        const BlockClass *of = block.getClass();
        return of == nullptr ? nullptr : of->get<PropagateConstantsHandler>();
    }
    std::optional<Known> knownIn(const Block &block, const RefChain &instance);
    bool instancesAgree(const Block &block, const Known &known, const std::vector<RefChain> &instances);

    PassContext &mContext;
    GlobalTypePass &mTypes;
    GlobalTypeCache mCache;
    internal::DistinctInstances mDistinct;
    internal::HeldDomains mHeld;
    std::unordered_map<const Model *, RefChain> mFirst;
    ApplicableQueues mChosen;
    std::unordered_map<const Block *, Known> mKnown;
};

/// Nothing for a block from which nothing can be taken. The cache has its types then.
std::optional<PropagateConstantsPass::Run::Known> PropagateConstantsPass::Run::knownIn(const Block &block,
                                                                                       const RefChain &instance) {
    Known known;
    mCache.setBlock(block, instance);
    mCache.allPorts();
    mCache.allWires();
    const bool can = handlerOf(block)->applicable(mCache, known.high.data(), known.low.data());
    return can ? std::optional(known) : std::nullopt;
}

/// One drawing serves all instances of a model: blocks whose types differ among them stay.
bool PropagateConstantsPass::Run::instancesAgree(const Block &block, const Known &known,
                                                 const std::vector<RefChain> &instances) {
    const auto agree = [&](const auto &end) {
        const PureValueRef type = mTypes.getType(end, instances.front());
        return std::all_of(instances.begin() + 1, instances.end(),
                           [&](const RefChain &instance) { return mTypes.getType(end, instance) == type; });
    };
    const BlockPorts ports = block.ports();
    return std::all_of(ports.begin(), ports.end(), agree) && std::all_of(block.begin(), block.end(), agree) &&
           std::all_of(instances.begin() + 1, instances.end(),
                       [&](const RefChain &instance) { return knownIn(block, instance) == known; });
}

void PropagateConstantsPass::Run::analyze(Model &model) {
    std::vector<RefChain> instances;
    for (const Block &block : model) {
        if (handlerOf(block) == nullptr) {
            continue;
        }
        if (instances.empty()) {
            instances = mDistinct.of(model);
            mFirst.emplace(&model, instances.front());
        }
        const std::optional<Known> known = knownIn(block, instances.front());
        if (known && instancesAgree(block, *known, instances)) {
            mChosen.enqueue(model, const_cast<Block *>(&block));
            mKnown.emplace(&block, *known);
            mHeld.hold(block);
        }
    }
}

void PropagateConstantsPass::Run::apply(Model &model) {
    if (mChosen.of(model).empty()) {
        return;
    }
    internal::KeptPoints points(mContext, model, &mHeld);
    const RefChain &refChain = mFirst.at(&model);
    const CachedTypeQuery query(mCache);
    while (Block *block = mChosen.dequeue(model)) {
        const Known &known = mKnown.at(block);
        points.around(*block, [&] {
            handlerOf(*block)->propagate(*block, query, refChain, known.high.data(), known.low.data());
        });
    }
}

PropagateConstantsPass::PropagateConstantsPass() = default;

PropagateConstantsPass::~PropagateConstantsPass() = default;

/// A run that an exception ended must not outlive its design.
void PropagateConstantsPass::unbindEvents() {
    mTypeCache = nullptr;
    mRun.reset();
}

void PropagateConstantsPass::declare(PassDeclarations &declarations) {
    declarations.requirePass(GlobalTypePass::sName);
    declarations.requirePass(ModelTreePass::sName);
}

void PropagateConstantsPass::before(PassContext &context) {
    mRun = std::make_unique<Run>(context);
    mTypeCache = &mRun->cache();
}

void PropagateConstantsPass::after(PassContext &) {
    mRun->settle();
    mTypeCache = nullptr;
    mRun.reset();
}

void PropagateConstantsPass::analyze(ModelPassContext &context) { mRun->analyze(context.getModel()); }

void PropagateConstantsPass::apply(ModelPassContext &context) { mRun->apply(context.getModel()); }

} // namespace orvo
