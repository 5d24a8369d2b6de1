// A target is whole or untouched, whatever ends the writing.
#include <util/atomicfile.h>

#include <util/io.h>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

namespace util::io {
namespace {

namespace fs = std::filesystem;

enum class Way { Unnamed, Named, Copied };

class AtomicFileTest : public ::testing::TestWithParam<Way> {
  protected:
    AtomicFileTest() {
        folder = ::testing::TempDir() + "orvo-atomic-" + std::to_string(::getpid());
        fs::remove_all(folder);
        fs::create_directories(folder);
        target = folder + "/target";
    }
    ~AtomicFileTest() override { fs::remove_all(folder); }
    AtomicFile::Options options() const {
        AtomicFile::Options chosen;
        chosen.forceNamed = GetParam() == Way::Named;
        chosen.forbidLink = GetParam() == Way::Copied;
        return chosen;
    }
    void put(const std::string &text) { std::ofstream(target) << text; }
    std::string content() {
        std::string text;
        readFile(target, text);
        return text;
    }
    std::size_t filesInFolder() {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }
    std::string folder;
    std::string target;
};

TEST_P(AtomicFileTest, showsWhatWasWrittenOnlyAfterTheCommit) {
    put("old");
    AtomicFile file(target, options());
    file.stream() << "new " << 5;
    EXPECT_EQ(content(), "old");
    EXPECT_TRUE(file.commit());
    EXPECT_EQ(content(), "new 5");
    EXPECT_EQ(filesInFolder(), 1U);
    EXPECT_TRUE(file.commit());
}

TEST_P(AtomicFileTest, leavesNothingBehindWithoutACommit) {
    {
        AtomicFile file(target, options());
        file.stream() << "new";
    }
    EXPECT_EQ(filesInFolder(), 0U);
}

TEST_P(AtomicFileTest, keepsTheModeOfTheTargetAndHonoursTheMask) {
    put("old");
    ::chmod(target.c_str(), 0640);
    EXPECT_TRUE(AtomicFile(target, options()).commit());
    struct stat info {};
    ::stat(target.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0640U);
    fs::remove(target);
    const mode_t before = ::umask(027);
    EXPECT_TRUE(AtomicFile(target, options()).commit());
    ::umask(before);
    ::stat(target.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0640U);
}

TEST_P(AtomicFileTest, writesThroughASymbolicLink) {
    put("old");
    const std::string link = folder + "/link";
    fs::create_symlink("target", link);
    AtomicFile file(link, options());
    file.stream() << "new";
    EXPECT_TRUE(file.commit());
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(content(), "new");
    const std::string dangling = folder + "/dangling";
    fs::create_symlink("made", dangling);
    EXPECT_TRUE(AtomicFile(dangling, options()).commit());
    EXPECT_TRUE(fs::exists(folder + "/made"));
}

TEST_P(AtomicFileTest, writesToTheEndOfAChainOfLinksThatIsStillToBeMade) {
    fs::create_symlink("second", folder + "/first");
    fs::create_symlink("target", folder + "/second");
    AtomicFile file(folder + "/first", options());
    file.stream() << "new";
    ASSERT_TRUE(file.commit());
    EXPECT_EQ(content(), "new");
    EXPECT_TRUE(fs::is_symlink(folder + "/first"));
    EXPECT_TRUE(fs::is_symlink(folder + "/second"));
    EXPECT_FALSE(fs::is_symlink(target));
}

TEST_P(AtomicFileTest, reportsFoldersThatDoNotTakeAFile) {
    std::string error;
    AtomicFile missing(folder + "/none/x", options());
    missing.stream() << "new";
    EXPECT_NE(missing.error().find("No such file or directory"), std::string::npos);
    EXPECT_FALSE(missing.commit(&error));
    EXPECT_EQ(error, missing.error());
    AtomicFile aFolder(folder, options());
    EXPECT_NE(aFolder.error().find("directory"), std::string::npos);
    put("old");
    AtomicFile belowAFile(target + "/x", options());
    EXPECT_FALSE(belowAFile.commit());
}

TEST_P(AtomicFileTest, reportsAFolderThatWentAwayMeanwhile) {
    std::string error;
    AtomicFile file(target, options());
    file.stream() << "new";
    fs::remove_all(folder);
    EXPECT_FALSE(file.commit(&error));
    EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;
    EXPECT_FALSE(fs::exists(folder));
}

TEST_P(AtomicFileTest, leavesTheTargetWhenTheDiskIsFull) {
    put("old");
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, 4096};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        AtomicFile file(target, options());
        file.stream() << std::string(1000000, 'x');
        ::_exit(file.commit() ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(content(), "old");
    EXPECT_EQ(filesInFolder(), 1U);
}

TEST_P(AtomicFileTest, leavesAWholeTargetWhenItsWriterIsKilled) {
    const std::string contents[] = {std::string(300000, 'a'), std::string(300001, 'b')};
    put(contents[0]);
    for (int round = 0; round < 30; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            for (unsigned int i = 1;; ++i) {
                AtomicFile file(target, options());
                file.stream() << contents[i % 2];
                file.commit();
            }
        }
        ::usleep(static_cast<useconds_t>(500 + round * 337 % 5000));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        const std::string now = content();
        EXPECT_TRUE(now == contents[0] || now == contents[1]) << now.size();
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, AtomicFileTest, ::testing::Values(Way::Unnamed, Way::Named, Way::Copied));

TEST(AtomicFileDirect, writesWhatIsNoRegularFileDirectly) {
    AtomicFile nothing("/dev/null");
    nothing.stream() << "x";
    EXPECT_TRUE(nothing.commit());
    AtomicFile full("/dev/full");
    full.stream() << "x";
    std::string error;
    EXPECT_FALSE(full.commit(&error));
    EXPECT_EQ(error, "/dev/full: No space left on device");
}

} // namespace
} // namespace util::io
