// The log of sections of the current thread.
#include <util/profiling.h>

#include <sys/resource.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <utility>

namespace util {

namespace {

std::int64_t clockNs(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

std::int64_t peakMemoryKiB() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

struct OpenSection {
    ProfilingNode *node;
    std::int64_t wallStart;
    std::int64_t cpuStart;
    /// Those within it that are summed up, by label and detail.
    std::map<std::pair<std::string, std::string>, ProfilingNode *> summed = {};
};

struct Log {
    std::unique_ptr<ProfilingNode> root = std::make_unique<ProfilingNode>();
    /// The root is the first, and stays.
    std::vector<OpenSection> open{{root.get(), 0, 0}};
    std::int64_t origin = clockNs(CLOCK_MONOTONIC);
    std::size_t nodes = 0;

    ProfilingNode *child(const ProfilingInfo &info) {
        OpenSection &around = open.back();
        if (!info.isSummed) {
            return newChild(*around.node, info);
        }
        const auto [known, isNew] = around.summed.try_emplace({info.label, info.detail}, nullptr);
        if (isNew) {
            known->second = newChild(*around.node, info);
        } else {
            ++known->second->count;
        }
        return known->second;
    }

    ProfilingNode *newChild(ProfilingNode &parent, const ProfilingInfo &info) {
        if (nodes >= ProfilingLog::kMaxNodes) {
            auto same = std::find_if(parent.children.rbegin(), parent.children.rend(),
                                     [&](const auto &node) { return node->label == info.label; });
            if (same != parent.children.rend()) {
                ++(*same)->count;
                return same->get();
            }
        }
        ++nodes;
        parent.children.push_back(std::make_unique<ProfilingNode>());
        ProfilingNode *node = parent.children.back().get();
        node->label = info.label;
        node->detail = info.detail;
        node->startNs = clockNs(CLOCK_MONOTONIC) - origin;
        return node;
    }

    std::size_t depth() const { return open.size() - 1; }

    void close() {
        const OpenSection &section = open.back();
        section.node->wallNs += clockNs(CLOCK_MONOTONIC) - section.wallStart;
        section.node->cpuNs += clockNs(CLOCK_THREAD_CPUTIME_ID) - section.cpuStart;
        section.node->peakMemoryKiB = peakMemoryKiB();
        open.pop_back();
    }
};

thread_local std::unique_ptr<Log> tl_log;

} // namespace

void ProfilingLog::enable() { tl_log = std::make_unique<Log>(); }

void ProfilingLog::disable() { tl_log.reset(); }

bool ProfilingLog::enabled() { return tl_log != nullptr; }

void ProfilingLog::begin(const ProfilingInfo &info) {
    if (!tl_log) {
        return;
    }
    ProfilingNode *node = tl_log->child(info);
    tl_log->open.push_back({node, clockNs(CLOCK_MONOTONIC), clockNs(CLOCK_THREAD_CPUTIME_ID)});
}

void ProfilingLog::end() {
    if (depth() != 0) {
        tl_log->close();
    }
}

std::size_t ProfilingLog::depth() { return tl_log ? tl_log->depth() : 0; }

void ProfilingLog::unwindTo(std::size_t depth) {
    while (ProfilingLog::depth() > depth) {
        tl_log->close();
    }
}

std::unique_ptr<ProfilingNode> ProfilingLog::take() {
    if (!tl_log) {
        return nullptr;
    }
    unwindTo(0);
    std::unique_ptr<ProfilingNode> root = std::move(tl_log->root);
    for (const auto &section : root->children) {
        root->wallNs += section->wallNs;
        root->cpuNs += section->cpuNs;
    }
    root->peakMemoryKiB = peakMemoryKiB();
    enable();
    return root;
}

} // namespace util
