// What the rows of composite blocks are drawn with: the operations that their parts would write, on signals that have
// no wire. A composite computes what its parts compute, so that taking it apart changes no bit.
#pragma once

#include "sim/emit.h"

#include <initializer_list>
#include <vector>

namespace orvo::sim {

/// A delay of which the end may be read before its input is known, as a loop asks for.
struct DelayLine {
    Leaf out = 0;
    std::uint32_t state = 0;
    std::uint32_t words = 0;
    std::int64_t length = 1;
};

/// The parts of one composite. Controls are single unsigned leaves, data are signals of any type.
class Expansion {
  public:
    explicit Expansion(BlockWriter &writer) : mWriter(writer) {}
    BlockWriter &writer() { return mWriter; }

    /// A constant.
    Leaf number(std::uint32_t width, std::uint64_t value);
    /// Counts in each enabled cycle, in which it shows the new count already.
    Leaf counter(Leaf enable, std::int64_t initial, std::int64_t limit);
    /// Bits from an offset up.
    Leaf field(Leaf in, int offset, int width);
    Leaf allOf(const std::vector<Leaf> &bits);
    Leaf differ(Leaf a, Leaf b);
    Leaf opposite(Leaf bit);
    Leaf isZero(Leaf in);
    Leaf isLess(Leaf a, Leaf b);
    /// The number that the select tells; all of the type of the first.
    Leaf choose(Leaf select, const std::vector<Leaf> &data);
    /// Modulo the width.
    Leaf add(Leaf a, Leaf b, int width);
    Leaf product(Leaf a, Leaf b, int width);
    Leaf negated(Leaf in);
    /// The first lowest.
    Leaf joined(const std::vector<Leaf> &parts);
    Leaf gathered(Leaf in, const std::vector<int> &bits);
    Leaf parity(Leaf in, const std::vector<int> &bits);
    Leaf reversed(Leaf in);
    Leaf shiftedRight(Leaf in, Leaf places);
    Leaf sized(Leaf in, int width);
    /// The entry at an address, zero beyond the last.
    Leaf table(Leaf address, const std::vector<std::uint64_t> &entries, int width);

    DelayLine openDelay(const ScalarType &type, std::int64_t length);
    void closeDelay(const DelayLine &line, Leaf in);
    /// Holds zero at first; a length of 0 is a wire.
    Leaf delayed(Leaf in, std::int64_t length);
    Signal delayed(const Signal &in, std::int64_t length);
    /// Follows the data while enabled, and holds otherwise.
    Leaf latched(Leaf enable, Leaf data);
    Signal latched(Leaf enable, const Signal &data);

    Signal fresh(const NumTypeSpec &type);
    /// One bit, or a control, of a port. Fails if it is not connected.
    Leaf control(const PureValueRef &port, const char *what);
    /// A scalar at some part of a lane, zero in place of a missing imaginary part.
    Leaf part(const Signal &in, std::uint32_t lane, std::uint32_t part) { return partOrZero(mWriter, in, lane, part); }
    void addInto(Leaf out, Leaf a, Leaf b);
    void subtractInto(Leaf out, Leaf a, Leaf b);
    void negateInto(Leaf out, Leaf in);
    void chooseInto(Leaf out, Leaf select, const std::vector<Leaf> &data);
    Signal choose(Leaf select, const Signal &at0, const Signal &at1, const NumTypeSpec &type);
    Signal converted(const Signal &in, const NumTypeSpec &type);
    /// With an imaginary part of zero, if it has none.
    Signal complexed(const Signal &in);
    Signal cast(const Signal &in, const NumTypeSpec &type, Rounding rounding, Saturation saturation);
    /// Real or complex, by the type.
    Signal product(const Signal &a, const Signal &b, const NumTypeSpec &type);

    /// A memory with one side to write and one to read, which gives what was there before the cycle.
    Signal memory(const Signal &data, Leaf write, Leaf writeAddress, Leaf readAddress, int addressBits);
    /// A table of complex numbers, real then imaginary part.
    Signal complexTable(Leaf address, const std::vector<std::pair<double, double>> &entries, const NumTypeSpec &type);
    /// The bits of a table of real numbers in a type.
    Leaf realTable(Leaf address, const std::vector<double> &entries, const ScalarType &type);

    /// Connects what was drawn to the output of the block, if anybody reads it.
    void give(const Signal &out, const Signal &in);
    void give(const Signal &out, Leaf in);

  private:
    Leaf plain(int width);
    void floatInto(Leaf out, int function, const std::vector<Leaf> &in);

    BlockWriter &mWriter;
};

} // namespace orvo::sim
