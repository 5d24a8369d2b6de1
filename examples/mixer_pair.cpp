// Two levels of hierarchy: one model of a complex mixer, drawn once and instantiated twice, each instance on a vector
// of four complex signals. The same oscillator moves both up and, conjugated, down.
#include "netlist.h"

using namespace example;

namespace {

const char *const kFourComplex = "(typeVector 4 (typeComplex (typeSFixed 1 15)))";

/// The mixer: the signals times the oscillator, rounded back to the width of the signals.
Model &drawMixer(Design &design) {
    Model &mixer = *Model::create(design, "mixer");
    Block &input = block(mixer, "in", A_INPUT_BLOCK);
    Wire &signals = *Wire::create(input, "signals");
    Wire &oscillator = *Wire::create(input, "oscillator");
    Wire &product = out(block(mixer, "product", A_MULT_BLOCK, {&signals, &oscillator}));
    Block &rounded = block(mixer, "round", A_CAST_BLOCK, {&product});
    rounded.setParam(A_CAST_OUTPUT_TYPE, value(kFourComplex));
    rounded.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_BIASED);
    rounded.setParam(A_CAST_SATURATE_MODE, A_SATURATE_SYM);
    block(mixer, "out", A_OUTPUT_BLOCK).setParam(value("mixed"), out(rounded));
    return mixer;
}

/// An instance of the mixer; gives its output.
Wire &mix(Model &top, const char *name, Model &mixer, Wire &signals, Wire &oscillator) {
    Block &instance = block(top, name, A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, mixer);
    instance.setParam(value("signals"), signals);
    instance.setParam(value("oscillator"), oscillator);
    return *Wire::create(instance, "mixed");
}

} // namespace

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &mixer = drawMixer(design);
    Model &top = *Model::create(design, "top");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire &up = pinned(top, "upType", *Wire::create(input, "up"), value(kFourComplex));
    Wire &down = pinned(top, "downType", *Wire::create(input, "down"), value(kFourComplex));
    Wire &cosine = pinned(top, "cosineType", *Wire::create(input, "cosine"), sfixed(1, 15));
    Wire &sine = pinned(top, "sineType", *Wire::create(input, "sine"), sfixed(1, 15));

    Block &pack = block(top, "oscillator", A_CPACK_BLOCK);
    pack.setParam(A_CPACK_PORT_REAL, cosine);
    pack.setParam(A_CPACK_PORT_IMAG, sine);
    Wire &oscillator = *Wire::create(pack, A_CPACK_WIRE_OUT);
    Wire &conjugate = out(block(top, "conjugate", A_COMPLEX_CONJUGATE_BLOCK, {&oscillator}));

    Block &output = block(top, "out", A_OUTPUT_BLOCK);
    output.setParam(value("upMixed"), mix(top, "upMixer", mixer, up, oscillator));
    output.setParam(value("downMixed"), mix(top, "downMixer", mixer, down, conjugate));
    return write(design);
}
