// Numbers of signals in decimal, stimuli, and value change dumps.
#include "driver/waveform.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <set>
#include <sstream>

namespace orvo::driver {
namespace {

using sim::Scalar;

const Scalar kFixed{"x", 8, true, false, 4};
const Scalar kUnsigned{"u", 8, false, false, 0};
const Scalar kCoarse{"c", 4, false, false, -3};
const Scalar kWide{"w", 100, true, false, 2};

const Scalar kSingle{"f", 32, false, true, 0, {}, 8};
const Scalar kHalf{"h", 16, false, true, 0, {}, 5};
const Scalar kDouble{"d", 64, false, true, 0, {}, 11};

std::uint64_t bits(std::int64_t value) { return static_cast<std::uint64_t>(value); }

TEST(ValueText, isTheExactDecimal) {
    EXPECT_EQ(valueText(kFixed, {bits(-1)}, false), "-0.0625");
    EXPECT_EQ(valueText(kFixed, {bits(24)}, false), "1.5");
    EXPECT_EQ(valueText(kFixed, {bits(-128)}, false), "-8");
    EXPECT_EQ(valueText(kFixed, {bits(0)}, false), "0");
    EXPECT_EQ(valueText(kFixed, {bits(-1)}, true), "-1");
    EXPECT_EQ(valueText(kCoarse, {15}, false), "120");
    EXPECT_EQ(valueText(kWide, {0, bits(-1)}, false), "-4611686018427387904");
    EXPECT_EQ(valueText(kSingle, {0x3f800000}, true), "1065353216");
}

TEST(ValueText, isReadRoundedAndSaturated) {
    EXPECT_EQ(*parseValue(kFixed, "1.5", false), (Words{24}));
    EXPECT_EQ(*parseValue(kFixed, "-0.0625", false), (Words{bits(-1)}));
    // Halves go away from zero.
    EXPECT_EQ(*parseValue(kFixed, "0.03125", false), (Words{1}));
    EXPECT_EQ(*parseValue(kFixed, "-0.03125", false), (Words{bits(-1)}));
    EXPECT_EQ(*parseValue(kFixed, "0.03", false), (Words{0}));
    EXPECT_EQ(*parseValue(kFixed, "1e3", false), (Words{127}));
    EXPECT_EQ(*parseValue(kFixed, "-1E+3", false), (Words{bits(-128)}));
    EXPECT_EQ(*parseValue(kUnsigned, "-4", false), (Words{0}));
    EXPECT_EQ(*parseValue(kCoarse, "12", false), (Words{2}));
    EXPECT_EQ(*parseValue(kUnsigned, "7", true), (Words{7}));
    for (const char *text : {"", "-", ".", "1.2.3", "0x1", "1e", "1e99999", "nan", "1 2"}) {
        EXPECT_FALSE(parseValue(kFixed, text, false)) << text;
    }
    EXPECT_FALSE(parseValue(kFixed, "1.5", true));
}

RC_GTEST_PROP(ValueTextProperty, readsBackWhatItWrites, (bool isSigned, bool raw)) {
    const Scalar scalar{"x", *rc::gen::inRange(1U, 64U), isSigned, false, *rc::gen::inRange(-70, 140)};
    std::uint64_t word = *rc::gen::arbitrary<std::uint64_t>() << (64 - scalar.width);
    word = isSigned ? bits(static_cast<std::int64_t>(word) >> (64 - scalar.width)) : word >> (64 - scalar.width);
    RC_ASSERT(*parseValue(scalar, valueText(scalar, {word}, raw), raw) == (Words{word}));
}

TEST(FloatText, isTheShortestDecimalThatReadsBack) {
    EXPECT_EQ(valueText(kSingle, {0x3f800000}, false), "1");
    EXPECT_EQ(valueText(kSingle, {0xbdcccccd}, false), "-0.1");
    EXPECT_EQ(valueText(kSingle, {0x7f800000}, false), "inf");
    EXPECT_EQ(valueText(kSingle, {0xff800000}, false), "-inf");
    EXPECT_EQ(valueText(kSingle, {0x7fc00001}, false), "nan");
    EXPECT_EQ(valueText(kSingle, {0x80000000}, false), "-0");
    EXPECT_EQ(valueText(kSingle, {0x4b800000}, false), "16777216");
    EXPECT_EQ(valueText(kSingle, {0x7f7fffff}, false), "3.4028235e38");
    EXPECT_EQ(valueText(kHalf, {1}, false), "6e-8");
    EXPECT_EQ(valueText(kDouble, {0x3fb999999999999aULL}, false), "0.1");
}

TEST(FloatText, isReadToTheNearest) {
    EXPECT_EQ(*parseValue(kSingle, "0.1", false), (Words{0x3dcccccd}));
    EXPECT_EQ(*parseValue(kSingle, "-1e-3", false), (Words{0xba83126f}));
    EXPECT_EQ(*parseValue(kSingle, "1e39", false), (Words{0x7f800000}));
    EXPECT_EQ(*parseValue(kSingle, "-inf", false), (Words{0xff800000}));
    EXPECT_EQ(*parseValue(kSingle, "nan", false), (Words{0x7fc00000}));
    EXPECT_EQ(*parseValue(kSingle, "-0", false), (Words{0x80000000}));
    // Ties go to even, also below the least normal number, and into the next exponent.
    EXPECT_EQ(*parseValue(kHalf, "2049", false), (Words{0x6800}));
    EXPECT_EQ(*parseValue(kHalf, "2051", false), (Words{0x6802}));
    EXPECT_EQ(*parseValue(kHalf, "65519.9", false), (Words{0x7bff}));
    EXPECT_EQ(*parseValue(kHalf, "65520", false), (Words{0x7c00}));
    EXPECT_EQ(*parseValue(kHalf, "2.9802322387695312e-8", false), (Words{0}));
    EXPECT_EQ(*parseValue(kHalf, "6.1e-5", false), (Words{0x3ff}));
    for (const char *text : {"", "-", "1.2.3", "1e", "1 2", " 1", "x"}) {
        EXPECT_FALSE(parseValue(kSingle, text, false)) << text;
    }
}

RC_GTEST_PROP(FloatTextProperty, readsBackWhatItWrites, ()) {
    const Scalar scalar = *rc::gen::element(kSingle, kHalf, kDouble);
    const std::uint64_t word = *rc::gen::arbitrary<std::uint64_t>() >> (64 - scalar.width);
    const std::string text = valueText(scalar, {word}, false);
    RC_PRE(text != "nan");
    RC_ASSERT(*parseValue(scalar, text, false) == (Words{word}));
}

TEST(FloatText, ofAllHalvesReadsBack) {
    for (std::uint64_t word = 0; word < 65536; ++word) {
        const std::string text = valueText(kHalf, {word}, false);
        if (text != "nan") {
            EXPECT_EQ(*parseValue(kHalf, text, false), (Words{word})) << text;
        }
    }
}

TEST(Stimuli, areMadeByName) {
    const std::vector<Scalar> inputs{kFixed, kUnsigned};
    EXPECT_EQ(makeStimulus("other", inputs), nullptr);
    EXPECT_EQ(makeStimulus("noise:seed=", inputs), nullptr);
    EXPECT_EQ(makeStimulus("noise:seed=1x", inputs), nullptr);
    const auto impulse = makeStimulus("impulse", inputs);
    EXPECT_EQ(impulse->at(0, 0), (Words{16}));
    EXPECT_EQ(impulse->at(1, 0), (Words{0}));
    const auto ramp = makeStimulus("ramp", inputs);
    EXPECT_EQ(ramp->at(0, 0), (Words{bits(-128)}));
    EXPECT_EQ(ramp->at(3, 1), (Words{3}));
    const auto corners = makeStimulus("corners", inputs);
    std::set<Words> met;
    for (std::uint64_t cycle = 0; cycle < 100; ++cycle) {
        met.insert(corners->at(cycle, 0));
    }
    EXPECT_EQ(met, (std::set<Words>{{0}, {1}, {bits(-1)}, {127}, {bits(-128)}}));
    const auto noise = makeStimulus("noise:seed=5", inputs);
    EXPECT_EQ(noise->at(3, 1), makeStimulus("noise:seed=5", inputs)->at(3, 1));
    EXPECT_NE(noise->at(3, 1), makeStimulus("noise:seed=6", inputs)->at(3, 1));
    EXPECT_NE(noise->at(3, 1), noise->at(4, 1));
}

TEST(ChangeDump, writesWhatChanges) {
    std::ostringstream out;
    const std::vector<Scalar> scalars{{"a b", 2, false, false, 0}, {"c", 1, false, false, 0}};
    ChangeDump dump(out, "top", scalars);
    dump.cycle(0, {{{2}, {0}}, {{0}, {0}}});
    dump.cycle(1, {{{2}, {0}}, {{0}, {0}}});
    dump.cycle(2, {{{3}, {2}}, {{0}, {0}}});
    EXPECT_EQ(out.str(), "$timescale 1 ns $end\n$scope module top $end\n$var wire 2 ! a_b $end\n$var wire 1 \" c $end\n"
                         "$upscope $end\n$enddefinitions $end\n#0\nb10 !\nb0 \"\n#2\nbx1 !\n");
}

TEST(ChangeDump, namesEachOfManySignals) {
    std::ostringstream out;
    const std::vector<Scalar> scalars(20000, {"x", 1, false, false, 0});
    const ChangeDump dump(out, "top", scalars);
    std::istringstream in(out.str());
    std::set<std::string> names;
    for (std::string line; std::getline(in, line);) {
        if (line.find("$var") == 0) {
            names.insert(line.substr(12, line.find(" x $end") - 12));
        }
    }
    EXPECT_EQ(names.size(), scalars.size());
}

} // namespace
} // namespace orvo::driver
