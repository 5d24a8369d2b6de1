// Synthetic designs for measurements: the same design for the same options, on every machine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvo {
class Design;
class Model;
class Wire;
} // namespace orvo

namespace orvo::bench {

struct SyntheticOptions {
    std::uint64_t seed = 1;
    /// Blocks in the whole design. Each has one wire and four parameters, two of them connections.
    std::size_t blocks = 1000;
    /// Models below the top one, each of which the top instantiates once; 0 gives a flat design.
    std::size_t models = 0;
    /// How far back, in blocks, a connection may reach: small values make chains, large ones wide fan-out.
    std::size_t reach = 64;
    /// Half of the blocks feed nothing that lives.
    bool halfDead = false;
    /// The inputs have types and no operation grows, so that every signal has one.
    bool typed = false;
    /// Each block reads the one before it and another one, so that all are needed for the last.
    bool allNeeded = false;
    /// Not 0: the blocks are those of this many instances of one model, one behind the other.
    std::size_t instances = 0;
    /// Above 1, signals of a typed design are vectors of so many elements.
    int lanes = 1;
    /// The elements of a typed design are complex.
    bool complex = false;
    /// Not 0: signals of a typed design are records of so many numbers, or single numbers for 1, which are only kept
    /// and moved on.
    int members = 0;
};

/// Fills an empty design. Gives the last wire of the top model.
Wire &makeSynthetic(Design &design, const SyntheticOptions &options);

/// Fills an empty design with about as many blocks in rows of 64, of sums, differences and logic on 20 bits, each
/// fourth row of registers; every wire is read. Unlike in a chain, few paths are long, as in designs that are meant for
/// hardware.
Model &makePipeline(Design &design, std::size_t blocks, std::uint64_t seed = 1);

} // namespace orvo::bench
