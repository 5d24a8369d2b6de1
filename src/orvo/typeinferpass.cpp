// The query for a type, and what it keeps from one to the next.
#include <orvo/typeinferpass.h>

#include "orvo/typeinferstate.h"
#include "orvo/typequeryminimalset.h"

#include <orvo/compoundtypeinfo.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <util/features.h>
#include <util/profiling.h>

#include <algorithm>
#include <optional>

namespace orvo {

ORVO_DEFINE_PASS(GlobalTypePass, "Answers for the numeric type of any port or wire in any instance, through a fixed "
                                 "point over the whole hierarchy. Changes nothing; passes that require it ask it.")

namespace internal {

namespace {

PureValueRef knownType(BlockTypeInfo &info, const Wire &wire) { return info.knownWireType(wire); }
PureValueRef knownType(BlockTypeInfo &info, const Port &port) { return info.knownPortType(port); }

unsigned bitOf(CompoundKind kind) { return 1U << static_cast<unsigned>(kind); }

log::LogParams placeOf(const PureValueRef &name, const Block &block) {
    return log::p("portOrWire", name) % log::p("block", block.value());
}

} // namespace

const TypeRules &GlobalTypeImpl::rulesOf(const Block &block) {
    const BlockClass *blockClass = block.getClass();
    if (blockClass != lastClass || lastClass == nullptr) {
        const auto [at, isNew] = rules.try_emplace(blockClass);
        if (isNew) {
            at->second = {blockClass->get<TypeInferHandler2>(), blockClass->get<TypeInferHandler>()};
        }
        lastClass = blockClass;
        lastRules = at->second;
    }
    return lastRules;
}

/// What the last evaluation left for one end; null if it is unknown or the instance was not reached.
template <class End>
PureValueRef GlobalTypeImpl::known(const Model &root, const End &end, const Block &block, const RefChain &refChain) {
    const auto at = roots.find(&root);
    const ChainTypeInfo *chain = at == roots.end() ? nullptr : at->second.chain.get();
    for (const Block *step : refChain) {
        chain = chain == nullptr ? nullptr : chain->findChild(step);
    }
    if (chain == nullptr || diedFrozen.count(&block) != 0) {
        return {};
    }
    BlockTypeInfo *info = chain->findBlockInfo(block);
    ORVO_ASSERT(info != nullptr || frozen || state != EvalState::Full || &block.getModel() != chain->model(),
                "a full evaluation has passed over a block");
    return info == nullptr ? PureValueRef() : knownType(*info, end);
}

template <class End> void GlobalTypeImpl::buildSubsets(const End &end, const RefChain &refChain) {
    ORVO_ASSERT(tree != nullptr, "minimal sets need the tree of models");
    TypeQueryMinimalSet set;
    set.limitNumberOfBlocks(minimalSetLimit);
    set.inferenceSubset(*tree, end, refChain);
    subsets.clear();
    for (const Block *block : set.blocks()) {
        subsets[&block->getModel()].push_back(block);
    }
    for (auto &entry : subsets) {
        std::sort(entry.second.begin(), entry.second.end(),
                  [](const Block *a, const Block *b) { return DeepValueCmp()(a->getName(), b->getName()); });
    }
}

void GlobalTypeImpl::evaluate(const Model &rootModel, Root &root) {
    ++initialisedRun;
    if (root.chain == nullptr) {
        root.chain = std::make_unique<ChainTypeInfo>(*this, nullptr);
    }
    if (ChainTypeInfo::newlyInitialized(*root.chain, rootModel, nullptr)) {
        root.chain->inferTypesRecurse();
    }
    root.state = state;
}

template <class End>
PureValueRef GlobalTypeImpl::evaluateType(const End &end, const Block &block, const RefChain &refChain) {
    const Model &rootModel = refChain.empty() ? block.getModel() : refChain.front()->getModel();
    const int allowed = minimalSetEnabled ? 2 : 1;
    state = roots[&rootModel].state;
    for (int attempt = 1;; ++attempt) {
        if (state != EvalState::None) {
            if (PureValueRef type = known(rootModel, end, block, refChain)) {
                return type;
            }
        }
        if (attempt > allowed) {
            return {};
        }
        if (state == EvalState::Full) {
            if (warningLevel > 0) {
                log::msg(msg::warning::MISSING_DATATYPE, placeOf(end.getName(), block));
            }
            return {};
        }
        if (minimalSetEnabled && attempt == 1) {
            state = EvalState::Minimal;
            ++statistics.minimalEvaluations;
            buildSubsets(end, refChain);
        } else {
            if (minimalSetEnabled && warningLevel > 0) {
                log::msg(msg::warning::TYPE_QUERY_FAILED_USING_MINIMAL_SUBSET, placeOf(end.getName(), block));
            }
            state = EvalState::Full;
            ++statistics.fullEvaluations;
        }
        evaluate(rootModel, roots[&rootModel]);
    }
}

CompoundKinds GlobalTypeImpl::kindsOf(const PureValueRef &type, Context *context) {
    if (type.get_ptr() == lastType) {
        return lastKinds;
    }
    const auto [at, isNew] = kinds.try_emplace(type.get_ptr(), CompoundKinds{0});
    if (isNew) {
        PureValueRef element;
        const VectorDecorSpec vectors(type, element, context);
        const ComplexDecorSpec parts(type, context);
        const AggregateTypeSpec members(type);
        const auto note = [&at = at->second](bool is, CompoundKind kind) {
            at = static_cast<CompoundKinds>(is ? at | bitOf(kind) : at);
        };
        note(!vectors.valid() || vectors.isVector(), CompoundKind::Vector);
        note(!parts.valid() || !parts.isReal(), CompoundKind::Complex);
        note(!members.valid() || members.isAggregate() || isAggregateType(element.get_ptr()), CompoundKind::Aggregate);
    }
    lastType = type.get_ptr();
    lastKinds = at->second;
    return lastKinds;
}

/// Infers all types, and gathers from the instances of each model what they carry.
void GlobalTypeImpl::survey() {
    for (const Model &model : *design) {
        if (!model.getParentBlocks().empty()) {
            continue;
        }
        if (Root &root = roots[&model]; root.state != EvalState::Full) {
            state = EvalState::Full;
            ++statistics.fullEvaluations;
            evaluate(model, root);
        }
        std::vector<const ChainTypeInfo *> toLookAt{roots[&model].chain.get()};
        while (!toLookAt.empty()) {
            const ChainTypeInfo &instance = *toLookAt.back();
            toLookAt.pop_back();
            CompoundKinds &of = possibleKinds[instance.model()];
            of = static_cast<CompoundKinds>(of | instance.possibleKinds());
            for (const auto &child : instance.children()) {
                toLookAt.push_back(child.get());
            }
        }
    }
    surveyed = true;
}

void GlobalTypeImpl::forget() {
    kinds.clear();
    lastType = nullptr;
    leftOut = false;
    surveyed = false;
    possibleKinds.clear();
    roots.clear();
    instances = 0;
    subsets.clear();
    rules.clear();
    lastClass = nullptr;
}

void GlobalTypeImpl::onModelEvent(Model &) {
    if (frozen) {
        dirty = true;
    } else if (!roots.empty()) {
        forget();
    }
}

void GlobalTypeImpl::onBlockDying(Block &block) {
    if (frozen) {
        diedFrozen.insert(&block);
    }
}

void GlobalTypeImpl::onDesignDying(Design &) {
    forget();
    design = nullptr;
}

void GlobalTypeImpl::hook(Design &target, bool on) {
    EventManager &events = target.events();
    const auto set = [on](auto &list, auto callback) {
        if (on) {
            list.add(callback);
        } else {
            list.remove(callback);
        }
    };
    using ModelCallback = util::Function<void(Model &)>;
    set(events.modelBorn, ModelCallback::bind<&GlobalTypeImpl::onModelEvent>(this));
    set(events.modelDying, ModelCallback::bind<&GlobalTypeImpl::onModelEvent>(this));
    set(events.modelChanged, ModelCallback::bind<&GlobalTypeImpl::onModelEvent>(this));
    set(events.blockDying, util::Function<void(Block &)>::bind<&GlobalTypeImpl::onBlockDying>(this));
    set(events.designDying, util::Function<void(Design &)>::bind<&GlobalTypeImpl::onDesignDying>(this));
    design = on ? &target : nullptr;
}

} // namespace internal

GlobalTypePass::GlobalTypePass() : mImpl(std::make_unique<internal::GlobalTypeImpl>()) {
    mImpl->warningLevel = util::GetFeatureInteger(Features::TYPEINFERPASS_WARNING_LEVEL);
    const int limit = util::GetFeatureInteger(Features::TYPEQUERY_MINIMAL_SETSIZE_LIMIT);
    mImpl->minimalSetsOff = limit == 0;
    mImpl->limitIsFixed = limit >= 0;
    if (limit > 0) {
        mImpl->minimalSetLimit = static_cast<std::size_t>(limit);
    }
}

GlobalTypePass::~GlobalTypePass() { unbindEvents(); }

void GlobalTypePass::bindEvents(const Design &design) {
    unbindEvents();
    mImpl->hook(const_cast<Design &>(design), true);
}

void GlobalTypePass::unbindEvents() {
    if (mImpl->design != nullptr) {
        mImpl->hook(*mImpl->design, false);
    }
}

namespace {

template <class End> PureValueRef query(internal::GlobalTypeImpl &impl, const End &end, const RefChain &refChain) {
    const Block &block = end.getBlock();
    std::optional<util::ProfilingSection> section;
    if (util::ProfilingLog::enabled()) {
        section.emplace(util::ProfilingInfo{block.getModel().getName()->toString(), GlobalTypePass::sName, true});
    }
    return impl.evaluateType(end, block, refChain);
}

} // namespace

PureValueRef GlobalTypePass::getType(const Wire &wire, const RefChain &refChain) {
    return query(*mImpl, wire, refChain);
}

PureValueRef GlobalTypePass::getType(const Wire *wire, const RefChain &refChain) {
    return wire != nullptr ? getType(*wire, refChain) : PureValueRef();
}

PureValueRef GlobalTypePass::getType(const Port &port, const RefChain &refChain) {
    return query(*mImpl, port, refChain);
}

PureValueRef GlobalTypePass::getType(const Port *port, const RefChain &refChain) {
    return port != nullptr ? getType(*port, refChain) : PureValueRef();
}

bool GlobalTypePass::mayCarry(const Model &model, CompoundKind kind) {
    ORVO_ASSERT(!mImpl->frozen, "a question about what the design is made of while it changes");
    if (mImpl->design == nullptr) {
        return true;
    }
    if (!mImpl->surveyed) {
        mImpl->survey();
    }
    const auto at = mImpl->possibleKinds.find(&model);
    return mImpl->leftOut || at == mImpl->possibleKinds.end() || (at->second & internal::bitOf(kind)) != 0;
}

void GlobalTypePass::suppose(const Wire &wire, const RefChain &refChain, const PureValueRef &type) {
    const Block &block = wire.getBlock();
    // What stays unknown after the question is unknown after a full evaluation.
    if (!type || getType(wire, refChain)) {
        return;
    }
    const Model &root = refChain.empty() ? block.getModel() : refChain.front()->getModel();
    internal::ChainTypeInfo *chain = mImpl->roots[&root].chain.get();
    for (const Block *step : refChain) {
        chain = chain == nullptr ? nullptr : chain->findChild(step);
    }
    if (chain == nullptr || chain->findBlockInfo(block) == nullptr) {
        return;
    }
    internal::BlockTypeInfo &info = *chain->findBlockInfo(block);
    info.setSource(internal::Source::Forward);
    info.setWireType(wire.getName(), type);
    chain->enqueue(info);
    chain->inferTypesRecurse();
    mImpl->surveyed = false;
    mImpl->possibleKinds.clear();
}

void GlobalTypePass::freeze() {
    ORVO_ASSERT(!mImpl->frozen, "types are frozen twice");
    mImpl->frozen = true;
}

void GlobalTypePass::thaw() {
    ORVO_ASSERT(mImpl->frozen, "types are thawed that are not frozen");
    if (mImpl->dirty) {
        mImpl->forget();
    }
    mImpl->frozen = false;
    mImpl->dirty = false;
    mImpl->diedFrozen.clear();
}

void GlobalTypePass::enableMinimalSet(ModelTreePass *tree) {
    mImpl->tree = tree;
    mImpl->minimalSetEnabled = !mImpl->minimalSetsOff;
}

void GlobalTypePass::disableMinimalSet() { mImpl->minimalSetEnabled = false; }

void GlobalTypePass::limitMinimalSetSize(std::size_t blocks) {
    if (!mImpl->limitIsFixed) {
        mImpl->minimalSetLimit = blocks;
    }
}

const TypeInferStatistics &GlobalTypePass::statistics() const { return mImpl->statistics; }

} // namespace orvo
