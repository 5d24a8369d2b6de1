// What is said below errors of passes.
#include "driver/errorhints.h"

#include "driver/console.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

namespace orvo::driver {
namespace {

class ErrorHintsTest : public ::testing::Test {
  protected:
    /// Tells an error, which goes to the test's standard error.
    void tell(const char *tag) {
        testing::internal::CaptureStderr();
        console.report(Severity::Error, tag, {});
        testing::internal::GetCapturedStderr();
    }
    std::vector<std::string> hints(const std::string &input = "d.xml") { return hintsAfter(console, design, input); }

    ContextMgr mgr;
    Console console;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
};

TEST_F(ErrorHintsTest, nothingBelowOtherErrors) {
    Block::create(top, "odd")->setParam(A_BLOCK_TYPE, StringValue::get("addBlok", mgr.context()));
    EXPECT_TRUE(hints().empty());
    tell("FROM_MISSING_WIRE");
    EXPECT_TRUE(hints().empty());
}

TEST_F(ErrorHintsTest, oneBlockOfEachUnknownTypeWhereTypesAreMissing) {
    for (const char *name : {"odd", "odder"}) {
        Block::create(top, name)->setParam(A_BLOCK_TYPE, StringValue::get("addBlok", mgr.context()));
    }
    tell("UNVEC_INVALID_WIRE_TYPE");
    const std::vector<std::string> all = hints();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0], "block 'odd' in model 'top' has no type that the block catalogue knows: addBlok");
    EXPECT_EQ(all[1], "'orvo check d.xml' tells which types are missing or do not fit");
    EXPECT_EQ(hints("-").back(), "'orvo check IN' tells which types are missing or do not fit");
}

TEST_F(ErrorHintsTest, namesOfFilesAsAShellTakesThem) {
    tell("UNVEC_INVALID_WIRE_TYPE");
    const auto named = [&](const std::string &input) {
        const std::string hint = hints(input).back();
        const std::string begin = "'orvo check ";
        return hint.substr(begin.size(), hint.rfind("' tells") - begin.size());
    };
    EXPECT_EQ(named("/a_b/c-1.xml"), "/a_b/c-1.xml");
    EXPECT_EQ(named("my file.xml"), "my\\ file.xml");
    EXPECT_EQ(named("$a;'b'\"(c)\\"), "\\$a\\;\\'b\\'\\\"\\(c\\)\\\\");
    EXPECT_EQ(named("-x.xml"), "./-x.xml");
    EXPECT_EQ(named("\xC3\xA4.xml"), "\xC3\xA4.xml");
    EXPECT_EQ(named("a\nb.xml"), "IN");
}

TEST_F(ErrorHintsTest, modelsThatNoneNeedsWhereTagsDoNotGetThrough) {
    tell("FROM_NO_REFCHAIN");
    Model &low = *Model::create(design, "low");
    EXPECT_TRUE(hints().empty()) << "no model is to be written out";
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    ASSERT_EQ(hints().size(), 1u);
    EXPECT_NE(hints()[0].find("'orvo opt d.xml -p DeadModelPass -o OUT'"), std::string::npos);
    Block::create(top, "low", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, low);
    EXPECT_TRUE(hints().empty());
}

} // namespace
} // namespace orvo::driver
