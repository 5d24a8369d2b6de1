// Terminals dissolve into the wires that drive them.
#include "orvo/elideterminalpass.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/workqueue.h>

namespace orvo {

ORVO_DEFINE_PASS(ElideTerminalPass, "Takes out each terminal that is driven: what read it reads its source.")

void ElideTerminalPass::apply(ModelPassContext &context) {
    Model &model = context.getModel();
    const PureValueRef input = NumberValue::get(0, model.getContext());
    WorkQueue queue(model);
    while (queue.next()) {
        Block &block = *queue.block();
        const Port *port = block.type() == A_TERMINAL_BLOCK.get_ptr() ? block.getPort(input) : nullptr;
        if (port == nullptr) {
            continue;
        }
        Wire &source = *port->getWire();
        for (Wire &wire : block) {
            wire.replace(source);
        }
        queue.deleteBlock();
    }
}

} // namespace orvo
