// Signals that are no plain numbers are told, each once.
#include "orvo/checkscalarsignalspass.h"

#include "support/heardmessages.h"
#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class CheckScalarSignals : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Block &make(Model &model, const std::string &name, const StaticString &type) {
        Block &block = *Block::create(model, name);
        block.setParam(A_BLOCK_TYPE, type);
        return block;
    }
    Wire &source(Model &model, const std::string &name, const std::string &shortForm) {
        Block &block = make(model, name, A_TYPE_PIN_BLOCK);
        block.setParam(A_TYPE_PIN_TYPE, value(testing::typeText(shortForm)));
        return *Wire::create(block, value("primWireOut"));
    }
    Lines check() {
        test::HeardMessages heard(mgr.context());
        const std::uint64_t edits = design.editCount();
        PassScheduler scheduler;
        scheduler.addPass("CheckScalarSignalsPass");
        scheduler.apply(design);
        EXPECT_EQ(design.editCount(), edits);
        return heard.take();
    }
    std::string lineOf(const std::string &wire, const std::string &shortForm) {
        return "COMPOUND_SIGNAL_LEFT type=" + value(testing::typeText(shortForm))->toString() + " wire=" + wire;
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
};

TEST_F(CheckScalarSignals, plainNumbersAreFine) {
    source(top, "fixed", "s8.4");
    source(top, "single", "float(23,8)");
    EXPECT_EQ(check(), Lines());
}

TEST_F(CheckScalarSignals, eachKindIsTold) {
    source(top, "a", "[4] s8.4");
    source(top, "b", "c s8.4");
    source(top, "c", "{s8.4,u1.0}");
    source(top, "d", "[2] c s8.4");
    source(top, "e", "s8.4");
    EXPECT_EQ(check(),
              (Lines{lineOf("/top/a/primWireOut", "[4] s8.4"), lineOf("/top/b/primWireOut", "c s8.4"),
                     lineOf("/top/c/primWireOut", "{s8.4,u1.0}"), lineOf("/top/d/primWireOut", "[2] c s8.4")}));
}

TEST_F(CheckScalarSignals, anUnpackOfAPlainNumberIsTold) {
    for (const auto &[name, type, key] : {std::tuple("v", &A_VUNPACK_BLOCK, &A_VUNPACK_PORT_IN),
                                          {"c", &A_CUNPACK_BLOCK, &A_CUNPACK_PORT_IN},
                                          {"a", &A_AUNPACK_BLOCK, &A_AUNPACK_PORT_IN}}) {
        make(top, name, *type).setParam(*key, source(top, std::string("p") + name, "s8.4"));
    }
    EXPECT_EQ(check(), (Lines{"UNPACK_OF_PLAIN_NUMBER block=/top/a", "UNPACK_OF_PLAIN_NUMBER block=/top/c",
                              "UNPACK_OF_PLAIN_NUMBER block=/top/v"}));
}

TEST_F(CheckScalarSignals, wiresWithoutATypeAreLeftToOthers) {
    Wire::create(make(top, "unknown", A_SCHEDULED_MODEL_BLOCK), value("w"));
    EXPECT_EQ(check(), Lines());
}

TEST_F(CheckScalarSignals, aWireIsToldOnceHoweverManyInstancesItHas) {
    Model &below = *Model::create(design, "below");
    Wire::create(make(below, "in", A_INPUT_BLOCK), value("x"));
    for (const auto &[name, type] : {std::pair{"p", "s8.4"}, std::pair{"q", "c s8.4"}, std::pair{"r", "[2] u1.0"}}) {
        Block &instance = make(top, std::string("i") + name, A_MODEL_BLOCK);
        instance.setParam(A_MODEL_NODE, below);
        instance.setParam(value("x"), source(top, name, type));
    }
    EXPECT_EQ(check(), (Lines{lineOf("/below/in/x", "c s8.4"), lineOf("/top/q/primWireOut", "c s8.4"),
                              lineOf("/top/r/primWireOut", "[2] u1.0")}));
}

} // namespace
} // namespace orvo
