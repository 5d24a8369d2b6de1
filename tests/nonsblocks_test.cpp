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
    ASSERT_EQ(linker.lines.size(), 26U);
    EXPECT_EQ(linker.lines.front(), "registerNONSBlock=registerBlock");
    EXPECT_EQ(linker.lines.back(), "forLoopBlock=forLoopBlock");
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
}

} // namespace
} // namespace orvo
