// A few words for drawing designs, shared by the examples: blocks by type, inputs by key, types by their tuples.
#pragma once

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <initializer_list>
#include <iostream>
#include <string>

namespace example {

using namespace orvo;

/// A value from its text, such as "(typeSFixed 2 14)".
inline ValueRef value(const std::string &text) { return Value::parse(text, ContextMgr::get()); }
inline PureValueRef key(int number) { return NumberValue::get(number, ContextMgr::get()); }

/// A signed fixed-point type of `intBits` (the sign counted) and `fracBits`.
inline ValueRef sfixed(int intBits, int fracBits) {
    return value("(typeSFixed " + std::to_string(intBits) + " " + std::to_string(fracBits) + ")");
}

/// A block of a type whose numbered inputs are the given wires.
inline Block &block(Model &model, const std::string &name, const StaticString &type,
                    std::initializer_list<Wire *> inputs = {}) {
    Block *made = Block::create(model, name, type);
    int number = 0;
    for (Wire *wire : inputs) {
        made->setParam(key(number++), *wire);
    }
    return *made;
}

/// The main output of a block.
inline Wire &out(Block &of) {
    Wire *wire = of.getWire(A_PRIM_WIRE_OUT);
    return wire != nullptr ? *wire : *Wire::create(of, A_PRIM_WIRE_OUT);
}

/// A constant of a type.
inline Wire &constant(Model &model, const std::string &name, const ValueRef &content, const ValueRef &type) {
    Block &made = block(model, name, A_CONST_BLOCK);
    made.setParam(A_CONST_VALUE, content);
    made.setParam(A_CONST_TYPE, type);
    return out(made);
}

/// The same signal, one clock later or more.
inline Wire &delay(Model &model, const std::string &name, Wire &of, int cycles) {
    Block &made = block(model, name, A_DELAY_BLOCK, {&of});
    made.setParam(A_DELAY_LENGTH, ValueRef(key(cycles)));
    return out(made);
}

/// The same signal with its type told.
inline Wire &pinned(Model &model, const std::string &name, Wire &of, const ValueRef &type) {
    Block &made = block(model, name, A_TYPE_PIN_BLOCK, {&of});
    made.setParam(A_TYPE_PIN_TYPE, type);
    return *Wire::create(made, key(0));
}

/// Writes the design to standard output.
inline int write(const Design &design) {
    XMLServices().toXML(std::cout, design);
    return std::cout.flush() ? 0 : 1;
}

} // namespace example
