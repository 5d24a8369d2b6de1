// Words that last.
#include "sim/statekernels.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace orvo::sim {

namespace {

bool isTrue(const std::uint64_t *words, const Operand &control) {
    const std::uint64_t *from = words + control.at;
    return std::any_of(from, from + wordsFor(control.width), [](std::uint64_t word) { return word != 0; });
}

/// A missing control is true.
bool enabled(const std::uint64_t *words, const Op &op, std::uint32_t input) {
    return op.count <= input || isTrue(words, op.in[input]);
}

std::uint64_t nextCount(const std::uint64_t *words, const Op &op) {
    const auto count = static_cast<std::int64_t>(words[op.state]);
    const auto limit = static_cast<__int128>(static_cast<std::int64_t>(words[op.state + 1]));
    const auto step = static_cast<std::int64_t>(words[op.state + 2]);
    if (!enabled(words, op, 0) || limit == 0) {
        return words[op.state];
    }
    const __int128 next = (static_cast<__int128>(count) + step) % limit;
    return static_cast<std::uint64_t>(next < 0 ? next + limit : next);
}

/// The entry's bits as a value of the output.
void give(std::uint64_t *words, const Operand &out, std::uint64_t value) {
    words[out.at] = out.width < 64 ? value & ((std::uint64_t{1} << out.width) - 1) : value;
    if (out.isSigned && out.width != 0 && out.width < 64) {
        const std::uint32_t places = 64 - out.width;
        words[out.at] = static_cast<std::uint64_t>(static_cast<std::int64_t>(value << places) >> places);
    }
    std::fill(words + out.at + 1, words + out.at + wordsFor(out.width), 0);
}

} // namespace

void readState(std::uint64_t *words, const Op &op) {
    std::copy(words + op.state, words + op.state + op.stateWords, words + op.out.at);
}

void writeState(std::uint64_t *words, const Op &op) {
    if (enabled(words, op, 1)) {
        std::copy(words + op.in[0].at, words + op.in[0].at + op.stateWords, words + op.state);
    }
}

void readRing(std::uint64_t *words, const Op &op) {
    const std::uint32_t each = wordsFor(op.out.width);
    const std::uint64_t *entry = words + op.state + 2 + words[op.state] * each;
    std::copy(entry, entry + each, words + op.out.at);
}

void writeRing(std::uint64_t *words, const Op &op) {
    if (!enabled(words, op, 1)) {
        return;
    }
    const std::uint32_t each = wordsFor(op.in[0].width);
    std::copy(words + op.in[0].at, words + op.in[0].at + each, words + op.state + 2 + words[op.state] * each);
    words[op.state] = words[op.state] + 1 == words[op.state + 1] ? 0 : words[op.state] + 1;
}

void readCounter(std::uint64_t *words, const Op &op) {
    const std::uint64_t count = nextCount(words, op);
    const bool isBelow = static_cast<std::int64_t>(count) < static_cast<std::int64_t>(words[op.state + 3]);
    give(words, op.out, op.aux == 1 ? (isBelow ? 1 : 0) : count);
}

void writeCounter(std::uint64_t *words, const Op &op) { words[op.state] = nextCount(words, op); }

namespace {

/// The loop as the outputs of this cycle show it.
struct LoopView {
    bool runs;
    bool starts;
    const Op &op;
    const std::uint64_t *words;
    std::uint32_t levels() const { return (op.stateWords - 1) / 2; }
    std::uint64_t limit(std::uint32_t level) const {
        return starts ? words[op.in[1 + level].at] : words[op.state + 1 + levels() + level];
    }
    std::uint64_t count(std::uint32_t level) const { return starts ? 0 : words[op.state + 1 + level]; }
};

LoopView viewOf(const std::uint64_t *words, const Op &op) {
    LoopView view{words[op.state] != 0, isTrue(words, op.in[0]), op, words};
    if (view.starts) {
        view.runs = view.levels() != 0;
        for (std::uint32_t level = 0; level < view.levels(); ++level) {
            view.runs = view.runs && static_cast<std::int64_t>(view.limit(level)) > 0;
        }
    }
    return view;
}

} // namespace

void readLoop(std::uint64_t *words, const Op &op) {
    const LoopView view = viewOf(words, op);
    if (op.aux == 0) {
        give(words, op.out, view.runs ? 1 : 0);
        return;
    }
    const auto level = static_cast<std::uint32_t>(op.aux - 1) / 3;
    const std::uint64_t count = view.runs ? view.count(level) : 0;
    const bool flags[] = {view.runs && count == 0, view.runs && count + 1 == view.limit(level)};
    const int what = (op.aux - 1) % 3;
    give(words, op.out, what == 0 ? count : flags[what - 1] ? 1 : 0);
}

void stepLoop(std::uint64_t *words, const Op &op) {
    const LoopView view = viewOf(words, op);
    std::vector<std::uint64_t> counts;
    std::vector<std::uint64_t> limits;
    for (std::uint32_t level = 0; level < view.levels(); ++level) {
        counts.push_back(view.count(level));
        limits.push_back(view.limit(level));
    }
    bool runs = view.runs;
    if (runs && isTrue(words, op.in[1 + view.levels()])) {
        std::uint32_t level = view.levels();
        while (level > 0 && ++counts[level - 1] == limits[level - 1]) {
            counts[--level] = 0;
        }
        runs = level != 0;
    }
    words[op.state] = runs ? 1 : 0;
    std::copy(counts.begin(), counts.end(), words + op.state + 1);
    std::copy(limits.begin(), limits.end(), words + op.state + 1 + counts.size());
}

namespace {

/// An address as a bit pattern; none beyond 64 bits.
std::optional<std::uint64_t> addressOf(const std::uint64_t *words, const Operand &address) {
    const std::uint64_t *from = words + address.at;
    if (address.width < 64) {
        return *from & ((std::uint64_t{1} << address.width) - 1);
    }
    const auto bits = [&](std::uint32_t word) {
        const std::uint32_t used = address.width - word * 64;
        return used < 64 ? from[word] & ((std::uint64_t{1} << used) - 1) : from[word];
    };
    for (std::uint32_t word = 1; word < wordsFor(address.width); ++word) {
        if (bits(word) != 0) {
            return std::nullopt;
        }
    }
    return *from;
}

/// The place of a key among ascending ones, `stride` words apart; their number if it is not there.
std::uint64_t placeOf(const std::uint64_t *keys, std::uint64_t count, std::uint32_t stride,
                      std::optional<std::uint64_t> key) {
    std::uint64_t low = 0;
    for (std::uint64_t high = key ? count : 0; low < high;) {
        const std::uint64_t middle = (low + high) / 2;
        (keys[middle * stride] < *key ? low : high) = keys[middle * stride] < *key ? middle + 1 : middle;
    }
    return key && low < count && keys[low * stride] == *key ? low : count;
}

/// One entry, or zero.
void giveEntry(std::uint64_t *words, const Op &op, const std::uint64_t *entry) {
    const auto each = static_cast<std::uint32_t>(words[op.state + 1]);
    if (entry == nullptr) {
        std::fill(words + op.out.at, words + op.out.at + each, 0);
    } else {
        std::copy(entry, entry + each, words + op.out.at);
    }
}

} // namespace

void readTable(std::uint64_t *words, const Op &op) {
    const auto address = addressOf(words, op.in[0]);
    const std::uint64_t *entries = words + op.state + 2;
    giveEntry(words, op, address && *address < words[op.state] ? entries + *address * words[op.state + 1] : nullptr);
}

void readListed(std::uint64_t *words, const Op &op) {
    const std::uint64_t *entries = words + op.state + 2;
    const auto stride = static_cast<std::uint32_t>(words[op.state + 1]) + 1;
    const std::uint64_t place = placeOf(entries, words[op.state], stride, addressOf(words, op.in[0]));
    giveEntry(words, op, place < words[op.state] ? entries + place * stride + 1 : nullptr);
}

void findListed(std::uint64_t *words, const Op &op) {
    const auto address = addressOf(words, op.in[0]);
    const std::uint64_t count = words[op.state];
    const bool isListed =
        op.aux == 0 ? address && *address < count : placeOf(words + op.state + 1, count, 1, address) < count;
    words[op.out.at] = isListed ? 1 : 0;
}

} // namespace orvo::sim
