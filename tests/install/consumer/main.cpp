// The smallest useful client of an installed orvo: makes a design of one model with a constant that drives an output,
// and writes it to the standard output. It includes public headers only.

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <iostream>

int main() {
    orvo::ContextMgr manager;
    orvo::Design design(manager.context());
    orvo::Model *model = orvo::Model::create(design, "top");

    const auto zero = orvo::NumberValue::get(0, manager.context());

    orvo::Block *source = orvo::Block::create(*model, "source");
    source->setParam(orvo::A_BLOCK_TYPE, orvo::A_CONST_BLOCK);
    source->setParam(orvo::A_CONST_VALUE, zero);
    orvo::Wire *wire = orvo::Wire::create(*source, orvo::A_PRIM_WIRE_OUT);

    orvo::Block *sink = orvo::Block::create(*model, "sink");
    sink->setParam(orvo::A_BLOCK_TYPE, orvo::A_OUTPUT_BLOCK);
    sink->setParam(zero, *wire);

    orvo::XMLServices xml;
    xml.toXML(std::cout, design);
    return std::cout ? 0 : 1;
}
