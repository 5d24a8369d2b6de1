// A shift whose output is brought to a type at once and one that is brought to a wider type before give the same: both
// cut low bits toward minus infinity and wrap high ones. So the wider type may be that of all instances together.
#include "orvo/insertcastspass.h"

#include "orvo/blockbuilder.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

namespace orvo {

ORVO_DEFINE_PASS(InsertCastsPass,
                 "Has barrel shifters with a given output type shift in a type that holds their data, too, and inserts "
                 "a cast, which truncates and does not saturate, behind them to the type that was given.")

namespace {

bool isBarrel(const Block &block) {
    return block.type() == A_BARREL_LEFT_BLOCK.get_ptr() || block.type() == A_BARREL_RIGHT_BLOCK.get_ptr();
}

NumTypeSpec givenType(const Block &block) {
    return internal::scalarOf(NumTypeSpec(block.getParam(A_BARREL_OUTPUT_TYPE), block.getContext()));
}

/// The wire of a barrel shifter's data, null if there is none, if nobody reads the result, or if no type is given.
const Wire *dataOf(const Block &block) {
    const Port *port = isBarrel(block) ? block.getPort(NumberValue::get(0, block.getContext())) : nullptr;
    const Wire *out = port == nullptr ? nullptr : block.getWire(A_PRIM_WIRE_OUT);
    return out == nullptr || out->port_size() == 0 || !givenType(block).isFixed() ? nullptr : port->peekWire();
}

} // namespace

void InsertCastsPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

void InsertCastsPass::before(PassContext &context) {
    GlobalTypePass &types = internal::unrolledTypes(context);
    internal::DistinctInstances distinct(internal::unrolledTree(context), types);
    for (Model &model : context.getDesign()) {
        std::vector<RefChain> instances;
        for (Block &block : model) {
            const Wire *data = dataOf(block);
            if (data == nullptr) {
                continue;
            }
            if (instances.empty()) {
                instances = distinct.of(model);
            }
            const NumTypeSpec given = givenType(block);
            NumTypeSpec wide = given;
            for (const RefChain &instance : instances) {
                const NumTypeSpec held(types.getType(*data, instance), block.getContext());
                if (held.valid()) {
                    wide.applyOp(internal::scalarOf(held), TYPE_OP_UNION);
                }
            }
            const NumTypeSpec read = internal::commonType(*block.getWire(A_PRIM_WIRE_OUT), instances, types);
            if (wide.isFixed() && !wide.scalarEquals(given) && read.scalarEquals(given)) {
                mWork[&model].push_back({&block, wide, read});
            }
        }
    }
}

void InsertCastsPass::apply(ModelPassContext &context) {
    const auto work = mWork.find(&context.getModel());
    if (work == mWork.end()) {
        return;
    }
    for (const Widening &widening : work->second) {
        Block &block = *widening.block;
        internal::BlockBuilder(block).convertOutput(A_PRIM_WIRE_OUT, "shiftCast", widening.read);
        block.setParam(A_BARREL_OUTPUT_TYPE, ValueRef(widening.wide.toValue(block.getContext())));
    }
}

void InsertCastsPass::after(PassContext &) { mWork.clear(); }

} // namespace orvo
