// One walk over a design, and the depth of its hierarchy.
#include "driver/statistics.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <unordered_map>

namespace orvo::driver {

namespace {

/// The longest way from a model down, by depth-first search without recursion, since a file may nest models as deep as
/// it likes.
class DepthSearch {
  public:
    void visit(const Model &start) {
        enter(start);
        while (!mStack.empty()) {
            Frame &frame = mStack.back();
            if (frame.next == frame.children.size()) {
                leave();
                continue;
            }
            const Model *child = frame.children[frame.next++];
            const auto known = mDepths.find(child);
            if (known == mDepths.end()) {
                enter(*child);
            } else if (known->second == kOpen) {
                mRecursive = true;
            } else {
                frame.depth = std::max(frame.depth, known->second + 1);
            }
        }
    }
    std::size_t depthOf(const Model &model) const {
        const auto known = mDepths.find(&model);
        return known == mDepths.end() ? 0 : known->second;
    }
    bool knows(const Model &model) const { return mDepths.count(&model) != 0; }
    bool recursive() const { return mRecursive; }

  private:
    static constexpr std::size_t kOpen = 0;
    struct Frame {
        const Model *model;
        std::vector<const Model *> children;
        std::size_t next;
        std::size_t depth;
    };

    void enter(const Model &model) {
        mDepths[&model] = kOpen;
        Frame frame{&model, {}, 0, 1};
        for (const Block &block : model) {
            const bool isModelBlock = block.type() == A_MODEL_BLOCK.get_ptr();
            if (const auto *child = isModelBlock ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr) {
                frame.children.push_back(child);
            }
        }
        std::sort(frame.children.begin(), frame.children.end());
        frame.children.erase(std::unique(frame.children.begin(), frame.children.end()), frame.children.end());
        mStack.push_back(std::move(frame));
    }
    void leave() {
        const Frame frame = std::move(mStack.back());
        mStack.pop_back();
        mDepths[frame.model] = frame.depth;
        if (!mStack.empty()) {
            mStack.back().depth = std::max(mStack.back().depth, frame.depth + 1);
        }
    }

    std::unordered_map<const Model *, std::size_t> mDepths;
    std::vector<Frame> mStack;
    bool mRecursive = false;
};

std::string typeText(const Value *type) { return type != nullptr ? type->toString() : "(none)"; }

void countHierarchy(const Design &design, DesignStatistics &statistics) {
    DepthSearch search;
    for (const Model &model : design) {
        if (model.getParentBlocks().empty()) {
            search.visit(model);
            statistics.topModels.push_back(model.getName()->toString());
            statistics.depth = std::max(statistics.depth, search.depthOf(model));
        }
    }
    // What no top model reaches stands on a cycle.
    for (const Model &model : design) {
        if (!search.knows(model)) {
            search.visit(model);
            statistics.depth = std::max(statistics.depth, search.depthOf(model));
        }
    }
    statistics.recursive = search.recursive();
}

} // namespace

BlockCounts countBlocksByType(const Design &design) {
    // Types are few and are one object each, so that counting needs no text.
    std::unordered_map<const Value *, std::size_t> counts;
    for (const Model &model : design) {
        for (const Block &block : model) {
            ++counts[block.type()];
        }
    }
    BlockCounts named;
    for (const auto &[type, count] : counts) {
        named[typeText(type)] += count;
    }
    return named;
}

NodeCounts countNodes(const Design &design) {
    NodeCounts counts;
    for (const Model &model : design) {
        counts.blocks += model.size();
        for (const Block &block : model) {
            counts.wires += block.size();
        }
    }
    return counts;
}

DesignStatistics countDesign(const Design &design) {
    DesignStatistics statistics;
    statistics.params = design.param_size();
    for (const Model &model : design) {
        ++statistics.models;
        statistics.params += model.param_size();
        for (const Block &block : model) {
            ++statistics.blocks;
            statistics.params += block.param_size();
            statistics.ports += block.port_size();
            statistics.wires += block.getWireCount();
            for (const Wire &wire : block) {
                statistics.params += wire.param_size();
            }
        }
    }
    statistics.blocksByType = countBlocksByType(design);
    countHierarchy(design, statistics);
    return statistics;
}

std::string typeLabel(const std::string &type) {
    const std::string *name = getBlocksInfo().findReversedMapping(type);
    return name == nullptr || *name == type ? type : *name + " (" + type + ")";
}

Json toJson(const BlockCounts &counts) {
    Json json = Json::object();
    for (const auto &[type, count] : counts) {
        json[type] = count;
    }
    return json;
}

} // namespace orvo::driver
