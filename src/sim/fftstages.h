// Stages of a streaming transform and chains of them. A stage gives its frame later by half of the frame that it spans,
// so that a chain gives it later by one sample less than the frame.
#pragma once

#include "sim/fftelements.h"

namespace orvo::sim {

/// What goes from stage to stage.
struct SampleStream {
    Leaf valid;
    Signal data;
    /// Number of stages left out; the samples of a frame must have left before it changes.
    Leaf drop;
};

struct StageShape {
    /// Stage bits ahead of this one, and bits of the number of a sample below it.
    int before = 0;
    int after = 0;
    bool isInverse = false;
    bool inputBitReversed = false;
};

SampleStream radix2Stage(Expansion &e, const SampleStream &in, const StageShape &shape);
SampleStream radix4Stage(Expansion &e, const SampleStream &in, const StageShape &shape);
/// The same, left out while more stages are dropped than lie before.
SampleStream variableRadix2Stage(Expansion &e, const SampleStream &in, const StageShape &shape);
SampleStream variableRadix4Stage(Expansion &e, const SampleStream &in, const StageShape &shape);

struct TwiddleShape {
    int before = 0;
    int after = 0;
    int pivot = 0;
    int index = 0;
    bool isInverse = false;
    bool isVariable = false;
    internal::TwiddleTypes types;
};
SampleStream twiddled(Expansion &e, const SampleStream &in, const TwiddleShape &shape);
/// Data times factors: brought to the types' input, multiplied, brought to their output.
Signal rotated(Expansion &e, const Signal &data, const Signal &factors, const internal::TwiddleTypes &types);

struct ChainShape {
    int maxBits = 0;
    int minBits = 0;
    int subchannelBits = 0;
    bool isInverse = false;
    bool inputBitReversed = false;
    std::vector<internal::TwiddleTypes> types;
};
SampleStream stageChain(Expansion &e, const SampleStream &in, const ChainShape &shape);

/// A transform with the gate of its frames.
struct Transformed {
    Leaf gate;
    Leaf valid;
    Signal data;
};
Transformed fixedTransform(Expansion &e, Leaf valid, const Signal &data, const ChainShape &shape, int subchannels);
Transformed variableTransform(Expansion &e, Leaf valid, Leaf size, const Signal &data, const ChainShape &shape,
                              int subchannels);

} // namespace orvo::sim
