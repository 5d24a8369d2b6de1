// The elements that transforms are made of, as functions that draw them. Frames run without gaps: between the first and
// the last sample of a frame, valid is true in every cycle. Between frames there may be any pause.
#pragma once

#include "sim/expansion.h"

#include "orvo/fftplan.h"

namespace orvo::sim {

/// Pulses with every sample whose number among the valid ones, from 1 on, is a multiple of two to the `bits`.
Leaf pulseDivider(Expansion &e, Leaf valid, int bits);
/// Stretches a pulse to two to the `bits` cycles, that of the pulse the first.
Leaf pulseMultiplier(Expansion &e, Leaf pulse, int bits);
/// Valid later by two to the `bits` cycles, in blocks of as many samples.
Leaf delayedValid(Expansion &e, Leaf valid, int bits);

/// The same for sizes told by a signal as logarithms, up to `bits`; larger sizes count as the largest.
Leaf variableDivider(Expansion &e, Leaf valid, Leaf size, int bits);
Leaf variableMultiplier(Expansion &e, Leaf pulse, Leaf size, int bits);
/// The number of a sample in its frame, by the size, with its bits turned round if told.
Leaf accessAddress(Expansion &e, Leaf valid, Leaf size, Leaf reverse, int bits);

/// The number of a sample in the frame of a twiddle, which has `during + after` bits. `drop` stages are left out; those
/// beyond `before` shorten the frame by one bit each.
struct TwiddleCounterShape {
    int before;
    int during;
    int after;
};
Leaf twiddleCounter(Expansion &e, Leaf valid, Leaf drop, const TwiddleCounterShape &shape);
/// Whether so many dropped stages leave out the one with this number.
Leaf stageDropped(Expansion &e, Leaf drop, int stage);

/// Gives in each block of two to the `bits` samples the sums of its halves, then their differences, one half late.
/// `subtract` is true with the samples of the second half.
Signal butterfly(Expansion &e, const Signal &data, Leaf subtract, int bits, const NumTypeSpec &type);
Signal shortButterfly(Expansion &e, const Signal &data, Leaf subtract, int bits, const NumTypeSpec &type);
Signal longButterfly(Expansion &e, const Signal &data, Leaf subtract, int bits, const NumTypeSpec &type);

/// A quarter turn back, or forth for the inverse transform, where told.
Signal quarterTurn(Expansion &e, const Signal &data, Leaf rotate, Leaf inverse, const NumTypeSpec &type);

/// The product of index and bit-reversed pivot, which lie in this order above `below` bits of the count; modulo a turn
/// of two to the bits of both.
Leaf twiddleAngle(Expansion &e, Leaf count, int below, int pivot, int index);
/// The same by addition: from index 0 on, the pivot is added with each index.
Leaf accumulatedAngle(Expansion &e, Leaf count, int below, int pivot, int index);
/// The factor of an angle, from a quarter of a cosine. `read` holds the table's output while false.
Signal twiddleFactor(Expansion &e, Leaf angle, Leaf read, int bits, bool isInverse, const NumTypeSpec &type);

/// Which bits of a count make the address, by the state.
Leaf transposeAddress(Expansion &e, Leaf state, Leaf count, const std::vector<internal::Permutation> &group);

/// What a reordering gives.
struct Reordered {
    Leaf gate;
    Leaf valid;
    Signal data;
};
/// Sample k of a frame comes out in the place whose number's bits, taken by the permutation, make k.
Reordered transposed(Expansion &e, Leaf valid, const Signal &data, const internal::Permutation &permutation);

struct VariablyReordered {
    Leaf gate;
    Leaf valid;
    Leaf size;
    Signal data;
};
VariablyReordered variablyReversed(Expansion &e, Leaf valid, Leaf size, const Signal &data, int bits);

} // namespace orvo::sim
