// A companding table behind a range selection, as a first draft often looks: a debug path that ends nowhere, a loop
// that feeds nothing, a terminal on a signal, a pack that is unpacked at once, and a model that nobody refers to. The
// passes for dead logic leave the part that matters.
#include "netlist.h"

using namespace example;

namespace {

/// Nobody instantiates it.
void drawForgottenModel(Design &design) {
    Model &model = *Model::create(design, "oldLimiter");
    Block &input = block(model, "in", A_INPUT_BLOCK);
    Wire &sample = pinned(model, "sampleType", *Wire::create(input, "sample"), value("(typeUFixed 8 0)"));
    block(model, "out", A_OUTPUT_BLOCK).setParam(value("limited"), sample);
}

/// What was left behind while the design was tried out.
void drawDeadLogic(Model &top, Wire &sample) {
    Wire &squared = out(block(top, "debugSquare", A_MULT_BLOCK, {&sample, &sample}));
    out(block(top, "debugSum", A_ADD_BLOCK, {&squared, &sample}));
    Block &first = block(top, "loopFirst", A_REGISTER_BLOCK);
    Wire &looped = pinned(top, "loopType", out(first), value("(typeUFixed 8 0)"));
    first.setParam(key(0), out(block(top, "loopSecond", A_REGISTER_BLOCK, {&looped})));
}

} // namespace

int main() {
    ContextMgr context;
    Design design(context.context());
    drawForgottenModel(design);
    Model &top = *Model::create(design, "compander");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire &sample = pinned(top, "sampleType", *Wire::create(input, "sample"), value("(typeUFixed 8 0)"));
    Wire &limit = constant(top, "limit", ValueRef(key(16)), value("(typeUFixed 8 0)"));
    Wire &large = out(block(top, "isLarge", A_CMP_GE_BLOCK, {&sample, &limit}));

    Block &terminal = block(top, "watch", A_TERMINAL_BLOCK, {&sample});
    Wire &watched = *Wire::create(terminal, key(0));
    Block &pack = block(top, "pair", A_VPACK_BLOCK, {&watched, &limit});
    Block &unpack = block(top, "unpair", A_VUNPACK_BLOCK);
    unpack.setParam(A_VUNPACK_PORT_IN, *Wire::create(pack, A_VPACK_WIRE_OUT));
    Wire &address = *Wire::create(unpack, key(0));

    std::string entries = "(";
    for (int i = 0; i < 256; ++i) {
        entries += (i == 0 ? "" : " ") + std::to_string(i < 16 ? i : 16 + (i - 16) / 4);
    }
    Block &table = block(top, "curve", A_LUT_BLOCK);
    table.setParam(A_LUT_PORT_ADDR, address);
    table.setParam(A_LUT_DATA, value(entries + ")"));
    table.setParam(A_LUT_TYPE, value("(typeUFixed 7 0)"));

    Block &select = block(top, "choose", A_SELECT_BLOCK);
    select.setParam(value("(selectPortkeyCtrl 0)"), large);
    select.setParam(value("(selectPortkeyData 0)"), out(table));
    select.setParam(A_SELECT_PORT_DEFAULT_DATA, sample);
    block(top, "out", A_OUTPUT_BLOCK).setParam(value("companded"), out(select));
    drawDeadLogic(top, sample);
    return write(design);
}
