// Decompositions of the arithmetic and bit-level blocks. Where a comment draws one, in0 and in1 are the inputs.
#include "orvo/decomposehandlers.h"

#include <orvo/context.h>
#include <orvo/logging.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo::internal {

namespace {

/// An operand: a signal and its type.
struct Signal {
    Wire *wire;
    NumTypeSpec type;
};

/// How a block computes on floats, which what takes its place takes over.
const MadeBlock &likeFloats(const MadeBlock &made, const Block &block, const NumTypeSpec &type) {
    if (type.isFloat()) {
        made.copy(block, {&A_FLOAT_ROUNDING, &A_FLOAT_ROUNDING_MODE, &A_FLOAT_SUBNORMALS, &A_SYNTH_FORCE_SOFT_FP});
    }
    return made;
}

/// The numbered inputs in order. Floats are in the format of the output: choosing among them moves bits.
std::vector<Signal> operands(const BlockBuilder &builder, const BlockTypes &types, const NumTypeSpec &out) {
    std::vector<Signal> all;
    for (const Port &port : builder.block().ports()) {
        const NumberValueRef number = numberVR(port.getName());
        if (!number) {
            break; // Numbers come first.
        }
        Signal signal{port.getWire(), types.port(port.getName())};
        if (out.isFloat()) {
            const NumTypeSpec wanted = likeScalar(signal.type, out);
            signal.wire =
                &builder.converted("format", *signal.wire, signal.type, wanted, Keep::Value, {number->toInt()});
            signal.type = wanted;
        }
        all.push_back(signal);
    }
    return all;
}

/// A bit of each lane of a signal.
NumTypeSpec bitOf(NumTypeSpec type) {
    type.setToFixed(false, 1, 0);
    return type;
}

MadeBlock bitAt(const BlockBuilder &builder, const char *word, std::initializer_list<int> numbers, const Signal &of,
                int at) {
    const MadeBlock made = builder.make(A_BIT_SELECT_BLOCK, word, numbers);
    made.set(A_BIT_SELECT_BIT_OFFSET, at).type(A_BIT_SELECT_OUTPUT_TYPE, bitOf(of.type)).in(0, *of.wire);
    return made;
}

/// Where the sign is: of a library float, two flags stand above it.
int signPlace(const NumTypeSpec &type) {
    return type.isFloat() ? type.significandWidth() + type.exponentWidth() : type.fixedBits() - 1;
}

/// One of two signals by a bit.
Signal choose(const BlockBuilder &builder, std::initializer_list<int> numbers, Wire &select, const NumTypeSpec &bit,
              const Signal &whenFalse, const Signal &whenTrue) {
    const MadeBlock mux = builder.make(A_MUX_BLOCK, "mux", numbers);
    mux.in(A_MUX_PORT_SELECT, select).in(0, *whenFalse.wire).in(1, *whenTrue.wire);
    NumTypeSpec type = NumTypeSpec::typeOp(whenFalse.type, whenTrue.type, TYPE_OP_UNION);
    type.mergeVectors(bit);
    return {&static_cast<Wire &>(mux), type};
}

/// One block takes each further input on to what the inputs before it gave.
template <class Step> void foldInputs(Block &block, const BlockTypes &types, Step step) {
    const BlockBuilder builder(block);
    const NumTypeSpec out = types.wire(A_PRIM_WIRE_OUT);
    const std::vector<Signal> inputs = operands(builder, types, out);
    Signal best = inputs.front();
    for (std::size_t i = 1; i < inputs.size(); ++i) {
        best = step(builder, best, inputs[i], static_cast<int>(i));
    }
    builder.replaceOutput(A_PRIM_WIRE_OUT, *best.wire, best.type, out);
    builder.done();
}

/// A block of numbered inputs that are all fixed point or all floats.
class NumberedDecomposeHandler : public RealDecomposeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override {
        Context *context = cache.getBlock().getContext();
        return cache.getBlock().getPort(NumberValue::get(0, context)) != nullptr &&
               cache.getBlock().getWire(A_PRIM_WIRE_OUT) != nullptr && hasRealNumbers(cache);
    }
};

/// Unsigned: in0, brought to the output's type
/// Signed: sign = in0[top], neg = -in0, out = sign ? neg : in0
class AbsDecomposeHandler final : public NumberedDecomposeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override {
        return NumberedDecomposeHandler::applicable(cache) && isFixedPort(cache, 0);
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const BlockTypes types(block, query, refChain);
        const NumTypeSpec out = types.wire(A_PRIM_WIRE_OUT);
        Signal value{&builder.input(0), types.port(0)};
        if (value.type.isSigned()) {
            const MadeBlock sign = bitAt(builder, "signBit", {}, value, signPlace(value.type));
            const MadeBlock negated = builder.make(A_NEG_BLOCK, "neg").in(0, *value.wire);
            const Signal neg{&static_cast<Wire &>(negated), NumTypeSpec::typeOp(value.type, value.type, TYPE_OP_ADD)};
            value = choose(builder, {}, sign, bitOf(value.type), value, neg);
        }
        builder.replaceOutput(A_PRIM_WIRE_OUT, *value.wire, value.type, out);
        builder.done();
    }
};

/// min: in1 >= in0 ? in0 : in1, so that the first wins a tie
/// max: in0 >= in1 ? in0 : in1
template <bool larger> class ExtremeDecomposeHandler final : public NumberedDecomposeHandler {
  public:
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockTypes types(block, query, refChain);
        foldInputs(block, types, [&](const BlockBuilder &builder, const Signal &best, const Signal &next, int number) {
            const MadeBlock wins = makeOf(builder, number);
            likeFloats(wins, block, best.type).in(0, larger ? *best.wire : *next.wire);
            wins.in(1, larger ? *next.wire : *best.wire);
            NumTypeSpec bit = bitOf(best.type);
            bit.mergeVectors(next.type);
            return number == 1 ? choose(builder, {}, wins, bit, next, best)
                               : choose(builder, {number}, wins, bit, next, best);
        });
    }

  private:
    /// Of two inputs, the usual case, no number is needed.
    static MadeBlock makeOf(const BlockBuilder &builder, int number) {
        return number == 1 ? builder.make(A_CMP_GE_BLOCK, "signBit")
                           : builder.make(A_CMP_GE_BLOCK, "signBit", {number});
    }
};

/// The next input is taken if its magnitude m1 is beyond m0, that of the best so far, or if both are equal and the next
/// one (min) or the best so far (max) is negative.
///     magmin: (m1 < m0) | (m1 == m0 & in1[top]) ? in1 : in0
///     magmax: (m0 < m1) | (m0 == m1 & in0[top]) ? in1 : in0
template <bool larger> class MagnitudeDecomposeHandler final : public NumberedDecomposeHandler {
  public:
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockTypes types(block, query, refChain);
        foldInputs(block, types, [&](const BlockBuilder &builder, const Signal &best, const Signal &next, int number) {
            const auto magnitude = [&](const Signal &of, int side) -> Wire & {
                const MadeBlock made = builder.make(A_ABS_BLOCK, "abs", {number, side});
                return likeFloats(made, block, of.type).in(0, *of.wire);
            };
            Wire &m0 = magnitude(best, 0);
            Wire &m1 = magnitude(next, 1);
            const MadeBlock beyond = builder.make(A_CMP_LT_BLOCK, "beyond", {number});
            likeFloats(beyond, block, best.type).in(0, larger ? m0 : m1).in(1, larger ? m1 : m0);
            NumTypeSpec bit = bitOf(best.type);
            bit.mergeVectors(next.type);
            const Signal &told = larger ? best : next;
            Wire *takes = &static_cast<Wire &>(beyond);
            // What has no sign is never negative.
            if (told.type.isSigned()) {
                const MadeBlock equal = builder.make(A_CMP_EQ_BLOCK, "equal", {number});
                likeFloats(equal, block, best.type).in(0, m0).in(1, m1);
                const MadeBlock sign = bitAt(builder, "signBit", {number}, told, signPlace(told.type));
                const MadeBlock tie = builder.make(A_AND_BLOCK, "tie", {number}).in(0, equal).in(1, sign);
                takes = &static_cast<Wire &>(builder.make(A_OR_BLOCK, "takes", {number}).in(0, beyond).in(1, tie));
            }
            return choose(builder, {number}, *takes, bit, best, next);
        });
    }
};

bool hasTwoInputs(const Block &block) {
    Context *context = block.getContext();
    return block.getPortCount() == 2 && block.getPort(NumberValue::get(0, context)) != nullptr &&
           block.getPort(NumberValue::get(1, context)) != nullptr;
}

NumTypeSpec signedSum(const NumTypeSpec &a, const NumTypeSpec &b) {
    NumTypeSpec type = NumTypeSpec::typeOp(a, b, a.isFloat() ? TYPE_OP_UNION : TYPE_OP_ADD);
    type.setSigned(true);
    return type;
}

/// less = in0 < in1, sub = in0 - in1, out = less ? 0 : sub
class DimDecomposeHandler final : public NumberedDecomposeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override {
        return NumberedDecomposeHandler::applicable(cache) && hasTwoInputs(cache.getBlock());
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const BlockTypes types(block, query, refChain);
        const NumTypeSpec out = types.wire(A_PRIM_WIRE_OUT);
        const std::vector<Signal> in = operands(builder, types, out);
        const MadeBlock less = builder.make(A_CMP_LT_BLOCK, "less");
        likeFloats(less, block, out).in(0, *in[0].wire).in(1, *in[1].wire);
        const NumTypeSpec difference = signedSum(in[0].type, in[1].type);
        const MadeBlock sub = builder.make(A_SUB_BLOCK, "sub");
        likeFloats(sub, block, out).set(A_SYNTH_FORCE_SOFT_FP, A_FALSE).in(0, *in[0].wire).in(1, *in[1].wire);
        const NumTypeSpec scalar = scalarOf(difference);
        const MadeBlock zero = builder.constant("zero", scalar, 0);
        const Signal result = choose(builder, {}, less, bitOf(difference), {&static_cast<Wire &>(sub), difference},
                                     {&static_cast<Wire &>(zero), scalar});
        builder.replaceOutput(A_PRIM_WIRE_OUT, *result.wire, result.type, out);
        builder.done();
    }
};

/// out = max(min(in0, in1), in2)
class SaturateDecomposeHandler final : public NumberedDecomposeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override {
        return NumberedDecomposeHandler::applicable(cache) && cache.getBlock().getPortCount() == 3 &&
               cache.lastNumberedPortName()->toInt() == 2;
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const BlockTypes types(block, query, refChain);
        const NumTypeSpec out = types.wire(A_PRIM_WIRE_OUT);
        NumTypeSpec type = NumTypeSpec::typeOp(types.port(0), types.port(1), TYPE_OP_UNION);
        type = NumTypeSpec::typeOp(type, types.port(2), TYPE_OP_UNION);
        const MadeBlock least = builder.make(A_MIN_BLOCK, "min");
        likeFloats(least, block, out).in(0, builder.input(0)).in(1, builder.input(1));
        const MadeBlock most = builder.make(A_MAX_BLOCK, "max");
        likeFloats(most, block, out).in(0, least).in(1, builder.input(2));
        builder.replaceOutput(A_PRIM_WIRE_OUT, most, type, out);
        builder.done();
    }
};

/// Each chosen bit by itself, joined if there are several, the first lowest.
class ChooseBitsDecomposeHandler final : public RealDecomposeHandler {
  public:
    /// Unlike a selection of bits, the block knows no places from the top, and none outside.
    bool applicable(GlobalTypeCache &cache) const override {
        const Block &block = cache.getBlock();
        const TupleValueRef offsets = tupleVR(block.getParam(A_CHOOSE_BITS_BIT_OFFSETS));
        if (!hasRealNumbers(cache) || block.getPortCount() != 1 || !offsets || offsets->size() == 0) {
            return false;
        }
        const NumTypeSpec type(cache.getTypePort(block.port_begin()->getName()), block.getContext());
        const int width = type.isFloat() ? type.floatBits() : type.fixedBits();
        return std::all_of(offsets->begin(), offsets->end(), [width](const ValueRef &offset) {
            const NumberValueRef number = numberVR(offset);
            return number && number->isInt() && number->toInt() >= 0 && number->toInt() < width;
        });
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const BlockTypes types(block, query, refChain);
        ORVO_ASSERT(block.getPortCount() == 1, "bits are chosen from one signal");
        const Signal value{block.port_begin()->getWire(), types.port(block.port_begin()->getName())};
        const TupleValueRef offsets = tupleVR(block.getParam(A_CHOOSE_BITS_BIT_OFFSETS));
        std::vector<Wire *> bits;
        for (const ValueRef &offset : *offsets) {
            const int number = static_cast<int>(bits.size());
            bits.push_back(&static_cast<Wire &>(bitAt(builder, "bit", {number}, value, numberVR(offset)->toInt())));
        }
        Wire *chosen = bits.front();
        if (bits.size() > 1) {
            const MadeBlock join = builder.make(A_BIT_JOIN_BLOCK, "join");
            for (std::size_t i = 0; i < bits.size(); ++i) {
                join.in(static_cast<int>(i), *bits[i]);
            }
            chosen = &static_cast<Wire &>(join);
        }
        NumTypeSpec type = value.type;
        type.setToFixed(false, static_cast<int>(bits.size()), 0);
        builder.replaceOutput(A_PRIM_WIRE_OUT, *chosen, type, types.wire(A_PRIM_WIRE_OUT), Keep::Bits);
        builder.done();
    }
};

/// out = in0 + in1, aux = in0 - in1
class AddSubFusedDecomposeHandler final : public DecomposeCompositeHandler {
  public:
    /// Sums and differences of complex numbers are as good as those of real ones.
    bool applicable(GlobalTypeCache &cache) const override {
        const Block &block = cache.getBlock();
        const auto isNumber = [&](const PureValueRef &type) { return NumTypeSpec(type, block.getContext()).valid(); };
        return hasTwoInputs(block) && std::all_of(block.begin(), block.end(), [&](const Wire &wire) {
                   return isNumber(cache.getTypeWire(wire.getName()));
               });
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const BlockTypes types(block, query, refChain);
        const NumTypeSpec a = types.port(0);
        const NumTypeSpec b = types.port(1);
        const auto replace = [&](const StaticString &wire, const StaticString &type, const char *word,
                                 const NumTypeSpec &has) {
            if (block.getWire(wire) != nullptr) {
                const MadeBlock made = builder.make(type, word);
                likeFloats(made, block, a).copy(block, {&A_SYNTH_FORCE_SOFT_FP, &A_ADD_FP_ARCH});
                builder.replaceOutput(wire, made.in(0, builder.input(0)).in(1, builder.input(1)), has,
                                      types.wire(wire));
            }
        };
        replace(A_PRIM_WIRE_OUT, A_ADD_BLOCK, "add",
                NumTypeSpec::typeOp(a, b, a.isFloat() ? TYPE_OP_UNION : TYPE_OP_ADD));
        replace(A_PRIM_WIRE_AUX, A_SUB_BLOCK, "sub", signedSum(a, b));
        builder.done();
    }
};

const DecomposeRow kRows[] = {
    {&A_ABS_BLOCK, decomposeHandler<AbsDecomposeHandler>, "fixed point: the input or minus it, by the sign"},
    {&A_MIN_BLOCK, decomposeHandler<ExtremeDecomposeHandler<false>>, "a comparison and a multiplexer an input"},
    {&A_MAX_BLOCK, decomposeHandler<ExtremeDecomposeHandler<true>>, "a comparison and a multiplexer an input"},
    {&A_MAGMIN_BLOCK, decomposeHandler<MagnitudeDecomposeHandler<false>>, "comparisons of magnitudes, ties by signs"},
    {&A_MAGMAX_BLOCK, decomposeHandler<MagnitudeDecomposeHandler<true>>, "comparisons of magnitudes, ties by signs"},
    {&A_DIM_BLOCK, decomposeHandler<DimDecomposeHandler>, "the difference or zero, by a comparison"},
    {&A_SATURATE_BLOCK, decomposeHandler<SaturateDecomposeHandler>, "a minimum and a maximum"},
    {&A_CHOOSE_BITS_BLOCK, decomposeHandler<ChooseBitsDecomposeHandler>, "single bits, joined"},
    {&A_ADDSUBFUSED_BLOCK, decomposeHandler<AddSubFusedDecomposeHandler>, "a sum and a difference"},
};

} // namespace

std::span<const DecomposeRow> primDecompositions() { return kRows; }

} // namespace orvo::internal
