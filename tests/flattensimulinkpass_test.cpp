// Scheduled subsystems that dissolve, and the messages about how they are nested.
#include "orvo/flattensimulinkpass.h"

#include "support/heardmessages.h"
#include "support/invariants.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

/// "dut", not scheduled, instantiates "sub", which is.
class FlattenSimulink : public ::testing::Test {
  protected:
    FlattenSimulink() {
        Block::create(dut, "call", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, sub);
        schedule(sub);
    }
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    void schedule(Model &model) {
        model.setParam(A_SIMULINK_PATH, value("drawing"));
        model.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    }
    Block &block(Model &in, const char *name, const StaticString &type, const std::vector<Block *> &drivers = {}) {
        Block &made = *Block::create(in, name, type);
        Wire::create(made, "q");
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            made.setParam(value(std::to_string(i)), *drivers[i]->begin());
        }
        return made;
    }
    Lines run() {
        PassScheduler scheduler;
        scheduler.addPass("FlattenSimulinkPass");
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        return heard.take();
    }
    static std::string names(const Model &model) {
        std::string text;
        for (const Block &one : model) {
            text += (text.empty() ? "" : " ") + one.getName()->toString();
        }
        return text;
    }

    ContextMgr mgr;
    test::HeardMessages heard{mgr.context()};
    Design design{mgr.context()};
    Model &dut = *Model::create(design, "dut");
    Model &sub = *Model::create(design, "sub");
    Model &inner = *Model::create(design, "inner");
};

TEST_F(FlattenSimulink, dissolvesScheduledSubsystemsIntoTheOneAround) {
    block(inner, "neg", A_NEG_BLOCK);
    schedule(inner);
    Block::create(sub, "f", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, inner);
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(names(dut), "call");
    EXPECT_EQ(names(sub), "(inner neg)");
}

TEST_F(FlattenSimulink, keepsWhatIsNotScheduledOrNotDrawnOrOnATierOfItsOwn) {
    block(inner, "neg", A_NEG_BLOCK);
    Block::create(sub, "f", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, inner);
    for (const int missing : {0, 1, 2, 3}) {
        schedule(inner);
        inner.setParam(A_SYNTH_SCHEDULE_TIER, missing == 0 ? ValueRef(A_TRUE) : ValueRef());
        inner.setParam(A_FOLDING_IS_FOLDING_KERNEL, missing == 1 ? ValueRef(A_TRUE) : ValueRef());
        if (missing == 2) {
            inner.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
        } else if (missing == 3) {
            inner.setParam(A_SIMULINK_PATH, nullptr);
        }
        run();
        EXPECT_EQ(names(sub), "f") << missing;
    }
}

TEST_F(FlattenSimulink, reportsInterfaceBlocksInModelsThatAreNotScheduled) {
    for (const StaticString *type :
         {&A_CHANNEL_IN_BLOCK, &A_SIGNAL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_SIGNAL_OUT_BLOCK}) {
        Block &marker = block(dut, "marker", *type);
        EXPECT_EQ(run(), Lines{"IOBLOCKS_OUTSIDE_PRIMITIVE_SUBSYSTEM block=/dut/marker model=/dut"}) << type->text();
        dut.setParam(A_SYNTH_CIRCUIT_TIMED, A_SYNTH_NO_SCHEDULE_NO_SHUFFLE);
        EXPECT_EQ(run().size(), 1U);
        dut.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
        EXPECT_EQ(run(), Lines());
        dut.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
        EXPECT_EQ(run().size(), 1U);
        dut.setParam(A_SYNTH_CIRCUIT_TIMED, nullptr);
        dut.setParam(A_SYNTH_OPTIMIZE, nullptr);
        delete &marker;
    }
}

TEST_F(FlattenSimulink, looksThroughWhatOnlyPacksSignals) {
    Block *at = &block(sub, "in", A_INPUT_BLOCK);
    int count = 0;
    for (const StaticString *type : {&A_CPACK_BLOCK, &A_CUNPACK_BLOCK, &A_VSPLIT_BLOCK, &A_VCONCAT_BLOCK,
                                     &A_VPACK_BLOCK, &A_VUNPACK_BLOCK, &A_TYPE_PIN_BLOCK}) {
        at = &block(sub, ("b" + std::to_string(count++)).c_str(), *type, {at});
    }
    at = &block(sub, "channelIn", A_CHANNEL_IN_BLOCK, {at});
    at = &block(sub, "neg", A_NEG_BLOCK, {at});
    at = &block(sub, "channelOut", A_CHANNEL_OUT_BLOCK, {at});
    at = &block(sub, "pack", A_VPACK_BLOCK, {at});
    block(sub, "out", A_OUTPUT_BLOCK, {at});
    EXPECT_EQ(run(), Lines());
}

TEST_F(FlattenSimulink, reportsTheFirstBlockBehindASharedPackAtEachInterface) {
    // "clear" and "mixed" go to several interface blocks; what is behind "clear" is known when "mixed" is looked
    // through.
    Block &in = block(sub, "in", A_INPUT_BLOCK);
    Block &clear = block(sub, "clear", A_VCONCAT_BLOCK, {&in, &in});
    Block &bad = block(sub, "xbad", A_NEG_BLOCK, {&in});
    Block &worse = block(sub, "xworse", A_NEG_BLOCK, {&in});
    Block &mixed = block(sub, "mixed", A_VCONCAT_BLOCK, {&clear, &bad, &worse});
    for (const char *name : {"s1", "s2"}) {
        block(sub, name, A_SIGNAL_IN_BLOCK, {&clear});
    }
    block(sub, "s3", A_SIGNAL_IN_BLOCK, {&mixed});
    block(sub, "s4", A_SIGNAL_IN_BLOCK, {&clear, &mixed});
    const Lines expected = {
        "EXPECTED_GP_CHANNEL_INOUT GPChannel=In block=/sub/xbad model=/sub pins=input",
        "BLOCK_BETWEEN_IOPIN_CHANNEL_INOUT GPChannel=In IOBlock=/sub/s3 block=/sub/xbad model=/sub pins=input",
        "BLOCK_BETWEEN_IOPIN_CHANNEL_INOUT GPChannel=In IOBlock=/sub/s4 block=/sub/xbad model=/sub pins=input"};
    EXPECT_EQ(run(), expected);
}

TEST_F(FlattenSimulink, takesSignalsForChannels) {
    Block &in = block(sub, "in", A_INPUT_BLOCK);
    Block &signalIn = block(sub, "signalIn", A_SIGNAL_IN_BLOCK, {&in});
    Block &signalOut = block(sub, "signalOut", A_SIGNAL_OUT_BLOCK, {&signalIn});
    block(sub, "out", A_OUTPUT_BLOCK, {&signalOut});
    EXPECT_EQ(run(), Lines());
}

TEST_F(FlattenSimulink, reportsABlockBetweenPinsAndChannels) {
    Block &in = block(sub, "in", A_INPUT_BLOCK);
    Block &first = block(sub, "first", A_NEG_BLOCK, {&in});
    Block &channelIn = block(sub, "channelIn", A_CHANNEL_IN_BLOCK, {&first});
    Block &channelOut = block(sub, "channelOut", A_CHANNEL_OUT_BLOCK, {&channelIn});
    Block &last = block(sub, "last", A_NEG_BLOCK, {&channelOut});
    block(sub, "out", A_OUTPUT_BLOCK, {&last});
    const Lines expected = {
        "BLOCK_BETWEEN_IOPIN_CHANNEL_INOUT GPChannel=In IOBlock=/sub/channelIn block=/sub/first model=/sub pins=input",
        "BLOCK_BETWEEN_IOPIN_CHANNEL_INOUT GPChannel=Out IOBlock=/sub/channelOut block=/sub/last model=/sub "
        "pins=output",
        "EXPECTED_GP_CHANNEL_INOUT GPChannel=In block=/sub/first model=/sub pins=input",
        "EXPECTED_GP_CHANNEL_INOUT GPChannel=Out block=/sub/last model=/sub pins=output"};
    EXPECT_EQ(run(), expected);
}

TEST_F(FlattenSimulink, expectsAChannelBetweenInputAndOutputPins) {
    Block &in = block(sub, "in", A_INPUT_BLOCK);
    block(sub, "out", A_OUTPUT_BLOCK, {&in});
    const Lines expected = {"EXPECTED_GP_CHANNEL_INOUT GPChannel=In block=/sub/out model=/sub pins=input",
                            "EXPECTED_GP_CHANNEL_INOUT GPChannel=Out block=/sub/in model=/sub pins=output"};
    EXPECT_EQ(run(), expected);
}

TEST_F(FlattenSimulink, checksAModelOnceHoweverOftenItIsInstantiated) {
    Block::create(dut, "again", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, sub);
    block(sub, "neg", A_NEG_BLOCK, {&block(sub, "in", A_INPUT_BLOCK)});
    EXPECT_EQ(run(), Lines{"EXPECTED_GP_CHANNEL_INOUT GPChannel=In block=/sub/neg model=/sub pins=input"});
}

TEST_F(FlattenSimulink, checksInternalRootsThatDidNotDissolve) {
    block(inner, "neg", A_NEG_BLOCK, {&block(inner, "in", A_INPUT_BLOCK)});
    schedule(inner);
    EXPECT_EQ(run(), Lines());
    inner.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_INTERNAL_ROOT);
    EXPECT_EQ(run(), Lines{"EXPECTED_GP_CHANNEL_INOUT GPChannel=In block=/inner/neg model=/inner pins=input"});
    Block::create(sub, "f", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, inner);
    EXPECT_EQ(run(), Lines());
    EXPECT_EQ(names(sub), "(inner neg)");
}

} // namespace
} // namespace orvo
