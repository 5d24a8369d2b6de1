// The blocks of transforms. Each row reads ports and parameters and draws the parts that the block stands for.
#include "sim/blockrows.h"
#include "sim/fftstages.h"

#include <orvo/wire.h>

#include <algorithm>

namespace orvo::sim {

namespace {

using internal::TwiddleTypes;

int numberOf(const BlockWriter &writer, const StaticString &key, const char *what) {
    const std::int64_t number = writer.integer(key, -1);
    if (number < 0 || number > 1 << 20) {
        writer.fail(std::string(what) + " is not told, or no small number");
    }
    return static_cast<int>(number);
}

int numberOr(const BlockWriter &writer, const StaticString &key, int fallback, const char *what) {
    return writer.param(key) ? numberOf(writer, key, what) : fallback;
}

/// Bits of the largest frame, under either name.
int frameBits(const BlockWriter &writer) {
    return writer.param(A_FFTBLOCK_N) ? numberOf(writer, A_FFTBLOCK_N, "the size")
                                      : numberOf(writer, A_FFTBLOCK_MAXSIZE, "the largest size");
}

/// Of the two names that a port may have, the one that is connected.
PureValueRef portOf(const BlockWriter &writer, const StaticString &named, int numbered) {
    return writer.in(named).known() ? PureValueRef(named) : PureValueRef(NumberValue::get(numbered, writer.context()));
}

Signal dataOf(const BlockWriter &writer) {
    const Signal data = writer.in(portOf(writer, A_FFTBLOCK_PORT_DATA, 0));
    require(writer, data);
    if (data.type->isRecord()) {
        writer.fail("records have no meaning here");
    }
    return data;
}

Leaf validOf(Expansion &e) { return e.control(portOf(e.writer(), A_FFTBLOCK_PORT_VALID, 0), "valid"); }

Leaf validBesideData(Expansion &e) { return e.control(A_FFTBLOCK_PORT_VALID, "valid"); }

Leaf dropOf(Expansion &e) {
    return e.writer().in(A_FFTBLOCK_PORT_DROP).known() ? e.control(A_FFTBLOCK_PORT_DROP, "the number of dropped stages")
                                                       : e.number(1, 0);
}

/// The main output, or valid where the block has only that.
void giveBit(Expansion &e, Leaf bit) {
    e.give(e.writer().out(), bit);
    e.give(e.writer().out(A_FFTBLOCK_WIRE_VALID), bit);
}

NumTypeSpec typeParam(const BlockWriter &writer, const StaticString &key) {
    return NumTypeSpec(writer.param(key), writer.context());
}

/// The type of an output; where nobody reads it, the given one.
NumTypeSpec outputType(const BlockWriter &writer, const NumTypeSpec &otherwise) {
    const Signal out = writer.out();
    return out.known() && !out.type->isRecord() ? out.type->spec : otherwise;
}

/// Draws with each element of vectored data its own element of a vectored control, or with all one control.
template <class Draw>
void forControlledLanes(BlockWriter &writer, const StaticString &control, const char *what, Draw draw) {
    Expansion e(writer);
    const Signal data = dataOf(writer);
    const Signal controls = writer.in(control);
    requireFixed(writer, controls, what);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    if (controls.type->leaves == 1) {
        e.give(out, draw(e, data, truth(writer, controls.first), out.type->spec));
        return;
    }
    const SignalType *in = writer.types().inner(*data.type);
    const SignalType *result = writer.types().inner(*out.type);
    if (in == nullptr || result == nullptr || controls.type->leaves != data.type->dims.front() ||
        out.type->dims.front() != data.type->dims.front()) {
        writer.fail(std::string(what) + " has another length than the data");
    }
    for (std::uint32_t i = 0; i < controls.type->leaves; ++i) {
        e.give({result, out.first + i * result->leaves},
               draw(e, Signal{in, data.first + i * in->leaves}, truth(writer, controls.first + i), result->spec));
    }
}

using Butterfly = Signal (*)(Expansion &, const Signal &, Leaf, int, const NumTypeSpec &);

template <Butterfly draw> void writeButterfly(BlockWriter &writer) {
    const int bits = numberOf(writer, A_FFTBLOCK_N, "the size");
    forControlledLanes(writer, A_FFTBLOCK_PORT_SUB, "the control of the butterfly",
                       [&](Expansion &e, const Signal &data, Leaf subtract, const NumTypeSpec &type) {
                           return draw(e, data, subtract, bits, type);
                       });
}

void writeQuarterTurn(BlockWriter &writer) {
    forControlledLanes(writer, A_TRIVIAL_TWIDDLE_PORT_ROTATE, "the control of the rotation",
                       [&](Expansion &e, const Signal &data, Leaf rotate, const NumTypeSpec &type) {
                           const Signal inverse = writer.in(A_TRIVIAL_TWIDDLE_PORT_IFFT);
                           const Leaf isInverse = inverse.known() ? truth(writer, inverse.first) : e.number(1, 0);
                           return quarterTurn(e, data, rotate, isInverse, type);
                       });
}

void writeDelayedValid(BlockWriter &writer) {
    Expansion e(writer);
    giveBit(e, delayedValid(e, validOf(e), numberOf(writer, A_FFTBLOCK_STAGES_AFTER, "the number of stages after")));
}

void writeVectorFanout(BlockWriter &writer) {
    const Signal in = writer.in(0);
    require(writer, in);
    if (const Signal out = writer.out(); out.known()) {
        if (out.type->leaves % in.type->leaves != 0) {
            writer.fail("the vector is no number of copies of the input");
        }
        for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
            writer.convert(out.first + i, in.first + i % in.type->leaves);
        }
    }
}

void writeSwitch(BlockWriter &writer) {
    Expansion e(writer);
    const Leaf swap = e.control(A_XSWITCH_PORT_SWAP, "the control of the switch");
    const Signal data[2] = {writer.in(A_XSWITCH_PORT_D0), writer.in(A_XSWITCH_PORT_D1)};
    require(writer, data[0]);
    require(writer, data[1]);
    const Signal outs[2] = {writer.out(A_XSWITCH_WIRE_Q0), writer.out(A_XSWITCH_WIRE_Q1)};
    for (std::size_t i = 0; i < 2; ++i) {
        if (outs[i].known()) {
            forEachScalar(outs[i], [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
                e.chooseInto(leaf, swap, {e.part(data[i], lane, part), e.part(data[1 - i], lane, part)});
            });
        }
    }
}

void writeChooseBits(BlockWriter &writer) {
    Expansion e(writer);
    const std::vector<int> bits = internal::integersOf(writer.param(A_FFT_CHOOSE_BITS_BITLIST));
    if (bits.empty()) {
        writer.fail("the bits are not told");
    }
    const Leaf in = e.control(NumberValue::get(0, writer.context()), "the input");
    if (const Signal out = writer.out(); out.known()) {
        // A pattern, wherever the output's binary point is.
        writer.emit(out.first, 0, {writer.raw(e.gathered(in, bits))}, sumKernel);
    }
}

void writeStageDrop(BlockWriter &writer) {
    Expansion e(writer);
    const Leaf drop = e.control(portOf(writer, A_FFTBLOCK_PORT_DROP, 0), "the number of dropped stages");
    giveBit(e, stageDropped(e, drop, numberOf(writer, A_STAGE_NUMBER, "the number of the stage")));
}

void writeTwiddleAddSub(BlockWriter &writer) {
    Expansion e(writer);
    const Signal a = writer.in(A_TWIDDLE_ADD_SUB_PORT_D0);
    const Signal b = writer.in(A_TWIDDLE_ADD_SUB_PORT_D1);
    require(writer, a);
    require(writer, b);
    const Signal outs[2] = {writer.out(A_TWIDDLE_ADD_SUB_WIRE_Q0), writer.out(A_TWIDDLE_ADD_SUB_WIRE_Q1)};
    for (std::uint32_t i = 0; i < 2; ++i) {
        if (!outs[i].known()) {
            continue;
        }
        if (!a.type->isComplex || !b.type->isComplex || !outs[i].type->isComplex) {
            writer.fail("its values must be complex");
        }
        // The second value, turned back by a quarter, is added for the one result and subtracted for the other.
        forEachScalar(outs[i], [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf first = e.part(a, lane, part);
            const Leaf second = e.part(b, lane, 1 - part);
            if (i == part) {
                e.addInto(leaf, first, second);
            } else {
                e.subtractInto(leaf, first, second);
            }
        });
    }
}

Leaf countOf(Expansion &e) { return e.control(portOf(e.writer(), A_FFTBLOCK_PORT_COUNT, 0), "the count"); }

/// Whether the angle is drawn by the form that suits its widths, or always by addition.
template <bool suited> void writeTwiddleAngle(BlockWriter &writer) {
    Expansion e(writer);
    const int below = numberOr(writer, A_FFTBLOCK_SUBCHANNELBITS, 0, "the number of bits below");
    const int pivot = numberOf(writer, A_FFTBLOCK_PIVOT_WIDTH, "the width of the pivot");
    const int index = numberOf(writer, A_FFTBLOCK_INDEX_WIDTH, "the width of the index");
    e.give(writer.out(), (suited ? twiddleAngle : accumulatedAngle)(e, countOf(e), below, pivot, index));
}

void writeAngleWithoutSubchannels(BlockWriter &writer) {
    Expansion e(writer);
    const int pivot = numberOf(writer, A_FFTBLOCK_PIVOT_WIDTH, "the width of the pivot");
    const int index = numberOf(writer, A_FFTBLOCK_INDEX_WIDTH, "the width of the index");
    e.give(writer.out(), accumulatedAngle(e, countOf(e), 0, pivot, index));
}

void writeProductAngle(BlockWriter &writer) {
    Expansion e(writer);
    const std::vector<int> x = internal::integersOf(writer.param(A_FFTBLOCK_XBITS));
    const std::vector<int> y = internal::integersOf(writer.param(A_FFTBLOCK_YBITS));
    if (x.empty() || y.empty()) {
        writer.fail("the bits of the twiddle are not told");
    }
    Leaf number = countOf(e);
    if (const int wires = numberOr(writer, A_FFTBLOCK_SPATIAL_BITS, 0, "the number of spatial bits"); wires > 0) {
        const int wire = numberOf(writer, A_FFTBLOCK_WIRE_NUMBER, "the number of the wire");
        number = e.joined({e.number(static_cast<std::uint32_t>(wires), static_cast<std::uint64_t>(wire)), number});
    }
    e.give(writer.out(),
           e.product(e.gathered(number, x), e.gathered(number, y), static_cast<int>(x.size() + y.size())));
}

void writeTwiddleFactor(BlockWriter &writer) {
    Expansion e(writer);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    const NumTypeSpec told = typeParam(writer, A_FFTBLOCK_TWIDDLE_TYPE);
    NumTypeSpec type = told.valid() ? told : out.type->spec;
    type.stripVectors();
    const Leaf read = writer.in(A_FFTBLOCK_PORT_READ_ACCESS).known()
                          ? truth(writer, e.control(A_FFTBLOCK_PORT_READ_ACCESS, "the read access"))
                          : e.number(1, 1);
    const Leaf angle = e.control(NumberValue::get(0, writer.context()), "the angle");
    const int bits = numberOf(writer, A_TWIDDLE_ROM_ANGLEWIDTH, "the width of the angle");
    e.give(out, twiddleFactor(e, angle, read, bits, writer.isTrue(A_FFTBLOCK_INVERSE), type));
}

void writeTwiddleCounter(BlockWriter &writer) {
    Expansion e(writer);
    const TwiddleCounterShape shape{numberOf(writer, A_FFTBLOCK_STAGES_BEFORE, "the number of stages before"),
                                    numberOf(writer, A_FFTBLOCK_STAGES_DURING, "the number of stages spanned"),
                                    numberOf(writer, A_FFTBLOCK_STAGES_AFTER, "the number of stages after")};
    e.give(writer.out(), twiddleCounter(e, truth(writer, validOf(e)), dropOf(e), shape));
}

void writeVariableDivider(BlockWriter &writer) {
    Expansion e(writer);
    giveBit(e, variableDivider(e, truth(writer, validOf(e)), e.control(A_FFTBLOCK_PORT_SIZE, "the size"),
                               frameBits(writer)));
}

void writeVariableMultiplier(BlockWriter &writer) {
    Expansion e(writer);
    giveBit(e, variableMultiplier(e, truth(writer, validOf(e)), e.control(A_FFTBLOCK_PORT_SIZE, "the size"),
                                  frameBits(writer)));
}

void writeAccessAddress(BlockWriter &writer) {
    Expansion e(writer);
    const int bits = frameBits(writer);
    const auto largest = static_cast<std::uint64_t>(bits);
    const Leaf size = writer.in(A_FFTBLOCK_PORT_SIZE).known()
                          ? e.control(A_FFTBLOCK_PORT_SIZE, "the size")
                          : e.number(static_cast<std::uint32_t>(internal::bitsToCount(bits + 1)), largest);
    e.give(writer.out(), accessAddress(e, truth(writer, e.control(A_MEM_ADDR_GEN_PORT_V, "the access")), size,
                                       truth(writer, e.control(A_MEM_ADDR_GEN_PORT_BR, "the order")), bits));
}

internal::Permutation permutationOf(const BlockWriter &writer) {
    internal::Permutation permutation = internal::integersOf(writer.param(A_FFTBLOCK_PERM));
    if (permutation.empty() || !internal::isPermutation(permutation)) {
        writer.fail("the permutation is none");
    }
    return permutation;
}

void writeTransposeAddress(BlockWriter &writer) {
    Expansion e(writer);
    const Leaf count =
        e.control(writer.in(A_FFTBLOCK_PORT_COUNT).known() ? A_FFTBLOCK_PORT_COUNT : A_FFTBLOCK_PORT_DATA, "the count");
    const Leaf state = e.control(A_TRANSPOSE_ADDR_PORT_S, "the state");
    const Leaf address = transposeAddress(e, state, count, internal::permutationGroup(permutationOf(writer)));
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t, std::uint32_t, Leaf leaf) { writer.convert(leaf, address); });
    }
}

void writeTranspose(BlockWriter &writer) {
    Expansion e(writer);
    const internal::Permutation permutation = permutationOf(writer);
    if (numberOr(writer, A_FFTBLOCK_N, static_cast<int>(permutation.size()), "the size") !=
        static_cast<int>(permutation.size())) {
        writer.fail("the permutation has another number of bits than the frame");
    }
    const Reordered result = transposed(e, truth(writer, validBesideData(e)), dataOf(writer), permutation);
    e.give(writer.out(A_TRANSPOSE_WIRE_G), result.gate);
    e.give(writer.out(A_TRANSPOSE_WIRE_Q), result.data);
    e.give(writer.out(A_FFTBLOCK_WIRE_VALID), result.valid);
}

/// A signal that is held for a frame, from its gate on.
void giveHeld(Expansion &e, const StaticString &wire, Leaf gate, const StaticString &port) {
    const Signal in = e.writer().in(port);
    if (const Signal out = e.writer().out(wire); out.known()) {
        require(e.writer(), in);
        e.give(out, e.latched(gate, in));
    }
}

void writeBitReversal(BlockWriter &writer) {
    Expansion e(writer);
    const int bits = numberOf(writer, A_FFTBLOCK_N, "the size");
    const int below = internal::bitsToCount(numberOr(writer, A_FFTBLOCK_SUBCHANNELS, 1, "the number of subchannels"));
    internal::Permutation permutation;
    for (int i = 0; i < bits + below; ++i) {
        permutation.push_back(i < below ? i : bits - 1 - (i - below) + below);
    }
    const Reordered result = transposed(e, truth(writer, validBesideData(e)), dataOf(writer), permutation);
    e.give(writer.out(A_FFTBLOCK_WIRE_VALID), result.valid);
    e.give(writer.out(), result.data);
    giveHeld(e, A_FFTBLOCK_WIRE_CHANNEL, result.gate, A_FFTBLOCK_PORT_CHANNEL);
}

VariablyReordered drawVariableReversal(Expansion &e) {
    BlockWriter &writer = e.writer();
    return variablyReversed(e, truth(writer, validBesideData(e)), e.control(A_FFTBLOCK_PORT_SIZE, "the size"),
                            dataOf(writer), frameBits(writer));
}

void writeVariableReversal(BlockWriter &writer) {
    Expansion e(writer);
    const VariablyReordered result = drawVariableReversal(e);
    e.give(writer.out(A_VBR_WIRE_G), result.gate);
    e.give(writer.out(A_VBR_WIRE_Q), result.data);
    e.give(writer.out(A_FFTBLOCK_WIRE_VALID), result.valid);
    e.give(writer.out(A_FFTBLOCK_WIRE_SIZE), result.size);
}

void writeVariableBitReversal(BlockWriter &writer) {
    Expansion e(writer);
    const VariablyReordered result = drawVariableReversal(e);
    e.give(writer.out(A_FFTBLOCK_WIRE_VALID), result.valid);
    e.give(writer.out(), result.data);
    e.give(writer.out(A_FFTBLOCK_WIRE_SIZE), result.size);
    giveHeld(e, A_FFTBLOCK_WIRE_CHANNEL, result.gate, A_FFTBLOCK_PORT_CHANNEL);
}

SampleStream streamOf(Expansion &e) { return {truth(e.writer(), validBesideData(e)), dataOf(e.writer()), dropOf(e)}; }

void giveStream(Expansion &e, const SampleStream &stream) {
    e.give(e.writer().out(A_FFTBLOCK_WIRE_VALID), stream.valid);
    e.give(e.writer().out(), stream.data);
    e.give(e.writer().out(A_FFTBLOCK_WIRE_DROP), stream.drop);
}

using Stage = SampleStream (*)(Expansion &, const SampleStream &, const StageShape &);

template <Stage draw> void writeStage(BlockWriter &writer) {
    Expansion e(writer);
    giveStream(e, draw(e, streamOf(e),
                       {numberOr(writer, A_FFTBLOCK_STAGES_BEFORE, 0, "the number of stages before"),
                        numberOf(writer, A_FFTBLOCK_STAGES_AFTER, "the number of stages after"),
                        writer.isTrue(A_FFTBLOCK_INVERSE), writer.isTrue(A_FFTBLOCK_INPUT_BITREVERSED)}));
}

TwiddleTypes typesOf(const BlockWriter &writer) {
    TwiddleTypes types{typeParam(writer, A_FFTBLOCK_INPUT_TYPE), typeParam(writer, A_FFTBLOCK_TWIDDLE_TYPE),
                       typeParam(writer, A_FFTBLOCK_OUTPUT_TYPE)};
    types.output = types.output.valid() ? types.output : outputType(writer, types.input);
    if (!types.factor.valid()) {
        writer.fail("the type of the factors is not told");
    }
    return types;
}

template <bool isVariable> void writeTwiddle(BlockWriter &writer) {
    Expansion e(writer);
    giveStream(e, twiddled(e, streamOf(e),
                           {numberOr(writer, A_FFTBLOCK_STAGES_BEFORE, 0, "the number of stages before"),
                            numberOf(writer, A_FFTBLOCK_STAGES_AFTER, "the number of stages after"),
                            numberOf(writer, A_FFTBLOCK_PIVOT_WIDTH, "the width of the pivot"),
                            numberOf(writer, A_FFTBLOCK_INDEX_WIDTH, "the width of the index"),
                            writer.isTrue(A_FFTBLOCK_INVERSE), isVariable, typesOf(writer)}));
}

ChainShape shapeOf(const BlockWriter &writer, bool isVariable) {
    ChainShape shape;
    shape.maxBits = isVariable ? numberOf(writer, A_FFTBLOCK_MAXSIZE, "the largest size")
                               : numberOf(writer, A_FFTBLOCK_N, "the size");
    shape.minBits = isVariable ? numberOf(writer, A_FFTBLOCK_MINSIZE, "the smallest size") : shape.maxBits;
    shape.isInverse = writer.isTrue(A_FFTBLOCK_INVERSE);
    shape.inputBitReversed = writer.isTrue(A_FFTBLOCK_INPUT_BITREVERSED);
    shape.types = internal::twiddleTypes(writer.block());
    return shape;
}

void writeChain(BlockWriter &writer) {
    Expansion e(writer);
    ChainShape shape = shapeOf(writer, true);
    shape.subchannelBits = numberOr(writer, A_FFTBLOCK_SUBCHANNELBITS, 0, "the number of subchannel bits");
    giveStream(e, stageChain(e, streamOf(e), shape));
}

Transformed drawTransform(Expansion &e, bool isVariable) {
    BlockWriter &writer = e.writer();
    ChainShape shape = shapeOf(writer, isVariable);
    const int subchannels = std::max(numberOr(writer, A_FFTBLOCK_SUBCHANNELS, 1, "the number of subchannels"), 1);
    shape.subchannelBits = internal::bitsToCount(subchannels);
    const Leaf valid = truth(writer, validBesideData(e));
    return isVariable ? variableTransform(e, valid, e.control(A_FFTBLOCK_PORT_SIZE, "the size"), dataOf(writer), shape,
                                          subchannels)
                      : fixedTransform(e, valid, dataOf(writer), shape, subchannels);
}

template <bool isVariable> void writeLightTransform(BlockWriter &writer) {
    Expansion e(writer);
    const Transformed result = drawTransform(e, isVariable);
    e.give(writer.out(A_FFTBLOCK_WIRE_VALID), result.valid);
    e.give(writer.out(isVariable ? A_VFFT_LIGHT_WIRE_G : A_FFT_LIGHT_WIRE_G), result.gate);
    e.give(writer.out(isVariable ? A_VFFT_LIGHT_WIRE_Q : A_FFT_LIGHT_WIRE_Q), result.data);
}

template <bool isVariable> void writeTransform(BlockWriter &writer) {
    Expansion e(writer);
    const Transformed result = drawTransform(e, isVariable);
    e.give(writer.out(A_FFTBLOCK_WIRE_VALID), result.valid);
    e.give(writer.out(), result.data);
    giveHeld(e, A_FFTBLOCK_WIRE_CHANNEL, result.gate, A_FFTBLOCK_PORT_CHANNEL);
    if (isVariable) {
        giveHeld(e, A_FFTBLOCK_WIRE_SIZE, result.gate, A_FFTBLOCK_PORT_SIZE);
    }
}

const BlockRow kRows[] = {
    {&A_BFU_BLOCK, writeButterfly<butterfly>},
    {&A_BFU_SHORT_BLOCK, writeButterfly<shortButterfly>},
    {&A_BFU_LONG_BLOCK, writeButterfly<longButterfly>},
    {&A_TRIVIAL_TWIDDLE_BLOCK, writeQuarterTurn},
    {&A_DELAY_VALID_BLOCK, writeDelayedValid},
    {&A_VECTOR_FANOUT_BLOCK, writeVectorFanout},
    {&A_XSWITCH_BLOCK, writeSwitch},
    {&A_FFT_CHOOSE_BITS_BLOCK, writeChooseBits},
    {&A_STAGE_DROP_BLOCK, writeStageDrop},
    {&A_TWIDDLE_ADD_SUB_BLOCK, writeTwiddleAddSub},
    {&A_TWIDDLE_ANGLE_BLOCK, writeTwiddleAngle<true>},
    {&A_TA0MN_BLOCK, writeAngleWithoutSubchannels},
    {&A_TAL1N_BLOCK, writeTwiddleAngle<false>},
    {&A_TAL2N_BLOCK, writeTwiddleAngle<false>},
    {&A_TALM1_BLOCK, writeTwiddleAngle<true>},
    {&A_TALM2_BLOCK, writeTwiddleAngle<false>},
    {&A_TALMN_BLOCK, writeTwiddleAngle<false>},
    {&A_TWIDDLE_MULT_ANGLE_BLOCK, writeProductAngle},
    {&A_TWIDDLE_ROM_BLOCK, writeTwiddleFactor},
    {&A_TWIDDLE_COUNTER_BLOCK, writeTwiddleCounter},
    {&A_VPD_BLOCK, writeVariableDivider},
    {&A_VPM_BLOCK, writeVariableMultiplier},
    {&A_MEM_ADDR_GEN_BLOCK, writeAccessAddress},
    {&A_TRANSPOSE_ADDR_BLOCK, writeTransposeAddress},
    {&A_TRANSPOSE_BLOCK, writeTranspose},
    {&A_VBR_BLOCK, writeVariableReversal},
    {&A_BITREV_BLOCK, writeBitReversal},
    {&A_BITREVCORE_BLOCK, writeBitReversal},
    {&A_VBITREV_BLOCK, writeVariableBitReversal},
    {&A_VBITREVCORE_BLOCK, writeVariableBitReversal},
    {&A_FFT2_BLOCK, writeStage<radix2Stage>},
    {&A_FFT4_BLOCK, writeStage<radix4Stage>},
    {&A_VFFT2_BLOCK, writeStage<variableRadix2Stage>},
    {&A_VFFT4_BLOCK, writeStage<variableRadix4Stage>},
    {&A_TWIDDLE_BLOCK, writeTwiddle<false>},
    {&A_VTWIDDLE_BLOCK, writeTwiddle<true>},
    {&A_VFFT_PIPE_BLOCK, writeChain},
    {&A_FFT_LIGHT_BLOCK, writeLightTransform<false>},
    {&A_VFFT_LIGHT_BLOCK, writeLightTransform<true>},
    {&A_FFT_BLOCK, writeTransform<false>},
    {&A_VFFT_BLOCK, writeTransform<true>},
    {&A_FFTCORE_BLOCK, writeTransform<false>},
    {&A_VFFTCORE_BLOCK, writeTransform<true>},
};

} // namespace

std::span<const BlockRow> fftRows() { return kRows; }

} // namespace orvo::sim
