// Depths of logic at the ends of an external interface.
#include <orvo/subcyclelatency.h>

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

namespace orvo {

SubCycleLatencyCreator::SubCycleLatencyCreator(Block &block) : mBlock(block) {
    ORVO_ASSERT(block.type() == A_EXT_IFACE_BLOCK.get_ptr(), "depths are told of an external interface");
}

void SubCycleLatencyCreator::put(Depths &depths, const PureValueRef &key, int lutDepth) {
    ORVO_ASSERT(lutDepth >= 0, "a depth of logic is not below 0");
    depths[key] = NumberValue::get(lutDepth, mBlock.getContext());
}

void SubCycleLatencyCreator::set(const Port &port, int lutDepth) {
    ORVO_ASSERT(&port.getBlock() == &mBlock, "the port is the block's");
    put(mPorts, port.getName(), lutDepth);
}

void SubCycleLatencyCreator::set(const Wire &wire, int lutDepth) {
    ORVO_ASSERT(&wire.getBlock() == &mBlock, "the wire is the block's");
    put(mWires, wire.getName(), lutDepth);
}

void SubCycleLatencyCreator::setForAllPorts(int lutDepth) {
    for (const Port &port : mBlock.ports()) {
        put(mPorts, port.getName(), lutDepth);
    }
}

void SubCycleLatencyCreator::setForAllWires(int lutDepth) {
    for (const Wire &wire : mBlock) {
        put(mWires, wire.getName(), lutDepth);
    }
}

void SubCycleLatencyCreator::finalise() {
    Context *context = mBlock.getContext();
    mBlock.setParam(A_EXT_IFACE_SUBCYCLE_LATENCY, PureTupleValue::get(PureTupleValue::get(mPorts, context),
                                                                      PureTupleValue::get(mWires, context), context));
}

} // namespace orvo
