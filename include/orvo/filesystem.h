// FileSystem, the way of all generated text files: folders are made on the way, a whole file can be held in memory, and
// writing a path twice in a run is noticed.
#pragma once

#include <orvo/api.h>

#include <util/io.h>

#include <cstdio>
#include <fstream>
#include <memory>

namespace orvo {

/// How a file is opened. Bit 1 selects binary form.
enum class FileWriteMode : unsigned int {
    Overwrite = 0,
    OverwriteBinary = 1,
    Append = 2,
    AppendBinary = 3,
};

/// A file on disk. What goes wrong is told in a message when it happens, and leaves the file not writable.
class ORVO_API DiskFile final : public util::io::OutputStream {
  public:
    /// Makes the folder of the path if it is not there. `mode` holds the standard library's stream flags.
    DiskFile(const util::io::Path &path, bool binary, std::ios::openmode mode);
    bool isWritable() const override;
    std::ostream &stream() override { return mStream; }
    const util::io::Path &path() const { return mPath; }
    /// Makes the folder of a path. False, after a message, if that fails.
    static bool createIfNotExist(const util::io::Path &path);

  private:
    util::io::Path mPath;
    std::ofstream mStream;
};

/// Opens the files of one run. Every stream must be closed, by its shared pointer or by `close`, before this goes.
class ORVO_API FileSystem {
  public:
    using Stream = std::shared_ptr<util::io::OutputStream>;

    FileSystem();
    ~FileSystem();
    FileSystem(const FileSystem &) = delete;
    FileSystem &operator=(const FileSystem &) = delete;

    /// Never null; `isWritable()` tells whether it worked. With `createDirectory`, the folder is made first.
    Stream open(const char *path, FileWriteMode mode, bool createDirectory = true);
    Stream open(const util::io::Path &path, FileWriteMode mode, bool createDirectory = true);
    Stream open(const char *directory, const char *name, FileWriteMode mode, bool createDirectory = true);
    Stream open(const util::io::FileDescription &file, const char *suffix, FileWriteMode mode,
                bool createDirectory = true);
    /// The same with the mode in the form of the C library, such as "w" or "ab".
    Stream openFile(const char *directory, const char *name, const char *mode);
    Stream openFile(const util::io::FileDescription &file, const char *suffix, const char *mode);
    /// A stream that keeps its text in memory, for `memoryText`.
    Stream openMemoryStream(const char *name);
    /// What was written to an open memory stream so far; empty for any other stream.
    static std::string memoryText(const util::io::OutputStream &stream);
    /// The stream must be open.
    void close(util::io::OutputStream *stream);
    std::size_t openFiles() const;

    /// Opens a plain stream of the standard library; a failure is printed with its reason.
    static bool openForReading(std::ifstream &stream, const util::io::Path &path);
    static bool openForWriting(std::ofstream &stream, const util::io::Path &path);

  private:
    struct FileSystemImpl;
    std::shared_ptr<FileSystemImpl> mImpl;
};

} // namespace orvo
