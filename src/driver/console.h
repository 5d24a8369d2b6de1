// What the driver says: messages on standard error, for people or as JSON lines, and data on standard output. The
// library's messages come in here, too, as those of the listener of the driver's context.
#pragma once

#include <orvo/logging.h>
#include <util/diagnostics.h>

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace orvo::driver {

/// The exit codes of every verb.
enum ExitCode : int {
    kFine = 0,
    /// The design, or what was asked about it, has errors.
    kDesignErrors = 1,
    /// The command line is wrong, or a file that it names cannot be read or written.
    kWrongUsage = 2,
    /// A fault of this program: an assertion, a crash, an exception that nobody expected.
    kInternalFault = 3
};

/// Thrown to end a verb once the reason has been told.
struct VerbFailure {
    int exitCode;
};

/// Where a message points at in a file. Line and column count from 1; below 1 when unknown.
struct FilePosition {
    std::string file;
    int line = 0;
    int column = 0;
};

class Console final : public ContextListener, public util::DiagnosticSink {
  public:
    using Params = std::map<std::string, std::string>;

    Console();

    /// Messages become one JSON object a line.
    void setJson(bool json) { mJson = json; }
    bool json() const { return mJson; }
    /// Called before each message, so that a progress line can make way.
    void setBeforeMessage(std::function<void()> function) { mBeforeMessage = std::move(function); }

    void onMessage(int severity, const char *tag, const log::LogParams &params) override;
    void onDiagnostic(bool isError, const std::string &text) override;
    /// Tells one message. Its text comes from the table of message texts.
    void report(Severity severity, std::string_view tag, const Params &params, const FilePosition &position = {});
    /// Tells an error and ends the verb.
    [[noreturn]] void fail(int exitCode, std::string_view tag, const Params &params, const FilePosition &position = {});
    /// The line that `report` writes, with its new line.
    std::string messageLine(Severity severity, std::string_view tag, const Params &params,
                            const FilePosition &position = {}) const;
    /// A line on standard error that is no message, such as a hint below one. Nothing with JSON.
    void hint(const std::string &text);

    /// Messages told so far.
    std::size_t errors() const { return mErrors; }
    std::size_t warnings() const { return mWarnings; }
    /// Whether an error of this tag was among them.
    bool hasTold(std::string_view tag) const { return mErrorTags.find(tag) != mErrorTags.end(); }

    /// Writes data to standard output; failing to do so ends the verb.
    void emit(std::string_view data);

  private:
    bool mJson = false;
    bool mColour;
    std::size_t mErrors = 0;
    std::size_t mWarnings = 0;
    std::set<std::string, std::less<>> mErrorTags;
    std::function<void()> mBeforeMessage;
};

/// Writes all of `data` to a file descriptor. False, with `errno` set, if that fails.
bool writeAll(int descriptor, std::string_view data);

} // namespace orvo::driver
