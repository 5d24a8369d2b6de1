// Plain warnings and errors of the services and of the readers of the library's own files, beside the tagged messages
// that are for designs.
#pragma once

#include <orvo/api.h>

#include <string>

namespace util {

/// Receives what `brenn_warning_printf` and `brenn_error_printf` print, on the thread that prints it.
class ORVO_API DiagnosticSink {
  public:
    virtual ~DiagnosticSink();
    virtual void onDiagnostic(bool isError, const std::string &text) = 0;
};

/// Sends this thread's diagnostics to `sink` (not owned) in place of standard error; null sends them back. Returns the
/// sink before.
ORVO_API DiagnosticSink *setDiagnosticSink(DiagnosticSink *sink);

/// Gives a line to the sink or, where there is none, to standard error as it stands.
ORVO_API void reportDiagnostic(bool isError, const std::string &text);

} // namespace util

/// Print by printf rules; the text ends its own line.
ORVO_API void brenn_warning_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
ORVO_API void brenn_error_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
