// Operations that the rows of several families write.
#pragma once

#include "sim/kernels.h"
#include "sim/lanes.h"

namespace orvo::sim {

/// The numbered inputs, at least so many, all of fixed point.
std::vector<Signal> fixedInputs(const BlockWriter &writer, std::size_t least);
/// The same of fixed point or of floats, whose bits are taken as they are.
std::vector<Signal> patternInputs(const BlockWriter &writer, std::size_t least);
Signal fixedInput(const BlockWriter &writer, const PureValueRef &key, const char *what);
/// The scalar there, or a zero in place of an imaginary part that a real number has not.
Leaf partOrZero(BlockWriter &writer, const Signal &signal, std::uint32_t lane, std::uint32_t part);
/// A zero, which every word is at reset.
Leaf zero(BlockWriter &writer);
/// One bit: whether a control is not zero.
Leaf truth(BlockWriter &writer, Leaf control);
/// A signal between two operations. Null for a type ends compilation; `what` tells of which.
Signal temporarySignal(BlockWriter &writer, const SignalType *type, const char *what);
/// The constant of a parameter as a signal of its own, of the least type that holds it.
Signal constantSignal(BlockWriter &writer, const StaticString &key);
Signal constantSignal(BlockWriter &writer, const ValueRef &value);

/// Adds an operation over scalars whose binary points meet.
template <class Pick>
void emitAligned(BlockWriter &writer, Leaf out, const std::vector<Leaf> &in, Pick pick, int aux = 0) {
    const std::int32_t fraction = commonFraction(writer, in);
    std::vector<Operand> operands;
    for (const Leaf leaf : in) {
        operands.push_back(writer.aligned(leaf, fraction));
    }
    writer.emit(out, fraction - writer.scalar(out).fraction, operands, pick, aux);
}

/// A sum in which the marked inputs count negative.
void emitSum(BlockWriter &writer, Leaf out, const std::vector<Leaf> &in, const std::vector<bool> &negates);
/// The data input whose number the select holds; beyond the last, unknown.
void emitMux(BlockWriter &writer, Leaf out, Leaf select, const std::vector<Leaf> &data);
/// How one value stands to another, in a bit.
void emitCompare(BlockWriter &writer, Leaf out, Leaf a, Leaf b, Relation relation);
/// One bit: the logic over bits; complemented if `negates`. Over none: zero, or one if `negates`.
Leaf emitBit(BlockWriter &writer, Logic logic, const std::vector<Leaf> &bits, bool negates = false);
/// A bit that is one for good.
Leaf one(BlockWriter &writer);

/// A queue whose entries are several scalars.
struct Queue {
    std::uint32_t state;
    std::uint32_t words;
    std::vector<Leaf> entry;
};
enum class QueueFlag { Valid, Low, High };
/// Low and high tell when the flags of the same names are true, as numbers of entries.
Queue makeQueue(BlockWriter &writer, std::int64_t depth, std::int64_t low, std::int64_t high, std::vector<Leaf> entry);
/// The oldest entry; zero from an empty queue.
void emitOldest(BlockWriter &writer, const Queue &queue, const std::vector<Leaf> &out);
void emitQueueFlag(BlockWriter &writer, const Queue &queue, QueueFlag flag, Leaf out);
/// What happens to the queue at the end of the cycle: its entry is added, the oldest taken off, all forgotten.
void commitQueue(BlockWriter &writer, const Queue &queue, Leaf write, Leaf acknowledge, Leaf flush);

/// A value that was stored earlier. Its reader stands before what is stored is known, as a loop asks for.
struct Stored {
    Leaf out;
    std::uint32_t state;
    std::uint32_t words;
    std::int64_t length;
};
/// What was stored so many times ago, at least once; zero at first.
Stored openStore(BlockWriter &writer, const ScalarType &type, std::int64_t length = 1);
/// Stores a value of the same type at the end of the cycle, if enabled.
void closeStore(BlockWriter &writer, const Stored &stored, Leaf in, std::optional<Leaf> enable = std::nullopt);
/// The value at a leaf of its own of this type.
Leaf converted(BlockWriter &writer, const ScalarType &type, Leaf in);
/// The number that the select tells, of a type of its own.
Leaf chosen(BlockWriter &writer, const ScalarType &type, Leaf select, const std::vector<Leaf> &data);
/// A signed type that holds the sum of these.
ScalarType sumType(const BlockWriter &writer, const std::vector<Leaf> &in);

/// A real or complex number on the way.
struct Factor {
    Leaf re;
    std::optional<Leaf> im;
};
inline Factor factorAt(const Signal &signal, std::uint32_t lane) {
    return {*leafAt(signal, lane), leafAt(signal, lane, 1)};
}
/// One part of a complex or real product of fixed-point numbers, into a leaf.
void emitProductPart(BlockWriter &writer, Leaf out, const Factor &a, const Factor &b, std::uint32_t part);

} // namespace orvo::sim
