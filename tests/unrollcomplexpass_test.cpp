// Complex signals come apart inside models and at their boundaries, and the design computes the same.
#include "orvo/unrollcomplexpass.h"

#include "orvo/complexunrollers.h"

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
#include <iostream>
#include <map>
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

/// Of each block type that has an unroller, how many blocks of complex signals came out by chance.
TEST(UnrollComplexPassOnRandomDesigns, reachEveryTypeThatComesApart) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::map<const Value *, std::size_t> hits;
    for (std::uint64_t seed = 1; seed <= 250; ++seed) {
        const auto design = generator.make(gen::recipesOf(seed, 80));
        PassScheduler scheduler;
        scheduler.requirePass("GlobalTypePass");
        const PassResults results = scheduler.apply(*design);
        GlobalTypePass &types = *results.getPass<GlobalTypePass>();
        for (Model &model : *design) {
            if (model.getName()->toString() != "top") {
                continue;
            }
            for (Block &block : model) {
                const auto isComplex = [&](const auto &end) {
                    return ComplexDecorSpec(types.getType(end, {}), mgr.context()).isComplex();
                };
                const auto ports = block.ports();
                const bool isHit = std::any_of(ports.begin(), ports.end(), isComplex) ||
                                   std::any_of(block.begin(), block.end(), isComplex);
                hits[block.type()] += isHit ? 1 : 0;
            }
        }
    }
    std::size_t all = 0;
    for (const internal::ComplexUnrollRow &row : internal::complexUnrollRows()) {
        if (row.handler != nullptr) {
            EXPECT_GT(hits[row.blockType->get_ptr()], 0U) << row.blockType->text();
            all += hits[row.blockType->get_ptr()];
        }
    }
    std::cout << all << " blocks of complex signals\n";
}

} // namespace
} // namespace orvo
