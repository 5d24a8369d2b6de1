// Functions against the processor's long double arithmetic and against exact integers.
#include "support/floatjudge.h"
#include "support/simulatorfixture.h"

#include <gmpxx.h>

#include <cmath>
#include <functional>

namespace orvo::sim {
namespace {

using test::Numbers;
using testing::Direction;
using testing::FloatFormat;
using testing::Real;
using ByName = std::map<std::string, std::int64_t>;

const long double kPi = std::acos(-1.0L);

class FunctionRowsTest : public test::SimulatorFixture {
  protected:
    /// To the nearest of a type, ties to even; what is no number is zero.
    static std::int64_t nearest(long double value, const Scalar &type) {
        if (!std::isfinite(value)) {
            return 0;
        }
        const long double low = type.isSigned ? -std::ldexp(1.0L, static_cast<int>(type.width) - 1) : 0;
        const long double high = std::ldexp(1.0L, static_cast<int>(type.width) - (type.isSigned ? 1 : 0)) - 1;
        const long double scaled = std::nearbyint(std::ldexp(value, type.fraction));
        return static_cast<std::int64_t>(std::min(std::max(scaled, low), high));
    }
};

TEST_F(FunctionRowsTest, roundsTheExactValueOfEveryInput) {
    using Function = std::function<long double(long double)>;
    struct Case {
        const char *block;
        Function main;
        Function second;
    };
    const auto sine = [](long double x) { return std::sin(x); };
    const auto cosine = [](long double x) { return std::cos(x); };
    const auto sinePi = [](long double x) { return std::sin(kPi * std::remainder(x, 2.0L)); };
    const auto cosinePi = [](long double x) {
        const long double rest = std::fabs(std::remainder(x, 2.0L));
        return rest == 0.5L ? 0.0L : std::cos(kPi * rest);
    };
    const Case cases[] = {{"sqrtBlock", [](long double x) { return std::sqrt(x); }, nullptr},
                          {"reciprocalBlock", [](long double x) { return 1 / x; }, nullptr},
                          {"recipSqrtBlock", [](long double x) { return 1 / std::sqrt(x); }, nullptr},
                          {"expBlock", [](long double x) { return std::exp(x); }, nullptr},
                          {"logBlock", [](long double x) { return std::log(x); }, nullptr},
                          {"sinBlock", sine, nullptr},
                          {"cosBlock", cosine, nullptr},
                          {"sincosfusedBlock", sine, cosine},
                          {"sinpixBlock", sinePi, nullptr},
                          {"cospixBlock", cosinePi, nullptr},
                          {"sincospixfusedBlock", sinePi, cosinePi}};
    for (const Case &row : cases) {
        for (const char *const type : {"s4.5", "u5.3", "s9.0", "u3.6", "u12.-3"}) {
            Design design(mgr.context());
            Texts outputs{{"primWireOut", ""}};
            if (row.second) {
                outputs.emplace_back("primWireAux", "");
            }
            Simulator simulator(design, oneBlock(design, row.block, {{"0", type}}, outputs));
            const Scalar &in = simulator.inputs()[0];
            const std::int64_t low = in.isSigned ? -(std::int64_t{1} << (in.width - 1)) : 0;
            for (std::int64_t at = low; at < low + (std::int64_t{1} << in.width); ++at) {
                const long double x = std::ldexp(static_cast<long double>(at), -in.fraction);
                const ByName out = stepByName(simulator, {{"0", at}});
                ASSERT_EQ(out.at("primWireOut"), nearest(row.main(x), simulator.outputs()[0]))
                    << row.block << " " << type << " " << at;
                if (row.second) {
                    // Both outputs are of one type.
                    ASSERT_EQ(out.at("primWireAux"), nearest(row.second(x), simulator.outputs()[0]))
                        << row.block << " " << type << " " << at;
                }
            }
        }
    }
}

TEST_F(FunctionRowsTest, roundsWideReciprocals) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "reciprocalBlock", {{"0", "s50.60"}}, {{"primWireOut", ""}}));
    test::Chance chance(1);
    for (int i = 0; i < 200; ++i) {
        mpz_class n = (mpz_class(chance()) << 32U) + mpz_class(chance()) + 1;
        n >>= static_cast<unsigned>(chance() % 40);
        n = n == 0 ? mpz_class(1) : n;
        mpz_class low;
        mpz_fdiv_r_2exp(low.get_mpz_t(), n.get_mpz_t(), 64);
        simulator.setInput(0, {low.get_ui(), 0});
        simulator.step();
        // Half a unit away at most from 2^120 / n.
        const mpz_class exact = mpz_class(1) << 120U;
        const mpz_class bound = (mpz_class(1) << 109U) - 1;
        const std::vector<std::uint64_t> words = simulator.output(0);
        const mpz_class got = (mpz_class(words[1]) << 64U) + mpz_class(words[0]);
        if (exact / n > bound) {
            EXPECT_TRUE(got == bound) << n.get_str();
        } else {
            const mpz_class error = abs(exact - got * n);
            EXPECT_TRUE(2 * error < n || (2 * error == n && mpz_class(got % 2) == 0)) << n.get_str();
        }
    }
}

TEST_F(FunctionRowsTest, bringsWhatIsBeyondAllTypesToTheirEnds) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "expBlock", {{"0", "s70.0"}}, {{"primWireOut", ""}}));
    simulator.setInput(0, {0, 8});
    simulator.step();
    EXPECT_EQ(simulator.output(0), (std::vector<std::uint64_t>{~std::uint64_t{0}, 31}));
    simulator.setInput(0, {0, ~std::uint64_t{7}});
    simulator.step();
    EXPECT_EQ(simulator.output(0), (std::vector<std::uint64_t>{0, 0}));
}

TEST_F(FunctionRowsTest, raisesToIntegers) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "pownBlock", {{"0", "s4.4"}, {"1", "s3.0"}}, {{"primWireOut", ""}}));
    for (std::int64_t base = -128; base < 128; ++base) {
        for (std::int64_t exponent = -4; exponent < 4; ++exponent) {
            const long double x = static_cast<long double>(base) / 16;
            EXPECT_EQ(stepByName(simulator, {{"0", base}, {"1", exponent}}).at("primWireOut"),
                      nearest(std::pow(x, static_cast<long double>(exponent)), simulator.outputs()[0]))
                << base << " " << exponent;
        }
    }
}

TEST_F(FunctionRowsTest, scalesByPowersOfTwoAsAShift) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "multPow2Block", {{"0", "s4.4"}, {"1", "s4.0"}}, {{"primWireOut", ""}}));
    for (std::int64_t value = -128; value < 128; ++value) {
        for (std::int64_t places = -8; places < 8; ++places) {
            const std::int64_t shifted = places < 0 ? value >> -places : value * (1 << places);
            EXPECT_EQ(stepByName(simulator, {{"0", value}, {"1", places}}).at("primWireOut"),
                      static_cast<std::int8_t>(shifted))
                << value << " " << places;
        }
    }
}

TEST_F(FunctionRowsTest, rotatesVectorsWithTheGainOfTheIterations) {
    long double gain = 1;
    for (int i = 0; i < 70; ++i) {
        gain *= std::sqrt(1 + std::ldexp(1.0L, -2 * i));
    }
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "cordicBlock",
                                         {{"cordicPortX", "s3.10"},
                                          {"cordicPortY", "s2.12"},
                                          {"cordicPortAngle", "s3.9"},
                                          {"cordicPortMode", "u1.0"}},
                                         {{"cordicWireX", ""}, {"cordicWireY", ""}, {"cordicWireAngle", ""}}));
    std::map<std::string, Scalar> types;
    for (const Scalar &scalar : simulator.outputs()) {
        types[scalar.name] = scalar;
    }
    test::Chance chance(2);
    for (int i = 0; i < 2000; ++i) {
        std::int64_t in[] = {chance() % 8192 - 4096, chance() % 16384 - 8192, chance() % 4096 - 2048};
        if (i < 27) {
            // Axes and the origin.
            in[0] = (i % 3 - 1) * 4095;
            in[1] = (i / 3 % 3 - 1) * 8191;
            in[2] = (i / 9 - 1) * 2047;
        }
        const long double x = static_cast<long double>(in[0]) / 1024;
        const long double y = static_cast<long double>(in[1]) / 4096;
        const long double angle = static_cast<long double>(in[2]) / 512;
        const std::int64_t mode = i % 2;
        const long double wantedX = gain * (mode != 0 ? std::hypot(x, y) : x * std::cos(angle) - y * std::sin(angle));
        const long double wantedY = gain * (mode != 0 ? 0 : x * std::sin(angle) + y * std::cos(angle));
        const long double wantedAngle = mode != 0 ? angle + std::atan2(y, x) : 0;
        EXPECT_EQ(
            stepByName(
                simulator,
                {{"cordicPortX", in[0]}, {"cordicPortY", in[1]}, {"cordicPortAngle", in[2]}, {"cordicPortMode", mode}}),
            (ByName{{"cordicWireX", nearest(wantedX, types["cordicWireX"])},
                    {"cordicWireY", nearest(wantedY, types["cordicWireY"])},
                    {"cordicWireAngle", nearest(wantedAngle, types["cordicWireAngle"])}}))
            << i;
    }
}

TEST_F(FunctionRowsTest, roundsThePolynomialOnce) {
    const FloatFormat half{5, 10};
    Design design(mgr.context());
    // 1 - x / 2 + 3 x^3 and x^2 - 4.
    Simulator simulator(design, oneBlock(design, "polynomialBlock", {{"0", "float(10,5)"}, {"1", "u2.0"}},
                                         {{"primWireOut", ""}},
                                         {{"polynomialData", "((1 -0x8p-4 0 3) (-4 0 1))"}, {"polynomialBanks", "2"}}));
    for (std::uint64_t bits = 0; bits < half.patterns(); bits += 5) {
        const Real x = decoded(bits, half, false);
        Real wanted[2] = {testing::notANumber(), testing::notANumber()};
        if (x.isInfinite()) {
            wanted[0] = testing::infinity(x.isNegative);
            wanted[1] = testing::infinity(false);
        } else if (!x.isNan()) {
            const mpq_class value = x.rational();
            wanted[0] = testing::realOf(1 - value / 2 + 3 * value * value * value);
            wanted[1] = testing::realOf(value * value - 4);
        }
        for (std::int64_t bank = 0; bank < 2; ++bank) {
            ASSERT_EQ(stepByName(simulator, {{"0", static_cast<std::int64_t>(bits)}, {"1", bank}}).at("primWireOut"),
                      static_cast<std::int64_t>(encoded(wanted[bank], half, Direction::NearestEven, false)))
                << bits << " " << bank;
        }
    }
    EXPECT_EQ(stepByName(simulator, {{"0", 0x3c00}, {"1", 3}}).at("primWireOut"), 0);
}

TEST_F(FunctionRowsTest, takesBanksOfOneTupleInTurn) {
    Design design(mgr.context());
    Simulator simulator(design,
                        oneBlock(design, "polynomialBlock", {{"0", "float(10,5)"}, {"1", "u1.0"}},
                                 {{"primWireOut", ""}}, {{"polynomialData", "(1 2 3 4)"}, {"polynomialBanks", "2"}}));
    EXPECT_EQ(stepByName(simulator, {{"0", 0x4000}, {"1", 0}}).at("primWireOut"), 0x4500); // 1 + 2 * 2
    EXPECT_EQ(stepByName(simulator, {{"0", 0x4000}, {"1", 1}}).at("primWireOut"), 0x4980); // 3 + 4 * 2
    Design odd(mgr.context());
    EXPECT_EQ(refusal(odd, oneBlock(odd, "polynomialBlock", {{"0", "float(10,5)"}}, {{"primWireOut", ""}},
                                    {{"polynomialData", "(1 2 3)"}, {"polynomialBanks", "2"}})),
              "the banks have no equal number of coefficients top/block");
}

TEST_F(FunctionRowsTest, givesEqualValuesForEqualOperandsOfUntoldFunctions) {
    const std::pair<const char *, const char *> cases[] = {{"fixedMfuncBlock", "s12.0"},
                                                           {"floatMfuncBlock", "float(10,5)"}};
    for (const auto &[block, type] : cases) {
        Design design(mgr.context());
        const std::string lanes = std::string("[2] ") + type;
        Simulator simulator(design, oneBlock(design, block, {{"0", lanes.c_str()}, {"1", type}, {"2", type}},
                                             {{"primWireOut", ""}, {"primWireAux", ""}}));
        std::map<Numbers, Numbers> seen;
        test::Chance chance(3);
        for (int i = 0; i < 500; ++i) {
            const Numbers in{chance() % 3, chance() % 3, chance() % 3, chance() % 3};
            const ByName out = stepByName(simulator, {{"0[0]", in[0]}, {"0[1]", in[1]}, {"1", in[2]}, {"2", in[3]}});
            for (std::size_t lane = 0; lane < 2; ++lane) {
                const std::string index = "[" + std::to_string(lane) + "]";
                const Numbers values{out.at("primWireOut" + index), out.at("primWireAux" + index)};
                const auto [at, isNew] = seen.try_emplace({in[lane], in[2], in[3]}, values);
                EXPECT_EQ(at->second, values);
            }
        }
        ASSERT_EQ(seen.size(), 27U);
        // Each operand counts.
        EXPECT_NE((seen[{0, 0, 0}]), (seen[{1, 0, 0}]));
        EXPECT_NE((seen[{0, 0, 1}][0]), (seen[{0, 1, 0}][0]));
    }
}

} // namespace
} // namespace orvo::sim
