// Small services on texts, free of the locale.
#pragma once

#include <orvo/api.h>

#include <cstdarg>
#include <string>
#include <string_view>
#include <vector>

namespace util {

/// The pieces between the delimiters, empty ones included; a text without one gives itself.
ORVO_API std::vector<std::string> split(std::string_view text, std::string_view delimiters);

/// Equality that takes the ASCII letters of both cases for the same.
ORVO_API bool caseInsensitiveEquals(std::string_view a, std::string_view b);

/// By printf rules.
ORVO_API std::string formatted(const char *format, std::va_list arguments);

} // namespace util
