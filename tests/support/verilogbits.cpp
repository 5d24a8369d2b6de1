// Blocks on bits, and shifts, as Verilog.
#include "support/verilogwriter.h"

#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>

namespace orvo::test {

namespace {

Net netOrZero(const NetSignal &signal, int lane, int part) {
    const Net *net = signal.at(lane, part);
    return net != nullptr ? *net : literal(0, 1);
}

/// Operands stand in the output's type first; then their raw bits meet.
void writeLogic(VerilogBlock &block, const char *join, bool isNegated) {
    const std::vector<NetSignal> in = block.numbered();
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        std::string text;
        for (const NetSignal &signal : in) {
            Net operand = VerilogText::exact(netOrZero(signal, lane, part));
            if (const int drop = operand.fraction - net.fraction; drop != 0) {
                operand =
                    block.text.define({"", std::max(operand.width, net.width) + std::max(-drop, 0), 0, true},
                                      fmt::format("{} {} {}", operand.text, drop > 0 ? ">>>" : "<<<", std::abs(drop)));
            }
            text += (text.empty() ? "" : join) + operand.text;
        }
        block.text.assign(net, isNegated ? "~(" + text + ")" : text);
    });
}

void writeAnd(VerilogBlock &block) { writeLogic(block, " & ", false); }
void writeNand(VerilogBlock &block) { writeLogic(block, " & ", true); }
void writeOr(VerilogBlock &block) { writeLogic(block, " | ", false); }
void writeNor(VerilogBlock &block) { writeLogic(block, " | ", true); }
void writeXor(VerilogBlock &block) { writeLogic(block, " ^ ", false); }
void writeXnor(VerilogBlock &block) { writeLogic(block, " ^ ", true); }

/// Each scalar of the output from that of the input, by the text of an expression over both nets.
template <class Expression> void writeEach(VerilogBlock &block, Expression expression) {
    const NetSignal in = block.need(0);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        if (const Net *source = in.at(lane, part)) {
            block.text.assign(net, expression(*source, net));
        }
    });
}

void writeNot(VerilogBlock &block) { writeLogic(block, "", true); }

template <char first, char second = ' '> void writeReduce(VerilogBlock &block) {
    writeEach(block, [](const Net &source, const Net &) { return fmt::format("{}{}{}", first, second, source.text); });
}

std::string join(const std::vector<std::string> &bitsFromTheTop) {
    std::string text;
    for (const std::string &bits : bitsFromTheTop) {
        text += (text.empty() ? "" : ", ") + bits;
    }
    return "{" + text + "}";
}

void writeCountOnes(VerilogBlock &block) {
    writeEach(block, [](const Net &source, const Net &) {
        std::string text;
        for (int bit = 0; bit < source.width; ++bit) {
            text += fmt::format("{}{}[{}]", bit == 0 ? "" : " + ", source.text, bit);
        }
        // As wide as a number of 32 bits makes it.
        return "32'd0 + " + text;
    });
}

void writeReverse(VerilogBlock &block) {
    writeEach(block, [](const Net &source, const Net &) {
        std::vector<std::string> bits;
        for (int bit = 0; bit < source.width; ++bit) {
            bits.push_back(fmt::format("{}[{}]", source.text, bit));
        }
        return join(bits);
    });
}

/// Port 0 lowest.
void writeBitJoin(VerilogBlock &block) {
    const std::vector<NetSignal> in = block.numbered();
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        std::vector<std::string> bits;
        for (auto signal = in.rbegin(); signal != in.rend(); ++signal) {
            bits.push_back(netOrZero(*signal, lane, part).text);
        }
        block.text.assign(net, join(bits));
    });
}

/// All elements of one vector, element 0 lowest; several ports as in a plain join.
void writeBitJoinReduce(VerilogBlock &block) {
    const std::vector<NetSignal> in = block.numbered();
    const NetSignal out = block.out();
    if (in.size() > 1) {
        writeBitJoin(block);
        return;
    }
    std::vector<std::string> bits;
    for (auto net = in[0].nets.rbegin(); net != in[0].nets.rend(); ++net) {
        bits.push_back(net->text);
    }
    block.text.assign(out.nets.at(0), join(bits));
}

/// From the offset up; a negative one counts from the top. Above the input stands its sign.
void writeBitSelect(VerilogBlock &block) {
    const auto offset = static_cast<int>(block.integer(A_BIT_SELECT_BIT_OFFSET, 0));
    writeEach(block, [offset](const Net &source, const Net &) {
        return fmt::format("{} >>> {}", VerilogText::exact(source).text, offset < 0 ? source.width + offset : offset);
    });
}

void writeChooseBits(VerilogBlock &block) {
    const TupleValueRef offsets = tupleVR(block.param(A_CHOOSE_BITS_BIT_OFFSETS));
    writeEach(block, [&](const Net &source, const Net &) {
        std::vector<std::string> bits;
        for (std::size_t i = offsets->size(); i-- > 0;) {
            bits.push_back(fmt::format("{}[{}]", source.text, numberVR(offsets->at(i))->toInt()));
        }
        return join(bits);
    });
}

/// The bits are those of the value times, or in the special mode divided by, two to the places.
void writeRawShift(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const auto places = static_cast<int>(block.integer(A_RAW_SHIFT_VALUE, 0));
    const bool isSpecial = block.param(A_RAW_SHIFT_MODE) == A_RAW_SHIFT_MODE_SPECIAL_RIGHT;
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        Net moved = netOrZero(in, lane, part);
        moved.fraction += isSpecial ? places : -places;
        block.text.drive(net, moved);
    });
}

/// Up by the shift in as many bits as the output sees.
void writeBarrelLeft(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const NetSignal shift = block.need(A_BARREL_PORT_SHIFT);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        const Net value = VerilogText::exact(netOrZero(in, lane, part));
        const int width = std::max(value.width, net.width + std::max(value.fraction - net.fraction, 0));
        block.text.drive(net, block.text.define({"", width, value.fraction, true},
                                                fmt::format("{} <<< {}", value.text, shift.at(lane)->text)));
    });
}

/// Down by the shift in the output's fraction, where that is the finer one.
void writeBarrelRight(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const NetSignal shift = block.need(A_BARREL_PORT_SHIFT);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        const Net source = netOrZero(in, lane, part);
        const Net value = block.text.aligned(source, std::max(source.fraction, net.fraction));
        block.text.drive(net, block.text.define({"", value.width, value.fraction, true},
                                                fmt::format("{} >>> {}", value.text, shift.at(lane)->text)));
    });
}

/// The zeros above the highest one, and the input without them.
void writeNormalise(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const auto zerosOf = [&](const Net &source) {
        std::string text;
        for (int zeros = 0; zeros < source.width; ++zeros) {
            text += fmt::format("{}[{}] ? {} : ", source.text, source.width - 1 - zeros, zeros);
        }
        return block.text.define({"", 32, 0, false}, text + std::to_string(source.width));
    };
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        const Net source = netOrZero(in, lane, part);
        // The concatenation is a pattern of the input's width, which cuts what leaves it.
        const Net shifted = block.text.define({"", source.width, 0, false},
                                              fmt::format("{{{}}} << {}", source.text, zerosOf(source).text));
        block.text.assign(net, shifted.text);
    });
    forEachNet(block.out(A_PRIM_WIRE_AUX), [&](int lane, int part, const Net &net) {
        block.text.assign(net, zerosOf(netOrZero(in, lane, part)).text);
    });
}

void writeDecode(VerilogBlock &block) {
    const NetSignal address = block.need(A_DECODE_PORT_ADDR);
    const NetSignal enable = block.in(A_DECODE_PORT_WREN);
    const NumberValueRef wanted = numberVR(block.param(A_DECODE_ADDRESS));
    const auto matches = [&](int lane) {
        const Net value = VerilogText::exact(*address.at(lane));
        return fmt::format("({} == {})", value.text,
                           literal(wanted, {"", value.width + 32, value.fraction, true}).text);
    };
    forEachNet(block.out(A_DECODE_WIRE_MATCH),
               [&](int lane, int, const Net &net) { block.text.assign(net, matches(lane)); });
    forEachNet(block.out(A_DECODE_WIRE_WREN), [&](int lane, int, const Net &net) {
        block.text.assign(net, matches(lane) + " && " + truth(*enable.at(lane)));
    });
}

const VerilogRow kRows[] = {
    {&A_AND_BLOCK, writeAnd},
    {&A_NAND_BLOCK, writeNand},
    {&A_OR_BLOCK, writeOr},
    {&A_NOR_BLOCK, writeNor},
    {&A_XOR_BLOCK, writeXor},
    {&A_XNOR_BLOCK, writeXnor},
    {&A_NOT_BLOCK, writeNot},
    {&A_AND_REDUCE_BLOCK, writeReduce<'&'>},
    {&A_NAND_REDUCE_BLOCK, writeReduce<'~', '&'>},
    {&A_OR_REDUCE_BLOCK, writeReduce<'|'>},
    {&A_NOR_REDUCE_BLOCK, writeReduce<'~', '|'>},
    {&A_XOR_REDUCE_BLOCK, writeReduce<'^'>},
    {&A_XNOR_REDUCE_BLOCK, writeReduce<'~', '^'>},
    {&A_BIT_SELECT_BLOCK, writeBitSelect},
    {&A_BIT_JOIN_BLOCK, writeBitJoin},
    {&A_BIT_JOIN_REDUCE_BLOCK, writeBitJoinReduce},
    {&A_CHOOSE_BITS_BLOCK, writeChooseBits},
    {&A_REVERSE_BLOCK, writeReverse},
    {&A_BIT_COUNT_BLOCK, writeCountOnes},
    {&A_CTPOP_BLOCK, writeCountOnes},
    {&A_RAW_SHIFT_BLOCK, writeRawShift},
    {&A_BARREL_LEFT_BLOCK, writeBarrelLeft},
    {&A_BARREL_RIGHT_BLOCK, writeBarrelRight},
    {&A_BARREL_RIGHT_LZC_BLOCK, writeNormalise},
    {&A_DECODE_BLOCK, writeDecode},
};

} // namespace

std::span<const VerilogRow> bitVerilog() { return kRows; }

} // namespace orvo::test
