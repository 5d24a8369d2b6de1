// Sums, products, quotients, comparisons, choices and casts as Verilog.
#include "support/verilogwriter.h"

#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>

namespace orvo::test {

namespace {

/// What the signals hold at a place; those without an imaginary part are left out there.
std::vector<Net> netsAt(const std::vector<NetSignal> &signals, int lane, int part) {
    std::vector<Net> nets;
    for (const NetSignal &signal : signals) {
        if (const Net *net = signal.at(lane, part)) {
            nets.push_back(*net);
        }
    }
    return nets;
}

Net netOrZero(const NetSignal &signal, int lane, int part) {
    const Net *net = signal.at(lane, part);
    return net != nullptr ? *net : literal(0, 1);
}

int widest(const std::vector<Net> &nets) {
    int width = 1;
    for (const Net &net : nets) {
        width = std::max(width, net.width);
    }
    return width;
}

/// Bits that a sum of so many terms grows by, and one for a minus.
int growth(std::size_t terms) {
    int bits = 1;
    for (std::size_t reach = 1; reach < terms; reach *= 2) {
        ++bits;
    }
    return bits;
}

/// The text of a sum of values that are aligned already.
template <class IsNegative> std::string sumText(const std::vector<Net> &values, IsNegative isNegative) {
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i) {
        text += (isNegative(i) ? (i == 0 ? "-" : " - ") : (i == 0 ? "" : " + ")) + values[i].text;
    }
    return text;
}

template <class IsNegative> Net exactSum(VerilogText &text, const std::vector<Net> &nets, IsNegative isNegative) {
    const int fraction = commonFraction(nets);
    const std::vector<Net> values = text.aligned(nets, fraction);
    return text.define({"", widest(values) + growth(values.size()), fraction, true}, sumText(values, isNegative));
}

template <class IsNegative>
void driveSum(VerilogText &text, const Net &out, const std::vector<Net> &nets, IsNegative isNegative) {
    if (commonFraction(nets) == out.fraction) {
        // The bits of the sum below the width of the output depend on those of the terms only.
        text.assign(out, sumText(text.aligned(nets, out.fraction), isNegative));
        return;
    }
    text.drive(out, exactSum(text, nets, isNegative));
}

bool never(std::size_t) { return false; }
bool always(std::size_t) { return true; }
bool behindTheFirst(std::size_t i) { return i != 0; }

template <class IsNegative>
void writeSumOf(VerilogBlock &block, const std::vector<NetSignal> &in, const NetSignal &out, IsNegative isNegative) {
    forEachNet(out, [&](int lane, int part, const Net &net) {
        std::vector<Net> nets;
        std::vector<bool> minus;
        for (std::size_t i = 0; i < in.size(); ++i) {
            if (const Net *term = in[i].at(lane, part)) {
                nets.push_back(*term);
                minus.push_back(isNegative(i));
            }
        }
        driveSum(block.text, net, nets, [&](std::size_t i) { return static_cast<bool>(minus[i]); });
    });
}

void writeAdd(VerilogBlock &block) { writeSumOf(block, block.numbered(), block.out(), never); }
void writeSub(VerilogBlock &block) { writeSumOf(block, block.numbered(), block.out(), behindTheFirst); }
void writeNeg(VerilogBlock &block) { writeSumOf(block, {block.need(0)}, block.out(), always); }

void writeConjugate(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        driveSum(block.text, net, {netOrZero(in, lane, part)}, [part](std::size_t) { return part == 1; });
    });
}

void writeAddSubFused(VerilogBlock &block) {
    writeAdd(block);
    writeSumOf(block, block.numbered(), block.out(A_PRIM_WIRE_AUX), behindTheFirst);
}

/// One of two values, by a condition.
void driveChoice(VerilogText &text, const Net &out, const std::string &condition, const Net &whenTrue,
                 const Net &whenFalse) {
    const int fraction = commonFraction({whenTrue, whenFalse});
    const std::vector<Net> both = text.aligned({whenTrue, whenFalse}, fraction);
    text.drive(out, text.define({"", widest(both), fraction, true},
                                fmt::format("{} ? {} : {}", condition, both[0].text, both[1].text)));
}

void writeAddSub(VerilogBlock &block) {
    const NetSignal select = block.need(A_ADDSUB_PORT_SELECT);
    const NetSignal a = block.need(0);
    const NetSignal b = block.need(1);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        const std::vector<Net> both{netOrZero(a, lane, part), netOrZero(b, lane, part)};
        driveChoice(block.text, net, truth(*select.at(lane)), exactSum(block.text, both, never),
                    exactSum(block.text, both, behindTheFirst));
    });
}

void writeAddSload(VerilogBlock &block) {
    const NetSignal load = block.need(A_ADD_SLOAD_PORT_LOAD_CTRL);
    const NetSignal value = block.need(A_ADD_SLOAD_PORT_LOAD_VALUE);
    const NetSignal a = block.need(0);
    const NetSignal b = block.need(1);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        driveChoice(block.text, net, truth(*load.at(lane)), netOrZero(value, lane, part),
                    exactSum(block.text, {netOrZero(a, lane, part), netOrZero(b, lane, part)}, never));
    });
}

/// Over the outermost dimension of one vector, or over several ports.
void writeAddReduce(VerilogBlock &block) {
    const std::vector<NetSignal> in = block.numbered();
    if (in.size() > 1 || in[0].dims.empty()) {
        writeAdd(block);
        return;
    }
    const auto length = static_cast<std::size_t>(in[0].dims[0]);
    const std::size_t each = in[0].nets.size() / length;
    const NetSignal out = block.out();
    for (std::size_t i = 0; i < out.nets.size(); ++i) {
        std::vector<Net> terms;
        for (std::size_t j = 0; j < length; ++j) {
            terms.push_back(in[0].nets[j * each + i]);
        }
        driveSum(block.text, out.nets[i], terms, never);
    }
}

Net product(VerilogText &text, const Net &a, const Net &b) {
    const Net x = VerilogText::exact(a);
    const Net y = VerilogText::exact(b);
    return text.define({"", x.width + y.width, x.fraction + y.fraction, true}, x.text + " * " + y.text);
}

/// A number on the way through a product.
struct Complex {
    Net re;
    std::optional<Net> im;
};

Complex numberAt(const NetSignal &signal, int lane) {
    const Net *im = signal.at(lane, 1);
    return {*signal.at(lane), im != nullptr ? std::optional<Net>(*im) : std::nullopt};
}

/// (a + bi)(c + di) = ac - bd + (ad + bc)i
Complex product(VerilogText &text, const Complex &x, const Complex &y) {
    const Net ac = product(text, x.re, y.re);
    if (!x.im && !y.im) {
        return {ac, std::nullopt};
    }
    const Net none = literal(0, 1);
    const Net b = x.im.value_or(none);
    const Net d = y.im.value_or(none);
    return {exactSum(text, {ac, product(text, b, d)}, behindTheFirst),
            exactSum(text, {product(text, x.re, d), product(text, b, y.re)}, never)};
}

void writeProductOf(VerilogBlock &block, const std::vector<NetSignal> &in) {
    const NetSignal out = block.out();
    for (int lane = 0; out.known() && lane < out.lanes(); ++lane) {
        Complex all = numberAt(in[0], lane);
        for (std::size_t i = 1; i < in.size(); ++i) {
            all = product(block.text, all, numberAt(in[i], lane));
        }
        block.text.drive(*out.at(lane, 0), all.re);
        if (const Net *im = out.at(lane, 1)) {
            block.text.drive(*im, all.im.value_or(literal(0, 1)));
        }
    }
}

void writeMult(VerilogBlock &block) { writeProductOf(block, block.numbered()); }

/// The constant of a parameter as a signal: an integer over a power of two, lane by lane and part by part.
NetSignal constantOf(VerilogBlock &block, const StaticString &key, int lanes, bool isComplex) {
    NetSignal signal;
    signal.element = isComplex ? 2 : 1;
    for (int i = 0; i < lanes * signal.element; ++i) {
        const NumberValueRef number = block.number(key, i);
        if (!number) {
            block.fail("a constant is no number");
        }
        const auto [whole, fraction] = number->getBitWidths();
        signal.nets.push_back(literal(number, {"", std::max(whole + fraction, 0) + 2, fraction, true}));
    }
    return signal;
}

NetSignal constantOf(VerilogBlock &block, const StaticString &key) {
    const TupleValueRef tuple = tupleVR(block.param(key));
    const bool isComplex = tuple && tuple->size() == 3 && tuple->at(0) == A_COMPLEX_ROLL_TAG;
    const bool isVector = tuple && tuple->size() != 0 && tuple->at(0) == A_VECTOR_ROLL_TAG;
    return constantOf(block, key, isVector ? static_cast<int>(tuple->size()) - 1 : 1, isComplex);
}

/// The numbers of a constant, rolled by dimensions and parts, for the scalars of a signal; what is not rolled serves
/// all.
void appendNumbers(VerilogBlock &block, const ValueRef &value, const NetSignal &signal, std::size_t dim,
                   std::vector<NumberValueRef> &numbers) {
    const TupleValueRef tuple = tupleVR(value);
    if (dim < signal.dims.size()) {
        const bool isRolled = tuple && tuple->size() != 0 && tuple->at(0) == A_VECTOR_ROLL_TAG;
        for (std::size_t i = 0; i < static_cast<std::size_t>(signal.dims[dim]); ++i) {
            appendNumbers(block, isRolled ? tuple->at(i + 1) : value, signal, dim + 1, numbers);
        }
        return;
    }
    const bool isComplex = tuple && tuple->size() == 3 && tuple->at(0) == A_COMPLEX_ROLL_TAG;
    for (std::size_t part = 0; part < static_cast<std::size_t>(signal.element); ++part) {
        const NumberValueRef zero = NumberValue::get(0, block.block().getContext());
        numbers.push_back(isComplex ? numberVR(tuple->at(part + 1)) : part == 0 ? numberVR(value) : zero);
        if (!numbers.back()) {
            block.fail("a constant is no number");
        }
    }
}

void writeConst(VerilogBlock &block) {
    const NetSignal out = block.out();
    std::vector<NumberValueRef> numbers;
    appendNumbers(block, block.param(A_CONST_VALUE), out, 0, numbers);
    for (std::size_t i = 0; i < out.nets.size(); ++i) {
        block.text.assign(out.nets[i], literal(numbers[i], out.nets[i]).text);
    }
}

void writeOne(VerilogBlock &block) {
    forEachNet(block.out(), [&](int, int, const Net &net) { block.text.drive(net, literal(1, 2)); });
}

void writeZero(VerilogBlock &block) {
    forEachNet(block.out(), [&](int, int, const Net &net) { block.text.assign(net, literal(0, net.width).text); });
}

void writeConstMult(VerilogBlock &block) { writeProductOf(block, {block.need(0), constantOf(block, A_CONST_VALUE)}); }

/// The sum of products of pairs and the chain-in; vectors make dot products.
void writeScalarProduct(VerilogBlock &block) {
    const std::vector<NetSignal> in = block.numbered();
    const NetSignal chain = block.in(A_SCALAR_PRODUCT_PORT_CHAININ);
    if (block.out().element != 1 || !block.out().dims.empty()) {
        block.fail("the output is no real scalar");
    }
    std::vector<Net> terms;
    std::vector<bool> minus;
    for (std::size_t i = 0; i + 1 < in.size(); i += 2) {
        for (int lane = 0; lane < std::max(in[i].lanes(), in[i + 1].lanes()); ++lane) {
            terms.push_back(product(block.text, *in[i].at(lane), *in[i + 1].at(lane)));
            minus.push_back(block.isTrue(A_SUBTRACTIVE) && i + 2 == in.size());
        }
    }
    if (chain.known()) {
        terms.push_back(*chain.at(0));
        minus.push_back(block.isTrue(A_SUBTRACTIVE_CHAININ));
    }
    block.text.drive(*block.out().at(0), exactSum(block.text, terms, [&](std::size_t i) { return minus[i]; }));
}

/// The quotient at the output's fraction, cut toward zero, as the operator cuts it; of a divisor of zero, x.
void driveQuotient(VerilogText &text, const Net &out, const Net &dividend, const Net &divisor) {
    const int places = out.fraction - dividend.fraction + divisor.fraction;
    Net a = VerilogText::exact(dividend);
    Net b = VerilogText::exact(divisor);
    Net &shifted = places > 0 ? a : b;
    const int by = std::abs(places);
    shifted = text.define({"", shifted.width + by, 0, true}, fmt::format("{} <<< {}", shifted.text, by));
    const Net quotient = text.define({"", std::max(a.width, b.width) + 1, out.fraction, true}, a.text + " / " + b.text);
    text.drive(out, quotient);
}

void writeDivide(VerilogBlock &block) {
    const NetSignal a = block.need(0);
    const NetSignal b = block.need(1);
    forEachNet(block.out(),
               [&](int lane, int, const Net &net) { driveQuotient(block.text, net, *a.at(lane), *b.at(lane)); });
}

void writeConstDiv(VerilogBlock &block) {
    const NetSignal a = block.need(0);
    const NetSignal b = constantOf(block, A_CONST_VALUE);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        driveQuotient(block.text, net, *a.at(lane, part), *b.at(lane));
    });
}

void writeModMult(VerilogBlock &block) {
    const NetSignal a = block.need(0);
    const NetSignal b = block.need(1);
    const NetSignal modulus = constantOf(block, A_MOD_MULT_MODULUS_VALUE);
    forEachNet(block.out(), [&](int lane, int, const Net &net) {
        const Net whole = product(block.text, *a.at(lane), *b.at(lane));
        const int fraction = commonFraction({whole, modulus.nets[0]});
        const std::vector<Net> both = block.text.aligned({whole, modulus.nets[0]}, fraction);
        block.text.drive(net,
                         block.text.define({"", widest(both), fraction, true}, both[0].text + " % " + both[1].text));
    });
}

Net magnitude(VerilogText &text, const Net &net) {
    const Net value = VerilogText::exact(net);
    return text.define({"", value.width + 1, value.fraction, true}, fmt::format("{0} < 0 ? -{0} : {0}", value.text));
}

void writeAbs(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    forEachNet(block.out(),
               [&](int lane, int, const Net &net) { block.text.drive(net, magnitude(block.text, *in.at(lane))); });
}

/// The best of the values, which later ones replace where the condition of both holds.
template <class Condition> Net best(VerilogText &text, const std::vector<Net> &nets, Condition isBetter) {
    const std::vector<Net> values = text.aligned(nets, commonFraction(nets));
    const Net shape{"", widest(values), commonFraction(nets), true};
    Net chosen = text.define(shape, values[0].text);
    for (std::size_t i = 1; i < values.size(); ++i) {
        const Net next = text.define(shape, values[i].text);
        chosen = text.define(shape, fmt::format("{} ? {} : {}", isBetter(next, chosen), next.text, chosen.text));
    }
    return chosen;
}

Net extreme(VerilogText &text, const std::vector<Net> &nets, bool larger) {
    return best(text, nets, [larger](const Net &next, const Net &chosen) {
        return fmt::format("{} {} {}", next.text, larger ? ">" : "<", chosen.text);
    });
}

template <bool larger> void writeExtreme(VerilogBlock &block) {
    const std::vector<NetSignal> in = block.numbered();
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        block.text.drive(net, extreme(block.text, netsAt(in, lane, part), larger));
    });
}

/// On equal magnitudes the larger is the one that is not negative, the smaller the negative one.
template <bool larger> void writeMagnitude(VerilogBlock &block) {
    const std::vector<NetSignal> in = block.numbered();
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        block.text.drive(net, best(block.text, netsAt(in, lane, part), [&](const Net &next, const Net &chosen) {
                             const std::string m = magnitude(block.text, next).text;
                             const std::string n = magnitude(block.text, chosen).text;
                             return larger ? fmt::format("({0} > {1} || ({0} == {1} && {2} >= 0))", m, n, next.text)
                                           : fmt::format("({0} < {1} || ({0} == {1} && {2} < 0))", m, n, next.text);
                         }));
    });
}

void writeMinMax(VerilogBlock &block) {
    const NetSignal select = block.need(A_MINMAX_PORT_SELECT);
    const std::vector<NetSignal> in = block.numbered();
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        const std::vector<Net> both = netsAt(in, lane, part);
        driveChoice(block.text, net, truth(*select.at(lane)), extreme(block.text, both, true),
                    extreme(block.text, both, false));
    });
}

void writeDim(VerilogBlock &block) {
    const NetSignal a = block.need(0);
    const NetSignal b = block.need(1);
    forEachNet(block.out(), [&](int lane, int, const Net &net) {
        const Net difference = exactSum(block.text, {*a.at(lane), *b.at(lane)}, behindTheFirst);
        driveChoice(block.text, net, difference.text + " > 0", difference, literal(0, 1));
    });
}

void writeSaturate(VerilogBlock &block) {
    const NetSignal data = block.need(0);
    const NetSignal upper = block.need(1);
    const NetSignal lower = block.need(2);
    forEachNet(block.out(), [&](int lane, int, const Net &net) {
        const Net capped = extreme(block.text, {*data.at(lane), *upper.at(lane)}, false);
        block.text.drive(net, extreme(block.text, {capped, *lower.at(lane)}, true));
    });
}

std::string compared(VerilogText &text, const Net &a, const Net &b, const char *relation) {
    const std::vector<Net> both = text.aligned({a, b}, commonFraction({a, b}));
    return fmt::format("({} {} {})", both[0].text, relation, both[1].text);
}

/// Complex numbers are equal if both parts are.
void writeEquality(VerilogBlock &block, const char *relation, const char *join) {
    const NetSignal a = block.need(0);
    const NetSignal b = block.need(1);
    forEachNet(block.out(), [&](int lane, int, const Net &net) {
        std::string text = compared(block.text, *a.at(lane), *b.at(lane), relation);
        if (a.element == 2 || b.element == 2) {
            text += join + compared(block.text, netOrZero(a, lane, 1), netOrZero(b, lane, 1), relation);
        }
        block.text.assign(net, text);
    });
}

void writeEqual(VerilogBlock &block) { writeEquality(block, "==", " && "); }
void writeNotEqual(VerilogBlock &block) { writeEquality(block, "!=", " || "); }
void writeGreaterEqual(VerilogBlock &block) { writeEquality(block, ">=", ""); }
void writeLess(VerilogBlock &block) { writeEquality(block, "<", ""); }

void writeCompareControl(VerilogBlock &block) {
    const NetSignal select = block.need(A_COMPARE_PORT_SELECT);
    const NetSignal a = block.need(0);
    const NetSignal b = block.need(1);
    forEachNet(block.out(), [&](int lane, int, const Net &net) {
        block.text.assign(net, fmt::format("{} ? {} : {}", truth(*select.at(lane)),
                                           compared(block.text, *a.at(lane), *b.at(lane), ">="),
                                           compared(block.text, *a.at(lane), *b.at(lane), "<")));
    });
}

/// The data whose number the select holds as a pattern; beyond the last, x.
void writeMux(VerilogBlock &block) {
    const NetSignal select = block.need(A_MUX_PORT_SELECT);
    const std::vector<NetSignal> data = block.numbered();
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        std::vector<Net> nets;
        for (const NetSignal &signal : data) {
            nets.push_back(netOrZero(signal, lane, part));
        }
        const int fraction = commonFraction(nets);
        const std::vector<Net> values = block.text.aligned(nets, fraction);
        const Net &control = *select.at(lane);
        std::string text;
        for (std::size_t i = 0; i < values.size() && (control.width > 31 || i >> control.width == 0); ++i) {
            text += fmt::format("{{{}}} == {} ? {} : ", control.text, i, values[i].text);
        }
        block.text.drive(net,
                         block.text.define({"", widest(values), fraction, true}, text + unknownBits(widest(values))));
    });
}

/// The lowest-numbered case whose control is true, else the default, else x.
void writeSelect(VerilogBlock &block) {
    Context *context = block.block().getContext();
    const auto keyed = [context](const StaticString &key, int number) {
        return PureValueRef(PureTupleValue::get(key, NumberValue::get(number, context), context));
    };
    std::vector<NetSignal> controls;
    std::vector<NetSignal> data;
    for (int i = 0; block.in(keyed(A_SELECT_PORTKEY_CTRL, i)).known(); ++i) {
        controls.push_back(block.in(keyed(A_SELECT_PORTKEY_CTRL, i)));
        data.push_back(block.need(keyed(A_SELECT_PORTKEY_DATA, i)));
    }
    const NetSignal other = block.in(A_SELECT_PORT_DEFAULT_DATA);
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        std::vector<Net> nets;
        for (const NetSignal &signal : data) {
            nets.push_back(netOrZero(signal, lane, part));
        }
        if (other.known()) {
            nets.push_back(netOrZero(other, lane, part));
        }
        const int fraction = commonFraction(nets);
        const std::vector<Net> values = block.text.aligned(nets, fraction);
        std::string text;
        for (std::size_t i = 0; i < controls.size(); ++i) {
            text += fmt::format("{} ? {} : ", truth(*controls[i].at(lane)), values[i].text);
        }
        text += other.known() ? values.back().text : unknownBits(widest(values));
        block.text.drive(net, block.text.define({"", widest(values), fraction, true}, text));
    });
    forEachNet(block.out(A_SELECT_WIRE_VALID), [&](int lane, int, const Net &net) {
        std::string text;
        for (const NetSignal &control : controls) {
            text += (text.empty() ? "" : " | ") + truth(*control.at(lane));
        }
        block.text.assign(net, text);
    });
}

enum class Rounding { Floor, ToZero, HalfUp, HalfEven };

/// The integer at a scale that is `drop` bits coarser; `fraction` of the result is of no concern.
Net rounded(VerilogText &text, const Net &net, int drop, Rounding rounding) {
    const Net value = VerilogText::exact(net);
    if (drop <= 0) {
        return text.define({"", value.width - drop, 0, true}, fmt::format("{} <<< {}", value.text, -drop));
    }
    const int width = std::max(value.width, drop) + 2;
    const Net wide = text.define({"", width, 0, true}, value.text);
    const std::string half = fmt::format("({} <<< {})", literal(1, width).text, drop - 1);
    const std::string rest = fmt::format("(({} <<< {}) - 1)", literal(1, width).text, drop);
    std::string sum = wide.text;
    switch (rounding) {
    case Rounding::Floor:
        break;
    case Rounding::ToZero:
        sum = fmt::format("(({0} < 0) ? {0} + {1} : {0})", wide.text, rest);
        break;
    case Rounding::HalfUp:
        sum = fmt::format("({} + {})", wide.text, half);
        break;
    case Rounding::HalfEven:
        // Just below a half, and one more where the floor is odd, so that a tie goes up from there only.
        const Net floor = text.define({"", width, 0, true}, fmt::format("{} >>> {}", wide.text, drop));
        sum = fmt::format("({} + {} - 1 + $signed({{1'b0, {}[0]}}))", wide.text, half, floor.text);
        break;
    }
    return text.define({"", width, 0, true},
                       fmt::format("{} >>> {}", text.define({"", width, 0, true}, sum).text, drop));
}

template <Rounding rounding> void writeRound(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const auto bits = static_cast<int>(block.integer(A_ROUND_BITS, 0));
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        block.text.assign(net, rounded(block.text, *in.at(lane, part), bits, rounding).text);
    });
}

Rounding roundingOf(VerilogBlock &block) {
    const ValueRef mode = block.param(A_CAST_ROUNDING_MODE);
    const std::pair<const StaticString *, Rounding> modes[] = {{&A_ROUNDING_TRUNC, Rounding::Floor},
                                                               {&A_ROUNDING_TRUNC_TO_ZERO, Rounding::ToZero},
                                                               {&A_ROUNDING_BIASED, Rounding::HalfUp},
                                                               {&A_ROUNDING_UNBIASED, Rounding::HalfEven}};
    for (const auto &[name, rounding] : modes) {
        if (mode == *name) {
            return rounding;
        }
    }
    if (mode) {
        block.fail("the rounding mode is none of fixed point");
    }
    return Rounding::Floor;
}

/// Whether a bound was used goes to the clip wire.
void writeCast(VerilogBlock &block) {
    const NetSignal in = block.need(0);
    const NetSignal clip = block.out(A_CAST_WIRE_CLIP);
    const Rounding rounding = roundingOf(block);
    const ValueRef saturation = block.param(A_CAST_SATURATE_MODE);
    const bool isSymmetric = saturation == A_SATURATE_SYM;
    const bool clips = isSymmetric || saturation == A_SATURATE_ASYM;
    forEachNet(block.out(), [&](int lane, int part, const Net &net) {
        const Net source = netOrZero(in, lane, part);
        const Net *flag = clip.known() ? clip.at(lane, part) : nullptr;
        if (block.param(A_CAST_MODE) == A_CAST_MODE_REINTERP) {
            block.text.assign(net, VerilogText::exact(source).text);
            if (flag != nullptr) {
                block.text.assign(*flag, "0");
            }
            return;
        }
        const Net value = rounded(block.text, source, source.fraction - net.fraction, rounding);
        if (!clips) {
            block.text.assign(net, value.text);
            if (flag != nullptr) {
                block.text.assign(*flag, "0");
            }
            return;
        }
        const int width = std::max(value.width, net.width) + 2;
        const std::string one = literal(1, width).text;
        const int magnitudeBits = net.isSigned ? net.width - 1 : net.width;
        const Net high =
            block.text.define({"", width, 0, true}, fmt::format("({} <<< {}) - {}", one, magnitudeBits, one));
        const Net low = block.text.define({"", width, 0, true}, !net.isSigned ? literal(0, width).text
                                                                : isSymmetric ? "-" + high.text
                                                                              : "-" + high.text + " - " + one);
        block.text.assign(net, fmt::format("{0} > {1} ? {1} : {0} < {2} ? {2} : {0}", value.text, high.text, low.text));
        // Where no bit of the input is left, a constant stands for it, and no bound is looked at.
        const int drop = source.fraction - net.fraction;
        const bool isNearest = rounding == Rounding::HalfUp || rounding == Rounding::HalfEven;
        if (flag != nullptr && (drop > source.width || (drop == source.width && !isNearest))) {
            block.text.assign(*flag, "0");
        } else if (flag != nullptr) {
            block.text.assign(*flag, fmt::format("{0} > {1} || {0} < {2}", value.text, high.text, low.text));
        }
    });
}

const VerilogRow kRows[] = {
    {&A_CONST_BLOCK, writeConst},
    {&A_ECC_SRC_BLOCK, writeZero},
    {&A_ENABLE_SRC_BLOCK, writeOne},
    {&A_ADD_BLOCK, writeAdd},
    {&A_MONSTER_ADD_BLOCK, writeAdd},
    {&A_SUB_BLOCK, writeSub},
    {&A_ADDSUB_BLOCK, writeAddSub},
    {&A_ADDSUBFUSED_BLOCK, writeAddSubFused},
    {&A_ADD_SLOAD_BLOCK, writeAddSload},
    {&A_ADD_REDUCE_BLOCK, writeAddReduce},
    {&A_NEG_BLOCK, writeNeg},
    {&A_COMPLEX_CONJUGATE_BLOCK, writeConjugate},
    {&A_ABS_BLOCK, writeAbs},
    {&A_MULT_BLOCK, writeMult},
    {&A_MONSTER_MULT_BLOCK, writeMult},
    {&A_SCALAR_PRODUCT_BLOCK, writeScalarProduct},
    {&A_CONSTMULT_BLOCK, writeConstMult},
    {&A_CONSTDIV_BLOCK, writeConstDiv},
    {&A_DIVIDE_BLOCK, writeDivide},
    {&A_MOD_MULT_BLOCK, writeModMult},
    {&A_MIN_BLOCK, writeExtreme<false>},
    {&A_MAX_BLOCK, writeExtreme<true>},
    {&A_MAGMIN_BLOCK, writeMagnitude<false>},
    {&A_MAGMAX_BLOCK, writeMagnitude<true>},
    {&A_MINMAX_BLOCK, writeMinMax},
    {&A_DIM_BLOCK, writeDim},
    {&A_SATURATE_BLOCK, writeSaturate},
    {&A_CMP_EQ_BLOCK, writeEqual},
    {&A_CMP_NE_BLOCK, writeNotEqual},
    {&A_CMP_GE_BLOCK, writeGreaterEqual},
    {&A_CMP_LT_BLOCK, writeLess},
    {&A_COMPARECTRL_BLOCK, writeCompareControl},
    {&A_MUX_BLOCK, writeMux},
    {&A_SELECT_BLOCK, writeSelect},
    {&A_CAST_BLOCK, writeCast},
    {&A_TRUNCATE_BLOCK, writeRound<Rounding::Floor>},
    {&A_TRUNCATE_TO_ZERO_BLOCK, writeRound<Rounding::ToZero>},
    {&A_BIASED_ROUND_BLOCK, writeRound<Rounding::HalfUp>},
    {&A_UNBIASED_ROUND_BLOCK, writeRound<Rounding::HalfEven>},
};

} // namespace

std::span<const VerilogRow> arithmeticVerilog() { return kRows; }

} // namespace orvo::test
