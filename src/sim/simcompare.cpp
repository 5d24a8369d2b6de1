// Two simulators side by side.
#include <orvo/simcompare.h>

#include <util/random.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>

namespace orvo::sim {

namespace {

/// The places of the same scalar on both sides.
using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;
using Words = std::vector<std::uint64_t>;

bool sameType(const Scalar &a, const Scalar &b) {
    return a.width == b.width && a.fraction == b.fraction && a.isSigned == b.isSigned && a.isFloat == b.isFloat &&
           a.exponent == b.exponent;
}

Pairs match(const std::vector<Scalar> &first, const std::vector<Scalar> &second, std::vector<Scalar> &unmatched) {
    // Several of one name belong together in their order.
    std::multimap<std::string, std::size_t> names;
    for (std::size_t i = 0; i < second.size(); ++i) {
        names.emplace(second[i].origin, i);
    }
    Pairs pairs;
    for (std::size_t i = 0; i < first.size(); ++i) {
        const auto at = names.find(first[i].origin);
        if (at == names.end() || !sameType(second[at->second], first[i])) {
            unmatched.push_back(first[i]);
        } else {
            pairs.emplace_back(i, at->second);
        }
        if (at != names.end()) {
            names.erase(at);
        }
    }
    for (const auto &[name, at] : names) {
        unmatched.push_back(second[at]);
    }
    return pairs;
}

/// Whether a scalar that unrolling names so is part of a wire of a name that unrolling may have made: (x real 2) of x
/// and of (x 2). Steps are put into a name without a change of what is there.
bool isMadeFrom(const std::string &name, const std::string &wire) {
    const auto parts = [](std::string text) {
        std::replace_if(
            text.begin(), text.end(), [](char one) { return one == '(' || one == ')'; }, ' ');
        std::istringstream words(text);
        return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
    };
    const std::vector<std::string> all = parts(name);
    const std::vector<std::string> some = parts(wire);
    std::size_t at = 0;
    for (const std::string &part : all) {
        at += at < some.size() && some[at] == part ? 1 : 0;
    }
    return !some.empty() && some.front() == all.front() && at == some.size();
}

/// Whether a scalar belongs to one of the wires, as x[2].re does to x.
bool isOfWire(const std::vector<std::string> &wires, const Scalar &scalar) {
    return std::any_of(wires.begin(), wires.end(), [&scalar](const std::string &wire) {
        const std::string &name = scalar.name;
        const bool isPart = name.compare(0, wire.size(), wire) == 0 &&
                            (name.size() == wire.size() || name[wire.size()] == '[' || name[wire.size()] == '.');
        return isPart || isMadeFrom(scalar.origin, wire);
    });
}

/// Numbers of IEEE 754 as integers in the order of their values.
std::uint64_t ordered(std::uint64_t bits, std::uint32_t width) {
    const std::uint64_t sign = std::uint64_t{1} << (width - 1);
    return (bits & sign) != 0 ? sign - (bits & (sign - 1)) : sign + bits;
}

/// Whether two floats are neighbours, as faithful rounding allows.
bool areNeighbours(const Mismatch &pair, bool isFaithful) {
    const std::uint32_t width = pair.scalar.width;
    const bool isKnown =
        std::all_of(pair.secondUnknown.begin(), pair.secondUnknown.end(), [](std::uint64_t word) { return word == 0; });
    if (!isFaithful || !isKnown || width > 64) {
        return false;
    }
    const std::uint64_t a = ordered(pair.first[0], width);
    const std::uint64_t b = ordered(pair.second[0], width);
    return (a > b ? a - b : b - a) <= 1;
}

/// Probes of equal origin; where several have one, the first ones of both sides belong together, if there are as many.
Pairs matchInside(const std::vector<Scalar> &first, const std::vector<Scalar> &second) {
    std::map<std::string, std::pair<std::vector<std::size_t>, std::vector<std::size_t>>> places;
    for (std::size_t i = 0; i < first.size(); ++i) {
        places[first[i].origin].first.push_back(i);
    }
    for (std::size_t i = 0; i < second.size(); ++i) {
        if (const auto at = places.find(second[i].origin); at != places.end()) {
            at->second.second.push_back(i);
        }
    }
    Pairs pairs;
    for (const auto &[origin, both] : places) {
        for (std::size_t i = 0; both.first.size() == both.second.size() && i < both.first.size(); ++i) {
            const Scalar &a = first[both.first[i]];
            const Scalar &b = second[both.second[i]];
            if (sameType(a, b)) {
                pairs.emplace_back(both.first[i], both.second[i]);
            }
        }
    }
    std::sort(pairs.begin(), pairs.end(), [&first](const auto &a, const auto &b) {
        return std::pair(first[a.first].rank, a.first) < std::pair(first[b.first].rank, b.first);
    });
    return pairs;
}

std::vector<std::uint64_t> drawn(const Scalar &scalar, util::SplitMix &random) {
    std::vector<std::uint64_t> words(std::max<std::size_t>((scalar.width + 63) / 64, 1));
    const std::uint64_t kind = random.next() % 8;
    if (kind < 4) {
        std::generate(words.begin(), words.end(), [&random] { return random.next(); });
        if (kind < 3 && scalar.exponent != 0 && scalar.width <= 64) {
            // Floats of like size, or else a sum is one of its operands and a product no number.
            const std::uint32_t fraction = scalar.width - 1 - scalar.exponent;
            const std::uint64_t bias = (std::uint64_t{1} << (scalar.exponent - 1)) - 1;
            const std::uint64_t spread = std::min<std::uint64_t>(bias, 4);
            const std::uint64_t field = bias - spread + random.next() % (2 * spread + 1);
            const std::uint64_t mask = ((std::uint64_t{1} << scalar.exponent) - 1) << fraction;
            words[0] = (words[0] & ~mask) | (field << fraction);
        }
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

/// Both simulators on one stream of stimulus after the other.
class SideBySide {
  public:
    SideBySide(Simulator &first, Simulator &second, const CompareOptions &options)
        : mFirst(first), mSecond(second), mOptions(options) {
        std::vector<Scalar> unmatched;
        mInputs = match(first.inputs(), second.inputs(), unmatched);
        // An input that the other side does not read says nothing there.
        unmatched.erase(std::remove_if(unmatched.begin(), unmatched.end(),
                                       [&](const Scalar &scalar) {
                                           return isOfWire(first.idleInputs(), scalar) ||
                                                  isOfWire(second.idleInputs(), scalar);
                                       }),
                        unmatched.end());
        mOutputs = match(first.outputs(), second.outputs(), unmatched);
        for (const Scalar &scalar : unmatched) {
            result.unmatched.push_back(scalar.name);
        }
    }

    void run() {
        for (std::uint64_t stream = 0; stream < mOptions.streams; ++stream) {
            begin(stream);
            mExcused.clear();
            for (std::uint64_t cycle = 0; cycle < mOptions.cycles; ++cycle) {
                if (mOptions.progress && cycle % 256 == 0) {
                    mOptions.progress(stream * mOptions.cycles + cycle, mOptions.streams * mOptions.cycles);
                }
                step();
                ++result.cycles;
                compareOutputs(cycle);
                const std::size_t most = std::max<std::size_t>(mOptions.mostMismatches, 1);
                if (result.mismatches.size() >= most) {
                    result.mismatches.erase(result.mismatches.begin() + static_cast<std::ptrdiff_t>(most),
                                            result.mismatches.end());
                    return;
                }
            }
        }
    }

    /// The first signal inside that differs on the way to a mismatch.
    std::optional<Mismatch> follow(const Mismatch &to) {
        const Pairs probes = matchInside(mFirst.probes(), mSecond.probes());
        begin(to.stream);
        for (std::uint64_t cycle = 0; cycle <= to.cycle; ++cycle) {
            step();
            for (const auto &[a, b] : probes) {
                Mismatch found{to.stream,
                               cycle,
                               mFirst.probes()[a].name,
                               mFirst.probe(a),
                               mSecond.probe(b),
                               mFirst.unknownProbe(a),
                               mSecond.unknownProbe(b),
                               mFirst.probes()[a]};
                const bool isFaithful = mFirst.probes()[a].isFaithful || mSecond.probes()[b].isFaithful;
                if (differs(found, {}) && !areNeighbours(found, isFaithful)) {
                    return found;
                }
            }
        }
        return std::nullopt;
    }

    CompareResult result;

  private:
    void begin(std::uint64_t stream) {
        mStream = stream;
        mFirst.reset();
        mSecond.reset();
        mRandom = util::SplitMix(mOptions.seed + stream * 0x100000001b3ULL);
    }
    void step() {
        for (const auto &[a, b] : mInputs) {
            const Words words = drawn(mFirst.inputs()[a], mRandom);
            mFirst.setInput(a, words);
            mSecond.setInput(b, words);
        }
        mFirst.step();
        mSecond.step();
    }
    /// Whether a bit that the first side knows is unknown or another one on the second side.
    static bool differs(const Mismatch &pair, const Words &excused) {
        for (std::size_t i = 0; i < pair.first.size(); ++i) {
            const std::uint64_t free = pair.firstUnknown[i] | (i < excused.size() ? excused[i] : 0);
            // What fills up the last word repeats the sign, and may be free with it.
            const std::uint64_t used = pair.scalar.width < 64 * (i + 1)
                                           ? (std::uint64_t{1} << (pair.scalar.width - 64 * i)) - 1
                                           : ~std::uint64_t{0};
            if ((((pair.first[i] ^ pair.second[i]) | pair.secondUnknown[i]) & ~free & used) != 0) {
                return true;
            }
        }
        return false;
    }
    void compareOutputs(std::uint64_t cycle) {
        std::vector<Doubt> doubts;
        for (const auto &[a, b] : mOutputs) {
            Mismatch pair{mStream,
                          cycle,
                          mFirst.outputs()[a].name,
                          mFirst.output(a),
                          mSecond.output(b),
                          mFirst.unknownOutput(a),
                          mSecond.unknownOutput(b),
                          mFirst.outputs()[a]};
            const bool isFaithful = mFirst.outputs()[a].isFaithful || mSecond.outputs()[b].isFaithful;
            if (!differs(pair, mExcused[a]) || areNeighbours(pair, isFaithful)) {
                continue;
            }
            if (mFirst.outputMayBeUnknown(a)) {
                doubts.push_back({a, b, std::move(pair), {}});
            } else {
                result.mismatches.push_back(std::move(pair));
            }
        }
        if (!doubts.empty()) {
            settle(doubts, cycle);
        }
    }
    /// A pair of outputs that differ where the first may be unknown, and in how many runs each bit of the second was
    /// another one.
    struct Doubt {
        std::size_t a;
        std::size_t b;
        Mismatch pair;
        std::vector<unsigned> differing;
    };
    /// A bit of the first side may be unknown and yet have shown one value in all runs. Before it is called known, the
    /// stream up to here is run again with unknown bits filled in otherwise, once for all outputs in doubt. The second
    /// side must then have differed so often that the first, were it free in the same way, could not have hidden it.
    /// What is found counts for the rest of the stream.
    void settle(std::vector<Doubt> &doubts, std::uint64_t cycle) {
        for (Doubt &doubt : doubts) {
            mExcused[doubt.a].resize(doubt.pair.first.size());
            doubt.differing.resize(doubt.pair.first.size() * 64);
        }
        const std::size_t each = std::min(mFirst.runs(), mSecond.tracksUnknown() ? mSecond.runs() : mFirst.runs());
        std::size_t tried = 0;
        for (std::uint64_t attempt = 1; tried < kTries && !doubts.empty(); ++attempt, tried += each) {
            mFirst.reseed(mOptions.seed + attempt);
            mSecond.reseed(mOptions.seed + attempt);
            begin(mStream);
            for (std::uint64_t at = 0; at <= cycle; ++at) {
                step();
            }
            // What is known to be free by now needs no further run.
            std::erase_if(doubts, [&](Doubt &doubt) {
                note(doubt);
                return !differs(doubt.pair, mExcused[doubt.a]);
            });
        }
        for (Doubt &doubt : doubts) {
            Words &excused = mExcused[doubt.a];
            for (std::size_t bit = 0; bit < doubt.differing.size(); ++bit) {
                if (mSecond.tracksUnknown() && doubt.differing[bit] < kOften) {
                    excused[bit / 64] |= std::uint64_t{1} << (bit % 64);
                }
            }
            if (differs(doubt.pair, excused)) {
                result.mismatches.push_back(std::move(doubt.pair));
            }
        }
    }
    /// What the runs that were just made tell of a doubt.
    void note(Doubt &doubt) {
        const Words unknown = mFirst.unknownOutput(doubt.a);
        Words &excused = mExcused[doubt.a];
        for (std::size_t i = 0; i < excused.size(); ++i) {
            excused[i] |= unknown[i];
        }
        for (std::size_t run = 0; run < mSecond.runs(); ++run) {
            const Words value = mSecond.outputInRun(doubt.b, run);
            for (std::size_t bit = 0; bit < doubt.differing.size(); ++bit) {
                const bool isOther = ((value[bit / 64] ^ doubt.pair.first[bit / 64]) >> (bit % 64) & 1U) != 0;
                doubt.differing[bit] += isOther ? 1 : 0;
            }
        }
    }

    /// Runs of each side, and how many of them must differ. A first side that is as free hides it in all of its runs
    /// once in 10^8 times.
    static constexpr std::size_t kTries = 1024;
    static constexpr unsigned kOften = 20;

    Simulator &mFirst;
    Simulator &mSecond;
    const CompareOptions &mOptions;
    Pairs mInputs;
    Pairs mOutputs;
    std::uint64_t mStream = 0;
    util::SplitMix mRandom{0};
    /// Bits of outputs that were found unknown late.
    std::map<std::size_t, Words> mExcused;
};

} // namespace

CompareResult compareBehaviour(Simulator &first, Simulator &second, const CompareOptions &options) {
    SideBySide sides(first, second, options);
    sides.run();
    return std::move(sides.result);
}

CompareResult compareDesigns(const Design &first, const Model &firstTop, const Design &second, const Model &secondTop,
                             const CompareOptions &options) {
    SimulatorOptions simulation;
    simulation.trackUnknown = true;
    Simulator before(first, firstTop, simulation);
    Simulator after(second, secondTop, simulation);
    CompareResult result = compareBehaviour(before, after, options);
    if (!result.mismatches.empty()) {
        simulation.probeAll = true;
        Simulator beforeInside(first, firstTop, simulation);
        Simulator afterInside(second, secondTop, simulation);
        result.inside = SideBySide(beforeInside, afterInside, options).follow(result.mismatches.front());
    }
    return result;
}

} // namespace orvo::sim
