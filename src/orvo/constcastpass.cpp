// A constant behind a cast is worked out here, bit by bit as the cast would.
#include "orvo/constcastpass.h"

#include "orvo/fixednumbers.h"
#include "orvo/keptpoints.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(ConstCastPass,
                 "Folds each cast of a fixed-point constant to a fixed-point type into a constant of that type, "
                 "rounded and saturated as the cast does it, its clip flag included. A constant that nothing else "
                 "reads goes.")

namespace {

using internal::saturated;
using internal::wrapped;

/// The number in steps of another fraction, so many bits fewer.
mpz_class rounded(const mpz_class &steps, int dropped, const ValueRef &mode) {
    if (dropped <= 0) {
        return steps << static_cast<unsigned>(-dropped);
    }
    const auto bits = static_cast<unsigned>(dropped);
    if (mode == A_ROUNDING_TRUNC_TO_ZERO) {
        return sgn(steps) < 0 ? mpz_class(-(-steps >> bits)) : mpz_class(steps >> bits);
    }
    const mpz_class half = mpz_class(1) << (bits - 1);
    if (mode == A_ROUNDING_BIASED) {
        return (steps + half) >> bits;
    }
    // Between fixed-point types, the modes of floats cut as none does.
    mpz_class result = steps >> bits;
    if (mode == A_ROUNDING_UNBIASED) {
        const mpz_class rest = steps - (result << bits);
        if (rest > half || (rest == half && mpz_odd_p(result.get_mpz_t()) != 0)) {
            ++result;
        }
    }
    return result;
}

/// What one cast makes of numbers of one type.
class Fold {
  public:
    Fold(const Block &cast, const NumTypeSpec &from, const NumTypeSpec &to)
        : mReinterprets(cast.getParam(A_CAST_MODE) == A_CAST_MODE_REINTERP),
          mRounding(cast.getParam(A_CAST_ROUNDING_MODE)), mSaturation(cast.getParam(A_CAST_SATURATE_MODE)), mFrom(from),
          mTo(to) {}

    bool isDefined() const { return !mReinterprets || mFrom.fixedBits() == mTo.fixedBits(); }
    mpz_class value(const mpz_class &steps) const;
    bool clips(const mpz_class &steps) const;
    const NumTypeSpec &from() const { return mFrom; }
    const NumTypeSpec &to() const { return mTo; }

  private:
    int droppedBits() const { return mFrom.fracBits() - mTo.fracBits(); }
    mpz_class clipped(const mpz_class &steps) const;

    bool mReinterprets;
    ValueRef mRounding;
    ValueRef mSaturation;
    NumTypeSpec mFrom;
    NumTypeSpec mTo;
};

mpz_class Fold::clipped(const mpz_class &steps) const {
    if (!(mSaturation == A_SATURATE_SYM) && !(mSaturation == A_SATURATE_ASYM)) {
        return steps;
    }
    mpz_class result = saturated(steps, mTo);
    if (mSaturation == A_SATURATE_SYM && mTo.isSigned()) {
        // The most negative value has no positive twin.
        const mpz_class most = (mpz_class(1) << static_cast<unsigned>(mTo.fixedBits() - 1)) - 1;
        result = std::max(result, mpz_class(-most));
    }
    return result;
}

mpz_class Fold::value(const mpz_class &steps) const {
    return wrapped(mReinterprets ? steps : clipped(rounded(steps, droppedBits(), mRounding)), mTo);
}

bool Fold::clips(const mpz_class &steps) const {
    // Where no bit of the input survives, no bound is looked at.
    const bool isNearest = mRounding == A_ROUNDING_BIASED || mRounding == A_ROUNDING_UNBIASED;
    const int left = mFrom.fixedBits() - droppedBits();
    if (mReinterprets || left < 0 || (left == 0 && !isNearest)) {
        return false;
    }
    const mpz_class result = rounded(steps, droppedBits(), mRounding);
    return clipped(result) != result;
}

/// A number, or numbers rolled into vectors and complex numbers.
bool isFoldable(const ValueRef &value) {
    if (const NumberValueRef number = numberVR(value)) {
        return !number->isSpecial();
    }
    const TupleValueRef tuple = tupleVR(value);
    return tuple && tuple->size() > 1 && (tuple->at(0) == A_VECTOR_ROLL_TAG || tuple->at(0) == A_COMPLEX_ROLL_TAG) &&
           std::all_of(tuple->begin() + 1, tuple->end(), isFoldable);
}

/// The value with each of its numbers replaced.
template <class OfNumber> ValueRef folded(const ValueRef &value, const OfNumber &ofNumber) {
    if (const NumberValueRef number = numberVR(value)) {
        return ValueRef(ofNumber(*number));
    }
    const TupleValueRef tuple = tupleVR(value);
    std::vector<ValueRef> elements{tuple->at(0)};
    for (std::size_t i = 1; i < tuple->size(); ++i) {
        elements.push_back(folded(tuple->at(i), ofNumber));
    }
    return ValueRef(TupleValue::get(elements, tuple->context()));
}

/// Whether the constant's value goes on through the block as through a cast, and nothing else leaves that.
bool isPlainCast(const Port &reader, const Model &model) {
    const Block &block = reader.getBlock();
    if (block.type() != A_CAST_BLOCK.get_ptr() || &block.getModel() != &model || block.getPortCount() != 1 ||
        !(reader.getName() == NumberValue::get(0, block.getContext())) || block.getWire(A_PRIM_WIRE_OUT) == nullptr) {
        return false;
    }
    return std::all_of(block.begin(), block.end(), [](const Wire &wire) {
        return wire.port_size() == 0 || wire.getName() == A_PRIM_WIRE_OUT || wire.getName() == A_CAST_WIRE_CLIP;
    });
}

/// The type as a fixed-point one that a constant can be of: it has a bit, and is written as constants write theirs.
/// Invalid for any other.
NumTypeSpec constantType(const PureValueRef &type) {
    if (!type) {
        return {};
    }
    NumTypeSpec spec(type, type->context());
    if (!spec.isFixed() || spec.fixedBits() < 1 || !(PureValueRef(spec.toValue(type->context())) == type)) {
        return {};
    }
    return spec;
}

/// Whether a constant of that value has the type, which the value may carry into more dimensions.
bool isTypeOf(const NumTypeSpec &type, const ValueRef &value) {
    NumTypeSpec inferred = type;
    inferred.mergeDecors(NumTypeSpec::fromFixedValue(value));
    return inferred == type;
}

} // namespace

/// What a wire always carries: a constant's, or a cast's of one.
struct ConstCastPass::Known {
    const Wire *wire;
    NumTypeSpec type;
    ValueRef value;
};

/// One cast of a constant, and what takes the place of its wires.
struct ConstCastPass::WorkItem {
    Block *cast;
    Known main;
    std::optional<Known> clip;
};

/// The casts of one constant. Those of the constants that take the place of these casts come behind, in the same order.
struct ConstCastPass::Casts {
    /// Null for one that is still to be made.
    Block *constant;
    std::vector<WorkItem> items;
};

/// What one run of the pass knows.
class ConstCastPass::Run {
  public:
    explicit Run(PassContext &context) : mContext(context), mTypes(internal::unrolledTypes(context)), mHeld(context) {}

    void beginAnalysis() { mDistinct.emplace(internal::unrolledTree(mContext), mTypes); }
    void analyze(ModelPassContext &context);
    void apply(Model &model);
    void settle() { mHeld.settle(); }

  private:
    using Instances = std::vector<RefChain>;
    /// One constant serves all instances.
    NumTypeSpec typeOf(const Wire &wire, const Instances &instances) const {
        return constantType(internal::typeInAll(wire, instances, mTypes));
    }
    std::optional<WorkItem> itemOf(const Known &constant, Block &cast, const Instances &instances) const;
    void follow(Block &constant, const Known &known, Model &model, Instances &instances);
    static Wire &make(const PureValueRef &name, const Known &known, const Block &constant);
    static std::vector<const Wire *> fold(const WorkItem &item, Block &constant);
    static std::vector<const Wire *> foldAll(const Casts &casts, Block &constant, internal::KeptPoints &points);

    PassContext &mContext;
    GlobalTypePass &mTypes;
    internal::HeldDomains mHeld;
    std::optional<internal::DistinctInstances> mDistinct;
    std::unordered_map<const Model *, std::vector<Casts>> mCasts;
};

std::optional<ConstCastPass::WorkItem> ConstCastPass::Run::itemOf(const Known &constant, Block &cast,
                                                                  const Instances &instances) const {
    const Wire &out = *cast.getWire(A_PRIM_WIRE_OUT);
    const NumTypeSpec &from = constant.type;
    const NumTypeSpec to = typeOf(out, instances);
    const Fold fold(cast, from, to);
    if (!to.valid() || !fold.isDefined()) {
        return std::nullopt;
    }
    Context *context = cast.getContext();
    const auto stepsOf = [&](const NumberValue &number) {
        return saturated(internal::stepsOf(number, from.fracBits()), from);
    };
    WorkItem item{&cast, {&out, to, {}}, std::nullopt};
    item.main.value = folded(constant.value, [&](const NumberValue &number) {
        return internal::numberOfSteps(fold.value(stepsOf(number)), to.fracBits(), context);
    });
    bool isSound = isTypeOf(to, item.main.value);
    const Wire *clip = cast.getWire(A_CAST_WIRE_CLIP);
    if (clip != nullptr && clip->port_size() != 0) {
        item.clip = Known{clip, typeOf(*clip, instances), folded(constant.value, [&](const NumberValue &number) {
                              return NumberValue::get(fold.clips(stepsOf(number)) ? 1 : 0, context);
                          })};
        isSound = isSound && item.clip->type.valid() && isTypeOf(item.clip->type, item.clip->value);
    }
    return isSound ? std::optional(std::move(item)) : std::nullopt;
}

/// The casts of a constant, those of what they come to, and so on: what a cast gives keeps its type when a constant
/// comes in the cast's place.
void ConstCastPass::Run::follow(Block &constant, const Known &known, Model &model, Instances &instances) {
    std::vector<Casts> &all = mCasts[&model];
    const std::size_t first = all.size();
    std::vector<Known> sources{known};
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const Known source = sources[i];
        Casts casts{i == 0 ? &constant : nullptr, {}};
        for (Port &reader : source.wire->ports()) {
            if (!isPlainCast(reader, model)) {
                continue;
            }
            std::optional<WorkItem> item = itemOf(source, reader.getBlock(), instances);
            if (item) {
                mHeld.hold(*item->cast);
                sources.push_back(item->main);
                if (item->clip) {
                    sources.push_back(*item->clip);
                }
                casts.items.push_back(std::move(*item));
            }
        }
        all.push_back(std::move(casts));
    }
    if (sources.size() == 1) {
        all.resize(first);
    }
}

void ConstCastPass::Run::analyze(ModelPassContext &context) {
    Model &model = context.getModel();
    Instances instances;
    while (context.moreApplicable()) {
        Block &constant = *context.dequeueApplicable();
        const Wire *wire = constant.getWire(A_PRIM_WIRE_OUT);
        const ValueRef value = constant.getParam(A_CONST_VALUE);
        if (wire == nullptr || !isFoldable(value) ||
            std::none_of(wire->port_begin(), wire->port_end(),
                         [&](const Port &reader) { return isPlainCast(reader, model); })) {
            continue;
        }
        if (instances.empty()) {
            instances = mDistinct->of(model);
        }
        const NumTypeSpec type = typeOf(*wire, instances);
        if (type.valid()) {
            follow(constant, {wire, type, value}, model, instances);
        }
    }
}

Wire &ConstCastPass::Run::make(const PureValueRef &name, const Known &known, const Block &constant) {
    Block &made = *Block::create(constant.getModel(), name);
    made.setParam(A_BLOCK_TYPE, A_CONST_BLOCK);
    made.setParam(A_CONST_TYPE, ValueRef(known.type.toValue(constant.getContext())));
    made.setParam(A_CONST_VALUE, known.value);
    return *Wire::create(made, A_PRIM_WIRE_OUT);
}

/// Gives what takes the place of the cast's wires.
std::vector<const Wire *> ConstCastPass::Run::fold(const WorkItem &item, Block &constant) {
    Context *values = constant.getContext();
    const PureValueRef of = constant.getName();
    const PureValueRef by = item.cast->getName();
    Wire &main = make(PureTupleValue::get(of, by, values), item.main, constant);
    if (const ValueRef warns = constant.getParam(A_CONST_WARN_SATURATION)) {
        main.getBlock().setParam(A_CONST_WARN_SATURATION, warns);
    }
    item.cast->getWire(A_PRIM_WIRE_OUT)->replace(main);
    std::vector<const Wire *> made{&main};
    if (item.clip) {
        Wire &clip = make(PureTupleValue::get(of, by, StringValue::get("clip", values), values), *item.clip, constant);
        item.cast->getWire(A_CAST_WIRE_CLIP)->replace(clip);
        made.push_back(&clip);
    }
    delete item.cast;
    return made;
}

/// Gives what takes the place of the casts' wires.
std::vector<const Wire *> ConstCastPass::Run::foldAll(const Casts &casts, Block &constant,
                                                      internal::KeptPoints &points) {
    Wire &wire = *constant.getWire(A_PRIM_WIRE_OUT);
    std::vector<const Wire *> all;
    Block *last = nullptr;
    for (const WorkItem &item : casts.items) {
        const bool isInDomain = !points.hasEdge(*item.cast->port_begin());
        std::vector<const Wire *> made;
        points.around(*item.cast, [&] { made = fold(item, constant); });
        for (const Wire *one : made) {
            if (isInDomain) {
                points.copyBegin(wire, *one);
            }
        }
        last = &made.front()->getBlock();
        all.insert(all.end(), made.begin(), made.end());
    }
    const bool stays = constant.hasReader();
    points.spread(wire, all, stays);
    if (!stays) {
        // What else is told of the constant goes to the last that took its place.
        wire.replace(*last->getWire(A_PRIM_WIRE_OUT));
        delete &constant;
    }
    return all;
}

void ConstCastPass::Run::apply(Model &model) {
    const auto found = mCasts.find(&model);
    if (found == mCasts.end()) {
        return;
    }
    internal::KeptPoints points(mContext, model, &mHeld);
    std::deque<Block *> made;
    for (const Casts &casts : found->second) {
        Block *constant = casts.constant;
        if (constant == nullptr) {
            constant = made.front();
            made.pop_front();
        }
        if (!casts.items.empty()) {
            for (const Wire *wire : foldAll(casts, *constant, points)) {
                made.push_back(&wire->getBlock());
            }
        }
    }
    mCasts.erase(found);
}

ConstCastPass::ConstCastPass() = default;

ConstCastPass::~ConstCastPass() = default;

void ConstCastPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

void ConstCastPass::before(PassContext &context) { mRun = std::make_unique<Run>(context); }

void ConstCastPass::after(PassContext &) {
    mRun->settle();
    mRun.reset();
}

void ConstCastPass::setup(ModelPassContext &context) {
    for (Block &block : context.getModel()) {
        if (block.type() == A_CONST_BLOCK.get_ptr()) {
            context.enqueueApplicable(&block);
        }
    }
}

void ConstCastPass::analyze(ModelPassContext &context) { mRun->analyze(context); }

void ConstCastPass::apply(ModelPassContext &context) { mRun->apply(context.getModel()); }

unsigned int ConstCastPass::lookupActionFor(PassContext &context, unsigned int iteration) {
    const unsigned int action = TwoPhaseModelPass::lookupActionFor(context, iteration);
    if (action == ACTION_ANALYZE) {
        mRun->beginAnalysis();
    }
    return action;
}

} // namespace orvo
