// Which block types have a rule, and of which style: a rule of the old style sets what it can each time it is called,
// one of the new style runs at its start, forward and backward.
#include "orvo/typerules.h"

#include <orvo/blockclass.h>
#include <orvo/context.h>
#include <orvo/typeinfer.h>

#include <gtest/gtest.h>

#include <sstream>

namespace orvo {
namespace {

std::string styleOf(Context *context, const std::string &text) {
    const auto *blockClass = context->getBlockClass(StringValue::get(text, context));
    const bool isOld = blockClass->get<TypeInferHandler>() != nullptr;
    const bool isNew = blockClass->get<TypeInferHandler2>() != nullptr;
    return isOld && isNew ? "both" : isOld ? "old" : isNew ? "new" : "none";
}

void expectStyle(const char *texts, const char *style) {
    ContextMgr guard;
    std::istringstream in(texts);
    for (std::string text; in >> text;) {
        EXPECT_EQ(styleOf(guard.context(), text + "Block"), style) << text;
    }
}

TEST(TypeRuleStyles, setWhatTheyCanAtEachCall) {
    expectStyle(
        "min max saturate dim magmin magmax and nand or nor xor xnor andReduce nandReduce orReduce norReduce "
        "xorReduce xnorReduce bitJoin bitJoinReduce not reverse delay reciprocal recipSqrt sqrt register signalIn "
        "signalOut terminal foldingKernelBoundary neg complexConjugate abs cmpEq cmpNe cmpGe cmpLt comparectrl "
        "addsub addsubfused addSload minmax bitCount ctpop sequence counter ldCounter divide modMult constmult tan "
        "cot tanpix cotpix arccospi arcsinpi arctanpi cuberoot rint round floor ceil trunc exp2 exp10 log2 log10 "
        "expm1 log1p frac asin acos atan polynomial hypot hypot3d arctan2 mod pow powr pown multPow2 ilogb log exp "
        "sin cos sincosfused sinpix cospix sincospixfused cordic rawShift loop const truncate truncateToZero "
        "biasedRound unbiasedRound add monsterAdd addReduce sub mult mux typePin vunpack vconcat vsplit cpack "
        "cunpack",
        "old");
}

TEST(TypeRuleStyles, runInTheirDirection) {
    expectStyle(
        "cast select scalarProduct acc floatMultacc fifo fifoDelay dualMem lut syncRegister fanout barrelLeft "
        "barrelRight barrelRightLzc monsterMult floatMultadd floatMultsub floatClass bitSelect chooseBits constdiv "
        "demux forLoop decode fixedMfunc floatMfunc enableSink enableSrc ready eccSrc channelIn channelOut input "
        "output model vpack vselector apack aunpack unsched boundary hiddenIface extIface latencyPlaceholder "
        "scheduledModel unsupported cic fir scale mixer nco chanview sharedFifo stallreg stallenable stallenter "
        "stallexit stallvalidConnector",
        "new");
}

TEST(TypeRuleStyles, leaveSomeBlocksToTheirNets) { expectStyle("eccSink goto from", "none"); }

TEST(TypeRuleStyles, haveALineEach) {
    ContextMgr guard;
    EXPECT_NE(typeRuleSummary(A_ADD_BLOCK.get_ptr()), nullptr);
    EXPECT_EQ(typeRuleSummary(A_GOTO_BLOCK.get_ptr()), nullptr);
}

} // namespace
} // namespace orvo
