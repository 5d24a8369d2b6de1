// Value, the immutable interned object that every name and parameter of a design is, and the
// references to it. Equal values of one context are one object, so equality is a pointer comparison.
#pragma once

#include <orvo/api.h>
#include <util/pool.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace orvo {

class Context;
class Design;
class NodeParamRef;
class StaticString;
class StringValue;
class NumberValue;
class TupleValue;
class PureTupleValue;
class NodeValue;
class ValueMetaData;
template <class T> class ValueRefBase;
class PureValueRef;
using ValueRef = ValueRefBase<class Value>;

/// What kind of value an object is; the numbers are the run-stable order of the kinds.
enum class CoreType : std::uint8_t { Number = 0, String = 1, Tuple = 2, PureTuple = 3, Node = 4 };

namespace internal {
class ContextImpl;
template <class T, class V> class RefBase;
[[noreturn]] ORVO_API void failReferenceCount();
} // namespace internal

/// An immutable value. Values are made by the static `get` functions of the kinds, live in the intern table of one
/// `Context`, and are reference counted, but for the values of `StaticString`s, which live as long as the process.
class ORVO_API Value : public util::Pooled {
  public:
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;

    /// The text prefixes that start a value of this kind.
    virtual const ValueMetaData &getMetaData() const = 0;
    /// This value with every node path in it bound to the node of `design` that it names. Null if a path names nothing.
    virtual ValueRef resolve(Design *design);
    /// The order by content inside one kind, the same in every run.
    virtual bool deepBefore(const Value *other) const = 0;
    /// 0 number, 1 string, 2 tuple, 3 pure tuple, 4 node.
    virtual int getCoreTypeId() const = 0;
    virtual void print(std::ostream &out) const = 0;
    /// The shallow order inside one kind; may rest on the addresses of what the value holds.
    virtual bool before(const Value *other) const = 0;
    /// Moves the content of this probe into a new object on the heap.
    virtual Value *createOnHeap() = 0;
    virtual ~Value();

    /// Ends the life of a value that no reference holds. Called when the last reference goes.
    void release() const;
    std::string toString() const;

    /// The kind, without a virtual call.
    CoreType kind() const { return mKind; }
    bool isPure() const { return mKind != CoreType::Tuple && mKind != CoreType::Node; }
    bool isRefCounted() const { return mRefCounted; }
    int refCount() const { return mRefCount; }
    Context *context() const { return mContext; }
    /// Of the content, equal for equal values of one context. Never leaves the process and orders nothing.
    std::uint32_t hash() const { return mHash; }

    /// Reads one value in its text form. Bad text sets the stream's fail bit and gives null.
    static ValueRef parse(std::istream &in, Context *context);
    /// The same from a text; what stands behind the first value is not looked at. Null for bad text.
    static ValueRef parse(const std::string &text, Context *context);

  protected:
    Value(CoreType kind, Context *context, std::uint32_t hash, bool refCounted = true)
        : mContext(context), mHash(hash), mRefCounted(refCounted), mKind(kind) {}

  private:
    template <class T, class V> friend class internal::RefBase;
    friend class internal::ContextImpl;
    friend class NodeValue;

    Context *mContext;
    mutable std::int32_t mRefCount = 0;
    std::uint32_t mHash;
    bool mRefCounted;
    CoreType mKind;
};

/// The promise that a value refers to no node of a netlist. (A `PureTupleValue` gives it, too.)
class ORVO_API PureValue : public Value {
  protected:
    using Value::Value;
};

ORVO_API std::ostream &operator<<(std::ostream &out, const Value &value);

/// Makes the step from a bare pointer to a reference visible where it is done.
template <class T> struct FromPtr {
    explicit FromPtr(T *pointer) : ptr(pointer) {}
    T *ptr;
};

namespace internal {

/// The counting pointer under all references. `V` is the base through which the count is reached. The counts are plain
/// integers: a counted value is only touched on the thread of its context.
template <class T, class V = Value> class RefBase {
  public:
    /// The value, null for a null reference.
    T *get_ptr() const { return mPtr; }
    T *operator->() const { return mPtr; }
    T &operator*() const { return *mPtr; }
    explicit operator bool() const { return mPtr != nullptr; }
    bool operator!() const { return mPtr == nullptr; }

  protected:
    RefBase() = default;
    explicit RefBase(T *pointer) : mPtr(pointer) { acquire(); }
    RefBase(const RefBase &other) : mPtr(other.mPtr) { acquire(); }
    RefBase(RefBase &&other) noexcept : mPtr(other.mPtr) { other.mPtr = nullptr; }
    ~RefBase() { drop(); }
    RefBase &operator=(const RefBase &other) {
        if (this != &other) {
            reset(other.mPtr);
        }
        return *this;
    }
    RefBase &operator=(RefBase &&other) noexcept {
        if (this != &other) {
            const RefBase old(std::move(*this));
            mPtr = other.mPtr;
            other.mPtr = nullptr;
        }
        return *this;
    }
    void reset(T *pointer) {
        RefBase old(std::move(*this));
        mPtr = pointer;
        acquire();
    }

  private:
    void acquire() const {
        if (mPtr != nullptr && static_cast<const V *>(mPtr)->mRefCounted) {
            ++static_cast<const V *>(mPtr)->mRefCount;
        }
    }
    void drop() const {
        if (mPtr == nullptr) {
            return;
        }
        const V *value = mPtr;
        if (!value->mRefCounted) {
            return;
        }
        if (value->mRefCount <= 0) {
            failReferenceCount();
        }
        if (--value->mRefCount == 0) {
            value->release();
        }
    }

    T *mPtr = nullptr;
};

/// True for the kinds that a `T` may be: the tests behind the casts, without run-time type information.
template <class T> constexpr bool isKindOf(CoreType kind) {
    using U = std::remove_const_t<T>;
    if constexpr (std::is_same_v<U, Value>) {
        return true;
    } else if constexpr (std::is_same_v<U, PureValue>) {
        return kind == CoreType::Number || kind == CoreType::String;
    } else if constexpr (std::is_same_v<U, StringValue>) {
        return kind == CoreType::String;
    } else if constexpr (std::is_same_v<U, NumberValue>) {
        return kind == CoreType::Number;
    } else if constexpr (std::is_same_v<U, TupleValue>) {
        return kind == CoreType::Tuple || kind == CoreType::PureTuple;
    } else if constexpr (std::is_same_v<U, PureTupleValue>) {
        return kind == CoreType::PureTuple;
    } else {
        static_assert(std::is_same_v<U, NodeValue>, "not a kind of value");
        return kind == CoreType::Node;
    }
}

[[noreturn]] ORVO_API void failStaticCast();

} // namespace internal

/// The general counted reference to a value, null allowed. Compares by pointer.
template <class T> class ValueRefBase : public internal::RefBase<T, Value> {
    using Base = internal::RefBase<T, Value>;

  public:
    ValueRefBase() = default;
    ValueRefBase(std::nullptr_t) {}
    ValueRefBase(const FromPtr<T> &pointer) : Base(pointer.ptr) {}
    ValueRefBase(const ValueRefBase &) = default;
    ValueRefBase(ValueRefBase &&) noexcept = default;
    /// From a reference to a derived kind, or from any reference for a reference to `Value`.
    template <class R, class P = decltype(std::declval<const R &>().get_ptr()),
              class = std::enable_if_t<std::is_convertible_v<P, T *> && !std::is_same_v<R, ValueRefBase>>>
    ValueRefBase(const R &other) : Base(other.get_ptr()) {}
    ValueRefBase &operator=(const ValueRefBase &) = default;
    ValueRefBase &operator=(ValueRefBase &&) noexcept = default;
};

using StringValueRef = ValueRefBase<StringValue>;
using NumberValueRef = ValueRefBase<NumberValue>;
using TupleValueRef = ValueRefBase<TupleValue>;
using PureTupleValueRef = ValueRefBase<PureTupleValue>;
using NodeValueRef = ValueRefBase<NodeValue>;
using ConstNodeValueRef = ValueRefBase<const NodeValue>;

/// A reference that holds pure values only: an impure one becomes null on the way in, so that testing for null tells
/// whether something pure was given.
class PureValueRef : public internal::RefBase<Value, Value> {
    using Base = internal::RefBase<Value, Value>;

  public:
    PureValueRef() = default;
    PureValueRef(std::nullptr_t) {}
    PureValueRef(const FromPtr<Value> &pointer) : Base(checkValue(pointer.ptr)) {}
    PureValueRef(const PureValueRef &) = default;
    PureValueRef(PureValueRef &&) noexcept = default;
    template <class R, class P = decltype(std::declval<const R &>().get_ptr()),
              class = std::enable_if_t<std::is_convertible_v<P, const Value *> && !std::is_same_v<R, PureValueRef>>>
    PureValueRef(const R &other) : Base(checkValue(other.get_ptr())) {}
    PureValueRef &operator=(const PureValueRef &) = default;
    PureValueRef &operator=(PureValueRef &&) noexcept = default;

  private:
    static Value *checkValue(const Value *value) {
        return value != nullptr && value->isPure() ? const_cast<Value *>(value) : nullptr;
    }
};

/// A well-known text: a global that holds one uncounted value, the same object in every context. All are made while
/// the library loads; making one after the first `Context` is an assertion.
class ORVO_API StaticString {
  public:
    explicit StaticString(const char *text);
    StaticString(const StaticString &) = delete;
    StaticString &operator=(const StaticString &) = delete;

    StringValueRef get() const { return mValue; }
    StringValue *get_ptr() const { return mValue.get_ptr(); }
    const std::string &text() const;

  private:
    StringValueRef mValue;
};

namespace internal {
/// Anything with a `get_ptr()` that gives a value: the references, `StaticString`, `NodeParamRef`.
template <class R>
using IfRef = std::enable_if_t<std::is_convertible_v<decltype(std::declval<const R &>().get_ptr()), const Value *>>;
} // namespace internal

/// Equality of values is identity. A reference, a `StaticString` or a parameter may stand on either side.
template <class A, class B, class = internal::IfRef<A>, class = internal::IfRef<B>>
bool operator==(const A &a, const B &b) {
    return static_cast<const Value *>(a.get_ptr()) == static_cast<const Value *>(b.get_ptr());
}
template <class A, class = internal::IfRef<A>> bool operator==(const A &a, std::nullptr_t) {
    return a.get_ptr() == nullptr;
}
/// Pointer order: fit for a container that is never iterated for output.
template <class A, class B, class = internal::IfRef<A>, class = internal::IfRef<B>>
bool operator<(const A &a, const B &b) {
    return std::less<const Value *>()(a.get_ptr(), b.get_ptr());
}

/// The value as a `T`, null if it is of another kind.
template <class T, class R, class = internal::IfRef<R>> ValueRefBase<T> dyn_ref_cast(const R &ref) {
    const Value *value = ref.get_ptr();
    if (value == nullptr || !internal::isKindOf<T>(value->kind())) {
        return {};
    }
    return FromPtr<T>(static_cast<T *>(const_cast<Value *>(value)));
}

/// The value as a `T`; null stays null, another kind is an assertion.
template <class T, class R, class = internal::IfRef<R>> ValueRefBase<T> static_ref_cast(const R &ref) {
    const Value *value = ref.get_ptr();
    if (value != nullptr && !internal::isKindOf<T>(value->kind())) {
        internal::failStaticCast();
    }
    return FromPtr<T>(static_cast<T *>(const_cast<Value *>(value)));
}

template <class R, class = internal::IfRef<R>> PureValueRef pureVR(const R &ref) { return PureValueRef(ref); }
template <class R, class = internal::IfRef<R>> StringValueRef stringVR(const R &ref) {
    return dyn_ref_cast<StringValue>(ref);
}
template <class R, class = internal::IfRef<R>> NumberValueRef numberVR(const R &ref) {
    return dyn_ref_cast<NumberValue>(ref);
}
template <class R, class = internal::IfRef<R>> TupleValueRef tupleVR(const R &ref) {
    return dyn_ref_cast<TupleValue>(ref);
}
template <class R, class = internal::IfRef<R>> PureTupleValueRef pureTupleVR(const R &ref) {
    return dyn_ref_cast<PureTupleValue>(ref);
}
template <class R, class = internal::IfRef<R>> NodeValueRef nodeVR(const R &ref) {
    return dyn_ref_cast<NodeValue>(ref);
}

/// The run-stable order of values: by kind, then by content. Null may not be compared. Containers that are iterated to
/// produce output use it. A `NodeValue` orders by the path that its node has at that moment, so a bound one must not be
/// a key of a container that lives across a renaming.
struct ORVO_API DeepValueCmp {
    bool operator()(const Value *a, const Value *b) const;
    template <class A, class B, class = internal::IfRef<A>, class = internal::IfRef<B>>
    bool operator()(const A &a, const B &b) const {
        return (*this)(static_cast<const Value *>(a.get_ptr()), static_cast<const Value *>(b.get_ptr()));
    }
};

} // namespace orvo

// A reference converts to another by the kinds' class tree, so the kinds must be complete wherever references are used.
#include <orvo/corevalues.h>
