// The type rules of interfaces, scheduled models, stall regions and enables, row by row.
#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <string>
#include <utility>

namespace orvo::testing {
namespace {

const char *const kOut = "primWireOut";

TEST(MiscTypes, passByName) {
    for (const char *block : {"unschedBlock", "boundaryBlock"}) {
        checkTypes({{block, block, {{"a", "s8.0"}, {"b", ""}}, {}, {{"a", "s8.0"}, {"b", ""}}}});
    }
}

TEST(MiscTypes, passEachSignalThroughAPipe) {
    checkTypes(
        {{"pipe", "pipeBlock", {{"0", "u1.0"}}, {}, {{kOut, "u1.0"}}},
         {"pipe of a named signal", "pipeBlock", {{"x", "u1.0"}}, {}, {{kOut, "u1.0"}}},
         {"pipe of several signals",
          "pipeBlock",
          {{"0", "{s4.0,u2.0}"}, {"x", "[2] s3.0"}, {"y", ""}},
          {},
          {{kOut, "{s4.0,u2.0}"}, {"0", "{s4.0,u2.0}"}, {"x", "[2] s3.0"}, {"y", ""}, {"z", ""}}},
         {"pipe whose main output has an input of its name",
          "pipeBlock",
          {{"0", "s4.0"}, {kOut, "u1.0"}},
          {},
          {{kOut, "u1.0"}, {"0", "s4.0"}}},
         {"pipe whose main output means none of several inputs",
          "pipeBlock",
          {{"(b c)", "s4.0"}, {"(b d)", "[2] s4.0"}},
          {},
          {{kOut, ""}, {"(b d)", "[2] s4.0"}}},
         {"pipe that waits for input 0", "pipeBlock", {{"0", ""}, {"x", "s3.0"}}, {}, {{kOut, ""}, {"x", "s3.0"}}}});
}

TEST(MiscTypes, passASignalThroughOnePipeSeveralTimes) {
    // In whichever order the pipe has its signals.
    for (const auto &[first, second] : {std::pair("a", "b"), std::pair("b", "a")}) {
        ContextMgr mgr;
        const auto value = [&](const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); };
        Design design(mgr.context());
        Model &model = *Model::create(design, "m");
        Block &source = *Block::create(model, "source", A_TYPE_PIN_BLOCK);
        source.setParam(A_TYPE_PIN_TYPE, value(typeText("s4.0")));
        Block &pipe = *Block::create(model, "pipe", A_PIPE_BLOCK);
        for (const char *name : {"a", "b"}) {
            Wire::create(pipe, value(name));
        }
        pipe.setParam(value("0"), *Wire::create(source, A_PRIM_WIRE_OUT));
        pipe.setParam(value(first), *Wire::create(pipe, A_PRIM_WIRE_OUT));
        pipe.setParam(value(second), *pipe.getWire(value(first)));
        GlobalTypePass types;
        for (const PureValueRef &name : {value(kOut), value("a"), value("b")}) {
            EXPECT_EQ(types.getType(pipe.getWire(name), {}), value(typeText("s4.0"))) << name->toString();
        }
    }
}

TEST(MiscTypes, passASignalThroughOneStallRegisterSeveralTimes) {
    // Data may go on as a condition, and a condition as data, in whichever order the register has them.
    for (const bool isReversed : {false, true}) {
        ContextMgr mgr;
        const auto value = [&](const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); };
        Design design(mgr.context());
        Model &model = *Model::create(design, "m");
        Block &source = *Block::create(model, "source", A_TYPE_PIN_BLOCK);
        source.setParam(A_TYPE_PIN_TYPE, value(typeText("u1.0")));
        Block &reg = *Block::create(model, "register", A_STALLREG_BLOCK);
        std::vector<std::pair<std::string, std::string>> way = {
            {"(stallregPortkeyDataBack 1)", "(stallregWirekeyDataFront 1)"},
            {"(stallregPortkeyValidBack 0)", "(stallregWirekeyValidFront 0)"},
            {"(stallregPortkeyDataBack 0)", "(stallregWirekeyDataFront 0)"}};
        if (isReversed) {
            std::reverse(way.begin(), way.end());
        }
        Wire *before = Wire::create(source, A_PRIM_WIRE_OUT);
        for (const auto &[port, wire] : way) {
            reg.setParam(value(port), *before);
            before = Wire::create(reg, value(wire));
        }
        GlobalTypePass types;
        EXPECT_EQ(types.getType(*before, {}), value(typeText("u1.0"))) << isReversed;
    }
}

TEST(MiscTypes, declareInterfaces) {
    for (const char *block : {"extIfaceBlock", "hiddenIfaceBlock"}) {
        checkTypes({{block,
                     block,
                     {{"a", "s8.0"}, {"go", ""}},
                     {{"extIfaceBooleanDeclPorts", "(go absent)"}, {"extIfaceBooleanDeclWires", "(done)"}},
                     {{"a", "s8.0"}, {"done", "u1.0"}, {"go", "u1.0"}},
                     {},
                     {{"go", "u1.0"}, {"a", "s8.0"}}}});
    }
    checkTypes({{"placeholder",
                 "latencyPlaceholderBlock",
                 {{"a", "s8.0"}},
                 {{"latencyPlaceholderTypemap", "((b (typeSFixed 2 2)))"}},
                 {{"a", ""}, {"b", "s2.2"}}},
                {"placeholder without a map", "latencyPlaceholderBlock", {{"a", "s8.0"}}, {}, {{"a", ""}}},
                {"ports of a placeholder",
                 "latencyPlaceholderBlock",
                 {{"a", ""}},
                 {{"latencyPlaceholderTypemap", "((a (typeSFixed 2 2)))"}},
                 {},
                 {},
                 {{"a", "s2.2"}}},
                {"ports that are not supported",
                 "unsupportedBlock",
                 {{"a", ""}, {"b", ""}},
                 {{"(unsupportedPortkey a)", "(typeSFixed 2 2)"}},
                 {},
                 {},
                 {{"a", "s2.2"}, {"b", ""}}},
                {"unsupported",
                 "unsupportedBlock",
                 {{"a", ""}},
                 {{"(unsupportedWirekey w)", "(typeSFixed 2 2)"}},
                 {{"w", "s2.2"}, {"v", ""}}}});
}

TEST(MiscTypes, readScheduledModels) {
    const char *const handle =
        "(scheduledModelHandleTag info (scheduledModelPortlistTag (a) (y)) "
        "(scheduledModelTypesTag ((a (typeSFixed 8 0))) ((y (typeSFixed 9 0)))) (scheduledModelDomainsTag () ()) "
        "(scheduledModelTimestepsTag () ()) (unrollMappingsTag) (unrollMappingsTag) (0 0 ()) "
        "scheduledModelHandleOriginaltypesTag (scheduledModelTypesTag () ((y (typeSFixed 5 5)))))";
    checkTypes({{"as it is",
                 "scheduledModelBlock",
                 {{"a", ""}},
                 {{"scheduledModelValue", handle}},
                 {{"y", "s9.0"}},
                 {},
                 {{"a", "s8.0"}}},
                {"as it was",
                 "scheduledModelBlock",
                 {{"a", ""}},
                 {{"scheduledModelValue", handle}, {"scheduledModelOriginalTypes", "true"}},
                 {{"y", "s5.5"}}},
                {"no handle", "scheduledModelBlock", {}, {{"scheduledModelValue", "(a b c)"}}, {{"y", ""}}}});
}

TEST(MiscTypes, passThroughStallRegions) {
    checkTypes({
        {"enter",
         "stallenterBlock",
         {{"stallenterPortStallFront", ""}, {"(stallenterPortkeyDataBack 0)", "s8.0"}},
         {},
         {{"(stallenterWirekeyDataFront 0)", "s8.0"},
          {"stallenterWireStallBack", "u1.0"},
          {"stallenterWireValidFront", "u1.0"},
          {"stallenterWireEmptyFront", "u1.0"},
          {"stallenterWireAlmostEmptyFront", "u1.0"}}},
        {"enter's controls",
         "stallenterBlock",
         {{"stallenterPortStallFront", ""},
          {"stallenterPortValidBack", ""},
          {"stallenterPortEmptyBack", ""},
          {"stallenterPortAlmostEmptyBack", ""}},
         {},
         {},
         {},
         {{"stallenterPortStallFront", "u1.0"},
          {"stallenterPortValidBack", "u1.0"},
          {"stallenterPortEmptyBack", "u1.0"},
          {"stallenterPortAlmostEmptyBack", "u1.0"}}},
        {"exit's controls",
         "stallexitBlock",
         {{"stallexitPortStallFront", ""}, {"stallexitPortValidBack", ""}},
         {},
         {{"stallexitWireValidFront", "u1.0"}},
         {},
         {{"stallexitPortStallFront", "u1.0"}, {"stallexitPortValidBack", "u1.0"}}},
        {"a register's controls",
         "stallregBlock",
         {{"stallregPortStallFront", ""}, {"(stallregPortkeyValidBack 0)", ""}},
         {},
         {},
         {},
         {{"stallregPortStallFront", "u1.0"}, {"(stallregPortkeyValidBack 0)", ""}}},
        {"exit",
         "stallexitBlock",
         {{"(stallexitPortkeyDataBack 1)", "{u1.0}"}},
         {},
         {{"(stallexitWirekeyDataFront 1)", "{u1.0}"}, {"stallexitWireStallBack", "u1.0"}}},
        {"register",
         "stallregBlock",
         {{"(stallregPortkeyValidBack 0)", "u1.0"}, {"(stallregPortkeyDataBack 0)", "s8.0"}},
         {},
         {{"(stallregWirekeyValidFront 0)", "u1.0"},
          {"(stallregWirekeyDataFront 0)", "s8.0"},
          {"stallregWireStallBack", "u1.0"}}},
        {"enable",
         "stallenableBlock",
         {{"(stallenablePortkeyValidBack 0)", "u1.0"}},
         {},
         {{"stallenableWireEnable", "u1.0"},
          {"stallenableWireStallBack", "u1.0"},
          {"(stallenableWirekeyValidFront 0)", "u1.0"}}},
        {"connector", "stallvalidConnectorBlock", {{"a", ""}}, {}, {{"w", "u1.0"}}},
    });
}

TEST(MiscTypes, areBooleans) {
    for (const char *block : {"enableSinkBlock", "enableSrcBlock", "readyBlock"}) {
        checkTypes({{block, block, {}, {}, {{kOut, "u1.0"}}}});
    }
    checkTypes({{"error correction", "eccSrcBlock", {}, {}, {{kOut, "u2.0"}}}});
}

TEST(MiscTypes, uniteThreeOperands) {
    checkTypes({{"a missing operand", "fixedMfuncBlock", {{"0", "s8.0"}, {"1", "u8.2"}, {"2", ""}}, {}, {{kOut, ""}}},
                {"a fixed among floats",
                 "floatMfuncBlock",
                 {{"0", "float(23,8)"}, {"1", "s8.0"}, {"2", "float(23,8)"}},
                 {},
                 {{kOut, ""}}},
                {"flag of floats on lanes",
                 "floatMfuncBlock",
                 {{"0", "[3] float(23,8)"}, {"1", "float(23,8)"}, {"2", "float(23,8)"}},
                 {},
                 {{kOut, "[3] float(23,8)"}, {"primWireAux", "[3] u1.0"}}},
                {"fixed",
                 "fixedMfuncBlock",
                 {{"0", "s8.0"}, {"1", "u8.2"}, {"2", "[2] u1.0"}},
                 {},
                 {{kOut, "[2] s9.2"}, {"primWireAux", "[2] u1.0"}}},
                {"fixed of a float",
                 "fixedMfuncBlock",
                 {{"0", "float(23,8)"}, {"1", "float(23,8)"}, {"2", "float(23,8)"}},
                 {},
                 {{kOut, ""}}},
                {"float",
                 "floatMfuncBlock",
                 {{"0", "float(23,8)"}, {"1", "float(10,5)"}, {"2", "float(23,8)"}},
                 {},
                 {{kOut, "float(23,8)"}}}});
}

} // namespace
} // namespace orvo::testing
