// Which input a wire of a pipe gives on.
#pragma once

#include <orvo/block.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

namespace orvo::internal {

/// The like-named one. The main wire, where no input has its name, gives on input 0, which comes before all names. Null
/// if there is none.
inline const Port *pipeInput(const Block &block, const PureValueRef &wire) {
    const Port *named = block.getPort(wire);
    const bool isMain = named == nullptr && wire == A_PRIM_WIRE_OUT && block.port_size() != 0;
    return isMain ? &*block.port_begin() : named;
}

/// The name of that input, or the wire's own: by it a pipe whose signals came apart gives each part on.
inline PureValueRef pipeBase(const Block &block, const Wire &wire) {
    const Port *port = pipeInput(block, wire.getName());
    return port != nullptr ? port->getName() : wire.getName();
}

} // namespace orvo::internal
