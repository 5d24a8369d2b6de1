// What several unrollers of vectors ask of types and make beside a block.
#pragma once

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/vectorunroller.h>

#include <cstddef>
#include <initializer_list>
#include <vector>

namespace orvo::internal {

/// The type inside all vector layers; null for null.
PureValueRef elementType(const PureValueRef &type, Context *context);
/// The type below the outermost dimension; a scalar is its own.
PureValueRef belowOutermost(const PureValueRef &type, Context *context);
/// 0 for a scalar.
int outermostLength(const VectorDecorSpec &vectors);
/// A name by a pattern of the block's name and a number.
PureValueRef named(const char *pattern, const PureValueRef &name, int number = 0);
PureValueRef numberOf(std::size_t number);
Block &createBeside(const Block &beside, const PureValueRef &name, const StaticString &type);
/// The wire brought to a type that holds all that its own does.
Wire &widened(const Block &beside, const PureValueRef &name, Wire &wire, const PureValueRef &type);
/// The wire with its type written in another way, as formats of floats may be: a cast would flush subnormals.
Wire &rewritten(const Block &beside, const PureValueRef &name, Wire &wire, const PureValueRef &type);
void connectReaders(const std::vector<MaybePort> &readers, Wire &wire);
/// All parameters but connections, models and constraints.
void copyPlainParams(Block &made, const Block &original);
bool isOneOf(const PureValueRef &key, std::initializer_list<const StaticString *> keys);
/// Whether element 0 of a tuple is a tag; false for null.
bool isTagged(const TupleValueRef &tuple, const StaticString &tag);

/// The handler that gives a block the unroller U.
template <class U> const VectorUnrollHandler *vectorUnrollHandler() {
    static const VectorUnrollHandlerT<U> handler;
    return &handler;
}

} // namespace orvo::internal
