// Running a program.
#include <orvo/simulator.h>

#include "sim/blockrows.h"
#include "sim/compilerimpl.h"

#include <orvo/model.h>
#include <orvo/nonsblocks.h>

#include <algorithm>
#include <unordered_map>

namespace orvo::sim {

namespace {

using Rows = std::unordered_map<const Value *, const BlockRow *>;

void addRows(Rows &rows, std::span<const BlockRow> family) {
    for (const BlockRow &row : family) {
        rows.emplace(row.type->get_ptr(), &row);
    }
}

/// The variants for regions without scheduling compute what the plain types do.
void addVariants(Rows &rows) {
    struct VariantLinker final : Linker {
        explicit VariantLinker(Rows &to) : rows(to) {}
        void operator()(const ValueRef &variant, const ValueRef &plain) override {
            if (const auto row = rows.find(plain.get_ptr()); row != rows.end()) {
                rows.emplace(variant.get_ptr(), row->second);
            }
        }
        Rows &rows;
    } linker(rows);
    mapNONSBlocks(linker);
}

} // namespace

const BlockRow *rowOf(const Value *blockType, bool hasFloats) {
    static const Rows table = [] {
        Rows rows;
        for (const auto family : {wiringRows, arithmeticRows, steeringRows, sequentialRows, memoryRows, stallRows,
                                  interfaceRows, pulseRows, accumulatorRows, functionRows, filterRows}) {
            addRows(rows, family());
        }
        addVariants(rows);
        return rows;
    }();
    static const Rows floats = [] {
        Rows rows;
        addRows(rows, floatRows());
        addVariants(rows);
        return rows;
    }();
    if (hasFloats) {
        if (const auto at = floats.find(blockType); at != floats.end()) {
            return at->second;
        }
    }
    const auto at = table.find(blockType);
    return at == table.end() ? nullptr : at->second;
}

bool canSimulate(const Value *blockType) {
    return blockType == A_MODEL_BLOCK.get_ptr() || rowOf(blockType, true) != nullptr;
}

SimulationError::SimulationError(const std::string &reason, std::vector<std::string> blocks)
    : std::runtime_error(reason), mBlocks(std::move(blocks)) {}

struct Simulator::Impl {
    Program program;
    std::vector<Edge> inputEdges;
    std::vector<Edge> outputEdges;
    std::vector<Edge> probeEdges;
    std::vector<Scalar> inputs;
    std::vector<Scalar> outputs;
    std::vector<Scalar> probes;
    std::vector<std::uint64_t> words;
};

Simulator::Simulator(const Design &design, const Model &top, const SimulatorOptions &options)
    : mImpl(std::make_unique<Impl>()) {
    Compiler compiler(design, top, options.probes);
    try {
        compiler.compile();
    } catch (CompileError &error) {
        throw SimulationError(error.reason, std::move(error.blocks));
    }
    mImpl->program = std::move(compiler.program);
    mImpl->inputEdges = std::move(compiler.inputs);
    mImpl->outputEdges = std::move(compiler.outputs);
    mImpl->probeEdges = std::move(compiler.probed);
    const auto describe = [](const std::vector<Edge> &edges, std::vector<Scalar> &scalars) {
        for (const Edge &edge : edges) {
            scalars.push_back({edge.name, edge.type.width, edge.type.isSigned, edge.type.isFloat, edge.type.fraction});
        }
    };
    describe(mImpl->inputEdges, mImpl->inputs);
    describe(mImpl->outputEdges, mImpl->outputs);
    describe(mImpl->probeEdges, mImpl->probes);
    mImpl->words = mImpl->program.initial;
}

Simulator::~Simulator() = default;

const std::vector<Scalar> &Simulator::inputs() const { return mImpl->inputs; }

const std::vector<Scalar> &Simulator::outputs() const { return mImpl->outputs; }

const std::vector<Scalar> &Simulator::probes() const { return mImpl->probes; }

void Simulator::setInput(std::size_t input, const std::vector<std::uint64_t> &words) {
    const Operand &operand = mImpl->inputEdges.at(input).operand;
    const std::uint32_t count = wordsFor(operand.width);
    std::uint64_t *to = mImpl->words.data() + operand.at;
    for (std::uint32_t i = 0; i < count; ++i) {
        to[i] = i < words.size() ? words[i] : 0;
    }
    // The last word is filled up as all values are.
    if (const std::uint32_t used = operand.width - (count - 1) * 64; used < 64) {
        const std::uint32_t places = 64 - used;
        const std::uint64_t high = used == 0 ? 0 : to[count - 1] << places;
        to[count - 1] = used == 0          ? 0
                        : operand.isSigned ? static_cast<std::uint64_t>(static_cast<std::int64_t>(high) >> places)
                                           : high >> places;
    }
}

void Simulator::setInput(std::size_t input, std::int64_t value) {
    const std::uint32_t count = wordsFor(mImpl->inputEdges.at(input).operand.width);
    std::vector<std::uint64_t> words(count, value < 0 ? ~std::uint64_t{0} : 0);
    words[0] = static_cast<std::uint64_t>(value);
    setInput(input, words);
}

void Simulator::step() {
    std::uint64_t *words = mImpl->words.data();
    for (const Op &op : mImpl->program.ops) {
        op.run(words, op);
    }
    for (const Op &op : mImpl->program.commits) {
        op.run(words, op);
    }
}

void Simulator::reset() {
    std::vector<std::uint64_t> kept;
    for (const Edge &edge : mImpl->inputEdges) {
        const std::uint64_t *from = mImpl->words.data() + edge.operand.at;
        kept.insert(kept.end(), from, from + wordsFor(edge.operand.width));
    }
    mImpl->words = mImpl->program.initial;
    auto at = kept.begin();
    for (const Edge &edge : mImpl->inputEdges) {
        const auto count = static_cast<std::ptrdiff_t>(wordsFor(edge.operand.width));
        std::copy(at, at + count, mImpl->words.begin() + edge.operand.at);
        at += count;
    }
}

namespace {

std::vector<std::uint64_t> wordsAt(const std::vector<std::uint64_t> &words, const Operand &operand) {
    const std::uint64_t *from = words.data() + operand.at;
    return {from, from + wordsFor(operand.width)};
}

} // namespace

std::vector<std::uint64_t> Simulator::input(std::size_t input) const {
    return wordsAt(mImpl->words, mImpl->inputEdges.at(input).operand);
}

std::vector<std::uint64_t> Simulator::output(std::size_t output) const {
    return wordsAt(mImpl->words, mImpl->outputEdges.at(output).operand);
}

std::vector<std::uint64_t> Simulator::probe(std::size_t probe) const {
    return wordsAt(mImpl->words, mImpl->probeEdges.at(probe).operand);
}

std::int64_t Simulator::outputInteger(std::size_t output) const {
    return static_cast<std::int64_t>(mImpl->words[mImpl->outputEdges.at(output).operand.at]);
}

std::size_t Simulator::operations() const { return mImpl->program.ops.size(); }

} // namespace orvo::sim
