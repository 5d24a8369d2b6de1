// Passes in properties, one by one.
#pragma once

#include "support/heardmessages.h"
#include "support/invariants.h"

#include <orvo/design.h>
#include <orvo/pass.h>

#include <rapidcheck.h>

#include <functional>
#include <string>
#include <vector>

namespace orvo::test {

/// Runs the passes with one state. Fails the property where one leaves a netlist that is not sound; `check` runs behind
/// each. Gives what was heard.
inline std::vector<std::string> runChecked(
    Design &design, const std::vector<const char *> &passes, const std::function<void()> &check = [] {}) {
    HeardMessages heard(design.getContext());
    PassSchedulerState state;
    for (const char *pass : passes) {
        PassScheduler scheduler(&state);
        scheduler.addPass(pass);
        scheduler.apply(design);
        RC_LOG() << pass << ": ";
        const auto sound = checkInvariants(design);
        RC_LOG() << sound.message();
        RC_ASSERT(static_cast<bool>(sound));
        check();
    }
    return heard.take();
}

} // namespace orvo::test
