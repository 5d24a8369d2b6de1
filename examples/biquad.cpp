// A second-order recursive filter in direct form I. The loop through the two delays of the output is closed by a type
// pin, which says what the fed-back signal is, so that the types around the loop settle.
#include "netlist.h"

using namespace example;

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &top = *Model::create(design, "biquad");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    const ValueRef sample = sfixed(2, 14);
    const ValueRef weight = sfixed(2, 16);
    const auto coefficient = [&](const char *name, double number) -> Wire & {
        return constant(top, name, ValueRef(NumberValue::get(number, context.context())), weight);
    };
    const auto product = [&](const char *name, Wire &signal, Wire &by) {
        return &out(block(top, name, A_MULT_BLOCK, {&signal, &by}));
    };

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire &x0 = pinned(top, "inputType", *Wire::create(input, "x"), sample);
    Wire &x1 = delay(top, "x1", x0, 1);
    Wire &x2 = delay(top, "x2", x1, 1);

    // The feedback comes from blocks that are drawn below: the pin is made first and driven last.
    Block &feedback = block(top, "feedbackType", A_TYPE_PIN_BLOCK);
    feedback.setParam(A_TYPE_PIN_TYPE, sample);
    Wire &y0 = *Wire::create(feedback, key(0));
    Wire &y1 = delay(top, "y1", y0, 1);
    Wire &y2 = delay(top, "y2", y1, 1);

    Wire &forward =
        out(block(top, "forward", A_ADD_BLOCK,
                  {product("b0x0", x0, coefficient("b0", 0.2066)), product("b1x1", x1, coefficient("b1", 0.4131)),
                   product("b2x2", x2, coefficient("b2", 0.2066))}));
    Wire &backward =
        out(block(top, "backward", A_ADD_BLOCK,
                  {product("a1y1", y1, coefficient("a1", -0.3695)), product("a2y2", y2, coefficient("a2", 0.1958))}));
    Wire &wide = out(block(top, "difference", A_SUB_BLOCK, {&forward, &backward}));
    Block &rounded = block(top, "round", A_CAST_BLOCK, {&wide});
    rounded.setParam(A_CAST_OUTPUT_TYPE, sample);
    rounded.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_UNBIASED);
    rounded.setParam(A_CAST_SATURATE_MODE, A_SATURATE_ASYM);
    feedback.setParam(key(0), out(rounded));
    block(top, "out", A_OUTPUT_BLOCK).setParam(value("y"), y0);
    return write(design);
}
