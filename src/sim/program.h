// What a compiled design is made of: words that hold the bits of every scalar part of every signal, and operations on
// them in the order in which they run.
#pragma once

#include <cstdint>
#include <vector>

namespace orvo::sim {

/// Where a scalar lies, and how a kernel reads or writes it. A value takes as many words as its width asks for, the
/// lowest first; the last is filled up by the sign or by zeros.
struct Operand {
    std::uint32_t at = 0;
    std::uint32_t width = 0;
    bool isSigned = false;
    /// As an input: the value counts negative.
    bool isNegated = false;
    /// As an input: places by which the value is shifted left before it is used, so that binary points meet. As an
    /// output: low bits of the exact result that are dropped, toward minus infinity; below zero, zeros appended.
    std::int32_t shift = 0;
};

struct Op;
using Kernel = void (*)(std::uint64_t *words, const Op &op);

/// One operation on scalars.
struct Op {
    Kernel run = nullptr;
    Operand out;
    /// Inputs, in the program's pool of operands from `firstIn` on.
    const Operand *in = nullptr;
    std::uint32_t firstIn = 0;
    std::uint32_t count = 0;
    /// What the kernel makes of it.
    std::int32_t aux = 0;
    /// Words of its own that last from cycle to cycle.
    std::uint32_t state = 0;
    std::uint32_t stateWords = 0;
};

/// A compiled design.
struct Program {
    /// What all words hold at reset.
    std::vector<std::uint64_t> initial;
    std::vector<Operand> operands;
    /// Run in each cycle, each behind those that it reads from.
    std::vector<Op> ops;
    /// Run when the cycle ends; they write state only.
    std::vector<Op> commits;
    /// Values that nothing settles, in each cycle anew. Zero unless a run tracks what is unknown.
    std::vector<Operand> unknowns;
    /// The same for state, settled by nothing at reset. The shift is the number of the first bit in the first word.
    std::vector<Operand> unknownState;
};

/// Words that a value of this width takes.
inline std::uint32_t wordsFor(std::uint32_t width) { return width <= 64 ? 1 : (width + 63) / 64; }

} // namespace orvo::sim
