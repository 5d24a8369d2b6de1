// Signals over time as texts: numbers in decimal, stimuli, and value change dumps.
#pragma once

#include <orvo/simulator.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace orvo::driver {

/// The bits of a scalar, lowest word first, filled up by the sign or by zeros.
using Words = std::vector<std::uint64_t>;

/// The value in decimal, or the integer that the bits make. Fixed point is exact, a float the shortest decimal that
/// reads back the same, or inf, -inf or nan.
std::string valueText(const sim::Scalar &scalar, const Words &words, bool raw);
/// The bits as 0, 1 and x for unknown ones, the highest first.
std::string bitsText(const sim::Scalar &scalar, const Words &words, const Words &unknown);
/// As `valueText`, but x for a value of which all bits are unknown, and its bits behind 0b where some are.
std::string valueText(const sim::Scalar &scalar, const Words &words, const Words &unknown, bool raw);
/// The bits of a number in decimal, rounded to the scalar's fraction, halves away from zero, and brought into its
/// range; a float nearest to it, ties to even; of an integer, its low bits. None for what is no number.
std::optional<Words> parseValue(const sim::Scalar &scalar, const std::string &text, bool raw);

/// What the inputs get in each cycle.
class Stimulus {
  public:
    virtual ~Stimulus();
    /// The bits of an input in a cycle.
    virtual Words at(std::uint64_t cycle, std::size_t input) = 0;
};

/// One that is made: "noise" or "noise:seed=S", "impulse", "ramp", "corners". Null for any other name.
///     noise    every bit by chance
///     impulse  one, or the highest value below it, in the first cycle, then zero
///     ramp     from the lowest value up by one step a cycle; a float from zero up by one
///     corners  zero, the least step up and down, the highest and the lowest value, by chance; for a float one,
///     infinite
///              and no number, too
std::unique_ptr<Stimulus> makeStimulus(const std::string &name, const std::vector<sim::Scalar> &inputs);

/// What a signal shows in a cycle.
struct Sample {
    Words bits;
    /// One in the places of unknown bits; as many words.
    Words unknown;
    bool operator==(const Sample &) const = default;
};

/// Writes a value change dump (IEEE 1364).
class ChangeDump {
  public:
    ChangeDump(std::ostream &out, const std::string &top, const std::vector<sim::Scalar> &scalars);
    void cycle(std::uint64_t cycle, const std::vector<Sample> &samples);

  private:
    std::ostream &mOut;
    const std::vector<sim::Scalar> &mScalars;
    std::vector<Sample> mLast;
};

} // namespace orvo::driver
