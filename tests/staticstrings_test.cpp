// The list of well-known texts.
#include <orvo/staticstrings.h>

#include <orvo/context.h>

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

namespace orvo {
namespace {

TEST(StaticStrings, areAllMade) {
    EXPECT_GE(staticStrings().size(), 900U);
    for (const StaticStringEntry &entry : staticStrings()) {
        ASSERT_NE(entry.string->get_ptr(), nullptr) << entry.name;
        EXPECT_FALSE(entry.string->text().empty()) << entry.name;
        EXPECT_FALSE(entry.string->get_ptr()->isRefCounted()) << entry.name;
        EXPECT_EQ(entry.string->get_ptr()->context(), nullptr) << entry.name;
    }
}

TEST(StaticStrings, haveNamesOfTheirOwnWithAKnownPrefix) {
    std::set<std::string> names;
    for (const StaticStringEntry &entry : staticStrings()) {
        EXPECT_TRUE(names.insert(entry.name).second) << entry.name << " stands twice in the list";
        const std::string prefix = std::string(entry.name).substr(0, 2);
        EXPECT_TRUE(prefix == "A_" || prefix == "P_" || prefix == "U_") << entry.name;
    }
}

TEST(StaticStrings, shareOneValuePerText) {
    std::map<std::string, const Value *> values;
    for (const StaticStringEntry &entry : staticStrings()) {
        const auto [place, isNew] = values.emplace(entry.string->text(), entry.string->get_ptr());
        EXPECT_EQ(place->second, entry.string->get_ptr()) << entry.name;
    }
    EXPECT_TRUE(A_EXTMEM_PORT_DATA == A_EXTMEM_WIRE_DATA);
    EXPECT_TRUE(U_LUT_BLOCK == A_LUT_BLOCK);
    EXPECT_FALSE(A_ADD_BLOCK == A_BLOCK_TYPE);
}

TEST(StaticStrings, areWhatEveryContextFindsForTheirTexts) {
    const ContextMgr mgr;
    for (const StaticStringEntry &entry : staticStrings()) {
        EXPECT_EQ(StringValue::get(entry.string->text(), mgr.context()).get_ptr(), entry.string->get_ptr());
    }
}

TEST(StaticStrings, convertToReferences) {
    const PureValueRef pure = A_ADD_BLOCK;
    const ValueRef plain = A_ADD_BLOCK;
    EXPECT_EQ(pure->toString(), "addBlock");
    EXPECT_EQ(plain.get_ptr(), A_ADD_BLOCK.get().get_ptr());
    EXPECT_EQ(A_ADD_BLOCK.text(), "addBlock");
}

} // namespace
} // namespace orvo
