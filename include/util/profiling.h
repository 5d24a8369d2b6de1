// ProfilingLog: sections of work that nest, and the tree of what each one took. Off unless a thread turns it on, and
// then it costs a test.
#pragma once

#include <orvo/api.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace util {

/// What a section is called, and a second field for what it works on.
struct ProfilingInfo {
    std::string label;
    std::string detail;
    /// For what happens often and takes little: all of one label and detail within a section are summed up in one.
    bool isSummed = false;
};

/// One section of the finished tree.
struct ProfilingNode {
    std::string label;
    std::string detail;
    /// Nanoseconds from the moment that the log was turned on.
    std::int64_t startNs = 0;
    std::int64_t wallNs = 0;
    /// Of this thread.
    std::int64_t cpuNs = 0;
    /// The process's peak of resident memory when the section ended.
    std::int64_t peakMemoryKiB = 0;
    /// How many sections this one stands for: those that are summed up as they come, and, beyond a bound on the tree's
    /// size, all of one label.
    std::int64_t count = 1;
    std::vector<std::unique_ptr<ProfilingNode>> children;
};

/// The log of the current thread.
class ORVO_API ProfilingLog {
  public:
    /// A tree has at most this many sections; later ones join an earlier sibling of their label.
    static constexpr std::size_t kMaxNodes = 100000;

    /// Starts a new log.
    static void enable();
    static void disable();
    static bool enabled();
    /// Opens and closes a section. Nothing happens while the log is off, or when no section is open.
    static void begin(const ProfilingInfo &info);
    static void end();
    /// Sections that are open; 0 while the log is off.
    static std::size_t depth();
    /// Closes sections until no more than `depth` are open: for a way out that is not the end of the section.
    static void unwindTo(std::size_t depth);
    /// The root of the tree, whose children are the outermost sections; open sections end now. Leaves the log empty and
    /// as on as it was. Null if the log was off.
    static std::unique_ptr<ProfilingNode> take();
};

/// A section for a scope.
class ProfilingSection {
  public:
    ProfilingSection(const char *label, const std::string &detail) : ProfilingSection(ProfilingInfo{label, detail}) {}
    explicit ProfilingSection(const ProfilingInfo &info) : mOn(ProfilingLog::enabled()) {
        if (mOn) {
            ProfilingLog::begin(info);
        }
    }
    ~ProfilingSection() {
        if (mOn) {
            ProfilingLog::end();
        }
    }
    ProfilingSection(const ProfilingSection &) = delete;
    ProfilingSection &operator=(const ProfilingSection &) = delete;

  private:
    bool mOn;
};

/// Indented lines: wall and CPU milliseconds, peak memory, label and detail.
ORVO_API std::string profilingText(const ProfilingNode &root);
/// {"label", "detail", "start_ns", "wall_ns", "cpu_ns", "peak_kib", "count", "children": [...]}.
ORVO_API std::string profilingJson(const ProfilingNode &root);
/// The trace event form that browsers show as a time line.
ORVO_API std::string profilingChromeTrace(const ProfilingNode &root);

} // namespace util
