// What wiring takes from where, block by block.
#include "driver/wiringelements.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo::driver {
namespace {

class WiringElementsTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    /// A signal of the type.
    Wire &typed(const std::string &name, const std::string &type) {
        Block &pin = *Block::create(top, value(name));
        pin.setParam(A_BLOCK_TYPE, A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, value(type));
        pin.setParam(value("0"), *Wire::create(input, value("i" + name)));
        return *Wire::create(pin, value("0"));
    }
    Wire &vector(const std::string &name, int length) {
        return typed(name, "(typeVector " + std::to_string(length) + " (typeUFixed 1 0))");
    }
    Wire &matrix(const std::string &name) { return typed(name, "(typeVector 2 (typeVector 3 (typeUFixed 1 0)))"); }
    /// "b", which reads the wires at ports of the names, and gives "0", "1" and "2".
    Block &wiring(const StaticString &type, const std::vector<std::pair<const char *, Wire *>> &ports) {
        Block &made = *Block::create(top, "b", type);
        for (const auto &[name, driver] : ports) {
            made.setParam(value(name), *driver);
        }
        for (const char *output : {"0", "1", "2"}) {
            Wire::create(made, value(output));
        }
        return made;
    }
    /// As "port: elements" for each port that something is taken from.
    std::vector<std::string> taken(const Block &block, const char *output, const Elements &elements) {
        std::vector<std::string> texts;
        WiringElements wiring(design);
        for (const WiringElements::Source &source : wiring.sourcesOf(block, value(output), elements)) {
            texts.push_back(source.port->getName()->toString() + ": " +
                            (source.elements.empty() ? "all" : elementsText(source.elements)));
        }
        return texts;
    }
    using Lines = std::vector<std::string>;
    static ElementsOfLevel vectorOf(std::vector<std::size_t> elements) {
        return {CompoundKind::Vector, std::move(elements)};
    }
    static ElementsOfLevel members(std::vector<std::size_t> numbers) {
        return {CompoundKind::Aggregate, std::move(numbers)};
    }
    static ElementsOfLevel part(std::size_t number) {
        return {CompoundKind::Complex, std::vector<std::size_t>{number}};
    }
    static ElementsOfLevel every() { return {CompoundKind::Vector, std::nullopt}; }
    static Elements some(std::vector<std::size_t> elements) { return {vectorOf(std::move(elements))}; }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Block &input = *Block::create(top, "in", A_INPUT_BLOCK);
};

TEST_F(WiringElementsTest, sayElementsForPeople) {
    EXPECT_EQ(elementsText(some({3})), "element 3");
    EXPECT_EQ(elementsText(some({3, 4})), "elements 3, 4");
    EXPECT_EQ(elementsText(some({3, 4, 5})), "elements 3 to 5");
    EXPECT_EQ(elementsText(some({3, 4, 6})), "elements 3, 4, 6");
    EXPECT_EQ(elementsText({}), "");
}

TEST_F(WiringElementsTest, sayTheInnermostLevelFirst) {
    EXPECT_EQ(elementsText({members({2}), every(), part(1)}), "imaginary part of each element of member 2");
    EXPECT_EQ(elementsText({vectorOf({0, 1, 2}), members({0, 1})}), "members 0, 1 of elements 0 to 2");
    EXPECT_EQ(elementsText({part(0)}), "real part");
}

TEST_F(WiringElementsTest, ofAnUnpackAndAPackAreToldByNumbers) {
    Wire &x = vector("x", 4);
    EXPECT_EQ(taken(wiring(A_VUNPACK_BLOCK, {{"vunpackPortIn", &x}}), "2", {}), Lines{"vunpackPortIn: element 2"});
    Block &pack = wiring(A_VPACK_BLOCK, {{"0", &x}, {"1", &x}, {"2", &x}});
    EXPECT_EQ(taken(pack, "0", some({0, 2})), (Lines{"0: all", "2: all"}));
    EXPECT_EQ(taken(pack, "0", {}), (Lines{"0: all", "1: all", "2: all"}));
}

TEST_F(WiringElementsTest, ofLevelsThatStayAreKeptBehindAnUnpackAndAPack) {
    Wire &x = matrix("x");
    EXPECT_EQ(taken(wiring(A_VUNPACK_BLOCK, {{"vunpackPortIn", &x}}), "1", some({2})),
              Lines{"vunpackPortIn: element 2 of element 1"});
}

TEST_F(WiringElementsTest, ofARecordAreItsMembers) {
    Wire &x = typed("x", "(typeAggregate (typeVector 2 (typeUFixed 3 0)) (typeUFixed 5 0))");
    Block &unpack = wiring(A_AUNPACK_BLOCK, {{"aunpackPortIn", &x}});
    EXPECT_EQ(taken(unpack, "1", {}), Lines{"aunpackPortIn: member 1"});
    EXPECT_EQ(taken(unpack, "0", some({1})), Lines{"aunpackPortIn: element 1 of member 0"});
}

TEST_F(WiringElementsTest, ofAPackedRecordComeFromItsMembersInput) {
    Block &pack = wiring(A_APACK_BLOCK, {{"0", &vector("x", 2)}, {"1", &vector("y", 3)}});
    EXPECT_EQ(taken(pack, "0", {members({0}), vectorOf({1})}), Lines{"0: element 1"});
    EXPECT_EQ(taken(pack, "0", {members({1})}), Lines{"1: all"});
    EXPECT_EQ(taken(pack, "0", {}), (Lines{"0: all", "1: all"}));
}

TEST_F(WiringElementsTest, ofComplexNumbersAreTheirPartsBelowAllVectors) {
    Wire &x = typed("x", "(typeVector 2 (typeComplex (typeSFixed 3 0)))");
    Block &unpack = wiring(A_CUNPACK_BLOCK, {{"cunpackPortIn", &x}});
    EXPECT_EQ(taken(unpack, "cunpackWireImag", {}), Lines{"cunpackPortIn: imaginary part of each element"});
    EXPECT_EQ(taken(unpack, "cunpackWireReal", some({1})), Lines{"cunpackPortIn: real part of element 1"});
}

TEST_F(WiringElementsTest, ofComplexNumbersComeFromTheInputOfTheirPart) {
    Wire &x = vector("x", 2);
    Block &pack = wiring(A_CPACK_BLOCK, {{"cpackPortImag", &x}, {"cpackPortReal", &x}});
    EXPECT_EQ(taken(pack, "cpackWireOut", {vectorOf({1}), part(0)}), Lines{"cpackPortReal: element 1"});
    EXPECT_EQ(taken(pack, "cpackWireOut", {every(), part(1)}), Lines{"cpackPortImag: all"});
    EXPECT_EQ(taken(pack, "cpackWireOut", some({0})), (Lines{"cpackPortImag: element 0", "cpackPortReal: element 0"}));
}

TEST_F(WiringElementsTest, ofASplitFollowItsLayout) {
    Block &split = wiring(A_VSPLIT_BLOCK, {{"0", &vector("x", 6)}});
    split.setParam(A_VSPLIT_LAYOUT, value("(1 4 1)"));
    EXPECT_EQ(taken(split, "0", {}), Lines{"0: element 0"});
    EXPECT_EQ(taken(split, "1", {}), Lines{"0: elements 1 to 4"});
    EXPECT_EQ(taken(split, "1", some({0, 2})), Lines{"0: elements 1, 3"});
    EXPECT_EQ(taken(split, "2", {}), Lines{"0: element 5"});
    // One element is no vector, so that those of it lie inside.
    EXPECT_EQ(taken(split, "2", some({3})), Lines{"0: element 3 of element 5"});
    EXPECT_EQ(taken(split, "1", {every(), part(1)}), Lines{"0: imaginary part of elements 1 to 4"});
}

TEST_F(WiringElementsTest, ofASplitWithoutLayoutAreEqualShares) {
    EXPECT_EQ(taken(wiring(A_VSPLIT_BLOCK, {{"0", &vector("x", 5)}}), "1", {}), Lines{"0: elements 2, 3"});
}

TEST_F(WiringElementsTest, ofASplitOfUnknownLengthAreNotTold) {
    Wire &unknown = *Wire::create(input, "i");
    EXPECT_EQ(taken(wiring(A_VSPLIT_BLOCK, {{"0", &unknown}}), "1", {}), Lines{"0: all"});
}

TEST_F(WiringElementsTest, ofASelectorAreItsIndices) {
    Block &selector = wiring(A_VSELECTOR_BLOCK, {{"vselectorPortIn", &vector("x", 6)}});
    selector.setParam(A_VSELECTOR_INDICIES, value("((5 0 5 2))"));
    EXPECT_EQ(taken(selector, "0", {}), Lines{"vselectorPortIn: elements 0, 2, 5"});
    EXPECT_EQ(taken(selector, "0", some({1, 2})), Lines{"vselectorPortIn: elements 0, 5"});
    EXPECT_EQ(taken(selector, "0", {vectorOf({1}), vectorOf({7})}), Lines{"vselectorPortIn: element 7 of element 0"});
}

TEST_F(WiringElementsTest, ofASelectorOfSeveralLevelsAreItsIndicesOnEach) {
    Block &selector = wiring(A_VSELECTOR_BLOCK, {{"vselectorPortIn", &matrix("x")}});
    selector.setParam(A_VSELECTOR_INDICIES, value("((1) (2 0))"));
    EXPECT_EQ(taken(selector, "0", {}), Lines{"vselectorPortIn: elements 0, 2 of element 1"});
    // The level of a single index is none of the output.
    EXPECT_EQ(taken(selector, "0", some({0})), Lines{"vselectorPortIn: element 2 of element 1"});
}

TEST_F(WiringElementsTest, ofAConcatenationStandBehindEachOther) {
    Wire &single = typed("s", "(typeUFixed 1 0)");
    const std::vector<std::pair<const char *, Wire *>> inputs{
        {"0", &vector("x", 2)}, {"1", &single}, {"2", &vector("y", 3)}};
    Block &concat = wiring(A_VCONCAT_BLOCK, inputs);
    EXPECT_EQ(taken(concat, "0", {}), (Lines{"0: all", "1: all", "2: all"}));
    EXPECT_EQ(taken(concat, "0", some({1, 2, 4})), (Lines{"0: element 1", "1: all", "2: element 1"}));
    EXPECT_EQ(taken(concat, "0", some({0})), Lines{"0: element 0"});
    EXPECT_EQ(taken(concat, "0", {vectorOf({2, 3}), part(1)}),
              (Lines{"1: imaginary part", "2: imaginary part of element 0"}));
    EXPECT_EQ(taken(concat, "0", {every(), part(1)}),
              (Lines{"0: imaginary part of each element", "1: imaginary part", "2: imaginary part of each element"}));
    // Behind an input of unknown length all may be meant.
    concat.setParam(value("1"), *Wire::create(input, "i"));
    EXPECT_EQ(taken(concat, "0", some({1})), (Lines{"0: element 1", "1: all", "2: all"}));
}

} // namespace
} // namespace orvo::driver
