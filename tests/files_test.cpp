// Buffers on file descriptors, inputs, outputs, and designs read with the places of their errors.
#include "driver/files.h"

#include <orvo/context.h>
#include <orvo/design.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string>

namespace orvo::driver {
namespace {

/// A file in memory.
class MemoryFile {
  public:
    MemoryFile() : mDescriptor(::memfd_create("test", 0)) {}
    ~MemoryFile() { ::close(mDescriptor); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    int descriptor() const { return mDescriptor; }
    void rewind() const { ::lseek(mDescriptor, 0, SEEK_SET); }

  private:
    int mDescriptor;
};

TEST(DescriptorBuffer, readsBackWhatItWroteAcrossItsEdges) {
    for (const std::size_t size : {0U, 1U, 262143U, 262144U, 262145U, 1000003U}) {
        std::string text;
        for (std::size_t i = 0; i < size; ++i) {
            text += static_cast<char>(i * 31 % 251);
        }
        MemoryFile file;
        {
            DescriptorBuffer buffer(file.descriptor());
            std::ostream out(&buffer);
            const std::size_t half = size / 2;
            out.write(text.data(), static_cast<std::streamsize>(half));
            for (std::size_t i = half; i < size; ++i) {
                out.put(text[i]);
            }
            out.flush();
            EXPECT_EQ(buffer.error(), 0);
        }
        file.rewind();
        DescriptorBuffer buffer(file.descriptor());
        std::istream in(&buffer);
        std::ostringstream read;
        if (size != 0) {
            read << in.rdbuf();
        }
        EXPECT_EQ(read.str(), text) << size;
    }
}

TEST(DescriptorBuffer, remembersTheFirstError) {
    const int full = ::open("/dev/full", O_WRONLY);
    DescriptorBuffer buffer(full);
    std::ostream out(&buffer);
    out << "x" << std::flush;
    EXPECT_TRUE(out.fail());
    EXPECT_EQ(buffer.error(), ENOSPC);
    ::close(full);
    DescriptorBuffer closed(-1);
    std::istream in(&closed);
    EXPECT_EQ(in.get(), std::char_traits<char>::eof());
    EXPECT_EQ(closed.error(), EBADF);
}

TEST(ReadDesign, countsLinesFromThoseThatStandBefore) {
    ContextMgr guard;
    Console console;
    std::istringstream in("<kelmar>\n</kelmar>\n");
    testing::internal::CaptureStderr();
    int code = 0;
    try {
        readDesign(in, "f", 10, guard.context(), console);
    } catch (const VerbFailure &failure) {
        code = failure.exitCode;
    }
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(code, 1);
    EXPECT_EQ(text.substr(0, 5), "f:11:") << text;
}

TEST(ReadDesign, givesAnEmptyDesignForAnEmptyDocument) {
    ContextMgr guard;
    Console console;
    std::istringstream in("<kelmar xmlns=\"http://orvo.example/ns/2011/kelmar\"><design version=\"1.2\"/></kelmar>");
    const std::unique_ptr<Design> design = readDesign(in, "f", 0, guard.context(), console);
    EXPECT_EQ(design->size(), 0U);
    EXPECT_EQ(console.errors(), 0U);
}

} // namespace
} // namespace orvo::driver
