// The type rules of packs, unpacks and markers, row by row; the edges of models are tested with the inference.
#include "support/typetable.h"

#include <gtest/gtest.h>

namespace orvo::testing {
namespace {

const char *const kOut = "primWireOut";

TEST(CommonTypes, packVectors) {
    checkTypes({
        {"pack", "vpackBlock", {{"0", "s8.0"}, {"1", "s8.0"}, {"2", "s8.0"}}, {}, {{"vpackWireOut", "[3] s8.0"}}},
        {"pack vectors", "vpackBlock", {{"0", "[2] s8.0"}, {"1", "[2] s8.0"}}, {}, {{"vpackWireOut", "[2][2] s8.0"}}},
        {"pack records",
         "vpackBlock",
         {{"0", "{s8.0,u1.0}"}, {"1", "{s8.0,u1.0}"}},
         {},
         {{"vpackWireOut", "[2] {s8.0,u1.0}"}}},
        {"pack with an unknown", "vpackBlock", {{"0", "s8.0"}, {"1", ""}}, {}, {{"vpackWireOut", ""}}},
        {"unpack", "vunpackBlock", {{"vunpackPortIn", "[2][3] s8.0"}}, {}, {{"0", "[3] s8.0"}, {"1", "[3] s8.0"}}},
        {"unpack a scalar", "vunpackBlock", {{"vunpackPortIn", "s8.0"}}, {}, {{"0", ""}}},
        {"concatenate",
         "vconcatBlock",
         {{"0", "[2] s8.0"}, {"1", "s4.2"}, {"2", "[3] s8.0"}},
         {},
         {{kOut, "[6] s8.2"}}},
        {"concatenate records", "vconcatBlock", {{"0", "[2] {u1.0}"}, {"1", "{u1.0}"}}, {}, {{kOut, "[3] {u1.0}"}}},
        {"concatenate what differs", "vconcatBlock", {{"0", "[2] {u1.0}"}, {"1", "u1.0"}}, {}, {{kOut, ""}}},
        {"split", "vsplitBlock", {{"0", "[5] s8.0"}}, {}, {{"0", "[3] s8.0"}, {"1", "[2] s8.0"}}},
        {"split by a layout",
         "vsplitBlock",
         {{"0", "[5] s8.0"}},
         {{"vsplitLayout", "(4 1)"}},
         {{"0", "[4] s8.0"}, {"1", "s8.0"}}},
        {"select",
         "vselectorBlock",
         {{"vselectorPortIn", "[4][3] s8.0"}},
         {{"vselectorIndicies", "((0 2) (1))"}},
         {{kOut, "[2] s8.0"}}},
        {"select a row",
         "vselectorBlock",
         {{"vselectorPortIn", "[4][3] s8.0"}},
         {{"vselectorIndicies", "((3))"}},
         {{kOut, "[3] s8.0"}}},
        {"select deeper than it is",
         "vselectorBlock",
         {{"vselectorPortIn", "[4] s8.0"}},
         {{"vselectorIndicies", "((0) (1))"}},
         {{kOut, ""}}},
    });
}

TEST(CommonTypes, packComplex) {
    checkTypes({
        {"pack",
         "cpackBlock",
         {{"cpackPortReal", "s8.0"}, {"cpackPortImag", "[2] u4.2"}},
         {},
         {{"cpackWireOut", "[2] c s8.2"}}},
        {"pack a complex",
         "cpackBlock",
         {{"cpackPortReal", "c s8.0"}, {"cpackPortImag", "s8.0"}},
         {},
         {{"cpackWireOut", ""}}},
        {"unpack",
         "cunpackBlock",
         {{"cunpackPortIn", "[2] c s8.2"}},
         {},
         {{"cunpackWireReal", "[2] s8.2"}, {"cunpackWireImag", "[2] s8.2"}}},
        {"unpack a real", "cunpackBlock", {{"cunpackPortIn", "s8.2"}}, {}, {{"cunpackWireReal", ""}}},
    });
}

TEST(CommonTypes, packRecords) {
    checkTypes({
        {"pack",
         "apackBlock",
         {{"0", "s8.0"}, {"1", "{u1.0,[2] u2.0}"}},
         {},
         {{"apackWireOut", "{s8.0,{u1.0,[2] u2.0}}"}}},
        {"unpack",
         "aunpackBlock",
         {{"aunpackPortIn", "{s8.0,{u1.0,u2.0}}"}},
         {},
         {{"0", "s8.0"}, {"1", "{u1.0,u2.0}"}, {"2", ""}}},
        {"unpack a number", "aunpackBlock", {{"aunpackPortIn", "s8.0"}}, {}, {{"0", ""}}},
    });
}

TEST(CommonTypes, passByName) {
    for (const char *block : {"signalInBlock", "signalOutBlock"}) {
        checkTypes({{block, block, {{"a", "s8.0"}, {"b", "{u1.0}"}}, {}, {{"a", "s8.0"}, {"b", "{u1.0}"}, {"c", ""}}}});
    }
    for (const char *block : {"channelInBlock", "channelOutBlock"}) {
        checkTypes({{block,
                     block,
                     {{"portValid", ""}, {"0", "s8.0"}, {"(a b)", "u2.0"}},
                     {},
                     {{"wireValid", "u1.0"},
                      {"wireChannel", "u8.0"},
                      {"wirePacketBegin", "u1.0"},
                      {"0", "s8.0"},
                      {"(a b)", "u2.0"}}},
                    {block, block, {{"portValid", "u1.0"}, {"portChannel", "u4.0"}}, {}, {{"wireChannel", "u4.0"}}}});
    }
    checkTypes({
        {"terminal", "terminalBlock", {{"in", "s8.0"}}, {}, {{"x", "s8.0"}, {"y", "s8.0"}}},
        {"kernel boundary", "foldingKernelBoundaryBlock", {{"0", "s8.0"}}, {}, {{kOut, "s8.0"}}},
        {"pin", "typePinBlock", {}, {{"typePinType", "(typeSFixed 3 3)"}}, {{"x", "s3.3"}}},
        {"pin by its input", "typePinBlock", {{"0", "u5.0"}}, {}, {{"0", "u5.0"}}},
        {"pin by port",
         "typePinBlock",
         {{"0", ""}, {"1", ""}},
         {{"typePinPortTypes", "((typeSFixed 3 3) (typeUFixed 1 0))"}},
         {{"0", "s3.3"}, {"1", "u1.0"}}},
    });
}

} // namespace
} // namespace orvo::testing
