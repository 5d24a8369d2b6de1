// All structural passes together: designs by chance compute the same behind each pass and each order of them, nothing
// compound is left, and every kind of block is met.
#include "support/lowering.h"

#include "orvo/aggregateunrollers.h"
#include "orvo/complexunrollers.h"
#include "orvo/vectorunrollers.h"
#include "support/heardmessages.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/pass.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdio>
#include <limits>
#include <set>
#include <sstream>

namespace orvo {
namespace {

std::string textOf(const Design &design) {
    std::ostringstream out;
    XMLServices().toXML(out, design);
    return out.str();
}

void computesTheSame(gen::DesignGenerator &generator) {
    const test::Route &route = test::routes()[*rc::gen::inRange<std::size_t>(0, test::routes().size()).as("route")];
    const std::vector<gen::Recipe> recipes = *test::recipes(60);
    const auto marks = *rc::gen::inRange<std::uint32_t>(0, std::numeric_limits<std::uint32_t>::max());
    const auto before = generator.make(recipes);
    const auto lowered = generator.make(recipes);
    if (!test::tagsMeet(*generator.make(recipes))) {
        return;
    }
    test::markModels(*lowered, marks);
    RC_LOG() << route.name << "\n";
    PassSchedulerState state;
    auto holds = test::lower(*lowered, route.passes, state);
    if (holds && route.everything) {
        holds = test::isFlatAndPlain(*before, *lowered);
    }
    if (holds) {
        holds = test::boundariesAreAsMapped(*before, *lowered, state);
    }
    if (holds) {
        sim::CompareOptions options;
        options.cycles = 20;
        holds = test::sameBehaviour(*before, *lowered, "top", options);
    }
    if (!holds) {
        RC_LOG() << holds.message() << "\n" << textOf(*before);
    }
    RC_ASSERT(static_cast<bool>(holds));
}

// Twenty times as many as of other properties: 2,000, or RC_PARAMS=max_success=10000 for 200,000.
TEST(StructuralLowering, leavesDesignsAsTheyComputeInEveryOrderOfThePasses) {
    constexpr int kTimes = 20;
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    rc::detail::TestParams params = rc::detail::configuration().testParams;
    params.maxSuccess *= kTimes;
    rc::detail::TestMetadata metadata;
    metadata.id = metadata.description = "structural lowering";
    const auto result = rc::detail::checkTestable([&] { computesTheSame(generator); }, metadata, params);
    std::ostringstream text;
    rc::detail::printResultMessage(result, text);
    EXPECT_TRUE(result.template is<rc::detail::SuccessResult>()) << text.str();
}

/// What each unrolling takes apart, as the classes of signals begin or end.
struct Kind {
    const char *pass;
    const char *word;
};
constexpr Kind kVector{"UnrollVectorPass", "vector"};
constexpr Kind kComplex{"UnrollComplexPass", "complex"};
constexpr Kind kRecord{"UnrollAggregatePass", "record"};

template <class Row> void expectMet(const test::Coverage &coverage, std::span<const Row> rows, const Kind &kind) {
    for (const Row &row : rows) {
        std::size_t met = 0;
        for (const auto &[cell, count] : coverage) {
            const auto &[pass, type, signals] = cell;
            met += pass == kind.pass && type == row.blockType->text() && signals.find(kind.word) != std::string::npos
                       ? count
                       : 0;
        }
        EXPECT_TRUE(row.handler == nullptr || met != 0) << kind.pass << " meets no " << row.blockType->text();
    }
}

// Prints the table: pass, block type, class of signals, blocks met.
TEST(StructuralLowering, meetsEveryBlockTypeThatComesApart) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    // What each pass meets alone, and what is left for it behind the others.
    const std::vector<std::string> hierarchy = {"ElideFromGotoPass", "FlattenEverythingPass", "DeadModelPass"};
    const std::vector<std::string> row = {kRecord.pass, kVector.pass, kComplex.pass};
    test::Coverage coverage;
    constexpr std::uint64_t kDesigns = 1000;
    for (std::uint64_t seed = 1; seed <= kDesigns; ++seed) {
        const std::vector<gen::Recipe> recipes = gen::recipesOf(seed, 80);
        if (!test::tagsMeet(*generator.make(recipes))) {
            continue;
        }
        PassSchedulerState state;
        const auto design = generator.make(recipes);
        ASSERT_TRUE(test::lower(*design, hierarchy, state, &coverage)) << "seed " << seed;
        for (const std::string &pass : row) {
            test::countSignals(*design, pass, coverage);
        }
        if (std::getenv("ORVO_COV") == nullptr) {
            ASSERT_TRUE(test::lower(*design, row, state)) << "seed " << seed;
        }
    }
    for (const auto &[cell, count] : coverage) {
        const auto &[pass, type, signals] = cell;
        std::printf("%-24s %-32s %-20s %8zu\n", pass.c_str(), type.c_str(), signals.c_str(), count);
    }
    expectMet(coverage, internal::vectorUnrollRows(), kVector);
    expectMet(coverage, internal::complexUnrollRows(), kComplex);
    expectMet(coverage, internal::aggregateUnrollRows(), kRecord);
}

} // namespace
} // namespace orvo
