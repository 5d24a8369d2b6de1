// Which inputs are open behind the edges of models, and what blocks come from them.
#include "driver/openinputs.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo::driver {
namespace {

class OpenInputsTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Wire &wire(Block &block, const char *name) { return *Wire::create(block, value(name)); }
    /// A block that reads "a" and "b" of the model's input, with the output "y".
    Model &adder(const char *name) {
        Model &made = *Model::create(design, name);
        Block &in = *Block::create(made, "in", A_INPUT_BLOCK);
        Block &sum = *Block::create(made, "sum", A_ADD_BLOCK);
        sum.setParam(value("0"), wire(in, "a"));
        sum.setParam(value("1"), wire(in, "b"));
        Block::create(made, "out", A_OUTPUT_BLOCK)->setParam(value("y"), wire(sum, "q"));
        return made;
    }
    Block &call(Model &in, const char *name, Model &of) {
        Block &made = *Block::create(in, name, A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, of);
        return made;
    }
    void flatten() {
        PassScheduler scheduler;
        scheduler.addPass("FlattenEverythingPass");
        scheduler.apply(design);
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &low = adder("low");
    Model &top = *Model::create(design, "top");
    Wire &source = wire(*Block::create(top, "const", A_CONST_BLOCK), "q");
};

TEST_F(OpenInputsTest, areNoneWhereAllIsDriven) {
    Block &both = call(top, "f", low);
    both.setParam(value("a"), source);
    both.setParam(value("b"), source);
    EXPECT_TRUE(OpenInputs(design).empty());
}

TEST_F(OpenInputsTest, areThoseBehindAnOpenInputOfAnInstance) {
    call(top, "f", low).setParam(value("a"), source);
    const OpenInputs open(design);
    flatten();
    const Block &copy = *top.getBlock(value("(low sum)"));
    EXPECT_EQ(copy.getPort(value("1")), nullptr);
    EXPECT_TRUE(open.wasOpen(copy, "1"));
    EXPECT_FALSE(open.wasOpen(copy, "0"));
    EXPECT_FALSE(open.wasOpen(*top.getBlock(value("const")), "1"));
}

TEST_F(OpenInputsTest, areThoseBehindAnOutputThatNothingDrivesThroughSeveralModels) {
    // "empty" gives nothing, "mid" hands that out, and "top" into another instance.
    Model &empty = *Model::create(design, "empty");
    Model &mid = *Model::create(design, "mid");
    Block &inner = call(mid, "e", empty);
    Block::create(mid, "out", A_OUTPUT_BLOCK)->setParam(value("z"), wire(inner, "y"));
    Block &user = call(top, "f", low);
    user.setParam(value("a"), wire(call(top, "m", mid), "z"));
    user.setParam(value("b"), source);
    const OpenInputs open(design);
    flatten();
    const Block &copy = *top.getBlock(value("(low sum)"));
    EXPECT_TRUE(open.wasOpen(copy, "0"));
    EXPECT_FALSE(open.wasOpen(copy, "1"));
}

TEST_F(OpenInputsTest, areTheSameLaneByLane) {
    call(top, "f", low);
    const OpenInputs open(design);
    const Block &lane = *Block::create(top, value("((low sum) 3)"));
    EXPECT_TRUE(open.wasOpen(lane, "1"));
    EXPECT_TRUE(open.wasOpen(lane, "(1 real)"));
    EXPECT_FALSE(open.wasOpen(lane, "2"));
}

} // namespace
} // namespace orvo::driver
