// All structural passes together: designs by chance compute the same behind each pass and each order of them, nothing
// compound is left, and every kind of block is met.
#include "support/loweringbychance.h"

#include "orvo/aggregateunrollers.h"
#include "orvo/complexunrollers.h"
#include "orvo/vectorunrollers.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace orvo {
namespace {

/// The model that no other instantiates.
PureValueRef topOf(const Design &design) {
    std::set<const Model *> below;
    for (const Model &model : design) {
        for (const Block &block : model) {
            below.insert(Node::from<Model>(block.getParam(A_MODEL_NODE)));
        }
    }
    const auto top =
        std::find_if(design.begin(), design.end(), [&](const Model &model) { return below.count(&model) == 0; });
    return top == design.end() ? PureValueRef() : top->getName();
}

void readExample(const std::filesystem::path &path, Design &design) {
    std::ifstream in(path);
    ASSERT_TRUE(XMLServices().fromXML(in, design, XMLServices::defaultErrorFunc));
    // What no output is made of would go with the models that are dead.
    design.getModel(topOf(design))->setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
}

void lowersExample(const std::filesystem::path &path, const test::Route &route) {
    SCOPED_TRACE(path.stem().string() + " by " + route.name);
    ContextMgr mgr;
    Design before(mgr.context());
    Design lowered(mgr.context());
    readExample(path, before);
    readExample(path, lowered);
    PassSchedulerState state;
    test::LoweringNotes notes;
    ASSERT_TRUE(test::lower(lowered, route.passes, state, notes));
    EXPECT_EQ(notes.refusals, std::vector<std::string>());
    EXPECT_TRUE(test::isFlatAndPlain(before, lowered));
    EXPECT_TRUE(test::boundariesAreAsMapped(before, lowered, state));
    sim::CompareOptions options;
    options.cycles = 60;
    options.streams = 1;
    test::expectSameBehaviour(before, lowered, topOf(before)->toString(), options);
}

TEST(StructuralLowering, lowersTheExamplesInEveryOrderOfThePasses) {
    int examples = 0;
    int lowerings = 0;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(ORVO_TEST_SOURCE_DIR) + "/examples")) {
        if (entry.path().extension() != ".xml") {
            continue;
        }
        ++examples;
        for (const test::Route &route : test::routes()) {
            // A model whose instances have types of their own comes apart once they are models of their own.
            if (route.name.rfind("hierarchy", 0) == 0 || route.name.rfind("preset", 0) == 0) {
                ++lowerings;
                lowersExample(entry.path(), route);
            }
        }
    }
    EXPECT_GE(examples, 9);
    EXPECT_GE(lowerings, 4 * examples);
}

// Few designs hold what cannot come apart.
TEST(StructuralLowering, leavesDesignsAsTheyComputeInEveryOrderOfThePasses) {
    const test::Tried tried = test::lowerByChance("structural lowering", test::routes());
    EXPECT_LE(20 * tried.withRefusals, 200 + tried.all);
}

/// What each unrolling takes apart, as the classes of signals begin or end.
struct Kind {
    const char *pass;
    const char *word;
};
constexpr Kind kVector{"UnrollVectorPass", "vector"};
constexpr Kind kComplex{"UnrollComplexPass", "complex"};
constexpr Kind kRecord{"UnrollAggregatePass", "record"};

using Met = std::map<std::string, std::size_t>;

/// How often a pass met blocks of a type, by the classes of their signals.
Met metBy(const test::Coverage &coverage, const std::string &pass, const std::string &type) {
    Met met;
    for (auto at = coverage.lower_bound({pass, type, ""}); at != coverage.end(); ++at) {
        const auto &[ofPass, ofType, signals] = at->first;
        if (ofPass != pass || ofType != type) {
            break;
        }
        met[signals] = at->second;
    }
    return met;
}

/// Prints a row of the table. How many blocks had a signal of a class with this word in its name.
std::size_t printed(const test::Coverage &coverage, const std::string &pass, const std::string &type,
                    const std::string &word) {
    std::printf("%-22s %-28s", pass.c_str(), type.c_str());
    std::size_t own = 0;
    for (const auto &[signals, count] : metBy(coverage, pass, type)) {
        own += signals.find(word) != std::string::npos ? count : 0;
        std::printf(" %s:%zu", signals.c_str(), count);
    }
    std::printf("\n");
    return own;
}

/// Whether blocks of the row's type come apart; of those of complex numbers, the row knows.
template <class Row> bool comesApart(const Row &row) { return row.handler != nullptr; }

template <class Row> void expectMet(const test::Coverage &coverage, std::span<const Row> rows, const Kind &kind) {
    for (const Row &row : rows) {
        const std::string type(row.blockType->text());
        EXPECT_TRUE(!comesApart(row) || printed(coverage, kind.pass, type, kind.word) != 0)
            << kind.pass << " meets no " << type;
    }
}

// Prints the table: pass, block type, and blocks met by the class of their signals.
TEST(StructuralLowering, meetsEveryBlockTypeThatComesApart) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<std::string> hierarchy = {"ElideFromGotoPass", "FlattenEverythingPass", "DeadModelPass",
                                                "UnrollScheduledModelPass"};
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
        test::LoweringNotes notes;
        notes.coverage = &coverage;
        ASSERT_TRUE(test::lower(*design, hierarchy, state, notes)) << "seed " << seed;
        // Each meets the same here: what the others leave of a block is no block of chance.
        for (const std::string &pass : row) {
            test::countSignals(*design, pass, coverage);
        }
        notes.coverage = nullptr;
        ASSERT_TRUE(test::lower(*design, row, state, notes)) << "seed " << seed;
    }
    expectMet(coverage, internal::vectorUnrollRows(), kVector);
    expectMet(coverage, internal::complexUnrollRows(), kComplex);
    expectMet(coverage, internal::aggregateUnrollRows(), kRecord);
    for (const StaticString *type : {&A_GOTO_BLOCK, &A_FROM_BLOCK}) {
        EXPECT_NE(printed(coverage, "ElideFromGotoPass", std::string(type->text()), ""), 0U) << type->text();
    }
    EXPECT_NE(printed(coverage, "FlattenEverythingPass", std::string(A_MODEL_BLOCK.text()), ""), 0U);
    for (const char *compound : {"vector", "complex", "record"}) {
        EXPECT_NE(printed(coverage, "UnrollScheduledModelPass", std::string(A_SCHEDULED_MODEL_BLOCK.text()), compound),
                  0U);
    }
}

} // namespace
} // namespace orvo
