// The open files of a run, and the process-wide count of what was written.
#include <orvo/filesystem.h>

#include <orvo/logging.h>
#include <util/diagnostics.h>
#include <util/features.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <sstream>

namespace orvo {

namespace {

std::mutex gWriteCountMutex;

std::map<util::io::Path, int> &pathWriteCount() {
    static std::map<util::io::Path, int> counts;
    return counts;
}

/// Counts a write; true if the path was written before.
bool countWrite(const util::io::Path &path) {
    std::lock_guard<std::mutex> lock(gWriteCountMutex);
    return ++pathWriteCount()[path.absolute()] > 1;
}

constexpr unsigned int kBinaryBit = 1;
constexpr unsigned int kAppendBit = 2;

std::ios::openmode toStdOpenMode(FileWriteMode mode) {
    const auto bits = static_cast<unsigned int>(mode);
    std::ios::openmode flags = std::ios::out;
    flags |= (bits & kAppendBit) != 0 ? std::ios::app : std::ios::trunc;
    if ((bits & kBinaryBit) != 0) {
        flags |= std::ios::binary;
    }
    return flags;
}

FileWriteMode fromCMode(const char *mode) {
    const bool append = std::strchr(mode, 'a') != nullptr;
    const bool binary = std::strchr(mode, 'b') != nullptr;
    return static_cast<FileWriteMode>((append ? kAppendBit : 0U) | (binary ? kBinaryBit : 0U));
}

class MemoryStream final : public util::io::OutputStream {
  public:
    bool isWritable() const override { return static_cast<bool>(mText); }
    std::ostream &stream() override { return mText; }
    std::string text() const { return mText.str(); }

  private:
    std::ostringstream mText;
};

void printOpenFailure(const util::io::Path &path, const char *action, int error) {
    constexpr std::size_t kLongName = 256;
    const std::string whole = path.absolute().str();
    const char *reason = std::strerror(error);
    if (path.str().size() > kLongName) {
        brenn_error_printf("Failed to open '%s' for %s (%s). Filename is longer than 256 characters (%i).\n",
                           whole.c_str(), action, reason, static_cast<int>(path.str().size()));
    } else {
        brenn_error_printf("Failed to open '%s' for %s (%s).\n", whole.c_str(), action, reason);
    }
}

template <class StandardStream> bool openPlain(StandardStream &stream, const util::io::Path &path, const char *action) {
    errno = 0;
    stream.open(path.str());
    if (!stream) {
        printOpenFailure(path, action, errno);
        return false;
    }
    return true;
}

} // namespace

DiskFile::DiskFile(const util::io::Path &path, bool binary, std::ios::openmode mode) : mPath(path) {
    if (!createIfNotExist(path.directory())) {
        mStream.setstate(std::ios::failbit);
        return;
    }
    mStream.open(path.str(), binary ? mode | std::ios::binary : mode);
    if (!mStream) {
        log::msg(msg::error::IO_ERR_COULD_NOT_OPEN_FILE_FOR_WRITING, log::p("file", path.str()));
    }
}

bool DiskFile::isWritable() const { return mStream.is_open() && mStream.good(); }

bool DiskFile::createIfNotExist(const util::io::Path &path) {
    if (path.empty() || util::io::DirExists(path) || util::io::MakeDirectory(path)) {
        return true;
    }
    log::msg(msg::error::IO_ERR_COULD_NOT_CREATE_FILE, log::p("file", path.str()));
    return false;
}

struct FileSystem::FileSystemImpl {
    std::set<util::io::OutputStream *> mOpenFiles;

    static Stream track(const std::shared_ptr<FileSystemImpl> &self, std::unique_ptr<util::io::OutputStream> file) {
        util::io::OutputStream *raw = file.release();
        self->mOpenFiles.insert(raw);
        std::weak_ptr<FileSystemImpl> owner = self;
        return Stream(raw, [owner](util::io::OutputStream *stream) {
            if (auto files = owner.lock(); files && files->mOpenFiles.count(stream) != 0) {
                files->mOpenFiles.erase(stream);
            }
            delete stream;
        });
    }

    static std::unique_ptr<util::io::OutputStream> openFileInternalAsStream(const util::io::Path &path,
                                                                            FileWriteMode mode) {
        const std::ios::openmode flags = toStdOpenMode(mode);
        auto file = std::make_unique<DiskFile>(path, false, flags);
        if ((flags & std::ios::trunc) != 0 && util::GetFeatureBoolean(Features::multipleFileWriteWarning) &&
            countWrite(path)) {
            brenn_warning_printf("File %s was already written to earlier.\n", path.str().c_str());
        }
        return file;
    }
};

FileSystem::FileSystem() : mImpl(std::make_shared<FileSystemImpl>()) {}

FileSystem::~FileSystem() { ORVO_ASSERT(mImpl->mOpenFiles.empty(), "a file is still open when its run ends"); }

FileSystem::Stream FileSystem::open(const char *path, FileWriteMode mode, bool createDirectory) {
    return open(util::io::Path(path), mode, createDirectory);
}

FileSystem::Stream FileSystem::open(const util::io::Path &path, FileWriteMode mode, bool createDirectory) {
    if (createDirectory && !path.directory().empty()) {
        util::io::CreateAndValidateOutputDirectory(path.directory());
    }
    return FileSystemImpl::track(mImpl, FileSystemImpl::openFileInternalAsStream(path, mode));
}

FileSystem::Stream FileSystem::open(const char *directory, const char *name, FileWriteMode mode, bool createDirectory) {
    return open(util::io::Path(directory) / name, mode, createDirectory);
}

FileSystem::Stream FileSystem::open(const util::io::FileDescription &file, const char *suffix, FileWriteMode mode,
                                    bool createDirectory) {
    return open(file.directory / (file.baseName + suffix), mode, createDirectory);
}

FileSystem::Stream FileSystem::openFile(const char *directory, const char *name, const char *mode) {
    return open(directory, name, fromCMode(mode));
}

FileSystem::Stream FileSystem::openFile(const util::io::FileDescription &file, const char *suffix, const char *mode) {
    return open(file, suffix, fromCMode(mode));
}

FileSystem::Stream FileSystem::openMemoryStream(const char *) {
    return FileSystemImpl::track(mImpl, std::make_unique<MemoryStream>());
}

std::string FileSystem::memoryText(const util::io::OutputStream &stream) {
    const auto *memory = dynamic_cast<const MemoryStream *>(&stream);
    return memory == nullptr ? std::string() : memory->text();
}

void FileSystem::close(util::io::OutputStream *stream) {
    ORVO_ASSERT(mImpl->mOpenFiles.erase(stream) == 1, "a file is closed that is not open");
    stream->stream().flush();
    if (auto *disk = dynamic_cast<DiskFile *>(stream); disk != nullptr) {
        static_cast<std::ofstream &>(disk->stream()).close();
    }
}

std::size_t FileSystem::openFiles() const { return mImpl->mOpenFiles.size(); }

bool FileSystem::openForReading(std::ifstream &stream, const util::io::Path &path) {
    return openPlain(stream, path, "read");
}

bool FileSystem::openForWriting(std::ofstream &stream, const util::io::Path &path) {
    return openPlain(stream, path, "write");
}

} // namespace orvo
