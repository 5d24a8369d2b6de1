// Which blocks and models are what to the scheduler.
#include <orvo/modelkinds.h>

#include "support/constraintrig.h"

#include <algorithm>

namespace orvo {
namespace {

class Kinds : public test::ConstraintRig {
  protected:
    void retime(const ValueRef &timed) { top.setParam(A_SYNTH_CIRCUIT_TIMED, timed); }
};

TEST_F(Kinds, tellBlocksByTheirTypes) {
    Block &block = *Block::create(top, "b");
    const auto is = [&](const StaticString &type) {
        block.setParam(A_BLOCK_TYPE, type);
        return std::pair(isIPBlock(block), isInterfaceBlock(block));
    };
    for (const StaticString *type :
         {&A_NCO_BLOCK, &A_FIR_BLOCK, &A_CIC_BLOCK, &A_MIXER_BLOCK, &A_SCALE_BLOCK, &A_CHANVIEW_BLOCK,
          &A_SHARED_FIFO_BLOCK, &A_EXT_IFACE_BLOCK, &A_HIDDEN_IFACE_BLOCK, &A_SCHEDULED_MODEL_BLOCK}) {
        EXPECT_EQ(is(*type), std::pair(true, false)) << type->text();
    }
    for (const auto &types : {interfaceBlockTypesInput(), interfaceBlockTypesOutput()}) {
        EXPECT_EQ(types.size(), 4U);
        for (const StaticString *type : types) {
            EXPECT_EQ(is(*type), std::pair(false, true)) << type->text();
        }
    }
    EXPECT_EQ(is(A_ADD_BLOCK), std::pair(false, false));
    EXPECT_EQ(is(A_MODEL_BLOCK), std::pair(false, false));
}

TEST_F(Kinds, tellModelsByTheirTiming) {
    struct Row {
        ValueRef timed;
        bool scheduled;
        bool shuffled;
        bool neither;
    };
    const Row rows[] = {{A_TRUE.get(), true, false, false},
                        {A_FALSE.get(), false, true, false},
                        {A_SYNTH_NO_SCHEDULE_NO_SHUFFLE.get(), false, false, true},
                        {nullptr, false, false, true}};
    for (const Row &row : rows) {
        retime(row.timed);
        EXPECT_EQ(isScheduledModel(top), row.scheduled);
        EXPECT_EQ(isShuffleDelayModel(top), row.shuffled);
        EXPECT_FALSE(isNotOptimizedNotScheduledModel(top));
        top.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
        EXPECT_EQ(isNotOptimizedNotScheduledModel(top), row.neither);
        top.setParam(A_SYNTH_OPTIMIZE, nullptr);
    }
}

TEST_F(Kinds, takeAModelThatSaysNothingForARoot) {
    EXPECT_TRUE(isScheduleRoot(top));
    retime(A_TRUE);
    EXPECT_TRUE(isScheduleRoot(top));
    retime(A_FALSE);
    EXPECT_FALSE(isScheduleRoot(top));
    EXPECT_TRUE(isScheduleRoot(below));
    call2.setParam(A_INLINE_SCHEDULE, A_TRUE);
    EXPECT_FALSE(isScheduleRoot(below));
}

TEST_F(Kinds, readNamesAsPeopleWriteThem) {
    Context *context = mgr.context();
    EXPECT_EQ(parseName("a", context), value("a"));
    EXPECT_EQ(parseName("(dupName 0 a)", context), value("(dupName 0 a)"));
    EXPECT_EQ(parseName(" 7 ", context), PureValueRef(NumberValue::get(7, context)));
    EXPECT_EQ(parseName("two words", context), PureValueRef(StringValue::get("two words", context)));
    EXPECT_EQ(parseName("(open", context), PureValueRef(StringValue::get("(open", context)));
    EXPECT_EQ(parseName("", context), PureValueRef(StringValue::get("", context)));
}

TEST_F(Kinds, writeChainsFromTheRootDown) {
    EXPECT_EQ(tupleFromRefChain({}, mgr.context())->size(), 0U);
    EXPECT_EQ(tupleFromRefChain({&call1, &innerIn}, mgr.context())->toString(), "((top call1) (below innerIn))");
}

} // namespace
} // namespace orvo
