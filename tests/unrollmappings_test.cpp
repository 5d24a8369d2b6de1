// Mappings of ports: their value form, and one unrolling behind the other.
#include <orvo/unrollmappings.h>

#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include "support/randommappings.h"
#include "support/randomtuples.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace orvo {
namespace {

CompoundDecorIndex lane(int number) { return CompoundDecorIndex::createVectorIndex(number); }
CompoundDecorIndex part(RealOrImaginary which) { return CompoundDecorIndex::createComplexIndex(which); }

class UnrollMappingsTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    UnrollMappings read(const std::string &text) { return UnrollMappings::fromValue(value(text)); }
    /// Both lanes of port x.
    UnrollMappings lanes() {
        UnrollMappings mappings;
        mappings.addMapping(value("x"), lane(1), value("x1"));
        mappings.addMapping(value("x"), lane(0), value("x0"));
        return mappings;
    }
    ContextMgr mgr;
};

TEST_F(UnrollMappingsTest, areValidAndEmptyAtFirst) {
    const UnrollMappings none;
    EXPECT_TRUE(none.valid());
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.toValue()->toString(), "(unrollMappingsTag)");
    EXPECT_TRUE(read("(unrollMappingsTag)").valid());
    EXPECT_EQ(read("(unrollMappingsTag)"), none);
    EXPECT_FALSE(none.getUnrolledPortName(value("x"), lane(0)));
    EXPECT_TRUE(none.getUnrolledPortNameList(value("x")).empty());
}

TEST_F(UnrollMappingsTest, tellTheNewPortsInTheOrderOfThePaths) {
    const UnrollMappings mappings = lanes();
    EXPECT_EQ(mappings.getUnrolledPortName(value("x"), lane(1)), value("x1"));
    EXPECT_FALSE(mappings.getUnrolledPortName(value("x"), lane(2)));
    EXPECT_FALSE(mappings.getUnrolledPortName(value("x"), CompoundDecorIndex()));
    EXPECT_FALSE(mappings.getUnrolledPortName(nullptr, lane(0)));
    EXPECT_EQ(mappings.getUnrolledPortNameList(value("x")), (std::vector<PureValueRef>{value("x0"), value("x1")}));
    EXPECT_TRUE(mappings.getUnrolledPortNameList(nullptr).empty());
    EXPECT_TRUE(mappings.isMappedName(value("x0")));
    EXPECT_FALSE(mappings.isMappedName(value("x")));
    EXPECT_EQ(mappings.toValue()->toString(),
              "(unrollMappingsTag (x (((compoundDecorIndexTag (compoundIndexTypeVector 0)) x0) "
              "((compoundDecorIndexTag (compoundIndexTypeVector 1)) x1))))");
}

TEST_F(UnrollMappingsTest, takeTheSameMappingTwiceAndNoOther) {
    UnrollMappings mappings = lanes();
    mappings.addMapping(value("x"), lane(0), value("x0"));
    EXPECT_EQ(mappings, lanes());
    EXPECT_DEATH(mappings.addMapping(value("x"), lane(0), value("y")), "mapped to two ports");
    EXPECT_DEATH(mappings.addMapping(value("x"), CompoundDecorIndex(), value("y")), "misses a part");
    EXPECT_DEATH(mappings.addMapping(nullptr, lane(0), value("y")), "misses a part");
    EXPECT_DEATH(mappings.addMapping(value("x"), lane(0), nullptr), "misses a part");
}

TEST_F(UnrollMappingsTest, composeVectorsAndComplexNumbersToOneMapping) {
    UnrollMappings parts;
    parts.addMapping(value("x0"), part(RealOrImaginary::Real), value("x0re"));
    parts.addMapping(value("x0"), part(RealOrImaginary::Imaginary), value("x0im"));
    const UnrollMappings both = lanes() << parts;
    UnrollMappings expected;
    expected.addMapping(value("x"), lane(0) << part(RealOrImaginary::Real), value("x0re"));
    expected.addMapping(value("x"), lane(0) << part(RealOrImaginary::Imaginary), value("x0im"));
    expected.addMapping(value("x"), lane(1), value("x1"));
    EXPECT_EQ(both, expected);
    EXPECT_FALSE(both.isMappedName(value("x0")));
}

TEST_F(UnrollMappingsTest, composeToTheOtherWhereOneIsEmpty) {
    EXPECT_EQ(UnrollMappings() << lanes(), lanes());
    EXPECT_EQ(lanes() << UnrollMappings(), lanes());
    EXPECT_EQ(UnrollMappings() << UnrollMappings(), UnrollMappings());
}

TEST_F(UnrollMappingsTest, keepTheShortPathOfAPortThatOnlyTheLaterOneKnows) {
    UnrollMappings later;
    later.addMapping(value("z"), part(RealOrImaginary::Real), value("zre"));
    const UnrollMappings both = lanes() << later;
    EXPECT_EQ(both.getUnrolledPortName(value("z"), part(RealOrImaginary::Real)), value("zre"));
    EXPECT_EQ(both.getUnrolledPortNameList(value("x")).size(), 2U);
}

TEST_F(UnrollMappingsTest, areInvalidWithAnInvalidPart) {
    const UnrollMappings bad = read("x");
    EXPECT_FALSE(bad.valid());
    EXPECT_FALSE(bad.toValue());
    EXPECT_FALSE((bad << lanes()).valid());
    EXPECT_FALSE((lanes() << bad).valid());
    EXPECT_NE(bad, UnrollMappings());
}

TEST_F(UnrollMappingsTest, areInvalidForMalformedTuples) {
    const std::string index = "(compoundDecorIndexTag (compoundIndexTypeVector 0))";
    const std::string other = "(compoundDecorIndexTag (compoundIndexTypeVector 1))";
    EXPECT_TRUE(read("(unrollMappingsTag (x ((" + index + " a) (" + other + " b))))").valid());
    for (const std::string &text :
         {std::string("()"), std::string("unrollMappingsTag"), "(otherTag (x ((" + index + " a))))",
          std::string("(unrollMappingsTag x)"), std::string("(unrollMappingsTag (x))"),
          std::string("(unrollMappingsTag (x a))"), std::string("(unrollMappingsTag (x ()))"),
          "(unrollMappingsTag (x ((" + index + " a)) y))", std::string("(unrollMappingsTag (x (a)))"),
          "(unrollMappingsTag (x ((" + index + "))))", "(unrollMappingsTag (x ((" + index + " a b))))",
          std::string("(unrollMappingsTag (x (((compoundDecorIndexTag 1) a))))"),
          "(unrollMappingsTag (x ((" + index + " a) (" + index + " b))))",
          "(unrollMappingsTag (x ((" + index + " a))) (x ((" + other + " b))))"}) {
        EXPECT_FALSE(read(text).valid()) << text;
    }
    EXPECT_FALSE(UnrollMappings::fromValue(nullptr).valid());
}

TEST_F(UnrollMappingsTest, areInvalidWithAPartBesidePartsOfItself) {
    const auto index = [](const std::string &steps) { return "(compoundDecorIndexTag" + steps + ")"; };
    const std::string zero = " (compoundIndexTypeVector 0)";
    const std::string one = " (compoundIndexTypeVector 1)";
    const std::string real = " (compoundIndexTypeComplex 0)";
    const auto ofTwo = [&](const std::string &a, const std::string &b) {
        return read("(unrollMappingsTag (x ((" + index(a) + " a) (" + index(b) + " b))))").valid();
    };
    EXPECT_FALSE(ofTwo(zero, zero + one));
    EXPECT_FALSE(ofTwo(zero + real, zero));
    EXPECT_FALSE(ofTwo("", one));
    EXPECT_FALSE(ofTwo(zero + one, zero + one + one + one));
    EXPECT_TRUE(ofTwo(zero + zero, one + zero));
    EXPECT_TRUE(ofTwo(zero + real, one));
    // The paths between are no part of either.
    EXPECT_FALSE(read("(unrollMappingsTag (x ((" + index(zero) + " a) (" + index(one) + " b) (" + index(one + real) +
                      " c) (" + index(zero + zero + zero) + " d))))")
                     .valid());
    // Of two ports the paths have nothing to do with each other.
    EXPECT_TRUE(read("(unrollMappingsTag (x ((" + index(zero) + " a))) (y ((" + index(zero + one) + " b))))").valid());
}

RC_GTEST_FIXTURE_PROP(UnrollMappingsTest, readWhatTheyWrite, ()) {
    const UnrollMappings mappings = test::chanceMappings(mgr.context());
    RC_ASSERT(UnrollMappings::fromValue(mappings.toValue()) == mappings);
}

RC_GTEST_FIXTURE_PROP(UnrollMappingsTest, readMutatedTuplesOnlyIfTheyAreMappings, ()) {
    const UnrollMappings original = test::chanceMappings(mgr.context());
    // Most changes end in something that is none.
    for (int attempts = 50; attempts > 0; --attempts) {
        const PureValueRef tuple = test::mutatedSome(original.toValue(), mgr.context());
        const UnrollMappings mappings = UnrollMappings::fromValue(tuple);
        if (mappings.valid()) {
            RC_ASSERT(UnrollMappings::fromValue(mappings.toValue()) == mappings);
            // A reader may be given another order, but nothing is lost or made up.
            RC_ASSERT(mappings.toValue() == test::sortedMappings(tuple, mgr.context()));
        }
    }
}

/// A model's ports through some unrollings: each takes some ports apart, which ends their names, or keeps one for the
/// first part.
class Ports {
  public:
    explicit Ports(Context *context) : mContext(context) {
        for (int i = *rc::gen::inRange(0, 4); i > 0; --i) {
            const PureValueRef name = fresh();
            mNow.push_back({name, name, CompoundDecorIndex::createEmptyIndex()});
        }
    }
    UnrollMappings unrollSome() {
        UnrollMappings mappings;
        std::vector<Port> next;
        for (const Port &port : mNow) {
            const int parts = *rc::gen::inRange(0, 4);
            for (int i = 0; i < parts; ++i) {
                const PureValueRef name = i == 0 && *rc::gen::inRange(0, 3) == 0 ? port.name : fresh();
                mappings.addMapping(port.name, lane(i), name);
                next.push_back({name, port.original, port.path << lane(i)});
            }
            if (parts == 0) {
                next.push_back(port);
            }
        }
        mNow = std::move(next);
        return mappings;
    }
    /// What all unrollings together are, by following each port.
    UnrollMappings followed() const {
        UnrollMappings mappings;
        for (const Port &port : mNow) {
            if (!port.path.steps().empty()) {
                mappings.addMapping(port.original, port.path, port.name);
            }
        }
        return mappings;
    }

  private:
    struct Port {
        PureValueRef name;
        PureValueRef original;
        CompoundDecorIndex path;
    };
    PureValueRef fresh() { return NumberValue::get(mMade++, mContext); }

    Context *mContext;
    std::vector<Port> mNow;
    int mMade = 0;
};

RC_GTEST_FIXTURE_PROP(UnrollMappingsTest, composeAssociatively, ()) {
    Ports ports(mgr.context());
    const UnrollMappings a = ports.unrollSome();
    const UnrollMappings b = ports.unrollSome();
    const UnrollMappings c = ports.unrollSome();
    RC_ASSERT(((a << b) << c) == (a << (b << c)));
    RC_ASSERT(((a << b) << c) == ports.followed());
    RC_ASSERT(UnrollMappings::fromValue(ports.followed().toValue()) == ports.followed());
}

RC_GTEST_FIXTURE_PROP(UnrollMappingsTest, haveTheEmptyOnesAsIdentity, ()) {
    const UnrollMappings mappings = test::chanceMappings(mgr.context());
    RC_ASSERT((mappings << UnrollMappings()) == mappings);
    RC_ASSERT((UnrollMappings() << mappings) == mappings);
}

class BoundaryUnrollMappingTest : public UnrollMappingsTest {
  protected:
    Design design{mgr.context()};
    BoundaryUnrollMappingStateItem item;
};

TEST_F(BoundaryUnrollMappingTest, keepsInputsAndOutputsOfEachModelApart) {
    Model &model = *Model::create(design, "m");
    Model &other = *Model::create(design, "n");
    item.setInputUnrollMapping(model, lanes());
    EXPECT_EQ(item.getInputUnrollMapping(model), lanes());
    EXPECT_TRUE(item.getOutputUnrollMapping(model).empty());
    EXPECT_TRUE(item.getInputUnrollMapping(other).empty());
    EXPECT_TRUE(item.getInputUnrollMapping(other).valid());
    item.setOutputUnrollMapping(model, lanes());
    item.setInputUnrollMapping(model, UnrollMappings());
    EXPECT_EQ(item.getOutputUnrollMapping(model), lanes());
    EXPECT_TRUE(item.getInputUnrollMapping(model).empty());
}

TEST_F(BoundaryUnrollMappingTest, forgetsAModelThatDies) {
    Model *model = Model::create(design, "m");
    item.setInputUnrollMapping(*model, lanes());
    item.setOutputUnrollMapping(*model, lanes());
    delete model;
    // One of the next models gets the address.
    for (int i = 0; i < 100; ++i) {
        const Model &next = *Model::create(design, "m");
        EXPECT_TRUE(item.getInputUnrollMapping(next).empty());
        EXPECT_TRUE(item.getOutputUnrollMapping(next).empty());
    }
}

TEST_F(BoundaryUnrollMappingTest, outlivesADesignAndIsOutlivedByOne) {
    auto brief = std::make_unique<Design>(mgr.context());
    Model *model = Model::create(*brief, "m");
    item.setInputUnrollMapping(*model, lanes());
    brief.reset();
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(item.getInputUnrollMapping(*Model::create(design, "next")).empty());
    }
    Model *kept = Model::create(design, "m");
    auto early = std::make_unique<BoundaryUnrollMappingStateItem>();
    early->setInputUnrollMapping(*kept, lanes());
    early.reset();
    EXPECT_TRUE(design.events().modelDying.empty());
    EXPECT_TRUE(design.events().designDying.empty());
    delete kept;
}

TEST_F(UnrollMappingsTest, composeToNothingWhereThePortHasComeApartAlready) {
    UnrollMappings earlier;
    earlier.addMapping(value("p"), lane(0), value("q"));
    UnrollMappings inner;
    inner.addMapping(value("p"), lane(0) << part(RealOrImaginary::Real), value("r"));
    EXPECT_FALSE((earlier << inner).valid());
    UnrollMappings same;
    same.addMapping(value("p"), lane(0), value("r"));
    EXPECT_FALSE((earlier << same).valid());
    UnrollMappings renamed;
    renamed.addMapping(value("p"), lane(0), value("p"));
    EXPECT_TRUE((renamed << same).valid()) << "the port is there under its old name";
}

TEST_F(UnrollMappingsTest, composeToNothingWhereAPartStandsBesideItsOwnParts) {
    UnrollMappings odd;
    odd.addMapping(value("p"), lane(0), value("q"));
    odd.addMapping(value("p"), lane(0) << part(RealOrImaginary::Real), value("s"));
    UnrollMappings parts;
    parts.addMapping(value("q"), part(RealOrImaginary::Real), value("t"));
    EXPECT_FALSE((odd << parts).valid());
    EXPECT_FALSE((UnrollMappings() << odd).valid());
}

TEST_F(BoundaryUnrollMappingTest, standsInTheStateOfARun) {
    const PassContext::PassMap passes;
    const PassContext::ParamsMap params;
    EXPECT_EQ(BoundaryUnrollMappingStateItem::findOrCreate(PassContext(design, passes, params, nullptr)), nullptr);
    PassSchedulerState state;
    const PassContext context(design, passes, params, &state);
    EXPECT_EQ(BoundaryUnrollMappingStateItem::find(context), nullptr);
    BoundaryUnrollMappingStateItem *made = BoundaryUnrollMappingStateItem::findOrCreate(context);
    EXPECT_EQ(BoundaryUnrollMappingStateItem::find(context), made);
    EXPECT_EQ(BoundaryUnrollMappingStateItem::findOrCreate(context), made);
    EXPECT_EQ(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY), made);
}

} // namespace
} // namespace orvo
