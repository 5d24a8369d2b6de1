// Printing and reading reproducer files.
#include "driver/reproducer.h"

#include <fmt/format.h>

#include <charconv>

namespace orvo::driver {

namespace {

constexpr std::string_view kFirstLine = "orvo-reproducer 1";

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n' || c == '\r' || c == '\\') {
            out += '\\';
            out += c == '\n' ? 'n' : c == '\r' ? 'r' : '\\';
        } else {
            out += c;
        }
    }
    return out;
}

std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            const char c = text[++i];
            out += c == 'n' ? '\n' : c == 'r' ? '\r' : c;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::optional<std::size_t> number(std::string_view text) {
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

/// Takes the next line off the text. False at its end.
bool nextLine(std::string_view &text, std::string_view &line) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) {
        return false;
    }
    line = text.substr(0, end);
    text.remove_prefix(end + 1);
    return true;
}

/// Reads one line of the form "key: value". False for a bad one.
bool readEntry(std::string_view line, Reproducer &reproducer) {
    const std::size_t colon = line.find(": ");
    if (colon == std::string_view::npos) {
        return false;
    }
    const std::string_view key = line.substr(0, colon);
    const std::string value = unescaped(line.substr(colon + 2));
    if (key == "reason") {
        reproducer.reason = value;
    } else if (key == "version") {
        reproducer.version = value;
    } else if (key == "pass") {
        reproducer.pass = value;
    } else if (key == "passes") {
        reproducer.passes = value;
    } else if (key == "option" && value == "verify-each") {
        reproducer.verifyEach = true;
    } else if (key == "option" && value == "check-sim") {
        reproducer.simulate = true;
    } else if (const std::size_t equals = value.find('='); key == "feature" && equals != std::string::npos) {
        reproducer.features.emplace_back(value.substr(0, equals), value.substr(equals + 1));
    } else if (const auto count = number(value); key == "skip" && count) {
        reproducer.skip.push_back(*count);
    } else if (key == "stop-after" && count) {
        reproducer.stopAfter = count;
    } else {
        return false;
    }
    return true;
}

} // namespace

std::string printReproducerHeader(const Reproducer &reproducer) {
    std::string text = "version: " + escaped(reproducer.version) + "\n";
    text += "pass: " + escaped(reproducer.pass) + "\n";
    text += reproducer.verifyEach ? "option: verify-each\n" : "";
    text += reproducer.simulate ? "option: check-sim\n" : "";
    for (const auto &[name, value] : reproducer.features) {
        text += fmt::format("feature: {}\n", escaped(fmt::format("{}={}", name, value)));
    }
    for (const std::size_t skipped : reproducer.skip) {
        text += "skip: " + std::to_string(skipped) + "\n";
    }
    if (reproducer.stopAfter) {
        text += "stop-after: " + std::to_string(*reproducer.stopAfter) + "\n";
    }
    return text + "passes: " + escaped(reproducer.passes) + "\ndesign:\n";
}

std::string printReproducerStart(const std::string &reason) {
    return std::string(kFirstLine) + "\nreason: " + escaped(reason) + "\n";
}

std::optional<std::string> parseReproducer(std::string_view text, Reproducer &reproducer) {
    std::string_view line;
    if (!nextLine(text, line) || line != kFirstLine) {
        return "the first line is not '" + std::string(kFirstLine) + "'";
    }
    for (int count = 2; nextLine(text, line); ++count) {
        if (line == "design:") {
            reproducer.design = text;
            reproducer.designLine = count;
            return std::nullopt;
        }
        if (!readEntry(line, reproducer)) {
            return "line " + std::to_string(count) + " is not understood";
        }
    }
    return "there is no design in it";
}

} // namespace orvo::driver
