// Gathering latency constraints at the roots of schedules, and the strict check of their form and of what they refer
// to.
#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/latencyconstraints.h>
#include <orvo/logging.h>
#include <orvo/modelkinds.h>
#include <orvo/orvoutils.h>
#include <orvo/wire.h>

#include <algorithm>
#include <atomic>
#include <unordered_map>

namespace orvo {

namespace internal {

const TupleValue *asTuple(const Value *value) {
    const bool isTuple = value != nullptr && (value->kind() == CoreType::Tuple || value->kind() == CoreType::PureTuple);
    return isTuple ? static_cast<const TupleValue *>(value) : nullptr;
}

std::vector<ValueRef> elementsOf(const Value *value) {
    const TupleValue *tuple = asTuple(value);
    return tuple == nullptr ? std::vector<ValueRef>() : std::vector<ValueRef>(tuple->begin(), tuple->end());
}

const TupleValue *asEntry(const Value *value) {
    const TupleValue *tuple = asTuple(value);
    return tuple != nullptr && tuple->size() == kEntrySize ? tuple : nullptr;
}

bool isConstraintId(const Value *id) {
    return id != nullptr && id->kind() == CoreType::Number && static_cast<const NumberValue *>(id)->isInteger();
}

namespace {

/// Numbers are exact up to here, and beyond.
constexpr std::int64_t kIdBound = 1000000000000000;

/// The start of the longest run of numbers below the bound that are no ids, for designs in which one stands at its end.
std::int64_t freeConstraintIds(std::vector<std::int64_t> used) {
    std::sort(used.begin(), used.end());
    used.push_back(kIdBound);
    std::int64_t start = 0;
    std::int64_t longest = 0;
    std::int64_t next = 0;
    for (const std::int64_t id : used) {
        if (id - next > longest) {
            start = next;
            longest = id - next;
        }
        next = std::max(next, id + 1);
    }
    return start;
}

} // namespace

std::optional<std::int64_t> idNumber(const Value *id) {
    if (!isConstraintId(id)) {
        return {};
    }
    const auto *number = static_cast<const NumberValue *>(id);
    if (!(number->toDouble() <= kIdBound) || !(number->toDouble() >= -kIdBound)) {
        return {};
    }
    return number->toInt64(0);
}

std::int64_t nextConstraintId(const Design &design) {
    std::int64_t next = 0;
    std::vector<std::int64_t> used;
    // One at the bound leaves no room to count on.
    const auto take = [&next](std::int64_t least) {
        if (least < kIdBound) {
            next = std::max(next, least);
        }
    };
    bool isFull = false;
    for (const Model &model : design) {
        take(idNumber(model.findParam(A_SCHEDULE_CONSTRAINT_COUNT)).value_or(0));
        const TupleValue *records = asTuple(model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
        if (records == nullptr) {
            continue;
        }
        for (const ValueRef &value : *records) {
            const TupleValue *record = asTuple(value.get_ptr());
            if (record != nullptr && record->size() > kRecordId) {
                const std::int64_t id = idNumber(record->at(kRecordId).get_ptr()).value_or(-1);
                used.push_back(id);
                take(id + 1);
                isFull = isFull || id == kIdBound - 1;
            }
        }
    }
    return isFull ? freeConstraintIds(std::move(used)) : next;
}

bool chainLeadsTo(const Value *chain, const Model &model) {
    const TupleValue *links = asTuple(chain);
    if (links == nullptr || links->size() == 0) {
        return false;
    }
    const Design &design = model.getDesign();
    const Model *expected = nullptr;
    for (const ValueRef &value : *links) {
        const TupleValue *link = asTuple(value.get_ptr());
        if (link == nullptr || link->size() != 2) {
            return false;
        }
        const Model *at = design.getModel(PureValueRef(link->at(0)));
        if (at == nullptr || (expected != nullptr && at != expected)) {
            return false;
        }
        const Block *block = at->getBlock(PureValueRef(link->at(1)));
        expected = block == nullptr ? nullptr : instantiatedModel(*block);
        if (expected == nullptr) {
            return false;
        }
    }
    return expected == &model;
}

} // namespace internal

using namespace internal;

namespace {

std::atomic<bool> gStrictScheduleConstraints{false};

/// How often a model is referred to.
struct References {
    unsigned long all = 0;
    unsigned long inlined = 0;
};
using ReferenceMap = std::unordered_map<const Model *, References>;

ReferenceMap countReferences(const Design &design) {
    ReferenceMap references;
    for (const Model &model : design) {
        for (const Block &block : model) {
            if (const Model *below = instantiatedModel(block)) {
                References &count = references[below];
                ++count.all;
                count.inlined += block.findParam(A_INLINE_SCHEDULE) == A_TRUE.get_ptr() ? 1 : 0;
            }
        }
    }
    return references;
}

/// The models that are scheduled with this one, at all levels, top down; they form a tree, since each that is taken has
/// one reference.
std::vector<Model *> inlinedBelow(Model &root, const ReferenceMap &references) {
    std::vector<Model *> found;
    const auto look = [&](Model &model) {
        for (Block &block : model) {
            Model *below = instantiatedModel(block);
            if (below != nullptr && block.findParam(A_INLINE_SCHEDULE) == A_TRUE.get_ptr() &&
                references.at(below).all == 1) {
                found.push_back(below);
            }
        }
    };
    look(root);
    for (std::size_t i = 0; i < found.size(); ++i) {
        look(*found[i]);
    }
    return found;
}

void gatherUpInto(Model &root, const std::vector<Model *> &inlined, std::int64_t count) {
    std::vector<ValueRef> records = elementsOf(root.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
    const std::size_t own = records.size();
    for (Model *model : inlined) {
        if (Node::from<Model>((*model)[A_SYNTH_ROOT_SCHEDULE_MODEL]) != &root) {
            model->setParam(A_SYNTH_ROOT_SCHEDULE_MODEL, root);
        }
        const std::vector<ValueRef> below = elementsOf(model->findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
        records.insert(records.end(), below.begin(), below.end());
        if (!below.empty()) {
            model->setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, nullptr);
        }
    }
    if (records.size() > own) {
        Context *context = root.getContext();
        root.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, TupleValue::get(std::move(records), context));
        root.setParam(A_SCHEDULE_CONSTRAINT_COUNT, NumberValue::get(static_cast<long>(count), context));
    }
}

/// What is known of an id, as bits.
enum IdFlags : unsigned int {
    kRelationFrom = 1,
    kRelationTo = 2,
    kLinkFrom = 4,
    kLinkTo = 8,
    kEnds = kRelationFrom | kRelationTo | kLinkFrom | kLinkTo,
    kRecorded = 16
};

bool isRelation(const Value *relation) {
    const StaticString *const relations[] = {&A_SYNTH_LATENCY_CONSTRAINT_LT, &A_SYNTH_LATENCY_CONSTRAINT_LE,
                                             &A_SYNTH_LATENCY_CONSTRAINT_EQ, &A_SYNTH_LATENCY_CONSTRAINT_GE,
                                             &A_SYNTH_LATENCY_CONSTRAINT_GT};
    return std::any_of(std::begin(relations), std::end(relations),
                       [relation](const StaticString *known) { return known->get_ptr() == relation; });
}

/// One check of one design. Records are read first, so that an end is known as that of a relation or of a link. Ids and
/// chains are interned, and stand here by their addresses.
class ConstraintChecker {
  public:
    explicit ConstraintChecker(const Design &design) : mDesign(design) {}

    bool check() {
        for (const Model &model : mDesign) {
            readRecords(model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
        }
        for (const Model &model : mDesign) {
            for (const Block &block : model) {
                for (const PointTable &table : kPointTables) {
                    readEntries(block, block.findParam(*table.param), table.isPort);
                }
            }
        }
        for (const Record &record : mRecords) {
            checkEnds(record);
        }
        for (const auto &[id, block] : mUnrecorded) {
            report(msg::error::CONSTRAINT_BACKREF_DANGLING, log::p("constraint", ref(id)) % of(*block));
        }
        return mConsistent;
    }

  private:
    struct IdState {
        unsigned int flags = 0;
        bool isLink = false;
    };
    struct Record {
        const Value *id;
        const Value *relation;
        bool repeated;
    };
    /// What is found out once for all entries with one chain in one model.
    enum class ChainState : std::uint8_t { Good, Inconsistent, DisallowedRoot };
    struct PairHash {
        std::size_t operator()(const std::pair<const Value *, const Model *> &pair) const {
            return std::hash<const Value *>()(pair.first) * 31 + std::hash<const Model *>()(pair.second);
        }
    };

    static ValueRef ref(const Value *value) { return FromPtr<Value>(const_cast<Value *>(value)); }
    static log::LogParams of(const Block &block) { return log::p("block", block.value()); }
    void report(msg::Error tag, const log::LogParams &params) {
        log::msg(tag, params);
        mConsistent = false;
    }

    void readRecords(const Value *records) {
        if (records == nullptr) {
            return;
        }
        const TupleValue *tuple = asTuple(records);
        if (tuple == nullptr) {
            report(msg::error::CONSTRAINT_TUPLE_TOO_SHORT, log::p("constraint", ref(records)));
            return;
        }
        for (const ValueRef &record : *tuple) {
            readRecord(record);
        }
    }

    void readRecord(const ValueRef &value) {
        const TupleValue *record = asTuple(value.get_ptr());
        const ValueRef id = record == nullptr ? ValueRef() : record->maybeAt(kRecordId);
        const bool isShort = record == nullptr || record->size() < kRecordSize;
        if (isShort) {
            report(msg::error::CONSTRAINT_TUPLE_TOO_SHORT, log::p("constraint", value));
        }
        if (!isConstraintId(id.get_ptr())) {
            if (!isShort) {
                report(msg::error::INVALID_CONSTRAINT_ID, log::p("constraint", value));
            }
            return;
        }
        IdState &state = mIds[id.get_ptr()];
        const bool repeated = (state.flags & kRecorded) != 0;
        state.flags |= kRecorded;
        if (isShort) {
            return;
        }
        const Value *relation = record->at(kRecordRelation).get_ptr();
        if (repeated) {
            report(msg::error::CONSTRAINT_ID_REPEATED, log::p("constraint", id));
        } else {
            state.isLink = relation == A_SYNTH_SCHEDULE_LINK.get_ptr();
        }
        mRecords.push_back({id.get_ptr(), relation, repeated});
        checkLatency(id, record->at(kRecordLatency).get_ptr());
    }

    void checkLatency(const ValueRef &id, const Value *latency) {
        const bool isNumber = latency != nullptr && latency->kind() == CoreType::Number;
        const auto *number = isNumber ? static_cast<const NumberValue *>(latency) : nullptr;
        if (!isNumber || (number->isSpecial() && !number->isInteger())) {
            report(msg::error::CONSTRAINT_LATENCY_NAN, log::p("constraint", id));
        } else if (!number->isInteger()) {
            report(msg::error::CONSTRAINT_LATENCY_NOT_INTEGER, log::p("constraint", id));
        }
    }

    void readEntries(const Block &block, const Value *entries, bool isPort) {
        if (entries == nullptr) {
            return;
        }
        const TupleValue *tuple = asTuple(entries);
        if (tuple == nullptr) {
            report(msg::error::CONSTRAINT_POINT_ENTRY_INCORRECT, log::p("netpoint", ref(entries)) % of(block));
            return;
        }
        for (const ValueRef &value : *tuple) {
            if (const TupleValue *entry = asEntry(value.get_ptr())) {
                checkPoint(block, *entry, value, isPort);
                checkChain(block, *entry, value);
                readIds(block, *entry, value);
            } else {
                report(msg::error::CONSTRAINT_POINT_ENTRY_INCORRECT, log::p("netpoint", value) % of(block));
            }
        }
    }

    static log::LogParams pointOf(const Block &block, const ValueRef &entry) {
        return log::p("netpoint", entry) % of(block);
    }

    void checkPoint(const Block &block, const TupleValue &entry, const ValueRef &value, bool isPort) {
        const Value *type = block.type();
        const PureValueRef key(entry.at(kEntryKey));
        if (!latencyConstraintAllowedOnBlock(type)) {
            report(msg::error::NETPOINT_DISALLOWED_ON_BLOCK, log::p("blocktype", ref(type)) % pointOf(block, value));
        } else if (isPort ? block.getPort(key) == nullptr : block.getWire(key) == nullptr) {
            report(isPort ? msg::error::CONSTRAINT_PORT_NOT_FOUND : msg::error::CONSTRAINT_WIRE_NOT_FOUND,
                   log::p("port", key) % pointOf(block, value));
        } else if (!latencyConstraintAllowed(type, isPort)) {
            report(isPort ? msg::error::NETPOINT_DISALLOWED_ON_PORTS : msg::error::NETPOINT_DISALLOWED_ON_WIRES,
                   log::p("blocktype", ref(type)) % log::p("port", key) % pointOf(block, value));
        }
    }

    void checkChain(const Block &block, const TupleValue &entry, const ValueRef &value) {
        const ValueRef &chain = entry.at(kEntryChain);
        if (chain == A_TRUE) {
            return;
        }
        const Model &model = block.getModel();
        const auto [known, isNew] = mChains.try_emplace({chain.get_ptr(), &model}, ChainState::Good);
        if (isNew) {
            known->second = stateOf(chain.get_ptr(), model);
        }
        if (known->second == ChainState::Inconsistent) {
            report(msg::error::REFCHAIN_INCONSISTENT, pointOf(block, value));
        } else if (known->second == ChainState::DisallowedRoot) {
            report(msg::error::NETPOINT_IN_DISALLOWED_MODEL, pointOf(block, value));
        }
    }

    ChainState stateOf(const Value *chain, const Model &model) {
        if (!chainLeadsTo(chain, model)) {
            return ChainState::Inconsistent;
        }
        const TupleValue *first = asTuple(asTuple(chain)->at(0).get_ptr());
        const Model &root = *mDesign.getModel(PureValueRef(first->at(0)));
        const auto [known, isNew] = mRoots.try_emplace(&root, false);
        if (isNew) {
            known->second = isScheduleRoot(root);
        }
        return known->second ? ChainState::Good : ChainState::DisallowedRoot;
    }

    void readIds(const Block &block, const TupleValue &entry, const ValueRef &value) {
        bool any = false;
        for (const std::size_t slot : {std::size_t{kEntryFrom}, std::size_t{kEntryTo}}) {
            const Value *ids = entry.at(slot).get_ptr();
            const TupleValue *tuple = asTuple(ids);
            if (tuple == nullptr) {
                if (ids != nullptr) {
                    // Nobody else reads such a thing as an id.
                    any = true;
                    reportId(block, ref(ids), value);
                }
                continue;
            }
            for (const ValueRef &id : *tuple) {
                any = true;
                readId(block, id, value, slot);
            }
        }
        if (!any) {
            report(msg::error::BACKREF_CONSTRAINTS_MISSING, pointOf(block, value));
        }
    }

    void reportId(const Block &block, const ValueRef &id, const ValueRef &entry) {
        report(msg::error::INVALID_CONSTRAINT_ID, log::p("constraint", id) % pointOf(block, entry));
    }

    void readId(const Block &block, const ValueRef &id, const ValueRef &entry, std::size_t slot) {
        if (!isConstraintId(id.get_ptr())) {
            reportId(block, id, entry);
            return;
        }
        const auto [known, isNew] = mIds.try_emplace(id.get_ptr());
        if (isNew) {
            mUnrecorded.emplace_back(id.get_ptr(), &block);
        }
        IdState &state = known->second;
        const unsigned int from = state.isLink ? kLinkFrom : kRelationFrom;
        const unsigned int to = state.isLink ? kLinkTo : kRelationTo;
        state.flags |= slot == kEntryFrom ? from : to;
    }

    void checkEnds(const Record &record) {
        const unsigned int ends = mIds.at(record.id).flags & kEnds;
        const log::LogParams params = log::p("constraint", ref(record.id)) % log::p("relation", ref(record.relation));
        if (ends == (kRelationFrom | kRelationTo)) {
            if (!isRelation(record.relation)) {
                report(msg::error::CONSTRAINT_RELATION_INVALID, params);
            }
        } else if (ends == (kLinkFrom | kLinkTo)) {
            if (record.relation != A_SYNTH_SCHEDULE_LINK.get_ptr()) {
                report(msg::error::SCHEDULE_LINK_EXPECTED, params);
            }
        } else if (!record.repeated) {
            report(msg::error::CONSTRAINT_NETPOINTS_INCOMPATIBLE, params % log::p("flagBits", ends));
        }
    }

    const Design &mDesign;
    bool mConsistent = true;
    std::unordered_map<const Value *, IdState> mIds;
    std::vector<Record> mRecords;
    /// Ids without a record and the blocks that name them first.
    std::vector<std::pair<const Value *, const Block *>> mUnrecorded;
    std::unordered_map<std::pair<const Value *, const Model *>, ChainState, PairHash> mChains;
    std::unordered_map<const Model *, bool> mRoots;
};

} // namespace

void OrvoUtils::requireStrictScheduleConstraints() { gStrictScheduleConstraints = true; }

void OrvoUtils::gatherUpScheduleConstraints(Design &design) {
    const ReferenceMap references = countReferences(design);
    for (const Model &model : design) {
        const auto count = references.find(&model);
        if (count != references.end() && count->second.inlined > 0 && count->second.all > 1) {
            log::msg(msg::error::NON_TREE_INLINED_SCHEDULE, log::p("refer", count->second.all) %
                                                                log::p("inline", count->second.inlined) %
                                                                log::p("model", model.value()));
        }
    }
    // Gathering makes no ids.
    const std::int64_t count = nextConstraintId(design);
    for (Model &model : design) {
        if (isScheduleRoot(model)) {
            gatherUpInto(model, inlinedBelow(model, references), count);
        }
    }
    if (gStrictScheduleConstraints) {
        requireConstraintsConsistentWithDesign(design);
    }
}

bool OrvoUtils::requireConstraintsConsistentWithDesign(const Design &design) {
    return ConstraintChecker(design).check();
}

Model *OrvoUtils::getModelDefiningContraints(Model &model) {
    Model *root = Node::from<Model>(model[A_SYNTH_ROOT_SCHEDULE_MODEL]);
    return root == nullptr ? &model : root;
}

const Model *OrvoUtils::getModelDefiningContraints(const Model &model) {
    return getModelDefiningContraints(const_cast<Model &>(model));
}

bool OrvoUtils::matchesRefChain(const PureValueRef &chain, const RefChain &refChain) {
    const TupleValue *links = asTuple(chain.get_ptr());
    if (links == nullptr || links->size() == 0 || links->size() != refChain.size()) {
        return false;
    }
    return std::equal(links->begin(), links->end(), refChain.begin(), [](const ValueRef &value, const Block *block) {
        const TupleValue *link = asTuple(value.get_ptr());
        return link != nullptr && link->size() == 2 && link->at(0) == block->getModel().getName() &&
               link->at(1) == block->getName();
    });
}

bool OrvoUtils::matchesModelOrRefChain(const PureValueRef &value, const Model &model, const RefChain &refChain) {
    const PureTupleValueRef pair = pureTupleVR(value);
    if (!pair || pair->size() != 2) {
        return false;
    }
    if (pair->at(0) == A_MODEL_TAG) {
        return pair->at(1) == model.getName();
    }
    return pair->at(0) == A_REFCHAIN_TAG && matchesRefChain(pair->at(1), refChain);
}

} // namespace orvo
