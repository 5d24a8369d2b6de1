// Whether two designs compute the same: both are run on one stimulus, and their outputs are compared bit by bit.
#pragma once

#include <orvo/simulator.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvo::sim {

struct CompareOptions {
    std::uint64_t cycles = 1000;
    std::uint64_t seed = 1;
    /// Runs from reset, each on a stimulus of its own.
    std::uint64_t streams = 2;
    /// No more mismatches than these are told.
    std::size_t mostMismatches = 10;
};

/// An output that differs.
struct Mismatch {
    std::uint64_t stream;
    std::uint64_t cycle;
    std::string output;
    /// The bits of both sides, lowest word first.
    std::vector<std::uint64_t> first;
    std::vector<std::uint64_t> second;
    /// Of the first side, to show values by.
    Scalar scalar;
};

struct CompareResult {
    /// Scalars at the edges that only one of the designs has, or that have another width there.
    std::vector<std::string> unmatched;
    std::vector<Mismatch> mismatches;
    /// Compared in all streams together.
    std::uint64_t cycles = 0;
    bool same() const { return unmatched.empty() && mismatches.empty(); }
};

/// Runs both simulators from reset. Scalars at the edges are matched by their names. Half of the stimulus are bits by
/// chance, the other half zero, the least steps and the ends of the range.
ORVO_API CompareResult compareBehaviour(Simulator &first, Simulator &second, const CompareOptions &options = {});

} // namespace orvo::sim
