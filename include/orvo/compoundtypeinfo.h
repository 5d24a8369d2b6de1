// The shapes of compound signals (vectors, complex numbers, records and any nesting of them) and the paths to their
// leaves: the words in which all that takes signals apart speaks.
#pragma once

#include <orvo/context.h>
#include <orvo/value.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace orvo {

class AggregateTypeSpec;
class VectorDecorSpec;

namespace internal {
class CompoundTypeInfoImpl;
}

/// What one level of a compound signal is made of.
enum class CompoundKind : std::uint8_t { Aggregate = 0, Vector = 1, Complex = 2 };

/// The part of a complex number; as an element number, real is 0.
enum class RealOrImaginary : std::uint8_t { Real = 0, Imaginary = 1 };

/// The path from a compound signal to a part of it, outermost step first. Immutable; copies share the path.
class ORVO_API CompoundDecorIndex {
  public:
    struct Step {
        CompoundKind kind;
        int index;
        bool operator==(const Step &other) const { return kind == other.kind && index == other.index; }
    };

    /// Invalid.
    CompoundDecorIndex() = default;
    /// The path of no steps, which leads to the signal itself: what longer paths are begun with.
    static CompoundDecorIndex createEmptyIndex();
    /// Paths of one step. A negative number is an assertion.
    static CompoundDecorIndex createAggregateIndex(int member);
    static CompoundDecorIndex createVectorIndex(int lane);
    static CompoundDecorIndex createComplexIndex(RealOrImaginary part);

    bool valid() const { return mSteps != nullptr; }
    /// The steps, none if invalid.
    const std::vector<Step> &steps() const;
    /// The path inside what this path leads to. Invalid if either is.
    CompoundDecorIndex operator<<(const CompoundDecorIndex &inner) const;

    /// The order in which mappings are written: invalid first, then by the kinds of all steps, then by their numbers; a
    /// path stands before its continuations.
    bool operator<(const CompoundDecorIndex &other) const;
    bool operator==(const CompoundDecorIndex &other) const;
    bool operator!=(const CompoundDecorIndex &other) const { return !(*this == other); }

    /// Whether the path begins with steps of that kind; `indices` gets the leading run of them.
    bool getTopVectorIndices(std::vector<int> &indices) const { return getTop(CompoundKind::Vector, indices); }
    bool getTopAggregateIndices(std::vector<int> &indices) const { return getTop(CompoundKind::Aggregate, indices); }
    /// Whether the path begins with a part of a complex number; `part` is left alone if not.
    bool getTopComplexIndices(RealOrImaginary &part) const;

    /// Null if invalid.
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    /// Invalid for whatever is no path: also for negative numbers, and for parts that a complex number does not have.
    static CompoundDecorIndex fromValue(const PureValueRef &value);

  private:
    friend class internal::CompoundTypeInfoImpl;
    explicit CompoundDecorIndex(std::vector<Step> steps);
    bool getTop(CompoundKind kind, std::vector<int> &indices) const;

    std::shared_ptr<const std::vector<Step>> mSteps;
};

/// The shape of a compound signal, a tree: each element of a level is a leaf or has a level below. A plain signal has
/// no shape: it is an invalid info, as is a shape of more leaves than an `int` counts or of more levels than a text can
/// have (`limits::kTupleDepth`). Copies share the tree until one of them is changed.
class ORVO_API CompoundTypeInfo {
  public:
    /// From a place among the leaves, or among the elements of the top level, to its path.
    struct FromIntIndexFunc {
        const CompoundTypeInfo *info = nullptr;
        bool shallow = false;
        CompoundDecorIndex operator()(int position) const;
    };
    /// Counts places and gives paths. Lasts as long as the info that it walks; after a change of the info it stands at
    /// the same number.
    class const_iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = CompoundDecorIndex;
        using difference_type = int;
        using pointer = void;
        using reference = CompoundDecorIndex;
        const_iterator() = default;
        const_iterator(FromIntIndexFunc path, int position) : mPath(path), mPosition(position) {}
        CompoundDecorIndex operator*() const { return mPath(mPosition); }
        const_iterator &operator++() {
            ++mPosition;
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator old = *this;
            ++mPosition;
            return old;
        }
        const_iterator operator+(int count) const { return {mPath, mPosition + count}; }
        bool operator==(const const_iterator &other) const { return mPosition == other.mPosition; }
        bool operator!=(const const_iterator &other) const { return mPosition != other.mPosition; }
        int position() const { return mPosition; }
        bool isShallow() const { return mPath.shallow; }

      private:
        FromIntIndexFunc mPath;
        int mPosition = 0;
    };

    /// Invalid.
    CompoundTypeInfo() = default;
    static CompoundTypeInfo createComplexInfo();
    /// A length below 1 is an assertion, as is an empty list of them.
    static CompoundTypeInfo createVectorInfo(int length);
    /// One level for each length, outermost first.
    static CompoundTypeInfo createVectorInfo(const std::vector<int> &lengths);
    /// Invalid for a scalar, and for vectors that are invalid or have an impossible length.
    static CompoundTypeInfo createVectorInfo(const VectorDecorSpec &vectors);
    /// A record of so many leaves, at least 1.
    static CompoundTypeInfo createAggregateTypeInfo(int members);
    /// A record, and the records that stand directly in it; vectors and complex numbers are leaves, unless
    /// `withDecorations`. The leaves without decorations are counted as `AggregateTypeSpec::getFlatSize` does. Invalid
    /// if the type is no record.
    static CompoundTypeInfo createAggregateTypeInfo(const AggregateTypeSpec &record, bool withDecorations);
    /// All levels of a type. Invalid for a plain type and for null; a record without members has no leaves, and makes
    /// all that it stands in invalid, as does a nesting that is too deep.
    static CompoundTypeInfo createFromValue(const PureValueRef &type);

    bool valid() const { return mImpl != nullptr; }
    bool topLevelIsAggregate() const { return topLevelIs(CompoundKind::Aggregate); }
    bool topLevelIsVector() const { return topLevelIs(CompoundKind::Vector); }
    bool topLevelIsComplex() const { return topLevelIs(CompoundKind::Complex); }

    /// Invalid for a leaf. An element that the top level does not have is an assertion.
    CompoundTypeInfo getLevelBelow(int element) const;
    /// Replaces what is below an element of the top level; an invalid info makes it a leaf. This info becomes invalid
    /// if it has too many leaves or levels then.
    void setLevelBelow(int element, const CompoundTypeInfo &below);
    /// The same for a leaf, wherever it is.
    void setLevelBelow(const const_iterator &leaf, const CompoundTypeInfo &below);

    /// All leaves, depth first.
    const_iterator begin() const { return {{this, false}, 0}; }
    const_iterator end() const { return {{this, false}, static_cast<int>(size())}; }
    std::size_t size() const;
    /// The elements of the top level only.
    const_iterator begin_shallow() const { return {{this, true}, 0}; }
    const_iterator end_shallow() const { return {{this, true}, static_cast<int>(size_shallow())}; }
    std::size_t size_shallow() const;
    /// A position out of range is an assertion.
    CompoundDecorIndex getIndexShallow(int element) const;
    CompoundDecorIndex getIndexDeep(int leaf) const;

  private:
    friend class internal::CompoundTypeInfoImpl;
    explicit CompoundTypeInfo(std::shared_ptr<internal::CompoundTypeInfoImpl> impl) : mImpl(std::move(impl)) {}
    bool topLevelIs(CompoundKind kind) const;
    void cloneImplIfRequired();
    void setLeafBelow(int leaf, const CompoundTypeInfo &below);

    std::shared_ptr<internal::CompoundTypeInfoImpl> mImpl;
};

} // namespace orvo
