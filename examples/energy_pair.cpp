// One model, two types: the energy of the difference of two signals in a row. The model says nothing about its input;
// one instance sees a scalar of fixed point, the other a vector of floats, and each gets types of its own.
#include "netlist.h"

using namespace example;

namespace {

Model &drawEnergy(Design &design) {
    Model &energy = *Model::create(design, "energy");
    Wire &signal = *Wire::create(block(energy, "in", A_INPUT_BLOCK), "signal");
    Wire &difference = out(block(energy, "difference", A_SUB_BLOCK, {&signal, &delay(energy, "before", signal, 1)}));
    Wire &square = out(block(energy, "square", A_MULT_BLOCK, {&difference, &difference}));
    block(energy, "out", A_OUTPUT_BLOCK).setParam(value("energy"), square);
    return energy;
}

Wire &energyOf(Model &top, const char *name, Model &energy, Wire &signal) {
    Block &instance = block(top, name, A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, energy);
    instance.setParam(value("signal"), signal);
    return *Wire::create(instance, "energy");
}

} // namespace

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &energy = drawEnergy(design);
    Model &top = *Model::create(design, "top");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire &narrow = pinned(top, "narrowType", *Wire::create(input, "narrow"), sfixed(1, 11));
    Wire &wide = pinned(top, "wideType", *Wire::create(input, "wide"), value("(typeVector 2 (typeSFloatIEEE 23 8))"));

    Block &output = block(top, "out", A_OUTPUT_BLOCK);
    output.setParam(value("narrowEnergy"), energyOf(top, "narrowEnergy", energy, narrow));
    output.setParam(value("wideEnergy"), energyOf(top, "wideEnergy", energy, wide));
    return write(design);
}
