// Blocks of floats as rows: what they combine from single operations, formats that meet, and the library's own format.
#include "support/floatjudge.h"
#include "support/simulatorfixture.h"

#include <cmath>
#include <cstring>

namespace orvo::sim {
namespace {

using test::Numbers;
using ByName = std::map<std::string, std::int64_t>;

std::int64_t bitsOf(float value) {
    std::uint32_t word;
    std::memcpy(&word, &value, sizeof word);
    return word;
}

float floatOf(std::int64_t bits) {
    const auto word = static_cast<std::uint32_t>(bits);
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

class FloatRowsTest : public test::SimulatorFixture {
  protected:
    /// Small numbers with many digits, of which sums round.
    float drawn() {
        return static_cast<float>(chance() - (std::int64_t{1} << 31)) *
               std::ldexp(1.0F, static_cast<int>(chance() % 8));
    }
    /// Sets floats by name, and gives the float of the main output.
    float compute(Simulator &simulator, const std::map<std::string, float> &in, ByName controls = {}) {
        for (const auto &[name, number] : in) {
            controls[name] = bitsOf(number);
        }
        return floatOf(stepByName(simulator, controls).begin()->second);
    }
    test::Chance chance{9};
};

constexpr const char *kSingle = "float(23,8)";
constexpr const char *kComplex = "c float(23,8)";

TEST_F(FloatRowsTest, choosesAndBounds) {
    Design designs[] = {Design(mgr.context()), Design(mgr.context()), Design(mgr.context()), Design(mgr.context()),
                        Design(mgr.context())};
    Simulator extreme(designs[0],
                      oneBlock(designs[0], "minmaxBlock",
                               {{"0", kSingle}, {"1", kSingle}, {"minmaxPortSelect", "u1.0"}}, {{"primWireOut", ""}}));
    Simulator saturate(designs[1], oneBlock(designs[1], "saturateBlock",
                                            {{"0", kSingle}, {"1", kSingle}, {"2", kSingle}}, {{"primWireOut", ""}}));
    Simulator load(
        designs[2],
        oneBlock(designs[2], "addSloadBlock",
                 {{"0", kSingle}, {"1", kSingle}, {"addSloadPortLoadCtrl", "u1.0"}, {"addSloadPortLoadValue", kSingle}},
                 {{"primWireOut", ""}}));
    Simulator least(designs[3],
                    oneBlock(designs[3], "magminBlock", {{"0", kSingle}, {"1", kSingle}}, {{"primWireOut", ""}}));
    Simulator most(designs[4],
                   oneBlock(designs[4], "magmaxBlock", {{"0", kSingle}, {"1", kSingle}}, {{"primWireOut", ""}}));
    for (int i = 0; i < 300; ++i) {
        const float a = drawn();
        const float b = i % 3 == 0 ? -a : drawn();
        const float c = drawn();
        const std::int64_t bit = chance() % 2;
        EXPECT_EQ(compute(extreme, {{"0", a}, {"1", b}}, {{"minmaxPortSelect", bit}}),
                  bit != 0 ? std::fmax(a, b) : std::fmin(a, b));
        EXPECT_EQ(compute(saturate, {{"0", a}, {"1", b}, {"2", c}}), std::fmax(std::fmin(a, b), c));
        EXPECT_EQ(compute(load, {{"0", a}, {"1", b}, {"addSloadPortLoadValue", c}}, {{"addSloadPortLoadCtrl", bit}}),
                  bit != 0 ? c : a + b);
        const bool isTie = std::fabs(a) == std::fabs(b);
        EXPECT_EQ(compute(least, {{"0", a}, {"1", b}}), isTie ? -std::fabs(a) : std::fabs(a) < std::fabs(b) ? a : b);
        EXPECT_EQ(compute(most, {{"0", a}, {"1", b}}), isTie ? std::fabs(a) : std::fabs(a) > std::fabs(b) ? a : b);
    }
}

TEST_F(FloatRowsTest, takesAComplexFromARealNumber) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "subBlock", {{"0", kSingle}, {"1", kComplex}}, {{"primWireOut", ""}}));
    const ByName out = stepByName(simulator, {{"0", bitsOf(2)}, {"1.re", bitsOf(1)}, {"1.im", bitsOf(1)}});
    EXPECT_EQ(floatOf(out.at("primWireOut.re")), 1.0F);
    EXPECT_EQ(floatOf(out.at("primWireOut.im")), -1.0F);
}

TEST_F(FloatRowsTest, multipliesByConstants) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "constmultBlock", {{"0", kSingle}}, {{"primWireOut", ""}},
                                         {{"constValue", "-0x3b33333333p-36"}}));
    Design turn(mgr.context());
    Simulator complex(turn, oneBlock(turn, "constmultBlock", {{"0", kComplex}}, {{"primWireOut", ""}},
                                     {{"constValue", "(complexRollTag 0x8p-4 -0x14p-4)"}}));
    for (int i = 0; i < 100; ++i) {
        const float a = drawn();
        const float b = drawn();
        EXPECT_EQ(compute(simulator, {{"0", a}}), a * static_cast<float>(-0x3.b33333333p0));
        const ByName out = stepByName(complex, {{"0.re", bitsOf(a)}, {"0.im", bitsOf(b)}});
        EXPECT_EQ(floatOf(out.at("primWireOut.re")), a * 0.5F - b * -1.25F);
        EXPECT_EQ(floatOf(out.at("primWireOut.im")), a * -1.25F + b * 0.5F);
    }
}

TEST_F(FloatRowsTest, repeatsTheLastConstantForTheLanesBeyond) {
    const auto productsBy = [&](const char *type, const char *constant) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, "constmultBlock", {{"0", type}}, {{"primWireOut", ""}},
                                             {{"constValue", constant}}));
        std::vector<float> products;
        for (const std::int64_t bits : stepWith(simulator, Numbers(simulator.inputs().size(), bitsOf(1)))) {
            products.push_back(floatOf(bits));
        }
        return products;
    };
    using Products = std::vector<float>;
    EXPECT_EQ(productsBy("[4] float(23,8)", "(vectorRollTag 2 3)"), (Products{2, 3, 3, 3}));
    EXPECT_EQ(productsBy("[2] float(23,8)", "(vectorRollTag 2 3 4 5 6)"), (Products{2, 3}));
    EXPECT_EQ(productsBy("[2][3] float(23,8)", "(vectorRollTag 2 3)"), (Products{2, 3, 3, 2, 3, 3}));
    EXPECT_EQ(productsBy("[3][2] float(23,8)", "(vectorRollTag (vectorRollTag 2 3) (vectorRollTag 5))"),
              (Products{2, 3, 5, 5, 5, 5}));
}

TEST_F(FloatRowsTest, multipliesARealByAComplexNumberWithoutAPhantomPart) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "multBlock", {{"0", kSingle}, {"1", kComplex}}, {{"primWireOut", ""}}));
    const float infinity = std::numeric_limits<float>::infinity();
    // Zero times infinity would be no number.
    const ByName out = stepByName(simulator, {{"0", bitsOf(infinity)}, {"1.re", bitsOf(2)}, {"1.im", bitsOf(-3)}});
    EXPECT_EQ(out, (ByName{{"primWireOut.re", bitsOf(infinity)}, {"primWireOut.im", bitsOf(-infinity)}}));
}

TEST_F(FloatRowsTest, addsRealAndComplexNumbers) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "addsubfusedBlock", {{"0", kSingle}, {"1", kComplex}}, {{"primWireAux", ""}}));
    EXPECT_EQ(stepByName(simulator, {{"0", bitsOf(1)}, {"1.re", bitsOf(3)}, {"1.im", bitsOf(4)}}),
              (ByName{{"primWireAux.re", bitsOf(-2)}, {"primWireAux.im", bitsOf(-4)}}));
}

TEST_F(FloatRowsTest, sumsProductsInTheOrderOfPorts) {
    Design design(mgr.context());
    Simulator plain(
        design,
        oneBlock(
            design, "scalarProductBlock",
            {{"0", kSingle}, {"1", kSingle}, {"2", kSingle}, {"3", kSingle}, {"scalarProductPortChainin", kSingle}},
            {{"primWireOut", ""}}, {{"subtractive", "true"}}));
    Design dot(mgr.context());
    Simulator vector(dot, oneBlock(dot, "scalarProductBlock", {{"0", "[3] float(23,8)"}, {"1", "[3] float(23,8)"}},
                                   {{"primWireOut", ""}}));
    for (int i = 0; i < 100; ++i) {
        const float n[] = {drawn(), drawn(), drawn(), drawn(), drawn() * 1e9F, drawn()};
        const float first = n[0] * n[1];
        const float second = n[2] * n[3];
        const float difference = first - second;
        EXPECT_EQ(
            compute(plain, {{"0", n[0]}, {"1", n[1]}, {"2", n[2]}, {"3", n[3]}, {"scalarProductPortChainin", n[4]}}),
            difference + n[4]);
        const float products[] = {n[0] * n[3], n[1] * n[4], n[2] * n[5]};
        EXPECT_EQ(
            compute(vector,
                    {{"0[0]", n[0]}, {"0[1]", n[1]}, {"0[2]", n[2]}, {"1[0]", n[3]}, {"1[1]", n[4]}, {"1[2]", n[5]}}),
            products[0] + products[1] + products[2]);
    }
}

TEST_F(FloatRowsTest, sumsComplexProducts) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "scalarProductBlock",
                                         {{"0", kComplex}, {"1", kComplex}, {"2", kSingle}, {"3", kComplex}},
                                         {{"primWireOut", ""}}));
    const auto of = [](float value) { return bitsOf(value); };
    EXPECT_EQ(stepByName(simulator, {{"0.re", of(1)},
                                     {"0.im", of(2)},
                                     {"1.re", of(3)},
                                     {"1.im", of(4)},
                                     {"2", of(10)},
                                     {"3.re", of(5)},
                                     {"3.im", of(6)}}),
              (ByName{{"primWireOut.re", of(3 - 8 + 50)}, {"primWireOut.im", of(4 + 6 + 60)}}));
}

TEST_F(FloatRowsTest, sumsFixedComplexProductsExactly) {
    Design design(mgr.context());
    Simulator simulator(
        design,
        oneBlock(
            design, "scalarProductBlock",
            {{"0", "c s4.2"}, {"1", "c s4.0"}, {"2", "s4.0"}, {"3", "c s4.1"}, {"scalarProductPortChainin", "c s10.0"}},
            {{"primWireOut", ""}}, {{"subtractive", "true"}, {"subtractiveChainin", "true"}}));
    const auto draw = [this](std::int64_t end) { return chance() % (2 * end) - end; };
    for (int i = 0; i < 300; ++i) {
        const std::int64_t a[] = {draw(32), draw(32)};
        const std::int64_t b[] = {draw(8), draw(8)};
        const std::int64_t c = draw(8);
        const std::int64_t d[] = {draw(16), draw(16)};
        const std::int64_t e[] = {draw(512), draw(512)};
        // In quarters.
        const std::int64_t re = a[0] * b[0] - a[1] * b[1] - 2 * c * d[0] - 4 * e[0];
        const std::int64_t im = a[0] * b[1] + a[1] * b[0] - 2 * c * d[1] - 4 * e[1];
        EXPECT_EQ(stepByName(simulator, {{"0.re", a[0]},
                                         {"0.im", a[1]},
                                         {"1.re", b[0]},
                                         {"1.im", b[1]},
                                         {"2", c},
                                         {"3.re", d[0]},
                                         {"3.im", d[1]},
                                         {"scalarProductPortChainin.re", e[0]},
                                         {"scalarProductPortChainin.im", e[1]}}),
                  (ByName{{"primWireOut.re", re}, {"primWireOut.im", im}}));
    }
}

TEST_F(FloatRowsTest, keepsBitsAcrossReinterpretingCasts) {
    struct Case {
        const char *from;
        const char *to;
        std::int64_t in;
        std::int64_t out;
    };
    const Case cases[] = {{"float(23,8)", "(typeSFixed 32 0)", 0xc0490fdb, static_cast<std::int32_t>(0xc0490fdb)},
                          {"float(23,8)", "(typeUFixed 8 0)", 0xc0490fdb, 0xdb},
                          {"float(10,5)", "(typeUFixed 20 0)", 0x8001, 0x8001},
                          {"s16.0", "(typeSFloatIEEE 10 5)", -2, 0xfffe},
                          {"s8.0", "(typeSFloatIEEE 10 5)", -2, 0xfffe},
                          {"float(10,5)", "(typeSFloatIEEE 7 8)", 0x3c00, 0x3c00}};
    for (const Case &row : cases) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, "castBlock", {{"0", row.from}},
                                             {{"primWireOut", ""}, {"castWireClip", ""}},
                                             {{"castMode", "castModeReinterp"}, {"castOutputType", row.to}}));
        EXPECT_EQ(stepByName(simulator, {{"0", row.in}}), (ByName{{"primWireOut", row.out}, {"castWireClip", 0}}))
            << row.from << row.to;
    }
}

TEST_F(FloatRowsTest, tellsThatACastToFixedPointMetABound) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "castBlock", {{"0", kSingle}}, {{"primWireOut", ""}, {"castWireClip", ""}},
                                 {{"castOutputType", "(typeSFixed 4 1)"},
                                  {"castSaturateMode", "saturateAsymmetric"},
                                  {"castRoundingMode", "roundingToNearestTieAway"}}));
    const auto clipped = [&](float in, std::int64_t out, bool clips) {
        EXPECT_EQ(stepByName(simulator, {{"0", bitsOf(in)}}), (ByName{{"primWireOut", out}, {"castWireClip", clips}}))
            << in;
    };
    clipped(7.5F, 15, false);
    clipped(7.74F, 15, false);
    clipped(7.75F, 15, true);
    clipped(-8.0F, -16, false);
    clipped(-8.2F, -16, false);
    clipped(-8.25F, -16, true);
    clipped(0.25F, 1, false);
    clipped(-0.25F, -1, false);
    clipped(std::numeric_limits<float>::infinity(), 15, true);
    clipped(-std::numeric_limits<float>::infinity(), -16, true);
    clipped(std::numeric_limits<float>::quiet_NaN(), 0, false);
}

TEST_F(FloatRowsTest, bringsChosenFloatsToOneFormat) {
    Design design(mgr.context());
    Simulator mux(design,
                  oneBlock(design, "muxBlock", {{"muxPortSelect", "u1.0"}, {"0", "float(10,5)"}, {"1", kSingle}},
                           {{"primWireOut", ""}}));
    EXPECT_EQ(stepByName(mux, {{"muxPortSelect", 0}, {"0", 0xc200}, {"1", 0}}).at("primWireOut"), bitsOf(-3));
    EXPECT_EQ(stepByName(mux, {{"muxPortSelect", 1}, {"0", 0xc200}, {"1", bitsOf(0.1F)}}).at("primWireOut"),
              bitsOf(0.1F));
    Design other(mgr.context());
    Simulator select(other, oneBlock(other, "selectBlock",
                                     {{"(selectPortkeyCtrl 0)", "u1.0"},
                                      {"(selectPortkeyData 0)", kSingle},
                                      {"selectPortDefaultData", "float(10,5)"}},
                                     {{"primWireOut", ""}}));
    EXPECT_EQ(stepByName(select, {{"(selectPortkeyCtrl 0)", 0}, {"selectPortDefaultData", 0x3c00}}).at("primWireOut"),
              bitsOf(1));
}

TEST_F(FloatRowsTest, selectsRecords) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "selectBlock",
                                         {{"(selectPortkeyCtrl 0)", "u1.0"},
                                          {"(selectPortkeyData 0)", "{s4.0,[2] u3.0}"},
                                          {"selectPortDefaultData", "{s4.0,[2] u3.0}"}},
                                         {{"primWireOut", ""}}));
    ByName in{{"(selectPortkeyData 0).0", -1}, {"(selectPortkeyData 0).1[0]", 2}, {"(selectPortkeyData 0).1[1]", 3},
              {"selectPortDefaultData.0", 4},  {"selectPortDefaultData.1[0]", 5}, {"selectPortDefaultData.1[1]", 6},
              {"(selectPortkeyCtrl 0)", 0}};
    EXPECT_EQ(stepByName(simulator, in),
              (ByName{{"primWireOut.0", 4}, {"primWireOut.1[0]", 5}, {"primWireOut.1[1]", 6}}));
    in["(selectPortkeyCtrl 0)"] = 1;
    EXPECT_EQ(stepByName(simulator, in),
              (ByName{{"primWireOut.0", -1}, {"primWireOut.1[0]", 2}, {"primWireOut.1[1]", 3}}));
}

TEST_F(FloatRowsTest, computesWithLibraryFloatsInTheirLowBits) {
    Design design(mgr.context());
    const char *const library = "fplib(23,8)";
    Simulator add(design, oneBlock(design, "addBlock", {{"0", library}, {"1", library}}, {{"primWireOut", ""}}));
    ASSERT_EQ(add.outputs()[0].width, 34U);
    for (int i = 0; i < 100; ++i) {
        const float a = drawn();
        const float b = drawn();
        // What stands above the sign does not count, and comes out as zero.
        const std::int64_t above = (chance() % 4) << 32U;
        EXPECT_EQ(stepByName(add, {{"0", bitsOf(a) | above}, {"1", bitsOf(b)}}).at("primWireOut"), bitsOf(a + b));
    }
    Design casts(mgr.context());
    Simulator cast(casts, oneBlock(casts, "castBlock", {{"0", library}}, {{"primWireOut", ""}},
                                   {{"castOutputType", "(typeSFixed 8 4)"}}));
    EXPECT_EQ(stepByName(cast, {{"0", bitsOf(-2.5F)}}).at("primWireOut"), -40);
    Design constants(mgr.context());
    Simulator constant(constants, oneBlock(constants, "constBlock", {}, {{"primWireOut", ""}},
                                           {{"constValue", "-1"}, {"constType", "(typeSFloatFPLib 52 11)"}}));
    constant.step();
    EXPECT_EQ(constant.output(0), (std::vector<std::uint64_t>{0xbff0000000000000, 0}));
    Design classes(mgr.context());
    Simulator classifier(classes, oneBlock(classes, "floatClassBlock", {{"0", library}},
                                           {{"fpclassWireSign", ""}, {"fpclassWireInf", ""}}));
    EXPECT_EQ(stepByName(classifier, {{"0", bitsOf(-std::numeric_limits<float>::infinity())}}),
              (ByName{{"fpclassWireSign", 1}, {"fpclassWireInf", 1}}));
    Design meet(mgr.context());
    Simulator mixed(meet, oneBlock(meet, "multBlock", {{"0", "fplib(10,5)"}, {"1", kSingle}}, {{"primWireOut", ""}}));
    EXPECT_EQ(stepByName(mixed, {{"0", 0x4200}, {"1", bitsOf(1.5F)}}).at("primWireOut"), bitsOf(4.5F));
}

TEST_F(FloatRowsTest, roundsTiesAwayInSumsToo) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "addBlock", {{"0", kSingle}, {"1", kSingle}}, {{"primWireOut", ""}},
                                         {{"floatRoundingMode", "roundingToNearestTieAway"}}));
    const float half = std::ldexp(1.0F, -24);
    EXPECT_EQ(compute(simulator, {{"0", 1.0F}, {"1", half}}), std::nextafter(1.0F, 2.0F));
    EXPECT_EQ(compute(simulator, {{"0", -1.0F}, {"1", -half}}), std::nextafter(-1.0F, -2.0F));
    EXPECT_EQ(compute(simulator, {{"0", 1.0F}, {"1", std::nextafter(half, 0.0F)}}), 1.0F);
}

TEST_F(FloatRowsTest, takesFloatsApartByTheirBits) {
    struct Case {
        const char *block;
        Texts params;
        std::int64_t result;
    };
    const Case cases[] = {
        {"bitSelectBlock", {{"bitSelectBitOffset", "23"}, {"bitSelectOutputType", "(typeUFixed 8 0)"}}, 0x80},
        {"bitSelectBlock", {{"bitSelectBitOffset", "-1"}, {"bitSelectOutputType", "(typeUFixed 1 0)"}}, 1},
        {"chooseBitsBlock", {{"chooseBitsBitOffsets", "(31 0)"}, {"chooseBitsOutputType", "(typeUFixed 2 0)"}}, 3},
        {"notBlock", {}, 0x3fb6f024},
        {"reverseBlock", {}, 0xdbf09203}};
    for (const Case &row : cases) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, row.block, {{"0", kSingle}}, {{"primWireOut", ""}}, row.params));
        EXPECT_EQ(stepByName(simulator, {{"0", 0xc0490fdb}}).at("primWireOut"), row.result) << row.block;
    }
}

TEST_F(FloatRowsTest, comparesARealWithAComplexNumber) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "cmpEqBlock", {{"0", kSingle}, {"1", kComplex}}, {{"primWireOut", ""}}));
    const auto equal = [&](float re, float im) {
        return stepByName(simulator, {{"0", bitsOf(2)}, {"1.re", bitsOf(re)}, {"1.im", bitsOf(im)}}).at("primWireOut");
    };
    EXPECT_EQ(equal(2, 0), 1);
    EXPECT_EQ(equal(2, 1), 0);
    EXPECT_EQ(equal(1, 0), 0);
}

} // namespace
} // namespace orvo::sim
