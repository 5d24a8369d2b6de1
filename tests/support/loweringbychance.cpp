// Lowering by chance, in the frame of RapidCheck.
#include "support/loweringbychance.h"
#include "support/onepass.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <sstream>

namespace orvo::test {

namespace {

constexpr int kTimes = 20;

void computesTheSame(gen::DesignGenerator &generator, const std::vector<Route> &routes, Tried &tried) {
    const Route &route = routes[*rc::gen::inRange<std::size_t>(0, routes.size()).as("route")];
    const std::vector<gen::Recipe> drawn = *recipes(60);
    const auto marks = *rc::gen::inRange<std::uint32_t>(0, std::numeric_limits<std::uint32_t>::max());
    const auto before = generator.make(drawn);
    const auto lowered = generator.make(drawn);
    RC_PRE(tagsMeet(*generator.make(drawn)));
    ++tried.all;
    markModels(*lowered, marks);
    markBlocks(*lowered, marks);
    RC_LOG() << route.name << "\n";
    PassSchedulerState state;
    LoweringNotes notes;
    auto holds = lower(*lowered, route.passes, state, notes);
    tried.withRefusals += notes.refusals.empty() ? 0 : 1;
    if (holds && route.everything && notes.refusals.empty()) {
        holds = isFlatAndPlain(*before, *lowered);
    }
    if (holds && route.primitives && notes.refusals.empty()) {
        holds = isPrimitive(*lowered);
    }
    if (holds) {
        holds = boundariesAreAsMapped(*before, *lowered, state);
    }
    if (holds) {
        sim::CompareOptions options;
        options.cycles = 24;
        options.streams = 1;
        holds = sameBehaviour(*before, *lowered, "top", options);
    }
    if (!holds) {
        RC_LOG() << holds.message() << "\n" << xmlOf(*before);
    }
    RC_ASSERT(static_cast<bool>(holds));
}

} // namespace

Tried lowerByChance(const std::string &id, const std::vector<Route> &routes) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    rc::detail::TestParams params = rc::detail::configuration().testParams;
    params.maxSuccess *= kTimes;
    rc::detail::TestMetadata metadata;
    metadata.id = metadata.description = id;
    Tried tried;
    const auto result = rc::detail::checkTestable([&] { computesTheSame(generator, routes, tried); }, metadata, params);
    std::ostringstream text;
    rc::detail::printResultMessage(result, text);
    EXPECT_TRUE(result.template is<rc::detail::SuccessResult>()) << text.str();
    std::printf("%zu designs, %zu with blocks that stay whole\n", tried.all, tried.withRefusals);
    return tried;
}

} // namespace orvo::test
