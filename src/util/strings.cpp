// Small services on texts.
#include <util/strings.h>

#include <algorithm>
#include <cstdio>

namespace util {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

} // namespace

std::vector<std::string> split(std::string_view text, std::string_view delimiters) {
    std::vector<std::string> pieces;
    for (std::size_t start = 0;;) {
        std::size_t end = text.find_first_of(delimiters, start);
        pieces.emplace_back(text.substr(start, end - start));
        if (end == std::string_view::npos) {
            return pieces;
        }
        start = end + 1;
    }
}

bool caseInsensitiveEquals(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

std::string formatted(const char *format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

} // namespace util
