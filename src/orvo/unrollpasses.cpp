// What the passes that take compound signals apart ask of the run.
#include "orvo/unrollpasses.h"

#include <algorithm>

namespace orvo::internal {

namespace {

void collectInstances(Model &model, ModelTreePass &tree, std::vector<const Model *> &below, RefChain &tail,
                      std::vector<RefChain> &chains) {
    if (std::find(below.begin(), below.end(), &model) != below.end()) {
        return; // it instantiates itself: no chain ends here
    }
    const std::list<Block *> refs = tree.getRefBlocks(model);
    if (refs.empty()) {
        chains.emplace_back(tail.rbegin(), tail.rend());
        return;
    }
    below.push_back(&model);
    for (Block *ref : refs) {
        tail.push_back(ref);
        collectInstances(ref->getModel(), tree, below, tail, chains);
        tail.pop_back();
    }
    below.pop_back();
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
    std::vector<const Model *> below;
    RefChain tail;
    collectInstances(model, tree, below, tail, chains);
    if (chains.empty()) {
        chains.emplace_back();
    }
    return chains;
}

bool hasReferencePoints(const Block &block) {
    return block.findParam(A_SCHEDULE_CONSTRAINT_PORTS) != nullptr ||
           block.findParam(A_SCHEDULE_CONSTRAINT_WIRES) != nullptr;
}

} // namespace orvo::internal
