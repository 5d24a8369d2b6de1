// Plain warnings and errors.
#include <util/diagnostics.h>

#include <util/strings.h>

#include <cstdarg>
#include <iostream>

namespace util {

namespace {

thread_local DiagnosticSink *tl_sink = nullptr;

void print(bool isError, const char *format, std::va_list arguments) {
    const std::string text = formatted(format, arguments);
    if (tl_sink != nullptr) {
        tl_sink->onDiagnostic(isError, text);
    } else {
        std::cerr << (isError ? "Error: " : "Warning: ") << text << std::flush;
    }
}

} // namespace

DiagnosticSink::~DiagnosticSink() = default;

DiagnosticSink *setDiagnosticSink(DiagnosticSink *sink) {
    DiagnosticSink *before = tl_sink;
    tl_sink = sink;
    return before;
}

void reportDiagnostic(bool isError, const std::string &text) {
    if (tl_sink != nullptr) {
        tl_sink->onDiagnostic(isError, text + "\n");
    } else {
        std::cerr << text + "\n" << std::flush;
    }
}

} // namespace util

void brenn_warning_printf(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    util::print(false, format, arguments);
    va_end(arguments);
}

void brenn_error_printf(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    util::print(true, format, arguments);
    va_end(arguments);
}
