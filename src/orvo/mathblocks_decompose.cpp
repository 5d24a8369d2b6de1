// Decompositions of blocks on floats, and of scaling by a power of two.
#include "orvo/decomposehandlers.h"

#include <orvo/logging.h>
#include <orvo/wire.h>

#include <gmpxx.h>

namespace orvo::internal {

namespace {

/// The bits of a float in three fields, each compared with the patterns that say something.
///     zero = exponent == 0 & mantissa == 0,  inf = exponent == ones & mantissa == 0,
///     nan = exponent == ones & !(mantissa == 0)
class FloatClassifierDecomposeHandler final : public RealDecomposeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override {
        Context *context = cache.getBlock().getContext();
        const NumTypeSpec type(cache.getTypePort(NumberValue::get(0, context)), context);
        return hasRealNumbers(cache) && type.isFloat() && type.significandWidth() >= 1 && type.exponentWidth() >= 1;
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const NumTypeSpec type = BlockTypes(block, query, refChain).port(0);
        const auto field = [&](const char *word, int offset, int width) {
            const MadeBlock made = builder.make(A_BIT_SELECT_BLOCK, word);
            made.set(A_BIT_SELECT_BIT_OFFSET, offset)
                .type(A_BIT_SELECT_OUTPUT_TYPE, likeScalar(type, NumTypeSpec::ufixed(width, 0)))
                .in(0, builder.input(0));
            return made;
        };
        const auto is = [&](const char *word, const char *pattern, Wire &bits, int width, bool allOnes) {
            const mpz_class value =
                allOnes ? mpz_class((mpz_class(1) << static_cast<unsigned>(width)) - 1) : mpz_class(0);
            const MadeBlock wanted = builder.make(A_CONST_BLOCK, pattern);
            wanted.type(A_CONST_TYPE, NumTypeSpec::ufixed(width, 0));
            wanted.set(A_CONST_VALUE, ValueRef(NumberValue::get(value.get_mpz_t(), block.getContext())));
            return MadeBlock(builder.make(A_CMP_EQ_BLOCK, word).in(0, bits).in(1, wanted));
        };
        const auto both = [&](const char *word, Wire &a, Wire &b) {
            return MadeBlock(builder.make(A_AND_BLOCK, word).in(0, a).in(1, b));
        };
        const int significand = type.significandWidth();
        const int exponent = type.exponentWidth();
        const MadeBlock sign = field("sign", significand + exponent, 1);
        const MadeBlock power = field("exponent", significand, exponent);
        const MadeBlock rest = field("mantissa", 0, significand);
        const MadeBlock isLeast = is("isLeast", "zeros", power, exponent, false);
        const MadeBlock isMost = is("isMost", "ones", power, exponent, true);
        const MadeBlock isWhole = is("isWhole", "none", rest, significand, false);
        const MadeBlock isBroken = builder.make(A_NOT_BLOCK, "isBroken").in(0, isWhole);
        builder.replaceOutput(A_FPCLASS_WIRE_SIGN, sign);
        builder.replaceOutput(A_FPCLASS_WIRE_ZERO, both("zero", isLeast, isWhole));
        builder.replaceOutput(A_FPCLASS_WIRE_INF, both("inf", isMost, isWhole));
        builder.replaceOutput(A_FPCLASS_WIRE_NAN, both("nan", isMost, isBroken));
        builder.done();
    }
};

/// With half the range h of an exponent of so many bits, n + h has no sign, and differs from n only in the top bit:
///     out = (in0 / 2^h) << join(low bits of in1, !sign of in1)
/// An exponent without a sign shifts as it is.
class MultPow2DecomposeHandler final : public RealDecomposeHandler {
  public:
    /// Of floats, the exponent is added to theirs. An exponent of more bits would make the shifter wider than any.
    bool applicable(GlobalTypeCache &cache) const override {
        Context *context = cache.getBlock().getContext();
        const NumTypeSpec exponent(cache.getTypePort(NumberValue::get(1, context)), context);
        return hasRealNumbers(cache) && isFixedPort(cache, 0) && exponent.isFixed() && exponent.fracBits() == 0 &&
               exponent.fixedBits() <= kMostExponentBits && hasShapeOfItsInputs(cache);
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const BlockTypes types(block, query, refChain);
        const NumTypeSpec out = types.wire(A_PRIM_WIRE_OUT);
        const NumTypeSpec exponent = types.port(1);
        Wire *data = &builder.input(0);
        Wire *places = &builder.input(1);
        if (exponent.isSigned()) {
            const int low = exponent.fixedBits() - 1;
            const MadeBlock lowered = builder.make(A_RAW_SHIFT_BLOCK, "lowered");
            lowered.set(A_RAW_SHIFT_MODE, A_RAW_SHIFT_MODE_SPECIAL_RIGHT).set(A_RAW_SHIFT_VALUE, 1 << low).in(0, *data);
            data = &static_cast<Wire &>(lowered);
            places = &raised(builder, *places, exponent, low);
        }
        const MadeBlock shifter = builder.make(A_BARREL_LEFT_BLOCK, "shift");
        shifter.type(A_BARREL_OUTPUT_TYPE, scalarOf(out)).in(0, *data).in(A_BARREL_PORT_SHIFT, *places);
        NumTypeSpec type = likeScalar(types.port(0), out);
        type.mergeDecors(exponent);
        builder.replaceOutput(A_PRIM_WIRE_OUT, shifter, type, out);
        builder.done();
    }

  private:
    static constexpr int kMostExponentBits = 13;

    /// The shifter has the lanes of both inputs, the block those of its data.
    static bool hasShapeOfItsInputs(GlobalTypeCache &cache) {
        Context *context = cache.getBlock().getContext();
        const NumTypeSpec out(cache.getTypeWire(A_PRIM_WIRE_OUT), context);
        NumTypeSpec type = likeScalar(NumTypeSpec(cache.getTypePort(NumberValue::get(0, context)), context), out);
        type.mergeDecors(NumTypeSpec(cache.getTypePort(NumberValue::get(1, context)), context));
        return type.valid() && type == out;
    }

    /// The exponent plus half its range.
    static Wire &raised(const BlockBuilder &builder, Wire &places, const NumTypeSpec &exponent, int low) {
        const MadeBlock sign = builder.make(A_BIT_SELECT_BLOCK, "sign");
        sign.set(A_BIT_SELECT_BIT_OFFSET, low)
            .type(A_BIT_SELECT_OUTPUT_TYPE, likeScalar(exponent, NumTypeSpec::boolean()))
            .in(0, places);
        const MadeBlock top = builder.make(A_NOT_BLOCK, "top").in(0, sign);
        if (low == 0) {
            return top;
        }
        Wire &rest =
            builder.converted("low", places, exponent, likeScalar(exponent, NumTypeSpec::ufixed(low, 0)), Keep::Bits);
        return builder.make(A_BIT_JOIN_BLOCK, "places").in(0, rest).in(1, top);
    }
};

const DecomposeRow kRows[] = {
    {&A_FLOAT_CLASS_BLOCK, decomposeHandler<FloatClassifierDecomposeHandler>, "comparisons of exponent and mantissa"},
    {&A_MULT_POW2_BLOCK, decomposeHandler<MultPow2DecomposeHandler>,
     "fixed point: a shift to the left by the exponent"},
};

} // namespace

std::span<const DecomposeRow> mathDecompositions() { return kRows; }

} // namespace orvo::internal
