// What is open spreads from the edges of models along the wires, each of which is met once.
#include "driver/openinputs.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/orvoutils.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace orvo::driver {

namespace {

bool isOfType(const Block &block, const StaticString &type) { return block.type() == type.get_ptr(); }

const Model *instantiated(const Block &block) {
    return isOfType(block, A_MODEL_BLOCK) ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
}

bool gives(const Model &model, const PureValueRef &name) {
    const auto &outputs = model.getOutputBlocks();
    return std::any_of(outputs.begin(), outputs.end(),
                       [&name](const Block *output) { return output->getPort(name) != nullptr; });
}

class OpenWires {
  public:
    explicit OpenWires(const Design &design) {
        for (const Model &model : design) {
            for (const Block *instance : model.getParentBlocks()) {
                readEdge(*instance, model);
            }
        }
        while (!mPending.empty()) {
            const Wire &wire = *mPending.back();
            mPending.pop_back();
            for (const Port &port : wire.ports()) {
                follow(port);
            }
        }
    }
    const std::vector<const Port *> &readers() const { return mReaders; }

  private:
    void add(const Wire *wire) {
        if (wire != nullptr && mKnown.insert(wire).second) {
            mPending.push_back(wire);
        }
    }
    void readEdge(const Block &instance, const Model &model) {
        for (const Block *input : model.getInputBlocks()) {
            for (const Wire &wire : *input) {
                if (instance.getPort(wire.getName()) == nullptr) {
                    add(&wire);
                }
            }
        }
        for (const Wire &wire : instance) {
            if (!gives(model, wire.getName())) {
                add(&wire);
            }
        }
    }
    void follow(const Port &port) {
        const Block &block = port.getBlock();
        if (const Model *below = instantiated(block)) {
            for (const Block *input : below->getInputBlocks()) {
                add(input->getWire(port.getName()));
            }
        } else if (isOfType(block, A_OUTPUT_BLOCK)) {
            for (const Block *instance : block.getModel().getParentBlocks()) {
                add(instance->getWire(port.getName()));
            }
        } else {
            mReaders.push_back(&port);
        }
    }

    std::unordered_set<const Wire *> mKnown;
    std::vector<const Wire *> mPending;
    std::vector<const Port *> mReaders;
};

} // namespace

OpenInputs::OpenInputs(const Design &design) : mSource(design.getContext()), mOrigins(mSource) {
    if (!endsIn(design).empty()) {
        OrvoUtils::deepCloneDesign(mSource, design);
        mEnds = endsIn(mSource);
    }
}

OpenInputs::Ends OpenInputs::endsIn(const Design &design) {
    Ends ends;
    const OpenWires open(design);
    for (const Port *port : open.readers()) {
        ends[&port->getBlock()].push_back(port->getName());
    }
    return ends;
}

bool OpenInputs::wasOpen(const Block &block, const std::string &port) const {
    const NameOrigin origin = mEnds.empty() ? NameOrigin() : mOrigins.originOf(block);
    const PureValueRef name(origin ? Value::parse(port, block.getContext()) : ValueRef());
    if (!name) {
        return false;
    }
    const auto ends = mEnds.find(origin.block);
    return ends != mEnds.end() && std::any_of(ends->second.begin(), ends->second.end(), [&](const PureValueRef &end) {
               std::vector<NameStep> steps;
               return continuesName(name, end, steps);
           });
}

} // namespace orvo::driver
