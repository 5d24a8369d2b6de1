// Plain warnings and errors.
#include <util/diagnostics.h>

#include <cstdarg>
#include <cstdio>
#include <iostream>

namespace util {

namespace {

thread_local DiagnosticSink *tl_sink = nullptr;

void print(bool isError, const char *format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
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
