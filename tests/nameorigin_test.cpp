// Names of blocks of lowered designs lead back to the blocks that they came from.
#include <orvo/nameorigin.h>

#include "driver/pipeline.h"
#include "support/heardmessages.h"
#include "support/randomdesigns.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <fstream>
#include <sstream>

namespace orvo {
namespace {

class NameOriginTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mContext.context())); }
    Block &block(Model &model, const std::string &name) { return *Block::create(model, value(name)); }
    /// The block that a name in "top" leads to, as model/block, and the steps behind it.
    std::string origin(const std::string &name) {
        const NameOrigin found = NameOrigins(mDesign).originOf(value(name), mTop);
        if (!found) {
            return "nothing";
        }
        std::string text = found.block->getModel().getName()->toString() + "/" + found.block->getName()->toString();
        for (const NameStep &step : found.steps) {
            text += ", " + describe(step);
        }
        return text + (found.standsForBlock() ? "" : " *");
    }
    std::string continued(const std::string &name, const std::string &source) {
        std::vector<NameStep> steps;
        if (!continuesName(value(name), value(source), steps)) {
            return steps.empty() ? "no" : "steps of a name that is none";
        }
        std::string text = "yes";
        for (const NameStep &step : steps) {
            text += ", " + describe(step);
        }
        return text;
    }

    ContextMgr mContext;
    Design mDesign{mContext.context()};
    Model &mTop = *Model::create(mDesign, value("top"));
    Model &mSub = *Model::create(mDesign, value("sub"));
};

TEST_F(NameOriginTest, aNameOfTheSourceIsItself) {
    block(mTop, "sum");
    block(mTop, "(sub x)");
    block(mSub, "x");
    block(mTop, "(sum 0)");
    EXPECT_EQ(origin("sum"), "top/sum");
    EXPECT_EQ(origin("(sub x)"), "top/(sub x)");
    EXPECT_EQ(origin("(sum 0)"), "top/(sum 0)");
    EXPECT_EQ(origin("other"), "nothing");
    EXPECT_EQ(origin("3"), "nothing");
    EXPECT_EQ(origin("(other 0)"), "nothing");
}

TEST_F(NameOriginTest, dissolvedModelsStandInFront) {
    Model &low = *Model::create(mDesign, value("low"));
    block(low, "x");
    block(mSub, "y");
    EXPECT_EQ(origin("(low x)"), "low/x, copied out of model low");
    EXPECT_EQ(origin("(sub (low x))"), "low/x, copied out of model low, copied out of model sub");
    EXPECT_EQ(origin("(dupName 0 (sub y))"), "sub/y, copied out of model sub, one more of the name (0)");
    EXPECT_EQ(origin("(sub (dupName 2 y))"), "sub/y, one more of the name (2), copied out of model sub");
    EXPECT_EQ(origin("(sub (y 1))"), "sub/y, element 1, copied out of model sub");
    EXPECT_EQ(origin("((sub y) 1)"), "sub/y, copied out of model sub, element 1");
    EXPECT_EQ(origin("(sub z)"), "nothing");
}

TEST_F(NameOriginTest, aBlockOfTheNameOfAModelHasElements) {
    block(mTop, "sub");
    block(mSub, "1");
    EXPECT_EQ(origin("(sub 0)"), "top/sub, element 0");
    // Both can be; the model comes first.
    EXPECT_EQ(origin("(sub 1)"), "sub/1, copied out of model sub");
}

TEST_F(NameOriginTest, lanesAndPartsStandBehind) {
    block(mTop, "m");
    block(mTop, "(a b)");
    EXPECT_EQ(origin("(m 3)"), "top/m, element 3");
    EXPECT_EQ(origin("(m 1 2)"), "top/m, element 1, element 2");
    EXPECT_EQ(origin("((m 3) imag)"), "top/m, element 3, imaginary part");
    EXPECT_EQ(origin("(m real)"), "top/m, real part");
    EXPECT_EQ(origin("((a b) 0)"), "top/(a b), element 0");
}

TEST_F(NameOriginTest, substitutesAreKnownByTheirWord) {
    block(mTop, "m");
    block(mTop, "(a 0)");
    block(mTop, "p_vunroll");
    EXPECT_EQ(origin("m_vunroll"), "top/m, in its place (vunroll)");
    EXPECT_EQ(origin("m_cunroll"), "top/m, in its place (cunroll)");
    EXPECT_EQ(origin("m_vunroll_aunroll"), "top/m, in its place (vunroll), in its place (aunroll)");
    EXPECT_EQ(origin("\"(a 0)_vunroll\""), "top/(a 0), in its place (vunroll)");
    EXPECT_EQ(origin("\"(m 1)_vunroll\""), "top/m, element 1, in its place (vunroll)");
    EXPECT_EQ(origin("(m vunroll 2)"), "top/m, in its place (vunroll), element 2");
    EXPECT_EQ(origin("(m_vunroll 2)"), "top/m, in its place (vunroll), element 2");
    EXPECT_EQ(origin("p_vunroll"), "top/p_vunroll");
    EXPECT_EQ(origin("\"_vunroll\""), "nothing");
    EXPECT_EQ(origin("m_vunroll2"), "nothing");
}

TEST_F(NameOriginTest, namesOfMoreRewritesThanAnyDesignMeetsLeadNowhere) {
    block(mTop, "m");
    std::string name = "m";
    for (int i = 0; i < 32; ++i) {
        name += "_vp";
    }
    EXPECT_NE(origin(name), "nothing");
    EXPECT_EQ(origin(name + "_vp"), "nothing");
    for (int i = 0; i < 50000; ++i) {
        name += "_vp";
    }
    EXPECT_EQ(origin(name), "nothing");
    std::string deep = "m";
    for (int i = 0; i < 990; ++i) {
        deep = "(" + deep + " 0)";
    }
    EXPECT_NE(origin(deep), "nothing");
    // A tuple in a text in a tuple nests deeper than one value's text may.
    std::string twice = "\"" + deep + "_vp\"";
    for (int i = 0; i < 990; ++i) {
        twice = "(" + twice + " 0)";
    }
    EXPECT_EQ(origin(twice), "nothing");
}

TEST_F(NameOriginTest, whatJoinsASignalNamesItsPort) {
    block(mTop, "m");
    EXPECT_EQ(origin("((m 0) vup)"), "top/m, at 0, beside it (vup) *");
    EXPECT_EQ(origin("((m y) vp 3)"), "top/m, at y, beside it (vp) *");
    EXPECT_EQ(origin("(((m 2) y) cp)"), "top/m, element 2, at y, beside it (cp) *");
    EXPECT_EQ(origin("(m 0 cunpack)"), "top/m, at 0, beside it (cunpack) *");
    EXPECT_EQ(origin("(m x imagZero)"), "top/m, at x, beside it (imagZero) *");
    EXPECT_EQ(origin("((m x) unpackPin)"), "top/m, at x, beside it (unpackPin) *");
    EXPECT_EQ(origin("((m x) unrelaxCast)"), "top/m, at x, beside it (unrelaxCast) *");
    EXPECT_EQ(origin("((m x) unrelaxReduce)"), "top/m, at x, beside it (unrelaxReduce) *");
    EXPECT_EQ(origin("(m 1 unapack_aunpack_0)"), "top/m, at 1, beside it (unapack_aunpack_0) *");
    EXPECT_EQ(origin("(m 1 apack_aunpack)"), "top/m, at 1, beside it (apack_aunpack) *");
    EXPECT_EQ(origin("((n 0) vup)"), "nothing");
}

TEST_F(NameOriginTest, packsAtScheduledModelsNameThePortAlone) {
    Block &scheduled = block(mTop, "s");
    EXPECT_EQ(origin("(x vup)"), "nothing");
    scheduled.setParam(A_BLOCK_TYPE, A_SCHEDULED_MODEL_BLOCK);
    Wire::create(scheduled, "y");
    scheduled.setParam(value("x"), *Wire::create(block(mTop, "in"), "x"));
    block(mTop, "x");
    EXPECT_EQ(origin("(x vup)"), "top/s, at x, beside it (vup) *");
    EXPECT_EQ(origin("(y cp 2)"), "top/s, at y, beside it (cp) *");
    EXPECT_EQ(origin("(dupName 0 (y ap))"), "top/s, at y, beside it (ap), one more of the name (0) *");
    EXPECT_EQ(origin("(z vup)"), "nothing");
    EXPECT_EQ(origin("(x real)"), "top/x, real part");
}

TEST_F(NameOriginTest, packsAtScheduledModelsOfDissolvedModelsNameThePortAlone) {
    Model &low = *Model::create(mDesign, value("low"));
    const auto schedule = [&](Model &model, const char *name, const char *key) {
        Block &made = block(model, name);
        made.setParam(A_BLOCK_TYPE, A_SCHEDULED_MODEL_BLOCK);
        Wire::create(made, key);
    };
    const auto instantiate = [&](Model &model, const char *name, Model &child) {
        Block &made = block(model, name);
        made.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, child.value());
    };
    schedule(low, "s", "y");
    schedule(low, "t", "z");
    schedule(mSub, "s", "y");
    EXPECT_EQ(origin("(y vp)"), "nothing");
    instantiate(mSub, "a", low);
    instantiate(mTop, "b", mSub);
    instantiate(mTop, "c", mSub);
    EXPECT_EQ(NameOrigins(mDesign).originOf(value("(z vp)"), low).block, low.getBlock(value("t")));
    EXPECT_EQ(origin("(y vp)"), "sub/s, copied out of model sub, at y, beside it (vp) *");
    EXPECT_EQ(origin("(z cp 1)"), "low/t, copied out of model low, at z, beside it (cp) *");
    EXPECT_EQ(origin("(dupName 1 (z vp))"),
              "low/t, copied out of model low, at z, beside it (vp), one more of the name (1) *");
    EXPECT_EQ(origin("(sub (z vp))"),
              "low/t, copied out of model low, at z, beside it (vp), copied out of model sub *");
    EXPECT_EQ(origin("(x vp)"), "nothing");
    schedule(mTop, "s", "y");
    EXPECT_EQ(origin("(y vp)"), "top/s, at y, beside it (vp) *");
}

TEST_F(NameOriginTest, whatIsMadeBesideIsTold) {
    block(mTop, "m");
    EXPECT_EQ(origin("m_vp"), "top/m, beside it (vp) *");
    EXPECT_EQ(origin("m_vup12"), "top/m, beside it (vup12) *");
    EXPECT_EQ(origin("((m 0) cast)"), "top/m, element 0, beside it (cast) *");
    EXPECT_EQ(origin("(m neg 1 2)"), "top/m, beside it (neg) *");
}

TEST_F(NameOriginTest, aModelThatTheSourceLacksLeadsNowhere) {
    Design other(mContext.context());
    block(*Model::create(other, value("new")), "m");
    block(mTop, "m");
    EXPECT_FALSE(NameOrigins(mDesign).originOf(*other.getModel(value("new"))->getBlock(value("m"))));
    block(*Model::create(other, value("top")), "(m 1)");
    EXPECT_TRUE(NameOrigins(mDesign).originOf(*other.getModel(value("top"))->getBlock(value("(m 1)"))));
}

TEST_F(NameOriginTest, portsContinueThoseOfTheSource) {
    EXPECT_EQ(continued("x", "x"), "yes");
    EXPECT_EQ(continued("(x 3)", "x"), "yes, element 3");
    EXPECT_EQ(continued("(x real 3)", "x"), "yes, real part, element 3");
    EXPECT_EQ(continued("((x 1) imag)", "x"), "yes, element 1, imaginary part");
    EXPECT_EQ(continued("(k 2 0)", "(k 0)"), "yes, element 2");
    EXPECT_EQ(continued("((k 0) 2)", "(k 0)"), "yes, element 2");
    EXPECT_EQ(continued("(k 0 2)", "(k 0)"), "no");
    EXPECT_EQ(continued("(x y)", "x"), "no");
    EXPECT_EQ(continued("(x 3 y)", "x"), "no");
    EXPECT_EQ(continued("((x 3) y)", "x"), "no");
    EXPECT_EQ(continued("y", "x"), "no");
}

/// What the installed pipeline runs.
std::vector<driver::PassText> structural(Context *context) {
    std::ifstream in(driver::installedPipelines());
    std::stringstream text;
    text << in.rdbuf();
    std::vector<driver::Preset> presets;
    const auto error = driver::parsePipelines(text.str(), context, presets);
    for (const driver::Preset &preset : presets) {
        if (!error && preset.name == "structural") {
            return preset.passes;
        }
    }
    return {};
}

/// A sink by chance reads anything, but across the edge of a model only a source of error correction may be read.
void deleteErrorCorrectionSinks(Design &design) {
    std::vector<Block *> sinks;
    for (Model &model : design) {
        for (Block &block : model) {
            if (block.type() == A_ECC_SINK_BLOCK.get_ptr()) {
                sinks.push_back(&block);
            }
        }
    }
    for (Block *sink : sinks) {
        delete sink;
    }
}

bool isBoundary(const Block &block) {
    return block.type() == A_INPUT_BLOCK.get_ptr() || block.type() == A_OUTPUT_BLOCK.get_ptr();
}

// Boundaries are the model's own: signals that pass through a model without one make it.
class OriginsBehindEachPass final : public PassInstrumentation {
  public:
    explicit OriginsBehindEachPass(const Design &before) : mOrigins(before) {}
    std::size_t renamed() const { return mRenamed; }

    void afterPass(const PassExecution &pass, Design &design, bool) override {
        for (const Model &model : design) {
            for (const Block &block : model) {
                if (!isBoundary(block)) {
                    look(pass, model, block);
                }
            }
        }
    }

  private:
    void look(const PassExecution &pass, const Model &model, const Block &block) {
        const NameOrigin origin = mOrigins.originOf(block);
        if (!origin) {
            RC_LOG() << "behind " << pass.name << ": " << model.getName()->toString() << "/"
                     << block.getName()->toString();
        }
        RC_ASSERT(static_cast<bool>(origin));
        mRenamed += origin.steps.empty() ? 0 : 1;
        if (origin.standsForBlock() && origin.steps.empty()) {
            RC_ASSERT(origin.block->getModel().getName() == model.getName());
        }
    }

    const NameOrigins mOrigins;
    std::size_t mRenamed = 0;
};

TEST(NameOriginProperty, everyPrimitiveLeadsBackThroughTheStructuralPreset) {
    std::size_t renamed = 0;
    std::size_t designs = 0;
    const bool holds = rc::check("every primitive leads back", [&] {
        ContextMgr mgr;
        gen::DesignGenerator generator(mgr.context());
        const std::vector<gen::Recipe> recipes = *test::recipes(60);
        const auto before = generator.make(recipes);
        const auto after = generator.make(recipes);
        deleteErrorCorrectionSinks(*after);
        const std::vector<driver::PassText> passes = structural(mgr.context());
        RC_ASSERT(!passes.empty());
        test::HeardMessages silent(mgr.context());
        PassSchedulerState state;
        OriginsBehindEachPass origins(*before);
        PassScheduler scheduler(&state);
        scheduler.setInstrumentation(&origins);
        driver::addPasses(scheduler, passes);
        scheduler.apply(*after);
        renamed += origins.renamed();
        ++designs;
    });
    EXPECT_TRUE(holds);
    // Without lanes and copies it would show nothing.
    EXPECT_GT(designs, 0U);
    EXPECT_GE(renamed, designs);
}

// Larger designs than RapidCheck's, by fixed seeds.
TEST(NameOriginProperty, everyPrimitiveOfLargeDesignsLeadsBack) {
    constexpr std::uint64_t designs = 200;
    for (std::uint64_t seed = 1; seed <= designs; ++seed) {
        ContextMgr mgr;
        gen::DesignGenerator generator(mgr.context());
        const std::vector<gen::Recipe> recipes = gen::recipesOf(seed, 40 + seed % 80);
        const auto before = generator.make(recipes);
        const auto after = generator.make(recipes);
        deleteErrorCorrectionSinks(*after);
        test::HeardMessages silent(mgr.context());
        PassSchedulerState state;
        PassScheduler scheduler(&state);
        driver::addPasses(scheduler, structural(mgr.context()));
        scheduler.apply(*after);
        const NameOrigins origins(*before);
        for (const Model &model : *after) {
            for (const Block &block : model) {
                ASSERT_TRUE(isBoundary(block) || origins.originOf(block))
                    << "seed " << seed << ": " << model.getName()->toString() << "/" << block.getName()->toString();
            }
        }
    }
}

} // namespace
} // namespace orvo
