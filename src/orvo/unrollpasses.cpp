// What the passes that take compound signals apart ask of the run.
#include "orvo/unrollpasses.h"

#include <orvo/limits.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <set>
#include <unordered_set>

namespace orvo::internal {

namespace {

/// A model on the way up from the one that is asked about, and the blocks that instantiate it.
struct Level {
    const Model *model;
    std::vector<Block *> references;
    std::size_t next = 0;
};

/// Hierarchies may be deep, so that the way up has a stack of its own. Beyond the bound no types are known either.
void collectInstances(Model &start, ModelTreePass &tree, std::vector<RefChain> &chains) {
    std::vector<Level> levels;
    std::unordered_set<const Model *> below;
    RefChain tail;
    const auto enter = [&](Model &model) {
        const std::list<Block *> references = tree.getRefBlocks(model);
        if (references.empty()) {
            chains.emplace_back(tail.rbegin(), tail.rend());
            return false;
        }
        levels.push_back({&model, {references.begin(), references.end()}});
        below.insert(&model);
        return true;
    };
    enter(start);
    while (!levels.empty() && chains.size() < limits::kTypeInstances) {
        Level &level = levels.back();
        if (level.next == level.references.size()) {
            below.erase(level.model);
            levels.pop_back();
            if (!levels.empty()) {
                tail.pop_back();
            }
            continue;
        }
        Block *reference = level.references[level.next++];
        // From one that instantiates itself no chain leads to the top that way.
        if (below.count(&reference->getModel()) != 0) {
            continue;
        }
        tail.push_back(reference);
        if (!enter(reference->getModel())) {
            tail.pop_back();
        }
    }
}

} // namespace

GlobalTypePass &unrolledTypes(const PassContext &context) {
    return *static_cast<GlobalTypePass *>(context.getPass(GlobalTypePass::sName));
}

ModelTreePass &unrolledTree(const PassContext &context) {
    return *static_cast<ModelTreePass *>(context.getPass(ModelTreePass::sName));
}

void declareForUnrolling(PassDeclarations &declarations) {
    declarations.requirePass(ModelTreePass::sName);
    declarations.requirePass(GlobalTypePass::sName);
}

std::vector<RefChain> instancesOf(Model &model, ModelTreePass &tree) {
    std::vector<RefChain> chains;
    collectInstances(model, tree, chains);
    if (chains.empty()) {
        chains.emplace_back();
    }
    return chains;
}

RefChain DistinctInstances::chainTo(const Instance *instance) {
    RefChain chain;
    for (; instance->block != nullptr; instance = instance->above) {
        chain.push_back(instance->block);
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

std::vector<RefChain> DistinctInstances::of(Model &model) {
    if (!settleAbove(model)) {
        return instancesOf(model, mTree);
    }
    std::vector<RefChain> chains;
    for (const auto &instance : mKnown.at(&model)) {
        chains.push_back(chainTo(instance.get()));
    }
    return chains;
}

/// A model whose instances wait for those above it.
struct DistinctInstances::Way {
    Model *model;
    std::vector<Block *> references;
    std::size_t next = 0;
};

/// Whether the way up ends everywhere: below a model that instantiates itself there is no order to settle them in.
bool DistinctInstances::settleAbove(Model &model) {
    std::vector<Way> ways;
    std::unordered_set<const Model *> open;
    const auto enter = [&](Model &next) {
        const std::list<Block *> references = mTree.getRefBlocks(next);
        ways.push_back({&next, {references.begin(), references.end()}});
        open.insert(&next);
    };
    if (mKnown.count(&model) == 0) {
        enter(model);
    }
    while (!ways.empty()) {
        Way &way = ways.back();
        if (way.next < way.references.size()) {
            Model &above = way.references[way.next++]->getModel();
            if (open.count(&above) != 0) {
                return false;
            }
            if (mKnown.count(&above) == 0) {
                enter(above);
            }
            continue;
        }
        settle(*way.model, way.references);
        open.erase(way.model);
        ways.pop_back();
    }
    return true;
}

void DistinctInstances::settle(Model &model, const std::vector<Block *> &references) {
    Instances &made = mKnown[&model];
    if (references.empty()) {
        made.push_back(std::make_unique<Instance>(Instance{nullptr, nullptr}));
        return;
    }
    std::set<std::vector<const Value *>> met;
    for (const Block *reference : references) {
        for (const auto &above : mKnown.at(&reference->getModel())) {
            if (made.size() < limits::kTypeInstances &&
                met.insert(boundaryTypes(*reference, chainTo(above.get()), mTypes)).second) {
                made.push_back(std::make_unique<Instance>(Instance{reference, above.get()}));
            }
        }
    }
}

BoundaryTypes boundaryTypes(const Block &reference, const RefChain &above, GlobalTypePass &types) {
    BoundaryTypes boundary;
    for (const Port &port : reference.ports()) {
        boundary.push_back(port.getName().get_ptr());
        boundary.push_back(types.getType(port, above).get_ptr());
    }
    boundary.push_back(nullptr);
    for (const Wire &wire : reference) {
        boundary.push_back(wire.getName().get_ptr());
        boundary.push_back(types.getType(wire, above).get_ptr());
    }
    return boundary;
}

PureValueRef typeInAll(const Wire &wire, const std::vector<RefChain> &instances, GlobalTypePass &types) {
    const PureValueRef first = types.getType(wire, instances.front());
    const bool agree = std::all_of(instances.begin() + 1, instances.end(),
                                   [&](const RefChain &instance) { return types.getType(wire, instance) == first; });
    return agree ? first : PureValueRef();
}

NumTypeSpec commonType(const Wire &wire, const std::vector<RefChain> &instances, GlobalTypePass &types) {
    return NumTypeSpec(typeInAll(wire, instances, types), wire.getBlock().getContext());
}

const std::vector<RefChain> &tellingInstances(const Wire &wire, const std::vector<RefChain> &instances,
                                              GlobalTypePass &types, std::vector<RefChain> &some) {
    if (wire.port_size() != 0 || wire.getBlock().type() != A_INPUT_BLOCK.get_ptr()) {
        return instances;
    }
    some.clear();
    std::copy_if(instances.begin(), instances.end(), std::back_inserter(some),
                 [&](const RefChain &instance) { return !!types.getType(wire, instance); });
    return some;
}

bool hasReferencePoints(const Block &block) {
    return block.findParam(A_SCHEDULE_CONSTRAINT_PORTS) != nullptr ||
           block.findParam(A_SCHEDULE_CONSTRAINT_WIRES) != nullptr;
}

bool isTakenOver(const PureValueRef &key, const ValueRef &param) {
    return !nodeVR(param) && !(key == A_SCHEDULE_CONSTRAINT_PORTS) && !(key == A_SCHEDULE_CONSTRAINT_WIRES);
}

} // namespace orvo::internal
