// The table of what block types cost.
#include "generator/estimates.h"

#include <orvo/wire.h>

#include <algorithm>
#include <unordered_map>

namespace orvo::generator {

namespace {

// Each formula is that of one scalar of the output; `perScalar` repeats it for signals of several. Structural lowering
// leaves scalars, so that this is for what it cannot take apart.

Usage perScalar(const NumTypeSpec &type, const Usage &usage) { return copies(usage, scalarsOf(type)); }

FloatFormat formatOf(const NumTypeSpec &type) { return {type.significandWidth() + 1, type.exponentWidth()}; }

/// One operation of a hard multiplier block on floats.
Usage hardFloat(const Primitive &block) {
    Usage usage;
    usage.multipliers = mult18PerBlock(block.family());
    usage.latency = 4;
    return usage;
}

Usage sumOf(const Primitive &block, const NumTypeSpec &type) {
    if (!type.isFloat()) {
        return adder(bitsOf(type));
    }
    return block.isHardFloat(type) ? hardFloat(block) : softFloatAdder(formatOf(type));
}

Usage floatProduct(const Primitive &block, const NumTypeSpec &type) {
    return block.isHardFloat(type) ? hardFloat(block) : softFloatProduct(block.family(), formatOf(type));
}

/// Operations that join so many operands in a tree.
Usage tree(const Usage &join, Count operands) {
    Usage usage = copies(join, std::max<Count>(operands - 1, 0));
    usage.latency = times(join.latency, log2Ceil(operands));
    return usage;
}

/// The numbered operands; of one vector its elements, which only reductions join.
Count operandsOf(const std::vector<NumTypeSpec> &types) {
    return types.size() == 1 && types[0].isVector() ? types[0].vectorLengthRev(0) : static_cast<Count>(types.size());
}

Usage sum(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return perScalar(out, tree(sumOf(block, out), static_cast<Count>(block.operands().size())));
}

Usage sumOverVector(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return perScalar(out, tree(sumOf(block, out), operandsOf(block.operands())));
}

Usage oneSum(const Primitive &block) { return perScalar(block.out(), sumOf(block, block.out())); }

Usage negation(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return perScalar(out, out.isFloat() ? logic(1, 1) : adder(bitsOf(out)));
}

Usage conjugate(const Primitive &block) {
    NumTypeSpec out = block.out();
    const Usage one = out.isFloat() ? logic(1, 1) : adder(bitsOf(out));
    out.setComplex(false);
    return perScalar(out, one);
}

Usage sumAndDifference(const Primitive &block) { return copies(oneSum(block), 2); }

Usage loadableSum(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return perScalar(out, behind(sumOf(block, out), multiplexer(2, bitsOf(out))));
}

// Products.

bool asksForLogic(const Primitive &block) {
    return block.isTrue(A_MULT_LOGIC) || block.is(A_MULT_ARCHITECTURE, A_MULT_ARCH_LOGIC) ||
           block.is(A_MULT_ARCHITECTURE, A_MULT_ARCH_CONST_LUT);
}

Usage fixedProductBy(const Primitive &block, Count width, const mpz_class &constant) {
    const bool isHard = block.is(A_MULT_ARCHITECTURE, A_MULT_ARCH_CONST_DSP) ||
                        !(asksForLogic(block) || block.isTrue(A_MULT_OPTIMIZE_CONST_BEFORE_TILING));
    return isHard ? hardProductBy(block.family(), width, constant.get_mpz_t())
                  : shiftAddProductBy(width, constant.get_mpz_t());
}

Usage fixedProduct(const Primitive &block, Count widthA, Count widthB) {
    return asksForLogic(block) ? logicProduct(widthA, widthB) : hardProduct(block.family(), widthA, widthB);
}

/// Four products and two sums for complex numbers, or three and five.
Usage complexProduct(const Primitive &block, const Usage &product, Count width) {
    const bool isKaratsuba = block.isTrue(A_COMPLEX_KARATSUBA);
    const Usage sums = copies(adder(width), isKaratsuba ? 5 : 2);
    return behind(copies(product, isKaratsuba ? 3 : 4), sums);
}

Usage product(const Primitive &block) {
    const std::vector<NumTypeSpec> factors = block.operands();
    NumTypeSpec out = block.out();
    if (out.isFloat()) {
        return perScalar(out, tree(floatProduct(block, out), static_cast<Count>(factors.size())));
    }
    const bool isComplex = out.isComplex();
    Usage usage;
    Count width = factors.empty() ? 0 : bitsOf(factors[0]);
    std::optional<mpz_class> constant = block.constantAt(0);
    for (int i = 1; i < static_cast<int>(factors.size()); ++i) {
        const std::optional<mpz_class> second = block.constantAt(i);
        const Count next = bitsOf(factors[static_cast<std::size_t>(i)]);
        Usage step = second     ? fixedProductBy(block, width, *second)
                     : constant ? fixedProductBy(block, next, *constant)
                                : fixedProduct(block, width, next);
        width += next;
        constant.reset();
        if (isComplex) {
            step = complexProduct(block, step, width);
        }
        usage = behind(usage, step);
    }
    out.setComplex(false);
    return perScalar(out, usage);
}

/// The number of a parameter in the units that hold it exactly; 0 for one that is none.
mpz_class exactUnits(const ValueRef &value) {
    mpz_class units;
    const NumberValueRef number = numberVR(value);
    if (number && !number->isSpecial()) {
        number->toUpscaledMPZ(units.get_mpz_t(), true);
    }
    return units;
}

/// The significand of a format for a number: of its bits only the highest, to which it is rounded.
mpz_class significandOf(const mpz_class &number, Count bits) {
    const mpz_class magnitude = abs(number);
    const Count dropped = static_cast<Count>(mpz_sizeinbase(magnitude.get_mpz_t(), 2)) - bits;
    if (dropped <= 0) {
        return magnitude;
    }
    const auto shift = static_cast<mp_bitcnt_t>(dropped);
    mpz_class kept = magnitude >> shift;
    const mpz_class rest = magnitude - (kept << shift);
    const int aboveHalf = cmp(rest, mpz_class(1) << (shift - 1));
    if (aboveHalf > 0 || (aboveHalf == 0 && mpz_odd_p(kept.get_mpz_t()) != 0)) {
        ++kept;
    }
    return kept;
}

Usage productByConstant(const Primitive &block) {
    const NumTypeSpec in = block.port(0);
    const NumTypeSpec out = block.out();
    const ValueRef value = block.block().getParam(A_CONST_VALUE);
    if (!numberVR(value)) {
        // Lanes and parts with constants of their own: as many products of signals as an upper bound. A constant has a
        // bit, also where the output is no wider than the input.
        const Count constantBits = std::max<Count>(bitsOf(out) - bitsOf(in), 1);
        return perScalar(out, out.isFloat() ? floatProduct(block, out) : fixedProduct(block, bitsOf(in), constantBits));
    }
    const mpz_class constant = exactUnits(value);
    if (!out.isFloat()) {
        // Such a block stands for logic already, unless it asks for a multiplier.
        return perScalar(out, block.is(A_MULT_ARCHITECTURE, A_MULT_ARCH_CONST_DSP)
                                  ? hardProductBy(block.family(), bitsOf(in), constant.get_mpz_t())
                                  : shiftAddProductBy(bitsOf(in), constant.get_mpz_t()));
    }
    const FloatFormat format = formatOf(out);
    const mpz_class significand = significandOf(constant, format.significand);
    const Usage product = shiftAddProductBy(format.significand, significand.get_mpz_t());
    const Usage rest = logic(2 * format.exponent, 1);
    const bool isPower = mpz_popcount(significand.get_mpz_t()) <= 1;
    return perScalar(out, isPower ? rest : behind(behind(product, rest), logic(format.significand, 1)));
}

Usage scalarProduct(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const std::vector<NumTypeSpec> factors = block.operands();
    Usage products;
    Count terms = block.hasPort(A_SCALAR_PRODUCT_PORT_CHAININ) ? 1 : 0;
    for (std::size_t i = 0; i + 1 < factors.size(); i += 2) {
        const Usage one =
            out.isFloat() ? floatProduct(block, out) : fixedProduct(block, bitsOf(factors[i]), bitsOf(factors[i + 1]));
        const Count scalars = std::max(scalarsOf(factors[i]), scalarsOf(factors[i + 1]));
        products = beside(products, copies(one, scalars));
        terms = plus(terms, scalars);
    }
    return behind(products, tree(sumOf(block, out), terms));
}

Usage modularProduct(const Primitive &block) {
    const Count bits = bitsOf(block.out());
    const Count product = bitsOf(block.port(0)) + bitsOf(block.port(1));
    const Usage remainder = digitRecurrence(std::max<Count>(product - bits + 1, 0), bits + 1);
    return perScalar(block.out(), behind(fixedProduct(block, bitsOf(block.port(0)), bitsOf(block.port(1))), remainder));
}

Usage quotient(const Primitive &block) {
    const NumTypeSpec out = block.out();
    if (out.isFloat()) {
        const FloatFormat format = formatOf(out);
        const Usage digits = digitRecurrence(format.significand + 2, format.significand + 1);
        return perScalar(out, behind(digits, logic(format.significand + 3 * format.exponent, 1)));
    }
    return perScalar(out, digitRecurrence(bitsOf(out), bitsOf(block.port(1)) + 1));
}

Usage quotientByConstant(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const mpz_class divisor = abs(exactUnits(block.block().getParam(A_CONST_VALUE)));
    if (out.isFloat()) {
        return perScalar(out, floatProduct(block, out));
    }
    if (mpz_popcount(divisor.get_mpz_t()) <= 1) {
        // A shift, and one more for a negative dividend, which is cut toward zero.
        return perScalar(out, block.port(0).isSigned() ? adder(bitsOf(out)) : Usage());
    }
    return perScalar(out, digitRecurrence(bitsOf(out), static_cast<Count>(mpz_sizeinbase(divisor.get_mpz_t(), 2)) + 1));
}

Usage multiplyAdd(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return perScalar(out,
                     block.isHardFloat(out) ? hardFloat(block) : behind(floatProduct(block, out), sumOf(block, out)));
}

/// The accumulator's bits by its weights; those of the output if they are not told.
Count accumulatorBits(const Primitive &block, const NumTypeSpec &out) {
    const NumberValueRef high = numberVR(block.block().getParam(A_ACC_MSB));
    const NumberValueRef low = numberVR(block.block().getParam(A_ACC_LSB));
    return high && low && high->isInt() && low->isInt() && high->toInt() >= low->toInt()
               ? Count{high->toInt()} - low->toInt() + 1
               : bitsOf(out);
}

Usage accumulator(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Count bits = accumulatorBits(block, out);
    const Usage align = out.isFloat() ? behind(shifter(bits, bits), leadingZeros(bits)) : Usage();
    Usage usage = behind(align, behind(adder(bits), multiplexer(2, bits)));
    return perScalar(out, usage);
}

Usage multiplyAccumulate(const Primitive &block) {
    return behind(perScalar(block.out(), floatProduct(block, block.out())), accumulator(block));
}

// Comparing and choosing.

/// Bits in which two operands are compared: those of a type that holds both.
Count comparedBits(const Primitive &block) {
    const NumTypeSpec both = NumTypeSpec::typeOp(block.port(0), block.port(1), TYPE_OP_UNION);
    return both.valid() ? bitsOf(both) : std::max(bitsOf(block.port(0)), bitsOf(block.port(1)));
}

Usage equal(const Primitive &block) { return perScalar(block.port(0), equality(comparedBits(block))); }
Usage order(const Primitive &block) { return perScalar(block.port(0), adder(comparedBits(block))); }

Usage choiceOfTwo(const NumTypeSpec &out, const Usage &condition) {
    return perScalar(out, behind(condition, multiplexer(2, bitsOf(out))));
}

Usage extreme(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Usage one = behind(adder(bitsOf(out)), multiplexer(2, bitsOf(out)));
    return perScalar(out, tree(one, static_cast<Count>(block.operands().size())));
}

Usage extremeMagnitude(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Count bits = bitsOf(out);
    const Usage magnitude = behind(adder(bits), multiplexer(2, bits));
    const Usage one = behind(copies(magnitude, 2), behind(adder(bits), multiplexer(2, bits)));
    return perScalar(out, tree(one, static_cast<Count>(block.operands().size())));
}

Usage absolute(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return out.isFloat() ? Usage() : choiceOfTwo(out, adder(bitsOf(out)));
}

Usage positiveDifference(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return choiceOfTwo(out, sumOf(block, out));
}

Usage clipping(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Usage one = behind(adder(bitsOf(out)), multiplexer(2, bitsOf(out)));
    return perScalar(out, behind(one, one));
}

Usage chosenExtreme(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return choiceOfTwo(out, behind(adder(bitsOf(out)), logic(1, 0)));
}

Usage multiplexers(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return perScalar(out, multiplexer(static_cast<Count>(block.operands().size()), bitsOf(out)));
}

/// One stage a case, and the flag that any was taken.
Usage selection(const Primitive &block) {
    const NumTypeSpec out = block.out();
    Count cases = 0;
    for (const Port &port : block.block().ports()) {
        const PureTupleValueRef key = pureTupleVR(port.getName());
        cases += key && key->size() == 2 && key->at(0) == A_SELECT_PORTKEY_CTRL ? 1 : 0;
    }
    const Usage stages = logic(times(cases, bitsOf(out)), ceilDiv(cases, 2));
    return beside(perScalar(out, stages), block.hasWire(A_SELECT_WIRE_VALID) ? reduction(cases) : Usage());
}

Usage holdingChannels(const Primitive &block) {
    const NumTypeSpec data = block.port(A_DEMUX_PORT_DATA);
    const Count channels = block.count(A_DEMUX_CHANNEL_COUNT).value_or(static_cast<Count>(block.block().size()));
    const Usage match = reduction(bitsOf(block.port(A_PORT_CHANNEL)) + 1);
    return copies(behind(match, multiplexer(2, allBitsOf(data))), channels);
}

Usage addressMatch(const Primitive &block) { return reduction(bitsOf(block.port(A_DECODE_PORT_ADDR)) + 1); }

Usage exchange(const Primitive &block) {
    return beside(multiplexer(2, allBitsOf(block.port(A_XSWITCH_PORT_D0))),
                  multiplexer(2, allBitsOf(block.port(A_XSWITCH_PORT_D1))));
}

// Bits.

Usage bitwise(const Primitive &block) {
    const NumTypeSpec out = block.out();
    return copies(reduction(static_cast<Count>(block.operands().size())), allBitsOf(out));
}

Usage overBits(const Primitive &block) { return perScalar(block.out(), reduction(bitsOf(block.port(0)))); }

Usage overListedBits(const Primitive &block) { return reduction(block.elements(A_XOR_BITS_BITLIST)); }

Usage ones(const Primitive &block) { return perScalar(block.out(), onesCount(bitsOf(block.port(0)))); }

Usage variableShift(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Count bits = bitsOf(out);
    const Count shiftBits = std::min<Count>(bitsOf(block.port(A_BARREL_PORT_SHIFT)), 40);
    return perScalar(out, shifter(bits, std::min<Count>(Count{1} << shiftBits, bits + 1)));
}

Usage normalisation(const Primitive &block) {
    const Count bits = bitsOf(block.port(0));
    return perScalar(block.port(0), behind(leadingZeros(bits), shifter(bits, bits)));
}

/// Dropped bits are looked at where the direction depends on them.
template <bool looksAtDropped> Usage rounding(const Primitive &block) {
    const Count dropped = block.count(A_ROUND_BITS).value_or(0);
    if (dropped == 0) {
        return {};
    }
    const NumTypeSpec out = block.out();
    const Usage up = adder(bitsOf(out));
    return perScalar(out, looksAtDropped ? behind(reduction(dropped), up) : up);
}

/// A conversion that lowering left: from or to floats, or of a signal that is no scalar.
Usage conversion(const Primitive &block) {
    const NumTypeSpec in = block.port(0);
    const NumTypeSpec out = block.out();
    if (block.is(A_CAST_MODE, A_CAST_MODE_REINTERP)) {
        return {};
    }
    const Count bits = std::max(bitsOf(in), bitsOf(out));
    if (!in.isFloat() && !out.isFloat()) {
        return perScalar(out, copies(behind(adder(bits), multiplexer(2, bits)), 2));
    }
    if (in.isFloat() && out.isFloat()) {
        return in.scalarEquals(out) ? Usage() : perScalar(out, logic(bits, 1));
    }
    return perScalar(out, behind(behind(leadingZeros(bits), shifter(bits, bits)), adder(bits)));
}

// State and memory.

Usage table(const Primitive &block) {
    const Count bits = allBitsOf(block.out());
    const NumTypeSpec address =
        block.port(block.hasPort(A_LUT_PORT_ADDR) ? PureValueRef(A_LUT_PORT_ADDR) : block.key(0));
    if (const Count listed = block.elements(A_LUT_ADDRESSES); listed > 0) {
        return behind(copies(equality(bitsOf(address)), listed), multiplexer(listed, bits));
    }
    const Count reached = Count{1} << std::min<Count>(bitsOf(address), 40);
    return readOnlyTable(block.family(), std::min(block.elements(A_LUT_DATA), reached), bits);
}

/// Of a table whose second output alone is used.
Usage tableBlock(const Primitive &block) {
    if (block.hasWire(A_PRIM_WIRE_OUT)) {
        return table(block);
    }
    const Count listed = std::max<Count>(block.elements(A_LUT_ADDRESSES), 1);
    return copies(equality(bitsOf(block.port(A_LUT_PORT_ADDR))), listed);
}

Usage dualMemory(const Primitive &block) {
    const StaticString *const wires[] = {&A_DUAL_MEM_WIRE_DATA1, &A_DUAL_MEM_WIRE_DATA2};
    const StaticString *const ports[] = {&A_DUAL_MEM_PORT_ADDR1, &A_DUAL_MEM_PORT_ADDR2};
    const StaticString *const depths[] = {&A_DUAL_MEM_DEPTH1, &A_DUAL_MEM_DEPTH2};
    for (int side = 0; side < 2; ++side) {
        if (!block.hasWire(*wires[side]) || !block.hasPort(*ports[side])) {
            continue;
        }
        const Count reached = Count{1} << std::min<Count>(bitsOf(block.port(*ports[side])), 40);
        const Count told =
            block.count(*depths[side])
                .value_or(std::max(block.elements(A_DUAL_MEM_DATA), block.elements(A_DUAL_MEM_ALT_PORT_DATA)));
        const Count words = told > 0 ? std::min(told, reached) : reached;
        return memory(block.family(), words, allBitsOf(block.wire(*wires[side])));
    }
    throw UnknownType();
}

Usage sharedMemory(const Primitive &block) {
    const Count words = block.count(A_SHARED_MEM_SIZE).value_or(0);
    return memory(block.family(), words, allBitsOf(block.wire(A_SHARED_MEM_WIRE_DATA)));
}

Usage queueOf(const Primitive &block, Count bits) {
    const Count depth = block.count(A_FIFO_DEPTH).value_or(0);
    const Count pointer = log2Ceil(depth) + 1;
    // Two pointers, the number of entries, and its comparison with two thresholds.
    Usage control = copies(adder(pointer), 5);
    return behind(memory(block.family(), depth, bits), control);
}

Usage queue(const Primitive &block) { return queueOf(block, allBitsOf(block.port(A_FIFO_PORT_DATA))); }

Usage sharedQueue(const Primitive &block) {
    Count bits = bitsOf(block.port(A_PORT_CHANNEL));
    for (const NumTypeSpec &type : block.operands()) {
        bits = plus(bits, allBitsOf(type));
    }
    return queueOf(block, bits);
}

/// The next state, and its return to the start at the limit.
Usage counterOf(Count bits) {
    Usage usage = behind(adder(bits), behind(equality(bits), multiplexer(2, bits)));
    usage.latency = 1;
    return usage;
}

/// Bits of numbers below a limit.
Count counterBits(const Primitive &block) { return std::max(log2Ceil(block.count(A_COUNTER_LIMIT).value_or(0)), 1); }

Usage counter(const Primitive &block) { return perScalar(block.out(), counterOf(bitsOf(block.out()))); }

Usage loadableCounter(const Primitive &block) {
    const Count bits = bitsOf(block.out());
    return perScalar(block.out(), behind(counterOf(bits), multiplexer(2, bits)));
}

Usage pulseSequence(const Primitive &block) {
    const Count bits = counterBits(block);
    return behind(counterOf(bits), adder(bits));
}

/// A counter for each value, with flags of its first and last step.
Usage loops(const Primitive &block) {
    Usage usage;
    for (const Wire &wire : block.block()) {
        const PureTupleValueRef key = pureTupleVR(wire.getName());
        const bool isValue = key ? key->at(0) == A_LOOP_WIRE_VALUE : wire.getName() == A_FOR_LOOP_WIRE_COUNT;
        if (isValue) {
            const Count bits = bitsOf(block.wire(wire.getName()));
            usage = beside(usage, behind(counterOf(bits), equality(bits)));
        }
    }
    return usage;
}

Usage delay(const Primitive &block) {
    return delayLine(block.family(), block.count(A_DELAY_LENGTH).value_or(0), allBitsOf(block.out()),
                     block.options().delayMemoryFrom);
}

Usage oneRegister(const Primitive &) { return logic(0, 1); }

/// Two in a row on the other clock, and the way of the enable.
Usage synchroniser(const Primitive &block) {
    return logic(plus(allBitsOf(block.port(A_SYNC_REGISTER_PORT_ICLK_DATA)), 2), 2);
}

Usage latch(const Primitive &block) { return multiplexer(2, allBitsOf(block.out())); }

Usage stallRegister(const Primitive &block) {
    Count bits = 0;
    for (const Wire &wire : block.block()) {
        bits = plus(bits, allBitsOf(block.wire(wire.getName())));
    }
    return logic(times(2, bits), 1);
}

Usage busRegister(const Primitive &block) { return multiplexer(2, allBitsOf(block.wire(A_MM_REGISTER_WIRE_DATA))); }

// Functions.

Count precisionOf(const NumTypeSpec &type) { return type.isFloat() ? type.significandWidth() + 1 : bitsOf(type); }

/// So many tables of polynomials; floats are brought to and from the range of the tables.
Usage functionsOf(const Primitive &block, const NumTypeSpec &type, int functions) {
    const Usage one = tabledFunction(block.family(), precisionOf(type));
    Usage usage = copies(one, functions);
    usage.latency = times(one.latency, functions);
    return perScalar(type, type.isFloat() ? behind(usage, softFloatAdder(formatOf(type))) : usage);
}

Usage function(const Primitive &block) { return functionsOf(block, block.out(), 1); }
/// A logarithm or root, and what makes a power or length of it.
Usage functionOfSeveral(const Primitive &block) { return functionsOf(block, block.out(), 2); }

Usage sineAndCosine(const Primitive &block) {
    const NumTypeSpec type = block.hasWire(A_PRIM_WIRE_OUT) ? block.out() : block.wire(A_PRIM_WIRE_AUX);
    return copies(functionsOf(block, type, 1), 2);
}

Usage squareRoot(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Count precision = precisionOf(out) + 2;
    return perScalar(out, digitRecurrence(precision, ceilDiv(precision, 2)));
}

Usage floatToInteger(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Count bits = precisionOf(out);
    return perScalar(out, behind(shifter(bits, bits), adder(bits)));
}

Usage exponentOnly(const Primitive &block) {
    const NumTypeSpec in = block.port(0);
    return perScalar(in, adder(in.exponentWidth() + 2));
}

Usage remainder(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Count range = Count{1} << std::min(out.exponentWidth(), 20);
    // A bit a step, as many steps as the exponents may differ, one behind the other on the same logic.
    return perScalar(out, behind(logic(3 * precisionOf(out), range), softFloatAdder(formatOf(out))));
}

Usage polynomial(const Primitive &block) {
    const NumTypeSpec out = block.out();
    const Count banks = std::max<Count>(block.count(A_POLYNOMIAL_BANKS).value_or(1), 1);
    const Count coefficients = ceilDiv(std::max<Count>(block.elements(A_POLYNOMIAL_DATA), 1), banks);
    const Usage step = behind(floatProduct(block, out), sumOf(block, out));
    Usage steps = copies(step, coefficients - 1);
    steps.latency = times(step.latency, coefficients - 1);
    return perScalar(out, behind(readOnlyTable(block.family(), banks, times(coefficients, bitsOf(out))), steps));
}

Usage classes(const Primitive &block) {
    const NumTypeSpec in = block.port(0);
    const Usage exponent = copies(reduction(in.exponentWidth()), 2);
    return perScalar(in, behind(beside(exponent, reduction(in.significandWidth())), logic(3, 0)));
}

/// A shift and three additions a bit of the result.
Usage rotation(const Primitive &block) {
    const Count bits = bitsOf(block.wire(A_CORDIC_WIRE_X));
    const Usage step = adder(bits);
    Usage usage = copies(step, times(3, bits));
    usage.latency = times(step.latency, bits);
    return usage;
}

// Filters and oscillators.

Count dataBits(const Primitive &block) {
    Count bits = 0;
    for (const NumTypeSpec &type : block.operands()) {
        bits = plus(bits, allBitsOf(type));
    }
    return bits;
}

Usage finiteResponse(const Primitive &block) {
    const Count taps = block.elements(A_FIR_COEFS);
    const NumTypeSpec coefficients(PureValueRef(block.block().getParam(A_FIR_COEFS_TYPE)), block.block().getContext());
    const Count width = coefficients.isFixed() ? bitsOf(coefficients) : 18;
    Usage usage;
    for (const NumTypeSpec &type : block.operands()) {
        const Usage tap = hardProduct(block.family(), bitsOf(type), width);
        const Usage taken = copies(tap, times(taps, scalarsOf(type)));
        usage = beside(usage, behind(taken, tree(adder(bitsOf(type) + width + log2Ceil(taps)), taps)));
    }
    return usage;
}

Usage integratorsAndCombs(const Primitive &block) {
    const Count stages = block.count(A_CIC_STAGE_COUNT).value_or(1);
    const Count rate = block.count(A_CIC_RATE_FACTOR).value_or(1);
    const Count growth = times(stages, log2Ceil(rate));
    const Usage step = adder(plus(dataBits(block), growth));
    Usage usage = copies(step, times(2, stages));
    usage.latency = times(step.latency, times(2, stages));
    return usage;
}

Usage oscillator(const Primitive &block) {
    const Count phase = block.count(A_NCO_ACCUM_BIT_COUNT).value_or(32);
    const StaticString &wave = block.hasWire(A_NCO_WIRE_SIN) ? A_NCO_WIRE_SIN : A_NCO_WIRE_COS;
    return behind(adder(phase), copies(tabledFunction(block.family(), bitsOf(block.wire(wave))), 2));
}

Usage mixing(const Primitive &block) {
    const std::vector<NumTypeSpec> types = block.operands();
    Usage usage;
    for (const NumTypeSpec &type : types) {
        usage = beside(usage, copies(hardProduct(block.family(), bitsOf(type), bitsOf(types.back())), scalarsOf(type)));
    }
    return usage;
}

Usage scaling(const Primitive &block) {
    const Count bits = dataBits(block);
    return behind(adder(bits), behind(adder(bits), multiplexer(2, bits)));
}

Usage chosenChannels(const Primitive &block) { return reduction(bitsOf(block.port(A_PORT_CHANNEL)) + 1); }

Usage changeOfValue(const Primitive &block) { return equality(allBitsOf(block.port(0))); }

/// What a block of a region without scheduling costs: its plain type's logic, without registers.
template <Usage (*plain)(const Primitive &)> Usage unclocked(const Primitive &block) {
    Usage usage = plain(block);
    usage.latency = 0;
    return usage;
}

constexpr const char *kSum =
    "an adder a further input, as wide as the output; floats: shifts around it, or multiplier blocks";
constexpr const char *kProduct =
    "tiles of multiplier blocks, or rows of logic; by a constant, its pieces or its digits";
constexpr const char *kDigits = "one digit of the result a stage";
constexpr const char *kExtreme = "a comparison and a choice of two a further input";
constexpr const char *kMux = "a tree of choices of two";
constexpr const char *kBitwise = "a tree over the inputs for each bit";
constexpr const char *kReduce = "a tree over the bits";
constexpr const char *kMemory = "memory blocks of the kind that needs fewest";
constexpr const char *kCounter = "an adder, a comparison with the limit and a choice of two";
constexpr const char *kFunction = "tables of polynomials";
constexpr const char *kUnclocked = "as the plain type, without registers";
constexpr const char *kInverter = "an inverter goes into the logic behind it";
constexpr const char *kWires = "wires";
constexpr const char *kMarks = "a mark on signals";
constexpr const char *kOutside = "an interface: the logic is outside the design";
constexpr const char *kUndrawn = "logic that is not drawn in the design";
constexpr const char *kTransform = "made of other blocks, which count once it is taken apart";

#define ORVO_COSTS(TYPE, FORMULA, TEXT)                                                                                \
    { &TYPE, EstimateKind::Estimated, FORMULA, TEXT }
#define ORVO_FREE(TYPE, TEXT)                                                                                          \
    { &TYPE, EstimateKind::Free, nullptr, TEXT }
#define ORVO_UNKNOWN(TYPE, TEXT)                                                                                       \
    { &TYPE, EstimateKind::Unknown, nullptr, TEXT }
const EstimateRow kRows[] = {
    // Sums.
    ORVO_COSTS(A_ADD_BLOCK, sum, kSum),
    ORVO_COSTS(A_MONSTER_ADD_BLOCK, sum, kSum),
    ORVO_COSTS(A_SUB_BLOCK, sum, kSum),
    ORVO_COSTS(A_ADD_REDUCE_BLOCK, sumOverVector, kSum),
    ORVO_COSTS(A_ADDSUB_BLOCK, oneSum, "one adder, whose cells take the direction, too"),
    ORVO_COSTS(A_ADDSUBFUSED_BLOCK, sumAndDifference, "two adders"),
    ORVO_COSTS(A_ADD_SLOAD_BLOCK, loadableSum, "an adder and a choice of two"),
    ORVO_COSTS(A_NEG_BLOCK, negation, "an adder; of floats, a bit"),
    ORVO_COSTS(A_COMPLEX_CONJUGATE_BLOCK, conjugate, "an adder for the imaginary part; of floats, a bit"),

    // Products and quotients.
    ORVO_COSTS(A_MULT_BLOCK, product, kProduct),
    ORVO_COSTS(A_MONSTER_MULT_BLOCK, product, kProduct),
    ORVO_COSTS(A_CONSTMULT_BLOCK, productByConstant,
               "a chain of adders over the canonical signed digits; by multiplier blocks if it asks for them"),
    ORVO_COSTS(A_SCALAR_PRODUCT_BLOCK, scalarProduct, "its products, and a tree of adders"),
    ORVO_COSTS(A_MOD_MULT_BLOCK, modularProduct, "the product, and the remainder digit by digit"),
    ORVO_COSTS(A_DIVIDE_BLOCK, quotient, kDigits),
    ORVO_COSTS(A_CONSTDIV_BLOCK, quotientByConstant, "digit by digit; by powers of two, a rounding"),
    ORVO_COSTS(A_FLOAT_MULTADD_BLOCK, multiplyAdd, "one multiplier block, or a product and a sum"),
    ORVO_COSTS(A_FLOAT_MULTSUB_BLOCK, multiplyAdd, "one multiplier block, or a product and a sum"),
    ORVO_COSTS(A_ACC_BLOCK, accumulator, "an adder with a choice of two; floats are shifted into place"),
    ORVO_COSTS(A_FLOAT_MULTACC_BLOCK, multiplyAccumulate, "a product and an accumulator"),

    // Comparing and choosing.
    ORVO_COSTS(A_CMP_EQ_BLOCK, equal, "pairs of bits, and a tree over them"),
    ORVO_COSTS(A_CMP_NE_BLOCK, equal, "pairs of bits, and a tree over them"),
    ORVO_COSTS(A_CMP_GE_BLOCK, order, "a carry chain over the compared bits"),
    ORVO_COSTS(A_CMP_LT_BLOCK, order, "a carry chain over the compared bits"),
    ORVO_COSTS(A_COMPARECTRL_BLOCK, order, "a carry chain over the compared bits"),
    ORVO_COSTS(A_MIN_BLOCK, extreme, kExtreme),
    ORVO_COSTS(A_MAX_BLOCK, extreme, kExtreme),
    ORVO_COSTS(A_MAGMIN_BLOCK, extremeMagnitude, "two magnitudes, a comparison and a choice of two a further input"),
    ORVO_COSTS(A_MAGMAX_BLOCK, extremeMagnitude, "two magnitudes, a comparison and a choice of two a further input"),
    ORVO_COSTS(A_ABS_BLOCK, absolute, "a negation and a choice of two; of floats, nothing"),
    ORVO_COSTS(A_DIM_BLOCK, positiveDifference, "a difference and a choice of two"),
    ORVO_COSTS(A_SATURATE_BLOCK, clipping, "two comparisons, each with a choice of two"),
    ORVO_COSTS(A_MINMAX_BLOCK, chosenExtreme, kExtreme),
    ORVO_COSTS(A_MUX_BLOCK, multiplexers, kMux),
    ORVO_COSTS(A_SELECT_BLOCK, selection, "a choice of two a case, and a tree for the flag"),
    ORVO_COSTS(A_DEMUX_BLOCK, holdingChannels, "a match and a choice of two a channel"),
    ORVO_COSTS(A_DECODE_BLOCK, addressMatch, "a tree over the bits of the address"),
    ORVO_COSTS(A_XSWITCH_BLOCK, exchange, "two choices of two"),

    // Bits.
    ORVO_COSTS(A_AND_BLOCK, bitwise, kBitwise),
    ORVO_COSTS(A_OR_BLOCK, bitwise, kBitwise),
    ORVO_COSTS(A_XOR_BLOCK, bitwise, kBitwise),
    ORVO_COSTS(A_NAND_BLOCK, bitwise, kBitwise),
    ORVO_COSTS(A_NOR_BLOCK, bitwise, kBitwise),
    ORVO_COSTS(A_XNOR_BLOCK, bitwise, kBitwise),
    ORVO_FREE(A_NOT_BLOCK, kInverter),
    ORVO_COSTS(A_AND_REDUCE_BLOCK, overBits, kReduce),
    ORVO_COSTS(A_OR_REDUCE_BLOCK, overBits, kReduce),
    ORVO_COSTS(A_XOR_REDUCE_BLOCK, overBits, kReduce),
    ORVO_COSTS(A_NAND_REDUCE_BLOCK, overBits, kReduce),
    ORVO_COSTS(A_NOR_REDUCE_BLOCK, overBits, kReduce),
    ORVO_COSTS(A_XNOR_REDUCE_BLOCK, overBits, kReduce),
    ORVO_COSTS(A_XOR_BITS_BLOCK, overListedBits, kReduce),
    ORVO_COSTS(A_BIT_COUNT_BLOCK, ones, "a tree of full adders"),
    ORVO_COSTS(A_CTPOP_BLOCK, ones, "a tree of full adders"),
    ORVO_COSTS(A_CAST_BLOCK, conversion,
               "what lowering leaves: floats are shifted and rounded; bits taken as they are cost nothing"),
    ORVO_FREE(A_TRUNCATE_BLOCK, kWires),
    ORVO_FREE(A_BIT_SELECT_BLOCK, kWires),
    ORVO_FREE(A_BIT_JOIN_BLOCK, kWires),
    ORVO_FREE(A_BIT_JOIN_REDUCE_BLOCK, kWires),
    ORVO_FREE(A_CHOOSE_BITS_BLOCK, kWires),
    ORVO_FREE(A_REVERSE_BLOCK, kWires),
    ORVO_FREE(A_RAW_SHIFT_BLOCK, kWires),
    ORVO_FREE(A_FFT_CHOOSE_BITS_BLOCK, kWires),
    ORVO_COSTS(A_TRUNCATE_TO_ZERO_BLOCK, rounding<true>, "an adder, and a tree over the dropped bits"),
    ORVO_COSTS(A_UNBIASED_ROUND_BLOCK, rounding<true>, "an adder, and a tree over the dropped bits"),
    ORVO_COSTS(A_BIASED_ROUND_BLOCK, rounding<false>, "an adder"),
    ORVO_COSTS(A_BARREL_LEFT_BLOCK, variableShift, "a choice of two for each bit of the shift"),
    ORVO_COSTS(A_BARREL_RIGHT_BLOCK, variableShift, "a choice of two for each bit of the shift"),
    ORVO_COSTS(A_BARREL_RIGHT_LZC_BLOCK, normalisation, "a count of zeros and a shifter"),

    // State and memory.
    ORVO_FREE(A_CONST_BLOCK, "a constant is wires to the supplies"),
    ORVO_COSTS(A_LUT_BLOCK, tableBlock, "logic while it is small, else memory blocks"),
    ORVO_COSTS(A_READ_ACCESS_LUT_BLOCK, tableBlock, "logic while it is small, else memory blocks"),
    ORVO_COSTS(A_DUAL_MEM_BLOCK, dualMemory, kMemory),
    ORVO_COSTS(A_SHARED_MEM_BLOCK, sharedMemory, kMemory),
    ORVO_COSTS(A_SHARED_MEM_PLACEHOLDER_BLOCK, sharedMemory, kMemory),
    ORVO_COSTS(A_FIFO_BLOCK, queue, "memory blocks, and counters for both ends and the fill"),
    ORVO_COSTS(A_FIFO_DELAY_BLOCK, queue, "memory blocks, and counters for both ends and the fill"),
    ORVO_COSTS(A_SHARED_FIFO_BLOCK, sharedQueue, "a queue of the data and the channel"),
    ORVO_COSTS(A_COUNTER_BLOCK, counter, kCounter),
    ORVO_COSTS(A_LD_COUNTER_BLOCK, loadableCounter, kCounter),
    ORVO_COSTS(A_SEQUENCE_BLOCK, pulseSequence, "a counter and a comparison"),
    ORVO_COSTS(A_LOOP_BLOCK, loops, "a counter and a comparison a value"),
    ORVO_COSTS(A_FOR_LOOP_BLOCK, loops, "a counter and a comparison a value"),
    ORVO_COSTS(A_DELAY_BLOCK, delay, "a cell for each bit beyond the first of a row; long rows are in memory blocks"),
    ORVO_COSTS(A_REGISTER_BLOCK, oneRegister, "a register stands beside the logic that drives it"),
    ORVO_COSTS(A_PIPE_BLOCK, oneRegister, "a register stands beside the logic that drives it"),
    ORVO_COSTS(A_SYNC_REGISTER_BLOCK, synchroniser, "two registers in a row"),
    ORVO_COSTS(A_LATCH_0L_BLOCK, latch, "a choice of two"),
    ORVO_COSTS(A_STALLREG_BLOCK, stallRegister, "two cells a bit: data, and what waits behind it"),
    ORVO_COSTS(A_MM_REGISTER_BLOCK, busRegister, "a choice of two"),
    ORVO_COSTS(A_EDGE_DETECT_BLOCK, changeOfValue, "a comparison"),

    // Functions.
    ORVO_COSTS(A_TAN_BLOCK, function, kFunction),
    ORVO_COSTS(A_COT_BLOCK, function, kFunction),
    ORVO_COSTS(A_TANPIX_BLOCK, function, kFunction),
    ORVO_COSTS(A_COTPIX_BLOCK, function, kFunction),
    ORVO_COSTS(A_ARCCOSPI_BLOCK, function, kFunction),
    ORVO_COSTS(A_ARCSINPI_BLOCK, function, kFunction),
    ORVO_COSTS(A_ARCTANPI_BLOCK, function, kFunction),
    ORVO_COSTS(A_ASIN_BLOCK, function, kFunction),
    ORVO_COSTS(A_ACOS_BLOCK, function, kFunction),
    ORVO_COSTS(A_ATAN_BLOCK, function, kFunction),
    ORVO_COSTS(A_CUBEROOT_BLOCK, function, kFunction),
    ORVO_COSTS(A_EXP_BLOCK, function, kFunction),
    ORVO_COSTS(A_EXP2_BLOCK, function, kFunction),
    ORVO_COSTS(A_EXP10_BLOCK, function, kFunction),
    ORVO_COSTS(A_EXPM1_BLOCK, function, kFunction),
    ORVO_COSTS(A_LOG_BLOCK, function, kFunction),
    ORVO_COSTS(A_LOG2_BLOCK, function, kFunction),
    ORVO_COSTS(A_LOG10_BLOCK, function, kFunction),
    ORVO_COSTS(A_LOG1P_BLOCK, function, kFunction),
    ORVO_COSTS(A_SIN_BLOCK, function, kFunction),
    ORVO_COSTS(A_COS_BLOCK, function, kFunction),
    ORVO_COSTS(A_SINPIX_BLOCK, function, kFunction),
    ORVO_COSTS(A_COSPIX_BLOCK, function, kFunction),
    ORVO_COSTS(A_RECIPROCAL_BLOCK, function, kFunction),
    ORVO_COSTS(A_RECIP_SQRT_BLOCK, function, kFunction),
    ORVO_COSTS(A_SINCOSFUSED_BLOCK, sineAndCosine, kFunction),
    ORVO_COSTS(A_SINCOSPIXFUSED_BLOCK, sineAndCosine, kFunction),
    ORVO_COSTS(A_HYPOT_BLOCK, functionOfSeveral, "two functions, one behind the other"),
    ORVO_COSTS(A_HYPOT3D_BLOCK, functionOfSeveral, "two functions, one behind the other"),
    ORVO_COSTS(A_ARCTAN2_BLOCK, functionOfSeveral, "two functions, one behind the other"),
    ORVO_COSTS(A_POW_BLOCK, functionOfSeveral, "two functions, one behind the other"),
    ORVO_COSTS(A_POWR_BLOCK, functionOfSeveral, "two functions, one behind the other"),
    ORVO_COSTS(A_POWN_BLOCK, functionOfSeveral, "two functions, one behind the other"),
    ORVO_COSTS(A_SQRT_BLOCK, squareRoot, kDigits),
    ORVO_COSTS(A_RINT_BLOCK, floatToInteger, "a shifter and an adder"),
    ORVO_COSTS(A_ROUND_BLOCK, floatToInteger, "a shifter and an adder"),
    ORVO_COSTS(A_FLOOR_BLOCK, floatToInteger, "a shifter and an adder"),
    ORVO_COSTS(A_CEIL_BLOCK, floatToInteger, "a shifter and an adder"),
    ORVO_COSTS(A_TRUNC_BLOCK, floatToInteger, "a shifter and an adder"),
    ORVO_COSTS(A_FRAC_BLOCK, floatToInteger, "a shifter and an adder"),
    ORVO_COSTS(A_ILOGB_BLOCK, exponentOnly, "an adder on the exponent"),
    ORVO_COSTS(A_MULT_POW2_BLOCK, exponentOnly, "an adder on the exponent"),
    ORVO_COSTS(A_MOD_BLOCK, remainder, "subtractions, one a bit by which the exponents may differ"),
    ORVO_COSTS(A_POLYNOMIAL_BLOCK, polynomial, "a product and a sum a coefficient, and a table of coefficients"),
    ORVO_COSTS(A_FLOAT_CLASS_BLOCK, classes, "trees over exponent and significand"),
    ORVO_COSTS(A_CORDIC_BLOCK, rotation, "three adders a bit"),

    // Filters and oscillators.
    ORVO_COSTS(A_FIR_BLOCK, finiteResponse, "a product a coefficient, and a tree of adders"),
    ORVO_COSTS(A_CIC_BLOCK, integratorsAndCombs, "two adders a stage"),
    ORVO_COSTS(A_NCO_BLOCK, oscillator, "an adder and two tabled functions"),
    ORVO_COSTS(A_MIXER_BLOCK, mixing, "a product an input"),
    ORVO_COSTS(A_SCALE_BLOCK, scaling, "a rounding and a clipping"),
    ORVO_COSTS(A_CHANVIEW_BLOCK, chosenChannels, "a match of the channel"),

    // Wiring.
    ORVO_FREE(A_VPACK_BLOCK, kWires),
    ORVO_FREE(A_VUNPACK_BLOCK, kWires),
    ORVO_FREE(A_VCONCAT_BLOCK, kWires),
    ORVO_FREE(A_VSPLIT_BLOCK, kWires),
    ORVO_FREE(A_VSELECTOR_BLOCK, kWires),
    ORVO_FREE(A_CPACK_BLOCK, kWires),
    ORVO_FREE(A_CUNPACK_BLOCK, kWires),
    ORVO_FREE(A_APACK_BLOCK, kWires),
    ORVO_FREE(A_AUNPACK_BLOCK, kWires),
    ORVO_FREE(A_FANOUT_BLOCK, kWires),
    ORVO_FREE(A_VECTOR_FANOUT_BLOCK, kWires),
    ORVO_FREE(A_TERMINAL_BLOCK, kMarks),
    ORVO_FREE(A_TYPE_PIN_BLOCK, kMarks),
    ORVO_FREE(A_BOUNDARY_BLOCK, kMarks),
    ORVO_FREE(A_UNSCHED_BLOCK, kMarks),
    ORVO_FREE(A_FOLDING_KERNEL_BOUNDARY_BLOCK, kMarks),
    ORVO_FREE(A_INPUT_BLOCK, kMarks),
    ORVO_FREE(A_OUTPUT_BLOCK, kMarks),
    ORVO_FREE(A_CHANNEL_IN_BLOCK, kMarks),
    ORVO_FREE(A_CHANNEL_OUT_BLOCK, kMarks),
    ORVO_FREE(A_SIGNAL_IN_BLOCK, kMarks),
    ORVO_FREE(A_SIGNAL_OUT_BLOCK, kMarks),
    ORVO_FREE(A_FROM_BLOCK, kMarks),
    ORVO_FREE(A_GOTO_BLOCK, kMarks),
    ORVO_FREE(A_MODEL_BLOCK, "the model that it stands for is counted in its place"),
    ORVO_FREE(A_ECC_SRC_BLOCK, kMarks),
    ORVO_FREE(A_ECC_SINK_BLOCK, kMarks),
    ORVO_FREE(A_ENABLE_SRC_BLOCK, kMarks),
    ORVO_FREE(A_ENABLE_SINK_BLOCK, kMarks),
    ORVO_FREE(A_READY_BLOCK, kMarks),
    ORVO_FREE(A_STALLENTER_BLOCK, kMarks),
    ORVO_FREE(A_STALLEXIT_BLOCK, kMarks),
    ORVO_FREE(A_STALLVALID_CONNECTOR_BLOCK, kMarks),
    ORVO_FREE(A_STALLENABLE_BLOCK, "a gate a region, which stands beside what it enables"),
    ORVO_FREE(A_AXI4_STREAM_RECEIVER_BLOCK, kOutside),
    ORVO_FREE(A_AXI4_STREAM_TRANSMITTER_BLOCK, kOutside),
    ORVO_FREE(A_EXT_IFACE_BLOCK, kOutside),
    ORVO_FREE(A_HIDDEN_IFACE_BLOCK, kOutside),
    ORVO_FREE(A_BUS_IN_BLOCK, kOutside),
    ORVO_FREE(A_BUS_OUT_BLOCK, kOutside),
    ORVO_FREE(A_BUS_SIGNALS_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_MM_MASTER_IN_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_MM_MASTER_OUT_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_MM_SLAVE_IN_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_MM_SLAVE_OUT_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_ST_SINK_IN_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_ST_SINK_OUT_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_ST_SOURCE_IN_BLOCK, kOutside),
    ORVO_FREE(A_SARNET_ST_SOURCE_OUT_BLOCK, kOutside),
    ORVO_FREE(A_EXTMEM_READ_BLOCK, kOutside),
    ORVO_FREE(A_EXTMEM_WRITE_BLOCK, kOutside),

    // What stands for logic that is not drawn here.
    ORVO_UNKNOWN(A_SCHEDULED_MODEL_BLOCK, kUndrawn),
    ORVO_UNKNOWN(A_LATENCY_PLACEHOLDER_BLOCK, kUndrawn),
    ORVO_UNKNOWN(A_UNSUPPORTED_BLOCK, kUndrawn),
    ORVO_UNKNOWN(A_FIXED_MFUNC_BLOCK, kUndrawn),
    ORVO_UNKNOWN(A_FLOAT_MFUNC_BLOCK, kUndrawn),
    ORVO_UNKNOWN(A_SARNET_ST_SINK_BLOCK, "queues whose depth is not told"),
    ORVO_UNKNOWN(A_SARNET_ST_SOURCE_BLOCK, "queues whose depth is not told"),
    ORVO_UNKNOWN(A_BFU_BLOCK, kTransform),
    ORVO_UNKNOWN(A_BFU_LONG_BLOCK, kTransform),
    ORVO_UNKNOWN(A_BFU_SHORT_BLOCK, kTransform),
    ORVO_UNKNOWN(A_BITREVCORE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_BITREV_BLOCK, kTransform),
    ORVO_UNKNOWN(A_BUTTERFLY_ROUTER_BLOCK, kTransform),
    ORVO_UNKNOWN(A_BUTTERFLY_STAGE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_DELAY_VALID_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FFT2_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FFT4_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FFTCORE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FFTNP_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FFTNX_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FFT_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FFT_LIGHT_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FLUTTERBY_PATH_BLOCK, kTransform),
    ORVO_UNKNOWN(A_FLUTTERBY_ROUTER_BLOCK, kTransform),
    ORVO_UNKNOWN(A_GENERAL_MULT_TWIDDLE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_GENERAL_TWIDDLE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_HYBRID_FFT_BLOCK, kTransform),
    ORVO_UNKNOWN(A_MEM_ADDR_GEN_BLOCK, kTransform),
    ORVO_UNKNOWN(A_MULTIWIRE_TRANSPOSE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_PFFT_PIPE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_PULSE_DIVIDER_BLOCK, kTransform),
    ORVO_UNKNOWN(A_PULSE_MULTIPLIER_BLOCK, kTransform),
    ORVO_UNKNOWN(A_SPLIT_SPATIAL_TWIDDLE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_STAGE_DROP_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TA0MN_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TAL1N_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TAL2N_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TALM1_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TALM2_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TALMN_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TRANSPOSE_ADDR_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TRANSPOSE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TRIVIAL_TWIDDLE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLEBY1_8F_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLEBY1_8P_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLEBY3_8F_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLEBY3_8P_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLEBYF_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLEBYP_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLE_ADD_SUB_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLE_ANGLE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLE_COUNTER_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLE_MULT_ANGLE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLE_MULT_ROM_BLOCK, kTransform),
    ORVO_UNKNOWN(A_TWIDDLE_ROM_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VBITREVCORE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VBITREV_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VBR_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VFFT2_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VFFT4_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VFFTCORE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VFFT_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VFFT_LIGHT_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VFFT_PIPE_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VPD_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VPM_BLOCK, kTransform),
    ORVO_UNKNOWN(A_VTWIDDLE_BLOCK, kTransform),

    // Regions without scheduling, which have no registers but those that are drawn.
    ORVO_COSTS(U_ADD_BLOCK, unclocked<sum>, kUnclocked),
    ORVO_COSTS(U_SUB_BLOCK, unclocked<sum>, kUnclocked),
    ORVO_COSTS(U_AND_BLOCK, unclocked<bitwise>, kUnclocked),
    ORVO_COSTS(U_OR_BLOCK, unclocked<bitwise>, kUnclocked),
    ORVO_COSTS(U_XOR_BLOCK, unclocked<bitwise>, kUnclocked),
    ORVO_COSTS(U_NAND_BLOCK, unclocked<bitwise>, kUnclocked),
    ORVO_COSTS(U_NOR_BLOCK, unclocked<bitwise>, kUnclocked),
    ORVO_COSTS(U_XNOR_BLOCK, unclocked<bitwise>, kUnclocked),
    ORVO_COSTS(U_AND_REDUCE_BLOCK, unclocked<overBits>, kUnclocked),
    ORVO_COSTS(U_OR_REDUCE_BLOCK, unclocked<overBits>, kUnclocked),
    ORVO_COSTS(U_XOR_REDUCE_BLOCK, unclocked<overBits>, kUnclocked),
    ORVO_COSTS(U_NAND_REDUCE_BLOCK, unclocked<overBits>, kUnclocked),
    ORVO_COSTS(U_NOR_REDUCE_BLOCK, unclocked<overBits>, kUnclocked),
    ORVO_COSTS(U_XNOR_REDUCE_BLOCK, unclocked<overBits>, kUnclocked),
    ORVO_COSTS(U_CAST_BLOCK, unclocked<conversion>, kUnclocked),
    ORVO_COSTS(U_CMP_EQ_BLOCK, unclocked<equal>, kUnclocked),
    ORVO_COSTS(U_CMP_NE_BLOCK, unclocked<equal>, kUnclocked),
    ORVO_COSTS(U_CMP_LT_BLOCK, unclocked<order>, kUnclocked),
    ORVO_COSTS(U_CMP_GE_BLOCK, unclocked<order>, kUnclocked),
    ORVO_COSTS(U_MUX_BLOCK, unclocked<multiplexers>, kUnclocked),
    ORVO_FREE(U_NOT_BLOCK, kInverter),
    ORVO_FREE(U_BIT_SELECT_BLOCK, kWires),
    ORVO_FREE(U_BIT_JOIN_BLOCK, kWires),
    ORVO_COSTS(U_REGISTER_BLOCK, oneRegister, "a register stands beside the logic that drives it"),
};
#undef ORVO_COSTS
#undef ORVO_FREE
#undef ORVO_UNKNOWN

} // namespace

std::span<const EstimateRow> estimateRows() { return kRows; }

const EstimateRow *findEstimateRow(const Value *type) {
    static const auto *const table = [] {
        auto *rows = new std::unordered_map<const Value *, const EstimateRow *>;
        for (const EstimateRow &row : kRows) {
            rows->emplace(row.type->get_ptr(), &row);
        }
        return rows;
    }();
    const auto hit = table->find(type);
    return hit == table->end() ? nullptr : hit->second;
}

std::optional<Usage> estimateBlock(const Primitive &block) {
    const EstimateRow *row = findEstimateRow(block.block().type());
    if (row == nullptr || row->kind == EstimateKind::Unknown) {
        return std::nullopt;
    }
    if (row->kind == EstimateKind::Free) {
        return Usage();
    }
    try {
        return row->estimate(block);
    } catch (const UnknownType &) {
        return std::nullopt;
    }
}

} // namespace orvo::generator
