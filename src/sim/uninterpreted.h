// Functions of which nothing is known but that equal inputs give equal outputs: models that were compiled elsewhere,
// logic outside the design, filters whose arithmetic is not told. Their outputs are noise that depends on each bit of
// each input, so that a rewrite around them that disturbs any input shows. Nothing else goes in: no address, no name of
// a block, no place in the hierarchy.
#pragma once

#include "sim/compiler.h"

#include <orvo/api.h>

#include <string>
#include <string_view>
#include <vector>

namespace orvo::sim {

/// A scalar under a name that stays when signals are taken apart.
struct NamedLeaf {
    std::string name;
    Leaf leaf;
};

/// Appends the scalars of a signal, none of an unknown one. An element is named as if it had a port of its own: its
/// index, "real" or "imag" stands beside the name, and before the last part of a name that is a tuple.
void appendNamedLeaves(const BlockWriter &writer, const PureValueRef &name, const Signal &signal,
                       std::vector<NamedLeaf> &leaves);
/// The same for a port, with the elements that the block takes, which fewer may drive: these have ports of their own
/// after unrolling.
void appendTakenLeaves(BlockWriter &writer, const PureValueRef &name, const Port &port, std::vector<NamedLeaf> &leaves);
/// The same for a type from one of its dimensions on, without leaves.
ORVO_API void appendElementNames(const SignalType &type, std::size_t dim, const PureValueRef &name, Context *context,
                                 std::vector<std::string> &names);

/// Writes the outputs as a function of the inputs. `function` tells one function from another. The order of the inputs
/// does not count, their names do. With `remembers`, all earlier inputs count as well.
void emitUninterpreted(BlockWriter &writer, std::string_view function, const std::vector<NamedLeaf> &in,
                       const std::vector<NamedLeaf> &out, bool remembers = false);

/// A block of which nothing else is known.
struct Uninterpreted {
    /// The plain type, so that its variants are the same function.
    const StaticString *type;
    /// What tells functions of this type apart.
    std::vector<const StaticString *> params = {};
    bool remembers = false;
};

/// All wires of the block as a function of all ports.
void writeUninterpreted(BlockWriter &writer, const Uninterpreted &what);

/// One word: the sum of the scrambled inputs. The state holds a seed for each input.
ORVO_API void digestInputs(std::uint64_t *words, const Op &op);
/// As many bits as the output has, from the digest in input 0. The state holds a seed.
ORVO_API void expandDigest(std::uint64_t *words, const Op &op);

} // namespace orvo::sim
