// The four concrete kinds of value and their one text form, which is what `toString` shows, what design XML stores and
// what node paths are made of. It reads back to the identical interned value.
#pragma once

#include <orvo/value.h>

#include <gmp.h>
#include <mpfr.h>

#include <map>
#include <new>
#include <unordered_map>
#include <vector>

namespace orvo {

class Node;

namespace internal {
class NumberInterner;
}

/// For each kind of value, the text prefixes that start one.
class ORVO_API ValueMetaData {
  public:
    constexpr ValueMetaData(const std::string *names, std::size_t count) : mNames(names), mCount(count) {}
    const std::string *begin() const { return mNames; }
    const std::string *end() const { return mNames + mCount; }
    std::size_t size() const { return mCount; }

  private:
    const std::string *mNames;
    std::size_t mCount;
};

/// A text of any bytes.
class ORVO_API StringValue final : public PureValue {
  public:
    static StringValueRef get(const std::string &text, Context *context);
    static StringValueRef get(const char *text, Context *context);
    static StringValueRef get(std::string_view text, Context *context);

    const std::string &str() const { return mText; }

    const ValueMetaData &getMetaData() const override;
    bool deepBefore(const Value *other) const override;
    int getCoreTypeId() const override { return static_cast<int>(CoreType::String); }
    void print(std::ostream &out) const override;
    bool before(const Value *other) const override;
    Value *createOnHeap() override;
    static ValueRef parse(Context *context, std::istream &in);

  private:
    friend class StaticString;
    friend class internal::ContextImpl;
    StringValue(std::string text, Context *context, std::uint32_t hash, bool refCounted);

    std::string mText;
};

/// An exact number, integer or binary fraction of any size, or one of the special values NaN, plus and minus infinity
/// and minus zero.
class ORVO_API NumberValue final : public PureValue {
  public:
    static NumberValueRef get(int value, Context *context);
    static NumberValueRef get(long value, Context *context);
    static NumberValueRef get(double value, Context *context);
    /// The number is read, not taken. Its own precision is kept, so nothing is rounded.
    static NumberValueRef get(const mpz_t value, Context *context);
    static NumberValueRef get(const mpf_t value, Context *context);
    /// `value` divided by two to the power of `fractionBits`.
    static NumberValueRef fromInt64(std::int64_t value, unsigned int fractionBits, Context *context);
    static NumberValueRef fromUInt64(std::uint64_t value, unsigned int fractionBits, Context *context);
    static NumberValueRef fromMPZ(const mpz_t value, unsigned int fractionBits, Context *context);
    ~NumberValue() override;

    /// NaN, an infinity or minus zero.
    bool isSpecial() const { return mSpecial; }
    bool isNegative() const;
    bool isInteger() const;
    /// An integer that fits `int`.
    bool isInt() const;
    /// The integer part in the way of `mpf_get_si`; for a special value its code (2 NaN, 1 and -1 infinity, 0 -zero).
    int toInt() const;
    /// The value times two to the power of `scale`, rounded to nearest, halves away from zero.
    std::int64_t toInt64(int scale) const;
    double toDouble() const;
    /// Initialises `out` to the precision of this value (bits) and sets it; the caller clears it.
    void toMPFR(mpfr_t out) const;
    /// Sets `out` to an integer m and returns f, so that the value is m divided by two to the power of f (f may be
    /// negative). With `minimal`, m is odd or zero. `out` must be initialised.
    int toUpscaledMPZ(mpz_t out, bool minimal) const;
    /// As `toInt64`, without bounds. `out` must be initialised.
    void toScaledMPZ(mpz_t out, int scale) const;
    /// Integer bits and fraction bits of the smallest two's complement or unsigned form that holds the value exactly.
    std::pair<int, int> getBitWidths() const;
    /// In base 2, 10 or 16, with `digits` significant digits, 0 for all.
    void print(std::ostream &out, int base, int digits) const;
    std::string toString(int base, int digits) const;
    using Value::toString;

    const ValueMetaData &getMetaData() const override;
    bool deepBefore(const Value *other) const override;
    int getCoreTypeId() const override { return static_cast<int>(CoreType::Number); }
    void print(std::ostream &out) const override;
    bool before(const Value *other) const override;
    Value *createOnHeap() override;
    static ValueRef parse(Context *context, std::istream &in);

  private:
    friend class internal::NumberInterner;
    /// Copies `number`; at least `precision` bits are kept, more if it has more.
    NumberValue(bool special, mpf_srcptr number, std::size_t precision, Context *context, std::uint32_t hash);

    /// Enough for all that has the precision of a machine word: a float keeps one limb beyond its precision.
    static constexpr std::size_t kShortLimbs = 3;

    mpf_t mNumber;
    mp_limb_t mShortLimbs[kShortLimbs];
    bool mSpecial;
};

/// A sequence of values. One that holds only pure elements is a `PureTupleValue`. The elements stand behind the object
/// in its own memory: names of elements are tuples, of which a netlist that came apart has millions.
class ORVO_API TupleValue : public Value {
  public:
    using const_iterator = const ValueRef *;

    /// A null element before the first impure one gives a null reference; after one, it stays in the tuple.
    static TupleValueRef get(const std::vector<ValueRef> &elements, Context *context);
    static TupleValueRef get(std::vector<ValueRef> &&elements, Context *context);
    static TupleValueRef get(const std::vector<ValueRefBase<const Value>> &elements, Context *context);
    static TupleValueRef get(Context *context);
    static TupleValueRef get(const ValueRef &a, Context *context);
    static TupleValueRef get(const ValueRef &a, const ValueRef &b, Context *context);
    static TupleValueRef get(const ValueRef &a, const ValueRef &b, const ValueRef &c, Context *context);
    static TupleValueRef get(const ValueRef &a, const ValueRef &b, const ValueRef &c, const ValueRef &d,
                             Context *context);
    static TupleValueRef get(const ValueRef &a, const ValueRef &b, const ValueRef &c, const ValueRef &d,
                             const ValueRef &e, Context *context);

    /// Throws `std::out_of_range`.
    const ValueRef &at(std::size_t index) const {
        if (index >= mSize) {
            throwOutOfRange();
        }
        return begin()[index];
    }
    /// Null when out of range.
    ValueRef maybeAt(std::size_t index) const { return index < mSize ? begin()[index] : ValueRef(); }
    const_iterator begin() const { return reinterpret_cast<const ValueRef *>(this + 1); }
    const_iterator end() const { return begin() + mSize; }
    std::size_t size() const { return mSize; }

    ValueRef resolve(Design *design) override;
    const ValueMetaData &getMetaData() const override;
    bool deepBefore(const Value *other) const override;
    int getCoreTypeId() const override { return static_cast<int>(CoreType::Tuple); }
    void print(std::ostream &out) const override;
    bool before(const Value *other) const override;
    Value *createOnHeap() override;
    static ValueRef parse(Context *context, std::istream &in);

    ~TupleValue() override;
    /// Knows how much memory the elements take.
    static void operator delete(TupleValue *tuple, std::destroying_delete_t) noexcept;

  protected:
    TupleValue(CoreType kind, const ValueRef *elements, std::size_t count, Context *context, std::uint32_t hash);
    static TupleValueRef intern(const ValueRef *elements, std::size_t count, Context *context);

  private:
    using ResolvedTuples = std::unordered_map<const Value *, ValueRef>;

    /// A tuple of this kind on the heap.
    static TupleValue *create(CoreType kind, const ValueRef *elements, std::size_t count, Context *context,
                              std::uint32_t hash);
    [[noreturn]] static void throwOutOfRange();
    ValueRef resolveIn(Design *design, ResolvedTuples &known) const;

    std::uint32_t mSize;
};

/// A tuple whose elements are all pure, which makes it usable as a name, a key and a type.
class ORVO_API PureTupleValue final : public TupleValue {
  public:
    /// Walks the elements as `PureValueRef`s.
    class const_iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = PureValueRef;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = PureValueRef;
        explicit const_iterator(TupleValue::const_iterator it) : mIt(it) {}
        PureValueRef operator*() const { return PureValueRef(*mIt); }
        const_iterator &operator++() {
            ++mIt;
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator old = *this;
            ++mIt;
            return old;
        }
        bool operator==(const const_iterator &other) const { return mIt == other.mIt; }
        bool operator!=(const const_iterator &other) const { return mIt != other.mIt; }

      private:
        TupleValue::const_iterator mIt;
    };

    /// Null if an element is null.
    static PureTupleValueRef get(const PureValueRef &a, Context *context);
    static PureTupleValueRef get(const PureValueRef &a, const PureValueRef &b, Context *context);
    static PureTupleValueRef get(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c, Context *context);
    static PureTupleValueRef get(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d, Context *context);
    static PureTupleValueRef get(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d, const PureValueRef &e, Context *context);
    static PureTupleValueRef get(const std::vector<PureValueRef> &elements, Context *context);
    /// A tuple of (key, value) pairs, in the run-stable order of the keys.
    static PureTupleValueRef get(const std::map<PureValueRef, PureValueRef> &entries, Context *context);

    PureValueRef at(std::size_t index) const { return PureValueRef(TupleValue::at(index)); }
    PureValueRef maybeAt(std::size_t index) const { return PureValueRef(TupleValue::maybeAt(index)); }
    const_iterator begin() const { return const_iterator(TupleValue::begin()); }
    const_iterator end() const { return const_iterator(TupleValue::end()); }

    int getCoreTypeId() const override { return static_cast<int>(CoreType::PureTuple); }
    ValueRef resolve(Design *design) override;

  private:
    friend class TupleValue;
    PureTupleValue(const ValueRef *elements, std::size_t count, Context *context, std::uint32_t hash);
};

/// A reference to a node of a netlist: bound to it, or, before a design is complete and after the node has died, as a
/// path.
class ORVO_API NodeValue final : public Value {
  public:
    /// The one value bound to `node`. Null for null.
    static NodeValueRef get(Node *node);
    static ConstNodeValueRef get(const Node *node);
    /// The path form, interned by its text.
    static NodeValueRef get(const std::string &path, Context *context);
    ~NodeValue() override;

    /// Null for the path form.
    Node *getNode() const { return mNode; }
    /// The names from the topmost node below the design down to this one, each behind a "/".
    std::string getPath() const;
    /// Turns a bound value into a path: its node is about to go.
    void invalidate();

    ValueRef resolve(Design *design) override;
    const ValueMetaData &getMetaData() const override;
    bool deepBefore(const Value *other) const override;
    int getCoreTypeId() const override { return static_cast<int>(CoreType::Node); }
    void print(std::ostream &out) const override;
    bool before(const Value *other) const override;
    Value *createOnHeap() override;
    static ValueRef parse(Context *context, std::istream &in);

  private:
    explicit NodeValue(Node *node);
    /// Pooled: the paths of a design that is being read are as many as its connections, and go when they are bound.
    using PathText = std::basic_string<char, std::char_traits<char>, util::PoolAllocator<char>>;
    NodeValue(PathText path, Context *context);

    Node *mNode = nullptr;
    PathText mPath;
};

/// Reads a value from a text again and again without making a stream each time; for readers of many short texts.
class ORVO_API ValueTextReader {
  public:
    explicit ValueTextReader(Context *context);
    ~ValueTextReader();
    ValueTextReader(const ValueTextReader &) = delete;
    ValueTextReader &operator=(const ValueTextReader &) = delete;
    /// As `Value::parse`; null for bad text. Trailing text is not looked at.
    ValueRef parse(std::string_view text);
    /// How many tuple elements repeat counts (`^n`) have made on this thread since this reader began, paths that were
    /// bound meanwhile included: for a reader that limits a whole document.
    std::size_t repeatedElements() const;

  private:
    struct Impl;
    Impl *mImpl;
};

} // namespace orvo
