// Block types and their variants for regions without scheduling.
#include <orvo/nonsblocks.h>

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/handlers.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinfer.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

struct CountingLinker final : Linker {
    void operator()(const ValueRef &variant, const ValueRef &plain) override {
        lines.push_back(variant->toString() + "=" + plain->toString());
    }
    std::vector<std::string> lines;
};

class NonsTest : public ::testing::Test {
  protected:
    NonsTest() { map.populate(); }
    Block &typed(const StaticString &type) {
        Block *block = Block::create(model, "b");
        block->setParam(A_BLOCK_TYPE, type);
        return *block;
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    NONSBlockMap map;
};

TEST_F(NonsTest, pairsTwentySixTypesVariantFirst) {
    CountingLinker linker;
    mapNONSBlocks(linker);
    const std::vector<const StaticString *> pairs[] = {
        {&U_REGISTER_BLOCK, &A_REGISTER_BLOCK},
        {&U_ADD_BLOCK, &A_ADD_BLOCK},
        {&U_SUB_BLOCK, &A_SUB_BLOCK},
        {&U_AND_BLOCK, &A_AND_BLOCK},
        {&U_OR_BLOCK, &A_OR_BLOCK},
        {&U_NOT_BLOCK, &A_NOT_BLOCK},
        {&U_XOR_BLOCK, &A_XOR_BLOCK},
        {&U_NAND_BLOCK, &A_NAND_BLOCK},
        {&U_NOR_BLOCK, &A_NOR_BLOCK},
        {&U_XNOR_BLOCK, &A_XNOR_BLOCK},
        {&U_AND_REDUCE_BLOCK, &A_AND_REDUCE_BLOCK},
        {&U_OR_REDUCE_BLOCK, &A_OR_REDUCE_BLOCK},
        {&U_XOR_REDUCE_BLOCK, &A_XOR_REDUCE_BLOCK},
        {&U_NAND_REDUCE_BLOCK, &A_NAND_REDUCE_BLOCK},
        {&U_NOR_REDUCE_BLOCK, &A_NOR_REDUCE_BLOCK},
        {&U_XNOR_REDUCE_BLOCK, &A_XNOR_REDUCE_BLOCK},
        {&U_CAST_BLOCK, &A_CAST_BLOCK},
        {&U_CMP_EQ_BLOCK, &A_CMP_EQ_BLOCK},
        {&U_CMP_NE_BLOCK, &A_CMP_NE_BLOCK},
        {&U_CMP_LT_BLOCK, &A_CMP_LT_BLOCK},
        {&U_CMP_GE_BLOCK, &A_CMP_GE_BLOCK},
        {&U_MUX_BLOCK, &A_MUX_BLOCK},
        {&U_BIT_SELECT_BLOCK, &A_BIT_SELECT_BLOCK},
        {&U_BIT_JOIN_BLOCK, &A_BIT_JOIN_BLOCK},
        {&U_LUT_BLOCK, &A_LUT_BLOCK},
        {&U_FOR_LOOP_BLOCK, &A_FOR_LOOP_BLOCK},
    };
    ASSERT_EQ(linker.lines.size(), std::size(pairs));
    for (std::size_t i = 0; i < std::size(pairs); ++i) {
        EXPECT_EQ(linker.lines[i], std::string(pairs[i][0]->text()) + "=" + pairs[i][1]->text());
    }
}

TEST_F(NonsTest, knowsPartnersInBothDirections) {
    EXPECT_EQ(map.lookup(A_ADD_BLOCK), U_ADD_BLOCK);
    EXPECT_EQ(map.lookup(U_ADD_BLOCK), A_ADD_BLOCK);
    EXPECT_FALSE(map.lookup(A_FIR_BLOCK));
    EXPECT_FALSE(NONSBlockMap().lookup(A_ADD_BLOCK));
}

TEST_F(NonsTest, givesVariantsTheHandlersOfThePlainType) {
    class Rule final : public TypeInferHandler {};
    mgr.context()->getBlockClass(A_ADD_BLOCK)->registerHandler<TypeInferHandler>(new Rule);
    HandlerLinker linker(mgr.context(), {&typeid(TypeInferHandler)});
    mapNONSBlocks(linker);
    EXPECT_EQ(mgr.context()->getBlockClass(U_ADD_BLOCK)->get<TypeInferHandler>(),
              mgr.context()->getBlockClass(A_ADD_BLOCK)->get<TypeInferHandler>());
}

TEST_F(NonsTest, acceptsTypesWithAPartnerAndTypesThatDoNoWork) {
    EXPECT_TRUE(map.blockSupportsNONS(typed(A_MUX_BLOCK)));
    EXPECT_TRUE(map.blockSupportsNONS(typed(U_MUX_BLOCK)));
    for (const StaticString *type : {&A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK,
                                     &A_TYPE_PIN_BLOCK, &A_SELECT_BLOCK, &A_ECC_SINK_BLOCK, &A_ECC_SRC_BLOCK}) {
        EXPECT_TRUE(map.blockSupportsNONS(typed(*type))) << type->text();
        EXPECT_FALSE(map.blockSupportsNONS(typed(*type), true)) << type->text();
    }
    EXPECT_FALSE(map.blockSupportsNONS(typed(A_FIR_BLOCK)));
    EXPECT_FALSE(map.blockSupportsNONS(*Block::create(model, "untyped")));
    EXPECT_TRUE(map.blockSupportsNONS(typed(U_CAST_BLOCK)));
}

TEST_F(NonsTest, acceptsOnlyCastsThatMoveBits) {
    Block &cast = typed(A_CAST_BLOCK);
    EXPECT_FALSE(map.blockSupportsNONS(cast));
    cast.setParam(A_CAST_SATURATE_MODE, A_SATURATE_NONE);
    EXPECT_TRUE(map.blockSupportsNONS(cast));
    cast.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_TRUNC);
    EXPECT_TRUE(map.blockSupportsNONS(cast));
    cast.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_BIASED);
    EXPECT_FALSE(map.blockSupportsNONS(cast));
    cast.setParam(A_CAST_MODE, A_CAST_MODE_REINTERP);
    EXPECT_TRUE(map.blockSupportsNONS(cast));
}

TEST_F(NonsTest, countsOneCycleForARegister) {
    EXPECT_EQ(map.latencyOfNONSBlock(typed(U_REGISTER_BLOCK)), 1);
    EXPECT_EQ(map.latencyOfNONSBlock(typed(U_ADD_BLOCK)), 0);
    // Its partner is the variant.
    EXPECT_EQ(map.latencyOfNONSBlock(typed(A_REGISTER_BLOCK)), 0);
    EXPECT_EQ(map.latencyOfNONSBlock(*Block::create(model, "untyped")), 0);
}

} // namespace
} // namespace orvo
