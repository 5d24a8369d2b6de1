// Files as the driver's verbs name them: "-" is standard input or standard output, output files are whole or untouched,
// and whatever goes wrong is told with the reason and ends the verb.
#pragma once

#include "driver/console.h"

#include <functional>
#include <istream>
#include <memory>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace orvo {
class Context;
class Design;
} // namespace orvo

namespace orvo::driver {

/// A buffer on a file descriptor that it does not own; reads or writes, not both.
class DescriptorBuffer final : public std::streambuf {
  public:
    explicit DescriptorBuffer(int descriptor);
    /// Bytes that were not yet written are lost without a flush.
    ~DescriptorBuffer() override = default;
    /// The error number of the first failure, 0 if there was none.
    int error() const { return mError; }

  protected:
    int_type underflow() override;
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char *text, std::streamsize count) override;
    int sync() override;

  private:
    bool flushAll();

    std::vector<char> mBuffer;
    int mDescriptor;
    int mError = 0;
};

/// An input that is being read.
class InputFile {
  public:
    /// Opens the file; failing to do so ends the verb.
    InputFile(const std::string &path, Console &console);
    ~InputFile();
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    std::istream &stream() { return mStream; }
    /// The name for messages: "<stdin>" for "-".
    const std::string &name() const { return mName; }
    int descriptor() const { return mDescriptor; }
    /// Whether the content can be read again from its start.
    bool isRegular() const;
    /// Ends the verb if reading broke off.
    void checkRead();

  private:
    Console &mConsole;
    std::string mPath;
    std::string mName;
    int mDescriptor;
    std::unique_ptr<DescriptorBuffer> mBuffer;
    std::istream mStream{nullptr};
};

/// The reason in a text of the form "path: reason".
std::string reasonOf(const std::string &error, const std::string &path);

/// The whole content of a file.
std::string readWhole(const std::string &path, Console &console);

/// Gives `write` the stream of an output; the file is put in place when that returned and all went well.
void writeOutput(const std::string &path, Console &console, const std::function<void(std::ostream &)> &write);
void writeOutput(const std::string &path, std::string_view content, Console &console);

/// Reads design XML. Each error is told with file, line and column, and ends the verb.
std::unique_ptr<Design> readDesign(InputFile &file, Context *context, Console &console);
/// The same from a stream; positions count from its start, and `lines` is added to the line.
std::unique_ptr<Design> readDesign(std::istream &in, const std::string &name, int lines, Context *context,
                                   Console &console);
void writeDesign(const Design &design, const std::string &path, Console &console);

} // namespace orvo::driver
