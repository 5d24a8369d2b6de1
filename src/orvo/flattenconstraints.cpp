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
#include <iterator>
#include <utility>

namespace orvo::internal {

namespace {

/// The chain of an entry, null if it has none or cannot be read.
const TupleValue *chainOf(const ValueRef &entry) {
    const TupleValue *form = asEntry(entry.get_ptr());
    return form == nullptr ? nullptr : asTuple(form->at(kEntryChain).get_ptr());
}

/// The chain of an entry that has at least one link, else null.
const TupleValue *linksOf(const ValueRef &entry) {
    const TupleValue *chain = chainOf(entry);
    return chain == nullptr || chain->size() == 0 ? nullptr : chain;
}

ValueRef tupleOrNull(std::vector<ValueRef> elements, Context *context) {
    return elements.empty() ? ValueRef() : ValueRef(TupleValue::get(std::move(elements), context));
}

bool isEmptyTuple(const Value *value) {
    const TupleValue *tuple = asTuple(value);
    return tuple == nullptr || tuple->size() == 0;
}

/// Whether the holder instantiates the model, at any depth.
bool isBelow(const Model &model, const Model &holder) {
    std::vector<const Model *> above{&model};
    std::unordered_set<const Model *> known{&model};
    for (std::size_t i = 0; i < above.size(); ++i) {
        if (above[i] == &holder) {
            return true;
        }
        for (const Block *block : above[i]->getParentBlocks()) {
            if (known.insert(&block->getModel()).second) {
                above.push_back(&block->getModel());
            }
        }
    }
    return false;
}

/// Dissolved models that nothing instantiates any more, but for models that are dead themselves.
std::vector<const Model *> deadOf(const std::unordered_set<const Model *> &dissolved) {
    std::unordered_map<const Model *, std::size_t> living;
    std::vector<const Model *> dead;
    for (const Model *model : dissolved) {
        if (model->findParam(A_SYNTH_OUTPUT_MODE) == nullptr) {
            living[model] = model->getParentBlocks().size();
            if (model->getParentBlocks().empty()) {
                dead.push_back(model);
            }
        }
    }
    for (std::size_t i = 0; i < dead.size(); ++i) {
        for (const Block &block : *dead[i]) {
            const auto below = living.find(instantiatedModel(block));
            if (below != living.end() && --below->second == 0) {
                dead.push_back(below->first);
            }
        }
    }
    return dead;
}

} // namespace

void FlattenedConstraints::note(const Model &model) {
    mAny = mAny || model.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS) != nullptr;
}

void FlattenedConstraints::start() {
    if (mAny) {
        mNextId = nextConstraintId(mDesign);
        mInstances.emplace_back();
    }
}

FlattenedConstraints::Link FlattenedConstraints::linkOf(const ValueRef &link) {
    const TupleValue *pair = asTuple(link.get_ptr());
    return pair == nullptr || pair->size() != 2 ? Link() : Link(pair->at(0).get_ptr(), pair->at(1).get_ptr());
}

void FlattenedConstraints::note(Block &block) {
    for (const PointTable &points : kPointTables) {
        const Value *value = block.findParam(*points.param);
        if (value == nullptr) {
            continue;
        }
        mAny = true;
        std::vector<ValueRef> entries = elementsOf(value);
        if (std::none_of(entries.begin(), entries.end(), linksOf)) {
            continue;
        }
        const auto table = static_cast<std::uint32_t>(mTables.size());
        const auto count = static_cast<std::uint32_t>(entries.size());
        mTables.push_back({block.value(), points.param, std::move(entries)});
        for (std::uint32_t entry = 0; entry < count; ++entry) {
            note({table, entry});
        }
    }
}

void FlattenedConstraints::note(Place place) {
    const TupleValue *chain = linksOf(entryAt(place));
    if (chain == nullptr) {
        return;
    }
    for (const ValueRef &link : *chain) {
        Places &through = mThrough[linkOf(link).first];
        if (through.empty() || !(through.back() == place)) {
            through.push_back(place);
        }
    }
    mRootedIn[linkOf(chain->at(0)).first].push_back(place);
}

bool FlattenedConstraints::startsIn(Place place, const Value *modelName) const {
    const TupleValue *chain = linksOf(entryAt(place));
    return chain != nullptr && linkOf(chain->at(0)).first == modelName;
}

void FlattenedConstraints::change(Place place, ValueRef entry) {
    mTables[place.table].entries[place.entry] = std::move(entry);
    setChanged(place.table);
}

void FlattenedConstraints::setChanged(std::uint32_t number) {
    Table &table = mTables[number];
    const Block *block = Node::from<Block>(table.block);
    if (block == nullptr || table.changed) {
        return;
    }
    table.changed = true;
    std::vector<std::uint32_t> &changed = mChanged[&block->getModel()];
    if (changed.empty()) {
        mChangedModels.push_back(&block->getModel());
    }
    changed.push_back(number);
}

void FlattenedConstraints::write(Table &table) {
    table.changed = false;
    if (Block *block = Node::from<Block>(table.block)) {
        std::vector<ValueRef> entries;
        std::copy_if(table.entries.begin(), table.entries.end(), std::back_inserter(entries),
                     [](const ValueRef &entry) { return bool(entry); });
        block->setParam(*table.param, tupleOrNull(std::move(entries), mDesign.getContext()));
    }
}

void FlattenedConstraints::write(const Model &model) {
    const auto changed = mChanged.find(&model);
    if (changed != mChanged.end()) {
        for (const std::uint32_t table : changed->second) {
            write(mTables[table]);
        }
        mChanged.erase(changed);
    }
}

bool FlattenedConstraints::endsAt(const Block &block) const {
    return mAny && std::any_of(std::begin(kPointTables), std::end(kPointTables),
                               [&](const PointTable &table) { return !isEmptyTuple(block.findParam(*table.param)); });
}

FlattenedConstraints::Instance FlattenedConstraints::open(Instance above, const Model &drawnIn,
                                                          const PureValueRef &drawnAs, Model &source) {
    if (!mAny) {
        return 0;
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
void FlattenedConstraints::number(Model &source, Dissolved &instance) {
    writeRecords(source);
    Context *context = mDesign.getContext();
    for (const ValueRef &value : elementsOf(source.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS))) {
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
            if (!(chain == A_TRUE) && (mCopies.empty() || !(mCopies.back() == copy.value()))) {
                mCopies.push_back(copy.value());
            }
        }
    }
    return tupleOrNull(std::move(kept), mDesign.getContext());
}

/// Follows the links from `at` through instances that dissolved, up to one to a block that lasts.
FlattenedConstraints::Way FlattenedConstraints::walk(const TupleValue &chain, std::size_t at, Instance from) const {
    Way way{at, from};
    while (way.end < chain.size() && way.lasting == nullptr) {
        const auto step = mSteps.find({way.instance, linkOf(chain.at(way.end))});
        if (step == mSteps.end()) {
            break;
        }
        ++way.end;
        way.lasting = step->second.lasting;
        way.instance = way.lasting != nullptr ? way.instance : step->second.instance;
    }
    return way;
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

/// An end in an instance that dissolved stays with the copy alone, though its model may last for other instances.
void FlattenedConstraints::mendEnd(Place place, const Model &model) {
    const ValueRef entry = entryAt(place);
    const TupleValue *chain = linksOf(entry);
    const Block *block = Node::from<Block>(mTables[place.table].block);
    for (std::size_t i = 0; chain != nullptr && block != nullptr && i < chain->size(); ++i) {
        if (linkOf(chain->at(i)).first != model.getName().get_ptr()) {
            continue;
        }
        const Way way = walk(*chain, i, 0);
        if (way.lasting != nullptr) {
            std::vector<ValueRef> parts = elementsOf(entry.get_ptr());
            parts[kEntryChain] = shortened(*chain, i, way.end, *way.lasting);
            change(place, TupleValue::get(std::move(parts), mDesign.getContext()));
        } else if (way.instance != 0 && way.end == chain->size() &&
                   mInstances[way.instance].source == &block->getModel()) {
            change(place, {});
        }
        break;
    }
}

/// The source stays, and with it its own ends.
void FlattenedConstraints::addEnds(Place place, const std::vector<Instance> &instances) {
    const ValueRef entry = entryAt(place);
    const TupleValue &chain = *linksOf(entry);
    for (const Instance instance : instances) {
        const Way way = walk(chain, 0, instance);
        if (way.lasting != nullptr) {
            std::vector<ValueRef> &entries = mTables[place.table].entries;
            entries.push_back(
                carriedEntry(*asEntry(entry.get_ptr()), shortened(chain, 0, way.end, *way.lasting), instance));
            note(Place{place.table, static_cast<std::uint32_t>(entries.size() - 1)});
            setChanged(place.table);
        }
    }
}

/// The records go to the root of the model's schedule, as long as that still has the model in it.
void FlattenedConstraints::takeRecords(Model &model) {
    if (mRecords.empty()) {
        return;
    }
    Model *root = OrvoUtils::getModelDefiningContraints(model);
    root = isBelow(model, *root) ? root : &model;
    std::vector<ValueRef> &forRoot = mForRoot[root];
    if (forRoot.empty()) {
        mRoots.push_back(root);
    }
    forRoot.insert(forRoot.end(), mRecords.begin(), mRecords.end());
    mRecords.clear();
    if (root == &model) {
        writeRecords(model);
    }
}

void FlattenedConstraints::writeRecords(Model &holder) {
    const auto added = mForRoot.find(&holder);
    if (added == mForRoot.end()) {
        return;
    }
    Context *context = mDesign.getContext();
    std::vector<ValueRef> records = elementsOf(holder.findParam(A_SYNTH_SCHEDULE_CONSTRAINTS));
    records.insert(records.end(), added->second.begin(), added->second.end());
    mForRoot.erase(added);
    holder.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, TupleValue::get(std::move(records), context));
    holder.setParam(A_SCHEDULE_CONSTRAINT_COUNT, NumberValue::get(static_cast<long>(mNextId), context));
}

std::vector<const Model *> FlattenedConstraints::close(Model &model) {
    if (mInstances.size() > 1) {
        takeRecords(model);
        if (const auto through = mThrough.find(model.getName().get_ptr()); through != mThrough.end()) {
            for (const Place place : through->second) {
                mendEnd(place, model);
            }
        }
        for (const auto &[source, instances] : instancesBySource()) {
            const Value *name = source->getName().get_ptr();
            Places &rooted = mRootedIn[name];
            std::erase_if(rooted, [&](Place place) { return !startsIn(place, name); });
            // Ends that are added start in the model that is closed.
            for (const Place place : rooted) {
                addEnds(place, instances);
            }
        }
        for (const NodeValueRef &copy : mCopies) {
            note(*Node::from<Block>(copy));
        }
        mInstances.resize(1);
    }
    mCopies.clear();
    mSteps.clear();
    return std::exchange(mChangedModels, {});
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
    // All blocks of the dissolved models are walked for that.
    const std::vector<const Model *> dead = mRootedIn.empty() ? std::vector<const Model *>() : deadOf(dissolved);
    for (const Model *model : dead) {
        const Value *name = model->getName().get_ptr();
        const auto rooted = mRootedIn.find(name);
        for (std::size_t i = 0; rooted != mRootedIn.end() && i < rooted->second.size(); ++i) {
            if (startsIn(rooted->second[i], name)) {
                change(rooted->second[i], {});
            }
        }
    }
    for (Table &table : mTables) {
        if (table.changed) {
            write(table);
        }
    }
    mChanged.clear();
    for (Model *root : mRoots) {
        writeRecords(*root);
    }
    mRoots.clear();
}

} // namespace orvo::internal
