#include <iostream>
#include <orvo/orvo.h>
using namespace orvo;

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &top = *Model::create(design, "top");
    Block &input = *Block::create(top, "in", A_INPUT_BLOCK);
    Block &pin = *Block::create(top, "xType", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, Value::parse("(typeSFixed 1 15)", context.context()));
    pin.setParam(Value::parse("0", context.context()), *Wire::create(input, "x"));
    Block &output = *Block::create(top, "out", A_OUTPUT_BLOCK);
    output.setParam(Value::parse("y", context.context()), *Wire::create(pin, Value::parse("0", context.context())));
    XMLServices().toXML(std::cout, design);
}
