// Filters and oscillators, sample by sample. The channels of one wire come in turn, one with each valid sample. Output
// comes in the cycle of the input that completes it; the data of a cycle that is not valid is not known, and zero here.
// What the parameters do not settle is a function of which nothing is told.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/functionkernels.h"
#include "sim/statekernels.h"
#include "sim/uninterpreted.h"
#include "sim/wholesignals.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

constexpr ScalarType kBit{1, 0, false, false};
constexpr std::int64_t kMostSamples = std::int64_t{1} << 40;

/// The controls of a channelled block.
struct Stream {
    Leaf valid;
    /// Channels of one wire.
    std::int64_t channels = 1;
};

Stream streamOf(BlockWriter &writer, std::int64_t channels = 1, std::size_t ways = 1) {
    const Signal valid = writer.in(A_PORT_VALID);
    const auto count = static_cast<std::int64_t>(std::max<std::size_t>(ways, 1));
    return {valid.known() ? truth(writer, fixedInput(writer, A_PORT_VALID, "valid").first) : one(writer),
            (std::max<std::int64_t>(channels, 1) + count - 1) / count};
}

/// A parameter that counts something, or what stands for its absence; nothing for what is no count.
std::optional<std::int64_t> countOf(const BlockWriter &writer, const StaticString &key, std::int64_t least = 1) {
    const std::int64_t count = writer.param(key) ? writer.integer(key, -1) : 1;
    return count >= least && count <= kMostSamples ? std::optional(count) : std::nullopt;
}

/// The number of a valid sample, from 0 on, modulo a limit; or whether that is below a length.
Leaf sampleNumber(BlockWriter &writer, Leaf valid, std::int64_t limit, std::optional<std::int64_t> below) {
    const std::uint32_t state = writer.state(4);
    writer.setInitial(state, ~std::uint64_t{0});
    writer.setInitial(state + 1, static_cast<std::uint64_t>(limit));
    writer.setInitial(state + 2, 1);
    writer.setInitial(state + 3, static_cast<std::uint64_t>(below.value_or(0)));
    const Leaf out = writer.temporary(below ? kBit : ScalarType{63, 0, false, false});
    writer.emitFromState(out, state, 4, {writer.raw(valid)}, readCounter, below ? 1 : 0);
    writer.commit(state, 4, {writer.raw(valid)}, writeCounter);
    return out;
}

/// True with the first of so many valid samples of each channel.
Leaf keptSamples(BlockWriter &writer, const Stream &stream, std::int64_t factor) {
    if (factor == 1) {
        return stream.valid;
    }
    const Leaf isFirst = sampleNumber(writer, stream.valid, factor * stream.channels, stream.channels);
    return emitBit(writer, Logic::And, {stream.valid, isFirst});
}

void giveMarkers(BlockWriter &writer, const Stream &stream, Leaf valid) {
    if (const Signal out = writer.out(A_WIRE_VALID); out.known()) {
        writer.convert(out.first, valid);
    }
    if (const Signal out = writer.out(A_WIRE_CHANNEL); out.known()) {
        if (const Signal channel = writer.in(A_PORT_CHANNEL); channel.known()) {
            convertSignal(writer, out, channel);
        } else if (stream.channels > 1) {
            writer.convert(out.first, sampleNumber(writer, stream.valid, stream.channels, std::nullopt));
        }
    }
}

/// The value in a cycle whose output counts.
void giveWhile(BlockWriter &writer, Leaf out, Leaf valid, Leaf value) {
    emitMux(writer, out, valid, {zero(writer), value});
}

bool isBusUsed(const BlockWriter &writer) {
    return writer.isTrue(A_BUS_EXPOSE) || writer.in(A_SARNET_MM_WRITE).known() || writer.in(A_SARNET_MM_READ).known();
}

PureValueRef numbered(const BlockWriter &writer, std::size_t number) {
    return NumberValue::get(static_cast<int>(number), writer.context());
}

/// Whether each numbered wire belongs to the input of its number, lane by lane.
bool areWiresLikePorts(const BlockWriter &writer, const std::vector<Signal> &in) {
    for (const int number : outputNumbers(writer)) {
        const auto at = static_cast<std::size_t>(number);
        if (number < 0 || at >= in.size() ||
            wholeOutputType(writer, numbered(writer, at), in[at].type->lanes())->leaves != in[at].type->leaves) {
            return false;
        }
    }
    return true;
}

// --- Finite impulse response -----------------------------------------------------------------------------------------

std::size_t firstElement(const TupleValueRef &tuple) {
    return tuple->size() != 0 && tuple->at(0) == A_VECTOR_ROLL_TAG ? 1 : 0;
}

/// The coefficients of each bank; none where they are no real numbers.
std::vector<std::vector<ValueRef>> tapsOf(const ValueRef &coefficients) {
    const TupleValueRef all = tupleVR(coefficients);
    if (!all || all->size() == firstElement(all)) {
        return {};
    }
    std::vector<TupleValueRef> banks;
    if (tupleVR(all->at(firstElement(all)))) {
        for (std::size_t i = firstElement(all); i < all->size(); ++i) {
            banks.push_back(tupleVR(all->at(i)));
        }
    } else {
        banks.push_back(all);
    }
    std::vector<std::vector<ValueRef>> taps;
    for (const TupleValueRef &bank : banks) {
        if (!bank) {
            return {};
        }
        taps.emplace_back();
        for (std::size_t i = firstElement(bank); i < bank->size(); ++i) {
            const NumberValueRef number = numberVR(bank->at(i));
            if (!number || number->isSpecial()) {
                return {};
            }
            taps.back().push_back(bank->at(i));
        }
    }
    return taps;
}

/// A constant for each coefficient, by tap and bank.
std::vector<std::vector<Leaf>> coefficientLeaves(BlockWriter &writer, const std::vector<std::vector<ValueRef>> &banks) {
    NumTypeSpec spec(PureValueRef(writer.param(A_FIR_COEFS_TYPE)), writer.context());
    if (!spec.valid()) {
        spec = NumTypeSpec::fromFixedValue(writer.param(A_FIR_COEFS), false);
    }
    spec.stripVectors();
    const SignalType *type = writer.types().of(PureValueRef(spec.toValue(writer.context())));
    if (type == nullptr || type->scalar.isFloat || type->isComplex) {
        writer.fail("the coefficients have no fixed-point type");
    }
    std::size_t length = 0;
    for (const auto &bank : banks) {
        length = std::max(length, bank.size());
    }
    std::vector<std::vector<Leaf>> leaves(length);
    for (std::size_t tap = 0; tap < length; ++tap) {
        for (const auto &bank : banks) {
            leaves[tap].push_back(writer.temporary(type->scalar));
            if (tap < bank.size()) {
                writer.constant({type, leaves[tap].back()}, bank[tap]);
            }
        }
    }
    return leaves;
}

/// By lane and tap. One bank serves all lanes, or each has one of its own.
std::vector<std::vector<Leaf>> chosenCoefficients(BlockWriter &writer, const std::vector<std::vector<ValueRef>> &banks,
                                                  const Signal &bank, std::uint32_t lanes) {
    std::vector<std::vector<Leaf>> coefficients(lanes);
    for (const std::vector<Leaf> &ofBanks : coefficientLeaves(writer, banks)) {
        for (std::uint32_t lane = 0; lane < lanes; ++lane) {
            const ScalarType type = writer.scalar(ofBanks[0]);
            coefficients[lane].push_back(bank.known() ? chosen(writer, type, bank.first + lane, ofBanks) : ofBanks[0]);
        }
    }
    return coefficients;
}

/// The sum of the coefficients times the samples of the same channel, the present one first.
void writeFir(BlockWriter &writer) {
    static const Uninterpreted kUntold{&A_FIR_BLOCK,
                                       {&A_FIR_INPUT_RATE, &A_FIR_CHANNEL_COUNT, &A_FIR_INTERP_FACTOR,
                                        &A_FIR_DECIM_FACTOR, &A_FIR_COEFS, &A_FIR_COEFS_TYPE, &A_FIR_RECON, &A_FIR_MM},
                                       true};
    const std::vector<Signal> in = wholeFixedInputs(writer, 1);
    const auto banks = tapsOf(writer.param(A_FIR_COEFS));
    const auto decimation = countOf(writer, A_FIR_DECIM_FACTOR);
    const auto channels = countOf(writer, A_FIR_CHANNEL_COUNT);
    if (banks.empty() || countOf(writer, A_FIR_INTERP_FACTOR) != 1 || !decimation || !channels ||
        writer.isTrue(A_FIR_RECON) || writer.isTrue(A_FIR_MM) || isBusUsed(writer) || !areWiresLikePorts(writer, in)) {
        writeUninterpreted(writer, kUntold);
        return;
    }
    const Signal bank = wholeInput(writer, A_FIR_PORT_BANK);
    const std::uint32_t bankLanes = bank.known() ? bank.type->leaves : 1;
    if (bankLanes > 1 && std::any_of(in.begin(), in.end(), [bankLanes](const Signal &samples) {
            return samples.type->lanes() != bankLanes;
        })) {
        writeUninterpreted(writer, kUntold);
        return;
    }
    const Stream stream = streamOf(writer, *channels, in.size());
    const Leaf valid = keptSamples(writer, stream, *decimation);
    giveMarkers(writer, stream, valid);
    const std::vector<std::vector<Leaf>> ofLanes = chosenCoefficients(writer, banks, bank, bankLanes);
    for (std::size_t port = 0; port < in.size(); ++port) {
        const Signal out = wholeOutput(writer, numbered(writer, port), in[port].type->lanes());
        for (std::uint32_t i = 0; out.known() && i < out.type->leaves; ++i) {
            const std::vector<Leaf> &coefficients = ofLanes[bankLanes == 1 ? 0 : i / in[port].type->element];
            Leaf sample = in[port].first + i;
            const ScalarType type = writer.scalar(sample);
            std::vector<Operand> products;
            for (const Leaf coefficient : coefficients) {
                if (!products.empty()) {
                    const Stored earlier = openStore(writer, type, stream.channels);
                    closeStore(writer, earlier, sample, stream.valid);
                    sample = earlier.out;
                }
                products.push_back(writer.raw(sample));
                products.push_back(writer.raw(coefficient));
            }
            const ScalarType result = writer.scalar(out.first + i);
            const Leaf sum = writer.temporary(result);
            writer.emit(sum, type.fraction + writer.scalar(coefficients[0]).fraction - result.fraction, products,
                        productSumKernel);
            giveWhile(writer, out.first + i, valid, sum);
        }
    }
}

// --- Cascaded integrators and combs ----------------------------------------------------------------------------------

/// The sum or difference of two, modulo the range of a type.
Leaf wrappedSum(BlockWriter &writer, const ScalarType &type, Leaf a, Leaf b, bool subtracts) {
    const Leaf sum = writer.temporary(type);
    emitSum(writer, sum, {a, b}, {false, subtracts});
    return sum;
}

struct CicShape {
    std::int64_t rate;
    std::int64_t stages;
    std::int64_t delay;
};

/// Hogenauer, "An economical class of digital filters for decimation and interpolation" (1981): integrators before the
/// rate goes down and combs behind, all modulo the output's range.
Leaf decimated(BlockWriter &writer, const ScalarType &type, Leaf sample, const Stream &stream, Leaf kept,
               const CicShape &shape) {
    Leaf value = sample;
    for (std::int64_t stage = 0; stage < shape.stages; ++stage) {
        const Stored sum = openStore(writer, type, stream.channels);
        value = wrappedSum(writer, type, sum.out, value, false);
        closeStore(writer, sum, value, stream.valid);
    }
    for (std::int64_t stage = 0; stage < shape.stages; ++stage) {
        const Leaf now = converted(writer, type, value);
        const Stored earlier = openStore(writer, type, stream.channels * shape.delay);
        value = wrappedSum(writer, type, now, earlier.out, true);
        closeStore(writer, earlier, now, kept);
    }
    return value;
}

void writeCic(BlockWriter &writer) {
    static const Uninterpreted kUntold{&A_CIC_BLOCK,
                                       {&A_CIC_INPUT_RATE, &A_CIC_RATE_FACTOR, &A_CIC_STAGE_COUNT, &A_CIC_CHANNEL_COUNT,
                                        &A_CIC_DELAY_COUNT, &A_CIC_FINAL_DECIM, &A_CIC_SCALE_TYPE},
                                       true};
    const std::vector<Signal> in = wholeFixedInputs(writer, 1);
    const auto rate = countOf(writer, A_CIC_RATE_FACTOR);
    const auto stages = countOf(writer, A_CIC_STAGE_COUNT, 0);
    const auto delay = countOf(writer, A_CIC_DELAY_COUNT);
    const auto last = countOf(writer, A_CIC_FINAL_DECIM);
    const auto channels = countOf(writer, A_CIC_CHANNEL_COUNT);
    std::uint32_t leaves = 0;
    std::uint32_t lanes = 0;
    for (const Signal &signal : in) {
        leaves += signal.type->leaves;
        lanes += signal.type->lanes();
    }
    const SignalType *joinedType = wholeOutputType(writer, A_CIC_WIRE_DATA, lanes);
    if (!(writer.param(A_CIC_SCALE_TYPE) == A_CIC_SCALE_DECIM) || !rate || !stages || !delay || !last || !channels ||
        !areWiresLikePorts(writer, in) || (joinedType != nullptr && joinedType->leaves != leaves)) {
        writeUninterpreted(writer, kUntold);
        return;
    }
    const Signal joined = wholeOutput(writer, A_CIC_WIRE_DATA, lanes);
    const Stream stream = streamOf(writer, *channels, in.size());
    const CicShape shape{*rate, *stages, *delay};
    const Leaf kept = keptSamples(writer, stream, shape.rate);
    const Leaf valid = keptSamples(writer, {kept, stream.channels}, *last);
    giveMarkers(writer, stream, valid);
    std::uint32_t at = 0;
    for (std::size_t port = 0; port < in.size(); ++port) {
        const Signal out = wholeOutput(writer, numbered(writer, port), in[port].type->lanes());
        for (std::uint32_t i = 0; i < in[port].type->leaves; ++i, ++at) {
            std::vector<Leaf> outs;
            if (out.known()) {
                outs.push_back(out.first + i);
            }
            if (joined.known()) {
                outs.push_back(joined.first + at);
            }
            if (!outs.empty()) {
                const ScalarType type = writer.scalar(outs[0]);
                const Leaf value = decimated(writer, type, in[port].first + i, stream, kept, shape);
                for (const Leaf leaf : outs) {
                    giveWhile(writer, leaf, valid, value);
                }
            }
        }
    }
}

// --- Oscillators -----------------------------------------------------------------------------------------------------

/// The phase of this sample. The increment is added for the next one while the control is true.
Leaf phaseOf(BlockWriter &writer, const ScalarType &type, Leaf increment, Leaf advances) {
    const Stored phase = openStore(writer, type);
    closeStore(writer, phase, wrappedSum(writer, type, phase.out, increment, false), advances);
    return phase.out;
}

/// Sine and cosine of a phase that goes round once in its range; the first phase is zero. The phases of channels that
/// come in turn wait for their channel.
void writeNco(BlockWriter &writer) {
    static const Uninterpreted kUntold{
        &A_NCO_BLOCK, {&A_NCO_ACCUM_BIT_COUNT, &A_NCO_OUTPUT_RATE, &A_NCO_OUTPUT_TYPE}, true};
    const std::vector<Signal> in = writer.numbered();
    const std::int64_t bits = writer.integer(A_NCO_ACCUM_BIT_COUNT, 0);
    const Signal channel = writer.in(A_PORT_CHANNEL);
    const std::pair<const StaticString *, FixedFunction> outs[] = {{&A_NCO_WIRE_SIN, FixedFunction::SinPi},
                                                                   {&A_NCO_WIRE_COS, FixedFunction::CosPi}};
    const auto ways = static_cast<std::uint32_t>(in.size());
    std::size_t lanes = 0;
    bool isTold = bits > 0 && bits <= NumTypeSpec::kMaxWidth && !in.empty() && !isBusUsed(writer);
    for (const auto &[wire, function] : outs) {
        if (const SignalType *type = wholeOutputType(writer, *wire, ways)) {
            lanes = type->lanes();
            isTold = isTold && !type->scalar.isFloat && !type->isComplex;
        }
    }
    const bool takesTurns = lanes == 1 && channel.known();
    if (!isTold || (!takesTurns && lanes != 0 && lanes != in.size())) {
        writeUninterpreted(writer, kUntold);
        return;
    }
    const Stream stream = streamOf(writer);
    giveMarkers(writer, stream, stream.valid);
    if (const Signal bank = writer.out(A_NCO_WIRE_BANK); bank.known() && writer.in(A_NCO_PORT_BANK).known()) {
        convertSignal(writer, bank, writer.in(A_NCO_PORT_BANK));
    }
    const ScalarType type{static_cast<std::uint32_t>(bits), 0, false, false};
    std::vector<Leaf> phases;
    for (std::size_t i = 0; i < in.size(); ++i) {
        requireFixed(writer, in[i], "a phase");
        Leaf advances = stream.valid;
        if (takesTurns) {
            const Leaf own = writer.temporary({32, 0, false, false});
            const Leaf isOwn = writer.temporary(kBit);
            writer.setConstant(own, i);
            emitCompare(writer, isOwn, channel.first, own, Relation::Equal);
            advances = emitBit(writer, Logic::And, {advances, isOwn});
        }
        phases.push_back(phaseOf(writer, type, in[i].first, advances));
    }
    if (takesTurns) {
        phases = {chosen(writer, type, channel.first, phases)};
    }
    for (const auto &[wire, function] : outs) {
        const Signal out = wholeOutput(writer, *wire, ways);
        if (!out.known()) {
            continue;
        }
        forEachScalar(out, [&, function = function](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            Operand phase = writer.raw(phases[lane]);
            // Half its range is pi.
            phase.shift = static_cast<std::int32_t>(bits) - 1;
            const Leaf value = writer.temporary(writer.scalar(leaf));
            writer.emit(value, writer.scalar(leaf).fraction, {phase},
                        [function](const Op &) { return fixedFunctionKernel(function); });
            giveWhile(writer, leaf, stream.valid, value);
        });
    }
}

/// Output k is the samples at port 0 times the oscillator at port k + 1.
void writeMixer(BlockWriter &writer) {
    static const Uninterpreted kUntold{&A_MIXER_BLOCK,
                                       {&A_MIXER_INPUT_RATE, &A_MIXER_CHANNEL_COUNT, &A_MIXER_FREQ_COUNT}};
    const std::vector<Signal> in = wholeFixedInputs(writer, 2);
    const std::vector<int> numbers = outputNumbers(writer);
    for (const int number : numbers) {
        if (number < 0 || static_cast<std::size_t>(number) + 1 >= in.size()) {
            writeUninterpreted(writer, kUntold);
            return;
        }
    }
    const Stream stream = streamOf(writer);
    giveMarkers(writer, stream, stream.valid);
    for (const int number : numbers) {
        const std::size_t port = static_cast<std::size_t>(number) + 1;
        const Signal out = wholeOutput(writer, numbered(writer, port - 1));
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            emitProductPart(writer, leaf, factorAt(in[0], lane), factorAt(in[port], lane), part);
        });
    }
}

// --- Scaling ---------------------------------------------------------------------------------------------------------

struct Scaled {
    Leaf value;
    Leaf overflows;
};

/// Times two to the shift, to the nearest of the type, ties to even, or to an end of its range.
Scaled scaledTo(BlockWriter &writer, const ScalarType &type, Leaf in, std::optional<Leaf> shift) {
    const ScalarType from = writer.scalar(in);
    const auto width = static_cast<std::int32_t>(from.width);
    // Farther shifts give what these do: an end or zero on the left, zero on the right.
    const std::int32_t most = std::max(from.fraction + static_cast<std::int32_t>(type.width) - type.fraction, 0) + 1;
    const std::int32_t least = std::max(width - from.fraction + type.fraction, 0) + 2;
    Leaf exact = in;
    std::int32_t fraction = from.fraction;
    if (shift) {
        const ScalarType count{64, 0, true, false};
        const auto constant = [&](std::int64_t number) {
            const Leaf leaf = writer.temporary(count);
            writer.setConstant(leaf, static_cast<std::uint64_t>(number));
            return leaf;
        };
        const Leaf floor = writer.temporary(count);
        const Leaf bounded = writer.temporary(count);
        emitAligned(writer, floor, {*shift, constant(-least)}, extremeKernel, 1);
        emitAligned(writer, bounded, {floor, constant(most)}, extremeKernel, 0);
        const Leaf places = writer.temporary({32, 0, false, false});
        emitSum(writer, places, {bounded, constant(least)}, {false, false});
        fraction += least;
        exact =
            writer.temporary({static_cast<std::uint32_t>(width + most + least) + 1, fraction, from.isSigned, false});
        writer.emit(exact, 0, {writer.raw(in), writer.raw(places)}, barrelKernel, 1);
    }
    const Scaled result{writer.temporary(type), writer.temporary(kBit)};
    const std::int32_t drop = fraction - type.fraction;
    writer.emit(result.value, drop, {writer.raw(exact)},
                [](const Op &op) { return castKernel(op, Rounding::HalfEven, Saturation::Asymmetric); });
    writer.emit(
        result.overflows, drop, {writer.raw(exact)},
        [](const Op &op) { return clipKernel(op, Rounding::HalfEven, Saturation::Asymmetric); },
        static_cast<int>(type.width) | (type.isSigned ? 1 << 24 : 0));
    return result;
}

void writeScale(BlockWriter &writer) {
    static const Uninterpreted kUntold{&A_SCALE_BLOCK, {&A_SCALE_OUTPUT_TYPE}};
    const std::vector<Signal> in = wholeFixedInputs(writer, 1);
    const PureValueRef outs[] = {A_SCALE_WIRE_DATA, numbered(writer, 0)};
    bool isTold = in.size() < 2 || (in[1].type->scalar.fraction == 0 && in[1].type->scalar.width < 64);
    for (const int number : outputNumbers(writer)) {
        isTold = isTold && number == 0;
    }
    for (const PureValueRef &name : outs) {
        const SignalType *type = wholeOutputType(writer, name);
        isTold = isTold && (type == nullptr || !type->scalar.isFloat);
    }
    if (!isTold) {
        writeUninterpreted(writer, kUntold);
        return;
    }
    const Stream stream = streamOf(writer);
    giveMarkers(writer, stream, stream.valid);
    std::vector<Leaf> overflows;
    for (const PureValueRef &name : outs) {
        const Signal out = wholeOutput(writer, name, in[0].type->lanes());
        if (!out.known()) {
            continue;
        }
        overflows.clear();
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const auto shift = in.size() > 1 ? std::optional(*leafAt(in[1], lane)) : std::nullopt;
            const Scaled scaled =
                scaledTo(writer, ScalarType(writer.scalar(leaf)), partOrZero(writer, in[0], lane, part), shift);
            overflows.push_back(scaled.overflows);
            writer.convert(leaf, scaled.value);
        });
    }
    const Signal flag = writer.out(A_PRIM_WIRE_AUX);
    if (flag.known() && overflows.empty()) {
        writer.fail("the overflow of data that nobody reads has no meaning here");
    }
    if (flag.known()) {
        writer.convert(flag.first, emitBit(writer, Logic::Or, overflows));
    }
}

const BlockRow kRows[] = {
    {&A_FIR_BLOCK, writeFir},     {&A_CIC_BLOCK, writeCic},     {&A_NCO_BLOCK, writeNco},
    {&A_MIXER_BLOCK, writeMixer}, {&A_SCALE_BLOCK, writeScale},
};

} // namespace

std::span<const BlockRow> filterRows() { return kRows; }

} // namespace orvo::sim
