// Whether two designs compute the same: both are run on one stimulus, and their outputs are compared bit by bit.
#pragma once

#include <orvo/simulator.h>

#include <cstdint>
#include <functional>
#include <optional>
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
    /// Told now and then: cycles done, and all of them.
    std::function<void(std::uint64_t, std::uint64_t)> progress{};
};

/// A scalar that differs.
struct Mismatch {
    std::uint64_t stream;
    std::uint64_t cycle;
    /// The name of the scalar of the first side.
    std::string output;
    /// The bits of both sides, lowest word first.
    std::vector<std::uint64_t> first;
    std::vector<std::uint64_t> second;
    /// The places of bits that are unknown.
    std::vector<std::uint64_t> firstUnknown;
    std::vector<std::uint64_t> secondUnknown;
    /// To show values by.
    Scalar scalar;
};

struct CompareResult {
    /// Scalars at the edges that only one of the designs has, or that have another type there.
    std::vector<std::string> unmatched;
    std::vector<Mismatch> mismatches;
    /// Where two designs went apart: the signal of equal origin that is the first to differ, by cycle and then by what
    /// is computed first. Its name is a path of instances, block and wire. None if only outputs differ.
    std::optional<Mismatch> inside;
    /// Compared in all streams together.
    std::uint64_t cycles = 0;
    bool same() const { return unmatched.empty() && mismatches.empty(); }
};

/// Runs both simulators from reset. Scalars at the edges are matched by their names, or by those that unrolling gives
/// them. Half of the stimulus are bits by chance, the other half zero, the least steps and the ends of the range.
/// Where the simulators track what is unknown, an unknown bit of the first may be anything in the second; a known one
/// must be known there, and equal. Floats that come out of faithful rounding may be neighbours.
ORVO_API CompareResult compareBehaviour(Simulator &first, Simulator &second, const CompareOptions &options = {});

/// The same for models of two designs, tracking what is unknown. A mismatch is followed inside. Throws
/// `SimulationError`.
ORVO_API CompareResult compareDesigns(const Design &first, const Model &firstTop, const Design &second,
                                      const Model &secondTop, const CompareOptions &options = {});

} // namespace orvo::sim
