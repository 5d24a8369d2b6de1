// Word sizes of fixed-point sums, products and cuts. Widths are computed in long arithmetic, so that no sum of two
// overflows on the way.
#include <orvo/wordsize.h>

#include <orvo/logging.h>
#include <util/diagnostics.h>

#include "orvo/mpfrthread.h"

#include <algorithm>
#include <array>
#include <climits>
#include <set>

namespace orvo {

namespace {

constexpr mpfr_prec_t kPrecision = 100;

int clampToInt(long value) { return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX)); }

long intPart(const FixedPoint &a) { return static_cast<long>(a.width()) - a.fraction(); }

std::unique_ptr<FixedPoint> makeFixedPoint(long width, long fraction, bool sign) {
    return std::make_unique<FixedPoint>(clampToInt(width), clampToInt(fraction), sign);
}

// The width that holds any sum or difference of two: the carry, and the bit that an unsigned operand which reaches as
// high as the signed one needs to be read as signed.
long sumWidth(const FixedPoint &a, const FixedPoint &b) {
    const FixedPoint &high = intPart(a) != intPart(b) ? (intPart(a) > intPart(b) ? a : b) : (a.sign() ? b : a);
    const bool unsignedOnTop = a.sign() != b.sign() && !high.sign();
    return intPart(high) + std::max(a.fraction(), b.fraction()) + 1 + (unsignedOnTop ? 1 : 0);
}

// The signals of a thread; those that outlive the thread's end take themselves out of nothing.
std::list<Signal *> *&currentList() {
    static thread_local std::list<Signal *> *list = nullptr;
    return list;
}

struct ThreadSignals {
    ThreadSignals() { currentList() = &signals; }
    ThreadSignals(const ThreadSignals &) = delete;
    ThreadSignals &operator=(const ThreadSignals &) = delete;
    ~ThreadSignals() { currentList() = nullptr; }
    std::list<Signal *> signals;
};

std::list<Signal *> &threadSignals() {
    static thread_local ThreadSignals signals;
    return signals.signals;
}

} // namespace

Type::~Type() = default;

FixedPoint::FixedPoint(int width, int fraction, bool sign) : mWidth(width), mFraction(fraction), mSign(sign) {
    internal::useMpfrOnThisThread();
    mpfr_init2(mMagnitude, kPrecision);
    mpfr_init2(mLsbMagnitude, kPrecision);
    computeMagnitudes();
}

FixedPoint::~FixedPoint() {
    mpfr_clear(mMagnitude);
    mpfr_clear(mLsbMagnitude);
}

void FixedPoint::width(int width) {
    if (width < 1) {
        util::reportDiagnostic(true, "Error in FixedPoint while setting new width. Signal width should be positive!");
    }
    mWidth = width;
    computeMagnitudes();
}

void FixedPoint::fraction(int fraction) {
    mFraction = fraction;
    computeMagnitudes();
}

void FixedPoint::sign(bool sign) {
    mSign = sign;
    computeMagnitudes();
}

void FixedPoint::computeMagnitudes() {
    const long sign = mSign ? 1 : 0;
    mpfr_set_ui_2exp(mMagnitude, 1, static_cast<long>(mWidth) - sign, MPFR_RNDN);
    mpfr_add_si(mMagnitude, mMagnitude, sign - 1, MPFR_RNDN);
    mpfr_mul_2si(mMagnitude, mMagnitude, -static_cast<long>(mFraction), MPFR_RNDN);
    mpfr_set_ui_2exp(mLsbMagnitude, 1, -static_cast<long>(mFraction), MPFR_RNDN);
}

int FixedPoint::msb() const { return clampToInt(intPart(*this) - 1); }

int FixedPoint::lsb() const { return clampToInt(-static_cast<long>(mFraction)); }

bool FixedPoint::identic(const FixedPoint &a, const FixedPoint &b) {
    return a.mFraction == b.mFraction && a.mWidth == b.mWidth && a.mSign == b.mSign;
}

std::unique_ptr<FixedPoint> FixedPoint::mul(const FixedPoint &a, const FixedPoint &b) {
    return makeFixedPoint(static_cast<long>(a.mWidth) + b.mWidth, static_cast<long>(a.mFraction) + b.mFraction,
                          a.mSign || b.mSign);
}

std::unique_ptr<FixedPoint> FixedPoint::add(const FixedPoint &a, const FixedPoint &b) {
    return makeFixedPoint(sumWidth(a, b), std::max(a.mFraction, b.mFraction), a.mSign || b.mSign);
}

std::unique_ptr<FixedPoint> FixedPoint::sub(const FixedPoint &a, const FixedPoint &b) {
    return makeFixedPoint(sumWidth(a, b), std::max(a.mFraction, b.mFraction), true);
}

std::unique_ptr<FixedPoint> FixedPoint::add(const FixedPoint &a, const FixedPoint &b, const FixedPoint &c) {
    const bool sign = a.mSign || b.mSign || c.mSign;
    const auto top = [sign](const FixedPoint &x) { return intPart(x) - 1 + (sign && !x.mSign ? 1 : 0); };
    std::array<long, 3> msbs = {top(a), top(b), top(c)};
    std::sort(msbs.begin(), msbs.end());
    // Two operands that reach as high carry twice with the third; a lone highest one takes in the others with one bit.
    const long highest = msbs[2] + (msbs[1] == msbs[2] ? 2 : 1);
    const int fraction = std::max({a.mFraction, b.mFraction, c.mFraction});
    return makeFixedPoint(highest + fraction + 1, fraction, sign);
}

std::unique_ptr<FixedPoint> FixedPoint::trunc(const FixedPoint &a, TruncType kind, int n) {
    switch (kind) {
    case TruncType::BIT:
        return makeFixedPoint(static_cast<long>(a.mWidth) - n, static_cast<long>(a.mFraction) - n, a.mSign);
    case TruncType::POS: {
        ORVO_ASSERT(n < intPart(a) - 1, "Error in FixedPoint trunc. The absolute truncation postition is left of MSB");
        const long position = std::max<long>(n, -static_cast<long>(a.mFraction));
        return makeFixedPoint(intPart(a) + -position, -position, a.mSign);
    }
    }
    util::reportDiagnostic(true, "Error in fixed point polynomial evaluator, FixedPoint function, truncation method: "
                                 "trucation typebe one of POS or BIT!");
    return nullptr;
}

FloatingPoint::FloatingPoint(int significand, int exponent) : mSignificand(significand), mExponent(exponent) {}

int FloatingPoint::width() const { return clampToInt(1L + mSignificand + mExponent); }

int FPLib::width() const { return clampToInt(3L + significand() + exponent()); }

Signal::Signal(GenericModel *model, GenericConnection *connection, Type *type, const std::string &name,
               const std::string &basename)
    : mModel(model), mConnection(connection), mType(type), mName(name) {
    if (type->width() < 1) {
        util::reportDiagnostic(true, "Error in Signal constructor; Trying to create signal " + name +
                                         " from component " + basename + " having signal width " +
                                         std::to_string(type->width()));
    }
    std::list<Signal *> &signals = threadSignals();
    mListed = signals.insert(signals.end(), this);
}

Signal::~Signal() {
    if (std::list<Signal *> *signals = currentList()) {
        signals->erase(mListed);
    }
}

FixedPoint *Signal::fxp() const { return dynamic_cast<FixedPoint *>(mType); }

FloatingPoint *Signal::fp() const { return dynamic_cast<FloatingPoint *>(mType); }

bool Signal::isFPL() const { return dynamic_cast<FPLib *>(mType) != nullptr; }

bool Signal::isFloatingPoint() const { return fp() != nullptr; }

bool Signal::isFixedPoint() const { return fxp() != nullptr; }

const std::list<Signal *> &SignalManager::createdSignals() { return threadSignals(); }

void SignalManager::clearCreatedSignals() {
    std::list<Signal *> &signals = threadSignals();
    std::set<const GenericConnection *> gone;
    while (!signals.empty()) {
        Signal *signal = signals.front();
        if (GenericConnection *connection = signal->connection(); !gone.insert(connection).second) {
            // The signal that took it along has freed it.
            static_cast<void>(signal->mConnection.release());
        }
        delete signal;
    }
}

} // namespace orvo
