// Vector unrolling, inside models and across them.
#include "orvo/unrollvectorpass.h"

#include "orvo/boundaryvectorunroller.h"
#include "orvo/vectorunroll.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/design.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>

#include <vector>

namespace orvo {

using internal_vector::BlockUnrollerImpl;

ORVO_DEFINE_PASS(UnrollVectorPass,
                 "Blocks that work on vectors become scalar blocks, one a lane, or what their type needs. Packs and "
                 "unpacks of vectors join them to what keeps its vectors, such as the boundaries of models.")

ORVO_DEFINE_PASS(UnrollVectorCrossModelPass,
                 "Vectors at the boundaries of models become ports of their lanes, named by port and lane. The names "
                 "that ports had are kept with the run.")

namespace {

GlobalTypePass &typesOf(const PassContext &context) {
    return *static_cast<GlobalTypePass *>(context.getPass(GlobalTypePass::sName));
}

ModelTreePass &treeOf(const PassContext &context) {
    return *static_cast<ModelTreePass *>(context.getPass(ModelTreePass::sName));
}

void declareRequired(PassDeclarations &declarations) {
    declarations.requirePass(ModelTreePass::sName);
    declarations.requirePass(GlobalTypePass::sName);
}

} // namespace

namespace {

/// Of all other blocks the updater need not hear, which would cost more than taking them apart.
bool hasConstraints(const Block &block) {
    return block.findParam(A_SCHEDULE_CONSTRAINT_PORTS) != nullptr ||
           block.findParam(A_SCHEDULE_CONSTRAINT_WIRES) != nullptr;
}

} // namespace

/// What was found of a model before any model changed.
struct UnrollVectorPass::Prepared {
    std::vector<RefChain> instances;
    std::vector<BlockUnrollerImpl> blocks;
};

UnrollVectorPass::UnrollVectorPass() = default;

UnrollVectorPass::~UnrollVectorPass() = default;

void UnrollVectorPass::declare(PassDeclarations &declarations) { declareRequired(declarations); }

void UnrollVectorPass::before(PassContext &context) {
    GlobalTypePass &types = typesOf(context);
    ModelTreePass &tree = treeOf(context);
    for (Model &model : context.getDesign()) {
        auto prepared = std::make_unique<Prepared>();
        prepared->instances = internal_vector::instancesOf(model, tree);
        for (Block &block : model) {
            const auto *handler = block.getClass() == nullptr ? nullptr : block.getClass()->get<VectorUnrollHandler>();
            if (handler == nullptr) {
                continue;
            }
            BlockUnrollerImpl unroller(block, prepared->instances, handler->createUnroller(block), types);
            if (unroller.hasWork()) {
                prepared->blocks.push_back(std::move(unroller));
            }
        }
        mPrepared.emplace(&model, std::move(prepared));
    }
    types.freeze();
}

void UnrollVectorPass::apply(ModelPassContext &context) {
    const auto prepared = mPrepared.find(&context.getModel());
    if (prepared == mPrepared.end() || prepared->second->blocks.empty()) {
        return;
    }
    NetlistReferencePointsUpdater updater(context, context.getModel(), prepared->second->instances.front());
    for (BlockUnrollerImpl &block : prepared->second->blocks) {
        if (hasConstraints(block.block())) {
            updater.setupUnrollerNotifier(&block.unroller());
        }
        block.unroll(typesOf(context));
    }
}

void UnrollVectorPass::after(PassContext &context) {
    mPrepared.clear();
    typesOf(context).thaw();
}

namespace {

/// The blocks at which the boundary of one model shows: those at its edge, and those that instantiate it. They change
/// together or not at all.
struct Boundary {
    std::vector<std::size_t> inputs;
    std::vector<std::size_t> outputs;
    std::vector<std::size_t> references;
};

class BoundaryUnroller {
  public:
    explicit BoundaryUnroller(PassContext &context) : mContext(context), mTypes(typesOf(context)) {
        for (Model &model : context.getDesign()) {
            mModels.push_back({&model, internal_vector::instancesOf(model, treeOf(context)), {}});
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
            NetlistReferencePointsUpdater updater(mContext, *of.model, of.instances.front());
            for (const std::size_t at : of.blocks) {
                updater.setupUnrollerNotifier(mUnrollers[at].get());
                mBlocks[at].unroll(mTypes);
            }
        }
        mTypes.thaw();
    }

    void store() {
        BoundaryUnrollMappingStateItem *state = BoundaryUnrollMappingStateItem::findOrCreate(mContext);
        for (const PerModel &of : mModels) {
            const Boundary &boundary = mBoundaries[of.model];
            const UnrollMappings inputs = mappingsOf(boundary.inputs, &BoundaryVectorUnroller::wireMappings);
            const UnrollMappings outputs = mappingsOf(boundary.outputs, &BoundaryVectorUnroller::portMappings);
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
        std::vector<std::size_t> blocks;
    };

    void prepare(PerModel &of) {
        for (Block &block : *of.model) {
            std::vector<std::size_t> *side = sideOf(block);
            if (side == nullptr) {
                continue;
            }
            const auto unroller = std::make_shared<BoundaryVectorUnroller>(block);
            const std::size_t at = mBlocks.size();
            mBlocks.emplace_back(block, of.instances, unroller, mTypes);
            mUnrollers.push_back(unroller);
            if (!mBlocks.back().failed() && unroller->namesClash()) {
                mBlocks.back().failOnDimensions();
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
    void settle(const Boundary &boundary) {
        bool anyFailed = false;
        forAll(boundary, [&](BlockUnrollerImpl &block) { anyFailed = anyFailed || block.failed(); });
        for (const std::size_t at : boundary.references) {
            if (!anyFailed && !agrees(boundary, *mUnrollers[at])) {
                mBlocks[at].failOnDimensions();
                anyFailed = true;
            }
        }
        if (anyFailed) {
            forAll(boundary, [](BlockUnrollerImpl &block) { block.fail(); });
        }
    }

    template <class Visit> void forAll(const Boundary &boundary, Visit visit) {
        for (const auto *side : {&boundary.inputs, &boundary.outputs, &boundary.references}) {
            for (const std::size_t at : *side) {
                visit(mBlocks[at]);
            }
        }
    }

    /// Whether both sides of each signal fall apart alike.
    bool agrees(const Boundary &boundary, const BoundaryVectorUnroller &reference) const {
        return agrees(mappingsOf(boundary.inputs, &BoundaryVectorUnroller::wireMappings), reference.portMappings(),
                      reference.block(), true) &&
               agrees(mappingsOf(boundary.outputs, &BoundaryVectorUnroller::portMappings), reference.wireMappings(),
                      reference.block(), false);
    }

    static bool agrees(const UnrollMappings &inside, const UnrollMappings &outside, const Block &reference,
                       bool isPort) {
        for (const auto &[name, parts] : inside.portMapping()) {
            const bool isThere = isPort ? reference.getPort(name) != nullptr : reference.getWire(name) != nullptr;
            const auto other = outside.portMapping().find(name);
            if (isThere && (other == outside.portMapping().end() || other->second != parts)) {
                return false;
            }
        }
        return true;
    }

    using Mappings = const UnrollMappings &(BoundaryVectorUnroller::*)() const;
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
    std::vector<PerModel> mModels;
    std::vector<BlockUnrollerImpl> mBlocks;
    std::vector<std::shared_ptr<BoundaryVectorUnroller>> mUnrollers;
    std::unordered_map<const Model *, Boundary> mBoundaries;
};

} // namespace

void UnrollVectorCrossModelPass::declare(PassDeclarations &declarations) { declareRequired(declarations); }

void UnrollVectorCrossModelPass::apply(PassContext &context) {
    BoundaryUnroller boundaries(context);
    boundaries.unroll();
    boundaries.store();
}

} // namespace orvo
