// What an estimate sees of a block.
#include "generator/primitive.h"

#include "support/simulatorfixture.h"

#include <orvo/context.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <map>

namespace orvo::generator {
namespace {

class PrimitiveTest : public orvo::test::SimulatorFixture {
  protected:
    /// Types by the names of ports and wires.
    std::map<std::string, NumTypeSpec> known;
    TypesAt types{[this](const Port &port) { return typeOf(port.getName()->toString()); },
                  [this](const Wire &wire) { return typeOf(wire.getName()->toString()); }};
    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
    BuildOptions options = BuildOptions::of(model);

  private:
    PureValueRef typeOf(const std::string &name) {
        const auto hit = known.find(name);
        return hit == known.end() ? PureValueRef() : PureValueRef(hit->second.toValue(mgr.context()));
    }
};

TEST_F(PrimitiveTest, knowsTheTypesOfItsEnds) {
    Block &made = block(model, "b", "addBlock");
    Wire &wire = *Wire::create(made, A_PRIM_WIRE_OUT);
    made.setParam(value("0"), wire);
    made.setParam(value("1"), wire);
    known = {{"0", NumTypeSpec::sfixed(8, 0)}, {"primWireOut", NumTypeSpec::ufixed(3, 1)}};
    const Primitive primitive(made, types, options);
    EXPECT_EQ(primitive.port(0), NumTypeSpec::sfixed(8, 0));
    EXPECT_EQ(primitive.out(), NumTypeSpec::ufixed(3, 1));
    EXPECT_THROW(primitive.port(1), UnknownType);
    EXPECT_THROW(primitive.port(2), UnknownType);
    EXPECT_THROW(primitive.wire(A_PRIM_WIRE_AUX), UnknownType);
    EXPECT_THROW(primitive.operands(), UnknownType);
    known["1"] = NumTypeSpec::sfixed(4, 0);
    EXPECT_EQ(primitive.operands(), (std::vector<NumTypeSpec>{NumTypeSpec::sfixed(8, 0), NumTypeSpec::sfixed(4, 0)}));
}

TEST_F(PrimitiveTest, readsConstantsInTheUnitsOfTheirType) {
    Block &fixed = block(model, "c", "constBlock", {{"constValue", "0x28p-4"}});
    Block &made = block(model, "b", "multBlock");
    made.setParam(value("0"), *Wire::create(fixed, A_PRIM_WIRE_OUT));
    known = {{"0", NumTypeSpec::sfixed(4, 2)}};
    const Primitive primitive(made, types, options);
    EXPECT_EQ(primitive.constantAt(0)->get_si(), 10);
    EXPECT_FALSE(primitive.constantAt(1).has_value());
    fixed.setParam(A_CONST_VALUE, ValueRef(value("100")));
    EXPECT_EQ(primitive.constantAt(0)->get_si(), 31);
    fixed.setParam(A_CONST_VALUE, ValueRef(value("+nan")));
    EXPECT_FALSE(primitive.constantAt(0).has_value());
    fixed.setParam(A_BLOCK_TYPE, A_NOT_BLOCK);
    EXPECT_FALSE(primitive.constantAt(0).has_value());
}

TEST_F(PrimitiveTest, countsElementsOfTuplesInTuples) {
    Block &made = block(model, "b", "lutBlock", {{"lutData", "((1 2) (3 4 5))"}, {"delayLength", "7"}});
    const Primitive primitive(made, types, options);
    EXPECT_EQ(primitive.elements(A_LUT_DATA), 5);
    EXPECT_EQ(primitive.elements(A_DELAY_LENGTH), 1);
    EXPECT_EQ(primitive.elements(A_CONST_VALUE), 0);
    EXPECT_EQ(primitive.count(A_DELAY_LENGTH), 7);
    EXPECT_EQ(primitive.count(A_LUT_DATA), std::nullopt);
}

TEST_F(PrimitiveTest, takesOptionsOfTheModelThenOfTheDesign) {
    EXPECT_TRUE(options.hardFloats);
    EXPECT_EQ(options.delayMemoryFrom, -1);
    design.setParam(A_SYNTH_DELAY_RAM_THRESHOLD, ValueRef(value("40")));
    design.setParam(A_SYNTH_DEVICE_ENABLE_HARDFP, A_FALSE);
    EXPECT_EQ(BuildOptions::of(model).delayMemoryFrom, 40);
    EXPECT_FALSE(BuildOptions::of(model).hardFloats);
    model.setParam(A_SYNTH_DELAY_RAM_THRESHOLD, ValueRef(value("30")));
    EXPECT_EQ(BuildOptions::of(model).delayMemoryFrom, 30);
    model.setParam(A_SYNTH_DEVICE_FAMILY, value("\"Quillon 2\""));
    EXPECT_EQ(BuildOptions::of(model).device->family().name, "Quillon 2");
}

TEST_F(PrimitiveTest, countsScalarsAndBits) {
    NumTypeSpec type = NumTypeSpec::sfixed(8, 2);
    EXPECT_EQ(scalarsOf(type), 1);
    type.setComplex(true);
    type.addVector(3);
    type.addVector(4);
    EXPECT_EQ(scalarsOf(type), 24);
    EXPECT_EQ(allBitsOf(type), 240);
    EXPECT_EQ(bitsOf(NumTypeSpec::sfloatIEEE(23, 8)), 32);
    EXPECT_EQ(bitsOf(NumTypeSpec()), 0);
}

} // namespace
} // namespace orvo::generator
