// Queues and memories in words.
#include "sim/memorykernels.h"

#include <algorithm>
#include <cstring>

namespace orvo::sim {

namespace {

QueueHeader headerOf(const std::uint64_t *words, const Op &op) {
    QueueHeader header;
    std::memcpy(&header, words + op.state, sizeof header);
    return header;
}

bool isTrue(const std::uint64_t *words, const Operand &control) {
    const std::uint64_t *from = words + control.at;
    return std::any_of(from, from + wordsFor(control.width), [](std::uint64_t word) { return word != 0; });
}

/// The bits of a value without what fills its last word up, one at a time.
bool bitAt(const std::uint64_t *from, std::uint64_t bit) { return (from[bit / 64] >> (bit % 64) & 1U) != 0; }

void setBit(std::uint64_t *to, std::uint64_t bit, bool value) {
    const std::uint64_t mask = std::uint64_t{1} << (bit % 64);
    to[bit / 64] = value ? to[bit / 64] | mask : to[bit / 64] & ~mask;
}

constexpr std::uint64_t kNowhere = ~std::uint64_t{0};

/// The first bit of the element at an address; all ones beyond the end.
std::uint64_t placeOf(const std::uint64_t *words, const Op &op, const Operand &address, std::uint32_t width) {
    const std::uint64_t *from = words + address.at;
    if (std::any_of(from + 1, from + wordsFor(address.width), [](std::uint64_t word) { return word != 0; })) {
        return kNowhere;
    }
    const std::uint64_t number = address.width < 64 ? *from & ((std::uint64_t{1} << address.width) - 1) : *from;
    const std::uint64_t bits = words[op.state];
    return width != 0 && number < bits / width ? number * width : kNowhere;
}

/// The bits of the element at an address, none beyond the end.
struct Range {
    std::uint64_t begin;
    std::uint64_t end;
};

Range rangeOf(const std::uint64_t *words, const Op &op, const Operand &address, std::uint32_t width) {
    const std::uint64_t place = placeOf(words, op, address, width);
    return place == kNowhere ? Range{0, 0} : Range{place, place + width};
}

} // namespace

void readQueue(std::uint64_t *words, const Op &op) {
    const QueueHeader header = headerOf(words, op);
    const std::uint32_t count = wordsFor(op.out.width);
    if (header.count == 0) {
        std::copy_n(words + op.in[0].at, count, words + op.out.at);
        return;
    }
    const std::uint64_t *entry = words + op.state + kQueueHeaderWords + header.head * header.entryWords;
    std::copy(entry + op.aux, entry + op.aux + count, words + op.out.at);
}

void readQueueFlag(std::uint64_t *words, const Op &op) {
    const QueueHeader header = headerOf(words, op);
    const bool flags[] = {header.count != 0, header.count <= header.low, header.count >= header.high};
    words[op.out.at] = flags[op.aux] ? 1 : 0;
}

void moveQueue(std::uint64_t *words, const Op &op) {
    QueueHeader header = headerOf(words, op);
    const bool wasFull = header.count >= header.depth;
    if (isTrue(words, op.in[0]) && !wasFull) {
        const std::uint64_t tail = (header.head + header.count) % header.depth;
        std::uint64_t *entry = words + op.state + kQueueHeaderWords + tail * header.entryWords;
        for (std::uint32_t i = 3; i < op.count; ++i) {
            const std::uint64_t *from = words + op.in[i].at;
            entry = std::copy(from, from + wordsFor(op.in[i].width), entry);
        }
    }
    const bool pops = isTrue(words, op.in[1]) && header.count != 0;
    const bool pushes = isTrue(words, op.in[0]) && !wasFull;
    header.head = pops ? (header.head + 1) % header.depth : header.head;
    header.count = header.count + (pushes ? 1 : 0) - (pops ? 1 : 0);
    if (isTrue(words, op.in[2])) {
        header.count = 0;
    }
    std::memcpy(words + op.state, &header, sizeof header);
}

void readMemory(std::uint64_t *words, const Op &op) {
    const Operand &out = op.out;
    std::uint64_t *to = words + out.at;
    const std::uint64_t *unknown = words + op.in[1].at;
    const std::uint64_t place = placeOf(words, op, op.in[0], out.width);
    if (place == kNowhere) {
        std::copy_n(unknown, wordsFor(out.width), to);
        return;
    }
    std::fill_n(to, wordsFor(out.width), 0);
    Range taken{0, 0};
    if (op.count > 2 && isTrue(words, op.in[2])) {
        taken = rangeOf(words, op, op.in[3], static_cast<std::uint32_t>(op.aux));
    }
    const std::uint64_t *content = words + op.state + kMemoryHeaderWords;
    for (std::uint32_t bit = 0; bit < out.width; ++bit) {
        const bool isTaken = place + bit >= taken.begin && place + bit < taken.end;
        setBit(to, bit, isTaken ? bitAt(unknown, bit) : bitAt(content, place + bit));
    }
    if (out.isSigned && out.width % 64 != 0 && bitAt(to, out.width - 1)) {
        to[out.width / 64] |= ~std::uint64_t{0} << (out.width % 64);
    }
}

void writeMemory(std::uint64_t *words, const Op &op) {
    std::uint64_t *content = words + op.state + kMemoryHeaderWords;
    Range written[2] = {{0, 0}, {0, 0}};
    for (std::uint32_t side = 0; side * 3 + 2 < op.count; ++side) {
        const Operand &data = op.in[side * 3 + 2];
        if (!isTrue(words, op.in[side * 3])) {
            continue;
        }
        const Range range = rangeOf(words, op, op.in[side * 3 + 1], data.width);
        written[side] = range;
        for (std::uint64_t place = range.begin; place < range.end; ++place) {
            setBit(content, place, bitAt(words + data.at, place - range.begin));
        }
    }
    // One side alone has no conflict, and so no input for one.
    const std::uint64_t begin = std::max(written[0].begin, written[1].begin);
    for (std::uint64_t bit = begin; bit < std::min(written[0].end, written[1].end); ++bit) {
        setBit(content, bit, bitAt(words + op.in[op.count - 1].at, bit - begin));
    }
}

} // namespace orvo::sim
