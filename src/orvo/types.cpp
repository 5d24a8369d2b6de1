// The arithmetic of types and their tuples.
#include <orvo/types.h>

#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvo {

namespace {

const TupleValue *asTuple(const Value *value) {
    return value != nullptr && internal::isKindOf<TupleValue>(value->kind()) ? static_cast<const TupleValue *>(value)
                                                                             : nullptr;
}

const NumberValue *asNumber(const Value *value) {
    return value != nullptr && value->kind() == CoreType::Number ? static_cast<const NumberValue *>(value) : nullptr;
}

/// A width as a tuple tells it; false for what is no width.
bool readWidth(const Value *value, int &width) {
    const NumberValue *number = asNumber(value);
    if (number == nullptr || !(std::abs(number->toDouble()) <= static_cast<double>(NumTypeSpec::kMaxWidth))) {
        return false;
    }
    // By way of the double, which knows what stands for zero.
    width = static_cast<int>(number->toDouble());
    return true;
}

/// One layer of a vector type: its length and what it stands around. Null if the value is no vector type: a part of a
/// lane is no length, nor is what an `int` does not hold.
const Value *peelVector(const Value *value, std::vector<int> &lengths) {
    const TupleValue *tuple = asTuple(value);
    if (tuple == nullptr || tuple->size() != 3 || !(tuple->at(0) == A_TYPE_VECTOR)) {
        return nullptr;
    }
    const NumberValue *length = asNumber(tuple->at(1).get_ptr());
    if (length == nullptr || !length->isInt()) {
        return nullptr;
    }
    lengths.push_back(length->toInt());
    return tuple->at(2).get_ptr();
}

/// Whether one of the vectors is none, for want of lanes.
bool hasEmptyVector(const std::vector<int> &lengths) {
    return std::any_of(lengths.begin(), lengths.end(), [](int length) { return length < 1; });
}

const Value *peelComplex(const Value *value) {
    const TupleValue *tuple = asTuple(value);
    return tuple != nullptr && tuple->size() == 2 && tuple->at(0) == A_TYPE_COMPLEX ? tuple->at(1).get_ptr() : nullptr;
}

PureValueRef wrapVectors(PureValueRef inner, const std::vector<int> &lengths, Context *context) {
    for (int length : lengths) {
        inner = PureTupleValue::get(A_TYPE_VECTOR, NumberValue::get(length, context), inner, context);
    }
    return inner;
}

/// False if the lists disagree where both have a dimension.
bool mergeLengths(std::vector<int> &mine, const std::vector<int> &theirs) {
    const std::size_t shared = std::min(mine.size(), theirs.size());
    if (!std::equal(mine.begin(), mine.begin() + static_cast<std::ptrdiff_t>(shared), theirs.begin())) {
        return false;
    }
    if (theirs.size() > mine.size()) {
        mine = theirs;
    }
    return true;
}

int lengthAt(const std::vector<int> &lengths, std::size_t dimension) {
    return dimension < lengths.size() ? lengths[dimension] : 1;
}

int lengthAtRev(const std::vector<int> &lengths, std::size_t dimension) {
    return dimension < lengths.size() ? lengths[lengths.size() - 1 - dimension] : 1;
}

const StaticString &tagOf(TypeClass typeClass) {
    switch (typeClass) {
    case TYPE_CLASS_UFIXED:
        return A_TYPE_UFIXED;
    case TYPE_CLASS_SFIXED:
        return A_TYPE_SFIXED;
    case TYPE_CLASS_SFLOAT_IEEE:
        return A_TYPE_SFLOAT_IEEE;
    case TYPE_CLASS_SFLOAT_FPLIB:
        return A_TYPE_SFLOAT_FPLIB;
    case TYPE_CLASS_INVALID:
        break;
    }
    ORVO_ASSERT(false, "an invalid type has no tag");
    return A_TYPE_UFIXED;
}

TypeClass classOf(const Value *tag) {
    if (tag == A_TYPE_UFIXED.get_ptr()) {
        return TYPE_CLASS_UFIXED;
    }
    if (tag == A_TYPE_SFIXED.get_ptr()) {
        return TYPE_CLASS_SFIXED;
    }
    if (tag == A_TYPE_SFLOAT_IEEE.get_ptr() || tag == A_TYPE_SFLOAT.get_ptr()) {
        return TYPE_CLASS_SFLOAT_IEEE;
    }
    return tag == A_TYPE_SFLOAT_FPLIB.get_ptr() ? TYPE_CLASS_SFLOAT_FPLIB : TYPE_CLASS_INVALID;
}

/// A signed type needs a bit more to hold an unsigned one of as many integer bits.
int signCorrection(const NumTypeSpec &a, const NumTypeSpec &b) {
    if (a.isSigned() == b.isSigned()) {
        return 0;
    }
    const NumTypeSpec &isSigned = a.isSigned() ? a : b;
    const NumTypeSpec &isUnsigned = a.isSigned() ? b : a;
    return isUnsigned.intBits() >= isSigned.intBits() ? 1 : 0;
}

} // namespace

NumTypeSpec NumTypeSpec::fixed(bool isSigned, int intBits, int fracBits) {
    return {isSigned ? TYPE_CLASS_SFIXED : TYPE_CLASS_UFIXED, intBits, fracBits};
}

NumTypeSpec NumTypeSpec::sfloatIEEE(int significand, int exponent) {
    return {TYPE_CLASS_SFLOAT_IEEE, significand, exponent};
}

NumTypeSpec NumTypeSpec::sfloatFPLib(int significand, int exponent) {
    return {TYPE_CLASS_SFLOAT_FPLIB, significand, exponent};
}

NumTypeSpec NumTypeSpec::bounded(TypeClass typeClass, std::int64_t first, std::int64_t second) {
    const auto fits = [](std::int64_t width) { return width >= -kMaxWidth && width <= kMaxWidth; };
    if (!fits(first) || !fits(second)) {
        return {};
    }
    return {typeClass, static_cast<int>(first), static_cast<int>(second)};
}

NumTypeSpec NumTypeSpec::typeOp(const NumTypeSpec &a, const NumTypeSpec &b, TypeOp op) {
    ORVO_ASSERT(op <= TYPE_OP_MUL, "an unknown operation on types");
    NumTypeSpec result;
    if (a.isFixed() && b.isFixed()) {
        const std::int64_t intBits = std::max(a.mFirst, b.mFirst);
        const std::int64_t fracBits = std::max(a.mSecond, b.mSecond);
        const bool either = a.isSigned() || b.isSigned();
        const TypeClass eitherClass = either ? TYPE_CLASS_SFIXED : TYPE_CLASS_UFIXED;
        switch (op) {
        case TYPE_OP_UNION:
            result = bounded(eitherClass, intBits + signCorrection(a, b), fracBits);
            break;
        case TYPE_OP_COMMON:
            result = bounded(a.isSigned() && b.isSigned() ? TYPE_CLASS_SFIXED : TYPE_CLASS_UFIXED, intBits, fracBits);
            break;
        case TYPE_OP_ADD:
            result = bounded(eitherClass, intBits + signCorrection(a, b) + 1, fracBits);
            break;
        case TYPE_OP_SUB:
            result = bounded(TYPE_CLASS_SFIXED, intBits + signCorrection(a, b) + 1, fracBits);
            break;
        case TYPE_OP_MUL:
            result = bounded(eitherClass, std::int64_t{a.mFirst} + b.mFirst, std::int64_t{a.mSecond} + b.mSecond);
            break;
        }
    } else if (a.isFloat() && b.isFloat()) {
        result = {a.isFloatFPLib() && b.isFloatFPLib() ? TYPE_CLASS_SFLOAT_FPLIB : TYPE_CLASS_SFLOAT_IEEE,
                  std::max(a.mFirst, b.mFirst), std::max(a.mSecond, b.mSecond)};
    }
    result.mergeDecors(a);
    result.mergeDecors(b);
    return result;
}

int NumTypeSpec::floatBits() const {
    return isFloatIEEE() ? mFirst + mSecond + 1 : isFloatFPLib() ? mFirst + mSecond + 3 : 0;
}

bool NumTypeSpec::canbeHardFP16() const {
    return isFloatIEEE() && ((mSecond == 5 && mFirst == 10) || (mSecond == 8 && (mFirst == 10 || mFirst == 7)));
}

bool NumTypeSpec::scalarEquals(const NumTypeSpec &other) const {
    return valid() && mClass == other.mClass && mFirst == other.mFirst && mSecond == other.mSecond;
}

bool NumTypeSpec::operator==(const NumTypeSpec &other) const {
    return mClass == other.mClass && mFirst == other.mFirst && mSecond == other.mSecond && mComplex == other.mComplex &&
           mVectors == other.mVectors;
}

int NumTypeSpec::vectorLength(std::size_t dimension) const { return valid() ? lengthAt(mVectors, dimension) : 0; }

int NumTypeSpec::vectorLengthRev(std::size_t dimension) const { return valid() ? lengthAtRev(mVectors, dimension) : 0; }

void NumTypeSpec::invalidate() {
    mClass = TYPE_CLASS_INVALID;
    mFirst = 0;
    mSecond = 0;
    mComplex = false;
    mVectors.clear();
}

void NumTypeSpec::setSigned(bool isSigned) {
    if (isFixed()) {
        mClass = isSigned ? TYPE_CLASS_SFIXED : TYPE_CLASS_UFIXED;
    } else if (isFloat() && !isSigned) {
        invalidate();
    }
}

void NumTypeSpec::setToFixed(bool isSigned, int intBits, int fracBits) {
    mClass = isSigned ? TYPE_CLASS_SFIXED : TYPE_CLASS_UFIXED;
    mFirst = intBits;
    mSecond = fracBits;
}

void NumTypeSpec::setFixedBits(int intBits, int fracBits) {
    if (!isFixed()) {
        invalidate();
        return;
    }
    mFirst = intBits;
    mSecond = fracBits;
}

void NumTypeSpec::setToFloat(TypeClass typeClass, int significand, int exponent) {
    ORVO_ASSERT(typeClass == TYPE_CLASS_SFLOAT_IEEE || typeClass == TYPE_CLASS_SFLOAT_FPLIB, "no class of a float");
    mClass = typeClass;
    mFirst = significand;
    mSecond = exponent;
}

bool NumTypeSpec::setComplex(bool isComplex) {
    if (valid()) {
        mComplex = isComplex;
    }
    return valid();
}

void NumTypeSpec::addVector(int length) {
    ORVO_ASSERT(length > 0, "a vector has at least one element");
    if (valid()) {
        mVectors.push_back(length);
    }
}

int NumTypeSpec::removeVector() {
    if (mVectors.empty()) {
        invalidate();
        return 0;
    }
    const int length = mVectors.back();
    mVectors.pop_back();
    return length;
}

void NumTypeSpec::setVectors(const NumTypeSpec &other) {
    if (!valid()) {
        return;
    }
    if (!other.valid()) {
        invalidate();
        return;
    }
    mVectors = other.mVectors;
}

void NumTypeSpec::mergeVectors(const NumTypeSpec &other) {
    if (valid() && (!other.valid() || !mergeLengths(mVectors, other.mVectors))) {
        invalidate();
    }
}

void NumTypeSpec::mergeDecors(const NumTypeSpec &other) {
    mergeVectors(other);
    setComplex(mComplex || other.mComplex);
}

void NumTypeSpec::requireBool(bool relaxed) {
    require(isFixed() && !mComplex && (relaxed || (mFirst == 1 && mSecond == 0)));
}

PureTupleValueRef NumTypeSpec::toValue(Context *context) const {
    if (!valid()) {
        return {};
    }
    PureValueRef type = PureTupleValue::get(tagOf(mClass), NumberValue::get(mFirst, context),
                                            NumberValue::get(mSecond, context), context);
    if (mComplex) {
        type = PureTupleValue::get(A_TYPE_COMPLEX, type, context);
    }
    return pureTupleVR(wrapVectors(std::move(type), mVectors, context));
}

void NumTypeSpec::readValue(const Value *value) {
    invalidate();
    std::vector<int> lengths;
    while (const Value *inner = peelVector(value, lengths)) {
        value = inner;
    }
    if (hasEmptyVector(lengths)) {
        return;
    }
    const Value *part = peelComplex(value);
    const bool isComplex = part != nullptr;
    const TupleValue *tuple = asTuple(isComplex ? part : value);
    if (tuple == nullptr || tuple->size() < 3) {
        return;
    }
    const TypeClass typeClass = classOf(tuple->at(0).get_ptr());
    int first = 0;
    int second = 0;
    if (typeClass == TYPE_CLASS_INVALID || !readWidth(tuple->at(1).get_ptr(), first) ||
        !readWidth(tuple->at(2).get_ptr(), second)) {
        return;
    }
    *this = {typeClass, first, second};
    mComplex = isComplex;
    mVectors.assign(lengths.rbegin(), lengths.rend());
}

NumTypeSpec NumTypeSpec::typeOfConstant(const Value *value, bool firstElementOnly) {
    if (const NumberValue *number = asNumber(value)) {
        const auto [intBits, fracBits] = number->getBitWidths();
        return fixed(number->isNegative(), intBits, fracBits);
    }
    const TupleValue *tuple = asTuple(value);
    if (tuple == nullptr || tuple->size() == 0) {
        return {};
    }
    const bool isVector = tuple->at(0) == A_VECTOR_ROLL_TAG;
    const bool isComplex = tuple->at(0) == A_COMPLEX_ROLL_TAG;
    const std::size_t first = isVector || isComplex ? 1 : 0;
    if (first >= tuple->size()) {
        return {};
    }
    NumTypeSpec type = typeOfConstant(tuple->at(first).get_ptr(), firstElementOnly);
    if (!firstElementOnly) {
        for (std::size_t i = first + 1; i < tuple->size(); ++i) {
            type.applyOp(typeOfConstant(tuple->at(i).get_ptr(), false), TYPE_OP_UNION);
        }
    }
    if (isVector) {
        type.addVector(static_cast<int>(tuple->size() - 1));
    }
    if (isComplex) {
        type.setComplex(true);
    }
    return type;
}

int VectorDecorSpec::vectorLength(std::size_t dimension) const { return mValid ? lengthAt(mVectors, dimension) : 0; }

int VectorDecorSpec::vectorLengthRev(std::size_t dimension) const {
    return mValid ? lengthAtRev(mVectors, dimension) : 0;
}

void VectorDecorSpec::invalidate() {
    mValid = false;
    mVectors.clear();
}

void VectorDecorSpec::setVector(int length) {
    mValid = true;
    mVectors.clear();
    if (length >= 1) {
        mVectors.push_back(length);
    }
}

void VectorDecorSpec::addVector(int length) {
    ORVO_ASSERT(length > 0, "a vector has at least one element");
    if (mValid) {
        mVectors.push_back(length);
    }
}

int VectorDecorSpec::removeVector() {
    if (mVectors.empty()) {
        invalidate();
        return 0;
    }
    const int length = mVectors.back();
    mVectors.pop_back();
    return length;
}

void VectorDecorSpec::mergeVectors(const VectorDecorSpec &other) {
    if (mValid && (!other.mValid || !mergeLengths(mVectors, other.mVectors))) {
        invalidate();
    }
}

std::size_t VectorDecorSpec::elementCount() const {
    if (!mValid) {
        return 0;
    }
    std::size_t count = 1;
    for (int length : mVectors) {
        const std::size_t factor = length > 0 ? static_cast<std::size_t>(length) : 0;
        if (__builtin_mul_overflow(count, factor, &count)) {
            return std::numeric_limits<std::size_t>::max();
        }
    }
    return count;
}

std::size_t VectorDecorSpec::elementIndex(const std::vector<int> &indices) const {
    if (!isVector()) {
        return 0;
    }
    ORVO_ASSERT(indices.size() == mVectors.size(), "an element has one index a dimension");
    std::size_t index = 0;
    std::size_t stride = 1;
    for (std::size_t k = 0; k < mVectors.size(); ++k) {
        index += static_cast<std::size_t>(indices[k]) * stride;
        stride *= static_cast<std::size_t>(mVectors[k]);
    }
    return index;
}

PureValueRef VectorDecorSpec::toValue(const PureValueRef &inner, Context *context) const {
    return mValid && inner ? wrapVectors(inner, mVectors, context) : PureValueRef();
}

void VectorDecorSpec::readValue(const Value *value, PureValueRef *inner) {
    invalidate();
    if (value == nullptr) {
        if (inner != nullptr) {
            *inner = nullptr;
        }
        return;
    }
    mValid = true;
    std::vector<int> lengths;
    while (value->kind() == CoreType::PureTuple) {
        const Value *below = peelVector(value, lengths);
        if (below == nullptr) {
            break;
        }
        value = below;
    }
    if (hasEmptyVector(lengths)) {
        invalidate();
        lengths.clear();
        value = nullptr;
    }
    mVectors.assign(lengths.rbegin(), lengths.rend());
    if (inner != nullptr) {
        *inner = PureValueRef(FromPtr<Value>(const_cast<Value *>(value)));
    }
}

void VectorDecorSpec::appendRolled(const Value *value) {
    mValid = true;
    for (;;) {
        if (value == nullptr) {
            invalidate();
            return;
        }
        const TupleValue *tuple = asTuple(value);
        if (tuple == nullptr || tuple->size() == 0 || !(tuple->at(0) == A_VECTOR_ROLL_TAG)) {
            return;
        }
        mVectors.push_back(static_cast<int>(tuple->size() - 1));
        value = tuple->maybeAt(1).get_ptr();
    }
}

void ComplexDecorSpec::readValue(const Value *value, PureValueRef &rest, Context *context) {
    const PureValueRef type(FromPtr<Value>(const_cast<Value *>(value)));
    PureValueRef inner;
    const VectorDecorSpec vectors(type, inner, context);
    if (!vectors.valid()) {
        invalidate();
        rest = nullptr;
        return;
    }
    const Value *part = peelComplex(inner.get_ptr());
    setToComplex(part != nullptr);
    rest = part == nullptr ? type : vectors.toValue(PureValueRef(FromPtr<Value>(const_cast<Value *>(part))), context);
}

PureValueRef ComplexDecorSpec::toValue(const PureValueRef &inner, Context *context) const {
    if (!valid() || !inner) {
        return {};
    }
    if (!isComplex()) {
        return inner;
    }
    PureValueRef below;
    const VectorDecorSpec vectors(inner, below, context);
    return vectors.toValue(PureTupleValue::get(A_TYPE_COMPLEX, below, context), context);
}

bool isAggregateType(const Value *type) {
    return type != nullptr && type->kind() == CoreType::PureTuple &&
           static_cast<const PureTupleValue *>(type)->maybeAt(0) == A_TYPE_AGGREGATE;
}

AggregateTypeSpec::Cache::Cache() = default;
AggregateTypeSpec::Cache::~Cache() = default;

const AggregateTypeSpec &AggregateTypeSpec::Cache::specOf(const PureValueRef &type) {
    std::unique_ptr<AggregateTypeSpec> &spec = mSpecs[type];
    if (spec == nullptr) {
        spec = std::make_unique<AggregateTypeSpec>(type);
    }
    return *spec;
}

AggregateTypeSpec::AggregateTypeSpec(const PureValueRef &type) {
    if (!type) {
        return;
    }
    if (!isAggregateType(type.get_ptr())) {
        mState = AGGREGATE_STATE_PLAIN;
        mTypes.push_back(type);
        return;
    }
    mState = AGGREGATE_STATE_AGGREGATE;
    const auto *tuple = static_cast<const PureTupleValue *>(type.get_ptr());
    for (std::size_t i = 1; i < tuple->size(); ++i) {
        mTypes.push_back(tuple->at(i));
    }
}

void AggregateTypeSpec::invalidate() {
    mState = AGGREGATE_STATE_INVALID;
    mTypes.clear();
}

void AggregateTypeSpec::beginAggregate() {
    mState = AGGREGATE_STATE_AGGREGATE;
    mTypes.clear();
}

void AggregateTypeSpec::addType(const PureValueRef &type) {
    if (!isAggregate() || !type) {
        invalidate();
        return;
    }
    mTypes.push_back(type);
}

void AggregateTypeSpec::endAggregate() {
    if (!isAggregate() || mTypes.empty()) {
        invalidate();
    }
}

bool AggregateTypeSpec::isNestedAggregateSpec() const {
    return isAggregate() && std::any_of(mTypes.begin(), mTypes.end(),
                                        [](const PureValueRef &type) { return isAggregateType(type.get_ptr()); });
}

std::size_t AggregateTypeSpec::getFlatSize(Cache *cache) const {
    if (!isAggregate()) {
        return 0;
    }
    if (cache != nullptr) {
        if (const auto known = cache->mFlatSizes.find(mTypes); known != cache->mFlatSizes.end()) {
            return known->second;
        }
    }
    std::size_t size = 0;
    for (const PureValueRef &type : mTypes) {
        if (!isAggregateType(type.get_ptr())) {
            ++size;
        } else if (cache != nullptr) {
            size += cache->specOf(type).getFlatSize(cache);
        } else {
            size += AggregateTypeSpec(type).getFlatSize(nullptr);
        }
    }
    if (cache != nullptr) {
        cache->mFlatSizes.emplace(mTypes, size);
    }
    return size;
}

PureValueRef AggregateTypeSpec::toValue(Context *context) const {
    switch (mState) {
    case AGGREGATE_STATE_INVALID:
        return {};
    case AGGREGATE_STATE_PLAIN:
        return mTypes.front();
    case AGGREGATE_STATE_AGGREGATE:
        break;
    }
    std::vector<PureValueRef> elements{A_TYPE_AGGREGATE};
    elements.insert(elements.end(), mTypes.begin(), mTypes.end());
    return PureTupleValue::get(elements, context);
}

int bitWidthU(unsigned int value) { return value == 0 ? 1 : 32 - __builtin_clz(value); }

int bitWidth(int value) { return bitWidth(static_cast<long>(value)); }

int bitWidth(long value) {
    const auto bits = static_cast<unsigned long>(value);
    const unsigned long magnitude = value < 0 ? 0 - bits : bits;
    const int width = magnitude == 0 ? 1 : 64 - __builtin_clzl(magnitude);
    return width + (value < 0 ? 1 : 0);
}

int addrWidth(unsigned int count) { return bitWidthU(count - 1); }

namespace {

/// Records may stand inside each other more often than calls can.
std::string readableText(const Value *type, std::size_t depth) {
    if (type == nullptr) {
        return "?";
    }
    if (depth > limits::kTupleDepth) {
        return "...";
    }
    std::vector<int> lengths;
    const Value *inner = type;
    while (const Value *below = peelVector(inner, lengths)) {
        inner = below;
    }
    std::string text;
    for (int length : lengths) {
        text += "[" + std::to_string(length) + "]";
    }
    text += text.empty() ? "" : " ";
    if (isAggregateType(inner)) {
        text += "{";
        const auto *tuple = static_cast<const PureTupleValue *>(inner);
        for (std::size_t i = 1; i < tuple->size(); ++i) {
            text += (i == 1 ? "" : ", ") + readableText(tuple->at(i).get_ptr(), depth + 1);
        }
        return text + "}";
    }
    const Value *part = peelComplex(inner);
    if (part != nullptr) {
        text += "complex ";
        inner = part;
    }
    const NumTypeSpec spec(ValueRef(FromPtr<Value>(const_cast<Value *>(inner))), nullptr);
    if (spec.isFixed()) {
        return text + (spec.isSigned() ? "s" : "u") + std::to_string(spec.intBits()) + "." +
               std::to_string(spec.fracBits());
    }
    if (spec.isFloat()) {
        return text + (spec.isFloatIEEE() ? "float(" : "fplib(") + std::to_string(spec.significandWidth()) + "," +
               std::to_string(spec.exponentWidth()) + ")";
    }
    return text + inner->toString();
}

} // namespace

std::string readableType(const Value *type) { return readableText(type, 0); }

} // namespace orvo
