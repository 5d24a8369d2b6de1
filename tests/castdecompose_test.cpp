// Casts as rounding, selection and clipping: what is drawn in each case, and that every small cast computes what it
// did.
#include "orvo/castdecompose.h"

#include "support/exhaustive.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/oneblock.h"
#include "support/printedmessages.h"
#include "support/samebehaviour.h"
#include "support/typetable.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/simulator.h>
#include <orvo/wire.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace orvo {
namespace {

using Names = std::set<std::string>;
using test::KeyedTexts;

class CastDecompose : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    std::unique_ptr<Design> cast(const std::string &from, const std::string &to, KeyedTexts params,
                                 bool hasClip = false) {
        const std::string type = testing::typeText(to);
        params.emplace_back("castOutputType", type.c_str());
        std::vector<const char *> wires{"primWireOut"};
        if (hasClip) {
            wires.push_back("castWireClip");
        }
        return test::oneBlock(mgr.context(), "castBlock", {{"0", from.c_str()}}, params, wires);
    }
    static void decompose(Design &design) {
        test::HeardMessages heard(design.getContext());
        PassScheduler scheduler;
        scheduler.addPass("DecomposeCompositePass");
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        EXPECT_EQ(heard.take(), std::vector<std::string>{});
    }
    /// Types of the blocks that took the place of the cast, by name.
    static std::map<std::string, std::string> drawnIn(Design &design) {
        std::map<std::string, std::string> drawn;
        for (const Block &block : *design.begin()) {
            const std::string name = block.getName()->toString();
            if (name.find("block") != std::string::npos) {
                drawn[name] = block.type()->toString();
            }
        }
        return drawn;
    }
    /// The same for a cast of these types, which must compute what it did.
    std::map<std::string, std::string> drawn(const std::string &from, const std::string &to, const KeyedTexts &params,
                                             bool hasClip = false) {
        const auto before = cast(from, to, params, hasClip);
        mDesign = cast(from, to, params, hasClip);
        decompose(*mDesign);
        sim::CompareOptions options;
        options.cycles = 300;
        test::expectSameBehaviour(*before, *mDesign, "top", options);
        return drawnIn(*mDesign);
    }
    std::string param(const std::string &block, const StaticString &key) {
        const Block *found = (*mDesign->begin()).getBlock(value(block));
        const ValueRef set = found == nullptr ? ValueRef() : found->getParam(key);
        return set ? set->toString() : "";
    }

    ContextMgr mgr;
    std::unique_ptr<Design> mDesign;
};

using Drawing = std::map<std::string, std::string>;
const KeyedTexts kWrap = {{"castSaturateMode", "saturateNone"}};
const KeyedTexts kSymmetric = {{"castSaturateMode", "saturateSymmetric"}};
const KeyedTexts kAsymmetric = {{"castSaturateMode", "saturateAsymmetric"}};

TEST_F(CastDecompose, truncatesByNothingAndSelectsWhereTypesDifferInSignOnly) {
    EXPECT_EQ(drawn("s8.0", "u8.0", kWrap),
              (Drawing{{"block_rnd", "truncateBlock"}, {"(block sel)", "bitSelectBlock"}}));
    EXPECT_EQ(param("block_rnd", A_ROUND_BITS), "0");
    EXPECT_EQ(param("(block sel)", A_BIT_SELECT_BIT_OFFSET), "0");
    EXPECT_EQ(param("(block sel)", A_BIT_SELECT_OUTPUT_TYPE), "(typeUFixed 8 0)");
}

TEST_F(CastDecompose, countsAnAbsentSaturationAsNone) {
    EXPECT_EQ(drawn("s8.0", "s4.0", {}).size(), 2U);
    EXPECT_EQ(drawn("s8.0", "s8.0", {}).size(), 2U);
}

TEST_F(CastDecompose, clipsTheMostNegativeValueOfEqualTypesSymmetrically) {
    const Drawing drawing = drawn("s8.0", "s8.0", kSymmetric);
    EXPECT_EQ(drawing, (Drawing{{"block_rnd", "truncateBlock"},
                                {"(block sel)", "bitSelectBlock"},
                                {"block_lconst", "constBlock"},
                                {"block_lcmp", "cmpGeBlock"},
                                {"block_lnot", "notBlock"},
                                {"block_lbound", "constBlock"},
                                {"block_hconst", "constBlock"},
                                {"block_hcmp", "cmpGeBlock"},
                                {"block_hnot", "notBlock"},
                                {"block_hbound", "constBlock"},
                                {"block_mux", "selectBlock"}}));
    EXPECT_EQ(param("block_lconst", A_CONST_VALUE), "-127");
    EXPECT_EQ(param("block_hconst", A_CONST_VALUE), "127");
    EXPECT_EQ(param("block_lbound", A_CONST_VALUE), "-127");
}

TEST_F(CastDecompose, hasNoComparisonForEqualTypesAsymmetrically) {
    EXPECT_EQ(drawn("s8.0", "s8.0", kAsymmetric).size(), 2U);
}

TEST_F(CastDecompose, hasNoLowBoundForAnUnsignedInput) {
    for (const KeyedTexts &mode : {kSymmetric, kAsymmetric}) {
        for (const char *to : {"u4.0", "s4.0", "s8.0"}) {
            const Drawing drawing = drawn("u8.0", to, mode);
            EXPECT_EQ(drawing.count("block_lcmp"), 0U) << to;
            EXPECT_EQ(drawing.count("block_hcmp"), 1U) << to;
        }
        EXPECT_EQ(drawn("u8.0", "s9.0", mode).size(), 2U);
    }
}

TEST_F(CastDecompose, clipsNegativeValuesToZeroInAnUnsignedOutput) {
    const Drawing drawing = drawn("s4.0", "u8.0", kAsymmetric, true);
    EXPECT_EQ(drawing.count("block_lcmp"), 1U);
    EXPECT_EQ(param("block_lconst", A_CONST_VALUE), "0");
    sim::Simulator simulator(*mDesign, *mDesign->begin());
    simulator.setInput(0, -3);
    simulator.step();
    EXPECT_EQ(simulator.outputInteger(0), 0);
    EXPECT_EQ(simulator.outputInteger(1), 1);
}

TEST_F(CastDecompose, makesAConstantWhereNoBitSurvives) {
    for (const char *mode : {"roundingTruncToZero", "roundingBiased", "roundingUnbiased"}) {
        EXPECT_EQ(drawn("s3.4", "s13.-9", {{"castRoundingMode", mode}}, true),
                  (Drawing{{"block_replace_constant", "constBlock"}, {"block_gndClip", "constBlock"}}))
            << mode;
    }
    EXPECT_EQ(drawn("u3.4", "s13.-9", {{"castRoundingMode", "roundingTrunc"}}).size(), 1U);
}

TEST_F(CastDecompose, makesTwoConstantsByTheSignWhereAFloorLeavesNoBit) {
    const Drawing wanted = {{"block_replace_zero_const", "constBlock"},
                            {"block_replace_allones_const", "constBlock"},
                            {"block_msb_select", "bitSelectBlock"},
                            {"block_const_select_mux", "muxBlock"},
                            {"block_gndClip", "constBlock"}};
    // An absent mode is the floor, too.
    for (const KeyedTexts &mode : {KeyedTexts{{"castRoundingMode", "roundingTrunc"}}, KeyedTexts{}}) {
        EXPECT_EQ(drawn("s3.4", "s13.-9", mode, true), wanted);
    }
    EXPECT_EQ(param("block_msb_select", A_BIT_SELECT_BIT_OFFSET), "6");
    EXPECT_EQ(drawn("s3.4", "u11.-9", {}, true), wanted);
    EXPECT_EQ(param("block_replace_allones_const", A_CONST_VALUE), "1536");
    EXPECT_EQ(drawn("s3.4", "s10.-9", kSymmetric, true), wanted);
    EXPECT_EQ(param("block_replace_allones_const", A_CONST_VALUE), "0");
}

TEST_F(CastDecompose, keepsTheBitsWhereItReinterprets) {
    const KeyedTexts bits = {{"castMode", "castModeReinterp"}};
    EXPECT_EQ(drawn("s8.0", "u4.2", bits), (Drawing{{"(block sel)", "bitSelectBlock"}}));
    EXPECT_EQ(drawn("s8.0", "u4.2", bits, true),
              (Drawing{{"(block sel)", "bitSelectBlock"}, {"block_gndClip", "constBlock"}}));
    // The pad is a cast itself.
    const Drawing extended = drawn("s4.2", "s2.8", bits);
    EXPECT_EQ(extended, (Drawing{{"block_extendPad_rnd", "truncateBlock"},
                                 {"(block_extendPad sel)", "bitSelectBlock"},
                                 {"(block sel)", "bitSelectBlock"}}));
    EXPECT_EQ(param("(block_extendPad sel)", A_BIT_SELECT_OUTPUT_TYPE), "(typeSFixed 8 2)");
}

TEST_F(CastDecompose, keepsTheBitsOfFloats) {
    const KeyedTexts bits = {{"castMode", "castModeReinterp"}};
    EXPECT_EQ(drawn("float(10,5)", "u16.0", bits), (Drawing{{"(block sel)", "bitSelectBlock"}}));
    EXPECT_EQ(drawn("u16.0", "float(10,5)", bits), (Drawing{{"(block sel)", "bitSelectBlock"}}));
    EXPECT_EQ(param("(block sel)", A_BIT_SELECT_OUTPUT_TYPE), value(testing::typeText("float(10,5)"))->toString());
    EXPECT_EQ(drawn("float(10,5)", "s8.0", bits),
              (Drawing{{"(block_preCast sel)", "bitSelectBlock"}, {"(block sel)", "bitSelectBlock"}}));
    EXPECT_EQ(drawn("float(10,5)", "s20.0", bits).count("(block_extendPad sel)"), 1U);
    EXPECT_EQ(drawn("s8.0", "float(10,5)", bits).count("(block_extendPad sel)"), 1U);
}

TEST_F(CastDecompose, leavesConversionsFromAndToFloats) {
    for (const auto &[from, to] : {std::pair<const char *, const char *>{"float(10,5)", "s8.0"},
                                   {"s8.0", "float(10,5)"},
                                   {"float(10,5)", "float(23,8)"}}) {
        EXPECT_EQ(drawn(from, to, kWrap), (Drawing{{"block", "castBlock"}}));
    }
}

TEST_F(CastDecompose, leavesComplexNumbersAndTakesVectors) {
    EXPECT_EQ(drawn("c s8.0", "c s4.0", kWrap), (Drawing{{"block", "castBlock"}}));
    EXPECT_EQ(drawn("[3] s8.0", "[3] s4.0", kWrap).size(), 2U);
    EXPECT_EQ(drawn("[3] s8.0", "[3] s4.0", kSymmetric, true).size(), 11U);
    EXPECT_EQ(drawn("[3] s3.4", "[3] s13.-9", {{"castRoundingMode", "roundingBiased"}}, true).size(), 2U);
    EXPECT_EQ(drawn("[3] s3.4", "[3] s13.-9", {}, true).size(), 5U);
}

TEST_F(CastDecompose, leavesTheVariantForRegionsWithoutScheduling) {
    const auto design = test::oneBlock(mgr.context(), "castNONSBlock", {{"0", "s8.0"}},
                                       {{"castOutputType", "(typeSFixed 4 0)"}}, {"primWireOut"});
    decompose(*design);
    EXPECT_EQ(drawnIn(*design), (Drawing{{"block", "castNONSBlock"}}));
}

/// A cast whose input has no type.
class UntypedCast : public CastDecompose {
  protected:
    UntypedCast() {
        Model &top = *Model::create(design, "top");
        Block &block = *Block::create(top, "block--", A_CAST_BLOCK);
        block.setParam(A_CAST_OUTPUT_TYPE, value("(typeSFixed 4 0)"));
        block.setParam(value("0"), *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), "i"));
        Wire::create(block, A_PRIM_WIRE_OUT);
    }
    ~UntypedCast() override { util::ClearFeatures(); }
    Design design{mgr.context()};
};

TEST_F(UntypedCast, endsTheRun) {
    EXPECT_EXIT(decompose(design), ::testing::ExitedWithCode(1), "reads a signal without a type");
}

TEST_F(UntypedCast, endsTheRunWithoutAnInputToo) {
    (*design.begin()).getBlock(StringValue::get("block--", mgr.context()))->setParam(value("0"), ValueRef());
    EXPECT_EXIT(decompose(design), ::testing::ExitedWithCode(1), "reads a signal without a type");
}

TEST_F(UntypedCast, isToldOfBefore) {
    const test::PrintedMessages printed(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("DecomposeCompositePass");
    EXPECT_EXIT(scheduler.apply(design), ::testing::ExitedWithCode(1),
                "0 UNABLE_TO_INFER_TYPE block=\"block--\" model=top port=data port 0 side=input");
}

TEST_F(UntypedCast, staysWhereNobodyReadsIt) {
    delete (*design.begin()).getBlock(StringValue::get("block--", mgr.context()))->getWire(A_PRIM_WIRE_OUT);
    decompose(design);
    EXPECT_NE((*design.begin()).getBlock(StringValue::get("block--", mgr.context())), nullptr);
}

TEST_F(UntypedCast, isWrittenToAFileWhereTheFeatureAsksForIt) {
    const std::filesystem::path folder = std::filesystem::path(::testing::TempDir()) / "orvo_untyped_cast";
    std::filesystem::create_directories(folder);
    EXPECT_EXIT(
        {
            std::filesystem::current_path(folder);
            util::SetFeatureBoolean("DUMP_XML_ON_INVALID_NETLIST", true);
            decompose(design);
        },
        ::testing::ExitedWithCode(1), "reads a signal without a type");
    std::ifstream file(folder / "FAIL_CastDecomposeHandler_decompose.xml");
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_NE(text.str().find("<!-- On block input: \"block- -\" -->"), std::string::npos) << text.str();
    EXPECT_NE(text.str().find("castOutputType"), std::string::npos);
    std::filesystem::remove_all(folder);
}

// All casts between small types.

struct Format {
    int width;
    int fraction;
    bool isSigned;
    std::string text() const {
        return std::string(isSigned ? "(typeSFixed " : "(typeUFixed ") + std::to_string(width - fraction) + " " +
               std::to_string(fraction) + ")";
    }
};

constexpr int kMostBits = 6;

std::vector<Format> formats() {
    std::vector<Format> all;
    for (int width = 1; width <= kMostBits; ++width) {
        for (int fraction = 0; fraction <= width; ++fraction) {
            all.push_back({width, fraction, false});
            all.push_back({width, fraction, true});
        }
    }
    // Values of 4 and more apart, and values below a quarter of what their bits could count.
    for (const Format &far : {Format{3, -2, true}, Format{4, -2, false}, Format{2, 4, false}, Format{4, 6, true}}) {
        all.push_back(far);
    }
    return all;
}

struct Modes {
    const StaticString *mode;
    const StaticString *rounding;
    bool hasClip;
};

/// One design of all pairs of types, each saturation side by side.
class AllCasts {
  public:
    AllCasts(Context *context, const Modes &modes) : mContext(context), mDesign(context) {
        Model &top = *Model::create(mDesign, "top");
        Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
        Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
        std::uint64_t number = 0;
        for (const Format &from : formats()) {
            const std::string name = std::to_string(100 + mFormats.size());
            mFormats.push_back(from);
            Block &pin = *Block::create(top, "pin" + name, A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, Value::parse(from.text(), context));
            pin.setParam(key(0), *Wire::create(in, "i" + name));
            Wire &typed = *Wire::create(pin, key(0));
            for (const Format &to : formats()) {
                for (const StaticString *saturation : {&A_SATURATE_NONE, &A_SATURATE_ASYM, &A_SATURATE_SYM}) {
                    // Bits that are kept do not saturate.
                    const bool isAnother = modes.mode == &A_CAST_MODE_CONVERT || saturation == &A_SATURATE_NONE;
                    if (isAnother && number++ % testing::kExhaustiveStride == 0) {
                        add(top, out, typed, to, modes, *saturation);
                    }
                }
            }
        }
    }
    Design &design() { return mDesign; }
    const std::vector<Format> &inputs() const { return mFormats; }
    const std::string &nameOf(std::size_t output) const { return mNames[output]; }

  private:
    PureValueRef key(int number) { return NumberValue::get(number, mContext); }
    void add(Model &top, Block &out, Wire &typed, const Format &to, const Modes &modes,
             const StaticString &saturation) {
        Block &cast = *Block::create(top, "cast" + std::to_string(mCasts), A_CAST_BLOCK);
        cast.setParam(A_CAST_OUTPUT_TYPE, Value::parse(to.text(), mContext));
        cast.setParam(A_CAST_MODE, *modes.mode);
        cast.setParam(A_CAST_ROUNDING_MODE, *modes.rounding);
        cast.setParam(A_CAST_SATURATE_MODE, saturation);
        cast.setParam(key(0), typed);
        const std::string what = mFormats.back().text() + " to " + to.text() + " " + saturation.text();
        const std::string number = std::to_string(1000000 + mCasts++);
        out.setParam(StringValue::get("o" + number, mContext), *Wire::create(cast, A_PRIM_WIRE_OUT));
        mNames.push_back(what);
        if (modes.hasClip) {
            out.setParam(StringValue::get("o" + number + "c", mContext), *Wire::create(cast, A_CAST_WIRE_CLIP));
            mNames.push_back(what + ", the clip flag");
        }
    }

    Context *mContext;
    Design mDesign;
    std::vector<Format> mFormats;
    std::vector<std::string> mNames;
    std::size_t mCasts = 0;
};

class EverySmallCast : public ::testing::TestWithParam<Modes> {};

TEST_P(EverySmallCast, computesWhatItDid) {
    ContextMgr mgr;
    AllCasts before(mgr.context(), GetParam());
    AllCasts after(mgr.context(), GetParam());
    PassScheduler scheduler;
    scheduler.addPass("DecomposeCompositePass");
    scheduler.apply(after.design());
    for (const Block &block : *after.design().begin()) {
        ASSERT_NE(block.type(), A_CAST_BLOCK.get_ptr()) << block.getName()->toString();
    }
    sim::Simulator first(before.design(), *before.design().begin());
    sim::Simulator second(after.design(), *after.design().begin());
    ASSERT_EQ(first.outputs().size(), second.outputs().size());
    for (std::int64_t pattern = 0; pattern < 1 << kMostBits; ++pattern) {
        for (std::size_t i = 0; i < before.inputs().size(); ++i) {
            first.setInput(i, pattern);
            second.setInput(i, pattern);
        }
        first.step();
        second.step();
        for (std::size_t i = 0; i < first.outputs().size(); ++i) {
            ASSERT_EQ(first.outputInteger(i), second.outputInteger(i)) << before.nameOf(i) << " of " << pattern;
        }
    }
}

std::vector<Modes> allModes() {
    std::vector<Modes> all;
    for (const bool hasClip : {false, true}) {
        for (const StaticString *rounding :
             {&A_ROUNDING_TRUNC, &A_ROUNDING_TRUNC_TO_ZERO, &A_ROUNDING_BIASED, &A_ROUNDING_UNBIASED}) {
            all.push_back({&A_CAST_MODE_CONVERT, rounding, hasClip});
        }
        all.push_back({&A_CAST_MODE_REINTERP, &A_ROUNDING_TRUNC, hasClip});
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Modes, EverySmallCast, ::testing::ValuesIn(allModes()), [](const auto &at) {
    return std::string(at.param.mode->text()) + "_" + std::string(at.param.rounding->text()) +
           (at.param.hasClip ? "_clip" : "");
});

} // namespace
} // namespace orvo
