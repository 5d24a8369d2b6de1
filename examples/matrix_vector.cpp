// A matrix of constants times a vector of four complex signals. Each row multiplies and sums over the vector, where the
// products grow by the width of the coefficients and the sum by two bits more; the results are rounded back, row by
// row, and packed.
#include "netlist.h"

using namespace example;

namespace {

constexpr int kRows = 3;
constexpr int kColumns = 4;
/// Real and imaginary parts, in units of 2^-11.
constexpr int kMatrix[kRows][kColumns][2] = {
    {{1448, 0}, {0, 1448}, {-1448, 0}, {0, -1448}},
    {{1024, 1024}, {-1024, 1024}, {-1024, -1024}, {1024, -1024}},
    {{2047, 0}, {512, -512}, {0, 256}, {-128, 128}},
};

/// The row as a vector of complex constants.
std::string rowOf(int row) {
    const auto number = [](int units) { return NumberValue::fromInt64(units, 11, ContextMgr::get())->toString(); };
    std::string text = "(vectorRollTag";
    for (const auto &entry : kMatrix[row]) {
        text += " (complexRollTag " + number(entry[0]) + " " + number(entry[1]) + ")";
    }
    return text + ")";
}

} // namespace

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &top = *Model::create(design, "matrixVector");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire &x = pinned(top, "xType", *Wire::create(input, "x"), value("(typeVector 4 (typeComplex (typeSFixed 2 10)))"));
    Block &pack = block(top, "rows", A_VPACK_BLOCK);
    for (int row = 0; row < kRows; ++row) {
        const std::string name = "row" + std::to_string(row);
        Wire &coefficients =
            constant(top, name, value(rowOf(row)), value("(typeVector 4 (typeComplex (typeSFixed 1 11)))"));
        Wire &products = out(block(top, name + "Products", A_MULT_BLOCK, {&x, &coefficients}));
        Wire &sum = out(block(top, name + "Sum", A_ADD_REDUCE_BLOCK, {&products}));
        Block &rounded = block(top, name + "Round", A_CAST_BLOCK, {&sum});
        rounded.setParam(A_CAST_OUTPUT_TYPE, value("(typeComplex (typeSFixed 3 13))"));
        rounded.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_UNBIASED);
        rounded.setParam(A_CAST_SATURATE_MODE, A_SATURATE_ASYM);
        pack.setParam(key(row), out(rounded));
    }
    block(top, "out", A_OUTPUT_BLOCK).setParam(value("y"), *Wire::create(pack, A_VPACK_WIRE_OUT));
    return write(design);
}
