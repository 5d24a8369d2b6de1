// The kernels against exact arithmetic: every operator at every type up to four bits on every input, and the three
// kinds of integers against each other at any width.
#include "sim/kernels.h"

#include "sim/bigint.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <functional>
#include <optional>

namespace orvo::sim {
namespace {

struct Type {
    std::uint32_t width;
    int fraction;
    bool isSigned;
};

std::vector<Type> smallTypes() {
    std::vector<Type> types;
    for (std::uint32_t width = 1; width <= 4; ++width) {
        for (int fraction : {-1, 0, 2}) {
            types.push_back({width, fraction, false});
            types.push_back({width, fraction, true});
        }
    }
    return types;
}

std::int64_t lowest(const Type &type) { return type.isSigned ? -(std::int64_t{1} << (type.width - 1)) : 0; }
std::int64_t highest(const Type &type) { return lowest(type) + (std::int64_t{1} << type.width) - 1; }

/// An exact number: an integer over two to the power of eight, which holds all that these types can make.
constexpr int kScale = 8;
using Exact = __int128;

Exact exact(std::int64_t raw, const Type &type) { return static_cast<Exact>(raw) << (kScale - type.fraction); }

/// The floor of a number at a type's fraction, wrapped into its width.
std::int64_t brought(Exact value, const Type &type) {
    const Exact floor = value >> (kScale - type.fraction);
    const Exact span = Exact{1} << type.width;
    Exact rest = ((floor % span) + span) % span;
    if (type.isSigned && rest >= span / 2) {
        rest -= span;
    }
    return static_cast<std::int64_t>(rest);
}

/// Runs one kernel on integers of at most a word.
class Bench {
  public:
    Bench(const Type &out, std::vector<Type> in, int drop, std::vector<int> shifts) {
        op.out = {0, out.width, out.isSigned, false, drop};
        for (std::size_t i = 0; i < in.size(); ++i) {
            operands.push_back({static_cast<std::uint32_t>(i + 1), in[i].width, in[i].isSigned, false, shifts[i]});
        }
        words.resize(in.size() + 1);
        op.in = operands.data();
        op.count = static_cast<std::uint32_t>(operands.size());
    }
    std::int64_t run(std::initializer_list<std::int64_t> values) {
        std::size_t at = 1;
        for (const std::int64_t value : values) {
            words[at++] = static_cast<std::uint64_t>(value);
        }
        op.run(words.data(), op);
        return static_cast<std::int64_t>(words[0]);
    }
    Op op;
    std::vector<Operand> operands;
    std::vector<std::uint64_t> words;
};

template <class Visit> void forAllPairs(Visit visit) {
    for (const Type &a : smallTypes()) {
        for (const Type &b : smallTypes()) {
            for (const Type &out : {Type{4, 0, true}, Type{3, 1, false}, Type{8, 4, true}}) {
                visit(a, b, out);
            }
        }
    }
}

template <class Check> void forAllValues(const Type &a, const Type &b, Check check) {
    for (std::int64_t x = lowest(a); x <= highest(a); ++x) {
        for (std::int64_t y = lowest(b); y <= highest(b); ++y) {
            check(x, y);
        }
    }
}

TEST(Kernels, addSubtractAndMultiplyExactly) {
    forAllPairs([](const Type &a, const Type &b, const Type &out) {
        const int fraction = std::max(a.fraction, b.fraction);
        const std::vector<int> shifts{fraction - a.fraction, fraction - b.fraction};
        Bench sum(out, {a, b}, fraction - out.fraction, shifts);
        sum.op.run = sumKernel(sum.op);
        Bench difference(out, {a, b}, fraction - out.fraction, shifts);
        difference.operands[1].isNegated = true;
        difference.op.run = sumKernel(difference.op);
        Bench product(out, {a, b}, a.fraction + b.fraction - out.fraction, {0, 0});
        product.op.run = productKernel(product.op);
        Bench pair(out, {a, b}, a.fraction + b.fraction - out.fraction, {0, 0});
        pair.operands[0].isNegated = true;
        pair.op.run = productSumKernel(pair.op);
        forAllValues(a, b, [&](std::int64_t x, std::int64_t y) {
            ASSERT_EQ(sum.run({x, y}), brought(exact(x, a) + exact(y, b), out));
            ASSERT_EQ(difference.run({x, y}), brought(exact(x, a) - exact(y, b), out));
            const Exact xy = static_cast<Exact>(x * y) << (kScale - a.fraction - b.fraction);
            ASSERT_EQ(product.run({x, y}), brought(xy, out));
            ASSERT_EQ(pair.run({x, y}), brought(-xy, out));
        });
    });
}

TEST(Kernels, compareAndChooseByValue) {
    forAllPairs([](const Type &a, const Type &b, const Type &out) {
        const int fraction = std::max(a.fraction, b.fraction);
        const std::vector<int> shifts{fraction - a.fraction, fraction - b.fraction};
        const std::pair<Relation, std::function<bool(Exact, Exact)>> relations[] = {
            {Relation::Equal, [](Exact x, Exact y) { return x == y; }},
            {Relation::NotEqual, [](Exact x, Exact y) { return x != y; }},
            {Relation::GreaterEqual, [](Exact x, Exact y) { return x >= y; }},
            {Relation::Less, [](Exact x, Exact y) { return x < y; }}};
        for (const auto &[relation, holds] : relations) {
            Bench compare({1, 0, false}, {a, b}, 0, shifts);
            compare.op.run = compareKernel(compare.op, relation);
            forAllValues(a, b, [&, &holds = holds](std::int64_t x, std::int64_t y) {
                ASSERT_EQ(compare.run({x, y}), holds(exact(x, a), exact(y, b)) ? 1 : 0);
            });
        }
        for (const int larger : {0, 1}) {
            Bench extreme(out, {a, b}, fraction - out.fraction, shifts);
            extreme.op.aux = larger;
            extreme.op.run = extremeKernel(extreme.op);
            forAllValues(a, b, [&](std::int64_t x, std::int64_t y) {
                const Exact first = exact(x, a);
                const Exact second = exact(y, b);
                ASSERT_EQ(extreme.run({x, y}), brought((larger != 0) == (second > first) ? second : first, out));
            });
        }
    });
}

TEST(Kernels, divideTowardZero) {
    forAllPairs([](const Type &a, const Type &b, const Type &out) {
        const int shift = out.fraction - a.fraction + b.fraction;
        Bench quotient(out, {a, b}, 0, {std::max(shift, 0), std::max(-shift, 0)});
        quotient.op.run = divideKernel(quotient.op);
        Bench rest(out, {a, b}, 0, {0, 0});
        rest.op.run = moduloKernel(rest.op);
        forAllValues(a, b, [&](std::int64_t x, std::int64_t y) {
            const Exact scaled = static_cast<Exact>(x) << std::max(shift, 0);
            const Exact divisor = static_cast<Exact>(y) << std::max(-shift, 0);
            const Exact cut = y == 0 ? 0 : scaled / divisor;
            ASSERT_EQ(quotient.run({x, y}), brought(cut << (kScale - out.fraction), out));
            const std::int64_t positive = y == 0 ? 0 : ((x % y) + std::abs(y)) % std::abs(y);
            ASSERT_EQ(rest.run({x, y}), brought(static_cast<Exact>(positive) << (kScale - out.fraction), out));
        });
    });
}

TEST(Kernels, workOnRawBits) {
    for (const Type &a : smallTypes()) {
        const auto mask = static_cast<std::uint64_t>((1 << a.width) - 1);
        Bench count({4, 0, false}, {a}, 0, {0});
        count.op.run = countOnesKernel(count.op);
        Bench turned({a.width, 0, false}, {a}, 0, {0});
        turned.op.run = reverseKernel(turned.op);
        Bench joined({8, 0, false}, {a, {3, 0, true}}, 0, {0, 0});
        joined.op.run = joinKernel(joined.op);
        for (std::int64_t x = lowest(a); x <= highest(a); ++x) {
            const std::uint64_t bits = static_cast<std::uint64_t>(x) & mask;
            std::int64_t reversed = 0;
            for (std::uint32_t i = 0; i < a.width; ++i) {
                reversed |= static_cast<std::int64_t>(bits >> i & 1U) << (a.width - 1 - i);
            }
            ASSERT_EQ(count.run({x}), __builtin_popcountll(bits));
            ASSERT_EQ(turned.run({x}), reversed);
            for (std::int64_t y = -4; y < 4; ++y) {
                ASSERT_EQ(joined.run({x, y}),
                          static_cast<std::int64_t>(bits | (static_cast<std::uint64_t>(y) & 7U) << a.width));
            }
            for (const int complement : {0, 1}) {
                const auto bitOf = [&](Logic logic) {
                    Bench reduce({1, 0, false}, {a}, 0, {0});
                    reduce.op.aux = complement;
                    reduce.op.run = reduceKernel(reduce.op, logic);
                    return reduce.run({x});
                };
                ASSERT_EQ(bitOf(Logic::And), (bits == mask ? 1 : 0) ^ complement);
                ASSERT_EQ(bitOf(Logic::Or), (bits != 0 ? 1 : 0) ^ complement);
                ASSERT_EQ(bitOf(Logic::Xor), __builtin_parityll(bits) ^ complement);
            }
        }
    }
}

TEST(Kernels, meetBitByBitInTheOutputsType) {
    forAllPairs([](const Type &a, const Type &b, const Type &out) {
        for (const int complement : {0, 1}) {
            for (const Logic logic : {Logic::And, Logic::Or, Logic::Xor}) {
                Bench bits(out, {a, b}, 0, {out.fraction - a.fraction, out.fraction - b.fraction});
                bits.op.aux = complement;
                bits.op.run = logicKernel(bits.op, logic);
                forAllValues(a, b, [&](std::int64_t x, std::int64_t y) {
                    const Exact p = exact(x, a) >> (kScale - out.fraction);
                    const Exact q = exact(y, b) >> (kScale - out.fraction);
                    Exact both = logic == Logic::And ? p & q : logic == Logic::Or ? p | q : p ^ q;
                    both = complement != 0 ? ~both : both;
                    ASSERT_EQ(bits.run({x, y}), brought(both << (kScale - out.fraction), out));
                });
            }
        }
    });
}

/// What rounding by the words of its definition gives, on halves of units.
Exact roundedBy(Rounding rounding, Exact value, int bits) {
    if (bits <= 0) {
        return value << -bits;
    }
    const Exact unit = Exact{1} << bits;
    const Exact floor = value >> bits;
    const Exact ceiling = -((-value) >> bits);
    const Exact twice = 2 * (value - floor * unit);
    switch (rounding) {
    case Rounding::Floor:
        return floor;
    case Rounding::ToZero:
        return value < 0 ? ceiling : floor;
    case Rounding::HalfUp:
        return twice >= unit ? floor + 1 : floor;
    case Rounding::HalfEven:
        return twice > unit || (twice == unit && floor % 2 != 0) ? floor + 1 : floor;
    case Rounding::HalfAway:
        return twice > unit || (twice == unit && value > 0) ? floor + 1 : floor;
    case Rounding::Ceiling:
        return ceiling;
    }
    return 0;
}

TEST(Kernels, castByEveryRoundingAndSaturation) {
    for (const Type &a : smallTypes()) {
        for (const Type &out : smallTypes()) {
            const int drop = a.fraction - out.fraction;
            for (const Rounding rounding : {Rounding::Floor, Rounding::ToZero, Rounding::HalfUp, Rounding::HalfEven,
                                            Rounding::HalfAway, Rounding::Ceiling}) {
                for (const Saturation saturation : {Saturation::Wrap, Saturation::Symmetric, Saturation::Asymmetric}) {
                    Bench cast(out, {a}, drop, {0});
                    cast.op.run = castKernel(cast.op, rounding, saturation);
                    Bench clip({1, 0, false}, {a}, drop, {0});
                    clip.op.aux = static_cast<int>(out.width) | (out.isSigned ? 1 << 24 : 0);
                    clip.op.run = clipKernel(clip.op, rounding, saturation);
                    for (std::int64_t x = lowest(a); x <= highest(a); ++x) {
                        const Exact value = roundedBy(rounding, x, drop);
                        const Exact high = highest(out);
                        const Exact low = saturation == Saturation::Symmetric && out.isSigned ? -high : lowest(out);
                        const bool clips = saturation != Saturation::Wrap && (value < low || value > high);
                        const Exact kept = !clips ? value : value < low ? low : high;
                        ASSERT_EQ(cast.run({x}), brought(kept << (kScale - out.fraction), out))
                            << int(rounding) << int(saturation);
                        ASSERT_EQ(clip.run({x}), clips ? 1 : 0);
                    }
                }
            }
        }
    }
}

TEST(Kernels, takeTheInputWhoseNumberIsSelected) {
    Bench mux({4, 0, true}, {{3, 0, true}, {4, 0, true}, {4, 0, false}, {2, -1, true}}, 0, {0, 0, 0, 1});
    mux.op.run = muxKernel(mux.op);
    EXPECT_EQ(mux.run({0, -3, 5, 1}), -3);
    EXPECT_EQ(mux.run({1, -3, 15, 1}), -1);
    EXPECT_EQ(mux.run({2, -3, 5, -2}), -4);
    // Three is beyond the last, as is -1, which is seven as a pattern.
    EXPECT_EQ(mux.run({3, -3, 5, 1}), 0);
    EXPECT_EQ(mux.run({-1, -3, 5, 1}), 0);
}

/// A value of any width in words, drawn.
std::vector<std::uint64_t> drawnWords(std::uint32_t width, bool isSigned) {
    std::vector<std::uint64_t> words(wordsFor(width));
    for (std::uint64_t &word : words) {
        // Ends of the range are where mistakes are.
        word = *rc::gen::oneOf(rc::gen::arbitrary<std::uint64_t>(),
                               rc::gen::element<std::uint64_t>(0, ~0ULL, 1ULL << 63U));
    }
    const std::uint32_t used = width - static_cast<std::uint32_t>(words.size() - 1) * 64;
    if (used < 64) {
        const std::uint64_t high = words.back() << (64 - used);
        words.back() =
            isSigned ? static_cast<std::uint64_t>(static_cast<std::int64_t>(high) >> (64 - used)) : high >> (64 - used);
    }
    return words;
}

BigInt valueOf(const std::vector<std::uint64_t> &words, bool isSigned) {
    BigInt value;
    mpz_import(value.get(), words.size(), -1, 8, 0, 0, words.data());
    if (isSigned && static_cast<std::int64_t>(words.back()) < 0) {
        value -= BigInt(1) << static_cast<unsigned>(words.size() * 64);
    }
    return value;
}

/// The ends of a type's range and what lies beside zero, in words.
std::vector<BigInt> edgesOf(std::uint32_t width, bool isSigned) {
    const BigInt one(1);
    const BigInt half = one << (width - 1);
    std::vector<BigInt> edges{BigInt(0), isSigned ? half - one : (half << 1) - one};
    if (isSigned) {
        edges.push_back(-BigInt(half));
        edges.push_back(BigInt(-1));
    } else {
        edges.push_back(half);
    }
    return edges;
}

void putInto(std::vector<std::uint64_t> &words, std::uint32_t at, std::uint32_t width, const BigInt &value) {
    BigInt pattern;
    mpz_fdiv_r_2exp(pattern.get(), value.get(), wordsFor(width) * 64UL);
    std::fill(words.begin() + at, words.begin() + at + wordsFor(width), 0);
    mpz_export(words.data() + at, nullptr, -1, 8, 0, 0, pattern.get());
}

/// What the exact value is behind the dropped bits, in a type's width.
BigInt cutTo(const BigInt &exact, std::int32_t drop, std::uint32_t width, bool isSigned) {
    BigInt rest;
    mpz_fdiv_q_2exp(rest.get(), exact.get(), static_cast<unsigned>(drop));
    mpz_fdiv_r_2exp(rest.get(), rest.get(), width);
    if (isSigned && mpz_tstbit(rest.get(), width - 1) != 0) {
        rest -= BigInt(1) << width;
    }
    return rest;
}

/// Where one kind of integer ends and the next begins, carries and signs get lost: there each pair of ends is tried.
TEST(WideKernels, keepCarriesAndSignsWhereWordsEnd) {
    const std::uint32_t widths[] = {4, 62, 63, 64, 65, 127, 128, 129};
    const auto forEachType = [&](auto visit) {
        for (const std::uint32_t width : widths) {
            visit(width, false);
            visit(width, true);
        }
    };
    forEachType([&](std::uint32_t widthA, bool signedA) {
        forEachType([&](std::uint32_t widthB, bool signedB) {
            forEachType([&](std::uint32_t width, bool isSigned) {
                const std::uint32_t atB = wordsFor(widthA);
                const std::uint32_t atOut = atB + wordsFor(widthB);
                std::vector<std::uint64_t> words(atOut + wordsFor(width));
                Operand operands[] = {{0, widthA, signedA, false, 0}, {atB, widthB, signedB, false, 0}};
                Op op;
                op.in = operands;
                op.count = 2;
                // A bit is dropped, which moves the carry into the result.
                op.out = {atOut, width, isSigned, false, 1};
                const Kernel sum = sumKernel(op);
                const Kernel product = productKernel(op);
                operands[1].isNegated = true;
                const Kernel difference = sumKernel(op);
                for (const BigInt &a : edgesOf(widthA, signedA)) {
                    for (const BigInt &b : edgesOf(widthB, signedB)) {
                        putInto(words, 0, widthA, a);
                        putInto(words, atB, widthB, b);
                        const auto result = [&](Kernel kernel) {
                            kernel(words.data(), op);
                            return valueOf({words.begin() + atOut, words.end()}, isSigned);
                        };
                        ASSERT_TRUE(result(difference) == cutTo(a - b, 1, width, isSigned)) << widthA << " " << widthB;
                        operands[1].isNegated = false;
                        ASSERT_TRUE(result(sum) == cutTo(a + b, 1, width, isSigned)) << widthA << " " << widthB;
                        ASSERT_TRUE(result(product) == cutTo(a * b, 1, width, isSigned)) << widthA << " " << widthB;
                        operands[1].isNegated = true;
                    }
                }
            });
        });
    });
}

RC_GTEST_PROP(WideKernels, computeWhatGmpDoesAtAnyWidth, ()) {
    const auto width = [] {
        return *rc::gen::element<std::uint32_t>(1, 31, 32, 33, 63, 64, 65, 100, 127, 128, 129, 200, 300);
    };
    const std::uint32_t widths[] = {width(), width(), width()};
    const bool isSigned[] = {*rc::gen::arbitrary<bool>(), *rc::gen::arbitrary<bool>(), *rc::gen::arbitrary<bool>()};
    const auto a = drawnWords(widths[0], isSigned[0]);
    const auto b = drawnWords(widths[1], isSigned[1]);
    const int shift = *rc::gen::inRange(0, 70);
    const int drop = *rc::gen::inRange(-70, 70);
    const auto at = static_cast<std::uint32_t>(a.size());
    const auto outAt = static_cast<std::uint32_t>(a.size() + b.size());
    std::vector<std::uint64_t> words(a);
    words.insert(words.end(), b.begin(), b.end());
    words.resize(outAt + wordsFor(widths[2]));
    const Operand operands[] = {{0, widths[0], isSigned[0], false, shift}, {at, widths[1], isSigned[1], false, 0}};
    Op op;
    op.out = {outAt, widths[2], isSigned[2], false, drop};
    op.in = operands;
    op.count = 2;
    const BigInt x = valueOf(a, isSigned[0]) << static_cast<unsigned>(shift);
    const BigInt y = valueOf(b, isSigned[1]);
    const auto result = [&](Kernel kernel) {
        kernel(words.data(), op);
        return valueOf({words.begin() + outAt, words.end()}, isSigned[2]);
    };
    const auto expected = [&](BigInt exact, int right) {
        exact = right >= 0 ? std::move(exact) >> static_cast<unsigned>(right)
                           : std::move(exact) << static_cast<unsigned>(-right);
        BigInt rest;
        mpz_fdiv_r_2exp(rest.get(), exact.get(), widths[2]);
        if (isSigned[2] && mpz_tstbit(rest.get(), widths[2] - 1) != 0) {
            rest -= BigInt(1) << widths[2];
        }
        return rest;
    };
    RC_ASSERT(result(sumKernel(op)) == expected(x + y, drop));
    RC_ASSERT(result(productKernel(op)) == expected(x * y, drop));
    RC_ASSERT(result(productSumKernel(op)) == expected(x * y, drop));
    RC_ASSERT(result(extremeKernel(op)) == expected(x < y || x == y ? x : y, drop));
    RC_ASSERT(result(logicKernel(op, Logic::Xor)) == expected(x ^ y, drop));
    RC_ASSERT(result(castKernel(op, Rounding::Floor, Saturation::Wrap)) == expected(x, drop));
    op.out.shift = 0;
    if (y != BigInt(0)) {
        RC_ASSERT(result(divideKernel(op)) == expected(x / y, 0));
    }
    op.out = {outAt, 1, false, false, 0};
    compareKernel(op, Relation::Less)(words.data(), op);
    RC_ASSERT(words[outAt] == (x < y ? 1U : 0U));
}

} // namespace
} // namespace orvo::sim
