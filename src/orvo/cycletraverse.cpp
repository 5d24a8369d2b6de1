// Points and instances of a netlist, and what its latency constraints join.
#include "orvo/cycletraverse.h"

#include "orvo/channelpairs.h"
#include "orvo/pipeinput.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/nonsblocks.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <unordered_set>

namespace orvo::internal {

namespace {

const Model *instantiated(const Block &block) {
    return block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
}

/// Gathers the types of blocks that run unscheduled.
class VariantTypes final : public Linker {
  public:
    VariantTypes() { mapNONSBlocks(*this); }
    void operator()(const ValueRef &variant, const ValueRef &) override { mTypes.insert(variant.get_ptr()); }
    bool contains(const Value *type) const { return mTypes.count(type) != 0; }

  private:
    std::unordered_set<const Value *> mTypes;
};

struct StallWire {
    const StaticString *block;
    const StaticString *wire;
};

constexpr std::array<StallWire, 4> kStallWires{{
    {&A_STALLENABLE_BLOCK, &A_STALLENABLE_WIRE_STALL_BACK},
    {&A_STALLENTER_BLOCK, &A_STALLENTER_WIRE_STALL_BACK},
    {&A_STALLEXIT_BLOCK, &A_STALLEXIT_WIRE_STALL_BACK},
    {&A_STALLREG_BLOCK, &A_STALLREG_WIRE_STALL_BACK},
}};

/// Blocks each of whose outputs carries the like-named input; of a pipe, the main one may carry another.
constexpr std::array<const StaticString *, 7> kPassesByName{
    &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK, &A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK,
    &A_BOUNDARY_BLOCK,  &A_UNSCHED_BLOCK,    &A_PIPE_BLOCK};

bool passesByName(const Block &block) {
    return std::any_of(kPassesByName.begin(), kPassesByName.end(),
                       [&block](const StaticString *type) { return block.type() == type->get_ptr(); });
}

const Port *passedInput(const Wire &wire) {
    const Block &block = wire.getBlock();
    if (block.type() == A_PIPE_BLOCK.get_ptr()) {
        return pipeInput(block, wire.getName());
    }
    const bool isChannel =
        block.type() == A_CHANNEL_IN_BLOCK.get_ptr() || block.type() == A_CHANNEL_OUT_BLOCK.get_ptr();
    return block.getPort(isChannel ? channelPortOf(wire.getName()) : wire.getName());
}

} // namespace

int saturatedInteger(const NumberValue &number) {
    using Limits = std::numeric_limits<int>;
    const double value = number.toDouble();
    if (value >= static_cast<double>(Limits::max()) + 1) {
        return Limits::max();
    }
    return value <= static_cast<double>(Limits::min()) - 1 ? Limits::min() : number.toInt();
}

void NetPointDict::addBlock(const Block &block) {
    const auto add = [this](const void *key, NetPoint point) {
        mNumbers.emplace(key, static_cast<std::uint32_t>(mPoints.size()));
        mPoints.push_back(point);
    };
    add(&block, {&block, nullptr, nullptr});
    for (const Port &port : block.ports()) {
        add(&port, {&block, &port, nullptr});
    }
    const bool byName = passesByName(block);
    for (const Wire &wire : block) {
        add(&wire, {&block, nullptr, &wire});
        if (const Port *input = byName ? passedInput(wire) : nullptr; input != nullptr) {
            mPoints.push_back({&block, input, &wire});
        }
    }
}

std::uint32_t NetPointDict::getPoint(const Block *block, bool isPort, const PureValueRef &key) const {
    const void *end = block;
    if (key) {
        end = isPort ? static_cast<const void *>(block->getPort(key)) : static_cast<const void *>(block->getWire(key));
    }
    const auto found = mNumbers.find(end);
    return found == mNumbers.end() ? kNone : found->second;
}

std::uint32_t NetPointDict::getPoint(const Port &port) const { return mNumbers.at(&port); }

std::uint32_t NetPointDict::getPoint(const Wire &wire) const {
    const auto found = mNumbers.find(&wire);
    return found == mNumbers.end() ? kNone : found->second;
}

std::uint32_t NetPointDict::getSource(const Wire &wire) const {
    if (!passesByName(wire.getBlock())) {
        return mNumbers.at(&wire.getBlock());
    }
    // A passage is numbered behind its wire.
    return passedInput(wire) != nullptr ? getPoint(wire) + 1 : kNone;
}

SimpleTraverse::SimpleTraverse(const Model &model) : mModel(&model) {
    for (const Block &block : model) {
        mPoints.addBlock(block);
    }
}

bool SimpleTraverse::isNONSWire(const Wire *wire) {
    static const VariantTypes types;
    return types.contains(wire->getBlock().type());
}

bool SimpleTraverse::isStallWire(const Wire *wire) {
    return std::any_of(kStallWires.begin(), kStallWires.end(), [wire](const StallWire &stall) {
        return wire->getName() == *stall.wire && wire->getBlock().type() == stall.block->get_ptr();
    });
}

void ModelTreeTraverse::populateMaps(const Model &model) {
    addInstance(model, kNone, nullptr);
    for (std::uint32_t at = 0; at < mInstances.size(); ++at) {
        for (const Block &block : getModel(at)) {
            const Model *inner = instantiated(block);
            if (inner != nullptr && !isInside(*inner, at) && mInstances.size() < limits::kTypeInstances) {
                mBelow.emplace(std::make_pair(at, &block), addInstance(*inner, at, &block));
            }
        }
    }
}

std::uint32_t ModelTreeTraverse::addInstance(const Model &model, std::uint32_t parent, const Block *step) {
    const SimpleTraverse &traverse = mModels.try_emplace(&model, model).first->second;
    const auto number = static_cast<std::uint32_t>(mInstances.size());
    mInstances.push_back({&traverse, parent, step, mPointCount});
    mPointCount += static_cast<std::uint32_t>(traverse.points().points().size());
    return number;
}

bool ModelTreeTraverse::isInside(const Model &model, std::uint32_t instance) const {
    for (std::uint32_t at = instance; at != kNone; at = mInstances[at].parent) {
        if (&getModel(at) == &model) {
            return true;
        }
    }
    return false;
}

std::uint32_t ModelTreeTraverse::below(std::uint32_t instance, const Block &step) const {
    const auto found = mBelow.find({instance, &step});
    return found == mBelow.end() ? kNone : found->second;
}

std::uint32_t ModelTreeTraverse::getDriverWire(std::uint32_t instance, const Port &port) const {
    const Wire *wire = port.peekWire();
    if (wire == nullptr || SimpleTraverse::isNONSWire(wire) || SimpleTraverse::isStallWire(wire)) {
        return kNone;
    }
    return numberOf(instance, mInstances[instance].traverse->points().getPoint(*wire));
}

std::uint32_t ModelTreeTraverse::getSource(std::uint32_t instance, const Wire &wire) const {
    const Instance &at = mInstances[instance];
    const Block &block = wire.getBlock();
    const PureValueRef &name = wire.getName();
    if (block.type() == A_INPUT_BLOCK.get_ptr()) {
        return at.parent != kNone ? getPoint(at.parent, at.step, true, name) : kNone;
    }
    if (const std::uint32_t child = below(instance, block); child != kNone) {
        return remapPointToChildModel(child, name);
    }
    return numberOf(instance, at.traverse->points().getSource(wire));
}

std::uint32_t ModelTreeTraverse::remapPointToChildModel(std::uint32_t child, const PureValueRef &name) const {
    for (const Block *output : getModel(child).getOutputBlocks()) {
        if (const std::uint32_t point = getPoint(child, output, true, name); point != kNone) {
            return point;
        }
    }
    return kNone;
}

std::uint32_t ModelTreeTraverse::getPoint(std::uint32_t instance, const Block *block, bool isPort,
                                          const PureValueRef &key) const {
    return numberOf(instance, mInstances[instance].traverse->points().getPoint(block, isPort, key));
}

std::uint32_t ModelTreeTraverse::numberOf(std::uint32_t instance, std::uint32_t point) const {
    return point == kNone ? kNone : mInstances[instance].firstPoint + point;
}

const int *LatencyRecords::find(const Value *id) {
    if (!mIsRead) {
        mIsRead = true;
        for (const Model &model : *mDesign) {
            read(model);
        }
    }
    const auto found = mLatencies.find(id);
    return found == mLatencies.end() ? nullptr : &found->second;
}

/// A record is (id relation latency modifiers...). What is malformed is the business of the check of constraints.
void LatencyRecords::read(const Model &model) {
    const TupleValueRef records = tupleVR(model[A_SYNTH_SCHEDULE_CONSTRAINTS]);
    if (!records) {
        return;
    }
    for (const ValueRef &element : *records) {
        const TupleValueRef record = tupleVR(element);
        const NumberValueRef id = record ? numberVR(record->maybeAt(0)) : NumberValueRef();
        const NumberValueRef latency = record ? numberVR(record->maybeAt(2)) : NumberValueRef();
        if (id && latency && !latency->isSpecial()) {
            mLatencies.emplace(id.get_ptr(), saturatedInteger(*latency));
        }
    }
}

LatencyTraverse::LatencyTraverse(const ModelTreeTraverse &tree, LatencyRecords &records)
    : mTree(&tree), mRecords(&records) {
    populateMaps();
    populateLatencyDependencies();
}

void LatencyTraverse::populateMaps() {
    std::vector<const Model *> models;
    for (std::uint32_t at = 0; at < mTree->countModels(); ++at) {
        std::vector<std::uint32_t> &instances = mInstancesOf[&mTree->getModel(at)];
        if (instances.empty()) {
            models.push_back(&mTree->getModel(at));
        }
        instances.push_back(at);
    }
    for (const Model *model : models) {
        for (const Block &block : *model) {
            parseConstraintPoints(block, A_SCHEDULE_CONSTRAINT_PORTS, true);
            parseConstraintPoints(block, A_SCHEDULE_CONSTRAINT_WIRES, false);
        }
    }
}

/// An entry is (key, every instance or chain, ids that start here, ids that end here).
void LatencyTraverse::parseConstraintPoints(const Block &block, const PureValueRef &key, bool isPort) {
    const TupleValueRef entries = tupleVR(block[key]);
    if (!entries) {
        return;
    }
    const Model &model = block.getModel();
    const NetPointDict &dict = mTree->getInstance(mInstancesOf.at(&model).front()).traverse->points();
    for (const ValueRef &element : *entries) {
        const TupleValueRef entry = tupleVR(element);
        const PureValueRef name = entry ? PureValueRef(entry->maybeAt(0)) : PureValueRef();
        const std::uint32_t point = name ? dict.getPoint(&block, isPort, name) : NetPointDict::kNone;
        if (point == NetPointDict::kNone) {
            continue;
        }
        const bool isNamed = !(entry->maybeAt(1) == A_TRUE);
        const std::uint32_t only = isNamed ? namedInstance(entry->maybeAt(1), model) : ModelTreeTraverse::kNone;
        if (isNamed && only == ModelTreeTraverse::kNone) {
            continue;
        }
        const auto append = [&](const ValueRef &ids, Ends Constraint::*side) {
            const TupleValueRef list = tupleVR(ids);
            for (std::size_t i = 0; list && i < list->size(); ++i) {
                Constraint *constraint = constraintOf(list->at(i).get_ptr());
                if (constraint == nullptr) {
                    continue;
                }
                Ends &ends = constraint->*side;
                if (isNamed) {
                    ends.named.push_back(mTree->getInstance(only).firstPoint + point);
                } else {
                    if (ends.every.empty() || ends.every.back().model != &model) {
                        ends.every.push_back({&model, {}});
                    }
                    ends.every.back().points.push_back(point);
                }
            }
        };
        append(entry->maybeAt(2), &Constraint::starts);
        append(entry->maybeAt(3), &Constraint::stops);
    }
}

LatencyTraverse::Constraint *LatencyTraverse::constraintOf(const Value *id) {
    if (const auto known = mConstraints.find(id); known != mConstraints.end()) {
        return &known->second;
    }
    const int *latency = mRecords->find(id);
    if (latency == nullptr) {
        return nullptr;
    }
    mIds.push_back(id);
    return &mConstraints.emplace(id, Constraint{*latency, {}, {}}).first->second;
}

/// A chain is a tuple of (model name, block name) from the design's root down, which may stand above the model that is
/// looked at.
std::uint32_t LatencyTraverse::namedInstance(const ValueRef &chain, const Model &model) const {
    const TupleValueRef steps = tupleVR(chain);
    if (!steps) {
        return ModelTreeTraverse::kNone;
    }
    const auto pairAt = [&steps](std::size_t i) {
        const PureTupleValueRef pair = pureTupleVR(steps->at(i));
        return pair && pair->size() == 2 ? pair : PureTupleValueRef();
    };
    const Model &root = mTree->getModel(0);
    std::size_t first = steps->size();
    for (std::size_t i = steps->size(); i > 0; --i) {
        const PureTupleValueRef pair = pairAt(i - 1);
        if (!pair) {
            return ModelTreeTraverse::kNone;
        }
        if (pair->at(0) == root.getName()) {
            first = i - 1;
            break;
        }
    }
    // A chain that ends above the model leads to it by its last step.
    if (first == steps->size() && first > 0) {
        const PureTupleValueRef last = pairAt(first - 1);
        const Model *above = root.getDesign().getModel(last->at(0));
        const Block *step = above != nullptr ? above->getBlock(last->at(1)) : nullptr;
        if (step == nullptr || instantiated(*step) != &root) {
            return ModelTreeTraverse::kNone;
        }
    }
    std::uint32_t at = 0;
    for (std::size_t i = first; i < steps->size() && at != ModelTreeTraverse::kNone; ++i) {
        const PureTupleValueRef pair = pairAt(i);
        const Block *step =
            pair->at(0) == mTree->getModel(at).getName() ? mTree->getModel(at).getBlock(pair->at(1)) : nullptr;
        at = step != nullptr ? mTree->below(at, *step) : ModelTreeTraverse::kNone;
    }
    return at != ModelTreeTraverse::kNone && &mTree->getModel(at) == &model ? at : ModelTreeTraverse::kNone;
}

void LatencyTraverse::populateLatencyDependencies() {
    for (const Value *id : mIds) {
        const Constraint &constraint = mConstraints.at(id);
        for (const EveryInstance &starts : constraint.starts.every) {
            for (const EveryInstance &stops : constraint.stops.every) {
                joinEveryInstance(starts, stops, constraint.latency);
            }
        }
        // An end with a chain meets all that the other side has.
        addHub(constraint.starts.named, allOf(constraint.stops), constraint.latency);
        for (const EveryInstance &starts : constraint.starts.every) {
            addHub(allOf(starts), constraint.stops.named, constraint.latency);
        }
    }
}

/// Ends that stand for every instance meet where one instance is the other or lies in it. Where no instance of the one
/// model has to do with one of the other, all meet all.
void LatencyTraverse::joinEveryInstance(const EveryInstance &starts, const EveryInstance &stops, int latency) {
    const auto joinBelow = [&](const EveryInstance &upper, const EveryInstance &lower) {
        std::map<std::uint32_t, Points> below;
        for (const std::uint32_t instance : mInstancesOf.at(lower.model)) {
            const std::uint32_t above = instanceAbove(instance, *upper.model);
            if (above != ModelTreeTraverse::kNone) {
                appendInstance(lower, instance, below[above]);
            }
        }
        for (const auto &[above, points] : below) {
            Points met;
            appendInstance(upper, above, met);
            addHub(&upper == &starts ? met : points, &upper == &starts ? points : met, latency);
        }
        return !below.empty();
    };
    const bool isAbove = joinBelow(starts, stops);
    const bool isBelow = starts.model != stops.model && joinBelow(stops, starts);
    if (!isAbove && !isBelow) {
        addHub(allOf(starts), allOf(stops), latency);
    }
}

void LatencyTraverse::appendInstance(const EveryInstance &ends, std::uint32_t instance, Points &points) const {
    for (const std::uint32_t point : ends.points) {
        points.push_back(mTree->getInstance(instance).firstPoint + point);
    }
}

LatencyTraverse::Points LatencyTraverse::allOf(const EveryInstance &ends) const {
    Points points;
    for (const std::uint32_t instance : mInstancesOf.at(ends.model)) {
        appendInstance(ends, instance, points);
    }
    return points;
}

LatencyTraverse::Points LatencyTraverse::allOf(const Ends &ends) const {
    Points points = ends.named;
    for (const EveryInstance &every : ends.every) {
        const Points more = allOf(every);
        points.insert(points.end(), more.begin(), more.end());
    }
    return points;
}

/// The instance itself, or the one around it that is of the model.
std::uint32_t LatencyTraverse::instanceAbove(std::uint32_t instance, const Model &model) const {
    std::uint32_t at = instance;
    while (at != ModelTreeTraverse::kNone && &mTree->getModel(at) != &model) {
        at = mTree->getInstance(at).parent;
    }
    return at;
}

void LatencyTraverse::addHub(const Points &starts, const Points &stops, int latency) {
    if (starts.empty() || stops.empty()) {
        return;
    }
    const std::uint32_t hub = countPoints();
    mHubs.push_back(starts);
    for (const std::uint32_t stop : stops) {
        mLatencyDepends[stop].push_back({hub, latency});
    }
}

void LatencyTraverse::getDriverDepends(std::uint32_t point, std::vector<Dependency> &depends) const {
    if (point >= mTree->countPoints()) {
        for (const std::uint32_t start : mHubs[point - mTree->countPoints()]) {
            depends.push_back({start, 0});
        }
        return;
    }
    if (const auto found = mLatencyDepends.find(point); found != mLatencyDepends.end()) {
        depends.insert(depends.end(), found->second.begin(), found->second.end());
    }
}

} // namespace orvo::internal
