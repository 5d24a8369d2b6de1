// What the passes that take compound signals apart ask of the run.
#include "orvo/unrollpasses.h"

#include <orvo/limits.h>

#include <algorithm>
#include <list>
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

bool isUnusedInput(const Wire &wire, const std::vector<RefChain> &instances, GlobalTypePass &types) {
    return wire.port_size() == 0 && wire.getBlock().type() == A_INPUT_BLOCK.get_ptr() &&
           std::none_of(instances.begin(), instances.end(),
                        [&](const RefChain &instance) { return !!types.getType(wire, instance); });
}

bool hasReferencePoints(const Block &block) {
    return block.findParam(A_SCHEDULE_CONSTRAINT_PORTS) != nullptr ||
           block.findParam(A_SCHEDULE_CONSTRAINT_WIRES) != nullptr;
}

} // namespace orvo::internal
