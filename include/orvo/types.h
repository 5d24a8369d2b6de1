// Types of signals as values that code computes with: numbers with their complex and vector decorations, the
// decorations alone, and records. On the netlist a type is an interned tuple; these classes read and write it. Each has
// an invalid state, which stands for an unknown type, and every operation on an invalid operand gives an invalid
// result.
#pragma once

#include <orvo/value.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace orvo {

enum TypeClass : std::uint32_t {
    TYPE_CLASS_INVALID = 0,
    TYPE_CLASS_UFIXED = 1,
    TYPE_CLASS_SFIXED = 2,
    TYPE_CLASS_SFLOAT_IEEE = 3,
    TYPE_CLASS_SFLOAT_FPLIB = 4,
};

/// How the types of two operands make that of a result.
enum TypeOp : std::uint32_t {
    /// Holds either operand.
    TYPE_OP_UNION = 0,
    /// The bits of both, as logic takes them: signed only if both are.
    TYPE_OP_COMMON = 1,
    TYPE_OP_ADD = 2,
    TYPE_OP_SUB = 3,
    TYPE_OP_MUL = 4,
};

/// The type of a number: fixed or floating point, real or complex, in any number of vector dimensions. Lengths are kept
/// innermost dimension first. A plain value of few words: pass it by reference where it is only looked at.
class ORVO_API NumTypeSpec {
  public:
    /// Invalid.
    NumTypeSpec() = default;
    NumTypeSpec(TypeClass typeClass, int firstWidth, int secondWidth)
        : mClass(typeClass), mFirst(firstWidth), mSecond(secondWidth) {}
    /// Reads a type's tuple; anything else gives an invalid spec.
    template <class R, class = internal::IfRef<R>> NumTypeSpec(const R &value, Context *context) {
        setToValue(value, context);
    }

    /// Integer bits count the sign bit of a signed type. Either count may be negative.
    static NumTypeSpec fixed(bool isSigned, int intBits, int fracBits);
    static NumTypeSpec ufixed(int intBits, int fracBits) { return fixed(false, intBits, fracBits); }
    static NumTypeSpec sfixed(int intBits, int fracBits) { return fixed(true, intBits, fracBits); }
    /// Single precision is (23, 8): the significand counts no hidden bit.
    static NumTypeSpec sfloatIEEE(int significand, int exponent);
    static NumTypeSpec sfloatAny(int significand, int exponent) { return sfloatIEEE(significand, exponent); }
    static NumTypeSpec sfloatFPLib(int significand, int exponent);
    /// One bit, unsigned: the type of a condition.
    static NumTypeSpec boolean() { return ufixed(1, 0); }

    /// The type of the result of an operation that loses nothing. A fixed and a float operand give an invalid type, as
    /// do widths beyond `kMaxWidth`.
    static NumTypeSpec typeOp(const NumTypeSpec &a, const NumTypeSpec &b, TypeOp op);
    void applyOp(const NumTypeSpec &other, TypeOp op) { *this = typeOp(*this, other, op); }

    bool valid() const { return mClass != TYPE_CLASS_INVALID; }
    TypeClass typeClass() const { return mClass; }
    bool isFixed() const { return mClass == TYPE_CLASS_UFIXED || mClass == TYPE_CLASS_SFIXED; }
    bool isFloat() const { return isFloatIEEE() || isFloatFPLib(); }
    bool isFloatIEEE() const { return mClass == TYPE_CLASS_SFLOAT_IEEE; }
    bool isFloatFPLib() const { return mClass == TYPE_CLASS_SFLOAT_FPLIB; }
    bool isSigned() const { return valid() && mClass != TYPE_CLASS_UFIXED; }
    bool isComplex() const { return mComplex; }
    bool isReal() const { return valid() && !mComplex; }
    int intBits() const { return isFixed() ? mFirst : 0; }
    int fracBits() const { return isFixed() ? mSecond : 0; }
    /// The whole width of a fixed-point type in bits, 0 for any other.
    int fixedBits() const { return isFixed() ? mFirst + mSecond : 0; }
    int significandWidth() const { return isFloat() ? mFirst : 0; }
    int exponentWidth() const { return isFloat() ? mSecond : 0; }
    /// The whole width of a float in bits, 0 for any other. A library float has two flag bits more.
    int floatBits() const;
    bool canbeHardFloatSingle() const { return isFloatIEEE() && mSecond == 8 && mFirst == 23; }
    bool canbeHardFP16() const;
    /// Whether class and widths are equal, whatever the decorations.
    bool scalarEquals(const NumTypeSpec &other) const;
    bool operator==(const NumTypeSpec &other) const;
    bool operator!=(const NumTypeSpec &other) const { return !(*this == other); }

    bool isVector() const { return valid() && !mVectors.empty(); }
    std::size_t vectorDepth() const { return valid() ? mVectors.size() : 0; }
    /// Counted from the innermost dimension; 1 beyond the outermost, 0 if invalid.
    int vectorLength(std::size_t dimension) const;
    /// Counted from the outermost dimension.
    int vectorLengthRev(std::size_t dimension) const;
    const std::vector<int> &vectorLengths() const { return mVectors; }

    void invalidate();
    /// A float cannot be made unsigned: that invalidates it.
    void setSigned(bool isSigned);
    /// Keeps the decorations, whatever the type was.
    void setToFixed(bool isSigned, int intBits, int fracBits);
    void setIntBits(int intBits) { setFixedBits(intBits, mSecond); }
    void setFracBits(int fracBits) { setFixedBits(mFirst, fracBits); }
    /// Invalidates what is not fixed.
    void setFixedBits(int intBits, int fracBits);
    void setToFloat(int significand, int exponent) { setToFloat(TYPE_CLASS_SFLOAT_IEEE, significand, exponent); }
    /// A class that is no float's is an assertion.
    void setToFloat(TypeClass typeClass, int significand, int exponent);
    /// Whether the type was valid; an invalid one stays as it is.
    bool setComplex(bool isComplex);
    /// A new outermost dimension. A length below 1 is an assertion.
    void addVector(int length);
    /// Takes the outermost dimension off and gives its length. A scalar becomes invalid, with 0.
    int removeVector();
    void stripVectors() { mVectors.clear(); }
    /// Takes the other's dimensions, and its being invalid.
    void setVectors(const NumTypeSpec &other);
    /// Broadcasts: the shorter list of lengths must be the innermost part of the longer one, which is taken.
    void mergeVectors(const NumTypeSpec &other);
    /// The same, and complex if either is.
    void mergeDecors(const NumTypeSpec &other);

    void requireFixed() { require(isFixed()); }
    void requireFloat() { require(isFloat()); }
    void requireReal() { require(!mComplex); }
    void requireComplex() { require(mComplex); }
    void requireScalar() { require(mVectors.empty()); }
    /// A real fixed-point type of one integer bit; `relaxed`, any real fixed-point type.
    void requireBool(bool relaxed);

    /// Null for an invalid spec.
    PureTupleValueRef toValue(Context *context) const;
    template <class R, class = internal::IfRef<R>> void setToValue(const R &value, Context *) {
        readValue(value.get_ptr());
    }
    /// The smallest type that holds a constant, a number or a tuple of them, rolled or plain. With `firstElementOnly`
    /// the first element speaks for all.
    template <class R, class = internal::IfRef<R>>
    static NumTypeSpec fromFixedValue(const R &value, bool firstElementOnly = false) {
        return typeOfConstant(value.get_ptr(), firstElementOnly);
    }

    /// Beyond this many bits a width is no type's: the result of an operation is invalid.
    static constexpr std::int64_t kMaxWidth = std::int64_t{1} << 24U;

  private:
    void require(bool holds) {
        if (!holds) {
            invalidate();
        }
    }
    void readValue(const Value *value);
    static NumTypeSpec typeOfConstant(const Value *value, bool firstElementOnly);
    /// Invalid if a width is out of bounds.
    static NumTypeSpec bounded(TypeClass typeClass, std::int64_t first, std::int64_t second);

    TypeClass mClass = TYPE_CLASS_INVALID;
    int mFirst = 0;
    int mSecond = 0;
    bool mComplex = false;
    std::vector<int> mVectors;
};

/// The vector layers around any type. Lengths are kept innermost dimension first. A type with a length below 1 gives an
/// invalid one.
class ORVO_API VectorDecorSpec {
  public:
    /// Invalid.
    VectorDecorSpec() = default;
    /// One dimension, none for a length below 1.
    explicit VectorDecorSpec(int length) { setVector(length); }
    template <class R, class = internal::IfRef<R>> VectorDecorSpec(const R &value, Context *context) {
        setToValue(value, context);
    }
    template <class R, class = internal::IfRef<R>>
    VectorDecorSpec(const R &value, PureValueRef &inner, Context *context) {
        setToValue(value, inner, context);
    }

    bool valid() const { return mValid; }
    bool isVector() const { return mValid && !mVectors.empty(); }
    std::size_t vectorDepth() const { return mValid ? mVectors.size() : 0; }
    int vectorLength(std::size_t dimension) const;
    int vectorLengthRev(std::size_t dimension) const;
    const std::vector<int> &vectorLengths() const { return mVectors; }
    bool operator==(const VectorDecorSpec &other) const { return mValid == other.mValid && mVectors == other.mVectors; }
    bool operator!=(const VectorDecorSpec &other) const { return !(*this == other); }

    void invalidate();
    void setVector(int length);
    /// A new outermost dimension; nothing happens to an invalid spec. A length below 1 is an assertion.
    void addVector(int length);
    int removeVector();
    void stripVectors() { mVectors.clear(); }
    void mergeVectors(const VectorDecorSpec &other);

    /// Elements in all dimensions together: 1 for a scalar, 0 if invalid.
    std::size_t elementCount() const;
    /// The place of an element in the flattened order, in which the innermost dimension varies fastest. One index a
    /// dimension, innermost first. 0 if invalid or scalar.
    std::size_t elementIndex(const std::vector<int> &indices) const;

    /// `inner` in these layers; null if either is missing.
    PureValueRef toValue(const PureValueRef &inner, Context *context) const;
    template <class R, class = internal::IfRef<R>> void setToValue(const R &value, Context *) {
        readValue(value.get_ptr(), nullptr);
    }
    /// `inner` gets what the layers stand around, null if they are invalid.
    template <class R, class = internal::IfRef<R>> void setToValue(const R &value, PureValueRef &inner, Context *) {
        readValue(value.get_ptr(), &inner);
    }
    /// Appends the layers of a rolled constant, outermost first, unlike all other readers. Null invalidates.
    template <class R, class = internal::IfRef<R>> void fromRolledValue(const R &value) {
        appendRolled(value.get_ptr());
    }

  private:
    void readValue(const Value *value, PureValueRef *inner);
    void appendRolled(const Value *value);

    bool mValid = false;
    std::vector<int> mVectors;
};

/// The complex layer, which stands inside all vector layers.
class ORVO_API ComplexDecorSpec {
  public:
    /// Invalid.
    ComplexDecorSpec() = default;
    explicit ComplexDecorSpec(bool isComplex) { setToComplex(isComplex); }
    template <class R, class = internal::IfRef<R>> ComplexDecorSpec(const R &value, Context *context) {
        setToValue(value, context);
    }
    template <class R, class = internal::IfRef<R>>
    ComplexDecorSpec(const R &value, PureValueRef &rest, Context *context) {
        setToValue(value, rest, context);
    }

    bool valid() const { return mState != State::Invalid; }
    bool isComplex() const { return mState == State::Complex; }
    bool isReal() const { return mState == State::Real; }
    void invalidate() { mState = State::Invalid; }
    void setToComplex(bool isComplex) { mState = isComplex ? State::Complex : State::Real; }
    /// Nothing happens to an invalid spec.
    void setComplex(bool isComplex) {
        if (valid()) {
            setToComplex(isComplex);
        }
    }

    /// `inner`, complex inside its vector layers if this is; null if invalid.
    PureValueRef toValue(const PureValueRef &inner, Context *context) const;
    template <class R, class = internal::IfRef<R>> void setToValue(const R &value, Context *context) {
        PureValueRef rest;
        readValue(value.get_ptr(), rest, context);
    }
    /// `rest` gets the type without the complex layer.
    template <class R, class = internal::IfRef<R>>
    void setToValue(const R &value, PureValueRef &rest, Context *context) {
        readValue(value.get_ptr(), rest, context);
    }

  private:
    enum class State : std::uint32_t { Invalid = 0, Real = 1, Complex = 2 };
    void readValue(const Value *value, PureValueRef &rest, Context *context);
    State mState = State::Invalid;
};

enum AggregateState : std::uint32_t {
    AGGREGATE_STATE_INVALID = 0,
    AGGREGATE_STATE_AGGREGATE = 1,
    /// One type that is no record, so that code walks both alike.
    AGGREGATE_STATE_PLAIN = 2,
};

/// The type of a record: the types of its elements in order, each any type.
class ORVO_API AggregateTypeSpec {
  public:
    /// The records and flat sizes met in one walk over a design, by the identity of the type's tuple.
    class ORVO_API Cache {
      public:
        Cache();
        ~Cache();
        Cache(const Cache &) = delete;
        Cache &operator=(const Cache &) = delete;
        /// What a type is as a record; owned by the cache.
        const AggregateTypeSpec &specOf(const PureValueRef &type);

      private:
        friend class AggregateTypeSpec;
        std::map<PureValueRef, std::unique_ptr<AggregateTypeSpec>> mSpecs;
        std::map<std::vector<PureValueRef>, std::size_t> mFlatSizes;
    };

    /// Invalid.
    AggregateTypeSpec() = default;
    /// Null gives an invalid spec, a type that is no record a plain one.
    explicit AggregateTypeSpec(const PureValueRef &type);

    AggregateState state() const { return mState; }
    bool valid() const { return mState != AGGREGATE_STATE_INVALID; }
    bool isAggregate() const { return mState == AGGREGATE_STATE_AGGREGATE; }
    /// 0 for a plain spec, too.
    std::size_t size() const { return isAggregate() ? mTypes.size() : 0; }
    /// The index is not checked.
    const PureValueRef &at(std::size_t index) const { return mTypes[index]; }
    const std::vector<PureValueRef> &types() const { return mTypes; }

    void invalidate();
    void beginAggregate();
    /// Invalidates outside a begun record, and for null.
    void addType(const PureValueRef &type);
    /// Invalidates a record without elements.
    void endAggregate();

    /// Whether an element is a record itself.
    bool isNestedAggregateSpec() const;
    /// Leaf signals that the record falls apart into; 0 for a plain spec. The cache may be null.
    std::size_t getFlatSize(Cache *cache) const;
    PureValueRef toValue(Context *context) const;

  private:
    AggregateState mState = AGGREGATE_STATE_INVALID;
    std::vector<PureValueRef> mTypes;
};

/// Bits that hold a number. A negative one takes a bit more than its magnitude, so that -2 takes 3: one more than two's
/// complement needs at a power of two.
ORVO_API int bitWidth(int value);
ORVO_API int bitWidth(long value);
ORVO_API int bitWidthU(unsigned int value);
/// Bits that address `count` locations, at least 1. A count of 0 wraps and takes 32.
ORVO_API int addrWidth(unsigned int count);

/// Whether the value is a record's type.
ORVO_API bool isAggregateType(const Value *type);
/// The short form that people read: "s8.4", "u1.0", "float(23,8)", "[4][3] complex s8.4", "{s8.0, u1.0}"; "?" for null.
ORVO_API std::string readableType(const Value *type);

} // namespace orvo
