// Every block type says what becomes of each kind of compound signals.
#include <orvo/unrolling.h>

#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

#include <string>

namespace orvo {
namespace {

TEST(UnrollTable, speaksOfEveryKindAtEveryTypeOfTheCatalogue) {
    ContextMgr mgr;
    std::size_t types = 0;
    for (const auto &[name, text] : getBlocksInfo().mappings()) {
        if (!getBlocksInfo().blockExists(name)) {
            continue;
        }
        const UnrollFates fates = unrollFates(PureValueRef(StringValue::get(text, mgr.context())).get_ptr());
        for (const UnrollFate &fate : {fates.records, fates.vectors, fates.complexNumbers}) {
            ASSERT_NE(fate.summary, nullptr) << name;
            EXPECT_NE(std::string(fate.summary), "") << name;
        }
        ++types;
    }
    EXPECT_GE(types, 280U);
}

TEST(UnrollTable, tellsWhetherAPassTakesTheBlockApart) {
    const UnrollFates sum = unrollFates(A_ADD_BLOCK.get_ptr());
    EXPECT_TRUE(sum.vectors.comesApart);
    EXPECT_TRUE(sum.complexNumbers.comesApart);
    EXPECT_FALSE(sum.records.comesApart);
    EXPECT_TRUE(unrollFates(A_DELAY_BLOCK.get_ptr()).records.comesApart);
    EXPECT_FALSE(unrollFates(A_VPACK_BLOCK.get_ptr()).vectors.comesApart);
}

TEST(UnrollTable, saysNothingOfWhatIsNoBlockType) {
    ContextMgr mgr;
    EXPECT_EQ(unrollFates(nullptr).vectors.summary, nullptr);
    EXPECT_EQ(unrollFates(Value::parse("(a b)", mgr.context()).get_ptr()).records.summary, nullptr);
    EXPECT_EQ(unrollFates(A_ADD_TYPE.get_ptr()).complexNumbers.summary, nullptr);
}

} // namespace
} // namespace orvo
