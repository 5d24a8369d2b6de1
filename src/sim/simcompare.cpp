// Two simulators side by side.
#include <orvo/simcompare.h>

#include <util/random.h>

#include <algorithm>
#include <map>

namespace orvo::sim {

namespace {

/// The places of the same scalar on both sides.
using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;

Pairs match(const std::vector<Scalar> &first, const std::vector<Scalar> &second, std::vector<std::string> &unmatched) {
    std::map<std::string, std::size_t> names;
    for (std::size_t i = 0; i < second.size(); ++i) {
        names[second[i].name] = i;
    }
    Pairs pairs;
    for (std::size_t i = 0; i < first.size(); ++i) {
        const auto at = names.find(first[i].name);
        if (at == names.end() || second[at->second].width != first[i].width) {
            unmatched.push_back(first[i].name);
        } else {
            pairs.emplace_back(i, at->second);
        }
        if (at != names.end()) {
            names.erase(at);
        }
    }
    for (const auto &[name, at] : names) {
        unmatched.push_back(name);
    }
    return pairs;
}

std::vector<std::uint64_t> drawn(const Scalar &scalar, util::SplitMix &random) {
    std::vector<std::uint64_t> words(std::max<std::size_t>((scalar.width + 63) / 64, 1));
    const std::uint64_t kind = random.next() % 8;
    if (kind < 4) {
        std::generate(words.begin(), words.end(), [&random] { return random.next(); });
    } else if (kind == 4) {
        words[0] = 1;
    } else if (kind == 5) {
        std::fill(words.begin(), words.end(), ~std::uint64_t{0});
    } else if (kind == 6 && scalar.width != 0) {
        words[(scalar.width - 1) / 64] = std::uint64_t{1} << ((scalar.width - 1) % 64);
    } else if (kind == 7 && scalar.width != 0) {
        // All ones but the highest.
        std::fill(words.begin(), words.end(), ~std::uint64_t{0});
        words[(scalar.width - 1) / 64] ^= std::uint64_t{1} << ((scalar.width - 1) % 64);
    }
    return words;
}

} // namespace

CompareResult compareBehaviour(Simulator &first, Simulator &second, const CompareOptions &options) {
    CompareResult result;
    const Pairs inputs = match(first.inputs(), second.inputs(), result.unmatched);
    const Pairs outputs = match(first.outputs(), second.outputs(), result.unmatched);
    for (std::uint64_t stream = 0; stream < options.streams; ++stream) {
        util::SplitMix random(options.seed + stream * 0x100000001b3ULL);
        first.reset();
        second.reset();
        for (std::uint64_t cycle = 0; cycle < options.cycles; ++cycle) {
            for (const auto &[a, b] : inputs) {
                const std::vector<std::uint64_t> words = drawn(first.inputs()[a], random);
                first.setInput(a, words);
                second.setInput(b, words);
            }
            first.step();
            second.step();
            ++result.cycles;
            for (const auto &[a, b] : outputs) {
                const std::vector<std::uint64_t> x = first.output(a);
                const std::vector<std::uint64_t> y = second.output(b);
                if (x != y) {
                    result.mismatches.push_back({stream, cycle, first.outputs()[a].name, x, y, first.outputs()[a]});
                }
            }
            if (result.mismatches.size() >= options.mostMismatches) {
                result.mismatches.resize(std::max<std::size_t>(options.mostMismatches, 1), result.mismatches.back());
                return result;
            }
        }
    }
    return result;
}

} // namespace orvo::sim
