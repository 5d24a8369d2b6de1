// Shapes of compound signals and the paths to their leaves.
#include <orvo/compoundtypeinfo.h>

#include <orvo/limits.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include "support/randomtuples.h"
#include "support/typetable.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>

namespace orvo {
namespace {

/// A path by chance, of up to four steps.
CompoundDecorIndex chanceIndex() {
    CompoundDecorIndex index = CompoundDecorIndex::createEmptyIndex();
    for (int steps = *rc::gen::inRange(0, 5); steps > 0; --steps) {
        const int number = *rc::gen::inRange(0, 3);
        switch (*rc::gen::inRange(0, 3)) {
        case 0:
            index = index << CompoundDecorIndex::createAggregateIndex(number);
            break;
        case 1:
            index = index << CompoundDecorIndex::createVectorIndex(number);
            break;
        default:
            index = index << CompoundDecorIndex::createComplexIndex(number % 2 == 0 ? RealOrImaginary::Real
                                                                                    : RealOrImaginary::Imaginary);
            break;
        }
    }
    return index;
}

/// "v1.im" for lane 1, imaginary part; "-" for an invalid path.
std::string textOf(const CompoundDecorIndex &index) {
    if (!index.valid()) {
        return "-";
    }
    std::string text;
    for (const CompoundDecorIndex::Step &step : index.steps()) {
        text += text.empty() ? "" : ".";
        const std::string number = std::to_string(step.index);
        text += step.kind == CompoundKind::Complex ? (step.index == 0 ? "re" : "im")
                                                   : (step.kind == CompoundKind::Vector ? "v" : "a") + number;
    }
    return text;
}

std::string leavesOf(const CompoundTypeInfo &info) {
    std::string text;
    for (const CompoundDecorIndex &index : std::vector<CompoundDecorIndex>(info.begin(), info.end())) {
        text += (text.empty() ? "" : " ") + textOf(index);
    }
    return text;
}

class CompoundDecorIndexTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    CompoundDecorIndex read(const std::string &text) { return CompoundDecorIndex::fromValue(value(text)); }
    ContextMgr mgr;
};

TEST_F(CompoundDecorIndexTest, isInvalidUntilMade) {
    const CompoundDecorIndex none;
    EXPECT_FALSE(none.valid());
    EXPECT_TRUE(none.steps().empty());
    EXPECT_FALSE(none.toValue());
    EXPECT_FALSE((none << CompoundDecorIndex::createVectorIndex(0)).valid());
    EXPECT_FALSE((CompoundDecorIndex::createVectorIndex(0) << none).valid());
    EXPECT_TRUE(CompoundDecorIndex::createEmptyIndex().valid());
    EXPECT_NE(none, CompoundDecorIndex::createEmptyIndex());
    EXPECT_EQ(none, CompoundDecorIndex());
}

TEST_F(CompoundDecorIndexTest, concatenatesOuterAndInnerPath) {
    const CompoundDecorIndex path = CompoundDecorIndex::createVectorIndex(2)
                                    << CompoundDecorIndex::createAggregateIndex(1)
                                    << CompoundDecorIndex::createComplexIndex(RealOrImaginary::Imaginary);
    EXPECT_EQ(textOf(path), "v2.a1.im");
    EXPECT_EQ(path.toValue()->toString(),
              "(compoundDecorIndexTag (compoundIndexTypeVector 2) (compoundIndexTypeAggregate 1) "
              "(compoundIndexTypeComplex 1))");
    EXPECT_EQ(CompoundDecorIndex::createEmptyIndex() << path, path);
}

TEST_F(CompoundDecorIndexTest, ordersByKindsThenNumbersAndAPathBeforeItsContinuations) {
    const auto re = CompoundDecorIndex::createComplexIndex(RealOrImaginary::Real);
    const auto a = [](int i) { return CompoundDecorIndex::createAggregateIndex(i); };
    const auto v = [](int i) { return CompoundDecorIndex::createVectorIndex(i); };
    // The kinds of all steps come before the number of the first: (v0 re) is behind (v9).
    const std::vector<CompoundDecorIndex> inOrder = {
        {}, CompoundDecorIndex::createEmptyIndex(), a(0), a(1), a(9) << v(0), v(0), v(9), v(3) << v(1), v(0) << re, re};
    for (std::size_t i = 0; i < inOrder.size(); ++i) {
        for (std::size_t j = 0; j < inOrder.size(); ++j) {
            EXPECT_EQ(inOrder[i] < inOrder[j], i < j) << textOf(inOrder[i]) << " " << textOf(inOrder[j]);
            EXPECT_EQ(inOrder[i] == inOrder[j], i == j) << textOf(inOrder[i]) << " " << textOf(inOrder[j]);
        }
    }
}

TEST_F(CompoundDecorIndexTest, givesTheLeadingRunOfOneKind) {
    const CompoundDecorIndex path = CompoundDecorIndex::createVectorIndex(2)
                                    << CompoundDecorIndex::createVectorIndex(5)
                                    << CompoundDecorIndex::createComplexIndex(RealOrImaginary::Imaginary);
    std::vector<int> indices{7};
    EXPECT_TRUE(path.getTopVectorIndices(indices));
    EXPECT_EQ(indices, (std::vector<int>{2, 5}));
    EXPECT_FALSE(path.getTopAggregateIndices(indices));
    EXPECT_TRUE(indices.empty());
    RealOrImaginary part = RealOrImaginary::Real;
    EXPECT_FALSE(path.getTopComplexIndices(part));
    EXPECT_TRUE(CompoundDecorIndex::createComplexIndex(RealOrImaginary::Imaginary).getTopComplexIndices(part));
    EXPECT_EQ(part, RealOrImaginary::Imaginary);
    EXPECT_TRUE((CompoundDecorIndex::createAggregateIndex(4) << path).getTopAggregateIndices(indices));
    EXPECT_EQ(indices, (std::vector<int>{4}));
    EXPECT_FALSE(CompoundDecorIndex().getTopVectorIndices(indices));
    EXPECT_FALSE(CompoundDecorIndex().getTopComplexIndices(part));
}

TEST_F(CompoundDecorIndexTest, isInvalidForWhatIsNoPath) {
    EXPECT_EQ(textOf(read("(compoundDecorIndexTag)")), "");
    EXPECT_EQ(textOf(read("(compoundDecorIndexTag (compoundIndexTypeAggregate 3))")), "a3");
    for (const char *text :
         {"compoundDecorIndexTag", "()", "(other)", "(other (compoundIndexTypeVector 0))",
          "(compoundDecorIndexTag (compoundIndexTypeOther 0))", "(compoundDecorIndexTag (compoundIndexTypeVector))",
          "(compoundDecorIndexTag (compoundIndexTypeVector 0 0))", "(compoundDecorIndexTag compoundIndexTypeVector)",
          "(compoundDecorIndexTag (compoundIndexTypeVector x))",
          "(compoundDecorIndexTag (compoundIndexTypeVector 0.5))",
          "(compoundDecorIndexTag (compoundIndexTypeVector 4294967296))",
          "(compoundDecorIndexTag (compoundIndexTypeVector 0x0.8))",
          "(compoundDecorIndexTag (compoundIndexTypeVector +nan))",
          "(compoundDecorIndexTag (compoundIndexTypeVector +inf))",
          "(compoundDecorIndexTag (compoundIndexTypeVector -zero))",
          "(compoundDecorIndexTag (compoundIndexTypeVector -1))",
          "(compoundDecorIndexTag (compoundIndexTypeComplex 2))",
          "(compoundDecorIndexTag (compoundIndexTypeVector 0) 1)"}) {
        EXPECT_FALSE(read(text).valid()) << text;
    }
    EXPECT_FALSE(CompoundDecorIndex::fromValue(nullptr).valid());
}

TEST_F(CompoundDecorIndexTest, refusesNegativeNumbers) {
    EXPECT_DEATH(CompoundDecorIndex::createVectorIndex(-1), "negative number");
    EXPECT_DEATH(CompoundDecorIndex::createAggregateIndex(-1), "negative number");
}

RC_GTEST_FIXTURE_PROP(CompoundDecorIndexTest, readsWhatItWrites, ()) {
    const CompoundDecorIndex index = chanceIndex();
    RC_ASSERT(CompoundDecorIndex::fromValue(index.toValue()) == index);
}

RC_GTEST_FIXTURE_PROP(CompoundDecorIndexTest, readsMutatedTuplesOnlyIfTheyArePaths, ()) {
    const PureValueRef tuple = test::mutatedSome(chanceIndex().toValue(), mgr.context());
    const CompoundDecorIndex index = CompoundDecorIndex::fromValue(tuple);
    if (index.valid()) {
        RC_ASSERT(index.toValue() == tuple);
    }
}

RC_GTEST_FIXTURE_PROP(CompoundDecorIndexTest, concatenatesAssociatively, ()) {
    const CompoundDecorIndex a = chanceIndex();
    const CompoundDecorIndex b = chanceIndex();
    const CompoundDecorIndex c = chanceIndex();
    RC_ASSERT(((a << b) << c) == (a << (b << c)));
    RC_ASSERT((a < b) + (b < a) + (a == b) == 1);
    if (a < b && b < c) {
        RC_ASSERT(a < c);
    }
}

class CompoundTypeInfoTest : public ::testing::Test {
  protected:
    CompoundTypeInfo infoOf(const std::string &type) { return CompoundTypeInfo::createFromValue(typeValue(type)); }
    PureValueRef typeValue(const std::string &type) {
        return pureVR(Value::parse(testing::typeText(type), mgr.context()));
    }
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    ContextMgr mgr;
};

TEST_F(CompoundTypeInfoTest, isInvalidForPlainSignals) {
    const CompoundTypeInfo none;
    EXPECT_FALSE(none.valid());
    EXPECT_EQ(none.size(), 0U);
    EXPECT_EQ(none.size_shallow(), 0U);
    EXPECT_TRUE(none.begin() == none.end());
    EXPECT_FALSE(none.topLevelIsVector() || none.topLevelIsComplex() || none.topLevelIsAggregate());
    EXPECT_FALSE(none.getLevelBelow(0).valid());
    EXPECT_FALSE(infoOf("s8.0").valid());
    EXPECT_FALSE(CompoundTypeInfo::createFromValue(nullptr).valid());
    EXPECT_FALSE(CompoundTypeInfo::createFromValue(value("(typeVector x y)")).valid());
    EXPECT_FALSE(CompoundTypeInfo::createVectorInfo(VectorDecorSpec()).valid());
    EXPECT_FALSE(CompoundTypeInfo::createVectorInfo(VectorDecorSpec(0)).valid());
    EXPECT_FALSE(CompoundTypeInfo::createAggregateTypeInfo(AggregateTypeSpec(typeValue("s8.0")), true).valid());
}

TEST_F(CompoundTypeInfoTest, countsLeavesAndElementsOfNestedVectors) {
    const CompoundTypeInfo info = CompoundTypeInfo::createVectorInfo({3, 2});
    EXPECT_EQ(info.size(), 6U);
    EXPECT_EQ(info.size_shallow(), 3U);
    EXPECT_TRUE(info.topLevelIsVector());
    EXPECT_EQ(textOf(info.getIndexDeep(3)), "v1.v1");
    EXPECT_EQ(textOf(info.getIndexShallow(2)), "v2");
    EXPECT_EQ(leavesOf(info), "v0.v0 v0.v1 v1.v0 v1.v1 v2.v0 v2.v1");
    EXPECT_EQ(textOf(*(info.begin_shallow() + 1)), "v1");
    EXPECT_EQ(info.end_shallow().position(), 3);
    EXPECT_EQ(leavesOf(CompoundTypeInfo::createVectorInfo(2)), "v0 v1");
}

TEST_F(CompoundTypeInfoTest, turnsTheDimensionsOfASpecRound) {
    VectorDecorSpec vectors(2);
    vectors.addVector(3);
    const CompoundTypeInfo info = CompoundTypeInfo::createVectorInfo(vectors);
    EXPECT_EQ(info.size_shallow(), 3U);
    EXPECT_EQ(textOf(info.getIndexDeep(5)), "v2.v1");
    EXPECT_EQ(leavesOf(info), leavesOf(infoOf("[3][2] s8.0")));
    const VectorDecorSpec negative(value("(typeVector -3 (typeSFixed 8 0))"), mgr.context());
    EXPECT_FALSE(CompoundTypeInfo::createVectorInfo(negative).valid());
}

TEST_F(CompoundTypeInfoTest, findsComplexLeavesUnderAVector) {
    CompoundTypeInfo info = CompoundTypeInfo::createVectorInfo(3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(info.getLevelBelow(i).valid());
        info.setLevelBelow(i, CompoundTypeInfo::createComplexInfo());
        EXPECT_TRUE(info.getLevelBelow(i).topLevelIsComplex());
    }
    EXPECT_EQ(info.size(), 6U);
    EXPECT_EQ(textOf(info.getIndexDeep(5)), "v2.im");
    info.setLevelBelow(1, CompoundTypeInfo());
    EXPECT_EQ(leavesOf(info), "v0.re v0.im v1 v2.re v2.im");
}

TEST_F(CompoundTypeInfoTest, copiesShareTheTreeUntilOneIsChanged) {
    CompoundTypeInfo info = CompoundTypeInfo::createVectorInfo({2, 2});
    const CompoundTypeInfo before = info;
    const CompoundTypeInfo below = info.getLevelBelow(0);
    info.setLevelBelow(info.begin() + 1, CompoundTypeInfo::createComplexInfo());
    EXPECT_EQ(leavesOf(info), "v0.v0 v0.v1.re v0.v1.im v1.v0 v1.v1");
    EXPECT_EQ(leavesOf(before), "v0.v0 v0.v1 v1.v0 v1.v1");
    EXPECT_EQ(leavesOf(below), "v0 v1");
    // Under itself, as it was.
    CompoundTypeInfo self = CompoundTypeInfo::createComplexInfo();
    self.setLevelBelow(1, self);
    EXPECT_EQ(leavesOf(self), "re im.re im.im");
}

TEST_F(CompoundTypeInfoTest, putsALevelBelowALeafAndNothingElse) {
    CompoundTypeInfo info = CompoundTypeInfo::createAggregateTypeInfo(2);
    info.setLevelBelow(info.begin_shallow() + 1, CompoundTypeInfo::createComplexInfo());
    EXPECT_EQ(leavesOf(info), "a0 a1.re a1.im");
    EXPECT_DEATH(info.setLevelBelow(info.begin_shallow() + 1, CompoundTypeInfo::createComplexInfo()),
                 "level below already");
    EXPECT_DEATH(info.setLevelBelow(2, CompoundTypeInfo()), "no such element");
    EXPECT_DEATH(info.setLevelBelow(info.end(), CompoundTypeInfo()), "no leaf at this position");
    EXPECT_DEATH(info.getIndexDeep(3), "no leaf at this position");
    EXPECT_DEATH(info.getIndexDeep(-1), "no leaf at this position");
    EXPECT_DEATH(info.getIndexShallow(2), "no such element");
    EXPECT_DEATH(info.getLevelBelow(-1), "no such element");
    EXPECT_DEATH(CompoundTypeInfo().getIndexDeep(0), "invalid compound type");
    EXPECT_DEATH(CompoundTypeInfo::createVectorInfo(0), "no elements");
    EXPECT_DEATH(CompoundTypeInfo::createVectorInfo(std::vector<int>()), "without dimensions");
}

TEST_F(CompoundTypeInfoTest, readsAllLevelsOfAType) {
    EXPECT_EQ(leavesOf(infoOf("c s8.0")), "re im");
    EXPECT_EQ(leavesOf(infoOf("[2] c s8.0")), "v0.re v0.im v1.re v1.im");
    EXPECT_EQ(leavesOf(infoOf("{u1.0,c s8.0}")), "a0 a1.re a1.im");
    const CompoundTypeInfo records =
        CompoundTypeInfo::createFromValue(value("(typeVector 2 (typeAggregate (typeAggregate x (typeVector 2 y)) z))"));
    EXPECT_EQ(leavesOf(records), "v0.a0.a0 v0.a0.a1.v0 v0.a0.a1.v1 v0.a1 v1.a0.a0 v1.a0.a1.v0 v1.a0.a1.v1 v1.a1");
    EXPECT_EQ(leavesOf(CompoundTypeInfo::createFromValue(value("(typeComplex (typeAggregate x y))"))),
              "re.a0 re.a1 im.a0 im.a1");
}

TEST_F(CompoundTypeInfoTest, countsRecordsAloneWhereToldTo) {
    const AggregateTypeSpec record(
        value("(typeAggregate (typeAggregate x (typeComplex y)) (typeVector 2 (typeAggregate x y)))"));
    const CompoundTypeInfo flat = CompoundTypeInfo::createAggregateTypeInfo(record, false);
    EXPECT_EQ(leavesOf(flat), "a0.a0 a0.a1 a1");
    EXPECT_EQ(flat.size(), record.getFlatSize(nullptr));
    const CompoundTypeInfo all = CompoundTypeInfo::createAggregateTypeInfo(record, true);
    EXPECT_EQ(leavesOf(all), "a0.a0 a0.a1.re a0.a1.im a1.v0.a0 a1.v0.a1 a1.v1.a0 a1.v1.a1");
    EXPECT_EQ(leavesOf(all), leavesOf(CompoundTypeInfo::createFromValue(record.toValue(mgr.context()))));
}

TEST_F(CompoundTypeInfoTest, isInvalidForTypesWithoutLeaves) {
    for (const char *text : {"(typeAggregate)", "(typeVector 2 (typeAggregate))", "(typeAggregate x (typeAggregate))",
                             "(typeVector 0 x)", "(typeVector -1 x)", "(typeComplex (typeAggregate))"}) {
        EXPECT_FALSE(CompoundTypeInfo::createFromValue(value(text)).valid()) << text;
    }
    EXPECT_FALSE(CompoundTypeInfo::createAggregateTypeInfo(AggregateTypeSpec(value("(typeAggregate)")), false).valid());
}

TEST_F(CompoundTypeInfoTest, holdsAsManyLeavesAsAnIntCounts) {
    const CompoundTypeInfo most = CompoundTypeInfo::createFromValue(value("(typeVector 2147483647 (typeSFixed 8 0))"));
    EXPECT_EQ(most.size(), static_cast<std::size_t>(std::numeric_limits<int>::max()));
    EXPECT_EQ(textOf(most.getIndexDeep(2147483646)), "v2147483646");
    const CompoundTypeInfo large = CompoundTypeInfo::createVectorInfo({46340, 46340});
    EXPECT_EQ(textOf(large.getIndexDeep(46340 * 46340 - 1)), "v46339.v46339");
    EXPECT_FALSE(CompoundTypeInfo::createVectorInfo({46341, 46341}).valid());
    EXPECT_FALSE(CompoundTypeInfo::createVectorInfo({2, 46341, 46341}).valid());
    EXPECT_FALSE(CompoundTypeInfo::createFromValue(value("(typeVector 46341 (typeVector 46341 x))")).valid());
    EXPECT_FALSE(CompoundTypeInfo::createFromValue(value("(typeAggregate x (typeVector 2147483647 x))")).valid());
    CompoundTypeInfo grown = most;
    grown.setLevelBelow(5, CompoundTypeInfo::createComplexInfo());
    EXPECT_FALSE(grown.valid());
    CompoundTypeInfo deep = CompoundTypeInfo::createVectorInfo({1, 2147483647});
    deep.setLevelBelow(deep.begin() + 5, CompoundTypeInfo::createComplexInfo());
    EXPECT_FALSE(deep.valid());
}

TEST_F(CompoundTypeInfoTest, readsNestingsAsDeepAsATextCanBe) {
    PureValueRef type = value("x");
    for (std::size_t depth = 0; depth < limits::kTupleDepth; ++depth) {
        type = PureTupleValue::get(A_TYPE_AGGREGATE, type, mgr.context());
    }
    EXPECT_EQ(CompoundTypeInfo::createFromValue(type).getIndexDeep(0).steps().size(), limits::kTupleDepth);
    EXPECT_FALSE(CompoundTypeInfo::createFromValue(PureTupleValue::get(A_TYPE_AGGREGATE, type, mgr.context())).valid());
}

TEST_F(CompoundTypeInfoTest, hasNoMoreLevelsThanATextCanHave) {
    const auto ones = [](std::size_t count) { return CompoundTypeInfo::createVectorInfo(std::vector<int>(count, 1)); };
    const CompoundTypeInfo deepest = ones(limits::kTupleDepth);
    EXPECT_EQ(deepest.getIndexDeep(0).steps().size(), limits::kTupleDepth);
    EXPECT_FALSE(ones(limits::kTupleDepth + 1).valid());
    EXPECT_FALSE(ones(1000000).valid());
    CompoundTypeInfo atALeaf = deepest;
    atALeaf.setLevelBelow(atALeaf.begin(), CompoundTypeInfo::createComplexInfo());
    EXPECT_FALSE(atALeaf.valid());
    CompoundTypeInfo around = CompoundTypeInfo::createAggregateTypeInfo(3);
    around.setLevelBelow(1, ones(limits::kTupleDepth - 1));
    ASSERT_TRUE(around.valid());
    // The deepest element counts, wherever it stands, and only as long as it does.
    around.setLevelBelow(2, CompoundTypeInfo::createComplexInfo());
    CompoundTypeInfo outer = CompoundTypeInfo::createComplexInfo();
    outer.setLevelBelow(0, around);
    EXPECT_FALSE(outer.valid());
    around.setLevelBelow(1, CompoundTypeInfo());
    outer = CompoundTypeInfo::createComplexInfo();
    outer.setLevelBelow(0, around);
    EXPECT_EQ(leavesOf(outer), "re.a0 re.a1 re.a2.re re.a2.im im");
    CompoundTypeInfo grown = CompoundTypeInfo::createVectorInfo(1);
    std::size_t levels = 1;
    for (; grown.valid() && levels < 1000000; ++levels) {
        CompoundTypeInfo next = CompoundTypeInfo::createVectorInfo(1);
        next.setLevelBelow(0, grown);
        grown = next;
    }
    EXPECT_EQ(levels, limits::kTupleDepth + 1);
}

TEST_F(CompoundTypeInfoTest, readsATypeThatSharesItsPartsOnce) {
    // As a tree it has 2^40 records.
    PureValueRef type = value("(typeAggregate)");
    for (int depth = 0; depth < 40; ++depth) {
        type = PureTupleValue::get(A_TYPE_AGGREGATE, type, type, mgr.context());
    }
    EXPECT_FALSE(CompoundTypeInfo::createFromValue(type).valid());
    type = value("x");
    for (int depth = 0; depth < 30; ++depth) {
        type = PureTupleValue::get(A_TYPE_AGGREGATE, type, type, mgr.context());
    }
    EXPECT_EQ(CompoundTypeInfo::createFromValue(type).size(), std::size_t{1} << 30);
}

/// The shape as a plain tree, to compare with.
struct Tree {
    std::vector<Tree> below;
    std::size_t leaves() const {
        std::size_t count = 0;
        for (const Tree &tree : below) {
            count += tree.leaves();
        }
        return below.empty() ? 1 : count;
    }
    Tree &leaf(std::size_t number) {
        for (Tree &tree : below) {
            if (number < tree.leaves()) {
                return tree.leaf(number);
            }
            number -= tree.leaves();
        }
        return *this;
    }
    void paths(const std::string &prefix, std::string &text) const {
        for (std::size_t i = 0; i < below.size(); ++i) {
            below[i].paths(prefix + (prefix.empty() ? "v" : ".v") + std::to_string(i), text);
        }
        if (below.empty()) {
            text += (text.empty() ? "" : " ") + prefix;
        }
    }
};

RC_GTEST_FIXTURE_PROP(CompoundTypeInfoTest, growsLikeAPlainTree, ()) {
    const int length = *rc::gen::inRange(1, 5);
    CompoundTypeInfo info = CompoundTypeInfo::createVectorInfo(length);
    Tree tree{std::vector<Tree>(static_cast<std::size_t>(length))};
    const CompoundTypeInfo pair = CompoundTypeInfo::createVectorInfo(2);
    std::vector<std::pair<CompoundTypeInfo, std::string>> copies;
    for (const std::uint32_t choice :
         *rc::gen::container<std::vector<std::uint32_t>>(rc::gen::inRange<std::uint32_t>(0, 1000000))) {
        copies.emplace_back(info, leavesOf(info));
        const std::size_t leaf = choice % info.size();
        const bool isPair = choice % 3 == 0;
        const int below = isPair ? 2 : static_cast<int>(1 + choice % 4);
        info.setLevelBelow(info.begin() + static_cast<int>(leaf),
                           isPair ? pair : CompoundTypeInfo::createVectorInfo(below));
        tree.leaf(leaf).below.resize(static_cast<std::size_t>(below));
    }
    std::string expected;
    tree.paths("", expected);
    RC_ASSERT(leavesOf(info) == expected);
    for (const auto &[copy, leaves] : copies) {
        RC_ASSERT(leavesOf(copy) == leaves);
    }
}

RC_GTEST_FIXTURE_PROP(CompoundTypeInfoTest, replacesLevelsInAnyOrder, ()) {
    const int length = *rc::gen::inRange(1, 8);
    CompoundTypeInfo info = CompoundTypeInfo::createVectorInfo(length);
    const CompoundTypeInfo shapes[] = {
        {}, CompoundTypeInfo::createVectorInfo(2), CompoundTypeInfo::createVectorInfo(3)};
    std::vector<std::size_t> present(static_cast<std::size_t>(length), 0);
    for (const std::uint32_t choice :
         *rc::gen::container<std::vector<std::uint32_t>>(rc::gen::inRange<std::uint32_t>(0, 1000000))) {
        const std::size_t element = choice % present.size();
        present[element] = choice / 10 % 3;
        info.setLevelBelow(static_cast<int>(element), shapes[present[element]]);
    }
    Tree tree{std::vector<Tree>(present.size())};
    for (std::size_t i = 0; i < present.size(); ++i) {
        tree.below[i].below.resize(present[i] == 0 ? 0 : present[i] + 1);
        RC_ASSERT(info.getLevelBelow(static_cast<int>(i)).size() == shapes[present[i]].size());
    }
    std::string expected;
    tree.paths("", expected);
    RC_ASSERT(leavesOf(info) == expected);
}

} // namespace
} // namespace orvo
