// Constraints of copied models. A copy comes with the records and ends of its source as they stood, so that ids would
// clash and chains would name instances of the source. A constraint may also reach beyond what was copied: its record
// stands at the root of the schedule, an end in a model below that source and copy share, or beside the source. It goes
// with the copy if the copy, or an instance below it, has a part in it and both of its ends are found.
#include "orvo/cloneconstraints.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace orvo::internal {

namespace {

using ModelMap = std::unordered_map<const Model *, Model *>;
enum Ends : unsigned int { kNoEnd = 0, kFromEnd = 1, kToEnd = 2, kBothEnds = 3 };

/// What happens to one id of the sources.
struct Carried {
    unsigned int ends = kNoEnd;
    /// The model whose record it is: a source, or one that was not copied.
    Model *holder = nullptr;
    ValueRef record;
    /// Null until it is known that the constraint goes along.
    PureValueRef fresh;
};

constexpr std::pair<EntryElement, Ends> kSlots[] = {{kEntryFrom, kFromEnd}, {kEntryTo, kToEnd}};

/// Calls `visit(id, end)` for each id of an entry.
template <class Visit> void forEachId(const TupleValue &entry, Visit visit) {
    for (const auto &[slot, end] : kSlots) {
        if (const TupleValue *ids = asTuple(entry.at(slot).get_ptr())) {
            for (const ValueRef &id : *ids) {
                visit(id, end);
            }
        }
    }
}

/// The record, null if it has no id.
const TupleValue *asRecord(const Value *value) {
    const TupleValue *record = asTuple(value);
    const bool hasId = record != nullptr && record->size() > kRecordId;
    return hasId && isConstraintId(record->at(kRecordId).get_ptr()) ? record : nullptr;
}

/// Calls `visit(record, value)` for each record that has an id.
template <class Visit> void forEachRecord(const Model &model, Visit visit) {
    if (const TupleValue *records = asTuple(model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS))) {
        for (const ValueRef &value : *records) {
            if (const TupleValue *record = asRecord(value.get_ptr())) {
                visit(*record, value);
            }
        }
    }
}

/// Calls `visit(entry)` for each well formed entry of a block.
template <class Visit> void forEachEntry(const Block &block, Visit visit) {
    for (const PointTable &table : kPointTables) {
        if (const TupleValue *entries = asTuple(block.findParam(*table.param))) {
            for (const ValueRef &value : *entries) {
                if (const TupleValue *entry = asEntry(value.get_ptr())) {
                    visit(*entry);
                }
            }
        }
    }
}

ValueRef withElement(const TupleValue &tuple, std::size_t index, const ValueRef &element) {
    std::vector<ValueRef> elements = elementsOf(&tuple);
    elements[index] = element;
    return TupleValue::get(std::move(elements), tuple.context());
}

class ConstraintCarrier {
  public:
    ConstraintCarrier(const ModelCopies &copies, std::map<int, int> &ids)
        : mCopies(copies), mIdMap(ids), mSource(copies.front().first->getDesign()),
          mDestination(copies.front().second->getDesign()) {
        for (const auto &[source, copy] : copies) {
            mCopyOf.emplace(source, copy);
            mIsCopy.insert(copy);
        }
    }

    void carry() {
        pointAtCopiedRoots();
        collect();
        if (mOrder.empty()) {
            return;
        }
        findRecordsElsewhere();
        findEndsBelowAndBeside();
        number();
        for (const auto &[source, copy] : mCopies) {
            writeRecords(*copy);
            for (Block &block : *copy) {
                rewriteCopied(block);
            }
        }
        for (const ValueRef &id : mOrder) {
            addRecordElsewhere(mCarried.at(id.get_ptr()));
        }
        for (Block *block : mBeside) {
            rewriteBeside(*block);
        }
    }

  private:
    bool sameDesign() const { return &mSource == &mDestination; }

    /// A root in another design is none of the copy's.
    void pointAtCopiedRoots() {
        for (const auto &[source, copy] : mCopies) {
            const Model *root = Node::from<Model>((*copy)[A_SYNTH_ROOT_SCHEDULE_MODEL]);
            if (root == nullptr) {
                continue;
            }
            if (const auto hit = mCopyOf.find(root); hit != mCopyOf.end()) {
                copy->setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, *hit->second);
            } else if (!sameDesign()) {
                copy->setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, nullptr);
            }
        }
    }

    Carried &carried(const ValueRef &id) {
        const auto [known, isNew] = mCarried.try_emplace(id.get_ptr());
        if (isNew) {
            mOrder.push_back(id);
        }
        return known->second;
    }

    /// The ids that the copies bring, with the ends that hold in them.
    void collect() {
        for (const ModelCopies::value_type &pair : mCopies) {
            collectFrom(const_cast<Model &>(*pair.first), *pair.second);
        }
    }

    void collectFrom(Model &source, const Model &copy) {
        forEachRecord(copy, [&](const TupleValue &record, const ValueRef &value) {
            Carried &known = carried(record.at(kRecordId));
            known.holder = &source;
            known.record = value;
        });
        for (const Block &block : copy) {
            forEachEntry(block, [&](const TupleValue &entry) {
                const bool holds = static_cast<bool>(chainFor(entry.at(kEntryChain), copy));
                mAllHold = mAllHold && holds;
                forEachId(entry, [&](const ValueRef &id, Ends end) {
                    if (isConstraintId(id.get_ptr())) {
                        carried(id).ends |= holds ? end : kNoEnd;
                    }
                });
            });
        }
    }

    /// A design that gets copies of another has nothing else of their constraints.
    void findRecordsElsewhere() {
        if (!sameDesign()) {
            return;
        }
        for (Model &model : mDestination) {
            if (mIsCopy.count(&model) != 0 || mCopyOf.count(&model) != 0) {
                continue;
            }
            forEachRecord(model, [&](const TupleValue &record, const ValueRef &value) {
                const auto known = mCarried.find(record.at(kRecordId).get_ptr());
                if (known != mCarried.end() && known->second.holder == nullptr) {
                    known->second.holder = &model;
                    known->second.record = value;
                }
            });
        }
    }

    /// Walks the rest of the design only for a constraint that lacks an end.
    void findEndsBelowAndBeside() {
        const auto lacksEnd = [](const auto &entry) {
            return entry.second.holder != nullptr && entry.second.ends != kBothEnds;
        };
        if (!sameDesign() || std::find_if(mCarried.begin(), mCarried.end(), lacksEnd) == mCarried.end()) {
            return;
        }
        for (Model &model : mDestination) {
            if (mIsCopy.count(&model) != 0 || mCopyOf.count(&model) != 0) {
                continue;
            }
            for (Block &block : model) {
                lookBeside(block);
            }
        }
    }

    void lookBeside(Block &block) {
        bool touched = false;
        forEachEntry(block, [&](const TupleValue &entry) {
            const bool holds = static_cast<bool>(chainFor(entry.at(kEntryChain), block.getModel()));
            forEachId(entry, [&](const ValueRef &id, Ends end) {
                const auto known = mCarried.find(id.get_ptr());
                if (holds && known != mCarried.end()) {
                    known->second.ends |= end;
                    touched = true;
                }
            });
        });
        if (touched) {
            mBeside.push_back(&block);
        }
    }

    /// The chain with copies for sources, if it leads to the model; null where no instance of the copies is meant. For
    /// a model that was not copied, a chain without a source stays as it is.
    PureValueRef chainFor(const ValueRef &chain, const Model &model) {
        if (chain == A_TRUE) {
            return A_TRUE;
        }
        const auto [known, isNew] = mChains.try_emplace({chain.get_ptr(), &model});
        if (isNew) {
            const PureValueRef moved = moveChain(chain.get_ptr());
            known->second = chainLeadsTo(moved.get_ptr(), model) ? moved : PureValueRef();
        }
        return known->second;
    }

    PureValueRef moveChain(const Value *chain) {
        std::vector<ValueRef> links = elementsOf(chain);
        for (ValueRef &value : links) {
            const TupleValue *link = asTuple(value.get_ptr());
            const Model *model =
                link == nullptr || link->size() != 2 ? nullptr : mSource.getModel(PureValueRef(link->at(0)));
            if (const auto hit = mCopyOf.find(model); hit != mCopyOf.end()) {
                value = withElement(*link, 0, hit->second->getName());
            }
        }
        return PureValueRef(TupleValue::get(std::move(links), mDestination.getContext()));
    }

    PureValueRef getRemappedId(const ValueRef &id, std::int64_t &next) {
        Context *context = mDestination.getContext();
        const std::optional<std::int64_t> number = idNumber(id.get_ptr());
        const auto fits = [](std::int64_t value) { return value == static_cast<int>(value); };
        if (number && fits(*number)) {
            if (const auto known = mIdMap.find(static_cast<int>(*number)); known != mIdMap.end()) {
                return NumberValue::get(known->second, context);
            }
            if (fits(next)) {
                mIdMap.emplace(static_cast<int>(*number), static_cast<int>(next));
            }
        }
        return NumberValue::get(static_cast<long>(next++), context);
    }

    /// Fresh ids for what goes along, and the count behind them at the roots of the copies.
    void number() {
        // Partners that the map has already are used again, and nothing else gets them.
        std::int64_t next = nextConstraintId(mDestination);
        for (const auto &[old, partner] : mIdMap) {
            next = std::max(next, std::int64_t{partner} + 1);
        }
        bool any = false;
        // What a design of its own lacks, its copy lacks, too.
        const bool whole = mAllHold && mCopies.size() == mSource.size();
        for (const ValueRef &id : mOrder) {
            Carried &known = mCarried.at(id.get_ptr());
            if (whole || (known.holder != nullptr && known.ends == kBothEnds)) {
                known.fresh = getRemappedId(id, next);
                any = true;
            }
        }
        if (!any) {
            return;
        }
        const ValueRef count = NumberValue::get(static_cast<long>(next), mDestination.getContext());
        for (const auto &[source, copy] : mCopies) {
            if (copy->findParam(A_SYNTH_SCHEDULE_CONSTRAINTS) != nullptr) {
                copy->setParam(A_SCHEDULE_CONSTRAINT_COUNT, count);
            }
        }
        for (const ValueRef &id : mOrder) {
            const Carried &known = mCarried.at(id.get_ptr());
            if (known.fresh && known.holder != nullptr && mCopyOf.count(known.holder) == 0) {
                known.holder->setParam(A_SCHEDULE_CONSTRAINT_COUNT, count);
            }
        }
    }

    PureValueRef freshId(const ValueRef &id) const {
        const auto known = mCarried.find(id.get_ptr());
        return known == mCarried.end() ? PureValueRef() : known->second.fresh;
    }

    void writeRecords(Model &copy) {
        const TupleValue *records = asTuple(copy.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
        if (records == nullptr) {
            return;
        }
        std::vector<ValueRef> kept;
        for (const ValueRef &value : *records) {
            const TupleValue *record = asRecord(value.get_ptr());
            const PureValueRef fresh = record == nullptr ? PureValueRef() : freshId(record->at(kRecordId));
            if (fresh) {
                kept.push_back(withElement(*record, kRecordId, fresh));
            } else if (record == nullptr) {
                kept.push_back(value);
            }
        }
        copy.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS,
                      kept.empty() ? ValueRef() : ValueRef(TupleValue::get(std::move(kept), copy.getContext())));
    }

    void addRecordElsewhere(const Carried &known) {
        if (!known.fresh || known.holder == nullptr || mCopyOf.count(known.holder) != 0) {
            return;
        }
        std::vector<ValueRef> records = elementsOf(known.holder->findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
        const ValueRef record = withElement(*asTuple(known.record.get_ptr()), kRecordId, known.fresh);
        // A map of ids that serves several clones has brought the record before.
        if (std::find(records.begin(), records.end(), record) == records.end()) {
            records.push_back(record);
            known.holder->setParam(A_SYNTH_SCHEDULE_CONSTRAINTS,
                                   TupleValue::get(std::move(records), mDestination.getContext()));
        }
    }

    /// The ids of one slot under their fresh names, behind those in `kept`.
    ValueRef freshIds(const Value *ids, std::vector<ValueRef> kept) const {
        for (const ValueRef &id : elementsOf(ids)) {
            const PureValueRef fresh = freshId(id);
            if (fresh && std::find(kept.begin(), kept.end(), ValueRef(fresh)) == kept.end()) {
                kept.push_back(fresh);
            }
        }
        return TupleValue::get(std::move(kept), mDestination.getContext());
    }

    /// An entry for what goes along, null if nothing does.
    ValueRef freshEntry(const TupleValue &entry, const PureValueRef &chain) const {
        const ValueRef from = freshIds(entry.at(kEntryFrom).get_ptr(), {});
        const ValueRef to = freshIds(entry.at(kEntryTo).get_ptr(), {});
        if (asTuple(from.get_ptr())->size() + asTuple(to.get_ptr())->size() == 0) {
            return {};
        }
        return TupleValue::get(entry.at(kEntryKey), chain, from, to, mDestination.getContext());
    }

    /// What cannot be read stays as it is, for the check to find.
    void rewriteCopied(Block &block) {
        for (const PointTable &table : kPointTables) {
            const TupleValue *old = asTuple(block.findParam(*table.param));
            if (old == nullptr) {
                continue;
            }
            std::vector<ValueRef> entries;
            for (const ValueRef &value : *old) {
                const TupleValue *entry = asEntry(value.get_ptr());
                const PureValueRef chain =
                    entry == nullptr ? PureValueRef() : chainFor(entry->at(kEntryChain), block.getModel());
                const ValueRef fresh = chain ? freshEntry(*entry, chain) : ValueRef();
                if (fresh) {
                    entries.push_back(fresh);
                } else if (entry == nullptr) {
                    entries.push_back(value);
                }
            }
            setEntries(block, *table.param, std::move(entries));
        }
    }

    /// Where the chain is the same for source and copy, the entry gets the fresh ids beside its own; otherwise they go
    /// into an entry for the instance of the copy.
    void rewriteBeside(Block &block) {
        for (const PointTable &table : kPointTables) {
            std::vector<ValueRef> entries = elementsOf(block.findParam(*table.param));
            const std::size_t old = entries.size();
            for (std::size_t i = 0; i < old; ++i) {
                const ValueRef value = entries[i];
                const TupleValue *entry = asEntry(value.get_ptr());
                const PureValueRef chain =
                    entry == nullptr ? PureValueRef() : chainFor(entry->at(kEntryChain), block.getModel());
                if (!chain) {
                    continue;
                }
                if (chain == entry->at(kEntryChain)) {
                    std::vector<ValueRef> parts = elementsOf(entry);
                    for (const auto &[slot, end] : kSlots) {
                        parts[slot] = freshIds(entry->at(slot).get_ptr(), elementsOf(entry->at(slot).get_ptr()));
                    }
                    entries[i] = TupleValue::get(std::move(parts), mDestination.getContext());
                } else if (const ValueRef fresh = freshEntry(*entry, chain)) {
                    entries.push_back(fresh);
                }
            }
            if (old != 0) {
                setEntries(block, *table.param, std::move(entries));
            }
        }
    }

    static void setEntries(Block &block, const StaticString &param, std::vector<ValueRef> entries) {
        Context *context = block.getContext();
        block.setParam(param, entries.empty() ? ValueRef() : ValueRef(TupleValue::get(std::move(entries), context)));
    }

    struct PairHash {
        std::size_t operator()(const std::pair<const Value *, const Model *> &pair) const {
            return std::hash<const Value *>()(pair.first) * 31 + std::hash<const Model *>()(pair.second);
        }
    };

    const ModelCopies &mCopies;
    std::map<int, int> &mIdMap;
    const Design &mSource;
    Design &mDestination;
    ModelMap mCopyOf;
    std::unordered_set<const Model *> mIsCopy;
    std::unordered_map<const Value *, Carried> mCarried;
    /// The ids in the order in which they were met; keeps them alive.
    std::vector<ValueRef> mOrder;
    std::unordered_map<std::pair<const Value *, const Model *>, PureValueRef, PairHash> mChains;
    std::vector<Block *> mBeside;
    /// Whether every entry of the copies names an instance of theirs.
    bool mAllHold = true;
};

} // namespace

void carryConstraints(const ModelCopies &copies, std::map<int, int> &ids) {
    if (!copies.empty()) {
        ConstraintCarrier(copies, ids).carry();
    }
}

} // namespace orvo::internal
