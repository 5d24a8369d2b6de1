// What each block type costs: one table of all of them.
#pragma once

#include "generator/primitive.h"

#include <span>

namespace orvo::generator {

enum class EstimateKind {
    /// By the row's formula.
    Estimated,
    /// Costs nothing, for the row's reason.
    Free,
    /// Stands for logic that is not known here: not counted, for the row's reason.
    Unknown
};

struct EstimateRow {
    const StaticString *type;
    EstimateKind kind;
    /// Null unless estimated.
    Usage (*estimate)(const Primitive &);
    /// The formula in words, or the reason.
    const char *text;
};

ORVO_API std::span<const EstimateRow> estimateRows();
/// Null for a type that has none.
ORVO_API const EstimateRow *findEstimateRow(const Value *type);

/// What a block costs; nothing for one that cannot be estimated: of an unknown type, or with ends of unknown types.
ORVO_API std::optional<Usage> estimateBlock(const Primitive &block);

} // namespace orvo::generator
