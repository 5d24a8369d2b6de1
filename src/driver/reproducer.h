// The file that a fault leaves behind: all that is needed to see the fault again. A few lines of text, then the design
// as XML to the end of the file:
//
//     orvo-reproducer 1
//     reason: assertion 'a block agrees with the catalogue' failed in f at src/x.cpp:12: detail
//     version: 0.1.0
//     pass: 3 NetlistVerificationPass
//     option: verify-each
//     option: check-sim
//     feature: NAME=VALUE
//     skip: 2
//     passes: NetlistVerificationPass
//     design:
//
// In a line, "\n", "\r" and "\\" stand for a new line, a carriage return and a backslash.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvo::driver {

struct Reproducer {
    std::string reason;
    std::string version;
    /// The command at which the fault came, as "number name", counted in the run that met it.
    std::string pass;
    bool verifyEach = false;
    bool simulate = false;
    std::vector<std::pair<std::string, std::string>> features;
    /// Counted in the run of `passes`.
    std::vector<std::size_t> skip;
    std::optional<std::size_t> stopAfter;
    /// The passes still to run, the failing one included, as text.
    std::string passes;
    /// The design XML, and the number of lines before it.
    std::string design;
    int designLine = 0;
};

/// The lines from "version:" to "design:": what is known before a fault.
std::string printReproducerHeader(const Reproducer &reproducer);
/// The first line and the reason.
std::string printReproducerStart(const std::string &reason);
/// Reads a whole file. Gives the reason in words if it is not a reproducer.
std::optional<std::string> parseReproducer(std::string_view text, Reproducer &reproducer);

} // namespace orvo::driver
