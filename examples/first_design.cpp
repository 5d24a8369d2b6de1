#include <iostream>
#include <orvo/orvo.h>
using namespace orvo;

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &top = *Model::create(design, "top");
    Block &input = *Block::create(top, "in");
    input.setParam(A_BLOCK_TYPE, A_INPUT_BLOCK);
    Block &output = *Block::create(top, "out");
    output.setParam(A_BLOCK_TYPE, A_OUTPUT_BLOCK);
    output.setParam(StringValue::get("y", context.context()), *Wire::create(input, "x"));
    XMLServices().toXML(std::cout, design);
}
