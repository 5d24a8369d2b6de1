// Points and instances of a netlist, and what its latency constraints join.
#include "orvo/cycletraverse.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/nonsblocks.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <array>
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

} // namespace

void NetPointDict::addBlock(const Block &block) {
    const auto add = [this](const void *key, NetPoint point) {
        mNumbers.emplace(key, static_cast<std::uint32_t>(mPoints.size()));
        mPoints.push_back(point);
    };
    add(&block, {&block, nullptr, nullptr});
    for (const Port &port : block.ports()) {
        add(&port, {&block, &port, nullptr});
    }
    for (const Wire &wire : block) {
        add(&wire, {&block, nullptr, &wire});
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

std::uint32_t NetPointDict::getPoint(const Wire &wire) const { return mNumbers.at(&wire); }

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

std::uint32_t ModelTreeTraverse::instanceOf(std::uint32_t point) const {
    // Of instances without points, which share their first with the next one, the last is the one that holds it.
    const auto next =
        std::upper_bound(mInstances.begin(), mInstances.end(), point,
                         [](std::uint32_t p, const Instance &instance) { return p < instance.firstPoint; });
    return static_cast<std::uint32_t>(next - mInstances.begin()) - 1;
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
    // These carry each signal through by its name.
    if (block.type() == A_SIGNAL_IN_BLOCK.get_ptr() || block.type() == A_SIGNAL_OUT_BLOCK.get_ptr()) {
        return getPoint(instance, &block, true, name);
    }
    return getPoint(instance, &block, false, {});
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

LatencyTraverse::LatencyTraverse(const ModelTreeTraverse &tree) : mTree(&tree) {
    populateMaps();
    populateLatencyDependencies();
}

void LatencyTraverse::populateMaps() {
    // Ids are unique in a design, and any model on the way down to here may hold the record of a constraint.
    for (const Model &model : mTree->getModel(0).getDesign()) {
        readRecords(model);
    }
    if (mIds.empty()) {
        return;
    }
    for (std::uint32_t at = 0; at < mTree->countModels(); ++at) {
        mInstancesOf[&mTree->getModel(at)].push_back(at);
    }
    for (std::uint32_t at = 0; at < mTree->countModels(); ++at) {
        if (mInstancesOf.at(&mTree->getModel(at)).front() != at) {
            continue;
        }
        for (const Block &block : mTree->getModel(at)) {
            parseConstraintPoints(block, A_SCHEDULE_CONSTRAINT_PORTS, true);
            parseConstraintPoints(block, A_SCHEDULE_CONSTRAINT_WIRES, false);
        }
    }
}

/// A record is (id relation latency modifiers...). What is malformed is the business of the check of constraints.
void LatencyTraverse::readRecords(const Model &model) {
    const TupleValueRef records = tupleVR(model[A_SYNTH_SCHEDULE_CONSTRAINTS]);
    if (!records) {
        return;
    }
    for (const ValueRef &element : *records) {
        const TupleValueRef record = tupleVR(element);
        const NumberValueRef id = record ? numberVR(record->maybeAt(0)) : NumberValueRef();
        const NumberValueRef latency = record ? numberVR(record->maybeAt(2)) : NumberValueRef();
        if (id && latency && !latency->isSpecial() &&
            mConstraints.emplace(id.get_ptr(), Constraint{latency->toInt(), {}, {}}).second) {
            mIds.push_back(id.get_ptr());
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
    const std::vector<std::uint32_t> &every = mInstancesOf.at(&model);
    const NetPointDict &dict = mTree->getInstance(every.front()).traverse->points();
    for (const ValueRef &element : *entries) {
        const TupleValueRef entry = tupleVR(element);
        const PureValueRef name = entry ? PureValueRef(entry->maybeAt(0)) : PureValueRef();
        const std::uint32_t point = name ? dict.getPoint(&block, isPort, name) : NetPointDict::kNone;
        if (point == NetPointDict::kNone) {
            continue;
        }
        const bool isNamed = !(entry->maybeAt(1) == A_TRUE);
        std::vector<std::uint32_t> points;
        if (!isNamed) {
            for (const std::uint32_t instance : every) {
                points.push_back(mTree->getInstance(instance).firstPoint + point);
            }
        } else if (const std::uint32_t only = namedInstance(entry->maybeAt(1), model);
                   only != ModelTreeTraverse::kNone) {
            points.push_back(mTree->getInstance(only).firstPoint + point);
        }
        appendConstraintIds(entry->maybeAt(2), points, true, isNamed);
        appendConstraintIds(entry->maybeAt(3), points, false, isNamed);
    }
}

void LatencyTraverse::appendConstraintIds(const ValueRef &ids, const std::vector<std::uint32_t> &points, bool isStart,
                                          bool isNamed) {
    const TupleValueRef list = tupleVR(ids);
    if (!list) {
        return;
    }
    for (const ValueRef &id : *list) {
        const auto found = mConstraints.find(id.get_ptr());
        if (found == mConstraints.end()) {
            continue;
        }
        Ends &ends = isStart ? found->second.starts : found->second.stops;
        for (const std::uint32_t point : points) {
            if (isNamed) {
                ends.named.push_back(point);
            } else {
                ends.every.emplace_back(mTree->instanceOf(point), point);
            }
        }
    }
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
        Constraint &constraint = mConstraints.at(id);
        Ends &starts = constraint.starts;
        Ends &stops = constraint.stops;
        // Two ends that stand for every instance meet in each one; an end with a chain meets all that the other has.
        std::sort(starts.every.begin(), starts.every.end());
        std::sort(stops.every.begin(), stops.every.end());
        auto stop = stops.every.begin();
        for (auto start = starts.every.begin(); start != starts.every.end();) {
            const std::uint32_t instance = start->first;
            std::vector<std::uint32_t> from;
            for (; start != starts.every.end() && start->first == instance; ++start) {
                from.push_back(start->second);
            }
            std::vector<std::uint32_t> to;
            for (; stop != stops.every.end() && stop->first <= instance; ++stop) {
                if (stop->first == instance) {
                    to.push_back(stop->second);
                }
            }
            addHub(from, to, constraint.latency);
        }
        std::vector<std::uint32_t> all = stops.named;
        std::transform(stops.every.begin(), stops.every.end(), std::back_inserter(all),
                       [](const auto &end) { return end.second; });
        addHub(starts.named, all, constraint.latency);
        std::vector<std::uint32_t> every;
        std::transform(starts.every.begin(), starts.every.end(), std::back_inserter(every),
                       [](const auto &end) { return end.second; });
        addHub(every, stops.named, constraint.latency);
    }
}

void LatencyTraverse::addHub(const std::vector<std::uint32_t> &starts, const std::vector<std::uint32_t> &stops,
                             int latency) {
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
