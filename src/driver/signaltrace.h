// Where a signal of a design is in what the design was lowered to. Nothing but the two designs is needed: names of
// blocks, ports and wires tell where they come from.
#pragma once

#include <orvo/value.h>

#include <optional>
#include <string>
#include <vector>

namespace orvo {
class Block;
class Design;
} // namespace orvo

namespace orvo::driver {

/// A wire of a block, or a port that reads one.
struct SignalName {
    const Block *block;
    PureValueRef name;
    bool isPort;
};

/// The signal of a path, or what could have stood where the path ends to be one.
struct FoundSignal {
    std::optional<SignalName> signal;
    std::vector<std::string> known;
    /// What stands there instead.
    std::string wrong;
};

/// A path is a model's name, the model blocks on the way if there are some, a block, and its wire or port, apart by "/"
/// or, in front of the last, by ".". Of a wire and a port of one name the wire is meant. A path that leads to nothing
/// is read once more without brackets around it and the "/" in front, as references are written.
FoundSignal findSignal(const Design &design, const std::string &path);

/// One wire of the lowered design that carries the signal or a part of it.
struct SignalPlace {
    std::string model;
    std::string block;
    std::string wire;
    /// For a signal that is a port: the port that reads the wire.
    std::string reader;
    /// What became of the names on the way, for people; empty if they stayed.
    std::vector<std::string> steps;
    /// Whether the block was made to join the signal again, or to take it apart.
    bool isJoint = false;
};

/// What was found of one signal of the source.
struct SignalTrace {
    std::string signal;
    /// Why the trace came to it; empty for the signal that was asked for.
    std::string via;
    std::vector<SignalPlace> places;
    /// Why there are no places; empty if the trace goes on elsewhere.
    std::string gone;
};

/// The signal first. Where its block dissolved, for it only passed on what others drive, these follow.
std::vector<SignalTrace> traceSignal(const SignalName &signal, const Design &source, const Design &lowered);

} // namespace orvo::driver
