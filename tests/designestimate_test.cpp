// Sums of models: hierarchy, instances, and the longest way of a signal.
#include "generator/designestimate.h"

#include "support/estimatefixture.h"

#include <orvo/context.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo::generator {
namespace {

class DesignEstimateTest : public orvo::test::EstimateFixture {
  protected:
    ModelEstimate of(const DesignEstimate &all, const std::string &name) {
        for (const ModelEstimate &one : all.models) {
            if (one.name == value(name)) {
                return one;
            }
        }
        ADD_FAILURE() << "no model " << name;
        return {};
    }
};

TEST_F(DesignEstimateTest, hasNothingForAnEmptyDesign) {
    Design empty(mgr.context());
    const DesignEstimate all = estimateLowered(empty, topModels(empty));
    EXPECT_TRUE(all.models.empty());
    EXPECT_EQ(all.total, Usage());
}

TEST_F(DesignEstimateTest, takesTheLongestOfSeveralWays) {
    Wire &a = input(model, "a", "s8.0");
    Block &slow = unary(model, "slow", "delayBlock", a, {{"delayLength", "5"}});
    Block &neg = unary(model, "neg", "negBlock", out(slow));
    output(model, "o", out(neg));
    output(model, "p", out(unary(model, "other", "negBlock", a)));
    const DesignEstimate all = estimateLowered(design, topModels(design));
    EXPECT_EQ(all.total.latency, 6);
    EXPECT_EQ(all.total.luts, 32 + 9 + 9);
    EXPECT_EQ(all.uncounted, 0);
}

TEST_F(DesignEstimateTest, goesOnceThroughALoop) {
    Wire &a = input(model, "a", "s8.0");
    Block &sum = block(model, "sum", "addBlock", {{"addNoGrowth", "true"}});
    Wire::create(sum, A_PRIM_WIRE_OUT);
    Block &state = unary(model, "state", "registerBlock", out(sum));
    sum.setParam(value("0"), a);
    sum.setParam(value("1"), pinned(out(state), "s8.0"));
    output(model, "o", out(unary(model, "neg", "negBlock", out(sum))));
    EXPECT_EQ(estimateLowered(design, topModels(design)).total.latency, 1 + 1 + 1);
}

TEST_F(DesignEstimateTest, countsAModelInEachOfItsPlaces) {
    Model &below = negator("below");
    Model &middle = *Model::create(design, "middle");
    Block &in = *Block::create(middle, "in", A_INPUT_BLOCK);
    Wire &x = *Wire::create(in, value("x"));
    Wire &first = instance(middle, "i1", below, x);
    Block::create(middle, "out", A_OUTPUT_BLOCK)->setParam(value("y"), instance(middle, "i2", below, first));
    output(model, "o", instance(model, "m1", middle, input(model, "a", "s8.0")));
    output(model, "p", instance(model, "m2", middle, input(model, "b", "s8.0")));
    const DesignEstimate all = estimateLowered(design, topModels(design));
    EXPECT_EQ(of(all, "top").instances, 1);
    EXPECT_EQ(of(all, "middle").instances, 2);
    EXPECT_EQ(of(all, "below").instances, 4);
    // The second negation in a row is a bit wider.
    EXPECT_EQ(of(all, "middle").usage.luts, 9 + 10);
    EXPECT_EQ(of(all, "below").usage.luts, 10);
    EXPECT_EQ(all.total.luts, 2 * (9 + 10));
    EXPECT_EQ(all.total.latency, 2);
}

TEST_F(DesignEstimateTest, tellsInstancesOfDifferentTypesApart) {
    Model &below = negator("below");
    output(model, "o", instance(model, "i1", below, input(model, "a", "s4.0")));
    output(model, "p", instance(model, "i2", below, input(model, "b", "s8.0")));
    const DesignEstimate all = estimateLowered(design, topModels(design));
    EXPECT_EQ(all.total.luts, 5 + 9);
    EXPECT_EQ(of(all, "below").usage.luts, 9);
}

TEST_F(DesignEstimateTest, sumsModelsThatNothingInstantiates) {
    output(model, "o", out(unary(model, "neg", "negBlock", input(model, "a", "s8.0"))));
    Model &other = *Model::create(design, "other");
    output(other, "o", out(unary(other, "neg", "negBlock", input(other, "a", "s40.0"))));
    const DesignEstimate all = estimateLowered(design, topModels(design));
    EXPECT_EQ(all.total.luts, 9 + 41);
    EXPECT_EQ(all.total.latency, 2);
}

TEST_F(DesignEstimateTest, tellsModelsWithoutEndThatNoTopLeadsTo) {
    // Two that contain each other, a third below them, and one that contains itself below the top.
    std::vector<Model *> ring;
    for (const char *name : {"a", "b", "below", "self"}) {
        ring.push_back(Model::create(design, name));
    }
    const auto place = [](Model &in, const char *name, Model &of) {
        Block::create(in, name, A_MODEL_BLOCK)->setParam(A_MODEL_NODE, of);
    };
    place(*ring[0], "i", *ring[1]);
    place(*ring[1], "i", *ring[0]);
    place(*ring[1], "j", *ring[2]);
    place(*ring[3], "i", *ring[3]);
    place(model, "i", *ring[3]);
    const DesignEstimate all = estimateLowered(design, topModels(design));
    // The top counts what is below it as one.
    EXPECT_EQ(of(all, "top").uncounted, 1);
    EXPECT_EQ(all.uncounted, 1 + 3);
}

TEST_F(DesignEstimateTest, takesRingsThatNothingElseLeadsToAsTops) {
    Model &u = negator("u");
    Model &v = wrapper("v", u);
    Block &again = *Block::create(u, "again", A_MODEL_BLOCK);
    again.setParam(A_MODEL_NODE, v);
    Model &self = negator("self");
    Block::create(self, "again", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, self);
    Block::create(model, "i", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, self);
    const std::set<PureValueRef> tops = topModels(design);
    EXPECT_EQ(tops, (std::set<PureValueRef>{value("top"), value("u"), value("v")}));
    // A ring that lasts has no top; one that is cut has.
    EXPECT_EQ(of(estimateLowered(design, tops), "v").instances, 0);
    delete &again;
    const DesignEstimate cut = estimateLowered(design, tops);
    EXPECT_EQ(of(cut, "v").instances, 1);
    EXPECT_EQ(of(cut, "u").instances, 1);
    EXPECT_EQ(of(cut, "self").uncounted, 1);
}

TEST_F(DesignEstimateTest, tellsHowManyBlocksItDidNotCount) {
    output(model, "o", *Wire::create(block(model, "what", "unsupportedBlock"), value("y")));
    Wire &unknown = *Wire::create(block(model, "open", "addBlock"), A_PRIM_WIRE_OUT);
    output(model, "p", unknown);
    EXPECT_EQ(estimateLowered(design, topModels(design)).uncounted, 2);
}

TEST_F(DesignEstimateTest, doesNotCountModelsThatContainThemselves) {
    Model &self = *Model::create(design, "self");
    Block &in = *Block::create(self, "in", A_INPUT_BLOCK);
    Wire &x = *Wire::create(in, value("x"));
    Wire &inner = instance(self, "again", self, out(unary(self, "neg", "negBlock", x)));
    Block::create(self, "out", A_OUTPUT_BLOCK)->setParam(value("y"), inner);
    output(model, "o", instance(model, "i", self, input(model, "a", "s8.0")));
    output(model, "p", out(unary(model, "neg", "negBlock", input(model, "b", "s8.0"))));
    const DesignEstimate all = estimateLowered(design, topModels(design));
    EXPECT_EQ(all.total.luts, 9);
    EXPECT_EQ(all.uncounted, 1);
    EXPECT_EQ(of(all, "self").uncounted, 1);
}

TEST_F(DesignEstimateTest, countsInstancesAlongEveryWay) {
    Model *below = &negator("m0");
    for (int level = 1; level <= 8; ++level) {
        Model &above = *Model::create(design, "m" + std::to_string(level));
        Block &in = *Block::create(above, "in", A_INPUT_BLOCK);
        Wire &x = pinned(*Wire::create(in, value("x")), "s8.0");
        Block &ends = *Block::create(above, "out", A_OUTPUT_BLOCK);
        ends.setParam(value("y"), instance(above, "i1", *below, x));
        ends.setParam(value("z"), instance(above, "i2", *below, x));
        below = &above;
    }
    output(model, "o", instance(model, "i", *below, input(model, "a", "s8.0")));
    const DesignEstimate all = estimateLowered(design, topModels(design));
    EXPECT_EQ(of(all, "m0").instances, 256);
    EXPECT_EQ(all.total.luts, 256 * 9);
    EXPECT_EQ(all.total.latency, 1);
    EXPECT_EQ(of(all, "m3").usage.luts, 8 * 9);
}

} // namespace
} // namespace orvo::generator
