// Types as trees of scalars.
#include "sim/signaltype.h"

#include "support/typetable.h"

#include <orvo/context.h>

#include <gtest/gtest.h>

namespace orvo::sim {
namespace {

class SignalTypeTest : public ::testing::Test {
  protected:
    const SignalType *of(const std::string &shortForm) {
        return types.of(PureValueRef(Value::parse(testing::typeText(shortForm), mgr.context())));
    }
    ContextMgr mgr;
    SignalTypes types{mgr.context()};
};

TEST_F(SignalTypeTest, takesNumbersApart) {
    const SignalType &scalar = *of("s8.4");
    EXPECT_EQ(scalar.leaves, 1U);
    EXPECT_EQ(scalar.scalar, (ScalarType{12, 4, true, false}));
    const SignalType &matrix = *of("[3][2] c u4.0");
    EXPECT_EQ(matrix.dims, (std::vector<std::uint32_t>{3, 2}));
    EXPECT_EQ(matrix.element, 2U);
    EXPECT_EQ(matrix.lanes(), 6U);
    EXPECT_EQ(matrix.leaves, 12U);
    EXPECT_EQ(of("float(23,8)")->scalar, (ScalarType{32, 0, false, true, 8}));
    EXPECT_EQ(of("fplib(23,8)")->scalar.width, 34U);
}

TEST_F(SignalTypeTest, takesRecordsApartInTheOrderOfTheirFields) {
    const SignalType &record = *of("[2] {s8.0,{[2] u1.0,c s4.0}}");
    EXPECT_TRUE(record.isRecord());
    EXPECT_EQ(record.element, 5U);
    EXPECT_EQ(record.leaves, 10U);
    std::vector<ScalarType> scalars;
    appendScalars(record, scalars);
    ASSERT_EQ(scalars.size(), 10U);
    EXPECT_EQ(scalars[0].width, 8U);
    EXPECT_EQ(scalars[2].width, 1U);
    EXPECT_EQ(scalars[4].width, 4U);
    EXPECT_EQ(scalars[5], scalars[0]);
}

TEST_F(SignalTypeTest, readsEachTypeOnce) {
    EXPECT_EQ(of("[2] s8.0"), of("[2] s8.0"));
    EXPECT_NE(of("[2] s8.0"), of("[2] u8.0"));
}

TEST_F(SignalTypeTest, goesADimensionIn) {
    const SignalType *matrix = of("[3][2] s8.0");
    const SignalType *row = types.inner(*matrix);
    EXPECT_EQ(row->dims, (std::vector<std::uint32_t>{2}));
    EXPECT_EQ(row->leaves, 2U);
    EXPECT_EQ(types.inner(*types.inner(*row)), nullptr);
}

TEST_F(SignalTypeTest, givesNothingForNoType) {
    EXPECT_EQ(types.of({}), nullptr);
    EXPECT_EQ(types.of(PureValueRef(Value::parse("(a b)", mgr.context()))), nullptr);
    EXPECT_EQ(types.of(PureValueRef(
                  Value::parse("(typeVector 1000000 (typeVector 1000000 (typeSFixed 8 0)))", mgr.context()))),
              nullptr);
}

} // namespace
} // namespace orvo::sim
