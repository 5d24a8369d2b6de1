// Blocks of transforms that take several samples a cycle, one on each element of a vector. The number of a sample has
// the number of its wire in its low bits, and the cycle of the frame above them.
#include "sim/blockrows.h"
#include "sim/fftstages.h"

#include <orvo/wire.h>

#include <algorithm>

namespace orvo::sim {

namespace {

int numberOf(const BlockWriter &writer, const StaticString &key, const char *what) {
    const std::int64_t number = writer.integer(key, -1);
    if (number < 0 || number > 1 << 20) {
        writer.fail(std::string(what) + " is not told, or no small number");
    }
    return static_cast<int>(number);
}

/// A vector of two to so many elements.
Signal wiresOf(const BlockWriter &writer, int bits) {
    const Signal data = writer.in(0);
    require(writer, data);
    if (data.type->isRecord() || data.type->dims.size() != 1 ||
        data.type->dims.front() != std::uint32_t{1} << static_cast<unsigned>(bits)) {
        writer.fail("the data is no vector of two to the " + std::to_string(bits) + " numbers");
    }
    return data;
}

void giveValid(BlockWriter &writer) {
    const Signal valid = writer.in(A_FFTBLOCK_PORT_VALID);
    if (const Signal out = writer.out(A_FFTBLOCK_WIRE_VALID); out.known()) {
        requireFixed(writer, valid, "valid");
        convertSignal(writer, out, valid);
    }
}

// Factors that are constants.

internal::UnitRoot rootOf(const BlockWriter &writer, const StaticString &numerator, const StaticString &denominator) {
    const std::int64_t n = writer.integer(denominator, 0);
    if (n < 1 || n > std::int64_t{1} << 40) {
        writer.fail("the denominator of the angle is not told");
    }
    return internal::unitRoot(writer.integer(numerator, 0) % n, n);
}

/// The type of a constant factor: told, or that of float data.
NumTypeSpec factorType(const BlockWriter &writer, const Signal &data) {
    NumTypeSpec type(writer.param(A_FFTBLOCK_TWIDDLE_TYPE), writer.context());
    if (data.type->scalar.isFloat) {
        type = data.type->spec;
    }
    if (!type.valid()) {
        writer.fail("the type of the factor is not told");
    }
    type.stripVectors();
    type.setComplex(false);
    return type;
}

Signal dataOf(const BlockWriter &writer) {
    const Signal data = writer.in(0);
    require(writer, data);
    if (data.type->isRecord()) {
        writer.fail("records have no meaning here");
    }
    return data;
}

void writeConstantTwiddle(BlockWriter &writer, const internal::UnitRoot &root) {
    Expansion e(writer);
    const Signal data = dataOf(writer);
    NumTypeSpec type = factorType(writer, data);
    type.setComplex(true);
    const Signal factor = e.fresh(type);
    Context *context = writer.context();
    writer.constant(factor, ValueRef(TupleValue::get(ValueRef(A_COMPLEX_ROLL_TAG), NumberValue::get(root.re, context),
                                                     NumberValue::get(root.im, context), context)));
    e.give(writer.out(), e.product(data, factor, NumTypeSpec::typeOp(data.type->spec, type, TYPE_OP_MUL)));
}

void writeFloatTwiddle(BlockWriter &writer) {
    writeConstantTwiddle(writer, rootOf(writer, A_TWIDDLEBYF_M, A_TWIDDLEBYF_N));
}

void writeFixedTwiddle(BlockWriter &writer) {
    writeConstantTwiddle(writer, rootOf(writer, A_TWIDDLEBYP_M, A_TWIDDLEBYP_N));
}

/// By one eighth, or by three, of a turn: both parts times the root of one half, whose sign is that of the factor's
/// real part, then their sum and difference.
template <int eighths> void writeEighthTurn(BlockWriter &writer) {
    Expansion e(writer);
    const Signal data = e.complexed(dataOf(writer));
    const NumTypeSpec type = factorType(writer, data);
    const Signal factor = e.fresh(type);
    writer.constant(factor, ValueRef(NumberValue::get(internal::unitRoot(eighths, 8).re, writer.context())));
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (!out.type->isComplex) {
        writer.fail("the output is complex, and its type is real");
    }
    // Each part alone is a real number times the factor.
    NumTypeSpec real = data.type->spec;
    real.stripVectors();
    real.setComplex(false);
    const NumTypeSpec exact = NumTypeSpec::typeOp(real, type, TYPE_OP_MUL);
    const SignalType *realType = writer.types().of(PureValueRef(real.toValue(writer.context())));
    for (std::uint32_t lane = 0; lane < out.type->lanes(); ++lane) {
        const Leaf re = e.product({realType, *leafAt(data, lane, 0)}, factor, exact).first;
        const Leaf im = e.product({realType, *leafAt(data, lane, 1)}, factor, exact).first;
        if (eighths == 1) {
            e.subtractInto(*leafAt(out, lane, 0), re, im);
            e.addInto(*leafAt(out, lane, 1), re, im);
        } else {
            e.addInto(*leafAt(out, lane, 0), re, im);
            e.subtractInto(*leafAt(out, lane, 1), im, re);
        }
    }
}

// Wires.

/// Wires whose numbers differ in one bit change places while the parity of the listed bits of the count is odd.
void writeButterflyStage(BlockWriter &writer) {
    Expansion e(writer);
    const int bit = numberOf(writer, A_BUTTERFLY_STAGE_SBIT, "the spatial bit");
    const std::vector<int> bits = internal::integersOf(writer.param(A_XOR_BITS_BITLIST));
    const Signal data = dataOf(writer);
    const Signal out = writer.out();
    if (bit > 16 || data.type->dims.size() != 1 || data.type->dims.front() % (2U << static_cast<unsigned>(bit)) != 0) {
        writer.fail("the data is no vector with such a bit in the numbers of its elements");
    }
    if (!out.known()) {
        return;
    }
    const Leaf swap = bits.empty() ? e.number(1, 0) : e.parity(e.control(A_FFTBLOCK_PORT_COUNT, "the count"), bits);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const std::uint32_t other = lane ^ (1U << static_cast<unsigned>(bit));
        e.chooseInto(leaf, swap, {e.part(data, lane, part), e.part(data, other, part)});
    });
}

/// Elements of a vector by number.
Signal selected(Expansion &e, const Signal &in, const internal::Permutation &numbers) {
    const Signal out = e.fresh(in.type->spec);
    const std::uint32_t each = in.type->element;
    for (std::uint32_t lane = 0; lane < numbers.size(); ++lane) {
        for (std::uint32_t part = 0; part < each; ++part) {
            e.writer().alias(out.first + lane * each + part,
                             in.first + static_cast<std::uint32_t>(numbers[lane]) * each + part);
        }
    }
    return out;
}

/// The sum and the difference of neighbouring blocks of lanes, in place, one bit wider.
Signal pairedSums(Expansion &e, const Signal &in, std::uint32_t block) {
    NumTypeSpec type = NumTypeSpec::typeOp(in.type->spec, in.type->spec, TYPE_OP_ADD);
    type.setSigned(true);
    const Signal out = e.fresh(type);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const bool subtracts = lane / block % 2 != 0;
        const Leaf first = e.part(in, subtracts ? lane - block : lane, part);
        const Leaf second = e.part(in, subtracts ? lane : lane + block, part);
        if (subtracts) {
            e.subtractInto(leaf, first, second);
        } else {
            e.addInto(leaf, first, second);
        }
    });
    return out;
}

/// A forward transform over the two or four blocks of a vector, which come in bit-reversed and leave in natural order.
Signal blockTransform(Expansion &e, const Signal &in, int stages) {
    const std::uint32_t block = in.type->lanes() >> static_cast<unsigned>(stages);
    if (stages == 1) {
        return pairedSums(e, in, block);
    }
    const Signal halves = e.complexed(pairedSums(e, in, block));
    NumTypeSpec type = NumTypeSpec::typeOp(halves.type->spec, halves.type->spec, TYPE_OP_ADD);
    const Signal out = e.fresh(type);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
        const std::uint32_t result = lane / block;
        const std::uint32_t column = lane % block;
        const bool isOdd = result % 2 != 0;
        const Leaf first = e.part(halves, (isOdd ? block : 0) + column, part);
        // Of the odd results the second operand is turned back by a quarter, for the first of them.
        const Leaf second = e.part(halves, (isOdd ? 3 : 2) * block + column, isOdd ? 1 - part : part);
        const bool subtracts = isOdd ? (result == 1) == (part == 1) : result == 2;
        if (subtracts) {
            e.subtractInto(leaf, first, second);
        } else {
            e.addInto(leaf, first, second);
        }
    });
    return out;
}

int stagesOf(const BlockWriter &writer) {
    const int stages = numberOf(writer, A_FFTBLOCK_N, "the number of stages");
    if (stages < 1 || stages > 2) {
        writer.fail("a transform across wires of other than one or two stages has no meaning here");
    }
    return stages;
}

void writeBlockTransform(BlockWriter &writer) {
    Expansion e(writer);
    const int stages = stagesOf(writer);
    const Signal data = dataOf(writer);
    if (data.type->dims.size() != 1 || data.type->dims.front() % (1U << static_cast<unsigned>(stages)) != 0) {
        writer.fail("the data is no vector of as many blocks");
    }
    e.give(writer.out(), blockTransform(e, data, stages));
    giveValid(writer);
}

/// The listed bits in ascending order, or in descending order.
void appendBits(std::vector<int> &bits, int from, int to, bool isDescending) {
    for (int i = from; i < to; ++i) {
        bits.push_back(isDescending ? from + to - 1 - i : i);
    }
}

void writeWireTransform(BlockWriter &writer) {
    Expansion e(writer);
    const int stages = stagesOf(writer);
    const int wires = numberOf(writer, A_FFTBLOCK_SPATIAL_BITS, "the number of spatial bits");
    if (stages > wires || wires > 16) {
        writer.fail("the transform has more stages than spatial bits, or there are too many of these");
    }
    std::vector<int> inBits;
    appendBits(inBits, stages, wires, false);
    appendBits(inBits, 0, stages, !writer.isTrue(A_FFTBLOCK_INPUT_BITREVERSED));
    std::vector<int> outBits;
    appendBits(outBits, wires - stages, wires, writer.isTrue(A_FFTBLOCK_OUTPUT_BITREVERSED));
    appendBits(outBits, 0, wires - stages, false);
    internal::Permutation out = internal::wirePermutation(outBits);
    if (writer.isTrue(A_FFTBLOCK_INVERSE)) {
        // The results of the forward transform the other way round are those of the inverse.
        const int column = 1 << (wires - stages);
        const int size = 1 << stages;
        for (int &number : out) {
            number = (size - number / column) % size * column + number % column;
        }
    }
    const Signal data = selected(e, wiresOf(writer, wires), internal::wirePermutation(inBits));
    e.give(writer.out(), selected(e, blockTransform(e, data, stages), out));
    giveValid(writer);
}

std::vector<int> bitsUnder(const BlockWriter &writer, const StaticString &key, const StaticString &other) {
    std::vector<int> bits = internal::integersOf(writer.param(writer.param(key) ? key : other));
    if (bits.empty() || *std::min_element(bits.begin(), bits.end()) < 0 ||
        *std::max_element(bits.begin(), bits.end()) > 30) {
        writer.fail("the bits of the twiddle are not told");
    }
    return bits;
}

/// Each wire by the factor whose angle is the product of two selections of bits of the number of its sample.
void writeGeneralTwiddle(BlockWriter &writer) {
    Expansion e(writer);
    const int wires = numberOf(writer, A_FFTBLOCK_SPATIAL_BITS, "the number of spatial bits");
    const Signal data = wiresOf(writer, wires);
    const std::vector<int> x = bitsUnder(writer, A_FFTBLOCK_XBITS, A_GENERAL_TWIDDLE_XBITS);
    const std::vector<int> y = bitsUnder(writer, A_FFTBLOCK_YBITS, A_GENERAL_TWIDDLE_YBITS);
    const int highest = std::max(*std::max_element(x.begin(), x.end()), *std::max_element(y.begin(), y.end()));
    const int cycles = writer.param(A_FFTBLOCK_TEMPORAL_BITS)
                           ? numberOf(writer, A_FFTBLOCK_TEMPORAL_BITS, "the number of temporal bits")
                           : std::max(highest + 1 - wires, 0);
    if (cycles > 20 || highest >= wires + cycles) {
        writer.fail("the bits of the twiddle lie outside of a frame");
    }
    const Leaf valid = truth(writer, e.control(A_FFTBLOCK_PORT_VALID, "valid"));
    const Leaf cycle = cycles == 0 ? zero(writer) : e.counter(valid, -1, std::int64_t{1} << cycles);
    internal::TwiddleTypes types{NumTypeSpec(writer.param(A_FFTBLOCK_INPUT_TYPE), writer.context()),
                                 NumTypeSpec(writer.param(A_FFTBLOCK_TWIDDLE_TYPE), writer.context()),
                                 NumTypeSpec(writer.param(A_FFTBLOCK_OUTPUT_TYPE), writer.context())};
    if (!types.factor.valid() || !types.output.valid()) {
        writer.fail("the types of the twiddle are not told");
    }
    types.factor.stripVectors();
    types.factor.setComplex(true);
    NumTypeSpec all = types.factor;
    all.addVector(1 << wires);
    const Signal factors = e.fresh(all);
    const std::int64_t turn = std::int64_t{1} << (x.size() + y.size());
    for (std::uint32_t wire = 0; wire < data.type->lanes(); ++wire) {
        std::vector<std::pair<double, double>> entries;
        for (std::uint64_t at = 0; at < std::uint64_t{1} << cycles; ++at) {
            const std::uint64_t number = at << static_cast<unsigned>(wires) | wire;
            const auto angle =
                static_cast<std::int64_t>(internal::gatheredBits(number, x) * internal::gatheredBits(number, y));
            const internal::UnitRoot root =
                internal::unitRoot(writer.isTrue(A_FFTBLOCK_INVERSE) ? angle : -angle, turn);
            entries.emplace_back(root.re, root.im);
        }
        const Signal factor = e.latched(valid, e.complexTable(cycle, entries, types.factor));
        writer.alias(*leafAt(factors, wire, 0), *leafAt(factor, 0, 0));
        writer.alias(*leafAt(factors, wire, 1), *leafAt(factor, 0, 1));
    }
    e.give(writer.out(), rotated(e, data, factors, types));
    giveValid(writer);
}

const BlockRow kRows[] = {
    {&A_TWIDDLEBYF_BLOCK, writeFloatTwiddle},
    {&A_TWIDDLEBYP_BLOCK, writeFixedTwiddle},
    {&A_TWIDDLEBY1_8F_BLOCK, writeEighthTurn<1>},
    {&A_TWIDDLEBY3_8F_BLOCK, writeEighthTurn<3>},
    {&A_TWIDDLEBY1_8P_BLOCK, writeEighthTurn<1>},
    {&A_TWIDDLEBY3_8P_BLOCK, writeEighthTurn<3>},
    {&A_BUTTERFLY_STAGE_BLOCK, writeButterflyStage},
    {&A_FFTNP_BLOCK, writeBlockTransform},
    {&A_FFTNX_BLOCK, writeWireTransform},
    {&A_GENERAL_TWIDDLE_BLOCK, writeGeneralTwiddle},
};

} // namespace

std::span<const BlockRow> fftSpatialRows() { return kRows; }

} // namespace orvo::sim
