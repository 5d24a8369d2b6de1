// Which element of a signal names and numbers of a lowered design tell.
#include "driver/loweredelements.h"

#include <orvo/context.h>
#include <orvo/corevalues.h>

#include <gtest/gtest.h>

namespace orvo::driver {
namespace {

class LoweredElementsTest : public ::testing::Test {
  protected:
    CompoundTypeInfo shape(const std::string &type) {
        return CompoundTypeInfo::createFromValue(PureValueRef(Value::parse(type, mgr.context())));
    }
    /// Lanes and parts, and words of what took the place of a block, apart by blanks.
    std::vector<NameStep> steps(const std::string &text) {
        std::vector<NameStep> made;
        const TupleValueRef tuple = tupleVR(Value::parse("(" + text + ")", mgr.context()));
        for (std::size_t i = 0; i < tuple->size(); ++i) {
            const PureValueRef value(tuple->at(i));
            const std::string word = value->toString();
            made.push_back({word == "real" || word == "imag" ? NameStep::Kind::Part
                            : numberOf(value)                ? NameStep::Kind::Lane
                                                             : NameStep::Kind::Substitute,
                            value});
        }
        return made;
    }
    /// As the text of the path, and the words behind a colon.
    std::string read(const std::string &ofBlock, const std::string &ofKey, const std::optional<CompoundTypeInfo> &of) {
        const auto element = readNamedElement(steps(ofBlock), steps(ofKey), of);
        if (!element) {
            return "none";
        }
        std::string text = elementsText(element->path);
        for (std::size_t i = 0; i < element->words.size(); ++i) {
            text += (i == 0 ? ": " : ", ") + element->words[i];
        }
        return text;
    }
    static ElementsOfLevel at(CompoundKind kind, std::vector<std::size_t> numbers) {
        return {kind, std::move(numbers)};
    }
    static ElementsOfLevel lane(std::size_t number) { return at(CompoundKind::Vector, {number}); }

    ContextMgr mgr;
    CompoundTypeInfo matrix = shape("(typeVector 2 (typeVector 3 (typeComplex (typeSFixed 3 0))))");
    /// A record of a plain signal and a vector of records.
    CompoundTypeInfo deep = shape("(typeAggregate (typeUFixed 3 0) (typeVector 2 (typeAggregate (typeUFixed 3 0) "
                                  "(typeVector 3 (typeComplex (typeUFixed 3 0))))))");
    CompoundTypeInfo records =
        shape("(typeAggregate (typeUFixed 1 0) (typeAggregate (typeUFixed 1 0) (typeUFixed 1 0)))");
};

TEST_F(LoweredElementsTest, blocksTellNestedVectorsFromTheInside) {
    EXPECT_EQ(read("2 1", "", matrix), "element 2 of element 1: element 2, element 1");
    EXPECT_EQ(read("2 1 imag", "", matrix),
              "imaginary part of element 2 of element 1: element 2, element 1, imaginary part");
}

TEST_F(LoweredElementsTest, blocksTellOtherLevelsFromTheOutside) {
    EXPECT_EQ(read("1 0 1 2 real", "", deep), "real part of element 2 of member 1 of element 0 of member 1: "
                                              "member 1, element 0, member 1, element 2, real part");
}

TEST_F(LoweredElementsTest, boundariesTellTheOutermostLevelLast) {
    EXPECT_EQ(read("", "0 1 2 imag 1", deep), "imaginary part of element 2 of member 1 of element 0 of member 1: "
                                              "element 0, member 1, element 2, imaginary part, member 1");
    EXPECT_EQ(read("", "0", deep), "member 0: member 0");
}

TEST_F(LoweredElementsTest, boundariesCountNestedVectorsThrough) {
    EXPECT_EQ(read("", "imag 5", matrix),
              "imaginary part of element 2 of element 1: imaginary part, element 2 of element 1");
    EXPECT_EQ(read("", "6", matrix), "none");
}

TEST_F(LoweredElementsTest, recordsInRecordsCountAllTheirMembers) {
    EXPECT_EQ(read("2", "", records), "member 1 of member 1: member 1 of member 1");
    EXPECT_EQ(read("0", "", records), "member 0: member 0");
    EXPECT_EQ(read("3", "", records), "none");
}

TEST_F(LoweredElementsTest, partsMayComeOffBeforeVectors) {
    EXPECT_EQ(read("real", "", matrix), "real part of each element of each element: real part");
    EXPECT_EQ(read("", "1 imag", matrix).substr(0, 42), "imaginary part of element 1 of element 0: ");
}

TEST_F(LoweredElementsTest, whatDoesNotFitIsNotRead) {
    EXPECT_EQ(read("2", "", matrix), "none");
    EXPECT_EQ(read("3 1", "", matrix), "none");
    EXPECT_EQ(read("0", "", shape("(typeUFixed 1 0)")), "none");
    EXPECT_EQ(read("real", "", records), "none");
}

TEST_F(LoweredElementsTest, withoutATypeLanesAreTakenForNestedVectors) {
    EXPECT_EQ(read("2 1 imag", "", std::nullopt),
              "imaginary part of element 2 of element 1: element 2, element 1, imaginary part");
}

TEST_F(LoweredElementsTest, pinsHaveTheElementsDepthFirst) {
    const std::vector<Elements> all = elementsInOrder(steps("aunroll vunroll aunroll vunroll cunroll"), deep);
    ASSERT_EQ(all.size(), 15U);
    EXPECT_EQ(elementsText(all[0]), "member 0");
    EXPECT_EQ(elementsText(all[1]), "member 0 of element 0 of member 1");
    EXPECT_EQ(elementsText(all[3]), "imaginary part of element 0 of member 1 of element 0 of member 1");
    EXPECT_EQ(elementsText(all[14]), "imaginary part of element 2 of member 1 of element 1 of member 1");
}

TEST_F(LoweredElementsTest, pinsKeepTogetherWhatDidNotComeApart) {
    const std::vector<Elements> rows = elementsInOrder(steps("vunroll"), matrix);
    ASSERT_EQ(rows.size(), 6U);
    EXPECT_EQ(elementsText(rows[5]), "element 2 of element 1");
    EXPECT_EQ(elementsInOrder(steps("aunroll"), deep).size(), 2U);
}

TEST_F(LoweredElementsTest, elsewhereIsWhatDiffersOnAnyLevel) {
    EXPECT_FALSE(wantedInside({lane(1)}, {lane(0)}));
    EXPECT_FALSE(wantedInside({lane(1), lane(2)}, {lane(1), lane(0)}));
    EXPECT_EQ(wantedInside({at(CompoundKind::Vector, {0, 2}), lane(2)}, {lane(2), lane(2)}), Elements{});
}

TEST_F(LoweredElementsTest, insideIsWhatThePlaceHasMoreOf) {
    EXPECT_EQ(wantedInside({lane(1), lane(2)}, {lane(1)}), Elements{lane(2)});
    EXPECT_EQ(wantedInside({lane(1)}, {}), Elements{lane(1)});
    EXPECT_EQ(wantedInside({lane(1)}, {lane(1), at(CompoundKind::Complex, {0})}), Elements{});
    const ElementsOfLevel each{CompoundKind::Vector, std::nullopt};
    const ElementsOfLevel imaginary = at(CompoundKind::Complex, {1});
    EXPECT_EQ(wantedInside({lane(1), imaginary}, {each, imaginary}), Elements{lane(1)});
    EXPECT_FALSE(wantedInside({each, imaginary}, {each, at(CompoundKind::Complex, {0})}));
}

TEST_F(LoweredElementsTest, aPartIsNotTakenForALane) {
    EXPECT_EQ(wantedInside({lane(1)}, {at(CompoundKind::Complex, {0})}), Elements{lane(1)});
}

} // namespace
} // namespace orvo::driver
