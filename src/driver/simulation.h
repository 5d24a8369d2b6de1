// What the verbs that simulate share.
#pragma once

#include "driver/console.h"

#include <orvo/simulator.h>

#include <memory>
#include <string>

namespace orvo {
class Design;
class Model;
} // namespace orvo

namespace orvo::driver {

/// The model of a name or, for an empty one, the only model that no other instantiates; else the verb ends.
const Model &topModel(const Design &design, const std::string &name, Console &console);

/// A design that cannot be simulated ends the verb, with its reason and places.
std::unique_ptr<sim::Simulator> compileSimulator(const Design &design, const Model &top,
                                                 const sim::SimulatorOptions &options, Console &console);

} // namespace orvo::driver
