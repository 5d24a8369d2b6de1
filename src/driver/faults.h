// Faults of the program itself: assertions, crash signals and exceptions that nobody expected. Each ends the process
// with the exit code for internal faults, after a message and, while a pass runs, a reproducer file.
#pragma once

#include "driver/console.h"

#include <stdexcept>
#include <string>

namespace orvo {
class Design;
}

namespace orvo::driver {

/// Thrown where a pass gives up for a mistake in the design that it has told.
struct DesignAtFault final : std::runtime_error {
    DesignAtFault() : std::runtime_error("the design lacks what the pass needs") {}
};

/// What is being done, for the message and the reproducer of a fault that comes now.
struct FaultContext {
    /// The number and the name of the pass; 0 and empty outside passes.
    std::size_t number = 0;
    std::string pass;
    /// Where to write a reproducer; empty for none.
    std::string reproducerPath;
    /// Its lines behind the reason, down to "design:".
    std::string header;
    /// A file that holds the design's XML from its start; it stays open while this holds.
    int descriptor = -1;
};

/// Takes over assertions and the signals of crashes, on a stack of their own. Once per process; `console` lives on.
void installFaultHandlers(Console &console);
/// Keeps what a fault from now on is to tell.
void armFaults(const FaultContext &context);
void disarmFaults();
/// Tells a fault and writes the reproducer, but lets the process go on.
void reportFault(const std::string &reason);

/// Where the design before each pass is kept: two files without names that take turns, so that a fault during writing
/// finds the earlier one.
class DesignSnapshots {
  public:
    DesignSnapshots();
    ~DesignSnapshots();
    DesignSnapshots(const DesignSnapshots &) = delete;
    DesignSnapshots &operator=(const DesignSnapshots &) = delete;
    /// A descriptor of the file that now holds the design; -1 if it could not be written.
    int take(const Design &design);

  private:
    int mDescriptors[2];
    int mNext = 0;
};

} // namespace orvo::driver
