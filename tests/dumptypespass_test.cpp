// Types written onto a design for people.
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

class DumpTypes : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Block &make(Model &model, const std::string &name, const StaticString &type) {
        Block &block = *Block::create(model, name);
        block.setParam(A_BLOCK_TYPE, type);
        return block;
    }
    std::string dumped(const Node &node) {
        const StringValueRef text = stringVR(node.getParam(A_DUMP_TYPES));
        return text ? text->str() : "";
    }
    void run(const ParamContext &params = ParamContext()) {
        PassScheduler scheduler;
        scheduler.addPass("DumpTypesPass", params);
        scheduler.apply(design);
    }
    ContextMgr mgr;
    Design design{mgr.context()};
};

TEST_F(DumpTypes, setsATextOnEachWireAndEachBlockWithPorts) {
    Model &model = *Model::create(design, "m");
    Block &constant = make(model, "c", A_CONST_BLOCK);
    constant.setParam(A_CONST_VALUE, value("3"));
    Wire &wire = *Wire::create(constant, A_PRIM_WIRE_OUT);
    Block &unknown = make(model, "u", A_SCHEDULED_MODEL_BLOCK);
    Wire &nothing = *Wire::create(unknown, value("w"));
    Block &sum = make(model, "sum", A_ADD_BLOCK);
    sum.setParam(value("0"), wire);
    sum.setParam(value("1"), nothing);
    run();
    EXPECT_EQ(dumped(wire), "#=(typeUFixed 2 0)=#");
    EXPECT_EQ(dumped(nothing), "*INVALID*");
    EXPECT_EQ(dumped(sum), "[/m/sum/0 #=(typeUFixed 2 0)=#, /m/sum/1 *INVALID*]");
    EXPECT_EQ(dumped(constant), "");
}

TEST_F(DumpTypes, showsAModelInTheOnePlaceWhereItIsUsedAndOnlyTheModelAskedFor) {
    Model &below = *Model::create(design, "below");
    Wire &inside = *Wire::create(make(below, "in", A_INPUT_BLOCK), value("x"));
    Model &top = *Model::create(design, "top");
    Block &constant = make(top, "c", A_CONST_BLOCK);
    constant.setParam(A_CONST_VALUE, value("3"));
    Wire &wire = *Wire::create(constant, A_PRIM_WIRE_OUT);
    Block &call = make(top, "call", A_MODEL_BLOCK);
    call.setParam(A_MODEL_NODE, below);
    call.setParam(value("x"), wire);
    run(WithParam("P_MODEL", value("below")));
    EXPECT_EQ(dumped(inside), "#=(typeUFixed 2 0)=#");
    EXPECT_EQ(dumped(wire), "");
}

} // namespace
} // namespace orvo
