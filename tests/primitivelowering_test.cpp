// The whole way from drawn designs to primitives: designs by chance compute the same behind the preset, and nothing
// that is made of primitives is left.
#include "support/lowering.h"
#include "support/loweringbychance.h"
#include "support/rewritefixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
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

class PrimitiveLoweringTest : public test::RewriteFixture {
  protected:
    PrimitiveLoweringTest() : RewriteFixture("DecomposeCompositePass") {
        model.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    }
    void lower() {
        const auto preset = std::find_if(test::routes().begin(), test::routes().end(),
                                         [](const test::Route &route) { return route.primitives; });
        ASSERT_NE(preset, test::routes().end());
        PassSchedulerState state;
        test::LoweringNotes notes;
        EXPECT_TRUE(test::lower(design, preset->passes, state, notes));
    }
};

TEST_F(PrimitiveLoweringTest, foldsTheCastOfAProductOfConstants) {
    Block &inner = reading("inner", "multBlock", {&constant("c", "s4.0", "3"), &constant("d", "u4.0", "5")});
    Wire &x = input(model, "x", "s8.0");
    output(model, "o", out(reading("outer", "multBlock", {&x, &out(cast("cast", out(inner), "s5.0"))})));
    const std::unique_ptr<Design> before = test::copyOf(design);
    lower();
    test::expectSameBehaviour(*before, design);
    std::size_t products = 0;
    for (const Block &block : model) {
        if (block.type() == A_MULT_BLOCK.get_ptr()) {
            ++products;
            const Wire &factor = *block.getPort(value("1"))->peekWire();
            EXPECT_EQ(factor.getBlock().type()->toString(), A_CONST_BLOCK.text());
        }
    }
    EXPECT_EQ(products, 1U);
}

} // namespace
} // namespace orvo
