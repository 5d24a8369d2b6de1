// A calculator of word sizes for evaluators of fixed-point polynomials: how wide a sum, a product or a cut is, exactly.
// It stands beside `NumTypeSpec`, which the inference computes with, and knows nothing of netlists.
#pragma once

#include <orvo/api.h>
#include <orvo/generic.h>

#include <mpfr.h>

#include <list>
#include <memory>
#include <string>

namespace orvo {

/// The type of a signal: something with a width in bits.
class ORVO_API Type {
  public:
    Type() = default;
    Type(const Type &) = delete;
    Type &operator=(const Type &) = delete;
    virtual ~Type();
    /// Bits that a signal of this type takes.
    virtual int width() const = 0;
};

/// How `FixedPoint::trunc` reads its position.
enum class TruncType : int {
    BIT = 0, ///< a number of low bits to drop
    POS = 1, ///< the absolute position to cut at: bit n weighs two to the power n
};

/// A fixed-point format: `width` bits with the sign, of which `fraction` stand behind the binary point. The results of
/// its operations hold every possible result and belong to the caller; widths beyond an `int` stay at its end.
class ORVO_API FixedPoint final : public Type {
  public:
    FixedPoint(int width, int fraction, bool sign);
    ~FixedPoint() override;

    int width() const override { return mWidth; }
    int fraction() const { return mFraction; }
    bool sign() const { return mSign; }
    /// A width below 1 is reported on the error stream and taken all the same.
    void width(int width);
    void fraction(int fraction);
    void sign(bool sign);

    /// Position of the highest bit, the sign bit of a signed format included, and of the lowest.
    int msb() const;
    int lsb() const;
    /// The largest magnitude of a value, and that of the lowest bit, at 100 bits of precision.
    mpfr_srcptr magnitude() const { return mMagnitude; }
    mpfr_srcptr lsbMagnitude() const { return mLsbMagnitude; }

    static bool identic(const FixedPoint &a, const FixedPoint &b);
    bool operator==(const FixedPoint &other) const { return identic(*this, other); }
    bool operator!=(const FixedPoint &other) const { return !identic(*this, other); }

    static std::unique_ptr<FixedPoint> mul(const FixedPoint &a, const FixedPoint &b);
    static std::unique_ptr<FixedPoint> add(const FixedPoint &a, const FixedPoint &b);
    static std::unique_ptr<FixedPoint> add(const FixedPoint &a, const FixedPoint &b, const FixedPoint &c);
    /// As `add` of two, but always signed.
    static std::unique_ptr<FixedPoint> sub(const FixedPoint &a, const FixedPoint &b);
    /// Cuts low bits off. Null, with a report on the error stream, for a kind that is neither `BIT` nor `POS`; a
    /// position at or left of the highest bit is the caller's mistake and an assertion.
    static std::unique_ptr<FixedPoint> trunc(const FixedPoint &a, TruncType kind, int n);

  private:
    void computeMagnitudes();

    int mWidth;
    int mFraction;
    bool mSign;
    mpfr_t mMagnitude;
    mpfr_t mLsbMagnitude;
};

/// An IEEE floating-point format.
class ORVO_API FloatingPoint : public Type {
  public:
    /// `significand` without the hidden bit, and `exponent`, in bits.
    FloatingPoint(int significand, int exponent);
    int significand() const { return mSignificand; }
    int exponent() const { return mExponent; }
    /// Sign, exponent and significand.
    int width() const override;

  private:
    int mSignificand;
    int mExponent;
};

/// The format of the floating-point library: two flag bits beside those of the IEEE format.
class ORVO_API FPLib final : public FloatingPoint {
  public:
    using FloatingPoint::FloatingPoint;
    int width() const override;
};

/// A signal of an evaluator that is being sized. It owns its connection; the model and the type stay the caller's and
/// must outlive it.
class ORVO_API Signal {
  public:
    /// Reports a type of a width below 1 on the error stream and builds the signal all the same. `connection` may be
    /// null. The signal is listed with the thread's created signals until it dies, on that same thread.
    Signal(GenericModel *model, GenericConnection *connection, Type *type, const std::string &name,
           const std::string &basename);
    Signal(const Signal &) = delete;
    Signal &operator=(const Signal &) = delete;
    ~Signal();

    GenericModel *model() const { return mModel; }
    GenericConnection *connection() const { return mConnection.get(); }
    Type *type() const { return mType; }
    const std::string &name() const { return mName; }

    /// The type as what it is; null if it is something else. A library float is a floating point, too.
    FixedPoint *fxp() const;
    FloatingPoint *fp() const;
    bool isFPL() const;
    bool isFloatingPoint() const;
    bool isFixedPoint() const;

  private:
    friend class SignalManager;

    GenericModel *mModel;
    std::unique_ptr<GenericConnection> mConnection;
    Type *mType;
    std::string mName;
    std::list<Signal *>::iterator mListed;
};

/// The signals that this thread has made and that still live, in the order of their making.
class ORVO_API SignalManager {
  public:
    static const std::list<Signal *> &createdSignals();
    /// Deletes them, all made by `new`. Of several signals with one connection the first takes it along.
    static void clearCreatedSignals();
};

} // namespace orvo
