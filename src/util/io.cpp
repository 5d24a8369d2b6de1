// Paths, and tests of files and folders.
#include <util/io.h>

#include <util/strings.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <system_error>
#include <vector>

namespace util::io {

namespace {

bool statOf(const Path &path, struct stat &info) { return ::stat(path.str().c_str(), &info) == 0; }

std::string reason(const Path &path, const char *text) { return path.str() + ": " + text; }

} // namespace

Path Path::directory() const {
    std::size_t slash = mText.rfind('/');
    if (slash == std::string::npos) {
        return {};
    }
    return slash == 0 ? Path("/") : Path(mText.substr(0, slash));
}

std::string Path::fileName() const {
    std::size_t slash = mText.rfind('/');
    return slash == std::string::npos ? mText : mText.substr(slash + 1);
}

std::string Path::extension() const {
    std::string name = fileName();
    std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot);
}

Path Path::absolute() const {
    std::error_code error;
    std::filesystem::path whole = std::filesystem::absolute(mText, error);
    return error ? *this : Path(whole.lexically_normal().string());
}

Path Path::operator/(const std::string &name) const {
    if (mText.empty()) {
        return name;
    }
    return mText.back() == '/' ? mText + name : mText + "/" + name;
}

OutputStream::~OutputStream() = default;

void OutputStream::write(std::string_view text) {
    stream().write(text.data(), static_cast<std::streamsize>(text.size()));
}

void OutputStream::printf(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    write(text);
}

bool FileExists(const Path &path) {
    struct stat info {};
    return statOf(path, info) && !S_ISDIR(info.st_mode);
}

bool DirExists(const Path &path) {
    struct stat info {};
    return statOf(path, info) && S_ISDIR(info.st_mode);
}

bool MakeDirectory(const Path &path) { return CreateAndValidateOutputDirectory(path); }

bool CreateAndValidateOutputDirectory(const Path &path, std::string *error) {
    std::error_code code;
    std::filesystem::create_directories(path.str(), code);
    if (DirExists(path)) {
        return true;
    }
    if (error != nullptr) {
        *error = reason(path, code ? code.message().c_str() : "is not a folder");
    }
    return false;
}

bool readFile(const Path &path, std::string &content, std::string *error) {
    content.clear();
    std::FILE *file = std::fopen(path.str().c_str(), "rb");
    bool good = file != nullptr;
    if (good) {
        std::vector<char> buffer(1 << 16);
        std::size_t count = 0;
        while ((count = std::fread(buffer.data(), 1, buffer.size(), file)) > 0) {
            content.append(buffer.data(), count);
        }
        good = std::ferror(file) == 0;
    }
    if (!good && error != nullptr) {
        *error = reason(path, std::strerror(errno));
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return good;
}

} // namespace util::io
