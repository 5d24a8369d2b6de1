// The type rules of memories, queues, counters and loops, row by row.
#include "support/typetable.h"

#include <gtest/gtest.h>

namespace orvo::testing {
namespace {

const char *const kOut = "primWireOut";

TEST(MemoryTypes, tellWhatAMemoryHolds) {
    const TypeCase::Texts write{{"dualMemPortAddr1", "u4.0"},
                                {"dualMemPortData1", "s8.2"},
                                {"dualMemPortWrite1En", "u1.0"},
                                {"dualMemPortAddr2", "u4.0"}};
    checkTypes({
        {"by its data", "dualMemBlock", write, {}, {{"dualMemWireData1", "s8.2"}, {"dualMemWireData2", ""}}},
        {"by a parameter",
         "dualMemBlock",
         write,
         {{"dualMemTypeData2", "(typeUFixed 5 0)"}},
         {{"dualMemWireData2", "u5.0"}}},
        {"by its content",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u4.0"}},
         {{"dualMemData", "(3 100)"}},
         {{"dualMemWireData1", "u2.0"}}},
        {"a wide condition",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u4.0"}, {"dualMemPortData1", "s8.2"}, {"dualMemPortWrite1En", "u2.0"}},
         {},
         {{"dualMemWireData1", ""}}},
        {"a wide condition that may be",
         "dualMemBlock",
         {{"dualMemPortAddr1", "u4.0"}, {"dualMemPortData1", "s8.2"}, {"dualMemPortWrite1En", "u2.0"}},
         {{"primRelaxBools", "true"}},
         {{"dualMemWireData1", "s8.2"}}},
        {"a float address",
         "dualMemBlock",
         {{"dualMemPortAddr1", "float(23,8)"}, {"dualMemPortData1", "s8.2"}},
         {},
         {{"dualMemWireData1", ""}}},
    });
}

TEST(MemoryTypes, tellWhatATableGives) {
    checkTypes({
        {"by its data",
         "lutBlock",
         {{"lutPortAddr", "u4.0"}},
         {{"lutData", "(1 2 3)"}},
         {{kOut, "u2.0"}, {"lutWirePureHit", "u1.0"}, {"lutWireEnHit", "u1.0"}}},
        {"by a type",
         "lutBlock",
         {{"lutPortAddr", "u4.0"}},
         {{"lutData", "(1 2 3)"}, {"lutType", "(typeSFixed 8 4)"}},
         {{kOut, "s8.4"}}},
        {"lanes",
         "lutBlock",
         {{"lutPortAddr", "u4.0"}},
         {{"lutData", "(vectorRollTag (1 2 3) (4 5 6))"}, {"lutType", "(typeSFixed 8 4)"}},
         {{kOut, "[2] s8.4"}}},
    });
}

TEST(MemoryTypes, crossClocks) {
    checkTypes({{"a register",
                 "syncRegisterBlock",
                 {},
                 {{"syncRegisterDataType", "(typeSFixed 8 4)"}},
                 {{"syncRegisterWireIclkData", "s8.4"},
                  {"syncRegisterWireOclkData", "s8.4"},
                  {"syncRegisterWireOclkValid", "u1.0"}}}});
}

TEST(MemoryTypes, queue) {
    const TypeCase::Texts scalar{{"fifoPortData", "s8.4"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}};
    checkTypes({
        {"a scalar",
         "fifoBlock",
         scalar,
         {{"fifoDepth", "8"}},
         {{"fifoWireData", "s8.4"}, {"fifoWireValid", "u1.0"}, {"fifoWireLow", "u1.0"}, {"fifoWireHigh", "u1.0"}}},
        {"lanes by depth",
         "fifoBlock",
         scalar,
         {{"fifoDepth", "(vectorRollTag 8 8)"}},
         {{"fifoWireData", "[2] s8.4"}, {"fifoWireValid", "[2] u1.0"}}},
        {"a record on lanes",
         "fifoBlock",
         {{"fifoPortData", "{s8.4,{u1.0,u2.0}}"}, {"fifoPortWriteEn", "[2] u1.0"}, {"fifoPortReadAck", "u1.0"}},
         {{"fifoDepth", "8"}},
         {{"fifoWireData", "{[2] s8.4,{[2] u1.0,[2] u2.0}}"}}},
        {"a wide condition",
         "fifoBlock",
         {{"fifoPortData", "s8.4"}, {"fifoPortWriteEn", "u2.0"}, {"fifoPortReadAck", "u1.0"}},
         {{"fifoDepth", "8"}},
         {{"fifoWireData", ""}, {"fifoWireValid", ""}}},
        {"an elastic delay",
         "fifoDelayBlock",
         {{"fifoPortData", "s8.4"}, {"portWrite", "u2.0"}, {"portReady", "[3] u1.0"}},
         {},
         {{"fifoWireData", "[3] s8.4"}}},
    });
}

TEST(MemoryTypes, count) {
    checkTypes({
        {"a pulse", "sequenceBlock", {{"portEnable", "[2] u1.0"}}, {}, {{kOut, "[2] u1.0"}}},
        {"a wide enable", "sequenceBlock", {{"portEnable", "u2.0"}}, {}, {{kOut, ""}}},
        {"to ten", "counterBlock", {}, {{"counterLimit", "10"}}, {{kOut, "u4.0"}}},
        {"to eight", "counterBlock", {{"portEnable", "[3] u1.0"}}, {{"counterLimit", "8"}}, {{kOut, "[3] u3.0"}}},
        {"lanes", "counterBlock", {}, {{"counterLimit", "(8 100)"}}, {{kOut, "[2] u7.0"}}},
        {"to nothing", "counterBlock", {}, {{"counterLimit", "a"}}, {{kOut, ""}}},
        {"to more than any count", "counterBlock", {}, {{"counterLimit", "0x1p+200"}}, {{kOut, ""}}},
        {"by signals",
         "ldCounterBlock",
         {{"0", "u1.0"}, {"1", "s4.0"}, {"2", "[2] u1.0"}, {"3", "u8.0"}},
         {},
         {{kOut, "[2] s9.0"}}},
        {"by a float",
         "ldCounterBlock",
         {{"0", "u1.0"}, {"1", "float(23,8)"}, {"2", "u1.0"}, {"3", "u8.0"}},
         {},
         {{kOut, ""}}},
    });
}

TEST(MemoryTypes, loop) {
    checkTypes({
        {"levels",
         "loopBlock",
         {{"loopPortGo", ""}, {"(loopPortLimit 0)", "u8.0"}, {"(loopPortLimit 1)", "u3.0"}},
         {},
         {{"loopWireValid", "u1.0"},
          {"(loopWireValue 0)", "u8.0"},
          {"(loopWireValue 1)", "u3.0"},
          {"(loopWireFirstIter 1)", "u1.0"},
          {"(loopWireLastIter 0)", "u1.0"}}},
        {"a limit of lanes", "loopBlock", {{"(loopPortLimit 0)", "[2] u8.0"}}, {}, {{"(loopWireValue 0)", ""}}},
        {"one level",
         "forLoopBlock",
         {{"loopPortGo", "u1.0"}, {"loopPortLimit", "u8.0"}, {"0", "s4.2"}, {"1", "u1.0"}},
         {},
         {{"forLoopWireCount", "s9.2"}, {"loopWireValid", "u1.0"}}},
        {"one level on lanes",
         "forLoopBlock",
         {{"loopPortGo", "[2] u1.0"}, {"loopPortLimit", "u8.0"}, {"0", "u4.2"}, {"1", "u1.0"}},
         {},
         {{"forLoopWireCount", "[2] u8.2"}, {"loopWireFirstIter", "[2] u1.0"}}},
    });
}

TEST(MemoryTypes, accumulate) {
    checkTypes({
        {"fixed",
         "accBlock",
         {{"0", "s8.4"}, {"1", "u1.0"}},
         {},
         {{kOut, "s8.4"}, {"accWireOverflow", "u1.0"}, {"accWireXoverflow", "u1.0"}, {"accWireXunderflow", "u1.0"}}},
        {"float on lanes",
         "accBlock",
         {{"0", "[2] float(23,8)"}, {"1", "u1.0"}},
         {},
         {{kOut, "[2] float(23,8)"}, {"accWireOverflow", "[2] u1.0"}}},
        {"a wide control", "accBlock", {{"0", "s8.4"}, {"1", "u2.0"}}, {{"primRelaxBools", "true"}}, {{kOut, ""}}},
        {"products",
         "floatMultaccBlock",
         {{"0", "float(23,8)"}, {"1", "float(10,5)"}, {"2", "u1.0"}},
         {},
         {{kOut, "float(23,8)"}}},
        {"products of fixed", "floatMultaccBlock", {{"0", "s8.0"}, {"1", "s8.0"}, {"2", "u1.0"}}, {}, {{kOut, ""}}},
    });
}

TEST(MemoryTypes, steer) {
    checkTypes({
        {"decode",
         "decodeBlock",
         {{"decodePortAddr", "[2] u8.0"}, {"decodePortWren", "u1.0"}},
         {},
         {{"decodeWireMatch", "[2] u1.0"}, {"decodeWireWren", "[2] u1.0"}}},
        {"demux",
         "demuxBlock",
         {{"demuxPortData", "[4] s8.0"}, {"portValid", "u1.0"}, {"portChannel", "u8.0"}},
         {},
         {{"0", "s8.0"}, {"1", "s8.0"}}},
        {"demux of lanes of channels",
         "demuxBlock",
         {{"demuxPortData", "s8.0"}, {"portValid", "u1.0"}, {"portChannel", "[2] u8.0"}},
         {},
         {{"0", ""}}},
        {"fan out",
         "fanoutBlock",
         {{"0", "{s8.0,u1.0}"}},
         {{"fanoutOutputCount", "2"}},
         {{"0", "{s8.0,u1.0}"}, {"1", "{s8.0,u1.0}"}, {"2", ""}}},
    });
}

} // namespace
} // namespace orvo::testing
