// Sums whose carry is cast away are made without it. What this does to types is looked at afterwards: a loop may have
// had its types from the cast.
#include "orvo/removenogrowthcastspass.h"

#include "orvo/elideddomainedges.h"
#include "orvo/keptpoints.h"
#include "orvo/readertypes.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(RemoveNoGrowthCastsPass,
                 "Takes out each cast that brings a sum or difference of two signals of one fixed-point type back to "
                 "that type, wrapping, if nothing else reads the sum: it is marked as one that does not grow "
                 "(A_ADD_NO_GROWTH). Where the cast told the types of a loop, a type pin takes its place.")

namespace {

using Instances = std::vector<RefChain>;

/// An absent parameter has its default.
bool isSet(const Block &block, const StaticString &key, const StaticString &wanted) {
    const ValueRef value = block.getParam(key);
    return !value || value == wanted;
}

bool isSumOfTwo(const Block &block) {
    const bool isSum = block.type() == A_ADD_BLOCK.get_ptr() || block.type() == A_SUB_BLOCK.get_ptr();
    return isSum && block.getPortCount() == 2 && block.getPort(NumberValue::get(0, block.getContext())) != nullptr &&
           block.getPort(NumberValue::get(1, block.getContext())) != nullptr;
}

bool isReadBeside(const Block &block, const Wire &but) {
    return std::any_of(block.begin(), block.end(),
                       [&](const Wire &wire) { return &wire != &but && wire.port_size() != 0; });
}

/// The cast that alone reads the wire and cuts off high bits at most; null if there is none.
Block *cuttingCast(const Wire &wire) {
    if (wire.port_size() != 1) {
        return nullptr;
    }
    Block &cast = wire.port_begin()->getBlock();
    const Wire *out = cast.getWire(A_PRIM_WIRE_OUT);
    if (cast.type() != A_CAST_BLOCK.get_ptr() || &cast.getModel() != &wire.getBlock().getModel() ||
        cast.getPortCount() != 1 || cast.getPort(NumberValue::get(0, cast.getContext())) == nullptr || out == nullptr ||
        isReadBeside(cast, *out)) {
        return nullptr;
    }
    const bool wraps = isSet(cast, A_CAST_MODE, A_CAST_MODE_CONVERT) &&
                       isSet(cast, A_CAST_ROUNDING_MODE, A_ROUNDING_TRUNC) &&
                       isSet(cast, A_CAST_SATURATE_MODE, A_SATURATE_NONE);
    return wraps ? &cast : nullptr;
}

/// The first such cast behind the sum. A type of its own is what the sum has, growing or not.
Block *cuttingCastOf(const Block &sum) {
    const Wire *wire = sum.getWire(A_PRIM_WIRE_OUT);
    const bool isPlain = wire != nullptr && !isReadBeside(sum, *wire) &&
                         !NumTypeSpec(sum.getParam(A_ADD_TYPE), sum.getContext()).valid();
    return isPlain ? cuttingCast(*wire) : nullptr;
}

} // namespace

/// What one run of the pass knows.
class RemoveNoGrowthCastsPass::Run {
  public:
    explicit Run(PassContext &context) : mContext(context), mTypes(internal::unrolledTypes(context)) {}

    void beginAnalysis() { mDistinct.emplace(internal::unrolledTree(mContext), mTypes); }
    void analyze(ModelPassContext &context);
    void apply(ModelPassContext &context);

  private:
    /// A sum that its reader cuts off, with this cast and those behind it to the same type, or, without casts, one that
    /// was and now lacks its type.
    struct Candidate {
        Block *sum;
        std::vector<Block *> casts;
        PureValueRef type;
    };
    struct Done {
        Instances instances;
        PureValueRef type;
    };
    PureValueRef typeBehind(const Block &sum, const Block &cast, const Instances &instances) const;
    bool isTypeKept(const Wire &wire, const Done &done) const;
    std::vector<Block *> castsFrom(Block &first, const Done &done) const;
    static internal::ElidedDomainEdges edgesAt(const std::vector<Candidate> &stack);

    PassContext &mContext;
    GlobalTypePass &mTypes;
    std::optional<internal::DistinctInstances> mDistinct;
    std::unordered_map<const Model *, std::vector<Candidate>> mStacks;
    /// Sums whose casts have gone since the last look at types.
    std::unordered_map<const Block *, Done> mDone;
};

/// The type that the sum has, without growth, and the cast gives, in all instances; null if these or any differ.
PureValueRef RemoveNoGrowthCastsPass::Run::typeBehind(const Block &sum, const Block &cast,
                                                      const Instances &instances) const {
    Context *context = sum.getContext();
    const auto typeOf = [&](const auto &end, const RefChain &instance) {
        return NumTypeSpec(mTypes.getType(end, instance), context);
    };
    const PureValueRef common = mTypes.getType(*cast.getWire(A_PRIM_WIRE_OUT), instances.front());
    for (const RefChain &instance : instances) {
        const NumTypeSpec grown = typeOf(*sum.getWire(A_PRIM_WIRE_OUT), instance);
        const NumTypeSpec first = typeOf(*sum.getPort(NumberValue::get(0, context)), instance);
        const NumTypeSpec second = typeOf(*sum.getPort(NumberValue::get(1, context)), instance);
        if (!grown.isFixed() || !first.isFixed() || !second.isFixed() || !first.scalarEquals(second)) {
            return {};
        }
        // With the vectors and parts of both.
        const PureValueRef kept(NumTypeSpec::typeOp(first, second, TYPE_OP_UNION).toValue(context));
        if (!kept || !(kept == common) || !(mTypes.getType(*cast.getWire(A_PRIM_WIRE_OUT), instance) == common)) {
            return {};
        }
    }
    return common;
}

bool RemoveNoGrowthCastsPass::Run::isTypeKept(const Wire &wire, const Done &done) const {
    return std::all_of(done.instances.begin(), done.instances.end(),
                       [&](const RefChain &instance) { return mTypes.getType(wire, instance) == done.type; });
}

/// The cast and all behind it that change nothing any more.
std::vector<Block *> RemoveNoGrowthCastsPass::Run::castsFrom(Block &first, const Done &done) const {
    std::vector<Block *> casts{&first};
    for (Block *next = &first; next != nullptr;) {
        next = cuttingCast(*next->getWire(A_PRIM_WIRE_OUT));
        if (next != nullptr && isTypeKept(*next->getWire(A_PRIM_WIRE_OUT), done)) {
            casts.push_back(next);
        } else {
            next = nullptr;
        }
    }
    return casts;
}

void RemoveNoGrowthCastsPass::Run::analyze(ModelPassContext &context) {
    Model &model = context.getModel();
    std::vector<Candidate> &stack = mStacks[&model];
    Instances instances;
    while (context.moreApplicable()) {
        Block &sum = *context.dequeueApplicable();
        if (const auto done = mDone.find(&sum); done != mDone.end()) {
            const bool isKept = isTypeKept(*sum.getWire(A_PRIM_WIRE_OUT), done->second);
            const PureValueRef type = done->second.type;
            mDone.erase(done);
            if (!isKept) {
                stack.push_back({&sum, {}, type});
                continue;
            }
        }
        Block *cast = cuttingCastOf(sum);
        if (cast == nullptr) {
            continue;
        }
        if (instances.empty()) {
            instances = mDistinct->of(model);
        }
        if (const PureValueRef type = typeBehind(sum, *cast, instances)) {
            const Done &done = mDone[&sum] = {instances, type};
            stack.push_back({&sum, castsFrom(*cast, done), type});
        }
    }
}

/// Those at casts that go: the sum becomes the driver of all behind them.
internal::ElidedDomainEdges RemoveNoGrowthCastsPass::Run::edgesAt(const std::vector<Candidate> &stack) {
    internal::ElidedDomainEdges edges;
    for (const Candidate &candidate : stack) {
        const Block *last = candidate.casts.empty() ? nullptr : candidate.casts.back();
        for (const Block *cast : candidate.casts) {
            edges.addPassage(*cast->ports().begin(), [&](const Block &) { return cast != last; });
        }
    }
    return edges;
}

void RemoveNoGrowthCastsPass::Run::apply(ModelPassContext &context) {
    const auto found = mStacks.find(&context.getModel());
    if (found == mStacks.end()) {
        return;
    }
    const internal::ElidedDomainEdges edges = edgesAt(found->second);
    internal::KeptPoints points(mContext, context.getModel(), nullptr, false);
    for (std::vector<Candidate> &stack = found->second; !stack.empty(); stack.pop_back()) {
        const Candidate &candidate = stack.back();
        if (candidate.casts.empty()) {
            // Nothing else tells the type any more.
            internal::hangTypePin(*candidate.sum->getWire(A_PRIM_WIRE_OUT), candidate.type);
            continue;
        }
        for (Block *cast : candidate.casts) {
            points.around(*cast, [&] {
                cast->getWire(A_PRIM_WIRE_OUT)->replace(*candidate.sum->getWire(A_PRIM_WIRE_OUT));
                delete cast;
            });
        }
        candidate.sum->setParam(A_ADD_NO_GROWTH, A_TRUE);
        context.enqueueApplicable(candidate.sum);
    }
    edges.move(context.getModel());
}

RemoveNoGrowthCastsPass::RemoveNoGrowthCastsPass() = default;

RemoveNoGrowthCastsPass::~RemoveNoGrowthCastsPass() = default;

void RemoveNoGrowthCastsPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

void RemoveNoGrowthCastsPass::before(PassContext &context) { mRun = std::make_unique<Run>(context); }

void RemoveNoGrowthCastsPass::after(PassContext &) { mRun.reset(); }

void RemoveNoGrowthCastsPass::setup(ModelPassContext &context) {
    for (Block &block : context.getModel()) {
        if (isSumOfTwo(block)) {
            context.enqueueApplicable(&block);
        }
    }
}

void RemoveNoGrowthCastsPass::analyze(ModelPassContext &context) { mRun->analyze(context); }

void RemoveNoGrowthCastsPass::apply(ModelPassContext &context) { mRun->apply(context); }

unsigned int RemoveNoGrowthCastsPass::lookupActionFor(PassContext &context, unsigned int iteration) {
    const unsigned int action = TwoPhaseModelPass::lookupActionFor(context, iteration);
    if (action == ACTION_ANALYZE) {
        mRun->beginAnalysis();
    }
    return action;
}

} // namespace orvo
