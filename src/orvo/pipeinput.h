// Which input a wire of a pipe gives on, as one or element by element.
#pragma once

#include <orvo/block.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

namespace orvo::internal {

/// The like-named one. The main wire, where no input has its name, gives on input 0, or the only input; of several
/// others none is meant more than the next. Null if there is none.
inline const Port *pipeInput(const Block &block, const PureValueRef &wire) {
    if (const Port *named = block.getPort(wire); named != nullptr || wire != A_PRIM_WIRE_OUT) {
        return named;
    }
    const Port *first = block.getPort(NumberValue::get(0, block.getContext()));
    return first == nullptr && block.port_size() == 1 ? &*block.port_begin() : first;
}

/// A pipe whose signals come apart by what `Unroller` does at boundaries. The main wire takes the name of the input
/// that it gives on, as that was before, by which its elements still do.
template <class Unroller> class PipeUnroller final : public Unroller {
  public:
    explicit PipeUnroller(Block &block) : Unroller(block), mMain(A_PRIM_WIRE_OUT) {
        if (const Port *input = pipeInput(block, A_PRIM_WIRE_OUT)) {
            mMain = input->getName();
        }
    }

  protected:
    PureValueRef baseOf(const Wire &wire) const override {
        return wire.getName() == A_PRIM_WIRE_OUT ? mMain : wire.getName();
    }

  private:
    PureValueRef mMain;
};

} // namespace orvo::internal
