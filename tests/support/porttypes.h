// What the ports of a design carry, to compare before and behind a pass.
#pragma once

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/pass.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>

#include <map>
#include <string>

namespace orvo::test {

/// Types of the ports of all blocks, by model, block and port, in one instance of each model.
inline std::map<std::string, std::string> portTypes(Design &design) {
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    scheduler.requirePass("ModelTreePass");
    const PassResults results = scheduler.apply(design);
    std::map<std::string, std::string> types;
    for (Model &model : design) {
        RefChain chain;
        if (!results.getPass<ModelTreePass>()->getRefChain(model, chain)) {
            continue;
        }
        for (const Block &block : model) {
            for (const Port &port : block.ports()) {
                types[block.value()->getPath() + " " + port.getName()->toString()] =
                    readableType(results.getPass<GlobalTypePass>()->getType(port, chain).get_ptr());
            }
        }
    }
    return types;
}

} // namespace orvo::test
