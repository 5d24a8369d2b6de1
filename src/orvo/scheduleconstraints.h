// The form of latency constraints on the netlist, and what those who write, check and copy them share.
//
// On a model a tuple of records (id, relation, latency, modifiers...); on a block, for its ports and for its wires, a
// tuple of entries (key, `A_TRUE` or chain, ids of constraints that start here, ids of those that end here).
#pragma once

#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace orvo::internal {

/// The parameters of a block, and whether each is about ports.
struct PointTable {
    const StaticString *param;
    bool isPort;
};
inline constexpr std::array<PointTable, 2> kPointTables = {
    {{&A_SCHEDULE_CONSTRAINT_PORTS, true}, {&A_SCHEDULE_CONSTRAINT_WIRES, false}}};

/// The elements of an entry.
enum EntryElement : std::size_t { kEntryKey = 0, kEntryChain = 1, kEntryFrom = 2, kEntryTo = 3, kEntrySize = 4 };
/// The elements of a record that each has.
enum RecordElement : std::size_t { kRecordId = 0, kRecordRelation = 1, kRecordLatency = 2, kRecordSize = 3 };

/// Null for a value of another kind and for null.
const TupleValue *asTuple(const Value *value);
/// The elements, none for a value that is no tuple.
std::vector<ValueRef> elementsOf(const Value *value);
/// The entry, null if it is not a tuple of four elements.
const TupleValue *asEntry(const Value *value);
/// An integer.
bool isConstraintId(const Value *id);
/// The id as a machine number, none if it is no integer or does not fit.
std::optional<std::int64_t> idNumber(const Value *id);
/// One above the largest id of all models of the design, from 0.
std::int64_t nextConstraintId(const Design &design);
/// Whether a chain of (model name, block name) pairs leads through the design to the model.
bool chainLeadsTo(const Value *chain, const Model &model);

/// The model that a block of type `A_MODEL_BLOCK` refers to, else null.
Model *instantiatedModel(const Block &block);
/// The models that the blocks of `root` refer to, at any depth, `root` first, each once, in the order of meeting them.
std::vector<Model *> modelsBelow(Model *root);

} // namespace orvo::internal
