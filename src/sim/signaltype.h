// Types of signals taken apart into the scalars that the simulator computes with.
#pragma once

#include <orvo/types.h>

#include <memory>
#include <unordered_map>
#include <vector>

namespace orvo::sim {

/// The type of one scalar: a fixed-point number of `width` bits, or the bits of a float.
struct ScalarType {
    std::uint32_t width = 0;
    std::int32_t fraction = 0;
    bool isSigned = false;
    bool isFloat = false;
    /// Of a float the width of its exponent.
    std::uint32_t exponent = 0;
    /// Bits of a float above its sign: the library's own format has two, which carry nothing here. Below them it is
    /// as an IEEE float.
    std::uint32_t unused = 0;
    bool operator==(const ScalarType &) const = default;
};

/// A type as a tree. Its scalars stand in one order: vector elements from the outermost dimension in, real before
/// imaginary parts, fields by number.
struct SignalType {
    /// Outermost first.
    std::vector<std::uint32_t> dims;
    bool isComplex = false;
    /// Of a number.
    ScalarType scalar;
    /// Of a record; empty for a number.
    std::vector<const SignalType *> fields;
    /// What one element without vectors takes, and the whole.
    std::uint32_t element = 1;
    std::uint32_t leaves = 1;
    NumTypeSpec spec;

    bool isRecord() const { return !fields.empty(); }
    /// Elements in all dimensions together.
    std::uint32_t lanes() const { return leaves / element; }
};

/// The scalar types of a type, in order.
ORVO_API void appendScalars(const SignalType &type, std::vector<ScalarType> &scalars);

/// Each type value read once.
class ORVO_API SignalTypes {
  public:
    explicit SignalTypes(Context *context) : mContext(context) {}
    /// Null for no type and for a malformed one.
    const SignalType *of(const PureValueRef &value);
    /// The type one dimension further in; null if there is none.
    const SignalType *inner(const SignalType &type);

  private:
    std::unique_ptr<SignalType> read(const PureValueRef &value);

    Context *mContext;
    std::unordered_map<const Value *, std::unique_ptr<SignalType>> mKnown;
    std::unordered_map<const SignalType *, std::unique_ptr<SignalType>> mInner;
    std::vector<PureValueRef> mKept;
};

} // namespace orvo::sim
