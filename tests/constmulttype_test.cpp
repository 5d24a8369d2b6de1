// The types of products by constants.
#include <orvo/constmulttype.h>

#include "support/typetable.h"

#include <orvo/context.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

#include <sstream>

namespace orvo {
namespace {

class ConstMultTypeTest : public ::testing::Test {
  protected:
    ValueRef value(const std::string &text) { return text.empty() ? ValueRef() : Value::parse(text, mgr.context()); }
    std::string type(const std::string &input, const std::string &constant, const std::string &precision = "") {
        const NumTypeSpec in(value(orvo::testing::typeText(input)), mgr.context());
        const NumTypeSpec out = util::constantMultiplierOutputType(in, value(constant), value(precision));
        return readableType(PureValueRef(out.toValue(mgr.context())).get_ptr());
    }
    ContextMgr mgr;
};

TEST_F(ConstMultTypeTest, isTheFullProductOfFixedPoint) {
    EXPECT_EQ(type("s8.4", "3"), "s10.4");
    EXPECT_EQ(type("u8.0", "-3"), "s11.0");
    EXPECT_EQ(type("u8.0", "0x8p-4"), "u8.1");
}

TEST_F(ConstMultTypeTest, isTheInputsOfFloats) {
    EXPECT_EQ(type("float(10,5)", "3"), "float(10,5)");
    EXPECT_EQ(type("float(10,5)", ""), "float(10,5)");
}

TEST_F(ConstMultTypeTest, isWhatThePrecisionTells) {
    const std::string specified(A_TYPE_SPECIFIED.text());
    const std::string fraction(A_FRACTION_SPECIFIED.text());
    EXPECT_EQ(type("s8.4", "3", "(" + specified + " (typeUFixed 4 1))"), "u4.1");
    EXPECT_EQ(type("[3] s8.4", "3", "(" + specified + " (typeUFixed 4 1))"), "[3] u4.1");
    EXPECT_EQ(type("s8.4", "3", "(" + fraction + " (typeUFixed 4 1))"), "s13.1");
    EXPECT_EQ(type("s8.4", "3", "(" + fraction + " (typeSFloatIEEE 23 8))"), "?");
    EXPECT_EQ(type("s8.4", "3", "(" + specified + ")"), "s10.4");
    EXPECT_EQ(type("s8.4", "3", "(other (typeUFixed 4 1))"), "s10.4");
}

TEST_F(ConstMultTypeTest, isUnknownWithoutAnInputOrANumber) {
    EXPECT_FALSE(util::constantMultiplierOutputType(NumTypeSpec(), value("3")).valid());
    EXPECT_FALSE(util::constantMultiplierOutputType(NumTypeSpec::sfixed(8, 0), ValueRef()).valid());
}

} // namespace
} // namespace orvo
