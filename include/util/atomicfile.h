// An output file that is whole or untouched.
#pragma once

#include <orvo/api.h>

#include <memory>
#include <ostream>
#include <string>

namespace util::io {

/// Collects what is written in a file without a name in the target's folder, and puts it in the target's place at
/// `commit`. Until then, and whenever anything fails, the target is as it was; no end of the process, however sudden,
/// leaves half a file. Where the file system knows no files without names, a temporary name is used. A symbolic link at
/// the target is followed; a target that is no regular file, such as a pipe or /dev/null, is written directly.
class ORVO_API AtomicFile {
  public:
    struct Options {
        /// Uses a temporary name even where a file without a name could be had.
        bool forceNamed = false;
        /// Does as if a file without a name could not be given one.
        bool forbidLink = false;
    };

    explicit AtomicFile(const std::string &path);
    AtomicFile(const std::string &path, Options options);
    /// Without a commit, leaves nothing behind.
    ~AtomicFile();
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;

    /// Fails, like any stream, when writing fails.
    std::ostream &stream();
    /// The first error, as "path: reason"; empty as long as all went well.
    const std::string &error() const;
    /// Puts what was written in place. False if anything failed, then with the reason in `error` if given.
    bool commit(std::string *error = nullptr);

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace util::io
