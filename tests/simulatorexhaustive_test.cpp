// Every block on fixed-point numbers at every type up to four bits, with binary points above, at and inside the number,
// on every input, against its meaning written with exact rationals.
#include <orvo/simulator.h>

#include "support/exhaustive.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace orvo::sim {
namespace {

struct Format {
    int width;
    int fraction;
    bool isSigned;
    std::string text() const {
        return std::string(isSigned ? "(typeSFixed " : "(typeUFixed ") + std::to_string(width - fraction) + " " +
               std::to_string(fraction) + ")";
    }
    mpz_class span() const { return mpz_class(1) << static_cast<unsigned>(width); }
    mpz_class lowest() const { return isSigned ? mpz_class(-(span() / 2)) : mpz_class(0); }
    mpz_class highest() const { return lowest() + span() - 1; }
};

std::vector<Format> formats(const std::vector<int> &fractions) {
    std::vector<Format> all;
    for (int width = 1; width <= 4; ++width) {
        for (const int fraction : fractions) {
            all.push_back({width, fraction, false});
            all.push_back({width, fraction, true});
        }
    }
    return all;
}

mpq_class scaled(const mpq_class &number, int places) {
    mpq_class result;
    if (places >= 0) {
        mpq_mul_2exp(result.get_mpq_t(), number.get_mpq_t(), static_cast<unsigned>(places));
    } else {
        mpq_div_2exp(result.get_mpq_t(), number.get_mpq_t(), static_cast<unsigned>(-places));
    }
    return result;
}

mpz_class floorOf(const mpq_class &number) {
    mpz_class floor;
    mpz_fdiv_q(floor.get_mpz_t(), number.get_num_mpz_t(), number.get_den_mpz_t());
    return floor;
}

mpz_class truncated(const mpq_class &number) { return number < 0 ? mpz_class(-floorOf(-number)) : floorOf(number); }

/// A number at an input: its bits, and what they stand for.
struct Argument {
    Format format{};
    unsigned long pattern = 0;
    mpz_class raw;
    mpq_class value;
    /// Another type of the list may be so wide that the pattern was cut, and has been tried before.
    bool isNew = false;
};

Argument argumentOf(const Format &format, unsigned long pattern) {
    Argument argument{format, pattern, pattern, 0, true};
    if (format.isSigned && argument.raw >= format.span() / 2) {
        argument.raw -= format.span();
    }
    argument.value = scaled(argument.raw, -format.fraction);
    return argument;
}

using Arguments = std::vector<const Argument *>;
/// The integer at an output before it is cut to the output's width.
using Judge = std::function<mpz_class(const Arguments &in, const Format &out)>;

/// The exact result at the output's binary point, what lies below it dropped.
mpz_class brought(const mpq_class &value, const Format &out) { return floorOf(scaled(value, out.fraction)); }

mpz_class wrapped(const mpz_class &value, const Format &out) {
    mpz_class rest;
    mpz_fdiv_r_2exp(rest.get_mpz_t(), value.get_mpz_t(), static_cast<unsigned>(out.width));
    return rest > out.highest() ? mpz_class(rest - out.span()) : rest;
}

struct ExhaustiveCase {
    using Texts = std::vector<std::pair<std::string, std::string>>;
    const char *name;
    const char *block;
    /// Port, and the list of types that it takes in turn: a letter for each list.
    std::vector<std::pair<const char *, char>> inputs;
    Texts params;
    std::vector<std::pair<const char *, Judge>> outputs;
};

const char *const kOut = "primWireOut";
const char *const kAux = "primWireAux";

/// One design that holds every case at every combination of types.
class Bench {
  public:
    explicit Bench(std::map<char, std::vector<Format>> lists) : mLists(std::move(lists)), mDesign(mgr.context()) {
        mTop = Model::create(mDesign, "top");
        mIn = Block::create(*mTop, "in", A_INPUT_BLOCK);
        mOut = Block::create(*mTop, "out", A_OUTPUT_BLOCK);
        for (const auto &[list, types] : mLists) {
            for (std::size_t i = 0; i < types.size(); ++i) {
                const std::string name = list + std::to_string(i);
                Block &pin = *Block::create(*mTop, "pin" + name, A_TYPE_PIN_BLOCK);
                pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value(types[i].text())));
                pin.setParam(value("0"), *Wire::create(*mIn, name));
                mSources[list].push_back(Wire::create(pin, value("0")));
            }
        }
    }
    void add(const ExhaustiveCase &row) { addWith(row, {}); }

    void run() {
        Simulator simulator(mDesign, *mTop);
        bind(simulator);
        // A counter for each list: all patterns of its widest type.
        std::map<char, unsigned long> patterns;
        std::uint64_t cycles = 1;
        for (const auto &[list, types] : mLists) {
            patterns[list] = 0;
            cycles <<= static_cast<unsigned>(widest(types));
        }
        for (std::uint64_t cycle = 0; cycle < cycles; cycle += testing::kExhaustiveStride) {
            std::uint64_t rest = cycle;
            for (auto &[list, pattern] : patterns) {
                const auto width = static_cast<unsigned>(widest(mLists.at(list)));
                pattern = rest & ((1U << width) - 1);
                rest >>= width;
                apply(simulator, list, pattern);
            }
            simulator.step();
            for (const Check &check : mChecks) {
                ASSERT_NO_FATAL_FAILURE(verify(simulator, check));
            }
        }
    }
    ContextMgr mgr;

  private:
    /// The types that the lists have in a block, by their places.
    using Choice = std::map<char, std::size_t>;
    struct Check {
        const ExhaustiveCase *row;
        Judge judge;
        std::string port;
        Arguments in;
        std::size_t output = 0;
        Format format{};
    };

    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    static int widest(const std::vector<Format> &types) {
        int width = 0;
        for (const Format &type : types) {
            width = std::max(width, type.width);
        }
        return width;
    }
    void addWith(const ExhaustiveCase &row, const Choice &choice) {
        for (const auto &[key, list] : row.inputs) {
            if (choice.count(list) == 0) {
                for (std::size_t i = 0; i < mLists.at(list).size(); ++i) {
                    Choice more = choice;
                    more[list] = i;
                    addWith(row, more);
                }
                return;
            }
        }
        Block &block = *Block::create(*mTop, "block" + std::to_string(mBlocks++), value(row.block));
        for (const auto &[key, text] : row.params) {
            block.setParam(value(key), ValueRef(value(text)));
        }
        Arguments in;
        for (const auto &[key, list] : row.inputs) {
            block.setParam(value(key), *mSources.at(list)[choice.at(list)]);
            in.push_back(&mArguments[{list, choice.at(list)}]);
        }
        for (const auto &[wire, judge] : row.outputs) {
            const std::string port = "o" + std::to_string(mChecks.size());
            mOut->setParam(value(port), *Wire::create(block, value(wire)));
            mChecks.push_back({&row, judge, port, in});
        }
    }
    void bind(const Simulator &simulator) {
        std::map<std::string, std::size_t> outputs;
        for (std::size_t i = 0; i < simulator.outputs().size(); ++i) {
            outputs[simulator.outputs()[i].name] = i;
        }
        for (Check &check : mChecks) {
            check.output = outputs.at(check.port);
            const Scalar &scalar = simulator.outputs()[check.output];
            check.format = {static_cast<int>(scalar.width), scalar.fraction, scalar.isSigned};
        }
        for (std::size_t i = 0; i < simulator.inputs().size(); ++i) {
            mInputs[simulator.inputs()[i].name] = i;
        }
    }
    void apply(Simulator &simulator, char list, unsigned long pattern) {
        const std::vector<Format> &types = mLists.at(list);
        for (std::size_t i = 0; i < types.size(); ++i) {
            Argument &argument = mArguments[{list, i}];
            argument = argumentOf(types[i], pattern & ((1UL << static_cast<unsigned>(types[i].width)) - 1));
            simulator.setInput(mInputs.at(list + std::to_string(i)), static_cast<std::int64_t>(argument.pattern));
            argument.isNew = argument.pattern == pattern;
        }
    }
    void verify(const Simulator &simulator, const Check &check) {
        for (const Argument *argument : check.in) {
            if (!argument->isNew) {
                return;
            }
        }
        const mpz_class wanted = wrapped(check.judge(check.in, check.format), check.format);
        ASSERT_EQ(simulator.outputInteger(check.output), wanted.get_si()) << told(check);
    }
    static std::string told(const Check &check) {
        std::string text = std::string(check.row->name) + " at";
        for (const Argument *argument : check.in) {
            text += " " + argument->raw.get_str() + " " + argument->format.text();
        }
        return text + " into " + check.format.text();
    }

    std::map<char, std::vector<Format>> mLists;
    Design mDesign;
    Model *mTop = nullptr;
    Block *mIn = nullptr;
    Block *mOut = nullptr;
    int mBlocks = 0;
    std::map<char, std::vector<Wire *>> mSources;
    std::map<std::pair<char, std::size_t>, Argument> mArguments;
    std::map<std::string, std::size_t> mInputs;
    std::vector<Check> mChecks;
};

void check(const std::vector<ExhaustiveCase> &rows, const std::map<char, std::vector<Format>> &lists) {
    Bench bench(lists);
    for (const ExhaustiveCase &row : rows) {
        bench.add(row);
    }
    bench.run();
}

// --- The meanings ----------------------------------------------------------------------------------------------------

mpz_class bit(bool holds) { return holds ? 1 : 0; }

enum class Gate { And, Or, Xor };

/// Both in the output's type, then bit by bit.
template <Gate gate, bool isNegated> mpz_class gated(const Arguments &in, const Format &out) {
    mpz_class result = brought(in[0]->value, out);
    for (std::size_t i = 1; i < in.size(); ++i) {
        const mpz_class other = brought(in[i]->value, out);
        result = gate == Gate::And  ? mpz_class(result & other)
                 : gate == Gate::Or ? mpz_class(result | other)
                                    : mpz_class(result ^ other);
    }
    return isNegated ? mpz_class(~result) : result;
}

template <Gate gate, bool isNegated> mpz_class reduced(const Arguments &in, const Format &) {
    const unsigned long pattern = in[0]->pattern;
    const bool isSet = gate == Gate::And  ? pattern + 1 == 1UL << static_cast<unsigned>(in[0]->format.width)
                       : gate == Gate::Or ? pattern != 0
                                          : __builtin_parityl(pattern) != 0;
    return bit(isSet != isNegated);
}

template <bool larger> mpz_class extreme(const Arguments &in, const Format &out) {
    mpq_class best = in[0]->value;
    for (const Argument *other : in) {
        best = larger ? std::max(best, other->value) : std::min(best, other->value);
    }
    return brought(best, out);
}

/// By magnitude; of equal ones the smaller value for the minimum, the larger one for the maximum.
template <bool larger> mpz_class extremeMagnitude(const Arguments &in, const Format &out) {
    const mpq_class a = in[0]->value;
    const mpq_class b = in[1]->value;
    if (abs(a) == abs(b)) {
        return brought(larger ? std::max(a, b) : std::min(a, b), out);
    }
    return brought((abs(a) > abs(b)) == larger ? a : b, out);
}

/// The pattern of the first lowest, the others above it.
mpz_class joined(const Arguments &in, const Format &) {
    mpz_class pattern = 0;
    int at = 0;
    for (const Argument *one : in) {
        pattern += mpz_class(one->pattern) << static_cast<unsigned>(at);
        at += one->format.width;
    }
    return pattern;
}

mpz_class turned(const Arguments &in, const Format &) {
    unsigned long result = 0;
    for (int at = 0; at < in[0]->format.width; ++at) {
        result = 2 * result + (in[0]->pattern >> static_cast<unsigned>(at) & 1U);
    }
    return result;
}

mpz_class ones(const Arguments &in, const Format &) { return __builtin_popcountl(in[0]->pattern); }

unsigned long leadingZeros(const Argument &in) {
    unsigned long zeros = 0;
    for (int at = in.format.width; at-- > 0 && (in.pattern >> static_cast<unsigned>(at) & 1U) == 0;) {
        ++zeros;
    }
    return zeros;
}

mpz_class normalised(const Arguments &in, const Format &) { return mpz_class(in[0]->pattern) << leadingZeros(*in[0]); }

template <int offset> mpz_class bitsFrom(const Arguments &in, const Format &) {
    const int from = offset < 0 ? std::max(in[0]->format.width + offset, 0) : std::min(offset, in[0]->format.width);
    return floorOf(scaled(in[0]->raw, -from));
}

template <int places> mpz_class moved(const Arguments &in, const Format &out) {
    return brought(scaled(in[0]->value, places), out);
}

template <bool left> mpz_class shifted(const Arguments &in, const Format &out) {
    const int places = static_cast<int>(in[1]->pattern);
    return brought(scaled(in[0]->value, left ? places : -places), out);
}

enum class Rounded { Floor, ToZero, HalfUp, HalfEven };

mpz_class roundedBy(Rounded rounding, const mpq_class &value) {
    const mpz_class below = floorOf(value);
    const mpq_class rest = value - below;
    switch (rounding) {
    case Rounded::Floor:
        return below;
    case Rounded::ToZero:
        return truncated(value);
    case Rounded::HalfUp:
        return floorOf(value + mpq_class(1, 2));
    case Rounded::HalfEven:
        if (rest == mpq_class(1, 2)) {
            return mpz_even_p(below.get_mpz_t()) != 0 ? below : mpz_class(below + 1);
        }
        return floorOf(value + mpq_class(1, 2));
    }
    return 0;
}

template <Rounded rounding, int bits> mpz_class withoutBits(const Arguments &in, const Format &) {
    return roundedBy(rounding, scaled(in[0]->raw, -bits));
}

enum class Bound { Wrap, Symmetric, Asymmetric };

mpz_class lowerBound(Bound bound, const Format &out) {
    return bound == Bound::Symmetric && out.isSigned ? mpz_class(-out.highest()) : out.lowest();
}

/// The value rounded and bound, and whether a bound was met.
std::pair<mpz_class, bool> castTo(const mpq_class &value, const Format &out, Rounded rounding, Bound bound) {
    const mpz_class whole = roundedBy(rounding, scaled(value, out.fraction));
    const mpz_class low = lowerBound(bound, out);
    const bool clips = bound != Bound::Wrap && (whole < low || whole > out.highest());
    return {clips ? (whole < low ? low : out.highest()) : whole, clips};
}

/// Whether no bit of the input is left. Then a constant stands for it, and no bound is looked at.
bool isLost(const Format &in, const Format &out, Rounded rounding) {
    const int drop = in.fraction - out.fraction;
    const bool isNearest = rounding == Rounded::HalfUp || rounding == Rounded::HalfEven;
    return drop > in.width || (drop == in.width && !isNearest);
}

mpz_class quotient(const Arguments &in, const Format &out) {
    return in[1]->value == 0 ? mpz_class(0) : truncated(scaled(in[0]->value / in[1]->value, out.fraction));
}

// --- Blocks of one input ---------------------------------------------------------------------------------------------

TEST(EveryFixedNumber, goesThroughBlocksOfOneInput) {
    const std::vector<ExhaustiveCase> rows = {
        {"neg",
         "negBlock",
         {{"0", 'a'}},
         {},
         {{kOut, [](const Arguments &in, const Format &out) { return brought(-in[0]->value, out); }}}},
        {"abs",
         "absBlock",
         {{"0", 'a'}},
         {},
         {{kOut, [](const Arguments &in, const Format &out) { return brought(abs(in[0]->value), out); }}}},
        {"not", "notBlock", {{"0", 'a'}}, {}, {{kOut, gated<Gate::And, true>}}},
        {"and reduce", "andReduceBlock", {{"0", 'a'}}, {}, {{kOut, reduced<Gate::And, false>}}},
        {"nand reduce", "nandReduceBlock", {{"0", 'a'}}, {}, {{kOut, reduced<Gate::And, true>}}},
        {"or reduce", "orReduceBlock", {{"0", 'a'}}, {}, {{kOut, reduced<Gate::Or, false>}}},
        {"nor reduce", "norReduceBlock", {{"0", 'a'}}, {}, {{kOut, reduced<Gate::Or, true>}}},
        {"xor reduce", "xorReduceBlock", {{"0", 'a'}}, {}, {{kOut, reduced<Gate::Xor, false>}}},
        {"xnor reduce", "xnorReduceBlock", {{"0", 'a'}}, {}, {{kOut, reduced<Gate::Xor, true>}}},
        {"bit count", "bitCountBlock", {{"0", 'a'}}, {}, {{kOut, ones}}},
        {"ctpop", "ctpopBlock", {{"0", 'a'}}, {}, {{kOut, ones}}},
        {"reverse", "reverseBlock", {{"0", 'a'}}, {}, {{kOut, turned}}},
        {"join alone", "bitJoinBlock", {{"0", 'a'}}, {}, {{kOut, joined}}},
        {"normalise",
         "barrelRightLzcBlock",
         {{"0", 'a'}},
         {},
         {{kOut, normalised},
          {kAux, [](const Arguments &in, const Format &) { return mpz_class(leadingZeros(*in[0])); }}}},
        {"bits from 0",
         "bitSelectBlock",
         {{"0", 'a'}},
         {{"bitSelectBitOffset", "0"}, {"bitSelectOutputType", "(typeUFixed 3 0)"}},
         {{kOut, bitsFrom<0>}}},
        {"bits from 1",
         "bitSelectBlock",
         {{"0", 'a'}},
         {{"bitSelectBitOffset", "1"}, {"bitSelectOutputType", "(typeSFixed 4 0)"}},
         {{kOut, bitsFrom<1>}}},
        {"bits from the top",
         "bitSelectBlock",
         {{"0", 'a'}},
         {{"bitSelectBitOffset", "-1"}, {"bitSelectOutputType", "(typeUFixed 2 0)"}},
         {{kOut, bitsFrom<-1>}}},
        {"lowest bit twice",
         "chooseBitsBlock",
         {{"0", 'a'}},
         {{"chooseBitsBitOffsets", "(0 0)"}, {"chooseBitsOutputType", "(typeUFixed 2 0)"}},
         {{kOut, [](const Arguments &in, const Format &) { return mpz_class(3 * (in[0]->pattern & 1U)); }}}},
        {"point up", "rawShiftBlock", {{"0", 'a'}}, {{"rawShiftValue", "2"}}, {{kOut, moved<2>}}},
        {"point down", "rawShiftBlock", {{"0", 'a'}}, {{"rawShiftValue", "-2"}}, {{kOut, moved<-2>}}},
        {"times constant",
         "constmultBlock",
         {{"0", 'a'}},
         {{"constValue", "-0x5p-1"}},
         {{kOut,
           [](const Arguments &in, const Format &out) { return brought(in[0]->value * mpq_class(-5, 2), out); }}}},
        {"truncate", "truncateBlock", {{"0", 'a'}}, {{"roundBits", "1"}}, {{kOut, withoutBits<Rounded::Floor, 1>}}},
        {"truncate to zero",
         "truncateToZeroBlock",
         {{"0", 'a'}},
         {{"roundBits", "2"}},
         {{kOut, withoutBits<Rounded::ToZero, 2>}}},
        {"biased 1", "biasedRoundBlock", {{"0", 'a'}}, {{"roundBits", "1"}}, {{kOut, withoutBits<Rounded::HalfUp, 1>}}},
        {"biased 2", "biasedRoundBlock", {{"0", 'a'}}, {{"roundBits", "2"}}, {{kOut, withoutBits<Rounded::HalfUp, 2>}}},
        {"unbiased 1",
         "unbiasedRoundBlock",
         {{"0", 'a'}},
         {{"roundBits", "1"}},
         {{kOut, withoutBits<Rounded::HalfEven, 1>}}},
        {"unbiased 2",
         "unbiasedRoundBlock",
         {{"0", 'a'}},
         {{"roundBits", "2"}},
         {{kOut, withoutBits<Rounded::HalfEven, 2>}}},
        {"append",
         "unbiasedRoundBlock",
         {{"0", 'a'}},
         {{"roundBits", "-1"}},
         {{kOut, withoutBits<Rounded::HalfEven, -1>}}},
        {"table",
         "lutBlock",
         {{"lutPortAddr", 'a'}},
         {{"lutData", "(5 -3 7 0 2 1 -6 4 3 6 -2)"}},
         {{kOut,
           [](const Arguments &in, const Format &) {
               constexpr int kData[] = {5, -3, 7, 0, 2, 1, -6, 4, 3, 6, -2};
               return mpz_class(in[0]->pattern < std::size(kData) ? kData[in[0]->pattern] : 0);
           }}}},
        {"decode",
         "decodeBlock",
         {{"decodePortAddr", 'a'}},
         {{"decodeAddress", "2"}},
         {{"decodeWireMatch",
           [](const Arguments &in, const Format &) {
               // The bits of the address count, whatever their sign.
               return bit(scaled(mpz_class(in[0]->pattern), -in[0]->format.fraction) == 2);
           }}}},
    };
    check(rows, {{'a', formats({-1, 0, 2})}});
}

// --- Casts -----------------------------------------------------------------------------------------------------------

TEST(EveryFixedNumber, isCastToEveryTypeInEveryMode) {
    const std::pair<const char *, Rounded> roundings[] = {{"", Rounded::Floor},
                                                          {"roundingTrunc", Rounded::Floor},
                                                          {"roundingTruncToZero", Rounded::ToZero},
                                                          {"roundingBiased", Rounded::HalfUp},
                                                          {"roundingUnbiased", Rounded::HalfEven}};
    const std::pair<const char *, Bound> bounds[] = {{"saturateNone", Bound::Wrap},
                                                     {"saturateSymmetric", Bound::Symmetric},
                                                     {"saturateAsymmetric", Bound::Asymmetric}};
    std::vector<ExhaustiveCase> rows;
    for (const Format &target : formats({-1, 0, 2})) {
        for (const auto &[roundingText, rounding] : roundings) {
            for (const auto &[boundText, bound] : bounds) {
                ExhaustiveCase row{"cast", "castBlock", {{"0", 'a'}}, {}, {}};
                row.params = {{"castOutputType", target.text()}, {"castSaturateMode", boundText}};
                if (*roundingText != 0) {
                    row.params.emplace_back("castRoundingMode", roundingText);
                }
                row.outputs = {
                    {kOut,
                     [rounding = rounding, bound = bound](const Arguments &in, const Format &out) {
                         return castTo(in[0]->value, out, rounding, bound).first;
                     }},
                    {"castWireClip", [rounding = rounding, bound = bound, target](const Arguments &in, const Format &) {
                         return bit(!isLost(in[0]->format, target, rounding) &&
                                    castTo(in[0]->value, target, rounding, bound).second);
                     }}};
                rows.push_back(row);
            }
        }
        rows.push_back({"reinterpret",
                        "castBlock",
                        {{"0", 'a'}},
                        {{"castOutputType", target.text()}, {"castMode", "castModeReinterp"}},
                        {{kOut, [](const Arguments &in, const Format &) { return in[0]->raw; }}}});
    }
    check(rows, {{'a', formats({-1, 0, 2})}});
}

// --- Blocks of two inputs --------------------------------------------------------------------------------------------

template <class Holds> Judge comparison(Holds holds) {
    return [holds](const Arguments &in, const Format &) { return bit(holds(cmp(in[0]->value, in[1]->value))); };
}

const std::vector<std::pair<const char *, char>> kPair = {{"0", 'a'}, {"1", 'b'}};

Judge sum() {
    return [](const Arguments &in, const Format &out) { return brought(in[0]->value + in[1]->value, out); };
}
Judge difference() {
    return [](const Arguments &in, const Format &out) { return brought(in[0]->value - in[1]->value, out); };
}
Judge product() {
    return [](const Arguments &in, const Format &out) { return brought(in[0]->value * in[1]->value, out); };
}

TEST(EveryFixedPair, goesThroughBlocksOfTwoInputs) {
    const std::vector<ExhaustiveCase> rows = {
        {"add", "addBlock", kPair, {}, {{kOut, sum()}}},
        {"add without growth", "addBlock", kPair, {{"addNoGrowth", "true"}}, {{kOut, sum()}}},
        {"sub", "subBlock", kPair, {}, {{kOut, difference()}}},
        {"both", "addsubfusedBlock", kPair, {}, {{kOut, sum()}, {kAux, difference()}}},
        {"mult", "multBlock", kPair, {}, {{kOut, product()}}},
        {"scalar product", "scalarProductBlock", kPair, {}, {{kOut, product()}}},
        {"divide", "divideBlock", kPair, {}, {{kOut, quotient}}},
        {"min", "minBlock", kPair, {}, {{kOut, extreme<false>}}},
        {"max", "maxBlock", kPair, {}, {{kOut, extreme<true>}}},
        {"magmin", "magminBlock", kPair, {}, {{kOut, extremeMagnitude<false>}}},
        {"magmax", "magmaxBlock", kPair, {}, {{kOut, extremeMagnitude<true>}}},
        {"dim",
         "dimBlock",
         kPair,
         {},
         {{kOut,
           [](const Arguments &in, const Format &out) {
               return brought(std::max(mpq_class(in[0]->value - in[1]->value), mpq_class(0)), out);
           }}}},
        {"eq", "cmpEqBlock", kPair, {}, {{kOut, comparison([](int order) { return order == 0; })}}},
        {"ne", "cmpNeBlock", kPair, {}, {{kOut, comparison([](int order) { return order != 0; })}}},
        {"ge", "cmpGeBlock", kPair, {}, {{kOut, comparison([](int order) { return order >= 0; })}}},
        {"lt", "cmpLtBlock", kPair, {}, {{kOut, comparison([](int order) { return order < 0; })}}},
        {"and", "andBlock", kPair, {}, {{kOut, gated<Gate::And, false>}}},
        {"nand", "nandBlock", kPair, {}, {{kOut, gated<Gate::And, true>}}},
        {"or", "orBlock", kPair, {}, {{kOut, gated<Gate::Or, false>}}},
        {"nor", "norBlock", kPair, {}, {{kOut, gated<Gate::Or, true>}}},
        {"xor", "xorBlock", kPair, {}, {{kOut, gated<Gate::Xor, false>}}},
        {"xnor", "xnorBlock", kPair, {}, {{kOut, gated<Gate::Xor, true>}}},
        {"join", "bitJoinBlock", kPair, {}, {{kOut, joined}}},
    };
    check(rows, {{'a', formats({-1, 0, 2})}, {'b', formats({-1, 0, 2})}});
}

TEST(EveryFixedPair, isShiftedByThePatternOfTheOther) {
    check({{"left", "barrelLeftBlock", {{"0", 'a'}, {"barrelPortShift", 'b'}}, {}, {{kOut, shifted<true>}}},
           {"right", "barrelRightBlock", {{"0", 'a'}, {"barrelPortShift", 'b'}}, {}, {{kOut, shifted<false>}}},
           {"right into a fraction",
            "barrelRightBlock",
            {{"0", 'a'}, {"barrelPortShift", 'b'}},
            {{"barrelOutputType", "(typeSFixed 3 4)"}},
            {{kOut, shifted<false>}}}},
          {{'a', formats({-1, 0, 2})}, {'b', {{1, 0, false}, {2, 0, false}, {3, 0, false}, {4, 0, false}}}});
}

/// These take integers only.
TEST(EveryInteger, isDivided) {
    const Judge byThree = [](const Arguments &in, const Format &out) {
        return truncated(scaled(in[0]->value / 3, out.fraction));
    };
    check({{"by constant", "constdivBlock", {{"0", 'a'}}, {{"constValue", "3"}}, {{kOut, byThree}}}},
          {{'a', formats({0})}});
    for (const Format &format : formats({0})) {
        check({{"integer quotient", "divideBlock", kPair, {{"intDivider", "true"}}, {{kOut, quotient}}}},
              {{'a', {format}}, {'b', {format}}});
    }
    const Judge moduloFive = [](const Arguments &in, const Format &) {
        return mpz_class(in[0]->pattern * in[1]->pattern % 5);
    };
    const std::vector<Format> naturals = {{1, 0, false}, {2, 0, false}, {3, 0, false}, {4, 0, false}};
    check({{"modulo", "modMultBlock", kPair, {{"modMultModulusValue", "5"}}, {{kOut, moduloFive}}}},
          {{'a', naturals}, {'b', naturals}});
}

// --- Blocks of three and more ----------------------------------------------------------------------------------------

/// The value of one of the inputs.
Judge chosen(std::function<std::size_t(const Arguments &in)> which) {
    return [which](const Arguments &in, const Format &out) { return brought(in[which(in)]->value, out); };
}

TEST(EveryFixedTriple, goesThroughBlocksWithAControl) {
    const std::vector<ExhaustiveCase> rows = {
        {"add or sub",
         "addsubBlock",
         {{"0", 'a'}, {"1", 'b'}, {"addsubPortSelect", 'c'}},
         {},
         {{kOut, [](const Arguments &in,
                    const Format &out) { return in[2]->pattern != 0 ? sum()(in, out) : difference()(in, out); }}}},
        {"min or max",
         "minmaxBlock",
         {{"0", 'a'}, {"1", 'b'}, {"minmaxPortSelect", 'c'}},
         {},
         {{kOut,
           [](const Arguments &in, const Format &out) {
               const Arguments both{in[0], in[1]};
               return in[2]->pattern != 0 ? extreme<true>(both, out) : extreme<false>(both, out);
           }}}},
        {"ge or lt",
         "comparectrlBlock",
         {{"0", 'a'}, {"1", 'b'}, {"comparePortSelect", 'c'}},
         {},
         {{kOut, [](const Arguments &in,
                    const Format &) { return bit((in[0]->value >= in[1]->value) == (in[2]->pattern != 0)); }}}},
        {"load",
         "addSloadBlock",
         {{"0", 'a'}, {"1", 'b'}, {"addSloadPortLoadCtrl", 'c'}, {"addSloadPortLoadValue", 'b'}},
         {},
         {{kOut, [](const Arguments &in,
                    const Format &out) { return in[2]->pattern != 0 ? brought(in[3]->value, out) : sum()(in, out); }}}},
        {"mux",
         "muxBlock",
         {{"0", 'a'}, {"1", 'b'}, {"muxPortSelect", 'c'}},
         {},
         {{kOut, chosen([](const Arguments &in) { return in[2]->pattern; })}}},
        {"select",
         "selectBlock",
         {{"(selectPortkeyData 0)", 'a'}, {"selectPortDefaultData", 'b'}, {"(selectPortkeyCtrl 0)", 'c'}},
         {},
         {{kOut, chosen([](const Arguments &in) -> std::size_t { return in[2]->pattern != 0 ? 0 : 1; })},
          {"selectWireValid", [](const Arguments &in, const Format &) { return bit(in[2]->pattern != 0); }}}},
    };
    check(rows, {{'a', formats({0, 2})}, {'b', formats({-1, 0})}, {'c', {{1, 0, false}}}});
}

TEST(EveryFixedTriple, goesThroughBlocksOfThreeNumbers) {
    const std::vector<std::pair<const char *, char>> three = {{"0", 'a'}, {"1", 'b'}, {"2", 'c'}};
    const std::vector<ExhaustiveCase> rows = {
        {"add",
         "addBlock",
         three,
         {},
         {{kOut, [](const Arguments &in,
                    const Format &out) { return brought(in[0]->value + in[1]->value + in[2]->value, out); }}}},
        {"sub",
         "subBlock",
         three,
         {},
         {{kOut, [](const Arguments &in,
                    const Format &out) { return brought(in[0]->value - in[1]->value - in[2]->value, out); }}}},
        {"mult",
         "multBlock",
         three,
         {},
         {{kOut, [](const Arguments &in,
                    const Format &out) { return brought(in[0]->value * in[1]->value * in[2]->value, out); }}}},
        {"saturate",
         "saturateBlock",
         three,
         {},
         {{kOut,
           [](const Arguments &in, const Format &out) {
               return brought(std::max(std::min(in[0]->value, in[1]->value), in[2]->value), out);
           }}}},
        {"min", "minBlock", three, {}, {{kOut, extreme<false>}}},
        {"max", "maxBlock", three, {}, {{kOut, extreme<true>}}},
        {"nand", "nandBlock", three, {}, {{kOut, gated<Gate::And, true>}}},
        {"xnor", "xnorBlock", three, {}, {{kOut, gated<Gate::Xor, true>}}},
        {"join", "bitJoinBlock", three, {}, {{kOut, joined}}},
        {"multiply and add",
         "scalarProductBlock",
         {{"0", 'a'}, {"1", 'b'}, {"scalarProductPortChainin", 'c'}},
         {},
         {{kOut, [](const Arguments &in,
                    const Format &out) { return brought(in[0]->value * in[1]->value + in[2]->value, out); }}}},
    };
    check(rows, {{'a', formats({2})}, {'b', formats({0})}, {'c', {{4, -1, true}, {3, 1, false}}}});
}

TEST(EveryFixedTriple, isChosenFromByNumber) {
    const Judge selected = [](const Arguments &in, const Format &out) {
        return in[3]->pattern > 2 ? mpz_class(0) : brought(in[in[3]->pattern]->value, out);
    };
    check({{"mux", "muxBlock", {{"0", 'a'}, {"1", 'b'}, {"2", 'c'}, {"muxPortSelect", 'd'}}, {}, {{kOut, selected}}}},
          {{'a', {{4, 2, true}, {3, -1, false}}}, {'b', formats({0})}, {'c', {{3, 1, true}}}, {'d', {{2, 0, false}}}});
}

} // namespace
} // namespace orvo::sim
