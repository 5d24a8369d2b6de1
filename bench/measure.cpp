// Measuring a phase of work.
#include "measure.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace orvo::bench {

namespace {

double residentBytes() {
    std::ifstream in("/proc/self/statm");
    double pages = 0;
    double resident = 0;
    in >> pages >> resident;
    return resident * 4096;
}

double peakBytes() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024;
}

/// Runs a phase once, in a process of its own.
Figures onceInChild(const std::function<Figures()> &phase) {
    int ends[2];
    if (::pipe(ends) != 0) {
        std::abort();
    }
    if (::fork() == 0) {
        Figures figures = phase();
        if (::write(ends[1], &figures, sizeof figures) != sizeof figures) {
            std::abort();
        }
        ::_exit(0);
    }
    Figures figures;
    if (::read(ends[0], &figures, sizeof figures) != sizeof figures) {
        std::fprintf(stderr, "a phase ended before its time\n");
        std::exit(1);
    }
    ::wait(nullptr);
    ::close(ends[0]);
    ::close(ends[1]);
    return figures;
}

} // namespace

double cpuNow() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

Figures inChild(const std::function<Figures()> &phase) {
    std::array<Figures, 3> runs;
    for (Figures &run : runs) {
        run = onceInChild(phase);
    }
    std::sort(runs.begin(), runs.end(), [](const Figures &a, const Figures &b) { return a.cpuSeconds < b.cpuSeconds; });
    return runs[1];
}

Figures measure(const std::function<void()> &work, const std::function<void()> &settle) {
    Figures figures;
    const double before = residentBytes();
    const double start = cpuNow();
    work();
    figures.cpuSeconds = cpuNow() - start;
    settle();
    figures.heldBytes = residentBytes() - before;
    figures.peakBytes = peakBytes() - residentBytes();
    return figures;
}

double exponent(double small, double large, double factor) {
    return small > 0 && large > 0 ? std::log(large / small) / std::log(factor) : 0;
}

} // namespace orvo::bench
