// Operations on queues and memories. Their words begin with a header.
#pragma once

#include "sim/program.h"

namespace orvo::sim {

/// The header of a queue: where the oldest entry stands, the number of entries, how many there may be, the words of
/// one, the thresholds for low and high.
struct QueueHeader {
    std::uint64_t head;
    std::uint64_t count;
    std::uint64_t depth;
    std::uint64_t entryWords;
    std::uint64_t low;
    std::uint64_t high;
};
inline constexpr std::uint32_t kQueueHeaderWords = 6;

/// A part of the oldest entry, from the word that `op.aux` tells; input 0, which is unknown, from an empty queue.
void readQueue(std::uint64_t *words, const Op &op);
/// One bit: `op.aux` 0 an entry is there, 1 the fill is at most the low threshold, 2 at least the high one.
void readQueueFlag(std::uint64_t *words, const Op &op);
/// Takes the oldest entry off if input 1 is true, then adds input 3 and what follows as an entry if input 0 is; empties
/// the queue if input 2 is. Full and empty are those of the cycle's start.
void moveQueue(std::uint64_t *words, const Op &op);

/// The header of a memory: its bits.
inline constexpr std::uint32_t kMemoryHeaderWords = 1;

/// The element at the address in input 0; input 1, which is unknown, beyond the end, and where inputs 2 and 3 are
/// there, the enable and address of a write of `op.aux` bits, for the bits that this write takes in the same cycle.
void readMemory(std::uint64_t *words, const Op &op);
/// Writes of both sides: enable, address, data of side 1, then of side 2. Bits that both write in one cycle become
/// those of the last input, which is unknown.
void writeMemory(std::uint64_t *words, const Op &op);

} // namespace orvo::sim
