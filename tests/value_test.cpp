// References, casts and orders of values, whatever their kind.
#include <orvo/value.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <sstream>

namespace orvo {
namespace {

class ValueTest : public ::testing::Test {
  protected:
    ValueRef value(const std::string &text) { return Value::parse(text, mgr.context()); }

    ContextMgr mgr;
    Context *ctx = mgr.context();
};

using ValueDeathTest = ValueTest;

TEST_F(ValueTest, refersToOneObjectForEqualContent) {
    const StringValueRef first = StringValue::get("some text", ctx);
    const StringValueRef second = StringValue::get("some text", ctx);
    EXPECT_EQ(first.get_ptr(), second.get_ptr());
    EXPECT_EQ(first->refCount(), 2);
}

TEST_F(ValueTest, leavesTheTableWithItsLastReference) {
    const std::size_t before = ctx->valueCount();
    {
        const NumberValueRef number = NumberValue::get(123456, ctx);
        const NumberValueRef copy = number;
        EXPECT_EQ(ctx->valueCount(), before + 1);
    }
    EXPECT_EQ(ctx->valueCount(), before);
}

TEST_F(ValueTest, dropsTheElementsOfADroppedTuple) {
    const std::size_t before = ctx->valueCount();
    { const ValueRef tuple = value("(one (two 3) \"4 4\")"); }
    EXPECT_EQ(ctx->valueCount(), before);
}

TEST_F(ValueTest, countsCopiesAndMovesOfReferences) {
    StringValueRef a = StringValue::get("counted", ctx);
    EXPECT_EQ(a->refCount(), 1);
    StringValueRef b = a;
    EXPECT_EQ(a->refCount(), 2);
    StringValueRef c = std::move(b);
    EXPECT_EQ(a->refCount(), 2);
    b = c;
    EXPECT_EQ(a->refCount(), 3);
    const StringValueRef &same = b;
    b = same;
    EXPECT_EQ(a->refCount(), 3);
    b = nullptr;
    c = StringValueRef();
    EXPECT_EQ(a->refCount(), 1);
}

TEST_F(ValueTest, letsGoOfTheOldValueOnMoveAssignment) {
    StringValueRef a = StringValue::get("first", ctx);
    StringValueRef b = StringValue::get("second", ctx);
    const std::size_t values = ctx->valueCount();
    a = std::move(b);
    EXPECT_EQ(b.get_ptr(), nullptr); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(a->str(), "second");
    EXPECT_EQ(ctx->valueCount(), values - 1);
    StringValueRef &same = a;
    a = std::move(same);
    EXPECT_EQ(a->str(), "second");
    EXPECT_EQ(a->refCount(), 1);
}

TEST_F(ValueTest, neverCountsAStaticValue) {
    const int before = A_ADD_BLOCK.get_ptr()->refCount();
    {
        const ValueRef a = A_ADD_BLOCK;
        const PureValueRef b = A_ADD_BLOCK;
        EXPECT_EQ(A_ADD_BLOCK.get_ptr()->refCount(), before);
        EXPECT_FALSE(a->isRefCounted());
    }
    EXPECT_EQ(A_ADD_BLOCK.get_ptr()->refCount(), before);
}

TEST_F(ValueTest, separatesNumbersFromStringsOfTheSameText) {
    const ValueRef number = NumberValue::get(12, ctx);
    const ValueRef text = StringValue::get("12", ctx);
    EXPECT_FALSE(number == text);
    EXPECT_TRUE(number != text);
}

TEST_F(ValueTest, comparesReferencesOfAllKindsByIdentity) {
    const PureValueRef pure = A_ADD_BLOCK;
    const ValueRef plain = A_ADD_BLOCK;
    EXPECT_TRUE(pure == A_ADD_BLOCK);
    EXPECT_TRUE(A_ADD_BLOCK == plain);
    EXPECT_TRUE(plain == pure);
    EXPECT_TRUE(ValueRef() == nullptr);
    EXPECT_FALSE(plain == nullptr);
    EXPECT_FALSE(plain < pure);
}

TEST_F(ValueTest, makesAPureReferenceToAnImpureValueNull) {
    const ValueRef node = value("[/a]");
    const ValueRef tuple = value("(1 [/a])");
    const ValueRef pureTuple = value("(1 a)");
    EXPECT_TRUE(node && tuple && pureTuple);
    EXPECT_FALSE(PureValueRef(node));
    EXPECT_FALSE(PureValueRef(tuple));
    EXPECT_TRUE(PureValueRef(pureTuple));
    PureValueRef assigned = pureTuple;
    assigned = tuple;
    EXPECT_FALSE(assigned);
}

TEST_F(ValueTest, makesAPureReferenceToATupleWithABoundNodeNull) {
    Design design(ctx);
    Model *model = Model::create(design, "m");
    PureValueRef reference = TupleValue::get(ValueRef(A_ADD_BLOCK), ValueRef(NodeValue::get(model)), ctx);
    EXPECT_FALSE(reference);
}

TEST_F(ValueTest, castsToNullWhereTheKindDiffers) {
    const ValueRef number = value("12");
    const ValueRef text = value("abc");
    const ValueRef tuple = value("(1 [/a])");
    const ValueRef pureTuple = value("(1 2)");
    const ValueRef node = value("[/a]");
    EXPECT_TRUE(numberVR(number) && stringVR(text) && tupleVR(tuple) && pureTupleVR(pureTuple) && nodeVR(node));
    EXPECT_TRUE(tupleVR(pureTuple));
    EXPECT_FALSE(pureTupleVR(tuple));
    EXPECT_FALSE(numberVR(text));
    EXPECT_FALSE(stringVR(number));
    EXPECT_FALSE(nodeVR(pureTuple));
    EXPECT_FALSE(pureVR(node));
    EXPECT_FALSE(numberVR(ValueRef()));
    EXPECT_TRUE(dyn_ref_cast<PureValue>(number));
    EXPECT_FALSE(dyn_ref_cast<PureValue>(pureTuple)) << "a pure tuple is pure, but no PureValue";
    EXPECT_FALSE(static_ref_cast<NumberValue>(ValueRef()));
    EXPECT_EQ(static_ref_cast<NumberValue>(number)->toInt(), 12);
}

TEST_F(ValueDeathTest, assertsTheKindOfAStaticCast) {
    const ValueRef text = value("abc");
    EXPECT_EXIT(static_ref_cast<NumberValue>(text), ::testing::ExitedWithCode(1),
                "ORVO restriction: .*static_ref_cast");
}

TEST_F(ValueDeathTest, assertsTheCountOfADroppedReference) {
    EXPECT_EXIT(internal::failReferenceCount(), ::testing::ExitedWithCode(1), "ORVO restriction: 'mRefCount > 0'");
}

TEST_F(ValueTest, numbersItsKinds) {
    EXPECT_EQ(value("1")->getCoreTypeId(), 0);
    EXPECT_EQ(value("a")->getCoreTypeId(), 1);
    EXPECT_EQ(value("(1 [/a])")->getCoreTypeId(), 2);
    EXPECT_EQ(value("(1 2)")->getCoreTypeId(), 3);
    EXPECT_EQ(value("[/a]")->getCoreTypeId(), 4);
}

TEST_F(ValueTest, listsThePrefixesOfItsKind) {
    EXPECT_EQ(value("a")->getMetaData().size(), 53U);
    EXPECT_EQ(value("1")->getMetaData().size(), 12U);
    EXPECT_EQ(*value("(1)")->getMetaData().begin(), "(");
    EXPECT_EQ(*value("[/a]")->getMetaData().begin(), "[");
    const ValueMetaData &digits = value("1")->getMetaData();
    EXPECT_EQ(std::string(*digits.begin()), "0");
    EXPECT_EQ(std::count(digits.begin(), digits.end(), "-"), 1);
}

TEST_F(ValueTest, ordersByKindThenByContent) {
    const char *const inOrder[] = {
        "-3",       "0x1p-3", "12",  "+nan",  "abc", "abd",  "b",    "([/a])",
        "([/b] 1)", "()",     "(1)", "(1 1)", "(2)", "[/a]", "[/b]",
    };
    std::vector<ValueRef> values;
    for (const char *text : inOrder) {
        values.push_back(value(text));
        ASSERT_TRUE(values.back()) << text;
    }
    const DeepValueCmp before;
    for (std::size_t i = 0; i < values.size(); ++i) {
        for (std::size_t j = 0; j < values.size(); ++j) {
            EXPECT_EQ(before(values[i], values[j]), i < j) << inOrder[i] << " and " << inOrder[j];
        }
    }
}

TEST_F(ValueTest, ordersANullElementFirst) {
    const ValueRef node = value("[/a]");
    const ValueRef withNull = TupleValue::get(std::vector<ValueRef>{node, ValueRef()}, ctx);
    const ValueRef without = TupleValue::get(std::vector<ValueRef>{node, value("1")}, ctx);
    EXPECT_TRUE(DeepValueCmp()(withNull, without));
    EXPECT_FALSE(DeepValueCmp()(without, withNull));
}

TEST_F(ValueTest, ordersStringsByBytesWithoutSign) {
    EXPECT_TRUE(DeepValueCmp()(StringValue::get("a", ctx), StringValue::get("\xff", ctx)));
    EXPECT_TRUE(DeepValueCmp()(StringValue::get(std::string("a\0", 2), ctx), StringValue::get("aa", ctx)));
}

TEST_F(ValueTest, printsThroughStreamsAsToString) {
    for (const char *text : {"abc", "\"a b\"", "12", "0x8p-4", "(1 (a b) [/x])", "[/x/y]", "-zero"}) {
        std::ostringstream out;
        out << *value(text);
        EXPECT_EQ(out.str(), text);
        EXPECT_EQ(value(text)->toString(), text);
    }
}

ValueRef arbitraryValue(Context *ctx, int depth) {
    switch (*rc::gen::inRange(0, depth > 0 ? 6 : 4)) {
    case 0:
        return StringValue::get(*rc::gen::arbitrary<std::string>(), ctx);
    case 1:
        return NumberValue::get(*rc::gen::arbitrary<int>(), ctx);
    case 2:
        return NumberValue::get(*rc::gen::arbitrary<double>(), ctx);
    case 3:
        return NodeValue::get("/" + *rc::gen::arbitrary<std::string>(), ctx);
    default: {
        std::vector<ValueRef> elements;
        const int size = *rc::gen::inRange(0, 6);
        for (int i = 0; i < size; ++i) {
            elements.push_back(arbitraryValue(ctx, depth - 1));
        }
        return TupleValue::get(elements, ctx);
    }
    }
}

RC_GTEST_FIXTURE_PROP(ValueTest, hasAStrictWeakOrder, ()) {
    std::vector<ValueRef> values;
    for (int i = 0; i < 8; ++i) {
        values.push_back(arbitraryValue(ctx, 3));
    }
    const DeepValueCmp before;
    for (const ValueRef &a : values) {
        RC_ASSERT(!before(a, a));
        for (const ValueRef &b : values) {
            RC_ASSERT(!(before(a, b) && before(b, a)));
            RC_ASSERT(a == b || before(a, b) || before(b, a));
            for (const ValueRef &c : values) {
                RC_ASSERT(!(before(a, b) && before(b, c)) || before(a, c));
            }
        }
    }
}

RC_GTEST_FIXTURE_PROP(ValueTest, readsBackWhatItPrintsAsTheSameObject, ()) {
    const ValueRef original = arbitraryValue(ctx, 5);
    RC_ASSERT(Value::parse(original->toString(), ctx) == original);
    std::ostringstream out;
    original->print(out);
    RC_ASSERT(out.str() == original->toString());
    std::istringstream in(out.str() + " tail");
    RC_ASSERT(Value::parse(in, ctx) == original);
    std::string tail;
    RC_ASSERT(static_cast<bool>(in >> tail));
    RC_ASSERT(tail == "tail");
}

} // namespace
} // namespace orvo
