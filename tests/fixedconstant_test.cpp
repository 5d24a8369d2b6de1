// Constants as integers of their types.
#include "orvo/fixedconstant.h"

#include <orvo/constmulttype.h>
#include <orvo/context.h>

#include <gtest/gtest.h>

#include <cmath>

namespace orvo {
namespace {

class FixedConstantTest : public ::testing::Test {
  protected:
    long units(double number, const NumTypeSpec &type) {
        return internal::unitsOf(*NumberValue::get(number, mgr.context()), type).get_si();
    }
    ContextMgr mgr;
};

TEST_F(FixedConstantTest, roundsHalvesAwayFromZero) {
    EXPECT_EQ(units(2.5, NumTypeSpec::sfixed(8, 0)), 3);
    EXPECT_EQ(units(-2.5, NumTypeSpec::sfixed(8, 0)), -3);
    EXPECT_EQ(units(2.5, NumTypeSpec::sfixed(8, 1)), 5);
    EXPECT_EQ(units(10, NumTypeSpec::ufixed(6, -2)), 3);
}

TEST_F(FixedConstantTest, saturates) {
    EXPECT_EQ(units(200, NumTypeSpec::sfixed(8, 0)), 127);
    EXPECT_EQ(units(-200, NumTypeSpec::sfixed(8, 0)), -128);
    EXPECT_EQ(units(300, NumTypeSpec::ufixed(8, 0)), 255);
    EXPECT_EQ(units(-3, NumTypeSpec::ufixed(8, 0)), 0);
    EXPECT_EQ(units(3, NumTypeSpec::sfixed(1, 0)), 0);
    EXPECT_EQ(units(-3, NumTypeSpec::sfixed(1, 0)), -1);
}

TEST_F(FixedConstantTest, hasNothingForWhatIsNoSuchNumber) {
    EXPECT_EQ(units(std::nan(""), NumTypeSpec::sfixed(8, 0)), 0);
    EXPECT_EQ(units(2, NumTypeSpec::sfloatIEEE(23, 8)), 0);
    EXPECT_EQ(units(2, NumTypeSpec()), 0);
}

} // namespace
} // namespace orvo
