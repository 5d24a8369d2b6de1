// Strings and tuples: making, printing, reading, and the bounds of their text.
#include <orvo/corevalues.h>

#include <orvo/context.h>
#include <orvo/limits.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <sstream>
#include <stdexcept>

namespace orvo {
namespace {

class CoreValues : public ::testing::Test {
  protected:
    ValueRef value(const std::string &text) { return Value::parse(text, ctx); }
    std::string nested(std::size_t depth) { return std::string(depth, '(') + std::string(depth, ')'); }

    ContextMgr mgr;
    Context *ctx = mgr.context();
};

using CoreValuesDeathTest = CoreValues;

TEST_F(CoreValues, readsAWordAsAString) {
    EXPECT_EQ(stringVR(value("abc"))->str(), "abc");
    EXPECT_EQ(stringVR(value(" \t\n\v\f\rabc_1 def"))->str(), "abc_1");
    EXPECT_EQ(stringVR(value("abc-"))->str(), "abc");
}

TEST_F(CoreValues, readsQuotedStringsWithEscapes) {
    EXPECT_EQ(stringVR(value("\"a b\""))->str(), "a b");
    EXPECT_EQ(stringVR(value("\"\""))->str(), "");
    EXPECT_EQ(stringVR(value("\"a\\\"\\\\\\x\""))->str(), "a\"\\x");
    EXPECT_EQ(stringVR(value("\"\n\""))->str(), "\n");
    EXPECT_FALSE(value("\"abc"));
    EXPECT_FALSE(value("\"abc\\"));
    EXPECT_FALSE(value("\"abc\\\""));
}

TEST_F(CoreValues, printsAStringNakedOnlyIfItIsAWord) {
    EXPECT_EQ(StringValue::get("foo_1", ctx)->toString(), "foo_1");
    EXPECT_EQ(StringValue::get("2x", ctx)->toString(), "\"2x\"");
    EXPECT_EQ(StringValue::get("", ctx)->toString(), "\"\"");
    EXPECT_EQ(StringValue::get("_a", ctx)->toString(), "\"_a\"");
    EXPECT_EQ(StringValue::get("a b", ctx)->toString(), "\"a b\"");
    EXPECT_EQ(StringValue::get("\xc3\xa4", ctx)->toString(), "\"\xc3\xa4\"");
    EXPECT_EQ(StringValue::get("\"\\", ctx)->toString(), "\"\\\"\\\\\"");
}

TEST_F(CoreValues, keepsZeroBytesInStrings) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(StringValue::get(text, ctx)->str(), text);
    EXPECT_EQ(value(StringValue::get(text, ctx)->toString()), StringValue::get(text, ctx));
    EXPECT_FALSE(StringValue::get(text, ctx) == StringValue::get("a", ctx));
}

TEST_F(CoreValues, readsLongWords) {
    const std::string word = "a" + std::string(100000, 'b');
    EXPECT_EQ(stringVR(value(word))->str(), word);
    std::istringstream in(word);
    EXPECT_EQ(stringVR(Value::parse(in, ctx))->str(), word);
}

TEST_F(CoreValues, makesAPureTupleOfPureElements) {
    const ValueRef tuple = value("(1 2)");
    ASSERT_TRUE(pureTupleVR(tuple));
    EXPECT_EQ(pureTupleVR(tuple)->size(), 2U);
    EXPECT_EQ(numberVR(pureTupleVR(tuple)->at(1))->toInt(), 2);
    EXPECT_TRUE(pureTupleVR(TupleValue::get(ctx)));
    EXPECT_EQ(TupleValue::get(ctx)->toString(), "()");
    EXPECT_EQ(value("( )"), TupleValue::get(ctx));
}

TEST_F(CoreValues, makesAPlainTupleFromTheFirstImpureElementOn) {
    const ValueRef node = value("[/a]");
    const ValueRef one = value("1");
    const std::vector<ValueRef> nullBehind = {one, node, ValueRef(), one};
    const TupleValueRef tuple = TupleValue::get(nullBehind, ctx);
    ASSERT_TRUE(tuple);
    EXPECT_FALSE(pureTupleVR(tuple));
    EXPECT_EQ(tuple->toString(), "(1 [/a] *INVALID* 1)");
    EXPECT_FALSE(value(tuple->toString()));
    const std::vector<ValueRef> nullBefore = {one, ValueRef(), node};
    EXPECT_FALSE(TupleValue::get(nullBefore, ctx));
    EXPECT_FALSE(TupleValue::get(ValueRef(), ctx));
}

TEST_F(CoreValues, givesOneTupleHoweverItIsMade) {
    const ValueRef a = value("a");
    const ValueRef b = value("b");
    const TupleValueRef tuple = TupleValue::get(a, b, a, b, a, ctx);
    EXPECT_EQ(tuple, value("(a b a b a)"));
    EXPECT_EQ(tuple, TupleValue::get(std::vector<ValueRef>{a, b, a, b, a}, ctx));
    EXPECT_EQ(tuple, TupleValue::get(std::vector<ValueRefBase<const Value>>{a, b, a, b, a}, ctx));
    const PureValueRef p = pureVR(a);
    const PureValueRef q = pureVR(b);
    EXPECT_EQ(tuple, PureTupleValue::get(p, q, p, q, p, ctx));
    EXPECT_EQ(tuple, PureTupleValue::get(std::vector<PureValueRef>{p, q, p, q, p}, ctx));
    EXPECT_EQ(PureTupleValue::get(p, ctx), TupleValue::get(a, ctx));
    EXPECT_EQ(PureTupleValue::get(p, q, ctx), TupleValue::get(a, b, ctx));
    EXPECT_EQ(PureTupleValue::get(p, q, p, ctx), TupleValue::get(a, b, a, ctx));
    EXPECT_EQ(PureTupleValue::get(p, q, p, q, ctx), TupleValue::get(a, b, a, b, ctx));
    EXPECT_FALSE(PureTupleValue::get(p, PureValueRef(), ctx));
}

TEST_F(CoreValues, makesPairsOfAMapInTheOrderOfItsKeys) {
    std::map<PureValueRef, PureValueRef> entries;
    for (const char *key : {"zebra", "7", "(1 2)", "apple", "-1"}) {
        entries[pureVR(value(key))] = pureVR(value("v"));
    }
    EXPECT_EQ(PureTupleValue::get(entries, ctx)->toString(), "((-1 v) (7 v) (apple v) (zebra v) ((1 2) v))");
    entries[pureVR(value("x"))] = PureValueRef();
    EXPECT_FALSE(PureTupleValue::get(entries, ctx));
}

TEST_F(CoreValues, checksTheIndexOfAnElement) {
    const PureTupleValueRef tuple = pureTupleVR(value("(a b)"));
    EXPECT_THROW(tuple->at(2), std::out_of_range);
    EXPECT_FALSE(tuple->maybeAt(2));
    EXPECT_EQ(tuple->maybeAt(1)->toString(), "b");
    EXPECT_THROW(static_cast<const TupleValue &>(*tuple).at(2), std::out_of_range);
    EXPECT_FALSE(static_cast<const TupleValue &>(*tuple).maybeAt(2));
    std::string all;
    for (const PureValueRef &element : *tuple) {
        all += element->toString();
    }
    EXPECT_EQ(all, "ab");
}

TEST_F(CoreValues, writesARunOfFourOrMoreAsARepeat) {
    EXPECT_EQ(value("(1 ^3)"), value("(1 1 1)"));
    EXPECT_EQ(value("(1 ^3)")->toString(), "(1 1 1)");
    EXPECT_EQ(value("(1 1 1 1)")->toString(), "(1 ^4)");
    EXPECT_EQ(value("(0 0 0 0 0)")->toString(), "(0 ^5)");
    EXPECT_EQ(value("(x x x x x x)")->toString(), "(x ^6)");
    EXPECT_EQ(value("(a x x x x b b b c)")->toString(), "(a x ^4 b b b c)");
    EXPECT_EQ(value("(x ^2 ^3)")->toString(), "(x ^4)") << "a repeat counts the element before it once";
    EXPECT_EQ(value("(x ^ +5)"), value("(x x x x x)"));
}

TEST_F(CoreValues, refusesBadRepeats) {
    for (const char *text : {"(^2)", "(1 ^0)", "(1 ^-1)", "(1 ^)", "(1 ^x)", "(1 ^2000000000)",
                             "(1 ^99999999999999999999999999999999)", "(() (^2))"}) {
        EXPECT_FALSE(value(text)) << text;
    }
}

TEST_F(CoreValues, refusesTextThatStartsNoValue) {
    for (const char *text : {"", " ", "*INVALID*", ")", "(", "(1", "(1 *)", "]", "[/a", "_a", "\xc3\xa4", "."}) {
        std::istringstream in(text);
        EXPECT_FALSE(Value::parse(in, ctx)) << text;
        EXPECT_TRUE(in.fail()) << text;
    }
}

TEST_F(CoreValues, givesNullForAStreamThatFailedBefore) {
    std::istringstream in("abc");
    in.setstate(std::ios::failbit);
    EXPECT_FALSE(Value::parse(in, ctx));
}

TEST_F(CoreValues, leavesTheStreamBehindTheValue) {
    std::istringstream in("abc(1 2)12\"q\"[/n]rest");
    for (const char *expected : {"abc", "(1 2)", "12", "q", "[/n]", "rest"}) {
        EXPECT_EQ(Value::parse(in, ctx)->toString(), expected);
    }
    EXPECT_FALSE(in.fail());
}

TEST_F(CoreValues, readsWhiteSpaceBetweenElements) {
    EXPECT_EQ(value("\n(\t1\n\n2(a)\"b\"c )"), value("(1 2 (a) b c)"));
}

TEST_F(CoreValues, acceptsTheDeepestTupleAndRefusesOneDeeper) {
    EXPECT_TRUE(value(nested(limits::kTupleDepth)));
    EXPECT_FALSE(value(nested(limits::kTupleDepth + 1)));
    EXPECT_FALSE(value(std::string(10000000, '(')));
    EXPECT_TRUE(value(nested(limits::kTupleDepth))) << "the count of the depth starts again after a refusal";
}

TEST_F(CoreValues, writesTuplesOfAnyDepth) {
    constexpr std::size_t kLevels = 100000;
    PureValueRef made = value("1");
    for (std::size_t level = 0; level < kLevels; ++level) {
        made = PureTupleValue::get(made, ctx);
    }
    EXPECT_EQ(made->toString(), std::string(kLevels, '(') + "1" + std::string(kLevels, ')'));
}

TEST_F(CoreValues, acceptsTheLongestRepeatAndRefusesOneLonger) {
    const ValueRef longest = value("(0 ^" + std::to_string(limits::kRepeatCount) + ")");
    ASSERT_TRUE(longest);
    EXPECT_EQ(tupleVR(longest)->size(), limits::kRepeatCount);
    EXPECT_FALSE(value("(0 ^" + std::to_string(limits::kRepeatCount + 1) + ")"));
}

TEST_F(CoreValues, printsARunBeyondTheRepeatCountAsSeveral) {
    const TupleValueRef tuple = TupleValue::get(std::vector<ValueRef>(limits::kRepeatCount + 10, value("0")), ctx);
    EXPECT_EQ(tuple->toString(), "(0 ^1048576 0 ^10)");
    EXPECT_EQ(value(tuple->toString()), tuple);
}

TEST_F(CoreValues, limitsWhatAllRepeatsOfOneTextMake) {
    std::string text = "(";
    for (std::size_t i = 0; i < limits::kRepeatedElements / limits::kRepeatCount; ++i) {
        text += " " + std::to_string(i) + " ^" + std::to_string(limits::kRepeatCount);
    }
    const std::string rest = std::to_string(limits::kRepeatedElements / limits::kRepeatCount + 1);
    EXPECT_TRUE(value(text + "(9 ^" + rest + "))")) << "the elements that are written are not counted";
    EXPECT_FALSE(value(text + "(9 ^" + rest + " ^2))"));
}

TEST_F(CoreValues, chargesShortRunsWithAllThatTheyStandFor) {
    // Runs of two and three are written in full, so that sixteen levels of them would make 43 million elements.
    std::string text = "0";
    for (int level = 0; level < 16; ++level) {
        text = "(" + text + " ^3)";
    }
    EXPECT_FALSE(Value::parse(text, ctx));
    std::string fewer = "0";
    for (int level = 0; level < 8; ++level) {
        fewer = "(" + fewer + " ^3)";
    }
    const ValueRef value = Value::parse(fewer, ctx);
    ASSERT_TRUE(value);
    EXPECT_EQ(Value::parse(value->toString(), ctx), value);
    EXPECT_TRUE(Value::parse("((0 ^4096) ^4096)", ctx));
}

TEST_F(CoreValues, printsMoreEqualElementsThanRepeatsMayMakeSoThatTheyReadBack) {
    const TupleValueRef inner = TupleValue::get(std::vector<ValueRef>(limits::kRepeatedElements, value("7")), ctx);
    // The second mention finds nothing left to repeat, but for the few elements that stand for the runs themselves.
    const TupleValueRef outer = TupleValue::get(inner, inner, ctx);
    const std::string text = TupleValue::get(inner, TupleValue::get(value("8"), ctx), ctx)->toString();
    EXPECT_EQ(text, "((7 ^1048576 7 ^1048576 7 ^1048576 7 ^1048576) (8))");
    EXPECT_EQ(value(outer->toString()), outer);
}

TEST_F(CoreValues, resolvesStringsAndNumbersAndPureTuplesToThemselves) {
    for (const char *text : {"abc", "12", "(a 1)"}) {
        const ValueRef plain = value(text);
        EXPECT_EQ(plain->resolve(nullptr), plain);
    }
}

TEST_F(CoreValues, readsManyTextsWithOneReader) {
    ValueTextReader reader(ctx);
    EXPECT_EQ(reader.parse("abc"), value("abc"));
    EXPECT_EQ(reader.parse("abc def"), value("abc"));
    EXPECT_FALSE(reader.parse("*"));
    EXPECT_EQ(reader.parse(" (1 2)"), value("(1 2)"));
    EXPECT_EQ(reader.parse("12"), value("12"));
    EXPECT_FALSE(reader.parse(""));
    EXPECT_FALSE(reader.parse("\"open"));
    const std::string_view part = std::string_view("12345").substr(0, 3);
    EXPECT_EQ(reader.parse(part), value("123"));
}

TEST_F(CoreValues, tellsHowManyElementsTheRepeatsMade) {
    ValueTextReader reader(ctx);
    EXPECT_EQ(reader.repeatedElements(), 0U);
    reader.parse("(1 2 3)");
    EXPECT_EQ(reader.repeatedElements(), 0U);
    reader.parse("(1 ^5)");
    EXPECT_EQ(reader.repeatedElements(), 4U);
    reader.parse("12");
    reader.parse("abc");
    EXPECT_EQ(reader.repeatedElements(), 4U);
    reader.parse("((1 ^3) (2 ^3))");
    EXPECT_EQ(reader.repeatedElements(), 8U);
}

TEST_F(CoreValuesDeathTest, assertsAContext) {
    const auto failed = ::testing::ExitedWithCode(1);
    EXPECT_EXIT(StringValue::get("a", nullptr), failed, "ORVO restriction");
    EXPECT_EXIT(NumberValue::get(1, nullptr), failed, "ORVO restriction");
    EXPECT_EXIT(TupleValue::get(nullptr), failed, "ORVO restriction");
    EXPECT_EXIT(NodeValue::get("/a", nullptr), failed, "ORVO restriction");
    EXPECT_EXIT(Value::parse("a", nullptr), failed, "ORVO restriction");
}

RC_GTEST_FIXTURE_PROP(CoreValues, readsAnyBytesWithoutHarm, (const std::string &text)) {
    const ValueRef first = value(text);
    if (first) {
        RC_ASSERT(value(first->toString()) == first);
    }
}

RC_GTEST_FIXTURE_PROP(CoreValues, readsTextOfTheFormsOwnCharactersWithoutHarm, ()) {
    const auto letter = rc::gen::elementOf(std::string("()^[]/\"\\ 01234567890xXpP.+-abcdefinfnanzero_"));
    const std::string text = *rc::gen::container<std::string>(letter);
    const ValueRef first = value(text);
    ValueTextReader reader(ctx);
    RC_ASSERT(reader.parse(text) == first);
    if (first) {
        RC_ASSERT(value(first->toString()) == first);
    }
}

RC_GTEST_FIXTURE_PROP(CoreValues, printsRunsOfAnyLengthsSoThatTheyReadBack, ()) {
    std::vector<ValueRef> elements;
    for (const int length : *rc::gen::container<std::vector<int>>(rc::gen::inRange(1, 9))) {
        const ValueRef element = NumberValue::get(*rc::gen::inRange(0, 3), ctx);
        elements.insert(elements.end(), static_cast<std::size_t>(length), element);
    }
    const TupleValueRef tuple = TupleValue::get(elements, ctx);
    RC_ASSERT(value(tuple->toString()) == tuple);
}

} // namespace
} // namespace orvo
