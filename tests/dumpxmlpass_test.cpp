// Dumps of the design as it stands.
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/xmlservices.h>

#include <util/io.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>

namespace orvo {
namespace {

class DumpTest : public ::testing::Test {
  protected:
    DumpTest() : folder(::testing::TempDir() + "orvo.dump-" + std::to_string(::getpid())) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        Model::create(design, "m");
    }
    ~DumpTest() override { std::filesystem::remove_all(folder); }
    void dump(const ParamContext &params) {
        PassScheduler scheduler;
        scheduler.addPass("DumpXMLPass", params);
        scheduler.apply(design);
    }
    WithParam name(const std::string &file) {
        return WithParam("P_FILENAME", StringValue::get(folder + "/" + file, mgr.context()));
    }
    std::string content(const std::string &file) {
        std::string text;
        util::io::readFile(folder + "/" + file, text);
        return text;
    }
    std::string expected() {
        std::ostringstream out;
        XMLServices().toXML(out, design);
        return out.str();
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    std::string folder;
};

TEST_F(DumpTest, writesTheDesignToTheNamedFile) {
    dump(name("d.tar.xml"));
    EXPECT_EQ(content("d.tar.xml"), expected());
}

TEST_F(DumpTest, numbersFurtherDumpsBehindTheStemUnlessToldToOverwrite) {
    dump(name("d.tar.xml"));
    dump(name("d.tar.xml"));
    dump(name("d.tar.xml"));
    EXPECT_EQ(content("d-2.tar.xml"), expected());
    EXPECT_EQ(content("d-3.tar.xml"), expected());
    Model::create(design, "n");
    dump(name("d.tar.xml") & WithParam("P_CLOBBER", A_TRUE));
    EXPECT_EQ(content("d.tar.xml"), expected());
    EXPECT_FALSE(util::io::FileExists(folder + "/d-4.tar.xml"));
}

TEST_F(DumpTest, namesADumpByTimeAndRunningNumber) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    dump({});
    dump({});
    std::filesystem::current_path(before);
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
        EXPECT_TRUE(std::regex_match(names.back(), std::regex("dump-\\d{4}-\\d\\d-\\d\\d-\\d{6}-\\d+\\.xml")));
    }
    EXPECT_EQ(names.size(), 2U);
}

TEST_F(DumpTest, reportsAFileThatCannotBeWritten) {
    ::testing::internal::CaptureStderr();
    dump(name("none/d.xml"));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ORVO Error: IO_ERR_COULD_NOT_OPEN_FILE_FOR_WRITING: file='" + folder + "/none/d.xml'.\n");
    Model::create(design, "m2")
        ->setParam(StringValue::get("k", mgr.context()), StringValue::get("\x01", mgr.context()));
    ::testing::internal::CaptureStderr();
    dump(name("d.xml"));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ORVO Error: IO_ERR_COULD_NOT_CREATE_FILE: file='" + folder + "/d.xml'.\n");
    EXPECT_FALSE(util::io::FileExists(folder + "/d.xml"));
}

} // namespace
} // namespace orvo
