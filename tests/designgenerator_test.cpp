// Designs by chance: they infer completely and silently, can be simulated, and hold all that the catalogue knows.
#include "gen/designgenerator.h"

#include "support/invariants.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/simulator.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

namespace orvo::gen {
namespace {

class Ear final : public ContextListener {
  public:
    void onMessage(int, const char *tag, const log::LogParams &) override { heard.insert(tag); }
    std::set<std::string> heard;
};

const Model &topOf(const Design &design, Context *context) {
    return *design.getModel(PureValueRef(StringValue::get("top", context)));
}

std::string textOf(const Design &design) {
    std::ostringstream out;
    XMLServices().toXML(out, design);
    return out.str();
}

/// Why a design cannot be simulated.
std::string refusal(const Design &design, Context *context) {
    try {
        sim::Simulator simulator(design, topOf(design, context));
        simulator.step();
    } catch (const sim::SimulationError &error) {
        return std::string(error.what()) + (error.blocks().empty() ? "" : " at " + error.blocks()[0]);
    }
    return "";
}

// Whatever is taken out of the recipes, what is left is a design: that is how failures shrink.
RC_GTEST_PROP(DesignGenerator, makesDesignsThatInferAndRunInSilence, ()) {
    ContextMgr mgr;
    Ear ear;
    mgr.context()->setListener(&ear);
    DesignGenerator generator(mgr.context());
    const auto design = generator.make(*test::recipes(60));
    RC_ASSERT(test::checkInvariants(*design));
    RC_ASSERT(refusal(*design, mgr.context()).empty());
    RC_ASSERT(ear.heard.empty());
}

TEST(DesignGenerator, makesDesignsOfEverySize) {
    ContextMgr mgr;
    DesignGenerator generator(mgr.context());
    for (const std::size_t size : std::initializer_list<std::size_t>{0, 1, 2, 10, 100, 3000}) {
        const auto design = generator.make(recipesOf(7, size));
        EXPECT_TRUE(test::checkInvariants(*design));
        EXPECT_EQ(refusal(*design, mgr.context()), "") << size;
    }
}

TEST(DesignGenerator, givesTheSameBytesForTheSameSeed) {
    ContextMgr mgr;
    DesignGenerator one(mgr.context());
    // What was made before leaves no trace.
    one.make(recipesOf(1, 200));
    const std::string text = textOf(*one.make(recipesOf(2, 100)));
    ContextMgr other;
    EXPECT_EQ(textOf(*DesignGenerator(other.context()).make(recipesOf(2, 100))), text);
    EXPECT_NE(textOf(*DesignGenerator(other.context()).make(recipesOf(3, 100))), text);
}

TEST(DesignGenerator, writesDesignsThatReadBackTheSame) {
    ContextMgr mgr;
    DesignGenerator generator(mgr.context());
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        const auto design = generator.make(recipesOf(seed, 60));
        const std::string text = textOf(*design);
        Design again(mgr.context());
        std::istringstream in(text);
        ASSERT_TRUE(XMLServices().fromXML(in, again, XMLServices::defaultErrorFunc)) << seed;
        EXPECT_EQ(textOf(again), text) << seed;
        sim::CompareOptions options;
        options.cycles = 20;
        SCOPED_TRACE(seed);
        test::expectSameBehaviour(*design, again, "top", options);
    }
}

// A failure shrinks to a design of few blocks.
RC_GTEST_PROP(DesignGenerator, makesDesignsThatPassesLeaveAsTheyCompute, ()) {
    ContextMgr mgr;
    DesignGenerator generator(mgr.context());
    const std::vector<Recipe> recipes = *test::recipes(60);
    const auto before = generator.make(recipes);
    const auto after = generator.make(recipes);
    PassScheduler scheduler;
    for (const char *pass : {"DeadBlockPass", "ElideUnpackPass", "ElideTerminalPass", "DeadModelPass"}) {
        scheduler.addPass(pass);
    }
    scheduler.apply(*after);
    RC_ASSERT(test::checkInvariants(*after));
    sim::CompareOptions options;
    options.cycles = 20;
    const auto same = test::sameBehaviour(*before, *after, "top", options);
    if (!same) {
        RC_LOG() << same.message() << "\n" << textOf(*before);
    }
    RC_ASSERT(same);
}

TEST(DesignGenerator, hitsEveryBlockTypeThatCanBeSimulated) {
    ContextMgr mgr;
    DesignGenerator generator(mgr.context());
    for (std::uint64_t seed = 0; seed < 1500; ++seed) {
        generator.make(recipesOf(seed, 60));
    }
    std::size_t cells = 0;
    std::set<std::string> told;
    for (const ToldBlock &block : toldBlocks()) {
        told.insert(block.type->text());
    }
    for (const BlockShape &shape : generator.shapes()) {
        if (!shape.reason.empty() && told.count(shape.type->toString()) == 0) {
            continue;
        }
        const Tally &tally = generator.tallies().at(shape.name);
        std::size_t made = 0;
        for (const auto &[dataClass, count] : tally.made) {
            made += count;
            ++cells;
        }
        EXPECT_GE(made, 10U) << shape.name << ": " << (tally.refused.empty() ? "" : tally.refused.begin()->first);
    }
    EXPECT_GT(cells, 500U);
}

TEST(DesignGenerator, hasHierarchyFeedbackAndEveryClassOfSignals) {
    ContextMgr mgr;
    DesignGenerator generator(mgr.context());
    std::size_t instancesOfOne = 0;
    std::size_t deepest = 0;
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        const auto design = generator.make(recipesOf(seed, 60));
        for (const Model &model : *design) {
            instancesOfOne = std::max(instancesOfOne, model.getParentBlocks().size());
        }
        deepest = std::max(deepest, design->size());
    }
    EXPECT_GT(instancesOfOne, 1U);
    EXPECT_GT(deepest, 3U);
    std::set<DataClass> classes;
    for (const auto &[name, tally] : generator.tallies()) {
        for (const auto &[dataClass, count] : tally.made) {
            classes.insert(dataClass);
        }
    }
    EXPECT_EQ(classes.size(), kDataClasses);
}

} // namespace
} // namespace orvo::gen
