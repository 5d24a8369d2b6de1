// Memories as several blocks hold them.
#pragma once

#include "sim/compiler.h"

namespace orvo::sim {

/// One side of a memory.
struct Side {
    Signal address;
    Signal data;
    Signal write;
    Signal read;
    Signal out;
};

/// The bits of one scalar of the initial content, element after element, of which each number has so many parts. A
/// number alone stands in all lanes, as a real part. The lanes may be rolled in the elements or around them.
std::vector<bool> contentOf(const BlockWriter &writer, const TupleValueRef &data, const ScalarType &type,
                            std::uint32_t scalar, std::uint32_t parts);
/// The state of a memory of at least so many bits, with the content at reset: where it lies, and its words. What no
/// content is given for is zero, or unknown if the block says so.
std::pair<std::uint32_t, std::uint32_t> memoryOf(BlockWriter &writer, std::int64_t bits,
                                                 const std::vector<bool> &content);
/// The element at the address of a side, before the writes of the cycle; a conflict that is marked as ignored is none,
/// since permutations in place read what they overwrite.
void emitRead(BlockWriter &writer, const Side &side, Leaf leaf, std::uint32_t lane, std::uint32_t state,
              std::uint32_t words);
/// What the sides of a memory write in a cycle: enable, address and data of each.
void commitWrites(BlockWriter &writer, std::uint32_t state, std::uint32_t words, std::vector<Operand> writes);

} // namespace orvo::sim
