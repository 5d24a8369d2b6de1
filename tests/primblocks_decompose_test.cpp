// What each composite but the cast is drawn as, and that it computes what it did.
#include "orvo/decomposehandlers.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/oneblock.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace orvo {
namespace {

using Drawing = std::map<std::string, std::string>;
using test::KeyedTexts;

struct DrawnCase {
    const char *name;
    const char *block;
    KeyedTexts inputs;
    KeyedTexts params;
    std::vector<const char *> outputs;
    /// Names and types of what stands there when only the block itself was replaced.
    Drawing drawing;
};

void PrintTo(const DrawnCase &drawn, std::ostream *out) { *out << drawn.name; }

PassResults run(Design &design, const ParamContext &params) {
    PassScheduler scheduler;
    scheduler.addPass("DecomposeCompositePass", params);
    scheduler.requirePass("GlobalTypePass");
    return scheduler.apply(design);
}

Drawing drawnIn(Design &design) {
    Drawing drawn;
    for (const Block &block : *design.begin()) {
        const std::string name = block.getName()->toString();
        if (name == "block" || name.find("(block ") == 0) {
            drawn[name == "block" ? name : name.substr(7, name.size() - 8)] = block.type()->toString();
        }
    }
    return drawn;
}

/// Types of what leaves the model.
std::map<std::string, std::string> outputTypes(Design &design) {
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(design);
    std::map<std::string, std::string> types;
    for (const Port &port : (*design.begin()).getOutputBlock()->ports()) {
        types[port.getName()->toString()] =
            readableType(results.getPass<GlobalTypePass>()->getType(port, {}).get_ptr());
    }
    return types;
}

class Drawn : public ::testing::TestWithParam<DrawnCase> {
  protected:
    std::unique_ptr<Design> make() {
        const DrawnCase &at = GetParam();
        return test::oneBlock(mgr.context(), at.block, at.inputs, at.params, at.outputs);
    }
    void compare(const Design &before, Design &after) {
        sim::CompareOptions options;
        options.cycles = 600;
        test::expectSameBehaviour(before, after, "top", options);
        EXPECT_TRUE(test::checkInvariants(after));
    }
    ContextMgr mgr;
};

TEST_P(Drawn, isDrawnSoAndComputesWhatItDid) {
    const auto before = make();
    const auto types = outputTypes(*before);
    const auto once = make();
    test::HeardMessages heard(mgr.context());
    const PureValueRef own = PureValueRef(Value::parse(GetParam().block, mgr.context()));
    run(*once, WithParam("P_SUBSET_OF_BLOCKS", PureTupleValue::get(own, mgr.context())));
    EXPECT_EQ(drawnIn(*once), GetParam().drawing);
    EXPECT_EQ(outputTypes(*once), types);
    compare(*before, *once);
    const auto whole = make();
    run(*whole, {});
    EXPECT_EQ(outputTypes(*whole), types);
    compare(*before, *whole);
    EXPECT_EQ(heard.take(), std::vector<std::string>{});
}

constexpr const char *kOut = "primWireOut";
constexpr const char *kAux = "primWireAux";

const Drawing kExtreme = {{"signBit", "cmpGeBlock"}, {"mux", "muxBlock"}};
const Drawing kMagnitudes = {
    {"abs 1 0", "absBlock"},         {"abs 1 1", "absBlock"}, {"beyond 1", "cmpLtBlock"}, {"equal 1", "cmpEqBlock"},
    {"signBit 1", "bitSelectBlock"}, {"tie 1", "andBlock"},   {"takes 1", "orBlock"},     {"mux 1", "muxBlock"}};
const Drawing kDim = {{"less", "cmpLtBlock"}, {"sub", "subBlock"}, {"zero", "constBlock"}, {"mux", "muxBlock"}};
const Drawing kScaling = {{"lowered", "rawShiftBlock"}, {"sign", "bitSelectBlock"}, {"top", "notBlock"},
                          {"low", "castBlock"},         {"places", "bitJoinBlock"}, {"shift", "barrelLeftBlock"}};

Drawing with(Drawing drawing, const std::vector<std::pair<const char *, const char *>> &more) {
    for (const auto &[name, type] : more) {
        drawing[name] = type;
    }
    return drawing;
}

const DrawnCase kDrawn[] = {
    {"absSigned",
     "absBlock",
     {{"0", "s6.2"}},
     {},
     {kOut},
     {{"signBit", "bitSelectBlock"}, {"neg", "negBlock"}, {"mux", "muxBlock"}}},
    {"absUnsigned", "absBlock", {{"0", "u6.2"}}, {}, {kOut}, {{"castBack primWireOut", "castBlock"}}},
    {"absVector",
     "absBlock",
     {{"0", "[3] s6.2"}},
     {},
     {kOut},
     {{"signBit", "bitSelectBlock"}, {"neg", "negBlock"}, {"mux", "muxBlock"}}},
    {"absFloat", "absBlock", {{"0", "float(5,4)"}}, {}, {kOut}, {{"block", "absBlock"}}},
    {"absComplex", "absBlock", {{"0", "c s6.2"}}, {}, {kOut}, {{"block", "absBlock"}}},
    {"min", "minBlock", {{"0", "s6.2"}, {"1", "u5.3"}}, {}, {kOut}, kExtreme},
    {"max", "maxBlock", {{"0", "s6.2"}, {"1", "u5.3"}}, {}, {kOut}, kExtreme},
    {"minOfFloats", "minBlock", {{"0", "float(3,3)"}, {"1", "float(3,3)"}}, {}, {kOut}, kExtreme},
    {"maxOfFloats",
     "maxBlock",
     {{"0", "float(3,3)"}, {"1", "float(3,3)"}},
     {{"floatSubnormals", "true"}},
     {kOut},
     kExtreme},
    {"maxOfFormats",
     "maxBlock",
     {{"0", "float(3,3)"}, {"1", "float(4,3)"}},
     {{"floatSubnormals", "true"}},
     {kOut},
     with(kExtreme, {{"format 0", "castBlock"}})},
    {"minOfThree",
     "minBlock",
     {{"0", "s6.2"}, {"1", "u5.3"}, {"2", "s4.0"}},
     {},
     {kOut},
     with(kExtreme, {{"signBit 2", "cmpGeBlock"}, {"mux 2", "muxBlock"}})},
    {"maxOfOne", "maxBlock", {{"0", "s6.2"}}, {}, {kOut}, {}},
    {"minOfVectorAndScalar", "minBlock", {{"0", "[2] s6.2"}, {"1", "u5.3"}}, {}, {kOut}, kExtreme},
    {"minOfScalarAndVector", "minBlock", {{"0", "s6.2"}, {"1", "[2] u5.3"}}, {}, {kOut}, kExtreme},
    {"magmin", "magminBlock", {{"0", "s4.0"}, {"1", "s3.1"}}, {}, {kOut}, kMagnitudes},
    {"magmax", "magmaxBlock", {{"0", "s4.0"}, {"1", "s3.1"}}, {}, {kOut}, kMagnitudes},
    {"magminOfFloats", "magminBlock", {{"0", "float(2,3)"}, {"1", "float(2,3)"}}, {}, {kOut}, kMagnitudes},
    {"magmaxOfFloats", "magmaxBlock", {{"0", "float(2,3)"}, {"1", "float(2,3)"}}, {}, {kOut}, kMagnitudes},
    {"magmaxOfLibraryFloats", "magmaxBlock", {{"0", "fplib(2,3)"}, {"1", "fplib(2,3)"}}, {}, {kOut}, kMagnitudes},
    {"magmaxOfUnsigned",
     "magmaxBlock",
     {{"0", "u4.0"}, {"1", "s3.1"}},
     {},
     {kOut},
     {{"abs 1 0", "absBlock"}, {"abs 1 1", "absBlock"}, {"beyond 1", "cmpLtBlock"}, {"mux 1", "muxBlock"}}},
    {"magminOfThree",
     "magminBlock",
     {{"0", "u3.0"}, {"1", "s4.0"}, {"2", "s3.1"}},
     {},
     {kOut},
     with(kMagnitudes, {{"abs 2 0", "absBlock"},
                        {"abs 2 1", "absBlock"},
                        {"beyond 2", "cmpLtBlock"},
                        {"equal 2", "cmpEqBlock"},
                        {"signBit 2", "bitSelectBlock"},
                        {"tie 2", "andBlock"},
                        {"takes 2", "orBlock"},
                        {"mux 2", "muxBlock"}})},
    {"dim",
     "dimBlock",
     {{"0", "s5.1"}, {"1", "s4.2"}},
     {},
     {kOut},
     with(kDim, {{"castBack primWireOut", "castBlock"}})},
    {"dimOfUnsigned",
     "dimBlock",
     {{"0", "u5.1"}, {"1", "u4.2"}},
     {},
     {kOut},
     with(kDim, {{"castBack primWireOut", "castBlock"}})},
    {"dimOfFloats", "dimBlock", {{"0", "float(3,3)"}, {"1", "float(3,3)"}}, {}, {kOut}, kDim},
    {"dimOfFloatsRoundingDown",
     "dimBlock",
     {{"0", "float(3,3)"}, {"1", "float(3,3)"}},
     {{"floatRoundingMode", "roundingDown"}},
     {kOut},
     kDim},
    {"saturate",
     "saturateBlock",
     {{"0", "s5.1"}, {"1", "s4.2"}, {"2", "u3.0"}},
     {},
     {kOut},
     {{"min", "minBlock"}, {"max", "maxBlock"}}},
    {"saturateOfFloats",
     "saturateBlock",
     {{"0", "float(3,3)"}, {"1", "float(3,3)"}, {"2", "float(3,3)"}},
     {},
     {kOut},
     {{"min", "minBlock"}, {"max", "maxBlock"}}},
    {"chooseBits",
     "chooseBitsBlock",
     {{"0", "s6.2"}},
     {{"chooseBitsBitOffsets", "(7 0 3)"}, {"chooseBitsOutputType", "(typeUFixed 3 0)"}},
     {kOut},
     {{"bit 0", "bitSelectBlock"}, {"bit 1", "bitSelectBlock"}, {"bit 2", "bitSelectBlock"}, {"join", "bitJoinBlock"}}},
    {"chooseBitsOfAType",
     "chooseBitsBlock",
     {{"0", "s6.2"}},
     {{"chooseBitsBitOffsets", "(7 0)"}, {"chooseBitsOutputType", "(typeSFixed 2 3)"}},
     {kOut},
     {{"bit 0", "bitSelectBlock"},
      {"bit 1", "bitSelectBlock"},
      {"join", "bitJoinBlock"},
      {"castBack primWireOut", "castBlock"}}},
    {"chooseOneBit",
     "chooseBitsBlock",
     {{"0", "u4.0"}},
     {{"chooseBitsBitOffsets", "(2)"}, {"chooseBitsOutputType", "(typeUFixed 1 0)"}},
     {kOut},
     {{"bit 0", "bitSelectBlock"}}},
    {"chooseBitsOfAFloat",
     "chooseBitsBlock",
     {{"0", "float(5,4)"}},
     {{"chooseBitsBitOffsets", "(9 8)"}, {"chooseBitsOutputType", "(typeUFixed 2 0)"}},
     {kOut},
     {{"bit 0", "bitSelectBlock"}, {"bit 1", "bitSelectBlock"}, {"join", "bitJoinBlock"}}},
    {"addsubfused",
     "addsubfusedBlock",
     {{"0", "s5.1"}, {"1", "s4.2"}},
     {},
     {kOut, kAux},
     {{"add", "addBlock"}, {"sub", "subBlock"}}},
    {"addsubfusedOfUnsigned",
     "addsubfusedBlock",
     {{"0", "u5.1"}, {"1", "u4.2"}},
     {},
     {kOut, kAux},
     {{"add", "addBlock"}, {"sub", "subBlock"}, {"castBack primWireOut", "castBlock"}}},
    {"addsubfusedOfFloats",
     "addsubfusedBlock",
     {{"0", "float(5,4)"}, {"1", "float(5,4)"}},
     {{"floatRoundingMode", "roundingUp"}},
     {kOut, kAux},
     {{"add", "addBlock"}, {"sub", "subBlock"}}},
    {"addsubfusedOfComplex",
     "addsubfusedBlock",
     {{"0", "c s5.1"}, {"1", "s4.2"}},
     {},
     {kOut, kAux},
     {{"add", "addBlock"}, {"sub", "subBlock"}}},
    {"addsubfusedForItsSum", "addsubfusedBlock", {{"0", "s5.1"}, {"1", "s4.2"}}, {}, {kOut}, {{"add", "addBlock"}}},
    {"multPow2", "multPow2Block", {{"0", "s8.4"}, {"1", "s4.0"}}, {}, {kOut}, kScaling},
    {"multPow2OfUnsigned", "multPow2Block", {{"0", "u8.4"}, {"1", "s3.0"}}, {}, {kOut}, kScaling},
    {"multPow2ByOneBit",
     "multPow2Block",
     {{"0", "s8.4"}, {"1", "s1.0"}},
     {},
     {kOut},
     {{"lowered", "rawShiftBlock"}, {"sign", "bitSelectBlock"}, {"top", "notBlock"}, {"shift", "barrelLeftBlock"}}},
    {"multPow2ByUnsigned", "multPow2Block", {{"0", "s8.4"}, {"1", "u4.0"}}, {}, {kOut}, {{"shift", "barrelLeftBlock"}}},
    {"multPow2OfVectors",
     "multPow2Block",
     {{"0", "[2] s8.4"}, {"1", "[2] u4.0"}},
     {},
     {kOut},
     {{"shift", "barrelLeftBlock"}}},
    {"multPow2OfAVectorByAScalar", "multPow2Block", {{"0", "[2] s8.4"}, {"1", "s4.0"}}, {}, {kOut}, kScaling},
    {"multPow2OfAFloat",
     "multPow2Block",
     {{"0", "float(5,4)"}, {"1", "s4.0"}},
     {},
     {kOut},
     {{"block", "multPow2Block"}}},
    {"multPow2ByAWideNumber",
     "multPow2Block",
     {{"0", "s8.4"}, {"1", "s16.0"}},
     {},
     {kOut},
     {{"block", "multPow2Block"}}},
    {"floatClass",
     "floatClassBlock",
     {{"0", "float(3,3)"}},
     {},
     {"fpclassWireZero", "fpclassWireSign", "fpclassWireInf", "fpclassWireNan"},
     {{"sign", "bitSelectBlock"},
      {"exponent", "bitSelectBlock"},
      {"mantissa", "bitSelectBlock"},
      {"zeros", "constBlock"},
      {"ones", "constBlock"},
      {"none", "constBlock"},
      {"isLeast", "cmpEqBlock"},
      {"isMost", "cmpEqBlock"},
      {"isWhole", "cmpEqBlock"},
      {"isBroken", "notBlock"},
      {"zero", "andBlock"},
      {"inf", "andBlock"},
      {"nan", "andBlock"}}},
    {"demux",
     "demuxBlock",
     {{"demuxPortData", "s6.2"}, {"portValid", "u1.0"}, {"portChannel", "u2.0"}},
     {{"demuxChannelCount", "2"}},
     {"0", "1"},
     {{"decoder 0", "decodeBlock"},
      {"mux 0", "muxBlock"},
      {"feedback 0", "delayBlock"},
      {"typePin 0", "typePinBlock"},
      {"decoder 1", "decodeBlock"},
      {"mux 1", "muxBlock"},
      {"feedback 1", "delayBlock"},
      {"typePin 1", "typePinBlock"}}},
    {"demuxOfComplex",
     "demuxBlock",
     {{"demuxPortData", "c s6.2"}, {"portValid", "u1.0"}, {"portChannel", "s2.0"}},
     {{"demuxChannelCount", "4"}},
     {"3"},
     {{"decoder 3", "decodeBlock"},
      {"mux 3", "muxBlock"},
      {"feedback 3", "delayBlock"},
      {"typePin 3", "typePinBlock"}}},
    {"demuxOfRecords",
     "demuxBlock",
     {{"demuxPortData", "{s6.2,u1.0}"}, {"portValid", "u1.0"}, {"portChannel", "u2.0"}},
     {{"demuxChannelCount", "4"}},
     {"1"},
     {{"decoder 1", "decodeBlock"},
      {"mux 1", "muxBlock"},
      {"feedback 1", "delayBlock"},
      {"typePin 1", "typePinBlock"}}},
    {"demuxOfVectors",
     "demuxBlock",
     {{"demuxPortData", "[2] s6.2"}, {"portValid", "u1.0"}, {"portChannel", "u1.0"}},
     {{"demuxChannelCount", "2"}},
     {"0", "3"},
     {{"block", "demuxBlock"}}},
    {"syncRegister",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s6.2"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     {{"syncRegisterClocksSame", "true"},
      {"syncRegisterDataType", "(typeSFixed 6 2)"},
      {"syncRegisterInitValue", "-3"}},
     {"syncRegisterWireIclkData", "syncRegisterWireOclkData", "syncRegisterWireOclkValid"},
     {{"data", "registerBlock"}, {"enable", "registerBlock"}, {"boundary", "boundaryBlock"}}},
    {"syncRegisterOfItsOwnSide",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s6.2"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     {{"syncRegisterClocksSame", "true"}, {"syncRegisterDataType", "(typeSFixed 6 2)"}},
     {"syncRegisterWireIclkData"},
     {{"data", "registerBlock"}}},
    {"syncRegisterOfOtherData",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s6.2"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     {{"syncRegisterClocksSame", "true"},
      {"syncRegisterDataType", "(typeSFixed 8 0)"},
      {"syncRegisterInitValue", "-3"}},
     {"syncRegisterWireIclkData", "syncRegisterWireOclkData", "syncRegisterWireOclkValid"},
     {{"taken", "castBlock"}, {"data", "registerBlock"}, {"enable", "registerBlock"}, {"boundary", "boundaryBlock"}}},
    {"syncRegisterOfUnsignedData",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "u4.0"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     {{"syncRegisterClocksSame", "true"}, {"syncRegisterDataType", "(typeSFixed 8 0)"}},
     {"syncRegisterWireOclkData"},
     {{"taken", "castBlock"}, {"data", "registerBlock"}, {"boundary", "boundaryBlock"}}},
    {"syncRegisterOfWideData",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "[2] c s12.3"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     {{"syncRegisterClocksSame", "true"}, {"syncRegisterDataType", "(typeVector 2 (typeComplex (typeSFixed 8 0)))"}},
     {"syncRegisterWireIclkData"},
     {{"taken", "castBlock"}, {"data", "registerBlock"}}},
    {"syncRegisterOfAWideEnable",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s8.0"}, {"syncRegisterPortIclkEnable", "u3.0"}},
     {{"syncRegisterClocksSame", "true"}, {"syncRegisterDataType", "(typeSFixed 8 0)"}},
     {"syncRegisterWireOclkData", "syncRegisterWireOclkValid"},
     {{"isEnabled", "cmpNeBlock"},
      {"zero", "constBlock"},
      {"data", "registerBlock"},
      {"enable", "registerBlock"},
      {"boundary", "boundaryBlock"}}},
    {"syncRegisterOfASignedEnable",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s8.0"}, {"syncRegisterPortIclkEnable", "s1.0"}},
     {{"syncRegisterClocksSame", "true"}, {"syncRegisterDataType", "(typeSFixed 8 0)"}},
     {"syncRegisterWireIclkData"},
     {{"isEnabled", "cmpNeBlock"}, {"zero", "constBlock"}, {"data", "registerBlock"}}},
    {"syncRegisterOfTwoClocks",
     "syncRegisterBlock",
     {{"syncRegisterPortIclkData", "s6.2"}, {"syncRegisterPortIclkEnable", "u1.0"}},
     {{"syncRegisterDataType", "(typeSFixed 6 2)"}},
     {"syncRegisterWireOclkData"},
     {{"block", "syncRegisterBlock"}}},
};

INSTANTIATE_TEST_SUITE_P(Composites, Drawn, ::testing::ValuesIn(kDrawn),
                         [](const auto &at) { return std::string(at.param.name); });

TEST(DecomposeHandlers, standForEachTypeOfTheTables) {
    ContextMgr mgr;
    std::set<const Value *> types;
    for (const auto rows : {internal::castDecompositions(), internal::primDecompositions(),
                            internal::mathDecompositions(), internal::memoryDecompositions()}) {
        for (const internal::DecomposeRow &row : rows) {
            EXPECT_TRUE(types.insert(row.blockType->get_ptr()).second) << row.blockType->text();
            EXPECT_EQ(mgr.context()->getBlockClass(*row.blockType)->get<DecomposeCompositeHandler>(), row.handler());
        }
    }
    EXPECT_EQ(types.size(), 14U);
}

TEST(DimDecomposition, leavesTheChoiceOfHardFloatsToTheDevice) {
    ContextMgr mgr;
    const auto design = test::oneBlock(mgr.context(), "dimBlock", {{"0", "float(23,8)"}, {"1", "float(23,8)"}},
                                       {{"synthForceSoftFp", "true"}}, {"primWireOut"});
    run(*design, {});
    const Block *sub = (*design->begin()).getBlock(PureValueRef(Value::parse("(block sub)", mgr.context())));
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(sub->getParam(A_SYNTH_FORCE_SOFT_FP), ValueRef(A_FALSE));
}

TEST(AddSubFusedDecomposition, copiesTheChoiceOfHardFloats) {
    ContextMgr mgr;
    const auto design = test::oneBlock(mgr.context(), "addsubfusedBlock", {{"0", "s8.0"}, {"1", "s8.0"}},
                                       {{"synthForceSoftFp", "true"}}, {"primWireOut", "primWireAux"});
    run(*design, {});
    for (const char *name : {"(block add)", "(block sub)"}) {
        const Block *made = (*design->begin()).getBlock(PureValueRef(Value::parse(name, mgr.context())));
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(made->getParam(A_SYNTH_FORCE_SOFT_FP), ValueRef(A_TRUE));
    }
}

} // namespace
} // namespace orvo
