// Tests of the types: their tuples, the widths of results, decorations, records, and the properties that all of the
// type inference rests on.
#include <orvo/types.h>

#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

#include <gmp.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace orvo {
namespace {

class Types : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) const { return PureValueRef(Value::parse(text, ctx)); }
    NumTypeSpec spec(const std::string &text) const { return {value(text), ctx}; }
    std::string written(const NumTypeSpec &type) const {
        const PureTupleValueRef tuple = type.toValue(ctx);
        return tuple ? tuple->toString() : "null";
    }

    ContextMgr guard;
    Context *ctx = guard.context();
};

using Lengths = std::vector<int>;

NumTypeSpec vectorOf(NumTypeSpec type, const Lengths &lengths) {
    for (int length : lengths) {
        type.addVector(length);
    }
    return type;
}

TEST_F(Types, beginsInvalid) {
    const NumTypeSpec type;
    EXPECT_FALSE(type.valid());
    EXPECT_FALSE(type.toValue(ctx));
    EXPECT_EQ(type.vectorLength(5), 0);
    EXPECT_EQ(type.vectorDepth(), 0U);
    EXPECT_FALSE(VectorDecorSpec().valid());
    EXPECT_FALSE(ComplexDecorSpec().valid());
    EXPECT_FALSE(AggregateTypeSpec().valid());
}

TEST_F(Types, tellsTheWidthsOfEachClass) {
    const NumTypeSpec fixed = NumTypeSpec::sfixed(8, 4);
    EXPECT_TRUE(fixed.isFixed() && fixed.isSigned() && !fixed.isFloat());
    EXPECT_EQ(fixed.fixedBits(), 12);
    EXPECT_EQ(fixed.floatBits(), 0);
    EXPECT_EQ(fixed.significandWidth(), 0);
    const NumTypeSpec single = NumTypeSpec::sfloatIEEE(23, 8);
    EXPECT_TRUE(single.isFloatIEEE() && single.isSigned() && single.canbeHardFloatSingle());
    EXPECT_EQ(single.floatBits(), 32);
    EXPECT_EQ(single.fixedBits(), 0);
    EXPECT_EQ(single.intBits(), 0);
    EXPECT_EQ(NumTypeSpec::sfloatFPLib(23, 8).floatBits(), 34);
    EXPECT_FALSE(NumTypeSpec::sfloatFPLib(23, 8).canbeHardFloatSingle());
    EXPECT_TRUE(NumTypeSpec::sfloatIEEE(10, 5).canbeHardFP16());
    EXPECT_TRUE(NumTypeSpec::sfloatIEEE(10, 8).canbeHardFP16());
    EXPECT_TRUE(NumTypeSpec::sfloatIEEE(7, 8).canbeHardFP16());
    EXPECT_FALSE(NumTypeSpec::sfloatIEEE(7, 5).canbeHardFP16());
    EXPECT_TRUE(NumTypeSpec::sfloatAny(23, 8).isFloatIEEE());
}

TEST_F(Types, comparesScalarsWithoutDecorations) {
    const NumTypeSpec plain = NumTypeSpec::ufixed(3, 2);
    NumTypeSpec decorated = vectorOf(plain, {4});
    decorated.setComplex(true);
    EXPECT_TRUE(plain.scalarEquals(decorated));
    EXPECT_NE(plain, decorated);
    EXPECT_FALSE(plain.scalarEquals(NumTypeSpec::sfixed(3, 2)));
    EXPECT_FALSE(NumTypeSpec().scalarEquals(NumTypeSpec()));
}

struct OpCase {
    const char *name;
    NumTypeSpec a;
    NumTypeSpec b;
    TypeOp op;
    NumTypeSpec result;
};

TEST_F(Types, givesTheWidthOfEachOperation) {
    const auto s = NumTypeSpec::sfixed;
    const auto u = NumTypeSpec::ufixed;
    const OpCase cases[] = {
        {"union of signed and unsigned of one width", s(8, 0), u(8, 0), TYPE_OP_UNION, s(9, 0)},
        {"union where the signed one is wider", s(9, 0), u(8, 0), TYPE_OP_UNION, s(9, 0)},
        {"union with the unsigned one first", u(8, 0), s(8, 0), TYPE_OP_UNION, s(9, 0)},
        {"union where the unsigned one is wider", u(10, 1), s(3, 4), TYPE_OP_UNION, s(11, 4)},
        {"union of unsigned ones", u(3, 4), u(5, 2), TYPE_OP_UNION, u(5, 4)},
        {"union with negative fraction bits", s(8, -2), s(4, -3), TYPE_OP_UNION, s(8, -2)},
        {"common bits", s(4, 2), u(3, 5), TYPE_OP_COMMON, u(4, 5)},
        {"common bits of signed ones", s(4, 2), s(3, 5), TYPE_OP_COMMON, s(4, 5)},
        {"sum", s(8, 4), s(6, 6), TYPE_OP_ADD, s(9, 6)},
        {"sum of mixed signs", u(8, 0), s(8, 0), TYPE_OP_ADD, s(10, 0)},
        {"sum of unsigned ones", u(8, 0), u(8, 0), TYPE_OP_ADD, u(9, 0)},
        {"difference of unsigned ones", u(8, 0), u(8, 0), TYPE_OP_SUB, s(9, 0)},
        {"product", s(8, 4), u(3, 2), TYPE_OP_MUL, s(11, 6)},
        {"product of unsigned ones", u(8, 4), u(3, -2), TYPE_OP_MUL, u(11, 2)},
        {"floats", NumTypeSpec::sfloatIEEE(23, 8), NumTypeSpec::sfloatIEEE(10, 5), TYPE_OP_MUL,
         NumTypeSpec::sfloatIEEE(23, 8)},
        {"floats that cross", NumTypeSpec::sfloatIEEE(10, 8), NumTypeSpec::sfloatIEEE(23, 5), TYPE_OP_ADD,
         NumTypeSpec::sfloatIEEE(23, 8)},
        {"an IEEE and a library float", NumTypeSpec::sfloatIEEE(23, 8), NumTypeSpec::sfloatFPLib(23, 8), TYPE_OP_UNION,
         NumTypeSpec::sfloatIEEE(23, 8)},
        {"library floats", NumTypeSpec::sfloatFPLib(23, 8), NumTypeSpec::sfloatFPLib(10, 5), TYPE_OP_SUB,
         NumTypeSpec::sfloatFPLib(23, 8)},
        {"fixed with float", s(8, 0), NumTypeSpec::sfloatIEEE(23, 8), TYPE_OP_ADD, {}},
        {"an invalid operand", s(8, 0), {}, TYPE_OP_ADD, {}},
        {"widths beyond all bounds", s(1 << 24, 0), s(1 << 24, 0), TYPE_OP_MUL, {}},
    };
    for (const OpCase &c : cases) {
        EXPECT_EQ(NumTypeSpec::typeOp(c.a, c.b, c.op), c.result) << c.name;
    }
}

TEST_F(Types, mergesDecorationsOfOperands) {
    NumTypeSpec complexVector = vectorOf(NumTypeSpec::sfixed(4, 0), {4});
    complexVector.setComplex(true);
    const NumTypeSpec sum = NumTypeSpec::typeOp(NumTypeSpec::sfixed(4, 0), complexVector, TYPE_OP_ADD);
    EXPECT_TRUE(sum.isComplex());
    EXPECT_EQ(sum.vectorLengths(), (Lengths{4}));
    NumTypeSpec matrix = vectorOf(NumTypeSpec::sfixed(4, 0), {4});
    matrix.mergeVectors(vectorOf(NumTypeSpec::ufixed(1, 0), {4, 3}));
    EXPECT_EQ(matrix.vectorLengths(), (Lengths{4, 3}));
    NumTypeSpec disagreeing = vectorOf(NumTypeSpec::sfixed(4, 0), {4});
    disagreeing.mergeVectors(vectorOf(NumTypeSpec::ufixed(1, 0), {3}));
    EXPECT_FALSE(disagreeing.valid());
    NumTypeSpec scalar = NumTypeSpec::sfixed(4, 0);
    scalar.mergeVectors(NumTypeSpec());
    EXPECT_FALSE(scalar.valid());
    NumTypeSpec invalid;
    invalid.mergeDecors(complexVector);
    EXPECT_EQ(invalid, NumTypeSpec());
}

TEST_F(Types, readsAndWritesTheTupleOfAType) {
    const std::string text = "(typeVector 3 (typeVector 2 (typeComplex (typeSFixed 8 4))))";
    const NumTypeSpec type = spec(text);
    EXPECT_EQ(type.vectorLengths(), (Lengths{2, 3}));
    EXPECT_TRUE(type.isComplex());
    EXPECT_EQ(type.vectorLengthRev(0), 3);
    EXPECT_EQ(type.vectorLength(0), 2);
    EXPECT_EQ(type.vectorLength(5), 1);
    EXPECT_EQ(written(type), text);
    EXPECT_EQ(written(spec("(typeSFloat 23 8)")), "(typeSFloatIEEE 23 8)");
    EXPECT_EQ(written(spec("(typeSFloatFPLib 23 8)")), "(typeSFloatFPLib 23 8)");
    EXPECT_EQ(written(spec("(typeUFixed 1 -4)")), "(typeUFixed 1 -4)");
}

TEST_F(Types, readsNothingOutOfMalformedTuples) {
    for (const char *text :
         {"a", "7", "()", "(typeSFixed)", "(typeSFixed 8)", "(typeSFixed a 4)", "(typeNone 8 4)", "(typeVector 3)",
          "(typeVector a (typeSFixed 8 4))", "(typeComplex)", "(typeComplex (typeVector 2 (typeSFixed 8 4)))",
          "(typeVector 0 (typeSFixed 8 4))", "(typeVector -3 (typeSFixed 8 4))",
          "(typeVector 2 (typeVector 0 (typeSFixed 8 4)))", "(typeAggregate (typeSFixed 8 4))",
          "(typeSFixed 0x1p+40 0)", "(typeSFixed +nan 4)", "(typeSFixed 8 -inf)"}) {
        EXPECT_EQ(spec(text), NumTypeSpec()) << text;
    }
    EXPECT_FALSE(NumTypeSpec(PureValueRef(), ctx).valid());
}

TEST_F(Types, takesOnlyWholeNumbersForLengthsOfVectors) {
    for (const char *length : {"0x2.8", "0x0.8", "+nan", "+inf", "-inf", "-zero", "2147483648", "4294967298"}) {
        ASSERT_TRUE(numberVR(value(length))) << length;
        const std::string text = std::string("(typeVector ") + length + " (typeSFixed 8 4))";
        EXPECT_FALSE(spec(text).valid()) << text;
        EXPECT_FALSE(spec("(typeVector 2 " + text + ")").valid()) << text;
        PureValueRef inner;
        const VectorDecorSpec vectors(value("(typeVector 3 " + text + ")"), inner, ctx);
        EXPECT_EQ(vectors.vectorLengths(), (Lengths{3})) << text;
        EXPECT_EQ(inner, value(text));
        EXPECT_EQ(readableType(value(text).get_ptr()), value(text)->toString());
    }
    EXPECT_EQ(spec("(typeVector 2147483647 (typeSFixed 8 4))").vectorLengths(), (Lengths{2147483647}));
}

TEST_F(Types, readsAWidthOfMinusZeroAsZero) { EXPECT_EQ(spec("(typeSFixed 8 -zero)"), NumTypeSpec::sfixed(8, 0)); }

TEST_F(Types, keepsAnInvalidSpecInvalid) {
    NumTypeSpec type;
    type.setSigned(true);
    type.setIntBits(3);
    type.setFracBits(3);
    type.addVector(4);
    type.setVectors(NumTypeSpec::ufixed(1, 0));
    EXPECT_FALSE(type.setComplex(true));
    EXPECT_EQ(type, NumTypeSpec());
    EXPECT_EQ(type.removeVector(), 0);
    type.setToFixed(true, 3, 1);
    EXPECT_EQ(type, NumTypeSpec::sfixed(3, 1));
}

TEST_F(Types, changesWidthsAndSigns) {
    NumTypeSpec type = vectorOf(NumTypeSpec::ufixed(3, 1), {2});
    type.setSigned(true);
    type.setIntBits(5);
    type.setFracBits(2);
    EXPECT_EQ(type, vectorOf(NumTypeSpec::sfixed(5, 2), {2}));
    type.setToFloat(10, 5);
    EXPECT_EQ(type, vectorOf(NumTypeSpec::sfloatIEEE(10, 5), {2}));
    type.setSigned(true);
    EXPECT_TRUE(type.valid());
    type.setSigned(false);
    EXPECT_EQ(type, NumTypeSpec());
    NumTypeSpec single = NumTypeSpec::sfloatIEEE(23, 8);
    single.setFixedBits(3, 3);
    EXPECT_EQ(single, NumTypeSpec());
    NumTypeSpec kept = vectorOf(NumTypeSpec::sfloatIEEE(23, 8), {3});
    kept.setComplex(true);
    kept.setToFixed(false, 1, 0);
    EXPECT_TRUE(kept.isComplex());
    EXPECT_EQ(kept.vectorLengths(), Lengths{3});
}

TEST_F(Types, takesDimensionsOffFromTheOutermost) {
    NumTypeSpec type = vectorOf(NumTypeSpec::ufixed(3, 1), {2, 5});
    EXPECT_EQ(type.removeVector(), 5);
    EXPECT_EQ(type.removeVector(), 2);
    EXPECT_TRUE(type.valid());
    EXPECT_EQ(type.removeVector(), 0);
    EXPECT_FALSE(type.valid());
    VectorDecorSpec vectors(3);
    EXPECT_EQ(vectors.removeVector(), 3);
    EXPECT_EQ(vectors.removeVector(), 0);
    EXPECT_FALSE(vectors.valid());
}

TEST_F(Types, requiresProperties) {
    const auto after = [](NumTypeSpec type, void (NumTypeSpec::*require)()) {
        (type.*require)();
        return type.valid();
    };
    NumTypeSpec complexType = NumTypeSpec::sfixed(3, 0);
    complexType.setComplex(true);
    const NumTypeSpec vector = vectorOf(NumTypeSpec::sfixed(3, 0), {2});
    EXPECT_TRUE(after(NumTypeSpec::sfixed(3, 0), &NumTypeSpec::requireFixed));
    EXPECT_FALSE(after(NumTypeSpec::sfloatIEEE(23, 8), &NumTypeSpec::requireFixed));
    EXPECT_TRUE(after(NumTypeSpec::sfloatIEEE(23, 8), &NumTypeSpec::requireFloat));
    EXPECT_FALSE(after(complexType, &NumTypeSpec::requireReal));
    EXPECT_TRUE(after(complexType, &NumTypeSpec::requireComplex));
    EXPECT_FALSE(after(vector, &NumTypeSpec::requireScalar));
    EXPECT_TRUE(after(complexType, &NumTypeSpec::requireScalar));
}

TEST_F(Types, takesOneRealBitForACondition) {
    const auto isBool = [](NumTypeSpec type, bool relaxed) {
        type.requireBool(relaxed);
        return type.valid();
    };
    EXPECT_TRUE(isBool(NumTypeSpec::boolean(), false));
    EXPECT_TRUE(isBool(NumTypeSpec::sfixed(1, 0), false));
    EXPECT_TRUE(isBool(vectorOf(NumTypeSpec::boolean(), {4}), false));
    EXPECT_FALSE(isBool(NumTypeSpec::ufixed(2, 0), false));
    EXPECT_TRUE(isBool(NumTypeSpec::ufixed(2, 3), true));
    EXPECT_FALSE(isBool(NumTypeSpec::sfloatIEEE(23, 8), true));
    NumTypeSpec complexBit = NumTypeSpec::boolean();
    complexBit.setComplex(true);
    EXPECT_FALSE(isBool(complexBit, true));
}

TEST_F(Types, findsTheSmallestTypeOfAConstant) {
    EXPECT_TRUE(NumTypeSpec::fromFixedValue(value("-1")).isSigned());
    EXPECT_FALSE(NumTypeSpec::fromFixedValue(value("1")).isSigned());
    EXPECT_FALSE(NumTypeSpec::fromFixedValue(value("a")).valid());
    EXPECT_FALSE(NumTypeSpec::fromFixedValue(PureValueRef()).valid());
    EXPECT_FALSE(NumTypeSpec::fromFixedValue(value("(vectorRollTag)")).valid());
    EXPECT_FALSE(NumTypeSpec::fromFixedValue(value("()")).valid());
    const NumTypeSpec one = NumTypeSpec::fromFixedValue(value("1"));
    const NumTypeSpec minusOne = NumTypeSpec::fromFixedValue(value("-1"));
    const NumTypeSpec both = NumTypeSpec::typeOp(one, minusOne, TYPE_OP_UNION);
    EXPECT_EQ(NumTypeSpec::fromFixedValue(value("(vectorRollTag 1 -1)")), vectorOf(both, {2}));
    EXPECT_EQ(NumTypeSpec::fromFixedValue(value("(1 -1)")), both);
    NumTypeSpec complexType = both;
    complexType.setComplex(true);
    EXPECT_EQ(NumTypeSpec::fromFixedValue(value("(complexRollTag 1 -1)")), complexType);
    EXPECT_EQ(NumTypeSpec::fromFixedValue(value("(vectorRollTag 1 -1)"), true), vectorOf(one, {2}));
    EXPECT_EQ(NumTypeSpec::fromFixedValue(value("(vectorRollTag (vectorRollTag 1 1 1) (vectorRollTag 1 -1 1))")),
              vectorOf(both, {3, 2}));
}

TEST_F(Types, countsTheBitsOfIntegers) {
    const std::pair<long, int> cases[] = {{0, 1},   {1, 1},  {2, 2},  {3, 2},    {255, 8},
                                          {256, 9}, {-1, 2}, {-2, 3}, {-128, 9}, {-127, 8}};
    for (const auto &[number, bits] : cases) {
        EXPECT_EQ(bitWidth(number), bits) << number;
        EXPECT_EQ(bitWidth(static_cast<int>(number)), bits) << number;
    }
    EXPECT_EQ(bitWidth(INT64_MIN), 65);
    EXPECT_EQ(bitWidthU(0xffffffffU), 32);
    EXPECT_EQ(addrWidth(1), 1);
    EXPECT_EQ(addrWidth(4), 2);
    EXPECT_EQ(addrWidth(5), 3);
    EXPECT_EQ(addrWidth(0), 32);
}

TEST_F(Types, flattensIndicesWithTheInnermostFastest) {
    VectorDecorSpec vectors(2);
    vectors.addVector(3);
    EXPECT_EQ(vectors.elementCount(), 6U);
    EXPECT_EQ(vectors.elementIndex({1, 0}), 1U);
    EXPECT_EQ(vectors.elementIndex({0, 1}), 2U);
    EXPECT_EQ(vectors.elementIndex({1, 2}), 5U);
    EXPECT_EQ(VectorDecorSpec(0).elementCount(), 1U);
    EXPECT_EQ(VectorDecorSpec(0).elementIndex({}), 0U);
    EXPECT_EQ(VectorDecorSpec().elementCount(), 0U);
}

TEST_F(Types, peelsVectorsOffAnyType) {
    PureValueRef inner;
    const PureValueRef type = value("(typeVector 3 (typeVector 2 (typeAggregate (typeUFixed 1 0))))");
    const VectorDecorSpec vectors(type, inner, ctx);
    EXPECT_EQ(vectors.vectorLengths(), (Lengths{2, 3}));
    EXPECT_EQ(inner, value("(typeAggregate (typeUFixed 1 0))"));
    EXPECT_EQ(vectors.toValue(inner, ctx), type);
    const VectorDecorSpec malformed(value("(typeVector x y)"), inner, ctx);
    EXPECT_TRUE(malformed.valid());
    EXPECT_FALSE(malformed.isVector());
    EXPECT_EQ(inner, value("(typeVector x y)"));
    EXPECT_FALSE(VectorDecorSpec(PureValueRef(), inner, ctx).valid());
    EXPECT_FALSE(inner);
}

TEST_F(Types, knowNoVectorsWithoutElements) {
    for (const char *text : {"(typeVector 0 x)", "(typeVector -3 x)", "(typeVector 2 (typeVector 0 x))"}) {
        PureValueRef inner = value("x");
        const VectorDecorSpec vectors(value(text), inner, ctx);
        EXPECT_FALSE(vectors.valid()) << text;
        EXPECT_TRUE(vectors.vectorLengths().empty()) << text;
        EXPECT_FALSE(inner) << text;
    }
}

TEST_F(Types, readsTheLayersOfARolledConstantOutermostFirst) {
    VectorDecorSpec vectors;
    vectors.fromRolledValue(value("(vectorRollTag (vectorRollTag 1 2 3) (vectorRollTag 4 5 6))"));
    EXPECT_EQ(vectors.vectorLengths(), (Lengths{2, 3}));
    vectors.fromRolledValue(value("(vectorRollTag 1 2 3 4)"));
    EXPECT_EQ(vectors.vectorLengths(), (Lengths{2, 3, 4})) << "earlier lengths stay";
    vectors.fromRolledValue(value("7"));
    EXPECT_TRUE(vectors.valid());
    vectors.fromRolledValue(PureValueRef());
    EXPECT_FALSE(vectors.valid());
    vectors.fromRolledValue(value("(vectorRollTag)"));
    EXPECT_FALSE(vectors.valid());
}

TEST_F(Types, keepsComplexInsideTheVectors) {
    PureValueRef rest;
    const PureValueRef type = value("(typeVector 3 (typeComplex (typeSFixed 8 4)))");
    const ComplexDecorSpec complexType(type, rest, ctx);
    EXPECT_TRUE(complexType.isComplex());
    EXPECT_EQ(rest, value("(typeVector 3 (typeSFixed 8 4))"));
    EXPECT_EQ(complexType.toValue(rest, ctx), type);
    const ComplexDecorSpec real(rest, rest, ctx);
    EXPECT_TRUE(real.isReal());
    EXPECT_EQ(real.toValue(rest, ctx), rest);
    EXPECT_FALSE(ComplexDecorSpec().toValue(rest, ctx));
    ComplexDecorSpec unknown;
    unknown.setComplex(true);
    EXPECT_FALSE(unknown.valid());
    unknown.setToComplex(false);
    EXPECT_TRUE(unknown.isReal());
}

TEST_F(Types, readsRecords) {
    const AggregateTypeSpec nested(value("(typeAggregate a (typeAggregate b c))"));
    EXPECT_EQ(nested.size(), 2U);
    EXPECT_EQ(nested.getFlatSize(nullptr), 3U);
    EXPECT_TRUE(nested.isNestedAggregateSpec());
    EXPECT_EQ(nested.toValue(ctx), value("(typeAggregate a (typeAggregate b c))"));
    AggregateTypeSpec::Cache cache;
    EXPECT_EQ(nested.getFlatSize(&cache), 3U);
    EXPECT_EQ(nested.getFlatSize(&cache), 3U);
    EXPECT_EQ(cache.specOf(value("(typeAggregate b c)")).size(), 2U);
    const AggregateTypeSpec plain(value("(typeSFixed 8 4)"));
    EXPECT_FALSE(plain.isAggregate());
    EXPECT_TRUE(plain.valid());
    EXPECT_EQ(plain.size(), 0U);
    EXPECT_EQ(plain.toValue(ctx), value("(typeSFixed 8 4)"));
    EXPECT_FALSE(AggregateTypeSpec(PureValueRef()).valid());
}

TEST_F(Types, buildsRecords) {
    AggregateTypeSpec spec;
    spec.addType(value("a"));
    EXPECT_FALSE(spec.valid());
    spec.beginAggregate();
    spec.endAggregate();
    EXPECT_FALSE(spec.valid()) << "a record has elements";
    spec.beginAggregate();
    spec.addType(value("a"));
    spec.addType(value("b"));
    spec.endAggregate();
    EXPECT_EQ(spec.toValue(ctx), value("(typeAggregate a b)"));
    spec.addType(PureValueRef());
    EXPECT_FALSE(spec.valid());
    EXPECT_FALSE(spec.toValue(ctx));
}

TEST_F(Types, readsWellForPeople) {
    const std::pair<const char *, const char *> cases[] = {
        {"(typeSFixed 8 4)", "s8.4"},
        {"(typeUFixed 1 0)", "u1.0"},
        {"(typeSFloatIEEE 23 8)", "float(23,8)"},
        {"(typeSFloatFPLib 23 8)", "fplib(23,8)"},
        {"(typeComplex (typeSFixed 8 -1))", "complex s8.-1"},
        {"(typeVector 4 (typeVector 3 (typeUFixed 1 0)))", "[4][3] u1.0"},
        {"(typeVector 4 (typeAggregate (typeUFixed 1 0) (typeComplex (typeSFixed 2 0))))", "[4] {u1.0, complex s2.0}"},
        {"(other 4)", "(other 4)"},
    };
    for (const auto &[type, text] : cases) {
        EXPECT_EQ(readableType(value(type).get_ptr()), text);
    }
    EXPECT_EQ(readableType(nullptr), "?");
}

TEST_F(Types, readsNoMoreLevelsOfARecordThanATextHas) {
    PureValueRef type = value("(typeSFixed 4 0)");
    for (int level = 0; level < 60000; ++level) {
        type = PureTupleValue::get(A_TYPE_AGGREGATE, type, ctx);
    }
    const std::string text = readableType(type.get_ptr());
    EXPECT_EQ(text.substr(text.find_first_not_of('{'), 4), "...}");
}

TEST(TypesDeathTest, refusesBreachesOfItsContract) {
    NumTypeSpec type = NumTypeSpec::ufixed(1, 0);
    EXPECT_DEATH(type.addVector(0), "at least one element");
    EXPECT_DEATH(type.setToFloat(TYPE_CLASS_UFIXED, 1, 1), "no class of a float");
    EXPECT_DEATH(NumTypeSpec::typeOp(type, type, static_cast<TypeOp>(5)), "unknown operation");
}

NumTypeSpec anyFixed() {
    const int total = *rc::gen::inRange(1, 70);
    const int frac = *rc::gen::inRange(-5, 40);
    return NumTypeSpec::fixed(*rc::gen::arbitrary<bool>(), total - frac, frac);
}

/// The least and the greatest value of a type as integers scaled by two to the power of `scale`.
struct Range {
    mpz_t low;
    mpz_t high;
    Range(const NumTypeSpec &type, int scale) {
        mpz_inits(low, high, nullptr);
        const auto bits = static_cast<mp_bitcnt_t>(type.fixedBits() - (type.isSigned() ? 1 : 0));
        mpz_setbit(high, bits);
        if (type.isSigned()) {
            mpz_neg(low, high);
        }
        mpz_sub_ui(high, high, 1);
        const auto shift = static_cast<mp_bitcnt_t>(scale - type.fracBits());
        mpz_mul_2exp(low, low, shift);
        mpz_mul_2exp(high, high, shift);
    }
    ~Range() { mpz_clears(low, high, nullptr); }
    Range(const Range &) = delete;
    Range &operator=(const Range &) = delete;
};

RC_GTEST_PROP(TypesProperty, holdsEveryPossibleResultOfAnOperation, ()) {
    const NumTypeSpec a = anyFixed();
    const NumTypeSpec b = anyFixed();
    const auto op = *rc::gen::element(TYPE_OP_UNION, TYPE_OP_ADD, TYPE_OP_SUB, TYPE_OP_MUL);
    const NumTypeSpec result = NumTypeSpec::typeOp(a, b, op);
    RC_ASSERT(result.valid());
    constexpr int kScale = 90;
    const Range ra(a, kScale);
    const Range rb(b, kScale);
    const Range limits(result, op == TYPE_OP_MUL ? 2 * kScale : kScale);
    mpz_t value;
    mpz_init(value);
    bool holds = true;
    for (const __mpz_struct *x : {ra.low, ra.high}) {
        for (const __mpz_struct *y : {rb.low, rb.high}) {
            if (op == TYPE_OP_ADD) {
                mpz_add(value, x, y);
            } else if (op == TYPE_OP_SUB) {
                mpz_sub(value, x, y);
            } else if (op == TYPE_OP_MUL) {
                mpz_mul(value, x, y);
            } else {
                mpz_set(value, x);
                holds = holds && mpz_cmp(y, limits.low) >= 0 && mpz_cmp(y, limits.high) <= 0;
            }
            holds = holds && mpz_cmp(value, limits.low) >= 0 && mpz_cmp(value, limits.high) <= 0;
        }
    }
    mpz_clear(value);
    RC_ASSERT(holds);
}

RC_GTEST_PROP(TypesProperty, isAtMostABitWiderThanNeededWithoutSignCorrection, ()) {
    const NumTypeSpec a = anyFixed();
    NumTypeSpec b = anyFixed();
    b.setSigned(a.isSigned());
    const auto op = *rc::gen::element(TYPE_OP_ADD, TYPE_OP_SUB, TYPE_OP_MUL);
    const NumTypeSpec result = NumTypeSpec::typeOp(a, b, op);
    // A type of two bits less cannot hold the extreme result any more.
    constexpr int kScale = 90;
    const Range ra(a, kScale);
    const Range rb(b, kScale);
    mpz_t least;
    mpz_t most;
    mpz_inits(least, most, nullptr);
    if (op == TYPE_OP_ADD) {
        mpz_add(least, ra.low, rb.low);
        mpz_add(most, ra.high, rb.high);
    } else if (op == TYPE_OP_SUB) {
        mpz_sub(least, ra.low, rb.high);
        mpz_sub(most, ra.high, rb.low);
    } else {
        mpz_mul(least, ra.low, rb.high);
        mpz_mul(most, a.isSigned() ? ra.low : ra.high, a.isSigned() ? rb.low : rb.high);
    }
    NumTypeSpec narrower = result;
    narrower.setIntBits(result.intBits() - 2);
    bool needed = narrower.fixedBits() < 1;
    if (!needed) {
        const Range limits(narrower, op == TYPE_OP_MUL ? 2 * kScale : kScale);
        needed = mpz_cmp(least, limits.low) < 0 || mpz_cmp(most, limits.high) > 0;
    }
    mpz_clears(least, most, nullptr);
    RC_ASSERT(needed);
}

RC_GTEST_PROP(TypesProperty, mergesMonotonously, ()) {
    const auto lengths = rc::gen::container<Lengths>(rc::gen::inRange(1, 4));
    const NumTypeSpec a = vectorOf(NumTypeSpec::ufixed(1, 0), *lengths);
    const NumTypeSpec b = vectorOf(NumTypeSpec::ufixed(1, 0), *lengths);
    NumTypeSpec ab = a;
    ab.mergeVectors(b);
    NumTypeSpec ba = b;
    ba.mergeVectors(a);
    RC_ASSERT(ab.valid() == ba.valid());
    if (ab.valid()) {
        RC_ASSERT(ab == ba);
        RC_ASSERT(ab.vectorDepth() == std::max(a.vectorDepth(), b.vectorDepth()));
        NumTypeSpec again = ab;
        again.mergeVectors(b);
        RC_ASSERT(again == ab);
    }
}

RC_GTEST_PROP(TypesProperty, readsBackWhatItWrites, ()) {
    ContextMgr guard;
    NumTypeSpec type = *rc::gen::arbitrary<bool>()
                           ? anyFixed()
                           : NumTypeSpec(*rc::gen::element(TYPE_CLASS_SFLOAT_IEEE, TYPE_CLASS_SFLOAT_FPLIB),
                                         *rc::gen::inRange(1, 60), *rc::gen::inRange(2, 15));
    type.setComplex(*rc::gen::arbitrary<bool>());
    type = vectorOf(type, *rc::gen::container<Lengths>(rc::gen::inRange(1, 9)));
    RC_ASSERT(NumTypeSpec(type.toValue(guard.context()), guard.context()) == type);
}

} // namespace
} // namespace orvo
