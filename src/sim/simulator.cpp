// Running a program.
#include <orvo/simulator.h>

#include "sim/blockrows.h"
#include "sim/compilerimpl.h"
#include "sim/unknowncone.h"

#include <orvo/model.h>
#include <orvo/nonsblocks.h>

#include <util/random.h>

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
        for (const auto family :
             {wiringRows, arithmeticRows, steeringRows, sequentialRows, memoryRows, stallRows, interfaceRows, busRows,
              fftRows, fftSpatialRows, pulseRows, accumulatorRows, functionRows, filterRows}) {
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
    std::vector<std::string> idleInputs;
    /// The words of each run. In the first, unknown bits are zero, in the second one; of the others, each two have
    /// opposite bits by chance: drawn anew in each cycle, or, as often, once. A control that is never known may enable
    /// nothing at all, and what follows from that would go unseen if it changed all the time. A single run does not
    /// track unknown bits. Only the first has all words, the others those of the cone.
    std::vector<std::vector<std::uint64_t>> worlds;
    UnknownCone cone;
    std::uint64_t seed = 1;
    util::SplitMix random{1};
    /// For each unknown value of the program, a bit for each two runs that keep it.
    std::vector<std::uint64_t> kept;
    bool isBegun = false;

    bool isReached(const Operand &operand) const { return worlds.size() > 1 && cone.reached[operand.at]; }
    void fill(const Operand &operand, bool isState, std::uint64_t keptPairs = 0);
    void fillUnknowns();
    std::vector<std::uint64_t> bits(const Operand &operand, std::size_t run = 0) const;
    std::vector<std::uint64_t> unknownBits(const Operand &operand) const;
};

namespace {

/// A bit that depends on an unknown one by chance goes unseen in one of 2^31 cycles.
constexpr std::size_t kWorlds = 64;
constexpr std::size_t kMostTrackedWords = std::size_t{1} << 25;

/// The last word of a value is filled up by the sign or by zeros.
void fillUp(std::uint64_t *words, const Operand &operand) {
    const std::uint32_t count = wordsFor(operand.width);
    const std::uint32_t used = operand.width - (count - 1) * 64;
    std::uint64_t &last = words[count - 1];
    if (used == 0) {
        last = 0;
    } else if (used < 64) {
        const std::uint32_t places = 64 - used;
        const std::uint64_t high = last << places;
        last =
            operand.isSigned ? static_cast<std::uint64_t>(static_cast<std::int64_t>(high) >> places) : high >> places;
    }
}

} // namespace

void Simulator::Impl::fill(const Operand &operand, bool isState, std::uint64_t keptPairs) {
    const std::uint32_t first = isState ? static_cast<std::uint32_t>(operand.shift) : 0;
    const std::uint32_t end = first + operand.width;
    for (std::uint32_t word = 0; word < wordsFor(end); ++word) {
        // Of state only what is unknown; a value is filled up below.
        const std::uint64_t low = word == 0 ? ~std::uint64_t{0} << first : ~std::uint64_t{0};
        const std::uint64_t high =
            isState && end < 64 * (word + 1) ? (std::uint64_t{1} << (end % 64)) - 1 : ~std::uint64_t{0};
        for (std::size_t pair = 0; pair * 2 < worlds.size(); ++pair) {
            if ((keptPairs >> pair & 1U) != 0) {
                continue;
            }
            const std::uint64_t bits = pair == 0 ? 0 : random.next();
            for (std::size_t one = 0; one < 2; ++one) {
                std::uint64_t &to = worlds[2 * pair + one][operand.at + word];
                to = (to & ~(low & high)) | ((one == 0 ? bits : ~bits) & low & high);
            }
        }
    }
    if (!isState) {
        for (std::vector<std::uint64_t> &words : worlds) {
            fillUp(words.data() + operand.at, operand);
        }
    }
}

void Simulator::Impl::fillUnknowns() {
    for (std::size_t i = 0; i < kept.size(); ++i) {
        fill(program.unknowns[i], false, isBegun ? kept[i] : 0);
    }
    isBegun = true;
}

std::vector<std::uint64_t> Simulator::Impl::bits(const Operand &operand, std::size_t run) const {
    const std::uint64_t *from = worlds.at(isReached(operand) ? run : 0).data() + operand.at;
    return {from, from + wordsFor(operand.width)};
}

std::vector<std::uint64_t> Simulator::Impl::unknownBits(const Operand &operand) const {
    std::vector<std::uint64_t> unknown(wordsFor(operand.width));
    if (!isReached(operand)) {
        return unknown;
    }
    for (const std::vector<std::uint64_t> &words : worlds) {
        for (std::uint32_t word = 0; word < unknown.size(); ++word) {
            unknown[word] |= words[operand.at + word] ^ worlds[0][operand.at + word];
        }
    }
    if (operand.width % 64 != 0) {
        unknown.back() &= (std::uint64_t{1} << (operand.width % 64)) - 1;
    }
    return unknown;
}

Simulator::Simulator(const Design &design, const Model &top, const SimulatorOptions &options)
    : mImpl(std::make_unique<Impl>()) {
    Compiler compiler(design, top, options);
    try {
        compiler.compile();
    } catch (CompileError &error) {
        throw SimulationError(error.reason, std::move(error.blocks));
    }
    mImpl->program = std::move(compiler.program);
    mImpl->inputEdges = std::move(compiler.inputs);
    mImpl->idleInputs = std::move(compiler.idleInputs);
    mImpl->outputEdges = std::move(compiler.outputs);
    mImpl->probeEdges = std::move(compiler.probed);
    const auto describe = [](const std::vector<Edge> &edges, std::vector<Scalar> &scalars) {
        for (const Edge &edge : edges) {
            scalars.push_back({edge.name, edge.type.width, edge.type.isSigned, edge.type.isFloat, edge.type.fraction,
                               edge.origin, edge.type.isFloat ? edge.type.exponent : 0, edge.isFaithful, edge.rank});
        }
    };
    describe(mImpl->inputEdges, mImpl->inputs);
    describe(mImpl->outputEdges, mImpl->outputs);
    describe(mImpl->probeEdges, mImpl->probes);
    const Program &program = mImpl->program;
    const bool tracks = options.trackUnknown && !(program.unknowns.empty() && program.unknownState.empty());
    // Large memories are not kept so many times.
    const std::size_t fitting = kMostTrackedWords / std::max<std::size_t>(program.initial.size(), 1) / 2 * 2;
    if (tracks) {
        mImpl->cone = unknownConeOf(program);
    }
    mImpl->worlds.assign(tracks ? std::clamp<std::size_t>(fitting, 4, kWorlds) : 1, program.initial);
    reset();
}

Simulator::~Simulator() = default;

const std::vector<Scalar> &Simulator::inputs() const { return mImpl->inputs; }

const std::vector<std::string> &Simulator::idleInputs() const { return mImpl->idleInputs; }

const std::vector<Scalar> &Simulator::outputs() const { return mImpl->outputs; }

const std::vector<Scalar> &Simulator::probes() const { return mImpl->probes; }

void Simulator::setInput(std::size_t input, const std::vector<std::uint64_t> &words) {
    const Operand &operand = mImpl->inputEdges.at(input).operand;
    const std::uint32_t count = wordsFor(operand.width);
    std::uint64_t *to = mImpl->worlds[0].data() + operand.at;
    for (std::uint32_t i = 0; i < count; ++i) {
        to[i] = i < words.size() ? words[i] : 0;
    }
    fillUp(to, operand);
}

void Simulator::setInput(std::size_t input, std::int64_t value) {
    const std::uint32_t count = wordsFor(mImpl->inputEdges.at(input).operand.width);
    std::vector<std::uint64_t> words(count, value < 0 ? ~std::uint64_t{0} : 0);
    words[0] = static_cast<std::uint64_t>(value);
    setInput(input, words);
}

void Simulator::step() {
    if (tracksUnknown()) {
        mImpl->fillUnknowns();
    }
    const auto run = [](std::uint64_t *words, const std::vector<Op> &ops) {
        for (const Op &op : ops) {
            op.run(words, op);
        }
    };
    std::uint64_t *first = mImpl->worlds[0].data();
    run(first, mImpl->program.ops);
    for (std::size_t i = 1; i < mImpl->worlds.size(); ++i) {
        std::uint64_t *words = mImpl->worlds[i].data();
        for (const Operand &operand : mImpl->cone.read) {
            std::copy_n(first + operand.at, wordsFor(operand.width), words + operand.at);
        }
        run(words, mImpl->cone.ops);
        run(words, mImpl->cone.commits);
    }
    run(first, mImpl->program.commits);
}

void Simulator::reset() {
    std::vector<std::vector<std::uint64_t>> kept;
    for (const Edge &edge : mImpl->inputEdges) {
        kept.push_back(mImpl->bits(edge.operand));
    }
    for (std::vector<std::uint64_t> &world : mImpl->worlds) {
        world = mImpl->program.initial;
    }
    for (std::size_t i = 0; i < kept.size(); ++i) {
        setInput(i, kept[i]);
    }
    if (tracksUnknown()) {
        mImpl->random = util::SplitMix(mImpl->seed);
        for (const Operand &operand : mImpl->program.unknownState) {
            mImpl->fill(operand, true);
        }
        mImpl->kept.resize(mImpl->program.unknowns.size());
        std::generate(mImpl->kept.begin(), mImpl->kept.end(), [this] { return mImpl->random.next(); });
        mImpl->isBegun = false;
    }
}

bool Simulator::tracksUnknown() const { return mImpl->worlds.size() > 1; }

bool Simulator::outputMayBeUnknown(std::size_t output) const {
    return mImpl->isReached(mImpl->outputEdges.at(output).operand);
}

std::size_t Simulator::runs() const { return mImpl->worlds.size(); }

std::vector<std::uint64_t> Simulator::outputInRun(std::size_t output, std::size_t run) const {
    return mImpl->bits(mImpl->outputEdges.at(output).operand, run);
}

void Simulator::reseed(std::uint64_t seed) { mImpl->seed = seed; }

std::vector<std::uint64_t> Simulator::input(std::size_t input) const {
    return mImpl->bits(mImpl->inputEdges.at(input).operand);
}

std::vector<std::uint64_t> Simulator::output(std::size_t output) const {
    return mImpl->bits(mImpl->outputEdges.at(output).operand);
}

std::vector<std::uint64_t> Simulator::probe(std::size_t probe) const {
    return mImpl->bits(mImpl->probeEdges.at(probe).operand);
}

std::vector<std::uint64_t> Simulator::unknownOutput(std::size_t output) const {
    return mImpl->unknownBits(mImpl->outputEdges.at(output).operand);
}

std::vector<std::uint64_t> Simulator::unknownProbe(std::size_t probe) const {
    return mImpl->unknownBits(mImpl->probeEdges.at(probe).operand);
}

std::int64_t Simulator::outputInteger(std::size_t output) const {
    return static_cast<std::int64_t>(mImpl->worlds[0][mImpl->outputEdges.at(output).operand.at]);
}

std::size_t Simulator::operations() const { return mImpl->program.ops.size(); }

} // namespace orvo::sim
