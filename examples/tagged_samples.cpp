// Samples that travel with their tag: a record of a complex sample, a channel number and a flag goes through one delay
// and a model as a single signal, and is taken apart where its parts are used.
#include "netlist.h"

using namespace example;

namespace {

/// Holds what comes, whatever it is.
Model &drawHold(Design &design) {
    Model &hold = *Model::create(design, "hold");
    Wire &item = *Wire::create(block(hold, "in", A_INPUT_BLOCK), "item");
    block(hold, "out", A_OUTPUT_BLOCK).setParam(value("item"), delay(hold, "held", item, 2));
    return hold;
}

} // namespace

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &hold = drawHold(design);
    Model &top = *Model::create(design, "top");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire &sample = pinned(top, "sampleType", *Wire::create(input, "sample"), value("(typeComplex (typeSFixed 1 13))"));
    Wire &channel = pinned(top, "channelType", *Wire::create(input, "channel"), value("(typeUFixed 3 0)"));
    Wire &last = constant(top, "lastChannel", ValueRef(key(7)), value("(typeUFixed 3 0)"));
    Wire &isLast = out(block(top, "isLast", A_CMP_EQ_BLOCK, {&channel, &last}));

    Block &record = block(top, "record", A_APACK_BLOCK, {&sample, &channel, &isLast});
    Wire &early = delay(top, "early", *Wire::create(record, A_APACK_WIRE_OUT), 1);
    Block &instance = block(top, "hold", A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, hold);
    instance.setParam(value("item"), early);
    Block &fields = block(top, "fields", A_AUNPACK_BLOCK);
    fields.setParam(A_AUNPACK_PORT_IN, *Wire::create(instance, "item"));
    Wire &lateSample = *Wire::create(fields, key(0));
    Wire &lateChannel = *Wire::create(fields, key(1));
    Wire &lateFlag = *Wire::create(fields, key(2));

    // The sample of the last channel is halved.
    Wire &half = constant(top, "half", ValueRef(NumberValue::get(0.5, context.context())), value("(typeUFixed 0 1)"));
    Wire &halved = out(block(top, "halved", A_MULT_BLOCK, {&lateSample, &half}));
    Block &select = block(top, "choose", A_SELECT_BLOCK);
    select.setParam(value("(selectPortkeyCtrl 0)"), lateFlag);
    select.setParam(value("(selectPortkeyData 0)"), halved);
    select.setParam(A_SELECT_PORT_DEFAULT_DATA, lateSample);
    Block &output = block(top, "out", A_OUTPUT_BLOCK);
    output.setParam(value("sample"), out(select));
    output.setParam(value("channel"), lateChannel);
    return write(design);
}
