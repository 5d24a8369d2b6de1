// Points that can be asked about, and those that cannot.
#include <orvo/querypoint.h>

#include "support/constraintrig.h"

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class QueryPoints : public test::ConstraintRig {
  protected:
    QueryPoints() { marker(below, "into", A_INPUT_BLOCK), marker(below, "outOf", A_OUTPUT_BLOCK); }
    Block &iface = marker(below, "iface", A_EXT_IFACE_BLOCK);
};

TEST_F(QueryPoints, nameAPinOfAModel) {
    const QueryPoint input(below, {&call2}, value("w"), IoType::Input, UnrollingState::PreUnrolling);
    EXPECT_EQ(input.getQueryPointType(), QP_TYPE_MODEL_BOUNDARY);
    EXPECT_EQ(&input.getModel(), &below);
    EXPECT_EQ(input.getRefChain(), (RefChain{&call2}));
    EXPECT_EQ(input.getModelIOInfo().name, value("w"));
    EXPECT_EQ(input.getModelIOInfo().ioType, IoType::Input);
    EXPECT_EQ(input.getModelIOInfo().unrollingState, UnrollingState::PreUnrolling);
    const QueryPoint output(below, {}, value("p"), IoType::Output, UnrollingState::PostUnrolling);
    EXPECT_EQ(output.getModelIOInfo().ioType, IoType::Output);
    EXPECT_EQ(output.getModelIOInfo().unrollingState, UnrollingState::PostUnrolling);
    EXPECT_EQ(heard.take(), Lines{});
}

TEST_F(QueryPoints, nameAnEndOfAnExternalInterface) {
    const QueryPoint input(*port(iface), {&call1});
    EXPECT_EQ(input.getQueryPointType(), QP_TYPE_EXT_IP_BLOCK_INPUT);
    EXPECT_EQ(input.getExtIpIOInfo().block, &iface);
    EXPECT_EQ(input.getExtIpIOInfo().name, value("p"));
    EXPECT_EQ(&input.getModel(), &below);
    QueryPoint output(*wire(iface), {});
    EXPECT_EQ(output.getQueryPointType(), QP_TYPE_EXT_IP_BLOCK_OUTPUT);
    EXPECT_EQ(output.getExtIpIOInfo().name, value("w"));
    const QueryPoint moved = std::move(output);
    EXPECT_EQ(moved.getExtIpIOInfo().block, &iface);
    EXPECT_EQ(heard.take(), Lines{});
}

TEST_F(QueryPoints, tellOfAPinThatIsMissing) {
    const auto ask = [&](Model &model, const char *name, IoType type) {
        const QueryPoint point(model, {}, value(name), type, UnrollingState::PreUnrolling);
        return heard.take();
    };
    EXPECT_EQ(ask(below, "v", IoType::Input), (Lines{"QUERY_POINT_INVALID_INPUT inputName=v model=/below"}));
    EXPECT_EQ(ask(top, "w", IoType::Input), (Lines{"QUERY_POINT_INVALID_INPUT inputName=w model=/top"}));
    EXPECT_EQ(ask(below, "w", IoType::Output), (Lines{"QUERY_POINT_INVALID_OUTPUT model=/below outputName=w"}));
    EXPECT_EQ(ask(top, "p", IoType::Output), (Lines{"QUERY_POINT_INVALID_OUTPUT model=/top outputName=p"}));
}

TEST_F(QueryPoints, tellOfAnotherBlock) {
    const QueryPoint atWire(*wire(in), {});
    EXPECT_EQ(heard.take(), (Lines{"QUERY_POINT_UNSUPPORTED_BLOCK_TYPE block=/top/in blockType=signalInBlock "
                                   "model=/top"}));
    const QueryPoint atPort(*port(innerOut), {&call1});
    EXPECT_EQ(heard.take(), (Lines{"QUERY_POINT_UNSUPPORTED_BLOCK_TYPE block=/below/innerOut "
                                   "blockType=channelOutBlock model=/below"}));
}

using QueryPointsDeath = QueryPoints;

TEST_F(QueryPointsDeath, haveTheInformationOfTheirKindOnly) {
    const QueryPoint pin(below, {}, value("w"), IoType::Input, UnrollingState::PreUnrolling);
    EXPECT_EXIT(pin.getExtIpIOInfo(), ::testing::ExitedWithCode(1), "external interface");
    const QueryPoint end(*wire(iface), {});
    EXPECT_EXIT(end.getModelIOInfo(), ::testing::ExitedWithCode(1), "pin of a model");
}

} // namespace
} // namespace orvo
