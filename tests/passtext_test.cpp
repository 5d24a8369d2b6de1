// Lists of passes as text: what is read, where a wrong text is wrong, and that printing and reading are inverse.
#include "driver/passtext.h"

#include <orvo/context.h>
#include <orvo/limits.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace orvo::driver {
namespace {

class PassTexts : public ::testing::Test {
  protected:
    std::vector<PassText> read(std::string_view text) {
        std::vector<PassText> passes;
        const auto error = parsePassText(text, mGuard.context(), passes);
        EXPECT_FALSE(error.has_value()) << (error ? error->reason : "");
        return passes;
    }
    /// "line:column reason" of a wrong text.
    std::string errorOf(std::string_view text) {
        std::vector<PassText> passes;
        const auto error = parsePassText(text, mGuard.context(), passes);
        if (!error) {
            return "no error";
        }
        EXPECT_TRUE(passes.empty());
        return std::to_string(error->position.line) + ":" + std::to_string(error->position.column) + " " +
               error->reason;
    }
    std::string again(std::string_view text) { return printPassTexts(read(text)); }

    ContextMgr mGuard;
};

TEST_F(PassTexts, readsNamesApartByCommasAndNewLines) {
    EXPECT_EQ(again("A, B,C"), "A, B, C");
    EXPECT_EQ(again("A\nB\n\n  C\n"), "A, B, C");
    EXPECT_EQ(again("A,\nB\n, C,"), "A, B, C");
    EXPECT_EQ(again("A\r\nB\r\n"), "A, B");
}

TEST_F(PassTexts, readsAnEmptyListFromNothingButBlanksAndComments) {
    EXPECT_EQ(again(""), "");
    EXPECT_EQ(again(" \n # nothing\n\t"), "");
}

TEST_F(PassTexts, skipsCommentsToTheEndOfTheLine) {
    EXPECT_EQ(again("A # one, two {\nB # last"), "A, B");
    EXPECT_EQ(again("A{ # in braces\n P = 1 # more\n}"), "A{P=1}");
}

TEST_F(PassTexts, readsParametersOfEachKind) {
    EXPECT_EQ(again("A{P_X=word, P_Y=\"two words\", P_Z=-3, P_T=(1 2 (a)), P_R=(0 ^5)}"),
              "A{P_X=word, P_Y=\"two words\", P_Z=-3, P_T=(1 2 (a)), P_R=(0 ^5)}");
    EXPECT_EQ(again("A{}"), "A");
    EXPECT_EQ(again("A {P=1,}"), "A{P=1}");
    EXPECT_EQ(again("A{P=\"a,}#\"}"), "A{P=\"a,}#\"}");
}

TEST_F(PassTexts, readsPassesThatRunInTurns) {
    EXPECT_EQ(again("A, repeat(B, C{P=1}), D"), "A, repeat(B, C{P=1}), D");
    EXPECT_EQ(again("repeat (\n B # one\n C\n)\nrepeat(D,)"), "repeat(B, C), repeat(D)");
    const std::vector<PassText> passes = read("A, repeat(B, C, D)");
    ASSERT_EQ(passes.size(), 4U);
    EXPECT_TRUE(passes[1].beginsTurns && !passes[1].endsTurns);
    EXPECT_FALSE(passes[2].beginsTurns || passes[2].endsTurns);
    EXPECT_TRUE(passes[3].endsTurns && !passes[3].beginsTurns);
    // A pass may have the name.
    EXPECT_EQ(again("repeat, A"), "repeat, A");
}

TEST_F(PassTexts, turnsThatAreCutOffRunOnce) {
    std::vector<PassText> passes = read("repeat(A, B), C");
    EXPECT_EQ(printPassTexts({passes.begin() + 1, passes.end()}), "B, C");
    EXPECT_EQ(printPassTexts({passes.begin(), passes.begin() + 1}), "A");
}

TEST_F(PassTexts, whatIsStillToRunFinishesTheTurnAndBeginsAnew) {
    const std::vector<PassText> passes = read("A, repeat(B, C, D), E, repeat(F), G");
    const auto from = [&passes](std::size_t first) { return printPassTexts(passesFrom(passes, first)); };
    EXPECT_EQ(from(0), "A, repeat(B, C, D), E, repeat(F), G");
    EXPECT_EQ(from(1), "repeat(B, C, D), E, repeat(F), G");
    EXPECT_EQ(from(2), "C, D, repeat(B, C, D), E, repeat(F), G");
    EXPECT_EQ(from(3), "D, repeat(B, C, D), E, repeat(F), G");
    EXPECT_EQ(from(4), "E, repeat(F), G");
    EXPECT_EQ(from(5), "repeat(F), G");
    EXPECT_EQ(from(7), "");
    // Turns whose first was cut off run once.
    EXPECT_EQ(printPassTexts(passesFrom({passes.begin() + 2, passes.end()}, 1)), "D, E, repeat(F), G");
}

TEST_F(PassTexts, keepsWhatStoodInTheListBefore) {
    std::vector<PassText> passes = read("A");
    EXPECT_FALSE(parsePassText("B", mGuard.context(), passes));
    EXPECT_EQ(printPassTexts(passes), "A, B");
    EXPECT_TRUE(parsePassText("C, ?", mGuard.context(), passes));
    EXPECT_EQ(printPassTexts(passes), "A, B");
}

TEST_F(PassTexts, remembersWherePassesAndParametersStand) {
    const std::vector<PassText> passes = read("A,\n  B{P=1,\n Q=2}");
    ASSERT_EQ(passes.size(), 2U);
    EXPECT_EQ(passes[1].position, (TextPosition{2, 3}));
    ASSERT_EQ(passes[1].paramPositions.size(), 2U);
    EXPECT_EQ(passes[1].paramPositions[0], (TextPosition{2, 5}));
    EXPECT_EQ(passes[1].paramPositions[1], (TextPosition{3, 2}));
}

TEST_F(PassTexts, tellsWhereATextIsWrong) {
    EXPECT_EQ(errorOf(","), "1:1 expected the name of a pass, found ','");
    EXPECT_EQ(errorOf("A B"), "1:3 expected a comma, found 'B'");
    EXPECT_EQ(errorOf("A\n1"), "2:1 expected the name of a pass, found '1'");
    EXPECT_EQ(errorOf("A{"), "1:3 expected the name of a parameter, found the end of the text");
    EXPECT_EQ(errorOf("A{P"), "1:4 expected '=', found the end of the text");
    EXPECT_EQ(errorOf("A{P="), "1:5 the value of 'P' is not well written");
    EXPECT_EQ(errorOf("A{P=1 2}"), "1:7 expected ',' or '}', found '2'");
    EXPECT_EQ(errorOf("A{P=(1}"), "1:5 the value of 'P' is not well written");
    EXPECT_EQ(errorOf("A{P=1, P=2}"), "1:8 parameter 'P' is given twice");
    EXPECT_EQ(errorOf("A{P=[/m]}"), "1:5 the value of 'P' refers to a node of a design, which a parameter cannot");
    EXPECT_EQ(errorOf("repeat("), "1:8 expected the name of a pass, found the end of the text");
    EXPECT_EQ(errorOf("repeat()"), "1:8 expected the name of a pass, found ')'");
    EXPECT_EQ(errorOf("repeat(A"), "1:9 expected ')', found the end of the text");
    EXPECT_EQ(errorOf("repeat(A B)"), "1:10 expected a comma, found 'B'");
    EXPECT_EQ(errorOf("repeat(A) B"), "1:11 expected a comma, found 'B'");
    EXPECT_EQ(errorOf("repeat(A, repeat(B))"), "1:11 a repeat stands in another");
    EXPECT_EQ(errorOf("A)"), "1:2 expected a comma, found ')'");
    EXPECT_EQ(errorOf("A\x01"), "1:2 expected a comma, found an odd character");
    EXPECT_EQ(errorOf(std::string_view("\0", 1)), "1:1 expected the name of a pass, found an odd character");
}

TEST_F(PassTexts, refusesATextBeyondTheLimitOnly) {
    std::string text(limits::kPassTextBytes, ' ');
    EXPECT_EQ(again(text), "");
    text += ' ';
    EXPECT_EQ(errorOf(text), "1:1 the text is longer than 1048576 bytes");
}

TEST_F(PassTexts, endsSoonForValuesThatAskForTooMuch) {
    EXPECT_EQ(errorOf("A{P=(0 ^2000000000)}"), "1:5 the value of 'P' is not well written");
    EXPECT_EQ(errorOf("A{P=" + std::string(100000, '(')), "1:5 the value of 'P' is not well written");
}

TEST_F(PassTexts, findsUnknownPassesAndParametersWithTheNearestName) {
    EXPECT_FALSE(findUnknown(read("DeadBlockPass, DumpXMLPass{P_CLOBBER=true}")));
    const auto pass = findUnknown(read("DeadBlockPass, DedBlockPass"));
    ASSERT_TRUE(pass);
    EXPECT_EQ(pass->suggestion, "DeadBlockPass");
    EXPECT_EQ(pass->param, "");
    EXPECT_EQ(pass->position, (TextPosition{1, 16}));
    const auto param = findUnknown(read("DumpXMLPass{P_FILENAM=x}"));
    ASSERT_TRUE(param);
    EXPECT_EQ(param->param, "P_FILENAM");
    EXPECT_EQ(param->suggestion, "P_FILENAME");
}

std::string arbitraryName() {
    return "P" + *rc::gen::container<std::string>(rc::gen::elementOf(std::string("abzAZ09_")));
}

PureValueRef arbitraryValue(Context *context, int depth) {
    const int kind = *rc::gen::inRange(0, depth > 0 ? 3 : 2);
    if (kind == 0) {
        return StringValue::get(*rc::gen::arbitrary<std::string>(), context);
    }
    if (kind == 1) {
        return pureVR(Value::parse(std::to_string(*rc::gen::arbitrary<int>()), context));
    }
    std::vector<PureValueRef> elements;
    for (int count = *rc::gen::inRange(0, 4); count > 0; --count) {
        elements.push_back(arbitraryValue(context, depth - 1));
    }
    return pureVR(PureTupleValue::get(elements, context));
}

RC_GTEST_PROP(PassText, readsBackWhatItPrints, ()) {
    ContextMgr guard;
    std::vector<PassText> passes;
    for (int count = *rc::gen::inRange(0, 4); count > 0; --count) {
        PassText pass;
        pass.name = arbitraryName();
        std::set<std::string> names;
        for (int params = *rc::gen::inRange(0, 4); params > 0; --params) {
            const std::string name = arbitraryName();
            if (names.insert(name).second) {
                pass.params.emplace_back(name, arbitraryValue(guard.context(), 2));
            }
        }
        passes.push_back(pass);
    }
    std::vector<PassText> read;
    const auto error = parsePassText(printPassTexts(passes), guard.context(), read);
    RC_ASSERT(!error.has_value());
    RC_ASSERT(read.size() == passes.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
        RC_ASSERT(read[i].name == passes[i].name);
        RC_ASSERT(read[i].params.size() == passes[i].params.size());
        for (std::size_t j = 0; j < read[i].params.size(); ++j) {
            RC_ASSERT(read[i].params[j].first == passes[i].params[j].first);
            // Values of one context are equal when they are the same object.
            RC_ASSERT(read[i].params[j].second == passes[i].params[j].second);
        }
    }
}

} // namespace
} // namespace orvo::driver
