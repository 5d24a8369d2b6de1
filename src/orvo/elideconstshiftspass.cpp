// Shifts by constants as moves of the binary point. All types are asked for before the first edit.
#include "orvo/elideconstshiftspass.h"

#include "orvo/blockbuilder.h"
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
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(ElideConstShiftsPass,
                 "Replaces each barrel shifter of fixed-point data whose shift is a constant by a raw shift, which "
                 "only moves the binary point, and a cast to the type that the shifter gave; a raw shift with "
                 "A_RAW_SHIFT_MODE_LEFT set becomes a selection of its input's bits.")

namespace {

using Instances = std::vector<RefChain>;
using internal::BlockBuilder;
using internal::MadeBlock;

PureValueRef input(const Block &block) { return NumberValue::get(0, block.getContext()); }

bool isBarrel(const Block &block) {
    return block.type() == A_BARREL_LEFT_BLOCK.get_ptr() || block.type() == A_BARREL_RIGHT_BLOCK.get_ptr();
}

/// The main output if nothing reads any other; null else.
const Wire *onlyOutput(const Block &block) {
    const Wire *out = block.getWire(A_PRIM_WIRE_OUT);
    const bool isOnly = std::all_of(block.begin(), block.end(),
                                    [&](const Wire &wire) { return &wire == out || wire.port_size() == 0; });
    return isOnly ? out : nullptr;
}

/// The constant that tells how far the barrel shifter shifts; null if there is none, or it is no integer.
const Block *constantShift(const Block &barrel) {
    const Port *port = barrel.getPort(A_BARREL_PORT_SHIFT);
    if (port == nullptr || barrel.getPort(input(barrel)) == nullptr || barrel.getPortCount() != 2) {
        return nullptr;
    }
    const Wire &wire = *port->peekWire();
    const Block &source = wire.getBlock();
    const NumberValueRef number = numberVR(source.getParam(A_CONST_VALUE));
    const bool isShift = source.type() == A_CONST_BLOCK.get_ptr() && &source.getModel() == &barrel.getModel() &&
                         wire.getName() == A_PRIM_WIRE_OUT && number && number->isInteger();
    return isShift ? &source : nullptr;
}

/// By how many places, for a raw shift to the left that says so.
std::optional<int> rawPlaces(const Block &block) {
    const NumberValueRef places = numberVR(block.getParam(A_RAW_SHIFT_VALUE));
    if (!(block.getParam(A_RAW_SHIFT_MODE) == A_RAW_SHIFT_MODE_LEFT) || block.getPortCount() != 1 ||
        block.getPort(input(block)) == nullptr || !places || !places->isInt()) {
        return std::nullopt;
    }
    return places->toInt();
}

bool isWithinBounds(std::int64_t width) { return std::abs(width) <= NumTypeSpec::kMaxWidth; }

/// What a raw shift makes of the type; invalid where widths grow out of bounds.
NumTypeSpec shifted(NumTypeSpec type, int places, bool isRight) {
    const std::int64_t whole = std::int64_t{type.intBits()} + (isRight ? 0 : places);
    const std::int64_t fraction = std::int64_t{type.fracBits()} + (isRight ? places : -std::int64_t{places});
    if (!isWithinBounds(places) || !isWithinBounds(whole) || !isWithinBounds(fraction)) {
        return {};
    }
    if (whole < 0 && !isRight) {
        type.setFixedBits(0, type.fixedBits());
    } else {
        type.setFixedBits(static_cast<int>(whole), static_cast<int>(fraction));
    }
    return type;
}

/// How many low bits the raw shift to the left drops: its type has no fewer than 0 bits before the point.
std::int64_t droppedBits(const NumTypeSpec &type, int places) {
    return std::max<std::int64_t>(-(std::int64_t{type.intBits()} + places), 0);
}

} // namespace

/// What takes the place of which blocks.
class ElideConstShiftsPass::Plans {
  public:
    explicit Plans(PassContext &context)
        : mContext(context), mTypes(internal::unrolledTypes(context)),
          mDistinct(internal::unrolledTree(context), mTypes), mHeld(context) {}

    void add(Model &model);
    void carryOut(Model &model);
    void settle() { mHeld.settle(); }

  private:
    struct Plan {
        Block *block;
        int places;
        /// Of what comes out in the end; invalid where the raw shift gives it already.
        NumTypeSpec type;
    };
    /// The types at a shift in one instance.
    struct Types {
        NumTypeSpec in;
        NumTypeSpec out;
    };
    NumTypeSpec typeOf(const Wire &wire, const RefChain &instance) const;
    std::optional<Types> typesAt(const Block &block, const RefChain &instance) const;
    std::optional<int> placesOf(const Block &constant, const Instances &instances) const;
    std::optional<Plan> planFor(Block &block, const Instances &instances) const;
    std::optional<Plan> planBarrel(Block &barrel, const Block &constant, const Instances &instances) const;
    std::optional<Plan> planRawShift(Block &block, int places, const Instances &instances) const;
    static void replaceBarrel(const Plan &plan);
    static void replaceRawShift(const Plan &plan);

    PassContext &mContext;
    GlobalTypePass &mTypes;
    internal::DistinctInstances mDistinct;
    internal::HeldDomains mHeld;
    std::unordered_map<const Model *, std::vector<Plan>> mOf;
};

/// As a fixed-point type that has a bit and is written as blocks write theirs; invalid for any other.
NumTypeSpec ElideConstShiftsPass::Plans::typeOf(const Wire &wire, const RefChain &instance) const {
    const PureValueRef type = mTypes.getType(wire, instance);
    if (!type) {
        return {};
    }
    NumTypeSpec spec(type, type->context());
    const bool isPlain = spec.isFixed() && spec.fixedBits() > 0 && PureValueRef(spec.toValue(type->context())) == type;
    return isPlain ? spec : NumTypeSpec();
}

std::optional<ElideConstShiftsPass::Plans::Types> ElideConstShiftsPass::Plans::typesAt(const Block &block,
                                                                                       const RefChain &instance) const {
    const Types types{typeOf(*block.getPort(input(block))->peekWire(), instance),
                      typeOf(*block.getWire(A_PRIM_WIRE_OUT), instance)};
    return types.in.valid() && types.out.valid() ? std::optional(types) : std::nullopt;
}

/// What the constant comes to in its own type, which must be that of a shift.
std::optional<int> ElideConstShiftsPass::Plans::placesOf(const Block &constant, const Instances &instances) const {
    const NumberValueRef number = numberVR(constant.getParam(A_CONST_VALUE));
    std::optional<int> places;
    for (const RefChain &instance : instances) {
        const NumTypeSpec type = typeOf(*constant.getWire(A_PRIM_WIRE_OUT), instance);
        if (!type.valid() || type.isSigned() || type.fracBits() != 0 || type.isComplex() || type.isVector()) {
            return std::nullopt;
        }
        const mpz_class shift = internal::saturated(internal::stepsOf(*number, 0), type);
        const int here = shift > NumTypeSpec::kMaxWidth ? -1 : static_cast<int>(shift.get_si());
        if (here < 0 || places.value_or(here) != here) {
            return std::nullopt;
        }
        places = here;
    }
    return places;
}

std::optional<ElideConstShiftsPass::Plans::Plan>
ElideConstShiftsPass::Plans::planBarrel(Block &barrel, const Block &constant, const Instances &instances) const {
    const std::optional<int> places = placesOf(constant, instances);
    if (!places) {
        return std::nullopt;
    }
    const bool isRight = barrel.type() == A_BARREL_RIGHT_BLOCK.get_ptr();
    // A type that is told may be all that a loop has its types from: the cast tells it, too.
    bool needsCast = NumTypeSpec(barrel.getParam(A_BARREL_OUTPUT_TYPE), barrel.getContext()).valid();
    bool agree = true;
    NumTypeSpec common;
    for (const RefChain &instance : instances) {
        const std::optional<Types> types = typesAt(barrel, instance);
        if (!types) {
            return std::nullopt;
        }
        const auto &[in, out] = *types;
        const NumTypeSpec raw = shifted(in, *places, isRight);
        const bool isExact = isRight || droppedBits(in, *places) == 0 || out.fracBits() <= raw.fracBits();
        if (!raw.valid() || !isExact || internal::likeScalar(raw, internal::scalarOf(out)) != out) {
            return std::nullopt;
        }
        needsCast = needsCast || raw != out;
        agree = agree && (!common.valid() || common == out);
        common = out;
    }
    if (needsCast && !agree) {
        return std::nullopt;
    }
    return Plan{&barrel, *places, needsCast ? common : NumTypeSpec()};
}

std::optional<ElideConstShiftsPass::Plans::Plan>
ElideConstShiftsPass::Plans::planRawShift(Block &block, int places, const Instances &instances) const {
    std::optional<Types> common;
    for (const RefChain &instance : instances) {
        const std::optional<Types> types = typesAt(block, instance);
        const bool agrees = types && (!common || (common->in == types->in && common->out == types->out));
        if (!agrees || !(shifted(types->in, places, false) == types->out) ||
            droppedBits(types->in, places) >= types->in.fixedBits()) {
            return std::nullopt;
        }
        common = types;
    }
    // The offset of the lowest bit that is left.
    return Plan{&block, static_cast<int>(droppedBits(common->in, places)), common->out};
}

std::optional<ElideConstShiftsPass::Plans::Plan>
ElideConstShiftsPass::Plans::planFor(Block &block, const Instances &instances) const {
    if (const Block *constant = isBarrel(block) ? constantShift(block) : nullptr) {
        return planBarrel(block, *constant, instances);
    }
    return planRawShift(block, *rawPlaces(block), instances);
}

void ElideConstShiftsPass::Plans::add(Model &model) {
    Instances instances;
    for (Block &block : model) {
        const bool isRaw = block.type() == A_RAW_SHIFT_BLOCK.get_ptr();
        const bool isShift = isRaw ? rawPlaces(block).has_value() : isBarrel(block) && constantShift(block) != nullptr;
        if (!isShift || onlyOutput(block) == nullptr) {
            continue;
        }
        if (instances.empty()) {
            instances = mDistinct.of(model);
        }
        if (std::optional<Plan> plan = planFor(block, instances)) {
            mHeld.hold(block);
            mOf[&model].push_back(std::move(*plan));
        }
    }
}

void ElideConstShiftsPass::Plans::replaceBarrel(const Plan &plan) {
    const BlockBuilder builder(*plan.block);
    const MadeBlock made = builder.make(A_RAW_SHIFT_BLOCK, "shift");
    made.set(A_RAW_SHIFT_VALUE, plan.places).in(0, builder.input(0));
    // To the left, the mode that holds if none is told: what is marked as a shift to the left is another's drawing.
    if (plan.block->type() == A_BARREL_RIGHT_BLOCK.get_ptr()) {
        made.set(A_RAW_SHIFT_MODE, A_RAW_SHIFT_MODE_SPECIAL_RIGHT);
    }
    builder.replaceOutput(A_PRIM_WIRE_OUT, made, NumTypeSpec(), plan.type);
    builder.done();
}

void ElideConstShiftsPass::Plans::replaceRawShift(const Plan &plan) {
    const BlockBuilder builder(*plan.block);
    const MadeBlock made = builder.make(A_BIT_SELECT_BLOCK, "sel");
    made.set(A_BIT_SELECT_BIT_OFFSET, plan.places).type(A_BIT_SELECT_OUTPUT_TYPE, plan.type);
    made.in(0, builder.input(0));
    builder.replaceOutput(A_PRIM_WIRE_OUT, made);
    builder.done();
}

void ElideConstShiftsPass::Plans::carryOut(Model &model) {
    const auto found = mOf.find(&model);
    if (found == mOf.end()) {
        return;
    }
    internal::KeptPoints points(mContext, model, &mHeld);
    for (const Plan &plan : found->second) {
        const auto replace = isBarrel(*plan.block) ? &Plans::replaceBarrel : &Plans::replaceRawShift;
        points.around(*plan.block, [&] { replace(plan); });
    }
    mOf.erase(found);
}

ElideConstShiftsPass::ElideConstShiftsPass() = default;

ElideConstShiftsPass::~ElideConstShiftsPass() = default;

void ElideConstShiftsPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

void ElideConstShiftsPass::before(PassContext &context) {
    mPlans = std::make_unique<Plans>(context);
    for (Model &model : context.getDesign()) {
        mPlans->add(model);
    }
}

void ElideConstShiftsPass::apply(ModelPassContext &context) { mPlans->carryOut(context.getModel()); }

void ElideConstShiftsPass::after(PassContext &) {
    mPlans->settle();
    mPlans.reset();
}

} // namespace orvo
