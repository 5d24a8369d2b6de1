// What a block tells of its signals under their names, once these have come apart.
#include "orvo/ifacerecords.h"

#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

#include <vector>

namespace orvo::internal {

namespace {

/// One side of the depths, each a pair (name, depth).
ValueRef renamed(const ValueRef &depths, const UnrollMappings &mappings, Context *context) {
    const TupleValueRef tuple = tupleVR(depths);
    if (!tuple || mappings.empty()) {
        return depths;
    }
    std::vector<ValueRef> now;
    for (const ValueRef &entry : *tuple) {
        const PureTupleValueRef pair = pureTupleVR(entry);
        const auto parts =
            pair && pair->size() == 2 ? mappings.portMapping().find(pair->at(0)) : mappings.portMapping().end();
        if (parts == mappings.portMapping().end()) {
            now.push_back(entry);
            continue;
        }
        for (const auto &[index, name] : parts->second) {
            now.emplace_back(PureTupleValue::get(name, pair->at(1), context));
        }
    }
    return TupleValue::get(now, context);
}

} // namespace

void renameSubcycleLatencies(Block &block, const UnrollMappings &ports, const UnrollMappings &wires) {
    const TupleValueRef both = tupleVR(block.getParam(A_EXT_IFACE_SUBCYCLE_LATENCY));
    if (!both || both->size() != 2) {
        return;
    }
    Context *context = block.getContext();
    const std::vector<ValueRef> now{renamed(both->at(0), ports, context), renamed(both->at(1), wires, context)};
    block.setParam(A_EXT_IFACE_SUBCYCLE_LATENCY, TupleValue::get(now, context));
}

} // namespace orvo::internal
