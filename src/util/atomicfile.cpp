// Writing through a file without a name: linked to a temporary name and renamed over the target, since a link cannot
// replace a file and a rename needs a name.
#include <util/atomicfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <streambuf>
#include <vector>

namespace util::io {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
constexpr mode_t kDefaultMode = 0666;

/// Writes to a file descriptor, all or with an error number.
class FdBuffer final : public std::streambuf {
  public:
    FdBuffer() : mBuffer(kBufferBytes) { setp(mBuffer.data(), mBuffer.data() + mBuffer.size()); }
    void open(int fd) { mFd = fd; }
    int fd() const { return mFd; }
    int errorNumber() const { return mError; }
    bool flush() {
        bool good = writeAll(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
        return good;
    }

  protected:
    int_type overflow(int_type c) override {
        if (!flush()) {
            return traits_type::eof();
        }
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char *text, std::streamsize count) override {
        if (count < epptr() - pptr()) {
            std::memcpy(pptr(), text, static_cast<std::size_t>(count));
            pbump(static_cast<int>(count));
            return count;
        }
        bool good = flush() && writeAll(text, static_cast<std::size_t>(count));
        return good ? count : 0;
    }
    int sync() override { return flush() ? 0 : -1; }

  private:
    bool writeAll(const char *text, std::size_t count) {
        while (count > 0 && mError == 0) {
            ssize_t written = ::write(mFd, text, count);
            if (written >= 0) {
                text += written;
                count -= static_cast<std::size_t>(written);
            } else if (errno != EINTR) {
                mError = errno;
            }
        }
        return mError == 0;
    }

    std::vector<char> mBuffer;
    int mFd = -1;
    int mError = 0;
};

/// The file that a path names in the end, whether it exists or not; links are followed.
std::string resolved(const std::string &path) {
    char *real = ::realpath(path.c_str(), nullptr);
    if (real != nullptr) {
        std::string text = real;
        std::free(real);
        return text;
    }
    // A chain of links to a file that is still to be made.
    constexpr int kMostLinks = 40;
    std::string at = path;
    for (int link = 0; link < kMostLinks; ++link) {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(at.c_str(), target, sizeof target);
        if (length <= 0 || length == static_cast<ssize_t>(sizeof target)) {
            return at;
        }
        const std::string to(target, static_cast<std::size_t>(length));
        const std::size_t slash = at.rfind('/');
        at = to.front() == '/' || slash == std::string::npos ? to : at.substr(0, slash + 1) + to;
    }
    return path;
}

std::string folderOf(const std::string &path) {
    std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string temporaryName(const std::string &target) {
    static std::atomic<unsigned int> counter{0};
    std::size_t slash = target.rfind('/');
    std::string folder = slash == std::string::npos ? "" : target.substr(0, slash + 1);
    return folder + ".orvo-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".tmp";
}

/// The process's mask, without setting it for a moment, in which another thread could make a file.
mode_t fileModeMask() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Umask:", 0) == 0) {
            return static_cast<mode_t>(std::strtoul(line.c_str() + 6, nullptr, 8));
        }
    }
    static std::mutex oneAtATime;
    const std::lock_guard<std::mutex> lock(oneAtATime);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

mode_t modeFor(const struct stat *present) {
    if (present != nullptr) {
        return present->st_mode & 07777;
    }
    return kDefaultMode & ~fileModeMask();
}

} // namespace

struct AtomicFile::Impl {
    std::string path;
    std::string target;
    std::string temporary;
    std::string error;
    FdBuffer buffer;
    std::ostream stream{&buffer};
    mode_t mode = kDefaultMode;
    bool direct = false;
    bool linkable = true;
    bool done = false;

    void fail(int number) {
        if (error.empty()) {
            error = path + ": " + std::strerror(number);
        }
        stream.setstate(std::ios::failbit);
    }
    void open(const Options &options);
    bool openUnnamed();
    void openNamed();
    bool nameIt();
    bool copyToNamed();
    bool commit();
    void close() {
        if (buffer.fd() >= 0) {
            ::close(buffer.fd());
            buffer.open(-1);
        }
    }
    void removeTemporary() {
        if (!temporary.empty()) {
            ::unlink(temporary.c_str());
            temporary.clear();
        }
    }
};

void AtomicFile::Impl::open(const Options &options) {
    target = resolved(path);
    struct stat info {};
    bool exists = ::stat(target.c_str(), &info) == 0;
    if (exists && S_ISDIR(info.st_mode)) {
        fail(EISDIR);
        return;
    }
    if (exists && !S_ISREG(info.st_mode)) {
        direct = true;
        buffer.open(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
        if (buffer.fd() < 0) {
            fail(errno);
        }
        return;
    }
    if (exists && ::access(target.c_str(), W_OK) != 0) {
        fail(errno);
        return;
    }
    mode = modeFor(exists ? &info : nullptr);
    linkable = !options.forbidLink;
    if (options.forceNamed || !openUnnamed()) {
        openNamed();
    }
}

bool AtomicFile::Impl::openUnnamed() {
#ifdef O_TMPFILE
    int fd = ::open(folderOf(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0) {
        buffer.open(fd);
        return true;
    }
#endif
    return false;
}

void AtomicFile::Impl::openNamed() {
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = temporaryName(target);
        int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0) {
            temporary = name;
            buffer.open(fd);
            return;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    fail(errno);
}

/// Gives a file without a name a temporary one.
bool AtomicFile::Impl::nameIt() {
    if (!temporary.empty()) {
        return true;
    }
    std::string self = "/proc/self/fd/" + std::to_string(buffer.fd());
    for (int attempt = 0; linkable && attempt < 100; ++attempt) {
        std::string name = temporaryName(target);
        // The first way needs a right that few processes have, the second a mounted /proc.
        if (::linkat(buffer.fd(), "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) == 0 ||
            (errno != EEXIST && ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0)) {
            temporary = name;
            return true;
        }
        linkable = errno == EEXIST;
    }
    return copyToNamed();
}

/// For a file without a name that cannot be given one.
bool AtomicFile::Impl::copyToNamed() {
    const int from = buffer.fd();
    openNamed();
    if (!error.empty()) {
        // The buffer still has the file without a name, and closes it.
        return false;
    }
    bool good = true;
    std::vector<char> bytes(kBufferBytes);
    for (off_t at = 0; good;) {
        const ssize_t count = ::pread(from, bytes.data(), bytes.size(), at);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            at += count;
            std::ostream(&buffer).write(bytes.data(), count).flush();
        }
        good = (count > 0 || errno == EINTR) && buffer.errorNumber() == 0;
    }
    const int reason = buffer.errorNumber() != 0 ? buffer.errorNumber() : errno;
    good = good && ::fchmod(buffer.fd(), mode) == 0 && ::fsync(buffer.fd()) == 0;
    ::close(from);
    errno = reason;
    return good;
}

bool AtomicFile::Impl::commit() {
    if (!error.empty() || done) {
        return error.empty();
    }
    stream.flush();
    if (buffer.errorNumber() != 0) {
        fail(buffer.errorNumber());
    } else if (stream.fail()) {
        fail(EIO);
    }
    if (direct || !error.empty()) {
        close();
        removeTemporary();
        done = true;
        return error.empty();
    }
    bool good = ::fchmod(buffer.fd(), mode) == 0 && ::fsync(buffer.fd()) == 0 && nameIt() &&
                ::rename(temporary.c_str(), target.c_str()) == 0;
    if (good) {
        temporary.clear();
    } else {
        fail(errno);
    }
    removeTemporary();
    close();
    done = true;
    return good;
}

AtomicFile::AtomicFile(const std::string &path) : AtomicFile(path, Options()) {}

AtomicFile::AtomicFile(const std::string &path, Options options) : mImpl(std::make_unique<Impl>()) {
    mImpl->path = path;
    mImpl->open(options);
}

AtomicFile::~AtomicFile() {
    mImpl->close();
    mImpl->removeTemporary();
}

std::ostream &AtomicFile::stream() { return mImpl->stream; }

const std::string &AtomicFile::error() const { return mImpl->error; }

bool AtomicFile::commit(std::string *error) {
    bool good = mImpl->commit();
    if (!good && error != nullptr) {
        *error = mImpl->error;
    }
    return good;
}

} // namespace util::io
