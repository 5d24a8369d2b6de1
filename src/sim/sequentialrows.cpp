// Blocks that hold state, and tables.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/statekernels.h"

#include <orvo/corevalues.h>
#include <orvo/wire.h>

#include <map>

namespace orvo::sim {

namespace {

/// More entries than these are not kept.
constexpr std::int64_t kMostEntries = std::int64_t{1} << 25;

/// The bits of a constant of a scalar type, by way of a leaf that is read at reset.
std::vector<std::uint64_t> bitsOf(const BlockWriter &writer, const NumberValueRef &number, const ScalarType &type) {
    if (!number || (number->isSpecial() && !type.isFloat)) {
        writer.fail("an initial value is no number of its type");
    }
    return writer.quantised(number, type);
}

/// What a parameter gives for each scalar of a type: as a constant of the type has it.
void appendElements(const SignalType &type, std::size_t dim, const ValueRef &value,
                    std::vector<NumberValueRef> &elements, Context *context) {
    const TupleValueRef tuple = tupleVR(value);
    const auto isRolled = [&](const StaticString &tag) { return tuple && tuple->size() != 0 && tuple->at(0) == tag; };
    if (dim < type.dims.size()) {
        const std::size_t layers = rolledLayers(value);
        const bool isList = layers == 0 && tuple && !isRolled(A_COMPLEX_ROLL_TAG);
        for (std::uint32_t i = 0; i < type.dims[dim]; ++i) {
            const ValueRef own = isList                             ? tuple->maybeAt(i)
                                 : layers >= type.dims.size() - dim ? rolledElement(value, i)
                                                                    : value;
            appendElements(type, dim + 1, own, elements, context);
        }
    } else if (type.isRecord()) {
        for (std::size_t i = 0; i < type.fields.size(); ++i) {
            appendElements(*type.fields[i], 0, tuple ? tuple->maybeAt(i) : value, elements, context);
        }
    } else if (type.isComplex) {
        const bool isPair = isRolled(A_COMPLEX_ROLL_TAG);
        elements.push_back(numberVR(isPair ? tuple->maybeAt(1) : value));
        elements.push_back(isPair ? numberVR(tuple->maybeAt(2)) : NumberValue::get(0, context));
    } else {
        elements.push_back(numberVR(value));
    }
}

/// The value of a parameter as what states of the scalars of a signal hold at reset; zero without one.
void setInitialBits(BlockWriter &writer, const std::vector<std::uint32_t> &states, const ValueRef &value,
                    const SignalType &type) {
    if (!value) {
        return;
    }
    std::vector<NumberValueRef> elements;
    appendElements(type, 0, value, elements, writer.context());
    std::vector<ScalarType> scalars;
    appendScalars(type, scalars);
    for (std::size_t i = 0; i < states.size(); ++i) {
        std::uint32_t at = states[i];
        for (const std::uint64_t word : bitsOf(writer, elements[i], scalars[i])) {
            writer.setInitial(at++, word);
        }
    }
}

/// The cycles that a lane is late by.
std::int64_t delayOf(const BlockWriter &writer, const SignalType &type, std::uint32_t lane) {
    const ValueRef value = settingOfLane(writer.param(A_DELAY_LENGTH), type, lane);
    const NumberValueRef length = numberVR(value);
    if (value && (!length || !length->isInteger() || length->isSpecial() || length->getBitWidths().first > 62)) {
        writer.fail("'" + std::string(A_DELAY_LENGTH.text()) + "' is no integer");
    }
    if (!value || length->toInt64(0) < 0 || length->toInt64(0) > kMostEntries) {
        writer.fail("the length of the delay is no number of cycles");
    }
    return length->toInt64(0);
}

void writeDelay(BlockWriter &writer) {
    const Signal in = writer.in(0);
    const Signal out = writer.out();
    require(writer, in);
    if (!out.known()) {
        return;
    }
    if (in.type != out.type) {
        writer.fail("the input has another type than the output");
    }
    for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
        const Leaf leaf = out.first + i;
        const Leaf source = in.first + i;
        const std::int64_t length = delayOf(writer, *out.type, i / out.type->element);
        const std::uint32_t each = wordsFor(writer.scalar(leaf).width);
        if (length * each > kMostEntries) {
            writer.fail("the delay is longer than can be kept");
        }
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
    require(writer, in);
    if (!out.known()) {
        return;
    }
    if (in.type != out.type) {
        writer.fail("the input has another type than the output");
    }
    std::vector<std::uint32_t> states;
    for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
        const Leaf leaf = out.first + i;
        const std::uint32_t each = wordsFor(writer.scalar(leaf).width);
        const std::uint32_t state = writer.state(each);
        states.push_back(state);
        std::vector<Operand> operands{writer.raw(in.first + i)};
        if (enable.known()) {
            operands.push_back(writer.raw(*leafAt(enable, i / out.type->element)));
        }
        writer.emitFromState(leaf, state, each, {}, readState);
        writer.commit(state, each, operands, writeState);
    }
    setInitialBits(writer, states, writer.param(A_REGISTER_INIT_VALUE), *out.type);
}

/// `pulse` gives whether the count, which goes up by one, is below the step, in place of the count.
template <bool pulse> void writeCounterBlock(BlockWriter &writer) {
    const Signal out = writer.out();
    const Signal enable = writer.in(A_PORT_ENABLE);
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
        const auto setting = [&](const StaticString &key, std::int64_t fallback) {
            const ValueRef value = writer.param(key);
            const NumberValueRef number = numberVR(settingOfLane(value, *out.type, lane));
            if (value && (!number || !number->isInteger() || number->getBitWidths().first > 62)) {
                writer.fail("'" + std::string(key.text()) + "' is no integer");
            }
            return value ? number->toInt64(0) : fallback;
        };
        const std::uint32_t state = writer.state(4);
        writer.setInitial(state, static_cast<std::uint64_t>(setting(A_COUNTER_INITIAL, 0)));
        const std::int64_t limit = setting(A_COUNTER_LIMIT, 0);
        if (limit <= 0) {
            writer.fail("'" + std::string(A_COUNTER_LIMIT.text()) + "' is not positive");
        }
        writer.setInitial(state + 1, static_cast<std::uint64_t>(limit));
        const std::int64_t step = setting(A_COUNTER_STEP, 1);
        writer.setInitial(state + 2, pulse ? 1 : static_cast<std::uint64_t>(step));
        writer.setInitial(state + 3, static_cast<std::uint64_t>(step));
        std::vector<Operand> operands;
        if (enable.known()) {
            operands.push_back(writer.raw(*leafAt(enable, lane)));
        }
        writer.emitFromState(leaf, state, 4, operands, readCounter, pulse ? 1 : 0);
        writer.commit(state, 4, operands, writeCounter, pulse ? 1 : 0);
    });
}

/// Load wins: the initial value; else, while enabled, the state and the step, modulo the limit.
void writeLoadableCounter(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 4);
    for (const Signal &one : in) {
        if (one.type->isComplex) {
            writer.fail("a count of complex numbers has no meaning here");
        }
    }
    const Signal enable = writer.in(A_PORT_ENABLE);
    const Signal out = writer.out();
    if (!out.known()) {
        return;
    }
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
        const ScalarType type = writer.scalar(leaf);
        const std::uint32_t each = wordsFor(type.width);
        const std::uint32_t state = writer.state(each);
        const Leaf held = writer.temporary(type);
        writer.emitFromState(held, state, each, {}, readState);
        const Leaf step = *leafAt(in[2], lane);
        const Leaf limit = *leafAt(in[3], lane);
        const std::int32_t fraction = commonFraction(writer, std::initializer_list<Leaf>{held, step, limit});
        std::uint32_t width = 2;
        for (const Leaf one : {held, step, limit}) {
            const ScalarType scalar = writer.scalar(one);
            width = std::max(width, scalar.width + static_cast<std::uint32_t>(fraction - scalar.fraction) + 2);
        }
        const ScalarType exact{width, fraction, true, false};
        const Leaf sum = writer.temporary(exact);
        emitSum(writer, sum, {held, step}, {false, false});
        const Leaf rest = writer.temporary(exact);
        writer.emit(rest, 0, {writer.raw(sum), writer.aligned(limit, fraction)}, moduloKernel);
        Leaf counted = rest;
        if (enable.known()) {
            counted = writer.temporary(type);
            emitMux(writer, counted, truth(writer, *leafAt(enable, lane)), {held, rest});
        }
        emitMux(writer, leaf, truth(writer, *leafAt(in[0], lane)), {counted, *leafAt(in[1], lane)});
        writer.commit(state, each, {writer.raw(leaf)}, writeState);
    });
}

/// Takes the data on its enable, shows it on both sides in the type of the register, and valid the enable one cycle
/// later.
void writeSyncRegister(BlockWriter &writer) {
    const Signal in = writer.in(A_SYNC_REGISTER_PORT_ICLK_DATA);
    const Signal enable = fixedInput(writer, A_SYNC_REGISTER_PORT_ICLK_ENABLE, "the enable");
    require(writer, in);
    std::vector<Signal> outs;
    for (const StaticString *key : {&A_SYNC_REGISTER_WIRE_ICLK_DATA, &A_SYNC_REGISTER_WIRE_OCLK_DATA}) {
        if (const Signal out = writer.out(*key); out.known()) {
            outs.push_back(out);
        }
    }
    if (!outs.empty()) {
        const SignalType &type = *outs[0].type;
        if (outs.back().type != &type || (in.type != &type && (in.type->isRecord() || type.isRecord()))) {
            writer.fail("the data has another type than the register");
        }
        std::vector<std::uint32_t> states;
        for (std::uint32_t i = 0; i < type.leaves; ++i) {
            const ScalarType scalar = writer.scalar(outs[0].first + i);
            const std::uint32_t lane = type.isRecord() ? 0 : i / type.element;
            const Leaf taken = writer.temporary(scalar);
            writer.convert(taken, type.isRecord() ? in.first + i : partOrZero(writer, in, lane, i % type.element));
            const Stored stored = openStore(writer, scalar);
            closeStore(writer, stored, taken, truth(writer, *leafAt(enable, lane)));
            states.push_back(stored.state);
            for (const Signal &out : outs) {
                writer.alias(out.first + i, stored.out);
            }
        }
        setInitialBits(writer, states, writer.param(A_SYNC_REGISTER_INIT_VALUE), type);
    }
    if (const Signal valid = writer.out(A_SYNC_REGISTER_WIRE_OCLK_VALID); valid.known()) {
        forEachScalar(valid, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            const Stored stored = openStore(writer, {1, 0, false, false});
            closeStore(writer, stored, truth(writer, *leafAt(enable, lane)));
            writer.convert(leaf, stored.out);
        });
    }
}

/// The least integer that is not below a limit: counts stay below both.
Leaf integerLimit(BlockWriter &writer, Leaf limit) {
    const ScalarType type = writer.scalar(limit);
    if (type.width > 60 || type.fraction < -60) {
        writer.fail("a limit is wider than 60 bits");
    }
    if (type.fraction == 0) {
        return limit;
    }
    const auto negated = [&](Leaf in, std::int32_t drop) {
        const Leaf out = writer.temporary({63, 0, true, false});
        Operand operand = writer.raw(in);
        operand.isNegated = true;
        writer.emit(out, drop, {operand}, sumKernel);
        return out;
    };
    // Dropped bits round down, so the negative rounds up.
    return negated(negated(limit, type.fraction), 0);
}

/// Nested counters: limits are sampled at go, which starts all at 0 in that cycle.
void writeLoop(BlockWriter &writer) {
    const Signal go = fixedInput(writer, A_LOOP_PORT_GO, "go");
    const Signal enable = writer.in(A_LOOP_PORT_ENABLE);
    for (const auto &[condition, what] : {std::pair(go, "go"), std::pair(enable, "the enable")}) {
        if (condition.known() && condition.type->leaves != 1) {
            writer.fail(std::string(what) + " is not one condition for all levels");
        }
    }
    Context *context = writer.context();
    std::vector<Operand> operands{writer.raw(truth(writer, go.first))};
    const auto keyed = [context](const StaticString &key, int level) {
        return PureValueRef(PureTupleValue::get(key, NumberValue::get(level, context), context));
    };
    // The limits stand in one vector or each under its level.
    const Signal all = writer.in(A_LOOP_PORT_LIMIT);
    int levels = 0;
    if (all.known()) {
        requireFixed(writer, all, "a limit");
        for (; static_cast<std::uint32_t>(levels) < all.type->leaves; ++levels) {
            operands.push_back(writer.raw(integerLimit(writer, all.first + static_cast<std::uint32_t>(levels))));
        }
    }
    for (Signal limit = writer.in(keyed(A_LOOP_PORT_LIMIT, levels)); limit.known() && !all.known();
         limit = writer.in(keyed(A_LOOP_PORT_LIMIT, ++levels))) {
        requireFixed(writer, limit, "a limit");
        operands.push_back(writer.raw(integerLimit(writer, limit.first)));
    }
    const std::uint32_t words = 1 + 2 * static_cast<std::uint32_t>(levels);
    const std::uint32_t state = writer.state(words);
    const auto show = [&](const Signal &out, int element, int what) {
        if (out.known()) {
            const Leaf shown = writer.temporary({62, 0, false, false});
            writer.emitFromState(shown, state, words, operands, readLoop, what);
            writer.convert(out.first + static_cast<std::uint32_t>(element), shown);
        }
    };
    show(writer.out(A_LOOP_WIRE_VALID), 0, 0);
    const StaticString *wires[] = {&A_LOOP_WIRE_VALUE, &A_LOOP_WIRE_FIRST_ITER, &A_LOOP_WIRE_LAST_ITER};
    for (int level = 0; level < levels; ++level) {
        int what = 1 + 3 * level;
        for (const StaticString *wire : wires) {
            show(writer.out(all.known() ? PureValueRef(*wire) : keyed(*wire, level)), all.known() ? level : 0, what++);
        }
    }
    // What is shown does not depend on the enable.
    operands.push_back(writer.raw(enable.known() ? truth(writer, enable.first) : one(writer)));
    writer.commit(state, words, operands, stepLoop);
}

bool isRolled(const TupleValueRef &tuple, const StaticString &tag) {
    return tuple && tuple->size() != 0 && tuple->at(0) == tag;
}

/// The first table of a vector of tables.
ValueRef firstTable(ValueRef data) {
    while (rolledLayers(data) != 0) {
        data = rolledElement(data, 0);
    }
    return data;
}

/// Layers around the tables and those around their entries, whose dimensions lie inside.
std::size_t layersOfTable(const ValueRef &data) {
    const TupleValueRef entries = tupleVR(firstTable(data));
    const bool isTable = entries && entries->size() != 0 && !isRolled(entries, A_COMPLEX_ROLL_TAG);
    return rolledLayers(data) + (isTable ? rolledLayers(entries->at(0)) : 0);
}

/// What a table gives for one scalar of its output. A vector of tables has one for each element; a table of vectors or
/// complex numbers has them as entries.
std::vector<std::vector<std::uint64_t>> entriesFor(const BlockWriter &writer, const SignalType &type,
                                                   const ValueRef &data, std::uint32_t lane, std::uint32_t part) {
    LaneWalk walk(type, lane, layersOfTable(data));
    const ValueRef own = walk.descend(data);
    const TupleValueRef tuple = tupleVR(own);
    const bool isTable = tuple && !isRolled(tuple, A_COMPLEX_ROLL_TAG);
    std::vector<std::vector<std::uint64_t>> entries;
    for (std::size_t i = 0; i < (isTable ? tuple->size() : 1); ++i) {
        LaneWalk inner = walk;
        const ValueRef entry = inner.descend(isTable ? tuple->at(i) : own);
        const TupleValueRef parts = tupleVR(entry);
        if (part == 1 && !isRolled(parts, A_COMPLEX_ROLL_TAG)) {
            // A real number has no imaginary part.
            entries.emplace_back(wordsFor(type.scalar.width));
        } else {
            const ValueRef number = isRolled(parts, A_COMPLEX_ROLL_TAG) ? parts->maybeAt(1 + part) : entry;
            entries.push_back(bitsOf(writer, numberVR(number), type.scalar));
        }
    }
    return entries;
}

/// The patterns of the listed addresses in the width of the port, each with its place; a repeated one counts once.
std::map<std::uint64_t, std::size_t> listedAddresses(const BlockWriter &writer, std::uint32_t width) {
    const TupleValueRef list = tupleVR(writer.param(A_LUT_ADDRESSES));
    if (!list) {
        writer.fail("the list of addresses is no tuple");
    }
    std::map<std::uint64_t, std::size_t> places;
    for (std::size_t i = 0; i < list->size(); ++i) {
        const NumberValueRef number = numberVR(list->at(i));
        if (!number || number->isSpecial() || !number->isInteger() || number->getBitWidths().first > 62) {
            writer.fail("an address is no integer");
        }
        const auto pattern = static_cast<std::uint64_t>(number->toInt64(0));
        places.emplace(width < 64 ? pattern & ((std::uint64_t{1} << width) - 1) : pattern, i);
    }
    return places;
}

void writeTable(BlockWriter &writer) {
    const Signal address = fixedInput(writer, A_LUT_PORT_ADDR, "the address");
    const Signal enable = writer.in(A_LUT_PORT_HIT_EN);
    const Signal out = writer.out();
    const ValueRef data = writer.param(A_LUT_DATA);
    const bool isListed = !!writer.param(A_LUT_ADDRESSES);
    std::map<std::uint64_t, std::size_t> places;
    if (isListed) {
        places = listedAddresses(writer, address.type->scalar.width);
    }
    if (out.known() && (!data || out.type->isRecord())) {
        writer.fail("a table without data, or of records, has no meaning here");
    }
    std::size_t length = 0;
    if (tupleVR(data)) {
        const TupleValueRef first = tupleVR(firstTable(data));
        length = first ? first->size() : 1;
    }
    if (out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const auto entries = entriesFor(writer, *out.type, data, lane, part);
            const Operand from = writer.raw(*leafAt(address, lane));
            const std::uint32_t each = wordsFor(writer.scalar(leaf).width);
            const auto count = static_cast<std::uint32_t>(isListed ? places.size() : entries.size());
            const std::uint32_t stride = each + (isListed ? 1 : 0);
            const std::uint32_t words = 2 + stride * count;
            const std::uint32_t state = writer.state(words);
            writer.setInitial(state, count);
            writer.setInitial(state + 1, each);
            std::uint32_t to = state + 2;
            const auto put = [&](const std::vector<std::uint64_t> &bits) {
                for (std::uint32_t word = 0; word < each; ++word) {
                    writer.setInitial(to++, bits[word]);
                }
            };
            for (const auto &[pattern, place] : places) {
                writer.setInitial(to++, pattern);
                put(place < entries.size() ? entries[place] : std::vector<std::uint64_t>(each));
            }
            for (std::size_t i = 0; i < entries.size() && !isListed; ++i) {
                put(entries[i]);
            }
            writer.emitFromState(leaf, state, words, {from}, isListed ? readListed : readTable);
        });
    }
    const auto hit = [&](std::uint32_t lane) {
        const Leaf bit = writer.temporary({1, 0, false, false});
        const auto count = static_cast<std::uint32_t>(places.size());
        const std::uint32_t state = writer.state(1 + count);
        writer.setInitial(state, isListed ? count : length);
        std::uint32_t to = state + 1;
        for (const auto &[pattern, place] : places) {
            writer.setInitial(to++, pattern);
        }
        writer.emitFromState(bit, state, 1 + count, {writer.raw(*leafAt(address, lane))}, findListed, isListed ? 1 : 0);
        return bit;
    };
    if (const Signal pure = writer.out(A_LUT_WIRE_PURE_HIT); pure.known()) {
        forEachScalar(pure, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) { writer.convert(leaf, hit(lane)); });
    }
    if (const Signal enabled = writer.out(A_LUT_WIRE_EN_HIT); enabled.known()) {
        forEachScalar(enabled, [&](std::uint32_t lane, std::uint32_t, Leaf leaf) {
            const Leaf allowed = enable.known() ? truth(writer, *leafAt(enable, lane)) : one(writer);
            writer.convert(leaf, emitBit(writer, Logic::And, {hit(lane), allowed}));
        });
    }
}

const BlockRow kRows[] = {
    {&A_DELAY_BLOCK, writeDelay},
    {&A_REGISTER_BLOCK, writeRegister},
    {&A_COUNTER_BLOCK, writeCounterBlock<false>},
    {&A_SEQUENCE_BLOCK, writeCounterBlock<true>},
    {&A_LD_COUNTER_BLOCK, writeLoadableCounter},
    {&A_SYNC_REGISTER_BLOCK, writeSyncRegister},
    {&A_LOOP_BLOCK, writeLoop},
    {&A_LUT_BLOCK, writeTable},
};

} // namespace

std::span<const BlockRow> sequentialRows() { return kRows; }

} // namespace orvo::sim
