// Which instances get models of their own.
#include "generator/specialise.h"

#include "support/estimatefixture.h"

#include <orvo/context.h>

#include <gtest/gtest.h>

namespace orvo::generator {
namespace {

class SpecialiseTest : public orvo::test::EstimateFixture {
  protected:
    static Model &below(Model &in, const std::string &name) {
        return *Node::from<Model>((*in.getBlock(StringValue::get(name, in.getContext())))[A_MODEL_NODE]);
    }
    std::size_t modelCount() const { return static_cast<std::size_t>(std::distance(design.begin(), design.end())); }
};

TEST_F(SpecialiseTest, givesEachKindOfInstancesAModel) {
    Model &neg = negator("neg");
    output(model, "o", instance(model, "i1", neg, input(model, "a", "s8.0")));
    output(model, "p", instance(model, "i2", neg, input(model, "b", "[2] s8.0")));
    output(model, "q", instance(model, "i3", neg, input(model, "c", "s8.0")));
    output(model, "r", instance(model, "i4", neg, input(model, "d", "[2] s8.0")));
    const Origins origins = specialiseModels(design);
    EXPECT_EQ(modelCount(), 3U);
    EXPECT_EQ(&below(model, "i1"), &neg);
    EXPECT_EQ(&below(model, "i3"), &neg);
    Model &copy = below(model, "i2");
    EXPECT_NE(&copy, &neg);
    EXPECT_EQ(&below(model, "i4"), &copy);
    EXPECT_EQ(origins, (Origins{{copy.getName(), neg.getName()}}));
    EXPECT_NE(copy.getBlock(value("own")), nullptr);
}

TEST_F(SpecialiseTest, followsTypesThroughModelsBetween) {
    Model &leaf = negator("leaf");
    Model &middle = wrapper("middle", leaf);
    output(model, "o", instance(model, "i1", middle, input(model, "a", "s8.0")));
    output(model, "p", instance(model, "i2", middle, input(model, "b", "c s8.0")));
    // Of a kind that the lower model has by then.
    output(model, "q", instance(model, "i3", leaf, input(model, "c", "c s8.0")));
    EXPECT_EQ(specialiseModels(design).size(), 2U);
    EXPECT_EQ(modelCount(), 5U);
    EXPECT_NE(&below(model, "i1"), &below(model, "i2"));
    EXPECT_NE(&below(below(model, "i1"), "i"), &below(below(model, "i2"), "i"));
    EXPECT_EQ(&below(model, "i3"), &below(below(model, "i2"), "i"));
}

TEST_F(SpecialiseTest, leavesModelsOfOneKindAlone) {
    Model &neg = negator("neg");
    output(model, "o", instance(model, "i1", neg, input(model, "a", "s8.0")));
    output(model, "p", instance(model, "i2", neg, input(model, "b", "s8.0")));
    const std::uint64_t models = modelCount();
    EXPECT_TRUE(specialiseModels(design).empty());
    EXPECT_EQ(modelCount(), models);
    EXPECT_EQ(&below(model, "i2"), &neg);
}

TEST_F(SpecialiseTest, leavesWhatFlatteningLeavesAndAllBelow) {
    Model &leaf = negator("leaf");
    Model &kernel = wrapper("kernel", leaf);
    kernel.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    Model &self = negator("self");
    instance(self, "again", self, out(*self.getBlock(value("own"))));
    for (const auto &[name, type] : {std::pair("a", "s8.0"), std::pair("b", "[2] s8.0")}) {
        Wire &in = input(model, name, type);
        output(model, name + std::string("k"), instance(model, name + std::string("1"), kernel, in));
        output(model, name + std::string("s"), instance(model, name + std::string("2"), self, in));
    }
    EXPECT_TRUE(specialiseModels(design).empty());
    EXPECT_EQ(modelCount(), 4U);
    EXPECT_EQ(&below(model, "a1"), &below(model, "b1"));
    EXPECT_EQ(&below(kernel, "i"), &leaf);
}

TEST_F(SpecialiseTest, leavesADesignThatWouldBecomeTooLarge) {
    Model &neg = negator("neg");
    output(model, "o", instance(model, "i1", neg, input(model, "a", "s8.0")));
    output(model, "p", instance(model, "i2", neg, input(model, "b", "[2] s8.0")));
    // Each copy has three blocks.
    EXPECT_TRUE(specialiseModels(design, 2).empty());
    EXPECT_EQ(modelCount(), 2U);
    EXPECT_EQ(specialiseModels(design, 3).size(), 1U);
}

} // namespace
} // namespace orvo::generator
