// Blocks that are made in place of a block.
#include "orvo/blockbuilder.h"

#include "support/invariants.h"
#include "support/simulatorfixture.h"

#include <orvo/wire.h>

namespace orvo::internal {
namespace {

class BlockBuilderTest : public test::SimulatorFixture {
  protected:
    BlockBuilderTest() {
        old.setParam(value("0"), source);
        output(model, "o", out);
    }
    std::string param(const std::string &name, const StaticString &key) {
        const Block *found = model.getBlock(value(name));
        const ValueRef set = found == nullptr ? ValueRef() : found->getParam(key);
        return set ? set->toString() : "";
    }
    const Block &driver() { return model.getOutputBlock()->getPort(value("o"))->peekWire()->getBlock(); }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
    Wire &source = input(model, "i", "s8.0");
    Block &old = block(model, "old", "absBlock");
    Wire &out = *Wire::create(old, A_PRIM_WIRE_OUT);
    const BlockBuilder builder{old};
};

TEST_F(BlockBuilderTest, namesBlocksAfterTheOneThatTheyReplace) {
    EXPECT_EQ(builder.make(A_NEG_BLOCK, "neg").block().getName(), value("(old neg)"));
    EXPECT_EQ(builder.make(A_NEG_BLOCK, "neg", {3, 1}).block().getName(), value("(old neg 3 1)"));
    EXPECT_EQ(builder.makeSuffixed(A_NEG_BLOCK, "neg").block().getName(), value("old_neg"));
    EXPECT_EQ(builder.makeSuffixed(A_NEG_BLOCK, "neg").block().type(), A_NEG_BLOCK.get_ptr());
}

TEST_F(BlockBuilderTest, setsUpABlockInOneExpression) {
    old.setParam(A_FLOAT_SUBNORMALS, A_TRUE);
    const MadeBlock made = builder.make(A_BIT_SELECT_BLOCK, "bit");
    made.set(A_BIT_SELECT_BIT_OFFSET, 7)
        .type(A_BIT_SELECT_OUTPUT_TYPE, NumTypeSpec::ufixed(1, 0))
        .copy(old, {&A_FLOAT_SUBNORMALS, &A_FLOAT_ROUNDING})
        .in(0, builder.input(0));
    EXPECT_EQ(param("(old bit)", A_BIT_SELECT_BIT_OFFSET), "7");
    EXPECT_EQ(param("(old bit)", A_BIT_SELECT_OUTPUT_TYPE), "(typeUFixed 1 0)");
    EXPECT_EQ(param("(old bit)", A_FLOAT_SUBNORMALS), A_TRUE.text());
    EXPECT_EQ(param("(old bit)", A_FLOAT_ROUNDING), "");
    EXPECT_EQ(made.block().getPort(value("0"))->peekWire(), &source);
    const Wire &main = made;
    EXPECT_EQ(&main, made.block().getWire(A_PRIM_WIRE_OUT));
    EXPECT_EQ(&made.out(value("x")), &made.out(value("x")));
}

TEST_F(BlockBuilderTest, replacesAnOutputByOneOfItsType) {
    const NumTypeSpec type = NumTypeSpec::sfixed(9, 0);
    builder.replaceOutput(A_PRIM_WIRE_OUT, builder.make(A_NEG_BLOCK, "neg").in(0, source), type, type);
    builder.replaceOutput(A_PRIM_WIRE_AUX, source);
    builder.done();
    EXPECT_EQ(driver().getName(), value("(old neg)"));
    EXPECT_EQ(model.getBlock(value("old")), nullptr);
    EXPECT_TRUE(test::checkInvariants(design));
}

TEST_F(BlockBuilderTest, bringsAnOutputBackToTheTypeThatItHad) {
    builder.replaceOutput(A_PRIM_WIRE_OUT, source, NumTypeSpec::sfixed(8, 0), NumTypeSpec::sfixed(9, 0));
    EXPECT_EQ(driver().getName(), value("(old castBack primWireOut)"));
    EXPECT_EQ(driver().type(), A_CAST_BLOCK.get_ptr());
    const std::string name = "(old castBack primWireOut)";
    EXPECT_EQ(param(name, A_CAST_OUTPUT_TYPE), "(typeSFixed 9 0)");
    EXPECT_EQ(param(name, A_CAST_MODE), A_CAST_MODE_CONVERT.text());
    EXPECT_EQ(param(name, A_CAST_ROUNDING_MODE), A_ROUNDING_TRUNC.text());
    EXPECT_EQ(param(name, A_CAST_SATURATE_MODE), A_SATURATE_NONE.text());
}

TEST_F(BlockBuilderTest, bringsChosenBitsBackAsBits) {
    NumTypeSpec wanted = NumTypeSpec::sfixed(4, 4);
    wanted.addVector(3);
    builder.replaceOutput(A_PRIM_WIRE_OUT, source, NumTypeSpec::ufixed(8, 0), wanted, Keep::Bits);
    EXPECT_EQ(param("(old castBack primWireOut)", A_CAST_MODE), A_CAST_MODE_REINTERP.text());
    EXPECT_EQ(param("(old castBack primWireOut)", A_CAST_OUTPUT_TYPE), "(typeVector 3 (typeSFixed 4 4))");
}

TEST_F(BlockBuilderTest, convertsOnlyWhatHasAnotherType) {
    const NumTypeSpec has = NumTypeSpec::sfixed(8, 0);
    EXPECT_EQ(&builder.converted("wide", source, has, has), &source);
    EXPECT_EQ(builder.converted("wide", source, has, NumTypeSpec::sfixed(9, 0), Keep::Value, {2}).getBlock().getName(),
              value("(old wide 2)"));
}

TEST_F(BlockBuilderTest, saysATypeByAPin) {
    const PureValueRef type = value("(typeSFixed 8 0)");
    const Wire &held = builder.pinned("typePin", source, type, {4});
    EXPECT_EQ(held.getBlock().getName(), value("(old typePin 4)"));
    EXPECT_EQ(held.getBlock().type(), A_TYPE_PIN_BLOCK.get_ptr());
    EXPECT_EQ(param("(old typePin 4)", A_TYPE_PIN_TYPE), "(typeSFixed 8 0)");
    EXPECT_EQ(held.getBlock().getPort(value("0"))->peekWire(), &source);
    EXPECT_EQ(held.getName(), value("0"));
}

TEST_F(BlockBuilderTest, asksForPortsThatAreThere) { EXPECT_DEATH(builder.input(1), "reads nothing"); }

TEST(BlockBuilderTypes, takeTheScalarAndTheShapeApart) {
    NumTypeSpec shape = NumTypeSpec::sfixed(8, 0);
    shape.setComplex(true);
    shape.addVector(3);
    EXPECT_EQ(scalarOf(shape), NumTypeSpec::sfixed(8, 0));
    NumTypeSpec wanted = NumTypeSpec::ufixed(1, 0);
    wanted.setComplex(true);
    wanted.addVector(3);
    EXPECT_EQ(likeScalar(shape, NumTypeSpec::ufixed(1, 0)), wanted);
}

} // namespace
} // namespace orvo::internal
