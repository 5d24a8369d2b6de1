// Measuring a phase of work: processor time and memory, in a process of its own, so that peaks are the phase's.
#pragma once

#include <functional>

namespace orvo::bench {

/// What one phase of one size took.
struct Figures {
    double cpuSeconds = 0;
    /// Bytes: of the process for what the phase leaves, and at its peak beside that.
    double heldBytes = 0;
    double peakBytes = 0;
    /// What else the phase counts.
    double count = 0;
};

/// Processor time of this process, in seconds.
double cpuNow();

/// Runs the work here; `settle` runs before the memory that it left is looked at.
Figures measure(
    const std::function<void()> &work, const std::function<void()> &settle = [] {});

/// The median of three runs by their time, each in a child process: the machine has other users.
Figures inChild(const std::function<Figures()> &phase);

/// The e in time = c * size^e between two sizes whose ratio is `factor`.
double exponent(double small, double large, double factor);

} // namespace orvo::bench
