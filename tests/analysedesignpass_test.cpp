// What the pass settles of a design's wrapper.
#include "orvo/analysedesignpass.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

class AnalyseDesignTest : public ::testing::Test {
  protected:
    std::string wrapperAfter(const Node &node) {
        PassScheduler scheduler;
        scheduler.addPass("AnalyseDesignPass");
        scheduler.apply(design);
        const ValueRef found = node.getParam(A_LIB_WRAPPER_TYPE);
        return found ? found->toString() : "none";
    }
    std::string wrapperAfter() { return wrapperAfter(design); }
    void automatic(Node &node) { node.setParam(A_LIB_WRAPPER_TYPE, A_LIB_WRAPPER_TYPE_AUTOMATIC); }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    const std::string full = AnalyseDesignPass::kFullWrapper;
    const std::string logic = AnalyseDesignPass::kCombinatorialWrapper;
};

TEST_F(AnalyseDesignTest, takesAWrapperForLogicWhereNoBlockNeedsMore) {
    automatic(design);
    Block::create(model, "add", A_ADD_BLOCK);
    Block::create(model, "untyped");
    EXPECT_EQ(wrapperAfter(), logic);
}

TEST_F(AnalyseDesignTest, takesAFullWrapperForEachBlockThatKeepsStateInAnyModel) {
    const StaticString *types[] = {&A_ACC_BLOCK,
                                   &A_FIR_BLOCK,
                                   &A_NCO_BLOCK,
                                   &A_DELAY_BLOCK,
                                   &A_DUAL_MEM_BLOCK,
                                   &A_FIFO_BLOCK,
                                   &A_LOOP_BLOCK,
                                   &A_CIC_BLOCK,
                                   &A_COUNTER_BLOCK,
                                   &A_FLOAT_MULTACC_BLOCK,
                                   &A_SEQUENCE_BLOCK,
                                   &A_LATCH_0L_BLOCK,
                                   &A_TRIVIAL_TWIDDLE_BLOCK,
                                   &A_TWIDDLE_ROM_BLOCK,
                                   &A_VFFT2_BLOCK,
                                   &A_VFFT4_BLOCK,
                                   &A_FFT2_BLOCK,
                                   &A_FFT4_BLOCK,
                                   &A_VFFTCORE_BLOCK,
                                   &A_VFFT_BLOCK,
                                   &A_FFTCORE_BLOCK,
                                   &A_FFT_BLOCK,
                                   &A_HYBRID_FFT_BLOCK};
    Model &other = *Model::create(design, "another");
    Block::create(model, "add", A_ADD_BLOCK);
    for (const StaticString *type : types) {
        for (Model *in : {&model, &other}) {
            automatic(design);
            Block *block = Block::create(*in, "state", *type);
            EXPECT_EQ(wrapperAfter(), full) << type->text();
            delete block;
        }
    }
    automatic(design);
    EXPECT_EQ(wrapperAfter(), logic);
}

TEST_F(AnalyseDesignTest, leavesADesignThatSaysWhatItWantsOrNothing) {
    Block::create(model, "acc", A_ACC_BLOCK);
    EXPECT_EQ(wrapperAfter(), "none");
    design.setParam(A_LIB_WRAPPER_TYPE, StringValue::get("mine", mgr.context()));
    EXPECT_EQ(wrapperAfter(), "mine");
}

TEST_F(AnalyseDesignTest, readsAndSetsTheOptionOnTheModelThatIsWrittenOut) {
    automatic(model);
    EXPECT_EQ(wrapperAfter(model), A_LIB_WRAPPER_TYPE_AUTOMATIC.get()->toString());
    model.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    EXPECT_EQ(wrapperAfter(model), logic);
    EXPECT_EQ(design.findParam(A_LIB_WRAPPER_TYPE), nullptr);
}

TEST_F(AnalyseDesignTest, changesNothingInASecondRun) {
    automatic(design);
    EXPECT_EQ(wrapperAfter(), logic);
    Block::create(model, "acc", A_ACC_BLOCK);
    EXPECT_EQ(wrapperAfter(), logic);
}

} // namespace
} // namespace orvo
