// Handles of models that were scheduled elsewhere name each scalar of their signals.
#include "gen/scheduledmodels.h"

#include "support/simulatorfixture.h"
#include "support/typetable.h"

namespace orvo::gen {
namespace {

class ScheduledModelsTest : public test::SimulatorFixture {
  protected:
    PureValueRef type(const char *text) { return value(testing::typeText(text)); }
};

TEST_F(ScheduledModelsTest, namesTheScalarsOfEachSignal) {
    const ScheduledModelHandle made =
        scheduledModel(value("alpha"), {{value("x"), type("[2] c s4.0")}, {value("e"), type("u1.0")}},
                       {{value("y"), type("{s3.0, [2] u2.0}")}}, mgr.context());
    ASSERT_TRUE(made.valid());
    EXPECT_EQ(made.getInputNames().size(), 5U);
    EXPECT_EQ(made.getOutputNames().size(), 3U);
    const CompoundDecorIndex path = CompoundDecorIndex::createVectorIndex(1)
                                    << CompoundDecorIndex::createComplexIndex(RealOrImaginary::Real);
    EXPECT_EQ(made.getCompoundInputIndexName(value("x"), path), value("(x 2)"));
    EXPECT_EQ(made.getScheduledModelTypes().getInputPortType(value("(x 2)")), type("s4.0"));
    EXPECT_EQ(made.getScheduledModelTypes().getInputPortType(value("e")), type("u1.0"));
    EXPECT_EQ(made.getScheduledModelTypes().getOutputPortType(value("(y 2)")), type("u2.0"));
    EXPECT_EQ(made.getOriginalModelTypes()->getOutputPortType(value("y")), type("{s3.0, [2] u2.0}"));
}

} // namespace
} // namespace orvo::gen
