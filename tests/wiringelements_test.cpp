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
                            (source.elements ? elementsText(*source.elements) : "all"));
        }
        return texts;
    }
    using Lines = std::vector<std::string>;
    static Elements some(std::vector<std::size_t> elements) { return elements; }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Block &input = *Block::create(top, "in", A_INPUT_BLOCK);
};

TEST_F(WiringElementsTest, sayElementsForPeople) {
    EXPECT_EQ(elementsText({3}), "element 3");
    EXPECT_EQ(elementsText({3, 4}), "elements 3, 4");
    EXPECT_EQ(elementsText({3, 4, 5}), "elements 3 to 5");
    EXPECT_EQ(elementsText({3, 4, 6}), "elements 3, 4, 6");
}

TEST_F(WiringElementsTest, ofAnUnpackAndAPackAreToldByNumbers) {
    Wire &x = vector("x", 4);
    EXPECT_EQ(taken(wiring(A_VUNPACK_BLOCK, {{"vunpackPortIn", &x}}), "2", {}), Lines{"vunpackPortIn: element 2"});
    Block &pack = wiring(A_VPACK_BLOCK, {{"0", &x}, {"1", &x}, {"2", &x}});
    EXPECT_EQ(taken(pack, "0", some({0, 2})), (Lines{"0: all", "2: all"}));
    EXPECT_EQ(taken(pack, "0", {}), (Lines{"0: all", "1: all", "2: all"}));
}

TEST_F(WiringElementsTest, ofASplitFollowItsLayout) {
    Block &split = wiring(A_VSPLIT_BLOCK, {{"0", &vector("x", 6)}});
    split.setParam(A_VSPLIT_LAYOUT, value("(1 4 1)"));
    EXPECT_EQ(taken(split, "0", {}), Lines{"0: element 0"});
    EXPECT_EQ(taken(split, "1", {}), Lines{"0: elements 1 to 4"});
    EXPECT_EQ(taken(split, "1", some({0, 2})), Lines{"0: elements 1, 3"});
    EXPECT_EQ(taken(split, "2", {}), Lines{"0: element 5"});
    // One element is no vector, so that those of it lie inside.
    EXPECT_EQ(taken(split, "2", some({3})), Lines{"0: element 5"});
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
}

TEST_F(WiringElementsTest, ofAConcatenationStandBehindEachOther) {
    Wire &single = typed("s", "(typeUFixed 1 0)");
    const std::vector<std::pair<const char *, Wire *>> inputs{
        {"0", &vector("x", 2)}, {"1", &single}, {"2", &vector("y", 3)}};
    Block &concat = wiring(A_VCONCAT_BLOCK, inputs);
    EXPECT_EQ(taken(concat, "0", {}), (Lines{"0: all", "1: all", "2: all"}));
    EXPECT_EQ(taken(concat, "0", some({1, 2, 4})), (Lines{"0: element 1", "1: all", "2: element 1"}));
    EXPECT_EQ(taken(concat, "0", some({0})), Lines{"0: element 0"});
    // Behind an input of unknown length all may be meant.
    concat.setParam(value("1"), *Wire::create(input, "i"));
    EXPECT_EQ(taken(concat, "0", some({1})), (Lines{"0: element 1", "1: all", "2: all"}));
}

} // namespace
} // namespace orvo::driver
