// What handlers that replace composite blocks have in common, and their registration.
#include "orvo/decomposehandlers.h"

#include <orvo/context.h>
#include <orvo/wire.h>

#include <algorithm>
#include <unordered_map>

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

PureValueRef BlockTypes::driver(const PureValueRef &key) const {
    return mQuery.getDriverType(mBlock.getPort(key), mRefChain);
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

namespace {

/// The way back from one wire.
class TypeSources {
  public:
    explicit TypeSources(const Block &without) : mWithout(without) {}

    bool lead(const Wire *wire) {
        if (wire == nullptr || &wire->getBlock() == &mWithout || mSteps++ == kMostSteps) {
            return false;
        }
        const Block &block = wire->getBlock();
        if (tellsItsType(block)) {
            return true;
        }
        // What is still being looked at when it is met again is on a loop.
        const auto [at, isNew] = mKnown.try_emplace(&block, false);
        if (!isNew) {
            return at->second;
        }
        const BlockPorts ports = block.ports();
        const bool hasSources = block.getPortCount() != 0 && block.type() != A_MODEL_BLOCK.get_ptr();
        const bool all = hasSources && std::all_of(ports.begin(), ports.end(),
                                                   [&](const Port &port) { return lead(port.peekWire()); });
        mKnown[&block] = all;
        return all;
    }

  private:
    static constexpr int kMostSteps = 64;

    static bool tellsItsType(const Block &block) {
        const Value *type = block.type();
        return type == A_CONST_BLOCK.get_ptr() ||
               (type == A_TYPE_PIN_BLOCK.get_ptr() && block.findParam(A_TYPE_PIN_TYPE) != nullptr) ||
               (type == A_CAST_BLOCK.get_ptr() && block.findParam(A_CAST_OUTPUT_TYPE) != nullptr) ||
               (type == A_BIT_SELECT_BLOCK.get_ptr() && block.findParam(A_BIT_SELECT_OUTPUT_TYPE) != nullptr);
    }

    const Block &mWithout;
    std::unordered_map<const Block *, bool> mKnown;
    int mSteps = 0;
};

} // namespace

bool isTypedWithout(const Wire &wire, const Block &block) { return TypeSources(block).lead(&wire); }

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
