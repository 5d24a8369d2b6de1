// Reading and writing files and designs.
#include "driver/files.h"

#include <orvo/design.h>
#include <orvo/xmlservices.h>
#include <util/atomicfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ostream>

namespace orvo::driver {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

int openInput(const std::string &path, Console &console) {
    if (path == "-") {
        return STDIN_FILENO;
    }
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        console.fail(kWrongUsage, "DRIVER_UNREADABLE_FILE", {{"file", path}, {"reason", std::strerror(errno)}});
    }
    return descriptor;
}

void writeStandardOutput(Console &console, const std::function<void(std::ostream &)> &write) {
    DescriptorBuffer buffer(STDOUT_FILENO);
    std::ostream out(&buffer);
    write(out);
    out.flush();
    if (buffer.error() != 0 || out.fail()) {
        console.fail(kWrongUsage, "DRIVER_UNWRITABLE_FILE",
                     {{"file", "-"}, {"reason", std::strerror(buffer.error() != 0 ? buffer.error() : EIO)}});
    }
}

} // namespace

std::string reasonOf(const std::string &error, const std::string &path) {
    const bool named = error.compare(0, path.size() + 2, path + ": ") == 0;
    return named ? error.substr(path.size() + 2) : error;
}

DescriptorBuffer::DescriptorBuffer(int descriptor) : mBuffer(kBufferBytes), mDescriptor(descriptor) {}

DescriptorBuffer::int_type DescriptorBuffer::underflow() {
    ssize_t count = 0;
    do {
        count = ::read(mDescriptor, mBuffer.data(), mBuffer.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        mError = errno;
    }
    if (count <= 0) {
        return traits_type::eof();
    }
    setg(mBuffer.data(), mBuffer.data(), mBuffer.data() + count);
    return traits_type::to_int_type(mBuffer.front());
}

bool DescriptorBuffer::flushAll() {
    if (mError == 0 && pptr() != pbase() &&
        !writeAll(mDescriptor, std::string_view(pbase(), static_cast<std::size_t>(pptr() - pbase())))) {
        mError = errno;
    }
    setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
    return mError == 0;
}

DescriptorBuffer::int_type DescriptorBuffer::overflow(int_type c) {
    if (!flushAll()) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

std::streamsize DescriptorBuffer::xsputn(const char *text, std::streamsize count) {
    if (count >= epptr() - pptr() && !flushAll()) {
        return 0;
    }
    if (count < epptr() - pptr()) {
        std::memcpy(pptr(), text, static_cast<std::size_t>(count));
        pbump(static_cast<int>(count));
        return count;
    }
    if (!writeAll(mDescriptor, std::string_view(text, static_cast<std::size_t>(count)))) {
        mError = errno;
        return 0;
    }
    return count;
}

int DescriptorBuffer::sync() { return flushAll() ? 0 : -1; }

InputFile::InputFile(const std::string &path, Console &console)
    : mConsole(console), mPath(path), mName(path == "-" ? "<stdin>" : path), mDescriptor(openInput(path, console)),
      mBuffer(std::make_unique<DescriptorBuffer>(mDescriptor)) {
    mStream.rdbuf(mBuffer.get());
}

InputFile::~InputFile() {
    if (mDescriptor != STDIN_FILENO) {
        ::close(mDescriptor);
    }
}

bool InputFile::isRegular() const {
    struct stat info {};
    // Standard input may stand anywhere in its file, which other processes share.
    return mDescriptor != STDIN_FILENO && ::fstat(mDescriptor, &info) == 0 && S_ISREG(info.st_mode);
}

void InputFile::checkRead() {
    if (mBuffer->error() != 0) {
        mConsole.fail(kWrongUsage, "DRIVER_UNREADABLE_FILE",
                      {{"file", mPath}, {"reason", std::strerror(mBuffer->error())}});
    }
}

std::string readWhole(const std::string &path, Console &console) {
    InputFile file(path, console);
    std::string content;
    std::vector<char> block(kBufferBytes);
    while (file.stream().read(block.data(), static_cast<std::streamsize>(block.size())) || file.stream().gcount() > 0) {
        content.append(block.data(), static_cast<std::size_t>(file.stream().gcount()));
    }
    file.checkRead();
    return content;
}

void writeOutput(const std::string &path, Console &console, const std::function<void(std::ostream &)> &write) {
    if (path == "-") {
        writeStandardOutput(console, write);
        return;
    }
    util::io::AtomicFile file(path);
    std::string error = file.error();
    if (error.empty()) {
        write(file.stream());
    }
    if (!error.empty() || !file.commit(&error)) {
        console.fail(kWrongUsage, "DRIVER_UNWRITABLE_FILE", {{"file", path}, {"reason", reasonOf(error, path)}});
    }
}

void writeOutput(const std::string &path, std::string_view content, Console &console) {
    writeOutput(path, console, [content](std::ostream &out) {
        out.write(content.data(), static_cast<std::streamsize>(content.size()));
    });
}

namespace {

/// `beforeError` may end the verb with a better reason than that a document is cut short.
std::unique_ptr<Design> readDesign(std::istream &in, const std::string &name, int lines, Context *context,
                                   Console &console, const std::function<void()> &beforeError) {
    auto design = std::make_unique<Design>(context);
    const auto onError = [&](XMLServices::ErrorType type, int row, int column) {
        beforeError();
        console.report(Severity::Error, XMLServices::ErrorTypeToString(type), {},
                       {name, row > 0 ? row + lines : 0, column});
        return true;
    };
    const std::size_t errorsBefore = console.errors();
    XMLServices services;
    // What is left when the whole document has been read is the end of the file, which is no failure.
    const bool failed = services.fromXML(in, *design, onError).fail();
    if (console.errors() != errorsBefore) {
        throw VerbFailure{kDesignErrors};
    }
    if (failed) {
        console.fail(kDesignErrors, "ERR_MALFORMED_XML", {}, {name});
    }
    return design;
}

} // namespace

std::unique_ptr<Design> readDesign(std::istream &in, const std::string &name, int lines, Context *context,
                                   Console &console) {
    return readDesign(in, name, lines, context, console, [] {});
}

std::unique_ptr<Design> readDesign(InputFile &file, Context *context, Console &console) {
    std::unique_ptr<Design> design =
        readDesign(file.stream(), file.name(), 0, context, console, [&file] { file.checkRead(); });
    file.checkRead();
    return design;
}

void writeDesign(const Design &design, const std::string &path, Console &console) {
    writeOutput(path, console, [&](std::ostream &out) {
        XMLServices().toXML(out, design);
        if (!out.fail()) {
            return;
        }
        // A stream that takes bytes again had nothing against them: the design has a text that is none in XML.
        out.clear();
        if (out.flush().good()) {
            console.fail(kDesignErrors, "DRIVER_UNWRITABLE_TEXT", {{"file", path}});
        }
    });
}

} // namespace orvo::driver
