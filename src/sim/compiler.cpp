// Laying out, writing, ordering.
#include "sim/compilerimpl.h"

#include "sim/bigint.h"
#include "sim/blockrows.h"
#include "sim/floatkernels.h"
#include "sim/kernels.h"
#include "sim/lanes.h"
#include "sim/tagjoiner.h"

#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/typeinferdebug.h>
#include <orvo/wire.h>

#include <algorithm>
#include <sstream>

namespace orvo::sim {

namespace {

/// A design beyond these would fail in a place that tells nothing.
constexpr std::size_t kMostScalars = std::size_t{1} << 26;
constexpr std::uint64_t kMostWords = std::uint64_t{1} << 29;
constexpr std::uint32_t kNoParent = ~std::uint32_t{0};

/// The names of the scalars of a signal: as people write them, and as unrolling makes them.
class ScalarNames {
  public:
    ScalarNames(const PureValueRef &name, const SignalType &type) {
        std::vector<std::string> parts;
        const PureTupleValueRef tuple = pureTupleVR(name);
        if (tuple && tuple->size() > 1) {
            for (const PureValueRef &part : *tuple) {
                parts.push_back(part->toString());
            }
        } else {
            parts.push_back(name->toString());
        }
        visit(type, name->toString(), parts, 0);
    }
    struct Name {
        std::string text;
        std::string unrolled;
    };
    const Name &operator[](std::size_t scalar) const { return mNames[scalar]; }

  private:
    using Parts = std::vector<std::string>;
    /// A step on the way to a scalar stands before the last part of a name that has several.
    static Parts with(Parts parts, const std::string &step) {
        parts.insert(parts.size() > 1 ? parts.end() - 1 : parts.end(), step);
        return parts;
    }
    /// All dimensions of a vector are one step: the number of the lane, in which the innermost one varies fastest.
    void visit(const SignalType &type, const std::string &text, const Parts &parts, std::size_t dim,
               std::uint64_t outer = 0) {
        if (dim < type.dims.size()) {
            const bool isInnermost = dim + 1 == type.dims.size();
            for (std::uint32_t i = 0; i < type.dims[dim]; ++i) {
                const std::uint64_t lane = outer * type.dims[dim] + i;
                visit(type, text + "[" + std::to_string(i) + "]",
                      isInnermost ? with(parts, std::to_string(lane)) : parts, dim + 1, lane);
            }
        } else if (type.isRecord()) {
            std::size_t member = 0;
            visitRecord(type, text, parts, member);
        } else if (type.isComplex) {
            add(text + ".re", with(parts, "real"));
            add(text + ".im", with(parts, "imag"));
        } else {
            add(text, parts);
        }
    }
    /// Members of records in records count through.
    void visitRecord(const SignalType &type, const std::string &text, const Parts &parts, std::size_t &member) {
        for (std::size_t i = 0; i < type.fields.size(); ++i) {
            const std::string name = text + "." + std::to_string(i);
            if (const SignalType &field = *type.fields[i]; field.isRecord() && field.dims.empty()) {
                visitRecord(field, name, parts, member);
            } else {
                visit(field, name, with(parts, std::to_string(member++)), 0);
            }
        }
    }
    void add(const std::string &text, const Parts &parts) {
        std::string unrolled = parts[0];
        for (std::size_t i = 1; i < parts.size(); ++i) {
            unrolled += " " + parts[i];
        }
        mNames.push_back({text, parts.size() > 1 ? "(" + unrolled + ")" : unrolled});
    }

    std::vector<Name> mNames;
};

/// Where a block comes from: its model and its own name, whether it stands in its model or was copied out of it.
std::string originOf(const Block &block) {
    PureValueRef name = block.getName();
    PureTupleValueRef tuple = pureTupleVR(name);
    if (tuple && tuple->size() == 3 && tuple->at(0) == A_DUPLICATE_NAME) {
        name = tuple->at(2);
        tuple = pureTupleVR(name);
    }
    return tuple && tuple->size() == 2 ? name->toString()
                                       : "(" + block.getModel().getName()->toString() + " " + name->toString() + ")";
}

/// The integer nearest to a number at a scale, halves away from zero, brought into a type's range.
BigInt nearest(const NumberValueRef &number, const ScalarType &type) {
    BigInt value;
    const int fraction = number->toUpscaledMPZ(value.get(), true);
    const std::int32_t drop = fraction - type.fraction;
    if (drop > 0) {
        const bool isNegative = value < BigInt(0);
        BigInt magnitude = isNegative ? -std::move(value) : std::move(value);
        magnitude += BigInt(1) << static_cast<unsigned>(drop - 1);
        magnitude >>= static_cast<unsigned>(drop);
        value = isNegative ? -std::move(magnitude) : std::move(magnitude);
    } else {
        value <<= static_cast<unsigned>(-drop);
    }
    const std::uint32_t bits = type.isSigned ? std::max(type.width, 1U) - 1 : type.width;
    const BigInt high = (BigInt(1) << bits) - BigInt(1);
    const BigInt low = type.isSigned && type.width != 0 ? -BigInt(high) - BigInt(1) : BigInt(0);
    return value < low ? low : value > high ? high : value;
}

std::vector<std::uint64_t> wordsOf(const BigInt &value, std::uint32_t width) {
    std::vector<std::uint64_t> words(wordsFor(width));
    BigInt pattern;
    mpz_fdiv_r_2exp(pattern.get(), value.get(), words.size() * 64);
    mpz_export(words.data(), nullptr, -1, sizeof(std::uint64_t), 0, 0, pattern.get());
    return words;
}

} // namespace

SignalTypes &BlockWriter::types() const { return mCompiler.mTypes; }

std::int64_t BlockWriter::integer(const StaticString &key, std::int64_t fallback) const {
    const ValueRef value = mBlock.getParam(key);
    if (!value) {
        return fallback;
    }
    const NumberValueRef number = numberVR(value);
    if (!number || number->isSpecial() || !number->isInteger() || number->getBitWidths().first > 62) {
        fail("'" + std::string(key.text()) + "' is no integer");
    }
    return number->toInt64(0);
}

Signal BlockWriter::in(const PureValueRef &key) const {
    const Port *port = mBlock.getPort(key);
    const Wire *wire = port == nullptr ? nullptr : port->peekWire();
    if (wire != nullptr && &wire->getBlock().getModel() != &mBlock.getModel()) {
        fail("port '" + key->toString() + "' reads a wire of another model");
    }
    return wire == nullptr ? Signal() : mCompiler.signalOf(wire, mInstance);
}

const SignalType *BlockWriter::taken(const Port &port) const {
    return mCompiler.mTypes.of(mCompiler.mTypesOfSignals.getType(port, mCompiler.mInstances[mInstance].chain));
}

Signal BlockWriter::in(int number) const { return in(NumberValue::get(number, context())); }

std::vector<std::pair<int, Signal>> BlockWriter::numberedPorts() const {
    std::vector<std::pair<int, Signal>> signals;
    for (const Port &port : mBlock.ports()) {
        const NumberValueRef number = numberVR(port.getName());
        const Signal signal = number && number->isInt() ? in(port.getName()) : Signal();
        if (signal.known() && number->toInt() >= 0) {
            signals.emplace_back(number->toInt(), signal);
        }
    }
    std::sort(signals.begin(), signals.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    return signals;
}

std::vector<Signal> BlockWriter::numbered() const {
    std::vector<Signal> signals;
    for (const auto &[number, signal] : numberedPorts()) {
        signals.push_back(signal);
    }
    return signals;
}

Signal BlockWriter::out(const PureValueRef &key) const {
    const Wire *wire = mBlock.getWire(key);
    return wire == nullptr ? Signal() : mCompiler.signalOf(wire, mInstance);
}

Signal BlockWriter::out(int number) const { return out(NumberValue::get(number, context())); }

ScalarType BlockWriter::scalar(Leaf leaf) const { return mCompiler.mLeaves[leaf]; }

Operand BlockWriter::raw(Leaf leaf) const {
    const ScalarType type = scalar(leaf);
    return {leaf, type.width, type.isSigned, false, 0};
}

Operand BlockWriter::aligned(Leaf leaf, std::int32_t fraction) const {
    Operand operand = raw(leaf);
    operand.shift = fraction - scalar(leaf).fraction;
    return operand;
}

Leaf BlockWriter::temporary(const ScalarType &type) {
    mCompiler.mLeaves.push_back(type);
    mCompiler.mAliases.push_back(static_cast<Leaf>(mCompiler.mAliases.size()));
    mCompiler.mProducers.push_back(0);
    return static_cast<Leaf>(mCompiler.mLeaves.size() - 1);
}

Leaf BlockWriter::unknown(const ScalarType &type) {
    const Leaf leaf = temporary(type);
    mCompiler.program.unknowns.push_back(raw(leaf));
    return leaf;
}

std::uint32_t BlockWriter::state(std::uint32_t words) {
    if (words > kMostWords - mCompiler.mStateWords) {
        fail("the design takes too many words");
    }
    const auto at = static_cast<std::uint32_t>(mCompiler.mStateWords);
    mCompiler.mStateWords += words;
    return at;
}

void BlockWriter::setInitial(std::uint32_t at, std::uint64_t word) { mCompiler.mInitial.emplace_back(at, word); }

void BlockWriter::setUnknown(std::uint32_t at, std::uint32_t firstBit, std::uint32_t bits) {
    mCompiler.program.unknownState.push_back(
        {at + firstBit / 64, bits, false, false, static_cast<std::int32_t>(firstBit % 64)});
}

Op &BlockWriter::begin(Leaf out, std::int32_t drop, const std::vector<Operand> &in, int aux) {
    Program &program = mCompiler.program;
    Op op;
    op.out = raw(out);
    op.out.shift = drop;
    op.aux = aux;
    op.firstIn = static_cast<std::uint32_t>(program.operands.size());
    op.count = static_cast<std::uint32_t>(in.size());
    program.operands.insert(program.operands.end(), in.begin(), in.end());
    op.in = program.operands.data() + op.firstIn;
    program.ops.push_back(op);
    mCompiler.mProducers[out] = static_cast<std::uint32_t>(program.ops.size());
    mCompiler.mOrigins.push_back({&mBlock, mInstance});
    return program.ops.back();
}

void BlockWriter::commit(std::uint32_t state, std::uint32_t words, const std::vector<Operand> &in, Kernel kernel,
                         int aux) {
    Program &program = mCompiler.program;
    Op op;
    op.run = kernel;
    op.aux = aux;
    op.state = state;
    op.stateWords = words;
    op.firstIn = static_cast<std::uint32_t>(program.operands.size());
    op.count = static_cast<std::uint32_t>(in.size());
    program.operands.insert(program.operands.end(), in.begin(), in.end());
    program.commits.push_back(op);
}

void BlockWriter::alias(Leaf out, Leaf in) { mCompiler.mAliases[out] = in; }

void BlockWriter::convert(Leaf out, Leaf in) {
    const ScalarType to = scalar(out);
    if (to == scalar(in)) {
        alias(out, in);
        return;
    }
    if (to.isFloat != scalar(in).isFloat) {
        fail("a fixed-point and a floating-point signal meet");
    }
    if (to.isFloat) {
        convertFloat(out, in);
        return;
    }
    emit(out, scalar(in).fraction - to.fraction, {raw(in)}, sumKernel);
}

void BlockWriter::convertFloat(Leaf out, Leaf in) {
    const ScalarType to = scalar(out);
    Operand from = raw(in);
    from.width -= scalar(in).unused;
    from.shift = static_cast<std::int32_t>(scalar(in).exponent);
    const int aux = floatAux({FloatRounding::NearestEven, isTrue(A_FLOAT_SUBNORMALS)});
    emit(
        out, static_cast<std::int32_t>(to.exponent), {from},
        [&](Op &op) {
            op.out.width -= to.unused;
            return floatConvertKernel();
        },
        aux);
}

std::vector<std::uint64_t> BlockWriter::quantised(const NumberValueRef &number, const ScalarType &type) {
    if (!type.isFloat) {
        return wordsOf(nearest(number, type), type.width);
    }
    std::vector<std::uint64_t> words = floatBits(number, type.width - type.unused, type.exponent);
    words.resize(wordsFor(type.width));
    return words;
}

void BlockWriter::setConstant(Leaf leaf, std::uint64_t integer) {
    mCompiler.mConstants.emplace_back(leaf, std::vector<std::uint64_t>{integer});
}

void BlockWriter::constant(const Signal &out, const ValueRef &value) {
    // A scalar serves all lanes and, alone, the real part.
    struct Step {
        ValueRef value;
        const SignalType *type;
        std::size_t dim;
        bool inPart;
    };
    Leaf leaf = out.first;
    std::vector<Step> stack{{value, out.type, 0, false}};
    while (!stack.empty()) {
        const Step step = stack.back();
        stack.pop_back();
        const TupleValueRef tuple = tupleVR(step.value);
        const SignalType &type = *step.type;
        if (step.dim < type.dims.size()) {
            const bool isRolled = rolledLayers(step.value) >= type.dims.size() - step.dim;
            const std::uint32_t length = type.dims[step.dim];
            if (isRolled && tuple->size() != length + std::size_t{1}) {
                fail("a constant has another number of elements than its type");
            }
            for (std::uint32_t i = length; i-- > 0;) {
                stack.push_back({isRolled ? tuple->at(i + 1) : step.value, &type, step.dim + 1, false});
            }
            continue;
        }
        if (type.isRecord()) {
            for (std::size_t i = type.fields.size(); i-- > 0;) {
                stack.push_back({tuple ? tuple->maybeAt(i) : step.value, type.fields[i], 0, false});
            }
            continue;
        }
        if (type.isComplex && !step.inPart) {
            const bool isRolled = tuple && tuple->size() == 3 && tuple->at(0) == A_COMPLEX_ROLL_TAG;
            const ValueRef zero = NumberValue::get(0, context());
            stack.push_back({isRolled ? tuple->at(2) : zero, &type, step.dim, true});
            stack.push_back({isRolled ? tuple->at(1) : step.value, &type, step.dim, true});
            continue;
        }
        const NumberValueRef number = numberVR(step.value);
        if (!number || (number->isSpecial() && !type.scalar.isFloat)) {
            fail("a constant is no number");
        }
        mCompiler.mConstants.emplace_back(leaf++, quantised(number, type.scalar));
    }
}

ValueRef BlockWriter::inherited(const StaticString &key) const {
    ValueRef value = param(key);
    for (std::uint32_t at = mInstance; !value && at != kNoParent; at = mCompiler.mInstances[at].parent) {
        value = mCompiler.mInstances[at].model->getParam(key);
    }
    return value;
}

void BlockWriter::joinBus(const PureValueRef &bus) { mCompiler.mBuses[bus].push_back(*this); }

Signal BlockWriter::outside(const PureValueRef &name, const SignalType &type) {
    const auto [at, isNew] = mCompiler.mOutside.try_emplace(name);
    Signal &signal = at->second;
    if (isNew) {
        std::vector<ScalarType> scalars;
        appendScalars(type, scalars);
        for (const ScalarType &one : scalars) {
            const Leaf leaf = temporary(one);
            signal.first = signal.known() ? signal.first : leaf;
            signal.type = &type;
        }
    } else if (signal.type != &type) {
        fail("'" + name->toString() + "' comes from outside with two types");
    }
    return signal;
}

void BlockWriter::show(const PureValueRef &name, const Signal &signal) {
    const std::string place = mCompiler.placeOf(mBlock, mInstance);
    const auto [at, isNew] = mCompiler.mShown.try_emplace(name, signal, place);
    if (!isNew) {
        throw CompileError{"'" + name->toString() + "' has two drivers", {at->second.second, place}};
    }
}

void BlockWriter::fail(const std::string &reason) const {
    throw CompileError{reason, {mCompiler.placeOf(mBlock, mInstance)}};
}

Compiler::Compiler(const Design &design, const Model &top, const SimulatorOptions &options)
    : mTop(top), mOptions(options), mTypes(design.getContext()) {
    mTypesOfSignals.bindEvents(design);
}

Compiler::~Compiler() { mTypesOfSignals.unbindEvents(); }

std::string Compiler::placeOf(const Block &block, std::uint32_t instance) const {
    return placeOf(instance) + block.getName()->toString();
}

/// Blames where the failure began, which may be far from the wire.
void Compiler::failOnMissingType(const Wire &wire, std::uint32_t instance) {
    std::string reason = "wire '" + wire.getName()->toString() + "' has no type";
    std::vector<std::string> blocks{placeOf(wire.getBlock(), instance)};
    TypeInferDebug report(mTypesOfSignals, {&mTop});
    if (!report.causes().empty()) {
        std::ostringstream text;
        report.getLikelyFailureCause(text);
        std::istringstream lines(text.str());
        for (std::string line; std::getline(lines, line);) {
            if (const std::size_t at = line.find("Likely failure cause"); at != std::string::npos) {
                // The blocks of a loop stand on lines of their own there, and behind the reason here.
                reason += "; " + line.substr(at, line.find_last_not_of(':') + 1 - at);
                break;
            }
        }
        const CauseSpec &cause = *report.causes().front();
        blocks.clear();
        for (const Block *block : cause.blocks) {
            blocks.push_back(cause.instance->path->toString() + "/" + block->getName()->toString());
        }
    }
    throw CompileError{reason, std::move(blocks)};
}

Signal Compiler::signalOf(const Wire *wire, std::uint32_t instance) {
    const auto at = mWires[instance].find(wire);
    return at == mWires[instance].end() ? Signal() : at->second;
}

void Compiler::layOut(std::uint32_t instance) {
    const Model &model = *mInstances[instance].model;
    mWires[instance].reserve(model.size());
    const auto begin = static_cast<Leaf>(mLeaves.size());
    for (const Block &block : model) {
        for (const Wire &wire : block) {
            const bool isInput = block.type() == A_INPUT_BLOCK.get_ptr();
            if (wire.port_size() == 0 && (isInput || !block.hasReader()) &&
                !mTypesOfSignals.getType(wire, mInstances[instance].chain)) {
                // What nobody reads may stay without a type.
                if (isInput && instance == 0) {
                    idleInputs.push_back(wire.getName()->toString());
                }
                continue;
            }
            if (block.type() == A_FROM_BLOCK.get_ptr() && !mTypesOfSignals.getType(wire, mInstances[instance].chain)) {
                // Becomes the signal at its Goto.
                continue;
            }
            const SignalType *type = mTypes.of(mTypesOfSignals.getType(wire, mInstances[instance].chain));
            if (type == nullptr) {
                if (!canSimulate(block.type())) {
                    failOnType(block, instance);
                }
                failOnMissingType(wire, instance);
            }
            const auto first = static_cast<Leaf>(mLeaves.size());
            if (mLeaves.size() + type->leaves > kMostScalars) {
                throw CompileError{"the design has too many scalar signals", {placeOf(block, instance)}};
            }
            appendScalars(*type, mLeaves);
            mWires[instance].emplace(&wire, Signal{type, first});
        }
    }
    mWireLeaves.emplace_back(begin, static_cast<Leaf>(mLeaves.size()));
    mProducers.resize(mLeaves.size());
    for (auto leaf = static_cast<Leaf>(mAliases.size()); leaf < mLeaves.size(); ++leaf) {
        mAliases.push_back(leaf);
    }
}

void Compiler::joinInstance(std::uint32_t below) {
    const Model &model = *mInstances[below].model;
    BlockWriter writer(*this, *mInstances[below].chain.back(), mInstances[below].parent);
    const auto join = [&](const Signal &out, const Signal &in, const PureValueRef &name) {
        if (!out.known() || !in.known()) {
            return;
        }
        if (out.type != in.type) {
            writer.fail("'" + name->toString() + "' has one type outside its model and another inside");
        }
        for (std::uint32_t i = 0; i < out.type->leaves; ++i) {
            writer.alias(out.first + i, in.first + i);
        }
    };
    for (const Block *input : model.getInputBlocks()) {
        for (const Wire &wire : *input) {
            join(signalOf(&wire, below), writer.in(wire.getName()), wire.getName());
        }
    }
    for (const Block *output : model.getOutputBlocks()) {
        for (const Port &port : output->ports()) {
            join(writer.out(port.getName()), signalOf(port.peekWire(), below), port.getName());
        }
    }
}

bool Compiler::hasFloats(const Block &block, std::uint32_t instance) {
    const auto isFloat = [](const Signal &signal) {
        return signal.known() && !signal.type->isRecord() && signal.type->scalar.isFloat;
    };
    for (const Wire &wire : block) {
        if (isFloat(signalOf(&wire, instance))) {
            return true;
        }
    }
    for (const Port &port : block.ports()) {
        if (isFloat(signalOf(port.peekWire(), instance))) {
            return true;
        }
    }
    return false;
}

void Compiler::failOnType(const Block &block, std::uint32_t instance) const {
    const Value *type = block.type();
    throw CompileError{"block type '" + (type == nullptr ? std::string("(none)") : type->toString()) +
                           "' cannot be simulated",
                       {placeOf(block, instance)}};
}

void Compiler::writeBlock(const Block &block, std::uint32_t instance) {
    BlockWriter writer(*this, block, instance);
    const BlockRow *row = rowOf(block.type(), hasFloats(block, instance));
    if (row == nullptr) {
        failOnType(block, instance);
    }
    if (row->write == nullptr) {
        return;
    }
    try {
        row->write(writer);
    } catch (const MissingInput &) {
        // Wires that nothing drives are unknown.
    }
}

void Compiler::findInstances() {
    mInstances.push_back({&mTop, {}, kNoParent});
    for (std::uint32_t at = 0; at < mInstances.size(); ++at) {
        for (const Block &block : *mInstances[at].model) {
            if (block.type() != A_MODEL_BLOCK.get_ptr()) {
                continue;
            }
            const Model *below = Node::from<Model>(block[A_MODEL_NODE]);
            RefChain chain = mInstances[at].chain;
            const bool isInside =
                below == mInstances[at].model ||
                std::any_of(chain.begin(), chain.end(), [&](const Block *step) { return &step->getModel() == below; });
            if (below == nullptr || isInside) {
                const char *reason =
                    below == nullptr ? "the model block has no model" : "the model instantiates itself";
                mFault = mFault ? mFault : CompileError{reason, {placeOf(block, at)}};
                continue;
            }
            if (mInstances.size() > limits::kTypeInstances) {
                BlockWriter(*this, block, at).fail("the design has too many instances");
            }
            chain.push_back(&block);
            mInstances.push_back({below, std::move(chain), at});
        }
    }
}

void Compiler::compile() {
    findInstances();
    TagJoiner tags(*this);
    tags.inferTypes();
    mWires.resize(mInstances.size());
    for (std::uint32_t at = 0; at < mInstances.size(); ++at) {
        layOut(at);
    }
    if (mFault) {
        throw CompileError(*mFault);
    }
    tags.join();
    for (std::uint32_t at = 1; at < mInstances.size(); ++at) {
        joinInstance(at);
    }
    for (std::uint32_t at = 0; at < mInstances.size(); ++at) {
        for (const Block &block : *mInstances[at].model) {
            if (block.type() != A_MODEL_BLOCK.get_ptr()) {
                writeBlock(block, at);
            }
        }
    }
    for (auto &[name, users] : mBuses) {
        writeBus(users);
    }
    addEdges();
    resolveAliases();
    markUnsettled();
    order();
    place();
}

void Compiler::addEdge(std::vector<Edge> &edges, const std::string &prefix, const PureValueRef &name,
                       const Signal &signal) {
    const ScalarNames names(name, *signal.type);
    for (std::uint32_t i = 0; i < signal.type->leaves; ++i) {
        const Leaf leaf = signal.first + i;
        const ScalarType &type = mLeaves[leaf];
        edges.push_back({prefix + names[i].text, names[i].unrolled, type, {leaf, type.width, type.isSigned, false, 0}});
    }
}

void Compiler::addEdges() {
    for (const Block *input : mTop.getInputBlocks()) {
        for (const Wire &wire : *input) {
            if (const Signal signal = signalOf(&wire, 0); signal.known()) {
                addEdge(inputs, "", wire.getName(), signal);
            }
        }
    }
    for (const Block *output : mTop.getOutputBlocks()) {
        for (const Port &port : output->ports()) {
            if (const Signal signal = signalOf(port.peekWire(), 0); signal.known()) {
                addEdge(outputs, "", port.getName(), signal);
            }
        }
    }
    for (const auto &[name, signal] : mOutside) {
        addEdge(inputs, "", name, signal);
    }
    for (const auto &[name, shown] : mShown) {
        addEdge(outputs, "", name, shown.first);
    }
    for (const std::string &path : mOptions.probes) {
        addProbe(path);
    }
    if (mOptions.probeAll) {
        addAllProbes();
    }
}

std::string Compiler::placeOf(std::uint32_t instance) const {
    std::string place = mTop.getName()->toString() + "/";
    for (const Block *step : mInstances[instance].chain) {
        place += step->getName()->toString() + "/";
    }
    return place;
}

/// A path leads to a wire through the names of blocks, which may hold slashes themselves: the whole is compared.
void Compiler::addProbe(const std::string &path) {
    for (std::uint32_t at = 0; at < mInstances.size(); ++at) {
        const std::string place = placeOf(at);
        if (path.compare(0, place.size(), place) != 0) {
            continue;
        }
        for (const auto &[wire, signal] : mWires[at]) {
            const std::string prefix = place + wire->getBlock().getName()->toString() + "/";
            if (path == prefix + wire->getName()->toString()) {
                addEdge(probed, prefix, wire->getName(), signal);
                return;
            }
        }
    }
    throw CompileError{"no wire is at '" + path + "'", {}};
}

void Compiler::addAllProbes() {
    for (std::uint32_t at = 0; at < mInstances.size(); ++at) {
        const std::string place = placeOf(at);
        for (const Block &block : *mInstances[at].model) {
            const std::string origin = originOf(block);
            for (const Wire &wire : block) {
                if (const Signal signal = signalOf(&wire, at); signal.known()) {
                    const std::size_t first = probed.size();
                    addEdge(probed, place + block.getName()->toString() + "/", wire.getName(), signal);
                    for (std::size_t i = first; i < probed.size(); ++i) {
                        probed[i].origin = origin + " " + probed[i].origin;
                    }
                }
            }
        }
    }
}

/// Names the blocks whose wires stand for each other in a ring.
void Compiler::failOnWireLoop(Leaf first) const {
    std::vector<Leaf> ring{first};
    while (mAliases[ring.back()] != first) {
        ring.push_back(mAliases[ring.back()]);
    }
    std::vector<std::string> blocks;
    for (std::uint32_t at = 0; at < mInstances.size(); ++at) {
        for (const Block &block : *mInstances[at].model) {
            const bool isInside = std::any_of(block.begin(), block.end(), [&](const Wire &wire) {
                const auto known = mWires[at].find(&wire);
                return known != mWires[at].end() &&
                       std::any_of(ring.begin(), ring.end(), [&signal = known->second](Leaf leaf) {
                           return leaf >= signal.first && leaf - signal.first < signal.type->leaves;
                       });
            });
            if (isInside) {
                blocks.push_back(placeOf(block, at));
            }
        }
    }
    throw CompileError{"a loop of wires has no driver", std::move(blocks)};
}

/// Follows each chain of aliases to its end. A chain without an end is a loop of wires.
void Compiler::resolveAliases() {
    std::vector<Leaf> way;
    for (Leaf leaf = 0; leaf < mAliases.size(); ++leaf) {
        Leaf at = leaf;
        way.clear();
        while (mAliases[at] != at) {
            way.push_back(at);
            at = mAliases[at];
            if (way.size() > mAliases.size()) {
                failOnWireLoop(at);
            }
        }
        for (const Leaf passed : way) {
            mAliases[passed] = at;
        }
    }
    const auto resolveOperand = [this](Operand &operand) { operand.at = mAliases[operand.at]; };
    std::for_each(program.operands.begin(), program.operands.end(), resolveOperand);
    for (std::vector<Edge> *edges : {&inputs, &outputs, &probed}) {
        for (Edge &edge : *edges) {
            edge.rank = mAliases[edge.operand.at] == edge.operand.at ? 0 : 1;
            resolveOperand(edge.operand);
        }
    }
}

/// A wire that no block drives, as an input of a model that is not connected outside, is unknown.
void Compiler::markUnsettled() {
    std::vector<bool> isSettled(mLeaves.size());
    for (const auto &[leaf, bits] : mConstants) {
        isSettled[leaf] = true;
    }
    for (const Edge &edge : inputs) {
        isSettled[edge.operand.at] = true;
    }
    for (const auto &[begin, end] : mWireLeaves) {
        for (Leaf leaf = begin; leaf < end; ++leaf) {
            if (mAliases[leaf] == leaf && mProducers[leaf] == 0 && !isSettled[leaf]) {
                const ScalarType &type = mLeaves[leaf];
                program.unknowns.push_back({leaf, type.width, type.isSigned, false, 0});
            }
        }
    }
}

/// Kahn, "Topological sorting of large networks" (1962). Operations that become free together keep their order.
void Compiler::order() {
    const std::size_t count = program.ops.size();
    std::vector<std::uint32_t> waits(count, 0);
    std::vector<std::uint32_t> offsets(count + 1, 0);
    const auto forProducers = [this](const Op &op, auto visit) {
        for (std::uint32_t i = 0; i < op.count; ++i) {
            if (const std::uint32_t producer = mProducers[program.operands[op.firstIn + i].at]; producer != 0) {
                visit(producer - 1);
            }
        }
    };
    for (std::size_t i = 0; i < count; ++i) {
        forProducers(program.ops[i], [&](std::uint32_t producer) {
            ++waits[i];
            ++offsets[producer + 1];
        });
    }
    for (std::size_t i = 0; i < count; ++i) {
        offsets[i + 1] += offsets[i];
    }
    std::vector<std::uint32_t> readers(offsets[count]);
    std::vector<std::uint32_t> next(offsets.begin(), offsets.end() - 1);
    for (std::size_t i = 0; i < count; ++i) {
        forProducers(program.ops[i],
                     [&](std::uint32_t producer) { readers[next[producer]++] = static_cast<std::uint32_t>(i); });
    }
    std::vector<std::uint32_t> ready;
    ready.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (waits[i] == 0) {
            ready.push_back(i);
        }
    }
    for (std::size_t at = 0; at < ready.size(); ++at) {
        for (std::uint32_t i = offsets[ready[at]]; i < offsets[ready[at] + 1]; ++i) {
            if (--waits[readers[i]] == 0) {
                ready.push_back(readers[i]);
            }
        }
    }
    if (ready.size() != count) {
        failOnLoop(waits);
    }
    std::vector<Op> ordered;
    ordered.reserve(count);
    for (const std::uint32_t op : ready) {
        ordered.push_back(program.ops[op]);
    }
    program.ops.swap(ordered);
    std::vector<std::uint32_t> ranks(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        ranks[ready[i]] = i + 1;
    }
    for (std::vector<Edge> *edges : {&inputs, &outputs, &probed}) {
        for (Edge &edge : *edges) {
            const std::uint32_t producer = mProducers[edge.operand.at];
            // A signal comes before those that only stand for it.
            if (producer != 0) {
                edge.rank += 2 * ranks[producer - 1];
                const Block &source = *mOrigins[producer - 1].block;
                edge.isFaithful =
                    edge.type.isFloat && source.findParam(A_FLOAT_ROUNDING) == A_FAITHFUL_ROUNDING.get_ptr();
            }
        }
    }
}

/// From an operation that waits, back through others that wait, until one comes again: that is the loop.
void Compiler::failOnLoop(const std::vector<std::uint32_t> &waits) const {
    const auto first = std::find_if(waits.begin(), waits.end(), [](std::uint32_t left) { return left != 0; });
    std::vector<std::uint32_t> way;
    std::vector<std::uint32_t> seenAt(waits.size(), 0);
    auto at = static_cast<std::uint32_t>(first - waits.begin());
    while (seenAt[at] == 0) {
        way.push_back(at);
        seenAt[at] = static_cast<std::uint32_t>(way.size());
        const Op &op = program.ops[at];
        for (std::uint32_t i = 0; i < op.count; ++i) {
            const std::uint32_t producer = mProducers[program.operands[op.firstIn + i].at];
            if (producer != 0 && waits[producer - 1] != 0) {
                at = producer - 1;
                break;
            }
        }
    }
    std::vector<std::string> blocks;
    for (std::size_t i = way.size(); i-- > seenAt[at] - 1;) {
        std::string place = placeOf(*mOrigins[way[i]].block, mOrigins[way[i]].instance);
        if (blocks.empty() || blocks.back() != place) {
            blocks.push_back(std::move(place));
        }
    }
    throw CompileError{"a combinational loop", std::move(blocks)};
}

/// Gives each leaf with a value of its own its words, and each operand its place.
void Compiler::place() {
    std::vector<std::uint32_t> places(mLeaves.size());
    std::uint64_t words = 0;
    for (Leaf leaf = 0; leaf < mLeaves.size(); ++leaf) {
        if (mAliases[leaf] == leaf) {
            places[leaf] = static_cast<std::uint32_t>(words);
            words += wordsFor(mLeaves[leaf].width);
        }
    }
    const std::uint64_t states = words;
    words += mStateWords;
    if (words > kMostWords) {
        throw CompileError{"the design takes too many words", {}};
    }
    program.initial.assign(words, 0);
    for (const auto &[at, word] : mInitial) {
        program.initial[states + at] = word;
    }
    for (const auto &[leaf, bits] : mConstants) {
        std::copy(bits.begin(), bits.end(), program.initial.begin() + places[leaf]);
    }
    const auto placeOperand = [&](Operand &operand) { operand.at = places[operand.at]; };
    std::for_each(program.unknowns.begin(), program.unknowns.end(), placeOperand);
    for (Operand &operand : program.unknownState) {
        operand.at += static_cast<std::uint32_t>(states);
    }
    std::for_each(program.operands.begin(), program.operands.end(), placeOperand);
    for (std::vector<Op> *ops : {&program.ops, &program.commits}) {
        for (Op &op : *ops) {
            op.in = program.operands.data() + op.firstIn;
            op.state += static_cast<std::uint32_t>(states);
        }
    }
    for (Op &op : program.ops) {
        placeOperand(op.out);
    }
    for (std::vector<Edge> *edges : {&inputs, &outputs, &probed}) {
        for (Edge &edge : *edges) {
            placeOperand(edge.operand);
        }
    }
}

} // namespace orvo::sim
