#include <orvo/wordsize.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>

namespace orvo {
namespace {

std::string printed(const std::function<void()> &action) {
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
}

struct Expected {
    int width;
    int fraction;
    bool sign;
};

::testing::AssertionResult is(const std::unique_ptr<FixedPoint> &got, Expected expected) {
    const FixedPoint wanted(expected.width, expected.fraction, expected.sign);
    if (got != nullptr && *got == wanted) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << got->width() << ", " << got->fraction() << ", " << got->sign();
}

TEST(FixedPoint, knowsTheLargestMagnitudeOfEachSign) {
    FixedPoint format(8, 3, false);
    EXPECT_EQ(mpfr_get_d(format.magnitude(), MPFR_RNDN), 255.0 / 8);
    EXPECT_EQ(mpfr_get_d(format.lsbMagnitude(), MPFR_RNDN), 0.125);
    format.sign(true);
    EXPECT_EQ(mpfr_get_d(format.magnitude(), MPFR_RNDN), 16.0);
    format.fraction(-2);
    EXPECT_EQ(mpfr_get_d(format.magnitude(), MPFR_RNDN), 512.0);
    EXPECT_EQ(mpfr_get_d(format.lsbMagnitude(), MPFR_RNDN), 4.0);
    format.width(9);
    EXPECT_EQ(mpfr_get_d(format.magnitude(), MPFR_RNDN), 1024.0);
    EXPECT_EQ(mpfr_get_prec(format.magnitude()), 100);
    EXPECT_EQ(mpfr_get_prec(format.lsbMagnitude()), 100);
    EXPECT_EQ(format.msb(), 10);
    EXPECT_EQ(format.lsb(), 2);
}

TEST(FixedPoint, keepsAMagnitudeOfAHundredOnesExact) {
    const FixedPoint format(100, 0, false);
    mpfr_t next;
    mpfr_init2(next, 110);
    mpfr_add_ui(next, format.magnitude(), 1, MPFR_RNDN);
    EXPECT_EQ(mpfr_cmp_ui_2exp(next, 1, 100), 0);
    mpfr_clear(next);
}

TEST(FixedPoint, reportsAWidthBelowOneAndTakesIt) {
    FixedPoint format(4, 0, true);
    EXPECT_EQ(printed([&] { format.width(0); }),
              "Error in FixedPoint while setting new width. Signal width should be positive!\n");
    EXPECT_EQ(format.width(), 0);
    EXPECT_EQ(printed([&] { format.width(1); }), "");
}

TEST(FixedPoint, comparesFractionWidthAndSign) {
    const FixedPoint format(8, 3, true);
    EXPECT_TRUE(FixedPoint::identic(format, FixedPoint(8, 3, true)));
    EXPECT_TRUE(format != FixedPoint(8, 3, false));
    EXPECT_TRUE(format != FixedPoint(8, 2, true));
    EXPECT_TRUE(format != FixedPoint(7, 3, true));
}

TEST(FixedPoint, multipliesByAddingWidthsAndFractions) {
    EXPECT_TRUE(is(FixedPoint::mul({8, 3, false}, {5, -1, false}), {13, 2, false}));
    EXPECT_TRUE(is(FixedPoint::mul({8, 3, false}, {5, -1, true}), {13, 2, true}));
}

TEST(FixedPoint, addsABitForTheUnsignedOperandOnTop) {
    EXPECT_TRUE(is(FixedPoint::add({8, 3, false}, {6, 4, false}), {10, 4, false}));
    EXPECT_TRUE(is(FixedPoint::add({8, 3, true}, {6, 4, false}), {10, 4, true}));
    EXPECT_TRUE(is(FixedPoint::add({8, 3, false}, {6, 4, true}), {11, 4, true}));
    EXPECT_TRUE(is(FixedPoint::add({8, 3, false}, {8, 3, true}), {10, 3, true}));
    EXPECT_TRUE(is(FixedPoint::add({8, 3, true}, {8, 3, false}), {10, 3, true}));
    EXPECT_TRUE(is(FixedPoint::sub({8, 3, false}, {6, 4, false}), {10, 4, true}));
}

TEST(FixedPoint, addsThreeWithTheBitsThatTheirMsbsNeed) {
    // Two equal msbs at the top carry twice.
    EXPECT_TRUE(is(FixedPoint::add({8, 0, false}, {8, 0, false}, {8, 0, false}), {10, 0, false}));
    EXPECT_TRUE(is(FixedPoint::add({8, 0, false}, {8, 2, false}, {9, 1, false}), {12, 2, false}));
    // Equal ones below the third carry once.
    EXPECT_TRUE(is(FixedPoint::add({8, 0, false}, {8, 0, false}, {12, 0, false}), {13, 0, false}));
    // Unsigned operands stand a bit higher beside a signed one.
    EXPECT_TRUE(is(FixedPoint::add({8, 0, true}, {8, 0, false}, {4, 0, false}), {10, 0, true}));
    EXPECT_TRUE(is(FixedPoint::add({9, 0, true}, {8, 0, false}, {4, 0, false}), {11, 0, true}));
}

TEST(FixedPoint, dropsLowBits) {
    EXPECT_TRUE(is(FixedPoint::trunc({8, 3, true}, TruncType::BIT, 2), {6, 1, true}));
    EXPECT_TRUE(is(FixedPoint::trunc({8, 3, false}, TruncType::BIT, 5), {3, -2, false}));
}

TEST(FixedPoint, cutsAtAnAbsolutePosition) {
    EXPECT_TRUE(is(FixedPoint::trunc({8, 3, true}, TruncType::POS, -1), {6, 1, true}));
    EXPECT_TRUE(is(FixedPoint::trunc({8, 3, true}, TruncType::POS, 3), {2, -3, true}));
    // Nothing stands below the lowest bit.
    EXPECT_TRUE(is(FixedPoint::trunc({8, 3, true}, TruncType::POS, -9), {8, 3, true}));
}

TEST(FixedPoint, refusesToCutAtTheMsb) {
    const FixedPoint format(8, 3, true);
    EXPECT_DEATH(static_cast<void>(FixedPoint::trunc(format, TruncType::POS, 4)),
                 "Error in FixedPoint trunc. The absolute truncation postition is left of MSB");
}

TEST(FixedPoint, givesNothingForAnotherKindOfCut) {
    EXPECT_EQ(printed([] {
                  EXPECT_EQ(FixedPoint::trunc({8, 3, true}, static_cast<TruncType>(2), 1), nullptr);
              }),
              "Error in fixed point polynomial evaluator, FixedPoint function, truncation method: trucation typebe one "
              "of POS or BIT!\n");
}

TEST(FixedPoint, staysAtTheEndsOfAnInt) {
    const FixedPoint wide(2147483647, 2147483647, false);
    EXPECT_TRUE(is(FixedPoint::mul(wide, wide), {2147483647, 2147483647, false}));
    EXPECT_EQ(FixedPoint(2, -2147483647 - 1, true).lsb(), 2147483647);
}

struct Range {
    __int128 low;
    __int128 high;
};

// All values of a format as integers at a common scale.
Range rangeOf(const FixedPoint &a, int scale) {
    const __int128 unit = static_cast<__int128>(1) << (scale - a.fraction());
    const __int128 span = static_cast<__int128>(1) << (a.width() - (a.sign() ? 1 : 0));
    return {a.sign() ? -span * unit : 0, (span - 1) * unit};
}

bool holds(const FixedPoint &a, int scale, Range range) {
    const Range own = rangeOf(a, scale);
    return own.low <= range.low && range.high <= own.high;
}

RC_GTEST_PROP(FixedPoint, holdsEveryResultOfItsOperations, ()) {
    const auto format = [] {
        return std::make_unique<FixedPoint>(*rc::gen::inRange(1, 16), *rc::gen::inRange(-6, 12),
                                            *rc::gen::arbitrary<bool>());
    };
    const auto a = format();
    const auto b = format();
    const auto c = format();
    const int scale = 24;
    const Range x = rangeOf(*a, scale);
    const Range y = rangeOf(*b, scale);
    const Range z = rangeOf(*c, scale);
    // An unsigned result needs no room below zero.
    RC_ASSERT(holds(*FixedPoint::add(*a, *b), scale, {x.low + y.low, x.high + y.high}));
    RC_ASSERT(holds(*FixedPoint::sub(*a, *b), scale, {x.low - y.high, x.high - y.low}));
    RC_ASSERT(holds(*FixedPoint::add(*a, *b, *c), scale, {x.low + y.low + z.low, x.high + y.high + z.high}));
    const auto [low, high] = std::minmax({x.low * y.low, x.low * y.high, x.high * y.low, x.high * y.high});
    RC_ASSERT(holds(*FixedPoint::mul(*a, *b), 2 * scale, {low, high}));
}

TEST(FloatingPoint, countsSignAndFlagBits) {
    EXPECT_EQ(FloatingPoint(23, 8).width(), 32);
    EXPECT_EQ(FPLib(23, 8).width(), 34);
}

struct CountedConnection final : GenericConnection {
    explicit CountedConnection(int &alive) : mAlive(alive) { ++mAlive; }
    ~CountedConnection() override { --mAlive; }
    int &mAlive;
};

TEST(Signal, tellsWhatItsTypeIs) {
    GenericModel model;
    FixedPoint fixed(8, 0, true);
    FloatingPoint ieee(23, 8);
    FPLib library(23, 8);
    const Signal a(&model, nullptr, &fixed, "a", "adder");
    const Signal b(&model, nullptr, &ieee, "b", "adder");
    const Signal c(&model, nullptr, &library, "c", "adder");
    EXPECT_EQ(a.fxp(), &fixed);
    EXPECT_EQ(a.fp(), nullptr);
    EXPECT_TRUE(a.isFixedPoint() && !a.isFloatingPoint() && !a.isFPL());
    EXPECT_EQ(b.fp(), &ieee);
    EXPECT_EQ(b.fxp(), nullptr);
    EXPECT_TRUE(!b.isFixedPoint() && b.isFloatingPoint() && !b.isFPL());
    EXPECT_TRUE(!c.isFixedPoint() && c.isFloatingPoint() && c.isFPL());
    EXPECT_EQ(a.name(), "a");
    EXPECT_EQ(a.model(), &model);
    EXPECT_EQ(a.type(), &fixed);
}

TEST(Signal, reportsAWidthBelowOneAndIsBuilt) {
    FixedPoint fixed(0, 0, true);
    EXPECT_EQ(printed([&] {
                  const Signal signal(nullptr, nullptr, &fixed, "s", "adder");
                  EXPECT_EQ(SignalManager::createdSignals().size(), 1U);
              }),
              "Error in Signal constructor; Trying to create signal s from component adder having signal width 0\n");
    EXPECT_TRUE(SignalManager::createdSignals().empty());
}

TEST(SignalManager, deletesEachConnectionOnce) {
    int alive = 0;
    FixedPoint fixed(8, 0, true);
    auto *shared = new CountedConnection(alive);
    new Signal(nullptr, shared, &fixed, "a", "adder");
    new Signal(nullptr, new CountedConnection(alive), &fixed, "b", "adder");
    new Signal(nullptr, shared, &fixed, "c", "adder");
    new Signal(nullptr, nullptr, &fixed, "d", "adder");
    new Signal(nullptr, nullptr, &fixed, "e", "adder");
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(SignalManager::createdSignals().size(), 5U);
    EXPECT_EQ(SignalManager::createdSignals().front()->name(), "a");
    SignalManager::clearCreatedSignals();
    EXPECT_EQ(alive, 0);
    EXPECT_TRUE(SignalManager::createdSignals().empty());
}

TEST(SignalManager, listsOnlyTheSignalsOfItsThread) {
    FixedPoint fixed(8, 0, true);
    const Signal mine(nullptr, nullptr, &fixed, "mine", "adder");
    std::thread([&] {
        EXPECT_TRUE(SignalManager::createdSignals().empty());
        const Signal other(nullptr, nullptr, &fixed, "other", "adder");
        EXPECT_EQ(SignalManager::createdSignals().size(), 1U);
    }).join();
    EXPECT_EQ(SignalManager::createdSignals().size(), 1U);
}

} // namespace
} // namespace orvo
