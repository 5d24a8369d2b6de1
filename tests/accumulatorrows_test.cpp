// Accumulators against exact sums of rationals.
#include "support/floatjudge.h"
#include "support/simulatorfixture.h"

#include <gmpxx.h>

namespace orvo::sim {
namespace {

using test::Numbers;
using testing::Direction;
using testing::FloatFormat;
using testing::Real;
using ByName = std::map<std::string, std::int64_t>;

class AccumulatorRowsTest : public test::SimulatorFixture {};

TEST_F(AccumulatorRowsTest, addsIntegersUntilARestart) {
    for (const bool isSigned : {true, false}) {
        Design design(mgr.context());
        Model &top = oneBlock(design, "accBlock", {{"0", isSigned ? "s6.0" : "u6.0"}, {"1", "u1.0"}},
                              {{"primWireOut", ""}, {"accWireOverflow", ""}, {"accWireXoverflow", ""}});
        Simulator simulator(design, top);
        test::Chance chance(1);
        const std::int64_t low = isSigned ? -32 : 0;
        std::int64_t sum = 0;
        std::int64_t overflow = 0;
        for (int cycle = 0; cycle < 500; ++cycle) {
            const std::int64_t data = chance() % 64 + low;
            const std::int64_t restart = chance() % 5 == 0 ? 1 : 0;
            sum = (restart != 0 ? 0 : sum) + data;
            const std::int64_t wrapped = ((sum - low) % 64 + 64) % 64 + low;
            overflow = (restart != 0 ? 0 : overflow) | (wrapped != sum ? 1 : 0);
            sum = wrapped;
            EXPECT_EQ(stepByName(simulator, {{"0", data}, {"1", restart}}),
                      (ByName{{"primWireOut", sum}, {"accWireOverflow", overflow}, {"accWireXoverflow", 0}}))
                << cycle;
        }
    }
}

TEST_F(AccumulatorRowsTest, keepsTheToldBitsAndTellsWhatIsBeyond) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "accBlock", {{"0", "s4.4"}, {"1", "u1.0"}},
                 {{"primWireOut", ""}, {"accWireOverflow", ""}, {"accWireXoverflow", ""}, {"accWireXunderflow", ""}},
                 {{"accLSB", "-2"}, {"accMSB", "4"}, {"accMaxMSB", "1"}});
    Simulator simulator(design, top);
    test::Chance chance(2);
    std::int64_t sum = 0; // in quarters, from -16 to 15.75
    std::int64_t flags[3] = {0, 0, 0};
    for (int cycle = 0; cycle < 1000; ++cycle) {
        const std::int64_t data = chance() % 3 == 0 ? chance() % 9 - 4 : chance() % 128 - 64;
        const std::int64_t restart = chance() % 9 == 0 ? 1 : 0;
        if (restart != 0) {
            sum = flags[0] = flags[1] = flags[2] = 0;
        }
        sum += data >> 2;
        flags[0] |= sum < -64 || sum > 63 ? 1 : 0;
        sum = (sum + 64 + 128) % 128 - 64;
        flags[1] |= std::abs(data) >= 4 * 16 ? 1 : 0;
        flags[2] |= data != 0 && std::abs(data) < 4 ? 1 : 0;
        // The output has four integer bits.
        const std::int64_t shown = ((sum * 4 + 128 + 512) % 256) - 128;
        const std::map<std::string, std::int64_t> out = stepByName(simulator, {{"0", data}, {"1", restart}});
        EXPECT_EQ(out, (ByName{{"primWireOut", shown},
                               {"accWireOverflow", flags[0]},
                               {"accWireXoverflow", flags[1]},
                               {"accWireXunderflow", flags[2]}}))
            << cycle;
    }
}

/// An exact sum with what IEEE 754 makes of infinities.
struct ExactSum {
    mpq_class value = 0;
    bool isNan = false;
    bool hasPositive = false;
    bool hasNegative = false;

    void add(const Real &term) {
        isNan = isNan || term.isNan();
        hasPositive = hasPositive || (term.isInfinite() && !term.isNegative);
        hasNegative = hasNegative || (term.isInfinite() && term.isNegative);
        if (!term.isNan() && !term.isInfinite()) {
            value += term.rational();
        }
    }
    Real result() const {
        if (isNan || (hasPositive && hasNegative)) {
            return testing::notANumber();
        }
        return hasPositive || hasNegative ? testing::infinity(hasNegative) : testing::realOf(value);
    }
};

/// Bits of a format, of which some have an exponent at an end.
std::uint64_t drawn(test::Chance &chance, const FloatFormat &format, bool special) {
    const auto bits = static_cast<std::uint64_t>(chance()) << 31U ^ static_cast<std::uint64_t>(chance());
    const std::uint64_t ends = ((std::uint64_t{1} << format.exponent) - 1) << format.fraction;
    const std::uint64_t pattern = bits & (format.patterns() - 1);
    const std::int64_t kind = chance() % 40;
    if (kind < 2) {
        return pattern & ~ends;
    }
    if ((pattern & ends) == ends && !special) {
        return pattern & ~(std::uint64_t{1} << format.fraction);
    }
    return special && kind == 2 ? (pattern | ends) & ~((std::uint64_t{1} << format.fraction) - 1) : pattern;
}

TEST_F(AccumulatorRowsTest, addsFloatsExactlyAndRoundsWhatItShows) {
    struct Case {
        FloatFormat format;
        const char *type;
        bool subnormals;
        Direction direction;
        const char *mode;
        bool specials;
    };
    const Case cases[] = {{{8, 23}, "float(23,8)", false, Direction::NearestEven, "roundingToNearestTieEven", false},
                          {{8, 23}, "float(23,8)", true, Direction::NearestEven, "roundingToNearestTieEven", true},
                          {{5, 10}, "float(10,5)", true, Direction::Down, "roundingDown", true},
                          {{4, 3}, "float(3,4)", false, Direction::NearestEven, "roundingToNearestTieEven", true}};
    for (const Case &row : cases) {
        Design design(mgr.context());
        Model &top =
            oneBlock(design, "accBlock", {{"0", row.type}, {"1", "u1.0"}},
                     {{"primWireOut", ""}, {"accWireOverflow", ""}, {"accWireXoverflow", ""}},
                     {{"floatSubnormals", row.subnormals ? "true" : "false"}, {"floatRoundingMode", row.mode}});
        Simulator simulator(design, top);
        test::Chance chance(3);
        ExactSum sum;
        bool exceeds = false;
        for (int cycle = 0; cycle < 600; ++cycle) {
            const std::uint64_t bits = drawn(chance, row.format, row.specials);
            const std::int64_t restart = chance() % 12 == 0 ? 1 : 0;
            const Real term = decoded(bits, row.format, row.subnormals);
            sum = restart != 0 ? ExactSum() : sum;
            exceeds = (restart == 0 && exceeds) || term.isInfinite();
            sum.add(term);
            const ByName out = stepByName(simulator, {{"0", static_cast<std::int64_t>(bits)}, {"1", restart}});
            const auto wanted =
                static_cast<std::int64_t>(encoded(sum.result(), row.format, row.direction, row.subnormals));
            EXPECT_EQ(out, (ByName{{"primWireOut", wanted}, {"accWireOverflow", 0}, {"accWireXoverflow", exceeds}}))
                << row.type << " " << cycle;
        }
    }
}

TEST_F(AccumulatorRowsTest, cutsFloatsBelowTheToldBitTowardZero) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "accBlock", {{"0", "float(10,5)"}, {"1", "u1.0"}},
                 {{"primWireOut", ""}, {"accWireOverflow", ""}, {"accWireXoverflow", ""}, {"accWireXunderflow", ""}},
                 {{"accLSB", "-3"}, {"accMSB", "5"}, {"accMaxMSB", "3"}});
    Simulator simulator(design, top);
    const FloatFormat half{5, 10};
    test::Chance chance(4);
    mpz_class sum = 0; // in eighths, from -32 below 32
    bool flags[3] = {false, false, false};
    for (int cycle = 0; cycle < 2000; ++cycle) {
        // From below the least bit to beyond the largest accepted one.
        const auto bits =
            static_cast<std::uint64_t>((9 + chance() % 12) << 10U | chance() % 1024 | (chance() % 2 == 0 ? 0x8000 : 0));
        const mpq_class term = chance() % 20 == 0 ? mpq_class(0) : decoded(bits, half, false).rational();
        const std::int64_t restart = chance() % 9 == 0 ? 1 : 0;
        if (restart != 0) {
            sum = 0;
            flags[0] = flags[1] = flags[2] = false;
        }
        const mpq_class scaled = term * 8;
        sum += mpz_class(scaled.get_num() / scaled.get_den());
        flags[0] = flags[0] || sum < -256 || sum > 255;
        sum = sum < -256 ? mpz_class(sum + 512) : sum > 255 ? mpz_class(sum - 512) : sum;
        flags[1] = flags[1] || abs(term) >= 16;
        flags[2] = flags[2] || (term != 0 && abs(term) < mpq_class(1, 8));
        const Real shown = testing::realOf(mpq_class(sum) / 8);
        const ByName out =
            stepByName(simulator, {{"0", term == 0 ? 0 : static_cast<std::int64_t>(bits)}, {"1", restart}});
        EXPECT_EQ(out, (ByName{{"primWireOut",
                                static_cast<std::int64_t>(encoded(shown, half, Direction::NearestEven, false))},
                               {"accWireOverflow", flags[0]},
                               {"accWireXoverflow", flags[1]},
                               {"accWireXunderflow", flags[2]}}))
            << cycle;
    }
}

TEST_F(AccumulatorRowsTest, addsProductsExactly) {
    for (const bool subnormals : {false, true}) {
        for (const FloatFormat format : {FloatFormat{5, 10}, FloatFormat{8, 23}}) {
            const char *const type = format.exponent == 5 ? "float(10,5)" : "float(23,8)";
            Design design(mgr.context());
            Model &top = oneBlock(design, "floatMultaccBlock", {{"0", type}, {"1", type}, {"2", "u1.0"}},
                                  {{"primWireOut", ""}}, {{"floatSubnormals", subnormals ? "true" : "false"}});
            Simulator simulator(design, top);
            test::Chance chance(5);
            ExactSum sum;
            for (int cycle = 0; cycle < 500; ++cycle) {
                const std::uint64_t a = drawn(chance, format, true);
                const std::uint64_t b = drawn(chance, format, true);
                const std::int64_t restart = chance() % 6 == 0 ? 1 : 0;
                const Real x = decoded(a, format, subnormals);
                const Real y = decoded(b, format, subnormals);
                sum = restart != 0 ? ExactSum() : sum;
                if (x.isNan() || y.isNan() || (x.isZero() && y.isInfinite()) || (x.isInfinite() && y.isZero())) {
                    sum.add(testing::notANumber());
                } else if (x.isInfinite() || y.isInfinite()) {
                    sum.add(testing::infinity(x.isNegative != y.isNegative));
                } else {
                    sum.value += x.rational() * y.rational();
                }
                const ByName out = stepByName(
                    simulator,
                    {{"0", static_cast<std::int64_t>(a)}, {"1", static_cast<std::int64_t>(b)}, {"2", restart}});
                EXPECT_EQ(out.at("primWireOut"),
                          static_cast<std::int64_t>(encoded(sum.result(), format, Direction::NearestEven, subnormals)))
                    << type << cycle;
            }
        }
    }
}

TEST_F(AccumulatorRowsTest, restartsEachLaneAlone) {
    Design design(mgr.context());
    Model &top = oneBlock(design, "accBlock", {{"0", "s8.0"}, {"1", "[2] u1.0"}}, {{"primWireOut", ""}});
    Simulator simulator(design, top);
    const auto step = [&](std::int64_t data, std::int64_t first, std::int64_t second) {
        const ByName out = stepByName(simulator, {{"0", data}, {"1[0]", first}, {"1[1]", second}});
        return Numbers{out.at("primWireOut[0]"), out.at("primWireOut[1]")};
    };
    EXPECT_EQ(step(3, 0, 0), (Numbers{3, 3}));
    EXPECT_EQ(step(4, 1, 0), (Numbers{4, 7}));
    EXPECT_EQ(step(5, 0, 1), (Numbers{9, 5}));
    simulator.reset();
    EXPECT_EQ(step(1, 0, 0), (Numbers{1, 1}));
}

TEST_F(AccumulatorRowsTest, refusesARegisterWithoutBits) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "accBlock", {{"0", "s8.0"}}, {{"primWireOut", ""}}, {{"accLSB", "3"}, {"accMSB", "1"}});
    EXPECT_EQ(refusal(design, top), "the accumulator has no bits top/block");
}

} // namespace
} // namespace orvo::sim
