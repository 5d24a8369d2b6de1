// Looking for signals that are no plain numbers.
#include "orvo/checkscalarsignalspass.h"

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/compoundtypeinfo.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(CheckScalarSignalsPass,
                 "Tells of each wire that still carries a record, a vector or a complex number, and of each unpack of "
                 "a plain number. Changes nothing.")

namespace {

/// Types that cannot be read are not plain either.
bool isPlain(const PureValueRef &type, Context *context) {
    const VectorDecorSpec vectors(type, context);
    return vectors.valid() && !vectors.isVector() && !isAggregateType(type.get_ptr()) &&
           ComplexDecorSpec(type, context).isReal();
}

bool isUnpack(const Block &block) {
    const Value *type = block.type();
    return type == A_VUNPACK_BLOCK.get_ptr() || type == A_CUNPACK_BLOCK.get_ptr() || type == A_AUNPACK_BLOCK.get_ptr();
}

bool takesPlainNumber(const Block &unpack, const std::vector<RefChain> &instances, GlobalTypePass &types) {
    const BlockPorts ports = unpack.ports();
    return std::any_of(ports.begin(), ports.end(), [&](const Port &port) {
        return std::any_of(instances.begin(), instances.end(), [&](const RefChain &instance) {
            const PureValueRef type = types.getType(*port.peekWire(), instance);
            return type && isPlain(type, unpack.getContext());
        });
    });
}

} // namespace

void CheckScalarSignalsPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

void CheckScalarSignalsPass::apply(ModelPassContext &context) {
    Model &model = context.getModel();
    GlobalTypePass &types = internal::unrolledTypes(context);
    constexpr CompoundKind kinds[] = {CompoundKind::Aggregate, CompoundKind::Vector, CompoundKind::Complex};
    if (std::none_of(std::begin(kinds), std::end(kinds),
                     [&](CompoundKind kind) { return types.mayCarry(model, kind); }) &&
        std::none_of(model.begin(), model.end(), isUnpack)) {
        return;
    }
    const std::vector<RefChain> instances = internal::instancesOf(model, internal::unrolledTree(context));
    for (const Block &block : model) {
        if (isUnpack(block) && takesPlainNumber(block, instances, types)) {
            log::msg(msg::error::UNPACK_OF_PLAIN_NUMBER, log::p("block", block.value()));
        }
        for (const Wire &wire : block) {
            for (const RefChain &instance : instances) {
                const PureValueRef type = types.getType(wire, instance);
                if (type && !isPlain(type, model.getContext())) {
                    log::msg(msg::error::COMPOUND_SIGNAL_LEFT, log::p("wire", wire.value()) % log::p("type", type));
                    break;
                }
            }
        }
    }
}

} // namespace orvo
