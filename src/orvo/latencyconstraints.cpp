// Writing latency constraints, and keeping them over an attempt.
#include <orvo/latencyconstraints.h>

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/modelkinds.h>
#include <orvo/orvoutils.h>
#include <orvo/wire.h>

#include <algorithm>
#include <unordered_set>

namespace orvo {

using namespace internal;

namespace {

/// A marker and the side on which it faces the design.
struct MarkerSide {
    const StaticString *type;
    bool isPort;
};

constexpr MarkerSide kMarkerSides[] = {
    {&A_SIGNAL_IN_BLOCK, false},  {&A_SIGNAL_OUT_BLOCK, true},           {&A_CHANNEL_IN_BLOCK, false},
    {&A_CHANNEL_OUT_BLOCK, true}, {&A_SARNET_MM_MASTER_IN_BLOCK, false}, {&A_SARNET_MM_MASTER_OUT_BLOCK, true},
};

ValueRef withAppended(const Value *tuple, const ValueRef &element, Context *context) {
    std::vector<ValueRef> elements = elementsOf(tuple);
    elements.push_back(element);
    return TupleValue::get(std::move(elements), context);
}

template <class End> const End &given(const End *end) {
    ORVO_ASSERT(end != nullptr, "an end of a constraint is there");
    return *end;
}

using IdSet = std::unordered_set<const Value *>;

void addRecordIds(const Value *records, IdSet &ids) {
    for (const ValueRef &record : elementsOf(records)) {
        if (const TupleValue *parts = asTuple(record.get_ptr()); parts != nullptr && parts->size() != 0) {
            ids.insert(parts->at(kRecordId).get_ptr());
        }
    }
}

void addEntryIds(const Value *entries, IdSet &ids) {
    for (const ValueRef &entry : elementsOf(entries)) {
        const TupleValue *parts = asEntry(entry.get_ptr());
        for (const EntryElement side : {kEntryFrom, kEntryTo}) {
            for (const ValueRef &id : elementsOf(parts == nullptr ? nullptr : parts->at(side).get_ptr())) {
                ids.insert(id.get_ptr());
            }
        }
    }
}

/// What is left of a tuple without the elements that go; null without any.
template <class Goes> ValueRef withoutThose(const Value *tuple, Context *context, Goes goes) {
    std::vector<ValueRef> left = elementsOf(tuple);
    left.erase(std::remove_if(left.begin(), left.end(), goes), left.end());
    return left.empty() ? ValueRef() : TupleValue::get(std::move(left), context);
}

/// Takes constraints off a block; an entry goes with the last one of its own.
void forgetEnds(Block &block, const StaticString &param, const IdSet &gone) {
    IdSet there;
    addEntryIds(block.findParam(param), there);
    if (std::none_of(there.begin(), there.end(), [&](const Value *id) { return gone.count(id) != 0; })) {
        return;
    }
    Context *context = block.getContext();
    const auto isGone = [&](const ValueRef &id) { return gone.count(id.get_ptr()) != 0; };
    std::vector<ValueRef> left;
    for (const ValueRef &value : elementsOf(block.findParam(param))) {
        IdSet own;
        addEntryIds(TupleValue::get(value, context).get_ptr(), own);
        if (std::none_of(own.begin(), own.end(), [&](const Value *id) { return gone.count(id) != 0; })) {
            left.push_back(value);
            continue;
        }
        std::vector<ValueRef> parts = elementsOf(value.get_ptr());
        bool anyLeft = false;
        for (const EntryElement side : {kEntryFrom, kEntryTo}) {
            const ValueRef ids = withoutThose(parts[side].get_ptr(), context, isGone);
            anyLeft = anyLeft || ids;
            parts[side] = ids ? ids : ValueRef(TupleValue::get(context));
        }
        if (anyLeft) {
            left.emplace_back(TupleValue::get(std::move(parts), context));
        }
    }
    block.setParam(param, left.empty() ? ValueRef() : ValueRef(TupleValue::get(std::move(left), context)));
}

/// Takes constraints off a model and its blocks.
void forget(Model &model, const IdSet &gone) {
    IdSet there;
    addRecordIds(model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS), there);
    if (std::any_of(there.begin(), there.end(), [&](const Value *id) { return gone.count(id) != 0; })) {
        const ValueRef left = withoutThose(
            model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS), model.getContext(), [&](const ValueRef &record) {
                const TupleValue *parts = asTuple(record.get_ptr());
                return parts != nullptr && parts->size() != 0 && gone.count(parts->at(kRecordId).get_ptr()) != 0;
            });
        model.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, left);
    }
    for (Block &block : model) {
        forgetEnds(block, A_SCHEDULE_CONSTRAINT_PORTS, gone);
        forgetEnds(block, A_SCHEDULE_CONSTRAINT_WIRES, gone);
    }
}

void restoreParam(Node &node, const StaticString &key, const ValueRef &value) {
    if (node.findParam(key) != value.get_ptr()) {
        node.setParam(key, value);
    }
}

} // namespace

bool latencyConstraintAllowed(const Value *blockType, bool isPort) {
    return std::any_of(std::begin(kMarkerSides), std::end(kMarkerSides), [&](const MarkerSide &side) {
        return side.type->get_ptr() == blockType && side.isPort == isPort;
    });
}

bool latencyConstraintAllowedOnBlock(const Value *blockType) {
    return latencyConstraintAllowedOnPort(blockType) || latencyConstraintAllowedOnWire(blockType);
}

bool latencyConstraintAllowedOnPort(const Value *blockType) { return latencyConstraintAllowed(blockType, true); }
bool latencyConstraintAllowedOnWire(const Value *blockType) { return latencyConstraintAllowed(blockType, false); }

LatencyConstraintCreator::LatencyConstraintCreator(Design &design) : mDesign(design) {}

PureValueRef LatencyConstraintCreator::optionalChain(const RefChain &refChain) const {
    return refChain.empty() ? PureValueRef(A_TRUE) : PureValueRef(tupleFromRefChain(refChain, mDesign.getContext()));
}

LatencyConstraintCreator &LatencyConstraintCreator::setPoint(State done, const Block &block, const PureValueRef &key,
                                                             bool isPort, const RefChain &refChain) {
    ORVO_ASSERT(mState < BothDone && (mState & done) == 0,
                "each end of a constraint is given once, before the relation");
    ORVO_ASSERT(latencyConstraintAllowed(block.type(), isPort), "a constraint stands at an interface marker");
    ORVO_ASSERT(&block.getDesign() == &mDesign, "a constraint stands in the design of its creator");
    Model &root = refChain.empty() ? block.getModel() : refChain.front()->getModel();
    (done == FromDone ? mFrom : mTo) = {const_cast<Block *>(&block), key, isPort, optionalChain(refChain), &root};
    mState |= done;
    return *this;
}

LatencyConstraintCreator &LatencyConstraintCreator::from(const Port *port, const RefChain &refChain) {
    return setPoint(FromDone, given(port).getBlock(), port->getName(), true, refChain);
}
LatencyConstraintCreator &LatencyConstraintCreator::from(const Wire *wire, const RefChain &refChain) {
    return setPoint(FromDone, given(wire).getBlock(), wire->getName(), false, refChain);
}
LatencyConstraintCreator &LatencyConstraintCreator::to(const Port *port, const RefChain &refChain) {
    return setPoint(ToDone, given(port).getBlock(), port->getName(), true, refChain);
}
LatencyConstraintCreator &LatencyConstraintCreator::to(const Wire *wire, const RefChain &refChain) {
    return setPoint(ToDone, given(wire).getBlock(), wire->getName(), false, refChain);
}

LatencyConstraintCreator &LatencyConstraintCreator::relate(const StaticString &relation, int latency) {
    ORVO_ASSERT(mState == BothDone, "one relation of a constraint is given, after both ends");
    mRelation = relation;
    mLatency = latency;
    mState = Related;
    return *this;
}

LatencyConstraintCreator &LatencyConstraintCreator::lessThan(int latency) {
    return relate(A_SYNTH_LATENCY_CONSTRAINT_LT, latency);
}
LatencyConstraintCreator &LatencyConstraintCreator::lessEqual(int latency) {
    return relate(A_SYNTH_LATENCY_CONSTRAINT_LE, latency);
}
LatencyConstraintCreator &LatencyConstraintCreator::equal(int latency) {
    return relate(A_SYNTH_LATENCY_CONSTRAINT_EQ, latency);
}
LatencyConstraintCreator &LatencyConstraintCreator::greaterEqual(int latency) {
    return relate(A_SYNTH_LATENCY_CONSTRAINT_GE, latency);
}
LatencyConstraintCreator &LatencyConstraintCreator::greaterThan(int latency) {
    return relate(A_SYNTH_LATENCY_CONSTRAINT_GT, latency);
}
LatencyConstraintCreator &LatencyConstraintCreator::scheduleLink(int latency) {
    return relate(A_SYNTH_SCHEDULE_LINK, latency);
}

LatencyConstraintCreator &LatencyConstraintCreator::modifier(const PureValueRef &value) {
    ORVO_ASSERT(mState == Related, "modifiers of a constraint follow its relation");
    ORVO_ASSERT(static_cast<bool>(value), "a modifier is a pure value");
    mModifiers.push_back(value);
    return *this;
}

/// An end with a chain names the root of both.
Model &LatencyConstraintCreator::constrainedModel() const {
    const bool hasFrom = !(mFrom.chain == A_TRUE);
    const bool hasTo = !(mTo.chain == A_TRUE);
    Model &model = *OrvoUtils::getModelDefiningContraints(*(hasTo && !hasFrom ? mTo : mFrom).root);
    ORVO_ASSERT(!hasFrom || !hasTo || &model == OrvoUtils::getModelDefiningContraints(*mTo.root),
                "both ends of a constraint lie below one root of a schedule");
    return model;
}

void LatencyConstraintCreator::backReferenceConstraint(std::size_t slot, const PureValueRef &id) const {
    Context *context = mDesign.getContext();
    const Point &point = slot == kEntryFrom ? mFrom : mTo;
    const StaticString &param = point.isPort ? A_SCHEDULE_CONSTRAINT_PORTS : A_SCHEDULE_CONSTRAINT_WIRES;
    std::vector<ValueRef> entries = elementsOf(point.block->findParam(param));
    const auto isOfPoint = [&point](const ValueRef &value) {
        const TupleValue *entry = asEntry(value.get_ptr());
        return entry != nullptr && entry->at(kEntryKey) == point.key && entry->at(kEntryChain) == point.chain;
    };
    auto entry = std::find_if(entries.begin(), entries.end(), isOfPoint);
    if (entry == entries.end()) {
        const ValueRef none = TupleValue::get(context);
        entry = entries.insert(entries.end(), TupleValue::get(point.key, point.chain, none, none, context));
    }
    std::vector<ValueRef> parts = elementsOf(entry->get_ptr());
    parts[slot] = withAppended(parts[slot].get_ptr(), id, context);
    *entry = TupleValue::get(std::move(parts), context);
    point.block->setParam(param, TupleValue::get(std::move(entries), context));
}

LatencyConstraintCreator::Status LatencyConstraintCreator::end() {
    ORVO_ASSERT(mState == Related, "a constraint is written once, after its relation");
    Context *context = mDesign.getContext();
    Model &model = constrainedModel();
    const std::int64_t number = nextConstraintId(mDesign);
    const PureValueRef id = NumberValue::get(static_cast<long>(number), context);
    std::vector<ValueRef> record = {id, mRelation, NumberValue::get(mLatency, context)};
    record.insert(record.end(), mModifiers.begin(), mModifiers.end());
    model.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, withAppended(model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS),
                                                              TupleValue::get(std::move(record), context), context));
    backReferenceConstraint(kEntryFrom, id);
    backReferenceConstraint(kEntryTo, id);
    model.setParam(A_SCHEDULE_CONSTRAINT_COUNT, NumberValue::get(static_cast<long>(number + 1), context));
    mState = Written;
    return Status::Success;
}

LatencyConstraintsCheckpoint::LatencyConstraintsCheckpoint(Model *model) {
    if (model == nullptr) {
        return;
    }
    std::vector<Model *> models = modelsBelow(model);
    std::unordered_set<const Model *> known(models.begin(), models.end());
    mBelow = models.size();
    for (std::size_t i = 0; i < mBelow; ++i) {
        // The records of the model's own ends may stand in another.
        if (Model *holder = OrvoUtils::getModelDefiningContraints(*models[i]); known.insert(holder).second) {
            models.push_back(holder);
        }
    }
    for (Model *saved : models) {
        mModels.push_back({saved->value(), {saved->getParam(A_SYNTH_SCHEDULE_CONSTRAINTS)}});
    }
    models.resize(mBelow);
    for (Model *saved : models) {
        for (Block &block : *saved) {
            mBlocks.push_back(
                {block.value(),
                 {block.getParam(A_SCHEDULE_CONSTRAINT_PORTS), block.getParam(A_SCHEDULE_CONSTRAINT_WIRES)}});
        }
    }
}

void LatencyConstraintsCheckpoint::restore() const {
    const Ids gone = idsSince();
    std::unordered_set<const Node *> known;
    for (const Saved &saved : mModels) {
        if (Node *model = saved.node->getNode()) {
            restoreParam(*model, A_SYNTH_SCHEDULE_CONSTRAINTS, saved.values[0]);
        }
    }
    for (const Saved &saved : mBlocks) {
        if (Node *block = saved.node->getNode()) {
            known.insert(block);
            restoreParam(*block, A_SCHEDULE_CONSTRAINT_PORTS, saved.values[0]);
            restoreParam(*block, A_SCHEDULE_CONSTRAINT_WIRES, saved.values[1]);
        }
    }
    // Blocks that were made since have ends of constraints that are no longer there. A model that is below now and was
    // not then may be old, and keeps what it has.
    std::unordered_set<const Node *> below;
    Design *design = nullptr;
    for (std::size_t i = 0; i < mBelow; ++i) {
        auto *model = static_cast<Model *>(mModels[i].node->getNode());
        if (model == nullptr) {
            continue;
        }
        below.insert(model);
        design = &model->getDesign();
        for (Block &block : *model) {
            if (known.count(&block) == 0) {
                restoreParam(block, A_SCHEDULE_CONSTRAINT_PORTS, {});
                restoreParam(block, A_SCHEDULE_CONSTRAINT_WIRES, {});
            }
        }
    }
    if (design == nullptr || gone.empty()) {
        return;
    }
    for (Model &model : *design) {
        if (below.count(&model) == 0) {
            forget(model, gone);
        }
    }
}

/// The constraints that were not there: those with ends in the models that were remembered, and those whose records go.
LatencyConstraintsCheckpoint::Ids LatencyConstraintsCheckpoint::idsSince() const {
    Ids now;
    Ids then;
    for (std::size_t i = 0; i < mModels.size(); ++i) {
        addRecordIds(mModels[i].values[0].get_ptr(), then);
        const auto *model = static_cast<const Model *>(mModels[i].node->getNode());
        if (model == nullptr) {
            continue;
        }
        addRecordIds(model->findParam(A_SYNTH_SCHEDULE_CONSTRAINTS), now);
        for (const Block &block : *model) {
            if (i >= mBelow) {
                break;
            }
            addEntryIds(block.findParam(A_SCHEDULE_CONSTRAINT_PORTS), now);
            addEntryIds(block.findParam(A_SCHEDULE_CONSTRAINT_WIRES), now);
        }
    }
    for (const Saved &saved : mBlocks) {
        for (const ValueRef &entries : saved.values) {
            addEntryIds(entries.get_ptr(), then);
        }
    }
    for (const Value *id : then) {
        now.erase(id);
    }
    return now;
}

} // namespace orvo
