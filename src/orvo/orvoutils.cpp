// Copies and deletes models with all that hangs on them.
#include <orvo/orvoutils.h>

#include "orvo/cloneconstraints.h"
#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <map>
#include <set>
#include <unordered_map>
#include <vector>

namespace orvo {

namespace internal {

Model *instantiatedModel(const Block &block) {
    return block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
}

std::vector<Model *> modelsBelow(Model *root) {
    std::vector<Model *> found{root};
    std::set<const Model *> known{root};
    for (std::size_t i = 0; i < found.size(); ++i) {
        for (Block &block : *found[i]) {
            Model *model = instantiatedModel(block);
            if (model != nullptr && known.insert(model).second) {
                found.push_back(model);
            }
        }
    }
    return found;
}

} // namespace internal

using namespace internal;

namespace {

/// From the models of a source to their copies.
using ModelMap = std::unordered_map<const Model *, Model *>;

Model *cloneWithoutConstraints(Design &design, const Model &source, OrvoUtils::NodeMap &map);

void pointAtClones(Model &clone, const ModelMap &clones) {
    for (Block &block : clone) {
        Model *model = instantiatedModel(block);
        auto hit = model == nullptr ? clones.end() : clones.find(model);
        if (hit != clones.end()) {
            block.setParam(A_MODEL_NODE, *hit->second);
        }
    }
}

ModelMap cloneAll(Design &destination, const std::vector<Model *> &sources) {
    ModelMap clones;
    for (Model *source : sources) {
        OrvoUtils::NodeMap nodes;
        clones.emplace(source, cloneWithoutConstraints(destination, *source, nodes));
    }
    return clones;
}

/// Models that were copied together share the map of ids, since a constraint may have its ends in several of them.
void carryAll(const std::vector<Model *> &sources, const ModelMap &clones) {
    ModelCopies copies;
    for (const Model *source : sources) {
        copies.emplace_back(source, clones.at(source));
    }
    std::map<int, int> ids;
    carryConstraints(copies, ids);
}

/// The same, and model blocks of copies instantiate copies. In the order of the sources, which the parents of each copy
/// follow.
ModelMap cloneAllDeep(Design &destination, const std::vector<Model *> &sources) {
    ModelMap clones = cloneAll(destination, sources);
    for (const Model *source : sources) {
        pointAtClones(*clones.at(source), clones);
    }
    carryAll(sources, clones);
    return clones;
}

std::vector<Model *> modelsOf(const Design &design) {
    std::vector<Model *> models;
    for (Model &model : design) {
        models.push_back(&model);
    }
    return models;
}

using BlockPairs = std::vector<std::pair<const Block *, Block *>>;

/// The copies of the wires of one model, in which its ports are looked up again.
using WireMap = std::unordered_map<const Wire *, Wire *>;

void copyParamsButPorts(Block &destination, const Block &source) {
    for (auto param : Params(source)) {
        if (Node::from<Wire>(param.second) == nullptr) {
            destination.setParam(param.first, param.second);
        }
    }
}

/// Connects the copies as their sources are, wire by wire and reader by reader, so that a wire's list of readers keeps
/// its order. A connection to a wire outside the model stays on that wire.
void connectClones(const BlockPairs &blocks, const WireMap &wires,
                   const std::unordered_map<const Block *, Block *> &clones) {
    for (const auto &[source, clone] : blocks) {
        for (const Wire &wire : *source) {
            Wire *copy = wires.at(&wire);
            for (const Port &port : wire.ports()) {
                if (auto reader = clones.find(&port.getBlock()); reader != clones.end()) {
                    reader->second->setParam(port.getName(), *copy);
                }
            }
        }
        for (const Port &port : source->ports()) {
            if (wires.count(port.peekWire()) == 0) {
                clone->setParam(port.getName(), *port.peekWire());
            }
        }
    }
}

/// All of it but for constraints, which stand in the copy as they were.
Model *cloneWithoutConstraints(Design &design, const Model &source, OrvoUtils::NodeMap &map) {
    ORVO_ASSERT(design.getContext() == source.getContext(), "a model is cloned into a design of another context");
    Model *clone = Model::create(design, source.getName());
    map[&source] = clone;
    OrvoUtils::copyParams(*clone, source);
    BlockPairs blocks;
    WireMap wires;
    std::unordered_map<const Block *, Block *> clones;
    for (const Block &block : source) {
        Block *copy = Block::create(*clone, block.getName());
        map[&block] = copy;
        clones.emplace(&block, copy);
        blocks.emplace_back(&block, copy);
        copyParamsButPorts(*copy, block);
        for (const Wire &wire : block) {
            Wire *wireCopy = Wire::create(*copy, wire.getName());
            map[&wire] = wireCopy;
            wires.emplace(&wire, wireCopy);
            OrvoUtils::copyParams(*wireCopy, wire);
        }
    }
    connectClones(blocks, wires, clones);
    return clone;
}

} // namespace

void OrvoUtils::copyParams(Node &destination, const Node &source) {
    for (auto param : Params(source)) {
        destination.setParam(param.first, param.second);
    }
}

Model *OrvoUtils::cloneModel(Design &design, const Model &source, NodeMap *nodes) {
    std::map<int, int> ids;
    return cloneModelWithLatencyConstraints(design, source, ids, nodes);
}

Model *OrvoUtils::cloneModelWithLatencyConstraints(Design &design, const Model &source, std::map<int, int> &idMap,
                                                   NodeMap *nodes) {
    NodeMap own;
    Model *clone = cloneWithoutConstraints(design, source, nodes == nullptr ? own : *nodes);
    carryConstraints({{&source, clone}}, idMap);
    return clone;
}

Model *OrvoUtils::deepCloneModel(Design &design, const Model &source) {
    const ModelMap clones = cloneAllDeep(design, modelsBelow(const_cast<Model *>(&source)));
    return clones.at(&source);
}

void OrvoUtils::cloneDesign(Design &destination, const Design &source) {
    const std::vector<Model *> sources = modelsOf(source);
    carryAll(sources, cloneAll(destination, sources));
}

void OrvoUtils::deepCloneDesign(Design &destination, const Design &source) {
    cloneAllDeep(destination, modelsOf(source));
}

void OrvoUtils::deepDeleteModel(Model *model) {
    // The model itself comes first in the list and goes last.
    const std::vector<Model *> all = modelsBelow(model);
    for (std::size_t i = 1; i < all.size(); ++i) {
        delete all[i];
    }
    delete model;
}

} // namespace orvo
