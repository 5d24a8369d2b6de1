// Known zeros at the ends of a multiplier's operands. Narrowed operands keep their binary points, and so their values:
// the product stays the same number, of which fewer bits have to be computed.
#include "orvo/propagatehandlers.h"

#include "orvo/typerules.h"

#include <orvo/context.h>
#include <orvo/wire.h>

#include <gmpxx.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace orvo {

namespace internal {

namespace {

constexpr int kOperands = PropagateConstantsHandler::kOperands;
using Operands = std::array<NumTypeSpec, kOperands>;

enum class End { Low, High };

/// A real number of fixed point of a bit or more.
bool isPlain(const NumTypeSpec &type) {
    return type.isFixed() && type.isReal() && !type.isVector() && type.fixedBits() >= 1;
}

mpz_class powerOfTwo(int exponent) { return mpz_class(1) << static_cast<unsigned>(std::max(exponent, 0)); }

/// The low bits of a number as they stand in a word of that width.
mpz_class patternOf(const mpz_class &number, int width) {
    mpz_class pattern;
    mpz_fdiv_r_2exp(pattern.get_mpz_t(), number.get_mpz_t(), static_cast<mp_bitcnt_t>(width));
    return pattern;
}

/// The integer that the bits of a word stand for.
mpz_class integerOf(const mpz_class &pattern, const NumTypeSpec &type) {
    const bool isNegative =
        type.isSigned() && mpz_tstbit(pattern.get_mpz_t(), static_cast<mp_bitcnt_t>(type.fixedBits() - 1)) != 0;
    return isNegative ? mpz_class(pattern - powerOfTwo(type.fixedBits())) : pattern;
}

/// The value of an integer in a type of so many fraction bits.
NumberValueRef numberFrom(const mpz_class &integer, int fracBits, Context *context) {
    const mpz_class whole = integer * powerOfTwo(-fracBits);
    return NumberValue::fromMPZ(whole.get_mpz_t(), static_cast<unsigned>(std::max(fracBits, 0)), context);
}

struct Pattern {
    mpz_class bits;
    int width;
};

bool isMainOutputOf(const Wire &wire, const StaticString &type) {
    return wire.getBlock().type() == type.get_ptr() && wire.getName() == A_PRIM_WIRE_OUT;
}

/// The bits of a constant; nothing for a wire of another block, and for a constant whose bits cannot be told.
std::optional<Pattern> constantBits(const Wire &wire) {
    if (!isMainOutputOf(wire, A_CONST_BLOCK)) {
        return std::nullopt;
    }
    const Block &block = wire.getBlock();
    const NumTypeSpec type = typeOfConstant(block);
    const NumberValueRef value = numberVR(block.getParam(A_CONST_VALUE));
    if (!isPlain(type) || !value || value->isSpecial()) {
        return std::nullopt;
    }
    mpz_class integer;
    value->toScaledMPZ(integer.get_mpz_t(), type.fracBits());
    const mpz_class least = type.isSigned() ? mpz_class(-powerOfTwo(type.fixedBits() - 1)) : mpz_class(0);
    const mpz_class most = powerOfTwo(type.fixedBits() - (type.isSigned() ? 1 : 0)) - 1;
    integer = std::clamp(integer, least, most);
    return Pattern{patternOf(integer, type.fixedBits()), type.fixedBits()};
}

/// What a signal of so many bits is joined from, part by part from one end on. The parts of a join are known by what
/// drives them, whatever instance they are in.
class PartWalk {
  public:
    PartWalk(const Wire &wire, int width, End from)
        : mFrom(from), mPending{&wire}, mRoom(2 * std::int64_t{width} + 2) {}

    /// The next part that is no join; null behind the last one. Joins of one part each, or in a loop, could go on for
    /// ever without a bit more: such a one is a part itself.
    const Wire *next() {
        while (!mPending.empty()) {
            const Wire *wire = mPending.back();
            mPending.pop_back();
            if (!isMainOutputOf(*wire, A_BIT_JOIN_BLOCK) || --mRoom < 0) {
                return wire;
            }
            const std::size_t first = mPending.size();
            forNumberedPorts(wire->getBlock(), [&](int, const Port &port) { mPending.push_back(port.peekWire()); });
            if (mFrom == End::Low) {
                std::reverse(mPending.begin() + static_cast<std::ptrdiff_t>(first), mPending.end());
            }
        }
        return nullptr;
    }

  private:
    const End mFrom;
    std::vector<const Wire *> mPending;
    std::int64_t mRoom;
};

/// Bits at an end of a signal that are zero whatever the inputs are.
int zerosAt(End end, const Wire &wire, int width) {
    PartWalk parts(wire, width, end);
    std::int64_t zeros = 0;
    while (const Wire *part = parts.next()) {
        const std::optional<Pattern> constant = constantBits(*part);
        if (!constant) {
            break;
        }
        if (constant->bits != 0) {
            const mpz_srcptr bits = constant->bits.get_mpz_t();
            zeros += end == End::Low ? static_cast<std::int64_t>(mpz_scan1(bits, 0))
                                     : constant->width - static_cast<std::int64_t>(mpz_sizeinbase(bits, 2));
            break;
        }
        zeros += constant->width;
    }
    return static_cast<int>(std::min<std::int64_t>(zeros, width));
}

/// The integer that a signal always is; nothing if any of its bits is not known.
std::optional<mpz_class> constantOf(const Wire &wire, const NumTypeSpec &type) {
    PartWalk parts(wire, type.fixedBits(), End::Low);
    mpz_class all;
    std::int64_t width = 0;
    while (const Wire *part = parts.next()) {
        const std::optional<Pattern> constant = constantBits(*part);
        if (!constant || width + constant->width > type.fixedBits()) {
            return std::nullopt;
        }
        all |= constant->bits << static_cast<unsigned>(width);
        width += constant->width;
    }
    return width == type.fixedBits() ? std::optional(integerOf(all, type)) : std::nullopt;
}

/// Without its known bits. A top bit that is zero leaves a number that is not negative.
NumTypeSpec narrowed(const NumTypeSpec &type, int high, int low) {
    return NumTypeSpec::fixed(type.isSigned() && high == 0, type.intBits() - high, type.fracBits() - low);
}

/// How the product that has to be computed lies in the one that is read: zeros below it, then those of its bits that
/// are read, then what its sign says.
struct Layout {
    int below;
    int above;
    NumTypeSpec middle;
};

Layout layoutOf(const NumTypeSpec &product, const NumTypeSpec &wanted) {
    const int width = wanted.fixedBits();
    const int below = std::clamp(wanted.fracBits() - product.fracBits(), 0, width);
    const int above = std::clamp(wanted.intBits() - product.intBits(), 0, width - below);
    const bool isSigned = above > 0 ? product.isSigned() : wanted.isSigned();
    return {below, above, NumTypeSpec::fixed(isSigned, wanted.intBits() - above, wanted.fracBits() - below)};
}

bool isAllZero(const NumTypeSpec &type, int low) { return low >= type.fixedBits(); }

/// The product as a constant, as integer of the type that is read; nothing if it is none.
std::optional<mpz_class> constantProduct(const Block &block, const Operands &types, const NumTypeSpec &wanted,
                                         const int *low) {
    if (isAllZero(types[0], low[0]) || isAllZero(types[1], low[1])) {
        return mpz_class(0);
    }
    const std::int64_t lowest = std::int64_t{low[0]} + low[1] - types[0].fracBits() - types[1].fracBits();
    // A given type may read none but the zeros.
    if (lowest >= wanted.intBits()) {
        return mpz_class(0);
    }
    mpz_class product = 1;
    int fracBits = 0;
    for (int i = 0; i < kOperands; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const Port *port = block.getPort(NumberValue::get(i, block.getContext()));
        const std::optional<mpz_class> value = constantOf(*port->peekWire(), types[at]);
        if (!value) {
            return std::nullopt;
        }
        product *= *value;
        fracBits += types[at].fracBits();
    }
    const int shift = wanted.fracBits() - fracBits;
    if (shift >= 0) {
        product *= powerOfTwo(shift);
    } else {
        mpz_fdiv_q_2exp(product.get_mpz_t(), product.get_mpz_t(), static_cast<mp_bitcnt_t>(-shift));
    }
    return integerOf(patternOf(product, wanted.fixedBits()), wanted);
}

NumTypeSpec narrowProduct(const Operands &types, const int *high, const int *low) {
    return NumTypeSpec::typeOp(narrowed(types[0], high[0], low[0]), narrowed(types[1], high[1], low[1]), TYPE_OP_MUL);
}

/// Whether the ports are the two operands, and nothing else.
bool hasTwoOperands(const Block &block) {
    Context *context = block.getContext();
    int numbered = 0;
    forNumberedPorts(block, [&](int, const Port &) { ++numbered; });
    return numbered == kOperands && block.getPort(NumberValue::get(0, context)) != nullptr &&
           block.getPort(NumberValue::get(1, context)) != nullptr;
}

MadeBlock constant(const BlockBuilder &builder, const char *word, const NumTypeSpec &type, const mpz_class &integer) {
    const MadeBlock made = builder.makeSuffixed(A_CONST_BLOCK, word);
    made.type(A_CONST_TYPE, type);
    made.set(A_CONST_VALUE, ValueRef(numberFrom(integer, type.fracBits(), builder.block().getContext())));
    return made;
}

/// Gives the readers of the product what it was.
void extend(const BlockBuilder &builder, Wire &product, const Layout &layout, const NumTypeSpec &wanted) {
    if (layout.below == 0 && layout.above == 0) {
        return;
    }
    const bool hasSign = layout.above > 0 && layout.middle.isSigned();
    const bool hasTop = layout.above > 0 && !hasSign;
    std::optional<MadeBlock> extender;
    Wire *last = nullptr;
    if (layout.below > 0 || hasTop) {
        extender = builder.makeSuffixed(A_BIT_JOIN_BLOCK, "extender");
        last = &extender->out(A_PRIM_WIRE_OUT);
    }
    std::optional<MadeBlock> sign;
    if (hasSign) {
        sign = builder.makeSuffixed(A_BIT_SELECT_BLOCK, "signextend");
        sign->set(A_BIT_SELECT_BIT_OFFSET, 0).type(A_BIT_SELECT_OUTPUT_TYPE, wanted);
    }
    // Readers move before the new ones come.
    product.replace(sign ? sign->out(A_PRIM_WIRE_OUT) : *last);
    int part = 0;
    if (layout.below > 0) {
        extender->in(part++, constant(builder, "zero", NumTypeSpec::ufixed(0, layout.below), 0));
    }
    if (extender) {
        extender->in(part++, product);
    }
    if (hasTop) {
        // The sign of the highest part is that of the whole.
        extender->in(part, constant(builder, "multconst", NumTypeSpec::fixed(wanted.isSigned(), layout.above, 0), 0));
    }
    if (sign) {
        sign->in(0, last != nullptr ? *last : product);
    }
}

Operands operandTypes(const BlockTypes &types) { return {types.port(0), types.port(1)}; }

} // namespace

} // namespace internal

using namespace internal;

MultiplyPropagateHandler::Peel MultiplyPropagateHandler::peelable(GlobalTypeCache &cache, const PureValueRef &portKey) {
    const Block &block = cache.getBlock();
    const int width = NumTypeSpec(cache.getTypePort(portKey), block.getContext()).fixedBits();
    const Wire &wire = *block.getPort(portKey)->peekWire();
    const int low = zerosAt(End::Low, wire, width);
    const int high = zerosAt(End::High, wire, width);
    return low + high < width ? Peel{high, low} : Peel{0, width};
}

bool MultiplyPropagateHandler::applicable(GlobalTypeCache &cache, int *high, int *low) const {
    const Block &block = cache.getBlock();
    Context *context = block.getContext();
    const Wire *wire = block.getWire(A_PRIM_WIRE_OUT);
    if (wire == nullptr || wire->port_size() == 0 || !hasTwoOperands(block)) {
        return false;
    }
    const NumTypeSpec wanted(cache.getTypeWire(A_PRIM_WIRE_OUT), context);
    Operands types;
    for (int i = 0; i < kOperands; ++i) {
        types[static_cast<std::size_t>(i)] = NumTypeSpec(cache.getTypePort(NumberValue::get(i, context)), context);
    }
    if (!isPlain(wanted) || !isPlain(types[0]) || !isPlain(types[1])) {
        return false;
    }
    bool any = false;
    for (int i = 0; i < kOperands; ++i) {
        const Peel peel = peelable(cache, NumberValue::get(i, context));
        high[i] = peel.high;
        low[i] = peel.low;
        any = any || peel.high != 0 || peel.low != 0;
    }
    if (constantProduct(block, types, wanted, low)) {
        return true;
    }
    // A given type may lie beside all bits of the product.
    return any && layoutOf(narrowProduct(types, high, low), wanted).middle.fixedBits() >= 1;
}

Wire &MultiplyPropagateHandler::peelWire(const BlockBuilder &builder, Wire &wire, const NumTypeSpec &type,
                                         const NumTypeSpec &narrow) {
    const int low = type.fracBits() - narrow.fracBits();
    if (const std::optional<mpz_class> value = constantOf(wire, type)) {
        const MadeBlock made = builder.makeSuffixed(A_CONST_BLOCK, "narrowconst");
        made.type(A_CONST_TYPE, narrow);
        made.set(A_CONST_VALUE, ValueRef(numberFrom(*value, type.fracBits(), builder.block().getContext())));
        return made;
    }
    return builder.makeSuffixed(A_BIT_SELECT_BLOCK, "narrowed")
        .set(A_BIT_SELECT_BIT_OFFSET, low)
        .type(A_BIT_SELECT_OUTPUT_TYPE, narrow)
        .in(0, wire);
}

void MultiplyPropagateHandler::propagate(Block &block, const CachedTypeQuery &query, const RefChain &refChain,
                                         const int *high, const int *low) const {
    const BlockBuilder builder(block);
    const BlockTypes known(block, query, refChain);
    const NumTypeSpec wanted = known.wire(A_PRIM_WIRE_OUT);
    const Operands types = operandTypes(known);
    if (const std::optional<mpz_class> value = constantProduct(block, types, wanted, low)) {
        builder.replaceOutput(A_PRIM_WIRE_OUT, constant(builder, "multconst", wanted, *value));
        builder.done();
        return;
    }
    const NumTypeSpec product = narrowProduct(types, high, low);
    const Layout layout = layoutOf(product, wanted);
    std::array<Wire *, kOperands> read{&builder.input(0), &builder.input(1)};
    const bool isSquare = read[0] == read[1];
    extend(builder, *block.getWire(A_PRIM_WIRE_OUT), layout, wanted);
    for (int i = 0; i < kOperands; ++i) {
        const auto at = static_cast<std::size_t>(i);
        if (high[i] == 0 && low[i] == 0) {
            continue;
        }
        // A squarer stays one.
        Wire &narrow = i == 1 && isSquare
                           ? builder.input(0)
                           : peelWire(builder, *read[at], types[at], narrowed(types[at], high[i], low[i]));
        MadeBlock(block).in(i, narrow);
    }
    const bool isFull = layout.middle == product;
    block.setParam(A_MULT_TYPE, isFull ? ValueRef() : ValueRef(layout.middle.toValue(block.getContext())));
}

namespace internal {

namespace {

const PropagateConstantsHandler *multiplyHandler() {
    static const MultiplyPropagateHandler handler;
    return &handler;
}

const PropagateRow kRows[] = {
    {&A_MULT_BLOCK, multiplyHandler, "known zeros at the ends of its two operands"},
};

} // namespace

std::span<const PropagateRow> propagateRows() { return kRows; }

void registerPropagateHandlers(Context *context) {
    for (const PropagateRow &row : kRows) {
        context->getBlockClass(*row.blockType)->registerHandler<PropagateConstantsHandler>(row.handler(), false);
    }
}

} // namespace internal

} // namespace orvo
