// The small services: callables, sets in order, texts, diagnostics and the root directory.
#include <util/diagnostics.h>
#include <util/features.h>
#include <util/function.h>
#include <util/io.h>
#include <util/root.h>
#include <util/set_vector.h>
#include <util/strings.h>

#include <gtest/gtest.h>

namespace util {
namespace {

struct Adder {
    int add(int n) { return base + n; }
    int base = 0;
};
int twice(int n) { return 2 * n; }

TEST(Function, callsAMethodOfItsObjectOrAFreeFunction) {
    Adder five{5};
    const auto method = Function<int(int)>::bind<&Adder::add>(&five);
    EXPECT_EQ(method(2), 7);
    EXPECT_EQ(Function<int(int)>::bind<&twice>()(4), 8);
    EXPECT_FALSE(static_cast<bool>(Function<int(int)>()));
    EXPECT_EQ(sizeof(method), 2 * sizeof(void *));
}

TEST(Function, equalsOneThatCallsTheSameOnTheSameObject) {
    Adder a;
    Adder b;
    EXPECT_TRUE((Function<int(int)>::bind<&Adder::add>(&a) == Function<int(int)>::bind<&Adder::add>(&a)));
    EXPECT_TRUE((Function<int(int)>::bind<&Adder::add>(&a) != Function<int(int)>::bind<&Adder::add>(&b)));
}

TEST(SetVector, keepsFirstInsertionOrderWithoutDuplicates) {
    set_vector<int> set;
    EXPECT_TRUE(set.insert(3));
    EXPECT_TRUE(set.insert(1));
    EXPECT_FALSE(set.insert(3));
    EXPECT_EQ(std::vector<int>(set.begin(), set.end()), (std::vector<int>{3, 1}));
    EXPECT_TRUE(set.contains(1));
    EXPECT_EQ(set[1], 1);
    set.clear();
    EXPECT_TRUE(set.empty());
    EXPECT_FALSE(set.contains(1));
}

TEST(Strings, splitAtEachDelimiter) {
    EXPECT_EQ(split("a,b,,c", ","), (std::vector<std::string>{"a", "b", "", "c"}));
    EXPECT_EQ(split("a,b;c", ",;"), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(split("", ","), (std::vector<std::string>{""}));
}

TEST(Strings, compareWithoutRegardToTheCaseOfAscii) {
    EXPECT_TRUE(caseInsensitiveEquals("MappingsSection", "MAPPINGSSECTION"));
    EXPECT_FALSE(caseInsensitiveEquals("a", "ab"));
    EXPECT_FALSE(caseInsensitiveEquals("\xc3\xa9", "\xc3\x89"));
}

struct Sink final : DiagnosticSink {
    void onDiagnostic(bool isError, const std::string &text) override { heard += (isError ? "E:" : "W:") + text; }
    std::string heard;
};

TEST(Diagnostics, goToTheSinkOfTheThreadOrToStandardError) {
    Sink sink;
    DiagnosticSink *before = setDiagnosticSink(&sink);
    brenn_warning_printf("%s %d\n", "a", 1);
    brenn_error_printf("%s\n", "b");
    setDiagnosticSink(before);
    EXPECT_EQ(sink.heard, "W:a 1\nE:b\n");
    ::testing::internal::CaptureStderr();
    brenn_error_printf("%s\n", "c");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Error: c\n");
}

TEST(RootDirectory, holdsTheCatalogueUnlessAFeatureNamesAnother) {
    EXPECT_TRUE(io::FileExists(GetLumoBackendRootDir() + "/include/orvo/orvo_static_strings.csv"));
    SetFeatureString("rootDirectory", "/elsewhere");
    EXPECT_EQ(GetLumoBackendRootDir(), "/elsewhere");
    ClearFeature("rootDirectory");
}

} // namespace
} // namespace util
