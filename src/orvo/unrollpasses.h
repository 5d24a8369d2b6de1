// What the passes that take compound signals apart have in common, whatever they take apart: the order of their steps
// inside models, and the boundaries of models, which come apart on both sides together.
#pragma once

#include "orvo/domainedges.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/compoundportcorrespondence.h>
#include <orvo/design.h>
#include <orvo/modeltreepass.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/unrollmappings.h>

#include <algorithm>
#include <memory>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo::internal {

GlobalTypePass &unrolledTypes(const PassContext &context);
ModelTreePass &unrolledTree(const PassContext &context);
void declareForUnrolling(PassDeclarations &declarations);

/// The chains that lead to the instances of a model, at least one and at most `limits::kTypeInstances`. There may be
/// many: to be asked only about models that are worked on.
std::vector<RefChain> instancesOf(Model &model, ModelTreePass &tree);

/// The instances of models that differ in their types, one for all that are alike. What a model's signals are depends
/// on what comes in at its boundary, so that instances with the same types at the blocks that stand for them are alike
/// inside. A model costs by the instances that differ above it, not by all that there are.
class ORVO_API DistinctInstances {
  public:
    /// Both are asked while models are asked about, between which nothing changes.
    DistinctInstances(ModelTreePass &tree, GlobalTypePass &types) : mTree(tree), mTypes(types) {}
    /// At least one chain.
    std::vector<RefChain> of(Model &model);

  private:
    /// The last block of a chain, null at the top, and the chain above it.
    struct Instance {
        const Block *block;
        const Instance *above;
    };
    struct Way;
    using Instances = std::vector<std::unique_ptr<Instance>>;
    static RefChain chainTo(const Instance *instance);
    bool settleAbove(Model &model);
    void settle(Model &model, const std::vector<Block *> &references);

    ModelTreePass &mTree;
    GlobalTypePass &mTypes;
    std::unordered_map<const Model *, Instances> mKnown;
};

/// The names and types of all ports, then of all wires, of a block that stands for a model. Instances that have the
/// same are alike inside.
using BoundaryTypes = std::vector<const Value *>;
ORVO_API BoundaryTypes boundaryTypes(const Block &reference, const RefChain &above, GlobalTypePass &types);

/// The type that the wire has in all instances; null if they differ in it.
PureValueRef typeInAll(const Wire &wire, const std::vector<RefChain> &instances, GlobalTypePass &types);
/// The type of the wire in all instances; invalid if they differ in it or it is unknown in one. A cast tells the
/// vectors and parts of its output, too, so that one serves no others.
NumTypeSpec commonType(const Wire &wire, const std::vector<RefChain> &instances, GlobalTypePass &types);

/// The instances that tell what a wire carries: all of them, but of an input that nobody reads those in which it has a
/// type, for others may leave it unconnected. None for one that has none: there is nothing to take apart, and nothing
/// is lost. `some` holds them if they are not all.
const std::vector<RefChain> &tellingInstances(const Wire &wire, const std::vector<RefChain> &instances,
                                              GlobalTypePass &types, std::vector<RefChain> &some);

/// Whether the updater of reference points must hear of the block for its constraints. Of all others it need not, which
/// would cost more than taking them apart, but of those that edges of domains stand at.
bool hasReferencePoints(const Block &block);

/// Whether what takes the place of a block gets the parameter too. Connections are made anew, and constraints move with
/// their points, to which a copy would add points that never had them.
bool isTakenOver(const PureValueRef &key, const ValueRef &param);

/// A pass over the insides of models. `Impl` takes one block apart by what a block type's `Handler` makes:
///     Impl(block, instances, handler.createUnroller(block), types, shared...)
///     hasWork(), block(), unroller(), unroll(types)
///     Impl::kKind, what it takes apart
/// An unroller whose `mandatoryUnrolling` says so takes blocks of plain numbers apart, too; all of a type agree in
/// that. One object of each `Shared` serves all blocks of a run.
template <class Impl, class Handler, class... Shared> class ModelUnrolling {
  public:
    /// Looks at all models before any of them changes, for their types depend on each other.
    void before(PassContext &context) {
        GlobalTypePass &types = unrolledTypes(context);
        mShared = std::make_unique<std::tuple<Shared...>>();
        DistinctInstances distinct(unrolledTree(context), types);
        for (Model &model : context.getDesign()) {
            auto prepared = std::make_unique<Prepared>();
            const bool allScalar = !types.mayCarry(model, Impl::kKind);
            if (allScalar && !kSomeForScalars) {
                continue;
            }
            for (Block &block : model) {
                const auto *handler = handlerOf(block, allScalar);
                if (handler == nullptr) {
                    continue;
                }
                if (prepared->instances.empty()) {
                    prepared->instances = distinct.of(model);
                }
                std::apply(
                    [&](Shared &...shared) {
                        Impl unroller(block, prepared->instances, handler->createUnroller(block), types, shared...);
                        if (unroller.hasWork()) {
                            prepared->blocks.push_back(std::move(unroller));
                        }
                    },
                    *mShared);
            }
            if (!prepared->blocks.empty()) {
                mPrepared.emplace(&model, std::move(prepared));
            }
        }
        types.freeze();
    }

    void apply(ModelPassContext &context) {
        const auto prepared = mPrepared.find(&context.getModel());
        if (prepared == mPrepared.end()) {
            return;
        }
        std::vector<Impl> &blocks = prepared->second->blocks;
        const bool anyPoints = std::any_of(blocks.begin(), blocks.end(),
                                           [](const Impl &block) { return hasReferencePoints(block.block()); });
        const std::vector<RefChain> withPoints =
            anyPoints ? instancesOf(context.getModel(), unrolledTree(context)) : std::vector<RefChain>();
        NetlistReferencePointsUpdater updater(context, context.getModel(), prepared->second->instances.front());
        updater.setInstances(withPoints);
        const DomainEdgeBlocks edged(context.getModel());
        for (Impl &block : blocks) {
            if (hasReferencePoints(block.block()) || edged.has(block.block()) ||
                updater.mapping().isSuccessor(block.block())) {
                updater.setupUnrollerNotifier(&block.unroller());
            }
            block.unroll(unrolledTypes(context));
        }
    }

    void after(PassContext &context) {
        mPrepared.clear();
        mShared.reset();
        unrolledTypes(context).thaw();
    }

  private:
    struct Prepared {
        std::vector<RefChain> instances;
        std::vector<Impl> blocks;
    };

    using Unroller =
        typename decltype(std::declval<const Handler &>().createUnroller(std::declval<Block &>()))::element_type;
    static constexpr bool kSomeForScalars = requires(const Unroller &unroller) { unroller.mandatoryUnrolling(); };
    static bool isForScalars([[maybe_unused]] const Unroller &unroller) {
        if constexpr (kSomeForScalars) {
            return unroller.mandatoryUnrolling();
        } else {
            return false;
        }
    }

    /// Null for a block that stays as it is whatever it carries; with `allScalar`, also for one that plain numbers do
    /// not take apart.
    const Handler *handlerOf(Block &block, bool allScalar) {
        const BlockClass *of = block.getClass();
        const Handler *handler = of == nullptr ? nullptr : of->template get<Handler>();
        if (!allScalar || handler == nullptr) {
            return handler;
        }
        if (of != mLastClass) {
            const auto [at, isNew] = mForScalars.try_emplace(of, false);
            if (isNew) {
                at->second = isForScalars(*handler->createUnroller(block));
            }
            mLastClass = of;
            mLastIsForScalars = at->second;
        }
        return mLastIsForScalars ? handler : nullptr;
    }

    std::unique_ptr<std::tuple<Shared...>> mShared;
    std::unordered_map<const Model *, std::unique_ptr<Prepared>> mPrepared;
    /// Whether plain numbers take blocks of the class apart, too.
    std::unordered_map<const BlockClass *, bool> mForScalars;
    const BlockClass *mLastClass = nullptr;
    bool mLastIsForScalars = false;
};

/// The blocks at which the boundary of one model shows: those at its edge, and those that instantiate it. They change
/// together or not at all.
struct ModelBoundary {
    std::vector<std::size_t> inputs;
    std::vector<std::size_t> outputs;
    std::vector<std::size_t> references;
};

/// A pass over the boundaries of all models. `Impl` takes one block apart with a `Boundary`, which keeps the block and
/// renames its ports and wires:
///     Impl::kKind, what it takes apart
///     Impl(block, instances, boundary, types, shared...), failed(), fail(), failOnBoundary(), unroll(types)
///     Boundary(block), namesClash(), portMappings(), wireMappings(), block()
/// One object of each `Shared` serves all blocks.
template <class Impl, class Boundary, class... Shared> class BoundaryUnrolling {
  public:
    explicit BoundaryUnrolling(PassContext &context)
        : mContext(context), mTypes(unrolledTypes(context)), mDistinct(unrolledTree(context), mTypes) {
        Design &design = context.getDesign();
        if (std::none_of(design.begin(), design.end(),
                         [&](const Model &model) { return mTypes.mayCarry(model, Impl::kKind); })) {
            return;
        }
        for (Model &model : context.getDesign()) {
            mModels.push_back({&model, {}, {}, {}});
        }
        for (PerModel &of : mModels) {
            prepare(of);
        }
        for (PerModel &of : mModels) {
            settle(mBoundaries[of.model]);
        }
    }

    void unroll() {
        mTypes.freeze();
        for (PerModel &of : mModels) {
            if (of.blocks.empty()) {
                continue;
            }
            NetlistReferencePointsUpdater updater(mContext, *of.model, of.instances.front());
            updater.setInstances(of.withPoints);
            for (const std::size_t at : of.blocks) {
                updater.setupUnrollerNotifier(mUnrollers[at].get());
                mBlocks[at].unroll(mTypes);
            }
        }
        mTypes.thaw();
    }

    /// Puts what became of the ports behind what earlier passes made of them.
    void store() {
        BoundaryUnrollMappingStateItem *state = BoundaryUnrollMappingStateItem::findOrCreate(mContext);
        for (const PerModel &of : mModels) {
            const ModelBoundary &boundary = mBoundaries[of.model];
            const UnrollMappings inputs = mappingsOf(boundary.inputs, &Boundary::wireMappings);
            const UnrollMappings outputs = mappingsOf(boundary.outputs, &Boundary::portMappings);
            if (state != nullptr && !inputs.empty()) {
                state->setInputUnrollMapping(*of.model, state->getInputUnrollMapping(*of.model) << inputs);
            }
            if (state != nullptr && !outputs.empty()) {
                state->setOutputUnrollMapping(*of.model, state->getOutputUnrollMapping(*of.model) << outputs);
            }
        }
    }

  private:
    struct PerModel {
        Model *model;
        std::vector<RefChain> instances;
        /// All of them, if any of the blocks has points that are told by chains.
        std::vector<RefChain> withPoints;
        std::vector<std::size_t> blocks;
    };

    void prepare(PerModel &of) {
        for (Block &block : *of.model) {
            std::vector<std::size_t> *side = sideOf(block);
            if (side == nullptr) {
                continue;
            }
            if (of.instances.empty()) {
                of.instances = mDistinct.of(*of.model);
            }
            if (of.withPoints.empty() && hasReferencePoints(block)) {
                of.withPoints = instancesOf(*of.model, unrolledTree(mContext));
            }
            const auto unroller = std::make_shared<Boundary>(block);
            const std::size_t at = mBlocks.size();
            std::apply(
                [&](Shared &...shared) { mBlocks.emplace_back(block, of.instances, unroller, mTypes, shared...); },
                mShared);
            mUnrollers.push_back(unroller);
            if (!mBlocks.back().failed() && unroller->namesClash()) {
                mBlocks.back().failOnBoundary();
            }
            of.blocks.push_back(at);
            side->push_back(at);
        }
    }

    std::vector<std::size_t> *sideOf(Block &block) {
        if (block.type() == A_INPUT_BLOCK.get_ptr()) {
            return &mBoundaries[&block.getModel()].inputs;
        }
        if (block.type() == A_OUTPUT_BLOCK.get_ptr()) {
            return &mBoundaries[&block.getModel()].outputs;
        }
        const bool isModel = block.type() == A_MODEL_BLOCK.get_ptr();
        const Model *below = isModel ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
        return below == nullptr ? nullptr : &mBoundaries[below].references;
    }

    /// What one side of a signal cannot do, the other must not.
    void settle(const ModelBoundary &boundary) {
        bool anyFailed = false;
        forAll(boundary, [&](Impl &block) { anyFailed = anyFailed || block.failed(); });
        for (const std::size_t at : boundary.references) {
            if (!anyFailed && !agrees(boundary, *mUnrollers[at])) {
                mBlocks[at].failOnBoundary();
                anyFailed = true;
            }
        }
        if (anyFailed) {
            forAll(boundary, [](Impl &block) { block.fail(); });
        }
    }

    template <class Visit> void forAll(const ModelBoundary &boundary, Visit visit) {
        for (const auto *side : {&boundary.inputs, &boundary.outputs, &boundary.references}) {
            for (const std::size_t at : *side) {
                visit(mBlocks[at]);
            }
        }
    }

    /// Whether both sides of each signal fall apart alike.
    bool agrees(const ModelBoundary &boundary, const Boundary &reference) const {
        const auto hasPort = [](const Block &block, const PureValueRef &name) {
            return block.getPort(name) != nullptr;
        };
        const auto hasWire = [](const Block &block, const PureValueRef &name) {
            return block.getWire(name) != nullptr;
        };
        const Block &outside = reference.block();
        const auto isInside = [&](const std::vector<std::size_t> &side, auto has) {
            return [this, &side, has](const PureValueRef &name) {
                return std::any_of(side.begin(), side.end(),
                                   [&](std::size_t at) { return has(mUnrollers[at]->block(), name); });
            };
        };
        const UnrollMappings inputs = mappingsOf(boundary.inputs, &Boundary::wireMappings);
        const UnrollMappings outputs = mappingsOf(boundary.outputs, &Boundary::portMappings);
        return areFound(inputs, reference.portMappings(), [&](const auto &name) { return hasPort(outside, name); }) &&
               areFound(reference.portMappings(), inputs, isInside(boundary.inputs, hasWire)) &&
               areFound(outputs, reference.wireMappings(), [&](const auto &name) { return hasWire(outside, name); }) &&
               areFound(reference.wireMappings(), outputs, isInside(boundary.outputs, hasPort));
    }

    /// Whether what falls apart on one side does so on the other, as far as that has a signal of the name.
    template <class IsThere>
    static bool areFound(const UnrollMappings &side, const UnrollMappings &others, IsThere isThere) {
        return std::all_of(side.portMapping().begin(), side.portMapping().end(), [&](const auto &mapping) {
            const auto other = others.portMapping().find(mapping.first);
            return other != others.portMapping().end() ? other->second == mapping.second : !isThere(mapping.first);
        });
    }

    using Mappings = const UnrollMappings &(Boundary::*)() const;
    UnrollMappings mappingsOf(const std::vector<std::size_t> &blocks, Mappings side) const {
        UnrollMappings all;
        for (const std::size_t at : blocks) {
            if (!mBlocks[at].failed()) {
                all = all << ((*mUnrollers[at]).*side)();
            }
        }
        return all;
    }

    PassContext &mContext;
    GlobalTypePass &mTypes;
    DistinctInstances mDistinct;
    std::tuple<Shared...> mShared;
    std::vector<PerModel> mModels;
    std::vector<Impl> mBlocks;
    std::vector<std::shared_ptr<Boundary>> mUnrollers;
    std::unordered_map<const Model *, ModelBoundary> mBoundaries;
};

} // namespace orvo::internal
