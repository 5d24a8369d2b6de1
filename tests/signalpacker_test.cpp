// Trees of packs and unpacks.
#include <orvo/signalpacker.h>

#include "support/invariants.h"
#include "support/simulatorfixture.h"

namespace orvo {
namespace {

class SignalPackerTest : public test::SimulatorFixture {
  protected:
    /// A vector of 3 complex numbers.
    static CompoundTypeInfo complexVector() {
        CompoundTypeInfo shape = CompoundTypeInfo::createVectorInfo(3);
        for (int i = 0; i < 3; ++i) {
            shape.setLevelBelow(i, CompoundTypeInfo::createComplexInfo());
        }
        return shape;
    }
    std::vector<std::string> blocksOf(const StaticString &type) {
        std::vector<std::string> names;
        for (const Block &block : model) {
            if (block.type() == type.get_ptr()) {
                names.push_back(block.getName()->toString());
            }
        }
        return names;
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
};

TEST_F(SignalPackerTest, unpacksAVectorOfComplexNumbersLevelByLevel) {
    Wire &whole = input(model, "x", "[3] c s4.0");
    SignalPacker packer(complexVector(), model, value("x"));
    packer.doUnpack(whole);
    EXPECT_EQ(blocksOf(A_VUNPACK_BLOCK), std::vector<std::string>{"(x vup)"});
    EXPECT_EQ(blocksOf(A_CUNPACK_BLOCK), (std::vector<std::string>{"(x cup 0)", "(x cup 1)", "(x cup 2)"}));
    const Wire *last = packer.getUnpackedWire(complexVector().getIndexDeep(5));
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->getBlock().getName(), value("(x cup 2)"));
    EXPECT_EQ(last->getName(), A_CUNPACK_WIRE_IMAG);
    EXPECT_EQ(packer.getUnpackedWire(CompoundDecorIndex::createVectorIndex(0)), nullptr);
    EXPECT_TRUE(test::checkInvariants(design));
}

TEST_F(SignalPackerTest, packsWhatItUnpacked) {
    Wire &whole = input(model, "x", "[3] c s4.0");
    Block &out = *Block::create(model, "out", A_OUTPUT_BLOCK);
    SignalPacker unpacks(complexVector(), model, value("x"));
    unpacks.doUnpack(whole);
    SignalPacker packs(complexVector(), model, value("y"));
    packs.doPack({MaybePort(out, value("y"))});
    for (const CompoundDecorIndex leaf : complexVector()) {
        ASSERT_EQ(packs.getPackedPorts(leaf).size(), 1U);
        packs.getPackedPorts(leaf)[0].setWire(*unpacks.getUnpackedWire(leaf));
    }
    EXPECT_EQ(blocksOf(A_VPACK_BLOCK), std::vector<std::string>{"(y vp)"});
    EXPECT_EQ(blocksOf(A_CPACK_BLOCK).size(), 3U);
    sim::Simulator simulator(design, model);
    const test::Numbers in{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(stepWith(simulator, in), in);
}

TEST_F(SignalPackerTest, letsAPlainSignalThrough) {
    Wire &whole = input(model, "x", "s4.0");
    Block &out = *Block::create(model, "out", A_OUTPUT_BLOCK);
    SignalPacker packer(CompoundTypeInfo(), model, value("x"));
    packer.doUnpack(whole);
    packer.doPack({MaybePort(out, value("y"))});
    const CompoundDecorIndex all = CompoundDecorIndex::createEmptyIndex();
    EXPECT_EQ(packer.getUnpackedWire(all), &whole);
    ASSERT_EQ(packer.getPackedPorts(all).size(), 1U);
    EXPECT_EQ(&packer.getPackedPorts(all)[0].getBlock(), &out);
    EXPECT_EQ(blocksOf(A_VUNPACK_BLOCK).size() + blocksOf(A_VPACK_BLOCK).size(), 0U);
}

TEST_F(SignalPackerTest, knowsNoPortsOfALeafThatWasNotPacked) {
    Block &out = *Block::create(model, "out", A_OUTPUT_BLOCK);
    SignalPacker packer(CompoundTypeInfo::createVectorInfo(2), model, value("y"));
    EXPECT_TRUE(packer.getPackedPorts(CompoundDecorIndex::createVectorIndex(0)).empty());
    packer.doPack({MaybePort(out, value("y"))});
    EXPECT_EQ(packer.getPackedPorts(CompoundDecorIndex::createVectorIndex(1)).size(), 1U);
    EXPECT_TRUE(packer.getPackedPorts(CompoundDecorIndex::createVectorIndex(2)).empty());
}

TEST_F(SignalPackerTest, packsNothingForNobody) {
    SignalPacker packer(complexVector(), model, value("y"));
    packer.doPack({});
    EXPECT_EQ(model.size(), 0U);
    EXPECT_TRUE(packer.getPackedPorts(complexVector().getIndexDeep(0)).empty());
}

} // namespace
} // namespace orvo
