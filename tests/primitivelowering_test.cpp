// The whole way from drawn designs to primitives: designs by chance compute the same behind the preset, and nothing
// that is made of primitives is left.
#include "support/loweringbychance.h"

#include <gtest/gtest.h>

#include <vector>

namespace orvo {
namespace {

TEST(PrimitiveLowering, leavesDesignsAsTheyCompute) {
    std::vector<test::Route> routes = test::routes();
    std::erase_if(routes, [](const test::Route &route) { return !route.primitives; });
    ASSERT_EQ(routes.size(), 1U);
    const test::Tried tried = test::lowerByChance("lowering to primitives", routes);
    EXPECT_LE(20 * tried.withRefusals, 200 + tried.all);
}

} // namespace
} // namespace orvo
