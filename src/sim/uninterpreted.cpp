// Noise that is a function.
#include "sim/uninterpreted.h"

#include "sim/emit.h"
#include "sim/lanes.h"
#include "sim/statekernels.h"

#include <orvo/elementname.h>
#include <orvo/wire.h>
#include <util/random.h>

#include <algorithm>

namespace orvo::sim {

namespace {

/// Fowler, Noll and Vo's hash, form 1a, of 64 bits: the same on every machine, unlike the standard library's.
std::uint64_t hashOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (const char one : text) {
        hash = (hash ^ static_cast<unsigned char>(one)) * 0x100000001b3ULL;
    }
    return util::SplitMix(hash).next();
}

std::uint64_t seedOf(std::string_view function, const char *side, const std::string &name) {
    return hashOf(std::string(function) + '\0' + side + '\0' + name);
}

PureValueRef elementName(const PureValueRef &name, const PureValueRef &index, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 2) {
        return PureTupleValue::get(name, index, context);
    }
    std::vector<PureValueRef> parts;
    for (std::size_t i = 0; i < tuple->size(); ++i) {
        if (i + 1 == tuple->size()) {
            parts.push_back(index);
        }
        parts.push_back(tuple->at(i));
    }
    return PureTupleValue::get(parts, context);
}

/// The words of a value without what fills the last one up.
std::uint64_t patternWord(const std::uint64_t *words, const Operand &operand, std::uint32_t word) {
    const std::uint32_t used = operand.width - std::min(operand.width, word * 64);
    const std::uint64_t value = words[operand.at + word];
    return used >= 64 ? value : value & ((std::uint64_t{1} << used) - 1);
}

} // namespace

namespace {

/// Members of records in records count through.
void appendMemberNames(const SignalType &type, const PureValueRef &name, Context *context, int &member,
                       std::vector<std::string> &names) {
    for (const SignalType *field : type.fields) {
        if (field->isRecord() && field->dims.empty()) {
            appendMemberNames(*field, name, context, member, names);
        } else {
            const PureValueRef index = NumberValue::get(member++, context);
            appendElementNames(*field, 0, elementName(name, index, context), context, names);
        }
    }
}

} // namespace

namespace {

/// One name for an element whichever of its vector and its complex type came apart first: the part stands behind the
/// name.
std::string settledText(const PureValueRef &name, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 3) {
        return name->toString();
    }
    std::vector<PureValueRef> elements(tuple->begin(), tuple->end());
    std::stable_partition(elements.begin() + 1, elements.end(), ElementName::isPartWord);
    return PureTupleValue::get(elements, context)->toString();
}

void appendLaneNames(const SignalType &type, const PureValueRef &name, Context *context,
                     std::vector<std::string> &names) {
    if (type.isRecord()) {
        int member = 0;
        appendMemberNames(type, name, context, member, names);
    } else if (type.isComplex) {
        for (const char *part : {"real", "imag"}) {
            names.push_back(settledText(elementName(name, StringValue::get(part, context), context), context));
        }
    } else {
        names.push_back(settledText(name, context));
    }
}

} // namespace

void appendElementNames(const SignalType &type, std::size_t dim, const PureValueRef &name, Context *context,
                        std::vector<std::string> &names) {
    if (dim >= type.dims.size()) {
        appendLaneNames(type, name, context, names);
        return;
    }
    int lanes = 1;
    for (std::size_t i = dim; i < type.dims.size(); ++i) {
        lanes *= static_cast<int>(type.dims[i]);
    }
    for (int lane = 0; lane < lanes; ++lane) {
        appendLaneNames(type, elementName(name, NumberValue::get(lane, context), context), context, names);
    }
}

void appendNamedLeaves(const BlockWriter &writer, const PureValueRef &name, const Signal &signal,
                       std::vector<NamedLeaf> &leaves) {
    if (!signal.known()) {
        return;
    }
    std::vector<std::string> names;
    appendElementNames(*signal.type, 0, name, writer.context(), names);
    for (std::uint32_t i = 0; i < signal.type->leaves; ++i) {
        leaves.push_back({std::move(names[i]), signal.first + i});
    }
}

void appendTakenLeaves(BlockWriter &writer, const PureValueRef &name, const Port &port,
                       std::vector<NamedLeaf> &leaves) {
    const Signal signal = writer.in(port.getName());
    const SignalType *taken = writer.taken(port);
    const auto isOfOtherMembers = [&] {
        return taken->element != signal.type->element && (taken->isRecord() || signal.type->isRecord());
    };
    if (!signal.known() || taken == nullptr || isOfOtherMembers() ||
        (taken->dims == signal.type->dims && taken->element == signal.type->element)) {
        appendNamedLeaves(writer, name, signal, leaves);
        return;
    }
    std::vector<std::string> names;
    appendElementNames(*taken, 0, name, writer.context(), names);
    forEachScalar({taken, 0}, [&](std::uint32_t lane, std::uint32_t part, Leaf at) {
        leaves.push_back({std::move(names[at]), partOrZero(writer, signal, lane, part)});
    });
}

void emitUninterpreted(BlockWriter &writer, std::string_view function, const std::vector<NamedLeaf> &in,
                       const std::vector<NamedLeaf> &out, bool remembers) {
    if (out.empty()) {
        return;
    }
    const ScalarType word{64, 0, false, false};
    std::vector<NamedLeaf> all = in;
    const std::uint32_t history = remembers ? writer.state(1) : 0;
    if (remembers) {
        all.push_back({"", writer.temporary(word)});
        writer.emitFromState(all.back().leaf, history, 1, {}, readState);
    }
    const auto count = static_cast<std::uint32_t>(all.size());
    const std::uint32_t seeds = writer.state(count);
    std::vector<Operand> operands;
    for (std::uint32_t i = 0; i < count; ++i) {
        writer.setInitial(seeds + i, seedOf(function, "in", all[i].name));
        operands.push_back(writer.raw(all[i].leaf));
    }
    const Leaf digest = writer.temporary(word);
    writer.emitFromState(digest, seeds, count, operands, digestInputs);
    if (remembers) {
        writer.commit(history, 1, {writer.raw(digest)}, writeState);
    }
    for (const NamedLeaf &one : out) {
        const std::uint32_t seed = writer.state(1);
        writer.setInitial(seed, seedOf(function, "out", one.name));
        writer.emitFromState(one.leaf, seed, 1, {writer.raw(digest)}, expandDigest);
    }
}

void writeUninterpreted(BlockWriter &writer, const Uninterpreted &what) {
    std::string function(what.type->text());
    for (const StaticString *param : what.params) {
        const ValueRef value = writer.param(*param);
        function += '\0' + (value ? value->toString() : std::string());
    }
    std::vector<NamedLeaf> in;
    std::vector<NamedLeaf> out;
    for (const Port &port : writer.block().ports()) {
        appendTakenLeaves(writer, port.getName(), port, in);
    }
    for (const Wire &wire : writer.block()) {
        appendNamedLeaves(writer, wire.getName(), writer.out(wire.getName()), out);
    }
    emitUninterpreted(writer, function, in, out, what.remembers);
}

void digestInputs(std::uint64_t *words, const Op &op) {
    std::uint64_t digest = 0;
    for (std::uint32_t i = 0; i < op.count; ++i) {
        std::uint64_t scrambled = words[op.state + i];
        for (std::uint32_t word = 0; word < wordsFor(op.in[i].width); ++word) {
            scrambled = util::SplitMix::at(scrambled, patternWord(words, op.in[i], word));
        }
        // A sum, so that the order of the inputs does not count.
        digest += scrambled;
    }
    words[op.out.at] = digest;
}

void expandDigest(std::uint64_t *words, const Op &op) {
    const std::uint64_t seed = words[op.state] ^ words[op.in[0].at];
    const std::uint32_t count = wordsFor(op.out.width);
    std::uint64_t *to = words + op.out.at;
    for (std::uint32_t word = 0; word < count; ++word) {
        to[word] = util::SplitMix::at(seed, word);
    }
    const std::uint32_t used = op.out.width - (count - 1) * 64;
    if (used == 0) {
        to[0] = 0;
    } else if (used < 64) {
        const std::uint32_t places = 64 - used;
        const std::uint64_t high = to[count - 1] << places;
        to[count - 1] =
            op.out.isSigned ? static_cast<std::uint64_t>(static_cast<std::int64_t>(high) >> places) : high >> places;
    }
}

} // namespace orvo::sim
