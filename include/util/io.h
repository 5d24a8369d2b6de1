// Paths, tests of files and folders, and the base of output streams.
#pragma once

#include <orvo/api.h>

#include <compare>
#include <iosfwd>
#include <string>
#include <string_view>

namespace util::io {

/// A path of the file system, as text.
class ORVO_API Path {
  public:
    Path() = default;
    Path(std::string text) : mText(std::move(text)) {}
    Path(const char *text) : mText(text) {}
    const std::string &str() const { return mText; }
    bool empty() const { return mText.empty(); }
    bool isAbsolute() const { return !mText.empty() && mText.front() == '/'; }
    /// All before the last "/"; empty if there is none, "/" for a file of the root folder.
    Path directory() const;
    std::string fileName() const;
    /// With the dot; empty for a name without one or with only a leading one.
    std::string extension() const;
    /// From the current folder, without "." and ".." where they can be taken out.
    Path absolute() const;
    Path operator/(const std::string &name) const;
    auto operator<=>(const Path &other) const = default; // NOLINT(modernize-use-nullptr)

  private:
    std::string mText;
};

/// A file told by its folder and its name without ending.
struct FileDescription {
    Path directory;
    std::string baseName;
};

/// Where generated text goes.
class ORVO_API OutputStream {
  public:
    OutputStream() = default;
    OutputStream(const OutputStream &) = delete;
    OutputStream &operator=(const OutputStream &) = delete;
    virtual ~OutputStream();
    /// False once opening or writing failed.
    virtual bool isWritable() const = 0;
    virtual std::ostream &stream() = 0;
    void write(std::string_view text);
    void printf(const char *format, ...) __attribute__((format(printf, 2, 3)));
};

ORVO_API bool FileExists(const Path &path);
ORVO_API bool DirExists(const Path &path);
/// Makes the folder and those above it. True if it is there afterwards.
ORVO_API bool MakeDirectory(const Path &path);
/// The same, with the reason of a failure in `error`, if given.
ORVO_API bool CreateAndValidateOutputDirectory(const Path &path, std::string *error = nullptr);
/// The whole content of a file; false, with the reason in `error`, if it cannot be read.
ORVO_API bool readFile(const Path &path, std::string &content, std::string *error = nullptr);

} // namespace util::io
