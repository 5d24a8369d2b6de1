// Complex signals come apart inside models and at their boundaries, and the design computes the same.
#include "orvo/unrollcomplexpass.h"

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/unrollmappings.h>
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

/// What is left whole, and told so: joins of several vectors, and vectors of complex numbers at the boundaries of
/// models and in sums of floats.
bool isExpected(const std::string &line) {
    return line.find("UNVEC_INVALID_EXPAND_TYPE") == 0 || line.find("UNCOMPLEX_INVALID") == 0;
}

void computesTheSame(std::initializer_list<const char *> passes) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto before = generator.make(recipes);
    const auto design = generator.make(recipes);
    std::vector<std::string> heard = runPasses(*design, passes);
    heard.erase(std::remove_if(heard.begin(), heard.end(), isExpected), heard.end());
    const auto show = [&] {
        std::ostringstream text;
        XMLServices().toXML(text, *before);
        return text.str();
    };
    if (!heard.empty()) {
        RC_LOG() << heard.front() << show();
    }
    RC_ASSERT(heard.empty());
    sim::CompareOptions options;
    options.cycles = 40;
    const auto same = test::sameBehaviour(*before, *design, "top", options);
    if (!same) {
        RC_LOG() << same.message() << show();
    }
    RC_ASSERT(static_cast<bool>(same));
}

RC_GTEST_PROP(UnrollComplexPassOnRandomDesigns, computesTheSame, ()) { computesTheSame({"UnrollComplexPass"}); }

RC_GTEST_PROP(UnrollComplexCrossModelPassOnRandomDesigns, computesTheSame, ()) {
    computesTheSame({"UnrollComplexCrossModelPass"});
}

RC_GTEST_PROP(UnrollComplexPassesOnRandomDesigns, computeTheSame, ()) {
    computesTheSame({"UnrollComplexPass", "UnrollComplexCrossModelPass", "ElideUnpackPass", "DeadBlockPass"});
}

RC_GTEST_PROP(UnrollComplexPassesOnRandomDesigns, computeTheSameBehindVectors, ()) {
    computesTheSame({"UnrollVectorPass", "UnrollVectorCrossModelPass", "ElideUnpackPass", "UnrollComplexPass",
                     "UnrollComplexCrossModelPass", "ElideUnpackPass", "DeadBlockPass"});
}

} // namespace
} // namespace orvo
