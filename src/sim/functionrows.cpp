// Elementary functions of fixed-point numbers, rotations, polynomials of floats, and functions that nobody tells.
#include "sim/blockrows.h"
#include "sim/floatemit.h"
#include "sim/functionkernels.h"
#include "sim/uninterpreted.h"

#include <orvo/wire.h>

namespace orvo::sim {

namespace {

/// A number as the kernels of functions read and write it.
Operand numberOperand(const BlockWriter &writer, Leaf leaf) {
    Operand operand = writer.raw(leaf);
    operand.shift = writer.scalar(leaf).fraction;
    return operand;
}

void emitNumber(BlockWriter &writer, Leaf out, const std::vector<Leaf> &in, Kernel kernel) {
    std::vector<Operand> operands;
    for (const Leaf leaf : in) {
        operands.push_back(numberOperand(writer, leaf));
    }
    writer.emit(out, writer.scalar(out).fraction, operands, [kernel](const Op &) { return kernel; });
}

template <FixedFunction function, FixedFunction second = function> void writeFunction(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 1);
    const std::pair<Signal, FixedFunction> outs[] = {{writer.out(), function}, {writer.out(A_PRIM_WIRE_AUX), second}};
    for (const auto &[out, which] : outs) {
        if (out.known()) {
            forEachScalar(out, [&, which = which](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
                emitNumber(writer, leaf, {partOrZero(writer, in[0], lane, part)}, fixedFunctionKernel(which));
            });
        }
    }
}

void writePower(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    if (in[1].type->scalar.fraction != 0 || in[1].type->isComplex) {
        writer.fail("the exponent is no integer");
    }
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            emitNumber(writer, leaf, {partOrZero(writer, in[0], lane, part), *leafAt(in[1], lane)}, fixedPowerKernel());
        });
    }
}

/// A shift to the left, or for a negative number to the right, brought to the output's type.
void writeScaling(BlockWriter &writer) {
    const std::vector<Signal> in = fixedInputs(writer, 2);
    if (in[1].type->scalar.fraction != 0 || in[1].type->isComplex) {
        writer.fail("the exponent is no integer");
    }
    if (const Signal out = writer.out(); out.known()) {
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const Leaf value = partOrZero(writer, in[0], lane, part);
            const Leaf places = *leafAt(in[1], lane);
            const ScalarType type = writer.scalar(leaf);
            const std::int32_t drop = writer.scalar(value).fraction - type.fraction;
            const auto shifted = [&](bool left) {
                // Only the number of the right sign is taken, as a pattern.
                const Leaf count = writer.temporary({writer.scalar(places).width + 1, 0, false, false});
                emitSum(writer, count, {places}, {!left});
                const Leaf result = writer.temporary(type);
                writer.emit(result, drop, {writer.raw(value), writer.raw(count)}, barrelKernel, left ? 1 : 0);
                return result;
            };
            const Leaf isNegative = writer.temporary({1, 0, false, false});
            emitCompare(writer, isNegative, places, zero(writer), Relation::Less);
            emitMux(writer, leaf, isNegative, {shifted(true), shifted(false)});
        });
    }
}

/// Mode 0 rotates by the angle, of which nothing is left; mode 1 rotates onto the abscissa and adds the vector's angle.
void writeCordic(BlockWriter &writer) {
    const Signal x = fixedInput(writer, A_CORDIC_PORT_X, "the abscissa");
    const Signal y = fixedInput(writer, A_CORDIC_PORT_Y, "the ordinate");
    const Signal angle = fixedInput(writer, A_CORDIC_PORT_ANGLE, "the angle");
    const Signal mode = fixedInput(writer, A_CORDIC_PORT_MODE, "the mode");
    if (mode.type->isComplex) {
        writer.fail("the mode is no condition");
    }
    const auto write = [&](const StaticString &wire, std::optional<Cordic> rotated, std::optional<Cordic> turned) {
        const Signal out = writer.out(wire);
        if (!out.known()) {
            return;
        }
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            const std::vector<Leaf> in{partOrZero(writer, x, lane, part), partOrZero(writer, y, lane, part),
                                       *leafAt(angle, lane, angle.type->isComplex ? part : 0)};
            const auto result = [&](std::optional<Cordic> what) {
                const Leaf value = writer.temporary(writer.scalar(leaf));
                if (what) {
                    emitNumber(writer, value, in, cordicKernel(*what));
                }
                return value;
            };
            emitMux(writer, leaf, truth(writer, *leafAt(mode, lane)), {result(rotated), result(turned)});
        });
    };
    write(A_CORDIC_WIRE_X, Cordic::RotatedX, Cordic::Length);
    write(A_CORDIC_WIRE_Y, Cordic::RotatedY, std::nullopt);
    write(A_CORDIC_WIRE_ANGLE, std::nullopt, Cordic::Direction);
}

/// The coefficients of each bank: a tuple of tuples, or all one behind another.
std::vector<std::vector<ValueRef>> coefficientBanks(const BlockWriter &writer) {
    const TupleValueRef data = tupleVR(writer.param(A_POLYNOMIAL_DATA));
    const std::int64_t count = writer.integer(A_POLYNOMIAL_BANKS, 1);
    if (!data || data->size() == 0 || count < 1) {
        writer.fail("the polynomial has no coefficients");
    }
    std::vector<std::vector<ValueRef>> banks;
    if (tupleVR(data->at(0))) {
        for (const ValueRef &element : *data) {
            const TupleValueRef bank = tupleVR(element);
            if (!bank) {
                writer.fail("a bank of coefficients is no tuple");
            }
            banks.emplace_back(bank->begin(), bank->end());
        }
    } else if (data->size() % static_cast<std::size_t>(count) == 0) {
        const std::size_t each = data->size() / static_cast<std::size_t>(count);
        for (std::size_t i = 0; i < data->size(); i += each) {
            banks.emplace_back(data->begin() + static_cast<std::ptrdiff_t>(i),
                               data->begin() + static_cast<std::ptrdiff_t>(i + each));
        }
    } else {
        writer.fail("the banks have no equal number of coefficients");
    }
    return banks;
}

/// The exact value with coefficients of the argument's format, rounded once.
void writePolynomial(BlockWriter &writer) {
    const Signal in = writer.in(0);
    const Signal bank = writer.in(1);
    require(writer, in);
    if (!in.type->scalar.isFloat) {
        writer.fail("the argument is no float");
    }
    const auto banks = coefficientBanks(writer);
    std::size_t degree = 0;
    for (const auto &one : banks) {
        degree = std::max(degree, one.size());
    }
    const ScalarType type = in.type->scalar;
    std::vector<std::vector<Leaf>> constants(degree);
    for (std::size_t power = 0; power < degree; ++power) {
        for (const auto &one : banks) {
            constants[power].push_back(power < one.size() ? floatConstant(writer, one[power], type).first
                                                          : writer.temporary(type));
        }
    }
    for (const Signal &out : {writer.out(), writer.out(A_PRIM_WIRE_AUX)}) {
        if (!out.known()) {
            continue;
        }
        forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
            std::vector<Leaf> operands{partOrZero(writer, in, lane, part)};
            for (const auto &ofBanks : constants) {
                operands.push_back(bank.known() ? chosen(writer, type, *leafAt(bank, lane), ofBanks) : ofBanks[0]);
            }
            emitFloat(writer, leaf, operands, floatPolynomialKernel(), floatAux(floatModeOf(writer)));
        });
    }
}

/// Equal operands give equal values in each lane; nothing else is known.
void writeUntold(BlockWriter &writer) {
    const std::vector<Signal> in = writer.numbered();
    if (in.size() < 3) {
        writer.missing();
    }
    const std::string function = writer.block().type()->toString();
    for (const StaticString *wire : {&A_PRIM_WIRE_OUT, &A_PRIM_WIRE_AUX}) {
        if (const Signal out = writer.out(*wire); out.known()) {
            forEachScalar(out, [&](std::uint32_t lane, std::uint32_t part, Leaf leaf) {
                std::vector<NamedLeaf> operands;
                for (std::size_t i = 0; i < in.size(); ++i) {
                    operands.push_back({std::to_string(i), partOrZero(writer, in[i], lane, part)});
                }
                emitUninterpreted(writer, function, operands, {{std::string(wire->text()), leaf}});
            });
        }
    }
}

const BlockRow kRows[] = {
    {&A_SQRT_BLOCK, writeFunction<FixedFunction::Sqrt>},
    {&A_RECIPROCAL_BLOCK, writeFunction<FixedFunction::Reciprocal>},
    {&A_RECIP_SQRT_BLOCK, writeFunction<FixedFunction::RecipSqrt>},
    {&A_EXP_BLOCK, writeFunction<FixedFunction::Exp>},
    {&A_LOG_BLOCK, writeFunction<FixedFunction::Log>},
    {&A_SIN_BLOCK, writeFunction<FixedFunction::Sin>},
    {&A_COS_BLOCK, writeFunction<FixedFunction::Cos>},
    {&A_SINCOSFUSED_BLOCK, writeFunction<FixedFunction::Sin, FixedFunction::Cos>},
    {&A_SINPIX_BLOCK, writeFunction<FixedFunction::SinPi>},
    {&A_COSPIX_BLOCK, writeFunction<FixedFunction::CosPi>},
    {&A_SINCOSPIXFUSED_BLOCK, writeFunction<FixedFunction::SinPi, FixedFunction::CosPi>},
    {&A_POWN_BLOCK, writePower},
    {&A_MULT_POW2_BLOCK, writeScaling},
    {&A_CORDIC_BLOCK, writeCordic},
    {&A_POLYNOMIAL_BLOCK, writePolynomial},
    {&A_FIXED_MFUNC_BLOCK, writeUntold},
    {&A_FLOAT_MFUNC_BLOCK, writeUntold},
};

} // namespace

std::span<const BlockRow> functionRows() { return kRows; }

} // namespace orvo::sim
