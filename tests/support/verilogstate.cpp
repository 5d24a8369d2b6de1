// Blocks with state, and tables, as Verilog.
#include "support/verilogwriter.h"

#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>

namespace orvo::test {

namespace {

/// A register of the shape of the net, with what it holds before the first cycle.
Net registerLike(VerilogText &text, const Net &shape, const std::string &initial) {
    Net made = shape;
    made.text = text.freshName("r");
    text.add("reg " + range(made) + made.text + " = " + initial + ";");
    return made;
}

void onClock(VerilogText &text, const std::string &statement) { text.add("always @(posedge clk) " + statement); }

/// A control's text; true where it is absent.
std::string truthAt(const NetSignal &control, int lane) { return control.known() ? truth(*control.at(lane)) : "1'b1"; }

void writeDelay(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const std::int64_t length = block.integer(A_DELAY_LENGTH, 0);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        std::string source = in.at(lane, part)->text;
        for (std::int64_t i = 0; i < length; ++i) {
            const Net stage = registerLike(block.text, net, "0");
            onClock(block.text, stage.text + " <= " + source + ";");
            source = stage.text;
        }
        block.text.assign(net, source);
    });
}

/// A number alone has no imaginary part.
std::string initialOf(VerilogBlock &block, const StaticString &key, int scalar, int part, const Net &type) {
    if (part == 1 && !tupleVR(block.param(key))) {
        return "0";
    }
    const NumberValueRef number = block.number(key, scalar);
    return number ? literal(number, type).text : "0";
}

void writeRegister(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const NetSignal enable = block.in(A_REGISTER_PORT_ENABLE);
    int scalar = 0;
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        const Net state = registerLike(block.text, net, initialOf(block, A_REGISTER_INIT_VALUE, scalar++, part, net));
        onClock(block.text,
                fmt::format("if ({}) {} <= {};", truthAt(enable, lane), state.text, in.at(lane, part)->text));
        block.text.assign(net, state.text);
    });
}

void writeSyncRegister(VerilogBlock &block) {
    const NetSignal in = block.need(A_SYNC_REGISTER_PORT_ICLK_DATA);
    const NetSignal enable = block.need(A_SYNC_REGISTER_PORT_ICLK_ENABLE);
    const NetSignal outs[] = {block.out(A_SYNC_REGISTER_WIRE_ICLK_DATA), block.out(A_SYNC_REGISTER_WIRE_OCLK_DATA)};
    int scalar = 0;
    forEachNet(in, [&](int lane, int part, const Net &net) {
        const Net state =
            registerLike(block.text, net, initialOf(block, A_SYNC_REGISTER_INIT_VALUE, scalar++, part, net));
        onClock(block.text, fmt::format("if ({}) {} <= {};", truth(*enable.at(0)), state.text, net.text));
        for (const NetSignal &out : outs) {
            if (out.known()) {
                block.text.assign(*out.at(lane, part), state.text);
            }
        }
    });
    forEachNet(block.out(A_SYNC_REGISTER_WIRE_OCLK_VALID), [&](int, int, const Net &net) {
        const Net state = registerLike(block.text, {"", 1, 0, false}, "0");
        onClock(block.text, state.text + " <= " + truth(*enable.at(0)) + ";");
        block.text.assign(net, state.text);
    });
}

/// The value modulo the limit, at least zero.
Net modulo(VerilogText &text, const Net &value, const Net &limit) {
    const Net rest = text.define({"", std::max(value.width, limit.width) + 1, value.fraction, true},
                                 value.text + " % " + limit.text);
    return text.define(rest, fmt::format("{0} < 0 ? {0} + {1} : {0}", rest.text, limit.text));
}

/// The state and the step modulo the limit while enabled; the output is the next state.
template <bool isPulse> void writeCounter(VerilogBlock &block) {
    constexpr int kWidth = 72;
    const NetSignal enable = block.in(A_PORT_ENABLE);
    forEachNet(block.out(), [&](int lane, int, const Net &net) {
        const std::int64_t step = block.integerAt(A_COUNTER_STEP, lane, 1);
        const Net state = registerLike(block.text, {"", kWidth, 0, true},
                                       literal(block.integerAt(A_COUNTER_INITIAL, lane, 0), kWidth).text);
        const Net sum = block.text.define(state, state.text + " + " + literal(isPulse ? 1 : step, kWidth).text);
        const Net limit = literal(block.integerAt(A_COUNTER_LIMIT, lane, 0), kWidth);
        const Net next = block.text.define(
            state, fmt::format("{} ? {} : {}", truthAt(enable, lane), modulo(block.text, sum, limit).text, state.text));
        onClock(block.text, state.text + " <= " + next.text + ";");
        block.text.assign(net, isPulse ? next.text + " < " + literal(step, kWidth).text : next.text);
    });
}

void writeLoadableCounter(VerilogBlock &block) {
    const NetSignal load = block.need(0);
    const NetSignal initial = block.need(1);
    const NetSignal step = block.need(2);
    const NetSignal limit = block.need(3);
    const NetSignal enable = block.in(A_PORT_ENABLE);
    forEachNet(block.out(), [&](int lane, int, const Net &net) {
        const Net state = registerLike(block.text, net, "0");
        const int fraction = commonFraction({state, *step.at(lane), *limit.at(lane)});
        const std::vector<Net> values = block.text.aligned({state, *step.at(lane), *limit.at(lane)}, fraction);
        const Net sum = block.text.define({"", std::max(values[0].width, values[1].width) + 1, fraction, true},
                                          values[0].text + " + " + values[1].text);
        const Net rest = modulo(block.text, sum, values[2]);
        // Both in the output's type.
        const auto brought = [&](const Net &value) {
            const Net made{block.text.freshName("s"), net.width, net.fraction, net.isSigned};
            block.text.add("wire " + range(made) + made.text + ";");
            block.text.drive(made, value);
            return made.text;
        };
        const std::string stepped = brought(rest);
        const std::string loaded = brought(*initial.at(lane));
        block.text.assign(net, fmt::format("{} ? {} : {} ? {} : {}", truth(*load.at(lane)), loaded,
                                           truthAt(enable, lane), stepped, state.text));
        onClock(block.text, state.text + " <= " + net.text + ";");
    });
}

/// One level of a nest of loops: what it shows in this cycle.
struct Level {
    Net count;
    Net limit;
    std::string isLast;
    Net countState;
    Net limitState;
};

void writeLoop(VerilogBlock &block) {
    Context *context = block.block().getContext();
    const auto keyed = [context](const StaticString &key, int level) {
        return PureValueRef(PureTupleValue::get(key, NumberValue::get(level, context), context));
    };
    VerilogText &text = block.text;
    const std::string go = truth(*block.need(A_LOOP_PORT_GO).at(0));
    const std::string enable = truthAt(block.in(A_LOOP_PORT_ENABLE), 0);
    const Net flag{"", 1, 0, false};
    const Net running = registerLike(text, flag, "0");
    std::vector<Level> levels;
    std::string canStart;
    for (int i = 0; block.in(keyed(A_LOOP_PORT_LIMIT, i)).known(); ++i) {
        const Net given = *block.in(keyed(A_LOOP_PORT_LIMIT, i)).at(0);
        const Net shape{"", given.width + 1, 0, false};
        Level level;
        level.countState = registerLike(text, shape, "0");
        level.limitState = registerLike(text, shape, "0");
        level.limit = text.define(shape, fmt::format("{} ? {} : {}", go, given.text, level.limitState.text));
        level.count = text.define(shape, fmt::format("{} ? 0 : {}", go, level.countState.text));
        level.isLast = text.define(flag, fmt::format("{} + 1 == {}", level.count.text, level.limit.text)).text;
        canStart += (i == 0 ? "" : " && ") + truth(given);
        levels.push_back(level);
    }
    const Net valid = text.define(flag, fmt::format("{} ? ({}) : {}", go, canStart, running.text));
    // From the innermost level outward, as digits carry.
    Net carry = text.define(flag, valid.text + " && " + enable);
    for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
        onClock(text, fmt::format("{} <= {} ? ({} ? 0 : {} + 1) : {};", level->countState.text, carry.text,
                                  level->isLast, level->count.text, level->count.text));
        onClock(text, fmt::format("{} <= {};", level->limitState.text, level->limit.text));
        carry = text.define(flag, carry.text + " && " + level->isLast);
    }
    onClock(text, fmt::format("{} <= {} && !{};", running.text, valid.text, carry.text));
    const auto show = [&](const NetSignal &out, const std::string &expression) {
        if (out.known()) {
            text.assign(out.nets[0], valid.text + " ? " + expression + " : 0");
        }
    };
    show(block.out(A_LOOP_WIRE_VALID), "1'b1");
    for (int i = 0; i < static_cast<int>(levels.size()); ++i) {
        const Level &level = levels[static_cast<std::size_t>(i)];
        show(block.out(keyed(A_LOOP_WIRE_VALUE, i)), level.count.text);
        show(block.out(keyed(A_LOOP_WIRE_FIRST_ITER, i)), "(" + level.count.text + " == 0)");
        show(block.out(keyed(A_LOOP_WIRE_LAST_ITER, i)), level.isLast);
    }
}

/// The entry at the address as a pattern; beyond the data zero.
void writeTable(VerilogBlock &block) {
    const NetSignal address = block.need(A_LUT_PORT_ADDR);
    const TupleValueRef data = tupleVR(block.param(A_LUT_DATA));
    const NetSignal out = block.out();
    const Net &from = *address.at(0);
    std::string text;
    for (std::size_t i = 0; i < data->size() && (from.width > 31 || i >> from.width == 0); ++i) {
        text += fmt::format("{{{}}} == {} ? {} : ", from.text, i, literal(numberVR(data->at(i)), out.nets.at(0)).text);
    }
    block.text.assign(out.nets.at(0), text + literal(0, out.nets.at(0).width).text);
}

struct QueueKeys {
    const StaticString *write;
    const StaticString *acknowledge;
    const StaticString *flush;
};

/// One queue for each lane of the controls.
void writeQueue(VerilogBlock &block, const QueueKeys &keys) {
    VerilogText &text = block.text;
    const NetSignal data = block.need(A_FIFO_PORT_DATA);
    const NetSignal write = block.need(*keys.write);
    const NetSignal acknowledge = block.need(*keys.acknowledge);
    const NetSignal flush = keys.flush == nullptr ? NetSignal() : block.in(*keys.flush);
    const NetSignal out = block.out(A_FIFO_WIRE_DATA);
    const int lanes = std::max(write.lanes(), acknowledge.lanes());
    if (lanes > 1 && lanes != data.lanes()) {
        block.fail("a queue of lanes keeps as many elements");
    }
    for (int lane = 0; lane < lanes; ++lane) {
        const std::int64_t depth = block.integerAt(A_FIFO_DEPTH, lane, 1);
        const Net number{"", 32, 0, false};
        const Net count = registerLike(text, number, "0");
        const Net head = registerLike(text, number, "0");
        const Net push =
            text.define({"", 1, 0, false}, fmt::format("{} && {} < {}", truth(*write.at(lane)), count.text, depth));
        const Net pop =
            text.define({"", 1, 0, false}, fmt::format("{} && {} != 0", truth(*acknowledge.at(lane)), count.text));
        for (int i = 0; i < static_cast<int>(data.nets.size()); ++i) {
            if (lanes > 1 && i / data.element != lane) {
                continue;
            }
            const Net &source = data.nets[static_cast<std::size_t>(i)];
            const std::string entries = text.freshName("m");
            text.add(fmt::format("reg {}{} [0:{}];", range(source), entries, depth - 1));
            onClock(text, fmt::format("if ({}) {}[({} + {}) % {}] <= {};", push.text, entries, head.text, count.text,
                                      depth, source.text));
            if (out.known()) {
                text.assign(
                    out.nets.at(static_cast<std::size_t>(i)),
                    fmt::format("{} != 0 ? {}[{}] : {}", count.text, entries, head.text, unknownBits(source.width)));
            }
        }
        onClock(text, fmt::format("{} <= ({} + {}) % {};", head.text, head.text, pop.text, depth));
        onClock(text, fmt::format("{} <= {} ? 0 : {} + {} - {};", count.text,
                                  flush.known() ? truth(*flush.at(lane)) : "1'b0", count.text, push.text, pop.text));
        const std::pair<const StaticString *, std::string> flags[] = {
            {&A_FIFO_WIRE_VALID, "!= 0"},
            {&A_FIFO_WIRE_LOW, fmt::format("<= {}", block.integerAt(A_FIFO_LOW_THRESHOLD, lane, 0))},
            {&A_FIFO_WIRE_HIGH, fmt::format(">= {}", block.integerAt(A_FIFO_HIGH_THRESHOLD, lane, depth))}};
        for (const auto &[wire, relation] : flags) {
            if (const NetSignal shown = block.out(*wire); shown.known()) {
                text.assign(*shown.at(lane), count.text + " " + relation);
            }
        }
    }
}

void writeFifo(VerilogBlock &block) {
    writeQueue(block, {&A_FIFO_PORT_WRITE_EN, &A_FIFO_PORT_READ_ACK, &A_FIFO_PORT_FLUSH});
}

void writeFifoDelay(VerilogBlock &block) { writeQueue(block, {&A_PORT_WRITE, &A_PORT_READY, nullptr}); }

/// One side of a memory.
struct Side {
    NetSignal address;
    NetSignal data;
    NetSignal write;
    NetSignal read;
    NetSignal out;
    int width = 0;
};

/// An array of the narrower elements, of which the wider side sees several at a time, the low ones at even addresses.
/// What both sides write at once is x.
void writeDualMemory(VerilogBlock &block) {
    VerilogText &text = block.text;
    Side sides[2] = {
        {block.in(A_DUAL_MEM_PORT_ADDR1), block.in(A_DUAL_MEM_PORT_DATA1), block.in(A_DUAL_MEM_PORT_WRITE1_EN),
         block.in(A_DUAL_MEM_PORT_READ1), block.out(A_DUAL_MEM_WIRE_DATA1)},
        {block.in(A_DUAL_MEM_PORT_ADDR2), block.in(A_DUAL_MEM_PORT_DATA2), block.in(A_DUAL_MEM_PORT_WRITE2_EN),
         block.in(A_DUAL_MEM_PORT_READ2), block.out(A_DUAL_MEM_WIRE_DATA2)}};
    int unit = 0;
    for (Side &side : sides) {
        const NetSignal &element = side.out.known() ? side.out : side.data;
        if (element.known()) {
            if (element.nets.size() != 1) {
                block.fail("the elements are no real scalars");
            }
            side.width = element.nets[0].width;
            unit = unit == 0 ? side.width : std::min(unit, side.width);
        }
    }
    // The content stands in elements of one side, or, as the alternative, of the other.
    const bool isAlternative = !block.param(A_DUAL_MEM_DATA);
    const TupleValueRef data = tupleVR(block.param(isAlternative ? A_DUAL_MEM_ALT_PORT_DATA : A_DUAL_MEM_DATA));
    const bool isSecond = (block.param(A_DUAL_MEM_DATA_TYPE_IS_DATA1) == A_FALSE) != isAlternative;
    const Side &dataSide = sides[isSecond ? 1 : 0];
    const std::int64_t entries = data ? static_cast<std::int64_t>(data->size()) : 0;
    const std::int64_t units =
        std::max({block.integer(A_DUAL_MEM_DEPTH1, 0) * sides[0].width / unit,
                  block.integer(A_DUAL_MEM_DEPTH2, 0) * sides[1].width / unit, entries * dataSide.width / unit});
    const std::string memory = text.freshName("m");
    text.add(fmt::format("reg [{}:0] {} [0:{}];", unit - 1, memory, units - 1));
    std::vector<std::string> content(
        static_cast<std::size_t>(units),
        std::string(static_cast<std::size_t>(unit), block.isTrue(A_MEM_UNINIT) ? 'x' : '0'));
    for (std::int64_t i = 0; i < entries; ++i) {
        const Net type = (dataSide.out.known() ? dataSide.out : dataSide.data).nets.at(0);
        const std::string whole = literal(numberVR(data->at(static_cast<std::size_t>(i))), type).text;
        const auto each = static_cast<std::size_t>(unit);
        const std::size_t parts = static_cast<std::size_t>(type.width) / each;
        for (std::size_t part = 0; part < parts; ++part) {
            // The lowest bits stand at the end of the text.
            content[static_cast<std::size_t>(i) * parts + part] = whole.substr(whole.size() - (part + 1) * each, each);
        }
    }
    for (std::size_t i = 0; i < content.size(); ++i) {
        text.add(fmt::format("initial {}[{}] = {}'b{};", memory, i, unit, content[i]));
    }
    for (int i = 0; i < 2; ++i) {
        const Side &side = sides[i];
        if (!side.address.known()) {
            continue;
        }
        const int parts = side.width / unit;
        const Net &address = side.address.nets[0];
        const auto placeOf = [&](int part) {
            return fmt::format("({{32'd0, {}}} * {} + {})", address.text, parts, part);
        };
        if (side.out.known()) {
            std::string whole;
            for (int part = parts; part-- > 0;) {
                whole += fmt::format("{}{}[{}]", whole.empty() ? "" : ", ", memory, placeOf(part));
            }
            const Net &out = side.out.nets[0];
            std::string shown = "{" + whole + "}";
            if (side.read.known()) {
                const Net held = registerLike(text, out, "0");
                shown = fmt::format("{} ? {} : {}", truth(side.read.nets[0]), shown, held.text);
                onClock(text, held.text + " <= " + out.text + ";");
            }
            text.assign(out, shown);
        }
        if (side.write.known() && side.data.known()) {
            const Side &other = sides[1 - i];
            for (int part = 0; part < parts; ++part) {
                std::string meets;
                for (int j = 0; other.write.known() && other.data.known() && j < other.width / unit; ++j) {
                    meets += fmt::format("{}({} && {{32'd0, {}}} * {} + {} == {})", meets.empty() ? "" : " || ",
                                         truth(other.write.nets[0]), other.address.nets[0].text, other.width / unit, j,
                                         placeOf(part));
                }
                const std::string value =
                    fmt::format("{}[{}:{}]", side.data.nets[0].text, (part + 1) * unit - 1, part * unit);
                onClock(text,
                        fmt::format("if ({}) {}[{}] <= {};", truth(side.write.nets[0]), memory, placeOf(part),
                                    meets.empty() ? value
                                                  : fmt::format("({}) ? {} : {}", meets, unknownBits(unit), value)));
            }
        }
    }
}

/// Output c holds the last data that came with valid and channel c, seen in the same cycle.
void writeDemux(VerilogBlock &block) {
    const NetSignal data = block.need(A_DEMUX_PORT_DATA);
    const NetSignal valid = block.need(A_PORT_VALID);
    const NetSignal channel = block.need(A_PORT_CHANNEL);
    for (int number = 0; number < block.integer(A_DEMUX_CHANNEL_COUNT, 0); ++number) {
        forEachNet(block.out(number), [&](int lane, int part, const Net &net) {
            const Net held = registerLike(block.text, net, "0");
            block.text.assign(net, fmt::format("{} && {{{}}} == {} ? {} : {}", truth(*valid.at(0)), channel.at(0)->text,
                                               number, data.at(lane, part)->text, held.text));
            onClock(block.text, held.text + " <= " + net.text + ";");
        });
    }
}

const VerilogRow kRows[] = {
    {&A_DELAY_BLOCK, writeDelay},
    {&A_REGISTER_BLOCK, writeRegister},
    {&A_SYNC_REGISTER_BLOCK, writeSyncRegister},
    {&A_COUNTER_BLOCK, writeCounter<false>},
    {&A_SEQUENCE_BLOCK, writeCounter<true>},
    {&A_LD_COUNTER_BLOCK, writeLoadableCounter},
    {&A_LOOP_BLOCK, writeLoop},
    {&A_LUT_BLOCK, writeTable},
    {&A_FIFO_BLOCK, writeFifo},
    {&A_FIFO_DELAY_BLOCK, writeFifoDelay},
    {&A_DUAL_MEM_BLOCK, writeDualMemory},
    {&A_DEMUX_BLOCK, writeDemux},
};

} // namespace

std::span<const VerilogRow> stateVerilog() { return kRows; }

} // namespace orvo::test
