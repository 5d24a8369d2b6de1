// Shapes of compound signals. Equal neighbours on a level are kept together, so that a vector costs the same whatever
// its length, and a place among millions of leaves is found by a search on each level.
#include <orvo/compoundtypeinfo.h>

#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <unordered_map>

namespace orvo {

namespace {

constexpr std::int64_t kMostLeaves = std::numeric_limits<int>::max();

const StaticString &tagOf(CompoundKind kind) {
    switch (kind) {
    case CompoundKind::Aggregate:
        return A_COMPOUND_INDEX_TYPE_AGGREGATE;
    case CompoundKind::Vector:
        return A_COMPOUND_INDEX_TYPE_VECTOR;
    case CompoundKind::Complex:
        break;
    }
    return A_COMPOUND_INDEX_TYPE_COMPLEX;
}

std::optional<CompoundDecorIndex::Step> stepFrom(const PureTupleValueRef &pair) {
    const NumberValueRef number = pair && pair->size() == 2 ? numberVR(pair->at(1)) : NumberValueRef();
    if (!number || !number->isInt() || number->toInt() < 0) {
        return std::nullopt;
    }
    for (const CompoundKind kind : {CompoundKind::Aggregate, CompoundKind::Vector, CompoundKind::Complex}) {
        if (pair->at(0) == tagOf(kind) && (kind != CompoundKind::Complex || number->toInt() < 2)) {
            return CompoundDecorIndex::Step{kind, number->toInt()};
        }
    }
    return std::nullopt;
}

} // namespace

CompoundDecorIndex::CompoundDecorIndex(std::vector<Step> steps)
    : mSteps(std::make_shared<const std::vector<Step>>(std::move(steps))) {}

CompoundDecorIndex CompoundDecorIndex::createEmptyIndex() { return CompoundDecorIndex(std::vector<Step>()); }

CompoundDecorIndex CompoundDecorIndex::createAggregateIndex(int member) {
    ORVO_ASSERT(member >= 0, "a record has no member of a negative number");
    return CompoundDecorIndex({{CompoundKind::Aggregate, member}});
}

CompoundDecorIndex CompoundDecorIndex::createVectorIndex(int lane) {
    ORVO_ASSERT(lane >= 0, "a vector has no lane of a negative number");
    return CompoundDecorIndex({{CompoundKind::Vector, lane}});
}

CompoundDecorIndex CompoundDecorIndex::createComplexIndex(RealOrImaginary part) {
    return CompoundDecorIndex({{CompoundKind::Complex, static_cast<int>(part)}});
}

const std::vector<CompoundDecorIndex::Step> &CompoundDecorIndex::steps() const {
    static const std::vector<Step> none;
    return valid() ? *mSteps : none;
}

CompoundDecorIndex CompoundDecorIndex::operator<<(const CompoundDecorIndex &inner) const {
    if (!valid() || !inner.valid()) {
        return {};
    }
    std::vector<Step> path;
    path.reserve(mSteps->size() + inner.mSteps->size());
    path.insert(path.end(), mSteps->begin(), mSteps->end());
    path.insert(path.end(), inner.mSteps->begin(), inner.mSteps->end());
    return CompoundDecorIndex(std::move(path));
}

bool CompoundDecorIndex::operator<(const CompoundDecorIndex &other) const {
    if (!valid() || !other.valid()) {
        return !valid() && other.valid();
    }
    const std::vector<Step> &a = *mSteps;
    const std::vector<Step> &b = *other.mSteps;
    const auto sameKind = [](const Step &left, const Step &right) { return left.kind == right.kind; };
    const auto [kindA, kindB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end(), sameKind);
    if (kindA != a.end() && kindB != b.end()) {
        return kindA->kind < kindB->kind;
    }
    if (a.size() != b.size()) {
        return a.size() < b.size();
    }
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](const Step &left, const Step &right) { return left.index < right.index; });
}

bool CompoundDecorIndex::operator==(const CompoundDecorIndex &other) const {
    return mSteps == other.mSteps || (valid() && other.valid() && *mSteps == *other.mSteps);
}

bool CompoundDecorIndex::getTop(CompoundKind kind, std::vector<int> &indices) const {
    indices.clear();
    for (const Step &step : steps()) {
        if (step.kind != kind) {
            break;
        }
        indices.push_back(step.index);
    }
    return !indices.empty();
}

bool CompoundDecorIndex::getTopComplexIndices(RealOrImaginary &part) const {
    if (steps().empty() || steps().front().kind != CompoundKind::Complex) {
        return false;
    }
    part = steps().front().index == 0 ? RealOrImaginary::Real : RealOrImaginary::Imaginary;
    return true;
}

PureValueRef CompoundDecorIndex::toValue(Context *context) const {
    if (!valid()) {
        return {};
    }
    std::vector<PureValueRef> elements{A_COMPOUND_DECOR_INDEX_TAG};
    for (const Step &step : *mSteps) {
        elements.emplace_back(PureTupleValue::get(tagOf(step.kind), NumberValue::get(step.index, context), context));
    }
    return PureTupleValue::get(elements, context);
}

CompoundDecorIndex CompoundDecorIndex::fromValue(const PureValueRef &value) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    if (!tuple || !(tuple->maybeAt(0) == A_COMPOUND_DECOR_INDEX_TAG)) {
        return {};
    }
    std::vector<Step> path;
    for (std::size_t i = 1; i < tuple->size(); ++i) {
        const std::optional<Step> step = stepFrom(pureTupleVR(tuple->at(i)));
        if (!step) {
            return {};
        }
        path.push_back(*step);
    }
    return CompoundDecorIndex(std::move(path));
}

namespace internal {

/// One level and all below it.
class CompoundTypeInfoImpl {
  public:
    using Step = CompoundDecorIndex::Step;

    /// A level of equal elements. Invalid if it has too many leaves or levels.
    static CompoundTypeInfo makeLevel(CompoundKind kind, int size, const CompoundTypeInfo &below) {
        ORVO_ASSERT(size > 0, "a level of a compound type has no elements");
        auto level = std::make_shared<CompoundTypeInfoImpl>(kind, size, below);
        return level->isWithinBounds() ? CompoundTypeInfo(std::move(level)) : CompoundTypeInfo();
    }

    CompoundTypeInfoImpl(CompoundKind kind, int size, const CompoundTypeInfo &below)
        : mKind(kind), mSize(size), mRuns{{0, 0, 0, below}} {
        count(0);
    }

    CompoundKind kind() const { return mKind; }
    int size() const { return mSize; }
    std::int64_t leaves() const { return mLeaves; }

    const CompoundTypeInfo &below(int element) const {
        ORVO_ASSERT(element >= 0 && element < mSize, "a level of a compound type has no such element");
        return mRuns[runAt(&Run::first, element)].below;
    }

    /// False if the leaves or the levels have become too many.
    bool setBelow(int element, const CompoundTypeInfo &below) {
        const std::size_t at = runAt(&Run::first, element);
        const Run old = mRuns[at];
        std::vector<Run> parts;
        if (old.first < element) {
            parts.push_back(old);
        }
        parts.push_back({element, 0, 0, below});
        if (element + 1 < endOf(at)) {
            parts.push_back({element + 1, 0, 0, old.below});
        }
        const auto place = mRuns.erase(mRuns.begin() + static_cast<std::ptrdiff_t>(at));
        mRuns.insert(place, parts.begin(), parts.end());
        const std::size_t from = at == 0 ? 0 : at - 1;
        joinEqual(from, at + parts.size());
        count(from);
        return isWithinBounds();
    }

    /// The element that a leaf is under; `leaf` becomes its place among the leaves of that element.
    int elementOf(int &leaf) const {
        ORVO_ASSERT(leaf >= 0 && leaf < mLeaves, "a compound type has no leaf at this position");
        const Run &run = mRuns[runAt(&Run::firstLeaf, leaf)];
        const std::int64_t each = leavesOf(run.below);
        const std::int64_t inside = leaf - run.firstLeaf;
        leaf = static_cast<int>(inside % each);
        return run.first + static_cast<int>(inside / each);
    }

    CompoundDecorIndex fromIntIndex(int position, bool shallow) const {
        if (shallow) {
            ORVO_ASSERT(position >= 0 && position < mSize, "a level of a compound type has no such element");
            return CompoundDecorIndex({{mKind, position}});
        }
        std::vector<Step> path;
        for (const CompoundTypeInfoImpl *level = this; level != nullptr;) {
            const int element = level->elementOf(position);
            path.push_back({level->mKind, element});
            level = level->below(element).mImpl.get();
        }
        return CompoundDecorIndex(std::move(path));
    }

  private:
    /// Neighbours that share what is below them.
    struct Run {
        int first;
        std::int64_t firstLeaf;
        /// The most levels below an element before these.
        std::size_t levelsBefore;
        CompoundTypeInfo below;
    };

    static std::int64_t leavesOf(const CompoundTypeInfo &below) { return below.valid() ? below.mImpl->mLeaves : 1; }

    static std::size_t levelsOf(const CompoundTypeInfo &below) { return below.valid() ? below.mImpl->mLevels : 0; }

    /// The levels are as many as calls inside each other where a shape is changed or ends.
    bool isWithinBounds() const { return mLeaves <= kMostLeaves && mLevels <= limits::kTupleDepth; }

    int endOf(std::size_t run) const { return run + 1 < mRuns.size() ? mRuns[run + 1].first : mSize; }

    template <class Place> std::size_t runAt(Place Run::*start, int place) const {
        const auto behind = std::upper_bound(mRuns.begin(), mRuns.end(), place,
                                             [start](int wanted, const Run &run) { return wanted < run.*start; });
        return static_cast<std::size_t>(behind - mRuns.begin()) - 1;
    }

    void joinEqual(std::size_t from, std::size_t last) {
        const auto begin = mRuns.begin() + static_cast<std::ptrdiff_t>(from);
        const auto end = mRuns.begin() + static_cast<std::ptrdiff_t>(std::min(last + 1, mRuns.size()));
        const auto sameBelow = [](const Run &a, const Run &b) { return a.below.mImpl == b.below.mImpl; };
        mRuns.erase(std::unique(begin, end, sameBelow), end);
    }

    void count(std::size_t from) {
        for (std::size_t i = from; i < mRuns.size(); ++i) {
            const std::int64_t behind =
                mRuns[i].firstLeaf + leavesOf(mRuns[i].below) * std::int64_t{endOf(i) - mRuns[i].first};
            const std::size_t levels = std::max(mRuns[i].levelsBefore, levelsOf(mRuns[i].below));
            if (i + 1 < mRuns.size()) {
                mRuns[i + 1].firstLeaf = behind;
                mRuns[i + 1].levelsBefore = levels;
            } else {
                mLeaves = behind;
                mLevels = levels + 1;
            }
        }
    }

    CompoundKind mKind;
    int mSize;
    std::int64_t mLeaves = 0;
    std::size_t mLevels = 0;
    std::vector<Run> mRuns;
};

namespace {

/// Reads types into shapes. A type that is used again is read once.
class ShapeReader {
  public:
    explicit ShapeReader(bool withDecorations) : mWithDecorations(withDecorations) {}

    /// The shape of a type, an invalid one for a leaf; none if the type has a part without leaves, or too many.
    std::optional<CompoundTypeInfo> read(const PureValueRef &type) {
        const auto known = mKnown.find(type.get_ptr());
        if (known != mKnown.end()) {
            return known->second;
        }
        if (mDepth > limits::kTupleDepth) {
            return std::nullopt;
        }
        ++mDepth;
        std::optional<CompoundTypeInfo> shape = readLevels(type);
        --mDepth;
        mKnown.emplace(type.get_ptr(), shape);
        return shape;
    }

    std::optional<CompoundTypeInfo> readRecord(const AggregateTypeSpec &record) {
        if (record.size() == 0 || record.size() > static_cast<std::size_t>(kMostLeaves)) {
            return std::nullopt;
        }
        CompoundTypeInfo info = CompoundTypeInfo::createAggregateTypeInfo(static_cast<int>(record.size()));
        for (std::size_t i = 0; info.valid() && i < record.size(); ++i) {
            const std::optional<CompoundTypeInfo> below = read(record.at(i));
            if (!below) {
                return std::nullopt;
            }
            info.setLevelBelow(static_cast<int>(i), *below);
        }
        return wanted(info);
    }

  private:
    static std::optional<CompoundTypeInfo> wanted(const CompoundTypeInfo &made) {
        return made.valid() ? std::optional(made) : std::nullopt;
    }

    std::optional<CompoundTypeInfo> readLevels(const PureValueRef &type) {
        if (!mWithDecorations) {
            const AggregateTypeSpec record(type);
            return record.isAggregate() ? readRecord(record) : CompoundTypeInfo();
        }
        PureValueRef inner;
        const VectorDecorSpec vectors(type, inner, nullptr);
        if (type && !vectors.valid()) {
            return std::nullopt;
        }
        std::optional<CompoundTypeInfo> info = readElement(inner);
        for (const int length : vectors.vectorLengths()) {
            if (!info) {
                return std::nullopt;
            }
            info = wanted(CompoundTypeInfoImpl::makeLevel(CompoundKind::Vector, length, *info));
        }
        return info;
    }

    std::optional<CompoundTypeInfo> readElement(const PureValueRef &type) {
        const AggregateTypeSpec record(type);
        if (record.isAggregate()) {
            return readRecord(record);
        }
        PureValueRef part;
        const ComplexDecorSpec decoration(type, part, nullptr);
        if (!decoration.isComplex()) {
            return CompoundTypeInfo();
        }
        const std::optional<CompoundTypeInfo> below = read(part);
        return below ? wanted(CompoundTypeInfoImpl::makeLevel(CompoundKind::Complex, 2, *below)) : std::nullopt;
    }

    bool mWithDecorations;
    std::size_t mDepth = 0;
    std::unordered_map<const Value *, std::optional<CompoundTypeInfo>> mKnown;
};

} // namespace

} // namespace internal

using internal::CompoundTypeInfoImpl;

CompoundDecorIndex CompoundTypeInfo::FromIntIndexFunc::operator()(int position) const {
    return shallow ? info->getIndexShallow(position) : info->getIndexDeep(position);
}

CompoundTypeInfo CompoundTypeInfo::createComplexInfo() {
    return CompoundTypeInfoImpl::makeLevel(CompoundKind::Complex, 2, {});
}

CompoundTypeInfo CompoundTypeInfo::createVectorInfo(int length) {
    return CompoundTypeInfoImpl::makeLevel(CompoundKind::Vector, length, {});
}

CompoundTypeInfo CompoundTypeInfo::createVectorInfo(const std::vector<int> &lengths) {
    ORVO_ASSERT(!lengths.empty(), "a vector without dimensions");
    CompoundTypeInfo info = createVectorInfo(lengths.back());
    for (auto length = std::next(lengths.rbegin()); info.valid() && length != lengths.rend(); ++length) {
        info = CompoundTypeInfoImpl::makeLevel(CompoundKind::Vector, *length, info);
    }
    return info;
}

CompoundTypeInfo CompoundTypeInfo::createVectorInfo(const VectorDecorSpec &vectors) {
    const std::vector<int> &lengths = vectors.vectorLengths();
    if (!vectors.isVector()) {
        return {};
    }
    // The decoration of a type counts its dimensions from the innermost one.
    return createVectorInfo(std::vector<int>(lengths.rbegin(), lengths.rend()));
}

CompoundTypeInfo CompoundTypeInfo::createAggregateTypeInfo(int members) {
    return CompoundTypeInfoImpl::makeLevel(CompoundKind::Aggregate, members, {});
}

CompoundTypeInfo CompoundTypeInfo::createAggregateTypeInfo(const AggregateTypeSpec &record, bool withDecorations) {
    return internal::ShapeReader(withDecorations).readRecord(record).value_or(CompoundTypeInfo());
}

CompoundTypeInfo CompoundTypeInfo::createFromValue(const PureValueRef &type) {
    return type ? internal::ShapeReader(true).read(type).value_or(CompoundTypeInfo()) : CompoundTypeInfo();
}

bool CompoundTypeInfo::topLevelIs(CompoundKind kind) const { return valid() && mImpl->kind() == kind; }

CompoundTypeInfo CompoundTypeInfo::getLevelBelow(int element) const {
    return valid() ? mImpl->below(element) : CompoundTypeInfo();
}

void CompoundTypeInfo::cloneImplIfRequired() {
    if (mImpl.use_count() > 1) {
        mImpl = std::make_shared<CompoundTypeInfoImpl>(*mImpl);
    }
}

void CompoundTypeInfo::setLevelBelow(int element, const CompoundTypeInfo &below) {
    ORVO_ASSERT(valid(), "a level below an invalid compound type");
    if (mImpl->below(element).mImpl == below.mImpl) {
        return;
    }
    // `below` may be this very info, which is another one after the change.
    const CompoundTypeInfo kept = below;
    cloneImplIfRequired();
    if (!mImpl->setBelow(element, kept)) {
        mImpl = nullptr;
    }
}

void CompoundTypeInfo::setLevelBelow(const const_iterator &leaf, const CompoundTypeInfo &below) {
    ORVO_ASSERT(valid(), "a level below an invalid compound type");
    const CompoundTypeInfo kept = below;
    if (leaf.isShallow()) {
        ORVO_ASSERT(!mImpl->below(leaf.position()).valid(), "this element has a level below already");
        setLevelBelow(leaf.position(), kept);
    } else {
        setLeafBelow(leaf.position(), kept);
    }
}

void CompoundTypeInfo::setLeafBelow(int leaf, const CompoundTypeInfo &below) {
    const int element = mImpl->elementOf(leaf);
    CompoundTypeInfo inner = mImpl->below(element);
    if (!inner.valid()) {
        setLevelBelow(element, below);
        return;
    }
    inner.setLeafBelow(leaf, below);
    if (inner.valid()) {
        setLevelBelow(element, inner);
    } else {
        mImpl = nullptr;
    }
}

std::size_t CompoundTypeInfo::size() const { return valid() ? static_cast<std::size_t>(mImpl->leaves()) : 0; }

std::size_t CompoundTypeInfo::size_shallow() const { return valid() ? static_cast<std::size_t>(mImpl->size()) : 0; }

CompoundDecorIndex CompoundTypeInfo::getIndexShallow(int element) const {
    ORVO_ASSERT(valid(), "a path into an invalid compound type");
    return mImpl->fromIntIndex(element, true);
}

CompoundDecorIndex CompoundTypeInfo::getIndexDeep(int leaf) const {
    ORVO_ASSERT(valid(), "a path into an invalid compound type");
    return mImpl->fromIntIndex(leaf, false);
}

} // namespace orvo
