// Paths, and tests of files and folders.
#include <util/io.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace util::io {
namespace {

TEST(PathTest, takesApartFolderNameAndEnding) {
    EXPECT_EQ(Path("a/b/c.tar.gz").directory(), Path("a/b"));
    EXPECT_EQ(Path("a/b/c.tar.gz").fileName(), "c.tar.gz");
    EXPECT_EQ(Path("a/b/c.tar.gz").extension(), ".gz");
    EXPECT_EQ(Path("c").directory(), Path(""));
    EXPECT_EQ(Path("/c").directory(), Path("/"));
    EXPECT_EQ(Path("a.b/c").extension(), "");
    EXPECT_EQ(Path(".hidden").extension(), "");
}

TEST(PathTest, joinsAndMakesAbsolute) {
    EXPECT_EQ(Path("a") / "b", Path("a/b"));
    EXPECT_EQ(Path("a/") / "b", Path("a/b"));
    EXPECT_EQ(Path() / "b", Path("b"));
    EXPECT_TRUE(Path("/a").isAbsolute());
    EXPECT_FALSE(Path("a").isAbsolute());
    EXPECT_EQ(Path("/a/./b/../c").absolute(), Path("/a/c"));
    EXPECT_TRUE(Path("a").absolute().isAbsolute());
    EXPECT_LT(Path("a"), Path("b"));
}

TEST(Files, tellFilesFromFoldersAndMakeFolders) {
    const Path folder = ::testing::TempDir() + "orvo-io-" + std::to_string(::getpid());
    const Path deep = folder / "x" / "y";
    EXPECT_FALSE(DirExists(deep));
    EXPECT_TRUE(MakeDirectory(deep));
    EXPECT_TRUE(MakeDirectory(deep));
    EXPECT_TRUE(DirExists(deep));
    EXPECT_FALSE(FileExists(deep));
    const Path file = deep / "f";
    std::ofstream(file.str()) << "text";
    EXPECT_TRUE(FileExists(file));
    EXPECT_FALSE(DirExists(file));
    std::string content;
    EXPECT_TRUE(readFile(file, content));
    EXPECT_EQ(content, "text");
    std::string error;
    EXPECT_FALSE(readFile(deep / "none", content, &error));
    EXPECT_NE(error.find("No such file"), std::string::npos);
    EXPECT_FALSE(CreateAndValidateOutputDirectory(file, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(MakeDirectory(file / "below"));
    std::filesystem::remove_all(folder.str());
}

class TextStream final : public OutputStream {
  public:
    bool isWritable() const override { return true; }
    std::ostream &stream() override { return text; }
    std::ostringstream text;
};

TEST(OutputStreamTest, writesTextAndByPrintfRules) {
    TextStream out;
    out.write("a");
    out.printf("%d-%s", 5, "b");
    EXPECT_EQ(out.text.str(), "a5-b");
}

} // namespace
} // namespace util::io
