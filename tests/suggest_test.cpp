// The edit distance, and which candidate a wrong name gets.
#include "driver/suggest.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

namespace orvo::driver {
namespace {

const std::vector<std::string> kPasses = {"DeadBlockPass", "DeadBlockLatePass", "DumpXMLPass", "ElideTerminalPass"};

TEST(EditDistance, countsInsertionsDeletionsReplacementsAndSwaps) {
    EXPECT_EQ(editDistance("", ""), 0U);
    EXPECT_EQ(editDistance("", "abc"), 3U);
    EXPECT_EQ(editDistance("abc", "abcd"), 1U);
    EXPECT_EQ(editDistance("abc", "ac"), 1U);
    EXPECT_EQ(editDistance("abc", "axc"), 1U);
    EXPECT_EQ(editDistance("abcd", "abdc"), 1U);
    EXPECT_EQ(editDistance("kitten", "sitting"), 3U);
}

TEST(EditDistance, takesBothCasesForTheSame) { EXPECT_EQ(editDistance("deadblock", "DeadBlock"), 0U); }

RC_GTEST_PROP(EditDistance, isSymmetricAndBounded, (const std::string &a, const std::string &b)) {
    const std::size_t distance = editDistance(a, b);
    RC_ASSERT(distance == editDistance(b, a));
    RC_ASSERT(distance <= std::max(a.size(), b.size()));
    RC_ASSERT(distance >= std::max(a.size(), b.size()) - std::min(a.size(), b.size()));
    RC_ASSERT(editDistance(a, a) == 0U);
}

TEST(Suggest, findsTheNearestName) {
    EXPECT_EQ(suggest("DeadBlokPass", kPasses), "DeadBlockPass");
    EXPECT_EQ(suggest("deadblocklatepass", kPasses), "DeadBlockLatePass");
    EXPECT_EQ(suggest("DmupXMLPass", kPasses), "DumpXMLPass");
}

TEST(Suggest, completesABeginningWithTheShortestName) {
    EXPECT_EQ(suggest("Dead", kPasses), "DeadBlockPass");
    EXPECT_EQ(suggest("elide", kPasses), "ElideTerminalPass");
}

TEST(Suggest, saysNothingWhenNothingIsNear) {
    EXPECT_EQ(suggest("Scheduling", kPasses), "");
    EXPECT_EQ(suggest("", kPasses), "");
    EXPECT_EQ(suggest("x", kPasses), "");
    EXPECT_EQ(suggest("DeadBlockPass", {}), "");
}

TEST(Suggest, endsSoonForAVeryLongText) { EXPECT_EQ(suggest(std::string(1 << 20, 'x'), kPasses), ""); }

TEST(Suggest, prefersTheFirstOfEquallyNearNames) { EXPECT_EQ(suggest("abx", {"aby", "abz"}), "aby"); }

} // namespace
} // namespace orvo::driver
