// Messages and data on the way out.
#include "driver/console.h"

#include "driver/jsontext.h"
#include "driver/message_texts.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace orvo::driver {

namespace {

struct SeverityStyle {
    const char *word;
    const char *colour;
};

SeverityStyle styleOf(Severity severity) {
    switch (severity) {
    case Severity::Error:
        return {"error", "\033[1;31m"};
    case Severity::Warning:
        return {"warning", "\033[1;33m"};
    case Severity::Info:
        return {"info", "\033[1;36m"};
    case Severity::Debug:
        return {"debug", "\033[2m"};
    }
    return {"message", ""};
}

bool wantsColour() {
    const char *noColour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    return ::isatty(STDERR_FILENO) == 1 && (noColour == nullptr || *noColour == '\0') &&
           (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

std::string jsonLine(Severity severity, std::string_view tag, const Console::Params &params,
                     const FilePosition &position) {
    Json line;
    line["schema"] = "orvo.message/1";
    line["severity"] = styleOf(severity).word;
    line["tag"] = tag;
    line["text"] = renderMessage(tag, params);
    if (!position.file.empty()) {
        line["file"] = position.file;
    }
    if (position.line > 0) {
        line["line"] = position.line;
    }
    if (position.column > 0) {
        line["column"] = position.column;
    }
    line["params"] = Json::object();
    for (const auto &[name, value] : params) {
        line["params"][name] = value;
    }
    return lineText(line) + "\n";
}

/// A message is one line, whatever the names in it: control characters are shown by their codes.
std::string printable(const std::string &text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            shown += c;
        } else if (c == '\n') {
            shown += "\\n";
        } else {
            shown += fmt::format("\\x{:02x}", byte);
        }
    }
    return shown;
}

std::string textLine(Severity severity, std::string_view tag, const Console::Params &params,
                     const FilePosition &position, bool colour) {
    std::string text = position.file.empty() ? "orvo" : position.file;
    if (position.line > 0) {
        text += ":" + std::to_string(position.line);
        text += position.column > 0 ? ":" + std::to_string(position.column) : "";
    }
    const SeverityStyle style = styleOf(severity);
    text += ": ";
    text += colour ? style.colour : "";
    text += std::string(style.word) + ":";
    text += colour ? "\033[0m " : " ";
    text += printable(renderMessage(tag, params));
    return text + " [" + std::string(tag) + "]\n";
}

} // namespace

Console::Console() : mColour(wantsColour()) {}

void Console::onMessage(int severity, const char *tag, const log::LogParams &params) {
    report(static_cast<Severity>(severity), tag, params);
}

void Console::onDiagnostic(bool isError, const std::string &text) {
    const std::size_t end = text.find_last_not_of('\n');
    report(isError ? Severity::Error : Severity::Warning, "DRIVER_DIAGNOSTIC", {{"text", text.substr(0, end + 1)}});
}

void Console::report(Severity severity, std::string_view tag, const Params &params, const FilePosition &position) {
    if (severity == Severity::Error) {
        ++mErrors;
        mErrorTags.emplace(tag);
    }
    mWarnings += severity == Severity::Warning ? 1 : 0;
    if (mBeforeMessage) {
        mBeforeMessage();
    }
    writeAll(STDERR_FILENO, messageLine(severity, tag, params, position));
}

std::string Console::messageLine(Severity severity, std::string_view tag, const Params &params,
                                 const FilePosition &position) const {
    return mJson ? jsonLine(severity, tag, params, position) : textLine(severity, tag, params, position, mColour);
}

void Console::fail(int exitCode, std::string_view tag, const Params &params, const FilePosition &position) {
    report(Severity::Error, tag, params, position);
    throw VerbFailure{exitCode};
}

void Console::hint(const std::string &text) {
    if (mJson) {
        return;
    }
    if (mBeforeMessage) {
        mBeforeMessage();
    }
    writeAll(STDERR_FILENO, text + "\n");
}

void Console::emit(std::string_view data) {
    if (!writeAll(STDOUT_FILENO, data)) {
        fail(kWrongUsage, "DRIVER_UNWRITABLE_FILE", {{"file", "-"}, {"reason", std::strerror(errno)}});
    }
}

bool writeAll(int descriptor, std::string_view data) {
    while (!data.empty()) {
        const ssize_t count = ::write(descriptor, data.data(), data.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        data.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

} // namespace orvo::driver
