// Reading types into trees of scalars.
#include "sim/signaltype.h"

#include <limits>

namespace orvo::sim {

namespace {

/// Beyond this a design has no place in memory.
constexpr std::uint64_t kMostLeaves = std::uint64_t{1} << 24;

ScalarType scalarOf(const NumTypeSpec &spec) {
    if (spec.isFloat()) {
        const auto width = static_cast<std::uint32_t>(spec.floatBits());
        const auto exponent = static_cast<std::uint32_t>(spec.exponentWidth());
        const auto significand = static_cast<std::uint32_t>(spec.significandWidth());
        return {width, 0, false, true, exponent, width - 1 - exponent - significand};
    }
    return {static_cast<std::uint32_t>(std::max(spec.fixedBits(), 0)), spec.fracBits(), spec.isSigned(), false};
}

} // namespace

void appendScalars(const SignalType &type, std::vector<ScalarType> &scalars) {
    for (std::uint32_t lane = 0; lane < type.lanes(); ++lane) {
        for (const SignalType *field : type.fields) {
            appendScalars(*field, scalars);
        }
        if (!type.isRecord()) {
            scalars.insert(scalars.end(), type.isComplex ? 2 : 1, type.scalar);
        }
    }
}

const SignalType *SignalTypes::of(const PureValueRef &value) {
    if (!value) {
        return nullptr;
    }
    const auto [at, isNew] = mKnown.try_emplace(value.get_ptr(), nullptr);
    if (isNew) {
        mKept.push_back(value);
        // A record reads its fields through here, so the place may have moved.
        std::unique_ptr<SignalType> read = this->read(value);
        return (mKnown[value.get_ptr()] = std::move(read)).get();
    }
    return at->second.get();
}

std::unique_ptr<SignalType> SignalTypes::read(const PureValueRef &value) {
    auto type = std::make_unique<SignalType>();
    PureValueRef inner;
    const VectorDecorSpec vectors(value, inner, mContext);
    if (value && !vectors.valid()) {
        return nullptr;
    }
    std::uint64_t leaves = 1;
    if (vectors.valid()) {
        for (std::uint32_t i = 0; i < vectors.vectorDepth(); ++i) {
            type->dims.push_back(static_cast<std::uint32_t>(vectors.vectorLengthRev(i)));
            leaves = std::min(leaves * type->dims.back(), kMostLeaves + 1);
        }
    }
    const PureValueRef element = vectors.valid() ? inner : value;
    const AggregateTypeSpec record(element);
    if (record.isAggregate()) {
        std::uint64_t fields = 0;
        for (std::size_t i = 0; i < record.size(); ++i) {
            const SignalType *field = of(record.at(i));
            if (field == nullptr) {
                return nullptr;
            }
            fields += field->leaves;
            type->fields.push_back(field);
        }
        leaves *= fields;
        type->element = static_cast<std::uint32_t>(fields);
    } else {
        type->spec.setToValue(value, mContext);
        // Wider exponents than these fit no number of the library that computes them.
        const bool isTooWide =
            type->spec.isFloat() &&
            (type->spec.exponentWidth() < 2 || type->spec.exponentWidth() > 30 || type->spec.significandWidth() < 1);
        if (!type->spec.valid() || isTooWide) {
            return nullptr;
        }
        type->isComplex = type->spec.isComplex();
        type->scalar = scalarOf(type->spec);
        type->element = type->isComplex ? 2 : 1;
        leaves *= type->element;
    }
    if (leaves == 0 || leaves > kMostLeaves) {
        return nullptr;
    }
    type->leaves = static_cast<std::uint32_t>(leaves);
    return type;
}

const SignalType *SignalTypes::inner(const SignalType &type) {
    if (type.dims.empty()) {
        return nullptr;
    }
    std::unique_ptr<SignalType> &made = mInner[&type];
    if (made == nullptr) {
        made = std::make_unique<SignalType>(type);
        made->leaves /= type.dims.front();
        made->dims.erase(made->dims.begin());
        if (!made->isRecord()) {
            made->spec.removeVector();
        }
    }
    return made.get();
}

} // namespace orvo::sim
