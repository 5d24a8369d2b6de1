// Generated files: folders on the way, memory streams, double writes, and what goes wrong.
#include <orvo/filesystem.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

namespace orvo {
namespace {

class FileSystemTest : public ::testing::Test {
  protected:
    FileSystemTest() : folder(::testing::TempDir() + "orvo-files-" + std::to_string(::getpid())) {
        std::filesystem::remove_all(folder);
    }
    ~FileSystemTest() override { std::filesystem::remove_all(folder); }
    std::string content(const std::string &name) {
        std::string text;
        util::io::readFile(folder + "/" + name, text);
        return text;
    }
    std::string folder;
};

TEST_F(FileSystemTest, makesTheFoldersOfAPath) {
    FileSystem files;
    {
        auto file = files.open((folder + "/a/b/f").c_str(), FileWriteMode::Overwrite);
        EXPECT_TRUE(file->isWritable());
        file->printf("%d", 5);
        EXPECT_EQ(files.openFiles(), 1U);
    }
    EXPECT_EQ(files.openFiles(), 0U);
    EXPECT_EQ(content("a/b/f"), "5");
}

TEST_F(FileSystemTest, opensByFolderAndNameByDescriptionAndByModeText) {
    FileSystem files;
    files.open(folder.c_str(), "one", FileWriteMode::OverwriteBinary)->write("1");
    files.open(util::io::FileDescription{folder, "two"}, ".txt", FileWriteMode::Overwrite)->write("2");
    files.openFile(folder.c_str(), "three", "w")->write("3");
    files.openFile(folder.c_str(), "three", "ab")->write("3");
    files.openFile(util::io::FileDescription{folder, "four"}, ".txt", "wb")->write("4");
    files.open(util::io::Path(folder) / "one", FileWriteMode::Append)->write("1");
    EXPECT_EQ(content("one"), "11");
    EXPECT_EQ(content("two.txt"), "2");
    EXPECT_EQ(content("three"), "33");
    EXPECT_EQ(content("four.txt"), "4");
}

TEST_F(FileSystemTest, collectsTextInMemory) {
    FileSystem files;
    auto stream = files.openMemoryStream("report");
    stream->write("a");
    stream->printf("%s", "b");
    EXPECT_TRUE(stream->isWritable());
    EXPECT_EQ(FileSystem::memoryText(*stream), "ab");
    EXPECT_FALSE(std::filesystem::exists("report"));
}

TEST_F(FileSystemTest, refusesToCloseAStreamTwice) {
    FileSystem files;
    auto file = files.open((folder + "/f").c_str(), FileWriteMode::Overwrite);
    file->write("x");
    files.close(file.get());
    EXPECT_EQ(content("f"), "x");
    EXPECT_FALSE(file->isWritable());
    EXPECT_EXIT(files.close(file.get()), ::testing::ExitedWithCode(1), "not open");
}

TEST_F(FileSystemTest, refusesToEndWithAnOpenFile) {
    EXPECT_EXIT(
        {
            FileSystem::Stream file;
            FileSystem files;
            file = files.openMemoryStream("x");
        },
        ::testing::ExitedWithCode(1), "still open");
}

TEST_F(FileSystemTest, reportsAFileThatCannotBeOpenedAndAFolderThatCannotBeMade) {
    FileSystem files;
    files.open((folder + "/f").c_str(), FileWriteMode::Overwrite)->write("x");
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(files.open(folder.c_str(), FileWriteMode::Overwrite)->isWritable());
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ORVO Error: IO_ERR_COULD_NOT_OPEN_FILE_FOR_WRITING: file='" + folder + "'.\n");
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(files.open((folder + "/f/below").c_str(), FileWriteMode::Overwrite)->isWritable());
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ORVO Error: IO_ERR_COULD_NOT_CREATE_FILE: file='" + folder + "/f'.\n");
}

TEST_F(FileSystemTest, warnsOnceForEachLaterWriteOfAPathWhenAsked) {
    FileSystem files;
    const std::string path = folder + "/twice";
    const auto write = [&](FileWriteMode mode) {
        ::testing::internal::CaptureStderr();
        files.open(path.c_str(), mode)->write("x");
        return ::testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(write(FileWriteMode::Overwrite), "");
    util::SetFeatureBoolean("multipleFileWriteWarning", true);
    const std::string warning = "Warning: File " + path + " was already written to earlier.\n";
    EXPECT_EQ(write(FileWriteMode::Overwrite), "");
    EXPECT_EQ(write(FileWriteMode::Overwrite), warning);
    EXPECT_EQ(write(FileWriteMode::Append), "");
    EXPECT_EQ(write(FileWriteMode::Overwrite), warning);
    util::ClearFeature("multipleFileWriteWarning");
}

TEST_F(FileSystemTest, tellsTheLengthOfANameThatIsTooLong) {
    const std::string name(257, 'x');
    std::ifstream in;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(FileSystem::openForReading(in, name));
    const std::string heard = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(heard.find("for read ("), std::string::npos);
    EXPECT_NE(heard.find("Filename is longer than 256 characters (257).\n"), std::string::npos);
    std::ofstream out;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(FileSystem::openForWriting(out, folder + "/none/f"));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Error: Failed to open '" + folder + "/none/f' for write (No such file or directory).\n");
}

} // namespace
} // namespace orvo
