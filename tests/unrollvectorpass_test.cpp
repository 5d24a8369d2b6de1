// Vectors come apart inside models and at their boundaries, and the design computes the same.
#include "orvo/unrollvectorpass.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"

#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <sstream>

namespace orvo {
namespace {

std::vector<std::string> runPasses(Design &design, std::initializer_list<const char *> passes) {
    test::HeardMessages heard(design.getContext());
    PassSchedulerState state;
    for (const char *pass : passes) {
        PassScheduler scheduler(&state);
        scheduler.addPass(pass);
        scheduler.apply(design);
        const auto sound = test::checkInvariants(design);
        RC_LOG() << sound.message();
        RC_ASSERT(static_cast<bool>(sound));
    }
    return heard.take();
}

void computesTheSame(std::initializer_list<const char *> passes) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto before = generator.make(recipes);
    const auto design = generator.make(recipes);
    std::vector<std::string> heard = runPasses(*design, passes);
    // A join over several vectors is left alone, which is told.
    heard.erase(std::remove_if(heard.begin(), heard.end(),
                               [](const std::string &line) { return line.find("UNVEC_INVALID_EXPAND_TYPE") == 0; }),
                heard.end());
    if (!heard.empty()) {
        std::ostringstream text;
        XMLServices().toXML(text, *before);
        RC_LOG() << heard.front() << text.str();
    }
    RC_ASSERT(heard.empty());
    sim::CompareOptions options;
    options.cycles = 40;
    const auto same = test::sameBehaviour(*before, *design, "top", options);
    if (!same) {
        std::ostringstream text;
        XMLServices().toXML(text, *before);
        RC_LOG() << same.message() << text.str();
    }
    RC_ASSERT(static_cast<bool>(same));
}

RC_GTEST_PROP(UnrollVectorPassOnRandomDesigns, computesTheSame, ()) { computesTheSame({"UnrollVectorPass"}); }

RC_GTEST_PROP(UnrollVectorCrossModelPassOnRandomDesigns, computesTheSame, ()) {
    computesTheSame({"UnrollVectorCrossModelPass"});
}

RC_GTEST_PROP(UnrollVectorPassesOnRandomDesigns, computeTheSame, ()) {
    computesTheSame({"UnrollVectorPass", "UnrollVectorCrossModelPass", "ElideUnpackPass", "DeadBlockPass"});
}

} // namespace
} // namespace orvo
