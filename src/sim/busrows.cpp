// Registers and memories that a host reaches over a bus. What shares an interface is decoded together: the address
// picks who takes the data written and who gives the data read; an address that nobody has reads as zero and not valid.
#include "sim/blockrows.h"
#include "sim/emit.h"
#include "sim/interfaces.h"
#include "sim/memories.h"
#include "sim/memorykernels.h"
#include "sim/statekernels.h"

#include <orvo/design.h>
#include <orvo/wire.h>

#include <iterator>
#include <map>

namespace orvo::sim {

namespace {

constexpr ScalarType kBit{1, 0, false, false};

bool isOf(const BlockWriter &writer, const StaticString &type) { return writer.block().type() == type.get_ptr(); }

Leaf integerLeaf(BlockWriter &writer, std::int64_t integer) {
    const Leaf leaf = writer.temporary({64, 0, true, false});
    writer.setConstant(leaf, static_cast<std::uint64_t>(integer));
    return leaf;
}

/// The bits of a scalar from `low` on as an integer of another type: extended by the sign, or cut.
Leaf bitsOf(BlockWriter &writer, Leaf leaf, int low, const ScalarType &type) {
    const Leaf bits = writer.temporary({type.width, 0, type.isSigned, false});
    writer.emit(bits, low, {writer.raw(leaf)}, sumKernel);
    return bits;
}

Leaf both(BlockWriter &writer, Leaf a, Leaf b) { return emitBit(writer, Logic::And, {a, b}); }

/// The bus of an interface with what answers on it.
class Bus {
  public:
    explicit Bus(const BlockWriter &first)
        : mFirst(first), mAddressWidth(widthOf(A_SYNTH_BUS_ADDR_WIDTH)), mDataWidth(widthOf(A_SYNTH_BUS_DATA_WIDTH)) {}

    int dataWidth() const { return mDataWidth; }
    int addressWidth() const { return mAddressWidth; }
    ScalarType word() const { return {static_cast<std::uint32_t>(mDataWidth), 0, false, false}; }
    Leaf address() { return outside(A_SARNET_MM_ADDRESS, mAddressWidth); }
    Leaf writeData() { return outside(A_SARNET_MM_WRITEDATA, mDataWidth); }
    Leaf write() { return outside(A_SARNET_MM_WRITE, 1); }
    Leaf read() { return outside(A_SARNET_MM_READ, 1); }

    /// Has the bus read this word while the control is true, unless an earlier answer comes first.
    void answer(Leaf control, Leaf data) { mAnswers.emplace_back(control, data); }

    /// Joins the answers. The bus never has to wait.
    void finish() {
        if (!mAnswers.empty()) {
            std::vector<Leaf> controls;
            Leaf data = mFirst.temporary(word());
            for (std::size_t i = mAnswers.size(); i-- > 0;) {
                const Leaf chosen = mFirst.temporary(word());
                emitMux(mFirst, chosen, mAnswers[i].first, {data, mAnswers[i].second});
                data = chosen;
                controls.push_back(mAnswers[i].first);
            }
            show(A_SARNET_MM_READDATA, mDataWidth, data);
            show(A_SARNET_MM_READDATAVALID, 1, emitBit(mFirst, Logic::Or, controls));
        }
        show(A_SARNET_MM_WAITREQUEST, 1, zero(mFirst));
    }

  private:
    int widthOf(const StaticString &key) const {
        const NumberValueRef number = numberVR(mFirst.block().getDesign().getParam(key));
        if (!number || !number->isInt() || number->toInt() < 1 || number->toInt() > NumTypeSpec::kMaxWidth) {
            mFirst.fail("the design gives no '" + std::string(key.text()) + "' for the bus");
        }
        return number->toInt();
    }
    PureValueRef named(const StaticString &signal) const {
        return interfaceSignal(mFirst, A_SARNET_MM_INTERFACE_NAME, PureValueRef(signal));
    }
    Leaf outside(const StaticString &signal, int width) {
        return mFirst.outside(named(signal), wordType(mFirst, width)).first;
    }
    void show(const StaticString &signal, int width, Leaf leaf) {
        mFirst.show(named(signal), Signal{&wordType(mFirst, width), leaf});
    }

    BlockWriter mFirst;
    int mAddressWidth;
    int mDataWidth;
    std::vector<std::pair<Leaf, Leaf>> mAnswers;
};

bool busReads(const BlockWriter &writer) {
    const ValueRef mode = writer.param(A_BUS_ACCESS_MODE);
    return mode == A_BUS_ACCESS_READ || mode == A_BUS_ACCESS_READ_WRITE;
}

bool busWrites(const BlockWriter &writer) {
    const ValueRef mode = writer.param(A_BUS_ACCESS_MODE);
    return mode == A_BUS_ACCESS_WRITE || mode == A_BUS_ACCESS_READ_WRITE;
}

std::int64_t baseAddress(const BlockWriter &writer) {
    const std::int64_t base = writer.integer(A_BUS_BASE_ADDR, -1);
    if (base < 0) {
        writer.fail("the block has no address on the bus");
    }
    return base;
}

/// Where a field stands in its word, and the type of its value.
struct Field {
    int low;
    std::uint32_t width;
    ScalarType type;
};

Field fieldOf(const BlockWriter &writer, int dataWidth) {
    const SignalType *type = writer.types().of(PureValueRef(writer.param(A_MM_REGISTER_OUTPUT_TYPE)));
    for (const Signal &signal : {writer.out(A_MM_REGISTER_WIRE_DATA), writer.in(A_MM_REGISTER_PORT_DATA)}) {
        type = type == nullptr ? signal.type : type;
    }
    if (type == nullptr) {
        type = &wordType(writer, dataWidth);
    }
    if (type->leaves != 1) {
        writer.fail("a field of a register is no single number");
    }
    const std::int64_t low = writer.integer(A_MM_REGISTER_LSB, 0);
    const std::int64_t high = writer.integer(A_MM_REGISTER_MSB, low + std::int64_t{type->scalar.width} - 1);
    if (low < 0 || high < low || high >= dataWidth) {
        writer.fail("the field does not lie in a word of the bus");
    }
    return {static_cast<int>(low), static_cast<std::uint32_t>(high - low + 1), type->scalar};
}

/// The bits of the initial value at their place in a word.
void addInitial(const BlockWriter &writer, const Field &field, std::vector<std::uint64_t> &word) {
    const ValueRef value = writer.param(A_MM_REGISTER_INITIAL_VALUE);
    if (!value) {
        return;
    }
    const NumberValueRef number = numberVR(value);
    if (!number || (number->isSpecial() && !field.type.isFloat)) {
        writer.fail("the initial value is no number");
    }
    const std::vector<std::uint64_t> bits = BlockWriter::quantised(number, field.type);
    // Above the value's own bits its last word is filled up by the sign.
    const auto bitAt = [&](std::uint32_t bit) {
        const std::uint32_t at = std::min(bit, static_cast<std::uint32_t>(bits.size()) * 64 - 1);
        return bits[at / 64] >> (at % 64) & 1U;
    };
    for (std::uint32_t bit = 0; bit < field.width; ++bit) {
        const std::uint32_t to = static_cast<std::uint32_t>(field.low) + bit;
        word[to / 64] |= bitAt(bit) << (to % 64);
    }
}

bool isInput(const BlockWriter &writer) {
    const ValueRef type = writer.param(A_MM_REGISTER_TYPE);
    if (!(type == A_MM_REGISTER_TYPE_INPUT) && !(type == A_MM_REGISTER_TYPE_OUTPUT)) {
        writer.fail("the register is neither an input nor an output of the design");
    }
    return type == A_MM_REGISTER_TYPE_INPUT;
}

/// Data and enable of what the design writes into a word: fields beside each other, zero where nobody writes.
std::pair<Leaf, Leaf> designWrite(std::vector<BlockWriter> &blocks, Bus &bus) {
    std::vector<Leaf> enables;
    std::vector<Operand> words;
    for (BlockWriter &writer : blocks) {
        const Signal data = writer.in(A_MM_REGISTER_PORT_DATA);
        if (!data.known()) {
            continue;
        }
        const Field field = fieldOf(writer, bus.dataWidth());
        const Signal enable = writer.in(A_MM_REGISTER_PORT_WRITE_ENABLE);
        enables.push_back(enable.known() ? truth(writer, enable.first) : one(writer));
        const Leaf bits = bitsOf(writer, data.first, 0, {field.width, 0, false, false});
        const Leaf placed = writer.temporary(bus.word());
        writer.emit(placed, -field.low, {writer.raw(bits)}, sumKernel);
        const Leaf gated = writer.temporary(bus.word());
        emitMux(writer, gated, enables.back(), {zero(writer), placed});
        words.push_back(writer.raw(gated));
    }
    BlockWriter &writer = blocks.front();
    const Leaf data = writer.temporary(bus.word());
    if (!words.empty()) {
        writer.emit(data, 0, words, [](const Op &op) { return logicKernel(op, Logic::Or); });
    }
    return {data, emitBit(writer, Logic::Or, enables)};
}

/// The fields at one address share one word.
void writeWord(std::int64_t address, std::vector<BlockWriter> &blocks, Bus &bus) {
    BlockWriter &writer = blocks.front();
    const bool ofInput = isInput(writer);
    bool reads = false;
    bool writes = false;
    const std::uint32_t words = wordsFor(static_cast<std::uint32_t>(bus.dataWidth()));
    std::vector<std::uint64_t> initial(words, 0);
    for (BlockWriter &block : blocks) {
        if (isInput(block) != ofInput) {
            block.fail("an input and an output of the design share an address");
        }
        reads = reads || busReads(block);
        writes = writes || busWrites(block);
        if (ofInput) {
            addInitial(block, fieldOf(block, bus.dataWidth()), initial);
        }
    }
    const std::uint32_t state = writer.state(words);
    for (std::uint32_t word = 0; word < words; ++word) {
        writer.setInitial(state + word, initial[word]);
    }
    const Leaf held = writer.temporary(bus.word());
    writer.emitFromState(held, state, words, {}, readState);
    Leaf hit = 0;
    if (reads || (writes && ofInput)) {
        hit = writer.temporary(kBit);
        emitCompare(writer, hit, bus.address(), integerLeaf(writer, address), Relation::Equal);
    }
    if (ofInput && writes) {
        writer.commit(state, words, {writer.raw(bus.writeData()), writer.raw(both(writer, hit, bus.write()))},
                      writeState);
    } else if (!ofInput) {
        const auto [data, enable] = designWrite(blocks, bus);
        writer.commit(state, words, {writer.raw(data), writer.raw(enable)}, writeState);
    }
    if (reads) {
        bus.answer(both(writer, hit, bus.read()), held);
    }
    for (BlockWriter &block : blocks) {
        if (const Signal out = block.out(A_MM_REGISTER_WIRE_DATA); out.known()) {
            const Field field = fieldOf(block, bus.dataWidth());
            const Leaf bits = bitsOf(block, held, field.low, {field.width, 0, false, false});
            block.emit(out.first, 0, {block.raw(bits)}, sumKernel);
        }
    }
}

/// Whether the address on the bus is one of a memory, and the number of the element there.
std::pair<Leaf, Leaf> decode(BlockWriter &writer, Bus &bus, std::int64_t size) {
    if (const TupleValueRef map = tupleVR(writer.param(A_SHARED_MEM_ADDR_MAP))) {
        std::vector<Leaf> hits;
        Leaf index = integerLeaf(writer, 0);
        for (std::size_t i = map->size(); i-- > 0;) {
            const NumberValueRef number = numberVR(map->at(i));
            if (!number || !number->isInt()) {
                writer.fail("the list of addresses holds no number");
            }
            hits.push_back(writer.temporary(kBit));
            emitCompare(writer, hits.back(), bus.address(), integerLeaf(writer, number->toInt()), Relation::Equal);
            const Leaf chosen = writer.temporary({64, 0, true, false});
            emitMux(writer, chosen, hits.back(), {index, integerLeaf(writer, static_cast<std::int64_t>(i))});
            index = chosen;
        }
        return {emitBit(writer, Logic::Or, hits), index};
    }
    const Leaf offset = writer.temporary({64, 0, true, false});
    emitSum(writer, offset, {bus.address(), integerLeaf(writer, baseAddress(writer))}, {false, true});
    const Leaf isNotBelow = writer.temporary(kBit);
    const Leaf isNotAbove = writer.temporary(kBit);
    emitCompare(writer, isNotBelow, offset, integerLeaf(writer, 0), Relation::GreaterEqual);
    emitCompare(writer, isNotAbove, offset, integerLeaf(writer, size), Relation::Less);
    return {both(writer, isNotBelow, isNotAbove), offset};
}

/// A memory between the design and the bus: gives the hit and the word read.
std::pair<Leaf, Leaf> writeMemoryBlock(BlockWriter &writer, Bus &bus) {
    const Side design{writer.in(A_SHARED_MEM_PORT_ADDR), writer.in(A_SHARED_MEM_PORT_DATA),
                      writer.in(A_SHARED_MEM_PORT_WRITE_ENABLE), writer.in(A_SHARED_MEM_PORT_READ),
                      writer.out(A_SHARED_MEM_WIRE_DATA)};
    const SignalType *type = writer.types().of(PureValueRef(writer.param(A_SHARED_MEM_OUTPUT_TYPE)));
    for (const Signal &signal : {design.out, design.data}) {
        type = type == nullptr ? signal.type : type;
    }
    const std::int64_t size = writer.integer(A_SHARED_MEM_SIZE, 0);
    if (type == nullptr || type->leaves != 1 || type->scalar.isFloat || size < 1 ||
        (design.out.known() && design.out.type != type) || (design.data.known() && design.data.type != type)) {
        writer.fail("a shared memory holds single fixed-point numbers, of its output type, and at least one");
    }
    const auto dataWidth = static_cast<std::uint32_t>(bus.dataWidth());
    const ScalarType &element = type->scalar;
    const bool isSlice = writer.isTrue(A_SHARED_MEM_SLICE);
    const std::int64_t low = isSlice ? writer.integer(A_SHARED_MEM_LSB, 0) : 0;
    if (low < 0 || low + element.width > dataWidth || (!isSlice && element.width * 2 == dataWidth)) {
        writer.fail("elements of " + std::to_string(element.width) + " bits on a bus of " + std::to_string(dataWidth) +
                    " have no meaning here");
    }
    const auto content = contentOf(writer, tupleVR(writer.param(A_SHARED_MEM_INITIAL_DATA)), element, 0, 1);
    const auto [state, words] = memoryOf(writer, size * std::int64_t{element.width}, content);
    const auto [hit, index] = decode(writer, bus, size);
    const bool isOfBus = !(writer.param(A_BUS_ACCESS_MODE) == A_BUS_ACCESS_CONSTANT);
    const bool isReadOnly = writer.param(A_BUS_ACCESS_MODE) == A_BUS_ACCESS_READ;

    std::vector<Operand> writes;
    if (design.out.known()) {
        requireFixed(writer, design.address, "the address");
        emitRead(writer, design, design.out.first, 0, state, words);
    }
    if (design.data.known() && design.write.known()) {
        requireFixed(writer, design.address, "the address");
        writes = {writer.raw(truth(writer, design.write.first)), writer.raw(design.address.first),
                  writer.raw(design.data.first)};
    }
    if (isOfBus && !isReadOnly) {
        const Leaf data = bitsOf(writer, bus.writeData(), static_cast<int>(low), element);
        for (const Leaf leaf : {both(writer, hit, bus.write()), index, data}) {
            writes.push_back(writer.raw(leaf));
        }
    }
    commitWrites(writer, state, words, std::move(writes));
    const Leaf read = writer.temporary({element.width, 0, element.isSigned, false});
    const Operand beyond = writer.raw(writer.unknown(writer.scalar(read)));
    writer.emitFromState(read, state, words, {writer.raw(index), beyond}, readMemory);
    // A slice lies between zeros; a whole element is extended by its sign.
    const Leaf bits = isSlice ? bitsOf(writer, read, 0, {element.width, 0, false, false}) : read;
    const Leaf placed = writer.temporary(bus.word());
    writer.emit(placed, -static_cast<int>(low), {writer.raw(bits)}, sumKernel);
    return {hit, placed};
}

/// The addresses of memories. Only slices of the same words may share theirs.
class AddressRanges {
  public:
    void take(const BlockWriter &writer) {
        const std::int64_t base = baseAddress(writer);
        const std::int64_t end = base + writer.integer(A_SHARED_MEM_SIZE, 0);
        const bool isSlice = writer.isTrue(A_SHARED_MEM_SLICE);
        const auto next = mTaken.lower_bound(base);
        const bool isShared = next != mTaken.end() && next->first == base && isSlice && next->second.isSlice;
        const bool meetsNext = next != mTaken.end() && !isShared && next->first < end;
        if (meetsNext || (next != mTaken.begin() && std::prev(next)->second.end > base)) {
            writer.fail("another memory has some of its addresses on the bus");
        }
        Range &range = mTaken[base];
        range = {std::max(range.end, end), isSlice};
    }

  private:
    struct Range {
        std::int64_t end = 0;
        bool isSlice = false;
    };
    std::map<std::int64_t, Range> mTaken;
};

/// Slices at one address answer together.
void writeMemories(std::vector<BlockWriter> &memories, Bus &bus) {
    std::map<std::int64_t, std::vector<std::size_t>> byBase;
    std::vector<std::pair<Leaf, Leaf>> answers;
    AddressRanges ranges;
    for (std::size_t i = 0; i < memories.size(); ++i) {
        BlockWriter &writer = memories[i];
        const bool isMapped = static_cast<bool>(tupleVR(writer.param(A_SHARED_MEM_ADDR_MAP)));
        if (!isMapped) {
            ranges.take(writer);
        }
        answers.push_back(writeMemoryBlock(writer, bus));
        if (writer.param(A_BUS_ACCESS_MODE) == A_BUS_ACCESS_CONSTANT ||
            writer.param(A_BUS_ACCESS_MODE) == A_BUS_ACCESS_WRITE) {
            continue;
        }
        if (isMapped || !writer.isTrue(A_SHARED_MEM_SLICE)) {
            bus.answer(both(writer, answers[i].first, bus.read()), answers[i].second);
        } else {
            byBase[baseAddress(writer)].push_back(i);
        }
    }
    for (const auto &[base, slices] : byBase) {
        BlockWriter &writer = memories[slices.front()];
        std::vector<Operand> parts;
        std::vector<Leaf> hits;
        for (const std::size_t i : slices) {
            const Leaf gated = writer.temporary(bus.word());
            emitMux(writer, gated, answers[i].first, {zero(writer), answers[i].second});
            parts.push_back(writer.raw(gated));
            hits.push_back(answers[i].first);
        }
        const Leaf joined = writer.temporary(bus.word());
        writer.emit(joined, 0, parts, [](const Op &op) { return logicKernel(op, Logic::Or); });
        bus.answer(both(writer, emitBit(writer, Logic::Or, hits), bus.read()), joined);
    }
}

/// A plain view of the bus: what it gives is one more answer or, alone on its bus, what the bus reads.
void writeSignals(BlockWriter &writer, Bus *bus) {
    const std::pair<const StaticString *, const StaticString *> wires[] = {
        {&A_BUS_SIGNALS_WIRE_ADDR, &A_SARNET_MM_ADDRESS},
        {&A_BUS_SIGNALS_WIRE_DATA, &A_SARNET_MM_WRITEDATA},
        {&A_BUS_SIGNALS_WIRE_WRITE_ENABLE, &A_SARNET_MM_WRITE}};
    const auto named = [&writer](const StaticString &signal) {
        return interfaceSignal(writer, A_SARNET_MM_INTERFACE_NAME, PureValueRef(signal));
    };
    for (const auto &[wire, signal] : wires) {
        if (const Signal out = writer.out(*wire); out.known()) {
            convertSignal(writer, out, writer.outside(named(*signal), *out.type));
        }
    }
    const Signal data = writer.in(A_BUS_SIGNALS_PORT_DATA);
    const Signal valid = writer.in(A_BUS_SIGNALS_PORT_VALID);
    if (bus == nullptr) {
        for (const auto &[signal, key] :
             {std::pair(data, &A_SARNET_MM_READDATA), std::pair(valid, &A_SARNET_MM_READDATAVALID)}) {
            if (signal.known()) {
                writer.show(named(*key), signal);
            }
        }
    } else if (data.known() && valid.known()) {
        requireFixed(writer, data, "the data");
        requireFixed(writer, valid, "valid");
        bus->answer(truth(writer, valid.first), bitsOf(writer, data.first, 0, bus->word()));
    }
}

void join(BlockWriter &writer) {
    writer.joinBus(interfaceSignal(writer, A_SARNET_MM_INTERFACE_NAME, PureValueRef(A_SARNET_MM_ADDRESS)));
}

/// A register that the bus does not reach is a constant.
void writeRegisterBlock(BlockWriter &writer) {
    if (!(writer.param(A_BUS_ACCESS_MODE) == A_BUS_ACCESS_CONSTANT)) {
        join(writer);
    } else if (const Signal out = writer.out(A_MM_REGISTER_WIRE_DATA); out.known()) {
        const ValueRef value = writer.param(A_MM_REGISTER_INITIAL_VALUE);
        writer.constant(out, value ? value : ValueRef(NumberValue::get(0, writer.context())));
    }
}

const BlockRow kRows[] = {
    {&A_MM_REGISTER_BLOCK, writeRegisterBlock},
    {&A_SHARED_MEM_BLOCK, join},
    {&A_BUS_SIGNALS_BLOCK, join},
};

} // namespace

void writeBus(std::vector<BlockWriter> &users) {
    if (users.size() == 1 && isOf(users.front(), A_BUS_SIGNALS_BLOCK)) {
        writeSignals(users.front(), nullptr);
        return;
    }
    Bus bus(users.front());
    std::map<std::int64_t, std::vector<BlockWriter>> registers;
    std::vector<BlockWriter> memories;
    for (BlockWriter &user : users) {
        if (isOf(user, A_MM_REGISTER_BLOCK)) {
            registers[baseAddress(user)].push_back(user);
        } else if (isOf(user, A_SHARED_MEM_BLOCK)) {
            memories.push_back(user);
        }
    }
    for (auto &[address, blocks] : registers) {
        writeWord(address, blocks, bus);
    }
    writeMemories(memories, bus);
    for (BlockWriter &user : users) {
        if (isOf(user, A_BUS_SIGNALS_BLOCK)) {
            writeSignals(user, &bus);
        }
    }
    bus.finish();
}

std::span<const BlockRow> busRows() { return kRows; }

} // namespace orvo::sim
