// Looking for signals that are no plain numbers.
#include "orvo/checkscalarsignalspass.h"

#include "orvo/unrollpasses.h"

#include <orvo/compoundtypeinfo.h>
#include <orvo/logging.h>
#include <orvo/types.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(CheckScalarSignalsPass,
                 "Tells of each wire that still carries a record, a vector or a complex number. Changes nothing.")

namespace {

/// Types that cannot be read are not plain either.
bool isPlain(const PureValueRef &type, Context *context) {
    const VectorDecorSpec vectors(type, context);
    return vectors.valid() && !vectors.isVector() && !isAggregateType(type.get_ptr()) &&
           ComplexDecorSpec(type, context).isReal();
}

} // namespace

void CheckScalarSignalsPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

void CheckScalarSignalsPass::apply(ModelPassContext &context) {
    Model &model = context.getModel();
    GlobalTypePass &types = internal::unrolledTypes(context);
    constexpr CompoundKind kinds[] = {CompoundKind::Aggregate, CompoundKind::Vector, CompoundKind::Complex};
    if (std::none_of(std::begin(kinds), std::end(kinds),
                     [&](CompoundKind kind) { return types.mayCarry(model, kind); })) {
        return;
    }
    const std::vector<RefChain> instances = internal::instancesOf(model, internal::unrolledTree(context));
    for (const Block &block : model) {
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
