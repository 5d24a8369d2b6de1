// What the documents say of the code is so.
#include <orvo/limits.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace orvo {
namespace {

std::string fileText(const std::string &path) {
    std::ifstream in(std::string(ORVO_TEST_SOURCE_DIR) + "/" + path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(Documents, tellEveryBoundOnWhatIsRead) {
    const std::pair<const char *, std::size_t> bounds[] = {
        {"kTupleDepth", limits::kTupleDepth},
        {"kRepeatCount", limits::kRepeatCount},
        {"kRepeatedElements", limits::kRepeatedElements},
        {"kDocumentRepeatedElements", limits::kDocumentRepeatedElements},
        {"kDocumentRepeatedElementsPerByte", limits::kDocumentRepeatedElementsPerByte},
        {"kNumberDigits", limits::kNumberDigits},
        {"kNumberExponent", static_cast<std::size_t>(limits::kNumberExponent)},
        {"kXmlAttributeBytes", limits::kXmlAttributeBytes},
        {"kXmlTextBytes", limits::kXmlTextBytes},
        {"kXmlDepth", limits::kXmlDepth},
        {"kXmlAttributes", limits::kXmlAttributes},
        {"kCatalogueLineBytes", limits::kCatalogueLineBytes},
        {"kTypeInstances", limits::kTypeInstances},
        {"kLanes", limits::kLanes},
        {"kPassTextBytes", limits::kPassTextBytes},
        {"kPipelineBytes", limits::kPipelineBytes},
        {"kPipelinePasses", limits::kPipelinePasses},
        {"kPassTurns", limits::kPassTurns},
    };
    const std::string page = fileText("docs/limits.md");
    const std::string header = fileText("include/orvo/limits.h");
    std::size_t inHeader = 0;
    for (std::size_t at = 0; (at = header.find("inline constexpr", at)) != std::string::npos; ++at) {
        ++inHeader;
    }
    EXPECT_EQ(inHeader, std::size(bounds)) << "a bound of limits.h is missing in this test and in docs/limits.md";
    for (const auto &[name, value] : bounds) {
        const std::string row = "| `" + std::string(name) + "` | " + std::to_string(value) + " |";
        EXPECT_NE(page.find(row), std::string::npos) << "docs/limits.md lacks the row " << row;
    }
}

TEST(Documents, showAProgramThatIsAnExample) {
    const std::string readme = fileText("README.md");
    const std::string example = fileText("examples/first_design.cpp");
    ASSERT_FALSE(example.empty());
    EXPECT_NE(readme.find("```cpp\n" + example + "```"), std::string::npos)
        << "copy examples/first_design.cpp into README.md";
}

// Notes of the kind that a reader of a clone can do nothing with: unfinished work, and places of one machine.
TEST(Documents, holdNoNotesForTheirAuthorsOnly) {
    namespace fs = std::filesystem;
    const std::regex note("\\b(TO"
                          "DO|FIX"
                          "ME|XX"
                          "X)\\b|(^|[^a-z./])/(work|home|root)/|\\bPart [0-9]+\\.[0-9]");
    const std::vector<std::string> folders = {"bench", "cmake", "docs",  "examples", "include",
                                              "src",   "tests", "tools", ".ci"};
    const auto look = [&note](const fs::path &file) {
        std::ifstream in(file);
        int number = 0;
        for (std::string line; std::getline(in, line);) {
            ++number;
            EXPECT_FALSE(std::regex_search(line.substr(0, 400), note))
                << file.string() << ":" << number << ": " << line;
        }
    };
    for (const std::string &folder : folders) {
        for (const auto &entry : fs::recursive_directory_iterator(fs::path(ORVO_TEST_SOURCE_DIR) / folder)) {
            const std::string kind = entry.path().extension().string();
            if (entry.is_regular_file() && kind != ".xml" && kind != ".csv" &&
                entry.path().string().find("/corpus") == std::string::npos) {
                look(entry.path());
            }
        }
    }
    for (const char *file : {"README.md", "CONTRIBUTING.md", "CMakeLists.txt", "Makefile"}) {
        look(fs::path(ORVO_TEST_SOURCE_DIR) / file);
    }
}

} // namespace
} // namespace orvo
