// The lines that messages become.
#include "driver/console.h"

#include "driver/jsontext.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace orvo::driver {
namespace {

TEST(Console, putsPlaceSeverityTextAndTagOnOneLine) {
    Console console;
    EXPECT_EQ(console.messageLine(Severity::Error, "DRIVER_UNKNOWN_PASS", {{"pass", "A"}}, {"f.xml", 3, 7}),
              "f.xml:3:7: error: there is no pass 'A' [DRIVER_UNKNOWN_PASS]\n");
    EXPECT_EQ(console.messageLine(Severity::Warning, "DRIVER_UNKNOWN_PASS", {{"pass", "A"}}, {"f.xml", 3, 0}),
              "f.xml:3: warning: there is no pass 'A' [DRIVER_UNKNOWN_PASS]\n");
    EXPECT_EQ(console.messageLine(Severity::Info, "DRIVER_UNKNOWN_PASS", {{"pass", "A"}}, {"f.xml", 0, 5}),
              "f.xml: info: there is no pass 'A' [DRIVER_UNKNOWN_PASS]\n");
    EXPECT_EQ(console.messageLine(Severity::Debug, "DRIVER_UNKNOWN_PASS", {{"pass", "A"}}),
              "orvo: debug: there is no pass 'A' [DRIVER_UNKNOWN_PASS]\n");
}

TEST(Console, writesOneJsonObjectALine) {
    Console console;
    console.setJson(true);
    const std::string line =
        console.messageLine(Severity::Error, "DRIVER_UNKNOWN_PASS", {{"pass", "a\n\"b\""}}, {"f.xml", 3, 7});
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const Json json = Json::parse(line);
    EXPECT_EQ(json["schema"], "orvo.message/1");
    EXPECT_EQ(json["severity"], "error");
    EXPECT_EQ(json["line"], 3);
    EXPECT_EQ(json["column"], 7);
    EXPECT_EQ(json["params"]["pass"], "a\n\"b\"");
    const Json bare = Json::parse(console.messageLine(Severity::Error, "DRIVER_UNKNOWN_PASS", {}));
    EXPECT_FALSE(bare.contains("file"));
    EXPECT_FALSE(bare.contains("line"));
}

TEST(Console, replacesBytesThatAreNoText) {
    Console console;
    console.setJson(true);
    const std::string line = console.messageLine(Severity::Error, "DRIVER_UNKNOWN_PASS", {{"pass", "\xff\xfe"}});
    EXPECT_TRUE(Json::accept(line));
}

TEST(Console, countsAndCarriesMessagesOfTheLibrary) {
    Console console;
    testing::internal::CaptureStderr();
    console.onMessage(0, "FROM_MISSING_TAG", log::LogParams("block", "f"));
    console.onMessage(1, "NO_SUCH_TAG", log::LogParams());
    console.onDiagnostic(false, "odd file\n");
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text, "orvo: error: From block 'f' has no tag [FROM_MISSING_TAG]\n"
                    "orvo: warning: NO_SUCH_TAG [NO_SUCH_TAG]\n"
                    "orvo: warning: the library reports: odd file [DRIVER_DIAGNOSTIC]\n");
    EXPECT_EQ(console.errors(), 1U);
    EXPECT_EQ(console.warnings(), 2U);
}

TEST(Console, failingTellsOnceAndCarriesTheExitCode) {
    Console console;
    testing::internal::CaptureStderr();
    int code = 0;
    try {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "x"}});
    } catch (const VerbFailure &failure) {
        code = failure.exitCode;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(code, 2);
    EXPECT_EQ(console.errors(), 1U);
}

TEST(WriteAll, tellsOfAFullDevice) {
    const int full = ::open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    EXPECT_FALSE(writeAll(full, "x"));
    EXPECT_TRUE(writeAll(full, ""));
    ::close(full);
}

} // namespace
} // namespace orvo::driver
