// Blocks that hold state, and tables.
#include "sim/blockrows.h"
#include "sim/kernels.h"
#include "sim/lanes.h"
#include "sim/statekernels.h"

#include <orvo/corevalues.h>
#include <orvo/wire.h>

namespace orvo::sim {

namespace {

/// More entries than these are not kept.
constexpr std::int64_t kMostEntries = std::int64_t{1} << 28;

/// The bits of a constant of a scalar type, by way of a leaf that is read at reset.
std::vector<std::uint64_t> bitsOf(const BlockWriter &writer, const NumberValueRef &number, const ScalarType &type) {
    if (!number || number->isSpecial() || type.isFloat) {
        writer.fail("an initial value is no fixed-point number");
    }
    return writer.quantised(number, type);
}

/// What a parameter gives for a scalar: by lane and part where it is rolled, else the same for all.
NumberValueRef elementOf(const ValueRef &value, std::uint32_t scalar) {
    const TupleValueRef tuple = tupleVR(value);
    if (!tuple) {
        return numberVR(value);
    }
    const bool isRolled =
        tuple->size() != 0 && (tuple->at(0) == A_VECTOR_ROLL_TAG || tuple->at(0) == A_COMPLEX_ROLL_TAG);
    return numberVR(tuple->maybeAt(scalar + (isRolled ? 1 : 0)));
}

void writeDelay(BlockWriter &writer) {
    const Signal in = writer.in(0);
    const Signal out = writer.out();
    const std::int64_t length = writer.integer(A_DELAY_LENGTH, -1);
    require(writer, in, "the input");
    if (length < 0 || length > kMostEntries) {
        writer.fail("the length of the delay is no number of cycles");
    }
    if (!out.known()) {
        return;
    }
    if (in.type != out.type) {
        writer.fail("the input has another type than the output");
    }
    for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
        const Leaf leaf = out.first + i;
        const Leaf source = in.first + i;
        const std::uint32_t each = wordsFor(writer.scalar(leaf).width);
        if (length == 0) {
            writer.alias(leaf, source);
        } else if (length == 1) {
            const std::uint32_t state = writer.state(each);
            writer.emitFromState(leaf, state, each, {}, readState);
            writer.commit(state, each, {writer.raw(source)}, writeState);
        } else {
            const std::uint32_t words = 2 + each * static_cast<std::uint32_t>(length);
            const std::uint32_t state = writer.state(words);
            writer.setInitial(state + 1, static_cast<std::uint64_t>(length));
            writer.emitFromState(leaf, state, words, {}, readRing);
            writer.commit(state, words, {writer.raw(source)}, writeRing);
        }
    }
}

void writeRegister(BlockWriter &writer) {
    const Signal in = writer.in(0);
    const Signal out = writer.out();
    const Signal enable = writer.in(A_REGISTER_PORT_ENABLE);
    require(writer, in, "the input");
    if (!out.known()) {
        return;
    }
    if (in.type != out.type) {
        writer.fail("the input has another type than the output");
    }
    const ValueRef initial = writer.param(A_REGISTER_INIT_VALUE);
    for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
        const Leaf leaf = out.first + i;
        const std::uint32_t each = wordsFor(writer.scalar(leaf).width);
        const std::uint32_t state = writer.state(each);
        if (initial) {
            const std::vector<std::uint64_t> bits = bitsOf(writer, elementOf(initial, i), writer.scalar(leaf));
            for (std::uint32_t word = 0; word < each; ++word) {
                writer.setInitial(state + word, bits[word]);
            }
        }
        std::vector<Operand> operands{writer.raw(in.first + i)};
        if (enable.known()) {
            operands.push_back(writer.raw(*leafAt(enable, i / out.type->element)));
        }
        writer.emitFromState(leaf, state, each, {}, readState);
        writer.commit(state, each, operands, writeState);
    }
}

/// `pulse` gives whether the count is below the step in place of the count, which then goes up by one.
template <bool pulse> void writeCounterBlock(BlockWriter &writer) {
    const Signal out = writer.out();
    const Signal enable = writer.in(A_PORT_ENABLE);
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
        const auto setting = [&](const StaticString &key, std::int64_t fallback) {
            const ValueRef value = writer.param(key);
            const NumberValueRef number = value ? elementOf(value, lane) : NumberValueRef();
            if (value && (!number || !number->isInteger() || number->getBitWidths().first > 62)) {
                writer.fail("'" + std::string(key.text()) + "' is no integer");
            }
            return value ? number->toInt64(0) : fallback;
        };
        const std::uint32_t state = writer.state(3);
        writer.setInitial(state, static_cast<std::uint64_t>(setting(A_COUNTER_INITIAL, 0)));
        writer.setInitial(state + 1, static_cast<std::uint64_t>(setting(A_COUNTER_LIMIT, 0)));
        writer.setInitial(state + 2, static_cast<std::uint64_t>(setting(A_COUNTER_STEP, 1)));
        std::vector<Operand> operands;
        if (enable.known()) {
            operands.push_back(writer.raw(*leafAt(enable, lane)));
        }
        writer.emitFromState(leaf, state, 3, operands, readCounter, pulse ? 1 : 0);
        writer.commit(state, 3, operands, writeCounter, pulse ? 1 : 0);
    });
}

void writeTable(BlockWriter &writer) {
    const Signal address = writer.in(A_LUT_PORT_ADDR);
    const Signal out = writer.out();
    requireFixed(writer, address, "the address");
    const TupleValueRef data = tupleVR(writer.param(A_LUT_DATA));
    if (writer.param(A_LUT_ADDRESSES)) {
        writer.fail("a table with an address list has no meaning here");
    }
    if (!out.known()) {
        return;
    }
    if (!data || out.type->isRecord() || out.type->isComplex || !out.type->dims.empty()) {
        writer.fail("a table of anything but real numbers has no meaning here");
    }
    const std::uint32_t each = wordsFor(out.type->scalar.width);
    const auto entries = static_cast<std::uint32_t>(data->size());
    const std::uint32_t words = 2 + each * entries;
    const std::uint32_t state = writer.state(words);
    writer.setInitial(state, entries);
    writer.setInitial(state + 1, each);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::vector<std::uint64_t> bits = bitsOf(writer, numberVR(data->at(i)), out.type->scalar);
        for (std::uint32_t word = 0; word < each; ++word) {
            writer.setInitial(state + 2 + i * each + word, bits[word]);
        }
    }
    writer.emitFromState(out.first, state, words, {writer.raw(address.first)}, readTable);
}

const BlockRow kRows[] = {
    {&A_DELAY_BLOCK, writeDelay},
    {&A_REGISTER_BLOCK, writeRegister},
    {&A_COUNTER_BLOCK, writeCounterBlock<false>},
    {&A_SEQUENCE_BLOCK, writeCounterBlock<true>},
    {&A_LUT_BLOCK, writeTable},
};

} // namespace

std::span<const BlockRow> sequentialRows() { return kRows; }

} // namespace orvo::sim
