// The forms in which a tree of timings is read: indented text, JSON and trace events.
#include <util/profiling.h>

#include <cstdio>

namespace util {

namespace {

std::string escaped(const std::string &text) {
    std::string json = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned int>(c));
            json += code;
        } else {
            json += c;
        }
    }
    return json + "\"";
}

std::string thousandths(std::int64_t value, int decimals) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*f", decimals, static_cast<double>(value) / 1000.0);
    return text;
}

void appendText(std::string &out, const ProfilingNode &node, std::size_t depth) {
    char figures[80];
    std::snprintf(figures, sizeof figures, "%12.3f %12.3f %12lld  ", static_cast<double>(node.wallNs) / 1e6,
                  static_cast<double>(node.cpuNs) / 1e6, static_cast<long long>(node.peakMemoryKiB));
    out += figures + std::string(2 * depth, ' ') + node.label;
    if (!node.detail.empty()) {
        out += " " + node.detail;
    }
    if (node.count > 1) {
        out += " (" + std::to_string(node.count) + " times)";
    }
    out += '\n';
    for (const auto &child : node.children) {
        appendText(out, *child, depth + 1);
    }
}

void appendJson(std::string &out, const ProfilingNode &node) {
    out += "{\"label\":" + escaped(node.label) + ",\"detail\":" + escaped(node.detail) +
           ",\"start_ns\":" + std::to_string(node.startNs) + ",\"wall_ns\":" + std::to_string(node.wallNs) +
           ",\"cpu_ns\":" + std::to_string(node.cpuNs) + ",\"peak_kib\":" + std::to_string(node.peakMemoryKiB) +
           ",\"count\":" + std::to_string(node.count) + ",\"children\":[";
    const char *between = "";
    for (const auto &child : node.children) {
        out += between;
        appendJson(out, *child);
        between = ",";
    }
    out += "]}";
}

/// Where a section is drawn in a trace: from when on, and in which row. Sections in a row lie one within the other.
struct TracePlace {
    std::int64_t startNs;
    int row;
    int depth;
};

/// What a section sums up lay here and there among the others within its parent. It is drawn in a row of its depth,
/// laid one behind the other from where the parent begins.
void appendTrace(std::string &out, const ProfilingNode &node, const TracePlace &place, const char *&between) {
    out += between;
    out += "\n{\"name\":" + escaped(node.label) +
           ",\"cat\":\"orvo\",\"ph\":\"X\",\"pid\":1,\"tid\":" + std::to_string(place.row) +
           ",\"ts\":" + thousandths(place.startNs, 3) + ",\"dur\":" + thousandths(node.wallNs, 3) +
           ",\"args\":{\"detail\":" + escaped(node.detail) + ",\"cpu_us\":" + thousandths(node.cpuNs, 3) +
           ",\"peak_kib\":" + std::to_string(node.peakMemoryKiB) + ",\"count\":" + std::to_string(node.count) + "}}";
    between = ",";
    std::int64_t laid = place.startNs;
    for (const auto &child : node.children) {
        TracePlace at{child->startNs, place.row, place.depth + 1};
        if (node.count > 1 || child->count > 1) {
            at.startNs = laid;
            at.row = node.count > 1 ? place.row : at.depth;
            laid += child->wallNs;
        }
        appendTrace(out, *child, at, between);
    }
}

} // namespace

std::string profilingText(const ProfilingNode &root) {
    std::string out = "     wall ms       cpu ms     peak KiB\n";
    for (const auto &child : root.children) {
        appendText(out, *child, 0);
    }
    return out;
}

std::string profilingJson(const ProfilingNode &root) {
    std::string out;
    appendJson(out, root);
    return out;
}

std::string profilingChromeTrace(const ProfilingNode &root) {
    std::string out = "{\"traceEvents\":[";
    const char *between = "";
    for (const auto &child : root.children) {
        appendTrace(out, *child, {child->startNs, 1, 1}, between);
    }
    return out + "\n],\"displayTimeUnit\":\"ms\"}\n";
}

} // namespace util
