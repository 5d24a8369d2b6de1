// Ends and records of constraints in a design that is made flat. Chains are rare: only the blocks that have one are
// looked at again, by the names of the models in their chains.
#include "orvo/flattenconstraints.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>

#include <algorithm>

namespace orvo::internal {

namespace {

/// The chain of an entry, null if it has none or cannot be read.
const TupleValue *chainOf(const ValueRef &entry) {
    const TupleValue *form = asEntry(entry.get_ptr());
    return form == nullptr ? nullptr : asTuple(form->at(kEntryChain).get_ptr());
}

/// Calls `visit(chain)` for each chain of a block's ends.
template <class Visit> void forEachChain(const Block &block, Visit visit) {
    for (const PointTable &table : kPointTables) {
        if (const TupleValue *entries = asTuple(block.findParam(*table.param))) {
            for (const ValueRef &entry : *entries) {
                if (const TupleValue *chain = chainOf(entry); chain != nullptr && chain->size() != 0) {
                    visit(*chain);
                }
            }
        }
    }
}

ValueRef tupleOrNull(std::vector<ValueRef> elements, Context *context) {
    return elements.empty() ? ValueRef() : ValueRef(TupleValue::get(std::move(elements), context));
}

bool isEmptyTuple(const Value *value) {
    const TupleValue *tuple = asTuple(value);
    return tuple == nullptr || tuple->size() == 0;
}

} // namespace

FlattenedConstraints::FlattenedConstraints(Design &design) : mDesign(design) {
    for (Model &model : design) {
        mAny = mAny || model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS) != nullptr;
        for (Block &block : model) {
            for (const PointTable &table : kPointTables) {
                mAny = mAny || block.findParam(*table.param) != nullptr;
            }
            note(block);
        }
    }
    if (mAny) {
        mNextId = nextConstraintId(design);
        mInstances.emplace_back();
    }
}

FlattenedConstraints::Link FlattenedConstraints::linkOf(const ValueRef &link) {
    const TupleValue *pair = asTuple(link.get_ptr());
    return pair == nullptr || pair->size() != 2 ? Link() : Link(pair->at(0).get_ptr(), pair->at(1).get_ptr());
}

void FlattenedConstraints::note(Block &block) {
    forEachChain(block, [&](const TupleValue &chain) {
        for (const ValueRef &link : chain) {
            Ends &through = mThrough[linkOf(link).first];
            if (through.empty() || !(through.back() == block.value())) {
                through.push_back(block.value());
            }
        }
        Ends &rooted = mRootedIn[linkOf(chain.at(0)).first];
        if (rooted.empty() || !(rooted.back() == block.value())) {
            rooted.push_back(block.value());
        }
    });
}

FlattenedConstraints::Instance FlattenedConstraints::open(const Block &block, Instance above, const Model &drawnIn,
                                                          const PureValueRef &drawnAs, Model &source) {
    if (!mAny) {
        return 0;
    }
    for (const PointTable &table : kPointTables) {
        if (!isEmptyTuple(block.findParam(*table.param))) {
            log::msg(msg::error::DISALLOWED_SIGNPOST_ON_MODEL_BLOCK, log::p("refBlk", block.value()));
            break;
        }
    }
    const auto instance = static_cast<Instance>(mInstances.size());
    const Link link(drawnIn.getName().get_ptr(), drawnAs.get_ptr());
    mInstances.push_back({above, link, &source, {}, mInstances[above].numbered});
    mSteps[{above, link}].instance = instance;
    number(source, mInstances.back());
    if (!mInstances.back().ids.empty()) {
        mInstances.back().numbered = instance;
    }
    return instance;
}

/// Ids are unique in a design, so that records of each instance get their own.
void FlattenedConstraints::number(const Model &source, Dissolved &instance) {
    const Value *records = source.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS);
    if (source.findParam(A_SYNTH_ROOT_SCHEDULE_MODEL) != nullptr) {
        ORVO_ASSERT(isEmptyTuple(records), "the root of a schedule holds the constraints of the models in it");
        return;
    }
    Context *context = mDesign.getContext();
    for (const ValueRef &value : elementsOf(records)) {
        std::vector<ValueRef> record = elementsOf(value.get_ptr());
        if (record.size() > kRecordId && isConstraintId(record[kRecordId].get_ptr())) {
            PureValueRef &fresh = instance.ids[record[kRecordId].get_ptr()];
            if (!fresh) {
                fresh = NumberValue::get(static_cast<long>(mNextId++), context);
            }
            record[kRecordId] = fresh;
            mRecords.push_back(TupleValue::get(std::move(record), context));
        } else {
            mRecords.push_back(value);
        }
    }
}

void FlattenedConstraints::addLasting(const Block &block, Instance above, const Model &drawnIn,
                                      const PureValueRef &drawnAs) {
    if (mAny && above != 0) {
        mSteps[{above, Link(drawnIn.getName().get_ptr(), drawnAs.get_ptr())}].lasting = &block;
    }
}

/// The chain without the levels that dissolved; null if it leads through another instance.
PureValueRef FlattenedConstraints::carriedChain(const ValueRef &chain, Instance instance) const {
    const TupleValue *links = asTuple(chain.get_ptr());
    if (links == nullptr) {
        return PureValueRef(chain);
    }
    std::size_t left = links->size();
    for (; instance != 0 && left != 0; --left, instance = mInstances[instance].above) {
        if (linkOf(links->at(left - 1)) != mInstances[instance].link) {
            return {};
        }
    }
    if (left == 0) {
        return A_TRUE;
    }
    const auto last = links->begin() + static_cast<std::ptrdiff_t>(left);
    return PureValueRef(TupleValue::get(std::vector<ValueRef>(links->begin(), last), mDesign.getContext()));
}

PureValueRef FlattenedConstraints::carriedId(const ValueRef &id, Instance instance) const {
    for (Instance at = mInstances[instance].numbered; at != 0; at = mInstances[mInstances[at].above].numbered) {
        if (const auto fresh = mInstances[at].ids.find(id.get_ptr()); fresh != mInstances[at].ids.end()) {
            return fresh->second;
        }
    }
    return PureValueRef(id);
}

ValueRef FlattenedConstraints::carriedEntry(const TupleValue &entry, const PureValueRef &chain,
                                            Instance instance) const {
    std::vector<ValueRef> parts = elementsOf(&entry);
    parts[kEntryChain] = chain;
    for (const std::size_t slot : {std::size_t{kEntryFrom}, std::size_t{kEntryTo}}) {
        if (asTuple(parts[slot].get_ptr()) == nullptr) {
            continue;
        }
        std::vector<ValueRef> ids = elementsOf(parts[slot].get_ptr());
        for (ValueRef &id : ids) {
            id = carriedId(id, instance);
        }
        parts[slot] = TupleValue::get(std::move(ids), mDesign.getContext());
    }
    return TupleValue::get(std::move(parts), mDesign.getContext());
}

ValueRef FlattenedConstraints::carried(Block &copy, const ValueRef &entries, Instance instance) {
    if (asTuple(entries.get_ptr()) == nullptr) {
        return entries;
    }
    std::vector<ValueRef> kept;
    for (const ValueRef &value : elementsOf(entries.get_ptr())) {
        const TupleValue *entry = asEntry(value.get_ptr());
        if (entry == nullptr) {
            kept.push_back(value);
        } else if (const PureValueRef chain = carriedChain(entry->at(kEntryChain), instance)) {
            kept.push_back(carriedEntry(*entry, chain, instance));
            if (!(chain == A_TRUE)) {
                mCopies.push_back(copy.value());
            }
        }
    }
    return tupleOrNull(std::move(kept), mDesign.getContext());
}

/// Follows the links from `at` through instances that dissolved. Gives the place behind the link to a block that lasts;
/// `lasting` is null if there is none.
std::size_t FlattenedConstraints::walk(const TupleValue &chain, std::size_t at, Instance from,
                                       const Block *&lasting) const {
    lasting = nullptr;
    while (at < chain.size()) {
        const auto step = mSteps.find({from, linkOf(chain.at(at))});
        if (step == mSteps.end()) {
            break;
        }
        ++at;
        lasting = step->second.lasting;
        if (lasting != nullptr) {
            break;
        }
        from = step->second.instance;
    }
    return at;
}

/// The chain with one link to the lasting block in the place of those from `from` up to `to`.
PureValueRef FlattenedConstraints::shortened(const TupleValue &chain, std::size_t from, std::size_t to,
                                             const Block &lasting) const {
    Context *context = mDesign.getContext();
    std::vector<ValueRef> links = elementsOf(&chain);
    links[from] = PureTupleValue::get(lasting.getModel().getName(), lasting.getName(), context);
    links.erase(links.begin() + static_cast<std::ptrdiff_t>(from) + 1, links.begin() + static_cast<std::ptrdiff_t>(to));
    return PureValueRef(TupleValue::get(std::move(links), context));
}

bool FlattenedConstraints::mendEnds(Block &block, const Model &model) {
    bool changed = false;
    for (const PointTable &table : kPointTables) {
        std::vector<ValueRef> entries = elementsOf(block.findParam(*table.param));
        bool mended = false;
        for (ValueRef &entry : entries) {
            const TupleValue *chain = chainOf(entry);
            for (std::size_t i = 0; chain != nullptr && i < chain->size(); ++i) {
                const Block *lasting = nullptr;
                if (linkOf(chain->at(i)).first != model.getName().get_ptr()) {
                    continue;
                }
                const std::size_t end = walk(*chain, i, 0, lasting);
                if (lasting != nullptr) {
                    std::vector<ValueRef> parts = elementsOf(entry.get_ptr());
                    parts[kEntryChain] = shortened(*chain, i, end, *lasting);
                    entry = TupleValue::get(std::move(parts), mDesign.getContext());
                    mended = true;
                }
                break;
            }
        }
        if (mended) {
            block.setParam(*table.param, TupleValue::get(std::move(entries), mDesign.getContext()));
            changed = true;
        }
    }
    return changed;
}

/// The source stays, and with it its own ends.
bool FlattenedConstraints::addEnds(Block &block, const Model &source, const std::vector<Instance> &instances) {
    bool changed = false;
    for (const PointTable &table : kPointTables) {
        std::vector<ValueRef> entries = elementsOf(block.findParam(*table.param));
        const std::size_t old = entries.size();
        for (std::size_t i = 0; i < old; ++i) {
            const ValueRef entry = entries[i];
            const TupleValue *chain = chainOf(entry);
            if (chain == nullptr || chain->size() == 0 || linkOf(chain->at(0)).first != source.getName().get_ptr()) {
                continue;
            }
            for (const Instance instance : instances) {
                const Block *lasting = nullptr;
                const std::size_t end = walk(*chain, 0, instance, lasting);
                if (lasting != nullptr) {
                    entries.push_back(
                        carriedEntry(*asEntry(entry.get_ptr()), shortened(*chain, 0, end, *lasting), instance));
                }
            }
        }
        if (entries.size() != old) {
            block.setParam(*table.param, TupleValue::get(std::move(entries), mDesign.getContext()));
            changed = true;
        }
    }
    return changed;
}

void FlattenedConstraints::writeRecords(Model &model) {
    if (mRecords.empty()) {
        return;
    }
    Context *context = mDesign.getContext();
    Model &holder = *OrvoUtils::getModelDefiningContraints(model);
    std::vector<ValueRef> records = elementsOf(holder.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
    records.insert(records.end(), mRecords.begin(), mRecords.end());
    holder.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, TupleValue::get(std::move(records), context));
    holder.setParam(A_SCHEDULE_CONSTRAINT_COUNT, NumberValue::get(static_cast<long>(mNextId), context));
    mRecords.clear();
}

std::vector<const Model *> FlattenedConstraints::close(Model &model) {
    std::vector<const Model *> changed;
    if (mInstances.size() > 1) {
        writeRecords(model);
        const auto each = [&](const Ends &ends, const auto &edit) {
            std::unordered_set<const Block *> seen;
            for (const NodeValueRef &end : Ends(ends)) {
                Block *block = Node::from<Block>(end);
                if (block != nullptr && seen.insert(block).second && edit(*block)) {
                    note(*block);
                    changed.push_back(&block->getModel());
                }
            }
        };
        each(mThrough[model.getName().get_ptr()], [&](Block &block) { return mendEnds(block, model); });
        for (const auto &[source, instances] : instancesBySource()) {
            each(mRootedIn[source->getName().get_ptr()],
                 [&, from = source, &all = instances](Block &block) { return addEnds(block, *from, all); });
        }
        for (const NodeValueRef &copy : mCopies) {
            note(*Node::from<Block>(copy));
        }
        mInstances.resize(1);
    }
    mCopies.clear();
    mSteps.clear();
    return changed;
}

/// The models with ends below them, in the order of their first instances.
std::vector<std::pair<const Model *, std::vector<FlattenedConstraints::Instance>>>
FlattenedConstraints::instancesBySource() const {
    std::vector<std::pair<const Model *, std::vector<Instance>>> all;
    std::unordered_map<const Model *, std::size_t> places;
    for (std::size_t i = 1; i < mInstances.size(); ++i) {
        const Model *source = mInstances[i].source;
        if (mRootedIn.count(source->getName().get_ptr()) == 0) {
            continue;
        }
        const auto [place, isNew] = places.try_emplace(source, all.size());
        if (isNew) {
            all.emplace_back(source, std::vector<Instance>());
        }
        all[place->second].second.push_back(static_cast<Instance>(i));
    }
    return all;
}

void FlattenedConstraints::finish(const std::unordered_set<const Model *> &dissolved) {
    for (const auto &[name, ends] : mRootedIn) {
        for (const NodeValueRef &end : ends) {
            if (Block *block = Node::from<Block>(end)) {
                dropEnds(*block, dissolved);
            }
        }
    }
}

void FlattenedConstraints::dropEnds(Block &block, const std::unordered_set<const Model *> &dissolved) const {
    const auto isGone = [&](const ValueRef &entry) {
        const TupleValue *chain = chainOf(entry);
        const Value *root = chain == nullptr || chain->size() == 0 ? nullptr : linkOf(chain->at(0)).first;
        const Model *model =
            root == nullptr ? nullptr : mDesign.getModel(PureValueRef(asTuple(chain->at(0).get_ptr())->at(0)));
        return model != nullptr && dissolved.count(model) != 0 && model->getParentBlocks().empty() &&
               model->findParam(A_SYNTH_OUTPUT_MODE) == nullptr;
    };
    for (const PointTable &table : kPointTables) {
        std::vector<ValueRef> entries = elementsOf(block.findParam(*table.param));
        if (std::erase_if(entries, isGone) != 0) {
            block.setParam(*table.param, tupleOrNull(std::move(entries), mDesign.getContext()));
        }
    }
}

} // namespace orvo::internal
