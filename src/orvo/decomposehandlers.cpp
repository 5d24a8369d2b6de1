// What handlers that replace composite blocks have in common, and their registration.
#include "orvo/decomposehandlers.h"

#include <orvo/context.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo {

bool DecomposeCompositeHandler::applicable(GlobalTypeCache &) const { return true; }

namespace internal {

NumTypeSpec BlockTypes::port(const PureValueRef &key) const {
    return NumTypeSpec(mQuery.getType(mBlock.getPort(key), mRefChain), mBlock.getContext());
}

NumTypeSpec BlockTypes::port(int number) const { return port(NumberValue::get(number, mBlock.getContext())); }

NumTypeSpec BlockTypes::wire(const PureValueRef &key) const {
    return NumTypeSpec(mQuery.getType(mBlock.getWire(key), mRefChain), mBlock.getContext());
}

bool hasRealNumbers(GlobalTypeCache &cache) {
    const Block &block = cache.getBlock();
    const auto isReal = [&](const PureValueRef &value) {
        const NumTypeSpec type(value, block.getContext());
        return type.isReal() && (type.isFloat() || type.fixedBits() >= 1);
    };
    const BlockPorts ports = block.ports();
    return std::all_of(ports.begin(), ports.end(),
                       [&](const Port &port) { return isReal(cache.getTypePort(port.getName())); }) &&
           std::all_of(block.begin(), block.end(),
                       [&](const Wire &wire) { return isReal(cache.getTypeWire(wire.getName())); });
}

bool isFixedPort(GlobalTypeCache &cache, int number) {
    Context *context = cache.getBlock().getContext();
    return NumTypeSpec(cache.getTypePort(NumberValue::get(number, context)), context).isFixed();
}

bool RealDecomposeHandler::applicable(GlobalTypeCache &cache) const { return hasRealNumbers(cache); }

void registerDecomposeHandlers(Context *context) {
    for (const std::span<const DecomposeRow> rows :
         {castDecompositions(), primDecompositions(), mathDecompositions(), memoryDecompositions()}) {
        for (const DecomposeRow &row : rows) {
            context->getBlockClass(*row.blockType)->registerHandler<DecomposeCompositeHandler>(row.handler(), false);
        }
    }
}

} // namespace internal

} // namespace orvo
