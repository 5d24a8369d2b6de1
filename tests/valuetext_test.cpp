// The stream helpers under the text form of values.
#include "orvo/valuetext.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <sstream>

namespace orvo {
namespace {

TEST(MatchString, skipsWhiteSpaceAndReadsTheTextExactly) {
    std::istringstream in(" \n\tabcdef");
    EXPECT_TRUE(in >> MatchString("abc"));
    EXPECT_TRUE(in >> MatchString("def"));
    EXPECT_FALSE(in >> MatchString("g"));
}

TEST(MatchString, failsOnAnythingElse) {
    std::istringstream other("abx");
    EXPECT_FALSE(other >> MatchString("abc"));
    std::istringstream end("ab");
    EXPECT_FALSE(end >> MatchString("abc"));
}

TEST(TryReadNaked, readsTheLongestWord) {
    std::istringstream in("  ab_1c-d2 3x");
    std::string word;
    EXPECT_TRUE(in >> TryReadNaked(word));
    EXPECT_EQ(word, "ab_1c");
    EXPECT_TRUE(in >> TryReadNaked(word)) << "no letter is no failure";
    EXPECT_EQ(word, "");
    EXPECT_EQ(in.get(), '-');
    EXPECT_TRUE(in >> TryReadNaked(word));
    EXPECT_EQ(word, "d2");
    EXPECT_TRUE(in >> TryReadNaked(word));
    EXPECT_EQ(word, "");
    EXPECT_EQ(in.get(), '3');
}

TEST(TryReadNaked, endsAWordAtTheEndOfInputWithoutFailure) {
    std::istringstream in("word");
    std::string word;
    EXPECT_TRUE(in >> TryReadNaked(word));
    EXPECT_EQ(word, "word");
    EXPECT_TRUE(in >> TryReadNaked(word));
    EXPECT_EQ(word, "");
}

TEST(WriteWithDelim, escapesTheDelimiterAndBackslashes) {
    std::ostringstream out;
    out << WriteWithDelim(']', "a]b\\c\"");
    EXPECT_EQ(out.str(), "a\\]b\\\\c\"]");
}

TEST(ReadWriteWithDelim, failsWithoutItsEnd) {
    std::string text;
    std::istringstream open("abc");
    EXPECT_FALSE(open >> ReadWriteWithDelim('"', text));
    std::istringstream escaped("abc\\\"");
    EXPECT_FALSE(escaped >> ReadWriteWithDelim('"', text));
}

RC_GTEST_PROP(ReadWriteWithDelim, readsBackWhatWriteWithDelimWrote, (const std::string &text)) {
    const char delim = *rc::gen::element('"', ']', 'x');
    std::stringstream stream;
    stream << WriteWithDelim(delim, text) << "tail";
    std::string back;
    RC_ASSERT(static_cast<bool>(stream >> ReadWriteWithDelim(delim, back)));
    RC_ASSERT(back == text);
    std::string tail;
    stream >> tail;
    RC_ASSERT(tail == "tail");
}

TEST(RadixTree, walksKeysByTheirCharacters) {
    internal::RadixTree<std::string, int> tree;
    tree.insert("a", 1);
    tree.insert("abc", 2);
    const auto *a = tree.root().child('a');
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(a->hasValue);
    EXPECT_EQ(a->value, 1);
    const auto *ab = a->child('b');
    ASSERT_NE(ab, nullptr);
    EXPECT_FALSE(ab->hasValue);
    EXPECT_EQ(ab->child('c')->value, 2);
    EXPECT_EQ(ab->child('d'), nullptr);
    EXPECT_EQ(tree.root().child('b'), nullptr);
}

TEST(NakedWord, isALetterThenLettersDigitsAndUnderscores) {
    for (const char *word : {"a", "Z", "a_1", "abc"}) {
        EXPECT_TRUE(internal::isNakedWord(word)) << word;
    }
    for (const char *word : {"", "_a", "1a", "a b", "a-", "\xc3\xa4", "a\xc3\xa4"}) {
        EXPECT_FALSE(internal::isNakedWord(word)) << word;
    }
}

} // namespace
} // namespace orvo
