// Operations on words that last from cycle to cycle. Those without a result run when the cycle ends.
#pragma once

#include "sim/program.h"

namespace orvo::sim {

/// Gives the state's words.
void readState(std::uint64_t *words, const Op &op);
/// Takes input 0 if input 1 is absent or not zero.
void writeState(std::uint64_t *words, const Op &op);

/// A ring of entries: the words are the position, the number of entries, and the entries. Gives the oldest.
void readRing(std::uint64_t *words, const Op &op);
/// Puts input 0 in place of the oldest entry if input 1 is absent or not zero.
void writeRing(std::uint64_t *words, const Op &op);

/// A counter: the words are the count, the limit, the step and the length of a pulse. Gives the next count if input 0
/// is absent or not zero, else the present one. `op.aux` 1: one bit, whether that is below the length.
void readCounter(std::uint64_t *words, const Op &op);
/// Takes the next count.
void writeCounter(std::uint64_t *words, const Op &op);

/// Nested counters: the words are whether they run, the counts, and the limits, outermost first. Inputs: go, then the
/// limits. Gives by `op.aux`: 0 whether they run; for level i, 1 + 3i the count, then whether it is the first
/// and the last of its level.
void readLoop(std::uint64_t *words, const Op &op);
/// Samples limits at go and steps the innermost counter if enabled: one more input behind the limits.
void stepLoop(std::uint64_t *words, const Op &op);

/// A table: the words are the number of entries, the words of an entry, and the entries. Gives the entry at input 0, a
/// bit pattern; zero beyond the last.
void readTable(std::uint64_t *words, const Op &op);
/// The same of a table in which each entry stands behind its address; the addresses ascend.
void readListed(std::uint64_t *words, const Op &op);
/// One bit: whether input 0 is listed. The words are a number and ascending addresses, or with `op.aux` 0 the number
/// below which all are.
void findListed(std::uint64_t *words, const Op &op);

} // namespace orvo::sim
