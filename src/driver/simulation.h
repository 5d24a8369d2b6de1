// What the verbs that simulate share.
#pragma once

#include "driver/console.h"

#include <orvo/simulator.h>

#include <cstdint>
#include <memory>
#include <string>

namespace orvo {
class Design;
class Model;
} // namespace orvo

namespace orvo::driver {

/// More cycles than these no run ends; also what a negative number is read as.
inline constexpr std::uint64_t kMostCycles = std::uint64_t{1} << 40U;

/// The model of a name or, for an empty one, the only model that no other instantiates; else the verb ends.
const Model &topModel(const Design &design, const std::string &name, Console &console);

/// Ends the verb with the reason and the places why a design cannot be simulated.
[[noreturn]] void failToSimulate(const sim::SimulationError &error, Console &console, int exitCode);

/// What `run` gives; a design that cannot be simulated ends the verb.
template <class Run> auto orFail(Run run, Console &console, int exitCode = kDesignErrors) {
    try {
        return run();
    } catch (const sim::SimulationError &error) {
        failToSimulate(error, console, exitCode);
    }
}

std::unique_ptr<sim::Simulator> compileSimulator(const Design &design, const Model &top,
                                                 const sim::SimulatorOptions &options, Console &console);

} // namespace orvo::driver
