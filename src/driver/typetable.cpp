// Tables of types: the walk over the instances of a design, and the comparison of two tables.
#include "driver/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

namespace orvo::driver {

namespace {

/// Walks the instances below the models that nobody instantiates, from a stack, since a file may nest them deep.
class InstanceWalk {
  public:
    explicit InstanceWalk(const Design &design) {
        std::vector<const Model *> tops;
        for (const Model &model : design) {
            if (model.getParentBlocks().empty()) {
                tops.push_back(&model);
            }
        }
        for (auto top = tops.rbegin(); top != tops.rend(); ++top) {
            mStack.push_back({*top, {}});
        }
    }
    bool next() {
        if (mStack.empty() || ++mCount > limits::kTypeInstances) {
            return false;
        }
        mCurrent = std::move(mStack.back());
        mStack.pop_back();
        std::vector<Instance> below;
        for (const Block &block : *mCurrent.model) {
            const bool isModelBlock = block.type() == A_MODEL_BLOCK.get_ptr();
            const auto *model = isModelBlock ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            const auto passes = [model](const Block *step) { return &step->getModel() == model; };
            const bool isEndless =
                model == mCurrent.model || std::any_of(mCurrent.chain.begin(), mCurrent.chain.end(), passes);
            if (model != nullptr && !isEndless) {
                below.push_back({model, mCurrent.chain});
                below.back().chain.push_back(&block);
            }
        }
        mStack.insert(mStack.end(), std::make_move_iterator(below.rbegin()), std::make_move_iterator(below.rend()));
        return true;
    }
    const Model &model() const { return *mCurrent.model; }
    const RefChain &chain() const { return mCurrent.chain; }
    std::string path() const {
        const Model &top = mCurrent.chain.empty() ? *mCurrent.model : mCurrent.chain.front()->getModel();
        std::string path = top.getName()->toString();
        for (const Block *step : mCurrent.chain) {
            path += "/" + step->getName()->toString();
        }
        return path;
    }

  private:
    struct Instance {
        const Model *model = nullptr;
        RefChain chain;
    };
    std::vector<Instance> mStack;
    Instance mCurrent;
    std::size_t mCount = 0;
};

class Collector {
  public:
    Collector(const TypeFilter &filter, const Design &design) : mFilter(filter), mDesign(design) {
        mTypes.bindEvents(design);
    }
    ~Collector() { mTypes.unbindEvents(); }
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;

    TypeTable collect() {
        InstanceWalk walk(mDesign);
        while (walk.next()) {
            const std::string path = walk.path();
            mTable.models.push_back(walk.model().getName()->toString());
            mTable.instances.push_back(path);
            if ((mFilter.model.empty() || mTable.models.back() == mFilter.model) &&
                (mFilter.instance.empty() || path == mFilter.instance)) {
                mTable.anyChosen = true;
                look(walk.model(), walk.chain(), path);
            }
        }
        return std::move(mTable);
    }

  private:
    void look(const Model &model, const RefChain &chain, const std::string &path) {
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            if (mFilter.ports) {
                for (const Port &port : block.ports()) {
                    add({path, name, true, port.getName()->toString(), mTypes.getType(port, chain)});
                }
            }
            for (const Wire &wire : block) {
                add({path, name, false, wire.getName()->toString(), mTypes.getType(wire, chain)});
            }
        }
    }
    void add(TypeRow row) {
        if (!mFilter.missing || !row.type) {
            mTable.rows.push_back(std::move(row));
        }
    }

    const TypeFilter &mFilter;
    const Design &mDesign;
    GlobalTypePass mTypes;
    TypeTable mTable;
};

// No name holds the separator.
std::string keyOf(const TypeRow &row) {
    std::string key = row.instance;
    for (const std::string &part : {row.block, std::string(row.isPort ? "p" : "w"), row.name}) {
        key += '\0';
        key += part;
    }
    return key;
}

} // namespace

TypeTable collectTypes(const Design &design, const TypeFilter &filter) { return Collector(filter, design).collect(); }

std::string typeText(const PureValueRef &type) {
    return type ? fmt::format("{:<20} {}", readableType(type.get_ptr()), type->toString())
                : readableType(type.get_ptr());
}

Json typeJson(const PureValueRef &type) {
    return {{"type", type ? Json(readableType(type.get_ptr())) : Json()},
            {"value", type ? Json(type->toString()) : Json()}};
}

TypeComparison compareTypes(const TypeTable &before, const TypeTable &after) {
    std::unordered_map<std::string, PureValueRef> known;
    known.reserve(before.rows.size());
    for (const TypeRow &row : before.rows) {
        known.emplace(keyOf(row), row.type);
    }
    TypeComparison result;
    for (const TypeRow &row : after.rows) {
        const auto found = known.find(keyOf(row));
        if (found == known.end()) {
            ++result.made;
        } else if (found->second.get_ptr() == row.type.get_ptr()) {
            ++result.same;
        } else {
            result.changed.push_back({&row, found->second});
        }
    }
    result.gone = known.size() - result.same - result.changed.size();
    return result;
}

} // namespace orvo::driver
