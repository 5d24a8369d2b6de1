// A finite impulse response filter of 16 taps: a line of delays packed into a vector, one product with the vector of
// coefficients, and one sum over the taps. The compiler takes the vector apart; the designer draws it once.
#include "netlist.h"

using namespace example;

int main() {
    constexpr int kTaps = 16;
    // A low-pass filter, 16 bits with 15 fraction bits, symmetric.
    constexpr int kHalf[kTaps / 2] = {-52, -131, -97, 421, 1572, 3198, 4782, 5761};

    ContextMgr context;
    Design design(context.context());
    Model &top = *Model::create(design, "fir16");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire *tap = &pinned(top, "sampleType", *Wire::create(input, "sample"), sfixed(1, 15));
    Block &line = block(top, "line", A_VPACK_BLOCK);
    std::string coefficients = "(vectorRollTag";
    for (int i = 0; i < kTaps; ++i) {
        line.setParam(key(i), *tap);
        tap = &delay(top, "delay" + std::to_string(i), *tap, 1);
        const int coefficient = kHalf[i < kTaps / 2 ? i : kTaps - 1 - i];
        coefficients += " " + NumberValue::fromInt64(coefficient, 15, context.context())->toString();
    }
    Wire &taps = *Wire::create(line, A_VPACK_WIRE_OUT);
    Wire &weights =
        constant(top, "coefficients", value(coefficients + ")"), value("(typeVector 16 (typeSFixed 1 15))"));
    Wire &products = out(block(top, "products", A_MULT_BLOCK, {&taps, &weights}));
    Wire &sum = out(block(top, "sum", A_ADD_REDUCE_BLOCK, {&products}));
    Block &output = block(top, "out", A_OUTPUT_BLOCK);
    output.setParam(value("filtered"), sum);
    return write(design);
}
