// Each operation is written as the row of the block that does it alone writes it.
#include "sim/expansion.h"

#include "sim/floatkernels.h"
#include "sim/memorykernels.h"
#include "sim/statekernels.h"

#include <algorithm>
#include <bit>

namespace orvo::sim {

namespace {

constexpr std::int64_t kMostEntries = std::int64_t{1} << 25;

} // namespace

Leaf Expansion::plain(int width) {
    if (width < 1) {
        mWriter.fail("a part of it has no bits");
    }
    return mWriter.temporary({static_cast<std::uint32_t>(width), 0, false, false});
}

Leaf Expansion::number(std::uint32_t width, std::uint64_t value) {
    const Leaf leaf = plain(static_cast<int>(width));
    mWriter.setConstant(leaf, value);
    return leaf;
}

Leaf Expansion::counter(Leaf enable, std::int64_t initial, std::int64_t limit) {
    const auto width = static_cast<int>(std::bit_width(static_cast<std::uint64_t>(limit - 1)));
    const Leaf count = plain(std::max(width, 1));
    const std::uint32_t state = mWriter.state(4);
    mWriter.setInitial(state, static_cast<std::uint64_t>(initial));
    mWriter.setInitial(state + 1, static_cast<std::uint64_t>(limit));
    mWriter.setInitial(state + 2, 1);
    mWriter.setInitial(state + 3, 1);
    const std::vector<Operand> operands{mWriter.raw(enable)};
    mWriter.emitFromState(count, state, 4, operands, readCounter);
    mWriter.commit(state, 4, operands, writeCounter);
    return count;
}

Leaf Expansion::field(Leaf in, int offset, int width) {
    const Leaf bits = plain(width);
    mWriter.emit(bits, offset, {mWriter.raw(in)}, sumKernel);
    return bits;
}

Leaf Expansion::allOf(const std::vector<Leaf> &bits) {
    const Leaf all = plain(1);
    std::vector<Operand> operands;
    operands.reserve(bits.size());
    for (const Leaf bit : bits) {
        operands.push_back(mWriter.raw(bit));
    }
    mWriter.emit(all, 0, operands, [](const Op &op) { return logicKernel(op, Logic::And); });
    return all;
}

Leaf Expansion::differ(Leaf a, Leaf b) {
    const Leaf differs = plain(1);
    mWriter.emit(differs, 0, {mWriter.raw(a), mWriter.raw(b)},
                 [](const Op &op) { return logicKernel(op, Logic::Xor); });
    return differs;
}

Leaf Expansion::opposite(Leaf bit) {
    const Leaf other = plain(1);
    mWriter.emit(
        other, 0, {mWriter.raw(bit)}, [](const Op &op) { return logicKernel(op, Logic::Or); }, 1);
    return other;
}

Leaf Expansion::isZero(Leaf in) {
    const Leaf bit = plain(1);
    emitCompare(mWriter, bit, in, zero(mWriter), Relation::Equal);
    return bit;
}

Leaf Expansion::isLess(Leaf a, Leaf b) {
    const Leaf bit = plain(1);
    emitCompare(mWriter, bit, a, b, Relation::Less);
    return bit;
}

void Expansion::chooseInto(Leaf out, Leaf select, const std::vector<Leaf> &data) {
    emitMux(mWriter, out, select, data);
}

Leaf Expansion::choose(Leaf select, const std::vector<Leaf> &data) {
    const Leaf chosen = mWriter.temporary(mWriter.scalar(data[0]));
    chooseInto(chosen, select, data);
    return chosen;
}

Leaf Expansion::add(Leaf a, Leaf b, int width) {
    const Leaf sum = plain(width);
    emitSum(mWriter, sum, {a, b}, {false, false});
    return sum;
}

Leaf Expansion::product(Leaf a, Leaf b, int width) {
    const Leaf result = plain(width);
    mWriter.emit(result, 0, {mWriter.raw(a), mWriter.raw(b)}, productKernel);
    return result;
}

Leaf Expansion::negated(Leaf in) {
    const Leaf result = mWriter.temporary(mWriter.scalar(in));
    emitSum(mWriter, result, {in}, {true});
    return result;
}

Leaf Expansion::joined(const std::vector<Leaf> &parts) {
    std::vector<Operand> operands;
    int width = 0;
    for (const Leaf leaf : parts) {
        operands.push_back(mWriter.raw(leaf));
        width += static_cast<int>(operands.back().width);
    }
    const Leaf all = plain(width);
    mWriter.emit(all, 0, operands, joinKernel);
    return all;
}

Leaf Expansion::gathered(Leaf in, const std::vector<int> &bits) {
    std::vector<Leaf> parts;
    for (const int bit : bits) {
        if (bit < 0 || static_cast<std::uint32_t>(bit) >= mWriter.scalar(in).width) {
            mWriter.fail("a chosen bit is outside the input");
        }
        parts.push_back(field(in, bit, 1));
    }
    return joined(parts);
}

Leaf Expansion::parity(Leaf in, const std::vector<int> &bits) {
    const Leaf bit = plain(1);
    mWriter.emit(bit, 0, {mWriter.raw(gathered(in, bits))}, [](const Op &op) { return reduceKernel(op, Logic::Xor); });
    return bit;
}

Leaf Expansion::reversed(Leaf in) {
    const Leaf turned = mWriter.temporary(mWriter.scalar(in));
    mWriter.emit(turned, 0, {mWriter.raw(in)}, reverseKernel);
    return turned;
}

Leaf Expansion::shiftedRight(Leaf in, Leaf places) {
    const Leaf shifted = mWriter.temporary(mWriter.scalar(in));
    mWriter.emit(shifted, 0, {mWriter.raw(in), mWriter.raw(places)}, barrelKernel);
    return shifted;
}

Leaf Expansion::sized(Leaf in, int width) {
    const Leaf cut = plain(width);
    mWriter.convert(cut, in);
    return cut;
}

Leaf Expansion::table(Leaf address, const std::vector<std::uint64_t> &entries, int width) {
    const Leaf entry = plain(width);
    const auto words = static_cast<std::uint32_t>(2 + entries.size());
    const std::uint32_t state = mWriter.state(words);
    mWriter.setInitial(state, entries.size());
    mWriter.setInitial(state + 1, 1);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        mWriter.setInitial(state + 2 + static_cast<std::uint32_t>(i), entries[i]);
    }
    mWriter.emitFromState(entry, state, words, {mWriter.raw(address)}, readTable);
    return entry;
}

DelayLine Expansion::openDelay(const ScalarType &type, std::int64_t length) {
    if (length < 1 || length > kMostEntries) {
        mWriter.fail("the length of a delay in it is no number of cycles");
    }
    DelayLine line;
    line.length = length;
    line.out = mWriter.temporary(type);
    const std::uint32_t each = wordsFor(type.width);
    line.words = length == 1 ? each : 2 + each * static_cast<std::uint32_t>(length);
    line.state = mWriter.state(line.words);
    if (length > 1) {
        mWriter.setInitial(line.state + 1, static_cast<std::uint64_t>(length));
    }
    mWriter.emitFromState(line.out, line.state, line.words, {}, length == 1 ? readState : readRing);
    return line;
}

void Expansion::closeDelay(const DelayLine &line, Leaf in) {
    mWriter.commit(line.state, line.words, {mWriter.raw(in)}, line.length == 1 ? writeState : writeRing);
}

Leaf Expansion::delayed(Leaf in, std::int64_t length) {
    if (length == 0) {
        return in;
    }
    const DelayLine line = openDelay(mWriter.scalar(in), length);
    closeDelay(line, in);
    return line.out;
}

Signal Expansion::delayed(const Signal &in, std::int64_t length) {
    if (length == 0) {
        return in;
    }
    const Signal out = fresh(in.type->spec);
    for (std::uint32_t i = 0; i < in.type->leaves; ++i) {
        mWriter.alias(out.first + i, delayed(in.first + i, length));
    }
    return out;
}

Leaf Expansion::latched(Leaf enable, Leaf data) {
    const DelayLine held = openDelay(mWriter.scalar(data), 1);
    const Leaf out = choose(enable, {held.out, data});
    closeDelay(held, out);
    return out;
}

Signal Expansion::latched(Leaf enable, const Signal &data) {
    const Signal out = fresh(data.type->spec);
    for (std::uint32_t i = 0; i < data.type->leaves; ++i) {
        mWriter.alias(out.first + i, latched(enable, data.first + i));
    }
    return out;
}

Signal Expansion::fresh(const NumTypeSpec &type) {
    const SignalType *known = mWriter.types().of(PureValueRef(type.toValue(mWriter.context())));
    return temporarySignal(mWriter, known, "a signal in it");
}

Leaf Expansion::control(const PureValueRef &port, const char *what) {
    const Signal signal = mWriter.in(port);
    requireFixed(mWriter, signal, what);
    if (signal.type->leaves != 1) {
        mWriter.fail(std::string(what) + " is no single number");
    }
    if (!signal.type->scalar.isSigned) {
        return signal.first;
    }
    // Controls are read as bit patterns.
    return joined({signal.first});
}

void Expansion::floatInto(Leaf out, int function, const std::vector<Leaf> &in) {
    FloatMode mode;
    mode.keepsSubnormals = mWriter.isTrue(A_FLOAT_SUBNORMALS);
    std::vector<Operand> operands;
    for (const Leaf leaf : in) {
        const ScalarType type = mWriter.scalar(leaf);
        if (!(type == mWriter.scalar(out)) || type.exponent == 0) {
            mWriter.fail("floats of two formats, or of one without a meaning here, meet in it");
        }
        operands.push_back(mWriter.raw(leaf));
        operands.back().shift = static_cast<std::int32_t>(type.exponent);
    }
    mWriter.emit(
        out, static_cast<std::int32_t>(mWriter.scalar(out).exponent), operands,
        [](const Op &) { return floatKernel(); }, floatAux(static_cast<FloatFunction>(function), mode));
}

void Expansion::addInto(Leaf out, Leaf a, Leaf b) {
    if (mWriter.scalar(out).isFloat) {
        floatInto(out, static_cast<int>(FloatFunction::Add), {a, b});
    } else {
        emitSum(mWriter, out, {a, b}, {false, false});
    }
}

void Expansion::subtractInto(Leaf out, Leaf a, Leaf b) {
    if (mWriter.scalar(out).isFloat) {
        floatInto(out, static_cast<int>(FloatFunction::Sub), {a, b});
    } else {
        emitSum(mWriter, out, {a, b}, {false, true});
    }
}

void Expansion::negateInto(Leaf out, Leaf in) {
    if (mWriter.scalar(out).isFloat) {
        floatInto(out, static_cast<int>(FloatFunction::Neg), {in});
    } else {
        emitSum(mWriter, out, {in}, {true});
    }
}

Signal Expansion::choose(Leaf select, const Signal &at0, const Signal &at1, const NumTypeSpec &type) {
    const Signal out = fresh(type);
    const Signal a = converted(at0, type);
    const Signal b = converted(at1, type);
    for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
        chooseInto(out.first + i, select, {a.first + i, b.first + i});
    }
    return out;
}

Signal Expansion::converted(const Signal &in, const NumTypeSpec &type) {
    if (in.type->spec == type) {
        return in;
    }
    if (in.type->isComplex && !type.isComplex()) {
        mWriter.fail("a complex signal meets a real type");
    }
    const Signal out = fresh(type);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t number, Leaf leaf) {
        if (const auto source = leafAt(in, lane, number)) {
            mWriter.convert(leaf, *source);
        }
    });
    return out;
}

Signal Expansion::complexed(const Signal &in) {
    if (in.type->isComplex) {
        return in;
    }
    NumTypeSpec type = in.type->spec;
    type.setComplex(true);
    const Signal out = fresh(type);
    for (std::uint32_t lane = 0; lane < in.type->lanes(); ++lane) {
        mWriter.alias(*leafAt(out, lane), *leafAt(in, lane));
    }
    return out;
}

Signal Expansion::cast(const Signal &in, const NumTypeSpec &type, Rounding rounding, Saturation saturation) {
    if (type.isFloat() || in.type->scalar.isFloat) {
        return converted(in, type);
    }
    const Signal out = fresh(type);
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t number, Leaf leaf) {
        if (const auto source = leafAt(in, lane, number)) {
            const std::int32_t drop = mWriter.scalar(*source).fraction - mWriter.scalar(leaf).fraction;
            mWriter.emit(leaf, drop, {mWriter.raw(*source)},
                         [&](const Op &op) { return castKernel(op, rounding, saturation); });
        }
    });
    return out;
}

Signal Expansion::product(const Signal &a, const Signal &b, const NumTypeSpec &type) {
    const Signal out = fresh(type);
    const auto emitFixed = [&](Leaf leaf, const std::vector<Leaf> &factors, bool subtracts) {
        std::vector<Operand> operands;
        operands.reserve(factors.size());
        for (const Leaf factor : factors) {
            operands.push_back(mWriter.raw(factor));
        }
        if (subtracts) {
            operands[2].isNegated = true;
        }
        const std::int32_t fraction = mWriter.scalar(a.first).fraction + mWriter.scalar(b.first).fraction;
        mWriter.emit(leaf, fraction - mWriter.scalar(leaf).fraction, operands, productSumKernel);
    };
    const auto emitFloat = [&](Leaf leaf, const std::vector<Leaf> &factors, bool subtracts) {
        std::vector<Leaf> products;
        for (std::size_t i = 0; i < factors.size(); i += 2) {
            products.push_back(mWriter.temporary(mWriter.scalar(leaf)));
            floatInto(products.back(), static_cast<int>(FloatFunction::Mul), {factors[i], factors[i + 1]});
        }
        if (products.size() == 1) {
            mWriter.alias(leaf, products[0]);
        } else {
            floatInto(leaf, static_cast<int>(subtracts ? FloatFunction::Sub : FloatFunction::Add), products);
        }
    };
    forEachScalar(out, [&](std::uint32_t lane, std::uint32_t number, Leaf leaf) {
        const Leaf c = part(b, lane, 0);
        const Leaf d = part(b, lane, 1);
        const Leaf re = part(a, lane, 0);
        std::vector<Leaf> factors{re, number == 0 ? c : d};
        if (a.type->isComplex) {
            factors.insert(factors.end(), {part(a, lane, 1), number == 0 ? d : c});
        }
        const bool subtracts = number == 0 && factors.size() > 2;
        if (type.isFloat()) {
            emitFloat(leaf, factors, subtracts);
        } else {
            emitFixed(leaf, factors, subtracts);
        }
    });
    return out;
}

Signal Expansion::memory(const Signal &data, Leaf write, Leaf writeAddress, Leaf readAddress, int addressBits) {
    const Signal out = fresh(data.type->spec);
    for (std::uint32_t i = 0; i < data.type->leaves; ++i) {
        const std::int64_t bits = (std::int64_t{1} << addressBits) * mWriter.scalar(data.first + i).width;
        const auto words = kMemoryHeaderWords + static_cast<std::uint32_t>((bits + 63) / 64);
        const std::uint32_t state = mWriter.state(words);
        mWriter.setInitial(state, static_cast<std::uint64_t>(bits));
        mWriter.emitFromState(out.first + i, state, words, {mWriter.raw(readAddress)}, readMemory);
        mWriter.commit(state, words, {mWriter.raw(write), mWriter.raw(writeAddress), mWriter.raw(data.first + i)},
                       writeMemory);
    }
    return out;
}

Leaf Expansion::realTable(Leaf address, const std::vector<double> &entries, const ScalarType &type) {
    const std::uint32_t each = wordsFor(type.width);
    const auto words = static_cast<std::uint32_t>(2 + each * entries.size());
    const std::uint32_t state = mWriter.state(words);
    mWriter.setInitial(state, entries.size());
    mWriter.setInitial(state + 1, each);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::vector<std::uint64_t> bits =
            BlockWriter::quantised(NumberValue::get(entries[i], mWriter.context()), type);
        for (std::uint32_t word = 0; word < each; ++word) {
            mWriter.setInitial(state + 2 + static_cast<std::uint32_t>(i) * each + word, bits[word]);
        }
    }
    const Leaf entry = mWriter.temporary(type);
    mWriter.emitFromState(entry, state, words, {mWriter.raw(address)}, readTable);
    return entry;
}

Signal Expansion::complexTable(Leaf address, const std::vector<std::pair<double, double>> &entries,
                               const NumTypeSpec &type) {
    const Signal out = fresh(type);
    std::vector<double> parts[2];
    parts[0].reserve(entries.size());
    parts[1].reserve(entries.size());
    for (const auto &[re, im] : entries) {
        parts[0].push_back(re);
        parts[1].push_back(im);
    }
    for (std::uint32_t i = 0; i < 2; ++i) {
        mWriter.alias(out.first + i, realTable(address, parts[i], mWriter.scalar(out.first + i)));
    }
    return out;
}

void Expansion::give(const Signal &out, const Signal &in) {
    if (!out.known()) {
        return;
    }
    if (in.type->isComplex && !out.type->isComplex) {
        mWriter.fail("the output is complex, and its type is real");
    }
    convertSignal(mWriter, out, in);
}

void Expansion::give(const Signal &out, Leaf in) {
    if (out.known()) {
        forEachScalar(out, [&](std::uint32_t, std::uint32_t number, Leaf leaf) {
            if (number == 0) {
                mWriter.convert(leaf, in);
            }
        });
    }
}

} // namespace orvo::sim
