// The text form of pipelines, and the file that comes with the library.
#include "driver/pipeline.h"

#include <orvo/context.h>
#include <orvo/limits.h>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace orvo::driver {
namespace {

class PipelineTest : public ::testing::Test {
  protected:
    /// The presets as they print, or the place and the reason of the error.
    std::string read(const std::string &text) {
        std::vector<Preset> presets;
        if (const auto error = parsePipelines(text, mContext.context(), presets)) {
            return std::to_string(error->position.line) + ":" + std::to_string(error->position.column) + " " +
                   error->reason;
        }
        std::string printed;
        for (const Preset &preset : presets) {
            printed += printPipeline(preset);
        }
        return printed;
    }

    ContextMgr mContext;
};

TEST_F(PipelineTest, aTextMayBeEmpty) {
    EXPECT_EQ(read(""), "");
    EXPECT_EQ(read("# nothing\n\n   \t\r\n"), "");
    EXPECT_EQ(read("[a]"), "[a]\n");
}

TEST_F(PipelineTest, linesAreRead) {
    EXPECT_EQ(read("\xef\xbb\xbf[ a ] # one\r\n  A{P=(1 2)}   # with a value\r\nB\r\n"), "[a]\nA{P=(1 2)}\nB\n");
    EXPECT_EQ(read("[a]\nA\n[b]\ninclude a\nB\n[c]\ninclude b # and more\ninclude a\n"),
              "[a]\nA\n[b]\nA\nB\n[c]\nA\nB\nA\n");
    // Only the whole word includes.
    EXPECT_EQ(read("[a]\nincluded"), "[a]\nincluded\n");
}

TEST_F(PipelineTest, presetsRunInTurns) {
    EXPECT_EQ(read("[a]\nA\nB\n[b]\nrepeat a # in turns\nC\n"), "[a]\nA\nB\n[b]\nrepeat(A, B)\nC\n");
    EXPECT_EQ(read("[a]\nrepeat (A, B) # in turns\n"), "[a]\nrepeat(A, B)\n");
    EXPECT_EQ(read("[a]\nrepeat(A, B)\n[b]\ninclude a\n"), "[a]\nrepeat(A, B)\n[b]\nrepeat(A, B)\n");
    EXPECT_EQ(read("[a]\n[b]\nrepeat a\n"), "[a]\n[b]\n");
    EXPECT_EQ(read("[a]\nrepeat(A)\n[b]\nrepeat a\n"), "4:1 preset 'a' has a repeat, which cannot stand in another");
    EXPECT_EQ(read("[a]\nrepeat(A, B), C\n"), "2:15 expected one pass a line");
    EXPECT_EQ(read("[a]\nrepeat b\n"), "2:1 there is no preset 'b' above");
    // Only the whole word repeats.
    EXPECT_EQ(read("[a]\nrepeated"), "[a]\nrepeated\n");
}

TEST_F(PipelineTest, whatIsPrintedReadsBack) {
    const std::string text = "[a]\nA{P=\"x y\", Q=(1 2)}\nB\n[b]\nA\n";
    EXPECT_EQ(read(text), text);
}

TEST_F(PipelineTest, passesKnowTheirPlace) {
    std::vector<Preset> presets;
    ASSERT_FALSE(parsePipelines("[a]\n\n  A{P=1}\n[b]\ninclude a\n", mContext.context(), presets));
    ASSERT_EQ(presets[1].passes.size(), 1U);
    EXPECT_EQ(presets[1].passes[0].position, (TextPosition{3, 3}));
    EXPECT_EQ(presets[1].passes[0].paramPositions[0], (TextPosition{3, 5}));
}

TEST_F(PipelineTest, errorsTellTheirPlace) {
    EXPECT_EQ(read("A\n"), "1:1 expected a preset like [structural] before the first pass");
    EXPECT_EQ(read("[a]\nA,\n B, C"), "3:5 expected one pass a line");
    EXPECT_EQ(read("[a]\n B = 1"), "2:4 expected a comma, found '='");
    EXPECT_EQ(read("[a b]"), "1:2 expected the name of a preset, of letters, digits, '_' and '-'");
    EXPECT_EQ(read("[a]\ninclude b"), "2:1 there is no preset 'b' above");
    EXPECT_EQ(read("[abc]\n[a]\ninclude acb"), "3:1 there is no preset 'acb' above: did you mean 'abc'?");
    EXPECT_EQ(read("[a]\n[b]\n[a]"), "3:1 preset 'a' stands twice");
}

TEST_F(PipelineTest, anErrorLeavesWhatWasThere) {
    std::vector<Preset> presets{{"kept", {}}};
    EXPECT_TRUE(parsePipelines("[a]\n[a]\n", mContext.context(), presets));
    ASSERT_EQ(presets.size(), 1U);
    EXPECT_EQ(presets[0].name, "kept");
}

TEST_F(PipelineTest, includesThatDoubleEndAtTheBound) {
    std::string text = "[p0]\nA\n";
    for (int i = 1; i <= 40; ++i) {
        const std::string above = std::to_string(i - 1);
        text += "[p" + std::to_string(i) + "]\ninclude p" + above + "\n  include p" + above + "\n";
    }
    // There are 2^16 - 1 passes up to p15.
    EXPECT_EQ(read(text), "49:1 the presets have more than 65536 passes with what they include");
}

TEST_F(PipelineTest, passesThatAreWrittenOutCountToo) {
    std::string text = "[a]\n";
    for (std::size_t i = 0; i < limits::kPipelinePasses; ++i) {
        text += "A\n";
    }
    EXPECT_EQ(read(text), text);
    EXPECT_EQ(read(text + " B\n"), "65538:2 the presets have more than 65536 passes with what they include");
}

TEST_F(PipelineTest, textsBeyondTheBoundAreRefused) {
    std::string text(limits::kPipelineBytes, '\n');
    EXPECT_EQ(read(text), "");
    EXPECT_EQ(read(text + "["), "1:1 the text is longer than 1048576 bytes");
}

// Looking through all names for each would take minutes.
TEST_F(PipelineTest, aHundredThousandPresetsAreRead) {
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += "[p" + std::to_string(i) + "]\n";
    }
    EXPECT_EQ(read(text), text);
    EXPECT_EQ(read(text + "[p7]"), "100001:1 preset 'p7' stands twice");
}

TEST_F(PipelineTest, theInstalledFileNamesPassesThatExist) {
    std::ifstream in(installedPipelines());
    ASSERT_TRUE(in) << installedPipelines();
    std::stringstream text;
    text << in.rdbuf();
    std::vector<Preset> presets;
    const auto error = parsePipelines(text.str(), mContext.context(), presets);
    ASSERT_FALSE(error) << error->position.line << ": " << error->reason;
    std::vector<std::string> names;
    for (const Preset &preset : presets) {
        names.push_back(preset.name);
        const auto unknown = findUnknown(preset.passes);
        EXPECT_FALSE(unknown) << unknown->pass;
        EXPECT_FALSE(preset.passes.empty());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"records-and-vectors", "structural", "composites", "primitives",
                                               "subsystems"}));
    EXPECT_EQ(presets[1].passes.front().name, "ElideFromGotoPass");
}

} // namespace
} // namespace orvo::driver
